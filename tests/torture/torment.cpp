#include "torture/torment.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <variant>

#include "app/program.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/local_text.h"
#include "platform/name_functions.h"
#include "platform/process.h"
#include "runtime/tables.h"
#include "support/fault_hook.h"

namespace vantlow::test {
namespace {

using std::chrono::seconds;

constexpr std::size_t operation_count = static_cast<std::size_t>(Operation::last) + 1;

/// Why an operation fails.
using Fault = std::variant<FileFault, SocketFault>;
/// A kind of operation and its two reasons, which take turns.
struct Failing {
    const char* name;
    Fault odd;
    Fault even;
    bool has_reason = true;  ///< else its answer has no room for one: yes or no, there or not
};
// In the order of the enumeration. A name that is not found and a thread have numbers of their own.
constexpr std::array<Failing, operation_count> failings{{
    {"open", FileFault::access, FileFault::other},
    {"read", FileFault::other, FileFault::other},
    {"write", FileFault::no_space, FileFault::other},
    {"resize", FileFault::no_space, FileFault::other},
    {"flush", FileFault::other, FileFault::other},
    {"lock", FileFault::access, FileFault::access, false},
    {"size", FileFault::other, FileFault::other, false},
    {"remove", FileFault::access, FileFault::access},
    {"rename", FileFault::access, FileFault::access},
    {"mark", FileFault::access, FileFault::access},
    {"inspect", FileFault::access, FileFault::access, false},
    {"make_folder", FileFault::no_space, FileFault::other},
    {"list_folder", FileFault::access, FileFault::access},
    {"make_socket", SocketFault::no_descriptors, SocketFault::no_descriptors},
    {"connect", SocketFault::unreachable, SocketFault::no_descriptors},
    {"connect_end", SocketFault::refused, SocketFault::timed_out},
    {"listen", SocketFault::no_descriptors, SocketFault::no_descriptors},
    {"accept", SocketFault::no_descriptors, SocketFault::no_descriptors},
    {"receive", SocketFault::reset, SocketFault::timed_out},
    {"send", SocketFault::reset, SocketFault::timed_out},
    {"wait", SocketFault::no_descriptors, SocketFault::no_descriptors, false},
    {"own_address", SocketFault::no_descriptors, SocketFault::no_descriptors, false},
    {"resolve", FileFault::other, FileFault::other},
    {"make_event", FileFault::not_found, FileFault::not_found, false},
    {"start_thread", FileFault::other, FileFault::other},
    {"load_library", FileFault::not_found, FileFault::not_found, false},
    {"find_operation", FileFault::not_found, FileFault::not_found, false},
    {"read_setting", FileFault::access, FileFault::access},
    {"write_setting", FileFault::access, FileFault::access},
    {"tell", FileFault::no_space, FileFault::other},
    {"protect", FileFault::access, FileFault::access, false},
    {"dial", FileFault::access, FileFault::access},
    {"start_process", FileFault::not_found, FileFault::not_found},
}};
const Failing& failing_of(Operation operation) {
    return failings.at(static_cast<std::size_t>(operation));
}

using Counts = std::array<int, operation_count>;

// How many of a kind fail, one a run: all of the first, then some of the rest.
struct Sample {
    int first;
    int spread;
};

Sample sample() {
    // Everything is slower by far under Wine.
    return path_separator() == u'\\' ? Sample{4, 3} : Sample{40, 12};
}

// The number that such an operation really fails with, the n-th time.
int number_for(Operation operation, int n) {
    if (operation == Operation::resolve) return name_error_number();
    if (operation == Operation::start_thread) return EAGAIN;
    const Failing& failing = failing_of(operation);
    return std::visit([](auto fault) { return error_number(fault); },
                      n % 2 != 0 ? failing.odd : failing.even);
}

// The system's words for it.
std::string reason_of(Operation operation, int number) {
    if (operation == Operation::resolve) return name_error_text(number);
    if (operation == Operation::start_thread) return std::generic_category().message(number);
    return system_text(number);
}

/// Counts the program's operations, and fails one.
class OneFault : public FaultHook {
  public:
    OneFault() = default;
    OneFault(Operation operation, int n) : operation_(operation), n_(n), number_(number_for(operation, n)) {}

    int before(Operation operation, std::u16string_view name, std::int64_t, std::int64_t) noexcept override {
        const std::lock_guard guard(mutex_);
        const int n = ++counts_[static_cast<std::size_t>(operation)];
        if (operation != operation_ || n != n_) return 0;
        failed_ = true;
        name_ = to_utf8(name);
        return number_;
    }
    [[nodiscard]] Counts counts() const {
        const std::lock_guard guard(mutex_);
        return counts_;
    }
    [[nodiscard]] bool has_failed() const {
        const std::lock_guard guard(mutex_);
        return failed_;
    }
    [[nodiscard]] std::string name() const {
        const std::lock_guard guard(mutex_);
        return name_;
    }
    [[nodiscard]] std::string reason() const { return reason_of(operation_, number_); }

