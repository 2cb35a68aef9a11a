#pragma once

/// Grammar of the few header values that the engine believes. Pure; any thread.

#include <cstdint>
#include <optional>
#include <string_view>

namespace launcher_download {

/// Exactly 64 characters, each 0-9 or a-f. Upper case is refused: the text names a file.
[[nodiscard]] bool IsLowerHexSha256(std::wstring_view text);

/// A plain decimal: at least one character, digits only, no overflow of 64 bits. Nothing is trimmed.
/// This is also the whole grammar of a Content-Length (RFC 9110, section 8.6).
[[nodiscard]] std::optional<std::uint64_t> ParseDecimal(std::wstring_view text);

/// A strong entity tag (RFC 9110, section 8.8.3) of 2 to 256 characters with its double quotes, and between them only
/// 0x21 to 0x7E without a double quote. Nothing between them is allowed. The tag is later sent back in a header and
/// written to a file of lines, so blanks, CR, LF and everything beyond ASCII are refused.
[[nodiscard]] bool IsStrongEtag(std::wstring_view text);

/// True only if `header` is `bytes <offset>-<size - 1>/<size>` (RFC 9110, section 14.4): everything from `offset` to
/// the end of an entity of `size` bytes. `bytes` is taken in lower case only; an unknown total is refused.
[[nodiscard]] bool ParseContentRange(std::wstring_view header, std::uint64_t offset, std::uint64_t size);

}  // namespace launcher_download
