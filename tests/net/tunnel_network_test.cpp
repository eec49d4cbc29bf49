// Streams through proxies, on a simulated network: the proxy says what a test tells it to.
#include <gtest/gtest.h>

#include "base/codes.h"
#include "net/places.h"
#include "transfer/connection/tunnel_network.h"

namespace vantlow::test {
namespace {

using namespace std::string_literals;

/// A proxy that hears some bytes, answers, and so on; then it echoes. One script for each connection.
class ScriptedProxy {
  public:
    struct Turn {
        std::size_t hears;  ///< bytes
        std::string says;
    };
    ScriptedProxy(SimulatedHost& host, std::vector<std::vector<Turn>> scripts)
        : host_(host), scripts_(std::move(scripts)), listener_(*host.listen(host.address(), 8)) {
        accept();
    }
    [[nodiscard]] SocketAddress address() const { return *listener_->address(); }
    /// All that was heard before the echo, over each connection.
    std::vector<std::string> heard;

  private:
    struct Link {
        std::unique_ptr<StreamPump> pump;
        std::unique_ptr<net::Timer> looks;
        std::size_t turn = 0;
        std::size_t at = 0;
    };
    void accept() {
        listener_->accept([this](auto taken) {
            links_.push_back({std::make_unique<StreamPump>(host_, *std::move(taken)),
                              std::make_unique<net::Timer>(host_.timers())});
            heard.emplace_back();
            look(links_.size() - 1);
            accept();
        });
    }
    // Answers a byte at a time, as networks may.
    void look(std::size_t number) {
        Link& link = links_[number];
        const std::vector<Turn>& script = scripts_[std::min(number, scripts_.size() - 1)];
        std::size_t wanted = 0;
        for (std::size_t turn = 0; turn <= link.turn && turn < script.size(); ++turn)
            wanted += script[turn].hears;
        if (link.turn == script.size()) {
            link.pump->echo();
            return link.pump->receive();
        }
        link.pump->receive(wanted);
        heard[number] = link.pump->received();
        if (link.pump->received().size() == wanted) {
            const std::string& says = script[link.turn].says;
            if (link.at < says.size()) link.pump->send(says.substr(link.at++, 1));
            if (link.at == says.size()) {
                ++link.turn;
                link.at = 0;
            }
        }
        link.looks->start(host_.now() + 1ms, [this, number] { look(number); });
    }

    SimulatedHost& host_;
    const std::vector<std::vector<Turn>> scripts_;
    std::unique_ptr<net::Listener> listener_;
    std::vector<Link> links_;
};

/// A login that has an answer for one challenge, as most have.
class TestLogin : public HttpLogin {
  public:
    void connected(bool) override {}
    std::string line(std::string_view, std::string_view) override { return knows_ ? "Test answer" : ""; }
    [[nodiscard]] std::string shown() const override { return {}; }
    bool challenged(const std::vector<std::string>&, bool) override { return !std::exchange(knows_, true); }
    void accepted() override {}
    [[nodiscard]] std::string owner() const override { return {}; }
    [[nodiscard]] std::string trouble() const override { return {}; }

