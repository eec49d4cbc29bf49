// The engine's operations on jobs.
#include <algorithm>
#include <ctime>
#include <map>
#include <utility>

#include "base/safe_name.h"
#include "bt/torrent_content.h"
#include "bt/torrent_settings.h"
#include "engine/documents.h"
#include "engine/engine.h"
#include "engine/recovery.h"
#include "engine/selection.h"
#include "store/address.h"
#include "store/proxies.h"
#include "transfer/job/source.h"

namespace vantlow {

using Fault = Done::Fault;

// Makes a new job of one whose identity the store has already: the state on the disk belongs to the other
// one.
void Engine::detach(CJobNode& job) const {
    if (store_->find(job.identity) == nullptr) return;
    job.identity = {};
    job.validators = {};
    job.partial_mark = {};
    forget_run(job);
}

void Engine::file_made(std::vector<std::unique_ptr<CJobNode>> jobs, const Guid& category,
                       std::vector<Guid>& filed) {
    for (auto& job : jobs) {
        if (wanted_ && !wanted_(*job)) continue;
        detach(*job);
        filed.push_back(file(std::move(job), category));
    }
}

Guid Engine::file(std::unique_ptr<CJobNode> job, const Guid& category) {
    CClassNode& node = *category_or_first(category);
    if (job->path.empty()) job->path = join_path(node.folder, u"");
    if (job->created == 0) job->created = static_cast<std::int64_t>(std::time(nullptr));
    decide_kind(*job);
    CJobNode& filed = store_->add(std::move(job), node);
    if (runner_) runner_->filed();
    apply_schedule(filed);
    return filed.identity;
}

std::vector<Guid> Engine::file_list(std::vector<std::unique_ptr<CJobNode>> jobs, const Guid& category) {
    std::vector<Guid> filed;
    for (auto& job : jobs) {
        if (auto document = document_address(job->address)) {
            job->address = std::move(*document);
            job->kind = static_cast<std::int32_t>(JobKind::document);
        }
        job->state = job->start_mode == start_mode::at_once ? JobState::waiting : JobState::stopped;
        filed.push_back(file(std::move(job), category));
    }
    return filed;
}

std::unique_ptr<JobMaker> Engine::maker_for(const JobDraft& draft, const CClassNode& category) {
    JobDraft common = draft;
    common.links.clear();
    if (common.folder.empty()) common.folder = category.folder;
    auto maker = std::make_unique<JobMaker>(std::move(common), options_.credentials);
    maker->keep_torrents(torrents_);
    maker->use_tracker(default_tracker(options_.settings));
    maker->spare([this](const Guid& job) { return store_->find(job) != nullptr; });
    return maker;
}

std::unique_ptr<Inquiry> Engine::inquire(const JobDraft& draft, std::function<void()> wake) const {
    if (!runner_ || draft.links.size() != 1) return nullptr;
    const JobPlans plans = plan_link(to_utf16(draft.links.front()));
    if (plans.plans.size() != 1) return nullptr;
    CJobNode job;
    static_cast<JobRequest&>(job) = draft;
    job.address = plans.plans.front().address;
    job.address.resize(std::min(job.address.find(u'#'), job.address.size()));
    if (find_protocol(job.address) == nullptr) return nullptr;
    look_up_login(job, options_.credentials);
    return runner_->inquire(job, std::move(wake));
}

Added Engine::add(const JobDraft& draft) {
    Added added;
    const CClassNode* const chosen = store_->tree().find(draft.category.value_or(Guid()));
    if (chosen == nullptr) {
        added.done.fault = Fault::no_category;
        return added;
    }
    // The files of a link stay together, whatever it names.
    const std::vector<CategoryRule> rules = draft.category ? std::vector<CategoryRule>() : category_rules();
    std::map<Guid, std::unique_ptr<JobMaker>> makers;
    for (const std::string& link : draft.links) {
        const auto by_rule = category_by(rules, to_utf16(link), draft.name);
        const CClassNode& category = by_rule ? *store_->tree().find(*by_rule) : *chosen;
        auto& maker = makers[category.identity];
        if (!maker) maker = maker_for(draft, category);
        MadeJobs made = maker->make(link);
        std::move(made.faults.begin(), made.faults.end(), std::back_inserter(added.faults));
        std::vector<Guid> filed;
        file_made(std::move(made.jobs), category.identity, filed);
        if (draft.asks_which) ask_which(filed, to_utf16(link));
        added.jobs.insert(added.jobs.end(), filed.begin(), filed.end());
    }
    if (in_memory() && !makers.empty()) maker_ = std::move(makers.begin()->second);
    return added;
}

Done Engine::start(const Guid& job) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    if (record->state == JobState::finished && is_moving(job)) return {Fault::moving};
    if (runner_) runner_->name(job);
    questions_.withdraw(job);
    if (torn_moves_.contains(job)) static_cast<void>(end_left_over(*record));
    if (record->state == JobState::running && runner_) runner_->start_again(job);
    if (record->state == JobState::running || record->state == JobState::waiting) return {};
    if (record->state == JobState::finished && shares_finished_ && kind_of(*record) == JobKind::torrent) {
        share_again(*record);
        return {};
    }
    if (record->state == JobState::finished) forget_run(*record);
    store_->queue_last(*record);
    return {};
}

