// Throws any text at every function of the JSON reader. Positions must lie in the text, what is copied out must be
// whole, what is escaped must read back, and numbers must be what the C library makes of them.

#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fuzz/exact_text.h"
#include "tests/fuzz/require.h"
#include "update/manifest/json_reader.h"

using namespace launcher_update;

namespace {

/// The library needs a terminator, so it is asked about a copy of a piece.
void CheckNumber(std::wstring_view text, std::uint64_t position) {
    const std::wstring piece(text.substr(position, 64));
    std::uint64_t next = 0;
    const std::uint64_t value = ConvertUnsigned(piece, 0, next);
    wchar_t* end = nullptr;
    VPR_REQUIRE(std::wcstoull(piece.c_str(), &end, 10) == value);
    VPR_REQUIRE(static_cast<std::uint64_t>(end - piece.c_str()) == next);
}

void CheckString(std::wstring_view text, std::uint64_t position) {
    std::wstring value;
    std::uint64_t next = 0;
    if (!ParseJsonStringAt(text, position, value, next)) return;
    VPR_REQUIRE(text[position] == L'"' && next > position + 1 && next <= text.size() && text[next - 1] == L'"');
    VPR_REQUIRE(value.size() <= next - position - 2);
}

bool IsWholeObject(const std::wstring& object) {
    std::wstring again;
    return ExtractObjectAt(object, 0, again) && again == object;
}

void CheckArrays(std::wstring_view text, std::wstring_view key, std::uint64_t position) {
    std::vector<std::wstring> strict;
    std::vector<std::wstring> lenient;
    const bool isStrict = ExtractObjectArrayAt(text, position, strict);
    const bool isLenient = ExtractObjectArrayByKey(text, key, lenient);
    VPR_REQUIRE(!isStrict || (isLenient && strict == lenient));
    if (!isLenient) return;
    for (const std::wstring& object : lenient)
        VPR_REQUIRE(IsWholeObject(object));
}

void CheckValue(std::wstring_view text, std::wstring_view key, std::uint64_t position) {
    VPR_REQUIRE(position > 0 && position < text.size());
    CheckNumber(text, position);
    CheckString(text, position);
    CheckArrays(text, key, position);
    std::wstring object;
    VPR_REQUIRE(!ExtractObjectAt(text, position, object) || IsWholeObject(object));
    std::vector<std::wstring> values;
    static_cast<void>(ParseStringArrayAt(text, position, values));
}

void CheckKey(std::wstring_view text, std::wstring_view key) {
    bool flag = false;
    std::uint64_t strict = 0;
    std::uint64_t loose = 0;
    const bool isFlag = ReadJsonBool(text, key, flag);
    const bool isStrict = ReadJsonUnsigned(text, key, strict);
    const bool isLoose = ReadJsonUnsignedLoose(text, key, loose);
    VPR_REQUIRE(!isStrict || (isLoose && strict == loose && !isFlag));
    std::uint64_t position = 0;
    const bool found = FindTopLevelValue(text, key, position);
    VPR_REQUIRE(found || (position == kNotFound && !isFlag && !isLoose));
    if (found) CheckValue(text, key, position);
}

void CheckEscapes(std::wstring_view text) {
    for (const std::wstring& quoted :
         {QuoteJsonText(text), std::wstring(L"\"").append(EscapeJsonText(text)).append(L"\"")}) {
        std::wstring value;
        std::uint64_t next = 0;
        VPR_REQUIRE(ParseJsonStringAt(quoted, 0, value, next));
        VPR_REQUIRE(value == text && next == quoted.size());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::wstring decoded;
    if (!DecodeUtf8Document({reinterpret_cast<const char*>(data), size}, decoded)) return 0;
    VPR_REQUIRE(!decoded.empty());
    const ExactText exact(decoded);
    const std::wstring_view text = exact.View();
    for (const std::wstring_view key : {L"a", L"files", L""})
        CheckKey(text, key);
    for (std::uint64_t position = 0; position <= text.size() && position < 64; ++position) {
        CheckNumber(text, position);
        std::uint64_t next = 0;
        static_cast<void>(ConvertUnsigned(text, position, next));
    }
    CheckEscapes(text);
    return 0;
}
