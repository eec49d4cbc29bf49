#!/usr/bin/env python3
"""Compares `vantlow combine` with cp of the same bytes and with ffmpeg's concat: wall time, processor time and peak
memory, in interleaved rounds, on one disk.

    bench/media.py --vantlow PROGRAM [--mib N] [--pieces N] [--rounds N] [--folder DIR]

The pieces are made with ffmpeg and once joined to their size; the joined file's packets are those of the pieces
(tests/media/films.py looks closer)."""

import argparse
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time


def make_piece(vantlow, path, kind, mib):
    """A film of about so many MiB: twenty seconds of noise, many times."""
    seconds = path + ".part." + kind
    form = ["-f", "flv", "-flvflags", "add_keyframe_index"] if kind == "flv" else []
    source = "testsrc2=size=1280x720:rate=25:duration=20,noise=alls=12:allf=t"
    subprocess.run(
        ["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", source, "-f", "lavfi", "-i", "sine=duration=20"]
        + ["-c:v", "libx264", "-preset", "ultrafast", "-g", "50", "-b:v", "6M", "-pix_fmt", "yuv420p", "-c:a", "aac"]
        + [*form, seconds],
        check=True,
    )
    count = max(1, mib * 1024 * 1024 // os.path.getsize(seconds))
    subprocess.run([vantlow, "-q", "combine", "-o", path, *[seconds] * count], check=True)
    os.remove(seconds)


def measure(words):
    """Wall and processor seconds, peak MiB; what was written before is on the disk when it begins."""
    os.sync()
    begin = time.monotonic()
    child = subprocess.Popen(words, stdin=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    if status != 0:
        raise RuntimeError("failed: " + " ".join(words))
    return time.monotonic() - begin, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def compare(options, kind, folder):
    piece = os.path.join(folder, "piece." + kind)
    make_piece(options.vantlow, piece, kind, options.mib)
    pieces = [piece] * options.pieces
    joined, copied, concat = (os.path.join(folder, name + "." + kind) for name in ("joined", "copied", "concat"))
    names = os.path.join(folder, "list")
    with open(names, "w") as file:
        file.writelines(f"file '{path}'\n" for path in pieces)
    programs = {
        "vantlow": ([options.vantlow, "-q", "combine", "-o", joined, *pieces], joined),
        "cp": (["cp", joined, copied], copied),
        "ffmpeg": (["ffmpeg", "-v", "error", "-y", "-f", "concat", "-safe", "0", "-i", names, "-c", "copy", concat], concat),
    }
    samples = {name: [] for name in programs}
    subprocess.run(programs["vantlow"][0], check=True)
    size = os.path.getsize(joined)
    for _ in range(options.rounds):
        for name, (words, out) in programs.items():
            # cp needs what is joined; everybody begins without an output.
            if name != "vantlow" and os.path.exists(out) or name == "vantlow":
                os.remove(out)
            samples[name].append(measure(words))
        os.remove(copied)
        os.remove(concat)
    print(f"### {kind}: {options.pieces} pieces, {size / 2**20:.0f} MiB together, {options.rounds} rounds, medians (least)\n")
    print("| program | wall s | processor s | peak MiB | wall / cp |\n|---|---:|---:|---:|---:|")
    base = statistics.median(run[0] for run in samples["cp"])
    for name, runs in samples.items():
        wall, cpu = ([run[i] for run in runs] for i in (0, 1))
        print(f"| {name} | {statistics.median(wall):.2f} ({min(wall):.2f}) | {statistics.median(cpu):.2f} ({min(cpu):.2f}) "
              f"| {max(run[2] for run in runs):.1f} | {statistics.median(wall) / base:.2f} |")
    print(flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vantlow", required=True)
    parser.add_argument("--mib", type=int, default=512, help="size of a piece")
    parser.add_argument("--pieces", type=int, default=4)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--folder", help="on the disk to be measured (default: the temporary folder)")
    parser.add_argument("--only", choices=("mp4", "flv"))
    options = parser.parse_args()
    options.vantlow = os.path.abspath(options.vantlow)
    if not shutil.which("ffmpeg"):
        sys.exit("ffmpeg is missing")
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    with tempfile.TemporaryDirectory(dir=options.folder) as folder:
        for kind in [options.only] if options.only else ["mp4", "flv"]:
            compare(options, kind, folder)


if __name__ == "__main__":
    main()
