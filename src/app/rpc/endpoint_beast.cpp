// The endpoint's thread: listening, counting and ending connections, and the way of a request to whoever
// works on it.
#include "app/rpc/endpoint_parts.h"
#include "platform/descriptors.h"
#include "platform/thread.h"

namespace vantlow {

using namespace control;

namespace control {

Session::~Session() {
    shared_.large -= room_;
    shared_.sessions.erase(this);
    if (--shared_.by_address[address_] == 0) shared_.by_address.erase(address_);
    if (shared_.closing && shared_.sessions.empty()) shared_.context.stop();
}

bool Session::hold_room(std::size_t bytes) {
    const std::size_t wanted = bytes > small_request ? bytes : 0;
    if (wanted > room_ && shared_.large + (wanted - room_) > room_for_large) return false;
    shared_.large = shared_.large - room_ + wanted;
    room_ = wanted;
    return true;
}

namespace {

// Keeps a refusal back for a while.
void refuse_later(Shared& shared, const std::string& address, rpc::Run run, const Done& done) {
    std::size_t& kept_back = shared.refusals[address];
    if (kept_back >= most_refusals_of_one_address) {
        done(std::nullopt);
        return;
    }
    ++kept_back;
    for (rpc::Call& call : run.request.calls) call.params = rpc::Json();  // so that keeping it costs little
    const auto delay = shared.wrong.refuse(address, std::chrono::steady_clock::now());
    const auto timer = std::make_shared<asio::steady_timer>(shared.context, delay);
    timer->async_wait([&shared, timer, done, address, run = std::move(run)](const error_code&) mutable {
        if (--shared.refusals[address] == 0) shared.refusals.erase(address);
        done(std::move(run));
    });
}

void take_back(Shared& shared, std::uint64_t request, rpc::Run run) {
    const auto found = shared.waiting.extract(request);
    if (found.empty()) return;
    const Shared::Waiting& waiting = found.mapped();
    if (run.was_refused) {
        refuse_later(shared, waiting.session->address(), std::move(run), waiting.done);
        return;
    }
    if (run.was_proved) shared.wrong.forgive(waiting.session->address());
    waiting.done(std::move(run));
}

}  // namespace

// The answer comes from another thread, perhaps after the end of all this: it holds no session, only the
// number under which one waits.
void hand_on(const Session& session, rpc::Run run, Done done) {
    Shared& all = session.shared();
    const std::uint64_t request = ++all.last_request;
    all.waiting[request] = {&session, std::move(done)};
    all.handler(std::move(run), [weak = all.weak_from_this(), request](rpc::Run answered) {
        const auto shared = weak.lock();
        if (!shared) return;
        asio::post(shared->context, [all = shared.get(), request, answered = std::move(answered)]() mutable {
            take_back(*all, request, std::move(answered));
        });
    });
}

}  // namespace control

namespace {

constexpr int backlog = 128;
constexpr std::chrono::milliseconds accept_rest{250};
constexpr std::chrono::milliseconds farewell{500};

#if defined(BOOST_ASIO_HAS_IOCP)
// Windows would let others take the port away; there a port is free at once anyway.
constexpr bool reuses_address = false;
#else
constexpr bool reuses_address = true;
#endif

std::string text_of(const Tcp::endpoint& at) {
    const std::string address = at.address().to_string();
    return (at.address().is_v6() ? "[" + address + "]" : address) + ":" + std::to_string(at.port());
}

/// Takes the connections that come to one address.
class Door : public std::enable_shared_from_this<Door> {
  public:
    explicit Door(Shared& shared) : shared_(shared), acceptor_(shared.context), rest_(shared.context) {}

    error_code open(const Tcp::endpoint& at) {
        error_code error;
        acceptor_.open(at.protocol(), error);
        if (error) return error;
        keep_from_children(static_cast<std::intptr_t>(acceptor_.native_handle()));
        if (reuses_address) acceptor_.set_option(Tcp::acceptor::reuse_address(true), error);
        if (!error && at.protocol() == Tcp::v6()) acceptor_.set_option(asio::ip::v6_only(true), error);
        if (!error) acceptor_.bind(at, error);
        if (!error) acceptor_.listen(backlog, error);
        return error;
    }
    [[nodiscard]] std::string place() const {
        error_code error;
        return text_of(acceptor_.local_endpoint(error));
    }
    void take() {
        acceptor_.async_accept([self = shared_from_this()](const error_code& error, Tcp::socket socket) {
            self->taken(error, std::move(socket));
        });
    }
    void close() {
        error_code ignored;
        acceptor_.close(ignored);
        rest_.cancel();
    }

