#include "app/process/ending.h"

#include <array>

#include "app/terminal/display_text.h"
#include "platform/console.h"
#include "platform/local_text.h"
#include "platform/process.h"
#include "platform/stop.h"
#include "transfer/connection/resolver.h"

namespace vantlow {

Exit exit_of(const Result& result) noexcept {
    if (result.ok()) return Exit::done;
    if (result.about_credentials) return Exit::credentials;
    switch (result.code) {
        case Code::local_file:
            return Exit::local_file;
        case Code::credentials_refused:
            return Exit::credentials;
        case Code::not_trusted:
            return Exit::not_trusted;
        case Code::hash_differs:
            return Exit::hash;
        case Code::cancelled:
        case Code::invalid_url:
        case Code::unsupported:
            return Exit::failed;
        case Code::stopped:
            return Exit::interrupted;
        default:
            return Exit::network;
    }
}

void say(std::string_view line) {
    write_stream(Stream::output, printable(line) + "\n");
}

void tell(std::string_view text) {
    write_stream(Stream::error, "vantlow: " + printable(text) + "\n");
}

Exit complain(std::string_view text, Exit status) {
    tell(text);
    return status;
}

bool complain_of_lost_output() {
    const int failure = take_output_failure();
    if (failure != 0) complain("The standard output cannot be written: " + system_text(failure));
    return failure != 0;
}

std::string_view log_mark(Direction direction) noexcept {
    static constexpr std::array<std::string_view, 4> marks{"  ", "> ", "! ", "< "};
    return marks.at(static_cast<std::size_t>(direction));
}

ConsoleLog::ConsoleLog(std::string_view name, bool shown) : shown_(shown) {
    if (!name.empty()) prefix_.append("[").append(name).append("] ");
}

void ConsoleLog::line(Direction direction, std::string_view text) {
    if (!shown_) return;
    write_stream(Stream::error, prefix_ + std::string(log_mark(direction)) + printable(text) + "\n");
}

Exit final_status(Exit status) {
    return complain_of_lost_output() && status == Exit::done ? Exit::failed : status;
}

Exit leave(Resolver& resolver, Exit status, const std::function<void()>& last) {
    if (resolver.settle(std::chrono::milliseconds(50))) return status;
    if (last) last();
    end_process(static_cast<int>(final_status(status)));
}

void stop_at_interrupt(void* stop_source, int count) {
    if (count > 1) end_process(static_cast<int>(Exit::interrupted));
    static_cast<StopSource*>(stop_source)->request();
}

}  // namespace vantlow
