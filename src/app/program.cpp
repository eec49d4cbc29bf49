#include "app/program.h"

#include "app/cli/command_line.h"
#include "app/dispatch.h"
#include "app/process/messages.h"
#include "platform/console.h"

namespace vantlow {

namespace {

Exit run(const std::vector<std::string>& words) {
    const Command command = parse_command_line(words);
    if (!command.run) {
        write_stream(command.status == Exit::done ? Stream::output : Stream::error, command.text);
        return command.status;
    }
    CFerrywellApp app;
    std::string error;
    if (!app.start({command.global.settings_file, command.global.data_folder}, error)) {
        return complain(error);
    }
    if (const Complaint complaint = apply_overrides(command.global, app.settings())) {
        return complain(*complaint, Exit::usage);
    }
    return run_command(app, command, words);
}

}  // namespace

Exit run_program(const std::vector<std::string>& words) {
    return final_status(run(words));
}

}  // namespace vantlow
