// The methods that front ends know. Their names, parameters and answers are those of a contract that many
// programs rely on: no word here changes.
#include <algorithm>
#include <array>

#include "base/codes.h"
#include "base/text.h"
#include "rpc/downloads.h"
#include "rpc/methods.h"
#include "rpc/status_words.h"

namespace vantlow::rpc {
namespace {

Fault refuse(std::string message) {
    return {fault_code::failed, std::move(message)};
}

Json ok() {
    return "OK";
}

Answer answer_of(const Problem& problem, Json result) {
    if (problem) return refuse(*problem);
    return result;
}

using Listed = std::variant<Listing, Fault>;

constexpr std::array ended_phases{Phase::failed, Phase::complete, Phase::removed};

bool is_one_of(Phase phase, std::span<const Phase> phases) {
    return std::ranges::find(phases, phase) != phases.end();
}

/// The methods, with what they work on. Each reads its parameters, looks whether they fit, and asks the
/// downloads.
class DownloadMethods {
  public:
    explicit DownloadMethods(Downloads& downloads) : downloads_(downloads) {}

    Answer add_uri(Params& params) {
        NewJob job;
        job.addresses = params.texts(0);
        if (!params.fault() && job.addresses.empty()) params.refuse("There is no address.");
        read_new(params, 1, job);
        return add(params, job);
    }
    Answer add_torrent(Params& params) {
        NewJob job;
        job.kind = NewJob::Document::torrent;
        job.document = bytes(params, 0);
        // Addresses of the same files may stand between; some programs leave them out.
        const Json* const second = params.find(1);
        const bool has_addresses = second != nullptr && second->is_array();
        if (has_addresses) job.addresses = params.texts(1);
        const bool shifted = second != nullptr && second->is_object();
        read_new(params, shifted ? 1 : 2, job);
        return add(params, job);
    }
    Answer add_metalink(Params& params) {
        NewJob job;
        job.kind = NewJob::Document::metalink;
        job.document = bytes(params, 0);
        // An array of addresses may stand between, as with a torrent.
        const Json* const second = params.find(1);
        read_new(params, second != nullptr && second->is_array() ? 2 : 1, job);
        if (params.fault()) return *params.fault();
        const Downloads::Added added = downloads_.add(job);
        if (added.jobs.empty()) return refuse(added.problem);
        Json gids = Json::array();
        for (const Guid& one : added.jobs) gids.push_back(gid_of(one));
        return gids;
    }

    Answer remove(Params& params) {
        constexpr std::array phases{Phase::active, Phase::waiting, Phase::paused};
        return steer(params, phases, "cannot be removed now", &Downloads::remove);
    }
    Answer pause(Params& params) {
        constexpr std::array phases{Phase::active, Phase::waiting};
        return steer(params, phases, "cannot be paused now", &Downloads::pause);
    }
    Answer unpause(Params& params) {
        constexpr std::array phases{Phase::paused};
        return steer(params, phases, "cannot be unpaused now", &Downloads::unpause);
    }
    Answer pause_all(Params&) {
        for (const Group group : {Group::active, Group::waiting}) {
            const std::vector<Guid> jobs = downloads_.list(group);
            for (const Guid& job : jobs) {
                if (downloads_.phase(job) != Phase::paused) static_cast<void>(downloads_.pause(job));
            }
        }
        return ok();
    }
    Answer unpause_all(Params&) {
        const std::vector<Guid> jobs = downloads_.list(Group::waiting);
        for (const Guid& job : jobs) {
            if (downloads_.phase(job) == Phase::paused) static_cast<void>(downloads_.unpause(job));
        }
        return ok();
    }

    Answer tell_status(Params& params) {
        const auto job = find(params, 0);
        const auto keys = params.optional_texts(1);
        if (params.fault()) return *params.fault();
        return json_of(downloads_.status(*job, parts_for(keys)), keys);
    }
    Listed tell_active(Params& params) {
        auto keys = params.optional_texts(0);
        if (params.fault()) return *params.fault();
        return tell_all(downloads_.list(Group::active), std::move(keys));
    }
    Listed tell_waiting(Params& params) { return tell_range(params, Group::waiting); }
    Listed tell_stopped(Params& params) { return tell_range(params, Group::stopped); }

