"""What the page makes of keyboards: sequences as browsers of all systems send them."""

import unittest

import stage

CTRL, ALT, SHIFT, META = ({name: True} for name in ("ctrlKey", "altKey", "shiftKey", "metaKey"))
GRAPH = {"modifierAltGraph": True}
BOTH = CTRL | ALT
CONTROL = {"key": "Control", "code": "ControlLeft"}
ALT_GR = {"key": "AltGraph", "code": "AltRight", "location": 2}
ALT_RIGHT = {**ALT_GR, "key": "Alt"}
CONTROL_DOWN, CONTROL_UP = ["keydown", CONTROL | CTRL], ["keyup", CONTROL]
ALT_GR_DOWN, ALT_GR_UP = ["keydown", ALT_GR | GRAPH], ["keyup", ALT_GR]


def down(key, code, **options):
    return ["keydown", {"key": key, "code": code, **options}]


def up(key, code, **options):
    return ["keyup", {"key": key, "code": code, **options}]


def press(key, code, **options):
    return down(key, code, **options), up(key, code, **options)


# Name, events, keys of the desktop.
SEQUENCES = [
    ("a character goes as itself, and up as it went down",
     [down("z", "KeyY"), up("Z", "KeyY", **SHIFT)], "+z -z"),
    ("keys that repeat",
     [down("a", "KeyA"), down("a", "KeyA", repeat=True), up("a", "KeyA")], "+a +a -a"),
    ("characters beyond Latin-1", [*press("ü", "BracketLeft"), *press("λ", "KeyL")], "+ü -ü +λ -λ"),
    ("AltGr on Windows brings a Control along",
     [CONTROL_DOWN, ["keydown", {**ALT_GR, **BOTH, **GRAPH}], *press("€", "KeyE", **BOTH, **GRAPH),
      ["keyup", {**CONTROL, **ALT, **GRAPH}], ALT_GR_UP], "+€ -€"),
    ("AltGr that repeats while it is held brings a Control each time",
     [CONTROL_DOWN, ["keydown", {**ALT_GR, **BOTH, **GRAPH}], CONTROL_DOWN,
      ["keydown", {**ALT_GR, **BOTH, **GRAPH, "repeat": True}], down("@", "KeyQ", **BOTH, **GRAPH),
      up("@", "KeyQ", **GRAPH), ["keyup", {**CONTROL, **GRAPH}], ALT_GR_UP, *press("a", "KeyA")],
     "+@ -@ +a -a"),
    ("AltGr that is only known as Control and Alt",
     [CONTROL_DOWN, ["keydown", {**ALT_RIGHT, **BOTH}], *press("€", "KeyE", **BOTH),
      *press("€", "KeyE", **BOTH), ["keyup", {**CONTROL, **ALT}], ["keyup", ALT_RIGHT]], "+€ -€ +€ -€"),
    ("AltGr that goes up as another key leaves no Alt",
     [ALT_GR_DOWN, *press("@", "KeyQ", **GRAPH), ["keyup", ALT_RIGHT], *press("a", "KeyA")],
     "+@ -@ +a -a"),
    ("an Alt that came after AltGr and never goes up",
     [ALT_GR_DOWN, ALT_GR_UP, down("Alt", "AltLeft", **ALT), *press("a", "KeyA")], "+Alt -Alt +a -a"),
    ("AltGr with a key that makes no text",
     [ALT_GR_DOWN, *press("ArrowLeft", "ArrowLeft", **GRAPH), ALT_GR_UP], "+AltGr +Left -Left -AltGr"),
    ("a modifier whose release went elsewhere",
     [down("Shift", "ShiftLeft", **SHIFT), *press("a", "KeyA")], "+Shift -Shift +a -a"),
    ("a modifier that was down before",
     [*press("c", "KeyC", **CTRL), CONTROL_UP], "+Control +c -c -Control"),
    ("Control right before a key does not wait for AltGr",
     [CONTROL_DOWN, *press("c", "KeyC", **CTRL), CONTROL_UP], "+Control +c -c -Control"),
    ("shortcuts of a layout without Latin letters",
     [CONTROL_DOWN, *press("с", "KeyC", **CTRL), CONTROL_UP, *press("с", "KeyC")],
     "+Control +c -c -Control +с -с"),
    ("a dead key and a letter, composed by the key itself",
     [*press("Dead", "BracketRight"), down("é", "KeyE"),
      ["input", {"inputType": "insertText", "data": "é", "field": "é"}], up("é", "KeyE")], "+é -é"),
    ("a dead key and a letter that do not compose",
     [*press("Dead", "BracketRight"), down("x", "KeyX"),
      ["input", {"inputType": "insertText", "data": "^x", "field": "^x"}], up("x", "KeyX")],
     "+^ -^ +x -x"),
    ("a dead key whose letter the browser does not put in the field",
     [*press("Dead", "BracketRight"), *press("ê", "KeyE"), *press("a", "KeyA")], "+ê -ê +a -a"),
    ("a dead key that composes",
     [down("Dead", "BracketRight"), ["compositionstart", {"data": ""}],
      ["compositionupdate", {"data": "´"}], up("Dead", "BracketRight", isComposing=True),
      down("é", "KeyE", isComposing=True, keyCode=229), ["compositionend", {"data": "é", "field": "é"}],
      up("é", "KeyE")], "+é -é"),
    ("a key right after a composition does not overtake it",
     [["compositionstart", {"data": ""}], ["compositionend", {"data": "é", "field": "é"}],
      *press("Enter", "Enter")], "+é -é +Return -Return"),
    ("an input method",
     [down("Process", "KeyN", keyCode=229, isComposing=True), ["compositionstart", {"data": ""}],
      ["compositionupdate", {"data": "に"}],
      ["input", {"inputType": "insertCompositionText", "data": "に", "field": "に", "isComposing": True}],
      ["compositionend", {"data": "日本", "field": "日本"}]], "+日 -日 +本 -本"),
    ("a phone without keys",
     [down("Unidentified", "", keyCode=229),
      ["input", {"inputType": "insertText", "data": "ok", "field": "ok"}],
      ["beforeinput", {"inputType": "insertLineBreak"}],
      ["beforeinput", {"inputType": "deleteContentBackward"}]],
     "+o -o +k -k +Return -Return +BackSpace -BackSpace"),
    ("modifiers that change their places, and the right ones",
     [down("Control", "AltLeft", **CTRL), up("Control", "AltLeft"), down("Control", "CapsLock", **CTRL),
      up("Control", "CapsLock"), down("Shift", "ShiftRight", **SHIFT), up("Shift", "ShiftRight")],
     "+Control -Control +Control -Control +ShiftRight -ShiftRight"),
    ("keys whose release is not told while Meta is held",
     [down("Meta", "MetaLeft", **META), down("c", "KeyC", **META), up("Meta", "MetaLeft")],
     "+Super +c -Super -c"),
]


