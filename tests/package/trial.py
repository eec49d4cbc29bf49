"""What the trials of both packages share: a server, and the program at work."""

import contextlib
import hashlib
import http.server
import os
import pathlib
import subprocess
import threading

ROOT = pathlib.Path(__file__).resolve().parents[2]
CONTENT = os.urandom(3_000_000)
# What the user has set up for his own downloads must not matter.
for name in [n for n in os.environ if n.lower().endswith("_proxy") or n.startswith("VANTLOW_")]:
    del os.environ[name]


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        # A further connection, which finds out that there are no ranges here, is given up.
        with contextlib.suppress(ConnectionError):
            self.send_response(200)
            self.send_header("Content-Length", str(len(CONTENT)))
            self.end_headers()
            self.wfile.write(CONTENT)

    def log_message(self, *_):
        pass


@contextlib.contextmanager
def server():
    """The address of a file with CONTENT."""
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as running:
        thread = threading.Thread(target=running.serve_forever)
        thread.start()
        yield f"http://127.0.0.1:{running.server_port}/file.bin"
        running.shutdown()
        thread.join()


def run(*words, **more):
    """(status, output and errors) of a command."""
    done = subprocess.run(
        [str(w) for w in words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=250, **more
    )
    return done.returncode, done.stdout


def make_twice(script, build, folder):
    """The package, made twice: what differs between the two is a fault."""
    made = []
    for name in ("first", "second"):
        status, output = run("python3", ROOT / "packaging" / script, build, pathlib.Path(folder, name))
        if status:
            raise RuntimeError(output)
        made.append(pathlib.Path(output.splitlines()[-1]))
    digests = {hashlib.sha256(path.read_bytes()).digest() for path in made}
    return made[0], [] if len(digests) == 1 else [f"{made[0].name} has other bytes when it is made again"]


def faults_at_work(program, libraries, folder, **more):
    """Of a program (as words) that tells its version, loads its libraries and fetches a file into a folder."""
    status, output = run(*program, "--version", **more)
    if status or not output.startswith("Vantlow "):
        yield f"--version ends with {status}: {output}"
    for library in libraries:
        if f"{library}: loaded" not in output:
            yield f"{library} is not loaded: {output}"
    with server() as address:
        digest = hashlib.sha256(CONTENT).hexdigest()
        words = ["get", "-d", folder, "--hash", f"sha256:{digest}", address]
        status, output = run(*program, *words, **more)
    got = pathlib.Path(folder, "file.bin")
    if status or not got.is_file() or got.read_bytes() != CONTENT:
        yield f"get ends with {status}: {output}"


def report(faults):
    for fault in faults:
        print(fault)
    print(f"{len(faults)} faults")
    return 1 if faults else 0
