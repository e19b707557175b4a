#!/usr/bin/python3
"""Protocol fuzzer: random valid and malformed sessions against the program.

Each session is made from one seed: small ranges, boards and lines, builds,
solves with go/stop, queries on good and bad paths, settings changed during a
solve, odd numbers, long tokens and lines, random bytes, scripts that load
scripts, skips and redirections. It is written to the program's standard
input through a pipe, with a marker `echo` after every command so that each
reply can be told apart, and ends with `is_ready`.

A session fails when the program dies (a signal or a nonzero exit), writes
anything to standard error (a sanitizer report, an uncaught exception), does
not answer the closing `is_ready` within the time limit, or replies with a
line that is in none of the forms the command may answer in: its "ok!", its
own data lines, "END", "ERROR: ...", "Invalid value", the solver's lines, and
debug lines under -v. Numbers the protocol prints for client questions must
be finite, except where it prints "nan" for a hand on purpose.

    protocol_fuzz.py --binary build-asan/tavrek [--seconds 60 | --sessions N]
                     [--seed S] [--jobs 2] [--keep DIR]

Session k runs with seed S + k. A failed session is kept in DIR/seed-<seed>/
(DIR defaults to fuzz-failures beside the binary)
(input.txt, the scripts it names, stdout.txt, stderr.txt); to replay it, run
the binary in that folder with input.txt on standard input, or run the
fuzzer again with --seed <seed> --sessions 1.
"""
import argparse
import concurrent.futures
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time

RANKS = "23456789TJQKA"
SUITS = "cdhs"
CARDS = [rank + suit for suit in SUITS for rank in RANKS]
LINE_BOUND = 1 << 20

SESSION_LIMIT_SECONDS = 120

# ---------------------------------------------------------------------------
# The tokeniser, as the program cuts a line: blanks separate, a double quote
# opens a span that the next quote closes, and a closing quote ends a token.


def tokenise(line):
    tokens, current, in_quotes = [], "", False
    for ch in list(line) + [None]:
        if ch is None or (ch == '"' and in_quotes) or (ch == " " and not in_quotes):
            if current:
                tokens.append(current)
            current = ""
            in_quotes = False
        elif ch == '"':
            in_quotes = True
        else:
            current += ch
    return tokens


# ---------------------------------------------------------------------------
# Reply forms.

NUMBER = r"-?(?:\d+\.?\d*|\.\d+)(?:e[-+]?\d+)?"
NUMBER_RE = re.compile(r"^" + NUMBER + r"$")
COMBO = r"[2-9TJQKA][cdhs][2-9TJQKA][cdhs]"
CARD_LIST_RE = re.compile(r"^[2-9TJQKA][cdhs]( [2-9TJQKA][cdhs])*$")
SOLVER_LINES = [
    re.compile(r"^SOLVER: started$"),
    re.compile(r"^SOLVER: stopped \((requested|required accuracy reached|required number of steps done|timeout reached)\)$"),
    re.compile(r"^SOLVER:$"),
    re.compile(r"^running time: " + NUMBER + "$"),
    re.compile(r"^(EV OOP|EV IP|OOP's MES|IP's MES|Exploitable for): " + NUMBER + "$"),
    re.compile(r"^END$"),
]


def is_number(text):
    return bool(NUMBER_RE.match(text))


def vector_line(line, nan_allowed):
    values = line.split(" ")
    return len(values) == 1326 and all(is_number(v) or (nan_allowed and v in ("nan", "-nan")) for v in values)


def matches(pattern, line):
    return re.match(pattern, line) is not None


def node_line(line):
    return (matches(r"^child \d+:$", line) or line in ("ROOT", "SPLIT_NODE", "END_NODE", "OOP_DEC", "IP_DEC")
            or matches(r"^r(:.*)?$", line) or bool(CARD_LIST_RE.match(line))
            or (len(line.split(" ")) == 3 and all(is_number(v) for v in line.split(" ")))
            or matches(r"^\d+ children$", line) or matches(r"^flags:( [A-Z_ ]*)?$", line))


