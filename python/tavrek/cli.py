"""The command-line tools tavrek-spot and tavrek-report."""

from __future__ import annotations

import argparse
import sys
from pathlib import Path

from .client import Engine, TavrekError
from .lines import generate_lines, positions, tree_listing
from .spot import SpotError, load_spot, spot_summary


def _fail(message: str, status: int) -> int:
    print(f"error: {message}", file=sys.stderr)
    return status


def _comment(text: str) -> str:
    return "\n".join("# " + line if line else "#" for line in text.splitlines())


def main_spot(argv=None) -> int:
    parser = argparse.ArgumentParser(
        prog="tavrek-spot",
        description="Print the engine's script for a spot file: ranges, board, pot, every add_line, build_tree. "
                    "Listings asked for go first, as comment lines, so the output stays a script.")
    parser.add_argument("file", help="spot file (TOML)")
    parser.add_argument("--tree", action="store_true", help="list the betting tree: every decision and its choices")
    parser.add_argument("--memory", action="store_true",
                        help="start the engine, build the tree and show the memory at each compression level")
    parser.add_argument("--no-script", action="store_true", help="leave the script out")
    parser.add_argument("--engine", help="engine binary (default: $TAVREK_ENGINE, then the repository's build/tavrek)")
    args = parser.parse_args(argv)
    try:
        spot = load_spot(args.file)
    except SpotError as e:
        return _fail(str(e), 2)
    out = sys.stdout
    header = [f"spot {spot.name}: {spot_summary(spot)}"]
    if args.tree:
        decisions = positions(spot.rules)
        header.append(f"betting tree: {len(generate_lines(spot.rules))} lines, {len(decisions)} decisions "
                      f"(cards dealt between streets are written <turn> and <river>)")
        header.append(tree_listing(spot.rules))
    if args.memory:
        from .solve import TreeTooLarge, set_up
        try:
            with Engine(args.engine) as engine:
                estimate = set_up(engine, spot)
        except TreeTooLarge as e:
            print(_comment("\n".join(header)), file=out)
            return _fail(str(e), 3)
        except TavrekError as e:
            return _fail(str(e), 1)
        header.append(estimate.table())
    print(_comment("\n".join(header)), file=out)
    if not args.no_script:
        print("\n".join(spot.setup_commands()), file=out)
    return 0


def main_report(argv=None) -> int:
    parser = argparse.ArgumentParser(
        prog="tavrek-report",
        description="Solve a spot file and write a report of one decision: action frequencies, a grid per "
                    "action (PNG and HTML), each hand's strategy, EV and equity, range equities, CSV and JSON.")
    parser.add_argument("file", help="spot file (TOML)")
    parser.add_argument("--node", action="append", default=[],
                        help="node path such as r:0 or r:0:c:b50 (repeatable; default r:0)")
    parser.add_argument("--out", help="folder for the files (default: <spot>-report beside the working directory)")
    parser.add_argument("--engine", help="engine binary (default: $TAVREK_ENGINE, then the repository's build/tavrek)")
    parser.add_argument("--quiet", action="store_true", help="no progress bar")
    args = parser.parse_args(argv)
    try:
        spot = load_spot(args.file)
    except SpotError as e:
        return _fail(str(e), 2)
    from .render import file_stem, write_report
    from .report import gather
    from .solve import solve_spot
    nodes = args.node or ["r:0"]
    base = Path(args.out) if args.out else Path(f"{Path(args.file).stem}-report")
    try:
        with Engine(args.engine) as engine:
            record = solve_spot(engine, spot, progress=not args.quiet)
            print(f"solved {spot.name}: {record.iterations} iterations in {record.seconds:.1f} s ({record.reason}); "
                  f"exploitable for {record.exploitable:.3f} chips, {record.exploitable_pct:.3f}% of the pot")
            for path in nodes:
                report = gather(engine, path, Path(args.file).name)
                folder = base if len(nodes) == 1 else base / file_stem(path)
                files = write_report(report, folder)
                print(f"{path}: {report.player} acts; " + ", ".join(
                    f"{a.label} {100 * a.frequency:.1f}%" for a in report.actions))
                print(f"  range equity OOP {100 * report.range_equity('OOP'):.1f}%, "
                      f"IP {100 * report.range_equity('IP'):.1f}%; EV of {report.player}'s range "
                      f"{report.range_ev():.2f}")
                print(f"  written: {files['html']}, {files['csv']}, {files['json']}, {len(files['png'])} PNG grids")
    except TavrekError as e:
        return _fail(str(e), 1)
    except KeyboardInterrupt:
        return _fail("interrupted", 130)
    return 0


def main_batch(argv=None) -> int:
    parser = argparse.ArgumentParser(
        prog="tavrek-batch",
        description="Solve one spot on many boards (every flop, a weighted subset or a list) on a Dask cluster, "
                    "then write the aggregated report. Each board's record and tree file are written as soon as "
                    "it is done; run it again to solve only what is missing. Status: 0 all solved, 4 some boards "
                    "failed, 2 a bad batch file, 1 other errors, 130 interrupted.")
    parser.add_argument("file", help="batch file (TOML): a spot file without a board, with [flops] and [batch]")
    parser.add_argument("--out", help="output folder (default: [batch] out, or <name>-batch beside the file)")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="an existing Dask cluster's scheduler, e.g. tcp://10.0.0.5:8786 (default: a local "
                             "cluster on this machine)")
    parser.add_argument("--workers", type=int, help="engines at once on the local cluster (default: from the "
                                                    "cores and the memory a tree needs)")
    parser.add_argument("--threads", type=int, help="threads of each engine (default: the cores shared among them)")
    parser.add_argument("--no-trees", action="store_true", help="don't write tree files")
    parser.add_argument("--report-only", action="store_true", help="write the report from the records there are")
    parser.add_argument("--engine", help="engine binary (default: $TAVREK_ENGINE, then the repository's "
                                         "build/tavrek; with --scheduler, each worker's own)")
    parser.add_argument("--quiet", action="store_true", help="no progress display")
    args = parser.parse_args(argv)
    from .batch import run_batch
    from .batch_report import write_batch_report
    from .batchfile import load_batch
    for option in ("workers", "threads"):
        if getattr(args, option) is not None and getattr(args, option) < 1:
            return _fail(f"--{option} must be at least 1", 2)
    try:
        batch = load_batch(args.file)
    except SpotError as e:
        return _fail(str(e), 2)
    out = Path(args.out) if args.out else batch.out
    try:
        if args.report_only:
            files = write_batch_report(batch, out)
            print(f"written: {', '.join(str(f) for f in files.values())}")
            return 0
        outcome = run_batch(batch, out, scheduler=args.scheduler, engine=args.engine, workers=args.workers,
                            threads=args.threads, save_trees=False if args.no_trees else None,
                            progress=not args.quiet)
    except TavrekError as e:
        return _fail(str(e), 1)
    except KeyboardInterrupt:
        return _fail(f"interrupted; the boards done are kept in {out}: run the same command to go on", 130)
    hours = outcome.seconds / 3600
    rate = f", {outcome.solved / hours:.0f} boards per hour" if outcome.solved and hours > 0 else ""
    print(f"{outcome.boards} boards: {outcome.skipped} done before, {outcome.solved} solved now, "
          f"{outcome.failed} failed, in {outcome.seconds:.1f} s{rate}")
    print(f"written: {', '.join(str(f) for f in outcome.files.values())}")
    return 4 if outcome.failed else 0
