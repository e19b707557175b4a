"""Batch files: a spot file with the board left open, the set of boards to solve it on, and how.

    pot = 100
    stack = 900
    [ranges]
    oop = "..."
    ip = "..."
    [bets]
    bet = [50]
    [solve]
    accuracy = 1                # per cent of the pot, for every board

    [flops]                     # one of:
    all = true                  # the 1,755 flops that suit isomorphism makes distinct, weighted
    subset = 25                 # a weighted subset by texture (see flops.py)
    boards = ["Qs Jh 2h", "Kh 7d 2c"]   # a list of boards of 3 to 5 cards
    weights = [24, 24]          # with boards: optional (default: how many boards each stands for)

    [batch]
    out = "kh7d2c-batch"        # the output folder, beside the batch file (default: <name>-batch)
    workers = 2                 # engines at once on the local cluster (default: from cores and memory)
    threads = 1                 # threads of each engine (default: the cores shared among the workers)
    save_trees = true           # write each board's tree file
    retries = 2                 # further attempts at a board whose engine died
"""

from __future__ import annotations

import dataclasses
import hashlib
from dataclasses import dataclass
from pathlib import Path

from .cards import CardError, parse_cards
from .lines import add_line_commands
from .flops import MAX_SUBSET, Board, all_flops, orbit_size, stratified_subset
from .spot import Spot, SpotError, _Locator, parse_spot, read_toml

BATCH_TABLES = ("flops", "batch")
_FLOPS_KEYS = {"all", "subset", "boards", "weights"}
_BATCH_KEYS = {"out", "workers", "threads", "save_trees", "retries"}


@dataclass
class Batch:
    name: str                  # the file, for messages
    text: str                  # the file's text: each worker reads its spot from it
    spot: Spot                 # the spot on the first board
    boards: list[Board]
    flop_set: str              # what the boards are, in words
    out: Path
    workers: int | None = None
    threads: int | None = None
    save_trees: bool = True
    retries: int = 2
    _fingerprints: dict = dataclasses.field(default_factory=dict, repr=False)

    def fingerprint(self, board: Board) -> str:
        """The fingerprint of the spot on this board: the same for all boards of one size."""
        size = len(board.cards)
        if size not in self._fingerprints:
            self._fingerprints[size] = fingerprint(self.spot_for(board))
        return self._fingerprints[size]

    def spot_for(self, board: Board) -> Spot:
        """The batch's spot on one board."""
        if len(board.cards) == len(self.spot.board):
            return dataclasses.replace(self.spot, board=list(board.cards))
        return parse_spot(self.text, self.name, board=list(board.cards), tables=BATCH_TABLES)


def fingerprint(spot: Spot) -> str:
    """What decides a board's solution besides the board: ranges, pot, stacks, lines, rake, the stop rule and
    the level. A record made under another fingerprint is out of date. The thread count is left out."""
    parts = [spot.ranges[0].tobytes(), spot.ranges[1].tobytes(),
             repr((spot.pot, spot.stack, spot.rake, spot.accuracy, spot.compression, spot.go_command())).encode()]
    parts += [line.encode() for line in add_line_commands(spot.rules)]
    return hashlib.sha256(b"\n".join(parts)).hexdigest()[:16]


def spot_of_board(text: str, name: str, board: str) -> Spot:
    """A worker's spot: the batch file's text on one board."""
    return parse_spot(text, name, board=parse_cards(board), tables=BATCH_TABLES)


def load_batch(path: str | Path) -> Batch:
    path = Path(path)
    try:
        text = path.read_text()
    except OSError as e:
        raise SpotError(str(path), None, f"can't read the file ({e.strerror})") from None
    return parse_batch(text, str(path), path.parent, path.stem)


