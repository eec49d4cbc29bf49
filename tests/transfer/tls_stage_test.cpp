// TLS on the loop: many connections of one thread to real servers, over stages that give and take little.
#include "transfer/connection/tls_stage.h"

#include <gtest/gtest.h>

#include <list>

#include "base/text.h"
#include "job_fixture.h"
#include "net/loop.h"
#include "support/certificates.h"
#include "support/nginx.h"
#include "support/scripted_server.h"

namespace vantlow::test {
namespace {

using namespace std::chrono_literals;

/// A stage that moves at most so many bytes, and of two calls answers one with "again".
class Trickle final : public net::Stage {
  public:
    Trickle(net::Stream& below, std::size_t most) : below_(below), most_(most) {}
    net::Step read(std::span<std::byte> into, Clock::time_point now) override {
        if (most_ == 0) return below_.read(into, now);
        if (++reads_ % 2 == 0) return net::Step::again_at(now);
        return below_.read(into.first(std::min(into.size(), most_)), now);
    }
    net::Step write(std::span<const std::byte> from, Clock::time_point now) override {
        if (most_ == 0) return below_.write(from, now);
        if (++writes_ % 2 == 0) return net::Step::again_at(now);
        return below_.write(from.first(std::min(from.size(), most_)), now);
    }

  private:
    net::Stream& below_;
    const std::size_t most_;  ///< 0: no limit
    unsigned reads_ = 0;
    unsigned writes_ = 0;
};

/// One connection that sends a text and takes everything until the end.
class Talk {
  public:
    Talk(net::Loop& loop, std::uint16_t port, TlsEngines& engines, const TlsEngines::Engine& engine,
         const TlsPlan& plan, std::string text, std::size_t most)
        : loop_(loop), text_(std::move(text)) {
        stream_ = loop.connect(*SocketAddress::from_literal("127.0.0.1", port), [this](const Result& result) {
            EXPECT_TRUE(result.ok()) << result.message();
            go_on();
        });
        trickle_.emplace(*stream_, most);
        tls_.emplace(engines, engine, plan, *trickle_);
    }
    [[nodiscard]] bool is_over() const { return over_; }
    [[nodiscard]] const std::string& heard() const { return heard_; }
    [[nodiscard]] const TlsStage& tls() const { return *tls_; }

  private:
    void go_on() {
        while (!over_ && write_some()) {
        }
        while (!over_ && read_some()) {
        }
    }
    bool write_some() {
        if (sent_ == text_.size()) return false;
        const net::Step step = tls_->write(std::as_bytes(std::span(text_)).subspan(sent_), loop_.now());
        if (step.state == net::Step::State::moved) sent_ += step.bytes;
        return goes_on(step, write_timer_);
    }
    bool read_some() {
        std::array<char, 40'000> room{};
        const net::Step step = tls_->read(std::as_writable_bytes(std::span(room)), loop_.now());
        if (step.state == net::Step::State::moved) heard_.append(room.data(), step.bytes);
        return goes_on(step, read_timer_);
    }
    bool goes_on(const net::Step& step, net::Timer& timer) {
        over_ = step.state == net::Step::State::closed || step.state == net::Step::State::failed;
        if (step.state == net::Step::State::again) net::wait_for(step, *stream_, timer, [this] { go_on(); });
        return step.state == net::Step::State::moved;
    }

    net::Loop& loop_;
    const std::string text_;
    std::size_t sent_ = 0;
    std::string heard_;
    bool over_ = false;
    net::Timer read_timer_{loop_.timers()};
    net::Timer write_timer_{loop_.timers()};
    std::unique_ptr<net::Stream> stream_;
    std::optional<Trickle> trickle_;
    std::optional<TlsStage> tls_;
};

class TlsStageTest : public JobTest {
  protected:
    void SetUp() override {
        if (!Certificates::available()) GTEST_SKIP() << Certificates::missing;
        if (!Nginx::available()) GTEST_SKIP() << Nginx::missing;
        certificates.emplace();
        certificates->make("good");
        loop = *net::make_loop();
        engines.emplace(&libraries.secur);
        plan.host = "localhost";
        plan.session_key = "localhost";
    }
    [[nodiscard]] std::string server_lines(std::uint16_t port, const std::string& more) const {
        return "listen 127.0.0.1:" + std::to_string(port) + " ssl;\nssl_certificate " +
               certificates->file("good.pem") + ";\nssl_certificate_key " + certificates->file("good.key") +
               ";\n" + more;
    }
    Talk& talk(std::uint16_t port, std::string text, std::size_t most = 0) {
        auto engine = engines->engine(trusted);
        EXPECT_TRUE(engine.ok()) << engine.failure().message();
        return talks.emplace_back(*loop, port, *engines, *engine, plan, std::move(text), most);
    }
    void run_all() {
        const auto until = Clock::now() + 60s;
        const auto is_over = [](const Talk& one) { return one.is_over(); };
        while (!std::ranges::all_of(talks, is_over) && Clock::now() < until)
            static_cast<void>(loop->run_one(100ms).ok());
        EXPECT_TRUE(std::ranges::all_of(talks, is_over));
    }

