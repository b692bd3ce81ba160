# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""The view of a page, held against points, colours and surfaces that are known to the last digit."""

import base64
import contextlib
import re
import time

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import Select

from page_browser import browser, check_silence, fail, open_page, press, settle
from page_scene import packed_cloud, write_scene

# Far from zero, where 32 bits resolve a quarter of a millimetre; sizes in mm.
FAR = (3.2e6, -1.6e6, 8e5)
# Rows and columns of dots that no turn or mirror lays onto themselves, each at a depth of its own.
POINTS = [(20.0 * column + (5 if row == 1 else 0), 18.0 * row, 3.0 * ((7 * column + 5 * row) % 13))
          for row in range(4) for column in range(5) if (row, column) not in ((0, 4), (3, 0))]
ERRORS = [None if i == 6 else round(1.7 - 0.19 * i, 2) for i in range(len(POINTS))]
WEIGHTS = [round(10 + 0.5 * ((5 * i) % 18), 2) for i in range(len(POINTS))]
OTHERS = [(x + 10.0, y + 9.0, 40.0) for x, y, _ in POINTS[:7]]


def moved(points, origin):
    return [tuple(p + o for p, o in zip(point, origin)) for point in points]


def write_dots(template, path, origin=(0, 0, 0)):
    """Two clouds of dots; their coordinates as a reader is told them."""
    first, second = moved(POINTS, origin), moved(OTHERS, origin)
    fields = [("error", "mm", True, [-1.0, 1.0], ERRORS), ("weight", "", False, [10.0, 18.0], WEIGHTS)]
    colors = write_scene(template, path, [
        packed_cloud("first", first, blocks=[1, 7, len(first) - 8], fields=fields, coloredBy="error"),
        packed_cloud("second", second)])
    return first, second, colors


class Seen:
    """An open page, looked at from the front or the left without perspective and light, its dots large."""

    def __init__(self, driver, points, side="Front"):
        self.driver = driver
        self.middle = [(min(axis) + max(axis)) / 2 for axis in zip(*points)]
        self.side = side
        driver.execute_script("""
            for (const [id, value] of [["parallel", true], ["shaded", false]]) {
              const box = document.getElementById(id);
              if (box.checked !== value) box.click();
            }
            const size = document.getElementById("size");
            size.value = 6;
            size.dispatchEvent(new Event("input"));""")
        press(driver, side)
        self.width, self.height, self.pixel = driver.execute_script("""
            const view = window.vornPage.view;
            return [view.canvas.clientWidth, view.canvas.clientHeight, view.orbit.pixel(view.canvas.clientHeight)];""")

    def place(self, point):
        """Where a point is seen: the front has x to the right and y down, the left has z to the left."""
        x, y, z = (value - middle for value, middle in zip(point, self.middle))
        across = x if self.side == "Front" else -z
        return self.width / 2 + across / self.pixel, self.height / 2 + y / self.pixel

    def colors(self, points):
        """Red, green and blue of the view where the points should be; None where nothing is drawn."""
        places = [[round(value) for value in self.place(point)] for point in points]
        pixels = self.driver.execute_script("""
            const view = window.vornPage.view;
            view.drawNow();
            const copy = document.createElement("canvas");
            copy.width = view.canvas.width;
            copy.height = view.canvas.height;
            const context = copy.getContext("2d", {willReadFrequently: true});
            context.drawImage(view.canvas, 0, 0);
            return arguments[0].map(([x, y]) => [...context.getImageData(x, y, 1, 1).data]);""", places)
        return [tuple(pixel[:3]) if pixel[3] > 200 else None for pixel in pixels]

    def click(self, point):
        x, y = self.place(point)
        canvas = self.driver.find_element(By.ID, "canvas")
        # Places are counted from the middle of what is seen of an element: it must all be seen.
        self.driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", canvas)
        ActionChains(self.driver).move_to_element_with_offset(
            canvas, round(x - self.width / 2), round(y - self.height / 2)).click().perform()
        return self.readout()

    def readout(self):
        return self.driver.find_element(By.ID, "readout").text.replace("\u2212", "-").splitlines()

    def forget(self):
        self.driver.execute_script("window.vornPage.view.forgetPicks()")


