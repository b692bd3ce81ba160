# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Whether a page can be used by people who do not see it well or at all, and with fingers on a narrow screen."""

import math

from selenium.webdriver.common.by import By

from page_browser import browser, check_silence, fail, open_page, settle

# Every text that is seen, with its contrast against what lies behind it: the ratio of luminances that WCAG 2 defines.
CONTRASTS = """
  const channels = (color) => {
    const numbers = color.match(/[\\d.]+/g).map(Number);
    const scale = color.startsWith("color(") ? 255 : 1;
    return {rgb: numbers.slice(0, 3).map((c) => c * scale), alpha: numbers[3] ?? 1};
  };
  const over = (top, share, below) => top.map((c, i) => c * share + below[i] * (1 - share));
  const ground = (element) => {
    const chain = [];
    for (let e = element; e; e = e.parentElement) chain.unshift(e);
    return chain.reduce((below, e) => {
      const {rgb, alpha} = channels(getComputedStyle(e).backgroundColor);
      return over(rgb, alpha, below);
    }, [255, 255, 255]);
  };
  const luminance = (rgb) => rgb.map((c) => c / 255)
    .map((c) => c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
    .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
  const found = [];
  for (const element of document.body.querySelectorAll("*")) {
    const words = [...element.childNodes].filter((n) => n.nodeType === 3).map((n) => n.textContent.trim()).join(" ");
    if (!words.trim() || !element.checkVisibility() || element.disabled) continue;
    const style = getComputedStyle(element);
    const behind = ground(element);
    const {rgb, alpha} = channels(style.color);
    const [a, b] = [luminance(over(rgb, alpha, behind)), luminance(behind)];
    const size = parseFloat(style.fontSize);
    found.push({words: words.slice(0, 60), isLarge: size >= 24 || (size >= 18.66 && style.fontWeight >= 700),
                ratio: (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05)});
  }
  return found;"""

# What a reader of screens announces, which is worth nothing without a name.
NAMED_ROLES = {"button", "checkbox", "radio", "combobox", "slider", "spinbutton", "textbox", "link", "image", "img",
               "Canvas", "table", "application"}


def check_contrast(driver, theme):
    driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                           {"features": [{"name": "prefers-color-scheme", "value": theme}]})
    settle(driver)
    texts = driver.execute_script(CONTRASTS)
    if len(texts) < 50:
        fail(f"Only {len(texts)} texts are seen")
    for text in texts:
        if text["ratio"] < (3.0 if text["isLarge"] else 4.5):
            fail(f"{theme}: the contrast of \"{text['words']}\" is {text['ratio']:.2f}")


def check_names(driver):
    driver.execute_cdp_cmd("Accessibility.enable", {})
    nodes = driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
    announced = [node for node in nodes if not node["ignored"] and node["role"]["value"] in NAMED_ROLES]
    if len(announced) < 20:
        fail(f"A reader of screens finds only {len(announced)} things")
    for node in announced:
        if not node.get("name", {}).get("value", "").strip():
            fail(f"A {node['role']['value']} has no name: {node.get('backendDOMNodeId')}, "
                 f"{describe(driver, node)}")


def describe(driver, node):
    return driver.execute_cdp_cmd("DOM.describeNode", {"backendNodeId": node["backendDOMNodeId"]})["node"]["attributes"]


def check_outline(driver):
    """One title, no level of headings left out, a language."""
    levels = driver.execute_script("return [...document.querySelectorAll('h1, h2, h3, h4')]"
                                   ".filter((h) => h.checkVisibility()).map((h) => Number(h.tagName[1]))")
    if levels.count(1) != 1 or any(after > before + 1 for before, after in zip(levels, levels[1:])):
        fail(f"The headings have levels {levels}")
    if not driver.execute_script("return document.documentElement.lang"):
        fail("The page has no language")


def check_access(page):
    with browser() as driver:
        open_page(driver, page)
        for theme in ("light", "dark"):
            check_contrast(driver, theme)
        check_names(driver)
        check_outline(driver)
        check_silence(driver, "access")


def touch(driver, *moves):
    """Fingers that go down at the first of `moves`, follow the others and are lifted; each a list of places."""
    for kind, places in zip(["touchStart"] + ["touchMove"] * (len(moves) - 1), moves):
        points = [{"x": x, "y": y, "id": i} for i, (x, y) in enumerate(places)]
        driver.execute_cdp_cmd("Input.dispatchTouchEvent", {"type": kind, "touchPoints": points})
    driver.execute_cdp_cmd("Input.dispatchTouchEvent", {"type": "touchEnd", "touchPoints": []})
    settle(driver)


def check_fingers(page):
    """On a telephone: nothing beside the screen, one finger turns, two zoom, a tap picks."""
    with browser() as driver:
        driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                               {"width": 390, "height": 844, "deviceScaleFactor": 2, "mobile": True})
        driver.execute_cdp_cmd("Emulation.setTouchEmulationEnabled", {"enabled": True, "maxTouchPoints": 2})
        open_page(driver, page)
        beyond = driver.execute_script("return document.documentElement.scrollWidth - window.innerWidth")
        if beyond > 0:
            fail(f"On a narrow screen {beyond} pixels lie beside it")
        canvas = driver.find_element(By.ID, "canvas")
        driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", canvas)
        settle(driver)
        frame = driver.execute_script("return arguments[0].getBoundingClientRect().toJSON()", canvas)
        x, y = frame["x"] + frame["width"] / 2, frame["y"] + frame["height"] / 2

        def orbit():
            return driver.execute_script("const o = window.vornPage.view.orbit;"
                                         "return [o.azimuth, o.elevation, o.distance]")

        azimuth, elevation, distance = orbit()
        touch(driver, [(x, y)], [(x + 20, y)], [(x + 60, y)])
        turned = orbit()
        if math.isclose(turned[0], azimuth, abs_tol=0.05) or not math.isclose(turned[1], elevation, abs_tol=1e-6):
            fail(f"A finger turns the view from {azimuth}, {elevation} to {turned}")
        touch(driver, [(x - 30, y), (x + 30, y)], [(x - 45, y), (x + 45, y)], [(x - 60, y), (x + 60, y)])
        zoomed = orbit()
        if not math.isclose(zoomed[2], distance / 2, rel_tol=0.02):
            fail(f"Two fingers that double their distance change that of the view from {distance} to {zoomed[2]}")
        touch(driver, [(x, y)])
        if not driver.find_element(By.ID, "readout").text:
            fail("A tap on the part picks nothing")
        check_silence(driver, "fingers")
