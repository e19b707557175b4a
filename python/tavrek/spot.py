"""Spot files: a game described in TOML, checked, and turned into the engine's commands.

    board = "Kh 7d 2c"
    pot = 60                    # chips in the middle when the tree begins (a whole number)
    stack = 470                 # each player's chips behind

    [ranges]
    oop = "22-99, A2s+, ..."
    ip = "..."

    [bets]                      # every street and player, unless a table below says otherwise
    bet = [75]                  # per cent of the pot
    raise = ["3x"]              # "3x": to three times the bet faced; 75 or "75%": of the pot after the call
    allin = true
    allin_threshold = 67        # a bet that would commit 67% of the stack or more is all-in instead
    max_raises = 3              # raises per street after the first bet (no cap when left out)
    chip = 1                    # amounts are rounded to this

    [bets.flop]                 # one street, both players
    bet = [33, 75]
    [bets.river.ip]             # one street, one player ([bets.ip]: one player, every street)
    bet = [50, 100]

    [rake]
    fraction = 0.05
    cap = 3

    [solve]
    accuracy = 0.5              # per cent of the pot
    threads = 0                 # 0: all processors
    compression = "auto"        # auto none low medium high max fast
    max_iterations = 1000       # optional
    max_seconds = 600           # optional; with both, max_iterations is the one applied

Every problem is reported as "FILE:LINE: problem" before the engine is started.
"""

from __future__ import annotations

import re
import tomllib
from dataclasses import dataclass
from pathlib import Path

import numpy as np

from .cards import CLASS_COMBOS, CLASS_COUNT, CardError, board_mask, card_text, parse_cards
from .lines import STREET_NAMES, BettingRules, Raise, StreetSizes, add_line_commands, format_amount
from .ranges import RangeError, combo_count, format_range, parse_range

COMPRESSION_WORDS = ("auto", "none", "low", "medium", "high", "max", "fast")
PLAYER_KEYS = ("oop", "ip")

_TOP_KEYS = {"board", "pot", "stack", "ranges", "bets", "rake", "solve"}
_SIZE_KEYS = {"bet", "raise", "allin"}
_BETS_KEYS = _SIZE_KEYS | {"allin_threshold", "max_raises", "chip"} | set(STREET_NAMES) | set(PLAYER_KEYS)
_SOLVE_KEYS = {"accuracy", "threads", "compression", "max_iterations", "max_seconds"}


class SpotError(ValueError):
    """A problem in a spot file; str() is "FILE:LINE: problem"."""

    def __init__(self, file: str, line: int | None, problem: str):
        self.file, self.line, self.problem = file, line, problem
        super().__init__(f"{file}:{line}: {problem}" if line else f"{file}: {problem}")


@dataclass
class Spot:
    name: str
    board: list[int]
    pot: int
    stack: float
    range_text: tuple[str, str]
    ranges: tuple[np.ndarray, np.ndarray]
    rules: BettingRules
    rake: tuple[float, float] = (0.0, 0.0)
    accuracy: float = 0.5              # per cent of the pot
    threads: int = 0
    compression: str = "auto"
    max_iterations: int | None = None
    max_seconds: int | None = None

    @property
    def streets(self) -> list[str]:
        return self.rules.streets

    @property
    def board_text(self) -> str:
        return " ".join(card_text(c) for c in self.board)

    def symmetric(self) -> bool:
        """Whether every suit variant of a hand class has one weight (off the board)."""
        blocked = board_mask(self.board)
        for weights in self.ranges:
            for cell in range(CLASS_COUNT):
                members = [i for i in CLASS_COMBOS[cell] if not blocked[i]]
                if members and np.ptp(weights[members]) > 0:
                    return False
        return True

    def setup_commands(self, compression: bool = True) -> list[str]:
        """The engine's commands from the ranges to build_tree."""
        cmds = []
        for word, weights in zip(("OOP", "IP"), self.ranges):
            cmds.append(f"set_range {word} " + " ".join(_weight_text(w) for w in weights))
        cmds.append("set_board " + self.board_text)
        cmds.append(f"set_pot 0 0 {self.pot}")
        if self.rake != (0.0, 0.0):
            cmds.append(f"set_rake {self.rake[0]!r} {self.rake[1]!r}")
        if self.threads:
            cmds.append(f"set_threads {self.threads}")
        cmds.append(f"set_accuracy {self.accuracy / 100.0!r} fraction")
        if len(self.board) == 3 and not self.symmetric():
            # The flop's suit reduction needs every suit of a class at one weight.
            cmds.append("set_isomorphism 0 0")
        if compression and self.compression != "auto":
            cmds.append(f"set_compression {self.compression}")
        cmds.append("clear_lines")
        cmds += add_line_commands(self.rules)
        cmds.append("build_tree")
        return cmds

    def go_command(self) -> str:
        if self.max_iterations:
            return f"go {self.max_iterations} steps"
        if self.max_seconds:
            return f"go {self.max_seconds} seconds"
        return "go"


