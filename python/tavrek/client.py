"""A client for the engine: starts it, sends commands, turns every reply into Python values.

    with Engine() as e:
        e.command("set_board Qs Jh 2h 8d 3c")       # "set_board ok!" -> True
        e.show_strategy("r:0")                       # actions x 1326 numpy array
        e.calc_ev("OOP", "r:0")                      # (EVs, weights), 1326 each

Errors come back as exceptions that carry the reply: CommandError for an
"ERROR: ..." or "Invalid value" reply, EngineDied (with the engine's last
output) when the process ends, EngineTimeout when a reply does not come.

The engine runs with -v, so that its debug lines (in square brackets) are
available: the iteration count beside each progress report and the memory
estimate at build_tree.  They are kept apart from the replies.
"""

from __future__ import annotations

import collections
import itertools
import os
import queue
import re
import shutil
import signal
import subprocess
import threading
import time
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np

ENGINE_VARIABLE = "TAVREK_ENGINE"
_PROGRESS_KEYS = {"running time": "seconds", "EV OOP": "ev_oop", "EV IP": "ev_ip", "OOP's MES": "mes_oop",
                  "IP's MES": "mes_ip", "Exploitable for": "exploitable"}
# Commands whose reply would never come back through the pipe.
_UNSUPPORTED = {"stdoutredi", "stdoutredi_append", "stdoutback", "skip_if_done", "LABEL:"}
_BARRIER = "tavrek_client_barrier_"
_POLL = 0.2   # seconds between checks for Ctrl-C and a dead engine while waiting
# The debug line after each progress report.
_WORK_LINE = re.compile(r"^\[(\d+) iterations \| cpu time ([0-9.]+)s \| peak working set (\d+) MB\]$")


class TavrekError(Exception):
    """Base of the client's errors."""


class CommandError(TavrekError):
    """The engine refused a command. `reply` holds every line it answered."""

    def __init__(self, command: str, reply: list[str]):
        self.command, self.reply = command, reply
        super().__init__(f"{command.split(' ', 1)[0]}: " + " / ".join(reply))


class EngineDied(TavrekError):
    """The engine ended while a reply was awaited. `last_output` holds what it printed last."""

    def __init__(self, command: str | None, returncode, last_output: list[str]):
        self.command, self.returncode, self.last_output = command, returncode, last_output
        tail = "\n  ".join(last_output[-12:]) or "(nothing)"
        what = f" during '{command[:60]}'" if command else ""
        super().__init__(f"the engine ended (status {returncode}){what}; its last output:\n  {tail}")


class EngineTimeout(TavrekError):
    def __init__(self, command: str, seconds: float, partial: list[str]):
        self.command, self.partial = command, partial
        super().__init__(f"no reply to '{command[:60]}' within {seconds:g} s")


def find_engine(path: str | os.PathLike | None = None) -> Path:
    """The engine binary: the argument, then $TAVREK_ENGINE, then the repository's build/tavrek, then PATH."""
    candidates = []
    if path:
        candidates.append(("the argument", Path(path)))
    elif os.environ.get(ENGINE_VARIABLE):
        candidates.append((f"${ENGINE_VARIABLE}", Path(os.environ[ENGINE_VARIABLE])))
    else:
        candidates.append(("the repository", Path(__file__).resolve().parents[2] / "build" / "tavrek"))
        found = shutil.which("tavrek")
        if found:
            candidates.append(("PATH", Path(found)))
    for _, candidate in candidates:
        if candidate.is_file() and os.access(candidate, os.X_OK):
            return candidate
    where = ", ".join(f"{origin} ({c})" for origin, c in candidates)
    raise TavrekError(f"no engine found at {where}; build it with 'bash scripts/build.sh --target tavrek' "
                      f"or name it with --engine or ${ENGINE_VARIABLE}")


@dataclass
class Progress:
    """One progress report of a running solve, values as the engine prints them."""
    seconds: float
    ev_oop: float
    ev_ip: float
    mes_oop: float
    mes_ip: float
    exploitable: float
    iterations: int | None = None


@dataclass
class Reply:
    lines: list[str]
    debug: list[str] = field(default_factory=list)


class _Dead:
    pass


_DEAD = _Dead()


