#!/usr/bin/python3
"""around.py PROGRAMS: what is around the window, on a screen that nobody sees: the first start, the desktop's notices and tray, the
clipboard, drops, the drop zone, the start with the session, a login, questions that are switched off."""

import http.server
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import display  # noqa: E402
import drive  # noqa: E402
from display import press, to_front, until, windows, write  # noqa: E402

NOTICES = """<node><interface name="org.freedesktop.Notifications">
<method name="GetCapabilities"><arg type="as" direction="out"/></method>
<method name="GetServerInformation"><arg type="s" direction="out"/><arg type="s" direction="out"/>
<arg type="s" direction="out"/><arg type="s" direction="out"/></method>
<method name="CloseNotification"><arg type="u" direction="in"/></method>
<method name="Notify"><arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
<arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/>
<arg type="a{sv}" direction="in"/><arg type="i" direction="in"/><arg type="u" direction="out"/></method>
<signal name="ActionInvoked"><arg type="u"/><arg type="s"/></signal>
<signal name="NotificationClosed"><arg type="u"/><arg type="u"/></signal></interface></node>"""


class NoticeServer:
    """The desktop's side of notices (Desktop Notifications Specification 1.2)."""

    def __init__(self):
        from gi.repository import Gio, GLib

        self.seen, self.glib, self.connection = [], GLib, None
        interface = Gio.DBusNodeInfo.new_for_xml(NOTICES).interfaces[0]

        def own(connection, _name):
            self.connection = connection
            connection.register_object("/org/freedesktop/Notifications", interface, self.answer, None, None)

        # A loop of its own: the standard one is that of the accessibility interface, whose answers it would take away.
        context = GLib.MainContext.new()

        def serve():
            context.push_thread_default()
            Gio.bus_own_name(Gio.BusType.SESSION, "org.freedesktop.Notifications", 0, own, None, None)
            GLib.MainLoop.new(context, False).run()

        threading.Thread(target=serve, daemon=True).start()

    def answer(self, _connection, _sender, _path, _interface, method, words, call):
        answers = {"GetCapabilities": ("(as)", (["actions", "body"],)), "CloseNotification": None,
                   "GetServerInformation": ("(ssss)", ("test", "test", "1", "1.2")), "Notify": ("(u)", (len(self.seen) + 1,))}
        if method == "Notify":
            self.seen.append(words.unpack())
        call.return_value(answers[method] and self.glib.Variant(*answers[method]))

    def press(self, number):
        """The first button of a notice."""
        action = self.seen[number][5][0]
        self.connection.emit_signal(None, "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                                    "ActionInvoked", self.glib.Variant("(us)", (number + 1, action)))


class Around(drive.Window):
    """What the list shows is looked at elsewhere: here the command line says what became of each gesture, and what GTK complains
    of ends the program. (Elsewhere it must not: GTK itself complains of tabs that go while a screen reader looks on.)"""

    def __init__(self, *where):
        super().__init__(*where)
        self.environment["G_DEBUG"] = "fatal-criticals"

    def start(self, *words):
        assert self.run(*words).returncode == 0
        to_front("^Vantlow$")

    def wait_for_rows(self, count):
        until(lambda: len(self.jobs()) == count, f"{count} downloads")

    def put_into_clipboard(self, text):
        subprocess.run(["xclip", "-selection", "clipboard"], input=text, text=True, check=True)

    def started_with_session(self):
        """The command by which the desktop starts the program; empty where it does not."""
        starts = self.folder / ".config/autostart/vantlow.desktop"
        return starts.read_text() if starts.exists() else ""


# A window that offers a text in one form (a target's name, the text) to whoever it is dragged to (GTK 3).
DRAG_SOURCE = """
import sys, gi
gi.require_version("Gdk", "3.0")
gi.require_version("Gtk", "3.0")
from gi.repository import Gdk, Gtk
window = Gtk.Window(title="Source")
window.set_default_size(150, 100)
button = Gtk.EventBox()
button.add(Gtk.Label(label="link"))
button.drag_source_set(Gdk.ModifierType.BUTTON1_MASK, [Gtk.TargetEntry.new(sys.argv[1], 0, 0)], Gdk.DragAction.COPY)
button.connect("drag-data-get", lambda _b, _c, data, _i, _t: data.set(data.get_target(), 8, sys.argv[2].encode()))
window.add(button)
window.show_all()
window.move(0, 0)
Gtk.main()
"""


def mouse(*words):
    subprocess.run(["xdotool", *words], check=True)
    time.sleep(0.2)


def drag(target, text, window, x, y):
    """From a program of its own, which offers the text in this form, to a point of a window."""
    with subprocess.Popen([sys.executable, "-c", DRAG_SOURCE, target, text]) as source:
        try:
            to_front("^Source$")
            mouse("mousemove", "60", "60", "mousedown", "1")
            for step in range(5):
                mouse("mousemove", str(60 + 8 * step), "60")
            for step in range(5):
                mouse("mousemove", "--window", window, str(x + step), str(y + step))
            mouse("mouseup", "1")
            to_front("^New download$")
        finally:
            source.terminate()


def is_seen_whole(title):
    """The window's number where all of it is on the screen, but for the edges that the window manager gives it."""
    edge = 24
    for window in windows(title):
        words = subprocess.run(["xdotool", "getwindowgeometry", "--shell", window], capture_output=True, text=True).stdout
        at = dict(line.split("=") for line in words.splitlines() if "=" in line)
        x, y, width, height = (int(at.get(name, -1)) for name in ("X", "Y", "WIDTH", "HEIGHT"))
        if 0 <= x <= 1280 - width + edge and 0 <= y <= 900 - height + edge and width > 0:
            return window
    return None


def other_screens(window, _server):
    """The window and a dialog are on the screen, also where they were left on one that is gone, or that was larger."""
    for place in ("4000,3000,900,600", "-2000,100,900,600", "300,200,2400,1500"):
        window.set("Window/Welcomed=1", f"Window/Layout=1;window={place};pane.zone=1:0;choice.zone-place=4000x3000")
        window.start()
        until(lambda: is_seen_whole("^Vantlow$") and is_seen_whole("^Drop zone$"), f"the window and the zone, from {place}")
        press("ctrl+n")
        until(lambda: is_seen_whole("^New download$"), "a dialog")
        press("Escape")
        window.end()


def drops(window, server):
    """Links from other programs, in each form that they have there: onto the list, a category and the drop zone."""
    # The zone stood on a screen that is gone: it comes to one that is there.
    window.set("Window/Welcomed=1", "Window/Layout=1;pane.zone=1:0;choice.zone-place=4000x3000")
    window.start()
    zone = until(lambda: is_seen_whole("^Drop zone$"), "the whole zone on the screen")
    frame = windows("^Vantlow$")[-1]
    row = window.find("tree table", "Categories").own.get_table_iface().get_accessible_at(1, 0)
    room = row.get_component_iface().get_extents(1)
    page = f'<p>one <a href="{server}/of-a-page.bin">link</a></p>'
    for count, (target, text, onto, x, y) in enumerate((
            ("text/uri-list", f"{server}/of-a-list.bin\r\n", frame, 600, 300),
            ("text/html", page, frame, room.x + 40, room.y + room.height // 2),
            ("UTF8_STRING", f"see {server}/of-a-text.bin.", zone, 30, 20)), 1):
        drag(target, text, onto, x, y)
        press("alt+d")
        window.wait_for_rows(count)
    categories = {job["address"].rsplit("/", 1)[1]: job["category"] for job in window.jobs()}
    assert categories["of-a-page.bin"] == "Completed", categories


# A window that writes what is dropped on it into a file (GTK 3).
DROP_TARGET = """
import pathlib, sys, gi
gi.require_version("Gdk", "3.0")
gi.require_version("Gtk", "3.0")
from gi.repository import Gdk, Gtk
window = Gtk.Window(title="Target")
window.set_default_size(150, 100)
window.drag_dest_set(Gtk.DestDefaults.ALL, None, Gdk.DragAction.COPY)
window.drag_dest_add_text_targets()
window.connect("drag-data-received", lambda _w, _c, _x, _y, data, _i, _t: pathlib.Path(sys.argv[1]).write_text(data.get_text()))
window.show_all()
window.move(0, 0)
Gtk.main()
"""


def dragged_rows(window, server):
    """Several rows at once: onto a category, and to another program, which gets their addresses."""
    window.start()
    window.run("add", "--paused", "--dir", str(window.folder), *(f"{server}/{name}.bin" for name in "abc"))
    frame = to_front("^Vantlow$")
    mouse("windowsize", "--sync", frame, "900", "700", "windowmove", "--sync", frame, "340", "20")
    until(lambda: len(window.names()) == 3, "the rows")
    time.sleep(1)
    window.click_row(window.LIST, 0)
    press("shift+Down")
    x, y = window.place_of_row(0)
    row = window.find("tree table", "Categories").own.get_table_iface().get_accessible_at(1, 0)
    room = row.get_component_iface().get_extents(0)
    display.drag(x, y, room.x + 40, room.y + room.height // 2)
    until(lambda: sorted(job["category"] for job in window.jobs()) == ["Completed", "Completed", "Downloading"], "two in the category")
    dropped = window.folder / "dropped"
    with subprocess.Popen([sys.executable, "-c", DROP_TARGET, str(dropped)]) as target:
        try:
            to_front("^Target$")
            to_front("^Vantlow$")
            press("ctrl+a")
            display.drag(x, y, 70, 60)
            until(dropped.exists, "what was dropped")
        finally:
            target.terminate()
    assert sorted(dropped.read_text().split()) == [f"{server}/{name}.bin" for name in "abc"], dropped.read_text()


class Tray:
    """A tray of the desktop (System Tray Protocol 0.3): takes one sign in, into the corner of the screen."""

    def __init__(self):
        import ctypes

        self.x = ctypes.CDLL("libX11.so.6")
        number = ctypes.c_ulong
        self.x.XOpenDisplay.restype = ctypes.c_void_p
        self.x.XCreateSimpleWindow.restype = self.x.XDefaultRootWindow.restype = self.x.XInternAtom.restype = number
        own = ctypes.c_void_p(self.x.XOpenDisplay(None))
        root = number(self.x.XDefaultRootWindow(own))
        window = number(self.x.XCreateSimpleWindow(own, root, 0, 0, 24, 24, 0, 0, 0))
        attributes = (ctypes.c_long * 14)()
        attributes[11] = 1  # no window manager's (override_redirect)
        self.x.XChangeWindowAttributes(own, window, number(1 << 9), ctypes.byref(attributes))
        self.x.XMapWindow(own, window)
        self.x.XSetSelectionOwner(own, number(self.x.XInternAtom(own, b"_NET_SYSTEM_TRAY_S0", 0)), window, number(0))
        self.x.XFlush(own)
        self.docked = threading.Event()

        def serve():
            event = (ctypes.c_long * 24)()
            client_message, request_dock = 33, 0
            while not self.docked.is_set():
                self.x.XNextEvent(own, ctypes.byref(event))
                if event[0] & 0xFFFFFFFF != client_message or event[8] != request_dock:
                    continue
                sign = number(event[9])
                self.x.XReparentWindow(own, sign, window, 0, 0)
                self.x.XResizeWindow(own, sign, 24, 24)
                self.x.XMapRaised(own, sign)
                xembed = self.x.XInternAtom(own, b"_XEMBED", 0)
                embedded = (ctypes.c_long * 24)(client_message, 0, 0, 0, sign.value, xembed, 32, 0, 0, 0, window.value)
                self.x.XSendEvent(own, sign, 0, 0, ctypes.byref(embedded))
                self.x.XFlush(own)
                self.docked.set()

        threading.Thread(target=serve, daemon=True).start()


def tray(window, _server):
    """A window that is closed stays in the desktop's tray, and a click there brings it back."""
    desktop = Tray()
    window.set("Window/Welcomed=1", "Window/CloseToTray=1")
    window.start()
    assert desktop.docked.wait(display.WAIT), "no sign in the tray"
    press("alt+F4")
    until(lambda: not windows("^Vantlow$"), "the window in the tray")
    assert window.process()
    display.click_at(12, 12)
    to_front("^Vantlow$")


def close(title):
    to_front(title)
    press("Escape")
    until(lambda: not windows(title), f"the end of {title}")


def first_start(window, server):
    window.set("Settings/Language=en")
    assert window.run().returncode == 0
    to_front("^Welcome to Vantlow$")
    target = window.folder / "elsewhere"
    press("alt+d", "ctrl+a")
    write(window.path("elsewhere"))
    press("alt+s", "Return")
    until(lambda: not windows("^Welcome to Vantlow$"), "the end of the first questions")
    assert window.run(f"{server}/placed.bin").returncode == 0
    until(lambda: (target / "placed.bin").exists(), "a file in the chosen folder")
    assert "--minimized" in window.started_with_session()
    window.run("settings", "set", "Window/StartWithSession", "0")
    assert not window.started_with_session()
    window.end()
    # So does the desktop start it: the window is there and nobody sees it, and nothing is asked again.
    assert window.run("--minimized").returncode == 0
    until(lambda: windows("^Vantlow$", visible=False), "the hidden window")
    assert not windows("^Vantlow$") and not windows("^Welcome")
    assert window.run().returncode == 0
    until(lambda: windows("^Vantlow$"), "the window after a second start")
    window.end()
    # A command to quit does not wait for an answer.
    window.set("Settings/Language=en")
    assert window.run().returncode == 0
    to_front("^Welcome to Vantlow$")
    assert window.run("quit").returncode == 0
    until(lambda: not window.process(), "the end of the process")


def notices(window, server, desktop):
    opened = window.folder / "opened"
    stub = window.folder / "xdg-open"
    stub.write_text(f'#!/bin/sh\necho "$1" >>"{opened}"\n')
    stub.chmod(0o755)
    window.environment["PATH"] = f"{window.folder}:{os.environ['PATH']}"
    window.start()
    subprocess.run(["xdotool", "windowminimize", to_front("^Vantlow$")], check=True)
    window.run("add", "--dir", str(window.folder), f"{server}/told.bin")
    until(lambda: desktop.seen, "a notice")
    assert desktop.seen[0][3:5] == ("1 download finished", "told.bin"), desktop.seen
    desktop.press(0)
    until(lambda: opened.exists(), "the file's being opened")
    assert opened.read_text().strip() == str(window.folder / "told.bin")
    window.run("settings", "set", "Window/Notify", "0")
    window.run("add", "--dir", str(window.folder), f"{server}/silent.bin")
    until(lambda: (window.folder / "silent.bin").exists(), "another file")


def clipboard(window, server):
    window.set("Window/Welcomed=1", "Window/WatchClipboard=1", "Window/ClipboardEndings=.bin")
    window.start()
    window.put_into_clipboard(f"look at {server}/pasted.bin here")
    to_front("^Vantlow$")
    press("ctrl+shift+v")
    to_front("^New download$")
    press("alt+d")
    window.wait_for_rows(1)
    # Watched while another program is used; texts without links, links of other endings and the same ones again bring nothing.
    subprocess.run(["xdotool", "windowminimize", to_front("^Vantlow$")], check=True)
    until(lambda: not windows("^Vantlow$"), "a window that nobody looks at")
    time.sleep(0.5)  # until it knows that it is not in front
    for text in ("no link in here", f"{server}/of-another-ending.html"):
        window.put_into_clipboard(text)
        time.sleep(0.5)
    window.put_into_clipboard(f"{server}/watched.bin")
    to_front("^New download$")
    press("alt+d")
    window.wait_for_rows(2)
    until(lambda: all(job["state"] == "finished" for job in window.jobs()), "two finished downloads")


class Locked(drive.Slow):
    """Gives its file to one user only."""

    def do_GET(self):
        if self.path.startswith("/locked") and self.headers.get("Authorization") != "Basic YW5uYTpyaWdodA==":
            self.send_response(401)
            self.send_header("WWW-Authenticate", 'Basic realm="Archive"')
            self.send_header("Content-Length", "0")
            self.end_headers()
        else:
            super().do_GET()


def login(window, server):
    """A login that was refused is mended by its password alone."""
    window.start()
    window.run("add", "--user", "anna", "--password", "wrong", "--dir", window.path(""), f"{server}/locked.bin")
    to_front("^Question$")
    write("right")
    press("alt+l")
    until(lambda: (window.folder / "locked.bin").exists(), "the file behind the login")


def ask_for_removal(window, is_asked):
    press("ctrl+a", "Delete")
    return windows("^Remove$") if is_asked else not window.jobs()


def confirmations(window, server):
    window.start()
    window.run("add", "--paused", "--dir", window.path(""), f"{server}/one.bin", f"{server}/two.bin")
    window.wait_for_rows(2)
    for is_asked in (True, False):
        to_front("^Vantlow$")
        # The list shows them a moment after they are there.
        until(lambda asked=is_asked: ask_for_removal(window, asked), "the removal")
        if is_asked:
            to_front("^Remove$")
            press("alt+d", "alt+r")  # the box, then the button
        window.wait_for_rows(0)
        to_front("^Vantlow$")
        press("ctrl+z")
        window.wait_for_rows(2)
    assert "0" in window.run("settings", "get", "Confirmation/Remove").stdout
    # The end while something runs is asked about.
    window.run("add", "--connections", "1", "--dir", window.path(""), f"{server}/slow/three.bin")
    until(lambda: any(job["state"] == "running" for job in window.jobs()), "a running download")
    to_front("^Vantlow$")
    press("ctrl+q")
    close("^Exit$")
    assert window.process()


def lost_display(window, server):
    """The display breaks away: everything is saved, and what ran goes on at the next start."""
    before = os.environ["DISPLAY"]
    with display.display():
        window.environment |= {"DISPLAY": os.environ["DISPLAY"], "NO_AT_BRIDGE": "1"}
        window.start()
        window.run("add", "--connections", "1", "--dir", window.path(""), f"{server}/slow.bin")
        until(lambda: window.jobs()[0]["state"] == "running", "a running download")
    os.environ["DISPLAY"] = before
    until(lambda: not window.process(), "the end of the process")
    assert "The display is gone" in (window.folder / "data/resident.log").read_text()
    journal = window.folder / "data/.database.journal"
    assert not journal.exists() or journal.stat().st_size == 0, "changes that were not saved"
    assert window.jobs()[0]["state"] == "waiting"


def main(programs):
    lacking = display.missing("xclip")
    if not os.access(f"{programs}/vantlow-desktop", os.X_OK):
        lacking.append("vantlow-desktop")
    if lacking:
        print("skipped: there is no " + ", ".join(lacking))
        return drive.SKIPPED
    display.on_a_session_bus()
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Locked)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    desktop = NoticeServer()
    with display.display():  # the accessibility service ends with its first screen
        for scenario in (first_start, lambda *both: notices(*both, desktop), clipboard, other_screens, drops, dragged_rows, tray, login,
                         confirmations, lost_display):
            with tempfile.TemporaryDirectory() as folder:
                window = Around(programs, folder)
                try:
                    scenario(window, f"http://127.0.0.1:{server.server_port}")
                finally:
                    window.kill()
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
