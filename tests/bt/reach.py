#!/usr/bin/env python3
"""Whom a torrent reaches, seen from outside: what leaves this machine, and what a router lets in.

    reach.py VANTLOW

In two network namespaces that are joined by a cable: one has the program, and every packet that leaves it is looked at; the
other has all the rest. Needs python3-libtorrent, dante, miniupnpd, nft and root; ends with 77 where one is missing.
"""

import http.server
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

from discovery import carry_out

HERE, THERE, SEED, OUTSIDE = "10.77.9.1", "10.77.9.2", "10.77.9.3", "11.22.33.44"
# The same over a second cable, that of an interface which torrents are held to.
HELD, HELD_THERE = "10.78.9.1", "10.78.9.2"
# Of the cable, where the router speaks IPv6, too.
HERE6, THERE6 = "2001:db8:9::1", "2001:db8:9::2"
PIECE = 16384
# The flags of a TCP segment that says nothing but that its connection does not exist.
RESET = 4


def run(*words):
    subprocess.run([str(w) for w in words], check=True, capture_output=True)


def until(holds, seconds=30, why=lambda: ""):
    end = time.monotonic() + seconds
    while not holds():
        assert time.monotonic() < end, why()
        time.sleep(0.05)


# ---- The other side of the cable.


class WebTracker(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        print("web", self.path, flush=True)
        body = b"d8:intervali900e5:peers6:" + socket.inet_aton(SEED) + struct.pack(">H", 6881) + b"e"
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


def udp_tracker(address):
    udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    udp.bind((address, 8001))
    while True:
        datagram, sender = udp.recvfrom(2048)
        transaction = datagram[12:16]
        if len(datagram) == 16:
            udp.sendto(bytes(4) + transaction + b"12345678", sender)
        else:
            print("udp", struct.unpack(">H", datagram[96:98])[0], flush=True)
            peer = socket.inet_aton(SEED) + struct.pack(">H", 6881)
            udp.sendto(struct.pack(">I4sIII", 1, transaction, 900, 0, 1) + peer, sender)


def the_other_side(folder, torrent):
    import libtorrent as lt

    for address in (THERE, HELD_THERE):
        threading.Thread(target=http.server.ThreadingHTTPServer((address, 8000), WebTracker).serve_forever, daemon=True).start()
        threading.Thread(target=udp_tracker, args=(address,), daemon=True).start()
    session = lt.session({
        "listen_interfaces": f"{SEED}:6881", "enable_dht": True, "enable_lsd": True, "enable_upnp": False, "enable_natpmp": False,
        "allow_multiple_connections_per_ip": True})
    session.add_torrent({"ti": lt.torrent_info(str(torrent)), "save_path": str(folder / "seed"), "flags": lt.torrent_flags.seed_mode})
    print("ready", flush=True)
    sys.stdin.read()


class Cable:
    """Both namespaces: this process stands in the first one."""

    def __init__(self):
        # A process that does nothing but hold the other one.
        self.holder = subprocess.Popen(["unshare", "-nm", "sh", "-c", "echo; exec cat"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.holder.stdout.readline()
        for command in ("link set lo up", f"link add here type veth peer name there netns {self.holder.pid}",
                        f"address add {HERE}/24 dev here", "link set here up"):
            run("ip", *command.split())
        for command in ("link set lo up", f"address add {HELD_THERE} dev lo", f"address add {THERE}/24 dev there", f"address add {SEED}/24 dev there", "link set there up",
                        "link add outside type veth peer name beyond", "link set beyond up", f"address add {OUTSIDE}/24 dev outside", "link set outside up"):
            self.there("ip", *command.split())
        # Names that nobody knows on this side of the cable.
        self.hosts = tempfile.NamedTemporaryFile("w")
        self.hosts.write(f"127.0.0.1 localhost\n{THERE} tracker.test\n")
        self.hosts.flush()
        self.there("mount", "--bind", self.hosts.name, "/etc/hosts")
        # Whatever would go anywhere goes over the cable, and is seen.
        run("ip", "route", "add", "default", "via", THERE)
        run("ip", "route", "add", "239.0.0.0/8", "dev", "here")

    def lay_second(self):
        run("ip", *f"link add held type veth peer name beside netns {self.holder.pid}".split())
        for command in ("address add 10.78.9.4/24 dev beside", "link set beside up"):
            self.there("ip", *command.split())
        for command in (f"address add {HELD}/24 dev held", "link set held up"):
            run("ip", *command.split())

    def speak_ipv6(self):
        run("ip", *f"address add {HERE6}/64 dev here nodad".split())
        run("ip", *f"route add default via {THERE6} dev here".split())
        self.there("ip", *f"address add {THERE6}/64 dev there nodad".split())

    def words(self, *words):
        return ["nsenter", f"--net=/proc/{self.holder.pid}/ns/net", f"--mount=/proc/{self.holder.pid}/ns/mnt", *map(str, words)]

    def there(self, *words):
        run(*self.words(*words))

    def end(self):
        self.holder.stdin.close()
        self.holder.wait()


class Watch:
    """Everything that leaves over the cable: protocol, address, port.

    Left out is one packet that no program sends: the system answers a segment whose connection is gone (closed while the
    other side still sent) with a reset of its own. Nothing but the routing table says where that leaves, whatever the connection was held to. It
    has no data, and neither acknowledges nor opens anything.
    """

    def __init__(self):
        self.seen, self.ends = set(), False
        self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
        self.socket.bind(("here", 0))
        self.socket.settimeout(0.2)
        self.thread = threading.Thread(target=self.look)
        self.thread.start()

    def look(self):
        while not self.ends:
            try:
                frame, (_, kind, way, *_) = self.socket.recvfrom(65536)
            except TimeoutError:
                continue
            if way != socket.PACKET_OUTGOING or kind == 0x0806:  # ARP
                continue
            if kind != 0x0800:
                # Neighbours and groups of IPv6 (ICMPv6, also behind its hop-by-hop options) are the system's own.
                if frame[20] not in (0, 58):
                    self.seen.add((frame[20], "IPv6", 0))
                continue
            header = 14 + (frame[14] & 15) * 4
            if frame[23] == 6 and frame[header + 13] == RESET and len(frame) == header + (frame[header + 12] >> 4) * 4:
                continue
            port = struct.unpack(">H", frame[header + 2:header + 4])[0] if frame[23] in (6, 17) else 0
            self.seen.add((frame[23], socket.inet_ntoa(frame[30:34]), port))

    def end(self):
        self.ends = True
        self.thread.join()
        self.socket.close()
        return self.seen


class World:
    def __init__(self, program, folder, cable):
        self.program, self.folder, self.cable, self.runs = program, pathlib.Path(folder), cable, []
        self.content = os.urandom(60 * PIECE + 7)
        (self.folder / "seed").mkdir()
        (self.folder / "seed/data.bin").write_bytes(self.content)
        self.torrent = self.make_torrent()
        self.other = self.start("other", *cable.words(sys.executable, __file__, "there", self.folder, self.torrent))
        until(lambda: "ready" in self.log("other"), why=lambda: self.log("other"))

    def make_torrent(self):
        import libtorrent as lt

        storage = lt.file_storage()
        lt.add_files(storage, str(self.folder / "seed/data.bin"))
        made = lt.create_torrent(storage, PIECE, lt.create_torrent.v1_only)
        made.add_tracker("http://tracker.test:8000/announce")
        made.add_tracker("udp://tracker.test:8001/announce")
        lt.set_piece_hashes(made, str(self.folder / "seed"))
        self.info_hash = lt.torrent_info(made.generate()).info_hash()
        path = self.folder / "data.torrent"
        path.write_bytes(lt.bencode(made.generate()))
        return path

    def start(self, name, *words):
        home = self.folder / name
        home.mkdir(exist_ok=True)
        environment = {k: v for k, v in os.environ.items() if not k.lower().endswith("_proxy")}
        environment |= {"HOME": str(home), "XDG_RUNTIME_DIR": str(home), "XDG_CONFIG_HOME": "", "XDG_DATA_HOME": "", "VANTLOW_NO_WINDOW": "1"}
        # The UPnP library reads numbers out of a buffer that has no end, and stops at the first sign that is none.
        environment["ASAN_OPTIONS"] = environment.get("ASAN_OPTIONS", "") + ":strict_string_checks=0"
        log = open(home / "log", "ab")
        process = subprocess.Popen([str(w) for w in words], env=environment, cwd=home, stdin=subprocess.PIPE, stdout=log, stderr=log)
        self.runs.append(process)
        return process

    def log(self, name):
        return (self.folder / name / "log").read_text(errors="replace")

    def get(self, name, *words):
        return self.start(name, self.program, "-v", "get", f"--set=Torrent/DHTNodes={SEED}:6881", *words, self.torrent)

    def check(self, name, process, at_most=60):
        try:
            process.wait(at_most)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"{name} does not end:\n{self.log(name)}") from None
        got = self.folder / name / "data.bin"
        assert process.returncode == 0 and got.read_bytes() == self.content, self.log(name)

    def end(self):
        for process in self.runs:
            if process.poll() is None:
                process.kill()
            process.wait()
            process.stdin.close()


def through_a_proxy(world):
    """Peers, trackers of both kinds by their names, and nothing else leaves, whatever is switched on."""
    config = world.folder / "danted.conf"
    config.write_text(f"logoutput: stderr\ninternal: {THERE} port = 1080\nexternal: there\nclientmethod: none\nsocksmethod: none\n"
                      "user.privileged: root\nuser.unprivileged: root\nclient pass { from: 0.0.0.0/0 to: 0.0.0.0/0 }\n"
                      "socks pass { from: 0.0.0.0/0 to: 0.0.0.0/0 command: bind connect udpassociate bindreply udpreply }\n")
    world.start("proxy", *world.cable.words(shutil.which("danted"), "-f", config, "-p", world.folder / "danted.pid", "-N", 1))
    time.sleep(1)
    watch = Watch()
    try:
        world.check("by_proxy", world.get("by_proxy", f"--proxy=socks5://{THERE}:1080"))
    finally:
        seen = watch.end()
    others = {packet for packet in seen if packet[:2] != (6, THERE) and packet[:2] != (17, THERE)}
    tcp = {port for protocol, address, port in seen - others if protocol == 6}
    assert not others and tcp == {1080}, f"{seen}\n{world.log('by_proxy')}"
    heard = world.log("other")
    assert "udp 1\n" in heard and "port=1&" in heard, heard
    # The same without it: this test would see what leaves.
    watch = Watch()
    try:
        direct = world.get("direct")
        time.sleep(3)
        direct.kill()
        direct.wait()
    finally:
        seen = watch.end()
    assert (17, SEED, 6881) in seen and (17, "239.192.152.143", 6771) in seen, f"{seen}\n{world.log('direct')}"


def held_to_an_interface(world):
    """Nothing leaves by another one: not before it is there, not while it serves, and not when it is gone."""
    quiet = ("--set=Torrent/DHT=0", "--set=Torrent/LSD=0", "--set=Torrent/PortMapping=0")
    world.start("giver", *world.cable.words(world.program, "get", "-v", "--seed", "--port=7001", "-d", world.folder / "seed", *quiet, world.torrent))
    until(lambda: "is shared" in world.log("giver"), why=lambda: world.log("giver"))
    magnet = (f"magnet:?xt=urn:btih:{world.info_hash}&tr.0=http://{HELD_THERE}:8000/announce&tr.1=udp://{HELD_THERE}:8001/announce"
              f"&tr.2=http://tracker.test:8000/announce&x.pe=peer.test:6881&x.pe={HELD_THERE}:7001"
              + "".join(f"&ws=http://{THERE}:8000/seed{i}" for i in range(16)))
    words = ["get", "-v", "--interface=held", "--limit=100K", f"--set=Torrent/DHTNodes=node.test:6881|{SEED}:6881", magnet]
    watch = Watch()
    try:
        program = world.start("held", world.program, *words)
        until(lambda: "held is not there. The torrent waits" in world.log("held"), why=lambda: world.log("held"))
        world.cable.lay_second()
        until(lambda: "; 0 of" in world.log("held"), why=lambda: world.log("held"))
        time.sleep(2)
        run("ip", "link", "delete", "held")
        until(lambda: world.log("held").count("held is not there. The torrent waits") == 2, why=lambda: world.log("held"))
        time.sleep(2)
        world.cable.lay_second()
        world.check("held", program, 120)  # whoever does not call back at once does so after half a minute
    finally:
        seen = watch.end()
    assert not seen, f"{seen}\n{world.log('held')}"
    heard = world.log("other")
    assert "udp " in heard and "web " in heard, heard


RULES = """table inet router {
    chain forward { type filter hook forward priority 0; policy accept; jump calls; }
    chain calls { }
    chain prerouting { type nat hook prerouting priority -100; policy accept; jump inwards; }
    chain postrouting { type nat hook postrouting priority 100; policy accept; jump outwards; }
    chain inwards { }
    chain outwards { }
}
"""
ROUTER = """ext_ifname=outside
listening_ip=there
enable_upnp=yes
secure_mode=no
uuid=25f5c208-74f4-48dc-ba29-838c2b75a426
allow 1-65535 10.77.9.0/24 1-65535
upnp_table_name=router
upnp_nat_table_name=router
upnp_forward_chain=calls
upnp_nat_chain=inwards
upnp_nat_postrouting_chain=outwards
"""


def behind_a_router(world):
    """It is asked to let peers call, by either protocol and over IPv6, and does not at the end."""
    world.cable.speak_ipv6()
    (world.folder / "rules").write_text(RULES)
    world.cable.there("nft", "-f", world.folder / "rules")

    def rules():
        return subprocess.run(world.cable.words("nft", "list", "ruleset"), capture_output=True, text=True, check=True).stdout

    def passed_on():
        return set(re.findall(rf"dport (\d+) dnat ip to {HERE}:\1", rules()))

    def let_in():
        # As a rule of nft's own words, or of the bytes that they stand for.
        address = f"ip6 daddr {HERE6}|@nh,192,128 0x{socket.inet_pton(socket.AF_INET6, HERE6).hex()}"
        lines = [line for line in rules().splitlines() if re.search(address, line)]
        return {re.search(r"dport (\d+)", line)[1] for line in lines}

    for protocol, says in (("yes", "NAT-PMP"), ("no", "UPnP")):
        (world.folder / "router.conf").write_text(ROUTER + f"enable_natpmp={protocol}\n")
        router = world.start("router", *world.cable.words("miniupnpd", "-d", "-f", world.folder / "router.conf", "-P", world.folder / "pid"))
        time.sleep(1)
        # Nobody has it, since the trackers' names are unknown here.
        program = world.get(says, "--set=Torrent/DHT=0", "--set=Torrent/LSD=0")
        said = re.compile(rf"The router \({says}, {OUTSIDE}\) passes TCP port (\d+) on")
        also_said = re.compile(rf"The router \(UPnP, {HERE6}\) lets calls by IPv6 in for TCP port (\d+)")
        for each in (said, also_said):
            until(lambda: each.search(world.log(says)), why=lambda: world.log(says) + world.log("router"))
        port = said.search(world.log(says))[1]
        # The port of uTP has the same number.
        assert passed_on() == let_in() == {port}, f"{rules()}\n{world.log(says)}"
        program.send_signal(signal.SIGINT)
        program.wait(20)
        assert passed_on() == let_in() == set(), rules() + world.log("router")
        router.terminate()
        router.wait(20)


def main(program, inside=""):
    if not inside:
        has_all = all(map(shutil.which, ("danted", "miniupnpd", "nft", "nsenter"))) and os.geteuid() == 0
        try:
            import libtorrent  # noqa: F401
        except ImportError:
            has_all = False
        if not has_all or subprocess.run(["unshare", "-nm", "true"], capture_output=True, check=False).returncode != 0:
            return 77
        os.execvp("unshare", ["unshare", "-nm", sys.executable, __file__, program, "inside"])
    cable = Cable()
    try:
        carry_out((held_to_an_interface, through_a_proxy, behind_a_router), lambda folder: World(program, folder, cable))
    finally:
        cable.end()
    return 0


if __name__ == "__main__":
    if sys.argv[1] == "there":
        the_other_side(pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3]))
    else:
        sys.exit(main(*sys.argv[1:]))
