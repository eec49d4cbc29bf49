"""What is compared: files, server, and how many connections or jobs."""

import hashlib
import os
from dataclasses import dataclass

KIB = 1 << 10
MIB = 1 << 20


@dataclass(frozen=True)
class Scenario:
    name: str
    title: str
    files: tuple  # (path on the server, bytes)
    scripted: tuple = None  # the scripted server's flags; None: nginx
    scheme: str = "http"  # or ftp, ftps (vsftpd), sftp (OpenSSH)
    nginx: str = ""  # further lines of nginx's server block
    tls: bool = False  # nginx over TLS, its certificate checked
    connections: int = 1  # of each job
    jobs: int = 1  # at once; more than one file: fetched by a list
    floor: bool = False  # the floor program takes part
    endless_retries: bool = False
    peak_after: float = 0  # seconds: only the peak memory then is of interest; the files need not exist
    ideal: str = ""  # what the server's limits allow at best
    timeout: float = 240
    links: tuple = ()  # where other than the files' own

    def paths(self):
        return self.links or tuple(path for path, _ in self.files)


def numbered(folder, count, size):
    return tuple((f"{folder}/{i:05}.bin", size) for i in range(count))


BIG = (("big.bin", 1024 * MIB),)

SCENARIOS = (
    Scenario("big1", "1 GiB into memory, 1 connection, nginx", BIG, floor=True),
    Scenario("big8", "1 GiB into memory, 8 connections, nginx", BIG, connections=8, floor=True),
    Scenario("big64", "1 GiB into memory, 64 connections, nginx", BIG, connections=64, floor=True),
    Scenario("tls1", "1 GiB into memory over TLS 1.3, 1 connection, nginx", BIG, nginx="ssl_protocols TLSv1.3;", tls=True),
    Scenario(
        "tls8",
        "1 GiB into memory over TLS 1.3, 8 connections, nginx",
        BIG,
        nginx="ssl_protocols TLSv1.3;",
        tls=True,
        connections=8,
    ),
    Scenario("ftp1", "1 GiB, 1 connection, vsftpd", BIG, scheme="ftp", floor=True),
    Scenario("ftp4", "1 GiB, 4 connections, vsftpd", BIG, scheme="ftp", connections=4, floor=True),
    Scenario("ftps1", "1 GiB, 1 connection, TLS, vsftpd", BIG, scheme="ftps"),
    Scenario("ftps4", "1 GiB, 4 connections, TLS, vsftpd", BIG, scheme="ftps", connections=4),
    Scenario("sftp1", "1 GiB, 1 connection, OpenSSH", BIG, scheme="sftp"),
    Scenario("sftp4", "1 GiB, 4 connections, OpenSSH", BIG, scheme="sftp", connections=4),
    Scenario(
        "limited8",
        "128 MiB, 8 connections of 4 MiB/s each, nginx",
        (("limited.bin", 128 * MIB),),
        nginx="limit_rate 4m;",
        connections=8,
        ideal="4.0 s with 8 connections, 32 s with one",
    ),
    Scenario(
        "uneven8",
        "64 MiB, 8 connections; every third 256 KiB/s, the others 8 MiB/s",
        (("uneven.bin", 64 * MIB),),
        scripted=("--slow-every", "3", "--slow-rate", str(256 * KIB), "--fast-rate", str(8 * MIB)),
        connections=8,
        ideal="1.32 s with the first 8 connections, 8 s with one",
    ),
    Scenario(
        "reset4",
        "256 MiB, 4 connections, each reset after 1 to 8 MiB",
        (("reset.bin", 256 * MIB),),
        scripted=("--reset-min", str(MIB), "--reset-max", str(8 * MIB)),
        connections=4,
        endless_retries=True,
    ),
    Scenario(
        "delay8",
        "64 MiB, 8 connections, 100 ms before each answer",
        (("delay.bin", 64 * MIB),),
        scripted=("--delay-ms", "100"),
        connections=8,
        ideal="0.1 s and the bytes' time; 0.2 s where the size is asked first",
    ),
    Scenario(
        "delaysmall",
        "40 files of 16 KiB, 8 at once, 100 ms before each answer",
        numbered("delayed", 40, 16 * KIB),
        scripted=("--delay-ms", "100"),
        jobs=8,
        ideal="0.5 s",
    ),
    Scenario("small1000", "1,000 files of 16 KiB, 8 at once, nginx", numbered("small", 1000, 16 * KIB), jobs=8),
    Scenario(
        "mem10k",
        "peak memory with 10,000 links, 3 at once, the server never answers; 5 s after the start",
        (),
        scripted=("--stall",),
        jobs=3,
        peak_after=5,
        links=tuple(f"waiting/{i:05}.bin" for i in range(10000)),
    ),
)


def make_file(path, size):
    """The same bytes in every run, no two blocks alike."""
    if os.path.exists(path) and os.path.getsize(path) == size:
        return
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        for at in range(0, size, MIB):
            name = f"{os.path.basename(path)} {at}".encode()
            file.write(hashlib.shake_128(name).digest(min(MIB, size - at)))


def check_files(scenario, www, out):
    """None when `out` holds exactly the right files, else what is wrong."""
    wanted = {os.path.basename(path): os.path.join(www, path) for path, _ in scenario.files}
    have = set(os.listdir(out))
    if wanted.keys() - have:
        return f"{len(wanted.keys() - have)} of {len(wanted)} files missing"
    for name, source in wanted.items():
        if not same(source, os.path.join(out, name)):
            return f"{name} has wrong content"
    if have - wanted.keys():
        return "left behind: " + ", ".join(sorted(have - wanted.keys())[:3])
    return None


def same(a, b):
    if os.path.getsize(a) != os.path.getsize(b):
        return False
    with open(a, "rb", buffering=0) as one, open(b, "rb", buffering=0) as two:
        while True:
            x, y = one.read(4 * MIB), two.read(4 * MIB)
            if x != y:
                return False
            if not x:
                return True
