// A question to a server about a file of which nothing is fetched yet.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "base/result.h"
#include "platform/stop.h"
#include "platform/thread.h"
#include "transfer/http/errand.h"
#include "transfer/job/main_thread.h"
#include "transfer/job/source.h"

namespace vantlow {

/// A server's answer about a file, as far as it says something.
struct ServerSays {
    Result result;              ///< a failure says why nothing is known
    std::u16string name{};      ///< safe; never empty where the result is a success
    std::int64_t size = -1;     ///< bytes; -1: unsaid
    std::string media_type{};   ///< lower case, without parameters; empty: unsaid
    bool takes_ranges = false;  ///< a download that was cut off can go on
};

/// An errand without an address, as a job goes on it by its rules, its proxy and the settings as they are
/// now: agent, times, trust, limits, and the proxy for each server. What it refers to outlives it.
HttpErrand errand_by_rules(const CJobNode& job, const RunOptions& options, const TransferServices& services);

/// Asks a server about a file, on a thread of its own: over HTTP for the header of an answer alone (HEAD, RFC
/// 9110, 9.3.2), over FTP and SFTP for size and time. Nothing of the file comes: an address that serves its
/// file only once still does so afterwards. Redirects are followed, logins answered and cookies kept as those
/// of a job. A server that refuses HEAD says nothing; of an SSH server that is not known the result says so,
/// and nobody is asked whether to trust it.
class Inquiry {
  public:
    /// Asks as a job that is not filed would: by its address, login and rules, the wishes of its run and the
    /// settings as they are now. The services outlive the object. `wake` is called once, from any thread,
    /// when answer() is there, unless the object is destroyed before.
    Inquiry(const CJobNode& job, const RunOptions& options, const TransferServices& services,
            std::function<void()> wake);
    /// Ends the conversation; waits for the thread.
    ~Inquiry();
    Inquiry(const Inquiry&) = delete;
    Inquiry& operator=(const Inquiry&) = delete;

    /// None while the server has not answered. Any thread.
    [[nodiscard]] std::optional<ServerSays> answer() const;

  private:
    using Asking = std::function<ServerSays(const ConnectionContext& context)>;
    static Asking over_http(HttpErrand errand);
    static Asking over_ftp(SourcePlan plan);
    void ask();

    Asking asking_;
    const TransferServices services_;
    const std::function<void()> wake_;
    StopSource stop_;
    mutable Mutex mutex_;
    std::optional<ServerSays> answer_ VANTLOW_GUARDED_BY(mutex_);
    ThreadPool::Running thread_;  ///< last
};

}  // namespace vantlow
