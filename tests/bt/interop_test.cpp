// Against the trackers, peers and proxies that are out there; on machines that have them.
#include <gtest/gtest.h>

#include "base/codes.h"
#include "base/text.h"
#include "bt/make_torrent.h"
#include "bt/peer_probe.h"
#include "platform/file.h"
#include "platform/process.h"
#include "support/content.h"
#include "support/process_run.h"
#include "support/recording_log.h"
#include "support/scripted_server.h"
#include "support/udp_server.h"
#include "support/unix_server.h"

namespace vantlow {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using test::RunningProgram;
using test::TempFolder;
using Words = std::vector<std::u16string>;

const LibraryTables& libraries() {
    static const LibraryTables tables = load_libraries(folder_of(program_path()));
    return tables;
}

std::u16string text16(std::uint16_t number) {
    return to_utf16(std::to_string(number));
}

/// A torrent of a file in a folder of its own, and a job for it.
struct Swarm {
    Swarm() {
        start_sockets();
        const StopSource never;
        std::atomic<std::int64_t> done{0};
        const auto source = find_torrent_source(folder.write(u"data", test::make_content(1, 300000)), never);
        const auto pieces = hash_pieces(*source, 16384, 1, never, done);
        document =
            torrent_document(*source, 16384, *pieces, {u"http://127.0.0.1:1/a", u"", 0}, job.info_hash);
        torrent = folder.write(u"data.torrent", document);
        job.peer_id = "-VL2950-0123456789ab";
        job.left = 300000;
    }
    AnnounceReport announce(const std::string& tracker, AnnounceEvent event, std::uint16_t port) {
        job.port = port;
        CBTAnnounceThread one(services, job, tracker, event, log, stop);
        one.announce(tracker, event);
        return one.report();
    }
    ProbeReport probe(std::uint16_t port, ProbeMode mode, const char16_t* crypto = u"0") {
        settings.override_value(u"Torrent", u"Crypto", crypto);
        return probe_peer(services, job, "127.0.0.1", port, mode, log, stop);
    }

