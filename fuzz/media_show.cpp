// The facts that a film states about itself.
#include "media/media_show.h"

#include <cmath>

#include "fuzz.h"

namespace vantlow::fuzz {
namespace {

void look_at(const std::vector<MediaProperty>& properties, std::size_t& count) {
    for (const MediaProperty& property : properties) {
        ++count;
        CHECK(!property.number || std::isfinite(*property.number));
        CHECK(property.is_container || property.children.empty());
        look_at(property.children, count);
    }
}

}  // namespace

void run(std::string_view input) {
    const auto description = describe_media(scratch_file(u"film", input));
    if (!description.ok()) {
        CHECK(!description.failure().message().empty());
        return;
    }
    CHECK(description->kind == "flv" || description->kind == "mp4");
    std::size_t count = 0;
    look_at(description->properties, count);
    CHECK(count <= 16 * input.size());
}

}  // namespace vantlow::fuzz