def parse_batch(text: str, name: str = "<batch>", folder: Path = Path("."), stem: str = "batch") -> Batch:
    data = read_toml(text, name)
    where = _Locator(text)

    def fail(key: tuple, problem: str):
        raise SpotError(name, where.line(*key), problem)

    def table(key: str, allowed: set) -> dict:
        value = data.get(key, {})
        if not isinstance(value, dict):
            fail((key,), f"'{key}' must be a table")
        for k in value:
            if k not in allowed:
                fail((key, k), f"unknown key '{k}' in [{key}] (known: {', '.join(sorted(allowed))})")
        return value

    def whole(key: tuple, value, minimum: int) -> int:
        if isinstance(value, bool) or not isinstance(value, int) or value < minimum:
            fail(key, f"{key[-1]} must be a whole number of at least {minimum}, not {value!r}")
        return value

    flops = table("flops", _FLOPS_KEYS)
    options = table("batch", _BATCH_KEYS)
    chosen = [k for k in ("all", "subset", "boards") if k in flops]
    if len(chosen) != 1:
        fail(("flops",), "[flops] needs one of all = true, subset = N or boards = [...]"
             + (f", not {' and '.join(chosen)}" if chosen else ""))
    if "weights" in flops and "boards" not in flops:
        fail(("flops", "weights"), "weights go with a list of boards")
    kind = chosen[0]
    if kind == "all":
        if flops["all"] is not True:
            fail(("flops", "all"), "all = true takes every flop; name boards or a subset otherwise")
        boards = list(all_flops())
        described = f"all {len(boards):,} flops"
    elif kind == "subset":
        size = whole(("flops", "subset"), flops["subset"], 1)
        if size > MAX_SUBSET:
            fail(("flops", "subset"), f"a subset has at most {MAX_SUBSET} flops; take them all with all = true")
        boards = stratified_subset(size)
        described = f"a subset of {size} flops"
    else:
        boards = _board_list(flops, fail)
        described = f"a list of {len(boards)} boards"

    spot = parse_spot(text, name, board=list(boards[0].cards), tables=BATCH_TABLES)
    if kind != "boards" and not dataclasses.replace(spot, board=[]).symmetric():
        fail(("flops", kind), "a flop stands for its suit renamings only when the ranges give every suit of a "
                              "hand class one weight; name the boards with boards = [...]")

    out = options.get("out", f"{stem}-batch")
    if not isinstance(out, str) or not out.strip():
        fail(("batch", "out"), "out is a folder name")
    save_trees = options.get("save_trees", True)
    if not isinstance(save_trees, bool):
        fail(("batch", "save_trees"), "save_trees is true or false")
    return Batch(name=name, text=text, spot=spot, boards=boards, flop_set=described, out=folder / out,
                 workers=whole(("batch", "workers"), options["workers"], 1) if "workers" in options else None,
                 threads=whole(("batch", "threads"), options["threads"], 1) if "threads" in options else None,
                 save_trees=save_trees, retries=whole(("batch", "retries"), options.get("retries", 2), 0))


def _board_list(flops: dict, fail) -> list[Board]:
    texts = flops["boards"]
    if not isinstance(texts, list) or not texts or not all(isinstance(t, str) for t in texts):
        fail(("flops", "boards"), "boards is a list of texts such as [\"Kh 7d 2c\", \"As 5s 5d 9c\"]")
    weights = flops.get("weights")
    if weights is not None:
        if not isinstance(weights, list) or len(weights) != len(texts) or not all(
                isinstance(w, (int, float)) and not isinstance(w, bool) and w > 0 for w in weights):
            fail(("flops", "weights"), f"weights is a list of {len(texts)} numbers above 0, one per board")
    boards, seen = [], {}
    for i, board_text in enumerate(texts):
        try:
            cards = parse_cards(board_text)
        except CardError as e:
            fail(("flops", "boards"), f"board {i + 1}: {e}")
        if not 3 <= len(cards) <= 5:
            fail(("flops", "boards"), f"board {i + 1} ('{board_text}') has {len(cards)} cards, not 3 to 5")
        key = frozenset(cards)
        if key in seen:
            fail(("flops", "boards"), f"'{board_text}' is named twice (boards {seen[key] + 1} and {i + 1})")
        seen[key] = i
        boards.append(Board(tuple(cards), float(weights[i]) if weights else float(orbit_size(cards))))
    return boards
