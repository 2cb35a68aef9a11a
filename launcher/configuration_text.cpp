#include "launcher/configuration_text.h"

#include <limits>
#include <utility>

#include "platform/relative_path.h"
#include "platform/text.h"
#include "product/locations.h"
#include "update/manifest/json_reader.h"
#include "update/manifest/version.h"
#include "update/workflow/settings_file.h"

namespace launcher_shell {
namespace {

constexpr wchar_t kEmptyOrTooLarge[] = L"current.json 為空、過大或讀取失敗。";
constexpr wchar_t kNotUtf8[] = L"current.json 不是有效的 UTF-8。";
constexpr wchar_t kFieldMissing[] = L"current.json 缺少必要欄位或使用不支援的格式。";
constexpr wchar_t kUnsafePath[] = L"current.json 包含不安全的程式路徑。";
constexpr std::wstring_view kBlanks = L" \t\r\n";
constexpr std::wstring_view kLibraryBlanks = L" \t\n\v\f\r";

bool Fail(std::wstring& error, const wchar_t* message) {
    error = message;
    return false;
}

/// What the unit behind a backslash stands for; 0 for an escape that this reader does not know.
wchar_t Unescape(wchar_t unit) {
    constexpr std::pair<wchar_t, wchar_t> kEscapes[] = {{L'"', L'"'},  {L'\\', L'\\'}, {L'/', L'/'},  {L'b', L'\b'},
                                                        {L'f', L'\f'}, {L'n', L'\n'},  {L'r', L'\r'}, {L't', L'\t'}};
    for (const auto& [escape, meaning] : kEscapes) {
        if (unit == escape) return meaning;
    }
    return L'\0';
}

/// As `FlatReadString`; `end` is just behind the closing quote.
bool ReadStringTo(std::wstring_view text, std::size_t position, std::wstring& value, std::size_t& end) {
    value.clear();
    if (position >= text.size() || text[position] != L'"') return false;
    for (std::size_t at = position + 1; at < text.size(); ++at) {
        if (text[at] == L'"') {
            end = at + 1;
            return true;
        }
        if (text[at] != L'\\') {
            value.push_back(text[at]);
            continue;
        }
        const wchar_t meaning = at + 1 < text.size() ? Unescape(text[at + 1]) : L'\0';
        if (meaning == L'\0') return false;
        value.push_back(meaning);
        ++at;
    }
    return false;
}

bool ReadRequired(std::wstring_view text, std::wstring_view key, std::wstring& value) {
    std::size_t at = 0;
    return FlatFindValue(text, key, at) && FlatReadString(text, at, value);
}

/// A fault ends the field with what was read so far: an update must still be able to run over a damaged version text.
void ReadForgiving(std::wstring_view text, std::wstring_view key, std::wstring& value) {
    value.clear();
    std::size_t at = 0;
    if (FlatFindValue(text, key, at)) static_cast<void>(FlatReadString(text, at, value));
}

bool SchemaIsKnown(std::wstring_view text) {
    std::size_t at = 0;
    std::int32_t schema = 0;
    return FlatFindValue(text, L"schemaVersion", at) && FlatReadInt(text, at, schema) && schema == 1;
}

std::int32_t ReadInterval(std::wstring_view text) {
    std::size_t at = 0;
    std::int32_t minutes = 0;
    if (!FlatFindValue(text, L"updateCheckIntervalMinutes", at) || !FlatReadInt(text, at, minutes)) {
        return kDefaultIntervalMinutes;
    }
    return minutes >= 1 && minutes <= kMaxIntervalMinutes ? minutes : kDefaultIntervalMinutes;
}

}  // namespace

bool FlatFindValue(std::wstring_view text, std::wstring_view key, std::size_t& position) {
    const std::wstring quoted = L'"' + std::wstring(key) + L'"';
    const std::size_t found = text.find(quoted);
    if (found == std::wstring_view::npos) return false;
    const std::size_t colon = text.find(L':', found + quoted.size());
    if (colon == std::wstring_view::npos) return false;
    position = text.find_first_not_of(kBlanks, colon + 1);
    return position != std::wstring_view::npos;
}

bool FlatReadString(std::wstring_view text, std::size_t position, std::wstring& value) {
    std::size_t ignored = 0;
    return ReadStringTo(text, position, value, ignored);
}

bool FlatReadInt(std::wstring_view text, std::size_t position, std::int32_t& value) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    while (position < text.size() && kLibraryBlanks.find(text[position]) != std::wstring_view::npos)
        ++position;
    bool negative = false;
    if (position < text.size() && (text[position] == L'-' || text[position] == L'+')) {
        negative = text[position] == L'-';
        ++position;
    }
    std::int64_t magnitude = 0;
    const std::size_t firstDigit = position;
    for (; position < text.size() && text[position] >= L'0' && text[position] <= L'9'; ++position) {
        if (magnitude <= kMost) magnitude = magnitude * 10 + (text[position] - L'0');
    }
    if (position == firstDigit) return false;
    const std::int64_t limit = negative ? kMost + 1 : kMost;
    if (magnitude > limit) magnitude = limit;
    value = static_cast<std::int32_t>(negative ? -magnitude : magnitude);
    return true;
}

