"""Solving one spot: memory check, set-up, the solve with a progress bar, and a record of the result."""

from __future__ import annotations

import re
import sys
import time
from dataclasses import asdict, dataclass

from .client import Engine, Progress, TavrekError
from .spot import Spot

LEVEL_WORDS = ("none", "low", "medium", "high", "max", "fast")

# Memory of each compression level as a share of the uncompressed storage that
# the engine reports at build_tree.  "none" to "high" are the shares at which
# the engine's own automatic choice moves to the next level (the second figure
# is for a rainbow flop).  The engine picks "max" whatever the memory, so its
# share is measured: 0.15 on the bench flop tree after 120 iterations
# (bench/solve_bench --compression max: 98.9 MB of 659 MB).  "fast" keeps
# 2-byte regrets and 2- to 3-byte strategy sums where "none" keeps 2 and 4:
# at most 5/6 of the river part (measured 0.68 at 120 iterations).
LEVEL_SHARE = {
    "none": (1.0, 1.0),
    "low": (0.58, 0.58),
    "medium": (0.39, 0.312),
    "high": (0.29, 0.232),
    "max": (0.15, 0.15),
    "fast": (0.83, 0.83),
}


class TreeTooLarge(TavrekError):
    """The tree does not fit in memory at any compression level."""


@dataclass
class MemoryEstimate:
    uncompressed_mb: int        # the engine's figure for the whole tree at level none
    available_mb: int           # the engine's show_memory
    flop_root: bool             # compression applies to flop trees only
    rainbow: bool
    auto_level: int             # the level the engine chose by itself

    @property
    def budget_mb(self) -> float:
        # The engine's own limit: 85% of the available memory.
        return 0.85 * self.available_mb

    def level_mb(self, word: str) -> float:
        if not self.flop_root:
            return float(self.uncompressed_mb)
        return self.uncompressed_mb * LEVEL_SHARE[word][1 if self.rainbow else 0]

    def fits(self, word: str) -> bool:
        return self.level_mb(word) < self.budget_mb

    def least_compression(self, budget_mb: float) -> str:
        """The least compressed level whose tree fits in budget_mb; "max" when none does."""
        return next((w for w in LEVEL_WORDS[:5] if self.level_mb(w) < budget_mb), "max")

    @property
    def too_large(self) -> bool:
        return not any(self.fits(w) for w in LEVEL_WORDS)

    def table(self) -> str:
        rows = [f"memory: the engine needs {self.uncompressed_mb} MB uncompressed; "
                f"{self.available_mb} MB available, {self.budget_mb:.0f} MB usable (85%)"]
        if not self.flop_root:
            rows.append("  (compression applies to flop trees only: every level stores this tree uncompressed)")
        for i, word in enumerate(LEVEL_WORDS):
            mark = "fits" if self.fits(word) else "too large"
            chosen = "  <- auto" if i == self.auto_level else ""
            rows.append(f"  {i} {word:<6} ~{self.level_mb(word):9.0f} MB  {mark}{chosen}")
        return "\n".join(rows)


@dataclass
class SolveRecord:
    """What one solve gave; plain values, ready for JSON or a table."""
    spot: str
    board: str
    pot: int
    stack: float
    iterations: int
    seconds: float
    reason: str
    exploitable: float            # chips
    exploitable_pct: float        # per cent of the pot
    ev_oop: float
    ev_ip: float
    mes_oop: float
    mes_ip: float
    compression: int
    uncompressed_mb: int
    cpu_seconds: float | None = None      # the engine's processor time, from its last progress report
    peak_mb: int | None = None            # the engine's peak working set

    def as_dict(self) -> dict:
        return asdict(self)


_UNCOMPRESSED = re.compile(r"^\[uncompressed storage (\d+) MB\]$")


