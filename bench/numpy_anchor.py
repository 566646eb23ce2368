#!/usr/bin/python3
"""The numpy anchors of the Pelrix benchmarks.

  numpy_anchor.py open PATH ROUNDS   median ms, timed inside Python, of parsing the header and
                                     reading the samples with numpy.fromfile
  numpy_anchor.py info PATH          the same once, then minimum, maximum, mean and RMS
                                     roughness, as a whole process is timed against `kiv info`
"""
import re
import statistics
import sys
import time

import numpy

HEADER_LIMIT = 1 << 20


def header_number(header, key):
    match = re.search(rb"^" + key + rb"=\s*(-?\d+)", header, re.MULTILINE)
    if not match:
        raise SystemExit(f"numpy_anchor.py: no {key.decode()} in the header")
    return int(match.group(1))


def read_image(path):
    with open(path, "rb") as stream:
        header = stream.read(HEADER_LIMIT).split(b"[Data]", 1)[0]
        width = header_number(header, rb"ResolutionX")
        height = header_number(header, rb"ResolutionY")
        offset = header_number(header, rb"DataOffset")
        stream.seek(0)
        samples = numpy.fromfile(stream, dtype="<f4", count=width * height, offset=offset)
    return samples.reshape(height, width)


def time_open(path, rounds):
    read_image(path)
    times = []
    for _ in range(rounds):
        start = time.perf_counter()
        image = read_image(path)
        times.append((time.perf_counter() - start) * 1e3)
        del image
    print(f"{statistics.median(times):.3f}")


def info(path):
    image = read_image(path)
    mean = image.mean(dtype=numpy.float64)
    rms = numpy.sqrt(numpy.mean(numpy.square(image - mean, dtype=numpy.float64)))
    print(f"Minimum: {image.min():g}\nMaximum: {image.max():g}\nMean: {mean:g}\nRMS: {rms:g}")


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[1] == "open":
        time_open(sys.argv[2], int(sys.argv[3]))
    elif len(sys.argv) == 3 and sys.argv[1] == "info":
        info(sys.argv[2])
    else:
        raise SystemExit(__doc__)
