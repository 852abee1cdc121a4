"""Who calls `run_one`: threads of this process, or the workers of a cluster."""

import concurrent.futures
import importlib
from typing import Any, Callable, Dict, Iterator, List, Tuple

from ._run_one import allow_children, run_one, stop_children

Job = Dict[str, Any]
Results = Iterator[Tuple[int, Dict[str, Any]]]

# Jobs under way for each worker: enough that none waits, few enough that a stop is soon.
_AHEAD = 4


def local(
    jobs: List[Tuple[int, Job]], workers: int, late: List[Tuple[int, Dict[str, Any]]]
) -> Results:
    """A thread for each worker, which waits for one process at a time.

    late: gets the rows that were done, and not given out, when the batch is stopped.
    """
    allow_children()
    waiting = iter(jobs)
    under_way: Dict["concurrent.futures.Future[Dict[str, Any]]", int] = {}
    pool = concurrent.futures.ThreadPoolExecutor(workers, thread_name_prefix="povmesh-batch")
    try:
        while True:
            for index, job in waiting:
                under_way[pool.submit(run_one, job)] = index
                if len(under_way) >= _AHEAD * workers:
                    break
            if not under_way:
                return
            done, _ = concurrent.futures.wait(under_way, return_when="FIRST_COMPLETED")
            for future in done:
                index = under_way[future]
                row = future.result()
                del under_way[future]
                yield index, row
    except BaseException:
        stop_children()
        pool.shutdown(wait=True, cancel_futures=True)
        for future, index in under_way.items():
            if not future.cancelled() and future.exception() is None:
                late.append((index, future.result()))
        raise
    finally:
        pool.shutdown(wait=True, cancel_futures=True)


def cluster(jobs: List[Tuple[int, Job]], scheduler: Any, load: Callable[[Job], Job]) -> Results:
    """The workers of a Dask scheduler, given by its address or a client.

    A worker that dies costs another try; a job whose workers die is "lost", and the rest goes on.
    """
    try:
        distributed: Any = importlib.import_module("distributed")
    except ImportError:
        raise ImportError(
            "povmesh.batch: a scheduler needs distributed; pip install distributed"
        ) from None
    is_own = isinstance(scheduler, str)
    client = distributed.Client(scheduler, set_as_default=False) if is_own else scheduler
    try:
        workers = max(1, sum(client.nthreads().values()))
        waiting = iter(jobs)
        under_way: Dict[str, Tuple[int, Job]] = {}
        futures = distributed.as_completed([], loop=client.loop)

        def start(count: int) -> None:
            for _, (index, job) in zip(range(count), waiting):
                future = client.submit(run_one, load(job), pure=False, retries=1)
                under_way[future.key] = index, job
                futures.add(future)

        start(_AHEAD * workers)
        for future in futures:
            index, job = under_way.pop(future.key)
            if future.status == "finished":
                row = future.result()
            else:
                error = future.exception()
                row = lost(job, f"{type(error).__name__}: {error}")
            del future
            start(1)
            yield index, row
    finally:
        if is_own:
            client.close()


def lost(job: Job, message: str) -> Dict[str, Any]:
    """The row of a job of which nothing was heard."""
    row = {"file": job["file"], "status": "lost", "message": message, "recipe": job["key"]}
    return {**row, "library": job["library"]}
