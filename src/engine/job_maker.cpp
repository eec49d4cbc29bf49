#include "engine/job_maker.h"

#include <algorithm>
#include <ctime>

#include "base/codes.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "bt/magnet.h"
#include "meta/metalink.h"
#include "platform/file.h"
#include "platform/process.h"
#include "store/address.h"
#include "store/job_store.h"
#include "transfer/job/source.h"

namespace vantlow {
namespace {

// Cuts the text behind the "#" off and returns it, with the "#".
std::u16string take_fragment(std::u16string& address) {
    const auto hash = address.find(u'#');
    if (hash == std::u16string::npos) return {};
    std::u16string fragment = address.substr(hash);
    address.resize(hash);
    return fragment;
}

// The folders and the name of a document's file, each made safe, so that they never leave `folder`.
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

// True for bytes that no text has: films can have the same media type.
bool looks_binary(std::span<const std::byte> bytes) {
    const auto begin = bytes.first(std::min<std::size_t>(bytes.size(), 1024));
    return std::find(begin.begin(), begin.end(), std::byte{0}) != begin.end();
}

// True when this program can fetch the plan's address.
bool can_be_fetched(const JobPlan& plan) {
    const JobKind kind = kind_of_address(plan.address);
    return kind == JobKind::torrent || (kind == JobKind::transfer && find_protocol(plan.address) != nullptr);
}

// True for what nobody writes for a server: a path from a root or from the current folder, and the bare name
// of a document.
bool is_path(std::u16string_view text) {
    for (const std::u16string_view begin : {u"/", u"./", u"../", u"\\", u".\\", u"..\\"}) {
        if (text.starts_with(begin)) return true;
    }
    const bool has_drive = text.size() > 2 && text[1] == u':' && (text[2] == u'\\' || text[2] == u'/');
    const bool is_bare = text.find_first_of(u"/\\:") == std::u16string_view::npos;
    return has_drive || (is_bare && document_by_name(text) != nullptr);
}

MadeJobs refuse(DraftFault fault) {
    MadeJobs made;
    made.faults.push_back(std::move(fault));
    return made;
}

// The kind of a fetched file: by its job's kind, by the server's media type, by its name.
const DocumentKind* document_kind_of(const CJobNode& job, const JobOutcome& outcome) {
    if (kind_of(job) == JobKind::document) return document_by_name(u"x.metalink");
    const DocumentKind* kind = document_by_type(outcome.media_type);
    if (kind == nullptr) kind = document_by_name(name_of(outcome.path));
    if (kind != nullptr) return kind;
    const auto target = parse_target(job.address);
    return target ? document_by_name(to_utf16(target->path.substr(0, target->path.find('?')))) : nullptr;
}

}  // namespace

std::optional<ExpectedHash> parse_hash(std::string_view text) {
    const auto colon = text.find(':');
    const auto kind = digest_kind(text.substr(0, colon));
    const auto digest = colon == std::string_view::npos ? std::nullopt : from_hex(text.substr(colon + 1));
    if (!kind || !digest || digest->size() != digest_size(*kind)) return std::nullopt;
    return ExpectedHash{*kind, *digest};
}

JobDraft draft_of(const CJobNode& document, const JobOutcome& outcome) {
    JobDraft draft;
    draft.category = document.category;
    draft.folder = folder_of(outcome.path);
    static_cast<JobRequest&>(draft) = document;
    if (document.rules && (!document.rules->select.empty() || document.rules->asks_which)) {
        // Its files are ordinary ones.
        JobRules rules = *document.rules;
        draft.select = std::exchange(rules.select, {});
        draft.asks_which = std::exchange(rules.asks_which, false);
        draft.rules = rules == JobRules() ? nullptr : std::make_shared<const JobRules>(std::move(rules));
    }
    return draft;
}

void look_up_login(CJobNode& job, const CredentialLookup& credentials) {
    const auto target = credentials ? parse_target(job.address) : std::nullopt;
    if (!target || !target->password.empty()) return;
    const std::u16string user = target->user.empty() ? job.user : target->user;
    const bool is_password_for_it = !job.password.empty() && (job.user.empty() || job.user == user);
    if (!user.empty() && is_password_for_it) return;
    const auto found = credentials(target->host, to_utf8(user));
    if (!found) return;
    job.user = to_utf16(found->login);
    if (!is_password_for_it) job.password = to_utf16(found->password);
}

JobMaker::JobMaker(JobDraft draft, CredentialLookup credentials)
    : draft_(std::move(draft)), credentials_(std::move(credentials)), identity_(draft_.identity) {
    earlier_in(draft_.folder);
}

ResumeIndex& JobMaker::earlier_in(const std::u16string& folder) {
    return earlier_.try_emplace(folder, folder).first->second;
}

std::unique_ptr<CJobNode> JobMaker::new_job(const std::u16string& folder) {
    auto job = std::make_unique<CJobNode>();
    job->identity = identity_.is_zero() ? new_guid() : std::exchange(identity_, {});
    job->path = join_path(folder, u"");
    job->created = static_cast<std::int64_t>(std::time(nullptr));
    return job;
}

// Removes the files that an earlier run left, unless another process uses them.
void JobMaker::forget_earlier(const std::u16string& folder, const std::u16string& address,
                              const std::u16string& name) {
    while (const auto job = earlier_in(folder).take(address, name)) {
        if (is_somebodys_ && is_somebodys_(job->identity)) continue;
        File partial;
        const std::u16string path = job->path + std::u16string(partial_suffix);
        if (partial.open_alone(path, OpenMode::write_existing).fault == FileFault::in_use) continue;
        static_cast<void>(remove_file(job->path + std::u16string(state_suffix)));
        static_cast<void>(remove_file(path));  // a file that stays is used again as an abandoned one
    }
}

void JobMaker::apply_request(CJobNode& job) {
    static_cast<JobRequest&>(job) = draft_;
    job.max_threads = draft_.connections;
    job.form = draft_.form;
    if (job.form) job.whole_file = 1;
    job.retry_by_settings = draft_.retries ? 0 : 1;
    if (draft_.retries) job.retries = *draft_.retries;
    job.retry_delay = draft_.retry_delay.value_or(-1);
    if (draft_.hash) {
        auto sources =
            job.sources ? std::make_shared<JobSources>(*job.sources) : std::make_shared<JobSources>();
        sources->whole = draft_.hash;
        job.sources = std::move(sources);
    }
    job.start_mode = draft_.paused ? 0 : 1;
    job.state = draft_.paused ? JobState::stopped : JobState::waiting;
    if (draft_.schedule.is_set()) set_schedule(job, draft_.schedule);
    if (draft_.schedule.starts_by_itself()) job.state = JobState::stopped;
    look_up_login(job, credentials_);
}

std::unique_ptr<CJobNode> JobMaker::job_for(JobPlan plan) {
    const bool on_a_server = kind_of_address(plan.address) == JobKind::transfer;
    // Only an address of a server has a fragment; in other links a "#" is part of a name.
    const std::u16string fragment = on_a_server ? take_fragment(plan.address) : std::u16string();
    Place place = place_below(draft_.folder, plan.name);
    if (!draft_.name.empty()) place = {draft_.folder, draft_.name};
    std::unique_ptr<CJobNode> job;
    if (on_a_server && !draft_.form) {  // the answer to a form is nobody's earlier file
        if (draft_.fresh) forget_earlier(place.folder, plan.address, place.name);
        job = earlier_in(place.folder).take(plan.address, place.name);
    }
    if (!job) {
        job = new_job(place.folder);
        job->file_name = place.name;
        if (!on_a_server) job->file_size = plan.size;
    }
    job->address = std::move(plan.address);  // with its credentials, which no state holds
    job->fragment = fragment;
    job->comment = draft_.comment.empty() ? std::move(plan.comment) : draft_.comment;
    job->sources = std::move(plan.sources);
    decide_kind(*job);
    apply_request(*job);
    if (kind_of(*job) == JobKind::torrent) take_selection(*job);
    return job;
}

// The files that the job fetches, or chooses from: those of a torrent, or of a document that it fetches.
void JobMaker::take_selection(CJobNode& job) const {
    if (draft_.select.empty() && !draft_.asks_which) return;
    JobRules rules = job.rules ? *job.rules : JobRules();
    rules.select = draft_.select;
    rules.asks_which = draft_.asks_which;
    job.rules = std::make_shared<const JobRules>(std::move(rules));
}

// Without its document a torrent's job asks its peers for the description.
void JobMaker::keep_torrent(const JobPlan& plan, const std::u16string& subject, MadeJobs& made) {
    if (!plan.torrent || torrents_ == nullptr) return;
    const auto magnet = parse_magnet(to_utf8(plan.address), {});
    if (!magnet) return;
    const FileError error = torrents_->keep(magnet->info_hash, std::as_bytes(std::span(*plan.torrent)));
    if (!error.ok()) made.faults.push_back({DraftFault::Kind::not_kept, subject, {}, 0, error});
}

MadeJobs JobMaker::make_from_plans(JobPlans plans, const std::u16string& subject) {
    const std::size_t count = plans.plans.size();
    if (count > 1 && !draft_.name.empty()) return refuse({DraftFault::Kind::one_name, subject, {}, count});
    if (count > 1 && draft_.hash) return refuse({DraftFault::Kind::one_hash, subject, {}, count});
    MadeJobs made;
    made.faults = std::move(plans.faults);
    for (DraftFault& fault : made.faults) {
        if (fault.subject.empty()) fault.subject = subject;
    }
    for (JobPlan& plan : plans.plans) {
        keep_torrent(plan, subject, made);
        made.jobs.push_back(job_for(std::move(plan)));
    }
    return made;
}

MadeJobs JobMaker::make_link(const std::u16string& address) {
    MadeJobs made = make_from_plans(plan_link(address), without_credentials(address));
    for (const auto& job : made.jobs) take_selection(*job);
    return made;
}

JobPlans JobMaker::read_plans(const DocumentKind& kind, std::span<const std::byte> bytes,
                              std::u16string origin, std::u16string fragment) const {
    JobPlans plans =
        kind.read(bytes, {std::move(origin), std::move(fragment), draft_.select, default_tracker_});
    if (plans.plans.empty() && plans.faults.empty()) plans.faults.push_back({DraftFault::Kind::nothing});
    return plans;
}

// Prepares a job that a fetched document names: the document's login and cookies were given for the
// document's server only.
void JobMaker::leave_document(const CJobNode& document, CJobNode& named) {
    if (kind_of(named) == JobKind::transfer && !named.sources) {
        // A job with sources was named by a document: it is not taken for a document itself.
        JobSources one;
        one.mirrors.push_back(named.address);
        named.sources = std::make_shared<const JobSources>(std::move(one));
    }
    const auto target = parse_target(document.address);
    const auto next = parse_target(named.address);
    if (target && next && is_same_server(*target, *next)) return;
    named.user.clear();
    named.password.clear();
    named.referer.clear();
    if (!named.cookie.starts_with(u'@')) named.cookie.clear();
    look_up_login(named, credentials_);
}

std::optional<MadeJobs> JobMaker::follow(const CJobNode& job, const JobOutcome& outcome) {
    const bool is_alone = kind_of(job) == JobKind::torrent || job.sources != nullptr;
    if (is_alone || outcome.size > static_cast<std::int64_t>(largest_document)) return std::nullopt;
    const DocumentKind* kind = document_kind_of(job, outcome);
    if (kind == nullptr) return std::nullopt;
    std::vector<std::byte> bytes;
    if (!read_file(outcome.path, largest_document, bytes).ok()) return std::nullopt;
    if (kind->suffix != u".torrent" && looks_binary(bytes)) return std::nullopt;
    JobPlans plans =
        read_plans(*kind, bytes, job.address, job.fragment.empty() ? u"" : job.fragment.substr(1));
    const auto fetchable = std::count_if(plans.plans.begin(), plans.plans.end(), can_be_fetched);
    const bool all_of_it = plans.faults.empty() && fetchable == std::ssize(plans.plans);
    const bool was_promised = kind_of(job) == JobKind::document;
    // A file that only its name or its type made a document, and that leads nowhere, is an ordinary file.
    if (fetchable == 0 && !was_promised) return std::nullopt;
    MadeJobs made = make_from_plans(std::move(plans), without_credentials(job.address));
    if (made.jobs.empty()) return was_promised ? std::optional(std::move(made)) : std::nullopt;
    made.document_stays = !all_of_it;
    for (const auto& named : made.jobs) leave_document(job, *named);
    if (made.document_stays) return made;
    if (const FileError error = remove_file(outcome.path); !error.ok())
        made.faults.push_back({DraftFault::Kind::not_removed, outcome.path, {}, 0, error});
    return made;
}

MadeJobs JobMaker::make(const std::string& link) {
    const std::u16string address = to_utf16(link);
    if (const auto document = document_address(address)) {
        MadeJobs made = make_link(*document);
        for (const auto& job : made.jobs) job->kind = static_cast<std::int32_t>(JobKind::document);
        return made;
    }
    if (address.find(u"://") != std::u16string::npos && find_protocol(address) != nullptr)
        return make_link(address);
    // Only an existing file is a document on this machine.
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
    if (document == nullptr || path_kind(file) != PathKind::file) {
        if (!is_path(address)) return make_link(address);
        if (path_kind(absolute_path(address)) == PathKind::none)
            return refuse({DraftFault::Kind::unreadable, address, {}, 0, {FileFault::not_found, 0}});
        return refuse({DraftFault::Kind::no_document, address});
    }
    std::vector<std::byte> bytes;
    if (const FileError error = read_file(file, largest_document, bytes); !error.ok())
        return refuse({DraftFault::Kind::unreadable, file, {}, 0, error});
    return make_from_plans(read_plans(*document, bytes, file, std::move(fragment)), file);
}

}  // namespace vantlow
