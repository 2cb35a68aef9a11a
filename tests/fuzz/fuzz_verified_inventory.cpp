// Throws any bytes at the reader of the verification's record. What it accepts must be the five lines, rebuilt here
// from what it gave, to the last byte.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"
#include "tests/fuzz/require.h"
#include "update/installed/verified_inventory_text.h"

using namespace launcher_update;

namespace {

bool IsDigest(const std::wstring& text) {
    return text.size() == 64 && text.find_first_not_of(L"0123456789abcdef") == std::wstring::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<char> exact(data, data + size);  // a look beyond its end is seen
    const std::string_view bytes(exact.data(), exact.size());
    std::wstring manifest;
    std::wstring layout;
    std::int64_t time = 0;
    std::wstring inventory;
    if (!ParseVerifiedInventory(bytes, manifest, layout, time, inventory)) return 0;

    VPR_REQUIRE(IsDigest(manifest) && IsDigest(inventory));
    VPR_REQUIRE(layout == L"files" || layout == L"activated" || layout == L"portable");
    VPR_REQUIRE(time >= 0);
    const std::string start = platform::EncodeUtf8(L"VPR_VERIFIED_INVENTORY_V1\nmanifest=" + manifest + L"\nlayout=" +
                                                   layout + L"\nverified=");
    const std::string end = platform::EncodeUtf8(L"\ninventory=" + inventory + L"\n");
    VPR_REQUIRE(bytes.starts_with(start) && bytes.ends_with(end) && bytes.size() > start.size() + end.size());
    std::string digits(bytes.substr(start.size(), bytes.size() - start.size() - end.size()));
    VPR_REQUIRE(digits.find_first_not_of("0123456789") == std::string::npos);
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    VPR_REQUIRE(digits == std::to_string(time));
    return 0;
}
