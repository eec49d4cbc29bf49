// From a link or a document to jobs.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/documents.h"
#include "engine/draft.h"
#include "engine/kinds.h"
#include "engine/netrc.h"
#include "engine/torrent_shelf.h"
#include "storage/resume_state.h"
#include "store/job.h"
#include "transfer/job/progress.h"

namespace vantlow {

/// The result of one link. The jobs have their kinds, but are not filed yet; mirrors and hashes, where there
/// are any, are in job->sources.
struct MadeJobs {
    std::vector<std::unique_ptr<CJobNode>> jobs;
    std::vector<DraftFault> faults;  ///< why there is nothing, or not everything
    /// True for a document that names more than can be fetched; its file stays for that reason.
    bool document_stays = false;
};

/// Makes jobs of links: new ones, or the ones that an earlier run left in their folder. One thread.
class JobMaker {
  public:
    /// `draft`: the properties of the jobs; its links and its category are ignored, its folder must be named.
    JobMaker(JobDraft draft, CredentialLookup credentials);

    /// Sets the test for unfinished jobs that belong to somebody: their files are left alone where the draft
    /// is to begin anew.
    void spare(std::function<bool(const Guid&)> is_somebodys) { is_somebodys_ = std::move(is_somebodys); }

    /// Has the documents of torrents kept there, which outlives the object.
    void keep_torrents(TorrentShelf& shelf) { torrents_ = &shelf; }

    /// Sets the tracker of torrents that name none; without it they have none.
    void use_tracker(std::string tracker) { default_tracker_ = std::move(tracker); }

    /// The jobs of one link, or of a document on this machine (UTF-8).
    MadeJobs make(const std::string& link);
    /// Follows the file of a job that ended well, if it is a document by its kind, its media type or its
    /// name: returns the jobs that it names, and removes the file. None when it is an ordinary file, or a
    /// document of which nothing can be fetched; the file then stays.
    std::optional<MadeJobs> follow(const CJobNode& job, const JobOutcome& outcome);

  private:
    [[nodiscard]] JobPlans read_plans(const DocumentKind& kind, std::span<const std::byte> bytes,
                                      std::u16string origin, std::u16string fragment) const;
    void keep_torrent(const JobPlan& plan, const std::u16string& subject, MadeJobs& made);
    MadeJobs make_from_plans(JobPlans plans, const std::u16string& subject);
    MadeJobs make_link(const std::u16string& address);
    std::unique_ptr<CJobNode> job_for(JobPlan plan);
    std::unique_ptr<CJobNode> new_job(const std::u16string& folder);
    ResumeIndex& earlier_in(const std::u16string& folder);
    void forget_earlier(const std::u16string& folder, const std::u16string& address,
                        const std::u16string& name);
    void apply_request(CJobNode& job);
    void take_selection(CJobNode& job) const;
    void leave_document(const CJobNode& document, CJobNode& named);

    const JobDraft draft_;
    CredentialLookup credentials_;
    Guid identity_;  ///< of the next new job, where one was asked for
    std::function<bool(const Guid&)> is_somebodys_;
    TorrentShelf* torrents_ = nullptr;
    std::string default_tracker_;
    std::map<std::u16string, ResumeIndex> earlier_;  ///< by folder
};

/// Looks the job's login up in the user's file, as far as the job and its address do not give it: all of it,
/// or the half that is missing.
void look_up_login(CJobNode& job, const CredentialLookup& credentials);

/// The draft for the jobs that a fetched document names: with the properties of the document's own job, in
/// its folder.
JobDraft draft_of(const CJobNode& document, const JobOutcome& outcome);

}  // namespace vantlow
