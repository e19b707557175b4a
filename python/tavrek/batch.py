"""Solving a batch: one spot on every board of a set, on a Dask cluster, nothing lost on the way.

Each board is one task. A worker starts an engine through the client, solves the board to the
batch's accuracy, asks for the figures of the report, has the engine write the tree file, and
writes the board's record; both land in the output folder as soon as the board is done:

    <out>/flops/<board>.json          the record (written to a temporary name, then renamed)
    <out>/flops/<board>.tree          the tree file (the engine's dump_tree)
    <out>/flops/<board>.failed.json   a board that failed, with the engine's output

A record is the mark of a finished board: a re-run skips the boards whose record was made with the
same settings, and solves the rest. An engine that dies or hangs fails its task, which Dask runs
again (on another worker when there is one) up to `retries` times; a worker process that dies takes
its task with it and the scheduler gives it to another. A board that keeps failing is reported with
its engine output. A refusal that would come again anywhere (a bad range on this board, a tree too
large for memory) fails the board at once.
"""

from __future__ import annotations

import dataclasses
import fcntl
import hashlib
import json
import math
import os
import signal
import socket
import sys
import tempfile
import threading
import time
import uuid
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path

import numpy as np

from .batchfile import Batch, spot_of_board
from .cards import board_mask, parse_cards
from .client import CommandError, Engine, TavrekError, find_engine
from .flops import Board, texture
from .report import DECISIONS, PLAYERS, decision_actions, range_equity
from .solve import LEVEL_WORDS, MemoryEstimate, TreeTooLarge, set_up, solve_spot
from .spot import SpotError

RECORD_FOLDER = "flops"
NOT_RECOGNIZED = "ERROR: Command dump_tree not recognized"


class FlopFailed(Exception):
    """A board's engine died or hung; Dask may try the task again. One text argument, so it pickles."""


@dataclass
class BoardTask:
    """Everything a worker needs for one board: plain values, so it travels to any machine."""
    text: str                  # the batch file
    name: str                  # the batch file's name
    board: str                 # "Kh 7d 2c"
    weight: float
    out: str                   # the output folder, as the workers see it
    fingerprint: str
    threads: int
    budget_mb: float | None    # memory this engine may take (local cluster); None: the engine decides
    save_tree: bool
    engine: str | None         # None: the worker finds its own engine
    timeout: float = 600.0     # seconds for any one reply (a solve is not a reply)


def board_name(board: str) -> str:
    return "".join(board.split())


def record_path(out: Path, board: str) -> Path:
    return Path(out) / RECORD_FOLDER / f"{board_name(board)}.json"


def failure_path(out: Path, board: str) -> Path:
    return Path(out) / RECORD_FOLDER / f"{board_name(board)}.failed.json"


def tree_path(out: Path, board: str) -> Path:
    return Path(out) / RECORD_FOLDER / f"{board_name(board)}.tree"


def write_json(path: Path, data: dict):
    """Write a JSON file under a temporary name and rename it: a reader sees all of it or nothing."""
    path = Path(path)
    temporary = path.with_name(f".{path.name}.{os.getpid()}.{threading.get_ident()}.tmp")
    with open(temporary, "w") as f:
        json.dump(_plain(data), f, indent=1, allow_nan=False)
        f.flush()
        os.fsync(f.fileno())
    os.replace(temporary, path)


def read_json(path: Path) -> dict | None:
    try:
        return json.loads(Path(path).read_text())
    except (OSError, ValueError):
        return None


def _plain(x):
    """NaN as null, numpy numbers as Python's, for strict JSON."""
    if isinstance(x, dict):
        return {k: _plain(v) for k, v in x.items()}
    if isinstance(x, (list, tuple)):
        return [_plain(v) for v in x]
    if isinstance(x, (np.floating, float)):
        return None if math.isnan(x) else float(x)
    if isinstance(x, np.integer):
        return int(x)
    return x


# ----- one board, on a worker ------------------------------------------------------------------------

def dump_tree_supported(engine: Engine) -> bool:
    """Whether the engine writes tree files: without a path it refuses the argument, or knows no such command."""
    try:
        engine.command("dump_tree")
    except CommandError as e:
        return NOT_RECOGNIZED not in e.reply
    return True


def _quoted(path: Path) -> str:
    text = str(path)
    if '"' in text:
        raise TavrekError(f"the engine can't be given a path with a double quote: {text}")
    return f'"{text}"' if any(c.isspace() for c in text) else text


def save_tree(engine: Engine, path: Path):
    """The engine writes the tree file itself, completely or not at all (it renames a temporary file)."""
    engine.command(f"dump_tree {_quoted(path)}", timeout=None)


