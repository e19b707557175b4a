"""The numbers of one decision node, gathered from the engine's replies, with CSV and JSON exports.

Range equity.  The engine's `calc_eq_node` ends with one figure: the mean of
the hands' equities weighted by their matchups, i.e. by how much of the
opponent's range each hand meets after card removal.  Every hand of the
board's list counts in it, the ones the player never holds at this node
included.  A player's "range equity" is the mean over the hands he actually
holds: here each hand is weighted by its matchups times its own weight in the
range that reaches the node (`show_range`).  Both figures are reported.
"""

from __future__ import annotations

import csv
import json
import math
from dataclasses import dataclass, field

import numpy as np

from .cards import COMBO_CLASS, COMBO_COUNT, COMBO_TEXT, CLASS_NAMES, board_mask, parse_cards
from .client import Engine, TavrekError
from .ranges import to_grid

PLAYERS = ("OOP", "IP")


@dataclass
class Action:
    token: str          # the engine's path token: f, c, b<amount>
    label: str          # what a player calls it: fold, check, call 20, bet 45 (75%), raise to 135, all-in 470
    frequency: float    # share of the acting player's range that takes it
    engine_frequency: float   # the same figure as show_probs gives it


@dataclass
class NodeReport:
    spot: str
    path: str
    board: list[str]
    player: str
    pot: float                  # the pot at this node: the starting pot and everything put in since
    committed: tuple[float, float]
    actions: list[Action]
    strategy: np.ndarray        # actions x 1326, hand order
    range: dict                 # player word -> 1326 weights reaching the node
    ev: np.ndarray              # acting player's EV per hand (NaN off his range)
    ev_weight: np.ndarray
    equity: dict                # player word -> 1326 equities (0..1, NaN when no matchup)
    matchups: dict              # player word -> 1326 matchups
    engine_equity: dict         # player word -> calc_eq_node's last line
    live: np.ndarray = field(repr=False, default=None)   # hands that share no card with the board

    @property
    def acting(self) -> int:
        return PLAYERS.index(self.player)

    def range_equity(self, player: str) -> float:
        """Equity of the player's own range: hands weighted by matchups times their weight."""
        return range_equity(self.equity[player], self.matchups[player], self.range[player])

    def range_ev(self) -> float:
        ok = ~np.isnan(self.ev) & ~np.isnan(self.ev_weight)
        w = self.ev_weight[ok]
        return float((w * self.ev[ok]).sum() / w.sum()) if w.sum() > 0 else math.nan

    def hands(self) -> list[int]:
        """Hands of the acting player that reach the node, best equity first."""
        r = self.range[self.player]
        held = np.flatnonzero((r > 0) & self.live)
        eq = np.nan_to_num(self.equity[self.player][held], nan=-1.0)
        return [int(i) for i in held[np.argsort(-eq, kind="stable")]]

    def grids(self) -> list[np.ndarray]:
        """Per action, the 13 x 13 grid of its frequency in each hand class, weighted by the range."""
        r = np.where(self.live, self.range[self.player], 0.0)
        return [to_grid(row, r) for row in self.strategy]

    def class_weight_grid(self) -> np.ndarray:
        """Per class, the share of its hands that the acting player holds at the node (0..1)."""
        r = np.where(self.live, self.range[self.player], 0.0)
        live = self.live.astype(float)
        num = np.bincount(COMBO_CLASS, weights=r, minlength=169)
        den = np.bincount(COMBO_CLASS, weights=live, minlength=169)
        with np.errstate(invalid="ignore", divide="ignore"):
            return np.where(den > 0, num / np.where(den > 0, den, 1), np.nan).reshape(13, 13)

    # ----- exports ------------------------------------------------------------------------------------

    def hand_rows(self) -> list[dict]:
        me = self.player
        rows = []
        for i in self.hands():
            row = {"hand": COMBO_TEXT[i], "class": CLASS_NAMES[COMBO_CLASS[i]], "weight": _num(self.range[me][i])}
            for a, action in enumerate(self.actions):
                row[action.label] = _num(self.strategy[a, i])
            row["ev"] = _num(self.ev[i])
            row["equity"] = _num(self.equity[me][i])
            row["matchups"] = _num(self.matchups[me][i])
            rows.append(row)
        return rows

    def summary(self) -> dict:
        return {
            "spot": self.spot, "node": self.path, "board": self.board, "player": self.player,
            "pot": self.pot, "committed": {"OOP": self.committed[0], "IP": self.committed[1]},
            "actions": [{"token": a.token, "label": a.label, "frequency": a.frequency} for a in self.actions],
            "range_ev": _num(self.range_ev()),
            "range_equity": {p: _num(self.range_equity(p)) for p in PLAYERS},
            "calc_eq_node_equity": {p: _num(self.engine_equity[p]) for p in PLAYERS},
            "combos": {p: _num(float(np.where(self.live, self.range[p], 0.0).sum())) for p in PLAYERS},
        }

    def to_json(self) -> str:
        data = self.summary()
        data["grids"] = {a.label: [[_num(x) for x in row] for row in g] for a, g in zip(self.actions, self.grids())}
        data["hands"] = self.hand_rows()
        return json.dumps(data, indent=1, allow_nan=False)

    def write_csv(self, path):
        rows = self.hand_rows()
        fields = ["hand", "class", "weight"] + [a.label for a in self.actions] + ["ev", "equity", "matchups"]
        with open(path, "w", newline="") as f:
            writer = csv.DictWriter(f, fieldnames=fields)
            writer.writeheader()
            for row in rows:
                writer.writerow({k: ("" if v is None else v) for k, v in row.items()})


