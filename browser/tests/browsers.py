"""Chromium and Firefox without a window, driven over their own protocols (the Chrome DevTools Protocol, WebDriver BiDi)."""

import contextlib
import itertools
import json
import pathlib
import re
import shutil
import subprocess
import sys
import threading

import websocket

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests/support"))
import display  # noqa: E402

WAIT = 60  # seconds for whatever is expected


def until(look, what, seconds=WAIT):
    """display.until() with the patience that browsers need."""
    return display.until(look, what, seconds)


class Wire:
    """Commands and their answers over a WebSocket; events are left out."""

    def __init__(self, address):
        self.socket = websocket.create_connection(address, timeout=WAIT, suppress_origin=True, max_size=None)
        self.ids = itertools.count(1)

    def ask(self, method, session=None, **params):
        number = next(self.ids)
        command = {"id": number, "method": method, "params": params}
        self.socket.send(json.dumps(command | ({"sessionId": session} if session else {})))
        while (answer := json.loads(self.socket.recv())).get("id") != number:
            pass
        if "error" in answer:
            raise AssertionError(f"{method}: {answer['error']}: {answer.get('message', '')}")
        return answer["result"]


@contextlib.contextmanager
def started(command, environment, pattern):
    """A browser that is ended with the block; gives what the pattern finds on its stderr."""
    browser = subprocess.Popen(command, env=environment, stderr=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True)
    lines, found = [], []

    def read():
        for line in browser.stderr:
            lines.append(line)
            found.extend(re.findall(pattern, line))

    reader = threading.Thread(target=read)
    reader.start()
    try:
        yield until(lambda: found or browser.poll() is not None, f"{command[0]} with {pattern}") and found[0]
    except IndexError:
        raise AssertionError(f"{command[0]} ended: {''.join(lines[-20:])}") from None
    finally:
        browser.terminate()
        try:
            browser.wait(timeout=10)
        except subprocess.TimeoutExpired:
            browser.kill()
            browser.wait()
        reader.join()


