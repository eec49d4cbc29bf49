#!/usr/bin/env python3
"""drive.py FOLDER [PICTURES]: the page in Chromium, with the program of FOLDER and a site to download from.

With PICTURES it also leaves pictures of the page in that folder. Ends with 77 where Chromium is missing, or what drives it."""

import base64
import contextlib
import http.client
import http.server
import json
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "browser/tests"))
try:
    from browsers import Chromium, until
except ImportError as error:
    print(f"not tried: {error}")
    sys.exit(77)

CONTENT = bytes(range(256)) * 8192  # 2 MiB
MANY = 2000
ALT = 1
KEYS = {"Tab": 9, "ArrowUp": 38, "ArrowDown": 40, "Enter": 13, "Escape": 27, "End": 35, "Delete": 46}
COUNT = "document.getElementById('grid').getAttribute('aria-rowcount')"
MARKUP = "<img src=x onerror=window.hacked=1>"
# Violations of the policy and errors of scripts are faults of the page, whatever else it shows.
WATCH = """window.faults = []; window.hacked = 0;
addEventListener('securitypolicyviolation', e => faults.push(`${e.violatedDirective} ${e.blockedURI}`));
addEventListener('error', e => faults.push(e.message)); addEventListener('unhandledrejection', e => faults.push(String(e.reason)));"""
# Reads the page as a person does: by roles, labels and texts.
TOOLS = """window.rows = () => [...document.querySelectorAll('.list [role=row]')];
window.row = text => rows().find(r => r.textContent.includes(text));
window.button = text => [...document.querySelectorAll('button')]
    .find(b => (b.title || b.getAttribute('aria-label') || b.textContent).trim() === text);
window.type = (selector, text) => { const field = document.querySelector(selector); field.value = text;
    field.dispatchEvent(new Event('input', {bubbles: true})); };
window.state = text => row(text)?.querySelector('.state')?.textContent.trim();"""


class Site(http.server.BaseHTTPRequestHandler):
    """Gives CONTENT, and under /slow no more than 40 KB a second over each connection."""

    protocol_version = "HTTP/1.1"

    def do_GET(self):
        first, _, last = self.headers.get("Range", "bytes=0-").removeprefix("bytes=").partition("-")
        first, last = int(first), int(last or len(CONTENT) - 1)
        self.send_response(206 if "Range" in self.headers else 200)
        self.send_header("Content-Length", str(last + 1 - first))
        self.send_header("Content-Range", f"bytes {first}-{last}/{len(CONTENT)}")
        self.send_header("ETag", '"1"')
        self.end_headers()
        with contextlib.suppress(ConnectionError):
            for at in range(first, last + 1, 4000):
                self.wfile.write(CONTENT[at : min(at + 4000, last + 1)])
                time.sleep(0.1 if "slow" in self.path else 0)

    def log_message(self, *_):
        pass


@contextlib.contextmanager
def site():
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Site)
    thread = threading.Thread(target=server.serve_forever)
    thread.start()
    try:
        yield f"http://127.0.0.1:{server.server_port}"
    finally:
        server.shutdown()
        server.server_close()
        thread.join()


class Program:
    """The resident program with a home of its own and its endpoint open."""

    def __init__(self, program, home):
        self.program, self.home = program, home
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.environment = dict(os.environ, HOME=str(home), XDG_RUNTIME_DIR=str(home), VANTLOW_NO_WINDOW="1", LANG="C.UTF-8")
        self.environment |= {"VANTLOW_DATA_DIR": f"{home}/data", "VANTLOW_SETTINGS": f"{home}/settings.ini"}
        for name in ("XDG_CONFIG_HOME", "XDG_DATA_HOME", "DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS"):
            self.environment.pop(name, None)
        (home / "settings.ini").write_text(f"[RPC]\nEnable=1\nPort={self.port}\n")

    def run(self, *words):
        return subprocess.run([self.program, *words], env=self.environment, cwd=self.home, check=True, capture_output=True, text=True).stdout

    def start(self):
        self.process = subprocess.Popen([self.program, "serve", "--foreground"], env=self.environment, stdout=subprocess.DEVNULL)
        until(self.answers, "an answer of the endpoint")

    def answers(self):
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.port), timeout=5):
            return True

    def stop(self):
        subprocess.run([self.program, "quit"], env=self.environment, capture_output=True, check=False)
        self.process.wait(timeout=30)

    @contextlib.contextmanager
    def running(self):
        self.start()
        try:
            yield self
        finally:
            self.stop()


