#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""A main application in small: records what is copied, in memory, and prints it. See ../link-protocol.md."""
import json
import socket
import struct
import time
import uuid

from gi.repository import Gio, GLib

PATH, INTERFACE = "/com/orvane/vexil/shortcut", "com.orvane.vexil.shortcut"
history = []  # newest first: (row of the snapshot, text, image)


def wait_for_heartbeat(bus):
    loop, found = GLib.MainLoop(), {}

    def on_heartbeat(_bus, _sender, _path, _interface, _member, arguments):
        found.update(arguments.unpack()[0])
        if "port" in found:
            loop.quit()

    subscription = bus.signal_subscribe(None, INTERFACE, "heartbeat", PATH, None, 0, on_heartbeat)
    loop.run()
    bus.signal_unsubscribe(subscription)
    return int(found["port"]), found["nonce"]


def send(link, kind, method, id=None, attachment=None, **rest):
    id = id or str(uuid.uuid4()).upper()
    frames = b"" if attachment is None else struct.pack(">IB", 37 + len(attachment), 2) + id.encode() + attachment
    body = json.dumps({"v": 1, "id": id, "t": kind, "m": method, **rest}).encode()
    link.sendall(frames + struct.pack(">IB", 1 + len(body), 1) + body)


def envelopes(link):
    stream, staged = link.makefile("rb"), {}
    while len(head := stream.read(5)) == 5:
        length, kind = struct.unpack(">IB", head)
        body = stream.read(length - 1)
        if kind == 2:
            staged[body[:36].decode()] = body[36:]
        elif kind == 1:
            envelope = json.loads(body)
            yield envelope, staged.pop(envelope["id"], None)


def answer(link, request):
    method, id, p = request["m"], request["id"], request.get("p", {})
    if method == "store.snapshot":
        view = {"revision": len(history), "history": [row for row, _, _ in history], "favorites": [], "categories": []}
        return send(link, "response", method, id, p=view)
    for row, text, image in history if method == "entry.payload" else []:
        if row["id"] == p["id"].upper():
            content = {"kind": row["kind"], "hasAttachment": image is not None}
            return send(link, "response", method, id, image, p=content | ({} if text is None else {"text": text}))
    error = ("not_found", "No such entry") if method == "entry.payload" else ("unknown_message", "Unknown message")
    send(link, "response", method, id, e=dict(zip(("code", "message"), error)))


def run(link, nonce):
    send(link, "request", "hello", p={"nonce": nonce, "app": "Minimal", "build": "1"})
    for envelope, attachment in envelopes(link):
        p = envelope.get("p", {})
        if envelope["t"] == "request":
            answer(link, envelope)
        elif envelope["m"] == "hello":
            print("refused: " + envelope["e"]["code"] if "e" in envelope else "linked with " + p["app"], flush=True)
        elif envelope["m"] == "pasteboard.changed":
            row = {"id": str(uuid.uuid4()).upper(), "scope": "history", "kind": p["kind"],
                   "preview": p.get("text", "Image")[:80], "lastCopiedAt": time.time() - 978307200,
                   "isPinned": False, "isFavorite": False}
            history.insert(0, (row, p.get("text"), attachment))
            print(p["kind"], repr(p["text"]) if "text" in p else len(attachment or b""), flush=True)
            send(link, "event", "store.changed")


if __name__ == "__main__":
    session_bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    while True:
        port, nonce = wait_for_heartbeat(session_bus)
        try:
            with socket.create_connection(("127.0.0.1", port)) as link:
                run(link, nonce)
        except OSError as failure:
            print("no link:", failure, flush=True)
