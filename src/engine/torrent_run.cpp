#include "engine/torrent_run.h"

#include <algorithm>
#include <utility>

#include "base/codes.h"
#include "base/string_table.h"
#include "base/text.h"
#include "bt/make_torrent.h"
#include "bt/torrent_settings.h"
#include "engine/run_options.h"
#include "engine/selection.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// The bytes left are unknown; a number above zero makes trackers return seeders too.
constexpr std::int64_t left_unknown = 16384;

// The name that a person wants the file or the folder to have; a magnet link's own is only its guess.
std::u16string asked_name(const CJobNode& job, const Magnet& magnet) {
    const std::u16string guess = magnet.name.empty() ? to_utf16(to_hex(magnet.info_hash))
                                                     : in_one_part(to_utf16(percent_decode(magnet.name)));
    return job.file_name == safe_file_name(guess) ? std::u16string() : job.file_name;
}

/// The connections of all torrents together.
struct PeerCount : Keepsake {
    std::atomic<std::size_t> connections = 0;
};

}  // namespace

TorrentRun::TorrentRun(const CJobNode& job, const TransferServices& services, RunOptions options,
                       TorrentShelf& shelf, const TorrentSharing& sharing,
                       const TorrentServices& torrent_services, LogSink& log, std::function<void()> on_end)
    : job_(job),
      services_(services),
      options_(std::move(options)),
      shelf_(shelf),
      sharing_(sharing),
      torrent_services_(torrent_services),
      log_(log),
      on_end_(std::move(on_end)),
      stop_(services.stop),
      // The goodbye to the trackers comes after the stop.
      announces_({.connections = services.connections,
                  .libraries = services.libraries,
                  .settings = services.settings,
                  .on_peers = [this] { static_cast<void>(loop_->post([this] { tell_peers(); })); }},
                 identity_, log, services.stop),
      sources_(torrent_services.hash_table, services.settings, log) {
    size_ = job.file_size > 0 ? job.file_size : -1;
    set_limits(job.rules.get());
    const MutexLock guard(mutex_);
    rules_ = job.rules;
    progress_.size = size_;
    progress_.path = job.path;
    if (job.tally) tally_ = *job.tally;
}

TorrentRun::~TorrentRun() {
    stop();
    join();
}

Result TorrentRun::start() {
    return services_.threads.start(thread_, [this] { run(); });
}

void TorrentRun::run() {
    const auto started = Clock::now();
    Result result = work();
    if (result.kind() != Kind::stopped && !result.ok()) log_.line(Direction::error, result.message());
    announces_.stop();
    // Files that somebody has moved or changed since the last run end the sharing of their job, which stays
    // a finished one; a person who starts it again gets to know.
    if (sharing_.whole_since.value_or(0) > 0 && !named_ && result.kind() != Kind::stopped) result = {};
    outcome_.result = std::move(result);
    outcome_.path = files_ && !files_->target().empty() ? files_->target() : job_.path;
    outcome_.size = size_;
    outcome_.received = received_;
    {
        const MutexLock guard(mutex_);
        tally_ = count_up();
    }
    outcome_.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    on_end_();
}

Result TorrentRun::work() {
    if (Result result = read_address(); !result.ok()) return result;
    const auto tell = [this](const std::string& why) {
        const MutexLock guard(mutex_);
        progress_.waiting_for = why;
    };
    if (Result result = reach_.wait_for_way(tell); !result.ok()) return result;
    auto loop = net::make_loop({.way = reach_.way()});
    if (!loop) return loop.failure();
    loop_ = *std::move(loop);
    const StopCallback wake(stop_, [this] { loop_->stop(); });
    ticks_.emplace(loop_->timers());
    const auto take = [this](std::unique_ptr<net::Stream> stream) { take_caller(std::move(stream)); };
    if (Result result = reach_.open(*loop_, take); !result.ok()) return result;
    identity_.port = reach_.told_port();
    identity_.proxy = reach_.proxy();
    identity_.way = reach_.way();
    own_trackers_ = trackers_of(magnet_);
    announces_.start(own_trackers_);
    look_up_peers();
    Result result = describe();
    if (result.ok()) result = open_files();
    if (result.ok()) result = conclude(fetch_pieces());
    announces_.ask_to_stop();
    look_up_stop_.request();
    look_up_.join();
    sources_.end();
    if (files_) files_->close();
    ticks_.reset();
    reach_.close();
    return result;
}