def summarise(engine: Engine, board: list[int]) -> dict:
    """The report's figures of a solved tree: each player's range equity, the action frequencies of
    the first decision and of each decision that answers it, and a digest of those strategies."""
    live = ~board_mask(board)
    equity = {}
    for p in PLAYERS:
        eq, matchups = engine.calc_eq(p)
        weights = np.where(live, np.nan_to_num(engine.show_range(p, "r:0"), nan=0.0), 0.0)
        equity[f"equity_{p.lower()}"] = range_equity(eq, matchups, weights)
    nodes = ["r:0"] + [c["path"] for c in engine.show_children("r:0") if c["type"] in DECISIONS]
    actions = []
    digest = hashlib.sha256()
    for path in nodes:
        player, _, labelled = decision_actions(engine, path)
        probs = engine.show_probs(path)["actions"]
        for token, label in labelled:
            actions.append({"node": path, "player": PLAYERS[player], "token": token, "label": label,
                            "frequency": probs.get(token, math.nan)})
        strategy = engine.raw(f"show_strategy {path}").lines
        digest.update(("\n".join([path] + strategy) + "\n").encode())
    return {**equity, "actions": actions, "strategy_sha256": digest.hexdigest()}


def solve_board(task: BoardTask) -> dict:
    """Solve one board and write its record (and tree file); returns the record.

    Raises FlopFailed when the engine died or hung, for Dask to try again."""
    cards = parse_cards(task.board)
    record = {"board": task.board, "status": "ok", "weight": task.weight, **texture(cards),
              "fingerprint": task.fingerprint, "threads": task.threads, "host": socket.gethostname()}
    out = Path(task.out)
    try:
        spot = spot_of_board(task.text, task.name, task.board)
        spot.threads = task.threads
        with Engine(task.engine, timeout=task.timeout) as engine:
            solved = solve_spot(engine, spot, progress=False, budget_mb=task.budget_mb)
            record.update(solved.as_dict())
            record.update(summarise(engine, cards))
            if task.save_tree:
                path = tree_path(out, task.board)
                save_tree(engine, path)
                record["tree"] = path.name
    except (CommandError, TreeTooLarge, SpotError) as e:
        # The same refusal would come on any machine: no point in trying again.
        failure = {**record, "status": "failed", "error": str(e),
                   "engine_output": getattr(e, "reply", None) or [str(e)]}
        write_json(failure_path(out, task.board), failure)
        return failure
    except TavrekError as e:
        raise FlopFailed(f"{task.board}: {e}") from None
    write_json(record_path(out, task.board), record)
    try:
        failure_path(out, task.board).unlink()
    except FileNotFoundError:
        pass
    return record


def probe(engine_path: str | None, text: str | None = None, name: str = "", board: str | None = None) -> dict:
    """What a worker's machine offers: its cores, whether its engine writes tree files, and (given a
    board) the memory that board's tree needs."""
    info = {"host": socket.gethostname(), "cores": len(os.sched_getaffinity(0))}
    with Engine(engine_path, timeout=600) as engine:
        info["engine"] = str(engine.path)
        info["dump_tree"] = dump_tree_supported(engine)
        if text is not None:
            info["estimate"] = dataclasses.asdict(set_up(engine, spot_of_board(text, name, board)))
    return info


# ----- the cluster ---------------------------------------------------------------------------------