  private:
    void taken(const error_code& error, Tcp::socket socket) {
        if (!acceptor_.is_open() || shared_.closing) return;
        if (!error) {
            welcome(std::move(socket));
            take();
            return;
        }
        // Without a descriptor left the next attempt would fail at once, too.
        rest_.expires_after(accept_rest);
        rest_.async_wait([self = shared_from_this()](const error_code& stopped) {
            if (!stopped) self->take();
        });
    }
    // Who comes when all places are taken is sent away by the socket's end.
    void welcome(Tcp::socket socket) {
        error_code error;
        const Tcp::endpoint peer = socket.remote_endpoint(error);
        if (error) return;
        keep_from_children(static_cast<std::intptr_t>(socket.native_handle()));
        std::string address = peer.address().to_string();
        const auto known = shared_.by_address.find(address);
        if (shared_.sessions.size() >= most_sessions) return;
        if (known != shared_.by_address.end() && known->second >= most_of_one_address) return;
        socket.set_option(Tcp::no_delay(true), error);
        serve_http(shared_, std::move(socket), std::move(address));
    }

    Shared& shared_;
    Tcp::acceptor acceptor_;
    asio::steady_timer rest_;
};

class BeastEndpoint final : public Endpoint {
  public:
    BeastEndpoint(const ControlConfig& config, EndpointPatience patience, Handler handler,
                  std::unique_ptr<TlsServer> tls)
        : shared_(std::make_shared<Shared>(config, patience, std::move(handler), std::move(tls))) {}
    ~BeastEndpoint() override;

    Result open();
    [[nodiscard]] const std::vector<std::string>& places() const noexcept override { return places_; }
    void notify(std::string text) override;

  private:
    void run();

    std::shared_ptr<Shared> shared_;
    std::vector<std::shared_ptr<Door>> doors_;
    std::vector<std::string> places_;
    asio::executor_work_guard<asio::io_context::executor_type> guard_{shared_->context.get_executor()};
    asio::steady_timer farewell_{shared_->context};
    std::thread thread_;  // last: it uses the above
};

Result BeastEndpoint::open() {
    for (const std::string& address : shared_->config.addresses) {
        error_code error;
        const Tcp::endpoint at(asio::ip::make_address(address, error), shared_->config.port);
        auto door = std::make_shared<Door>(*shared_);
        if (!error) error = door->open(at);
        if (error)
            return {Code::transient,
                    "The control API cannot listen at " + text_of(at) + ": " + error.message(),
                    error.value()};
        places_.push_back(door->place());
        door->take();
        doors_.push_back(std::move(door));
    }
    return start_thread(thread_, [this] { run(); });
}

// A handler that throws (for want of memory) ends its own session, and no other one.
void BeastEndpoint::run() {
    while (!shared_->context.stopped()) {
        try {
            shared_->context.run();
        } catch (const std::exception&) {
            continue;
        }
    }
}

void BeastEndpoint::notify(std::string text) {
    auto shared_text = std::make_shared<const std::string>(std::move(text));
    asio::post(shared_->context, [shared = shared_.get(), text = std::move(shared_text)] {
        const std::set<Session*> sessions = shared->sessions;
        for (Session* const session : sessions) session->notify(text);
    });
}

BeastEndpoint::~BeastEndpoint() {
    asio::post(shared_->context, [this] {
        shared_->closing = true;
        for (const auto& door : doors_) door->close();
        const std::set<Session*> sessions = shared_->sessions;
        for (Session* const session : sessions) session->close();
        farewell_.expires_after(farewell);
        farewell_.async_wait([this](const error_code&) { shared_->context.stop(); });
        if (sessions.empty()) shared_->context.stop();
    });
    if (thread_.joinable()) thread_.join();
    // Requests without an answer hold their sessions, whose sockets belong to the context.
    shared_->waiting.clear();
}

}  // namespace

Outcome<std::unique_ptr<Endpoint>> Endpoint::open(const ControlConfig& config, Handler handler,
                                                  EndpointPatience patience) {
    std::unique_ptr<TlsServer> tls;
    if (config.certificate) {
        auto made = make_tls_server(*config.certificate);
        if (!made) return made.failure();
        tls = *std::move(made);
    }
    try {
        auto endpoint = std::make_unique<BeastEndpoint>(config, patience, std::move(handler), std::move(tls));
        if (Result opened = endpoint->open(); !opened.ok()) return opened;
        return std::unique_ptr<Endpoint>(std::move(endpoint));
    } catch (const boost::system::system_error& error) {
        return Result(Code::transient, "The control API cannot be opened: " + error.code().message());
    }
}

}  // namespace vantlow
