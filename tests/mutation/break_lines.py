#!/usr/bin/env python3
"""Breaks lines of the library one at a time and asks whether the suite notices.

  python3 tests/mutation/break_lines.py [--lines 40] [--seed 1] [--table FILE] [--file GLOB]

Works in a copy of the committed tree (git clone into a temporary folder), never in the tree itself.
The lines are drawn with a fixed seed, spread over all files of src/ and inc/ by their length; each is
broken in one way that fits it (a condition negated, a bound shifted, a statement dropped, a constant
or an operator changed), built, and put before the unit, integration and fault tests. Prints a table
line for each: caught by which test, or NOT CAUGHT. A break that does not compile is drawn again.
Exit code 0 when every break was caught.
"""

import argparse
import fnmatch
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD_LIMIT_S = 1800
TEST_LIMIT_S = 1800

# What a line may be broken by: a name, what it matches, and what stands there afterwards.
BREAKS = [
    ("negated condition", re.compile(r"^(\s*(?:\} else )?if \()(.*)(\)(?: \{| [^;{}]+;|)\s*)$"),
     lambda m: f"{m[1]}!({m[2]}){m[3]}"),
    ("negated loop", re.compile(r"^(\s*while \()(.*)(\) ?\{?\s*)$"),
     lambda m: f"{m[1]}!({m[2]}){m[3]}"),
    ("shifted bound", re.compile(r"^([^\"]*[\w\])] )(<|<=|>|>=)( [\w(][^\"]*)$"),
     lambda m: m[1] + {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}[m[2]] + m[3]),
    ("changed operator", re.compile(r"^(.*[\w\])] )(&&|\|\||==|!=|\+|-)( [\w(!*].*)$"),
     lambda m: m[1] + {"&&": "||", "||": "&&", "==": "!=", "!=": "==", "+": "-", "-": "+"}[m[2]] + m[3]),
    ("changed result", re.compile(r"^(\s*return )(true|false|0|-1|1|2|3|nullptr)(;\s*)$"),
     lambda m: m[1] + {"true": "false", "false": "true", "0": "1", "nullptr": "nullptr"}.get(m[2], "0") + m[3]),
    ("dropped statement", re.compile(r"^(\s+)((?:[a-z:]\w*(?:::|\.|->))*\w+(?:\[[^\]]*\])?(?:\(.*\)| (?:[-+|&]?=) .*);)(\s*)$"),
     lambda m: f"{m[1]}static_cast<void>(0);{m[3]}"),
]

DECLARATION = re.compile(r"(KELVIK_|virtual |friend |__attribute__|C[A-Z]\w*\()")


def candidates(path):
    """(line number, name of the break, new line) of every line that can be broken."""
    in_comment = False
    for number, line in enumerate(path.read_text().splitlines()):
        code = line.strip()
        if code.startswith("/*"):
            in_comment = True
        if in_comment or code.startswith(("//", "#", "static_assert", "template", "using")):
            in_comment = in_comment and "*/" not in code
            continue
        # Declarations and breaks of them say little.
        if "constexpr" in code or code.endswith("\\") or DECLARATION.match(code):
            continue
        for name, pattern, change in BREAKS:
            match = pattern.match(line)
            if match and change(match) != line:
                yield number, name, change(match)


def draw(files, count, rng):
    """Endless for each file in turn, the long files more often: (path, number, name, new line)."""
    pools = {}
    for path in files:
        pool = list(candidates(path))
        rng.shuffle(pool)
        if pool:
            pools[path] = pool
    order = [path for path in pools for _ in range(1 + len(pools[path]) * count // 1500)]
    rng.shuffle(order)
    # Every file once before any file twice.
    seen = set()
    order = [p for p in order if not (p in seen or seen.add(p))] + order
    while any(pools.values()):
        for path in order:
            if pools[path]:
                yield (path, *pools[path].pop())


def run(command, folder, limit, **environment):
    try:
        return subprocess.run(command, cwd=folder, timeout=limit, text=True, errors="replace",
                              env={**os.environ, **environment}, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    except subprocess.TimeoutExpired:
        return None


def caught_by(tree, jobs):
    """The test that fails, or None."""
    first = None
    tests = run(["ctest", "--preset", "dev", "-j", str(jobs), "--stop-on-failure", "--timeout", "240",
                 "-L", "^$|slow", "-R", "^(unit|integration|fault)[.]"], tree, TEST_LIMIT_S,
                KELVIK_ROUNDS="3")
    if tests is None:
        return "a hang"
    for match in re.finditer(r"\d+ - (\S+) \((Failed|Timeout|SEGFAULT|[^)]*)\)", tests.stdout):
        if match[2] not in ("Not Run", "Skipped"):
            first = first or f"{match[1]}"
    return first or (None if tests.returncode == 0 else "ctest")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--lines", type=int, default=40)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--file", default="*", help="only files whose name fits")
    parser.add_argument("--table", help="append the table to this file as it grows")
    options = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="kelvik-breaks-") as folder:
        tree = pathlib.Path(folder) / "tree"
        subprocess.run(["git", "clone", "-q", str(ROOT), str(tree)], check=True)
        configure = run(["cmake", "--preset", "dev", "-DKELVIK_WERROR=OFF"], tree, BUILD_LIMIT_S)
        build = ["cmake", "--build", "build/dev", "-j", str(options.jobs)]
        if configure is None or configure.returncode or run(build, tree, BUILD_LIMIT_S).returncode:
            sys.exit("the tree does not build")
        clean = caught_by(tree, options.jobs)
        if clean:
            sys.exit(f"{clean} fails without any break")

        files = sorted(p for d in ("src", "inc") for s in ("*.cpp", "*.h", "*.hpp")
                       for p in (tree / d).glob(s) if fnmatch.fnmatch(p.name, options.file))
        done = missed = 0
        for path, number, name, broken in draw(files, options.lines, random.Random(options.seed)):
            if done == options.lines:
                break
            text = path.read_text()
            lines = text.splitlines(keepends=True)
            before = lines[number].strip()
            lines[number] = broken + "\n"
            path.write_text("".join(lines))
            built = run(build, tree, BUILD_LIMIT_S)
            if built is not None and built.returncode == 0:
                by = caught_by(tree, options.jobs)
                done += 1
                missed += by is None
                row = (f"| `{path.relative_to(tree)}:{number + 1}` | `{before.replace('|', chr(92) + '|')}`"
                       f" | {name} | {by or '**NOT CAUGHT**'} |")
                print(row, flush=True)
                if options.table:
                    with open(options.table, "a", encoding="utf-8") as table:
                        table.write(row + "\n")
            path.write_text(text)
        print(f"{done - missed} of {done} breaks caught (seed {options.seed})")
        sys.exit(1 if missed else 0)


if __name__ == "__main__":
    main()
