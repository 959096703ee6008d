"""report_page.py FUSION CHROMIUM [PICTURES]: whether a report works in a browser.

Makes a scene, fuses it, writes a report, opens it in a headless Chromium, and uses it as a reader does. Pictures of the page
are left in the folder PICTURES where one is named. Words in FUSION are parted by |, where a program runs it."""
import base64
import json
import math
import pathlib
import subprocess
import sys
import tempfile

SKIPPED = 77

fusion, chromium = sys.argv[1:3]
pictures = pathlib.Path(sys.argv[3]) if len(sys.argv) > 3 else None
try:
    from devtools import Browser
except ImportError as missing:
    print("skipped:", missing)
    sys.exit(SKIPPED)
if not chromium:
    print("skipped: there is no Chromium")
    sys.exit(SKIPPED)


def expect(condition, what):
    if not condition:
        raise AssertionError(what)
    print("ok:", what)


def run(*words):
    return subprocess.run([*fusion.split("|"), *words], cwd=folder, check=True, stdout=subprocess.PIPE, encoding="utf-8").stdout


def keep(name, png):
    if pictures:
        pictures.mkdir(parents=True, exist_ok=True)
        (pictures / name).write_bytes(png)


class Page:
    """The report in its browser."""

    def __init__(self, browser):
        self.browser = browser

    def box(self):
        return self.browser.ask("(() => { const b = document.getElementById('view').getBoundingClientRect();"
                                "return [b.x, b.y, b.width, b.height]; })()")

    def split(self):
        return int(self.browser.ask("document.getElementById('divider').getAttribute('aria-valuenow')"))

    def zoom(self):
        return int(self.browser.ask("document.getElementById('zoom').textContent").split()[0])

    def place(self):
        return self.browser.ask("document.querySelector('#left-side img').style.transform")

    def middle(self):
        """What is seen around the middle of the view, beside the divider's grip."""
        x, y, width, height = self.box()
        return self.browser.picture((x + 0.3 * width, y + 0.65 * height, 0.1 * width, 0.2 * height))


def look(page, browser):
    expect(browser.ask("!document.getElementById('swipe').hidden"), "the script runs")
    expect(browser.ask("Promise.all([...document.images].map((i) => i.decode().then(() => i.naturalWidth > 0)))"
                       ".then((all) => all.every(Boolean))"), "every picture can be shown")
    expect(browser.ask("document.documentElement.scrollWidth <= innerWidth"), "nothing is wider than the page")


def swipe(page, browser):
    x, y, width, height = page.box()
    expect(page.split() == 50, "the divider begins in the middle")
    browser.drag(x + 0.5 * width, y + 0.5 * height, x + 0.8 * width, y + 0.5 * height)
    expect(page.split() == 80, "the mouse moves the divider")
    left = page.middle()
    browser.drag(x + 0.8 * width, y + 0.5 * height, x + 0.1 * width, y + 0.5 * height)
    expect(page.split() == 10, "and back")
    right = page.middle()
    expect(left != right, "another image is seen on its other side")
    expect(browser.ask("document.activeElement.id") == "divider", "it has the focus then")
    browser.key("ArrowRight")
    expect(page.split() == 12, "an arrow key moves it")
    browser.key("PageUp")
    expect(page.split() == 22, "a page key moves it farther")
    browser.key("End")
    expect(page.split() == 100, "the end key to the end")
    expect("100 percent multispectral" in browser.ask("document.getElementById('divider').getAttribute('aria-valuetext')"),
           "it says in words where it stands")
    expect(page.middle() == left, "what lies on its left side is the left image")
    browser.key("Home")
    expect(page.middle() == right, "and on its right side the right one")


def zoom(page, browser):
    fit, place = page.zoom(), page.place()
    browser.key("+")
    expect(math.isclose(page.zoom(), 1.5 * fit, abs_tol=1.0), "the plus key zooms in")
    near = page.place()
    browser.key("ArrowRight", modifiers=8)
    expect(page.place() != near, "Shift and an arrow key move the picture")
    moved = page.place()
    x, y, width, height = page.box()
    browser.drag(x + 0.6 * width, y + 0.5 * height, x + 0.7 * width, y + 0.5 * height)
    expect(page.place() != moved and page.split() == 0, "so does the mouse, the divider stays")
    browser.key("-")
    expect(page.zoom() == fit, "the minus key zooms out")
    browser.key("+")
    browser.key("0")
    expect(page.zoom() == fit and page.place() == place, "0 shows all of it again")
    browser.mouse("mouseWheel", x + width / 2, y + height / 2, deltaX=0, deltaY=-300, modifiers=2)
    expect(page.zoom() > 2 * fit, "the wheel zooms with Ctrl")
    browser.ask("document.getElementById('pixels').click()")
    expect(page.zoom() == 100, "a button shows pan's own pixels")
    browser.ask("document.getElementById('fit').click()")
    expect(page.zoom() == fit, "another one all of it")


def touch(page, browser):
    x, y, width, height = page.box()
    fit = page.zoom()
    browser.call("Emulation.setTouchEmulationEnabled", enabled=True, maxTouchPoints=2)
    at = y + height / 2
    browser.touch("touchStart", [(x + 0.2 * width, at)])
    browser.touch("touchMove", [(x + 0.5 * width, at)])
    browser.touch("touchMove", [(x + 0.6 * width, at)])
    browser.touch("touchEnd", [])
    expect(page.split() == 60, "a finger moves the divider")
    browser.touch("touchStart", [(x + 0.45 * width, at), (x + 0.55 * width, at)])
    browser.touch("touchMove", [(x + 0.4 * width, at), (x + 0.6 * width, at)])
    browser.touch("touchMove", [(x + 0.3 * width, at), (x + 0.7 * width, at)])
    browser.touch("touchEnd", [])
    expect(page.zoom() > 3 * fit, "two fingers zoom")
    browser.call("Emulation.setTouchEmulationEnabled", enabled=False)
    browser.ask("document.getElementById('fit').click()")


