// The jobs of one `vantlow get`, from its links to the last of them that ends.
#pragma once

#include <chrono>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "app/cli/get/list_memory.h"
#include "app/cli/get/output_pipe.h"
#include "app/cli/job_options.h"
#include "app/cli/terminal_client.h"

namespace vantlow {

/// Which jobs have tried for too long: those that got no byte for all that time, and know why. Waiting for a
/// place at a server that others fetch from is no trying.
class Patience {
  public:
    /// 0: without end.
    explicit Patience(std::chrono::seconds at_most) : at_most_(at_most) {}
    /// The moment of a running job; true when it is to be given up.
    bool is_over(const Guid& job, const JobProgress& progress, Clock::time_point now);
    void forget(const Guid& job) { seen_.erase(job); }

  private:
    struct Seen {
        std::int64_t received = -1;
        Clock::time_point since{};
    };
    std::chrono::seconds at_most_;
    std::map<Guid, Seen> seen_;
};

/// An engine with a store in memory, and a terminal. Used from one thread, which drives the engine. All that
/// it is given outlives it.
class GetRun : public TerminalClient {
  public:
    GetRun(Engine& engine, GetOutput& output, StopSource& stop, ThreadPool& threads,
           const GetOptions& options);
    ~GetRun() override { engine_.file_only({}); }
    /// Records what was finished until everything is.
    void remember(std::unique_ptr<ListMemory> memory) { memory_ = std::move(memory); }
    /// The file of the only job goes there, as soon as it cannot change any more.
    void write_to(OutputPipe& pipe) { pipe_ = &pipe; }

    /// Files the jobs of a draft. What the memory knows as finished is told so.
    void add(const JobDraft& draft);
    /// Until every job has ended, those included that fetched documents name; after a stop, until the running
    /// ones have.
    void drive();

    void ended(const JobEnd& end) override;

  private:
    bool is_wanted(const CJobNode& job);
    void look_for_hopeless();
    void give_up(const Guid& job, Result why);
    void feed_pipe();
    void look_behind();

    Patience patience_;
    std::map<Guid, Result> given_up_;  ///< why they are stopped
    OutputPipe* pipe_ = nullptr;
    std::unique_ptr<ListMemory> memory_;  ///< null: nothing is remembered
    std::size_t filed_ = 0;               ///< jobs
    /// Of jobs that never ran: counted down, where those of running ones are counted up.
    std::size_t unused_number_ = std::numeric_limits<std::size_t>::max();
    std::vector<Guid> settled_;  ///< jobs that nobody waits for any more
};

}  // namespace vantlow
