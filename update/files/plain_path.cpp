#include "update/files/plain_path.h"

#include "platform/text.h"
#include "update/files/attributes.h"
#include "update/files/paths.h"

namespace launcher_update {

bool PlainPathWalk::Enter(std::wstring_view relative, std::wstring& path) {
    path = JoinPath(base_, relative);
    const std::wstring folder = platform::ParentPath(path).value_or(base_);
    if (folder != passed_) {
        passed_.clear();
        for (std::size_t end = path.find(L'\\', base_.size() + 1); end != std::wstring::npos;
             end = path.find(L'\\', end + 1)) {
            if (!IsRealDirectory(LookAt(path.substr(0, end)).attributes)) return false;
        }
        passed_ = folder;
    }
    return true;
}

bool PlainPathWalk::Reach(std::wstring_view relative, std::wstring& path) {
    return Enter(relative, path) && IsPlainFile(LookAt(path).attributes);
}

}  // namespace launcher_update
