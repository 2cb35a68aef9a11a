#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "download/cache.h"
#include "download/cache_file.h"
#include "download/payload_hash.h"
#include "platform/text.h"
#include "tests/support/temporary_directory.h"

namespace launcher_download {
namespace {

using test_support::FileLength;
using test_support::ReadWholeFile;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

bool IsDirectory(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

platform::FileHandle OpenForWriting(const std::wstring& path) {
    return platform::FileHandle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
}

TEST(DownloadDirectory_Prepare, MissingDirectories_AreMade) {
    const TemporaryDirectory top;
    std::wstring normalised;
    ASSERT_TRUE(PrepareSafeDirectory(top / L"a\\b\\c", normalised));
    EXPECT_EQ(normalised, top / L"a\\b\\c");
    EXPECT_TRUE(IsDirectory(top / L"a\\b\\c"));
}

TEST(DownloadDirectory_Prepare, ExistingDirectories_AreTaken) {
    const TemporaryDirectory top;
    std::wstring normalised;
    ASSERT_TRUE(PrepareSafeDirectory(top.Path(), normalised));
    EXPECT_EQ(normalised, top.Path());
}

TEST(DownloadDirectory_Prepare, OddlyWrittenPaths_AreNormalised) {
    const TemporaryDirectory top;
    std::wstring forward = top / L"a/b//c///";
    for (wchar_t& unit : forward) {
        if (unit == L'\\') unit = L'/';
    }
    std::wstring normalised;
    ASSERT_TRUE(PrepareSafeDirectory(forward, normalised));
    EXPECT_EQ(normalised, top / L"a\\b\\c");
    ASSERT_TRUE(PrepareSafeDirectory(top / L"x\\..\\y\\.\\\\", normalised));
    EXPECT_EQ(normalised, top / L"y");
    EXPECT_TRUE(IsDirectory(top / L"y"));
    EXPECT_FALSE(IsDirectory(top / L"x"));
}

TEST(DownloadDirectory_Prepare, ARoot_KeepsItsBackslash) {
    std::wstring normalised;
    ASSERT_TRUE(PrepareSafeDirectory(L"C:\\", normalised));
    EXPECT_EQ(normalised, L"C:\\");
    EXPECT_EQ(CachePath(normalised, L"x.part"), L"C:\\x.part");
    EXPECT_EQ(CachePath(L"C:\\a", L"x.part"), L"C:\\a\\x.part");
}

TEST(DownloadDirectory_Prepare, PathsThatAreNoPlaceOnADrive_AreRefused) {
    std::wstring normalised;
    for (const wchar_t* path :
         {L"", L"C", L"C:", L"C:a", L"a\\b", L"\\a", L"/a", L".\\a", L"\\\\server\\share", L"\\\\?\\C:\\a",
          L"\\\\.\\C:\\a", L"CC:\\a", L"C:\\a:b", L"C::\\a", L"C:\\a\r", L"C:\\a\nb", L"1\\:"}) {
        EXPECT_FALSE(PrepareSafeDirectory(path, normalised)) << platform::EncodeUtf8(path);
    }
}

TEST(DownloadDirectory_Prepare, APathThatWindowsCannotHold_IsRefused) {
    std::wstring normalised;
    EXPECT_FALSE(PrepareSafeDirectory(L"C:\\" + std::wstring(32768, L'a'), normalised));
}

TEST(DownloadDirectory_Prepare, AFileInTheWay_IsRefused) {
    const TemporaryDirectory top;
    WriteWholeFile(top / L"file", "x");
    std::wstring normalised;
    EXPECT_FALSE(PrepareSafeDirectory(top / L"file", normalised));
    EXPECT_FALSE(PrepareSafeDirectory(top / L"file\\below", normalised));
    EXPECT_EQ(ReadWholeFile(top / L"file"), "x");
}

TEST(DownloadDirectory_Prepare, ADriveThatIsNotThere_IsRefused) {
    std::wstring normalised;
    EXPECT_FALSE(PrepareSafeDirectory(L"Q:\\a", normalised));
}

TEST(DownloadDirectory_Prepare, ADeviceNameAtTheEnd_IsRefused) {
    const TemporaryDirectory top;
    std::wstring normalised;
    EXPECT_FALSE(PrepareSafeDirectory(top / L"nul", normalised));
}

/// Makes a symbolic link to a directory with the means of the machine below Wine; false where there is none.
bool MakeDirectoryLink(const std::wstring& link, const std::wstring& target) {
    using UnixName = char*(CDECL*)(LPCWSTR);
    auto* resolve = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name"));
    if (!resolve) return false;
    const auto unixName = reinterpret_cast<UnixName>(resolve);
    char* linkName = unixName(link.c_str());
    char* targetName = unixName(target.c_str());
    if (!linkName || !targetName) return false;
    std::wstring command = L"ln -s " + platform::WidenAscii(targetName) + L' ' + platform::WidenAscii(linkName);
    HeapFree(GetProcessHeap(), 0, linkName);
    HeapFree(GetProcessHeap(), 0, targetName);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(L"Z:\\bin\\ln", command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        return false;
    const platform::KernelHandle thread(process.hThread);
    const platform::KernelHandle ended(process.hProcess);
    // The handle may not speak for a program that is none of Windows'; the link itself does.
    for (int i = 0; i < 1500 && GetFileAttributesW(link.c_str()) == INVALID_FILE_ATTRIBUTES; ++i) {
        WaitForSingleObject(GetCurrentThread(), 20);
    }
    return (GetFileAttributesW(link.c_str()) & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

TEST(DownloadDirectory_Prepare, ALinkOnTheWay_IsRefused) {
    const TemporaryDirectory top;
    ASSERT_TRUE(CreateDirectoryW((top / L"real").c_str(), nullptr));
    if (!MakeDirectoryLink(top / L"link", top / L"real")) GTEST_SKIP() << "no way to make a link to a directory here";
    std::wstring normalised;
    EXPECT_FALSE(PrepareSafeDirectory(top / L"link", normalised));
    EXPECT_FALSE(PrepareSafeDirectory(top / L"link\\below", normalised));
    EXPECT_FALSE(IsDirectory(top / L"real\\below"));
}

TEST(DownloadDirectory_LongPath, ThePrefixIsPutOnce) {
    EXPECT_EQ(ToDownloadLongPath(L"C:\\a"), L"\\\\?\\C:\\a");
    EXPECT_EQ(ToDownloadLongPath(L"\\\\?\\C:\\a"), L"\\\\?\\C:\\a");
    EXPECT_EQ(ToDownloadLongPath(L""), L"\\\\?\\");
}

TEST(DownloadDirectory_Regular, AFileWithOneName_IsRegular) {
    const TemporaryDirectory top;
    const platform::FileHandle file = OpenForWriting(top / L"file");
    EXPECT_TRUE(IsRegularFileHandle(file.Get()));
    EXPECT_FALSE(IsRegularFileHandle(INVALID_HANDLE_VALUE));
}

TEST(DownloadDirectory_Regular, AFileWithTwoNames_IsNot) {
    const TemporaryDirectory top;
    WriteWholeFile(top / L"file", "x");
    ASSERT_TRUE(CreateHardLinkW((top / L"second").c_str(), (top / L"file").c_str(), nullptr));
    const platform::FileHandle file = OpenForWriting(top / L"file");
    EXPECT_FALSE(IsRegularFileHandle(file.Get()));
}

TEST(DownloadDirectory_Regular, ADirectory_IsNot) {
    const TemporaryDirectory top;
    const platform::FileHandle directory(CreateFileW(top.Path().c_str(), FILE_READ_ATTRIBUTES, 7, nullptr,
                                                     OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    ASSERT_TRUE(static_cast<bool>(directory));
    EXPECT_FALSE(IsRegularFileHandle(directory.Get()));
}

TEST(DownloadDirectory_File, WriteAllAndReset) {
    const TemporaryDirectory top;
    const platform::FileHandle file = OpenForWriting(top / L"file");
    const std::string bytes(200000, 'x');
    ASSERT_TRUE(WriteAll(file.Get(), bytes.data(), bytes.size()));
    ASSERT_TRUE(WriteAll(file.Get(), bytes.data(), 0));
    std::uint64_t length = 0;
    ASSERT_TRUE(ReadLength(file.Get(), length));
    EXPECT_EQ(length, bytes.size());
    ASSERT_TRUE(ResetFile(file.Get()));
    ASSERT_TRUE(ReadLength(file.Get(), length));
    EXPECT_EQ(length, 0u);
    ASSERT_TRUE(WriteAll(file.Get(), "ab", 2));
    EXPECT_EQ(FileLength(top / L"file"), 2);
}

TEST(DownloadDirectory_File, AHandleThatMayNotWrite_IsRefused) {
    const TemporaryDirectory top;
    WriteWholeFile(top / L"file", "abc");
    const platform::FileHandle file(
        CreateFileW((top / L"file").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_FALSE(ResetFile(file.Get()));
    EXPECT_FALSE(WriteAll(file.Get(), "x", 1));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(FileLength(top / L"file"), 3);
}

TEST(DownloadDirectory_File, OffsetsBeyond32Bits_AreReached) {
    const TemporaryDirectory top;
    const platform::FileHandle file = OpenForWriting(top / L"file");
    ASSERT_TRUE(SeekTo(file.Get(), 0x80000000));
    ASSERT_TRUE(SetEndOfFile(file.Get()));
    std::uint64_t length = 0;
    ASSERT_TRUE(ReadLength(file.Get(), length));
    EXPECT_EQ(length, 0x80000000u);
    ASSERT_TRUE(ResetFile(file.Get()));
}

TEST(DownloadDirectory_Hash, OfAFile_IsOfTheWholeFromItsStart) {
    const TemporaryDirectory top;
    const platform::FileHandle file = OpenForWriting(top / L"file");
    ASSERT_TRUE(WriteAll(file.Get(), "abc", 3));
    EXPECT_EQ(HashFileOrBuffer(nullptr, 0, file.Get(), {}),
              L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(DownloadDirectory_Hash, OfAFileOverSeveralBlocks_IsOfTheSameBytesInMemory) {
    const TemporaryDirectory top;
    for (const std::size_t length : {65535u, 65536u, 65537u, 200000u}) {
        const platform::FileHandle file = OpenForWriting(top / L"file");
        std::string bytes(length, '\0');
        for (std::size_t i = 0; i < length; ++i)
            bytes[i] = static_cast<char>(i * 7 + i / 251);
        ASSERT_TRUE(ResetFile(file.Get()));
        ASSERT_TRUE(WriteAll(file.Get(), bytes.data(), bytes.size()));
        const std::wstring expected = HashFileOrBuffer(bytes.data(), bytes.size(), INVALID_HANDLE_VALUE, {});
        EXPECT_EQ(expected.size(), 64u);
        EXPECT_EQ(HashFileOrBuffer(nullptr, 0, file.Get(), {}), expected) << length;
    }
}

TEST(DownloadDirectory_Hash, OfABuffer) {
    EXPECT_EQ(HashFileOrBuffer("abc", 3, INVALID_HANDLE_VALUE, {}),
              L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(DownloadDirectory_Hash, ACancelBeforeAnyBlock_GivesNothing) {
    const TemporaryDirectory top;
    const platform::FileHandle file = OpenForWriting(top / L"file");
    ASSERT_TRUE(WriteAll(file.Get(), std::string(200000, 'x').data(), 200000));
    for (int polls = 0; polls < 4; ++polls) {
        int left = polls;
        Callbacks callbacks;
        callbacks.cancelled = [&left] { return left-- == 0; };
        EXPECT_EQ(HashFileOrBuffer(nullptr, 0, file.Get(), callbacks), L"") << polls;
    }
}

TEST(DownloadDirectory_Hash, AFileThatCannotBeRead_GivesNothing) {
    const TemporaryDirectory top;
    const platform::FileHandle file(
        CreateFileW((top / L"file").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(static_cast<bool>(file));
    EXPECT_EQ(HashFileOrBuffer(nullptr, 0, file.Get(), {}), L"");
}

}  // namespace
}  // namespace launcher_download
