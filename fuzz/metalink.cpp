// Metalink descriptions, and the jobs that are made of them.
#include "base/text.h"
#include "engine/plans.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    const CMetalink metalink(bytes_of(input));
    CHECK(metalink.files().size() <= input.size());
    for (const CMetalinkNode& file : metalink.files()) {
        CHECK(file.size >= -1);
        CHECK(file.hash_type == CMetalinkNode::no_hashes ||
              file.piece_hashes.size() ==
                  static_cast<std::size_t>(file.piece_count) * digest_size(digest_of(file.hash_type)));
        for (const MetalinkHash& hash : file.hashes) CHECK(hash.digest.size() == digest_size(hash.kind));
    }
    const JobPlans plans = read_metalink(bytes_of(input), {.origin = u"http://h/a.meta4"});
    for (const JobPlan& plan : plans.plans) {
        CHECK(!plan.address.empty());
        if (plan.sources != nullptr && plan.sources->pieces)
            CHECK(plan.sources->pieces->length > 0 && plan.sources->pieces->count() <= input.size());
    }
    split_metalink_path(to_utf16(input));
    metafile_kind(u"a", bytes_of(input));
}
