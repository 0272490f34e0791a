# SPDX-License-Identifier: Apache-2.0
"""A command on a pseudo-terminal, as a person would run it."""
import fcntl
import os
import pty
import select
import struct
import subprocess
import termios
import time


class Ended:
    def __init__(self, status, output):
        self.status = status
        self.output = output  # what the terminal was sent, standard error included

    @property
    def lines(self):
        return self.output.replace("\r\n", "\n").splitlines()


def run_on_terminal(command, environment, columns=80, typed=(), timeout=30):
    """`typed` are pairs: what to wait for, and what to type then."""
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    child = subprocess.Popen([str(word) for word in command], env=environment, stdin=theirs, stdout=theirs,
                             stderr=theirs, start_new_session=True)
    os.close(theirs)
    pending, output, deadline = list(typed), b"", time.monotonic() + timeout
    try:
        while True:
            assert time.monotonic() < deadline, f"{command} does not end; it wrote {output!r}"
            if not select.select([ours], [], [], 1)[0]:
                continue
            try:
                piece = os.read(ours, 65536)
            except OSError:  # the other end is closed
                piece = b""
            if not piece:
                break
            output += piece
            if pending and pending[0][0].encode() in output:
                os.write(ours, pending.pop(0)[1].encode())
        return Ended(child.wait(timeout), output.decode())
    finally:
        os.close(ours)
        if child.poll() is None:
            child.kill()
            child.wait()
