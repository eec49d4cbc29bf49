// Torrents of the second version (BEP 52) from a real peer to files and back to it; on machines that have
// such a peer.
#include <nlohmann/json.hpp>

#include "base/codes.h"
#include "support/scripted_server.h"
#include "torrent_tree.h"

namespace vantlow {
namespace {

using nlohmann::json;
using test::file_has_content;
using test::RunningProgram;
using test::RunResult;

constexpr const char* peer_script = R"(
import sys, time
import libtorrent as lt
role, torrent, folder, extra = sys.argv[1:5]
if role == "make":
    files = lt.file_storage()
    lt.add_files(files, folder + "/tree")
    maker = lt.create_torrent(files, 32768, lt.create_torrent_flags_t.v2_only)
    maker.add_tracker(extra)
    lt.set_piece_hashes(maker, folder)
    document = maker.generate()
    open(torrent, "wb").write(lt.bencode(document))
    del document[b"piece layers"]
    open(torrent[:-8] + ".bare.torrent", "wb").write(lt.bencode(document))
    print(lt.torrent_info(torrent).info_hashes().v2)
    sys.exit(0)
session = lt.session({"listen_interfaces": "127.0.0.1:0", "enable_dht": False, "enable_lsd": False,
    "enable_upnp": False, "enable_natpmp": False, "allow_multiple_connections_per_ip": True})
if role == "leech":
    parameters = lt.parse_magnet_uri(torrent)
    parameters.save_path = folder
    handle = session.add_torrent(parameters)
    while not handle.status().is_seeding:
        if handle.status().num_peers == 0:
            handle.connect_peer(("127.0.0.1", int(extra)))
        time.sleep(0.1)
    sys.exit(0)
parameters = lt.add_torrent_params()
parameters.ti = lt.torrent_info(torrent)
parameters.save_path = folder
handle = session.add_torrent(parameters)
handle.set_upload_limit(int(extra))
while not handle.status().is_seeding:
    time.sleep(0.02)
print("listening", session.listen_port(), flush=True)
time.sleep(120)
)";

// Gives every piece of a file, the first byte of each changed.
constexpr const char* liar_script = R"(
import socket, struct, sys, threading
digest, path = sys.argv[1:]
data = open(path, "rb").read()
def take(peer, size):
    taken = b""
    while len(taken) < size:
        more = peer.recv(size - len(taken))
        if not more:
            raise EOFError
        taken += more
    return taken
def serve(peer):
    try:
        if take(peer, 20) != b"\x13BitTorrent protocol":
            return
        take(peer, 48)
        peer.sendall(b"\x13BitTorrent protocol" + b"\0" * 7 + b"\x14" + bytes.fromhex(digest)[:20] + b"-LI0000-" + b"l" * 12)
        pieces = (len(data) + 32767) // 32768
        peer.sendall(struct.pack(">IB", 1, 15) + struct.pack(">IB", 1, 1))
        for piece in range(pieces):
            peer.sendall(struct.pack(">IBI", 5, 4, piece))
        while True:
            said = take(peer, struct.unpack(">I", take(peer, 4))[0])
            if said[:1] != b"\6":
                continue
            piece, begin, length = struct.unpack(">III", said[1:])
            block = bytearray(data[piece * 32768 + begin:][:length])
            if begin == 0:
                block[0] ^= 1
            peer.sendall(struct.pack(">IBII", 9 + length, 7, piece, begin) + block)
    except (EOFError, OSError):
        pass
    finally:
        peer.close()
listener = socket.create_server(("127.0.0.1", 0))
print("listening", listener.getsockname()[1], flush=True)
while True:
    threading.Thread(target=serve, args=(listener.accept()[0],), daemon=True).start()
)";

