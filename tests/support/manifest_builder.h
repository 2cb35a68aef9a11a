#pragma once

/// Texts of update manifests for tests: small JSON objects with good defaults, of which a test changes what it is
/// about.

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace test_support {

/// `text` as a JSON string. Only what tests put into names is escaped.
inline std::wstring Quoted(std::wstring_view text) {
    std::wstring quoted = L"\"";
    for (const wchar_t unit : text) {
        if (unit == L'"' || unit == L'\\') quoted.push_back(L'\\');
        quoted.push_back(unit);
    }
    return quoted + L"\"";
}

/// A digest of one repeated digit.
inline std::wstring Digest(wchar_t digit) {
    return std::wstring(64, digit);
}

/// A JSON object whose keys keep their order. Values are raw JSON, so that a test can put anything there.
class JsonObject {
  public:
    JsonObject& Set(std::wstring_view key, std::wstring_view raw) {
        const auto found =
            std::find_if(keys_.begin(), keys_.end(), [key](const auto& pair) { return pair.first == key; });
        if (found == keys_.end()) {
            keys_.emplace_back(key, raw);
        } else {
            found->second = raw;
        }
        return *this;
    }

    JsonObject& SetText(std::wstring_view key, std::wstring_view text) { return Set(key, Quoted(text)); }
    JsonObject& SetNumber(std::wstring_view key, unsigned long long number) {
        return Set(key, std::to_wstring(number));
    }
    JsonObject& Set(std::wstring_view key, const JsonObject& object) { return Set(key, object.Text()); }

    JsonObject& Remove(std::wstring_view key) {
        std::erase_if(keys_, [key](const auto& pair) { return pair.first == key; });
        return *this;
    }

    [[nodiscard]] std::wstring Text() const {
        std::wstring text = L"{";
        for (const auto& [key, raw] : keys_) {
            if (text.size() > 1) text += L",";
            text += Quoted(key) + L":" + raw;
        }
        return text + L"}";
    }

  private:
    std::vector<std::pair<std::wstring, std::wstring>> keys_;
};

inline std::wstring Array(const std::vector<std::wstring>& raw) {
    std::wstring text = L"[";
    for (const std::wstring& value : raw)
        text += (text.size() > 1 ? L"," : L"") + value;
    return text + L"]";
}

inline std::wstring Array(const std::vector<JsonObject>& objects) {
    std::vector<std::wstring> raw;
    for (const JsonObject& object : objects)
        raw.push_back(object.Text());
    return Array(raw);
}

inline std::wstring TextArray(const std::vector<std::wstring>& texts) {
    std::vector<std::wstring> raw;
    for (const std::wstring& text : texts)
        raw.push_back(Quoted(text));
    return Array(raw);
}

inline JsonObject FileElement() {
    JsonObject file;
    file.SetText(L"component", L"application").SetText(L"path", L"Velmora Pine Relay/Velmora Pine Relay.exe");
    file.SetText(L"url", L"https://h.example/app").SetText(L"sha256", Digest(L'a')).SetNumber(L"size", 1001);
    return file;
}

inline JsonObject ThemeElement() {
    JsonObject file;
    file.SetText(L"component", L"theme").SetText(L"path", L"Velmora Pine Relay/Themes/Dusk.vprtheme");
    file.SetText(L"url", L"https://h.example/dusk").SetText(L"sha256", Digest(L'b')).SetNumber(L"size", 2002);
    return file;
}

inline JsonObject InventoryElement(std::wstring_view path, wchar_t digit, unsigned long long size) {
    JsonObject file;
    file.SetText(L"path", path).SetText(L"sha256", Digest(digit)).SetNumber(L"size", size);
    return file;
}

/// Turns 2.0.0.0 of the default package into 2.0.0.1.
inline JsonObject PatchElement() {
    JsonObject patch;
    patch.SetText(L"baseVersion", L"2.0.0.0").SetText(L"url", L"https://h.example/patch");
    patch.SetText(L"sha256", Digest(L'f')).SetNumber(L"size", 404).Set(L"files", TextArray({L"bin/1.dll"}));
    return patch;
}

/// Two files and no patch.
inline JsonObject PackageElement() {
    JsonObject package;
    package.SetText(L"id", L"core").SetText(L"version", L"2.0.0.1").SetText(L"url", L"https://h.example/core");
    package.SetText(L"sha256", Digest(L'c')).SetNumber(L"size", 5005).Set(L"requiredForStartup", L"true");
    package.SetText(L"capability", L"audio-engine");
    package.Set(L"files",
                Array({InventoryElement(L"bin/1.dll", L'd', 3003), InventoryElement(L"bin/3.dll", L'e', 3004)}));
    return package;
}

inline JsonObject LocalizationElement(std::wstring_view locale) {
    JsonObject entry;
    entry.SetText(L"locale", locale).SetText(L"summary", L"Quieter start.");
    entry.Set(L"highlights", TextArray({L"Faster.", L"更小。"})).Set(L"emphasizedItems", TextArray({L"Faster."}));
    return entry;
}

inline JsonObject NotesElement() {
    JsonObject notes;
    notes.SetText(L"defaultLocale", L"en").Set(L"localizations", Array({LocalizationElement(L"en")}));
    return notes;
}

/// The least that is accepted: no notes, no files, no packages.
inline JsonObject BareManifest() {
    JsonObject manifest;
    manifest.Set(L"schemaVersion", L"1").SetText(L"version", L"1.2.3.4");
    manifest.SetText(L"minimumLauncherVersion", L"1.0.0.0").Set(L"files", L"[]");
    return manifest;
}

/// Everything there is: notes, two files, a package with a patch and one without.
inline JsonObject FullManifest() {
    JsonObject lyrics;
    lyrics.SetText(L"id", L"lyrics").SetText(L"version", L"3.0.0.7").SetText(L"url", L"https://h.example/lyrics");
    lyrics.SetText(L"sha256", Digest(L'0')).SetNumber(L"size", 6006).Set(L"requiredForStartup", L"false");
    lyrics.SetText(L"capability", L"reading").Set(L"files", Array({InventoryElement(L"data.bin", L'1', 7007)}));
    JsonObject manifest;
    manifest.Set(L"schemaVersion", L"1").SetText(L"version", L"1.2.3.4").SetText(L"minimumLauncherVersion", L"1.0.0.0");
    manifest.SetText(L"releaseNotesUrl", L"https://h.example/notes").SetText(L"updatePriority", L"hotfix");
    manifest.Set(L"releaseNotes", NotesElement()).Set(L"files", Array({FileElement(), ThemeElement()}));
    manifest.Set(L"packages", Array({PackageElement().Set(L"patch", PatchElement()), lyrics}));
    return manifest;
}

}  // namespace test_support
