// Pieces of a film joined, as the targets of both containers do it.
#pragma once

#include <filesystem>

#include "base/text.h"
#include "fuzz.h"
#include "media/combine.h"

namespace vantlow::fuzz {

inline CombineOutcome join(const std::vector<std::u16string>& pieces, const std::u16string& output) {
    CombineControl control({});
    return combine_media({pieces, output}, control);
}

/// The input is one piece, or two: the first four bytes say where the second one begins. What was joined can
/// be joined again; with `as_long` it is no shorter then.
inline void join_pieces(std::string_view input, bool as_long) {
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
    CHECK(joined.bytes <= static_cast<std::int64_t>(input.size()) * 64 + 65536);
    const CombineOutcome again = join({output}, scratch_folder() + u"/again");
    CHECK(again.result.ok());
    // A pause behind a sample that is shown late is that sample's from then on, so it may be longer.
    if (as_long) CHECK(again.seconds > joined.seconds - 0.01);
    std::filesystem::remove(to_utf8(output), error);
}

}  // namespace vantlow::fuzz
