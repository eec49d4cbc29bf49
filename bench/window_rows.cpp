// The processor time that the window's model takes with many jobs: building, sorting by each column,
// filtering, changes.
//
//   window_rows_bench [JOBS]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

#include "app/window/model/job_rows.h"
#include "app/window/model/view_tree.h"
#include "base/text.h"

namespace {

using namespace vantlow;

// Processor time: others may use the machine meanwhile.
template <class Work>
void measure(const char* what, const Work& work) {
    const std::clock_t start = std::clock();
    work();
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    std::printf("%-40s %9.2f ms\n", what, seconds * 1000);
}

void fill_store(Engine& engine, int count, const Guid& category) {
    const Guid first = engine.first_category()->identity;
    for (int i = 0; i < count; ++i) {
        auto job = std::make_unique<CJobNode>();
        const int mixed = static_cast<int>(static_cast<unsigned>(i) * 2654435761U % 1000003U);
        const std::u16string name = u"Some longer file name " + to_utf16(std::to_string(mixed)) + u".tar.gz";
        job->address = u"https://downloads.example.org/pub/releases/" + name;
        job->path = u"/home/somebody/Downloads/" + name;
        job->file_size = mixed * 4096LL;
        job->created = 1700000000 + i;
        job->state = i % 3 == 0 ? JobState::finished : JobState::stopped;
        engine.file(std::move(job), i % 5 == 0 ? category : first);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 100000;
    Settings settings;
    const LibraryTables libraries{};
    StopSource stop;
    Engine engine(JobStore::in_memory(u"/tmp"), {settings, libraries, stop, u"/tmp", u"bench"});
    const Guid category = engine.add_category(u"Other", {}, engine.first_category()->identity).category;
    fill_store(engine, count, category);
    const LiveJobs live(engine);
    std::unique_ptr<JobRows> rows;
    std::unique_ptr<ViewTree> tree;
    measure("build the rows", [&] { rows = std::make_unique<JobRows>(engine, live); });
    measure("build the tree", [&] { tree = std::make_unique<ViewTree>(engine); });
    for (const ColumnFacts& column : column_table()) {
        const std::string what = "sort by " + std::string(column.name);
        measure(what.c_str(), [&] { rows->sort_by({{column.column, false}}); });
    }
    measure("sort by three", [&] { rows->sort_by({{Column::category}, {Column::state}, {Column::name}}); });
    for (const std::u16string_view text : {u"9", u"99.tar", u"nothing like this", u"RELEASES -7"}) {
        const std::string what = "filter " + to_utf8(text);
        measure(what.c_str(), [&] { rows->show({}, text); });
    }
    measure("view of a category", [&] { rows->show(View::of_category(category), u""); });
    measure("view of all", [&] { rows->show({}, u""); });
    std::uint64_t seen = engine.revision();
    std::size_t cells = 0;
    rows->sort_by({{Column::name}});
    measure("a screen of 50 rows", [&] {
        for (std::size_t row = 0; row < 50; ++row) {
            for (const ColumnFacts& column : column_table())
                cells += rows->cell(row * 7, column.column).size();
        }
    });
    const auto change = [&](const char* what, std::uint32_t fields, std::size_t changed) {
        Changes changes;
        for (std::size_t i = 0; i < changed; ++i) changes.jobs.push_back({rows->at(i * 11), fields, ++seen});
        measure(what, [&] { rows->changed(changes, std::chrono::steady_clock::now()); });
        measure("   the tree", [&] { tree->changed(changes); });
    };
    change("200 jobs move on", job_field::progress, 200);
    change("200 jobs may move", job_field::place | job_field::state, 200);
    return cells > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
