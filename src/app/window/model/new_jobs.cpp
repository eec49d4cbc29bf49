#include "app/window/model/new_jobs.h"

#include <algorithm>
#include <memory>
#include <unordered_map>

#include "app/terminal/display_text.h"
#include "app/terminal/quantities.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/model/troubles.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "bt/torrent_content.h"
#include "engine/documents.h"
#include "engine/kinds.h"
#include "platform/file.h"
#include "storage/file_list.h"
#include "store/address.h"
#include "store/proxies.h"

namespace vantlow {
namespace {

std::vector<std::string> lines_of(std::string_view text) {
    std::vector<std::string> lines;
    for (std::string_view line : split(text, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        line = trim(line);
        if (!line.empty()) lines.emplace_back(line);
    }
    return lines;
}

bool is_document_here(const std::string& line) {
    const std::u16string path = to_utf16(line);
    return absolute_path(path) == path && path_kind(path) == PathKind::file;
}

std::vector<TorrentEntry> files_in(std::string_view info) {
    std::vector<TorrentEntry> files;
    const auto content = read_torrent_content(info);
    if (!content) return files;  // its job says what is wrong
    const auto list = FileList::make(content->files);
    for (std::size_t i = 0; list && i < list->count(); ++i) {
        const ListedFile& file = list->at(i);
        if (!file.padding) files.push_back({file.path, file.length});
    }
    return files;
}

std::string info_at(const std::u16string& path) {
    std::vector<std::byte> bytes;
    return read_file(path, largest_document, bytes).ok() ? info_of_document(bytes) : std::string();
}

std::uint64_t count_of(const NewJobForm& form) {
    std::uint64_t count = 0;
    for (const std::string& line : lines_of(form.addresses)) {
        const std::uint64_t more = form.expand ? expand_patterns(line, 0).count : 1;
        count = std::min(count, most_pattern_links + 1) + std::min(more, most_pattern_links + 1);
    }
    return count;
}

std::string without_login(const std::string& link) {
    return printable(to_utf8(without_credentials(to_utf16(link))));
}

}  // namespace

std::string sentence_of(const FormFault& fault) {
    using Wrong = FormFault::Kind;
    switch (fault.kind) {
        case Wrong::empty:
            return tr("An address is missing.");
        case Wrong::not_fetchable:
            return fill(tr("%1 cannot be fetched."), {fault.subject});
        case Wrong::too_many:
            return tr("These are too many addresses.");
        case Wrong::not_absolute:
            return tr("The folder must be a full path.");
        case Wrong::no_file_name:
            return tr("This name cannot be given.");
        case Wrong::for_one_file:
            return tr("A name or a hash is for one address only.");
        case Wrong::out_of_bounds:
            return fill(tr("The number must be from %1."), {fault.subject});
        case Wrong::not_read:
            return fill(tr("\"%1\" cannot be understood."), {fault.subject});
        case Wrong::none_chosen:
            return tr("Choose at least one of the files.");
        case Wrong::no_times:
            return tr("Times are like 22:00 or 2026-11-27 22:00, the end behind the start.");
    }
    return {};
}

std::string sentence_of(const ServerSays& says) {
    // The download asks about it: the dialog has nothing to be answered.
    if (says.result.message().starts_with("The server's key is not known"))
        return tr("This SSH server is not known yet. Its key is asked about when the download begins.");
    if (!says.result.ok())
        return fill(tr("The server does not say what it would send: %1"),
                    {trouble_text(says.result.message())});
    const std::string name = shown(says.name);
    if (says.size < 0) return fill(tr("The server has %1, of unknown size."), {name});
    const std::string size = size_text(says.size);
    return says.takes_ranges ? fill(tr("The server has %1, %2; the download can be resumed."), {name, size})
                             : fill(tr("The server has %1, %2."), {name, size});
}

NewJobForm NewJobs::form_of(std::string_view text, const Guid& category) const {
    NewJobForm form;
    for (const std::string& link : links_in_text(text)) form.addresses += link + "\n";
    form.category = category;
    form.category_is_chosen = !category.is_zero();
    form.category = category_of(form);
    form.connections = JobRequest().connections;
    // A server's file has brackets in its name more often than a person pastes a pattern.
    form.expand = false;
    return form;
}

Guid NewJobs::category_of(const NewJobForm& form) const {
    if (form.category_is_chosen && engine_.find_category(form.category) != nullptr) return form.category;
    const std::vector<std::string> links = preview(form, 1);
    const std::u16string& name = form.name.empty() ? form.said_name : form.name;
    const auto by_rules =
        links.empty() ? std::nullopt : engine_.category_by_rules(to_utf16(links.front()), name);
    return by_rules.value_or(engine_.first_category()->identity);
}

std::u16string NewJobs::folder_of(const NewJobForm& form) const {
    if (!form.folder.empty()) return form.folder;
    const CClassNode* const node = engine_.find_category(form.category);
    return node != nullptr ? node->folder : std::u16string();
}

std::vector<std::string> NewJobs::preview(const NewJobForm& form, std::size_t at_most) const {
    std::vector<std::string> all;
    for (const std::string& line : lines_of(form.addresses)) {
        if (all.size() >= at_most) break;
        if (!form.expand) {
            all.push_back(line);
            continue;
        }
        for (std::string& link : expand_patterns(line, at_most - all.size()).links)
            all.push_back(std::move(link));
    }
    return all;
}

std::vector<FormFault> NewJobs::check(const NewJobForm& form) const {
    using Field = FormFault::Field;
    using Wrong = FormFault::Kind;
    std::vector<FormFault> faults;
    const auto wrong = [&faults](Field field, Wrong kind, std::string subject = {}) {
        faults.push_back({field, kind, std::move(subject)});
    };
    const std::uint64_t count = count_of(form);
    if (count == 0) wrong(Field::addresses, Wrong::empty);
    if (count > most_pattern_links) wrong(Field::addresses, Wrong::too_many);
    for (const std::string& link : preview(form, most_pattern_links)) {
        if (is_fetchable(to_utf16(link)) || is_document_here(link)) continue;
        wrong(Field::addresses, Wrong::not_fetchable, without_login(link));
        break;  // one is enough to be mended first
    }
    if (!form.folder.empty() && absolute_path(form.folder) != form.folder)
        wrong(Field::folder, Wrong::not_absolute);
    if (form.category_is_chosen && engine_.find_category(form.category) == nullptr)
        wrong(Field::category, Wrong::not_read);
    if (!form.name.empty() && safe_file_name(form.name) != form.name) wrong(Field::name, Wrong::no_file_name);
    if (count > 1 && !form.name.empty()) wrong(Field::name, Wrong::for_one_file);
    if (count > 1 && !form.hash.empty()) wrong(Field::hash, Wrong::for_one_file);
    if (!form.hash.empty() && !parse_hash(form.hash))
        wrong(Field::hash, Wrong::not_read, printable(form.hash));
    if (form.connections < 1 || form.connections > most_connections)
        wrong(Field::connections, Wrong::out_of_bounds, "1 - " + std::to_string(most_connections));
    if (!form.limit.empty() && parse_rate(form.limit).value_or(0) <= 0)
        wrong(Field::limit, Wrong::not_read, printable(form.limit));
    if (!form.proxy.empty() && !parse_proxy(form.proxy))
        wrong(Field::proxy, Wrong::not_read, shown(without_credentials(form.proxy)));
    if (!form.chosen.empty() && std::ranges::find(form.chosen, true) == form.chosen.end())
        wrong(Field::files, Wrong::none_chosen);
    if (!read_times(form.times, engine_.clock().now(), engine_.clock())) wrong(Field::times, Wrong::no_times);
    return faults;
}

JobDraft NewJobs::draft_of(const NewJobForm& form) const {
    JobDraft draft;
    draft.links = preview(form, most_pattern_links);
    if (form.category_is_chosen || !form.said_name.empty()) draft.category = category_of(form);
    draft.folder = form.folder;
    draft.name = form.name;
    draft.connections = form.connections;
    draft.user = form.user;
    draft.password = form.password;
    draft.referer = form.referer;
    draft.agent = form.agent;
    draft.cookie = form.cookie;
    draft.proxy = form.proxy;
    draft.comment = form.comment;
    draft.paused = form.start == NewJobForm::Start::by_hand;
    draft.schedule.times =
        read_times(form.times, engine_.clock().now(), engine_.clock()).value_or(JobTimes());
    draft.schedule.by_plan = form.start == NewJobForm::Start::by_plan && draft.schedule.times.empty();
    draft.asks_which = true;
    draft.select = selection_of(form.chosen);
    if (!form.hash.empty()) draft.hash = parse_hash(form.hash);
    JobRules rules;
    rules.speed_limit = form.limit.empty() ? 0 : parse_rate(form.limit).value_or(0);
    rules.asks_which = true;
    draft.rules = std::make_shared<const JobRules>(std::move(rules));
    return draft;
}

std::string NewJobs::question_of(const NewJobForm& form) const {
    const std::vector<std::string> links = preview(form, 2);
    if (links.size() != 1) return {};
    const std::u16string address = to_utf16(links[0]);
    if (scheme_of_server(address).empty() || !is_fetchable(address)) return {};
    std::string all = links[0];
    for (const std::u16string* part :
         {&form.user, &form.password, &form.referer, &form.agent, &form.cookie, &form.proxy})
        all += '\n' + to_utf8(*part);
    return all;
}

std::unique_ptr<Inquiry> NewJobs::inquire(const NewJobForm& form, std::function<void()> wake) const {
    if (question_of(form).empty() || !check(form).empty()) return nullptr;
    return engine_.inquire(draft_of(form), std::move(wake));
}

std::vector<KnownAddress> NewJobs::known(const NewJobForm& form) const {
    std::unordered_map<std::u16string, std::string> wanted;
    for (std::string& link : preview(form, most_pattern_links)) {
        const std::u16string address = to_utf16(link);
        wanted.emplace(address.substr(0, address.find(u'#')), std::move(link));
    }
    std::vector<KnownAddress> found;
    if (wanted.empty()) return found;
    for (const CJobNode* job : engine_.jobs_below(nullptr)) {
        const auto at = wanted.find(job->address);
        if (at != wanted.end()) found.push_back({at->second, job->identity, job->state});
    }
    return found;
}

std::string NewJobs::note_on_files(const NewJobForm& form) {
    const std::vector<std::string> links = preview(form, 2);
    const bool is_magnet = links.size() == 1 && links[0].starts_with("magnet:");
    if (!is_magnet || !files(form).empty()) return {};
    return tr("Its files can be chosen once peers have described the torrent.");
}

const std::vector<TorrentEntry>& NewJobs::files(const NewJobForm& form) {
    const std::vector<std::string> links = preview(form, 2);
    const std::string link = links.size() == 1 ? links[0] : std::string();
    if (link == files_of_) return files_;
    files_of_ = link;
    files_.clear();
    if (link.starts_with("magnet:")) {
        CJobNode job;
        job.address = to_utf16(link);
        decide_kind(job);
        files_ = files_in(engine_.torrent_info(job));
    } else if (link.ends_with(".torrent") && is_document_here(link)) {
        files_ = files_in(info_at(to_utf16(link)));
    }
    return files_;
}

}  // namespace vantlow
