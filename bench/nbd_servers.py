"""Servers to be measured, each over a data file of its own in memory, and the loads that measure them."""

import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "bench"
OWN_SERVER, LOAD = BUILD / "bin" / "quilla-nbd-server", BUILD / "bin" / "quilla-nbd-load"
KEY = "".join(f"{i * 7 % 256:02x}" for i in range(32))
SECRET = "secret,id=s,data=benchmark"
MIB = 1 << 20


def build(*targets):
    """Builds the native programs and checks that the peers are there."""
    missing = [tool for tool in ("nbdcopy", "nbdkit", "qemu-nbd", "qemu-img") if shutil.which(tool) is None]
    if missing:
        sys.exit(f"not installed: {' '.join(missing)}; tools/install-packages does it")
    subprocess.run(["cmake", "--preset", "bench"], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", "--preset", "bench", "--target", *targets], cwd=ROOT, check=True,
                   stdout=subprocess.DEVNULL)


def folder_in_memory():
    return tempfile.TemporaryDirectory(dir="/dev/shm" if pathlib.Path("/dev/shm").is_dir() else None)


def write_noise(path, size):
    with open(path, "wb") as file, open("/dev/urandom", "rb") as noise:
        for _ in range(size // MIB):
            file.write(noise.read(MIB))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def await_port(port, process):
    for _ in range(200):
        if process.poll() is not None:
            return False
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                return True
        time.sleep(0.05)
    return False


class Servers:
    """Starts servers and ends what it started; `uris` has the address of each by its name, `serving` its process."""

    def __init__(self, folder, size):
        self.folder, self.size = pathlib.Path(folder), size
        self.processes, self.uris, self.serving = [], {}, {}

    def __enter__(self):
        return self

    def __exit__(self, *error):
        for process in self.processes:
            process.terminate()
        for process in self.processes:
            process.wait()

    def data_file(self):
        path = self.folder / f"data{len(self.processes)}"
        with open(path, "wb") as file:
            for _ in range(self.size // MIB):
                file.write(bytes(MIB))
        return str(path)

    def start(self, arguments, **options):
        process = subprocess.Popen(arguments, stderr=subprocess.DEVNULL, **options)
        self.processes.append(process)
        return process

    def add_telling(self, name, arguments, **options):
        """A server that prints its address."""
        self.serving[name] = self.start(arguments, stdout=subprocess.PIPE, text=True, **options)
        self.uris[name] = self.serving[name].stdout.readline().strip()
        if not self.uris[name]:
            sys.exit(f"{name} does not start")

    def add_own(self, name, cipher, *more):
        self.add_telling(name, [str(OWN_SERVER), self.data_file(), str(cipher), KEY, *more])

    def add_peer(self, name, arguments):
        port = free_port()
        process = self.start([argument.replace("PORT", str(port)) for argument in arguments],
                             stdout=subprocess.DEVNULL)
        if await_port(port, process):
            self.serving[name] = process
            self.uris[name] = f"nbd://127.0.0.1:{port}/"
        else:
            print(f"NOT MEASURED, {name} does not start", file=sys.stderr)

    def add_luks(self, name, options):
        image = str(self.folder / f"luks{len(self.processes)}")
        for _ in range(3):  # timing the key derivation can fail on a busy machine
            made = subprocess.run(["qemu-img", "create", "-q", "-f", "luks", "--object", SECRET, "-o",
                                   f"key-secret=s,iter-time=10,{options}", image, str(self.size)],
                                  capture_output=True, text=True)
            if made.returncode == 0:
                break
        else:
            print(f"NOT MEASURED, {name}: {made.stderr.strip()}", file=sys.stderr)
            return
        self.add_peer(name, ["qemu-nbd", "-t", "-e", "8", "-b", "127.0.0.1", "-p", "PORT", "--object", SECRET,
                             "--image-opts", f"driver=luks,key-secret=s,file.driver=file,file.filename={image}"])


def copy_speed(uri, direction, connections, source):
    """MB/s of nbdcopy with 64 requests of 256 KiB in flight; reads as much as the source has, or writes it."""
    ends = [uri, "null:"] if direction == "read" else [str(source), uri]
    start = time.perf_counter()
    subprocess.run(["nbdcopy", "--allocated", f"--connections={connections}", "--requests=64", *ends], check=True)
    return source.stat().st_size / 1e6 / (time.perf_counter() - start)


def load_figures(uri, direction, depth, seconds):
    """(requests per second, median latency in microseconds) of random requests of 4 KiB."""
    done = subprocess.run([str(LOAD), uri, direction, "random", "4096", str(depth), str(seconds)], capture_output=True,
                          text=True, check=True)
    words = done.stdout.split()
    return float(words[0]), float(words[3])
