// The orders of front ends: what is to be done with the downloads that they know.
#include <algorithm>
#include <span>

#include "app/cli/engine_texts.h"
#include "app/process/queue_order.h"
#include "app/rpc/engine_downloads.h"
#include "app/rpc/job_requests.h"
#include "app/rpc/job_status.h"
#include "base/text.h"
#include "bt/announce.h"
#include "bt/magnet.h"
#include "bt/torrent_settings.h"
#include "engine/kinds.h"
#include "platform/file.h"
#include "store/address.h"

namespace vantlow {

using rpc::Phase;
using rpc::Problem;

namespace {

Problem problem_of(const Done& done, const Guid& job) {
    return text_of(done, rpc::gid_of(job));
}

}  // namespace

rpc::Downloads::Added EngineDownloads::result_of(vantlow::Added added) {
    Added result{std::move(added.jobs), {}};
    for (const DraftFault& fault : added.faults) {
        if (!result.problem.empty()) result.problem += ' ';
        result.problem += text_of(fault);
    }
    if (result.jobs.empty() && result.problem.empty()) result.problem = "There is nothing to download.";
    return result;
}

rpc::Downloads::Added EngineDownloads::add_links(const rpc::NewJob& job, JobDraft draft) {
    std::vector<std::u16string> addresses;
    for (const std::string& address : job.addresses) {
        if (is_fetchable(to_utf16(address))) addresses.push_back(to_utf16(address));
    }
    if (addresses.empty()) return {{}, "None of the addresses can be downloaded."};
    draft.links.push_back(to_utf8(addresses.front()));
    const bool is_link_of_torrent = is_magnet(draft.links.front());
    if (is_link_of_torrent)
        draft.identity = description_of(draft.identity);  // of which the gid was asked for
    Added added = result_of(engine_.add(draft));
    if (is_link_of_torrent) {
        for (const Guid& one : added.jobs) awaited_.add(one);
    }
    if (added.jobs.size() != 1 || addresses.size() == 1) return added;
    JobEdit edit;
    edit.mirrors.emplace(addresses.begin() + 1, addresses.end());
    // Addresses that cannot be mirrors are those of another network; the first one alone serves then.
    static_cast<void>(engine_.change(added.jobs.front(), edit));
    return added;
}

// Documents are read from files: this one is there for as long as that takes.
rpc::Downloads::Added EngineDownloads::add_document(const rpc::NewJob& job, JobDraft draft) {
    const bool is_torrent = job.kind == rpc::NewJob::Document::torrent;
    const std::u16string name =
        u"received-" + to_utf16(rpc::gid_of(new_guid())) + (is_torrent ? u".torrent" : u".metalink");
    const std::u16string path = join_path(engine_.data_folder(), name);
    const FileError error =
        write_file_atomically(path, std::as_bytes(std::span(job.document)), Privacy::owner_only);
    if (!error.ok()) return {{}, "The document cannot be kept: " + error.text()};
    draft.links.push_back(to_utf8(path));
    vantlow::Added added = engine_.add(draft);
    static_cast<void>(remove_file(path));
    for (DraftFault& fault : added.faults) fault.subject = u"The document";
    return result_of(std::move(added));
}

rpc::Downloads::Added EngineDownloads::add(const rpc::NewJob& job) {
    rpc::NewJob whole = job;
    whole.options = defaults_;
    whole.options.take(job.options);
    if (whole.options.gid && !find(*whole.options.gid).empty())
        return {{}, "There is a download " + *whole.options.gid + " already."};
    DraftRequest request = draft_of(whole, default_folder());
    if (request.problem) return {{}, *request.problem};
    // Where no folder was asked for, it is that of the category that the rules choose.
    if (!whole.options.folder && request.draft.folder == default_folder()) request.draft.folder.clear();
    const bool is_document = job.kind != rpc::NewJob::Document::none;
    const bool has_place = job.position.has_value();
    Added added =
        is_document ? add_document(job, std::move(request.draft)) : add_links(job, std::move(request.draft));
    for (const Guid& one : added.jobs) {
        known_[one] = phase_now(*engine_.find(one));
        const auto report = engine_.torrent_report(one, 0);
        // Trackers that every torrent gets are not for private ones.
        static_cast<void>(change_trackers(one, report && report->is_private ? job.options : whole.options));
    }
    if (has_place) {
        std::size_t place = static_cast<std::size_t>(*job.position);
        for (const Guid& one : added.jobs)
            static_cast<void>(move(one, place++));  // behind the last: the last
    }
    for (Guid& one : added.jobs) {
        const Guid shown = awaited_.shown(one);
        note(one, known_[one], false);  // another download may have fetched its description
        one = shown;
    }
    return added;
}

Problem EngineDownloads::pause(const Guid& job) {
    return problem_of(engine_.stop(awaited_.behind(job)), job);
}

Problem EngineDownloads::unpause(const Guid& job) {
    return problem_of(engine_.start(awaited_.behind(job)), job);
}

Problem EngineDownloads::remove(const Guid& shown) {
    const CJobNode* const found = record(shown);
    if (found == nullptr) {
        if (engine_.find(shown) != nullptr) purged_.insert(shown);
        results_.erase(shown);
        std::erase(result_order_, shown);
        ++results_revision_;
        return std::nullopt;
    }
    const Guid job = found->identity;
    const bool is_description = awaited_.contains(job);
    const Phase phase = phase_now(*found);
    rpc::JobStatus last = status(shown, rpc::part::all);
    if (phase == Phase::active) note(job, phase, false);  // its beginning is told before its end
    const Done done = engine_.remove(job, false);
    if (!done.ok() && done.fault != Done::Fault::running) return problem_of(done, shown);
    forget(job);
    if (is_stopped(phase)) {
        known_.erase(job);
        return std::nullopt;
    }
    known_[job] = Phase::removed;
    if (phase == Phase::active) {
        last.phase = Phase::removed;
        keep_result(std::move(last));
        ++stopped_ever_;
        if (is_description && engine_.find(job) != nullptr) purged_.insert(job);
    }
    options_.tell(word_for(Phase::removed), is_description ? description_of(job) : job);
    return std::nullopt;
}

Problem EngineDownloads::change(const Guid& shown, const rpc::JobOptions& options) {
    const CJobNode* const found = record(shown);
    if (found == nullptr) return "The download " + rpc::gid_of(shown) + " has ended.";
    const Guid job = found->identity;
    const EditRequest request = edit_of(options, *found);
    if (request.problem) return request.problem;
    if (request.folder) {
        const Done done = engine_.move_files(job, *request.folder, request.name.value_or(u""));
        if (!done.ok()) return problem_of(done, shown);
    } else if (request.name) {
        if (const Done done = engine_.rename(job, *request.name); !done.ok()) return problem_of(done, shown);
    }
    torrents_.erase(job);
    if (const Done done = change_trackers(job, options); !done.ok()) return problem_of(done, shown);
    return problem_of(engine_.change(job, request.edit), shown);
}

Done EngineDownloads::change_trackers(const Guid& job, const rpc::JobOptions& options) {
    if (!options.trackers && !options.not_trackers) return {};
    if (const CJobNode* const found = engine_.find(job); kind_of(*found) != JobKind::torrent) return {};
    const auto read = [](const std::optional<std::string>& asked) {
        const std::string text = asked.value_or("");
        std::vector<std::string> list;
        for (const std::string_view part : split(text, ',')) {
            std::string url = normalise_tracker(part);
            if (can_be_announced_to(url)) list.push_back(std::move(url));
        }
        return list;
    };
    const std::vector<std::string> leaving = read(options.not_trackers);
    std::vector<std::string> trackers = engine_.trackers(job);
    std::erase_if(trackers, [&](const std::string& tracker) {
        return options.not_trackers == "*" || std::ranges::find(leaving, tracker) != leaving.end();
    });
    const std::vector<std::string> added = read(options.trackers);
    trackers.insert(trackers.end(), added.begin(), added.end());
    return engine_.set_trackers(job, trackers);
}

// Addresses were told without their credentials: those that stay keep them.
Problem EngineDownloads::change_sources(const Guid& job, const std::vector<std::string>& addresses) {
    const CJobNode* const found = record(job);
    if (found == nullptr) return "The download " + rpc::gid_of(job) + " has ended.";
    std::vector<std::u16string> known{found->address};
    if (found->sources)
        known.insert(known.end(), found->sources->mirrors.begin(), found->sources->mirrors.end());
    std::vector<std::u16string> wanted;
    for (const std::string& address : addresses) {
        if (!is_fetchable(to_utf16(address))) return "The address " + address + " cannot be downloaded.";
        const std::u16string text = to_utf16(address);
        const auto same = std::ranges::find(
            known, text, [](const std::u16string& one) { return without_credentials(one); });
        wanted.push_back(same == known.end() ? text : *same);
    }
    JobEdit edit;
    edit.address = wanted.front();
    edit.mirrors.emplace(wanted.begin() + 1, wanted.end());
    return problem_of(engine_.change(found->identity, edit), job);
}

Problem EngineDownloads::move(const Guid& job, std::size_t place) {
    const CJobNode* const found = record(job);
    if (found != nullptr && phase_now(*found) == Phase::paused)
        return move_paused(job, place - std::min(place, engine_.queue().size()));
    if (found == nullptr || found->state != JobState::waiting)
        return "The download " + rpc::gid_of(job) +
               " has no place in the queue: it does not wait for its turn.";
    return problem_of(move_in_queue(engine_, found->identity, place), job);
}

// Paused ones stand behind all that wait, in an order of their own: that in which they are started together.
Problem EngineDownloads::move_paused(const Guid& own, std::size_t place) {
    const Guid job = awaited_.shown(awaited_.behind(own));
    std::vector<Guid> paused = lists().waiting;
    std::erase_if(paused, [this](const Guid& one) { return phase(one) != Phase::paused; });
    place = std::min(place, paused.size() - 1);
    auto now = static_cast<std::size_t>(std::ranges::find(paused, job) - paused.begin());
    while (now != place) {
        const std::size_t next = now < place ? now + 1 : now - 1;
        const Done done = engine_.swap_stopped(awaited_.behind(job), awaited_.behind(paused[next]));
        if (!done.ok()) return problem_of(done, job);
        now = next;
    }
    return std::nullopt;
}

Problem EngineDownloads::change_global(const rpc::GlobalOptions& options) {
    const auto write = [this](const NumberSetting& setting, std::int64_t value) -> Problem {
        return text_of(engine_.set_setting(setting.section, setting.key, to_utf16(std::to_string(value))),
                       to_utf8(setting.section) + "/" + to_utf8(setting.key));
    };
    if (options.job.folder && !options.job.folder->empty() &&
        absolute_path(to_utf16(*options.job.folder)) != to_utf16(*options.job.folder))
        return "The option dir wants an absolute folder.";
    Problem problem;
    if (options.jobs_at_once) problem = write(setting::max_jobs, *options.jobs_at_once);
    if (!problem && options.split_size) problem = write(setting::split_size, *options.split_size);
    if (!problem && options.most_peers) problem = write(setting::most_peers, *options.most_peers);
    if (!problem && options.down_limit) {
        const std::int64_t limit = *options.down_limit;
        problem = text_of(engine_.set_limit(limit > 0 ? std::optional(limit) : std::nullopt), "The limit");
    }
    if (!problem && options.up_limit) problem = write(setting::upload_limit, *options.up_limit);
    if (!problem) defaults_.take(options.job);
    if (defaults_.folder && defaults_.folder->empty()) defaults_.folder.reset();
    defaults_.gid.reset();
    return problem;
}

}  // namespace vantlow
