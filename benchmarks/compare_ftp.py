#!/usr/bin/env python3
"""Fetches the same file by QFtp and by curl from the same vsftpd, in turns, on a tmpfs.

Usage: compare_ftp.py BENCH_FTP [--mib 1024] [--rounds 7] [--folder /dev/shm] [--address 127.62.8.1]

Each round runs both once, in random order, and deletes what they made; the first round of each is compared with
the file and not counted. The table holds medians; memory is the most of any round.
"""
import argparse
import filecmp
import os
import random
import socket
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SETTINGS = """\
listen=YES
listen_ipv6=NO
listen_address={address}
listen_port={port}
anon_root={root}
secure_chroot_dir={empty}
background=NO
run_as_launching_user=YES
seccomp_sandbox=NO
isolate=NO
isolate_network=NO
anonymous_enable=YES
local_enable=NO
anon_world_readable_only=NO
connect_from_port_20=NO
xferlog_enable=NO
"""


def parse_options():
    parser = argparse.ArgumentParser()
    parser.add_argument("bench", help="path of bench_ftp")
    parser.add_argument("--mib", type=int, default=1024)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--folder", default="/dev/shm")
    parser.add_argument("--address", default="127.62.8.1")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    return parser.parse_args()


def free_port(address):
    with socket.socket() as probe:
        probe.bind((address, 0))
        return probe.getsockname()[1]


def start_server(options, folder, port=None):
    port = port or free_port(options.address)
    (folder / "root").mkdir()
    (folder / "empty").mkdir()
    settings = folder / "vsftpd.conf"
    settings.write_text(SETTINGS.format(address=options.address, port=port, root=folder / "root", empty=folder / "empty"))
    server = subprocess.Popen(["/usr/sbin/vsftpd", settings], stdin=subprocess.DEVNULL)
    for _ in range(100):
        try:
            socket.create_connection((options.address, port), 1).close()
            return server, port
        except OSError:
            if server.poll() is not None:
                break
            time.sleep(0.1)
    sys.exit("vsftpd doesn't listen")


def make_file(path, mib):
    block = random.randbytes(1 << 20)
    with open(path, "wb") as file:
        for i in range(mib):
            file.write(i.to_bytes(8, "little") + block[8:])


def run(command):
    """(wall seconds, CPU seconds, MiB at most) of one command; its own figures where it prints some."""
    start = time.perf_counter()
    with subprocess.Popen([str(part) for part in command], stdout=subprocess.PIPE, text=True) as child:
        out = child.stdout.read()
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
    wall = time.perf_counter() - start
    if child.returncode != 0:
        sys.exit(f"{command[0]} failed")
    if out:
        return tuple(float(word) for word in out.split())
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def main():
    options = parse_options()
    random.seed(options.seed)
    with tempfile.TemporaryDirectory(prefix="bench_ftp_", dir=options.folder) as name:
        folder = Path(name)
        server, port = start_server(options, folder)
        try:
            source = folder / "root" / "large.wav"
            make_file(source, options.mib)
            into = folder / "into"
            commands = {
                "QFtp": [options.bench, options.address, port, "large.wav", into],
                "curl": ["curl", "--silent", "--show-error", "--noproxy", "*", "--output", into,
                         f"ftp://{options.address}:{port}/large.wav"],
            }
            results = {peer: [] for peer in commands}
            for turn in range(options.rounds + 1):
                for peer, command in random.sample(list(commands.items()), len(commands)):
                    result = run(command)
                    if turn > 0:
                        results[peer].append(result)
                    elif not filecmp.cmp(into, source, shallow=False):
                        sys.exit(f"{peer} has fetched something else")
                    into.unlink()
            report(options, results)
        finally:
            server.terminate()
            server.wait()


def report(options, results):
    megabytes = options.mib * 1.048576
    print(f"{options.mib} MiB, {options.rounds} rounds, seed {options.seed}, load {os.getloadavg()[0]:.1f}")
    print("| client | MB/s | CPU s/GB | most memory, MiB | of curl's rate |")
    print("|---|---|---|---|---|")
    middle = {peer: [statistics.median(column) for column in zip(*rounds)] for peer, rounds in results.items()}
    for peer, rounds in results.items():
        wall, cpu, _ = middle[peer]
        memory = max(each[2] for each in rounds)
        print(f"| {peer} | {megabytes / wall:.0f} | {cpu / megabytes * 1000:.2f} | {memory:.0f} | {middle['curl'][0] / wall:.2f} |")


if __name__ == "__main__":
    main()
