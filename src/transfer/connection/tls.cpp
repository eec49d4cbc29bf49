#include "transfer/connection/tls.h"

#include <array>
#include <utility>

#include "base/text.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::size_t largest_ca_file = 16 * 1024 * 1024;

}  // namespace

bool TlsEngines::available() const noexcept {
    return library_ != nullptr && library_->SSL_Init != nullptr && library_->SSL_Exit != nullptr &&
           library_->SSL_New != nullptr && library_->SSL_Free != nullptr &&
           library_->SSL_Connect != nullptr && library_->SSL_Recv != nullptr &&
           library_->SSL_Send != nullptr && library_->SSL_Set_ErrPtr != nullptr &&
           library_->SSL_Set_Interrupt != nullptr;
}

Outcome<TlsEngines::Engine> TlsEngines::make(const std::u16string& ca_file) const {
    std::vector<std::byte> roots;
    std::array<char, 200> why{};
    const auto refuse = [&](const std::string& text) {
        return Result(Code::not_trusted,
                      "The certificates to trust cannot be read from " + to_utf8(ca_file) + ": " + text);
    };
    if (!ca_file.empty()) {
        if (const FileError error = read_file(ca_file, largest_ca_file, roots); !error.ok())
            return refuse(error.text());
    }
    const void* const bytes = ca_file.empty() ? nullptr : static_cast<const void*>(roots.data());
    // An empty file has no bytes to point at, and is no reason to trust the system instead.
    if (!ca_file.empty() && roots.empty()) return refuse("It is empty.");
    VantlowTlsEngine* const engine = library_->SSL_Init(bytes, roots.size(), why.data(), why.size());
    if (engine == nullptr)
        return ca_file.empty() ? Result(Code::unsupported, why.data()) : refuse(why.data());
    return Engine(engine, library_->SSL_Exit);
}

Outcome<TlsEngines::Engine> TlsEngines::engine(const std::u16string& ca_file) {
    if (!available())
        return Result(Code::unsupported, missing_library_text("libsecur") + " There is no TLS without it.");
    const FileStamp stamp = ca_file.empty() ? FileStamp{} : file_stamp(ca_file);
    const auto find = [&]() -> Engine {
        const MutexLock guard(mutex_);
        const auto known = engines_.find(ca_file);
        return known != engines_.end() && known->second.stamp == stamp ? known->second.engine : nullptr;
    };
    if (Engine known = find()) return known;
    Outcome<Engine> made = make(ca_file);
    if (!made.ok()) return made;
    // Another connection may have been as fast: its engine has the sessions then.
    if (Engine known = find()) return known;
    const MutexLock guard(mutex_);
    engines_[ca_file] = {stamp, *made};
    return made;
}

}  // namespace vantlow
