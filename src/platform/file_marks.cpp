#include "platform/file_marks.h"

#include <algorithm>
#include <string_view>

namespace vantlow {
namespace {

// A line end within an address would begin a line of its own in the mark.
bool can_be_told(std::string_view address) noexcept {
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    return !address.empty() && std::none_of(address.begin(), address.end(), is_control);
}

}  // namespace

std::string zone_identifier(const FileOrigin& origin) {
    std::string text = "[ZoneTransfer]\r\nZoneId=3\r\n";
    if (can_be_told(origin.referrer)) text += "ReferrerUrl=" + origin.referrer + "\r\n";
    if (can_be_told(origin.address)) text += "HostUrl=" + origin.address + "\r\n";
    return text;
}

}  // namespace vantlow
