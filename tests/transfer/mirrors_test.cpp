// Jobs of several mirrors: shared work, bad mirrors, checked pieces.
#include <algorithm>

#include "job_fixture.h"

namespace vantlow::test {
namespace {

constexpr std::size_t size = 1'000'000;
constexpr std::int64_t piece_length = 64 * 1024;
const std::string content = make_content(7, size);

std::vector<std::byte> digest_of(DigestKind kind, std::string_view bytes) {
    Digest digest(kind);
    digest.update(std::as_bytes(std::span(bytes.data(), bytes.size())));
    return digest.finish();
}

PieceHashes pieces_of(std::string_view bytes) {
    PieceHashes pieces{DigestKind::sha1, piece_length, {}};
    for (std::size_t at = 0; at < bytes.size(); at += piece_length) {
        const auto digest = digest_of(DigestKind::sha1, bytes.substr(at, piece_length));
        pieces.hashes.insert(pieces.hashes.end(), digest.begin(), digest.end());
    }
    return pieces;
}

// The content with a wrong byte in every piece.
std::string spoiled() {
    std::string bytes = content;
    for (std::size_t at = 100; at < bytes.size(); at += piece_length / 2) bytes[at] ^= 1;
    return bytes;
}

enum Checks { none = 0, with_size = 1, with_whole = 2, with_pieces = 4 };

class MirrorJobTest : public JobTest {
  protected:
    FileServer& serve(FileResource resource) {
        return *servers.emplace_back(std::make_unique<FileServer>(std::move(resource)));
    }
    std::unique_ptr<CJobNode> job_of(int checks, int connections = 4) {
        auto sources = std::make_shared<JobSources>();
        for (const auto& server : servers) sources->mirrors.push_back(server->url16());
        for (const auto& address : more_addresses) sources->mirrors.push_back(address);
        if ((checks & with_size) != 0) sources->size = size;
        if ((checks & with_whole) != 0)
            sources->whole = ExpectedHash{DigestKind::sha256, digest_of(DigestKind::sha256, content)};
        if ((checks & with_pieces) != 0) sources->pieces = pieces_of(content);
        auto job = make_job(sources->mirrors.front(), connections);
        job->sources = sources;
        job->file_name = u"file.bin";
        return job;
    }
    void expect_right(CJobNode& job) { expect_file(run(job), content); }

