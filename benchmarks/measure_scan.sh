#!/bin/sh
# Times scans of a subnet whose ports are all closed, several runs one after the other:
#   measure_scan.sh BUILD_DIRECTORY [RUNS]
# The limit of descriptors is the usual one of a desktop, whatever the shell's own is.
set -eu
program=$1/benchmarks/bench_subnet_scan
runs=${2:-5}
ulimit -Sn 1024
i=0
while [ "$i" -lt "$runs" ]; do
    "$program"
    i=$((i + 1))
done
