"""The aggregated report of a batch: a row per board (CSV, and Parquet when pyarrow is there), and an HTML
page with the weighted averages, plots of the action frequencies by texture and of the EVs, a sortable
table and the boards that failed with their engine output.

Every average is weighted by the boards' weights: a flop that stands for 24 flops counts 24 times.
"""

from __future__ import annotations

import base64
import csv
import html
import io
import math
from pathlib import Path

from .batch import failure_path, read_json, record_path
from .batchfile import Batch
from .cards import RANKS
from .flops import PAIRING_ORDER, SUIT_ORDER, texture
from .render import label_colours

BASE_COLUMNS = ["board", "status", "weight", "high_card", "pairing", "suits", "straights", "ev_oop", "ev_ip",
                "equity_oop", "equity_ip", "exploitable", "exploitable_pct", "iterations", "seconds",
                "cpu_seconds", "peak_mb", "compression", "reason"]
AVERAGED = ["ev_oop", "ev_ip", "equity_oop", "equity_ip", "exploitable", "exploitable_pct", "iterations",
            "seconds", "cpu_seconds", "peak_mb"]


class Table:
    """Rows of the report in the batch's order, and the action columns in the order first met."""

    def __init__(self, batch: Batch, out: Path):
        self.batch = batch
        self.rows: list[dict] = []
        self.actions: list[dict] = []          # node, player, token, label, column
        self.errors: dict[str, list[str]] = {}
        seen = set()
        for board in batch.boards:
            row = {"board": board.text, "status": "missing", "weight": board.weight, **texture(board.cards)}
            current = batch.fingerprint(board)
            record = read_json(record_path(out, board.text))
            failure = read_json(failure_path(out, board.text))
            if record and record.get("status") == "ok" and record.get("fingerprint") == current:
                row.update({k: record.get(k) for k in BASE_COLUMNS[7:]})
                row["status"] = "ok"
                for action in record.get("actions", []):
                    column = f"{action['node']} {action['label']}"
                    row[column] = action["frequency"]
                    if column not in seen:
                        seen.add(column)
                        self.actions.append({**action, "column": column})
            elif failure and failure.get("fingerprint") == current:
                row["status"] = "failed"
                row["error"] = failure.get("error", "")
                self.errors[board.text] = failure.get("engine_output") or [row["error"]]
            self.rows.append(row)

    @property
    def columns(self) -> list[str]:
        return BASE_COLUMNS + [a["column"] for a in self.actions] + ["error"]

    @property
    def solved(self) -> list[dict]:
        return [r for r in self.rows if r["status"] == "ok"]

    def nodes(self) -> list[str]:
        return list(dict.fromkeys(a["node"] for a in self.actions))

    def node_actions(self, node: str) -> list[dict]:
        return [a for a in self.actions if a["node"] == node]

    def average(self, column: str, rows: list[dict] | None = None) -> float:
        """The weighted mean of a column over rows (the solved boards), NaN when none has a value."""
        total = weight = 0.0
        for row in self.solved if rows is None else rows:
            value = row.get(column)
            if value is not None and not (isinstance(value, float) and math.isnan(value)):
                total += row["weight"] * value
                weight += row["weight"]
        return total / weight if weight > 0 else math.nan

    def averages(self) -> dict:
        return {c: self.average(c) for c in AVERAGED + [a["column"] for a in self.actions]}


def write_csv(table: Table, path: Path):
    with open(path, "w", newline="") as f:
        writer = csv.DictWriter(f, fieldnames=table.columns, extrasaction="ignore")
        writer.writeheader()
        for row in table.rows:
            writer.writerow({k: "" if v is None else v for k, v in row.items()})


def write_parquet(table: Table, path: Path) -> bool:
    """The same table as Parquet, when pyarrow is installed; False when it isn't."""
    try:
        import pyarrow
        import pyarrow.parquet
    except ImportError:
        return False
    columns = {c: [row.get(c) for row in table.rows] for c in table.columns}
    pyarrow.parquet.write_table(pyarrow.table(columns), str(path))
    return True