def set_up(engine: Engine, spot: Spot, budget_mb: float | None = None) -> MemoryEstimate:
    """Send the spot and build its tree; refuse a tree too large for memory before any solve.

    budget_mb: the memory this engine may take when others share the machine (a batch); with the
    automatic level, a flop tree is then compressed as little as that budget allows, instead of as
    the engine would choose for the whole machine."""
    uncompressed = None
    engine.command("set_compression auto")    # the build reports the storage it needs only when it chooses
    for command in spot.setup_commands(compression=False):
        reply = engine.raw(command)
        for line in reply.debug:
            m = _UNCOMPRESSED.match(line)
            if m:
                uncompressed = int(m.group(1))
    if uncompressed is None:
        raise TavrekError("the engine did not report its memory estimate at build_tree")
    memory = engine.show_memory()
    suits = {c // 13 for c in spot.board[:3]}
    estimate = MemoryEstimate(uncompressed_mb=uncompressed, available_mb=memory["available_mb"],
                              flop_root=len(spot.board) == 3, rainbow=len(suits) == 3,
                              auto_level=engine.command("get_actual_compression"))
    if estimate.too_large:
        raise TreeTooLarge(f"{spot.name}: the tree is too large for this machine's memory at every compression "
                           f"level\n{estimate.table()}\nFewer bet sizes, a smaller range or a later street "
                           f"make it smaller.")
    if spot.compression != "auto":
        if not estimate.fits(spot.compression):
            raise TreeTooLarge(f"{spot.name}: compression '{spot.compression}' needs about "
                               f"{estimate.level_mb(spot.compression):.0f} MB, more than the "
                               f"{estimate.budget_mb:.0f} MB usable\n{estimate.table()}")
        engine.command(f"set_compression {spot.compression}")
    elif budget_mb is not None and estimate.flop_root:
        level = estimate.least_compression(budget_mb)
        if LEVEL_WORDS.index(level) != estimate.auto_level:
            engine.command(f"set_compression {level}")
    return estimate


class _Bar:
    """tqdm bar fed by the engine's progress reports."""

    def __init__(self, spot: Spot, enabled: bool):
        self.spot = spot
        self.bar = None
        if enabled:
            from tqdm import tqdm
            self.bar = tqdm(total=spot.max_iterations, unit="it", dynamic_ncols=True,
                            bar_format="{desc}{n} it{postfix} [{elapsed}]" if not spot.max_iterations else None,
                            file=sys.stderr)
            self.bar.set_description("solving")

    def __call__(self, p: Progress):
        if self.bar is None or p.iterations is None:
            return
        pct = 100.0 * p.exploitable / self.spot.pot
        self.bar.set_postfix_str(f"exploitable {p.exploitable:.3f} chips ({pct:.3f}% of the pot, "
                                 f"target {self.spot.accuracy:g}%)", refresh=False)
        self.bar.update(p.iterations - self.bar.n)

    def close(self, reason: str):
        if self.bar is not None:
            self.bar.set_description(reason)
            self.bar.close()


def solve_spot(engine: Engine, spot: Spot, progress: bool = True, budget_mb: float | None = None) -> SolveRecord:
    """Set the spot up on the engine, solve it and return the record; the engine keeps the tree."""
    estimate = set_up(engine, spot, budget_mb)
    bar = _Bar(spot, progress)
    start = time.monotonic()
    try:
        reason = engine.solve(spot.go_command(), on_progress=bar)
    finally:
        bar.close(engine.last_reason or "stopped")
    seconds = time.monotonic() - start
    results = engine.calc_results()
    iterations = engine.iterations            # as of the last progress report
    if reason == "required number of steps done" and spot.max_iterations:
        iterations = spot.max_iterations      # the run stops exactly there, reported or not
    return SolveRecord(spot=spot.name, board=spot.board_text, pot=spot.pot, stack=spot.stack,
                       iterations=iterations, seconds=round(seconds, 3), reason=reason,
                       exploitable=results["exploitable"],
                       exploitable_pct=100.0 * results["exploitable"] / spot.pot,
                       ev_oop=results["ev_oop"], ev_ip=results["ev_ip"], mes_oop=results["mes_oop"],
                       mes_ip=results["mes_ip"], compression=engine.command("get_actual_compression"),
                       uncompressed_mb=estimate.uncompressed_mb, cpu_seconds=engine.cpu_seconds,
                       peak_mb=engine.peak_mb)
