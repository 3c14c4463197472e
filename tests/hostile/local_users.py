#!/usr/bin/env python3
"""Local users: what they put in the agent's way, and what they can learn from it."""

import os
import pathlib
import re
import struct
import subprocess
import tempfile
import time
import unittest

import desk

NOBODY = 65534


@unittest.skipUnless(os.geteuid() == 0, "needs root")
class LocalUsers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.xserver = desk.XServer()
        cls.addClassCleanup(cls.xserver.close)

    def agent(self, *parameters, **options):
        agent = desk.Agent(self.xserver, *parameters, **options)
        self.addCleanup(agent.close)
        agent.expect("init")
        return agent

    def captures(self, agent, *lines):
        agent.start()
        agent.echo()
        for line in lines:
            self.assertTrue(agent.has_line(line, 0), agent.story())
        agent.terminate()
        self.assertEqual(agent.traces(), [])

    def isolated(self, namespaces, script):
        """An agent that starts after a script, in namespaces of its own."""
        prefix = ("unshare", *namespaces, "sh", "-c", script + ' && exec "$0" "$@"')
        if subprocess.run([*prefix, "true"], capture_output=True, check=False).returncode != 0:
            self.skipTest("no namespaces here")
        return self.agent(prefix=prefix)

    def test_lock_directory(self):
        """Somebody else has a directory of its name, and of that of its replacement."""
        taken = "mount -t tmpfs none /run && mount -t tmpfs none /tmp && mkdir /tmp/.ruvo-0 && chown 1 /tmp/.ruvo-0"
        self.captures(self.isolated(["-m"], taken), "/tmp/.ruvo-0")
        both = taken + " && touch /run/ruvo"
        self.captures(self.isolated(["-m"], both), "/tmp/.ruvo-0", "/run/ruvo", "without lock files")

    def test_segments_used_up(self):
        agent = self.isolated(["-i"], "echo 0 > /proc/sys/kernel/shmmni")
        self.captures(agent, "shmget(")

    def test_log_file(self):
        """Links in another user's home, and in a home that root may use."""
        with tempfile.TemporaryDirectory(prefix="hostile-") as top:
            target = pathlib.Path(top, "target")
            target.mkdir()
            for owner, link in (NOBODY, "file"), (0, "file"), (NOBODY, "directory"):
                directory = pathlib.Path(top, f"{owner}-{link}", ".ruvo")
                if link == "file":
                    directory.mkdir(parents=True)
                    (directory / "ruvoagent.log").symlink_to(target / "ruvoagent.log")
                else:
                    directory.parent.mkdir()
                    directory.symlink_to(target)
                os.chown(directory, owner, owner, follow_symlinks=False)
                agent = self.agent("Log=*:file:30,*:ipc:30", environment={"HOME": str(directory.parent)})
                agent.start()
                agent.echo()
                self.assertEqual(os.listdir(target), [], f"written through the {link} of {owner}")
                self.assertIn("Error opening default log file: ", agent.story())
                agent.close()

    def test_segments_belong_to_the_servers_user(self):
        for parameters in (), ("_UseXShm=0",):
            agent = self.agent(*parameters)
            agent.say("SetXServerOwner", struct.pack(">qq", 7 << 32 | 12345, 54321))
            agent.start()
            memory = agent.description[37:]
            if memory[0] == 0:
                status = os.stat("/dev/shm" + memory[9:9 + memory[8]].decode())
                owner = [f"{status.st_mode & 0o777:o}", str(status.st_uid), str(status.st_gid)]
            else:
                head, *rows = (line.split() for line in open("/proc/sysvipc/shm"))
                row = next(row for row in rows if int(row[1]) == int.from_bytes(memory[5:9], "big"))
                owner = [row[head.index(name)] for name in ("perms", "uid", "gid")]
            self.assertEqual(owner, ["600", "12345", "54321"])

    def test_lines_command_no_terminal(self):
        """Not even those of the server's; its newlines are its own."""
        agent = self.agent("Log=*:ipc:100")
        text = "x\ny\t\x1b[2J\u009b2J"
        agent.say("setParams", desk.short("DeadKeyFile") + desk.string(text) + (10).to_bytes(4, "big"))
        agent.echo()
        self.assertTrue(agent.has_line("x\ny" r"\x09\x1b[2J\u009b2J"), agent.story())

    def test_not_for_others(self):
        """Descriptors end with the process, and others of root's cannot look into it."""
        weak = ("setpriv", "--bounding-set", "-sys_ptrace,-perfmon,-sys_admin")
        agent = self.agent(prefix=weak)
        agent.start()
        for entry in pathlib.Path(f"/proc/{agent.pid}/fdinfo").iterdir():
            try:
                flags = int(re.search(r"flags:\s+(\d+)", entry.read_text())[1], 8)
            except FileNotFoundError:
                continue  # open for a moment only
            self.assertTrue(int(entry.name) <= 2 or flags & os.O_CLOEXEC, os.readlink(
                f"/proc/{agent.pid}/fd/{entry.name}"))
        look = subprocess.run([*weak, "cat", f"/proc/{agent.pid}/environ"], capture_output=True, check=False)
        self.assertNotEqual(look.returncode, 0)

    def test_nothing_stays_in_memory(self):
        """Texts of the clipboard are gone from memory with the text that replaces them."""
        agent = self.agent("EnableClipboard=1", "Log=*:ipc:0")
        agent.start()
        secret = b"correct horse " * 7000
        for text in (secret, b"", b"-" * 70000, b"other"):
            agent.say("clientCutText", desk.string(text))
            agent.echo()
        time.sleep(0.1)  # not for anything that is waited for: what is left, is left
        left = 0
        with open(f"/proc/{agent.pid}/mem", "rb") as memory:
            for line in pathlib.Path(f"/proc/{agent.pid}/maps").read_text().splitlines():
                begin, end = (int(part, 16) for part in line.split()[0].split("-"))
                if "rw" not in line.split()[1] or "vvar" in line:
                    continue
                try:
                    memory.seek(begin)
                    left += memory.read(end - begin).count(b"correct horse")
                except (OSError, ValueError, OverflowError):
                    pass
        self.assertEqual(left, 0)


if __name__ == "__main__":
    unittest.main()
