// A job's record as front ends are told of it: phases, the numbers of failures, pieces of a plain file.
#include <gtest/gtest.h>

#include "app/rpc/job_status.h"

namespace vantlow {
namespace {

TEST(ControlStatus, every_failure_has_the_number_that_front_ends_know) {
    struct Case {
        Code code;
        const char* error;
        int number;
    };
    const std::vector<Case> cases{
        {Code::transient, "Timeout was reached.", 2},
        {Code::transient, "The server took too long.", 2},
        {Code::transient, "The connection broke.", 6},
        {Code::server_error, "The server answered 404 Not Found.", 3},
        {Code::server_error, "The server answered 410 Gone.", 3},
        {Code::server_error, "The server answered 500.", 22},
        {Code::too_many_redirects, "", 22},
        {Code::other_content, "", 22},
        {Code::proxy_refused, "", 6},
        {Code::cannot_resume, "", 8},
        {Code::resource_changed, "", 8},
        {Code::local_file, "/d/f: No space left on device", 9},
        {Code::local_file, "D:\\f: There is not enough space on the disk.", 9},
        {Code::local_file, "/d/f: Permission denied", 16},
        {Code::cancelled, "", 13},
        {Code::not_resolved, "", 19},
        {Code::credentials_refused, "", 24},
        {Code::hash_differs, "", 32},
        {Code::unsupported, "", 1},
    };
    for (const Case& one : cases) {
        CJobNode job;
        job.state = JobState::failed;
        job.result = one.code;
        job.error = one.error;
        const rpc::JobStatus status = status_of(job, std::nullopt, nullptr, nullptr, rpc::part::all);
        EXPECT_EQ(status.phase, rpc::Phase::failed);
        EXPECT_EQ(status.error_code, one.number) << static_cast<int>(one.code) << " " << one.error;
    }
    CJobNode whole;
    whole.state = JobState::finished;
    EXPECT_EQ(status_of(whole, std::nullopt, nullptr, nullptr, 0).error_code, 0);
}

TEST(ControlStatus, a_plain_file_has_pieces_of_which_those_with_gaps_are_missing) {
    constexpr std::int64_t mebibyte = std::int64_t{1} << 20U;
    CJobNode job;
    job.address = u"http://h/dir/name%20here.bin?x=1";
    job.path = u"/d/";
    job.file_size = 10 * mebibyte + 1;
    JobProgress progress;
    progress.size = job.file_size;
    progress.missing = {{2 * mebibyte - 1, 2 * mebibyte + 1}, {10 * mebibyte, 10 * mebibyte + 1}};
    const rpc::JobStatus status = status_of(job, progress, nullptr, nullptr, rpc::part::all);
    EXPECT_EQ(status.pieces, 11);
    EXPECT_EQ(status.piece_length, mebibyte);
    EXPECT_EQ(status.bitfield,
              (std::vector<bool>{true, false, false, true, true, true, true, true, true, true, false}));
    ASSERT_EQ(status.files.size(), 1U);
    EXPECT_TRUE(status.files[0].path.ends_with("name here.bin")) << status.files[0].path;
    progress.size = job.file_size = std::int64_t{1} << 40U;
    const rpc::JobStatus large = status_of(job, progress, nullptr, nullptr, 0);
    EXPECT_LE(large.pieces, 8192) << "front ends draw them all";
    EXPECT_EQ(large.pieces, (job.file_size - 1) / large.piece_length + 1);
}

}  // namespace
}  // namespace vantlow
