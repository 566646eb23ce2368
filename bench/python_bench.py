#!/usr/bin/python3
"""Speed of the Python module, as ratios against plain-Python baselines timed in the same run.

  1. kiv.open(p).image of a 4096 x 4096 image vs a function that parses the header and calls
     numpy.fromfile (target: at most 1.1 x).
  2. examples/batch_to_npy.py over 2000 files of 256 x 256 on a 2-worker LocalCluster vs a
     loop of shutil.copyfile over the same files (target: at least 0.5 x its files/s).

Needs kiv importable (PYTHONPATH=BUILD/python). Prints each ratio; a missed target is only
reported.
"""

import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import numpy

import kiv

ROOT = pathlib.Path(__file__).resolve().parents[1]
TEMPLATE = ROOT / "samples" / "topography_128.flt"
# Longer than the host takes to reclaim freed memory and than ext4 counts a deletion as recent.
SETTLE_SECONDS = 6


def make_image(path, size, generator):
    """The sample file's header made to describe a size x size image, with random samples."""
    head = TEMPLATE.read_bytes()[:4096]
    text = head.rstrip(b"\0")
    for key in (b"ResolutionX", b"ResolutionY"):
        text = text.replace(key + b"=128", key + b"=" + str(size).encode())
    header = text + b"\0" * (len(head) - len(text))
    assert len(header) == 4096
    samples = generator.standard_normal(size * size).astype("<f4")
    path.write_bytes(header + samples.tobytes())


def read_by_hand(path):
    """What a user would write without the module: the header's numbers, then fromfile."""
    with open(path, "rb") as stream:
        head = stream.read(8192).decode("latin-1")
    offset = int(re.search(r"DataOffset=\s*(\d+)", head).group(1))
    columns = int(re.search(r"ResolutionX=\s*(\d+)", head).group(1))
    rows = int(re.search(r"ResolutionY=\s*(\d+)", head).group(1))
    return numpy.fromfile(path, dtype="<f4", offset=offset, count=rows * columns).reshape(
        rows, columns)


def paired_median(first, second, rounds):
    """Median seconds of each, the two alternated so that both see the same machine. Which goes
    first alternates too: the second of a round gets the memory the first just gave back, and
    on a virtual machine memory touched a moment ago can be much faster than other memory."""
    times = ([], [])
    for round_number in range(rounds):
        order = ((0, first), (1, second)) if round_number % 2 == 0 else ((1, second), (0, first))
        for index, work in order:
            started = time.perf_counter()
            work()
            times[index].append(time.perf_counter() - started)
    return statistics.median(times[0]), statistics.median(times[1])


def bench_image(folder):
    path = folder / "image_4096.flt"
    make_image(path, 4096, numpy.random.default_rng(1))
    assert numpy.array_equal(kiv.open(str(path)).image, read_by_hand(path))
    module, baseline = paired_median(lambda: kiv.open(str(path)).image,
                                     lambda: read_by_hand(path), rounds=16)
    ratio = module / baseline
    print(f"kiv.open(p).image 4096x4096: {module * 1e3:.1f} ms, header + numpy.fromfile "
          f"{baseline * 1e3:.1f} ms, ratio {ratio:.2f} x (target <= 1.10) "
          f"{'ok' if ratio <= 1.1 else 'MISSED'}")


def copy_rate(files, target):
    """Files per second of a plain loop of shutil.copyfile into target."""
    target.mkdir()
    started = time.perf_counter()
    for path in files:
        shutil.copyfile(path, target / path.name)
    return len(files) / (time.perf_counter() - started)


def example_rate(source, target):
    """Files per second that examples/batch_to_npy.py reports for source."""
    result = subprocess.run([sys.executable, str(ROOT / "examples" / "batch_to_npy.py"),
                             str(source), str(target), "--workers", "2"],
                            capture_output=True, text=True, check=True)
    return float(re.search(r"([\d.]+) files/s", result.stdout).group(1))


def bench_batch(folder, count=2000, rounds=3):
    source = folder / "batch_in"
    source.mkdir()
    generator = numpy.random.default_rng(2)
    for index in range(count):
        make_image(source / f"scan_{index:04d}.flt", 256, generator)
    files = sorted(source.iterdir())
    # Paired rounds, each side's outputs removed before the other runs, and the order
    # alternated: how fast new files can be written here depends on what was written and freed
    # just before. Each side also starts from a settled machine (synced, then idle for some
    # seconds): memory freed a moment ago is written faster than memory the host has taken
    # back, and the example only starts converting after the seconds its Python and Dask take
    # to start, so without the pause the copy loop alone would write into just-freed memory.
    rates = ([], [])
    for round_number in range(rounds):
        sides = [(0, lambda out: copy_rate(files, out)),
                 (1, lambda out: example_rate(source, out))]
        if round_number % 2:
            sides.reverse()
        for index, run in sides:
            output = folder / f"out_{index}"
            os.sync()
            time.sleep(SETTLE_SECONDS)
            rates[index].append(run(output))
            shutil.rmtree(output)
    copied, converted = statistics.median(rates[0]), statistics.median(rates[1])
    ratio = converted / copied
    print(f"batch_to_npy {count} x 256x256, 2 workers: {converted:.0f} files/s, "
          f"shutil.copyfile loop {copied:.0f} files/s (medians of {rounds} paired rounds), "
          f"ratio {ratio:.2f} x (target >= 0.50) {'ok' if ratio >= 0.5 else 'MISSED'}")


def main():
    with tempfile.TemporaryDirectory(prefix="kiv-python-bench-") as folder:
        bench_image(pathlib.Path(folder))
        bench_batch(pathlib.Path(folder))
    return 0


if __name__ == "__main__":
    sys.exit(main())
