#!/usr/bin/python3
"""drive.py PROGRAMS: uses the window as a person does, on a screen that nobody sees: by keys, and by looking at it as a
screen reader does. What it then finds is held against what the command line and the disk say."""

import http.server
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import display  # noqa: E402
from display import press, to_front, until, windows, write  # noqa: E402

SKIPPED = 77
CONTENT = bytes(range(256)) * 6000


class Slow(http.server.BaseHTTPRequestHandler):
    """Serves one file under every name, ranges and all, in pieces with pauses; longer ones for "slow" names."""

    protocol_version = "HTTP/1.1"

    def do_GET(self):
        begin, end = 0, len(CONTENT)
        asked = re.match(r"bytes=(\d+)-(\d*)", self.headers.get("Range", ""))
        if asked:
            begin = int(asked[1])
            end = int(asked[2]) + 1 if asked[2] else end
        self.send_response(206 if asked else 200)
        self.send_header("Content-Length", str(end - begin))
        self.send_header("ETag", '"1"')
        if asked:
            self.send_header("Content-Range", f"bytes {begin}-{end - 1}/{len(CONTENT)}")
        self.end_headers()
        try:
            for at in range(begin, end, 65536):
                self.wfile.write(CONTENT[at : min(at + 65536, end)])
                time.sleep(0.5 if "slow" in self.path else 0.02)
        except OSError:
            pass  # the other side has gone

    def log_message(self, *words):
        pass


class Window(display.Vantlow):
    def start(self, *words):
        began = self.run(*words)
        assert began.returncode == 0, began
        to_front("^Vantlow$")
        return self.find("table", "Downloads")

    def names(self):
        table = self.find("table", "Downloads")
        return [table.line(row) for row in range(table.rows())]

    def wait_for_rows(self, count):
        return until(lambda: len(rows := self.names()) == count and rows, f"{count} rows") if count else until(
            lambda: not self.names(), "an empty list"
        )

    def end(self):
        to_front("^Vantlow$")
        press("ctrl+q")
        until(lambda: not self.process(), "the end of the process")


def add_by_dialog(window, address):
    to_front("^Vantlow$")
    press("ctrl+n")
    to_front("^New download$")
    press("ctrl+a")
    write(address)
    press("alt+d")
    until(lambda: not windows("^New download$"), "the end of the dialog")


def check(window, server):
    # A first start; an address by the dialog; it becomes the file.
    window.start()
    add_by_dialog(window, f"{server}/one.bin")
    window.wait_for_rows(1)
    line = until(lambda: "finished" in (line := window.names()[0]) and line, "a finished download")
    assert "one.bin" in line[0], line
    [job] = window.jobs()
    assert pathlib.Path(job["folder"], job["file"]).read_bytes() == CONTENT
    # A second start hands its link over and brings the window back.
    subprocess.run(["xdotool", "windowminimize", to_front("^Vantlow$")], check=True)
    assert window.run(f"{server}/two.bin").returncode == 0
    until(lambda: windows("^Vantlow$"), "the window after a second start")
    window.wait_for_rows(2)
    until(lambda: all("finished" in line for line in window.names()), "two finished downloads")
    # A search as one types; Escape ends it.
    to_front("^Vantlow$")
    press("ctrl+f")
    write("two")
    assert "two.bin" in window.wait_for_rows(1)[0][0]
    press("Escape")
    window.wait_for_rows(2)
    # Removed and brought back.
    press("ctrl+a", "Delete")
    to_front("^Remove$")
    press("alt+r")
    window.wait_for_rows(0)
    assert window.jobs() == []
    to_front("^Vantlow$")
    press("ctrl+z")
    window.wait_for_rows(2)
    assert len(window.jobs()) == 2
    # The end, and the next start: the same jobs and the same place.
    window.end()
    layout = (window.folder / "settings.ini").read_text()
    assert "Layout=" in layout, layout
    window.start()
    window.wait_for_rows(2)
    # Killed in the middle, it knows at the next start what was safe.
    add_by_dialog(window, f"{server}/three.bin")
    window.wait_for_rows(3)
    window.kill()
    window.start()
    window.wait_for_rows(3)
    until(lambda: all("finished" in line for line in window.names()), "three finished downloads")
    window.end()
    # Without a display it runs all the same, and says so.
    told = subprocess.Popen(
        [window.programs / "vantlow", *window.words],
        env={k: v for k, v in window.environment.items() if k != "DISPLAY"},
        stderr=subprocess.PIPE,
        text=True,
    )
    first = told.stderr.readline()
    assert "There is no display. Vantlow runs without a window." in first, first
    until(lambda: window.run("quit").returncode == 0, "the end of the program without a window")
    assert told.wait(20) == 0


def main(programs):
    lacking = display.missing()
    if not os.access(f"{programs}/vantlow-desktop", os.X_OK):
        lacking.append("vantlow-desktop")
    if lacking:
        print("skipped: there is no " + ", ".join(lacking))
        return SKIPPED
    display.on_a_session_bus()
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Slow)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    with tempfile.TemporaryDirectory() as folder, display.display():
        window = Window(programs, folder)
        try:
            check(window, f"http://127.0.0.1:{server.server_port}")
        finally:
            window.kill()
            log = pathlib.Path(folder, "data/resident.log")
            if log.exists():
                print(log.read_text(errors="replace")[-2000:])
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
