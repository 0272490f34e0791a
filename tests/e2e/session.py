# SPDX-License-Identifier: Apache-2.0
"""A private desktop for one test: its own X server, window manager, session bus and home, and the processes in it.

Nothing of the person's own session is read or written, and nothing is left behind: close() ends every process by its
own pid and removes the folder; should this process die first, the kernel kills what it started.
"""
import contextlib
import ctypes
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time

BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>{address}</listen>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""

# Memory that was freed has to go back at once, or the figures of a test would be those of the sanitizer.
SANITIZER_OPTIONS = {
    "ASAN_OPTIONS": "detect_leaks=1:quarantine_size_mb=1:thread_local_quarantine_size_kb=64:"
                    "allocator_release_to_os_interval_ms=0:handle_abort=1",
    "UBSAN_OPTIONS": "print_stacktrace=1",
    "TSAN_OPTIONS": "halt_on_error=0:second_deadlock_stack=1",
}

_libc = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1


class Missing(Exception):
    """A tool or a program that is needed is not there."""


class TimedOut(AssertionError):
    pass


def wait_until(predicate, timeout, what="the condition", interval=0.02):
    """The first true value of predicate(); fails after `timeout` seconds, naming `what`."""
    deadline = time.monotonic() + timeout
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise TimedOut(f"{what} did not come within {timeout} s")
        time.sleep(interval)


def tool(name):
    path = shutil.which(name)
    if path is None:
        raise Missing(f"{name} is not installed; packaging/debian-packages.txt lists what is needed")
    return path


