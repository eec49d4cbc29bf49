#!/usr/bin/python3
"""drive.py PROGRAMS: uses the window as a person does, on a screen that nobody sees: by keys and clicks, and by looking at it as
a screen reader does. What it then finds is held against what the command line and the disk say. windows.py does the same under
Wine."""

import http.server
import json
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
FRAME = "^Vantlow$"
NEW = "^New download$"
OPTIONS = "^(Options|Einstellungen)$"
CONTENT = bytes(range(256)) * 6000


class Slow(http.server.BaseHTTPRequestHandler):
    """Serves one file under every name, ranges and all, in pieces with pauses; longer ones for "slow" names."""

    protocol_version = "HTTP/1.1"

    def do_HEAD(self):
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
        return begin, end

    def do_GET(self):
        begin, end = Slow.do_HEAD(self)
        try:
            for at in range(begin, end, 65536):
                self.wfile.write(CONTENT[at : min(at + 65536, end)])
                time.sleep(0.5 if "slow" in self.path else 0.02)
        except OSError:
            pass  # the other side has gone

    def log_message(self, *words):
        pass


class Usage:
    """The window as a person uses it. Each system has its own ways to look and to click: lines() of the list that is seen and has
    these columns, click_header(), click_row(), place_of_row(), click_box() of a file, choose_tab(), and, in the options, search_options(),
    tick(), choose(), push() of a button, says() of a sentence, and holds() of a field's text."""

    LIST = ("Name", "Category")
    FILES = ("Name", "Priority")
    TRACKERS = ("Address", "Message")

    def start(self, *words):
        began = self.run(*words)
        assert began.returncode == 0, began
        to_front(FRAME)

    def names(self):
        return self.lines(self.LIST)

    def row_of(self, name):
        return until(lambda: [row for row, line in enumerate(self.names()) if name in line[0]], f"the row of {name}")[0]

    def wait_for_rows(self, count):
        until(lambda: len(self.names()) == count, f"{count} rows")
        return self.names()

    def wait_for_ends(self, count):
        until(lambda: [line.count("finished") for line in self.names()] == count * [1], f"{count} finished downloads")

    def told(self, *words):
        return json.loads(self.run("--json", *words).stdout)

    def drag_row(self, row, onto):
        """Into the upper half of another row."""
        (x, y), (to_x, to_y) = self.place_of_row(row), self.place_of_row(onto)
        display.drag(x, y, to_x, to_y)

    def end(self):
        to_front(FRAME)
        press("ctrl+q")
        until(lambda: not self.process(), "the end of the process")


class Window(Usage, display.Vantlow):
    """Looks and clicks as a screen reader does."""

    TABLES = {Usage.LIST: "Downloads", Usage.FILES: "Files", Usage.TRACKERS: "Trackers"}

    def table(self, columns):
        return self.find("table", self.TABLES[columns])

    def lines(self, columns):
        from gi.repository import GLib

        def look():
            try:
                table = self.table(columns)
                return [[table.line(row) for row in range(table.rows())]]
            except GLib.GError:
                return None  # it changed while it was read

        return until(look, f"the rows of {columns}")[0]

    def click_header(self, title):
        table = self.table(self.LIST).own.get_table_iface()
        [header] = [table.get_column_header(n) for n in range(table.get_n_columns()) if table.get_column_description(n) == title]
        display.click(header)

    def click_row(self, columns, row):
        display.click(self.table(columns).own.get_table_iface().get_accessible_at(row, 0))

    def place_of_row(self, row):
        room = self.table(self.LIST).own.get_table_iface().get_accessible_at(row, 0).get_component_iface().get_extents(0)
        return room.x + 40, room.y + room.height // 4

    def click_box(self, row):
        display.click(self.table(self.FILES).own.get_table_iface().get_accessible_at(row, 0), x=12)

    def choose_tab(self, title):
        tabs = self.find("page tab list", "")
        [number] = [n for n, tab in enumerate(tabs.children()) if tab.name == title]
        tabs.own.select_child(number)

    def act(self, role, name):
        found = self.find(role, name)
        until(lambda: found.is_sensitive(), f'the {role} "{name}" that can be used')
        found.own.do_action(0)

    def search_options(self, text):
        to_front(OPTIONS)
        self.find("text", "Search the options").own.set_text_contents(text)

    def tick(self, label):
        self.act("check box", label)

    def choose(self, entry):
        self.act("menu item", entry)

    def push(self, label):
        self.act("push button", label)

    def says(self, sentence):
        self.find("label", sentence)

    def holds(self, text):
        from gi.repository import Atspi, GLib

        def look():
            try:
                top = self.application()
                return top and top.find(lambda n: n.role == "text" and text in Atspi.Text.get_text(n.own, 0, -1))
            except GLib.GError:
                return None

        until(look, f'a field with "{text}"')


