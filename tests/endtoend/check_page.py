#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The page of ztsys check --html in a browser without a window: what is shown, clicked and typed.
in_namespace.sh check_page.py BIN FOLDER    the screenshots of three sizes stay in FOLDER."""
import base64, json, os, select, subprocess, sys, tempfile, time

SCENARIO = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../agent/scenarios/demo.toml")
SYSTEMS = [f"127.0.1.{last}" for last in range(1, 9)]
HOSTILE = ['<script>document.title="taken"</script>', '"><img src=x onerror=alert(1)>',
           "a&lt;b' onclick='x", "</td></tr></table>", "\u202eright-to-left"]
SHOWN = SYSTEMS + [name.replace("\u202e", "\ufffd") for name in HOSTILE]
SIZES = {"wide": (1600, 1000), "small": (1024, 700), "telephone": (390, 844)}
MANY = 10000
MIB = 2 ** 20
LIMIT_SECONDS = 60
wrong = 0


def expect(true, *what):
    global wrong
    if not true:
        wrong += 1
        print("WRONG:", *what, flush=True)


class Browser:
    """Chromium's debugging protocol: JSON between zero octets on descriptors 3 and 4."""

    def __init__(self, profile):
        theirs_in, self.out = os.pipe()
        self.back, theirs_out = os.pipe()
        def descriptors():
            high = os.dup(theirs_in), os.dup(theirs_out)
            os.dup2(high[0], 3)
            os.dup2(high[1], 4)
        self.process = subprocess.Popen(
            ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe",
             "--no-first-run", "--disable-background-networking", f"--user-data-dir={profile}", "about:blank"],
            preexec_fn=descriptors, close_fds=False, stderr=subprocess.DEVNULL)
        os.close(theirs_in)
        os.close(theirs_out)
        self.rest, self.number, self.session, self.requests, self.loads = b"", 0, None, [], 0
        page = next(each for each in self("Target.getTargets")["targetInfos"] if each["type"] == "page")
        self.session = self("Target.attachToTarget", targetId=page["targetId"], flatten=True)["sessionId"]
        for part in "Page", "Network", "Runtime":
            self(part + ".enable")

    def read(self):
        while b"\0" not in self.rest:
            if not select.select([self.back], [], [], LIMIT_SECONDS)[0]:
                raise RuntimeError("the browser does not answer")
            more = os.read(self.back, 1 << 20)
            if not more:
                raise RuntimeError("the browser has ended")
            self.rest += more
        message, self.rest = self.rest.split(b"\0", 1)
        message = json.loads(message)
        self.loads += message.get("method") == "Page.loadEventFired"
        if message.get("method") == "Network.requestWillBeSent":
            self.requests.append(message["params"]["request"]["url"])
        return message

    def __call__(self, method, **parameters):
        self.number += 1
        call = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            call["sessionId"] = self.session
        os.write(self.out, json.dumps(call).encode() + b"\0")
        while True:
            message = self.read()
            if message.get("id") == self.number:
                if "error" in message:
                    raise RuntimeError(f"{method}: {message['error']}")
                return message["result"]

    def open(self, path):
        before = self.loads
        self("Page.navigate", url="file://" + os.path.abspath(path))
        while self.loads == before:
            self.read()

    def ask(self, expression):
        result = self("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"])
        return result["result"].get("value")

    def click(self, selector, number=0):
        x, y = self.ask(f"(e => {{e.scrollIntoView({{block:'center'}}); const b = e.getBoundingClientRect();"
                        f"return [b.x + b.width / 2, b.y + b.height / 2]}})"
                        f"(document.querySelectorAll({json.dumps(selector)})[{number}])")
        for kind in "mousePressed", "mouseReleased":
            self("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)

    def filter(self, text):
        self.ask("document.getElementById('q').select()")
        self("Input.insertText", text=text)
        time.sleep(0.3)

    def rows(self, column=0):
        """What is shown in a column."""
        return self.ask("[...document.querySelectorAll('tbody tr')].filter(r => r.getClientRects().length)"
                        f".map(r => r.cells[{column}].textContent.trim())")

    def size(self, width, height):
        self("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)

    def picture(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self("Page.captureScreenshot", format="png")["data"]))

    def end(self):
        self.process.kill()
        self.process.wait()


def clicked(browser):
    order = browser.rows()
    expect(order == SHOWN, "the order of the command", order)
    expect(browser.ask("[document.title, document.images.length, document.scripts.length,"
                       "document.querySelectorAll('[onclick],[onerror]').length]") == ["System check", 0, 1, 0],
           "markup of a name")
    for number, column in enumerate(["System", "Address", "State"]):
        place = [0, 1, 3][number]
        browser.click("th button", place)
        rising = browser.rows(place)
        browser.click("th button", place)
        expect(len(rising) == len(order) and rising != browser.rows(place), column, rising)
        key = {0: str.lower, 1: lambda text: [int(part or 0) for part in text.split(".")]}.get(place)
        expect(not key or rising == sorted(rising, key=key), column, rising)
    browser.click("th button", 0)
    browser.filter("127.0.1.2 refused")
    expect(browser.rows() == ["127.0.1.2"] and browser.ask("document.getElementById('c').textContent") ==
           f"1 of {len(order)} systems", "filter", browser.rows())
    expect(browser.ask("[...document.querySelectorAll('.g a')].filter(a => a.getClientRects().length).length")
           == 1, "the grid is filtered too")
    browser.filter("<script>")
    expect(browser.rows() == HOSTILE[:1], "filter by markup", browser.rows())
    browser.filter(" ")
    states = browser.rows(3)
    browser.click(".n label", 0)  # failed
    left = browser.rows(3)
    expect(0 < len(left) == sum(not each.endswith("failed") for each in states), "state", left, states)
    browser.click(".n label", 0)
    expect(len(browser.rows()) == len(order), "all again")
    browser.click(".g a", 2)
    expect(browser.ask("location.hash") == "#r2", "a cell leads to its row")


def looked_at(browser, page, folder):
    for name, (width, height) in SIZES.items():
        browser.size(width, height)
        browser.open(page)
        expect(browser.ask("document.documentElement.scrollWidth <= innerWidth"), name, "is too wide")
        reasons = browser.ask("[...document.querySelectorAll('td:nth-child(5)')].slice(1).map(c => c.clientWidth)")
        expect(min(reasons) > 250, name, "squeezes the reasons", reasons)
        browser.picture(f"{folder}/check-page-{name}.png")
    browser("Emulation.setScriptExecutionDisabled", value=True)
    browser.open(page)
    expect(browser.rows() == SHOWN, "without scripts", browser.rows())
    browser.picture(f"{folder}/check-page-without-scripts.png")
    browser("Emulation.setScriptExecutionDisabled", value=False)


def check(page, *words):
    subprocess.run(["ztsys", "check", "--timeout", "0", "--html", "--output", page, *words], check=False)


def main(programs, folder):
    os.environ["PATH"] = os.path.abspath(programs) + ":" + os.environ["PATH"]
    os.makedirs(folder, exist_ok=True)
    folder = os.path.abspath(folder)
    with tempfile.TemporaryDirectory() as scratch:
        os.chdir(scratch)
        agent = subprocess.Popen(["hxasim", "--ready-file", "ready", SCENARIO],
                                 stdout=subprocess.DEVNULL)
        browser = None
        try:
            while not os.path.exists("ready") and agent.poll() is None:
                time.sleep(0.05)
            check("page.html", *SYSTEMS, *HOSTILE)
            with open("list", "w", encoding="utf-8") as file:
                file.writelines(f"127.7.{each // 200}.{each % 200 + 1}\n" for each in range(MANY))
            check("many.html", "--from", "list")
            browser = Browser(scratch + "/profile")
            looked_at(browser, "page.html", folder)
            browser.size(*SIZES["wide"])
            browser.open("page.html")
            clicked(browser)
            begin = time.monotonic()
            browser.open("many.html")
            browser.ask("new Promise(done => requestAnimationFrame(() => setTimeout(done)))")
            seconds = time.monotonic() - begin
            expect(len(browser.rows()) == MANY and os.path.getsize("many.html") < 5 * MIB, "many")
            browser.picture(f"{folder}/check-page-many.png")
            first = browser.ask("performance.getEntriesByName('first-contentful-paint')[0].startTime") / 1000
            print(f"{MANY} systems: {os.path.getsize('many.html') / MIB:.1f} MiB, begins to be shown after "
                  f"{first:.2f} s, all there after {seconds:.2f} s")
            expect(all(url.startswith("file://") for url in browser.requests), browser.requests)
        finally:
            if browser:
                browser.end()
            agent.terminate()
            agent.wait()
            os.chdir("/")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
