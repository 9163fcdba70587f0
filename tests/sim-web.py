"""panel-sim's web view in headless Chromium, used as the operator would: the
panel is taken over with the page's take-over button, the address editor is
walked to with the shaft knob (click and mouse wheel) and the keyboard, a digit
changed and saved; a font is saved and the panel handed back with EXIT; the key
test counts clicked keys. The page's text, the sandbox's files and the pixels
of the screens (in the fonts of xfonts-base, read here with Pillow) are checked.

Usage: sim-web.py PANEL_SIM SOURCE_DIR. With PANEL_SIM_SCREENSHOTS=1 the
screenshots of the docs are written to SOURCE_DIR/docs/screenshots.
Exit status 77 (skipped) only when chromium or its driver is missing."""

import gzip
import io
import os
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
import traceback

CHROMIUM = shutil.which("chromium")
CHROMEDRIVER = shutil.which("chromedriver")
if not CHROMIUM or not CHROMEDRIVER:
    print("SKIPPED: chromium and chromium-driver are needed (scripts/install-deps installs them)")
    sys.exit(77)

from PIL import Image, PcfFontFile  # noqa: E402 (after the skip: only needed then)
from selenium import webdriver  # noqa: E402
from selenium.common.exceptions import TimeoutException, WebDriverException  # noqa: E402
from selenium.webdriver.chrome.service import Service  # noqa: E402
from selenium.webdriver.common.action_chains import ActionChains  # noqa: E402
from selenium.webdriver.common.actions.wheel_input import ScrollOrigin  # noqa: E402
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.common.keys import Keys  # noqa: E402
from selenium.webdriver.support.ui import WebDriverWait  # noqa: E402

FONT_DIR = "/usr/share/fonts/X11/misc"
TFT_WIDTH, TFT_HEIGHT, ZOOM = 320, 240, 2  # as the page draws them
SAMPLE = "The quick brown fox 0123456789"
WHITE, BLACK, MARK = (255, 255, 255), (0, 0, 0), (255, 210, 0)
INTERFACES = ("auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
              "address 193.168.1.10\nnetmask 255.255.255.0\nbroadcast 192.168.1.255\ngateway 192.168.1.1\n")

sim, source_dir = sys.argv[1], sys.argv[2]
screenshot_dir = os.path.join(source_dir, "docs", "screenshots") if os.environ.get("PANEL_SIM_SCREENSHOTS") == "1" else None
work = tempfile.mkdtemp(prefix="panel-sim-web-")
root = os.path.join(work, "sandbox")
sim_process = None
driver = None


class Failure(Exception):
    pass


def step(text):
    print("ok: " + text, flush=True)


def start_sim():
    """panel-sim --web on a free port; returns the URL it prints."""
    global sim_process
    sim_process = subprocess.Popen([sim, "--web", "0", "--root", root], stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True)
    deadline = time.monotonic() + 20
    output = ""
    while time.monotonic() < deadline:
        ready, _, _ = select.select([sim_process.stdout], [], [], 0.5)
        if ready:
            line = sim_process.stdout.readline()
            if not line:
                break
            output += line
            match = re.search(r"the panel is at (http://127\.0\.0\.1:\d+/) ", line)
            if match:
                return match.group(1)
    raise Failure("panel-sim printed no URL within 20 s:\n" + output)


def start_browser():
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    # Root in a chroot, without a GPU or a big /dev/shm, and nothing of the
    # user's own profile.
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                     "--window-size=2048,1200", "--hide-scrollbars",
                     "--user-data-dir=" + os.path.join(work, "chromium")):
        options.add_argument(argument)
    # Selenium reaches chromedriver at "localhost": without that name (a root
    # with no /etc/hosts) it waits 30 s for nothing. Its log tells which.
    log = os.path.join(work, "chromedriver.log")
    try:
        return webdriver.Chrome(service=Service(CHROMEDRIVER, log_path=log), options=options)
    except WebDriverException as error:
        tail = ""
        if os.path.exists(log):
            with open(log, errors="replace") as text:
                tail = "".join(text.readlines()[-20:])
        raise Failure(f"chromedriver: {error.msg}; the end of its log:\n{tail}") from error


def row(screen, number):
    """(text, inverse, marks) of a row as the page has it."""
    return tuple(driver.execute_script(
        "const li = document.querySelector(`#tft-${arguments[0]} .rows li[data-row='${arguments[1]}']`);"
        "return [li.textContent, li.dataset.inverse === '1', li.dataset.marks];", screen, number))


def screens_text():
    return "\n".join("  screen %d row %d: %r" % ((s, r) + (row(s, r),)) for s in range(3) for r in range(9))


def wait(what, condition, timeout=10):
    try:
        WebDriverWait(driver, timeout, poll_frequency=0.05).until(lambda _: condition())
    except TimeoutException:
        raise Failure("not within %s s: %s\nThe page shows:\n%s\nstatus: %s\ncalls: %s" % (
            timeout, what, screens_text(), text_of("status"), text_of("calls"))) from None
    step(what)


