#include "app/window/model/layout_memory.h"

#include <algorithm>
#include <limits>

#include "app/process/known_settings.h"
#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::string_view version = "1";
constexpr std::size_t longest_text = 65536;
constexpr std::size_t most_names = 100;
constexpr std::size_t most_keys = 5;
constexpr int largest = 100000;
// A piece of the title bar that can be grasped, in device-independent pixels.
constexpr int grasp = 60;

bool is_name(std::string_view text) {
    return !text.empty() && text.size() <= 40 && std::ranges::all_of(text, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
    });
}

std::optional<int> number_of(std::string_view text) {
    const bool negative = text.starts_with('-');
    const auto number = parse_decimal(text.substr(negative ? 1 : 0));
    if (!number || *number > largest) return std::nullopt;
    return static_cast<int>(negative ? -*number : *number);
}

const ColumnFacts* column_named(std::string_view name) {
    const auto& table = column_table();
    const auto* const at = std::ranges::find(table, name, &ColumnFacts::name);
    return at == table.end() ? nullptr : at;
}

// Escapes all that has a meaning in the text, or is no letter of ASCII.
std::string escaped(std::string_view text) {
    std::string made;
    for (const char c : text) {
        const bool plain = c > ' ' && c < 0x7F && std::string_view("%;,:=").find(c) == std::string_view::npos;
        made +=
            plain ? std::string(1, c) : print("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    }
    return made;
}

std::optional<Layout::Place> read_place(std::string_view text) {
    std::vector<int> numbers;
    for (const std::string_view part : split(text, ',')) {
        const auto number = number_of(part);
        if (!number) return std::nullopt;
        numbers.push_back(*number);
    }
    if (numbers.size() != 4 || numbers[2] < grasp || numbers[3] < grasp) return std::nullopt;
    return Layout::Place{numbers[0], numbers[1], numbers[2], numbers[3]};
}

void read_columns(std::string_view text, std::vector<Layout::ColumnPlace>& columns) {
    std::vector<Layout::ColumnPlace> read;
    for (const std::string_view part : split(text, ',')) {
        const auto words = split(part, ':');
        const ColumnFacts* const facts = words.size() == 3 ? column_named(words[0]) : nullptr;
        const auto width = facts != nullptr ? number_of(words[1]) : std::nullopt;
        if (!width || *width < 0) continue;
        const bool is_there =
            std::ranges::find(read, facts->column, &Layout::ColumnPlace::column) != read.end();
        if (!is_there) read.push_back({facts->column, *width, words[2] == "1"});
    }
    // Columns that a later version brought stand behind those that were placed.
    for (const Layout::ColumnPlace& other : columns) {
        if (std::ranges::find(read, other.column, &Layout::ColumnPlace::column) == read.end())
            read.push_back(other);
    }
    const bool any_shown = std::ranges::any_of(read, &Layout::ColumnPlace::shown);
    if (any_shown) columns = std::move(read);
}

std::vector<SortKey> read_sort(std::string_view text) {
    std::vector<SortKey> keys;
    for (const std::string_view part : split(text, ',')) {
        if (part.empty() || keys.size() >= most_keys) break;
        const ColumnFacts* const facts = column_named(part.substr(0, part.size() - 1));
        if (facts != nullptr) keys.push_back({facts->column, part.back() == '-'});
    }
    return keys;
}

void read_pane(std::string_view name, std::string_view text, Layout& layout) {
    const auto words = split(text, ':');
    const auto size = words.size() == 2 ? number_of(words[1]) : std::nullopt;
    if (!size || *size < 0 || !is_name(name) || layout.panes.size() >= most_names) return;
    layout.panes[std::string(name)] = {words[0] == "1", *size};
}

}  // namespace

Layout Layout::standard() {
    Layout layout;
    for (const ColumnFacts& facts : column_table()) layout.columns.push_back({facts.column, 0, facts.shown});
    // The reason of a failure stands beside the state, where it is seen.
    const auto place_of = [&layout](Column column) {
        return std::ranges::find(layout.columns, column, &ColumnPlace::column);
    };
    const auto trouble = place_of(Column::trouble);
    std::rotate(place_of(Column::state) + 1, trouble, trouble + 1);
    layout.sort = {{Column::added, true}};
    return layout;
}

std::u16string Layout::text() const {
    std::string text(version);
    if (window)
        text += ";window=" + std::to_string(window->x) + "," + std::to_string(window->y) + "," +
                std::to_string(window->width) + "," + std::to_string(window->height);
    text += maximised ? ";max=1" : ";max=0";
    text += ";columns=";
    for (const ColumnPlace& one : columns)
        text += (&one == &columns.front() ? "" : ",") + std::string(facts_of(one.column).name) + ":" +
                std::to_string(one.width) + (one.shown ? ":1" : ":0");
    text += ";sort=";
    for (const SortKey& key : sort)
        text += (&key == &sort.front() ? "" : ",") + std::string(facts_of(key.column).name) +
                (key.descending ? "-" : "+");
    for (const auto& [name, pane] : panes)
        text += ";pane." + name + "=" + (pane.shown ? "1:" : "0:") + std::to_string(pane.size);
    for (const auto& [name, value] : choices) text += ";choice." + name + "=" + escaped(value);
    return to_utf16(text);
}

Layout Layout::read(std::u16string_view text) {
    Layout layout = standard();
    const std::string bytes = to_utf8(text);
    const auto parts = split(bytes, ';');
    if (bytes.size() > longest_text || parts.front() != version) return layout;
    for (const std::string_view part : parts) {
        const auto equals = part.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view key = part.substr(0, equals);
        const std::string_view value = part.substr(equals + 1);
        constexpr std::string_view pane = "pane.";
        constexpr std::string_view choice = "choice.";
        if (key == "window") layout.window = read_place(value);
        if (key == "max") layout.maximised = value == "1";
        if (key == "columns") read_columns(value, layout.columns);
        if (key == "sort") layout.sort = read_sort(value);
        if (key.starts_with(pane)) read_pane(key.substr(pane.size()), value, layout);
        if (key.starts_with(choice) && is_name(key.substr(choice.size())) &&
            layout.choices.size() < most_names)
            layout.choices[std::string(key.substr(choice.size()))] = percent_decode(value);
    }
    return layout;
}

std::optional<Layout::Place> Layout::place_on(const std::vector<Place>& screens) const {
    if (!window) return std::nullopt;
    const auto can_grasp = [this](const Place& screen) {
        const int left = std::max(window->x, screen.x);
        const int right = std::min(window->x + window->width, screen.x + screen.width);
        // The title bar is at the top.
        return right - left >= grasp && window->y >= screen.y &&
               window->y + grasp / 2 <= screen.y + screen.height;
    };
    if (!std::ranges::any_of(screens, can_grasp)) return std::nullopt;
    return window;
}

Layout load_layout(const Settings& settings) {
    return Layout::read(settings.text(setting::window_layout));
}

Done save_layout(Engine& engine, const Settings& settings, const Layout& layout) {
    const std::u16string text = layout.text();
    if (text == settings.text(setting::window_layout)) return {};
    return engine.set_setting(setting::window_layout.section, setting::window_layout.key, text);
}

}  // namespace vantlow
