#!/usr/bin/env python3
"""Opens pages of both modes in a browser, at three widths, light and dark: page_check.py ROOT PROGRAM

Without Chromium it is skipped (status 77).
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT, PROGRAM = (pathlib.Path(arg).resolve() for arg in sys.argv[1:3])
sys.path.insert(0, str(ROOT / "samples"))
import plant  # noqa: E402

CHROMIUM = shutil.which("chromium")
FLAGS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--host-resolver-rules=MAP * ~NOTFOUND", "--enable-logging=stderr", "--dump-dom")

# Holds the page in each frame against what a reader needs, and leaves what is wrong in the document.
LOOK = """
function look(frame) {
  const page = frame.contentDocument, faults = [], all = s => [...page.querySelectorAll(s)];
  const fault = (what, e) => faults.push(`page ${frame.name}, ${frame.width}: ${what}: ${e.outerHTML.slice(0, 200)}`);
  const root = page.documentElement;
  if (root.scrollWidth > root.clientWidth) fault(`${root.scrollWidth} wide`, page.body);
  for (const entry of frame.contentWindow.performance.getEntriesByType('resource'))
    faults.push('loads ' + entry.name);
  for (const e of all('[src],[href]:not(a),script')) fault('not by itself', e);
  for (const e of all('a'))
    if (!page.getElementById(e.hash.slice(1))) fault('leads nowhere', e);
  for (const e of all('td.state'))
    if (/FAIL|WARN/.test(e.textContent) && e.closest('tr').querySelector('th') &&
        !e.closest('tr').querySelector('a')) fault('leads to no finding', e.closest('tr'));
  for (const e of all('svg'))
    if (!e.getAttribute('aria-label') && !e.querySelector('title')) fault('says nothing', e);
  for (const e of all('.scroll')) if (e.tabIndex != 0) fault('out of reach', e);
  const view = page.defaultView, written = [];
  for (const nodes = page.createTreeWalker(page.body, 4); nodes.nextNode();) {
    const text = nodes.currentNode, e = text.parentElement, range = page.createRange();
    range.selectNodeContents(text);
    if (text.data.trim() && view.getComputedStyle(e).visibility == 'visible')
      written.push(...[...range.getClientRects()].map(box => [e, box]));
  }
  written.push(...all('svg').map(e => [e, e.getBoundingClientRect()]));
  written.sort(([, a], [, b]) => a.top - b.top);
  written.forEach(([e, a], i) => {
    for (let j = i + 1; j < written.length && written[j][1].top < a.bottom - 3; ++j) {
      const b = written[j][1];
      if (Math.min(a.right, b.right) - Math.max(a.left, b.left) > 1) fault('overlaps', e);
    }
    if (!e.closest('.scroll') && (a.left < 0 || a.right > root.clientWidth + 1)) fault('cut off', e);
  });
  const channels = colour => colour.match(/[\\d.]+/g).map(Number);
  const light = colour => channels(colour).slice(0, 3).map(c => (c /= 255) <= .04045 ? c / 12.92 :
    ((c + .055) / 1.055) ** 2.4).reduce((sum, c, i) => sum + c * [.2126, .7152, .0722][i], 0);
  const paper = e => {
    const colour = view.getComputedStyle(e).backgroundColor;
    return channels(colour)[3] === 0 && e.parentElement ? paper(e.parentElement) : colour;
  };
  for (const e of all('body *')) if ([...e.childNodes].some(n => n.nodeType == 3 && n.data.trim())) {
    const [a, b] = [light(view.getComputedStyle(e).color), light(paper(e))];
    if ((Math.max(a, b) + .05) / (Math.min(a, b) + .05) < 4.5) fault('hard to read', e);
  }
  return faults;
}
onload = () => document.getElementById('said').textContent =
  JSON.stringify([...document.querySelectorAll('iframe')].flatMap(look));
"""


def escaped(text):
    return text.replace("&", "&amp;").replace('"', "&quot;").replace("<", "&lt;")


class Pages(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.dir = pathlib.Path(directory.name)

    def page(self, data, *args):
        (self.dir / "in.ts").write_bytes(data)
        path = self.dir / "page.html"
        subprocess.run([PROGRAM, *args, f"--report={path}", self.dir / "in.ts"], capture_output=True)
        return path.read_text()

    def faults(self, pages, scheme):
        """What is wrong in pages, each in a frame of its own for each width."""
        frames = "".join(f'<iframe name={i} width={width} height=900 srcdoc="{escaped(page)}"></iframe>'
                         for i, page in enumerate(pages) for width in (360, 700, 1600))
        opened = self.dir / "opened.html"
        opened.write_text(f"<!doctype html><meta charset=utf-8><pre id=said></pre>{frames}"
                          f"<script>{LOOK}</script>")
        run = subprocess.run([CHROMIUM, *FLAGS, f"--user-data-dir={self.dir}/profile",
                              f"--blink-settings=preferredColorScheme={scheme}", opened.as_uri()],
                             capture_output=True, text=True, timeout=120)
        self.assertNotIn("CONSOLE", run.stderr)
        said = re.search(r"<pre id=\"said\">(.*?)</pre>", run.stdout, re.S)[1]
        return json.loads(said.replace("&lt;", "<").replace("&gt;", ">").replace("&amp;", "&"))

    def test_pages_of_both_modes(self):
        packets = plant.packets_of(plant.CLEAN)
        every = b"".join(b"".join(change(plant.packets_of(plant.CLEAN))) for change in plant.PLANTS.values())
        no_clock = b"".join(p for p in packets if not plant.has_pcr(p))
        damaged = (ROOT / "samples/damaged.ts").read_bytes()
        bad = []
        for args in (("-A", "pcr_freq=79", "-A", "pdts_delta=180"), ("--audit=dvb",)):
            bad += [self.page(every, *args), self.page(no_clock, *args), self.page(
                damaged, "-S", "</title><script>throw 1</script><img src=x>" + "w" * 400, *args)]
        good, none = self.page(plant.CLEAN, "--audit"), self.page(b"", "--audit")
        far = b"".join(plant.late_or_early(30_000_000)(packets[:1500]))
        for page in bad:
            self.assertNotIn("verdict good", page)
        self.assertIn("verdict good", good)
        self.assertNotRegex(none, "class=.*good")
        for scheme in (0, 1):  # dark, light
            self.assertEqual(self.faults([*bad, good, none, self.page(far, "--audit")], scheme), [])


if not CHROMIUM:
    print("page_check: Chromium is not installed, nothing is opened")
    sys.exit(77)
unittest.main(argv=sys.argv[:1])
