"""Betting lines: the bench spots' trees reproduced, and a 33%/75%/all-in tree checked by a count of its own."""

import pytest

from conftest import bench_spot
from tavrek.lines import BettingRules, Raise, StreetSizes, generate_lines, positions
from tavrek.spot import parse_spot

BENCH = {"R": ("Qs Jh 2h 8d 3c", 200), "T": ("Qs Jh 2h 8d", 400), "F": ("Qs Jh 2h", 900)}


def bench_toml(board: str, stack: int) -> str:
    return f"""
board = "{board}"
pot = 100
stack = {stack}
[ranges]
oop = "22-QQ, A2s+, K2s+, Q5s+, J7s+, T7s+, 96s+, 86s+, 75s+, 64s+, 54s, A2o-AQo, K9o+, Q9o+, J9o+, T9o, 98o"
ip = "22+, A2s+, K5s+, Q8s+, J8s+, T8s+, 97s+, 86s+, 75s+, 65s, 54s, A8o+, KTo+, QTo+, JTo"
[bets]
bet = ["50%"]
allin = true
"""


@pytest.mark.parametrize("name", ["R", "T", "F"])
def test_bench_spot_trees_are_reproduced(engine, name):
    script = bench_spot(name).read_text().splitlines()
    spot = parse_spot(bench_toml(*BENCH[name]), f"bench {name}")
    ours = spot.setup_commands()
    # Same lines, in the same order, and the same ranges.
    assert [c for c in ours if c.startswith("add_line")] == [c for c in script if c.startswith("add_line")]
    assert [c for c in ours if c.startswith("set_range")] == [c for c in script if c.startswith("set_range")]
    for command in script:
        engine.raw(command)
    theirs = engine.node_count()
    for command in ours:
        engine.raw(command)
    assert engine.node_count() == theirs


WEIGHT = {"flop": 1, "turn": 49, "river": 2352}


def count_nodes(pot, stack, streets, bet_shares):
    """node_count of a tree where a player not facing a bet may check, bet each share of the pot or go
    all-in, and facing a bet may fold, call or go all-in; written apart from the generator."""
    counts = {key: {s: 0 for s in WEIGHT} for key in ("H_DEC", "V_DEC", "SPLIT", "END")}

    def decide(street, actor, mine, theirs, checked):
        w = WEIGHT[streets[street]]
        name = streets[street]
        counts["V_DEC" if actor == 0 else "H_DEC"][name] += w
        pot_now = pot + mine + theirs
        last_street = street == len(streets) - 1
        if mine < theirs:          # facing a bet: fold, call, and all-in when there is more behind
            counts["END"][name] += w                       # the fold
            counts["SPLIT"][name] += w                     # the call ends the street
            if theirs == stack or last_street:
                counts["END"][name] += w
            else:
                decide(street + 1, 0, theirs, theirs, False)
            if theirs < stack:
                decide(street, 1 - actor, theirs, stack, False)
            return
        # Not facing a bet: check, the sizes, all-in.
        if checked:                # check behind ends the street
            counts["SPLIT"][name] += w
            if last_street:
                counts["END"][name] += w
            else:
                decide(street + 1, 0, mine, mine, False)
        else:
            decide(street, 1 - actor, theirs, mine, True)
        totals = sorted({round(mine + share * pot_now) for share in bet_shares})
        for total in [t for t in totals if mine < t < stack] + [stack]:
            decide(street, 1 - actor, theirs, total, False)

    decide(0, 0, 0, 0, False)
    return counts


@pytest.mark.parametrize("board, streets", [("Kh 7d 2c 5s", ["turn", "river"]),
                                            ("Kh 7d 2c", ["flop", "turn", "river"])])
def test_33_75_allin_tree_matches_an_independent_count(engine, board, streets):
    spot = parse_spot(f"""
board = "{board}"
pot = 60
stack = 470
[ranges]
oop = "22+, A2s+, KTo+"
ip = "any"
[bets]
bet = [33, 75]
allin = true
""", "33-75")
    for command in spot.setup_commands():
        engine.raw(command)
    got = engine.node_count()
    want = count_nodes(60, 470, streets, (0.33, 0.75))
    for key, by_street in want.items():
        assert {s: got[key][s] for s in WEIGHT} == by_street, key
    decisions = positions(spot.rules)
    assert len(decisions) == sum(1 for _ in decisions)
    assert got["H_DEC"]["total"] + got["V_DEC"]["total"] == sum(WEIGHT[p.street] for p in decisions)


def test_sizes_rounding_threshold_and_raises():
    sizes = {("river", p): StreetSizes([33, 75], [Raise("x", 3.0), Raise("%", 100.0)], False) for p in (0, 1)}
    rules = BettingRules(pot=60, stack=470, streets=["river"], sizes=sizes, allin_threshold=67, max_raises=1)
    lines = generate_lines(rules)
    firsts = sorted({line[0] for line in lines})
    assert firsts == [0, 20, 45]                   # 33% of 60 is 19.8, rounded to a chip
    # 45 raised 3x is 135; pot-sized is 45 + (60 + 45 + 45) = 195; no all-in unless a size reaches 67% of 470.
    assert sorted({line[1] for line in lines if line[0] == 45 and len(line) > 2}) == [135, 195]
    # After 20 - 60, a 3x re-raise is over the cap of one raise.
    assert all(len(line) <= 3 for line in lines if line[:2] == [20, 60])
    # A size past the threshold turns into the all-in: 135 raised to 3x is 405 >= 0.67 * 470.
    rules.max_raises = None
    assert [45, 135, 470, 470] in generate_lines(rules)
    assert not any(405 in line for line in generate_lines(rules))
