#include "update/transaction/journal_text.h"

#include <algorithm>

#include "platform/text.h"
#include "update/files/paths.h"
#include "update/manifest/json_reader.h"
#include "update/packages/support_files.h"

namespace launcher_update {
namespace {

constexpr wchar_t kUnsafeTarget[] = L"更新交易包含不安全的目標路徑。";
constexpr wchar_t kTooManyTargets[] = L"更新交易的目標檔案數量超過安全上限。";
constexpr wchar_t kInvalidJournal[] = L"上一次更新的交易紀錄無效；已保留備份並停止啟動。";
constexpr wchar_t kInvalidTarget[] = L"上一次更新的交易目標無效；已保留備份並停止啟動。";
constexpr wchar_t kRepeatedTarget[] = L"上一次更新的交易目標重複；已保留備份並停止啟動。";

bool Contains(const TransactionTargets& targets, std::wstring_view path) {
    return std::any_of(targets.begin(), targets.end(), [path](const TransactionTarget& target) {
        return platform::EqualsIgnoringCase(target.path, path);
    });
}

bool AddSupportFiles(const PackageDescriptor& package, std::wstring_view applicationDirectory,
                     TransactionTargets& targets, std::wstring& error) {
    for (const PackageFileDescriptor& file : package.inventory) {
        if (!IsApplicationRuntimeSupportFile(file.path)) continue;
        if (!AddTransactionTarget(targets, JoinPath(applicationDirectory, file.path), error)) return false;
    }
    return true;
}

bool AddPackageTargets(const UpdateManifest& manifest, std::wstring_view applicationDirectory,
                       TransactionTargets& targets, std::wstring& error) {
    for (const PackageDescriptor& package : manifest.packages) {
        if (!platform::EqualsIgnoringCase(package.id, kApplicationRuntimePackage)) continue;
        if (!AddSupportFiles(package, applicationDirectory, targets, error)) return false;
    }
    return AddTransactionTarget(targets, JoinPath(applicationDirectory, L"Runtime\\current.json"), error);
}

/// The top-level rules: what the journal says of itself, before any target is looked at.
bool ParseFrame(std::string_view bytes, std::wstring& text, std::wstring& backupDirectoryName,
                std::vector<std::wstring>& elements) {
    std::uint64_t schemaVersion = 0;
    std::uint64_t at = 0;
    return DecodeUtf8Document(bytes, text) && ReadJsonUnsigned(text, L"schemaVersion", schemaVersion) &&
           schemaVersion == 1 && ReadJsonString(text, L"backupDirectory", backupDirectoryName) &&
           IsBackupDirectoryName(backupDirectoryName) && FindTopLevelValue(text, L"targets", at) &&
           ExtractObjectArrayAt(text, at, elements) && !elements.empty() && elements.size() <= kMaxTransactionTargets;
}

bool ParseTarget(const std::wstring& element, TransactionTarget& target) {
    if (!ReadJsonString(element, L"path", target.path) || !IsSafeTransactionTarget(target.path)) return false;
    if (!ReadJsonBool(element, L"hadOriginal", target.hadOriginal)) return false;
    target.path = platform::WithBackslashes(target.path);
    return true;
}

}  // namespace

bool AddTransactionTarget(TransactionTargets& targets, std::wstring_view path, std::wstring& error) {
    const std::wstring turned = platform::WithBackslashes(path);
    if (!IsSafeTransactionTarget(turned)) {
        error = kUnsafeTarget;
        return false;
    }
    if (Contains(targets, turned)) return true;
    if (targets.size() >= kMaxTransactionTargets) {
        error = kTooManyTargets;
        return false;
    }
    targets.push_back({turned, false});
    return true;
}

bool BuildTransactionTargets(const UpdateManifest& manifest, std::wstring_view applicationDirectory, bool needPackages,
                             TransactionTargets& targets, std::wstring& error) {
    targets.clear();
    for (const ManifestFileEntry& file : manifest.files) {
        if (!AddTransactionTarget(targets, file.path, error)) return false;
    }
    if (needPackages && !AddPackageTargets(manifest, applicationDirectory, targets, error)) return false;
    return AddTransactionTarget(targets, L"current.json", error);
}

bool IsBackupDirectoryName(std::wstring_view name) {
    return platform::StartsWithIgnoringCase(name, kBackupPrefix) &&
           name.find_first_of(L"\\/") == std::wstring_view::npos && name.find(L'\0') == std::wstring_view::npos;
}

std::wstring RenderJournal(std::wstring_view backupDirectoryName, const TransactionTargets& targets) {
    std::wstring text = L"{\n  \"schemaVersion\": 1,\n  \"backupDirectory\": \"";
    text += EscapeJsonText(backupDirectoryName);
    text += L"\",\n  \"targets\": [\n";
    for (std::size_t index = 0; index < targets.size(); ++index) {
        text += L"    {\"path\": \"" + EscapeJsonText(targets[index].path) + L"\", \"hadOriginal\": ";
        text += targets[index].hadOriginal ? L"true}" : L"false}";
        text += index + 1 < targets.size() ? L",\n" : L"\n";
    }
    return text + L"  ]\n}\n";
}

bool ParseJournal(std::string_view bytes, std::wstring& backupDirectoryName, TransactionTargets& targets,
                  std::wstring& error) {
    targets.clear();
    std::wstring text;
    std::vector<std::wstring> elements;
    if (!ParseFrame(bytes, text, backupDirectoryName, elements)) {
        error = kInvalidJournal;
        return false;
    }
    for (const std::wstring& element : elements) {
        TransactionTarget target;
        if (!ParseTarget(element, target)) {
            error = kInvalidTarget;
            return false;
        }
        if (Contains(targets, target.path)) {
            error = kRepeatedTarget;
            return false;
        }
        targets.push_back(std::move(target));
    }
    return true;
}

}  // namespace launcher_update
