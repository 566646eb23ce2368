"""The page of `kiv export --to html`, driven in Chromium through real mouse and keyboard input.
What the page shows is checked against the file's bytes read with numpy and against `kiv stats`
and `kiv profile`, never against the page's own functions."""
import json
import os
import re
from pathlib import Path

import numpy as np
import pytest
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.actions.action_builder import ActionBuilder
from selenium.webdriver.common.actions.wheel_input import ScrollOrigin
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

from conftest import FORCE_SAMPLE, IMAGE_SAMPLE, SAMPLES, console_errors, run_kiv


def header_value(path, key):
    text = Path(path).read_bytes().split(b"[Data]\r\n")[0].decode("latin-1")
    return re.search(r"^" + re.escape(key) + r"=\s*(.*?)\s*$", text, re.M).group(1)


def image_samples(path):
    """The image block as the format describes it: rows of little-endian float32 at DataOffset."""
    rows, columns = int(header_value(path, "ResolutionY")), int(header_value(path, "ResolutionX"))
    offset = int(header_value(path, "DataOffset"))
    return np.fromfile(path, dtype="<f4", count=rows * columns, offset=offset).reshape(rows, columns)


def percentile_range(samples):
    """The previews' colour range: the 1st and 99th percentile, each the sample at the nearest
    rank of the sorted finite samples."""
    finite = np.sort(samples[np.isfinite(samples)].astype(np.float64))
    at = lambda fraction: finite[int(fraction * (finite.size - 1) + 0.5)]
    return at(0.01), at(0.99)


def expected_colour(colormap, t):
    """matplotlib's definitions of the maps, channels 0 to 255."""
    t = min(max(t, 0.0), 1.0)
    channels = {"gray": (t, t, t),
                "afmhot": tuple(min(max(2 * t - shift, 0.0), 1.0) for shift in (0.0, 0.5, 1.0))}
    return np.floor(np.array(channels[colormap]) * 255 + 0.5)


def export_page(source, folder):
    page = Path(folder) / (Path(source).stem + ".html")
    result = run_kiv("export", source, "--to", "html", "-o", page)
    assert result.returncode == 0, result.stderr
    return page


@pytest.fixture(scope="module")
def pages(tmp_path_factory):
    folder = tmp_path_factory.mktemp("pages")
    return {"image": export_page(IMAGE_SAMPLE, folder), "force": export_page(FORCE_SAMPLE, folder)}


def open_page(browser, page):
    browser.get(page.as_uri())
    WebDriverWait(browser, 30).until(
        lambda driver: driver.execute_script("return document.body.dataset.ready") == "1")


def screenshot(browser, name, tmp_path):
    folder = SAMPLES if os.environ.get("KIV_WRITE_SCREENSHOTS") == "1" else tmp_path
    browser.save_screenshot(str(folder / name))


