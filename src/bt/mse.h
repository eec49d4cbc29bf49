// Message stream encryption: the obfuscated handshake of BitTorrent peers, and the streams behind it.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bt/metainfo.h"
#include "runtime/tables.h"

namespace vantlow {

/// The bytes that a connection has received and that nobody has read yet. Shared by a CBTMSE and the
/// connection.
class PeerBuffer {
  public:
    void append(std::string_view bytes) { bytes_ += bytes; }
    [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
    [[nodiscard]] std::string_view view() const noexcept { return bytes_; }
    [[nodiscard]] char* data() noexcept { return bytes_.data(); }
    /// Takes bytes off the front; the rest moves forward.
    void remove(std::size_t count) { bytes_.erase(0, count); }

  private:
    std::string bytes_;
};

/// The outcome of a step of the exchange.
enum class MseStep {
    more,    ///< it needs bytes that have not arrived: call it again when they have
    done,    ///< the next one
    failed,  ///< the exchange cannot go on: another protocol, another torrent, or no library
};

/// Plaintext, or everything in RC4, behind the handshake.
enum class CryptoMethod : std::uint32_t { plaintext = 1, rc4 = 2 };

/// Frees what the library made.
struct CryptoDeleter {
    RC4_Delete_t* free_rc4 = nullptr;
    DH_Delete_t* free_dh = nullptr;
    void operator()(VantlowRc4* stream) const { free_rc4(stream); }
    void operator()(VantlowDh* dh) const { free_dh(dh); }
};

/// One connection's exchange and its streams. The steps of a role are called in their order. Outgoing bytes
/// are appended to `out`. One thread at a time.
class CBTMSE {
  public:
    static constexpr std::size_t key_size = 96;
    static constexpr std::size_t longest_padding = 511;
    static constexpr std::size_t no_bound = std::size_t{1} << 40U;
    using Key = std::array<std::byte, key_size>;

    /// `libraries` and `buffer` outlive the object.
    CBTMSE(const SecurTable& libraries, PeerBuffer& buffer) : libraries_(libraries), buffer_(buffer) {}

    // Both roles.

    /// Ya or Yb and its padding; `failed` without the library's operations.
    MseStep send_public_key(std::string& out);

    // The side that calls.

    /// Takes Yb; SKEY is the torrent's info hash.
    MseStep receive_yb(const InfoHash& skey);
    /// `setting`: the "Crypto" setting, which says what is offered; 0 offers both. The payload is sent with
    /// the request.
    MseStep send_request(const InfoHash& skey, std::uint32_t setting, std::string_view payload,
                         std::string& out);
    /// Looks for the encrypted verification constant and takes everything up to its end. `failed` when it
    /// does not begin within the first `farthest` bytes.
    MseStep find_vc(std::size_t farthest = no_bound);
    /// Takes crypto_select and the length of PadD, whose bytes the caller takes next.
    MseStep read_select(std::uint16_t& pad_length);

    // The side that is called.

    MseStep receive_ya();
    /// Looks for the first hash and takes the next one, which says which of these torrents is meant. `failed`
    /// when the first hash does not begin within `farthest` bytes.
    MseStep find_request(std::span<const InfoHash> torrents, std::size_t farthest = no_bound);
    /// Takes VC, crypto_provide and the length of PadC, whose bytes the caller takes next. Answers with the
    /// "Crypto" setting or, where it is 0, with RC4 if the other side offers it.
    MseStep answer(std::uint32_t setting, std::uint16_t& pad_length, std::string& out);
    /// The torrent that find_request() found.
    [[nodiscard]] const InfoHash& torrent() const noexcept { return torrent_; }

    // The streams.

