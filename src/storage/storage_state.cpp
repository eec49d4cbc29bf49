#include "storage/storage_state.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "base/digest.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "platform/file_marks.h"

namespace vantlow {
namespace {

constexpr std::string_view head = "vantlow storage 1\n";
constexpr std::size_t digest_bytes = 32;
constexpr std::size_t largest_state = 256 * 1024 * 1024;

class Writer {
  public:
    void number(std::int64_t value) {
        for (int shift = 56; shift >= 0; shift -= 8)
            bytes_.push_back(
                static_cast<std::byte>(static_cast<std::uint64_t>(value) >> static_cast<unsigned>(shift)));
    }
    void raw(std::string_view text) {
        const auto view = std::as_bytes(std::span(text.data(), text.size()));
        bytes_.insert(bytes_.end(), view.begin(), view.end());
    }
    void text(std::string_view text) {
        number(static_cast<std::int64_t>(text.size()));
        raw(text);
    }
    void bits(const std::vector<bool>& bits) {
        number(static_cast<std::int64_t>(bits.size()));
        for (std::size_t at = 0; at < bits.size(); at += 8) {
            unsigned byte = 0;
            for (std::size_t i = at; i < std::min(at + 8, bits.size()); ++i)
                if (bits[i]) byte |= 0x80U >> (i - at);
            bytes_.push_back(static_cast<std::byte>(byte));
        }
    }
    std::vector<std::byte> finish() {
        Digest digest(DigestKind::sha256);
        digest.update(bytes_);
        const std::vector<std::byte> sum = digest.finish();
        bytes_.insert(bytes_.end(), sum.begin(), sum.end());
        return std::move(bytes_);
    }

  private:
    std::vector<std::byte> bytes_;
};

/// Reads what Writer wrote; after the first contradiction everything it gives is empty and ok() is false.
class Reader {
  public:
    explicit Reader(std::span<const std::byte> bytes) : rest_(bytes) {}
    std::int64_t number() {
        std::uint64_t value = 0;
        for (const std::byte byte : take(8)) value = value << 8U | std::to_integer<std::uint64_t>(byte);
        return static_cast<std::int64_t>(value);
    }
    /// A count of things that take at least `bytes` each.
    std::size_t count(std::size_t bytes) {
        const std::int64_t value = number();
        ok_ = ok_ && value >= 0 && static_cast<std::uint64_t>(value) <= rest_.size() / bytes;
        return ok_ ? static_cast<std::size_t>(value) : 0;
    }
    std::string text() {
        const auto view = take(count(1));
        return {reinterpret_cast<const char*>(view.data()), view.size()};
    }
    std::vector<bool> bits() {
        const std::int64_t value = number();
        ok_ = ok_ && value >= 0 && static_cast<std::uint64_t>(value) <= rest_.size() * 8;
        std::vector<bool> bits(ok_ ? static_cast<std::size_t>(value) : 0);
        const auto view = take((bits.size() + 7) / 8);
        for (std::size_t i = 0; i < bits.size() && ok_; ++i)
            bits[i] = (std::to_integer<unsigned>(view[i / 8]) & (0x80U >> (i % 8))) != 0;
        return bits;
    }
    std::span<const std::byte> take(std::size_t bytes) {
        ok_ = ok_ && bytes <= rest_.size();
        if (!ok_) return {};
        const auto view = rest_.first(bytes);
        rest_ = rest_.subspan(bytes);
        return view;
    }
    [[nodiscard]] bool ok() const noexcept { return ok_; }
    [[nodiscard]] bool is_at_end() const noexcept { return ok_ && rest_.empty(); }