class Engine:
    """One engine process, driven through its standard input and output."""

    def __init__(self, path=None, *, timeout: float | None = 300.0, extra_args=()):
        self.path = find_engine(path)
        self.timeout = timeout
        self._replies: queue.Queue = queue.Queue()
        self._events: queue.Queue = queue.Queue()
        self._recent = collections.deque(maxlen=40)
        self._barriers = itertools.count(1)
        self._lock = threading.Lock()
        self.solving = False
        self.iterations = 0
        self.cpu_seconds: float | None = None    # the engine's processor time at its last progress report
        self.peak_mb: int | None = None          # and its peak working set
        self.last_progress: Progress | None = None
        self.last_reason: str | None = None
        self._proc = subprocess.Popen([str(self.path), "-v", *extra_args], stdin=subprocess.PIPE,
                                      stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, bufsize=1, errors="replace",
                                      start_new_session=True)  # Ctrl-C reaches us alone; we turn it into stop
        self._reader = threading.Thread(target=self._read_stdout, daemon=True)
        self._reader.start()
        threading.Thread(target=self._read_stderr, daemon=True).start()
        self.banner = self._exchange("", None).lines  # everything before the first barrier

    # ----- the pipe ---------------------------------------------------------------------------------

    def _read_stdout(self):
        try:
            self._read_lines()
        except Exception as e:  # never leave a caller waiting on a reader that is gone
            self._recent.append(f"(client: reading the engine's output failed: {e!r})")
        self._replies.put(_DEAD)
        self._events.put(("dead", None))

    def _read_lines(self):
        block: list[str] | None = None
        for raw in self._proc.stdout:
            line = raw.rstrip("\n")
            self._recent.append(line)
            if block is not None:
                if line == "END":
                    self._events.put(("progress", block))
                    block = None
                else:
                    block.append(line)
            elif line == "SOLVER:":
                block = []
            elif line == "SOLVER: started":
                self._events.put(("started", None))
            elif line.startswith("SOLVER: stopped"):
                self._events.put(("stopped", line[len("SOLVER: stopped"):].strip(" ()")))
            elif line.startswith("[") and " iterations | " in line:
                m = _WORK_LINE.match(line)
                if m:
                    self.cpu_seconds, self.peak_mb = float(m.group(2)), int(m.group(3))
                self._events.put(("iterations", int(line[1:].split()[0])))
            else:
                self._replies.put(line)

    def _read_stderr(self):
        for raw in self._proc.stderr:
            self._recent.append(raw.rstrip("\n"))

    def _send(self, text: str):
        try:
            self._proc.stdin.write(text + "\n")
            self._proc.stdin.flush()
        except (BrokenPipeError, ValueError, OSError):
            self._died(text)

    def _died(self, command):
        self._proc.poll()
        try:
            self._proc.wait(timeout=2)
        except subprocess.TimeoutExpired:
            pass
        raise EngineDied(command, self._proc.returncode, list(self._recent))

    def _exchange(self, text: str, timeout: float | None) -> Reply:
        """Send a line and a barrier; everything that comes back before the barrier is the reply."""
        with self._lock:
            marker = f"{_BARRIER}{next(self._barriers)}"
            if text:
                self._send(text)
            self._send(f"echo {marker}")
            reply = Reply([])
            deadline = None if timeout is None else time.monotonic() + timeout
            while True:
                wait = _POLL if deadline is None else max(0.0, min(_POLL, deadline - time.monotonic()))
                try:
                    line = self._replies.get(timeout=wait)
                except queue.Empty:
                    if deadline is not None and time.monotonic() >= deadline:
                        raise EngineTimeout(text, timeout, reply.lines) from None
                    continue
                if line is _DEAD:
                    self._replies.put(_DEAD)
                    self._died(text or None)
                if line == marker:
                    return reply
                if line.startswith(_BARRIER):
                    # The end of a reply that an interrupted call left behind: drop what came before.
                    reply = Reply([])
                    continue
                (reply.debug if line.startswith("[") else reply.lines).append(line)

    # ----- commands ---------------------------------------------------------------------------------

    def raw(self, text: str, timeout: float | None = ...) -> Reply:
        """Send one command line; the reply's lines (debug lines apart), errors raised."""
        word = text.split(" ", 1)[0].strip()
        if word in _UNSUPPORTED:
            raise TavrekError(f"'{word}' would take the replies away from the client; not sent")
        if word == "exit":
            self.close()
            return Reply([])
        if "\n" in text:
            raise TavrekError("one command per call")
        reply = self._exchange(text, self.timeout if timeout is ... else timeout)
        for line in reply.lines:
            if line.startswith("ERROR: ") or line == "Invalid value":
                raise CommandError(text, reply.lines)
        return reply

    def command(self, text: str, timeout: float | None = ...):
        """Send one command and return its reply as Python values (see parse_reply)."""
        word = text.split(" ", 1)[0].strip()
        if word == "wait_for_solver" and timeout is ...:
            timeout = None
        return parse_reply(word, self.raw(text, timeout).lines)

    def script(self, commands, timeout: float | None = ...) -> list:
        return [self.command(c, timeout) for c in commands]

    # Typed helpers for the commands a program uses most.

    def show_strategy(self, path: str) -> np.ndarray:
        return self.command(f"show_strategy {path}")

    def show_children(self, path: str) -> list[dict]:
        return self.command(f"show_children {path}")

    def show_node(self, path: str) -> dict:
        return self.command(f"show_node {path}")

    def show_range(self, player: str, path: str | None = None) -> np.ndarray:
        return self.command(f"show_range {player}" + (f" {path}" if path else ""))

    def show_probs(self, path: str) -> dict:
        return self.command(f"show_probs {path}")

    def calc_ev(self, player: str, path: str) -> tuple[np.ndarray, np.ndarray]:
        return self.command(f"calc_ev {player} {path}")

    def calc_eq(self, player: str) -> tuple[np.ndarray, np.ndarray]:
        return self.command(f"calc_eq {player}")

    def calc_eq_node(self, player: str, path: str) -> tuple[np.ndarray, np.ndarray, float]:
        return self.command(f"calc_eq_node {player} {path}")

    def line_frequency(self, path: str, *, runouts: bool = True) -> float:
        """The share of all deals that play the line to `path`: over every runout, or
        with `runouts=False` on exactly the cards the path names."""
        return self.command(f"calc_{'line' if runouts else 'global'}_freq {path}")

    def calc_results(self) -> dict:
        return self.command("calc_results")

    def node_count(self) -> dict:
        return self.command("node_count")

    def show_memory(self) -> dict:
        return self.command("show_memory")

    # ----- solving ----------------------------------------------------------------------------------

    def solve(self, go: str = "go", on_progress=None, poll=None) -> str:
        """Run the solver until it stops; returns the reason it gave.

        on_progress(Progress) is called for each report.  Ctrl-C sends `stop`, so the
        iterations done so far are kept; the solve then ends as any other.
        """
        while not self._events.empty():      # reports of an earlier run
            self._events.get_nowait()
        self.last_reason = None
        self.command(go)
        self.solving = True
        stop_sent = False
        pending: Progress | None = None
        try:
            while True:
                try:
                    kind, value = self._events.get(timeout=_POLL)
                except queue.Empty:
                    if poll:
                        poll()
                    continue
                except KeyboardInterrupt:
                    if stop_sent:      # a second Ctrl-C: the user insists
                        raise
                    stop_sent = True
                    self.command("stop")
                    continue
                if kind == "progress":
                    pending = _parse_progress(value)
                    self.last_progress = pending
                elif kind == "iterations":
                    self.iterations = value
                    if pending is not None:
                        pending.iterations = value
                        if on_progress:
                            on_progress(pending)
                        pending = None
                elif kind == "stopped":
                    if pending is not None and on_progress:
                        on_progress(pending)
                    self.last_reason = "stopped by the user" if stop_sent and value == "requested" else value
                    return self.last_reason
                elif kind == "dead":
                    self._died(go)
        finally:
            self.solving = False

    # ----- life -------------------------------------------------------------------------------------

    @property
    def alive(self) -> bool:
        return self._proc.poll() is None

    def close(self, timeout: float = 30.0):
        """Stop a running solve, end the engine with `exit`, and wait for it."""
        if self._proc.poll() is None:
            try:
                if self.solving:
                    self._send("stop")
                self._proc.stdin.write("exit\n")
                self._proc.stdin.close()
            except (BrokenPipeError, OSError, ValueError):
                pass
            try:
                self._proc.wait(timeout=timeout)
            except subprocess.TimeoutExpired:
                self._kill()
        # The reader threads end by themselves at the end of the output.

    def _kill(self):
        try:
            os.killpg(self._proc.pid, signal.SIGKILL)   # the engine leads a process group of its own
        except (ProcessLookupError, PermissionError):
            self._proc.kill()
        self._proc.wait()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        proc = getattr(self, "_proc", None)
        if proc is not None and proc.poll() is None:
            self._kill()


