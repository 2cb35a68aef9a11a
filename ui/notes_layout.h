#pragma once

/// The release notes as a stack of cards: which cards, how they look, where they stand and how far they scroll. Pure.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ui/layout.h"
#include "update/manifest/release_notes.h"

namespace launcher_ui {

// Units.
inline constexpr int kCardMargin = 14;    // around the stack
inline constexpr int kCardPaddingX = 18;  // between a card's edge and its text
inline constexpr int kCardPaddingY = 14;
inline constexpr int kCardMinHeight = 58;
inline constexpr int kCardGap = 10;
inline constexpr int kScrollLine = 36;  // arrows and arrow keys
inline constexpr int kScrollWheelNotch = 54;
inline constexpr int kWheelDelta = 120;  // of one notch, as Windows counts

struct NoteCard {
    std::wstring text;
    bool emphasised = false;
    bool operator==(const NoteCard&) const = default;
};

struct NoteCards {
    std::vector<NoteCard> cards;
    bool hasSummaryCard = false;  // the first card is the summary
    bool operator==(const NoteCards&) const = default;
};

/// Summary first, then the highlights; `placeholder` alone if there is neither. A card is emphasised if its whole text,
/// case included, is one of the emphasised items.
[[nodiscard]] NoteCards MakeNoteCards(const launcher_update::ReleaseNotes& notes, std::wstring_view placeholder);

/// All cards as one text, for those who do not see them.
[[nodiscard]] std::wstring NotesAsText(const NoteCards& notes, std::wstring_view heading);

/// Height in pixels of a text that is broken to fit `width` pixels.
using MeasureText = std::function<int(const NoteCard& card, int width)>;

struct NotesLayout {
    std::vector<Rectangle> cards;  // in content coordinates: the first pixel row of the stack is 0
    int contentHeight = 0;
};
[[nodiscard]] NotesLayout LayOutNotes(const NoteCards& notes, Size client, int dpi, const MeasureText& measure);

/// Where a card's text stands inside the card.
[[nodiscard]] Rectangle CardTextPlace(const Rectangle& card, int dpi);

/// The nearest position that the panel can have.
[[nodiscard]] int ClampScroll(int position, int contentHeight, int clientHeight);

enum class ScrollStep { lineUp, lineDown, pageUp, pageDown, top, bottom };

/// Where a step leads from `position`; still to be clamped.
[[nodiscard]] int ScrollTarget(ScrollStep step, int position, int contentHeight, int clientHeight, int dpi);

/// Where a turn of the wheel leads: whole notches only, towards the top for a positive delta; still to be clamped.
[[nodiscard]] int WheelTarget(int delta, int position, int dpi);

struct CardLook {
    Colour fill;
    Colour edge;
    Colour text;
    FontRole font;
};
[[nodiscard]] CardLook LookOf(const NoteCards& notes, std::size_t card);

/// The bar along the left edge of a panel that has the focus.
[[nodiscard]] Rectangle PlacePanelFocusCue(Size client, int dpi);

}  // namespace launcher_ui
