"""The client against the real daemon, side by side with kesctl."""

import faulthandler
import json
import os
import pathlib
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import unittest

import kes

BIN = pathlib.Path(os.environ["KESD_BINARY_DIR"]) / "bin"
EMULATOR = os.environ["KESD_EMULATOR"].split()  # the words before a program of another processor's build
PEERS = ["0e:7c:33:90:5a:20", "02:A0:C9:11:45:05", "02:40:f4:03:12:99", "0a:1b:2c:3d:4e:10", "0a:1b:2c:3d:4e:11",
         "02:bb:cc:01:f0:0d", "02:00:00:00:00:77"]
PATIENCE_S = 60


class Daemon(unittest.TestCase):
    def start(self, source: str) -> str:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = folder.name + "/kesd.sock"
        self.daemon = subprocess.Popen([*EMULATOR, BIN / "kesd-launch", "--socket", path, "--", *EMULATOR, BIN / "kesd"],
                                       text=True, stderr=subprocess.PIPE,
                                       env=os.environ | {"VEXO_SOURCE": source, "KES_LOG": "kesd=debug"})
        self.addCleanup(self.daemon.communicate)
        self.addCleanup(self.daemon.terminate)
        with socket.socket(socket.AF_UNIX) as probe:
            while self.daemon.poll() is None and probe.connect_ex(path) != 0:
                os.sched_yield()
        return path

    def await_log(self, part: str) -> None:
        self.assertTrue(any(part in line for line in self.daemon.stderr), part)

    def kesctl(self, path: str, *arguments: str) -> dict:
        command = [*EMULATOR, BIN / "kesctl", "--socket", path, *arguments, "--json"]
        return json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)

    def script(self, path: str, *arguments: str) -> subprocess.Popen:
        return subprocess.Popen([sys.executable, kes.__file__, "--socket", path, *arguments], text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)


class AgreesWithKesctl(Daemon):
    def test_about_access_points(self) -> None:
        path = self.start("scene:aps=300,delay=0")
        told = self.kesctl(path, "scan")
        with kes.Client(path) as client, client.scan(mode=2) as request:  # what the other scan left in the cache
            result = request.wait(PATIENCE_S)
        self.assertEqual(len(result.access_points), 300)
        self.assertEqual(
            sorted((each["bssid"], each["ssid_hex"], each["frequency_mhz"], each["signal_dbm"], each["capability"],
                    [(number["id"], number["hex"]) for number in each["elements"]]) for each in told["measurements"]),
            sorted((ap.bssid, ap.ssid.hex(), ap.frequency_mhz, ap.signal_dbm, ap.capability,
                    [(number, payload.hex()) for number, payload in ap.elements]) for ap in result.access_points))
        with self.script(path, "scan", "--json") as process:
            by_script = json.load(process.stdout)
        self.assertEqual([each["bssid"] for each in told["measurements"]],
                         [each["bssid"] for each in by_script["access_points"]])
        with self.script(path, "scan") as process:
            self.assertIn(r"  \x1b[31mred\x1b[0m\r\n\x07" + "\n", process.stdout.read())
        with open("/dev/full", "w") as full:
            failed = subprocess.run([sys.executable, kes.__file__, "--socket", path, "scan"], text=True, stdout=full,
                                    stderr=subprocess.PIPE, timeout=PATIENCE_S)
        self.assertEqual((failed.returncode, failed.stderr),
                         (1, "kes: cannot write the result: No space left on device\n"))

    def test_about_distances(self) -> None:
        path = self.start("scene:delay=0")
        told = {each["bssid"]: each for each in self.kesctl(path, "range", *PEERS)["measurements"]}
        self.assertEqual(len({each["status"] for each in told.values()}), 6)
        with self.script(path, "range", "--json", *PEERS) as process:
            distances = json.load(process.stdout)["distances"]
        self.assertEqual([each["address"] for each in distances], [each.lower() for each in PEERS])
        for each in distances:
            expected = told[each["address"]]
            self.assertEqual(kes.PEER_STATUSES[each["status"]].replace(" ", "-"), expected["status"])
            if each["status"] == kes.DONE:
                self.assertAlmostEqual(each["distance_mm"] / 1000, expected["distance_m"], delta=2)
                self.assertAlmostEqual(each["signal_dbm"], expected["signal_dbm"], delta=3)
            else:
                self.assertIsNone(each["distance_mm"])