    Answer get_uris(Params& params) {
        return with_files(params, [](const std::vector<FileStatus>& files) {
            return files.empty() ? Json::array() : json_of(files.front().sources);
        });
    }
    Answer get_files(Params& params) {
        return with_files(params, [](const std::vector<FileStatus>& files) { return json_of(files); });
    }
    Answer get_peers(Params& params) {
        const auto job = find(params, 0);
        if (params.fault()) return *params.fault();
        if (is_one_of(downloads_.phase(*job), ended_phases)) return refuse("This download has ended.");
        Json peers = Json::array();
        for (const Peer& peer : downloads_.peers(*job)) peers.push_back(json_of(peer));
        return peers;
    }
    Answer get_servers(Params& params) {
        const auto job = find(params, 0);
        if (params.fault()) return *params.fault();
        if (downloads_.phase(*job) != Phase::active) return refuse("This download is not active.");
        const JobStatus status = downloads_.status(*job, part::files | part::torrent);
        if (status.torrent) return Json::array();  // its sources are peers
        const auto& sources = status.files.empty() ? std::vector<Source>() : status.files.front().sources;
        const std::string address = sources.empty() ? std::string() : sources.front().address;
        const std::vector<std::string> all = downloads_.servers(*job);
        const std::int64_t share = all.empty() ? 0 : status.down_speed / std::ssize(all);
        Json servers = Json::array();
        for (std::size_t i = 0; i < all.size(); ++i)
            servers.push_back(
                {{"uri", address}, {"currentUri", address}, {"downloadSpeed", std::to_string(share)}});
        return Json::array({{{"index", "1"}, {"servers", servers}}});
    }

    Answer get_option(Params& params) {
        const auto job = find(params, 0);
        if (params.fault()) return *params.fault();
        return write_options(downloads_.options(*job));
    }
    Answer change_option(Params& params) {
        const auto job = find(params, 0);
        JobOptions options;
        take_options(params, 1, options);
        if (params.fault()) return *params.fault();
        return answer_of(downloads_.change(*job, options), ok());
    }
    Answer get_global_option(Params&) { return write_options(downloads_.global_options()); }
    Answer change_global_option(Params& params) {
        GlobalOptions options;
        if (const auto fault = read_options(params.options(0), options)) return *fault;
        return answer_of(downloads_.change_global(options), ok());
    }
    Answer change_position(Params& params);
    Answer change_uri(Params& params);

    Answer get_global_stat(Params&) { return json_of(downloads_.totals()); }
    Answer purge_results(Params&) {
        const std::vector<Guid> stopped = downloads_.list(Group::stopped);
        for (const Guid& job : stopped) {
            if (const Problem problem = downloads_.remove(job)) return refuse(*problem);
        }
        return ok();
    }
    Answer remove_result(Params& params) {
        Answer answer = steer(params, ended_phases, "has not ended", &Downloads::remove);
        return std::holds_alternative<Fault>(answer) ? answer : ok();
    }
    Answer save_session(Params&) {
        downloads_.save();
        return ok();
    }
    Answer shut_down(Params&) {
        downloads_.shut_down();
        return ok();
    }
    Answer get_version(Params&) {
        return Json{{"version", downloads_.version()},
                    {"enabledFeatures",
                     {"Async DNS", "BitTorrent", "HTTPS", "Message Digest", "Metalink", "SFTP", "XML-RPC",
                      "Vantlow"}}};
    }
    Answer get_session_info(Params&) { return Json{{"sessionId", downloads_.session()}}; }

