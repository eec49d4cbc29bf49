#include "app/process/application.h"

#include "app/process/data_folder_change.h"
#include "app/process/ending.h"
#include "platform/console.h"
#include "platform/file.h"
#include "platform/local_text.h"
#include "platform/process.h"
#include "platform/socket.h"
#include "store/data_folder.h"

namespace vantlow {

bool CFerrywellApp::start(const StartOptions& options, std::string& error) {
    set_default_locale();
    program_file_ = program_path();
    libraries_ = load_libraries(folder_of(program_file_));
    host_names_.emplace(libraries_.names);
    if (!start_sockets()) {
        error = "The system's sockets could not be started.";
        return false;
    }
    settings_ = std::make_unique<Settings>(
        options.settings_file.empty() ? open_user_settings() : open_settings_file(options.settings_file));
    version_ = product_version();
    folder_named_ = !options.data_folder.empty();
    const std::u16string folder = folder_named_ ? absolute_path(options.data_folder) : chosen_data_folder();
    data_folder_ = folder_named_ ? folder : folder_of_jobs(folder);
    leaves_folder_ = data_folder_ != folder;
    return true;
}

std::u16string CFerrywellApp::chosen_data_folder() const {
    const DataFolderSources sources{settings_->text(setting::data_folder), program_file_, user_logon_name(),
                                    folder_of(user_data_folder()), path_separator()};
    const auto can_keep = [&](const std::u16string& folder) {
        return !belongs_to_packages(folder) && !is_in_build_folder(program_file_) && can_write_below(folder);
    };
    return absolute_path(writable_data_folder(sources, can_keep));
}

FileError CFerrywellApp::follow_data_folder() {
    if (folder_named_) return {};
    const FileError error = announce_data_folder(data_folder_, chosen_data_folder());
    if (error.ok() && !engine_) settle_data_folder();
    return error;
}

void CFerrywellApp::settle_data_folder() {
    if (folder_named_) return;
    const std::u16string chosen = chosen_data_folder();
    if (chosen == data_folder_ || folder_of_jobs(chosen) != data_folder_) return;
    using Claim = DataFolderLock::Claim;
    FileError error;
    DataFolderLock here;  // of this call alone, where the process does not hold it
    const bool holds = folder_lock_.is_mine();
    if (!holds && here.claim(data_folder_, error) != Claim::mine) return;  // its owner does it
    DataFolderLock there;
    const Claim claim = there.claim(chosen, error);
    if (claim == Claim::taken) error = {FileFault::in_use, 0};
    if (claim == Claim::mine) {
        engine_.reset();
        ConsoleLog log({}, true);
        error = move_data_folder(data_folder_, chosen, output_file_, log);
    }
    if (!error.ok()) {
        complain("The jobs stay in the data folder " + to_utf8(data_folder_) +
                 " for now: " + to_utf8(chosen) + ": " + error.text());
        return;
    }
    data_folder_ = chosen;
    if (holds) folder_lock_ = std::move(there);
}

Engine::Options CFerrywellApp::engine_options() {
    return {*settings_, libraries_, stop_, data_folder_, u"Vantlow/" + version_, netrc_lookup()};
}

Engine* CFerrywellApp::engine(std::string& error) {
    if (engine_) return engine_.get();
    DataFolderLock* const lock = folder_lock_.is_mine() ? &folder_lock_ : nullptr;
    const auto replaced = [this] {
        // Where that fails the messages go on into the file that was removed: nobody else gets them.
        if (!output_file_.empty()) static_cast<void>(continue_streams_in(output_file_));
    };
    auto store =
        JobStore::open({data_folder_, user_download_folder(), lock != nullptr, lock, replaced}, error);
    if (!store) return nullptr;
    // A rescued store is made safe before anything else happens to it.
    std::string failure;
    const bool rescued = store->is_dirty() && !store->notes().empty() && folder_lock_.is_mine();
    if (rescued && !store->save(*settings_, failure)) complain(failure);
    std::vector<std::string> notes = store->notes();
    // A tree without a root has nowhere to put anything; the last note says why.
    const bool is_of_no_use = store->tree().root() == nullptr;
    if (is_of_no_use) {
        error = notes.empty() ? "There is no job database." : notes.back();
        if (!notes.empty()) notes.pop_back();
    }
    for (const std::string& note : notes) complain(note);
    if (is_of_no_use) return nullptr;
    engine_ = std::make_unique<Engine>(std::move(store), engine_options());
    return engine_.get();
}

}  // namespace vantlow
