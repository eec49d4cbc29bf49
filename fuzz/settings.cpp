// Settings files: what is set is found again, and nothing else changes.
#include "base/text.h"
#include "fuzz.h"
#include "platform/ini_text.h"

namespace vantlow::fuzz {
namespace {

// The same values; a name may be written in other letters.
bool same(const IniText::Sections& a, const IniText& b) {
    std::size_t count = 0;
    for (const auto& [section, values] : a) {
        count += values.size();
        for (const auto& [key, value] : values) {
            if (b.find(section, key) == nullptr || *b.find(section, key) != value) return false;
        }
    }
    for (const auto& [section, values] : b.sections()) count -= values.size();
    return count == 0;
}

}  // namespace

void run(std::string_view input) {
    const std::u16string section = to_utf16(take_until(input, '\n'));
    const std::u16string key = to_utf16(take_until(input, '\n'));
    const std::u16string value = to_utf16(take_until(input, '\0'));
    IniText text;
    if (!text.parse(input)) return;
    IniText again;
    CHECK(again.parse(text.bytes()) && again.sections() == text.sections());
    CHECK(again.bytes() == text.bytes());
    auto expected = text.sections();
    if (!text.set(section, key, value)) return;
    CHECK(text.find(section, key) != nullptr && *text.find(section, key) == value);
    expected[section][key] = value;
    CHECK(again.parse(text.bytes()));
    CHECK(same(expected, again));
    CHECK(text.erase(section, key) && text.find(section, key) == nullptr);
}

}  // namespace vantlow::fuzz
