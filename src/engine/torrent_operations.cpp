// The engine's operations on torrents' jobs.
#include <algorithm>
#include <utility>

#include "base/text.h"
#include "bt/announce.h"
#include "bt/magnet.h"
#include "bt/torrent_content.h"
#include "bt/torrent_settings.h"
#include "engine/engine.h"
#include "engine/recovery.h"
#include "engine/selection.h"

namespace vantlow {

using Fault = Done::Fault;

namespace {

constexpr std::size_t most_trackers = 100;

}  // namespace

Outcome<TorrentContent> Engine::torrent_content(const CJobNode& job) const {
    const std::string info = torrent_info(job);
    const auto magnet = parse_magnet(to_utf8(job.address), {});
    if (info.empty() || !magnet) return Code::unsupported;
    return read_torrent_content(info, magnet->info_hash);
}

// Tells a session of the job, and lets one that has ended go on where files are chosen that it lacks.
void Engine::set_rules(CJobNode& job, JobRules rules) {
    const JobRules before = job.rules ? *job.rules : JobRules();
    job.rules = rules == JobRules() ? nullptr : std::make_shared<const JobRules>(std::move(rules));
    store_->changed(job, StoreChange::options);
    if (runner_) runner_->take_rules(job.identity, job.rules);
    if (job.state != JobState::finished || (runner_ && runner_->is_running(job.identity))) return;
    const auto content = torrent_content(job);
    const auto now =
        content ? choice_of(*content, job.rules.get()) : Outcome<TorrentChoice>(Code::unsupported);
    const auto then = content ? choice_of(*content, &before) : Outcome<TorrentChoice>(Code::unsupported);
    if (!now || !then || !now->wants_more_than(*then)) return;
    if (runner_) {
        runner_->stop(job.identity);  // it may wait to be shared
        runner_->name(job.identity);
    }
    set_to_be_shared(job, false);
    store_->queue_last(job);
}

std::vector<std::string> Engine::trackers(const Guid& job) const {
    const CJobNode* const record = store_->find(job);
    if (record == nullptr || kind_of(*record) != JobKind::torrent) return {};
    const auto magnet = parse_magnet(to_utf8(record->address), default_magnet_trackers(options_.settings));
    return magnet ? trackers_of(*magnet) : std::vector<std::string>();
}

// A torrent's address is the link that names them.
Done Engine::set_trackers(const Guid& job, const std::vector<std::string>& trackers) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    if (kind_of(*record) != JobKind::torrent || !is_magnet(to_utf8(record->address)))
        return {Fault::no_torrent};
    const std::vector<std::string> distinct = distinct_trackers(trackers);
    if (distinct.size() > most_trackers || !std::ranges::all_of(distinct, can_be_announced_to))
        return {Fault::bad_value};
    record->address = to_utf16(with_trackers(to_utf8(record->address), distinct));
    store_->changed(*record, StoreChange::options);
    if (runner_) runner_->take_trackers(job, distinct);
    return {};
}

Done Engine::set_upload_limit(std::optional<std::int64_t> rate) {
    if (rate && *rate <= 0) return {Fault::bad_value};
    const NumberSetting& limit = setting::upload_limit;
    return set_setting(limit.section, limit.key, to_utf16(std::to_string(rate.value_or(0))));
}

Done Engine::choose_files(const Guid& job, const std::map<std::size_t, FilePriority>& wanted) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    if (kind_of(*record) != JobKind::torrent) return {Fault::no_torrent};
    const auto content = torrent_content(*record);
    if (!content) return {Fault::no_description};
    auto choice = choice_of(*content, record->rules.get());
    if (!choice) choice = choice_of(*content, nullptr);
    if (!choice) return {Fault::no_description};
    std::size_t number = 0;
    std::size_t met = 0;
    bool is_any_left = false;
    for (std::size_t file = 0; file < content->files.size(); ++file) {
        if (content->files[file].padding) continue;
        if (const auto at = wanted.find(++number); at != wanted.end()) {
            choice->files[file] = at->second;
            ++met;
        }
        is_any_left = is_any_left || choice->files[file] != FilePriority::skip;
    }
    if (!is_any_left || met != wanted.size()) return {Fault::bad_value};
    JobRules rules = record->rules ? *record->rules : JobRules();
    keep_choice(*content, *choice, rules);
    set_rules(*record, std::move(rules));
    return {};
}

}  // namespace vantlow
