#include "engine/saver.h"

namespace vantlow {
namespace {

// A store whose saving takes longer is saved by the timer only, not after each change.
constexpr std::chrono::milliseconds quick_save{250};
// A disk that did not take it is not asked each second.
constexpr int ticks_after_failure = 10;
// One part of the time in so many, behind the ends of jobs.
constexpr int saving_at_most = 10;

}  // namespace

bool Saver::save(std::string& error) {
    if (store_.is_newer() || store_.is_in_memory()) return true;  // stays as it is
    refresh_();
    const bool saved = store_.save(settings_, error);
    // A disk that stays full is told of once.
    if (!error.empty() && error != told_) failed_(error);
    told_ = error;
    return saved;
}

bool Saver::save_soon(std::string& error) {
    if (!store_.is_dirty() || store_.last_save_took() > quick_save) return true;
    return save(error);
}

void Saver::save_after_event() {
    const auto now = std::chrono::steady_clock::now();
    if (!store_.is_dirty() || pause_ > 0 || store_.last_save_took() > quick_save || now < next_event_save_)
        return;
    std::string error;  // told
    if (!save(error)) pause_ = ticks_after_failure;
    next_event_save_ = now + saving_at_most * store_.last_save_took();
}

void Saver::tick() {
    if (pause_ > 0) --pause_;
    if (!store_.is_dirty() || store_.last_save_took() > quick_save || pause_ > 0) return;
    std::string error;  // told
    if (!save(error)) pause_ = ticks_after_failure;
}

}  // namespace vantlow
