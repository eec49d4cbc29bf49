// Settings files: what is set is found again, and nothing else changes.
#include "base/text.h"
#include "fuzz.h"
#include "platform/ini_text.h"

void vantlow::fuzz::run(std::string_view input) {
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
    CHECK(again.sections() == expected);
    CHECK(text.erase(section, key) && text.find(section, key) == nullptr);
}