def wait_row(screen, number, text, inverse=None, marks=None, timeout=10):
    def matches():
        actual = row(screen, number)
        return (actual[0] == text and (inverse is None or actual[1] == inverse)
                and (marks is None or actual[2] == marks))
    looks = "" if inverse is None else " highlighted" if inverse else " plain"
    wait("screen %d row %d %r%s%s" % (screen, number, text, looks, "" if marks is None else " marks " + marks),
         matches, timeout)


def text_of(element_id):
    return driver.find_element(By.ID, element_id).get_attribute("textContent")


def keys(*sequence):
    ActionChains(driver).send_keys(*sequence).perform()


def knob(shaft):
    return driver.find_element(By.CSS_SELECTOR, ".shaft[data-shaft='%d'] .knob" % shaft)


def wheel(shaft, steps):
    for _ in range(abs(steps)):
        ActionChains(driver).scroll_from_origin(ScrollOrigin.from_element(knob(shaft)), 0,
                                                100 if steps > 0 else -100).perform()


def sandbox_file(path):
    try:
        with open(root + path) as f:
            return f.read()
    except OSError:
        return None


def screenshot(name):
    if screenshot_dir:
        os.makedirs(screenshot_dir, exist_ok=True)
        driver.save_screenshot(os.path.join(screenshot_dir, name))
        step("screenshot " + os.path.join(screenshot_dir, name))


def element_pixels(element):
    return Image.open(io.BytesIO(element.screenshot_as_png)).convert("RGB")


def glyph_cells(name):
    """The font's cells as Pillow reads the PCF file: character -> image."""
    font = PcfFontFile.PcfFontFile(gzip.open(os.path.join(FONT_DIR, name + ".pcf.gz")))
    width, height = (int(n) for n in name.split("x"))
    ascent = max(-glyph[1][1] for glyph in font.glyph if glyph)
    cells = {}
    for code, glyph in enumerate(font.glyph):
        if glyph:
            cell = Image.new("1", (width, height), 0)
            cell.paste(glyph[3], (glyph[1][0], ascent + glyph[1][1]))
            cells[chr(code)] = cell
    return cells, width, height


def check_cells(image, name, line, top, inverse=False, marked=()):
    """Each canvas pixel of the text's cells at canvas row top, as ZOOM x ZOOM
    screen pixels: the glyph's pixels white on black (inverted: black on
    white); a marked cell's last pixel row is the simulator's underline."""
    cells, width, height = glyph_cells(name)
    wrong = []
    for column, character in enumerate(line):
        for y in range(height):
            for x in range(width):
                lit = cells[character].getpixel((x, y)) != 0
                expected = MARK if column in marked and y == height - 1 else WHITE if lit != inverse else BLACK
                cx, cy = column * width + x, top + y
                for dy in range(ZOOM):
                    for dx in range(ZOOM):
                        actual = image.getpixel((cx * ZOOM + dx, cy * ZOOM + dy))
                        if actual != expected:
                            wrong.append("canvas pixel %d,%d is %s, not %s" % (cx, cy, actual, expected))
    if wrong:
        raise Failure("%r in %s: %d screen pixels wrong, the first: %s" % (line, name, len(wrong), wrong[0]))


def screen_image(screen):
    canvas = driver.find_element(By.CSS_SELECTOR, "#tft-%d canvas" % screen)
    image = element_pixels(canvas)
    if image.size != (TFT_WIDTH * ZOOM, TFT_HEIGHT * ZOOM):
        raise Failure("screen %d is %dx%d pixels on the page" % ((screen,) + image.size))
    return image


def check_sample(name):
    cells, width, height = glyph_cells(name)
    wait("the font sample is drawn in " + name,
         lambda: driver.find_element(By.ID, "font-sample").get_attribute("data-font") == name)
    image = element_pixels(driver.find_element(By.ID, "font-sample"))
    if image.size != (len(SAMPLE) * width * ZOOM, height * ZOOM):
        raise Failure("the %s sample is %dx%d pixels" % ((name,) + image.size))
    check_cells(image, name, SAMPLE, 0)
    step("the font sample's pixels are %s's glyphs (%dx%d screen pixels)" % ((name,) + image.size))


