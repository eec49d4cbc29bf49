#!/usr/bin/env python3
"""Compares `vantlow get` with other downloaders on loopback: wall time, processor time and peak memory, in
interleaved rounds, every resulting file checked. README.md beside this file tells how to run it."""

import argparse
import json
import os
import platform
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

import programs
import scenarios
import servers

HERE = os.path.dirname(os.path.abspath(__file__))
TOOLS = ("floor", "measure", "server")


def compile_tools(folder):
    compiler = os.environ.get("CC", "cc")
    for name in TOOLS:
        source = os.path.join(HERE, name + ".c")
        flags = ["-std=gnu17", "-O2", "-Wall", "-Wextra", "-pthread"]
        subprocess.run([compiler, *flags, "-o", os.path.join(folder, name), source], check=True)


def busy_seconds():
    """Processor seconds of the whole machine so far, and those of all its processors together."""
    with open("/proc/stat") as file:
        ticks = [int(x) for x in file.readline().split()[1:9]]
    return (sum(ticks) - ticks[3] - ticks[4]) / servers.CLOCK_TICKS, sum(ticks) / servers.CLOCK_TICKS


def wait_idle(at_most):
    """Waits until other work leaves nine tenths of the machine free."""
    end = time.monotonic() + at_most
    while time.monotonic() < end:
        busy, total = busy_seconds()
        time.sleep(0.2)
        later_busy, later_total = busy_seconds()
        if later_busy - busy <= 0.1 * (later_total - total):
            return


class Bench:
    def __init__(self, options, folder):
        self.options = options
        self.folder = folder
        self.build = self.subfolder("build")
        self.www = self.subfolder("www")
        self.scratch = self.subfolder("scratch")
        self.home = self.subfolder("home")
        programs.write_home(self.home)
        compile_tools(self.build)
        self.programs, self.missing = programs.find_programs(self.tool("floor"), options.vantlow, options.earlier)

    def subfolder(self, name):
        path = os.path.join(self.folder, name)
        os.makedirs(path, exist_ok=True)
        return path

    def tool(self, name):
        return os.path.join(self.build, name)

    def server(self, scenario):
        if scenario.scripted is not None:
            return servers.Scripted(self.tool("server"), scenario.scripted, self.www)
        if scenario.scheme in ("ftp", "ftps"):
            return servers.Vsftpd(self.subfolder("vsftpd"), self.www, scenario.scheme == "ftps")
        if scenario.scheme == "sftp":
            return servers.Sshd(self.subfolder("sshd"), self.www)
        return servers.Nginx(self.subfolder("nginx"), self.www, scenario.nginx, scenario.tls)

    def measure(self, scenario, command, out):
        """Runs the words in the folder `out`; what the measuring program reports."""
        limits = ["--timeout", str(scenario.timeout)]
        if scenario.peak_after:
            limits += ["--peak-after", str(scenario.peak_after)]
        reader, writer = os.pipe()
        with open(os.path.join(self.scratch, "messages"), "w+b") as messages, os.fdopen(reader) as report:
            child = subprocess.Popen(
                [self.tool("measure"), "--report", str(writer), *limits, *command],
                cwd=out,
                env=programs.environment(self.home),
                stdin=subprocess.DEVNULL,
                stdout=messages,
                stderr=subprocess.STDOUT,
                pass_fds=(writer,),
            )
            os.close(writer)
            try:
                child.wait()
            except BaseException:
                child.terminate()
                raise
            line = report.readline()
            messages.seek(0)
            said = messages.read(4000).decode(errors="replace").strip().splitlines()
        if not line:
            raise RuntimeError("the measuring program failed: " + " ".join(command))
        return json.loads(line), said[-1] if said else ""

    def run_once(self, scenario, program):
        """One program's run on a fresh server and an empty folder; None where it can't do the scenario."""
        out = self.subfolder("out")
        with self.server(scenario) as server:
            base = server.base("https" if scenario.tls else scenario.scheme)
            trusted = server.certificate if scenario.tls or scenario.scheme == "ftps" else None
            command = program.command(programs.Task(scenario, base, server.port, self.scratch, trusted, server))
            if command is None:
                return None
            wait_idle(self.options.wait_idle)
            busy, server_before = busy_seconds()[0], server.seconds()
            sample, said = self.measure(scenario, command, out)
            sample["server"] = server.seconds() - server_before
            sample["cpu"] = sample["user"] + sample["sys"]
            others = busy_seconds()[0] - busy - sample["cpu"] - sample["server"]
            sample["others"] = max(0.0, others / sample["wall"] / os.cpu_count())
        sample["failure"] = self.failure(scenario, sample, said, out)
        shutil.rmtree(out)
        return sample

    def failure(self, scenario, sample, said, out):
        if scenario.peak_after:
            return None if sample["still_running"] else f"ended early, exit {sample['exit']}: {said}"
        if sample["timeout"]:
            return f"not done after {scenario.timeout:.0f} s"
        if sample["exit"] != 0:
            return f"exit {sample['exit']}: {said}"
        return scenarios.check_files(scenario, self.www, out)

    def run_scenario(self, scenario):
        for path, size in scenario.files:
            scenarios.make_file(os.path.join(self.www, path), size)
        if scenario.floor:
            self.run_once(scenario, self.programs[0])  # the first touch of fresh memory counts for nobody
        samples = {program.name: [] for program in self.programs}
        for number in range(self.options.rounds):
            for program in self.programs:
                sample = self.run_once(scenario, program)
                if sample is not None:
                    samples[program.name].append(sample)
                    self.tell(scenario, program, number, sample)
        for path, _ in scenario.files:
            os.remove(os.path.join(self.www, path))
        return {
            "scenario": scenario.name,
            "title": scenario.title,
            "ideal": scenario.ideal,
            "floor": scenario.floor,
            "memory_only": bool(scenario.peak_after),
            "programs": {name: summarise(runs) for name, runs in samples.items()},
            "not_installed": self.missing,
        }

    def tell(self, scenario, program, number, sample):
        if not self.options.quiet:
            print(
                f"{scenario.name} {number + 1}/{self.options.rounds} {program.name}: {sample['wall']:.3f} s, "
                f"cpu {sample['cpu']:.3f} s, {sample['peak_kib'] / 1024:.1f} MiB, "
                f"others {100 * sample['others']:.0f} % {sample['failure'] or ''}",
                file=sys.stderr,
                flush=True,
            )


