#!/usr/bin/python3
"""pictures.py PROGRAMS FOLDER: pictures of the window and its dialogs, in three languages, light and dark, at 100 and 200 %."""

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
# The keys of menus and dialogs that have no accelerator: the menu, then the command.
MENUS = {
    "en": {"category": "alt+f c", "export": "alt+f e", "import": "alt+f i", "join": "alt+t j", "size": "alt+t p"},
    "de": {"category": "alt+d k", "export": "alt+d e", "import": "alt+d i", "join": "alt+w z", "size": "alt+w b"},
    "zh-CN": {"category": "alt+f c", "export": "alt+f e", "import": "alt+f i", "join": "alt+t j", "size": "alt+t p"},
}
TABS = ("pieces", "files", "peers", "trackers", "log", "details")
WELCOME = {"en": "^Welcome to Vantlow$", "de": "^Willkommen bei Vantlow$", "zh-CN": "Vantlow$"}


class Server(drive.Slow):
    """Has films to download, and is the tracker that names the one peer of a torrent."""

    peer_port = 0

    def do_GET(self):
        if "missing" in self.path:
            self.send_error(404)
        elif "/announce" in self.path:
            answer = b"d8:intervali900e5:peers6:" + bytes([127, 0, 0, 1]) + self.peer_port.to_bytes(2, "big") + b"e"
            self.send_response(200)
            self.send_header("Content-Length", str(len(answer)))
            self.end_headers()
            self.wfile.write(answer)
        else:
            super().do_GET()


def seed_torrent(programs, folder, server):
    """The document of a torrent, and the session of a peer that gives its files."""
    import libtorrent

    whole = pathlib.Path(folder, "Reise nach 北京")
    (whole / "Bilder").mkdir(parents=True)
    sizes = {"film.mkv": 9 << 20, "Bilder/Übersicht.jpg": 700_000, "Bilder/海.jpg": 1_300_000, "read me.txt": 900}
    for name, size in sizes.items():
        (whole / name).write_bytes(os.urandom(size))
    trackers = f"{server}/announce|{server}/missing/announce?passkey=0123456789abcdef0123456789abcdef"
    words = ["torrent", "make", str(whole), "-q", "--piece-length", "32K", "--tracker", trackers]
    subprocess.run([programs + "/vantlow", *words], check=True)
    [document] = pathlib.Path(folder).glob("*.torrent")
    document = document.rename(document.with_name("journey.torrent"))
    settings = {"enable_dht": False, "enable_lsd": False, "enable_upnp": False, "enable_natpmp": False}
    settings |= {"listen_interfaces": "127.0.0.1:0", "allow_multiple_connections_per_ip": True}
    session = libtorrent.session(settings)
    handle = session.add_torrent({"ti": libtorrent.torrent_info(str(document)), "save_path": str(folder)})
    until(lambda: handle.status().is_seeding, "a peer that has everything")
    Server.peer_port = session.listen_port()
    return str(document), session


def shot(folder, name):
    time.sleep(0.8)
    subprocess.run(["import", "-window", "root", str(folder / f"{name}.png")], check=True)


def dialog(folder, name, *keys):
    if keys:
        to_front("^Vantlow$")
        press(*keys)
    shot(folder, name)
    press("Escape")


def torrent(window, folder, name, document):
    """The choice of its files, and its tabs in the middle of the download."""
    to_front("^Vantlow$")
    press("ctrl+n")
    write(document)
    dialog(folder, f"{name}-7-new-torrent")
    window.run("add", "--limit", "300K", "--dir", str(window.folder / "files"), document)
    time.sleep(6)
    to_front("^Vantlow$")
    press("Home")
    tabs = window.find("page tab list", "")
    for number, tab in enumerate(TABS):
        tabs.own.get_selection_iface().select_child(number)
        shot(folder, f"{name}-8-{tab}")


def take(programs, folder, server, document, language, theme, scale):
    with tempfile.TemporaryDirectory() as own:
        window = drive.Window(programs, own)
        name = language + ("-dark" if theme else "") + ("-200" if scale > 1 else "")
        window.set(f"Settings/Language={language}")
        window.environment["GDK_SCALE"] = str(scale)
        window.environment["GTK_THEME"] = theme
        if not theme:
            del window.environment["GTK_THEME"]
        assert window.run().returncode == 0
        to_front(WELCOME[language])
        shot(folder, f"{name}-0-welcome")
        press("Escape")
        to_front("^Vantlow$")
        names = ["disc image.iso", "slow motion.mp4", "Übersicht der Töne.pdf", "软件.zip"]
        window.run("add", "--dir", own + "/files", *(f"{server}/{n}".replace(" ", "%20") for n in names))
        window.run("add", "--paused", "--dir", own + "/files", f"{server}/later.bin", f"{server}/even-later.bin")
        window.run("add", "--dir", own + "/files", f"{server}/missing.bin")
        shot(folder, f"{name}-1-running")
        dialog(folder, f"{name}-1-exit", "ctrl+q")
        time.sleep(4)
        press("Home", "Down", "Up")
        shot(folder, f"{name}-2-main")
        dialog(folder, f"{name}-3-new", "ctrl+n")
        dialog(folder, f"{name}-4-options", "ctrl+alt+o")
        dialog(folder, f"{name}-5-properties", "alt+Return")
        press("ctrl+a")
        dialog(folder, f"{name}-5-properties-of-all", "alt+Return")
        dialog(folder, f"{name}-5-remove", "Delete")
        for what, keys in MENUS[language].items():
            dialog(folder, f"{name}-5-{what}", *keys.split())
        for i, key in enumerate(("alt+f", "alt+d", "alt+v", "alt+t", "alt+h")):
            if language == "en" and not theme and scale == 1:
                dialog(folder, f"{name}-6-menu{i}", key)
        torrent(window, folder, name, document)
        window.run("quit")


def main(programs, folder):
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
        document, _session = seed_torrent(programs, shared, address)
        for language, theme, scale in LOOKS:
            with display.display(f"{1280 * scale}x{900 * scale}"):
                take(programs, target, address, document, language, theme, scale)
    print(f"{len(list(target.glob('*.png')))} pictures in {os.path.relpath(target)}")


if __name__ == "__main__":
    main(*sys.argv[1:])
