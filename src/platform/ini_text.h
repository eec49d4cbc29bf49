// The text of an INI file: read into values, and changed without touching any other line.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"

namespace vantlow {

class IniText {
  public:
    using Section = std::map<std::u16string, std::u16string, NameLess>;
    using Sections = std::map<std::u16string, Section, NameLess>;

    /// Reads the bytes of a file; false, with nothing changed, when they are no such text.
    bool parse(std::string_view bytes);
    [[nodiscard]] std::string bytes() const;

    [[nodiscard]] const std::u16string* find(std::u16string_view section, std::u16string_view key) const;
    [[nodiscard]] const Sections& sections() const noexcept { return sections_; }

    /// False when the names cannot stand in such a file (line breaks, blanks at the ends, brackets, "=").
    bool set(std::u16string_view section, std::u16string_view key, std::u16string_view value);
    /// False when there was no such key.
    bool erase(std::u16string_view section, std::u16string_view key);

  private:
    enum class LineKind { other, section, value };
    struct Line {
        std::string text;  ///< as in the file, without line end
        LineKind kind = LineKind::other;
        std::u16string section;  ///< the section that the line stands in or opens
        std::u16string key;
    };

    Line read_line(std::string_view text, const std::u16string& section);
    [[nodiscard]] std::size_t insert_position(std::u16string_view section) const;

    std::vector<Line> lines_;
    Sections sections_;
    std::string line_end_ = "\n";
};

}  // namespace vantlow
