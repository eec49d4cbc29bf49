#include "bt/utp_port.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr int reads_at_once = 128;  // before others have their turn
constexpr Clock::duration a_rest = 1s;

}  // namespace

class UtpStream final : public net::Stream {
  public:
    UtpStream(UtpPort& port, const SocketAddress& peer, VantlowUtpClient* client,
              net::Network::Connected done)
        : port_(port), peer_(peer), client_(client), connected_(std::move(done)) {
        is_connected_ = !connected_;
    }
    ~UtpStream() override { close(); }

    net::Step read(std::span<std::byte> into, Clock::time_point now) override;
    net::Step write(std::span<const std::byte> from, Clock::time_point now) override;
    void when_readable(net::Callback call) override;
    void when_writable(net::Callback call) override;
    Result shut_down_sending() override {
        return {Code::unsupported, "uTP ends both directions of a connection at once."};
    }
    void close() noexcept override;
    void reset() noexcept override { close(); }
    [[nodiscard]] bool is_over_datagrams() const noexcept override { return true; }
    [[nodiscard]] std::optional<SocketAddress> local_address() const override { return std::nullopt; }
    [[nodiscard]] std::optional<SocketAddress> peer_address() const override {
        return is_connected_ ? std::optional(peer_) : std::nullopt;
    }

    void call(VantlowUtpClient* client) noexcept { client_ = client; }
    void hear(int news);
    void tell();

  private:
    friend class UtpPort;

    [[nodiscard]] bool has_news() const noexcept {
        if (connected_) return is_connected_ || has_failed_;
        return (readable_ && can_read_) || (writable_ && can_write_);
    }

    UtpPort& port_;
    const SocketAddress peer_;
    VantlowUtpClient* client_;  ///< null: closed
    bool is_connected_ = false;
    bool has_failed_ = false;
    bool can_read_ = true;  ///< as far as is known
    bool can_write_ = true;
    bool is_queued_ = false;
    net::Network::Connected connected_;  ///< to be called
    net::Callback readable_;
    net::Callback writable_;
};

net::Step UtpStream::read(std::span<std::byte> into, Clock::time_point) {
    if (!is_connected_ && !has_failed_) return net::Step::again(net::Wants::readable);
    if (client_ == nullptr) return net::Step::failed(Code::transient);
    const std::ptrdiff_t count = port_.library_.UTP_Cli_Recv(client_, into.data(), into.size());
    if (count > 0) {
        port_.settle_at(port_.network_.now());  // the peer gets to know that there is room
        return net::Step::moved(static_cast<std::size_t>(count));
    }
    if (count == -1) return net::Step::closed();
    if (count < 0) return net::Step::failed(Code::transient, "The peer broke off.");
    can_read_ = false;
    return net::Step::again(net::Wants::readable);
}

net::Step UtpStream::write(std::span<const std::byte> from, Clock::time_point) {
    if (!is_connected_ && !has_failed_) return net::Step::again(net::Wants::writable);
    if (client_ == nullptr) return net::Step::failed(Code::transient);
    const std::ptrdiff_t count = port_.library_.UTP_Cli_Send(client_, from.data(), from.size());
    if (count > 0) return net::Step::moved(static_cast<std::size_t>(count));
    if (count < 0) return net::Step::failed(Code::transient, "The peer broke off.");
    can_write_ = false;
    return net::Step::again(net::Wants::writable);
}

void UtpStream::when_readable(net::Callback call) {
    readable_ = std::move(call);
    if (has_news()) port_.queue(*this);
}

void UtpStream::when_writable(net::Callback call) {
    writable_ = std::move(call);
    if (has_news()) port_.queue(*this);
}

void UtpStream::hear(int news) {
    if ((news & VANTLOW_UTP_CONNECTED) != 0) is_connected_ = true;
    if ((news & VANTLOW_UTP_FAILED) != 0) has_failed_ = true;
    if ((news & (VANTLOW_UTP_READABLE | VANTLOW_UTP_FAILED)) != 0) can_read_ = true;
    if ((news & (VANTLOW_UTP_WRITABLE | VANTLOW_UTP_FAILED)) != 0) can_write_ = true;
    if (has_news()) port_.queue(*this);
}

// One piece of news at a time: with each the stream may be gone.
void UtpStream::tell() {
    if (!has_news()) return;
    if (connected_) {
        const auto call = std::exchange(connected_, nullptr);
        if (has_news()) port_.queue(*this);
        return call(is_connected_ ? Result() : Result(Code::transient, "The peer does not answer."));
    }
    const bool is_read = readable_ && can_read_;
    const net::Callback call = std::exchange(is_read ? readable_ : writable_, nullptr);
    if (has_news()) port_.queue(*this);
    call();
}

void UtpStream::close() noexcept {
    // They may own whoever owns this.
    const auto connected = std::exchange(connected_, nullptr);
    const auto readable = std::exchange(readable_, nullptr);
    const auto writable = std::exchange(writable_, nullptr);
    can_read_ = can_write_ = false;
    if (is_queued_) port_.forget(*this);
    if (VantlowUtpClient* const client = std::exchange(client_, nullptr))
        port_.library_.UTP_Cli_Close(client);
}

UtpPort::UtpPort(const BtdhtTable& library, net::Network& network)
    : library_(library), network_(network), work_timer_(network.timers()), rest_timer_(network.timers()) {}

UtpPort::~UtpPort() {
    callers_.clear();
    if (server_ != nullptr) library_.UTP_Srv_End(server_);
}

