#!/usr/bin/python3
"""What a desktop in a browser costs, and how late it is: one table, also in build/bench/view.md.

The floor beside it is a program that follows the protocol's rules and does nothing else: from a
drawing to its "fbUpdate", and its processor time with its X server's. Latencies on the page are those
of a real browser; costs, bytes and ages are measured with a page that says at once that it has drawn.
Processor times are those of ruvoview, its agent and the X server together, without what the drawing
costs by itself. Each 99 % of fewer than 100 samples is the worst of them.

    measure.py BUILD-FOLDER [SECONDS]
"""

import asyncio
import contextlib
import json
import os
import pathlib
import random
import re
import statistics
import struct
import subprocess
import sys
import time

import aiohttp

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = pathlib.Path(sys.argv[1]).resolve()
SECONDS = int(sys.argv[2]) if len(sys.argv) > 2 else 6
os.environ.update(RUVOVIEW=str(BUILD / "ruvoview"), RUVOAGENT=str(BUILD / "ruvoagent"))
sys.path += [str(ROOT / "bench"), str(ROOT / "tests" / "support"), str(ROOT / "tests" / "view")]
import ruvo  # noqa: E402
import table  # noqa: E402

SCREEN = "1920x1080x24"
KEYS = 120
DESKTOPS = 20
# Name, what bench-view-draw calls it, times a second, goals: processor ms/s, KB/s, ms of age.
WORKLOADS = [("idle", "idle", 0, 6, None, None), ("typing 15/s", "typing", 15, 40, 15, None),
             ("scrolling 1000x800 30/s", "scrolling", 30, 200, None, 100),
             ("video 640x360 30/s", "video", 30, 150, 1200, 100)]

rows = []


def percentile(values, part):
    return sorted(values)[min(int(len(values) * part), len(values) - 1)]


def both(values):
    """Median and 99th percentile."""
    return (statistics.median(values), percentile(values, 0.99)) if values else (None, None)


def add(name, unit, ours, floor=(None, None), goals=(None, None)):
    """Each is of medians and 99th percentiles."""
    rows.append((name + ", " + unit, ours, floor, goals))
    print(f"  {name}: {table.number(ours[0])} {unit}", file=sys.stderr, flush=True)


def markdown():
    lines = ["| row | median | 99 % | floor: median | 99 % | goal: median | 99 % |",
             "|---|--:|--:|--:|--:|--:|--:|"]
    for name, *pairs in rows:
        lines.append(" | ".join(["| " + name, *(table.number(each) for pair in pairs for each in pair)])
                     + " |")
    return "\n".join(lines) + "\n"


def cpu_ms(pid):
    """Of all threads, from the scheduler: finer than ticks."""
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        total += int((task / "schedstat").read_text().split()[0])
    return total / 1e6


