# SPDX-License-Identifier: Apache-2.0
"""A tour of the programs on a desktop of its own: what a person does, and what is seen to come of it.

One line per step; ends with 0 only if every step was seen. Leaves the screenshots in build/tour/ and nothing else.
"""
import argparse
import pathlib
import re
import signal
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

TEXT = "The quick brown fox jumps over the lazy dog."
RED, WHITE = (208, 32, 32), (255, 255, 255)


class NotSeen(Exception):
    """What a step was to show did not come."""


class Tour:
    def __init__(self, session, folder):
        self.session = session
        self.folder = folder
        self.heartbeats = None
        self.store = None
        self.nonce = None
        self.steps = [
            ("A screen and a window manager", self.start_desktop),
            ("A session bus", self.start_bus),
            ("The companion's heartbeat", self.start_companion),
            ("The store says hello", self.start_store),
            ("A text is copied", self.copy_text),
            ("A picture is copied", self.copy_picture),
            ("The text is copied again", self.copy_text_again),
            ("It becomes a favorite", self.make_favorite),
            ("The store is killed", self.kill_store),
            ("It is started again", self.restart_store),
            ("Recording resumes", self.copy_again),
            ("What is on the screen", self.take_picture),
            ("Both programs end quietly", self.stop_programs),
        ]

    def run(self):
        width = max(len(title) for title, _ in self.steps)
        begin = time.monotonic()
        for number, (title, step) in enumerate(self.steps, 1):
            try:
                seen = step()
            except (NotSeen, AssertionError) as problem:
                print(f" ✗ {title:<{width}}  {problem}", flush=True)
                print(f"\nThe tour stops at step {number} of {len(self.steps)}. What the processes wrote:\n")
                print(self.session.transcript())
                return 1
            first, *more = seen.splitlines()
            print(f" ✓ {title:<{width}}  {first}", *(f"   {'':<{width}}  {line}" for line in more), sep="\n", flush=True)
        print(f"\nAll {len(self.steps)} steps were seen, in {time.monotonic() - begin:.1f} s.")
        return 0

    def start_desktop(self):
        self.session.start_display(window_manager=True)
        return f"Xvfb at {self.session.environment['DISPLAY']}, openbox"

    def start_bus(self):
        self.session.start_bus()
        return "dbus-daemon, one of the tour's own"

    def start_companion(self):
        from heartbeats import Heartbeats
        self.heartbeats = Heartbeats(self.session.bus_address)
        begin = time.monotonic()
        self.session.start_companion()
        heard, _ = self.heartbeats.timed(timeout=10)
        heartbeat = self.heartbeats.usable(10)
        self.nonce = heartbeat["nonce"]
        milliseconds = (heard - begin) * 1000
        return f"port {heartbeat['port']}, nonce {shortened(self.nonce)}, first heard after {milliseconds:.0f} ms"

    def start_store(self):
        self.store = self.session.start_store("--verbose")
        return self.hello()

    def hello(self):
        before = self.nonce
        self.nonce = self.heartbeats.wait_for(lambda heard: heard.get("nonce") not in (None, before), 15)["nonce"]
        said = self.wait(lambda: re.search(r"(?m)^.*(?:hello|link).*$", self.store.stdout() + self.store.stderr()),
                         5, "the store's own word on it")
        return f"it says: {said[0]}; the next nonce is {shortened(self.nonce)}"

    def copy_text(self):
        self.session.copy(TEXT)
        return f"{len(TEXT)} bytes, listed as\n{self.listed(1)}"

    def copy_picture(self):
        import images
        picture = self.session.run("convert", "-size", "320x240", "xc:none", "-fill", "rgb(208,32,32)", "-draw",
                                   "circle 160,120 160,40", "png:-")
        self.session.copy(picture, "image/png")
        line = self.listed(2)
        jpeg = self.session.store_command("show", first_word(line))
        (self.folder / "recorded.jpg").write_bytes(jpeg)
        width, height, at = images.pixels(jpeg)
        if not images.is_near(at(4, 4), WHITE):
            raise NotSeen(f"what was transparent came out as {at(4, 4)}, not white")
        if not images.is_near(at(160, 120), RED):
            raise NotSeen(f"what was red came out as {at(160, 120)}")
        return (f"a PNG of {len(picture)} bytes came out as a JPEG of {len(jpeg)}, {width} × {height}, white where it was "
                f"transparent, listed as\n{line}")

    def copy_text_again(self):
        picture, text = (first_word(line) for line in self.lines_if(2))
        self.session.copy(TEXT)
        self.wait(lambda: first_word(self.lines_if(2)[0]) == text, 10, "the text at the top")
        return f"no third entry: {text} is above {picture} now, as\n{self.listed(2)}"

    def make_favorite(self):
        text = first_word(self.lines_if(2)[0])
        self.session.store_command("category", "add", "animals", "--color", "brown")
        self.session.store_command("favorite", text, "--category", "animals")
        self.session.store_command("alias", text, "pangram")
        favorites = self.session.store_command("list", "--category", "animals").decode().splitlines()
        if len(favorites) != 1 or "[animals] pangram" not in favorites[0]:
            raise NotSeen(f"the category holds {favorites}")
        return f"named and filed under a category, listed as\n{' '.join(favorites[0].split())}"

    def kill_store(self):
        self.store.kill()
        self.session.copy("A copy that nobody records")
        return "with SIGKILL, and a text is copied while nobody records"

    def restart_store(self):
        time.sleep(1)  # let the companion look at the clipboard while nobody listens
        self.store = self.session.start_store("--verbose")
        seen = self.hello()
        self.listed(2)
        return f"{seen};\nboth entries are there, the text copied meanwhile is not"

    def copy_again(self):
        self.session.copy(TEXT[::-1])
        return f"the next text is listed as\n{self.listed(3)}"

    def take_picture(self):
        window = self.session.start("display", "display", "-title", "recorded.jpg", self.folder / "recorded.jpg")
        shot = self.folder / "screen.png"

        def shows_the_picture():
            colours = self.session.run("import", "-window", "root", shot) or self.session.run(
                "convert", shot, "-format", "%c", "histogram:info:-").decode()
            counts = {match[2]: int(match[1]) for match in re.finditer(r"(\d+): \([^)]*\) #([0-9A-F]{6})", colours)}
            return sum(count for colour, count in counts.items() if is_red(colour)) > 10_000

        self.wait(shows_the_picture, 15, "the window with the picture", interval=0.3)
        window.stop()
        return f"the recorded picture in a window; screenshot in {relative(shot)}"

    def stop_programs(self):
        for process in self.session.processes:
            if process.is_ours:
                process.stop()
        complaints = [line for process in self.session.processes if process.is_ours for line in process.complaints()]
        if complaints:
            raise NotSeen("\n".join(complaints))
        return "nothing on standard error"

    def listed(self, count):
        """The newest line of the list, once it has `count` entries."""
        lines = self.wait(lambda: self.lines_if(count), 10, f"entry {count} in the list")
        return " ".join(lines[0].split())

    def lines_if(self, count):
        lines = [line for line in self.session.store_command("list").decode().splitlines()
                 if re.match(r"[0-9A-Fa-f]{8}", line)]
        return lines if len(lines) == count else None

    @staticmethod
    def wait(predicate, timeout, what, interval=0.1):
        from session import wait_until
        return wait_until(predicate, timeout, what, interval)