  private:
    bool knows_ = false;
};

TEST(TunnelNetworkTest, OpensTunnelsByEveryHandshakeAndNamesNothingButAddresses) {
    using Turns = std::vector<std::vector<ScriptedProxy::Turn>>;
    const std::string connect = "CONNECT 192.0.2.9:6881 HTTP/1.1\r\n\r\n";
    const std::string answered =
        "CONNECT 192.0.2.9:6881 HTTP/1.1\r\nProxy-Authorization: Test answer\r\n\r\n";
    const std::string challenge = "HTTP/1.1 407 No\r\nProxy-Authenticate: Test\r\nContent-Length: 4\r\n";
    const struct {
        const char* name;
        int kind;
        bool has_login;
        const char* to;
        Turns says;
        std::vector<std::string> heard;
        bool opens = true;
        bool is_trouble = false;  ///< of the proxy, not of the peer
    } rows[] = {
        {"SOCKS5",
         ProxyPlan::socks5,
         false,
         "192.0.2.9",
         {{{3, "\5\0"s}, {10, "\5\0\0\1\1\2\3\4\0\5"s}}},
         {"\5\1\0\5\1\0\1\xC0\0\2\x09\x1A\xE1"s}},
        {"SOCKS5 with a login, IPv6 and a long reply",
         ProxyPlan::socks5,
         true,
         "2001:db8::1",
         {{{4, "\5\2"s}, {9, "\1\0"s}, {22, "\5\0\0\3\4abcd\0\5"s}}},
         {"\5\2\2\0\1\2me\4word\5\1\0\4\x20\1\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\1\x1A\xE1"s}},
        {"SOCKS4",
         ProxyPlan::socks4,
         false,
         "192.0.2.9",
         {{{9, "\0\x5A\0\0\0\0\0\0"s}}},
         {"\4\1\x1A\xE1\xC0\0\2\x09\0"s}},
        {"SOCKS4 knows no IPv6", ProxyPlan::socks4, false, "2001:db8::1", {{{9, ""}}}, {""}, false},
        {"CONNECT",
         ProxyPlan::http,
         false,
         "192.0.2.9",
         {{{connect.size(), "HTTP/1.1 200 Yes\r\nVia: x\r\n\r\n"}}},
         {connect}},
        {"CONNECT with a login, over the same connection",
         ProxyPlan::http_tunnel,
         true,
         "192.0.2.9",
         {{{connect.size(), challenge + "\r\nbody"}, {answered.size(), "HTTP/1.1 200 Yes\r\n\r\n"}}},
         {connect + answered}},
        {"CONNECT with a login, over another connection",
         ProxyPlan::http_tunnel,
         true,
         "192.0.2.9",
         {{{connect.size(), challenge + "Connection: close\r\n\r\nbody"}},
          {{answered.size(), "HTTP/1.1 200 Yes\r\n\r\n"}}},
         {connect, answered}},
        {"CONNECT with an answer of 60 KiB",
         ProxyPlan::http_tunnel,
         false,
         "192.0.2.9",
         {{{connect.size(), "HTTP/1.1 200 Yes\r\nVia: " + std::string(60 * 1024, 'x') + "\r\n\r\n"}}},
         {connect}},
        {"the peer cannot be reached",
         ProxyPlan::socks5,
         false,
         "192.0.2.9",
         {{{3, "\5\0"s}, {10, "\5\4\0\1\0\0\0\0\0\0"s}}},
         {"\5\1\0\5\1\0\1\xC0\0\2\x09\x1A\xE1"s},
         false},
        {"a wrong password",
         ProxyPlan::socks5,
         true,
         "192.0.2.9",
         {{{4, "\5\2"s}, {9, "\1\1"s}}},
         {"\5\2\2\0\1\2me\4word"s},
         false,
         true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto begun = std::chrono::steady_clock::now();
        SimulatedInternet internet(1);
        SimulatedHost& here = internet.add_host("192.0.2.1");
        ScriptedProxy proxy(internet.add_host("192.0.2.2"), row.says);
        ProxyPlan plan;
        plan.kind = row.kind;
        if (row.has_login) {
            plan.user = "me";
            plan.password = "word";
            plan.make_login = [] { return std::make_unique<TestLogin>(); };
        }
        std::vector<std::string> troubles;
        // Nobody is at the first address.
        TunnelNetwork network(here, plan, {*SocketAddress::from_literal("192.0.2.2", 9), proxy.address()},
                              60s, [&](const Result& result) { troubles.push_back(result.message()); });
        const auto to = *SocketAddress::from_literal(row.to, 6881);
        std::optional<Result> result;
        auto stream = network.connect(to, [&](const Result& done) { result = done; });
        EXPECT_FALSE(result);
        ASSERT_TRUE(internet.run_until([&] { return result.has_value(); }, 100s));
        EXPECT_EQ(result->ok(), row.opens) << result->message();
        // Of real time: one byte is no more work than the next.
        EXPECT_LT(std::chrono::steady_clock::now() - begun, 5s);
        EXPECT_EQ(proxy.heard, row.heard);
        EXPECT_EQ(troubles.size(), row.is_trouble ? 1U : 0U);
        if (!result->ok()) continue;
        EXPECT_EQ(stream->peer_address(), to);
        EXPECT_FALSE(stream->local_address());
        StreamPump pump(here, std::move(stream));
        pump.send(std::string(100'000, 'x'), true);
        pump.receive();
        EXPECT_TRUE(internet.run_until([&] { return pump.ended(); }, 60s));
        EXPECT_EQ(pump.received(), std::string(100'000, 'x'));
    }
}

TEST(TunnelNetworkTest, NothingGoesAroundAndAFailingProxyIsSaid) {
    SimulatedInternet internet(2);
    SimulatedHost& here = internet.add_host("192.0.2.1");
    std::vector<std::string> troubles;
    ProxyPlan plan;
    plan.kind = ProxyPlan::socks5;
    internet.add_host("192.0.2.2");
    TunnelNetwork network(here, plan, {*SocketAddress::from_literal("192.0.2.2", 1080)}, 60s,
                          [&](const Result& result) { troubles.push_back(result.message()); });
    EXPECT_FALSE(network.listen(here.address(), 1).ok());
    EXPECT_FALSE(network.bind(here.address()).ok());
    EXPECT_FALSE(network.join(*SocketAddress::from_literal("239.192.152.143", 6771)).ok());
    std::optional<Result> result;
    std::unique_ptr<net::Stream> stream;
    // Whoever is told may end the stream then.
    stream = network.connect(*SocketAddress::from_literal("192.0.2.9", 80), [&](const Result& done) {
        result = done;
        stream.reset();
    });
    EXPECT_TRUE(internet.run_until([&] { return result.has_value(); }, 30s));
    EXPECT_FALSE(result->ok());
    EXPECT_EQ(troubles.size(), 1U);
    // One that is ended earlier tells nothing.
    result.reset();
    stream = network.connect(*SocketAddress::from_literal("192.0.2.9", 80),
                             [&](const Result& done) { result = done; });
    stream.reset();
    internet.run_for(30s);
    EXPECT_FALSE(result);
    EXPECT_EQ(here.open_descriptors(), 0U);
}

}  // namespace
}  // namespace vantlow::test
