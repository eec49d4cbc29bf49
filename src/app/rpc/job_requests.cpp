#include "app/rpc/job_requests.h"

#include <algorithm>

#include "app/process/job_view.h"
#include "base/codes.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "engine/kinds.h"
#include "engine/selection.h"
#include "platform/file.h"
#include "store/address.h"
#include "store/proxies.h"

namespace vantlow {
namespace {

constexpr std::int32_t replaces = 2;  // "FileOverwriteRule"
constexpr double without_bound = -1;  // JobRules::share_ratio

// No time at all is no sharing; a ratio of 0 is no bound.
std::optional<double> share_ratio_of(const rpc::JobOptions& options) {
    if (options.seed_time == 0) return 0;
    if (!options.seed_ratio) return std::nullopt;
    return *options.seed_ratio > 0 ? *options.seed_ratio : without_bound;
}

bool is_absolute(const std::u16string& path) {
    return absolute_path(path) == path || path.starts_with(path_separator()) || path.starts_with(u'/') ||
           (path_separator() == u'\\' && path.size() > 2 && path[1] == u':');
}

// Appends the parts of a path, each made safe, so that nothing leaves `folder`.
std::u16string below(std::u16string folder, std::u16string_view path) {
    while (!path.empty()) {
        const auto end = std::min(path.find_first_of(u"/\\"), path.size());
        const std::u16string part = safe_file_name(path.substr(0, end), u"");
        if (!part.empty()) folder = join_path(folder, part);
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return folder;
}

// Sets folder and name of the file.
void place(const rpc::JobOptions& asked, const std::u16string& folder, JobDraft& draft) {
    draft.folder = folder;
    if (asked.folder && !asked.folder->empty()) {
        const std::u16string wanted = to_utf16(*asked.folder);
        draft.folder = is_absolute(wanted) ? absolute_path(wanted) : below(folder, wanted);
    }
    const std::u16string name = to_utf16(asked.name.value_or(""));
    if (name.empty()) return;
    const auto end = name.find_last_of(u"/\\");
    if (end != std::u16string::npos) draft.folder = below(draft.folder, name.substr(0, end));
    draft.name = safe_file_name(name);
}

void set(std::u16string& member, const std::optional<std::string>& asked) {
    if (asked) member = to_utf16(*asked);
}

std::optional<std::string> text_unless_empty(const std::u16string& text) {
    return text.empty() ? std::nullopt : std::optional(to_utf8(text));
}

rpc::Problem look_at(const rpc::JobOptions& asked) {
    if (asked.proxy && !asked.proxy->empty() && !parse_proxy(to_utf16(*asked.proxy)))
        return "The option all-proxy cannot have this value.";
    if (asked.select && !asked.select->empty() && !is_selection(*asked.select))
        return "The option select-file cannot have this value.";
    return std::nullopt;
}

// An identity that begins with these digits.
Guid guid_with(const std::string& gid) {
    const std::string random = guid_digits(guid_text(new_guid())).value_or("");
    return guid_from_digits(gid + random.substr(gid.size())).value_or(new_guid());
}

std::string written(const ExpectedHash& hash) {
    constexpr std::array names{"md4", "md5", "sha-1", "sha-256", "sha-384", "sha-512"};
    return std::string(names.at(static_cast<std::size_t>(hash.kind))) + ":" + to_hex(hash.digest);
}

}  // namespace

DraftRequest draft_of(const rpc::NewJob& asked, const std::u16string& folder) {
    const rpc::JobOptions& options = asked.options;
    DraftRequest request;
    request.problem = look_at(options);
    JobDraft& draft = request.draft;
    place(options, folder, draft);
    set(draft.referer, options.referer);
    if (options.referer == "*" && !asked.addresses.empty()) set(draft.referer, asked.addresses.front());
    set(draft.agent, options.agent);
    set(draft.cookie, options.cookie);
    set(draft.proxy, options.proxy);
    set(draft.user, options.user);
    set(draft.password, options.password);
    draft.connections = static_cast<std::int32_t>(
        options.connections_for(asked.addresses.size()).value_or(draft.connections));
    if (options.hash) draft.hash = parse_hash(*options.hash);
    draft.select = options.select.value_or("");
    draft.paused = options.paused.value_or(false);
    if (options.gid) draft.identity = guid_with(*options.gid);
    JobRules rules;
    if (options.overwrites.value_or(false)) rules.overwrite = replaces;
    rules.speed_limit = options.down_limit.value_or(0);
    rules.upload_limit = options.up_limit.value_or(0);
    rules.ends_first = options.ends_first.value_or(false);
    rules.most_peers = options.most_peers.value_or(0);
    rules.share_ratio = share_ratio_of(options);
    if (options.seed_time.value_or(0) > 0) rules.share_time = options.seed_time;
    if (rules != JobRules()) draft.rules = std::make_shared<const JobRules>(std::move(rules));
    return request;
}

EditRequest edit_of(const rpc::JobOptions& asked, const CJobNode& job) {
    EditRequest request;
    request.problem = look_at(asked);
    const rpc::JobOptions now = options_of(job);
    const auto refuse = [&request](const char* word) {
        request.problem = "The option " + std::string(word) + " of this download cannot be changed any more.";
    };
    if (asked.folder && asked.folder != now.folder) {
        const std::u16string wanted = to_utf16(*asked.folder);
        if (!is_absolute(wanted)) request.problem = "The option dir of this download wants a whole path.";
        request.folder = absolute_path(wanted);
        if (request.folder == folder_of(job.path)) request.folder.reset();
    }
    if (asked.hash && asked.hash != now.hash) refuse("checksum");
    if (asked.name && asked.name != now.name) request.name = to_utf16(*asked.name);
    const auto text = [](std::optional<std::u16string>& member, const std::optional<std::string>& value) {
        if (value) member = to_utf16(*value);
    };
    JobEdit& edit = request.edit;
    text(edit.referer, asked.referer);
    text(edit.agent, asked.agent);
    text(edit.cookie, asked.cookie);
    text(edit.proxy, asked.proxy);
    text(edit.user, asked.user);
    text(edit.password, asked.password);
    const std::size_t addresses = job.sources ? std::max<std::size_t>(job.sources->mirrors.size(), 1) : 1;
    if (const auto connections = asked.connections_for(addresses))
        edit.connections = static_cast<std::int32_t>(*connections);
    edit.speed_limit = asked.down_limit;
    edit.upload_limit = asked.up_limit;
    edit.ends_first = asked.ends_first;
    edit.most_peers = asked.most_peers;
    edit.share_ratio = share_ratio_of(asked);
    if (asked.seed_time.value_or(0) > 0) edit.share_time = asked.seed_time;
    const JobKind kind = kind_of(job);
    if (kind == JobKind::torrent || kind == JobKind::document) edit.select = asked.select;
    return request;
}

rpc::JobOptions options_of(const CJobNode& job) {
    rpc::JobOptions options;
    options.folder = to_utf8(folder_of(job.path));
    const std::u16string name = name_of(job.path).empty() ? job.file_name : name_of(job.path);
    options.name = text_unless_empty(name);
    options.referer = text_unless_empty(job.referer);
    options.agent = text_unless_empty(job.agent);
    // "@" stands in front of a file on this machine.
    if (!job.cookie.starts_with(u'@')) options.cookie = text_unless_empty(job.cookie);
    options.proxy = text_unless_empty(job.proxy);
    const auto target = parse_target(job.address);
    const bool in_address = target && !target->user.empty();
    options.user = text_unless_empty(in_address ? target->user : job.user);
    options.password = text_unless_empty(in_address ? target->password : job.password);
    options.connections = options.per_server = job.thread_limit();
    options.down_limit = job.rules ? job.rules->speed_limit : 0;
    options.up_limit = job.rules ? job.rules->upload_limit : 0;
    if (job.rules && job.rules->ends_first) options.ends_first = true;
    if (job.rules && job.rules->most_peers > 0) options.most_peers = job.rules->most_peers;
    options.overwrites = job.rules && job.rules->overwrite == replaces;
    if (job.sources && job.sources->whole) options.hash = written(*job.sources->whole);
    if (job.rules && job.rules->share_ratio) {
        const double ratio = *job.rules->share_ratio;
        if (ratio == 0) options.seed_time = 0;
        if (ratio != 0) options.seed_ratio = std::max(ratio, 0.0);
    }
    if (job.rules && job.rules->share_time && options.seed_time != 0)
        options.seed_time = job.rules->share_time;
    if (job.rules && !job.rules->select.empty()) options.select = job.rules->select;
    return options;
}

}  // namespace vantlow
