// The main frame: what keeps the program alive, ticks, and hears other starts of the program. On Windows a
// hidden top-level window with its message loop; elsewhere the same role without a window.
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

/// Made, run and destroyed by one thread, which runs everything but what is said to be for any thread.
class Frame {
  public:
    struct Events {
        std::function<void(int timer)> on_timer;
        /// Another process of this user asks something. The answer that `reply` is called with goes back to
        /// it: once, now or later, from the frame's thread; a call after the frame's end does nothing.
        using Reply = std::function<void(std::string answer)>;
        std::function<void(const std::string& request, Reply reply)> on_request;
        /// The session ends, and the process with it when this returns: everything is to be saved in it.
        std::function<void()> on_session_end;
    };
    enum class Role {
        main,    ///< the one that a further start of the program looks for
        helper,  ///< only who knows its address can reach it
    };
    /// `name` tells frames of one user apart: the data folder. Null, with a sentence in `error`, where it
    /// cannot be made.
    static std::unique_ptr<Frame> open(const std::u16string& name, Role role, Events events,
                                       std::string& error);

    Frame() = default;
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;
    /// Requests that were not answered yet are refused; an answer on its way is sent, for some seconds at
    /// most.
    virtual ~Frame() = default;

    /// How ask_frame() reaches it.
    [[nodiscard]] virtual std::string address() const = 0;
    /// Calls on_timer with the id each period, until the frame ends.
    virtual void set_timer(int id, std::chrono::milliseconds period) = 0;
    /// Any thread: runs the work in the frame's thread, in order.
    virtual void post(std::function<void()> work) = 0;
    /// Runs until quit().
    virtual void run() = 0;
    /// Any thread.
    virtual void quit() noexcept = 0;
};

/// The answer to a request to another process's frame.
struct FrameAnswer {
    enum class State {
        answered,
        not_there,  ///< nobody is there; nothing was done
        not_taken,  ///< somebody is there and did not take the request up in time; nothing was or will be
                    ///< done
        lost,       ///< it was taken up, and nobody knows what became of it
    };
    State state = State::not_there;
    std::string answer;
    std::int64_t process = 0;  ///< the frame's process; 0 where it is not known
};

/// How long a frame may be silent before somebody is told.
inline constexpr std::chrono::seconds frame_patience{3};

/// Asks the frame at an address. A request has at most 64 MiB. A frame whose process is frozen is given up
/// after frame_patience. Of one that is busy with something else `on_busy` is told then (once, with its
/// process), and it is waited for some time longer. Once it has taken the request up, its answer is waited
/// for as long as it takes.
FrameAnswer ask_frame(const std::string& address, std::string_view request, const StopSource& stop,
                      const std::function<void(std::int64_t process)>& on_busy = {});

/// Brings the frame's window, or what it opened last, to the front, and out of the task bar. Nothing where
/// there are no windows.
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
    /// Tells further starts where the frame of this process is.
    void publish(const std::string& address);
    /// Gives the claim up before the object ends.
    void release() noexcept;
    /// The address of the first instance's main frame; empty while it has none.
    [[nodiscard]] static std::string find();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vantlow
