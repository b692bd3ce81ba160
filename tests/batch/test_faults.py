# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Faults on real clusters of processes: nothing is lost, nothing is done twice, and what failed is listed."""

import contextlib
import os
import pathlib
import signal
import subprocess
import unittest

from batch_case import BatchCase, free_port


def can_unshare():
    return subprocess.run(["unshare", "--mount", "true"], capture_output=True).returncode == 0


def names(count):
    return [f"part_{i:02}" for i in range(count)]


class JobFaultTest(BatchCase):
    def test_crashes_hangs_refusals_and_poison_cost_their_own_job(self):
        self.add_inputs(10)
        for name, do in (("a_crash", "crash"), ("b_hang", "hang"), ("c_fail", "fail"), ("d_poison", "poison")):
            self.add_input(name, do)
        result = self.run_batch("--time-limit", 4, "--tries", 2, status=1)
        self.check_whole(names(10))
        lines = self.lines()
        for name, cause, text in (("a_crash", "crash", "killed by SIGSEGV"), ("b_hang", "time", "not done after 4 s"),
                                  ("c_fail", "tool", "vorn-mv: "), ("d_poison", "lost", "2 workers were lost")):
            self.assertEqual((lines[name]["status"], lines[name]["error"]["cause"]), ("failed", cause), lines[name])
            self.assertIn(text, lines[name]["error"]["text"])
            self.assertIn(f"{name}: failed: ", result.stderr)
            self.assertTrue((self.out / "failed" / name / "job.json").is_file())
            self.assertIn(f'<a href="failed/{name}/">', (self.out / "summary.html").read_text())
            # A failure may be lost with a worker that dies of the job beside it, and is then one more.
            self.assertIn(self.starts()[name], (2, 3) if cause != "lost" else (2,), f"tries of {name}")
        self.assertEqual({self.starts()[name] for name in names(10)}, {1}, "an innocent job was done twice")
        running = subprocess.run(["pgrep", "-f", str(self.folder)], capture_output=True, text=True).stdout
        self.assertEqual(running, "", "processes are left")

    def test_a_killed_worker_costs_nothing(self):
        self.add_inputs(6, "slow")
        self.add_input("part_03", "poison-once")
        self.run_batch(environment=self.environment(FAKE_SECONDS="0.3"))
        self.check_whole(names(6))
        self.assertEqual(self.starts()["part_03"], 2)
        self.assertTrue(all(line["status"] == "done" for line in self.lines().values()))

    def test_an_input_that_changes_is_said(self):
        self.add_inputs(4)
        self.add_input("part_01", "change")
        self.assertIn("part_01: failed: ", self.run_batch(status=1).stderr)
        self.assertEqual(self.lines()["part_01"]["error"]["cause"], "changed")
        self.check_whole(["part_00", "part_02", "part_03"])

    def test_an_input_that_changed_after_its_job_is_said(self):
        self.add_input("part_00")
        self.add_inputs(6, "slow")
        process = self.start(self.command())
        self.wait_until(lambda: "part_01" in self.done(), "the first job done")
        with open(self.folder / "in/part_01/data", "a", encoding="utf-8") as file:
            file.write("late")
        _, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 1, errors)
        self.assertIn("part_01: changed since its job was done: data", errors)
        self.assertEqual(self.lines()["part_01"]["changedSince"], "data")
        self.run_batch()
        self.check_whole(names(6))


