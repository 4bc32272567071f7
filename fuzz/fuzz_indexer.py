#!/usr/bin/env python3
"""Feeds tarvo-symbol-indexer with damaged debug files and watches that it stays contained.

    fuzz/fuzz_indexer.py [--program build/release/modules/tarvo-symbol-indexer] [--seconds 3600 | --runs N] [--seed 1]

The indexer reads with LLVM, which aborts or loops on some broken files; so it is a process of its own, with limits.
That it ends in whatever way is no finding. A finding is one that takes more time or memory than it was given, or that
claims to have made an index where there is none. Sound files, one of each kind that is read, must give an index first:
without that nothing below would be tried. Findings are kept in the folder --found.
"""

import argparse
import collections
import os
import random
import resource
import shutil
import subprocess
import sys
import tempfile
import time

MEGABYTES, SECONDS = 512, 5
MARGIN_SECONDS = 5  # for a busy machine, and to start
MAPPED_MEGABYTES = 256  # the file, the program and its libraries are not of the limit

SOURCE = """
#include <algorithm>
#include <map>
#include <string>
#include <vector>
namespace scene {
struct Shape { virtual ~Shape() = default; virtual int Area() const { return 1; } };
template <int N> struct Square : Shape { int Area() const override { return N * N; } };
static inline int Mix(int a, int b) { return a * 31 + b; }
int Update(const std::vector<int>& values) {
  std::map<std::string, int> sums;
  for (int value : values) sums[std::to_string(value % 7)] += Mix(value, Square<3>().Area());
  auto largest = std::max_element(sums.begin(), sums.end(), [](auto& a, auto& b) { return a.second < b.second; });
  return largest == sums.end() ? 0 : largest->second;
}
}
"""
PLAIN = "namespace scene { static inline int Mix(int a) { return a * 31; } int Update(int b) { return Mix(b) + b; } }\n"

# name: commands, the file that is damaged, its architecture
KINDS = {
    "DWARF 5": (["g++ -g -O2 -fPIC -shared scene.cpp -o dwarf5"], "dwarf5", "x86_64"),
    "DWARF 4": (["clang++-19 -gdwarf-4 -O2 -fPIC -shared scene.cpp -o dwarf4"], "dwarf4", "x86_64"),
    "type units": (["g++ -g -fdebug-types-section -fPIC -shared scene.cpp -o types"], "types", "x86_64"),
    "compressed": (["g++ -g -gz=zlib -fPIC -shared scene.cpp -o compressed"], "compressed", "x86_64"),
    "split": (["g++ -g -gsplit-dwarf -fPIC -shared scene.cpp -o split"], "split", "x86_64"),
    "dwz": (["g++ -g -fPIC -shared scene.cpp -o one && cp one two && dwz -m common one two"], "one", "x86_64"),
    "supplementary file": (["cp one user"], "common", "x86_64"),
    "dSYM": (["clang++-19 -target arm64-apple-macos11 -g -O1 -c plain.cpp -o plain.o && ld64.lld-19 -arch arm64 "
              "-platform_version macos 11 11 -undefined dynamic_lookup -dylib -o macho plain.o && "
              "dsymutil-19 -q macho -o macho.dSYM && cp macho.dSYM/Contents/Resources/DWARF/macho apple"],
             "apple", "arm64"),
    "PDB": (["clang++-19 -target x86_64-pc-windows-msvc -g -gcodeview -O1 -c plain.cpp -o plain.obj && lld-link-19 "
             "/dll /noentry /debug /pdb:plain.pdb /export:?Update@scene@@YAHH@Z /out:plain.dll plain.obj"],
            "plain.pdb", "x86_64"),
}
# What is asked for where another file than the damaged one is read first.
READ = {"supplementary file": "user", "PDB": "plain.dll"}
HOSTILE = [b"\xff" * 4, b"\xff" * 8, b"\x00" * 4, b"\x80" * 9 + b"\x01", b"\x7f\xff\xff\xff", b"\x01\x00\x00\x00"]


