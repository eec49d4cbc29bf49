// Downloads without an engine: records that a test puts in, and a list of what was asked for.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "rpc/downloads.h"
#include "rpc/json_rpc.h"
#include "rpc/methods.h"

namespace vantlow::rpc {

class FakeDownloads final : public Downloads {
  public:
    /// Adds a download whose gid is sixteen times this hexadecimal digit.
    JobStatus& put(char digit, Phase phase) {
        JobStatus status;
        status.job = *guid_from_digits(std::string(32, digit));
        status.phase = phase;
        status.folder = "/d";
        status.files.push_back({"/d/f", 100, 10, true, {{"http://h/f", true}, {"http://m/f", false}}});
        jobs_.push_back(std::move(status));
        return jobs_.back();
    }

    void drop(char digit) {
        std::erase_if(jobs_, [digit](const JobStatus& job) { return gid_of(job.job)[0] == digit; });
    }

    std::vector<std::string> asked;  ///< "pause 1", "add 2", ...
    NewJob added{};
    JobOptions now{};        ///< of every job
    JobOptions changed{};    ///< by change()
    GlobalOptions global{};  ///< by change_global()
    std::string refusal{};   ///< of everything that is done; empty: all is well
    std::vector<Peer> peers_now{};

    const std::vector<Guid>& list(Group group) override {
        list_.clear();
        for (const JobStatus& job : jobs_) {
            const Phase phase = job.phase;
            const Group its = phase == Phase::active                              ? Group::active
                              : phase == Phase::waiting || phase == Phase::paused ? Group::waiting
                                                                                  : Group::stopped;
            if (its == group) list_.push_back(job.job);
        }
        return list_;
    }
    bool has(const Guid& job) override {
        return std::ranges::find(jobs_, job, &JobStatus::job) != jobs_.end();
    }
    std::vector<Guid> find(std::string_view digits) override {
        std::vector<Guid> found;
        for (const JobStatus& job : jobs_) {
            if (guid_digits(guid_text(job.job))->starts_with(digits)) found.push_back(job.job);
        }
        return found;
    }
    Phase phase(const Guid& job) override { return at(job).phase; }
    JobStatus status(const Guid& job, unsigned) override { return at(job); }
    JobOptions options(const Guid&) override { return now; }
    std::vector<std::string> servers(const Guid&) override { return {"h:80", "h:80"}; }
    std::vector<Peer> peers(const Guid&) override { return peers_now; }
    GlobalOptions global_options() override { return global; }
    Totals totals() override { return {1, 2, 3, 4, 5, 6}; }
    std::string version() override { return "1.37.0"; }
    std::string session() override { return std::string(40, 'a'); }

    Added add(const NewJob& job) override {
        added = job;
        if (!refusal.empty()) return {{}, refusal};
        return {{*guid_from_digits(std::string(32, '7')), *guid_from_digits(std::string(32, '8'))}, {}};
    }
    Problem pause(const Guid& job) override { return note("pause", job); }
    Problem unpause(const Guid& job) override { return note("unpause", job); }
    Problem remove(const Guid& job) override { return note("remove", job); }
    Problem change(const Guid& job, const JobOptions& options) override {
        changed = options;
        return note("change", job);
    }
    Problem change_sources(const Guid& job, const std::vector<std::string>& addresses) override {
        std::string all = "sources";
        for (const std::string& address : addresses) all += " " + address;
        return note(all, job);
    }
    Problem move(const Guid& job, std::size_t place) override {
        const auto at = std::ranges::find(jobs_, job, &JobStatus::job);
        const JobStatus moved = *at;
        jobs_.erase(at);
        jobs_.insert(jobs_.begin() + static_cast<std::ptrdiff_t>(place), moved);
        return note("move to " + std::to_string(place), job);
    }
    Problem change_global(const GlobalOptions& options) override {
        global = options;
        return refusal.empty() ? Problem() : Problem(refusal);
    }
    void save() override { asked.emplace_back("save"); }
    void shut_down() override { asked.emplace_back("shut down"); }

  private:
    const JobStatus& at(const Guid& job) { return *std::ranges::find(jobs_, job, &JobStatus::job); }
    Problem note(const std::string& what, const Guid& job) {
        asked.push_back(what + " " + gid_of(job).substr(0, 1));
        return refusal.empty() ? Problem() : Problem(refusal);
    }

    std::vector<JobStatus> jobs_;
    std::vector<Guid> list_;
};

/// Works through all of a request at once.
inline Run answered(const MethodTable& table, Request request) {
    Run run;
    run.request = std::move(request);
    while (!table.work(run, {})) {
    }
    return run;
}

}  // namespace vantlow::rpc
