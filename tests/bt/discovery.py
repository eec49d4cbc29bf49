#!/usr/bin/env python3
"""Torrents that find their peers without trackers, in a network of their own with libtorrent's nodes and peers.

    discovery.py VANTLOW

Needs python3-libtorrent and a user who may make network namespaces; ends with 77 where one is missing.
"""

import contextlib
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import threading
import time

ROUTER, SEED, POISON, VICTIM = "10.77.0.2", "10.77.0.3", "10.77.0.4", "10.77.0.5"
PIECE = 16384


def is_possible():
    try:
        import libtorrent  # noqa: F401
    except ImportError:
        return False
    return subprocess.run(["unshare", "-n", "ip", "link", "set", "lo", "up"], capture_output=True, check=False).returncode == 0


def session(address, **more):
    import libtorrent as lt

    return lt.session({
        "listen_interfaces": f"{address}:6881", "dht_bootstrap_nodes": "", "enable_dht": True, "enable_lsd": False,
        "enable_upnp": False, "enable_natpmp": False, "dht_restrict_routing_ips": False, "dht_restrict_search_ips": False,
        "dht_enforce_node_id": False, "dht_prefer_verified_node_ids": False, "allow_multiple_connections_per_ip": True,
        "alert_mask": lt.alert.category_t.dht_notification, **more})


class World:
    def __init__(self, program, folder):
        self.program, self.folder, self.runs = program, pathlib.Path(folder), []
        self.content = os.urandom(40 * PIECE + 7)
        (self.folder / "seed").mkdir()
        (self.folder / "seed/data.bin").write_bytes(self.content)

    def start(self, name, *words, nodes=f"{ROUTER}:6881"):
        home = self.folder / name
        home.mkdir(exist_ok=True)
        environment = os.environ | {"HOME": str(home), "XDG_RUNTIME_DIR": str(home), "XDG_CONFIG_HOME": "", "XDG_DATA_HOME": "",
                                    "VANTLOW_NO_WINDOW": "1"}
        log = open(home / "log", "ab")
        settings = ["PortMapping=0", "DefaultTracker=", "DefaultTrackers=", f"DHTNodes={nodes}"]
        command = [self.program, "-v", *(f"--set=Torrent/{setting}" for setting in settings), *words]
        process = subprocess.Popen(command, env=environment, cwd=home, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.runs.append(process)
        return process

    def log(self, name):
        return (self.folder / name / "log").read_text(errors="replace")

    def torrent(self, private=False):
        import libtorrent as lt

        storage = lt.file_storage()
        lt.add_files(storage, str(self.folder / "seed/data.bin"))
        made = lt.create_torrent(storage, PIECE, lt.create_torrent.v1_only)
        made.set_priv(private)
        lt.set_piece_hashes(made, str(self.folder / "seed"))
        path = self.folder / f"data{int(private)}.torrent"
        path.write_bytes(lt.bencode(made.generate()))
        return lt.torrent_info(str(path)), path

    def check(self, name, process, at_most, file="data.bin"):
        try:
            process.wait(at_most)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"{name} does not end:\n{self.log(name)}") from None
        got = self.folder / name / file
        if process.returncode or not got.is_file() or got.read_bytes() != self.content:
            raise AssertionError(f"{name} ends with {process.returncode}:\n{self.log(name)}")

    def end(self):
        for process in self.runs:
            if process.poll() is None:
                process.kill()
            process.wait()


def in_the_table(world):
    """A magnet link without any tracker; and nobody hears of a private torrent."""
    import libtorrent as lt

    info, _ = world.torrent()
    secret, secret_path = world.torrent(private=True)
    router = session(ROUTER)
    seed = session(SEED, dht_bootstrap_nodes=f"{ROUTER}:6881")
    seed.add_dht_node((ROUTER, 6881))
    seed.add_torrent({"ti": info, "save_path": str(world.folder / "seed"), "flags": lt.torrent_flags.seed_mode})
    asks_in_vain = world.start("private", "get", "--set=Torrent/LSD=0", str(secret_path))
    magnet = f"magnet:?xt=urn:btih:{info.info_hash()}"
    world.check("magnet", world.start("magnet", "get", "--set=Torrent/LSD=0", magnet), 120)
    # The next run knows the nodes of this one.
    kept = world.folder / "kept/.local/share/vantlow"
    for nodes in (f"{ROUTER}:6881", ""):
        world.start("kept", "add", "--paused", f"--output=data{len(nodes)}.bin", magnet, nodes=nodes).wait()
        run = world.start("kept", "start", "--all", "--set=Torrent/LSD=0", nodes=nodes)
        world.check("kept", run, 120, f"data{len(nodes)}.bin")
        assert (kept / "dhtkey.dat").stat().st_size == 20 and (kept / "dhtnodes.dat").is_file(), list(kept.iterdir())
    heard = {str(a.info_hash) for each in (router, seed) for a in each.pop_alerts() if isinstance(a, lt.dht_get_peers_alert)}
    assert str(info.info_hash()) in heard, f"{heard}\n{world.log('magnet')}"
    assert str(secret.info_hash()) not in heard, "a private torrent was searched for"
    assert asks_in_vain.poll() is None, world.log("private")