def damaged(content, draw):
    """A few bytes or numbers other than they were, a piece doubled, or the end cut off."""
    data = bytearray(content)
    for _ in range(draw.choice((1, 1, 2, 4, 16, 64))):
        at = draw.randrange(len(data))
        kind = draw.random()
        if kind < 0.45:
            data[at] = draw.randrange(256)
        elif kind < 0.7:
            data[at] ^= 1 << draw.randrange(8)
        elif kind < 0.9:
            value = draw.choice(HOSTILE)
            data[at:at + len(value)] = value
        else:
            size = draw.randrange(1, 256)
            data[at:at + size] = data[draw.randrange(len(data)):][:size].ljust(size, b"\0")
    return bytes(data[:draw.randrange(len(data))]) if draw.random() < 0.03 else bytes(data)


class Fuzzer:
    def __init__(self, options, folder):
        self.options, self.folder = options, folder
        self.counts = collections.Counter()
        self.findings = 0
        for name, text in (("scene.cpp", SOURCE), ("plain.cpp", PLAIN)):
            with open(self.path(name), "w", encoding="ascii") as file:
                file.write(text)
        self.contents = {}
        for kind, (commands, name, _) in KINDS.items():
            for command in commands:
                subprocess.run(["bash", "-ec", command], cwd=folder, check=True)
            with open(self.path(name), "rb") as file:
                self.contents[kind] = file.read()

    def path(self, name):
        return os.path.join(self.folder, name)

    def index(self, kind):
        """How it ended ("0" or a status or signal), what is wrong with that or None."""
        output = self.path("index")
        if os.path.exists(output):
            os.unlink(output)
        file = self.path(READ.get(kind, KINDS[kind][1]))
        command = [self.options.program, "index", file, KINDS[kind][2], str(MEGABYTES), str(SECONDS), "key", output]
        start = time.monotonic()
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, cwd=self.folder,
                                   preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)))
        pid, status, usage = 0, 0, None
        while pid == 0:
            pid, status, usage = os.wait4(process.pid, os.WNOHANG)
            if pid == 0 and time.monotonic() - start > SECONDS + MARGIN_SECONDS:
                process.kill()
                os.wait4(process.pid, 0)
                process.returncode = -9
                return "hang", f"it did not end within {SECONDS} s and {MARGIN_SECONDS} s"
            if pid == 0:
                time.sleep(0.001)
        process.returncode = code = os.waitstatus_to_exitcode(status)
        if usage.ru_maxrss / 1024 > MEGABYTES + MAPPED_MEGABYTES:
            return str(code), f"it took {usage.ru_maxrss / 1024:.0f} MiB of {MEGABYTES}"
        if code == 0 and not (os.path.exists(output) and os.path.getsize(output) > 64):
            return "0", "it says that it made an index, and there is none"
        return str(code), None

    def check_sound(self):
        for kind in KINDS:
            end, finding = self.index(kind)
            if end != "0" or finding:
                sys.exit(f"the sound file of kind {kind} gave no index: {end} {finding or ''}")

    def run(self):
        draw = random.Random(self.options.seed)
        end = time.monotonic() + self.options.seconds
        while self.counts.total() < self.options.runs and time.monotonic() < end:
            kind = draw.choice(list(KINDS))
            name = KINDS[kind][1]
            content = damaged(self.contents[kind], draw)
            with open(self.path(name), "wb") as file:
                file.write(content)
            how, finding = self.index(kind)
            self.counts["index made" if how == "0" else "refused" if how in ("1", "3") else f"ended by {how}"] += 1
            if finding:
                self.findings += 1
                os.makedirs(self.options.found, exist_ok=True)
                kept = os.path.join(self.options.found, f"indexer-{self.options.seed}-{self.counts.total()}-{name}")
                shutil.copy(self.path(name), kept)
                print(f"{kind}: {finding}; the file is {kept}")
            with open(self.path(name), "wb") as file:
                file.write(self.contents[kind])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default="build/release/modules/tarvo-symbol-indexer")
    parser.add_argument("--seconds", type=float, default=3600)
    parser.add_argument("--runs", type=int, default=1 << 62)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--found", default="build/release/fuzz")
    options = parser.parse_args()
    options.program = os.path.abspath(options.program)
    with tempfile.TemporaryDirectory() as folder:
        fuzzer = Fuzzer(options, folder)
        fuzzer.check_sound()
        fuzzer.run()
    print(f"{fuzzer.counts.total()} damaged files: " +
          ", ".join(f"{count} {how}" for how, count in sorted(fuzzer.counts.items())) +
          f"; {fuzzer.findings} findings")
    sys.exit(fuzzer.findings != 0)


if __name__ == "__main__":
    main()
