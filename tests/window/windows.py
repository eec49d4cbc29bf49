#!/usr/bin/python3
"""windows.py PROGRAMS CONTROLS: the window of the Windows build under Wine. It is used as drive.py uses the window of Linux, by
keys, and looked at through its controls, which CONTROLS (win32/controls.cpp) finds; then what only they can do."""

import collections
import http.server
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import around  # noqa: E402
import display  # noqa: E402
import drive  # noqa: E402
from display import press, to_front, until, windows  # noqa: E402

Control = collections.namedtuple("Control", "number top kind state text")


class Window(drive.Usage, display.WineVantlow):
    def __init__(self, programs, folder, controls):
        super().__init__(programs, folder)
        self.finder = controls
        self.begin_controls()

    def begin_controls(self):
        self.controls = subprocess.Popen(
            [self.wine, self.finder], env=self.environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE, encoding="utf-8"
        )

    def __exit__(self, *error):
        if hasattr(self, "controls"):
            self.controls.stdin.close()
            self.controls.wait(20)
        super().__exit__(*error)

    def ask(self, *words):
        self.controls.stdin.write("\t".join(str(word) for word in words) + "\n")
        self.controls.stdin.flush()
        lines = []
        for line in self.controls.stdout:
            line = line.rstrip("\r\n")
            if line == ".":
                return [one.split("\t") for one in lines]
            assert not line.startswith("! "), (words, line)
            lines.append(line)
        raise AssertionError("the controls' program has ended")

    def control(self, kind, text=""):
        """The first one of its class and text that is seen and can be used."""

        def look():
            for line in self.ask("windows"):
                one = Control(*line)
                fits = one.kind == kind and one.text.replace("&", "").startswith(text)
                if fits and one.state.startswith("visible enabled"):
                    return one.number
            return None

        return until(look, f'the {kind} "{text}"')

    def frame(self):
        return self.control("wxWindowNR", "Vantlow")

    def table(self, titles):
        """The list that is seen and has these columns: its number, and its rows below them."""
        for line in self.ask("windows"):
            one = Control(*line)
            if one.kind == "SysListView32" and "visible" in one.state:
                rows = self.ask("rows", one.number)
                if set(titles) <= set(rows[0]):
                    return one.number, rows
        return None, [[]]

    def lines(self, columns):
        return self.table(columns)[1][1:]

    def click(self, *words):
        [place] = self.ask("place", *words)
        display.click_at(*place)

    def click_header(self, title):
        number, rows = self.table(self.LIST)
        self.click(number, "header", rows[0].index(title))

    def click_row(self, columns, row):
        self.click(self.table(columns)[0], "row", row)

    def place_of_row(self, row):
        [[x, y]] = self.ask("place", self.table(self.LIST)[0], "row", row)
        return int(x), int(y) - 4

    def click_box(self, row):
        self.click(self.table(self.FILES)[0], "box", row)

    def choose_tab(self, title):
        tabs = self.control("_wx_SysTabCtl32")
        self.click(tabs, "tab", self.ask("tabs", tabs).index([title]))

    def search_options(self, text):
        to_front(drive.OPTIONS)
        self.ask("put", self.control("Edit"), text)

    def tick(self, label):
        self.ask("press", self.control("Button", label))

    push = tick

    def says(self, sentence):
        self.control("Static", sentence)

    def holds(self, text):
        until(lambda: any(text in Control(*line).text for line in self.ask("windows")), f'a field with "{text}"')

    def choose(self, entry):
        self.ask("choose", self.control("ComboBox"), entry)

    def put_into_clipboard(self, text):
        self.ask("copy", text)

    def started_with_session(self):
        told = self.wine_run("reg", "query", "HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Run").stdout
        return "".join(line for line in told.splitlines() if "vantlow" in line.lower())

    def forget(self):
        """Ends the program and its data."""
        self.run("quit")
        until(lambda: not self.process(), "the end of the process")
        shutil.rmtree(self.folder / "data", ignore_errors=True)


def tray(window, _server):
    """A window that is closed stays in the tray, and comes back from there."""
    window.ask("close", window.frame())
    until(lambda: not windows(drive.FRAME), "the window in the tray")
    assert window.process()
    window.ask("tray", "sign")
    to_front(drive.FRAME)


def drops(window, server):
    """Links from another program, in each form that they have there."""
    count = len(window.names())
    page = f'<html><body><a href="{server}/html.bin">one</a></body></html>'
    for name, text in (("UniformResourceLocatorW", f"{server}/wide.bin"), ("UniformResourceLocator", f"{server}/narrow.bin"),
                       ("FileContents", f"URL={server}/shortcut.bin"), ("HTML Text", page)):
        window.ask("drop", window.table(window.LIST)[0], name, text)
        to_front(drive.NEW)
        press("alt+d")
        count += 1
        until(lambda: len(window.jobs()) == count, f"the link that was dropped as {name}")


def emptied(window, _server):
    window.run("remove", *[job["id"] for job in window.jobs()])
    window.wait_for_rows(0)


def other_screens(window, server):
    """At 100 and at 150 %."""
    window.forget()
    around.other_screens(window, server)
    window.set_dots_per_inch(144)  # ends all programs there
    around.other_screens(window, server)
    window.set_dots_per_inch(96)
    window.begin_controls()


def clipboard(window, server):
    window.forget()
    around.clipboard(window, server)


def notices(window, server):
    """At the end of a download that nobody watched; a click on it opens the file."""
    window.forget()
    window.set("Window/Welcomed=1")
    window.start()
    subprocess.run(["xdotool", "windowminimize", to_front(drive.FRAME)], check=True)
    opened = window.folder / "opened"
    opening = f'cmd.exe /c copy "%1" "{window.path("opened")}"'
    for key, value in ((".told", "told.file"), ("told.file\\shell\\open\\command", opening)):
        window.wine_run("reg", "add", "HKCR\\" + key, "/ve", "/d", value, "/f")
    window.run("add", "--dir", window.path(""), f"{server}/new.told")
    until(lambda: window.ask("notices") == [["new.told"]], "a notice")
    window.ask("tray", "notice")
    until(lambda: opened.exists() and opened.read_bytes() == drive.CONTENT, "the file's being opened")


def first_start(window, server):
    window.forget()
    around.first_start(window, server)


def main(programs, controls):
    lacking = display.missing("import")
    if lacking:
        print("skipped: there is no " + ", ".join(lacking))
        return drive.SKIPPED
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), around.Locked)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    address = f"http://127.0.0.1:{server.server_port}"
    with tempfile.TemporaryDirectory() as folder, display.display(), Window(programs, folder, controls) as window:
        for scenario in (*drive.SCENARIOS, tray, drops, around.login, emptied, around.confirmations,
                         other_screens, clipboard, notices, first_start):
            print(scenario.__name__, flush=True)
            scenario(window, address)
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
