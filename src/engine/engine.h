// The engine: the operations that clients have on jobs, and the news that clients get.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/category_rules.h"
#include "engine/changes.h"
#include "engine/draft.h"
#include "engine/file_mover.h"
#include "engine/inquiry.h"
#include "engine/job_maker.h"
#include "engine/listener.h"
#include "engine/questions.h"
#include "engine/saver.h"
#include "engine/schedule.h"
#include "engine/session_runner.h"
#include "engine/timetable.h"
#include "engine/torrent_report.h"
#include "engine/torrent_shelf.h"
#include "platform/desktop.h"
#include "store/job_store.h"
#include "store/settings.h"

namespace vantlow {

/// The result of an operation. A plain record: clients make sentences of it.
struct [[nodiscard]] Done {
    enum class Fault {
        none,
        no_job,           ///< there is no such job
        no_category,      ///< there is no such category
        running,          ///< the job runs: the operation waits for its end (remove), or cannot be done now
        moving,           ///< its files are on their way to another place: likewise
        not_waiting,      ///< only a job that waits has a place in the order
        name_refused,     ///< no such name can be given
        name_taken,       ///< another one beside it has the name
        first_category,   ///< the first category stays as it is and where it is
        below_itself,     ///< a category cannot stand below itself
        bad_value,        ///< the value is not allowed here
        no_hash,          ///< nothing is known that the file could be checked against
        anothers_file,    ///< the file at `path` is not the one that the job made
        nothing_to_undo,  ///< no removal that could be taken back
        no_question,      ///< there is no such question (any more)
        no_torrent,       ///< the job is no torrent's
        no_description,   ///< nobody knows yet which files the torrent has
        file,             ///< the file at `path`: `error`
        setting,          ///< the store of the settings: `error`
    };
    Fault fault = Fault::none;
    FileError error{};
    std::u16string path{};

    [[nodiscard]] bool ok() const noexcept { return fault == Fault::none; }
};

/// The result of add().
struct Added {
    std::vector<Guid> jobs;
    std::vector<DraftFault> faults;
    Done done{};  ///< no_category: nothing was made
};

/// The values that change() sets; the others stay. Some also hold for a job that runs: `speed_limit` and, of
/// a torrent, `upload_limit`, `select`, `sequential` and `ends_first` at once, `address`, `mirrors` and, of a
/// document, `select` by another session that goes on with the same part of the files. The rest takes effect
/// when the job is started next.
struct JobEdit {
    std::optional<std::u16string> address;
    std::optional<std::u16string> referer;
    std::optional<std::u16string> comment;
    std::optional<std::u16string> user;
    std::optional<std::u16string> password;
    std::optional<std::u16string> agent;
    std::optional<std::u16string> cookie;
    std::optional<std::u16string> proxy;  ///< as an address; empty: the program's
    std::optional<std::int32_t> connections;
    std::optional<std::int64_t> speed_limit;  ///< bytes a second for this job; 0: none of its own
    std::optional<double> share_ratio;        ///< as JobRules has them
    std::optional<std::int64_t> share_time;
    std::optional<std::vector<std::u16string>> mirrors;  ///< other addresses of the same file; empty: none
    std::optional<std::string> select;         ///< files of a torrent or a document, as --select; empty: all
    std::optional<std::int64_t> upload_limit;  ///< of a torrent, as JobRules has it, and so the next two
    std::optional<bool> sequential;
    std::optional<bool> ends_first;
    std::optional<std::int64_t>
        most_peers;  ///< of a torrent, when it is started next; 0: as the settings say
    /// When the job runs; holds at once: out of its times it stops.
    std::optional<JobSchedule> schedule;
};

/// The fate of the files of a job that is removed.
enum class Files { keep, erase, bin };

/// The result of remove_all().
struct Removed {
    std::size_t removed = 0;
    std::size_t waiting = 0;  ///< they run still, and go when they have ended
    std::vector<std::pair<Guid, Done>> failures;
};

/// Where reorder() puts a job among those that wait.
enum class Order { first, earlier, later, last };

/// A client's view of all jobs, and the one way to change them. Owns the store. Made, used and destroyed by
/// one thread, which calls everything; sessions and questions come to it by Options::wake.
///
/// A store in memory makes an engine that keeps nothing: a job whose run ended is forgotten when its
/// listeners have heard of it.
class Engine {
  public:
    struct Options {
        Settings& settings;
        const LibraryTables& libraries;
        StopSource& stop;                ///< of the whole program
        std::u16string data_folder;      ///< with the proxy list and, beside a store on the disk, the logs
        std::u16string agent;            ///< of jobs without one of their own
        CredentialLookup credentials{};  ///< the user's file of logins
        const SessionTable* sessions = &standard_sessions();
        bool follows = true;       ///< a fetched document gives way to what it names
        bool keeps_state = true;   ///< beside partial files, so that a later run continues them
        TorrentSharing sharing{};  ///< of its torrents
        std::chrono::milliseconds change_interval{250};  ///< between two calls of EngineListener::changed
        const WallClock* clock = &system_wall_clock;     ///< of the times at which jobs start and stop
    };
    Engine(std::unique_ptr<JobStore> store, Options options);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // ---- Running. Without it jobs are only filed.

