#include "download/resume_state.h"

#include <windows.h>

#include <bcrypt.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "platform/unique_handle.h"
#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "tests/windows/cache_file_fixture.h"

namespace launcher_download {

static void PrintTo(const ResumeState& state, std::ostream* out) {
    *out << state.size << ' ' << platform::EncodeUtf8(state.urlHash) << ' ' << platform::EncodeUtf8(state.etag);
}

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
using OnReadFile = StandIn<"ReadFile", decltype(ReadFile)>;
using OnWriteFile = StandIn<"WriteFile", decltype(WriteFile)>;
using OnMoveFile = StandIn<"MoveFileExW", decltype(MoveFileExW)>;
using OnHashData = StandIn<"BCryptHashData", decltype(BCryptHashData)>;

const ResumeState kOld{std::wstring(64, L'a'), L"\"old\"", 1234567};
const ResumeState kNew{std::wstring(64, L'0'), L"\"new-1\"", 0x80000000};
const std::string kOldBytes = "vpr-resume-1\n1234567\n" + std::string(64, 'a') + "\n\"old\"\n";
const std::string kNewBytes = "vpr-resume-1\n2147483648\n" + std::string(64, '0') + "\n\"new-1\"\n";

/// A resume file that holds the old state.
class Resume_File : public ::testing::Test {
  protected:
    Resume_File() { WriteWholeFile(path_, kOldBytes); }

    void ExpectOld() const {
        EXPECT_EQ(ReadResumeState(path_), kOld);
        EXPECT_EQ(ReadWholeFile(path_), kOldBytes);
    }
    void ExpectReadsNothing() const { EXPECT_EQ(ReadResumeState(path_), ResumeState{}); }

    /// A write without any fault, which must leave the new file and nothing beside it.
    void ExpectGoodWrite() const {
        EXPECT_TRUE(WriteResumeState(path_, kNew));
        EXPECT_EQ(ReadResumeState(path_), kNew);
        EXPECT_EQ(ReadWholeFile(path_), kNewBytes);
        EXPECT_FALSE(Exists(sibling_));
    }

