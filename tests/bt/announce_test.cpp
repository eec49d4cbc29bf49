#include "bt/announce_thread.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "bt/wire.h"
#include "platform/file.h"
#include "platform/process.h"
#include "support/content.h"
#include "support/recording_log.h"
#include "support/scripted_server.h"
#include "support/udp_server.h"

namespace vantlow {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using test::Exchange;
using test::ScriptedServer;
using test::UdpServer;

const LibraryTables& libraries() {
    static const LibraryTables tables = load_libraries(folder_of(program_path()));
    return tables;
}

/// A torrent job and all that its announces need.
struct Announcing {
    Announcing() {
        start_sockets();
        job.info_hash.fill(std::byte{0x41});
        job.peer_id = "-VL2950-0123456789ab";
        job.uploaded = 1;
        job.downloaded = 2;
        job.left = 3;
    }
    AnnounceReport announce(const std::string& tracker, AnnounceEvent event = AnnounceEvent::none) {
        CBTAnnounceThread one(services, job, tracker, event, log, stop);
        returned = one.announce(tracker, event);
        return one.report();
    }

    Settings settings;
    ConnectionServices connections;
    AnnounceServices services{connections, libraries(), settings};
    TorrentIdentity job;
    test::RecordingLog log;
    StopSource stop;
    bool returned = false;
};

std::vector<std::string> texts(const std::vector<SocketAddress>& peers) {
    std::vector<std::string> list;
    for (const SocketAddress& peer : peers) list.push_back(peer_text(peer));
    return list;
}

using Texts = std::vector<std::string>;

TEST(Announce, WritesUrlsAsTrackersKnowThem) {
    const std::pair<const char*, const char*> normal[] = {
        {"  http://t:1  ", "http://t:1/"},
        {"http://t/announce", "http://t/announce"},
        {"http:\\\\t\\announce", "http://t/announce"},
        {"udp://t:1", "udp://t:1/"},
        {"http://t?x", "http://t?x/"},
        {"   ", ""},
        {"t", "t"},
    };
    for (const auto& [url, expected] : normal) EXPECT_EQ(normalise_tracker(url), expected) << url;
    Announcing a;
    std::string hash;
    for (int i = 0; i < 20; ++i) hash += "%41";
    const std::string rest = "&peer_id=-VL2950-0123456789ab&port=0&uploaded=1&downloaded=2&left=3&numwant=9";
    const std::string end = "&compact=1&no_peer_id=1&supportcrypto=1";
    EXPECT_EQ(http_announce_url("http://t/a?k=1", a.job, AnnounceEvent::none, 9),
              "http://t/a?k=1?info_hash=" + hash + rest + end);
    EXPECT_EQ(http_announce_url("http://t/", a.job, AnnounceEvent::completed, 9),
              "http://t/?info_hash=" + hash + rest + "&event=completed" + end);
    Guid guid;
    for (std::size_t i = 0; i < 16; ++i) guid.bytes[i] = static_cast<std::uint8_t>(i * 16 + 15 - i);
    EXPECT_EQ(make_peer_id(guid), "-VL2950-a5b4c3d2e1f0");
    EXPECT_EQ(without_keys("http://u:p@t/0123456789abcdef0123/announce?passkey=ABCDEFGHIJKLMNOPQ&x=1"),
              "http://********@t/********/announce?passkey=********&x=1");
    EXPECT_EQ(without_keys("http://t?passkey=ABCDEFGHIJKLMNOPQ/"), "http://t?passkey=********/");
}

TEST(Announce, ReadsAnswersAndRefusesWhatIsNone) {
    const auto read = [](std::string_view bytes, bool second = false) {
        CBEncode parser;
        parser.load_memory(bytes);
        const auto answer = parser.parse_document();
        return answer ? read_tracker_answer(*answer, second) : std::nullopt;
    };
    const std::string two = "\x01\x02\x03\x04\x1A\xE1\x05\x06\x07\x08\0\x50"s;
    const std::string six = "\x20\x01\r\xB8\0\0\0\0\0\0\0\0\0\0\0\x01\0\x50"s;
    auto answer = read("d8:intervali60e5:peers13:" + two + "xe");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->interval, 60);
    EXPECT_FALSE(answer->counts);
    EXPECT_EQ(texts(answer->ipv4), (Texts{"1.2.3.4:6881", "5.6.7.8:80"}));
    answer = read("d8:intervali60e5:peers19:" + six + "xe", true);
    ASSERT_TRUE(answer);
    EXPECT_EQ(texts(answer->ipv6), (Texts{"[2001:db8::1]:80"}));
    EXPECT_TRUE(answer->ipv4.empty());
    answer = read("d8:intervali60e5:peers0:6:peers618:" + six + "15:warning message4:slowe");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->ipv6.size(), 1U);
    EXPECT_EQ(answer->text, "slow");
    EXPECT_FALSE(answer->is_failure);
    answer = read("d8:intervali9e5:peersld2:ip7:1.2.3.44:porti5eed2:ip3:::14:porti6eed2:ip1:x4:porti7eeee");
    ASSERT_TRUE(answer);
    EXPECT_EQ(texts(answer->peers()), (Texts{"1.2.3.4:5", "[::1]:6"}));
    ASSERT_EQ(answer->named.size(), 1U);
    EXPECT_EQ(answer->named[0].host, "x");
    answer = read("d14:failure reason2:no8:intervali60e5:peers12:" + two + "e");
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->is_failure);
    EXPECT_TRUE(answer->peers().empty());
    EXPECT_EQ(answer->interval, 0);
    EXPECT_EQ(read("d8:intervali-5e5:peers0:e")->interval, 0);
    for (const char* refused :
         {"d14:failure reasoni1ee", "d8:intervali1e5:peers0:15:warning messagelee", "d5:peers0:e",
          "d8:interval1:15:peers0:e", "d8:intervali1ee", "d8:intervali1e5:peersi1ee",
          "d8:intervali1e5:peersdee", "d8:intervali1e5:peersl1:xee", "d8:intervali1e5:peersld2:ip1:xeee",
          "d8:intervali1e5:peersld4:porti1eeee"}) {
        EXPECT_FALSE(read(refused)) << refused;
    }
}

