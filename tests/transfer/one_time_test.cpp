// Addresses that serve once, versions that change: whole jobs over real sockets. The rules behind them are
// tried in policy_model_test and policy_test.
#include <map>
#include <mutex>

#include "job_fixture.h"

namespace vantlow::test {
namespace {

constexpr std::size_t size = 200'000;
const std::string content = make_content(21, size);
const std::string other_content = make_content(22, size);
const std::string page = "<html>This link has expired. Please log in.</html>";

using OneTimeTest = JobTest;

TEST_F(OneTimeTest, TheFirstAnswerBringsTheFileWhateverLaterOnesAre) {
    struct Case {
        const char* what;
        std::function<bool(Exchange&)> later;
    };
    const auto give_page = [](Exchange& exchange) {
        return exchange.answer(200, "OK", page, {{"Content-Type", "text/html"}});
    };
    const auto refuse = [](int status, const char* reason) {
        return [=](Exchange& exchange) { return exchange.answer(status, reason, page); };
    };
    const Case cases[] = {
        {"a page", give_page},
        {"a redirect to a page",
         [&](Exchange& exchange) {
             if (exchange.request().target == "/login") return give_page(exchange);
             return exchange.answer(302, "Found", "", {{"Location", "/login"}});
         }},
        {"forbidden", refuse(403, "Forbidden")},
        {"gone", refuse(410, "Gone")},
        {"a login", refuse(401, "Unauthorized")},
        {"no such range", refuse(416, "Range Not Satisfiable")},
        {"busy", refuse(503, "Service Unavailable")},
        {"a reset",
         [](Exchange& exchange) {
             exchange.reset();
             return true;
         }},
        {"another length",
         [](Exchange& exchange) { return exchange.answer(200, "OK", content.substr(0, 150'000)); }},
    };
    // With -n 1 nobody asks again; behind a redirect the way to the file is asked for again, and leads to
    // another address that serves once.
    const struct {
        int connections;
        bool with_validators, redirected;
    } ways[] = {{2, true, false}, {5, false, false}, {3, true, true}, {1, false, false}, {1, true, true}};
    for (const Case& c : cases) {
        for (const auto& way : ways) {
            SCOPED_TRACE(std::string(c.what) + (way.with_validators ? "" : ", no validators") +
                         (way.redirected ? ", redirected" : "") + ", -n " + std::to_string(way.connections));
            FileResource file{.content = content, .rate = 2'000'000};
            file.more = {{"Content-Type", "application/octet-stream"}};
            if (!way.with_validators) file.etag = file.last_modified = "";
            FileServer server(file);
            std::mutex mutex;
            std::map<std::string, int> asked;  // by target, guarded by mutex
            server.set_interceptor([&](Exchange& exchange) {
                const std::string& target = exchange.request().target;
                int times = 0;
                {
                    const std::lock_guard guard(mutex);
                    times = ++asked[target];
                }
                if (target == "/go") {
                    const std::string once = "/file.bin?once=" + std::to_string(times);
                    return exchange.answer(302, "Found", "", {{"Location", once}});
                }
                return (times > 1 || target == "/login") && c.later(exchange);
            });
            auto job = make_job(server.url16(way.redirected ? "/go" : "/file.bin"), way.connections);
            const JobOutcome outcome = run(*job);
            EXPECT_EQ(outcome.restarts, 0);
            const auto requests = static_cast<int>(server.server().request_count());
            if (way.connections == 1) {
                EXPECT_EQ(requests, way.redirected ? 2 : 1);
            } else if (!way.redirected) {
                EXPECT_LE(outcome.received, static_cast<std::int64_t>(size)) << "begun anew";
                EXPECT_GE(requests, 2);
                EXPECT_LE(asked["/file.bin"], way.connections + 2) << "asked again and again";
            } else {
                EXPECT_LE(requests, 20) << "asked again and again";
            }
            expect_file(outcome, content);
        }
    }
}

// While it waits as the server asks, it says what for.
TEST_F(OneTimeTest, AWaitHasAReasonAndANextTry) {
    FileServer server(FileResource{.content = content});
    server.set_interceptor([](Exchange& exchange) {
        return exchange.answer(503, "Service Unavailable", "", {{"Retry-After", "60"}});
    });
    auto job = make_job(server.url16());
    Run running(*this, *job, {});
    ASSERT_TRUE(log.wait_for("Awaiting 60 seconds to retry.")) << log.all();
    const JobProgress progress = running.thread().progress();
    EXPECT_NE(progress.waiting_for.find("503"), std::string::npos) << progress.waiting_for;
    EXPECT_EQ(progress.attempts, 1);
    ASSERT_TRUE(progress.next_try);
    EXPECT_GT(*progress.next_try, Clock::now() + std::chrono::seconds(50));
}

// Somebody put a state and a partial file there, with segments that say that nearly everything is right.
TEST_F(OneTimeTest, APlantedStateIsLeftAlone) {
    const std::string planted(size, 'x');
    FileServer server(FileResource{.content = content});
    const struct {
        const char* what;
        std::function<void(CJobNode&)> plant;
    } cases[] = {
        {"without a mark", [](CJobNode&) {}},
        {"with a mark of other bytes",
         [](CJobNode& job) {
             job.partial_mark = {static_cast<std::int64_t>(size), 0, 16'384, "00ff"};
         }},
        {"of a longer file",
         [](CJobNode& job) {
             job.partial_mark = {static_cast<std::int64_t>(size) + 1, 0, 0, "00ff"};
         }},
        {"of another address", [](CJobNode& job) { job.address = u"http://elsewhere/file.bin"; }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        log.clear();
        CJobNode state;
        state.address = server.url16();
        state.path = folder.path(u"file.bin");
        state.file_size = size;
        state.append_segment(size - 1, size);
        state.validators = {"\"v1\"", "Sun, 06 Nov 1994 08:49:37 GMT"};
        c.plant(state);
        ASSERT_TRUE(save_resume_state(state, folder.path(u"file.bin.vantlow-job")).ok());
        folder.write(u"file.bin.vantlow", planted);
        auto job = earlier_job(server.url16());
        if (!job) job = make_job(server.url16());
        EXPECT_EQ(run(*job).result.code, Code::ok) << log.all();
        EXPECT_TRUE(log.has("left alone")) << log.all();
        EXPECT_TRUE(file_has(folder.path(u"file(1).bin"), content)) << log.all();
        EXPECT_TRUE(file_has(folder.path(u"file.bin.vantlow"), planted));
        clear_folder();
    }
}

// Two machines behind one name have two versions: only answers of the first one are taken, also where the
// second one says nothing of its own.
TEST_F(OneTimeTest, MachinesThatDisagreeAreToldApart) {
    for (const char* second : {"\"two\"", ""}) {
        SCOPED_TRACE(second);
        FileServer server(FileResource{.content = content, .etag = "\"one\"", .close_after = 60'000});
        std::atomic<int> requests{0};
        server.set_interceptor([&](Exchange&) {
            const bool is_second = requests++ % 2 == 1;
            server.change("/file.bin", [&](FileResource& file) {
                file.content = is_second ? other_content : content;
                file.etag = is_second ? second : "\"one\"";
                if (*second == '\0') file.last_modified.clear();
            });
            return false;
        });
        auto job = make_job(server.url16(), 2);
        const JobOutcome outcome = run(*job);
        EXPECT_EQ(outcome.restarts, 0) << log.all();
        EXPECT_EQ(outcome.result.code, Code::ok) << log.all();
        EXPECT_TRUE(file_has(outcome.path, content));
    }
}

// What an answer without a version brought is no part of a saved state before it was compared.
TEST_F(OneTimeTest, BytesThatNothingVouchesForAreNotContinued) {
    FileServer server(FileResource{.content = content, .rate = 50'000});
    std::atomic<bool> is_honest{false};
    server.set_interceptor([&](Exchange& exchange) {
        const bool is_part = exchange.request().range_first.has_value();
        server.change("/file.bin", [&](FileResource& file) {
            const bool lies = is_part && !is_honest;
            file.content = lies ? other_content : content;
            file.etag = file.last_modified = lies ? "" : "\"one\"";
            if (is_honest) file.rate = 0;
        });
        return false;
    });
    auto job = make_job(server.url16(), 2);
    {
        Run running(*this, *job, {});
        ASSERT_TRUE(running.wait_for_done(60'000)) << log.all();
        running.thread().stop();
    }
    EXPECT_TRUE(log.has("Range: bytes=")) << "the second connection was to bring bytes, too";
    is_honest = true;
    auto again = earlier_job(server.url16());
    ASSERT_NE(again, nullptr);
    const JobOutcome outcome = run(*again);
    EXPECT_EQ(outcome.restarts, 0);
    expect_file(outcome, content);
}

// No answer holds to its end and no two are of one version: parts of several are put together only because
// the hash of the whole file tells whether they fit. Where they do not, one answer has to bring the whole.
TEST_F(OneTimeTest, AHashDecidesWhetherPartsOfSeveralVersionsFit) {
    for (const bool fits : {true, false}) {
        SCOPED_TRACE(fits ? "fits" : "does not fit");
        log.clear();
        FileServer server(FileResource{.content = content, .close_after = 60'000});
        std::atomic<int> version{0};
        std::atomic<int> wholes{0};  // asked for, behind the first answer
        server.set_interceptor([&](Exchange& exchange) {
            const int number = ++version;
            if (number > 1 && !exchange.request().range_first) ++wholes;
            server.change("/file.bin", [&](FileResource& file) {
                file.etag = "\"" + std::to_string(number) + "\"";
                // The fifth beginning is that of the mixture.
                const bool is_last = wholes > 4;
                file.content =
                    fits || is_last ? content : make_content(100U + static_cast<unsigned>(number), size);
                if (is_last) file.close_after = -1;
            });
            return false;
        });
        Digest digest(DigestKind::sha256);
        digest.update(std::as_bytes(std::span(content)));
        RunOptions options;
        options.hash = ExpectedHash{DigestKind::sha256, digest.finish()};
        auto job = make_job(server.url16(), 1);
        const JobOutcome outcome = run(*job, std::move(options));
        EXPECT_EQ(outcome.restarts, 4) << log.all();
        EXPECT_EQ(wholes, fits ? 4 : 5);
        expect_file(outcome, content);
    }
}

}  // namespace
}  // namespace vantlow::test
