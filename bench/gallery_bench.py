#!/usr/bin/python3
"""Times kiv gallery against kiv export --to png of the same scans, whole processes:
gallery_bench.py ROUNDS KIV SCANS WORK.

Each round, in an order that alternates, runs `kiv export SCANS/*.flt --to png -j 2` into an
empty folder and `kiv gallery SCANS -o OUT -j 2` into an absent OUT, then the gallery again over
the same OUT with nothing changed. The outputs are removed outside the timing. One warm-up of
each comes first. Prints "EXPORT_S GALLERY_S RERUN_S GALLERY_RATIO RERUN_RATIO": median seconds,
and the medians of the rounds' own gallery/export and rerun/export ratios.
"""
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import time


def seconds(command):
    start = time.perf_counter()
    completed = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    elapsed = time.perf_counter() - start
    if completed.returncode != 0:
        raise SystemExit(f"gallery_bench.py: {' '.join(command[:3])} ... failed "
                         f"({completed.returncode}): {completed.stderr.decode(errors='replace')}")
    return elapsed


def fresh(folder):
    shutil.rmtree(folder, ignore_errors=True)
    # The deletions reach the disk now, not during the next timed run.
    os.sync()


def main():
    if len(sys.argv) != 5:
        raise SystemExit(__doc__)
    rounds = int(sys.argv[1])
    kiv = sys.argv[2]
    scans = pathlib.Path(sys.argv[3])
    work = pathlib.Path(sys.argv[4])
    inputs = sorted(str(path) for path in scans.glob("*.flt"))
    pngs = work / "pngs"
    gallery = work / "gallery"

    def export():
        fresh(pngs)
        pngs.mkdir(parents=True)
        return seconds([kiv, "export", *inputs, "--to", "png", "-j", "2", "-d", str(pngs)])

    def make_gallery():
        fresh(gallery)
        first = seconds([kiv, "gallery", str(scans), "-o", str(gallery), "-j", "2"])
        return first, seconds([kiv, "gallery", str(scans), "-o", str(gallery), "-j", "2"])

    export()
    make_gallery()
    exports, galleries, reruns = [], [], []
    for round_ in range(rounds):
        if round_ % 2 == 0:
            exports.append(export())
            first, rerun = make_gallery()
        else:
            first, rerun = make_gallery()
            exports.append(export())
        galleries.append(first)
        reruns.append(rerun)
    fresh(pngs)
    fresh(gallery)
    print(f"{statistics.median(exports):.3f} {statistics.median(galleries):.3f} "
          f"{statistics.median(reruns):.3f} "
          f"{statistics.median(g / e for g, e in zip(galleries, exports)):.3f} "
          f"{statistics.median(r / e for r, e in zip(reruns, exports)):.3f}")


if __name__ == "__main__":
    main()
