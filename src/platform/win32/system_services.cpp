#include "platform/system_services.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <vector>

#include "base/mutex.h"
#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/win32/native.h"
// after it
#include <ras.h>
#include <raserror.h>
#include <wincrypt.h>
#include <wininet.h>

namespace vantlow {
namespace {

using EnumConnections = DWORD(APIENTRY*)(RASCONNW*, DWORD*, DWORD*);
using GetParams = DWORD(APIENTRY*)(const wchar_t*, RASDIALPARAMSW*, BOOL*);
using Dial = DWORD(APIENTRY*)(RASDIALEXTENSIONS*, const wchar_t*, RASDIALPARAMSW*, DWORD, void*, HRASCONN*);
using HangUp = DWORD(APIENTRY*)(HRASCONN);
using ErrorText = DWORD(APIENTRY*)(UINT, wchar_t*, DWORD);

constexpr std::chrono::milliseconds step{100};
constexpr std::chrono::minutes longest_dialling{3};
constexpr DWORD still_dialling = 0xFFFFFFFF;

// The outcome of the one dialling that is under way; the system reports it on a thread of its own.
std::atomic<DWORD> outcome{still_dialling};
Mutex dialling;

DWORD WINAPI on_state(ULONG_PTR, DWORD, HRASCONN, UINT, RASCONNSTATE state, DWORD error, DWORD) {
    if (error != 0) outcome = error;
    if (state == RASCS_Connected) outcome = ERROR_SUCCESS;
    if (state == RASCS_Disconnected && outcome == still_dialling) outcome = ERROR_DISCONNECTION;
    return 1;
}

template <class Function>
Function as(void* operation) {
    return reinterpret_cast<Function>(operation);
}

Result failure(const DialUpOperations& operations, DWORD error) {
    std::u16string text(512, u'\0');
    std::string sentence = "error " + std::to_string(error);
    const auto describe = as<ErrorText>(operations.error_text);
    if (describe != nullptr && describe(error, reinterpret_cast<wchar_t*>(text.data()),
                                        static_cast<DWORD>(text.size())) == ERROR_SUCCESS) {
        sentence = to_utf8(text.substr(0, text.find(u'\0')));
    }
    return {Code::transient, "Dialling failed: " + sentence, static_cast<int>(error)};
}

bool stands(const DialUpOperations& operations, const std::u16string& entry) {
    const auto list = as<EnumConnections>(operations.enum_connections);
    if (list == nullptr) return false;
    std::vector<RASCONNW> connections(64);
    connections[0].dwSize = sizeof(RASCONNW);
    auto size = static_cast<DWORD>(connections.size() * sizeof(RASCONNW));
    DWORD count = 0;
    if (list(connections.data(), &size, &count) != ERROR_SUCCESS) return false;
    count = std::min<DWORD>(count, static_cast<DWORD>(connections.size()));
    return std::any_of(connections.begin(), connections.begin() + count,
                       [&](const RASCONNW& one) { return iequals(from_wide(one.szEntryName), entry); });
}

void copy(const std::u16string& text, wchar_t* into, std::size_t room) {
    const std::size_t size = std::min(text.size(), room - 1);
    std::copy_n(reinterpret_cast<const wchar_t*>(text.data()), size, into);
    into[size] = 0;
}

// Waits for the end of the dialling, and drops the line when no connection comes of it.
Result wait_for_line(const DialUpOperations& operations, HRASCONN line, const StopSource& stop) {
    const auto until = std::chrono::steady_clock::now() + longest_dialling;
    DWORD error = outcome;
    while (error == still_dialling && std::chrono::steady_clock::now() < until && !stop.wait_for(step))
        error = outcome;
    if (error == ERROR_SUCCESS) return {};
    if (const auto drop = as<HangUp>(operations.hang_up); drop != nullptr && line != nullptr) drop(line);
    if (stop.requested()) return stop.reason();
    return failure(operations, error == still_dialling ? ERROR_NO_ANSWER : error);
}

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

Result dial_up(const DialUpOperations& operations, const DialUpPlan& plan, const StopSource& stop,
               LogSink& log) {
    const auto dial = as<Dial>(operations.dial);
    if (dial == nullptr) return {Code::unsupported, "\"rasapi32.dll\" not found?"};
    const MutexLock guard(dialling);
    if (stands(operations, plan.entry)) return {};
    auto params = std::make_unique<RASDIALPARAMSW>();
    *params = {};
    params->dwSize = sizeof(RASDIALPARAMSW);
    copy(plan.entry, params->szEntryName, RAS_MaxEntryName + 1);
    BOOL has_password = FALSE;
    if (const auto read = as<GetParams>(operations.get_params); read != nullptr && plan.user.empty())
        static_cast<void>(
            read(nullptr, params.get(), &has_password));  // without stored data the system asks nobody
    if (!plan.user.empty()) {
        copy(plan.user, params->szUserName, UNLEN + 1);
        copy(plan.password, params->szPassword, PWLEN + 1);
    }
    log.line(Direction::note, "Dialling " + to_utf8(plan.entry));
    outcome = still_dialling;
    HRASCONN line = nullptr;
    const auto hooked = static_cast<DWORD>(ask_hook(Operation::dial, plan.entry));
    constexpr DWORD with_context = 2;  // on_state is a callback that gets the context
    const DWORD error = hooked != 0 ? hooked
                                    : dial(nullptr, nullptr, params.get(), with_context,
                                           reinterpret_cast<void*>(on_state), &line);
    SecureZeroMemory(params.get(), sizeof(RASDIALPARAMSW));
    if (error == ERROR_SUCCESS) return wait_for_line(operations, line, stop);
    if (const auto drop = as<HangUp>(operations.hang_up); drop != nullptr && line != nullptr) drop(line);
    return failure(operations, error);
}

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

std::u16string system_cookies(const std::u16string& address) {
    constexpr DWORD longest = 64 * 1024;  // characters
    DWORD size = 0;                       // bytes, as Windows tells them
    if (!InternetGetCookieW(wide(address), nullptr, nullptr, &size) || size == 0 || size > 2 * longest)
        return {};
    std::u16string text(size / 2 + 1, u'\0');
    size = static_cast<DWORD>(text.size() * 2);
    if (!InternetGetCookieW(wide(address), nullptr, reinterpret_cast<wchar_t*>(text.data()), &size))
        return {};
    text.resize(text.find(u'\0') == std::u16string::npos ? text.size() : text.find(u'\0'));
    return text;
}

}  // namespace vantlow