TEST(Announce, KeepsEachPeerOnceAndNotItself) {
    PeerStore store;
    const auto address = [](const char* ip, std::uint16_t port) {
        return *SocketAddress::from_literal(ip, port);
    };
    store.add_own(address("10.0.0.1", 5));
    const SocketAddress peers[] = {
        address("1.2.3.4", 5),  address("1.2.3.4", 5), address("1.2.3.4", 6), address("10.0.0.1", 5),
        address("10.0.0.1", 6), address("0.0.0.0", 5), address("::", 5),      address("224.0.0.1", 5),
        address("ff02::1", 5),  address("1.2.3.5", 0), address("::1", 5),     address("255.255.255.255", 1)};
    EXPECT_EQ(store.add(peers), 4U);
    EXPECT_EQ(store.add(peers), 0U);
    EXPECT_EQ(texts(store.peers()), (Texts{"1.2.3.4:5", "1.2.3.4:6", "10.0.0.1:6", "[::1]:5"}));
    std::size_t told = 0;
    EXPECT_EQ(store.fresh(told).size(), 4U);
    store.add_own(address("1.2.3.4", 6));
    EXPECT_EQ(store.size(), 3U);
    const SocketAddress late = address("1.2.3.4", 7);
    store.add({&late, 1});
    EXPECT_EQ(texts(store.fresh(told)), Texts{"1.2.3.4:7"});
    EXPECT_TRUE(store.fresh(told).empty());
    for (int i = 0; i < 5000; ++i) {
        const SocketAddress one = address(print("9.9.%d.%d", i / 250, i % 250).c_str(), 1);
        store.add({&one, 1});
    }
    EXPECT_EQ(store.size(), PeerStore::most_peers);
    EXPECT_EQ(texts(store.fresh(told)).back(), "9.9.19.249:1") << "the last ones are kept";
}

