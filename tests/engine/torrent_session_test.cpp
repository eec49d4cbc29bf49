// The session of a torrent, with a tracker that a test steers.
#include <gtest/gtest.h>

#include "base/text.h"
#include "bt/torrent_settings.h"
#include "engine/session.h"
#include "support/recording_log.h"
#include "support/scripted_server.h"

namespace vantlow {
namespace {

using std::chrono::milliseconds;

// A tracker that falls silent holds the goodbye up, but nobody who waits for the session.
TEST(TimedTorrentSession, IsStoppedAtOnceAndGoesWhenItsTrackersWereTold) {
    start_sockets();
    std::atomic<bool> silent{false};
    test::ScriptedServer server([&](test::Exchange& exchange) {
        if (silent) exchange.stall();
        exchange.answer(200, "OK",
                        "d8:intervali900e5:peers6:\x7F\x01\x02\x03\x1A\xE1"
                        "e");
    });
    ConnectionServices connections;
    const LibraryTables libraries{};
    Settings settings;
    StopSource stop;
    ThreadPool threads;
    test::RecordingLog log;
    QuestionBoard questions;
    auto job = std::make_unique<CJobNode>();
    job->address = u"magnet:?xt=urn:btih:0123456789abcdef0123456789abcdef01234567";
    settings.override_value(setting::magnet_trackers.section, setting::magnet_trackers.key,
                            to_utf16(server.url("/announce")));
    const auto session = make_torrent_session({std::move(job), {}, log, {}, questions},
                                              {connections, libraries, settings, stop, threads});
    ASSERT_TRUE(session->start().ok());
    const auto until = Clock::now() + std::chrono::seconds(20);
    while (!session->settled() && Clock::now() < until) {
        session->look();
        std::this_thread::sleep_for(milliseconds(10));
    }
    ASSERT_TRUE(session->settled().has_value());
    EXPECT_EQ(session->settled()->code, Code::unsupported);
    ASSERT_EQ(session->connections().size(), 1U);
    EXPECT_TRUE(session->connections()[0].works);

    silent = true;
    auto before = Clock::now();
    session->stop();
    EXPECT_LE(Clock::now() - before, milliseconds(300));
    EXPECT_FALSE(session->has_ended());
    while (!session->has_ended()) std::this_thread::sleep_for(milliseconds(10));
    EXPECT_LE(Clock::now() - before, milliseconds(2500));
    before = Clock::now();
    static_cast<void>(session->take_end());
    EXPECT_LE(Clock::now() - before, milliseconds(500));
}

}  // namespace
}  // namespace vantlow
