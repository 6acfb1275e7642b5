"""The studio's page in headless Chromium: load it, click on a peak of the
spectrum, move a slider, and check that the result changed and that the
exported command, run with the tool, gives the page's pixels."""
import json
import shlex
import urllib.parse

import pytest

import browser_support as browser
import studio_support as support


@pytest.fixture(scope="module")
def driver():
    d = browser.start_browser()
    yield d
    browser.stop_browser(d)


def click_at_frequency(driver, fx, fy):
    from selenium.webdriver.common.action_chains import ActionChains
    canvas = driver.find_element("id", "spectrum")
    driver.execute_script("window.scrollTo(0, 0);")
    layout = driver.execute_script("return window.studio.layout;")
    x = layout["left"] + (fx + 0.5) * layout["plot"]
    y = layout["top"] + (fy + 0.5) * layout["plot"]
    # Offsets count from the element's centre.
    ActionChains(driver).move_to_element_with_offset(canvas, x - canvas.size["width"] / 2,
                                                     y - canvas.size["height"] / 2).click().perform()


def test_click_a_peak_move_a_slider_and_export(driver, studio, workdir):
    driver.get(studio.url + "/")
    assert browser.wait_full_result(driver) == ""
    assert driver.find_element("id", "message").text == "0 filters"
    before = support.read_bmp(browser.page_result_bmp(driver))[3]

    # Click on the stripes' peak (the lobe below the middle, at 30 degrees).
    info = json.loads(studio.get("/api/info")[2])
    peak = info["components"][0]
    click_at_frequency(driver, peak["fx"], peak["fy"])
    filters = browser.wait_full_result(driver)
    kind, frequency, angle = filters.split(",")[:3]
    assert kind == "g" and ";" not in filters
    assert abs(float(frequency) - peak["frequency"]) < 1e-4 and abs(float(angle) - peak["angle"]) < 0.01
    notched = support.read_bmp(browser.page_result_bmp(driver))[3]
    assert notched != before

    # Widen the notch with the sigma slider.
    from selenium.webdriver.common.action_chains import ActionChains
    slider = driver.find_element("id", "sigmaRange")
    old_sigma = float(slider.get_attribute("value"))
    ActionChains(driver).move_to_element_with_offset(slider, slider.size["width"] // 4, 0).click().perform()
    filters = browser.wait_full_result(driver)
    new_sigma = float(driver.find_element("id", "sigma").get_attribute("value"))
    assert new_sigma > old_sigma
    assert float(filters.split(",")[3]) == new_sigma
    widened = support.read_bmp(browser.page_result_bmp(driver))[3]
    assert widened != notched

    # The exported command, run with the tool, gives the page's pixels.
    driver.find_element("id", "showCommand").click()
    from selenium.webdriver.support.ui import WebDriverWait
    text = WebDriverWait(driver, 20).until(
        lambda d: d.find_element("id", "exportText").text if "kxfreq filter" in d.find_element(
            "id", "exportText").text else None)
    commands = [line for line in text.splitlines() if line.startswith("kxfreq filter ")]
    assert len(commands) == 2 and "--gabor-reject" in commands[1]
    link = driver.find_element("id", "saveFilter").get_attribute("href")
    assert urllib.parse.urlparse(link).path == "/api/export/filter.kxf"
    status, _, archive = studio.get(link[len(studio.url):])
    assert status == 200
    (workdir / "striped-filter.kxf").write_bytes(archive)
    for command in commands:
        args = shlex.split(command)
        run = support.run_tool(*args[1:], cwd=str(workdir))
        assert run.returncode == 0, run.stderr
        output = workdir / args[args.index("-o") + 1]
        assert support.read_png_file(str(output))[3] == widened, command
        output.unlink()


def test_drag_moves_a_notch_and_ends_at_full_size(driver, studio):
    from selenium.webdriver.common.action_chains import ActionChains
    driver.get(studio.url + "/")
    browser.wait_full_result(driver)
    click_at_frequency(driver, 0.1, 0.1)
    first = browser.wait_full_result(driver)
    previews = driver.execute_script("return window.studio.shown.preview;")
    canvas = driver.find_element("id", "spectrum")
    layout = driver.execute_script("return window.studio.layout;")
    x = layout["left"] + 0.6 * layout["plot"] - canvas.size["width"] / 2
    y = layout["top"] + 0.6 * layout["plot"] - canvas.size["height"] / 2
    actions = ActionChains(driver).move_to_element_with_offset(canvas, x, y).click_and_hold()
    for step in range(1, 6):   # to (0.2, 0.1): previews on the way
        actions.move_to_element_with_offset(canvas, x + step * 0.02 * layout["plot"], y)
    actions.release().perform()
    moved = browser.wait_full_result(driver)
    assert moved != first and moved.startswith("g,")
    assert abs(float(moved.split(",")[1]) - (0.2 ** 2 + 0.1 ** 2) ** 0.5) < 0.005
    assert driver.execute_script("return window.studio.filters.length;") == 1
    assert driver.execute_script("return window.studio.shown.preview;") > previews


def test_bad_value_shows_the_librarys_message(driver, studio):
    driver.get(studio.url + "/")
    browser.wait_full_result(driver)
    click_at_frequency(driver, -0.2, 0.1)
    browser.wait_full_result(driver)
    field = driver.find_element("id", "frequency")
    field.clear()
    field.send_keys("0.8\n")
    from selenium.webdriver.support.ui import WebDriverWait
    WebDriverWait(driver, 20).until(lambda d: "Frequency must be between 0.0 and 0.5." in d.find_element(
        "id", "message").text)
    assert driver.find_element("id", "result").get_attribute("data-kind") == "error"
    field.clear()
    field.send_keys("0.2\n")
    browser.wait_full_result(driver)
    assert driver.find_element("id", "message").text == "1 filter"


def test_open_image_shows_a_bad_file_on_the_page(driver, workdir, striped):
    from selenium.webdriver.support.ui import WebDriverWait
    from conftest import write_pgm
    server = support.Studio("striped.pgm", cwd=str(workdir))
    try:
        driver.get(server.url + "/")
        browser.wait_full_result(driver)
        click_at_frequency(driver, 0.1, 0.05)
        kept = browser.wait_full_result(driver)
        (workdir / "broken.png").write_bytes(b"\x89PNG\r\n\x1a\n not really")
        chooser = driver.find_element("id", "open")
        chooser.send_keys(str(workdir / "broken.png"))
        WebDriverWait(driver, 20).until(lambda d: "cannot open broken.png: " in d.find_element("id", "message").text)
        assert "striped.pgm" in driver.find_element("id", "name").text

        rows = [[(x * 3 + y * 7) % 256 for x in range(120)] for y in range(90)]
        write_pgm(str(workdir / "small.pgm"), rows)
        chooser.send_keys(str(workdir / "small.pgm"))
        WebDriverWait(driver, 20).until(lambda d: d.find_element("id", "name").text.startswith("small.pgm (120 x 90"))
        # The filters stay and the result is the new image's.
        assert browser.wait_full_result(driver) == kept
        result = support.read_bmp(browser.page_result_bmp(driver))
        assert result[:2] == (120, 90)
    finally:
        server.stop()
