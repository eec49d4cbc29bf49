// How long a store of 100,000 jobs keeps its thread: processor time of each kind of work.
//
//   store_bench FOLDER     an empty folder, which decides about the disk
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

#include "store/job_store.h"

namespace {

using namespace vantlow;
using Clock = std::chrono::steady_clock;

constexpr int jobs_in_all = 100'000;
constexpr int segments = 8;

// What others do on this machine meanwhile does not count.
template <class Work>
double processor_time(const Work& work) {
    const std::clock_t begin = std::clock();
    work();
    return 1000.0 * static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

std::unique_ptr<CJobNode> large_job(int number) {
    auto job = std::make_unique<CJobNode>();
    job->address = u"http://server.example.com/a/path/of/some/length/file.bin";
    job->path = u"/downloads/some/folder/file.bin";
    job->file_size = 1'000'000'000 + number;
    for (int i = 0; i < segments; ++i) job->append_segment(i * 1000, i * 1000 + 500);
    return job;
}

// The rows of the answer.
template <class Work>
void measured(const char* what, const Work& work) {
    std::printf("%-48s %8.2f ms\n", what, processor_time(work));
}

struct LargeStore {
    std::unique_ptr<JobStore> store;
    std::vector<Guid> identities;
    std::vector<Guid> some;  ///< every hundredth job

    explicit LargeStore(std::unique_ptr<JobStore> opened) : store(std::move(opened)) {
        CClassNode& root = *store->tree().root();
        for (int i = 0; i < jobs_in_all; ++i) identities.push_back(store->add(large_job(i), root).identity);
        for (std::size_t i = 0; i < identities.size(); i += 100) some.push_back(identities[i]);
    }
};

void change_a_thousand(LargeStore& large) {
    JobStore& store = *large.store;
    CClassNode& root = *store.tree().root();
    std::vector<std::unique_ptr<CJobNode>> fresh;
    for (int i = 0; i < 1000; ++i) fresh.push_back(large_job(i));
    std::size_t found = 0;
    measured("add 1,000", [&] {
        for (auto& job : fresh) store.add(std::move(job), root);
    });
    measured("find 1,000, half by the beginnings of their ids", [&] {
        for (std::size_t i = 0; i < large.some.size(); ++i) {
            const Guid& id = large.some[i];
            const auto digits = [&] { return *guid_digits(guid_text(id).substr(0, 13)); };
            if (i % 2 == 0 ? store.find(id) != nullptr : store.find_by_digits(digits()).size() == 1) ++found;
        }
    });
    measured("places of 1,000", [&] {
        for (const Guid& id : large.some) {
            if (store.place_of(*store.find(id)) < store.size()) ++found;
        }
    });
    measured("move 1,000 away and back", [&] {
        for (const Guid& id : large.some) store.move(*store.find(id), store.completed());
        for (const Guid& id : large.some) store.place(*store.find(id), root, 50'000);
    });
    measured("1,000 running jobs change four times", [&] {
        for (int round = 0; round < 4; ++round) {
            for (const Guid& id : large.some) {
                CJobNode& job = *store.find(id);
                auto newer = job.twin();
                newer->segments[0]->start += 100;
                store.update_positions(job, std::move(newer));
            }
        }
    });
    measured("remove 1,000", [&] {
        for (const Guid& id : large.some) store.remove(*store.find(id));
    });
    if (found != 2 * large.some.size()) std::printf("NOT ALL WERE FOUND: %zu\n", found);
}

bool save_behind(LargeStore& large) {
    JobStore& store = *large.store;
    Settings settings;
    std::string error;
    if (!store.save(settings, error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return false;
    }
    store.write_behind(settings, [] {});
    double longest = 0;
    int steps = 0;
    const auto begin = Clock::now();
    const auto timed = [&](const auto& work) { longest = std::max(longest, processor_time(work)); };
    store.queue_last(*store.find(large.identities[7]));
    timed([&] { store.save_behind(); });
    while (store.is_dirty()) {
        bool more = false;
        timed([&] { more = store.work(); });
        if (more) ++steps;
        if (!more) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::printf("save behind: %d steps, the longest %.2f ms, on the disk after %.2f s\n", steps, longest,
                std::chrono::duration<double>(Clock::now() - begin).count());
    store.stop_writing_behind();
    return true;
}

}  // namespace

int main(int count, char** words) {
    if (count != 2) {
        std::fprintf(stderr, "store_bench FOLDER\n");
        return 2;
    }
    std::string error;
    const std::u16string folder = absolute_path(to_utf16(words[1]));
    auto store = JobStore::open({folder, folder, true}, error);
    if (store == nullptr) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    LargeStore large(std::move(store));
    if (!save_behind(large)) return 1;
    change_a_thousand(large);
    return 0;
}
