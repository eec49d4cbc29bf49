// Whether two answers are about the same version of a resource.
#pragma once

#include <cstdint>
#include <string>

namespace vantlow {

/// What an answer says of the version that it is of.
struct ResourceVersion {
    std::int64_t size = -1;     ///< total bytes; -1: unsaid
    std::string last_modified;  ///< as sent; empty: unsaid
    std::string etag;           ///< as sent; empty: unsaid
};

enum class VersionMatch {
    same,
    changed,
    unsure,  ///< the validators cannot tell: compare bytes
};

/// Size and Last-Modified decide: servers of one name often give the same file different entity tags, so that
/// where both agree another tag is no change. Without a Last-Modified on both sides an equal strong entity
/// tag (RFC 9110, 8.8.3) means the same version; anything else is unsure.
VersionMatch compare_versions(const ResourceVersion& known, const ResourceVersion& answer);

}  // namespace vantlow
