#!/usr/bin/env python3
"""Starts and ends programs of this system for test programs that run under Wine, which can start such programs but
neither wait for them nor signal them.

Listens at a free port of 127.0.0.1, writes the port to standard output and serves until SIGTERM or its parent's end.
A connection must begin with the token of the environment's VANTLOW_UNIX_TOKEN; it is one program, which is killed with
what it started when the connection ends. Frames of both directions: a letter, the payload's size (4 bytes, big-endian),
the payload. Towards the helper: t TOKEN, p PROGRAM, a ARGUMENT, f FOLDER, v NAME=VALUE, x (start it), i INPUT, c (the
input's end), k NUMBER (a signal). From it: s (started, the process id), n (not started, why), o and e (bytes of
standard output and error, empty at their end), q (ended, the status).
"""

import asyncio
import ctypes
import hmac
import os
import signal
import struct
import sys

MOST_PAYLOAD = 16 << 20
PR_SET_PDEATHSIG = 1
prctl = ctypes.CDLL(None).prctl


def end_with_parent(parent):
    """This process ends when its parent does, also when that was a while ago."""
    prctl(PR_SET_PDEATHSIG, signal.SIGTERM)
    if os.getppid() != parent:
        os._exit(127)


class Connection:
    def __init__(self, reader, writer):
        self.reader = reader
        self.writer = writer
        self.process = None

    async def frame(self):
        head = await self.reader.readexactly(5)
        size = struct.unpack(">I", head[1:])[0]
        if size > MOST_PAYLOAD:
            raise ValueError("a frame is too long")
        return head[:1], await self.reader.readexactly(size)

    def send(self, kind, payload=b""):
        self.writer.write(kind + struct.pack(">I", len(payload)) + payload)

    async def start(self):
        """What is to be started, up to its start; false where it cannot be started."""
        kind, token = await self.frame()
        if kind != b"t" or not hmac.compare_digest(token, os.environb[b"VANTLOW_UNIX_TOKEN"]):
            raise ValueError("the token is wrong")
        words, folder, environment = [], None, dict(os.environb)
        del environment[b"VANTLOW_UNIX_TOKEN"]
        while kind != b"x":
            kind, payload = await self.frame()
            if kind in (b"p", b"a"):
                words.append(payload)
            elif kind == b"f":
                folder = payload
            elif kind == b"v":
                name, _, value = payload.partition(b"=")
                environment[name] = value
        helper = os.getpid()
        try:
            self.process = await asyncio.create_subprocess_exec(
                *words, cwd=folder, env=environment, start_new_session=True, preexec_fn=lambda: end_with_parent(helper),
                stdin=asyncio.subprocess.PIPE, stdout=asyncio.subprocess.PIPE, stderr=asyncio.subprocess.PIPE)
        except OSError as error:
            self.send(b"n", str(error).encode())
            return False
        self.send(b"s", str(self.process.pid).encode())
        return True

    async def forward(self, kind, stream):
        while data := await stream.read(65536):
            self.send(kind, data)
            await self.writer.drain()
        self.send(kind)

    async def watch(self):
        status = await self.process.wait()
        self.send(b"q", str(status if status >= 0 else 128 - status).encode())

    async def obey(self):
        while True:
            kind, payload = await self.frame()
            if kind == b"i":
                self.process.stdin.write(payload)
            elif kind == b"c":
                self.process.stdin.close()
            elif kind == b"k" and self.process.returncode is None:
                self.process.send_signal(int(payload))

    async def serve(self):
        others = []
        try:
            if await self.start():
                process = self.process
                others = [asyncio.create_task(work) for work in (
                    self.forward(b"o", process.stdout), self.forward(b"e", process.stderr), self.watch())]
                await self.obey()
        except (asyncio.IncompleteReadError, ConnectionError, ValueError):
            pass  # the test is at its end, or is none
        finally:
            for other in others:
                other.cancel()
            self.kill()
            self.writer.close()

    def kill(self):
        """Its session is its own: nobody else is in it."""
        if self.process is not None and self.process.returncode is None:
            os.killpg(self.process.pid, signal.SIGKILL)


async def main():
    connections = set()

    async def serve(reader, writer):
        connection = Connection(reader, writer)
        connections.add(connection)
        await connection.serve()
        connections.discard(connection)

    end = asyncio.Event()
    asyncio.get_running_loop().add_signal_handler(signal.SIGTERM, end.set)
    server = await asyncio.start_server(serve, "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    await end.wait()
    server.close()
    for connection in connections:
        connection.kill()


if __name__ == "__main__":
    end_with_parent(int(sys.argv[1]))
    asyncio.run(main())
