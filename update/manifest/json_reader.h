#pragma once

/// Reads JSON (RFC 8259) by key, straight from the text. No tree is built and nothing is validated as a whole.
///
/// What is not asked for is not judged: text that no general parser would take can read well, so long as the keys asked
/// for are found. The safety of each format rests on the rules of its fields. These acceptance rules are part of every
/// format that is read here; a stricter reader would refuse files that older and newer releases agree on.
///
/// A document is one UTF-16 text. The text of one object, copied out of an array, starts with its `{`, ends with its
/// matching `}` and is read with the same functions, so its own keys are "top level" again.
///
/// Every function is pure over its arguments; any thread. A function that returns a flag reports a failure by that flag
/// alone: its outputs then hold nothing that may be used. An output must not be the text that is read. Every function
/// takes time linear in the text it is given, whatever the text holds.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"

namespace launcher_update {

/// The position that stands for "not found". A position is the index of a UTF-16 unit.
inline constexpr std::uint64_t kNotFound = ~std::uint64_t{0};

/// Decodes a whole file. A leading byte order mark (EF BB BF) is skipped and never required. False for invalid UTF-8
/// and for a file that is empty or holds the mark alone.
[[nodiscard]] bool DecodeUtf8Document(std::string_view bytes, std::wstring& text);

using platform::EncodeUtf8;

/// The first value whose key, unescaped, equals `key` and stands at object depth 1 and array depth 0. Later duplicates
/// are never seen. False, with `position` at `kNotFound`, if there is none, if nothing but blanks follows the colon, or
/// if a string that cannot be read stands anywhere before the key.
[[nodiscard]] bool FindTopLevelValue(std::wstring_view text, std::wstring_view key, std::uint64_t& position);

/// Decodes the string whose opening quote is at `position`; `next` is just behind its closing quote. Raw control
/// characters and the escape of U+0000 are kept; an escaped surrogate outside a pair is refused.
[[nodiscard]] bool ParseJsonStringAt(std::wstring_view text, std::uint64_t position, std::wstring& value,
                                     std::uint64_t& next);

/// The string under `key`. False if the key is missing or its value is no readable string.
[[nodiscard]] bool ReadJsonString(std::wstring_view text, std::wstring_view key, std::wstring& value);

/// The boolean literal under `key`.
[[nodiscard]] bool ReadJsonBool(std::wstring_view text, std::wstring_view key, bool& value);

/// The number under `key`: decimal digits alone, followed by `,`, `}`, `]` or the end. A number beyond 64 bits reads as
/// the largest one, for the range of the field to refuse.
[[nodiscard]] bool ReadJsonUnsigned(std::wstring_view text, std::wstring_view key, std::uint64_t& value);

/// The number under `key` as `ConvertUnsigned` takes it; false only if it takes nothing. A sign counts and whatever
/// follows the digits is ignored: 1.9 reads 1. Only formats that say so are read this way.
[[nodiscard]] bool ReadJsonUnsignedLoose(std::wstring_view text, std::wstring_view key, std::uint64_t& value);

/// What `wcstoull` gives for base 10 in the "C" locale (C17, 7.29.4.1.2), on every platform alike: leading blanks, one
/// sign, digits; too large a number gives the largest value, and a minus sign before one that fits negates it modulo
/// 2^64. `next` is behind the last digit, or equal to `position`, with 0 as the result, if there is no digit.
[[nodiscard]] std::uint64_t ConvertUnsigned(std::wstring_view text, std::uint64_t position, std::uint64_t& next);

/// The objects of the array under `key`. What stands between two objects is passed over without being judged.
[[nodiscard]] bool ExtractObjectArrayByKey(std::wstring_view text, std::wstring_view key,
                                           std::vector<std::wstring>& objects);

/// The objects of the array at `position`. Only blanks and commas, in any number, may stand between them.
[[nodiscard]] bool ExtractObjectArrayAt(std::wstring_view text, std::uint64_t position,
                                        std::vector<std::wstring>& objects);

/// The object whose `{` is at `position`.
[[nodiscard]] bool ExtractObjectAt(std::wstring_view text, std::uint64_t position, std::wstring& object);

/// The strings of the array at `position`. A comma behind the last one is allowed.
[[nodiscard]] bool ParseStringArrayAt(std::wstring_view text, std::uint64_t position,
                                      std::vector<std::wstring>& values);

/// `text` for the inside of a quoted template: tab, line feed, carriage return, `"` and `\` become two-character
/// escapes, all else stays as it stands.
[[nodiscard]] std::wstring EscapeJsonText(std::wstring_view text);

/// `text` as a whole JSON string, quotes included, with every unit below 0x20 written as a `\u` escape.
[[nodiscard]] std::wstring QuoteJsonText(std::wstring_view text);

}  // namespace launcher_update
