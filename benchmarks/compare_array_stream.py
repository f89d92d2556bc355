#!/usr/bin/python3
"""Sends the frames of an array controller to ZcrStreamAdapter and to a bare QWebSocket, in turns.

Usage: compare_array_stream.py BENCH_ARRAY_STREAM [--channels 64] [--rate 10] [--bins 1024] [--seconds 10]
                               [--rounds 5] [--address 127.62.8.2]

The sender is the package websockets, in this process. Each round runs both receivers once, in random order. The
table holds medians of the rounds; the last column is the longest of all.
"""
import argparse
import asyncio
import json
import random
import statistics
import struct
import sys
import time

import websockets

PORT = 51675
HEADER = struct.Struct("<BBHHIHiIhHHHHH")


def parse_options():
    parser = argparse.ArgumentParser()
    parser.add_argument("bench", help="path of bench_array_stream")
    parser.add_argument("--channels", type=int, default=64)
    parser.add_argument("--rate", type=float, default=10, help="frames a second of each channel")
    parser.add_argument("--bins", type=int, default=1024)
    parser.add_argument("--seconds", type=int, default=10)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--address", default="127.62.8.2")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    return parser.parse_args()


class Sender:
    def __init__(self, options):
        self.options = options
        self.bins = bytes(range(64)) * (options.bins // 64) + bytes(options.bins % 64)

    def frame(self, channel):
        sent = time.monotonic_ns() // 1000 & 0xFFFFFFFF
        return HEADER.pack(0, channel & 0xFF, 1000 + channel, 215, sent, self.options.bins, -100, 96000, -170, 0, 8, 0,
                           0, 2 * self.options.bins) + self.bins

    async def serve(self, client, _path):
        due = time.monotonic()
        try:
            while True:
                for channel in range(self.options.channels):
                    await client.send(self.frame(channel))
                due += 1 / self.options.rate
                await asyncio.sleep(max(0, due - time.monotonic()))
        except websockets.ConnectionClosed:
            pass


async def measure(options, is_bare):
    words = ["--address", options.address, "--seconds", str(options.seconds)] + ["--bare"] * is_bare
    process = await asyncio.create_subprocess_exec(options.bench, *words, stdout=asyncio.subprocess.PIPE)
    output, _ = await process.communicate()
    result = json.loads(output)
    expected = options.channels * options.rate * result["seconds"]
    if process.returncode or abs(result["frames"] - expected) > 2 * options.channels + 0.02 * expected:
        sys.exit("%d frames came where %d were sent" % (result["frames"], expected))
    return result


async def main():
    options = parse_options()
    random.seed(options.seed)
    results = {"bare QWebSocket": [], "ZcrStreamAdapter": []}
    async with websockets.serve(Sender(options).serve, options.address, PORT, compression=None, ping_interval=None,
                                close_timeout=1):
        for _ in range(options.rounds):
            names = list(results)
            random.shuffle(names)
            for name in names:
                results[name].append(await measure(options, name.startswith("bare")))
    print("seed %d, %d channels x %g frames/s x %d bins, %d rounds of %d s" %
          (options.seed, options.channels, options.rate, options.bins, options.rounds, options.seconds))
    print("| receiver | CPU, % of a core | median, ms | 99th percentile, ms | longest, ms |\n|---|---|---|---|---|")
    for name, rounds in results.items():
        median = {key: statistics.median(each[key] for each in rounds) for key in ("cpu", "median", "p99")}
        print("| %s | %.2f | %.3f | %.3f | %.1f |" % (name, 100 * median["cpu"], median["median"], median["p99"],
                                                      max(each["longest"] for each in rounds)))


if __name__ == "__main__":
    asyncio.run(main())
