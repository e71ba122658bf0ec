#!/usr/bin/env python3
"""A small mutation tester: how many planted faults do the fast test suites catch?

It copies the source tree into its own folder (BUILD_DIR/src), plants one fault at a time in the
copy's product code (server/, platform/, import/ without the ODBC source, tools/), rebuilds the
copy incrementally in BUILD_DIR/build, and runs the fast test executables (not the live-server
ones) until one fails. A mutant is killed when a test fails, timed out when the tests exceed the
per-mutant limit, survived when every test passes; a mutant that does not compile is left out of
the rate. The checkout itself is never written; the copy's file is restored after every mutant,
also on Ctrl-C, and the copy is refreshed from the checkout at every start.

The mutants are chosen from the product code with a fixed seed and saved as BUILD_DIR/mutants.tsv;
--mutants replays a saved list against a later tree (each mutant is found again by its line's
text), so two versions of the tests can be measured on the same faults.

    nice -n 10 python3 scripts/mutate.py --count 120 --seed 7
    nice -n 10 python3 scripts/mutate.py --mutants build-mutate/mutants-base.tsv
"""

import argparse
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PRODUCT_DIRS = ("server", "platform", "import", "tools")
EXCLUDED_DIRS = ("import/odbc",)  # needs a database to be exercised; its suites are not fast
# Fast suites, cheapest and most telling first: the first failure ends a mutant's run.
TEST_BINARIES = ("test_generator", "test_golden", "test_platform", "test_import", "test_cli", "test_hardening")
NOT_STATEMENTS = {"return", "break", "continue", "case", "default", "throw", "const", "static", "auto",
                  "using", "typedef", "else", "if", "for", "while", "do", "switch", "try", "catch",
                  "namespace", "struct", "class", "enum", "template", "public", "private", "protected"}


class Interrupted(Exception):
    pass


def on_signal(signum, _frame):
    raise Interrupted(f"signal {signum}")


# ------------------------------------------------------------------------------------------
# Finding mutation sites


def masked_lines(text):
    """The lines of a C++ file with comments and the insides of string and character literals
    blanked, so that operators are only found in code. Columns stay where they were."""
    out, in_block = [], False
    for line in text.split("\n"):
        chars, i, n = list(line), 0, len(line)
        while i < n:
            if in_block:
                end = line.find("*/", i)
                stop = n if end < 0 else end + 2
                for k in range(i, stop):
                    chars[k] = " "
                in_block, i = end < 0, stop
            elif line.startswith("//", i):
                for k in range(i, n):
                    chars[k] = " "
                break
            elif line.startswith("/*", i):
                in_block = True
            elif line[i] in "\"'":
                quote, k = line[i], i + 1
                while k < n and line[k] != quote:
                    k += 2 if line[k] == "\\" else 1
                for j in range(i + 1, min(k, n)):
                    chars[j] = " "
                i = k + 1
            else:
                i += 1
        if line.lstrip().startswith("#"):
            chars = [" "] * n
        out.append("".join(chars))
    return out


def matching_paren(masked, open_at):
    depth = 0
    for k in range(open_at, len(masked)):
        if masked[k] == "(":
            depth += 1
        elif masked[k] == ")":
            depth -= 1
            if depth == 0:
                return k
    return -1


SWAPS = [  # (regex on the masked line, replacement, kind)
    (r"==", "!=", "comparison"), (r"!=", "==", "comparison"),
    (r"(?<=[\w)\] ])<=(?= )", "<", "comparison"), (r"(?<= )>=(?= )", ">", "comparison"),
    (r"(?<= )<(?= )", "<=", "comparison"), (r"(?<= )>(?= )", ">=", "comparison"),
    (r" && ", " || ", "logical"), (r" \|\| ", " && ", "logical"),
    (r"!(?=[\w(])", "", "negation removed"),
    (r"(?<= )\+(?= )", "-", "arithmetic"), (r"(?<= )-(?= )", "+", "arithmetic"),
    (r"(?<= )\*(?= )", "/", "arithmetic"), (r"(?<= )/(?= )", "*", "arithmetic"),
    (r"(?<= )%(?= )", "*", "arithmetic"),
    (r"\+\+", "--", "arithmetic"), (r"--", "++", "arithmetic"),
    (r"\+=", "-=", "arithmetic"), (r"-=", "+=", "arithmetic"),
    (r"\btrue\b", "false", "boolean"), (r"\bfalse\b", "true", "boolean"),
]


