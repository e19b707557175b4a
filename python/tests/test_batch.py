"""Batches: the batch file, the plan of workers, a local Dask cluster whose records equal one-by-one solves,
failures that are retried and reported, interrupting and re-running, tree files, and the aggregated report."""

import csv
import fcntl
import hashlib
import json
import os
import shutil
import signal
import subprocess
import sys
import time

import numpy as np
import pytest

from conftest import PYTHON
from tavrek.batch import failure_path, plan_workers, record_path, run_batch, tree_path
from tavrek.batchfile import parse_batch
from tavrek.client import Engine, TavrekError
from tavrek.render import label_colours
from tavrek.solve import MemoryEstimate, set_up, solve_spot
from tavrek.spot import SpotError, parse_spot

RANGES = """
[ranges]
oop = "22-QQ, A2s-AKs, K9s+, QTs+, JTs, T9s, 98s, A9o+, KTo+, QJo"
ip = "22-AA, A2s+, KTs+, QTs+, JTs, T9s, A8o+, KJo+"
[bets]
bet = [50]
"""
RIVERS = ["Qs Jh 2h 8d 3c", "Kh 7d 2c 5s 9h", "As Ks 3d 8c 2h", "Th 9h 8c 4d 4s", "7c 6c 5c Jd Ah", "2d 3d 4h 9s Tc"]


def river_batch(boards=RIVERS, solve="accuracy = 0\nmax_iterations = 200", extra=""):
    listed = ", ".join(f'"{b}"' for b in boards)
    return f"pot = 100\nstack = 200\n{RANGES}\n[solve]\n{solve}\n[flops]\nboards = [{listed}]\n{extra}\n"


def quiet(text):
    pass


def proxy(tmp_path, engine_path, *options) -> str:
    """A wrapper script that starts the test proxy in front of the real engine."""
    path = tmp_path / "proxy-engine"
    args = " ".join(f"'{o}'" for o in options)
    path.write_text(f"#!/bin/sh\nexec {sys.executable} {PYTHON / 'tests' / 'proxy_engine.py'} {engine_path} "
                    f"{args} -- \"$@\"\n")
    path.chmod(0o755)
    return str(path)


@pytest.mark.parametrize("old, new, line, words", [
    ("pot = 100", 'board = "Qs Jh 2h"\npot = 100', 1, "a batch leaves the board out"),
    ("boards = [", "boardz = [", 14, "unknown key 'boardz' in [flops]"),
    ("[flops]", "[flops]\nsubset = 3", 13, "needs one of all = true, subset = N or boards = [...], not subset and boards"),
    ("[flops]\nboards", "[flops]\nall = true\nweights = [1]\n#", 15, "weights go with a list of boards"),
    ('"Kh 7d 2c 5s 9h"', '"Qs Jh 2h 8d 3c"', 14, "'Qs Jh 2h 8d 3c' is named twice (boards 1 and 2)"),
    ('"Kh 7d 2c 5s 9h"', '"Kh 7d"', 14, "board 2 ('Kh 7d') has 2 cards"),
    ("[flops]", "[flops]\nweights = [1, 2]", 14, "weights is a list of 6 numbers above 0"),
    ("[flops]\nboards", "[flops]\nsubset = 921\n#", 14, "a subset has at most 920 flops"),
    ("[solve]", "[batch]\nretries = -1\n[solve]", 11, "retries must be a whole number of at least 0"),
])
def test_batch_file_errors(old, new, line, words):
    text = river_batch()
    assert old in text
    with pytest.raises(SpotError) as e:
        parse_batch(text.replace(old, new, 1), "b.toml")
    assert words in str(e.value) and e.value.line == line


def test_batch_file_sets_and_fingerprints(tmp_path):
    batch = parse_batch(river_batch(), "b.toml", tmp_path, "b")
    assert [b.weight for b in batch.boards] == [24, 24, 24, 12, 24, 24]      # boards of five cards, renamed
    assert batch.out == tmp_path / "b-batch" and batch.save_trees and batch.retries == 2
    subset = parse_batch(river_batch().replace("boards = [", "subset = 10\n#"), "b.toml")
    assert len(subset.boards) == 10 and sum(b.weight for b in subset.boards) == 22100
    # The flop set stands for suit renamings only with ranges that give every suit one weight.
    with pytest.raises(SpotError, match="name the boards"):
        parse_batch(river_batch().replace("boards = [", "all = true\n#").replace('QJo"', 'QJo, AhKh:0.5"'), "b")
    # The fingerprint follows what decides the solution, not the thread count.
    same = parse_batch(river_batch(solve="accuracy = 0\nmax_iterations = 200\nthreads = 2"), "b.toml")
    other = parse_batch(river_batch(solve="accuracy = 0.5\nmax_iterations = 200"), "b.toml")
    board = batch.boards[0]
    assert same.fingerprint(board) == batch.fingerprint(board) != other.fingerprint(board)


