// Servers and networks that fail: each job ends with the right file or a clear error.
#include <atomic>
#include <string_view>
#include <thread>

#include "job_fixture.h"
#include "support/fault_hook.h"

namespace vantlow::test {
namespace {

constexpr std::size_t size = 400'000;
const std::string content = make_content(2, size);

TEST_F(JobTest, ContinuesWhereConnectionsBreak) {
    for (const bool reset : {true, false}) {
        SCOPED_TRACE(reset ? "reset" : "closed");
        FileResource resource{.content = content};
        (reset ? resource.reset_after : resource.close_after) = 70'000;
        FileServer server(resource);
        auto job = make_job(server.url16(), 2);
        expect_file(run(*job), content);
    }
}

TEST_F(JobTest, FinalRefusalsEndTheJobWithTheReason) {
    const std::pair<int, Code> cases[] = {{401, Code::credentials_refused},
                                          {403, Code::server_error},
                                          {404, Code::server_error},
                                          {410, Code::server_error}};
    for (const auto& [status, code] : cases) {
        SCOPED_TRACE(status);
        FileServer server(FileResource{.status = status, .reason = "Because Of It"});
        auto job = make_job(server.url16(), 4);
        const JobOutcome outcome = run(*job);
        EXPECT_EQ(outcome.result.code, code);
        EXPECT_NE(outcome.result.message().find("Because Of It"), std::string::npos)
            << outcome.result.message();
        EXPECT_EQ(server.server().request_count(), 1U);
    }
    EXPECT_TRUE(only({}));
}

TEST_F(JobTest, AServerThatCannotResumeIsReadByOneConnection) {
    FileServer server(FileResource{.content = content, .ignore_range = true, .rate = 2'000'000});
    auto job = make_job(server.url16(), 4);
    expect_file(run(*job), content);
    EXPECT_TRUE(log.has("This site can't resume broken downloads."));

    // Without leave to start over the second connection ends and the first goes on.
    set(setting::resume, 0);
    auto strict = make_job(server.url16(), 2);
    strict->file_name = u"strict.bin";
    const JobOutcome outcome = run(*strict);
    EXPECT_EQ(outcome.received, static_cast<std::int64_t>(size));
    expect_file(outcome, content);

    // Bytes that nothing can continue are not left lying about.
    FileServer cut(FileResource{.content = content, .ignore_range = true, .length_shift = 1000});
    auto broken = make_job(cut.url16("/cut.bin"));
    broken->retry_by_settings = broken->retries = 0;
    EXPECT_FALSE(run(*broken).result.ok());
    EXPECT_EQ(path_kind(folder.path(u"cut.bin.vantlow")), PathKind::none);
}

// The second connection gets the whole file, too, while the first one writes its last bytes.
TEST_F(JobTest, AnAnswerFromZeroAtTheVeryEndSpoilsNothing) {
    const std::string whole = make_content(9, 200'000);
    const auto end = static_cast<std::int64_t>(whole.size());
    HoldUntilLogged hold(log, message_text(Message::cannot_resume),
                         [end](Operation operation, std::int64_t written_to) {
                             return operation == Operation::write && written_to == end;
                         });
    // Slow enough that the first connection notices where it was cut, and flows on from there.
    FileServer server(FileResource{.content = whole, .accept_ranges = false, .rate = 2'000'000});
    server.set_interceptor([&](Exchange& exchange) {
        while (exchange.request().range_first && !hold.reached &&
               exchange.stall(std::chrono::milliseconds(2))) {
        }
        return false;
    });
    auto job = make_job(server.url16(), 2);
    JobOutcome outcome;
    {
        const HookInPlace in_place(hold);
        outcome = run(*job);
    }
    EXPECT_TRUE(hold.released) << log.all();
    expect_file(outcome, whole);
}

TEST_F(JobTest, WrongRangesNeverReachTheFile) {
    const struct {
        const char* name;
        FileResource resource;
    } cases[] = {
        {"start is off by one", {.content = content, .range_shift = 1}},
        {"total differs", {.content = content, .total_shift = 5}},
        {"always 206 with the whole", {.content = content, .accept_ranges = false, .always_206 = true}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FileServer server(c.resource);
        auto job = make_job(server.url16(), 3);
        const JobOutcome outcome = run(*job);
        if (outcome.result.ok()) {
            expect_file(outcome, content);
        } else {
            EXPECT_FALSE(outcome.result.message().empty());
            EXPECT_TRUE(only({}));
        }
    }
}

TEST_F(JobTest, ClumsyAnswersAreTaken) {
    ScriptedServer server([](Exchange& exchange) {
        exchange.send_raw("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n");
        // A part that does not say which one: all of it, where all was asked for.
        exchange.answer(206, "Partial Content", "abc");
    });
    auto job = make_job(server.url16("/x"));
    expect_file(run(*job), "abc");
    // The end of the chunks is there, but for the empty line behind it.
    ScriptedServer short_end([](Exchange& exchange) {
        exchange.send_raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n");
        exchange.close();
    });
    auto chunked = make_job(short_end.url16("/y"));
    expect_file(run(*chunked), "abc");
}

TEST_F(JobTest, ASlowConnectionIsReplacedAtTheEnd) {
    FileServer server(FileResource{.content = content});
    server.set_interceptor([](Exchange& exchange) {
        if (exchange.connection() != 2 || !exchange.request().range_first) return false;
        const auto first = static_cast<std::size_t>(*exchange.request().range_first);
        exchange.send_head(206, "Partial Content",
                           {{"Content-Range", "bytes " + std::to_string(first) + "-" +
                                                  std::to_string(size - 1) + "/" + std::to_string(size)},
                            {"Content-Length", std::to_string(size - first)},
                            {"Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT"}});
        return exchange.send_paced(std::string_view(content).substr(first), 1000) || true;
    });
    set(setting::split_size, 150'000);
    auto job = make_job(server.url16(), 2);
    const auto begun = Clock::now();
    expect_file(run(*job), content);
    EXPECT_LT(Clock::now() - begun, std::chrono::seconds(8)) << "the slow connection alone takes minutes";
}

// Bytes that came before the part was cut lie behind its end: they, too, are part of the joint.
TEST_F(JobTest, AnAnswerThatRanPastACutFitsItsNeighbour) {
    const std::string whole = make_content(31, 60'000);
    std::atomic<bool> second_answered{false};
    ScriptedServer server([&](Exchange& exchange) {
        if (exchange.connection() == 1) {
            exchange.send_head(200, "OK", {{"Content-Length", "60000"}, {"Accept-Ranges", "bytes"}});
            for (int i = 0; i < 100 && !second_answered; ++i) exchange.stall(std::chrono::milliseconds(2));
            exchange.send(std::string_view(whole).substr(0, 40'000));
            exchange.stall(std::chrono::milliseconds(50));
            exchange.send(std::string_view(whole).substr(40'000));
            return;
        }
        const auto first = static_cast<std::size_t>(exchange.request().range_first.value_or(0));
        exchange.answer(206, "Partial Content", std::string_view(whole).substr(first),
                        {{"Content-Range", "bytes " + std::to_string(first) + "-59999/60000"}});
        second_answered = true;
    });
    auto job = make_job(server.url16("/file.bin"), 2);
    expect_file(run(*job), whole);
    EXPECT_FALSE(log.has("newer, download it again")) << log.all();
}

// It may be approximate: too small it cuts nothing off, too large it pads nothing.
TEST_F(JobTest, ASizeBesideTheNameIsShownAndDecidesNothing) {
    for (const std::int64_t told : {300'000, 900'000}) {
        SCOPED_TRACE(told);
        const std::string field = "attachment; filename=\"a.bin\"; size=" + std::to_string(told);
        FileServer server(FileResource{.content = content,
                                       .more = {{"Content-Disposition", field}},
                                       .chunked = true,
                                       .hold_after = 200'000});
        auto job = make_job(server.url16());
        Run running(*this, *job, {});
        ASSERT_TRUE(running.wait_for_done(150'000)) << log.all();
        EXPECT_EQ(running.thread().progress().size, told);
        server.release();
        expect_file(running.end(), content);
    }
}

TEST_F(JobTest, ARefusedRangeIsTold) {
    FileServer server(FileResource{.content = content, .close_after = 70'000, .break_times = 1});
    server.set_interceptor([](Exchange& exchange) {
        return exchange.request().range_first && exchange.answer(416, "Range Not Satisfiable");
    });
    auto job = make_job(server.url16());
    expect_file(run(*job), content);
    EXPECT_TRUE(log.has(message_text(Message::partial_refused))) << log.all();
}

// The first answer told no size and broke; the next ones give the rest in parts. A size that no part tells is
// where the server has no more to give: it says so (416), gives a part without a new byte, or the whole.
TEST_F(JobTest, TheEndOfAPartIsNotTheEndOfTheFile) {
    enum class AtEnd { told_before, refuses, refuses_with_size, gives_whole, gives_nothing_new };
    for (const AtEnd at_end : {AtEnd::told_before, AtEnd::refuses, AtEnd::refuses_with_size,
                               AtEnd::gives_whole, AtEnd::gives_nothing_new}) {
        SCOPED_TRACE(static_cast<int>(at_end));
        FileResource resource{.content = content, .chunked = true, .close_after = 70'000, .break_times = 1};
        // Without them each answer begins with some bytes that are there already.
        if (at_end == AtEnd::gives_nothing_new) resource.etag = resource.last_modified = {};
        resource.ignore_range = at_end == AtEnd::gives_whole;
        FileServer server(resource);
        server.set_interceptor([at_end](Exchange& exchange) {
            if (!exchange.request().range_first) return false;
            const auto first = static_cast<std::size_t>(*exchange.request().range_first);
            const std::string total = std::to_string(content.size());
            if (first >= content.size()) {
                if (at_end == AtEnd::gives_whole) return false;
                Headers fields;
                if (at_end == AtEnd::refuses_with_size) fields = {{"Content-Range", "bytes */" + total}};
                return exchange.answer(416, "Range Not Satisfiable", {}, fields);
            }
            const std::string_view part = std::string_view(content).substr(first, 100'000);
            const std::string range =
                std::to_string(first) + "-" + std::to_string(first + part.size() - 1) + "/";
            Headers fields{
                {"Content-Range", "bytes " + range + (at_end == AtEnd::told_before ? total : "*")}};
            if (at_end != AtEnd::gives_nothing_new)
                fields.emplace_back("Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT");
            return exchange.answer(206, "Partial Content", part, fields);
        });
        auto job = make_job(server.url16());
        if (at_end == AtEnd::told_before) {
            // One failure is the break, and none a part that ends where the server chose.
            job->retry_by_settings = 0;
            job->retries = 1;
        }
        expect_file(run(*job), content);
    }
}

}  // namespace
}  // namespace vantlow::test
