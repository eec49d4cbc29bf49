#!/usr/bin/env python3
"""drive.py FOLDER [BROWSER]: real downloads in Chromium and Firefox with the extension, and the program of FOLDER.

Ends with 77 where no browser is there, or what drives one."""

import collections
import contextlib
import http.server
import json
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import threading

try:
    from browsers import WAIT, Chromium, Firefox, until
except ImportError as error:
    print(f"not tried: {error}")
    sys.exit(77)

EXTENSION = pathlib.Path(__file__).resolve().parents[1] / "extension"
CONTENT = b"content of a file\n" * 5000
PAGE = """<!doctype html><title>Links</title><a id="plain" href="/plain.bin">plain</a> <a id="moved" href="/moved">moved</a>
<a id="secret" href="/secret">secret</a> <a id="named" href="/named">named</a> <a id="small" href="/small.bin">small</a>
<a id="attribute" download="own name.bin" href="/attribute">attribute</a> <a id="left" href="/left.keep">left</a>
<a id="passed" href="/passed.bin">passed</a> <a id="absent" href="/absent.bin">absent</a>
<a id="text" download="own text.txt" href="/text">text</a> <a id="blob" download="made.bin">blob</a> <form id="form" method="post" action="/posted"></form>
<form id="sent" method="post" action="/asked" accept-charset="utf-8"><input name="name" value="&auml; b"><input name="x" value="1"></form> <video src="/film.mp4"></video>
<script>document.getElementById('blob').href = URL.createObjectURL(new Blob([new Uint8Array(300000)]));</script>"""
MANY = 50


class Site(http.server.BaseHTTPRequestHandler):
    """What the page's links lead to; remembers every request."""

    protocol_version = "HTTP/1.1"
    asked = collections.defaultdict(list)

    def answer(self, status, content=b"", kind="application/octet-stream", **headers):
        self.send_response(status)
        for name, value in {"Content-Type": kind, "Content-Length": str(len(content)), **headers}.items():
            self.send_header(name.replace("_", "-"), value)
        self.end_headers()
        with contextlib.suppress(ConnectionError):
            self.wfile.write(content)

    def handle(self):
        with contextlib.suppress(ConnectionError):  # a browser has seen enough
            super().handle()

    def do_GET(self):
        self.asked[self.path].append({name.lower(): value for name, value in self.headers.items()} | {"method": self.command})
        if self.path == "/page":
            cookie = f"key=right{len(self.asked['/page'])}; HttpOnly; SameSite=Strict; Path=/"
            known = {} if "Cookie" in self.headers else {"Set_Cookie": cookie}
            return self.answer(200, PAGE.encode(), "text/html", **known)
        if self.path == "/moved":
            return self.answer(302, Location=self.other + "/target.bin")
        if self.path == "/secret" and "key=right" not in self.headers.get("Cookie", ""):
            return self.answer(403, b"no", "text/html")
        if self.path == "/text":
            return self.answer(200, CONTENT, "text/plain")
        if self.path in ("/named", "/posted", "/asked"):
            return self.answer(200, CONTENT, Content_Disposition=f'attachment; filename="{self.path[1:]} \u00fcber.zip"'.encode().decode("latin-1"))
        if self.path == "/small.bin":
            return self.answer(200, b"few")
        return self.answer(200, CONTENT, "video/mp4" if self.path.endswith("mp4") else "application/octet-stream")

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0))).decode()
        self.do_GET()
        self.asked[self.path][-1]["body"] = body

    def log_message(self, *_):
        pass


@contextlib.contextmanager
def site():
    servers = [http.server.ThreadingHTTPServer(("127.0.0.1", 0), Site) for _ in range(2)]
    for server in servers:
        threading.Thread(target=server.serve_forever).start()
    here, Site.other = (f"http://{name}:{s.server_port}" for name, s in zip(("127.0.0.1", "localhost"), servers))
    try:
        yield here
    finally:
        for server in servers:
            server.shutdown()
            server.server_close()


