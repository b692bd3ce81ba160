#!/usr/bin/python3
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""check_page.py VORN_MV [--all]: the pages that the tool writes, in a real browser: Chromium, headless, with WebGL by
its own software. Without --all one page is looked at: it opens without a message, shows what the camera saw, and picks
the points that are there. With it also what else a page does (points that are known to the last digit in each of
their ways to be shown, fingers, readers of screens, print, no WebGL, no points) and the pages of other commands."""

import base64
import json
import math
import pathlib
import re
import struct
import sys
import tempfile
import time

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from page_access import check_access, check_fingers
from page_browser import browser, check_silence, fail, faults, make_scan, open_page, pixels_of_view, press, run, settle
from page_commands import check_commands
from page_shapes import check_shapes
from page_view import check_view

def compare_with_preview(driver, scanner):
    """The view from the camera against the tool's own picture of the depths, pixel by pixel: whether there is a point,
    and its colour but for the light."""
    camera = camera_of(scanner)
    same, tinted, common, total = driver.execute_script("""
        const [[width, height], [fx, fy, cx, cy], [k1, k2, p1, p2, k3]] = arguments;
        const pixels = (source, w, h) => {
          const copy = document.createElement("canvas");
          copy.width = w;
          copy.height = h;
          const context = copy.getContext("2d");
          context.drawImage(source, 0, 0);
          return context.getImageData(0, 0, w, h).data;
        };
        const view = window.vornPage.view;
        view.drawNow();
        const canvas = view.canvas;
        const seen = pixels(canvas, canvas.width, canvas.height);
        const picture = document.querySelector("figure img");
        const shown = pixels(picture, picture.naturalWidth, picture.naturalHeight);
        const scale = canvas.height / height * fy;
        let same = 0, tinted = 0, common = 0, total = 0;
        for (let row = 0; row < canvas.height; ++row) {
          for (let column = 0; column < canvas.width; ++column) {
            // The ray of the view's pixel, and where the lens puts it in the camera's image.
            const x = (column + 0.5 - canvas.width / 2) / scale;
            const y = (row + 0.5 - canvas.height / 2) / scale;
            const r2 = x * x + y * y;
            const radial = 1 + r2 * (k1 + r2 * (k2 + r2 * k3));
            const u = Math.round(fx * (x * radial + 2 * p1 * x * y + p2 * (r2 + 2 * x * x)) + cx);
            const v = Math.round(fy * (y * radial + p1 * (r2 + 2 * y * y) + 2 * p2 * x * y) + cy);
            if (u < 0 || v < 0 || u >= width || v >= height - 40) {
              continue; // beside the picture, or where its scale bar is
            }
            const a = 4 * (row * canvas.width + column);
            const b = 4 * (v * picture.naturalWidth + u);
            const colors = [[seen, a], [shown, b]].map(([data, at]) => [data[at], data[at + 1], data[at + 2]]);
            const isSeen = seen[a + 3] > 0;
            const isShown = Math.min(...colors[1]) < 200;
            ++total;
            same += isSeen === isShown ? 1 : 0;
            if (isSeen && isShown) {
              const [p, q] = colors.map((color) => color.map((value) => value / Math.max(...color, 1)));
              ++common;
              tinted += p.every((value, i) => Math.abs(value - q[i]) < 0.25) ? 1 : 0;
            }
          }
        }
        return [same, tinted, common, total];""", camera["size"], camera["k"], camera["d"])
    if total < 100000 or same < 0.95 * total:
        fail(f"The view from the camera shows points where the camera saw some at {same} of {total} pixels")
    if common < 0.3 * total or tinted < 0.95 * common:
        fail(f"The view from the camera has the preview's colours at {tinted} of {common} pixels")
    print(f"As the preview: {same / total:.3f} of the pixels, {tinted / common:.3f} of the colours")


def camera_of(scanner):
    model = json.loads(scanner.read_text())["CameraModel"]
    k = model["K"]["data"]
    return {"k": (k[0], k[4], k[2], k[5]), "d": model["D"]["data"], "size": model["Resolution"]}


def points_of(ply):
    """The vertices of a binary or ASCII PLY file whose first properties are x, y, z as floats."""
    content = ply.read_bytes()
    head, body = content.split(b"end_header\n", 1)
    count = int(re.search(rb"element vertex (\d+)", head)[1])
    sizes = {b"float": 4, b"uchar": 1, b"double": 8, b"int": 4}
    vertex = head.split(b"element vertex")[1].split(b"element")[0]
    stride = sum(sizes[kind] for kind in re.findall(rb"property (\w+) \w+", vertex))
    if b"format ascii" in head:
        return [tuple(map(float, line.split()[:3])) for line in body.splitlines()[:count]]
    return [struct.unpack_from("<3f", body, i * stride) for i in range(count)]


def click(driver, x, y):
    canvas = driver.find_element(By.ID, "canvas")
    size = canvas.size
    ActionChains(driver).move_to_element_with_offset(
        canvas, round(x - size["width"] / 2), round(y - size["height"] / 2)).click().perform()


def check_picks(driver, points, scanner):
    """Points of the cloud file, clicked where the camera's own model says that the view from it shows them."""
    fx, fy, cx, cy = camera_of(scanner)["k"]
    height = camera_of(scanner)["size"][1]
    canvas = driver.find_element(By.ID, "canvas").size
    error = json.loads(driver.execute_script("return document.getElementById('scene').textContent"))["clouds"][0]
    spacing, rounding = error["spacing"], error["error"]
    if not rounding < spacing / 10:
        fail(f"Coordinates are rounded by {rounding} mm where points are {spacing} mm apart")
    picked = []
    for share in (0.31, 0.77):
        wanted = points[int(share * len(points))]
        scale = fy * canvas["height"] / height
        click(driver, canvas["width"] / 2 + wanted[0] / wanted[2] * scale,
              canvas["height"] / 2 + wanted[1] / wanted[2] * scale)
        settle(driver)
        lines = driver.find_element(By.ID, "readout").text.splitlines()
        numbers = [float(word.replace("\u2212", "-"))
                   for word in re.findall(r"[xyz] ([\u2212\d.]+)", lines[len(picked)])[:3]]
        picked.append(numbers)
        nearest = min(math.dist(numbers, point) for point in points)
        if nearest > rounding + 0.001:
            fail(f"The picked point {numbers} is none of the cloud's: the nearest is {nearest} mm away")
        if math.dist(numbers, wanted) > 8 * spacing:
            fail(f"A click at {wanted} picks {numbers}")
    told = float(re.search(r"Distance ([\d.]+)", lines[-1])[1])
    if abs(told - math.dist(*picked)) > 0.003:
        fail(f"The distance of {picked} is told as {told}")


