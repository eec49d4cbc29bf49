#include "platform/event_loop.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/stop.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;
using State = ProcessAnswer::State;

TEST(EventLoop, TakesRequestsUpInTurnAndSaysWhenItIsBusy) {
    const test::TempFolder folder;
    int requests = 0;
    EventLoop::Events events;
    events.on_request = [&requests](const std::string& request, const EventLoop::Events::Reply& reply) {
        ++requests;
        reply(request + " done");
    };
    std::promise<std::string> address;
    std::promise<EventLoop*> opened;
    std::thread owner([&] {
        std::string error;
        const auto loop = EventLoop::open(folder.path(u"data"), EventLoop::Role::helper, events, error);
        ASSERT_TRUE(loop) << error;
        loop->post([] { std::this_thread::sleep_for(silence_patience + 1s); });
        address.set_value(loop->address());
        opened.set_value(loop.get());
        loop->run();
    });
    const std::string where = address.get_future().get();
    EventLoop* const loop = opened.get_future().get();
    const StopSource stop;
    int told = 0;
    const auto on_busy = [&told](std::int64_t process) { told += process > 0 ? 1 : 100; };
    const auto ask = [&](std::string_view request) { return ask_process(where, request, stop, on_busy); };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(ask("first").answer, "first done");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, silence_patience);
    EXPECT_EQ(told, 1);
    EXPECT_EQ(ask("second").answer, "second done");
    EXPECT_EQ(told, 1) << "it is not busy any more";
    loop->quit();
    owner.join();
    EXPECT_EQ(ask("third").state, State::not_there);
    EXPECT_EQ(requests, 2);
}

}  // namespace
}  // namespace vantlow
