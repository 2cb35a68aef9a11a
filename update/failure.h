#pragma once

#include <string>
#include <utility>

namespace launcher_update {

/// The way every operation of the update core gives up: `error` holds the message, the answer is false.
inline bool Fail(std::wstring& error, std::wstring message) {
    error = std::move(message);
    return false;
}

}  // namespace launcher_update
