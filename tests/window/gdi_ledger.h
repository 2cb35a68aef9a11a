#pragma once

#include <windows.h>

#include <map>
#include <string>

#include "tests/support/stand_in.h"

namespace window_tests {

/// Keeps account of all that the program takes from the system for its windows, for the life of the object: brushes,
/// fonts, pens, device contexts, bitmaps, icons and libraries, against what it gives back.
class GdiLedger {
  public:
    /// What was taken and not given back, one line for each; empty if the account is even.
    [[nodiscard]] std::string Open() const {
        std::string lines = strange_;
        for (const auto& [handle, kind] : held_)
            lines += std::string(kind) + "\n";
        return lines;
    }
    [[nodiscard]] int Taken() const { return taken_; }

  private:
    template <test_support::FixedText name, typename Signature>
    using For = test_support::StandIn<name, Signature>;

    template <typename Handle>
    Handle Take(const char* kind, Handle handle) {
        if (handle != nullptr) held_.emplace(handle, kind);
        if (handle != nullptr) ++taken_;
        return handle;
    }
    template <typename Handle>
    Handle GiveBack(const char* kind, Handle handle) {
        const auto found = held_.find(handle);
        if (found == held_.end()) {
            strange_ += std::string(kind) + " of what was not taken\n";
        } else {
            held_.erase(found);
        }
        return handle;
    }

    std::multimap<void*, const char*> held_;
    std::string strange_;
    int taken_ = 0;

    using Brush = For<"CreateSolidBrush", decltype(CreateSolidBrush)>;
    using Font = For<"CreateFontW", decltype(CreateFontW)>;
    using Pen = For<"CreatePen", decltype(CreatePen)>;
    using Bitmap = For<"CreateCompatibleBitmap", decltype(CreateCompatibleBitmap)>;
    using Memory = For<"CreateCompatibleDC", decltype(CreateCompatibleDC)>;
    using Context = For<"GetDC", decltype(GetDC)>;
    using Icon = For<"LoadImageW", decltype(LoadImageW)>;
    using Library = For<"LoadLibraryW", decltype(LoadLibraryW)>;
    using EndObject = For<"DeleteObject", decltype(DeleteObject)>;
    using EndMemory = For<"DeleteDC", decltype(DeleteDC)>;
    using EndContext = For<"ReleaseDC", decltype(ReleaseDC)>;
    using EndIcon = For<"DestroyIcon", decltype(DestroyIcon)>;
    using EndLibrary = For<"FreeLibrary", decltype(FreeLibrary)>;

    Brush brush_{[this](auto... all) { return Take("brush", Brush::Original(all...)); }};
    Font font_{[this](auto... all) { return Take("font", Font::Original(all...)); }};
    Pen pen_{[this](auto... all) { return Take("pen", Pen::Original(all...)); }};
    Bitmap bitmap_{[this](auto... all) { return Take("bitmap", Bitmap::Original(all...)); }};
    Memory memory_{[this](auto... all) { return Take("memory context", Memory::Original(all...)); }};
    Context context_{[this](auto... all) { return Take("context", Context::Original(all...)); }};
    Icon icon_{[this](auto... all) { return Take("icon", Icon::Original(all...)); }};
    Library library_{[this](auto... all) { return Take("library", Library::Original(all...)); }};
    EndObject endObject_{[this](HGDIOBJ object) { return EndObject::Original(GiveBack("deletion", object)); }};
    EndMemory endMemory_{[this](HDC context) { return EndMemory::Original(GiveBack("deletion", context)); }};
    EndContext endContext_{
        [this](HWND window, HDC context) { return EndContext::Original(window, GiveBack("release", context)); }};
    EndIcon endIcon_{[this](HICON icon) { return EndIcon::Original(GiveBack("destruction", icon)); }};
    EndLibrary endLibrary_{[this](HMODULE library) { return EndLibrary::Original(GiveBack("release", library)); }};
};

}  // namespace window_tests
