#include "app/process/messages.h"

#include "app/terminal/display_text.h"
#include "platform/console.h"
#include "platform/system_text.h"

namespace vantlow {

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

}  // namespace vantlow
