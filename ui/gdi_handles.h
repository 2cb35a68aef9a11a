#pragma once

#include <windows.h>

#include "platform/unique_handle.h"

namespace launcher_ui {

template <typename Handle>
struct GdiObjectPolicy {
    using Type = Handle;
    static Type None() { return nullptr; }
    static void Close(Type handle) { DeleteObject(handle); }
};

struct IconPolicy {
    using Type = HICON;
    static Type None() { return nullptr; }
    static void Close(Type handle) { DestroyIcon(handle); }
};

struct MemoryContextPolicy {
    using Type = HDC;
    static Type None() { return nullptr; }
    static void Close(Type handle) { DeleteDC(handle); }
};

using FontHandle = platform::UniqueHandle<GdiObjectPolicy<HFONT>>;
using BrushHandle = platform::UniqueHandle<GdiObjectPolicy<HBRUSH>>;
using PenHandle = platform::UniqueHandle<GdiObjectPolicy<HPEN>>;
using BitmapHandle = platform::UniqueHandle<GdiObjectPolicy<HBITMAP>>;
using IconHandle = platform::UniqueHandle<IconPolicy>;
using MemoryContext = platform::UniqueHandle<MemoryContextPolicy>;

/// Selects an object into a device context for the life of this. A null object, which a failed creation gives, selects
/// nothing.
class Selection {
  public:
    Selection(HDC context, HGDIOBJ object)
        : context_(context), previous_(object != nullptr ? SelectObject(context, object) : nullptr) {}
    Selection(const Selection&) = delete;
    Selection& operator=(const Selection&) = delete;
    ~Selection() {
        if (previous_ != nullptr) SelectObject(context_, previous_);
    }

  private:
    HDC context_;
    HGDIOBJ previous_;
};

}  // namespace launcher_ui