def in_this_network(world):
    """Two of this program that know nothing of each other."""
    info, path = world.torrent()
    giver = world.folder / "giver"
    world.start("giver", "get", "--seed", "--set=Torrent/DHT=0", "--dir", str(world.folder / "seed"), str(path))
    until = time.monotonic() + 30
    while "is shared" not in world.log("giver"):
        assert time.monotonic() < until, world.log("giver")
        time.sleep(0.1)
    assert giver.is_dir()
    magnet = f"magnet:?xt=urn:btih:{info.info_hash()}"
    world.check("near", world.start("near", "get", "--set=Torrent/DHT=0", magnet), 100)  # the answer takes a minute


def of_both_versions(world):
    """Folders of a hybrid torrent, whose files are padded: from libtorrent, by magnet links with one hash and with both,
    and by the document to libtorrent. The same of the second version alone, and of the hybrid by its second hash."""
    import libtorrent as lt

    sizes = {"a.bin": 3 * PIECE + 5, "b.bin": 1, "c.bin": 2 * PIECE, "none.bin": 0}
    source = world.folder / "seed/folder"
    source.mkdir()
    for name, size in sizes.items():
        (source / name).write_bytes(os.urandom(size))

    def make(name, *flags):
        storage = lt.file_storage()
        lt.add_files(storage, str(source))
        made = lt.create_torrent(storage, PIECE, *flags)
        lt.set_piece_hashes(made, str(world.folder / "seed"))
        path = world.folder / name
        path.write_bytes(lt.bencode(made.generate()))
        return lt.torrent_info(str(path)), path

    def is_right(where):
        there = sorted(path.name for path in (where / "folder").iterdir())
        return there == sorted(sizes) and all((where / "folder" / n).read_bytes() == (source / n).read_bytes() for n in sizes)

    info, path = make("both.torrent")
    alone, _ = make("second.torrent", lt.create_torrent.v2_only)  # before a hidden part file stands in the folder
    seed = session(SEED, enable_dht=False)
    seed.add_torrent({"ti": info, "save_path": str(world.folder / "seed"), "flags": lt.torrent_flags.seed_mode})
    quiet = ("--set=Torrent/DHT=0", "--set=Torrent/LSD=0")
    hashes = info.info_hashes()
    first, both = f"magnet:?xt=urn:btih:{hashes.v1}", f"magnet:?xt=urn:btmh:1220{hashes.v2}&xt=urn:btih:{hashes.v1}"
    for name, link in (("first", first), ("both", both)):
        run = world.start(name, "get", *quiet, f"{link}&x.pe={SEED}:6881")
        assert run.wait(60) == 0 and is_right(world.folder / name), world.log(name)
    giver = world.start("giver2", "get", "--seed", "--port=7002", *quiet, "-d", str(world.folder / "seed"), str(path))
    until = time.monotonic() + 30
    while "is shared" not in world.log("giver2"):
        assert time.monotonic() < until and giver.poll() is None, world.log("giver2")
        time.sleep(0.1)
    taker = session(ROUTER, enable_dht=False)
    (world.folder / "taker").mkdir()
    taken = taker.add_torrent({"ti": info, "save_path": str(world.folder / "taker")})
    taken.connect_peer((ROUTER, 7002))
    # It says that it has everything before all of it is on the disk.
    while not (taken.status().is_seeding and is_right(world.folder / "taker")):
        assert time.monotonic() < until + 30, world.log("giver2")
        time.sleep(0.1)

    seed.add_torrent({"ti": alone, "save_path": str(world.folder / "seed"), "flags": lt.torrent_flags.seed_mode})
    for name, digest in (("second", alone.info_hashes().v2), ("hybrid", hashes.v2)):
        run = world.start(name, "get", *quiet, f"magnet:?xt=urn:btmh:1220{digest}&x.pe={SEED}:6881")
        assert run.wait(60) == 0 and is_right(world.folder / name), world.log(name)