def sites_in_file(rel, text):
    """Every mutant of one file: dicts with the line (1-based), the column, the original and the
    replacement text at that column, and a kind."""
    lines, masked = text.split("\n"), masked_lines(text)
    sites = []

    def add(number, col, old, new, kind):
        sites.append({"file": rel, "line": number, "col": col, "old": old, "new": new, "kind": kind,
                      "text": lines[number - 1]})

    previous_end = ";"
    for index, m in enumerate(masked):
        number, stripped = index + 1, m.strip()
        if not stripped:
            continue
        for pattern, replacement, kind in SWAPS:
            for hit in re.finditer(pattern, m):
                add(number, hit.start(), hit.group(0), replacement, kind)
        for hit in re.finditer(r"(?<![\w.])(\d+)(?![\w.])", m):
            value = int(hit.group(1), 10) if not hit.group(1).startswith("0") or hit.group(1) == "0" else None
            if value is not None:
                add(number, hit.start(), hit.group(1), str(value + 1) if value else "1", "constant")
        for hit in re.finditer(r"\b(if|while) \(", m):
            open_at = hit.end() - 1
            close = matching_paren(m, open_at)
            if close > 0:
                condition = lines[index][open_at:close + 1]
                add(number, open_at, condition, "(!" + condition + ")", "condition negated")
                if hit.group(1) == "if":
                    add(number, open_at, condition, "(false)", "branch removed")
        # A whole one-line statement: a call, an assignment or a step, never a declaration.
        first = re.match(r"\s*([A-Za-z_][\w:]*)", m)
        if (stripped.endswith(";") and first and first.group(1) not in NOT_STATEMENTS
                and previous_end in ";{}:)" and m.count("(") == m.count(")")
                and not re.match(r"\s*[A-Za-z_][\w:]*(<[^;]*>)?[*&]?\s+[*&]?[A-Za-z_]", m)
                and re.match(r"\s*[A-Za-z_][\w:.\->\[\]]*\s*(\(|=|\+=|-=|\+\+|--|\.|->|\[)", m)):
            start = len(m) - len(m.lstrip())
            add(number, start, lines[index][start:].rstrip(), ";", "statement removed")
        # An early return at the top of a void or bool function.
        fn = re.match(r"\s*(?:static\s+|inline\s+|virtual\s+)*(void|bool)\s+[\w:~]+\(.*\)\s*(const\s*)?"
                      r"(override\s*)?\{\s*$", m)
        if fn:
            brace = m.rindex("{")
            add(number, brace, "{", "{ return;" if fn.group(1) == "void" else "{ return false;",
                "early return")
        previous_end = stripped[-1] if not stripped.endswith("else") else ")"
    return sites


def product_files(source):
    files = []
    for top in PRODUCT_DIRS:
        for folder, dirs, names in os.walk(os.path.join(source, top)):
            dirs.sort()
            rel_folder = os.path.relpath(folder, source)
            if any(rel_folder == e or rel_folder.startswith(e + "/") for e in EXCLUDED_DIRS):
                continue
            files += [os.path.join(rel_folder, n) for n in sorted(names) if n.endswith(".cpp")]
    return files


def choose_mutants(source, count, seed):
    sites = []
    for rel in product_files(source):
        with open(os.path.join(source, rel), encoding="utf-8") as f:
            sites += sites_in_file(rel, f.read())
    chosen = random.Random(seed).sample(sites, min(count, len(sites)))
    return sorted(chosen, key=lambda s: (s["file"], s["line"], s["col"])), len(sites)


FIELDS = ("file", "line", "col", "kind", "old", "new", "text")


