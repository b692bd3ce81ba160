# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Whole runs on a local cluster of processes: resuming, changes, choices, interruption, and the same bits as by hand."""

import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import unittest

from batch_case import FAKE_TOOL, HERE, BatchCase

REAL_TOOL = os.environ.get("VORN_MV_TOOL")


class ResumeTest(BatchCase):
    def test_does_only_what_is_missing_or_changed(self):
        (self.folder / "rig.json").write_text("{}")
        plan = {"files": {"calib": "rig.json"}, "steps": [{"run": "scan {input} --out cloud.ply --calib={calib}"}]}
        # The fake tool passes over what it does not know; the plan is checked against its help.
        plan["steps"][0]["run"] = ["scan", "{input}", "{calib}", "--out", "cloud.ply"]
        self.write_plan(plan)
        self.add_inputs(6)
        self.add_input("part_05", "fail")
        self.run_batch(status=1)
        names = [f"part_{i:02}" for i in range(6)]
        self.check_whole(names[:5])
        first = self.lines()
        self.assertEqual([first[name]["status"] for name in names], ["done"] * 5 + ["failed"])
        self.assertEqual(first["part_02"]["figures"], {"scan.width": 20.125})
        self.assertIn("no fringes (exit status 1)", first["part_05"]["error"]["text"])
        self.assertEqual(self.starts(), {**dict.fromkeys(names[:5], 1), "part_05": 2})

        self.log.write_text("")
        self.add_input("part_05")
        self.add_input("part_01", data="21")
        os.utime(self.folder / "in/part_02/data")  # touched, and still the same
        (self.out / "jobs/part_03/cloud.ply").write_text("")
        rehearsal = self.run_batch("--dry-run").stdout
        for text in ("part_01: its input has changed: data", "part_03: its files are to be read again",
                     "part_05: failed before: step scan", "3 of 6 jobs"):
            self.assertIn(text, rehearsal)
        self.assertEqual(self.lines(), first)
        self.assertEqual(self.starts(), {})
        self.run_batch()
        self.assertEqual(self.starts(), {"part_01": 1, "part_03": 1, "part_05": 1})
        self.check_whole(names)

        self.log.write_text("")
        self.assertIn("(0 by this run)", self.run_batch().stdout)
        self.assertEqual(self.starts(), {})
        (self.folder / "rig.json").write_text("{ }")
        self.assertIn("part_00: {calib} has changed\n", self.run_batch("--dry-run").stdout)
        environment = self.environment(FAKE_VERSION="10")
        self.assertIn("vorn-mv 9.9.9 is now 10", self.run_batch("--dry-run", environment=environment).stdout)
        rebuilt = self.folder / "rebuilt_tool"
        rebuilt.write_text(FAKE_TOOL.read_text() + "# compiled anew\n")
        rebuilt.chmod(0o755)
        self.assertIn("vorn-mv 9.9.9 is another build now", self.run_batch("--dry-run", tool=rebuilt).stdout)
        self.run_batch("--limit", 2)
        self.assertEqual(self.starts(), {"part_00": 1, "part_01": 1})
        self.run_batch()
        self.assertEqual(self.starts(), dict.fromkeys(names, 1))

    def test_only_failed_and_another_input_of_the_same_name(self):
        self.add_inputs(2)
        self.add_input("part_01", "fail")
        self.run_batch("--tries", 1, status=1)
        self.add_inputs(3)
        self.log.write_text("")
        self.run_batch("--only-failed")
        self.assertEqual(self.starts(), {"part_01": 1})
        shutil.copytree(self.folder / "in", self.folder / "copy")
        (self.folder / "copy/part_01/data").write_text("99")
        self.log.write_text("")
        text = self.run_batch("--tries", 1, inputs="copy/part_0[01]", status=1).stderr
        self.assertIn("part_01 holds the result of another input", text)
        self.assertEqual(self.starts(), {}, "the same content elsewhere is the same input")
        self.assertEqual((self.out / "jobs/part_01/cloud.ply").read_text(), str(20 + 1 / 16))


class InterruptTest(BatchCase):
    def test_ctrl_c_ends_the_run_and_leaves_what_is_done(self):
        self.add_inputs(12, "slow")
        process = self.start(self.command())
        self.wait_until(lambda: len(self.done()) >= 2, "two jobs done")
        os.killpg(process.pid, signal.SIGINT)  # as a terminal does
        _, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130, errors)
        self.assertNotIn("Traceback", errors)
        self.assertIn("interrupted; the same command goes on", errors)
        done = self.done()
        self.assertLess(len(done), 12)
        self.check_whole(done)
        self.assertEqual(sorted(self.lines()), done)
        before = self.starts()
        self.run_batch()
        self.check_whole([f"part_{i:02}" for i in range(12)])
        after = self.starts()
        self.assertEqual([name for name in done if after[name] != before[name]], [], "done twice")


