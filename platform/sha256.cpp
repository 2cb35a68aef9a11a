#include "platform/sha256.h"

#include <array>
#include <limits>

namespace platform {
namespace {

bool ReadSize(BCRYPT_ALG_HANDLE algorithm, const wchar_t* property, std::size_t& size) {
    DWORD value = 0;
    DWORD written = 0;
    const NTSTATUS status =
        BCryptGetProperty(algorithm, property, reinterpret_cast<PUCHAR>(&value), sizeof(value), &written, 0);
    size = value;
    return BCRYPT_SUCCESS(status) && written == sizeof(value) && value > 0;
}

std::wstring ToHex(const std::vector<unsigned char>& digest) {
    constexpr wchar_t kDigits[] = L"0123456789abcdef";
    std::wstring hex;
    hex.reserve(digest.size() * 2);
    for (const unsigned char byte : digest) {
        hex.push_back(kDigits[byte >> 4]);
        hex.push_back(kDigits[byte & 15]);
    }
    return hex;
}

}  // namespace

Sha256::Sha256() {
    std::size_t objectLength = 0;
    if (!BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(algorithm_.Receive(), BCRYPT_SHA256_ALGORITHM, nullptr, 0))) return;
    if (!ReadSize(algorithm_.Get(), BCRYPT_OBJECT_LENGTH, objectLength)) return;
    if (!ReadSize(algorithm_.Get(), BCRYPT_HASH_LENGTH, digestLength_)) return;
    object_.resize(objectLength);
    good_ = BCRYPT_SUCCESS(BCryptCreateHash(algorithm_.Get(), hash_.Receive(), object_.data(),
                                            static_cast<ULONG>(object_.size()), nullptr, 0, 0));
}

bool Sha256::Update(const void* data, std::size_t length) {
    if (length > std::numeric_limits<ULONG>::max()) good_ = false;
    if (!good_ || length == 0) return good_;
    // CNG takes a pointer to non-const but only reads it.
    auto* bytes = static_cast<unsigned char*>(const_cast<void*>(data));
    good_ = BCRYPT_SUCCESS(BCryptHashData(hash_.Get(), bytes, static_cast<ULONG>(length), 0));
    return good_;
}

bool Sha256::Finish(std::wstring& hex) {
    hex.clear();
    if (!good_) return false;
    std::vector<unsigned char> digest(digestLength_);
    good_ = BCRYPT_SUCCESS(BCryptFinishHash(hash_.Get(), digest.data(), static_cast<ULONG>(digest.size()), 0));
    if (good_) hex = ToHex(digest);
    return good_;
}

bool Sha256OfMemory(const void* data, std::size_t length, std::wstring& hex) {
    hex.clear();
    Sha256 digest;
    return digest.Update(data, length) && digest.Finish(hex);
}

}  // namespace platform
