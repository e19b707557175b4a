"""An engine for tests that stands between the client and the real one and misbehaves on request:

    proxy_engine.py REAL_ENGINE [--crash-on BOARD] [--no-dump-tree] [--log FILE] -- ENGINE ARGS

--crash-on: at `go` on that board it prints a last line and ends with status 3, as an engine that
runs out of memory would. --no-dump-tree: `dump_tree` gets the reply of an engine without it.
--log: one line per start and per crash, for counting attempts."""

import argparse
import subprocess
import sys


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("real")
    parser.add_argument("--crash-on")
    parser.add_argument("--no-dump-tree", action="store_true")
    parser.add_argument("--log")
    args, rest = parser.parse_known_args()
    rest = [a for a in rest if a != "--"]

    def log(text):
        if args.log:
            with open(args.log, "a") as f:
                f.write(text + "\n")

    engine = subprocess.Popen([args.real, *rest], stdin=subprocess.PIPE, text=True, bufsize=1)
    log("start")
    board = None
    for line in sys.stdin:
        words = line.split()
        if words[:1] == ["set_board"]:
            board = " ".join(words[1:])
        if words[:1] == ["go"] and board == args.crash_on:
            log(f"crash {board}")
            print("fail (out of cheese)", flush=True)
            engine.kill()
            sys.exit(3)
        if words[:1] == ["dump_tree"] and args.no_dump_tree:
            print("ERROR: Command dump_tree not recognized", flush=True)
            continue
        engine.stdin.write(line)
        engine.stdin.flush()
    engine.stdin.close()
    sys.exit(engine.wait())


if __name__ == "__main__":
    main()
