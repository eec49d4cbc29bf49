"""How each program is asked for a scenario's files: its best options for the same number of connections."""

import os
import shutil
import subprocess
from dataclasses import dataclass


@dataclass
class Task:
    """What one run has to fetch; the current folder is where the files go."""

    scenario: object
    base: str  # the server's address, ending with /
    port: int
    scratch: str  # for lists and settings
    trusted: str = None  # the certificate of a server with TLS
    server: object = None  # what else it has to tell

    @property
    def scheme(self):
        return self.scenario.scheme

    def links(self):
        return [self.base + path for path in self.scenario.paths()]

    def name(self):
        return os.path.basename(self.scenario.paths()[0])

    def is_list(self):
        return len(self.scenario.paths()) > 1

    def text_file(self, name, lines):
        path = os.path.join(self.scratch, name)
        with open(path, "w") as file:
            file.writelines(line + "\n" for line in lines)
        return path


class Program:
    name = ""
    note = ""

    def __init__(self, path):
        self.path = path

    def version(self):
        text = subprocess.run([self.path, "--version"], capture_output=True, text=True, check=False).stdout
        return text.splitlines()[0][:60] if text else "unknown version"

    def command(self, task):
        """The words to run, or None where the program can't do the scenario."""
        raise NotImplementedError


class Floor(Program):
    name = "floor"
    way = "splice"

    def version(self):
        return "lets the system move the bytes, nothing else"

    def command(self, task):
        scenario = task.scenario
        if not scenario.floor:
            return None
        path, size = scenario.files[0]
        words = [self.path, str(task.port), "/" + path, str(size), str(scenario.connections), task.name()]
        return [*words, "ftp" if task.scheme == "ftp" else "http", self.way]


class Writing(Floor):
    name = "writing"
    way = "write"

    def version(self):
        return "receives and writes, nothing else"


class Vantlow(Program):
    name = "vantlow"

    def command(self, task):
        scenario = task.scenario
        settings = task.text_file("settings.ini", [])
        words = [self.path, "--settings", settings, "-q", "get", "-n", str(scenario.connections)]
        if task.trusted:
            words += ["--ca-file", task.trusted]
        if scenario.endless_retries:
            words += ["--retries", "1000", "--retry-delay", "0"]
        if task.scheme == "sftp":
            words += ["--accept-host-key", "--key", task.server.key]
        if task.is_list():
            return words + ["-j", str(scenario.jobs), "-i", task.text_file("list", task.links())]
        return words + ["-o", task.name(), *task.links()]


class Curl(Program):
    name = "curl"
    # curl's own --retry starts a file over; continued from outside it keeps what it has.
    LOOP = 'for i in $(seq 1000); do "$0" -fsS -C - -o "$1" "$2" 2>/dev/null && exit 0; done; exit 1'

    def command(self, task):
        scenario = task.scenario
        if task.is_list():
            config = []
            for link in task.links():
                config += [f'url = "{link}"', f'output = "{os.path.basename(link)}"']
            path = task.text_file("curl.config", config)
            return [self.path, "-q", "-fsS", "--parallel", "--parallel-max", str(scenario.jobs), "-K", path]
        if scenario.endless_retries:
            return ["sh", "-c", self.LOOP, self.path, task.name(), task.links()[0]]
        words = [self.path, "-q", "-fsS", "-o", task.name()]
        words += ["--cacert", task.trusted] if task.trusted else []
        if task.scheme == "ftps":
            # What curl calls ftps has TLS before the first word.
            return words + ["--ssl-reqd", task.links()[0].replace("ftps:", "ftp:")]
        if task.scheme == "sftp":
            words += ["-k", "-u", "root:", "--key", task.server.key, "--pubkey", task.server.key + ".pub"]
        return words + task.links()


class Aria2(Program):
    name = "aria2"

    def command(self, task):
        scenario = task.scenario
        count = str(scenario.connections)
        if task.scheme in ("ftps", "sftp"):
            return None  # it has no TLS for FTP and no keys for SSH
        words = [self.path, "--no-conf", "--quiet", "--file-allocation=none"]
        words += ["-x" + count, "-s" + count, "-k1M"]
        if task.trusted:
            words += ["--ca-certificate=" + task.trusted]
        if scenario.endless_retries:
            words += ["--max-tries=0", "--retry-wait=0"]
        if task.is_list():
            return words + ["-j", str(scenario.jobs), "-i", task.text_file("list", task.links())]
        return words + ["-o", task.name(), task.links()[0]]


class Axel(Program):
    name = "axel"

    def command(self, task):
        scenario = task.scenario
        if scenario.peak_after or task.scheme in ("ftps", "sftp"):
            return None
        if task.is_list():
            # One link a process: as many processes at once as the others have jobs.
            lines = [f"-o {os.path.basename(link)} {link}" for link in task.links()]
            words = ["xargs", "-a", task.text_file("axel.list", lines), "-n", "3", "-P", str(scenario.jobs)]
            return words + [self.path, "-q", "-n", "1"]
        # It knows no addresses in certificates: the check is left out for it.
        trust = ["--insecure"] if task.trusted else []
        return [self.path, "-q", *trust, "-n", str(scenario.connections), "-o", task.name(), task.links()[0]]


class Lftp(Program):
    name = "lftp"

    def command(self, task):
        scenario = task.scenario
        if task.scheme in ("http", "https") or task.is_list():
            return None
        link = task.links()[0].replace("ftps:", "ftp:")
        settings = "set cmd:fail-exit yes; "
        if task.scheme == "ftps":
            settings += f"set ssl:ca-file {task.trusted}; set ftp:ssl-force yes; "
            settings += "set ftp:ssl-protect-data yes; set ftp:ssl-allow-anonymous yes; "
        if task.scheme == "sftp":
            ssh = f"ssh -a -x -i {task.server.key} -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null"
            settings += f"set sftp:connect-program '{ssh}'; "
            link = link.replace("root@", "root:@")
        return [self.path, "-c", f"{settings}pget -n {scenario.connections} {link} -o {task.name()}"]


def write_home(home):
    """A home folder for the programs, so that no user's own options count."""
    os.makedirs(home, exist_ok=True)
    with open(os.path.join(home, ".axelrc"), "w") as file:
        file.write("reconnect_delay = 0\nbuffer_size = 65536\n")


def environment(home):
    return {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": home, "LC_ALL": "C.UTF-8"}


PEERS = ((Curl, "curl"), (Aria2, "aria2c"), (Axel, "axel"), (Lftp, "lftp"))


class Earlier(Vantlow):
    name = "earlier"


def find_programs(floor, vantlow, earlier):
    """All programs in the order of a round, and the names of the missing ones."""
    found, missing = [Floor(floor), Writing(floor)], []
    if vantlow:
        found.append(Vantlow(os.path.abspath(vantlow)))
    if earlier:
        found.append(Earlier(os.path.abspath(earlier)))
    for kind, word in PEERS:
        path = shutil.which(word)
        if path:
            found.append(kind(path))
        else:
            missing.append(kind.name)
    return found, missing