def save_mutants(path, mutants):
    with open(path, "w", encoding="utf-8") as f:
        for m in mutants:
            f.write("\t".join(json.dumps(m[k]) if k != "line" and k != "col" else str(m[k]) for k in FIELDS) + "\n")


def load_mutants(path):
    mutants = []
    with open(path, encoding="utf-8") as f:
        for row in f:
            values = row.rstrip("\n").split("\t")
            m = {k: (int(v) if k in ("line", "col") else json.loads(v)) for k, v in zip(FIELDS, values)}
            mutants.append(m)
    return mutants


def locate(lines, mutant):
    """The index of the mutant's line in the current file: its recorded line when the text is
    still there, else the nearest line with the same text; None when the line is gone."""
    want = mutant["text"]
    recorded = mutant["line"] - 1
    if 0 <= recorded < len(lines) and lines[recorded] == want:
        return recorded
    matches = [i for i, line in enumerate(lines) if line == want]
    return min(matches, key=lambda i: abs(i - recorded)) if matches else None


# ------------------------------------------------------------------------------------------
# The copy, the build and the tests


def sync_copy(source, copy):
    """Makes the copy equal to the source, writing only files whose bytes differ so that the
    incremental build redoes only what changed."""
    subprocess.run(["rsync", "-a", "--checksum", "--delete", "--exclude=/build*", "--exclude=/.git",
                    "--exclude=/out", source.rstrip("/") + "/", copy + "/"], check=True)


def build(build_dir, log):
    targets = list(TEST_BINARIES) + ["udmlgen"]
    result = subprocess.run(["cmake", "--build", build_dir, "-j", "1", "--target"] + targets,
                            stdout=log, stderr=subprocess.STDOUT)
    return result.returncode == 0


def configure(copy, build_dir):
    env = dict(os.environ, CCACHE_BASEDIR=os.environ.get("CCACHE_BASEDIR", "/work"))
    subprocess.run(["cmake", "-S", copy, "-B", build_dir, "-G", "Ninja", "-DUDML_BUILD_TESTS=ON",
                    "-DUDML_SERVER_TESTS=OFF", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
                    "-DUDML_WARNINGS_AS_ERRORS=OFF", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
                    "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"],
                   check=True, stdout=subprocess.DEVNULL, env=env)