# ----- reply parsing --------------------------------------------------------------------------------------

def _values(line: str) -> np.ndarray:
    return np.array(line.split(), dtype=float)


def _report(lines: list[str]) -> list[str]:
    if not lines or lines[-1] != "END":
        raise TavrekError(f"a report without END: {lines[-3:]}")
    return lines[:-1]


def _parse_progress(lines: list[str]) -> Progress:
    values = {}
    for line in lines:
        key, _, value = line.partition(": ")
        if key in _PROGRESS_KEYS:
            values[_PROGRESS_KEYS[key]] = float(value)
    return Progress(**values)


def _parse_results(lines):
    names = {"EV OOP": "ev_oop", "EV IP": "ev_ip", "OOP's MES": "mes_oop", "IP's MES": "mes_ip",
             "Exploitable for": "exploitable"}
    out = {}
    for line in _report(lines):
        key, _, value = line.partition(": ")
        out[names.get(key, key)] = float(value)
    return out


def _parse_node(lines: list[str]) -> dict:
    committed = lines[3].split()
    return {"path": lines[0], "type": lines[1], "cards": lines[2].split(),
            "committed": (float(committed[0]), float(committed[1])), "pot": float(committed[2]),
            "children": int(lines[4].split()[0]), "flags": lines[5].partition(":")[2].split()}


