// From a link or a document to jobs.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/documents.h"
#include "app/get_options.h"
#include "app/job_plan.h"
#include "app/netrc.h"
#include "store/job.h"
#include "transfer/job/progress.h"
#include "transfer/job/resume_state.h"

namespace vantlow {

/// A job, and who carries it out. Mirrors and hashes, where there are any, stand in job->sources.
struct JobRequest {
    JobKind kind = JobKind::transfer;
    std::unique_ptr<CJobNode> job;
};

/// What one link became.
struct MadeJobs {
    std::vector<JobRequest> jobs;
    std::string complaint;  ///< UTF-8: why there is nothing, or not everything; empty when all is well
    /// Of a document that was followed: it names more than can be fetched, and its file is left for that.
    bool document_stays = false;
};

/// Makes jobs from what the words of a command name: new ones, or those that an earlier run left in their
/// folder.
class JobFactory {
  public:
    /// Looks through the folder for unfinished jobs. `options` outlives the factory.
    JobFactory(const GetOptions& options, CredentialLookup credentials);

    /// The jobs of one link, or of a document on this machine (UTF-8).
    MadeJobs make(const std::string& link);
    /// What a job of this factory's that ended well has fetched may be a document, by its media type or its
    /// name: then its jobs, and its file is gone. None when it is an ordinary file, or a document of which
    /// nothing can be fetched: that stays as the file that it is.
    std::optional<MadeJobs> follow(const CJobNode& job, const JobOutcome& outcome);

  private:
    [[nodiscard]] JobPlans read_plans(const DocumentKind& kind, std::span<const std::byte> bytes,
                                      std::u16string origin, std::u16string fragment) const;
    MadeJobs make_from_plans(JobPlans plans);
    MadeJobs make_metalink(std::u16string address);
    std::unique_ptr<CJobNode> job_for(JobPlan plan);
    std::unique_ptr<CJobNode> new_job(const std::u16string& folder);
    ResumeIndex& earlier_in(const std::u16string& folder);
    void forget_earlier(const std::u16string& folder, const std::u16string& address,
                        const std::u16string& name);
    void apply_request(CJobNode& job);
    void look_up_login(CJobNode& job);

    const GetOptions& options_;
    CredentialLookup credentials_;
    std::u16string folder_;
    std::u16string name_;
    std::map<std::u16string, ResumeIndex> earlier_;  ///< by folder
    std::set<Guid> metalinks_;                       ///< jobs of "metalink://" addresses
};

}  // namespace vantlow
