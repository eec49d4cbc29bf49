#include "app/window/model/job_filter.h"

#include <algorithm>
#include <ctime>

#include "app/window/model/texts.h"

namespace vantlow {
namespace {

// Midnight of a day in local time, `days` from that of `now`.
std::int64_t midnight(std::int64_t now, int days) {
    const auto time = static_cast<std::time_t>(now);
    const std::tm* const found = std::localtime(&time);  // NOLINT(concurrency-mt-unsafe): one thread
    if (found == nullptr) return now;
    std::tm day{};
    day.tm_year = found->tm_year;
    day.tm_mon = found->tm_mon;
    day.tm_mday = found->tm_mday + days;
    day.tm_isdst = -1;
    return static_cast<std::int64_t>(std::mktime(&day));
}

}  // namespace

DayBorders::DayBorders(std::int64_t now)
    : tomorrow_(midnight(now, 1)),
      begins_{midnight(now, 0), midnight(now, -1), midnight(now, -7), midnight(now, -30)} {}

DayGroup DayBorders::group_of(std::int64_t moment) const noexcept {
    const auto* const at =
        std::ranges::find_if(begins_, [moment](std::int64_t begin) { return moment >= begin; });
    return static_cast<DayGroup>(at - begins_.begin());
}

JobFilter::JobFilter(View view, std::u16string_view search, const Engine& engine, std::int64_t now)
    : view_(view) {
    for (std::size_t i = 0; i < search.size();) {
        if (search[i] == u' ') {
            ++i;
            continue;
        }
        Word word;
        word.absent = search[i] == u'-' && i + 1 < search.size() && search[i + 1] != u' ';
        if (word.absent) ++i;
        const bool quoted = search[i] == u'"';
        if (quoted) ++i;
        const std::size_t end = std::min(search.find(quoted ? u'"' : u' ', i), search.size());
        word.text = folded(search.substr(i, end - i));
        i = end + (quoted ? 1 : 0);
        if (!word.text.empty()) words_.push_back(std::move(word));
    }
    if (view_.what == View::What::day) days_.emplace(now);
    if (view_.what != View::What::category) return;
    // Each category comes before those below it.
    for (const CClassNode* category : engine.categories()) {
        const bool below = category->parent != nullptr && categories_.contains(category->parent->identity);
        if (below || category->identity == view_.category) categories_.insert(category->identity);
    }
}

bool JobFilter::passes(const CJobNode& job) const {
    switch (view_.what) {
        case View::What::all:
            break;
        case View::What::category:
            if (!categories_.contains(job.category)) return false;
            break;
        case View::What::state:
            if (job.state != view_.state) return false;
            break;
        case View::What::kind:
            if (kind_of(job) != view_.kind) return false;
            break;
        case View::What::day:
            if (days_->group_of(job.created) != view_.day) return false;
            break;
    }
    return std::ranges::all_of(words_, [&job](const Word& word) {
        const bool found = holds_folded(job.path, word.text) || holds_folded(job.address, word.text) ||
                           holds_folded(job.comment, word.text) || holds_folded(job.file_name, word.text);
        return found != word.absent;
    });
}

std::uint32_t JobFilter::fields() const noexcept {
    std::uint32_t fields = words_.empty() ? 0 : job_field::place | job_field::options;
    if (view_.what == View::What::category) fields |= job_field::category;
    if (view_.what == View::What::state) fields |= job_field::state;
    return fields;
}

}  // namespace vantlow
