// Ports that a router passes on, with a router of the test's.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "bt/port_mapper.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;
using Transport = PortMapper::Transport;

/// The router as the library has it: one for the process, as its operations have no other context.
struct TestRouter {
    Mutex mutex;
    std::map<PortMapper::Port, int> open;  ///< how often each was asked for
    std::vector<std::uint16_t> closed;
    int searches = 0;
    int firewalls = 0;  ///< searches for one
    bool has_address = true;
    bool is_there = true;
    std::uint16_t refuses = 0;
    std::uint32_t grants = 3600;
    std::chrono::milliseconds answers_after{0};  ///< orders to close
};
TestRouter* router = nullptr;

PortmapTable table_of_router() {
    PortmapTable table;
    table.PortMap_Find = [](int (*)(void*), void*) -> VantlowRouter* {
        const MutexLock guard(router->mutex);
        ++router->searches;
        return router->is_there ? reinterpret_cast<VantlowRouter*>(router) : nullptr;
    };
    table.PortMap_FindFirewall = [](int (*)(void*), void*, int* has_address) -> VantlowRouter* {
        const MutexLock guard(router->mutex);
        ++router->firewalls;
        *has_address = router->has_address ? 1 : 0;
        return router->has_address && router->is_there ? reinterpret_cast<VantlowRouter*>(router) : nullptr;
    };
    table.PortMap_Forget = [](VantlowRouter*) {};
    table.PortMap_Describe = [](const VantlowRouter*, char* protocol, char* address, std::size_t) {
        std::strcpy(protocol, "UPnP");
        std::strcpy(address, "192.0.2.1");
    };
    table.PortMap_Open = [](VantlowRouter*, int protocol, std::uint16_t port, std::uint32_t, const char*,
                            char* why, std::size_t) -> std::uint32_t {
        const MutexLock guard(router->mutex);
        std::strcpy(why, port == router->refuses ? "No." : "");
        if (port == router->refuses) return 0;
        ++router->open[{static_cast<Transport>(protocol), port}];
        return router->grants;
    };
    table.PortMap_Close = [](VantlowRouter*, int, std::uint16_t port) {
        std::this_thread::sleep_for(router->answers_after);
        const MutexLock guard(router->mutex);
        router->closed.push_back(port);
        return 1;
    };
    return table;
}

class PortMapperTest : public testing::Test {
  protected:
    PortMapperTest() { router = &here; }
    ~PortMapperTest() override { router = nullptr; }
    template <class Holds>
    bool until(const Holds& holds) {
        const auto end = Clock::now() + 20s;
        for (;;) {
            {
                const MutexLock guard(here.mutex);
                if (holds()) return true;
            }
            if (Clock::now() > end) return false;
            std::this_thread::sleep_for(5ms);
        }
    }
    bool says(const PortMapper& mapper, const PortMapper::Port& port, const char* text, bool is_open) {
        return until([&] {
            const auto state = mapper.state(port);
            return state.is_open == is_open && state.text.find(text) != std::string::npos;
        });
    }

    TestRouter here;
    const PortmapTable table = table_of_router();
    const PortMapper::Port peers{Transport::tcp, 5000};
    const PortMapper::Port node{Transport::udp, 5001};
};

TEST_F(PortMapperTest, PassesOnWhatIsHeldAndTakesBackTheRest) {
    here.refuses = 5002;
    {
        PortMapper mapper(table, PortMapper::Calls::ipv4);
        HeldPort one(mapper, peers);
        HeldPort again(mapper, peers);
        HeldPort udp(mapper, node);
        EXPECT_TRUE(says(mapper, peers, "The router (UPnP, 192.0.2.1) passes TCP port 5000 on", true));
        EXPECT_TRUE(says(mapper, node, "UDP port 5001", true));
        const HeldPort refused(mapper,
                               {Transport::tcp, 5002});  // the last word of this router: it has the rest
        EXPECT_TRUE(says(mapper, {Transport::tcp, 5002}, "No.", false));
        EXPECT_TRUE(until([&] { return here.open[peers] == 1; })) << "once, for whoever holds it";
        one = {};
        again = HeldPort();
        EXPECT_TRUE(until([&] { return here.closed == std::vector<std::uint16_t>{5000}; }));
        EXPECT_EQ(mapper.state(peers), PortMapper::State());
    }
    EXPECT_EQ(here.closed, (std::vector<std::uint16_t>{5000, 5001})) << "and what is left at the end";
}

