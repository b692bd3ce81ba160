# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""What the summary says about figures: faulty parts and drifts found, and nothing found where there is nothing."""

import random
import re
import tempfile
import unittest
import xml.etree.ElementTree

import batch_case  # noqa: F401, it finds the package
from vorn_mv_batch.charts import control_chart
from vorn_mv_batch.plan import Figure, Plan, Step
from vorn_mv_batch.series import Series, course, judge, rank_correlation
from vorn_mv_batch.store import Store
from vorn_mv_batch.summary import Collector, Summary, cause_of

TRIALS = 40


def noisy(count, sigma, drift=0.0, seed=0):
    source = random.Random(seed)
    return [50 + drift * i / (count - 1) + source.gauss(0, sigma) for i in range(count)]


class SeriesTest(unittest.TestCase):
    def test_finds_faulty_parts_on_a_drift_and_no_others(self):
        for seed in range(TRIALS):
            values = noisy(50, 0.03, 1.5, seed)
            values[17] -= 12
            values[34] += 1.0
            judgement = judge(values)
            self.assertEqual(judgement.outliers(), [17, 34], f"seed {seed}")
            self.assertAlmostEqual(judgement.drift, 1.2, delta=0.15, msg=f"seed {seed}")

    def test_says_nothing_about_noise(self):
        drifts = outliers = 0
        for seed in range(TRIALS):
            judgement = judge(noisy(200, 0.03, 0, seed))
            drifts += judgement.drift != 0
            outliers += len(judgement.outliers())
            # The moving range estimates sigma to a few per cent of 200 values.
            self.assertAlmostEqual(judgement.sigma, 0.03, delta=0.012, msg=f"seed {seed}")
        self.assertEqual((drifts, outliers), (0, 0))

    def test_a_steep_drift_makes_no_outlier_at_its_ends(self):
        for count in (8, 12, 50, 51):
            self.assertEqual(judge(noisy(count, 0.01, 40)).outliers(), [], count)
        self.assertEqual([round(value, 6) for value in course([2.0 * i for i in range(30)])],
                         [2.0 * i for i in range(30)])

    def test_faulty_parts_hide_no_drift_of_a_short_series(self):
        values = noisy(14, 0.03, 1.5)
        values[4], values[9] = 8.6, 0.6
        judgement = judge(values)
        self.assertEqual(judgement.outliers(), [4, 9])
        # From the middle of the first three ordinary values to that of the last three.
        self.assertAlmostEqual(judgement.drift, 1.5 * 11 / 13, delta=0.1)

    def test_names_of_neighbours_do_not_stand_over_each_other(self):
        values = noisy(120, 0.03)
        for index in (40, 41, 43, 44, 45, 110, 112):
            values[index] += 9 + 0.01 * index
        chart = control_chart(Series("height", jobs=list(range(120)), values=values), judge(values),
                              [f"part_{i:03}" for i in range(120)])
        root = xml.etree.ElementTree.fromstring(chart)
        boxes = []
        for text in root.iter("text"):
            if text.get("class") == "name":
                x, width = float(text.get("x")), 6.5 * len(text.text)  # letters of 11 px, bold
                boxes.append((x - width if text.get("text-anchor") == "end" else x, float(text.get("y")), width))
        self.assertGreaterEqual(len(boxes), 4)
        for i, (x, y, width) in enumerate(boxes):
            for other_x, other_y, other_width in boxes[:i]:
                self.assertTrue(abs(y - other_y) >= 11 or x + width <= other_x or other_x + other_width <= x, boxes)

    def test_one_count_among_equal_ones_stands_out(self):
        values = [0.0] * 40
        values[11] = 7.0
        self.assertEqual(judge(values).outliers(), [11])
        self.assertEqual(judge([5.0] * 40).outliers(), [])
        self.assertEqual(judge([3.0]).outliers(), [])

    def test_rank_correlation_with_ties(self):
        # By hand: places 0 1 2 3 and ranks 0.5 0.5 2 3.
        self.assertAlmostEqual(rank_correlation([1, 1, 2, 3]), 4.5 / (4.5 * 5) ** 0.5, places=12)
        self.assertEqual(rank_correlation([4, 4, 4]), 0)


class SummaryTest(unittest.TestCase):
    def page(self, lines, figures=()):
        collector = Collector(Plan("plan.json", "A <line>", (Step("scan", ("scan",)),), figures=figures))
        for index, (state, line) in enumerate(lines):
            collector.add(f"part & {index:02}", state, line)
        with tempfile.TemporaryDirectory() as folder:
            return Summary(collector, Store(folder)).page()

    def line(self, **figures):
        return {"seconds": 1.0, "warnings": [], "figures": {f"scan.{name}": value for name, value in figures.items()}}

    def test_names_what_stands_out_and_groups_failures(self):
        lines = [("done", self.line(width=value, same=1)) for value in noisy(50, 0.03, 1.5)]
        lines[20][1]["figures"]["scan.width"] = 70.0
        for index in (3, 4):
            lines[index] = ("failed", {"error": {"text": f"step scan: vorn-mv: /n/part_{index}/c_0{index}.png: dark"}})
        lines[5] = ("open", None)
        page = self.page(lines, (Figure("width", "scan.width", "mm", 49, 52), Figure("depth", "scan.depth")))
        body = page[page.index("<body>"):]
        self.assertRegex(body, r"<b>width</b> drifts: from 50\.\d+ to 51\.\d+ mm, \+1\.\d+ mm over 47 jobs")
        self.assertRegex(body, r"part &amp; 20</a>: width 70 mm: out of tolerance")
        self.assertIn("no report has the figure depth", body)
        self.assertEqual(body.count("class='count'>2<"), 1, "two failures of one cause are one group")
        self.assertIn("A &lt;line&gt;", page)
        self.assertNotIn("A <line>", page)
        # It is well formed but for what HTML leaves open.
        closed = re.sub(r"<(meta|img)([^>]*)>", r"<\1\2/>", body.replace("</html>", "").strip())
        xml.etree.ElementTree.fromstring(closed.replace(' loading="lazy"', ""))
        self.assertNotRegex(page, r'(src|href)="(https?:)?//')

    def test_holds_with_nothing_and_with_much(self):
        self.page([])
        self.page([("failed", {"error": {"text": "x"}})])
        self.page([("done", self.line(width=1))])
        many = self.page([("done", self.line(width=value)) for value in noisy(10000, 1)])
        self.assertLess(len(many), 700_000)

    def test_causes_are_without_names_and_numbers(self):
        self.assertEqual(cause_of('step scan: vorn-mv: /a/b 1/c_03.png: 3.5 of "x" (exit status 1)'),
                         cause_of('step scan: vorn-mv: /a/d 2/c_17.png: 12 of "y" (exit status 1)'))
        self.assertNotEqual(cause_of("a: too dark"), cause_of("a: too bright"))


if __name__ == "__main__":
    unittest.main()
