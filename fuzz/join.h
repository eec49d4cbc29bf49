// Pieces of a film joined, as the targets of both containers do it.
#pragma once

#include <filesystem>

#include "base/text.h"
#include "fuzz.h"
#include "media/combine.h"
#include "media/mp4_scan.h"

namespace vantlow::fuzz {

inline CombineOutcome join(const std::vector<std::u16string>& pieces, const std::u16string& output) {
    CombineControl control({});
    return combine_media({pieces, output}, control);
}

/// The input is one piece, or two: the first four bytes say where the second one begins. What was joined can
/// be joined again; with `is_mp4` it is no shorter then.
inline void join_pieces(std::string_view input, bool is_mp4) {
    if (input.size() < 4) return;
    std::size_t first = 0;
    for (int i = 0; i < 4; ++i) first = first << 8U | take_byte(input);
    std::vector<std::u16string> pieces{scratch_file(u"piece1", input.substr(0, first))};
    if (first < input.size()) pieces.push_back(scratch_file(u"piece2", input.substr(first)));
    const std::u16string output = scratch_folder() + u"/joined";
    const CombineOutcome joined = join(pieces, output);
    std::error_code error;
    CHECK(std::filesystem::exists(to_utf8(output), error) == joined.result.ok());
    if (!joined.result.ok()) return;
    // An empty sample's entries say when it is decoded (8 bytes), when it is shown (8), how large it is (4)
    // and that it can be begun at (4).
    const std::uint64_t empty_samples = pieces.size() * most_empty_samples * 24;
    CHECK(static_cast<std::uint64_t>(joined.bytes) <=
          input.size() * 64 + 65536 + (is_mp4 ? empty_samples : 0));
    const CombineOutcome again = join({output}, scratch_folder() + u"/again");
    CHECK(again.result.ok());
    // A pause behind a sample that is shown late is that sample's from then on, so it may be longer.
    if (is_mp4) CHECK(again.seconds > joined.seconds - 0.01);
    std::filesystem::remove(to_utf8(output), error);
}

}  // namespace vantlow::fuzz