def test_plan_workers():
    flop = MemoryEstimate(uncompressed_mb=659, available_mb=20000, flop_root=True, rainbow=True, auto_level=0)
    assert plan_workers(2, flop) == (2, 1, 0.85 * 20000 / 2)
    assert plan_workers(2, None) == (2, 1, None)
    assert plan_workers(8, None, threads=2) == (4, 2, None)
    # Two engines would have to compress more than one alone (low, 5800 MB of 10200 usable): one engine, all cores.
    big = MemoryEstimate(uncompressed_mb=10000, available_mb=12000, flop_root=True, rainbow=False, auto_level=1)
    assert plan_workers(2, big)[:2] == (1, 2)
    assert plan_workers(4, big, compression="max")[:2] == (4, 1)      # a level fixed by the spot: 1500 MB each
    assert plan_workers(2, big, workers=2)[:2] == (2, 1)              # what the user asks
    turn = MemoryEstimate(uncompressed_mb=4000, available_mb=10000, flop_root=False, rainbow=False, auto_level=0)
    assert plan_workers(4, turn)[:2] == (2, 2)                          # turn trees are never compressed


def test_memory_budget_picks_the_compression(engine):
    spot = parse_spot('board = "Kh 7d 2c"\npot = 60\nstack = 200\n[ranges]\noop = "22+, A2s+, KTs+"\n'
                      'ip = "22+, A2s+, KTs+"\n[bets]\nbet = [75]\n')
    estimate = set_up(engine, spot, budget_mb=1)
    assert engine.command("get_actual_compression") == 4
    set_up(engine, spot, budget_mb=estimate.uncompressed_mb * 0.45)     # medium: 0.312 of it on a rainbow flop
    assert engine.command("get_actual_compression") == 2


@pytest.fixture(scope="module")
def local_run(engine_path, tmp_path_factory):
    folder = tmp_path_factory.mktemp("batch")
    batch = parse_batch(river_batch(extra="[batch]\nsave_trees = false"), "rivers.toml", folder, "rivers")
    outcome = run_batch(batch, workers=2, threads=1, progress=False, engine=str(engine_path), log=quiet)
    return batch, outcome


def test_local_cluster_records_equal_one_by_one_solves(local_run, engine_path):
    batch, outcome = local_run
    assert (outcome.solved, outcome.failed, outcome.workers, outcome.threads) == (6, 0, 2, 1)
    for board in batch.boards:
        record = json.loads(record_path(batch.out, board.text).read_text())
        spot = batch.spot_for(board)
        spot.threads = 1
        with Engine(engine_path) as engine:
            solo = solve_spot(engine, spot, progress=False)
            nodes = list(dict.fromkeys(a["node"] for a in record["actions"]))
            digest = hashlib.sha256()
            for path in nodes:
                digest.update(("\n".join([path] + engine.raw(f"show_strategy {path}").lines) + "\n").encode())
                probs = engine.show_probs(path)["actions"]
                assert {a["token"]: a["frequency"] for a in record["actions"] if a["node"] == path} == probs
        assert record["strategy_sha256"] == digest.hexdigest(), board.text
        timing = {"seconds", "cpu_seconds", "peak_mb"}
        assert {k: v for k, v in solo.as_dict().items() if k not in timing} == \
               {k: record[k] for k in solo.as_dict() if k not in timing}
        assert record["iterations"] == 200 and record["peak_mb"] > 0
        assert record["equity_oop"] + record["equity_ip"] == pytest.approx(1, abs=1e-4)
        assert nodes == ["r:0", "r:0:c", "r:0:b50", "r:0:b200"]


