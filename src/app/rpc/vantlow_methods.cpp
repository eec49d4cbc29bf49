#include "app/rpc/vantlow_methods.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "app/cli/engine_texts.h"
#include "app/process/job_view.h"
#include "app/process/known_settings.h"
#include "app/rpc/magnet_links.h"
#include "app/rpc/method_parts.h"
#include "app/rpc/schedule_methods.h"
#include "app/terminal/quantities.h"
#include "base/text.h"
#include "bt/torrent_settings.h"
#include "rpc/downloads.h"
#include "store/address.h"

namespace vantlow {
namespace {

using rpc::Answer;
using rpc::Fault;
using rpc::Json;
using rpc::Params;

constexpr std::int64_t most_listed = 100000;

Json null_below_zero(std::int64_t number) {
    return number < 0 ? Json() : Json(number);
}

Json moment(std::int64_t seconds) {
    return seconds > 0 ? Json(iso_time(seconds)) : Json();
}

Json category_id(const Guid& category) {
    return guid_text(category);
}

/// The setting's name, divided at the "/".
struct SettingName {
    std::u16string section;
    std::u16string key;
};
SettingName divided(const std::string& name) {
    const auto slash = std::min(name.find('/'), name.size());
    return {to_utf16(name.substr(0, slash)), to_utf16(name.substr(std::min(slash + 1, name.size())))};
}

class Methods {
  public:
    explicit Methods(VantlowMethods parts) : parts_(std::move(parts)) {}

    rpc::Listing list(Params& params);
    Answer job(Params& params);
    Answer log(Params& params);
    Answer start(Params& params) { return for_each(params, &Engine::start); }
    Answer stop(Params& params) { return for_each(params, &Engine::stop); }
    Answer start_over(Params& params) { return for_each(params, &Engine::start_over); }
    Answer check(Params& params) { return for_each(params, &Engine::check); }
    Answer remove(Params& params);
    Answer undo_removal(Params&) { return answer_of(engine().undo_removal(), {}); }
    Answer move_jobs(Params& params);
    Answer move_files(Params& params);

    Answer categories(Params&);
    Answer add_category(Params& params);
    Answer remove_category(Params& params) {
        const auto category = find_category(engine(), params, 0);
        if (params.fault()) return *params.fault();
        return answer_of(engine().remove_category(*category), params.text(0));
    }
    Answer rename_category(Params& params) {
        const auto category = find_category(engine(), params, 0);
        const std::string name = params.text(1);
        if (params.fault()) return *params.fault();
        return answer_of(engine().rename_category(*category, to_utf16(name)), name);
    }
    Answer set_category_folder(Params& params) {
        const auto category = find_category(engine(), params, 0);
        const std::string folder = params.text(1);
        if (params.fault()) return *params.fault();
        return answer_of(engine().set_category_folder(*category, to_utf16(folder)), folder);
    }
    Answer set_category_rule(Params& params) {
        const auto category = find_category(engine(), params, 0);
        const std::string rule = params.text(1);
        if (params.fault()) return *params.fault();
        return answer_of(engine().set_category_rule(*category, rule), rule);
    }
    Answer move_category(Params& params) {
        const auto category = find_category(engine(), params, 0);
        const auto parent = find_category(engine(), params, 1);
        if (params.fault()) return *params.fault();
        return answer_of(engine().move_category(*category, *parent), params.text(0));
    }

    Answer settings(Params&);
    Answer set_setting(Params& params);
    Answer unset_setting(Params& params);
    Answer questions(Params&);
    Answer answer(Params& params);
    Answer limits(Params&);
    Answer set_limits(Params& params);
    Answer choose_files(Params& params);
    Answer statistics(Params&);

    [[nodiscard]] Engine& engine() const noexcept { return parts_.engine; }

  private:
    Answer for_each(Params& params, Done (Engine::*operation)(const Guid&)) {
        const std::vector<Guid> jobs = find_jobs(engine(), params, 0);
        if (params.fault()) return *params.fault();
        return for_all(jobs, [&](const Guid& job) { return (engine().*operation)(job); });
    }
    [[nodiscard]] Json json_of(const CJobNode& job) const;
    Answer follow(const SettingName& name, const std::string& text);