@unittest.skipUnless(REAL_TOOL, "VORN_MV_TOOL names no tool")
class RealToolTest(BatchCase):
    def test_same_bits_as_by_hand_with_two_workers(self):
        self.check_bits(2)

    def test_same_bits_as_by_hand_with_one_worker(self):
        self.check_bits(1)

    def check_bits(self, workers):
        subprocess.run([REAL_TOOL, "simulate", self.folder / "line", "--line", "2", "--divisor", "8", "--no-calib", "--quiet"],
                       check=True)
        self.write_plan({
            "files": {"calib": "line/scanner_truth.json"},
            "steps": [{"run": "scan {input} --calib {calib} --xyz grid.tiff --out cloud.ply"},
                      {"run": "filter grid.tiff clean.ply --dz 4 --preview preview.png"}]})
        self.run_batch("--workers", workers, inputs="line/part_*", tool=REAL_TOOL)
        for part in sorted((self.folder / "line").glob("part_*")):
            by_hand = self.folder / "hand" / part.name
            by_hand.mkdir(parents=True)
            for words in (["scan", part, "--calib", self.folder / "line/scanner_truth.json", "--xyz", "grid.tiff", "--out",
                           "cloud.ply"], ["filter", "grid.tiff", "clean.ply", "--dz", "4", "--preview", "preview.png"]):
                subprocess.run([REAL_TOOL, *words], cwd=by_hand, check=True, capture_output=True)
            for file in ("cloud.ply", "grid.tiff", "clean.ply", "preview.png"):
                self.assertEqual((self.out / "jobs" / part.name / file).read_bytes(), (by_hand / file).read_bytes(),
                                 f"{part.name}/{file}")
        for name, line in self.lines().items():
            report = json.loads((self.out / "jobs" / name / "scan.json").read_text())
            self.assertEqual(line["figures"]["scan.points"], report["points"])
            self.assertEqual(line["settings"]["scan"], report["settings"])
            hashes = {entry["path"]: entry["sha256"] for entry in report["inputs"]}
            for entry in line["inputs"]:
                path = str(pathlib.Path(line["input"]) / entry["path"])
                if path in hashes:
                    self.assertEqual(entry["sha256"], hashes[path])

    def test_the_summary_of_the_line_shows_its_drift_and_its_faulty_parts(self):
        subprocess.run([REAL_TOOL, "simulate", self.folder / "line", "--line", "30", "--divisor", "4", "--no-calib", "--quiet"],
                       check=True)
        shutil.copy(HERE.parent.parent / "examples" / "line_plan.json", self.folder / "plan.json")
        self.run_batch(inputs="line/part_*", tool=REAL_TOOL)
        page = (self.out / "summary.html").read_text()
        glance = page[page.index("At a glance"):page.index("What stands out")]
        parts = json.loads((self.folder / "line/line_truth.json").read_text())
        faulty = {f"part_{i:02}" for i, part in enumerate(parts, 1) if part["fault"]}
        self.assertEqual(set(re.findall(r"part_\d\d(?=</a>)", glance)), faulty)
        drift = float(re.search(r"<b>height</b> drifts: .*?, ([+-][\d.]+) mm", glance).group(1))
        # From the first to the last fifth, whose middles lie a fifth of the line from its ends together.
        self.assertAlmostEqual(drift, 0.8 * 1.5, delta=0.15)
        heights = [line["figures"]["size.files.0.box.size.2"] for line in self.lines().values()]
        offsets = [measured - part["height"] for measured, part in zip(heights, parts) if not part["fault"]]
        self.assertLess(max(offsets) - min(offsets), 0.4, "the measured heights follow the true ones")
        for name in faulty:
            self.assertIn(f'<a href="jobs/{name}/page.html">{name}</a>', page)


class ToolThreadsTest(BatchCase):
    def test_each_job_is_told_its_threads(self):
        tool = self.folder / "tool"
        tool.write_text(f'#!/bin/sh\n[ "$3" = --out ] && echo "threads $OPENCV_FOR_THREADS_NUM"\nexec {FAKE_TOOL} "$@"\n')
        tool.chmod(0o755)
        self.add_inputs(1)
        for options, expected in (((), "threads 1\n"), (("--threads", 3, "--again"), "threads 3\n")):
            self.run_batch(*options, tool=tool)
            self.assertEqual((self.out / "jobs/part_00/scan.out").read_text(), expected)


if __name__ == "__main__":
    unittest.main()
