// Who may call the control API: the secret, the pages of other origins, the names of this machine.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vantlow::rpc {

/// The rules of one endpoint. A plain record.
struct AccessRules {
    std::string secret;                ///< empty: none is asked for
    std::vector<std::string> origins;  ///< of pages that are let in ("https://host:port"); "*": all
    std::vector<std::string> names;  ///< by which this machine may be called, beside addresses and localhost
};

/// The headers of a request that tell where it comes from. Views: they live as long as the request.
struct Visitor {
    std::string_view host;
    std::optional<std::string_view> origin;      ///< none: a program
    std::optional<std::string_view> fetch_site;  ///< Sec-Fetch-Site (W3C Fetch Metadata)
    bool opens_page = false;  ///< a browser asks for a file of the endpoint's own page, to show it in a tab
};

/// The decision about a request, which is made before its token is looked at.
enum class Admission {
    refused,
    admitted,
    named_origin,  ///< admitted; its page may read the answer (CORS)
};

/// Decides by origin and host. A host that is a name which is not ours is refused: some page had it lead here
/// (DNS rebinding). Browser extensions and the endpoint's own page are let in; other pages only where they
/// are named, but for a link that leads a person to the endpoint's page.
Admission admit(const Visitor& visitor, const AccessRules& rules);

/// True for an address's literal, or localhost, with or without a port.
bool is_address_or_localhost(std::string_view host);

/// Compares in a time that says nothing about the place of the first difference.
bool is_same_secret(std::string_view given, std::string_view secret) noexcept;

/// Counts wrong tokens by the address that they came from, and says how long their refusal is kept back. An
/// address of whom nothing was heard for ten minutes is forgotten. One thread.
class WrongTokens {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// The delay of this refusal: a quarter of a second, doubled with each further one, 8 s at most.
    std::chrono::milliseconds refuse(const std::string& address, Time now);
    /// The right token came from there.
    void forgive(const std::string& address) { seen_.erase(address); }
    /// Never more than this.
    static constexpr std::size_t most_addresses = 4096;
    [[nodiscard]] std::size_t size() const noexcept { return seen_.size(); }

  private:
    struct Entry {
        int count = 0;
        Time last{};
    };
    void make_room(Time now);

    std::unordered_map<std::string, Entry> seen_;
};

}  // namespace vantlow::rpc
