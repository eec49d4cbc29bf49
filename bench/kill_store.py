#!/usr/bin/env python3
"""Kills the resident program at random moments while it fetches and saves.

    bench/kill_store.py --vantlow PROGRAM [--kills 300] [--jobs 12] [--seed N] [--slow PROGRAM [--flush 300]]

Jobs are filed and stopped all the while. After each kill the store must hold every job that was answered for; at the end
every file must be right and nothing else may be in the folder: no job was begun anew under another name. With --slow it is
that program (bin/vantlow_slow_disk of a build) that runs and is killed, on a disk whose flushes take so many milliseconds.
Needs nginx.
"""

import argparse
import hashlib
import json
import os
import pathlib
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


class Nginx:
    def __init__(self, folder):
        self.port = free_port()
        (folder / "www").mkdir()
        configuration = folder / "nginx.conf"
        configuration.write_text(
            f"daemon off; master_process off; pid {folder}/nginx.pid; error_log {folder}/nginx.log;\n"
            "events { worker_connections 512; }\n"
            f"http {{ access_log off; client_body_temp_path {folder}/b; proxy_temp_path {folder}/p; fastcgi_temp_path {folder}/f;\n"
            f"uwsgi_temp_path {folder}/u; scgi_temp_path {folder}/s;\n"
            f"server {{ listen 127.0.0.1:{self.port}; root {folder}/www; limit_rate 400k; }} }}\n")
        self.process = subprocess.Popen(["nginx", "-c", str(configuration), "-p", str(folder)], stderr=subprocess.DEVNULL)

    def end(self):
        self.process.terminate()
        self.process.wait()


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--vantlow", required=True)
    arguments.add_argument("--kills", type=int, default=300)
    arguments.add_argument("--jobs", type=int, default=12)
    arguments.add_argument("--seed", type=int, default=random.randrange(1 << 30))
    arguments.add_argument("--slow", help="the resident program in place of --vantlow: bin/vantlow_slow_disk")
    arguments.add_argument("--flush", type=int, default=300, help="milliseconds that it waits for each flush")
    arguments.add_argument("--verbose", action="store_true", help="the logs of jobs that were fetched more than once")
    options = arguments.parse_args()
    program = str(pathlib.Path(options.vantlow).resolve())
    resident = str(pathlib.Path(options.slow).resolve()) if options.slow else program
    print("seed", options.seed)
    chance = random.Random(options.seed)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="vantlow-kill-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None))
    environment = dict(os.environ, VANTLOW_SLOW_FLUSH=str(options.flush), HOME=str(folder), XDG_RUNTIME_DIR=str(folder), VANTLOW_DATA_DIR=str(folder / "data"),
                       VANTLOW_SETTINGS=str(folder / "settings.ini"))
    (folder / "settings.ini").write_text("[Performance]\nMaxJobs=4\nSaveDatabaseInterval=10\n")
    server = Nginx(folder)
    expected, filed = {}, {}
    instance = None

    def run(*words):
        return subprocess.run([program, *words], env=environment, cwd=folder, capture_output=True, text=True)

    def start():
        return subprocess.Popen([resident], env=environment, cwd=folder, stderr=subprocess.PIPE, text=True)

    def file_job(number):
        name = f"{number}.bin"
        content = chance.randbytes(chance.randrange(1, 6_000_000))
        (folder / "www" / name).write_bytes(content)
        expected[name] = hashlib.sha256(content).hexdigest()
        answer = run("add", "-d", "out", f"http://127.0.0.1:{server.port}/{name}")
        if answer.returncode == 0:
            filed[answer.stdout.strip()] = name

    def listed():
        return {job["id"]: job for job in json.loads(run("list", "--json").stdout)}

    try:
        instance = start()
        for number in range(options.jobs):
            file_job(number)
        number = options.jobs
        for kill in range(options.kills):
            time.sleep(chance.uniform(0.02, 5 if options.slow and kill % 4 == 0 else 1.2))
            if chance.random() < 0.15:
                file_job(number)
                number += 1
            if chance.random() < 0.2 and filed:
                run("stop", chance.choice(list(filed)))
            if instance.poll() is not None:
                sys.exit(f"kill {kill}: the resident program ended by itself with {instance.returncode}: {instance.stderr.read()}")
            instance.send_signal(signal.SIGKILL)
            instance.wait()
            for word in instance.stderr.read().splitlines():
                if "damaged" in word:
                    sys.exit(f"kill {kill}: {word}")
            jobs = listed()
            lost = set(filed) - set(jobs)
            if lost:
                sys.exit(f"kill {kill}: jobs were lost: {lost}")
            instance = start()
            if not options.slow or chance.random() < 0.5:
                run("start", "--all")
            if all(jobs[i]["state"] == "finished" for i in filed):
                file_job(number)
                number += 1
        until = time.monotonic() + 300
        while any(job["state"] != "finished" for job in listed().values()):
            if time.monotonic() > until:
                sys.exit(f"not all jobs ended: {[j for j in listed().values() if j['state'] != 'finished']}")
            run("start", "--all")
            time.sleep(0.5)
        run("quit")
        instance.wait()
        found = {path.name: hashlib.sha256(path.read_bytes()).hexdigest() for path in (folder / "out").iterdir()}
        wrong = [name for name in filed.values() if found.get(name) != expected[name]]
        more = sorted(set(found) - set(expected))
        print(f"{options.kills} kills, {len(filed)} jobs, wrong files: {wrong}, other files: {more}")
        for identity, name in filed.items():
            if any(other.startswith(name[:-4] + "(") for other in more) and options.verbose:
                print(f"--- {name}\n{run('log', identity).stdout}")
        sys.exit(1 if wrong or more else 0)
    finally:
        if instance and instance.poll() is None:
            instance.kill()
            instance.wait()
        server.end()
        shutil.rmtree(folder)


if __name__ == "__main__":
    main()