def memory_mb(pid):
    """Private to the process: libraries and the frame's segment are shared."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return sum(int(line.split()[1]) for line in text.splitlines() if line.startswith("Private")) / 1024


def children(pid):
    text = subprocess.run(["ps", "-o", "pid=,comm=", "--ppid", str(pid)], capture_output=True,
                          text=True).stdout
    return {name: int(number) for number, name in (line.split() for line in text.splitlines())}


async def windows(pids, seconds):
    """Milliseconds a second of each process, second by second."""
    found = []
    last, used = time.monotonic(), [cpu_ms(pid) for pid in pids]
    for _ in range(seconds):
        await asyncio.sleep(1)
        now, using = time.monotonic(), [cpu_ms(pid) for pid in pids]
        found.append([(after - before) / (now - last) for before, after in zip(used, using)])
        last, used = now, using
    return found


class Page:
    """One that draws nothing and says at once that it has."""

    def __init__(self):
        self.frames, self.bytes = [], 0

    async def run(self, address):
        base, token = address.split("/#")
        headers = {"Origin": base}
        async with aiohttp.ClientSession(cookie_jar=aiohttp.CookieJar(unsafe=True)) as http:
            async with http.post(base + "/session", data=token, headers=headers):
                pass
            async with http.ws_connect(base + "/desktop", headers=headers, max_msg_size=0,
                                       protocols=["ruvo-view-1"]) as socket:
                async for message in socket:
                    if message.type != aiohttp.WSMsgType.BINARY:
                        continue
                    self.bytes += len(message.data)
                    if message.data[1] & 1:
                        number, clock = struct.unpack_from("<II", message.data, 4)
                        self.frames.append((time.monotonic_ns() / 1e6, clock))
                        await socket.send_str(json.dumps({"t": "drawn", "frame": number}))


@contextlib.asynccontextmanager
async def watched(*options, agent="ruvoagent"):
    """A running ruvoview with a page."""
    environment = {key: value for key, value in os.environ.items() if key != "XAUTHORITY"}
    view = subprocess.Popen([BUILD / "ruvoview", "--agent", BUILD / agent, *options],
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=environment)
    page = Page()
    task = None
    try:
        task = asyncio.create_task(page.run(view.stdout.readline().decode().strip()))
        limit = time.monotonic() + 30
        while not page.frames:
            if task.done() or time.monotonic() > limit:
                raise RuntimeError(f"ruvoview shows nothing of {agent}")
            await asyncio.sleep(0.05)
        yield view.pid, page
    finally:
        if task:
            task.cancel()
        view.terminate()
        view.stdout.close()
        view.wait()


async def drawing(display, workload, rate, seconds):
    """Milliseconds at which each drawing began."""
    program = await asyncio.create_subprocess_exec(
        BUILD / "bench-view-draw", display, workload, str(rate), str(seconds),
        stdout=asyncio.subprocess.PIPE)
    text, _ = await program.communicate()
    return [int(line) / 1e6 for line in text.split()]


async def watch_drawing(server, workload, rate, pids, page=None):
    """Milliseconds a second, bytes a second and ages, once it is under way."""
    task = asyncio.create_task(drawing(server.display, workload, rate, SECONDS + 1.8))
    await asyncio.sleep(1.5)
    begin = time.monotonic()
    sent = page.bytes if page else 0
    cost = await windows(pids, SECONDS)
    rate = (page.bytes - sent) / (time.monotonic() - begin) if page else 0
    times = await task
    return cost, rate, ages(times[5:-2], page.frames) if page else []


def ages(times, frames):
    """From each drawing to the arrival of the first frame that was made after it."""
    found, at = [], 0
    for moment in times:
        while at < len(frames) and (frames[at][1] - int(moment)) % 2**32 >= 2**31:
            at += 1
        if at < len(frames):
            found.append(frames[at][0] - moment)
    return found


async def costs():
    server = ruvo.XServer(screen=SCREEN)
    try:
        floor, alone = {}, {}
        for _, workload, rate, *_ in WORKLOADS:
            cost, _, _ = await watch_drawing(server, workload, rate, [server.process.pid])
            alone[workload] = statistics.mean(each[0] for each in cost)
        async with watched("--display", server.display, agent="floor") as (view, _):
            pids = [children(view)["floor"], server.process.pid]
            for _, workload, rate, *_ in WORKLOADS:
                cost, _, _ = await watch_drawing(server, workload, rate, pids)
                floor[workload] = both([sum(each) - alone[workload] for each in cost])
        async with watched("--display", server.display) as (view, page):
            pids = [view, children(view)["ruvoagent"], server.process.pid]
            parts = []
            for name, workload, rate, goal, goal_kb, goal_age in WORKLOADS:
                cost, sent, old = await watch_drawing(server, workload, rate, pids, page)
                add(f"{name}: processor", "ms/s",
                    both([sum(each) - alone[workload] for each in cost]), floor[workload], (goal, None))
                if rate:
                    add(f"{name}: sent", "KB/s", (sent / 1000, None), goals=(goal_kb, None))
                    add(f"{name}: age of what arrives", "ms", both(old), goals=(None, goal_age))
                middle = [statistics.median(each) for each in zip(*cost)]
                parts.append(f"{name}: ruvoview {middle[0]:.1f}, agent {middle[1]:.1f}, X server "
                             f"{middle[2] - alone[workload]:.1f}")
        return "Processor ms/s by process: " + "; ".join(parts) + ".\n"
    finally:
        server.close()


async def fleet():
    """So many desktops that do nothing, each with a page."""
    async with contextlib.AsyncExitStack() as stack:
        views = [(await stack.enter_async_context(watched("--new", "1920x1080")))[0]
                 for _ in range(DESKTOPS)]
        await asyncio.sleep(3)
        families = [children(view) for view in views]
        pids = [pid for view, family in zip(views, families) for pid in (view, *family.values())]
        cost = await windows(pids, SECONDS)
        add(f"{DESKTOPS} idle desktops with a page each: processor", "ms/s",
            both([sum(each) for each in cost]), goals=(80, None))
        add("memory of each beyond the frame, ruvoview and agent", "MB",
            both([memory_mb(view) + memory_mb(family["ruvoagent"])
                  for view, family in zip(views, families)]), goals=(20, None))


def agent_latency(display, program):
    """Draw to "fbUpdate", of the agent or the floor by itself: median, 99th percentile."""
    text = subprocess.run([BUILD / "bench-agent", "--latency", "--display", display,
                           "--agent", BUILD / program], stdout=subprocess.PIPE, text=True,
                          timeout=120, check=True).stdout
    return tuple(map(float, re.search(r"median ([\d.]+) ms.* 99 % ([\d.]+) ms", text).groups()))


# Notes when an area of the canvas has become another, and when keys went down.
PROBE = """
const [x, y, width, height] = arguments;
const context = document.getElementById("desktop").getContext("2d");
const {send} = WebSocket.prototype;
let last;
window.seen = [];
window.keyed = [];
WebSocket.prototype.send = function(data) {
  if (JSON.parse(data).t === "drawn") {
    const now = performance.now();
    const pixels = new Uint32Array(context.getImageData(x, y, width, height).data.buffer);
    let sum = 0;
    for (const pixel of pixels) sum = Math.imul(sum ^ pixel, 16777619);
    if (sum !== last) seen.push([now, pixels[0]]);
    last = sum;
  }
  send.call(this, data);
};
addEventListener("keydown", ({timeStamp}) => keyed.push(timeStamp), true);
"""


class Browser:
    """A page in a browser, on a desktop of its own."""

    def __enter__(self):
        import stage
        self.stage = stage
        self.setting = stage.Setting(server={"screen": SCREEN})
        self.page = self.setting.page().wait_for_picture()
        # The page's clock begins then, on that of the whole machine.
        self.page.cdp("Performance.enable")
        metrics = self.page.cdp("Performance.getMetrics")["metrics"]
        self.begin = next(1e3 * each["value"] for each in metrics if each["name"] == "NavigationStart")
        off = self.page.run("return performance.now()") + self.begin - time.monotonic() * 1e3
        if abs(off) > 1000:
            raise RuntimeError(f"the browser's clock is {off:.0f} ms off")
        return self

    def __exit__(self, *_):
        self.setting.close()
        if self.stage.Setting.browser:
            self.stage.Setting.browser.close()

    def draw(self, workload, rate, seconds):
        return asyncio.run(drawing(self.setting.screen.display, workload, rate, seconds))

    def dabs(self):
        """Milliseconds from a dab to the canvas."""
        self.page.run(PROBE, 104, 104, 1, 1)
        times = self.draw("dab", 7, 15)
        time.sleep(0.5)
        # The probe's pixel is red, green, blue, 255 in memory; a dab's colour tells its number. One
        # that nobody saw was late until the next.
        steps = {}
        for step in range(len(times)):
            red, green, blue = (step * 7919 >> shift & 0xff for shift in (16, 8, 0))
            steps[blue << 16 | green << 8 | red] = step
        seen = {steps.get(pixel & 0xffffff): self.begin + now for now, pixel in self.page.run("return seen")}
        found, shown = [], None
        for step in range(len(times) - 1, 0, -1):
            shown = seen.get(step, shown)
            if shown is not None:
                found.append(shown - times[step])
        return found

    def echoes(self):
        """Milliseconds from a key event on the page to the terminal's text on the canvas."""
        screen = self.setting.screen
        screen.programs.start(["xterm", "-fn", "fixed", "-e", "cat"])
        self.stage.until(screen.active_window, "the terminal")
        chance = random.Random(1)
        self.page.focus()
        self.page.type("x")
        time.sleep(1)
        self.page.run(PROBE, 0, 0, 1900, 16)
        for _ in range(KEYS):
            self.page.type("x")
            time.sleep(chance.uniform(0.06, 0.12))
        keyed, seen = self.page.run("return [keyed, seen]")
        screen.programs.stop(screen.programs.running[-1])
        found = []
        for key, following in zip(keyed, keyed[1:] + [1e300]):
            found += [now - key for now, _ in seen if key < now < following][:1]
        if len(found) < KEYS - 2:
            print(f"!!! {len(found)} echoes of {KEYS} keys were seen, each before the next key !!!",
                  file=sys.stderr)
        return found

    def film(self):
        """How old a film is on the canvas, and how many of its pictures a second are drawn."""
        first = self.page.run("return drawn.length")
        times = self.draw("video", 30, SECONDS + 1)
        frames = [(self.begin + now, clock) for now, clock
                  in self.page.run("return drawn.slice(arguments[0])", first)]
        seconds = (times[-1] - times[30]) / 1000
        shown = [1 for now, _ in frames if times[30] <= now <= times[-1]]
        return ages(times[30:-2], frames), len(shown) / seconds


