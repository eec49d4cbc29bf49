#include "app/window/model/window_model.h"

#include <ctime>

#include "app/terminal/display_text.h"
#include "app/window/model/texts.h"
#include "app/window/model/translate.h"

namespace vantlow {

WindowModel::WindowModel(Engine& engine_of_all, const Settings& all_settings)
    : engine(engine_of_all),
      live(engine),
      rows(engine, live),
      tree(engine),
      details(engine, live),
      status(engine, live, all_settings),
      new_jobs(engine),
      settings(engine, all_settings),
      questions(engine) {
    engine.add_listener(*this);
    questions.asked(engine.questions());
}

WindowModel::~WindowModel() {
    engine.remove_listener(*this);
}

void WindowModel::tick() {
    const auto now = std::chrono::steady_clock::now();
    const auto wall_clock = static_cast<std::int64_t>(std::time(nullptr));
    live.look(now);
    rows.tick(now, wall_clock);
    tree.tick(wall_clock);
    status.tick(now);
    history.add(now, live.down(), live.up());
}

void WindowModel::changed(const Changes& changes) {
    const auto now = std::chrono::steady_clock::now();
    live.look(now);
    rows.changed(changes, now);
    tree.changed(changes);
}

void WindowModel::ended(const JobEnd& end) {
    if (end.stop_asked || end.gave_way || end.outcome.result.kind() == Kind::stopped) return;
    // A shared torrent was told of when its files were there.
    const bool is_news = end.shares ? end.goes_on || !end.outcome.result.ok() : !end.goes_on;
    if (!is_news) return;
    if (on_end) on_end(end.job->identity, !end.outcome.result.ok());
}

void WindowModel::followed(const Followed& followed) {
    if (!on_trouble) return;
    for (const DraftFault& fault : followed.faults) on_trouble(sentence_of(fault));
}

void WindowModel::moved(const Guid&, const Done& done) {
    if (on_trouble && !done.ok()) on_trouble(tr("The files could not be moved.") + " " + sentence_of(done));
}

void WindowModel::asked(const std::vector<Question>& open) {
    questions.asked(open);
}

void WindowModel::logged(const std::vector<LogLine>& lines) {
    details.logged(lines);
}

void WindowModel::store_said(const std::string& text) {
    if (on_trouble) on_trouble(printable(text));
}

}  // namespace vantlow
