// Bencoded documents: what was read and written is read and written the same.
#include "bt/bencode.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    CBEncode parser;
    if (!parser.load_memory(input)) return;
    const auto value = parser.parse_value();
    CHECK(parser.rest().size() <= input.size());
    CHECK(parser.info_copy().size() <= input.size());
    if (!value) return;
    CBEncode writer;
    writer.write(value.get());
    CBEncode again;
    CHECK(again.load_memory(writer.output()));
    const auto same = again.parse_value();
    CHECK(same != nullptr && again.rest().empty());
    again.write(same.get());
    CHECK(again.output() == writer.output());
    CBEncode::find(value.get(), "info/files/path");
}
