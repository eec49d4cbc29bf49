#include "app/get_run.h"

namespace vantlow {

void GetRun::add(const JobDraft& draft) {
    const Added added = engine_.add(draft);
    for (const DraftFault& fault : added.faults) output_.complain(text_of(fault));
    if (!added.faults.empty()) all_.add(Code::invalid_url);
}

void GetRun::ended(const JobEnd& end) {
    tell_end(end);
    if (end.goes_on) settled_.push_back(end.job->identity);
}

void GetRun::drive() {
    constexpr std::chrono::seconds tick_interval{1};
    auto next_tick = from_now(tick_interval);
    engine_.pump();
    while (engine_.has_work()) {
        engine_.pump(output_.interval());
        // What settled has been told; here nobody stays for what it does beyond that.
        for (const Guid& job : settled_) static_cast<void>(engine_.remove(job, false));
        settled_.clear();
        output_.show(engine_);
        if (Clock::now() >= next_tick) {
            engine_.tick();
            next_tick = from_now(tick_interval);
        }
    }
    if (stop_.requested() && engine_.waiting() > 0) all_.add(Code::stopped);
}

}  // namespace vantlow
