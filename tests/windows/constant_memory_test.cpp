#include "tests/windows/transfer_fixture.h"

#include <psapi.h>

#include <algorithm>
#include <cstring>

#include "tests/support/package_fixture.h"
#include "tests/support/stand_in.h"
#include "update/files/file_hashing.h"
#include "update/packages/install.h"

// A payload may be 2 GiB: neither its transfer nor its digest may hold it, or a part that grows with it.

namespace launcher_download {
namespace {

constexpr std::size_t kMebibyte = 1u << 20;
constexpr std::size_t kPieceBytes = 65536;
constexpr std::size_t kMayGrowBytes = 6 * kMebibyte;  // thread stacks and the heap's own slack; far below a payload

/// The highest working set at the moments when it was looked at. The system's own peak would not do: it also knows what
/// other tests once held.
class HighWater {
  public:
    void Look() {
        PROCESS_MEMORY_COUNTERS counters{};
        counters.cb = sizeof(counters);
        EXPECT_TRUE(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)));
        highest_ = std::max<std::size_t>(highest_, counters.WorkingSetSize);
        ++looks_;
    }
    /// For callbacks that come very often.
    void LookNowAndThen() {
        if (++calls_ % 64 == 1) Look();
    }
    [[nodiscard]] std::size_t Bytes() const { return highest_; }
    [[nodiscard]] int Looks() const { return looks_; }

  private:
    std::size_t highest_ = 0;
    unsigned calls_ = 0;
    int looks_ = 0;
};

/// A body that nobody holds: each piece is made when its turn comes, and differs from the others.
class Body {
  public:
    explicit Body(std::size_t length) : pieces_(length / kPieceBytes) {}

    [[nodiscard]] const std::string& Piece(std::size_t number) {
        std::memcpy(piece_.data(), &number, sizeof(number));
        return piece_;
    }
    [[nodiscard]] std::size_t Pieces() const { return pieces_; }
    [[nodiscard]] std::wstring Digest() {
        platform::Sha256 digest;
        for (std::size_t number = 0; number < pieces_; ++number)
            EXPECT_TRUE(digest.Update(Piece(number).data(), kPieceBytes));
        std::wstring hex;
        EXPECT_TRUE(digest.Finish(hex));
        return hex;
    }

  private:
    std::size_t pieces_;
    std::string piece_ = std::string(kPieceBytes, 'x');
};

using ConstantMemory = TransferTest;

/// What a transfer of that many bytes takes at its highest.
HighWater WatchTransfer(std::size_t length, const std::wstring& cache) {
    LoopbackServer server([length](Exchange& exchange) {
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n");
        Body body(length);
        for (std::size_t number = 0; number < body.Pieces() && exchange.Send(body.Piece(number)); ++number) {
        }
    });
    Request request;
    request.url = server.Url();
    request.sha256 = Body(length).Digest();
    request.cacheDirectory = cache;
    request.size = length;
    HighWater highWater;
    Callbacks callbacks;
    callbacks.cancelled = [&highWater] { return highWater.LookNowAndThen(), false; };
    callbacks.progress = [&highWater](const Progress&) { highWater.Look(); };
    const Result result = DownloadAllowingLoopback(request, callbacks);
    EXPECT_TRUE(result.success) << platform::EncodeUtf8(result.reason);
    return highWater;
}

TEST_F(ConstantMemory, ATransferOf96Mebibytes_NeedsNoMoreThanOneOfOne) {
    const HighWater little = WatchTransfer(kMebibyte, top_ / L"cache");
    const HighWater much = WatchTransfer(96 * kMebibyte, top_ / L"cache");
    EXPECT_GT(little.Bytes(), 0u);
    EXPECT_GT(much.Looks(), 50);
    EXPECT_LE(much.Bytes(), little.Bytes() + kMayGrowBytes);
}

TEST_F(ConstantMemory, ADigestOf256Mebibytes_NeedsNoMoreThanOneOfOne) {
    const auto watch = [this](std::size_t length) {
        const std::wstring path = top_ / L"sparse";
        const platform::FileHandle file(
            CreateFileW(path.c_str(), GENERIC_WRITE, 7, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        LARGE_INTEGER end{};
        end.QuadPart = static_cast<LONGLONG>(length);
        EXPECT_TRUE(SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN) && SetEndOfFile(file.Get()));
        HighWater highWater;
        std::uint64_t hashed = 0;
        std::wstring hex;
        EXPECT_TRUE(launcher_update::Sha256OfFile(path, hex, [&](std::uint64_t done) {
            highWater.LookNowAndThen();
            hashed = done;
        }));
        EXPECT_EQ(hashed, length);
        return highWater;
    };
    const HighWater little = watch(kMebibyte);
    const HighWater much = watch(256 * kMebibyte);
    EXPECT_GT(little.Bytes(), 0u);
    EXPECT_GT(much.Looks(), 50);
    EXPECT_LE(much.Bytes(), little.Bytes() + kMayGrowBytes);
}

/// What installing a package of that many files of 2 MiB takes at its highest, looked at whenever bytes are hashed:
/// while entries are unpacked, as files are written, and in the finished folder.
HighWater WatchInstallation(std::size_t files, const std::wstring& folder) {
    launcher_update::PackageDescriptor package;
    {
        test_support::PackageContent content;
        for (std::size_t number = 0; number < files; ++number)
            content[L"file" + std::to_wstring(number)] =
                std::string(2 * kMebibyte, static_cast<char>('a' + number % 26));
        package = test_support::DescribePackage(L"big", L"1.0.0.0", content);
        test_support::WriteWholeFile(folder + L".zip", test_support::BuildArchive(content));
    }
    HighWater highWater;
    using OnHash = test_support::StandIn<"BCryptHashData", decltype(BCryptHashData)>;
    const OnHash look([&](auto... arguments) {
        highWater.LookNowAndThen();
        return OnHash::Original(arguments...);
    });
    std::wstring installed;
    std::wstring error;
    EXPECT_TRUE(InstallPackageInactive(folder + L".zip", package, folder, installed, error))
        << platform::EncodeUtf8(error);
    return highWater;
}

TEST_F(ConstantMemory, APackageOf96Mebibytes_NeedsNoMoreThanItsLargestFile) {
    const HighWater little = WatchInstallation(1, top_ / L"little");
    const HighWater much = WatchInstallation(48, top_ / L"much");
    EXPECT_GT(little.Bytes(), 0u);
    EXPECT_GT(much.Looks(), 30);
    EXPECT_LE(much.Bytes(), little.Bytes() + kMayGrowBytes);
}

}  // namespace
}  // namespace launcher_download
