#!/usr/bin/env python3
"""Tries to cross the borders between the folders.

For each border a file of one folder gets an include of what it must not know, and the compiler, called as
the build calls it for that file, has to refuse it. A control follows: the same with an include that is
allowed has to go through. No folder reaches another one by "..", either.

    borders_test.py COMPILE_COMMANDS SOURCE_DIRECTORY
"""

import json
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

# A file, what it may include, and what it must not.
BORDERS = [
    # The crash log knows neither what stands on it nor what stands beside it.
    ("crashhandler.module/source/crashlog/crash_log.cpp", "crashlog/reading/report_reader.h",
     ["main/main.h", "linux/linux_crashhandler/capture.h", "legacycrashlog/legacycrashlog.h"]),
    ("crashhandler.module/source/crashlog/reading/tokenizer.cpp", "crashlog/base/text.h",
     ["crashlog/crash_log.h", "crashlog/symbols/symbol_cache.h", "crashlog/writing/crash_log_writer.h",
      "connection.h"]),
    ("crashhandler.module/source/crashlog/writing/crash_log_writer.cpp", "crashlog/base/text.h",
     ["crashlog/reading/report_reader.h"]),
    ("crashhandler.module/source/crashlog/symbols/symbol_cache.cpp", "connection.h",
     ["crashlog/resolving/frame_resolver.h", "crashlog/reading/report_reader.h"]),
    ("crashhandler.module/source/crashlog/resolving/frame_resolver.cpp", "crashlog/symbols/symbol_cache.h",
     ["crashlog/crash_log.h", "main/resolve_bug_report.h"]),
    # The capture stands alone, and no module knows the host or the toolkit.
    ("crashhandler.module/source/linux/linux_crashhandler/capture.cpp", "crash_context/crash_owner.h",
     ["crashlog/crash_log.h", "legacycrashlog/legacycrashlog.h", "main/main.h", "crash_guard/guard_state.h"]),
    ("crashhandler.module/source/main/main.cpp", "linux/linux_crashhandler/signals.h",
     ["host/host_framework.h", "tarvo/report/normalize.h", "crashlog/reading/report_reader.h"]),
    # The pieces of the host, from the ground up.
    ("tarvo/crash_context/crash_owner.cpp", "crash_context/text_buffer.h",
     ["tarvo/result.h", "files/file_error.h"]),
    ("tarvo/source/files/file_error.cpp", "tarvo/result.h",
     ["configuration/configuration.h", "host/host_framework.h", "crash_context/text_buffer.h"]),
    ("tarvo/source/configuration/configuration.cpp", "files/file_reading.h",
     ["host/host_framework.h", "services/job_queue.h"]),
    ("tarvo/source/crash_guard/crash_guard.cpp", "crash_path/crash_services.h",
     ["host/host_framework.h", "files/file_reading.h", "linux/linux_crashhandler/capture.h"]),
    ("tarvo/source/host/host.cpp", "crash_guard/crash_guard.h",
     ["crashlog/crash_log.h", "tarvo/report/normalize.h"]),
    # The symbol reader: its pieces do not know the roof, and the indexer not the module.
    ("symbolreader.module/source/files/bundle.cpp", "source.h",
     ["symbol_file_cache.h", "index/index_store.h"]),
    ("symbolreader.module/source/index/index_store.cpp", "index/index_format.h",
     ["symbol_file.h", "indexer_client/indexer_process.h"]),
    ("symbolreader.module/indexer/writing/index_writer.cpp", "index/index_format.h",
     ["symbol_reader.h", "indexer_client/indexer_process.h"]),
    # The toolkit: subcommands do not know each other, nor the command line.
    ("toolkit/report/normalize.cpp", "toolkit/report/report_lines.h",
     ["toolkit/resolve/run.h", "toolkit/show/printer.h"]),
    ("toolkit/triage/page/page.cpp", "toolkit/base/safe_text.h",
     ["toolkit/show/printer.h", "tarvo/report/normalize.h", "toolkit/command_line/command_line.h"]),
    ("toolkit/resolve/run.cpp", "tarvo/report/resolve.h",
     ["toolkit/show/printer.h", "toolkit/pack/pack.h", "command/subcommand.h"]),
    ("toolkit/watch/watch.cpp", "toolkit/resolve/run.h",
     ["toolkit/triage/store/sqlite.h", "command/subcommand.h", "host/host_framework.h"]),
    ("toolkit/show/printer.cpp", "toolkit/report/handler_frames.h",
     ["toolkit/resolve/run.h", "crashlog/crash_log.h"]),
    # Grouping is made of pure functions, and knows neither files nor the database.
    ("toolkit/triage/grouping/fingerprint.cpp", "toolkit/triage/names/name_key.h",
     ["toolkit/triage/reading/read_logs.h", "toolkit/triage/store/sqlite.h", "toolkit/triage/page/page.h"]),
    ("command/resolve_command.cpp", "toolkit/resolve/run.h",
     ["crashlog/base/configuration.h", "host/host_framework.h", "files/file_error.h"]),
    # What packs is behind the door of its library.
    ("command/pack_command.cpp", "toolkit/pack/pack_library.h",
     ["toolkit/pack/archive/archive_writer.h", "toolkit/pack/debug_information/elf_file.h"]),
]


