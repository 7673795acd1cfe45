#!/usr/bin/env python3
"""The book in a real browser: the search, the links, what its console says, its structure, contrast and width, and all of it
again without scripts.

    book_in_browser.py KESTORCTL EXAMPLES CHROMEDRIVER
"""
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import urllib.error
import urllib.request

KESTORCTL, EXAMPLES, CHROMEDRIVER = sys.argv[1:]

# Checks the structure of any page; returns a list of faults.
STRUCTURE = r"""
const faults = [];
const expect = (holds, fault) => { if (!holds) faults.push(fault); };
const all = (selector) => Array.from(document.querySelectorAll(selector));
expect(document.documentElement.lang === 'en', 'no language');
expect(document.title !== '', 'no title');
expect(all('h1').length === 1 && all('main').length === 1, 'not one h1 and one main');
let level = 0;
for (const heading of all('h1, h2, h3, h4, h5, h6')) {
  const own = Number(heading.tagName[1]);
  expect(own <= level + 1, 'a level of headings is left out before ' + heading.textContent);
  level = own;
}
for (const image of all('img')) {
  expect(image.alt !== '', 'a picture without a text');
  expect(image.naturalWidth > 0, 'a picture that is not drawn');
}
for (const cell of all('th')) expect(cell.scope === 'col', 'a heading of a column that is none: ' + cell.textContent);
for (const input of all('input')) expect(input.labels.length === 1, 'an input without a label');
for (const link of all('a')) expect(link.textContent !== '' || link.querySelector('img'), 'a link without a text: ' + link.href);
for (const entry of performance.getEntriesByType('resource'))
  expect(entry.name.startsWith('file:'), 'something from elsewhere: ' + entry.name);
expect(all('b, marquee, body script:not([src])').length === 0, 'markup from a text');
const light = (colour) => {
  const parts = colour.match(/[\d.]+/g).slice(0, 3).map((part) => {
    const share = part / 255;
    return share <= 0.04045 ? share / 12.92 : ((share + 0.055) / 1.055) ** 2.4;
  });
  return 0.2126 * parts[0] + 0.7152 * parts[1] + 0.0722 * parts[2];
};
const ground = light(getComputedStyle(document.body).backgroundColor);
for (const element of all('h1, h2, h3, p, a, th, td, dt, dd, li, label, output')) {
  const text = light(getComputedStyle(element).color);
  const contrast = (Math.max(text, ground) + 0.05) / (Math.min(text, ground) + 0.05);
  expect(contrast >= 4.5, 'a contrast of ' + contrast + ': ' + element.textContent);
}
expect(document.documentElement.scrollWidth <= innerWidth, 'wider than the window');
return faults;
"""


