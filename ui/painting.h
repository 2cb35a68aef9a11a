#pragma once

/// Paints what the model says into any device context, a window's or a bitmap's alike. Rectangles are in pixels of that
/// context. Nothing here fails: what cannot be made is not drawn. The window's thread.

#include <windows.h>

#include <array>
#include <string>

#include "ui/gdi_handles.h"
#include "ui/layout.h"
#include "ui/notes_layout.h"
#include "ui/theme.h"

namespace launcher_ui {

[[nodiscard]] constexpr COLORREF ToColorRef(Colour colour) {
    return RGB((colour >> 16) & 0xFF, (colour >> 8) & 0xFF, colour & 0xFF);
}
[[nodiscard]] constexpr RECT ToRect(const Rectangle& rectangle) {
    return {rectangle.left, rectangle.top, rectangle.right, rectangle.bottom};
}
[[nodiscard]] constexpr Rectangle FromRect(const RECT& rect) {
    return {static_cast<int>(rect.left), static_cast<int>(rect.top), static_cast<int>(rect.right),
            static_cast<int>(rect.bottom)};
}

/// The five fonts of one scale. A font that could not be made is null, and text then has the context's own.
class FontSet {
  public:
    void Build(int dpi);
    void Clear();
    [[nodiscard]] HFONT Get(FontRole role) const { return fonts_[static_cast<std::size_t>(role)].Get(); }

  private:
    std::array<FontHandle, kFontCount> fonts_;
};

/// The window's own area: background, and in the large views icon, rule, frame and check badge. `icon` may be null.
void PaintWindow(HDC context, const RECT& client, ViewMode view, int dpi, HICON icon);

void PaintBar(HDC context, const RECT& place, const BarFill& fill, Colour colour, int dpi);

void PaintVersionBadge(HDC context, const RECT& place, const std::wstring& current, const std::wstring& offered,
                       HFONT font, int dpi);

/// How a button stands at the moment. A disabled one never shows hover or focus, whatever is set.
struct ButtonState {
    bool disabled = false;
    bool pressed = false;
    bool hover = false;
    bool focusCue = false;  // it has the focus, and focus is to be seen
};

void PaintFilledButton(HDC context, const RECT& place, const ButtonPalette& palette, const ButtonState& state,
                       const std::wstring& text, HFONT font, int dpi);

void PaintLink(HDC context, const RECT& place, const ButtonState& state, const std::wstring& text, HFONT font, int dpi);

/// The cards that are to be seen at `scrollPosition`, and the focus cue.
void PaintNotes(HDC context, const RECT& client, const NoteCards& notes, const NotesLayout& layout, int scrollPosition,
                const FontSet& fonts, bool focusCue, int dpi);

/// Height of a card's text broken to `width`, as `PaintNotes` will draw it.
[[nodiscard]] int MeasureCardText(HDC context, const NoteCard& card, int width, const FontSet& fonts);

}  // namespace launcher_ui