    TemporaryDirectory top_;
    const std::wstring path_ = top_ / (std::wstring(64, L'c') + L".resume");
    const std::wstring sibling_ = path_ + L".tmp";
};

// The URL's hash

TEST_F(Resume_File, AUrlsHash_IsOfItsUnitsInMemory) {
    EXPECT_EQ(HashUrl(L"https://download.example/payload.bin"),
              L"8e42854cdfff0202da7e412f32a954dc073c18a380cf19917cedd8a44d587ce4");
    EXPECT_EQ(HashUrl(L"https://download.example/\u65E5\u672C\u8A9E/\u00FC?x=1"),
              L"70994fc7d7a5b926b8a8d7f56562ebaba81b6b893cbdc52bb0893d5a76fecbe3");
    EXPECT_EQ(HashUrl(L""), L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST_F(Resume_File, AHashThatCannotBeHad_IsEmpty) {
    const OnHashData hash([](auto...) { return static_cast<NTSTATUS>(0xC0000001); });
    EXPECT_EQ(HashUrl(L"https://download.example/payload.bin"), L"");
}

// Writing

TEST_F(Resume_File, WhatIsWritten_IsReadAgain) {
    ExpectGoodWrite();
    EXPECT_TRUE(WriteResumeState(path_, kOld));
    ExpectOld();
}

TEST_F(Resume_File, AFirstWrite_MakesTheFile) {
    ASSERT_TRUE(DeleteFileW(path_.c_str()));
    ExpectReadsNothing();
    ExpectGoodWrite();
}

TEST_F(Resume_File, TheUtmostState_IsWrittenAndReadAgain) {
    const ResumeState utmost{std::wstring(64, L'f'), L'"' + std::wstring(254, L'~') + L'"', ~std::uint64_t{0}};
    EXPECT_TRUE(WriteResumeState(path_, utmost));
    EXPECT_EQ(ReadResumeState(path_), utmost);
    EXPECT_EQ(FileLength(path_), 13 + 21 + 65 + 257);
    const ResumeState least{std::wstring(64, L'0'), L"\"\"", 0};
    EXPECT_TRUE(WriteResumeState(path_, least));
    EXPECT_EQ(ReadResumeState(path_), least);
}

TEST_F(Resume_File, AStateThatMayNotBeWritten_TouchesNothing) {
    WriteWholeFile(sibling_, "stale");
    std::vector<ResumeState> states(9, kNew);
    states[0].urlHash = L"";
    states[1].urlHash.pop_back();
    states[2].urlHash.back() = L'A';
    states[3].urlHash += L'0';
    states[4].etag = L"";
    states[5].etag = L"W/\"new-1\"";
    states[6].etag = L"\"a\nb\"";
    states[7].etag = L"\"\u00E9\"";
    states[8].etag = L'"' + std::wstring(255, L'x') + L'"';
    for (std::size_t at = 0; at < states.size(); ++at) {
        const MutationFaults faults;
        EXPECT_FALSE(WriteResumeState(path_, states[at])) << at;
        EXPECT_EQ(faults.Count(), 0u) << at;
    }
    ExpectOld();
    EXPECT_EQ(ReadWholeFile(sibling_), "stale");
}

TEST_F(Resume_File, AStaleSibling_IsReplaced) {
    WriteWholeFile(sibling_, std::string(5000, 'x'));
    ExpectGoodWrite();
}

TEST_F(Resume_File, ASiblingThatCannotGo_LeavesTheOldFile) {
    {
        ASSERT_TRUE(CreateDirectoryW(sibling_.c_str(), nullptr));
        EXPECT_FALSE(WriteResumeState(path_, kNew));
        ExpectOld();
        ASSERT_TRUE(RemoveDirectoryW(sibling_.c_str()));
    }
    {
        WriteWholeFile(top_ / L"second", "precious");
        ASSERT_TRUE(CreateHardLinkW(sibling_.c_str(), (top_ / L"second").c_str(), nullptr));
        EXPECT_FALSE(WriteResumeState(path_, kNew));
        ExpectOld();
        EXPECT_EQ(ReadWholeFile(top_ / L"second"), "precious");
        ASSERT_TRUE(DeleteFileW((top_ / L"second").c_str()));
    }
    {
        const ForcedAttributes forced(L".tmp", FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(WriteResumeState(path_, kNew));
        ExpectOld();
        EXPECT_EQ(ReadWholeFile(sibling_), "precious");
    }
    for (const DWORD sharing : {DWORD{0}, kShareAll}) {
        const platform::FileHandle held = Hold(sibling_, GENERIC_READ, sharing);
        EXPECT_FALSE(WriteResumeState(path_, kNew));
        ExpectOld();
    }
    ExpectGoodWrite();
}

TEST_F(Resume_File, ASiblingThatIsNotProvedRegular_LeavesTheOldFile) {
    for (const HandleFacts& facts : kIrregular) {
        SCOPED_TRACE(facts.name);
        {
            const OnFileInformation information = Tell(facts, 1);
            EXPECT_FALSE(WriteResumeState(path_, kNew));
        }
        ExpectOld();
        EXPECT_EQ(ReadWholeFile(sibling_), "") << "nothing may be written to what was not proved";
    }
    ExpectGoodWrite();
}

TEST_F(Resume_File, ATargetThatCannotGo_Stays) {
    {
        ASSERT_TRUE(CreateHardLinkW((top_ / L"second").c_str(), path_.c_str(), nullptr));
        EXPECT_FALSE(WriteResumeState(path_, kNew));
        EXPECT_EQ(ReadWholeFile(path_), kOldBytes);
        EXPECT_EQ(ReadWholeFile(top_ / L"second"), kOldBytes);
        ASSERT_TRUE(DeleteFileW((top_ / L"second").c_str()));
        ExpectOld();
    }
    {
        const platform::FileHandle held = Hold(path_, GENERIC_READ, kShareAll);
        EXPECT_FALSE(WriteResumeState(path_, kNew));
        ExpectOld();
    }
    {
        const ForcedAttributes forced(L".resume", FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(WriteResumeState(path_, kNew));
    }
    for (const HandleFacts& facts : kIrregular) {
        // The handles are those of the stale sibling, the new one, and the target.
        const OnFileInformation information = Tell(facts, 3);
        MutationFaults faults;
        faults.CountOnly("MoveFileExW", L"");
        EXPECT_FALSE(WriteResumeState(path_, kNew)) << facts.name;
        EXPECT_EQ(faults.Count(), 0u) << "what may not go is not moved upon either";
    }
    ExpectOld();
    ExpectGoodWrite();
    ASSERT_TRUE(DeleteFileW(path_.c_str()));
    ASSERT_TRUE(CreateDirectoryW(path_.c_str(), nullptr));
    EXPECT_FALSE(WriteResumeState(path_, kNew));
    EXPECT_EQ(GetFileAttributesW(path_.c_str()) & FILE_ATTRIBUTE_DIRECTORY, DWORD{FILE_ATTRIBUTE_DIRECTORY});
    ASSERT_TRUE(RemoveDirectoryW(path_.c_str()));
    ExpectGoodWrite();
}

TEST_F(Resume_File, AMissingDirectory_IsAFailure) {
    EXPECT_FALSE(WriteResumeState(top_ / L"other\\x.resume", kNew));
    EXPECT_FALSE(Exists(top_ / L"other"));
    EXPECT_EQ(ReadResumeState(top_ / L"other\\x.resume"), ResumeState{});
}

TEST_F(Resume_File, TheSteps_StandInTheirOrder) {
    const std::wstring longPath = L"\\\\?\\" + path_;
    const std::wstring longSibling = L"\\\\?\\" + sibling_;
    using Step = std::pair<std::string, std::wstring>;
    const std::vector<Step> replacing{{"CreateFileW", longSibling},
                                      {"WriteFile", longSibling},
                                      {"FlushFileBuffers", longSibling},
                                      {"CreateFileW", longPath},
                                      {"SetFileInformationByHandle", longPath},
                                      {"MoveFileExW", longSibling}};
    const auto steps = [&] {
        MutationFaults faults;
        DWORD moveFlags = 0;
        int moves = 0;
        const OnMoveFile move([&](LPCWSTR from, LPCWSTR to, DWORD flags) {
            ++moves;
            moveFlags = flags;
            EXPECT_EQ(GetFileAttributesW(path_.c_str()), INVALID_FILE_ATTRIBUTES) << "the old file goes first";
            EXPECT_EQ(ReadWholeFile(sibling_), kNewBytes);
            return OnMoveFile::Original(from, to, flags);
        });
        EXPECT_TRUE(WriteResumeState(path_, kNew));
        EXPECT_EQ(moves, 1);
        EXPECT_EQ(moveFlags, 8u);
        const std::vector<RecordedCall> calls = faults.Calls();
        EXPECT_EQ(calls.back().second, longPath);
        std::vector<Step> made;
        for (const RecordedCall& call : calls)
            made.emplace_back(call.function, call.path);
        return made;
    };
    EXPECT_EQ(steps(), replacing);
    WriteWholeFile(sibling_, "stale");
    std::vector<Step> wanted = replacing;
    wanted.insert(wanted.begin(), {{"CreateFileW", longSibling}, {"SetFileInformationByHandle", longSibling}});
    EXPECT_EQ(steps(), wanted);
    ASSERT_TRUE(DeleteFileW(path_.c_str()));
    wanted = replacing;
    wanted.erase(wanted.begin() + 3, wanted.begin() + 5);
    EXPECT_EQ(steps(), wanted);
}

TEST_F(Resume_File, TheSibling_IsNewUnsharedAndFollowsNoLink) {
    const Openings openings;
    ASSERT_TRUE(WriteResumeState(path_, kNew));
    ASSERT_EQ(openings.all.size(), 2u);
    EXPECT_EQ(openings.all[0].path, L"\\\\?\\" + sibling_);
    EXPECT_EQ(openings.all[0].access & ~(GENERIC_READ | GENERIC_WRITE), 0u);
    EXPECT_NE(openings.all[0].access & GENERIC_WRITE, 0u);
    EXPECT_EQ(openings.all[0].sharing, 0u);
    EXPECT_EQ(openings.all[0].disposition, 1u);
    EXPECT_EQ(openings.all[0].flags, 0x200080u);
}

TEST_F(Resume_File, TheFourLines_AreWrittenInOneCall) {
    std::vector<std::string> writes;
    const OnWriteFile write([&writes](HANDLE file, LPCVOID data, DWORD length, LPDWORD written, LPOVERLAPPED other) {
        writes.emplace_back(static_cast<const char*>(data), length);
        return OnWriteFile::Original(file, data, length, written, other);
    });
    ASSERT_TRUE(WriteResumeState(path_, kNew));
    EXPECT_EQ(writes, (std::vector{kNewBytes}));
}

TEST_F(Resume_File, AWriteInPieces_IsCarriedOn) {
    const OnWriteFile write([](HANDLE file, LPCVOID data, DWORD length, LPDWORD written, LPOVERLAPPED other) {
        return OnWriteFile::Original(file, data, std::min<DWORD>(length, 7), written, other);
    });
    ExpectGoodWrite();
}

/// What may stand on the disk when a write begins.
struct Beginning {
    const char* name;
    bool hasOld;
    bool hasSibling;
    std::uint32_t steps;  // of a write
};

constexpr Beginning kBeginnings[] = {
    {"no file", false, false, 4}, {"old file", true, false, 6}, {"stale sibling", true, true, 8}};

/// Each step of a write fails, alone or with all that follow, as it would for a process that ends there.
TEST_F(Resume_File, AFaultAtAnyStep_LeavesTheOldStateOrNone) {
    struct Row {
        const char* name;
        FaultKind kind;
        bool fromThenOn;
    };
    for (const Beginning& beginning : kBeginnings) {
        for (const Row& row : {Row{"fail", FaultKind::fail, false},
                               {"torn", FaultKind::failTorn, false},
                               {"end", FaultKind::fail, true},
                               {"torn end", FaultKind::failTorn, true}}) {
            for (std::uint32_t at = 1; at <= beginning.steps; ++at) {
                SCOPED_TRACE(std::string(beginning.name) + ", " + row.name + " at " + std::to_string(at));
                DeleteFileW(path_.c_str());
                DeleteFileW(sibling_.c_str());
                if (beginning.hasOld) WriteWholeFile(path_, kOldBytes);
                if (beginning.hasSibling) WriteWholeFile(sibling_, kNewBytes);
                {
                    const MutationFaults faults(row.kind, at, ERROR_DISK_FULL, row.fromThenOn);
                    EXPECT_FALSE(WriteResumeState(path_, kNew));
                    EXPECT_TRUE(faults.Reached());
                }
                // The last step alone is behind the old file's end.
                const bool oldStays = beginning.hasOld && at < beginning.steps;
                EXPECT_EQ(ReadResumeState(path_), oldStays ? kOld : ResumeState{});
                EXPECT_EQ(Exists(path_), oldStays);
                ExpectGoodWrite();
            }
        }
    }
}

TEST_F(Resume_File, AWrite_HasNoFurtherSteps) {
    for (const Beginning& beginning : kBeginnings) {
        DeleteFileW(path_.c_str());
        if (beginning.hasOld) WriteWholeFile(path_, kOldBytes);
        if (beginning.hasSibling) WriteWholeFile(sibling_, kNewBytes);
        const MutationFaults faults;
        EXPECT_TRUE(WriteResumeState(path_, kNew));
        EXPECT_EQ(faults.Count(), beginning.steps) << beginning.name;
    }
}

TEST_F(Resume_File, AWriteOfNothing_IsAFailure) {
    {
        const OnWriteFile write([](HANDLE, LPCVOID, DWORD, LPDWORD written, LPOVERLAPPED) {
            *written = 0;
            return TRUE;
        });
        EXPECT_FALSE(WriteResumeState(path_, kNew));
    }
    ExpectOld();
    ExpectGoodWrite();
}

// Reading

TEST_F(Resume_File, Reading_ChangesNothing) {
    const MutationFaults faults;
    EXPECT_EQ(ReadResumeState(path_), kOld);
    EXPECT_EQ(ReadResumeState(top_ / L"other"), ResumeState{});
    EXPECT_EQ(faults.Count(), 0u);
    EXPECT_TRUE(static_cast<bool>(Hold(path_, GENERIC_READ | GENERIC_WRITE, 0)));
    EXPECT_FALSE(Exists(top_ / L"other"));
}

TEST_F(Resume_File, Reading_SharesReadsAndFollowsNoLink) {
    const Openings openings;
    EXPECT_EQ(ReadResumeState(path_), kOld);
    ASSERT_EQ(openings.all.size(), 1u);
    EXPECT_EQ(openings.all[0].path, L"\\\\?\\" + path_);
    EXPECT_EQ(openings.all[0].access, GENERIC_READ);
    EXPECT_EQ(openings.all[0].sharing, 1u);
    EXPECT_EQ(openings.all[0].disposition, 3u);
    EXPECT_EQ(openings.all[0].flags & ~DWORD{FILE_ATTRIBUTE_NORMAL}, 0x200000u);
}

TEST_F(Resume_File, Reading_BesideAnotherReader_IsAllowed) {
    for (const DWORD sharing : {DWORD{FILE_SHARE_READ}, kShareAll}) {
        const platform::FileHandle held = Hold(path_, GENERIC_READ, sharing);
        EXPECT_EQ(ReadResumeState(path_), kOld) << sharing;
    }
}

TEST_F(Resume_File, Reading_BesideAWriter_GivesNothing) {
    for (const DWORD sharing : {DWORD{0}, DWORD{FILE_SHARE_READ}, kShareAll}) {
        const platform::FileHandle held = Hold(path_, GENERIC_WRITE, sharing);
        EXPECT_EQ(ReadResumeState(path_), ResumeState{}) << sharing;
    }
    const platform::FileHandle held = Hold(path_, GENERIC_READ, 0);
    ExpectReadsNothing();
}

TEST_F(Resume_File, Reading_WhatIsNoRegularFile_GivesNothing) {
    for (const HandleFacts& facts : kIrregular) {
        const OnFileInformation information = Tell(facts);
        EXPECT_EQ(ReadResumeState(path_), ResumeState{}) << facts.name;
    }
    EXPECT_EQ(ReadResumeState(path_), kOld);
    ASSERT_TRUE(CreateHardLinkW((top_ / L"second").c_str(), path_.c_str(), nullptr));
    ExpectReadsNothing();
    ASSERT_TRUE(DeleteFileW((top_ / L"second").c_str()));
    EXPECT_EQ(ReadResumeState(path_), kOld);
    EXPECT_EQ(ReadResumeState(top_.Path()), ResumeState{});
}

TEST_F(Resume_File, Reading_TheSiblingIsNeverDone) {
    ASSERT_TRUE(MoveFileExW(path_.c_str(), sibling_.c_str(), 0));
    ExpectReadsNothing();
}

/// The old state in a file of `length` bytes: a number may begin with any count of zeros.
std::string OldBytesOfLength(std::size_t length) {
    std::string bytes = kOldBytes;
    bytes.insert(bytes.find('\n') + 1, length - bytes.size(), '0');
    return bytes;
}

TEST_F(Resume_File, Reading_AsMuchAsAFileMayHold) {
    WriteWholeFile(path_, OldBytesOfLength(1024));
    ASSERT_EQ(FileLength(path_), 1024);
    EXPECT_EQ(ReadResumeState(path_), kOld);
    std::vector<DWORD> reads;
    const OnReadFile read([&reads](HANDLE file, LPVOID buffer, DWORD length, LPDWORD count, LPOVERLAPPED other) {
        reads.push_back(length);
        return OnReadFile::Original(file, buffer, length, count, other);
    });
    EXPECT_EQ(ReadResumeState(path_), kOld);
    EXPECT_EQ(reads, (std::vector<DWORD>{1024})) << "one read, of no more than a file may hold";
}

TEST_F(Resume_File, Reading_AByteMoreThanAFileMayHold_GivesNothing) {
    WriteWholeFile(path_, OldBytesOfLength(1025));
    ExpectReadsNothing();
    // Its first 1024 bytes alone would be a good file.
    WriteWholeFile(path_, OldBytesOfLength(1024) + "\n");
    ASSERT_EQ(FileLength(path_), 1025);
    ExpectReadsNothing();
    WriteWholeFile(path_, kOldBytes + std::string(1025 - kOldBytes.size(), '\n'));
    ExpectReadsNothing();
}

TEST_F(Resume_File, Reading_ALengthBeyond32Bits_GivesNothing) {
    const OnFileSize size([](HANDLE, PLARGE_INTEGER length) {
        length->QuadPart = 0x100000000 + static_cast<LONGLONG>(kOldBytes.size());
        return TRUE;
    });
    ExpectReadsNothing();
}

TEST_F(Resume_File, Reading_AMalformedFile_GivesNothing) {
    std::string crlf = kOldBytes;
    for (std::size_t at = 0; (at = crlf.find('\n', at)) != std::string::npos; at += 2)
        crlf.insert(at, "\r");
    const std::string rows[] = {"",
                                "vpr-resume-1\n",
                                kOldBytes + "\n",
                                kOldBytes + "x",
                                "\n" + kOldBytes,
                                "\xEF\xBB\xBF" + kOldBytes,
                                crlf,
                                kOldBytes + std::string(1, '\0')};
    for (const std::string& row : rows) {
        WriteWholeFile(path_, row);
        EXPECT_EQ(ReadResumeState(path_), ResumeState{}) << row;
    }
}

TEST_F(Resume_File, Reading_ATornFile_GivesNothingAtAnyLength) {
    // Behind the last tag's quote only the line's end is missing, which nobody asks for.
    for (std::size_t length = 0; length + 1 < kOldBytes.size(); ++length) {
        WriteWholeFile(path_, std::string_view(kOldBytes).substr(0, length));
        EXPECT_EQ(ReadResumeState(path_), ResumeState{}) << length;
    }
    WriteWholeFile(path_, std::string_view(kOldBytes).substr(0, kOldBytes.size() - 1));
    EXPECT_EQ(ReadResumeState(path_), kOld);
}

TEST_F(Resume_File, Reading_ThatFails_GivesNothing) {
    {
        const OnReadFile read([](auto...) { return Refuse(ERROR_CRC); });
        ExpectReadsNothing();
    }
    {
        // A failed read may have filled the buffer.
        const OnReadFile read([](HANDLE file, LPVOID buffer, DWORD length, LPDWORD count, LPOVERLAPPED other) {
            OnReadFile::Original(file, buffer, length, count, other);
            return Refuse(ERROR_CRC);
        });
        ExpectReadsNothing();
    }
    {
        const OnFileSize size([](HANDLE file, PLARGE_INTEGER length) {
            OnFileSize::Original(file, length);
            return Refuse(ERROR_INVALID_FUNCTION);
        });
        ExpectReadsNothing();
    }
    {
        const OnFileSize size([](HANDLE, PLARGE_INTEGER length) {
            length->QuadPart = -1;
            return TRUE;
        });
        ExpectReadsNothing();
    }
    ExpectOld();
}

}  // namespace
}  // namespace launcher_download