    const VantlowMethods parts_;
};

Json Methods::json_of(const CJobNode& job) const {
    const LiveJob* const live = parts_.live.find(job);
    const bool waits_for_place = live != nullptr && live->awaits_place;
    const std::u16string& path = live != nullptr && !live->path.empty() ? live->path : job.path;
    const std::u16string name = name_of(path).empty() ? job.file_name : name_of(path);
    Json json{{"gid", rpc::gid_of(job.identity)},
              {"id", guid_text(job.identity)},
              {"name", to_utf8(name)},
              {"folder", to_utf8(folder_of(path))},
              {"address", JobView::address_of(job)},
              {"category", category_id(engine().category_of(job).identity)},
              {"state", job_state_name(waits_for_place ? JobState::waiting : job.state)},
              {"size", null_below_zero(live != nullptr ? live->size : JobView::size_of(job))},
              {"done", live != nullptr ? live->done : JobView::done_of(job)},
              {"speed", live != nullptr ? std::llround(live->speed) : 0},
              {"connections", live != nullptr ? live->connections : 0},
              {"secondsLeft", null_below_zero(live != nullptr ? live->seconds_left() : -1)},
              {"limit", job.rules ? job.rules->speed_limit : 0},
              {"comment", to_utf8(job.comment)},
              {"error", JobView::error_of(job)},
              {"created", moment(job.created)},
              {"finished", moment(job.finished)}};
    if (kind_of(job) == JobKind::torrent) json["descriptionGid"] = rpc::gid_of(description_of(job.identity));
    if (live != nullptr && !live->waits.empty()) json["waits"] = live->waits;
    return json;
}

// Without "since", or where too much has changed, it is the whole list, or the part that is asked for.
rpc::Listing Methods::list(Params& params) {
    const Json& asked = params.options(0);
    const auto number = [&asked](const char* word, std::int64_t otherwise) {
        const auto at = asked.find(word);
        return at != asked.end() && at->is_number_integer()
                   ? std::max<std::int64_t>(at->get<std::int64_t>(), 0)
                   : otherwise;
    };
    const bool same_run = asked.value("session", Json()) == parts_.session;
    const std::int64_t since = same_run ? number("since", -1) : -1;
    Changes changes;
    changes.revision = engine().revision();
    changes.everything = true;
    if (since >= 0) changes = engine().changes_since(static_cast<std::uint64_t>(since));
    std::vector<Guid> jobs;
    if (changes.everything) {
        const std::vector<const CJobNode*> all = engine().jobs_below(nullptr);
        const std::int64_t begin = std::min<std::int64_t>(number("offset", 0), std::ssize(all));
        const std::int64_t count =
            std::min({number("limit", most_listed), most_listed, std::ssize(all) - begin});
        for (std::int64_t i = begin; i < begin + count; ++i)
            jobs.push_back(all[static_cast<std::size_t>(i)]->identity);
    } else {
        for (const JobChange& change : changes.jobs) jobs.push_back(change.job);
    }
    // The revision is that of the beginning: what changes while the list is made is told the next time.
    const auto removed = std::make_shared<Json>(Json::array());
    auto next = [this, jobs = std::move(jobs), at = std::size_t{0}, removed,
                 everything = changes.everything]() mutable -> std::optional<Json> {
        for (; at < jobs.size(); ++at) {
            if (const CJobNode* const job = engine().find(jobs[at])) return ++at, json_of(*job);
            if (!everything) removed->push_back(rpc::gid_of(jobs[at]));
        }
        return std::nullopt;
    };
    auto whole = [session = parts_.session, changes = std::move(changes), removed](Json listed) {
        return Json{{"session", session},
                    {"revision", changes.revision},
                    {"everything", changes.everything},
                    {"categories", changes.everything || changes.categories},
                    {"settings", changes.everything || changes.settings},
                    {"questions", changes.everything || changes.questions},
                    {"jobs", std::move(listed)},
                    {"removed", std::move(*removed)}};
    };
    return {std::move(next), std::move(whole)};
}

Answer Methods::job(Params& params) {
    const CJobNode* const found = find_job(engine(), params, params.text(0));
    if (params.fault()) return *params.fault();
    Json json = json_of(*found);
    json["referer"] = to_utf8(without_credentials(found->referer));
    json["agent"] = to_utf8(found->agent);
    Json segments = Json::array();
    if (const auto progress = engine().progress(found->identity)) {
        for (const auto& missing : progress->missing)
            segments.push_back({{"start", missing.start}, {"end", missing.end}, {"active", missing.active}});
    } else {
        for (const auto& segment : found->segments)
            segments.push_back({{"start", segment->start}, {"end", segment->end}, {"active", false}});
    }
    json["segments"] = std::move(segments);
    Json connections = Json::array();
    for (const SessionConnection& one : engine().connections(found->identity)) {
        connections.push_back({{"peer", one.peer},
                               {"start", one.start},
                               {"end", one.end == unknown_end ? Json() : Json(one.end)},
                               {"works", one.works},
                               {"trouble", one.trouble}});
    }
    json["peers"] = std::move(connections);
    return json;
}

Answer Methods::log(Params& params) {
    constexpr std::array directions{"note", "sent", "error", "received"};
    const CJobNode* const found = find_job(engine(), params, params.text(0));
    if (params.fault()) return *params.fault();
    Json lines = Json::array();
    for (const CLogNode& line : engine().log_of(found->identity)) {
        lines.push_back({{"time", iso_time_with_milliseconds(line.time)},
                         {"direction", directions.at(static_cast<std::size_t>(line.direction))},
                         {"text", line.text}});
    }
    return lines;
}

Answer Methods::remove(Params& params) {
    const std::vector<Guid> jobs = find_jobs(engine(), params, 0);
    const std::string word = params.find(1) == nullptr ? "keep" : params.text(1);
    if (word != "keep" && word != "erase" && word != "bin")
        params.refuse("Files are kept: keep, erase or bin.");
    if (params.fault()) return *params.fault();
    const Files files = word == "erase" ? Files::erase : word == "bin" ? Files::bin : Files::keep;
    const Removed removed = engine().remove_all(jobs, files);
    if (!removed.failures.empty())
        return answer_of(removed.failures.front().second, rpc::gid_of(removed.failures.front().first));
    return Json("OK");
}

Answer Methods::move_jobs(Params& params) {
    const std::vector<Guid> jobs = find_jobs(engine(), params, 0);
    const auto category = find_category(engine(), params, 1);
    if (params.fault()) return *params.fault();
    return for_all(jobs, [&](const Guid& job) { return engine().move(job, *category); });
}

// The path is this machine's own: where it cannot be one, or something has the name there, it is refused.
Answer Methods::move_files(Params& params) {
    const std::vector<Guid> jobs = find_jobs(engine(), params, 0);
    const std::u16string folder = to_utf16(params.text(1));
    if (params.fault()) return *params.fault();
    return for_all(jobs, [&](const Guid& job) { return engine().move_files(job, folder); });
}

Answer Methods::categories(Params&) {
    Json all = Json::array();
    for (const CClassNode* category : engine().categories()) {
        all.push_back(
            {{"id", category_id(category->identity)},
             {"name", to_utf8(category->name)},
             {"parent", category->parent == nullptr ? Json() : category_id(category->parent->identity)},
             {"folder", to_utf8(category->folder)},
             {"rule", text_of(engine().rule_of(category->identity))},
             {"jobs", category->jobs.size()}});
    }
    return all;
}

Answer Methods::add_category(Params& params) {
    const std::string name = params.text(0);
    const std::string folder = params.find(1) == nullptr ? std::string() : params.text(1);
    const auto parent =
        params.find(2) == nullptr ? std::optional(Guid()) : find_category(engine(), params, 2);
    if (params.fault()) return *params.fault();
    const Engine::NewCategory made = engine().add_category(to_utf16(name), to_utf16(folder), *parent);
    if (!made.done.ok()) return answer_of(made.done, name);
    return category_id(made.category);
}

Answer Methods::settings(Params&) {
    constexpr std::u16string_view nothing(u"\0", 1);  // no store holds a zero
    Json all = Json::array();
    for (const KnownSetting& known : known_settings()) {
        if (known.meaning.empty()) continue;
        const auto bound = [](const auto& number) { return number ? Json(*number) : Json(); };
        const SettingName name = divided(known.name());
        const std::u16string stored = parts_.settings.text(name.section, name.key, nothing);
        const bool is_set = stored != nothing;
        all.push_back({{"name", known.name()},
                       {"value", is_set ? shown_value(name.section, name.key, stored) : known.standard},
                       {"isSet", is_set},
                       {"default", known.standard},
                       {"isNumber", known.is_number},
                       {"smallest", bound(known.smallest)},
                       {"largest", bound(known.largest)},
                       {"meaning", known.meaning}});
    }
    return all;
}

Answer Methods::follow(const SettingName& name, const std::string& text) {
    const FileError error = parts_.follow(name.section, name.key);
    if (error.ok()) return Json("OK");
    return Fault{rpc::fault_code::failed, text + ": " + error.text()};
}

Answer Methods::set_setting(Params& params) {
    const std::string name = params.text(0);
    const std::string value = params.text(1);
    if (!params.fault()) {
        if (const auto complaint = complaint_of(name, value)) params.refuse(*complaint);
    }
    if (params.fault()) return *params.fault();
    const SettingName place = divided(name);
    const Done done = engine().set_setting(place.section, place.key, to_utf16(value));
    return done.ok() ? follow(place, name) : answer_of(done, name);
}

Answer Methods::unset_setting(Params& params) {
    const std::string name = params.text(0);
    if (!params.fault() && !find_setting(name)) params.refuse(no_such_setting(name));
    if (params.fault()) return *params.fault();
    const SettingName place = divided(name);
    const Done done = engine().unset_setting(place.section, place.key);
    return done.ok() ? follow(place, name) : answer_of(done, name);
}

Answer Methods::questions(Params&) {
    Json all = Json::array();
    for (const Question& question : engine().questions()) {
        const auto left =
            std::chrono::ceil<std::chrono::seconds>(question.until - QuestionBoard::Clock::now());
        Json files = Json::array();
        for (const Question::File& file : question.files)
            files.push_back({{"name", to_utf8(file.name)}, {"size", null_below_zero(file.size)}});
        all.push_back({{"id", question.id},
                       {"kind", kind_name(question.kind)},
                       {"job", question.job.is_zero() ? Json() : Json(rpc::gid_of(question.job))},
                       {"text", text_of(question)},
                       {"server", question.server},
                       {"fingerprint", question.fingerprint},
                       {"path", to_utf8(question.path)},
                       {"files", std::move(files)},
                       {"seconds", std::max<std::int64_t>(left.count(), 0)}});
    }
    return all;
}

Answer Methods::answer(Params& params) {
    const std::int64_t id = params.number(0);
    const std::string text = params.text(1);
    if (params.fault()) return *params.fault();
    for (const Question& question : engine().questions()) {
        if (question.id != static_cast<std::uint64_t>(id)) continue;
        const auto read = read_answer(question, text);
        if (!read) return Fault{rpc::fault_code::failed, "This is no answer to: " + text_of(question)};
        return answer_of(engine().answer(question.id, *read), std::to_string(id));
    }
    return Fault{rpc::fault_code::failed, "There is no question " + std::to_string(id) + "."};
}

Answer Methods::limits(Params&) {
    const bool is_limited = parts_.settings.flag(setting::limit);
    const std::int64_t up = parts_.settings.number(setting::upload_limit);
    return Json{{"down", is_limited ? Json(parts_.settings.number(setting::speed_limit)) : Json()},
                {"up", up > 0 ? Json(up) : Json()}};
}

Answer Methods::set_limits(Params& params) {
    const Json& asked = params.options(0);
    for (const auto& [word, set] :
         {std::pair("down", &Engine::set_limit), std::pair("up", &Engine::set_upload_limit)}) {
        const auto limit = asked.find(word);
        if (limit == asked.end()) continue;
        if (!limit->is_null() && !limit->is_number_integer())
            return Fault{rpc::fault_code::failed, "A limit is bytes a second, or null."};
        const auto rate = limit->is_null() ? std::nullopt : std::optional(limit->get<std::int64_t>());
        if (const Done done = (engine().*set)(rate); !done.ok()) return answer_of(done, "The limit");
    }
    return Json("OK");
}

// Parameters: a job, an object of the priorities of files by their numbers, and one of "sequential" and
// "endsFirst".
Answer Methods::choose_files(Params& params) {
    const CJobNode* const job = find_job(engine(), params, params.text(0));
    if (params.fault()) return *params.fault();
    const std::string id = params.text(0);
    const Guid identity = job->identity;
    std::map<std::size_t, FilePriority> wanted;
    for (const auto& [number, word] : params.options(1).items()) {
        const auto file = parse_decimal(number);
        const auto priority =
            word.is_string() ? file_priority_of(word.get_ref<const std::string&>()) : std::nullopt;
        if (!file || !priority)
            return Fault{rpc::fault_code::failed,
                         "Files are wanted by their numbers: skip, low, normal or high."};
        wanted[static_cast<std::size_t>(*file)] = *priority;
    }
    JobEdit edit;
    const Json& order = params.options(2);
    const auto flag = [&order](const char* word) {
        const auto at = order.find(word);
        return at != order.end() && at->is_boolean() ? std::optional(at->get<bool>()) : std::nullopt;
    };
    edit.sequential = flag("sequential");
    edit.ends_first = flag("endsFirst");
    if (!wanted.empty()) {
        if (const Done done = engine().choose_files(identity, wanted); !done.ok()) return answer_of(done, id);
    }
    return answer_of(engine().change(identity, edit), id);
}

Answer Methods::statistics(Params&) {
    std::array<std::size_t, 5> counts{};
    for (const CJobNode* job : engine().jobs_below(nullptr))
        ++counts.at(static_cast<std::size_t>(job->state));
    Json states = Json::object();
    for (std::size_t i = 0; i < counts.size(); ++i)
        states[std::string(job_state_name(static_cast<JobState>(i)))] = counts.at(i);
    return Json{{"downSpeed", std::llround(parts_.live.down())},
                {"upSpeed", std::llround(parts_.live.up())},
                {"received", parts_.live.received()},
                {"jobs", std::move(states)}};
}

struct Named {
    std::string_view name;
    Answer (Methods::*method)(Params&);
};

constexpr std::array methods{
    Named{"job", &Methods::job},
    Named{"log", &Methods::log},
    Named{"start", &Methods::start},
    Named{"stop", &Methods::stop},
    Named{"startOver", &Methods::start_over},
    Named{"check", &Methods::check},
    Named{"remove", &Methods::remove},
    Named{"undoRemoval", &Methods::undo_removal},
    Named{"moveJobs", &Methods::move_jobs},
    Named{"moveFiles", &Methods::move_files},
    Named{"categories", &Methods::categories},
    Named{"addCategory", &Methods::add_category},
    Named{"removeCategory", &Methods::remove_category},
    Named{"renameCategory", &Methods::rename_category},
    Named{"moveCategory", &Methods::move_category},
    Named{"setCategoryFolder", &Methods::set_category_folder},
    Named{"setCategoryRule", &Methods::set_category_rule},
    Named{"settings", &Methods::settings},
    Named{"setSetting", &Methods::set_setting},
    Named{"unsetSetting", &Methods::unset_setting},
    Named{"questions", &Methods::questions},
    Named{"answer", &Methods::answer},
    Named{"limits", &Methods::limits},
    Named{"setLimits", &Methods::set_limits},
    Named{"chooseFiles", &Methods::choose_files},
    Named{"statistics", &Methods::statistics},
};

}  // namespace

void add_vantlow_methods(rpc::MethodTable& table, VantlowMethods parts) {
    const auto all = std::make_shared<Methods>(std::move(parts));
    for (const Named& one : methods) {
        table.add("vantlow." + std::string(one.name),
                  [all, method = one.method](Params& params) { return ((*all).*method)(params); });
    }
    table.add_list("vantlow.list", [all](Params& params) { return all->list(params); });
    add_schedule_methods(table, all->engine());
    table.add_notification("vantlow.onQuestion");
}

}  // namespace vantlow