    TempFolder folder;
    std::string document;
    std::u16string torrent;
    Settings settings;
    ConnectionServices connections;
    AnnounceServices services{connections, libraries(), settings};
    TorrentIdentity job;
    test::RecordingLog log;
    StopSource stop;
};

std::vector<std::string> texts(const std::vector<SocketAddress>& peers) {
    std::vector<std::string> list;
    for (const SocketAddress& peer : peers) list.push_back(peer_text(peer));
    std::sort(list.begin(), list.end());
    return list;
}

TEST(RealTrackers, OpentrackerTellsPeersOverBothProtocols) {
    const std::u16string program = test::unix_program("opentracker");
    if (program.empty()) GTEST_SKIP() << "opentracker is missing";
    Swarm swarm;
    const std::uint16_t port = test::closed_port();
    const std::string address = "127.0.0.1:" + std::to_string(port);
    const std::u16string white = swarm.folder.write(u"white", to_hex(swarm.job.info_hash) + "\n");
    const std::u16string config =
        swarm.folder.write(u"ot.conf", "listen.tcp " + address + "\nlisten.udp " + address +
                                           "\naccess.whitelist " + test::unix_path(white) + "\n");
    RunningProgram tracker(program, {u"-f", config}, {.folder = swarm.folder.path()});
    ASSERT_TRUE(test::wait_until_it_accepts(tracker, port)) << tracker.err();
    // It listens before it has read which torrents are listed.
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (!swarm.announce("http://" + address + "/announce", AnnounceEvent::none, 7001).ok &&
           Clock::now() < end)
        std::this_thread::sleep_for(milliseconds(20));
    for (const std::string scheme : {"http://", "udp://"}) {
        const std::string url = scheme + address + "/announce";
        const std::uint16_t base = scheme == "http://" ? 7001 : 8001;
        EXPECT_TRUE(swarm.announce(url, AnnounceEvent::started, base).ok) << swarm.log.all();
        swarm.job.peer_id.back() = scheme == "http://" ? 'c' : 'd';
        const AnnounceReport second = swarm.announce(url, AnnounceEvent::started, base + 1);
        EXPECT_TRUE(second.ok) << second.failure;
        EXPECT_GT(second.interval, 60);
        const auto peers = texts(second.peers);
        EXPECT_NE(std::find(peers.begin(), peers.end(), "127.0.0.1:" + std::to_string(base)), peers.end());
        EXPECT_FALSE(swarm.job.peers.is_own(*SocketAddress::from_literal("127.0.0.1", base + 5)));
        for (const SocketAddress& peer : swarm.job.peers.peers())
            EXPECT_NE(peer.port(), base + 1) << "itself";
        EXPECT_TRUE(swarm.announce(url, AnnounceEvent::stopped, base + 1).ok);
    }
    // A torrent that is not listed.
    swarm.job.info_hash.fill(std::byte{7});
    swarm.services.udp_timeout = std::chrono::seconds(10);
    for (const std::string scheme : {"http://", "udp://"}) {
        const auto before = Clock::now();
        const AnnounceReport refused = swarm.announce(scheme + address + "/announce", AnnounceEvent::none, 0);
        EXPECT_FALSE(refused.ok) << scheme;
        EXPECT_FALSE(refused.failure.empty()) << scheme;
        EXPECT_LT(Clock::now() - before, std::chrono::seconds(5)) << scheme << refused.failure;
    }
}

TEST(RealProxies, DanteRelaysAUdpAssociation) {
    const std::u16string program = test::unix_program("danted");
    if (program.empty()) GTEST_SKIP() << "danted is missing";
    Swarm swarm;
    const std::uint16_t port = test::closed_port();
    const std::u16string config = swarm.folder.write(
        u"danted.conf", "logoutput: stderr\ninternal: 127.0.0.1 port = " + std::to_string(port) +
                            "\nexternal: lo\nclientmethod: none\nsocksmethod: none\nuser.privileged: root\n"
                            "user.unprivileged: root\n"
                            "client pass { from: 0.0.0.0/0 to: 0.0.0.0/0 }\n"
                            "socks pass { from: 0.0.0.0/0 to: 0.0.0.0/0 command: bind connect udpassociate "
                            "bindreply udpreply }\n");
    RunningProgram proxy(program, {u"-f", config, u"-p", swarm.folder.path(u"pid"), u"-N", u"1"});
    ASSERT_TRUE(test::wait_until_it_accepts(proxy, port)) << proxy.err();
    test::UdpServer tracker([](const std::string& datagram) {
        using namespace std::string_literals;
        const std::string transaction = datagram.substr(12, 4);
        if (datagram.size() == 16) return std::vector{"\0\0\0\0"s + transaction + "connid12"};
        return std::vector{"\0\0\0\x01"s + transaction + "\0\0\0\x78"s + "\0\0\0\x05\0\0\0\x06"s +
                           "\x01\x02\x03\x04\x1A\xE1"};
    });
    swarm.job.proxy.kind = ProxyPlan::socks5;
    swarm.job.proxy.host = "127.0.0.1";
    swarm.job.proxy.port = port;
    swarm.services.udp_timeout = std::chrono::seconds(4);
    for (const char* host : {"127.0.0.1", "localhost"}) {
        const AnnounceReport report =
            swarm.announce("udp://"s + host + ":" + std::to_string(tracker.port()), AnnounceEvent::none, 0);
        EXPECT_TRUE(report.ok) << host << report.failure << swarm.log.all() << proxy.err();
        EXPECT_EQ(texts(report.peers), std::vector<std::string>{"1.2.3.4:6881"});
    }
    EXPECT_EQ(tracker.received().size(), 4U);
    test::ScriptedServer web(
        [](test::Exchange& exchange) { exchange.answer(200, "OK", "d8:intervali60e5:peers0:e"); });
    for (const int kind : {ProxyPlan::socks4, ProxyPlan::socks5}) {
        swarm.job.proxy.kind = kind;
        const AnnounceReport report = swarm.announce(web.url("/a"), AnnounceEvent::none, 0);
        EXPECT_TRUE(report.ok) << kind << report.failure << swarm.log.all();
    }
    swarm.job.proxy.kind = ProxyPlan::http;
    EXPECT_FALSE(
        swarm.announce("udp://127.0.0.1:" + std::to_string(tracker.port()), AnnounceEvent::none, 0).ok);
    EXPECT_EQ(tracker.received().size(), 4U) << "around the proxy";
    // Its children live as long as their sessions do.
    swarm.connections.reuse.clear();
    proxy.terminate();
    proxy.wait(std::chrono::seconds(5));
}

constexpr const char* libtorrent_peer = R"(
import sys, time
import libtorrent as lt
torrent, folder, policy, level = sys.argv[1:5]
policies = {"forced": 0, "enabled": 1, "disabled": 2}
levels = {"plaintext": 1, "rc4": 2, "both": 3}
session = lt.session({"listen_interfaces": "127.0.0.1:0", "enable_dht": False, "enable_lsd": False,
    "enable_upnp": False, "enable_natpmp": False, "allow_multiple_connections_per_ip": True,
    "in_enc_policy": policies[policy], "out_enc_policy": policies[policy],
    "allowed_enc_level": levels[level], "prefer_rc4": True})
handle = session.add_torrent({"ti": lt.torrent_info(torrent), "save_path": folder})
while not handle.status().is_seeding:
    time.sleep(0.02)
print("listening", session.listen_port(), flush=True)
time.sleep(60)
)";

