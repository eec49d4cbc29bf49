#include "runtime/portmap/firewall.h"

#include <miniupnpc/upnpcommands.h>
#include <miniupnpc/upnperrors.h>

#include <cstring>

namespace {

constexpr int patience = 2000;  // milliseconds
constexpr unsigned char hops = 2;
constexpr int most_devices = 8;  // whose descriptions are read
constexpr std::size_t id_room = 8;
// Errors of WANIPv6FirewallControl:1, 2.6.
constexpr int not_authorized = 606;
constexpr int space_exhausted = 701;
constexpr int firewall_disabled = 702;
constexpr int not_allowed = 703;
constexpr int no_such_entry = 704;

// The description of a device at an address of the local link, which means nothing without its interface.
std::string with_scope(const UPNPDev& device) {
    std::string url = device.descURL;
    const auto end = url.find(']');
    const bool is_local = url.starts_with("http://[fe80:") && end != std::string::npos;
    if (is_local && device.scope_id != 0 && url.find('%') > end)
        url.insert(end, "%25" + std::to_string(device.scope_id));
    return url;
}

std::string words_for(int error) {
    switch (error) {
        case not_authorized:
            return "The router lets nobody order it.";
        case space_exhausted:
            return "The router has no room for more.";
        case not_allowed:
            return "The router's settings forbid it.";
        default:
            break;
    }
    const char* const text = strupnperror(error);
    return "The router refuses: " + std::string(text != nullptr ? text : std::to_string(error)) + ".";
}

}  // namespace

Firewall::~Firewall() {
    if (is_there_) FreeUPNPUrls(&urls_);
}

bool Firewall::find(const Asker& asker, std::string& address) {
    const auto outward = outward_ipv6();
    if (!outward) return false;
    address = outward->text;
    const char* const by = outward->interface_name.empty() ? nullptr : outward->interface_name.c_str();
    int error = 0;
    UPNPDev* const devices = upnpDiscover(patience, by, nullptr, 0, 1, hops, &error);
    int looked = 0;
    for (const UPNPDev* device = devices; device != nullptr && !is_there_ && looked < most_devices;
         device = device->pNext) {
        if (asker.has_left()) break;
        if (std::strstr(device->st, "InternetGatewayDevice") == nullptr) continue;
        ++looked;
        char here[64] = "";
        if (UPNP_GetIGDFromUrl(with_scope(*device).c_str(), &urls_, &data_, here, sizeof here) == 0) continue;
        is_there_ = service()[0] != '\0' && urls_.controlURL_6FC != nullptr;
        if (!is_there_) FreeUPNPUrls(&urls_);
    }
    freeUPNPDevlist(devices);
    return is_there_;
}

int Firewall::make(const Port& port, const std::string& address, std::uint32_t seconds) {
    char id[id_room] = "";
    const int error = UPNP_AddPinhole(urls_.controlURL_6FC, service(), "", "0", address.c_str(),
                                      std::to_string(port.second).c_str(), std::to_string(port.first).c_str(),
                                      std::to_string(seconds).c_str(), id);
    if (error == UPNPCOMMAND_SUCCESS) holes_[port] = {id, address};
    return error;
}

// This machine's address changes now and then (RFC 8981); the hole to the one before ends by itself.
std::uint32_t Firewall::open(int protocol, std::uint16_t port, std::uint32_t seconds, std::string& why) {
    const auto outward = outward_ipv6();
    if (!outward) {
        why = "This machine has no address of IPv6 any more.";
        return 0;
    }
    const Port one(protocol, port);
    int error = no_such_entry;
    const auto at = holes_.find(one);
    if (at != holes_.end() && at->second.address == outward->text) {
        error = UPNP_UpdatePinhole(urls_.controlURL_6FC, service(), at->second.id.c_str(),
                                   std::to_string(seconds).c_str());
    }
    if (error != UPNPCOMMAND_SUCCESS) error = make(one, outward->text, seconds);
    // One that is switched off lets everybody in.
    if (error == UPNPCOMMAND_SUCCESS || error == firewall_disabled) return seconds;
    why = words_for(error);
    return 0;
}

// A router that was found anew calls the hole by the same number when it is ordered once more.
bool Firewall::close(int protocol, std::uint16_t port) {
    const Port one(protocol, port);
    if (!holes_.contains(one)) {
        const auto outward = outward_ipv6();
        if (!outward || make(one, outward->text, 1) != UPNPCOMMAND_SUCCESS) return false;
    }
    const std::string id = holes_[one].id;
    holes_.erase(one);
    return UPNP_DeletePinhole(urls_.controlURL_6FC, service(), id.c_str()) == UPNPCOMMAND_SUCCESS;
}
