#!/usr/bin/env python3
"""`tarvo resolve` and `tarvo show` as support uses them, with real symbols: several places of archives, builds that
reports do not state, outcomes that are worse than those before, interruption.

    support_test.py TARVO CXX"""

import hashlib
import json
import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

TARVO, CXX = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]
LIMIT = 30  # seconds that no run may take

SOURCE = """extern "C" int Render(int* p) { return *p; }
int main() { return 0; }
"""


def report(modules, frames, others=""):
    """A report of one crashed thread; modules by name with their build, or none."""
    listed = "".join(f"ModuleName = {name}\n{{\nBaseAddress = 0x0\n{'Build = ' + build if build else ''}\n}}\n"
                     for name, build in modules.items())
    lines = "".join(f"{module}: f + 0x0 (SP: 0x1, PC: {address:#x})\n" for module, address in frames)
    return ("PALLADO_Crash_Report_LINUX\n{\nApplicationInfo { PALLADO_Version: 16.0\n}\n"
            "ComputerInfo { OS_Type = linux 6.1\n}\nException { ExceptionNumber = 0x0000000B\n}\n"
            f"Call_Stacks {{ Call_Stack_Thread_7 {{\n{lines}}}\n{others}}}\nLoaded_Modules {{\n{listed}}}\n}}\n")


