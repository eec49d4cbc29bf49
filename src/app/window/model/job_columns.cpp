#include "app/window/model/job_columns.h"

#include <algorithm>

#include "app/process/job_view.h"
#include "app/terminal/display_text.h"
#include "app/window/model/links.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/model/troubles.h"
#include "base/text.h"
#include "engine/recovery.h"

namespace vantlow {
namespace {

std::u16string_view last_name(std::u16string_view path) noexcept {
    const auto at = path.find_last_of(u"/\\");
    return at == std::u16string_view::npos ? path : path.substr(at + 1);
}

// The last part of an address that names a file by it; else the address.
std::u16string_view name_in_address(std::u16string_view address) noexcept {
    const std::u16string_view scheme = scheme_of_server(address);
    if (scheme.empty() || address.find(u'?') != std::u16string_view::npos) return address;
    const auto at = address.find_last_of(u'/');
    return at >= scheme.size() && at + 1 < address.size() ? address.substr(at + 1) : address;
}

// The file's name, or what it was asked to be; empty while neither is known.
std::u16string_view known_name_in(const CJobNode& job, std::u16string_view path) noexcept {
    const auto name = last_name(path);
    return name.empty() ? std::u16string_view(job.file_name) : name;
}

// The same, or what the address names.
std::u16string_view name_in(const CJobNode& job, std::u16string_view path) noexcept {
    const auto known = known_name_in(job, path);
    return known.empty() ? name_in_address(job.address) : known;
}

std::u16string_view path_in(const CJobNode& job, const LiveJob* live) noexcept {
    return live != nullptr && !live->path.empty() ? live->path : job.path;
}

std::int64_t size_in(const CJobNode& job, const LiveJob* live) noexcept {
    return live != nullptr ? live->size : JobView::size_of(job);
}

std::int64_t done_in(const CJobNode& job, const LiveJob* live) noexcept {
    return live != nullptr ? live->done : JobView::done_of(job);
}

// Per cent of a hundredth, so that equal shown values are still in order; -1 while unknown.
std::int64_t share_in(const CJobNode& job, const LiveJob* live) noexcept {
    const std::int64_t size = size_in(job, live);
    if (size < 0) return -1;
    if (size == 0) return 10000;
    return static_cast<std::int64_t>(static_cast<double>(done_in(job, live)) / static_cast<double>(size) *
                                     10000);
}

RowSign sign_in(const CJobNode& job, const LiveJob* live) noexcept {
    if (live != nullptr && live->awaits_place) return RowSign::waiting;
    const bool is_held_up = job.state == JobState::running && live != nullptr && !live->waits.empty();
    return is_held_up ? RowSign::held_up : sign_of(job.state);
}

void append_number(std::int64_t value, std::string& key) {
    const auto bits = static_cast<std::uint64_t>(value) ^ (1ULL << 63U);
    for (int shift = 56; shift >= 0; shift -= 8)
        key += static_cast<char>(bits >> static_cast<unsigned>(shift));
}

bool is_digit(char16_t c) noexcept {
    return c >= u'0' && c <= u'9';
}

// The letters behind U+00C0 to U+017F without their marks, so that "\u00C4pfel" stands between "Apfel" and
// "Axt".
constexpr std::string_view unmarked =
    "aaaaaaaceeeeiiiidnoooooxouuuuytsaaaaaaaceeeeiiiidnooooo:ouuuuyty"
    "aaaaaaccccccccddddeeeeeeeeeegggggggghhhhiiiiiiiiiiiijjkkklllllll"
    "lllnnnnnnnnnoooooooorrrrrrssssssssttttttuuuuuuuuuuuuwwyyyzzzzzzs";

char16_t sorting_value(char16_t c) noexcept {
    const bool is_marked = c >= 0xC0 && c < 0xC0 + unmarked.size();
    // The end of a text is smaller than everything: no unit is 0.
    return is_marked ? static_cast<char16_t>(unmarked[c - 0xC0U]) : std::max<char16_t>(folded(c), 1);
}

// Appends a character so that bytes are ordered as the values are: ASCII takes one byte.
void append_unit(char16_t c, std::string& key) {
    if (c < 0x80) {
        key += static_cast<char>(c);
        return;
    }
    key += static_cast<char>(0x80);
    key += static_cast<char>(c >> 8U);
    key += static_cast<char>(c & 0xFFU);
}

// Letters by their value; a number as its length and its digits, so that 9 comes before 10.
void append_text(std::u16string_view text, std::string& key) {
    constexpr std::size_t longest = 512;
    text = text.substr(0, longest);
    for (std::size_t i = 0; i < text.size();) {
        if (!is_digit(text[i])) {
            append_unit(sorting_value(text[i++]), key);
            continue;
        }
        while (i + 1 < text.size() && text[i] == u'0' && is_digit(text[i + 1])) ++i;
        std::size_t end = i;
        while (end < text.size() && is_digit(text[end])) ++end;
        append_unit(u'0', key);
        append_unit(static_cast<char16_t>(end - i), key);
        for (; i < end; ++i) key += static_cast<char>(text[i]);
    }
    key += '\0';
}

}  // namespace

const std::array<ColumnFacts, column_count>& column_table() {
    static const std::array<ColumnFacts, column_count> table{{
        {Column::name, "name", to_translate("Name"), 28, false, true, false},
        {Column::size, "size", to_translate("Size"), 10, true, true, false},
        {Column::done, "done", to_translate("Done"), 8, true, true, true},
        {Column::speed, "speed", to_translate("Speed"), 12, true, true, true},
        {Column::left, "left", to_translate("Time left"), 10, true, true, true},
        {Column::state, "state", to_translate("State"), 12, false, true, false},
        {Column::category, "category", to_translate("Category"), 12, false, true, false},
        {Column::added, "added", to_translate("Added"), 16, false, false, false},
        {Column::finished, "finished", to_translate("Finished"), 16, false, false, false},
        {Column::address, "address", to_translate("Address"), 40, false, false, false},
        {Column::folder, "folder", to_translate("Folder"), 30, false, false, false},
        {Column::comment, "comment", to_translate("Comment"), 20, false, false, false},
        {Column::kind, "kind", to_translate("Kind"), 12, false, false, false},
        {Column::connections, "connections", to_translate("Connections"), 6, true, false, true},
        {Column::order, "order", to_translate("Place"), 6, true, false, false},
        {Column::trouble, "trouble", to_translate("Trouble"), 28, false, true, false},
    }};
    return table;
}

RowSign sign_of(JobState state) noexcept {
    switch (state) {
        case JobState::running:
            return RowSign::running;
        case JobState::stopped:
            return RowSign::stopped;
        case JobState::finished:
            return RowSign::finished;
        case JobState::failed:
            return RowSign::failed;
        case JobState::waiting:
            break;
    }
    return RowSign::waiting;
}

const ColumnFacts& facts_of(Column column) {
    return column_table()[static_cast<std::size_t>(column)];
}

RowFacts facts_of(const CJobNode& job, const Engine& engine, const LiveJobs& live) {
    RowFacts facts{job, engine.category_of(job), live.find(job)};
    if (engine.is_moving(job.identity))
        facts.move = engine.file_move(job.identity).value_or(FileMoveProgress());
    return facts;
}

std::string RowFacts::cell(Column column) const {
    switch (column) {
        case Column::name: {
            const auto known = known_name_in(job, path_in(job, live));
            if (!known.empty()) return shown(known);
            const std::u16string_view name = name_in_address(job.address);
            return name.size() == job.address.size() ? printable(JobView::address_of(job))
                                                     : printable(percent_decode(to_utf8(name)));
        }
        case Column::size:
            return size_text(size_in(job, live));
        case Column::done: {
            const std::int64_t size = size_in(job, live);
            return size > 0 ? percent_text(done_in(job, live), size) : size == 0 ? "100 %" : std::string();
        }
        case Column::speed:
            return live != nullptr ? speed_text(live->speed) : std::string();
        case Column::left:
            return live != nullptr ? time_left_text(live->seconds_left()) : std::string();
        case Column::state:
            if (move)
                return move->size > 0 ? fill(tr("moving: %1"), {percent_text(move->moved, move->size)})
                                      : tr("moving");
            if (is_to_be_shared(job)) return tr("sharing");
            if (job.state == JobState::stopped && job.start_mode == start_mode::by_schedule)
                return tr("by schedule");
            return state_text(live != nullptr && live->awaits_place ? JobState::waiting : job.state);
        case Column::category:
            return name_of(category);
        case Column::added:
            return moment_text(job.created);
        case Column::finished:
            return moment_text(job.finished);
        case Column::address:
            return printable(JobView::address_of(job));
        case Column::folder:
            return shown(folder_of(path_in(job, live)));
        case Column::comment:
            return shown(job.comment);
        case Column::kind:
            return kind_text(kind_of(job));
        case Column::connections:
            return live != nullptr ? std::to_string(live->connections) : std::string();
        case Column::order:
            return place > 0 ? std::to_string(place) : std::string();
        case Column::trouble:
            if (live == nullptr) return trouble_text(JobView::error_of(job));
            return live->awaits_place ? tr("waits for a free connection to the server")
                                      : trouble_text(live->waits);
    }
    return {};
}

RowSign RowFacts::sign() const {
    return sign_in(job, live);
}

int RowFacts::percent() const {
    const std::int64_t share = share_in(job, live);
    return share < 0 ? -1 : static_cast<int>(share / 100);
}

RowOrder::RowOrder(std::vector<SortKey> keys, const Engine& engine, const LiveJobs& live)
    : keys_(std::move(keys)), live_(&live), fields_(job_field::order) {
    if (keys_.empty()) keys_.push_back({Column::added, false});
    for (const SortKey& key : keys_) {
        live_order_ = live_order_ || facts_of(key.column).is_live;
        switch (key.column) {
            case Column::name:
            case Column::folder:
                fields_ |= job_field::place | job_field::options;
                break;
            case Column::size:
            case Column::done:
                fields_ |= job_field::progress | job_field::state;
                break;
            case Column::category:
                fields_ |= job_field::category;
                break;
            case Column::address:
            case Column::comment:
                fields_ |= job_field::options;
                break;
            default:
                fields_ |= job_field::state;
                break;
        }
        if (key.column != Column::category || !category_keys_.empty()) continue;
        for (const CClassNode* category : engine.categories())
            append_text(to_utf16(name_of(*category)), category_keys_[category->identity]);
    }
}

void RowOrder::append_key(const CJobNode& job, std::string& key) const {
    const LiveJob* const live = live_order_ && live_ != nullptr ? live_->find(job) : nullptr;
    for (const SortKey& sort : keys_) {
        const std::size_t begin = key.size();
        switch (sort.column) {
            case Column::name:
                append_text(name_in(job, job.path), key);
                break;
            case Column::size:
                append_number(size_in(job, live), key);
                break;
            case Column::done:
                append_number(share_in(job, live), key);
                break;
            case Column::speed:
                append_number(live != nullptr ? static_cast<std::int64_t>(live->speed) : -1, key);
                break;
            case Column::left:
                append_number(live != nullptr ? live->seconds_left() : -1, key);
                break;
            case Column::state:
                append_number(static_cast<std::int64_t>(job.state), key);
                break;
            case Column::category:
                if (const auto at = category_keys_.find(job.category); at != category_keys_.end())
                    key += at->second;
                break;
            case Column::added:
                append_number(job.created, key);
                break;
            case Column::finished:
                append_number(job.finished, key);
                break;
            case Column::address:
                append_text(job.address, key);
                break;
            case Column::folder: {
                const std::u16string_view path = job.path;
                append_text(path.substr(0, path.size() - last_name(path).size()), key);
                break;
            }
            case Column::comment:
                append_text(job.comment, key);
                break;
            case Column::kind:
                append_number(job.kind, key);
                break;
            case Column::connections:
                append_number(live != nullptr ? live->connections : -1, key);
                break;
            case Column::order:
                append_number(job.state == JobState::waiting ? job.order : std::int64_t{1} << 40U, key);
                break;
            case Column::trouble:
                append_number(job.state == JobState::failed ? static_cast<std::int64_t>(job.result) : 0, key);
                break;
        }
        if (!sort.descending) continue;
        for (std::size_t i = begin; i < key.size(); ++i)
            key[i] = static_cast<char>(~static_cast<unsigned char>(key[i]));
    }
    append_number(job.created, key);
    append_number(job.order, key);
    key.append(reinterpret_cast<const char*>(job.identity.bytes.data()), job.identity.bytes.size());
}

}  // namespace vantlow
