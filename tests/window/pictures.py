#!/usr/bin/python3
"""pictures.py PROGRAMS FOLDER: pictures of the window and its dialogs, in three languages, light and dark, at 100 and 200 %."""

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
from display import press, to_front  # noqa: E402

# Language, theme, scale.
LOOKS = [("en", "", 1), ("en", "Adwaita:dark", 1), ("de", "", 1), ("zh-CN", "", 1), ("en", "", 2)]
WELCOME = {"en": "^Welcome to Vantlow$", "de": "^Willkommen bei Vantlow$", "zh-CN": "Vantlow$"}


class Server(drive.Slow):
    def do_GET(self):
        if "missing" in self.path:
            self.send_error(404)
        else:
            super().do_GET()


def shot(folder, name):
    time.sleep(0.8)
    subprocess.run(["import", "-window", "root", str(folder / f"{name}.png")], check=True)


def dialog(folder, name, *keys):
    to_front("^Vantlow$")
    press(*keys)
    shot(folder, name)
    press("Escape")


def take(programs, folder, server, language, theme, scale):
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
        for what, *keys in (("category", "alt+f", "c"), ("export", "alt+f", "e"), ("join", "alt+t", "j")):
            if language == "en":  # by the mnemonics of its menus
                dialog(folder, f"{name}-5-{what}", *keys)
        for i, key in enumerate(("alt+f", "alt+d", "alt+v", "alt+t", "alt+h")):
            if language == "en" and not theme and scale == 1:
                dialog(folder, f"{name}-6-menu{i}", key)
        window.run("quit")


def main(programs, folder):
    if lacking := display.missing("import"):
        sys.exit("there is no " + ", ".join(lacking))
    display.on_a_session_bus()
    target = pathlib.Path(folder)
    target.mkdir(parents=True, exist_ok=True)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Server)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    for language, theme, scale in LOOKS:
        with display.display(f"{1280 * scale}x{900 * scale}"):
            take(programs, target, f"http://127.0.0.1:{server.server_port}", language, theme, scale)
    print(f"{len(list(target.glob('*.png')))} pictures in {os.path.relpath(target)}")


if __name__ == "__main__":
    main(*sys.argv[1:])