TEST(HttpAnnounce, AsksAndTakesPeersAlsoOutOfGzip) {
    Announcing a;
    const std::string body =
        "d8:intervali60e5:peers6:\x01\x02\x03\x04\x1A\xE1"
        "e"s;
    ScriptedServer server([&](Exchange& exchange) {
        exchange.answer(200, "OK", test::gzip_stored(body), {{"Content-Encoding", "gzip"}});
    });
    a.settings.override_value(u"Torrent", u"numwant", u"5000");
    const AnnounceReport report =
        a.announce(server.url("/0123456789abcdef/announce"), AnnounceEvent::started);
    EXPECT_TRUE(report.ok) << report.failure << a.log.all();
    EXPECT_EQ(report.interval, 60);
    EXPECT_EQ(texts(report.peers), (Texts{"1.2.3.4:6881"}));
    EXPECT_EQ(a.job.peers.size(), 1U);
    const auto head = server.requests().at(0).head;
    EXPECT_EQ(head.field("User-Agent"), "BitTorrent/4.4.1");
    EXPECT_EQ(head.field("Accept-Encoding"), "gzip");
    EXPECT_TRUE(head.target.starts_with("/0123456789abcdef/announce?info_hash=%41%41")) << head.target;
    EXPECT_NE(head.target.find("&numwant=1024&event=started&compact=1"), std::string::npos) << head.target;
    EXPECT_FALSE(a.log.has("0123456789abcdef/")) << "a key in the log: " << a.log.all();
}

TEST(HttpAnnounce, GoesThroughAProxyAndFollowsRedirects) {
    Announcing a;
    ScriptedServer proxy([&](Exchange& exchange) {
        if (exchange.request().target.starts_with("http://tracker.invalid/a?"))
            exchange.answer(302, "Found", "", {{"Location", "/b?x=1"}});
        else
            exchange.answer(200, "OK", "d8:intervali60e5:peers0:e");
    });
    a.job.proxy.kind = ProxyPlan::http;
    a.job.proxy.host = "127.0.0.1";
    a.job.proxy.port = proxy.port();
    a.job.proxy.user = "me";
    a.job.proxy.password = "secret";
    const AnnounceReport report = a.announce("http://tracker.invalid/a");
    EXPECT_TRUE(report.ok) << report.failure << a.log.all();
    ASSERT_EQ(proxy.request_count(), 2U);
    EXPECT_EQ(proxy.requests()[1].head.target, "http://tracker.invalid/b?x=1");
    EXPECT_EQ(proxy.requests()[1].head.field("Proxy-Authorization"), "Basic bWU6c2VjcmV0");
    EXPECT_FALSE(a.log.has("bWU6c2VjcmV0"));
}

TEST(HttpAnnounce, AsksOnceMoreAndThenReadsLongEntries) {
    Announcing a;
    std::atomic<int> requests{0};
    ScriptedServer server([&](Exchange& exchange) {
        if (++requests == 1) return exchange.reset();
        exchange.answer(200, "OK",
                        "d8:intervali60e5:peers18:" + std::string(15, '\x20') + "\x01\0\x50"s + "e");
    });
    const AnnounceReport report = a.announce(server.url("/a"));
    EXPECT_TRUE(report.ok) << report.failure;
    EXPECT_EQ(requests, 2);
    ASSERT_EQ(report.peers.size(), 1U);
    EXPECT_TRUE(report.peers[0].is_ipv6());
    server.set_handler([&](Exchange& exchange) {
        ++requests;
        exchange.answer(500, "No");
    });
    EXPECT_FALSE(a.announce(server.url("/a")).ok);
    EXPECT_EQ(requests, 4);
}

TEST(HttpAnnounce, SaysWhatTheTrackerSaidAndRefusesTheRest) {
    Announcing a;
    const auto answer = [](const std::string& body) {
        return [body](Exchange& exchange) { exchange.answer(200, "OK", body); };
    };
    ScriptedServer server(answer("d14:failure reason9:not \x1B[31me"));
    AnnounceReport report = a.announce(server.url("/a"));
    EXPECT_TRUE(a.returned) << "a refusal is a valid answer";
    EXPECT_FALSE(report.ok);
    EXPECT_EQ(report.failure, "not  [31m");
    EXPECT_EQ(a.log.texts(Direction::error), (Texts{"not  [31m"}));
    for (const std::string& bad : {"le"s, "<html>"s, ""s, "d8:intervali60ee"s, std::string(3 << 20, 'l')}) {
        server.set_handler(answer(bad));
        report = a.announce(server.url("/a"));
        EXPECT_FALSE(report.ok || a.returned) << bad.substr(0, 20);
        EXPECT_FALSE(report.failure.empty());
    }
    EXPECT_FALSE(a.announce("nothing that is known").ok);
    EXPECT_FALSE(a.announce("http://127.0.0.1:1/x").ok);
}