def check_escaping(driver, report):
    """Names that look like HTML stay words, and the JSON inside is that of the report."""
    kinds = driver.execute_script("return [...document.scripts].map((script) => script.type)")
    if kinds != ["application/json", "application/json", "application/octet-stream", "", ""]:
        fail(f"The page has scripts {kinds}")
    words = driver.execute_script("return [...document.querySelectorAll('.inputs tbody th')].map((cell) => "
                                  "cell.textContent)")
    title = driver.execute_script("return document.querySelector('.inputs caption').textContent")
    folder = title.partition(" in ")[2]
    if [folder + name for name in words] != [entry["path"] for entry in report["inputs"]]:
        fail(f"The page names as inputs {words} in {folder}")
    hashes = driver.execute_script("return [...document.querySelectorAll('.inputs tbody td:last-child')]"
                                   ".map((cell) => cell.textContent)")
    if hashes != [entry["sha256"] for entry in report["inputs"]]:
        fail(f"The page tells as hashes {hashes}")
    inside = json.loads(driver.execute_script("return document.getElementById('report').textContent"))
    if inside != report:
        fail("The report in the page is not the one in the file")


def check_scan(files):
    with browser() as driver:
        open_page(driver, files["scan.html"])
        if pixels_of_view(driver) < 10000:
            fail("The view is empty")
        check_escaping(driver, json.loads(files["scan.json"].read_text()))
        press(driver, "Camera")
        compare_with_preview(driver, files["scanner"])
        check_picks(driver, points_of(files["scan.ply"]), files["scanner"])
        check_silence(driver, "scan")


