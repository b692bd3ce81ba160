#!/usr/bin/python3
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""page_faults.py VORN_MV [NAME...]: puts faults that people make into a page's script, one at a time, and fails if the
tests of the view do not notice one."""

import base64
import hashlib
import pathlib
import re
import sys
import tempfile

import page_browser
import page_shapes
import page_view

# What is wrong, what stands in the script, what the fault makes of it.
FAULTS = {
    "axes swapped": ("result[3 * places[n] + axis] = origin", "result[3 * places[n] + [1, 0, 2][axis]] = origin"),
    "picture mirrored": ("camera.left = -camera.right;", "camera.left = camera.right;\n      camera.right = -camera.left;"),
    "quantisation a step off": ("block[1 + axis] + this.steps[axis][n] * block[4 + axis]",
                                "block[1 + axis] + (this.steps[axis][n] + 1) * block[4 + axis]"),
    "origin of the block before": ("if (starts[middle] <= point) {", "if (starts[middle] < point) {"),
    "field's lowest value off": ("facts.low + (word - 1) * facts.step", "facts.low + (word - 40) * facts.step"),
    "none taken for a number": ("return word === 0 ? NaN :", "return"),
    "pick off by one": ("found.shown.cloud.point(found.place)", "found.shown.cloud.point(found.place + 1)"),
    "values of another point": ("cloud.value(number, pick.place), 3)", "cloud.value(number, pick.place + 1), 3)"),
    "distance without depth": ("formatted(Math.hypot(...step), 3)", "formatted(Math.hypot(step[0], step[1]), 3)"),
    "nearest point behind": ("b.depth < a.depth ? b : a", "b.depth > a.depth ? b : a"),
    "legend's colours reversed": ("table[Math.round((1 - y / (rows - 1)) * (table.length - 1))]",
                                  "table[Math.round((y / (rows - 1)) * (table.length - 1))]"),
    "legend's numbers reversed": ("formatted(high - (high - low) * i / (count - 1), decimals)",
                                  "formatted(low + (high - low) * i / (count - 1), decimals)"),
    "unit missing": ("`${this.way.name} [${this.way.unit}]`", "this.way.name"),
    "colours of the wrong field": ("this.cloud.value(way.number, place);", "this.cloud.value(0, place);"),
    "map of the wrong kind": ('field.isSigned ? "signed" : "value"', 'field.isSigned ? "value" : "signed"'),
    "range of the wrong field": ("this.range = range || this.way.range;", "this.range = range || this.ways[0].range;"),
    "section's sign": ("normal[number] = 1;", "normal[number] = -1;"),
    "section of the picture alone": ("isKept(x, y, z) {", "isKept(x, y, z) {\n    return true;"),
    "hidden cloud picked": ("const clouds = this.clouds.filter((shown) => shown.object.visible);",
                            "const clouds = this.clouds;"),
    "hidden cloud counted": ("this.clouds.filter((cloud) => cloud.object.visible)", "this.clouds"),
    "cloud hidden late": ("thing.object.visible = box.checked;", "setTimeout(() => thing.object.visible = box.checked, 9e3);"),
    "old frame exported": ("view.drawNow();\n    drawPicture(", "drawPicture("),
    "theme not applied": ("document.documentElement.dataset.theme = isDark()", "document.body.dataset.theme = isDark()"),
    "triangles of the stored order": ("return corners.map((n) => places[n]);", "return corners;"),
    "red and blue swapped": ("result[3 * place] = (words[n] >> 11) * 255 / 31;",
                             "result[3 * place] = (words[n] & 31) * 255 / 31;"),
}


class Noticed(Exception):
    """A test has failed."""


def notice(text):
    raise Noticed(text)


def with_fault(page, before, after):
    """The page with one part of its script exchanged, and the policy that lets it run."""
    text = page.read_text()
    start = text.rindex("<script>") + len("<script>")
    end = text.index("</script>", start)
    script = text[start:end]
    if script.count(before) != 1:
        raise SystemExit(f"The script has {script.count(before)} places \"{before}\"")
    faulty = script.replace(before, after)

    def known(code):
        return base64.b64encode(hashlib.sha256(code.encode()).digest()).decode()

    return (text[:start] + faulty + text[end:]).replace(known(script), known(faulty))


def main():
    missed = []
    for module in (page_browser, page_shapes, page_view):
        module.fail = notice
    with tempfile.TemporaryDirectory() as name:
        files = page_browser.make_scan(pathlib.Path(name))
        for number, (what, (before, after)) in enumerate(FAULTS.items()):
            if sys.argv[2:] and what not in sys.argv[2:]:
                continue
            folder = pathlib.Path(name) / str(number)
            folder.mkdir()
            template = folder / "template.html"
            template.write_text(with_fault(files["scan.html"], before, after))
            try:
                page_shapes.check_shapes(template, folder)
                page_view.check_view(template, folder)
                missed.append(what)
                print(f"{what}: NOT NOTICED", flush=True)
            except Noticed as noticed:
                print(f"{what}: {re.sub(chr(10), ' ', str(noticed))[:160]}", flush=True)
    return bool(missed)


sys.exit(main())
