// The changes that a person makes to a running torrent: which files are fetched, how much each is wanted, in
// which order their pieces come, and its trackers.
#include <algorithm>
#include <utility>

#include "engine/torrent_run.h"

namespace vantlow {
namespace {

// The ends of a file are so much of it, a piece at least: players look there for what the file is.
constexpr std::int64_t part_of_ends = 100;
constexpr std::int64_t longest_end = std::int64_t{16} * 1024 * 1024;

// The priorities of the pieces, one for each.
std::vector<PiecePriority> piece_priorities(const TorrentContent& content, const TorrentChoice& choice) {
    std::vector<PiecePriority> pieces(static_cast<std::size_t>(content.piece_count()), PiecePriority::skip);
    const auto raise = [&](std::int64_t begin, std::int64_t end, PiecePriority priority) {
        for (auto piece = begin / content.piece_length; piece <= (end - 1) / content.piece_length; ++piece) {
            PiecePriority& now = pieces[static_cast<std::size_t>(piece)];
            now = std::max(now, priority);
        }
    };
    std::int64_t begin = 0;
    for (std::size_t file = 0; file < content.files.size(); ++file) {
        const std::int64_t length = content.files[file].length;
        const std::int64_t end = begin + length;
        if (choice.files[file] != FilePriority::skip && length > 0) {
            raise(begin, end, static_cast<PiecePriority>(choice.files[file]));
            const std::int64_t edge = std::clamp<std::int64_t>(length / part_of_ends, 1, longest_end);
            if (choice.ends_first) {
                raise(begin, begin + edge, PiecePriority::first);
                raise(end - edge, end, PiecePriority::first);
            }
        }
        begin = end;
    }
    return pieces;
}

}  // namespace

void TorrentRun::set_limits(const JobRules* rules) {
    pace_.set_limit(rules != nullptr ? rules->speed_limit : 0);
    sent_.set_limit(rules != nullptr ? rules->upload_limit : 0);
}

void TorrentRun::take_rules(std::shared_ptr<const JobRules> rules) {
    set_limits(rules.get());
    const MutexLock guard(mutex_);
    rules_ = std::move(rules);
    ++rules_number_;
    if (takes_questions_) static_cast<void>(loop_->post([this] { follow_rules(); }));
}

void TorrentRun::take_trackers(const std::vector<std::string>& trackers) {
    const MutexLock guard(mutex_);
    trackers_ = trackers;
    if (takes_questions_) static_cast<void>(loop_->post([this] { follow_trackers(); }));
}

void TorrentRun::follow_trackers() {
    std::optional<std::vector<std::string>> wanted;
    {
        const MutexLock guard(mutex_);
        wanted = std::exchange(trackers_, std::nullopt);
    }
    if (!wanted) return;
    own_trackers_ = *std::move(wanted);
    announce_to_all();
}

// Whether a torrent is private nobody knows before its description is there: until then it is told to its own
// trackers alone.
void TorrentRun::follow_tracker_list() {
    TrackerListKeeper* const keeper = torrent_services_.tracker_list;
    if (keeper == nullptr || swarm_ == nullptr || content_.is_private) return;
    auto current = keeper->current([this] { return seed_errand(); });
    if (current == listed_) return;
    listed_ = std::move(current);
    if (!listed_) log_.line(Direction::note, "No trackers come from a list any more.");
    if (listed_ && !listed_->failure.empty()) {
        log_.line(Direction::error, "The list of trackers at " + listed_->address +
                                        " could not be renewed: " + listed_->failure);
    }
    if (listed_ && !listed_->list.trackers.empty()) {
        const TrackerList& list = listed_->list;
        log_.line(Direction::note, "Trackers of the list at " + listed_->address +
                                       " are told, too: " + std::to_string(list.trackers.size()) + "; " +
                                       std::to_string(list.left_out) + " more are left out, and " +
                                       std::to_string(list.bad_lines) + " lines name none.");
    }
    announce_to_all();
}

void TorrentRun::announce_to_all() {
    std::vector<std::string> all = own_trackers_;
    if (listed_) all.insert(all.end(), listed_->list.trackers.begin(), listed_->list.trackers.end());
    announces_.follow(all);
}

std::shared_ptr<const JobRules> TorrentRun::rules(std::uint64_t& number) const {
    const MutexLock guard(mutex_);
    number = rules_number_;
    return rules_;
}

// Called where rules may have come, and when the files are free again.
void TorrentRun::follow_rules() {
    if (swarm_ == nullptr || (is_saving_ && !gives_names_)) return;
    std::uint64_t number = 0;
    const auto newest = rules(number);
    if (number == followed_) return;
    const auto choice = choice_of(content_, newest.get());
    if (!choice || *choice == choice_) {
        followed_ = number;
    } else if (!gives_names_) {
        choose(*choice, number);
    } else if (choice->wants_more_than(choice_)) {
        owes_choice_ = true;
    } else {
        choice_ = *choice;
        followed_ = number;
        size_ = 0;
        for (std::size_t file = 0; file < content_.files.size(); ++file)
            size_ += choice_.files[file] != FilePriority::skip ? content_.files[file].length : 0;
        done_ = size_;
    }
}

// Requests for what is not wanted any more are taken back before its files go, and what is wanted anew is
// asked for when its files are there.
void TorrentRun::choose(const TorrentChoice& choice, std::uint64_t number) {
    is_saving_ = is_choosing_ = true;
    TorrentChoice both = choice;
    for (std::size_t file = 0; file < both.files.size(); ++file) {
        if (choice_.files[file] == FilePriority::skip) both.files[file] = FilePriority::skip;
    }
    want_pieces(both, false);
    std::vector<bool> holds = good_;
    for (std::uint32_t piece = 0; piece < swarm_->picker().pieces(); ++piece)
        holds[piece] = holds[piece] || swarm_->picker().is_begun(piece);
    disk_->run(
        [this, chosen = choice.chosen(), good = good_, holds] { return files_->choose(chosen, good, holds); },
        [this, choice, number](const Result& result) {
            is_saving_ = is_choosing_ = false;
            if (!result.ok()) return failed(result);
            have_chosen(choice, number);
        });
}

void TorrentRun::have_chosen(const TorrentChoice& choice, std::uint64_t number) {
    choice_ = choice;
    followed_ = number;
    measure();
    want_pieces(choice_, false);
    share_after_saving_ = false;
    log_.line(Direction::note, "Other files are chosen, or in another order; " + std::to_string(done_) +
                                   " of " + std::to_string(size_) + " bytes are there.");
    follow_rules();
    if (!is_saving_ && swarm_->picker().is_done()) completed();
}

void TorrentRun::want_pieces(const TorrentChoice& choice, bool nothing_more) {
    std::vector<PiecePriority> wanted(good_.size(), PiecePriority::skip);
    if (!nothing_more) wanted = piece_priorities(content_, choice);
    swarm_->choose(wanted, choice.sequential);
}

// The bytes of the chosen files, and those of them that are there.
void TorrentRun::measure() {
    size_ = files_->chosen_bytes();
    done_ = 0;
    for (std::size_t piece = 0; piece < good_.size(); ++piece) {
        if (good_[piece]) done_ += files_->chosen_bytes_of(static_cast<std::int64_t>(piece));
    }
}

// When nothing is fetched any more.
bool TorrentRun::has_late_choice() const {
    if (!files_) return false;
    std::uint64_t number = 0;
    const auto choice = choice_of(content_, rules(number).get());
    return choice && choice->wants_more_than(choice_);
}

}  // namespace vantlow
