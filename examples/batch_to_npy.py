#!/usr/bin/python3
"""Convert every Pelrix file under a folder to .npy (image or force curves) and .json (header).

The work runs on Dask: a LocalCluster on this machine by default, or any running Dask
scheduler given by address, unchanged:

    PYTHONPATH=build/python examples/batch_to_npy.py scans/ out/
    examples/batch_to_npy.py scans/ out/ --scheduler tcp://head-node:8786

Every worker must be able to import kiv and read the input folder and write the output one.
Each failure is reported on one line; the other files go on. The exit status is 1 when any
file failed.
"""

import argparse
import os
import sys
import time

from dask_batch import add_cluster_options, check_workers, dask_client


def convert(source, target_stem, folders_made):
    """Write target_stem.npy and target_stem.json; return None, or the one-line failure.

    folders_made holds the output folders already created, so that each is made once.
    """
    import kiv

    try:
        folder = os.path.dirname(target_stem) or "."
        if folder not in folders_made:
            os.makedirs(folder, exist_ok=True)
            folders_made.add(folder)
        with kiv.open(source) as data:
            # The module writes both files itself, each in one call that lets go of the GIL:
            # the samples (image or curves) as .npy, the header as kiv export writes it in json
            # (numbers as numbers, a value with a unit as {"value": ..., "unit": ...}).
            data.export(target_stem + ".npy", "npy", overwrite=True)
            data.export(target_stem + ".json", "json", overwrite=True)
        return None
    except (kiv.Error, OSError) as error:
        return str(error)


def find_work(input_folder, output_folder):
    """(source, target stem) for every .flt file below input_folder, in a stable order; the
    stem keeps the file's place below the input folder."""
    found = []
    for root, _, names in os.walk(input_folder):
        target_folder = os.path.normpath(
            os.path.join(output_folder, os.path.relpath(root, input_folder)))
        found.extend((os.path.join(root, name), os.path.join(target_folder, name[:-4]))
                     for name in names if name.lower().endswith(".flt"))
    return sorted(found)


def convert_many(pairs):
    """convert() over a chunk of (source, target stem); return [(source, failure or None)]."""
    folders_made = set()
    return [(source, convert(source, stem, folders_made)) for source, stem in pairs]


def run(input_folder, output_folder, client, chunk=None):
    """Convert everything; return (done, failures) with failures as one line each.

    Files go to the workers in chunks: one task per small file would cost the scheduler more
    than the conversion itself.
    """
    from dask.distributed import as_completed

    pairs = find_work(input_folder, output_folder)
    if chunk is None:
        workers = max(1, len(client.scheduler_info().get("workers", {})))
        chunk = max(1, min(64, len(pairs) // (4 * workers)))
    chunks = [pairs[start:start + chunk] for start in range(0, len(pairs), chunk)]
    futures = client.map(convert_many, chunks, pure=False)
    done, failures = 0, []
    for future in as_completed(futures):
        for source, problem in future.result():
            if problem is None:
                done += 1
            else:
                failures.append(problem if source in problem else f"{source}: {problem}")
    return done, failures


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("input", help="folder searched for .flt files")
    parser.add_argument("output", help="folder receiving the .npy and .json files")
    add_cluster_options(parser)
    arguments = parser.parse_args()

    with dask_client(arguments) as client:
        if not check_workers(client):
            return 1
        started = time.monotonic()
        done, failures = run(arguments.input, arguments.output, client)
        seconds = time.monotonic() - started
    for failure in failures:
        print(failure, file=sys.stderr)
    rate = (done + len(failures)) / seconds if seconds > 0 else 0.0
    print(f"{done} files done, {len(failures)} failed, {rate:.1f} files/s")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
