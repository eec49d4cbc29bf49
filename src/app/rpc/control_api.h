// The control API of the resident program: its endpoint, kept as the settings want it, and the methods.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/rpc/endpoint.h"
#include "app/rpc/engine_downloads.h"
#include "base/mutex.h"
#include "engine/engine.h"
#include "rpc/methods.h"

namespace vantlow {

/// Made, used and destroyed on the engine's thread, while the engine runs. Requests come from the endpoint's
/// thread and are worked on in the engine's, some milliseconds at a time; an answer goes out once what it
/// changed is safe.
class ControlApi final : private EngineListener {
  public:
    struct Host {
        Engine& engine;
        Settings& settings;
        std::u16string agent;  ///< of jobs without one of their own
        std::function<void(std::function<void()>)>
            post;                    ///< any thread: has the engine's thread do something
        std::function<void()> wake;  ///< any thread: asks for a pump() soon
        std::function<void()> quit;  ///< asks for the end of the program
        std::function<FileError(std::u16string_view section, std::u16string_view key)> follow;
    };
    explicit ControlApi(Host host);
    ~ControlApi() override;

    /// Opens or closes the endpoint where the settings ask for it; to be called at the beginning and once a
    /// second. A sentence where it cannot be opened; the same one only once.
    std::string look();
    /// The addresses at which it listens; empty: it does not.
    [[nodiscard]] std::vector<std::string> places() const;

  private:
    struct Pending {
        rpc::Run run;
        Endpoint::Answered answered;
        bool changed = false;  ///< what the engine has is not what it was
    };
    void take(rpc::Run run, Endpoint::Answered answered);
    void post_turn();
    void turn();
    void settle(std::vector<Pending> done);
    void notify(std::string_view word, const Guid& job);
    void asked(const std::vector<Question>& open) override;

    Host host_;
    EngineDownloads downloads_;
    rpc::MethodTable table_;
    ControlConfig config_;
    std::uint64_t settings_version_ = 0;
    std::string complaint_;
    std::size_t open_questions_ = 0;
    std::shared_ptr<int> alive_ =
        std::make_shared<int>();  ///< work that comes late looks whether it is there
    Mutex mutex_;
    std::deque<Pending> queue_ VANTLOW_GUARDED_BY(mutex_);
    bool posted_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::unique_ptr<Endpoint> endpoint_;  // last: its thread uses the above
};

}  // namespace vantlow
