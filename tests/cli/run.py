#!/usr/bin/env python3
"""Runs the invocations of a case file against vessa-storage and checks status and output shape.

A case starts with "$ ARGS": the program's arguments, split as a shell would, optionally preceded by
VAR=VALUE settings of its environment and followed by ">FILE" (standard output into FILE); "@NAME"
stands for the snapshot root of scenario NAME, or of the snapshot NAME beside the case file. Then, all
optional:
  ? STATUS     the exit status (default 0)
  > LINE       standard output is exactly these lines, in order
  ~ REGEX      some line of standard output matches (re.search)
  !~ REGEX     no line of standard output matches
  ! REGEX      standard error matches (re.search over the whole text, ^ and $ at each line)
Run: run.py PROGRAM CASES SCENARIOS_DIR"""
import os
import re
import shlex
import subprocess
import sys
from pathlib import Path


def cases(text):
    case = None
    for number, line in enumerate(text.splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        if line == "$" or line.startswith("$ "):
            case = {"line": number, "args": line[2:], "status": 0, "out": None, "match": [], "nomatch": [],
                    "err": []}
            yield case
        elif line.startswith("? "):
            case["status"] = int(line[2:])
        elif line.startswith(">"):
            case["out"] = (case["out"] or []) + [line[2:]]
        elif line.startswith("!~ "):
            case["nomatch"].append(line[3:])
        elif line.startswith("~ "):
            case["match"].append(line[2:])
        elif line.startswith("! "):
            case["err"].append(line[2:])
        else:
            raise SystemExit("line %d: not part of a case: %s" % (number, line))


def run(program, case, roots):
    words = shlex.split(case["args"])
    env = {k: v for k, v in os.environ.items() if k not in ("LC_ALL", "LC_CTYPE", "LANG", "TERM")}
    while words and re.match(r"^[A-Z_]+=", words[0]):
        key, value = words.pop(0).split("=", 1)
        env[key] = value
    stdout = subprocess.PIPE
    if words and words[-1].startswith(">"):
        stdout = open(words.pop()[1:], "w")
    words = [str(next((d / w[1:] / "root" for d in roots if (d / w[1:]).is_dir()), w)) if w.startswith("@")
             else w for w in words]
    done = subprocess.run([program] + words, stdout=stdout, stderr=subprocess.PIPE, env=env, timeout=60)
    out = done.stdout.decode() if done.stdout is not None else ""
    err = done.stderr.decode()
    problems = []
    if done.returncode != case["status"]:
        problems.append("exit %d, expected %d" % (done.returncode, case["status"]))
    lines = out.splitlines()
    if case["out"] is not None and lines != case["out"]:
        problems.append("standard output:\n" + out)
    some_line = lambda p: any(re.search(p, l) for l in lines)
    for key, holds, say, text in (("match", some_line, "no line of standard output matches", out),
                                  ("nomatch", lambda p: not some_line(p), "a line of standard output matches", out),
                                  ("err", lambda p: re.search(p, err, re.M), "standard error does not match", err)):
        problems += ["%s %r:\n%s" % (say, p, text) for p in case[key] if not holds(p)]
    return problems


def main():
    program, case_file, scenarios = sys.argv[1], Path(sys.argv[2]), Path(sys.argv[3])
    failed = 0
    all_cases = list(cases(case_file.read_text()))
    for case in all_cases:
        problems = run(program, case, [scenarios, case_file.parent])
        if problems:
            failed += 1
            print("%s:%d: $ %s\n  %s" % (case_file.name, case["line"], case["args"], "\n  ".join(problems)))
    print("%d invocations, %d failed" % (len(all_cases), failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
