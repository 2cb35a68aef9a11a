#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/unique_handle.h"

namespace platform {

/// One streaming SHA-256 over CNG ("Cryptography API: Next Generation", `BCryptHashData`). Every digest in the system
/// is a thin caller of this class. One object serves one digest on one thread; memory is constant.
class Sha256 {
  public:
    /// Opens the provider and the hash; whether that worked shows in the next call.
    Sha256();

    /// Adds bytes; at most 4294967295 at a time, the limit of one CNG call. False once anything has failed.
    [[nodiscard]] bool Update(const void* data, std::size_t length);

    /// The digest as 64 lower-case hexadecimal characters. Ends the object: only destruction may follow.
    [[nodiscard]] bool Finish(std::wstring& hex);

  private:
    // The algorithm outlives the hash, and the hash's working memory outlives both uses: members in this order.
    HashAlgorithmHandle algorithm_;
    std::vector<unsigned char> object_;
    std::size_t digestLength_ = 0;
    HashHandle hash_;
    bool good_ = false;
};

/// Digest of one block of memory, at most 4294967295 bytes. False on any failure; `hex` is then empty.
[[nodiscard]] bool Sha256OfMemory(const void* data, std::size_t length, std::wstring& hex);

}  // namespace platform
