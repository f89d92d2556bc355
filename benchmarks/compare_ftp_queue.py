#!/usr/bin/env python3
"""Fetches the same files by the download queue and by curl from the same vsftpd, in turns, on a tmpfs.

Usage: unshare -rn sh -c 'ip link set lo up; exec python3 compare_ftp_queue.py BENCH_FTP_QUEUE [options]'

The queue asks port 21, hence the network of its own. Each round runs each peer once, in random order, and deletes
what they made; the first round of each is compared with the files and not counted. The table holds medians.
"""
import argparse
import filecmp
import os
import random
import shutil
import statistics
import sys
import tempfile
import time
from pathlib import Path

from compare_ftp import make_file, run, start_server

PORT = 21


def parse_options():
    parser = argparse.ArgumentParser()
    parser.add_argument("bench", help="path of bench_ftp_queue")
    parser.add_argument("--files", type=int, default=200)
    parser.add_argument("--mib", type=int, default=1)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--folder", default="/dev/shm")
    parser.add_argument("--address", default="127.62.8.2")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    return parser.parse_args()


def commands_of(options, folder, names, into):
    url = f"ftp://{options.address}/Data"
    config = folder / "all.curl"
    config.write_text("".join(f'url = "{url}/{name}"\noutput = "{into}/{name}"\n' for name in names))
    list_file = folder / "names"
    list_file.write_text("\n".join(names) + "\n")
    curl = ["curl", "--silent", "--no-progress-meter", "--noproxy", "*"]
    return {
        "download queue, 3 at once": [options.bench, options.address, into, *names],
        "3 curl processes, each a file": ["xargs", "-P", "3", "-I", "{}", "-a", list_file, *curl, "--output", f"{into}/{{}}", f"{url}/{{}}"],
        "curl -Z --parallel-max 4": [*curl, "--parallel", "--parallel-max", "4", "--config", config],
    }


def main():
    options = parse_options()
    random.seed(options.seed)
    with tempfile.TemporaryDirectory(prefix="bench_ftp_queue_", dir=options.folder) as name:
        folder = Path(name)
        server, _ = start_server(options, folder, PORT)
        try:
            data = folder / "root" / "Data"
            data.mkdir()
            names = [f"REC1_20210304_{i:06}.wav" for i in range(options.files)]
            for each in names:
                make_file(data / each, options.mib)
            into = folder / "into"
            commands = commands_of(options, folder, names, into)
            results = {peer: [] for peer in commands}
            for turn in range(options.rounds + 1):
                for peer, command in random.sample(list(commands.items()), len(commands)):
                    into.mkdir()
                    result = run(command)
                    if turn > 0:
                        results[peer].append(result)
                    elif filecmp.cmpfiles(data, into, names, shallow=False)[0] != names:
                        sys.exit(f"{peer} has fetched something else")
                    shutil.rmtree(into)
            report(options, results)
        finally:
            server.terminate()
            server.wait()


def report(options, results):
    print(f"{options.files} files of {options.mib} MiB, {options.rounds} rounds, seed {options.seed}, load {os.getloadavg()[0]:.1f}")
    rates = {peer: options.files / statistics.median(each[0] for each in rounds) for peer, rounds in results.items()}
    own = next(iter(rates.values()))
    print("| client | files/s | the queue's rate beside it |")
    print("|---|---|---|")
    for peer, rate in rates.items():
        print(f"| {peer} | {rate:.0f} | {own / rate:.2f} |")


if __name__ == "__main__":
    main()
