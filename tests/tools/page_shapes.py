# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""The view of a page with a mesh, with hardly a point, and with points that hide others."""

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from page_browser import browser, check_silence, fail, open_page, settle
from page_scene import packed_cloud, write_scene
from page_view import Seen, is_near


def check_surface(template, folder):
    """A mesh covers what lies between its points, keeps its texture, and is cut within its triangles."""
    corners = [(0.0, 0.0, 5.0), (60.0, 0.0, 5.0), (60.0, 40.0, 5.0), (0.0, 40.0, 5.0)]
    path = folder / "surface.html"
    write_scene(template, path, [packed_cloud("plate", corners, triangles=[(0, 1, 2), (0, 2, 3)], texture=[(200, 40, 80)] * 4,
                                              isSurface=True)])
    with browser() as driver:
        open_page(driver, path)
        seen = Seen(driver, corners)
        inside = [(x, y, 5.0) for x in (3, 20, 45, 57) for y in (3, 17, 37)]
        outside = [(-3, 20, 5.0), (63, 20, 5.0), (30, 43, 5.0)]
        Select(driver.find_element(By.ID, "field")).select_by_visible_text("texture")
        wrong = [color for color in seen.colors(inside) if not is_near(color, (200, 40, 80), 9)]
        if wrong or any(seen.colors(outside)):
            fail(f"A mesh is seen as {wrong} inside, {seen.colors(outside)} outside")
        if driver.find_element(By.ID, "legend").is_displayed():
            fail("A texture has a legend of numbers")
        Select(driver.find_element(By.ID, "section-axis")).select_by_visible_text("x")
        for point, color in zip(inside, seen.colors(inside)):
            if (color is not None) != (point[0] > 30):
                fail(f"A mesh cut at x = 30 is seen as {color} at {point}")
        if (told := seen.click(corners[1])) != ["x 60.000, y 0.000, z 5.000 mm"]:
            fail(f"A click on a mesh's corner tells {told}")
        if "2 of 2 triangles" not in driver.find_element(By.ID, "thinning").text:
            fail("The page does not count its triangles")
        check_silence(driver, "surface")


def check_gray(template, folder):
    """Points with the brightness of a camera without colours, each its own."""
    path = folder / "gray.html"
    points = [(20.0 * i, 0.0, 5.0) for i in range(4)] + [(20.0 * i, 20.0, 5.0) for i in range(4)]
    greys = [30, 90, 150, 210, 60, 120, 180, 240]
    write_scene(template, path, [packed_cloud("points", points, spacing=20.0, texture=[(grey,) * 3 for grey in greys])])
    with browser() as driver:
        open_page(driver, path)
        Select(driver.find_element(By.ID, "field")).select_by_visible_text("texture")
        colors = Seen(driver, points).colors(points)
        if not all(is_near(color, (grey,) * 3, 3) for color, grey in zip(colors, greys)):
            fail(f"Greys {greys} are seen as {colors}")
        check_silence(driver, "gray")


def check_few(template, folder):
    """One point, points in one place, and clouds without any beside one that has some."""
    for name, points in (("one", [(7.0, -3.0, 250.0)]), ("same", [(7.0, -3.0, 250.0)] * 3)):
        path = folder / f"{name}.html"
        write_scene(template, path, [packed_cloud("nothing", [], dropped=4),
                                     packed_cloud("dot", points, spacing=0.0, fields=[
                                         ("error", "mm", True, [-1e-6, 1e-6], [0.0] * len(points))])])
        with browser() as driver:
            open_page(driver, path)
            driver.find_element(By.ID, "canvas").send_keys("1", Keys.ENTER)
            settle(driver)
            told = driver.find_element(By.ID, "readout").text.replace("\u2212", "-")
            if told != "x 7.000, y -3.000, z 250.000 mm; error 0.000 mm":
                fail(f"{name}: the point in the middle is told as {told}")
            if "4 without finite coordinates left out" not in driver.find_element(By.ID, "thinning").text:
                fail("Points that are not finite are not told")
            check_silence(driver, name)


def check_hidden(template, folder):
    """Of points in one line of sight a click takes the one that hides the others."""
    points = [(0.0, 0.0, 30.0), (20.0, 10.0, 30.0), (40.0, 20.0, 0.0), (20.0, 10.0, 15.0), (20.0, 10.0, 45.0)]
    write_scene(template, folder / "hidden.html", [packed_cloud("dots", points)])
    with browser() as driver:
        open_page(driver, folder / "hidden.html")
        if (told := Seen(driver, points).click(points[1])) != ["x 20.000, y 10.000, z 15.000 mm"]:
            fail(f"A click on a point before two others tells {told}")


def check_shapes(template, folder):
    check_surface(template, folder)
    check_gray(template, folder)
    check_few(template, folder)
    check_hidden(template, folder)
