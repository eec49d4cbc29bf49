// The endpoint's TLS by OpenSSL.
#include "app/rpc/endpoint_tls.h"

#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>

namespace vantlow::control {
namespace {

class OpenSslLayer final : public TlsLayer {
  public:
    OpenSslLayer(beast::tcp_stream& socket, asio::ssl::context& context) : stream_(socket, context) {}

    void shake_hands(Done done) override {
        stream_.async_handshake(asio::ssl::stream_base::server, std::move(done));
    }
    void read_some(asio::mutable_buffer into, Moved done) override {
        stream_.async_read_some(into, std::move(done));
    }
    void write_some(asio::const_buffer from, Moved done) override {
        stream_.async_write_some(from, std::move(done));
    }
    void shut_down(Done done) override { stream_.async_shutdown(std::move(done)); }

  private:
    asio::ssl::stream<beast::tcp_stream&> stream_;
};

class OpenSslServer final : public TlsServer {
  public:
    OpenSslServer() {
        SSL_CTX* const native = context_.native_handle();
        SSL_CTX_set_options(native, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
        SSL_CTX_set_session_cache_mode(native, SSL_SESS_CACHE_OFF);  // tickets serve, and cost no memory here
        SSL_CTX_set_mode(native, SSL_MODE_RELEASE_BUFFERS);          // idle connections hold none
    }
    Result show(const ControlCertificate& certificate) {
        error_code error;
        context_.set_options(asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1, error);
        if (!error) context_.use_certificate_chain(asio::buffer(certificate.chain), error);
        if (error) return failure("The control API's certificate cannot be used: ", error);
        context_.use_private_key(asio::buffer(certificate.key), asio::ssl::context::pem, error);
        if (error) return failure("The key of the control API's certificate cannot be used: ", error);
        return {};
    }
    std::unique_ptr<TlsLayer> wrap(beast::tcp_stream& socket) override {
        return std::make_unique<OpenSslLayer>(socket, context_);
    }

  private:
    static Result failure(const char* subject, const error_code& error) {
        return {Code::local_file, subject + error.message()};
    }

    asio::ssl::context context_{asio::ssl::context::tls_server};
};

}  // namespace

Outcome<std::unique_ptr<TlsServer>> make_tls_server(const ControlCertificate& certificate) {
    try {
        auto server = std::make_unique<OpenSslServer>();
        if (Result shown = server->show(certificate); !shown.ok()) return shown;
        return std::unique_ptr<TlsServer>(std::move(server));
    } catch (const boost::system::system_error& error) {
        return Result(Code::unsupported, "The control API's TLS cannot be set up: " + error.code().message());
    }
}

}  // namespace vantlow::control
