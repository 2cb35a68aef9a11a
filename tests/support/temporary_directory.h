#pragma once

#include <string>
#include <string_view>

namespace test_support {

/// A new empty folder, removed with all that is in it at the end.
class TemporaryDirectory {
  public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    [[nodiscard]] const std::wstring& Path() const { return path_; }
    [[nodiscard]] std::wstring operator/(std::wstring_view name) const { return path_ + L'\\' + std::wstring(name); }

  private:
    std::wstring path_;
};

/// The whole file; an empty text where it cannot be read. Tests that must tell the two apart ask `FileLength`.
[[nodiscard]] std::string ReadWholeFile(const std::wstring& path);

/// Length in bytes; -1 where there is no such file.
[[nodiscard]] long long FileLength(const std::wstring& path);

/// Makes or replaces a file; ends the test program where that fails.
void WriteWholeFile(const std::wstring& path, std::string_view bytes);

}  // namespace test_support
