// What a job's policy decides, event by event: no sockets, and a clock that the test moves.
#include "transfer/job/policy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace vantlow {
namespace {

using std::chrono::seconds;

constexpr std::int64_t size = 1'000'000;

/// A job of its own, the whole of which one connection begins to fetch.
struct Beginning {
    Beginning(const PolicyRules& rules, Clock::time_point now, std::u16string_view address)
        : policy((file.address = address, file), 1, false) {
        file.append_segment(0, unknown_end);
        policy.begin(false);
        worker.id = 1;
        EXPECT_TRUE(policy.enlist(worker, rules, now));
    }

    CJobNode file;
    JobPolicy policy;
    Worker worker;
};

/// A job whose first connection receives a file of a strong entity tag.
class PolicyTest : public testing::Test {
  protected:
    explicit PolicyTest(bool hash_decides = false, std::shared_ptr<const JobSources> sources = {})
        : policy((job.sources = std::move(sources), job), 1, hash_decides) {
        job.address = u"http://h/f";
        job.connections = job.max_threads = 4;
        job.append_segment(0, unknown_end);
        rules.split_size = 1024;
        policy.begin(false);
        begin_with("\"a\"");
    }

    static SourceAnswer answer(std::int64_t granted, const char* etag = "\"a\"") {
        SourceAnswer given;
        given.granted = granted;
        given.whole = granted == 0;
        given.ranges_promised = true;
        given.address = u"http://h/f";
        given.version = {size, "", etag, false, "application/zip"};
        return given;
    }
    Worker& start() {
        Worker& worker = *workers.emplace_back(std::make_unique<Worker>());
        worker.id = static_cast<int>(workers.size());
        EXPECT_TRUE(policy.enlist(worker, rules, now));
        return worker;
    }
    void receive(Worker& worker, std::int64_t bytes) {
        const std::int64_t at = worker.position;
        worker.position = at + bytes;
        policy.delivered(worker, at, bytes);
        policy.written(at, bytes);
    }
    AfterFailure fail(Worker& worker, const Result& result, bool accepted = false, int fruitless = 0,
                      bool progressed = false) {
        FailedAttempt attempt;
        attempt.result = result;
        attempt.fruitless = fruitless;
        attempt.progressed = progressed;
        attempt.asked = worker.position;
        attempt.accepted = accepted;
        return policy.failed(worker, attempt, rules, now);
    }
    void leave(Worker& worker) {
        if (worker.has_work()) policy.released(worker, -1, false, 0);
        policy.strike(worker, Code::transient);
    }
    [[nodiscard]] bool restarts() {
        const auto turn = policy.look();
        return turn && turn->what == JobPolicy::Turn::What::restart;
    }
    [[nodiscard]] std::optional<Code> end() {
        const auto turn = policy.look();
        if (!turn || turn->what != JobPolicy::Turn::What::end) return std::nullopt;
        return turn->result.code;
    }
    /// The first connection breaks, and another version is all that there is: everything begins anew with it.
    void change_to(const char* etag) {
        Worker& worker = *workers.front();
        EXPECT_TRUE(fail(worker, Code::transient, true).again);
        for (int seen = 0; seen < 3; ++seen) {
            const Verdict verdict =
                policy.answered(worker, answer(worker.position, etag), worker.position, rules);
            EXPECT_EQ(verdict.result.code, Code::resource_changed);
            EXPECT_EQ(fail(worker, verdict.result).again, seen < 2);
        }
        ASSERT_TRUE(restarts());
        leave(worker);
        workers.clear();
        policy.begin_anew();
        begin_with(etag);
    }
    void begin_with(const char* etag) {
        Worker& first = start();
        EXPECT_EQ(policy.answered(first, answer(0, etag), 0, rules).next, Verdict::Next::adopt);
        policy.adopt(first, answer(0, etag), u"/f");
        if (job.sources && job.sources->pieces) policy.ignore_pieces();
        receive(first, 100'000);
    }

    Clock::time_point now{std::chrono::hours(1)};
    PolicyRules rules;
    CJobNode job;
    JobPolicy policy;
    std::vector<std::unique_ptr<Worker>> workers;
};

// The first connection goes on through the cut, without another request, and few further ones are asked for.
TEST_F(PolicyTest, WhatAFurtherConnectionIsRefusedGoesBackToTheOneThatReceives) {
    const struct {
        const char* what;
        Result result;
        seconds asked_again_after;  ///< 0: never
    } cases[] = {
        {"forbidden", {Code::server_error, "403"}, seconds(5)},
        {"a page", {Code::other_content, "text/html"}, seconds(5)},
        {"another size", Code::size_differs, seconds(5)},
        {"another version", Code::resource_changed, seconds(5)},
        {"no range", Code::range_ignored, seconds(5)},
        {"a login", {Code::credentials_refused, "401"}, seconds(0)},
        {"busy", {Code::busy, "503"}, seconds(10)},
        {"no connection", Code::transient, seconds(10)},
    };
    Worker& first = *workers.front();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(policy.may_start(1));
        Worker& further = start();
        const std::int64_t cut = further.position;
        EXPECT_EQ(first.limit, cut);
        const AfterFailure after = fail(further, c.result);
        EXPECT_FALSE(after.again);
        EXPECT_EQ(first.limit, size) << "the range did not go back";
        EXPECT_FALSE(policy.look()) << "the running transfer was ended or begun anew";
        leave(further);
        Worker next;
        next.id = 100;
        EXPECT_FALSE(policy.enlist(next, rules, now)) << "asked again at once";
        now += std::max(c.asked_again_after, seconds(10'000 * (c.asked_again_after == seconds(0))));
        EXPECT_EQ(policy.enlist(next, rules, now), c.asked_again_after > seconds(0));
        if (next.segment != nullptr) {
            fail(next, c.result);
            leave(next);
        }
        // What the next case begins with.
        policy.mirrors().forget_answers();
        policy.mirrors().at(0) = {};
        policy.mirrors().at(0).address = u"http://h/f";
        policy.mirrors().at(0).connections = 1;
        policy.mirrors().at(0).ranges_promised = policy.mirrors().at(0).answered = true;
    }
}

TEST_F(PolicyTest, AnAnswerThatFlowsOnTakesTheRangeOfAConnectionWithoutAnswer) {
    Worker& first = *workers.front();
    Worker& further = start();
    receive(first, first.limit - first.position);
    const std::int64_t cut = first.position;
    first.finished_one = true;
    policy.released(first, cut, true, 0);
    ASSERT_EQ(policy.take_work(first, rules, now), Work::taken);
    EXPECT_TRUE(first.keeps_answer);
    EXPECT_EQ(first.position, cut);
    EXPECT_EQ(first.limit, size);
    EXPECT_EQ(further.limit, cut) << "two connections for one range";
}

// A broken second connection left a gap, and the server answers nobody else: the open answer reads on to it.
TEST_F(PolicyTest, WhereNobodyElseIsServedTheOpenAnswerReadsOnToAGap) {
    Worker& first = *workers.front();
    Worker& second = start();
    const std::int64_t begin = second.position;
    ASSERT_EQ(policy.answered(second, answer(begin), begin, rules).next, Verdict::Next::go_on);
    receive(second, 50'000);
    fail(second, Code::transient, true);
    fail(second, {Code::server_error, "403"});
    leave(second);
    receive(first, first.limit - first.position);
    first.finished_one = true;
    policy.released(first, first.position, true, 0);
    ASSERT_EQ(policy.take_work(first, rules, now), Work::taken);
    EXPECT_TRUE(first.keeps_answer);
    EXPECT_EQ(first.position, begin + 50'000);
    EXPECT_EQ(first.limit, size);
}

// A machine that tells no version gave bytes where nothing stood beside them, and another one shows that they
// are not of the first version: without this both would be asked in turn for ever.
TEST_F(PolicyTest, BytesThatAnAnswerOfTheFirstVersionContradictsGo) {
    Worker& first = *workers.front();
    Worker& further = start();
    const std::int64_t cut = further.position;
    ASSERT_EQ(policy.answered(further, answer(cut, ""), cut, rules).next, Verdict::Next::go_on);
    receive(further, 50'000);
    receive(first, first.limit - first.position);
    EXPECT_FALSE(policy.contradicted(first, cut - 4096, cut + 4096))
        << "it is the first one that is believed";
    EXPECT_TRUE(policy.is_there(cut - 4096, cut));
    EXPECT_FALSE(policy.is_there(cut, cut + 4096));
}

// A tag or a date may be the same on two machines, or before and after a change within a second.
TEST_F(PolicyTest, AnswersOfOneTagThatDifferAreOfOneVersionNoMore) {
    Worker& first = *workers.front();
    Worker& same = start();
    const std::int64_t cut = same.position;
    ASSERT_EQ(policy.answered(same, answer(cut), cut, rules).next, Verdict::Next::go_on);
    receive(same, 50'000);
    receive(first, 200'000);
    Worker& doubtful = start();
    const std::int64_t at = doubtful.position;
    ASSERT_EQ(policy.answered(doubtful, answer(at, ""), at, rules).next, Verdict::Next::go_on);
    receive(first, first.limit - first.position);
    EXPECT_FALSE(policy.contradicted(first, cut, cut + 4096)) << "it was there first";
    EXPECT_TRUE(policy.is_there(0, cut));
    EXPECT_FALSE(policy.is_there(cut, cut + 1));
    EXPECT_EQ(job.validators.etag, "W/\"a\"") << "a later run would believe it";
}

// Zeros, say: they hold no answers together, and a block of them is no reason to begin anew.
TEST_F(PolicyTest, BytesThatEveryVersionMayHaveTellNothing) {
    constexpr std::int64_t half = size / 2;
    constexpr int most_plain = 12;
    const struct {
        const char* what;
        std::int64_t plain_until, old_until;  ///< of what is there, against what the server has now
        bool restarts;
        int fewest, most;  ///< comparisons
    } cases[] = {
        {"one version, but for the joint", 0, 0, false, 7, 7},
        {"the same byte everywhere", size, 0, false, 7 + most_plain, 7 + most_plain},
        {"two versions", 0, half, true, 8, 8},
        {"all of an old version, which begins with zeros", 40'000, size, false, 8, 7 + most_plain},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Beginning begun(rules, now, u"http://h/f");
        JobPolicy& one = begun.policy;
        Worker& worker = begun.worker;
        ASSERT_EQ(one.answered(worker, answer(0, ""), 0, rules).next, Verdict::Next::adopt);
        one.adopt(worker, answer(0, ""), u"/f");
        const auto receive_until = [&](std::int64_t end) {
            const std::int64_t begin = worker.position;
            worker.position = end;
            one.delivered(worker, begin, end - begin);
            one.written(begin, end - begin);
        };
        receive_until(half);
        const FailedAttempt broken{.result = Code::transient, .accepted = true, .progressed = true};
        ASSERT_TRUE(one.failed(worker, broken, rules, now).again);
        const std::int64_t overlap = one.overlap_before(worker);
        EXPECT_GT(one.overlap_before(worker, true), overlap);
        ASSERT_TRUE(one.answered(worker, answer(half - overlap, ""), half - overlap, rules).result.ok());
        one.agreed(worker, half - overlap, half, true);
        receive_until(size);
        EXPECT_FALSE(one.released(worker, -1, true, 0)) << "nobody compares";
        int compared = 0;
        while (one.take_work(worker, rules, now) == Work::taken && worker.check) {
            ASSERT_LT(++compared, 30);
            const std::int64_t begin = worker.check->begin;
            const std::int64_t end = worker.check->end;
            ASSERT_TRUE(one.answered(worker, answer(begin, ""), begin, rules).result.ok());
            if (end > c.plain_until && begin < c.old_until) {
                EXPECT_FALSE(one.contradicted(worker, begin, end));
            } else {
                one.agreed(worker, begin, end, end <= c.plain_until);
            }
            one.released(worker, -1, true, 0);
        }
        EXPECT_GE(compared, c.fewest);
        EXPECT_LE(compared, c.most);
        const auto turn = one.look();
        ASSERT_TRUE(turn);
        EXPECT_EQ(turn->what == JobPolicy::Turn::What::restart, c.restarts);
    }
}

TEST_F(PolicyTest, AnotherVersionIsBelievedWhenNoneReceivesAndItIsSeenThreeTimes) {
    Worker& first = *workers.front();
    EXPECT_TRUE(fail(first, Code::transient, true).again);
    const auto other = [&] {
        const Verdict verdict = policy.answered(first, answer(100'000, "\"b\""), 100'000, rules);
        EXPECT_EQ(verdict.result.code, Code::resource_changed);
        const AfterFailure after = fail(first, verdict.result);
        EXPECT_TRUE(!after.again || after.wait >= seconds(1)) << "not paced";
        return after.again;
    };
    EXPECT_TRUE(other());
    EXPECT_TRUE(other());
    // The first one is seen again: another machine of that name had it.
    EXPECT_EQ(policy.answered(first, answer(100'000), 100'000, rules).next, Verdict::Next::go_on);
    EXPECT_TRUE(fail(first, Code::transient, true).again);
    EXPECT_TRUE(other());
    EXPECT_TRUE(other());
    EXPECT_FALSE(restarts());
    EXPECT_FALSE(other());
    EXPECT_TRUE(restarts());
    leave(first);
    policy.begin_anew();
    EXPECT_EQ(policy.restarts(), 1);
    // A page is no new version either.
    Worker& again = start();
    SourceAnswer page = answer(0, "");
    page.version = {500, "", "", false, "text/html"};
    EXPECT_EQ(policy.answered(again, page, 0, rules).result.code, Code::other_content);
}

// Over FTP and SFTP the time of the last change is asked for again behind the last byte, of one connection as
// of several.
TEST_F(PolicyTest, AFileThatWasWrittenWhileItCameIsFetchedAnew) {
    struct Case {
        const char* what;
        const char* time;
        Result result;  ///< of the question; ok: it is answered with the time
        bool is_fetched_anew;
        const char16_t* address = u"ftp://h/f";
    };
    const Case cases[] = {{"the same", "20240101000000", {}, false},
                          {"another", "20240101000001", {}, true},
                          {"not told any more", "", {}, false},
                          {"the server has gone", "", Code::transient, false},
                          {"the same by SFTP", "20240101000000", {}, false, u"sftp://h/f"},
                          {"another by SFTP", "20240101000001", {}, true, u"sftp://h/f"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Beginning begun(rules, now, c.address);
        CJobNode& file = begun.file;
        JobPolicy& one = begun.policy;
        Worker& worker = begun.worker;
        SourceAnswer given = answer(0, "");
        given.address = file.address;
        given.version.last_modified = "20240101000000";
        given.version.strong_date = true;
        ASSERT_EQ(one.answered(worker, given, 0, rules).next, Verdict::Next::adopt);
        one.adopt(worker, given, u"/f");
        worker.position = size;
        one.delivered(worker, 0, size);
        one.written(0, size);
        ASSERT_FALSE(one.released(worker, -1, false, 0)) << "nobody asked";
        ASSERT_EQ(one.take_work(worker, rules, now), Work::taken);
        ASSERT_TRUE(worker.check && worker.check->only_version);
        given.version.last_modified = c.time;
        // One that cannot say is asked three more times.
        for (int seen = 1; seen <= 4 && worker.check; ++seen) {
            Result result = c.result;
            if (result.ok()) result = one.answered(worker, given, 0, rules).result;
            if (result.ok()) {
                one.released(worker, -1, true, 0);
            } else if (!one.failed(worker, {.result = result, .fruitless = seen}, rules, now).again) {
                one.released(worker, -1, false, 0);
            }
        }
        const auto turn = one.look();
        ASSERT_TRUE(turn);
        EXPECT_EQ(turn->what == JobPolicy::Turn::What::restart, c.is_fetched_anew);
    }
}

// A further connection was shown another version. Whether the first one gave the old file to its end, or what
// was written over it, is seen where its blocks are those of the new one.
TEST_F(PolicyTest, AFileThatWasSeenToChangeIsComparedBehindTheLastByte) {
    struct Case {
        const char* what;
        std::int64_t new_from;  ///< where the bytes of the new version begin in what came
        Result result;          ///< of the questions; ok: they are answered
        bool is_fetched_anew;
        const char* etag = "\"b\"";  ///< of the answers to them
    };
    const Case cases[] = {
        {"another file took its place", size, {}, false},
        {"written over", 600'000, {}, true},
        {"the same bytes", 0, {}, false},
        {"nobody tells", 600'000, {Code::server_error, "403"}, false},
        {"another machine still has the old one", 0, {}, false, "\"a\""},
        {"each answer names another version", 600'000, {}, false, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CJobNode file;
        file.address = u"http://h/f";
        file.connections = file.max_threads = 2;
        file.append_segment(0, unknown_end);
        JobPolicy one(file, 1, false);
        one.begin(false);
        Worker first;
        first.id = 1;
        const auto receive_until = [&](std::int64_t end) {
            one.delivered(first, first.position, end - first.position);
            one.written(first.position, end - first.position);
            first.position = end;
        };
        ASSERT_TRUE(one.enlist(first, rules, now));
        ASSERT_EQ(one.answered(first, answer(0), 0, rules).next, Verdict::Next::adopt);
        one.adopt(first, answer(0), u"/f");
        receive_until(400'000);
        Worker further;
        further.id = 2;
        ASSERT_TRUE(one.enlist(further, rules, now));
        const Verdict verdict =
            one.answered(further, answer(further.position, "\"b\""), further.position, rules);
        ASSERT_EQ(verdict.result.code, Code::resource_changed);
        EXPECT_FALSE(one.failed(further, {.result = verdict.result}, rules, now).again);
        one.released(further, -1, false, 0);
        one.strike(further, verdict.result);
        receive_until(size);
        EXPECT_FALSE(one.released(first, -1, true, 0)) << "nobody asked";
        int asked = 0;
        while (one.take_work(first, rules, now) == Work::taken) {
            ASSERT_LT(++asked, 30);
            ASSERT_TRUE(first.check);
            const std::int64_t begin = first.check->begin;
            const std::int64_t end = first.check->end;
            const std::string etag = c.etag != nullptr ? c.etag : "\"" + std::to_string(asked) + "\"";
            Result result = c.result;
            if (result.ok()) result = one.answered(first, answer(begin, etag.c_str()), begin, rules).result;
            const bool was_asked = result.ok();
            if (!was_asked) {
                EXPECT_FALSE(one.failed(first, {.result = result, .fruitless = 1}, rules, now).again);
            } else if (begin >= c.new_from) {
                one.agreed(first, begin, end);
            } else {
                EXPECT_FALSE(one.contradicted(first, begin, end)) << "a connection is blamed";
            }
            one.released(first, -1, was_asked, 0);
        }
        const auto turn = one.look();
        ASSERT_TRUE(turn);
        EXPECT_EQ(turn->what == JobPolicy::Turn::What::restart, c.is_fetched_anew);
    }
}

/// Jobs of two mirrors without hashes, whose answers meet at a joint.
class TwoMirrorsTest : public PolicyTest {
  protected:
    struct Job {
        Job(const PolicyRules& rules, Clock::time_point now, const char* etag) {
            file.address = u"http://h/f";
            file.connections = file.max_threads = 2;
            JobSources sources;
            sources.mirrors = {u"http://h/f", u"http://m/f"};
            file.sources = std::make_shared<const JobSources>(std::move(sources));
            file.append_segment(0, unknown_end);
            policy.begin(false);
            first.id = 1;
            second.id = 2;
            EXPECT_TRUE(policy.enlist(first, rules, now));
            EXPECT_EQ(policy.answered(first, answer(0, etag), 0, rules).next, Verdict::Next::adopt);
            policy.adopt(first, answer(0, etag), u"/f");
            EXPECT_TRUE(policy.enlist(second, rules, now));
            EXPECT_NE(first.mirror, second.mirror);
            joint = second.position;
            EXPECT_TRUE(policy.answered(second, answer(joint, etag), joint, rules).result.ok());
        }
        void receive(Worker& worker, std::int64_t end) {
            const std::int64_t begin = worker.position;
            policy.delivered(worker, begin, end - begin);
            policy.written(begin, end - begin);
            worker.position = end;
        }

        /// What each gave agrees with what the other one has.
        void agree_on_blocks(const PolicyRules& rules, Clock::time_point now) {
            for (Worker* worker : {&second, &first}) {
                while (policy.take_work(*worker, rules, now) == Work::taken) {
                    ASSERT_TRUE(worker->check);
                    const std::int64_t begin = worker->check->begin;
                    ASSERT_TRUE(policy.answered(*worker, answer(begin, ""), begin, rules).result.ok());
                    policy.agreed(*worker, begin, worker->check->end);
                    policy.released(*worker, -1, true, 0);
                }
            }
        }

        CJobNode file;
        JobPolicy policy{file, 1, false};
        Worker first;
        Worker second;
        std::int64_t joint = 0;
    };
};

// Who asks a mirror again may get another version than before: a joint that nobody compared is compared
// behind the last byte.
TEST_F(TwoMirrorsTest, WhereTheirBytesTouchTheyAgreeOrAreFetchedAnew) {
    for (const bool agrees : {true, false}) {
        SCOPED_TRACE(agrees);
        Job two(rules, now, "");
        Worker& second = two.second;
        two.receive(second, size);
        EXPECT_FALSE(two.policy.released(second, -1, true, 0));
        two.receive(two.first, two.joint);
        EXPECT_FALSE(two.policy.released(two.first, -1, true, 0));
        ASSERT_EQ(two.policy.take_work(second, rules, now), Work::taken);
        ASSERT_TRUE(second.check && second.check->begin < two.joint && second.check->end > two.joint);
        const std::int64_t begin = second.check->begin;
        bool again = true;
        for (int seen = 0; seen < 20 && again; ++seen) {
            ASSERT_TRUE(two.policy.answered(second, answer(begin, ""), begin, rules).result.ok());
            if (agrees) two.policy.agreed(second, begin, second.check->end);
            const FailedAttempt differs{.result = Code::resource_changed, .accepted = true};
            again = !agrees && two.policy.failed(second, differs, rules, now).again;
        }
        EXPECT_FALSE(again);
        two.policy.released(second, -1, agrees, 0);
        if (agrees) two.agree_on_blocks(rules, now);
        const auto turn = two.policy.look();
        ASSERT_TRUE(turn);
        EXPECT_EQ(turn->what, agrees ? JobPolicy::Turn::What::end : JobPolicy::Turn::What::restart);
    }
}

// A later run does not know whose bytes are whose, and would take what touches for one mirror's.
TEST_F(TwoMirrorsTest, WhereTheirBytesTouchASavedStateHasAGap) {
    Job two(rules, now, "\"a\"");
    const std::int64_t end = two.joint + 100'000;
    two.receive(two.second, end);
    two.receive(two.first, two.joint);
    const auto bytes_missing = [&] {
        const auto saved = two.file.twin();
        two.policy.open_joints(*saved);
        std::int64_t missing = 0;
        for (const auto& segment : saved->segments)
            missing += std::max<std::int64_t>(std::min(segment->end, end) - segment->start, 0);
        return missing;
    };
    EXPECT_EQ(bytes_missing(), 4096);
    two.policy.agreed(two.first, two.joint, two.joint + 4096);
    EXPECT_EQ(bytes_missing(), 0) << "it was compared";
}

// Zeros are where two mirrors meet, and prove nothing: blocks of what one gave are asked of the other one.
TEST_F(TwoMirrorsTest, BlocksThatOneGaveAreComparedWithThoseOfTheOther) {
    constexpr int plain = 3;
    for (const bool agrees : {true, false}) {
        SCOPED_TRACE(agrees);
        Job two(rules, now, "");
        two.receive(two.second, size);
        two.receive(two.first, two.joint);
        two.policy.agreed(two.first, two.joint, two.joint + 4096);
        two.policy.released(two.first, -1, true, 0);
        EXPECT_FALSE(two.policy.released(two.second, -1, true, 0)) << "nobody compares";
        int compared = 0;
        for (Worker* worker : {&two.second, &two.first}) {
            while (two.policy.take_work(*worker, rules, now) == Work::taken && worker->check) {
                ASSERT_LT(++compared, 30);
                const std::int64_t begin = worker->check->begin;
                const std::int64_t end = worker->check->end;
                if (worker == &two.first) {
                    EXPECT_GE(begin, two.joint) << "it gave that itself";
                } else {
                    EXPECT_LE(end, two.joint) << "it gave that itself";
                }
                ASSERT_TRUE(two.policy.answered(*worker, answer(begin, ""), begin, rules).result.ok());
                if (agrees) {
                    // Some of them are zeros, too.
                    two.policy.agreed(*worker, begin, end, compared <= plain);
                } else {
                    EXPECT_TRUE(two.policy.contradicted(*worker, begin, end));
                    const FailedAttempt differs{.result = Code::resource_changed, .accepted = true};
                    EXPECT_FALSE(two.policy.failed(*worker, differs, rules, now).again);
                }
                two.policy.released(*worker, -1, agrees, 0);
                if (!agrees) break;
            }
            if (!agrees) break;
        }
        EXPECT_EQ(compared, agrees ? 2 + plain : 1);
        EXPECT_EQ(two.policy.mirrors().at(1).left, !agrees) << "the one that is named first is believed";
        if (!agrees) two.policy.strike(two.second, Code::resource_changed);
        const auto turn = two.policy.look();
        EXPECT_EQ(turn.has_value(), agrees);
        EXPECT_EQ(two.policy.is_there(two.joint, size), agrees);
        EXPECT_TRUE(two.policy.is_there(0, two.joint));
    }
}

TEST_F(TwoMirrorsTest, TheWayOfAMirrorsRedirectIsAskedForAgainOnce) {
    Job two(rules, now, "");
    const FailedAttempt damaged{.result = {Code::server_error, "a damaged body"}, .accepted = true};
    Worker& second = two.second;
    const int mirror = second.mirror;
    two.policy.mirrors().at(two.first.mirror).failures = 100;  // the connection comes back to its own
    int asked = 0;
    while (asked < 10 && !two.policy.mirrors().at(mirror).left) {
        ++asked;
        SourceAnswer given = answer(two.joint, "");
        given.address = u"http://cdn/f?signed";
        ASSERT_TRUE(two.policy.answered(second, given, two.joint, rules).result.ok());
        static_cast<void>(two.policy.failed(second, damaged, rules, now));
    }
    EXPECT_EQ(asked, 2);
}

TEST_F(PolicyTest, AServerThatCannotResumeThrowsNothingAwayThatIsReceivedFromTheStart) {
    Worker& first = *workers.front();
    Worker& further = start();
    const Verdict verdict = policy.answered(further, answer(0), further.position, rules);
    EXPECT_EQ(verdict.result.code, Code::range_ignored);
    fail(further, verdict.result);
    leave(further);
    EXPECT_EQ(first.limit, size);
    EXPECT_TRUE(policy.is_only_one());
    EXPECT_FALSE(policy.look());
    EXPECT_FALSE(policy.may_start(1));
    // It breaks: now the whole is asked for again, from zero.
    EXPECT_TRUE(fail(first, Code::transient, true).again);
    EXPECT_EQ(first.position, 0);
    EXPECT_EQ(policy.answered(first, answer(0), 0, rules).next, Verdict::Next::adopt);
}

TEST_F(PolicyTest, AnswersThatEndAtTheSameByteAgainAndAgainEndTheJob) {
    Worker& first = *workers.front();
    for (int fruitless = 1; fruitless < 10; ++fruitless)
        ASSERT_TRUE(fail(first, Code::transient, true, fruitless).again) << fruitless;
    EXPECT_FALSE(fail(first, Code::transient, true, 10).again);
    EXPECT_EQ(end(), Code::server_error);
}

TEST_F(PolicyTest, TheJobsOwnDelayAndLimitAreKept) {
    job.retry_by_settings = 0;
    job.retries = 1;
    job.retry_delay = 7;
    Worker& first = *workers.front();
    const AfterFailure after = fail(first, Code::transient, true, 1);
    EXPECT_TRUE(after.again && after.announced);
    EXPECT_EQ(after.wait, seconds(7));
    EXPECT_FALSE(fail(first, Code::transient, true, 2).again);
}

TEST_F(PolicyTest, ARefusalBesideConnectionsThatReceiveIsNothingThatTheJobWaitsFor) {
    Worker& first = *workers.front();
    Worker& further = start();
    fail(further, {Code::busy, "503"});
    policy.strike(further, {Code::busy, "503"});
    receive(first, first.limit - first.position);
    policy.released(first, -1, true, 0);
    JobProgress shown;
    policy.fill(shown, now);
    EXPECT_EQ(shown.waiting_for, "") << "all is there";
    // When it is the one that receives that is refused, the job does wait.
    policy.segments().take_back(0, 100'000);
    now += std::chrono::hours(1);
    Worker& alone = start();
    EXPECT_TRUE(fail(alone, {Code::busy, "503 later"}).again);
    policy.fill(shown, now);
    EXPECT_EQ(shown.waiting_for, "503 later");
}

// The connections end one after the other; what the last of them hear comes when none receives any more.
TEST_F(PolicyTest, AJobThatIsStoppedEndsAsStoppedWhateverItsConnectionsStillHear) {
    Worker& first = *workers.front();
    Worker& further = start();
    Worker& last = start();
    policy.stop();
    EXPECT_FALSE(fail(first, Code::stopped, true).again);
    policy.released(first, -1, false, 0);
    policy.strike(first, Code::stopped);
    const Verdict verdict = policy.answered(further, answer(0), further.position, rules);
    EXPECT_EQ(verdict.next, Verdict::Next::refuse) << "throws away what is there";
    EXPECT_EQ(verdict.result.code, Code::stopped);
    EXPECT_FALSE(fail(last, {Code::server_error, "403"}).again);
    leave(further);
    leave(last);
    JobProgress shown;
    policy.fill(shown, now);
    EXPECT_EQ(shown.waiting_for, "");
    EXPECT_FALSE(policy.look());
    EXPECT_FALSE(policy.may_start(0));
    ASSERT_TRUE(policy.idle_end(now));
    EXPECT_EQ(policy.idle_end(now)->code, Code::stopped);
}

class MixingPolicyTest : public PolicyTest {
  protected:
    MixingPolicyTest() : PolicyTest(true) {}
    /// A further answer of that version; its result.
    Code answered(std::int64_t offset, const char* etag, std::int64_t told = size) {
        SourceAnswer given = answer(offset, etag);
        given.version.size = told;
        return policy.answered(*workers.front(), given, offset, rules).result.code;
    }
};

// A resource that never holds still: with a hash of the whole file its parts may be of two versions, but only
// after as many new beginnings as for everybody, only of one size, and only until the hash is wrong.
TEST_F(MixingPolicyTest, VersionsAreMixedOnlyWhereAHashDecidesAtTheEnd) {
    const char* const tags[] = {"\"b\"", "\"c\"", "\"d\"", "\"e\""};
    for (const char* tag : tags) change_to(tag);
    EXPECT_EQ(policy.restarts(), 4);
    Worker& first = *workers.front();
    ASSERT_TRUE(fail(first, Code::transient, true).again);
    EXPECT_EQ(answered(100'000, "\"f\"", size + 1), Code::size_differs);
    EXPECT_EQ(answered(100'000, "\"f\""), Code::ok);
    receive(first, size - 100'000);
    EXPECT_TRUE(policy.released(first, -1, true, 0));
    EXPECT_EQ(end(), Code::ok);
    bool anew = false;
    EXPECT_TRUE(policy.hash_was_wrong(anew));
    EXPECT_TRUE(anew);
    leave(first);
    workers.clear();
    policy.begin_anew();
    EXPECT_TRUE(policy.is_only_one()) << "one answer brings the whole";
    begin_with("\"g\"");
    EXPECT_TRUE(fail(*workers.front(), Code::transient, true).again);
    EXPECT_EQ(workers.front()->position, 0) << "two versions again";
}

TEST_F(PolicyTest, WithoutAHashAResourceThatNeverHoldsStillIsTakenFromOneAnswer) {
    for (const char* tag : {"\"b\"", "\"c\"", "\"d\"", "\"e\""}) change_to(tag);
    EXPECT_TRUE(policy.is_only_one());
    EXPECT_TRUE(fail(*workers.front(), Code::transient, true).again);
    EXPECT_EQ(workers.front()->position, 0);
}

/// Hashes of pieces that do not fit the file, and no other hash.
class MisfitPiecesTest : public PolicyTest {
  protected:
    MisfitPiecesTest() : PolicyTest(false, two_pieces()) {}
    static std::shared_ptr<const JobSources> two_pieces() {
        JobSources sources;
        sources.size = size;
        sources.pieces = PieceHashes{DigestKind::sha1, 65536, std::vector<std::byte>(40)};
        return std::make_shared<const JobSources>(std::move(sources));
    }
};

TEST_F(MisfitPiecesTest, PiecesThatDoNotFitTheFileDecideNothing) {
    for (const char* tag : {"\"b\"", "\"c\"", "\"d\"", "\"e\""}) change_to(tag);
    Worker& first = *workers.front();
    ASSERT_TRUE(fail(first, Code::transient, true).again);
    EXPECT_EQ(first.position, 0) << "versions are mixed, and nothing tells";
}

// Where a redirect leads may be gone: the way is asked for again, at once, but only once before it brings
// something.
TEST_F(PolicyTest, TheWayOfARedirectIsAskedForAgainOnce) {
    Worker& first = *workers.front();
    const auto led = [&] {
        SourceAnswer given = answer(first.position);
        given.address = u"http://cdn/f?signed";
        ASSERT_TRUE(policy.answered(first, given, first.position, rules).result.ok());
    };
    const Result wrong{Code::server_error, "a damaged body"};
    ASSERT_TRUE(fail(first, Code::transient, true).again);
    for (int progress = 0; progress < 3; ++progress) {
        led();
        receive(first, 1000);
        const AfterFailure after = fail(first, wrong, true, 0, true);
        ASSERT_TRUE(after.again);
        EXPECT_EQ(after.wait, seconds(0));
        EXPECT_EQ(policy.mirrors().at(0).effective, u"");
    }
    led();
    EXPECT_FALSE(fail(first, wrong, true).again) << "the same for ever, without a pause";
    EXPECT_EQ(end(), Code::server_error);
}

// What is unpacked on its way has no places that a range could name.
TEST_F(PolicyTest, AnAnswerThatIsUnpackedIsAskedForFromItsBeginning) {
    for (const bool is_led : {false, true}) {
        SCOPED_TRACE(is_led);
        Beginning begun(rules, now, u"http://h/f");
        JobPolicy& one = begun.policy;
        Worker& worker = begun.worker;
        SourceAnswer given = answer(0, "");
        given.encoded = given.ranges_denied = true;
        given.version.size = -1;
        if (is_led) given.address = u"http://h/y";
        ASSERT_EQ(one.answered(worker, given, 0, rules).next, Verdict::Next::adopt);
        one.adopt(worker, given, u"/f");
        worker.position = 200'000;
        one.written(0, 200'000);
        const FailedAttempt damaged{.result = {is_led ? Code::server_error : Code::transient, "damaged"},
                                    .accepted = true,
                                    .progressed = true};
        ASSERT_TRUE(one.failed(worker, damaged, rules, now).again);
        EXPECT_EQ(worker.position, 0);
        // Whoever asks for a part all the same does not get it.
        worker.position = 200'000;
        SourceAnswer part = answer(200'000, "");
        EXPECT_EQ(one.answered(worker, part, 200'000, rules).next, Verdict::Next::refuse);
    }
}

// The address says HTTP and leads to FTP: what another run left is compared as that of an FTP address is.
TEST_F(PolicyTest, WhereARedirectLeadsToFtpAJobThatGoesOnComparesWhatMeets) {
    constexpr std::int64_t there = 300'000;
    CJobNode file;
    file.address = u"http://h/f";
    file.file_size = size;
    file.append_segment(there, size);
    file.validators = {"", "20200101000000", true, ""};
    JobPolicy one(file, 1, false);
    one.begin(true);
    Worker worker;
    worker.id = 1;
    ASSERT_TRUE(one.enlist(worker, rules, now));
    SourceAnswer given = answer(there, "");
    given.address = u"ftp://h/f";
    given.version = {size, "20200101000000", "", true, ""};
    Verdict verdict = one.answered(worker, given, there - one.overlap_before(worker), rules);
    ASSERT_EQ(verdict.result.code, Code::joint_unsure) << "bytes of another place, maybe";
    ASSERT_TRUE(one.failed(worker, {.result = verdict.result, .asked = there}, rules, now).again);
    const std::int64_t overlap = one.overlap_before(worker);
    ASSERT_GT(overlap, 0);
    given.granted = there - overlap;
    ASSERT_TRUE(one.answered(worker, given, there - overlap, rules).result.ok());
    EXPECT_TRUE(one.contradicted(worker, there - overlap, there));
    const auto turn = one.look();
    ASSERT_TRUE(turn);
    EXPECT_EQ(turn->what, JobPolicy::Turn::What::restart);
}

TEST_F(PolicyTest, TheRetryLimitCountsForTheWholeJob) {
    rules.retry_limit = 3;
    Worker* worker = workers.front().get();
    ASSERT_TRUE(fail(*worker, Code::transient, true).again);
    int attempts = 0;
    while (fail(*worker, {Code::busy, "503"}).again) ASSERT_LT(++attempts, 10);
    EXPECT_EQ(attempts, 2);
    leave(*worker);
    EXPECT_FALSE(policy.may_start(0)) << "another connection tries the same";
    ASSERT_TRUE(policy.idle_end(now));
    EXPECT_EQ(policy.idle_end(now)->code, Code::transient);
}

}  // namespace
}  // namespace vantlow
