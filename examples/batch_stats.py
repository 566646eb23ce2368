#!/usr/bin/python3
"""Height parameters of every Pelrix image under a folder, one CSV row per file.

The columns are the keys of kiv stats --json (file, level, count, excluded, mean, median, min,
max, Sa, Sq, Ssk, Sku, Sp, Sv, Sz, Sdq, Sdr, area, z_unit), except that the pixel size is two
columns, pixel_size_x and pixel_size_y, in metres; an unknown value is an empty cell. The work
runs on Dask: a LocalCluster on this machine by default, or any running Dask scheduler given by
address, unchanged:

    PYTHONPATH=build/python examples/batch_stats.py scans/ stats.csv --level rows:mediandiff+plane
    examples/batch_stats.py scans/ stats.csv --z-unit nm --scheduler tcp://head-node:8786

Every worker must be able to import kiv and read the input folder. Each failure is reported on
one line; the other files go on. The exit status is 1 when any file failed, 2 for a usage error.
"""

import argparse
import csv
import os
import sys
import time

from dask_batch import add_cluster_options, check_workers, dask_client

COLUMNS = ["file", "level", "count", "excluded", "mean", "median", "min", "max", "Sa", "Sq",
           "Ssk", "Sku", "Sp", "Sv", "Sz", "Sdq", "Sdr", "area", "z_unit", "pixel_size_x",
           "pixel_size_y"]


def analyse(source, request):
    """(CSV row, None) for the file's figures, or (None, the one-line failure)."""
    import kiv

    try:
        # One call that lets go of the GIL: reading, levelling and the figures are kiv's.
        with kiv.open(source) as data:
            figures = data.stats(**request)
    except (kiv.Error, OSError, ValueError) as error:
        return None, str(error)
    pixel = figures.pop("pixel_size") or (None, None)
    figures["pixel_size_x"], figures["pixel_size_y"] = pixel
    return figures, None


def find_work(input_folder):
    """Every .flt file below input_folder, in a stable order."""
    found = []
    for root, _, names in os.walk(input_folder):
        found.extend(os.path.join(root, name) for name in names if name.lower().endswith(".flt"))
    return sorted(found)


def analyse_many(sources, request):
    """analyse() over a chunk of files; return [(source, row, failure)]."""
    return [(source, *analyse(source, request)) for source in sources]


def run(input_folder, request, client, chunk=None):
    """Analyse everything; return (rows in file order, failures as one line each).

    Files go to the workers in chunks: one task per small file would cost the scheduler more
    than the analysis itself.
    """
    from dask.distributed import as_completed

    sources = find_work(input_folder)
    if chunk is None:
        workers = max(1, len(client.scheduler_info().get("workers", {})))
        chunk = max(1, min(64, len(sources) // (4 * workers)))
    chunks = [sources[start:start + chunk] for start in range(0, len(sources), chunk)]
    futures = client.map(analyse_many, chunks, request=request, pure=False)
    rows, failures = {}, []
    for future in as_completed(futures):
        for source, row, problem in future.result():
            if problem is None:
                rows[source] = row
            else:
                failures.append(problem if source in problem else f"{source}: {problem}")
    return [rows[source] for source in sorted(rows)], sorted(failures)


def write_table(path, rows):
    """The CSV under a temporary name beside path, renamed when complete: floats as repr writes
    them, so that every figure reads back to the same double."""
    partial = f"{path}.partial"
    with open(partial, "w", newline="", encoding="utf-8") as stream:
        writer = csv.DictWriter(stream, fieldnames=COLUMNS)
        writer.writeheader()
        writer.writerows(rows)
    os.replace(partial, path)


def check_request(request):
    """A levelling kiv does not know is a usage error, found before any work starts; a client
    without kiv leaves the check to the workers."""
    try:
        import kiv
        import numpy
    except ImportError:
        return None
    try:
        kiv.level(numpy.zeros((1, 1), numpy.float32), request["level"])
    except ValueError as error:
        return str(error)
    return None


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("input", help="folder searched for .flt files")
    parser.add_argument("output", help="CSV file receiving one row per file")
    parser.add_argument("--level", default="plane",
                        help="levelling before the figures, as kiv stats takes it (default plane)")
    parser.add_argument("--z-unit", help="height unit of files whose header gives none, e.g. nm")
    parser.add_argument("--exclude-above", type=float, help="leave out heights above this")
    parser.add_argument("--exclude-below", type=float, help="leave out heights below this")
    parser.add_argument("--exclude-above-percentile", type=float,
                        help="leave out heights above this percentile (0 to 100)")
    add_cluster_options(parser)
    arguments = parser.parse_args()
    request = {"level": arguments.level, "z_unit": arguments.z_unit,
               "exclude_above": arguments.exclude_above,
               "exclude_below": arguments.exclude_below,
               "exclude_above_percentile": arguments.exclude_above_percentile}
    problem = check_request(request)
    if problem:
        parser.error(problem)

    with dask_client(arguments) as client:
        if not check_workers(client):
            return 1
        started = time.monotonic()
        rows, failures = run(arguments.input, request, client)
        seconds = time.monotonic() - started
    write_table(arguments.output, rows)
    for failure in failures:
        print(failure, file=sys.stderr)
    rate = (len(rows) + len(failures)) / seconds if seconds > 0 else 0.0
    print(f"{len(rows)} files analysed, {len(failures)} failed, {rate:.1f} files/s")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