  private:
    std::span<const std::byte> rest_;
    bool ok_ = true;
};

bool names_stay_below(const std::map<std::size_t, std::u16string>& names) {
    return std::all_of(names.begin(), names.end(), [](const auto& entry) {
        std::u16string_view rest = entry.second;
        while (!rest.empty()) {
            const auto end = rest.find_first_of(u"/\\");
            const std::u16string_view part = rest.substr(0, end);
            if (part.empty() || part == u"." || part == u".." || part.find(u':') != part.npos) return false;
            if (end == std::u16string_view::npos) return true;
            rest.remove_prefix(end + 1);
        }
        return false;
    });
}

FileMark mark_of(const FileStamp& stamp, bool in_work) {
    return stamp.there ? FileMark{stamp.size, stamp.modified, in_work} : FileMark{};
}

// After a save its writer may go on for so long, until the next one or a kill.
constexpr std::int64_t longest_work = std::int64_t{120} * 1'000'000'000;

// A file with the one mark may have had the other before. `saved` as in StorageState.
bool fits(const FileMark& then, const FileMark& now, std::int64_t saved) {
    if (then.in_work) return now.size >= then.size && (saved == 0 || now.modified <= saved + longest_work);
    return now.size == then.size && now.modified == then.modified;
}

// `goes_on`: unfinished files may be written to behind their marks.
std::vector<FileMark> marks_of(const Storage& storage, bool goes_on) {
    std::vector<FileMark> marks(storage.files().count());
    for (std::size_t file = 0; file < marks.size(); ++file) {
        const FileShape shape = storage.shape(file);
        if (shape == FileShape::absent) continue;
        marks[file] = mark_of(file_stamp(storage.path(file)), goes_on && shape == FileShape::partial);
    }
    return marks;
}

}  // namespace

std::vector<std::byte> StorageState::encode() const {
    Writer out;
    out.raw(head);
    out.text(identity);
    out.number(piece_length);
    out.text(to_utf8(places.folder));
    out.text("");  // a second folder, which this version has not
    out.number(static_cast<std::int64_t>(places.names.size()));
    for (const auto& [file, name] : places.names) {
        out.number(static_cast<std::int64_t>(file));
        out.text(to_utf8(name));
    }
    out.bits(chosen);
    out.number(static_cast<std::int64_t>(marks.size()));
    for (const FileMark& mark : marks) {
        out.number(mark.size);
        out.number(mark.modified);
        out.number(mark.in_work ? 1 : 0);
    }
    out.bits(good);
    out.number(parts.size);
    out.number(parts.modified);
    out.number(parts.in_work ? 1 : 0);
    return out.finish();
}

std::optional<StorageState> StorageState::decode(std::span<const std::byte> bytes) {
    if (bytes.size() < head.size() + digest_bytes) return std::nullopt;
    const auto body = bytes.first(bytes.size() - digest_bytes);
    Digest digest(DigestKind::sha256);
    digest.update(body);
    if (!std::ranges::equal(digest.finish(), bytes.last(digest_bytes))) return std::nullopt;
    Reader in(body);
    if (!std::ranges::equal(in.take(head.size()), std::as_bytes(std::span(head.data(), head.size()))))
        return std::nullopt;
    StorageState state;
    state.identity = in.text();
    state.piece_length = in.number();
    state.places.folder = to_utf16(in.text());
    static_cast<void>(in.text());  // see encode()
    for (std::size_t left = in.count(16); left > 0; --left) {
        const std::int64_t file = in.number();
        state.places.names[static_cast<std::size_t>(file)] = to_utf16(in.text());
    }
    state.chosen = in.bits();
    state.marks.resize(in.count(24));
    for (FileMark& mark : state.marks) {
        mark.size = in.number();
        mark.modified = in.number();
        mark.in_work = in.number() != 0;
    }
    state.good = in.bits();
    state.parts.in_work = true;  // where an earlier version did not mark it
    if (in.ok() && !in.is_at_end()) {
        state.parts.size = in.number();
        state.parts.modified = in.number();
        state.parts.in_work = in.number() != 0;
    }
    const bool fits = in.is_at_end() && state.piece_length > 0 && state.chosen.size() == state.marks.size();
    if (!fits || !names_stay_below(state.places.names)) return std::nullopt;
    return state;
}

std::u16string storage_state_path(const std::u16string& target) {
    return target + std::u16string(state_suffix);
}

Result save_storage_state(Storage& storage, const std::string& identity, const std::vector<bool>& good,
                          const std::u16string& path, bool is_last) {
    StorageState state;
    state.identity = identity;
    state.piece_length = storage.piece_length();
    state.good = good;
    state.chosen.resize(storage.files().count());
    for (std::size_t file = 0; file < state.chosen.size(); ++file)
        state.chosen[file] = storage.is_chosen(file);
    state.places = storage.places();
    if (Result result = storage.sync(); !result.ok()) return result;
    if (is_last) storage.rest();
    state.marks = marks_of(storage, !is_last);
    state.parts = mark_of(storage.part_stamp(), !is_last);
    if (FileError error = write_file_atomically(path, state.encode(), Privacy::owner_only); !error.ok())
        return {Code::local_file, "The state of the job could not be saved: " + error.text(),
                error.system_error};
    return {};
}

std::optional<StorageState> load_storage_state(const std::u16string& path, const std::string& identity) {
    std::vector<std::byte> bytes;
    if (!belongs_to_user(path) || !read_file(path, largest_state, bytes).ok()) return std::nullopt;
    std::optional<StorageState> state = StorageState::decode(bytes);
    if (state && state->identity != identity) state.reset();
    if (state) state->saved = file_stamp(path).modified;
    return state;
}

std::vector<std::size_t> doubt_changed_files(const Storage& storage, StorageState& state) {
    std::vector<std::size_t> doubted;
    const FileList& files = storage.files();
    const auto count =
        static_cast<std::size_t>((files.size() + storage.piece_length() - 1) / storage.piece_length());
    if (state.marks.size() != files.count() || state.good.size() != count ||
        state.piece_length != storage.piece_length()) {
        state.good.assign(count, false);
        for (std::size_t piece = 0; piece < count; ++piece) doubted.push_back(piece);
        return doubted;
    }
    const std::vector<FileMark> now = marks_of(storage, false);
    for (std::size_t file = 0; file < now.size(); ++file) {
        const ListedFile& listed = files.at(file);
        if (fits(state.marks[file], now[file], state.saved) || listed.length == 0 || listed.padding) continue;
        const auto last =
            static_cast<std::size_t>((listed.offset + listed.length - 1) / storage.piece_length());
        for (auto piece = static_cast<std::size_t>(listed.offset / storage.piece_length()); piece <= last;
             ++piece) {
            if (!state.good[piece]) continue;
            state.good[piece] = false;
            doubted.push_back(piece);
        }
    }
    const bool are_parts_ours = fits(state.parts, mark_of(storage.part_stamp(), false), state.saved);
    for (std::size_t piece = 0; piece < count; ++piece) {
        const auto number = static_cast<std::int64_t>(piece);
        const bool is_kept = are_parts_ours ? storage.reaches_parts_of(number) : !storage.uses_parts(number);
        if (!state.good[piece] || is_kept) continue;
        state.good[piece] = false;
        doubted.push_back(piece);
    }
    return doubted;
}

std::vector<std::size_t> late_pieces(const Storage& storage, const StorageState& state) {
    constexpr std::int64_t most_bytes = std::int64_t{1} << 30;
    const auto most = static_cast<std::size_t>(most_bytes / storage.piece_length());
    const std::vector<FileMark> now = marks_of(storage, false);
    std::set<std::size_t> late;
    for (std::size_t file = 0; file < now.size() && file < state.marks.size(); ++file) {
        const FileMark& then = state.marks[file];
        if (now[file].size == then.size && now[file].modified == then.modified) continue;
        const ListedFile& listed = storage.files().at(file);
        if (listed.padding) continue;
        for (const ByteRange& range : storage.data_of(file)) {
            const std::int64_t end = listed.offset + std::min(range.end, listed.length);
            std::int64_t piece = (listed.offset + range.begin) / storage.piece_length();
            for (; piece * storage.piece_length() < end; ++piece) {
                if (state.good[static_cast<std::size_t>(piece)]) continue;
                late.insert(static_cast<std::size_t>(piece));
                if (late.size() > most) return {};
            }
        }
    }
    return {late.begin(), late.end()};
}

}  // namespace vantlow