    struct Running {
        ConnectionServices& connections;
        ThreadPool& threads;
        std::function<void()> wake{};                ///< any thread: asks for a pump() soon
        std::chrono::milliseconds question_time{0};  ///< how long a question stays open; 0: nobody is asked
        bool gathers_log = false;                    ///< EngineListener::logged is called
        /// Torrents are shared after their end as their rules and the settings say, from now on also those
        /// that were when the program ended; else as Options::sharing says.
        bool shares_finished = false;
        /// Called on a session's thread when a job's file is whole and gets its name as soon as this has
        /// returned; again with another name where that one is taken. For clients that remember names where
        /// the store is in memory.
        std::function<void(const NameKeeper::Naming&)> before_name{};
    };
    /// From now on pump() runs the jobs that wait.
    void run(Running running);
    [[nodiscard]] bool runs() const noexcept { return runner_ != nullptr; }
    /// Goes back to filing only: waits until every session has ended. `wake` is not called any more
    /// afterwards.
    void end_running();
    /// Only jobs that start() names are run from now on.
    void run_only_started();
    /// Takes the ended sessions in, starts jobs whose turn it is, calls the listeners. Waits up to `at_most`
    /// for a session to end.
    void pump(std::chrono::milliseconds at_most = std::chrono::milliseconds(0));
    /// To be called once a second: reads the settings again, starts and stops jobs whose time has come,
    /// writes logs, saves the store where that is worth it.
    void tick();
    /// Ends all running jobs, which wait for their turn in the next run, and saves. False, with a sentence in
    /// `error`, when saving fails.
    bool close(std::string& error);

    void add_listener(EngineListener& listener) { listeners_.push_back(&listener); }
    void remove_listener(EngineListener& listener) { std::erase(listeners_, &listener); }

    // ---- Looking.

