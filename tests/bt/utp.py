#!/usr/bin/env python3
"""Torrents over uTP alone, in a network of their own: this program with itself, with libtorrent, and through two routers that let
nobody in.

    utp.py VANTLOW

Needs python3-libtorrent, nft and root; ends with 77 where one is missing.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import time

from discovery import SEED, World, is_possible, session

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
    giver = world.start(name, "get", "--seed", "--port=7001", "--dir", str(world.folder / "seed"), *QUIET, *words, str(path))
    wait_until(lambda: "is shared" in world.log(name), 30, lambda: world.log(name))
    return giver


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
    for scenario in (with_itself, with_libtorrent):
        with tempfile.TemporaryDirectory() as folder:
            world = World(program, folder)
            try:
                scenario(world)
            finally:
                world.end()
        print(f"{scenario.__name__}: well")
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
