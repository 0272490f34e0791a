# SPDX-License-Identifier: Apache-2.0
"""Hears, and for a stand-in companion posts, the heartbeat on a session bus."""
import collections
import time

from gi.repository import Gio, GLib

PATH, INTERFACE, MEMBER = "/com/orvane/vexil/shortcut", "com.orvane.vexil.shortcut", "heartbeat"


class Heartbeats:
    """Runs its own main context, and only while somebody waits; what comes in between is kept."""

    def __init__(self, bus_address):
        self._context = GLib.MainContext.new()
        self._received = collections.deque()
        self._spent = set()
        self._latest = None
        self.types = set()
        self._context.push_thread_default()
        try:
            flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
                     | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
            self._bus = Gio.DBusConnection.new_for_address_sync(bus_address, flags, None, None)
            self._bus.signal_subscribe(None, INTERFACE, MEMBER, PATH, None, Gio.DBusSignalFlags.NONE, self._on_signal)
        finally:
            self._context.pop_thread_default()
        # The bus handles messages in order: with this answer the subscription is in force.
        self._bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId", None,
                            None, Gio.DBusCallFlags.NONE, 5000, None)

    def close(self):
        if not self._bus.is_closed():
            self._bus.close_sync(None)

    def _on_signal(self, _bus, _sender, _path, _interface, _member, arguments):
        self.types.add(arguments.get_type_string())
        self._received.append((time.monotonic(), arguments.unpack()[0]))

    def wait_for(self, predicate=lambda heartbeat: True, timeout=20):
        """The next heartbeat, not yet looked at, that fulfils the predicate."""
        return self.timed(predicate, timeout)[1]

    def timed(self, predicate=lambda heartbeat: True, timeout=20):
        deadline = time.monotonic() + timeout
        while True:
            self._dispatch()
            while self._received:
                when, heartbeat = self._received.popleft()
                self._latest = heartbeat
                if predicate(heartbeat):
                    return when, heartbeat
            remaining = deadline - time.monotonic()
            assert remaining > 0, f"no such heartbeat within {timeout} s; the last was {self._latest}"
            self._sleep(remaining)

    def all_received(self):
        """What has come and was not looked at."""
        self._dispatch()
        taken = [heartbeat for _, heartbeat in self._received]
        self._received.clear()
        self._latest = taken[-1] if taken else self._latest
        return taken

    def usable(self, timeout=20):
        """A heartbeat with a port and a nonce that no accepted hello has used up."""
        self.all_received()

        def is_usable(heartbeat):
            return heartbeat is not None and "port" in heartbeat and heartbeat["nonce"] not in self._spent

        return self._latest if is_usable(self._latest) else self.wait_for(is_usable, timeout)

    def spend(self, nonce):
        self._spent.add(nonce)

    def forget(self):
        """After the companion's end: what it said holds no more."""
        self.all_received()
        self._latest = None

    def _dispatch(self):
        while self._context.iteration(False):
            pass

    def _sleep(self, seconds):
        source = GLib.timeout_source_new(int(seconds * 1000) + 1)
        source.set_callback(lambda *_: False)
        source.attach(self._context)
        self._context.iteration(True)
        source.destroy()

    def post(self, heartbeat):
        self._bus.emit_signal(None, PATH, INTERFACE, MEMBER, GLib.Variant("(a{ss})", (heartbeat,)))
        self._bus.flush_sync(None)
