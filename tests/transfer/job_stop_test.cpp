// Stopping: at any moment, within a fifth of a second.
#include "job_fixture.h"

namespace vantlow::test {
namespace {

constexpr std::chrono::milliseconds budget{200};

class TimedStopTest : public JobTest {
  protected:
    /// Stops the job as soon as `reached` is true and looks how long it takes to end.
    void stop_when(const std::u16string& address, const std::function<bool()>& reached, int connections = 1) {
        auto job = make_job(address, connections);
        Run running(*this, *job, {});
        const auto until = Clock::now() + std::chrono::seconds(10);
        while (!reached() && Clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ASSERT_TRUE(reached()) << log.all();
        const auto asked = Clock::now();
        running.thread().stop();
        EXPECT_TRUE(running.wait(std::chrono::seconds(5)));
        EXPECT_LE(Clock::now() - asked, budget);
        EXPECT_EQ(running.end().result.code, Code::stopped);
    }
};

TEST_F(TimedStopTest, WhileAServerDribblesItsHeader) {
    ScriptedServer server([](Exchange& exchange) {
        exchange.send_slowly("HTTP/1.1 200 OK\r\nX-Slow: yes yes yes yes yes yes", 1,
                             std::chrono::milliseconds(100));
    });
    stop_when(server.url16("/x"), [&] { return server.request_count() > 0; });
}

TEST_F(TimedStopTest, WhileABodyStallsOrFlows) {
    const std::string content = make_content(5, 3'000'000);
    FileServer server(FileResource{.content = content, .hold_after = 1000});
    stop_when(server.url16(), [&] { return server.server().body_sent() >= 1000; });
    server.set("/flow.bin", FileResource{.content = content, .rate = 3'000'000});
    stop_when(
        server.url16("/flow.bin"), [&] { return server.server().body_sent() >= 300'000; }, 4);
}

TEST_F(TimedStopTest, WhileItWaitsBeforeARetry) {
    auto job = make_job(to_utf16("http://127.0.0.1:" + std::to_string(closed_port()) + "/x"));
    job->retry_delay = 60;
    Run running(*this, *job, {});
    ASSERT_TRUE(log.wait_for("Awaiting 60 seconds to retry."));
    const auto asked = Clock::now();
    running.thread().stop();
    EXPECT_TRUE(running.wait(std::chrono::seconds(5)));
    EXPECT_LE(Clock::now() - asked, budget);
}

TEST_F(TimedStopTest, WhileItWaitsForAPlaceAtTheServerOrForItsSpeed) {
    set(setting::max_per_server, 1);
    FileServer server(FileResource{.content = make_content(6, 100'000), .hold_after = 10});
    auto first = make_job(server.url16());
    Run running(*this, *first, {});
    ASSERT_TRUE(log.wait_for("Start receiving data."));
    stop_when(server.url16("/file.bin?second"), [&] { return true; });
    EXPECT_EQ(server.server().connection_count(), 1U);
    running.thread().stop();
    running.end();

    set(setting::max_per_server, 16);
    set(setting::limit, 1);
    set(setting::speed_limit, 10);
    server.set("/slow.bin", FileResource{.content = make_content(6, 100'000)});
    stop_when(server.url16("/slow.bin"), [&] { return log.count("Start receiving data.") >= 2; });
}

TEST(TimedResolver, ALookUpThatHangsKeepsNobody) {
    start_sockets();
    std::promise<void> released;
    std::shared_future<void> release = released.get_future().share();
    Resolver resolver([release](const std::string&, std::uint16_t) {
        release.wait();
        return NameAnswer{};
    });
    StopSource stop;
    auto waiting =
        std::async(std::launch::async, [&] { return resolver.resolve("hangs.example", 80, stop); });
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    const auto asked = Clock::now();
    stop.request();
    EXPECT_EQ(waiting.get().failure().code, Code::stopped);
    EXPECT_LE(Clock::now() - asked, budget);
    EXPECT_FALSE(resolver.settle(std::chrono::milliseconds(20))) << "the look-up is still stuck";
    released.set_value();
    EXPECT_TRUE(resolver.settle(std::chrono::seconds(5)));
}

}  // namespace
}  // namespace vantlow::test
