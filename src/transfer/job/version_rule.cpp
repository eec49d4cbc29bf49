#include "transfer/job/version_rule.h"

namespace vantlow {

VersionMatch compare_versions(const ResourceVersion& known, const ResourceVersion& answer) {
    if (known.size >= 0 && answer.size >= 0 && known.size != answer.size) return VersionMatch::changed;
    if (!known.last_modified.empty() && !answer.last_modified.empty()) {
        return known.last_modified == answer.last_modified ? VersionMatch::same : VersionMatch::changed;
    }
    const bool strong = !known.etag.empty() && !known.etag.starts_with("W/");
    return strong && known.etag == answer.etag ? VersionMatch::same : VersionMatch::unsure;
}

}  // namespace vantlow
