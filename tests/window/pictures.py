#!/usr/bin/python3
"""pictures.py PROGRAMS FOLDER [--windows]: pictures of the window and its dialogs, in three languages, light and dark, at
100 and 200 %; with --windows of the Windows build, under Wine."""

import http.server
import importlib.util
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
from display import press, to_front, until, write  # noqa: E402

# Language, theme, scale.
DARK = "Adwaita:dark"
LOOKS = [("en", "", 1), ("en", DARK, 1), ("de", "", 1), ("zh-CN", "", 1), ("en", "", 2), ("de", "", 2), ("zh-CN", DARK, 2)]
WINDOWS_LOOKS = [("en", "", 1), ("de", "", 1), ("zh-CN", "", 1), ("en", "", 2)]
# The keys of menus and dialogs that have no accelerator: the menu, then the command.
MENUS = {
    "en": {"category": "alt+f c", "export": "alt+f e", "import": "alt+f i", "join": "alt+t j", "size": "alt+t p",
           "columns": "alt+v o", "about": "alt+h a"},
    "de": {"category": "alt+d k", "export": "alt+d x", "import": "alt+d i", "join": "alt+w z", "size": "alt+w b",
           "columns": "alt+a p", "about": "alt+h b"},
    "zh-CN": {"category": "alt+f c", "export": "alt+f e", "import": "alt+f i", "join": "alt+t j", "size": "alt+t p",
              "columns": "alt+v o", "about": "alt+h a"},
}
TABS = ("pieces", "files", "peers", "trackers", "log", "details")
WELCOME = {"en": "^Welcome to Vantlow$", "de": "^Willkommen bei Vantlow$", "zh-CN": "Vantlow$"}


class Server(drive.Slow):
    """Has films to download, and is the tracker that names the one peer of a torrent."""

    peer_port = 0

    def do_GET(self):
        if "missing" in self.path:
            self.send_error(404)
        elif "locked" in self.path:
            self.send_response(401)
            self.send_header("WWW-Authenticate", 'Basic realm="Archive"')
            self.send_header("Content-Length", "0")
            self.end_headers()
        elif "/announce" in self.path:
            answer = b"d8:intervali900e5:peers6:" + bytes([127, 0, 0, 1]) + self.peer_port.to_bytes(2, "big") + b"e"
            self.send_response(200)
            self.send_header("Content-Length", str(len(answer)))
            self.end_headers()
            self.wfile.write(answer)
        else:
            super().do_GET()


def seed_torrent(folder, server):
    """The document of a torrent, and the session of a peer that gives its files."""
    import libtorrent

    whole = pathlib.Path(folder, "Reise nach 北京")
    (whole / "Bilder").mkdir(parents=True)
    sizes = {"film.mkv": 9 << 20, "Bilder/Übersicht.jpg": 700_000, "Bilder/海.jpg": 1_300_000, "read me.txt": 900}
    for name, size in sizes.items():
        (whole / name).write_bytes(os.urandom(size))
    trackers = [f"{server}/announce", f"{server}/missing/announce?passkey=0123456789abcdef0123456789abcdef"]
    document = pathlib.Path(folder, "journey.torrent")
    storage = libtorrent.file_storage()
    libtorrent.add_files(storage, str(whole))
    made = libtorrent.create_torrent(storage, 32 << 10, libtorrent.create_torrent.v1_only)
    for tier, tracker in enumerate(trackers):
        made.add_tracker(tracker, tier)
    libtorrent.set_piece_hashes(made, str(folder))
    document.write_bytes(libtorrent.bencode(made.generate()))
    settings = {"enable_dht": False, "enable_lsd": False, "enable_upnp": False, "enable_natpmp": False}
    settings |= {"listen_interfaces": "127.0.0.1:0", "allow_multiple_connections_per_ip": True}
    session = libtorrent.session(settings)
    handle = session.add_torrent({"ti": libtorrent.torrent_info(str(document)), "save_path": str(folder)})
    until(lambda: handle.status().is_seeding, "a peer that has everything")
    Server.peer_port = session.listen_port()
    return str(document), session


