"""Range notation to and from the engine's 1326 weights (hand order), and the 13 x 13 grid.

Notation: items separated by commas (or blanks), later items overriding earlier ones.

    QQ  QQ+  99-55 (or 55-99)         pairs
    AKs AKo AK                        suited, offsuit, both
    A2s+  KTo+  AT+                   the kicker up to one below the top card
    A5s-A2s  KQo-K9o                  a span of kickers under one top card
    T9s-54s                           a span of hands with the same gap
    AhKh  7s7c                        single hands
    any                               all 1326 hands
    item:0.5                          any item at a weight from 0 to 1 (default 1)
"""

from __future__ import annotations

import re

import numpy as np

from .cards import (CLASS_BY_NAME, CLASS_NAMES, CLASS_COMBOS, CLASS_COUNT, COMBO_CLASS, COMBO_COUNT, COMBO_TEXT, GRID_RANKS,
                    RANKS, CardError, board_mask, parse_combo)


class RangeError(ValueError):
    """A range text that does not parse; the message names the item."""


_R = "[2-9TJQKA]"
_PAIR = re.compile(rf"^({_R})\1(\+)?$")
_PAIR_SPAN = re.compile(rf"^({_R})\1-({_R})\2$")
_HAND = re.compile(rf"^({_R})({_R})([so]?)(\+)?$")
_HAND_SPAN = re.compile(rf"^({_R})({_R})([so]?)-({_R})({_R})([so]?)$")
_COMBO = re.compile(r"^[2-9TJQKA][cdhs][2-9TJQKA][cdhs]$", re.IGNORECASE)


def _rank(ch: str) -> int:
    return RANKS.index(ch)


def _class_of(hi: int, lo: int, kind: str) -> list[int]:
    """Grid cells of a hand by ranks (hi >= lo) and kind "s", "o" or "" (both)."""
    r_hi, r_lo = 12 - hi, 12 - lo
    if hi == lo:
        return [r_hi * 13 + r_hi]
    cells = []
    if kind in ("s", ""):
        cells.append(r_hi * 13 + r_lo)
    if kind in ("o", ""):
        cells.append(r_lo * 13 + r_hi)
    return cells


def _item_combos(item: str) -> np.ndarray:
    """Hand indices named by one item without its weight."""
    if item.lower() in ("any", "all", "random"):
        return np.arange(COMBO_COUNT)
    if _COMBO.match(item):
        return np.array([parse_combo(item)])
    norm = item.upper().replace("S", "s").replace("O", "o")  # no rank is written S or O
    cells: list[int] = []
    m = _PAIR.match(norm)
    if m:
        low = _rank(m.group(1))
        for r in range(low, 13 if m.group(2) else low + 1):
            cells += _class_of(r, r, "")
        return _cells_combos(cells)
    m = _PAIR_SPAN.match(norm)
    if m:
        a, b = sorted((_rank(m.group(1)), _rank(m.group(2))))
        for r in range(a, b + 1):
            cells += _class_of(r, r, "")
        return _cells_combos(cells)
    m = _HAND.match(norm)
    if m:
        hi, lo = _rank(m.group(1)), _rank(m.group(2))
        if hi < lo:
            hi, lo = lo, hi
        if hi == lo:
            raise RangeError(f"'{item}': a pair has no suited or offsuit form")
        top = hi if m.group(4) else lo + 1
        for k in range(lo, top):
            cells += _class_of(hi, k, m.group(3))
        return _cells_combos(cells)
    m = _HAND_SPAN.match(norm)
    if m and m.group(3) == m.group(6):
        h1, l1, h2, l2 = (_rank(m.group(i)) for i in (1, 2, 4, 5))
        if h1 < l1 or h2 < l2 or h1 == l1 or h2 == l2:
            raise RangeError(f"'{item}': write the higher rank first, as in A5s-A2s")
        kind = m.group(3)
        if h1 == h2:
            for k in range(min(l1, l2), max(l1, l2) + 1):
                cells += _class_of(h1, k, kind)
        elif h1 - l1 == h2 - l2:
            for h in range(min(h1, h2), max(h1, h2) + 1):
                cells += _class_of(h, h - (h1 - l1), kind)
        else:
            raise RangeError(f"'{item}': a span keeps either the top card (A5s-A2s) or the gap (T9s-54s)")
        return _cells_combos(cells)
    raise RangeError(f"'{item}' is not a hand, a class or a span of classes")


def _cells_combos(cells: list[int]) -> np.ndarray:
    return np.concatenate([CLASS_COMBOS[c] for c in cells])


def _split_weight(item: str) -> tuple[str, float]:
    if ":" not in item:
        return item, 1.0
    hands, _, text = item.rpartition(":")
    try:
        weight = float(text)
    except ValueError:
        raise RangeError(f"'{item}': the weight '{text}' is not a number") from None
    if not 0.0 <= weight <= 1.0:
        raise RangeError(f"'{item}': a weight is from 0 to 1")
    return hands.strip(), weight


