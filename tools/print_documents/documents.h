#pragma once

/// Documents that are made from the product's own tables.

#include <string>

namespace print_documents {

/// Every text of the product in all languages side by side, for people who read and translate.
[[nodiscard]] std::string TextsDocument();

/// The built-in verification commands, for people who check a build.
[[nodiscard]] std::string CommandsDocument();

}  // namespace print_documents
