#!/usr/bin/python3
"""What a desktop in a browser costs: ruvoview with a page that acknowledges each frame at once.

CPU milliseconds a second of ruvoview, its agent and the X server, the latter net of the drawing as it
costs without anybody watching; bytes and frames a second; and how old a frame is when it arrives.
The page's own decoding is not part of it.

    measure.py BUILD-FOLDER [SECONDS]
"""

import asyncio
import json
import os
import pathlib
import statistics
import struct
import subprocess
import sys
import time

import aiohttp

BUILD = pathlib.Path(sys.argv[1])
SECONDS = float(sys.argv[2]) if len(sys.argv) > 2 else 5
TICK = os.sysconf("SC_CLK_TCK")
WORKLOADS = [("idle", "idle", 0), ("a dab", "dab", 5), ("typing 15/s", "typing", 15),
             ("scrolling 1000x800", "scrolling", 30), ("video 640x360", "video", 30)]


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


class Page:
    def __init__(self):
        self.frames, self.bytes, self.encodings = [], 0, {}

    async def run(self, address):
        base, token = address.split("/#")
        headers = {"Origin": base}
        async with aiohttp.ClientSession(cookie_jar=aiohttp.CookieJar(unsafe=True)) as http:
            async with http.post(base + "/session", data=token, headers=headers):
                pass
            async with http.ws_connect(base + "/desktop", headers=headers, max_msg_size=0,
                                       protocols=["ruvo-view-1"]) as socket:
                async for message in socket:
                    if message.type == aiohttp.WSMsgType.TEXT:
                        told = json.loads(message.data)
                        if told["t"] == "stats":
                            self.encodings = told["encodings"]
                        continue
                    self.bytes += len(message.data)
                    if message.data[1] & 1:
                        self.frames.append(time.monotonic_ns())
                        number, = struct.unpack_from("<I", message.data, 4)
                        await socket.send_str(json.dumps({"t": "drawn", "frame": number}))


async def drawn(display, environment, workload, rate):
    drawing = await asyncio.create_subprocess_exec(
        BUILD / "bench-view-draw", display, workload, str(rate), str(SECONDS),
        stdout=asyncio.subprocess.PIPE, env=environment)
    text, _ = await drawing.communicate()
    return [int(line) for line in text.split()]


def ages(times, frames):
    """From each drawing to the first frame after it."""
    found, at = [], 0
    for moment in times:
        while at < len(frames) and frames[at] < moment:
            at += 1
        if at < len(frames):
            found.append((frames[at] - moment) / 1e6)
    return sorted(found)


async def main():
    read, write = os.pipe()
    server = subprocess.Popen(
        ["Xvfb", "-displayfd", str(write), "-screen", "0", "1920x1080x24", "-nolisten", "tcp",
         "-noreset"], pass_fds=[write], stderr=subprocess.DEVNULL)
    display = ":" + os.read(read, 16).decode().strip()
    environment = {key: value for key, value in os.environ.items() if key != "XAUTHORITY"}
    view = None
    try:
        alone = {}
        for _, workload, rate in WORKLOADS:
            before = cpu_ms(server.pid)
            await drawn(display, environment, workload, rate)
            alone[workload] = (cpu_ms(server.pid) - before) / SECONDS
        view = subprocess.Popen([BUILD / "ruvoview", "--display", display], env=environment,
                                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        address = view.stdout.readline().decode().strip()
        page = Page()
        task = asyncio.create_task(page.run(address))
        while not page.frames:
            await asyncio.sleep(0.05)
        await asyncio.sleep(1)
        agent = int(subprocess.run(["ps", "-o", "pid=", "--ppid", str(view.pid)],
                                   capture_output=True, text=True).stdout.split()[0])
        print("| workload | ruvoview ms/s | agent ms/s | X net ms/s | together | KB/s | frames/s "
              "| age ms: median | 99 % |")
        print("|---|---|---|---|---|---|---|---|---|")
        for name, workload, rate in WORKLOADS:
            await asyncio.sleep(1)
            before = [cpu_ms(pid) for pid in (view.pid, agent, server.pid)]
            frames, sent = len(page.frames), page.bytes
            times = await drawn(display, environment, workload, rate)
            cost = [(cpu_ms(pid) - start) / SECONDS
                    for pid, start in zip((view.pid, agent, server.pid), before)]
            cost[2] -= alone[workload]
            found = ages(times, page.frames[frames:])
            age = (f"{statistics.median(found):.1f} | {found[int(len(found) * 0.99) - 1]:.1f}"
                   if found else " | ")
            print(f"| {name} | {cost[0]:.1f} | {cost[1]:.1f} | {cost[2]:.1f} | {sum(cost):.1f} | "
                  f"{(page.bytes - sent) / SECONDS / 1000:.1f} | "
                  f"{(len(page.frames) - frames) / SECONDS:.1f} | {age} |")
        print(f"\nprivate memory: ruvoview {memory_mb(view.pid):.1f} MB, "
              f"agent {memory_mb(agent):.1f} MB; rectangles: {page.encodings}")
        task.cancel()
    finally:
        for process in (view, server):
            if process:
                process.terminate()
                process.wait()


def family(pid):
    text = subprocess.run(["ps", "-o", "pid=,comm=", "--ppid", str(pid)], capture_output=True,
                          text=True).stdout
    return {name: int(number) for number, name in (line.split() for line in text.splitlines())}


async def fleet(count):
    """So many desktops that do nothing, each with a page."""
    views, tasks = [], []
    try:
        for _ in range(count):
            view = subprocess.Popen([BUILD / "ruvoview", "--new", "1920x1080"],
                                    stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            views.append(view)
            page = Page()
            tasks.append(asyncio.create_task(page.run(view.stdout.readline().decode().strip())))
            while not page.frames:
                await asyncio.sleep(0.05)
        await asyncio.sleep(2)
        everybody = [[view.pid, *family(view.pid).values()] for view in views]
        before = [[cpu_ms(pid) for pid in pids] for pids in everybody]
        await asyncio.sleep(SECONDS)
        cost = sum(cpu_ms(pid) - start for pids, starts in zip(everybody, before)
                   for pid, start in zip(pids, starts)) / SECONDS
        memory = statistics.mean(memory_mb(view.pid) + memory_mb(family(view.pid)["ruvoagent"])
                                 for view in views)
        print(f"\n{count} idle desktops of 1920x1080 with a page each: {cost:.1f} ms/s together, with "
              f"their X servers; {memory:.1f} MB private memory each of ruvoview and agent")
    finally:
        for task in tasks:
            task.cancel()
        for view in views:
            view.terminate()
        for view in views:
            view.wait()


asyncio.run(main())
asyncio.run(fleet(20))
