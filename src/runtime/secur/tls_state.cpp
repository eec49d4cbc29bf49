#include "runtime/secur/tls_state.h"

#ifdef _WIN32
#include "runtime/secur/win32/tls.h"
#else
#include "runtime/secur/posix/tls.h"
#endif

namespace vantlow::secur {

void TlsState::begin(VantlowTlsEngine* its_engine, const VantlowTlsPlan& plan) {
    engine = its_engine;
    transport = plan.transport;
    host = certificate_name(plan.host);
    verify = plan.verify != 0;
}

int TlsState::fail(int result, std::string_view sentence) noexcept {
    failed = true;
    failure = result;
    error.write(sentence);
    return result;
}

bool TlsState::is_interrupted() const noexcept {
    return interrupt != nullptr && interrupt(interrupt_context) != 0;
}

std::string certificate_name(std::string_view host) {
    if (host.size() > 1 && host.back() == '.') host.remove_suffix(1);
    return std::string(host.substr(0, host.find('%')));
}

void copy_text(char* into, std::size_t room, std::string_view text) noexcept {
    into[text.copy(into, room - 1)] = '\0';
}

}  // namespace vantlow::secur

extern "C" VANTLOW_EXPORT void SSL_Set_Interrupt(VantlowTls* tls, int (*interrupt)(void*), void* context) {
    tls->interrupt = interrupt;
    tls->interrupt_context = context;
}

extern "C" VANTLOW_EXPORT void SSL_Set_ErrPtr(VantlowTls* tls, char* text, size_t room) {
    tls->error.set(text, room);
}

extern "C" VANTLOW_EXPORT void SSL_Exit(VantlowTlsEngine* engine) {
    delete engine;
}