def add_by_dialog(window, address):
    to_front(FRAME)
    press("ctrl+n")
    to_front(NEW)
    press("ctrl+a")
    write(address)
    press("alt+d")
    until(lambda: not windows(NEW), "the end of the dialog")


def first_start(window, server):
    """An address by the dialog becomes the file."""
    window.start()
    add_by_dialog(window, f"{server}/one.bin")
    window.wait_for_ends(1)
    assert "one.bin" in window.names()[0][0]
    [job] = window.jobs()
    assert window.file_of(job).read_bytes() == CONTENT


def second_start(window, server):
    """It hands its link over and brings the window back."""
    subprocess.run(["xdotool", "windowminimize", to_front(FRAME)], check=True)
    assert window.run(f"{server}/two.bin").returncode == 0
    until(lambda: windows(FRAME), "the window after a second start")
    window.wait_for_ends(2)


def search(window, _server):
    """As one types; Escape ends it."""
    to_front(FRAME)
    press("ctrl+f")
    write("two")
    assert "two.bin" in window.wait_for_rows(1)[0][0]
    press("Escape")
    window.wait_for_rows(2)


def removal(window, _server):
    """Removed and brought back."""
    press("ctrl+a", "Delete")
    to_front("^Remove$")
    press("alt+r")
    window.wait_for_rows(0)
    assert window.jobs() == []
    to_front(FRAME)
    press("ctrl+z")
    window.wait_for_rows(2)
    assert len(window.jobs()) == 2


def known_addresses(window, server):
    """An address that is in the list already: it is shown, given mirrors, or left; nothing is fetched again."""
    for answer in ("Add the others as its mirrors", "Show it", "Cancel"):
        to_front(FRAME)
        press("ctrl+f")
        write("two")
        window.wait_for_rows(1)
        press("ctrl+n")
        to_front(NEW)
        press("ctrl+a")
        write(f"{server}/one.bin")
        if "mirrors" in answer:
            press("Return")
            write(f"{server}/mirror.bin")
        # Keys wait in a queue, from which the button would not be pressed.
        window.holds("/mirror.bin" if "mirrors" in answer else "/one.bin")
        window.push(answer)
        until(lambda: not windows(NEW), "the end of the dialog")
        to_front(FRAME)
        if answer == "Show it":
            window.wait_for_rows(2)
        press("ctrl+f", "Escape")
        window.wait_for_rows(2)
    [one] = [job for job in window.jobs() if job["address"].endswith("/one.bin")]
    shown = window.told("show", one["id"])
    assert [mirror.rsplit("/", 1)[1] for mirror in shown["mirrors"]] == ["mirror.bin"], shown


def crash(window, server):
    """Killed in the middle, it knows at the next start what was safe; after a common end it has its place again, too."""
    window.end()
    layout = (window.folder / "settings.ini").read_text()
    assert "Layout=" in layout, layout
    window.start()
    window.wait_for_rows(2)
    add_by_dialog(window, f"{server}/three.bin")
    window.wait_for_rows(3)
    # It begins when it is safe on the disk.
    until(lambda: [job for job in window.jobs() if "three.bin" in job["address"] and job["state"] != "waiting"], "its begin")
    window.kill()
    window.start()
    window.wait_for_ends(3)


def order(window, _server):
    """A click at a column's title sorts, a second one turns it round."""
    to_front(FRAME)
    for is_turned in (False, True):
        time.sleep(0.6)  # two clicks at once are a double click
        window.click_header("Name")
        until(lambda turned=is_turned: (names := [line[0] for line in window.names()]) == sorted(names, reverse=turned), "another order")


def stop_and_start(window, server):
    window.run("add", "--connections", "1", "--dir", window.path(""), f"{server}/slow.bin")
    until(lambda: any("running" in line for line in window.names()), "a running download")
    to_front(FRAME)
    window.click_row(window.LIST, window.row_of("slow.bin"))
    for key, state in (("ctrl+t", "stopped"), ("ctrl+r", "running")):
        press(key)
        until(lambda wanted=state: any(wanted in line for line in window.names()), state)
    window.run("remove", *[job["id"] for job in window.jobs() if job["file"] == "slow.bin"])


