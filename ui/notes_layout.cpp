#include "ui/notes_layout.h"

#include <algorithm>

namespace launcher_ui {
namespace {

constexpr CardLook kEmphasised = {colour::kEmphasisFill, colour::kEmphasisEdge, colour::kStrongText,
                                  FontRole::bodyStrong};
constexpr CardLook kSummary = {colour::kSummaryFill, colour::kCardEdge, colour::kSummaryText, FontRole::body};
constexpr CardLook kOrdinary = {colour::kCardFill, colour::kCardEdge, colour::kQuietText, FontRole::body};

int PageStep(int clientHeight, int dpi) {
    const int line = Scale(kScrollLine, dpi);
    return std::max(line, clientHeight - line);
}

}  // namespace

NoteCards MakeNoteCards(const launcher_update::ReleaseNotes& notes, std::wstring_view placeholder) {
    NoteCards made;
    made.hasSummaryCard = !notes.summary.empty();
    for (std::wstring& line : launcher_update::ReleaseNotesLines(notes, placeholder)) {
        const auto& items = notes.emphasizedItems;
        const bool emphasised = std::find(items.begin(), items.end(), line) != items.end();
        made.cards.push_back({std::move(line), emphasised});
    }
    return made;
}

std::wstring NotesAsText(const NoteCards& notes, std::wstring_view heading) {
    std::wstring text(heading);
    for (const NoteCard& card : notes.cards) {
        text += L"\r\n\r\n" + card.text;
    }
    return text;
}

NotesLayout LayOutNotes(const NoteCards& notes, Size client, int dpi, const MeasureText& measure) {
    const int margin = Scale(kCardMargin, dpi);
    // Scaled one by one, as the text is placed when it is drawn: a rounding apart, a line that just fitted would break
    // anew and lose its end.
    const int textWidth = std::max(1, client.width - 2 * (Scale(kCardPaddingX, dpi) + margin));
    const int padding = 2 * Scale(kCardPaddingY, dpi);
    NotesLayout layout;
    int top = margin;
    for (const NoteCard& card : notes.cards) {
        const int height = std::max(Scale(kCardMinHeight, dpi), measure(card, textWidth) + padding);
        layout.cards.push_back({margin, top, client.width - margin, top + height});
        top += height + Scale(kCardGap, dpi);
    }
    layout.contentHeight = layout.cards.empty() ? client.height : layout.cards.back().bottom + margin;
    return layout;
}

Rectangle CardTextPlace(const Rectangle& card, int dpi) {
    const int x = Scale(kCardPaddingX, dpi);
    const int y = Scale(kCardPaddingY, dpi);
    return {card.left + x, card.top + y, card.right - x, card.bottom - y};
}

int ClampScroll(int position, int contentHeight, int clientHeight) {
    return std::clamp(position, 0, std::max(0, contentHeight - clientHeight));
}

int ScrollTarget(ScrollStep step, int position, int contentHeight, int clientHeight, int dpi) {
    switch (step) {
        case ScrollStep::lineUp:
            return position - Scale(kScrollLine, dpi);
        case ScrollStep::lineDown:
            return position + Scale(kScrollLine, dpi);
        case ScrollStep::pageUp:
            return position - PageStep(clientHeight, dpi);
        case ScrollStep::pageDown:
            return position + PageStep(clientHeight, dpi);
        case ScrollStep::top:
            return 0;
        case ScrollStep::bottom:
            return contentHeight;
    }
    return position;
}

int WheelTarget(int delta, int position, int dpi) {
    return position - delta / kWheelDelta * Scale(kScrollWheelNotch, dpi);
}

CardLook LookOf(const NoteCards& notes, std::size_t card) {
    if (notes.cards[card].emphasised) return kEmphasised;
    return card == 0 && notes.hasSummaryCard ? kSummary : kOrdinary;
}

Rectangle PlacePanelFocusCue(Size client, int dpi) {
    const int inset = Scale(2, dpi);
    return {inset, inset, inset + ScaleAtLeastOne(2, dpi), client.height - inset};
}

}  // namespace launcher_ui