def check_controls(files):
    """Sections, what is shown, colours, keys and the exported picture."""
    with browser() as driver:
        folder = files["scan.html"].parent / "downloads"
        folder.mkdir()
        driver.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": str(folder)})
        open_page(driver, files["scan.html"])
        whole = pixels_of_view(driver)
        axis = Select(driver.find_element(By.ID, "section-axis"))
        axis.select_by_visible_text("x")
        keep = Select(driver.find_element(By.ID, "section-keep"))
        parts = {}
        for kept in ("above", "below", "slice"):
            keep.select_by_value(kept)
            parts[kept] = pixels_of_view(driver)
        if not (0.9 * whole < parts["above"] + parts["below"] < 1.1 * whole and 0 < parts["slice"] < 0.1 * whole):
            fail(f"Of {whole} pixels the section keeps {parts}")
        axis.select_by_visible_text("none")

        box = driver.find_element(By.CSS_SELECTOR, "#shown input")
        box.click()
        if pixels_of_view(driver) != 0:
            fail("What is not shown is seen")
        box.click()

        titles = []
        field = Select(driver.find_element(By.ID, "field"))
        for i in range(len(field.options)):
            field.select_by_index(i)
            titles.append(driver.find_element(By.ID, "legend-title").text)
        if titles[:5] != ["z [mm]", "x [mm]", "y [mm]", "modulation [grey levels]", "sigma [projector px]"]:
            fail(f"The legend tells {titles}")

        canvas = driver.find_element(By.ID, "canvas")
        canvas.send_keys(Keys.HOME)
        before = driver.execute_script("return [...window.vornPage.view.orbit.direction().toArray()]")
        canvas.send_keys(Keys.ARROW_LEFT, Keys.ARROW_LEFT)
        after = driver.execute_script("return [...window.vornPage.view.orbit.direction().toArray()]")
        turned = math.degrees(math.acos(min(1.0, sum(a * b for a, b in zip(before, after)))))
        if not 5 < turned < 11:
            fail(f"Two arrow keys turn the view by {turned} degrees")
        canvas.send_keys("1", Keys.ENTER)
        if not driver.find_element(By.ID, "readout").text:
            fail("Enter picks nothing")

        driver.find_element(By.ID, "export").click()
        for _ in range(100):
            pictures = list(folder.glob("*.png"))
            if pictures:
                break
            time.sleep(0.1)
        if not pictures or pictures[0].read_bytes()[:4] != b"\x89PNG" or pictures[0].stat().st_size < 20000:
            fail(f"The exported picture: {pictures}")
        check_silence(driver, "controls")


def check_print(files):
    with browser() as driver:
        open_page(driver, files["scan.html"])
        pdf = base64.b64decode(driver.execute_cdp_cmd(
            "Page.printToPDF", {"preferCSSPageSize": True, "printBackground": True})["data"])
        pages = len(re.findall(rb"/Type\s*/Page\b", pdf))
        if not 2 <= pages <= 6:
            fail(f"The scan is printed on {pages} pages")
        if not driver.execute_script("return document.getElementById('printed').width > 300"):
            fail("The view is not printed")
        check_silence(driver, "print")


def check_without_webgl(files):
    with browser("--disable-3d-apis") as driver:
        open_page(driver, files["scan.html"])
        message = driver.find_element(By.ID, "view-message")
        if not message.is_displayed() or "WebGL" not in message.text:
            fail(f"Without WebGL the page says: {message.text}")
        if driver.find_element(By.ID, "work").is_displayed():
            fail("Without WebGL the view is there")
        if driver.find_element(By.ID, "help").is_displayed():
            fail("Without WebGL the page explains how to turn the view")
        widths = driver.execute_script("return [...document.querySelectorAll('figure img')].map((i) => i.naturalWidth)")
        if len(widths) < 4 or min(widths) < 300:
            fail(f"Without WebGL the pictures are {widths} pixels wide")


def check_empty(folder):
    run("simulate", folder / "coarse", "--no-calib", "--divisor", 8)
    pictures = sorted((folder / "coarse/scan").glob("columns_*"))
    for picture in pictures[1:]:  # one picture all the time is light without fringes
        picture.write_bytes(pictures[0].read_bytes())
    page = folder / "empty.html"
    failed = run("scan", folder / "coarse/scan", "--calib", folder / "coarse/scanner_truth.json", "--html",
                 page, status=1)
    if len(failed.stderr.splitlines()) != 1:
        fail(f"A scan without points says {failed.stderr}")
    with browser() as driver:
        open_page(driver, page)
        message = driver.find_element(By.ID, "view-message").text
        if "no point" not in message or " dark" not in message:
            fail(f"Without points the page says: {message}")
        check_silence(driver, "empty")


def main():
    with tempfile.TemporaryDirectory() as name:
        files = make_scan(pathlib.Path(name))
        check_scan(files)
        if "--all" in sys.argv:
            check_view(files["scan.html"], pathlib.Path(name))
            check_shapes(files["scan.html"], pathlib.Path(name))
            check_commands(pathlib.Path(name))
            check_controls(files)
            check_access(files["scan.html"])
            check_fingers(files["scan.html"])
            check_print(files)
            check_without_webgl(files)
            check_empty(pathlib.Path(name))


main()
sys.exit(bool(faults))
