# SPDX-License-Identifier: Apache-2.0
"""Either side of the link on a plain socket, written from docs/link-protocol.md alone.

Strict in what it reads: anything that the page does not allow is a ProtocolError. In what it sends it can be made to
do wrong on purpose.
"""
import json
import re
import socket
import struct
import time
import uuid

ENVELOPE, ATTACHMENT = 1, 2
MAX_LENGTH = 0x1000000
FEATURES = ["store.snapshot", "entry.payload", "entry.use", "entry.pin", "entry.favorite", "entry.edit",
            "entry.editText", "entry.delete", "pasteboard.changed", "hosts.snapshot", "hosts.apply"]
UUID_TEXT = re.compile(r"[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}")


# What is refused is closed at once: well before the three seconds after which a silent peer is sent away anyway, and
# yet late enough for a busy machine and a sanitizer.
AT_ONCE = 2.5


class ProtocolError(AssertionError):
    pass


class LinkClosed(Exception):
    pass


def new_id():
    return str(uuid.uuid4()).upper()


def frame(kind, body):
    return struct.pack(">IB", len(body) + 1, kind) + body


def envelope_bytes(kind, method, id, payload=None, error=None, v=1):
    envelope = {"v": v, "id": id, "t": kind, "m": method}
    if payload is not None:
        envelope["p"] = payload
    if error is not None:
        envelope["e"] = {"code": error[0], "message": error[1]}
    return json.dumps(envelope, ensure_ascii=False, separators=(",", ":")).encode()


def attachment_frame(id, data):
    return frame(ATTACHMENT, id.encode() + data)


def no_repeated_keys(pairs):
    if len({key for key, _ in pairs}) != len(pairs):
        raise ProtocolError(f"an object repeats a key: {pairs}")
    if any(value is None for _, value in pairs):
        raise ProtocolError(f"an absent field was written as null: {pairs}")
    return dict(pairs)


def checked_envelope(body):
    try:
        envelope = json.loads(body.decode("utf-8"), object_pairs_hook=no_repeated_keys)
    except ValueError as error:
        raise ProtocolError(f"not an envelope: {body[:200]!r}") from error
    if not isinstance(envelope, dict) or not envelope.keys() <= {"v", "id", "t", "m", "p", "e"}:
        raise ProtocolError(f"not an envelope: {body[:200]!r}")
    if envelope.get("v") != 1 or envelope.get("t") not in ("request", "response", "event"):
        raise ProtocolError(f"bad header: {envelope}")
    if not isinstance(envelope.get("m"), str) or not isinstance(envelope.get("id"), str):
        raise ProtocolError(f"bad header: {envelope}")
    if envelope["t"] != "response" and not UUID_TEXT.fullmatch(envelope["id"]):
        raise ProtocolError(f"not an upper-case UUID: {envelope['id']}")
    if "e" in envelope and (envelope["t"] != "response" or "p" in envelope):
        raise ProtocolError(f"an error out of place: {envelope}")
    return envelope