// A person who starts a torrent that was shared enough means that it is shared all the same.
void Engine::share_again(CJobNode& job) {
    if (runner_->is_sharing(job.identity)) return;
    const TorrentSharing sharing = sharing_of(job, options_.settings);
    const TorrentTally tally = job.tally ? *job.tally : TorrentTally();
    const auto size = static_cast<double>(job.file_size);
    const bool is_enough = !sharing.goes_on ||
                           (sharing.ratio > 0 && static_cast<double>(tally.sent) >= sharing.ratio * size) ||
                           (sharing.time.count() > 0 && tally.shared >= sharing.time.count());
    if (is_enough) {
        JobRules rules = job.rules ? *job.rules : JobRules();
        rules.share_ratio = -1;
        rules.share_time = 0;
        job.rules = std::make_shared<const JobRules>(std::move(rules));
    }
    set_to_be_shared(job, true);
    store_->changed(job, StoreChange::state | StoreChange::options);
    runner_->share(job.identity, 0);
}

Done Engine::stop(const Guid& job) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    if (runner_) runner_->stop(job);
    call_off_move(job);
    if (record->state == JobState::waiting) store_->set_state(*record, JobState::stopped);
    if (is_to_be_shared(*record)) {
        set_to_be_shared(*record, false);
        store_->changed(*record, StoreChange::state);
    }
    return {};
}

void Engine::wait_for_ends(const std::vector<Guid>& jobs) {
    if (!runner_) return;
    const auto runs = [this](const Guid& job) { return runner_->holds_files(job) || is_moving(job); };
    while (std::any_of(jobs.begin(), jobs.end(), runs)) {
        runner_->wait_and_serve();
        take_ends();
        take_moves();
    }
}

Done Engine::move(const Guid& job, const Guid& category) {
    CJobNode* const record = store_->find(job);
    CClassNode* const node = store_->tree().find(category);
    if (record == nullptr) return {Fault::no_job};
    if (node == nullptr) return {Fault::no_category};
    store_->move(*record, *node);
    return {};
}

namespace {

JobRules changed_rules(JobRules rules, const JobEdit& edit) {
    const auto set = [](auto& member, const auto& value) {
        if (value) member = *value;
    };
    set(rules.speed_limit, edit.speed_limit);
    set(rules.upload_limit, edit.upload_limit);
    set(rules.select, edit.select);
    set(rules.sequential, edit.sequential);
    set(rules.ends_first, edit.ends_first);
    set(rules.most_peers, edit.most_peers);
    if (edit.share_ratio) rules.share_ratio = edit.share_ratio;
    if (edit.share_time) rules.share_time = edit.share_time;
    return rules;
}

bool is_server_address(const std::u16string& address) {
    return kind_of_address(address) == JobKind::transfer && parse_target(address).has_value();
}

}  // namespace