def summarise(runs):
    """Medians and minima of the runs; None where there are none; a failed run fails them all."""
    if not runs:
        return None
    failures = [run["failure"] for run in runs if run["failure"]]
    result = {"runs": runs, "failed": len(failures), "failure": failures[0] if failures else None}
    for key in ("wall", "cpu", "peak_kib", "server", "others"):
        values = [run[key] for run in runs]
        result[key] = {"median": statistics.median(values), "min": min(values), "max": max(values)}
    return result


def best_peer(result, key):
    names = [kind.name for kind, _ in programs.PEERS]
    good = [result["programs"].get(name) for name in names]
    return min((x[key]["median"] for x in good if x and not x["failed"]), default=None)


def ratio(value, base):
    return f"{value / base:.2f}" if base else "–"


def table(result):
    """A Markdown table of one scenario."""
    floor = result["programs"].get("floor") if result["floor"] else None
    peer_wall, peer_cpu = best_peer(result, "wall"), best_peer(result, "cpu")
    lines = [f"### {result['scenario']}: {result['title']}", ""]
    if result["ideal"]:
        lines += [f"The server allows: {result['ideal']}.", ""]
    head = ["program", "wall s (least)", "processor s (least)", "peak MiB"]
    if floor:
        head += ["wall / floor", "processor / floor"]
    head += ["wall / best peer", "processor / best peer"]
    if result["memory_only"]:
        head = ["program", "peak MiB"]
    lines += ["| " + " | ".join(head) + " |", "|---" + "|---:" * (len(head) - 1) + "|"]
    for name, entry in result["programs"].items():
        if name == "floor" and not floor:
            continue
        if entry is None:
            cells = ["can't do this"]
        elif entry["failed"]:
            cells = [f"FAILED in {entry['failed']} of {len(entry['runs'])} rounds: {entry['failure']}"]
        else:
            wall, cpu = entry["wall"], entry["cpu"]
            peak = f"{entry['peak_kib']['max'] / 1024:.1f}"
            cells = [f"{wall['median']:.3f} ({wall['min']:.3f})", f"{cpu['median']:.3f} ({cpu['min']:.3f})", peak]
            if floor:
                cells += [ratio(x["median"], floor[k]["median"]) for x, k in ((wall, "wall"), (cpu, "cpu"))]
            cells += [ratio(wall["median"], peer_wall), ratio(cpu["median"], peer_cpu)]
            if result["memory_only"]:
                cells = [peak]
        cells += [""] * (len(head) - 1 - len(cells))
        lines.append("| " + " | ".join([name, *cells]) + " |")
    for name in result["not_installed"]:
        lines.append("| " + " | ".join([name, "not installed", *[""] * (len(head) - 2)]) + " |")
    return "\n".join(lines + [""])


