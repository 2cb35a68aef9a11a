#pragma once

/// Text of a resume file. Pure; any thread.
///
///     vpr-resume-1                    magic
///     1234567                         size of the payload
///     <64 lower-case hex characters>  SHA-256 of the source URL
///     "tag"                           the response's strong entity tag
///
/// ASCII, four lines each ended by LF, nothing behind them, at most 1024 bytes.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace launcher_download {

inline constexpr std::size_t kMaxResumeFileBytes = 1024;

/// What vouches for the bytes of a partial cache file: the entity that they came from. Empty or zero means no state.
struct ResumeState {
    std::wstring urlHash;    // of the source URL's UTF-16 units, low byte first
    std::wstring etag;       // strong, with its double quotes
    std::uint64_t size = 0;  // of the whole payload

    [[nodiscard]] bool operator==(const ResumeState&) const = default;
};

/// The file's bytes; empty if the URL's hash or the tag does not pass its rule.
[[nodiscard]] std::string EncodeResumeState(const ResumeState& state);

/// The state in the file's bytes; an empty state on any fault. A file that lacks only its last LF is whole.
[[nodiscard]] ResumeState DecodeResumeState(std::string_view bytes);

}  // namespace launcher_download
