#!/usr/bin/env python3
"""CPU time of whole processes, side by side: runs each named command once
per round, in turn, so that all of them meet the same load on a shared
machine, and prints per command the median over the rounds of user + system
CPU seconds (from wait4, microsecond resolution) and the largest peak
resident size in KiB. Used by compare-peers.sh.

usage: cputime.py ROUNDS NAME=COMMAND [NAME=COMMAND...]
The command is split like a shell line (no pipes); its output is discarded.
"""
import os
import shlex
import statistics
import subprocess
import sys


def cpu_seconds(argv):
    with open(os.devnull, "wb") as null:
        child = subprocess.Popen(argv, stdout=null, stderr=null, stdin=subprocess.DEVNULL)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"failed ({child.returncode}): {shlex.join(argv)}")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss


def main():
    rounds = int(sys.argv[1])
    commands = [entry.split("=", 1) for entry in sys.argv[2:]]
    times = {name: [] for name, _ in commands}
    peaks = {name: 0 for name, _ in commands}
    for _ in range(rounds):
        for name, line in commands:
            seconds, peak = cpu_seconds(shlex.split(line))
            times[name].append(seconds)
            peaks[name] = max(peaks[name], peak)
    for name, _ in commands:
        print(f"{name} {statistics.median(times[name]):.6f} {peaks[name]}")


if __name__ == "__main__":
    main()
