#include "bt/extension.h"

#include "base/text.h"
#include "bt/bencode.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

std::optional<std::int64_t> number_of(const CBEDictionary& dictionary, std::string_view key) {
    const CBEInteger* const integer = dictionary.find_integer(key);
    return integer != nullptr ? std::optional(integer->value) : std::nullopt;
}

}  // namespace

std::string build_extended_message(std::uint8_t number, std::string_view dictionary, std::string_view data) {
    std::string bytes;
    put_number(bytes, static_cast<std::uint32_t>(dictionary.size() + data.size() + 2));
    put_number(bytes, extended_message);
    put_number(bytes, number);
    bytes += dictionary;
    bytes += data;
    return bytes;
}

std::string build_extension_handshake(std::uint32_t metadata_size, std::uint16_t port,
                                      std::u16string_view version, bool exchanges, bool upload_only,
                                      bool punches) {
    auto numbers = std::make_unique<CBEDictionary>();
    if (punches) numbers->add("ut_holepunch", std::int64_t{own_holepunch_number});
    numbers->add("ut_metadata", std::int64_t{own_metadata_number});
    if (exchanges) numbers->add("ut_pex", std::int64_t{own_exchange_number});
    CBEDictionary handshake;
    handshake.add("m", std::move(numbers));
    if (metadata_size != 0) handshake.add("metadata_size", std::int64_t{metadata_size});
    if (port != 0) handshake.add("p", std::int64_t{port});
    if (upload_only) handshake.add("upload_only", std::int64_t{1});
    if (!version.empty()) handshake.add("v", CBEString::from_text_utf8(version));
    CBEncode writer;
    writer.write(&handshake);
    return build_extended_message(0, writer.output());
}

std::optional<ExtensionHandshake> parse_extension_handshake(std::string_view payload) {
    CBEncode parser;
    parser.load_memory(payload);
    const auto document = parser.parse_document();
    if (!document) return std::nullopt;
    ExtensionHandshake handshake;
    handshake.metadata_size = number_of(*document, "metadata_size");
    handshake.port = number_of(*document, "p");
    handshake.upload_only = number_of(*document, "upload_only").value_or(0) != 0;
    if (const CBEString* const version = document->find_string("v")) {
        handshake.version = to_utf16(version->data);
    }
    if (const CBEDictionary* const numbers = document->find_dictionary("m")) {
        handshake.metadata_number = number_of(*numbers, "ut_metadata");
        handshake.exchange_number = number_of(*numbers, "ut_pex");
        handshake.holepunch_number = number_of(*numbers, "ut_holepunch");
    }
    return handshake;
}

std::string build_metadata_message(std::uint8_t peer_number, const MetadataMessage& message) {
    CBEDictionary dictionary;
    dictionary.add("msg_type", message.type);
    dictionary.add("piece", message.piece);
    if (message.total_size != 0) dictionary.add("total_size", message.total_size);
    CBEncode writer;
    writer.write(&dictionary);
    return build_extended_message(peer_number, writer.output(), message.data);
}

std::optional<MetadataMessage> parse_metadata_message(std::string_view payload) {
    CBEncode parser;
    parser.load_memory(payload);
    const auto value = parser.parse_value();
    const CBEDictionary* const dictionary = as_dictionary(value.get());
    if (dictionary == nullptr) return std::nullopt;
    const auto type = number_of(*dictionary, "msg_type");
    const auto piece = number_of(*dictionary, "piece");
    if (!type || !piece) return std::nullopt;
    MetadataMessage message{*type, *piece, number_of(*dictionary, "total_size").value_or(0), {}};
    message.data = parser.rest();
    return message;
}

}  // namespace vantlow
