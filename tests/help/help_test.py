#!/usr/bin/env python3
"""The help page in a browser, as wide as on a desktop and as narrow as on a phone: nothing sticks out, and where it is
narrow the cells of tables stand below each other. The pictures are kept in build/help."""

import html
import json
import pathlib
import re
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "ui" / "Quilla.htm"
PICTURES = ROOT / "build" / "help"
HEIGHT = 900

# Leaves in the page what there is to see in it.
LOOK = """<script>addEventListener("load", () => {
  const all = [...document.body.querySelectorAll("*")];
  const view = innerWidth;
  const out = all.filter(e => e.getBoundingClientRect().right > view + 0.5 && !e.closest("pre"));
  const cells = [...document.querySelectorAll("td")];
  const seen = {view, page: document.documentElement.scrollWidth, height: document.documentElement.scrollHeight,
    out: out.map(e => e.outerHTML.slice(0, 80)),
    empty: cells.filter(e => e.textContent.trim() && e.getBoundingClientRect().width < 40).length,
    cells: [...new Set(cells.map(e => getComputedStyle(e).display))],
    ends: [...document.querySelectorAll("a[href^='#']")].filter(a => !document.querySelector(a.hash)).length};
  document.documentElement.setAttribute("data-seen", JSON.stringify(seen));
});</script>"""


def browse(page, width, height, *options):
    # As root, as in a container, the browser does without its sandbox: it sees nothing but this page.
    with tempfile.TemporaryDirectory() as profile:
        return subprocess.run(["chromium-headless-shell", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                               f"--user-data-dir={profile}", f"--window-size={width},{height}", *options, page.as_uri()],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120, check=True).stdout


class HelpTest(unittest.TestCase):

    def look(self, width):
        PICTURES.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory() as folder:
            copy = pathlib.Path(folder) / "Quilla.htm"
            copy.write_text(PAGE.read_text().replace("</head>", LOOK + "</head>"))
            told = browse(copy, width, HEIGHT, "--dump-dom")
        seen = json.loads(html.unescape(re.search(r'data-seen="([^"]*)"', told).group(1)))
        picture = PICTURES / f"help-{width}.png"
        browse(PAGE, width, seen["height"], f"--screenshot={picture}")
        print(f"{picture.relative_to(ROOT)}: {width} x {seen['height']} pixels, {picture.stat().st_size} bytes")
        self.assertEqual(seen["view"], width)
        self.assertLessEqual(seen["page"], width, "the page scrolls sideways")
        self.assertEqual((seen["out"], seen["empty"], seen["ends"]), ([], 0, 0))
        return seen["cells"]

    def test_on_a_desktop(self):
        self.assertEqual(self.look(1000), ["table-cell"])

    def test_on_a_phone(self):
        self.assertEqual(self.look(400), ["block"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
