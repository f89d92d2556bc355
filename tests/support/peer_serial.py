#!/usr/bin/env python3
"""The recorder of peer_device.py on a serial line: standard library only.

It opens a pseudo terminal, says "port PATH" and "ready", and then a line for every command that it hears. It hears
only what is sent at its own rate. --cut sends each answer in two pieces, the first of that many bytes. It ends when
its standard input ends.
"""
import argparse
import asyncio
import os
import sys
import termios
import tty

from peer_device import Commands, Recorder, say

SPEEDS = {int(name[1:]): getattr(termios, name) for name in dir(termios) if name[0] == "B" and name[1:].isdigit()}


class Line:
    """What a command channel writes to."""

    def __init__(self, end, cut):
        self.end, self.cut = end, cut

    def write(self, data):
        for piece in (data[:self.cut], data[self.cut:]):
            if piece:
                os.write(self.end, piece)


async def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--baud", type=int, required=True)
    parser.add_argument("--cut", type=int, default=0)
    parser.add_argument("--type", type=int, default=5)
    parser.add_argument("--serial", type=int, default=4242)
    options = parser.parse_args()

    # What a recorder on a network would be told.
    options.address, options.report_address = "0.0.0.0", None
    options.rate, options.seconds, options.pace, options.epochs = 8000, 0, 1.0, 0

    own, other = os.openpty()
    tty.setraw(other)
    commands = Commands(Recorder(options))
    commands.connection_made(Line(own, options.cut))

    def hear():
        data = os.read(own, 4096)
        if termios.tcgetattr(other)[5] == SPEEDS[options.baud]:
            commands.data_received(data)

    loop = asyncio.get_running_loop()
    loop.add_reader(own, hear)
    say("port", os.ttyname(other))
    say("ready")
    await loop.run_in_executor(None, sys.stdin.buffer.read)


if __name__ == "__main__":
    asyncio.run(main())
