// The records that every part of the program shares: jobs, their segments and the nodes around them.
//
// Plain records: they touch neither network nor disk. Who may change a job while it runs: its transfer
// threads and the user-interface thread, each holding the job's lock.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/guid.h"
#include "base/result.h"
#include "store/job_sources.h"

namespace vantlow {

/// A fresh identity.
Guid new_guid();

/// The part of a job that the queues see.
class CQueueNode {
  public:
    virtual ~CQueueNode() = default;

    std::int32_t order = 0;  ///< place in its queue, ascending
};

/// One entry of a job's own timetable.
class CScheduleNode {
  public:
    virtual ~CScheduleNode() = default;

    std::int32_t action = 0;    ///< 1 start, 2 stop
    std::int32_t weekdays = 0;  ///< bit 0 Sunday ... bit 6 Saturday; 0: once; -N: every N seconds from then
    std::int64_t time = 0;      ///< seconds since 1970, or since midnight, local time (on weekdays)
};

/// A proxy server.
class CProxyNode {
  public:
    virtual ~CProxyNode() = default;

    enum : std::int32_t { direct = 0, socks4 = 4, socks5 = 5, http = 10, http_tunnel = 11 };

    std::u16string host;
    std::int32_t port = 0;
    std::int32_t kind = direct;
    std::u16string user;
    std::u16string password;
    /// The password in its list's form, where this user of this machine cannot read it; it is written back
    /// unchanged.
    std::string sealed_password;
};

/// The end of a segment whose resource has no known size.
inline constexpr std::int64_t unknown_end = std::numeric_limits<std::int64_t>::max();

/// One segment: the range of a job that is still to be fetched. [start, end) shrinks from the front as bytes
/// are written, so that start == end means done; what lies between one segment's end and the next one's start
/// is on the disk.
class CJobSeg {
  public:
    virtual ~CJobSeg() = default;

    struct Slot {
        std::u16string text;
        std::int32_t number = 0;
        std::int64_t value = 0;
        bool operator==(const Slot&) const = default;
    };
    /// The attributes that only some protocols keep with a segment.
    struct Extra {
        std::int64_t start_time = 0;   ///< milliseconds, for time-indexed streams
        std::int64_t end_time = 0;     ///< milliseconds
        std::int64_t first_block = 0;  ///< index of the first whole block that the segment covers
        std::u16string text;
        std::array<Slot, 3> slots;
        bool operator==(const Extra&) const = default;
    };

    std::int64_t start = 0;  ///< first byte that is not written yet
    std::int64_t end = 0;    ///< one past the last byte; unknown_end while the size is unknown
    int worker = 0;          ///< number of the connection that works on it; 0: none; not saved

    /// The extra attributes, to be changed; made where they do not exist yet.
    [[nodiscard]] Extra& extra();
    /// The extra attributes; null where the segment has none, which is nearly always and why they are no
    /// members.
    [[nodiscard]] const Extra* find_extra() const noexcept { return extra_.get(); }

  private:
    std::unique_ptr<Extra> extra_;
};

/// No job has more connections at once, whatever a file or a person says.
inline constexpr std::int32_t most_connections = 64;

/// The states that lists show; saved with the job.
enum class JobState : std::int32_t { waiting = 0, running = 1, stopped = 2, finished = 3, failed = 4 };
std::string_view job_state_name(JobState state) noexcept;

/// The facts that tell one version of a resource from another.
struct Validators {
    std::string etag;           ///< as sent, quotes and W/ included; empty when there was none
    std::string last_modified;  ///< as sent; empty when there was none
    bool strong_date = false;   ///< last_modified was a minute old when it was sent (RFC 9110, 8.8.2.2)
    std::string media_type{};   ///< of the answer, lower case, without parameters; empty: unsaid
};

/// The mark by which the partial file of an unfinished job is recognised.
struct PartialMark {
    std::int64_t length = -1;  ///< bytes that it has at least; -1: there is no mark
    std::int64_t begin = 0;    ///< a range of it that was received
    std::int64_t end = 0;
    std::string digest{};  ///< of the range: SHA-256, hexadecimal

