#include "support/fake_ftp.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow::test {

using std::chrono::milliseconds;

// One control connection.
class FakeFtp::Session {
  public:
    Session(FakeFtp& ftp, Exchange& exchange) : ftp_(ftp), rules_(ftp.rules_), exchange_(exchange) {}

    void run() {
        if (!say(rules_.welcome)) return;
        std::string line;
        while (read_line(line)) {
            {
                const std::lock_guard guard(ftp_.mutex_);
                ftp_.commands_.push_back(line);
            }
            const std::string word = line.substr(0, line.find(' '));
            const auto whole = rules_.answers.find(line);
            const auto by_word = rules_.answers.find(word);
            const auto own = whole != rules_.answers.end() ? whole : by_word;
            if (own != rules_.answers.end()) {
                if (!say(own->second)) return;
            } else if (!answer(word, line.substr(std::min(word.size() + 1, line.size())))) {
                return;
            }
        }
    }

  private:
    bool read_line(std::string& line) {
        line.clear();
        std::string byte;
        while (exchange_.receive(1, byte)) {
            if (byte == "\n") return true;
            if (byte != "\r") line += byte;
        }
        return false;
    }
    bool say(std::string_view text) {
        if (text.empty()) return true;
        if (text == "!") {
            exchange_.close();
            return false;
        }
        std::string bytes;
        for (const std::string_view part : split(text, '\n')) bytes.append(part).append("\r\n");
        const std::size_t step = rules_.bytes_at_once > 0 ? rules_.bytes_at_once : bytes.size();
        return exchange_.send_slowly(bytes, step, milliseconds(rules_.bytes_at_once > 0 ? 1 : 0));
    }
    bool answer(const std::string& word, const std::string& argument);
    bool passive(bool extended);
    bool active(const std::string& argument);
    bool retrieve();
    void transmit(TcpSocket& data);

    FakeFtp& ftp_;
    const Rules& rules_;
    Exchange& exchange_;
    TcpListener listener_;
    std::optional<SocketAddress> connect_to_;
    std::int64_t restart_ = 0;
    std::int64_t sent_ = 0;
    StopSource never_;
};

bool FakeFtp::Session::passive(bool extended) {
    auto listener = TcpListener::listen(*SocketAddress::from_literal(ftp_.ipv6_ ? "::1" : "127.0.0.1", 0));
    listener_ = *std::move(listener);
    connect_to_.reset();
    const int port = listener_.address()->port();
    if (extended) return say("229 Extended (|||" + std::to_string(port) + "|)");
    const std::string host = rules_.passive_host.empty() ? "127,0,0,1" : rules_.passive_host;
    return say("227 Passive (" + host + "," + std::to_string(port / 256) + "," + std::to_string(port % 256) +
               ").");
}

bool FakeFtp::Session::active(const std::string& argument) {
    const auto numbers = split(argument, argument.starts_with('|') ? '|' : ',');
    if (argument.starts_with('|')) {
        connect_to_ = SocketAddress::from_literal(
            numbers[2], static_cast<std::uint16_t>(parse_decimal(numbers[3]).value_or(0)));
    } else {
        const auto port = parse_decimal(numbers[4]).value_or(0) * 256 + parse_decimal(numbers[5]).value_or(0);
        connect_to_ = SocketAddress::from_literal("127.0.0.1", static_cast<std::uint16_t>(port));
    }
    return say("200 Noted");
}

bool FakeFtp::Session::retrieve() {
    if (connect_to_) {
        auto socket = TcpSocket::begin_connect(*connect_to_);
        if (!socket.ok()) return say("425 No");
        (void)wait_socket(*socket, Interest::write, milliseconds(2000), never_);
        if (!say("150 Here")) return false;
        transmit(*socket);
    } else {
        auto socket = listener_.accept(milliseconds(5000), never_);
        if (!socket.ok()) return say("425 Nobody came");
        if (!say("150 Here")) return false;
        transmit(*socket);
    }
    const bool cut = rules_.cut_after >= 0 && sent_ >= rules_.cut_after;
    if (cut && rules_.silent_cut) return say("!");
    return say(cut ? "426 Cut" : "226 Done");
}

