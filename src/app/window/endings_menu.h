// The menu of endings by which files are chosen, wherever files have check boxes.
#pragma once

#include <wx/menu.h>

#include <functional>
#include <optional>
#include <vector>

#include "app/window/model/file_endings.h"

namespace vantlow {

/// Its items take the numbers from `first_item` on. An ending has a mark where all of its files are chosen; a
/// click turns them all.
class EndingsMenu {
  public:
    struct Turn {
        std::vector<std::size_t> files;  ///< by their numbers in the list, from 0 on
        bool chosen;                     ///< what they become
    };
    EndingsMenu(const std::vector<std::u16string>& names, int first_item,
                const std::function<bool(std::size_t file)>& is_chosen);

    [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }
    void append_to(wxMenu& menu) const;
    /// None where this item is none of its own.
    [[nodiscard]] std::optional<Turn> turn(int item) const;

  private:
    struct Entry {
        EndingGroup group;
        bool is_chosen;
    };
    int first_item_;
    std::vector<Entry> entries_;
};

}  // namespace vantlow
