// The endpoint in a build without a library that it could have TLS from.
#include "app/rpc/endpoint_tls.h"

namespace vantlow {
namespace {

Result not_here() {
    return {Code::unsupported,
            "This build has no TLS for the control API: it stays closed while \"RPC\"/\"TLS\" is 1."};
}

}  // namespace

Outcome<ControlCertificate> make_certificate(const std::vector<std::string>&) {
    return not_here();
}

Outcome<std::unique_ptr<control::TlsServer>> control::make_tls_server(const ControlCertificate&) {
    return not_here();
}

}  // namespace vantlow