    std::vector<std::unique_ptr<FileServer>> servers;
    std::vector<std::u16string> more_addresses;
};

TEST_F(MirrorJobTest, ConnectionsSpreadOverTheMirrors) {
    for (int i = 0; i < 4; ++i)
        serve({.content = content, .etag = "\"" + std::to_string(i) + "\"", .rate = 400'000});
    auto job = job_of(with_size | with_whole | with_pieces);
    const auto begun = Clock::now();
    expect_right(*job);
    EXPECT_LT(Clock::now() - begun, std::chrono::milliseconds(1800)) << "one takes 2.5 s";
    // A connection that ends and the next one may be seen at once.
    for (const auto& server : servers) {
        EXPECT_GE(server->server().connection_count(), 1U);
        EXPECT_LE(server->server().most_open_connections(), 2);
    }
}

TEST_F(MirrorJobTest, OneSlowOneDyingAndOneWrongMirrorDoNotSpoilTheFile) {
    for (const int checks :
         {with_pieces | with_size, with_pieces | with_whole, with_whole | with_size, int{with_whole}}) {
        SCOPED_TRACE(checks);
        servers.clear();
        serve({.content = content, .rate = 600'000});
        FileServer& dying = serve({.content = content, .reset_after = 70'000});
        FileServer& wrong = serve({.content = spoiled(), .rate = 8'000'000});
        serve({.content = content, .rate = 8'000'000});
        std::atomic<int> requests{0};
        dying.set_interceptor(
            [&requests](Exchange& exchange) { return ++requests > 1 && exchange.answer(410, "Gone", ""); });
        auto job = job_of(checks);
        expect_right(*job);
        EXPECT_GE(wrong.server().request_count(), 1U);
    }
}

TEST_F(MirrorJobTest, AWrongMirrorIsLeftAtItsFirstBadPiece) {
    FileServer& wrong = serve({.content = spoiled()});
    FileServer& right = serve({.content = content, .delay = std::chrono::milliseconds(100)});
    auto job = job_of(with_pieces, 2);
    expect_right(*job);
    EXPECT_TRUE(log.has("is no longer used: The hash of the file does not match.")) << log.all();
    EXPECT_LE(wrong.server().request_count(), 2U);
    EXPECT_GE(right.server().request_count(), 1U);
    EXPECT_EQ(job->bit_count, 16);
}

TEST_F(MirrorJobTest, OnlyWhenEveryMirrorIsWrongTheHashIsTheReason) {
    const struct {
        const char* what;
        int checks;
        bool with_missing;
        Code code;
        std::vector<std::u16string> left;
    } cases[] = {
        {"pieces", with_pieces, false, Code::hash_differs, {}},
        {"pieces, and one is gone", with_pieces, true, Code::server_error, {}},
        {"the whole", with_whole, false, Code::hash_differs, {u"file.bin.wrong-hash"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        servers.clear();
        serve({.content = spoiled()});
        serve({.content = spoiled()});
        if (c.with_missing) serve({.status = 404, .reason = "Not Found"});
        auto job = job_of(c.checks);
        EXPECT_EQ(run(*job).result.code, c.code) << log.all();
        EXPECT_FALSE(path_kind(folder.path(u"file.bin")) == PathKind::file);
        if (!c.left.empty()) {
            EXPECT_TRUE(only(c.left));
        }
        clear_folder();
    }
}

TEST_F(MirrorJobTest, ALonelyMirrorMaySendOneBadCopyOfAPiece) {
    FileServer& server = serve({.content = content});
    std::atomic<int> requests{0};
    server.set_interceptor([&](Exchange&) {
        server.change("/file.bin",
                      [&](FileResource& file) { file.content = requests++ == 0 ? spoiled() : content; });
        return false;
    });
    auto job = job_of(with_pieces, 1);
    expect_right(*job);
    EXPECT_TRUE(log.has("has a wrong hash and is fetched again."));
}

TEST_F(MirrorJobTest, MirrorsOfAnotherSizeAreLeft) {
    // Without a word about the size the first answer decides, and may turn out to be the wrong one.
    for (const int checks : {with_size | with_pieces, int{with_size}, int{with_whole}, int{with_pieces}}) {
        SCOPED_TRACE(checks);
        servers.clear();
        serve({.content = make_content(8, size - 5000)});
        serve({.content = content, .delay = std::chrono::milliseconds(50)});
        serve({.content = content + "x", .delay = std::chrono::milliseconds(50)});
        auto job = job_of(checks);
        expect_right(*job);
    }
    servers.resize(1);
    auto job = job_of(with_size);
    EXPECT_EQ(run(*job).result.code, Code::size_differs);
    // Interrupted copies leave empty files on mirrors, or such as have fewer pieces.
    for (const int checks : {int{with_size}, int{with_whole}, int{with_pieces}}) {
        for (const char* other : {"", "<html>Not found</html>"}) {
            SCOPED_TRACE(std::to_string(checks) + other);
            servers.clear();
            serve({.content = other});
            serve({.content = content, .delay = std::chrono::milliseconds(50)});
            expect_right(*job_of(checks));
            servers.pop_back();
            const Code code = run(*job_of(checks)).result.code;
            EXPECT_EQ(code, checks == with_whole ? Code::hash_differs : Code::size_differs);
            clear_folder();
        }
    }
}

TEST_F(MirrorJobTest, WithoutHashesTheJointsAreCompared) {
    serve({.content = content, .rate = 1'000'000});
    serve({.content = make_content(9, size), .rate = 1'000'000});
    serve({.content = content, .rate = 1'000'000});
    for (auto& server : servers) {
        server->change("/file.bin", [](FileResource& file) { file.etag = file.last_modified = ""; });
    }
    auto job = job_of(none, 3);
    expect_right(*job);
    EXPECT_TRUE(log.has("is no longer used:")) << log.all();
}

TEST_F(MirrorJobTest, DeadAndClumsyMirrorsAreCopedWith) {
    serve({.status = 404, .reason = "Not Found"});
    serve({.content = content, .accept_ranges = false});
    serve({.content = content, .gzip = true});
    serve({.content = content, .rate = 2'000'000});
    more_addresses = {u"http://127.0.0.1:1/file.bin", u"http://no-such-host.invalid/file.bin",
                      u"gopher://x/"};
    auto job = job_of(with_pieces | with_size, 6);
    expect_right(*job);

    more_addresses.clear();
    servers.resize(2);
    auto without_ranges = job_of(with_pieces);
    expect_right(*without_ranges);
}

TEST_F(MirrorJobTest, CheckedPiecesSurviveAStopAndDamageIsFound) {
    serve({.content = content, .rate = 300'000});
    serve({.content = content, .rate = 300'000});
    auto job = job_of(with_pieces | with_whole);
    {
        Run running(*this, *job, {});
        ASSERT_TRUE(running.wait_for_done(600'000));
        running.thread().stop();
        EXPECT_EQ(running.end().result.code, Code::stopped);
    }
    auto again = earlier_job(job->address, 4);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->bit_count, 16);
    const auto checked = std::ranges::count_if(again->bit_map, [](auto byte) { return byte != 0; });
    EXPECT_GT(checked, 0);
    again->sources = job->sources;
    // A whole piece that was not confirmed is looked at again: damage it, behind the block that the file is
    // known by, and say that it was not.
    File partial;
    ASSERT_TRUE(partial.open(folder.path(u"file.bin.vantlow"), OpenMode::write_existing).ok());
    ASSERT_TRUE(partial.write_at(40'000, std::as_bytes(std::span("damage", 6))).ok());
    partial.close();
    again->bit_map[0] = 0;
    expect_right(*again);
    EXPECT_TRUE(log.has("Piece 0 (0 to 65536) has a wrong hash")) << log.all();
}

// An earlier run's word counts only for bytes that are still there.
TEST_F(MirrorJobTest, PiecesThatWereLostAreCheckedAnew) {
    FileServer& server = serve({.content = content, .rate = 400'000});
    auto job = job_of(with_pieces, 2);
    {
        Run running(*this, *job, {});
        ASSERT_TRUE(running.wait_for_done(400'000));
        running.thread().stop();
    }
    auto again = earlier_job(job->address, 1);
    ASSERT_TRUE(again);
    again->sources = job->sources;
    ASSERT_TRUE(remove_file(folder.path(u"file.bin.vantlow")).ok());
    std::atomic<int> requests{0};
    server.set_interceptor([&](Exchange&) {
        server.change("/file.bin",
                      [&](FileResource& file) { file = {.content = requests++ == 0 ? spoiled() : content}; });
        return false;
    });
    expect_right(*again);
}

// Its size is known when all of it is there: only then can it be held against what the metafile says.
TEST_F(MirrorJobTest, ACompressedAnswerIsCheckedLikeAnyOther) {
    const std::pair<int, std::string> cases[] = {
        {with_pieces, spoiled()}, {with_pieces | with_size, content + "x"}, {with_size, content + "x"}};
    for (const auto& [checks, wrong] : cases) {
        for (const bool has_other : {false, true}) {
            SCOPED_TRACE(std::to_string(checks) + (has_other ? ", and there is another" : ""));
            servers.clear();
            serve({.content = wrong, .gzip = true});
            if (has_other) serve({.content = content, .delay = std::chrono::milliseconds(100)});
            auto job = job_of(checks, 1);
            if (has_other) {
                expect_right(*job);
            } else {
                EXPECT_EQ(run(*job).result.code, Code::hash_differs) << log.all();
                EXPECT_TRUE(only({u"file.bin.wrong-hash"}));
            }
            clear_folder();
        }
    }
}

}  // namespace
}  // namespace vantlow::test