class Chromium:
    """Debian's Chromium with the extension, or (None) without one; `home` is its user's."""

    name = "chromium"
    extension = "amfocobpfblggmedeifaniiachofngnf"
    program = shutil.which("chromium")

    def __init__(self, wire):
        self.wire = wire

    @classmethod
    @contextlib.contextmanager
    def open(cls, home, extension, environment, downloads):
        profile = pathlib.Path(home, ".config/chromium")
        (profile / "Default").mkdir(parents=True, exist_ok=True)
        wishes = {
            "download": {"default_directory": str(downloads), "prompt_for_download": False},
            "profile": {"default_content_setting_values": {"automatic_downloads": 1}},
            "extensions": {"settings": {cls.extension: {"incognito": True}}},
        }
        (profile / "Default/Preferences").write_text(json.dumps(wishes))
        flags = (
            f"--user-data-dir={profile} "
            "--headless=new --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-component-update "
            "--disable-background-networking --disable-sync --disable-dev-shm-usage --remote-debugging-port=0"
        )
        loaded = [f"--disable-extensions-except={extension}", f"--load-extension={extension}"] if extension else []
        command = [cls.program, *flags.split(), *loaded, "about:blank"]
        with started(command, environment, r"DevTools listening on (ws://\S+)") as address:
            yield cls(Wire(address))

    def targets(self, kind, part=""):
        every = self.wire.ask("Target.getTargets")["targetInfos"]
        return [t for t in every if t["type"] == kind and part in t["url"]]

    def attach(self, target):
        return self.wire.ask("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]

    def run(self, session, script, gesture=True):
        result = self.wire.ask(
            "Runtime.evaluate", session, expression=script, awaitPromise=True, returnByValue=True, userGesture=gesture
        )
        if "exceptionDetails" in result:
            raise AssertionError(f"{script}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def open_page(self, address):
        made = self.wire.ask("Target.createTarget", url=address)
        session = self.attach(made)

        def is_there():
            with contextlib.suppress(AssertionError):  # a document that gives way to the next one runs no script
                return self.run(session, "document.readyState === 'complete' && location.href") == address

        until(is_there, address)
        return session

    def private_page(self, address):
        self.in_extension(f"chrome.windows.create({{incognito: true, url: {json.dumps(address)}}}).then(() => 1)")
        known = lambda: {t["browserContextId"]: t for t in self.targets("page", address)}
        return self.attach(until(lambda: len(known()) == 2 and list(known().values()), "a private page")[-1])

    def in_extension(self, script):
        """Runs a script in a page of the extension, which stays open."""
        if not (pages := self.targets("page", "/pages/options.html")):
            worker = until(lambda: self.targets("service_worker", "chrome-extension://"), "the extension's worker")[0]
            self.wire.ask("Target.createTarget", url=worker["url"].replace("background.js", "pages/options.html"))
            pages = until(lambda: self.targets("page", "/pages/options.html"), "the page of options")
            session = self.attach(pages[0])
            until(lambda: self.run(session, "document.getElementById('program')?.textContent"), "its words")
            return self.run(session, script)
        return self.run(self.attach(pages[0]), script)


class Firefox:
    """Debian's Firefox with the extension."""

    name = "firefox"
    program = shutil.which("firefox-esr")

    def __init__(self, wire):
        self.wire = wire

    @classmethod
    @contextlib.contextmanager
    def open(cls, home, extension, environment, downloads):
        profile = pathlib.Path(home, "profile")
        profile.mkdir(exist_ok=True)
        wishes = {
            "browser.download.folderList": 2,
            "browser.download.dir": str(downloads),
            "browser.download.useDownloadDir": True,
            "browser.download.always_ask_before_handling_new_types": False,
            "remote.active-protocols": 1,
            "app.update.enabled": False,
            "datareporting.policy.dataSubmissionEnabled": False,
            # Its page in the test reads and writes the extension's settings.
            "extensions.webextensions.uuids": json.dumps({"browser@vantlow": cls.uuid}),
            "remote.system-access-check.enabled": False,
        }
        lines = [f"user_pref({json.dumps(name)}, {json.dumps(value)});\n" for name, value in wishes.items()]
        (profile / "user.js").write_text("".join(lines))
        command = [cls.program, "--headless", "--no-remote", "--profile", str(profile), "--remote-debugging-port", "0"]
        command.append("--remote-allow-system-access")
        with started(command, environment, r"WebDriver BiDi listening on (ws://\S+)") as address:
            browser = cls(Wire(address + "/session"))
            browser.wire.ask("session.new", capabilities={})
            source = {"type": "path", "path": str(extension)}
            browser.wire.ask("webExtension.install", extensionData=source, **{"moz:allowPrivateBrowsing": True})
            yield browser

    uuid = "6d2b1c3e-7a44-4c9b-9a51-0f6a3d0b5c11"

    def run(self, page, script, gesture=True):
        result = self.wire.ask(
            "script.evaluate",
            expression=f"(async () => JSON.stringify(await ({script}) ?? null))()",
            target={"context": page},
            awaitPromise=True,
            userActivation=gesture,
        )
        if result["type"] == "exception":
            raise AssertionError(f"{script}: {result['exceptionDetails']['text']}")
        return json.loads(result["result"]["value"])

    def open_page(self, address):
        page = self.wire.ask("browsingContext.create", type="tab")["context"]
        self.wire.ask("browsingContext.navigate", context=page, url=address, wait="complete")
        return page

    def private_page(self, address):
        pages = lambda: [c["context"] for c in self.wire.ask("browsingContext.getTree")["contexts"] if c["url"] == address]
        before = pages()
        self.in_extension(f"browser.windows.create({{incognito: true, url: {json.dumps(address)}}}).then(() => 1)")
        return until(lambda: [page for page in pages() if page not in before], "a private page")[0]

    def in_extension(self, script):
        if not hasattr(self, "options"):
            self.options = self.open_page(f"moz-extension://{self.uuid}/pages/options.html")
        return self.run(self.options, script)
