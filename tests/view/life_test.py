"""What comes and goes: the agent, the X server, ruvoview, tokens, pages of others."""

import os
import pathlib
import signal
import unittest

import stage
from stage import until

PROBE = """<script>
const answers = {};
const done = (name, text) => { answers[name] = text; window.answers = answers; };
const socket = new WebSocket("ws://127.0.0.1:PORT/desktop", "ruvo-view-1");
socket.onopen = () => done("socket", "open");
socket.onclose = () => done("socket", "refused");
fetch("http://127.0.0.1:PORT/session", {method: "POST", body: "TOKEN", credentials: "include"})
  .then((answer) => done("session", "ok " + answer.status), () => done("session", "refused"));
</script>"""


class Life(unittest.TestCase):
    def test_page_is_small(self):
        files = (stage.ROOT / "tools/view/page").iterdir()
        self.assertLess(sum(file.stat().st_size for file in files), 60000)

    def start(self, *options, **arguments):
        setting = stage.Setting(*options, **arguments)
        self.addCleanup(setting.close)
        return setting

    def assert_comes_back(self, setting, page):
        page.wait_for_state("live")
        stage.wait_for_same_picture(page, setting.screen)

    def test_agent_and_display_and_server_go(self):
        token = os.path.join(stage.ROOT, "build", f"view-token.{os.getpid()}")
        self.addCleanup(lambda: os.path.exists(token) and os.unlink(token))
        setting = self.start("--token-file", token, server=stage.lasting_server)
        page = setting.page().wait_for_picture()
        page.run("""
            const {body} = document;
            const note = () => states.push(body.dataset.state + document.querySelector("#status").value);
            window.states = [];
            new MutationObserver(note).observe(body, {attributeFilter: ["data-state"]});""")

        page.run("""socket.onmessage({data: '{"t":"state","state":"capture-broken","text":"why"}'})""")
        self.assertEqual(page.status(), "Capture is broken: polling (why)")
        self.assertTrue(page.run("return document.querySelector('#notice').hidden"))

        def said():
            return " ".join(page.run("return states.splice(0)"))

        os.kill(setting.view.children()["ruvoagent"], signal.SIGKILL)
        until(lambda: "no-agent" in page.run("return states.join()"), "the page to say it")
        self.assert_comes_back(setting, page)
        self.assertIn("agent", said())

        setting.restart_display(lambda: page.wait_for_state("no-display"))
        self.assert_comes_back(setting, page)
        self.assertIn("isplay", said())

        setting.view.kill()
        page.wait_for_state("server")
        self.assertIn("Trying again", page.status())
        setting.serve("--token-file", token, listen=f"127.0.0.1:{setting.view.port}")
        self.assert_comes_back(setting, page)

    def test_server_with_another_token(self):
        setting = self.start()
        page = setting.page().wait_for_picture()
        self.assertNotIn("#", page.driver.current_url, "the token is not to be seen")
        self.assertEqual(page.run("return document.cookie"), "")
        self.assertEqual(setting.view.close(), (0, b""))
        page.wait_for_state("server")
        setting.serve(listen=f"127.0.0.1:{setting.view.port}")
        page.wait_for_state("session")
        self.assertIn("Open the address", page.status())
        page.run("location.hash = arguments[0]", setting.view.token)
        self.assert_comes_back(setting, page)

    def test_strangers(self):
        setting = self.start()
        wrong = stage.Page(setting.browser, setting.view.origin + "/#wrong")
        self.addCleanup(wrong.close)
        wrong.wait_for_state("session")
        # What a browser's one page may, its others may not.
        page = setting.page().wait_for_picture()
        probe = PROBE.replace("PORT", str(setting.view.port)).replace("TOKEN", setting.view.token)
        (pathlib.Path(setting.directory) / "index.html").write_text(probe)
        with stage.web_server(setting.directory) as address:
            foreign = stage.Page(setting.browser, address)
            self.addCleanup(foreign.close)
            answers = until(lambda: foreign.run("return window.answers?.socket && answers.session &&"
                                                " answers"), "the stranger's attempts")
        self.assertEqual(answers, {"socket": "refused", "session": "refused"})
        self.assertEqual(page.show().state(), "live")
        violations = [entry["message"] for entry in page.driver.get_log("browser")
                      if "Content Security Policy" in entry["message"]]
        self.assertEqual(violations, [])
