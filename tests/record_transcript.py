#!/usr/bin/env python3
"""Drafts a protocol transcript from a list of commands.

Runs the program once, with a marker echo after every command, so that each
command's reply can be placed under it. The draft is what the program says
today: read every line of it before committing it as the expected output.

usage: record_transcript.py TAVREK COMMANDS_FILE [WORKDIR] > draft.transcript
"""
import subprocess
import sys

MARKER = "@@reply-boundary@@"


def main():
    binary, commands_file = sys.argv[1], sys.argv[2]
    workdir = sys.argv[3] if len(sys.argv) > 3 else "."
    commands = [line.rstrip("\n") for line in open(commands_file, encoding="latin-1")]
    stdin = "".join(f"{command}\necho {MARKER}\n" for command in commands)
    output = subprocess.run([binary], input=stdin.encode("latin-1"), capture_output=True, cwd=workdir).stdout
    replies = output.decode("latin-1").split("\n", 2)[2].split(MARKER + "\n")
    for command, reply in zip(commands, replies):
        sys.stdout.write(f"> {command}\n{reply}")


if __name__ == "__main__":
    main()
