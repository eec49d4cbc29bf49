#!/usr/bin/env python3
"""Programs as people have them speak to the resident program: over HTTP, XML-RPC and WebSockets.

    control_clients.py [--wine WINE] VANTLOW [TEST...]

VANTLOW is the program; with --wine a Windows program, which WINE runs. Needs nothing but Python.
"""

import base64
import collections
import contextlib
import gzip
import hashlib
import http.client
import http.server
import json
import os
import pathlib
import shutil
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import xmlrpc.client

UNDER_WINE = sys.argv[1] == "--wine"
PROGRAM = [sys.argv.pop(1) for _ in range(3)][1:] if UNDER_WINE else [sys.argv.pop(1)]
FILE = bytes(range(256)) * 4096


def there(path):
    """The path as the program says it."""
    return "Z:" + str(path).replace("/", "\\") if UNDER_WINE else str(path)


class FileServer(http.server.BaseHTTPRequestHandler):
    """Gives /file at once, /slow a byte now and then, and keeps the headers that it was asked with."""

    asked = {}
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        FileServer.asked[self.path] = dict(self.headers)
        missing = self.path.startswith("/none")
        here = f"http://{self.headers['Host']}/file"
        files = "".join(f'<file name="listed{i}.bin"><size>{len(FILE)}</size><url>{here}</url></file>' for i in (1, 2))
        whole = f'<metalink xmlns="urn:ietf:params:xml:ns:metalink">{files}</metalink>'.encode() if self.path.endswith(".meta4") else FILE
        self.send_response(404 if missing else 200)
        self.send_header("Content-Type", "application/metalink4+xml" if whole != FILE else "application/octet-stream")
        self.send_header("Content-Length", "0" if missing else str(len(whole)))
        self.end_headers()
        if missing:
            return
        with contextlib.suppress(OSError):
            if self.path.startswith("/slow"):
                for _ in range(600):
                    self.wfile.write(b"x")
                    time.sleep(0.1)
            self.wfile.write(whole)

    def log_message(self, *_):
        pass


class WebSocket:
    """As much of RFC 6455 as a front end needs; and less, where a test wants it broken."""

    def __init__(self, port, headers=(), tls=None):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=20)
        if tls:
            self.socket = tls.wrap_socket(self.socket, server_hostname="127.0.0.1")
        lines = ["GET /jsonrpc HTTP/1.1", f"Host: 127.0.0.1:{port}", "Upgrade: websocket", "Connection: Upgrade",
                 "Sec-WebSocket-Version: 13", "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==",
                 "Sec-WebSocket-Extensions: permessage-deflate", *headers, "", ""]
        self.socket.sendall("\r\n".join(lines).encode())
        self.bytes = b""
        while b"\r\n\r\n" not in self.bytes:
            self.more()
        head, self.bytes = self.bytes.split(b"\r\n\r\n", 1)
        self.head = head.decode()
        self.notifications = []

    def more(self):
        got = self.socket.recv(65536)
        if not got:
            raise EOFError
        self.bytes += got

    def take(self, count):
        while len(self.bytes) < count:
            self.more()
        got, self.bytes = self.bytes[:count], self.bytes[count:]
        return got

    def send(self, payload, opcode=1, final=True):
        size = len(payload)
        length = bytes([0x80 | size]) if size < 126 else struct.pack(">BH", 0xFE, size) if size < 65536 else struct.pack(">BQ", 0xFF, size)
        mask = b"\1\2\3\4"
        masked = bytes(byte ^ mask[i % 4] for i, byte in enumerate(payload))
        self.socket.sendall(bytes([opcode | (0x80 if final else 0)]) + length + mask + masked)

    def frame(self):
        first, second = self.take(2)
        size = second & 127
        if size >= 126:
            size = struct.unpack(">H" if size == 126 else ">Q", self.take(2 if size == 126 else 8))[0]
        return first & 15, first & 0x80, self.take(size)

    def message(self):
        whole = b""
        while True:
            opcode, is_last, payload = self.frame()
            if opcode == 9:
                self.send(payload, 10)
            elif opcode == 8:
                raise EOFError(struct.unpack(">H", payload[:2])[0])
            else:
                whole += payload
                if is_last:
                    return json.loads(whole)

    def call(self, method, *params):
        self.send(json.dumps({"jsonrpc": "2.0", "id": method, "method": method, "params": params}).encode())
        while (answer := self.message()).get("id") != method:
            self.notifications.append(answer)
        return answer

    def wait_for(self, method, gid):
        wanted = {"jsonrpc": "2.0", "method": method, "params": [{"gid": gid}]}
        while wanted not in self.notifications:
            self.notifications.append(self.message())


class Program:
    """The resident program with a home of its own and its control API open."""

    def __init__(self, root, *words, listen="127.0.0.1", opens=True):
        root.mkdir(exist_ok=True)
        self.root = root
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.common = [*PROGRAM, "--data-dir", there(root / "data"), "--settings", there(root / "settings.ini")]
        if not (root / "settings.ini").exists():  # nothing looks for peers beyond this machine
            (root / "settings.ini").write_text("[Torrent]\nDHT=0\nLSD=0\nPortMapping=0\nDefaultTracker=\nDefaultTrackers=\n")
        self.words = ["serve", "--foreground", "--rpc-listen", f"{listen}:{self.port}", *words]
        self.environment = os.environ | {"HOME": str(root), "XDG_RUNTIME_DIR": str(root)}
        self.secret = self.run("rpc", "secret").stdout.strip()
        self.start(opens)

    def run(self, *words):
        # No pipes: what Wine starts beside the program would keep them open.
        with tempfile.TemporaryFile("w+") as told:
            ended = subprocess.run([*self.common, *words], stdin=subprocess.DEVNULL, stdout=told, env=self.environment, timeout=60)
            told.seek(0)
            ended.stdout = told.read()
            return ended

    def start(self, opens=True):
        self.process = subprocess.Popen([*self.common, *self.words], env=self.environment)
        if opens:
            self.wait_until(lambda: socket.create_connection(("127.0.0.1", self.port)).close() or True)

    def wait_until(self, is_so):
        for _ in range(300):
            with contextlib.suppress(OSError):
                if is_so():
                    return
            time.sleep(0.1)
        raise TimeoutError("it does not come")

    def stop(self):
        assert self.run("quit").returncode == 0
        self.process.wait(60)


