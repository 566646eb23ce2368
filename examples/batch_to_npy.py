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


def worker_ready():
    """Import what a conversion needs on a worker; return the error text when it cannot."""
    try:
        import kiv  # noqa: F401
    except ImportError as error:
        return str(error)
    return None


def check_workers(client):
    """Every worker imports kiv once before the work starts: a worker that cannot is named at
    once, rather than failing every file sent to it, and the imports are not counted as work."""
    problems = {worker: problem for worker, problem in client.run(worker_ready).items() if problem}
    for worker, problem in sorted(problems.items()):
        print(f"worker {worker}: {problem}", file=sys.stderr)
    return not problems


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
    parser.add_argument("--scheduler", help="address of a running Dask scheduler "
                        "(default: a LocalCluster on this machine)")
    parser.add_argument("--workers", type=int, default=2, help="LocalCluster workers (default 2)")
    parser.add_argument("--processes", action="store_true",
                        help="LocalCluster workers as processes rather than threads of this one")
    arguments = parser.parse_args()

    import dask
    from dask.distributed import Client, LocalCluster

    cluster = None
    if arguments.scheduler:
        client = Client(arguments.scheduler)
    else:
        # kiv lets go of the GIL while it reads and writes, so threads of one process
        # convert side by side without shipping every result between processes. Each worker
        # would also sample the stacks of its threads every 10 ms for Dask's profile, taking
        # the GIL from the conversions; tasks this uniform need no profile.
        dask.config.set({"distributed.worker.profile.enabled": False})
        cluster = LocalCluster(n_workers=arguments.workers, threads_per_worker=1,
                               processes=arguments.processes, dashboard_address=None)
        client = Client(cluster)
    try:
        if not check_workers(client):
            return 1
        started = time.monotonic()
        done, failures = run(arguments.input, arguments.output, client)
        seconds = time.monotonic() - started
    finally:
        client.close()
        if cluster is not None:
            cluster.close()
    for failure in failures:
        print(failure, file=sys.stderr)
    rate = (done + len(failures)) / seconds if seconds > 0 else 0.0
    print(f"{done} files done, {len(failures)} failed, {rate:.1f} files/s")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
