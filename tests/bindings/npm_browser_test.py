#!/usr/bin/env python3
"""The npm package in headless Chromium: files of the corpus are decoded and drawn, and what is on the canvases is
compared with what the library of this system sees.

    npm_browser_test.py PACKAGE EXPECTED [SCREENSHOT]     exit code 77 without Chromium or EXPECTED

EXPECTED is what npm_expected.py wrote. Runs in the folder tests/.
"""
import functools
import html
import http.server
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading

if not pathlib.Path(sys.argv[2]).exists():
    sys.exit(77)
PACKAGE, EXPECTED = pathlib.Path(sys.argv[1]).resolve(), json.loads(pathlib.Path(sys.argv[2]).read_text())
FILES = ["corpus/tiff/g4.tif", "corpus/tiff/g3-2d.tif", "corpus/dcx/mono.dcx", "corpus/dcx/rgb24-gm.dcx",
         "corpus/tiff/pages-lzw.tif", "corpus/gif/frames.gif", "corpus/png/rgb8-passes.png", "corpus/jpeg/cmyk.jpg"]
REFUSED = "corpus/jpeg/arithmetic.jpg"
PAGE = "bindings/npm_page.html"
MOST_SECONDS = 200
drawn = threading.Semaphore(0)  # pages that came to their end


class Handler(http.server.SimpleHTTPRequestHandler):
    extensions_map = {**http.server.SimpleHTTPRequestHandler.extensions_map, ".mjs": "text/javascript"}

    def translate_path(self, path):
        if path.startswith("/package/"):
            return str(PACKAGE / path.removeprefix("/package/"))
        return super().translate_path(path)

    def do_GET(self):
        """The page asks for /end at its end, and for /wait from its start: the browser writes it down when it has
        all that it asked for."""
        if self.path not in ("/end", "/wait"):
            super().do_GET()
            return
        if self.path == "/end":
            drawn.release()
        else:
            drawn.acquire(timeout=MOST_SECONDS)
        self.send_response(204)
        self.end_headers()

    def log_message(self, *_):
        pass


def browse(chromium, address, *what):
    with tempfile.TemporaryDirectory() as profile:
        return subprocess.run(
            [chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
             f"--user-data-dir={profile}", *what, address],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=2 * MOST_SECONDS, check=True).stdout


def main():
    chromium = shutil.which("chromium")
    if chromium is None:
        sys.exit(77)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Handler, directory="."))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    files = [*FILES, REFUSED]
    address = f"http://127.0.0.1:{server.server_port}/{PAGE}?" + "&".join(f"file=/{name}" for name in files)
    document = browse(chromium, address, "--dump-dom")
    if "<title>done</title>" not in document:
        sys.exit(f"the page did not come to its end:\n{document[-2000:]}")
    seen = json.loads(html.unescape(re.search(r'<pre id="result">(.*?)</pre>', document, re.DOTALL)[1]))

    owed = []
    for name in files[:-1]:
        for page, picture in enumerate(EXPECTED[name]["whole"]["pages"]):
            drawing = {key: picture[key] for key in ("width", "height", "digest")}
            owed.append({"name": f"/{name}", "page": page, **drawing})
    refused = seen.pop()
    if len(owed) < len(FILES) or seen != owed:
        sys.exit(f"seen {json.dumps(seen, indent=1)}\nowed {json.dumps(owed, indent=1)}")
    if refused.get("status") != EXPECTED[REFUSED]["whole"]["pages"][0]:
        sys.exit(f"not refused: {refused}")
    print(f"{len(seen)} pages drawn as they are")
    if len(sys.argv) > 3:
        browse(chromium, address, f"--screenshot={pathlib.Path(sys.argv[3]).resolve()}", "--window-size=1200,900")


if __name__ == "__main__":
    main()
