// Jobs against a real web server.
#include "job_fixture.h"
#include "support/nginx.h"

namespace vantlow::test {
namespace {

const std::string binary = make_content(5, 3'000'000);

class NginxJobTest : public JobTest {
  protected:
    void SetUp() override {
        if (!Nginx::available()) GTEST_SKIP() << Nginx::missing;
    }
};

TEST_F(NginxJobTest, FetchesWhateverShapeTheAnswerHas) {
    const Nginx nginx(
        "limit_rate 6m;\n"
        "location /whole/ { alias {{documents}}; max_ranges 0; }\n"
        "location /packed/ { alias {{documents}}; gzip_static always; }\n"
        "location /chunked/ { alias {{documents}}; ssi on; ssi_types *; }\n"
        "location /moved/ { rewrite ^/moved/(.*)$ /%73olid/$1 redirect; }\n"
        "location /solid/ { alias {{documents}}; }\n");
    nginx.put(u"file.bin", binary);
    nginx.put(u"file.bin.gz", gzip_stored(binary));
    const struct {
        const char* path;
        bool several;  ///< further connections can take a part
    } cases[] = {
        {"/file.bin", true},          {"/whole/file.bin", false}, {"/packed/file.bin", false},
        {"/chunked/file.bin", false}, {"/moved/file.bin", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        log.clear();
        auto job = make_job(nginx.url16(c.path), 4);
        expect_file(run(*job), binary);
        EXPECT_EQ(log.has("This site can resume broken downloads."), c.several) << log.all();
    }
}

// Two answers at a time, the others get 503 at once: the job goes on with the two that it has.
TEST_F(NginxJobTest, GoesOnWithTheConnectionsThatItIsAllowed) {
    const Nginx nginx("limit_conn one 2; limit_rate 1500k;",
                      "limit_conn_zone $binary_remote_addr zone=one:1m;");
    nginx.put(u"file.bin", binary);
    auto job = make_job(nginx.url16("/file.bin"), 8);
    expect_file(run(*job), binary);
}

TEST_F(NginxJobTest, ContinuesWhatWasStoppedAndNoticesANewerFile) {
    const Nginx nginx("limit_rate 1m;");
    nginx.put(u"file.bin", binary);
    const auto interrupted = [&](int connections) {
        auto job = make_job(nginx.url16("/file.bin"), connections);
        Run running(*this, *job, {});
        EXPECT_TRUE(running.wait_for_done(600'000));
        running.thread().stop();
        EXPECT_EQ(running.end().result.code, Code::stopped);
    };
    interrupted(2);
    auto job = earlier_job(nginx.url16("/file.bin"), 4);
    ASSERT_TRUE(job);
    JobOutcome outcome = run(*job);
    EXPECT_LT(outcome.received, 2'500'000) << "what was there was fetched again";
    expect_file(outcome, binary);

    interrupted(2);
    const std::string newer = make_content(6, 2'000'000);
    nginx.put(u"file.bin", newer);
    job = earlier_job(nginx.url16("/file.bin"), 4);
    ASSERT_TRUE(job);
    outcome = run(*job);
    EXPECT_TRUE(log.has("The file on the server is newer, download it again.")) << log.all();
    expect_file(outcome, newer);
}

// A server that is as quick as memory: what comes in bulk, is cut among connections and meets a full disk.
TEST_F(NginxJobTest, BytesThatComeInBulkStandWhereTheyBelong) {
    const Nginx nginx("");
    const std::string large = make_content(9, 80'000'000);
    nginx.put(u"file.bin", large);
    for (const int connections : {1, 6}) {
        auto job = make_job(nginx.url16("/file.bin"), connections);
        expect_file(run(*job), large);
    }
    FullDisk disk(50'000'000);
    {
        const HookInPlace hook(disk);
        auto job = make_job(nginx.url16("/file.bin"), 4);
        EXPECT_EQ(run(*job).result.code, Code::local_file);
    }
    EXPECT_GT(disk.refused(), 0);
    auto job = earlier_job(nginx.url16("/file.bin"), 4);
    ASSERT_TRUE(job);
    const JobOutcome outcome = run(*job);
    EXPECT_LT(outcome.received, 70'000'000) << "what was there was fetched again";
    expect_file(outcome, large);
}

}  // namespace
}  // namespace vantlow::test
