"""What the batch examples share: the Dask cluster they run on (a LocalCluster on this machine or
a running scheduler) and the check that every worker can import kiv before the work starts."""
import contextlib
import sys


def add_cluster_options(parser):
    parser.add_argument("--scheduler", help="address of a running Dask scheduler "
                        "(default: a LocalCluster on this machine)")
    parser.add_argument("--workers", type=int, default=2, help="LocalCluster workers (default 2)")
    parser.add_argument("--processes", action="store_true",
                        help="LocalCluster workers as processes rather than threads of this one")


def worker_ready():
    """Import what the work needs on a worker; return the error text when it cannot."""
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


@contextlib.contextmanager
def dask_client(arguments):
    """A client of the scheduler named by --scheduler, or of a LocalCluster of its own."""
    import cloudpickle
    import dask
    from dask.distributed import Client, LocalCluster

    # Workers of a running scheduler need not have this file: its functions travel by value.
    cloudpickle.register_pickle_by_value(sys.modules[__name__])
    cluster = None
    if arguments.scheduler:
        client = Client(arguments.scheduler)
    else:
        # kiv lets go of the GIL while it works, so threads of one process work side by side
        # without shipping every result between processes. Each worker would also sample the
        # stacks of its threads every 10 ms for Dask's profile, taking the GIL from the work;
        # tasks this uniform need no profile.
        dask.config.set({"distributed.worker.profile.enabled": False})
        cluster = LocalCluster(n_workers=arguments.workers, threads_per_worker=1,
                               processes=arguments.processes, dashboard_address=None)
        client = Client(cluster)
    try:
        yield client
    finally:
        client.close()
        if cluster is not None:
            cluster.close()
