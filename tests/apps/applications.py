"""The applications: how each is started, and how its text is put in, read and thrown away."""

import contextlib
import json
import os
import re
import shutil
import subprocess
import time

import cases
import wire

HERE = os.path.dirname(os.path.abspath(__file__))
PYTHON = "/usr/bin/python3"  # the one that the bindings are packaged for
SENTINEL = "(nothing was copied)"


class Application:
    """An editor with the usual shortcuts. `desktop` and `agent` are there while it runs."""

    name = title = ""
    packages = ()  # what has to be installed
    program = ""
    version = ()  # the command that prints it
    reports = False  # F8 and F9 work, see editors/
    copy, cut, paste = "Control_L+c", "Control_L+x", "Control_L+v"
    quick = False  # part of the short run
    large = "1 MB", 1 << 20  # the size of a large text
    cannot = ()  # functions of cases.py that make no sense here
    notes = ()  # why, and what the application does by itself

    def __init__(self, desktop, agent, directory):
        self.desktop, self.agent, self.directory = desktop, agent, directory
        self.process = desktop.programs.start(self.command())
        desktop.until(self.is_ready, f"the window of {self.name}", 60)
        for _ in range(20):
            agent.click(*self.middle())
            agent.press("x")
            if self.takes_text():
                break
        else:
            raise TimeoutError(f"{self.name} takes no text")
        self.clear()

    def takes_text(self):
        return self.read(2)

    def command(self):
        raise NotImplementedError

    def is_ready(self):
        return self.desktop.active_window()

    @classmethod
    def missing(cls):
        return "" if shutil.which(cls.program) else " ".join(cls.packages)

    def middle(self):
        return 640, 400

    def read(self, seconds=20):
        """All text, as the application copies it."""
        self.desktop.own("clipboard", SENTINEL)
        self.copy_all()
        try:
            return self.desktop.until(self._copied, "copied text", seconds)
        except TimeoutError:
            return ""

    def _copied(self):
        text = self.desktop.selection("clipboard")
        return text if text != SENTINEL else ""

    def press_select_all(self):
        self.agent.press("Control_L+a")

    def clear(self):
        self.press_select_all()
        self.agent.press("BackSpace")

    def copy_all(self):
        self.press_select_all()
        self.agent.press(self.copy)

    def paste_clipboard(self):
        self.agent.press(self.paste)

    def paste_primary(self):
        self.agent.click(*self.middle(), 2)

    def wait_for(self, text):
        """Until a text has been pasted; no longer than that should take."""
        if not self.reports:
            time.sleep(1 + len(text) / 200000)
            return
        sizes = len(text), len(text.encode("utf-16-le")) // 2
        with contextlib.suppress(TimeoutError):
            self.desktop.until(lambda: self.state()["count"] in sizes, "the pasted text")

    def show(self, bench, text):
        return bench.put(text)

    @staticmethod
    def expected_shortcuts(combinations):
        return combinations

    def shortcut_exceptions(self):
        """Tells what a shortcut may come as by the application's own doing."""
        return lambda shortcut: ()

    def state(self):
        """What an own editor reports."""
        self.forget(keep=True)
        self.agent.press("F9")
        title = self.desktop.until(lambda: re.match(r"\{.*\}", self.desktop.title()), "a report")
        return json.loads(title.group())

    def forget(self, keep=False):
        """Empties the report, but for the shortcuts if these are to be kept."""
        self.agent.press("F7" if keep else "F8")
        self.desktop.until(lambda: "empty" in self.desktop.title(), "an empty report")

    def close(self):
        self.desktop.programs.stop(self.process)


class OwnEditor(Application):
    reports = True
    program = PYTHON

    def command(self):
        return [PYTHON, os.path.join(HERE, "editors", self.name + ".py")]

    @classmethod
    def missing(cls):
        found = subprocess.run([PYTHON, "-c", cls.probe], stderr=subprocess.DEVNULL).returncode == 0
        return "" if found else " ".join(cls.packages)


class Gtk3(OwnEditor):
    name, title, quick = "gtk3", "text area of GTK 3", True
    packages = ("python3-gi", "gir1.2-gtk-3.0")
    probe = "import gi; gi.require_version('Gtk', '3.0')"
    version = ("dpkg-query", "-W", "-f", "${Version}", "libgtk-3-0")


class Gtk4(OwnEditor):
    name, title = "gtk4", "text area of GTK 4"
    packages = ("python3-gi", "gir1.2-gtk-4.0")
    probe = "import gi; gi.require_version('Gtk', '4.0')"
    version = ("dpkg-query", "-W", "-f", "${Version}", "libgtk-4-1")