def _weight_text(w: float) -> str:
    return "0" if w == 0 else ("1" if w == 1 else repr(float(w)))


class _Locator:
    """Line numbers of keys in TOML text (tomllib gives none for values)."""

    _HEADER = re.compile(r"^\s*\[\s*([A-Za-z0-9_.\-\" ]+?)\s*\]\s*(#.*)?$")
    _KEY = re.compile(r"^\s*([A-Za-z0-9_.\-\"]+)\s*=")
    _STRINGS = re.compile(r'"(?:[^"\\]|\\.)*"|\'[^\']*\'')

    def __init__(self, text: str):
        self.lines: dict[tuple[str, ...], int] = {}
        table: tuple[str, ...] = ()
        in_string = False      # inside a multi-line string
        depth = 0              # open brackets of a multi-line array
        for number, line in enumerate(text.splitlines(), 1):
            if in_string:
                in_string = line.count('"""') % 2 == 0
                continue
            if depth == 0:
                m = self._HEADER.match(line)
                if m:
                    table = tuple(p.strip().strip('"') for p in m.group(1).split("."))
                    self.lines.setdefault(table, number)
                    continue
                m = self._KEY.match(line)
                if m:
                    key = table + tuple(p.strip('"') for p in m.group(1).split("."))
                    for i in range(len(table) + 1, len(key) + 1):
                        self.lines.setdefault(key[:i], number)
                    line = line[m.end():]
            if line.count('"""') % 2:
                in_string = True
                continue
            code = self._STRINGS.sub("", line).split("#", 1)[0]
            depth = max(0, depth + code.count("[") - code.count("]"))

    def line(self, *key: str) -> int | None:
        while key:
            if key in self.lines:
                return self.lines[key]
            key = key[:-1]
        return None


def load_spot(path: str | Path) -> Spot:
    path = Path(path)
    try:
        text = path.read_text()
    except OSError as e:
        raise SpotError(str(path), None, f"can't read the file ({e.strerror})") from None
    return parse_spot(text, str(path))


def read_toml(text: str, name: str) -> dict:
    try:
        return tomllib.loads(text)
    except tomllib.TOMLDecodeError as e:
        m = re.search(r"\(at line (\d+), column \d+\)", str(e))
        raise SpotError(name, int(m.group(1)) if m else None, f"not valid TOML: {e}") from None


