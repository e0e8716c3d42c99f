"""A user at the screen of a desktop: keystrokes, clicks, and pictures of what is to be seen."""

import subprocess
import time

import quilla

FIRST_ROW = 60, 68  # a place in the list's first row, in the window without its frame, at 96 pixels per inch


class Hands:
    """Keyboard, mouse and eyes of a user."""

    def __init__(self, desktop, pictures, limit=30):
        self.desktop, self.pictures, self.limit = desktop, pictures, limit
        self.number = 0

    def tool(self, *words):
        return self.desktop.tool("xdotool", *map(str, words), check=False).strip()

    def active_title(self):
        return self.tool("getactivewindow", "getwindowname")

    def has_keyboard(self, title):
        """Whether the window manager and the program agree that the window of this title is being typed to."""
        return self.active_title() == title and self.desktop.desk.ask("focus") == [title]

    def expect(self, title):
        """Waits until the window of this title has the keyboard."""
        try:
            quilla.wait_until(lambda: self.has_keyboard(title), f'the window "{title}"', self.limit)
        except quilla.Failure as failure:
            self.picture("failure")
            raise quilla.Failure(f'{failure}; "{self.active_title()}" is in front') from None

    def take_up(self, title="Quilla Tarn", place=FIRST_ROW):
        """Turns to the first window of an instance as a user does, with a click: where nothing on the screen takes
        notification icons, Wine shows a window of its own for them at the same time, which may have the keyboard
        though the other window is in front."""
        quilla.wait_until(lambda: self.active_title() == title, f'the window "{title}" to be in front')
        self.click(place)
        self.expect(title)

    def keys(self, *names):
        for name in names:
            self.tool("key", "--clearmodifiers", name)

    def type(self, text):
        self.tool("type", "--clearmodifiers", "--delay", 15, text)

    def replace(self, text):
        self.keys("ctrl+a")
        self.type(text)

    def click_row(self, button=1, repeat=1):
        """Clicks into the first row of the list; the main window has to be in front."""
        self.click(FIRST_ROW, button, repeat)

    def click(self, place, button=1, repeat=1):
        """Clicks at a place of the window in front."""
        pixels = [length * self.desktop.dpi // 96 for length in place]
        self.tool("mousemove", "--window", self.tool("getactivewindow"), *pixels)
        self.tool("click", "--repeat", repeat, "--delay", 60, button)

    def capture(self):
        command = ["import", "-silent", "-window", "root", "rgb:-"]
        return subprocess.run(command, env=self.desktop.environment, stdout=subprocess.PIPE, check=True).stdout

    def settle(self, limit=10):
        """Waits until two looks at the screen are the same, or for long enough: a caret may blink."""
        end = time.monotonic() + limit
        before, now = None, self.capture()
        while now != before and time.monotonic() < end:
            time.sleep(0.1)
            before, now = now, self.capture()

    def picture(self, name):
        self.settle()
        self.number += 1
        path = self.pictures / f"{self.number:02}-{name}.png"
        self.desktop.tool("import", "-silent", "-window", "root", str(path))
