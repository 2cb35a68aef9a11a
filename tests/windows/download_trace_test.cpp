#include "download/trace.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "download/trace_line.h"
#include "platform/unique_handle.h"
#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "tests/windows/cache_file_fixture.h"

namespace launcher_download {
namespace {

using test_support::FaultKind;
using test_support::FileLength;
using test_support::ForcedAttributes;
using test_support::MutationFaults;
using test_support::ReadWholeFile;
using test_support::RecordedCall;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

using OnFileSize = StandIn<"GetFileSizeEx", decltype(GetFileSizeEx)>;
using OnSeek = StandIn<"SetFilePointerEx", decltype(SetFilePointerEx)>;
using OnWriteFile = StandIn<"WriteFile", decltype(WriteFile)>;
using OnMoveFile = StandIn<"MoveFileExW", decltype(MoveFileExW)>;

constexpr std::size_t kLimit = 262144;  // bytes of a file that is still appended to

/// The number behind `utc` in a line; -1 if there is none.
long long UtcOf(const std::string& line) {
    const std::string key = "\"utc\":";
    const std::size_t at = line.find(key);
    return at == std::string::npos ? -1 : std::stoll(line.substr(at + key.size()));
}

/// A cache directory in which a transfer tells its course.
class Trace_File : public ::testing::Test {
  protected:
    Trace_File() {
        request_.sha256 = L"0123456789abcdef" + std::wstring(48, L'0');
        request_.component = 3;
        progress_.phase = Phase::receiving;
        progress_.attempt = 2;
        progress_.bytes = 1000;
        progress_.total = 2000;
    }

    void Append(const char* reason = "progress") const {
        AppendTrace(top_.Path(), request_, progress_, "github", 12002, 206, reason, 345);
    }

    /// What `Append` must write at `utc`.
    [[nodiscard]] std::string Line(long long utc, const char* reason = "progress") const {
        return FormatTraceLine(request_, progress_, {utc, "github", 12002, 206, reason, 345});
    }

    /// The current file holds `before` and behind it one whole line of `Append`.
    void ExpectOneLineBehind(const std::string& before) const {
        const std::string bytes = ReadWholeFile(current_);
        ASSERT_EQ(bytes.substr(0, before.size()), before);
        const std::string line = bytes.substr(before.size());
        EXPECT_EQ(line, Line(UtcOf(line)));
    }

    /// Appending must change nothing in the whole directory.
    void ExpectDropped() const {
        const auto state = [this] {
            std::vector<std::string> told;
            WIN32_FIND_DATAW found{};
            const platform::FindHandle find(FindFirstFileW((top_ / L"*").c_str(), &found));
            EXPECT_TRUE(static_cast<bool>(find));
            for (BOOL more = find ? TRUE : FALSE; more; more = FindNextFileW(find.Get(), &found)) {
                const std::wstring name = found.cFileName;
                if (name == L"." || name == L"..") continue;
                told.emplace_back(name.begin(), name.end());
                told.push_back(ReadWholeFile(top_ / name));
            }
            return told;
        };
        const std::vector<std::string> before = state();
        Append();
        EXPECT_TRUE(state() == before);
    }

