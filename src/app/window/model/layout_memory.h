// The window as its user left it: place, panes, columns, order; one text in the settings.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/window/model/job_columns.h"
#include "app/window/model/job_filter.h"
#include "engine/engine.h"
#include "store/settings.h"

namespace vantlow {

struct Layout {
    struct Place {
        int x = 0;
        int y = 0;
        int width = 0;  ///< device-independent pixels
        int height = 0;
        bool operator==(const Place&) const = default;
    };
    struct ColumnPlace {
        Column column = Column::name;
        int width = 0;  ///< device-independent pixels; 0: as the table says
        bool shown = true;
        bool operator==(const ColumnPlace&) const = default;
    };
    struct Pane {
        bool shown = true;
        int size = 0;  ///< device-independent pixels; 0: the pane's own default
        bool operator==(const Pane&) const = default;
    };

    std::optional<Place> window;  ///< none: the system chooses
    bool maximised = false;
    std::vector<ColumnPlace> columns;  ///< every column once, in the order in which they stand
    std::vector<SortKey> sort;
    std::map<std::string, Pane> panes;  ///< by names that the window chooses: letters, digits and "-"
    std::map<std::string, std::string> choices;  ///< other things to remember: the same names, short texts
    bool operator==(const Layout&) const = default;

    static Layout standard();
    [[nodiscard]] std::u16string text() const;
    /// Reads a text; parts that are missing, unknown or out of bounds are as in standard().
    static Layout read(std::u16string_view text);
    /// A place of which at least a piece to be grasped lies on one of the screens; none: the system chooses.
    [[nodiscard]] std::optional<Place> place_on(const std::vector<Place>& screens) const;
};

Layout load_layout(const Settings& settings);
/// Writes it where it differs from what is stored.
Done save_layout(Engine& engine, const Settings& settings, const Layout& layout);

}  // namespace vantlow
