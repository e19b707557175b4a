import re

import numpy as np
import pytest

from conftest import BENCH, bench_spot
from tavrek.cards import CLASS_COMBOS, CLASS_NAMES, COMBO_TEXT, parse_cards, board_mask
from tavrek.ranges import RangeError, format_range, from_grid, parse_range, to_grid


def test_every_class_and_weight_round_trips():
    rng = np.random.default_rng(7)
    for cell, name in enumerate(CLASS_NAMES):
        for weight in (1.0, 0.5, 0.125, float(rng.uniform(0.01, 1.0))):
            w = np.zeros(1326)
            w[CLASS_COMBOS[cell]] = weight
            text = format_range(w)
            assert np.array_equal(parse_range(text), w), (name, weight, text)
            assert len(CLASS_COMBOS[cell]) == {2: 6, 3: 4 if name.endswith("s") else 12}[len(name)]
    # Mixed ranges: class weights at random, then single hands apart from their class.
    for _ in range(20):
        w = from_grid(rng.choice([0.0, 0.25, 0.5, 1.0, 0.3333], size=(13, 13)))
        w[rng.integers(0, 1326, size=15)] = rng.uniform(0, 1, size=15).round(3)
        assert np.array_equal(parse_range(format_range(w)), w)
    grid = rng.uniform(0, 1, size=(13, 13))
    assert np.allclose(to_grid(from_grid(grid)), grid)


@pytest.mark.parametrize("text, combos", [
    ("22+", 78), ("A2s+", 48), ("KTo+", 36), ("AK", 16), ("AT+", 64), ("QQ-99", 24), ("99-QQ", 24),
    ("A5s-A2s", 16), ("T9s-54s", 24), ("AhKh, AhKh", 1), ("any", 1326), ("QJs:0.5", 2), ("kts+", 12),
    ("22+, AA:0", 72), ("AKs AKo:0.5", 10),
])
def test_combo_counts(text, combos):
    assert parse_range(text).sum() == combos


@pytest.mark.parametrize("text, word", [
    ("AKx", "AKx"), ("AA+s", "AA+s"), ("AKs:2", "from 0 to 1"), ("AKs:x", "not a number"), ("AhAh", "twice"),
    ("A5s-K2s", "span"), ("AAs", "pair"), (":0.5", "no hands"),
])
def test_bad_notation_names_the_item(text, word):
    with pytest.raises(RangeError, match=re.escape(word)):
        parse_range(text)


def test_notation_matches_bench_spot_weights():
    """The bench README's ranges, in notation, are exactly the weights of its spot files."""
    readme = (BENCH / "README.md").read_text() if BENCH.exists() else ""
    spot = bench_spot("R").read_text()
    found = re.findall(r"(OOP|IP) range: (.*?) \((\d+) combos\)", " ".join(readme.split()))
    assert len(found) == 2
    for word, text, combos in found:
        line = next(l for l in spot.splitlines() if l.startswith(f"set_range {word} "))
        expected = np.array(line.split()[2:], dtype=float)
        w = parse_range(text.rstrip("."))
        assert w.sum() == int(combos)
        assert np.array_equal(w, expected), word


def test_hand_order_and_grid_agree_with_the_engine(engine):
    assert engine.command("show_hand_order") == COMBO_TEXT
    # Grid cells: suited above the diagonal, offsuit below, aces first.
    assert CLASS_NAMES[0] == "AA" and CLASS_NAMES[1] == "AKs" and CLASS_NAMES[13] == "AKo"
    assert CLASS_NAMES[168] == "22"
    blocked = board_mask(parse_cards("Kh 7d 2c"))
    assert blocked.sum() == 1326 - 1176