    [[nodiscard]] bool is_set() const noexcept { return length >= 0; }
};

/// A job's own rules for its runs, in place of the settings. A plain record, shared by the copies of a job
/// and not changed once a job has it.
struct JobRules {
    std::optional<std::int32_t> overwrite;  ///< as the setting "FileOverwriteRule"; none: as the settings say
    bool skip_existing = false;             ///< a file that is there already, unchanged, is not fetched again
    bool insecure = false;                  ///< certificates are not checked
    bool accept_host_key = false;           ///< SSH servers that are not known yet are trusted
    std::u16string ca_file;                 ///< trusted roots for TLS; empty: as the settings say
    std::u16string key_file;                ///< a private key for SSH; empty: none by name
    std::int64_t speed_limit = 0;           ///< bytes a second for all of its connections; 0: none of its own
    std::string select;                     ///< files of the document that is fetched: "1,3-5"; empty: all
    // Of a torrent.
    std::string high;               ///< files that come before the others, as `select`; empty: none
    std::string low;                ///< those that come after them
    bool sequential = false;        ///< pieces come in their order, not the rarest first
    bool ends_first = false;        ///< the beginnings and ends of its files come before all else
    std::int64_t upload_limit = 0;  ///< bytes a second that its peers get together; 0: no limit of its own
    std::int64_t most_peers = 0;    ///< connections to peers at once; 0: as the settings say
    bool asks_which = false;        ///< where there are several, which of them are meant is asked
    /// Of a torrent: it is shared after its end until so many times its size was sent; 0: not at all; below
    /// 0: no bound.
    std::optional<double> share_ratio;
    std::optional<std::int64_t> share_time;  ///< seconds that it is shared for at most; 0: no bound
    bool operator==(const JobRules&) const = default;
};

/// The traffic of a torrent's job with its peers, over all of its runs. A plain record, shared by the copies
/// of a job and not changed once a job has it.
struct TorrentTally {
    std::int64_t received = 0;  ///< bytes of blocks
    std::int64_t sent = 0;
    std::int64_t shared = 0;  ///< seconds that it was shared after its end
    bool shares = false;      ///< finished, and shared as long as the program runs
    bool operator==(const TorrentTally&) const = default;
};

/// The way in which a job asks its servers: what a person may want of it beforehand, and what the jobs that a
/// fetched document names take over from the document's. An empty text asks for nothing.
struct JobRequest {
    std::u16string user;
    std::u16string password;
    std::u16string referer;
    std::u16string agent;   ///< empty: the program's own
    std::u16string cookie;  ///< "name=value; name=value", or "@" and the absolute path of a cookies.txt
    std::u16string proxy;   ///< as an address; empty: as the settings say
    std::int32_t connections = 5;           ///< segments made for a new job; "Threads"
    std::shared_ptr<const JobRules> rules;  ///< null for a job that goes by the settings alone
};

/// The contents of a form that a page sent, for whose answer the job is. A plain record, shared by the copies
/// of a job and not changed once a job has it.
struct PostedForm {
    std::string media_type;  ///< of the body, as it goes out
    std::string body;
    bool operator==(const PostedForm&) const = default;
};

/// The facts about a job, without its segments and its timetable.
struct JobFacts : JobRequest {
    std::u16string address;
    std::u16string fragment;  ///< what followed "#" in the address, with the "#"; never sent
    std::u16string comment;
    /// The local path, folder and file name; ends with a separator while only the folder is known.
    std::u16string path;
    std::u16string file_name;       ///< a name that was asked for; empty: the server or the address gives one
    std::int32_t locally = 0;       ///< the "Locally" flag: taken from this machine's own copy if it can be
    std::int32_t utf8 = 1;          ///< non-zero: the address's path is UTF-8 on the wire, else ANSI
    std::int32_t start_mode = 1;    ///< 0 by hand, 1 at once, 2 by schedule
    std::int32_t max_threads = 0;   ///< most connections at once; 0: as `connections`
    std::int32_t retry_delay = -1;  ///< seconds between attempts; -1: paced by what they brought
    std::int32_t retry_by_settings = 1;  ///< 1: the settings say how often to try again; 0: `retries` does
    std::int32_t retries = 10;           ///< attempts after the first; -1: without limit
    std::int32_t longest_pause = 30;     ///< seconds: the most between attempts that pace themselves
    std::int32_t silence_limit = 30;     ///< seconds without a byte after which a connection is broken
    std::int32_t kind = 0;               ///< 0 byte ranges, 30 time-indexed; 20, 40, 50 other streams
    std::int32_t automatic_referer = 1;  ///< send the site's root as referer where the job has none
    std::int32_t whole_file = 0;         ///< never ask for a range
    std::int64_t file_size = 0;          ///< bytes; 0 or negative while unknown
    std::int64_t min_split_size = 0;     ///< bytes, 0: none; also the block size of `first_block`
    std::int64_t block_base = 0;         ///< offset from which blocks are counted
    std::int64_t created = 0;            ///< seconds since 1970
    std::int64_t finished = 0;           ///< seconds since 1970, 0 while it isn't
    JobState state = JobState::waiting;
    Code result = Code::ok;  ///< of the last run
    std::string error;       ///< why that failed, UTF-8; empty: describe(result) is all that is known
    Validators validators;
    PartialMark partial_mark;           ///< of the partial file that the segments belong to
    std::vector<std::uint8_t> bit_map;  ///< finished blocks, one bit each, or empty
    std::int32_t bit_count = 0;         ///< bits of `bit_map`, which has (bit_count + 7) / 8 bytes
    std::string bit_map_mark;           ///< identifies the pieces that the map was made for, for its readers
    std::shared_ptr<const JobSources> sources;  ///< null for a job of one address without hashes
    /// Sent by POST, once in each run, in place of a GET; null for nearly all jobs.
    std::shared_ptr<const PostedForm> form;
    std::shared_ptr<const TorrentTally> tally;  ///< null for what is no torrent, and for one that never ran
};

/// Where a job stands in its category: see JobSequence.
struct JobBlock;

/// One job. Owns its segments and its schedule.
class CJobNode : public CQueueNode, public JobFacts {
  public:
    CJobNode() = default;
    /// Copies everything except the identity (the copy is a job of its own) and, of the segments, only start
    /// and end.
    CJobNode(const CJobNode& other);
    CJobNode& operator=(const CJobNode&) = delete;
    ~CJobNode() override = default;
    /// A copy with the same identity and all of the segments except for their workers: for saving, or for the
    /// one who runs the job.
    [[nodiscard]] std::unique_ptr<CJobNode> twin() const;
    /// Takes all contents of the other job, which is left empty; identity, category and order stay.
    void take_from(CJobNode& other) noexcept;

