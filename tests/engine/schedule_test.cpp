// Times and rules: the week plan, the entries of jobs, and the categories that new jobs find by themselves.
#include <gtest/gtest.h>

#include <limits>

#include "base/text.h"
#include "engine/schedule_texts.h"
#include "engine_fixture.h"

namespace vantlow {
namespace {

using test::EngineTest;

/// Central European time in 2026: clocks go forward on 29 March and back on 25 October, at 01:00 UTC.
class TestClock : public WallClock {
  public:
    [[nodiscard]] std::int64_t now() const override { return at; }
    [[nodiscard]] std::int64_t offset(std::int64_t moment) const override {
        constexpr std::int64_t forward = 1774746000;
        constexpr std::int64_t back = 1792890000;
        return moment >= forward && moment < back ? 7200 : 3600;
    }
    void set(std::string_view text) { at = of(text); }
    [[nodiscard]] std::int64_t of(std::string_view text) const {
        return parse_moment(text, 0, *this).value();
    }
    [[nodiscard]] std::string text(std::optional<std::int64_t> moment) const {
        return moment ? local_moment_text(*moment, *this) : "never";
    }
    std::int64_t at = 0;
};

std::int64_t time(std::string_view text) {
    return parse_time_of_day(text).value();
}

class ImportTest : public EngineTest {};

TEST_F(ImportTest, AListWaitsForTheScheduleAndNamesDocuments) {
    std::vector<std::unique_ptr<CJobNode>> jobs;
    for (const auto& [address, mode] : {std::pair(u"http://h/a", start_mode::by_schedule),
                                        {u"metalink://h/x.metalink", start_mode::by_hand}}) {
        jobs.push_back(std::make_unique<CJobNode>());
        jobs.back()->address = address;
        jobs.back()->start_mode = mode;
    }
    const auto filed = engine->file_list(std::move(jobs), engine->first_category()->identity);
    ASSERT_EQ(filed.size(), 2U);
    EXPECT_EQ(engine->find(filed[0])->state, JobState::stopped);
    EXPECT_EQ(engine->find(filed[1])->address, u"http://h/x.metalink");
    EXPECT_EQ(kind_of(*engine->find(filed[1])), JobKind::document);
}

TEST(Schedule, APlanRunsInItsTimesAlsoWhereClocksAreChanged) {
    const TestClock clock;
    const struct {
        const char* days;
        const char* start;
        const char* stop;
        const char* now;
        bool runs;
        const char* next;
    } cases[] = {
        {"mon-fri", "09:00", "17:30", "2026-11-26 08:59:59", false, "2026-11-26 09:00"},
        {"mon-fri", "09:00", "17:30", "2026-11-26 09:00", true, "2026-11-26 17:30"},
        {"mon-fri", "09:00", "17:30", "2026-11-27 17:30", false, "2026-11-30 09:00"},
        // Over midnight: the night of Friday ends on Saturday.
        {"fri", "22:00", "06:00", "2026-11-28 05:59", true, "2026-11-28 06:00"},
        {"fri", "22:00", "06:00", "2026-11-27 05:59", false, "2026-11-27 22:00"},
        {"fri", "22:00", "06:00", "2026-11-28 06:00", false, "2026-12-04 22:00"},
        // Whole days that follow each other are one time; every day is for ever.
        {"sat,sun", "00:00", "00:00", "2026-11-28 12:00", true, "2026-11-30 00:00"},
        {"daily", "00:00", "00:00", "2026-11-28 12:00", true, "never"},
        {"daily", "22:00", "22:00", "2026-11-28 21:59", true, "never"},
        // 02:30 does not come on 29 March, and comes twice on 25 October.
        {"sun", "02:30", "04:00", "2026-03-29 01:59", false, "2026-03-29 03:30"},
        {"sun", "01:00", "04:00", "2026-03-29 03:30", true, "2026-03-29 04:00"},
        {"sun", "02:30", "04:00", "2026-10-25T02:15+01:00", true, "2026-10-25 04:00"},
        {"sun", "02:30", "04:00", "2026-10-25T02:15+02:00", false, "2026-10-25 02:30"},
    };
    for (const auto& one : cases) {
        const WeekPlan plan{parse_weekdays(one.days).value(), time(one.start), time(one.stop)};
        const PlanState state = state_at(plan, clock.of(one.now), clock);
        EXPECT_EQ(state.runs, one.runs) << one.days << ' ' << one.now;
        EXPECT_EQ(clock.text(state.next), one.next) << one.days << ' ' << one.now;
    }
    EXPECT_EQ(state_at({}, clock.of("2026-11-28 12:00"), clock), PlanState());
}

TEST(Schedule, WhatPeopleWriteIsReadAndWrittenAgain) {
    const TestClock clock;
    const std::int64_t now = clock.of("2026-11-26 18:00");  // a Thursday
    const struct {
        TimesWish wish;
        const char* meant;  ///< when the start and the stop come next; empty: nothing that could be meant
    } cases[] = {
        {{"22:00", "", "", 0}, "2026-11-26 22:00 never"},
        {{"6:30", "", "", 0}, "2026-11-27 06:30 never"},
        {{"22:00", "06:00", "", 0}, "2026-11-26 22:00 2026-11-27 06:00"},
        {{"", "2026-12-24T12:00:30Z", "", 0}, "never 2026-12-24 13:00:30"},
        {{"22:00", "06:00", "fri", 0}, "2026-11-27 22:00 2026-11-28 06:00"},
        {{"22:00", "06:00", "sun-sat", 0}, "2026-11-26 22:00 2026-11-27 06:00"},
        {{"22:00", "", "", 3 * 3600}, "2026-11-26 22:00 never"},
        {{"2026-11-26 17:59", "", "", 0}, ""},
        {{"22:00", "22:00", "mon", 0}, ""},
        {{"2026-11-28 22:00", "2026-11-28 21:00", "", 0}, ""},
        {{"2026-11-28 22:00", "", "mon", 0}, ""},
        {{"22:00", "", "mon", 3600}, ""},
        {{"22:00", "23:30", "", 3600}, ""},
        {{"22:00", "", "", 59}, ""},
        {{"", "", "mon", 0}, ""},
        {{"24:00", "", "", 0}, ""},
        {{"2026-02-30 10:00", "", "", 0}, ""},
        {{"22:00", "", "tomorrow", 0}, ""},
    };
    for (const auto& one : cases) {
        const auto times = read_times(one.wish, now, clock);
        const std::string name = one.wish.start + "|" + one.wish.stop + "|" + one.wish.days;
        ASSERT_EQ(times.has_value(), *one.meant != '\0') << name;
        if (!times) continue;
        std::string meant[] = {"never", "never"};
        for (const CScheduleNode& entry : *times)
            meant[entry.action == schedule_action::stop ? 1 : 0] = clock.text(next_moment(entry, now, clock));
        EXPECT_EQ(meant[0] + " " + meant[1], one.meant) << name;
        const auto again = read_times(wish_of(*times, clock), now, clock);
        ASSERT_TRUE(again) << name;
        EXPECT_TRUE(std::ranges::equal(*again, *times, [](const auto& a, const auto& b) {
            return a.action == b.action && a.weekdays == b.weekdays && a.time == b.time;
        })) << name;
    }
}

class TimedEngine : public EngineTest {
  protected:
    TimedEngine() {
        clock.set("2026-11-26 18:00");
        set(setting::max_jobs, 9);
        reopen();
    }
    void reopen() {
        engine.reset();
        clock_of_engine = &clock;
        open();
        engine->tick();
    }
    void at(std::string_view moment) {
        clock.set(moment);
        engine->tick();
        engine->pump();
    }
    Guid add_timed(const TimesWish& wish) {
        JobDraft draft;
        draft.links = {"http://a/" + std::to_string(++count)};
        draft.folder = folder.path();
        draft.schedule.times = read_times(wish, clock.now(), clock).value();
        draft.schedule.by_plan = draft.schedule.times.empty();
        const Guid job = engine->add(draft).jobs.at(0);
        std::string error;
        EXPECT_TRUE(engine->save(error)) << error;
        engine->pump();
        return job;
    }
    /// Of every job, in the order in which they were added: one letter.
    std::string states() {
        engine->pump();
        std::string text;
        for (const CJobNode* job : engine->jobs_below(nullptr)) text += "wrsFX"[static_cast<int>(job->state)];
        return text;
    }
    TestClock clock;
    int count = 0;
};

TEST_F(TimedEngine, TimesOutOfADamagedDatabaseNeverCome) {
    constexpr auto far = std::numeric_limits<std::int64_t>::max();
    const std::pair<std::int64_t, std::int32_t> damaged[] = {
        {far, 0}, {far, every_day}, {far, -3600}, {-far - 1, -3600}, {-far - 1, every_day},
        {-1, 0},  {-far, -1},       {0, -1},  // every second
    };
    CJobNode job;
    for (const auto& [at, days] : damaged) {
        job.schedule.push_back(std::make_unique<CScheduleNode>());
        job.schedule.back()->action = schedule_action::start;
        job.schedule.back()->time = at;
        job.schedule.back()->weekdays = days;
    }
    EXPECT_EQ(next_action(times_of(job), clock.now(), clock), std::nullopt);
    EXPECT_EQ(job.schedule.size(), std::size(damaged)) << "nothing is thrown away";
}

TEST_F(TimedEngine, StartsAndStopsJobsByTheirOwnTimes) {
    const Guid once = add_timed({"22:00", "06:00", "", 0});
    const Guid nightly = add_timed({"22:00", "06:00", "daily", 0});
    add_timed({"", "19:00", "", 0});
    const Guid hourly = add_timed({"22:00", "", "", 3600});
    EXPECT_EQ(states(), "ssrs");
    at("2026-11-26 21:59:59");
    EXPECT_EQ(states(), "ssss") << "the third was stopped at its time";
    at("2026-11-26 22:00");
    EXPECT_EQ(states(), "rrsr");
    end(hourly);
    at("2026-11-26 23:00");
    EXPECT_EQ(states(), "rrsr") << "what comes every hour is fetched anew";
    // By hand goes before the times until the next one.
    ASSERT_TRUE(engine->stop(nightly).ok());
    at("2026-11-27 05:59:59");
    EXPECT_EQ(state(nightly), JobState::stopped);
    at("2026-11-27 06:00");
    EXPECT_EQ(states().substr(0, 3), "sss");
    EXPECT_TRUE(engine->find(once)->schedule.empty());
    EXPECT_EQ(engine->find(once)->start_mode, start_mode::by_hand);
    // A program that was not there at a time that was meant once makes up for it, and what should run runs.
    const Guid missed = add_timed({"12:00", "", "", 0});
    std::string error;
    ASSERT_TRUE(engine->close(error)) << error;
    clock.set("2026-11-27 23:00");
    reopen();
    engine->pump();
    EXPECT_EQ(state(missed), JobState::running);
    EXPECT_EQ(state(nightly), JobState::running);
    EXPECT_EQ(state(once), JobState::stopped);
    // New times hold at once.
    JobEdit edit;
    edit.schedule = JobSchedule{false, *read_times({"23:30", "", "", 0}, clock.now(), clock)};
    ASSERT_TRUE(engine->change(missed, edit).ok());
    engine->pump();
    EXPECT_EQ(state(missed), JobState::stopped);
    edit.schedule = JobSchedule();
    ASSERT_TRUE(engine->change(missed, edit).ok());
    at("2026-11-27 23:30");
    EXPECT_EQ(state(missed), JobState::stopped);
}

TEST_F(TimedEngine, TheWeekPlanMovesThoseThatGoByIt) {
    add_one("http://a/at-once");
    const Guid planned = add_timed({});
    EXPECT_EQ(states(), "rs") << "there is no plan yet";
    const auto plan = [this](std::int32_t days) {
        set(setting::week, days);
        settings.override_value(u"Schedule", u"StartTime", u"17:00");
        settings.override_value(u"Schedule", u"StopTime", u"20:00");
        engine->tick();
    };
    plan(every_day);
    EXPECT_EQ(states(), "rr");
    add_timed({});
    EXPECT_EQ(states(), "rrr") << "in its time a new one begins at once";
    at("2026-11-26 20:00");
    EXPECT_EQ(states(), "rss");
    ASSERT_TRUE(engine->start(planned).ok());
    at("2026-11-26 21:00");
    EXPECT_EQ(states(), "rrs") << "by hand it runs at any time";
    at("2026-11-27 17:00");
    EXPECT_EQ(states(), "rrr");
    at("2026-11-26 17:30");  // the clock was wrong
    EXPECT_EQ(states(), "rrr");
    end(planned);
    plan(0);
    at("2026-11-27 20:00");
    EXPECT_EQ(states(), "rrF") << "without a plan nothing stops";
    ASSERT_EQ(engine->next_action_of(*engine->find(planned)), std::nullopt);
}

TEST_F(TimedEngine, RulesChooseCategoriesWhereNobodyDid) {
    const Guid films = engine->add_category(u"Films", folder.path(u"films"), {}).category;
    const Guid discs = engine->add_category(u"Discs", folder.path(u"discs"), {}).category;
    const Guid site = engine->add_category(u"Site", u"", films).category;
    const auto rule = [this](const Guid& category, const char* text) {
        settings.override_value(rules_section, to_utf16(guid_text(category)), to_utf16(text));
    };
    rule(films, "*.MP4, .mkv;.gz");
    rule(discs, ".iso .tar.gz");
    rule(site, "Example.org");
    const Guid first = engine->first_category()->identity;
    const struct {
        const char* address;
        const char16_t* name;
        Guid category;
    } cases[] = {
        {"http://a/x/film.mp4?token=1.iso", u"", films},
        {"http://a/get?id=5", u"Disc.ISO", discs},
        {"http://a/src.tar.gz", u"", discs},
        {"http://a/notes.gz", u"", films},
        {"http://a/%66ilm%2Emkv", u"", films},
        {"http://a/.iso", u"", first},
        {"http://a/iso", u"", first},
        {"http://cdn.example.org/x.iso", u"", site},
        {"http://notexample.org/x", u"", first},
        {"http://user:pw@EXAMPLE.org:81/x", u"", site},
        {"magnet:?xt=urn:btih:0123456789abcdef0123456789abcdef01234567&dn=a%20disc.iso", u"", discs},
    };
    for (const auto& one : cases) {
        JobDraft draft;
        draft.links = {one.address};
        draft.name = one.name;
        draft.paused = true;
        const Guid job = engine->add(draft).jobs.at(0);
        EXPECT_EQ(engine->find(job)->category, one.category) << one.address;
        EXPECT_EQ(folder_of(engine->find(job)->path), engine->find_category(one.category)->folder)
            << one.address;
        draft.category = first;
        EXPECT_EQ(engine->find(engine->add(draft).jobs.at(0))->category, first) << one.address;
    }
    for (const char* wrong : {"iso", "*", "http://a/", ".", ".a/b", "a@b", "x:1"}) {
        const bool is_host = std::string_view(wrong) == "iso";  // a name of a host, as any word is
        EXPECT_EQ(parse_category_rule(wrong).has_value(), is_host) << wrong;
    }
    EXPECT_EQ(text_of(*parse_category_rule(" *.ISO,.iso; Example.org ")), ".iso example.org");
    EXPECT_EQ(engine->set_category_rule(first, ".iso").fault, Done::Fault::first_category);
}

}  // namespace
}  // namespace vantlow
