#include "tests/support/driver/request.h"

#include <algorithm>

#include "tests/support/report.h"

namespace driver {

namespace {

constexpr std::pair<const wchar_t*, std::wstring Request::*> kTextKeys[] = {
    {L"exe", &Request::exe},       {L"command_line", &Request::commandLine},
    {L"cwd", &Request::cwd},       {L"result", &Request::result},
    {L"events", &Request::events}, {L"control", &Request::control},
    {L"output", &Request::output}, {L"stop_file", &Request::stopFile},
};

constexpr std::pair<const wchar_t*, DWORD Request::*> kNumberKeys[] = {
    {L"timeout_ms", &Request::timeoutMs},
    {L"poll_ms", &Request::pollMs},
};

constexpr std::pair<const wchar_t*, Answer> kAnswers[] = {
    {L"yes", Answer::yes}, {L"no", Answer::no}, {L"ok", Answer::ok}, {L"close", Answer::close}, {L"wait", Answer::wait},
};

bool TakeNumber(const std::wstring& value, DWORD& number) {
    wchar_t* end = nullptr;
    number = std::wcstoul(value.c_str(), &end, 10);
    return !value.empty() && *end == L'\0';
}

bool TakeAnswer(const std::wstring& value, Request& request) {
    for (const auto& [word, answer] : kAnswers) {
        if (value != word) continue;
        request.answers.push_back(answer);
        return true;
    }
    return false;
}

bool TakeEnvironment(const std::wstring& value, Request& request) {
    const size_t equals = value.find(L'=');
    if (equals == std::wstring::npos || equals == 0) return false;
    request.environment.emplace_back(value.substr(0, equals), value.substr(equals + 1));
    return true;
}

bool Take(const std::wstring& key, const std::wstring& value, Request& request) {
    if (key == L"answer") return TakeAnswer(value, request);
    if (key == L"env") return TakeEnvironment(value, request);
    for (const auto& [name, member] : kTextKeys) {
        if (key != name) continue;
        request.*member = value;
        return true;
    }
    for (const auto& [name, member] : kNumberKeys) {
        if (key == name) return TakeNumber(value, request.*member);
    }
    return false;
}

bool TakeRecord(const std::wstring& record, Request& request, std::wstring& error) {
    const size_t equals = record.find(L'=');
    if (equals != std::wstring::npos && Take(record.substr(0, equals), record.substr(equals + 1), request)) return true;
    error = L"bad record: " + record;
    return false;
}

}  // namespace

bool ReadSmallFile(const std::wstring& path, std::string& bytes) {
    // The writer of a control file may have it open: sharing everything keeps the two out of each other's way.
    const HANDLE file = CreateFileW(test_support::LongPath(path).c_str(), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    bytes.clear();
    char buffer[4096];
    DWORD count = 0;
    bool readable = ReadFile(file, buffer, sizeof buffer, &count, nullptr) != FALSE;
    while (readable && count != 0) {
        bytes.append(buffer, count);
        readable = ReadFile(file, buffer, sizeof buffer, &count, nullptr) != FALSE;
    }
    CloseHandle(file);
    return readable;
}

bool ReadRequest(const std::wstring& path, Request& request, std::wstring& error) {
    std::string bytes;
    if (!ReadSmallFile(path, bytes)) {
        error = L"cannot read " + path;
        return false;
    }
    const std::wstring text = test_support::WideFromUtf8(bytes);
    const wchar_t separator = text.find(L'\0') != std::wstring::npos ? L'\0' : L'\n';
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find(separator, begin), text.size());
        if (end != begin && !TakeRecord(text.substr(begin, end - begin), request, error)) return false;
        begin = end + 1;
    }
    if (!request.exe.empty() && !request.result.empty()) return true;
    error = L"exe and result are required, and the request must be UTF-8";
    return false;
}

}  // namespace driver