    Guid identity;  ///< of the job itself; zero until it is filed
    Guid category;  ///< of the category that it is filed under

    std::vector<std::unique_ptr<CJobSeg>> segments;  ///< in file order
    std::vector<std::unique_ptr<CScheduleNode>> schedule;

    /// Appends a segment; callers keep the order of the file.
    CJobSeg& append_segment(std::int64_t start, std::int64_t end);
    /// The most connections that the job may have: max_threads or connections, 1 to most_connections.
    [[nodiscard]] std::int32_t thread_limit() const noexcept;
    /// The number of times that a connection of this job tries again (-1: without limit); none where the
    /// settings decide.
    [[nodiscard]] std::optional<std::int32_t> own_retry_limit() const noexcept;

  private:
    friend class JobSequence;
    JobBlock* block_ = nullptr;
};

/// The job's named attributes, in their fixed order, wide and narrow.
inline constexpr std::array<std::u16string_view, 11> attribute_names_wide{
    u"Referer",   u"Folder",  u"Filename", u"Locally", u"Username", u"Password",
    u"StartMode", u"Comment", u"Threads",  u"UTF-8",   u"Agent"};
inline constexpr std::array<std::string_view, 11> attribute_names{
    "Referer",   "Folder",  "Filename", "Locally", "Username", "Password",
    "StartMode", "Comment", "Threads",  "UTF-8",   "Agent"};

/// A queue's record of one running job thread.
class CQueueThreadNode {
  public:
    virtual ~CQueueThreadNode() = default;

    CJobNode* job = nullptr;
    std::int64_t started = 0;  ///< seconds since 1970
};

/// One page or file of a site download.
class CSiteDownloadNode {
  public:
    virtual ~CSiteDownloadNode() = default;

    std::u16string address;
    std::int32_t depth = 0;
};

/// One favourite site.
class CFavoriteNode {
  public:
    virtual ~CFavoriteNode() = default;

    std::u16string name;
    std::u16string address;
};

}  // namespace vantlow
