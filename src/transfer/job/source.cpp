#include "transfer/job/source.h"

#include <array>

#include "base/text.h"
#include "store/address.h"

namespace vantlow {
namespace {

constexpr std::array protocols{
    Protocol{u"http://", false, true, false, make_http_source},
    Protocol{u"https://", true, true, false, make_http_source},
    Protocol{u"ftp://", false, false, true, make_ftp_source},
    Protocol{u"ftps://", true, false, true, make_ftp_source},
    Protocol{u"sftp://", false, true, true, make_ftp_source},
};

// Addresses that people hand over although nothing can fetch them yet.
struct Network {
    std::u16string_view prefix;
    std::string_view name;
};
constexpr std::array networks{
    Network{u"ed2k://", "eDonkey"},
    Network{u"magnet:?", "BitTorrent"},
    Network{u"bt://", "BitTorrent"},
};

}  // namespace

std::string why_not_fetched(std::u16string_view address) {
    if (find_protocol(address) != nullptr) return {};
    for (const Network& network : networks) {
        if (!istarts_with(address, network.prefix)) continue;
        return "The " + std::string(network.name) + " network cannot be used yet.";
    }
    if (address.find(u"://") == std::u16string_view::npos) return why_no_target(address);
    return "This kind of address cannot be fetched.";
}

const Protocol* find_protocol(std::u16string_view address) {
    for (const Protocol& protocol : protocols) {
        if (istarts_with(address, protocol.scheme)) return &protocol;
    }
    // An address without a scheme is an FTP address.
    static constexpr Protocol without_scheme{u"", false, false, true, make_ftp_source};
    return address.find(u"://") == std::u16string_view::npos && parse_target(address) ? &without_scheme
                                                                                      : nullptr;
}

bool tells_place(std::u16string_view address) {
    const Protocol* const protocol = find_protocol(address);
    return protocol == nullptr || protocol->tells_place;
}

bool tells_time_alone(std::u16string_view address) {
    const Protocol* const protocol = find_protocol(address);
    return protocol != nullptr && protocol->tells_time_alone;
}

}  // namespace vantlow
