"""A display that nobody sees, and the window on it: for tests that drive it and for its pictures.

Needs Xvfb, openbox, xdotool and a session bus with the accessibility service; missing() says which of them is not there."""

import contextlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

WAIT = 20  # seconds for whatever is expected


def missing(*others):
    """The names of the programs and modules that are needed and not there."""
    names = [n for n in ("Xvfb", "openbox", "xdotool", "dbus-run-session", *others) if shutil.which(n) is None]
    try:
        import gi

        gi.require_version("Atspi", "2.0")
        from gi.repository import Atspi  # noqa: F401
    except (ImportError, ValueError):
        names.append("gir1.2-atspi-2.0")
    return names


def on_a_session_bus():
    """Starts this script again on a session bus of its own, unless it runs on one."""
    if os.environ.get("VANTLOW_ON_BUS") is None:
        environment = dict(os.environ, VANTLOW_ON_BUS="1", NO_AT_BRIDGE="0", GTK_MODULES="gail:atk-bridge")
        for name in ("DBUS_SESSION_BUS_ADDRESS", "WAYLAND_DISPLAY", "VANTLOW_NO_WINDOW"):
            environment.pop(name, None)
        os.execvpe("dbus-run-session", ["dbus-run-session", "--", sys.executable, *sys.argv], environment)


def until(look, what, seconds=WAIT):
    """Waits until look() gives something true, and returns it."""
    end = time.monotonic() + seconds
    while True:
        if found := look():
            return found
        if time.monotonic() > end:
            raise AssertionError(f"in {seconds} s there was not: {what}")
        time.sleep(0.1)