// Sets where the job's bytes come from. A new address must lead to the same file: an expired link is
// replaced, and the job goes on; its policy finds out whether the versions differ.
Done Engine::change_sources(CJobNode& job, const JobEdit& edit) {
    if (edit.address && kind_of_address(*edit.address) != kind_of_address(job.address))
        return {Fault::bad_value};
    if (edit.mirrors) {
        const bool fits = std::all_of(edit.mirrors->begin(), edit.mirrors->end(), is_server_address);
        if (!fits || (!edit.mirrors->empty() && !is_server_address(edit.address.value_or(job.address))))
            return {Fault::bad_value};
    }
    const std::u16string before = job.address;
    if (edit.address) job.address = *edit.address;
    if (!edit.mirrors && !(job.sources && !job.sources->mirrors.empty())) return {};
    auto sources = job.sources ? std::make_shared<JobSources>(*job.sources) : std::make_shared<JobSources>();
    if (edit.mirrors) {
        sources->mirrors.assign(1, job.address);
        for (const std::u16string& mirror : *edit.mirrors) {
            const auto& all = sources->mirrors;
            if (std::find(all.begin(), all.end(), mirror) == all.end()) sources->mirrors.push_back(mirror);
        }
        if (sources->mirrors.size() == 1) sources->mirrors.clear();
    } else {
        std::replace(sources->mirrors.begin(), sources->mirrors.end(), before, job.address);
    }
    job.sources = std::move(sources);
    return {};
}

// True where the text selects some file of the job, as far as its files are known.
bool Engine::can_select(const CJobNode& job, const std::string& text) const {
    if (!text.empty() && !is_selection(text)) return false;
    JobRules rules;
    rules.select = text;
    const auto content = torrent_content(job);
    return !content || choice_of(*content, &rules);
}

Done Engine::change(const Guid& job, const JobEdit& edit) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    if (edit.select && !can_select(*record, *edit.select)) return {Fault::bad_value};
    if (edit.proxy && !edit.proxy->empty() && !parse_proxy(*edit.proxy)) return {Fault::bad_value};
    if (edit.connections && (*edit.connections < 1 || *edit.connections > most_connections))
        return {Fault::bad_value};
    if (edit.speed_limit.value_or(0) < 0 || edit.upload_limit.value_or(0) < 0) return {Fault::bad_value};
    if (Done done = change_sources(*record, edit); !done.ok()) return done;
    const auto set = [](std::u16string& member, const std::optional<std::u16string>& value) {
        if (value) member = *value;
    };
    set(record->referer, edit.referer);
    set(record->comment, edit.comment);
    set(record->user, edit.user);
    set(record->password, edit.password);
    set(record->agent, edit.agent);
    set(record->cookie, edit.cookie);
    set(record->proxy, edit.proxy);
    if (edit.connections) record->connections = record->max_threads = *edit.connections;
    const JobRules before = record->rules ? *record->rules : JobRules();
    set_rules(*record, changed_rules(before, edit));
    const bool selects =
        kind_of(*record) != JobKind::torrent && record->rules && record->rules->select != before.select;
    if (edit.schedule) {
        set_schedule(*record, *edit.schedule);
        store_->changed(*record, StoreChange::options);
        apply_schedule(*record);
    }
    if ((edit.address || edit.mirrors || selects) && runner_ && runner_->is_running(job)) {
        const bool takes_place = runner_->takes_place(job);
        runner_->stop(job);
        if (takes_place) runner_->start_again(job, true);
    }
    return {};
}

Done Engine::reorder(const Guid& job, Order order) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    const auto& waiting = store_->waiting();
    const auto at = waiting.find({record->order, record});
    if (at == waiting.end()) return {Fault::not_waiting};
    switch (order) {
        case Order::first:
            store_->queue_first(*record);
            break;
        case Order::last:
            store_->queue_last(*record);
            break;
        case Order::earlier:
            if (at != waiting.begin()) store_->swap_places(*record, *std::prev(at)->second);
            break;
        case Order::later:
            if (std::next(at) != waiting.end()) store_->swap_places(*record, *std::next(at)->second);
            break;
    }
    return {};
}

Done Engine::swap_stopped(const Guid& one, const Guid& other) {
    CJobNode* const a = store_->find(one);
    CJobNode* const b = store_->find(other);
    if (a == nullptr || b == nullptr) return {Fault::no_job};
    if (a->state != JobState::stopped || b->state != JobState::stopped) return {Fault::not_waiting};
    store_->swap_places(*a, *b);
    return {};
}

}  // namespace vantlow