TEST(RealPeers, LibtorrentSpeaksEncryptedAndPlainAsItIsTold) {
    const std::u16string python = test::unix_program("python3");
    if (python.empty() || test::run_program(python, {u"-c", u"import libtorrent"}).status != 0)
        GTEST_SKIP() << "python3-libtorrent is missing";
    const struct {
        const char16_t* policy;
        const char16_t* level;
        const char16_t* crypto;
        const char* encryption;  ///< with an encrypted handshake; null: refused
        bool plain;
    } cases[] = {
        {u"forced", u"both", u"0", "RC4", false},
        {u"forced", u"rc4", u"2", "RC4", false},
        {u"forced", u"plaintext", u"1", "plaintext", false},
        {u"forced", u"rc4", u"1", nullptr, false},
        {u"enabled", u"both", u"0", "RC4", true},
        {u"disabled", u"both", u"0", nullptr, true},
    };
    for (const auto& c : cases) {
        Swarm swarm;
        const std::u16string script = swarm.folder.write(u"peer.py", libtorrent_peer);
        RunningProgram peer(python, {script, swarm.torrent, swarm.folder.path(), c.policy, c.level});
        ASSERT_TRUE(peer.wait_for_output("\n")) << peer.err();
        const std::string out = peer.out();
        const auto port = static_cast<std::uint16_t>(std::stoi(out.substr(out.find(' ') + 1)));
        const std::string name = to_utf8(c.policy) + " " + to_utf8(c.level) + " " + to_utf8(c.crypto) + " ";
        const ProbeReport hidden = swarm.probe(port, ProbeMode::encrypted, c.crypto);
        EXPECT_EQ(hidden.ok, c.encryption != nullptr) << name << hidden.failure;
        if (c.encryption != nullptr) {
            EXPECT_EQ(hidden.encryption, c.encryption) << name;
            ASSERT_TRUE(hidden.extension) << name << hidden.failure;
            EXPECT_NE(to_utf8(hidden.extension->version).find("libtorrent"), std::string::npos);
            EXPECT_TRUE(hidden.extension->metadata_size && hidden.extension->metadata_number);
        }
        EXPECT_EQ(swarm.probe(port, ProbeMode::plain).ok, c.plain) << name;
    }
}

TEST(RealPeers, TransmissionTakesPartWhenItWantsEncryption) {
    const std::u16string program = test::unix_program("transmission-daemon");
    if (program.empty()) GTEST_SKIP() << "transmission-daemon is missing";
    Swarm swarm;
    const std::uint16_t port = test::closed_port();
    const std::u16string config = swarm.folder.path(u"config");
    ASSERT_TRUE(make_folders(config).ok());
    ASSERT_TRUE(make_folders(swarm.folder.path(u"watch")).ok());
    swarm.folder.write(
        u"config/settings.json",
        "{\"encryption\": 2, \"download-dir\": \"" + test::unix_path(swarm.folder.path()) +
            "\", \"peer-port\": " + std::to_string(port) +
            ", \"rpc-enabled\": false, \"dht-enabled\": false, \"lpd-enabled\": false, "
            "\"pex-enabled\": false, \"utp-enabled\": false, \"port-forwarding-enabled\": false, "
            "\"watch-dir\": \"" +
            test::unix_path(swarm.folder.path(u"watch")) +
            "\", \"watch-dir-enabled\": true, \"bind-address-ipv4\": \"127.0.0.1\"}");
    RunningProgram peer(program, {u"-f", u"-g", config});
    ASSERT_TRUE(test::wait_until_it_accepts(peer, port)) << peer.err();
    swarm.folder.write(u"watch/data.torrent", swarm.document);
    // It takes a moment until it has read and checked the torrent.
    ProbeReport report;
    const auto end = Clock::now() + std::chrono::seconds(30);
    while (!report.ok && Clock::now() < end) {
        std::this_thread::sleep_for(milliseconds(300));
        report = swarm.probe(port, ProbeMode::encrypted);
    }
    EXPECT_TRUE(report.ok) << report.failure << peer.err();
    EXPECT_EQ(report.encryption, "RC4");
    EXPECT_TRUE(report.peer_id.starts_with("-TR")) << report.peer_id;
    ASSERT_TRUE(report.extension) << report.failure;
    EXPECT_NE(to_utf8(report.extension->version).find("Transmission"), std::string::npos);
}

TEST(RealPeers, Aria2AcceptsRc4AndRefusesPlainWhenTold) {
    const std::u16string program = test::unix_program("aria2c");
    if (program.empty()) GTEST_SKIP() << "aria2c is missing";
    Swarm swarm;
    const std::uint16_t port = test::closed_port();
    RunningProgram peer(
        program, {u"--check-integrity=true", u"--seed-ratio=0", u"--bt-require-crypto=true",
                  u"--bt-min-crypto-level=arc4", u"--enable-dht=false", u"--enable-dht6=false",
                  u"--bt-enable-lpd=false", u"--listen-port=" + text16(port), u"-d", swarm.folder.path(),
                  swarm.torrent});
    ASSERT_TRUE(test::wait_until_it_accepts(peer, port)) << peer.out() << peer.err();
    const ProbeReport hidden = swarm.probe(port, ProbeMode::encrypted);
    EXPECT_TRUE(hidden.ok) << hidden.failure;
    EXPECT_EQ(hidden.encryption, "RC4");
    EXPECT_FALSE(swarm.probe(port, ProbeMode::plain).ok);
}

}  // namespace
}  // namespace vantlow