def choose(page, browser):
    before = browser.ask("document.querySelector('#right-side img').src.length")
    browser.ask("(() => { const s = document.getElementById('right'); s.selectedIndex = 1;"
                "s.dispatchEvent(new Event('change')); })()")
    expect(browser.ask("document.querySelector('#right-side img').src.length") != before, "another image can be chosen")
    expect(browser.ask("document.getElementById('right-tag').textContent") == "brovey", "its name stands on it")
    browser.ask("(() => { const s = document.getElementById('part'); s.selectedIndex = 1;"
                "s.dispatchEvent(new Event('change')); })()")
    expect(page.zoom() > 50, "a detail is shown at full resolution")
    browser.ask("(() => { const s = document.getElementById('blend'); s.value = 40;"
                "s.dispatchEvent(new Event('input')); })()")
    expect(browser.ask("document.querySelector('#right-side img').style.opacity") == "0.4", "pan shines through")


def figures(browser, told):
    for image, file in enumerate(("bayesian", "brovey"), 1):
        for name, digits in (("m_pCorrelation", 6), ("m_pMulMean", 6)):
            cells = browser.ask(f"[...document.querySelectorAll('#image-{image} tr')].find((row) => row.textContent"
                                f".includes('{name}')).innerText.split('\\t').slice(1).map((t) => t.trim())")
            wanted = [f"{v:.{digits}g}" for v in told[file]["statistics"][name]]
            expect(cells == wanted, f"{file}: {name} is what evaluate says, {wanted}")


def seen(browser, selector):
    return browser.ask(f"document.querySelector('{selector}').getClientRects().length > 0")


def media(page, browser):
    browser.resize(1280, 900)
    keep("light.png", browser.picture(whole=True))
    keep("light_top.png", browser.picture())
    light = browser.ask("getComputedStyle(document.body).backgroundColor")
    browser.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark"}])
    expect(browser.ask("getComputedStyle(document.body).backgroundColor") != light, "dark where the reader wants it dark")
    keep("dark.png", browser.picture())
    browser.ask("document.getElementById('image-1').scrollIntoView({behavior: 'instant'})")
    keep("dark_image.png", browser.picture())
    browser.call("Emulation.setEmulatedMedia", media="print", features=[])
    expect(not seen(browser, "#swipe") and seen(browser, "#gallery .picture"), "in print all pictures stand side by side")
    browser.resize(760, 1075)
    keep("print.png", browser.picture(whole=True))
    if pictures:
        (pictures / "print.pdf").write_bytes(base64.b64decode(browser.call("Page.printToPDF", printBackground=False)["data"]))
    browser.call("Emulation.setEmulatedMedia", media="", features=[])
    browser.resize(390, 844, mobile=True)
    browser.ask("new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))")
    browser.ask("scrollTo({top: 0, behavior: 'instant'})")
    expect(browser.ask("document.documentElement.scrollWidth") <= 390, "a telephone shows it without scrolling aside")
    keep("narrow.png", browser.picture())
    keep("narrow_whole.png", browser.picture(whole=True))
    browser.resize(1280, 900)


def locked(page, browser, own):
    """What gets into the page all the same is kept from the network, and from running; and would have been seen above."""
    browser.open(own)
    browser.ask("(() => { const i = new Image(); i.src = 'http://127.0.0.1:9/x.png'; document.body.append(i);"
                "const s = document.createElement('script'); s.textContent = 'window.ran = 1'; document.body.append(s); })()")
    for _ in range(50):
        if len(browser.complaints) >= 2:
            break
        browser.ask("new Promise((done) => setTimeout(done, 100))")
    expect(len(browser.complaints) >= 2, "the page's policy refuses pictures from elsewhere and other scripts")
    expect(not browser.ask("window.ran"), "they do not run")


def without_script(browser, own):
    browser.call("Emulation.setScriptExecutionDisabled", value=True)
    browser.open(own)
    expect(not seen(browser, "#swipe") and seen(browser, "#gallery .picture"), "without scripts the pictures are there")
    browser.call("Emulation.setScriptExecutionDisabled", value=False)


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    run("sample", "scene", "--size", "1600", "--quiet")
    pan, ms = "scene/pan.tif", "scene/ms.tif"
    told = {}
    for method in ("bayesian", "brovey"):
        run("fuse", pan, ms, f"{method}.tif", "--method", method, "--quiet")
        told[method] = json.loads(run("evaluate", pan, ms, f"{method}.tif", "--json", "--quiet"))
    run("report", pan, ms, "bayesian.tif", "brovey.tif", "-o", "report.html", "--quiet")
    own = (folder / "report.html").resolve().as_uri()
    browser = Browser(chromium)
    try:
        page = Page(browser)
        browser.resize(1280, 900)
        browser.open(own)
        look(page, browser)
        swipe(page, browser)
        zoom(page, browser)
        touch(page, browser)
        figures(browser, told)
        media(page, browser)
        choose(page, browser)
        keep("detail.png", browser.picture())
        without_script(browser, own)
        expect(own in browser.requests, "the page itself is asked for")
        outside = [url for url in browser.requests if url != own and not url.startswith("data:")]
        expect(not outside, f"nothing is asked for beside it: {outside}")
        expect(not browser.complaints, f"the browser has nothing to complain of: {browser.complaints}")
        locked(page, browser, own)
    finally:
        browser.close()