class Qt5(OwnEditor):
    """Composed characters overtake the plain ones that wait in its queue."""

    notes = ("what a viewer types with dead keys of its own needs 50 ms from the letters before: in a burst"
             "\n  it overtakes them, whoever types. (The agent's own use of dead keys waits.)",)
    name, title, quick = "qt5", "text area of Qt 5", True
    packages = ("python3-pyqt5",)
    probe = "import PyQt5.QtWidgets"
    version = ("dpkg-query", "-W", "-f", "${Version}", "libqt5widgets5")


class Mousepad(Application):
    name = title = program = "mousepad"
    packages = ("mousepad",)

    def command(self):
        return ["mousepad", "--disable-server"]


class GnomeTextEditor(Application):
    name = program = "gnome-text-editor"
    title = "gnome-text-editor"
    packages = ("gnome-text-editor", "dbus-daemon")

    def command(self):
        return ["dbus-run-session", "--", "gnome-text-editor", "--standalone", "--ignore-session"]


class FeatherPad(Application):
    name = title = program = "featherpad"
    packages = ("featherpad",)

    def command(self):
        return ["featherpad", "--standalone"]


class Chromium(Application):
    """Knows no shortcut on a key beyond those of the layout, whoever has put a symbol there."""

    name = title = program = "chromium"
    # Keys that every layout has.
    copy, cut, paste = "Control_L+Insert", "Shift_L+Delete", "Shift_L+Insert"
    packages = ("chromium",)
    reports = quick = True
    notes = ("gives a page no symbol for a shortcut on a key beyond those of the layout, whoever has put"
             " one\n  there (`\\0` counts as right). On `ru` alone, copying and pasting go by Insert.",)
    version = ("chromium", "--version")

    def command(self):
        arguments = ["--user-data-dir=" + os.path.join(self.directory, "chromium"), "--disable-gpu",
                     "--no-first-run", "--no-default-browser-check", "--disable-sync",
                     "--disable-background-networking", "--disable-component-update",
                     "--disable-features=Translate,MediaRouter", "--password-store=basic",
                     "--ozone-platform=x11",
                     "--app=file://" + os.path.join(HERE, "editors", "page.html")]
        if os.getuid() == 0:
            arguments.append("--no-sandbox")
        return ["chromium", *arguments]

    def is_ready(self):
        return "empty" in self.desktop.title()

    def press_select_all(self):
        self.agent.press("Control_L+Home", "Control_L+Shift_L+End")

    def shortcut_exceptions(self):
        keys = self.desktop.run("xmodmap", "-pk")

        def exceptions(shortcut):
            *modifiers, symbol = shortcut.split("+")
            known = b"0x%04x " % wire.keysym(symbol) in keys
            return () if known else ("+".join([*modifiers, "\0"]),)
        return exceptions


class Firefox(Application):
    name, title, program = "firefox", "firefox", "firefox-esr"
    packages = ("firefox-esr",)
    reports = True
    version = ("firefox-esr", "--version")
    PREFERENCES = {
        "browser.shell.checkDefaultBrowser": False, "browser.aboutwelcome.enabled": False,
        "datareporting.policy.dataSubmissionEnabled": False, "app.update.enabled": False,
        "browser.startup.homepage_override.mstone": "ignore", "trailhead.firstrun.didSeeAboutWelcome": True,
        "browser.tabs.warnOnClose": False, "network.captive-portal-service.enabled": False,
        "network.connectivity-service.enabled": False, "ui.key.menuAccessKeyFocuses": False,
        "browser.safebrowsing.downloads.remote.enabled": False, "full-screen-api.warning.timeout": 0,
        "termsofuse.bypassNotification": True, "app.normandy.enabled": False}

    def command(self):
        profile = os.path.join(self.directory, "firefox")
        os.mkdir(profile)
        with open(os.path.join(profile, "user.js"), "w") as file:
            for name, value in self.PREFERENCES.items():
                file.write(f"user_pref({json.dumps(name)}, {json.dumps(value)});\n")
        return ["firefox-esr", "--no-remote", "--new-instance", "--kiosk", "--profile", profile,
                "file://" + os.path.join(HERE, "editors", "page.html")]

    def is_ready(self):
        return "empty" in self.desktop.title()