class Browser:
    def __init__(self, driver, folder, scripts):
        arguments = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", f"--user-data-dir={folder}"]
        options = {"args": arguments}
        if not scripts:
            options["prefs"] = {"profile.managed_default_content_settings.javascript": 2}
        self.base = driver
        wanted = {"browserName": "chrome", "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
        self.base += "/session/" + self.call("/session", {"capabilities": {"alwaysMatch": wanted}})["sessionId"]

    def call(self, path, body=None, method="POST"):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise SystemExit(f"{path}: {error.read().decode()}") from error

    def open(self, url):
        self.call("/url", {"url": url})

    def find(self, how, what):
        return "/element/" + next(iter(self.call("/element", {"using": how, "value": what}).values()))

    def click(self, text):
        self.call(self.find("link text", text) + "/click", {})

    def text(self, selector):
        return self.call(self.find("css selector", selector) + "/text", method="GET")

    def type(self, selector, keys):
        self.call(self.find("css selector", selector) + "/value", {"text": keys})

    def run(self, script):
        return self.call("/execute/sync", {"script": script, "args": []})

    def control(self, command, **parameters):
        self.call("/goog/cdp/execute", {"cmd": command, "params": parameters})

    def console(self):
        return self.call("/se/log", {"type": "browser"})

    def end(self):
        self.call("", method="DELETE")


def expect(value, wanted, what):
    if value != wanted:
        raise SystemExit(f"{what}: {value!r} instead of {wanted!r}")


def with_scripts(browser, index):
    def looks_right():
        for scheme in ("light", "dark"):
            browser.control("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
            for width in (1200, 360):
                browser.control("Emulation.setDeviceMetricsOverride", width=width, height=800, deviceScaleFactor=1,
                                mobile=width < 500)
                expect(browser.run(STRUCTURE), [], f"{browser.run('return location.href')}, {scheme}, {width}")

    browser.open(index)
    looks_right()
    shown = "return Array.from(document.querySelectorAll('tbody tr:not([hidden]) a'), (link) => link.textContent)"
    expect(len(browser.run(shown)), 5, "reports before a search")
    browser.type("#search", "RAZAO")
    expect(browser.run(shown), ["Razao"], "what a search finds")
    expect(browser.text("#count"), "1 of 5", "how many it finds")
    browser.type("#search", " verificacao")
    expect(browser.text("#count"), "0 of 5", "how many have both words")
    browser.run("document.getElementById('search').value = ''")
    browser.type("#search", "verificacao ct")  # of the header, which has accents
    expect(browser.run(shown), ["Balancete"], "what a search without accents finds")
    browser.click("Balancete")
    expect(browser.text("h1"), "Balancete", "the page of a report")
    looks_right()
    expect("SaldoAtual" in browser.text("main"), True, "it names its fields")
    browser.click("306 SaldoAtual")
    expect(browser.text("h1"), "Field 306 SaldoAtual of CT 01", "the page of a field")
    looks_right()
    browser.click("Balancete")
    browser.click("Fields")
    browser.type("#search", "saldoatual")
    expect(browser.text("#count").split()[0], "1", "how many fields it finds")
    looks_right()
    browser.click("Check")
    expect("cut short" in browser.text("main"), True, "what is wrong is told")
    looks_right()
    browser.click("Reports")
    browser.type("body", "\ue004")  # the tabulator
    expect(browser.run("return document.activeElement.textContent"), "To the text", "where the keyboard begins")
    browser.type(":focus", "\ue007")  # Enter
    expect(browser.run("return location.hash"), "#main", "where it goes")
    expect(browser.console(), [], "the console")


def without_scripts(browser, index):
    browser.open(index)
    expect(browser.call(browser.find("css selector", ".search") + "/displayed", method="GET"), False,
           "a search that cannot work is shown")
    browser.click("Balancete")
    browser.click("306 SaldoAtual")
    expect(browser.text("h1"), "Field 306 SaldoAtual of CT 01", "the page of a field")
    browser.click("Reports")
    browser.click("Check")
    expect("cut short" in browser.text("main"), True, "what is wrong is told")
    expect(browser.console(), [], "the console")


def make_book(folder):
    environment = dict(os.environ, KESTOR_HOME=f"{folder}/home", KESTOR_SYSTEM=f"{folder}/system")
    run = lambda *arguments: subprocess.run([KESTORCTL, *arguments], cwd=folder, env=environment,
                                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode
    expect(run("setup", "--reports", "reports", "--module", "CT=contabil"), 0, "setup")
    with open(f"{EXAMPLES}/contabil/XCT01.REL", "rb") as catalogue, open(f"{folder}/contabil/XCT01.REL", "wb") as own:
        own.write(catalogue.read().replace(b"LancData ", b"<b>Data  "))
    for name in ("Balancete", "Diario", "Plano de contas", "Razao"):
        shutil.copy(f"{EXAMPLES}/contabil/{name}.REL", f"{folder}/reports/CT01{name}.REL")
    with open(f"{EXAMPLES}/contabil/Razao.REL", "rb") as whole, open(f"{folder}/reports/CT01Cut.REL", "wb") as cut:
        cut.write(whole.read(90))
    expect(run("book", "book"), 3, "book")
    return f"file://{folder}/book/index.html"


def main():
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        index = make_book(folder)
        driver = subprocess.Popen([CHROMEDRIVER, "--port=0"], stdout=subprocess.PIPE, text=True)
        try:
            port = next(found[1] for line in driver.stdout if (found := re.search(r"successfully on port (\d+)", line)))
            for name, scripts, session in (("with", True, with_scripts), ("without", False, without_scripts)):
                browser = Browser(f"http://127.0.0.1:{port}", f"{folder}/{name}", scripts)
                try:
                    session(browser, index)
                finally:
                    browser.end()
        finally:
            driver.terminate()
            driver.wait()


main()
