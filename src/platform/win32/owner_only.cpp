#include "platform/win32/owner_only.h"

#include <sddl.h>

#include <vector>

namespace vantlow {
namespace {

HLOCAL release(HLOCAL memory) {
    return LocalFree(memory);
}

// The user's identity as text; empty when the system does not tell.
std::u16string own_identity() {
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return {};
    const Handle token(opened);
    DWORD size = 0;
    GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
    std::vector<std::byte> space(size);
    if (size == 0 || !GetTokenInformation(token.get(), TokenUser, space.data(), size, &size)) return {};
    wchar_t* text = nullptr;
    const auto* user = reinterpret_cast<const TOKEN_USER*>(space.data());
    if (!ConvertSidToStringSidW(user->User.Sid, &text)) return {};
    const std::unique_ptr<void, HLOCAL (*)(HLOCAL)> owner(text, &release);
    return from_wide(text);
}

}  // namespace

OwnerOnly::OwnerOnly(bool wanted) : descriptor_(nullptr, &release) {
    if (!wanted) return;
    const std::u16string identity = own_identity();
    // Full access for the user, nothing inherited from the folder.
    const std::u16string rules = u"D:P(A;;FA;;;" + identity + u")";
    PSECURITY_DESCRIPTOR made = nullptr;
    if (identity.empty() ||
        !ConvertStringSecurityDescriptorToSecurityDescriptorW(wide(rules), SDDL_REVISION_1, &made, nullptr)) {
        error_ = file_error(GetLastError());
        return;
    }
    descriptor_.reset(made);
    attributes_ =
        std::make_unique<SECURITY_ATTRIBUTES>(SECURITY_ATTRIBUTES{sizeof(SECURITY_ATTRIBUTES), made, FALSE});
}

}  // namespace vantlow
