// FLV pieces, joined.
#include "join.h"

void vantlow::fuzz::run(std::string_view input) {
    join_pieces(input, false);
}
