#include <gtest/gtest.h>

#include <semaphore>
#include <thread>

#include "platform/event_loop.h"
#include "platform/stop.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

// A host that turns the loop only when it is woken, as a window does, and from within itself, as a dialog
// does.
TEST(HostedLoop, IsWokenForEverythingAndEndsItsHost) {
    const test::TempFolder folder;
    EventLoop* loop = nullptr;
    int nested = 0;
    EventLoop::Events events;
    events.on_request = [&](const std::string& request, const EventLoop::Events::Reply& reply) {
        loop->post([&nested] { ++nested; });
        EXPECT_TRUE(loop->turn());
        reply(request + " done");
    };
    std::string error;
    const auto opened = EventLoop::open(folder.path(u"data"), EventLoop::Role::helper, events, error);
    ASSERT_TRUE(opened) << error;
    loop = opened.get();
    int before = 0;
    loop->post([&before] { ++before; });
    std::counting_semaphore<1000> woken(0);
    loop->be_hosted({[&woken] { woken.release(); }, nullptr});
    std::thread other([address = loop->address(), loop] {
        const StopSource stop;
        EXPECT_EQ(ask_process(address, "question", stop).answer, "question done");
        loop->quit();
    });
    bool goes_on = true;
    while (goes_on) {
        ASSERT_TRUE(woken.try_acquire_for(20s)) << "nobody told the host";
        goes_on = loop->turn();
    }
    other.join();
    EXPECT_EQ(before, 1) << "what was posted before there was a host";
    EXPECT_EQ(nested, 1);
}

}  // namespace
}  // namespace vantlow
