// The progress display on a real terminal: a pseudo-terminal with rows and columns.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "../slow_list.h"

namespace vantlow::test {
namespace {

constexpr unsigned short rows = 10;

/// A program that has a terminal of ten rows. Killed at the end where it still runs.
class InTerminal {
  public:
    explicit InTerminal(const Words& words) {
        std::vector<std::string> texts{to_utf8(vantlow_program())};
        for (const std::u16string& word : words) texts.push_back(to_utf8(word));
        std::vector<char*> pointers;
        for (std::string& text : texts) pointers.push_back(text.data());
        pointers.push_back(nullptr);
        winsize size{};
        size.ws_row = rows;
        size.ws_col = 100;
        child_ = ::forkpty(&terminal_, nullptr, nullptr, &size);
        if (child_ != 0) return;
        ::setenv("TERM", "xterm", 1);  // NOLINT(concurrency-mt-unsafe): the child has this thread alone
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    ~InTerminal() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        ::close(terminal_);
    }
    InTerminal(const InTerminal&) = delete;
    InTerminal& operator=(const InTerminal&) = delete;

    /// What it writes within this time.
    std::string read_for(milliseconds time) const {
        std::string text;
        const auto until = Clock::now() + time;
        while (Clock::now() < until) {
            pollfd entry{terminal_, POLLIN, 0};
            if (::poll(&entry, 1, 50) <= 0) continue;
            char bytes[4096];
            const ssize_t count = ::read(terminal_, bytes, sizeof bytes);
            if (count <= 0) break;
            text.append(bytes, static_cast<std::size_t>(count));
        }
        return text;
    }

  private:
    pid_t child_ = -1;
    int terminal_ = -1;
};

/// How a terminal of ten rows moves at these bytes: lines that leave it at its top, the longest way up that
/// the cursor is sent, and how often it is.
struct Movement {
    explicit Movement(std::string_view bytes) {
        int row = 0;
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            if (bytes[at] == '\n' && ++row == rows) {
                ++scrolled;
                --row;
            }
            if (bytes.substr(at, 2) != "\x1b[") continue;
            const auto end = bytes.find_first_of("ABCDHJKfhlm", at + 2);
            if (end == std::string_view::npos) break;
            if (bytes[end] == 'A') {
                const int up =
                    std::max(1, std::atoi(std::string(bytes.substr(at + 2, end - at - 2)).c_str()));
                highest = std::max(highest, up);
                ++redrawn;
                row = std::max(0, row - up);
            }
            at = end;
        }
    }
    int scrolled = 0;
    int highest = 0;
    int redrawn = 0;
};

using Terminal = GetProgram;

TEST_F(Terminal, IsNeverLowerThanTheProgressThatIsDrawn) {
    constexpr int jobs = 30;
    FileServer server;
    own.write(u"list", serve_slow_list(server, jobs));
    const InTerminal program(words({u"-n", u"1", u"-j", u"30", u"-i", own.path(u"list")}));
    ASSERT_TRUE(server.server().wait_for_requests(jobs));
    const std::string drawn = program.read_for(milliseconds(2500));
    const Movement movement(drawn);
    EXPECT_GE(movement.redrawn, 5) << drawn;
    EXPECT_GE(movement.highest, rows / 2) << "not much of it is used";
    EXPECT_LT(movement.highest, rows) << "the cursor cannot go so far up";
    // The first drawing moves away what stood there.
    EXPECT_LE(movement.scrolled, rows) << drawn;
}

}  // namespace
}  // namespace vantlow::test
