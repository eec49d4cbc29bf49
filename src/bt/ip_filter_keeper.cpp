#include "bt/ip_filter_keeper.h"

#include <array>

#include "base/text.h"
#include "bt/torrent_settings.h"
#include "platform/file.h"

namespace vantlow {
namespace {

constexpr std::size_t portion = 64 * 1024;
// A packed list of a few bytes may hold text without end.
constexpr std::int64_t most_unpacked = std::int64_t{1} << 30;
constexpr std::array gzip_begin{std::byte{0x1F}, std::byte{0x8B}};

std::string_view text_of(std::span<const std::byte> bytes) noexcept {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// The members of a gzip file, one behind the other.
class Unpacker {
  public:
    Unpacker(const SshTable& operations, IpFilterReader& reader) : operations_(operations), reader_(reader) {}
    ~Unpacker() { end_member(); }
    Unpacker(const Unpacker&) = delete;
    Unpacker& operator=(const Unpacker&) = delete;

    [[nodiscard]] bool is_possible() const noexcept {
        return operations_.GZ_InflateInit != nullptr && operations_.ZLib_Inflate != nullptr &&
               operations_.ZLib_InflateEnd != nullptr;
    }
    /// False: the bytes are damaged, or too many.
    bool feed(std::span<const std::byte> packed);
    /// Nothing of a member is missing.
    [[nodiscard]] bool is_whole() const noexcept { return stream_ == nullptr; }

  private:
    void end_member() {
        if (stream_ != nullptr) operations_.ZLib_InflateEnd(stream_);
        stream_ = nullptr;
    }

    const SshTable& operations_;
    IpFilterReader& reader_;
    VantlowZStream* stream_ = nullptr;
    std::int64_t unpacked_ = 0;
    std::vector<std::byte> room_ = std::vector<std::byte>(portion);
};

bool Unpacker::feed(std::span<const std::byte> packed) {
    for (;;) {
        if (packed.empty() && stream_ == nullptr) return true;
        if (stream_ == nullptr) stream_ = operations_.GZ_InflateInit();
        if (stream_ == nullptr) return false;
        std::size_t taken = packed.size();
        std::size_t given = room_.size();
        const int state = operations_.ZLib_Inflate(stream_, packed.data(), &taken, room_.data(), &given);
        packed = packed.subspan(taken);
        unpacked_ += static_cast<std::int64_t>(given);
        reader_.feed(text_of(std::span(room_).first(given)));
        if (state == VANTLOW_Z_BAD || unpacked_ > most_unpacked) return false;
        if (state == VANTLOW_Z_END)
            end_member();
        else if (taken == 0 && given == 0)
            return true;
    }
}

/// Empty where the list was read to its end, else a sentence.
std::string read_list(const File& file, Unpacker& unpacker, IpFilterReader& reader) {
    std::vector<std::byte> bytes(portion);
    bool is_packed = false;
    for (std::int64_t at = 0;;) {
        std::size_t got = 0;
        if (const FileError error = file.read_at(at, bytes, got); !error.ok()) return error.text();
        if (got == 0) break;
        const auto some = std::span<const std::byte>(bytes).first(got);
        if (at == 0) is_packed = text_of(some).starts_with(text_of(gzip_begin));
        if (is_packed && !unpacker.is_possible()) return missing_library_text("libssh");
        if (is_packed && !unpacker.feed(some)) return "the packed list is damaged, or too long.";
        if (!is_packed) reader.feed(text_of(some));
        at += static_cast<std::int64_t>(got);
    }
    return unpacker.is_whole() ? std::string() : "the packed list is cut short.";
}

}  // namespace

void read_ip_filter(const std::u16string& path, const SshTable& unpacking, IpFilterReader& reader) {
    File file;
    const FileError error = file.open(path, OpenMode::read);
    Unpacker unpacker(unpacking, reader);
    const std::string failure = error.ok() ? read_list(file, unpacker, reader) : error.text();
    if (!failure.empty()) reader.fail(to_utf8(name_of(path)) + ": " + failure);
    reader.end_list();
}

IpFilterKeeper::IpFilterKeeper(const Settings& settings, const SshTable& unpacking, ThreadPool& threads,
                               const std::u16string& folder, Clock::duration between_looks)
    : settings_(settings),
      unpacking_(unpacking),
      own_list_(join_path(folder, u"ipfilter.dat")),
      between_looks_(between_looks),
      due_(threads) {}

std::vector<IpFilterKeeper::List> IpFilterKeeper::lists() const {
    std::vector<List> all;
    if (!settings_.flag(setting::ip_filter)) return all;
    if (FileStamp stamp = file_stamp(own_list_); stamp.there) all.push_back({own_list_, stamp});
    // A list that a person names and that is not there is worth a sentence.
    if (const std::u16string named = settings_.text(setting::ip_filter_file); !named.empty())
        all.push_back({named, file_stamp(named)});
    return all;
}

std::shared_ptr<const IpFilter> IpFilterKeeper::current() {
    if (due_.claim() && !due_.start([this] { return look(); })) due_.done(look());
    MutexLock guard(mutex_);
    was_read_.wait(guard, [this]() VANTLOW_REQUIRES(mutex_) { return is_known_; });
    return filter_;
}

Clock::duration IpFilterKeeper::look() {
    std::vector<List> found = lists();
    std::shared_ptr<const IpFilter> filter;
    const bool is_new = found != read_;
    if (is_new && !found.empty()) {
        IpFilterReader reader;
        for (const List& list : found) read_ip_filter(list.path, unpacking_, reader);
        filter = std::make_shared<const IpFilter>(reader.finish());
    }
    read_ = std::move(found);
    const MutexLock guard(mutex_);
    if (is_new) filter_ = std::move(filter);
    is_known_ = true;
    was_read_.notify_all();
    return between_looks_;
}

}  // namespace vantlow
