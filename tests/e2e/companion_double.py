# SPDX-License-Identifier: Apache-2.0
"""Stands in for the companion before a main application, and can be as bad a one as a test wants."""
import base64
import os
import socket
import time

from link_client import FEATURES, Link, new_id


class CompanionDouble:
    def __init__(self, heartbeats):
        self._heartbeats = heartbeats
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self.nonce = None
        self.renew_nonce()

    def close(self):
        self._listener.close()

    def renew_nonce(self):
        self.nonce = base64.b64encode(os.urandom(32)).decode()

    def announce(self, **changed):
        heartbeat = {"hotkeyActive": "0", "port": str(self.port), "nonce": self.nonce} | changed
        self._heartbeats.post({key: value for key, value in heartbeat.items() if value is not None})

    def accept(self, timeout=15):
        self._listener.settimeout(timeout)
        return Link(self._listener.accept()[0])

    def welcome(self, link):
        """Takes the hello of a new link, which must carry the nonce that was announced."""
        request, _ = link.next("hello")
        assert request["t"] == "request" and request["p"].keys() == {"nonce", "app", "build"}
        assert request["p"]["nonce"] == self.nonce
        link.respond(request, {"app": "Vexil Shortcut", "features": FEATURES})
        self.renew_nonce()


def snapshot(link, timeout=15):
    return link.response(link.request("store.snapshot", {}), timeout)[0]["p"]


def report_text(link, text):
    link.event("pasteboard.changed", {"kind": "text", "text": text, "hasAttachment": False})


def report_image(link, image):
    id = new_id()
    link.event("pasteboard.changed", {"kind": "image", "hasAttachment": True}, id=id, attachment=image)


def called(double, program):
    """A link that the program has just made. It may still be on its way to the bus when the first heartbeat goes out,
    or not have noticed yet that its former link has ended: so the heartbeat is repeated, as the companion does."""
    deadline = time.monotonic() + 30
    while True:
        double.announce()
        try:
            return double.accept(timeout=1)
        except TimeoutError:
            assert program.is_running and time.monotonic() < deadline, "the program does not come"


def welcomed(double, program):
    link = called(double, program)
    double.welcome(link)
    return link
