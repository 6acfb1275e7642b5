"""Makes docs/studio.png, the README's picture of the studio: the page on
the test photograph with stripes of period 9 pixels added (as the tests make
it), the stripes' peaks found and circled, and a notch placed on the
strongest one by a click, in headless Chromium. Run from the repository:
/usr/bin/python3 tests/studio/take_screenshot.py build/tools/kxfreq"""
import os
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
ROOT = os.path.dirname(os.path.dirname(HERE))
os.environ["KXFREQ_TOOL"] = os.path.abspath(sys.argv[1])
os.environ.setdefault("KXFREQ_TEST_DATA", os.path.join(ROOT, "tests", "tools", "data"))

import browser_support as browser  # noqa: E402
import studio_support as support  # noqa: E402
from conftest import striped_photo  # noqa: E402
from test_browser import click_at_frequency  # noqa: E402


def main():
    work = tempfile.mkdtemp(prefix="kxstudio-screenshot-")
    striped_photo(os.path.join(work, "striped-photo.pgm"))
    studio = support.Studio("striped-photo.pgm", cwd=work)
    driver = browser.start_browser(1480, 1150)
    try:
        driver.get(studio.url + "/")
        browser.wait_full_result(driver)
        peak = driver.execute_script("return window.studio.info.components[0];")
        click_at_frequency(driver, peak["fx"], peak["fy"])   # snaps onto the found peak
        browser.wait_full_result(driver)
        driver.find_element("id", "showCommand").click()
        from selenium.webdriver.support.ui import WebDriverWait
        WebDriverWait(driver, 20).until(lambda d: "kxfreq filter" in d.find_element("id", "exportText").text)
        driver.execute_script("window.scrollTo(0, 0);")
        out = os.path.join(ROOT, "docs", "studio.png")
        driver.save_screenshot(out)
        print(out)
    finally:
        browser.stop_browser(driver)
        studio.stop()


if __name__ == "__main__":
    main()
