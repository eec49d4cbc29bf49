// Jobs whose files go to another folder, or get another name: at rest, and while they run.
#include <gtest/gtest.h>

#include <atomic>
#include <ctime>

#include "base/text.h"
#include "engine_fixture.h"
#include "platform/fault_hook.h"
#include "platform/file_layout.h"
#include "support/fault_hook.h"

namespace vantlow {
namespace {

using Fault = Done::Fault;

/// What leaves the folder "here" goes to another disk, slowly where a test wants to come between.
class OtherDisk : public FaultHook {
  public:
    std::atomic<bool> is_full = false;
    std::atomic<bool> holds = false;
    std::atomic<bool> is_held = false;

    int before(Operation operation, std::u16string_view path, std::int64_t, std::int64_t) noexcept override {
        const bool is_here = path.find(u"there") == std::u16string_view::npos;
        if (operation == Operation::rename && is_here && path.find(u"here") != path.npos)
            return other_disk_number();
        if (operation == Operation::write && !is_here) {
            while (holds) is_held = true;
            if (is_full) return test::error_number(FileFault::no_space);
        }
        return 0;
    }
};

class Moves : public test::EngineTest {
  protected:
    class Hears : public EngineListener {
      public:
        void moved(const Guid&, const Done& done) override { ends.push_back(done.fault); }
        std::vector<Fault> ends;
    } hears;

    Moves() {
        EXPECT_TRUE(make_folders(folder.path(u"here")).ok());
        engine->add_listener(hears);
    }
    ~Moves() override { engine->remove_listener(hears); }