    TemporaryDirectory top_;
    const std::wstring current_ = top_ / L"download-trace.jsonl";
    const std::wstring previous_ = top_ / L"download-trace.previous.jsonl";
    const std::string full_ = std::string(kLimit, 'x') + '\n';  // of a file that the next line rotates
    Request request_;
    Progress progress_;
};

// Appending

TEST_F(Trace_File, TheFirstLine_MakesTheFile) {
    Append();
    ExpectOneLineBehind("");
    EXPECT_FALSE(Exists(previous_));
}

TEST_F(Trace_File, ALine_TellsWhatItWasGiven) {
    Append("headers-accepted");
    const std::string bytes = ReadWholeFile(current_);
    EXPECT_EQ(bytes, "{\"schema\":1,\"utc\":" + std::to_string(UtcOf(bytes)) +
                         ",\"component\":\"runtime\",\"phase\":\"receiving\",\"endpoint\":\"github\","
                         "\"payload\":\"0123456789ab\",\"attempt\":2,\"bytes\":1000,\"total\":2000,"
                         "\"networkBytes\":0,\"elapsedMs\":0,\"firstByteMs\":345,\"bytesPerSecond\":0,"
                         "\"comparisonPrimarySpeed\":0.000000,\"comparisonBackupSpeed\":0.000000,"
                         "\"httpStatus\":206,\"osError\":12002,\"sha256Verified\":false,"
                         "\"reason\":\"headers-accepted\"}\n");
}

TEST_F(Trace_File, FurtherLines_AreAppended) {
    const char* const words[] = {"new-request", "headers-accepted", "progress", "payload", "sha256-verified"};
    std::string wanted;
    for (const char* word : words) {
        Append(word);
        const std::string bytes = ReadWholeFile(current_);
        ASSERT_GT(bytes.size(), wanted.size());
        wanted += Line(UtcOf(bytes.substr(wanted.size())), word);
        ASSERT_EQ(bytes, wanted);
        EXPECT_EQ(bytes.back(), '\n');
    }
}

TEST_F(Trace_File, WhatStandsThere_Stays) {
    WriteWholeFile(current_, "half a line");
    Append();
    ExpectOneLineBehind("half a line");
}

TEST_F(Trace_File, TheTime_IsTheSystemsInSeconds) {
    const long long before = std::time(nullptr);
    Append();
    const long long after = std::time(nullptr);
    const long long utc = UtcOf(ReadWholeFile(current_));
    EXPECT_GE(utc, before);
    EXPECT_LE(utc, after);
}

TEST_F(Trace_File, Directories_HaveTheirOwnFiles) {
    for (const wchar_t* name : {L"github", L"r2"}) {
        ASSERT_TRUE(CreateDirectoryW((top_ / name).c_str(), nullptr));
        AppendTrace(top_ / name, request_, progress_, "github", 12002, 206, "progress", 345);
    }
    EXPECT_GT(FileLength(top_ / L"github\\download-trace.jsonl"), 0);
    EXPECT_EQ(FileLength(top_ / L"github\\download-trace.jsonl"), FileLength(top_ / L"r2\\download-trace.jsonl"));
    EXPECT_FALSE(Exists(current_));
}

TEST_F(Trace_File, AMissingDirectory_IsNotMade) {
    AppendTrace(top_ / L"other", request_, progress_, "github", 0, 0, "progress", 0);
    EXPECT_FALSE(Exists(top_ / L"other"));
}

TEST_F(Trace_File, TheFile_IsClosedBehindEachLine) {
    Append();
    EXPECT_TRUE(static_cast<bool>(Hold(current_, GENERIC_READ | GENERIC_WRITE, 0)));
    WriteWholeFile(current_, full_);
    Append();
    EXPECT_TRUE(static_cast<bool>(Hold(current_, GENERIC_READ | GENERIC_WRITE, 0)));
    EXPECT_TRUE(static_cast<bool>(Hold(previous_, GENERIC_READ | GENERIC_WRITE, 0)));
}

TEST_F(Trace_File, TheFile_IsOpenedForReadersAndWithoutFollowingALink) {
    const Openings openings;
    Append();
    ASSERT_EQ(openings.all.size(), 1u);
    EXPECT_EQ(openings.all[0].path, L"\\\\?\\" + current_);
    EXPECT_EQ(openings.all[0].access, 0xC0000000u);
    EXPECT_EQ(openings.all[0].sharing, 1u);
    EXPECT_EQ(openings.all[0].disposition, 4u);
    EXPECT_EQ(openings.all[0].flags & ~DWORD{FILE_ATTRIBUTE_NORMAL}, 0x200000u);
}

TEST_F(Trace_File, ALine_IsOneWrite) {
    Append();
    const std::string before = ReadWholeFile(current_);
    std::vector<std::string> writes;
    const OnWriteFile write([&writes](HANDLE file, LPCVOID data, DWORD length, LPDWORD written, LPOVERLAPPED other) {
        writes.emplace_back(static_cast<const char*>(data), length);
        return OnWriteFile::Original(file, data, length, written, other);
    });
    Append();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(before + writes[0], ReadWholeFile(current_));
}

TEST_F(Trace_File, AReaderThatAllowsWrites_MayLookOn) {
    Append();
    const std::string before = ReadWholeFile(current_);
    const platform::FileHandle held = Hold(current_, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    Append();
    ExpectOneLineBehind(before);
}

TEST_F(Trace_File, AnyOtherHolder_CostsTheLine) {
    Append();
    const std::string before = ReadWholeFile(current_);
    struct Row {
        DWORD access, sharing;
    };
    for (const Row& row : {Row{GENERIC_READ, FILE_SHARE_READ}, {GENERIC_READ, 0}, {GENERIC_WRITE, kShareAll}}) {
        {
            const platform::FileHandle held = Hold(current_, row.access, row.sharing);
            Append();
        }
        EXPECT_EQ(ReadWholeFile(current_), before) << row.access << ' ' << row.sharing;
    }
    Append();
    ExpectOneLineBehind(before);
}

// What is no file

TEST_F(Trace_File, ADirectoryInItsPlace_DropsEveryLine) {
    ASSERT_TRUE(CreateDirectoryW(current_.c_str(), nullptr));
    WriteWholeFile(previous_, "previous");
    ExpectDropped();
    ExpectDropped();
    EXPECT_NE(GetFileAttributesW(current_.c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u);
    ASSERT_TRUE(RemoveDirectoryW(current_.c_str())) << "nothing was put into it";
    Append();
    ExpectOneLineBehind("");
}

TEST_F(Trace_File, AFileWithASecondName_IsNotWritten) {
    for (const std::string& bytes : {std::string("precious"), full_}) {
        WriteWholeFile(top_ / L"second", bytes);
        ASSERT_TRUE(CreateHardLinkW(current_.c_str(), (top_ / L"second").c_str(), nullptr));
        ExpectDropped();
        ASSERT_TRUE(DeleteFileW((top_ / L"second").c_str()));
        ASSERT_TRUE(DeleteFileW(current_.c_str()));
    }
}

TEST_F(Trace_File, WhatItsHandleDoesNotShowAsAFile_IsNotWritten) {
    for (const std::string& bytes : {std::string("precious"), full_}) {
        WriteWholeFile(current_, bytes);
        for (const HandleFacts& facts : kIrregular) {
            SCOPED_TRACE(facts.name);
            const OnFileInformation information = Tell(facts);
            ExpectDropped();
        }
    }
}

// Rotation

TEST_F(Trace_File, AFileAtItsLimit_IsAppendedTo) {
    const std::string bytes(kLimit, 'x');
    WriteWholeFile(current_, bytes);
    WriteWholeFile(previous_, "previous");
    Append();
    ExpectOneLineBehind(bytes);
    EXPECT_EQ(ReadWholeFile(previous_), "previous");
}

TEST_F(Trace_File, AFileAboveItsLimit_BecomesThePrevious) {
    ASSERT_EQ(full_.size(), kLimit + 1);
    WriteWholeFile(current_, full_);
    Append();
    ExpectOneLineBehind("");
    EXPECT_TRUE(ReadWholeFile(previous_) == full_);
    Append();
    EXPECT_TRUE(ReadWholeFile(previous_) == full_);
    EXPECT_GT(FileLength(current_), static_cast<long long>(Line(0).size()));
}

TEST_F(Trace_File, TheFormerPrevious_Goes) {
    WriteWholeFile(previous_, std::string(2 * kLimit, 'p'));
    WriteWholeFile(current_, full_);
    Append();
    ExpectOneLineBehind("");
    EXPECT_TRUE(ReadWholeFile(previous_) == full_);
    WriteWholeFile(current_, full_ + "second");
    Append();
    ExpectOneLineBehind("");
    EXPECT_TRUE(ReadWholeFile(previous_) == full_ + "second");
}

TEST_F(Trace_File, ALengthBeyond32Bits_IsAboveTheLimit) {
    WriteWholeFile(current_, "long");
    const OnFileSize size([](HANDLE, PLARGE_INTEGER length) {
        length->QuadPart = 0x100000000;
        return TRUE;
    });
    Append();
    ASSERT_EQ(ReadWholeFile(previous_), "long") << "the line stands 4 GiB behind the start";
    ExpectOneLineBehind("");
}

TEST_F(Trace_File, TheSteps_StandInTheirOrder) {
    WriteWholeFile(previous_, "previous");
    WriteWholeFile(current_, full_);
    const std::wstring longCurrent = L"\\\\?\\" + current_;
    const std::wstring longPrevious = L"\\\\?\\" + previous_;
    MutationFaults faults;
    DWORD moveFlags = 0;
    const OnMoveFile move([&](LPCWSTR from, LPCWSTR to, DWORD flags) {
        moveFlags = flags;
        EXPECT_FALSE(Exists(previous_));
        return OnMoveFile::Original(from, to, flags);
    });
    const Openings openings;
    Append();
    std::vector<std::pair<std::string, std::wstring>> steps;
    std::wstring movedTo;
    for (const RecordedCall& call : faults.Calls()) {
        steps.emplace_back(call.function, call.path);
        movedTo += call.second;
    }
    const decltype(steps) wanted{
        {"CreateFileW", longCurrent}, {"CreateFileW", longPrevious}, {"SetFileInformationByHandle", longPrevious},
        {"MoveFileExW", longCurrent}, {"CreateFileW", longCurrent},  {"WriteFile", longCurrent}};
    EXPECT_EQ(steps, wanted);
    EXPECT_EQ(movedTo, longPrevious);
    EXPECT_EQ(moveFlags, 8u);
    ASSERT_EQ(openings.all.size(), 3u);
    EXPECT_NE(openings.all[2].access & GENERIC_WRITE, 0u);
    EXPECT_EQ(openings.all[2].access & ~(GENERIC_READ | GENERIC_WRITE), 0u);
    EXPECT_EQ(openings.all[2].sharing, 1u);
    EXPECT_EQ(openings.all[2].disposition, 1u);
    EXPECT_EQ(openings.all[2].flags & ~DWORD{FILE_ATTRIBUTE_NORMAL}, 0x200000u);
}

TEST_F(Trace_File, APreviousThatCannotGo_CostsTheLineUntilItCan) {
    WriteWholeFile(current_, full_);
    {
        ASSERT_TRUE(CreateDirectoryW(previous_.c_str(), nullptr));
        ExpectDropped();
        EXPECT_NE(GetFileAttributesW(previous_.c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u);
        ASSERT_TRUE(RemoveDirectoryW(previous_.c_str()));
    }
    {
        WriteWholeFile(top_ / L"second", "precious");
        ASSERT_TRUE(CreateHardLinkW(previous_.c_str(), (top_ / L"second").c_str(), nullptr));
        ExpectDropped();
        ASSERT_TRUE(DeleteFileW((top_ / L"second").c_str()));
    }
    for (const DWORD sharing : {DWORD{FILE_SHARE_READ}, kShareAll}) {
        const platform::FileHandle held = Hold(previous_, GENERIC_READ, sharing);
        ExpectDropped();
    }
    {
        const ForcedAttributes forced(L".previous.jsonl", FILE_ATTRIBUTE_REPARSE_POINT);
        ExpectDropped();
    }
    for (const HandleFacts& facts : kIrregular) {
        // The first handle is the current file's.
        const OnFileInformation information = Tell(facts, 2);
        ExpectDropped();
    }
    EXPECT_TRUE(ReadWholeFile(current_) == full_);
    EXPECT_EQ(ReadWholeFile(previous_), "precious");
    Append();
    ExpectOneLineBehind("");
    EXPECT_TRUE(ReadWholeFile(previous_) == full_);
}

TEST_F(Trace_File, AReaderOfAFullFile_CostsTheLineUnlessItAllowsTheMove) {
    WriteWholeFile(current_, full_);
    {
        const platform::FileHandle held = Hold(current_, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
        ExpectDropped();
    }
    const platform::FileHandle held = Hold(current_, GENERIC_READ, kShareAll);
    Append();
    ExpectOneLineBehind("");
    EXPECT_TRUE(ReadWholeFile(previous_) == full_);
}

TEST_F(Trace_File, AFileThatCannotBeMoved_CostsTheLine) {
    WriteWholeFile(current_, full_);
    {
        int moves = 0;
        const OnMoveFile move([&moves](auto...) {
            ++moves;
            return Refuse(ERROR_ACCESS_DENIED);
        });
        ExpectDropped();
        EXPECT_EQ(moves, 1);
    }
    WriteWholeFile(previous_, "previous");
    {
        const OnMoveFile move([](auto...) { return Refuse(ERROR_ACCESS_DENIED); });
        Append();
        EXPECT_TRUE(ReadWholeFile(current_) == full_);
        EXPECT_FALSE(Exists(previous_)) << "it went first";
    }
    Append();
    ExpectOneLineBehind("");
    EXPECT_TRUE(ReadWholeFile(previous_) == full_);
}

TEST_F(Trace_File, ANewFileThatCannotBeMade_CostsTheLine) {
    WriteWholeFile(current_, full_);
    {
        MutationFaults faults(FaultKind::fail, 2);
        faults.CountOnly("CreateFileW", L"download-trace.jsonl");
        Append();
        EXPECT_TRUE(faults.Reached());
        EXPECT_EQ(faults.Count(), 2u);
    }
    EXPECT_FALSE(Exists(current_));
    EXPECT_TRUE(ReadWholeFile(previous_) == full_);
    Append();
    ExpectOneLineBehind("");
    EXPECT_TRUE(ReadWholeFile(previous_) == full_);
}

TEST_F(Trace_File, ANewFileThatIsNotProvedRegular_CostsTheLine) {
    for (const HandleFacts& facts : kIrregular) {
        SCOPED_TRACE(facts.name);
        DeleteFileW(previous_.c_str());
        WriteWholeFile(current_, full_);
        {
            const OnFileInformation information = Tell(facts, 2);
            Append();
        }
        EXPECT_EQ(ReadWholeFile(current_), "");
        EXPECT_TRUE(ReadWholeFile(previous_) == full_);
        Append();
        ExpectOneLineBehind("");
    }
}

TEST_F(Trace_File, ANewFileThatAnotherMadeFirst_IsNotWritten) {
    WriteWholeFile(current_, full_);
    {
        const OnMoveFile move([this](LPCWSTR from, LPCWSTR to, DWORD flags) {
            const BOOL good = OnMoveFile::Original(from, to, flags);
            WriteWholeFile(current_, "another's\n");
            return good;
        });
        Append();
    }
    EXPECT_EQ(ReadWholeFile(current_), "another's\n");
    EXPECT_TRUE(ReadWholeFile(previous_) == full_);
    Append();
    ExpectOneLineBehind("another's\n");
}

// What Windows refuses

TEST_F(Trace_File, ACallThatFails_CostsThisLineAlone) {
    const std::string before = "what stands there\n";
    WriteWholeFile(current_, before);
    int refused = 0;
    {
        const OnCreateFile create([&refused](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                             DWORD disposition, DWORD flags, HANDLE other) {
            if (refused == 1) return OnCreateFile::Original(path, access, sharing, security, disposition, flags, other);
            ++refused;
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        });
        Append();
        EXPECT_EQ(refused, 1);
        EXPECT_EQ(ReadWholeFile(current_), before);
    }
    {
        const OnFileSize size([&refused](auto...) {
            ++refused;
            return Refuse(ERROR_INVALID_FUNCTION);
        });
        Append();
        EXPECT_EQ(refused, 2);
        EXPECT_EQ(ReadWholeFile(current_), before);
    }
    {
        const OnSeek seek([&refused](auto...) {
            ++refused;
            return Refuse(ERROR_INVALID_FUNCTION);
        });
        Append();
        EXPECT_EQ(refused, 3);
        EXPECT_EQ(ReadWholeFile(current_), before) << "a line at the start would overwrite others";
    }
    {
        const OnWriteFile write([&refused](auto...) {
            ++refused;
            return Refuse(ERROR_DISK_FULL);
        });
        Append();
        EXPECT_EQ(refused, 4) << "it is tried once";
        EXPECT_EQ(ReadWholeFile(current_), before);
    }
    Append();
    ExpectOneLineBehind(before);
}

TEST_F(Trace_File, AnUnreadableLength_RotatesNothing) {
    WriteWholeFile(current_, full_);
    const OnFileSize size([](HANDLE file, PLARGE_INTEGER length) {
        OnFileSize::Original(file, length);
        return Refuse(ERROR_INVALID_FUNCTION);
    });
    ExpectDropped();
}

/// Each step of a rotation fails, torn where it can be; whatever is left, the next line finds its place.
TEST_F(Trace_File, AFaultAtAnyStepOfARotation_IsSilent) {
    constexpr std::uint32_t kSteps = 6;
    for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
        for (std::uint32_t at = 1; at <= kSteps; ++at) {
            SCOPED_TRACE(at);
            WriteWholeFile(previous_, "previous");
            WriteWholeFile(current_, full_);
            {
                const MutationFaults faults(kind, at, ERROR_DISK_FULL);
                Append();
                EXPECT_TRUE(faults.Reached());
            }
            const bool moved = at > 4;
            EXPECT_EQ(ReadWholeFile(current_) == full_, !moved);
            if (moved) {
                EXPECT_LT(FileLength(current_), static_cast<long long>(Line(0).size()));
            }
            EXPECT_TRUE(ReadWholeFile(previous_) == (moved ? full_ : at == 4 ? "" : "previous"));
            const std::string left = moved ? ReadWholeFile(current_) : "";
            Append();
            ExpectOneLineBehind(left);
            EXPECT_TRUE(ReadWholeFile(previous_) == full_);
        }
    }
}

TEST_F(Trace_File, AWriteInPieces_IsCarriedOn) {
    const OnWriteFile write([](HANDLE file, LPCVOID data, DWORD length, LPDWORD written, LPOVERLAPPED other) {
        return OnWriteFile::Original(file, data, length > 1 ? length / 2 : length, written, other);
    });
    Append();
    ExpectOneLineBehind("");
}

}  // namespace
}  // namespace launcher_download
