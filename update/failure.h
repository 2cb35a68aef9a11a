#pragma once

#include <string>
#include <string_view>

namespace launcher_update {

/// The way every operation of the update core gives up: `error` holds the message, the answer is false.
inline bool Fail(std::wstring& error, std::wstring_view message) {
    error = message;
    return false;
}

}  // namespace launcher_update
