#include "ui/capture.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "tests/window/window_fixture.h"
#include "ui/failure_view.h"

namespace window_tests {
namespace {

using launcher_ui::CaptureWindow;
using launcher_ui::EncodeBitmapFile;
using launcher_ui::PixelPicture;
using launcher_ui::SaveWindowPicture;
using test_support::FaultKind;
using test_support::FileLength;
using test_support::MutationFaults;
using test_support::ReadWholeFile;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

using OnCreateBitmap = StandIn<"CreateDIBSection", decltype(CreateDIBSection)>;
using OnCreateContext = StandIn<"CreateCompatibleDC", decltype(CreateCompatibleDC)>;
using OnDeleteObject = StandIn<"DeleteObject", decltype(DeleteObject)>;
using OnDeleteContext = StandIn<"DeleteDC", decltype(DeleteDC)>;
using OnWriteFile = StandIn<"WriteFile", decltype(WriteFile)>;

constexpr std::uint32_t kColourBits = 0xFFFFFF;

/// Where the first pixel of the client area differs from what the screen shows, and how many do; empty if none does.
/// The notes panel's scroll bar belongs to its frame, not to its client area.
std::string DifferenceFromScreen(const StatusWindow& status, const PixelPicture& picture) {
    const Picture screen = PictureOf(status.window);
    if (picture.width != screen.size.width || picture.height != screen.size.height) return "the sizes differ";
    const HWND panel = status.At(Control::notesPanel);
    const bool panelShown = IsWindowVisible(panel) != FALSE;
    const launcher_ui::Rectangle frame = PlaceInParent(panel);
    const int inside = frame.left + ClientSizeOf(panel).width;
    std::string first;
    int count = 0;
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            const bool scrollBar = panelShown && y >= frame.top && y < frame.bottom && x >= inside && x < frame.right;
            const auto at =
                static_cast<std::size_t>(y) * static_cast<std::size_t>(picture.width) + static_cast<std::size_t>(x);
            const std::uint32_t pixel = picture.pixels[at] & kColourBits;
            if (scrollBar || pixel == screen.At(x, y) || count++ != 0) continue;
            std::array<char, 96> text;
            std::snprintf(text.data(), text.size(), "(%d, %d) is #%06X and on the screen #%06X", x, y, pixel,
                          screen.At(x, y));
            first = text.data();
        }
    }
    return count == 0 ? std::string() : first + ", " + std::to_string(count) + " pixels differ";
}

int Count(const PixelPicture& picture, const launcher_ui::Rectangle& place, std::uint32_t colour) {
    int count = 0;
    for (int y = place.top; y < place.bottom; ++y) {
        for (int x = place.left; x < place.right; ++x) {
            const auto at = static_cast<std::size_t>(y * picture.width + x);
            count += (picture.pixels[at] & kColourBits) == colour ? 1 : 0;
        }
    }
    return count;
}

class CaptureTest : public WindowTest {
  protected:
    /// What stands on the screen is the window's latest look, with nothing left to paint.
    void ExpectScreenInPicture(const char* state) {
        Settle();
        PixelPicture picture;
        ASSERT_TRUE(CaptureWindow(Main(), picture)) << state;
        EXPECT_EQ(DifferenceFromScreen(status_, picture), "") << state;
    }
    [[nodiscard]] PixelPicture Captured() const {
        PixelPicture picture;
        EXPECT_TRUE(CaptureWindow(Main(), picture));
        return picture;
    }

    TemporaryDirectory folder_;
    std::wstring path_ = folder_ / L"picture.bmp";
};

TEST_F(CaptureTest, EveryView_IsWhatTheScreenShows) {
    Open();
    ExpectScreenInPicture("checking");
    Tell(Stage::CheckingFiles, L"a file", 53, 100);
    ExpectScreenInPicture("checking files");
    Tell(Stage::Repairing);
    ExpectScreenInPicture("repairing");
    launcher_ui::DestroyStatusWindow(status_);

    OpenPrompt();
    ExpectScreenInPicture("prompt");
    launcher_ui::DestroyStatusWindow(status_);
    OpenPrompt(LongNotes());
    SendMessageW(At(Control::notesPanel), WM_VSCROLL, SB_PAGEDOWN, 0);
    ExpectScreenInPicture("prompt, scrolled");
    launcher_ui::DestroyStatusWindow(status_);

    OpenTransfer();
    ExpectScreenInPicture("transfer");
    Tell(Receiving());
    ExpectScreenInPicture("receiving, with Reconnect over the end of the footer");
    Tell(Stage::Completed, kOffered);
    ExpectScreenInPicture("completed");
}

