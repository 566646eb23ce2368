#!/usr/bin/python3
"""Times whole processes: whole_process.py ROUNDS 'COMMAND A' ['COMMAND B'].

Runs the commands in turn (A B A B ...) after one warm-up of each, output thrown away, and
prints "A_MS A_PEAK_MB [B_MS B_PEAK_MB RATIO]": median wall-clock milliseconds, the largest
peak resident memory of any round in MB (10^6 bytes), and the median of the rounds' own A/B
ratios, which a burst of load on a shared machine moves less than a ratio of totals.
"""
import os
import shlex
import statistics
import subprocess
import sys
import time


def run(command):
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    elapsed = (time.perf_counter() - start) * 1e3
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise SystemExit(f"whole_process.py: {shlex.join(command)} failed ({process.returncode})")
    return elapsed, usage.ru_maxrss * 1024 / 1e6


def main():
    if len(sys.argv) not in (3, 4):
        raise SystemExit(__doc__)
    rounds = int(sys.argv[1])
    commands = [shlex.split(text) for text in sys.argv[2:]]
    for command in commands:
        run(command)
    times = [[] for _ in commands]
    peaks = [0.0 for _ in commands]
    for _ in range(rounds):
        for index, command in enumerate(commands):
            elapsed, peak = run(command)
            times[index].append(elapsed)
            peaks[index] = max(peaks[index], peak)
    fields = []
    for index in range(len(commands)):
        fields += [f"{statistics.median(times[index]):.1f}", f"{peaks[index]:.1f}"]
    if len(commands) == 2:
        fields.append(f"{statistics.median(a / b for a, b in zip(*times)):.3f}")
    print(" ".join(fields))


if __name__ == "__main__":
    main()
