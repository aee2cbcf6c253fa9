# SPDX-License-Identifier: MIT
"""The site in a real browser, at 400, 768 and 1280 pixels: no page is wider than the window, no script reports an error,
the list of pages can be reached, and the search finds a call, a type and a word of a document.

    browserTest.py SOURCE-DIRECTORY [DIRECTORY-FOR-SCREENSHOTS]

Ends with 77, which ctest shows as skipped, where the browser or its driver is not installed.
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile

WIDTHS = (400, 768, 1280)
SKIPPED = 77

try:
    from selenium import webdriver
    from selenium.webdriver.common.by import By
    from selenium.webdriver.chrome.service import Service
except ImportError:
    print("skipped: python3-selenium is not installed (scripts/bootstrap ci)")
    sys.exit(SKIPPED)
for program in ("chromium", "chromedriver"):
    if not shutil.which(program):
        print(f"skipped: {program} is not installed (scripts/bootstrap ci)")
        sys.exit(SKIPPED)

source = pathlib.Path(sys.argv[1])
screenshots = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else None
failures = []


def browser(profile):
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for each in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync",
                 "--disable-dev-shm-usage", "--disable-background-networking", "--disable-component-update",
                 "--hide-scrollbars", f"--user-data-dir={profile}"):
        options.add_argument(each)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(options=options, service=Service(shutil.which("chromedriver")))


def resize(driver, width):
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                           {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})


def overflow(driver):
    """By how many pixels the page is wider than the window."""
    return driver.execute_script("const e = document.documentElement; return e.scrollWidth - e.clientWidth;")


def look(driver, site, page):
    driver.get((site / page).as_uri())
    for width in WIDTHS:
        resize(driver, width)
        if overflow(driver) > 0:
            failures.append(f"{page} is {overflow(driver)} pixels too wide at {width} pixels")
        if screenshots and page in SHOWN:
            driver.save_screenshot(str(screenshots / f"{page.replace('/', '-')}-{width}.png"))
    failures.extend(f"{page}: {entry['message']}" for entry in driver.get_log("browser"))


def navigation(driver, site):
    """On a narrow screen the list of pages opens over the text; on a wide one it is always there."""
    for width in WIDTHS:
        driver.get((site / "index.html").as_uri())
        resize(driver, width)
        pages = driver.find_element(By.ID, "site-pages")
        if width < 1024:
            if pages.is_displayed():
                failures.append(f"the list of pages covers the text at {width} pixels")
            driver.find_element(By.CSS_SELECTOR, "header .menu").click()
        if not pages.is_displayed():
            failures.append(f"the list of pages cannot be reached at {width} pixels")
        pages.find_element(By.LINK_TEXT, "Architecture").click()
        if not driver.current_url.endswith("docs/architecture.html"):
            failures.append(f"at {width} pixels the link to the architecture leads to {driver.current_url}")


def the_checks_can_fail(driver, site):
    driver.get((site / "index.html").as_uri())
    driver.execute_script("document.querySelector('main').insertAdjacentHTML('beforeend', '<div style=width:5000px>x</div>')")
    if overflow(driver) < 1000:
        failures.append("a page of 5000 pixels is not found to be too wide")
    driver.execute_script("setTimeout(() => { throw new Error('on purpose'); }, 0)")
    if not any("on purpose" in entry["message"] for _ in range(50) for entry in driver.get_log("browser")):
        failures.append("an error of a script is not seen")


def search(driver, site, page, words, wanted):
    driver.get((site / page).as_uri())
    driver.find_element(By.ID, "site-query").send_keys(words)
    links = [link.get_attribute("href") for link in driver.find_elements(By.CSS_SELECTOR, "#site-results a")]
    if not any(link.endswith(wanted) for link in links[:3]):
        failures.append(f"the search for {words!r} from {page} finds {links}")
    elif not (site / wanted).is_file():
        failures.append(f"{wanted} is not there")


SHOWN = ("index.html", "docs/architecture.html", "docs/vosctl.html", "manual/vosMsgSend.3.html", "manual/vosMsg.3.html",
         "docs/performance.html")

with tempfile.TemporaryDirectory() as directory:
    scratch = pathlib.Path(directory)
    site = scratch / "site"
    subprocess.run([source / "scripts/site", site], check=True, stdout=subprocess.DEVNULL)
    driver = browser(scratch / "profile")
    try:
        pages = sorted(file.relative_to(site).as_posix() for file in site.rglob("*.html"))
        for page in pages:
            look(driver, site, page)
        resize(driver, 1280)
        search(driver, site, "index.html", "vosMsgSend", "manual/vosMsgSend.3.html")
        search(driver, site, "manual/vosMsg.3.html", "msg_peer", "manual/VOS_MSG_PEER.3.html")
        search(driver, site, "docs/architecture.html", "power cut jffs2", "docs/power-cuts.html")
        navigation(driver, site)
        the_checks_can_fail(driver, site)
    finally:
        driver.quit()

print(f"{len(pages)} pages at {len(WIDTHS)} widths")
for failure in failures:
    print("FAILED:", failure)
sys.exit(bool(failures) or len(pages) < 100)
