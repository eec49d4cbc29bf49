#include "app/job_factory.h"

#include <algorithm>
#include <ctime>
#include <iterator>

#include "base/safe_name.h"
#include "base/text.h"
#include "meta/metalink.h"
#include "platform/file.h"
#include "platform/process.h"
#include "store/address.h"
#include "transfer/job/file_names.h"
#include "transfer/job/source.h"

namespace vantlow {
namespace {

// --dir and the folder part of --output together.
std::u16string target_folder(const GetOptions& options) {
    const std::u16string base = to_utf16(options.folder.empty() ? "." : options.folder);
    const std::u16string within = folder_of(to_utf16(options.output));
    return absolute_path(within.empty() ? base : join_path(base, within));
}

// Cuts off what follows the "#" and returns it, with the "#".
std::u16string take_fragment(std::u16string& address) {
    const auto hash = address.find(u'#');
    if (hash == std::u16string::npos) return {};
    std::u16string fragment = address.substr(hash);
    address.resize(hash);
    return fragment;
}

// The folders and the name of a document's file, each made safe: never outside of `folder`.
struct Place {
    std::u16string folder;
    std::u16string name;
};

Place place_below(std::u16string folder, std::u16string_view name) {
    for (auto end = name.find_first_of(u"/\\"); end != std::u16string_view::npos;
         end = name.find_first_of(u"/\\")) {
        const std::u16string_view part = name.substr(0, end);
        name.remove_prefix(end + 1);
        const std::u16string safe = safe_file_name(part, u"");
        if (!safe.empty()) folder = join_path(folder, safe);
    }
    return {std::move(folder), name.empty() ? std::u16string() : safe_file_name(name)};
}

// Whether this program has what fetches it: nobody fetches from peers yet.
bool can_be_fetched(const JobPlan& plan) {
    return job_kind(plan.address) == JobKind::transfer && find_protocol(plan.address) != nullptr;
}

// Bytes that no text has: the same media type is said of films.
bool looks_binary(std::span<const std::byte> bytes) {
    const auto begin = bytes.first(std::min<std::size_t>(bytes.size(), 1024));
    return std::find(begin.begin(), begin.end(), std::byte{0}) != begin.end();
}

}  // namespace

JobFactory::JobFactory(const GetOptions& options, CredentialLookup credentials)
    : options_(options),
      credentials_(std::move(credentials)),
      folder_(target_folder(options)),
      name_(name_of(to_utf16(options.output))) {
    earlier_in(folder_);
}

ResumeIndex& JobFactory::earlier_in(const std::u16string& folder) {
    return earlier_.try_emplace(folder, folder).first->second;
}

std::unique_ptr<CJobNode> JobFactory::new_job(const std::u16string& folder) {
    auto job = std::make_unique<CJobNode>();
    unsigned char identity[16];
    random_guid(identity);
    std::copy(std::begin(identity), std::end(identity), job->identity.bytes.begin());
    job->path = join_path(folder, u"");
    job->created = static_cast<std::int64_t>(std::time(nullptr));
    return job;
}

// --no-resume: what an earlier run left is removed, unless another process is at it.
void JobFactory::forget_earlier(const std::u16string& folder, const std::u16string& address,
                                const std::u16string& name) {
    while (const auto job = earlier_in(folder).take(address, name)) {
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
    // A file is named from the folder that the person stands in.
    if (job.cookie.starts_with(u'@')) job.cookie = u"@" + absolute_path(job.cookie.substr(1));
    job.connections = options_.connections;
    job.max_threads = options_.connections;
    job.retry_by_settings = options_.retries ? 0 : 1;
    if (options_.retries) job.retries = static_cast<std::int32_t>(*options_.retries);
    job.retry_delay = static_cast<std::int32_t>(options_.retry_delay.value_or(-1));
    look_up_login(job);
}

// What the user's file says of the job's server, as far as the address and the words do not say it: all, or
// the half that is missing.
void JobFactory::look_up_login(CJobNode& job) {
    const auto target = credentials_ ? parse_target(job.address) : std::nullopt;
    if (!target || !target->password.empty()) return;
    const std::u16string user = target->user.empty() ? job.user : target->user;
    const bool is_password_for_it = !job.password.empty() && (job.user.empty() || job.user == user);
    if (!user.empty() && is_password_for_it) return;
    const auto found = credentials_(target->host, to_utf8(user));
    if (!found) return;
    job.user = to_utf16(found->login);
    if (!is_password_for_it) job.password = to_utf16(found->password);
}

std::unique_ptr<CJobNode> JobFactory::job_for(JobPlan plan) {
    const JobKind kind = job_kind(plan.address);
    // Only an address of a server has a fragment; in other links a "#" is part of a name.
    const std::u16string fragment =
        kind == JobKind::transfer ? take_fragment(plan.address) : std::u16string();
    Place place = place_below(folder_, plan.name);
    if (!name_.empty()) place = {folder_, name_};
    std::unique_ptr<CJobNode> job;
    if (kind == JobKind::transfer) {
        if (options_.no_resume) forget_earlier(place.folder, plan.address, place.name);
        job = earlier_in(place.folder).take(plan.address, place.name);
    }
    if (!job) {
        job = new_job(place.folder);
        job->file_name = place.name;
        if (kind != JobKind::transfer) job->file_size = plan.size;
    }
    job->address = std::move(plan.address);  // with its credentials, which no state holds
    job->fragment = fragment;
    job->comment = std::move(plan.comment);
    job->sources = std::move(plan.sources);
    apply_request(*job);
    return job;
}

MadeJobs JobFactory::make_from_plans(JobPlans plans) {
    MadeJobs made;
    if (plans.plans.size() > 1 && (!name_.empty() || !options_.hash.empty())) {
        return {{},
                std::string(name_.empty() ? "--hash" : "--output") + " is for one file, but there are " +
                    std::to_string(plans.plans.size()) + "; --select chooses one."};
    }
    made.complaint = std::move(plans.complaint);
    for (JobPlan& plan : plans.plans) {
        const JobKind kind = job_kind(plan.address);
        made.jobs.push_back({kind, job_for(std::move(plan))});
    }
    return made;
}

JobPlans JobFactory::read_plans(const DocumentKind& kind, std::span<const std::byte> bytes,
                                std::u16string origin, std::u16string fragment) const {
    const std::string shown = to_utf8(without_credentials(origin));
    JobPlans plans = kind.read(bytes, {std::move(origin), std::move(fragment), options_.select});
    if (plans.plans.empty() && plans.complaint.empty()) plans.complaint = "nothing in it can be fetched.";
    if (!plans.complaint.empty()) plans.complaint = shown + ": " + plans.complaint;
    return plans;
}

// "metalink://" in front of where the document is; without a scheme of its own that is an HTTP server.
MadeJobs JobFactory::make_metalink(std::u16string address) {
    if (address.find(u"://") == std::u16string::npos) address.insert(0, u"http://");
    MadeJobs made = make_from_plans(plan_link(address));
    for (const JobRequest& request : made.jobs) metalinks_.insert(request.job->identity);
    return made;
}

std::optional<MadeJobs> JobFactory::follow(const CJobNode& job, const JobOutcome& outcome) {
    if (job.sources || outcome.size > static_cast<std::int64_t>(largest_document)) return std::nullopt;
    const auto target = parse_target(job.address);
    const bool is_metalink = metalinks_.erase(job.identity) > 0;
    const DocumentKind* kind =
        is_metalink ? document_by_name(u"x.metalink") : document_by_type(outcome.media_type);
    if (kind == nullptr) kind = document_by_name(name_of(outcome.path));
    if (kind == nullptr && target)
        kind = document_by_name(to_utf16(target->path.substr(0, target->path.find('?'))));
    if (kind == nullptr) return std::nullopt;
    std::vector<std::byte> bytes;
    if (!read_file(outcome.path, largest_document, bytes).ok()) return std::nullopt;
    if (kind->suffix != u".torrent" && looks_binary(bytes)) return std::nullopt;
    JobPlans plans =
        read_plans(*kind, bytes, job.address, job.fragment.empty() ? u"" : job.fragment.substr(1));
    const auto fetchable = std::count_if(plans.plans.begin(), plans.plans.end(), can_be_fetched);
    const bool all_of_it = plans.complaint.empty() && fetchable == std::ssize(plans.plans);
    // What only its name or type took for a document, and one that leads nowhere, is an ordinary file.
    if (fetchable == 0 && !is_metalink) return std::nullopt;
    MadeJobs made = make_from_plans(std::move(plans));
    if (made.jobs.empty()) return is_metalink ? std::optional(std::move(made)) : std::nullopt;
    made.document_stays = !all_of_it;
    for (JobRequest& request : made.jobs) {
        if (request.kind == JobKind::transfer && !request.job->sources) {
            // One that has sources is what a document named: it is not taken for a document itself.
            JobSources one;
            one.mirrors.push_back(request.job->address);
            request.job->sources = std::make_shared<const JobSources>(std::move(one));
        }
        const auto next = parse_target(request.job->address);
        if (target && next && is_same_server(*target, *next)) continue;
        // These were given for the server of the document.
        request.job->user.clear();
        request.job->password.clear();
        request.job->referer.clear();
        if (!request.job->cookie.starts_with(u'@')) request.job->cookie.clear();
        look_up_login(*request.job);
    }
    if (made.document_stays) return made;
    if (const FileError error = remove_file(outcome.path); !error.ok())
        made.complaint = to_utf8(outcome.path) + ": " + error.text();
    return made;
}

MadeJobs JobFactory::make(const std::string& link) {
    const std::u16string address = to_utf16(link);
    constexpr std::u16string_view scheme = u"metalink://";
    if (istarts_with(address, scheme) && address.size() > scheme.size())
        return make_metalink(address.substr(scheme.size()));
    // A document on this machine: only what is there is one.
    std::u16string path = address;
    std::u16string fragment;
    if (path_kind(absolute_path(path)) != PathKind::file) {
        const auto hash = path.find(u'#', path.find(u'.'));
        MetalinkPath split = split_metalink_path(path);
        if (split.fragment.empty() && hash != std::u16string::npos) {
            split = {path.substr(0, hash), path.substr(hash + 1)};
        }
        path = std::move(split.file);
        fragment = std::move(split.fragment);
    }
    const DocumentKind* document = document_by_name(path);
    const std::u16string file = absolute_path(path);
    if (document == nullptr || path_kind(file) != PathKind::file) return make_from_plans(plan_link(address));
    path = file;
    std::vector<std::byte> bytes;
    if (const FileError error = read_file(path, largest_document, bytes); !error.ok())
        return {{}, to_utf8(path) + ": " + error.text()};
    return make_from_plans(read_plans(*document, bytes, path, std::move(fragment)));
}

}  // namespace vantlow
