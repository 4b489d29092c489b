#!/usr/bin/env python3
"""Breaks lines of the library one at a time and asks whether the suite notices.

  python3 tests/mutation/break_lines.py [--lines 40] [--seed 1] [--file GLOB] [--table FILE]
      [--preset asan] [--copy FOLDER [--from N]]

Works in a copy of the committed tree (git clone into memory or a temporary folder), never in the tree
itself. Every file of src/ and inc/ gives one line before any gives two, the long ones first after that;
which lines, the seed and the file's name settle, so that `--file Mutex.h --lines 1` breaks the same
line again. Each is broken in one way that fits it (a condition negated, a bound shifted, a statement
dropped, a constant or an operator changed) and put before the programs of the unit, integration and
fault tests: first, and built alone, those whose names or #includes speak of the file, then the quick
ones, then the slow. A test has noticed when it fails twice. A break that does not compile is drawn
again. Prints a table line for each; exit code 0 when every break was noticed.

Ended by a signal, it ends all that it started, mends the line and removes the folder. After SIGKILL a
folder kelvik-breaks-* stays behind; the line that is broken in the copy of --copy the next start mends.
"""

import argparse
import ctypes
import fnmatch
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD_LIMIT_S = 1800
TEST_LIMIT_S = 1800
QUICK_S = 5.0  # a test that takes no longer is asked before the others
LIKELY_COUNT = 4  # tests that are built and asked first
SHOWN_CHARACTERS = 64  # of a broken line in the table
MEMORY_BYTES = 4 << 30  # free space that a build in memory takes
FILE_BYTES = 8 << 30  # a broken loop shall not fill the disk; some tests make large holes
LIBC = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1  # of linux/prctl.h
PR_SET_CHILD_SUBREAPER = 36
ENDING = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)

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
        # Declarations and breaks of them say little; va_end does nothing on any target.
        if "constexpr" in code or code.endswith("\\") or DECLARATION.match(code) or "va_end(" in code:
            continue
        code = re.sub(r"\s+// [^\"]*$", "", line)
        for name, pattern, change in BREAKS:
            match = pattern.match(code)
            in_string = match and name == "changed operator" and code[:match.start(2)].count('"') % 2
            if match and not in_string and change(match) != code:
                yield number, name, change(match) + line[len(code):]


def draw(files, seed):
    """The lines of each file in the order in which they are broken: {path: [(number, name, new line)]}."""
    pools = {}
    for path in files:
        pool = list(candidates(path))
        random.Random(f"{seed} {path.name}").shuffle(pool)
        if pool:
            pools[path] = pool
    return pools


def rounds(pools, seed):
    """Paths without end: every file once, then the long ones as often as they are longer."""
    order = list(pools)
    random.Random(seed).shuffle(order)
    yield from order
    often = [path for path in order for _ in range(1 + len(pools[path]) // 40)]
    while any(pools.values()):
        yield from often


def confine():
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    hard = resource.getrlimit(resource.RLIMIT_FSIZE)[1]
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_BYTES, hard))  # tests change it themselves


def children():
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            stat = pathlib.Path("/proc", pid, "stat").read_text(errors="replace")
        except OSError:
            continue  # it has gone
        if int(stat.rpartition(")")[2].split()[1]) == os.getpid():
            yield int(pid)


def end_children():
    """Kills all that was started. What tests start has sessions of its own, but becomes a child of this
    process when its parent dies: so each child is killed until there is none."""
    while True:
        for child in children():
            os.kill(child, signal.SIGKILL)
        try:
            os.waitpid(-1, 0)
        except ChildProcessError:
            return


def end_on(number, _):
    for other in ENDING:
        signal.signal(other, signal.SIG_IGN)  # nothing shall interrupt the way out
    end_children()
    sys.exit(128 + number)


def guard():
    """What ends this script from outside ends all that it started; their orphans become its children."""
    LIBC.prctl(PR_SET_CHILD_SUBREAPER, 1)
    for number in ENDING:
        if signal.getsignal(number) != signal.SIG_IGN:  # as nohup sets it
            signal.signal(number, end_on)


def run(command, folder, limit, **environment):
    """Its output and exit code, None after the limit. What it started is ended with it."""
    try:
        child = subprocess.Popen(command, cwd=folder, text=True, errors="replace", start_new_session=True,
                                 env={**os.environ, **environment}, stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, preexec_fn=confine)
        output, _ = child.communicate(timeout=limit)
    except subprocess.TimeoutExpired:
        return None
    finally:
        end_children()
    return subprocess.CompletedProcess(command, child.returncode, output)


