#pragma once

#include "product/text_table.h"

namespace product {

/// The language of this user, from `GetUserDefaultLocaleName`. Decided once per process; any thread.
[[nodiscard]] Language CurrentLanguage();

/// `TextIn` for `CurrentLanguage`. Static, never null.
[[nodiscard]] const wchar_t* LocalizedText(TextId id);

}  // namespace product