def queue(window, server):
    """In the order of the queue a download that waits is dragged in front of another one."""
    def queued():
        waiting = sorted((int(line[1]), line[0]) for line in window.names() if line[1].strip())
        if not all("slow-" in name for _, name in waiting):
            return repr(waiting)
        return "".join(name.split("slow-")[1][0] for _, name in waiting)

    # The column of places is there from the next start on.
    until(lambda: not any("running" in line for line in window.names()), "the end of what still runs")
    window.end()
    settings = window.folder / "settings.ini"
    settings.write_text(re.sub(r"columns=(name:\d+:1,)(.*?),order:\d+:0", r"columns=\1order:60:1,\2", settings.read_text()))
    window.start()
    window.run("settings", "set", "Performance/MaxJobs", "1")
    window.run("add", "--limit", "10K", "--dir", window.path(""), *(f"{server}/slow-{n}.bin" for n in "abcd"))
    until(lambda: queued() == "bcd", "the places of those that wait")
    window.drag_row(window.row_of("slow-d"), window.row_of("slow-b"))
    window.says("Sorted by the column")
    assert queued() == "bcd", queued()
    window.click_header("Place")
    until(lambda: window.row_of("slow-b") < window.row_of("slow-c") < window.row_of("slow-d"), "the order of the queue")
    window.drag_row(window.row_of("slow-d"), window.row_of("slow-b"))
    until(lambda: queued() == "dbc", "the last one in front")
    # Two at once.
    window.click_row(window.LIST, window.row_of("slow-b"))
    press("shift+Down")
    window.drag_row(window.row_of("slow-b"), window.row_of("slow-d"))
    until(lambda: queued() == "bcd", "two in front")
    window.run("remove", *[job["id"] for job in window.jobs() if "/slow-" in job["address"]])
    window.run("settings", "unset", "Performance/MaxJobs")


def many_changes(window, server):
    """Very many rows that change at once are drawn anew: GTK keeps a picture of a list's rows."""
    window.click_header("Name")
    press("ctrl+f")
    write("slow-")
    window.wait_for_rows(0)
    window.run("settings", "set", "Performance/MaxJobs", "1")
    window.run("add", "--paused", "--dir", window.path(""), *(f"{server}/slow-{n:03}.bin" for n in range(300)))
    window.wait_for_rows(300)
    time.sleep(1)
    x, y = window.place_of_row(window.row_of("slow-009"))
    stopped = display.picture_of(x, y, 700, 12)
    window.run("start", "--all")
    until(lambda: display.picture_of(x, y, 700, 12) != stopped, "the row as it is now")
    window.run("stop", "--all")
    until(lambda: display.picture_of(x, y, 700, 12) == stopped, "the row as it was before")
    window.run("remove", *[job["id"] for job in window.jobs() if "/slow-" in job["address"]])
    window.run("settings", "unset", "Performance/MaxJobs")
    press("Escape")


def more_by_key(window, server):
    """The rest of the dialog for new downloads is unfolded and filled in by keys."""
    to_front(FRAME)
    press("ctrl+n")
    to_front(NEW)
    press("ctrl+a")
    write(f"{server}/more.bin")
    press("alt+m", "alt+e")
    write("by key")
    press("alt+d")
    until(lambda: [job["comment"] for job in window.jobs() if job["address"].endswith("/more.bin")] == ["by key"], "the comment")
    assert not windows(NEW)


