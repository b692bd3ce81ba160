# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Plans, inputs and names of jobs: what is taken, and that what is refused is named."""

import subprocess
import unittest

from batch_case import BATCH, HERE, BatchCase
from vorn_mv_batch import UsageError
from vorn_mv_batch.inputs import check_apart, find_inputs, name_jobs
from vorn_mv_batch.plan import read_plan

SCAN = {"run": "scan {input} --out cloud.ply"}


class PlanTest(BatchCase):
    def plan(self, document):
        self.write_plan(document)
        return read_plan(str(self.folder / "plan.json"))

    def test_fills_placeholders_word_by_word(self):
        (self.folder / "rig.json").write_text("{}")
        plan = self.plan({"files": {"calib": "rig.json"}, "values": {"radius": 1.5, "count": 4, "label": "two words"},
                          "steps": [{"run": "scan {input} --calib={calib} '{label}' {{x}}"},
                                    {"name": "clean", "run": ["filter", "{out}/{name}.ply", "--outlier", "{radius}",
                                                              "{count}", 0.25]}]})
        self.assertEqual(plan.commands("/data/a b", "a b"), [
            ["scan", "/data/a b", f"--calib={self.folder}/rig.json", "two words", "{x}"],
            ["filter", "./a b.ply", "--outlier", "1.5", "4", "0.25"]])

    def test_refuses_what_it_does_not_understand_and_names_it(self):
        step = "step 1"
        for document, *expected in (
                ({"steps": []}, "steps", "at least one"),
                ({"steps": [SCAN], "step": 1}, '"step"'),
                ({"steps": ["scan"]}, step, "object"),
                ({"steps": [{"run": "scan", "accepts": [0]}]}, step, '"accepts"'),
                ({"steps": [{"run": "scan {inptu}"}]}, step, "scan", "{inptu}", "{input}"),
                ({"steps": [SCAN, {"name": "clean", "run": "filter {calib}"}]}, "step 2", "clean", "{calib}"),
                ({"steps": [{"run": "scan {input"}]}, step, "single {"),
                ({"steps": [{"run": "scan 'x"}]}, step, "quotation"),
                ({"steps": [{"run": ["scan", True]}]}, step, "true"),
                ({"steps": [{"run": "{input}"}]}, step, "name"),
                ({"steps": [SCAN, SCAN]}, "steps 1 and 2", '"scan"'),
                ({"steps": [{**SCAN, "name": "a/b"}]}, step, "a/b"),
                ({"steps": [{**SCAN, "name": "job"}]}, step, "job.json"),
                ({"steps": [{**SCAN, "timeLimit": 0}]}, "scan", "timeLimit"),
                ({"steps": [{**SCAN, "accept": ["0"]}]}, "scan", "accept"),
                ({"steps": [SCAN], "files": {"calib": "none.json"}}, "files.calib", "none.json"),
                ({"steps": [SCAN], "values": {"input": 1}}, "values.input", "{input}"),
                ({"steps": [SCAN], "values": {"radius": 1}}, "{radius}", "no step"),
                ({"steps": [SCAN], "figures": {"w": "scann.width"}}, "figures.w", '"scann"'),
                ({"steps": [SCAN], "figures": {"w": {"from": "scan.w", "low": 2, "high": 1}}}, "figures.w", "low"),
                ({"steps": [SCAN], "tries": 0}, "tries"),
                ({"steps": [SCAN], "preview": "../x.png"}, "preview")):
            with self.subTest(document=document), self.assertRaises(UsageError) as caught:
                self.plan(document)
            for text in expected:
                self.assertIn(text, str(caught.exception), document)
        (self.folder / "plan.json").write_text('{"steps": 1, "steps": 2}')
        with self.assertRaisesRegex(UsageError, '"steps" stands twice'):
            read_plan(str(self.folder / "plan.json"))

    def test_asks_the_tool_for_commands_and_options(self):
        self.add_input("a")
        for run, expected in (("scna {input}", 'no command "scna"; did you mean scan?'),
                              ("scan {input} --ouy x", "no option --ouy; did you mean --out?")):
            self.write_plan({"steps": [{"run": run}]})
            self.assertIn(expected, self.run_batch(status=2).stderr)
        self.assertFalse(self.out.exists())

    def test_the_digest_is_of_what_decides_results(self):
        base = {"steps": [{"run": "scan {input} {x}"}], "values": {"x": 1}}
        digest = self.plan(base).digest()
        for change in ({"name": "other"}, {"tries": 5}, {"threads": 2}, {"timeLimit": 9},
                       {"figures": {"w": "scan.width"}}):
            self.assertEqual(self.plan({**base, **change}).digest(), digest, change)
        for change in ({"values": {"x": 2}}, {"steps": [{"run": "scan {input} {x} --fast"}]},
                       {"steps": [{"run": "scan {input} {x}", "accept": [0, 3]}]}):
            self.assertNotEqual(self.plan({**base, **change}).digest(), digest, change)

    def test_the_plan_on_the_page_is_that_of_the_examples(self):
        page = (HERE.parent.parent / "docs" / "batch.md").read_text()
        shown = page[page.index("```json\n") + 8:]
        self.assertEqual(shown[:shown.index("```")], (HERE.parent.parent / "examples" / "line_plan.json").read_text())


