"""The page in Firefox, driven by WebDriver's own protocol, since Debian has no driver for it."""

import asyncio
import os
import re
import shutil
import subprocess
import tempfile
import unittest

import aiohttp
import program
import stage

PREFERENCES = """user_pref("browser.shell.checkDefaultBrowser", false);
user_pref("datareporting.policy.dataSubmissionEnabled", false);
user_pref("browser.startup.homepage_override.mstone", "ignore");
user_pref("app.update.enabled", false);
user_pref("network.captive-portal-service.enabled", false);
user_pref("network.connectivity-service.enabled", false);
"""


class Firefox:
    def __init__(self, socket):
        self.socket = socket
        self.number = 0

    async def command(self, method, **parameters):
        self.number += 1
        await self.socket.send_json({"id": self.number, "method": method, "params": parameters})
        while (answer := await self.socket.receive_json()).get("id") != self.number:
            pass
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['message']}")
        return answer["result"]

    async def open(self, address):
        await self.command("session.new", capabilities={})
        self.context = (await self.command("browsingContext.getTree"))["contexts"][0]["context"]
        await self.command("browsingContext.navigate", context=self.context, url=address,
                           wait="complete")

    async def run(self, script):
        answer = await self.command("script.evaluate", expression=f"(() => {{{script}}})()",
                                    target={"context": self.context}, awaitPromise=True)
        return answer["result"].get("value")

    async def keys(self, text):
        actions = [{"type": kind, "value": key} for key in text for kind in ("keyDown", "keyUp")]
        await self.command("input.performActions", context=self.context,
                           actions=[{"type": "key", "id": "keys", "actions": actions}])


@unittest.skipUnless(shutil.which("firefox-esr"), "firefox-esr is not installed")
class InFirefox(unittest.TestCase):
    def test_picture_and_typing(self):
        setting = stage.Setting()
        self.addCleanup(setting.close)
        typed = os.path.join(setting.directory, "typed")
        setting.screen.programs.start(["xterm", "-u8", "-e", "sh", "-c",
                                       f'read -r line; echo "$line" > {typed}; sleep 1000'])
        stage.until(setting.screen.active_window, "the terminal")
        profile = tempfile.mkdtemp(prefix="view-firefox.")
        self.addCleanup(shutil.rmtree, profile, True)
        with open(os.path.join(profile, "user.js"), "w") as file:
            file.write(PREFERENCES)
        firefox = subprocess.Popen(
            ["firefox-esr", "--headless", "--no-remote", "--profile", profile,
             "--remote-debugging-port", "0"], env={**os.environ, "HOME": profile},
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.addCleanup(firefox.stderr.close)
        self.addCleanup(firefox.wait)
        self.addCleanup(firefox.terminate)
        for line in firefox.stderr:
            if match := re.search(r"ws://127\.0\.0\.1:\d+", line):
                break
        else:
            self.fail("Firefox does not start")

        asyncio.run(self.use(match[0], setting, typed))
        with open(typed) as file:
            self.assertEqual(file.read(), "Grüße, 5 €\n")

    async def use(self, address, setting, typed):
        async with asyncio.timeout(2 * program.WAIT), aiohttp.ClientSession() as http, \
                http.ws_connect(address + "/session", max_msg_size=0) as socket:
            browser = Firefox(socket)
            await browser.open(setting.view.address)
            while await browser.run("return document.body.dataset.state") != "live" or stage.difference(
                    stage.picture(await browser.run(stage.CANVAS)),
                    stage.screen_picture(setting.screen.display)):
                await asyncio.sleep(0.02)
            await browser.run("document.getElementById('keys').focus()")
            await browser.keys("Grüße, 5 €\ue007")  # and Enter
            while not os.path.exists(typed) or not os.path.getsize(typed):
                await asyncio.sleep(0.02)
