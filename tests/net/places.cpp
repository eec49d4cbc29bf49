#include "net/places.h"

namespace vantlow::test {
namespace {

class Loopback final : public Place {
  public:
    Loopback(std::string_view address, const net::LoopOptions& options)
        : address_(*SocketAddress::from_literal(address, 0)), loop_(*net::make_loop(options)) {}

    net::Network& server() override { return *loop_; }
    net::Network& client() override { return *loop_; }
    SocketAddress server_address() override { return address_; }
    SocketAddress client_address() override { return address_; }
    bool run_until(const std::function<bool()>& done) override {
        const auto end = Clock::now() + 30s;  // a thousand connections take five under Wine
        while (!done() && Clock::now() < end) {
            if (!loop_->run_one(100ms).ok()) return false;
        }
        return done();
    }
    void run_for(std::chrono::milliseconds time) override {
        const auto end = Clock::now() + time;
        while (Clock::now() < end) static_cast<void>(loop_->run_one(5ms).ok());
    }
    void exhaust_server(int accepts) override { fail(Operation::accept, accepts); }
    void recover_server() override { hook_in_place_.reset(); }
    void exhaust_client() override { fail(Operation::make_socket, 1); }

  private:
    void fail(Operation operation, int times) {
        hook_ = std::make_unique<FailWhile>(operation, SocketFault::no_descriptors);
        hook_->left = times;
        hook_in_place_ = std::make_unique<HookInPlace>(*hook_);
    }

    SocketAddress address_;
    std::unique_ptr<net::Loop> loop_;
    std::unique_ptr<FailWhile> hook_;
    std::unique_ptr<HookInPlace> hook_in_place_;
};

class Simulated final : public Place {
  public:
    net::Network& server() override { return server_; }
    net::Network& client() override { return client_; }
    SocketAddress server_address() override { return server_.address(); }
    SocketAddress client_address() override { return client_.address(); }
    bool run_until(const std::function<bool()>& done) override { return internet_.run_until(done, 10s); }
    void run_for(std::chrono::milliseconds time) override { internet_.run_for(time); }
    void exhaust_server(int) override { server_.traits.descriptors = server_.open_descriptors(); }
    void recover_server() override { server_.traits.descriptors = 4096; }
    void exhaust_client() override { client_.traits.descriptors = client_.open_descriptors(); }

  private:
    SimulatedInternet internet_{1};
    SimulatedHost& server_ = internet_.add_host("192.0.2.1");
    SimulatedHost& client_ = internet_.add_host("192.0.2.2");
};

}  // namespace

void InPlace::SetUp() {
    const std::string_view name = GetParam();
    if (name == "simulated")
        place = std::make_unique<Simulated>();
    else if (name == "loopback_ipv6")
        place = std::make_unique<Loopback>("::1", net::LoopOptions{});
    else
        place = std::make_unique<Loopback>("127.0.0.1", net::LoopOptions{name == "loopback_kept"});
    if (name == "loopback_ipv6" && !place->server().listen(place->server_address(), 1).ok()) {
        GTEST_SKIP() << "This machine has no IPv6.";
    }
}

std::unique_ptr<net::Listener> InPlace::listen(int backlog) {
    auto made = place->server().listen(place->server_address(), backlog);
    EXPECT_TRUE(made.ok()) << made.failure().message();
    return made.ok() ? *std::move(made) : nullptr;
}

InPlace::Pair InPlace::connect() {
    Pair pair;
    const auto listener = listen();
    if (listener == nullptr) return pair;
    std::unique_ptr<net::Stream> accepted;
    bool connected = false;
    listener->accept([&](auto taken) {
        EXPECT_TRUE(taken.ok()) << taken.failure().message();
        if (taken.ok()) accepted = *std::move(taken);
    });
    auto stream = place->client().connect(*listener->address(), [&](const Result& result) {
        EXPECT_TRUE(result.ok()) << result.message();
        connected = true;
    });
    EXPECT_FALSE(connected);
    EXPECT_TRUE(place->run_until([&] { return accepted != nullptr && connected; }));
    pair.client = std::make_unique<StreamPump>(place->client(), std::move(stream));
    pair.server = std::make_unique<StreamPump>(place->server(), std::move(accepted));
    return pair;
}

}  // namespace vantlow::test
