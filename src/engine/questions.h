// Questions that the engine cannot decide by itself: any client may answer them, and each has a default after
// a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/mutex.h"
#include "platform/stop.h"

namespace vantlow {

/// The subject of a question.
enum class QuestionKind {
    host_key,     ///< whether this SSH server is trusted from now on
    certificate,  ///< whether this job goes on although its server's certificate is not trusted
    credentials,  ///< the login for this server
    overwrite,    ///< the fate of an existing file that has the job's name
    which_files,  ///< the choice among the files that a document names
};

/// An answer; each kind of question reads its own members.
struct QuestionAnswer {
    bool yes = false;         ///< host_key, certificate: trust it; overwrite: the file is replaced
    bool rename = false;      ///< overwrite: both are kept
    std::u16string user;      ///< credentials; empty: none are given
    std::u16string password;  ///< credentials
    std::string selection;    ///< which_files: as select() reads it; empty: all
    bool none = false;        ///< which_files: not one
};

/// An open question. A plain record: it holds data, and clients make sentences of it.
struct Question {
    std::uint64_t id = 0;  ///< given by the board; never used twice in a run
    QuestionKind kind = QuestionKind::host_key;
    Guid job;                  ///< zero: the question is about no single job
    std::string server;        ///< host, with its port where that is not the usual one
    std::string fingerprint;   ///< of the key or certificate; as SSH and TLS tools write it
    std::u16string path;       ///< overwrite: the file that is there
    bool was_refused = false;  ///< credentials: the job gave a login, and the server did not take it
    /// which_files: the files, by their jobs, which are filed and wait for the answer.
    struct File {
        Guid job;
        std::u16string name;
        std::int64_t size = -1;  ///< bytes; negative: unknown
        bool starts = true;      ///< once it is chosen; false: it was filed to stay stopped
    };
    std::vector<File> files{};
    QuestionAnswer standard;                        ///< the answer that holds when nobody answers in time
    std::chrono::steady_clock::time_point until{};  ///< given by the board
};

/// The open questions of one engine. Any thread may call everything.
///
/// Two ways to ask: ask() waits for the answer on a thread of a session; leave() puts a question up that
/// nobody waits for, about a job that ended, and take_answered() gives the answers to who acts on them.
class QuestionBoard {
  public:
    using Clock = std::chrono::steady_clock;

    QuestionBoard() = default;
    QuestionBoard(const QuestionBoard&) = delete;
    QuestionBoard& operator=(const QuestionBoard&) = delete;

    /// Opens the board for questions, or closes it with time 0. To be called before the first question and
    /// after the last one, not concurrently with others. `time`: how long a question stays open; with 0, the
    /// initial value, the default holds at once. `changed` is called without a lock whenever a question came
    /// or went, from any thread; it must return soon.
    void open_for(std::chrono::milliseconds time, std::function<void()> changed = {}) {
        time_ = time;
        changed_ = std::move(changed);
    }

    /// Waits for an answer, for the time of the board, or until `stop` is requested; then the default holds.
    /// Another thread that asks the same (kind, server and fingerprint) in the meantime waits for the same
    /// answer.
    QuestionAnswer ask(Question question, const StopSource& stop);

    /// Adds a question without waiting. One of the same kind about the same job is replaced, where it is
    /// about one.
    void leave(Question question);
    /// Takes the questions of leave() that were answered, or lapsed, since the last call.
    struct Answered {
        Question question;
        QuestionAnswer answer;
        bool lapsed = false;  ///< nobody answered in time
    };
    std::vector<Answered> take_answered(Clock::time_point now = Clock::now());
    /// Withdraws the questions about a job, as if they had never been asked.
    void withdraw(const Guid& job);

    /// Answers a question; false when there is none of this number (any more).
    bool answer(std::uint64_t id, QuestionAnswer answer);
    /// The open questions, the oldest first.
    [[nodiscard]] std::vector<Question> open() const;
    /// True while a question of this kind is open.
    [[nodiscard]] bool has(QuestionKind kind) const;
    [[nodiscard]] bool can_ask() const noexcept { return time_.count() > 0; }

  private:
    struct Entry {
        Question question;
        QuestionAnswer answer;
        int waiting = 0;  ///< threads in ask()
        bool answered = false;
    };
    std::uint64_t put_up(Question question) VANTLOW_REQUIRES(mutex_);
    [[nodiscard]] std::uint64_t find_same(const Question& question) const VANTLOW_REQUIRES(mutex_);
    void tell() const {
        if (changed_) changed_();
    }

    std::chrono::milliseconds time_{0};
    std::function<void()> changed_;
    mutable Mutex mutex_;
    StopCondition answered_;
    std::map<std::uint64_t, Entry> entries_ VANTLOW_GUARDED_BY(mutex_);
    std::vector<Answered> done_ VANTLOW_GUARDED_BY(mutex_);
    std::uint64_t last_id_ VANTLOW_GUARDED_BY(mutex_) = 0;
};

}  // namespace vantlow
