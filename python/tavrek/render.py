"""Pictures of a node report: a PNG grid per action (matplotlib) and one self-contained HTML page."""

from __future__ import annotations

import html
import math
import re
from pathlib import Path

import numpy as np

from .cards import CLASS_NAMES, CLASS_COMBOS, COMBO_TEXT
from .report import PLAYERS, NodeReport

PASSIVE = {"fold": "#4a86c8", "check": "#5aa454", "call": "#5aa454"}
AGGRESSIVE = ["#f0b429", "#e8743b", "#d64545", "#a8323e", "#7a1f3d", "#4f1450"]
EMPTY = "#e6e6e6"


def action_colours(report: NodeReport) -> list[str]:
    return label_colours([(a.token, a.label) for a in report.actions])


def label_colours(actions: list[tuple[str, str]]) -> list[str]:
    """A colour per (token, label): fold blue, check and call green, bets and raises warm."""
    colours = []
    bets = [token for token, _ in actions if token.startswith("b")]
    for token, label in actions:
        word = label.split()[0]
        if word in PASSIVE:
            colours.append(PASSIVE[word])
        else:
            # Spread over the warm colours, the largest bet darkest, whatever the number of sizes.
            rank, n = bets.index(token), len(bets)
            spread = 3 if n == 1 else round(1 + rank * 4 / (n - 1)) if n <= 5 else rank % len(AGGRESSIVE)
            colours.append(AGGRESSIVE[spread])
    return colours


def file_stem(text: str) -> str:
    return re.sub(r"[^A-Za-z0-9_.-]+", "-", text).strip("-") or "node"


def write_pngs(report: NodeReport, folder: Path) -> list[Path]:
    """One PNG per action: the share of each hand class that takes it."""
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    from matplotlib.colors import LinearSegmentedColormap

    paths = []
    held = report.class_weight_grid()
    for index, (action, grid, colour) in enumerate(zip(report.actions, report.grids(), action_colours(report))):
        fig, ax = plt.subplots(figsize=(7.2, 7.6), dpi=100)
        cmap = LinearSegmentedColormap.from_list("a", ["#ffffff", colour])
        cmap.set_bad(EMPTY)
        shown = np.where(np.nan_to_num(held) > 0, grid, np.nan)
        ax.imshow(np.ma.masked_invalid(shown), cmap=cmap, vmin=0, vmax=1)
        for row in range(13):
            for col in range(13):
                value = shown[row, col]
                text = CLASS_NAMES[row * 13 + col] + ("" if math.isnan(value) else f"\n{100 * value:.0f}")
                dark = not math.isnan(value) and value > 0.6
                ax.text(col, row, text, ha="center", va="center", fontsize=7,
                        color="white" if dark else "#222222")
        ax.set_xticks([])
        ax.set_yticks([])
        ax.set_title(f"{report.player} at {report.path}: {action.label}, {100 * action.frequency:.1f}% of the range",
                     fontsize=10)
        path = folder / f"grid_{index}_{file_stem(action.label)}.png"
        fig.tight_layout()
        fig.savefig(path)
        plt.close(fig)
        paths.append(path)
    return paths


def _pct(x: float) -> str:
    return "-" if x is None or (isinstance(x, float) and math.isnan(x)) else f"{100 * x:.1f}%"


def _num(x: float, digits: int = 2) -> str:
    return "-" if x is None or (isinstance(x, float) and math.isnan(x)) else f"{x:.{digits}f}"


_STYLE = """
body { font-family: sans-serif; margin: 24px; color: #222; }
h1 { font-size: 20px; } h2 { font-size: 16px; margin-top: 28px; }
table.grid { border-collapse: separate; border-spacing: 2px; }
table.grid td { width: 46px; height: 46px; padding: 0; position: relative; background: #e6e6e6; }
table.grid td .bars { position: absolute; left: 0; right: 0; bottom: 0; display: flex; }
table.grid td .bars div { height: 100%; }
table.grid td span { position: absolute; left: 3px; top: 2px; font-size: 11px; z-index: 1;
  text-shadow: 0 0 2px #fff, 0 0 2px #fff; }
table.grid td:hover { outline: 2px solid #000; }
.legend span { display: inline-block; margin-right: 16px; }
.legend i { display: inline-block; width: 14px; height: 14px; margin-right: 5px; vertical-align: middle; }
table.data { border-collapse: collapse; font-size: 12px; }
table.data td, table.data th { border-bottom: 1px solid #ddd; padding: 2px 8px; text-align: right; }
table.data th { background: #f3f3f3; }
table.data td:first-child, table.data th:first-child { text-align: left; }
p.note { max-width: 760px; font-size: 13px; color: #444; }
"""


