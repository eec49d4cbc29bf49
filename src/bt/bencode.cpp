#include "bt/bencode.h"

#include <charconv>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();
// The memory that the system's allocator and the parent's array add to each value.
constexpr std::size_t value_overhead = 32;

bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}

// Reads a number as strtoll does: one sign, digits up to the first byte that is none, the nearest bound where
// they are too many; 0 without a digit.
std::int64_t to_number(std::string_view text) noexcept {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    using Limits = std::numeric_limits<std::int64_t>;
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const auto largest = static_cast<std::uint64_t>(Limits::max());
    if (error == std::errc::invalid_argument) return 0;
    if (error == std::errc::result_out_of_range || value > largest) {
        return negative ? Limits::min() : Limits::max();
    }
    return negative ? -static_cast<std::int64_t>(value) : static_cast<std::int64_t>(value);
}

}  // namespace

/// A list or dictionary that is being read.
struct CBEncode::Frame {
    std::unique_ptr<CBEObject> container;
    std::size_t info_from = nowhere;  ///< where the value that is read next begins, if it is wanted raw
};

void CBEncode::reset() {
    std::string().swap(input_);
    std::string().swap(info_);
    current_ = no_string_at_ = spent_ = 0;
    output_.clear();
}

Result CBEncode::load_file(const std::u16string& path) {
    reset();
    std::vector<std::byte> bytes;
    const FileError error = read_file(path, largest_file, bytes);
    const bool too_large = error.fault == FileFault::too_large;
    if (!error.ok() && !too_large) return {Code::local_file, error.text(), error.system_error};
    if (error.ok() && bytes.empty()) return {Code::unsupported, "the file is empty."};
    if (too_large || !load_memory(bytes)) return {Code::unsupported, "the file is too large."};
    return {};
}

