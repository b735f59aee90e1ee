#!/usr/bin/env python3
"""A picture in tiles, filtered by several processes: Dask's distributed scheduler, Zarr arrays in a folder.

  dask_tiles.py [--size 4096] [--tile 512] [--workers 2] [--lose-worker] [FOLDER]

The background of the picture (a median, then a wide box) is taken away from it. No process ever holds more than a few
tiles; how far tiles overlap, the functions themselves tell. With --lose-worker one of the processes is killed on the
way: its tiles are computed again by the others, and since a call depends on nothing but its arguments, the result is
the same. At the end it is compared with that of one run over the whole picture.
"""
import argparse
import logging
import os
import pathlib
import signal
import tempfile
import threading
import time

os.environ.setdefault("OMP_NUM_THREADS", "1")  # the processes share the processors, not the calls within them

import dask.array  # noqa: E402
import numpy as np  # noqa: E402
import zarr  # noqa: E402
import zori  # noqa: E402
from distributed import Client, LocalCluster, progress  # noqa: E402

MEDIAN = {"mask_size": (3, 3), "anchor": (1, 1)}
BOX = {"mask_size": (31, 31), "anchor": (15, 15)}


def median(a, **border):
    return zori.filter_median(a, **MEDIAN, **border)


def box(a, **border):
    return zori.filter_box(a, **BOX, **border)


def detail(a, background):
    return zori.sub(background, a)  # a - background, from 0


def in_tiles(picture):
    """The work as a graph: every tile gets the margin that its function reads, and returns what is left of it."""
    def overlapped(function, name, arguments, a):
        left, top, right, bottom = zori.margins(name, **arguments)
        depth = {0: max(top, bottom), 1: max(left, right)}
        return a.map_overlap(function, depth=depth, boundary="nearest", trim=False, dtype=a.dtype)

    background = overlapped(box, "filter_box", BOX, overlapped(median, "filter_median", MEDIAN, picture))
    return dask.array.map_blocks(detail, picture, background, dtype=picture.dtype)


def at_once(picture):
    return detail(picture, box(median(picture, border="nearest"), border="nearest"))


def scene(block_info=None):
    """One tile of the picture, drawn from its place."""
    (top, bottom), (left, right) = block_info[None]["array-location"]
    y, x = np.mgrid[top:bottom, left:right]
    noise = np.random.default_rng((top, left)).integers(0, 40, y.shape)
    return (90 + 60 * np.sin(x / 300) * np.cos(y / 200) + noise).astype(np.uint8)


def kill_one(client, results, total, lost):
    """Ends a worker with SIGKILL when a quarter of the tiles is there; `lost`: its process, if tiles were missing then."""
    victim = sorted(client.run(os.getpid).values())[0]
    while results.nchunks_initialized < total // 4:
        time.sleep(0.005)
    os.kill(victim, signal.SIGKILL)
    done = results.nchunks_initialized
    print(f"\nworker {victim} killed after {done} of {total} tiles")
    if done < total:
        lost.append(victim)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("folder", nargs="?", type=pathlib.Path)
    parser.add_argument("--size", type=int, default=4096)
    parser.add_argument("--tile", type=int, default=512)
    parser.add_argument("--workers", type=int, default=2)
    parser.add_argument("--lose-worker", action="store_true")
    given = parser.parse_args()
    with tempfile.TemporaryDirectory() as spare:
        folder = given.folder or pathlib.Path(spare)
        shape, tiles = (given.size, given.size), (given.tile, given.tile)
        cluster = LocalCluster(n_workers=given.workers, threads_per_worker=1, dashboard_address=None,
                               silence_logs=logging.CRITICAL)
        with cluster, Client(cluster) as client:
            chunks = dask.array.core.normalize_chunks(tiles, shape)
            drawn = dask.array.map_blocks(scene, chunks=chunks, dtype=np.uint8, meta=np.empty((0, 0), np.uint8))
            drawn.to_zarr(str(folder / "picture.zarr"), overwrite=True)

            picture = dask.array.from_zarr(str(folder / "picture.zarr"))
            results = zarr.open(str(folder / "detail.zarr"), mode="w", shape=shape, chunks=tiles, dtype=np.uint8,
                                fill_value=None)
            before = client.run(time.process_time)
            start, own = time.perf_counter(), time.process_time()
            work = client.compute(in_tiles(picture).store(results, lock=False, compute=False))
            lost = []
            killer = threading.Thread(target=kill_one, args=(client, results, picture.npartitions, lost))
            if given.lose_worker:
                killer.start()
            progress(work, notebook=False)
            work.result()
            seconds, own = time.perf_counter() - start, time.process_time() - own
            if given.lose_worker:
                killer.join()
                if not lost or lost[0] in client.run(os.getpid).values():
                    print("\nno worker was lost on the way")
                    return 1
            busy = [after - before.get(name, 0) for name, after in client.run(time.process_time).items()]
        print(f"\n{given.workers} workers: {picture.npartitions} tiles in {seconds:.2f} s; processor time: scheduler "
              f"{own:.2f} s, workers", ", ".join(f"{b:.2f} s" for b in busy))

        single = at_once(zarr.open(str(folder / "picture.zarr"), mode="r")[:])
        equal = np.array_equal(single, results[:])
        print("equal to the single run" if equal else "DIFFERENT from the single run")
        return 0 if equal and single.any() else 1


if __name__ == "__main__":
    raise SystemExit(main())