@contextlib.contextmanager
def display(size="1280x900"):
    """A screen with a window manager; sets DISPLAY."""
    reader, writer = os.pipe()
    screen = subprocess.Popen(
        ["Xvfb", "-displayfd", str(writer), "-screen", "0", f"{size}x24", "-nolisten", "tcp"],
        pass_fds=[writer],
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    )
    os.close(writer)
    started = [screen]
    try:
        with os.fdopen(reader) as number:
            os.environ["DISPLAY"] = ":" + number.readline().strip()
        started.append(subprocess.Popen(["openbox"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))
        yield
    finally:
        for process in reversed(started):
            process.terminate()
            process.wait()


class Node:
    """One object of the window as a screen reader sees it."""

    def __init__(self, accessible):
        self.own = accessible

    @property
    def name(self):
        return self.own.get_name() or ""

    @property
    def role(self):
        return self.own.get_role_name()

    def is_sensitive(self):
        from gi.repository import Atspi

        return self.own.get_state_set().contains(Atspi.StateType.SENSITIVE)

    def children(self, most=200):
        for i in range(min(self.own.get_child_count(), most)):
            if (child := self.own.get_child_at_index(i)) is not None:
                yield Node(child)

    def find(self, test, depth=14):
        """The first object below for which the test holds, broad before deep."""
        level = [self]
        for _ in range(depth):
            following = []
            for node in level:
                if node.role in ("table", "tree table") and node is not self and not test(node):
                    continue  # a hundred thousand cells
                if test(node):
                    return node
                following += node.children()
            level = following
        return None

    def rows(self):
        return self.own.get_table_iface().get_n_rows()

    def cell(self, row, column):
        cell = self.own.get_table_iface().get_accessible_at(row, column)
        if cell is None:
            return ""
        # One with a picture has its text below it.
        return cell.get_name() or " ".join(c.name for c in Node(cell).children() if c.name)

    def line(self, row):
        return [self.cell(row, c) for c in range(self.own.get_table_iface().get_n_columns())]


class Vantlow:
    """The program with its own folders; its window, once it has one."""

    def __init__(self, programs, folder):
        self.programs = pathlib.Path(programs)
        self.folder = pathlib.Path(folder)
        self.words = ["--data-dir", str(self.folder / "data"), "--settings", str(self.folder / "settings.ini")]
        (self.folder / "run").mkdir(mode=0o700, exist_ok=True)
        self.set("Window/Welcomed=1")  # the questions of a first start are asked in tests that want them
        self.environment = dict(os.environ, HOME=str(self.folder), XDG_RUNTIME_DIR=str(self.folder / "run"))
        self.environment.pop("VANTLOW_NO_WINDOW", None)

    def set(self, *settings):
        """Writes its settings anew: "Section/Key=Value" each."""
        quiet = ("Torrent/DHT=0", "Torrent/LSD=0", "Torrent/PortMapping=0")  # nothing looks for peers beyond this machine
        text = "".join("[{}]\n{}\n".format(*one.split("/", 1)) for one in (*settings, *quiet))
        (self.folder / "settings.ini").write_text(text)

    def __enter__(self):
        return self

    def __exit__(self, *_error):
        self.kill()

    def path(self, path):
        """A path below the folder, or a whole one, as the program knows it."""
        return str(self.folder / path)

    def run(self, *words, without=(), more=None):
        environment = {k: v for k, v in dict(self.environment, **(more or {})).items() if k not in without}
        return subprocess.run(
            [self.programs / "vantlow", *self.words, *words], env=environment, capture_output=True, text=True, timeout=60
        )

    def jobs(self):
        return json.loads(self.run("--json", "list").stdout)

    def file_of(self, job):
        return pathlib.Path(job["folder"], job["file"])

    def process(self):
        """The number of the resident process, 0 where none runs."""
        found = subprocess.run(
            ["pgrep", "-f", f"vantlow-desktop.*{self.folder.name}.data"], capture_output=True, text=True
        ).stdout.split()
        return int(found[0]) if found else 0

    def kill(self):
        if number := self.process():
            os.kill(number, signal.SIGKILL)
            until(lambda: not self.process(), "the end of the killed process")

    def application(self):
        import gi

        gi.require_version("Atspi", "2.0")
        from gi.repository import Atspi

        desktop = Atspi.get_desktop(0)
        for i in range(desktop.get_child_count()):
            child = desktop.get_child_at_index(i)
            if child is not None and child.get_name() == "vantlow-desktop" and child.get_process_id() == self.process():
                return Node(child)
        return None

    def find(self, role, name):
        """An object of the window by its role and its name."""

        from gi.repository import GLib

        def look():
            try:
                top = self.application()
                return top and top.find(lambda n: n.role == role and n.name.startswith(name))
            except GLib.GError:
                return None  # it was too busy to answer: it is asked again

        return until(look, f'the {role} "{name}"')


class WineVantlow(Vantlow):
    """The Windows build under Wine, in a prefix of its own."""

    wine = pathlib.Path(__file__).resolve().parents[2] / "cmake" / "wine"
    server = "/usr/lib/wine/wineserver64"

    def __init__(self, programs, folder):
        super().__init__(programs, folder)
        self.words = ["--data-dir", self.path("data"), "--settings", self.path("settings.ini")]
        self.environment["WINEPREFIX"] = str(self.folder / "wine")
        self.wine_run("wineboot", "-i")
        # Else Chinese is drawn as boxes: Wine knows no other fonts than the one that a control asks for.
        for font in ("MS Shell Dlg", "MS Shell Dlg 2", "Tahoma", "Segoe UI"):
            self.set_value("Software\\Wine\\Fonts\\Replacements", font, "REG_SZ", "WenQuanYi Micro Hei")

    def __exit__(self, *_error):
        for word in ("-k", "-w"):
            subprocess.run([self.server, word], env=self.environment, check=False)

    def wine_run(self, *words):
        # No pipes: the programs that Wine itself starts would keep them open.
        with tempfile.TemporaryFile("w+") as told:
            quiet = {"stdin": subprocess.DEVNULL, "stdout": told, "stderr": subprocess.DEVNULL}
            ended = subprocess.run([self.wine, *words], env=self.environment, timeout=120, **quiet)
            told.seek(0)
            ended.stdout = told.read()
            return ended

    def path(self, path):
        return "Z:" + super().path(path).replace("/", "\\")

    def file_of(self, job):
        folder = job["folder"].replace("\\", "/").removeprefix("Z:").replace("C:", f"{self.folder}/wine/drive_c")
        return pathlib.Path(folder, job["file"])

    def run(self, *words):
        return self.wine_run(str(self.programs / "vantlow.exe"), *self.words, *words)

    def set_value(self, key, name, kind, value):
        self.wine_run("reg", "add", "HKCU\\" + key, "/v", name, "/t", kind, "/d", value, "/f")

    def set_dots_per_inch(self, number):
        self.set_value("Control Panel\\Desktop", "LogPixels", "REG_DWORD", str(number))
        self.__exit__()


def windows(title, visible=True):
    words = ["xdotool", "search", *(["--onlyvisible"] if visible else []), "--name", title]
    return subprocess.run(words, capture_output=True, text=True).stdout.split()


def to_front(title):
    """Activates the window of this title and returns its number."""
    window = until(lambda: windows(title), f'a window "{title}"')[-1]
    subprocess.run(["xdotool", "windowactivate", "--sync", window], check=False, stderr=subprocess.DEVNULL)
    time.sleep(0.4)  # one that has just come takes no keys yet
    return window


def press(*keys):
    for key in keys:
        subprocess.run(["xdotool", "key", "--clearmodifiers", key], check=True)
        time.sleep(0.15)


def click(accessible, x=None):
    """The left button in the middle of what a screen reader sees, or so many dots from its left edge."""
    room = accessible.get_component_iface().get_extents(0)
    click_at(room.x + (x or room.width // 2), room.y + room.height // 2)


def click_at(x, y):
    subprocess.run(["xdotool", "mousemove", str(x), str(y), "click", "1"], check=True)
    time.sleep(0.3)


def drag(x, y, to_x, to_y):
    """With the left button, in steps: a drag begins with the first ones."""
    subprocess.run(["xdotool", "mousemove", str(x), str(y), "mousedown", "1"], check=True)
    for step in range(1, 11):
        time.sleep(0.1)
        words = (str(x + (to_x - x) * step // 10 + (10 - step)), str(y + (to_y - y) * step // 10))
        subprocess.run(["xdotool", "mousemove", *words], check=True)
    time.sleep(0.3)
    subprocess.run(["xdotool", "mouseup", "1"], check=True)
    time.sleep(0.3)


def picture_of(x, y, width, height):
    """The bytes of a part of the screen."""
    words = ["import", "-window", "root", "-crop", f"{width}x{height}+{x}+{y}", "-depth", "8", "rgb:-"]
    return subprocess.run(words, check=True, capture_output=True).stdout


def write(text):
    subprocess.run(["xdotool", "type", "--delay", "5", text], check=True)
