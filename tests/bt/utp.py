#!/usr/bin/env python3
"""Torrents over uTP alone, in a network of their own: this program with itself, with libtorrent, and between two routers that let
nobody in.

    utp.py VANTLOW

Needs python3-libtorrent, nft and root; ends with 77 where one is missing.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

from discovery import SEED, World, carry_out, is_possible, session

HERE = "10.77.0.1"
QUIET = ["--set=Torrent/DHT=0", "--set=Torrent/LSD=0"]


def run(command):
    subprocess.run(command.split(), check=True, capture_output=True)


def wait_until(holds, seconds, why):
    end = time.monotonic() + seconds
    while not holds():
        assert time.monotonic() < end, why()
        time.sleep(0.1)


def start_giver(world, path, name="giver", *words):
    world.start(name, "get", "--seed", "--port=7001", "--dir", str(world.folder / "seed"), *QUIET, *words, str(path))
    wait_until(lambda: "is shared" in world.log(name), 30, lambda: world.log(name))


def with_itself(world):
    """Nobody takes a TCP connection."""
    info, path = world.torrent()
    start_giver(world, path)
    magnet = f"magnet:?xt=urn:btih:{info.info_hash()}&x.pe={HERE}:7001"
    without = world.start("without", "get", "--set=Torrent/UTP=0", *QUIET, magnet)
    for name, more in (("plain", ["--set=Torrent/Crypto=1"]), ("encrypted", ["--set=Torrent/Crypto=2"])):
        world.check(name, world.start(name, "get", *QUIET, *more, magnet), 60)
    assert without.poll() is None, world.log("without")


def with_libtorrent(world):
    import libtorrent as lt

    info, path = world.torrent()
    only = {"enable_dht": False, "enable_outgoing_tcp": False, "enable_incoming_tcp": False}
    seed = session(SEED, **only)
    seed.add_torrent({"ti": info, "save_path": str(world.folder / "seed"), "flags": lt.torrent_flags.seed_mode})
    magnet = f"magnet:?xt=urn:btih:{info.info_hash()}&x.pe={SEED}:6881"
    world.check("fetcher", world.start("fetcher", "get", *QUIET, magnet), 60)
    start_giver(world, path)
    leecher = session("10.77.0.2", **only)
    (world.folder / "leech").mkdir()
    handle = leecher.add_torrent({"ti": info, "save_path": str(world.folder / "leech")})
    handle.connect_peer((HERE, 7001))
    wait_until(lambda: handle.status().is_seeding, 60, lambda: world.log("giver"))
    assert (world.folder / "leech/data.bin").read_bytes() == world.content


def behind_a_router(world, name, number):
    """A network of its own that lets only answers in; what runs the program there."""
    holder = subprocess.Popen(["unshare", "-n", "sleep", "300"])
    world.runs.append(holder)
    there = f"nsenter -t {holder.pid} -n"
    wait_until(lambda: os.readlink(f"/proc/{holder.pid}/ns/net") != os.readlink("/proc/self/ns/net"), 10, lambda: "no network")
    run(f"ip link add {name} type veth peer name out netns {holder.pid}")
    run(f"ip address add 10.78.{number}.1/24 dev {name}")
    run(f"ip link set {name} up")
    for command in ("link set lo up", f"address add 10.78.{number}.2/24 dev out", "link set out up", f"route add default via 10.78.{number}.1"):
        run(f"{there} ip {command}")
    for command in ("add table inet f", "add chain inet f in { type filter hook input priority 0 ; }", "add rule inet f in ct state new drop"):
        run(f"{there} nft {command}")
    script = world.folder / f"in_{name}"
    script.write_text(f'#!/bin/sh\nexec {there} {world.program} "$@"\n')
    script.chmod(0o755)
    return str(script)


def through_two_routers(world):
    """Two that nobody can call are introduced by the one that both have called."""
    run("nft flush ruleset")
    pathlib.Path("/proc/sys/net/ipv4/ip_forward").write_text("1")
    info, path = world.torrent()
    start_giver(world, path, "slow", "--upload-limit=60K")
    program = world.program
    fetchers = []
    for number, name in enumerate(("left", "right"), 1):
        world.program = behind_a_router(world, name, number)
        magnet = f"magnet:?xt=urn:btih:{info.info_hash()}&x.pe=10.78.{number}.1:7001"
        fetchers.append((name, world.start(name, "get", "--port=7002", *QUIET, magnet)))
        world.program = program
    for name, fetcher in fetchers:
        world.check(name, fetcher, 120)
        assert int(re.search(r"; (\d+) called", world.log(name))[1]) > 0, world.log(name)


def main(program, inside=""):
    if not inside:
        if not is_possible() or shutil.which("nft") is None:
            return 77
        os.execvp("unshare", ["unshare", "-n", sys.executable, __file__, program, "inside"])
    for command in ("link set lo up", *(f"address add 10.77.0.{i}/24 dev lo" for i in (1, 2, 3))):
        run(f"ip {command}")
    for command in ("add table inet f", "add chain inet f in { type filter hook input priority 0 ; }",
                    "add rule inet f in meta l4proto tcp reject with tcp reset"):
        run(f"nft {command}")
    carry_out((with_itself, with_libtorrent, through_two_routers), lambda folder: World(program, folder))
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
