#!/usr/bin/env python3
"""Runs every libFuzzer target of a fuzz build for a while and prints one summary table.

Each target fuzzes a scratch working corpus seeded from fuzz/corpus/<target>/ (the committed
folder is only read). A crash, sanitizer report, leak, timeout or out-of-memory fails the run;
the reproducer is kept under <build>/findings/<target>/.

    scripts/run-fuzz.py --build build/fuzz [--seconds 180] [--targets "fuzz_sei fuzz_avcc"]
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# Per input: a parser that needs more than this is a hang worth reporting.
INPUT_TIMEOUT_S = 10
RSS_LIMIT_MB = 2048
MAX_INPUT_LEN = 65536
# Reproducer files libFuzzer writes, by kind of failure.
ARTIFACT_PREFIXES = ("crash-", "leak-", "timeout-", "oom-", "slow-unit-")


def discover_targets(source_dir: Path) -> list[str]:
    """Every fuzz/fuzz_*.cpp is a target: new harnesses join without touching this script."""
    return sorted(p.stem for p in source_dir.glob("fuzz_*.cpp"))


def last_stats(log: str) -> dict:
    """Executions, coverage, features and corpus size from libFuzzer's last status line."""
    stats = {"execs": None, "cov": None, "ft": None, "corp": None}
    for line in log.splitlines():
        m = re.match(r"#(\d+)\s+\w+", line)
        if not m:
            continue
        stats["execs"] = int(m.group(1))
        for key in ("cov", "ft"):
            km = re.search(rf"\b{key}: (\d+)", line)
            if km:
                stats[key] = int(km.group(1))
        cm = re.search(r"\bcorp: (\d+)/", line)
        if cm:
            stats["corp"] = int(cm.group(1))
    done = re.search(r"Done (\d+) runs", log)
    if done:
        stats["execs"] = int(done.group(1))
    return stats


def failure_kind(log: str, returncode: int) -> str | None:
    """None when the run ended cleanly, else a short name of what went wrong."""
    patterns = [
        (r"ERROR: libFuzzer: timeout", "timeout"),
        (r"ERROR: libFuzzer: out-of-memory", "out-of-memory"),
        (r"ERROR: LeakSanitizer", "leak"),
        (r"ERROR: AddressSanitizer: (\S+)", "asan:{0}"),
        (r"runtime error:", "ubsan"),
        (r"ERROR: libFuzzer: deadly signal", "crash"),
        (r"ERROR: libFuzzer: ", "libfuzzer"),
    ]
    for pattern, name in patterns:
        m = re.search(pattern, log)
        if m:
            return name.format(*m.groups())
    return None if returncode == 0 else f"exit {returncode}"


def keep_artifacts(work: Path, findings: Path) -> list[Path]:
    kept = []
    for f in sorted(work.iterdir()):
        if f.is_file() and f.name.startswith(ARTIFACT_PREFIXES):
            findings.mkdir(parents=True, exist_ok=True)
            dest = findings / f.name
            shutil.move(str(f), dest)
            kept.append(dest)
    return kept