def test_report_table(local_run):
    batch, outcome = local_run
    rows = list(csv.DictReader(outcome.files["csv"].open()))
    assert [r["board"] for r in rows] == RIVERS and all(r["status"] == "ok" for r in rows)
    for column in ("weight", "high_card", "pairing", "suits", "straights", "ev_oop", "ev_ip", "equity_oop",
                   "equity_ip", "exploitable", "iterations", "seconds", "peak_mb", "r:0 check",
                   "r:0:b50 fold", "r:0:c bet 50 (50%)"):
        assert rows[0][column] != "", column
    for row in rows:
        assert sum(float(row[c]) for c in row if c.startswith("r:0:b50 ")) == pytest.approx(1, abs=1e-6)
    # The page's weighted averages, against the table's numbers.
    weights = np.array([float(r["weight"]) for r in rows])
    page = outcome.files["html"].read_text()
    for column in ("ev_oop", "r:0 check"):
        mean = np.average([float(r[column]) for r in rows], weights=weights)
        shown = f"{100 * mean:.1f}%" if " " in column else f"{mean:.3f}"
        assert f"<tr><td>{column}</td><td>{shown}</td></tr>" in page
    assert page.count("data:image/png;base64,") == 3
    try:
        import pyarrow  # noqa: F401
        assert outcome.files["parquet"].exists()
    except ImportError:
        assert "parquet" not in outcome.files


def chromium_or_skip():
    chromium = shutil.which("chromium") or shutil.which("chromium-browser")
    if not chromium:
        pytest.skip("Debian's chromium is not installed (scripts/setup.sh installs it)")
    return chromium


def chromium(tmp_path, *args):
    profile = tmp_path / "chromium-profile"
    profile.mkdir(exist_ok=True)
    return subprocess.run([chromium_or_skip(), "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                           "--no-first-run", "--disable-background-networking", "--disable-component-update",
                           "--disable-sync", f"--user-data-dir={profile}", *args],
                          check=True, capture_output=True, text=True, timeout=120).stdout


def test_report_page_in_chromium(local_run, tmp_path):
    batch, outcome = local_run
    page = outcome.files["html"]
    shot = tmp_path / "batch.png"
    chromium(tmp_path, "--window-size=1300,2000", f"--screenshot={shot}", page.as_uri())
    import matplotlib.image
    pixels = (matplotlib.image.imread(shot)[:, :, :3] * 255).round().astype(int)
    # The plots are drawn: the bars of check, bet and all-in at the root, and of fold in the responses.
    root = [(token, label) for token, label in (("c", "check"), ("b50", "bet 50"), ("b200", "all-in 200"))]
    for colour in label_colours(root) + [label_colours([("f", "fold")])[0]]:
        rgb = np.array([int(colour[i:i + 2], 16) for i in (1, 3, 5)])
        assert (np.abs(pixels - rgb).sum(axis=2) <= 12).mean() > 0.002, colour
    # The table sorts by a column named in the address, as a click on its header does.
    dom = chromium(tmp_path, "--dump-dom", page.as_uri() + "#sort=-ev_oop")
    body = dom[dom.index("id=\"boards\""):]
    order = [b for b in RIVERS if b in body]
    shown = sorted(order, key=body.index)
    rows = {r["board"]: float(r["ev_oop"]) for r in csv.DictReader(outcome.files["csv"].open())}
    assert shown == sorted(RIVERS, key=lambda b: -rows[b])
    assert 'data-order="desc"' in body


def test_failures_are_retried_reported_and_solved_again(engine_path, tmp_path):
    log = tmp_path / "engine.log"
    crashing = proxy(tmp_path, engine_path, "--crash-on", RIVERS[1], "--log", str(log))
    # OOP holds AsKs alone, which the third board blocks: a refusal that would come anywhere.
    text = river_batch(RIVERS[:2] + ["As Kd 2c 3h 4s"], extra="[batch]\nsave_trees = false\nretries = 1")
    batch = parse_batch(text.replace(RANGES.split("\n")[2], 'oop = "AsKs"'), "failing.toml", tmp_path, "failing")
    outcome = run_batch(batch, workers=2, threads=1, progress=False, engine=crashing, log=quiet)
    assert (outcome.solved, outcome.failed) == (1, 2)
    crashed = json.loads(failure_path(batch.out, RIVERS[1]).read_text())
    assert "out of cheese" in crashed["error"] and crashed["status"] == "failed"
    assert log.read_text().count(f"crash {RIVERS[1]}") == 2                 # the first try and one retry
    blocked = json.loads(failure_path(batch.out, "As Kd 2c 3h 4s").read_text())
    assert "has no hand off the board" in blocked["error"]                  # refused at once, not retried
    rows = {r["board"]: r for r in csv.DictReader(outcome.files["csv"].open())}
    assert [rows[b]["status"] for b in (RIVERS[0], RIVERS[1], "As Kd 2c 3h 4s")] == ["ok", "failed", "failed"]
    assert "out of cheese" in outcome.files["html"].read_text()
    # A re-run tries the failed boards again; with an engine that works, the crashed one is solved.
    again = run_batch(batch, workers=2, threads=1, progress=False, engine=str(engine_path), log=quiet)
    assert (again.skipped, again.solved, again.failed) == (1, 1, 1)
    assert record_path(batch.out, RIVERS[1]).exists() and not failure_path(batch.out, RIVERS[1]).exists()


