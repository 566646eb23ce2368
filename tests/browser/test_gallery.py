"""kiv gallery's index page in Chromium: the cards, the failures, sorting and filtering."""
import json
import os
import shutil
from pathlib import Path

import numpy as np
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import Select, WebDriverWait

from conftest import FORCE_SAMPLE, IMAGE_SAMPLE, SAMPLES, console_errors, run_kiv


def open_gallery(browser, site):
    browser.get((site / "index.html").as_uri())
    WebDriverWait(browser, 20).until(
        lambda driver: driver.execute_script("return document.readyState") == "complete")


def shown_paths(browser):
    return [card.get_attribute("data-path")
            for card in browser.find_elements(By.CSS_SELECTOR, "#cards .card")]


def embedded_cards(browser):
    return json.loads(browser.execute_script(
        "return document.getElementById('gallery-data').textContent"))["cards"]


def folder_of_scans(root):
    """Three scans that each order puts differently: second.flt is first.flt's image halved
    (half its Sq) and newer, and holds the only header value no card shows."""
    (root / "sub").mkdir(parents=True)
    shutil.copy(IMAGE_SAMPLE, root / "first.flt")
    image = IMAGE_SAMPLE.read_bytes()
    halved = np.frombuffer(image, dtype="<f4", offset=4096) / np.float32(2)
    (root / "sub" / "second.flt").write_bytes(image[:4096] + halved.astype("<f4").tobytes())
    shutil.copy(FORCE_SAMPLE, root / "sub" / "force.flt")
    result = run_kiv("set", root / "sub" / "second.flt", "[System Info]", "Operator", "Zoë Ångström")
    assert result.returncode == 0, result.stderr
    result = run_kiv("set", root / "first.flt", "[Data Parameters]", "Date", "2023-01-02")
    assert result.returncode == 0, result.stderr


def test_gallery_shows_every_good_card_and_each_failure(browser, tmp_path):
    root, site = tmp_path / "scans", tmp_path / "site"
    folder_of_scans(root)
    (root / "sub" / "broken.flt").write_bytes(b"not a scan at all")
    result = run_kiv("gallery", root, "-o", site)
    assert result.returncode == 1
    [line] = result.stderr.splitlines()
    reason = line.removeprefix(f"kiv: {root}/sub/broken.flt: ")
    browser.get_log("browser")
    open_gallery(browser, site)
    assert sorted(shown_paths(browser)) == ["first.flt", "sub/force.flt", "sub/second.flt"]
    # Every preview was found and decoded through its relative link.
    assert browser.execute_script(
        "return [...document.images].every(image => image.complete && image.naturalWidth > 0)")
    for link in browser.find_elements(By.CSS_SELECTOR, "#cards .card h2 a"):
        assert Path(browser.execute_script(
            "return decodeURIComponent(new URL(arguments[0].href).pathname)", link)).is_file()
    failures = browser.find_element(By.ID, "failures")
    assert failures.is_displayed()
    assert failures.find_element(By.TAG_NAME, "li").text == f"sub/broken.flt: {reason}"
    assert console_errors(browser) == []


def test_filter_narrows_the_cards_and_each_order_sorts_them(browser, tmp_path):
    root, site = tmp_path / "scans", tmp_path / "site"
    folder_of_scans(root)
    assert run_kiv("gallery", root, "-o", site).returncode == 0
    open_gallery(browser, site)
    everything = sorted(shown_paths(browser))
    box = browser.find_element(By.ID, "filter")
    # A header value only one scan holds, typed in another case.
    box.send_keys("zoë ångström")
    assert shown_paths(browser) == ["sub/second.flt"]
    box.clear()
    box.send_keys("no scan holds this")
    assert shown_paths(browser) == [] and browser.find_element(By.ID, "empty").is_displayed()
    box.clear()
    box.send_keys(" ")  # clear() sends no input event
    assert sorted(shown_paths(browser)) == everything

    orders = {
        "name": ["first.flt", "sub/force.flt", "sub/second.flt"],
        "date": ["sub/second.flt", "first.flt", "sub/force.flt"],  # newest first, none last
        "sq": ["sub/second.flt", "first.flt", "sub/force.flt"],  # force curves have no Sq
    }
    sq = {card["path"]: card["Sq"] for card in embedded_cards(browser)}
    assert sq["sub/second.flt"] < sq["first.flt"] and sq["sub/force.flt"] is None
    for order, expected in orders.items():
        Select(browser.find_element(By.ID, "sort")).select_by_value(order)
        assert shown_paths(browser) == expected, order
    assert console_errors(browser) == []


def test_screenshot_of_the_samples_gallery(browser, tmp_path):
    site = tmp_path / "site"
    result = run_kiv("gallery", SAMPLES, "-o", site)
    assert result.returncode == 0, result.stderr
    open_gallery(browser, site)
    assert len(shown_paths(browser)) == 2
    target = (SAMPLES / "gallery.png" if os.environ.get("KIV_WRITE_SCREENSHOTS") == "1"
              else tmp_path / "gallery.png")
    # The page's own height, not the window's.
    assert browser.find_element(By.TAG_NAME, "body").screenshot(str(target))
    assert console_errors(browser) == []