def probs_line(line):
    m = re.match(r"^OOP (\S+) IP (\S+) (.*)$", line)
    if not m or not is_number(m.group(1)) or not is_number(m.group(2)):
        return False
    items = m.group(3).split(" ") if m.group(3) else []
    return len(items) % 2 == 0 and all(is_number(v) for v in items[1::2])


def pp_line(line, decimals_pairs):
    if decimals_pairs:
        return matches(r"^" + COMBO + r": (-?nan|" + NUMBER + r"); (-?nan|" + NUMBER + r")$", line)
    return matches(r"^" + COMBO + r": (  " + NUMBER + r")*$", line)


def any_line(_line):
    return True


ACK_ONLY = set("""is_ready set_threads ai6_set_threads set_recalc_accuracy set_isomorphism skip_if_done stop
set_range set_board set_pot clear_lines free_schematic_tree add_line remove_line force_line cut_line build_tree
free_tree stdoutredi stdoutredi_append stdoutback set_eff_stack set_rake set_accuracy set_compression
ai6_set_compression set_scheduler enable_avx512 enable_river_strategy take_a_break ignore_mem_check
reset_tree_info add_info_line set_simd_level set_precision go sleep wait_for_solver""".split())

DATA_FORMS = {
    "solver_time": lambda l: matches(r"^\d+\.\d{6}$", l),
    "show_hand_order": lambda l: len(l.split(" ")) == 1326 and all(re.match("^" + COMBO + "$", c) for c in l.split(" ")),
    "show_settings": lambda l: False,
    "show_tree_params": lambda l: (matches(r"^board: ([2-9TJQKA][cdhs]( [2-9TJQKA][cdhs])*)?$", l)
                                   or (l.startswith("pot: ") and all(is_number(v) for v in l[5:].split(" ")))
                                   or l in ("bet_sizes: ", "donk_bet: FALSE")),
    "is_tree_present": lambda l: l in ("true", "false"),
    "show_node": node_line,
    "show_children": node_line,
    "show_strategy": lambda l: vector_line(l, False),
    "show_strategy_pp": lambda l: pp_line(l, False),
    "show_range": lambda l: vector_line(l, False),
    "show_probs": probs_line,
    "calc_results": lambda l: False,  # its lines are those of the solver's report
    "calc_ev": lambda l: vector_line(l, True),
    "calc_ev_pp": lambda l: pp_line(l, True),
    "calc_ev_line": lambda l: vector_line(l, False),
    "calc_eq": lambda l: vector_line(l, True),
    "calc_eq_pp": lambda l: pp_line(l, True),
    "calc_eq_node": lambda l: vector_line(l, True) or is_number(l),
    "show_memory": lambda l: matches(r"^(Total Physical Memory|Available Phys Memory): -?\d+ MB$", l),
    "node_count": lambda l: matches(r"^(H_DEC|V_DEC|SPLIT|END|ROOT|TOTAL): \d+$", l) or matches(r"^(FLOP|TURN|RIVER) +\d+$", l),
    "show_effective_stack": lambda l: matches(r"^-?\d+$", l),
    "show_category_names": lambda l: matches(r"^[a-z0-9_ ]+$", l),
    "show_categories": lambda l: all(is_number(v) for v in l.rstrip(" ").split(" ")),
    # A range that is not suit-symmetric, on a tree that skips the range test.
    "build_tree": lambda l: l.startswith("isomorph error: "),
    "cut_line": lambda l: l.startswith("isomorph error: "),
    "get_actual_compression": lambda l: matches(r"^compression -?\d+$", l),
    "ai6_get_actual_compression": lambda l: matches(r"^compression -?\d+$", l),
    "get_instruction_set": lambda l: matches(r"^[A-Za-z0-9-]+$", l),
    "ai6_get_instruction_set": lambda l: matches(r"^[A-Za-z0-9-]+$", l),
    "help": lambda l: matches(r"^[a-z0-9_]+$", l),
    # Client text comes back as it was sent.
    "echo": any_line,
    "repeat": any_line,
    "show_tree_info": any_line,
    "show_cpu_info": any_line,
}