def walk(url):
    driver.get(url)
    wait("the idle line", lambda: text_of("status").startswith("idle: the main application has the panel"), 20)
    wait_row(0, 0, "")
    check_sample("10x20")  # the template's launcher configuration

    driver.find_element(By.ID, "take-over").click()
    wait("the setup script is told", lambda: "setup_script enter" in text_of("calls"), 15)
    wait_row(0, 0, "SETUP", True)
    wait_row(0, 1, "TESTING", False)
    wait_row(0, 3, "EXIT", False)
    wait("the screens are drawn in 8x13", lambda: driver.find_element(
        By.CSS_SELECTOR, "#tft-0 canvas").get_attribute("data-font") == "8x13")
    image = screen_image(0)
    check_cells(image, "8x13", "SETUP".ljust(24), 0, inverse=True)
    check_cells(image, "8x13", "TESTING".ljust(24), 13)
    step("main menu pixels: row 0 inverted across 24 cells, row 1 plain, in 8x13")
    check_sample("8x13")
    screenshot("main-menu.png")

    # The address editor: the menu shaft's knob is clicked (select) and turned.
    knob(4).click()
    wait_row(1, 0, "IP Addr", True)
    knob(4).click()
    wait_row(2, 0, "192.168.  1. 10", False, "0:192")
    check_cells(screen_image(2), "8x13", "192.168.  1. 10".ljust(24), 0, marked=(0, 1, 2))
    step("the painted field 192 is underlined at columns 0 to 2")
    screenshot("ip-editor.png")
    wheel(4, 1)
    wait_row(2, 0, "193.168.  1. 10", False, "0:193")
    keys(Keys.ESCAPE)
    wait_row(2, 0, "")
    keys("j" * 7)
    wait_row(1, 7, "Save Changes", True)
    keys(Keys.ENTER)
    wait_row(2, 4, "193.168.1.10", timeout=8)
    wait("the interfaces file holds 193.168.1.10", lambda: sandbox_file("/etc/network/interfaces") == INTERFACES, 8)
    wait("networking restarted and synced",
         lambda: [li.text for li in driver.find_elements(By.CSS_SELECTOR, "#calls li")]
         == ["setup_script enter", "networking restart", "sync"], 8)
    wait_row(2, 1, "", timeout=8)

    # A smaller font: saved now, used once the panel is handed back.
    keys("kkk")
    wait_row(1, 4, "Font Size", True)
    keys(Keys.ENTER)
    wait_row(2, 2, "10x20", True)
    wheel(4, -2)
    wait_row(2, 0, "6x13", True)
    keys(Keys.BACKSPACE)
    wait_row(2, 0, "")
    keys("jjj")
    wait_row(1, 7, "Save Changes", True)
    keys(Keys.ENTER)
    wait_row(2, 4, "6x13")
    wait_row(2, 1, "", timeout=8)
    keys(Keys.ESCAPE)
    wait_row(0, 0, "SETUP", True)

    # The key test: its first select's release and key 7's first release end
    # the blinking, the three clicks after them count.
    keys("j", Keys.ENTER)
    wait_row(1, 0, "SHAFTS", True)
    keys("j")
    wait_row(1, 1, "KEYS", True)
    keys(Keys.ENTER)
    wait_row(2, 0, "Key Test")
    key7 = driver.find_element(By.CSS_SELECTOR, ".key[data-key='7']")
    for _ in range(4):
        key7.click()
    wait_row(2, 1, "btid 7 down 3")
    wait_row(2, 2, "btid 7 up 3")
    wait("key 7 is lit", lambda: "lit" in key7.get_attribute("class").split())
    screenshot("key-test.png")
    knob(2).click()  # push switch 26 leaves the page
    wait_row(1, 1, "KEYS", True)
    keys(Keys.ESCAPE)
    wait_row(0, 1, "TESTING", True)

    keys("jj")
    wait_row(0, 3, "EXIT", True)
    keys(Keys.ENTER)
    wait("the setup script is told the panel is back", lambda: "setup_script exit" in text_of("calls"))
    wait("the launcher configuration names 6x13",
         lambda: "[font]\nheight=13\nwidth=6\n" in (sandbox_file("/etc/kd5820m/launcher.cfg") or ""), 8)
    wait("the screens' font is 6x13", lambda: driver.find_element(
        By.CSS_SELECTOR, "#tft-0 figcaption").text.endswith("font 6x13"))
    check_sample("6x13")
    print("latency: " + driver.execute_script("return fetch('latency').then(r => r.text())"), flush=True)


status = 1
try:
    url = start_sim()
    step("panel-sim serves " + url)
    driver = start_browser()
    walk(url)
    status = 0
except Failure as failure:
    print("FAILED: %s" % failure)
except Exception:
    traceback.print_exc()
finally:
    if driver:
        driver.quit()
    if sim_process:
        sim_process.terminate()
        try:
            output, _ = sim_process.communicate(timeout=10)
        except subprocess.TimeoutExpired:
            sim_process.kill()
            output, _ = sim_process.communicate()
        if sim_process.returncode != 0:
            print("FAILED: panel-sim exited with %d" % sim_process.returncode)
            status = 1
        print(output.strip())
        if status != 0 and os.path.exists(os.path.join(root, "daemon.log")):
            with open(os.path.join(root, "daemon.log")) as log:
                print("The end of the daemon's log:\n" + "".join(log.readlines()[-30:]))
    shutil.rmtree(work, ignore_errors=True)
sys.exit(status)
