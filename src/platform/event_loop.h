// The event loop of a process that stays: timers, work from other threads, and the requests of other starts
// of the program arrive on it one after the other. On Windows it is a hidden top-level window with its
// message loop, elsewhere a Unix socket and a wait.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vantlow {

class StopSource;

/// Made, run and destroyed by one thread. All its functions are for that thread, but those marked as any
/// thread's.
class EventLoop {
  public:
    struct Events {
        std::function<void(int timer)> on_timer;
        /// Another process of this user asks something. `reply` sends the answer back to it: call it once,
        /// now or later, from the loop's thread; a call after the loop's end does nothing.
        using Reply = std::function<void(std::string answer)>;
        std::function<void(const std::string& request, Reply reply)> on_request;
        /// The session ends, and the process with it when this returns: save everything in here.
        std::function<void()> on_session_end;
    };
    enum class Role {
        main,    ///< further starts of the program look for it
        helper,  ///< only a process that knows its address reaches it
    };
    /// Makes a loop. `name` tells those of one user apart: the data folder. Null, with a sentence in `error`,
    /// where it cannot be made.
    static std::unique_ptr<EventLoop> open(const std::u16string& name, Role role, Events events,
                                           std::string& error);

    EventLoop() = default;
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    /// Requests that were not answered yet are refused; an answer on its way is sent, for some seconds at
    /// most.
    virtual ~EventLoop() = default;

    /// The address under which ask_process() reaches the loop.
    [[nodiscard]] virtual std::string address() const = 0;
    /// Calls on_timer with the id each period, until the loop ends.
    virtual void set_timer(int id, std::chrono::milliseconds period) = 0;
    /// Runs the work in the loop's thread, in order. Any thread.
    virtual void post(std::function<void()> work) = 0;
    /// Runs until quit().
    virtual void run() = 0;
    /// Ends run(), or asks the host to end. Any thread.
    virtual void quit() noexcept = 0;

    /// A loop of somebody else on this thread, such as that of a window, which runs in place of run().
    struct Host {
        std::function<void()> wake;  ///< any thread: turn() is to be called soon; it must not throw
        /// Windows: the top-level window (HWND) that stands for this process from now on, or null: further
        /// starts find it, and what they send to it arrives here.
        void* window = nullptr;
    };
    /// From now on a host runs the thread. To be called instead of run(), once, before the host begins.
    virtual void be_hosted(Host host) = 0;
    /// Runs the work and the timers that are due, waits for nothing. Only while hosted; may be called from
    /// within itself (a dialog that the work opened). False once quit() was called.
    virtual bool turn() = 0;
};

/// Whether this process could show a window: there is a graphical session. It may still refuse.
bool has_display() noexcept;

/// The answer to a request to the loop of another process.
struct ProcessAnswer {
    enum class State {
        answered,
        not_there,  ///< no process is there; nothing was done
        not_taken,  ///< the process did not take the request up in time; nothing was or will be done
        lost,       ///< the request was taken up, and its end is not known
    };
    State state = State::not_there;
    std::string answer;
    std::int64_t process = 0;  ///< its number; 0 where it is not known
};

/// The time that a process may be silent before its user is told.
inline constexpr std::chrono::seconds silence_patience{3};

/// Asks the process whose loop has this address. A request has at most 64 MiB. A frozen process is given up
/// after silence_patience. Where the process is busy with something else, `on_busy` is called then (once,
/// with its number), and it gets some time more. Once it has taken the request up, its answer is waited for
/// as long as it takes.
ProcessAnswer ask_process(const std::string& address, std::string_view request, const StopSource& stop,
                          const std::function<void(std::int64_t process)>& on_busy = {});

/// Brings the window at this address, or the one that it opened last, to the front, and out of the task bar.
/// Does nothing where windows belong to nobody else (Linux), or none is shown.
void bring_to_front(const std::string& address) noexcept;

/// The claim to be the one instance of this user session, held until the object ends.
class SessionClaim {
  public:
    SessionClaim();
    ~SessionClaim();
    SessionClaim(const SessionClaim&) = delete;
    SessionClaim& operator=(const SessionClaim&) = delete;

    /// True when this process is the first; one attempt.
    bool claim();
    /// Publishes the address of this process's loop to further starts.
    void publish(const std::string& address);
    /// Gives the claim up before the object ends.
    void release() noexcept;
    /// Returns the address of the first instance's loop; empty while it has none.
    [[nodiscard]] static std::string find();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vantlow