def line_allowed(line, words, verbose):
    """True when `line` is a form that one of the commands `words` may reply."""
    if line.startswith("ERROR: ") or line == "Invalid value" or line == "END":
        return True
    if any(p.match(line) for p in SOLVER_LINES):
        return True
    if verbose and line.startswith("[") and line.endswith("]"):
        return True
    for word in words:
        if line == word + " ok!":
            return True
        form = DATA_FORMS.get(word)
        if form and form(line):
            return True
    return False


# ---------------------------------------------------------------------------
# Session generation.


class Session:
    def __init__(self, seed, hand_order, folder):
        self.rng = random.Random(seed)
        self.seed = seed
        self.hand_order = hand_order
        self.folder = folder
        self.nonce = "%08x" % self.rng.getrandbits(32)
        self.commands = []  # text of each command line, in order
        self.board = []
        self.lines = []
        self.labels = []
        self.unbounded_solve = False
        self.scripts = {}  # name -> list of commands
        self.verbose = self.rng.random() < 0.15

    # -- small pieces --------------------------------------------------------

    def pick(self, *choices):
        return self.rng.choice(choices)

    def odd_number(self):
        return self.pick("nan", "inf", "-inf", "1e308", "-1e308", "1e39", "3e38", "-0", "0x10", "", "abc", "-1",
                         "2147483647", "-2147483648", "99999999999", "1e-320", "4.9e-324", "1.5", " 7 ", "1%d",
                         "%s%s%n", "12abc", "+3", "0.0000001", "1e5", "00", "-")

    def card(self):
        return self.rng.choice(CARDS)

    def new_board(self):
        count = self.pick(3, 4, 4, 5, 5, 5)
        self.board = self.rng.sample(CARDS, count)
        return "set_board " + " ".join(self.board)

    def bad_board(self):
        kind = self.rng.randrange(6)
        if kind == 0:
            return "set_board " + " ".join([self.card()] * 3)
        if kind == 1:
            return "set_board " + " ".join(self.rng.sample(CARDS, 3) + [self.card()] * 2)
        if kind == 2:
            return "set_board Zz Ah Kd"
        if kind == 3:
            return "set_board " + "".join(self.rng.sample(CARDS, 3)) + " Qc"
        if kind == 4:
            return "set_board " + " ".join(self.rng.sample(CARDS, self.pick(1, 2, 6, 7)))
        return "set_board " + "A" * self.rng.randint(200, 300) + " Kd Qc"

    @staticmethod
    def hand_class(combo):
        ranks = "".join(sorted((combo[0], combo[2]), key=RANKS.index))
        return ranks + ("p" if combo[0] == combo[2] else "s" if combo[1] == combo[3] else "o")

    def range_command(self, player=None, clean=False):
        player = player or self.pick("OOP", "IP", "hero", "villain")
        weights = ["0"] * 1326
        blocked = set(self.board)
        live = [i for i, combo in enumerate(self.hand_order) if combo[:2] not in blocked and combo[2:] not in blocked]
        chosen = self.rng.sample(live, self.rng.randint(1, 12))
        symmetric = self.rng.random() < 0.85
        if symmetric:
            # Every suit variant of a class weighs the same, as a flop tree
            # with isomorphism demands.
            classes = {self.hand_class(self.hand_order[i]) for i in chosen}
            chosen = [i for i, combo in enumerate(self.hand_order) if self.hand_class(combo) in classes]
            class_weight = {c: self.pick("1", "1", "0.5", "0.25", "%.3f" % self.rng.random(), "2") for c in classes}
        for index in chosen:
            weights[index] = (class_weight[self.hand_class(self.hand_order[index])] if symmetric else
                              self.pick("1", "1", "0.5", "0.25", "%.3f" % self.rng.random(), "2", "1e-6"))
        roll = 1.0 if clean else self.rng.random()
        if roll < 0.05:
            weights[self.rng.randrange(1326)] = self.odd_number()
        elif roll < 0.08:
            weights = ["0"] * 1326
        elif roll < 0.10:
            weights[self.rng.randrange(1326)] = self.pick("1e38", "1e30", "3.4e38", "1e300")
        elif roll < 0.12:
            weights = weights[: self.rng.randrange(1326)]
        elif roll < 0.13:
            player = self.pick("oop", "X", "IPX")
        return "set_range " + player + " " + " ".join(weights)

    def bet(self, amount):
        return amount + self.pick(25, 50, 50, 100, 200)

    def random_line(self):
        streets = 6 - len(self.board) if self.board else self.pick(1, 2, 3)
        amounts, top = [], 0
        for _ in range(streets):
            kind = self.rng.random()
            if kind < 0.4:
                street = [top, top]
            elif kind < 0.7:
                b = self.bet(top)
                street = [b, b]
            elif kind < 0.85:
                b = self.bet(top)
                street = [top, b, b]
            else:
                b = self.bet(top)
                r = self.bet(b)
                street = [b, r, r]
            amounts += street
            top = amounts[-1]
        amounts = amounts[: self.rng.randint(1, len(amounts))]
        return amounts

    def line_command(self, clean=False):
        word = "add_line" if clean else self.pick("add_line", "add_line", "add_line", "force_line", "remove_line")
        amounts = [str(a) for a in self.random_line()]
        roll = 1.0 if clean else self.rng.random()
        if roll < 0.08:
            amounts[self.rng.randrange(len(amounts))] = self.odd_number()
        elif roll < 0.11:
            amounts = [str(i) for i in range(1, self.pick(257, 300, 2000))]
        elif roll < 0.13:
            amounts = ["0"] * self.rng.randint(5, 12)
        elif roll < 0.16:
            amounts.append(self.pick("1e31", "1e29", "3e38", "1e308", "50", "10"))
        if word == "add_line" and roll >= 0.16:
            self.lines.append(amounts)
        return word + " " + " ".join(amounts)

    def path(self):
        roll = self.rng.random()
        if roll < 0.15:
            return self.pick("r", "r:0", "x", "r:1", "r:0:", "r::0", "r:0::c", "r:0:b", "r:0:bx", "r:0:b1e400",
                             "r:0:bnan", "r:0:f", "r:0:c:c:AhAh", "r:0:c:c:Zz", "r:0" + ":c" * 300,
                             "r:0:c:c:" + self.card() + ":" + self.card(), "r:0:" + self.card(), "",
                             "r:0:b" + "9" * 400)
        tokens = ["r", "0"]
        if not self.lines:
            return ":".join(tokens)
        amounts = self.rng.choice(self.lines)
        top, checked = 0.0, False
        for raw in amounts[: self.rng.randint(0, len(amounts))]:
            try:
                amount = float(raw)
            except ValueError:
                break
            if amount > top:
                tokens.append("b" + raw)
                top, checked = amount, False
            else:
                tokens.append("c")
                if checked or len(tokens) > 3 and tokens[-2].startswith("b"):
                    # the street has ended: a card may come next
                    if self.rng.random() < 0.7:
                        tokens.append(self.card())
                    checked = False
                else:
                    checked = True
        if self.rng.random() < 0.1:
            tokens.append(self.pick("f", "c", "b50", self.card()))
        return ":".join(tokens)

    def player(self):
        if self.rng.random() < 0.9:
            return self.pick("OOP", "IP", "hero", "villain")
        return self.pick("oop", "", "X" * 300)

    def long_token(self):
        return "x" * self.pick(300, 5000, 70000, 200000)

    def random_bytes_line(self):
        raw = bytes(self.rng.choice([b for b in range(1, 256) if b != 10]) for _ in range(self.rng.randint(1, 200)))
        text = raw.decode("latin-1")
        tokens = tokenise(text)
        if tokens and tokens[0] == "exit":
            return "is_ready"
        return text

    # -- commands ------------------------------------------------------------

    def query(self):
        word = self.pick("show_node", "show_children", "show_strategy", "show_strategy_pp", "show_range",
                         "show_probs", "calc_ev", "calc_ev_pp", "calc_ev_line", "calc_eq", "calc_eq_pp",
                         "calc_eq_node", "calc_results", "node_count", "show_effective_stack", "cut_line",
                         "is_tree_present", "get_actual_compression", "show_tree_params")
        if word in ("show_node", "show_children", "show_strategy", "show_strategy_pp", "show_probs", "cut_line"):
            return word + " " + self.path()
        if word in ("show_range",):
            return word + " " + self.player() + (" " + self.path() if self.rng.random() < 0.8 else "")
        if word in ("calc_ev", "calc_ev_pp", "calc_ev_line", "calc_eq_node"):
            return word + " " + self.player() + " " + self.path()
        if word in ("calc_eq", "calc_eq_pp"):
            return word + " " + self.player()
        return word

    def setting(self):
        kind = self.rng.randrange(13)
        number = self.odd_number() if self.rng.random() < 0.3 else None
        if kind == 0:
            return "set_threads " + (number or str(self.pick(1, 2, 3, 0, -5, 8)))
        if kind == 1:
            return "set_accuracy " + (number or self.pick("0", "1", "0.5", "0.01 fraction", "5 chips"))
        if kind == 2:
            return "set_compression " + (number or self.pick("auto", "none", "low", "medium", "high", "max", "fast",
                                                              "3", "99", "-7"))
        if kind == 3:
            return "set_pot 0 0 " + (number or str(self.pick(100, 50, 0, -100, 1000)))
        if kind == 4:
            return "set_simd_level " + (number or str(self.rng.randint(0, 9)))
        if kind == 5:
            return "enable_avx512 " + (number or self.pick("0", "1"))
        if kind == 6:
            return "set_precision " + (number or self.pick("-2", "0", "1", "2", "3"))
        if kind == 7:
            return "set_isomorphism " + self.pick("0", "1", "00") + " " + self.pick("0", "1")
        if kind == 8:
            return "set_recalc_accuracy " + " ".join(number or self.pick("0.1", "0", "1") for _ in range(3))
        if kind == 9:
            return "enable_river_strategy " + (number or self.pick("0", "1"))
        if kind == 10:
            return "set_rake " + (number or "0.05") + " " + self.pick("3", "-1", "nan")
        if kind == 11:
            return "set_scheduler " + (number or self.pick("0", "1", "2", "3"))
        return self.pick("add_info_line " + self.pick("note", "#hidden", '"two words"'), "reset_tree_info",
                         "show_tree_info", "ignore_mem_check " + self.pick("on", "off", "1"), "set_eff_stack x",
                         "show_settings", "show_memory", "get_instruction_set", "solver_time", "show_category_names",
                         "show_categories " + " ".join(self.rng.sample(CARDS, self.pick(3, 4, 5, 2, 6))))

    def solve_commands(self):
        # Only a small count of steps bounds a run: no time limit, or one of
        # 0 seconds or less, runs up to the iteration ceiling, which takes
        # minutes. Such a run is stopped before anything waits for it.
        roll = self.rng.random()
        if roll < 0.55:
            go = "go %d steps" % self.rng.randint(0, 30)
        else:
            go = "go " + self.pick("", "1 seconds", "0 seconds", "2147483647 steps", "100000 seconds",
                                   self.odd_number() + " steps", self.odd_number() + " seconds", "1 minutes",
                                   "5", "1 steps extra", "-3 steps", "-1 seconds")
            self.unbounded_solve = True
        commands = [go.rstrip()]
        for _ in range(self.rng.randint(0, 4)):
            commands.append(self.pick(self.setting(), self.query(), "is_ready", "build_tree", "free_tree",
                                      "load_script " + self.pick("/", "missing.txt"), "take_a_break 0"))
        if self.unbounded_solve or self.rng.random() < 0.3:
            commands.append(self.pick("stop", "stop", "take_a_break 0"))
            self.unbounded_solve = False
        commands.append("wait_for_solver")
        return commands

    def script(self, depth=0):
        """Writes a script file and returns its name."""
        name = "script%d.txt" % len(self.scripts)
        body = []
        self.scripts[name] = body
        for _ in range(self.rng.randint(1, 6)):
            body.append(self.pick(self.setting(), self.query(), "echo in-" + name, self.line_command(),
                                  "is_ready", "# comment", "   ", "LABEL:"))
        loads = self.rng.random()
        if loads < 0.2:
            body.append("load_script " + name)  # loads itself: refused at the depth bound
        elif loads < 0.4 and depth < 2:
            body.append("load_script " + self.script(depth + 1))
        with open(os.path.join(self.folder, name), "w", encoding="latin-1", newline="") as f:
            ending = self.pick("\n", "\r\n")
            text = ending.join(body)
            f.write(text + (ending if self.rng.random() < 0.8 else ""))
        return name

    def script_commands(self):
        roll = self.rng.random()
        if roll < 0.6:
            return ["load_script " + self.script()]
        if roll < 0.7:
            return ["load_script " + self.pick("/", "/tmp", ".", "/dev/null", "missing.txt", "/dev/zero", '""')]
        if roll < 0.8:
            # a script with a line over the bound, then one that runs
            name = "long%d.txt" % len(self.scripts)
            self.scripts[name] = ["echo before", "echo after"]
            with open(os.path.join(self.folder, name), "w") as f:
                f.write("echo before\n" + "y" * (LINE_BOUND + self.rng.randint(1, 5000)) + "\necho after\n")
            return ["load_script " + name]
        if roll < 0.9:
            label = "L%d" % self.rng.randint(0, 3)
            self.labels.append(label)
            existing = self.script()
            return ["skip_if_done " + self.pick(existing, "missing.txt", ".") + " " + label,
                    self.query(), "LABEL: " + label if self.rng.random() < 0.7 else "is_ready"]
        target = self.pick("out.txt", "/dev/full", "/nonexistent/x", ".")
        return [self.pick("stdoutredi ", "stdoutredi_append ") + target, self.query(), "echo redirected", "stdoutback"]

    def odd_command(self):
        roll = self.rng.random()
        if roll < 0.25:
            return self.random_bytes_line()
        if roll < 0.4:
            return "echo " + self.pick(self.long_token(), '"100%d %s %n"', "\xa7x", '"a b"')
        if roll < 0.5:
            count = self.pick("1", "3", "0", "-1", "100000", "99999", "abc")
            text = "t" if count == "99999" else self.pick("a b", "%s%n", self.long_token()[:3000])
            return "repeat " + count + " " + text
        if roll < 0.6:
            return self.pick("sleep " + self.pick("0", "5", "-5", "abc", "99999999999", "1e3", "0x10"),
                             "take_a_break " + self.pick("0", "-1", "x", "99999999999"))
        if roll < 0.7:
            return "echo " + "z" * (LINE_BOUND + self.rng.randint(1, 100000))
        if roll < 0.8:
            return self.pick("", "   ", '"', '""', "#comment", "LABEL:", "LABEL: nothing", "help", "unknown_cmd",
                             "IS_READY", '"is_ready"', "is_ready extra", "set_threads", "set_range",
                             "show_hand_order", "show_cpu_info", "set_threads 4 # four")
        if roll < 0.9:
            word = self.pick("show_node", "set_board", "add_line", "set_range", "go", "cut_line", "calc_ev")
            return word + " " + " ".join(self.long_token()[:self.pick(10, 1000)] for _ in range(self.rng.randint(1, 4)))
        return self.query() + " " + self.pick("extra", self.odd_number())

    def generate(self):
        add = self.commands.extend
        # Set-up: mostly valid, so that builds and solves happen.
        if self.rng.random() < 0.9:
            add([self.new_board(), self.range_command("OOP", True), self.range_command("IP", True),
                 "set_pot 0 0 " + self.pick("100", "100", "50", "0", "-20"), "clear_lines"])
            for _ in range(self.rng.randint(1, 4)):
                add([self.line_command(clean=True)])
            add(["build_tree"])
        for _ in range(self.rng.randint(5, 40)):
            roll = self.rng.random()
            if roll < 0.25:
                add([self.query()])
            elif roll < 0.38:
                add([self.setting()])
            elif roll < 0.5:
                add(self.solve_commands())
            elif roll < 0.58:
                add([self.line_command()])
            elif roll < 0.63:
                add([self.pick(self.new_board(), self.bad_board())])
            elif roll < 0.67:
                add([self.range_command()])
            elif roll < 0.73:
                add([self.pick("build_tree", "build_tree", "free_tree", "clear_lines")])
            elif roll < 0.8:
                add(self.script_commands())
            else:
                add([self.odd_command()])
        # Closing: end any skip and redirection, so the last reply reaches us.
        add(["LABEL: " + label for label in self.labels] + ["stdoutback"])

    def input_bytes(self):
        parts = []
        for n, command in enumerate(self.commands):
            parts.append(command.encode("latin-1"))
            parts.append(b"\n")
            parts.append(("echo @@%s-%d@@\n" % (self.nonce, n)).encode())
        parts.append(b"is_ready\n")
        return b"".join(parts)


