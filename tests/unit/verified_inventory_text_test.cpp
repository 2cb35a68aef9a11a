#include "update/installed/verified_inventory_text.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace launcher_update {
namespace {

const std::string kManifest = "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";
const std::string kInventory = "fedcba9876543210fedcba9876543210fedcba9876543210fedcba9876543210";

/// The five lines of a sound record; a test breaks one of them.
struct Lines {
    std::string head = "VPR_VERIFIED_INVENTORY_V1";
    std::string manifest = "manifest=" + kManifest;
    std::string layout = "layout=activated";
    std::string verified = "verified=9000000001";
    std::string inventory = "inventory=" + kInventory;

    std::string Text() const {
        return head + "\n" + manifest + "\n" + layout + "\n" + verified + "\n" + inventory + "\n";
    }
};

struct Record {
    bool accepted = false;
    std::wstring manifestDigest;
    std::wstring layout;
    std::int64_t time = -1;
    std::wstring inventoryDigest;
};

Record Parse(std::string_view bytes) {
    Record record;
    record.accepted =
        ParseVerifiedInventory(bytes, record.manifestDigest, record.layout, record.time, record.inventoryDigest);
    return record;
}

TEST(VerifiedInventoryRecord, HasFiveLines) {
    const std::wstring text = RenderVerifiedInventory(platform::WidenAscii(kManifest), InstalledLayout::portable,
                                                      1700000000, platform::WidenAscii(kInventory));
    EXPECT_EQ(platform::EncodeUtf8(text),
              "VPR_VERIFIED_INVENTORY_V1\n"
              "manifest=00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff\n"
              "layout=portable\n"
              "verified=1700000000\n"
              "inventory=fedcba9876543210fedcba9876543210fedcba9876543210fedcba9876543210\n");
}

TEST(VerifiedInventoryRecord, IsReadBack) {
    const Record record = Parse(Lines().Text());
    ASSERT_TRUE(record.accepted);
    EXPECT_EQ(record.manifestDigest, platform::WidenAscii(kManifest));
    EXPECT_EQ(record.layout, L"activated");
    EXPECT_EQ(record.time, 9000000001);
    EXPECT_EQ(record.inventoryDigest, platform::WidenAscii(kInventory));
}

TEST(VerifiedInventoryRecord, CanBeOfEachLayout) {
    for (const char* layout : {"files", "activated", "portable"}) {
        Lines lines;
        lines.layout = std::string("layout=") + layout;
        const Record record = Parse(lines.Text());
        EXPECT_TRUE(record.accepted) << layout;
        EXPECT_EQ(record.layout, platform::WidenAscii(layout));
    }
}

/// What one line may be instead, and that the record is then refused.
void ExpectRefused(std::string Lines::*line, const std::string& instead) {
    Lines lines;
    lines.*line = instead;
    EXPECT_FALSE(Parse(lines.Text()).accepted) << instead;
}

TEST(VerifiedInventoryRecord, WithAnotherHead_IsRefused) {
    for (const char* head : {"", "VPR_VERIFIED_INVENTORY_V2", "vpr_verified_inventory_v1", "VPR_VERIFIED_INVENTORY_V1 ",
                             "VPR_VERIFIED_INVENTORY_V1\r", " VPR_VERIFIED_INVENTORY_V1", "VPR_VERIFIED_INVENTORY_V",
                             "\xEF\xBB\xBFVPR_VERIFIED_INVENTORY_V1", "\nVPR_VERIFIED_INVENTORY_V1"}) {
        ExpectRefused(&Lines::head, head);
    }
}

TEST(VerifiedInventoryRecord, WithAnotherDigest_IsRefused) {
    struct Row {
        std::string Lines::*line;
        std::string name;
        std::string digest;
    };
    for (const Row& row :
         {Row{&Lines::manifest, "manifest=", kManifest}, {&Lines::inventory, "inventory=", kInventory}}) {
        const std::string& digest = row.digest;
        std::string upper = digest;
        upper[digest.find('a')] = 'A';
        std::string letter = digest;
        letter[63] = 'g';
        std::string mark = digest;
        mark[0] = '/';
        std::string colon = digest;
        colon[5] = ':';
        std::string quote = digest;
        quote[5] = '`';
        for (const std::string& broken : {upper, letter, mark, colon, quote, digest.substr(1), digest + "0",
                                          digest + " ", " " + digest, digest + "\r", std::string()}) {
            ExpectRefused(row.line, row.name + broken);
        }
        ExpectRefused(row.line, digest);
        ExpectRefused(row.line, "digest=" + digest);
        ExpectRefused(row.line, " " + row.name + digest);
        ExpectRefused(row.line, "\n" + row.name + digest);
    }
    ExpectRefused(&Lines::manifest, "Manifest=" + kManifest);
    ExpectRefused(&Lines::inventory, "Inventory=" + kInventory);
}

TEST(VerifiedInventoryRecord, OfNoKnownLayout_IsRefused) {
    for (const char* layout : {"layout=", "layout=Activated", "layout=other", "layout=activated ", "layout= activated",
                               "layout=activated\r", "layout=1", "Layout=activated", "activated", "layout=\xE6\x97\xA5",
                               "layout=activated\nlayout=activated", ""}) {
        ExpectRefused(&Lines::layout, layout);
    }
}

TEST(VerifiedInventoryRecord, WithoutAWholeNumberAsTime_IsRefused) {
    for (const char* time : {"", "-1", "+1", " 1", "1 ", "1\r", "0x10", "1.0", "1e9", "12a", "a12",
                             "9223372036854775808", "99999999999999999999999999"}) {
        ExpectRefused(&Lines::verified, std::string("verified=") + time);
    }
    ExpectRefused(&Lines::verified, "Verified=1");
    ExpectRefused(&Lines::verified, "1");
}

TEST(VerifiedInventoryRecord, TakesEveryTimeThatFits) {
    struct Row {
        const char* text;
        std::int64_t time;
    };
    for (const Row& row :
         {Row{"0", 0}, Row{"7", 7}, Row{"9223372036854775807", std::numeric_limits<std::int64_t>::max()}}) {
        Lines lines;
        lines.verified = std::string("verified=") + row.text;
        const Record record = Parse(lines.Text());
        EXPECT_TRUE(record.accepted) << row.text;
        EXPECT_EQ(record.time, row.time);
    }
}

TEST(VerifiedInventoryRecord, WithMoreThanFiveLines_IsRefused) {
    const std::string text = Lines().Text();
    for (const char* more : {"\n", "x", "x\n", "sixth=1\n", " ", "\r\n"})
        EXPECT_FALSE(Parse(text + more).accepted) << more;
    EXPECT_FALSE(Parse(text + text).accepted);
}

TEST(VerifiedInventoryRecord, WithLinesInAnotherOrder_IsRefused) {
    Lines lines;
    std::swap(lines.layout, lines.verified);
    EXPECT_FALSE(Parse(lines.Text()).accepted);
    lines = {};
    std::swap(lines.manifest, lines.layout);
    EXPECT_FALSE(Parse(lines.Text()).accepted);
    lines = {};
    std::swap(lines.verified, lines.inventory);
    EXPECT_FALSE(Parse(lines.Text()).accepted);
}

TEST(VerifiedInventoryRecord, CutAnywhere_IsRefused) {
    const std::string text = Lines().Text();
    for (std::size_t length = 0; length < text.size(); ++length)
        EXPECT_FALSE(Parse(text.substr(0, length)).accepted) << length;
}

/// A changed digit may give another sound record, which then says just what the bytes say; nothing else is accepted.
TEST(VerifiedInventoryRecord, WithAnyBitFlipped_IsRefusedOrReadAsItStands) {
    const std::string text = Lines().Text();
    std::size_t refused = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        for (const int bit : {0, 1, 2, 3, 4, 5, 6, 7}) {
            std::string flipped = text;
            flipped[at] = static_cast<char>(static_cast<unsigned char>(flipped[at]) ^ (1u << bit));
            const Record record = Parse(flipped);
            if (!record.accepted) {
                ++refused;
                continue;
            }
            const InstalledLayout layout = ParseLayoutText(record.layout).value_or(InstalledLayout::files);
            EXPECT_EQ(platform::EncodeUtf8(
                          RenderVerifiedInventory(record.manifestDigest, layout, record.time, record.inventoryDigest)),
                      flipped)
                << at;
        }
    }
    EXPECT_GT(refused, text.size() * 4);
}

