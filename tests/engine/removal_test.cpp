// Jobs that are taken away and brought back, begun anew, checked, or get other addresses while they run.
#include <gtest/gtest.h>

#include <ctime>

#include "base/safe_name.h"
#include "base/text.h"
#include "engine_fixture.h"
#include "platform/file.h"
#include "storage/resume_state.h"

namespace vantlow {
namespace {

using test::EngineTest;
using Fault = Done::Fault;

class RemovalTest : public EngineTest {
  protected:
    // The job as a run left it; the store's record is changed through a session's end.
    Guid ended(const std::string& link, const std::u16string& name, const Result& result,
               std::int64_t finished = 0) {
        const Guid job = add_one(link);
        engine->pump();
        CJobNode& twin = session(job).twin();
        twin.path = folder.path(name);
        twin.file_size = 10;
        twin.segments.clear();
        twin.finished = finished;
        if (!result.ok()) twin.append_segment(4, 10);
        end(job, result);
        return job;
    }
    std::vector<Guid> jobs_in(const CClassNode& category) const {
        std::vector<Guid> all;
        for (const auto& job : category.jobs) all.push_back(job->identity);
        return all;
    }
    [[nodiscard]] bool is_there(const std::u16string& name) const {
        return path_kind(folder.path(name)) != PathKind::none;
    }
};

TEST_F(RemovalTest, TheLastRemovalIsTakenBackToWhereItStood) {
    const CClassNode& first = *engine->first_category();
    const auto jobs = add({"http://a/1", "http://a/2", "http://a/3", "http://a/4"}, true);
    EXPECT_EQ(engine->undo_removal().fault, Fault::nothing_to_undo);
    Removed gone = engine->remove_all({jobs[3]}, Files::keep);
    gone = engine->remove_all({jobs[2], jobs[0], Guid{}}, Files::keep);
    EXPECT_EQ(gone.removed, 2U);
    EXPECT_EQ(jobs_in(first), std::vector<Guid>{jobs[1]});
    EXPECT_EQ(engine->removals_to_undo(), 2U);
    ASSERT_TRUE(engine->undo_removal().ok());
    EXPECT_EQ(jobs_in(first), (std::vector<Guid>{jobs[0], jobs[1], jobs[2]}));
    EXPECT_EQ(state(jobs[0]), JobState::stopped);
    EXPECT_EQ(engine->undo_removal().fault, Fault::nothing_to_undo);

    // They are on the disk again, too.
    std::string error;
    ASSERT_TRUE(engine->save(error)) << error;
    open();
    EXPECT_EQ(jobs_in(*engine->first_category()), (std::vector<Guid>{jobs[0], jobs[1], jobs[2]}));
}

TEST_F(RemovalTest, AJobThatRunsOnlyStopsWhereItsRemovalIsTakenBackInTime) {
    const auto jobs = add({"http://a/1", "http://a/2"});
    engine->pump();
    for (const Guid& job : jobs) session(job).ends_when_stopped = false;
    EXPECT_EQ(engine->remove_all(jobs, Files::erase).waiting, 2U);
    end(jobs[0], Code::stopped);
    EXPECT_EQ(engine->find(jobs[0]), nullptr);
    EXPECT_EQ(engine->removals_to_undo(), 2U);
    ASSERT_TRUE(engine->undo_removal().ok());
    end(jobs[1], Code::stopped);
    EXPECT_EQ(state(jobs[0]), JobState::stopped);
    EXPECT_EQ(state(jobs[1]), JobState::stopped);
}

TEST_F(RemovalTest, WithoutItsFileAJobDoesNotComeBackAsFinished) {
    const auto with_file = [&](const std::u16string& name) {
        folder.write(name, "ten bytes!");
        return ended("http://a/" + to_utf8(name), name, {});
    };
    const std::vector<Guid> jobs{with_file(u"erased"), ended("http://a/moved", u"moved", {})};
    EXPECT_EQ(engine->remove_all(jobs, Files::erase).removed, 2U);
    ASSERT_TRUE(engine->undo_removal().ok());
    const CJobNode& erased = *engine->find(jobs[0]);
    EXPECT_EQ(erased.state, JobState::failed);
    EXPECT_FALSE(erased.error.empty());
    EXPECT_EQ(erased.path, folder.path(u"")) << "the next run names the file anew";
    EXPECT_EQ(state(jobs[1]), JobState::finished) << "nothing was taken from it";
    ASSERT_TRUE(engine->start(jobs[0]).ok());
    EXPECT_EQ(state(jobs[0]), JobState::waiting);

    const Guid kept = with_file(u"kept");
    EXPECT_EQ(engine->remove_all({kept}, Files::keep).removed, 1U);
    ASSERT_TRUE(engine->undo_removal().ok());
    EXPECT_EQ(state(kept), JobState::finished);
}

TEST_F(RemovalTest, AFileWithTheWrongHashGoesWithItsJob) {
    const std::u16string wrong = u"f" + std::u16string(wrong_hash_suffix);
    const auto job = [&](const std::string& bytes) {
        folder.write(wrong, bytes);
        const Guid made = add_one("http://a/f");
        engine->pump();
        session(made).twin().path = folder.path(wrong);
        session(made).twin().file_size = 10;
        session(made).twin().segments.clear();
        end(made, Code::hash_differs);
        return made;
    };
    EXPECT_EQ(engine->remove_all({job("ten bytes!")}, Files::erase).removed, 1U);
    EXPECT_FALSE(is_there(wrong));
    EXPECT_EQ(engine->remove_all({job("somebody mended it")}, Files::erase).removed, 1U);
    EXPECT_TRUE(is_there(wrong));
}

TEST_F(RemovalTest, BegunAnewAJobKeepsItsWishesAndLosesItsPart) {
    const Guid job = ended("http://a/1", u"f", Code::server_error);
    folder.write(u"f" + std::u16string(partial_suffix), "part");
    folder.write(u"f" + std::u16string(state_suffix), "state");
    JobEdit edit;
    edit.comment = u"mine";
    ASSERT_TRUE(engine->change(job, edit).ok());
    set(setting::max_jobs, 1);
    const Guid other = add_one("http://a/2");
    engine->pump();
    EXPECT_EQ(engine->start_over(other).fault, Fault::running);
    ASSERT_TRUE(engine->start_over(job).ok());
    EXPECT_FALSE(is_there(u"f" + std::u16string(partial_suffix)) ||
                 is_there(u"f" + std::u16string(state_suffix)));
    const CJobNode& record = *engine->find(job);
    EXPECT_EQ(record.state, JobState::waiting);
    EXPECT_TRUE(record.segments.empty() && record.error.empty());
    EXPECT_EQ(record.result, Code::ok);
    EXPECT_EQ(record.comment, u"mine");
    EXPECT_EQ(engine->start_over(Guid{}).fault, Fault::no_job);
}

TEST_F(RemovalTest, AFinishedFileIsCheckedUnderTheNameOfAnUnfinishedOne) {
    const Guid plain = ended("http://a/1", u"plain", {});
    EXPECT_EQ(engine->check(plain).fault, Fault::no_hash);
    JobDraft draft;
    draft.links = {"http://a/2"};
    draft.folder = folder.path();
    draft.hash = parse_hash("md5:00112233445566778899aabbccddeeff");
    ASSERT_TRUE(draft.hash);
    const Guid job = engine->add(draft).jobs.at(0);
    ASSERT_TRUE(pump_until([&] { return sessions.contains(job); }));
    session(job).twin().path = folder.path(u"f");
    session(job).twin().file_size = 4;
    EXPECT_FALSE(engine->can_check(job));
    EXPECT_EQ(engine->check(job).fault, Fault::running);
    end(job);
    EXPECT_EQ(engine->check(job).fault, Fault::file);  // it is not there
    EXPECT_EQ(state(job), JobState::finished);
    folder.write(u"f", "data");
    folder.write(u"f" + std::u16string(partial_suffix), "of another");
    EXPECT_EQ(engine->check(job).fault, Fault::name_taken);
    ASSERT_TRUE(remove_file(folder.path(u"f" + std::u16string(partial_suffix))).ok());
    ASSERT_TRUE(engine->check(job).ok());
    EXPECT_TRUE(is_there(u"f" + std::u16string(partial_suffix)) && !is_there(u"f"));
    const auto guard = load_resume_state(folder.path(u"f" + std::u16string(state_suffix)));
    ASSERT_TRUE(guard) << "a file that nobody holds and that has no state is taken for an abandoned one";
    EXPECT_EQ(guard->identity, job);
    engine->pump();
    const CJobNode& twin = session(job).twin();  // nothing is missing, and nothing counts as checked
    ASSERT_EQ(twin.segments.size(), 1U);
    EXPECT_EQ(twin.segments[0]->start, 4);
    EXPECT_EQ(twin.segments[0]->end, 4);
    EXPECT_TRUE(twin.bit_map.empty() && twin.partial_mark.is_set());
}

// Somebody may have begun anew under the name of a part that was left.
TEST_F(RemovalTest, OnlyAPartWithTheJobsOwnStateIsGoneOnWith) {
    const std::u16string partial = u"f" + std::u16string(partial_suffix);
    const std::u16string saved = u"f" + std::u16string(state_suffix);
    enum class State { none, own, others };
    for (const State which : {State::none, State::own, State::others}) {
        const Guid job =
            ended("http://a/" + std::to_string(static_cast<int>(which)), u"f", Code::server_error);
        folder.write(partial, "ten bytes!");
        CJobNode state;
        state.identity = which == State::own ? job : new_guid();
        state.path = folder.path(u"f");
        state.file_size = 10;
        state.append_segment(6, 10);
        state.partial_mark = {10, 0, 6, std::string(64, 'a')};
        static_cast<void>(remove_file(folder.path(saved)));
        if (which != State::none) {
            ASSERT_TRUE(save_resume_state(state, folder.path(saved)).ok());
        }
        ASSERT_TRUE(engine->start(job).ok());
        ASSERT_TRUE(pump_until([&] { return sessions.contains(job); }));
        const CJobNode& twin = session(job).twin();
        EXPECT_EQ(!twin.segments.empty(), which == State::own);
        EXPECT_EQ(!name_of(twin.path).empty(), which == State::own);
        end(job);
    }
}

class SharedRemovalTest : public RemovalTest {
  protected:
    SharedRemovalTest() {
        table[1].takes_place = shares_finished = true;
        open();
        EXPECT_TRUE(make_folders(folder.path(u"data/torrents")).ok());
        folder.write(u"x.torrent",
                     "d4:infod6:lengthi4e4:name1:x12:piece lengthi16384e6:pieces20:aaaaaaaaaaaaaaaaaaaaee");
        folder.write(u"x", "data");
    }
    Guid shared() {
        const Guid job = add_one(to_utf8(folder.path(u"x.torrent")));
        EXPECT_TRUE(pump_until([&] { return sessions.contains(job); }));
        session(job).twin().path = folder.path(u"x");
        session(job).twin().file_size = session(job).safe_size = 4;
        session(job).shares = true;
        session(job).settles = Result();
        EXPECT_TRUE(pump_until([&] { return engine->is_sharing(job); }));
        return job;
    }
};

TEST_F(SharedRemovalTest, ATorrentThatIsSharedIsCheckedByAnotherSession) {
    const Guid job = shared();
    ASSERT_TRUE(engine->check(job).ok());
    EXPECT_TRUE(pump_until([&] { return state(job) == JobState::running; }));
    EXPECT_FALSE(engine->is_sharing(job));
    end(job, Code::server_error);
    // It has its name already, and goes all the same.
    EXPECT_EQ(engine->remove_all({job}, Files::erase).removed, 1U);
    EXPECT_FALSE(is_there(u"x"));
}

TEST_F(SharedRemovalTest, FilesThatTwoJobsHaveStayWithTheOther) {
    const Guid first = shared();
    ASSERT_TRUE(engine->stop(first).ok());
    ASSERT_TRUE(pump_until([&] { return !engine->is_sharing(first); }));
    const Guid second = shared();
    const Removed removed = engine->remove_all({first}, Files::erase);
    ASSERT_EQ(removed.failures.size(), 1U);
    EXPECT_EQ(removed.failures[0].second.fault, Fault::anothers_file);
    EXPECT_EQ(engine->move_files(first, folder.path(u"there")).fault, Fault::anothers_file);
    EXPECT_TRUE(is_there(u"x"));
    EXPECT_EQ(engine->remove_all({first}, Files::keep).removed, 1U);
    EXPECT_EQ(engine->remove_all({second}, Files::erase).waiting, 1U);
    EXPECT_TRUE(pump_until([&] { return engine->find(second) == nullptr; }));
    EXPECT_FALSE(is_there(u"x"));
}

// People move and remove files, and other downloads get the names that are free then.
TEST_F(RemovalTest, FilesThatAreNotTheJobsOwnAreLeftAlone) {
    const auto is_left_alone = [&](const Guid& job, const std::u16string& name) {
        const std::string before = folder.read(name);
        EXPECT_EQ(engine->rename(job, u"g").fault, Fault::anothers_file) << to_utf8(name);
        const Removed removed = engine->remove_all({job}, Files::erase);
        ASSERT_EQ(removed.failures.size(), 1U) << to_utf8(name);
        EXPECT_EQ(removed.failures[0].second.fault, Fault::anothers_file);
        EXPECT_EQ(folder.read(name), before);
        EXPECT_NE(engine->find(job), nullptr);
    };
    folder.write(u"size", "another one's bytes");
    is_left_alone(ended("http://a/1", u"size", {}), u"size");
    folder.write(u"time", "ten bytes!");
    is_left_alone(ended("http://a/2", u"time", {}, std::time(nullptr) - 86400), u"time");
    EXPECT_EQ(engine->remove_all({ended("http://a/3", u"time", {})}, Files::erase).removed, 1U);
    EXPECT_FALSE(is_there(u"time"));

    const std::u16string partial = u"part" + std::u16string(partial_suffix);
    const std::u16string saved = u"part" + std::u16string(state_suffix);
    const Guid job = ended("http://a/4", u"part", Code::server_error);
    folder.write(partial, "ten bytes!");
    CJobNode other;
    other.address = u"http://b/4";
    other.path = folder.path(u"part");
    other.file_size = 10;
    other.append_segment(4, 10);
    other.partial_mark = {4, 0, 4, std::string(64, 'a')};
    other.identity = new_guid();
    ASSERT_TRUE(save_resume_state(other, folder.path(saved)).ok());
    is_left_alone(job, partial);
    EXPECT_EQ(engine->remove_all({ended("http://a/5", u"part", {})}, Files::erase).removed, 1U);
    EXPECT_TRUE(is_there(saved)) << "of the file that has the name now";
    ASSERT_TRUE(remove_file(folder.path(saved)).ok());
    {
        File held;
        ASSERT_TRUE(held.open_alone(folder.path(partial), OpenMode::write_existing).ok());
        is_left_alone(job, partial);
        ASSERT_TRUE(engine->start_over(job).ok());
        EXPECT_TRUE(is_there(partial));
    }
    other.identity = ended("http://a/6", u"part", Code::server_error);
    ASSERT_TRUE(save_resume_state(other, folder.path(saved)).ok());
    EXPECT_EQ(engine->remove_all({other.identity}, Files::erase).removed, 1U);
    EXPECT_FALSE(is_there(partial) || is_there(saved));
}

TEST_F(RemovalTest, ARunningJobTakesItsLimitAtOnceAndOtherAddressesByAnotherSession) {
    set(setting::max_jobs, 1);
    const Guid job = add_one("http://a/1");
    const Guid next = add_one("http://a/2");
    engine->pump();
    JobEdit limit;
    limit.speed_limit = 5000;
    ASSERT_TRUE(engine->change(job, limit).ok());
    EXPECT_EQ(session(job).rules->speed_limit, 5000);
    EXPECT_EQ(engine->find(job)->rules->speed_limit, 5000);
    limit.speed_limit = -1;
    EXPECT_EQ(engine->change(job, limit).fault, Fault::bad_value);

    session(job).twin().append_segment(3, 9);
    session(job).twin().file_size = 9;
    JobEdit edit;
    edit.address = u"http://b/1";
    edit.mirrors = {u"http://c/1", u"http://b/1"};
    ASSERT_TRUE(engine->change(job, edit).ok());
    engine->pump();
    engine->pump();
    ASSERT_TRUE(sessions.contains(job));  // before the one that waits
    EXPECT_FALSE(sessions.contains(next));
    const CJobNode& twin = session(job).twin();
    EXPECT_EQ(twin.address, u"http://b/1");
    EXPECT_EQ(twin.sources->mirrors, (std::vector<std::u16string>{u"http://b/1", u"http://c/1"}));
    ASSERT_EQ(twin.segments.size(), 1U);
    EXPECT_EQ(twin.segments[0]->start, 3);

    using List = std::vector<std::u16string>;
    const struct {
        std::optional<std::u16string> address;
        std::optional<List> mirrors;
        Fault fault;
        List expected;
    } edits[] = {
        {{},
         List{u"ed2k://|file|n|5|0123456789abcdef0123456789abcdef|/"},
         Fault::bad_value,
         {u"http://b/1", u"http://c/1"}},
        {{}, List{u"http:/c"}, Fault::bad_value, {u"http://b/1", u"http://c/1"}},
        {u"http://d/1", {}, Fault::none, {u"http://d/1", u"http://c/1"}},
        {{}, List{}, Fault::none, {}},
    };
    for (const auto& one : edits) {
        JobEdit change;
        change.address = one.address;
        change.mirrors = one.mirrors;
        EXPECT_EQ(engine->change(job, change).fault, one.fault);
        EXPECT_EQ(engine->find(job)->sources->mirrors, one.expected);
    }
}

TEST_F(RemovalTest, ACategoryStopsAndStartsWithThoseBelowIt) {
    const Guid above = engine->add_category(u"above", {}, engine->first_category()->identity).category;
    const Guid below = engine->add_category(u"below", {}, above).category;
    const auto jobs = add({"http://a/1", "http://a/2", "http://a/3"}, true);
    ASSERT_TRUE(engine->move(jobs[0], above).ok() && engine->move(jobs[1], below).ok());
    ASSERT_TRUE(engine->start_all(above).ok());
    EXPECT_EQ(state(jobs[0]), JobState::waiting);
    EXPECT_EQ(state(jobs[1]), JobState::waiting);
    EXPECT_EQ(state(jobs[2]), JobState::stopped);
    engine->pump();
    end(jobs[0]);
    ASSERT_TRUE(engine->stop_all(above).ok());
    engine->wait_for_ends({jobs[1]});
    EXPECT_EQ(state(jobs[0]), JobState::finished);
    EXPECT_EQ(state(jobs[1]), JobState::stopped);
    ASSERT_TRUE(engine->start_all(engine->first_category()->identity).ok());
    EXPECT_EQ(state(jobs[0]), JobState::finished);  // no finished job begins anew
    EXPECT_EQ(state(jobs[2]), JobState::waiting);
    EXPECT_EQ(engine->stop_all(new_guid()).fault, Fault::no_category);
}

}  // namespace
}  // namespace vantlow
