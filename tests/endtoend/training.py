#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Plays the lessons of docs/training.md as a reader would: types what follows "$ " into a shell and
compares what is printed with the lines below it, to the end of the block. "..." stands for any
lines; ports, process numbers and times are not compared. in_namespace.sh training.py BIN PAGE"""
import os, re, select, signal, subprocess, sys, time

LIMIT_SECONDS = 30
LEFT_OUT = [(r"^\[\d+\] \d+\n", ""), (r"\b(\d{5}|\d{4}-\d\d-\d\d [\d:.]+|\d\d(/\d\d){2} \d\d:\d\d)\b", "#"),
            (r"\d\.\d s$", "# s"), (r"[ \t]+$", "")]


def lessons(page):
    """Title and steps (command, expected text) of each lesson."""
    found, block = [], False
    for line in page.splitlines():
        block = line.startswith("    ") or (block and not line)
        if line.startswith("## "):
            found.append((line, []))
        elif line.startswith("    $ "):
            found[-1][1].append([line[6:], ""])
        elif block and found and found[-1][1]:
            found[-1][1][-1][1] += line[4:] + "\n"
    return found


class Shell:
    def __init__(self, programs):
        self.bash = subprocess.Popen(["bash"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, start_new_session=True,
            env={**os.environ, "PATH": programs + ":" + os.environ["PATH"]})

    def play(self, command):
        self.bash.stdin.write(f"{command}\nprintf '\\001'\n".encode())
        self.bash.stdin.flush()
        printed, end = b"", time.monotonic() + LIMIT_SECONDS
        while b"\1" not in printed or (command.endswith("&") and b"ready, " not in printed):
            if not select.select([self.bash.stdout], [], [], max(0, end - time.monotonic()))[0]:
                return printed.decode() + f"(no end within {LIMIT_SECONDS} s)\n"
            more = os.read(self.bash.stdout.fileno(), 65536)
            if not more:
                break
            printed += more
        return printed.decode().replace("\1", "")

    def end(self):
        os.killpg(self.bash.pid, signal.SIGKILL)
        self.bash.wait()


def plain(text):
    for pattern, instead in LEFT_OUT:
        text = re.sub(pattern, instead, text, flags=re.M)
    return text.strip("\n") + "\n"


def same(printed, expected):
    pattern = re.escape(plain(expected)).replace("\\\n", "\n")
    return re.fullmatch(pattern.replace("\\.\\.\\.\n", "(?:.*\n)*?"), plain(printed)) is not None



def main(programs, path):
    with open(path, encoding="utf-8") as file:
        page = lessons(file.read())
    wrong = 0 if len(page) > 10 and all(steps for _, steps in page) else 1
    shell = Shell(os.path.abspath(programs))
    try:
        for title, (command, expected) in ((title, step) for title, steps in page for step in steps):
            printed = shell.play(command)
            if not same(printed, expected):
                wrong += 1
                print(f"{title}\n$ {command}\n--- the page:\n{expected}--- printed:\n{printed}")
    finally:
        shell.end()
    print(f"{len(page)} lessons, {wrong} wrong")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
