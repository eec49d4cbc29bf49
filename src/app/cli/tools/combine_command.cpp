// `vantlow combine`: pieces of a film become one file.
#include "app/cli/tools/tools.h"

#include <atomic>
#include <chrono>
#include <memory>

#include "app/cli/command_set.h"
#include "app/cli/report.h"
#include "app/process/ending.h"
#include "app/terminal/progress_view.h"
#include "app/terminal/speed_meter.h"
#include "base/text.h"
#include "media/combine.h"
#include "platform/console.h"
#include "platform/file.h"
#include "platform/file_marks.h"
#include "platform/process.h"

namespace vantlow {
namespace {

constexpr std::chrono::milliseconds draw_interval{100};
constexpr std::int64_t whole = 10'000;  // of the values that the worker reports

struct CombineOptions {
    std::string output;
    std::vector<std::string> pieces;
};

// The progress line: the last value that the worker reported, as a part of the pieces' size.
class CCombineProgressDlg {
  public:
    CCombineProgressDlg(const GlobalOptions& global, std::string name, std::int64_t total)
        : view_(!global.quiet && !global.json), name_(std::move(name)), total_(total) {}

    // The worker calls this on its own thread.
    void receive(std::uint32_t message, std::uint32_t value) noexcept {
        if (message == combine_progress_message) value_.store(value, std::memory_order_relaxed);
    }
    void draw() {
        JobLine line;
        line.name = name_;
        line.progress.size = total_;
        const std::int64_t value = value_.load(std::memory_order_relaxed);
        line.progress.done = total_ / whole * value + total_ % whole * value / whole;
        line.progress.connections = 1;
        line.progress.missing = {{line.progress.done, total_, true}};
        line.speed = speed_.update(line.progress.done, std::chrono::steady_clock::now());
        Totals totals;
        totals.running = 1;
        totals.received = line.progress.done;
        totals.speed = line.speed;
        view_.draw({line}, totals);
    }
    void close() { view_.clear(); }

  private:
    ProgressView view_;
    std::string name_;
    std::int64_t total_;
    std::atomic<std::uint32_t> value_{0};
    SpeedMeter speed_;
};

void on_interrupt(void* context, int count) {
    if (count > 1) end_process(static_cast<int>(Exit::interrupted));
    static_cast<CCombineMediaThread*>(context)->cancel();
}

std::int64_t size_of(const std::vector<std::u16string>& pieces) {
    std::int64_t total = 0;
    for (const std::u16string& path : pieces) total += file_stamp(path).size;
    return total;
}

CombineOutcome combine(const CombineJob& job, const GlobalOptions& global) {
    CCombineProgressDlg progress(global, to_utf8(name_of(job.output)), size_of(job.pieces));
    CCombineMediaThread thread(
        job, [&progress](std::uint32_t message, std::uint32_t value) { progress.receive(message, value); });
    const InterruptWatch watch(on_interrupt, &thread);
    while (!thread.wait_for(draw_interval)) progress.draw();
    CombineOutcome outcome = thread.wait();
    progress.close();
    return outcome;
}

Exit run_combine(const GlobalOptions& global, const CombineOptions& options) {
    CombineJob job;
    job.output = to_utf16(options.output);
    for (const std::string& piece : options.pieces) job.pieces.push_back(to_utf16(piece));
    const CombineOutcome outcome = combine(job, global);
    for (const std::string& note : outcome.notes) complain(note);
    if (outcome.result.kind() == Kind::stopped) return Exit::interrupted;
    if (!outcome.result.ok()) {
        // A failure that is no file's names none.
        const std::string of = outcome.result.code == Code::transient ? options.output + ": " : "";
        return complain(of + outcome.result.message());
    }
    print_answer(global, {{"path", options.output}, {"bytes", outcome.bytes}, {"seconds", outcome.seconds}},
                 global.quiet ? std::string() : options.output + "\n");
    return outcome.skipped > 0 ? Exit::failed : Exit::done;
}

}  // namespace

void add_combine_command(CommandSet& commands) {
    auto options = std::make_shared<CombineOptions>();
    CLI::App& word = commands.add("combine", "Join FLV or MP4 pieces into one file",
                                  [options](CFerrywellApp& /*app*/, const GlobalOptions& global) {
                                      return run_combine(global, *options);
                                  });
    word.add_option("-o,--output", options->output, "The joined file; an existing one is replaced")
        ->required();
    word.add_option("PIECE", options->pieces,
                    "The pieces in order; header and metadata come from the first one")
        ->required();
}

}  // namespace vantlow
