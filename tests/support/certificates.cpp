#include "support/certificates.h"

#include <chrono>
#include <stdexcept>
#include <thread>

#include "base/text.h"
#include "platform/file.h"
#include "platform/socket.h"
#include "support/scripted_server.h"

namespace vantlow::test {
namespace {

using Words = std::vector<std::u16string>;

std::u16string program_file() {
    // Wine starts programs of the system below it, too.
    const std::u16string path = path_separator() == u'/' ? u"/usr/bin/openssl" : u"Z:\\usr\\bin\\openssl";
    return path_kind(path) == PathKind::file ? path : std::u16string();
}

constexpr std::string_view configuration = R"(
[ca]
default_ca = own
[own]
database = index.txt
new_certs_dir = .
rand_serial = yes
certificate = ca.pem
private_key = ca.key
default_md = sha256
default_days = 30
policy = any
unique_subject = no
[any]
commonName = supplied
[req]
distinguished_name = any_name
[any_name]
)";

void run(const TempFolder& folder, const Words& words) {
    RunOptions options;
    options.folder = folder.path();
    const RunResult result = run_program(program_file(), words, options);
    if (result.status != 0) throw std::runtime_error("openssl " + to_utf8(words.front()) + ": " + result.err);
}

Words key_words(const std::u16string& name) {
    return {u"-newkey",     u"ec",      u"-pkeyopt", u"ec_paramgen_curve:P-256", u"-nodes", u"-keyout",
            name + u".key", u"-config", u"ca.cnf"};
}

Words operator+(Words left, const Words& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

bool accepts(std::uint16_t port) {
    const StopSource never;
    auto socket = TcpSocket::begin_connect(*SocketAddress::from_literal("127.0.0.1", port));
    return socket &&
           wait_socket(*socket, Interest::write, std::chrono::milliseconds(1000), never) == Ready::yes &&
           socket->connect_error() == 0;
}

}  // namespace

bool Certificates::available() {
    return !program_file().empty();
}

Certificates::Certificates() {
    folder_.write(u"ca.cnf", configuration);
    folder_.write(u"index.txt", "");
    run(folder_, Words{u"req", u"-x509", u"-days", u"30", u"-subj", u"/CN=Authority of the test", u"-addext",
                       u"basicConstraints=critical,CA:TRUE", u"-addext",
                       u"keyUsage=keyCertSign,cRLSign,digitalSignature", u"-out", u"ca.pem"} +
                     key_words(u"ca"));
}

void Certificates::make(const std::string& name, const CertificateWishes& wishes) {
    const std::u16string wide = to_utf16(name);
    const std::string extensions = "subjectAltName=" + wishes.names;
    if (wishes.self_signed) {
        run(folder_, Words{u"req", u"-x509", u"-days", u"30", u"-subj", u"/CN=nobody", u"-addext",
                           to_utf16(extensions), u"-out", wide + u".pem"} +
                         key_words(wide));
        return;
    }
    folder_.write(wide + u".ext", extensions + "\n");
    run(folder_, Words{u"req", u"-new", u"-subj", u"/CN=" + wide, u"-out", wide + u".csr"} + key_words(wide));
    Words sign{u"ca",          u"-batch", u"-notext",     u"-config", u"ca.cnf",     u"-extfile",
               wide + u".ext", u"-in",    wide + u".csr", u"-out",    wide + u".pem"};
    if (!wishes.begin.empty()) sign = sign + Words{u"-startdate", to_utf16(wishes.begin)};
    if (!wishes.end.empty()) sign = sign + Words{u"-enddate", to_utf16(wishes.end)};
    run(folder_, sign);
    if (!wishes.revoked) return;
    run(folder_, Words{u"ca", u"-config", u"ca.cnf", u"-revoke", wide + u".pem"});
    run(folder_, Words{u"ocsp", u"-index", u"index.txt", u"-rsigner", u"ca.pem", u"-rkey", u"ca.key", u"-CA",
                       u"ca.pem", u"-issuer", u"ca.pem", u"-cert", wide + u".pem", u"-ndays", u"1",
                       u"-respout", wide + u".der"});
}

std::string Certificates::file(const std::string& name) const {
    return folder_.utf8_path() + "/" + name;
}

OpensslServer::OpensslServer(const Certificates& certificates, const std::string& name, Words more) {
    documents_.write(u"answer", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nConnection: close\r\n\r\nhello");
    for (int attempt = 0; attempt < 3; ++attempt) {
        port_ = closed_port();
        RunOptions options;
        options.folder = documents_.path();
        const std::u16string base = certificates.folder().path(to_utf16(name));
        program_ = std::make_unique<RunningProgram>(
            program_file(),
            Words{u"s_server", u"-accept", u"127.0.0.1:" + to_utf16(std::to_string(port_)), u"-quiet",
                  u"-HTTP", u"-cert", base + u".pem", u"-key", base + u".key"} +
                more,
            options);
        const auto end = Clock::now() + std::chrono::seconds(10);
        while (program_->is_running() && Clock::now() < end) {
            if (accepts(port_)) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        program_->kill();
    }
    throw std::runtime_error("openssl s_server does not start: " + program_->err());
}

OpensslServer::~OpensslServer() {
    program_->kill();
    (void)program_->wait(std::chrono::seconds(5));
}

std::u16string OpensslServer::url(std::u16string_view host) const {
    return u"https://" + std::u16string(host) + u":" + to_utf16(std::to_string(port_)) + u"/answer";
}

}  // namespace vantlow::test