void FakeFtp::Session::transmit(TcpSocket& data) {
    const std::size_t from = rules_.shift ? 0 : static_cast<std::size_t>(restart_);
    std::string_view bytes = std::string_view(rules_.content).substr(std::min(from, rules_.content.size()));
    if (rules_.cut_after >= 0) bytes = bytes.substr(0, static_cast<std::size_t>(rules_.cut_after));
    const auto begun = Clock::now();
    sent_ = 0;
    while (!bytes.empty() && exchange_.is_open()) {
        const std::size_t most = rules_.rate > 0 ? 4096 : bytes.size();
        const IoStep step = data.write(std::as_bytes(std::span(bytes.substr(0, most))));
        if (step.state == IoStep::State::moved) {
            bytes.remove_prefix(step.bytes);
            sent_ += static_cast<std::int64_t>(step.bytes);
            const auto due = begun + milliseconds(rules_.rate > 0 ? sent_ * 1000 / rules_.rate : 0);
            while (rules_.rate > 0 && Clock::now() < due && exchange_.stall(milliseconds(2))) {
            }
        } else if (step.state != IoStep::State::would_block ||
                   wait_socket(data, Interest::write, milliseconds(5000), never_) != Ready::yes) {
            return;
        }
    }
}

bool FakeFtp::Session::answer(const std::string& word, const std::string& argument) {
    if (word == "USER") {
        const std::lock_guard guard(ftp_.mutex_);
        if (rules_.most_logins > 0 && ++ftp_.logins_ > rules_.most_logins)
            return say("421 Too many connections");
        return say("331 Password");
    }
    if (word == "PASS") return say("230 In");
    if (word == "CWD") return say("250 There");
    if (word == "MDTM") {
        const int time = rules_.restless ? ftp_.asked_times_++ : 0;
        return say("213 " + std::to_string(20240101000000 + time));
    }
    if (word == "SIZE") return say("213 " + std::to_string(rules_.content.size()));
    if (word == "PASV") return ftp_.ipv6_ ? say("522 Not here") : passive(false);
    if (word == "EPSV") return passive(true);
    if (word == "PORT" || word == "EPRT") return active(argument);
    if (word == "RETR") return retrieve();
    if (word == "REST") {
        restart_ = parse_decimal(argument).value_or(0);
        return say("350 From there");
    }
    if (word == "TYPE" || word == "NOOP") return say("200 Fine");
    if (word == "ABOR") return say("225 Nothing runs");
    return say("502 Not known");
}

FakeFtp::FakeFtp(Rules rules, bool ipv6, std::uint16_t port)
    : rules_(std::move(rules)),
      ipv6_(ipv6),
      server_(std::make_unique<ScriptedServer>(
          [this](Exchange& exchange) { serve(exchange); },
          ScriptedServer::Options{.ipv6 = ipv6, .port = port, .raw = true})) {}

void FakeFtp::serve(Exchange& exchange) {
    Session(*this, exchange).run();
    const std::lock_guard guard(mutex_);
    --logins_;
}

std::string FakeFtp::url(std::string_view path, std::string_view login) const {
    return "ftp://" + std::string(login) + server_->host() + ":" + std::to_string(server_->port()) +
           std::string(path);
}

std::u16string FakeFtp::url16(std::string_view path, std::string_view login) const {
    return to_utf16(url(path, login));
}

std::vector<std::string> FakeFtp::commands() const {
    const std::lock_guard guard(mutex_);
    return commands_;
}

std::size_t FakeFtp::count(std::string_view beginning) const {
    const auto all = commands();
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(), [&](const std::string& c) { return c.starts_with(beginning); }));
}

}  // namespace vantlow::test
