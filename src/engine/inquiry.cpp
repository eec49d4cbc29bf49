#include "engine/inquiry.h"

#include <utility>

#include "base/safe_name.h"
#include "store/address.h"
#include "store/job_log.h"
#include "transfer/http/client.h"
#include "transfer/http/content_name.h"

namespace vantlow {
namespace {

ServerSays read_answer(const HttpAnswer& answer) {
    const HttpHead& head = answer.head;
    ServerSays says;
    std::u16string name = disposition_name(head.content_disposition);
    if (name.empty()) name = decode_name(head.content_type_name);
    if (name.empty()) name = path_name(answer.target.path);
    says.name = safe_file_name(name);
    // The bytes of a coded body are not those of the file.
    const bool is_coded = head.coding != ContentCoding::identity;
    if (!is_coded) says.size = head.length.value_or(-1);
    says.media_type = head.content_type;
    says.takes_ranges = head.accept_ranges == AcceptRanges::bytes && !is_coded;
    return says;
}

// The errand of a job's first request over HTTP.
HttpErrand first_errand(const CJobNode& job, const RunOptions& options, const TransferServices& services) {
    HttpErrand errand = errand_by_rules(job, options, services);
    errand.address = job.address;
    errand.user = job.user;
    errand.password = job.password;
    errand.utf8 = job.utf8 != 0;
    errand.http.referer = job.referer;
    errand.http.automatic_referer = job.automatic_referer != 0;
    errand.http.cookie = job.cookie;
    plan_cookies(services.settings, errand.http);
    errand.head_only = true;
    return errand;
}

// The plan of a job's first connection over FTP or SFTP.
SourcePlan first_plan(const CJobNode& job, const RunOptions& options, const TransferServices& services) {
    SourcePlan plan;
    plan.origin = plan.address = job.address;
    plan.user = job.user;
    plan.password = job.password;
    plan.utf8 = job.utf8 != 0;
    plan.http.agent =
        job.agent.empty() ? options.default_agent : job.agent;  // through a proxy that speaks FTP
    plan_source(job, options, services, plan);
    plan.facts_only = true;
    return plan;
}

}  // namespace

HttpErrand errand_by_rules(const CJobNode& job, const RunOptions& options, const TransferServices& services) {
    HttpErrand errand;
    errand.http.agent = job.agent.empty() ? options.default_agent : job.agent;
    plan_by_rules(job, services.settings, errand);
    errand.proxy_for = [options, services](const Target& target) {
        return proxy_to(target, options, services);
    };
    return errand;
}

Inquiry::Inquiry(const CJobNode& job, const RunOptions& options, const TransferServices& services,
                 std::function<void()> wake)
    : services_(services), wake_(std::move(wake)), stop_(services.stop) {
    const auto target = parse_target(job.address, job.utf8 != 0);
    const bool is_http = target && (target->scheme == "http" || target->scheme == "https");
    asking_ = is_http ? over_http(first_errand(job, options, services))
                      : over_ftp(first_plan(job, options, services));
    if (Result result = services_.threads.start(thread_, [this] { ask(); }); !result.ok()) {
        const MutexLock guard(mutex_);
        answer_ = ServerSays{std::move(result)};
    }
}

Inquiry::~Inquiry() {
    stop_.request();
    thread_.join();
}

std::optional<ServerSays> Inquiry::answer() const {
    const MutexLock guard(mutex_);
    return answer_;
}

void Inquiry::ask() {
    CJobLog log;  // nobody reads it: the job, once there is one, has its own
    ServerSays says = asking_({services_.connections, services_.libraries, log, stop_});
    if (stop_.requested()) return;
    {
        const MutexLock guard(mutex_);
        answer_ = std::move(says);
    }
    if (wake_) wake_();
}

Inquiry::Asking Inquiry::over_http(HttpErrand errand) {
    return [errand = std::move(errand)](const ConnectionContext& context) -> ServerSays {
        HttpClient client(context);
        HttpAnswer answer;
        if (Result result = client.ask(errand, answer); !result.ok()) return {std::move(result)};
        if (answer.head.status < 200 || answer.head.status > 299) return {client.refuse(answer)};
        ServerSays says = read_answer(answer);
        client.leave(answer);
        return says;
    };
}

Inquiry::Asking Inquiry::over_ftp(SourcePlan plan) {
    return [plan = std::move(plan)](const ConnectionContext& context) -> ServerSays {
        const std::unique_ptr<Source> source = make_ftp_source(context);
        SourceAnswer answer;
        if (Result result = source->open(plan, 0, answer); !result.ok()) return {std::move(result)};
        source->close();
        ServerSays says;
        says.name = safe_file_name(answer.name);
        says.size = answer.version.size;
        says.takes_ranges = answer.ranges_promised;
        return says;
    };
}

}  // namespace vantlow