class InputTest(BatchCase):
    def test_lists_patterns_and_files_of_names(self):
        for name in ("view_10", "view_9", "other"):
            self.add_input(name)
        names = self.folder / "names.txt"
        names.write_text("# a night\nin/other\n\nin/view_*\n")
        base = f"{self.folder}/in/"
        self.assertEqual(find_inputs([base + "view_*"]), [base + "view_9", base + "view_10"])
        self.assertEqual(find_inputs([f"@{names}"]), [base + "other", base + "view_9", base + "view_10"])
        for words, expected in (([base + "other", base + "*"], "twice"), ([base + "none"], "no such"),
                                ([base + "none*"], "nothing matches"), ([f"@{self.folder}/none.txt"], "No such")):
            with self.subTest(words=words), self.assertRaisesRegex(UsageError, expected):
                find_inputs(words)
        names.write_text("in/other\nin/gone\n")
        with self.assertRaisesRegex(UsageError, "line 2: in/gone"):
            find_inputs([f"@{names}"])

    def test_names_jobs_apart(self):
        paths = ["/night/1/scan", "/night/2/scan"]
        with self.assertRaisesRegex(UsageError, "/night/1/scan and /night/2/scan .*--name"):
            name_jobs(paths, "{folder}")
        self.assertEqual(list(name_jobs(paths, "{parent}_{folder}")), ["1_scan", "2_scan"])
        for template in ("{folder.__class__}", "{}", "{0}", "{grand}", "a/{parent}", ".{parent}"):
            with self.subTest(template=template), self.assertRaises(UsageError):
                name_jobs(paths, template)

    def test_results_and_inputs_lie_apart(self):
        folder = self.add_input("a")
        for inputs, out in (([folder], folder / "out"), ([folder], folder), ([folder], folder.parent)):
            with self.assertRaises(UsageError):
                check_apart([str(path) for path in inputs], str(out))
        check_apart([str(folder)], str(folder) + "_out")


class HelpTest(unittest.TestCase):
    def test_manual_and_completion_have_every_option(self):
        text = subprocess.run(["/usr/bin/python3", str(BATCH), "--help"], capture_output=True, text=True, check=True).stdout
        options = {word.strip(",]") for word in text.replace("[", " ").split() if word.startswith("--")}
        self.assertGreater(len(options), 12)
        manual = (BATCH.parent / "vorn-mv-batch.1").read_text().replace("\\-", "-")
        completion = (BATCH.parent / "vorn-mv-batch.bash").read_text()
        for option in options:
            self.assertRegex(manual, rf"(?m)^\.B[IR]? .*{option}\b", f"{option} is not in the manual")
            self.assertRegex(completion, rf"{option}\b", f"{option} is not completed")


if __name__ == "__main__":
    unittest.main()