class Requests(Daemon):
    def test_are_in_flight_together(self) -> None:
        path = self.start("scene:delay=50")
        with kes.Client(path) as client:
            requests = [client.scan(), client.range(PEERS), client.range(PEERS[:2], interval_ms=100, rounds=3),
                        client.scan(channels=[15]), client.scan(ssids=[b"Aurora"], channels=[100])]
            periodic, aurora = requests[2], requests[4]
            self.assertEqual([ap.bssid for ap in aurora.wait(PATIENCE_S).access_points], ["0e:7c:33:90:5a:21"])
            self.assertEqual([each.status for each in periodic.wait(PATIENCE_S).distances], [0, 0])
            self.assertEqual(requests[3].wait(PATIENCE_S).status, 6)
            self.assertEqual(len(requests[1].wait(PATIENCE_S).distances), len(PEERS))
            self.assertEqual(len(requests[0].wait(PATIENCE_S).access_points), 13)
            with self.assertRaisesRegex(kes.Refused, "could not be sent"):
                client.scan(mode=4)
            with self.assertRaises(kes.Refused):
                client.scan(bssids=PEERS[:1] * 200_000)  # longer than what the daemon takes
            with client.scan(mode=2) as request:
                self.assertEqual(len(request.wait(PATIENCE_S).access_points), 13)

    def test_end_early(self) -> None:
        path = self.start("scene:delay=600000")
        with kes.Client(path) as client, client.scan() as request, client.scan() as pending:
            request.release()
            with self.assertRaises(kes.ResultLost):
                request.wait(PATIENCE_S)
            with self.assertRaises(kes.TimedOut):
                pending.wait(0)
        for _ in range(2):
            self.await_log("Aborted ID")
        process = self.script(path, "scan")
        self.await_log("StartScan returning 0")
        process.send_signal(signal.SIGINT)
        self.assertEqual((process.communicate()[1], process.returncode), ("", 130))
        self.await_log("Aborted ID 3")
        process = self.script(path, "scan", "--timeout", "1")
        self.assertEqual((process.communicate()[1], process.returncode), ("kes: timed out (2)\n", 4))
        with kes.Client(path) as client:
            self.daemon.terminate()
            with self.assertRaises(kes.NoDaemon):
                client.scan().wait(PATIENCE_S)
        process = self.script(path + ".none", "scan")
        self.assertIn("No such file", process.communicate()[1])
        self.assertEqual(process.returncode, 3)


HELLO = kes.frame(kes.HELLO, kes.HELLO_BODY.pack(kes.MAGIC, 1, 0, 4096, 0))
REPLY = kes.frame(kes.REPLY, kes.REPLY_BODY.pack(0, 0x1000) + kes.REFERENCE.pack(1, 0, 7), 1)


class BrokenDaemons(unittest.TestCase):
    def test_are_found_out(self) -> None:
        cases = {
            "another protocol": b"HTTP/1.1 400 Bad Request\r\n\r\n    ",
            "another version": HELLO.replace(struct.pack("<HH", 1, 0), struct.pack("<HH", 2, 0)),
            "a short frame": HELLO + kes.HEADER.pack(8, kes.REPLY, 0, 1),
            "an endless frame": HELLO + kes.HEADER.pack(0xFFFFFFF8, kes.REPLY, 0, 1),
            "a reply to nothing": HELLO + kes.frame(kes.REPLY, kes.REPLY_BODY.pack(2, 0), 9),
            "a reply without its object": HELLO + kes.frame(kes.REPLY, kes.REPLY_BODY.pack(0, 0x1000), 1),
            "what we do not have": HELLO + REPLY + kes.frame(kes.INVOKE, kes.INVOKE_BODY.pack(99, 0, 0), 1),
            "a buffer beyond its frame": HELLO + REPLY + kes.frame(
                kes.INVOKE, kes.INVOKE_BODY.pack(0, 0, 1) + struct.pack("<Q", 1 << 40), 1),
            "given back twice": HELLO + REPLY + kes.frame(kes.RELEASE, struct.pack("<2Q", 2, 2)),
        }
        for name, answer in cases.items():
            with self.subTest(name), tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX) as listener:
                listener.bind(folder + "/socket")
                listener.listen()

                def serve() -> None:
                    with listener.accept()[0] as peer:
                        peer.sendall(answer)
                        while peer.recv(4096):
                            pass

                server = threading.Thread(target=serve)
                server.start()
                with self.assertRaises(kes.ProtocolError), kes.Client(folder + "/socket") as client:
                    client.scan().wait(PATIENCE_S)
                server.join()


class Results(unittest.TestCase):
    def test_refer_to_nothing_that_was_not_received(self) -> None:
        beacon = bytearray(160)
        struct.pack_into("<II", beacon, 0x58, 2, 9)
        struct.pack_into("<BBH32s", beacon, 0x72, 1, 1, 0xFFFF, b"n" * 32)
        (ap,) = kes.read_scan([bytes(16), bytes(beacon) + b"cut off", b"", b"..\x00\x01a\x03\x05b"]).access_points
        self.assertEqual((ap.elements, ap.incomplete, ap.ssid), ([(0, b"a")], True, b"n" * 32))
        ranged = bytearray(160)
        struct.pack_into("<HH", ranged, 0x3C, 65535, 1)
        (peer,) = kes.read_distances([bytes(4), bytes(ranged), bytes(63), b"", b""]).distances
        self.assertIsNone(peer.status)


if __name__ == "__main__":
    faulthandler.dump_traceback_later(1.5 * PATIENCE_S, exit=True)  # what hangs shall tell where
    unittest.main()
