"""The client: every reply form into Python values, errors as exceptions, a dead engine never a hang."""

import _thread
import stat
import threading
import time

import numpy as np
import pytest

from conftest import EXAMPLES
from tavrek.client import CommandError, Engine, EngineDied, EngineTimeout, TavrekError, find_engine, parse_reply
from tavrek.spot import load_spot, parse_spot


def test_reply_forms(engine):
    assert engine.command("is_ready") is True                        # acknowledgement
    assert engine.command("show_settings") == []                     # report with no lines
    assert engine.command("is_tree_present") is False                # bare values
    assert isinstance(engine.command("solver_time"), float)
    assert engine.command("sleep 1") is None                         # nothing at all
    assert engine.command("echo hello") == "hello"
    assert engine.command("repeat 2 a b") == ["a b", "a b"]
    assert "set_board" in engine.command("help")
    with pytest.raises(CommandError) as e:                           # argument error
        engine.command("set_threads")
    assert e.value.reply == ["ERROR: set_threads incorrect or missing argument"]
    with pytest.raises(CommandError, match="not recognized"):        # unknown command
        engine.command("no_such_command 1")
    with pytest.raises(CommandError, match="Invalid value"):         # number error
        engine.command("set_threads abc")
    with pytest.raises(CommandError, match="missing/incorrect tree"):
        engine.command("show_strategy r:0")
    with pytest.raises(TavrekError, match="take the replies away"):
        engine.command("stdoutredi /tmp/x")
    assert engine.command("is_ready") is True                        # and the engine still serves


def test_reports_of_a_solved_river(engine):
    spot = load_spot(EXAMPLES / "river.toml")
    for command in spot.setup_commands():
        engine.raw(command)
    assert engine.command("show_effective_stack") == 200
    assert engine.command("get_actual_compression") == 0
    assert engine.command("show_tree_params")["board"] == "2h Jh Qs 8d 3c"
    count = engine.node_count()
    assert count["TOTAL"] == 65857 and count["H_DEC"]["river"] == 9408
    reason = engine.solve("go 200 steps")
    assert reason in ("required number of steps done", "required accuracy reached")
    results = engine.calc_results()
    assert results["ev_oop"] + results["ev_ip"] == pytest.approx(100, abs=0.01)
    assert results["mes_oop"] >= results["ev_oop"] - 0.01
    children = engine.show_children("r:0")
    assert [c["path"] for c in children] == ["r:0:c", "r:0:b50", "r:0:b200"]
    assert children[1]["committed"] == (50.0, 0.0) and children[1]["type"] == "IP_DEC"
    strategy = engine.show_strategy("r:0")
    assert strategy.shape == (3, 1326)
    held = spot.ranges[0] > 0
    live = strategy.sum(axis=0) > 0
    assert np.allclose(strategy.sum(axis=0)[live], 1, atol=1e-5) and live.sum() <= held.sum()
    ev, weight = engine.calc_ev("OOP", "r:0")
    assert np.isnan(ev[~held]).all() and not np.isnan(ev[live]).any()
    eq, matchups, total = engine.calc_eq_node("OOP", "r:0")
    ok = ~np.isnan(eq)
    assert total == pytest.approx((eq[ok] * matchups[ok]).sum() / matchups[ok].sum(), rel=1e-6)
    probs = engine.show_probs("r:0")
    assert probs["OOP"] == 1 and sum(probs["actions"].values()) == pytest.approx(1, abs=1e-6)
    pp = engine.command("show_strategy_pp r:0")
    assert all(len(v) == 3 for v in pp.values())
    assert engine.show_range("IP", "r:0:c").shape == (1326,)
    shares = [engine.line_frequency(c["path"], runouts=False) for c in children]
    assert engine.line_frequency("r:0") == 1 and sum(shares) == pytest.approx(1, rel=1e-6)


def test_ctrl_c_during_a_solve_becomes_stop(engine):
    spot = parse_spot("""
board = "Kh 7d 2c 5s"
pot = 60
stack = 470
[ranges]
oop = "any"
ip = "any"
[bets]
bet = [50]
[solve]
accuracy = 0
""")
    for command in spot.setup_commands():
        engine.raw(command)
    timer = threading.Timer(1.0, _thread.interrupt_main)
    timer.start()
    seen = []
    try:
        reason = engine.solve("go", on_progress=seen.append)
    finally:
        timer.cancel()
    assert reason == "stopped by the user"
    assert not engine.solving
    assert engine.calc_results()["exploitable"] > 0              # the tree and its iterations are kept
    assert engine.command("is_ready") is True


def fake_engine(tmp_path, body):
    path = tmp_path / "fake-engine"
    path.write_text("#!/bin/sh\necho 'Fake banner'\n" + body)
    path.chmod(path.stat().st_mode | stat.S_IEXEC)
    return path


def test_engine_that_dies_raises_with_its_last_output(tmp_path):
    # Answers the client's barrier, then dies on the next command with a message.
    path = fake_engine(tmp_path, "read a; echo tavrek_client_barrier_1\nread b; echo 'fail (out of cheese)'; exit 3\n")
    engine = Engine(path, timeout=10)
    start = time.monotonic()
    with pytest.raises(EngineDied) as e:
        engine.command("build_tree")
    assert time.monotonic() - start < 5
    assert e.value.returncode == 3 and "fail (out of cheese)" in e.value.last_output
    assert "out of cheese" in str(e.value)
    with pytest.raises(EngineDied):            # and every later command says so at once
        engine.command("is_ready")
    engine.close()


def test_engine_that_hangs_times_out(tmp_path):
    path = fake_engine(tmp_path, "read a; echo tavrek_client_barrier_1\nsleep 30\n")
    engine = Engine(path, timeout=10)
    with pytest.raises(EngineTimeout):
        engine.command("build_tree", timeout=0.5)
    engine.close(timeout=1)
    assert not engine.alive


def test_finding_the_engine(tmp_path, monkeypatch, engine_path):
    monkeypatch.setenv("TAVREK_ENGINE", str(tmp_path / "nowhere"))
    with pytest.raises(TavrekError, match="TAVREK_ENGINE"):
        find_engine()
    assert find_engine(engine_path) == engine_path          # the argument comes first
    monkeypatch.setenv("TAVREK_ENGINE", str(engine_path))
    assert find_engine() == engine_path


def test_parse_reply_without_an_engine():
    assert parse_reply("set_pot", ["set_pot ok!"]) is True
    assert parse_reply("show_memory", ["Total Physical Memory: 100 MB", "Available Phys Memory: 50 MB", "END"]) == \
        {"total_mb": 100, "available_mb": 50}
    ev, w = parse_reply("calc_ev", [" ".join(["nan", "1.5"] * 663), " ".join(["0"] * 1326), "END"])
    assert np.isnan(ev[0]) and ev[1] == 1.5 and w.shape == (1326,)
    with pytest.raises(TavrekError, match="without END"):
        parse_reply("calc_results", ["EV OOP: 1.0"])