def carry_out(scenarios, make_world):
    """Each scenario in a world of its own, which is made with a folder."""
    for scenario in scenarios:
        with tempfile.TemporaryDirectory() as folder:
            world = make_world(folder)
            try:
                scenario(world)
            finally:
                world.end()
        print(f"{scenario.__name__}: well")


class Poison:
    """A node of the hash table at 10.77.0.4 that lies: it has every torrent at one victim, names a hundred nodes of the victim that
    are nearest to whatever is asked for, answers under other numbers, and sends nonsense without being asked."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind((POISON, 6881))
        self.id, self.asked, self.flood = os.urandom(20), 0, []
        threading.Thread(target=self.answer, daemon=True).start()

    def answer(self):
        victim = socket.inet_aton(VICTIM)
        while True:
            datagram, sender = self.socket.recvfrom(2048)
            number = re.search(rb"1:t(\d+):", datagram)
            target = re.search(rb"(?:9:info_hash|6:target)20:(.{20})", datagram, re.DOTALL)
            if b"1:y1:q" not in datagram or not number:
                continue
            self.asked += 1
            begin = number.end()
            number = datagram[begin:begin + int(number[1])]
            values = b"".join(b"6:" + victim + (1000 + i).to_bytes(2, "big") for i in range(60))
            near = target[1] if target else os.urandom(20)
            nodes = b"".join(near[:18] + os.urandom(2) + victim + (2000 + i).to_bytes(2, "big") for i in range(20))
            for answered in (number, os.urandom(len(number))):
                body = b"2:id20:" + self.id + b"5:nodes%d:" % len(nodes) + nodes + b"5:token4:abcd"
                body += b"6:valuesl" + values + b"e" if b"9:get_peers" in datagram else b""
                self.socket.sendto(b"d1:rd" + body + b"e1:t%d:" % len(answered) + answered + b"1:y1:re", sender)
            for kind in (os.urandom(200), b"d1:y1:qe", b"d" * 1000, b"l" * 1400) * 20:
                self.socket.sendto(kind, sender)


def packets_to(host, seconds):
    """The IPv4 packets that go to a host within that time."""
    with socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(0x0800)) as tap:
        tap.bind(("lo", 0))
        tap.settimeout(0.2)
        count, until = 0, time.monotonic() + seconds
        while time.monotonic() < until:
            with contextlib.suppress(TimeoutError):
                packet, (_, _, kind, *_) = tap.recvfrom(100)
                count += kind != socket.PACKET_OUTGOING and packet[16:20] == socket.inet_aton(host)
        return count


def in_a_poisoned_table(world):
    """The peers that an honest node knows are found all the same; whom the liar names a hundred times a minute hears little."""
    import libtorrent as lt

    info, _ = world.torrent()
    router = session(ROUTER)
    seed = session(SEED, dht_bootstrap_nodes=f"{ROUTER}:6881")
    seed.add_dht_node((ROUTER, 6881))
    seed.add_torrent({"ti": info, "save_path": str(world.folder / "seed"), "flags": lt.torrent_flags.seed_mode})
    poison = Poison()
    nodes = f"{POISON}:6881|{ROUTER}:6881"
    asks = world.start("lied-to", "get", "--set=Torrent/LSD=0", f"magnet:?xt=urn:btih:{'5' * 40}", nodes=f"{POISON}:6881")
    packets = packets_to(VICTIM, 20)
    with open(f"/proc/{asks.pid}/status") as status:
        memory = next(int(line.split()[1]) for line in status if line.startswith("VmHWM"))
    assert poison.asked > 0, world.log("lied-to")
    assert 0 < packets < 100, f"the victim got {packets} packets in 20 s"
    assert memory < 40_000, f"{memory} KiB"
    print(f"poison: {poison.asked} questions, {packets} packets to the victim in 20 s, {memory} KiB", file=sys.stderr)
    magnet = f"magnet:?xt=urn:btih:{info.info_hash()}"
    world.check("poisoned", world.start("poisoned", "get", "--set=Torrent/LSD=0", magnet, nodes=nodes), 120)
    del router


def main(program, inside=""):
    if not inside:
        if not is_possible():
            return 77
        os.execvp("unshare", ["unshare", "-n", sys.executable, __file__, program, "inside"])
    for command in ("link set lo up multicast on", *(f"address add 10.77.0.{i}/24 dev lo" for i in (1, 2, 3, 4, 5)),
                    "route add 239.0.0.0/8 dev lo"):
        subprocess.run(["ip", *command.split()], check=True)
    carry_out((of_both_versions, in_the_table, in_a_poisoned_table, in_this_network), lambda folder: World(program, folder))
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