TEST_F(PortMapperTest, AsksAgainInTimeAndLooksForARouterThatWasNotThere) {
    here.is_there = false;
    here.grants = 2;
    PortMapper mapper(table, PortMapper::Calls::ipv4, {.lease = 2s, .again = 1s});
    const HeldPort held(mapper, peers);
    EXPECT_TRUE(says(mapper, peers, "No router", false));
    {
        const MutexLock guard(here.mutex);
        here.is_there = true;
    }
    EXPECT_TRUE(says(mapper, peers, "passes TCP port 5000", true));
    EXPECT_TRUE(until([&] { return here.open[peers] >= 3; })) << "each second";
    EXPECT_LE(here.open[peers], 4);
    const PortmapTable none;
    PortMapper without(none, PortMapper::Calls::ipv4);
    const HeldPort vain(without, peers);
    EXPECT_NE(vain.state().text.find("libportmap"), std::string::npos);
}

// Of a router that went silent each order takes its time, and both objects have the same few seconds.
TEST_F(PortMapperTest, ASilentRouterHoldsTheEndUpForOneTimeAlone) {
    here.answers_after = 400ms;
    std::optional<PortMapper> four;
    std::optional<PortMapper> six;
    four.emplace(table, PortMapper::Calls::ipv4, PortMapper::Times{.goodbye = 1s});
    six.emplace(table, PortMapper::Calls::ipv6, PortMapper::Times{.goodbye = 1s});
    for (PortMapper* mapper : {&*four, &*six}) {
        for (std::uint16_t port = 5000; port < 5006; ++port) mapper->hold({Transport::tcp, port});
        for (std::uint16_t port = 5000; port < 5006; ++port)
            ASSERT_TRUE(says(*mapper, {Transport::tcp, port}, "TCP port", true));
    }
    const auto before = Clock::now();
    four->end();
    six->end();
    four->hold({Transport::tcp, 5010});
    EXPECT_LT(Clock::now() - before, 300ms);
    four.reset();
    six.reset();
    EXPECT_LT(Clock::now() - before, 1900ms) << "one time, and the order that had begun";
    EXPECT_GE(here.closed.size(), 4U);
    EXPECT_FALSE(here.open.contains({Transport::tcp, 5010}));
}

TEST_F(PortMapperTest, OpensTheFirewallOfIpv6WhereThisMachineHasAnAddressOfIt) {
    here.has_address = false;
    here.refuses = 5002;
    {
        PortMapper mapper(table, PortMapper::Calls::ipv6, {.again = 1s});
        const HeldPort held(mapper, peers);
        EXPECT_TRUE(until([&] { return here.firewalls >= 2; })) << "it may get one";
        EXPECT_EQ(mapper.state(peers), PortMapper::State()) << "nothing to say";
        {
            const MutexLock guard(here.mutex);
            here.has_address = true;
            here.is_there = false;
        }
        EXPECT_TRUE(says(mapper, peers, "opens its firewall for IPv6", false));
        {
            const MutexLock guard(here.mutex);
            here.is_there = true;
        }
        EXPECT_TRUE(says(mapper, peers, "lets calls by IPv6 in for TCP port 5000", true));
        const HeldPort refused(mapper, {Transport::tcp, 5002});
        EXPECT_TRUE(says(mapper, {Transport::tcp, 5002}, "is not opened for calls by IPv6", false));
        EXPECT_EQ(here.searches, 0);
    }
    EXPECT_EQ(here.closed, std::vector<std::uint16_t>{5000});
}

}  // namespace
}  // namespace vantlow