def write_batch_report(batch: Batch, out: Path) -> dict:
    """report.csv (and report.parquet), report.html; returns their paths by kind."""
    out = Path(out)
    table = Table(batch, out)
    files = {"csv": out / "report.csv", "html": out / "report.html"}
    write_csv(table, files["csv"])
    if write_parquet(table, out / "report.parquet"):
        files["parquet"] = out / "report.parquet"
    files["html"].write_text(html_page(table))
    return files


# ----- plots ---------------------------------------------------------------------------------------

def _png(fig) -> str:
    buffer = io.BytesIO()
    fig.savefig(buffer, format="png", dpi=90)
    import matplotlib.pyplot as plt
    plt.close(fig)
    return base64.b64encode(buffer.getvalue()).decode()


def _stacked(ax, table: Table, node: str, groups: list[tuple[str, list[dict]]], title: str):
    """Bars of the node's action frequencies in each group of boards, weighted means, stacked."""
    actions = table.node_actions(node)
    colours = label_colours([(a["token"], a["label"]) for a in actions])
    names = [name for name, _ in groups]
    bottom = [0.0] * len(groups)
    for action, colour in zip(actions, colours):
        heights = [table.average(action["column"], rows) for _, rows in groups]
        heights = [0.0 if math.isnan(h) else h for h in heights]
        ax.bar(names, heights, bottom=bottom, color=colour, label=action["label"], edgecolor="white", linewidth=0.5)
        bottom = [b + h for b, h in zip(bottom, heights)]
    ax.set_ylim(0, 1)
    ax.set_ylabel("frequency")
    ax.set_title(title, fontsize=10)
    ax.tick_params(axis="x", labelsize=8)
    for label in ax.get_xticklabels():
        label.set_rotation(30 if max(len(n) for n in names) > 3 else 0)
        label.set_ha("right" if max(len(n) for n in names) > 3 else "center")


def _groups(rows: list[dict], key, order=None) -> list[tuple[str, list[dict]]]:
    found: dict = {}
    for row in rows:
        found.setdefault(key(row), []).append(row)
    names = sorted(found, key=order) if order else list(found)
    return [(str(n), found[n]) for n in names]


def _by_high_card(rows):
    return _groups(rows, lambda r: r["high_card"], lambda c: -RANKS.index(c))


def _by_texture(rows):
    rank = {(p, s): (i, j) for i, p in enumerate(PAIRING_ORDER) for j, s in enumerate(SUIT_ORDER)}
    found: dict = {}
    for row in rows:
        found.setdefault((row["pairing"], row["suits"]), []).append(row)
    return [(f"{p} {s}", found[(p, s)]) for p, s in sorted(found, key=rank.get)]


def _by_straights(rows):
    return _groups(rows, lambda r: f"{r['straights']} straight{'s' if r['straights'] != 1 else ''}",
                   lambda t: int(t.split()[0]))