def html_page(report: NodeReport) -> str:
    colours = action_colours(report)
    grids = report.grids()
    held = report.class_weight_grid()
    me = report.player
    e = html.escape
    out = [f"<!DOCTYPE html><html><head><meta charset='utf-8'><title>{e(report.spot)} {e(report.path)}</title>"
           f"<style>{_STYLE}</style></head><body>"]
    out.append(f"<h1>{e(me)} to act at {e(report.path)}</h1>")
    out.append(f"<p>Spot {e(report.spot)} &middot; board {e(' '.join(report.board))} &middot; pot {report.pot:g} "
               f"&middot; put in so far: OOP {report.committed[0]:g}, IP {report.committed[1]:g}</p>")
    out.append("<div class='legend'>" + "".join(
        f"<span><i style='background:{c}'></i>{e(a.label)}: {_pct(a.frequency)}</span>"
        for a, c in zip(report.actions, colours)) + "</div>")

    # The grid: each cell split by action frequency; its height is the share of the class held.
    ev_by_class, eq_by_class = _class_means(report)
    out.append("<h2>Strategy by hand class</h2><table class='grid' id='grid'>")
    for row in range(13):
        out.append("<tr>")
        for col in range(13):
            cell = row * 13 + col
            name = CLASS_NAMES[cell]
            share = held[row, col]
            if math.isnan(share) or share <= 0:
                out.append(f"<td title='{e(name)}: not in the range'><span>{e(name)}</span></td>")
                continue
            lines = [f"{name}: {share * len(CLASS_COMBOS[cell]):.2f} of {len(CLASS_COMBOS[cell])} hands held"]
            bars = []
            for a, grid, colour in zip(report.actions, grids, colours):
                f = grid[row, col]
                lines.append(f"{a.label}: {_pct(f)}")
                if f > 0:
                    bars.append(f"<div style='width:{100 * f:.2f}%;background:{colour}'></div>")
            lines.append(f"EV {_num(ev_by_class[cell])}, equity {_pct(eq_by_class[cell])}")
            out.append(f"<td title='{e(chr(10).join(lines))}'><span>{e(name)}</span>"
                       f"<div class='bars' style='height:{100 * min(share, 1.0):.1f}%'>{''.join(bars)}</div></td>")
        out.append("</tr>")
    out.append("</table>")

    # The range as a whole.
    out.append("<h2>The range</h2><table class='data'><tr><th></th><th>OOP</th><th>IP</th></tr>")
    s = report.summary()
    out.append("<tr><td>hands reaching the node</td>" + "".join(f"<td>{_num(s['combos'][p], 1)}</td>"
                                                               for p in PLAYERS) + "</tr>")
    out.append("<tr><td>range equity (weighted by the player's own range)</td>" +
               "".join(f"<td>{_pct(s['range_equity'][p])}</td>" for p in PLAYERS) + "</tr>")
    out.append("<tr><td>calc_eq_node's figure (every hand of the board, by matchups)</td>" +
               "".join(f"<td>{_pct(s['calc_eq_node_equity'][p])}</td>" for p in PLAYERS) + "</tr>")
    out.append(f"<tr><td>EV of {e(me)}'s range</td><td>{_num(s['range_ev']) if me == 'OOP' else ''}</td>"
               f"<td>{_num(s['range_ev']) if me == 'IP' else ''}</td></tr></table>")
    out.append("<p class='note'>Range equity is each player's share of the pot at showdown with the hands he "
               "holds at this node: every hand weighted by how often he has it here and by how much of the "
               "opponent's range it meets. The engine's own last line of calc_eq_node weights by the matchups "
               "alone, so every hand that can be dealt counts the same, in the range or not.</p>")

    # Each hand.
    out.append(f"<h2>Hands of {e(me)}, best equity first</h2><table class='data' id='hands'><tr><th>hand</th>"
               "<th>weight</th>" + "".join(f"<th>{e(a.label)}</th>" for a in report.actions) +
               "<th>EV</th><th>equity</th></tr>")
    for i in report.hands():
        out.append(f"<tr><td>{COMBO_TEXT[i]}</td><td>{_num(report.range[me][i])}</td>" +
                   "".join(f"<td>{_pct(report.strategy[a, i])}</td>" for a in range(len(report.actions))) +
                   f"<td>{_num(report.ev[i])}</td><td>{_pct(report.equity[me][i])}</td></tr>")
    out.append("</table></body></html>")
    return "\n".join(out)


def _class_means(report: NodeReport):
    """Per class, the acting player's EV and equity weighted by the range (NaN when not held)."""
    me = report.player
    r = np.where(report.live, report.range[me], 0.0)
    ev, eq = np.zeros(169), np.zeros(169)
    for cell in range(169):
        members = CLASS_COMBOS[cell]
        w = r[members]
        for values, out in ((report.ev[members], ev), (report.equity[me][members], eq)):
            ok = (w > 0) & ~np.isnan(values)
            out[cell] = (w[ok] * values[ok]).sum() / w[ok].sum() if ok.any() else math.nan
    return ev, eq


def write_report(report: NodeReport, folder: Path) -> dict:
    """All files of a report into folder; returns their paths by kind."""
    folder.mkdir(parents=True, exist_ok=True)
    page = folder / "report.html"
    page.write_text(html_page(report))
    data = folder / "report.json"
    data.write_text(report.to_json())
    table = folder / "hands.csv"
    report.write_csv(table)
    return {"html": page, "json": data, "csv": table, "png": write_pngs(report, folder)}