def plan_workers(cores: int, estimate: MemoryEstimate | None, compression: str = "auto",
                 workers: int | None = None, threads: int | None = None) -> tuple[int, int, float | None]:
    """Engines at once, threads of each, and the memory each may take, for a machine of `cores`.

    One thread per engine and an engine per core use the cores best, as long as the engines fit in
    memory together without compressing more than one engine alone would (a tree compressed further
    solves slower). With fewer engines, each takes the cores left."""
    if workers is None:
        workers = max(1, cores // (threads or 1))
        if estimate is not None:
            level = compression if compression != "auto" else LEVEL_WORDS[estimate.auto_level]
            need = max(1.0, estimate.level_mb(level))
            workers = max(1, min(workers, int(estimate.budget_mb // need)))
    if threads is None:
        threads = max(1, cores // workers)
    return workers, threads, (estimate.budget_mb / workers if estimate is not None else None)


@contextmanager
def local_cluster(workers: int):
    """Worker processes on this machine, one task each at a time (each task runs its own engine)."""
    import logging

    import dask
    from distributed import Client, LocalCluster

    # A worker takes a board only when it is free, so the last boards go to whoever is free first.
    with tempfile.TemporaryDirectory(prefix="tavrek-dask-") as scratch:
        with dask.config.set({"distributed.scheduler.worker-saturation": 1.0}), _workers_ignore_ctrl_c():
            cluster = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, memory_limit=0,
                                   host="127.0.0.1", dashboard_address=None, silence_logs=logging.ERROR,
                                   local_directory=scratch)
        try:
            with Client(cluster) as client:
                yield client
        finally:
            cluster.close()


@contextmanager
def _workers_ignore_ctrl_c():
    """Ctrl-C goes to every process of the terminal's group; the worker processes started meanwhile
    inherit the signal ignored, and this process alone stops the batch and closes the cluster."""
    if threading.current_thread() is not threading.main_thread():
        yield
        return
    previous = signal.signal(signal.SIGINT, signal.SIG_IGN)
    try:
        yield
    finally:
        signal.signal(signal.SIGINT, previous)


@contextmanager
def remote_cluster(address: str, wait_seconds: float = 60):
    from distributed import Client
    try:
        client = Client(address, timeout="30s")
    except (OSError, TimeoutError) as e:
        raise TavrekError(f"can't reach the Dask scheduler at {address}: {e}") from None
    with client:
        try:
            client.wait_for_workers(1, timeout=wait_seconds)
        except TimeoutError:
            raise TavrekError(f"no worker joined the scheduler at {address} within {wait_seconds:g} s") from None
        yield client


# ----- the batch -----------------------------------------------------------------------------------

@dataclass
class Outcome:
    boards: int
    skipped: int          # finished before this run
    solved: int
    failed: int
    stale: int            # records made with other settings, solved again
    seconds: float
    workers: int = 0
    threads: int = 0
    files: dict = dataclasses.field(default_factory=dict)


def finished_boards(batch: Batch, out: Path) -> tuple[set[str], int]:
    """Boards whose record was made with the batch's present settings, and how many records are out of date."""
    done, stale = set(), 0
    for board in batch.boards:
        record = read_json(record_path(out, board.text))
        if record and record.get("status") == "ok":
            if record.get("fingerprint") == batch.fingerprint(board):
                done.add(board.text)
            else:
                stale += 1
    return done, stale


def run_batch(batch: Batch, out: Path | None = None, scheduler: str | None = None, engine: str | None = None,
              workers: int | None = None, threads: int | None = None, save_trees: bool | None = None,
              progress: bool = True, on_record=None, log=None) -> Outcome:
    """Solve every board of the batch not yet done, then write the aggregated report.

    on_record(record) is called in this thread as each board comes back (a test's hook)."""
    log = log or (lambda text: print(text, file=sys.stderr))
    out = Path(out or batch.out).resolve()
    (out / RECORD_FOLDER).mkdir(parents=True, exist_ok=True)
    with _only_run(out):
        return _run(batch, out, scheduler, engine, workers, threads, save_trees, progress, on_record, log)


@contextmanager
def _only_run(out: Path):
    """One batch at a time in a folder: a second would solve the same boards again."""
    with open(out / ".lock", "w") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise TavrekError(f"another tavrek-batch is working in {out}") from None
        yield


def _run(batch, out, scheduler, engine, workers, threads, save_trees, progress, on_record, log) -> Outcome:
    from .batch_report import write_batch_report

    save = batch.save_trees if save_trees is None else save_trees
    workers = workers or batch.workers
    threads = threads or batch.threads
    start = time.monotonic()
    done, stale = finished_boards(batch, out)
    # The likely longest boards first, so that the last ones to finish are short and no core waits long.
    todo = sorted((b for b in batch.boards if b.text not in done), key=_breadth, reverse=True)
    log(f"batch {batch.name}: {batch.flop_set}; {len(done)} done before, {len(todo)} to solve"
        + (f" ({stale} made with other settings are solved again)" if stale else "") + f"; output in {out}")
    outcome = Outcome(boards=len(batch.boards), skipped=len(done), solved=0, failed=0, stale=stale, seconds=0.0)
    if todo:
        if scheduler:
            cluster = remote_cluster(scheduler)
            budget = None
        else:
            engine = str(find_engine(engine).resolve())
            info = probe(engine, batch.text, batch.name, _widest(todo).text)
            _check_trees(info, save)
            estimate = MemoryEstimate(**info["estimate"])
            workers, threads, budget = plan_workers(info["cores"], estimate, batch.spot.compression, workers,
                                                    threads)
            cluster = local_cluster(workers)
        with cluster as client:
            if scheduler:
                info = client.submit(probe, engine, pure=False).result()
                _check_trees(info, save)
                nthreads = client.nthreads()
                workers = len(nthreads)
                threads = threads or max(1, info["cores"] // max(1, _per_host(client)))
            log(f"{workers} workers, {threads} engine thread{'s' if threads != 1 else ''} each"
                + ("" if save else "; no tree files"))
            outcome.workers, outcome.threads = workers, threads
            tasks = [BoardTask(text=batch.text, name=batch.name, board=b.text, weight=b.weight, out=str(out),
                               fingerprint=batch.fingerprint(b), threads=threads, budget_mb=budget,
                               save_tree=save, engine=engine) for b in todo]
            _solve_all(client, tasks, batch.retries, out, outcome, progress, on_record)
    outcome.seconds = time.monotonic() - start
    outcome.files = write_batch_report(batch, out)
    return outcome


def _breadth(board: Board) -> tuple[int, int]:
    """Suits and ranks of a board: the more of each, the less suit isomorphism shrinks its tree."""
    return len({c // 13 for c in board.cards}), len({c % 13 for c in board.cards})


def _widest(boards: list[Board]) -> Board:
    """The board whose tree is likely the largest."""
    return max(boards, key=_breadth)


def _check_trees(info: dict, save: bool):
    if save and not info["dump_tree"]:
        raise TavrekError(f"the engine {info['engine']} on {info['host']} does not write tree files "
                          f"(dump_tree not recognized); run the batch without them (--no-trees, or "
                          f"save_trees = false in [batch])")


def _per_host(client) -> int:
    hosts: dict[str, int] = {}
    for worker in client.scheduler_info()["workers"].values():
        hosts[worker["host"]] = hosts.get(worker["host"], 0) + 1
    return max(hosts.values(), default=1)


def _solve_all(client, tasks: list[BoardTask], retries: int, out: Path, outcome: Outcome, progress: bool,
               on_record):
    from distributed import wait

    run = uuid.uuid4().hex[:8]
    futures = {client.submit(solve_board, task, key=f"tavrek-{board_name(task.board)}-{run}", retries=retries,
                             pure=False): task for task in tasks}
    pending = set(futures)
    bar = _ProgressBar(len(tasks)) if progress else None
    try:
        while pending:
            try:
                finished, pending = wait(pending, timeout=1.0, return_when="FIRST_COMPLETED")
            except TimeoutError:        # no board came back within the second
                finished = set()
                if client.status not in ("running", "connecting"):
                    # The client gave up on the scheduler: its futures will never finish.
                    raise TavrekError(f"lost the Dask scheduler ({client.status}) with {len(pending)} boards "
                                      "unfinished; finished boards are kept, run the batch again to go on")
            for future in finished:
                task = futures[future]
                record = _collect(future, task, out)
                if record["status"] == "ok":
                    outcome.solved += 1
                else:
                    outcome.failed += 1
                if on_record:
                    on_record(record)
            if bar:
                bar.show(outcome.solved, outcome.failed, _running(client, pending, futures))
    finally:
        if bar:
            bar.close()
        if pending:
            client.cancel(list(pending))


def _collect(future, task: BoardTask, out: Path) -> dict:
    """A board's record from its finished task; a task that kept failing becomes a failure record."""
    if future.status == "finished":
        record = future.result()
        # A worker on another machine may write to a folder this one doesn't see.
        path = record_path(out, task.board) if record["status"] == "ok" else failure_path(out, task.board)
        if not path.exists():
            write_json(path, record)
        return record
    from distributed.scheduler import KilledWorker

    error = future.exception()
    text = str(error) or type(error).__name__
    if isinstance(error, KilledWorker):
        text = f"every worker that took this board died while solving it ({text})"
    record = {"board": task.board, "status": "failed", "weight": task.weight, **texture(parse_cards(task.board)),
              "fingerprint": task.fingerprint, "error": text, "engine_output": text.splitlines()}
    write_json(failure_path(out, task.board), record)
    return record


def _running(client, pending: set, futures: dict) -> int:
    """Boards being solved now: tasks of ours on the workers, at most one per worker thread."""
    try:
        keys = {future.key for future in pending}
        busy = sum(len([k for k in tasks if k in keys]) for tasks in client.processing().values())
        return min(busy, sum(client.nthreads().values()))
    except Exception:      # a figure for the display only
        return 0


class _ProgressBar:
    """The whole batch: boards done, running, failed, and the time left at the rate so far."""

    def __init__(self, total: int):
        from tqdm import tqdm
        self.bar = tqdm(total=total, desc="boards", unit="board", dynamic_ncols=True, file=sys.stderr,
                        bar_format="{desc} {percentage:3.0f}%|{bar}| {n}/{total} done{postfix} "
                                   "[{elapsed}, {remaining} left]")

    def show(self, solved: int, failed: int, running: int):
        self.bar.set_postfix_str(f"{running} running, {failed} failed", refresh=False)
        self.bar.update(solved + failed - self.bar.n)
        self.bar.refresh()

    def close(self):
        self.bar.close()
