#!/usr/bin/env python3
"""The web socket of an array controller in another language: written from docs/wire-protocol.md, with the package
websockets and frames made by struct.

It listens on port 51675 of --address. On standard output it says "ready" and then a line for everything that
happens: "open ORIGIN VERSION PATH" and "closed CODE" for connections. It ends when its standard input ends. Each
line there is a command to all connections:

    frame NAME=VALUE ...   a frame; names are those of FIELDS, and bins, in hexadecimal digits. The others are 0
    raw HEX                a binary message of these bytes, or of none
    zeros COUNT            a binary message of so many zero bytes
    pieces COUNT SIZE      one message, in so many pieces of so many zero bytes
    stream COUNT RATE BINS  so many frames, numbered from 0, RATE of them a second
    text WORD              a text message
    close CODE             closes the connections from here

With --status it refuses each handshake with that HTTP status; with --mute it never answers one.
"""
import argparse
import asyncio
import http
import struct
import sys

import websockets

PORT = 51675
# Channel, serial number, temperature and so on, in their order, and bytes that nobody reads.
LAYOUT = struct.Struct("<BBHHIHiIhHHHHH")
FIELDS = ["first", "channel", "serial", "temperature", "sequence", "bandwidth", "fftref", "samplerate", "sensitivity",
          "reserved", "accum", "unread", "extra", "points"]


def say(*words):
    print(*words, flush=True)


def frame(words):
    values = dict(word.split("=") for word in words)
    bins = bytes.fromhex(values.pop("bins", ""))
    return LAYOUT.pack(*(int(values.pop(name, 0)) for name in FIELDS)) + bins


class Peer:
    def __init__(self, options):
        self.options = options
        self.clients = set()

    async def serve(self, client, path):
        headers = client.request_headers
        say("open", headers.get("Origin") or "-", headers["Sec-WebSocket-Version"], path)
        self.clients.add(client)
        try:
            await client.wait_closed()
        finally:
            self.clients.discard(client)
            say("closed", client.close_code)

    async def refuse(self, path, headers):
        if self.options.mute:
            say("muted")
            await asyncio.sleep(3600)
        if self.options.status:
            return http.HTTPStatus(self.options.status), [], b"no\n"
        return None

    async def obey(self, verb, words):
        if verb == "close":
            # Copied: a client that goes leaves the set.
            for client in list(self.clients):
                await client.close(int(words[0]))
            return
        if verb == "stream":
            await self.stream(*(int(word) for word in words))
            return
        message = {
            "frame": lambda: frame(words),
            "raw": lambda: bytes.fromhex("".join(words)),
            "zeros": lambda: bytes(int(words[0])),
            "pieces": lambda: [bytes(int(words[1]))] * int(words[0]),
            "text": lambda: words[0],
        }[verb]()
        for client in list(self.clients):
            try:
                await client.send(message)
            except (websockets.WebSocketException, OSError):
                pass

    async def stream(self, count, rate, bins):
        begin = asyncio.get_running_loop().time()
        for sequence in range(count):
            for client in list(self.clients):
                await client.send(LAYOUT.pack(*(sequence if name == "sequence" else 0 for name in FIELDS)) + bytes(bins))
            ahead = begin + sequence / rate - asyncio.get_running_loop().time()
            if ahead > 0.01:
                await asyncio.sleep(ahead)


async def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--address", required=True)
    parser.add_argument("--status", type=int, default=0)
    parser.add_argument("--mute", action="store_true")
    options = parser.parse_args()
    peer = Peer(options)
    commands = asyncio.StreamReader()
    await asyncio.get_running_loop().connect_read_pipe(lambda: asyncio.StreamReaderProtocol(commands), sys.stdin)
    async with websockets.serve(peer.serve, options.address, PORT, process_request=peer.refuse, compression=None,
                                ping_interval=None, close_timeout=1):
        say("ready")
        while line := await commands.readline():
            verb, *words = line.decode().split()
            await peer.obey(verb, words)


if __name__ == "__main__":
    asyncio.run(main())
