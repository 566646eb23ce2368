#!/usr/bin/python3
"""Time to ready of a kiv page in headless Chromium: page_bench.py PAGE [LOADS].

Loads the page from disk LOADS times (default 5), each a fresh navigation from about:blank, and
takes from navigation start to the moment the page sets document.body.dataset.ready to "1".
The moment is taken inside the page: a script installed before any of the page's own runs
watches for the attribute and notes performance.now(), whose zero is navigation start, so
neither Selenium's polling nor its round trips count. Prints "MEDIAN_MS FASTEST_MS SLOWEST_MS".
Needs Debian's chromium, chromium-driver and python3-selenium.
"""
import pathlib
import shutil
import statistics
import sys

from selenium import webdriver
from selenium.common.exceptions import TimeoutException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.ui import WebDriverWait

# The observer sees the attribute set however the page sets it; a page that marks its body ready
# before the observer's first callback is caught by the check on body insertion.
WATCH_READY = """
(() => {
  const note = () => {
    if (window.__kivReadyAt === undefined && document.body && document.body.dataset.ready === "1")
      window.__kivReadyAt = performance.now();
  };
  new MutationObserver(note).observe(document, {
    subtree: true, childList: true, attributes: true, attributeFilter: ["data-ready"] });
})();
"""
TIMEOUT_SECONDS = 60


def browser():
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium") or "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--window-size=1280,1000", "--allow-file-access-from-files"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    service = Service(shutil.which("chromedriver") or "/usr/bin/chromedriver")
    return webdriver.Chrome(service=service, options=options)


def time_to_ready(driver, url):
    driver.get("about:blank")
    driver.get(url)
    try:
        return WebDriverWait(driver, TIMEOUT_SECONDS, poll_frequency=0.01).until(
            lambda d: d.execute_script("return window.__kivReadyAt;"))
    except TimeoutException:
        errors = [entry["message"] for entry in driver.get_log("browser")
                  if entry["level"] == "SEVERE"]
        raise SystemExit(f"page_bench.py: {url} was not ready after {TIMEOUT_SECONDS} s"
                         + "".join(f"\n  console: {message}" for message in errors))


def main():
    if len(sys.argv) not in (2, 3):
        raise SystemExit(__doc__)
    url = pathlib.Path(sys.argv[1]).resolve().as_uri()
    loads = int(sys.argv[2]) if len(sys.argv) == 3 else 5
    driver = browser()
    try:
        driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": WATCH_READY})
        times = [time_to_ready(driver, url) for _ in range(loads)]
    finally:
        driver.quit()
    print(f"{statistics.median(times):.1f} {min(times):.1f} {max(times):.1f}")


if __name__ == "__main__":
    main()