# ---------------------------------------------------------------------------
# Running and checking.


def command_word(command):
    tokens = tokenise(command)
    return tokens[0] if tokens else ""


def script_words(session, name, seen=None):
    """Words of every command a script may run, scripts it loads included."""
    seen = seen if seen is not None else set()
    if name in seen or name not in session.scripts:
        return set()
    seen.add(name)
    words = set()
    for command in session.scripts[name]:
        word = command_word(command)
        words.add(word)
        if word == "load_script":
            words |= script_words(session, tokenise(command)[1] if len(tokenise(command)) > 1 else "", seen)
    return words


def check_output(session, stdout_text):
    """Returns a list of problems found in the replies."""
    problems = []
    lines = stdout_text.split("\n")
    if lines and lines[-1] == "":
        lines.pop()
    else:
        problems.append("output does not end with a newline")
    lines = lines[2:]  # banner
    marker = re.compile(r"^@@%s-(\d+)@@$" % session.nonce)
    pending = []  # lines since the last marker
    next_command = 0

    def judge(upto):
        nonlocal next_command
        words = set()
        for n in range(next_command, upto):
            word = command_word(session.commands[n])
            words.add(word)
            if word == "load_script":
                tokens = tokenise(session.commands[n])
                if len(tokens) > 1:
                    words |= script_words(session, tokens[1])
        for line in pending:
            if not line_allowed(line, words, session.verbose):
                problems.append("reply line %r to %s" % (line[:200], sorted(words)))
        pending.clear()
        next_command = upto

    for line in lines:
        m = marker.match(line)
        if m:
            judge(int(m.group(1)) + 1)
        else:
            pending.append(line)
    # What follows the last marker: the rest of the commands and is_ready.
    if pending and pending[-1].startswith("ERROR: banned process running: "):
        # Another program on this machine bars every command (the gate's
        # own test runs one): the session says nothing about the program.
        return ["barred"]
    if not pending or pending[-1] != "is_ready ok!":
        problems.append("no reply to the closing is_ready")
    else:
        pending.pop()
    judge(len(session.commands))
    return problems