def parse_range(text: str) -> np.ndarray:
    """1326 weights in hand order; later items override earlier ones."""
    weights = np.zeros(COMBO_COUNT)
    for raw in re.split(r"[,\s]+", text.strip()):
        if not raw:
            continue
        item, weight = _split_weight(raw)
        if not item:
            raise RangeError(f"'{raw}' has a weight but no hands")
        try:
            weights[_item_combos(item)] = weight
        except CardError as e:
            raise RangeError(f"'{raw}': {e}") from None
    return weights


def _weight_suffix(w: float) -> str:
    return "" if w == 1.0 else f":{float(w)!r}"


def format_range(weights) -> str:
    """The shortest usual notation for the weights; parse_range gives them back exactly."""
    w = np.asarray(weights, dtype=float)
    if w.shape != (COMBO_COUNT,):
        raise ValueError("a range has 1326 weights")
    uniform: dict[int, float] = {}
    singles: list[str] = []
    for cell in range(CLASS_COUNT):
        members = w[CLASS_COMBOS[cell]]
        if np.all(members == members[0]):
            if members[0] != 0:
                uniform[cell] = float(members[0])
        else:
            singles += [COMBO_TEXT[i] + _weight_suffix(w[i]) for i in CLASS_COMBOS[cell] if w[i] != 0]
    items: list[str] = []
    # Pairs, from aces down, in runs of one weight.
    items += _runs([(12 - r) * 14 for r in range(12, -1, -1)], uniform)
    for kind in ("s", "o"):
        for hi in range(12, 0, -1):
            r_hi = 12 - hi
            cells = [(r_hi * 13 + (12 - k)) if kind == "s" else ((12 - k) * 13 + r_hi) for k in range(hi - 1, -1, -1)]
            items += _runs(cells, uniform)
    return ", ".join(items + singles)


def _runs(cells, uniform) -> list[str]:
    """Items for runs of equal weight along cells (best first)."""
    out = []
    i = 0
    while i < len(cells):
        if cells[i] not in uniform:
            i += 1
            continue
        j = i
        while j + 1 < len(cells) and uniform.get(cells[j + 1]) == uniform[cells[i]]:
            j += 1
        out.append(_run_text(cells[i], cells[j], i == 0) + _weight_suffix(uniform[cells[i]]))
        i = j + 1
    return out


def _run_text(top: int, bottom: int, reaches_top: bool) -> str:
    """"QQ", "99+", "A5s+" when the run starts at the best hand of its row, else "99-55"."""
    if top == bottom:
        return CLASS_NAMES[top]
    return CLASS_NAMES[bottom] + "+" if reaches_top else f"{CLASS_NAMES[top]}-{CLASS_NAMES[bottom]}"


def combo_count(weights, board: list[int] | None = None) -> float:
    """Weighted number of hands, leaving out those that share a card with the board."""
    w = np.asarray(weights, dtype=float)
    if board:
        w = np.where(board_mask(board), 0.0, w)
    return float(w.sum())


def to_grid(values, weights=None) -> np.ndarray:
    """13 x 13 grid of the mean of values per hand class (weighted by weights if given).

    Cells with no weight are NaN.  Row and column 0 are the ace; suited above the diagonal.
    """
    v = np.asarray(values, dtype=float)
    wt = np.ones(COMBO_COUNT) if weights is None else np.asarray(weights, dtype=float)
    wt = np.where(np.isnan(v), 0.0, wt)
    num = np.bincount(COMBO_CLASS, weights=np.where(wt > 0, v * wt, 0.0), minlength=CLASS_COUNT)
    den = np.bincount(COMBO_CLASS, weights=wt, minlength=CLASS_COUNT)
    with np.errstate(invalid="ignore", divide="ignore"):
        grid = np.where(den > 0, num / np.where(den > 0, den, 1), np.nan)
    return grid.reshape(13, 13)


def from_grid(grid) -> np.ndarray:
    """1326 weights from a 13 x 13 grid of class weights."""
    g = np.asarray(grid, dtype=float).reshape(CLASS_COUNT)
    return np.nan_to_num(g[COMBO_CLASS], nan=0.0)


def grid_text(grid) -> str:
    """The grid as text, one row a line, for a terminal."""
    g = np.asarray(grid, dtype=float)
    lines = ["     " + "".join(f"{r:>5}" for r in GRID_RANKS)]
    for row in range(13):
        cells = "".join("    ." if np.isnan(x) else f"{x:5.2f}" for x in g[row])
        lines.append(f"{GRID_RANKS[row]:>5}{cells}")
    return "\n".join(lines)


def class_index(name: str) -> int:
    """Grid cell of a class name such as "AKs", "QQ" or "T9o"."""
    try:
        return CLASS_BY_NAME[name]
    except KeyError:
        raise RangeError(f"'{name}' is not a hand class") from None