  private:
    std::optional<Guid> find(Params& params, std::size_t at) {
        const std::string gid = params.text(at);
        if (params.fault()) return std::nullopt;
        const auto digits = guid_digits(gid);
        const auto found = digits && !digits->empty() ? downloads_.find(*digits) : std::vector<Guid>();
        if (found.size() == 1) return found.front();
        params.refuse(found.empty() ? "There is no download " + gid + "."
                                    : "More than one download begins with " + gid + ".");
        return std::nullopt;
    }
    static void take_options(Params& params, std::size_t at, JobOptions& options) {
        if (const auto fault = read_options(params.options(at), options)) params.refuse(fault->message);
    }
    // The options, and the place in the queue behind them.
    static void read_new(Params& params, std::size_t at, NewJob& job) {
        take_options(params, at, job.options);
        job.position = params.optional_number(at + 1);
        if (job.position && *job.position < 0) params.refuse("The position is below 0.");
    }
    // Bytes: a text in base64, or what XML-RPC has for them.
    static std::string bytes(Params& params, std::size_t at) {
        if (const Json* const found = params.find(at); found != nullptr && found->is_binary()) {
            const auto& binary = found->get_binary();
            return {binary.begin(), binary.end()};
        }
        const std::string text = params.text(at);
        if (params.fault()) return {};
        const auto decoded = from_base64(text);
        if (!decoded || decoded->empty()) {
            params.refuse("The document is not in base64.");
            return {};
        }
        return {reinterpret_cast<const char*>(decoded->data()), decoded->size()};
    }
    Answer add(const Params& params, const NewJob& job) {
        if (params.fault()) return *params.fault();
        const Downloads::Added added = downloads_.add(job);
        if (added.jobs.empty()) return refuse(added.problem);
        return gid_of(added.jobs.front());
    }
    Answer steer(Params& params, std::span<const Phase> phases, std::string_view refusal,
                 Problem (Downloads::*operation)(const Guid&)) {
        const auto job = find(params, 0);
        if (params.fault()) return *params.fault();
        const std::string gid = gid_of(*job);
        if (!is_one_of(downloads_.phase(*job), phases))
            return refuse("The download " + gid + " " + std::string(refusal) + ".");
        return answer_of((downloads_.*operation)(*job), gid);
    }
    // Between two items a job may go.
    Listing tell_all(std::vector<Guid> jobs, std::vector<std::string> keys) {
        const unsigned parts = parts_for(keys);
        return {[this, jobs = std::move(jobs), keys = std::move(keys), parts,
                 next = std::size_t{0}]() mutable -> std::optional<Json> {
            while (next < jobs.size() && !downloads_.has(jobs[next])) ++next;
            if (next == jobs.size()) return std::nullopt;
            return json_of(downloads_.status(jobs[next++], parts), keys);
        }};
    }
    Listed tell_range(Params& params, Group group);
    Answer with_files(Params& params, Json (*write)(const std::vector<FileStatus>&)) {
        const auto job = find(params, 0);
        if (params.fault()) return *params.fault();
        return write(downloads_.status(*job, part::files).files);
    }

