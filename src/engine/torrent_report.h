// The facts of a torrent's job, for whoever shows them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "bt/torrent_content.h"
#include "bt/tracker_answer.h"
#include "engine/selection.h"
#include "platform/socket.h"

namespace vantlow {

class CJobNode;
class FileList;
class PieceSet;
struct Magnet;

/// The parts of a report, as bits: each costs only who asks for it. The rest of the report is always there.
namespace torrent_part {
inline constexpr unsigned peers = 1;  ///< with their pieces: up to 128 KiB a peer for a million pieces
inline constexpr unsigned trackers = 2;
inline constexpr unsigned files = 4;
inline constexpr unsigned pieces = 8;  ///< which are there or in work, and how many peers have each
inline constexpr unsigned all = 15;
}  // namespace torrent_part

/// A peer with which both handshakes are over.
struct TorrentPeer {
    SocketAddress address;  ///< of one that called, its port is not the one that it listens at
    std::string id;         ///< 20 bytes, as sent
    std::string client;  ///< UTF-8, of one line: as the peer says, else by its id; empty where neither tells;
                         ///< a web seed's address, whose other one is no address at all (0.0.0.0)
    bool is_incoming = false;        ///< it called
    bool is_encrypted = false;       ///< all of the connection, not just its beginning
    bool is_over_datagrams = false;  ///< uTP, not TCP
    bool chokes_us = true;           ///< it gives nothing now
    bool is_choked = true;           ///< it gets nothing now
    bool is_interested = false;      ///< it wants something from us
    bool is_interesting = false;     ///< we want something from it
    bool is_seed = false;            ///< it has everything
    double progress = 0;             ///< of the torrent, 0 to 1
    double received_rate = 0;        ///< bytes a second
    double sent_rate = 0;
    std::int64_t received = 0;  ///< bytes of blocks, of this connection
    std::int64_t sent = 0;
    std::string pieces;  ///< that it has: as the wire has them (BEP 3, "bitfield")
};

/// A tracker, which is asked beside all others: each is a tier of its own.
struct TorrentTracker {
    enum class State {
        idle,    ///< the job does not run
        asking,  ///< for the first time
        works,   ///< its last answer was one
        fails,   ///< `failure` says why; it is asked again
        ended,   ///< it wants no further announce
    };
    std::string address;  ///< as in logs: the key of a private tracker is masked
    int tier = 0;         ///< from 0 on
    State state = State::idle;
    std::string failure;    ///< the tracker's reason or a sentence of our own, of one line; may be empty
    std::size_t peers = 0;  ///< in its last answer
    std::optional<SwarmCounts> counts;
    std::optional<Clock::time_point> next;  ///< the next announce, where it is known
    bool is_listed = false;  ///< it is none of the job's own: the list of "Torrent"/"TrackerList" names it
};
/// "idle" and its kin.
std::string_view tracker_state_name(TorrentTracker::State state) noexcept;

/// A file; those that only fill pieces up are left out, so that the first one has the number 1 of --select.
struct TorrentFile {
    std::u16string name;  ///< below the torrent's folder, safe, with this system's separators
    std::u16string path;  ///< where it stands, or will stand when it is whole; empty while that is undecided
    std::int64_t size = 0;
    std::int64_t done = 0;  ///< bytes in good pieces
    FilePriority priority = FilePriority::normal;

    [[nodiscard]] bool is_chosen() const noexcept { return priority != FilePriority::skip; }
};

/// The facts of a torrent's job at one moment, as far as they are known. A plain record.
struct TorrentReport {
    enum class Phase {
        idle,         ///< it does not run
        description,  ///< asked for among the peers
        check,        ///< of the files that are there
        exchange,     ///< pieces come
        sharing,      ///< everything is there, and is given to others
    };
    Phase phase = Phase::idle;
    InfoHash info_hash{};
    bool is_described = false;  ///< else the torrent is known by its hash alone: no files, no pieces
    bool is_private = false;    ///< (BEP 27)
    bool is_folder = false;     ///< it has a folder of its own
    DocumentFacts document;     ///< of the kept document; that of a magnet link says nothing
    std::u16string name;        ///< as the document has it, in one part; not safe
    std::int64_t size = -1;     ///< bytes of the chosen files; -1 while unknown
    std::int64_t done = 0;      ///< of them, in good pieces

    std::int64_t received = 0;  ///< bytes of blocks, over all runs of the job
    std::int64_t sent = 0;
    double received_rate = 0;  ///< bytes a second
    double sent_rate = 0;
    std::size_t connections = 0;  ///< peers with which both handshakes are over
    std::size_t seeds = 0;        ///< of them
    std::size_t known = 0;        ///< addresses of peers
    std::size_t blocked = 0;      ///< of them and of callers, those that the filter of addresses kept away

    std::uint16_t port = 0;     ///< that peers may call; 0: none
    bool is_passed_on = false;  ///< by the router
    std::string port_news;      ///< a sentence of the router, or about it; may be empty
    bool is_let_in = false;     ///< over IPv6, by the router's firewall
    std::string firewall_news;  ///< a sentence about that; may be empty

    std::int64_t piece_count = 0;
    std::int64_t piece_length = 0;  ///< bytes; the last piece may be shorter
    std::int64_t good_pieces = 0;
    std::int64_t checked_pieces = 0;  ///< of the check that is under way
    bool is_sequential = false;       ///< pieces come in their order
    bool has_ends_first = false;      ///< the ends of its files come before all else

    // The parts that were asked for.
    std::vector<TorrentPeer> peers;
    std::vector<TorrentTracker> trackers;
    std::vector<TorrentFile> files;
    std::string good;  ///< the good pieces, as the wire has them (BEP 3, "bitfield")
    std::string
        begun;  ///< those in work, likewise: blocks of them came or are asked for; empty: it does not run
    std::vector<std::uint32_t> availability;  ///< how many peers have each piece; empty: it does not run

    /// Bytes that were sent to those of the chosen files; 0 while the size is unknown.
    [[nodiscard]] double ratio() const noexcept {
        return size > 0 ? static_cast<double>(sent) / static_cast<double>(size) : 0;
    }
};
/// "idle" and its kin.
std::string_view torrent_phase_name(TorrentReport::Phase phase) noexcept;

/// Whether a piece is among those of a list as the wire has it (`good`, `begun`).
bool has_bit(std::string_view wire, std::size_t piece) noexcept;

/// The program that a peer is: by what it says of itself (BEP 10, "v"), else by its id (BEP 20); empty where
/// neither tells. UTF-8, one line, 80 bytes at most.
std::string peer_client(std::string_view version, std::string_view id);

/// The trackers that a link names, with their keys.
std::vector<std::string> trackers_of(const Magnet& magnet);

/// Adds the facts of the document, and the files as far as `parts` has them; their paths stay empty. `good`
/// has an entry for each piece.
void describe_torrent(const TorrentContent& content, const FileList& files, const TorrentChoice& choice,
                      const std::vector<bool>& good, unsigned parts, TorrentReport& report);

/// The report of a job that does not run: from its record, its document ("info" value; empty where there is
/// none) and the state beside its files.
TorrentReport report_at_rest(const CJobNode& job, std::string_view info, unsigned parts);

}  // namespace vantlow