def latencies():
    server = ruvo.XServer(screen=SCREEN)
    try:
        pairs = [(agent_latency(server.display, "ruvoagent"), agent_latency(server.display, "floor"))
                 for _ in range(3)]
    finally:
        server.close()
    own, floor = ([statistics.median(each) for each in zip(*side)] for side in zip(*pairs))
    add("draw to the agent's fbUpdate", "ms", own, floor)
    with Browser() as browser:
        add("draw to the page's canvas", "ms", both(browser.dabs()), goals=[each + 12 for each in own])
        add("key event to the terminal's echo on the canvas", "ms", both(browser.echoes()), goals=(25, 60))
        old, shown = browser.film()
        add("video on the page: age on the canvas", "ms", both(old), goals=(None, 100))
        add("video on the page: pictures", "1/s", (shown, None))


def main():
    load = os.getloadavg()[0]
    notes = asyncio.run(costs())
    asyncio.run(fleet())
    try:
        latencies()
    except ImportError as error:
        print(f"!!! SKIPPED: what a browser shows, because there is no {error.name} !!!", file=sys.stderr)
    text = (f"{markdown()}\n{notes}\n{os.cpu_count()} processors, load {load:.1f} before, "
            f"{SCREEN.rsplit('x', 1)[0]}; {SECONDS} s each.\n")
    table.OUT.mkdir(parents=True, exist_ok=True)
    (table.OUT / "view.md").write_text(text)
    print(text)


if __name__ == "__main__":
    main()
