#include "engine/inquiry.h"

#include <utility>

#include "base/safe_name.h"
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
    return errand;
}

Inquiry::Inquiry(HttpErrand errand, const TransferServices& services, std::function<void()> wake)
    : errand_(std::move(errand)), services_(services), wake_(std::move(wake)), stop_(services.stop) {
    errand_.head_only = true;
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
    ServerSays says = ask_server();
    if (stop_.requested()) return;
    {
        const MutexLock guard(mutex_);
        answer_ = std::move(says);
    }
    if (wake_) wake_();
}

ServerSays Inquiry::ask_server() {
    CJobLog log;  // nobody reads it: the job, once there is one, has its own
    HttpClient client({services_.connections, services_.libraries, log, stop_});
    HttpAnswer answer;
    if (Result result = client.ask(errand_, answer); !result.ok()) return {std::move(result)};
    if (answer.head.status < 200 || answer.head.status > 299) return {client.refuse(answer)};
    ServerSays says = read_answer(answer);
    client.leave(answer);
    return says;
}

}  // namespace vantlow
