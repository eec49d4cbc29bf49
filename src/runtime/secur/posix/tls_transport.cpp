#include "runtime/secur/posix/tls.h"

#include <openssl/bio.h>

namespace vantlow::secur {
namespace {

VantlowTls& owner(BIO* bio) noexcept {
    return *static_cast<VantlowTls*>(BIO_get_data(bio));
}

bool is_interrupted(VantlowTls& tls) noexcept {
    if (!tls.is_interrupted()) return false;
    tls.below = VANTLOW_TLS_INTERRUPTED;
    return true;
}

int receive(BIO* bio, char* into, int size) noexcept {
    VantlowTls& tls = owner(bio);
    BIO_clear_retry_flags(bio);
    if (size <= 0 || tls.at_end) return 0;
    if (!tls.may_receive) {
        BIO_set_retry_read(bio);
        return -1;
    }
    if (is_interrupted(tls)) return -1;
    const ptrdiff_t got = tls.transport.receive(tls.transport.context, into, static_cast<std::size_t>(size));
    if (got > 0) return static_cast<int>(got);
    tls.at_end = got == 0;
    tls.below = static_cast<int>(got);
    if (got == VANTLOW_TLS_QUIET) BIO_set_retry_read(bio);
    return got == 0 ? 0 : -1;
}

int send(BIO* bio, const char* from, int size) noexcept {
    VantlowTls& tls = owner(bio);
    BIO_clear_retry_flags(bio);
    if (size <= 0) return 0;
    if (is_interrupted(tls)) return -1;
    const int sent = tls.transport.send(tls.transport.context, from, static_cast<std::size_t>(size));
    if (sent == VANTLOW_TLS_OK) return size;
    tls.below = sent;
    return -1;
}

long control(BIO* bio, int command, long /*number*/, void* /*pointer*/) noexcept {
    switch (command) {
        case BIO_CTRL_FLUSH:
            return 1;
        case BIO_CTRL_EOF:
            return owner(bio).at_end ? 1 : 0;
        default:
            return 0;
    }
}

BIO_METHOD* make_method() noexcept {
    BIO_METHOD* const method = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "transport");
    if (method == nullptr) return nullptr;
    BIO_meth_set_read(method, receive);
    BIO_meth_set_write(method, send);
    BIO_meth_set_ctrl(method, control);
    return method;
}

}  // namespace

BIO* make_transport_bio(VantlowTls& tls) noexcept {
    static const Owned<BIO_METHOD, BIO_meth_free> method(make_method());
    BIO* const bio = method ? BIO_new(method.get()) : nullptr;
    if (bio == nullptr) return nullptr;
    BIO_set_data(bio, &tls);
    BIO_set_init(bio, 1);
    return bio;
}

}  // namespace vantlow::secur