def words(name):
    return set(re.findall(r"[A-Z][a-z]+|[A-Z](?![a-z])", name)) - {"Test"}


class Suite:
    """The copy's tests: unit, integration and fault programs, by name."""

    def __init__(self, tree, preset, jobs, temporary):
        self.tree = tree
        self.preset = preset
        self.jobs = jobs
        self.temporary = temporary
        self.seconds = {}
        self.output = ""  # of ctest, the last time

    def configure(self):
        # What is looked for is a failing test, not a place in the code: no debug information.
        flags = ["-DKELVIK_WERROR=OFF"]
        if self.preset == "dev":
            flags += ["-DCMAKE_CXX_FLAGS_DEBUG=", "-DCMAKE_C_FLAGS_DEBUG="]
        if shutil.which("ld.lld"):
            flags.append("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld")
        done = run(["cmake", "--preset", self.preset, *flags], self.tree, BUILD_LIMIT_S)
        if done is None or done.returncode:
            return False
        listed = run(["ctest", "--preset", self.preset, "--show-only=json-v1"], self.tree, TEST_LIMIT_S)
        for test in json.loads(listed.stdout)["tests"]:
            disabled = any(p["name"] == "DISABLED" and p["value"] for p in test["properties"])
            # Scripts judge documents and packages, for minutes. A program has no command yet.
            program = pathlib.Path(test.get("command", [test["name"]])[0]).name
            if (re.match(r"(unit|integration|fault)[.]", test["name"]) and not disabled
                    and program == test["name"]):
                self.seconds[test["name"]] = 0.0
        return bool(self.seconds)

    def build(self, tests=()):
        targets = [f"test_{name.replace('.', '_')}" for name in tests]
        # A compiler cache shall know the files again in the next copy.
        done = run(["cmake", "--build", f"build/{self.preset}", "-j", str(self.jobs),
                    *(["--target", *targets] if targets else [])], self.tree, BUILD_LIMIT_S,
                   CCACHE_BASEDIR=str(self.tree), CCACHE_NOHASHDIR="1")
        return done is not None and done.returncode == 0

    def failing(self, tests):
        """The first of the tests that fails twice, or None. Notes how long those took that passed."""
        names = "|".join(re.escape(name) for name in tests)
        done = run(["ctest", "--preset", self.preset, "-j", str(self.jobs + 1), "--stop-on-failure",
                    "--repeat", "until-pass:2", "-R", f"^({names})$"], self.tree, TEST_LIMIT_S,
                   KELVIK_ROUNDS="3", TMPDIR=self.temporary)
        if done is None:
            return "a hang"
        for name, seconds in re.findall(r" (\S+) \.+ +Passed +([0-9.]+) sec", done.stdout):
            self.seconds[name] = float(seconds)
        self.output = done.stdout
        for name, how in re.findall(r"^\s*\d+ - (\S+) \(([^)]*)\)", done.stdout, re.M):
            if how not in ("Skipped", "Disabled"):
                return name
        return None if done.returncode == 0 else "ctest"

    def recall(self):
        """The times of an earlier run in this copy."""
        costs = self.tree / "build" / self.preset / "Testing" / "Temporary" / "CTestCostData.txt"
        for name, seconds in re.findall(r"^(\S+) \d+ ([0-9.]+)$", costs.read_text(), re.M):
            if name in self.seconds:
                self.seconds[name] = float(seconds)

    def likely(self, path):
        """The tests that speak of the file, the nearest first."""
        of_file = words(path.stem)
        scores = {}
        for source in self.tree.glob("tests/*/*Test.c*"):
            name = f"{source.parent.name}.{source.stem[:-4]}"
            if self.seconds.get(name, QUICK_S + 1) <= QUICK_S:
                of_test = words(source.stem)
                scores[name] = 2 * len(of_file & of_test) / len(of_file | of_test)
                scores[name] += f'"{path.stem}.h' in source.read_text(errors="replace")
        nearest = sorted(scores, key=lambda name: (-scores[name], self.seconds[name], name))
        return [name for name in nearest[:LIKELY_COUNT] if scores[name] > 0]

    def caught_by(self, path):
        """The test that notices, None for none, False for a break that does not compile."""
        first = self.likely(path)
        others = [name for name in self.seconds if name not in first]
        quick = [name for name in others if self.seconds[name] <= QUICK_S]
        for tests in (first, quick, [name for name in others if name not in quick]):
            if not tests:
                continue
            if not self.build(tests if tests is first else ()):
                return False
            failing = self.failing(tests)
            if failing:
                return failing
        return None


