"""Drives the built program on a Wine desktop of its own: the library of the end-to-end runs and of the demo.

    with Desktop() as desktop:
        desktop.start()                                    # the serving instance, with its window
        desktop.create(volume)                             # a request over the channel
        desktop.run("mount", volume.path, "/password", volume.password)
        uri = desktop.uri("SEC0")                          # what an NBD client is given

Nothing sleeps blindly: whatever is waited for is watched, with a limit. Whatever is started is ended.
"""

import contextlib
import dataclasses
import fcntl
import hashlib
import os
import pathlib
import shutil
import struct
import subprocess
import tempfile
import threading
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("QUILLA_BUILD", ROOT / "build" / "windows"))
PROGRAM = BUILD / "bin" / "QuillaTarn.exe"
DESK = BUILD / "endtoend" / "desk.exe"

LIMIT = 60  # seconds until something that should happen soon counts as not happening

WM_CLOSE, WM_COMMAND = 0x0010, 0x0111
IDM_DISMOUNT_ALL = 1022

CIPHER_NONE, CIPHER_CAST128, CIPHER_TWOFISH = 0, 6, 10
CIPHER_NAMES = {CIPHER_NONE: "none", CIPHER_CAST128: "CAST-128", CIPHER_TWOFISH: "Twofish"}

MINUTE = 600_000_000  # in the unit of time-outs, 100 ns
SECOND = 10_000_000

REQUESTS = {"create": 1, "query": 2, "delete": 3, "mount": 4, "dismount": 5, "check": 6}


class Failure(Exception):
    """Something did not happen as it should."""


def wait_until(condition, what, limit=LIMIT, interval=0.02):
    """Watches until condition() yields something true and returns that."""
    end = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() >= end:
            raise Failure(f"after {limit} s still waiting for {what}")
        time.sleep(interval)


def windows_path(path):
    """How a program under Wine names a file of the Unix side."""
    return "Z:" + str(pathlib.Path(path)).replace("/", "\\")


@dataclasses.dataclass
class Record:
    """The 1128-byte record of a volume, packed here from its documented layout."""

    path: str = ""
    size: int = 0
    key_path: str = ""
    cipher: int = 0
    timeout: int = 0
    activity: int = 0
    flags: int = 0
    device: str = ""
    handle: int = 0
    key: bytes = bytes(32)

    LAYOUT = struct.Struct("<520sQ520sI4xQQB1x12s2xI32s4x")

    def pack(self):
        fields = dataclasses.astuple(self)
        return self.LAYOUT.pack(*(field.encode("utf-16-le") if isinstance(field, str) else field for field in fields))

    @classmethod
    def unpack(cls, data):
        record = cls(*cls.LAYOUT.unpack(data))
        for name in ("path", "key_path", "device"):
            setattr(record, name, getattr(record, name).decode("utf-16-le", "replace").split("\0")[0])
        return record


class Volume:
    """A volume to be: its files, its settings and its password."""

    def __init__(self, folder, name, size, cipher, password="97531", timeout=30 * MINUTE):
        self.raw = pathlib.Path(folder) / f"{name}.raw"
        self.key = self.raw.with_suffix(".key")
        self.size, self.cipher, self.password, self.timeout = size, cipher, password, timeout

    @property
    def path(self):
        return windows_path(self.raw)

    @property
    def key_path(self):
        return windows_path(self.key)

    def record(self):
        key_path = self.key_path if self.cipher != CIPHER_NONE else ""
        return Record(path=self.path, size=self.size, key_path=key_path, cipher=self.cipher, timeout=self.timeout)


class Desk:
    """The helper on the Windows side; asks it one thing at a time."""

    def __init__(self, desktop):
        self.lock = threading.Lock()
        self.process = desktop.spawn("wine", str(DESK), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     text=True)

    def ask(self, *words):
        """Its answer's words; none, if what is asked for is not there."""
        with self.lock:
            self.process.stdin.write(" ".join(map(str, words)) + "\n")
            self.process.stdin.flush()
            line = self.process.stdout.readline()
        if not line:
            raise Failure("the helper on the Windows side has ended")
        return [bytes.fromhex(word).decode() for word in line.split()]