TEST(VerifiedInventoryRecord, CountsForLessThanADay) {
    struct Row {
        std::int64_t verified;
        std::int64_t now;
        bool counts;
    };
    constexpr std::int64_t kNow = 1700000000;
    for (const Row& row : {Row{kNow, kNow, true}, Row{kNow - 86399, kNow, true}, Row{kNow - 86400, kNow, false},
                           Row{kNow + 1, kNow, false}, Row{0, 0, true}, Row{0, -1, false}, Row{0, 86399, true},
                           Row{0, 86400, false}, Row{std::numeric_limits<std::int64_t>::max(), kNow, false},
                           Row{0, std::numeric_limits<std::int64_t>::max(), false}}) {
        EXPECT_EQ(VerificationIsRecent(row.verified, row.now), row.counts) << row.verified << " at " << row.now;
    }
}

TEST(VerifiedInventoryRecord, HasItsLimit) {
    EXPECT_EQ(kMaxVerifiedInventoryBytes, 1024u);
}

TEST(FileIdentityText, HasSixLines) {
    FileIdentity identity;
    identity.lastWriteTime = 133000000000000001;
    identity.changeTime = 133000000000000002;
    identity.volumeSerialNumber = 1509949440;
    identity.fileId = {0x00, 0x01, 0x0f, 0x10, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef, 0xf0, 0xff, 0x7f, 0x80, 0x0a};
    std::wstring text = L"files\n";
    AppendFileIdentity(text, L"app\\\u65e5.txt", 42, identity);
    EXPECT_EQ(text,
              L"files\napp\\\u65e5.txt\n42\n133000000000000001\n133000000000000002\n1509949440\n"
              L"00010f1023456789abcdeff0ff7f800a\n");
}

TEST(FileIdentityText, HoldsEveryNumber) {
    FileIdentity identity;
    identity.lastWriteTime = std::numeric_limits<std::int64_t>::min();
    identity.changeTime = -1;
    identity.volumeSerialNumber = std::numeric_limits<std::uint64_t>::max();
    std::wstring text;
    AppendFileIdentity(text, L"k", std::numeric_limits<std::uint64_t>::max(), identity);
    EXPECT_EQ(text,
              L"k\n18446744073709551615\n-9223372036854775808\n-1\n18446744073709551615\n"
              L"00000000000000000000000000000000\n");
}

}  // namespace
}  // namespace launcher_update
