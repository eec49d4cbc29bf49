// The rules by which new jobs find their categories.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/guid.h"

namespace vantlow {

/// The section of the settings that keeps the rules, each under the identity of its category (guid_text()).
inline constexpr std::u16string_view rules_section = u"Rules";

/// The rule of one category: files with one of these endings belong there, and those from these servers.
struct CategoryRule {
    Guid category;
    std::vector<std::string> endings;  ///< lower case, each with its dot: ".iso", ".tar.gz"
    std::vector<std::string> hosts;    ///< as Target::host; each stands for the hosts below it, too
    bool operator==(const CategoryRule&) const = default;
};

/// Reads a rule as people write it: endings ("iso" with its dot: ".iso" or "*.iso") and hosts
/// ("example.org"), with blanks, commas or semicolons between them. An empty text is an empty rule. None
/// where a word is neither.
std::optional<CategoryRule> parse_category_rule(std::string_view text, const Guid& category = {});

/// Writes a rule so that parse_category_rule() reads it again.
std::string text_of(const CategoryRule& rule);

/// The category that a file belongs to by its address and its name, which may be empty: the address's name
/// counts then. A host goes before an ending; among several the longest one counts, among equally long ones
/// the first rule. None where no rule fits.
std::optional<Guid> category_by(const std::vector<CategoryRule>& rules, std::u16string_view address,
                                std::u16string_view name);

}  // namespace vantlow