def torrent(window, _server):
    """Files are chosen by their boxes and their menu, trackers added and removed."""
    whole = window.folder / "journey"
    whole.mkdir()
    for name in ("film.mkv", "notes.txt"):
        (whole / name).write_bytes(CONTENT)
    window.run("torrent", "make", window.path("journey"), "--tracker", "http://127.0.0.1:9/announce")
    window.run("add", "--paused", window.path("journey.torrent"))
    number = window.row_of("journey")
    [job] = [one["id"] for one in window.jobs() if one["address"].startswith("magnet:")]

    def wanted():
        return [one["priority"] for one in window.told("torrent", "files", job)]

    to_front(FRAME)
    window.click_row(window.LIST, number)
    window.choose_tab("Files")
    until(lambda: len(window.lines(window.FILES)) == 2, "the files")
    for clicked, found in ((1, ["normal", "skip"]), (1, ["normal", "normal"])):
        window.click_box(clicked)
        until(lambda expected=found: wanted() == expected, f"{found}")
    window.click_row(window.FILES, 0)
    press("Menu", "Down", "Return")
    until(lambda: wanted() == ["high", "normal"], "a file that comes first")
    press("Menu", "s")
    until(lambda: wanted() == ["high", "skip"], "only the selected file")
    press("Menu", "c")
    until(lambda: wanted() == ["high", "normal"], "all files")
    until(lambda: window.lines(window.FILES)[0][-1] != "normal", "its priority in the list")
    window.choose_tab("Trackers")
    until(lambda: len(window.lines(window.TRACKERS)) == 1, "the tracker")
    window.click_row(window.TRACKERS, 0)
    press("Menu", "a")
    to_front("^Trackers$")
    write("http://127.0.0.1:9/second/announce")
    press("alt+o")
    until(lambda: len(window.lines(window.TRACKERS)) == 2, "a second tracker")
    window.click_row(window.TRACKERS, 0)
    press("Menu", "r")
    until(lambda: [one["tracker"] for one in window.told("torrent", "trackers", job)] == ["http://127.0.0.1:9/second/announce"],
          "the first tracker's removal")


def forms(window, _server):
    """A category with a rule; a comment for several downloads at once."""
    to_front(FRAME)
    press("alt+f", "c")
    to_front("^New category$")
    write("Discs")
    press("alt+r")
    write(".iso")
    press("alt+o")
    until(lambda: ".iso" in [one["rule"] for one in window.told("category", "list")], "a category with a rule")
    to_front(FRAME)
    window.click_row(window.LIST, 0)
    press("ctrl+a", "alt+Return")
    to_front("^Properties$")
    press("alt+e")
    write("for the journey")
    press("alt+o")
    until(lambda: {job["comment"] for job in window.jobs()} == {"for the journey"}, "a comment of all downloads")


def options(window, server):
    """The week plan, a switch, and the language, which the next start speaks; the test of a proxy."""
    to_front(FRAME)
    press("ctrl+alt+o")
    window.search_options("Schedule/Week")
    window.tick("Wed")
    until(lambda: (plan := window.told("schedule")["plan"]) and plan["days"] == ["wed"], "a week plan")
    window.search_options("CloseToTray")
    window.tick("Closing the window")
    until(lambda: window.run("settings", "get", "Window/CloseToTray").stdout.strip() == "1", "the switch")
    window.search_options("Settings/Language")
    window.choose("Deutsch")
    until(lambda: window.run("settings", "get", "Settings/Language").stdout.strip() == "de", "the language")
    press("Escape")
    window.end()
    window.start()
    to_front(FRAME)
    press("ctrl+n")
    to_front("^Neuer Download$")
    press("Escape")
    window.run("settings", "set", "Settings/Language", "en")
    window.end()
    window.run("settings", "set", "Connection/Proxy", server)
    window.start()
    press("ctrl+alt+o")
    window.search_options("Connection/Proxy")
    window.push("Test")
    window.says("This way works")
    press("Escape")
    window.run("settings", "unset", "Connection/Proxy")


def end_in_a_dialog_of_the_system(window, _server):
    """A command to quit does not wait until somebody has chosen a file."""
    to_front(FRAME)
    press("alt+f", "i")
    to_front("^Import downloads$")
    assert window.run("quit").returncode == 0
    until(lambda: not window.process(), "the end of the process")
    window.start()


def end_in_a_menu(window, _server):
    """Nor until a context menu is closed."""
    to_front(FRAME)
    window.click_row(window.LIST, 0)
    press("Menu")
    time.sleep(1)
    assert window.run("quit").returncode == 0
    until(lambda: not window.process(), "the end of the process")
    window.start()


def end_without_display(window):
    window.end()
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


SCENARIOS = (first_start, second_start, search, removal, known_addresses, crash, order, stop_and_start, queue, torrent, forms, options,
             end_in_a_dialog_of_the_system, end_in_a_menu, more_by_key)


def main(programs):
    lacking = display.missing("import")
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
            for scenario in (*SCENARIOS, many_changes):
                print(scenario.__name__, flush=True)
                scenario(window, f"http://127.0.0.1:{server.server_port}")
            end_without_display(window)
        finally:
            window.kill()
            log = pathlib.Path(folder, "data/resident.log")
            if log.exists():
                print(log.read_text(errors="replace")[-2000:])
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
