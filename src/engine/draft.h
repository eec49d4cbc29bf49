// A person's request, before there are jobs.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/guid.h"
#include "engine/schedule.h"
#include "platform/file.h"
#include "store/job.h"

namespace vantlow {

/// Links, with the properties that their jobs are to have. An empty text asks for nothing.
struct JobDraft : JobRequest {
    std::vector<std::string> links;  ///< UTF-8: addresses, magnets, or paths of documents on this machine
    std::optional<Guid> category;    ///< none: as the rules of the categories say, else the first one
    Guid identity;                   ///< of the first new job that is made; zero: any
    std::u16string folder;           ///< absolute; empty: the category's
    std::u16string name;             ///< of the one file that is asked for
    std::u16string comment;          ///< empty: as a document says
    std::optional<std::int32_t> retries;
    std::optional<std::int32_t> retry_delay;  ///< seconds
    std::optional<ExpectedHash> hash;         ///< of the one file that is asked for
    std::string select;                       ///< which files of a document: "1,3-5"; empty: all
    std::shared_ptr<const PostedForm> form;   ///< of the one link that is asked for by POST; null: by GET
    bool asks_which = false;  ///< a question asks which files of a document of several are meant
    bool fresh = false;       ///< files of an earlier run are removed, not continued
    bool paused = false;      ///< the jobs are filed stopped
    JobSchedule schedule;     ///< when they run; out of their times they are filed stopped, too
};

/// Reads "ALGO:HEX" ("sha256:..."); none where the text is no such hash.
std::optional<ExpectedHash> parse_hash(std::string_view text);

/// The reason why a link did not become jobs, or not all that it names. A plain record: it holds data, and
/// clients make sentences of it.
struct DraftFault {
    enum class Kind {
        unreadable,     ///< the document at `subject`: `file`
        no_torrent,     ///< `subject` is no torrent
        no_info_hash,   ///< the torrent or magnet link `subject` has none
        wrong_sizes,    ///< the sizes in the torrent `subject` cannot be right
        no_memory,      ///< for `subject`
        no_document,    ///< the file of this machine `subject` is none that names files
        no_file_link,   ///< the eDonkey link `subject` is not one of a file
        no_address,     ///< the file `item` of the document `subject` has no address that could be fetched
        not_fetchable,  ///< the address `item` of the document `subject` cannot be fetched
        not_chosen,     ///< nothing in the document `subject` is named `item`
        nothing,        ///< nothing in the document `subject` can be fetched
        one_name,       ///< a name is for one file, but the document `subject` has `count`
        one_hash,       ///< a hash is for one file, but the document `subject` has `count`
        not_kept,       ///< the torrent `subject` was not kept; its description is asked for again: `file`
        not_removed,    ///< the document `subject` was read but its file is still there: `file`
    };
    Kind kind = Kind::nothing;
    std::u16string subject{};  ///< without credentials
    std::string item{};  ///< UTF-8, as the document writes it; of no_address also "#3" for a nameless one
    std::size_t count = 0;
    FileError file{};
};

}  // namespace vantlow
