#pragma once

#include <string>
#include <string_view>

namespace launcher_update {

/// Asks of files below one folder whether they are plain files behind plain folders. A folder that was found to be one
/// is not asked again for the next file if that lies in it too, which saves most of the calls over a sorted list. The
/// folder itself is trusted. For one pass over a list; one thread.
class PlainPathWalk {
  public:
    explicit PlainPathWalk(std::wstring base) : base_(std::move(base)) {}

    /// True when every folder on the way to `base\relative` is a real directory; `path` receives the joined path. What
    /// stands at its end is for the caller to judge. Slashes of either kind separate.
    [[nodiscard]] bool Enter(std::wstring_view relative, std::wstring& path);

    /// The same, and the end is a plain file.
    [[nodiscard]] bool Reach(std::wstring_view relative, std::wstring& path);

  private:
    std::wstring base_;
    std::wstring passed_;  // the folder, with base, up to which everything was real for the last file
};

}  // namespace launcher_update
