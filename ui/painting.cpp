#include "ui/painting.h"

#include <algorithm>

namespace launcher_ui {
namespace {

constexpr int kButtonCorner = 8;  // pixels at every scale
constexpr UINT kOneLine = DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX;
constexpr UINT kCardText = DT_WORDBREAK | DT_NOPREFIX | DT_EDITCONTROL;

PenHandle MakePen(int width, Colour colour) {
    return PenHandle(CreatePen(PS_SOLID, width, ToColorRef(colour)));
}

void Fill(HDC context, const RECT& place, Colour colour) {
    const BrushHandle brush(CreateSolidBrush(ToColorRef(colour)));
    if (brush) FillRect(context, &place, brush.Get());
}

struct Outline {
    Colour fill;
    Colour edge;
    int penWidth;
};

void PaintRounded(HDC context, const RECT& place, const Outline& outline, int corner) {
    const BrushHandle brush(CreateSolidBrush(ToColorRef(outline.fill)));
    const PenHandle pen = MakePen(outline.penWidth, outline.edge);
    if (!brush || !pen) return;
    const Selection withBrush(context, brush.Get());
    const Selection withPen(context, pen.Get());
    RoundRect(context, place.left, place.top, place.right, place.bottom, corner, corner);
}

void DrawInColour(HDC context, const std::wstring& text, RECT place, Colour colour, UINT format) {
    SetTextColor(context, ToColorRef(colour));
    DrawTextW(context, text.c_str(), static_cast<int>(text.size()), &place, format);
}

void PaintRule(HDC context, const Rectangle& rule, int dpi) {
    const PenHandle pen = MakePen(Scale(1, dpi), colour::kRule);
    const Selection withPen(context, pen.Get());
    MoveToEx(context, rule.left, rule.top, nullptr);
    LineTo(context, rule.right, rule.bottom);
}

void PaintPanelFrame(HDC context, const Rectangle& frame, int dpi) {
    const PenHandle pen = MakePen(ScaleAtLeastOne(1, dpi), colour::kPanelFrame);
    if (!pen) return;
    const Selection withPen(context, pen.Get());
    const Selection hollow(context, GetStockObject(NULL_BRUSH));
    ::Rectangle(context, frame.left, frame.top, frame.right, frame.bottom);
}

void PaintCheckBadge(HDC context, const Rectangle& check, int dpi) {
    const BrushHandle brush(CreateSolidBrush(ToColorRef(colour::kCheckFill)));
    const PenHandle edge = MakePen(Scale(1, dpi), colour::kCheckEdge);
    if (brush && edge) {
        const Selection withBrush(context, brush.Get());
        const Selection withPen(context, edge.Get());
        Ellipse(context, check.left, check.top, check.right, check.bottom);
    }
    const PenHandle stroke = MakePen(Scale(2, dpi), colour::kCheckTick);
    const Selection withStroke(context, stroke.Get());
    const Tick tick = PlaceTick(dpi);
    MoveToEx(context, tick.corners[0].x, tick.corners[0].y, nullptr);
    LineTo(context, tick.corners[1].x, tick.corners[1].y);
    LineTo(context, tick.corners[2].x, tick.corners[2].y);
}

Colour ButtonFill(const ButtonPalette& palette, const ButtonState& state) {
    if (state.disabled) return colour::kButtonDisabled;
    if (state.pressed) return palette.pressed;
    return state.hover ? palette.hover : palette.idle;
}

void PaintButtonFocusCue(HDC context, const RECT& place, int dpi) {
    const PenHandle pen = MakePen(ScaleAtLeastOne(1, dpi), colour::kButtonFocusCue);
    const Selection withPen(context, pen.Get());
    const int inset = Scale(12, dpi);
    const int y = place.bottom - Scale(5, dpi);
    MoveToEx(context, place.left + inset, y, nullptr);
    LineTo(context, place.right - inset, y);
}

void UnderlineLink(HDC context, const RECT& place, const SIZE& text, int dpi) {
    const int top = (place.top + place.bottom + text.cy) / 2 + Scale(1, dpi);
    const RECT line = {place.left, top, std::min(place.left + text.cx, place.right), top + Scale(2, dpi)};
    Fill(context, line, colour::kLinkHover);
}

void PaintCard(HDC context, const Rectangle& card, const NoteCard& note, const CardLook& look, const FontSet& fonts,
               int dpi) {
    PaintRounded(context, ToRect(card), {look.fill, look.edge, ScaleAtLeastOne(1, dpi)}, Scale(8, dpi));
    const Selection withFont(context, fonts.Get(look.font));
    DrawInColour(context, note.text, ToRect(CardTextPlace(card, dpi)), look.text, kCardText);
}

}  // namespace

void FontSet::Build(int dpi) {
    for (const FontSpec& font : kFonts) {
        fonts_[static_cast<std::size_t>(font.role)].Reset(CreateFontW(
            -Scale(font.height, dpi), 0, 0, 0, font.weight, FALSE, FALSE, FALSE, DEFAULT_CHARSET, OUT_DEFAULT_PRECIS,
            CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY, DEFAULT_PITCH | FF_DONTCARE, kFontName));
    }
}

void FontSet::Clear() {
    for (FontHandle& font : fonts_) {
        font.Reset();
    }
}

void PaintWindow(HDC context, const RECT& client, ViewMode view, int dpi, HICON icon) {
    Fill(context, client, colour::kBackground);
    if (view == ViewMode::compact) return;
    const Ornaments ornaments = PlaceOrnaments(dpi);
    if (icon != nullptr) {
        DrawIconEx(context, ornaments.icon.left, ornaments.icon.top, icon, ornaments.icon.Width(),
                   ornaments.icon.Height(), 0, nullptr, DI_NORMAL);
    }
    PaintRule(context, ornaments.rule, dpi);
    PaintPanelFrame(context, ornaments.panelFrame, dpi);
    if (view == ViewMode::prompt) PaintCheckBadge(context, ornaments.check, dpi);
}

void PaintBar(HDC context, const RECT& place, const BarFill& fill, Colour colour, int dpi) {
    Fill(context, place, colour::kBackground);
    PaintRounded(context, place, {colour::kBarTrack, colour::kBarTrackEdge, ScaleAtLeastOne(1, dpi)}, Scale(5, dpi));
    if (const auto filled = PlaceBarFill(FromRect(place), fill, dpi)) Fill(context, ToRect(*filled), colour);
}

void PaintVersionBadge(HDC context, const RECT& place, const std::wstring& current, const std::wstring& offered,
                       HFONT font, int dpi) {
    Fill(context, place, colour::kBackground);
    SetBkMode(context, TRANSPARENT);
    const Selection withFont(context, font);
    const BadgeBoxes boxes = PlaceBadge(FromRect(place), dpi);
    DrawInColour(context, current, ToRect(boxes.current), colour::kQuietText, kOneLine | DT_END_ELLIPSIS);
    DrawInColour(context, L"→", ToRect(boxes.arrow), colour::kBadgeArrow, kOneLine | DT_CENTER);
    DrawInColour(context, offered, ToRect(boxes.offered), colour::kBadgeOffered, kOneLine | DT_END_ELLIPSIS);
}

void PaintFilledButton(HDC context, const RECT& place, const ButtonPalette& palette, const ButtonState& state,
                       const std::wstring& text, HFONT font, int dpi) {
    Fill(context, place, colour::kBackground);
    const Colour fill = ButtonFill(palette, state);
    PaintRounded(context, place, {fill, palette.edgeHasFillColour ? fill : colour::kButtonEdge, 1}, kButtonCorner);
    SetBkMode(context, TRANSPARENT);
    const Selection withFont(context, font);
    DrawInColour(context, text, place, state.disabled ? colour::kDisabledText : colour::kStrongText,
                 kOneLine | DT_CENTER);
    if (state.focusCue && !state.disabled) PaintButtonFocusCue(context, place, dpi);
}

void PaintLink(HDC context, const RECT& place, const ButtonState& state, const std::wstring& text, HFONT font,
               int dpi) {
    Fill(context, place, colour::kBackground);
    SetBkMode(context, TRANSPARENT);
    const Selection withFont(context, font);
    const std::wstring shown = text + L"  →";
    const Colour ink = state.disabled ? colour::kDisabledText : state.hover ? colour::kLinkHover : colour::kLink;
    DrawInColour(context, shown, place, ink, kOneLine | DT_LEFT);
    if (state.disabled || !(state.hover || state.focusCue)) return;
    SIZE size = {};
    if (GetTextExtentPoint32W(context, shown.c_str(), static_cast<int>(shown.size()), &size)) {
        UnderlineLink(context, place, size, dpi);
    }
}

void PaintNotes(HDC context, const RECT& client, const NoteCards& notes, const NotesLayout& layout, int scrollPosition,
                const FontSet& fonts, bool focusCue, int dpi) {
    Fill(context, client, colour::kPanel);
    SetBkMode(context, TRANSPARENT);
    for (std::size_t index = 0; index < layout.cards.size(); ++index) {
        Rectangle card = layout.cards[index];
        card.top -= scrollPosition;
        card.bottom -= scrollPosition;
        if (card.bottom <= 0 || card.top >= client.bottom) continue;
        PaintCard(context, card, notes.cards[index], LookOf(notes, index), fonts, dpi);
    }
    if (!focusCue) return;
    Fill(context, ToRect(PlacePanelFocusCue({client.right, client.bottom}, dpi)), colour::kPanelFocusCue);
}

int MeasureCardText(HDC context, const NoteCard& card, int width, const FontSet& fonts) {
    const Selection withFont(context, fonts.Get(card.emphasised ? FontRole::bodyStrong : FontRole::body));
    RECT place = {0, 0, width, 0};
    DrawTextW(context, card.text.c_str(), static_cast<int>(card.text.size()), &place, kCardText | DT_CALCRECT);
    return place.bottom - place.top;
}

}  // namespace launcher_ui