def plots(table: Table) -> list[tuple[str, str]]:
    """(caption, PNG in base64) of each plot."""
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    rows = table.solved
    if not rows or not table.actions:
        return []
    nodes = table.nodes()
    root, responses = nodes[0], nodes[1:]
    first = table.node_actions(root)[0]["player"]
    out = []

    fig, axes = plt.subplots(1, 3, figsize=(15, 4.2), gridspec_kw={"width_ratios": [1.3, 1.3, 0.7]})
    _stacked(axes[0], table, root, _by_high_card(rows), f"{first} at {root}, by high card")
    _stacked(axes[1], table, root, _by_texture(rows), f"{first} at {root}, by pairing and suits")
    _stacked(axes[2], table, root, _by_straights(rows), "by connectedness")
    axes[2].legend(fontsize=8, loc="upper left", bbox_to_anchor=(1.02, 1))
    fig.tight_layout()
    out.append((f"The first decision: how often {first} takes each action, weighted means over the boards of "
                f"each high card, texture and connectedness (straights that three board ranks allow)", _png(fig)))

    if responses:
        fig, axes = plt.subplots(1, len(responses), figsize=(5 * len(responses), 4.0), squeeze=False)
        for ax, node in zip(axes[0], responses):
            player = table.node_actions(node)[0]["player"]
            _stacked(ax, table, node, _by_high_card(rows), f"{player} at {node}")
            ax.legend(fontsize=7, loc="lower left")
        fig.tight_layout()
        out.append(("The first responses: each answer to the first decision, by high card", _png(fig)))

    fig, ax = plt.subplots(figsize=(15, 4.2))
    xs = list(range(len(rows)))
    scale = 60.0 / max(r["weight"] for r in rows)
    for column, colour, name in (("ev_oop", "#4a86c8", "OOP"), ("ev_ip", "#d64545", "IP")):
        ax.scatter(xs, [r.get(column) if r.get(column) is not None else math.nan for r in rows],
                   s=[8 + scale * r["weight"] for r in rows], color=colour, alpha=0.75, label=f"EV {name}")
        average = table.average(column)
        ax.axhline(average, color=colour, linewidth=1, linestyle="--")
    if len(rows) <= 40:
        ax.set_xticks(xs, [r["board"] for r in rows], rotation=60, ha="right", fontsize=7)
    else:
        starts = [i for i, r in enumerate(rows) if i == 0 or r["high_card"] != rows[i - 1]["high_card"]]
        ax.set_xticks(starts, [f"{rows[i]['high_card']}-high" for i in starts], fontsize=8)
    ax.set_ylabel("chips")
    ax.legend(fontsize=8)
    ax.set_title("EV of each player by board (dashed: weighted means; dot size: weight)", fontsize=10)
    fig.tight_layout()
    out.append(("EV by board, in the batch's order (by pairing, suits, then high card)", _png(fig)))
    return out


# ----- the page ------------------------------------------------------------------------------------

_STYLE = """
body { font-family: sans-serif; margin: 24px; color: #222; }
h1 { font-size: 20px; } h2 { font-size: 16px; margin-top: 28px; }
table.data { border-collapse: collapse; font-size: 12px; }
table.data td, table.data th { border-bottom: 1px solid #ddd; padding: 2px 7px; text-align: right; white-space: nowrap; }
table.data th { background: #f3f3f3; position: sticky; top: 0; }
table.sortable th { cursor: pointer; }
table.sortable th[data-order=asc]::after { content: " \\25B2"; }
table.sortable th[data-order=desc]::after { content: " \\25BC"; }
table.data td:first-child, table.data th:first-child { text-align: left; }
tr.failed td { color: #b00; } tr.missing td { color: #999; }
img.plot { max-width: 100%; display: block; margin: 8px 0; }
p.note { max-width: 860px; font-size: 13px; color: #444; }
pre { background: #f6f6f6; padding: 6px; font-size: 11px; max-width: 1100px; overflow-x: auto; }
"""

# Click a header to sort by it (again to reverse); #sort=column or #sort=-column in the address sorts on load.
_SCRIPT = """
function sortBy(th, ascending) {
  const table = th.closest('table'), body = table.tBodies[0], i = th.cellIndex;
  const key = r => { const c = r.cells[i], v = c.dataset.v;
    return v === undefined ? c.textContent : (v === '' ? NaN : parseFloat(v)); };
  const rows = Array.from(body.rows);
  rows.sort((a, b) => { const x = key(a), y = key(b);
    if (typeof x === 'number') { if (isNaN(x)) return isNaN(y) ? 0 : 1; if (isNaN(y)) return -1;
      return ascending ? x - y : y - x; }
    return ascending ? x.localeCompare(y) : y.localeCompare(x); });
  table.querySelectorAll('th').forEach(h => delete h.dataset.order);
  th.dataset.order = ascending ? 'asc' : 'desc';
  rows.forEach(r => body.appendChild(r));
}
document.querySelectorAll('table.sortable th').forEach(th =>
  th.addEventListener('click', () => sortBy(th, th.dataset.order !== 'asc')));
const wanted = decodeURIComponent(location.hash).match(/^#sort=(-?)(.+)$/);
if (wanted) document.querySelectorAll('table.sortable th').forEach(th => {
  if (th.dataset.column === wanted[2]) sortBy(th, wanted[1] !== '-'); });
"""

