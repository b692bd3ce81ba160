# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Results on a network file system that each machine sees through its own cache: sshfs, mounted once for the client and
once for the worker, which stand for two machines. It has no locks between them, and no exchange of folders."""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import threading
import unittest

from batch_case import BatchCase, free_port
from vorn_mv_batch.run import Run
from vorn_mv_batch.store import Store

SERVER = pathlib.Path("/usr/lib/openssh/sftp-server")


def can_share():
    return (shutil.which("sshfs") is not None and SERVER.is_file() and pathlib.Path("/dev/fuse").exists()
            and subprocess.run(["unshare", "--mount", "true"], capture_output=True).returncode == 0)


class LateRecordTest(unittest.TestCase):
    """A file system that shows what was there before another machine wrote."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="batch_test.")
        self.addCleanup(shutil.rmtree, self.folder)
        self.run = Run.__new__(Run)
        self.run.store = Store(self.folder)
        self.run.patience = 30
        self.run.fresh = {"part": "2026-11-22T10:00:05+00:00"}

    def write(self, started):
        place = pathlib.Path(self.run.store.job("part"))
        place.mkdir(parents=True, exist_ok=True)
        (place / "job.json").write_text(json.dumps({"started": started}))

    def test_waits_for_the_record_of_this_run(self):
        for before in (None, "2026-11-21T00:00:00+00:00"):
            if before:
                self.write(before)
            else:
                os.mkdir(self.run.store.jobs)
            late = threading.Timer(0.6, self.write, [self.run.fresh["part"]])
            late.start()
            self.assertEqual(self.run.record_of("part"), {"started": self.run.fresh["part"]})
            self.assertFalse(late.is_alive())

    def test_waits_no_longer_than_for_all_jobs_together(self):
        os.mkdir(self.run.store.jobs)
        self.run.patience = 0.5
        self.assertIsNone(self.run.record_of("part"))
        self.run.patience = 30
        self.run.fresh = {}
        self.assertIsNone(self.run.record_of("part"), "a job that this run has not done is not waited for")
        self.assertEqual(self.run.patience, 30)


@unittest.skipUnless(can_share(), "no sshfs, or no mount namespaces here")
class SharedFolderTest(BatchCase):
    """Inputs and results are there."""

    def setUp(self):
        super().setUp()
        self.served = self.folder / "served"
        (self.served / "in").mkdir(parents=True)
        (self.folder / "in").symlink_to(self.served / "in")
        shared = self.folder / "shared"
        shared.mkdir()
        self.out = shared / "out"
        connect = self.folder / "connect"
        connect.write_text(f"#!/bin/sh\nexec {SERVER}\n")
        connect.chmod(0o755)
        # The mount ends with the command that it is for.
        script = ('sshfs -f x:"$1" "$2" -o ssh_command="$0" & until mountpoint -q "$2"; do sleep 0.1; done; mount=$2; shift 2; '
                  '"$@"; status=$?; umount -l "$mount"; exit $status')
        self.machine = ["unshare", "--mount", "sh", "-c", script, str(connect), str(self.served), str(shared)]

    def run_elsewhere(self, port):
        process = self.start([*self.machine, *self.command("--scheduler", f"tcp://127.0.0.1:{port}",
                                                              inputs="shared/in/*")])
        _, errors = process.communicate(timeout=110)
        self.assertEqual(process.returncode, 0, errors)
        self.assertNotIn("Traceback", errors)
        return errors

    def test_two_machines_that_see_each_others_results_late(self):
        self.add_inputs(6)
        port = free_port()
        self.start_scheduler(port)
        worker = self.start_worker(port, *self.machine)
        errors = self.run_elsewhere(port)
        self.assertIn("no locks between machines", errors)
        self.add_input("part_03", "ok", "99")
        self.log.write_text("")
        # The first worker's machine would see the old file for some seconds more.
        os.killpg(worker.pid, signal.SIGKILL)
        self.start_worker(port, *self.machine)
        self.run_elsewhere(port)
        self.assertEqual(self.starts(), {"part_03": 1})
        self.out = self.served / "out"
        self.check_whole([f"part_{i:02}" for i in range(6)])
        lines = self.lines()
        self.assertEqual({line["status"] for line in lines.values()}, {"done"})
        self.assertEqual(lines["part_03"]["figures"], {"scan.width": 99})


if __name__ == "__main__":
    unittest.main()