def shortened(nonce):
    return nonce[:8] + "…"


def first_word(line):
    return line.split()[0]


def is_red(colour):
    import images
    return images.is_near(tuple(bytes.fromhex(colour)), RED)


def relative(path):
    try:
        return path.relative_to(pathlib.Path.cwd())
    except ValueError:
        return path


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", required=True, help="the build folder that holds bin/")
    build = pathlib.Path(parser.parse_args().build).resolve()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    try:
        import gi  # noqa: F401
    except ImportError:
        return "The tour needs PyGObject (package python3-gi) for /usr/bin/python3."
    import session as sessions
    session = sessions.Session(build)
    try:
        for name in ("Xvfb", "openbox", "dbus-daemon", "xclip", "xprop", "convert", "import", "display"):
            sessions.tool(name)
        for name in ("vexil-shortcut", "vexil-store"):
            session.program(name)
        folder = pathlib.Path(__file__).resolve().parents[2] / "build/tour"
        folder.mkdir(parents=True, exist_ok=True)
        print("Vexil Shortcut, shown on a desktop of its own\n", flush=True)
        return Tour(session, folder).run()
    except sessions.Missing as problem:
        return f"The tour cannot be given: {problem}."
    except KeyboardInterrupt:
        return "Stopped."
    finally:
        session.end_processes()
        session.remove()


if __name__ == "__main__":
    sys.exit(main())