class Page:
    """The page in a tab, with its emulated screen."""

    def __init__(self, browser, address):
        self.browser, self.address = browser, address
        self.session = browser.open_page("about:blank")
        for domain in ("Page", "Runtime"):
            self.ask(f"{domain}.enable")
        self.ask("Page.addScriptToEvaluateOnNewDocument", source=WATCH + TOOLS)
        self.screen(1280, 800)
        self.load()

    def ask(self, method, **params):
        return self.browser.wire.ask(method, self.session, **params)

    def screen(self, width, height, mobile=False):
        self.ask("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=mobile)

    def colours(self, scheme):
        self.ask("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def load(self):
        self.ask("Page.navigate", url=self.address)
        self.wait("document.querySelector('.login, .app')")

    def run(self, script):
        return self.browser.run(self.session, script)

    def wait(self, script, seconds=20):
        try:
            until(lambda: self.run(f"Boolean({script})"), script, seconds)
        except AssertionError as error:
            shown = self.run("document.body.innerText.slice(0, 2000) + '\\n' + faults.join('\\n')")
            raise AssertionError(f"{error}\nThe page shows:\n{shown}") from None

    def press(self, key, modifiers=0):
        own = {"windowsVirtualKeyCode": KEYS[key]} if key in KEYS else {"text": key}
        self.ask("Input.dispatchKeyEvent", type="keyDown", key=key, modifiers=modifiers, **own)
        self.ask("Input.dispatchKeyEvent", type="keyUp", key=key, modifiers=modifiers)

    def log_in(self, secret):
        self.run(f"document.querySelector('[name=secret]').value = {json.dumps(secret)}; document.querySelector('.login button').click()")

    def push(self, title):
        self.wait(f"button('{title}')?.disabled === false")
        self.run(f"button('{title}').click()")

    def picture(self, folder, name):
        if folder:
            time.sleep(0.5)
            (folder / f"{name}.png").write_bytes(base64.b64decode(self.ask("Page.captureScreenshot")["data"]))


def served(page, program, here):
    """With its policy; not sent again where it is the same; to nobody who calls the program by another name."""
    connection = http.client.HTTPConnection("127.0.0.1", program.port, timeout=20)

    def ask(method, path, **headers):
        connection.request(method, path, headers={name.replace("_", "-"): value for name, value in headers.items()})
        answer = connection.getresponse()
        return answer.status, answer.headers, answer.read()

    status, headers, body = ask("GET", "/")
    assert (status, headers["X-Content-Type-Options"]) == (200, "nosniff") and body.startswith(b"<!doctype html>")
    assert headers["Content-Security-Policy"].startswith("default-src 'none'; script-src 'self';")
    assert ask("GET", "/", If_None_Match=headers["ETag"])[::2] == (304, b"")
    assert ask("HEAD", "/app.js")[::2] == (200, b"")
    assert ask("GET", "/app.css")[0] == 404
    assert ask("GET", "/", Host="other.example")[0] == 403


def login(page, program, here):
    page.wait("document.querySelector('[name=secret]')")
    page.log_in("wrong")
    page.wait("document.querySelector('.login [role=alert]')?.textContent.includes('not the secret')")
    assert page.run("sessionStorage.length") == 0
    page.log_in(program.run("rpc", "secret").strip())
    page.wait("document.querySelector('.app .list')")
    page.load()
    page.wait("document.querySelector('.app .list')")


def a_download(page, program, here, pictures=None):
    """Added, with a line that cannot be; stopped and started; its parts, log and address; done."""
    if pictures:
        for name in ("disc image.iso", "Übersicht der Töne.pdf", "软件.zip", "slow film.mp4", "slow lecture.mkv"):
            program.run("add", f"{here}/{urllib.parse.quote(name)}")
    page.press("n")
    page.wait("document.querySelector('dialog [name=addresses]')")
    page.run(f"type('[name=addresses]', '{here}/slow.bin\\nnonsense:1'); document.querySelector('dialog button.main').click()")
    page.wait("document.querySelector('dialog [role=alert]')")
    assert page.run("document.querySelector('[name=addresses]').value") == "nonsense:1"
    page.press("Escape")
    page.wait("row('slow.bin')?.querySelector('progress').value > 0 && state('slow.bin') === 'running'")
    if pictures:
        page.run("row('lecture').dispatchEvent(new MouseEvent('dblclick', {bubbles: true}))")
        page.wait("document.querySelector('.segments path.active')?.getAttribute('d')")
        time.sleep(4)
        page.picture(pictures, "page")
        page.press("Escape")
    page.run("row('slow.bin').click()")
    page.push("Stop")
    page.wait("state('slow.bin') === 'stopped'")
    page.run("document.getElementById('grid').focus()")
    page.press("Enter")
    page.wait("['there', 'missing'].every(kind => document.querySelector(`.segments path.${kind}`)?.getAttribute('d'))")
    page.run("document.getElementById('tab-log').click()")
    page.wait("document.querySelectorAll('.log .sent').length > 0")
    page.run("document.getElementById('tab-details').click()")
    page.wait(f"document.querySelector('.details dl')?.textContent.includes('{here}/slow.bin')")
    page.press("Escape")
    page.push("Start")
    page.wait("state('slow.bin') === 'finished'")
    assert list(program.home.rglob("slow.bin"))[0].read_bytes() == CONTENT


def order_and_category(page, program, here):
    """Downloads that wait are put in another order, by key and by button, and into another category."""
    program.run("settings", "set", "Performance/MaxJobs", "1")
    program.run("category", "add", "Films")
    ids = [program.run("add", "-q", f"{here}/slow-{name}.bin").split()[-1] for name in ("runs", "one", "two", "three")]
    place = lambda name, at: page.wait(f"state('slow-{name}.bin') === 'waiting ({at})'")
    place("three", 3)
    page.run("row('slow-three').click(); document.getElementById('grid').focus()")
    page.press("ArrowUp", ALT)
    place("three", 2)
    page.press("ArrowUp", ALT)
    place("three", 1)
    page.run("row('slow-one').querySelector('input').click()")  # both of them
    page.push("Down")
    for name, at in (("two", 1), ("three", 2), ("one", 3)):
        place(name, at)
    listed = [one for one in json.loads(program.run("list", "--json")) if one["state"] == "waiting"]
    assert len(listed) == 3, listed
    page.push("Category")
    page.wait("document.querySelector('dialog select')")
    page.run("(s => { s.value = [...s.options].find(o => o.textContent.trim() === 'Films').value; })(document.querySelector('dialog select'))")
    page.run("document.querySelector('dialog button.main').click()")
    for name in ("one", "three"):
        page.wait(f"row('slow-{name}').querySelector('.category').textContent.trim() === 'Films'")
    assert page.run("row('slow-two').querySelector('.category').textContent.trim()") != "Films"
    page.run("row('slow-two').click()")
    page.wait("row('slow-two').getAttribute('aria-selected') === 'true' && row('slow-one').getAttribute('aria-selected') === 'false'")
    page.push("Schedule")
    page.wait("document.querySelector('dialog [name=start]')")
    page.run("type('dialog [name=start]', '23:30'); document.querySelectorAll('dialog .days input')[2].click(); "
             "document.querySelector('dialog button.main').click()")
    times = lambda: json.loads(program.run("schedule", "--json", ids[2]))["jobs"][0]["entries"]
    until(lambda: times() == [{"action": "start", "at": "23:30", "days": ["wed"]}], "a download's time")
    program.run("remove", *ids)
    page.wait("!row('slow-runs')")


def category(page, program, here):
    """Its name and its rule are changed."""
    page.run("[...document.querySelectorAll('.side button')].find(b => b.textContent.includes('Films')).click()")
    page.push("Edit category...")
    page.wait("document.querySelector('dialog [name=rule]')")
    page.run("type('dialog [name=name]', 'Cinema'); type('dialog [name=rule]', '.mkv'); document.querySelector('dialog button.main').click()")
    page.wait("document.querySelector('.side').textContent.includes('Cinema')")
    assert ".mkv" in [one["rule"] for one in json.loads(program.run("category", "list", "--json"))]
    page.run("document.querySelector('.side button').click()")
    program.run("settings", "unset", "Performance/MaxJobs")


def many(page, program, here):
    """Thousands: few rows in the document, all of them found, and drawn in time."""
    add = f"""(async () => {{ const calls = Array.from({{length: {MANY}}}, (_, i) => ({{jsonrpc: '2.0', id: i, method: 'aria2.addUri',
        params: ['token:' + sessionStorage['vantlow.secret'], [`{here}/many-${{i}}.bin`], {{pause: 'true'}}]}}));
        return (await (await fetch('jsonrpc', {{method: 'POST', body: JSON.stringify(calls)}})).json()).filter(a => a.result).length; }})()"""
    before = page.run(f"Number({COUNT})")
    assert page.run(add) == MANY
    total = page.total = MANY + before
    page.wait(f"Number({COUNT}) === {total}")
    assert page.run("rows().length") < 60
    page.run("document.getElementById('grid').focus()")
    page.press("End")
    page.wait(f"rows().at(-1).getAttribute('aria-rowindex') === '{total}' && document.activeElement.getAttribute('aria-activedescendant')")
    drawn = page.run("""(async () => { const list = document.getElementById('list'); const start = performance.now();
        for (let i = 0; i < 20; ++i) { list.scrollTop = i * 3000; await new Promise(requestAnimationFrame); await new Promise(requestAnimationFrame); }
        return (performance.now() - start) / 20; })()""")
    print(f"{drawn:.0f} ms for a step of scrolling through {total} rows")
    assert drawn < 200, drawn
    page.press("/")
    page.run("type('#search', 'many-1234')")
    page.wait("rows().length === 1 && row('many-1234')")


def removal(page, program, here):
    page.run("row('many-1234').click(); document.getElementById('grid').focus()")
    page.press("Delete")
    page.wait("document.querySelector('dialog button.danger')")
    page.run("document.querySelector('dialog button.danger').click()")
    page.wait("rows().length === 0 && document.querySelector('#messages button')")
    page.run("document.querySelector('#messages button').click()")
    page.wait("row('many-1234')")
    page.run("type('#search', '')")


def only_text(page, program, here):
    """Names are text, wherever they stand."""
    program.run("category", "add", MARKUP)
    page.wait(f"document.querySelector('.side').textContent.includes({json.dumps(MARKUP)})")
    assert page.run("document.querySelectorAll('img[onerror]').length + window.hacked") == 0


def by_post(page, program, here):
    """Where no WebSocket gets through."""
    broken = "window.WebSocket = class { static OPEN = 1; constructor() { setTimeout(() => this.onclose(), 50); } }"
    script = page.ask("Page.addScriptToEvaluateOnNewDocument", source=broken)["identifier"]
    page.load()
    page.wait("document.querySelector('.status').textContent.includes('once a second') && row('many-')")
    program.run("category", "add", "told by POST")
    page.wait("document.querySelector('.side').textContent.includes('told by POST')")
    page.ask("Page.removeScriptToEvaluateOnNewDocument", identifier=script)
    page.load()
    page.wait("row('many-') && !document.querySelector('.status').textContent.includes('once a second')")


def looks(page, program, here, pictures=None):
    """Light and dark, a phone's width, another language; nothing wider than the screen."""
    assert page.run("row('many-').querySelector('.name').textContent.trim().startsWith('many-')")  # not the address
    page.picture(pictures, "desktop-light")
    light = page.run("getComputedStyle(document.body).backgroundColor")
    page.colours("dark")
    assert page.run("getComputedStyle(document.body).backgroundColor") != light
    page.picture(pictures, "desktop-dark")
    page.push("light")
    page.wait(f"getComputedStyle(document.body).backgroundColor === '{light}'")
    page.run("localStorage.clear()")
    page.colours("light")
    page.screen(390, 844, mobile=True)
    page.run("localStorage['vantlow.language'] = 'de'")
    page.load()
    page.wait("document.querySelector('[role=row] .card') && document.documentElement.lang === 'de'")
    assert "Angehalten" in page.run("document.querySelector('.list').textContent")
    assert page.run("document.documentElement.scrollWidth") == 390
    right_edges = page.run("[...document.querySelectorAll('.tools > :not(.count)')].map(tool => tool.getBoundingClientRect().right)")
    assert len(right_edges) == 10 and max(right_edges) <= 390, right_edges
    page.run("(s => { s.value = 'name'; s.dispatchEvent(new Event('change')); })(document.querySelector('.sorting select'))")
    first = "disc image" if pictures else "many-0.bin"
    page.wait(f"rows()[0].textContent.includes('{first}')")
    page.run("(s => { s.value = 'added'; s.dispatchEvent(new Event('change')); })(document.querySelector('.sorting select'))")
    page.wait("rows()[1].textContent.includes('many-')")
    page.picture(pictures, "phone-light")
    page.colours("dark")
    page.run("rows()[1].click()")
    page.wait("document.querySelector('.details')")
    page.picture(pictures, "phone-details")
    page.run("document.querySelector('.details .back').click(); button('Neuer Download ...').click()")
    page.wait("document.querySelector('dialog')")
    page.picture(pictures, "phone-new")
    page.run("document.querySelector('dialog .icon').click(); button('Einstellungen ...').click()")
    page.wait("document.querySelector('dialog .setting')")
    page.run("document.querySelector('dialog .days')?.scrollIntoView()")
    page.picture(pictures, "phone-options")
    assert page.run("document.documentElement.scrollWidth") == 390
    page.run("document.querySelector('dialog .icon').click()")
    page.run("document.querySelector('button.menu').click()")
    page.wait("document.querySelector('.side.shown')")
    page.picture(pictures, "phone-menu")
    page.run("localStorage.clear()")
    page.colours("light")
    page.screen(1280, 800)
    page.load()
    page.wait("row('many-')")


def keyboard(page, program, here):
    """Tab leads through everything once; what has the focus is in sight, has a name, and is seen to have it."""
    page.run("document.activeElement.blur()")
    passed = []
    for _ in range(80):
        page.press("Tab")
        at = page.run("""(e => e === document.body ? null : {
            name: (e.title || e.getAttribute('aria-label') || e.textContent).trim(), id: e.id || e.tagName + [...document.querySelectorAll('*')].indexOf(e),
            seen: e.getBoundingClientRect().width > 0 && getComputedStyle(e).visibility === 'visible',
            marked: getComputedStyle(e).outlineStyle !== 'none' || getComputedStyle(e).boxShadow !== 'none'
                || getComputedStyle(e.parentElement).outlineStyle !== 'none' || getComputedStyle(e.parentElement).boxShadow !== 'none'})(document.activeElement)""")
        if not at or at["id"] in [one["id"] for one in passed]:
            break
        passed.append(at)
    assert all(one["name"] and one["seen"] and one["marked"] for one in passed), passed
    assert len(passed) < 80 and "grid" in [one["id"] for one in passed], [one["name"] for one in passed]
    names = [one["name"] for one in passed]
    for name in ("Search downloads", "Options...", "All downloads", "New category...", "New download..."):
        assert any(one.startswith(name) for one in names), names


def away(page, program, here):
    """The program ends and comes again."""
    program.stop()
    page.wait("document.querySelector('.away[role=alert]')", 30)
    program.start()
    page.wait("!document.querySelector('.away') && document.getElementById('list')", 30)
    page.wait(f"Number({COUNT}) === {page.total}")


def main(folder, pictures=None):
    if not Chromium.program:
        print("not tried: there is no Chromium")
        return 77
    if pictures:
        pathlib.Path(pictures).mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as home, site() as here:
        with Program(pathlib.Path(folder, "vantlow").resolve(), pathlib.Path(home)).running() as program:
            with Chromium.open(program.home, None, program.environment, program.home) as browser:
                page = Page(browser, f"http://127.0.0.1:{program.port}/")
                for part in (served, login, a_download, order_and_category, category, many, removal, only_text, by_post, looks, keyboard, away):
                    more = (pathlib.Path(pictures),) if pictures and part in (a_download, looks) else ()
                    part(page, program, here, *more)
                    assert page.run("faults") == [], page.run("faults")
                    print(part.__name__)
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