// What a well-behaved UDP tracker answers.
std::vector<std::string> udp_answer(const std::string& datagram, const std::string& peers) {
    std::string answer;
    if (datagram.size() == 16) {
        answer = "\0\0\0\0"s + datagram.substr(12, 4) + "connid12";
    } else {
        answer = "\0\0\0\x01"s + datagram.substr(12, 4) + "\0\0\0\x78"s + "\0\0\0\x05\0\0\0\x06"s + peers;
    }
    return {answer};
}

TEST(UdpAnnounce, SpeaksTheProtocolByteByByte) {
    Announcing a;
    UdpServer server([](const std::string& datagram) {
        return udp_answer(datagram, "\x01\x02\x03\x04\x1A\xE1\0\0\0\0\0\x50\x05\x06\x07\x08\0\x50xyz"s);
    });
    a.job.port = 0x1234;
    a.settings.override_value(u"Torrent", u"numwant", u"0");
    const std::string url = "UDP://127.0.0.1:" + std::to_string(server.port()) + "/announce";
    const AnnounceReport report = a.announce(url, AnnounceEvent::stopped);
    EXPECT_TRUE(report.ok) << report.failure << a.log.all();
    EXPECT_EQ(report.interval, 120);
    EXPECT_EQ(texts(report.peers), (Texts{"1.2.3.4:6881", "5.6.7.8:80"}));
    const auto received = server.received();
    ASSERT_EQ(received.size(), 2U);
    EXPECT_EQ(received[0].substr(0, 12), "\0\0\x04\x17\x27\x10\x19\x80\0\0\0\0"s);
    const std::string transaction = received[1].substr(12, 4);
    EXPECT_NE(transaction, received[0].substr(12, 4));
    EXPECT_EQ(received[1], "connid12\0\0\0\x01"s + transaction + std::string(20, '\x41') +
                               "-VL2950-0123456789ab" + "\0\0\0\0\0\0\0\x02"s + "\0\0\0\0\0\0\0\x03"s +
                               "\0\0\0\0\0\0\0\x01"s + "\0\0\0\x03"s + "\0\0\0\0"s + transaction +
                               "\0\0\0\x01"s + "\x12\x34\0\0"s);
    EXPECT_TRUE(a.log.has("Connected."));
}

TEST(UdpAnnounce, EndsWithWhatIsWrong) {
    Announcing a;
    a.services.udp_timeout = std::chrono::seconds(1);
    struct Case {
        const char* what;
        UdpServer::Handler handler;
        bool ok;
        const char* failure;
    };
    const auto is_connect = [](const std::string& datagram) { return datagram.size() == 16; };
    const Case cases[] = {
        {"exactly 20 bytes", [](const std::string& d) { return udp_answer(d, ""); }, true, ""},
        {"in two datagrams",
         [=](const std::string& d) {
             const std::string whole = udp_answer(d, "\x01\x02\x03\x04\0\x50"s)[0];
             return is_connect(d) ? std::vector{whole} : std::vector{whole.substr(0, 12), whole.substr(12)};
         },
         true, ""},
        {"the connection twice, as a request that was sent twice is answered",
         [=](const std::string& d) {
             std::vector<std::string> answers = udp_answer(d, "");
             if (is_connect(d)) answers.push_back(answers[0].substr(0, 8) + "connid34");
             return answers;
         },
         true, ""},
        {"in three datagrams",
         [=](const std::string& d) {
             const std::string whole = udp_answer(d, "")[0];
             if (is_connect(d)) return std::vector{whole};
             return std::vector{whole.substr(0, 4), whole.substr(4, 3), whole.substr(7)};
         },
         false, "too short"},
        {"another transaction", [](const std::string&) { return std::vector{std::string(16, '\0')}; }, false,
         "Got a message with incorrect transaction id."},
        {"another action",
         [](const std::string& d) { return std::vector{"\0\0\0\x02"s + d.substr(12, 4) + "12345678"}; },
         false, "another request"},
        {"an error of eight bytes",
         [](const std::string& d) { return std::vector{"\0\0\0\x03"s + d.substr(12, 4)}; }, false,
         "without a reason"},
        {"an error with its text",
         [=](const std::string& d) {
             if (is_connect(d)) return udp_answer(d, "");
             return std::vector{"\0\0\0\x03"s + d.substr(12, 4) + "not registered\0"s};
         },
         false, "not registered"},
        {"silence", [](const std::string&) { return std::vector<std::string>{}; }, false, "Timeout."},
    };
    for (const Case& c : cases) {
        UdpServer server(c.handler);
        const AnnounceReport report = a.announce("udp://127.0.0.1:" + std::to_string(server.port()));
        EXPECT_EQ(report.ok, c.ok) << c.what << report.failure;
        EXPECT_NE(report.failure.find(c.failure), std::string::npos) << c.what << ": " << report.failure;
        const bool is_logged = a.log.has(c.failure) || *c.failure == 't' || *c.failure == 'a';
        EXPECT_TRUE(c.ok || is_logged) << c.what;
    }
    for (const char* url : {"udp://127.0.0.1", "udp://", "udp://:5/", "udp://[::1/:5"}) {
        EXPECT_FALSE(a.announce(url).ok) << url;
    }
    EXPECT_TRUE(a.log.has("127.0.0.1:2710")) << "the port of an address without one\n" << a.log.all();
}

