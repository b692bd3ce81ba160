# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""What the tests of vorn-mv-batch share: inputs that say what becomes of them, runs, and clusters of processes."""

import collections
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

HERE = pathlib.Path(__file__).resolve().parent
BATCH = pathlib.Path(os.environ.get("VORN_MV_BATCH", HERE.parent.parent / "batch" / "vorn-mv-batch"))
FAKE_TOOL = HERE / "fake_tool"
# Long enough for a loaded machine; reached only by a fault.
PATIENCE = 120

sys.path.insert(0, str(BATCH.parent))


class BatchCase(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="batch_test."))
        self.out = self.folder / "out"
        self.log = self.folder / "log"
        self.log.touch()
        self.processes = []
        self.write_plan({"steps": [{"run": "scan {input} --out cloud.ply"}]})

    def tearDown(self):
        for process in self.processes:
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            for stream in (process.stdout, process.stderr):
                if stream is not None:
                    stream.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def write_plan(self, plan):
        (self.folder / "plan.json").write_text(json.dumps(plan))

    def add_input(self, name, do="ok", data=None):
        folder = self.folder / "in" / name
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "do").write_text(do)
        (folder / "data").write_text(str(10 + len(name)) if data is None else data)
        # As old as captured images are when a night's batch begins: their times alone tell that they have not changed.
        for file in folder.iterdir():
            os.utime(file, (1e9, 1e9))
        return folder

    def add_inputs(self, count, do="ok"):
        for i in range(count):
            self.add_input(f"part_{i:02}", do, str(20 + i / 16))

    def environment(self, **changes):
        return {**os.environ, "FAKE_LOG": str(self.log), "PYTHONDONTWRITEBYTECODE": "1", **changes}

    def command(self, *options, plan="plan.json", inputs="in/*", out=None, tool=FAKE_TOOL):
        return ["/usr/bin/python3", str(BATCH), str(self.folder / plan), str(self.folder / inputs), "--out",
                str(out or self.out), "--tool", str(tool), "--workers", "2", *map(str, options)]

    def run_batch(self, *options, status=0, environment=None, **choices):
        result = subprocess.run(self.command(*options, **choices), capture_output=True, text=True, timeout=PATIENCE,
                                env=environment or self.environment())
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        self.assertNotIn("Traceback", result.stderr)
        return result

    def start(self, words, **choices):
        """A process in a group of its own, which is ended with the test."""
        process = subprocess.Popen(words, env=self.environment(), start_new_session=True, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, **choices)
        self.processes.append(process)
        return process

    def start_quietly(self, words):
        process = subprocess.Popen(words, env=self.environment(PYTHONPATH=str(BATCH.parent)), start_new_session=True,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=self.folder)
        self.processes.append(process)
        return process

    def start_scheduler(self, port):
        return self.start_quietly(["dask-scheduler", "--host", "127.0.0.1", "--port", str(port), "--no-dashboard"])

    def start_worker(self, port, *before):
        return self.start_quietly([*before, "dask-worker", f"tcp://127.0.0.1:{port}", "--nthreads", "1", "--no-dashboard",
                                   "--memory-limit", "0", "--local-directory", str(self.folder / "dask")])

    def lines(self):
        """{job: its line} of results.jsonl, which has one of each."""
        lines = [json.loads(line) for line in (self.out / "results.jsonl").read_text().splitlines()]
        self.assertEqual(len(lines), len({line["job"] for line in lines}), "a job has two lines")
        return {line["job"]: line for line in lines}

    def starts(self):
        """How often the tool was started for each input."""
        return collections.Counter(line.split()[0] for line in self.log.read_text().splitlines())

    def done(self):
        return sorted(path.name for path in (self.out / "jobs").glob("*"))

    def wait_until(self, condition, what):
        until = time.monotonic() + PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), until, f"never: {what}")
            time.sleep(0.05)

    def check_whole(self, names):
        """Every result is there and whole, and nothing half done is left."""
        self.assertEqual(self.done(), sorted(names))
        for name in names:
            self.assertEqual((self.out / "jobs" / name / "cloud.ply").read_bytes(),
                             (self.folder / "in" / name / "data").read_bytes())
        self.assertEqual(list((self.out / ".work").iterdir()), [])


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]
