#!/usr/bin/env bash
# Installs the build into a scratch prefix, builds the README's example against it as a project of its
# own, and runs it: with an argument it works, without one it crashes and leaves a report.
set -euo pipefail
build=$1 source=$2

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$scratch/prefix" >"$scratch/install.log" || { cat "$scratch/install.log"; fail install; }

mkdir "$scratch/example"
# The example as the README shows it.
sed -n '/^```cpp$/,/^```$/p' "$source/README.md" | sed '1d;$d' >"$scratch/example/main.cpp"
cmp "$scratch/example/main.cpp" "$source/examples/embedding/main.cpp" ||
  fail "the README's example is not the one that the build compiles"
cat >"$scratch/example/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(example LANGUAGES CXX)
find_package(tarvo REQUIRED)
add_executable(example main.cpp)
target_link_libraries(example PRIVATE tarvo::host)
END
cmake -S "$scratch/example" -B "$scratch/example/build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$scratch/prefix" -DCMAKE_CXX_FLAGS="${EXAMPLE_FLAGS:-}" >"$scratch/example.log" 2>&1 &&
  cmake --build "$scratch/example/build" >>"$scratch/example.log" 2>&1 ||
  { cat "$scratch/example.log"; fail "the example does not build"; }

cd "$scratch"
status=0
example/build/example argument || status=$?
[[ $status == 100 ]] || fail "the example ended with status $status instead of 100"
status=0
example/build/example --g_crashReportUrl=crash_bugreport.txt || status=$?
[[ $status == 1 ]] || fail "the example's crash ended with status $status instead of 1"
grep -q 'ExceptionText = "SIGFPE"' crash_bugreport.txt || fail "the example's crash left no report"

# The installed programs find the installed modules.
prefix/bin/tarvo config | grep -q g_crashReportUrl || fail "the installed tarvo finds no module"
status=0
prefix/bin/crashdemo --threads 2 --g_crashReportUrl=demo_bugreport.txt >/dev/null || status=$?
[[ $status == 1 ]] || fail "the installed crashdemo ended with status $status"
[[ $(tail -n 1 demo_bugreport.txt) == "}" ]] || fail "the installed crashdemo left no whole report"

# The demo's plug-in is found by the demo, and stands in nobody else's way.
status=0
prefix/bin/crashdemo --kind in-constructor --g_crashReportUrl=plugin_bugreport.txt >/dev/null || status=$?
[[ $status == 1 ]] || fail "the installed crashdemo ended with status $status in its plug-in"
grep -q 'broken_plugin\.so(' plugin_bugreport.txt || fail "the installed crashdemo did not load its plug-in"
[[ -z $(find prefix/lib -maxdepth 1 -name 'broken_plugin*') ]] || fail "the demo's plug-in is among the libraries"

# A program that knows nothing of all this crashes under the installed command.
status=0
prefix/bin/tarvo exec --report exec_bugreport.txt -- sh -c 'kill -SEGV $$' 2>/dev/null || status=$?
[[ $status == 1 ]] || fail "the program under the installed tarvo exec ended with status $status"
[[ $(tail -n 1 exec_bugreport.txt) == "}" ]] || fail "the installed tarvo exec left no whole report"

# No path of the machine that built it.
strings -a prefix/lib/tarvo/modules/crashhandler.so >"$scratch/strings"
! grep -F "$source" "$scratch/strings" || fail "the module names the source directory"