def compiles(command, directory, header):
    """Whether the compiler takes an include of the header, and what it says."""
    with tempfile.NamedTemporaryFile("w", suffix=".cpp") as source:
        source.write(f'#include "{header}"\n')
        source.flush()
        ended = subprocess.run([*command, "-fsyntax-only", source.name], cwd=directory, capture_output=True,
                               text=True, timeout=120, check=False)
    return ended.returncode == 0, ended.stderr


def without_files(words, source):
    """The compiler's command line but for what it reads and writes."""
    kept = []
    skip = False
    for word in words:
        if skip:
            skip = False
        elif word in ("-o", "-MF", "-MT", "-include"):
            skip = True
        elif word not in ("-c", "-MD") and not word.endswith(source):
            kept.append(word)
    return kept


def commands_by_source(compile_commands):
    """How each source is compiled; also those that are compiled as one, by a file that includes them."""
    commands = {}
    for entry in json.loads(pathlib.Path(compile_commands).read_text()):
        file = pathlib.Path(entry["file"])
        sources = re.findall(r'^#include "(.*)"', file.read_text(), re.M) if "Unity" in file.parts else [str(file)]
        for source in sources:
            commands[source] = (without_files(shlex.split(entry["command"]), file.name), entry["directory"])
    return commands


def main():
    commands = commands_by_source(sys.argv[1])
    top = pathlib.Path(sys.argv[2])
    known = subprocess.run(["git", "ls-files", "*.h"], cwd=top, capture_output=True, text=True, check=True).stdout
    failures = []
    tried = 0
    for source, allowed, forbidden in BORDERS:
        command, directory = commands.get(str(top / source), (None, None))
        if command is None:
            if (top / source).exists() and source.startswith("symbolreader"):
                continue  # left out of a build without LLVM
            failures.append(f"{source} is not built")
            continue
        passed, text = compiles(command, directory, allowed)
        if not passed:
            failures.append(f"{source} cannot include {allowed}:\n{text}")
        for header in forbidden:
            tried += 1
            if not re.search(rf"(^|/){re.escape(header)}$", known, re.MULTILINE):
                failures.append(f"{source} would include {header}, which is not there")
            passed, text = compiles(command, directory, header)
            if passed:
                failures.append(f"{source} can include {header}")
            elif f"{header}: No such file" not in text and f"'{header}' file not found" not in text:
                failures.append(f"{source} cannot include {header}, but for another reason:\n{text}")
    for path in subprocess.run(["git", "ls-files", "*.cpp", "*.h"], cwd=top, capture_output=True, text=True,
                               check=True).stdout.split():
        if re.search(r'#include "\.\.', (top / path).read_text()):
            failures.append(f"{path} includes a header by \"..\"")
    print(f"{tried} forbidden includes tried at {len(BORDERS)} borders")
    print("\n".join(failures))
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
