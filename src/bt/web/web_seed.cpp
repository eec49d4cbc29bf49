#include "bt/web/web_seed.h"

#include <algorithm>
#include <utility>

#include "base/codes.h"
#include "base/text.h"
#include "bt/peer_store.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr Clock::duration first_rest = 30s;  // it doubles with each failure
constexpr int most_doublings = 5;
// Bytes that are read away rather than that another answer is asked for.
constexpr std::int64_t most_skipped = 256 * 1024;
constexpr std::uint32_t pieces_ahead = 32;  // as many as the swarm remembers suggestions for
constexpr std::size_t read_buffer = 64 * 1024;

void append_escaped(std::string& address, std::u16string_view part) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    for (const char c : to_utf8(part)) {
        const bool is_plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                              std::string_view("-._~").find(c) != std::string_view::npos;
        const auto byte = static_cast<unsigned char>(c);
        if (is_plain) {
            address += c;
        } else {
            address += {'%', digits[byte / 16], digits[byte % 16]};
        }
    }
}

}  // namespace

std::string web_seed_address(std::string_view seed, const TorrentContent& content, std::size_t file) {
    std::string address(seed);
    const bool is_complete = !content.is_folder && !address.ends_with('/');
    if (is_complete) return address;
    if (!address.ends_with('/')) address += '/';
    append_escaped(address, content.name);
    if (!content.is_folder) return address;
    std::u16string_view path = content.files[file].path;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find_first_of(u"/\\"), path.size());
        if (end > 0) {
            address += '/';
            append_escaped(address, path.substr(0, end));
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return address;
}

bool is_web_seed(std::string_view address) {
    if (!istarts_with(address, "http://") && !istarts_with(address, "https://")) return false;
    const auto target = parse_target(to_utf16(address));
    if (!target) return false;
    if (address.find('?') == std::string_view::npos) return true;
    const auto number = SocketAddress::from_literal(target->host, target->port);
    return target->host != "localhost" && !(number && reach_of(*number) != Reach::everywhere);
}

WebSeed::WebSeed(std::string address, const TorrentContent& content, WebSeedServices services,
                 const SocketAddress& shown)
    : address_(std::move(address)),
      content_(content),
      services_(std::move(services)),
      shown_(shown),
      stop_(services_.stop),
      swarm_has_(static_cast<std::uint32_t>(content.piece_count())) {
    auto files = FileList::make(content.files);
    if (!files) {
        is_over_ = true;
        return;
    }
    files_ = *std::move(files);
    if (const Result result = services_.threads.start(thread_, [this] { work(); }); !result.ok()) {
        services_.log.line(Direction::error, result.message());
        is_over_ = true;
    }
}

WebSeed::~WebSeed() {
    stop_.request();
    post_->seed = nullptr;
    thread_.join();
}

std::unique_ptr<net::Stream> WebSeed::connect() {
    if (is_over_ || stream_ != nullptr || services_.network.now() < not_before_) return nullptr;
    const std::string peer_id = "-WS0000-" + to_hex(hash_of(address_)).substr(0, 12);
    Owner& owner = *this;
    auto stream = std::make_unique<SeedStream>(services_.network, owner, shown_, content_.info_hash, peer_id);
    stream_ = stream.get();
    swarm_has_ = named_ = suggested_ = PieceSet(swarm_has_.size());
    ++turn_;
    return stream;
}

void WebSeed::ban() {
    is_over_ = true;
    services_.log.line(Direction::error, "The web seed " + shown_address() + " gave wrong data and is left.");
}

std::string WebSeed::shown_address() const {
    return services_.errand.show(to_utf16(address_));
}

// A row of bytes comes with one request, so the pieces behind the first one are the best, and those from the
// beginning behind the last.
void WebSeed::wanted(const PieceBlock& block) {
    const std::uint32_t pieces = named_.size();
    if (block.piece >= pieces) return;
    if (!named_.has(block.piece) && suggested_.count() == 0) next_ = block.piece;
    named_.add(block.piece);
    suggested_.remove(block.piece);
    while (suggested_.count() < pieces_ahead && !named_.is_all()) {
        if (named_.add(next_)) {
            suggested_.add(next_);
            stream_->suggest(next_);
        }
        next_ = (next_ + 1) % pieces;
    }
    std::uint32_t row_end = block.piece + 1;
    const std::uint32_t end = std::min(block.piece + pieces_ahead, pieces);
    while (row_end < end && !swarm_has_.has(row_end)) ++row_end;
    const MutexLock guard(mutex_);
    orders_.push_back({turn_, block, row_end, 0});
    changed_.notify_one();
}