def run_session(binary, seed, hand_order, keep):
    folder = tempfile.mkdtemp(prefix="tavrek-fuzz-%d-" % seed)
    try:
        session = Session(seed, hand_order, folder)
        session.generate()
        data = session.input_bytes()
        args = [binary] + (["-v"] if session.verbose else [])
        started = time.time()
        problems = []
        with open(os.path.join(folder, "input.txt"), "wb") as f:
            f.write(data)
        proc = subprocess.Popen(args, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                cwd=folder)
        try:
            out, err = proc.communicate(data, timeout=SESSION_LIMIT_SECONDS)
        except subprocess.TimeoutExpired:
            proc.kill()
            out, err = proc.communicate()
            problems.append("no reply within %d seconds" % SESSION_LIMIT_SECONDS)
        stdout_text = out.decode("latin-1")
        stderr_text = err.decode("latin-1")
        if proc.returncode != 0 and not problems:
            problems.append("exit status %d" % proc.returncode)
        if stderr_text:
            problems.append("standard error: " + stderr_text[:2000])
        if not problems or problems[0].startswith("exit") or problems[0].startswith("standard"):
            problems += check_output(session, stdout_text)
        elapsed = time.time() - started
        if problems and keep:
            target = os.path.join(keep, "seed-%d" % seed)
            shutil.rmtree(target, ignore_errors=True)
            shutil.copytree(folder, target)
            with open(os.path.join(target, "stdout.txt"), "w", encoding="latin-1") as f:
                f.write(stdout_text)
            with open(os.path.join(target, "stderr.txt"), "w", encoding="latin-1") as f:
                f.write(stderr_text)
        if problems == ["barred"]:
            return seed, None, elapsed, len(session.commands), set()
        reached = {what for what, text in (("built", "build_tree ok!"), ("solved", "SOLVER: started"))
                   if text in stdout_text}
        return seed, problems, elapsed, len(session.commands), reached
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def hand_order_of(binary):
    out = subprocess.run([binary], input=b"show_hand_order\n", capture_output=True, timeout=120).stdout
    order = out.decode("latin-1").split("\n")[2].split(" ")
    if len(order) != 1326:
        sys.exit("show_hand_order gave %d combos" % len(order))
    return order


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--binary", required=True)
    parser.add_argument("--seconds", type=float, default=None, help="run sessions for this long")
    parser.add_argument("--sessions", type=int, default=None, help="run this many sessions")
    parser.add_argument("--seed", type=int, default=None, help="seed of the first session (default: the time)")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--keep", default=None, help="folder for failed sessions (default: fuzz-failures "
                        "beside the binary)")
    args = parser.parse_args()
    if args.seconds is None and args.sessions is None:
        args.seconds = 60
    first = args.seed if args.seed is not None else int(time.time())
    binary = os.path.abspath(args.binary)
    keep = os.path.abspath(args.keep or os.path.join(os.path.dirname(binary), "fuzz-failures"))
    hand_order = hand_order_of(binary)
    deadline = time.time() + args.seconds if args.seconds is not None else None
    print("protocol fuzz: %s, first seed %d" % (binary, first), flush=True)

    failures, done, commands, next_seed = [], 0, 0, first
    reached_counts = {"built": 0, "solved": 0, "barred": 0}
    with concurrent.futures.ThreadPoolExecutor(max_workers=args.jobs) as pool:
        running = set()

        def more():
            if args.sessions is not None and next_seed - first >= args.sessions:
                return False
            return deadline is None or time.time() < deadline

        while True:
            while len(running) < args.jobs and more():
                running.add(pool.submit(run_session, binary, next_seed, hand_order, keep))
                next_seed += 1
            if not running:
                break
            finished, running = concurrent.futures.wait(running, return_when=concurrent.futures.FIRST_COMPLETED)
            for future in finished:
                seed, problems, elapsed, count, reached = future.result()
                done += 1
                commands += count
                for what in reached:
                    reached_counts[what] += 1
                if problems is None:
                    reached_counts["barred"] += 1
                elif problems:
                    failures.append(seed)
                    print("FAIL seed %d (%.1f s):" % (seed, elapsed), flush=True)
                    for problem in problems[:10]:
                        print("   " + problem, flush=True)
    print("protocol fuzz: %d sessions (seeds %d..%d), %d commands; %d built a tree, %d solved, %d barred "
          "by a banned process; %d failed%s" %
          (done, first, next_seed - 1, commands, reached_counts["built"], reached_counts["solved"],
           reached_counts["barred"], len(failures),
           "" if not failures else ": seeds " + " ".join(map(str, sorted(failures))) + ", kept in " + keep),
          flush=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
