#!/usr/bin/env python3
"""Checks scripts/run-fuzz.py without clang: stand-in targets print what libFuzzer prints and
drop the files it drops, so failure detection, kept findings and the untouched committed corpus
are judged on the runner alone."""
import importlib.util
import os
import subprocess
import sys
import tempfile
import textwrap
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
RUNNER = ROOT / "scripts" / "run-fuzz.py"
loader_of_runner = importlib.util.spec_from_file_location("run_fuzz", RUNNER)
run_fuzz = importlib.util.module_from_spec(loader_of_runner)
loader_of_runner.loader.exec_module(run_fuzz)

CLEAN_LOG = textwrap.dedent("""\
    INFO: Seed: 1
    #2\tINITED cov: 10 ft: 12 corp: 2/40b exec/s: 0 rss: 30Mb
    #1024\tpulse  cov: 11 ft: 15 corp: 3/50b lim: 4 exec/s: 512 rss: 31Mb
    #5000\tNEW    cov: 14 ft: 21 corp: 7/90b lim: 4 exec/s: 999 rss: 32Mb
    Done 5123 runs in 5 second(s)
    """)

# What a stand-in target does per failure kind: the log line, the artifact it drops, its exit code.
STAND_INS = {
    # {corp}: the files the target found in its working corpus, i.e. the seeds it was given.
    "ok": ("#77\tDONE cov: 5 ft: 6 corp: {corp}/1b\nDone 77 runs in 1 second(s)", None, 0),
    "crash": ("==1==ERROR: AddressSanitizer: heap-buffer-overflow on address 0x1", "crash-abc", 1),
    "leak": ("==1==ERROR: LeakSanitizer: detected memory leaks", "leak-abc", 1),
    "timeout": ("==1== ERROR: libFuzzer: timeout after 10 seconds", "timeout-abc", 70),
    "ubsan": ("x.cpp:3:5: runtime error: signed integer overflow", "crash-def", 1),
}


def write_stand_in(path: Path, kind: str) -> None:
    log, artifact, code = STAND_INS[kind]
    drop = ""
    if artifact:
        drop = f'''prefix = next(a.split("=", 1)[1] for a in sys.argv if a.startswith("-artifact_prefix="))
open(prefix + "{artifact}", "wb").write(b"boom")'''
    path.write_text(textwrap.dedent(f"""\
        #!{sys.executable}
        import sys, pathlib
        corp = len(list(pathlib.Path(sys.argv[1]).iterdir()))
        # Like libFuzzer, grow the first directory given (the working corpus).
        pathlib.Path(sys.argv[1], "new-input").write_bytes(b"x")
        print({log!r}.format(corp=corp))
        """) + drop + f"\nsys.exit({code})\n")
    path.chmod(0o755)


class ParseTest(unittest.TestCase):
    def test_last_status_line_and_done_count(self):
        self.assertEqual(run_fuzz.last_stats(CLEAN_LOG), {"execs": 5123, "cov": 14, "ft": 21, "corp": 7})

    def test_failure_kinds(self):
        cases = [
            ("", 0, None),
            ("", 3, "exit 3"),
            ("ERROR: AddressSanitizer: stack-buffer-overflow on", 1, "asan:stack-buffer-overflow"),
            ("ERROR: LeakSanitizer: detected memory leaks", 1, "leak"),
            ("ERROR: libFuzzer: timeout after 10 seconds", 1, "timeout"),
            ("ERROR: libFuzzer: out-of-memory (used: 2100Mb)", 1, "out-of-memory"),
            ("a.cpp:1:2: runtime error: load of misaligned address", 1, "ubsan"),
            ("ERROR: libFuzzer: deadly signal", 1, "crash"),
        ]
        for log, code, expected in cases:
            with self.subTest(log=log):
                self.assertEqual(run_fuzz.failure_kind(log, code), expected)

    def test_new_harness_files_are_discovered(self):
        with tempfile.TemporaryDirectory() as d:
            for name in ("fuzz_b.cpp", "fuzz_a.cpp", "replay_main.cpp", "fuzz_check.h"):
                Path(d, name).write_text("")
            self.assertEqual(run_fuzz.discover_targets(Path(d)), ["fuzz_a", "fuzz_b"])


class RunTest(unittest.TestCase):
    """End to end over a fake source tree whose targets are the stand-ins."""

    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.source = Path(self.tmp.name, "src")
        self.build = Path(self.tmp.name, "build")
        (self.build / "fuzz").mkdir(parents=True)
        for kind in STAND_INS:
            target = f"fuzz_{kind}"
            (self.source / "fuzz" / "corpus" / target).mkdir(parents=True)
            (self.source / "fuzz" / f"{target}.cpp").write_text("")
            for seed in ("seed_1", "crash-old"):
                (self.source / "fuzz" / "corpus" / target / seed).write_bytes(b"seed")
            write_stand_in(self.build / "fuzz" / target, kind)

    def tearDown(self):
        self.tmp.cleanup()

    def run_runner(self, targets: str):
        return subprocess.run([sys.executable, str(RUNNER), "--build", str(self.build), "--seconds", "1",
                               "--targets", targets, "--source", str(self.source)],
                              capture_output=True, text=True, timeout=120)

    def test_clean_target_passes_and_reports_its_figures(self):
        r = self.run_runner("fuzz_ok")
        self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
        row = next(line for line in r.stdout.splitlines() if line.startswith("fuzz_ok "))
        self.assertEqual(row.split(), ["fuzz_ok", "77", "5", "6", "2", "ok"])
        self.assertFalse((self.build / "findings" / "fuzz_ok").exists())

    def test_every_failure_kind_fails_and_keeps_its_reproducer(self):
        for kind in ("crash", "leak", "timeout", "ubsan"):
            with self.subTest(kind=kind):
                r = self.run_runner(f"fuzz_ok fuzz_{kind}")
                self.assertEqual(r.returncode, 1, r.stdout)
                artifact = STAND_INS[kind][1]
                self.assertTrue((self.build / "findings" / f"fuzz_{kind}" / artifact).is_file())
                self.assertIn(f"fuzz/corpus/fuzz_{kind}/crash-<what>", r.stdout)

    def test_committed_corpus_is_only_read(self):
        self.run_runner("fuzz_ok,fuzz_crash")
        for kind in ("ok", "crash"):
            folder = self.source / "fuzz" / "corpus" / f"fuzz_{kind}"
            self.assertEqual(sorted(os.listdir(folder)), ["crash-old", "seed_1"])

    def test_unknown_target_is_refused(self):
        r = self.run_runner("fuzz_nope")
        self.assertEqual(r.returncode, 2)
        self.assertIn("unknown target(s): fuzz_nope", r.stderr)


if __name__ == "__main__":
    unittest.main()