def shot(folder, name):
    subprocess.run(["xdotool", "mousemove", "1", "1"], check=True)  # else a tip hides something
    time.sleep(1.5)
    subprocess.run(["import", "-window", "root", str(folder / f"{name}.png")], check=True)


def active():
    return subprocess.run(["xdotool", "getactivewindow"], capture_output=True, text=True).stdout.strip()


def open_dialog(*keys):
    frame = to_front(drive.FRAME)
    press(*keys)
    until(lambda: active() not in ("", frame), f"the dialog behind {keys}")


def dialog(folder, name, *keys):
    open_dialog(*keys)
    shot(folder, name)
    press("Escape")


def options(folder, name, pages):
    """The pages of the options, one by one."""
    open_dialog("ctrl+alt+o")
    shot(folder, f"{name}-4-options")
    for page in range(1, pages):
        press("Down")
        shot(folder, f"{name}-4-options-{page:02}")
    press("Escape")


def metalink(server):
    """A list of three files (RFC 5854)."""
    files = "".join(
        f'<file name="{name}"><size>{size}</size><url>{server}/{number}.bin</url></file>'
        for number, (name, size) in enumerate({"disc 1.iso": 734003200, "Übersicht der Töne.pdf": 1536000, "软件.zip": 48300}.items())
    )
    return f'<?xml version="1.0" encoding="UTF-8"?><metalink xmlns="urn:ietf:params:xml:ns:metalink">{files}</metalink>'


def questions(window, folder, name, server):
    """A login, and which files of a list are meant."""
    frame = to_front(drive.FRAME)
    (window.folder / "discs.meta4").write_text(metalink(server), encoding="utf-8")
    for title, words in (("question", [f"{server}/locked.bin"]), ("which-files", ["--select", "ask", window.path("discs.meta4")])):
        to_front(drive.FRAME)
        window.run("add", "--dir", window.path("files"), *words)
        until(lambda: active() not in ("", frame), "the question")
        shot(folder, f"{name}-9-{title}")
        press("Escape")
        until(lambda: active() == frame, "the end of the question")


def known(folder, name, address):
    """Addresses of which one is in the list."""
    open_dialog("ctrl+n")
    write(address)
    press("Return")
    write("http://127.0.0.1/mirror.iso")
    time.sleep(2)
    shot(folder, f"{name}-3-known")
    press("Escape")


def menus(folder, name):
    """The menus, and the drop zone that one of them shows."""
    to_front(drive.FRAME)
    for i, key in enumerate(("alt+f", "alt+d", "alt+v", "alt+t", "alt+h")):
        press(key)
        shot(folder, f"{name}-6-menu{i}")
        press("Escape", "Escape")  # out of the bar, too
    press("alt+v", "r")
    shot(folder, f"{name}-6-zone")
    to_front(drive.FRAME)
    press("alt+v", "r")


def torrent(window, folder, name, document):
    """The choice of its files, and its tabs in the middle of the download."""
    open_dialog("ctrl+n")
    write(window.path(document))
    time.sleep(2)  # a machine with much to do is behind with the letters
    shot(folder, f"{name}-7-new-torrent")
    press("Escape")
    window.run("add", "--limit", "300K", "--dir", window.path("files"), window.path(document))
    time.sleep(6)
    to_front("^Vantlow$")
    window.select_first()
    for number, tab in enumerate(TABS):
        window.choose_tab(number)
        shot(folder, f"{name}-8-{tab}")


class LinuxWindow(drive.Window):
    prefix = ""
    pages = 11  # of the options

    def look(self, theme, scale):
        self.environment |= {"GDK_SCALE": str(scale), "GTK_THEME": theme}
        if not theme:
            del self.environment["GTK_THEME"]

    def unfold(self):
        press("alt+m")

    def select_first(self):
        press("Home")

    def choose_tab(self, number):
        self.find("page tab list", "").own.select_child(number)