def test_refusals_before_solving(engine_path, tmp_path):
    batch = parse_batch(river_batch(RIVERS[:1]), "trees.toml", tmp_path, "trees")
    with pytest.raises(TavrekError, match="does not write tree files.*--no-trees"):
        run_batch(batch, progress=False, engine=proxy(tmp_path, engine_path, "--no-dump-tree"), log=quiet)
    with open(batch.out / ".lock", "w") as lock:          # as a batch running in the same folder holds it
        fcntl.flock(lock, fcntl.LOCK_EX)
        with pytest.raises(TavrekError, match="another tavrek-batch is working in"):
            run_batch(batch, progress=False, engine=str(engine_path), save_trees=False, log=quiet)
    assert not record_path(batch.out, RIVERS[0]).exists()


@pytest.fixture(scope="session")
def dump_tree_available(engine_path):
    from tavrek.batch import dump_tree_supported
    with Engine(engine_path) as engine:
        return dump_tree_supported(engine)


def test_tree_files_hold_the_solution(engine_path, tmp_path, dump_tree_available):
    if not dump_tree_available:
        pytest.skip("this engine does not write tree files yet (dump_tree not recognized)")
    batch = parse_batch(river_batch(RIVERS[:2]), "trees.toml", tmp_path, "trees")
    run_batch(batch, workers=2, threads=1, progress=False, engine=str(engine_path), log=quiet)
    assert sorted(p.name for p in (batch.out / "flops").iterdir()) == sorted(
        [f"{b.name}.json" for b in batch.boards] + [f"{b.name}.tree" for b in batch.boards])
    for board in batch.boards:
        record = json.loads(record_path(batch.out, board.text).read_text())
        assert record["tree"] == tree_path(batch.out, board.text).name
        with Engine(engine_path) as engine:
            engine.command(f"load_tree {tree_path(batch.out, board.text)}")
            digest = hashlib.sha256()
            for path in dict.fromkeys(a["node"] for a in record["actions"]):
                digest.update(("\n".join([path] + engine.raw(f"show_strategy {path}").lines) + "\n").encode())
            assert digest.hexdigest() == record["strategy_sha256"]


def test_interrupt_and_run_again(engine_path, tmp_path):
    turns = ["Qs Jh 2h 8d", "Kh 7d 2c 5s", "As Ks 3d 8c", "Th 9h 8c 4d", "7c 6c 5c Jd", "2d 3d 4h 9s"]
    listed = ", ".join(f'"{b}"' for b in turns)
    (tmp_path / "turns.toml").write_text(f"pot = 100\nstack = 400\n{RANGES}\n[solve]\naccuracy = 0\n"
                                         f"max_seconds = 1\n[flops]\nboards = [{listed}]\n"
                                         f"[batch]\nsave_trees = false\n")
    command = [sys.executable, str(PYTHON / "bin" / "tavrek-batch"), "turns.toml", "--quiet",
               "--engine", str(engine_path.resolve())]
    folder = tmp_path / "turns-batch" / "flops"
    run = subprocess.Popen(command, cwd=tmp_path, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                           start_new_session=True)
    deadline = time.monotonic() + 60
    while len(list(folder.glob("*.json"))) < 2 and time.monotonic() < deadline and run.poll() is None:
        time.sleep(0.1)
    assert run.poll() is None, run.communicate()[0]
    os.killpg(run.pid, signal.SIGINT)           # Ctrl-C reaches the whole process group
    output, _ = run.communicate(timeout=60)
    assert run.returncode == 130, output
    assert "run the same command to go on" in output
    first = {p.name: (p.stat().st_mtime_ns, p.read_text()) for p in folder.glob("*.json")}
    assert 2 <= len(first) < 6 and not list(folder.glob(".*.tmp"))
    again = subprocess.run(command, cwd=tmp_path, capture_output=True, text=True, timeout=120)
    assert again.returncode == 0, again.stderr
    assert f"6 boards: {len(first)} done before, {6 - len(first)} solved now, 0 failed" in again.stdout
    assert {p.name: (p.stat().st_mtime_ns, p.read_text()) for p in folder.glob("*.json") if p.name in first} == first
    rows = list(csv.DictReader((tmp_path / "turns-batch" / "report.csv").open()))
    assert [r["board"] for r in rows] == turns and all(r["status"] == "ok" for r in rows)
