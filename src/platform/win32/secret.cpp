#include "platform/secret.h"

#include <windows.h>

#include <wincrypt.h>

#include "platform/fault_hook.h"

namespace vantlow {
namespace {

DATA_BLOB blob_of(std::span<const std::byte> bytes) {
    // The system only reads it.
    auto* const data = const_cast<BYTE*>(reinterpret_cast<const BYTE*>(bytes.data()));
    return {static_cast<DWORD>(bytes.size()), data};
}

std::vector<std::byte> take(DATA_BLOB& blob) {
    const auto* const first = reinterpret_cast<const std::byte*>(blob.pbData);
    std::vector<std::byte> bytes(first, first + blob.cbData);
    SecureZeroMemory(blob.pbData, blob.cbData);
    LocalFree(blob.pbData);
    return bytes;
}

}  // namespace

std::string_view secret_kind() noexcept {
    return "dpapi";
}

std::optional<std::vector<std::byte>> protect_secret(std::span<const std::byte> secret) {
    if (ask_hook(Operation::protect) != 0) return std::nullopt;
    DATA_BLOB in = blob_of(secret);
    DATA_BLOB out{};
    if (!CryptProtectData(&in, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out))
        return std::nullopt;
    return take(out);
}

std::optional<std::vector<std::byte>> unprotect_secret(std::span<const std::byte> kept) {
    if (ask_hook(Operation::protect) != 0) return std::nullopt;
    DATA_BLOB in = blob_of(kept);
    DATA_BLOB out{};
    if (!CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out))
        return std::nullopt;
    return take(out);
}

}  // namespace vantlow
