#include "download/resume_format.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>

#include "download/request.h"

namespace launcher_download {
namespace {

using namespace std::string_literals;

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

const std::string kMagicLine = "vpr-resume-1\n";
const std::string kHashLine = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef\n";
const std::wstring kHash = L"0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
const std::string kWhole = kMagicLine + "1234567\n" + kHashLine + "\"v1-x\"\n";
const ResumeState kState{kHash, L"\"v1-x\"", 1234567};
const ResumeState kNone;

std::string WithSize(const std::string& size) {
    return kMagicLine + size + '\n' + kHashLine + "\"v1-x\"\n";
}

std::string WithHash(const std::string& hash) {
    return kMagicLine + "1234567\n" + hash + "\n\"v1-x\"\n";
}

std::string WithTag(const std::string& tag) {
    return kMagicLine + "1234567\n" + kHashLine + tag + '\n';
}

std::string WithLineEnds(const std::string& lineEnd) {
    std::string bytes;
    for (const char unit : kWhole)
        bytes += unit == '\n' ? lineEnd : std::string(1, unit);
    return bytes;
}

void ExpectNoState(const std::string& bytes) {
    EXPECT_EQ(DecodeResumeState(bytes), kNone) << testing::PrintToString(bytes);
}

/// What the bytes say, and that the state says it again in the same bytes.
void ExpectRoundTrip(const ResumeState& state) {
    const std::string bytes = EncodeResumeState(state);
    ASSERT_FALSE(bytes.empty());
    EXPECT_EQ(DecodeResumeState(bytes), state) << bytes;
}

TEST(ResumeFormat_Encode, WritesFourLines) {
    EXPECT_EQ(EncodeResumeState(kState),
              "vpr-resume-1\n"
              "1234567\n"
              "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef\n"
              "\"v1-x\"\n");
}

TEST(ResumeFormat_Encode, ABadHash_GivesNothing) {
    for (const std::wstring& hash : {std::wstring(), kHash.substr(1), kHash + L'0', L'A' + kHash.substr(1),
                                     L'g' + kHash.substr(1), kHash.substr(1) + L'\n', kHash.substr(1) + L'\0',
                                     kHash.substr(1) + wchar_t{0xFF10}, kHash.substr(1) + wchar_t{0x0130}}) {
        EXPECT_EQ(EncodeResumeState({hash, kState.etag, kState.size}), "") << hash;
    }
}

TEST(ResumeFormat_Encode, ABadTag_GivesNothing) {
    for (const std::wstring& tag :
         {std::wstring(), std::wstring(L"\""), std::wstring(L"v1"), std::wstring(L"W/\"v1\""), std::wstring(L"\"v 1\""),
          std::wstring(L"\"v\n1\""), std::wstring(L"\"v\r\n1\""), std::wstring(L"\"v\"1\""), std::wstring(L"\"v1\"\n"),
          L"\"" + std::wstring(1, L'\0') + L"\"", L"\"" + std::wstring(1, wchar_t{0xE4}) + L"\"",
          L"\"" + std::wstring(1, wchar_t{0x0121}) + L"\"", L'"' + std::wstring(255, L'x') + L'"'}) {
        EXPECT_EQ(EncodeResumeState({kHash, tag, kState.size}), "") << tag;
    }
}

TEST(ResumeFormat_Encode, AnEmptyState_GivesNothing) {
    EXPECT_EQ(EncodeResumeState(kNone), "");
}

TEST(ResumeFormat_RoundTrip, EveryKindOfState_ComesBack) {
    for (const std::wstring& tag : {std::wstring(L"\"\""), std::wstring(L"\"!\""), std::wstring(L"\"~#W/'\\\""),
                                    std::wstring(L"\"vpr-resume-1\""), L'"' + std::wstring(254, L'x') + L'"'}) {
        for (const std::uint64_t size :
             {std::uint64_t{0}, std::uint64_t{1}, kMaxPayloadBytes, kLargest - 1, kLargest}) {
            ExpectRoundTrip({kHash, tag, size});
        }
    }
}

TEST(ResumeFormat_RoundTrip, EveryByteThatATagMayHold_ComesBack) {
    for (wchar_t unit = 0x21; unit <= 0x7E; ++unit) {
        if (unit == L'"') continue;
        ExpectRoundTrip({kHash, std::wstring(L"\"") + unit + L'"', 7});
    }
}

TEST(ResumeFormat_Size, TheLargestFileOfAPayload_Has346Bytes) {
    const std::wstring longestTag = L'"' + std::wstring(254, L'x') + L'"';
    EXPECT_EQ(EncodeResumeState({kHash, longestTag, kMaxPayloadBytes}).size(), 346u);
    EXPECT_EQ(EncodeResumeState({kHash, longestTag, kLargest}).size(), 356u) << "ten digits more than any payload has";
    EXPECT_LE(356u, kMaxResumeFileBytes);
}

TEST(ResumeFormat_Decode, AWholeFile_IsRead) {
    EXPECT_EQ(DecodeResumeState(kWhole), kState);
    EXPECT_EQ(DecodeResumeState(WithSize("0")), (ResumeState{kHash, L"\"v1-x\"", 0}));
    EXPECT_EQ(DecodeResumeState(WithSize("18446744073709551615")), (ResumeState{kHash, L"\"v1-x\"", kLargest}));
    EXPECT_EQ(DecodeResumeState(WithTag("\"\"")), (ResumeState{kHash, L"\"\"", 1234567}));
}

TEST(ResumeFormat_Decode, LeadingZerosOfTheSize_AreDigitsLikeOthers) {
    EXPECT_EQ(DecodeResumeState(WithSize("0001234567")), kState);
    EXPECT_EQ(DecodeResumeState(WithSize("00000000000000000000000018446744073709551615")).size, kLargest);
}

TEST(ResumeFormat_Decode, NothingAtAll_IsNoState) {
    ExpectNoState("");
    ExpectNoState("\n");
    ExpectNoState("\n\n\n\n");
    EXPECT_EQ(DecodeResumeState(std::string_view()), kNone);
}

TEST(ResumeFormat_Torn, AFileThatLacksOnlyItsLastLineEnd_IsWhole) {
    EXPECT_EQ(DecodeResumeState(kWhole.substr(0, kWhole.size() - 1)), kState);
}

TEST(ResumeFormat_Torn, EveryShorterFile_IsNoState) {
    for (const std::wstring& tag : {std::wstring(L"\"v1-x\""), std::wstring(L"\"\""), std::wstring(L"\"''\"")}) {
        const std::string whole = EncodeResumeState({kHash, tag, 1234567});
        ASSERT_GT(whole.size(), 2u);
        for (std::size_t length = 0; length < whole.size() - 1; ++length) {
            ExpectNoState(whole.substr(0, length));
        }
    }
}

TEST(ResumeFormat_Torn, EveryMissingFront_IsNoState) {
    for (std::size_t start = 1; start <= kWhole.size(); ++start) {
        ExpectNoState(kWhole.substr(start));
    }
}

TEST(ResumeFormat_Torn, EveryMissingByte_IsNoStateOrWhatIsLeft) {
    for (std::size_t place = 0; place < kWhole.size() - 1; ++place) {
        const std::string bytes = std::string(kWhole).erase(place, 1);
        const ResumeState state = DecodeResumeState(bytes);
        if (state == kNone) continue;
        EXPECT_NE(state, kState) << place;
        EXPECT_EQ(EncodeResumeState(state), bytes) << place;
    }
}

/// A changed byte must be refused, or be told as exactly what it is. Leading zeros are the one freedom that the format
/// has, so a changed first digit of the size is judged in `AFirstDigitTurnedIntoZero_IsANumberStill`.
void ExpectEveryFlipToBeHonest(const ResumeState& original) {
    const std::string whole = EncodeResumeState(original);
    ASSERT_FALSE(whole.empty());
    const std::size_t firstDigit = kMagicLine.size();
    const bool oneDigit = whole[firstDigit + 1] == '\n';
    std::size_t accepted = 0;
    for (std::size_t place = 0; place < whole.size(); ++place) {
        for (int value = 0; value < 256; ++value) {
            std::string bytes = whole;
            bytes[place] = static_cast<char>(value);
            if (bytes == whole || (place == firstDigit && value == '0' && !oneDigit)) continue;
            const ResumeState state = DecodeResumeState(bytes);
            if (state == kNone) continue;
            ++accepted;
            EXPECT_NE(state, original) << place << ' ' << value;
            EXPECT_EQ(EncodeResumeState(state), bytes) << place << ' ' << value;
        }
    }
    // What a flip may honestly spell: other digits, other hexadecimal digits, other characters of a tag.
    const std::string digits = std::to_string(original.size);
    const std::size_t spellings = digits.size() * 9 - (oneDigit ? 0 : 1) + 64 * 15 + (original.etag.size() - 2) * 92;
    EXPECT_EQ(accepted, spellings);
}

TEST(ResumeFormat_Flipped, EveryByteToEveryValue_IsRefusedOrToldAsItIs) {
    ExpectEveryFlipToBeHonest(kState);
    ExpectEveryFlipToBeHonest({kHash, L"\"\"", 7});
    ExpectEveryFlipToBeHonest({kHash, L"\"x\"", 0});
    ExpectEveryFlipToBeHonest({std::wstring(64, L'0'), L"\"0\"", kMaxPayloadBytes});
}

TEST(ResumeFormat_Flipped, AFirstDigitTurnedIntoZero_IsANumberStill) {
    EXPECT_EQ(DecodeResumeState(WithSize("0234567")), (ResumeState{kHash, L"\"v1-x\"", 234567}));
}

TEST(ResumeFormat_Flipped, EveryByteOfTheLargestSize_OverflowsOrShrinks) {
    const std::string digits = "18446744073709551615";
    for (std::size_t place = 0; place < digits.size(); ++place) {
        for (char digit = '1'; digit <= '9'; ++digit) {
            std::string size = digits;
            size[place] = digit;
            const ResumeState state = DecodeResumeState(WithSize(size));
            if (size > digits) {
                EXPECT_EQ(state, kNone) << size;
            } else {
                EXPECT_EQ(std::to_string(state.size), size);
            }
        }
    }
}

TEST(ResumeFormat_Lines, AnyOtherLineEnd_IsNoState) {
    ExpectNoState(WithLineEnds("\r\n"));
    ExpectNoState(WithLineEnds("\r"));
    ExpectNoState(WithLineEnds("\n\r"));
    ExpectNoState(WithLineEnds("\n\n"));
    ExpectNoState(WithLineEnds(" \n"));
    ExpectNoState(WithLineEnds("\v"));
    ExpectNoState(WithLineEnds("\0"s));
    ExpectNoState(WithLineEnds(""));
    ExpectNoState(kWhole.substr(0, kWhole.size() - 1) + "\r\n");
}

TEST(ResumeFormat_Lines, AnythingBehindTheFourth_IsNoState) {
    for (const std::string& extra :
         {"\n"s, "\n\n"s, " "s, "\r"s, "\r\n"s, "x"s, "x\n"s, "\"v1-x\"\n"s, "\0"s, kWhole}) {
        ExpectNoState(kWhole + extra);
    }
}

TEST(ResumeFormat_Lines, AnythingBeforeTheFirst_IsNoState) {
    for (const std::string& extra : {"\n"s, " "s, "\r\n"s, "\xEF\xBB\xBF"s, "\xFF\xFE"s, "\0"s, "x"s, kMagicLine}) {
        ExpectNoState(extra + kWhole);
    }
}

TEST(ResumeFormat_Lines, InAnotherOrder_AreNoState) {
    ExpectNoState("1234567\n" + kMagicLine + kHashLine + "\"v1-x\"\n");
    ExpectNoState(kMagicLine + kHashLine + "1234567\n\"v1-x\"\n");
    ExpectNoState(kMagicLine + "1234567\n\"v1-x\"\n" + kHashLine);
    ExpectNoState("\"v1-x\"\n" + kHashLine + "1234567\n" + kMagicLine);
}

TEST(ResumeFormat_Lines, OneEmpty_IsNoState) {
    ExpectNoState("\n1234567\n" + kHashLine + "\"v1-x\"\n");
    ExpectNoState(WithSize(""));
    ExpectNoState(WithHash(""));
    ExpectNoState(WithTag(""));
}

TEST(ResumeFormat_Magic, OfAnotherRelease_IsNoState) {
    for (const char* magic : {"vpr-resume-2", "vpr-resume-11", "vpr-resume-", "VPR-RESUME-1", "vpr-resume-1 ",
                              " vpr-resume-1", "vpr_resume_1", "pr-resume-1"}) {
        ExpectNoState(std::string(magic) + "\n1234567\n" + kHashLine + "\"v1-x\"\n");
    }
}

TEST(ResumeFormat_Size, WhatIsNotPlainDigits_IsNoState) {
    for (const char* size : {"+1234567", "-1234567", "-0", " 1234567", "1234567 ", "1 234", "1,234", "0x10", "ff",
                             "1e6", "1.0", "18446744073709551616", "18446744073709551625", "28446744073709551615",
                             "99999999999999999999", "184467440737095516150"}) {
        ExpectNoState(WithSize(size));
    }
    ExpectNoState(WithSize("1234567\0"s));
    ExpectNoState(
        WithSize("123\0"
                 "4567"s));
}

TEST(ResumeFormat_Hash, WhatIsNotLowerHexOf64_IsNoState) {
    const std::string hash = kHashLine.substr(0, 64);
    ExpectNoState(WithHash(hash.substr(1)));
    ExpectNoState(WithHash(hash + '0'));
    ExpectNoState(WithHash("0123456789ABCDEF" + hash.substr(16)));
    ExpectNoState(WithHash(std::string(64, 'A')));
    ExpectNoState(WithHash(std::string(64, 'g')));
    ExpectNoState(WithHash(' ' + hash.substr(1)));
    ExpectNoState(WithHash(hash + ' '));
    ExpectNoState(WithHash(hash + '\0'));
    ExpectNoState(WithHash(hash.substr(1) + '\0'));
}

TEST(ResumeFormat_Tag, WhatIsNotStrong_IsNoState) {
    for (const std::string& tag : {"W/\"v1\""s, "w/\"v1\""s, "v1"s, "\""s, "\"v1"s, "v1\""s, "\"v 1\""s, "\"v\t1\""s,
                                   "\"v\"1\""s, " \"v1\""s, "\"v1\" "s,
                                   "\"v\0"
                                   "1\""s,
                                   "\"v\x7F\""s, "\"\xC3\xA4\""s, "\"\xE4\""s, "\"v1\", \"v2\""s}) {
        ExpectNoState(WithTag(tag));
    }
    EXPECT_EQ(DecodeResumeState(WithTag('"' + std::string(254, 'x') + '"')).etag.size(), 256u);
    ExpectNoState(WithTag('"' + std::string(255, 'x') + '"'));
}

TEST(ResumeFormat_Limit, AFileOfMoreThan1024Bytes_IsNoState) {
    // Leading zeros are the only way in which four good lines can become so long.
    const std::string zeros(kMaxResumeFileBytes - kWhole.size(), '0');
    const std::string largest = WithSize(zeros + "1234567");
    ASSERT_EQ(largest.size(), 1024u);
    EXPECT_EQ(DecodeResumeState(largest), kState);
    const std::string larger = WithSize(zeros + "01234567");
    ASSERT_EQ(larger.size(), 1025u);
    ExpectNoState(larger);
    EXPECT_EQ(DecodeResumeState(larger.substr(0, 1024)), kState) << "as a file of that length";
    ExpectNoState(std::string(100000, '\n'));
}

TEST(ResumeFormat_Limit, NulsInPlaceOfAFile_AreNoState) {
    for (std::size_t length = 0; length <= kMaxResumeFileBytes + 1; ++length) {
        EXPECT_EQ(DecodeResumeState(std::string(length, '\0')), kNone) << length;
    }
}

TEST(ResumeFormat_Limit, EveryTailTurnedIntoNuls_IsNoState) {
    for (std::size_t length = 0; length < kWhole.size(); ++length) {
        ExpectNoState(kWhole.substr(0, length) + std::string(kWhole.size() - length, '\0'));
    }
}

}  // namespace
}  // namespace launcher_download
