# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""The pages of commands other than a scan: what each shows at first, with units, and that the browser complains of none."""

import re
import struct

from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import Select

from page_browser import browser, check_silence, fail, open_page, pixels_of_view, run


def shown_of(driver):
    """{name: whether it is shown} of all that can be hidden."""
    return {label.text.strip(): label.find_element(By.TAG_NAME, "input").is_selected()
            for label in driver.find_elements(By.CSS_SELECTOR, "#shown label")}


def rows_of(driver):
    """{first cell: the others} of all tables of figures."""
    return {row[0]: row[1:] for row in driver.execute_script(
        "return [...document.querySelectorAll('section[aria-labelledby=figures-heading] tbody tr')]"
        ".map((row) => [...row.children].map((cell) => cell.textContent))")}


def deviations_of(ply):
    """The field "scalar_deviation" of a binary PLY file."""
    head, body = ply.read_bytes().split(b"end_header\n", 1)
    sizes = {b"float": 4, b"double": 8, b"uchar": 1, b"int": 4}
    kinds = re.findall(rb"property (\w+) (\w+)", head)
    place = [name for _, name in kinds].index(b"scalar_deviation")
    offset, stride = sum(sizes[kind] for kind, _ in kinds[:place]), sum(sizes[kind] for kind, _ in kinds)
    return [struct.unpack_from("<f", body, offset + stride * i)[0] for i in range(len(body) // stride)]


def check_align(folder):
    page, moved = folder / "align.html", folder / "moved.ply"
    run("align", folder / "view_0.ply", folder / "view_1.ply", "--search", "--allow-doubtful", "--moved", moved, "--html", page)
    present = sorted(abs(value) for value in deviations_of(moved) if value == value)
    reach = min(3 * 1.4826 * present[len(present) // 2], present[-1])
    beyond = sum(value > reach * (1 + 1e-4) for value in present)
    with browser() as driver:
        open_page(driver, page)
        if list(shown_of(driver).values()) != [True, False]:
            fail(f"An alignment shows {shown_of(driver)}")
        field = Select(driver.find_element(By.ID, "field")).first_selected_option.text
        high = driver.find_element(By.ID, "range-high").get_property("valueAsNumber")
        if field != "deviation, mm" or abs(high - reach) > 0.01 * reach:
            fail(f"An alignment is coloured by {field} up to {high}, not {reach}")
        told = driver.find_element(By.ID, "legend-beyond").text
        if abs(float(told.split()[0]) - 100 * beyond / len(present)) > 0.2:
            fail(f"An alignment with {beyond} of {len(present)} deviations beyond says {told}")
        driver.find_elements(By.CSS_SELECTOR, "#shown input")[0].click()
        if pixels_of_view(driver) != 0:
            fail("What is hidden of an alignment is seen")
        driver.find_elements(By.CSS_SELECTOR, "#shown input")[1].click()
        if pixels_of_view(driver) < 2000:
            fail("The target of an alignment is not shown")
        check_silence(driver, "align")


def check_fuse(folder, count):
    page = folder / "fuse.html"
    run("fuse", folder / "part", "--calib", folder / "part/scanner_truth.json", "-o", folder / "part.stl", "--html", page)
    with browser() as driver:
        open_page(driver, page)
        names = [f"view_{i:02}" for i in range(count)]
        if shown_of(driver) != {"surface": True, **dict.fromkeys(names, False)}:
            fail(f"A fused part shows {shown_of(driver)}")
        rows = rows_of(driver)
        for name in ("distance of points [mm]", "area [mm\u00b2]", "distance of views where they overlap, RMS [mm]", *names):
            if name not in rows:
                fail(f"A fused part has no figure {name}: {list(rows)}")
        Select(driver.find_element(By.ID, "field")).select_by_visible_text("distance from the surface, mm")
        for box in driver.find_elements(By.CSS_SELECTOR, "#shown input")[:2]:
            box.click()
        if pixels_of_view(driver) < 2000:
            fail("A view of a fused part is not shown")
        check_silence(driver, "fuse")


def check_check(folder):
    page = folder / "check.html"
    run("simulate", folder / "both", "--rows", "--no-calib", "--divisor", 6)
    run("check", folder / "both/scan", "--calib", folder / "both/scanner_truth.json", "--html", page)
    with browser() as driver:
        open_page(driver, page)
        bare = [name for name, cells in rows_of(driver).items()
                if "." in cells[0] and not re.search(r"\[[^]]+\]", name)]
        if bare or len(rows_of(driver)) < 8:
            fail(f"Of a check's figures these have no unit: {bare}")
        check_silence(driver, "check")


def check_commands(folder):
    count = 6  # more than enough overlap
    run("simulate", folder / "part", "--views", count, "--turntable", "--divisor", 4, "--no-calib")
    for i in range(2):
        run("scan", folder / f"part/view_0{i}", "--calib", folder / "part/scanner_truth.json", "-o", folder / f"view_{i}.ply")
    check_align(folder)
    check_fuse(folder, count)
    check_check(folder)
