// Names that answers and addresses suggest, and any other text, made safe: they stay in their folder.
#include "transfer/http/content_name.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "fuzz.h"
#include "transfer/http/field_value.h"

namespace vantlow::fuzz {
namespace {

void look_at(std::u16string_view name) {
    check_safe_name(safe_file_name(name));
    const std::u16string safe = safe_file_name(name, u"");
    if (!safe.empty()) check_safe_name(safe);
}

}  // namespace

void run(std::string_view input) {
    for (const std::u16string& name :
         {disposition_name(input), path_name(input), decode_name(input), to_utf16(input)}) {
        CHECK(name.size() <= input.size());
        look_at(name);
    }
    // Bytes of any kind survive the way through the program.
    CHECK(to_utf8(to_utf16(input)) == input);
    std::u16string units;
    for (std::size_t i = 0; i + 1 < input.size(); i += 2) {
        units += static_cast<char16_t>(static_cast<unsigned char>(input[i]) << 8U |
                                       static_cast<unsigned char>(input[i + 1]));
    }
    look_at(units);
    std::size_t parameters = 0;
    for (std::string_view rest = input; next_parameter(rest);) ++parameters;
    CHECK(parameters <= input.size());
}

}  // namespace vantlow::fuzz
