// The downloads as the methods of front ends see them: records, and what can be done.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/guid.h"
#include "rpc/option_words.h"

namespace vantlow::rpc {

/// The groups that lists are divided into; `waiting` has the paused ones, too.
enum class Group { active, waiting, stopped };

enum class Phase { active, waiting, paused, failed, complete, removed };

/// An address of a file.
struct Source {
    std::string address;  ///< without credentials
    bool is_used = false;
};

struct FileStatus {
    std::string path;  ///< begins with "[METADATA]" while only a magnet link is known
    std::int64_t length = 0;
    std::int64_t done = 0;
    bool is_selected = true;
    std::vector<Source> sources{};
};

/// The facts of a torrent beside its files.
struct TorrentStatus {
    std::string info_hash;  ///< 40 hexadecimal digits
    std::string name;
    std::string comment{};
    std::int64_t created = 0;  ///< seconds since 1970; 0: unsaid
    bool is_multi_file = false;
    std::vector<std::vector<std::string>> tiers{};  ///< of trackers
    std::int64_t seeders = 0;
    bool seeds = false;
    bool is_described = true;  ///< false: only its magnet link is known
};

/// A download at one moment. Sizes are bytes, 0 where unknown; speeds bytes a second.
struct JobStatus {
    Guid job;
    Phase phase = Phase::waiting;
    std::string folder;
    std::int64_t length = 0;
    std::int64_t done = 0;
    std::int64_t uploaded = 0;
    std::int64_t down_speed = 0;
    std::int64_t up_speed = 0;
    std::int64_t connections = 0;
    std::int64_t piece_length = 0;
    std::int64_t pieces = 0;
    std::vector<bool> bitfield{};  ///< a bit a piece, or empty
    int error_code = 0;            ///< of a stopped one: of Reason
    std::string error{};           ///< a sentence; may be empty
    std::vector<Guid> followed_by{};
    std::optional<Guid> following{};
    std::vector<FileStatus> files{};
    std::optional<TorrentStatus> torrent{};
    std::optional<std::int64_t> verified{};  ///< while its pieces are checked: bytes
};

/// The costly parts of a status, as bits: who asks for a status says which it wants.
namespace part {
inline constexpr unsigned files = 1;
inline constexpr unsigned bitfield = 2;
inline constexpr unsigned torrent = 4;
inline constexpr unsigned all = 7;
}  // namespace part

struct Peer {
    std::string id;  ///< raw bytes; empty: not known
    std::string address;
    std::int64_t port = 0;  ///< 0: it came in
    std::vector<bool> bitfield{};
    bool we_choke = true;
    bool it_chokes = true;
    std::int64_t down_speed = 0;  ///< from it
    std::int64_t up_speed = 0;
    bool seeds = false;
};

/// The request for a new download: addresses of one file, or a document.
struct NewJob {
    enum class Document { none, torrent, metalink };
    std::vector<std::string> addresses{};
    Document kind = Document::none;
    std::string document{};  ///< its bytes
    JobOptions options{};
    std::optional<std::int64_t> position{};  ///< among those that wait, from 0; none: the last
};

struct Totals {
    std::int64_t down_speed = 0;
    std::int64_t up_speed = 0;
    std::size_t active = 0;
    std::size_t waiting = 0;
    std::size_t stopped = 0;
    std::size_t stopped_ever = 0;  ///< in this run
};

/// A sentence that says why something was not done; none where it was.
using Problem = std::optional<std::string>;

/// The downloads. Everything is for one thread. Jobs that are asked for were found before.
class Downloads {
  public:
    Downloads() = default;
    Downloads(const Downloads&) = delete;
    Downloads& operator=(const Downloads&) = delete;
    virtual ~Downloads() = default;

    // ---- Looking.

    /// Those of the group in its order: by their places in the queue; of stopped ones the latest is the last.
    [[nodiscard]] virtual const std::vector<Guid>& list(Group group) = 0;
    /// Whether there is this one, or its result, still.
    [[nodiscard]] virtual bool has(const Guid& job) = 0;
    /// The downloads whose identity's digits begin so: none, one, or some of several.
    [[nodiscard]] virtual std::vector<Guid> find(std::string_view digits) = 0;
    [[nodiscard]] virtual Phase phase(const Guid& job) = 0;
    /// `parts`: of namespace part; the others may be left empty.
    [[nodiscard]] virtual JobStatus status(const Guid& job, unsigned parts) = 0;
    /// The options that would make the same download again.
    [[nodiscard]] virtual JobOptions options(const Guid& job) = 0;
    /// The servers that give something now, as host and port.
    [[nodiscard]] virtual std::vector<std::string> servers(const Guid& job) = 0;
    [[nodiscard]] virtual std::vector<Peer> peers(const Guid& job) = 0;
    [[nodiscard]] virtual GlobalOptions global_options() = 0;
    [[nodiscard]] virtual Totals totals() = 0;
    /// Of the interface, not of the program: front ends ask for features by it.
    [[nodiscard]] virtual std::string version() = 0;
    /// Another one for every run of the program: 40 hexadecimal digits.
    [[nodiscard]] virtual std::string session() = 0;

    // ---- Doing.

    struct Added {
        std::vector<Guid> jobs;
        std::string problem;  ///< why there is none
    };
    virtual Added add(const NewJob& job) = 0;
    virtual Problem pause(const Guid& job) = 0;
    virtual Problem unpause(const Guid& job) = 0;
    /// Removes it from the list; its files stay. One that is active is listed as removed afterwards.
    virtual Problem remove(const Guid& job) = 0;
    virtual Problem change(const Guid& job, const JobOptions& options) = 0;
    virtual Problem change_sources(const Guid& job, const std::vector<std::string>& addresses) = 0;
    /// Moves it to this place among `list(Group::waiting)`, which has one.
    virtual Problem move(const Guid& job, std::size_t place) = 0;
    virtual Problem change_global(const GlobalOptions& options) = 0;
    virtual void save() = 0;
    /// Ends the program soon.
    virtual void shut_down() = 0;
};

/// The number by which front ends know why a download ended.
enum class Reason : int {
    done = 0,
    unknown = 1,
    time_out = 2,
    not_found = 3,
    network = 6,
    no_resume = 8,
    disk_full = 9,
    file_exists = 13,
    no_file = 16,
    not_resolved = 19,
    bad_answer = 22,
    login = 24,
    wrong_hash = 32,
};

/// A download's identity in the words of front ends: the first 16 of its digits.
std::string gid_of(const Guid& job);

}  // namespace vantlow::rpc
