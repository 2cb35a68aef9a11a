#include "download/cache_rules.h"

#include <limits>

#include "download/http_rules.h"

namespace launcher_download {
namespace {

constexpr std::size_t kStemLength = 64;

}  // namespace

bool IsPayloadName(std::wstring_view name) {
    return IsLowerHexSha256(name.substr(0, kStemLength)) && name.substr(kStemLength) == kPayloadSuffix;
}

bool CacheTally::Add(std::uint64_t bytes) {
    if (bytes > kMaxPayloadBytes || bytes > std::numeric_limits<std::uint64_t>::max() - bytes_) return false;
    bytes_ += bytes;
    ++count_;
    return true;
}

void CacheTally::Remove(std::uint64_t bytes) {
    bytes_ -= bytes;
    --count_;
}

bool IsYoung(std::uint64_t writtenTicks, std::uint64_t nowTicks) {
    return writtenTicks >= nowTicks || nowTicks - writtenTicks <= kMaxPayloadAgeTicks;
}

}  // namespace launcher_download
