#!/usr/bin/env python3
"""Merges the same mono files by NvxWavMerger, a plain loop, sox, ffmpeg and cat, in turns, on a tmpfs.

Usage: compare_merge.py BENCH_MERGE [--channels 4] [--minutes 10] [--rounds 5] [--folder /dev/shm]

Each round runs every peer once, in random order, and deletes its output. The table holds medians, with the
merger's time as a part of the peer's. The outputs of the merger, the plain loop, sox and ffmpeg are compared
by their samples in a run of one minute ahead of the measurement.
"""
import argparse
import hashlib
import os
import random
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path


def parse_options():
    parser = argparse.ArgumentParser()
    parser.add_argument("bench", help="path of bench_merge")
    parser.add_argument("--channels", type=int, default=4)
    parser.add_argument("--minutes", type=int, default=10)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--folder", default="/dev/shm")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    return parser.parse_args()


def make_inputs(options, folder, minutes):
    folder.mkdir()
    subprocess.run([options.bench, "make", folder, "--channels", str(options.channels), "--minutes", str(minutes)],
                   check=True)
    return sorted(folder.glob("REC*.wav"))


def commands(options, inputs, out, minutes):
    """Peer -> command line. The first two measure themselves, without the start of their process."""
    streams = "".join(f"[{i}:a]" for i in range(len(inputs)))
    listed = [part for path in inputs for part in ("-i", path)]
    own = [inputs[0].parent, out, "--minutes", str(minutes)]
    return {
        "merger": [options.bench, "merger", *own],
        "plain loop": [options.bench, "plain", *own],
        "sox": ["sox", "-M", *inputs, out / "sox.wav"],
        "ffmpeg": ["ffmpeg", "-v", "error", "-y", *listed, "-filter_complex", f"{streams}amerge=inputs={len(inputs)}",
                   "-c:a", "pcm_s24le", out / "ffmpeg.wav"],
        "cat": ["sh", "-c", 'out=$1; shift; exec cat "$@" >"$out"', "cat", out / "cat.raw", *inputs],
    }


def run(command):
    """(wall seconds, CPU seconds, MiB at most) of one command."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    done = subprocess.run([str(part) for part in command], check=True, stdout=subprocess.PIPE, text=True)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.stdout:
        return tuple(float(word) for word in done.stdout.split())
    return wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime, None


def samples_digest(path):
    """Digest of the samples of a wave file, or of all bytes of another."""
    bytes_ = path.read_bytes()
    if path.suffix == ".wav":
        at = 12
        while bytes_[at:at + 4] != b"data":
            at += 8 + int.from_bytes(bytes_[at + 4:at + 8], "little")
        bytes_ = bytes_[at + 8:at + 8 + int.from_bytes(bytes_[at + 4:at + 8], "little")]
    return hashlib.sha256(bytes_).hexdigest()


def compare_samples(options, folder):
    """The peers make the same, or their times mean nothing."""
    inputs = make_inputs(options, folder / "short", 1)
    digests = {}
    for peer, command in commands(options, inputs, folder / "short-out", 1).items():
        if peer == "cat":
            continue
        out = folder / "short-out"
        out.mkdir()
        run(command)
        made = [path for path in out.iterdir() if path.suffix in (".wav", ".raw")]
        digests[peer] = samples_digest(made[0])
        shutil.rmtree(out)
    shutil.rmtree(folder / "short")
    if len(set(digests.values())) != 1:
        sys.exit(f"the peers disagree: {digests}")


def main():
    options = parse_options()
    random.seed(options.seed)
    folder = Path(tempfile.mkdtemp(prefix="bench_merge_", dir=options.folder))
    try:
        compare_samples(options, folder)
        inputs = make_inputs(options, folder / "in", options.minutes)
        size = sum(path.stat().st_size for path in inputs)
        results = {}
        for _ in range(options.rounds):
            out = folder / "out"
            turns = list(commands(options, inputs, out, options.minutes).items())
            random.shuffle(turns)
            for peer, command in turns:
                out.mkdir()
                results.setdefault(peer, []).append(run(command))
                shutil.rmtree(out)
        report(options, size, results)
    finally:
        shutil.rmtree(folder)


def report(options, size, results):
    print(f"{options.channels} files of {options.minutes} min, {size / 1e6:.0f} MB, {options.rounds} rounds, "
          f"seed {options.seed}, load {os.getloadavg()[0]:.1f}")
    merger = [statistics.median(column) for column in list(zip(*results["merger"]))[:2]]
    print("| peer | s | MB/s | CPU s | merger's time by the peer's | by CPU time | MiB |")
    for peer in ("merger", "plain loop", "sox", "ffmpeg", "cat"):
        rounds = results[peer]
        wall = statistics.median(each[0] for each in rounds)
        cpu = statistics.median(each[1] for each in rounds)
        memory = max((each[2] for each in rounds if each[2]), default=None)
        print(f"| {peer} | {wall:.2f} | {size / 1e6 / wall:.0f} | {cpu:.2f} | {merger[0] / wall:.2f} "
              f"| {merger[1] / cpu:.2f} | {f'{memory:.0f}' if memory else ''} |")


if __name__ == "__main__":
    main()
