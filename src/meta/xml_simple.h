// A small, tolerant scanner for elements and attributes: no XML parser, and meant not to be one. Metafiles in
// the wild are rarely well-formed.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vantlow {

/// A piece of a document and the same piece with ASCII letters in lower case. Views: the document they were
/// made from outlives them.
struct XmlText {
    std::string_view text;
    std::string_view lower;

    [[nodiscard]] XmlText from(std::size_t at) const noexcept { return {text.substr(at), lower.substr(at)}; }
    [[nodiscard]] XmlText part(std::size_t at, std::size_t count) const noexcept {
        return {text.substr(at, count), lower.substr(at, count)};
    }
    /// The inside of a container: behind its opening "<", so that it is not found again.
    [[nodiscard]] XmlText inside() const noexcept { return from(text.empty() ? 0 : 1); }
};

/// One element: from its opening tag through its closing one.
struct XmlElement {
    XmlText all;
    std::size_t next = 0;  ///< just behind it, in the text that was searched
};

/// The document and its operations. Reading costs time in proportion to what is looked at, and twice the
/// document's memory.
class CXMLSimple {
  public:
    explicit CXMLSimple(std::string document);
    CXMLSimple(const CXMLSimple&) = delete;
    CXMLSimple& operator=(const CXMLSimple&) = delete;

    [[nodiscard]] XmlText document() const noexcept { return {text_, lower_}; }

    /// The first element whose tag begins with `tag` (lower case; "file" finds "files" too). An opening tag
    /// that ends in "/>" is all of its element; otherwise the first closing tag of exactly this name ends it,
    /// nesting is not counted. None without a closing tag.
    static std::optional<XmlElement> find_element(const XmlText& within, std::string_view tag);

    /// The value of an attribute (lower case) in the element's opening tag: what follows the first "=" behind
    /// the name, in quotes or up to a blank. As it stands, entities and all.
    static std::optional<std::string_view> attribute(const XmlText& element, std::string_view name);

    /// The text between the first ">" and the last "<", without white space at its ends; empty when there is
    /// none. What stands in a CDATA section is given without its marks.
    static std::string_view content(const XmlText& element);

  private:
    std::string text_;
    std::string lower_;
};

/// The elements of one tag, one after the other.
class XmlSiblings {
  public:
    XmlSiblings(const XmlText& within, std::string_view tag) : left_(within), tag_(tag) {}

    /// The next one; none at the end.
    std::optional<XmlText> next() {
        const auto found = CXMLSimple::find_element(left_, tag_);
        if (!found) return std::nullopt;
        left_ = left_.from(found->next);
        return found->all;
    }

  private:
    XmlText left_;
    std::string_view tag_;
};

/// The text without white space (as XML counts it) at its ends.
std::string_view trim_space(std::string_view text) noexcept;

/// Replaces the five entities of XML and numeric character references; anything else stays as it is.
std::string decode_entities(std::string_view text);

}  // namespace vantlow
