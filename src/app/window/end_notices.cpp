#include "app/window/end_notices.h"

#include <algorithm>
#include <utility>

#include "app/process/job_view.h"
#include "app/window/model/job_columns.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"
#include "app/window/model/troubles.h"
#include "app/window/words.h"
#include "platform/desktop.h"

namespace vantlow {
namespace {

// A desktop keeps more of them than this, but nobody opens the older ones.
constexpr std::size_t most_answering = 4;

std::string title_of(std::size_t finished, std::size_t failed) {
    const auto count = [](std::size_t number) { return static_cast<std::int64_t>(number); };
    std::string title;
    if (finished > 0) title = trn("%1 download finished", "%1 downloads finished", count(finished));
    if (failed > 0) {
        if (!title.empty()) title += ", ";
        title += trn("%1 download failed", "%1 downloads failed", count(failed));
    }
    return title;
}

}  // namespace

EndNotices::EndNotices(wxWindow& window, WindowModel& model, std::function<bool()> wanted,
                       std::function<void()> to_window)
    : window_(window), model_(model), wanted_(std::move(wanted)), to_window_(std::move(to_window)) {
    model_.on_end = [this](const Guid& job, bool failed) { ended_.push_back({job, failed}); };
}

EndNotices::~EndNotices() {
    model_.on_end = {};
}

void EndNotices::look() {
    const auto ended = std::exchange(ended_, {});
    if (!ended.empty() && wanted_()) show(ended);
}

void EndNotices::show(const std::vector<Ended>& ended) {
    constexpr std::size_t most_named = 3;
    std::size_t failed = 0;
    wxString text;
    for (std::size_t i = 0; i < ended.size(); ++i) {
        if (ended[i].failed) ++failed;
        const CJobNode* const job = model_.engine.find(ended[i].job);
        if (job == nullptr || i >= most_named) continue;
        text += (text.empty() ? "" : "\n") +
                ui(RowFacts{*job, model_.engine.category_of(*job)}.cell(Column::name));
        if (ended[i].failed) text += ": " + ui(trouble_text(JobView::error_of(*job)));
    }
    if (ended.size() > most_named) text += "\n...";
    auto notice =
        std::make_unique<wxNotificationMessage>(ui(title_of(ended.size() - failed, failed)), text, &window_);
    const auto answer = [this, ended](wxCommandEvent&) {
        if (ended.size() == 1 && !ended[0].failed) return open(ended[0].job);
        to_window_();
    };
    notice->Bind(wxEVT_NOTIFICATION_MESSAGE_CLICK, answer);
    notice->Bind(wxEVT_NOTIFICATION_MESSAGE_ACTION, answer);
    // Where a notice cannot have a button, a click on it does the same.
    static_cast<void>(notice->AddAction(wxID_OPEN, ui(tr("Open"))));
    if (!notice->Show()) return;  // no desktop that shows them: the list says it
    shown_.push_back(std::move(notice));
    if (shown_.size() > most_answering) shown_.erase(shown_.begin());
}

void EndNotices::open(const Guid& job) {
    const CJobNode* const record = model_.engine.find(job);
    if (record == nullptr || !open_with_desktop(record->path).ok()) to_window_();
}

}  // namespace vantlow