TEST_F(CaptureTest, FailureViews_AreWhatTheScreenShows) {
    OpenFailure(true);
    ExpectScreenInPicture("blocking");
    MoveOnto(Control::cancelButton);
    ASSERT_EQ(status_.hoverButton, At(Control::cancelButton));
    ExpectScreenInPicture("blocking, the pointer on Close");
    MoveAway();
    EnableWindow(At(Control::cancelButton), FALSE);
    ExpectScreenInPicture("blocking, Close without effect");
    launcher_ui::DestroyStatusWindow(status_);
    OpenFailure(false);
    ExpectScreenInPicture("safe");
}

TEST_F(CaptureTest, Picture_HasTheClientAreasSizeAndTheWindowsGround) {
    OpenPrompt();
    const PixelPicture picture = Captured();
    const launcher_ui::Size size = ClientSizeOf(Main());
    EXPECT_EQ(picture.width, size.width);
    EXPECT_EQ(picture.height, size.height);
    ASSERT_EQ(picture.pixels.size(), static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height));
    EXPECT_EQ(picture.pixels[0] & kColourBits, 0x0F1318u);
    EXPECT_EQ(picture.pixels.back() & kColourBits, 0x0F1318u);
}

TEST_F(CaptureTest, ScrollBar_IsLeftOut) {
    OpenPrompt(LongNotes());
    const PixelPicture picture = Captured();
    const launcher_ui::Rectangle frame = PlaceInParent(At(Control::notesPanel));
    const int inside = frame.left + ClientSizeOf(At(Control::notesPanel)).width;
    ASSERT_LT(inside, frame.right) << "no scroll bar";
    for (int y = frame.top; y < frame.bottom; ++y) {
        for (int x = inside; x < frame.right; ++x) {
            const auto at = static_cast<std::size_t>(y * picture.width + x);
            ASSERT_EQ(picture.pixels[at] & kColourBits, 0x0F1318u) << x << ", " << y;
        }
    }
}

TEST_F(CaptureTest, WhatLiesOverTheWindow_IsNotInThePicture) {
    OpenPrompt();
    const PixelPicture before = Captured();
    const OtherWindow other;
    const launcher_ui::Rectangle place = PlaceOnScreen(Main());
    SetWindowPos(other.Handle(), HWND_TOPMOST, place.left + 40, place.top + 80, 300, 300, SWP_NOACTIVATE);
    Settle();
    const HWND seen = WindowFromPoint({place.left + 100, place.top + 150});
    ASSERT_EQ(seen, other.Handle()) << "nothing lies over it";
    EXPECT_EQ(Captured().pixels, before.pixels);
}

