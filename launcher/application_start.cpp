#include "launcher/application_start.h"

#include <windows.h>

#include "launcher/command_line.h"
#include "launcher/full_path.h"
#include "platform/text.h"
#include "update/files/paths.h"

namespace launcher_shell {
namespace {

constexpr wchar_t kCannotResolve[] = L"無法解析主程式路徑。";
constexpr wchar_t kOutsideLauncherFolder[] = L"主程式路徑超出啟動器資料夾。";
constexpr wchar_t kNotFound[] = L"找不到主程式：\n";

/// The second fence behind the rule for the settings' texts: whatever they resolve to must lie below the launcher.
bool LiesBelow(const std::wstring& path, std::wstring folder) {
    if (!folder.ends_with(L'\\')) folder.push_back(L'\\');
    return path.size() > folder.size() && platform::StartsWithIgnoringCase(path, folder);
}

// A folder needs room for a separator and the terminator.
constexpr std::size_t kMostUnitsOfStartedPath = MAX_PATH - 2;

/// The short form with the prefix that lifts the limit, where the volume keeps one that is short enough; else nothing.
std::wstring ShortForm(const std::wstring& path) {
    std::wstring shortForm(kPathUnits, L'\0');
    const DWORD length = GetShortPathNameW(launcher_update::ToLongPath(path).c_str(), shortForm.data(), kPathUnits);
    shortForm.resize(length < kPathUnits ? length : 0);
    return shortForm.size() <= kMostUnitsOfStartedPath ? shortForm : std::wstring();
}

/// Process creation still bounds the program's path and its folder by MAX_PATH ("CreateProcessW function"), whatever
/// the manifest says. A program beyond it is named by its prefixed short form, or at least by its prefixed path.
std::wstring StartableProgram(const std::wstring& path) {
    if (path.size() <= kMostUnitsOfStartedPath) return path;
    const std::wstring shortForm = ShortForm(path);
    return shortForm.empty() ? launcher_update::ToLongPath(path) : shortForm;
}

/// A working folder takes no prefix, so that only the short form itself helps.
std::wstring StartableFolder(const std::wstring& path) {
    constexpr std::wstring_view kPrefix = L"\\\\?\\";
    if (path.size() <= kMostUnitsOfStartedPath) return path;
    const std::wstring shortForm = ShortForm(path);
    const bool drive = shortForm.starts_with(kPrefix) && shortForm.find(L':') == kPrefix.size() + 1;
    return drive ? shortForm.substr(kPrefix.size()) : path;
}

}  // namespace

bool ResolveApplicationPath(const std::wstring& launcherDirectory, const LauncherConfiguration& configuration,
                            std::wstring& path, std::wstring& error) {
    const std::wstring joined =
        launcherDirectory + L'\\' + configuration.applicationDirectory + L'\\' + configuration.applicationExecutable;
    if (!FullPath(joined, path)) {
        error = kCannotResolve;
        return false;
    }
    if (!LiesBelow(path, launcherDirectory)) {
        error = kOutsideLauncherFolder;
        return false;
    }
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        error = kNotFound + path;
        return false;
    }
    return true;
}

unsigned long StartApplication(const std::wstring& path, const std::vector<std::wstring>& arguments) {
    std::wstring commandLine = BuildCommandLine(path, arguments);  // CreateProcessW may write into it
    const std::wstring program = StartableProgram(path);
    const std::wstring folder = StartableFolder(platform::ParentPath(path).value_or(std::wstring()));
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, folder.c_str(),
                        &startup, &process)) {
        return GetLastError();
    }
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return ERROR_SUCCESS;
}

}  // namespace launcher_shell
