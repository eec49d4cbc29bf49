// The scanner for tags, attributes and entities.
#include "fuzz.h"
#include "meta/xml_simple.h"

void vantlow::fuzz::run(std::string_view input) {
    std::string tag(take_until(input, '\n'));
    if (tag.empty()) tag = "file";
    CHECK(decode_entities(input).size() <= input.size());
    CHECK(trim_space(input).size() <= input.size());
    const CXMLSimple document{std::string(input)};
    std::size_t elements = 0;
    XmlSiblings siblings(document.document(), tag);
    while (const auto element = siblings.next()) {
        ++elements;
        CHECK(element->text.size() == element->lower.size() && element->text.size() >= 2);
        CHECK(CXMLSimple::content(*element).size() <= element->text.size());
        const auto value = CXMLSimple::attribute(*element, "name");
        CHECK(!value || value->size() < element->text.size());
        CXMLSimple::find_element(element->inside(), "url");
    }
    CHECK(elements <= input.size());
}