    std::optional<Certificates> certificates;
    std::optional<TlsEngines> engines;
    std::u16string trusted;
    TlsPlan plan;
    std::unique_ptr<net::Loop> loop;
    std::list<Talk> talks;
};

// A hundred connections, each of which sends more than sockets hold and gets it back from behind nginx.
TEST_F(TlsStageTest, ManyConnectionsOfOneThreadCarryBytesBothWays) {
    trusted = certificates->authority();
    ScriptedServer echo([](Exchange& exchange) {
        std::string body;
        const auto length = parse_decimal(exchange.request().field("Content-Length").value_or("0"));
        if (exchange.receive(static_cast<std::size_t>(length.value_or(0)), body))
            exchange.answer(200, "OK", body);
    });
    const std::uint16_t port = closed_port();
    const Nginx nginx(server_lines(port,
                                   "client_max_body_size 0; client_header_timeout 300; client_body_timeout "
                                   "300;\nlocation / { proxy_pass http://127.0.0.1:" +
                                       std::to_string(echo.port()) + "; }\n"));
    const std::string large = make_content(3, 3'000'000);
    const std::string small = make_content(4, 20'000);
    const auto request = [](const std::string& body) {
        return "POST /echo HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Length: " +
               std::to_string(body.size()) + "\r\n\r\n" + body;
    };
    for (int i = 0; i < 4; ++i) talk(port, request(large));
    for (int i = 0; i < 96; ++i) talk(port, request(small), i % 3 == 0 ? 37U : 1000U);
    run_all();
    std::size_t number = 0;
    for (const Talk& one : talks) {
        const std::string& body = number++ < 4 ? large : small;
        EXPECT_TRUE(one.tls().failure().ok()) << one.tls().failure().message();
        ASSERT_TRUE(one.heard().starts_with("HTTP/1.1 200")) << one.heard().substr(0, 200);
        EXPECT_TRUE(one.heard().ends_with("\r\n\r\n" + body)) << number << ": " << one.heard().size();
        ASSERT_TRUE(one.tls().facts());
        EXPECT_GE(one.tls().facts()->version, 12);
    }
}

TEST_F(TlsStageTest, FailuresAreToldAsTheBlockingFormTellsThem) {
    const std::uint16_t port = closed_port();
    const Nginx nginx(server_lines(port, ""));
    ScriptedServer plain([](Exchange& exchange) { exchange.send_raw("220 Not TLS\r\n"); }, {.raw = true});
    // These two have read the client's first words.
    ScriptedServer cutting(
        [](Exchange& exchange) {
            std::string words;
            exchange.receive(100, words);
            exchange.close();
        },
        {.raw = true});
    ScriptedServer resetting(
        [](Exchange& exchange) {
            std::string words;
            exchange.receive(100, words);
            exchange.reset();
        },
        {.raw = true});
    const std::string request = "GET / HTTP/1.0\r\n\r\n";
    const Talk& untrusted = talk(port, request, 5);
    trusted = certificates->authority();
    const Talk& other = talk(plain.port(), request);
    const Talk& cut = talk(cutting.port(), request);
    const Talk& reset = talk(resetting.port(), request);
    plan.host = "elsewhere.example";
    const Talk& wrong_name = talk(port, request);
    run_all();
    EXPECT_EQ(untrusted.tls().failure().code, Code::not_trusted) << untrusted.tls().failure().message();
    EXPECT_EQ(wrong_name.tls().failure().code, Code::not_trusted);
    EXPECT_NE(wrong_name.tls().failure().message().find("elsewhere.example"), std::string::npos)
        << wrong_name.tls().failure().message();
    EXPECT_EQ(other.tls().failure().code, Code::server_error);
    EXPECT_EQ(cut.tls().failure().code, Code::transient);
    EXPECT_NE(cut.tls().failure().message().find("handshake"), std::string::npos)
        << cut.tls().failure().message();
    EXPECT_EQ(reset.tls().failure().code, Code::transient);
    for (const Talk& one : talks) EXPECT_EQ(one.heard(), "");
}

}  // namespace
}  // namespace vantlow::test
