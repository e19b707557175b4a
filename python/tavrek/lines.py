"""Betting lines from bet-size rules.

The engine has no notion of bet sizes: it takes every sequence of actions as
an `add_line` of cumulative amounts (what the acting player has put in on top
of the starting pot, across the whole hand, after each action).  This module
turns sizes in per cent of the pot, raise multiples and all-in into those
lines, and into a tree of positions that a person can read.
"""

from __future__ import annotations

from dataclasses import dataclass, field

STREET_NAMES = ("flop", "turn", "river")
PLAYER_NAMES = ("OOP", "IP")


@dataclass(frozen=True)
class Raise:
    """A raise size: `value` times the bet faced ("x"), or per cent of the pot after the call ("%")."""
    kind: str
    value: float


@dataclass
class StreetSizes:
    """What one player may do on one street."""
    bets: list[float] = field(default_factory=list)      # per cent of the pot
    raises: list[Raise] = field(default_factory=list)
    allin: bool = True


@dataclass
class BettingRules:
    pot: float
    stack: float                     # each player's chips behind at the start of the tree
    streets: list[str]               # street names from the first one, e.g. ["turn", "river"]
    sizes: dict                      # (street name, player) -> StreetSizes
    allin_threshold: float = 100.0   # a bet that commits this per cent of the stack or more is all-in
    max_raises: int | None = None    # raises allowed per street after the first bet; None: no cap
    chip: float = 1.0                # amounts are rounded to a multiple of this


@dataclass
class Position:
    """A decision of the betting tree, with the engine's path tokens that lead to it."""
    tokens: list[str]        # "c", "b<amount>", and "<turn>" / "<river>" where a card is dealt
    street: str
    player: int
    committed: tuple[float, float]
    pot: float               # pot now: the starting pot and everything put in since
    actions: list[tuple[str, str]]   # (path token, label) in the engine's child order

    @property
    def path(self) -> str:
        return ":".join(["r", "0"] + self.tokens)


def format_amount(x: float) -> str:
    """One text per amount: the engine looks bets up by exact value."""
    text = f"{x:.6f}".rstrip("0").rstrip(".")
    return text if text != "-0" else "0"


def _round(x: float, chip: float) -> float:
    return round(round(x / chip) * chip, 6)


@dataclass
class _State:
    street: int
    player: int
    committed: list[float]
    street_start: float
    raises: int = 0            # bets and raises so far on this street
    checked: bool = False      # the first player checked on this street

    @property
    def top(self) -> float:
        return max(self.committed)


def _options(rules: BettingRules, s: _State) -> list[float]:
    """Bet or raise totals open to the player to act, rising, all-in last."""
    stack = rules.stack
    top = s.top
    if top >= stack:
        return []
    facing = s.committed[0] != s.committed[1]
    if facing and rules.max_raises is not None and s.raises > rules.max_raises:
        return []
    sizes = rules.sizes[(rules.streets[s.street], s.player)]
    pot_now = rules.pot + s.committed[0] + s.committed[1]
    totals = set()
    if not facing:
        for pct in sizes.bets:
            totals.add(top + pct / 100.0 * pot_now)
    else:
        faced = top - s.street_start
        call = top - s.committed[s.player]
        for r in sizes.raises:
            if r.kind == "x":
                totals.add(s.street_start + r.value * faced)
            else:
                totals.add(top + r.value / 100.0 * (pot_now + call))
    out = set()
    allin = sizes.allin
    for t in totals:
        t = _round(t, rules.chip)
        if t >= stack or t >= rules.allin_threshold / 100.0 * stack:
            allin = True
        elif t > top:
            out.add(t)
    if allin:
        out.add(stack)
    return sorted(out)


def _next(rules: BettingRules, s: _State, amount: float) -> _State | None:
    """The state after the player to act puts his total at amount; None when the hand is over."""
    committed = list(s.committed)
    top = s.top
    committed[s.player] = amount
    if amount > top:
        return _State(s.street, 1 - s.player, committed, s.street_start, s.raises + 1, False)
    if s.raises == 0 and not s.checked:
        return _State(s.street, 1 - s.player, committed, s.street_start, 0, True)
    # A call or a check behind closes the street.
    if s.street + 1 >= len(rules.streets) or amount >= rules.stack:
        return None
    return _State(s.street + 1, 0, committed, amount)


def _walk(rules: BettingRules, s: _State, line: list[float], tokens: list[str], visit):
    options = _options(rules, s)
    facing = s.committed[0] != s.committed[1]
    visit(s, tokens, options, facing)
    for amount in [s.top] + options:
        after = _next(rules, s, amount)
        token = "c" if amount == s.top else "b" + format_amount(amount)
        if after is None:
            yield line + [amount]
            continue
        more = [token]
        if after.street != s.street:
            more.append(f"<{rules.streets[after.street]}>")
        yield from _walk(rules, after, line + [amount], tokens + more, visit)


def generate_lines(rules: BettingRules) -> list[list[float]]:
    """Every line that ends in a showdown, in the order check/call first, then bets by size."""
    start = _State(0, 0, [0.0, 0.0], 0.0)
    return list(_walk(rules, start, [], [], lambda *a: None))


def add_line_commands(rules: BettingRules) -> list[str]:
    return ["add_line " + " ".join(format_amount(a) for a in line) for line in generate_lines(rules)]


def _label(rules: BettingRules, s: _State, amount: float, facing: bool, pot_now: float) -> str:
    if amount == s.top:
        return f"call {format_amount(amount - s.committed[s.player])}" if facing else "check"
    if amount >= rules.stack:
        return f"all-in {format_amount(amount)}"
    if facing:
        return f"raise to {format_amount(amount)}"
    return f"bet {format_amount(amount - s.top)} ({100.0 * (amount - s.top) / pot_now:.0f}%)"


def positions(rules: BettingRules) -> list[Position]:
    """Every decision of the tree in walk order, with labelled actions."""
    found: list[Position] = []

    def visit(s: _State, tokens, options, facing):
        pot_now = rules.pot + s.committed[0] + s.committed[1]
        actions = [("f", "fold")] if facing else []
        for amount in [s.top] + options:
            token = "c" if amount == s.top else "b" + format_amount(amount)
            actions.append((token, _label(rules, s, amount, facing, pot_now)))
        found.append(Position(list(tokens), rules.streets[s.street], s.player, tuple(s.committed), pot_now,
                              actions))

    for _ in _walk(rules, _State(0, 0, [0.0, 0.0], 0.0), [], [], visit):
        pass
    return found


def tree_listing(rules: BettingRules) -> str:
    """The betting tree as text: one line per decision, its path, who acts and the choices."""
    rows = positions(rules)
    width = max(len(p.path) for p in rows)
    out = []
    for p in rows:
        choices = " | ".join(label for _, label in p.actions)
        out.append(f"{p.path:<{width}}  {p.street:<5} {PLAYER_NAMES[p.player]:<3}  pot {format_amount(p.pot):>6}  "
                   f"{choices}")
    return "\n".join(out)
