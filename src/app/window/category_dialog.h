// A category: its name, and the folder of its downloads.
#pragma once

#include <optional>
#include <string>

#include "app/window/model/window_model.h"

class wxWindow;

namespace vantlow {

struct CategoryForm {
    std::u16string name;
    std::u16string folder;  ///< empty: that of the category above
    std::string rule{};     ///< as parse_category_rule() reads it
};

/// Asks for the values of a category; `folder_above`: of the category above it, null for the first one, which
/// has no rule. None where nothing is to be done.
std::optional<CategoryForm> ask_category(wxWindow& window, const std::string& title,
                                         const CategoryForm& before, const std::u16string* folder_above);

}  // namespace vantlow