Result TorrentRun::read_address() {
    const auto magnet = parse_magnet(to_utf8(job_.address), default_magnet_trackers(services_.settings));
    if (!magnet)
        return {Code::invalid_url, "This kind of torrent address cannot be used: " + to_utf8(job_.address)};
    magnet_ = *magnet;
    if (Result result = reach_.take_proxy(torrent_proxy(options_)); !result.ok()) return result;
    crypto_ = {&services_.libraries.secur,
               static_cast<std::uint32_t>(services_.settings.number(setting::crypto)), magnet_.info_hash};
    if (crypto_.is_needed() && !crypto_.is_possible())
        return {Code::unsupported, missing_library_text("libsecur")};
    identity_.info_hash = magnet_.info_hash;
    identity_.peer_id = make_peer_id(new_guid());
    identity_.left = sharing_.whole_since ? 0 : size_ > 0 ? size_ : left_unknown;
    return {};
}

// In the hash table and in this network, neither of which is behind a proxy.
void TorrentRun::find_peers(std::span<const SocketAddress> nodes) {
    if (reach_.is_behind_proxy()) return;
    sources_.begin(*loop_, reach_.way(), magnet_.info_hash, reach_.port(), nodes);
    reach_.hold_node_port(sources_.table_port());
}

Result TorrentRun::describe() {
    const InfoHash& hash = magnet_.info_hash;
    std::string info = shelf_.find_info(hash);
    const bool is_known = !info.empty();
    PieceLayers fetched;
    if (!is_known) {
        log_.line(Direction::note, "The torrent's description is asked for among the peers.");
        PieceLayers layers;
        if (Result result = fetch_description(info, layers); !result.ok()) return result;
        const auto now = static_cast<std::int64_t>(std::time(nullptr));
        std::string document = torrent_from_metadata(own_trackers_, info, now);
        if (!layers.empty()) document = with_layers(std::as_bytes(std::span(document)), layers);
        note_kept(shelf_.keep(hash, std::as_bytes(std::span(document))));
        fetched = std::move(layers);
    }
    auto content = read_torrent_content(info, hash);
    if (!content) return content.failure();
    content_ = *std::move(content);
    PieceLayers layers = is_known ? shelf_.find_layers(hash, content_) : std::move(fetched);
    if (is_known && missing_layers(content_, layers) > 0) {
        log_.line(
            Direction::note,
            "The torrent's document lacks hashes of pieces, or has wrong ones: they are asked for among "
            "the peers.");
        if (Result result = fetch_description(info, layers); !result.ok()) return result;
        note_kept(shelf_.keep_layers(hash, layers));
    }
    if (missing_layers(content_, layers) > 0)
        return {Code::unsupported, "The sizes and the hashes of the torrent's files contradict each other."};
    hashes_.emplace(content_, std::move(layers));
    if (content_.is_private) {
        sources_.end();
        reach_.hold_node_port(0);
    }
    return {};
}

void TorrentRun::note_kept(const FileError& kept) {
    if (!kept.ok())
        log_.line(Direction::error, "The torrent's description could not be kept: " + kept.text());
}

// Asks for what is not there yet.
Result TorrentRun::fetch_description(std::string& info, PieceLayers& layers) {
    bool is_there = false;
    MetadataFetch::Options wanted;
    wanted.port = reach_.port();
    wanted.exchanges = !content_.is_private && services_.settings.flag(setting::peer_exchange);
    wanted.info = info;
    wanted.layers = layers;
    wanted.is_second = content_.is_second_version || is_of_second(magnet_.info_hash, magnet_.second_hash);
    const auto take = [&](std::string taken, PieceLayers digests) {
        info = std::move(taken);
        layers = std::move(digests);
        is_there = true;
    };
    MetadataFetch fetch(reach_.network(), identity_.peer_id, limits_, crypto_, take, wanted);
    description_ = &fetch;
    follow_filter();
    hand_on_filter();
    if (!content_.is_private) {
        fetch.add_peers(magnet_.peers);
        // Whether the torrent is private nobody knows yet, where there is no description.
        find_peers({});
    }
    fetch.start();
    start_round();
    open_for_questions();
    follow_trackers();
    Result result;
    while (!is_there && !stop_.requested() && result.ok()) {
        const auto step = loop_->run_one(std::chrono::seconds(1));
        if (!step) result = step.failure();
    }
    close_for_questions();
    ticks_->cancel();
    description_ = nullptr;
    told_ = 0;
    sources_.find_again();
    if (!is_there && result.ok()) return stop_.reason();
    return result;
}

Result TorrentRun::open_files() {
    auto choice = choice_of(content_, rules(followed_).get());
    if (!choice) return choice.failure();
    choice_ = *std::move(choice);
    phase_ = Phase::check;
    show();
    StorageRules rules;
    rules.allocate = services_.settings.flag(setting::allocate_space);
    const bool is_whole = sharing_.whole_since.has_value();
    files_.emplace(content_, *hashes_, log_, rules, options_.keep_state && !is_whole);
    // A filed job has a place of its own, so that files of the same name are others.
    const bool adopts = sharing_.goes_on && !sharing_.settles;
    const TorrentPlace place{job_.path, asked_name(job_, magnet_), adopts, sharing_.whole_since,
                             job_.finished};
    if (Result result = files_->open(place, choice_.chosen(), stop_, checked_); !result.ok()) return result;
    good_ = files_->good();
    measure();
    if (is_whole) done_ = size_;
    log_.line(Direction::note, "The files go to " + to_utf8(files_->target()) + "; " + std::to_string(done_) +
                                   " of " + std::to_string(size_) + " bytes are there.");
    return {};
}

