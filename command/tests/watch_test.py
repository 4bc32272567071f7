#!/usr/bin/env python3
"""`tarvo watch` over reports that come slowly, by the thousand, on a full disk and before their symbols, while it is
killed, and under a service manager.

    watch_test.py TARVO SOURCE_DIRECTORY"""

import contextlib
import hashlib
import json
import os
import pathlib
import random
import shutil
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time
import unittest

TARVO, SOURCE = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
LIMIT = 120  # seconds that anything may take
BASE = 0x7F1200000000


def make_archive(folder):
    """An archive of the build R1, with a library whose function `Fault` is hit by `report`; the function's address."""
    (folder / "work.c").write_text("int Fault(int x) {\n  volatile int y = x;\n  return y;\n}\n", encoding="ascii")
    subprocess.run(["cc", "-g", "-O0", "-shared", "-fPIC", "-o", "libwork.so", "work.c"], cwd=folder, check=True)
    subprocess.run([TARVO, "pack", "--build", "R1", "--archives", "ready", "libwork.so"], cwd=folder, check=True,
                   stdout=subprocess.DEVNULL)
    symbols = subprocess.run(["nm", "libwork.so"], cwd=folder, capture_output=True, text=True, check=True).stdout
    return int(next(line for line in symbols.splitlines() if line.endswith(" T Fault")).split()[0], 16)


def listen(manager, told):
    """Takes what a service manager is told, until its socket is closed."""
    with contextlib.suppress(OSError):
        while True:
            told.append(manager.recv(1000).decode())


