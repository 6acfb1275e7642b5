"""Headless Chromium driven by Selenium for the studio's page tests."""
import os
import shutil
import tempfile

import pytest


def chromium_paths():
    """(browser, driver) or a reason they cannot be used."""
    browser = shutil.which("chromium") or shutil.which("chromium-browser")
    driver = shutil.which("chromedriver") or ("/usr/bin/chromedriver" if os.path.exists("/usr/bin/chromedriver") else None)
    if not browser or not driver:
        return None, "chromium and chromium-driver are not installed (scripts/install-deps.sh installs them)"
    return (browser, driver), None


def start_browser(width=1600, height=1000):
    """A headless Chromium with a fresh profile; skips the test without one."""
    try:
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
    except ImportError:
        pytest.skip("python3-selenium is not installed (scripts/install-deps.sh installs it)")
    paths, reason = chromium_paths()
    if not paths:
        pytest.skip(reason)
    profile = tempfile.mkdtemp(prefix="kxstudio-chromium-")
    options = webdriver.ChromeOptions()
    options.binary_location = paths[0]
    # As root Chromium needs --no-sandbox; without the networking flags it
    # waits for services this closed network does not have.
    for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--disable-dev-shm-usage", "--user-data-dir=" + profile, "--window-size=%d,%d" % (width, height)):
        options.add_argument(flag)
    driver = webdriver.Chrome(service=Service(paths[1]), options=options)
    driver.set_page_load_timeout(30)
    driver.set_script_timeout(30)
    driver.kx_profile = profile
    return driver


def stop_browser(driver):
    driver.quit()
    shutil.rmtree(driver.kx_profile, ignore_errors=True)


def page_result_bmp(driver):
    """The bytes of the result picture the page shows."""
    import base64
    data = driver.execute_async_script("""
        const done = arguments[arguments.length - 1];
        fetch(document.getElementById("result").src).then(r => r.arrayBuffer()).then(b => {
            const u = new Uint8Array(b); let s = "";
            for (let i = 0; i < u.length; ++i) s += String.fromCharCode(u[i]);
            done(btoa(s));
        }).catch(e => done("error: " + e));
    """)
    assert not data.startswith("error"), data
    return base64.b64decode(data)


def wait_full_result(driver, seconds=30):
    """Waits until the page shows the full-size result of its current filters;
    returns that filter text."""
    from selenium.webdriver.support.ui import WebDriverWait
    script = """
        const img = document.getElementById("result"), s = window.studio;
        if (!s || !s.info || s.busy || s.pending || s.drag) return null;
        const current = s.filtersText();
        return img.dataset.kind === "full" && img.dataset.filters === current ? [current] : null;
    """
    return WebDriverWait(driver, seconds, poll_frequency=0.05).until(lambda d: d.execute_script(script))[0]