    [[nodiscard]] const CJobNode* find(const Guid& job) const noexcept { return store_->find(job); }
    /// The jobs whose identity's digits (guid_digits()) begin with these; the search ends at the second.
    [[nodiscard]] std::vector<const CJobNode*> find_by_digits(std::string_view digits) const;
    /// The jobs of a category and of those below it, in display order; null: all.
    [[nodiscard]] std::vector<const CJobNode*> jobs_below(const CClassNode* category) const;
    [[nodiscard]] const CClassNode& category_of(const CJobNode& job) const {
        return store_->category_of(job);
    }
    [[nodiscard]] const CClassNode* find_category(const Guid& category) const;
    [[nodiscard]] std::vector<const CClassNode*> find_category(std::u16string_view name) const;
    [[nodiscard]] std::vector<const CClassNode*> categories() const;
    [[nodiscard]] const CClassNode* first_category() const { return store_->tree().root(); }
    /// Of a job that runs.
    [[nodiscard]] std::optional<JobProgress> progress(const Guid& job) const;
    [[nodiscard]] std::vector<SessionConnection> connections(const Guid& job) const;
    [[nodiscard]] std::vector<RunningJob> running_jobs() const;
    [[nodiscard]] std::size_t running() const noexcept { return runner_ ? runner_->running() : 0; }
    [[nodiscard]] std::size_t waiting() const;
    /// The jobs that wait for their turn, the next one first.
    [[nodiscard]] std::vector<const CJobNode*> queue() const;
    /// True while the record of the job says that it runs.
    [[nodiscard]] bool is_running(const Guid& job) const { return runner_ && runner_->takes_place(job); }
    /// True while the finished torrent of the job is shared, or waits for that; it takes no place then.
    [[nodiscard]] bool is_sharing(const Guid& job) const { return runner_ && runner_->is_sharing(job); }
    /// See running_jobs(); of those that are shared.
    [[nodiscard]] std::vector<RunningJob> sharing_jobs() const;
    /// True from move_files() until its files are at their new place, or will not get there.
    [[nodiscard]] bool is_moving(const Guid& job) const;
    /// The move of the job's files, while it is under way and known.
    [[nodiscard]] std::optional<FileMoveProgress> file_move(const Guid& job) const;
    /// Why the job's files could not be moved the last time, since the program runs; ok: there is nothing to
    /// tell.
    [[nodiscard]] Done last_move(const Guid& job) const;
    [[nodiscard]] bool has_work() const {
        return runner_ && (runner_->has_work() || awaits_choice() || mover_.has_any());
    }
    [[nodiscard]] std::vector<Question> questions() const { return questions_.open(); }
    /// The description ("info" value, BEP 3) of a torrent's job; empty while it is not known, and for others.
    [[nodiscard]] std::string torrent_info(const CJobNode& job) const;
    /// The contents of a torrent's job; none while its description is not known.
    [[nodiscard]] Outcome<TorrentContent> torrent_content(const CJobNode& job) const;
    /// The digests of the pieces of such contents, where they are of the second version.
    [[nodiscard]] PieceLayers torrent_layers(const TorrentContent& content) const {
        return torrents_.find_layers(content.info_hash, content);
    }
    /// The facts of a torrent's job, with the parts (torrent_part) that are asked for; none where there is no
    /// such job, or it is no torrent's. Of a job that runs as of now, from its session, which may take a
    /// quarter of a second where the machine is busy; of others from the record, the document and the state
    /// beside the files, which is read anew each time.
    [[nodiscard]] std::optional<TorrentReport> torrent_report(const Guid& job, unsigned parts) const;
    /// The lines of a job's log, oldest first.
    [[nodiscard]] std::vector<CLogNode> log_of(const Guid& job);
    /// The rule of a category; an empty one where it has none.
    [[nodiscard]] CategoryRule rule_of(const Guid& category) const;
    /// The category that the rules choose for a file, see category_by().
    [[nodiscard]] std::optional<Guid> category_by_rules(std::u16string_view address,
                                                        std::u16string_view name) const;
    [[nodiscard]] WeekPlan week_plan() const { return week_plan_of(options_.settings); }
    /// The next action of the job's own times or, where it goes by it, of the week plan; none: there is none.
    [[nodiscard]] std::optional<NextAction> next_action_of(const CJobNode& job) const;
    [[nodiscard]] const WallClock& clock() const noexcept { return *options_.clock; }
    [[nodiscard]] std::uint64_t revision() const noexcept { return changes_.revision(); }
    [[nodiscard]] Changes changes_since(std::uint64_t revision) const { return changes_.since(revision); }
    [[nodiscard]] const std::u16string& data_folder() const noexcept { return options_.data_folder; }

    // ---- Doing.

