// From a link to a job.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "app/get_options.h"
#include "app/netrc.h"
#include "store/job.h"
#include "transfer/job/resume_state.h"

namespace vantlow {

/// Credentials for a host, from the user's file; empty when there are none.
using CredentialLookup = std::function<std::optional<NetrcEntry>(const std::string& host)>;

/// Makes the jobs of one `get`: new ones, or those that an earlier run left in the folder.
class JobFactory {
  public:
    /// Looks through the folder for unfinished jobs. `options` outlives the factory.
    JobFactory(const GetOptions& options, CredentialLookup credentials);

    /// The job for one link (UTF-8).
    std::unique_ptr<CJobNode> make(const std::string& link);

  private:
    std::unique_ptr<CJobNode> new_job(const std::u16string& address);
    void forget_earlier(const std::u16string& address);
    void apply_request(CJobNode& job);

    const GetOptions& options_;
    CredentialLookup credentials_;
    std::u16string folder_;
    std::u16string name_;
    ResumeIndex earlier_;
};

}  // namespace vantlow
