"""End to end: a river spot file solved through the client, its report checked against the engine's replies,
and the HTML page drawn by a headless browser."""

import csv
import json
import shutil
import subprocess

import numpy as np
import pytest

from conftest import EXAMPLES
from tavrek.client import Engine, TavrekError
from tavrek.render import action_colours, write_report
from tavrek.report import PLAYERS, gather
from tavrek.solve import solve_spot
from tavrek.spot import load_spot


@pytest.fixture(scope="module")
def solved(engine_path, tmp_path_factory):
    spot = load_spot(EXAMPLES / "river.toml")
    with Engine(engine_path, timeout=60) as engine:
        record = solve_spot(engine, spot, progress=False)
        reports = {path: gather(engine, path, "river.toml") for path in ("r:0", "r:0:c", "r:0:c:b50")}
        yield engine, spot, record, reports, tmp_path_factory.mktemp("report")


def test_solve_record(solved):
    engine, spot, record, _, _ = solved
    assert record.reason == "required accuracy reached"
    assert record.exploitable <= spot.accuracy / 100 * spot.pot
    assert record.ev_oop + record.ev_ip == pytest.approx(spot.pot, abs=0.01)
    assert record.iterations >= 25 and record.compression == 0


@pytest.mark.parametrize("path", ["r:0", "r:0:c", "r:0:c:b50"])
def test_report_numbers_match_the_engine(solved, path):
    engine, spot, _, reports, _ = solved
    report = reports[path]
    me = report.player
    freqs = [a.frequency for a in report.actions]
    assert sum(freqs) == pytest.approx(1, abs=1e-6)
    assert freqs == pytest.approx([a.engine_frequency for a in report.actions], abs=1e-6)   # show_probs
    ev, weight = engine.calc_ev(me, path)
    np.testing.assert_array_equal(report.ev, ev)
    for p in PLAYERS:
        eq, matchups, total = engine.calc_eq_node(p, path)
        np.testing.assert_array_equal(report.equity[p], eq)
        assert report.engine_equity[p] == total
    # Each hand's strategy sums to one, and the range EV is the weighted mean of calc_ev.
    for i in report.hands():
        assert report.strategy[:, i].sum() == pytest.approx(1, abs=1e-5)
    ok = ~np.isnan(ev)
    assert report.range_ev() == pytest.approx((ev[ok] * weight[ok]).sum() / weight[ok].sum())
    # Range equities weighted by the players' own ranges: the two shares of the pot add up to one.
    assert report.range_equity("OOP") + report.range_equity("IP") == pytest.approx(1, abs=1e-4)


def test_root_equity_is_calc_eq(solved):
    engine, spot, _, reports, _ = solved
    for p in PLAYERS:
        eq, matchups = engine.calc_eq(p)
        np.testing.assert_array_equal(reports["r:0"].equity[p], eq)
    # At the root the range is the spot's own.
    assert np.array_equal(reports["r:0"].range["OOP"][reports["r:0"].live], spot.ranges[0][reports["r:0"].live])


def test_labels_and_refusals(solved):
    engine, _, _, reports, _ = solved
    assert [a.label for a in reports["r:0"].actions] == ["check", "bet 50 (50%)", "all-in 200"]
    assert [a.label for a in reports["r:0:c:b50"].actions] == ["fold", "call 50", "all-in 200"]
    with pytest.raises(TavrekError, match="not a decision"):
        gather(engine, "r:0:c:c")
    with pytest.raises(TavrekError, match="incorrect path"):
        gather(engine, "r:0:b77")


def test_exports_hold_the_same_numbers(solved):
    _, _, _, reports, folder = solved
    report = reports["r:0:c"]
    files = write_report(report, folder)
    data = json.loads(files["json"].read_text())
    assert [a["frequency"] for a in data["actions"]] == [a.frequency for a in report.actions]
    assert data["range_equity"]["IP"] == report.range_equity("IP")
    rows = list(csv.DictReader(files["csv"].open()))
    assert [r["hand"] for r in rows] == [h["hand"] for h in data["hands"]] and len(rows) == len(report.hands())
    first = report.hands()[0]
    assert float(rows[0]["ev"]) == report.ev[first]
    assert float(rows[0][report.actions[2].label]) == report.strategy[2, first]
    assert len(data["grids"]) == 3 and len(data["grids"]["check"]) == 13
    for png in files["png"]:
        assert png.read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"
    page = files["html"].read_text()
    assert "check" in page and "all-in 200" in page and "title='AA:" in page


def test_html_grid_is_drawn_in_chromium(solved):
    chromium = shutil.which("chromium") or shutil.which("chromium-browser")
    if not chromium:
        pytest.skip("Debian's chromium is not installed (scripts/setup.sh installs it)")
    _, _, _, reports, folder = solved
    report = reports["r:0:c"]
    files = write_report(report, folder)
    shot = folder / "screenshot.png"
    profile = folder / "chromium-profile"
    profile.mkdir(exist_ok=True)
    subprocess.run([chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                    "--disable-background-networking", "--disable-component-update", "--disable-sync",
                    f"--user-data-dir={profile}", "--window-size=1000,900", f"--screenshot={shot}",
                    files["html"].as_uri()], check=True, capture_output=True, timeout=120)
    import matplotlib.image
    pixels = (matplotlib.image.imread(shot)[:, :, :3] * 255).round().astype(int)
    # Each action's colour covers the page in proportion to its share of the range.
    for action, colour in zip(report.actions, action_colours(report)):
        rgb = np.array([int(colour[i:i + 2], 16) for i in (1, 3, 5)])
        share = (np.abs(pixels - rgb).sum(axis=2) <= 6).mean()
        assert share > 0.05 * action.frequency, (action.label, share)   # about 0.13 when drawn
    # Cells of hands outside the range are grey.
    grey = (np.abs(pixels - np.array([0xe6, 0xe6, 0xe6])).sum(axis=2) <= 6).mean()
    assert grey > 0.05