class Link:
    """One end of a link. Reads raise LinkClosed at the end of the stream and TimeoutError past the time given."""

    def __init__(self, stream, began=None):
        self.began = time.monotonic() if began is None else began
        self.socket = stream
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1) if stream.family == socket.AF_INET else None
        self._buffer = bytearray()
        self._staged = {}
        self.requests = []  # those that came and that answer_requests answered

    @classmethod
    def connect(cls, port, receive_buffer=None):
        began = time.monotonic()
        stream = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        if receive_buffer:
            stream.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        stream.settimeout(15)
        stream.connect(("127.0.0.1", int(port)))
        return cls(stream, began)

    def close(self):
        self.socket.close()

    def reset(self):
        """Ends the stream as the death of a process with unread data does."""
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.socket.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    # Sending.

    def send_raw(self, data, timeout=20):
        self.socket.settimeout(timeout)
        try:
            self.socket.sendall(data)
        except (ConnectionError, BrokenPipeError) as error:
            raise LinkClosed from error

    def send(self, kind, method, payload=None, id=None, attachment=None, error=None, v=1):
        id = id or new_id()
        staged = attachment_frame(id, attachment) if attachment is not None else b""
        self.send_raw(staged + frame(ENVELOPE, envelope_bytes(kind, method, id, payload, error, v)))
        return id

    def request(self, method, payload=None, **rest):
        return self.send("request", method, payload, **rest)

    def event(self, method, payload=None, **rest):
        return self.send("event", method, payload, **rest)

    def respond(self, request, payload=None, **rest):
        return self.send("response", request["m"], payload, id=request["id"], **rest)

    # Reading.

    def _fill(self, count, deadline):
        while len(self._buffer) < count:
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                raise TimeoutError("nothing came")
            self.socket.settimeout(remaining)
            try:
                received = self.socket.recv(1 << 20)
            except ConnectionError as error:
                raise LinkClosed from error
            if not received:
                if self._buffer:
                    raise ProtocolError(f"the stream ended within a frame: {bytes(self._buffer[:64])!r}")
                raise LinkClosed
            self._buffer += received

    def read_frame(self, timeout=15):
        deadline = time.monotonic() + timeout
        self._fill(5, deadline)
        length, kind = struct.unpack(">IB", self._buffer[:5])
        if not 1 <= length <= MAX_LENGTH or kind not in (ENVELOPE, ATTACHMENT):
            raise ProtocolError(f"bad frame: length {length}, type {kind}")
        self._fill(4 + length, deadline)
        body = bytes(self._buffer[5:4 + length])
        del self._buffer[:4 + length]
        return kind, body

    def read(self, timeout=15):
        """The next envelope with its attachment or None."""
        deadline = time.monotonic() + timeout
        while True:
            kind, body = self.read_frame(deadline - time.monotonic())
            if kind == ATTACHMENT:
                if len(body) < 36:
                    raise ProtocolError("an attachment without an id")
                self._staged[body[:36].decode("ascii")] = body[36:]
                continue
            envelope = checked_envelope(body)
            attachment = self._staged.pop(envelope["id"], None)
            if self._staged and envelope["t"] != "response":
                raise ProtocolError(f"attachments of no envelope: {list(self._staged)}")
            return envelope, attachment

    def response(self, id, timeout=15):
        """The response to our request `id`; what else comes first is passed over."""
        return self._until(lambda envelope: envelope["t"] == "response" and envelope["id"] == id, timeout)

    def next(self, method, timeout=15):
        """The next request or event of that name, with its attachment."""
        return self._until(lambda envelope: envelope["t"] != "response" and envelope["m"] == method, timeout)

    def _until(self, wanted, timeout):
        deadline = time.monotonic() + timeout
        while True:
            envelope, attachment = self.read(deadline - time.monotonic())
            if wanted(envelope):
                return envelope, attachment
            if envelope["t"] == "request":
                self.answer(envelope)

    def answer(self, request):
        """As a main application that only records."""
        self.requests.append(request)
        if request["m"] == "store.snapshot":
            self.respond(request, {"revision": 1, "history": [], "favorites": [], "categories": []})
        else:
            self.respond(request, error=("unknown_message", "Unknown message"))

    def seconds_until_closed(self, timeout):
        """Reads on, answering nothing, until the other end closes."""
        start = time.monotonic()
        while True:
            try:
                self.read_frame(timeout - (time.monotonic() - start))
            except LinkClosed:
                return time.monotonic() - start

    def age_when_closed(self, timeout):
        """Seconds from before the connection was made: never less than what the other end counts."""
        self.seconds_until_closed(timeout)
        return time.monotonic() - self.began

    # The handshake.

    def hello(self, nonce, timeout=15, **header):
        id = self.request("hello", {"nonce": nonce, "app": "e2e", "build": "1"}, **header)
        return self.response(id, timeout)[0]


def assert_answers(link, timeout=15):
    """The link stands and the other end is awake, whatever else it has sent."""
    answer, _ = link.response(link.request("unheard.of"), timeout)
    assert answer["e"] == {"code": "unknown_message", "message": "Unknown message"}


def link_up(heartbeats, timeout=30, **options):
    """An authenticated link. A companion that has not yet noticed the end of the link before refuses at first."""
    deadline = time.monotonic() + timeout
    while True:
        heartbeat = heartbeats.usable(max(0.1, deadline - time.monotonic()))
        link = Link.connect(heartbeat["port"], **options)
        try:
            answer = link.hello(heartbeat["nonce"])
        except LinkClosed:
            link.close()
            assert time.monotonic() < deadline, "the companion closes every connection"
            time.sleep(0.05)
            continue
        assert "e" not in answer, answer
        heartbeats.spend(heartbeat["nonce"])
        return link