class SupportTest(unittest.TestCase):
    """Each test in a folder with two programs that differ in their sources' names."""

    @classmethod
    def setUpClass(cls):
        cls.made = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.made.cleanup)
        folder = pathlib.Path(cls.made.name)
        for name in ("one", "two"):
            (folder / name).mkdir()
            (folder / f"{name}.cpp").write_text(SOURCE)
            subprocess.run([CXX, "-g", "-no-pie", f"{name}.cpp", "-o", f"{name}/scene"], cwd=folder, check=True)
        symbols = subprocess.run(["nm", folder / "one/scene"], capture_output=True, text=True, check=True).stdout
        cls.render = next(int(line.split()[0], 16) for line in symbols.splitlines() if line.endswith(" Render"))

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        self.environment = {**os.environ, "XDG_CACHE_HOME": str(self.folder / "user"), "DEBUGINFOD_URLS": ""}

    def start(self, *arguments, **environment):
        return subprocess.Popen([TARVO, *arguments], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                text=True, env={**self.environment, **environment})

    def run_tarvo(self, *arguments, status=0):
        run = self.start(*arguments)
        output, errors = run.communicate(timeout=LIMIT)
        self.assertEqual(run.returncode, status, output + errors)
        return output

    def pack(self, program, directory, build="B1"):
        self.run_tarvo("pack", "--build", build, "--archives", directory, pathlib.Path(self.made.name, program, "scene"))

    def sources(self, *options):
        """The files that the frames of the report come from, in a cache of its own."""
        self.run_tarvo("resolve", "r_bugreport.txt", "--archives-only", "--force", "--cache",
                       tempfile.mkdtemp(dir=self.folder), *options)
        document = json.loads((self.folder / "r_bugreport.resolved.json").read_text())
        return [pathlib.Path(frame.get("SourceFileName", "none")).stem
                for frame in document["Threads"][0]["Callstack"]]

    def test_source_lines_are_those_that_were_compiled(self):
        text = ("[[gnu::always_inline]] static inline int Get(int* p) { return *p; }\n"
                'extern "C" int Render(int* p) { return Get(p); }\nint main() { return 0; }\n')
        source = self.folder / "scene.cpp"
        shown, hour = "│ [[gnu::always_inline]]", 3600
        for compiler, change, age, expected in (
                ("clang++-19 -gdwarf-5", "", -hour, shown),
                ("clang++-19 -gdwarf-5", "// else\n", hour, "scene.cpp is not the file that was compiled: not shown"),
                (f"{CXX} -gdwarf-5", "", -hour, "scene.cpp was changed after the crash: not shown"),
                (f"{CXX} -gdwarf-5", "", hour, shown)):
            with self.subTest(compiler=compiler, change=change):
                source.write_text(text)
                subprocess.run([*compiler.split(), "-O1", "-no-pie", source, "-o", "scene"], cwd=self.folder, check=True)
                symbols = subprocess.check_output(["nm", self.folder / "scene"], text=True)
                render = next(int(line.split()[0], 16) for line in symbols.splitlines() if line.endswith(" Render"))
                self.run_tarvo("pack", "--build", "B1", "--archives", "a", "--replace", "scene")
                path = self.folder / "r_bugreport.txt"
                path.write_text(report({"scene": "B1"}, [("scene", render)]))
                source.write_text(change + text)
                time_then = path.stat().st_mtime - age
                os.utime(source, (time_then, time_then))
                self.run_tarvo("resolve", path, "--archives", "a", "--force")
                self.assertIn(expected, self.run_tarvo("show", "r_bugreport.resolved.json"))
                frame = json.loads((self.folder / "r_bugreport.resolved.json").read_text())["Threads"][0]["Callstack"][0]
                noted = ["md5:" + hashlib.md5(text.encode()).hexdigest()] * 2 if "clang" in compiler else []
                self.assertEqual([place["SourceFileChecksum"] for place in [frame, *frame.get("InlinedInto", [])]
                                  if "SourceFileChecksum" in place], noted)

    def test_archives_are_searched_in_their_order_and_by_all_builds_that_may_serve(self):
        self.pack("one", "a")
        self.pack("two", "b/below/builds")
        self.pack("two", "b", "B2")
        (self.folder / "empty").mkdir()
        cases = (  # builds of the program and of the module that crashed, options, source
            ("B1", "B1", ("--archives", "a"), "one"),
            ("B1", "B1", ("--archives", "b"), "two"),
            ("B1", "B1", ("--archives", "a", "--archives", "b"), "one"),
            ("B1", "B1", ("--archives", "b", "--archives", "a"), "two"),
            ("B1", "B1", ("--archives", "empty", "--archives", "a"), "one"),
            ("B1", None, ("--archives", "a"), "one"),  # the application's
            ("B1", "B3", ("--archives", "a"), "one"),
            ("B1", "B2", ("--archives", "b"), "two"),
            (None, None, ("--archives", "a"), "none"),
            (None, None, ("--archives", "a", "--build", "B1"), "one"),
            ("B3", None, ("--archives", "a", "--build", "B1"), "none"),  # is for reports that state none
        )
        for program, module, options, source in cases:
            with self.subTest(program=program, module=module, options=options):
                (self.folder / "r_bugreport.txt").write_text(
                    report({"program": program, "scene": module}, [("scene", self.render)]))
                self.assertEqual(self.sources(*options), [source])

    def test_a_worse_outcome_replaces_a_better_one_only_by_force(self):
        self.pack("one", "a")
        (self.folder / "empty").mkdir()
        text = report({"scene": "B1"}, [("scene", self.render)])
        (self.folder / "r_bugreport.txt").write_text(text)
        self.assertEqual(self.sources("--archives", "a"), ["one"])
        document = self.folder / "r_bugreport.resolved.json"
        better = document.read_text()
        self.run_tarvo("resolve", ".", "--archives-only", "--archives", "empty", "--cache", "other")
        self.assertEqual(document.read_text(), better)
        self.assertEqual(self.sources("--archives", "empty"), ["none"])
        self.assertEqual(self.sources("--archives", "a"), ["one"])
        (self.folder / "r_bugreport.txt").write_text(text + "\n")  # not the same report
        self.run_tarvo("resolve", ".", "--archives-only", "--archives", "empty", "--cache", "other")
        self.assertNotEqual(document.read_text(), better)

    def test_show_crashed_is_the_whole_thread_and_no_other(self):
        name = "a_long_name_of_a_module_" * 10
        others = "Call_Stack_Thread_8 {\nother: g + 0x0 (SP: 0x1, PC: 0x1)\n}\n"
        (self.folder / "r_bugreport.txt").write_text(report({}, [(name, 1)] + [(f"m{i}", i) for i in range(30)], others))
        self.run_tarvo("resolve", "r_bugreport.txt", "--archives-only")
        self.environment["COLUMNS"] = "40"
        shown = self.run_tarvo("show", "--crashed", "r_bugreport.resolved.json")
        for module in (name, "m0", "m29"):
            self.assertIn(f"  {module}  ", shown)
        self.assertNotIn("other", shown)
        shown = self.run_tarvo("show", "r_bugreport.resolved.json")
        self.assertIn("other", shown)
        self.assertNotIn(name, shown)

    def interrupted(self, presses):
        """How a run ends that waits for a server which never answers: status, seconds, standard error."""
        server = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(server.close)
        server.settimeout(LIMIT)
        run = self.start("resolve", "own_bugreport.txt", "--cache", "cache",
                         DEBUGINFOD_URLS=f"http://127.0.0.1:{server.getsockname()[1]}",
                         DEBUGINFOD_CACHE_PATH=str(self.folder / "downloads"))
        self.addCleanup(lambda: (run.kill(), run.communicate()))
        connection, _ = server.accept()
        self.addCleanup(connection.close)
        start = time.monotonic()
        for _ in range(presses):
            run.send_signal(signal.SIGINT)
            time.sleep(0.3)
        try:
            errors = run.communicate(timeout=3)[1]
        except subprocess.TimeoutExpired:
            return None, 3, ""
        return run.returncode, time.monotonic() - start, errors

    def test_an_interruption_is_seen_at_once(self):
        variables = "Variables {\nCrashTime = 2026-11-21T13:09:40Z\nBuildId_0x1000 = 00112233445566778899\n}\n"
        (self.folder / "own_bugreport.txt").write_text(
            "PALLADO_Crash_Report_LINUX\n{\nCall_Stacks { Call_Stack_Thread_7 {\n"
            f"m: f (SP: 0x1, PC: 0x1001)\n{variables}}}\n}}\nLoaded_Modules {{\n"
            "ModuleName = m\n{\nExecutable = /nowhere/m\nBaseAddress = 0x1000\nBaseSize = 4096\n}\n}\n}\n")
        self.assertEqual(self.interrupted(0), (None, 3, ""), "it waits: what ends it below is the signal")
        status, seconds, errors = self.interrupted(1)
        self.assertEqual(status, 130, errors)
        self.assertLess(seconds, 3)
        self.assertIn("a second Ctrl-C ends it at once", errors)
        self.assertIn("Interrupted: 0 of 1 reports are done", errors)
        self.assertEqual(self.interrupted(2)[0], -signal.SIGINT)
        self.assertEqual(sorted(path.name for path in self.folder.glob("own*")), ["own_bugreport.txt"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
