#include "download/source_rules.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "download/failures.h"
#include "product/locations.h"

namespace launcher_download {
namespace {

constexpr std::wstring_view kTagPrefixes[] = {L"launcher-v", L"v"};
constexpr int kTagNumbers = 4;

constexpr std::uint64_t kLeastProbeMs = 100;  // a burst out of a buffer is no speed
constexpr double kStartAdvantage = 1.5;

constexpr std::uint64_t kLeastBytesHeld = 0x20000;   // 128 KiB
constexpr std::uint64_t kLeastBytesLeft = 0x100000;  // 1 MiB
constexpr double kNearlyDone = 0.95;
constexpr double kWorthComparingSeconds = 10.0;

constexpr double kInRunAdvantage = 2.0;
// What the change itself costs, and a margin for the error of the measurement.
constexpr double kSwitchSeconds = 3.0;
constexpr double kMarginSeconds = 5.0;

constexpr const Failure* kCuredByAnotherServer[] = {
    &failures::kBackupMeasuredFaster,
    &failures::kHttpError,
    &failures::kConnectionFailed,
    &failures::kConnectFailed,
    &failures::kReceiveFailed,
    &failures::kRetriesExhausted,
    &failures::kServerRequestedLaterRetry,
    &failures::kHtmlResponse,
    &failures::kContentLengthMismatch,
    &failures::kPayloadTooLarge,
    &failures::kSha256Mismatch,
    &failures::kInvalidResponse,
};

bool IsDigit(wchar_t unit) {
    return unit >= L'0' && unit <= L'9';
}

bool IsReleaseCharacter(wchar_t unit) {
    const bool letter = (unit >= L'a' && unit <= L'z') || (unit >= L'A' && unit <= L'Z');
    return letter || IsDigit(unit) || unit == L'-' || unit == L'.' || unit == L'_' || unit == L'/';
}

/// `1.2.3.4`, each number of at least one digit.
bool IsFourNumbers(std::wstring_view text) {
    for (int number = 0; number < kTagNumbers; ++number) {
        if (number > 0) {
            if (!text.starts_with(L'.')) return false;
            text.remove_prefix(1);
        }
        const auto end = std::find_if_not(text.begin(), text.end(), IsDigit);
        if (end == text.begin()) return false;
        text.remove_prefix(static_cast<std::size_t>(end - text.begin()));
    }
    return text.empty();
}

bool IsReleaseTag(std::wstring_view tag) {
    return std::any_of(std::begin(kTagPrefixes), std::end(kTagPrefixes), [tag](std::wstring_view prefix) {
        return tag.starts_with(prefix) && IsFourNumbers(tag.substr(prefix.size()));
    });
}

/// `<tag>/<file>` as releases name it.
bool IsReleasePath(std::wstring_view path) {
    const std::size_t slash = path.find(L'/');
    if (slash == std::wstring_view::npos || slash != path.rfind(L'/')) return false;
    if (slash == 0 || slash == path.size() - 1) return false;
    if (!std::all_of(path.begin(), path.end(), IsReleaseCharacter)) return false;
    return path.find(L"..") == std::wstring_view::npos && IsReleaseTag(path.substr(0, slash));
}

/// Far enough from both ends of the payload for a change of source to pay at all.
bool IsWorthChanging(std::uint64_t bytesHeld, std::uint64_t size) {
    if (bytesHeld >= size || size - bytesHeld < kLeastBytesLeft) return false;
    return static_cast<double>(bytesHeld) / static_cast<double>(size) < kNearlyDone;
}

}  // namespace

std::wstring DeriveBackupUrl(std::wstring_view primaryUrl) {
    if (!primaryUrl.starts_with(product::kPrimaryReleasePrefix)) return {};
    const std::wstring_view path = primaryUrl.substr(product::kPrimaryReleasePrefix.size());
    if (!IsReleasePath(path)) return {};
    return std::wstring(product::kBackupReleasePrefix).append(path);
}

std::wstring ProbeContentRange(std::uint64_t limit, std::uint64_t size) {
    return L"bytes 0-" + std::to_wstring(limit - 1) + L'/' + std::to_wstring(size);
}

double ProbeSpeed(std::uint64_t bytes, std::uint64_t elapsedMs) {
    if (bytes < kUsableProbeBytes) return 0.0;
    return static_cast<double>(bytes) * 1000.0 / static_cast<double>(std::max(elapsedMs, kLeastProbeMs));
}

bool BackupWinsAtStart(double primarySpeed, double backupSpeed) {
    if (!(backupSpeed > 0.0)) return false;
    return primarySpeed == 0.0 || backupSpeed >= kStartAdvantage * primarySpeed;
}

bool ShouldCompareSources(std::uint64_t sinceFirstByteMs, std::uint64_t windowMs, std::uint64_t windowBytes,
                          std::uint64_t bytesHeld, std::uint64_t size, std::uint64_t delayMs,
                          std::uint64_t windowLengthMs) {
    if (windowMs == 0 || windowBytes == 0) return false;
    if (sinceFirstByteMs < delayMs || sinceFirstByteMs - delayMs < windowLengthMs) return false;
    if (windowMs < windowLengthMs) return false;
    if (bytesHeld < kLeastBytesHeld || !IsWorthChanging(bytesHeld, size)) return false;
    const double speed = static_cast<double>(windowBytes) * 1000.0 / static_cast<double>(windowMs);
    return static_cast<double>(size - bytesHeld) / speed > kWorthComparingSeconds;
}

bool BackupMeasuredFaster(double primarySpeed, double backupSpeed, std::uint64_t bytesHeld, std::uint64_t size) {
    if (!std::isfinite(primarySpeed) || !std::isfinite(backupSpeed)) return false;
    if (!(primarySpeed > 0.0) || kInRunAdvantage * primarySpeed > backupSpeed) return false;
    if (!IsWorthChanging(bytesHeld, size)) return false;
    const double primarySeconds = static_cast<double>(size - bytesHeld) / primarySpeed;
    const double backupSeconds = static_cast<double>(size) / backupSpeed;
    return primarySeconds > backupSeconds + kSwitchSeconds + kMarginSeconds;
}

bool IsFailoverEligible(const Result& result) {
    return std::any_of(std::begin(kCuredByAnotherServer), std::end(kCuredByAnotherServer),
                       [&result](const Failure* failure) { return result.reason == failure->reason; });
}

}  // namespace launcher_download