/// A torrent of four files, its peers, and a tracker that names some of them.
class SecondVersion : public test::TorrentTree {
  protected:
    void SetUp() override {
        TorrentTree::SetUp();
        if (IsSkipped()) return;
        script_ = folder.write(u"peer.py", peer_script);
    }
    void make(std::int64_t a) {
        write_tree({a, 777, 150'000});
        const RunResult made = test::run_program(
            python, {script_, u"make", torrent, folder.path(u"seed"), tracker_.url16("/announce")});
        ASSERT_EQ(made.status, 0) << made.err;
        digest = made.out.substr(0, 64);
    }
    /// A peer that has everything, and gives so many bytes a second at most.
    void begin_seed(int limit = 0) {
        begin_peer({script_, u"seed", torrent, folder.path(u"seed"), to_utf16(std::to_string(limit))});
    }
    void begin_liar() {
        begin_peer({folder.write(u"liar.py", liar_script), to_utf16(digest), folder.path(u"seed/tree/a")});
    }
    void end_peers() {
        const MutexLock guard(mutex_);
        ports_.clear();
        running_.clear();
    }
    RunResult leech(const std::u16string& into, int port) {
        EXPECT_TRUE(make_folders(folder.path(into)).ok());
        return test::run_program(python, {script_, u"leech", to_utf16(magnet()), folder.path(into),
                                          to_utf16(std::to_string(port))});
    }
    [[nodiscard]] std::string magnet() const { return "magnet:?xt=urn:btmh:1220" + digest; }
    [[nodiscard]] std::u16string link() const {
        return to_utf16(magnet() + "&tr.0=" + tracker_.url("/announce"));
    }
    /// The port that this program told the tracker last.
    [[nodiscard]] int own_port() const {
        int port = 0;
        for (const auto& request : tracker_.requests()) {
            const auto at = request.head.target.find("&port=");
            if (request.head.target.find("-VL") == std::string::npos || at == std::string::npos) continue;
            port = std::stoi(request.head.target.substr(at + 6));
        }
        return port;
    }
    template <class Test>
    static bool wait_for(const Test& test) {
        const auto until = Clock::now() + std::chrono::seconds(30);
        while (!test() && Clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return test();
    }

    std::string digest;

  private:
    void begin_peer(const std::vector<std::u16string>& words) {
        int port = 0;
        auto peer = TorrentTree::begin_peer(words, port);
        const MutexLock guard(mutex_);
        ports_.push_back(port);
        running_.push_back(std::move(peer));
    }
    std::string peers() {
        std::string peers;
        const MutexLock guard(mutex_);
        for (const int port : ports_)
            peers += {'\x7F', 0, 0, 1, static_cast<char>(port >> 8), static_cast<char>(port)};
        return peers;
    }

    std::u16string script_;
    Mutex mutex_;
    std::vector<int> ports_ VANTLOW_GUARDED_BY(mutex_);
    std::vector<std::unique_ptr<RunningProgram>> running_ VANTLOW_GUARDED_BY(mutex_);

  protected:
    test::ScriptedServer tracker_{[this](test::Exchange& exchange) {
        const std::string named = peers();
        exchange.answer(200, "OK",
                        "d8:intervali900e5:peers" + std::to_string(named.size()) + ":" + named + "e");
    }};
};

TEST_F(SecondVersion, ADocumentOneWithoutDigestsAndALinkBecomeFiles) {
    make(20'000'000);  // more than 512 pieces: its digests come in two parts, with proofs
    begin_seed();
    const RunResult whole = run({u"get", torrent, u"-d", folder.path(u"x"), u"--json"});
    EXPECT_EQ(whole.status, 0) << whole.err << whole.out;
    EXPECT_TRUE(has_all(u"x/tree"));
    EXPECT_FALSE(folder.has(u"x/tree/.vantlow-parts")) << "no file shares a piece";
    const RunResult linked = run({u"get", link(), u"-d", folder.path(u"y")});
    EXPECT_EQ(linked.status, 0) << linked.err;
    EXPECT_TRUE(has_all(u"y/tree"));
    const RunResult bare =
        run({u"get", folder.path(u"seed/tree.bare.torrent"), u"-d", folder.path(u"z"), u"--select", u"3"});
    EXPECT_EQ(bare.status, 0) << bare.err;
    EXPECT_TRUE(file_has_content(folder.path(u"z/tree/b/d"), 2, 150'000));
    EXPECT_FALSE(folder.has(u"z/tree/a") || folder.has(u"z/tree/b/c"));

    const auto shown = json::parse(ok({u"torrent", u"show", torrent, u"--json"}));
    EXPECT_EQ(shown["infoHashV2"], digest);
    EXPECT_EQ(shown["infoHash"], digest.substr(0, 40));
    EXPECT_EQ(shown["files"].size(), 4U);
    EXPECT_EQ(shown["pieces"], 611 + 1 + 5);
    const auto check = [&] {
        return json::parse(ok({u"torrent", u"check", torrent, u"-d", folder.path(u"x"), u"--json"}));
    };
    EXPECT_EQ(check()["good"], 617);
    folder.write(u"x/tree/b/c", std::string(777, 'x'));
    EXPECT_EQ(check()["good"], 616);
}

TEST_F(SecondVersion, AfterAKillItGoesOnWithWhatWasSafe) {
    make(6'000'000);
    begin_seed(1'200'000);
    const std::vector<std::u16string> get{u"get", torrent, u"-d", folder.path(u"x"), u"--json"};
    {
        RunningProgram first(test::vantlow_program(), get, environment());
        ASSERT_TRUE(wait_for([&] {
            const std::string out = first.out();
            const auto at = out.rfind("\"done\":");
            return at != std::string::npos && std::stoll(out.substr(at + 7)) >= 2'500'000;
        })) << first.out();
        first.kill();
        first.wait();
    }
    EXPECT_TRUE(folder.has(u"x/tree/a.vantlow"));
    const RunResult second = run(get);
    EXPECT_EQ(second.status, 0) << second.err;
    EXPECT_TRUE(has_all(u"x/tree"));
    const auto at = second.out.find("{\"event\":\"end\"");
    ASSERT_NE(at, std::string::npos) << second.out;
    EXPECT_LT(json::parse(second.out.substr(at))["received"], 5'500'000);
}

TEST_F(SecondVersion, WrongBlocksOfALiarDoNotGetIntoTheFilesAndItIsShared) {
    make(2'000'000);
    begin_liar();
    begin_seed(1'000'000);
    RunningProgram sharing(test::vantlow_program(),
                           {u"get", link(), u"-d", folder.path(u"x"), u"--seed-time", u"60s", u"--verbose"},
                           environment());
    ASSERT_TRUE(wait_for([&] { return folder.has(u"x/tree/e") && folder.has(u"x/tree/a"); }))
        << sharing.err();
    EXPECT_TRUE(has_all(u"x/tree"));
    EXPECT_NE((sharing.out() + sharing.err()).find("gave wrong data"), std::string::npos) << "it was asked";
    end_peers();
    const RunResult other = leech(u"l", own_port());
    EXPECT_EQ(other.status, 0) << other.err;
    EXPECT_TRUE(has_all(u"l/tree"));
    sharing.kill();
    sharing.wait();
}

}  // namespace
}  // namespace vantlow
