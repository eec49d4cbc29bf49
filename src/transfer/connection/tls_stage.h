// The stage that makes a connection secret, for those who cannot wait and for threads that do.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "base/log.h"
#include "net/stage.h"
#include "transfer/connection/socket_stream.h"
#include "transfer/connection/tls.h"

namespace vantlow {

/// TLS (RFC 8446, RFC 5246) as a client over another stage. The first read or write shakes hands, and every
/// one of them says `again` until that is done; only then do its caller's own bytes go. Meanwhile a write may
/// want to be readable, so who reads and writes repeats both when one is woken. A write takes one record at
/// most, and counts it when all of its encrypted bytes went below: nobody has to see to a rest. Encrypted
/// bytes that wait for room are bounded. One thread. Nothing here waits but one: SChannel may fetch a missing
/// issuer's certificate from the network, once for an engine.
class TlsStage final : public net::Stage {
  public:
    /// `below` and `engines` outlive it. `host` and `session_key` must be filled in the plan.
    TlsStage(TlsEngines& engines, TlsEngines::Engine engine, const TlsPlan& plan, net::Stage& below);
    /// Tells the server (close_notify) as far as the stage below takes that at once.
    ~TlsStage() override;
    /// The stop that ends what the library itself waits for (that certificate), and steps that go on without
    /// a pause; null: none does.
    void attach(const StopSource* stop) noexcept { stop_ = stop; }

    /// The handshake alone: `moved`, without bytes, once it is done.
    net::Step connect(Clock::time_point now);
    net::Step read(std::span<std::byte> into, Clock::time_point now) override;
    net::Step write(std::span<const std::byte> from, Clock::time_point now) override;

    /// The agreement that the handshake came to; none before.
    [[nodiscard]] const std::optional<VantlowTlsFacts>& facts() const noexcept { return facts_; }
    /// Why a step failed, with the library's sentence: `not_trusted`, `server_error` where the two sides have
    /// nothing in common, `transient` else. Ok before.
    [[nodiscard]] const Result& failure() const noexcept { return failure_; }

  private:
    static ptrdiff_t receive_below(void* self, void* into, std::size_t size) noexcept;
    static int send_below(void* self, const void* from, std::size_t size) noexcept;
    /// Sends what waits; `moved` when nothing is left.
    net::Step send_unsent();
    /// Goes on with the handshake; `moved` when it is done.
    net::Step shake_hands();
    net::Step failed(ptrdiff_t answer);
    [[nodiscard]] net::Step broken() const;

    const SecurTable& library_;
    TlsEngines::Engine engine_;
    net::Stage& below_;
    const StopSource* stop_ = nullptr;
    Clock::time_point now_{};           ///< of the step under way
    net::Step awaited_{};               ///< the stage's below last "again"
    std::optional<net::Step> fault_{};  ///< the stage's below
    std::vector<std::byte> unsent_;     ///< encrypted
    std::size_t sent_ = 0;              ///< of unsent_
    std::size_t taken_ = 0;             ///< of the caller's bytes: those that are in unsent_
    std::array<char, 400> text_{};      ///< the library's sentence
    std::optional<VantlowTlsFacts> facts_;
    bool is_connected_ = false;  ///< and the last word of the handshake is sent
    Result failure_;
    VantlowTls* tls_ = nullptr;  ///< null without memory
};

/// TLS on a connected socket, for a thread that waits. Used by one thread at a time; the stop may come from
/// any.
class TlsStream final : public StageStream {
  public:
    /// `engines` and the socket outlive it. `host` and `session_key` must be filled in the plan.
    TlsStream(TlsEngines& engines, TlsEngines::Engine engine, const TlsPlan& plan, TcpSocket& socket)
        : StageStream(tls_, socket), below_(socket), tls_(engines, std::move(engine), plan, below_) {}

    /// Whose stop ends operations, and who is told of the agreement and of what went wrong; null: nobody.
    void attach(const StopSource* stop, LogSink* log) noexcept;
    /// Shakes hands before `until`: `not_trusted` and why, `server_error` when the two sides have nothing in
    /// common, `transient`, or the stop's reason.
    Result connect(Clock::time_point until);
    Moved read(std::span<std::byte> into, Clock::time_point until) override;
    Result write(std::span<const std::byte> from, Clock::time_point until) override;

    /// An earlier session went on: nothing was negotiated anew.
    [[nodiscard]] bool is_resumed() const noexcept { return tls_.facts() && tls_.facts()->resumed != 0; }
    /// True while the peer neither ended the connection nor sent anything for the caller.
    [[nodiscard]] bool is_quiet();

  private:
    SocketStage below_;
    TlsStage tls_;
    LogSink* log_ = nullptr;
};

}  // namespace vantlow