bool WebSeed::cancelled(const PieceBlock& block) {
    const MutexLock guard(mutex_);
    return std::erase_if(orders_, [&](const Order& order) { return order.block == block; }) > 0;
}

void WebSeed::has(std::uint32_t piece) {
    if (piece >= swarm_has_.size()) return;
    swarm_has_.add(piece);
    named_.add(piece);
    suggested_.remove(piece);
}

void WebSeed::has_these(std::string_view bitfield) {
    if (auto pieces = PieceSet::from_wire(bitfield, swarm_has_.size()))
        swarm_has_ = named_ = *std::move(pieces);
}

void WebSeed::left() {
    stream_ = nullptr;
    const MutexLock guard(mutex_);
    orders_.clear();
}

void WebSeed::came(const Order& order, const std::string& bytes) {
    failures_ = 0;
    if (stream_ != nullptr && order.turn == turn_) stream_->give(order.block, bytes);
}

void WebSeed::refused(const Order& order, const Refusal& refusal) {
    if (stream_ == nullptr || order.turn != turn_) return;
    is_over_ = is_over_ || refusal.is_final;
    not_before_ = services_.network.now() + first_rest * (1 << std::min(failures_, most_doublings));
    ++failures_;
    services_.log.line(Direction::error, "The web seed " + shown_address() + " is left" +
                                             (is_over_ ? ": " : " for some time: ") + refusal.why.message());
    stream_->leave();
}

void WebSeed::work() {
    const StopCallback wake(stop_, [this] {
        const MutexLock guard(mutex_);
        changed_.notify_one();
    });
    client_.emplace(ConnectionContext{services_.connections, services_.libraries, services_.log, stop_});
    while (const auto order = next_order()) {
        auto bytes = std::make_shared<std::string>();
        const auto refusal = read_block(*order, *bytes);
        if (stop_.requested()) break;
        if (refusal) {
            drop_answer();
            const MutexLock guard(mutex_);
            orders_.clear();
        }
        // Where the network does not take it, it is at its end.
        services_.network.post([post = post_, order = *order, bytes, refusal] {
            if (post->seed == nullptr) return;
            refusal ? post->seed->refused(order, *refusal) : post->seed->came(order, *bytes);
        });
    }
    client_.reset();
}

std::int64_t WebSeed::begin_of(const PieceBlock& block) const noexcept {
    return block.piece * content_.piece_length + block.begin;
}

std::int64_t WebSeed::end_of_piece(std::uint32_t piece) const noexcept {
    return std::min((piece + std::int64_t{1}) * content_.piece_length, content_.total);
}

// The next order, and how far those behind it continue; what is left of their piece will be asked for as
// well.
std::optional<WebSeed::Order> WebSeed::next_order() {
    MutexLock guard(mutex_);
    changed_.wait(guard, [this]() VANTLOW_REQUIRES(mutex_) { return stop_.requested() || !orders_.empty(); });
    if (stop_.requested()) return std::nullopt;
    Order next = orders_.front();
    orders_.pop_front();
    PieceBlock last = next.block;
    for (const Order& order : orders_) {
        if (begin_of(order.block) != begin_of(last) + last.length) break;
        last = order.block;
    }
    next.useful_end = end_of_piece(last.piece);
    return next;
}

std::optional<WebSeed::Refusal> WebSeed::read_block(const Order& order, std::string& bytes) {
    std::int64_t at = begin_of(order.block);
    if (at + order.block.length > end_of_piece(order.block.piece))
        return Refusal{{Code::server_error, "No such block."}, true};
    for (const FileSpan& part : files_.spans(at, order.block.length)) {
        if (files_.at(part.file).padding) {
            bytes.append(static_cast<std::size_t>(part.length), '\0');
            if (at == asked_end_) asked_end_ += part.length;
        } else if (auto refusal = read_part(part, at, order, bytes)) {
            return refusal;
        }
        at += part.length;
    }
    return std::nullopt;
}