class Trial:
    """One browser with a home, a site and the program."""

    def __init__(self, browser, home, here, run, serve):
        self.browser, self.here, self.run, self.serve = browser, here, run, serve
        self.fetched, self.saved = home / "fetched", home / "saved"
        self.settings(leastSize=100)  # the extension is awake before the page comes
        self.page = browser.open_page(here + "/page")

    def click(self, name):
        self.browser.run(self.page, f"document.getElementById('{name}').click()")

    def whole(self, folder, name):
        """The file is there, whole; and nowhere else."""
        path = folder / name
        try:
            until(lambda: path.is_file() and path.stat().st_size > 0 and not list(folder.glob(name + ".*")), path)
        except AssertionError as error:
            there = {kind.name: sorted(p.name for p in kind.iterdir()) for kind in (self.fetched, self.saved)}
            raise AssertionError(f"{error}; {there}; asked: {list(Site.asked)}; {self.run('list').stdout.decode()}") from None
        other = self.saved if folder == self.fetched else self.fetched
        until(lambda: not list(other.glob(name + "*")), f"an end of {name} in {other}")
        return path.read_bytes()

    def settings(self, **values):
        self.browser.in_extension(f"(globalThis.browser ?? chrome).storage.local.set({json.dumps(values)}).then(() => 1)")

    @contextlib.contextmanager
    def serving(self, port):
        """The program, with its control API."""
        process = self.serve()
        try:
            until(lambda: socket.socket().connect_ex(("127.0.0.1", port)) == 0, "the control API")
            yield
        finally:
            self.run("quit")
            process.wait(timeout=30)

    def ask(self, request):
        return self.browser.in_extension(f"(globalThis.browser ?? chrome).runtime.sendMessage({json.dumps(request)})")

    def listed(self):
        every = self.browser.in_extension("(globalThis.browser ?? chrome).downloads.search({})")
        return [pathlib.Path(one["filename"]).name for one in every]


def taken_over(trial):
    """Links of every sort, with what the browser would have sent."""
    # Firefox does not tell the name that a page gives before the download has begun.
    named_by_page = "own name.bin" if trial.browser.name == "chromium" else "attribute"
    expected = {"plain": "plain.bin", "moved": "target.bin", "secret": "secret", "named": "named \u00fcber.zip"}
    expected |= {"attribute": named_by_page, "text": "own text.txt"}
    for link, name in expected.items():
        trial.click(link)
        assert trial.whole(trial.fetched, name) == CONTENT, f"{link} has another content"
    for path in ("/plain.bin", "/secret", "/attribute"):
        own = Site.asked[path][-1]
        assert own.get("referer") == trial.here + "/page", f"{path}: referer {own.get('referer')}"
        assert own.get("user-agent") == Site.asked["/page"][-1]["user-agent"], f"{path}: {own.get('user-agent')}"
        assert "key=right1" in own.get("cookie", ""), f"{path}: no cookie"
    assert "cookie" not in Site.asked["/target.bin"][-1], "a cookie went to another host"
    until(lambda: trial.listed() == [], "an empty list of the browser's own")  # what was cancelled is erased right after it


def left_to_the_browser(trial):
    """What the rules leave, what the person passes, and what only the browser has."""
    trial.settings(leastSize=100, leaveEndings="keep")
    for link, name in {"small": "small.bin", "left": "left.keep", "blob": "made.bin"}.items():
        trial.click(link)
        trial.whole(trial.saved, name)
    trial.browser.run(trial.page, "document.getElementById('form').submit()")
    assert trial.whole(trial.saved, "posted \u00fcber.zip") == CONTENT
    trial.ask({"type": "next", "next": "browser"})
    trial.click("passed")
    trial.whole(trial.saved, "passed.bin")
    assert len(Site.asked["/passed.bin"]) == 1, Site.asked["/passed.bin"]
    trial.settings(leastSize=100, takeForms=True)
    trial.browser.run(trial.page, "document.getElementById('sent').submit()")
    assert trial.whole(trial.fetched, "asked \u00fcber.zip") == CONTENT
    bodies = [own["body"] for own in Site.asked["/asked"]]
    assert bodies == ["name=%C3%A4+b&x=1"] * 2, bodies  # once by the browser, once by the program
    trial.ask({"type": "next", "next": "vantlow"})
    trial.settings(enabled=False)
    trial.browser.run(trial.page, "location.href = '/forced.bin'")
    assert trial.whole(trial.fetched, "forced.bin") == CONTENT
    trial.settings(enabled=True)


def private_windows(trial):
    """A private window's downloads have its cookies, and nobody else's have them."""
    private = trial.browser.private_page(trial.here + "/page")
    for page, name, cookie in ((private, "private.bin", "key=right2"), (trial.page, "public.bin", "key=right1")):
        link = f"Object.assign(document.createElement('a'), {{href: '/{name}', download: ''}})"
        # The empty document that comes before a page is complete, too.
        shown = "document.readyState === 'complete' && location.pathname"
        until(lambda page=page, shown=shown: trial.browser.run(page, shown) == "/page", "the page")
        trial.browser.run(page, f"(() => {{ const a = {link}; document.body.append(a); a.click(); }})()")
        assert trial.whole(trial.fetched, name) == CONTENT
        assert Site.asked[f"/{name}"][-1].get("cookie") == cookie, f"{name}: {Site.asked[f'/{name}']}"


