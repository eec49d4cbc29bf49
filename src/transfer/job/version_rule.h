// A server's answer, as any protocol tells it; whether two answers are about the same version of a resource,
// and whether about the resource at all.
#pragma once

#include <cstdint>
#include <string>

namespace vantlow {

/// The version that an answer is of, as far as it tells.
struct ResourceVersion {
    std::int64_t size = -1;     ///< total bytes; -1: unsaid
    std::string last_modified;  ///< as sent; empty: unsaid
    std::string etag;           ///< as sent; empty: unsaid
    bool strong_date = false;   ///< last_modified is a minute older than the answer (RFC 9110, 8.8.2.2)
    std::string media_type{};   ///< lower case, without parameters; empty: unsaid
};

/// A server's answer to one request of a connection.
struct SourceAnswer {
    std::int64_t granted = 0;  ///< offset of the first byte that read() gives
    bool whole = false;        ///< the answer is the whole resource, whatever was asked
    bool encoded = false;  ///< bytes are decoded on the way: their number is unknown and ranges mean nothing
    bool ranges_promised = false;   ///< the server says that it answers ranges
    bool ranges_denied = false;     ///< the server says that it does not
    bool may_go_on = false;         ///< a part, and there is more behind its end, or may be
    bool beyond_end = false;        ///< of an open() that failed: the resource has no byte at the offset
    bool form_sent = false;         ///< the job's form was sent, also of an open() that failed
    std::int64_t likely_size = -1;  ///< total bytes, of an answer that tells no size; -1: unsaid
    ResourceVersion version;
    std::u16string name;     ///< suggested by the server, or from the address; not made safe; may be empty
    std::u16string address;  ///< where the answer came from, redirects followed
};

enum class VersionMatch {
    same,
    changed,
    unsure,  ///< the validators cannot tell: compare bytes
};

/// Sizes that differ are two versions. Two strong entity tags decide (RFC 9110, 8.8.3), else entity tags that
/// differ in more than their weakness are two versions, else two dates decide: equal strong ones mean the
/// same version, different ones two. Whatever is left is unsure.
VersionMatch compare_versions(const ResourceVersion& known, const ResourceVersion& answer);

/// Nothing but the date says that the answer is of another version.
bool differ_by_date_alone(const ResourceVersion& known, const ResourceVersion& answer);

/// An equal answer can be told from another version by its validators alone.
bool has_strong_validator(const ResourceVersion& version);

/// The validators were equal on bytes that were not: from now on an equal answer is unsure.
void weaken(ResourceVersion& version);

/// True when the answer is no version of the resource at all: a page that says that a link is used up or asks
/// for a login. It has none of the known version's validators, and is of another media type, or has no
/// validators where the known version had some, and not its size.
bool is_other_content(const ResourceVersion& known, const ResourceVersion& answer);

/// True when the answer is a page and what is known is none: the only thing that the answers of two servers
/// tell of each other's content, since each has its own types and validators.
bool is_page_instead(const ResourceVersion& known, const ResourceVersion& answer);

/// Whether a date of change was at least a minute old when it was sent; both in seconds since 1970.
constexpr bool is_strong_date(std::int64_t last_modified, std::int64_t sent) noexcept {
    return sent - last_modified >= 60;
}

}  // namespace vantlow
