// The news that an engine's clients get.
#pragma once

#include <vector>

#include "engine/changes.h"
#include "engine/draft.h"
#include "engine/questions.h"
#include "engine/session_runner.h"

namespace vantlow {

struct Done;

/// A job whose file was a document, and its result.
struct Followed {
    Guid document;
    bool gave_way = false;           ///< false: it stays, since something in it cannot be fetched
    std::vector<Guid> jobs;          ///< that it names and that were filed
    std::vector<DraftFault> faults;  ///< why there are none, or not all
};

/// A client of the engine. Every operation is called on the engine's thread, from inside of Engine::pump()
/// and the operations that change something at once; it may call the engine's look-ups, but no operation.
class EngineListener {
  public:
    EngineListener() = default;
    EngineListener(const EngineListener&) = delete;
    EngineListener& operator=(const EngineListener&) = delete;
    virtual ~EngineListener() = default;

    /// Some times a second at most, when anything changed.
    virtual void changed(const Changes& changes) { static_cast<void>(changes); }
    /// The files of a torrent's job are there, and have their names. ended() follows at once: with `goes_on`
    /// where it is shared from now on, and then once more when that is over.
    virtual void data_complete(const Guid& job) { static_cast<void>(job); }
    /// A job ended, or settled.
    virtual void ended(const JobEnd& end) { static_cast<void>(end); }
    virtual void followed(const Followed& followed) { static_cast<void>(followed); }
    /// A move of the job's files that went on behind its operation has succeeded or failed.
    virtual void moved(const Guid& job, const Done& done) {
        static_cast<void>(job);
        static_cast<void>(done);
    }
    /// The set of open questions has changed.
    virtual void asked(const std::vector<Question>& open) { static_cast<void>(open); }
    /// Lines of job logs, where the engine gathers them.
    virtual void logged(const std::vector<LogLine>& lines) { static_cast<void>(lines); }
    /// The store could not be saved (reported once for each reason), or noticed something about its folder.
    /// UTF-8, in the store's words.
    virtual void store_said(const std::string& text) { static_cast<void>(text); }
};

}  // namespace vantlow