def machine(bench):
    return {
        "kernel": platform.release(),
        "processors": os.cpu_count(),
        "rounds": bench.options.rounds,
        "versions": {program.name: program.version() for program in bench.programs},
    }


def report(about, results):
    versions = "; ".join(f"{name}: {text}" for name, text in about["versions"].items())
    loads = [run["others"] for r in results for e in r["programs"].values() if e for run in e["runs"]]
    others = f"{100 * statistics.median(loads):.0f} %" if loads else "–"
    lines = [
        f"Linux {about['kernel']}, {about['processors']} processors, {about['rounds']} rounds, medians (and least "
        f"values), peak memory the greatest. Other work took {others} of the machine (median). {versions}",
        "",
    ]
    return "\n".join(lines + [table(result) for result in results])


def parse_options():
    known = [scenario.name for scenario in scenarios.SCENARIOS]
    parser = argparse.ArgumentParser(description=__doc__, epilog="Scenarios: " + ", ".join(known))
    parser.add_argument("--vantlow", metavar="PATH", help="the program; without it only the others run")
    parser.add_argument("--earlier", metavar="PATH", help="an older build of it, in the same rounds")
    parser.add_argument("--only", metavar="A,B", help="these scenarios alone")
    parser.add_argument("--programs", metavar="A,B", help="these programs alone (floor is always among them)")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--dir", help="where the temporary folder is made (default: /dev/shm)")
    parser.add_argument("--json", metavar="FILE", help="write all values there ('-': to stdout in place of the table)")
    parser.add_argument(
        "--wait-idle", type=float, default=2, metavar="S", help="wait up to S seconds for a quiet machine (default 2)"
    )
    parser.add_argument("-q", "--quiet", action="store_true", help="no line for each run")
    options = parser.parse_args()
    options.only = options.only.split(",") if options.only else known
    unknown = set(options.only) - set(known)
    if unknown or options.rounds < 1:
        parser.error("unknown scenarios: " + ", ".join(sorted(unknown)) if unknown else "at least one round")
    for path in filter(None, (options.vantlow, options.earlier)):
        if not os.access(path, os.X_OK):
            parser.error(path + " can't be run")
    if not options.dir:
        options.dir = "/dev/shm" if os.access("/dev/shm", os.W_OK) else tempfile.gettempdir()
    return options


def main():
    options = parse_options()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(130))
    with tempfile.TemporaryDirectory(prefix="bench-", dir=options.dir) as folder:
        bench = Bench(options, folder)
        if options.programs:
            wanted = options.programs.split(",") + ["floor"]
            bench.programs = [program for program in bench.programs if program.name in wanted]
        chosen = [scenario for scenario in scenarios.SCENARIOS if scenario.name in options.only]
        about = machine(bench)
        results = [bench.run_scenario(scenario) for scenario in chosen]
    values = json.dumps({"machine": about, "results": results}, indent=1)
    if options.json and options.json != "-":
        with open(options.json, "w") as file:
            file.write(values + "\n")
    print(values if options.json == "-" else report(about, results))
    failed = any(entry and entry["failed"] for r in results for entry in r["programs"].values())
    return 1 if failed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (servers.ServerError, subprocess.CalledProcessError) as error:
        sys.exit(f"bench: {error}")
    except KeyboardInterrupt:
        sys.exit(130)
