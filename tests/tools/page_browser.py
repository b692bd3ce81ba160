# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""What the tests of pages share: the tool, a browser, a page in it, and what went wrong."""

import contextlib
import subprocess
import sys
import time

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

tool = sys.argv[1]
faults = []


def fail(text):
    faults.append(text)
    print(text)


def run(*arguments, status=0):
    result = subprocess.run([tool, *map(str, arguments)], capture_output=True, text=True)
    if result.returncode != status:
        fail(f"{arguments}: status {result.returncode}: {result.stderr}")
    return result


@contextlib.contextmanager
def browser(*arguments, size=(1300, 900)):
    options = Options()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--hide-scrollbars",
                     "--use-angle=swiftshader", "--enable-unsafe-swiftshader", f"--window-size={size[0]},{size[1]}",
                     *arguments):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        yield driver
    finally:
        driver.quit()


def open_page(driver, path):
    driver.get(path.resolve().as_uri())
    for _ in range(200):
        if driver.execute_script("return document.readyState === 'complete'"):
            break
        time.sleep(0.05)
    settle(driver)


def settle(driver):
    """Waits until what was asked for is drawn, with all points: fewer are while the view moves."""
    driver.execute_async_script("""
        const done = arguments[0];
        const look = () => window.vornPage?.view?.isMoving
          ? setTimeout(look, 50)
          : requestAnimationFrame(() => requestAnimationFrame(done));
        setTimeout(look, 300);""")


def check_silence(driver, what):
    for entry in driver.get_log("browser"):
        fail(f"{what}: the browser says {entry['message']}")


def press(driver, name):
    for button in driver.find_elements(By.CSS_SELECTOR, "#sides button"):
        if button.text == name:
            button.click()
    settle(driver)


def pixels_of_view(driver):
    """How many pixels of the view show something."""
    return driver.execute_script("""
        const view = window.vornPage.view;
        view.drawNow();
        const copy = document.createElement("canvas");
        copy.width = view.canvas.width;
        copy.height = view.canvas.height;
        const context = copy.getContext("2d");
        context.drawImage(view.canvas, 0, 0);
        const data = context.getImageData(0, 0, copy.width, copy.height).data;
        let count = 0;
        for (let i = 3; i < data.length; i += 4) {
          count += data[i] > 0 ? 1 : 0;
        }
        return count;""")


def make_scan(folder):
    """A scan from a folder whose path holds a script element; its files."""
    run("simulate", folder / "rig", "--no-calib", "--divisor", 3)
    hostile = folder / "<script>alert(1)<" / "script>'\"&amp;"
    hostile.parent.mkdir()
    (folder / "rig/scan").rename(hostile)
    files = {name: folder / name for name in ("scan.html", "scan.ply", "scan.json")}
    files["scanner"] = folder / "rig/scanner_truth.json"
    files["pictures"] = hostile
    run("scan", hostile, "--calib", files["scanner"], "-o", files["scan.ply"], "--html", files["scan.html"],
        "--report", files["scan.json"])
    return files
