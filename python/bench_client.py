#!/usr/bin/python3
"""How long the client takes to turn replies into numpy arrays, apart from the engine's own time.

    /usr/bin/python3 python/bench_client.py [--repeat N]

Builds the bench flop spot (bench/spots/spot_F.txt), asks for show_strategy
at the root and calc_ev at the root once to have their replies, then times the
parsing of those exact replies N times and prints the median and the spread.
"""

import argparse
import statistics
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from tavrek.client import Engine, parse_reply  # noqa: E402

ROOT = Path(__file__).resolve().parents[1]


def timed(fn, repeat):
    samples = []
    for _ in range(repeat):
        start = time.perf_counter()
        fn()
        samples.append((time.perf_counter() - start) * 1000)
    return statistics.median(samples), min(samples), max(samples)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--repeat", type=int, default=200)
    parser.add_argument("--spot", default=str(ROOT / "bench" / "spots" / "spot_F.txt"))
    args = parser.parse_args()
    with Engine() as engine:
        for line in Path(args.spot).read_text().splitlines():
            if line.strip():
                engine.raw(line)
        engine.command("go 25 steps")
        engine.command("wait_for_solver")
        cases = {"show_strategy r:0": ("show_strategy", engine.raw("show_strategy r:0").lines),
                 "calc_ev OOP r:0": ("calc_ev", engine.raw("calc_ev OOP r:0").lines)}
        # The longest a reply of three actions can be: every value with its twelve digits.
        import numpy as np
        rng = np.random.default_rng(1)
        full = [" ".join(f"{x:.12g}" for x in rng.uniform(0, 1, 1326)) for _ in range(3)] + ["END"]
        cases["show_strategy, every digit"] = ("show_strategy", full)
        print(f"spot {args.spot}, {args.repeat} parses each, milliseconds (median, min, max)")
        for name, (word, lines) in cases.items():
            median, low, high = timed(lambda: parse_reply(word, lines), args.repeat)
            size = sum(len(line) for line in lines)
            print(f"parse {name:<26} {median:7.3f} {low:7.3f} {high:7.3f}   ({len(lines) - 1} lines, {size} bytes)")
        for name in list(cases)[:2]:
            median, low, high = timed(lambda: engine.command(name), max(5, args.repeat // 20))
            print(f"whole {name:<26} {median:7.3f} {low:7.3f} {high:7.3f}   (engine, pipe and parse)")


if __name__ == "__main__":
    main()