class ControlApi(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.root = pathlib.Path(cls.folder.name)
        http.server.ThreadingHTTPServer.request_queue_size = 256  # many come at once
        cls.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), FileServer)
        cls.server.daemon_threads = True
        threading.Thread(target=cls.server.serve_forever, daemon=True).start()
        cls.files = f"http://127.0.0.1:{cls.server.server_port}"
        cls.program = Program(cls.root, "--rpc-allow-origin", "https://a.example", "--rpc-allow-origin", "https://b.example")
        cls.port, cls.vantlow, cls.token = cls.program.port, cls.program.run, "token:" + cls.program.secret

    @classmethod
    def tearDownClass(cls):
        cls.program.stop()
        cls.server.shutdown()
        cls.folder.cleanup()

    def http(self, method="POST", path="/jsonrpc", body=None, headers=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        connection.request(method, path, body, headers or {})
        answer = connection.getresponse()
        return answer.status, {k.lower(): v for k, v in answer.getheaders()}, answer.read()

    def call(self, method, *params):
        status, _, body = self.http(body=json.dumps({"id": 1, "method": method, "params": [self.token, *params]}))
        answer = json.loads(body)
        self.assertEqual(status, 200, answer)
        return answer["result"]

    def until(self, gid, status):
        for _ in range(200):
            now = self.call("aria2.tellStatus", gid)
            if now["status"] == status:
                return now
            time.sleep(0.05)
        self.fail(f"{gid} does not become {status}: {now}")

    def test_the_life_of_a_download_with_its_notifications(self):
        watcher, stranger = WebSocket(self.port), WebSocket(self.port)
        self.assertNotIn("deflate", watcher.head)
        self.assertEqual(watcher.call("aria2.getVersion", self.token)["id"], "aria2.getVersion")
        target = self.root / "life"
        options = {"dir": there(target), "out": "../sub/name.bin", "header": ["Cookie: a=b", "User-Agent: Front", "Accept: x"],
                   "referer": "http://r.example/", "gid": "00000000abcdef01", "pause": "true", "split": "2"}
        gid = watcher.call("aria2.addUri", self.token, [self.files + "/file"], options)["result"]
        self.assertEqual(gid, "00000000abcdef01")
        self.assertEqual(self.call("aria2.tellStatus", gid, ["status", "errorCode"]), {"status": "paused"})
        self.assertEqual(self.call("aria2.unpause", gid), gid)
        watcher.wait_for("aria2.onDownloadComplete", gid)
        watcher.wait_for("aria2.onDownloadStart", gid)
        done = self.until(gid, "complete")
        path = target / "sub/name.bin"
        self.assertEqual(done["files"][0]["path"], there(path))
        self.assertEqual(path.read_bytes(), FILE)
        self.assertEqual((done["totalLength"], done["completedLength"], done["errorCode"]), (str(len(FILE)), str(len(FILE)), "0"))
        sent = FileServer.asked["/file"]
        self.assertEqual((sent["Cookie"], sent["User-Agent"], sent["Referer"]), ("a=b", "Front", "http://r.example/"))
        again = self.call("aria2.getOption", gid)
        self.assertEqual(again["header"], ["Cookie: a=b"])
        FileServer.asked.clear()
        retry = self.call("aria2.addUri", [done["files"][0]["uris"][0]["uri"]], again)
        self.until(retry, "complete")
        self.assertEqual(FileServer.asked["/file"]["Cookie"], "a=b")
        self.assertEqual(self.call("aria2.removeDownloadResult", gid), "OK")
        self.assertTrue(path.exists())
        self.assertEqual(stranger.notifications, [])
        stranger.socket.settimeout(0.2)
        self.assertRaises(TimeoutError, stranger.message)

    def test_pausing_removing_and_failing(self):
        watcher = WebSocket(self.port)
        watcher.call("aria2.getVersion", self.token)
        add = lambda path, **more: self.call("aria2.addUri", [self.files + path], {"dir": there(self.root / "stop"), **more})
        gid = add("/slow", split="1", **{"max-connection-per-server": "1"})
        self.until(gid, "active")
        self.assertEqual(self.call("aria2.getServers", gid)[0]["index"], "1")
        self.assertIn(gid, [one["gid"] for one in self.call("aria2.tellActive", ["gid"])])
        self.assertEqual(self.call("aria2.pause", gid), gid)
        watcher.wait_for("aria2.onDownloadPause", gid)
        self.until(gid, "paused")
        self.call("aria2.changeOption", gid, {"max-download-limit": "3K"})
        self.assertEqual(self.call("aria2.getOption", gid)["max-download-limit"], "3072")
        self.call("aria2.unpause", gid)
        self.until(gid, "active")
        self.assertEqual(self.call("aria2.forceRemove", gid), gid)
        self.assertEqual(self.call("aria2.tellStatus", gid, ["status"]), {"status": "removed"})
        watcher.wait_for("aria2.onDownloadStop", gid)
        self.assertEqual([one["gid"] for one in self.call("aria2.tellStopped", -1, 1, ["gid"])], [gid])
        self.assertNotIn(gid, [one["gid"] for one in self.call("aria2.tellActive")])
        lost = add("/none")
        watcher.wait_for("aria2.onDownloadError", lost)
        self.assertEqual(self.until(lost, "error")["errorCode"], "3")
        queue = [add(f"/file{i}", pause="true") for i in range(3)]
        self.assertEqual([one["gid"] for one in self.call("aria2.tellWaiting", 0, 1000) if one["gid"] in queue], queue)
        for one in queue:
            self.call("aria2.remove", one)
        self.assertEqual(self.call("aria2.purgeDownloadResult"), "OK")
        self.assertEqual(self.call("aria2.tellStopped", 0, 1000), [])
        self.assertEqual(json.loads(self.vantlow("list", "--json").stdout), [])

    def test_media_managers_over_xml(self):
        proxy = xmlrpc.client.ServerProxy(f"http://127.0.0.1:{self.port}/rpc")
        self.assertGreaterEqual(tuple(map(int, proxy.aria2.getVersion(self.token)["version"].split("."))), (1, 34, 0))
        magnet = "magnet:?xt=urn:btih:" + "ab" * 20 + "&dn=film"
        gid = proxy.aria2.addUri(self.token, [magnet], {"dir": there(self.root)})
        told = proxy.aria2.tellStatus(self.token, gid)
        self.assertEqual(told["infoHash"], "ab" * 20)
        self.assertEqual(told["files"][0]["path"], "[METADATA]film")
        info = b"d6:lengthi3e4:name5:f.bin12:piece lengthi16384e6:pieces20:" + hashlib.sha1(b"abc").digest() + b"e"
        torrent = proxy.aria2.addTorrent(self.token, xmlrpc.client.Binary(b"d4:info" + info + b"e"), [], {"pause": "true"})
        self.assertEqual(proxy.aria2.tellStatus(self.token, torrent, ["infoHash"]), {"infoHash": hashlib.sha1(info).hexdigest()})
        self.assertTrue(proxy.aria2.getGlobalOption(self.token)["dir"])
        with self.assertRaises(xmlrpc.client.Fault) as wrong:
            proxy.aria2.addTorrent(self.token, xmlrpc.client.Binary(b"no torrent"))
        self.assertEqual((wrong.exception.faultCode, wrong.exception.faultString), (1, "The document: it is not a torrent."))
        for one in (gid, torrent):
            self.assertEqual(proxy.aria2.forceRemove(self.token, one), one)
        self.assertEqual(proxy.aria2.tellWaiting(self.token, 0, 10240), [])
        self.assertEqual(proxy.system.multicall([{"methodName": "aria2.saveSession", "params": [self.token]}]), [["OK"]])

    @unittest.skipUnless(shutil.which("aria2c"), "no aria2c that could be the peer")
    def test_a_magnet_whose_only_peer_is_known(self):
        theirs, ours = self.root / "theirs", self.root / "ours"
        (theirs / "film").mkdir(parents=True)
        for name, megabytes in (("a.bin", 1), ("b.bin", 3)):
            (theirs / "film" / name).write_bytes(os.urandom(megabytes << 20))
        self.assertEqual(self.vantlow("torrent", "make", "--piece-length", "64K", there(theirs / "film")).returncode, 0)
        torrent_file = (theirs / "film.torrent").read_bytes()
        info = torrent_file[torrent_file.index(b"4:infod") + 6:-1]
        info_hash = hashlib.sha1(info).hexdigest()
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        peer = subprocess.Popen(["aria2c", "--no-conf", "-q", f"--dir={theirs}", f"--listen-port={port}", "--enable-dht=false", "--seed-ratio=0.0",
                                 "--check-integrity=true", "--max-overall-upload-limit=500K", str(theirs / "film.torrent")])
        watcher = WebSocket(self.port)
        try:
            while socket.socket().connect_ex(("127.0.0.1", port)) != 0:
                time.sleep(0.1)
            magnet = f"magnet:?xt=urn:btih:{info_hash}&dn=film&x.pe=127.0.0.1:{port}"
            gid = watcher.call("aria2.addUri", self.token, [magnet], {"dir": there(ours), "pause": "true", "seed-time": "0", "gid": "00000000abcdef02"})["result"]
            self.assertEqual(gid, "00000000abcdef02")
            told = lambda one: self.call("aria2.tellStatus", one)
            now = told(gid)
            self.assertEqual((now["gid"], now["status"], now["infoHash"], now["totalLength"], now["numPieces"]), (gid, "paused", info_hash, "0", "0"))
            self.assertEqual((now["files"][0]["path"], list(now["bittorrent"])), ("[METADATA]film", ["announceList"]))
            self.assertEqual([one["gid"] for one in self.call("aria2.tellWaiting", 0, 9)], [gid])
            self.assertEqual(self.call("aria2.changePosition", gid, 0, "POS_SET"), 0)
            self.call("aria2.changeOption", gid, {"max-download-limit": "400K"})
            self.call("aria2.unpause", gid)
            # Its torrent is a download of its own, about which everything is told behind the end of the description.
            watcher.wait_for("aria2.onDownloadComplete", gid)
            now = told(gid)
            [torrent] = now["followedBy"]
            self.assertEqual((now["status"], now["files"][0]["path"], now["totalLength"], now["completedLength"]),
                             ("complete", "[METADATA]film", str(len(info)), now["totalLength"]))
            self.assertEqual((now["infoHash"], list(now["bittorrent"]), now.get("following")), (info_hash, ["announceList", "creationDate"], None))
            watcher.wait_for("aria2.onDownloadStart", torrent)
            for method in "pause", "remove", "changeOption", "getPeers", "getServers":
                self.refusal("aria2." + method, gid)
            self.assertIn(gid, [one["gid"] for one in self.call("aria2.tellStopped", 0, 1000)])
            self.assertEqual(self.call("aria2.getOption", torrent)["max-download-limit"], str(400 << 10))
            self.program.wait_until(lambda: int(told(torrent)["completedLength"]) > 200_000)
            now = told(torrent)
            self.assertEqual((now["infoHash"], now["numSeeders"], now["seeder"], now["bittorrent"]["mode"]), (info_hash, "1", "false", "multi"))
            self.assertEqual((now["gid"], now["following"], now["bittorrent"]["info"]), (torrent, gid, {"name": "film"}))
            self.assertEqual([(one["path"], one["length"], one["selected"]) for one in now["files"]],
                             [(there(ours / "film/a.bin"), str(1 << 20), "true"), (there(ours / "film/b.bin"), str(3 << 20), "true")])
            self.assertEqual((now["numPieces"], now["pieceLength"]), ("64", "65536"))
            self.assertGreater(int(now["bitfield"], 16), 0)
            [seed] = self.call("aria2.getPeers", torrent)
            self.assertEqual((seed["ip"], seed["port"], seed["seeder"], seed["bitfield"]), ("127.0.0.1", str(port), "true", "f" * 16))
            self.assertTrue(seed["peerId"].startswith("%41%32%2D"), seed)
            self.assertEqual(self.call("aria2.getServers", torrent), [])
            # Our own methods mean the job, whichever of the two they are given.
            self.assertEqual({self.call("vantlow.job", one)["gid"] for one in (gid, torrent)}, {torrent})
            self.assertEqual(self.call("vantlow.job", torrent)["descriptionGid"], gid)
            self.call("aria2.changeOption", torrent, {"select-file": "1", "max-download-limit": "0"})
            done = self.until(torrent, "complete")
            self.assertEqual([one["selected"] for one in done["files"]], ["true", "false"])
            self.assertEqual((ours / "film/a.bin").read_bytes(), (theirs / "film/a.bin").read_bytes())
            self.assertFalse((ours / "film/b.bin").exists())
            self.refusal("aria2.changeOption", torrent, {"select-file": "7"})
            watcher.wait_for("aria2.onDownloadComplete", torrent)
            words = [(one["method"].removeprefix("aria2.on"), one["params"][0]["gid"]) for one in watcher.notifications
                     if one["params"][0]["gid"] in (gid, torrent)]
            self.assertEqual(words, [("DownloadStart", gid), ("DownloadComplete", gid), ("DownloadStart", torrent),
                                     ("BtDownloadComplete", torrent), ("DownloadComplete", torrent)])
            # The same link again: its description is there, and a removed result does not take the torrent along.
            again = self.call("aria2.addUri", [magnet], {"dir": there(ours / "again"), "pause": "true"})
            [second] = told(again)["followedBy"]
            self.assertEqual((told(second)["status"], told(second)["following"]), ("paused", again))
            self.assertEqual(self.call("aria2.removeDownloadResult", again), "OK")
            self.refusal("aria2.removeDownloadResult", again)
            self.assertEqual(self.call("aria2.remove", second), second)
            # In the next run there is no result of the description, but its gid still finds the torrent.
            self.program.stop()
            self.program.start()
            self.assertNotIn(gid, [one["gid"] for one in self.call("aria2.tellStopped", 0, 1000)])
            self.assertEqual((told(gid)["gid"], told(gid)["status"]), (torrent, "complete"))
            self.call("aria2.removeDownloadResult", gid)
            self.refusal("aria2.tellStatus", torrent)
        finally:
            peer.terminate()
            peer.wait(60)

    def test_a_magnet_that_nobody_has(self):
        watcher = WebSocket(self.port)
        add = lambda digit, **more: watcher.call("aria2.addUri", self.token, ["magnet:?xt=urn:btih:" + digit * 40], {"dir": there(self.root / "nobody"), **more})["result"]
        active, paused = add("c"), add("d", pause="true")
        self.until(active, "active")
        ids = {one["descriptionGid"]: one["gid"] for one in self.call("vantlow.list")["jobs"] if "descriptionGid" in one}
        self.assertEqual(self.call("aria2.tellStatus", ids[active], ["gid"]), {"gid": active})
        self.assertEqual([one["gid"] for one in self.call("aria2.tellActive", ["gid", "files"])], [active])
        self.assertEqual(self.call("aria2.getFiles", active)[0]["path"], "[METADATA]" + "c" * 40)
        self.assertEqual((self.call("aria2.getPeers", active), self.call("aria2.getUris", active)), ([], []))
        self.assertEqual(self.call("aria2.pause", active), active)
        self.until(active, "paused")
        self.assertEqual(self.call("aria2.changePosition", active, 1, "POS_SET"), 1)
        self.assertEqual([one["gid"] for one in self.call("aria2.tellWaiting", 0, 9)], [paused, active])
        self.assertEqual(self.call("aria2.unpauseAll"), "OK")
        self.until(active, "active")
        self.program.stop()  # they stay what they were
        self.program.start()
        watcher = WebSocket(self.port)
        watcher.call("aria2.getVersion", self.token)
        self.assertEqual(sorted(one["gid"] for one in self.call("aria2.tellActive")), sorted([active, paused]))
        self.assertEqual(self.call("aria2.forceRemove", active), active)
        self.assertEqual((self.until(active, "removed")["gid"], len(self.call("aria2.tellActive"))), (active, 1))
        watcher.wait_for("aria2.onDownloadStop", active)
        self.refusal("aria2.tellStatus", ids[active])
        self.assertEqual(self.call("vantlow.remove", [paused], "keep"), "OK")
        watcher.wait_for("aria2.onDownloadStop", paused)
        self.assertEqual(self.call("aria2.removeDownloadResult", active), "OK")
        self.refusal("aria2.tellStatus", active)
        self.assertEqual(json.loads(self.vantlow("list", "--json").stdout), [])

    def test_documents_that_are_fetched(self):
        watcher = WebSocket(self.port)
        gid = watcher.call("aria2.addUri", self.token, [self.files + "/list.meta4"], {"dir": there(self.root / "lists")})["result"]
        watcher.wait_for("aria2.onDownloadComplete", gid)
        told = self.call("aria2.tellStatus", gid, ["status", "followedBy"])
        self.assertEqual((told["status"], len(told["followedBy"])), ("complete", 2))
        for one in told["followedBy"]:
            self.assertEqual(self.until(one, "complete")["following"], gid)
            self.call("aria2.removeDownloadResult", one)
        self.call("aria2.removeDownloadResult", gid)

    def test_who_is_let_in(self):
        good = json.dumps({"id": 1, "method": "aria2.getSessionInfo", "params": [self.token]})
        followed = {"Sec-Fetch-Site": "cross-site", "Sec-Fetch-Mode": "navigate", "Sec-Fetch-Dest": "document"}
        for path, headers, expected in [
            ("/", followed, 200), ("/app.js", followed, 200), ("/", followed | {"Sec-Fetch-Dest": "iframe"}, 403),
            ("/app.js", {"Sec-Fetch-Site": "cross-site", "Sec-Fetch-Mode": "no-cors", "Sec-Fetch-Dest": "script"}, 403),
            ("/jsonrpc?method=system.listMethods&id=1", followed, 403), ("/", followed | {"Host": "rebound.example"}, 403)]:
            self.assertEqual(self.http("GET", path, headers=headers)[0], expected, (path, headers))
        cases = [
            ({}, 200, None), ({"Origin": "https://a.example"}, 200, "https://a.example"),
            ({"Origin": "https://b.example", "Sec-Fetch-Site": "cross-site"}, 200, "https://b.example"),
            ({"Origin": "https://c.example"}, 403, None), ({"Origin": "null"}, 403, None),
            ({"Origin": "chrome-extension://x"}, 200, None), ({"Host": "rebound.example"}, 403, None),
            ({"Sec-Fetch-Site": "cross-site"}, 403, None), ({"Content-Type": "text/plain"}, 200, None),
            ({"Content-Type": "application/x-www-form-urlencoded"}, 200, None), ({"Content-Type": "application/json"}, 200, None),
        ]
        for headers, status, allowed in cases:
            got, given, _ = self.http(body=good, headers=headers)
            self.assertEqual((got, given.get("access-control-allow-origin")), (status, allowed), headers)
        status, given, _ = self.http("OPTIONS", headers={"Origin": "https://a.example", "Access-Control-Request-Method": "POST"})
        self.assertEqual((status, given["access-control-allow-headers"]), (204, "Content-Type"))
        self.assertEqual(self.http("OPTIONS", headers={"Origin": "https://c.example", "Access-Control-Request-Method": "POST"})[0], 403)
        params = base64.b64encode(json.dumps([self.token]).encode()).decode()
        status, given, body = self.http("GET", f"/jsonrpc?method=aria2.getSessionInfo&id=x&params={params}&jsoncallback=f")
        self.assertEqual((status, given["content-type"], body[:2]), (200, "text/javascript", b"f("))
        self.assertEqual(self.http("GET", "/jsonrpc?method=aria2.getVersion&id=x")[0], 400)
        self.assertEqual((self.http("GET", "/x")[0], self.http("PUT")[0], self.http("GET", "/rpc")[0]), (404, 405, 405))
        self.assertIn("403", WebSocket(self.port, ["Origin: https://c.example"]).head.split("\r\n")[0])
        began = time.monotonic()
        for params in [], ["token:"], ["no token"]:  # none of them is a guess
            status, _, body = self.http(body=json.dumps({"id": 1, "method": "aria2.shutdown", "params": params}))
            self.assertEqual((status, json.loads(body)["error"]["message"]), (400, "Unauthorized"))
        self.assertLess(time.monotonic() - began, 0.2)
        for _ in range(3):
            status, _, body = self.http(body='{"id":1,"method":"aria2.shutdown","params":["token:no"]}')
            self.assertEqual((status, json.loads(body)["error"]["message"]), (400, "Unauthorized"))
        self.assertGreater(time.monotonic() - began, 1.5)
        self.assertIn("200", str(self.http(body=good)[0]))

    def test_what_is_broken_or_too_large_ends_alone(self):
        call = b'{"id":1,"method":"system.listMethods"}'
        post = lambda *lines, target="/jsonrpc", host="localhost": "\r\n".join([f"POST {target} HTTP/1.1", f"Host: {host}", "Connection: close", *lines, "", ""]).encode()
        length, chunked = f"Content-Length: {len(call)}", "Transfer-Encoding: chunked"
        chunk = lambda size, extension=b"": size + extension + b"\r\n" + call + b"\r\n0\r\n\r\n"
        whole = b"%x" % len(call)
        for raw, status in [
            (b"nonsense\r\n\r\n", b"400"), (b"POST /jsonrpc HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n", b"413"),
            (b"GET / HTTP/1.1\r\nX: " + b"x" * 100000, b"431"), (post(f"Content-Length: {(16 << 20) + 1}"), b"413"), (post(length) + call, b"200"), (post(length, length) + call, b"200"),
            (post(length, "Content-Length: 5") + call, b"400"), (post("Content-Length: -5"), b"400"), (post(f"Content-Length: {1 << 64}"), b"400"),
            (post(chunked) + chunk(whole, b';a="b"'), b"200"), (post(chunked) + chunk(whole, b";a=" + b"x" * 300000), b"400"),
            (post(chunked) + chunk(b"F" * 16), b"413"), (post(chunked) + chunk(b"1" * 17), b"400"), (post(chunked, length) + call, b"400"),
            (post("Transfer-Encoding: gzip, chunked") + chunk(whole), b"400"), (post("Transfer-Encoding: xchunked") + call, b"400"),
            (post(length, "Host: evil.example") + call, b"400"), (post(length, host="evil.example") + call, b"403"),
            (post(length, target="http://localhost/jsonrpc", host="x") + call, b"200"),
            (post(length, target="http://evil.example/jsonrpc") + call, b"403")]:
            with socket.create_connection(("127.0.0.1", self.port), timeout=20) as plain:
                with contextlib.suppress(ConnectionError):  # it need not be heard to the end
                    plain.sendall(raw)
                self.assertIn(status, plain.recv(100).split(b"\r\n")[0], raw[:200])
        for frame, code in [(b"\x81\x02{}", 1002), (b"\x09\x81\0\0\0\0x", 1002), (b"\x89\xFE\0\x7E\0\0\0\0" + bytes(126), 1002),
                            (b"\x80\x82\0\0\0\0{}", 1002), (b"\x81\x81\0\0\0\0\xFF", 1007), (struct.pack(">BBQI", 0x81, 0xFF, 1 << 63, 0), 1009),
                            (struct.pack(">BBQI", 0x81, 0xFF, (1 << 64) - 1, 0), 1009)]:
            broken = WebSocket(self.port)
            broken.socket.sendall(frame)
            with self.assertRaises(EOFError) as farewell:
                broken.message()
            self.assertEqual(farewell.exception.args, (code,), frame[:20])
        sessions = [WebSocket(self.port) for _ in range(5)]
        sessions[0].send(b"{", 3)  # an opcode that there is not
        self.assertRaises((EOFError, OSError), sessions[0].message)
        sessions[1].send(b'{"id":1,', final=False)  # fragments
        sessions[1].send(b'"method":"system.listMethods"}', 0)
        self.assertIn("aria2.addUri", sessions[1].message()["result"])
        sessions[1].send(b"[" * 1000)
        self.assertEqual(sessions[1].message()["error"]["code"], -32700)
        sessions[2].socket.sendall(struct.pack(">BBQ", 0x81, 0xFF, 1 << 40))
        self.assertRaises((EOFError, OSError), sessions[2].message)
        sessions[3].socket.sendall(b"\xC1\x85\1\2\3\4hello")  # compressed, which was not agreed upon
        self.assertRaises((EOFError, OSError), sessions[3].message)
        sessions[4].send(struct.pack(">H", 1001), 8)  # a browser that leaves
        with self.assertRaises(EOFError) as farewell:
            sessions[4].message()
        self.assertEqual(farewell.exception.args, (1001,))
        bomb = gzip.compress(b'{"id":1,"method":"system.listMethods","x":"' + bytes(1 << 20) + b'"}')
        status, _, body = self.http(body=bomb, headers={"Content-Encoding": "gzip"})
        self.assertEqual((status, json.loads(body)["error"]["code"]), (500, -32700))
        # Expect: 100-continue, as curl says with a large body.
        large = json.dumps({"id": 1, "method": "aria2.addTorrent", "params": [self.token, "A" * 3000000]})
        self.assertEqual(self.http(body=large, headers={"Expect": "100-continue"})[0], 400)

    def refusal(self, method, *params):
        status, _, body = self.http(body=json.dumps({"id": 1, "method": method, "params": [self.token, *params]}))
        self.assertEqual((status, json.loads(body)["error"]["code"]), (400, 1))
        return json.loads(body)["error"]["message"]

    def test_places_addresses_and_names_of_waiting_ones(self):
        place = {"pause": "true", "dir": there(self.root / "places")}
        gids = [f"0000000000000a0{i}" for i in range(4)]
        for gid in gids:
            self.assertEqual(self.call("aria2.addUri", [f"{self.files}/{gid}"], {**place, "gid": gid}), gid)
        self.refusal("aria2.addUri", [self.files], {**place, "gid": gids[0]})
        self.assertIn("More than one", self.refusal("aria2.tellStatus", "0000000000000a"))
        self.refusal("aria2.tellStatus", "f" * 16)
        order = lambda: [one["gid"] for one in self.call("aria2.tellWaiting", 0, 1000, ["gid"]) if one["gid"] in gids]
        first = self.call("aria2.tellWaiting", 0, 1000, ["gid"]).index({"gid": gids[0]})
        ahead = self.call("aria2.addUri", [self.files + "/ahead"], place, 0)
        self.assertLessEqual(self.call("aria2.tellWaiting", 0, 1000, ["gid"]).index({"gid": ahead}), first)
        self.call("aria2.remove", ahead)
        for change, now, after in (((gids[3], -2, "POS_CUR"), first + 1, [0, 3, 1, 2]), ((gids[0], 0, "POS_END"), first + 3, [3, 1, 2, 0]),
                                   ((gids[2], first, "POS_SET"), first, [2, 3, 1, 0])):
            self.assertEqual((self.call("aria2.changePosition", *change), order()), (now, [gids[i] for i in after]))
        old, new, other = f"{self.files}/{gids[0]}", f"{self.files}/new", f"{self.files}/other"
        self.assertEqual(self.call("aria2.changeUri", gids[0], 1, [old], [new, other]), [1, 2])
        self.assertEqual(self.call("aria2.getUris", gids[0]), [{"uri": new, "status": "used"}, {"uri": other, "status": "waiting"}])
        self.assertEqual(self.call("aria2.changeUri", gids[0], 1, [other], [old], 0), [1, 1])
        self.assertEqual([one["uri"] for one in self.call("aria2.getUris", gids[0])], [old, new])
        for gid in gids:  # one that was never active leaves nothing behind
            self.assertEqual(self.call("aria2.remove", gid), gid)
            self.refusal("aria2.tellStatus", gid)
        self.assertFalse([one for one in self.call("aria2.tellStopped", 0, 1000, ["gid"]) if one["gid"] in gids])

    def test_options_come_back_from_a_download_and_from_the_program(self):
        sent = {"dir": there(self.root / "options"), "out": "o.bin", "referer": "http://r.example/", "user-agent": "A", "all-proxy": "http://127.0.0.1:1",
                "http-user": "u", "http-passwd": "p", "split": "3", "max-connection-per-server": "3", "max-download-limit": "2048", "allow-overwrite": "true",
                "checksum": "sha-256=" + "ab" * 32, "header": ["Cookie: a=b"]}
        ignored = {"continue": "true", "check-integrity": "false", "min-split-size": "1M", "index-out": ["1=x"], "no-such-option": "1"}
        gid = self.call("aria2.addUri", [self.files + "/file"], {**sent, **ignored, "pause": "true"})
        self.assertLessEqual(sent.items(), self.call("aria2.getOption", gid).items())
        again = self.call("aria2.addUri", [self.files + "/file"], self.call("aria2.getOption", gid) | {"pause": "true"})
        self.assertLessEqual(sent.items(), self.call("aria2.getOption", again).items())
        info = b"d5:filesl" + b"".join(b"d6:lengthi1e4:pathl1:%deee"[:-1] % i for i in (1, 2)) + b"e4:name1:n12:piece lengthi16384e6:pieces20:" + bytes(20) + b"e"
        of_torrent = {"select-file": "2", "max-upload-limit": "1024", "seed-ratio": "1.5", "seed-time": "90", "bt-max-peers": "7", "bt-prioritize-piece": "head,tail"}
        torrent = self.call("aria2.addTorrent", base64.b64encode(b"d4:info" + info + b"e").decode(), [], {**of_torrent, "bt-tracker": "udp://127.0.0.1:1/a", "pause": "true"})
        self.assertLessEqual(of_torrent.items(), self.call("aria2.getOption", torrent).items())
        self.assertIn(["udp://127.0.0.1:1/a"], self.call("aria2.tellStatus", torrent)["bittorrent"]["announceList"])
        self.assertNotIn("following", self.call("aria2.tellStatus", torrent))
        whole = "".join(f'<file name="m{i}"><url>{self.files}/file</url></file>' for i in (1, 2))
        metalink = base64.b64encode(f'<metalink xmlns="urn:ietf:params:xml:ns:metalink">{whole}</metalink>'.encode()).decode()
        named = self.call("aria2.addMetalink", metalink, {"pause": "true", "dir": there(self.root)})
        self.assertEqual([pathlib.PurePath(self.call("aria2.getFiles", one)[0]["path"].replace("\\", "/")).name for one in named], ["m1", "m2"])
        before = {name: value for name, value in self.call("aria2.getGlobalOption").items() if name in ("dir", "max-overall-upload-limit", "max-concurrent-downloads", "user-agent")}
        globally = {"dir": there(self.root / "elsewhere"), "max-overall-upload-limit": "3072", "max-concurrent-downloads": "7", "user-agent": "G"}
        self.assertEqual(self.call("aria2.changeGlobalOption", {**globally, "max-overall-upload-limit": "3K", "log": "x"}), "OK")
        self.assertLessEqual(globally.items(), self.call("aria2.getGlobalOption").items())
        late = self.call("aria2.addUri", [self.files + "/file"], {"pause": "true"})
        self.assertLessEqual({"dir": globally["dir"], "user-agent": "G"}.items(), self.call("aria2.getOption", late).items())
        self.assertEqual(self.call("aria2.changeGlobalOption", before), "OK")
        self.refusal("aria2.changeGlobalOption", {"max-overall-upload-limit": "fast"})
        for one in (gid, again, torrent, late, *named):
            self.call("aria2.remove", one)

    def test_a_removal_takes_files_along_only_where_it_says_so(self):
        for how, is_left in (("keep", True), ("erase", False)):
            path = self.root / "removal" / f"{how}.bin"
            gid = self.call("aria2.addUri", [self.files + "/file"], {"dir": there(path.parent), "out": path.name})
            self.until(gid, "complete")
            self.refusal("aria2.remove", gid)
            self.assertEqual(self.call("vantlow.remove", [gid], how), "OK")
            self.refusal("aria2.tellStatus", gid)
            self.assertEqual(path.exists(), is_left)

    def test_a_flood_of_wrong_tokens_is_kept_from_others(self):
        guess = json.dumps({"id": 1, "method": "aria2.getVersion", "params": ["token:guess"]}).encode()
        request = b"POST /jsonrpc HTTP/1.1\r\nHost: localhost\r\nContent-Length: %d\r\n\r\n%s" % (len(guess), guess)
        guessing = [socket.create_connection(("127.0.0.1", self.port), timeout=30) for _ in range(200)]
        for one in guessing:
            one.sendall(request)
        began = time.monotonic()
        for _ in range(20):
            self.call("aria2.getVersion")
        self.assertLess(time.monotonic() - began, 2)
        kept = 0
        for one in guessing:
            with one, contextlib.suppress(ConnectionError):
                answer = one.recv(4096)
                kept += bool(answer)
                self.assertIn(b"Unauthorized", answer or b"Unauthorized")
        self.assertLessEqual(kept, 16)  # the others were sent away without an answer

    def test_who_does_not_read_is_not_waited_for(self):
        calls = [{"methodName": "aria2.addUri", "params": [self.token, [f"{self.files}/{'x' * 2000}{i}"], {"pause": "true", "dir": there(self.root)}]}
                 for i in range(1000)]
        gids = [one[0] for one in self.call("system.multicall", calls)]
        deaf = WebSocket(self.port)
        deaf.call("aria2.getVersion", self.token)
        ask = json.dumps({"id": 1, "method": "aria2.tellWaiting", "params": [self.token, 0, 1000]}).encode()
        deaf.socket.settimeout(1)
        sent = 0
        with contextlib.suppress(OSError):
            for _ in range(20000):  # it is not read from either, once eight are not answered
                deaf.send(ask)
                sent += 1
        began = time.monotonic()
        for _ in range(20):
            self.call("aria2.getVersion")
        self.assertLess(time.monotonic() - began, 20)
        for gid in gids[:5]:
            self.call("aria2.unpause", gid)
        # A notification that finds more than it may keep waiting ends it, in the middle of an answer.
        deaf.socket.settimeout(20)
        with self.assertRaises((EOFError, OSError)):
            for _ in range(sent):
                deaf.message()
        self.call("vantlow.remove", gids)

    def test_our_own_words(self):
        before = self.call("vantlow.list")
        gid = self.call("aria2.addUri", [self.files + "/file"], {"pause": "true", "dir": there(self.root)})
        since = self.call("vantlow.list", {"since": before["revision"], "session": before["session"]})
        self.assertEqual((since["everything"], [job["gid"] for job in since["jobs"]]), (False, [gid]))
        category = self.call("vantlow.addCategory", "Films", there(self.root / "films"))
        self.assertEqual(self.call("vantlow.moveJobs", [gid], category), "OK")
        job = self.call("vantlow.job", gid)
        self.assertEqual((job["category"], job["gid"], job["id"].replace("-", "")[:16]), (category, gid, gid))
        self.assertEqual(self.call("vantlow.remove", [gid], "keep"), "OK")
        later = self.call("vantlow.list", {"since": since["revision"], "session": since["session"]})
        self.assertEqual(later["removed"], [gid])
        self.assertTrue(self.call("vantlow.list", {"since": since["revision"], "session": "another"})["everything"])
        self.assertEqual(self.call("vantlow.setCategoryRule", category, ".mkv"), "OK")
        self.assertEqual(next(one["rule"] for one in self.call("vantlow.categories") if one["id"] == category), ".mkv")
        self.assertEqual(self.call("vantlow.removeCategory", category), "OK")
        settings = {one["name"]: one for one in self.call("vantlow.settings")}
        self.assertEqual(settings["RPC/Secret"]["value"], "********")
        self.call("vantlow.setLimits", {"down": 123456})
        self.assertEqual(self.call("vantlow.limits"), {"down": 123456, "up": None})
        self.assertEqual(self.call("aria2.getGlobalOption")["max-overall-download-limit"], "123456")
        self.call("aria2.changeGlobalOption", {"max-overall-download-limit": "0"})
        self.assertEqual((self.call("vantlow.questions"), self.call("vantlow.limits")), ([], {"down": None, "up": None}))

    def test_times(self):
        gid = self.call("aria2.addUri", [self.files + "/slow"], {"dir": there(self.root / "times"), "pause": "true"})
        plan = {"days": ["mon", "fri"], "start": "22:00", "stop": "06:00"}
        self.assertEqual(self.call("vantlow.setWeekPlan", plan), "OK")
        for times, told in (({"start": "23:30", "days": "mon-wed"}, {"plan": False, "start": "23:30", "days": "mon,tue,wed"}),
                            ({"plan": True}, {"plan": True, "start": "", "days": ""})):
            self.assertEqual(self.call("vantlow.setSchedule", [gid], times), "OK")
            all_of_them = self.call("vantlow.schedule")
            self.assertLessEqual(plan.items(), all_of_them["plan"].items())
            self.assertLessEqual({"gid": gid, **told}.items(), all_of_them["jobs"][0].items())
        self.assertEqual(self.call("vantlow.setSchedule", [gid], {}), "OK")
        self.assertEqual(self.call("vantlow.setWeekPlan"), "OK")
        self.assertEqual(self.call("vantlow.schedule"), {"plan": None, "jobs": []})
        for call in (("vantlow.setWeekPlan", {"start": "22:00"}), ("vantlow.setWeekPlan", {"days": "daily", "start": "25:00"}),
                     ("vantlow.setSchedule", [gid], {"start": "never"}), ("vantlow.setSchedule", ["00"], {})):
            answer = json.loads(self.http(body=json.dumps({"id": 1, "method": call[0], "params": [self.token, *call[1:]]}))[2])
            self.assertEqual(answer["error"]["code"], 1, call)
        self.call("vantlow.remove", [gid])

    def test_what_is_told_of_a_hundred_at_once_comes_in_order(self):
        watcher = WebSocket(self.port)
        at_once = self.call("aria2.getGlobalOption")["max-concurrent-downloads"]
        self.call("aria2.changeGlobalOption", {"max-concurrent-downloads": "100"})
        self.call("vantlow.setSetting", "Connection/MaxPerServer", "0")  # they all ask one server
        every = lambda method, gids: [{"methodName": method, "params": [self.token, gid]} for gid in gids]
        multicall = lambda *calls: watcher.call("system.multicall", [one for some in calls for one in some])["result"]
        add = lambda path, count: [one[0] for one in multicall([
            {"methodName": "aria2.addUri", "params": [self.token, [f"{self.files}{path}"], {"dir": there(self.root / "hundred"), "split": "1"}]}] * count)]
        whole, missing, paused, purged = add("/file", 40), add("/none", 20), add("/slow", 20), add("/slow", 20)

        def steps():
            told = collections.defaultdict(list)
            for one in watcher.notifications:
                told[one["params"][0]["gid"]].append(one["method"].removeprefix("aria2.onDownload"))
            return told

        def expect(gids, *words):
            while any(len(steps()[gid]) < len(words) for gid in gids):
                watcher.notifications.append(watcher.message())
            told = steps()
            wrong = [gid for gid in gids if tuple(told[gid]) != words]
            self.assertFalse(wrong, [(told[gid], watcher.call("aria2.tellStatus", self.token, gid)) for gid in wrong[:3]])

        expect(whole, "Start", "Complete")
        expect(missing, "Start", "Error")
        expect(paused + purged, "Start")
        multicall(every("aria2.forceRemove", purged), every("aria2.removeDownloadResult", purged))
        expect(purged, "Start", "Stop")
        self.assertEqual({one["code"] for one in multicall(every("aria2.tellStatus", purged))}, {1})
        multicall(every("aria2.pause", paused))
        expect(paused, "Start", "Pause")
        multicall(every("aria2.unpause", paused))
        expect(paused, "Start", "Pause", "Start")
        multicall(every("aria2.remove", paused))
        expect(paused, "Start", "Pause", "Start", "Stop")  # told before the answer
        for times in range(2, 5):  # so short that nobody may have looked in between
            self.assertEqual(watcher.call("vantlow.startOver", self.token, whole)["result"], "OK")
            expect(whole, *("Start", "Complete") * times)
        self.assertEqual(watcher.call("aria2.purgeDownloadResult", self.token)["result"], "OK")
        watcher.socket.settimeout(1)
        with contextlib.suppress(TimeoutError):
            while True:
                watcher.notifications.append(watcher.message())
        expect(whole, *("Start", "Complete") * 4)
        expect(paused, "Start", "Pause", "Start", "Stop")
        expect(purged, "Start", "Stop")
        self.call("aria2.changeGlobalOption", {"max-concurrent-downloads": at_once})
        self.call("vantlow.unsetSetting", "Connection/MaxPerServer")

    def test_a_thousand_at_once(self):
        calls = [{"methodName": "aria2.addUri", "params": [self.token, [f"{self.files}/f{i}"], {"pause": "true", "dir": there(self.root)}]}
                 for i in range(1000)]
        gids = [one[0] for one in self.call("system.multicall", calls)]
        self.assertEqual(len(set(gids)), 1000)
        told = [one["gid"] for one in self.call("aria2.tellWaiting", 0, 1000, ["gid"])]
        self.assertEqual(told, gids)
        self.assertEqual(self.call("vantlow.remove", gids), "OK")


class WithoutSecret(unittest.TestCase):
    def test_nobody_is_asked_and_only_this_machine_is_listened_to(self):
        with tempfile.TemporaryDirectory() as folder:
            program = Program(pathlib.Path(folder), "--rpc-secret", "none")
            try:
                self.speak(program)
            finally:
                if program.process.poll() is None:
                    program.stop()

    def speak(self, program):
        def http_(method, path, body=None, headers=()):
            connection = http.client.HTTPConnection("127.0.0.1", program.port, timeout=30)
            connection.request(method, path, body, dict(headers))
            answer = connection.getresponse()
            return answer.status, answer.read()

        watcher = WebSocket(program.port)  # hears all of it at once
        call = lambda method, *params: json.loads(http_("POST", "/jsonrpc", json.dumps({"id": 1, "method": method, "params": params}))[1])["result"]
        gid = call("aria2.addUri", ["http://127.0.0.1:1/x"])
        watcher.wait_for("aria2.onDownloadStart", gid)
        self.assertEqual(call("aria2.tellStatus", "token:old", gid, ["gid"]), {"gid": gid})
        self.assertEqual(http_("GET", "/jsonrpc?method=aria2.getVersion&id=1")[0], 403)
        self.assertEqual(http_("POST", "/jsonrpc", "{}", {"Origin": "https://a.example"})[0], 403)
        elsewhere = Program(pathlib.Path(program.root, "other"), "--rpc-secret", "none", listen="0.0.0.0", opens=False)
        elsewhere.wait_until(lambda: elsewhere.run("rpc", "status").returncode == 0)
        self.assertEqual(json.loads(elsewhere.run("--json", "rpc", "status").stdout)["listening"], [])
        elsewhere.stop()
        self.assertEqual(call("aria2.shutdown"), "OK")
        self.assertEqual(program.process.wait(60), 0)


class OverTls(unittest.TestCase):
    def test_a_certificate_of_its_own_and_what_survives_a_restart(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            program = Program(root, "--rpc-tls")
            try:
                self.speak(root, program)
            finally:
                program.stop()

    def speak(self, root, program):
        file, port, token = root / "data/rpc-certificate.pem", program.port, "token:" + program.secret
        silent = [socket.create_connection(("127.0.0.1", port), timeout=30) for _ in range(20)]
        if not UNDER_WINE:  # there the folder's rights hold
            self.assertEqual(file.stat().st_mode & 0o077, 0)
        status = lambda: json.loads(program.run("--json", "rpc", "status").stdout)
        seen = ssl.PEM_cert_to_DER_cert(ssl.get_server_certificate(("127.0.0.1", port)))
        self.assertEqual(status()["fingerprint"].replace(":", "").lower(), hashlib.sha256(seen).hexdigest())
        trusting = ssl.create_default_context(cafile=file)
        proxy = lambda: xmlrpc.client.ServerProxy(f"https://127.0.0.1:{port}/rpc", context=trusting)
        self.assertTrue(proxy().aria2.getVersion(token)["version"])
        page = http.client.HTTPSConnection("localhost", port, context=trusting)
        page.request("GET", "/")
        self.assertEqual(page.getresponse().status, 200)
        watcher = WebSocket(port, [f"Origin: https://127.0.0.1:{port}"], trusting)
        kept, gone = (watcher.call("aria2.addUri", token, ["http://h.invalid/" + "x" * 100000], {"pause": "true"})["result"] for _ in range(2))
        watcher.call("aria2.remove", token, gone)
        with self.assertRaises((OSError, http.client.HTTPException)):
            plain = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
            plain.request("GET", "/")
            plain.getresponse()
        program.process.kill()
        program.process.wait(60)
        program.start()
        self.assertEqual(ssl.PEM_cert_to_DER_cert(ssl.get_server_certificate(("127.0.0.1", port))), seen)
        self.assertEqual([one["gid"] for one in proxy().aria2.tellWaiting(token, 0, 9)], [kept])
        with socket.create_connection(("127.0.0.1", port), timeout=30) as late:  # a handshake that never ends
            self.assertEqual(late.recv(1), b"")
        program.run("settings", "set", "RPC/Certificate", there(root / "none.pem"))
        program.wait_until(lambda: status()["listening"] == [])
        with self.assertRaises(OSError):
            socket.create_connection(("127.0.0.1", port))
        for one in silent:
            one.close()


if __name__ == "__main__":
    unittest.main()
