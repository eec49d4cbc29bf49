#include "app/dispatch.h"

#include "app/store_command.h"
#include "base/text.h"
#include "platform/socket.h"

namespace vantlow {
namespace {

// Commands that work on the folder by themselves are done in less.
constexpr std::chrono::seconds patience{10};
constexpr std::chrono::milliseconds step{20};

bool take_folder(CFerrywellApp& app) {
    const auto until = Clock::now() + patience;
    for (;;) {
        FileError error;
        switch (app.folder_lock().claim(app.data_folder(), error)) {
            case DataFolderLock::Claim::mine:
            case DataFolderLock::Claim::no_disk:  // what only reads can do all the same
                return true;
            case DataFolderLock::Claim::failed:
                complain("The data folder " + to_utf8(app.data_folder()) +
                         " cannot be used: " + error.text());
                return false;
            case DataFolderLock::Claim::taken:
                break;
        }
        if (Clock::now() >= until || app.stop().wait_for(step)) break;
    }
    complain("The data folder " + to_utf8(app.data_folder()) + " is in use by another Vantlow.");
    return false;
}

}  // namespace

Exit run_command(CFerrywellApp& app, const Command& command) {
    if (command.on_data_folder && !take_folder(app)) return Exit::failed;
    return command.run(app, command.global);
}

}  // namespace vantlow
