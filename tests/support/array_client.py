#!/usr/bin/env python3
"""A reader of the frames of an array controller in another language: written from docs/wire-protocol.md, with the
package websockets and struct.

It says "ready", then for each message "frame" with its bytes and, where it has a header, the fields in the order of
FIELDS, the number of bins and the place and value of the highest one; at last "closed CODE", or "refused" and the
HTTP status or the kind of error. It ends with the connection, or when its standard input ends.
"""
import asyncio
import os
import struct
import sys

import websockets

LAYOUT = struct.Struct("<xBHHIHiIhxxHxxxxH")
FIELDS = ["channel", "serial", "temperature", "sequence", "bandwidth", "fftref", "samplerate", "sensitivity", "accum",
          "points"]


def say(*words):
    print(*words, flush=True)


def describe(message):
    if len(message) < LAYOUT.size:
        return ["frame", len(message)]
    bins = struct.unpack("%db" % (len(message) - LAYOUT.size), message[LAYOUT.size:])
    highest = max(range(len(bins)), key=bins.__getitem__, default=-1)
    return ["frame", len(message), *LAYOUT.unpack_from(message), len(bins), highest, bins[highest] if bins else 0]


async def read(url):
    try:
        async with websockets.connect(url, compression=None, ping_interval=None) as client:
            try:
                async for message in client:
                    say(*describe(message))
            except websockets.ConnectionClosed:
                pass
            await client.wait_closed()
            say("closed", client.close_code)
    except websockets.InvalidStatusCode as error:
        say("refused", error.status_code)
    except (OSError, websockets.WebSocketException) as error:
        say("refused", type(error).__name__)


async def main():
    address, port = sys.argv[1:]
    commands = asyncio.StreamReader()
    await asyncio.get_running_loop().connect_read_pipe(lambda: asyncio.StreamReaderProtocol(commands), sys.stdin)
    say("ready")
    tasks = [asyncio.ensure_future(read("ws://%s:%s" % (address, port))), asyncio.ensure_future(commands.read())]
    await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
    # At once: the other end may not be listening any more.
    os._exit(0)


if __name__ == "__main__":
    asyncio.run(main())
