#include "support/certificates.h"

#include "base/text.h"

namespace vantlow::test {
namespace {

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

// Wine 8 refuses one in 128 signatures of elliptic curves: those with a number that begins with a zero byte.
constexpr const char* signing_kind = "rsa:2048";

std::string new_key(const std::string& name,
                    const std::string& kind = "ec -pkeyopt ec_paramgen_curve:P-256") {
    return " -newkey " + kind + " -nodes -config ca.cnf -keyout " + name + ".key";
}

}  // namespace

bool Certificates::available() {
    return !unix_program("openssl").empty();
}

Certificates::Certificates() {
    folder_.write(u"ca.cnf", configuration);
    folder_.write(u"index.txt", "");
    run_in_shell(folder_,
                 "openssl req -x509 -days 30 -subj '/CN=Authority of the test' "
                 "-addext basicConstraints=critical,CA:TRUE "
                 "-addext keyUsage=keyCertSign,cRLSign,digitalSignature -out ca.pem" +
                     new_key("ca", signing_kind));
}

void Certificates::make(const std::string& name, const CertificateWishes& wishes) {
    const std::string extension = "subjectAltName=" + wishes.names;
    if (wishes.self_signed) {
        run_in_shell(folder_, "openssl req -x509 -days 30 -subj /CN=nobody -addext " + extension + " -out " +
                                  name + ".pem" + new_key(name, signing_kind));
        return;
    }
    folder_.write(to_utf16(name) + u".ext", extension + "\n");
    std::string script =
        "set -e\nopenssl req -new -subj /CN=" + name + " -out " + name + ".csr" + new_key(name);
    script += "\nopenssl ca -batch -notext -config ca.cnf -extfile " + name + ".ext -in " + name +
              ".csr -out " + name + ".pem";
    if (!wishes.begin.empty()) script += " -startdate " + wishes.begin;
    if (!wishes.end.empty()) script += " -enddate " + wishes.end;
    if (wishes.revoked) {
        script += "\nopenssl ca -config ca.cnf -revoke " + name + ".pem";
        script +=
            "\nopenssl ocsp -index index.txt -rsigner ca.pem -rkey ca.key -CA ca.pem -issuer ca.pem -cert " +
            name + ".pem -ndays 1 -respout " + name + ".der";
    }
    run_in_shell(folder_, script);
}

std::string Certificates::file(const std::string& name) const {
    return unix_path(folder_.path(to_utf16(name)));
}

OpensslServer::OpensslServer(const Certificates& certificates, const std::string& name,
                             const std::string& more)
    : server_(u"/bin/sh",
              [&](const TempFolder&, std::uint16_t port) {
                  return std::vector<std::u16string>{
                      u"-c", to_utf16("exec openssl s_server -quiet -HTTP -accept 127.0.0.1:" +
                                      std::to_string(port) + " -cert " + certificates.file(name + ".pem") +
                                      " -key " + certificates.file(name + ".key") + " " + more)};
              },
              {.run_folder = documents_.path()}) {
    put(u"answer", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nConnection: close\r\n\r\nhello");
}

std::u16string OpensslServer::url(std::u16string_view host) const {
    return u"https://" + std::u16string(host) + u":" + to_utf16(std::to_string(port())) + u"/answer";
}

}  // namespace vantlow::test
