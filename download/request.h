#pragma once

/// The download engine's whole vocabulary: what a caller asks for, hears on the way and gets. Plain records.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace launcher_download {

/// Sizes a payload may have, in bytes. 2 GiB is the ceiling of one cache file.
inline constexpr std::uint64_t kMinPayloadBytes = 1;
inline constexpr std::uint64_t kMaxPayloadBytes = 0x80000000;

/// Attempts of one transfer at one source.
inline constexpr std::uint32_t kMaxAttempts = 3;

/// Which source the files of one update come from. Made once per update, in memory only, shared through
/// `Request::session` by transfers that come one after the other; only the engine writes it.
struct SourceSession {
    std::int32_t preference = 0;  // 0 none yet, 1 primary, 2 backup
};

/// One payload. The caller owns it; the engine copies it where it must change it.
struct Request {
    std::wstring url;                        // https
    std::wstring sha256;                     // 64 lower-case hexadecimal characters; also the cache file's stem
    std::wstring cacheDirectory;             // absolute path with a drive letter; made when missing
    std::uint64_t size = 0;                  // exact, kMinPayloadBytes to kMaxPayloadBytes
    std::wstring backupUrl;                  // second source; may be empty
    std::uint64_t comparisonDelayMs = 0;     // from an attempt's first body byte to the opening of the speed window
    std::uint64_t comparisonWindowMs = 0;    // length of the speed window
    bool backupSource = false;               // `url` is the backup source already: no comparison is made
    std::uint32_t component = 0;             // for the trace: 1 launcher, 2 application, 3 runtime, 4 theme, 5 package
    std::shared_ptr<SourceSession> session;  // may be null
    bool compareAtStart = false;             // measure both sources before the first byte, if no preference exists
};

enum class Phase : std::uint32_t {
    connecting = 0,       // start of an attempt
    receiving = 1,        // headers accepted, and every body chunk
    slow = 2,             // as receiving, once the slow timer has run out
    retrying = 3,         // waiting before the next attempt
    verifying = 4,        // hashing the cache file
    cached = 5,           // a complete, verified cache file was found; no network used
    complete = 6,         // downloaded and verified
    failed = 7,           // final
    cancelled = 8,        // final, by the user
    switchingSource = 9,  // going over to the other source
    comparingSource = 10  // measuring the other source
};

struct Progress {
    Phase phase = Phase::connecting;
    std::uint64_t bytes = 0;         // held in the cache file for this payload
    std::uint64_t total = 0;         // `Request::size`
    std::uint64_t networkBytes = 0;  // taken from the network for this payload, repeats and probes included
    std::uint64_t elapsedMs = 0;     // since the cache file was opened
    double bytesPerSecond = -1.0;    // last one-second sample; -1.0 while unknown
    std::uint32_t attempt = 0;       // from 1; 0 before the first
    std::uint32_t maxAttempts = kMaxAttempts;
    bool restarted = false;  // `bytes` went back because retained bytes were dropped or the source changed: no error
    bool backup = false;     // the bytes come from the backup source
    bool slow = false;       // only on a switch that was made because the backup is faster
    double comparisonPrimarySpeed = 0;  // bytes per second; 0 until measured
    double comparisonBackupSpeed = 0;   // bytes per second; 0 until measured
    std::uint64_t aggregateBytes = 0;   // 0 from the engine; for the caller's bar over several payloads
    std::uint64_t aggregateTotal = 0;   // as `aggregateBytes`
};

/// What the engine asks and tells on its way; each may be empty. Called on the thread that downloads, and during a
/// comparison of two sources on a second thread as well. Must not throw.
struct Callbacks {
    std::function<bool()> cancelled;  // true: the user wants everything stopped
    std::function<bool()> reconnect;  // true: end this attempt at once, keep the bytes, try again
    std::function<void(const Progress&)> progress;
};

struct Result {
    bool success = false;          // `path` holds exactly `Request::size` bytes with the requested hash
    bool canceled = false;         // the user stopped it
    std::wstring path;             // the verified cache file, without long-path prefix; stays the cache's own
    std::wstring reason;           // short ASCII code; empty on success
    std::uint32_t osError = 0;     // last error of the call that failed in the last attempt; 0 if none
    std::uint32_t httpStatus = 0;  // status of the last attempt's response; 0 if none
    std::uint32_t attempts = 0;    // the attempt in which the transfer ended; 0 before the first
};

}  // namespace launcher_download