Result UtpPort::open(std::uint16_t port, Caller on_caller) {
    if (library_.UTP_Srv_Init == nullptr || library_.UTP_Cli_Open == nullptr)
        return {Code::unsupported, missing_library_text("libBTDHT")};
    if (Result result = bind(port); !result.ok()) return result;
    VantlowUtpOwner owner{};
    owner.context = this;
    owner.send = [](void* self, const void* address, std::size_t size, const void* datagram,
                    std::size_t bytes) {
        static_cast<UtpPort*>(self)->send({address, size}, {static_cast<const std::byte*>(datagram), bytes});
    };
    owner.called = [](void* self, VantlowUtpClient* client, const void* address, std::size_t size) {
        return static_cast<UtpPort*>(self)->take_caller(client, {address, size});
    };
    owner.news = [](void* tag, int news) { static_cast<UtpStream*>(tag)->hear(news); };
    server_ = library_.UTP_Srv_Init(&owner);
    if (server_ == nullptr) return {Code::transient, "There is no memory for uTP."};
    on_caller_ = std::move(on_caller);
    listen();
    return {};
}

Result UtpPort::bind(std::uint16_t port) {
    auto four = network_.bind(*SocketAddress::from_literal("0.0.0.0", port));
    if (four) four_ = *std::move(four);
    if (four_ && port == 0) port = four_->address() ? four_->address()->port() : std::uint16_t{0};
    auto six = network_.bind(*SocketAddress::from_literal("::", port));
    if (six) six_ = *std::move(six);
    return four_ || six_ ? Result() : four.failure();
}

Result UtpPort::rebind(std::uint16_t port) {
    four_.reset();
    six_.reset();
    Result result = bind(port);
    listen();
    return result;
}

std::unique_ptr<net::Stream> UtpPort::connect(const SocketAddress& to, net::Network::Connected done) {
    auto stream = std::make_unique<UtpStream>(*this, to, nullptr, std::move(done));
    const bool has_way = server_ != nullptr && (to.is_ipv6() ? six_ : four_) != nullptr && !is_blocked(to);
    VantlowUtpClient* const client =
        has_way ? library_.UTP_Cli_Open(server_, to.data(), to.size(), stream.get()) : nullptr;
    stream->call(client);
    if (client == nullptr) stream->hear(VANTLOW_UTP_FAILED);
    settle_at(network_.now());
    return stream;
}

void UtpPort::listen() {
    for (net::Datagrams* datagrams : {four_.get(), six_.get()}) {
        if (datagrams != nullptr) datagrams->when_readable([this, datagrams] { read_some(*datagrams); });
    }
}

void UtpPort::read_some(net::Datagrams& datagrams) {
    std::array<std::byte, VANTLOW_UTP_LARGEST + 1> room;
    bool is_drained = false;
    bool has_failed = false;
    next_work_ = Clock::time_point::min();  // it comes below
    for (int reads = 0; reads < reads_at_once && !is_drained && !has_failed; ++reads) {
        SocketAddress from;
        const net::Step step = datagrams.receive(room, from);
        is_drained = step.state == net::Step::State::again;
        has_failed = !is_drained && step.state != net::Step::State::moved;
        if (is_drained || has_failed || step.bytes == 0 || is_blocked(from)) continue;
        library_.UTP_Srv_Take(server_, from.data(), from.size(), room.data(), step.bytes);
    }
    if (has_failed) {
        rest_timer_.start(network_.now() + a_rest, [this] { listen(); });
    } else {
        datagrams.when_readable([this, &datagrams] { read_some(datagrams); });
    }
    settle();
}

void UtpPort::send(const SocketAddress& to, std::span<const std::byte> datagram) {
    net::Datagrams* const datagrams = to.is_ipv6() ? six_.get() : four_.get();
    // One that the system does not take is lost, as on its way: it is sent again.
    if (datagrams != nullptr && !is_blocked(to)) static_cast<void>(datagrams->send(datagram, to));
}

void* UtpPort::take_caller(VantlowUtpClient* client, const SocketAddress& from) {
    if (!on_caller_) return nullptr;
    callers_.push_back(std::make_unique<UtpStream>(*this, from, client, nullptr));
    return callers_.back().get();
}

// Tells the streams' news, each once, then sends what is due.
void UtpPort::settle() {
    next_work_ = Clock::time_point::min();
    for (auto& caller : std::exchange(callers_, {})) {
        if (on_caller_) on_caller_(std::move(caller));
    }
    for (std::size_t i = 0, count = queued_.size(); i < count; ++i) {
        UtpStream* const stream = std::exchange(queued_[i], nullptr);
        if (stream == nullptr) continue;
        stream->is_queued_ = false;
        stream->tell();
    }
    std::erase(queued_, nullptr);
    next_work_.reset();
    const std::uint32_t wait = library_.UTP_Srv_Send(server_);
    const Clock::time_point now = network_.now();
    if (!queued_.empty() || !callers_.empty()) return settle_at(now);
    if (wait > 0) settle_at(now + std::chrono::milliseconds(wait));
}

void UtpPort::settle_at(Clock::time_point at) {
    if (server_ == nullptr || (next_work_ && *next_work_ <= at)) return;
    next_work_ = at;
    work_timer_.start(at, [this] { settle(); });
}

void UtpPort::queue(UtpStream& stream) {
    if (stream.is_queued_) return;
    stream.is_queued_ = true;
    queued_.push_back(&stream);
    settle_at(network_.now());
}

void UtpPort::forget(UtpStream& stream) noexcept {
    std::replace(queued_.begin(), queued_.end(), &stream, static_cast<UtpStream*>(nullptr));
}

}  // namespace vantlow
