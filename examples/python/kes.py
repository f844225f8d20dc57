#!/usr/bin/env python3
"""Finds access points and measures distances through kesd: a client in one file, on Python's standard library.

    kes.py [--socket PATH] scan [--json] [--timeout MS]
    kes.py [--socket PATH] range [--json] [--timeout MS] MAC...

As a module:

    with kes.Client() as client, client.scan() as request:
        for ap in request.wait().access_points:
            print(ap.bssid, kes.printable(ap.ssid or b""), ap.signal_dbm)

docs/wire-protocol.md says what travels over the socket, docs/host-platform.md what the values mean.
"""

from __future__ import annotations

import argparse
import dataclasses
import itertools
import json
import os
import re
import socket
import struct
import sys
import time
from collections.abc import Callable, Iterable, Iterator, Sequence
from typing import Generic, TypeVar

DEFAULT_SOCKET = "/run/kesd/kesd.sock"
PATIENCE_S = 5.0  # the time that either end has to answer the other


# ---- What can go wrong ----

class KesError(Exception):
    """Whatever keeps a request from its result. `exit_code` is what the command line ends with."""
    exit_code = 1


class NoDaemon(KesError):
    """Nobody serves the socket, it may not be used, or the connection ended."""
    exit_code = 3


class TimedOut(KesError):
    exit_code = 4


class ProtocolError(KesError):
    """The peer sent what no daemon sends; the connection is closed."""
    exit_code = 3


class ResultLost(KesError):
    """The daemon let go of a request without its result: that was too long, or there was no memory for it."""


class Refused(KesError):
    REASONS = {1: "it could not be sent", 2: "it is malformed or unknown", -3: "too many objects or too much memory"}

    def __init__(self, result: int) -> None:
        super().__init__(f"the request was refused: {self.REASONS.get(result, 'unknown reason')} ({result})")
        self.result = result


# ---- The stream: frames, and objects that refer to one another ----

MAGIC, VERSION, OUR_MAX_FRAME = 0x4B4E4546, 1, 64 << 20
HELLO, INVOKE, REPLY, RELEASE = 1, 2, 3, 4  # types of frames
NESTED = 1  # the one flag, of INVOKE
OK, INVALID, LIMIT = 0, 2, -3  # results
NULL, OF_SENDER, OF_RECEIVER = 0, 1, 2  # kinds of references
OP_RETAIN, OP_RELEASE = 0xFFFE, 0xFFFF

HEADER = struct.Struct("<IHHQ")  # length, type, flags, serial
HELLO_BODY = struct.Struct("<IHHII")  # magic, version, reserved, longest frame, reserved
INVOKE_BODY = struct.Struct("<QII")  # target, operation, counts
REPLY_BODY = struct.Struct("<iI")  # result, counts
REFERENCE = struct.Struct("<IIQ")  # kind, reserved, ID


def padded(data: bytes) -> bytes:
    return data + bytes(-len(data) % 8)


def frame(kind: int, body: bytes, serial: int = 0) -> bytes:
    return HEADER.pack(HEADER.size + len(body), kind, 0, serial) + body


class Reader:
    """Takes a frame apart from the front. What is not there, or is left over, breaks the protocol."""

    def __init__(self, data: bytes) -> None:
        self.rest = memoryview(data)

    def take(self, size: int) -> memoryview:
        if size > len(self.rest):
            raise ProtocolError("a frame is shorter than what it announces")
        taken, self.rest = self.rest[:size], self.rest[size:]
        return taken

    def unpack(self, layout: struct.Struct) -> tuple[int, ...]:
        return layout.unpack(self.take(layout.size))

    def numbers(self, count: int) -> tuple[int, ...]:
        return self.unpack(struct.Struct(f"<{count}Q"))

    def reference(self) -> tuple[int, int]:
        kind, reserved, identifier = self.unpack(REFERENCE)
        if reserved != 0 or kind > OF_RECEIVER or kind == (OF_SENDER if identifier == 0 else NULL):
            raise ProtocolError("a malformed object reference")
        return kind, identifier

    def buffer(self, size: int) -> bytes:
        data = bytes(self.take(size))
        self.take(-size % 8)
        return data

    def finish(self) -> None:
        if len(self.rest) != 0:
            raise ProtocolError("a frame is longer than its contents")