    /// Asks the server of the draft's only link about the file, as its job would; `wake` as in Inquiry. Null
    /// where that is no single address of HTTP, or nothing runs. The answer is to be destroyed before
    /// end_running().
    [[nodiscard]] std::unique_ptr<Inquiry> inquire(const JobDraft& draft, std::function<void()> wake) const;
    /// Files the jobs of a draft's links. A part of a job that an earlier run left in its folder is
    /// continued.
    Added add(const JobDraft& draft);
    /// From now on only jobs that pass this test are filed; the client takes care of the others.
    void file_only(std::function<bool(const CJobNode&)> wanted) { wanted_ = std::move(wanted); }
    /// Files a job that the client has made, as from a job list.
    Guid file(std::unique_ptr<CJobNode> job, const Guid& category);
    /// Files the jobs of a job list. Those that are to be started by hand stop, the others wait.
    std::vector<Guid> file_list(std::vector<std::unique_ptr<CJobNode>> jobs, const Guid& category);
    /// Lets the job wait for its turn, behind the others; one that waits or runs already is left alone. A
    /// finished job starts anew, but for torrents where they are shared (Running::shares_finished): their
    /// files are checked and shared again, without end where that was done enough before.
    Done start(const Guid& job);
    /// Ends a running job soon (see wait_for_ends()), stops one that waits, and ends the sharing of a
    /// finished one; others stay as they are.
    Done stop(const Guid& job);
    /// Waits until none of the jobs runs any more, which takes some tenths of a second after stop().
    void wait_for_ends(const std::vector<Guid>& jobs);
    /// Removes a job from the store and, `with_files`, its file or the part of it on the disk. A running job
    /// is stopped first and removed when it has ended (Fault::running). A job whose files cannot be removed
    /// stays, also where another file has taken the place of its own (Fault::anothers_file).
    Done remove(const Guid& job, bool with_files);
    /// Removes jobs as remove() does, and remembers them until the next call, so that undo_removal() can take
    /// them back. A job whose files cannot be moved to the bin stays.
    Removed remove_all(const std::vector<Guid>& jobs, Files files);
    /// The number of jobs that undo_removal() would bring back; 0 also for a store in memory.
    [[nodiscard]] std::size_t removals_to_undo() const noexcept {
        return removed_.size() + leaving_for_undo();
    }
    /// Takes the last remove_all() back: jobs stand where they stood, stopped where they ran, and their files
    /// come out of the bin as far as the system says where they are; one whose file does not (Fault::file),
    /// or was erased, is filed as failed for want of it, to begin anew. Their logs do not come back.
    Done undo_removal();
    /// Forgets the unfinished part of a job, and its file on the disk, and lets it wait for its turn; the
    /// file of a finished job stays as it is. Not while it runs.
    Done start_over(const Guid& job);
    /// Checks the file of a finished job, or the part of one that stopped, against the hashes that are known:
    /// it becomes an unfinished job without missing parts that waits for its turn first. Pieces that are
    /// wrong are fetched again. Not while it runs.
    Done check(const Guid& job);
    [[nodiscard]] bool can_check(const Guid& job) const;
    /// Starts the unfinished jobs of a category and of those below it, or stops its jobs, in display order.
    Done start_all(const Guid& category);
    Done stop_all(const Guid& category);
    Done move(const Guid& job, const Guid& category);
    Done change(const Guid& job, const JobEdit& edit);
    /// Sets how much these files of a torrent are wanted, by their numbers from 1 on, as TorrentReport::files
    /// has them; the others stay. It holds at once, also while the job runs or is shared, and is kept with
    /// it. A finished job that lacks a chosen file waits for its turn again, and what it has stays; an
    /// unfinished file that is not chosen any more keeps its bytes. bad_value: no file would be left, or one
    /// has no such number.
    Done choose_files(const Guid& job, const std::map<std::size_t, FilePriority>& wanted);
    /// The trackers of a torrent's job, with their keys; none for others.
    [[nodiscard]] std::vector<std::string> trackers(const Guid& job) const;
    /// Sets them: at once, also while it runs, and kept with the job. bad_value: one is no address of a
    /// tracker (http, https, udp), or there are too many.
    Done set_trackers(const Guid& job, const std::vector<std::string>& trackers);
    Done reorder(const Guid& job, Order order);
    /// Exchanges the places of two stopped jobs in the order in which they are started together.
    Done swap_stopped(const Guid& one, const Guid& other);
    /// Renames the job's file, or its torrent's folder, where it stands, on the disk too. A name that is
    /// taken there is refused. Of a job that runs, or is shared, the session is stopped for it and goes on
    /// behind it (see file_move()); else it is done when this returns.
    Done rename(const Guid& job, const std::u16string& name);
    /// Moves the job's files, finished or not, into another folder (a full path, else Fault::bad_value),
    /// which is made where it is missing, and renames them where another name is given. What has a name of
    /// theirs there is not touched: name_taken. Only files that are the job's own go; what else is in a
    /// torrent's folder stays. A job that runs, or is shared, stops for that time and goes on from the new
    /// place.
    ///
    /// Where jobs run the files go on a thread of their own, which file_move() shows; stop() and remove()
    /// call it off. A failure leaves everything where it was; EngineListener::moved() and the job's log tell.
    /// A kill at any moment loses nothing: the next run goes on. Where no job runs it is done when this
    /// returns.
    Done move_files(const Guid& job, const std::u16string& folder, const std::u16string& name = {});

