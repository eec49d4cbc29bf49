// `vantlow get`: its jobs, from their links to the end of the last one.
#pragma once

#include <atomic>
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

class CommandSet;

/// The options of `get`: those of its jobs, and those of the command itself.
struct GetOptions {
    JobOptions job;
    std::optional<int> jobs;    ///< at once
    std::string give_up_after;  ///< a span of time; empty: not given
    SeedOptions seed;
    std::optional<int> port;  ///< at which peers call
    std::string way;          ///< that torrents are held to; empty: the setting's
    std::string ip_filter;    ///< a list of addresses that are no peers; empty: none
    std::string at;           ///< when it begins, as parse_moment() reads it; empty: at once
    std::string until;        ///< when it stops, likewise; empty: at its end
};

/// Adds the word `get`.
void add_get_command(CommandSet& commands);

/// Finds the jobs that have tried for too long: those that got no byte for all that time, and know why. A job
/// that waits for a place at a server that others fetch from does not try.
class Patience {
  public:
    /// 0: without end.
    explicit Patience(std::chrono::seconds at_most) : at_most_(at_most) {}
    /// Takes the progress of a running job at this moment; true when the job is to be given up.
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

/// Drives an engine whose store is in memory, and reports to a terminal. Used from one thread. The arguments
/// of its constructor outlive it.
class GetRun : public TerminalClient {
  public:
    GetRun(Engine& engine, JobOutput& output, StopSource& stop, ThreadPool& threads,
           const GetOptions& options);
    ~GetRun() override { engine_.file_only({}); }
    /// Has the finished files recorded until all are.
    void remember(std::unique_ptr<ListMemory> memory) { memory_ = std::move(memory); }
    /// Sends the file of the only job there, as far as it cannot change any more.
    void write_to(OutputPipe& pipe) { pipe_ = &pipe; }

    /// The moment of the clock, seconds since 1970, at which everything is stopped as by the user.
    void end_at(std::int64_t moment) { end_ = moment; }
    [[nodiscard]] bool was_ended_by_clock() const noexcept { return ended_by_clock_; }

    /// Files the jobs of a draft. Those that the memory knows as finished are reported so.
    void add(const JobDraft& draft);
    /// Returns when every job has ended, also those that fetched documents name; after a stop, when the
    /// running ones have.
    void drive();

    /// Any thread, for Engine::Running::before_name.
    void before_name(const NameKeeper::Naming& naming);
    void ended(const JobEnd& end) override;

  private:
    bool is_wanted(const CJobNode& job);
    void look_for_hopeless();
    void give_up(const Guid& job, Result why);
    void look_at_clock();
    void feed_pipe();
    void remove_settled();

    Patience patience_;
    std::map<Guid, Result> given_up_;  ///< with the reasons
    OutputPipe* pipe_ = nullptr;
    std::optional<std::int64_t> end_;
    bool ended_by_clock_ = false;
    std::unique_ptr<ListMemory> memory_;  ///< null: nothing is remembered
    std::atomic<std::size_t> filed_{0};   ///< jobs
    /// The number of the next job that never ran: counted down, while those of running jobs are counted up.
    std::size_t unused_number_ = std::numeric_limits<std::size_t>::max();
    std::vector<Guid> settled_;  ///< jobs whose work for this command is done
};

}  // namespace vantlow