// Appends a part of a file that begins at this byte of the torrent, from the answer that is being read where
// it comes there.
std::optional<WebSeed::Refusal> WebSeed::read_part(const FileSpan& part, std::int64_t at, const Order& order,
                                                   std::string& bytes) {
    const bool goes_on = answer_ && answer_->file == part.file && answer_->at <= part.offset &&
                         part.offset - answer_->at <= most_skipped &&
                         part.offset + part.length <= answer_->end;
    if (goes_on) {
        const std::size_t before = bytes.size();
        auto refusal = take_part(part, bytes);
        if (!refusal || stop_.requested()) return refusal;
        bytes.resize(before);  // the rest of a row that it was too long about is asked for again
    }
    drop_answer();
    if (auto refusal = ask(part, row_from(at, order))) return refusal;
    asked_end_ = at + answer_->end - part.offset;
    return take_part(part, bytes);
}

std::optional<WebSeed::Refusal> WebSeed::take_part(const FileSpan& part, std::string& bytes) {
    if (auto refusal = read_bytes(part.offset - answer_->at, nullptr)) return refusal;
    if (auto refusal = read_bytes(part.length, &bytes)) return refusal;
    if (answer_->at == answer_->end) {
        client_->finish();
        answer_.reset();
    }
    return std::nullopt;
}

// The bytes to ask for: those that are ordered and, since the swarm follows what is suggested to it, more
// with each request that goes on where the one before ended. A row that the swarm leaves costs the answer's
// rest.
std::int64_t WebSeed::row_from(std::int64_t at, const Order& order) {
    ahead_ = at == asked_end_ ? std::min(ahead_ * 2, pieces_ahead) : 1;
    const std::uint32_t last = std::min(order.block.piece + ahead_, order.row_end) - 1;
    return std::max(order.useful_end, end_of_piece(last)) - at;
}

std::optional<WebSeed::Refusal> WebSeed::ask(const FileSpan& part, std::int64_t useful) {
    const std::int64_t end = std::min(files_.at(part.file).length, part.offset + useful);
    HttpErrand errand = services_.errand;
    errand.address = to_utf16(web_seed_address(address_, content_, part.file));
    errand.http.extra = {"Accept-Encoding: identity",
                         "Range: bytes=" + std::to_string(part.offset) + "-" + std::to_string(end - 1)};
    HttpAnswer answer;
    if (Result result = client_->ask(errand, answer); !result.ok()) return Refusal{result, false};
    if (auto refusal = judge(answer, part, end)) {
        client_->leave(answer);
        return refusal;
    }
    if (Result result = client_->begin_body(ContentCoding::identity, read_buffer); !result.ok())
        return Refusal{result, false};
    answer_ = {part.file, part.offset, answer.head.status == 200 ? files_.at(part.file).length : end};
    return std::nullopt;
}

std::optional<WebSeed::Refusal> WebSeed::judge(const HttpAnswer& answer, const FileSpan& part,
                                               std::int64_t end) {
    const HttpHead& head = answer.head;
    const std::int64_t length = files_.at(part.file).length;
    const auto refusal = [](std::string why, bool is_final) {
        return Refusal{{Code::server_error, std::move(why)}, is_final};
    };
    if (head.status == 206) {
        const bool is_same = head.range_total.value_or(length) == length;
        if (is_same && head.range_first == part.offset && head.range_last == end - 1) return std::nullopt;
        return refusal(is_same ? "The server gives other bytes than those it was asked for."
                               : "The file at the server has another size.",
                       true);
    }
    if (head.status == 200) {
        if (head.length && *head.length != length)
            return refusal("The file at the server has another size.", true);
        if (part.offset == 0) return std::nullopt;
        return refusal("The server does not give parts of its files.", true);
    }
    const bool is_busy = head.status >= 500 || head.status == 408 || head.status == 429;
    return refusal("The server answered \"" + status_text(head) + "\".", !is_busy);
}

std::optional<WebSeed::Refusal> WebSeed::read_bytes(std::int64_t count, std::string* bytes) {
    std::vector<std::byte> room(std::min<std::size_t>(read_buffer, static_cast<std::size_t>(count)));
    while (count > 0) {
        const auto most = std::min<std::size_t>(room.size(), static_cast<std::size_t>(count));
        const Moved moved =
            client_->read(std::span(room).first(most), Clock::now() + services_.errand.timeout);
        if (moved.state != Moved::State::data)
            return Refusal{{Code::transient, "The server's answer broke off."}, false};
        if (bytes != nullptr) bytes->append(reinterpret_cast<const char*>(room.data()), moved.bytes);
        count -= static_cast<std::int64_t>(moved.bytes);
        answer_->at += static_cast<std::int64_t>(moved.bytes);
    }
    return std::nullopt;
}

void WebSeed::drop_answer() {
    if (answer_) client_->drop();
    answer_.reset();
}

}  // namespace vantlow
