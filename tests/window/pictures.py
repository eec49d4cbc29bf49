#!/usr/bin/python3
"""pictures.py PROGRAMS FOLDER: pictures of the window and its dialogs, in three languages, light and dark."""

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

LOOKS = [("en", ""), ("en", "Adwaita:dark"), ("de", ""), ("zh-CN", "")]


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


def take(programs, folder, server, language, theme):
    with tempfile.TemporaryDirectory() as own:
        window = drive.Window(programs, own)
        pathlib.Path(own, "settings.ini").write_text(f"[Settings]\nLanguage={language}\n")
        window.environment["GTK_THEME"] = theme
        if not theme:
            del window.environment["GTK_THEME"]
        assert window.run().returncode == 0
        to_front("^Vantlow$")
        names = ["disc image.iso", "film.mp4", "Übersicht der Töne.pdf", "软件.zip"]
        window.run("add", "--dir", own + "/files", *(f"{server}/{n}".replace(" ", "%20") for n in names))
        window.run("add", "--paused", "--dir", own + "/files", f"{server}/later.bin", f"{server}/even-later.bin")
        window.run("add", "--dir", own + "/files", f"{server}/missing.bin")
        name = language + ("-dark" if theme else "")
        shot(folder, f"{name}-1-running")
        time.sleep(4)
        press("Home", "Down", "Up")
        shot(folder, f"{name}-2-main")
        dialog(folder, f"{name}-3-new", "ctrl+n")
        dialog(folder, f"{name}-4-options", "ctrl+alt+o")
        dialog(folder, f"{name}-5-properties", "alt+Return")
        for i, key in enumerate(("alt+f", "alt+d", "alt+v", "alt+t", "alt+h")):
            if language == "en" and not theme:
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
    with display.display():
        for language, theme in LOOKS:
            take(programs, target, f"http://127.0.0.1:{server.server_port}", language, theme)
    print(f"{len(list(target.glob('*.png')))} pictures in {os.path.relpath(target)}")


if __name__ == "__main__":
    main(*sys.argv[1:])
