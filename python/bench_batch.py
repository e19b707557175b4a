#!/usr/bin/python3
"""What a batch costs against solving its boards one after another: wall time, boards per hour, efficiency,
and the peak memory of the whole machine.

    /usr/bin/python3 python/bench_batch.py [--flops 25] [--workers N] [--threads T] [--no-sequential]

The batch is the bench flop spot's ranges and lines (bench/spots/spot_F.txt: pot 100, 900 behind,
half-pot bets and all-in on every street) solved to 1% of the pot on the weighted subset of --flops flops,
on the local cluster as tavrek-batch plans it (or --workers, --threads). Then the same flops are solved
one after another by one engine at a time with 2 threads (a fresh engine each, as the batch has). The
efficiency is the batch's boards per hour over the one-by-one figure. The machine's memory in use
(total less available) is sampled every 0.2 s during each; its peak is printed with the figure before.
Tree files are written when the engine can (the one-by-one solves write none).
"""

import argparse
import json
import os
import statistics
import sys
import tempfile
import threading
import time
from pathlib import Path

import numpy as np
import psutil

sys.path.insert(0, str(Path(__file__).resolve().parent))
from tavrek.batch import dump_tree_supported, run_batch  # noqa: E402
from tavrek.batchfile import parse_batch  # noqa: E402
from tavrek.client import Engine, find_engine  # noqa: E402
from tavrek.ranges import format_range  # noqa: E402
from tavrek.solve import solve_spot  # noqa: E402

ROOT = Path(__file__).resolve().parents[1]
SPOT_F = ROOT / "bench" / "spots" / "spot_F.txt"


def batch_text(flops: int) -> str:
    """Spot F's ranges and lines as a batch file; its lines are checked against the bench script's."""
    script = SPOT_F.read_text().splitlines()
    ranges = {}
    for line in script:
        if line.startswith("set_range "):
            words = line.split()
            ranges[words[1]] = format_range(np.array(words[2:], dtype=float))
    text = (f'pot = 100\nstack = 900\n[ranges]\noop = "{ranges["OOP"]}"\nip = "{ranges["IP"]}"\n'
            f'[bets]\nbet = [50]\nraise = []\nallin = true\n[solve]\naccuracy = 1\n[flops]\nsubset = {flops}\n')
    batch = parse_batch(text, "spot-F.toml")
    ours = sorted(c for c in batch.spot.setup_commands() if c.startswith("add_line "))
    if ours != sorted(c for c in script if c.startswith("add_line ")):
        raise SystemExit("the batch's lines differ from spot F's")
    return text


class MemoryPeak:
    """The machine's memory in use, sampled in a thread."""

    def __init__(self):
        self.peak = 0
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)

    def _run(self):
        while not self._stop.is_set():
            memory = psutil.virtual_memory()
            self.peak = max(self.peak, memory.total - memory.available)
            self._stop.wait(0.2)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *exc):
        self._stop.set()
        self._thread.join()


def in_use_gb() -> float:
    memory = psutil.virtual_memory()
    return (memory.total - memory.available) / 2**30


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--flops", type=int, default=25)
    parser.add_argument("--workers", type=int)
    parser.add_argument("--threads", type=int)
    parser.add_argument("--no-sequential", action="store_true", help="the batch alone")
    parser.add_argument("--engine")
    args = parser.parse_args()
    engine = str(find_engine(args.engine).resolve())
    batch = parse_batch(batch_text(args.flops), "spot-F.toml")
    with Engine(engine) as probe:
        trees = dump_tree_supported(probe)
    print(f"flops: {', '.join(b.text for b in batch.boards)}")
    print(f"machine: {os.cpu_count()} cores, {psutil.virtual_memory().total / 2**30:.1f} GiB; load average "
          f"{' '.join(f'{x:.2f}' for x in os.getloadavg())} at the start")

    with tempfile.TemporaryDirectory(prefix="tavrek-bench-batch-") as folder:
        before = in_use_gb()
        with MemoryPeak() as peak:
            outcome = run_batch(batch, Path(folder) / "batch", engine=engine, workers=args.workers,
                                threads=args.threads, save_trees=trees, progress=False, log=lambda text: None)
        if outcome.failed:
            raise SystemExit(f"{outcome.failed} flops failed; see {folder}")
        records = [json.loads(p.read_text()) for p in (Path(folder) / "batch" / "flops").glob("*.json")]
    batch_rate = len(batch.boards) / outcome.seconds * 3600
    solve_seconds = sum(r["seconds"] for r in records)
    print(f"batch: {len(batch.boards)} flops, {outcome.workers} workers with {outcome.threads} engine "
          f"thread{'s' if outcome.threads > 1 else ''} each, "
          f"tree files {'on' if trees else 'off (the engine has no dump_tree)'}")
    print(f"  wall {outcome.seconds:.1f} s, {batch_rate:.1f} flops/hour; solves {solve_seconds:.1f} s in all "
          f"(median {statistics.median(r['seconds'] for r in records):.1f} s), "
          f"iterations median {statistics.median(r['iterations'] for r in records):.0f}")
    print(f"  machine memory in use: {before:.2f} GiB before, peak {peak.peak / 2**30:.2f} GiB; engines' peak "
          f"working sets: largest {max(r['peak_mb'] for r in records)} MB")
    if args.no_sequential:
        return
    before = in_use_gb()
    start = time.monotonic()
    with MemoryPeak() as peak:
        for board in batch.boards:
            spot = batch.spot_for(board)
            spot.threads = 2
            with Engine(engine) as one:
                solve_spot(one, spot, progress=False)
    seconds = time.monotonic() - start
    one_rate = len(batch.boards) / seconds * 3600
    print(f"one after another, 2 threads: wall {seconds:.1f} s, {one_rate:.1f} flops/hour; machine memory in "
          f"use {before:.2f} GiB before, peak {peak.peak / 2**30:.2f} GiB")
    print(f"efficiency: {100 * batch_rate / one_rate:.1f}% of the one-by-one throughput")
    print(f"load average at the end: {' '.join(f'{x:.2f}' for x in os.getloadavg())}")


if __name__ == "__main__":
    main()