// The counts of a swarm come with an announce, or behind it, or alone.
TEST(Scrape, TellsHowManyPeersThereAreOverBothProtocols) {
    const std::string torrent(20, 'A');
    for (const auto& [tracker, expected] :
         {std::pair("http://t/x/announce.php?k=1", "http://t/x/scrape.php?k=1&"),
          {"http://t/announce", "http://t/scrape?"},
          {"http://t/announce/y", ""},
          {"http://t/a", ""}}) {
        const std::string url = http_scrape_url(tracker, Announcing().job.info_hash);
        EXPECT_EQ(url.substr(0, url.find("info_hash")), expected);
    }
    std::string counts = "d8:completei7e10:downloadedi9e10:incompletei3ee";
    test::ScriptedServer server([&](test::Exchange& exchange) {
        const bool is_scrape = exchange.request().target.starts_with("/scrape?info_hash=%41");
        const std::string files = "d5:filesd20:" + torrent + counts + "ee";
        exchange.answer(200, "OK", is_scrape ? files : "d8:intervali900e5:peers0:e");
    });
    test::UdpServer udp([&](const std::string& datagram) {
        const std::string transaction = datagram.substr(12, 4);
        if (datagram.size() == 16) return std::vector{"\0\0\0\0"s + transaction + "connid12"};
        EXPECT_EQ(datagram.substr(16), torrent);
        return std::vector{"\0\0\0\x02"s + transaction + "\0\0\0\x07\0\0\0\x09\0\0\0\x03"s};
    });
    Announcing a;
    for (const std::string& url :
         {server.url("/announce"), "udp://127.0.0.1:" + std::to_string(udp.port())}) {
        CBTAnnounceThread one(a.services, a.job, url, AnnounceEvent::none, a.log, a.stop);
        const auto answer = one.scrape();
        ASSERT_TRUE(answer.ok()) << answer.failure().message();
        EXPECT_EQ(answer->seeders, 7);
        EXPECT_EQ(answer->leechers, 3);
        EXPECT_EQ(answer->completed, 9);
    }
    CBTAnnounceThread one(a.services, a.job, server.url("/announce"), AnnounceEvent::none, a.log, a.stop);
    EXPECT_TRUE(one.announce(server.url("/announce"), AnnounceEvent::none));
    EXPECT_FALSE(one.report().counts) << "a single announce is one request";
    CBTAnnounceThread lasting(a.services, a.job, server.url("/announce"), AnnounceEvent::started, a.log,
                              a.stop);
    lasting.start();
    const auto until = Clock::now() + std::chrono::seconds(20);
    while (!lasting.report().counts && Clock::now() < until) std::this_thread::sleep_for(milliseconds(5));
    EXPECT_EQ(lasting.report().counts.value_or(SwarmCounts{}).seeders, 7);
    counts = "d8:completei7ee";
    EXPECT_FALSE(one.scrape().ok());
}

TEST(UdpAnnounce, SendsALostRequestAgain) {
    Announcing a;
    a.services.udp_timeout = std::chrono::seconds(2);
    std::atomic<int> seen{0};
    UdpServer server([&](const std::string& datagram) {
        return ++seen % 2 == 1 ? std::vector<std::string>{} : udp_answer(datagram, "");
    });
    EXPECT_TRUE(a.announce("udp://127.0.0.1:" + std::to_string(server.port())).ok);
    const auto received = server.received();
    ASSERT_EQ(received.size(), 4U);
    EXPECT_EQ(received[0], received[1]);
    EXPECT_EQ(received[2], received[3]);
}

