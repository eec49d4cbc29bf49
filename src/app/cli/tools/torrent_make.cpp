// `vantlow torrent make`.
#include <ctime>
#include <future>

#include "app/cli/report.h"
#include "app/cli/tools/tools.h"
#include "app/process/application.h"
#include "app/process/ending.h"
#include "app/terminal/display_text.h"
#include "app/terminal/progress_view.h"
#include "app/terminal/quantities.h"
#include "base/codes.h"
#include "base/text.h"
#include "bt/make_torrent.h"
#include "platform/console.h"
#include "platform/process.h"
#include "platform/thread.h"

namespace vantlow {
namespace {

constexpr std::int64_t shortest_piece = 1024;
constexpr std::int64_t longest_piece = std::int64_t{128} << 20U;
constexpr std::chrono::milliseconds draw_interval{100};

bool is_power_of_two(std::int64_t number) noexcept {
    return number > 0 && (number & (number - 1)) == 0;
}

Exit end_with(const Result& result) {
    return result.kind() == Kind::stopped ? Exit::interrupted : complain(result.message());
}

// Hashes on other threads while this one shows their progress.
Outcome<std::string> hash_with_progress(const TorrentSource& source, std::int64_t piece_length,
                                        unsigned threads, const StopSource& stop, bool draw) {
    std::atomic<std::int64_t> done{0};
    std::packaged_task<Outcome<std::string>()> task(
        [&] { return hash_pieces(source, piece_length, threads, stop, done); });
    auto hashing = task.get_future();
    ThreadPool pool;
    ThreadPool::Running running;
    // Where no thread can be had, this one does the work, and draws nothing meanwhile.
    if (!pool.start(running, [&task] { task(); }).ok()) task();
    ProgressView view(draw);
    SpeedMeter speed;
    while (hashing.wait_for(draw_interval) != std::future_status::ready) {
        JobLine line;
        line.name = to_utf8(source.name());
        line.progress.size = source.total;
        line.progress.done = line.progress.received = done;
        line.progress.missing.push_back({line.progress.done, source.total, true});
        line.speed = speed.update(done, SpeedMeter::Time::clock::now());
        Totals totals;
        totals.running = 1;
        totals.received = done;
        totals.speed = line.speed;
        view.draw({line}, totals);
    }
    view.clear();
    return hashing.get();
}

TorrentText text_of(const MakeTorrentOptions& options) {
    TorrentText text;
    for (const std::string& tier : options.trackers) {
        if (!text.trackers.empty()) text.trackers += u"\r\n";
        text.trackers += to_utf16(tier);
    }
    text.comment = to_utf16(options.comment);
    text.created = static_cast<std::int64_t>(std::time(nullptr));
    return text;
}

}  // namespace

Complaint check_make_torrent(const MakeTorrentOptions& options) {
    if (options.piece_length.empty()) return std::nullopt;
    const auto length = parse_rate(options.piece_length);
    if (!length || !is_power_of_two(*length) || *length < shortest_piece || *length > longest_piece) {
        return "--piece-length takes a power of two from 1K to 128M.";
    }
    return std::nullopt;
}

Exit run_make_torrent(CFerrywellApp& app, const GlobalOptions& global, const MakeTorrentOptions& options) {
    const InterruptWatch watch(stop_at_interrupt, &app.stop());
    const auto source = find_torrent_source(to_utf16(options.path), app.stop());
    if (!source.ok()) return end_with(source.failure());
    const std::int64_t piece_length =
        parse_rate(options.piece_length).value_or(choose_piece_length(source->total));
    const bool draw = !global.json && !global.quiet;
    const auto pieces = hash_with_progress(*source, piece_length, options.threads, app.stop(), draw);
    if (!pieces.ok()) return end_with(pieces.failure());
    InfoHash hash{};
    const std::string document = torrent_document(*source, piece_length, *pieces, text_of(options), hash);
    const std::u16string path = torrent_path(source->path);
    if (const FileError error = write_torrent(path, document); !error.ok()) {
        return end_with({Code::local_file, to_utf8(path) + ": " + error.text(), error.system_error});
    }
    const std::string lines = printable(to_utf8(path)) + "\n" + to_hex(hash) + "\n";
    print_answer(global, {{"path", to_utf8(path)}, {"infoHash", to_hex(hash)}},
                 global.quiet ? std::string() : lines);
    return Exit::done;
}

}  // namespace vantlow