class Desktop:
    """A Wine prefix and a screen for the length of a run. One run at a time uses the prefix."""

    def __init__(self, managed=False, dpi=96):
        self.folder = BUILD / os.environ.get("QUILLA_DESK", "endtoend")
        self.dpi = dpi
        self.prefix = self.folder / "prefix"
        self.work = self.folder / "work"
        self.managed = managed
        self.processes, self.instances = [], []

    # The run's surroundings

    def __enter__(self):
        if not PROGRAM.exists():
            raise Failure(f"{PROGRAM} is not built")
        self.prefix.mkdir(parents=True, exist_ok=True)
        with contextlib.ExitStack() as cleanup:
            fcntl.flock(cleanup.enter_context(open(self.folder / "lock", "w")), fcntl.LOCK_EX)
            shutil.rmtree(self.work, ignore_errors=True)
            self.work.mkdir()
            cleanup.callback(shutil.rmtree, self.work, ignore_errors=True)
            self.errors = cleanup.enter_context(tempfile.TemporaryFile("a+", errors="replace"))
            self.start_screen(cleanup)
            cleanup.callback(self.end_wine)
            cleanup.callback(self.end_processes)
            self.prepare_prefix()
            self.desk = Desk(self)
            self.cleanup = cleanup.pop_all()
        return self

    def __exit__(self, *error):
        self.cleanup.close()

    def start_screen(self, cleanup):
        read, write = os.pipe()
        # Without -noreset a screen starts afresh when its last client leaves, and cuts off who comes at that moment.
        server = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", "1280x1024x24", "-nolisten", "tcp",
                                   "-noreset"],
                                  pass_fds=[write], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  stdin=subprocess.DEVNULL)
        cleanup.callback(server.wait)
        cleanup.callback(server.terminate)
        os.close(write)
        with os.fdopen(read) as answer:
            number = answer.readline().strip()
        if not number:
            raise Failure("no virtual screen: does Xvfb start here?")
        self.environment = dict(os.environ, DISPLAY=f":{number}", WINEPREFIX=str(self.prefix), WINEARCH="win64",
                                WINEDEBUG=os.environ.get("WINEDEBUG", "-all"), WINEDLLOVERRIDES="mscoree,mshtml=")

    def prepare_prefix(self):
        ready = self.prefix / "ready"
        if not ready.exists():
            self.tool("wineboot", "-i", limit=300)
            ready.touch()
        # Without a window manager Wine would wait two seconds for its answer at each closing window.
        self.tool("wine", "reg", "add", r"HKCU\Software\Wine\X11 Driver", "/v", "Managed", "/d",
                  "Y" if self.managed else "N", "/f")
        self.tool("wine", "reg", "add", r"HKCU\Control Panel\Desktop", "/v", "LogPixels", "/t", "REG_DWORD", "/d",
                  str(self.dpi), "/f")
        self.tool("wine", "reg", "delete", r"HKCU\Software\Orvane", "/f", check=False)
        # The first process sees the pixels and the window manager, and nothing is left of an interrupted run.
        self.end_wine()
        if self.managed:
            self.spawn("openbox", "--sm-disable")
            wait_until(lambda: "_NET_SUPPORTING_WM_CHECK(WINDOW)" in
                       self.tool("xprop", "-root", "_NET_SUPPORTING_WM_CHECK"), "the window manager")
        shutil.rmtree(self.local_data(), ignore_errors=True)

    def end_wine(self):
        """Ends what is left in this prefix and waits until it is gone."""
        self.tool("wineserver", "-k", check=False)
        self.tool("wineserver", "-w")

    def end_processes(self):
        for process in self.processes:
            with process:
                process.kill()

    def tool(self, *command, limit=120, check=True):
        """Runs a program of the Unix side in the run's surroundings."""
        # A pipe would stay open for as long as Wine's services live if this happens to be what starts them.
        with tempfile.TemporaryFile("w+", errors="replace") as output:
            code = subprocess.run(command, env=self.environment, stdin=subprocess.DEVNULL, stdout=output,
                                  stderr=subprocess.STDOUT, timeout=limit, check=False).returncode
            output.seek(0)
            told = output.read()
        if check and code:
            raise Failure(f"{' '.join(command[:3])} ... ended with {code}:\n{told.strip()}")
        return told

    # The program

    def spawn(self, *command, **options):
        options.setdefault("stdin", subprocess.DEVNULL)
        options.setdefault("stdout", subprocess.DEVNULL)
        process = subprocess.Popen(command, env=self.environment, stderr=self.errors, **options)
        self.processes.append(process)
        return process

    def complaints(self):
        """The last of what the programs and Wine itself have written to the standard error."""
        self.errors.seek(0)
        return self.errors.read()[-4000:]

    def start(self, *words, **options):
        """Starts an instance and lets it run: one that serves, or one whose message box is to be answered."""
        self.instances.append(self.spawn("wine", str(PROGRAM), *words, **options))
        return self.instances[-1]

    def start_serving(self, *words):
        """Starts the serving instance and waits for its window."""
        process = self.start(*words)
        wait_until(lambda: self.window() or process.poll() is not None, "the main window")
        if process.poll() is not None:
            raise Failure(f"the serving instance has ended with {process.returncode}")
        return process

    def run(self, *words, limit=LIMIT, **options):
        """Runs a second instance to its end and returns its exit code (0 to 255)."""
        process = self.start(*words, **options)
        try:
            return process.wait(limit)
        except subprocess.TimeoutExpired:
            raise Failure(f"'{' '.join(words[:2])}' has not ended after {limit} s; box: {self.box(0)}") from None

    def window(self):
        """[process, state] of the serving window, or nothing."""
        return self.desk.ask("window")

    def is_visible(self):
        return self.window()[1:] == ["visible"]

    def send(self, message, wide=0, child=""):
        """Sends a message to the serving window, or to its child of a class; returns the answer."""
        answer = self.desk.ask("send", message, wide, child)
        if not answer:
            raise Failure("there is no window to send to")
        return int(answer[0])

    def close(self, process):
        """Closes the serving window, which has nothing mounted, and returns the instance's exit code."""
        self.send(WM_CLOSE)
        return process.wait(LIMIT)

    def end_instances(self):
        """Ends every instance that a failed test has left behind, and the traces of what it had mounted."""
        for process in self.instances:
            process.kill()
            process.wait(LIMIT)
        self.instances.clear()
        wait_until(lambda: not self.window(), "the last window to go")
        shutil.rmtree(self.local_data(), ignore_errors=True)

    def box(self, limit=LIMIT):
        """Waits for a message box and presses its first button; returns (caption, text), or () without one."""
        return tuple(self.desk.ask("box", int(limit * 1000)))

    @staticmethod
    def memory(process):
        """How many KiB a running instance holds; process is what start returned."""
        lines = pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines()
        return next(int(line.split()[1]) for line in lines if line.startswith("RssAnon:"))

    # Requests over the channel

    def request(self, name, record=None, digest=bytes(20)):
        """One exchange; returns the record that came back and the server's result."""
        block = struct.pack("<II", REQUESTS[name], 0) + (record or Record()).pack() + digest + bytes(4)
        answer = self.desk.ask("exchange", block.hex())
        if not answer:
            raise Failure("nobody serves requests")
        return Record.unpack(bytes.fromhex(answer[0])[8:8 + Record.LAYOUT.size]), int(answer[1])

    def create(self, volume):
        """Has the serving instance create a volume's files."""
        self.request("create", volume.record(), password_key(volume.password))
        if not volume.raw.exists() or volume.raw.stat().st_size != volume.size:
            raise Failure(f"{volume.raw.name} was not created with {volume.size} bytes")
        if (volume.cipher != CIPHER_NONE) != volume.key.exists():
            raise Failure(f"{volume.key.name}: there or missing against the cipher")

    def query(self, volume):
        return self.request("query", Record(path=volume.path, key_path=volume.key_path))[0]

    def mount(self, volume, device="SEC0"):
        """Mounts from the command line by a second instance (or the first, which then serves)."""
        command = "mount", volume.path, "/password", volume.password
        if not self.window():
            self.start(*command)
        elif code := self.run(*command):
            raise Failure(f"the mount ended with exit code {code}")
        return self.uri(device)

    def dismount(self, volume):
        if code := self.run("dismount", volume.path):
            raise Failure(f"the dismount ended with exit code {code}")

    # The export

    def local_data(self):
        users = self.prefix / "drive_c" / "users"
        names = [path for path in users.glob("*") if path.name != "Public"]
        return (names[0] if names else users / "none") / "AppData" / "Local" / "Quilla Tarn"

    def uri_file(self, device):
        return self.local_data() / f"{device}.uri"

    def uri(self, device="SEC0", limit=LIMIT):
        """The address of a mounted device's export, as soon as it is there."""
        path = self.uri_file(device)
        return wait_until(lambda: path.exists() and path.read_text().strip(), f"{path.name}", limit)

    def target(self, device="SEC0", limit=LIMIT):
        """What an initiator needs to know of a mounted device's target, as soon as it is there."""
        path = self.uri_file(device).with_suffix(".iscsi")
        return wait_until(lambda: path.exists() and path.read_text(), f"{path.name}", limit)

    def wait_gone(self, device="SEC0", limit=LIMIT):
        wait_until(lambda: not self.uri_file(device).exists(), f"{device}.uri to go", limit)


def password_key(password):
    """SHA-1 of the UTF-16 text, each word of the digest little-endian."""
    digest = hashlib.sha1(password.encode("utf-16-le")).digest()
    return struct.pack("<5I", *struct.unpack(">5I", digest))


class DesktopTest(unittest.TestCase):
    """Test cases that share a desktop. Each has a folder of its own, and leaves no instance behind."""

    @classmethod
    def setUpClass(cls):
        cls.desktop = cls.enterClassContext(Desktop())

    def setUp(self):
        self.folder = self.desktop.work / self.id().split(".")[-1]
        self.folder.mkdir()

    def tearDown(self):
        self.desktop.end_instances()

    def volume(self, name="Data", size=1 << 20, cipher=CIPHER_TWOFISH, **settings):
        return Volume(self.folder, name, size, cipher, **settings)