def is_near(color, expected, tolerance=6):
    return color is not None and all(abs(a - b) <= tolerance for a, b in zip(color, expected))


def check_colors(seen, title, points, values, ends, table, what):
    share = [None if value is None else min(1, max(0, (value - ends[0]) / (ends[1] - ends[0]))) for value in values]
    wanted = [(128, 128, 128) if s is None else table[round(s * (len(table) - 1))] for s in share]
    Select(seen.driver.find_element(By.ID, "field")).select_by_visible_text(title)
    found = seen.colors(points)
    wrong = [(point, color, want) for point, color, want in zip(points, found, wanted) if not is_near(color, want)]
    if wrong:
        fail(f"{what}, {seen.side}, by {title}: {len(wrong)} of {len(points)} dots are not seen in their colour, such as "
             f"{wrong[0]}")


def check_legend(driver, title, ends, table, beyond):
    """Its words, and that its colours run as those of the values do."""
    words = driver.find_element(By.ID, "legend").text.replace("\u2212", "-").splitlines()
    ticks = [float(word) for word in words[1:7]]
    if words[0] != title or ticks[0] != ends[1] or ticks[-1] != ends[0] or words[7:] != ([beyond] if beyond else []):
        fail(f"The legend says {words}")
    rows = driver.execute_script("""
        const canvas = document.getElementById("legend-colors");
        const copy = document.createElement("canvas");
        copy.height = canvas.height;
        const context = copy.getContext("2d", {willReadFrequently: true});
        context.drawImage(canvas, 0, 0);
        const data = context.getImageData(0, 0, 1, canvas.height).data;
        return [...Array(canvas.height).keys()].map((y) => [...data.slice(4 * y, 4 * y + 3)]);""")
    for y in (0, len(rows) // 4, len(rows) // 2, len(rows) - 1):
        want = table[round((1 - y / (len(rows) - 1)) * (len(table) - 1))]
        if not is_near(rows[y], want):
            fail(f"The legend's row {y} is {rows[y]}, not {want}")


def check_dots(driver, first, second, colors):
    """Each dot is where it belongs, in the colour of its value."""
    for side in ("Front", "Left"):
        seen = Seen(driver, first + second, side)
        for title, axis, table in (("z, mm", 2, "depth"), ("y, mm", 1, "value"), ("x, mm", 0, "value")):
            values = [point[axis] for point in first + second]
            check_colors(seen, title, first, [point[axis] for point in first], (min(values), max(values)), colors[table],
                         "dots")
    seen = Seen(driver, first + second)
    check_colors(seen, "weight", first, WEIGHTS, (10, 18), colors["value"], "dots")
    check_legend(driver, "weight", (10, 18), colors["value"], "5.6 % beyond")
    other = seen.colors(second)
    if not all(is_near(color, (150, 150, 150)) for color in other):
        fail(f"Dots without a weight are seen as {other}")
    check_colors(seen, "error, mm", first, ERRORS, (-1, 1), colors["signed"], "dots")
    beyond = sum(value is not None and abs(value) > 1 for value in ERRORS)
    check_legend(driver, "error [mm]", (-1, 1), colors["signed"], f"{100 * beyond / (len(ERRORS) - 1):.1f} % beyond")


def line_of(name, point, values=()):
    numbers = ", ".join(f"{axis} {value:.3f}" for axis, value in zip("xyz", point))
    return f"{name}: {numbers} mm" + "".join(f"; {value}" for value in values)


def check_clicks(driver, first, second):
    """A click on each dot tells its own coordinates and values; two tell their distance."""
    seen = Seen(driver, first + second)
    lines = [line_of("first", point, (f"error {'none' if error is None else f'{error:.3f}'} mm", f"weight {weight:.3f}"))
             for point, error, weight in zip(first, ERRORS, WEIGHTS)] + [line_of("second", point) for point in second]
    points = first + second
    for i, (point, line) in enumerate(zip(points, lines)):
        seen.forget()
        told = seen.click(point)
        if told != [line]:
            fail(f"A click on {line} tells {told}")
    for a, b in ((0, 12), (3, len(points) - 1)):
        seen.forget()
        seen.click(points[a])
        told = seen.click(points[b])
        step = [end - start for start, end in zip(points[a], points[b])]
        length = sum(value * value for value in step) ** 0.5
        want = f"Distance {length:.3f} mm (x {step[0]:.3f}, y {step[1]:.3f}, z {step[2]:.3f})"
        if told != [lines[a], lines[b], want]:
            fail(f"Clicks on {points[a]} and {points[b]} tell {told}")
        rings = driver.execute_script("""
            const frame = document.getElementById("labels").getBoundingClientRect();
            return [...document.querySelectorAll("#labels .picked")].map((ring) => {
              const box = ring.getBoundingClientRect();
              return [box.x + box.width / 2 - frame.x, box.y + box.height / 2 - frame.y];
            });""")
        for ring, point in zip(rings, (points[a], points[b])):
            if max(abs(got - want) for got, want in zip(ring, seen.place(point))) > 1.5:
                fail(f"The ring about {point} is at {ring}, the dot at {seen.place(point)}")
    seen.forget()


def check_sections(driver, first, second):
    """Exactly the dots on the kept side are seen and can be picked."""
    seen = Seen(driver, first + second)
    points = first + second
    axis = Select(driver.find_element(By.ID, "section-axis"))
    keep = Select(driver.find_element(By.ID, "section-keep"))
    for number, name in enumerate("xyz"):
        axis.select_by_visible_text(name)
        low, high = min(p[number] for p in points), max(p[number] for p in points)
        for share in (0.31, 0.672):  # the second one's slices hold dots, and no plane goes through one
            driver.execute_script("""const at = document.getElementById("section-at");
                at.value = 1000 * arguments[0];
                at.dispatchEvent(new Event("input"));""", share)
            plane = low + share * (high - low)
            half = 0.01 * (high - low)
            sides = {"above": lambda v: v > plane, "below": lambda v: v < plane, "slice": lambda v: abs(v - plane) < half}
            for side, is_kept in sides.items():
                keep.select_by_value(side)
                wrong = [point for point, color in zip(points, seen.colors(points))
                         if (color is not None) != is_kept(point[number])]
                if wrong:
                    fail(f"The section {side} {name} = {plane} shows or hides {len(wrong)} dots wrongly, such as {wrong[0]}")
            told = driver.find_element(By.ID, "section-value").text.replace("\u2212", "-")
            if told != f"{plane:.2f} mm":
                fail(f"The section at {plane} is said to be at {told}")
        keep.select_by_value("above")
        for point in (min(points, key=lambda p: p[number]), max(points, key=lambda p: p[number])):
            seen.forget()
            told = seen.click(point)
            if (told == ["No point there."]) == (point[number] > plane):
                fail(f"Above {name} = {plane} a click on {point} tells {told}")
    axis.select_by_visible_text("none")
    seen.forget()


def check_hiding(driver, first, second):
    """What is hidden is neither seen nor picked, nor counted in the legend."""
    seen = Seen(driver, first + second)
    boxes = driver.find_elements(By.CSS_SELECTOR, "#shown input")
    if [label.text.strip() for label in driver.find_elements(By.CSS_SELECTOR, "#shown label")] != ["first", "second"]:
        fail("What can be hidden has other names")
    for hidden, points in ((0, first), (1, second)):
        boxes[hidden].click()
        others = second if hidden == 0 else first
        if any(seen.colors(points)) or None in seen.colors(others):
            fail(f"With cloud {hidden} hidden the wrong dots are seen")
        seen.forget()
        if (told := seen.click(points[2])) != ["No point there."]:
            fail(f"A click on a hidden dot tells {told}")
        if (told := seen.click(others[2]))[0].split(":")[0] != ("first", "second")[1 - hidden]:
            fail(f"A click on a dot that is shown tells {told}")
        if hidden == 0 and driver.find_element(By.ID, "legend-beyond").text:
            fail("The legend counts what is hidden")
        boxes[hidden].click()
    seen.forget()


def exported(driver, folder):
    """The picture that "Save as PNG" gives, as a data URL."""
    for old in folder.glob("*.png"):
        old.unlink()
    driver.find_element(By.ID, "export").click()
    for _ in range(100):
        if pictures := list(folder.glob("*.png")):
            with contextlib.suppress(FileNotFoundError):
                return "data:image/png;base64," + base64.b64encode(pictures[0].read_bytes()).decode()
        time.sleep(0.1)
    fail("Nothing is exported")
    return None


def check_export(driver, folder, first, second):
    """The saved picture is the view at that moment, with the legend of that moment."""
    seen = Seen(driver, first + second)
    Select(driver.find_element(By.ID, "field")).select_by_visible_text("weight")
    # The legend covers what lies under it.
    points = [point for point in first + second if seen.place(point)[0] < seen.width - 120]
    places = [[round(value) for value in seen.place(point)] for point in points]
    for change in (None, "hide"):
        if change:
            driver.find_elements(By.CSS_SELECTOR, "#shown input")[1].click()
        picture = exported(driver, folder)
        shown = seen.colors(points)
        pixels = driver.execute_async_script("""
            const [url, places, done] = arguments;
            const picture = new Image();
            picture.onload = () => {
              const copy = document.createElement("canvas");
              copy.width = picture.width;
              copy.height = picture.height;
              const context = copy.getContext("2d", {willReadFrequently: true});
              context.drawImage(picture, 0, 0);
              done(places.map(([x, y]) => [...context.getImageData(x, y, 1, 1).data].slice(0, 3)));
            };
            picture.src = url;""", picture, places)
        wanted = [color or (255, 255, 255) for color in shown]
        wrong = [(a, b) for a, b in zip(pixels, wanted) if not is_near(a, b, 2)]
        if wrong:
            fail(f"The saved picture is not the view ({change}): {len(wrong)} of {len(places)} dots, such as {wrong[0]}")
    driver.find_elements(By.CSS_SELECTOR, "#shown input")[1].click()


def check_theme(driver):
    """The button turns all of the page over, also what lies under the view, whatever the system prefers."""
    parts = ("body", ".stage", ".legend", ".panel fieldset", "#theme")

    def grounds():
        return [driver.execute_script("return getComputedStyle(document.querySelector(arguments[0])).backgroundColor + "
                                      "getComputedStyle(document.querySelector(arguments[0])).color", part)
                for part in parts]

    def brightness():
        red, green, blue = map(float, re.findall(r"[\d.]+", driver.execute_script(
            "return getComputedStyle(document.querySelector('.stage')).backgroundColor"))[:3])
        return (red + green + blue) / 3

    for system in ("light", "dark"):
        driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                               {"features": [{"name": "prefers-color-scheme", "value": system}]})
        driver.refresh()
        settle(driver)
        button = driver.find_element(By.ID, "theme")
        before, name = grounds(), button.text
        if (brightness() > 128) != (system == "light") or name != ("Dark" if system == "light" else "Light"):
            fail(f"With a {system} system the view's ground is {brightness()} and the button says {name}")
        button.click()
        after = grounds()
        same = [part for part, a, b in zip(parts, before, after) if a == b]
        if same or (brightness() > 128) == (system == "light") or button.text == name:
            fail(f"The theme's button leaves {same} as they were; it says {button.text}")
        button.click()
        if grounds() != before or button.text != name:
            fail("The theme's button pressed twice does not lead back")


def check_view(template, folder):
    """@param template a page of the tool"""
    downloads = folder / "saved"
    downloads.mkdir()
    for name, origin in (("near", (0, 0, 0)), ("far", FAR)):
        first, second, colors = write_dots(template, folder / f"{name}.html", origin)
        with browser() as driver:
            driver.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": str(downloads)})
            open_page(driver, folder / f"{name}.html")
            check_dots(driver, first, second, colors)
            check_clicks(driver, first, second)
            check_sections(driver, first, second)
            if name == "near":
                check_hiding(driver, first, second)
                check_export(driver, downloads, first, second)
                check_theme(driver)
            check_silence(driver, name)