def range_equity(equity: np.ndarray, matchups: np.ndarray, weights: np.ndarray) -> float:
    """A range's share of the pot at showdown: its hands' equities weighted by matchups times weight."""
    ok = ~np.isnan(equity) & ~np.isnan(matchups) & (weights > 0)
    w = (matchups * weights)[ok]
    return float((w * equity[ok]).sum() / w.sum()) if w.sum() > 0 else math.nan


def _num(x):
    """A float for JSON and CSV, None for NaN."""
    x = float(x)
    return None if math.isnan(x) else x


def _fmt(x: float) -> str:
    return f"{x:g}"


def action_label(token: str, committed: tuple[float, float], player: int, pot: float, stack: float) -> str:
    """A player's name for the engine's token, from the amounts at the node."""
    top = max(committed)
    facing = committed[0] != committed[1]
    if token == "f":
        return "fold"
    if token == "c":
        return f"call {_fmt(top - committed[player])}" if facing else "check"
    amount = float(token[1:])
    if amount >= stack:
        return f"all-in {_fmt(amount)}"
    if facing:
        return f"raise to {_fmt(amount)}"
    return f"bet {_fmt(amount - top)} ({100.0 * (amount - top) / pot:.0f}%)"


DECISIONS = ("OOP_DEC", "IP_DEC")


def decision_actions(engine: Engine, path: str, node: dict | None = None) -> tuple[int, float, list[tuple[str, str]]]:
    """At a decision: the acting player (0 OOP, 1 IP), the pot, and each action's path token and label."""
    node = node or engine.show_node(path)
    if node["type"] not in DECISIONS:
        kinds = {"ROOT": "the root above the first decision (use r:0)",
                 "SPLIT_NODE": "the end of a street: name the next card, e.g. " + path + ":As",
                 "END_NODE": "the end of the hand"}
        raise TavrekError(f"{path} is {kinds.get(node['type'], node['type'])}, not a decision")
    player = DECISIONS.index(node["type"])
    pot_now = node["pot"] + sum(node["committed"])
    stack = engine.command("show_effective_stack")
    tokens = [child["path"].rsplit(":", 1)[1] for child in engine.show_children(path)]
    return player, pot_now, [(t, action_label(t, node["committed"], player, pot_now, stack)) for t in tokens]


def gather(engine: Engine, path: str, spot_name: str = "") -> NodeReport:
    """Ask the engine everything about the decision at path."""
    if path == "r":
        path = "r:0"
    node = engine.show_node(path)
    player, pot_now, labelled = decision_actions(engine, path, node)
    me = PLAYERS[player]
    tokens = [token for token, _ in labelled]
    strategy = engine.show_strategy(path)
    probs = engine.show_probs(path)["actions"]
    ranges = {p: np.nan_to_num(engine.show_range(p, path), nan=0.0) for p in PLAYERS}
    live = ~board_mask(parse_cards(" ".join(node["cards"])))
    ev, ev_weight = engine.calc_ev(me, path)
    equity, matchups, engine_equity = {}, {}, {}
    for p in PLAYERS:
        equity[p], matchups[p], engine_equity[p] = engine.calc_eq_node(p, path)
    r = np.where(live, ranges[me], 0.0)
    total = r.sum()
    actions = []
    for a, (token, label) in enumerate(labelled):
        freq = float((r * strategy[a]).sum() / total) if total > 0 else math.nan
        actions.append(Action(token, label, freq, probs.get(token, math.nan)))
    if strategy.shape != (len(tokens), COMBO_COUNT):
        raise TavrekError(f"show_strategy gave {strategy.shape[0]} rows for {len(tokens)} actions")
    return NodeReport(spot=spot_name, path=path, board=node["cards"], player=me, pot=pot_now,
                      committed=node["committed"], actions=actions, strategy=strategy, range=ranges, ev=ev,
                      ev_weight=ev_weight, equity=equity, matchups=matchups, engine_equity=engine_equity,
                      live=live)
