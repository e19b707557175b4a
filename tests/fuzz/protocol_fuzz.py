#!/usr/bin/python3
"""Protocol fuzzer: random valid and malformed sessions against the program.

Each session, made from one seed, sets up and builds a small game, then mixes
queries on good and bad paths, solves with go/stop, settings changed during a
solve, odd numbers, long tokens and lines, random bytes, scripts that load
scripts, skips and redirections. An `echo` marker follows every command so
that each reply can be told apart; `is_ready` closes the input. A session
fails when the program dies, writes to standard error (a sanitizer report),
does not answer the closing `is_ready` in time, or replies with a line in none
of the forms its commands may answer in.

    protocol_fuzz.py --binary build-asan/tavrek [--seconds 60 | --sessions N]
                     [--seed S] [--jobs 2] [--keep DIR]

Session k runs with seed S + k. A failed session is kept in DIR/seed-<seed>/
(DIR defaults to fuzz-failures beside the binary): input.txt, the scripts it
names, stdout.txt and stderr.txt. Replay it with the binary in that folder and
input.txt on standard input, or with --seed <seed> --sessions 1.
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
CARDS = [rank + suit for suit in "cdhs" for rank in RANKS]
LINE_BOUND = 1 << 20
SESSION_LIMIT_SECONDS = 120


def tokenise(line):
    """As the program cuts a line: blanks separate, a quote opens a span that
    the next quote closes, and a closing quote ends a token."""
    return [t.replace('"', "") for t in re.findall(r'[^ "]*(?:"[^"]*"?)?', line) if t.strip('"')]


# Reply forms.

NUMBER = r"-?(?:\d+\.?\d*|\.\d+)(?:e[-+]?\d+)?"
COMBO = r"[2-9TJQKA][cdhs][2-9TJQKA][cdhs]"
SOLVER_LINE = re.compile(r"^(SOLVER: started|SOLVER: stopped \((requested|required accuracy reached|"
                         r"required number of steps done|timeout reached)\)|SOLVER:|END|"
                         r"(running time|EV OOP|EV IP|OOP's MES|IP's MES|Exploitable for): " + NUMBER + ")$")


def full(pattern):
    compiled = re.compile("^(?:" + pattern + ")$")
    return lambda line: compiled.match(line) is not None


is_number = full(NUMBER)


def numbers(line, count=None, nan=False):
    values = line.split(" ")
    return ((count is None or len(values) == count)
            and all(is_number(v) or (nan and v in ("nan", "-nan")) for v in values))


node_line = full(r"child \d+:|ROOT|SPLIT_NODE|END_NODE|OOP_DEC|IP_DEC|r(:.*)?|[2-9TJQKA][cdhs]( [2-9TJQKA][cdhs])*|"
                 r"\d+ children|flags:( [A-Z_ ]*)?|" + NUMBER + " " + NUMBER + " " + NUMBER)
pp_pairs = full(COMBO + r": (-?nan|" + NUMBER + r"); (-?nan|" + NUMBER + r")")
vector = lambda l: numbers(l, 1326)
vector_or_nan = lambda l: numbers(l, 1326, nan=True)
any_line = lambda l: True  # client text comes back as it was sent

DATA_FORMS = {
    "solver_time": full(r"\d+\.\d{6}"),
    "show_hand_order": full(COMBO + "( " + COMBO + "){1325}"),
    "show_tree_params": lambda l: (full(r"board: ([2-9TJQKA][cdhs]( [2-9TJQKA][cdhs])*)?|bet_sizes: |donk_bet: FALSE")(l)
                                   or (l.startswith("pot: ") and numbers(l[5:]))),
    "is_tree_present": full("true|false"),
    "show_strategy_pp": full(COMBO + r": (  " + NUMBER + r")*"),
    "show_probs": full("OOP {0} IP {0} (\\S* {0}( \\S* {0})*)?".format(NUMBER)),
    "calc_eq_node": lambda l: vector_or_nan(l) or is_number(l),
    "show_memory": full(r"(Total Physical Memory|Available Phys Memory): -?\d+ MB"),
    "node_count": full(r"(H_DEC|V_DEC|SPLIT|END|ROOT|TOTAL): \d+|(FLOP|TURN|RIVER) +\d+"),
    "show_effective_stack": full(r"-?\d+"),
    "show_category_names": full(r"[a-z0-9_ ]+"),
    "show_categories": lambda l: numbers(l.rstrip(" ")),
    "help": full(r"[a-z0-9_]+"),
}
for words, form in (("show_node show_children", node_line), ("show_strategy show_range calc_ev_line", vector),
                    ("calc_ev calc_eq", vector_or_nan), ("calc_ev_pp calc_eq_pp", pp_pairs),
                    # a range that is not suit-symmetric, on a tree that skips the range test
                    ("build_tree cut_line", lambda l: l.startswith("isomorph error: ")),
                    ("get_actual_compression ai6_get_actual_compression", full(r"compression -?\d+")),
                    ("get_instruction_set ai6_get_instruction_set", full(r"[A-Za-z0-9-]+")),
                    ("echo repeat show_tree_info show_cpu_info", any_line)):
    DATA_FORMS.update(dict.fromkeys(words.split(), form))


def line_allowed(line, words, verbose):
    """True when `line` is a form that one of the commands `words` may reply."""
    if line.startswith("ERROR: ") or line == "Invalid value" or SOLVER_LINE.match(line):
        return True
    if verbose and line.startswith("[") and line.endswith("]"):
        return True
    return any(line == word + " ok!" or DATA_FORMS.get(word, lambda l: False)(line) for word in words)


# Session generation.


class Session:
    def __init__(self, seed, hand_order, folder):
        self.rng = random.Random(seed)
        self.hand_order = hand_order
        self.folder = folder
        self.nonce = "%08x" % self.rng.getrandbits(32)
        self.commands = []
        self.board = []
        self.lines = []
        self.labels = []
        self.scripts = {}  # name -> list of commands
        self.verbose = self.rng.random() < 0.15

    def pick(self, *choices):
        return self.rng.choice(choices)

    def odd_number(self):
        return self.pick("nan", "inf", "-inf", "1e308", "-1e308", "1e39", "3e38", "-0", "0x10", "", "abc", "-1",
                         "2147483647", "-2147483648", "99999999999", "1e-320", "4.9e-324", "1.5", " 7 ", "1%d",
                         "%s%s%n", "12abc", "+3", "0.0000001", "1e5", "00", "-")

    def new_board(self):
        self.board = self.rng.sample(CARDS, self.pick(3, 4, 4, 5, 5, 5))
        return "set_board " + " ".join(self.board)

    def bad_board(self):
        card = self.rng.choice(CARDS)
        return "set_board " + self.pick(" ".join([card] * 3), " ".join(self.rng.sample(CARDS, 3) + [card] * 2),
                                        "Zz Ah Kd", "".join(self.rng.sample(CARDS, 3)) + " Qc",
                                        " ".join(self.rng.sample(CARDS, self.pick(1, 2, 6, 7))),
                                        "A" * self.rng.randint(200, 300) + " Kd Qc")

    def range_command(self, player=None, clean=False):
        player = player or self.pick("OOP", "IP", "hero", "villain")
        weights = ["0"] * 1326
        live = [i for i, combo in enumerate(self.hand_order) if combo[:2] not in self.board and combo[2:] not in self.board]
        chosen = self.rng.sample(live, self.rng.randint(1, 12))
        weight = lambda: self.pick("1", "1", "0.5", "0.25", "%.3f" % self.rng.random(), "2")
        if self.rng.random() < 0.85:
            # Every suit variant of a hand weighs the same, as a tree with isomorphism demands.
            def hand_class(combo):
                ranks = "".join(sorted((combo[0], combo[2]), key=RANKS.index))
                return ranks + ("p" if combo[0] == combo[2] else "s" if combo[1] == combo[3] else "o")
            class_weight = {hand_class(self.hand_order[i]): weight() for i in chosen}
            for i, combo in enumerate(self.hand_order):
                weights[i] = class_weight.get(hand_class(combo), "0")
        else:
            for i in chosen:
                weights[i] = weight() if self.rng.random() < 0.85 else "1e-6"
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

    def line_command(self, clean=False):
        """A betting line of cumulative amounts: checks, bets, raises per street."""
        word = "add_line" if clean else self.pick("add_line", "add_line", "add_line", "force_line", "remove_line")
        amounts, top = [], 0
        for _ in range(6 - len(self.board) if self.board else self.pick(1, 2, 3)):
            bet = top + self.pick(25, 50, 50, 100, 200)
            raised = bet + self.pick(25, 50, 50, 100, 200)
            amounts += self.pick([top, top], [top, top], [bet, bet], [top, bet, bet], [bet, raised, raised])
            top = amounts[-1]
        amounts = [str(a) for a in amounts[: self.rng.randint(1, len(amounts))]]
        roll = 1.0 if clean else self.rng.random()
        if roll < 0.08:
            amounts[self.rng.randrange(len(amounts))] = self.odd_number()
        elif roll < 0.11:
            amounts = [str(i) for i in range(1, self.pick(257, 300, 2000))]
        elif roll < 0.13:
            amounts = ["0"] * self.rng.randint(5, 12)
        elif roll < 0.16:
            amounts.append(self.pick("1e31", "1e29", "3e38", "1e308", "50", "10"))
        elif word == "add_line":
            self.lines.append(amounts)
        return word + " " + " ".join(amounts)

    def path(self):
        if self.rng.random() < 0.15:
            return self.pick("r", "r:0", "x", "r:1", "r:0:", "r::0", "r:0::c", "r:0:b", "r:0:bx", "r:0:b1e400",
                             "r:0:bnan", "r:0:f", "r:0:c:c:AhAh", "r:0:c:c:Zz", "r:0" + ":c" * 300, "",
                             "r:0:c:c:%s:%s" % (self.rng.choice(CARDS), self.rng.choice(CARDS)), "r:0:b" + "9" * 400)
        tokens = ["r", "0"]
        amounts = self.rng.choice(self.lines) if self.lines else []
        top, checked = 0.0, False
        for raw in amounts[: self.rng.randint(0, len(amounts))]:
            amount = float(raw)
            street_ends = amount <= top and (checked or tokens[-1].startswith("b"))  # a second check, or a call
            tokens.append("b" + raw if amount > top else "c")
            checked, top = amount <= top and not street_ends, max(top, amount)
            if street_ends and self.rng.random() < 0.7:  # a card may come next
                tokens.append(self.rng.choice(CARDS))
        if self.rng.random() < 0.1:
            tokens.append(self.pick("f", "c", "b50", self.rng.choice(CARDS)))
        return ":".join(tokens)

    def player(self):
        return self.pick("OOP", "IP", "hero", "villain") if self.rng.random() < 0.9 else self.pick("oop", "", "X" * 300)

    def long_token(self):
        return "x" * self.pick(300, 5000, 70000, 200000)

    QUERIES = {"show_node": "path", "show_children": "path", "show_strategy": "path", "show_strategy_pp": "path",
               "show_probs": "path", "cut_line": "path", "show_range": "player path?", "calc_ev": "player path",
               "calc_ev_pp": "player path", "calc_ev_line": "player path", "calc_eq_node": "player path",
               "calc_eq": "player", "calc_eq_pp": "player", "calc_results": "", "node_count": "",
               "show_effective_stack": "", "is_tree_present": "", "get_actual_compression": "", "show_tree_params": ""}

    def query(self):
        word = self.rng.choice(sorted(self.QUERIES))
        parts = [word]
        for kind in self.QUERIES[word].split():
            if kind != "path?" or self.rng.random() < 0.8:
                parts.append(self.player() if kind == "player" else self.path())
        return " ".join(parts)

    def setting(self):
        word, choices = self.pick(
            ("set_threads", "1 2 3 0 -5 8"), ("set_accuracy", "0|1|0.5|0.01 fraction|5 chips"),
            ("set_compression", "auto none low medium high max fast 3 99 -7"), ("set_pot 0 0", "100 50 0 -100 1000"),
            ("set_simd_level", "0 1 2 3 4 5 6 7 8 9"), ("enable_avx512", "0 1"), ("set_precision", "-2 0 1 2 3"),
            ("set_isomorphism", "0|1|00|0 0|1 1|0 1"), ("set_recalc_accuracy", "0.1 0.1 0.1|0 0 0|1 1 1"),
            ("enable_river_strategy", "0 1"), ("set_rake", "0.05 3|0.05 -1|0.05 nan"), ("set_scheduler", "0 1 2 3"),
            ("add_info_line", 'note|#hidden|"two words"'), ("ignore_mem_check", "on off 1"), ("set_eff_stack", "x"))
        argument = self.rng.choice(choices.split("|" if "|" in choices else " "))
        if self.rng.random() < 0.3:
            argument = self.odd_number()
        if self.rng.random() < 0.2:
            return self.pick("reset_tree_info", "show_tree_info", "show_settings", "show_memory", "solver_time",
                             "get_instruction_set", "show_category_names",
                             "show_categories " + " ".join(self.rng.sample(CARDS, self.pick(3, 4, 5, 2, 6))))
        return word + " " + argument

    def solve_commands(self):
        # Only a count of steps bounds a run; any other is stopped before anything waits for it.
        unbounded = self.rng.random() >= 0.55
        go = ("go " + self.pick("", "1 seconds", "0 seconds", "2147483647 steps", "100000 seconds",
                                self.odd_number() + " steps", self.odd_number() + " seconds", "1 minutes", "5",
                                "1 steps extra", "-3 steps", "-1 seconds")
              if unbounded else "go %d steps" % self.rng.randint(0, 30))
        commands = [go.rstrip()]
        for _ in range(self.rng.randint(0, 4)):
            commands.append(self.pick(self.setting(), self.query(), "is_ready", "build_tree", "free_tree",
                                      "load_script " + self.pick("/", "missing.txt"), "take_a_break 0"))
        if unbounded or self.rng.random() < 0.3:
            commands.append(self.pick("stop", "stop", "take_a_break 0"))
        return commands + ["wait_for_solver"]

    def script(self, depth=0):
        """Writes a script file and returns its name."""
        name = "script%d.txt" % len(self.scripts)
        body = self.scripts[name] = []
        for _ in range(self.rng.randint(1, 6)):
            body.append(self.pick(self.setting(), self.query(), "echo in-" + name, self.line_command(),
                                  "is_ready", "# comment", "   ", "LABEL:"))
        loads = self.rng.random()
        if loads < 0.2:
            body.append("load_script " + name)  # loads itself: refused at the depth bound
        elif loads < 0.4 and depth < 2:
            body.append("load_script " + self.script(depth + 1))
        ending = self.pick("\n", "\r\n")
        with open(os.path.join(self.folder, name), "w", encoding="latin-1", newline="") as f:
            f.write(ending.join(body) + (ending if self.rng.random() < 0.8 else ""))
        return name

    def script_commands(self):
        roll = self.rng.random()
        if roll < 0.6:
            return ["load_script " + self.script()]
        if roll < 0.75:
            return ["load_script " + self.pick("/", "/tmp", ".", "/dev/null", "missing.txt", "/dev/zero", '""')]
        if roll < 0.9:
            label = "L%d" % self.rng.randint(0, 3)
            self.labels.append(label)
            return ["skip_if_done " + self.pick(self.script(), "missing.txt", ".") + " " + label,
                    self.query(), "LABEL: " + label if self.rng.random() < 0.7 else "is_ready"]
        target = self.pick("out.txt", "/dev/full", "/nonexistent/x", ".")
        return [self.pick("stdoutredi ", "stdoutredi_append ") + target, self.query(), "echo redirected", "stdoutback"]

    def odd_command(self):
        raw = bytes(self.rng.choice(range(1, 256)) for _ in range(self.rng.randint(1, 200)))
        random_text = raw.replace(b"\n", b" ").decode("latin-1")
        count = self.pick("1", "3", "0", "-1", "100000", "99999", "abc")
        word = self.pick("show_node", "set_board", "add_line", "set_range", "go", "cut_line", "calc_ev")
        return self.pick(
            "is_ready" if tokenise(random_text)[:1] == ["exit"] else random_text,
            "echo " + self.pick(self.long_token(), '"100%d %s %n"', "\xa7x", '"a b"'),
            "repeat %s %s" % (count, "t" if count == "99999" else self.pick("a b", "%s%n", "x" * 3000)),
            self.pick("sleep ", "take_a_break ") + self.pick("0", "-1", "abc", "99999999999", "1e3", "0x10"),
            "echo " + "z" * (LINE_BOUND + self.rng.randint(1, 100000)),
            self.pick("", "   ", '"', '""', "#comment", "LABEL:", "LABEL: nothing", "help", "unknown_cmd", "IS_READY",
                      '"is_ready"', "is_ready extra", "set_threads", "set_range", "show_hand_order", "show_cpu_info",
                      "set_threads 4 # four"),
            word + " " + " ".join(self.long_token()[:self.pick(10, 1000)] for _ in range(self.rng.randint(1, 4))),
            self.query() + " " + self.pick("extra", self.odd_number()))

    def generate(self):
        add = self.commands.extend
        if self.rng.random() < 0.9:  # set-up: mostly valid, so that builds and solves happen
            add([self.new_board(), self.range_command("OOP", True), self.range_command("IP", True),
                 "set_pot 0 0 " + self.pick("100", "100", "50", "0", "-20"), "clear_lines"])
            add([self.line_command(clean=True) for _ in range(self.rng.randint(1, 4))] + ["build_tree"])
        for _ in range(self.rng.randint(5, 40)):
            roll = self.rng.random()
            choices = [(0.25, lambda: [self.query()]), (0.38, lambda: [self.setting()]), (0.5, self.solve_commands),
                       (0.58, lambda: [self.line_command()]),
                       (0.63, lambda: [self.pick(self.new_board(), self.bad_board())]),
                       (0.67, lambda: [self.range_command()]),
                       (0.73, lambda: [self.pick("build_tree", "build_tree", "free_tree", "clear_lines")]),
                       (0.8, self.script_commands), (1.0, lambda: [self.odd_command()])]
            add(next(make for bound, make in choices if roll < bound)())
        # Closing: end any skip and redirection, so the last reply reaches us.
        add(["LABEL: " + label for label in self.labels] + ["stdoutback"])

    def input_bytes(self):
        parts = [command.encode("latin-1") + ("\necho @@%s-%d@@\n" % (self.nonce, n)).encode()
                 for n, command in enumerate(self.commands)]
        return b"".join(parts) + b"is_ready\n"


# Running and checking.


def command_words(session, command, seen):
    """The word of a command, and of every command a script it loads may run."""
    tokens = tokenise(command)
    words = {tokens[0] if tokens else ""}
    if tokens[:1] == ["load_script"] and len(tokens) > 1 and tokens[1] in session.scripts and tokens[1] not in seen:
        seen.add(tokens[1])
        for inner in session.scripts[tokens[1]]:
            words |= command_words(session, inner, seen)
    return words


def check_output(session, stdout_text):
    """Returns a list of problems found in the replies."""
    if not stdout_text.endswith("\n"):
        return ["output does not end with a newline"]
    lines = stdout_text.split("\n")[2:-1]  # past the banner
    if lines and lines[-1].startswith("ERROR: banned process running: "):
        # Another program on this machine bars every command (the gate's own
        # test runs one): the session says nothing about the program.
        return ["barred"]
    if not lines or lines[-1] != "is_ready ok!":
        return ["no reply to the closing is_ready"]
    marker = re.compile(r"^@@%s-(\d+)@@$" % session.nonce)
    problems, pending, next_command = [], [], 0
    for line in lines[:-1] + ["@@%s-%d@@" % (session.nonce, len(session.commands) - 1)]:
        m = marker.match(line)
        if not m:
            pending.append(line)
            continue
        upto = int(m.group(1)) + 1
        words = set()
        for command in session.commands[next_command:upto]:
            words |= command_words(session, command, set())
        problems += ["reply line %r to %s" % (l[:200], sorted(words))
                     for l in pending if not line_allowed(l, words, session.verbose)]
        pending, next_command = [], upto
    return problems


def run_session(binary, seed, hand_order, keep):
    folder = tempfile.mkdtemp(prefix="tavrek-fuzz-%d-" % seed)
    try:
        session = Session(seed, hand_order, folder)
        session.generate()
        data = session.input_bytes()
        with open(os.path.join(folder, "input.txt"), "wb") as f:
            f.write(data)
        started = time.time()
        try:
            proc = subprocess.run([binary] + (["-v"] if session.verbose else []), input=data, capture_output=True,
                                  cwd=folder, timeout=SESSION_LIMIT_SECONDS)
            out, err, problems = proc.stdout, proc.stderr, ["exit status %d" % proc.returncode] if proc.returncode else []
        except subprocess.TimeoutExpired as timeout:  # the program is killed
            out, err = timeout.stdout or b"", timeout.stderr or b""
            problems = ["no reply within %d seconds" % SESSION_LIMIT_SECONDS]
        stdout_text, stderr_text = out.decode("latin-1"), err.decode("latin-1")
        if stderr_text:
            problems.append("standard error: " + stderr_text[:2000])
        if not problems or not problems[0].startswith("no reply"):
            problems += check_output(session, stdout_text)
        if problems and problems != ["barred"] and keep:
            target = os.path.join(keep, "seed-%d" % seed)
            shutil.rmtree(target, ignore_errors=True)
            shutil.copytree(folder, target)
            for name, text in (("stdout.txt", stdout_text), ("stderr.txt", stderr_text)):
                with open(os.path.join(target, name), "w", encoding="latin-1") as f:
                    f.write(text)
        reached = {what for what, text in (("built", "build_tree ok!"), ("solved", "SOLVER: started"))
                   if text in stdout_text}
        return seed, problems, time.time() - started, len(session.commands), reached
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--binary", required=True)
    parser.add_argument("--seconds", type=float, default=None, help="run sessions for this long (default 60)")
    parser.add_argument("--sessions", type=int, default=None, help="run this many sessions")
    parser.add_argument("--seed", type=int, default=int(time.time()), help="seed of the first session")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--keep", default=None, help="folder for failed sessions")
    args = parser.parse_args()
    binary = os.path.abspath(args.binary)
    keep = os.path.abspath(args.keep or os.path.join(os.path.dirname(binary), "fuzz-failures"))
    order = subprocess.run([binary], input=b"show_hand_order\n", capture_output=True, timeout=120).stdout
    hand_order = order.decode("latin-1").split("\n")[2].split(" ")
    if len(hand_order) != 1326:
        sys.exit("show_hand_order gave %d combos" % len(hand_order))
    seconds = 60 if args.seconds is None and args.sessions is None else args.seconds
    deadline = time.time() + seconds if seconds is not None else None
    last_seed = args.seed + args.sessions if args.sessions is not None else None
    print("protocol fuzz: %s, first seed %d" % (binary, args.seed), flush=True)

    failures, counts, seed = [], dict.fromkeys(("sessions", "commands", "built", "solved", "barred"), 0), args.seed
    with concurrent.futures.ThreadPoolExecutor(max_workers=args.jobs) as pool:
        running = set()
        while True:
            while len(running) < args.jobs and seed != last_seed and (deadline is None or time.time() < deadline):
                running.add(pool.submit(run_session, binary, seed, hand_order, keep))
                seed += 1
            if not running:
                break
            finished, running = concurrent.futures.wait(running, return_when=concurrent.futures.FIRST_COMPLETED)
            for session_seed, problems, elapsed, commands, reached in (f.result() for f in finished):
                counts["sessions"] += 1
                counts["commands"] += commands
                for what in reached | ({"barred"} if problems == ["barred"] else set()):
                    counts[what] += 1
                if problems and problems != ["barred"]:
                    failures.append(session_seed)
                    print("FAIL seed %d (%.1f s):\n   %s" % (session_seed, elapsed, "\n   ".join(problems[:10])), flush=True)
    print("protocol fuzz: %d sessions (seeds %d..%d), %d commands; %d built a tree, %d solved, %d barred "
          "by a banned process; %d failed%s" %
          (counts["sessions"], args.seed, seed - 1, counts["commands"], counts["built"], counts["solved"],
           counts["barred"], len(failures),
           ": seeds %s, kept in %s" % (" ".join(map(str, sorted(failures))), keep) if failures else ""), flush=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