class WindowsWindow(display.WineVantlow):
    prefix = "windows-"
    pages = 12  # one more: dial-up

    def look(self, _theme, scale):
        self.scale = scale
        self.set_dots_per_inch(96 * scale)

    # Places within the main window, below its title, as its picture shows them.
    def click(self, *place):
        words = ("--window", to_front(drive.FRAME), *(str(n * self.scale) for n in place))
        subprocess.run(["xdotool", "mousemove", *words, "click", "1"], check=True)

    def unfold(self):
        press("alt+m")

    def select_first(self):
        self.click(400, 105)

    def choose_tab(self, number):
        if number == 0:
            self.click(284, 492)
        else:
            press("Right")


def take(kind, programs, folder, server, document, language, theme, scale):
    with tempfile.TemporaryDirectory() as own, kind(programs, own) as window:
        name = kind.prefix + language + ("-dark" if theme else "") + ("-200" if scale > 1 else "")
        window.set(f"Settings/Language={language}")
        window.look(theme, scale)
        assert window.run().returncode == 0
        to_front(WELCOME[language])
        shot(folder, f"{name}-0-welcome")
        press("Escape")
        to_front("^Vantlow$")
        names = ["disc image.iso", "slow motion.mp4", "Übersicht der Töne.pdf", "软件.zip"]
        files = window.path("files")
        window.run("add", "--dir", files, *(f"{server}/{n}".replace(" ", "%20") for n in names))
        window.run("add", "--paused", "--dir", files, f"{server}/later.bin", f"{server}/even-later.bin")
        window.run("add", "--dir", files, f"{server}/missing.bin")
        # What still runs when the end is asked about.
        window.run("add", "--connections", "1", "--dir", files, f"{server}/slow-end.bin")
        shot(folder, f"{name}-1-running")
        dialog(folder, f"{name}-1-exit", "ctrl+q")
        time.sleep(4)
        press("Home", "Down", "Up")
        shot(folder, f"{name}-2-main")
        dialog(folder, f"{name}-3-new", "ctrl+n")
        open_dialog("ctrl+n")
        write(f"{server}/holiday%20film.mkv")
        time.sleep(2)  # the server answers
        shot(folder, f"{name}-3-answered")
        press("Escape")
        known(folder, name, f"{server}/later.bin")
        open_dialog("ctrl+n")
        window.unfold()
        shot(folder, f"{name}-3-new-more")
        press("Escape")
        options(folder, name, window.pages)
        dialog(folder, f"{name}-5-properties", "alt+Return")
        press("Home")
        dialog(folder, f"{name}-5-rename", "F2")
        to_front(drive.FRAME)
        press("ctrl+a")
        dialog(folder, f"{name}-5-properties-of-all", "alt+Return")
        dialog(folder, f"{name}-5-remove", "Delete")
        for what, keys in MENUS[language].items():
            dialog(folder, f"{name}-5-{what}", *keys.split())
        if language == "en" and not theme and scale == 1:
            menus(folder, name)
        torrent(window, folder, name, document)
        questions(window, folder, name, server)
        window.run("quit")
        for line in (window.folder / "data/resident.log").read_text(errors="replace").splitlines():
            if "gtk" in line.lower():
                print(f"{name}: {line}")


def main(programs, folder, system=""):
    kind, looks = (WindowsWindow, WINDOWS_LOOKS) if system == "--windows" else (LinuxWindow, LOOKS)
    lacking = display.missing("import") + [name for name in ("libtorrent",) if importlib.util.find_spec(name) is None]
    if lacking:
        sys.exit("there is no " + ", ".join(lacking))
    display.on_a_session_bus()
    target = pathlib.Path(folder)
    target.mkdir(parents=True, exist_ok=True)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Server)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    address = f"http://127.0.0.1:{server.server_port}"
    with tempfile.TemporaryDirectory() as shared:
        document, _session = seed_torrent(shared, address)
        for language, theme, scale in looks:
            with display.display(f"{1280 * scale}x{900 * scale}"):
                take(kind, programs, target, address, document, language, theme, scale)
    print(f"{len(list(target.glob('*.png')))} pictures in {os.path.relpath(target)}")


if __name__ == "__main__":
    main(*sys.argv[1:])
