// The downloads that front ends know, over the engine.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "app/process/live_jobs.h"
#include "app/rpc/job_status.h"
#include "app/rpc/magnet_links.h"
#include "engine/engine.h"
#include "rpc/downloads.h"

namespace vantlow {

/// Everything is for the engine's thread. It keeps what only front ends ask for, and only for this run: what
/// became of jobs that were removed, or gave way to those that a document names. The job of a magnet link is
/// shown as its description until that is there, and then beside the description's result, each with its own
/// identity; in a later run either names the job.
class EngineDownloads final : public rpc::Downloads, public EngineListener {
  public:
    /// A front end's news: the word for it ("aria2.onDownloadStart"), and the job.
    using Tell = std::function<void(std::string_view word, const Guid& job)>;
    struct Options {
        std::u16string agent;  ///< the program's own
        const Settings& settings;
        Tell tell;
        std::function<void()> shut_down;  ///< ends the program soon
    };
    EngineDownloads(Engine& engine, Options options);
    ~EngineDownloads() override;

    /// Measures the speeds, and sees what running jobs do not report; to be called at least once a second.
    void look();
    [[nodiscard]] const LiveJobs& live() const noexcept { return live_; }

    [[nodiscard]] const std::vector<Guid>& list(rpc::Group group) override;
    [[nodiscard]] bool has(const Guid& job) override;
    [[nodiscard]] std::vector<Guid> find(std::string_view digits) override;
    [[nodiscard]] rpc::Phase phase(const Guid& job) override;
    [[nodiscard]] rpc::JobStatus status(const Guid& job, unsigned parts) override;
    [[nodiscard]] rpc::JobOptions options(const Guid& job) override;
    [[nodiscard]] std::vector<std::string> servers(const Guid& job) override;
    [[nodiscard]] std::vector<rpc::Peer> peers(const Guid& job) override;
    [[nodiscard]] rpc::GlobalOptions global_options() override;
    [[nodiscard]] rpc::Totals totals() override;
    [[nodiscard]] std::string version() override { return "1.37.0"; }
    [[nodiscard]] std::string session() override { return session_; }

    Added add(const rpc::NewJob& job) override;
    rpc::Problem pause(const Guid& job) override;
    rpc::Problem unpause(const Guid& job) override;
    rpc::Problem remove(const Guid& job) override;
    rpc::Problem change(const Guid& job, const rpc::JobOptions& options) override;
    rpc::Problem change_sources(const Guid& job, const std::vector<std::string>& addresses) override;
    rpc::Problem move(const Guid& job, std::size_t place) override;
    rpc::Problem change_global(const rpc::GlobalOptions& options) override;
    void save() override { engine_.save_behind(); }
    void shut_down() override { options_.shut_down(); }

    void data_complete(const Guid& job) override;
    void changed(const Changes& changes) override;
    void ended(const JobEnd& end) override;
    void followed(const Followed& followed) override;

  private:
    rpc::Problem move_paused(const Guid& job, std::size_t place);
    struct Lists {
        std::uint64_t revision = 0;
        std::uint64_t results = 0;
        bool made = false;
        std::vector<Guid> active;
        std::vector<Guid> waiting;
        std::vector<Guid> stopped;
    };
    const Lists& lists();
    void look_at(const Guid& job);
    void meet(const CJobNode& job);
    void look_at_description(const Guid& job);
    void tell(std::string_view word, const Guid& job) { options_.tell(word, awaited_.shown(job)); }
    void note(const Guid& job, rpc::Phase now, bool has_run);
    void keep_result(rpc::JobStatus status);
    void forget(const Guid& job);
    const TorrentReport* torrent(const CJobNode& job, unsigned parts);
    void tell_data(const Guid& job);
    [[nodiscard]] rpc::Phase phase_now(const CJobNode& job) const;
    [[nodiscard]] const CJobNode* record(const Guid& shown) const;
    [[nodiscard]] bool has_left(const Guid& job) const;
    [[nodiscard]] std::u16string default_folder() const;
    Done change_trackers(const Guid& job, const rpc::JobOptions& options);
    Added add_links(const rpc::NewJob& job, JobDraft draft);
    Added add_document(const rpc::NewJob& job, JobDraft draft);
    static Added result_of(vantlow::Added added);

    Engine& engine_;
    const Options options_;
    const std::string session_;
    LiveJobs live_;
    Lists lists_;
    rpc::JobOptions defaults_;  ///< of jobs that are added here, for this run
    // By the jobs' own identities, but for results: these have the one under which they are shown.
    std::unordered_map<Guid, rpc::Phase, GuidHash> known_;
    AwaitedDescriptions awaited_;
    /// A job, and the document that named it, or its own description.
    std::unordered_map<Guid, Guid, GuidHash> following_;
    /// A document that stayed, and the jobs that it named.
    std::unordered_map<Guid, std::vector<Guid>, GuidHash> followed_by_;
    /// Reports of torrents until something of their jobs changes; some at most, since who asks for one asks
    /// again.
    struct Known {
        unsigned parts = 0;
        TorrentReport report;
    };
    std::unordered_map<Guid, Known, GuidHash> torrents_;
    std::unordered_set<Guid, GuidHash> told_data_;  ///< torrents of whom it was told that all of it is there
    std::unordered_map<Guid, rpc::JobStatus, GuidHash> results_;
    std::deque<Guid> result_order_;
    /// Jobs that are no results any more, and whose sessions have not ended yet.
    std::unordered_set<Guid, GuidHash> purged_;
    std::uint64_t results_revision_ = 0;
    std::size_t stopped_ever_ = 0;
};

}  // namespace vantlow