def many_at_once(trial):
    script = "const f = document.createElement('iframe'); f.src = `/many${i}.bin`; document.body.append(f);"
    trial.browser.run(trial.page, f"(() => {{ for (let i = 0; i < {MANY}; ++i) {{ {script} }} }})()")
    for i in range(MANY):
        assert trial.whole(trial.fetched, f"many{i}.bin") == CONTENT


def pages_of_the_extension(trial):
    """Media that the page plays, and the chooser for its links."""
    query = "(globalThis.browser ?? chrome).tabs.query({url: 'http://127.0.0.1/*'})"
    tab = trial.browser.in_extension(query)[0]["id"]
    media = trial.ask({"type": "media", "tabId": tab})
    assert [(m["kind"], m["address"]) for m in media] == [("video", trial.here + "/film.mp4")], media
    assert trial.ask({"type": "handOver", "tabId": tab, "downloads": [{"address": media[0]["address"]}]}) == [True]
    assert trial.whole(trial.fetched, "film.mp4") == CONTENT
    trial.ask({"type": "chooseLinks", "tabId": tab})
    stored = "(globalThis.browser ?? chrome).storage.session.get().then(all => Object.entries(all).find(([k]) => /^choice/.test(k))[1])"
    links = trial.browser.in_extension(stored)["links"]
    assert [link["text"] for link in links[:3]] == ["plain", "moved", "secret"], links
    assert len(links) == len({link["address"] for link in links}) and not any("blob:" in link["address"] for link in links)


def without_the_program(trial):
    """Nothing is lost where the program is not there: one request, which the browser makes."""
    assert not trial.ask({"type": "status"})["reachable"]
    trial.click("absent")
    assert trial.whole(trial.saved, "absent.bin") == CONTENT
    assert len(Site.asked["/absent.bin"]) == 1, Site.asked["/absent.bin"]


def on_another_machine(trial):
    """Where no program can be started here, the one whose address and secret the person gave."""
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    for name, value in {"Port": port, "Secret": "over there", "Enable": 1}.items():
        trial.run("settings", "set", f"RPC/{name}", str(value))
    with trial.serving(port):
        trial.settings(remoteAddress=f"127.0.0.1:{port}", remoteSecret="wrong")
        assert trial.ask({"type": "hello"})["error"] == "Unauthorized"
        trial.settings(remoteSecret="over there")
        assert trial.ask({"type": "hello"})["program"] == f"Vantlow (127.0.0.1:{port})"
        trial.browser.run(trial.page, "location.href = '/remote.bin'")
        assert trial.whole(trial.fetched, "remote.bin") == CONTENT
        assert "key=right" in Site.asked["/remote.bin"][-1].get("cookie", ""), "no cookie"
    trial.browser.run(trial.page, "location.href = '/alone.bin'")  # it is gone again
    assert trial.whole(trial.saved, "alone.bin") == CONTENT


WITH_THE_PROGRAM = (taken_over, private_windows, left_to_the_browser, many_at_once, pages_of_the_extension)


def drive(kind, program):
    with tempfile.TemporaryDirectory() as folder, site() as here:
        home = pathlib.Path(folder)
        for name in ("fetched", "saved", ".config"):
            (home / name).mkdir()
        (home / ".config/user-dirs.dirs").write_text(f'XDG_DOWNLOAD_DIR="{home}/fetched"\n')
        environment = dict(os.environ, HOME=folder, XDG_RUNTIME_DIR=folder, VANTLOW_NO_WINDOW="1", LANG="C.UTF-8")
        for name in ("XDG_CONFIG_HOME", "XDG_DATA_HOME", "DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS"):
            environment.pop(name, None)
        environment |= {"VANTLOW_DATA_DIR": f"{folder}/data", "VANTLOW_SETTINGS": f"{folder}/settings.ini"}
        run = lambda *words: subprocess.run([program, *words], env=environment, check=True, capture_output=True)
        serve = lambda: subprocess.Popen([program, "serve", "--foreground"], env=environment, stdout=subprocess.DEVNULL)
        Site.asked.clear()
        try:
            for word, parts in (("install", WITH_THE_PROGRAM), ("remove", (without_the_program, on_another_machine))):
                run("browser", word, kind.name)
                with kind.open(home, EXTENSION, environment, home / "saved") as browser:
                    trial = Trial(browser, home, here, run, serve)
                    for part in parts:
                        part(trial)
                        print(f"{kind.name}: {part.__name__}")
        finally:
            subprocess.run([program, "quit"], env=environment, capture_output=True, check=False)


def main(folder, *wanted):
    kinds = [kind for kind in (Chromium, Firefox) if kind.program and (not wanted or kind.name in wanted)]
    if not kinds:
        print("not tried: there is no Chromium and no Firefox")
        return 77
    for kind in kinds:
        drive(kind, pathlib.Path(folder, "vantlow"))
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
