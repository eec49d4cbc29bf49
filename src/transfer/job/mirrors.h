// The addresses that a job fetches from, what is known of each server, and which of them a connection takes.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/result.h"
#include "store/job.h"
#include "transfer/job/version_rule.h"

namespace vantlow {

/// One address of a job. Most jobs have one.
struct Mirror {
    std::u16string address;
    std::u16string effective;      ///< where redirects led; empty: not known
    bool way_asked_again = false;  ///< since anything came: where they led before gave nothing any more
    bool own_server = true;        ///< the job's credentials and cookies belong to it
    ResourceVersion version;       ///< of its first answer
    bool version_known = false;
    std::optional<ResourceVersion> first;  ///< of its first answer, whatever became of that

    int connections = 0;  ///< sub threads that use it
    int failures = 0;
    int errors = 0;     ///< failures that count towards the retry limit
    int fruitless = 0;  ///< attempts in a row that brought nothing new
    int ignored_ranges = 0;
    int contradictions = 0;  ///< times that two of its own answers did not fit together
    bool answered = false;
    bool ranges_promised = false;
    bool ranges_proven = false;
    bool no_ranges = false;   ///< gives the whole only: it is of use where nothing is there yet
    bool only_alone = false;  ///< nothing tells whether its file is that of the others

    int allowed = 1;              ///< connections that it seems to bear
    Clock::time_point grow_at{};  ///< when it is asked for more again; zero: it never refused one
    std::chrono::seconds back_off{10};
    int refusals = 0;                ///< further connections that it definitely refused since one was taken
    Clock::time_point not_before{};  ///< nothing is asked of it earlier

    bool left = false;      ///< nothing more is asked of it
    bool silent = false;    ///< left because it had never answered while others did
    bool recalled = false;  ///< it was, and is the last hope now
    Result why;             ///< why it was left
};

/// The mirrors of one job. Plain bookkeeping: guarded by the job's lock.
class MirrorSet {
  public:
    static constexpr int none = -1;
    static constexpr int most_mirrors = 1000;

    /// The job's own address first, then the others that its sources name.
    void begin(const CJobNode& job);

    [[nodiscard]] Mirror& at(int mirror) { return mirrors_[static_cast<std::size_t>(mirror)]; }
    [[nodiscard]] const Mirror& at(int mirror) const { return mirrors_[static_cast<std::size_t>(mirror)]; }
    [[nodiscard]] int count() const noexcept { return static_cast<int>(mirrors_.size()); }
    [[nodiscard]] bool are_several() const noexcept { return mirrors_.size() > 1; }
    /// Some of a file whose beginning another one gave.
    [[nodiscard]] bool gives_parts(int mirror) const noexcept {
        return !at(mirror).no_ranges && !at(mirror).only_alone;
    }
    /// A usable one does, beside `but`.
    [[nodiscard]] bool any_gives_parts(int but = none) const noexcept;
    /// Not left, and not shut out by the only one that is to be used.
    [[nodiscard]] bool is_usable(int mirror) const noexcept;
    [[nodiscard]] bool is_any_usable() const noexcept;

    /// The mirror that gets the next connection, among those for which `may` is true; `none` when no mirror
    /// may have one now.
    int choose(int thread_limit, const std::function<bool(int)>& may, Clock::time_point now);
    /// When a usable mirror may be asked (more) at the earliest; none when there is nothing to wait for.
    [[nodiscard]] std::optional<Clock::time_point> next_chance() const;
    /// It bears no more connections than `active`; later it is asked again, more and more rarely.
    void back_off(int mirror, int active, std::optional<std::chrono::seconds> server_asks,
                  Clock::time_point now);
    /// It gives a further connection something else, or nothing, while `active` receive. It is asked twice
    /// more, then never while one receives.
    void refuse_further(int mirror, int active, Clock::time_point now);
    /// The same, and it is not asked again while one receives.
    void refuse_all_further(int mirror) noexcept;
    /// Whether a connection that gives up its answer may hope for another one.
    [[nodiscard]] bool may_serve_more(int mirror) const;
    /// A further connection was taken.
    void serve_further(int mirror) noexcept;

    void leave(int mirror, const Result& why);
    /// Those that were left because they differed from what another one gave get another chance: those alone
    /// that gave some of the file, where there are such.
    bool pardon_different();
    [[nodiscard]] bool is_any_different() const noexcept;
    /// The same, and in more than the size.
    [[nodiscard]] bool is_any_changed() const noexcept;
    /// From now on one mirror alone, until it is left.
    void use_only(int mirror) noexcept { only_ = mirror; }
    [[nodiscard]] int only() const noexcept { return only_; }
    /// Those that had never answered while others did are asked again; true where there are such.
    bool recall_silent();
    /// Nothing is known of the servers any more, after a change of the resource.
    void forget_answers();
    /// Where redirects led may be gone: the way there is to be asked for again. True where that is a reason
    /// to ask at once: for the first time since anything came.
    bool forget_way(int mirror);

    /// The result that ends the job when no mirror is usable: a wrong hash where every mirror gave wrong
    /// bytes.
    [[nodiscard]] Result why_none() const;

  private:
    bool is_free(int mirror, int thread_limit, Clock::time_point now);

    std::vector<Mirror> mirrors_;
    int only_ = none;
};

/// One mirror as the rule sees it.
struct MirrorItem {
    int connections = 0;  ///< that it has now
    int failures = 0;     ///< of its connections so far, those counted that were much too slow
    bool usable = true;   ///< may be given another connection
};

/// The usable mirror with the fewest connections and failures together; of equal ones the first. None when no
/// mirror is usable.
std::optional<std::size_t> choose_mirror(std::span<const MirrorItem> items);

}  // namespace vantlow
