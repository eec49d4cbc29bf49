#include "app/window/model/job_properties.h"

#include <algorithm>
#include <utility>

#include "app/terminal/display_text.h"
#include "app/terminal/quantities.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "base/text.h"
#include "engine/kinds.h"
#include "engine/schedule_texts.h"
#include "store/address.h"
#include "store/proxies.h"

namespace vantlow {
namespace {

constexpr std::size_t index_of(Property property) noexcept {
    return static_cast<std::size_t>(property);
}

/// A property that is a plain text of the record.
struct TextProperty {
    Property property;
    std::u16string JobFacts::*value;
    std::optional<std::u16string> JobEdit::*edit;
};
constexpr TextProperty texts[] = {
    {Property::address, &JobFacts::address, &JobEdit::address},
    {Property::comment, &JobFacts::comment, &JobEdit::comment},
    {Property::user, &JobFacts::user, &JobEdit::user},
    {Property::password, &JobFacts::password, &JobEdit::password},
    {Property::referer, &JobFacts::referer, &JobEdit::referer},
    {Property::cookie, &JobFacts::cookie, &JobEdit::cookie},
    {Property::agent, &JobFacts::agent, &JobEdit::agent},
    {Property::proxy, &JobFacts::proxy, &JobEdit::proxy},
};

// Writes a rate so that parse_rate() reads the same number.
std::string rate_text(std::int64_t rate) {
    constexpr std::int64_t unit = 1024;
    if (rate <= 0) return {};
    if (rate % (unit * unit) == 0) return std::to_string(rate / (unit * unit)) + "M";
    return rate % unit == 0 ? std::to_string(rate / unit) + "K" : std::to_string(rate);
}

std::string mirrors_text(const CJobNode& job) {
    std::string text;
    if (!job.sources) return text;
    for (const std::u16string& mirror : job.sources->mirrors) {
        if (mirror != job.address) text += to_utf8(mirror) + "\n";
    }
    return text;
}

std::string value_of(const Engine& engine, const CJobNode& job, Property property) {
    const auto wish = [&] { return wish_of(times_of(job), engine.clock()); };
    switch (property) {
        case Property::plan:
            return schedule_of(job).by_plan ? "1" : "";
        case Property::start_time:
            return wish().start;
        case Property::stop_time:
            return wish().stop;
        case Property::days:
            return wish().days;
        case Property::mirrors:
            return mirrors_text(job);
        case Property::limit:
            return rate_text(job.rules ? job.rules->speed_limit : 0);
        case Property::connections:
            return std::to_string(job.connections);
        default:
            break;
    }
    const auto* const text = std::ranges::find(texts, property, &TextProperty::property);
    return to_utf8(job.*(text->value));
}

std::vector<std::u16string> lines_of(std::string_view text) {
    std::vector<std::u16string> lines;
    for (const std::string_view line : split(text, '\n')) {
        if (!trim(line).empty()) lines.push_back(to_utf16(trim(line)));
    }
    return lines;
}

std::optional<std::int32_t> connections_of(std::string_view text) {
    const auto number = read_setting_number(to_utf16(trim(text)));
    if (!number || *number < 1 || *number > most_connections) return std::nullopt;
    return static_cast<std::int32_t>(*number);
}

}  // namespace

JobProperties::JobProperties(const Engine& engine, const std::vector<Guid>& jobs) : engine_(engine) {
    for (const Guid& id : jobs) {
        const CJobNode* const job = engine.find(id);
        if (job == nullptr) continue;
        for (std::size_t i = 0; i < property_count; ++i) {
            const std::string value = value_of(engine, *job, static_cast<Property>(i));
            if (jobs_.empty()) {
                before_[i] = value;
            } else if (before_[i] != value) {
                before_[i].reset();
            }
        }
        jobs_.push_back(id);
    }
}

bool JobProperties::has(Property property) const noexcept {
    return jobs_.size() == 1 || (property != Property::address && property != Property::mirrors);
}

const std::optional<std::string>& JobProperties::value(Property property) const noexcept {
    return before_[index_of(property)];
}

void JobProperties::set(Property property, std::string_view text) {
    const auto& before = before_[index_of(property)];
    auto& now = now_[index_of(property)];
    // An empty field stands for values that differ.
    const bool same = before ? *before == text : text.empty();
    now = same ? std::nullopt : std::optional<std::string>(text);
}

std::string JobProperties::fault_of(Property property, const std::string& text) const {
    const auto not_read = [](std::string_view what) {
        return fill(tr("\"%1\" cannot be understood."), {printable(std::string(what))});
    };
    switch (property) {
        case Property::address:
            return is_fetchable(to_utf16(text))
                       ? std::string()
                       : fill(tr("%1 cannot be fetched."), {shown(without_credentials(to_utf16(text)))});
        case Property::mirrors:
            for (const std::u16string& line : lines_of(text)) {
                if (!is_fetchable(line))
                    return fill(tr("%1 cannot be fetched."), {shown(without_credentials(line))});
            }
            return {};
        case Property::limit:
            return text.empty() || parse_rate(text) ? std::string() : not_read(text);
        case Property::connections:
            if (connections_of(text)) return {};
            return fill(tr("The number must be from %1."), {"1 - " + std::to_string(most_connections)});
        case Property::proxy:
            if (text.empty() || parse_proxy(to_utf16(text))) return {};
            return not_read(to_utf8(without_credentials(to_utf16(text))));
        default:
            return {};
    }
}

bool JobProperties::has_new_times() const {
    return std::ranges::any_of(
        std::array{Property::plan, Property::start_time, Property::stop_time, Property::days},
        [this](Property property) { return now_[index_of(property)].has_value(); });
}

// The job's own times with those that were entered. Times that a person enters take the place of the week
// plan.
std::optional<JobSchedule> JobProperties::schedule(const CJobNode& job) const {
    TimesWish wish = wish_of(times_of(job), engine_.clock());
    bool has_entered = false;
    for (const auto& [property, text] : {std::pair{Property::start_time, &wish.start},
                                         {Property::stop_time, &wish.stop},
                                         {Property::days, &wish.days}}) {
        const auto& now = now_[index_of(property)];
        if (now) *text = *now;
        has_entered = has_entered || (now && !now->empty());
    }
    const auto& plan = now_[index_of(Property::plan)];
    const bool by_plan = plan ? *plan == "1" : schedule_of(job).by_plan;
    if (by_plan && !has_entered) return JobSchedule{true, {}};
    auto times = read_times(wish, engine_.clock().now(), engine_.clock());
    if (!times) return std::nullopt;
    return JobSchedule{false, std::move(*times)};
}

std::string JobProperties::fault() const {
    const auto is_refused = [this](const Guid& id) {
        const CJobNode* const job = engine_.find(id);
        return job != nullptr && !schedule(*job);
    };
    if (has_new_times() && std::ranges::any_of(jobs_, is_refused))
        return tr("Times are like 22:00 or 2026-11-27 22:00, the end behind the start.");
    for (std::size_t i = 0; i < property_count; ++i) {
        if (!now_[i]) continue;
        if (std::string fault = fault_of(static_cast<Property>(i), *now_[i]); !fault.empty()) return fault;
    }
    return {};
}

JobEdit JobProperties::edit(const Guid& job) const {
    JobEdit edit;
    for (const TextProperty& text : texts) {
        const auto& now = now_[index_of(text.property)];
        if (now) edit.*(text.edit) = to_utf16(*now);
    }
    const auto& limit = now_[index_of(Property::limit)];
    if (limit) edit.speed_limit = limit->empty() ? 0 : parse_rate(*limit);
    const CJobNode* const record = engine_.find(job);
    if (record != nullptr && has_new_times()) edit.schedule = schedule(*record);
    if (const auto& mirrors = now_[index_of(Property::mirrors)]) edit.mirrors = lines_of(*mirrors);
    if (const auto& count = now_[index_of(Property::connections)]) edit.connections = connections_of(*count);
    return edit;
}

}  // namespace vantlow
