#!/usr/bin/env bash
# Installs the build into a scratch prefix, builds the README's example against what was installed, by CMake and
# by pkg-config, and runs it: with an argument it works, without one it crashes and leaves a report. Then the
# same with the documented module, built by each compiler that is there.
set -euo pipefail
build=$1 source=$2

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$scratch/prefix" >"$scratch/install.log" || { cat "$scratch/install.log"; fail install; }

# Only the SDK's library lies where the linker looks, and run paths lead to it or are none.
cd "$scratch"
[[ $(cd prefix && echo bin/* lib/*.so) == "bin/tarvo lib/libtarvo.so" ]] || fail "$(ls prefix/bin prefix/lib)"
for file in prefix/bin/tarvo prefix/lib/tarvo/*.so prefix/lib/tarvo/modules/*; do
  path=$(readelf --dynamic "$file" | sed -n 's/.*R.*PATH.*\[\(.*\)\]/\1/p')
  [[ -z $path || -e ${path/'$ORIGIN'/$(dirname "$file")}/libtarvo.so.1 ]] || fail "$file has the run path $path"
done

# The example as the README shows it.
installed=$scratch/prefix/share/doc/tarvo/examples
sed -n '/^```cpp$/,/^```$/p' "$source/README.md" | sed '1d;$d' | diff - "$installed/embedding/main.cpp" ||
  fail "the README's example is not the one that the build compiles"
# build_example NAME: the installed sources, as a project of their own.
build_example() {
  cmake -S "$installed/$1" -B "$1" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" -DCMAKE_CXX_FLAGS="-g" >"$1.log" 2>&1 &&
    cmake --build "$1" >>"$1.log" 2>&1 || { cat "$1.log"; fail "$1 does not build"; }
}
build_example embedding
status=0
embedding/embedding argument || status=$?
[[ $status == 100 ]] || fail "the example ended with status $status instead of 100"
status=0
embedding/embedding --g_crashReportUrl=crash_bugreport.txt || status=$?
[[ $status == 1 ]] || fail "the example's crash ended with status $status instead of 1"
grep -q 'ExceptionText = "SIGFPE"' crash_bugreport.txt || fail "the example's crash left no report"

# A program that resolves reports itself gets what the command gives.
build_example resolving
read -ra flags < <(PKG_CONFIG_PATH=$scratch/prefix/lib/pkgconfig pkg-config --cflags --libs tarvo-report)
c++ -std=c++23 "$installed/resolving/main.cpp" -o by_pkg_config "${flags[@]}" ||
  fail "the program that resolves does not build by pkg-config"
[[ ! -e prefix/include/tarvo/report ]] || fail "the SDK's include path reaches what only tarvo::report brings"
mkdir archives by_call by_command
for way in by_call by_command; do cp crash_bugreport.txt $way; done
if [[ -e prefix/lib/tarvo/modules/symbolreader.so ]]; then
  prefix/bin/tarvo pack --build 1.0 --archives archives embedding/embedding >/dev/null ||
    fail "the example cannot be packed"
fi
outcome=$(resolving/resolving archives cache by_call/crash_bugreport.txt --g_crashlogResolveDiagnosticOutput=0) ||
  fail "the program does not resolve its report"
[[ $outcome == by_call/crash_bugreport.resolved.json ]] || fail "the program says \"$outcome\""
prefix/bin/tarvo resolve --quiet --archives-only --archives archives --cache cache by_command || fail "the command does not resolve"
# What the command alone writes: which file and archives its document was made of, and addresses as texts.
sed -i '/^  "Outcome": {$/,/^  },$/d' by_command/*.json
sed -i -z 's/,\n *"AddressText": "[^"]*"//g' by_command/*.json
diff -r by_call by_command || fail "the program and the command resolve differently"
if [[ -e prefix/lib/tarvo/modules/symbolreader.so ]]; then
  line=$(grep -n 'return 100 / divisor' "$installed/embedding/main.cpp" | cut -d : -f 1)
  lines=$(grep -A 1 '"SourceFileName": ".*/embedding/main.cpp"' by_call/crash_bugreport.resolved.json || true)
  [[ $lines == *"\"SourceLine\": $line"* ]] || fail "the crash is not resolved to line $line of the example"
fi

# The installed programs find the installed modules.
[[ $(prefix/bin/tarvo config) == *g_crashReportUrl* ]] || fail "the installed tarvo finds no module"

# The module of docs/modules.md, which the page shows to the letter.
module=$source/examples/module
sed -n '/^```[a-z]/,/^```$/p' "$source/docs/modules.md" | grep -v '^```' >shown
cat "$module"/{CMakeLists.txt,hello.h,greeter.cpp,job.cpp} | diff - shown ||
  fail "the module in docs/modules.md is not the one that is built"
for compiler in c++ clang++-19; do
  path=$(command -v $compiler) || { echo "SKIPPED: the module with $compiler, which is not there"; continue; }
  cmake -S "$module" -B module -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" --fresh \
    -DCMAKE_CXX_COMPILER="$path" >module.log 2>&1 && cmake --build module --clean-first >>module.log 2>&1 ||
    { cat module.log; fail "the module does not build with $compiler"; }
  exported=$(nm --dynamic --defined-only module/hello.so | awk '{print $3}' | sort | tr '\n' ' ')
  [[ $exported == "g_CpuYieldDelegate g_tarvo " ]] || fail "the module exports $exported"
  said=$(prefix/bin/tarvo --module module/hello.so run org.example.execution.hello --g_helloName=you)
  [[ $said == *"Hello, you!"* ]] || fail "the module that $compiler built said \"$said\""
done
cmake --install module >>module.log
[[ $'\n'$(prefix/bin/tarvo config)$'\n' == *$'\norg.example.hello\n'* ]] || fail "the installed module is not loaded"

# The program of docs/embedding.md, which the page shows to the letter: its steps as they stand there, then
# its report with the archive alone.
viewer=$source/examples/viewer
sed -n '/^```c[a-z]*$/,/^```$/p' "$source/docs/embedding.md" | grep -v '^```' >shown
cat "$viewer"/{CMakeLists.txt,scene.h,scene.cpp,viewer.cpp} | diff - shown ||
  fail "the program in docs/embedding.md is not the one that is built"
mkdir page
cp -r "$viewer" page/viewer
sed -n '/^```sh$/,/^```$/p' "$source/docs/embedding.md" | grep -v '^```' >page/steps
(cd page && PREFIX=$scratch/prefix PATH=$scratch/prefix/bin:$PATH CMAKE_GENERATOR=Ninja bash -euo pipefail steps) \
  >page.log 2>&1 || { cat page.log; fail "a step of docs/embedding.md fails"; }
grep -q '^ended with status 1$' page.log || { cat page.log; fail "the page's program did not end with status 1"; }
if [[ -e prefix/lib/tarvo/modules/symbolreader.so ]]; then
  grep -q 'WidthOf(Node const\*, int).*scene.cpp:6' page.log ||
    { cat page.log; fail "docs/embedding.md does not lead to the line of the crash"; }
  rm -r page/app page/build page/symbols
  (cd page && ../prefix/bin/tarvo resolve --quiet --archives-only --archives archives --cache cache viewer-*_bugreport.txt)
  grep -q '"FunctionName": "WidthOf(Node const\*, int)"' page/viewer-*_bugreport.resolved.json ||
    fail "the library's frame is not resolved by the archive of the build"
fi

# What the header shows of the example of callbacks is what runs there.
header=$source/tarvo/include/tarvo/crash_callbacks.h
callback() { sed -n '/^struct Session/,/^}$/p' "$@" | tr -s '[:space:]' ' '; }
[[ $(callback "$source/examples/callbacks/main.cpp") == "$(sed -n 's|^///||p' "$header" | sed 's/^     //' | callback)" ]] ||
  fail "the callback in crash_callbacks.h is not the one of examples/callbacks"
build_example callbacks
status=0
callbacks/callbacks callbacks.said --g_crashReportUrl=callbacks_bugreport.txt || status=$?
[[ $status == 1 && $(cat callbacks.said) == "city.scene was open; the report is $scratch/callbacks_bugreport.txt" ]] ||
  fail "the callback of examples/callbacks left \"$(cat callbacks.said)\""

# The package raises nobody's standard: C, and C++ of the version that the headers ask for.
mkdir standards
cat >standards/CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(standards LANGUAGES C CXX)
find_package(tarvo REQUIRED)
foreach(standard 17 20)
  add_executable(cxx${standard} cxx${standard}.cpp)
  set_target_properties(cxx${standard} PROPERTIES CXX_STANDARD ${standard} CXX_STANDARD_REQUIRED ON)
  target_compile_definitions(cxx${standard} PRIVATE STANDARD=${standard})
  target_link_libraries(cxx${standard} PRIVATE tarvo::host)
endforeach()
add_executable(c11 c11.c)
target_compile_options(c11 PRIVATE -std=c11 -Wall -Wextra -Wpedantic -Werror)
target_link_libraries(c11 PRIVATE tarvo::host)
END
cat >standards/c11.c <<'END'
#include "tarvo/host/tarvo.h"
int main(void) { return tarvo_start(0, 0, 0) + tarvo_set_thread_variable("Name", "value"); }
END
echo 'static_assert(__cplusplus / 100 == 2000 + STANDARD, "raised");' | tee standards/cxx17.cpp >standards/cxx20.cpp
cat standards/c11.c | sed 's/main(void)/main()/' >>standards/cxx17.cpp
cat "$source/examples/embedding/main.cpp" >>standards/cxx20.cpp
cmake -S standards -B standards/build -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" >standards.log 2>&1 &&
  cmake --build standards/build >>standards.log 2>&1 ||
  { cat standards.log; fail "a program of another standard does not build"; }
standards/build/c11 || fail "the program in C ended with status $?"

# A program that knows nothing of all this crashes under the installed command.
status=0
prefix/bin/tarvo exec --report exec_bugreport.txt -- sh -c 'kill -SEGV $$' 2>/dev/null || status=$?
[[ $status == 1 ]] || fail "the program under the installed tarvo exec ended with status $status"
[[ $(tail -n 1 exec_bugreport.txt) == "}" ]] || fail "the installed tarvo exec left no whole report"

# No path of the machine that built it.
strings -a prefix/lib/tarvo/modules/crashhandler.so >"$scratch/strings"
! grep -F "$source" "$scratch/strings" || fail "the module names the source directory"
