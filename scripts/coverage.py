#!/usr/bin/env python3
"""Reports how much of inc/ and src/ the tests ran, from the counters of a coverage build.

    coverage.py BUILD_FOLDER [MIN_LINES MIN_BRANCHES]

Run from the project's root after the tests. Exit code 0 when both percentages are reached, else
gcovr's (2: lines, 4: branches). Lines that no test ran and docs/coverage.md does not explain are
named; the report goes to BUILD_FOLDER/coverage.txt and BUILD_FOLDER/coverage.json.

gcovr's own --exclude-throw-branches is not enough: gcov's text marks the way out by an exception
only where the unit that holds the code has run it, so that an inline function of a header counts
its exceptions once for each unit that includes it and does not call it. Here a branch that is one
in any unit is one in all of them.
"""

import json
import pathlib
import re
import subprocess
import sys

SOURCES = ["--filter", "inc/", "--filter", "src/"]


def gcovr(*arguments):
    return subprocess.run(["gcovr", "--root", ".", *SOURCES, *arguments]).returncode


def explained():
    """The pieces of source in backticks of the list's table, by file."""
    pieces = {}
    for line in pathlib.Path("docs/coverage.md").read_text().splitlines():
        cells = [cell.strip() for cell in line.split("|")]
        if len(cells) > 3 and cells[1].startswith("`"):
            pieces.setdefault(cells[1].strip("`"), []).extend(re.findall("`([^`]+)`", cells[2]))
    return pieces


def drop_throwing(report):
    for file in report["files"]:
        for line in file["lines"]:
            line["branches"] = [each for each in line["branches"] if not each["throw"]]


def show_unexplained(report):
    pieces = explained()
    for name, known in pieces.items():
        text = pathlib.Path(name).read_text()
        for piece in known:
            if piece not in text:
                print(f"explained, not there: {name}: {piece}")
    for file in report["files"]:
        name = file["file"]
        source = pathlib.Path(name).read_text().splitlines()
        for line in file["lines"]:
            number = line["line_number"]
            text = source[number - 1].strip()
            if line["count"] > 0 or line.get("gcovr/noncode"):
                continue
            if not any(piece in text for piece in pieces.get(name, [])):
                print(f"not run, not explained: {name}:{number}: {text}")


def main(build, limits):
    everything = f"{build}/coverage.json"
    code = gcovr("--object-directory", build, build, "--json", everything)
    if code != 0:
        return code
    report = json.loads(pathlib.Path(everything).read_text())
    drop_throwing(report)
    pathlib.Path(everything).write_text(json.dumps(report))
    show_unexplained(report)
    arguments = ["--add-tracefile", everything, "--print-summary", "--txt", f"{build}/coverage.txt"]
    if limits:
        arguments += ["--fail-under-line", limits[0], "--fail-under-branch", limits[1]]
    return gcovr(*arguments)


if __name__ == "__main__":
    if len(sys.argv) not in (2, 4):
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2:]))