    struct NewCategory {
        Done done{};
        Guid category;
    };
    /// `folder` empty: that of the category above. Zero `parent`: below the first one.
    NewCategory add_category(const std::u16string& name, const std::u16string& folder, const Guid& parent);
    /// Removes a category; its jobs go to the category above it.
    Done remove_category(const Guid& category);
    Done rename_category(const Guid& category, const std::u16string& name);
    /// Sets the folder of the jobs that are filed there from now on (a full path, else Fault::bad_value);
    /// empty: that of the category above. Jobs that are there keep theirs.
    Done set_category_folder(const Guid& category, const std::u16string& folder);
    Done move_category(const Guid& category, const Guid& parent);
    /// Sets the rule by which new jobs without a category of their own are filed there
    /// (parse_category_rule(); a text that is none is Fault::bad_value); empty: none. The first category
    /// takes what no rule names.
    Done set_category_rule(const Guid& category, std::string_view text);

    /// Sets the week plan; one without days: none.
    Done set_week_plan(const WeekPlan& plan);

    Done answer(std::uint64_t question, QuestionAnswer answer);

    Done set_setting(std::u16string_view section, std::u16string_view key, std::u16string_view value);
    Done unset_setting(std::u16string_view section, std::u16string_view key);
    /// Sets the limit for all connections together, bytes per second; none: no limit.
    Done set_limit(std::optional<std::int64_t> rate);
    /// The same of what the peers of all torrents get.
    Done set_upload_limit(std::optional<std::int64_t> rate);

    /// Calls `settled` when all operations until now are safe, or cannot be made safe: at once, or from
    /// within pump(). In the second case added jobs are taken back; no job begins before it is safe. To be
    /// called while it runs.
    void settle(JobStore::Settled settled);
    /// Saves the whole store in the background; to be called while it runs.
    void save_behind();
    /// True when every operation until now is on the disk; else the sentence says why not.
    bool save(std::string& error);

