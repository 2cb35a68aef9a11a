#pragma once

/// The dark theme as data: colours, fonts, and lengths that more than one file needs. Lengths are units: pixels at 96
/// dpi, turned into the pixels of a screen by `Scale`. Pure.

#include <cstdint>

namespace launcher_ui {

/// 0x00RRGGBB, as the colours are written everywhere; painting turns it into Windows' order.
using Colour = std::uint32_t;

namespace colour {
inline constexpr Colour kBackground = 0x0F1318;
inline constexpr Colour kPanel = 0x0B1118;
inline constexpr Colour kStrongText = 0xF4F7FA;
inline constexpr Colour kQuietText = 0xA9B4C2;
inline constexpr Colour kDisabledText = 0x77828F;

inline constexpr Colour kRule = 0x283A49;
inline constexpr Colour kPanelFrame = 0x2B3E4F;
inline constexpr Colour kCheckFill = 0x153E31;
inline constexpr Colour kCheckEdge = 0x2D8B68;
inline constexpr Colour kCheckTick = 0x77D8AF;

inline constexpr Colour kBarTrack = 0x2A333F;
inline constexpr Colour kBarTrackEdge = 0x374B5C;
inline constexpr Colour kBarWorking = 0x2997FF;
inline constexpr Colour kBarOffering = 0xF0AE3A;
inline constexpr Colour kBarGood = 0x30BE7A;
inline constexpr Colour kBarFailed = 0xE85454;

inline constexpr Colour kBadgeArrow = 0x668BA8;
inline constexpr Colour kBadgeOffered = 0x91D2FA;

inline constexpr Colour kButtonDisabled = 0x272D36;
inline constexpr Colour kButtonEdge = 0x40566A;
inline constexpr Colour kButtonFocusCue = 0xAADCFA;
inline constexpr Colour kLink = 0x6FAED5;
inline constexpr Colour kLinkHover = 0x91D2FA;

inline constexpr Colour kCardEdge = 0x2F4456;
inline constexpr Colour kCardFill = 0x111B25;
inline constexpr Colour kSummaryFill = 0x13212D;
inline constexpr Colour kSummaryText = 0xCFDAE5;
inline constexpr Colour kEmphasisEdge = 0x41708E;
inline constexpr Colour kEmphasisFill = 0x182B38;
inline constexpr Colour kPanelFocusCue = 0x2997FF;
}  // namespace colour

/// Fill of a filled button by its state; a disabled one has `kButtonDisabled`.
struct ButtonPalette {
    Colour idle;
    Colour hover;
    Colour pressed;
    bool edgeHasFillColour;  // else the edge has `kButtonEdge`
};
inline constexpr ButtonPalette kPrimaryButton = {0x1D6B9B, 0x268FDA, 0x185880, true};
inline constexpr ButtonPalette kOrdinaryButton = {0x151E27, 0x2A343F, 0x212B36, false};

inline constexpr const wchar_t* kFontName = L"Segoe UI";

enum class FontRole { title, heading, body, small, bodyStrong };
inline constexpr int kFontCount = 5;

struct FontSpec {
    FontRole role;
    int height;  // of a character, units
    int weight;
};
inline constexpr FontSpec kFonts[kFontCount] = {
    {FontRole::title, 22, 600}, {FontRole::heading, 16, 600},    {FontRole::body, 14, 400},
    {FontRole::small, 12, 400}, {FontRole::bodyStrong, 14, 600},
};

inline constexpr int kIconUnits = 36;

}  // namespace launcher_ui
