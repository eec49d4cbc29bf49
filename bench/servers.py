"""The servers of the comparisons: child processes on free loopback ports, ended by their own id."""

import os
import select
import shutil
import signal
import socket
import subprocess
import time

CLOCK_TICKS = os.sysconf("SC_CLK_TCK")

NGINX_CONF = """
daemon off; pid {folder}/nginx.pid; error_log {folder}/error.log;
{user} worker_processes {workers};
events {{ worker_connections 1024; }}
http {{
    access_log off; sendfile on; tcp_nopush on; keepalive_requests 100000; default_type application/octet-stream;
    client_body_temp_path {folder}/t1; proxy_temp_path {folder}/t2; fastcgi_temp_path {folder}/t3;
    uwsgi_temp_path {folder}/t4; scgi_temp_path {folder}/t5;
    server {{ listen 127.0.0.1:{port} {tls} backlog=1024; root {www}; {extra} }}
}}
"""


class ServerError(Exception):
    pass


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def process_seconds(pid):
    """User and system seconds of one process so far; 0 when it is gone."""
    try:
        with open(f"/proc/{pid}/stat") as file:
            fields = file.read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / CLOCK_TICKS
    except OSError:
        return 0.0


class Server:
    """A running server; leave the `with` block to end it."""

    def __init__(self, argv, port=None):
        self.process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self.port = port

    def __enter__(self):
        try:
            self.wait_ready()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(5)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process.stdout.close()

    def wait_ready(self):
        raise NotImplementedError

    def pids(self):
        return [self.process.pid]

    def seconds(self):
        return sum(process_seconds(pid) for pid in self.pids())


class Scripted(Server):
    def __init__(self, program, flags, www):
        super().__init__([program, *flags, www])

    def wait_ready(self):
        ready, _, _ = select.select([self.process.stdout], [], [], 10)
        words = self.process.stdout.readline().split() if ready else []
        if words[:1] != ["port"]:
            raise ServerError("the scripted server did not start")
        self.port = int(words[1])


def make_certificate(folder):
    """A certificate for 127.0.0.1 that nobody else vouches for, and its key; their paths."""
    certificate, key = os.path.join(folder, "bench.pem"), os.path.join(folder, "bench.key")
    if not os.path.exists(certificate):
        words = ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1"]
        words += ["-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", certificate]
        subprocess.run(words, check=True, capture_output=True)
    return certificate, key


class Nginx(Server):
    def __init__(self, folder, www, extra, tls=False):
        program = shutil.which("nginx") or shutil.which("nginx", path="/usr/sbin:/usr/local/sbin")
        if not program:
            raise ServerError("nginx is not installed")
        os.makedirs(folder, exist_ok=True)
        port = free_port()
        self.certificate = None
        if tls:
            self.certificate, key = make_certificate(folder)
            extra = f"ssl_certificate {self.certificate}; ssl_certificate_key {key}; " + extra
        conf = os.path.join(folder, "nginx.conf")
        with open(conf, "w") as file:
            file.write(
                NGINX_CONF.format(
                    folder=folder,
                    www=www,
                    port=port,
                    extra=extra,
                    tls="ssl" if tls else "",
                    workers=os.cpu_count(),
                    user="user root;" if os.geteuid() == 0 else "",
                )
            )
        super().__init__([program, "-c", conf, "-e", os.path.join(folder, "error.log")], port)

    def wait_ready(self):
        end = time.monotonic() + 10
        while time.monotonic() < end and self.process.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return
            except OSError:
                time.sleep(0.02)
        raise ServerError("nginx did not start")

    def pids(self):
        pid = self.process.pid
        with open(f"/proc/{pid}/task/{pid}/children") as file:
            return [pid, *map(int, file.read().split())]
