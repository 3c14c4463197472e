"""A text area of Qt 5. F9 reports in the window's title, F7 and F8 clear that, F8 the shortcuts, too."""

import json
import sys

from PyQt5.QtCore import QEvent, Qt
from PyQt5.QtGui import QKeySequence, QTextCursor
from PyQt5.QtWidgets import QApplication, QTextEdit

shortcuts = []


class Editor(QTextEdit):
    def place(self, offset):
        cursor = QTextCursor(self.document())
        cursor.setPosition(offset)
        box = self.cursorRect(cursor)
        point = self.viewport().mapToGlobal(box.center())
        return [point.x(), point.y()]

    def report(self):
        end = self.document().characterCount() - 1
        self.setWindowTitle(json.dumps({
            "shortcuts": shortcuts, "count": end, "scroll": self.verticalScrollBar().value(),
            "start": self.place(0), "word": self.place(min(8, end)), "end": self.place(end)}))

    def event(self, event):
        # Each key comes as an offer of a shortcut first.
        if event.type() == QEvent.ShortcutOverride:
            held = [text for text, mask in (("Control", Qt.ControlModifier), ("Alt", Qt.AltModifier),
                                            ("Super", Qt.MetaModifier)) if event.modifiers() & mask]
            modifiers = (Qt.Key_Control, Qt.Key_Alt, Qt.Key_Meta, Qt.Key_Shift, Qt.Key_AltGr,
                         Qt.Key_Super_L, Qt.Key_Super_R)
            if event.key() in (Qt.Key_F7, Qt.Key_F8):
                if event.key() == Qt.Key_F8:
                    shortcuts.clear()
                self.setWindowTitle("empty")
            elif event.key() == Qt.Key_F9:
                self.report()
            elif held and event.key() not in modifiers:
                shortcuts.append("+".join(held + [QKeySequence(event.key()).toString().lower()]))
        return super().event(event)


application = QApplication(sys.argv)
editor = Editor(acceptRichText=False, windowTitle="empty")
editor.show()
sys.exit(application.exec_())