class WatchTest(unittest.TestCase):
    """Each test in a folder of its own."""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        self.address = make_archive(self.folder)
        self.archive = self.folder / "ready/R1_dsym.zip"
        for name in ("drop", "archives"):
            (self.folder / name).mkdir()

    def report(self, number):
        """A report that resolves to `Fault`, other than those of other numbers."""
        return (f"PALLADO_Crash_Report_LINUX\n{{\n\tCall_Stacks\n\t{{\n\t\tCall_Stack_Thread_{number}\n\t\t{{\n"
                f"\t\t\tlibwork.so:\t? (SP: 0x7ffc60, PC: {BASE + self.address + 8:#x})\n\t\t}}\n\t}}\n"
                "\tLoaded_Modules\n\t{\n\t\tModuleName = application\n\t\t{\n\t\t\tBaseAddress = 0x1000\n\t\t}\n"
                f"\t\tModuleName = libwork.so\n\t\t{{\n\t\t\tBaseAddress = {BASE:#x}\n\t\t\tBaseSize = 65536\n"
                "\t\t\tBuild = R1\n\t\t}\n\t}\n}\n").encode()

    def start(self, *options, drop="drop", **environment):
        """A watch, whose lines go to a file; ended at the test's end."""
        command = [TARVO, "watch", drop, "--archives", "archives", "--archives-only", "--cache", "cache", "--database",
                   "crashes.db", f"--g_symbolIndexDirectory={self.folder}/index", "--rescan", "1", "--json", *options]
        with open(self.folder / "lines", "ab") as lines, open(self.folder / "errors", "ab") as errors:
            watch = subprocess.Popen(command, cwd=self.folder, stdout=lines, stderr=errors,
                                     env={**os.environ, **environment})
        self.addCleanup(watch.wait, LIMIT)
        self.addCleanup(watch.kill)
        return watch

    def news(self):
        """What was told so far, by the names of reports."""
        told = {}
        for line in (self.folder / "lines").read_text(encoding="utf-8").splitlines():
            news = json.loads(line)
            told.setdefault(pathlib.Path(news.pop("Report")).name.removesuffix("_bugreport.txt"), []).append(news)
        return told

    def wait_for(self, condition, what):
        """Until something is so, within a time that nothing may take."""
        end = time.monotonic() + LIMIT
        while not condition():
            self.assertLess(time.monotonic(), end, f"waited for {what}: {(self.folder / 'errors').read_text()}")
            time.sleep(0.05)

    def stored(self):
        """The hashes of the reports in the database, and their groups' signatures."""
        database = sqlite3.connect(f"file:{self.folder}/crashes.db?mode=ro", uri=True, timeout=LIMIT)
        with contextlib.closing(database):
            return dict(database.execute("SELECT r.hash, g.signature FROM reports r JOIN variants v ON "
                                         "v.id = r.variant_id JOIN groups g ON g.id = v.group_id"))

    def dropped(self):
        """What has to be in the database: each report of the directory, with its function."""
        return {hashlib.sha256(file.read_bytes()).hexdigest(): "Fault"
                for file in (self.folder / "drop").rglob("*_bugreport.txt")}

    def children(self, watch):
        """The processes of its batches."""
        return [int(pid) for pid in
                pathlib.Path(f"/proc/{watch.pid}/task/{watch.pid}/children").read_text().split()]

    def stop_batch(self, watch):
        """Whether the process of a batch was there to be stopped."""
        for child in self.children(watch):
            with contextlib.suppress(OSError):
                os.kill(child, signal.SIGSTOP)
                time.sleep(0.01)
                return pathlib.Path(f"/proc/{child}/stat").read_text().rsplit(")", 1)[1].split()[0] == "T"
        return False

    def test_a_report_is_taken_once_it_is_whole(self):
        shutil.copy(self.archive, self.folder / "archives")
        self.start("--patience", "4")
        content = self.report(1)
        (self.folder / "drop/later").mkdir()
        with open(self.folder / "drop/later/slow_bugreport.txt", "wb", buffering=0) as slow:
            for at in range(0, len(content) - 2, 100):  # six seconds, longer than any other is waited for
                slow.write(content[at:min(at + 100, len(content) - 2)])
                time.sleep(6 * 100 / len(content))
            (self.folder / "drop/.hidden_bugreport.txt").write_bytes(self.report(4))
            (self.folder / "drop/cut_bugreport.txt").write_bytes(self.report(2)[:-2])
            (self.folder / "drop/\x1b[31m\n_bugreport.txt").write_bytes(self.report(3))
            self.wait_for(lambda: "cut" in self.news(), "the cut report")
            self.assertNotIn("slow", self.news())
            slow.write(content[-2:])
        self.wait_for(lambda: len(self.stored()) == 3, "the slow report")
        self.wait_for(lambda: len(self.news()) == 3, "the lines")
        news = self.news()
        self.assertEqual({name: (len(lines), lines[0]["Resolved"], lines[0]["Frames"], lines[0]["Signature"])
                          for name, lines in news.items()},
                         {name: (1, 1, 1, "Fault") for name in ("slow", "cut", "\x1b[31m\n")})
        self.assertEqual([("NewGroup" in lines[0]) for lines in news.values()].count(True), 1)

    def test_symbols_that_come_late_bring_reports_back(self):
        self.start()
        (self.folder / "drop/1_bugreport.txt").write_bytes(self.report(1))
        (self.folder / "drop/bad_bugreport.txt").write_bytes(b"no report\n}\n")
        self.wait_for(lambda: len(self.news()) == 2, "the reports")
        self.assertIn("Error", self.news()["bad"][0])
        shutil.copy(self.archive, self.folder / "archives")
        self.wait_for(lambda: len(self.news()["1"]) == 2, "the report with its symbols")
        self.assertEqual([news["Resolved"] for news in self.news()["1"]], [0, 1])
        self.assertEqual(len(self.news()["bad"]), 1)
        self.assertEqual(list(self.stored().values()), ["Fault"])

    def test_killed_at_any_point_it_loses_nothing_and_has_nothing_twice(self):
        shutil.copy(self.archive, self.folder / "archives")
        source = random.Random(5)
        for turn in range(8):
            for number in range(250):
                (self.folder / f"drop/{turn}-{number}_bugreport.txt").write_bytes(self.report(turn * 250 + number))
            watch = self.start()
            time.sleep(source.uniform(0.05, 0.5))
            if turn % 2 == 0:  # the process of the batch alone, then all
                for child in self.children(watch):
                    os.kill(child, signal.SIGKILL)
                time.sleep(source.uniform(0, 0.2))
            watch.kill()
            watch.wait(LIMIT)
        watch = self.start()
        self.wait_for(lambda: len(self.stored()) == 2000, "all reports")
        self.assertEqual(self.stored(), self.dropped())
        watch.terminate()
        self.assertEqual(watch.wait(LIMIT), 0)
        before = len((self.folder / "lines").read_bytes())
        again = self.start()
        time.sleep(2.5)
        again.terminate()
        self.assertEqual((again.wait(LIMIT), len((self.folder / "lines").read_bytes())), (0, before))

    def test_a_process_that_hangs_is_ended_and_the_manager_told(self):
        shutil.copy(self.archive, self.folder / "archives")
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(manager.shutdown, socket.SHUT_RDWR)
        manager.bind(str(self.folder / "manager"))
        watch = self.start("--time-limit", "2", NOTIFY_SOCKET=str(self.folder / "manager"), WATCHDOG_USEC="200000")
        told = []
        threading.Thread(target=listen, args=(manager, told), daemon=True).start()
        self.wait_for(lambda: "READY=1" in told, "it to be ready")
        written = 0
        while not self.stop_batch(watch):
            (self.folder / f"drop/{written}_bugreport.txt").write_bytes(self.report(written))
            written += 1
        self.wait_for(lambda: len(self.stored()) == written, "all reports")
        self.assertEqual(self.stored(), self.dropped())
        self.assertIn("more than 2 s", (self.folder / "errors").read_text() + (self.folder / "lines").read_text())
        watch.send_signal(signal.SIGINT)
        self.assertEqual(watch.wait(LIMIT), 0)
        self.wait_for(lambda: "STOPPING=1" in told, "its end to be told")
        self.assertIn("WATCHDOG=1", told)

    def test_a_full_disk_that_becomes_free(self):
        drop = self.folder / "full"
        drop.mkdir()
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k", "tmpfs", drop], capture_output=True,
                          check=False).returncode != 0:
            self.skipTest("a small file system cannot be mounted here")
        self.addCleanup(subprocess.run, ["umount", "--lazy", drop], check=True)
        shutil.copy(self.archive, self.folder / "archives")
        (drop / "1_bugreport.txt").write_bytes(self.report(1))
        with contextlib.suppress(OSError), open(drop / "ballast", "wb", buffering=0) as ballast:
            while True:
                ballast.write(bytes(4096))
        self.start(drop=drop)
        self.wait_for(lambda: self.news(), "the failure")
        (drop / "ballast").unlink()
        self.wait_for(lambda: len(self.news()["1"]) == 2, "the report")
        failed, resolved = self.news()["1"]
        self.assertIn("No space left", failed["Error"])
        self.assertEqual((resolved["Outcome"], resolved["Signature"]), ("Resolved", "Fault"))

    def test_what_cannot_be_watched_is_refused(self):
        (self.folder / "crashes.db").write_bytes(b"no database" * 100)
        for drop, status in (("drop", 2), ("nowhere", 1)):
            self.assertEqual(self.start(drop=drop).wait(LIMIT), status)

    def test_the_service_is_sound_and_confined(self):
        if shutil.which("systemd-analyze") is None:
            self.skipTest("there is no systemd-analyze (Debian: systemd)")
        unit = self.folder / "tarvo-watch.service"
        unit.write_text((SOURCE / "packaging/tarvo-watch.service.in").read_text().replace("@TARVO_PROGRAM@", str(TARVO)))
        for question in (["verify", "--man=no"], ["security", "--offline=true", "--threshold=15"]):
            answer = subprocess.run(["systemd-analyze", *question, unit], capture_output=True, text=True, check=False)
            self.assertEqual((answer.returncode, answer.stderr), (0, ""), answer.stdout)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