class Emacs(Application):
    """With the X toolkit's intrinsics."""

    name, title, program = "emacs", "emacs (Xt)", "emacs-lucid"
    packages = ("emacs-lucid",)
    reports = True
    cannot = ("shortcuts", "drag_text")
    large = "128 KB", 1 << 17
    notes = ("keys are sequences with prefixes, and text is not dragged by default; of texts, 128 KB"
             "\n  instead of 1 MB, which it does not take from `xclip` either.",)
    SETUP = """(progn
      (setq inhibit-startup-screen t select-active-regions t mouse-drag-and-drop-region nil)
      (delete-selection-mode 1)
      (switch-to-buffer "text")
      (dolist (key '(("\\C-a" mark-whole-buffer) ("\\C-c" kill-ring-save) ("\\C-v" yank)
                     ("\\C-x" kill-region) ([home] beginning-of-line) ([end] end-of-line)
                     ([C-home] beginning-of-buffer) ([backspace] erase)))
        (global-set-key (car key) (cadr key)))
      (defun erase () (interactive)  ; an error would drop the keys that wait
        (if (use-region-p) (delete-region (region-beginning) (region-end))
          (unless (bobp) (delete-char -1))))
      (defun place (offset)
        (let ((at (posn-x-y (posn-at-point offset))) (edges (window-inside-absolute-pixel-edges)))
          (list (+ (or (car at) 0) (nth 0 edges)) (+ (or (cdr at) 0) (nth 1 edges) 8))))
      (defun report () (interactive)
        (set-frame-name (json-encode
          (list (cons 'count (buffer-size)) (cons 'scroll (1- (window-start)))
                (cons 'start (place 1)) (cons 'word (place (min 9 (point-max))))
                (cons 'end (place (point-max)))))))
      (global-set-key [f9] 'report)
      (global-set-key [f7] (lambda () (interactive) (set-frame-name "empty")))
      (require 'json)
      (set-frame-name "empty"))"""

    def command(self):
        return ["emacs-lucid", "-Q", "--eval", self.SETUP]


class Xterm(Application):
    """What a program in the terminal receives is what it was typed."""

    name = title = program = "xterm"
    packages = ("xterm", "xfonts-base")
    reports = quick = True
    version = ("xterm", "-version")
    cannot = ("editing", "copy_keys", "wheel", "drag_text")
    notes = ("a terminal edits nothing, and copies what the mouse selects.",)
    MARK = b"\x1b[20~"  # F9
    BYTES = {"Control+k": "\x0b", "Control+@": "\0", "Control+[": "\x1b", "Control+~": "\x1e",
             "Alt+x": "\x1bx", "Alt+ß": "\x1bß", "Control+Alt+y": "\x1b\x19", "Super+k": "k",
             "Super+@": "@", "Control+€": "€", "Control+ж": "ж"}

    def command(self):
        self.out = os.path.join(self.directory, "typed")
        shown = os.path.join(self.directory, "shown")
        with open(shown, "w") as file:
            file.write(cases.LINE + "\n")
        self.begin = 0
        return ["xterm", "-u8", "-fn", "fixed", "-b", "2", "+sb", "-xrm", "*metaSendsEscape: true",
                "-xrm", "*altSendsEscape: true", "-e", PYTHON,
                os.path.join(HERE, "editors", "terminal.py"), self.out, shown]

    def is_ready(self):
        return os.path.exists(self.out)

    def takes_text(self):
        with contextlib.suppress(TimeoutError):
            return self.desktop.until(self._typed, "a character in the terminal", 2)

    def read(self, seconds=20):
        marks = self._typed().count(self.MARK)
        self.agent.press("F9")
        self.desktop.until(lambda: self._typed().count(self.MARK) > marks, "what was typed", seconds)
        return self._typed().replace(self.MARK, b"").decode(errors="replace").replace("\r", "\n")

    def _typed(self):
        with open(self.out, "rb") as file:
            file.seek(self.begin)
            return file.read()

    def clear(self):
        self.read()
        self.begin = os.path.getsize(self.out)

    forget = clear

    def paste_clipboard(self):
        self.agent.press("Shift_L+Insert")

    def wait_for(self, text):
        with contextlib.suppress(TimeoutError):
            self.desktop.until(lambda: len(self._typed()) >= len(text.encode()), "the pasted text")

    def show(self, bench, text):
        return ""  # from the beginning

    def state(self):
        return {"shortcuts": [self.read()], "start": (3, 8), "word": (2 + 8 * 6, 8),
                "end": (2 + len(cases.LINE) * 6, 8)}

    def expected_shortcuts(self, combinations):
        return ["".join(self.BYTES[combination] for combination in combinations)]


ALL = [Xterm, Gtk3, Mousepad, Gtk4, GnomeTextEditor, Qt5, FeatherPad, Emacs, Chromium, Firefox]
