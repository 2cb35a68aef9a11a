#pragma once

// What the test programs share: telling a test, as a file of JSON, what they saw.

#include <windows.h>

#include <string>
#include <string_view>

namespace test_support {

/// A JSON string of pure ASCII: everything else is escaped unit by unit, so lone surrogates arrive as they were.
inline std::string JsonQuote(std::wstring_view text) {
    constexpr char kHex[] = "0123456789abcdef";
    std::string quoted = "\"";
    for (const wchar_t unit : text) {
        const auto value = static_cast<unsigned>(unit);
        if (value >= 0x20 && value < 0x7F && unit != L'"' && unit != L'\\') {
            quoted += static_cast<char>(value);
            continue;
        }
        quoted += "\\u";
        for (const unsigned shift : {12u, 8u, 4u, 0u})
            quoted += kHex[(value >> shift) & 15u];
    }
    return quoted + "\"";
}

inline std::wstring WideFromUtf8(std::string_view text) {
    const int bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), bytes, nullptr, 0);
    std::wstring wide(static_cast<size_t>(units > 0 ? units : 0), L'\0');
    if (units > 0) MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), bytes, wide.data(), units);
    return wide;
}

/// The form without which a path beyond 260 units is refused.
inline std::wstring LongPath(const std::wstring& path) {
    const bool drivePath = path.size() > 2 && path[1] == L':' && path[2] == L'\\';
    return drivePath ? L"\\\\?\\" + path : path;
}

inline std::wstring EnvironmentText(const wchar_t* name) {
    std::wstring value(32768, L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

inline std::wstring ModulePath() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

/// A reader never sees half a report: it is written beside its place and renamed onto it.
[[nodiscard]] inline bool WriteReport(const std::wstring& path, std::string_view text) {
    const std::wstring target = LongPath(path);
    const std::wstring sibling = target + L".part";
    const HANDLE file =
        CreateFileW(sibling.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    const bool whole = WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != FALSE &&
                       written == text.size();
    CloseHandle(file);
    return whole && MoveFileExW(sibling.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE;
}

}  // namespace test_support
