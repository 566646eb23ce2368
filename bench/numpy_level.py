#!/usr/bin/python3
"""The numpy anchor of the surface analysis benchmark: a plane levelling and the height
parameters written the straightforward way, in float64.

  numpy_level.py PATH ROWS COLUMNS ROUNDS

PATH holds ROWS x COLUMNS little-endian float32 samples (kiv_bench_anchor surface writes it).
They are read once; then the levelling and the figures run ROUNDS times on the array in memory,
after one warm-up. Prints two lines: the median milliseconds of a round, then the figures
"mean median minimum maximum Sa Sq Ssk Sku Sp Sv Sz" for a check against the library's.
"""
import statistics
import sys
import time

import numpy


def analyse(image):
    rows, columns = image.shape
    row, column = numpy.indices((rows, columns), dtype=numpy.float64)
    design = numpy.column_stack(
        [numpy.ones(image.size), column.ravel(), row.ravel()])
    heights = image.ravel().astype(numpy.float64)
    (a, bx, by), *_ = numpy.linalg.lstsq(design, heights, rcond=None)
    levelled = heights - (a + bx * column.ravel() + by * row.ravel())

    # Moments divided by N; Sku is the kurtosis itself, not the excess.
    mean = levelled.mean()
    deviation = levelled - mean
    sa = numpy.abs(deviation).mean()
    sq = numpy.sqrt((deviation**2).mean())
    ssk = (deviation**3).mean() / sq**3
    sku = (deviation**4).mean() / sq**4
    minimum = levelled.min()
    maximum = levelled.max()
    sp = maximum - mean
    sv = mean - minimum
    return [mean, numpy.median(levelled), minimum, maximum, sa, sq, ssk, sku, sp, sv, sp + sv]


def main():
    if len(sys.argv) != 5:
        raise SystemExit(__doc__)
    path = sys.argv[1]
    rows, columns, rounds = (int(text) for text in sys.argv[2:])
    image = numpy.fromfile(path, dtype="<f4", count=rows * columns).reshape(rows, columns)
    if image.size != rows * columns:
        raise SystemExit(f"numpy_level.py: {path} holds fewer than {rows} x {columns} samples")
    figures = analyse(image)
    times = []
    for _ in range(rounds):
        start = time.perf_counter()
        figures = analyse(image)
        times.append((time.perf_counter() - start) * 1e3)
    print(f"{statistics.median(times):.3f}")
    print(" ".join(f"{value:.17g}" for value in figures))


if __name__ == "__main__":
    main()
