"""A private X server with a window manager, and what programs beside the agent see there."""

import ctypes
import os
import re
import signal
import subprocess
import time

from wire import ruvo

# Every window fills the screen and has the focus; no key and no button belongs to the
# window manager.
OPENBOX = """<openbox_config xmlns="http://openbox.org/3.4/rc">
<focus><focusNew>yes</focusNew><followMouse>no</followMouse></focus>
<keyboard/>
<mouse/>
<applications><application class="*" type="normal"><decor>no</decor><focus>yes</focus>
<maximized>yes</maximized></application></applications>
</openbox_config>"""

SIZE = (1280, 800)


class Programs:
    """Programs that end with this object, each with all that it has started itself."""

    def __init__(self, log, environment):
        self.log = log
        self.environment = environment
        self.running = []

    def start(self, arguments, **options):
        self.running = [process for process in self.running if process.poll() is None]
        options.setdefault("stdin", subprocess.DEVNULL)
        options.setdefault("stdout", self.log)
        process = subprocess.Popen(arguments, stderr=self.log, env=self.environment,
                                   start_new_session=True, **options)
        self.running.append(process)
        return process

    def stop(self, process):
        if process in self.running:
            self.running.remove(process)
        self._signal(process, signal.SIGTERM)
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            pass
        self._signal(process, signal.SIGKILL)
        process.wait()

    def stop_all(self):
        for process in reversed(list(self.running)):
            self.stop(process)

    @staticmethod
    def _signal(process, number):
        try:
            os.killpg(process.pid, number)
        except (ProcessLookupError, PermissionError):
            pass


class Desktop:
    def __init__(self, directory, log, xserver=None):
        """DIRECTORY takes the home of all programs and whatever they write. Ends the X server."""
        environment = {name: value for name, value in os.environ.items()
                       if name in ("PATH", "LANGUAGE", "TZ")}
        environment.update(
            HOME=directory, TMPDIR=directory, XDG_RUNTIME_DIR=directory, LC_ALL="C.UTF-8",
            GTK_IM_MODULE="simple", QT_IM_MODULE="compose", XMODIFIERS="@im=none",
            GSETTINGS_BACKEND="memory", NO_AT_BRIDGE="1", GTK_A11Y="none", GDK_BACKEND="x11",
            QT_QPA_PLATFORM="xcb", DBUS_SESSION_BUS_ADDRESS="unix:path=" + directory + "/none",
            LIBGL_ALWAYS_SOFTWARE="1", GSK_RENDERER="cairo", MOZ_DISABLE_CONTENT_SANDBOX="1")
        self.programs = Programs(log, environment)
        self.log = log
        self.xserver = xserver or ruvo.XServer(screen="%dx%dx24" % SIZE)
        self.display = environment["DISPLAY"] = self.xserver.display
        configuration = os.path.join(directory, "openbox.xml")
        with open(configuration, "w") as file:
            file.write(OPENBOX)
        # It runs this when it has started: a window that comes before gets no focus.
        self.programs.start(["openbox", "--sm-disable", "--config-file", configuration, "--startup",
                             "xprop -root -f _STARTED 8s -set _STARTED yes"])
        self.until(lambda: b"yes" in self.run("xprop", "-root", "_STARTED"), "the window manager")

    def run(self, *arguments, data=None, seconds=20):
        """What a program prints; nothing when it fails or takes too long."""
        try:
            return subprocess.run(arguments, input=data, env=self.programs.environment,
                                  stdin=None if data is not None else subprocess.DEVNULL,
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                  timeout=seconds).stdout
        except subprocess.TimeoutExpired:
            return b""

    @staticmethod
    def until(condition, what, seconds=30):
        """The first value of CONDITION that is not false."""
        limit = time.monotonic() + seconds
        while not (value := condition()):
            if time.monotonic() > limit:
                raise TimeoutError("waiting for " + what)
            time.sleep(0.01)
        return value

    def layout(self, name, variant=""):
        self.run("setxkbmap", "-rules", "evdev", "-model", "pc105", "-layout", name,
                 "-variant", variant, "-option", "", "-option", "compose:menu")
        time.sleep(1)  # nobody types before the applications have taken it

    def is_locked(self, key):
        state = self.run("xset", "q").decode()
        return bool(re.search(key.replace("_", " ") + r":\s+on", state))

    def pressed_keys(self):
        """The keycodes that are down."""
        xlib = ctypes.CDLL("libX11.so.6")
        xlib.XOpenDisplay.restype = ctypes.c_void_p
        connection = ctypes.c_void_p(xlib.XOpenDisplay(self.xserver.display.encode()))
        keys = ctypes.create_string_buffer(32)
        xlib.XQueryKeymap(connection, keys)
        xlib.XCloseDisplay(connection)
        return [code for code in range(256) if keys.raw[code // 8] >> code % 8 & 1]

    def active_window(self):
        line = self.run("xprop", "-root", "-notype", "_NET_ACTIVE_WINDOW").decode()
        number = line.rsplit(" ", 1)[-1].strip()
        return number if number.startswith("0x") and number != "0x0" else ""

    def title(self):
        window = self.active_window()
        return self.run("xdotool", "getwindowname", window).decode().rstrip("\n") if window else ""

    def own(self, selection, text):
        """Lets a program beside the agent own a selection."""
        owner = self.programs.start(["xclip", "-i", "-quiet", "-selection", selection,
                                     "-t", "UTF8_STRING"], stdin=subprocess.PIPE)
        owner.stdin.write(text.encode())
        owner.stdin.close()
        self.until(lambda: self.selection(selection) == text, "the selection's owner")

    def selection(self, selection, seconds=20):
        return self.run("xclip", "-o", "-selection", selection, "-t", "UTF8_STRING",
                        seconds=seconds).decode(errors="replace")

    def close(self):
        self.programs.stop_all()
        self.xserver.close()
