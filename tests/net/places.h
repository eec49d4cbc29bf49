// Where the network's promises are tried: this machine's loopback, and a simulated network.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "net/loop.h"
#include "support/fault_hook.h"
#include "support/network/simulated_network.h"
#include "support/network/stream_pump.h"

namespace vantlow::test {

using namespace std::chrono_literals;

/// Fails one kind of operation for as long as it is told to.
class FailWhile : public FaultHook {
  public:
    FailWhile(Operation kind, SocketFault fault) : kind_(kind), fault_(fault) {}
    int before(Operation operation, std::u16string_view, std::int64_t, std::int64_t) noexcept override {
        return operation == kind_ && left-- > 0 ? error_number(fault_) : 0;
    }
    std::atomic<int> left{0};

  private:
    const Operation kind_;
    const SocketFault fault_;
};

/// Two parties that reach each other.
class Place {
  public:
    Place() = default;
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    virtual ~Place() = default;

    virtual net::Network& server() = 0;
    virtual net::Network& client() = 0;
    /// With port 0.
    virtual SocketAddress server_address() = 0;
    virtual SocketAddress client_address() = 0;
    /// False: it was not so within ten seconds.
    virtual bool run_until(const std::function<bool()>& done) = 0;
    virtual void run_for(std::chrono::milliseconds time) = 0;
    /// The next so many accepts of the server, or the next connects of the client, find no descriptor.
    virtual void exhaust_server(int accepts) = 0;
    virtual void recover_server() = 0;
    virtual void exhaust_client() = 0;
};

/// One of the places, by its name.
class InPlace : public testing::TestWithParam<const char*> {
  protected:
    void SetUp() override;
    void TearDown() override { place.reset(); }

    /// A listener of the server, and its address.
    std::unique_ptr<net::Listener> listen(int backlog = 64);
    /// A connection; null when there is none.
    struct Pair {
        std::unique_ptr<StreamPump> client;
        std::unique_ptr<StreamPump> server;
    };
    Pair connect();

    std::unique_ptr<Place> place;
};

}  // namespace vantlow::test