def run_target(binary: Path, target: str, seeds: Path, build: Path, seconds: int) -> dict:
    scratch = build / "fuzz-work" / target
    corpus = scratch / "corpus"
    artifacts = scratch / "artifacts"
    shutil.rmtree(scratch, ignore_errors=True)
    corpus.mkdir(parents=True)
    artifacts.mkdir()
    if seeds.is_dir():
        for f in seeds.iterdir():
            if f.is_file():
                shutil.copy(f, corpus / f.name)
    # The working corpus comes first: libFuzzer only ever writes into its first directory.
    cmd = [str(binary), str(corpus),
           f"-max_total_time={seconds}", f"-timeout={INPUT_TIMEOUT_S}",
           f"-rss_limit_mb={RSS_LIMIT_MB}", f"-max_len={MAX_INPUT_LEN}",
           f"-artifact_prefix={artifacts}/", "-print_final_stats=1", "-detect_leaks=1"]
    env = dict(os.environ)
    env.setdefault("ASAN_OPTIONS", "abort_on_error=1:detect_leaks=1")
    env.setdefault("UBSAN_OPTIONS", "halt_on_error=1:print_stacktrace=1")
    log_path = scratch / "fuzz.log"
    with open(log_path, "w") as log_file:
        # A hung harness is not allowed to outlive its budget by much.
        try:
            proc = subprocess.run(cmd, stdout=log_file, stderr=subprocess.STDOUT, env=env,
                                  timeout=seconds + 60 + INPUT_TIMEOUT_S)
            returncode = proc.returncode
        except subprocess.TimeoutExpired:
            returncode = -1
    log = log_path.read_text(errors="replace")
    if returncode == -1:
        log += "\nERROR: libFuzzer: timeout (runner killed the target)\n"
    result = last_stats(log)
    result["target"] = target
    result["failure"] = failure_kind(log, returncode)
    result["log"] = log_path
    result["found"] = keep_artifacts(artifacts, build / "findings" / target)
    if result["failure"] and not result["found"]:
        # Still keep the log so the failure can be studied.
        findings = build / "findings" / target
        findings.mkdir(parents=True, exist_ok=True)
        shutil.copy(log_path, findings / "fuzz.log")
    return result


def cell(value) -> str:
    return "-" if value is None else str(value)


def print_table(results: list[dict]) -> None:
    header = ("target", "executions", "coverage", "features", "corpus", "result")
    rows = [(r["target"], cell(r["execs"]), cell(r["cov"]), cell(r["ft"]), cell(r["corp"]),
             r["failure"] or "ok") for r in results]
    widths = [max(len(str(x)) for x in col) for col in zip(header, *rows)]
    for row in (header, *rows):
        print("  ".join(str(v).ljust(w) for v, w in zip(row, widths)).rstrip())


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default="build/fuzz", type=Path)
    parser.add_argument("--seconds", default=180, type=int)
    parser.add_argument("--targets", default="", help="space or comma separated; default all")
    parser.add_argument("--source", default=ROOT, type=Path, help=argparse.SUPPRESS)
    args = parser.parse_args()
    build = args.build.resolve()
    source = args.source.resolve()
    available = discover_targets(source / "fuzz")
    wanted = [t for t in re.split(r"[\s,]+", args.targets) if t] or available
    unknown = [t for t in wanted if t not in available]
    if unknown:
        print(f"run-fuzz: unknown target(s): {' '.join(unknown)} (have: {' '.join(available)})",
              file=sys.stderr)
        return 2
    if args.seconds < 1:
        print("run-fuzz: --seconds must be at least 1", file=sys.stderr)
        return 2
    shutil.rmtree(build / "findings", ignore_errors=True)
    results = []
    for target in wanted:
        binary = build / "fuzz" / target
        if not binary.is_file():
            print(f"run-fuzz: {binary} was not built", file=sys.stderr)
            return 2
        print(f"run-fuzz: {target} for {args.seconds}s", flush=True)
        seeds = source / "fuzz" / "corpus" / target
        results.append(run_target(binary, target, seeds, build, args.seconds))
    print()
    print_table(results)
    return report_failures(results, source)


def report_failures(results: list[dict], source: Path) -> int:
    failed = [r for r in results if r["failure"]]
    for r in failed:
        print(f"\n{r['target']}: {r['failure']} (log: {r['log']})")
        for f in r["found"]:
            rel = f.relative_to(source) if f.is_relative_to(source) else f
            print(f"  kept {rel}: fix the bug, then commit it as "
                  f"fuzz/corpus/{r['target']}/crash-<what> so the replay test keeps it fixed")
    if failed:
        print(f"\nfuzz: {len(failed)} of {len(results)} targets failed")
    else:
        print(f"\nfuzz: all {len(results)} targets ran clean")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