class RunFaultTest(BatchCase):
    def test_a_second_run_into_the_folder_is_refused(self):
        self.add_inputs(4, "slow")
        process = self.start(self.command())
        self.wait_until(lambda: self.starts(), "a job began")
        self.assertIn(f"process {process.pid} on ", self.run_batch(status=1).stderr)
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 0)
        self.assertEqual(self.starts(), dict.fromkeys(names(4), 1))

    def test_nobody_else_can_reach_the_workers(self):
        self.add_inputs(1, "hang")
        process = self.start(self.command())
        self.wait_until(lambda: self.starts(), "the job began")
        sockets = {}
        for kind in ("tcp", "tcp6"):
            for line in pathlib.Path(f"/proc/net/{kind}").read_text().splitlines()[1:]:
                words = line.split()
                if words[3] == "0A":  # listening
                    sockets[words[9]] = words[1]
        group = subprocess.run(["pgrep", "-g", str(process.pid)], capture_output=True, text=True, check=True).stdout.split()
        addresses = []
        for pid in group:
            for handle in pathlib.Path(f"/proc/{pid}/fd").iterdir():
                with contextlib.suppress(OSError):
                    target = os.readlink(handle)
                    if target.startswith("socket:"):
                        addresses += [sockets[target[8:-1]]] if target[8:-1] in sockets else []
        self.assertGreaterEqual(len(addresses), 2)
        self.assertEqual([address for address in addresses if not address.startswith("0100007F:")], [])

    def test_a_killed_run_goes_on(self):
        self.add_inputs(10, "slow")
        self.add_input("part_03", "hang")
        process = self.start(self.command())
        self.wait_until(lambda: len(self.done()) >= 3 and self.starts()["part_03"], "three jobs done and one hangs")
        process.kill()
        process.wait()
        self.wait_until(lambda: not subprocess.run(["pgrep", "-f", f"scan {self.folder}"], capture_output=True).stdout,
                        "its tools end with it")
        self.add_input("part_03", "ok", "5")
        done, before = self.done(), self.starts()
        self.run_batch()
        self.check_whole(names(10))
        self.assertEqual([name for name in done if self.starts()[name] != before[name]], [], "done twice")
        self.assertEqual(sorted(self.lines()), names(10))

    def test_a_folder_that_cannot_be_written_is_said_at_once(self):
        self.add_inputs(1)
        (self.folder / "file").write_text("")
        text = self.run_batch(out=self.folder / "file" / "out", status=1).stderr
        self.assertIn("cannot write results", text)
        self.assertEqual(self.starts(), {})

    @unittest.skipUnless(can_unshare(), "no mount namespaces here")
    def test_a_folder_that_may_not_be_written_is_said_at_once(self):
        self.add_inputs(1)
        self.out.mkdir()
        script = 'mount -t tmpfs -o ro tmpfs "$0" && exec "$@"'
        process = self.start(["unshare", "--mount", "sh", "-c", script, str(self.out), *self.command()])
        _, errors = process.communicate(timeout=60)
        self.assertEqual((process.returncode, len(errors.splitlines())), (1, 1), errors)
        self.assertIn(f"cannot write results: {self.out}", errors)
        self.assertIn("Read-only file system", errors)
        self.assertEqual(self.starts(), {})

    @unittest.skipUnless(can_unshare(), "no mount namespaces here")
    def test_a_full_disk_under_the_results_is_said_and_mended_by_the_next_run(self):
        self.add_inputs(40)
        self.out.mkdir()
        words = self.command()
        script = 'mount -t tmpfs -o size=96k tmpfs "$0" && shift 0 && "$@"; status=$?; cp -r "$0/." "$0.copy"; exit $status'
        process = self.start(["unshare", "--mount", "sh", "-c", script, str(self.out), *words])
        _, errors = process.communicate(timeout=90)
        self.assertEqual(process.returncode, 1, errors)
        self.assertNotIn("Traceback", errors)
        self.assertIn("No space left on device", errors)
        # What was there is whole, and the same command goes on from it where there is room.
        (self.folder / "out.copy").rename(self.out) if not any(self.out.iterdir()) and self.out.rmdir() is None else None
        done, before = self.done(), self.starts()
        for name in done:
            self.assertEqual((self.out / "jobs" / name / "cloud.ply").read_bytes(),
                             (self.folder / "in" / name / "data").read_bytes())
        self.assertLess(len(done), 40)
        self.run_batch()
        self.check_whole(names(40))
        self.assertEqual([name for name in done if self.starts()[name] != before[name]], [], "done twice")


class ClusterFaultTest(BatchCase):
    @unittest.skipUnless(can_unshare(), "no mount namespaces here")
    def test_a_full_disk_on_one_worker(self):
        self.add_inputs(12)
        (self.out / ".work").mkdir(parents=True)
        port = free_port()
        self.start_scheduler(port)
        full = ('mount -t tmpfs -o size=16k tmpfs "$0" && head -c 16384 /dev/zero > "$0/filler" 2> /dev/null; exec "$@"')
        self.start_worker(port, "unshare", "--mount", "sh", "-c", full, str(self.out / ".work"))
        self.start_worker(port)
        subprocess.run(["/usr/bin/python3", "-c", "import sys, distributed\n"
                        "distributed.Client(sys.argv[1], timeout=60).wait_for_workers(2)", f"tcp://127.0.0.1:{port}"],
                       check=True, timeout=90)
        self.run_batch("--scheduler", f"tcp://127.0.0.1:{port}")
        self.check_whole(names(12))

    def test_a_scheduler_that_is_started_again(self):
        self.add_inputs(10, "slow")
        port = free_port()
        cluster = [self.start_scheduler(port), self.start_worker(port), self.start_worker(port)]
        process = self.start(self.command("--scheduler", f"tcp://127.0.0.1:{port}", "--wait", 60))
        self.wait_until(lambda: len(self.done()) >= 3, "three jobs done")
        cluster[0].kill()
        self.wait_until(lambda: cluster[0].poll() is not None, "the scheduler is gone")
        for worker in cluster[1:]:
            os.killpg(worker.pid, signal.SIGKILL)
        self.start_scheduler(port)
        self.start_worker(port)
        self.start_worker(port)
        _, errors = process.communicate(timeout=110)
        self.assertEqual(process.returncode, 0, errors)
        self.assertIn("is gone; waiting", errors)
        self.check_whole(names(10))
        # What ran at that moment began again; what was done was not.
        self.assertLessEqual(sum(self.starts().values()), 12)

    def test_no_scheduler_and_no_workers_are_said(self):
        self.add_inputs(2)
        port = free_port()
        address = f"tcp://127.0.0.1:{port}"
        self.assertIn("no scheduler answers", self.run_batch("--scheduler", address, "--wait", 1, status=1).stderr)
        self.start_scheduler(port)
        self.assertIn("there is no worker", self.run_batch("--scheduler", address, "--wait", 4, status=1).stderr)
        self.assertEqual(self.starts(), {})


if __name__ == "__main__":
    unittest.main()
