// Many connections over loopback, received by one loop or by a thread for each: bytes a second, processor
// time, memory.
//
//   loop_bench CONNECTIONS SECONDS [RATE]     RATE: bytes a second of each connection; without: all that goes
#include <sys/resource.h>
#include <time.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "net/loop.h"
#include "platform/descriptors.h"
#include "platform/thread.h"

namespace {

using namespace vantlow;
using namespace std::chrono_literals;

constexpr std::size_t piece = 16384;

double own_seconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

long resident_kib() {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

/// Sends to everybody who connects. On a loop and a thread of its own, the same for both receivers.
class Sender {
  public:
    explicit Sender(double rate) : rate_(rate), loop_(*net::make_loop()) {
        listener_ = *loop_->listen(*SocketAddress::from_literal("127.0.0.1", 0), 4096);
        address = *listener_->address();
        accept();
        thread_ = std::jthread([this] { static_cast<void>(loop_->run().ok()); });
    }
    ~Sender() {
        loop_->stop();
        thread_.join();
    }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    SocketAddress address;
    std::atomic<std::size_t> connections{0};

  private:
    void accept() {
        listener_->accept([this](auto taken) {
            if (taken.ok()) {
                peers_.push_back(std::make_unique<Peer>(*this, *std::move(taken)));
                peers_.back()->push();
                ++connections;
            }
            accept();
        });
    }
    struct Peer {
        Peer(Sender& of, std::unique_ptr<net::Stream> s)
            : sender(of), stream(std::move(s)), timer(of.loop_->timers()) {}
        void push() {
            static const std::vector<std::byte> bytes(piece);
            for (int i = 0; i < 4; ++i) {
                const net::Step step = stream->write(bytes, {});
                if (step.state == net::Step::State::again) return stream->when_writable([this] { push(); });
                if (step.state != net::Step::State::moved) return;
                if (sender.rate_ > 0) {
                    const std::chrono::duration<double> pause(static_cast<double>(step.bytes) / sender.rate_);
                    return timer.start(Clock::now() + std::chrono::duration_cast<Clock::duration>(pause),
                                       [this] { push(); });
                }
            }
            stream->when_writable([this] { push(); });  // the others have their turn
        }
        Sender& sender;
        std::unique_ptr<net::Stream> stream;
        net::Timer timer;
    };

    double rate_;
    std::unique_ptr<net::Loop> loop_;
    std::unique_ptr<net::Listener> listener_;
    std::vector<std::unique_ptr<Peer>> peers_;
    std::jthread thread_;
};

struct Figures {
    std::atomic<std::int64_t> bytes{0};
    std::atomic<std::int64_t> nanoseconds{0};  ///< of the processor, in the receiving threads
};

void receive_on_loop(const SocketAddress& from, std::size_t count, Figures& figures, const StopSource& stop) {
    const auto loop = *net::make_loop();
    std::vector<std::unique_ptr<net::Stream>> streams;
    std::vector<std::byte> room(piece);
    std::function<void(net::Stream&)> read = [&](net::Stream& stream) {
        for (int i = 0; i < 4; ++i) {
            const net::Step step = stream.read(room, {});
            if (step.state == net::Step::State::again) break;
            if (step.state != net::Step::State::moved) return;
            figures.bytes.fetch_add(static_cast<std::int64_t>(step.bytes), std::memory_order_relaxed);
        }
        stream.when_readable([&] { read(stream); });
    };
    for (std::size_t i = 0; i < count; ++i) {
        streams.push_back(loop->connect(from, [](const Result&) {}));
        read(*streams.back());
    }
    while (!stop.requested()) static_cast<void>(loop->run_one(50ms).ok());
    figures.nanoseconds += static_cast<std::int64_t>(own_seconds() * 1e9);
    streams.clear();
}

void receive_on_thread(const SocketAddress& from, Figures& figures, const StopSource& stop) {
    auto socket = TcpSocket::begin_connect(from);
    if (!socket.ok() || wait_socket(*socket, Interest::write, 60s, stop) != Ready::yes) return;
    std::vector<std::byte> room(piece);
    while (!stop.requested()) {
        const IoStep step = socket->read(room);
        if (step.state == IoStep::State::moved)
            figures.bytes.fetch_add(static_cast<std::int64_t>(step.bytes), std::memory_order_relaxed);
        else if (step.state != IoStep::State::would_block ||
                 wait_socket(*socket, Interest::read, -1ms, stop) != Ready::yes)
            break;
    }
    figures.nanoseconds += static_cast<std::int64_t>(own_seconds() * 1e9);
}

void measure(bool with_loop, std::size_t count, std::chrono::seconds time, double rate) {
    Sender sender(rate);
    StopSource stop;
    Figures figures;
    const long before = resident_kib();
    std::vector<std::thread> threads(with_loop ? 1 : count);
    for (std::thread& thread : threads) {
        const Result started = start_thread(thread, [&] {
            if (with_loop)
                receive_on_loop(sender.address, count, figures, stop);
            else
                receive_on_thread(sender.address, figures, stop);
        });
        if (!started.ok()) std::printf("no thread: %s\n", started.message().c_str());
    }
    while (sender.connections < count) std::this_thread::sleep_for(10ms);
    const std::int64_t first = figures.bytes;
    const auto start = Clock::now();
    std::this_thread::sleep_for(time);
    const auto bytes = static_cast<double>(figures.bytes - first);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const long memory = resident_kib() - before;
    stop.request();
    for (std::thread& thread : threads) {
        if (thread.joinable()) thread.join();
    }
    const double used = static_cast<double>(figures.nanoseconds) / 1e9;
    std::printf("%-8s %6zu connections  %8.1f MB/s  %5.1f %% of a core  %6.2f s of it for 1 GB  %7.1f MiB\n",
                with_loop ? "loop" : "threads", count, bytes / seconds / 1e6, 100 * used / seconds,
                used / bytes * 1e9, static_cast<double>(memory) / 1024);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "loop_bench CONNECTIONS SECONDS [RATE]\n");
        return 2;
    }
    const auto count = static_cast<std::size_t>(std::strtoul(argv[1], nullptr, 10));
    const std::chrono::seconds time(std::strtol(argv[2], nullptr, 10));
    const double rate = argc > 3 ? std::strtod(argv[3], nullptr) : 0;
    raise_descriptor_limit();
    start_sockets();
    for (const bool with_loop : {true, false}) measure(with_loop, count, time, rate);
}
