#include "update/installed/verified_inventory_text.h"

#include <algorithm>
#include <charconv>

#include "platform/text.h"
#include "update/manifest/sha256_text.h"

namespace launcher_update {
namespace {

constexpr std::string_view kHead = "VPR_VERIFIED_INVENTORY_V1\nmanifest=";
constexpr std::string_view kLayout = "\nlayout=";
constexpr std::string_view kVerified = "\nverified=";
constexpr std::string_view kInventory = "\ninventory=";

/// Takes the text up to `mark` from the front of `rest`, and the mark with it.
bool TakeUpTo(std::string_view& rest, std::string_view mark, std::string_view& text) {
    const std::size_t at = rest.find(mark);
    if (at == std::string_view::npos) return false;
    text = rest.substr(0, at);
    rest.remove_prefix(at + mark.size());
    return true;
}

bool IsLowerHexDigest(std::string_view text) {
    return text.size() == kSha256HexUnits && std::all_of(text.begin(), text.end(), [](char digit) {
               return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
           });
}

bool ParseTime(std::string_view text, std::int64_t& time) {
    const bool allDigits = !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
    return allDigits && std::from_chars(text.data(), text.data() + text.size(), time).ec == std::errc();
}

}  // namespace

void AppendFileIdentity(std::wstring& text, std::wstring_view key, std::uint64_t size, const FileIdentity& identity) {
    constexpr wchar_t kDigits[] = L"0123456789abcdef";
    text.append(key).append(L"\n");
    text += std::to_wstring(size) + L"\n" + std::to_wstring(identity.lastWriteTime) + L"\n" +
            std::to_wstring(identity.changeTime) + L"\n" + std::to_wstring(identity.volumeSerialNumber) + L"\n";
    for (const std::uint8_t byte : identity.fileId) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 15]);
    }
    text.push_back(L'\n');
}

std::wstring RenderVerifiedInventory(std::wstring_view manifestDigest, InstalledLayout layout,
                                     std::int64_t verifiedTime, std::wstring_view inventoryDigest) {
    return platform::WidenAscii(kHead)
        .append(manifestDigest)
        .append(platform::WidenAscii(kLayout))
        .append(LayoutText(layout))
        .append(platform::WidenAscii(kVerified))
        .append(std::to_wstring(verifiedTime))
        .append(platform::WidenAscii(kInventory))
        .append(inventoryDigest)
        .append(L"\n");
}

bool ParseVerifiedInventory(std::string_view bytes, std::wstring& manifestDigest, std::wstring& layoutText,
                            std::int64_t& verifiedTime, std::wstring& inventoryDigest) {
    if (!bytes.starts_with(kHead)) return false;
    std::string_view rest = bytes.substr(kHead.size());
    std::string_view manifest;
    std::string_view layout;
    std::string_view verified;
    if (!TakeUpTo(rest, kLayout, manifest) || !TakeUpTo(rest, kVerified, layout) ||
        !TakeUpTo(rest, kInventory, verified))
        return false;
    // The first line feed must be the last byte: a sixth line is refused as a missing end is.
    if (rest.find('\n') != rest.size() - 1) return false;
    const std::string_view inventory = rest.substr(0, rest.size() - 1);
    layoutText = platform::WidenAscii(layout);
    if (!IsLowerHexDigest(manifest) || !IsLowerHexDigest(inventory) || !ParseLayoutText(layoutText) ||
        !ParseTime(verified, verifiedTime)) {
        return false;
    }
    manifestDigest = platform::WidenAscii(manifest);
    inventoryDigest = platform::WidenAscii(inventory);
    return true;
}

}  // namespace launcher_update
