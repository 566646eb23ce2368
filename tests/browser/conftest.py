"""Pages opened in a real browser: Debian's headless Chromium driven by Selenium. Every page is
opened from disk (file://), as a user opens a saved page, so nothing reaches the network."""
import shutil
import sys
from pathlib import Path

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service

sys.path.insert(0, str(Path(__file__).parents[1] / "common"))
from kiv_command import FORCE_SAMPLE, IMAGE_SAMPLE, SAMPLES, kiv_binary, run_kiv  # noqa: E402,F401


@pytest.fixture(scope="session")
def browser():
    chromium = shutil.which("chromium") or "/usr/bin/chromium"
    driver_path = shutil.which("chromedriver") or "/usr/bin/chromedriver"
    options = webdriver.ChromeOptions()
    options.binary_location = chromium
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu",
                     "--disable-dev-shm-usage", "--window-size=1280,1000",
                     "--force-device-scale-factor=1", "--allow-file-access-from-files"):
        options.add_argument(argument)
    # The console's errors are read back by the tests.
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(driver_path), options=options)
    yield driver
    driver.quit()


def console_errors(driver):
    return [entry for entry in driver.get_log("browser") if entry["level"] == "SEVERE"]