def parse_spot(text: str, name: str = "<spot>", board: list[int] | None = None, tables=()) -> Spot:
    """The spot of a TOML text.  A batch gives the board itself (its file leaves `board` out) and names
    the tables of its own (`tables`), which are left to it."""
    data = read_toml(text, name)
    where = _Locator(text)

    def fail(key: tuple, problem: str):
        raise SpotError(name, where.line(*key), problem)

    def check_keys(table: dict, allowed: set, key: tuple):
        if not isinstance(table, dict):
            fail(key, f"'{'.'.join(key)}' must be a table")
        for k in table:
            if k not in allowed:
                inside = f" in [{'.'.join(key)}]" if key else ""
                fail(key + (k,), f"unknown key '{k}'{inside} (known: {', '.join(sorted(allowed))})")

    def number(key: tuple, value, what: str, minimum=None, whole=False):
        if isinstance(value, bool) or not isinstance(value, (int, float)):
            fail(key, f"{what} '{value}' is not a number")
        if whole and value != int(value):
            fail(key, f"{what} must be a whole number of chips, not {value}")
        if minimum is not None and value < minimum:
            fail(key, f"{what} must be at least {minimum}, not {value}")
        return value

    check_keys(data, _TOP_KEYS | set(tables), ())
    for required in ("pot", "stack", "ranges") if board is not None else ("board", "pot", "stack", "ranges"):
        if required not in data:
            raise SpotError(name, None, f"missing '{required}'")

    # Board.
    given = board is not None
    if given:
        if "board" in data:
            fail(("board",), "a batch leaves the board out: its flop set names the boards")
        board = list(board)
    else:
        if not isinstance(data["board"], str):
            fail(("board",), "board must be a text such as \"Kh 7d 2c\"")
        try:
            board = parse_cards(data["board"])
        except CardError as e:
            fail(("board",), f"board: {e}")
    if not 3 <= len(board) <= 5:
        fail(("board",), f"a board has 3 to 5 cards, not {len(board)}")
    streets = list(STREET_NAMES[len(board) - 3:])

    pot = int(number(("pot",), data["pot"], "pot", minimum=1, whole=True))
    stack = float(number(("stack",), data["stack"], "stack", minimum=0))

    # Ranges.
    ranges_table = data["ranges"]
    check_keys(ranges_table, set(PLAYER_KEYS), ("ranges",))
    blocked = board_mask(board)
    weights, texts = [], []
    for player in PLAYER_KEYS:
        key = ("ranges", player)
        if player not in ranges_table:
            fail(("ranges",), f"missing the range of {player.upper()} ('{player}' in [ranges])")
        value = ranges_table[player]
        if not isinstance(value, str):
            fail(key, f"the range of {player.upper()} must be a text of range notation")
        try:
            w = parse_range(value)
        except RangeError as e:
            fail(key, f"range of {player.upper()}: {e}")
        # On a board the file names, naming a hand that holds one of its cards is a mistake; a batch's
        # boards vary, and each simply loses the hands that meet it.
        clash = None if given else _board_clash(value, board)
        if clash:
            fail(key, f"range of {player.upper()}: {clash} shares a card with the board {data['board']}")
        # Hands that hold a board card stay in the weights: the engine leaves them out itself.
        if not np.where(blocked, 0.0, w).any():
            fail(key, f"the range of {player.upper()} has no hand off the board"
                      + (f" {' '.join(card_text(c) for c in board)}" if given else ""))
        weights.append(w)
        texts.append(value)

    # Bet sizes.
    bets = data.get("bets", {})
    check_keys(bets, _BETS_KEYS, ("bets",))
    for street in STREET_NAMES:
        if street in bets:
            check_keys(bets[street], _SIZE_KEYS | set(PLAYER_KEYS), ("bets", street))
            for player in PLAYER_KEYS:
                if player in bets[street]:
                    check_keys(bets[street][player], _SIZE_KEYS, ("bets", street, player))
    for player in PLAYER_KEYS:
        if player in bets:
            check_keys(bets[player], _SIZE_KEYS, ("bets", player))

    def sizes_for(street: str, player: str) -> StreetSizes:
        scopes = [("bets", street, player), ("bets", street), ("bets", player), ("bets",)]
        result = StreetSizes(bets=[], raises=[], allin=True)
        for field_name in ("bet", "raise", "allin"):
            for scope in scopes:
                table = data
                for part in scope:
                    table = table.get(part, {}) if isinstance(table, dict) else {}
                if isinstance(table, dict) and field_name in table:
                    _apply_size(result, field_name, table[field_name], scope + (field_name,), fail)
                    break
        return result

    sizes = {(street, p): sizes_for(street, PLAYER_KEYS[p]) for street in streets for p in (0, 1)}
    threshold = float(number(("bets", "allin_threshold"), bets.get("allin_threshold", 100),
                             "allin_threshold", minimum=0))
    if threshold > 100:
        fail(("bets", "allin_threshold"), "allin_threshold is a per cent of the stack, from 0 to 100")
    max_raises = bets.get("max_raises")
    if max_raises is not None:
        max_raises = int(number(("bets", "max_raises"), max_raises, "max_raises", minimum=0, whole=True))
    chip = float(number(("bets", "chip"), bets.get("chip", 1), "chip", minimum=0))
    if chip <= 0:
        fail(("bets", "chip"), "chip must be above 0")
    rules = BettingRules(pot=pot, stack=stack, streets=streets, sizes=sizes, allin_threshold=threshold,
                         max_raises=max_raises, chip=chip)

    # Rake.
    rake = data.get("rake", {})
    check_keys(rake, {"fraction", "cap"}, ("rake",))
    fraction = float(number(("rake", "fraction"), rake.get("fraction", 0.0), "rake fraction", minimum=0))
    if fraction > 1:
        fail(("rake", "fraction"), "the rake fraction is from 0 to 1 (0.05 is 5%)")
    cap = float(number(("rake", "cap"), rake.get("cap", 0.0), "rake cap", minimum=0))

    # Solving.
    solve = data.get("solve", {})
    check_keys(solve, _SOLVE_KEYS, ("solve",))
    accuracy = float(number(("solve", "accuracy"), solve.get("accuracy", 0.5), "accuracy", minimum=0))
    threads = int(number(("solve", "threads"), solve.get("threads", 0), "threads", minimum=0, whole=True))
    compression = solve.get("compression", "auto")
    if compression not in COMPRESSION_WORDS:
        fail(("solve", "compression"), f"compression '{compression}' is not one of {', '.join(COMPRESSION_WORDS)}")
    limits = {}
    for key in ("max_iterations", "max_seconds"):
        if key in solve:
            limits[key] = int(number(("solve", key), solve[key], key, minimum=1, whole=True))
            if limits[key] > 2**31 - 1:
                fail(("solve", key), f"{key} is too large")

    return Spot(name=name, board=board, pot=pot, stack=stack, range_text=(texts[0], texts[1]),
                ranges=(weights[0], weights[1]), rules=rules, rake=(fraction, cap), accuracy=accuracy,
                threads=threads, compression=compression, **limits)


