#include "transfer/job/version_rule.h"

#include <string_view>

namespace vantlow {
namespace {

bool is_weak(std::string_view tag) {
    return tag.starts_with("W/");
}

std::string_view opaque(std::string_view tag) {
    return is_weak(tag) ? tag.substr(2) : tag;
}

bool is_page(std::string_view media_type) {
    return media_type == "text/html" || media_type == "application/xhtml+xml";
}

bool shares_a_validator(const ResourceVersion& a, const ResourceVersion& b) {
    const bool tag = !a.etag.empty() && opaque(a.etag) == opaque(b.etag);
    return tag || (!a.last_modified.empty() && a.last_modified == b.last_modified);
}

}  // namespace

VersionMatch compare_versions(const ResourceVersion& known, const ResourceVersion& answer) {
    using enum VersionMatch;
    if (known.size >= 0 && answer.size >= 0 && known.size != answer.size) return changed;
    const bool tags = !known.etag.empty() && !answer.etag.empty();
    if (tags && opaque(known.etag) != opaque(answer.etag)) return changed;
    if (tags && !is_weak(known.etag) && !is_weak(answer.etag)) return same;
    const bool dates = !known.last_modified.empty() && !answer.last_modified.empty();
    // A date that is made anew for each answer tells nothing, but nothing else tells the versions apart then:
    // a wrong file is worse than one that is fetched again.
    if (dates && known.last_modified != answer.last_modified) return changed;
    return dates && known.strong_date && answer.strong_date ? same : unsure;
}

bool differ_by_date_alone(const ResourceVersion& known, const ResourceVersion& answer) {
    ResourceVersion dateless = known;
    dateless.last_modified.clear();
    return compare_versions(known, answer) == VersionMatch::changed &&
           compare_versions(dateless, answer) != VersionMatch::changed;
}

bool has_strong_validator(const ResourceVersion& version) {
    const bool tag = !version.etag.empty() && !is_weak(version.etag);
    return tag || (!version.last_modified.empty() && version.strong_date);
}

void weaken(ResourceVersion& version) {
    version.strong_date = false;
    if (!version.etag.empty() && !is_weak(version.etag)) version.etag.insert(0, "W/");
}

bool is_page_instead(const ResourceVersion& known, const ResourceVersion& answer) {
    return is_page(answer.media_type) && !is_page(known.media_type);
}

bool is_other_content(const ResourceVersion& known, const ResourceVersion& answer) {
    if (shares_a_validator(known, answer)) return false;
    const bool are_typed = !known.media_type.empty() && !answer.media_type.empty();
    if (are_typed && known.media_type != answer.media_type) return true;
    if (!are_typed && is_page(answer.media_type)) return true;
    const bool had_validators = !known.etag.empty() || !known.last_modified.empty();
    const bool has_validators = !answer.etag.empty() || !answer.last_modified.empty();
    return had_validators && !has_validators && (known.size < 0 || known.size != answer.size);
}

}  // namespace vantlow
