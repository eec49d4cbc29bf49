// What the engine cannot decide by itself: questions that any client may answer, each with a default after a
// time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/mutex.h"
#include "platform/stop.h"

namespace vantlow {

/// What is asked.
enum class QuestionKind {
    host_key,     ///< is this SSH server to be trusted from now on
    certificate,  ///< is this job to go on although the certificate of its server is not trusted
    credentials,  ///< which login does this server take
    overwrite,    ///< what is to become of the file that has the job's name
};

/// An answer; each kind of question reads its own members.
struct QuestionAnswer {
    bool yes = false;         ///< host_key, certificate: trust it; overwrite: the file is replaced
    bool rename = false;      ///< overwrite: both are kept
    std::u16string user;      ///< credentials; empty: none are given
    std::u16string password;  ///< credentials
};

/// An open question. A plain record: what stands in it is data, clients make sentences of it.
struct Question {
    std::uint64_t id = 0;  ///< given by the board; never used twice in a run
    QuestionKind kind = QuestionKind::host_key;
    Guid job;                 ///< zero: the question is about no single job
    std::string server;       ///< host, with its port where that is not the usual one
    std::string fingerprint;  ///< of the key or certificate; as SSH and TLS tools write it
    std::u16string path;      ///< overwrite: the file that is there
    QuestionAnswer standard;  ///< what holds when nobody answers in time
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

    /// Before anybody asks, and once nobody does any more; not from any thread. `time`: how long a question
    /// stays open; 0, as in the beginning: the default holds at once, nobody can be asked. `changed` is
    /// called without a lock whenever a question came or went, from whichever thread; it must return soon.
    void open_for(std::chrono::milliseconds time, std::function<void()> changed = {}) {
        time_ = time;
        changed_ = std::move(changed);
    }

    /// Waits for an answer, for the time of the board, or until `stop` is requested; then the default holds.
    /// Who asks the same (kind, server and fingerprint) while it is open waits for the same answer.
    QuestionAnswer ask(Question question, const StopSource& stop);

    /// Puts a question up. One of the same kind about the same job is replaced.
    void leave(Question question);
    /// Takes the questions of leave() that were answered, or lapsed, since the last call.
    struct Answered {
        Question question;
        QuestionAnswer answer;
        bool lapsed = false;  ///< nobody answered in time
    };
    std::vector<Answered> take_answered(Clock::time_point now = Clock::now());
    /// The questions about a job go, as if they had never been asked.
    void withdraw(const Guid& job);

    /// False when there is no such question (any more).
    bool answer(std::uint64_t id, QuestionAnswer answer);
    /// The open questions, the oldest first.
    [[nodiscard]] std::vector<Question> open() const;
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
    std::condition_variable_any answered_;
    std::map<std::uint64_t, Entry> entries_ VANTLOW_GUARDED_BY(mutex_);
    std::vector<Answered> done_ VANTLOW_GUARDED_BY(mutex_);
    std::uint64_t last_id_ VANTLOW_GUARDED_BY(mutex_) = 0;
};

}  // namespace vantlow