TEST_F(CaptureTest, WindowThatIsNotToBeSeen_HasItsPictureAllTheSame) {
    OpenPrompt();
    SetFocus(nullptr);  // a hidden window has none
    const PixelPicture before = Captured();
    ShowWindow(Main(), SW_HIDE);
    SetWindowPos(Main(), nullptr, -5000, -5000, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    EXPECT_EQ(Captured().pixels, before.pixels);
}

TEST_F(CaptureTest, HiddenControls_AreNotInThePicture) {
    OpenTransfer();
    Tell(Stage::DownloadingBytes, L"app.zip", 100, 100);
    const launcher_ui::Rectangle bar = PlaceInParent(At(Control::bar));
    EXPECT_GT(Count(Captured(), bar, 0x2997FF), 1000);
    ShowWindow(At(Control::bar), SW_HIDE);
    EXPECT_EQ(Count(Captured(), bar, 0x0F1318), bar.Width() * bar.Height());
}

TEST_F(CaptureTest, Control_LiesOverThoseBehindIt) {
    OpenTransfer();
    Tell(Receiving());
    Settle();
    const launcher_ui::Rectangle place = PlaceInParent(At(Control::reconnectButton));
    const PixelPicture with = Captured();
    const Picture button = PictureOf(At(Control::reconnectButton));
    for (int y = 0; y < button.size.height; ++y) {
        for (int x = 0; x < button.size.width; ++x) {
            const auto at = static_cast<std::size_t>((place.top + y) * with.width + place.left + x);
            ASSERT_EQ(with.pixels[at] & kColourBits, button.At(x, y)) << x << ", " << y;
        }
    }
    EXPECT_GT(button.Count(0x151E27), 1000) << "the button's face";
}

TEST_F(CaptureTest, Capture_ChangesNothingOnTheScreen) {
    OpenPrompt();
    const Picture before = PictureOf(Main());
    const MessageLog log(Main());
    (void)Captured();
    EXPECT_EQ(PictureOf(Main()), before);
    EXPECT_EQ(log.Count(WM_PAINT), 0);
    EXPECT_EQ(GetQueueStatus(QS_PAINT) & QS_PAINT, 0u) << "something was left to paint";
}

TEST_F(CaptureTest, Capture_GivesBackWhatItTakes) {
    OpenPrompt();
    std::multiset<void*> held;
    int taken = 0;
    const auto give = [&](void* handle) {
        if (const auto found = held.find(handle); found != held.end()) held.erase(found);
    };
    const OnCreateBitmap bitmap([&](auto... all) {
        const HBITMAP made = OnCreateBitmap::Original(all...);
        held.insert(made);
        ++taken;
        return made;
    });
    const OnCreateContext context([&](HDC like) {
        const HDC made = OnCreateContext::Original(like);
        held.insert(made);
        ++taken;
        return made;
    });
    const OnDeleteObject object([&](HGDIOBJ one) {
        const BOOL gone = OnDeleteObject::Original(one);
        if (gone) give(one);
        return gone;
    });
    const OnDeleteContext end([&](HDC one) {
        const BOOL gone = OnDeleteContext::Original(one);
        if (gone) give(one);
        return gone;
    });
    (void)Captured();
    EXPECT_GT(taken, 20) << "the window and its controls, one bitmap and context each";
    EXPECT_TRUE(held.empty()) << held.size() << " of " << taken;
}

TEST_F(CaptureTest, BitmapThatCannotBeMade_FailsThePicture) {
    OpenPrompt();
    int calls = 0;
    {
        const OnCreateBitmap count([&](auto... all) {
            ++calls;
            return OnCreateBitmap::Original(all...);
        });
        (void)Captured();
    }
    const int all = calls;
    ASSERT_GT(all, 10);
    for (int failing = 1; failing <= all; ++failing) {
        calls = 0;
        const OnCreateBitmap fail(
            [&](auto... rest) { return ++calls == failing ? nullptr : OnCreateBitmap::Original(rest...); });
        PixelPicture picture;
        EXPECT_FALSE(CaptureWindow(Main(), picture)) << failing;
        EXPECT_FALSE((calls = 0, SaveWindowPicture(Main(), path_))) << failing;
        EXPECT_EQ(FileLength(path_), -1) << failing;
    }
}

TEST_F(CaptureTest, ContextThatCannotBeMade_FailsThePicture) {
    OpenPrompt();
    const OnCreateContext fail([](HDC) -> HDC { return nullptr; });
    PixelPicture picture;
    EXPECT_FALSE(CaptureWindow(Main(), picture));
    EXPECT_FALSE(SaveWindowPicture(Main(), path_));
    EXPECT_EQ(FileLength(path_), -1);
}

TEST_F(CaptureTest, SavedPicture_IsTheCapturedOne) {
    OpenPrompt();
    const PixelPicture picture = Captured();
    ASSERT_TRUE(SaveWindowPicture(Main(), path_));
    EXPECT_TRUE(ReadWholeFile(path_) == EncodeBitmapFile(picture));
}

TEST_F(CaptureTest, ExistingFile_IsNotTouched) {
    Open();
    for (const char* content : {"", "not a picture"}) {
        WriteWholeFile(path_, content);
        EXPECT_FALSE(SaveWindowPicture(Main(), path_));
        EXPECT_EQ(ReadWholeFile(path_), content);
        EXPECT_NE(FileLength(path_), -1);
    }
}

TEST_F(CaptureTest, FileThatCannotBeMade_FailsTheSave) {
    Open();
    EXPECT_FALSE(SaveWindowPicture(Main(), folder_ / L"absent\\picture.bmp"));
    EXPECT_FALSE(SaveWindowPicture(Main(), folder_.Path()));
}

TEST_F(CaptureTest, EveryFaultWhileWriting_LeavesNoFile) {
    Open();
    std::uint32_t calls = 0;
    {
        const MutationFaults faults;
        ASSERT_TRUE(SaveWindowPicture(Main(), path_));
        calls = faults.Count();
    }
    ASSERT_GE(calls, 2u) << "one call opens, one writes";
    ASSERT_TRUE(DeleteFileW(path_.c_str()));
    for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
        for (std::uint32_t at = 1; at <= calls; ++at) {
            const MutationFaults faults(kind, at, ERROR_DISK_FULL);
            EXPECT_FALSE(SaveWindowPicture(Main(), path_)) << at;
            EXPECT_TRUE(faults.Reached()) << at;
            EXPECT_EQ(FileLength(path_), -1) << "a part was left at call " << at;
        }
    }
}

/// The call succeeds and says that less was written.
TEST_F(CaptureTest, ShortWrite_LeavesNoFile) {
    Open();
    {
        const OnWriteFile half([](HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) {
            return OnWriteFile::Original(file, bytes, size / 2, written, overlapped);
        });
        EXPECT_FALSE(SaveWindowPicture(Main(), path_));
    }
    EXPECT_EQ(FileLength(path_), -1);
}

}  // namespace
}  // namespace window_tests
