#include "app/rpc/control_settings.h"

#include <algorithm>
#include <span>

#include "app/process/known_settings.h"
#include "base/codes.h"
#include "base/text.h"
#include "platform/socket.h"
#include "platform/system_services.h"
#include "store/job.h"

namespace vantlow {
namespace {

// Stands for an endpoint that asks nobody for a secret.
constexpr std::u16string_view no_secret = u"none";

std::string text_of(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::vector<std::string> words_of(const std::u16string& text) {
    std::vector<std::string> words;
    const std::string all = to_utf8(text);
    for (const std::string_view word : split(all, ' ')) {
        if (!trim(word).empty()) words.emplace_back(trim(word));
    }
    return words;
}

bool is_loopback(const std::string& literal) {
    const auto address = SocketAddress::from_literal(literal, 0);
    if (!address) return false;
    if (!address->is_ipv6()) return address->ipv4()[0] == 127;
    std::array<std::uint8_t, 16> loopback{};
    loopback[15] = 1;
    return address->ipv6() == loopback;
}

// Divides "RPC"/"Listen" into addresses to listen at and names by which this machine is called.
void read_places(const std::u16string& listen, ControlConfig& config) {
    for (std::string word : words_of(listen)) {
        if (word.starts_with('[') && word.ends_with(']')) word = word.substr(1, word.size() - 2);
        if (iequals(word, "localhost")) word = "127.0.0.1";
        const bool is_address = SocketAddress::from_literal(word, 0).has_value();
        (is_address ? config.addresses : config.rules.names).push_back(word);
    }
}

}  // namespace

bool ControlConfig::operator==(const ControlConfig& other) const {
    const auto facts = [](const ControlConfig& one) {
        return std::tie(one.enabled, one.addresses, one.port, one.rules.secret, one.rules.origins,
                        one.rules.names, one.largest_request, one.certificate);
    };
    return facts(*this) == facts(other);
}

std::optional<std::string> control_secret(const Settings& settings) {
    const std::u16string stored = settings.text(setting::rpc_secret);
    if (stored.empty()) return std::nullopt;
    if (stored == no_secret) return std::string();
    const std::string text = to_utf8(stored);
    const auto colon = text.find(':');
    const std::string_view kind = std::string_view(text).substr(0, colon);
    if (colon == std::string::npos || (kind != secret_kind() && kind != "dpapi")) return text;
    const auto kept = from_base64(std::string_view(text).substr(colon + 1));
    const auto secret = kept && kind == secret_kind() ? unprotect_secret(*kept) : std::nullopt;
    if (!secret) return std::nullopt;
    return text_of(*secret);
}

FileError make_control_secret(Settings& settings, std::string& secret) {
    const Guid random = new_guid();
    secret = to_hex(std::as_bytes(std::span(random.bytes)));
    const auto kept = protect_secret(std::as_bytes(std::span(secret)));
    if (!kept) return {FileFault::other, 0};
    const std::string text = std::string(secret_kind()) + ":" + to_base64(text_of(*kept));
    return settings.write(setting::rpc_secret.section, setting::rpc_secret.key, to_utf16(text));
}

Outcome<ControlCertificate> control_certificate(const Settings& settings, const std::u16string& data_folder) {
    const std::u16string named = settings.text(setting::rpc_certificate);
    if (!named.empty()) return read_certificate(named, settings.text(setting::rpc_key));
    ControlConfig config;
    read_places(settings.text(setting::rpc_listen), config);
    std::vector<std::string> names = config.addresses;
    names.insert(names.end(), config.rules.names.begin(), config.rules.names.end());
    return own_certificate(data_folder, names);
}

ControlConfig read_control_config(Settings& settings, const std::u16string& data_folder, std::string& error) {
    ControlConfig config;
    config.enabled = settings.flag(setting::rpc_enable);
    if (!config.enabled) return config;
    config.port = static_cast<std::uint16_t>(settings.number(setting::rpc_port));
    config.largest_request = static_cast<std::size_t>(settings.number(setting::rpc_request_size)) * 1024;
    config.rules.origins = words_of(settings.text(setting::rpc_allow_origin));
    read_places(settings.text(setting::rpc_listen), config);
    auto secret = control_secret(settings);
    if (!secret) {
        secret.emplace();
        const FileError failed = make_control_secret(settings, *secret);
        if (!failed.ok()) error = "The secret of the control API cannot be stored: " + failed.text();
    }
    config.rules.secret = *secret;
    if (settings.flag(setting::rpc_tls)) {
        auto certificate = control_certificate(settings, data_folder);
        if (!certificate) error = certificate.failure().message();
        if (certificate) config.certificate = *std::move(certificate);
    }
    if (config.addresses.empty()) error = "\"RPC\"/\"Listen\" names no address to listen at.";
    if (config.rules.secret.empty() && !std::ranges::all_of(config.addresses, is_loopback))
        error = "Without a secret the control API listens at addresses of this machine's loopback only.";
    return config;
}

}  // namespace vantlow