    Guid finished(const std::string& link, const std::u16string& name, const std::string& bytes) {
        const Guid job = add_one(link);
        engine->pump();
        folder.write(u"here/" + name, bytes);
        CJobNode& twin = session(job).twin();
        twin.path = folder.path(u"here/" + name);
        twin.file_size = static_cast<std::int64_t>(bytes.size());
        twin.finished = std::time(nullptr);
        end(job);
        return job;
    }
    Guid unfinished(const std::string& link, const std::u16string& name) {
        const Guid job = add_one(link);
        engine->pump();
        write_parts(job, name);
        end(job, Code::server_error);
        return job;
    }
    void write_parts(const Guid& job, const std::u16string& name) {
        folder.write(u"here/" + name + std::u16string(partial_suffix), "part");
        folder.write(u"here/" + name + std::u16string(state_suffix), "state");
        session(job).twin().path = folder.path(u"here/" + name);
    }
    [[nodiscard]] bool settled(const Guid& job) {
        return pump_until([&] { return !engine->is_moving(job); });
    }
    [[nodiscard]] std::u16string path(const Guid& job) const { return engine->find(job)->path; }
    [[nodiscard]] std::u16string there(std::u16string_view name = {}) const {
        return name.empty() ? folder.path(u"there") : join_path(folder.path(u"there"), name);
    }
};

TEST_F(Moves, JobsAtRestGoToAnotherFolderAndAnotherDisk) {
    OtherDisk disk;
    for (const bool are_two : {false, true}) {
        const HookInPlace in_place(are_two ? &disk : nullptr);
        const std::string number = are_two ? "2" : "1";
        const Guid whole = finished("http://a/w" + number, u"whole" + to_utf16(number), "all of it");
        const Guid part = unfinished("http://a/p" + number, u"part" + to_utf16(number));
        for (const Guid& job : {whole, part}) {
            ASSERT_TRUE(engine->move_files(job, there()).ok());
            ASSERT_TRUE(settled(job));
            EXPECT_TRUE(engine->last_move(job).ok());
        }
        EXPECT_EQ(path(whole), there(u"whole" + to_utf16(number)));
        EXPECT_EQ(folder.read(u"there/whole" + to_utf16(number)), "all of it");
        EXPECT_EQ(path(part), there(u"part" + to_utf16(number)));
        EXPECT_EQ(folder.read(u"there/part" + to_utf16(number) + std::u16string(partial_suffix)), "part");
        EXPECT_EQ(folder.read(u"there/part" + to_utf16(number) + std::u16string(state_suffix)), "state");
        EXPECT_FALSE(folder.has(u"here/whole" + to_utf16(number)));
        EXPECT_FALSE(folder.has(u"here/part" + to_utf16(number) + std::u16string(partial_suffix)));
    }
    EXPECT_EQ(hears.ends, std::vector<Fault>(4, Fault::none));
    // Nothing is planned any more, and the next process finds the jobs where they are.
    EXPECT_TRUE(pump_until([&] { return path_kind(folder.path(u"data/moves.txt")) == PathKind::none; }));
}

TEST_F(Moves, WhatIsAnothersIsLeftAlone) {
    const Guid job = finished("http://a/1", u"f", "mine");
    EXPECT_EQ(engine->move_files(job, u"there").fault, Fault::bad_value);
    EXPECT_EQ(engine->move_files(Guid{}, there()).fault, Fault::no_job);
    EXPECT_TRUE(engine->move_files(job, folder.path(u"here")).ok());  // it is there
    ASSERT_TRUE(make_folders(there()).ok());
    folder.write(u"there/f", "another's");
    const Done taken = engine->move_files(job, there());
    EXPECT_EQ(taken.fault, Fault::name_taken);
    EXPECT_EQ(taken.path, there(u"f"));
    EXPECT_TRUE(engine->move_files(job, there(), u"g").ok());
    ASSERT_TRUE(settled(job));
    EXPECT_EQ(folder.read(u"there/g"), "mine");
    EXPECT_EQ(folder.read(u"there/f"), "another's");
    // What stands at the job's place is not its file.
    folder.write(u"there/g", "of another size");
    EXPECT_EQ(engine->move_files(job, folder.path(u"here")).fault, Fault::anothers_file);
    EXPECT_EQ(folder.read(u"there/g"), "of another size");
    // The disk of a part may be away.
    const Guid part = add_one("http://a/2");
    engine->pump();
    session(part).twin().path = folder.path(u"here/part");
    session(part).twin().file_size = 10;
    session(part).twin().append_segment(4, 10);
    end(part, Code::server_error);
    EXPECT_EQ(engine->move_files(part, there()).error.fault, FileFault::not_found);
    EXPECT_EQ(path(part), folder.path(u"here/part"));
}

TEST_F(Moves, AFullDiskLeavesEverythingAndIsTold) {
    OtherDisk disk;
    const HookInPlace in_place(disk);
    const Guid job = finished("http://a/1", u"f", "mine");
    disk.is_full = true;
    ASSERT_TRUE(engine->move_files(job, there()).ok());
    ASSERT_TRUE(settled(job));
    EXPECT_EQ(path(job), folder.path(u"here/f"));
    EXPECT_EQ(folder.read(u"here/f"), "mine");
    EXPECT_EQ(path_kind(there()), PathKind::none);
    EXPECT_EQ(hears.ends, std::vector<Fault>{Fault::file});
    EXPECT_EQ(engine->last_move(job).error.fault, FileFault::no_space);
    disk.is_full = false;
    ASSERT_TRUE(engine->move_files(job, there()).ok());
    ASSERT_TRUE(settled(job));
    EXPECT_EQ(folder.read(u"there/f"), "mine");
}

TEST_F(Moves, AJobThatRunsStopsForIt) {
    OtherDisk disk;
    const HookInPlace in_place(disk);
    const Guid job = add_one("http://a/1");
    engine->pump();
    write_parts(job, u"f");
    disk.holds = true;
    ASSERT_TRUE(engine->move_files(job, there()).ok());
    EXPECT_TRUE(session(job).stopped);
    ASSERT_TRUE(pump_until([&] { return disk.is_held.load(); }));
    // It waits for its turn, but not before its files are at rest.
    EXPECT_EQ(state(job), JobState::waiting);
    engine->pump();
    EXPECT_TRUE(sessions.empty());
    EXPECT_EQ(engine->move_files(job, folder.path(u"elsewhere")).fault, Fault::moving);
    EXPECT_EQ(engine->check(job).fault, Fault::moving);
    EXPECT_EQ(engine->start_over(job).fault, Fault::moving);
    ASSERT_TRUE(engine->file_move(job));
    EXPECT_EQ(engine->file_move(job)->to, there(u"f"));
    disk.holds = false;
    ASSERT_TRUE(pump_until([&] { return sessions.contains(job); }));
    EXPECT_EQ(session(job).job().path, there(u"f"));
    EXPECT_EQ(state(job), JobState::running);

    // The same with another name.
    session(job).twin().path = there(u"f");
    ASSERT_TRUE(engine->rename(job, u"g").ok());
    ASSERT_TRUE(pump_until([&] { return sessions.contains(job) && session(job).job().path == there(u"g"); }));
    EXPECT_EQ(folder.read(u"there/g" + std::u16string(partial_suffix)), "part");
}

// The session that is to end for the move is followed by another one that shares, but not before the move;
// whether it has just begun to share itself, or ends as one that is whole.
TEST_F(Moves, ATorrentThatIsWholeJustThenIsSharedBehindIt) {
    table[1].takes_place = shares_finished = true;
    open();
    ASSERT_TRUE(make_folders(folder.path(u"data")).ok());
    for (const bool shares : {true, false}) {
        SCOPED_TRACE(shares);
        const std::string name = shares ? "t" : "v";
        folder.write(to_utf16(name) + u".torrent",
                     "d4:infod5:filesld6:lengthi1e4:pathl1:aeee4:name1:" + name +
                         "12:piece lengthi16384e6:pieces20:01234567890123456789ee");
        const std::u16string to = folder.path(u"here/" + to_utf16(name + "2"));
        ASSERT_TRUE(make_folders(folder.path(u"here/" + to_utf16(name))).ok());
        const Guid job = add_one(to_utf8(folder.path(to_utf16(name) + u".torrent")));
        engine->pump();
        session(job).twin().path = folder.path(u"here/" + to_utf16(name));
        session(job).ends_when_stopped = false;
        ASSERT_TRUE(engine->rename(job, to_utf16(name + "2")).ok());
        if (shares) {
            session(job).shares = true;
            session(job).settles = Result();
            ASSERT_TRUE(pump_until([&] { return state(job) == JobState::finished; }));
        }
        end(job, shares ? Result(Code::stopped) : Result());
        EXPECT_TRUE(settled(job));
        EXPECT_EQ(path(job), to);
        ASSERT_TRUE(pump_until([&] { return sessions.contains(job); }));
        EXPECT_EQ(session(job).job().path, to);
        EXPECT_TRUE(engine->is_sharing(job));
    }
}

TEST_F(Moves, AStopCallsItOffAndARemovalTakesItAway) {
    OtherDisk disk;
    const HookInPlace in_place(disk);
    const Guid job = finished("http://a/1", u"f", "mine");
    const auto hold = [&] {
        disk.is_held = false;
        disk.holds = true;
        ASSERT_TRUE(engine->move_files(job, there()).ok());
        ASSERT_TRUE(pump_until([&] { return disk.is_held.load(); }));
    };
    hold();
    EXPECT_EQ(engine->start(job).fault, Fault::moving);  // it would begin anew
    ASSERT_TRUE(engine->stop(job).ok());
    disk.holds = false;
    ASSERT_TRUE(settled(job));
    EXPECT_EQ(folder.read(u"here/f"), "mine");
    EXPECT_EQ(path_kind(there()), PathKind::none);
    EXPECT_TRUE(engine->last_move(job).ok());

    hold();
    EXPECT_EQ(engine->remove(job, true).fault, Fault::running);
    disk.holds = false;
    ASSERT_TRUE(pump_until([&] { return engine->find(job) == nullptr; }));
    EXPECT_FALSE(folder.has(u"here/f"));
    EXPECT_EQ(path_kind(there()), PathKind::none);
}

// The plan of a process that was killed, and what it left at both places.
TEST_F(Moves, TheNextProcessGoesOn) {
    const Guid whole = finished("http://a/1", u"f", "mine");
    const Guid stale = finished("http://a/2", u"g", "other");
    std::string error;
    ASSERT_TRUE(engine->save(error)) << error;
    engine->remove_listener(hears);
    engine.reset();
    ASSERT_TRUE(make_folders(there()).ok());
    ASSERT_TRUE(rename_no_replace(folder.path(u"here/f"), there(u"f")).ok());
    const auto line = [](const Guid& job, const std::u16string& from, const std::u16string& to) {
        std::string text = guid_text(job);
        for (const std::u16string& path : {from, to}) {
            text += ' ';
            for (const char unit : to_utf8(path))
                text += unit == '\\' ? std::string("%5C") : std::string(1, unit);
        }
        return text + "\n";
    };
    // The second one's record names another place than the plan: that move was over.
    folder.write(u"data/moves.txt", line(whole, folder.path(u"here/f"), there(u"f")) +
                                        line(stale, folder.path(u"before/g"), there(u"g")) + "no plan\n");
    open();
    engine->add_listener(hears);
    ASSERT_TRUE(pump_until([&] { return path(whole) == there(u"f"); }));
    EXPECT_EQ(folder.read(u"there/f"), "mine");
    EXPECT_EQ(path(stale), folder.path(u"here/g"));
    EXPECT_EQ(folder.read(u"here/g"), "other");
    EXPECT_TRUE(pump_until([&] { return path_kind(folder.path(u"data/moves.txt")) == PathKind::none; }));
}

}  // namespace
}  // namespace vantlow