def _parse_children(lines: list[str]) -> list[dict]:
    body = _report(lines)
    out = []
    i = 0
    while i < len(body):
        if not body[i].startswith("child "):
            raise TavrekError(f"unexpected line in show_children: {body[i]}")
        out.append(_parse_node(body[i + 1:i + 7]))
        i += 7
    return out


def _parse_node_count(lines: list[str]) -> dict:
    out = {}
    current = None
    for line in _report(lines):
        key, value = line.replace(":", " ").split()
        if key in ("FLOP", "TURN", "RIVER"):
            out[current][key.lower()] = int(value)
        else:
            current = key
            out[key] = {"total": int(value)} if key != "TOTAL" else int(value)
    return out


def _parse_probs(line: str) -> dict:
    parts = line.split()
    actions = {parts[i]: float(parts[i + 1]) for i in range(4, len(parts) - 1, 2)}
    return {"OOP": float(parts[1]), "IP": float(parts[3]), "actions": actions}


def _parse_memory(lines):
    out = {}
    for line in _report(lines):
        key, _, value = line.partition(": ")
        out["total_mb" if key.startswith("Total") else "available_mb"] = int(value.split()[0])
    return out


def _parse_tree_params(lines):
    out = {}
    for line in _report(lines):
        key, _, value = line.partition(":")
        out[key] = value.strip()
    return out


def _pair_of_lines(lines):
    body = _report(lines)
    return _values(body[0]), _values(body[1])


def _eq_node(lines):
    body = _report(lines)
    return _values(body[0]), _values(body[1]), float(body[2])


def _pp(lines):
    """"hand: a; b" or "hand:  a  b  c" rows of the _pp reports."""
    out = {}
    for line in _report(lines):
        hand, _, rest = line.partition(":")
        out[hand] = [float(x) for x in rest.replace(";", " ").split()]
    return out


_PARSERS = {
    "show_hand_order": lambda lines: lines[0].split(),
    "show_tree_params": _parse_tree_params,
    "solver_time": lambda lines: float(lines[0]),
    "is_tree_present": lambda lines: lines[0] == "true",
    "show_effective_stack": lambda lines: int(lines[0]),
    "get_actual_compression": lambda lines: int(lines[0].split()[1]),
    "ai6_get_actual_compression": lambda lines: int(lines[0].split()[1]),
    "get_instruction_set": lambda lines: lines[0],
    "ai6_get_instruction_set": lambda lines: lines[0],
    "show_node": lambda lines: _parse_node(_report(lines)),
    "show_children": _parse_children,
    "show_strategy": lambda lines: np.array([_values(line) for line in _report(lines)]).reshape(-1, 1326),
    "show_strategy_pp": _pp,
    "show_range": lambda lines: _values(lines[0]),
    "show_probs": lambda lines: _parse_probs(lines[0]),
    "calc_results": _parse_results,
    "calc_ev": _pair_of_lines,
    "calc_ev_line": _pair_of_lines,
    "calc_eq": _pair_of_lines,
    "calc_ev_pp": _pp,
    "calc_eq_pp": _pp,
    "calc_eq_node": _eq_node,
    "node_count": _parse_node_count,
    "show_memory": _parse_memory,
    "show_locked_combos": lambda lines: _report(lines),
    "calc_line_freq": lambda lines: float(lines[0]),
    "calc_global_freq": lambda lines: float(lines[0]),
    "show_settings": _report,
    "show_tree_info": _report,
    "help": _report,
    "show_category_names": _report,
    "show_categories": _report,
    "show_cpu_info": _report,
    "repeat": _report,
}


def parse_reply(word: str, lines: list[str]):
    """A reply as Python values: True for "<word> ok!", typed values for the reports and bare values,
    the list of lines for reports without a parser of their own, None for no reply at all."""
    if word in _PARSERS:
        return _PARSERS[word](lines)
    if not lines:
        return None
    if lines == [f"{word} ok!"]:
        return True
    if lines[-1] == "END":
        return lines[:-1]
    return lines[0] if len(lines) == 1 else lines
