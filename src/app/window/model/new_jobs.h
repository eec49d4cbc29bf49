// The new-job dialog without the dialog: from a text to a draft.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/window/model/links.h"
#include "engine/engine.h"
#include "engine/schedule_texts.h"

namespace vantlow {

/// The values of the dialog.
struct NewJobForm {
    std::string addresses;     ///< UTF-8: one a line
    bool expand = true;        ///< patterns are meant
    std::u16string folder;     ///< empty: the category's
    std::u16string name;       ///< for one address only
    std::u16string said_name;  ///< as the server of the only address names the file; empty: unsaid
    Guid category;
    bool category_is_chosen = false;  ///< by a person; else it follows the rules
    std::u16string comment, referer, agent, cookie, proxy, user, password;
    int connections = 5;
    std::string limit;  ///< bytes a second: "500K"; empty: none
    std::string hash;   ///< "sha256:HEX"; empty: none
    enum class Start { at_once, by_hand, by_plan };
    Start start = Start::at_once;
    TimesWish times;           ///< of its own; with a start the choice above does not count
    std::vector<bool> chosen;  ///< among NewJobs::files(); empty: all
};

/// A file of a torrent that is to be added.
struct TorrentEntry {
    std::u16string name;  ///< below the torrent's folder, safe, with this system's separators
    std::int64_t size = 0;
    bool operator==(const TorrentEntry&) const = default;
};

/// The faults of a form, by their fields.
struct FormFault {
    enum class Field { addresses, folder, name, connections, limit, hash, proxy, category, files, times };
    enum class Kind {
        empty,          ///< there is no address
        not_fetchable,  ///< the address `subject`
        too_many,       ///< patterns make more links than most_pattern_links
        not_absolute,   ///< the folder is no full path
        no_file_name,   ///< the name cannot be one
        for_one_file,   ///< a name or a hash, but several addresses
        out_of_bounds,  ///< a number
        not_read,       ///< the text is none of its kind
        none_chosen,    ///< not one of the files
        no_times,       ///< the times, or not such that follow each other
    };
    Field field = Field::addresses;
    Kind kind = Kind::empty;
    std::string subject{};  ///< UTF-8, without credentials
    bool operator==(const FormFault&) const = default;
};
std::string sentence_of(const FormFault& fault);

/// A sentence about what a server says of a file.
std::string sentence_of(const ServerSays& says);

/// Jobs that have one of these addresses already.
struct KnownAddress {
    std::string link;
    Guid job;
    JobState state = JobState::waiting;
};

/// Belongs to the engine's thread.
class NewJobs {
  public:
    explicit NewJobs(const Engine& engine) : engine_(engine) {}

    /// A form with the links of the text (clipboard, drop). The category is that which was chosen; zero: none
    /// was.
    [[nodiscard]] NewJobForm form_of(std::string_view text, const Guid& category) const;
    /// The category of the form: the chosen one, or that of its first address by the rules, which go by the
    /// form's name, else by the server's.
    [[nodiscard]] Guid category_of(const NewJobForm& form) const;
    /// False where there is no week plan to go by.
    [[nodiscard]] bool has_plan() const { return engine_.week_plan().days != 0; }
    /// The folder that the form's jobs are put in.
    [[nodiscard]] std::u16string folder_of(const NewJobForm& form) const;
    [[nodiscard]] std::vector<std::string> preview(const NewJobForm& form, std::size_t at_most) const;
    [[nodiscard]] std::vector<FormFault> check(const NewJobForm& form) const;
    /// The draft of a form without faults.
    [[nodiscard]] JobDraft draft_of(const NewJobForm& form) const;
    /// The jobs that the form's addresses have already.
    [[nodiscard]] std::vector<KnownAddress> known(const NewJobForm& form) const;
    /// All of the form that a server would be asked by; empty where there is no server to ask
    /// (Engine::inquire).
    [[nodiscard]] std::string question_of(const NewJobForm& form) const;
    /// Asks the server of the form's only address.
    [[nodiscard]] std::unique_ptr<Inquiry> inquire(const NewJobForm& form, std::function<void()> wake) const;
    /// The files of the torrent that is the form's only address: of a document on this machine, or of a
    /// magnet whose document is kept. Empty for other addresses, and where they are not known yet. A document
    /// is read when another address is asked about; the list holds until then.
    [[nodiscard]] const std::vector<TorrentEntry>& files(const NewJobForm& form);
    /// A sentence where they will be known later only (a magnet); else empty.
    [[nodiscard]] std::string note_on_files(const NewJobForm& form);

  private:
    const Engine& engine_;
    std::string files_of_;  ///< the address
    std::vector<TorrentEntry> files_;
};

}  // namespace vantlow
