#include "support/nginx.h"

#include <stdexcept>

#include "base/text.h"
#include "platform/file.h"
#include "platform/socket.h"
#include "support/scripted_server.h"

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;

std::u16string program_file() {
    for (const char16_t* path : {u"/usr/sbin/nginx", u"/usr/local/sbin/nginx", u"/usr/bin/nginx"}) {
        if (path_separator() == u'/' && path_kind(path) == PathKind::file) return path;
    }
    return {};
}

}  // namespace

bool Nginx::available() {
    return !program_file().empty();
}

Nginx::Nginx(std::string_view server_lines, std::string_view http_lines) {
    // Somebody may take the free port before it does: again with another one then.
    for (int attempt = 0; attempt < 3; ++attempt) {
        port_ = closed_port();
        prefix_.write(u"nginx.conf", configuration(server_lines, http_lines));
        const std::u16string folder = prefix_.path();
        program_ = std::make_unique<RunningProgram>(
            program_file(), std::vector<std::u16string>{u"-p", folder, u"-c", prefix_.path(u"nginx.conf"),
                                                        u"-e", prefix_.path(u"error.log")});
        if (wait_until_it_accepts()) return;
        end();
    }
    throw std::runtime_error("nginx does not start: " + error_log());
}

Nginx::~Nginx() {
    end();
}

void Nginx::end() {
    program_->terminate();
    (void)program_->wait(std::chrono::seconds(5));
}

bool Nginx::wait_until_it_accepts() {
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (program_->is_running() && Clock::now() < end) {
        if (accepts(port_)) return program_->is_running();
        std::this_thread::sleep_for(milliseconds(5));
    }
    return false;
}

std::string Nginx::configuration(std::string_view server_lines, std::string_view http_lines) const {
    const std::string folder = prefix_.utf8_path();
    std::string text = "daemon off;\nworker_processes 1;\nuser root;\n";
    text += "pid " + folder + "/nginx.pid;\nerror_log " + folder + "/error.log;\n";
    text += "events { worker_connections 1024; }\nhttp {\naccess_log off;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        text += std::string(kind) + "_temp_path " + folder + "/" + kind + ";\n";
    }
    text += "default_type application/octet-stream;\n" + std::string(http_lines) + "\n";
    text += "server {\nlisten 127.0.0.1:" + std::to_string(port_) + ";\nabsolute_redirect off;\n";
    text += "root " + documents_.utf8_path() + ";\n" + std::string(server_lines) + "\n}\n}\n";
    constexpr std::string_view mark = "{{documents}}";
    for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark)) {
        text.replace(at, mark.size(), documents_.utf8_path() + "/");
    }
    return text;
}

void Nginx::put(std::u16string_view name, std::string_view bytes) const {
    documents_.write(name, bytes);
}

std::string Nginx::url(std::string_view path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

std::u16string Nginx::url16(std::string_view path) const {
    return to_utf16(url(path));
}

std::string Nginx::error_log() const {
    return prefix_.has(u"error.log") ? prefix_.read(u"error.log") : std::string();
}

}  // namespace vantlow::test