    /// Takes `count` bytes of the handshake, which are encrypted whatever the method is, once all have
    /// arrived.
    MseStep take_handshake(std::size_t count, std::string& bytes);
    /// Takes at most `most` of the buffered bytes, decrypted by the method.
    std::string read_payload(std::size_t most);
    /// The bytes as they are sent, encrypted by the method.
    [[nodiscard]] std::string write_payload(std::string_view bytes);
    /// The same of received bytes that were never buffered, which become what they mean.
    void decrypt(std::span<std::byte> bytes);
    /// The same of bytes that are sent, in place of those that `sealed` had.
    void encrypt(std::span<const std::byte> bytes, std::vector<std::byte>& sealed);
    [[nodiscard]] std::uint32_t method() const noexcept { return method_; }
    /// The shared secret begins with a zero byte, as one in 256 does, and is known.
    [[nodiscard]] bool has_short_secret() const noexcept {
        return has_secret_ && secret_.front() == std::byte{0};
    }

  private:
    using Rc4 = std::unique_ptr<VantlowRc4, CryptoDeleter>;

    [[nodiscard]] bool has_libraries() const noexcept;
    MseStep take_public_key();
    MseStep find(std::string_view mark, std::size_t farthest, std::size_t& at) const;
    Rc4 make_stream(std::string_view label, const InfoHash& skey) const;
    [[nodiscard]] std::string secret_hash(std::string_view label) const;
    [[nodiscard]] std::string torrent_hash(const InfoHash& skey) const;
    std::string padding();
    std::string encrypted(std::string bytes);

    const SecurTable& libraries_;
    PeerBuffer& buffer_;
    std::unique_ptr<VantlowDh, CryptoDeleter> dh_;
    Rc4 outgoing_;
    Rc4 incoming_;
    std::uint32_t method_ = 0;  ///< 0: not decided yet
    std::uint32_t offered_ = 0;
    std::string encrypted_vc_;
    Key secret_{};
    bool has_secret_ = false;
    InfoHash torrent_{};
    std::mt19937 random_;
};

/// The whole exchange of one role, however the bytes are divided: append to the buffer, then call advance().
/// Bytes that are left in the buffer at the end belong to the streams. The owner gives up after `patience`.
class MseExchange {
  public:
    static constexpr std::chrono::seconds patience{30};

    /// The side that calls: this torrent, and the payload that goes with the request.
    MseExchange(const SecurTable& libraries, PeerBuffer& buffer, const InfoHash& torrent,
                std::uint32_t setting, std::string payload);
    /// The side that is called, for any of these torrents.
    MseExchange(const SecurTable& libraries, PeerBuffer& buffer, std::vector<InfoHash> torrents,
                std::uint32_t setting);

    /// On the side that calls: an exchange whose secret is short fails, and another one, which has other
    /// keys, is worth a try. Widespread clients leave the zero byte out where they mask the torrent's hash.
    void refuse_short_secret() noexcept { refuses_short_secret_ = true; }
    /// Goes on as far as the buffered bytes allow; `more` until it is `done` or `failed` for good. Fails too
    /// where a sync point does not come within the longest padding.
    MseStep advance(std::string& out);
    /// The payload that came with the request (on the side that is called).
    [[nodiscard]] const std::string& payload() const noexcept { return payload_; }
    /// True for the side that calls.
    [[nodiscard]] bool calls() const noexcept { return calls_; }
    [[nodiscard]] CBTMSE& streams() noexcept { return mse_; }
    [[nodiscard]] const CBTMSE& streams() const noexcept { return mse_; }

  private:
    enum class State { begin, key, sync, head, pad, payload_size, payload, done, failed };
    MseStep step(std::string& out);
    MseStep step_as_caller(std::string& out);
    MseStep step_as_called(std::string& out);

    PeerBuffer& buffer_;
    CBTMSE mse_;
    const bool calls_;
    std::vector<InfoHash> torrents_;  ///< one where it calls
    std::uint32_t setting_;
    std::string payload_;
    State state_ = State::begin;
    std::uint16_t expected_ = 0;  ///< bytes of what is taken next
    bool refuses_short_secret_ = false;
};

}  // namespace vantlow
