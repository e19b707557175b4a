"""Spot files: bad input is reported with its line before the engine starts."""

import pytest

from tavrek.client import TavrekError
from tavrek.spot import SpotError, load_spot, parse_spot
from tavrek.solve import MemoryEstimate, TreeTooLarge, set_up
from conftest import EXAMPLES

GOOD = """\
board = "Kh 7d 2c"
pot = 60
stack = 470

[ranges]
oop = "22+, A2s+"
ip = \"\"\"KTo+,
        QJs:0.5\"\"\"

[bets]
bet = [75]
raise = ["3x", 100]

[bets.flop.ip]
bet = ["33%", 75, "allin"]

[solve]
accuracy = 0.5
"""


def broken(old: str, new: str) -> str:
    assert old in GOOD
    return GOOD.replace(old, new)


@pytest.mark.parametrize("text, line, words", [
    (broken("[solve]\n", "[solve]\nacuracy = 1\n"), 18, "unknown key 'acuracy' in [solve]"),
    (broken("[bets.flop.ip]\n", "[bets.flop.ip]\nbets = [1]\n"), 15, "unknown key 'bets' in [bets.flop.ip]"),
    (broken("Kh 7d 2c", "Kh 7d 2x"), 1, "'2x' is not a card"),
    (broken("Kh 7d 2c", "Kh 7d 7d"), 1, "7d appears twice"),
    (broken('oop = "22+, A2s+"', 'oop = "22+, KhQh"'), 6, "KhQh shares a card with the board"),
    (broken('bet = [75]', 'bet = ["big"]'), 11, "bet size 'big' is not a number"),
    (broken('"33%", 75', '"33%", "x75"'), 15, "bet size 'x75' is not a number"),
    (broken('raise = ["3x", 100]', 'raise = ["3y"]'), 12, "raise size '3y' is not a number"),
    (broken("QJs:0.5", "QJz:0.5"), 7, "range of IP: 'QJz' is not a hand"),
    (broken("pot = 60", "pot = 60.5"), 2, "pot must be a whole number"),
    (broken("stack = 470", "stack = \"470\""), 3, "stack '470' is not a number"),
    (broken("accuracy = 0.5", "accuracy = 0.5\ncompression = \"tiny\""), 19, "compression 'tiny'"),
    (broken("pot = 60", "pot = "), 2, "not valid TOML"),
])
def test_bad_spot_names_line_and_problem(text, line, words):
    with pytest.raises(SpotError) as caught:
        parse_spot(text, "coach.toml")
    assert caught.value.line == line, str(caught.value)
    assert words in str(caught.value)
    assert str(caught.value).startswith(f"coach.toml:{line}: ")


def test_good_spot_and_bundled_examples():
    spot = parse_spot(GOOD, "coach.toml")
    assert spot.rules.sizes[("flop", 1)].bets == [33.0, 75.0]
    assert spot.rules.sizes[("flop", 0)].bets == [75.0]
    assert spot.ranges[1].sum() == 36 + 2
    script = spot.setup_commands()
    assert script[2:4] == ["set_board Kh 7d 2c", "set_pot 0 0 60"] and script[-1] == "build_tree"
    for name in ("river.toml", "kh7d2c.toml"):
        assert load_spot(EXAMPLES / name).setup_commands()[-1] == "build_tree"
    with pytest.raises(SpotError, match="can't read"):
        load_spot(EXAMPLES / "missing.toml")


class FakeEngine:
    """Answers the set-up as an engine would, with the memory figures a test wants; records commands."""

    def __init__(self, uncompressed_mb, available_mb):
        self.sent = []
        self.uncompressed_mb, self.available_mb = uncompressed_mb, available_mb

    def raw(self, command):
        from tavrek.client import Reply
        self.sent.append(command.split()[0])
        debug = [f"[uncompressed storage {self.uncompressed_mb} MB]"] if command == "build_tree" else []
        return Reply([command.split()[0] + " ok!"], debug)

    def show_memory(self):
        return {"total_mb": self.available_mb, "available_mb": self.available_mb}

    def command(self, text):
        self.sent.append(text)
        return 4 if text == "get_actual_compression" else True


def test_tree_too_large_at_every_level_is_refused_before_solving():
    spot = parse_spot(GOOD, "coach.toml")
    engine = FakeEngine(uncompressed_mb=100_000, available_mb=8_000)
    with pytest.raises(TreeTooLarge, match="too large for this machine's memory at every compression level"):
        set_up(engine, spot)
    assert not any(c.startswith("go") for c in engine.sent)
    # Enough for "high" on this rainbow flop (0.232 of the tree) but not for "medium" (0.312): auto goes
    # ahead, an explicit "medium" is refused.
    engine = FakeEngine(uncompressed_mb=12_000, available_mb=4_000)
    estimate = set_up(engine, spot)
    assert [estimate.fits(w) for w in ("none", "low", "medium", "high")] == [False, False, False, True]
    spot.compression = "medium"
    with pytest.raises(TreeTooLarge, match="compression 'medium' needs about 3744 MB"):
        set_up(FakeEngine(12_000, 4_000), spot)
    # Turn and river trees are stored uncompressed at every level.
    turn = MemoryEstimate(uncompressed_mb=900, available_mb=1100, flop_root=False, rainbow=False, auto_level=0)
    assert turn.level_mb("max") == 900 and turn.fits("max")
    assert issubclass(TreeTooLarge, TavrekError)


def test_spot_tool_prints_a_script_or_the_problem(tmp_path, capsys):
    from tavrek.cli import main_spot
    good = tmp_path / "coach.toml"
    good.write_text(GOOD)
    assert main_spot([str(good), "--tree"]) == 0
    out = capsys.readouterr().out.splitlines()
    script = [line for line in out if not line.startswith("#")]
    assert script == parse_spot(GOOD, str(good)).setup_commands()
    assert any(line.startswith("# r:0:c:c:<turn>  ") for line in out)
    bad = tmp_path / "bad.toml"
    bad.write_text(broken("Kh 7d 2c", "Kh 7d 2x"))
    assert main_spot([str(bad)]) == 2
    captured = capsys.readouterr()
    assert captured.out == "" and captured.err == f"error: {bad}:1: board: '2x' is not a card (a rank of " \
        "23456789TJQKA and a suit of cdhs, e.g. Ah)\n"
