"""The HTML report of a batch in a browser."""

import json
import os
import select
import shutil
import signal
import subprocess
from pathlib import Path

import pytest

from povmesh import batch

CHROMIUM = shutil.which("chromium")
SHOWN = """[...document.querySelectorAll('tbody tr')].filter(row=>row.getBoundingClientRect().height)
    .map(row=>row.querySelector('.file').textContent)"""


class Browser:
    """A page of a headless browser, spoken to by messages that end in a zero byte."""

    def __init__(self, folder):
        reads, self._to = os.pipe()
        self._from, writes = os.pipe()
        options = [
            "--headless=new",
            "--no-sandbox",  # which root needs
            "--disable-gpu",
            "--disable-background-networking",
            "--no-first-run",
            f"--user-data-dir={folder}",
            "--remote-debugging-pipe",  # on the files 3 and 4
        ]
        words = ["bash", "-c", f'exec "$@" 3<&{reads} 4>&{writes}', "bash", CHROMIUM, *options]
        self._process = subprocess.Popen(
            words,
            pass_fds=(reads, writes),
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
        )
        os.close(reads)
        os.close(writes)
        self._rest, self._count, self._session = b"", 0, None
        self.events = []
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        found = self.call("Target.attachToTarget", targetId=target, flatten=True)
        self._session = found["sessionId"]
        for domain in ("Page", "Network", "Runtime", "Log"):
            self.call(f"{domain}.enable")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.killpg(self._process.pid, signal.SIGKILL)
        self._process.wait()
        os.close(self._to)
        os.close(self._from)

    def _next(self):
        while b"\0" not in self._rest:
            ready, _, _ = select.select([self._from], [], [], 60)
            block = os.read(self._from, 1 << 16) if ready else b""
            assert block, "the browser has ended, or does not answer"
            self._rest += block
        message, self._rest = self._rest.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, **parameters):
        self._count += 1
        message = {"id": self._count, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._to, json.dumps(message).encode() + b"\0")
        while True:
            answer = self._next()
            if answer.get("id") == self._count:
                assert "error" not in answer, answer
                return answer["result"]
            self.events.append(answer)

    def open(self, path):
        self.call("Page.navigate", url=path.resolve().as_uri())
        while not self.told("Page.loadEventFired"):
            self.events.append(self._next())

    def told(self, method):
        return [event["params"] for event in self.events if event.get("method") == method]

    def value(self, script):
        answer = self.call("Runtime.evaluate", expression=script, returnByValue=True)
        assert "exceptionDetails" not in answer, answer
        return answer["result"].get("value")


@pytest.mark.skipif(CHROMIUM is None, reason="chromium is not installed")
def test_the_page_sorts_and_filters_and_asks_for_nothing(tmp_path):
    names = ["cat.stl", "featuretype_open.stl", "gearwheel.stl", "broken.stl"]
    Path("broken.stl").write_text("no model at all")
    rows = batch.run(names, [{"operation": "repair"}], "out")
    triangles = {name: (row.before or {}).get("triangles", -1) for name, row in zip(names, rows)}
    with Browser(tmp_path / "browser") as browser:
        browser.open(Path("out/batch.html"))
        assert browser.value(SHOWN) == names
        pictures = browser.value("[...document.images].map(image=>image.naturalWidth)")
        assert pictures == [160] * 6
        head = "document.querySelector('th[data-key=triangles]').click();"
        by_size = [name for name in sorted(names, key=triangles.get) if triangles[name] >= 0]
        orders = [browser.value(head + SHOWN) for _ in range(2)]
        for order, expected in zip(orders, (by_size, by_size[::-1])):
            assert [name for name in order if triangles[name] >= 0] == expected
        for text, status, expected in (
            ("GEAR", "", ["gearwheel.stl"]),
            ("", "unreadable", ["broken.stl"]),
            ("576 open", "", ["featuretype_open.stl"]),
            ("gear", "unreadable", []),
        ):
            for field, value, event in (("find", text, "input"), ("pick", status, "change")):
                browser.value(
                    f"{field}.value={json.dumps(value)};{field}.dispatchEvent(new Event('{event}'))"
                )
            assert browser.value(SHOWN) == expected
        assert browser.value("shown.textContent") == "0 shown"
        for trouble in ("Runtime.exceptionThrown", "Runtime.consoleAPICalled", "Log.entryAdded"):
            assert browser.told(trouble) == []
        asked = {event["request"]["url"] for event in browser.told("Network.requestWillBeSent")}
        page = Path("out/batch.html").resolve().as_uri()
        assert {url for url in asked if not url.startswith("data:")} == {page}