def temporary_root():
    """Memory where there is enough of it: the suite syncs thousands of times."""
    memory = "/dev/shm"
    if "TMPDIR" not in os.environ and os.path.isdir(memory) and shutil.disk_usage(memory).free > MEMORY_BYTES:
        return memory
    return None


def take_copy(tree):
    """The committed tree, where an earlier copy may stand."""
    if not tree.exists():
        subprocess.run(["git", "clone", "-q", str(ROOT), str(tree)], check=True)
    # Takes a broken line back, too, that a killed run left.
    for command in ("fetch -q origin HEAD", "checkout -q --force --detach FETCH_HEAD"):
        subprocess.run(["git", *command.split()], cwd=tree, check=True)


def table_row(path, before, kind, by):
    shown = before if len(before) <= SHOWN_CHARACTERS else before[:SHOWN_CHARACTERS - 3] + "..."
    return "| `{}` | {} | `{}` | {} |".format(path, kind, shown.replace("|", "\\|"),
                                              f"`{by}`" if by else "**not noticed**")


def break_next(suite, path, pool):
    """Breaks the file's next line that compiles: (number, line, kind, broken line, what noticed)."""
    text = path.read_text()
    lines = text.splitlines(keepends=True)
    while pool:
        number, kind, broken = pool.pop(0)
        try:
            path.write_text("".join([*lines[:number], broken + "\n", *lines[number + 1:]]))
            by = suite.caught_by(path)
        finally:
            path.write_text(text)
        if by is not False:
            return number + 1, lines[number].strip(), kind, broken.strip(), by
    return None


def break_all(suite, pools, options):
    """How many breaks were made and how many of them nothing noticed."""
    done = missed = 0
    for path in rounds(pools, options.seed):
        if done == options.lines:
            break
        name = path.relative_to(suite.tree)
        if done + 1 < options.first and pools[path]:
            pools[path].pop(0)
            done += 1
            continue
        made = break_next(suite, path, pools[path])
        if made is None:
            continue
        number, before, kind, broken, by = made
        done += 1
        missed += by is None
        row = table_row(name, before, kind, by)
        print(f"{done} {name}:{number}: {broken}\n{row}", flush=True)
        if options.table:
            with open(options.table, "a", encoding="utf-8") as table:
                table.write(row + "\n")
    return done - options.first + 1, missed


def parse_options():
    parser = argparse.ArgumentParser()
    parser.add_argument("--lines", type=int, default=40)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--preset", default="dev", help="dev; asan and tsan notice more and take longer")
    parser.add_argument("--file", default="*", help="only files whose name fits")
    parser.add_argument("--table", help="append the table to this file as it grows")
    parser.add_argument("--copy", help="a folder that keeps the copy and its build for the next time")
    parser.add_argument("--from", type=int, default=1, dest="first",
                        help="go on with this line of a run in the same copy that was interrupted")
    return parser.parse_args()


def main():
    options = parse_options()
    guard()
    with tempfile.TemporaryDirectory(prefix="kelvik-breaks-", dir=temporary_root()) as folder:
        os.chmod(folder, 0o755)  # tests that act as another user come this way
        tree = pathlib.Path(options.copy or folder).resolve() / "tree"
        temporary = pathlib.Path(folder) / "tmp"
        temporary.mkdir()
        take_copy(tree)
        suite = Suite(tree, options.preset, options.jobs, str(temporary))
        if not suite.configure() or not suite.build():
            sys.exit("the tree does not build")
        if options.first > 1:
            suite.recall()
        else:
            clean = suite.failing(list(suite.seconds))
            if clean:
                sys.exit(f"{suite.output}\n{clean} fails without any break")
        files = sorted(p for d in ("src", "inc") for s in ("*.cpp", "*.h", "*.hpp")
                       for p in (tree / d).glob(s) if fnmatch.fnmatch(p.name, options.file))
        done, missed = break_all(suite, draw(files, options.seed), options)
        print(f"{done - missed} of {done} breaks noticed (seed {options.seed})")
        sys.exit(1 if missed else 0)


if __name__ == "__main__":
    main()
