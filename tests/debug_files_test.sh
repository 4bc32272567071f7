#!/usr/bin/env bash
# `tarvo resolve` without an archive: a program crashes under `tarvo exec`, its debug information lies in one
# place after the other, and the line of the fault has to come out, or the reason why not.
# Usage: debug_files_test.sh TARVO
set -euo pipefail
tarvo=$1
scratch=$(mktemp -d)
server=
trap '[[ -z $server ]] || kill "$server"; rm -rf "$scratch"' EXIT
cd "$scratch"
fail() { echo "FAILED: $*" >&2; [[ -f output ]] && cat output >&2; exit 1; }

export XDG_CACHE_HOME=$scratch/cache HOME=$scratch
unset DEBUGINFOD_URLS
export no_proxy=127.0.0.1 NO_PROXY=127.0.0.1

# crash NAME [OPTION…]: a new program of that name with debug information, and its report NAME_bugreport.txt.
crash() {
  local name=$1
  shift
  mkdir "$name"
  printf '%s\n' 'static void Fault(int *nowhere) {' '  *nowhere = 1;' '}' \
    "int main(void) { Fault(0); return sizeof \"$name\"; }" >"$name/$name.c"
  cc -g -O0 -Wl,--build-id "$@" -o "$name/$name" "$name/$name.c"
  timeout 60 "$tarvo" exec --report "$name/${name}_bugreport.txt" -- "$name/$name" 2>/dev/null && fail "$name: no crash"
  [[ -s $name/${name}_bugreport.txt ]] || fail "$name: no report"
}
build_id() { readelf --notes "$1" | sed -n 's/.*Build ID: //p'; }
# separate NAME FILE: takes the debug information out of the program and into FILE.
separate() {
  mkdir -p "$(dirname "$2")"
  objcopy --only-keep-debug "$1/$1" "$2"
  strip "$1/$1"
}
# resolve NAME [OPTION…]: the document in one line without blanks, in `document`; what was said in `output`.
resolve() {
  local name=$1
  shift
  timeout 120 "$tarvo" resolve "$name/${name}_bugreport.txt" "$@" >output 2>&1 || fail "$name: resolve"
  document=$(tr -d ' \n' <"$name/${name}_bugreport.resolved.json")
}
expect_line() { [[ $document =~ \"FunctionName\":\"Fault\",\"Address\":[0-9]+,(\"Crashed\":true,)?\"SourceFileName\":\"[^\"]*$1.c\",\"SourceLine\":2 ]] ||
  fail "$1: the fault has no line"; }
expect_no_line() { [[ $document != *'"SourceLine":2'* ]] || fail "$1: has a line"; }
expect_said() { grep -qE "$1" output || fail "not said: $1"; }

crash own
resolve own
expect_line own
# Without a build id the file counts where it is not newer than the crash, for each report by itself.
sed '/BuildId_/d' own/own_bugreport.txt >own/now_bugreport.txt
sed 's/CrashTime = 20../CrashTime = 1999/' own/now_bugreport.txt >own/past_bugreport.txt
timeout 120 "$tarvo" resolve own/now_bugreport.txt own/past_bugreport.txt --jobs 1 >output 2>&1
grep -q '"SourceLine": 2' own/now_bugreport.resolved.json || fail "own: no line without a build id"
grep -q '"SourceLine": 2' own/past_bugreport.resolved.json && fail "own: a line of a file that is newer than the crash"

# What comes late is found by --missing-only, and only what is new is looked at.
expect_up_to_date() {
  resolve "$@" --missing-only
  expect_said '^Reports: 0 read.* 1 up to date'
}
# comes PART NAME [OPTION…]: the separate debug file of NAME appears as PART, where another file stood before.
comes() {
  local part=$1
  shift
  resolve "$@"
  expect_no_line "$1"
  expect_up_to_date "$@"
  mkdir -p "$(dirname "$part")"
  head -c 300 late >"$part"
  resolve "$@" --missing-only
  expect_said '^Reports: 1 read'
  expect_no_line "$1"
  expect_up_to_date "$@"
  mv late "$part"
  resolve "$@" --missing-only
  expect_line "$1"
  expect_up_to_date "$@"
}
crash by_id
id=$(build_id by_id/by_id)
separate by_id late
comes "debug/.build-id/${id:0:2}/${id:2}.debug" by_id --debug-directory debug

crash by_link
separate by_link late
objcopy --add-gnu-debuglink=late by_link/by_link
comes by_link/late by_link

# A symbol table gives the name alone, and says that it does.
crash by_symbol
strip --strip-debug by_symbol/by_symbol
resolve by_symbol
[[ $document =~ \"FunctionName\":\"Fault\"[^}]*\"SymbolOffset\":[0-9]+ ]] || fail "no symbol"
expect_no_line by_symbol

# Split debug information and what dwz has made: they come when the index is made already, the first one cut off.
late() {
  local name=$1 part=$2 wrong=$3
  mv "$part" part
  resolve "$name"
  expect_no_chain "$name"
  expect_up_to_date "$name"
  head -c 300 part >"$wrong"
  resolve "$name" --missing-only
  expect_said '^Reports: 1 read'
  expect_no_chain "$name"
  expect_up_to_date "$name"
  mv part "$part"
  resolve "$name" --missing-only
  expect_chain "$name"
  expect_up_to_date "$name"
  [[ $(find cache/tarvo/symbols -newer "$part" -name "$(build_id "$name/$name")*") ]] || fail "$name: no new index"
}
expect_chain() { [[ $document =~ \"FunctionName\":\"Fault\"[^}]*\"InlinedInto\":.[^]]*\"FunctionName\":\"main\" ]] ||
  fail "$1: the inlined function is not named"; }
expect_no_chain() { [[ $document != *'"FunctionName":"Fault"'* && $document == *'"FunctionName":"main"'* ]] ||
  fail "$1: named without its part"; }
crash split -gsplit-dwarf -O2
late split split/split.dwo split/split.dwo
crash shared -O2
cp shared/shared shared/twin
dwz -m shared/common shared/shared shared/twin
late shared shared/common shared/common

# Two commands that nobody has told of a build fit together.
crash packed
"$tarvo" pack --archives newcomer packed/packed >output || fail "packed: pack"
expect_said "^Build: $(build_id packed/packed), the GNU build id of the program$"
strip packed/packed
resolve packed --archives newcomer --archives-only
expect_line packed

# Another build in the same place, in the debug directory and in the archive: never used, and said.
crash replaced
id=$(build_id replaced/replaced)
sed -i '1s/^/\n/' replaced/replaced.c
cc -g -O0 -Wl,--build-id -o replaced/replaced replaced/replaced.c
mkdir -p "other/.build-id/${id:0:2}"
cp replaced/replaced "other/.build-id/${id:0:2}/${id:2}.debug"
"$tarvo" pack --build "$id" --archives archives replaced/replaced >/dev/null
resolve replaced --debug-directory other --archives archives
expect_no_line replaced
expect_said "$(build_id replaced/replaced).*expected $id"
expect_said 'Symbols were looked for in'

# A debuginfod server; nobody is asked before it is named.
if command -v debuginfod >/dev/null; then
  crash served
  separate served served_debug/served.debug
  port=$((20000 + $$ % 20000))
  debuginfod --database=:memory: --port="$port" -F "$scratch/served_debug" >server.log 2>&1 &
  server=$!
  id=$(build_id served/served)
  for ((i = 0; i < 100; ++i)); do
    python3 -c "import sys, urllib.request; urllib.request.urlopen(sys.argv[1])" \
      "http://127.0.0.1:$port/buildid/$id/debuginfo" >/dev/null 2>&1 && break
    sleep 0.1
  done
  resolve served
  expect_no_line served
  expect_said 'DEBUGINFOD_URLS is not set'
  export DEBUGINFOD_URLS=http://127.0.0.1:$port
  resolve served
  expect_line served
  # A server that does not answer is no reason for silence.
  kill "$server"
  wait "$server" 2>/dev/null || true
  server=
  crash unserved
  strip unserved/unserved
  resolve unserved
  expect_no_line unserved
  expect_said '^  debuginfod: debuginfod: '
else
  echo "debuginfod is not installed: not tried"
fi
echo "passed"