// The pool's results refer to the disk, and its threads to the storage: the swarm goes first, then the disk,
// then the pool.
Result TorrentRun::fetch_pieces() {
    phase_ = Phase::exchange;
    const bool is_whole = done_ == size_;
    if (is_whole && !sharing_.goes_on) return {};
    DiskPool pool([this](DiskPool::Callback call) { return loop_->post(std::move(call)); });
    StorageDisk disk(files_->storage(), pool, *hashes_);
    auto web_seeds = make_web_seeds();  // they outlive their connections
    HashAnswers answers(content_, hashes_->layers());
    SwarmTorrent torrent{content_.info_hash, identity_.peer_id, content_.total,
                         static_cast<std::uint32_t>(content_.piece_length), content_.info};
    if (content_.is_second_version) {
        torrent.shorter = content_.shorter_pieces();
        torrent.hashes = &answers;
    }
    SwarmOptions options;
    options.port = reach_.port();
    const std::int64_t own_peers = job_.rules ? job_.rules->most_peers : 0;
    options.most_peers =
        static_cast<std::size_t>(own_peers > 0 ? own_peers : services_.settings.number(setting::most_peers));
    options.most_of_all = static_cast<std::size_t>(services_.settings.number(setting::most_peers_of_all));
    options.all = &services_.connections.memory.of<PeerCount>().connections;
    options.library = crypto_.library;
    options.crypto = crypto_.setting;
    if (!content_.is_private) find_peers(shelf_.find_nodes(magnet_.info_hash));
    options.node_port = sources_.table_port();
    options.exchanges = !content_.is_private && services_.settings.flag(setting::peer_exchange);
    options.punches = options.exchanges && reach_.has_datagrams();
    options.seed = static_cast<std::uint32_t>(Clock::now().time_since_epoch().count());
    Swarm swarm(reach_.network(), disk, *this, std::move(torrent), limits_, options);
    for (std::uint32_t piece = 0; piece < swarm.picker().pieces(); ++piece) {
        if (good_[piece]) swarm.add_have(piece);
    }
    disk_ = &disk;
    swarm_ = &swarm;
    web_seeds_ = &web_seeds;
    want_pieces(choice_, is_whole);
    follow_filter();
    hand_on_filter();
    swarm.start();
    if (!content_.is_private) swarm.add_peers(magnet_.peers);
    start_round();
    if (is_whole) share();
    open_for_questions();
    follow_rules();
    follow_trackers();
    const Result result = loop_->run();
    close_for_questions();
    ticks_->cancel();
    count();
    log_sources();
    reach_.close_port();
    disk_ = nullptr;
    swarm_ = nullptr;
    web_seeds_ = nullptr;
    // The download has succeeded; that its files can be read no more its owner gets to know, where it was
    // only shared.
    if (named_ && failure_ && sharing_.settles) return *failure_;
    if (named_ && failure_) log_.line(Direction::error, failure_->message());
    if (is_complete_ || named_) return {};
    if (failure_) return *failure_;
    return result.ok() ? Result(stop_.reason()) : result;
}

Result TorrentRun::conclude(const Result& fetched) {
    if (!fetched.ok() && named_) return fetched;
    if (!fetched.ok()) {
        // Where the bytes may be lost, the state that is there stays true.
        bool is_lost = false;
        const Result saved = files_->save(good_, is_lost, true);
        if (!saved.ok()) log_.line(Direction::error, saved.message());
        return fetched;
    }
    if (!named_) {
        if (Result result = give_names(good_); !result.ok()) return result;
        files_->take_names();
        if (received_ > 0) announces_.complete();
    }
    // A torrent that is shared again in a later run needs the bytes of files that are not chosen.
    files_->close(sharing_.settles && stop_.requested());
    log_.line(Direction::note,
              named_ ? "It is not shared any more." : message_text(Message::download_completed));
    return {};
}

Result TorrentRun::give_names(const std::vector<bool>& good) {
    // Also of a folder, which has had its name from the beginning: the record of a quick torrent may not know
    // it yet, and from here on no state tells it.
    if (options_.before_name) options_.before_name(files_->target(), size_);
    std::optional<FileOrigin> origin;
    if (services_.settings.flag(setting::mark_zone)) origin = FileOrigin{make_magnet(magnet_, {}, {}), {}};
    return files_->finish(good, origin, stop_);
}

}  // namespace vantlow
