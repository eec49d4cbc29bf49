// Message stream encryption as a stage of a connection that does not wait.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bt/mse.h"
#include "net/stage.h"

namespace vantlow {

/// Makes the exchange before the first byte, then encrypts as it was agreed. Reads and writes answer `again`
/// until the exchange is over, and fail with `unsupported` where the other side does not speak it, and when
/// it takes longer than MseExchange::patience. The stage below, the library and the object's thread are as of
/// any stage.
class MseStage final : public net::Stage {
  public:
    /// The side that calls; `payload` goes with the request.
    MseStage(net::Stage& below, const SecurTable& libraries, const InfoHash& torrent, std::uint32_t setting,
             std::string payload)
        : below_(below), exchange_(libraries, buffer_, torrent, setting, std::move(payload)) {}
    /// The side that is called, for any of these torrents. What came with the request is read first.
    MseStage(net::Stage& below, const SecurTable& libraries, std::vector<InfoHash> torrents,
             std::uint32_t setting)
        : below_(below), exchange_(libraries, buffer_, std::move(torrents), setting) {}

    net::Step read(std::span<std::byte> into, Clock::time_point now) override;
    net::Step write(std::span<const std::byte> from, Clock::time_point now) override;

    /// Goes on with the exchange: `moved` once it is over. What came behind it is read then without the stage
    /// below.
    net::Step agree(Clock::time_point now);
    /// Bytes that were read already, as where the first ones decided that this is no plain connection.
    void take(std::string_view bytes) { buffer_.append(bytes); }
    /// As MseExchange::refuse_short_secret().
    void refuse_short_secret() noexcept { exchange_.refuse_short_secret(); }
    [[nodiscard]] bool is_agreed() const noexcept { return is_agreed_; }
    /// Of an exchange that is over or has failed.
    [[nodiscard]] const CBTMSE& streams() const noexcept { return exchange_.streams(); }

  private:
    /// Only the handshake was encrypted.
    [[nodiscard]] bool is_plain() const noexcept {
        return streams().method() == static_cast<std::uint32_t>(CryptoMethod::plaintext);
    }
    net::Step flush(Clock::time_point now);
    net::Step read_below(Clock::time_point now);

    net::Stage& below_;
    PeerBuffer buffer_;
    MseExchange exchange_;
    std::string unsent_;             ///< of the exchange
    std::vector<std::byte> sealed_;  ///< the encrypted form of bytes that write() is or was offered
    std::size_t gone_ = 0;           ///< of sealed_; the first one behind it will be offered again
    std::size_t given_ = 0;          ///< of the request's payload
    bool is_agreed_ = false;
    std::optional<net::Step> failure_;
    Clock::time_point began_{};
};

}  // namespace vantlow