class ImagePage:
    """Where a sample lies on the screen, from the canvas's box and the view transform."""

    def __init__(self, browser):
        self.browser = browser
        self.canvas = browser.find_element(By.ID, "image")

    def view(self):
        return self.browser.execute_script(
            "const box = arguments[0].getBoundingClientRect();"
            "return [box.left + arguments[0].clientLeft, box.top + arguments[0].clientTop,"
            " kivPage.image.view];", self.canvas)

    def client_point(self, row, column):
        """The whole-pixel viewport point nearest the centre of sample (row, column)."""
        left, top, view = self.view()
        return (round(left + view["x"] + (column + 0.5) * view["scale"]),
                round(top + view["y"] + (row + 0.5) * view["scale"]))

    def image_point(self, x, y):
        """The point in pixels (centres on whole numbers) under viewport point (x, y)."""
        left, top, view = self.view()
        return ((x - left - view["x"]) / view["scale"] - 0.5,
                (y - top - view["y"]) / view["scale"] - 0.5)

    def colour_at(self, x, y):
        left, top, _ = self.view()
        return self.browser.execute_script(
            "return Array.from(arguments[0].getContext('2d')"
            ".getImageData(arguments[1], arguments[2], 1, 1).data.slice(0, 3));",
            self.canvas, x - left, y - top)

    def move_to(self, x, y):
        actions = ActionBuilder(self.browser)
        actions.pointer_action.move_to_location(x, y)
        actions.perform()

    def drag(self, start, end):
        actions = ActionBuilder(self.browser)
        actions.pointer_action.move_to_location(*start).pointer_down()
        actions.pointer_action.move_to_location((start[0] + end[0]) // 2, (start[1] + end[1]) // 2)
        actions.pointer_action.move_to_location(*end).pointer_up()
        actions.perform()

    def level(self, name):
        Select(self.browser.find_element(By.ID, "levelling")).select_by_value(name)


def test_image_page_draws_each_sample_in_the_colour_map(browser, pages, tmp_path):
    open_page(browser, pages["image"])
    assert console_errors(browser) == []
    page = ImagePage(browser)
    page.level("none")
    samples = image_samples(IMAGE_SAMPLE)
    low, high = percentile_range(samples)
    # The lowest and highest samples, clamped to the map's ends, and some in between.
    spots = [np.unravel_index(np.argmin(samples), samples.shape),
             np.unravel_index(np.argmax(samples), samples.shape), (0, 0), (127, 127)]
    spots += [tuple(spot) for spot in np.random.default_rng(1).integers(0, 128, size=(16, 2))]
    for colormap, tolerance in (("gray", 0), ("afmhot", 1)):
        Select(browser.find_element(By.ID, "colormap")).select_by_value(colormap)
        for row, column in spots:
            t = (float(samples[row, column]) - low) / (high - low)
            drawn = page.colour_at(*page.client_point(row, column))
            assert np.abs(np.array(drawn) - expected_colour(colormap, t)).max() <= tolerance, \
                (colormap, row, column, drawn)
    assert console_errors(browser) == []


def test_readout_names_the_sample_under_the_cursor_after_zoom_and_pan(browser, pages):
    open_page(browser, pages["image"])
    page = ImagePage(browser)
    page.level("none")
    samples = image_samples(IMAGE_SAMPLE)
    pixel = 10e-6 / 128  # a 10 µm scan of 128 x 128 samples
    centre = page.client_point(64, 64)
    ActionChains(browser).scroll_from_origin(ScrollOrigin.from_viewport(*centre), 0, -300).perform()
    page.drag(page.client_point(70, 70), page.client_point(60, 50))
    assert page.view()[2]["scale"] > 4, "the wheel zooms in"
    for row, column in ((60, 60), (75, 70), (66, 52)):
        x, y = page.client_point(row, column)
        page.move_to(x, y)
        readout = browser.find_element(By.ID, "readout")
        assert (int(readout.get_attribute("data-row")), int(readout.get_attribute("data-column"))) \
            == (row, column)
        assert float(readout.get_attribute("data-z")) == float(samples[row, column])
        numbers = [float(n.replace("\u2212", "-"))
                   for n in re.findall(r"[x-z] ([\u2212\d.e+-]+)", readout.text)]
        assert numbers == pytest.approx([column * pixel * 1e6, row * pixel * 1e6,
                                         float(samples[row, column])], rel=1e-3)
        assert readout.text.count("µm") == 2
        # What the readout names is what is drawn there.
        low, high = browser.execute_script("return kivPage.image.range")
        t = (float(samples[row, column]) - low) / (high - low)
        assert page.colour_at(x, y) == list(expected_colour("gray", t))


def check_profile(browser, page, start, end, source, level, selection=None):
    """Drags a profile from start to end (viewport points) and compares it with kiv profile's
    along selection, or along the line between the points under start and end."""
    page.drag(start, end)
    drawn = browser.execute_script("return kivPage.image.profile")
    if selection is None:
        (x0, y0), (x1, y1) = page.image_point(*start), page.image_point(*end)
        assert [drawn["from"]["x"], drawn["from"]["y"], drawn["to"]["x"], drawn["to"]["y"]] \
            == pytest.approx([x0, y0, x1, y1], abs=1e-12)
        selection = ["--from", f"{x0!r},{y0!r}", "--to", f"{x1!r},{y1!r}"]
    result = run_kiv("profile", source, *selection, "--level", level, "--to", "json")
    assert result.returncode == 0, result.stderr
    expected = json.loads(result.stdout)
    # NaN comes back from the page as None, as kiv writes it in JSON.
    assert [h is None for h in drawn["height"]] == [h is None for h in expected["height"]]
    assert [h for h in drawn["height"] if h is not None] == pytest.approx(
        [h for h in expected["height"] if h is not None], rel=1e-12, abs=1e-12)
    assert drawn["distance"] == pytest.approx(expected["distance"], rel=1e-12)
    return expected["height"]


def test_profile_dragged_on_the_image_follows_the_library(browser, pages, tmp_path):
    open_page(browser, pages["image"])
    page = ImagePage(browser)
    browser.find_element(By.ID, "mode-profile").click()
    row = 37
    heights = check_profile(browser, page, page.client_point(row, 0), page.client_point(row, 127),
                            IMAGE_SAMPLE, "plane", ["--row", str(row)])
    assert len(heights) == 128
    # A slanted line between points off the pixel centres: every point is bilinear.
    left, top, _ = page.view()
    check_profile(browser, page, (round(left) + 37, round(top) + 201),
                  (round(left) + 442, round(top) + 389), IMAGE_SAMPLE, "plane")
    assert len(browser.find_elements(By.CSS_SELECTOR, "#profile-plot .uplot")) == 1
    browser.find_element(By.CSS_SELECTOR, "#header-details summary").click()
    screenshot(browser, "topography_128.html.png", tmp_path)
    assert console_errors(browser) == []


def test_dropouts_are_grey_and_blank_the_profile_points_next_to_them(browser, tmp_path):
    samples = np.arange(64, dtype=np.float32).reshape(8, 8)
    samples[3, 4] = np.nan
    source = tmp_path / "dropout.flt"
    write_image_file(source, samples)
    open_page(browser, export_page(source, tmp_path))
    page = ImagePage(browser)
    page.level("none")
    assert page.colour_at(*page.client_point(3, 4)) == [140, 140, 153]
    ActionChains(browser).key_down(Keys.SHIFT).perform()
    heights = check_profile(browser, page, page.client_point(3, 0), page.client_point(3, 7),
                            source, "none", ["--row", "3"])
    assert heights[4] is None and None not in heights[:4] + heights[5:]
    # Off the centres, every point with the dropout among its four neighbours is NaN.
    left, top, _ = page.view()
    heights = check_profile(browser, page, (round(left) + 40, round(top) + 100),
                            (round(left) + 470, round(top) + 330), source, "none")
    assert None in heights
    ActionChains(browser).key_up(Keys.SHIFT).perform()
    assert console_errors(browser) == []


def table_figures(browser):
    cells = browser.find_elements(By.CSS_SELECTOR, "#parameters tr[data-key] td.value")
    return {cell.find_element(By.XPATH, "..").get_attribute("data-key"):
            float(cell.get_attribute("data-value")) for cell in cells}


def test_levelling_switches_the_image_and_the_library_figures(browser, pages):
    open_page(browser, pages["image"])
    page = ImagePage(browser)
    spot = page.client_point(10, 10)
    colours = set()
    for level in ("none", "rows", "plane"):
        page.level(level)
        result = run_kiv("stats", "--json", "--level", level, IMAGE_SAMPLE)
        assert result.returncode == 0, result.stderr
        stats = json.loads(result.stdout)
        figures = table_figures(browser)
        assert set(figures) == {"count", "excluded", "mean", "median", "min", "max", "Sa", "Sq",
                                "Ssk", "Sku", "Sp", "Sv", "Sz"}
        assert figures == pytest.approx({key: stats[key] for key in figures}, rel=1e-12, abs=1e-15)
        assert browser.execute_script("return kivPage.image.levelling") == level
        colours.add(tuple(page.colour_at(*spot)))
    assert len(colours) == 3, "each levelling is drawn"


def test_header_filter_keeps_the_matching_values(browser, pages):
    open_page(browser, pages["image"])
    browser.find_element(By.CSS_SELECTOR, "#header-details summary").click()
    rows = browser.find_elements(By.CSS_SELECTOR, "#header tbody tr")
    keys = [row.find_elements(By.TAG_NAME, "td")[0].text for row in rows]
    assert "Data Parameters/ScanRangeX" in keys and "System Info/Operator" in keys
    browser.find_element(By.ID, "header-filter").send_keys("scanrange")
    shown = [row.find_elements(By.TAG_NAME, "td")[0].text for row in rows if row.is_displayed()]
    assert shown == [key for key in keys if "scanrange" in key.lower()] and len(shown) >= 2


def test_force_page_plots_and_toggles_every_curve(browser, pages, tmp_path):
    open_page(browser, pages["force"])
    assert console_errors(browser) == []
    data = np.array([[np.float32(v) for v in line.split("\t")] for line in
                     FORCE_SAMPLE.read_bytes().split(b"[Data]\r\n", 1)[1].decode().splitlines()
                     if line])
    curves = 2 * (data.shape[1] // 4)
    entries = browser.find_elements(By.CSS_SELECTOR, "#curve-plot .u-legend .u-series")[1:]
    assert len(entries) == curves
    assert [entry.find_element(By.TAG_NAME, "th").text for entry in entries] == \
        [f"Force {kind} {s}" for s in (1, 2) for kind in ("Approach", "Retract")]
    assert browser.find_element(By.CSS_SELECTOR, "#curve-plot .u-legend .u-series th").text \
        == "Z (µm)"
    # Hovering shows each curve's force at the Z under the cursor.
    plot = browser.find_element(By.CSS_SELECTOR, "#curve-plot .u-over")
    ActionChains(browser).move_to_element_with_offset(plot, -100, 0).perform()
    values = [float(entry.find_element(By.CLASS_NAME, "u-value").text.replace("\u2212", "-"))
              for entry in browser.find_elements(By.CSS_SELECTOR, "#curve-plot .u-legend .u-series")]
    z, forces = values[0], values[1:]
    for curve, force in enumerate(forces):
        series, retract = divmod(curve, 2)
        z_column, force_column = 4 * series + 2 * retract, 4 * series + 2 * retract + 1
        point = np.argmin(np.abs(data[:, z_column] - z))
        assert force == pytest.approx(float(data[point, force_column]), rel=1e-4, abs=1e-4)
    # A click on a legend entry hides that curve alone.
    entries[1].find_element(By.TAG_NAME, "th").click()
    hidden = [("u-off" in entry.get_attribute("class")) for entry in entries]
    assert hidden == [False, True, False, False]
    entries[1].find_element(By.TAG_NAME, "th").click()
    screenshot(browser, "force_2x300.html.png", tmp_path)
    assert console_errors(browser) == []


def write_image_file(path, samples):
    """A minimal image file in the instrument's layout."""
    rows, columns = samples.shape
    lines = ["[Data Version]", "DataVersion=2", "", "[Data Parameters]", "DataOffset=  4096",
             "ScanRangeX=10.0000 \xb5m", "ScanRangeY=10.0000 \xb5m",
             f"ResolutionX={columns}", f"ResolutionY={rows}"]
    header = ("\r\n".join(lines + ["", "[Data]"]) + "\r\n").encode("latin-1")
    Path(path).write_bytes(header.ljust(4096, b"\0") + samples.astype("<f4").tobytes())


def test_page_size_is_bounded_by_its_samples(tmp_path):
    """Three levellings of the samples in base64 and a fixed part, nothing else per sample."""
    rng = np.random.default_rng(7)
    samples = rng.normal(size=(512, 512)).astype(np.float32)
    source = tmp_path / "large.flt"
    write_image_file(source, samples)
    page = export_page(source, tmp_path)
    sample_bytes = samples.size * 4
    assert page.stat().st_size <= 1.5 * (3 * sample_bytes + 200_000)
    # Each levelling's samples are there, whole.
    assert page.stat().st_size >= 3 * sample_bytes * 4 / 3