def run_tests(build_dir, timeout):
    """'passed', 'failed' or 'timeout' for the fast suites, stopping at the first failure."""
    deadline = time.monotonic() + timeout
    for name in TEST_BINARIES:
        binary = os.path.join(build_dir, "bin", name)
        if not os.path.exists(binary):
            continue
        proc = subprocess.Popen([binary, "--gtest_brief=1", "--gtest_fail_fast"],
                                cwd=os.path.join(build_dir, "tests"), stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            code = proc.wait(timeout=max(1.0, deadline - time.monotonic()))
        except subprocess.TimeoutExpired:
            os.killpg(proc.pid, signal.SIGKILL)
            proc.wait()
            return "timeout"
        finally:
            if proc.poll() is None:
                os.killpg(proc.pid, signal.SIGKILL)
                proc.wait()
        if code != 0:
            return "failed"
    return "passed"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=300, help="mutants to try (default 300)")
    parser.add_argument("--seed", type=int, default=7, help="seed of the choice of mutants (default 7)")
    parser.add_argument("--mutants", help="replay a saved mutant list instead of choosing one")
    parser.add_argument("--source", default=ROOT, help="the tree to test (default: this checkout)")
    parser.add_argument("--build-dir", default=os.path.join(ROOT, "build-mutate"))
    parser.add_argument("--timeout", type=float, help="seconds per mutant's tests (default: 4x a clean run + 10)")
    parser.add_argument("--list-only", action="store_true", help="write the mutant list and stop")
    args = parser.parse_args()

    source, build_dir = os.path.abspath(args.source), os.path.abspath(args.build_dir)
    copy, binary_dir = os.path.join(build_dir, "src"), os.path.join(build_dir, "build")
    os.makedirs(copy, exist_ok=True)
    signal.signal(signal.SIGTERM, on_signal)
    signal.signal(signal.SIGHUP, on_signal)

    sync_copy(source, copy)
    if args.mutants:
        mutants, pool = load_mutants(args.mutants), None
    else:
        mutants, pool = choose_mutants(copy, args.count, args.seed)
    save_mutants(os.path.join(build_dir, "mutants.tsv"), mutants)
    print(f"{len(mutants)} mutants" + (f" chosen from {pool} sites (seed {args.seed})" if pool else ""), flush=True)
    if args.list_only:
        return 0

    log_path = os.path.join(build_dir, "build.log")
    with open(log_path, "w") as log:
        configure(copy, binary_dir)
        started = time.monotonic()
        if not build(binary_dir, log):
            sys.exit(f"mutate: the unmutated tree does not build; see {log_path}")
        print(f"clean build: {time.monotonic() - started:.0f}s", flush=True)
        started = time.monotonic()
        if run_tests(binary_dir, 3600) != "passed":
            sys.exit("mutate: the tests fail on the unmutated tree; fix them first")
        clean = time.monotonic() - started
        timeout = args.timeout or 4 * clean + 10
        print(f"clean tests: {clean:.1f}s; limit per mutant {timeout:.0f}s", flush=True)

        results = []
        try:
            for number, mutant in enumerate(mutants, 1):
                path = os.path.join(copy, mutant["file"])
                original = open(path, encoding="utf-8").read() if os.path.exists(path) else None
                lines = original.split("\n") if original is not None else []
                index = locate(lines, mutant)
                col = mutant["col"]
                if index is None or lines[index][col:col + len(mutant["old"])] != mutant["old"]:
                    outcome = "gone"
                else:
                    line = lines[index]
                    lines[index] = line[:col] + mutant["new"] + line[col + len(mutant["old"]):]
                    try:
                        with open(path, "w", encoding="utf-8") as f:
                            f.write("\n".join(lines))
                        log.write(f"\n== mutant {number}: {mutant['file']}:{index + 1}\n")
                        log.flush()
                        if not build(binary_dir, log):
                            outcome = "stillborn"
                        else:
                            outcome = {"passed": "survived", "failed": "killed", "timeout": "timed out"}[
                                run_tests(binary_dir, timeout)]
                    finally:
                        with open(path, "w", encoding="utf-8") as f:
                            f.write(original)
                    mutant = dict(mutant, line=index + 1)
                results.append((mutant, outcome))
                print(f"[{number}/{len(mutants)}] {outcome:9} {mutant['file']}:{mutant['line']} "
                      f"{mutant['kind']}: {mutant['old']!r} -> {mutant['new']!r}", flush=True)
        except (KeyboardInterrupt, Interrupted):
            print("interrupted; the copy is restored and the report covers the mutants run", flush=True)
        finally:
            sync_copy(source, copy)

    report(results, os.path.join(build_dir, "report.txt"))
    return 0


def report(results, path):
    counts = {k: sum(1 for _, o in results if o == k)
              for k in ("killed", "timed out", "survived", "stillborn", "gone")}
    valid = counts["killed"] + counts["timed out"] + counts["survived"]
    rate = 100.0 * (counts["killed"] + counts["timed out"]) / valid if valid else 0.0
    lines = [f"mutants run: {len(results)}; compiled and tested: {valid}",
             f"killed: {counts['killed']}, timed out: {counts['timed out']}, survived: {counts['survived']}"
             f" (not compiling: {counts['stillborn']}, line gone: {counts['gone']})",
             f"kill rate (killed + timed out of tested): {rate:.1f}%", "", "survivors:"]
    lines += [f"  {m['file']}:{m['line']}: {m['kind']}: {m['old']!r} -> {m['new']!r}    {m['text'].strip()}"
              for m, o in results if o == "survived"]
    text = "\n".join(lines) + "\n"
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)
    print("\n" + text + f"(report: {path})")


if __name__ == "__main__":
    sys.exit(main())
