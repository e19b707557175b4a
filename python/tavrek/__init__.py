"""Tavrek for people: range notation, spot files, a client for the engine, and reports.

    from tavrek import Engine, load_spot, solve_spot, gather
    spot = load_spot("examples/river.toml")
    with Engine() as engine:
        record = solve_spot(engine, spot)
        report = gather(engine, "r:0:c", spot.name)

    from tavrek import load_batch, run_batch       # one spot on many boards, on Dask
    outcome = run_batch(load_batch("f.toml"))
"""

from .batch import Outcome, run_batch
from .batchfile import Batch, load_batch
from .client import CommandError, Engine, EngineDied, EngineTimeout, TavrekError, find_engine
from .ranges import RangeError, combo_count, format_range, parse_range, to_grid, from_grid
from .report import NodeReport, gather
from .solve import MemoryEstimate, SolveRecord, TreeTooLarge, set_up, solve_spot
from .spot import Spot, SpotError, load_spot, parse_spot

__version__ = "0.1.0"
__all__ = ["Outcome", "run_batch", "Batch", "load_batch", "CommandError", "Engine", "EngineDied",
           "EngineTimeout", "TavrekError", "find_engine", "RangeError", "combo_count", "format_range",
           "parse_range", "to_grid", "from_grid", "NodeReport", "gather", "MemoryEstimate", "SolveRecord",
           "TreeTooLarge", "set_up", "solve_spot", "Spot", "SpotError", "load_spot", "parse_spot"]
