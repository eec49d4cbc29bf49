// The extension protocol of peers (BEP 10) and the exchange of metadata over it (BEP 9).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantlow {

/// The number of an extended message on the wire.
inline constexpr std::uint8_t extended_message = 20;
/// The numbers under which this side receives metadata messages, the exchange of peers and introductions.
inline constexpr std::uint8_t own_metadata_number = 15;
inline constexpr std::uint8_t own_exchange_number = 1;
inline constexpr std::uint8_t own_holepunch_number = 4;

/// The contents of a peer's extension handshake.
struct ExtensionHandshake {
    std::optional<std::int64_t> metadata_size;  ///< bytes of the info value
    std::optional<std::int64_t> port;           ///< that the peer listens at
    std::u16string version;                     ///< client name and version
    /// The number under which the peer receives metadata messages; none when it does not exchange metadata.
    std::optional<std::int64_t> metadata_number;
    std::optional<std::int64_t> exchange_number;   ///< the same of the exchange of peers (BEP 11)
    std::optional<std::int64_t> holepunch_number;  ///< and of introductions (BEP 55)
    bool upload_only = false;                      ///< the peer wants nothing more (BEP 21)
};

/// Any extended message, length prefix included: a bencoded dictionary, and the bytes behind it.
std::string build_extended_message(std::uint8_t number, std::string_view dictionary,
                                   std::string_view data = {});

/// Builds the whole message, length prefix included. Fields that are zero, empty or false are left out;
/// `exchanges`: this side takes the exchange of peers; `punches`: and introductions.
std::string build_extension_handshake(std::uint32_t metadata_size, std::uint16_t port,
                                      std::u16string_view version, bool exchanges = false,
                                      bool upload_only = false, bool punches = false);

/// Reads the payload behind the two bytes 20 and 0. None when it is no dictionary.
std::optional<ExtensionHandshake> parse_extension_handshake(std::string_view payload);

/// The types of metadata messages.
enum class MetadataType : std::int64_t { request = 0, data = 1, reject = 2 };

struct MetadataMessage {
    std::int64_t type = 0;  ///< MetadataType, or one that is not known
    std::int64_t piece = 0;
    std::int64_t total_size = 0;  ///< bytes of the info value; 0: not said
    std::string data;
};

/// Builds the whole message to a peer that receives metadata under `peer_number`.
std::string build_metadata_message(std::uint8_t peer_number, const MetadataMessage& message);

/// Reads the payload behind the two bytes 20 and own_metadata_number. None when it holds no type or no piece.
std::optional<MetadataMessage> parse_metadata_message(std::string_view payload);

}  // namespace vantlow