bool CBEncode::load_memory(std::span<const std::byte> bytes) {
    reset();
    try {
        input_.assign(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool CBEncode::afford(std::size_t bytes) noexcept {
    if (most_tree_memory - spent_ < bytes) return false;
    spent_ += bytes;
    return true;
}

std::unique_ptr<CBEDictionary> CBEncode::parse_document() {
    std::unique_ptr<CBEObject> value = parse_value();
    if (as_dictionary(value.get()) == nullptr) return nullptr;
    return std::unique_ptr<CBEDictionary>(static_cast<CBEDictionary*>(value.release()));
}

std::unique_ptr<CBEObject> CBEncode::parse_value() {
    try {
        return parse_tree();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// The open containers form the stack that a recursive reader would have.
std::unique_ptr<CBEObject> CBEncode::parse_tree() {
    std::unique_ptr<CBEObject> value = begin_value();
    std::vector<Frame> open;
    const auto is_container = [](const CBEObject& object) {
        return object.kind == CBEObject::list_kind || object.kind == CBEObject::dictionary_kind;
    };
    if (!value || !is_container(*value)) return value;
    open.push_back({std::move(value)});
    for (;;) {
        if (wants_value(open.back())) {
            value = begin_value();
            if (value && is_container(*value)) {
                open.push_back({std::move(value)});
                continue;
            }
            if (value) {
                attach(open.back(), std::move(value));
                continue;
            }
            give_up_value(open.back());
        }
        value = std::move(open.back().container);
        open.pop_back();
        if (open.empty()) return value;
        attach(open.back(), std::move(value));
    }
}

// Reads a whole string or integer, or the beginning of a list or dictionary whose contents follow.
std::unique_ptr<CBEObject> CBEncode::begin_value() {
    if (current_ >= input_.size()) return nullptr;
    switch (input_[current_]) {
        case 'd':
            ++current_;
            if (!afford(sizeof(CBEDictionary) + sizeof(Frame) + 2 * value_overhead)) return nullptr;
            return std::make_unique<CBEDictionary>();
        case 'l':
            ++current_;
            if (!afford(sizeof(CBEList) + sizeof(Frame) + 2 * value_overhead)) return nullptr;
            return std::make_unique<CBEList>();
        case 'i':
            ++current_;
            return read_integer();
        default:
            return read_string();
    }
}

std::unique_ptr<CBEString> CBEncode::read_string() {
    // A reader that gives up leaves the place to the surrounding container, which may try here once more.
    if (no_string_at_ == current_ + 1) return nullptr;
    std::size_t at = current_;
    std::size_t length = 0;
    constexpr std::size_t longest = std::numeric_limits<std::int32_t>::max();
    while (at < input_.size() && is_digit(input_[at])) {
        if (length <= longest) length = length * 10 + static_cast<std::size_t>(input_[at] - '0');
        ++at;
    }
    const bool fits =
        at < input_.size() && input_[at] == ':' && length <= longest && length <= input_.size() - (at + 1);
    if (!fits || !afford(sizeof(CBEString) + value_overhead)) {
        no_string_at_ = current_ + 1;
        return nullptr;
    }
    auto string = std::make_unique<CBEString>(std::string_view(input_).substr(at + 1, length));
    current_ = at + 1 + length;
    return string;
}

std::unique_ptr<CBEObject> CBEncode::read_integer() {
    std::size_t at = current_;
    while (at < input_.size() && (is_digit(input_[at]) || input_[at] == '-' || input_[at] == '+')) ++at;
    if (at == input_.size() || input_[at] != 'e' || !afford(sizeof(CBEInteger) + value_overhead)) {
        return nullptr;
    }
    const std::string_view body = std::string_view(input_).substr(current_, at - current_);
    current_ = at + 1;
    return std::make_unique<CBEInteger>(to_number(body));
}

// True when the container has a value at the current position, its key read; false when it has ended.
bool CBEncode::wants_value(Frame& frame) {
    if (current_ >= input_.size()) return false;
    if (input_[current_] == 'e') {
        ++current_;
        return false;
    }
    if (frame.container->kind == CBEObject::list_kind) return true;
    if (!is_digit(input_[current_])) return false;
    auto key = read_string();
    if (!key) return false;
    frame.info_from = key->data.starts_with("info") ? current_ : nowhere;
    static_cast<CBEDictionary&>(*frame.container).keys.push_back(std::move(key));
    return true;
}

void CBEncode::attach(Frame& frame, std::unique_ptr<CBEObject> value) {
    if (frame.container->kind == CBEObject::list_kind) {
        static_cast<CBEList&>(*frame.container).add(std::move(value));
        return;
    }
    static_cast<CBEDictionary&>(*frame.container).values.push_back(std::move(value));
    if (frame.info_from != nowhere && info_.empty()) {
        info_.assign(input_, frame.info_from, current_ - frame.info_from);
    }
}

void CBEncode::give_up_value(Frame& frame) {
    if (frame.container->kind == CBEObject::dictionary_kind) {
        static_cast<CBEDictionary&>(*frame.container).keys.pop_back();
    }
}

const CBEObject* CBEncode::find(const CBEObject* dictionary, std::string_view path) noexcept {
    const CBEObject* value = dictionary;
    for (;;) {
        const CBEDictionary* const here = as_dictionary(value);
        if (here == nullptr) return nullptr;
        const std::size_t slash = path.find('/');
        value = here->find(path.substr(0, slash));
        if (value == nullptr || slash == std::string_view::npos) return value;
        path.remove_prefix(slash + 1);
    }
}

void CBEncode::write_scalar(const CBEObject& value) {
    if (const CBEInteger* const integer = as_integer(&value)) {
        write_text("i" + std::to_string(integer->value) + "e");
    } else if (const CBEString* const string = as_string(&value)) {
        write_text(std::to_string(string->length()) + ":");
        write_text(string->data);
    }
}

void CBEncode::write(const CBEObject* value) {
    struct Place {
        const CBEObject* container;
        std::size_t next;
    };
    std::vector<Place> open;
    const auto begin = [&](const CBEObject* object) {
        if (object == nullptr) return;
        if (as_list(object) == nullptr && as_dictionary(object) == nullptr) {
            write_scalar(*object);
            return;
        }
        write_text(object->kind == CBEObject::list_kind ? "l" : "d");
        open.push_back({object, 0});
    };
    begin(value);
    while (!open.empty()) {
        Place& place = open.back();
        const CBEDictionary* const dictionary = as_dictionary(place.container);
        const BEObjects& values =
            dictionary != nullptr ? dictionary->values : as_list(place.container)->items;
        if (place.next == values.size()) {
            write_text("e");
            open.pop_back();
            continue;
        }
        if (dictionary != nullptr) write_scalar(*dictionary->keys[place.next]);
        begin(values[place.next++].get());
    }
}

}  // namespace vantlow