class Process:
    """A child process with its output in files, so that a pipe that nobody reads never blocks it."""

    def __init__(self, name, command, environment, folder, pass_fds=(), stdin=subprocess.DEVNULL):
        self.name = name
        self.command = [str(word) for word in command]
        self.is_ours = False  # ours are held to a silent standard error
        self.expected_stderr = []  # patterns of lines that may appear there
        self._was_killed = False
        self._stdout, self._stderr = folder / f"{name}.out", folder / f"{name}.err"
        with open(self._stdout, "wb") as out, open(self._stderr, "wb") as err:
            self._child = subprocess.Popen(
                self.command, env=environment, stdin=stdin, stdout=out, stderr=err, cwd=folder, pass_fds=pass_fds,
                preexec_fn=lambda: _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL))
        self.pid = self._child.pid

    @property
    def is_running(self):
        return self._child.poll() is None

    @property
    def exit_status(self):
        return self._child.poll()

    def write(self, data):
        """To its standard input, where that is a pipe."""
        self._child.stdin.write(data)
        self._child.stdin.flush()

    def stdout(self):
        return self._stdout.read_text(errors="replace")

    def stderr(self):
        return self._stderr.read_text(errors="replace")

    def signal(self, number):
        self._child.send_signal(number)

    def wait(self, timeout):
        return self._child.wait(timeout)

    def kill(self):
        """Ends it as a crash or an impatient person would."""
        self._was_killed = True
        self._child.kill()
        self._child.wait(10)

    def stop(self):
        if self.is_running:
            # Only to one that is stopped: elsewhere it can undo the SIGSTOP with which LeakSanitizer holds threads.
            was_stopped = "T" in self._status_text("State").split()
            self._child.terminate()
            if was_stopped:
                self._child.send_signal(signal.SIGCONT)
            try:
                self._child.wait(20)
            except subprocess.TimeoutExpired:
                self._child.kill()
                self._child.wait(10)

    def resident_kb(self):
        return self._status("VmRSS")

    def peak_resident_kb(self):
        return self._status("VmHWM")

    def forget_peak(self):
        pathlib.Path(f"/proc/{self.pid}/clear_refs").write_text("5")

    def cpu_seconds(self):
        fields = pathlib.Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def target_of_descriptor(self, number):
        return os.readlink(f"/proc/{self.pid}/fd/{number}")

    def open_files(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def _status(self, key):
        return int(self._status_text(key).split()[0])

    def _status_text(self, key):
        text = pathlib.Path(f"/proc/{self.pid}/status").read_text()
        return re.search(rf"^{key}:\s+(.*)$", text, re.MULTILINE)[1]

    def complaints(self):
        """What a program of ours must not have done by now: written to standard error, or ended of its own."""
        found = []
        lines = [line for line in self.stderr().splitlines()
                 if not any(re.search(pattern, line) for pattern in self.expected_stderr)]
        if lines:
            found.append(f"{self.name} wrote on standard error:\n  " + "\n  ".join(lines))
        # Asked to end, a program ends of its own: else its destructors and the leak check at exit would not have run.
        accepted = {None, 0} | ({-signal.SIGKILL} if self._was_killed else set())
        if self.exit_status not in accepted:
            found.append(f"{self.name} ended with status {self.exit_status}")
        return found


class Session:
    """Start what the test needs; the programs under test come from build/PRESET/bin."""

    def __init__(self, build):
        self.build = pathlib.Path(build).resolve()
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="vexil-e2e-"))
        self.processes = []
        self._stack = contextlib.ExitStack()
        self.environment = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LANG": "C.UTF-8", "HOME": str(self._folder("home")),
            "XDG_CONFIG_HOME": str(self._folder("config")), "XDG_DATA_HOME": str(self._folder("data")),
            "XDG_CACHE_HOME": str(self._folder("cache")), "XDG_STATE_HOME": str(self._folder("state")),
            "XDG_RUNTIME_DIR": str(self._folder("runtime")),
            # Where nobody listens: the machine's own system bus is none of a test's business.
            "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={self.root}/no-system-bus",
            "DBUS_SESSION_BUS_ADDRESS": f"unix:path={self.root}/bus", **SANITIZER_OPTIONS}
        self.bus_address = self.environment["DBUS_SESSION_BUS_ADDRESS"]
        self._bus = None
        self._last_transcript = None

    def _folder(self, name):
        folder = self.root / name
        folder.mkdir(mode=0o700)
        return folder

    def start(self, name, *command, environment=None, **options):
        number = sum(process.name.partition("#")[0] == name for process in self.processes)
        process = Process(f"{name}#{number + 1}" if number else name, command,
                          self.environment if environment is None else environment, self.root, **options)
        self.processes.append(process)
        return process

    def run(self, *command, timeout=20, **options):
        """Runs to its end a command whose output is wanted; bytes. Fails where the command fails."""
        done = subprocess.run([str(word) for word in command], env=self.environment, timeout=timeout,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
        assert done.returncode == 0, f"{command} ended with {done.returncode}: {done.stderr.decode(errors='replace')}"
        return done.stdout

    # The desktop.

    def start_display(self, window_manager=False):
        reader, writer = os.pipe()
        try:
            server = self.start("Xvfb", tool("Xvfb"), "-displayfd", writer, "-screen", "0", "1280x800x24", "-nolisten",
                                "tcp", "-noreset", pass_fds=(writer,))
            os.close(writer)
            writer = None
            os.set_blocking(reader, False)
            said = b""

            def number():
                nonlocal said
                with contextlib.suppress(BlockingIOError):
                    said += os.read(reader, 32)
                return said.endswith(b"\n") or not server.is_running

            wait_until(number, 20, "the number of the X display")
            assert server.is_running, "Xvfb ended: " + server.stderr()
        finally:
            os.close(reader)
            if writer is not None:
                os.close(writer)
        self.environment["DISPLAY"] = ":" + said.decode().strip()
        if window_manager:
            self.start("openbox", tool("openbox"), "--sm-disable")
            wait_until(lambda: b"window id" in self.run(tool("xprop"), "-root", "_NET_SUPPORTING_WM_CHECK"), 10,
                       "the window manager")
        return server

    def use_display_of(self, other):
        self.environment["DISPLAY"] = other.environment["DISPLAY"]

    def start_bus(self):
        """Always at the same address, as after a restart of the session's bus."""
        configuration = self.root / "bus.conf"
        configuration.write_text(BUS_CONFIGURATION.format(address=self.bus_address))
        # A socket left by a bus that was killed would look like one that answers.
        (self.root / "bus").unlink(missing_ok=True)
        self._bus = self.start("dbus-daemon", tool("dbus-daemon"), "--nofork", "--nopidfile",
                               f"--config-file={configuration}")
        wait_until(self._bus_answers, 10, "the session bus")
        return self._bus

    def _bus_answers(self):
        with socket.socket(socket.AF_UNIX) as probe:
            return probe.connect_ex(str(self.root / "bus")) == 0

    def kill_bus(self):
        self._bus.kill()

    # The programs under test.

    def program(self, name):
        path = self.build / "bin" / name
        if not path.exists():
            raise Missing(f"{path} is not there; build it first")
        return path

    def start_companion(self, environment=None, redirections=""):
        return self._start_ours("vexil-shortcut", environment=environment, redirections=redirections)

    def start_store(self, *options, redirections=""):
        return self._start_ours("vexil-store", "serve", *options, redirections=redirections)

    def _start_ours(self, name, *arguments, environment=None, redirections=""):
        """`redirections` are a shell's, as in "2>&-"."""
        shell = ["/bin/sh", "-c", f'exec "$@" {redirections}', "sh"] if redirections else []
        process = self.start(name, *shell, self.program(name), *arguments, environment=environment)
        process.is_ours = True
        return process

    def store_command(self, *arguments):
        return self.run(self.program("vexil-store"), *arguments)

    # The person at the clipboard.

    def copy(self, content, target=None):
        """Copies with xclip, which then owns the clipboard for as long as it runs."""
        source = self.root / f"copied-{len(self.processes)}"
        source.write_bytes(content.encode() if isinstance(content, str) else content)
        command = [tool("xclip"), "-selection", "clipboard", "-quiet", "-in"]
        owner = self.start("xclip", *command, *(["-target", target] if target else []), source)
        wait_until(lambda: "Waiting for selection request" in owner.stderr(), 10, "xclip")
        return owner

    # The end.

    def complaints(self):
        return [line for process in self.processes if process.is_ours for line in process.complaints()]

    def transcript(self):
        """All output of all processes, for the report of a failed test; as it was in the end, once they are gone."""
        if self._last_transcript is not None:
            return self._last_transcript
        parts = []
        for process in self.processes:
            status = "running" if process.is_running else f"ended with {process.exit_status}"
            outputs = (("out", process.stdout()), ("err", process.stderr()))
            text = "".join(f"  {mark}| {line}\n" for mark, output in outputs for line in output.splitlines()[-200:])
            parts.append(f"{process.name} ({status}): {' '.join(process.command)}\n{text}")
        return "\n".join(parts)

    def end_processes(self):
        for process in reversed(self.processes):
            process.stop()

    def remove(self):
        self._last_transcript = self.transcript()
        shutil.rmtree(self.root, ignore_errors=True)

    def close(self):
        self.end_processes()
        found = self.complaints()
        self.remove()
        assert not found, "\n".join(found)
