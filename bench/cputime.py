#!/usr/bin/env python3
"""CPU time of whole processes, side by side: runs each named command once
per round, in turn, so that all of them meet the same load on a shared
machine, and prints per command the median over the rounds of user + system
CPU seconds (from wait4, microsecond resolution). Used by compare-peers.sh.
(Not the peak resident size: a child started from this process reports at
least this interpreter's own.)

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
    return usage.ru_utime + usage.ru_stime


def main():
    rounds = int(sys.argv[1])
    commands = [entry.split("=", 1) for entry in sys.argv[2:]]
    times = {name: [] for name, _ in commands}
    for _ in range(rounds):
        for name, line in commands:
            times[name].append(cpu_seconds(shlex.split(line)))
    for name, _ in commands:
        print(f"{name} {statistics.median(times[name]):.6f}")


if __name__ == "__main__":
    main()
