// The endpoint of the control API: HTTP/1.1 and WebSocket (RFC 9112, RFC 6455), in the clear or over TLS, on
// a thread of its own. It carries requests to whoever works through them, and their answers back.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/rpc/control_settings.h"
#include "base/result.h"
#include "rpc/methods.h"

namespace vantlow {

/// How long a connection may take over each of its steps.
struct EndpointPatience {
    std::chrono::milliseconds handshake{10000};  ///< of TLS
    std::chrono::milliseconds idle{75000};       ///< until the head of a request is there
    std::chrono::milliseconds transfer{60000};   ///< for its body, and again until its answer is taken
    std::chrono::milliseconds silence{120000};   ///< of a WebSocket, which is asked for a sign halfway
};

class Endpoint {
  public:
    /// Called once with a run whose calls are all answered; any thread, also when the endpoint is gone.
    using Answered = std::function<void(rpc::Run)>;
    /// Takes a request and returns soon. Called on the endpoint's thread.
    using Handler = std::function<void(rpc::Run, Answered)>;

    /// Listens at all addresses of the configuration, or fails and says at which it cannot.
    static Outcome<std::unique_ptr<Endpoint>> open(const ControlConfig& config, Handler handler,
                                                   EndpointPatience patience = {});

    Endpoint() = default;
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;
    /// Ends all connections; answers on their way are sent, for half a second at most. The handler is not
    /// called any more.
    virtual ~Endpoint() = default;

    /// "127.0.0.1:6800", for each address.
    [[nodiscard]] virtual const std::vector<std::string>& places() const noexcept = 0;
    /// Sends a notification to all WebSockets that have shown the secret. Any thread. A session that does not
    /// read is ended.
    virtual void notify(std::string text) = 0;
};

}  // namespace vantlow