bool IsDottedVersion(std::wstring_view text) {
    return launcher_update::IsVersion(text);
}

bool IsSafeConfigurationPath(std::wstring_view text, bool allowFolders) {
    if (!allowFolders && text.find_first_of(L"\\/") != std::wstring_view::npos) return false;
    return platform::IsSafeRelativePath(text);
}

bool ParseLauncherConfiguration(std::string_view bytes, LauncherConfiguration& configuration, std::wstring& error) {
    if (bytes.empty() || bytes.size() > launcher_update::kMaxSettingsBytes) return Fail(error, kEmptyOrTooLarge);
    std::wstring text;
    if (!launcher_update::DecodeUtf8Document(bytes, text)) return Fail(error, kNotUtf8);
    LauncherConfiguration read;
    if (!SchemaIsKnown(text) || !ReadRequired(text, L"applicationDirectory", read.applicationDirectory) ||
        !ReadRequired(text, L"applicationExecutable", read.applicationExecutable)) {
        return Fail(error, kFieldMissing);
    }
    ReadForgiving(text, L"productVersion", read.productVersion);
    ReadForgiving(text, L"launcherVersion", read.launcherVersion);
    ReadForgiving(text, L"updateManifestUrl", read.updateManifestUrl);
    read.updateCheckIntervalMinutes = ReadInterval(text);
    if (!IsSafeConfigurationPath(read.applicationDirectory, true) ||
        !IsSafeConfigurationPath(read.applicationExecutable, false)) {
        return Fail(error, kUnsafePath);
    }
    configuration = std::move(read);
    return true;
}

bool ReplaceLauncherVersion(std::wstring_view text, std::wstring_view version, std::wstring& replaced) {
    std::size_t start = 0;
    std::size_t end = 0;
    std::wstring old;
    if (!FlatFindValue(text, L"launcherVersion", start) || !ReadStringTo(text, start, old, end)) return false;
    replaced = text.substr(0, start);
    replaced += L'"' + std::wstring(version) + L'"';
    replaced += text.substr(end);
    return true;
}

std::wstring RenderLauncherConfiguration(const LauncherConfiguration& configuration) {
    const auto line = [](const wchar_t* key, const std::wstring& value) {
        return std::wstring(L"  \"") + key + L"\": \"" + launcher_update::EscapeJsonText(value) + L"\",\n";
    };
    return L"{\n  \"schemaVersion\": 1,\n" + line(L"product", product::kProductName) +
           line(L"productVersion", configuration.productVersion) +
           line(L"launcherVersion", configuration.launcherVersion) +
           line(L"applicationDirectory", configuration.applicationDirectory) +
           line(L"applicationExecutable", configuration.applicationExecutable) +
           line(L"updateManifestUrl", configuration.updateManifestUrl) + L"  \"updateCheckIntervalMinutes\": " +
           std::to_wstring(configuration.updateCheckIntervalMinutes) + L"\n}\n";
}

}  // namespace launcher_shell