class Connection:
    """One connection to the daemon, for one thread: frames are read while somebody waits for something.

    Whoever has requests in flight should come back to wait for them: an invocation that is not answered within
    five seconds makes the daemon close the connection.
    """

    def __init__(self, path: str) -> None:
        self._callbacks: dict[int, Request] = {}  # by the ID under which the daemon holds them
        self._replies: dict[int, tuple[int, int] | None] = {}  # result and object, by serial; None: still expected
        self._ids = itertools.count(1)
        self._serials = itertools.count(1)
        self._received = bytearray()
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            self._socket.settimeout(PATIENCE_S)
            self._socket.connect(path)
            self._send(frame(HELLO, HELLO_BODY.pack(MAGIC, VERSION, 0, OUR_MAX_FRAME, 0)))
            self._max_frame = self._read_hello(time.monotonic() + PATIENCE_S)
        except OSError as error:  # a path that is too long has no error number
            self.close()
            raise NoDaemon(f"cannot connect to {path}: {error.strerror or error}") from error
        except BaseException:
            self.close()
            raise

    def _read_hello(self, deadline: float) -> int:
        kind, _, body = self._next_frame(deadline)
        if kind != HELLO or len(body) != HELLO_BODY.size:
            raise ProtocolError("the peer did not say hello")
        magic, version, reserved, max_frame, also_reserved = HELLO_BODY.unpack(body)
        if magic != MAGIC or version != VERSION or reserved or also_reserved or max_frame < 4096:
            raise ProtocolError(f"the peer speaks another protocol, or version {version} of this one")
        return max_frame

    def close(self) -> None:
        """Gives everything back to the daemon, which aborts what is in flight."""
        self._socket.close()

    # Half a frame would be followed by the next one: whatever interrupts it ends the connection.
    def _send(self, data: bytes) -> None:
        try:
            self._socket.settimeout(PATIENCE_S)
            self._socket.sendall(data)
        except BaseException as error:
            self.close()
            if isinstance(error, OSError):
                raise NoDaemon(f"the connection ended: {error}") from error
            raise

    def _next_frame(self, deadline: float) -> tuple[int, int, bytes]:
        while True:
            if len(self._received) >= HEADER.size:
                length, kind, flags, serial = HEADER.unpack_from(self._received)
                if (length < HEADER.size or length % 8 != 0 or length > OUR_MAX_FRAME
                        or flags & ~(NESTED if kind == INVOKE else 0)
                        or (serial != 0 and kind not in (INVOKE, REPLY))):
                    raise ProtocolError("a malformed frame header")
                if len(self._received) >= length:
                    body = bytes(self._received[HEADER.size:length])
                    del self._received[:length]
                    return kind, serial, body
            self._received += self._receive_some(deadline)

    def _receive_some(self, deadline: float) -> bytes:
        left = deadline - time.monotonic()
        if left <= 0:
            raise TimedOut("the daemon did not answer in time")
        try:
            self._socket.settimeout(left)
            data = self._socket.recv(1 << 20)
        except TimeoutError:
            raise TimedOut("the daemon did not answer in time") from None
        except OSError as error:
            raise NoDaemon(f"the connection ended: {error}") from error
        if not data:
            raise NoDaemon("the daemon closed the connection")
        return data

    def step(self, deadline: float) -> None:
        """Waits for one frame and does what it asks for."""
        try:
            kind, serial, body = self._next_frame(deadline)
            if kind == INVOKE:
                self._on_invoke(serial, Reader(body))
            elif kind == REPLY:
                self._on_reply(serial, Reader(body))
            elif kind == RELEASE and body:
                self._on_release(Reader(body))
            else:
                raise ProtocolError(f"an unexpected frame of type {kind}")
        except ProtocolError:
            self.close()
            raise

    def invoke(self, target: int, op: int, inputs: Sequence[bytes], callback: Request | None = None) -> int:
        """Invokes one of the daemon's objects, which answers with one object: its ID, which is ours to release."""
        serial = next(self._serials)
        counts = len(inputs) | (0x0100 if callback else 0) | 0x1000
        body = INVOKE_BODY.pack(target, op, counts) + struct.pack(f"<{len(inputs)}Q", *map(len, inputs))
        identifier = next(self._ids)
        if callback:
            body += REFERENCE.pack(OF_SENDER, 0, identifier)
        body += b"".join(map(padded, inputs))
        if HEADER.size + len(body) > self._max_frame:
            raise Refused(LIMIT)
        if callback:
            self._callbacks[identifier] = callback  # may be invoked before the reply comes
        self._replies[serial] = None
        self._send(frame(INVOKE, body, serial))
        deadline = time.monotonic() + PATIENCE_S
        while (reply := self._replies[serial]) is None:
            self.step(deadline)
        del self._replies[serial]
        result, answered = reply
        if result != OK:
            raise Refused(result)
        return answered

    def _on_reply(self, serial: int, reader: Reader) -> None:
        if self._replies.get(serial, OK) is not None:
            raise ProtocolError("a reply to nothing")
        result, counts = reader.unpack(REPLY_BODY)
        kind, identifier = reader.reference() if result == OK else (OF_SENDER, 0)
        reader.finish()
        if kind != OF_SENDER or counts != (0x1000 if result == OK else 0):
            raise ProtocolError("a reply of another shape than its invocation")
        self._replies[serial] = result, identifier

    def _on_invoke(self, serial: int, reader: Reader) -> None:
        target, op, counts = reader.unpack(INVOKE_BODY)
        inputs, outputs, objects = counts & 15, counts >> 4 & 15, counts >> 8 & 15
        sizes = reader.numbers(inputs)
        reader.numbers(outputs)  # the room that the daemon has: we never put anything out
        given = [reader.reference() for _ in range(objects)]
        buffers = [reader.buffer(size) for size in sizes]
        reader.finish()
        if op & 0xFFFF in (OP_RETAIN, OP_RELEASE) or (target != 0 and target not in self._callbacks):
            raise ProtocolError("an invocation of something that the daemon does not hold")
        callback = self._callbacks.get(target)
        taken = callback is not None and op & 0xFFFF == 0 and counts == callback.counts and callback.deliver(buffers)
        answer = frame(REPLY, REPLY_BODY.pack(OK if taken else INVALID, 0), serial)
        for kind, identifier in given:
            if kind == OF_SENDER:  # we keep none
                answer += frame(RELEASE, struct.pack("<Q", identifier))
        self._send(answer)

    def _on_release(self, reader: Reader) -> None:
        for identifier in reader.numbers(len(reader.rest) // 8):
            callback = self._callbacks.pop(identifier, None)
            if callback is None:
                raise ProtocolError("the daemon gave back what it did not hold")
            callback.given_back = True

    def release(self, identifier: int) -> None:
        self._send(frame(RELEASE, struct.pack("<Q", identifier)))


# ---- Requests and results ----

@dataclasses.dataclass(frozen=True)
class AccessPoint:
    """What was heard of an access point. Unknown values are None."""
    bssid: str
    ssid: bytes | None  # octets, not text; empty or only zeros: hidden
    frequency_mhz: int | None  # centre of the primary channel
    signal_dbm: float | None
    age_ms: int
    capability: int  # the beacon's Capability Information field
    elements: list[tuple[int, bytes]]  # ID and payload, as they were sent
    incomplete: bool  # the daemon had no room for all elements


@dataclasses.dataclass(frozen=True)
class ScanResult:
    status: int
    time_us: int  # of CLOCK_BOOTTIME
    access_points: list[AccessPoint]


@dataclasses.dataclass(frozen=True)
class Distance:
    """What came of measuring the distance to one peer. Without status 0 there are no distance and time."""
    address: str
    status: int | None  # None: the daemon had no room for it
    distance_mm: int | None = None
    deviation_mm: int | None = None
    round_trip_ps: int | None = None
    signal_dbm: float | None = None
    bursts: tuple[int, int] = (0, 0)  # asked, and those that gave a result


@dataclasses.dataclass(frozen=True)
class RangeResult:
    status: int
    distances: list[Distance]


Result = TypeVar("Result", ScanResult, RangeResult)

DONE, STATUS_TIMED_OUT = 0, 2
STATUSES = {1: "the source failed", 2: "timed out", 3: "the source cannot do this", 4: "the source is unavailable",
            5: "the library did not answer", 6: "unusable parameters", 7: "the interface is not there",
            8: "the interface is down", 9: "the radio is turned off", 10: "the interface cannot do this",
            11: "the daemon lacks CAP_NET_ADMIN"}
PEER_STATUSES = {0: "success", 1: "failed", 2: "no response", 3: "unknown peer", 4: "not capable", 5: "rejected",
                 6: "wrong channel", 7: "busy", 8: "invalid time stamps", 9: "changed parameters", 10: "not measured"}
MEASUREMENT_SIZE, INFO_SIZE = 160, 64
NO_SIGNAL = -1 << 31


def pack_mac(text: str) -> bytes:
    if not re.fullmatch(r"[0-9a-fA-F]{2}(:[0-9a-fA-F]{2}){5}", text):
        raise ValueError(f"{text!r} is no MAC address")
    address = int(text.replace(":", ""), 16)
    return struct.pack("<II", address & 0xFFFFFF, address >> 24)


def unpack_mac(record: bytes, offset: int = 0) -> str:
    lo24, hi24 = struct.unpack_from("<II", record, offset)
    return ((hi24 & 0xFFFFFF) << 24 | lo24 & 0xFFFFFF).to_bytes(6, "big").hex(":")


def centi_dbm(value: int) -> float | None:
    return None if value == NO_SIGNAL else value / 100


def records(buffer: bytes, size: int) -> Iterator[bytes]:
    for offset in range(0, len(buffer) - size + 1, size):
        yield buffer[offset:offset + size]


def read_elements(data: bytes) -> list[tuple[int, bytes]]:
    """The information elements up to the first one that is cut off."""
    elements = []
    while len(data) >= 2 and len(data) - 2 >= data[1]:
        elements.append((data[0], data[2:2 + data[1]]))
        data = data[2 + data[1]:]
    return elements


def read_scan(buffers: list[bytes]) -> ScanResult:
    header, measurements, _, data = buffers
    time_us, _, status = Reader(header).unpack(struct.Struct("<QII"))

    def read_access_point(record: bytes) -> AccessPoint:
        taken_ms, frequency, signal = struct.unpack_from("<IIi", record, 0x10)
        (capability,) = struct.unpack_from("<H", record, 0x3A)
        offset, length = struct.unpack_from("<II", record, 0x58)
        valid, copied, ssid_length = struct.unpack_from("<BBH", record, 0x72)
        elements = data[offset:offset + length]  # a slice ends where the buffer does
        return AccessPoint(
            bssid=unpack_mac(record), ssid=record[0x76:0x96][:ssid_length] if valid and copied else None,
            frequency_mhz=frequency or None, signal_dbm=centi_dbm(signal),
            age_ms=(time_us // 1000 - taken_ms) % 2**32, capability=capability,
            elements=read_elements(elements), incomplete=len(elements) < length)

    return ScanResult(status, time_us, [read_access_point(each) for each in records(measurements, MEASUREMENT_SIZE)])


def read_distances(buffers: list[bytes]) -> RangeResult:
    header, measurements, infos, _, _ = buffers
    (status,) = Reader(header).unpack(struct.Struct("<I"))

    def read_distance(record: bytes) -> Distance:
        address = unpack_mac(record)
        first, count = struct.unpack_from("<HH", record, 0x3C)
        info = infos[first * INFO_SIZE:(first + 1) * INFO_SIZE]
        if count == 0 or len(info) < INFO_SIZE:
            return Distance(address, None)
        peer_status, distance, deviation = struct.unpack_from("<IiI", info)
        (round_trip,) = struct.unpack_from("<q", info, 0x10)
        asked, gave, signal = struct.unpack_from("<HHi", info, 0x20)
        measured = (distance, deviation, round_trip) if peer_status == DONE else (None, None, None)
        return Distance(address, peer_status, *measured, signal_dbm=centi_dbm(signal), bursts=(asked, gave))

    return RangeResult(status, [read_distance(each) for each in records(measurements, MEASUREMENT_SIZE)])


class Request(Generic[Result]):
    """A request in flight, and the object that the daemon invokes with its result. Leaving `with` releases it."""

    def __init__(self, connection: Connection, read: Callable[[list[bytes]], Result], buffers: int) -> None:
        self.counts = buffers  # what an invocation with the result has
        self.given_back = False  # by the daemon
        self._connection = connection
        self._read = read
        self._buffers: list[bytes] | None = None
        self._handle: int | None = None

    def start(self, service: int, op: int, inputs: Sequence[bytes]) -> Request[Result]:
        self._handle = self._connection.invoke(service, op, inputs, callback=self)
        return self

    def deliver(self, buffers: list[bytes]) -> bool:
        if self._buffers is not None:
            return False
        self._buffers = buffers
        return True

    @property
    def done(self) -> bool:
        return self._buffers is not None or self.given_back

    def wait(self, timeout: float = 30) -> Result:
        """The result, which may be asked for again. The results of other requests are received on the way."""
        deadline = time.monotonic() + timeout
        while not self.done:
            self._connection.step(deadline)
        if self._buffers is None:
            raise ResultLost("the daemon gave the request up without a result")
        return self._read(self._buffers)

    def release(self) -> None:
        """Aborts the request if it has no result yet, and frees what the daemon keeps for it."""
        handle, self._handle = self._handle, None
        if handle is not None:
            self._connection.release(handle)

    def __enter__(self) -> Request[Result]:
        return self

    def __exit__(self, exception: type[BaseException] | None, *_: object) -> None:
        try:
            self.release()
        except NoDaemon:
            if exception is None:
                raise


class Client:
    """The daemon's two services. Not for several threads; any number of requests may be in flight."""
    DISCOVERY, RANGING = 1, 2

    def __init__(self, path: str = DEFAULT_SOCKET) -> None:
        self._connection = Connection(path)
        self._services: dict[int, int] = {}  # held until the connection ends

    def _service(self, service: int) -> int:
        if service not in self._services:
            self._services[service] = self._connection.invoke(0, 0, [struct.pack("<I", service)])
        return self._services[service]

    def scan(self, *, timeout_ms: int = 10_000, passive: bool = False, mode: int = 0, max_age_ms: int = 0,
             band: int = 2, channels: Iterable[int] = (), ssids: Iterable[bytes] = (),
             bssids: Iterable[str] = ()) -> Request[ScanResult]:
        params = struct.pack("<q5I2B2x", timeout_ms, passive, mode, max_age_ms, 1, band, 0, 0)
        lists = [b"".join(struct.pack("<I", each) for each in channels),
                 b"".join(struct.pack("<2xH32s", len(each), each) for each in ssids),
                 b"".join(map(pack_mac, bssids))]
        request = Request(self._connection, read_scan, buffers=4)
        return request.start(self._service(self.DISCOVERY), 0, [params, *lists])

    def range(self, peers: Iterable[str], *, timeout_ms: int = 10_000, interval_ms: int | None = None,
              rounds: int = 1) -> Request[RangeResult]:
        """With an interval the request is a periodic one, of which the first round is delivered."""
        nodes = b""
        for peer in peers:
            # Behind the address, 0 leaves the choice to the library; the number of bursts is 2 to the power of 1.
            nodes += pack_mac(peer) + struct.pack("<3iI8x3Ii2B2x", 0, 0, 0, 0, 1, 0, 0, 0, 0, 0)
            if interval_ms is not None:
                nodes += struct.pack("<iiB3x", interval_ms, rounds, 0)
        request = Request(self._connection, read_distances, buffers=5)
        service = self._service(self.RANGING)
        return request.start(service, 0 if interval_ms is None else 1, [nodes, struct.pack("<q", timeout_ms)])

    def close(self) -> None:
        self._connection.close()

    def __enter__(self) -> Client:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


# ---- The command line ----

def printable(octets: bytes) -> str:
    """An SSID for a terminal: everything that is not printable text is escaped, and so is the backslash."""
    text = octets.replace(b"\\", b"\\\\").decode("utf-8", "backslashreplace")
    return "".join(each if each.isprintable() else each.encode("unicode_escape").decode() for each in text)


def print_scan(result: ScanResult) -> None:
    print(f"{'BSSID':17}  {'MHz':>4}  {'dBm':>4}  {'AGE s':>6}  SSID")
    for ap in sorted(result.access_points, key=lambda ap: -999 if ap.signal_dbm is None else ap.signal_dbm)[::-1]:
        signal = "-" if ap.signal_dbm is None else f"{ap.signal_dbm:.0f}"
        name = printable(ap.ssid) if ap.ssid and ap.ssid.strip(b"\0") else "(hidden)"
        print(f"{ap.bssid}  {ap.frequency_mhz or '-':>4}  {signal:>4}  {ap.age_ms / 1000:6.1f}  {name}")


def print_distances(result: RangeResult) -> None:
    print(f"{'PEER':17}  {'DISTANCE m':>10}  STATUS")
    for peer in result.distances:
        metres = "-" if peer.distance_mm is None else f"{peer.distance_mm / 1000:.2f}"
        print(f"{peer.address}  {metres:>10}  {PEER_STATUSES.get(peer.status, peer.status)}")


def run(options: argparse.Namespace) -> int:
    with Client(options.socket) as client:
        if options.command == "scan":
            request, show = client.scan(timeout_ms=options.timeout), print_scan
        else:
            request, show = client.range(options.peers, timeout_ms=options.timeout), print_distances
        with request:
            result = request.wait(options.timeout / 1000 + PATIENCE_S)
    if options.json:
        print(json.dumps(dataclasses.asdict(result), default=bytes.hex))  # octets in hex: an SSID need not be text
    else:
        show(result)
    if result.status == DONE:
        return 0
    print(f"kes: {STATUSES.get(result.status, 'unknown status')} ({result.status})", file=sys.stderr)
    return TimedOut.exit_code if result.status == STATUS_TIMED_OUT else KesError.exit_code


def mac_address(text: str) -> str:
    pack_mac(text)
    return text


def milliseconds(text: str) -> int:
    if not 0 < int(text) <= 86_400_000:
        raise ValueError("more than nothing, and at most a day")
    return int(text)


def main(arguments: Sequence[str] | None = None) -> int:
    parser = argparse.ArgumentParser(prog="kes.py", description="Asks kesd for access points and distances.")
    parser.add_argument("--socket", metavar="PATH", default=DEFAULT_SOCKET)
    common = argparse.ArgumentParser(add_help=False)
    common.add_argument("--json", action="store_true", help="print one JSON object")
    common.add_argument("--timeout", metavar="MS", type=milliseconds, default=10_000, help="when to give up")
    commands = parser.add_subparsers(dest="command", required=True)
    commands.add_parser("scan", parents=[common], help="list the access points around")
    ranging = commands.add_parser("range", parents=[common], help="measure the distance to peers")
    ranging.add_argument("peers", metavar="MAC", nargs="+", type=mac_address)
    sys.stdout.reconfigure(errors="backslashreplace")
    try:
        status = run(parser.parse_args(arguments))
        sys.stdout.flush()
        return status
    except OSError as error:  # of the socket it would be a KesError
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())  # for what is flushed at the end
        print(f"kes: cannot write the result: {error.strerror}", file=sys.stderr)
        return KesError.exit_code
    except KesError as error:
        print(f"kes: {error}", file=sys.stderr)
        return error.exit_code
    except KeyboardInterrupt:  # leaving `with` has aborted the request
        return 130


if __name__ == "__main__":
    sys.exit(main())