    Downloads& downloads_;
};

// A negative offset counts from the end, and the answer runs backwards from there.
Listed DownloadMethods::tell_range(Params& params, Group group) {
    const std::int64_t offset = params.number(0);
    const std::int64_t wanted = params.number(1);
    auto keys = params.optional_texts(2);
    if (!params.fault() && wanted < 0) params.refuse("The number of downloads is below 0.");
    if (params.fault()) return *params.fault();
    const std::vector<Guid>& jobs = downloads_.list(group);
    const std::int64_t size = std::ssize(jobs);
    std::vector<Guid> range;
    if (offset >= 0) {
        const std::int64_t begin = std::min(offset, size);
        const std::int64_t count = std::min(wanted, size - begin);
        range.assign(jobs.begin() + begin, jobs.begin() + begin + count);
    } else if (offset >= -size) {
        const std::int64_t last = size + offset;
        const std::int64_t count = std::min(wanted, last + 1);
        range.assign(jobs.begin() + (last + 1 - count), jobs.begin() + last + 1);
        std::ranges::reverse(range);
    }
    return tell_all(std::move(range), std::move(keys));
}

Answer DownloadMethods::change_position(Params& params) {
    const auto job = find(params, 0);
    const std::int64_t position = params.number(1);
    const std::string how = params.text(2);
    if (params.fault()) return *params.fault();
    const std::vector<Guid>& waiting = downloads_.list(Group::waiting);
    const auto at = std::ranges::find(waiting, *job);
    if (at == waiting.end()) return refuse("The download " + gid_of(*job) + " does not wait.");
    const std::int64_t last = std::ssize(waiting) - 1;
    const std::int64_t now = at - waiting.begin();
    // Clamped before it is added to, so that no sum is too large.
    const std::int64_t bounded = std::clamp(position, -last - 1, last + 1);
    std::int64_t place = bounded;
    if (how == "POS_CUR") place = now + bounded;
    if (how == "POS_END") place = last + bounded;
    if (how != "POS_SET" && how != "POS_CUR" && how != "POS_END")
        return refuse("The position is counted by POS_SET, POS_CUR or POS_END.");
    place = std::clamp<std::int64_t>(place, 0, last);
    if (const Problem problem = downloads_.move(*job, static_cast<std::size_t>(place)))
        return refuse(*problem);
    const std::vector<Guid>& moved = downloads_.list(Group::waiting);
    return std::ranges::find(moved, *job) - moved.begin();
}

Answer DownloadMethods::change_uri(Params& params) {
    const auto job = find(params, 0);
    const std::int64_t file = params.number(1);
    const auto gone = params.texts(2);
    const auto added = params.texts(3);
    const auto position = params.optional_number(4);
    if (!params.fault() && file != 1) params.refuse("The file has no addresses of its own.");
    if (!params.fault() && position && *position < 0) params.refuse("The position is below 0.");
    if (params.fault()) return *params.fault();
    std::vector<std::string> addresses;
    for (const FileStatus& one : downloads_.status(*job, part::files).files) {
        for (const Source& source : one.sources) addresses.push_back(source.address);
        break;
    }
    std::int64_t removed = 0;
    for (const std::string& address : gone) {
        const auto at = std::ranges::find(addresses, address);
        if (at == addresses.end()) continue;
        addresses.erase(at);
        ++removed;
    }
    const std::int64_t size = std::ssize(addresses);
    addresses.insert(addresses.begin() + std::min(position.value_or(size), size), added.begin(), added.end());
    if (addresses.empty()) return refuse("A download needs an address.");
    return answer_of(downloads_.change_sources(*job, addresses), Json::array({removed, std::ssize(added)}));
}

struct Named {
    std::string_view name;
    Answer (DownloadMethods::*method)(Params&);
};

constexpr std::array methods{
    Named{"addUri", &DownloadMethods::add_uri},
    Named{"addTorrent", &DownloadMethods::add_torrent},
    Named{"addMetalink", &DownloadMethods::add_metalink},
    Named{"remove", &DownloadMethods::remove},
    Named{"forceRemove", &DownloadMethods::remove},
    Named{"pause", &DownloadMethods::pause},
    Named{"forcePause", &DownloadMethods::pause},
    Named{"pauseAll", &DownloadMethods::pause_all},
    Named{"forcePauseAll", &DownloadMethods::pause_all},
    Named{"unpause", &DownloadMethods::unpause},
    Named{"unpauseAll", &DownloadMethods::unpause_all},
    Named{"tellStatus", &DownloadMethods::tell_status},
    Named{"getUris", &DownloadMethods::get_uris},
    Named{"getFiles", &DownloadMethods::get_files},
    Named{"getPeers", &DownloadMethods::get_peers},
    Named{"getServers", &DownloadMethods::get_servers},
    Named{"getOption", &DownloadMethods::get_option},
    Named{"changeOption", &DownloadMethods::change_option},
    Named{"getGlobalOption", &DownloadMethods::get_global_option},
    Named{"changeGlobalOption", &DownloadMethods::change_global_option},
    Named{"changePosition", &DownloadMethods::change_position},
    Named{"changeUri", &DownloadMethods::change_uri},
    Named{"getGlobalStat", &DownloadMethods::get_global_stat},
    Named{"purgeDownloadResult", &DownloadMethods::purge_results},
    Named{"removeDownloadResult", &DownloadMethods::remove_result},
    Named{"saveSession", &DownloadMethods::save_session},
    Named{"shutdown", &DownloadMethods::shut_down},
    Named{"forceShutdown", &DownloadMethods::shut_down},
    Named{"getVersion", &DownloadMethods::get_version},
    Named{"getSessionInfo", &DownloadMethods::get_session_info},
};

}  // namespace

void add_download_methods(MethodTable& table, Downloads& downloads) {
    const auto all = std::make_shared<DownloadMethods>(downloads);
    table.add_list("aria2.tellActive", [all](Params& params) { return all->tell_active(params); });
    table.add_list("aria2.tellWaiting", [all](Params& params) { return all->tell_waiting(params); });
    table.add_list("aria2.tellStopped", [all](Params& params) { return all->tell_stopped(params); });
    for (const Named& one : methods) {
        table.add("aria2." + std::string(one.name),
                  [all, method = one.method](Params& params) { return ((*all).*method)(params); });
    }
    for (const char* name : {"Start", "Pause", "Stop", "Complete", "Error"})
        table.add_notification("aria2.onDownload" + std::string(name));
    table.add_notification("aria2.onBtDownloadComplete");
}

}  // namespace vantlow::rpc