_PERCENT = {"equity_oop", "equity_ip"}


def _cell(column: str, value, row: dict) -> str:
    if value is None or (isinstance(value, float) and math.isnan(value)) or value == "":
        return "<td data-v=''></td>" if column not in ("board", "status", "pairing", "suits", "reason", "error") \
            else "<td></td>"
    if column == "board":
        return f"<td data-v='{row['_order']}'>{html.escape(str(value))}</td>"
    if column == "high_card":
        return f"<td data-v='{RANKS.index(value)}'>{value}</td>"
    if isinstance(value, str):
        return f"<td>{html.escape(value)}</td>"
    if column in _PERCENT or " " in column:        # equities and action frequencies
        return f"<td data-v='{value!r}'>{100 * value:.1f}%</td>"
    if isinstance(value, int) or float(value).is_integer():
        return f"<td data-v='{value!r}'>{value:g}</td>"
    return f"<td data-v='{value!r}'>{value:.3f}</td>"


def _averages_html(table: Table) -> str:
    averages = table.averages()
    total = sum(r["weight"] for r in table.solved)
    cells = []
    for column, value in averages.items():
        if math.isnan(value):
            continue
        shown = f"{100 * value:.1f}%" if column in _PERCENT or " " in column else f"{value:.3f}"
        cells.append(f"<tr><td>{html.escape(column)}</td><td>{shown}</td></tr>")
    return (f"<h2>Weighted averages over {len(table.solved)} solved boards (weight {total:g})</h2>"
            f"<table class='data' id='averages'><tr><th>column</th><th>weighted mean</th></tr>{''.join(cells)}</table>")


def html_page(table: Table) -> str:
    e = html.escape
    batch = table.batch
    counts = {s: sum(1 for r in table.rows if r["status"] == s) for s in ("ok", "failed", "missing")}
    out = [f"<!DOCTYPE html><html><head><meta charset='utf-8'><title>{e(batch.name)}: batch report</title>"
           f"<style>{_STYLE}</style></head><body>"]
    out.append(f"<h1>{e(Path(batch.name).name)}: {e(batch.flop_set)}</h1>")
    out.append(f"<p>{counts['ok']} boards solved, {counts['failed']} failed, {counts['missing']} not solved yet. "
               f"Pot {batch.spot.pot}, stack {batch.spot.stack:g}, accuracy {batch.spot.accuracy:g}% of the pot.</p>")
    out.append("<p class='note'>Weights: how many boards each stands for (of the 22,100 flops under suit "
               "isomorphism). Equity: each player's share of the pot at showdown with his range at the first "
               "decision. Exploitability in chips and per cent of the pot; seconds of the solve; peak memory of "
               "its engine. Action columns: the share of the acting player's range that takes the action at "
               "that node. Click a column's header to sort by it.</p>")
    out.append(_averages_html(table))
    for caption, png in plots(table):
        out.append(f"<h2>{e(caption)}</h2><img class='plot' alt='{e(caption)}' src='data:image/png;base64,{png}'>")
    columns = table.columns
    out.append("<h2>Every board</h2><table class='data sortable' id='boards'><thead><tr>"
               + "".join(f"<th data-column='{e(c)}'>{e(c)}</th>" for c in columns) + "</tr></thead><tbody>")
    for order, row in enumerate(table.rows):
        row["_order"] = order
        out.append(f"<tr class='{row['status']}'>" + "".join(_cell(c, row.get(c), row) for c in columns) + "</tr>")
        del row["_order"]
    out.append("</tbody></table>")
    if table.errors:
        out.append("<h2>Failed boards</h2>")
        for board, lines in table.errors.items():
            out.append(f"<h3>{e(board)}</h3><pre>{e(chr(10).join(lines))}</pre>")
    out.append(f"<script>{_SCRIPT}</script></body></html>")
    return "\n".join(out)
