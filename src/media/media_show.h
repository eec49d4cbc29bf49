// Facts that a media file states about itself.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/result.h"

namespace vantlow {

/// A node of the description: a name and a value, or what belongs below it.
struct MediaProperty {
    std::string name;              ///< UTF-8; empty in a list
    std::string text;              ///< the value for a person, UTF-8; empty above other nodes
    std::optional<double> number;  ///< the value where it is a number
    bool is_container = false;
    bool is_list = false;  ///< a container whose children have no names
    std::vector<MediaProperty> children;
};

struct MediaDescription {
    std::string kind;  ///< "flv" or "mp4"
    std::vector<MediaProperty> properties;
};

/// An FLV file's metadata entries, or an MP4 file's tracks.
Outcome<MediaDescription> describe_media(const std::u16string& path);

}  // namespace vantlow
