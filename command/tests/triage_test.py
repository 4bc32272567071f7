#!/usr/bin/env python3
"""`tarvo triage` over made-up crash logs, sound and hostile ones, with a database that others use too; and what it
and `tarvo resolve` write against the schemas in docs/schema.

    triage_test.py TARVO CRASHDEMO SOURCE_DIRECTORY"""

import contextlib
import itertools
import json
import pathlib
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

TARVO, DEMO, SOURCE = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])


def schema(name):
    """A validator of one of the schemas."""
    content = json.loads((SOURCE / "docs/schema" / name).read_text())
    jsonschema.Draft202012Validator.check_schema(content)
    return jsonschema.Draft202012Validator(content)


def log(*functions, number=0, **keys):
    """A resolved crash log of one thread."""
    frames = [{"ModuleName": "app", "FunctionName": function, "Address": 4096 + place}
              for place, function in enumerate(functions)]
    return {"Threads": [{"ThreadNumber": number, "Callstack": frames}],
            "LoadedModules": [{"ModuleName": "app", "BaseAddress": 0, "Build": keys.pop("build", "R1"),
                               "IsExecutable": True}],
            "Exception": {"ExceptionText": "\"SIGSEGV\""}, **keys}


class TriageTest(unittest.TestCase):
    """Each test in a folder of its own."""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        self.valid = schema("triage.schema.json")

    def write(self, name, content):
        """A file; what is no text or bytes as JSON."""
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        if not isinstance(content, (str, bytes)):
            content = json.dumps(content, indent=1)
        path.write_bytes(content.encode() if isinstance(content, str) else content)

    def triage(self, *arguments, status=0):
        """Runs it; its JSON, checked."""
        run = subprocess.run([TARVO, "triage", "--json", "out.json", *arguments], cwd=self.folder, timeout=60,
                             capture_output=True, text=True, check=False)
        self.assertEqual(run.returncode, status, run.stdout + run.stderr)
        document = json.loads((self.folder / "out.json").read_text())
        self.valid.validate(document)
        return document

    def counts(self, document):
        """Reports by signature."""
        return {group["Signature"]: group["Count"] for group in document["Groups"]}

    def test_logs_and_results_are_grouped_alike_on_every_run(self):
        for number in range(6):
            self.write(f"logs/{number}.resolved.json",
                       log(f"ns::f{number % 2}<int>(int)", "main", number=number, build=f"R{number % 3}",
                           Exception={"ExceptionText": "\"SIGSEGV\"", "Time": f"2026-11-0{number + 1} 10:00:00"}))
        self.write("logs/other.txt", "passed over")
        line = log("ns::f1(int)", "main", number=9)
        line["Outcome"] = {"Report": "far/9_bugreport.txt", "Hash": "9" * 64, "Time": "2026-12-01T00:00:00Z"}
        failed = {"Outcome": {"Report": "far/8_bugreport.txt", "Error": "No such file."}}
        self.write("results", json.dumps(line) + "\n" + json.dumps(failed) + "\n{\"Threads\n")
        first = self.triage("logs", "results", "--jobs", "1")
        self.assertEqual(first, self.triage("results", "logs/", "logs/1.resolved.json", "--jobs", "4"))
        self.assertEqual(self.counts(first), {"ns::f1": 4, "ns::f0": 3})
        group = first["Groups"][0]
        self.assertEqual((group["First"], group["Last"], group["Class"], group["Reports"][0]),
                         ("2026-11-02T10:00:00Z", "2026-12-01T00:00:00Z", "invalid memory access",
                          "far/9_bugreport.txt"))
        self.assertEqual(group["Builds"], {"R1": 2, "R0": 1, "R2": 1})
        self.assertEqual([(skipped["Report"], skipped["Error"][:15]) for skipped in first["Skipped"]],
                         [("far/8_bugreport.txt", "No such file."), ("results:3", "found no JSON a")])

    def test_hostile_logs_are_named_and_skipped(self):
        whole = json.dumps(log("f()", "main"))
        hostile = {"cut": whole[:-9], "deep": "[" * 2_000_000, "nul": whole[:40] + "\0" + whole[40:], "empty": "",
                   "list": "[]", "utf8": whole.encode() + b"\xff", "binary": bytes(range(256)) * 64,
                   "report": "TARVO_Crash_Report\n{\n}\n"}
        odd = {"types": {"Threads": [1, [], {"Callstack": [{"FunctionName": 7, "Address": -1, "InlinedInto": {}}, 8]}],
                         "Exception": [], "LoadedModules": {}, "Outcome": "x"},
               "none": {"Threads": []}, "long": log("ns::f<" + "std::vector<" * 2000 + ">" * 2000 + ">(int)", "main"),
               "steering": log("\x1b[31m\u202e\0<script>", "main")}
        for name, content in {**hostile, **odd}.items():
            self.write(f"logs/{name}.resolved.json", content)
        (self.folder / "logs/folder.resolved.json").mkdir()
        document = self.triage("logs", "missing")
        self.assertEqual({pathlib.Path(skipped["Report"]).name.removesuffix(".resolved.json")
                          for skipped in document["Skipped"]}, {*hostile, "missing"})
        self.assertEqual(sum(group["Count"] for group in document["Groups"]), len(odd))
        self.assertIn("ns::f", self.counts(document))
        run = subprocess.run([TARVO, "triage", "logs"], cwd=self.folder, capture_output=True, check=True)
        self.assertNotIn(b"\x1b", run.stdout)
        self.triage("missing", status=1)

    def test_the_database_tells_what_is_new_and_is_shared(self):
        self.write("day1/1.resolved.json", log("f()", "main", number=1))
        self.write("day1/2.resolved.json", log("", "", "", "main", number=2, Outcome={"Report": "2", "Hash": "2" * 64}))
        options = ["--database", "crashes.db", "--fail-on-new"]
        first = self.triage("day1", *options, status=3)
        self.assertEqual(first["Groups"][0]["Marks"], ["NotStored"])
        again = self.triage("day1", *options)
        self.assertEqual(self.counts(again), {"app+0x1000@R1": 1, "f": 1})
        # Its symbols have come: it is known under its old id.
        self.write("day1/2.resolved.json", log("g()", "h()", "i()", "main", Outcome={"Report": "2", "Hash": "2" * 64}))
        moved = self.triage("day1", *options)
        self.assertEqual({group["Signature"]: group["Aliases"] for group in moved["Groups"]},
                         {"f": [], "g": [group["Id"] for group in again["Groups"]
                                         if group["Signature"] != "f"]})
        # One that is killed, at all points until it ends by itself: all of it counts, or nothing.
        for number in range(10, 410):
            self.write(f"day2/{number}.resolved.json", log("f()", "main", number=number))
            self.write(f"day3/{number}.resolved.json", log("k()", "main", number=number))
        command = [TARVO, "triage", "--database", "crashes.db", "--top", "1"]
        seen, points = set(), itertools.count()
        while 402 not in seen:
            killed = subprocess.Popen([*command, "day2"], cwd=self.folder, stdout=subprocess.DEVNULL)
            time.sleep(next(points) * 0.002)
            killed.kill()
            killed.wait(60)
            with contextlib.closing(sqlite3.connect(self.folder / "crashes.db")) as database:
                self.assertEqual(database.execute("PRAGMA integrity_check").fetchall(), [("ok",)])
                seen.update(database.execute("SELECT count(*) FROM reports").fetchone())
        self.assertEqual(seen, {2, 402})
        # Two at once.
        both = [subprocess.Popen([*command, day], cwd=self.folder, stdout=subprocess.DEVNULL)
                for day in ("day2", "day3")]
        self.assertEqual([process.wait(60) for process in both], [0, 0])
        self.assertEqual(self.counts(self.triage("--database", "crashes.db")), {"f": 401, "k": 400, "g": 1})
        for wrong in (["day1", "--fail-on-new"], ["--top", "1"]):
            run = subprocess.run([TARVO, "triage", *wrong], cwd=self.folder, capture_output=True, check=False)
            self.assertEqual(run.returncode, 2, run.stderr)

    def test_what_resolve_writes_is_as_its_schema_says(self):
        subprocess.run([DEMO, f"--g_crashReportUrl={self.folder}/demo_bugreport.txt", "--kind", "null-write"],
                       cwd=self.folder, capture_output=True, timeout=60, check=False)
        for options in ([], ["--results", "results"]):
            subprocess.run([TARVO, "resolve", "--cache", "cache", *options, "demo_bugreport.txt"], cwd=self.folder,
                           capture_output=True, timeout=60, check=True)
        valid = schema("crash_log.schema.json")
        for name in ("demo_bugreport.resolved.json", "results"):
            document = json.loads((self.folder / name).read_text())
            valid.validate(document)
            frames = [frame for thread in document["Threads"] for frame in thread["Callstack"]]
            self.assertGreater(len(frames), 5)
            for frame in frames:
                self.assertEqual(frame.get("AddressText"), hex(frame["Address"]) if "Address" in frame else None)
        self.assertFalse(valid.is_valid({"Threads": [{"Callstack": [{"Address": "0x1"}]}]}))
        self.assertFalse(valid.is_valid({"LoadedModules": []}))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
