#include "app/job_factory.h"

#include <algorithm>
#include <ctime>
#include <iterator>

#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "store/address.h"
#include "transfer/job/file_names.h"

namespace vantlow {
namespace {

// --dir and the folder part of --output together.
std::u16string target_folder(const GetOptions& options) {
    const std::u16string base = to_utf16(options.folder.empty() ? "." : options.folder);
    const std::u16string within = folder_of(to_utf16(options.output));
    return absolute_path(within.empty() ? base : join_path(base, within));
}

}  // namespace

JobFactory::JobFactory(const GetOptions& options, CredentialLookup credentials)
    : options_(options),
      credentials_(std::move(credentials)),
      folder_(target_folder(options)),
      name_(name_of(to_utf16(options.output))),
      earlier_(folder_) {}

std::unique_ptr<CJobNode> JobFactory::new_job(const std::u16string& address) {
    auto job = std::make_unique<CJobNode>();
    unsigned char identity[16];
    random_guid(identity);
    std::copy(std::begin(identity), std::end(identity), job->identity.bytes.begin());
    job->address = address;
    job->path = join_path(folder_, u"");
    job->file_name = name_;
    job->created = static_cast<std::int64_t>(std::time(nullptr));
    return job;
}

// --no-resume: what an earlier run left is removed, unless another process is at it.
void JobFactory::forget_earlier(const std::u16string& address) {
    while (const auto job = earlier_.take(address, name_)) {
        File partial;
        const std::u16string path = job->path + std::u16string(partial_suffix);
        if (partial.open(path, OpenMode::write_existing).ok() && !partial.try_lock()) continue;
        partial.close();
        static_cast<void>(remove_file(job->path + std::u16string(state_suffix)));
        static_cast<void>(remove_file(path));  // what stays behind is used again as an abandoned file
    }
}

void JobFactory::apply_request(CJobNode& job) {
    job.user = to_utf16(options_.user);
    job.password = to_utf16(options_.password);
    job.referer = to_utf16(options_.referer);
    job.agent = to_utf16(options_.agent);
    job.cookie = to_utf16(options_.cookie);
    job.connections = options_.connections;
    job.max_threads = options_.connections;
    job.retry_by_settings = options_.retries ? 0 : 1;
    if (options_.retries) job.retries = static_cast<std::int32_t>(*options_.retries);
    job.retry_delay = static_cast<std::int32_t>(options_.retry_delay.value_or(-1));
    if (!job.user.empty() || !credentials_) return;
    const auto target = parse_target(job.address);
    if (!target || !target->user.empty()) return;
    if (const auto found = credentials_(target->host)) {
        job.user = to_utf16(found->login);
        job.password = to_utf16(found->password);
    }
}

std::unique_ptr<CJobNode> JobFactory::make(const std::string& link) {
    std::u16string address = to_utf16(link);
    std::u16string fragment;
    if (const auto hash = address.find(u'#'); hash != std::u16string::npos) {
        fragment = address.substr(hash);
        address.resize(hash);
    }
    if (options_.no_resume) forget_earlier(address);
    std::unique_ptr<CJobNode> job = earlier_.take(address, name_);
    if (!job) job = new_job(address);
    job->address = address;  // with its credentials, which no state holds
    job->fragment = fragment;
    apply_request(*job);
    return job;
}

}  // namespace vantlow