TEST(AnnounceThread, RepeatsAtTheIntervalAndSaysGoodbye) {
    Announcing a;
    std::vector<std::string> events;
    std::mutex mutex;
    ScriptedServer server([&](Exchange& exchange) {
        const std::string& target = exchange.request().target;
        const auto at = target.find("&event=");
        {
            const std::lock_guard guard(mutex);
            events.push_back(
                at == std::string::npos ? "" : target.substr(at + 7, target.find('&', at + 1) - at - 7));
        }
        exchange.answer(200, "OK", "d8:intervali1e5:peers0:e");
    });
    CBTAnnounceService service(a.services, a.job, a.log, a.stop);
    service.start({server.url("/a"), " " + server.url("/a"), ""});
    ASSERT_EQ(service.threads().size(), 1U) << "one a tracker";
    EXPECT_TRUE(a.log.wait_for("next announce in 1 s", 3));
    service.stop();
    const std::lock_guard guard(mutex);
    ASSERT_GE(events.size(), 4U);
    EXPECT_EQ(events.front(), "started");
    EXPECT_EQ(events[1], "");
    EXPECT_EQ(events.back(), "stopped");
}

TEST(AnnounceThread, EndsAfterASingleEventAFailureOrAnIntervalOfZero) {
    Announcing a;
    std::string body = "d8:intervali1e5:peers0:e";
    std::string goodbye = body;
    ScriptedServer server([&](Exchange& exchange) {
        const bool is_last = exchange.request().target.find("stopped") != std::string::npos;
        exchange.answer(is_last && goodbye.empty() ? 500 : 200, "OK", is_last ? goodbye : body);
    });
    AnnounceReport report;
    const auto run = [&](AnnounceEvent initial) {
        CBTAnnounceThread thread(a.services, a.job, server.url("/a"), initial, a.log, a.stop);
        thread.start();
        thread.join();
        EXPECT_TRUE(thread.has_ended());
        report = thread.report();
        return server.request_count();
    };
    EXPECT_EQ(run(AnnounceEvent::completed), 1U);
    body = "d14:failure reason2:noe";
    EXPECT_EQ(run(AnnounceEvent::started), 3U) << "the refusal ends the repetition; then the goodbye";
    EXPECT_TRUE(report.is_last) << "whatever is answered to the goodbye";
    EXPECT_EQ(report.failure, "no");
    body = "x";
    EXPECT_EQ(run(AnnounceEvent::started), 4U) << "nobody to say goodbye to";
    body = "d8:intervali900e5:peers0:e";
    goodbye.clear();
    CBTAnnounceThread thread(a.services, a.job, server.url("/a"), AnnounceEvent::started, a.log, a.stop);
    thread.start();
    EXPECT_TRUE(a.log.wait_for("next announce in 900 s"));
    thread.stop();
    thread.join();
    EXPECT_EQ(server.request_count(), 6U) << "a goodbye that failed is not repeated";
}

TEST(TimedAnnounceThread, ASilentTrackerCannotHoldUpTheEnd) {
    Announcing a;
    std::atomic<bool> silent{false};
    UdpServer server([&](const std::string& datagram) {
        return silent ? std::vector<std::string>{} : udp_answer(datagram, "");
    });
    const std::string url = "udp://127.0.0.1:" + std::to_string(server.port());
    {
        CBTAnnounceService service(a.services, a.job, a.log, a.stop);
        service.start({url});
        EXPECT_TRUE(a.log.wait_for("next announce in 120 s"));
        silent = true;
        const auto before = Clock::now();
        service.stop();
        EXPECT_GE(Clock::now() - before, milliseconds(1900)) << "the goodbye was not waited for";
        EXPECT_LE(Clock::now() - before, milliseconds(2500));
    }
    // In the first wait: nothing was announced, so nothing is to be taken back.
    CBTAnnounceService service(a.services, a.job, a.log, a.stop);
    service.start({url});
    EXPECT_TRUE(a.log.wait_for("Connecting to", 3));
    const auto before = Clock::now();
    service.stop();
    EXPECT_LE(Clock::now() - before, milliseconds(400));
}

}  // namespace
}  // namespace vantlow
