#pragma once

/// Which of two sources a payload comes from. Pure; any thread.

#include <cstdint>
#include <string>
#include <string_view>

#include "download/request.h"

namespace launcher_download {

/// What a measurement of a source may cost.
struct ProbeLimits {
    std::uint64_t bytes;
    std::uint64_t timeMs;
};

inline constexpr ProbeLimits kStartProbe{0x80000, 2000};     // 512 KiB of each source, both at the same time
inline constexpr ProbeLimits kInRunProbe{0x400000, 4000};    // 4 MiB of the backup, while the primary waits
inline constexpr std::uint64_t kUsableProbeBytes = 0x20000;  // fewer say more about the start of a connection

/// The backup's place of a payload whose primary place is a release of the primary host, `<tag>/<file>` being the same
/// in both; empty for any other URL. The tag is `v` or `launcher-v` and four numbers. Compared literally throughout.
[[nodiscard]] std::wstring DeriveBackupUrl(std::wstring_view primaryUrl);

/// The one Content-Range that answers a probe of the first `limit` of `size` bytes.
[[nodiscard]] std::wstring ProbeContentRange(std::uint64_t limit, std::uint64_t size);

/// Bytes per second of a probe; 0 if too few bytes came to say. Less than 100 ms counts as 100 ms.
[[nodiscard]] double ProbeSpeed(std::uint64_t bytes, std::uint64_t elapsedMs);

/// True if the first byte should come from the backup: it answered and the primary did not, or it is at least 1.5
/// times as fast.
[[nodiscard]] bool BackupWinsAtStart(double primarySpeed, double backupSpeed);

/// True if a running download from the primary is slow enough, and far enough from its end, for a look at the backup.
/// `windowBytes` came in the last `windowMs`; the window opens `delayMs` behind the attempt's first byte and is judged
/// once it is `windowLengthMs` long. Division by an empty window is refused, not answered.
[[nodiscard]] bool ShouldCompareSources(std::uint64_t sinceFirstByteMs, std::uint64_t windowMs,
                                        std::uint64_t windowBytes, std::uint64_t bytesHeld, std::uint64_t size,
                                        std::uint64_t delayMs, std::uint64_t windowLengthMs);

/// True if the backup, although it begins at byte 0, would be done so much sooner that a change pays.
[[nodiscard]] bool BackupMeasuredFaster(double primarySpeed, double backupSpeed, std::uint64_t bytesHeld,
                                        std::uint64_t size);

/// True if another server may cure what ended this transfer. Faults of this machine and refusals to talk are not
/// among them: they would end the other source's transfer just so.
[[nodiscard]] bool IsFailoverEligible(const Result& result);

}  // namespace launcher_download
