// The jobs of one `vantlow get`, from its links to the last of them that ends.
#pragma once

#include <functional>
#include <vector>

#include "app/get_options.h"
#include "app/terminal_client.h"

namespace vantlow {

/// An engine with a store in memory, and a terminal. Used from one thread, which drives the engine. All that
/// it is given outlives it.
class GetRun : public TerminalClient {
  public:
    GetRun(Engine& engine, GetOutput& output, StopSource& stop, ThreadPool& threads)
        : TerminalClient(engine, output, stop, threads) {}

    /// Files the jobs of a draft.
    void add(const JobDraft& draft);
    /// Until every job has ended, those included that fetched documents name; after a stop, until the running
    /// ones have.
    void drive();

    void ended(const JobEnd& end) override;

  private:
    std::vector<Guid> settled_;  ///< jobs that nobody waits for any more
};

}  // namespace vantlow