class Keys(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.setting = stage.Setting()
        cls.addClassCleanup(cls.setting.close)
        cls.page = cls.setting.page().wait_for_picture()

    def setUp(self):
        self.page.focus()
        self.page.forget_sent()

    def test_sequences(self):
        for name, events, keys in SEQUENCES:
            with self.subTest(name):
                self.page.forget_sent()
                self.page.events(*events)
                # The text of a composition is read one turn later.
                self.page.run("return new Promise((resolve) => setTimeout(resolve, 5))")
                self.assertEqual(self.page.keys_sent(), keys)
            self.page.run("document.getElementById('keys').blur()")
            self.page.focus()

    def test_keys_go_up_when_the_focus_leaves(self):
        self.page.events(down("Shift", "ShiftLeft", shiftKey=True),
                         down("A", "KeyA", shiftKey=True))
        self.page.run("document.getElementById('keys').blur()")
        self.assertIn({"t": "release"}, self.page.sent())
        self.page.focus()
        self.page.forget_sent()
        self.page.events(up("A", "KeyA", shiftKey=False), up("Shift", "ShiftLeft"))
        self.assertEqual(self.page.keys_sent(), "", "what went up already goes up again")

    def test_menu(self):
        def click(group, text):
            self.page.run("[...document.querySelectorAll('#' + arguments[0] + ' button')]"
                          ".find((button) => button.textContent === arguments[1]).click()",
                          group, text)

        click("press", "Ctrl+Alt+Del")
        self.assertEqual(self.page.keys_sent(), "+Control +Alt +Delete -Delete -Alt -Control")
        self.page.forget_sent()
        click("arm", "Ctrl")
        self.page.events(*press("c", "KeyC"), *press("c", "KeyC"))
        self.assertEqual(self.page.keys_sent(), "+Control +c -c -Control +c -c")

    def test_keyboard_can_leave_the_desktop(self):
        flags = {}
        for key, code, flag in (("Control", "ControlLeft", "ctrlKey"), ("Alt", "AltLeft", "altKey"),
                                ("Shift", "ShiftLeft", "shiftKey")):
            flags[flag] = True
            self.page.events(down(key, code, **flags))
        for key, code, flag in (("Shift", "ShiftLeft", "shiftKey"), ("Alt", "AltLeft", "altKey"),
                                ("Control", "ControlLeft", "ctrlKey")):
            del flags[flag]
            self.page.events(up(key, code, **flags))
        self.assertEqual(self.page.run("return document.activeElement.id"), "keys-button")
