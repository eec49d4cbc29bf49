#include "engine/saver.h"

namespace vantlow {
namespace {

// A disk that failed is not tried again each second.
constexpr int ticks_after_failure = 10;

}  // namespace

void Saver::begin(std::function<void()> wake) {
    if (store_.is_in_memory()) return;
    wake_ = std::move(wake);
    store_.write_behind(settings_, [this] {
        if (wake_) wake_();
    });
    begun_ = true;
}

void Saver::end() {
    if (std::exchange(begun_, false)) store_.stop_writing_behind();
}

void Saver::work() {
    // The work is done in steps, so that no operation waits long.
    if (writes() && store_.work() && wake_) wake_();
}

void Saver::commit() {
    if (!writes() || pause_ > 0) return;
    at_once_ = true;
    store_.commit([this](const std::string& failure) {
        // Without changes to make safe, nothing is learned about the disk.
        if (!failure.empty() || !at_once_) hear(failure);
    });
    at_once_ = false;
}

void Saver::settle(JobStore::Settled settled) {
    if (!writes()) return settled({});
    store_.commit(std::move(settled), JobStore::OnFailure::remove_added);
}

void Saver::when_safe(std::function<void()> then) {
    if (!writes()) return then();
    store_.commit([then = std::move(then)](const std::string&) { then(); });
}

void Saver::save_behind() {
    if (writes() && !store_.is_newer()) store_.save_behind();
}

void Saver::hear(const std::string& failure) {
    if (!failure.empty()) pause_ = ticks_after_failure;
    if (!failure.empty() && failure != said_) say_(failure);
    said_ = failure;
    say_notes();
}

void Saver::say_notes() {
    while (notes_said_ < store_.notes().size()) say_(store_.notes()[notes_said_++]);
}

void Saver::tick() {
    if (!writes()) return;
    if (pause_ > 0) --pause_;
    std::string error;  // stands among the notes
    if (!store_.is_newer() && !store_.hold_folder(error)) pause_ = ticks_after_failure;
    say_notes();
    if (const std::string failure = store_.take_failure(); !failure.empty()) hear(failure);
    commit();
}

}  // namespace vantlow
