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


def memory_kib(pid, name):
    """A figure of a running process's memory: "VmRSS", "VmHWM" (the peak), "RssAnon"."""
    with open(f"/proc/{pid}/status") as file:
        return next(int(line.split()[1]) for line in file if line.startswith(name + ":"))


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

    def base(self, scheme):
        """The address of what it serves, ending with /."""
        return f"{scheme}://127.0.0.1:{self.port}/"

    def wait_ready(self):
        raise NotImplementedError

    def wait_for_port(self, name):
        end = time.monotonic() + 10
        while time.monotonic() < end and self.process.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return
            except OSError:
                time.sleep(0.02)
        raise ServerError(f"{name} did not start")

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
        self.wait_for_port("nginx")

    def pids(self):
        pid = self.process.pid
        with open(f"/proc/{pid}/task/{pid}/children") as file:
            return [pid, *map(int, file.read().split())]


def find_server(word):
    program = shutil.which(word) or shutil.which(word, path="/usr/sbin:/usr/local/sbin")
    if not program or os.geteuid() != 0:
        raise ServerError(f"{word} is not installed, or this is not root")
    return program


VSFTPD_CONF = """
listen=YES
listen_ipv6=NO
listen_address=127.0.0.1
listen_port={port}
background=NO
anonymous_enable=YES
local_enable=NO
anon_root={www}
secure_chroot_dir={empty}
pam_service_name=other
seccomp_sandbox=NO
"""


class Vsftpd(Server):
    """Anonymous; with a certificate of its own where TLS is wanted."""

    def __init__(self, folder, www, tls):
        program = find_server("vsftpd")
        empty = os.path.join(folder, "empty")
        os.makedirs(empty, exist_ok=True)
        for path in (os.path.dirname(os.path.dirname(folder)), os.path.dirname(folder), www):
            os.chmod(path, 0o755)
        port = free_port()
        text = VSFTPD_CONF.format(port=port, www=www, empty=empty)
        self.certificate = None
        if tls:
            self.certificate, key = make_certificate(folder)
            text += f"ssl_enable=YES\nallow_anon_ssl=YES\nrsa_cert_file={self.certificate}\n"
            text += f"rsa_private_key_file={key}\n"
        conf = os.path.join(folder, "vsftpd.conf")
        with open(conf, "w") as file:
            file.write(text)
        super().__init__([program, conf], port)

    def wait_ready(self):
        self.wait_for_port("vsftpd")


SSHD_CONF = """
Port {port}
ListenAddress 127.0.0.1
HostKey {host_key}
AuthorizedKeysFile {key}.pub
PidFile none
StrictModes no
UsePAM no
PermitRootLogin yes
MaxStartups 100
Subsystem sftp internal-sftp
"""


class Sshd(Server):
    """OpenSSH, root with a key of its own."""

    def __init__(self, folder, www):
        program = find_server("sshd")
        self.www = www
        self.key = os.path.join(folder, "id")
        host_key = os.path.join(folder, "host_key")
        os.makedirs("/run/sshd", exist_ok=True)
        for key in (self.key, host_key):
            if not os.path.exists(key):
                subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key], check=True)
        port = free_port()
        conf = os.path.join(folder, "sshd_config")
        with open(conf, "w") as file:
            file.write(SSHD_CONF.format(port=port, host_key=host_key, key=self.key))
        super().__init__([program, "-D", "-f", conf], port)

    def base(self, scheme):
        return f"{scheme}://root@127.0.0.1:{self.port}{self.www}/"

    def wait_ready(self):
        self.wait_for_port("sshd")