def _board_clash(text: str, board: list[int]) -> str | None:
    """A single hand named in the range that holds a board card (classes simply lose those hands)."""
    for raw in re.split(r"[,\s]+", text.strip()):
        item = raw.rpartition(":")[0] if ":" in raw else raw
        if len(item) == 4 and item[1].lower() in "cdhs" and item[3].lower() in "cdhs":
            cards = parse_cards(item)
            if set(cards) & set(board):
                return item
    return None


def _parse_percent(value, what: str, key, fail) -> float:
    if isinstance(value, str):
        text = value.strip().rstrip("%").strip()
        try:
            value = float(text)
        except ValueError:
            fail(key, f"{what} '{value}' is not a number")
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        fail(key, f"{what} '{value}' is not a number")
    if value <= 0:
        fail(key, f"{what} {value} must be above 0")
    return float(value)


def _apply_size(result: StreetSizes, field_name: str, value, key, fail):
    if field_name == "allin":
        if not isinstance(value, bool):
            fail(key, "allin is true or false")
        result.allin = value
        return
    if not isinstance(value, list):
        value = [value]
    if field_name == "bet":
        result.bets = []
    else:
        result.raises = []
    for item in value:
        if isinstance(item, str) and item.strip().lower() in ("allin", "all-in"):
            result.allin = True
        elif field_name == "bet":
            result.bets.append(_parse_percent(item, "bet size", key, fail))
        elif isinstance(item, str) and item.strip().lower().endswith("x"):
            try:
                multiple = float(item.strip()[:-1])
            except ValueError:
                fail(key, f"raise size '{item}' is not a number")
            if multiple <= 1:
                fail(key, f"raise size '{item}' must be above 1x")
            result.raises.append(Raise("x", multiple))
        else:
            result.raises.append(Raise("%", _parse_percent(item, "raise size", key, fail)))


def spot_summary(spot: Spot) -> str:
    """A few lines about the spot for the top of a listing: the game and both ranges."""
    lines = [f"board {spot.board_text}, pot {spot.pot}, stack {format_amount(spot.stack)}, "
             f"streets {', '.join(spot.streets)}"]
    for word, w in zip(("OOP", "IP"), spot.ranges):
        lines.append(f"{word}: {combo_count(w, spot.board):.1f} hands: {format_range(w)}")
    return "\n".join(lines)

