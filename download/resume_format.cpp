#include "download/resume_format.h"

#include <optional>

#include "download/http_rules.h"
#include "platform/text.h"

namespace launcher_download {
namespace {

constexpr std::string_view kMagic = "vpr-resume-1";

/// Takes one line off the front of `rest`, widened character by character; none if nothing is left.
std::optional<std::wstring> TakeLine(std::string_view& rest) {
    if (rest.empty()) return std::nullopt;
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(line.size() < rest.size() ? line.size() + 1 : line.size());
    std::wstring wide;
    for (const char unit : line)
        wide += static_cast<wchar_t>(static_cast<unsigned char>(unit));
    return wide;
}

bool HasGoodNames(const ResumeState& state) {
    return IsLowerHexSha256(state.urlHash) && IsStrongEtag(state.etag);
}

}  // namespace

std::string EncodeResumeState(const ResumeState& state) {
    if (!HasGoodNames(state)) return {};
    return std::string(kMagic) + '\n' + std::to_string(state.size) + '\n' + platform::EncodeUtf8(state.urlHash) + '\n' +
           platform::EncodeUtf8(state.etag) + '\n';
}

ResumeState DecodeResumeState(std::string_view bytes) {
    if (bytes.size() > kMaxResumeFileBytes) return {};
    const std::optional<std::wstring> magic = TakeLine(bytes);
    const std::optional<std::wstring> size = TakeLine(bytes);
    const std::optional<std::wstring> urlHash = TakeLine(bytes);
    const std::optional<std::wstring> etag = TakeLine(bytes);
    if (!etag || !bytes.empty() || *magic != platform::WidenAscii(kMagic)) return {};
    const std::optional<std::uint64_t> number = ParseDecimal(*size);
    const ResumeState state{*urlHash, *etag, number.value_or(0)};
    return number && HasGoodNames(state) ? state : ResumeState{};
}

}  // namespace launcher_download
