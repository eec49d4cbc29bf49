// The end of a command: its messages to the person who gave it, its exit status, and the end of the process.
// Messages are harmless for a terminal whatever a network or a file put into them.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "base/log.h"
#include "base/result.h"

namespace vantlow {

class Resolver;

/// Exit statuses of the program. Those from local_file on are the reasons of `get`; other commands that run
/// jobs end with `failed` where one failed.
enum class Exit : int {
    done = 0,         ///< everything that was asked for is done
    failed = 1,       ///< some of it failed, for several reasons or for another one than those below
    usage = 2,        ///< the command line is wrong, and nothing was done
    local_file = 3,   ///< the local file could not be written
    network = 4,      ///< the network or the server failed for good
    credentials = 5,  ///< the server or the proxy refused the credentials
    not_trusted = 6,  ///< a certificate or a host key is not trusted
    hash = 7,         ///< the file's hash differs from the given one
    interrupted = 130,
};

/// Returns the status that a job's result stands for.
Exit exit_of(const Result& result) noexcept;

/// Writes a line to stdout.
void say(std::string_view line);

/// Writes "vantlow: TEXT" to stderr: something to know, not an error.
void tell(std::string_view text);

/// Writes an error the same way. Returns the status, which is the one that the command ends with then.
Exit complain(std::string_view text, Exit status = Exit::failed);

/// Complains once where the standard output could not be written; true then.
bool complain_of_lost_output();

/// Returns the two characters in front of a log line: "> " sent, "< " received, "! " an error, "  " a note.
std::string_view log_mark(Direction direction) noexcept;

/// Shows the log of one conversation on stderr, where `shown`. Any thread.
class ConsoleLog : public LogSink {
  public:
    /// `name` stands in brackets in front of each line, where there is one.
    ConsoleLog(std::string_view name, bool shown);
    void line(Direction direction, std::string_view text) override;

  private:
    std::string prefix_;
    bool shown_;
};

/// Returns the status that the process ends with: this one, unless output was lost, which is reported here
/// and is no success.
Exit final_status(Exit status);

/// Ends a command that looked names up, and returns its status. A look-up that the system has not ended yet
/// cannot be called back: the process ends here then, after `last`, with final_status(). So everything must
/// be saved before.
Exit leave(Resolver& resolver, Exit status, const std::function<void()>& last = {});

/// The handler of an InterruptWatch whose context is a StopSource: it requests the stop, and from the second
/// time on ends the process at once, with Exit::interrupted. Called on the thread of the interrupt.
void stop_at_interrupt(void* stop_source, int count);

}  // namespace vantlow