  private:
    [[nodiscard]] bool in_memory() const noexcept { return store_->is_in_memory(); }
    [[nodiscard]] CClassNode* category_or_first(const Guid& category);
    static Done look_at_name(const CClassNode& parent, std::u16string_view name, const CClassNode* own);
    void file_made(std::vector<std::unique_ptr<CJobNode>> jobs, const Guid& category,
                   std::vector<Guid>& filed);
    [[nodiscard]] std::unique_ptr<JobMaker> maker_for(const JobDraft& draft, const CClassNode& category);
    [[nodiscard]] std::vector<CategoryRule> category_rules() const;
    void detach(CJobNode& job) const;
    void take_into_timetable(const StoreChange& change);
    void keep_to_times();
    void drop_passed_times(CJobNode& job, bool starts);
    void apply_schedule(CJobNode& job);
    bool take_ends();
    void take_end(JobEnd& end);
    void file_ended(CJobNode& record, const JobEnd& end);
    void move_finished(CJobNode& record);
    void go_on_sharing();
    void share_again(CJobNode& job);
    std::optional<Followed> follow(CJobNode& document, const JobEnd& end);
    void take_answers();
    static bool take_answer(CJobNode& job, const QuestionBoard::Answered& one);
    void ask_which(const std::vector<Guid>& jobs, const std::u16string& document);
    void choose_files(const Question& question, const QuestionAnswer& answer);
    [[nodiscard]] bool awaits_choice() const;
    void tell_questions();
    void deliver();
    Done remove_now(CJobNode& job, Files files, bool is_remembered);
    [[nodiscard]] bool is_path_of_another(const CJobNode& job) const;
    Done remove_files(const CJobNode& job, Files files, std::vector<BinItem>& binned) const;
    void drop_torrents(const std::vector<const CJobNode*>& gone);
    void forget_removed();
    [[nodiscard]] std::size_t leaving_for_undo() const noexcept;
    Done change_sources(CJobNode& job, const JobEdit& edit);
    Done ask_to_move(CJobNode& job, const std::u16string& folder, const std::u16string& name);
    Done begin_move(CJobNode& job, const std::u16string& folder, const std::u16string& name);
    Done start_move(CJobNode& job, FileMove move, bool goes_on);
    Done finish_move(const FileMover::Ended& ended);
    Done end_left_over(CJobNode& job);
    void go_on_moving();
    void call_off_move(const Guid& job);
    bool take_moves();
    void after_move(const Guid& job, const Done& done, bool is_told);
    void set_rules(CJobNode& job, JobRules rules);
    [[nodiscard]] bool can_select(const CJobNode& job, const std::string& text) const;
    void serve();
    void note(const StoreChange& change);
    template <class Tell>
    void tell(const Tell& tell) {
        // By number: a listener may be added meanwhile. NOLINTNEXTLINE(modernize-loop-convert)
        for (std::size_t i = 0; i < listeners_.size(); ++i) tell(*listeners_[i]);
    }

    std::unique_ptr<JobStore> store_;
    Options options_;
    ChangeLog changes_;
    Timetable timetable_;
    StoreWatchers::Watch watch_;
    std::atomic<bool> questions_changed_{false};
    bool gathers_log_ = false;
    bool shares_finished_ = false;
    QuestionBoard questions_;
    Saver saver_;
    std::vector<EngineListener*> listeners_;
    std::function<bool(const CJobNode&)> wanted_;
    std::uint64_t settings_version_;
    /// A job that undo_removal() brings back.
    struct Remembered {
        std::unique_ptr<CJobNode> job;
        std::size_t place = 0;  ///< in its category
        std::vector<BinItem> files;
    };
    /// A job that is to be removed when it has ended.
    struct Leaving {
        Files files = Files::keep;
        bool is_remembered = false;
    };
    std::vector<Remembered> removed_;  ///< by the last remove_all(), in its order
    std::unordered_map<Guid, Leaving, GuidHash> leaving_;
    TorrentShelf torrents_;
    /// A move that waits for the end of its job's session.
    struct WantedMove {
        std::u16string folder;  ///< empty: the same
        std::u16string name;    ///< likewise
        bool shares = false;    ///< the torrent is to be shared again
    };
    std::unordered_map<Guid, WantedMove, GuidHash> wanted_moves_;
    std::set<Guid> torn_moves_;  ///< neither done nor taken back
    std::unordered_map<Guid, Done, GuidHash> failed_moves_;
    FileMover mover_;
    std::unique_ptr<JobMaker> maker_;  ///< of the one draft of an engine in memory
    std::chrono::steady_clock::time_point next_delivery_{};
    std::unique_ptr<NameKeeper> names_;
    std::unique_ptr<IpFilterKeeper> ip_filter_;  ///< while jobs run
    std::unique_ptr<DhtService> hash_table_;     ///< likewise, as the next three
    std::unique_ptr<PortMapper> port_mapper_;
    std::unique_ptr<PortMapper> firewall_opener_;
    std::unique_ptr<TrackerListKeeper> tracker_list_;
    std::unique_ptr<SessionRunner> runner_;  // last: it uses the above
};

}  // namespace vantlow
