"""A batch on a cluster started by hand: a `dask scheduler` and two `dask worker`s on the loopback address.
The command line runs a batch on it; then one worker is killed in the middle of a solve, and the batch
still ends with every board once."""

import csv
import json
import os
import shutil
import signal
import subprocess
import sys
import threading
import time

import psutil
import pytest

from conftest import PYTHON
from tavrek.batch import record_path, run_batch
from tavrek.batchfile import parse_batch

TURNS = ["Qs Jh 2h 8d", "Kh 7d 2c 5s", "As Ks 3d 8c", "Th 9h 8c 4d"]
BATCH = """pot = 100
stack = 400
[ranges]
oop = "22-QQ, A2s-AKs, K9s+, QTs+, JTs, T9s, 98s, A9o+, KTo+, QJo"
ip = "22-AA, A2s+, KTs+, QTs+, JTs, T9s, A8o+, KJo+"
[bets]
bet = [50]
[solve]
accuracy = 0
max_seconds = 2
[flops]
boards = [{}]
[batch]
save_trees = false
""".format(", ".join(f'"{b}"' for b in TURNS))


def dask_command(word: str) -> list[str]:
    if shutil.which("dask"):
        return ["dask", word]
    if shutil.which(f"dask-{word}"):
        return [f"dask-{word}"]
    pytest.skip("Dask's commands are not installed (python3-distributed; scripts/setup.sh installs it)")


@pytest.fixture(scope="module")
def cluster(tmp_path_factory, engine_path):
    """A scheduler and two workers, each in a process group of its own; all ended afterwards."""
    env = dict(os.environ, PYTHONPATH=str(PYTHON), TAVREK_ENGINE=str(engine_path.resolve()),
               DASK_DISTRIBUTED__SCHEDULER__WORKER_SATURATION="1.0")
    tmp_path = tmp_path_factory.mktemp("cluster")
    address_file = tmp_path / "scheduler.json"
    started = [subprocess.Popen(dask_command("scheduler") + ["--host", "127.0.0.1", "--port", "0",
                                                             "--no-dashboard", "--scheduler-file", str(address_file)],
                                env=env, cwd=tmp_path, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                start_new_session=True)]
    try:
        deadline = time.monotonic() + 180
        while not address_file.exists() and time.monotonic() < deadline:
            time.sleep(0.1)
        address = json.loads(address_file.read_text())["address"]
        workers = {}
        for name in ("w0", "w1"):
            workers[name] = subprocess.Popen(
                dask_command("worker") + [address, "--nthreads", "1", "--name", name, "--host", "127.0.0.1",
                                          "--no-dashboard", "--memory-limit", "0"],
                env=env, cwd=tmp_path, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
            started.append(workers[name])
        from distributed import Client
        with Client(address, timeout="30s") as client:
            client.wait_for_workers(2, timeout=60)
        yield address, workers
    finally:
        for process in reversed(started):
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGTERM)
        for process in started:
            try:
                process.wait(timeout=20)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()


def engines_of(pid: int) -> list:
    try:
        return [p for p in psutil.Process(pid).children(recursive=True) if "tavrek" in " ".join(p.cmdline())]
    except psutil.Error:
        return []


def test_scheduler_command_line(cluster, tmp_path):
    address, _ = cluster
    (tmp_path / "turns.toml").write_text(BATCH.replace("max_seconds = 2", "max_iterations = 30"))
    run = subprocess.run([sys.executable, str(PYTHON / "bin" / "tavrek-batch"), "turns.toml", "--scheduler",
                          address, "--quiet"], cwd=tmp_path, capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stderr
    assert "4 boards: 0 done before, 4 solved now, 0 failed" in run.stdout


def test_a_worker_killed_mid_solve_loses_nothing(cluster, tmp_path):
    address, workers = cluster
    killed = {}

    def kill_a_busy_worker():
        """Once both workers have had an engine running for a second, kill the first worker with its engine.
        Watched through the processes, not a second Dask client: two clients in one process share an event
        loop, and closing one can strand the other."""
        deadline = time.monotonic() + 120
        while time.monotonic() < deadline:
            if all(engines_of(workers[name].pid) for name in workers):
                break
            time.sleep(0.05)
        time.sleep(1.0)
        killed["engines"] = engines_of(workers["w0"].pid)
        os.killpg(workers["w0"].pid, signal.SIGKILL)

    killer = threading.Thread(target=kill_a_busy_worker)
    killer.start()
    batch = parse_batch(BATCH, "turns.toml", tmp_path, "turns")
    outcome = run_batch(batch, scheduler=address, progress=False, log=lambda text: None)
    killer.join()
    assert len(killed["engines"]) == 1                        # it died in the middle of a solve
    # Its engine ends with the pipe from its worker.
    gone, alive = psutil.wait_procs(killed["engines"], timeout=15)
    assert not alive
    assert (outcome.solved, outcome.failed) == (4, 0)
    rows = list(csv.DictReader(outcome.files["csv"].open()))
    assert sorted(r["board"] for r in rows) == sorted(TURNS) and all(r["status"] == "ok" for r in rows)
    reasons = {json.loads(record_path(batch.out, b).read_text())["reason"] for b in TURNS}
    assert reasons == {"timeout reached"}
    assert outcome.threads == 1 and outcome.workers == 2
