#include "support/nginx.h"

#include "base/text.h"

namespace vantlow::test {
namespace {

std::string configuration(const std::string& folder, const std::string& documents, std::uint16_t port,
                          std::string_view server_lines, std::string_view http_lines) {
    std::string text = "daemon off;\nworker_processes 1;\nuser root;\npid nginx.pid;\n";
    text += "events { worker_connections 1024; }\nhttp {\naccess_log off;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        text += std::string(kind) + "_temp_path " + folder + "/" + kind + ";\n";
    }
    text += "default_type application/octet-stream;\n" + std::string(http_lines) + "\n";
    text += "server {\nlisten 127.0.0.1:" + std::to_string(port) + ";\nabsolute_redirect off;\n";
    text += "root " + documents + ";\n" + std::string(server_lines) + "\n}\n}\n";
    constexpr std::string_view mark = "{{documents}}";
    for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark)) {
        text.replace(at, mark.size(), documents + "/");
    }
    return text;
}

}  // namespace

bool Nginx::available() {
    return !unix_program("nginx").empty();
}

Nginx::Nginx(std::string_view server_lines, std::string_view http_lines) {
    server_ =
        std::make_unique<UnixServer>(unix_program("nginx"), [&](const TempFolder& own, std::uint16_t port) {
            const auto file =
                own.write(u"nginx.conf", configuration(unix_path(own.path()), unix_path(documents_.path()),
                                                       port, server_lines, http_lines));
            return std::vector<std::u16string>{u"-p", own.path(), u"-c", file, u"-e", own.path(u"error.log")};
        });
}

void Nginx::put(std::u16string_view name, std::string_view bytes) const {
    documents_.write(name, bytes);
}

std::string Nginx::url(std::string_view path) const {
    return "http://127.0.0.1:" + std::to_string(port()) + std::string(path);
}

std::u16string Nginx::url16(std::string_view path) const {
    return to_utf16(url(path));
}

}  // namespace vantlow::test
