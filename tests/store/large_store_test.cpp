// How long a store of 100,000 jobs keeps its thread. What was measured is told; the bounds leave room for a
// busy machine.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>
#include <thread>

#include "platform/process.h"
#include "store/job_store.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using Clock = std::chrono::steady_clock;
using test::TempFolder;

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

class TimedLargeStore : public testing::Test {
  protected:
    void SetUp() override {
        std::string error;
        store = JobStore::open({folder.path(), u"/downloads", true}, error);
        ASSERT_NE(store, nullptr) << error;
        CClassNode& root = *store->tree().root();
        for (int i = 0; i < jobs_in_all; ++i) identities.push_back(store->add(large_job(i), root).identity);
    }
    /// Every hundredth job.
    [[nodiscard]] std::vector<Guid> some() const {
        std::vector<Guid> chosen;
        for (std::size_t i = 0; i < identities.size(); i += 100) chosen.push_back(identities[i]);
        return chosen;
    }
    template <class Work>
    static double measured(const char* what, const Work& work) {
        const double time = processor_time(work);
        std::cout << what << ": " << time << " ms" << std::endl;
        return time;
    }

    TempFolder folder;
    Settings settings;
    std::unique_ptr<JobStore> store;
    std::vector<Guid> identities;
};

TEST_F(TimedLargeStore, adds_moves_finds_and_removes_a_thousand_at_once) {
    CClassNode& root = *store->tree().root();
    CClassNode& other = store->completed();
    std::vector<std::unique_ptr<CJobNode>> fresh;
    for (int i = 0; i < 1000; ++i) fresh.push_back(large_job(i));
    const std::vector<Guid> chosen = some();
    int changes = 0;
    const auto watch = store->watch([&](const StoreChange&) { ++changes; });
    double all = measured("add 1,000", [&] {
        for (auto& job : fresh) store->add(std::move(job), root);
    });
    all += measured("find 1,000, half by the beginnings of their ids", [&] {
        for (std::size_t i = 0; i < chosen.size(); ++i) {
            const bool found =
                i % 2 == 0
                    ? store->find(chosen[i]) != nullptr
                    : store->find_by_digits(*guid_digits(guid_text(chosen[i]).substr(0, 13))).size() == 1;
            EXPECT_TRUE(found);
        }
    });
    all += measured("places of 1,000", [&] {
        for (const Guid& id : chosen) EXPECT_LT(store->place_of(*store->find(id)), store->size());
    });
    all += measured("move 1,000", [&] {
        for (const Guid& id : chosen) store->move(*store->find(id), other);
        for (const Guid& id : chosen) store->place(*store->find(id), root, 50'000);
    });
    all += measured("remove 1,000", [&] {
        for (const Guid& id : chosen) store->remove(*store->find(id));
    });
    EXPECT_EQ(changes, 4000);
    EXPECT_LT(all, 50);
}

TEST_F(TimedLargeStore, a_thousand_running_jobs_changing_four_times_a_second_cost_little) {
    const std::vector<Guid> chosen = some();
    std::uint64_t heard = 0;
    const auto watch = store->watch([&](const StoreChange& change) { heard += change.fields; });
    const double all = measured("4,000 changes of positions", [&] {
        for (int round = 0; round < 4; ++round) {
            for (const Guid& id : chosen) {
                CJobNode& job = *store->find(id);
                auto newer = job.twin();
                newer->segments[0]->start += 100;
                store->update_positions(job, std::move(newer));
            }
        }
    });
    EXPECT_EQ(heard, 4000U);
    EXPECT_LT(all, 50) << "a twentieth of a second's processor time";
}

TEST_F(TimedLargeStore, saving_keeps_the_thread_for_some_milliseconds_at_a_time) {
    std::string error;
    ASSERT_TRUE(store->save(settings, error)) << error;
    store->write_behind(settings, [] {});
    double longest = 0;
    const auto begin = Clock::now();
    const auto timed = [&](const auto& work) { longest = std::max(longest, processor_time(work)); };
    store->queue_last(*store->find(identities[7]));
    timed([&] { store->save_behind(); });
    int steps = 0;
    while (store->is_dirty()) {
        bool more = false;
        timed([&] { more = store->work(); });
        if (more) ++steps;
        if (!more) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_LT(Clock::now() - begin, std::chrono::seconds(60));
    }
    std::cout << "longest step: " << longest << " ms, " << steps << " of them, saved behind "
              << std::chrono::duration<double>(Clock::now() - begin).count() << " s" << std::endl;
    EXPECT_GT(steps, 10);
    EXPECT_LT(longest, 20);
    store->stop_writing_behind();
}

}  // namespace
}  // namespace vantlow