  private:
    const Operation operation_ = Operation::open;
    const int n_ = 0;  ///< from 1; 0: none
    const int number_ = 0;
    mutable std::mutex mutex_;
    Counts counts_{};  ///< these three: guarded by mutex_
    bool failed_ = false;
    std::string name_;
};

/// Ends the process when a run takes too long: what hangs cannot be called back.
class Watchdog {
  public:
    Watchdog() : thread_([this] { watch(); }) {}
    ~Watchdog() {
        {
            const std::lock_guard guard(mutex_);
            ended_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    void begin(std::string what) {
        {
            const std::lock_guard guard(mutex_);
            what_ = std::move(what);
            ++run_;
        }
        changed_.notify_all();
    }

  private:
    void watch() {
        constexpr seconds limit{40};
        std::unique_lock guard(mutex_);
        while (!ended_) {
            const int run = run_;
            if (changed_.wait_for(guard, limit, [&] { return ended_ || run_ != run; })) continue;
            std::cerr << "hangs: " << what_ << std::endl;
            std::abort();
        }
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string what_;  ///< these three: guarded by mutex_
    int run_ = 0;
    bool ended_ = false;
    std::thread thread_;  ///< last
};

// Open descriptors and threads of this process; nothing where the system does not list them.
struct Holdings {
    std::ptrdiff_t descriptors = 0;
    std::ptrdiff_t threads = 0;
};

Holdings holdings() {
    const auto count = [](const char* folder) {
        const std::filesystem::directory_iterator entries(folder);
        return std::distance(begin(entries), end(entries));
    };
    // Under Wine they are those of Wine, which keeps some for later.
    if (path_separator() == u'\\' || !std::filesystem::exists("/proc/self/fd")) return {};
    return {count("/proc/self/fd"), count("/proc/self/task")};
}

class Tormentor {
  public:
    explicit Tormentor(const Scenario& scenario) : scenario_(scenario) {}

    void run() {
        const auto only = environment("VANTLOW_TORTURE_CASE");  // "receive 7": that one case again
        run_with(nullptr, "warming up");                        // what is opened once for the process
        if (testing::Test::HasFailure()) return;
        held_ = holdings();
        OneFault counter;
        run_with(&counter, "counting");
        const Counts counts = counter.counts();
        for (std::size_t kind = 0; kind < operation_count; ++kind) {
            for (const int n : choose(counts[kind])) {
                const std::string name = std::string(failings.at(kind).name) + " " + std::to_string(n);
                if (only && to_utf8(*only) != name) continue;
                OneFault fault(static_cast<Operation>(kind), n);
                run_with(&fault, name + " of " + std::to_string(counts[kind]), static_cast<Operation>(kind));
            }
        }
        EXPECT_GT(failed_, 0) << "nothing was failed";
        std::cout << failed_ << " faults, " << survived_ << " survived" << std::endl;
    }

  private:
    [[nodiscard]] std::vector<int> choose(int count) const {
        const int first = std::max(sample().first / scenario_.thinner, 1);
        const int spread = std::max(sample().spread / scenario_.thinner, 1);
        std::vector<int> chosen;
        for (int n = 1; n <= std::min(count, first); ++n) chosen.push_back(n);
        const int rest = count - first;
        const int more = std::min(rest, spread);
        for (int i = 1; i <= more; ++i) chosen.push_back(first + rest * i / more);
        return chosen;
    }

    void run_with(OneFault* fault, const std::string& name, std::optional<Operation> operation = {}) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, name);
        watchdog_.begin(name);
        const TempFolder folder;
        scenario_.prepare(folder);
        Said said;
        {
            std::optional<HookInPlace> in_place;
            if (fault != nullptr) in_place.emplace(*fault);
            said = scenario_.run(folder);
        }
        const bool failed = fault != nullptr && fault->has_failed();
        if (!failed) {
            EXPECT_TRUE(operation || said.status == Exit::done) << said.err;
        } else {
            ++failed_;
            if (said.status == Exit::done) ++survived_;
        }
        const testing::ScopedTrace words(
            __FILE__, __LINE__, (failed ? "failed " + fault->name() + "\n" : "") + said.out + said.err);
        if (failed && said.status != Exit::done) look_at_message(said, *operation, *fault, folder);
        scenario_.look(folder, said);
        look_at_holdings();
    }

    // A person reads what failed, and why.
    void look_at_message(const Said& said, Operation operation, const OneFault& fault,
                         const TempFolder& folder) const {
        const std::string text = said.err + said.out;
        if (failing_of(operation).has_reason) {
            EXPECT_NE(text.find(fault.reason()), std::string::npos) << "the reason is " << fault.reason();
        }
        bool names_something = text.find(folder.utf8_path()) != std::string::npos ||
                               text.find("standard output") != std::string::npos;
        for (const std::string& subject : scenario_.subjects)
            names_something = names_something || text.find(subject) != std::string::npos;
        EXPECT_TRUE(names_something) << "the message names neither a file nor a host";
    }

    // Servers' threads of the test itself end a little later.
    void look_at_holdings() {
        const auto until = std::chrono::steady_clock::now() + seconds(10);
        auto now = holdings();
        while ((now.descriptors > held_.descriptors || now.threads > held_.threads) &&
               std::chrono::steady_clock::now() < until) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            now = holdings();
        }
        EXPECT_LE(now.descriptors, held_.descriptors) << "descriptors are left open";
        EXPECT_LE(now.threads, held_.threads) << "threads are left";
    }

    const Scenario& scenario_;
    Watchdog watchdog_;
    Holdings held_{1'000'000, 1'000'000};  ///< any, until it is known
    int failed_ = 0;
    int survived_ = 0;
};

}  // namespace

Said run_here(const std::vector<std::string>& words) {
    // A process loads them once, and the compiler's own run-time library on Windows counts on that: each time
    // that it comes with a library it takes one of some thousand slots for thread-local storage for good.
    static const LibraryTables stays_loaded = load_libraries(folder_of(program_path()));
    Said said;
    ConsoleCapture capture{{}};
    said.status = run_program(words);
    said.out = capture.output();
    said.err = capture.error();
    return said;
}

void torment(const Scenario& scenario) {
    Tormentor(scenario).run();
}

}  // namespace vantlow::test
