// Packs real ELF files, made here by the compiler and the binutils, with the real program.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "support/program.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;

/// Makes all files that the tests pack. The libraries "separate" was called for are stripped, and
/// have their debug information somewhere else.
constexpr const char* kMakeFiles = R"(
exec 2>&1 && set -e
cat >a.cpp <<end
int Fault(int* p) { return *p; }
int main(int argc, char**) { return argc > 1 ? Fault(nullptr) : 0; }
end
echo 'extern const char path[] __attribute__((section(".interp"))) = "/lib64/ld-linux-x86-64.so.2";' |
  cat a.cpp - >i.cpp
g++ -g a.cpp -o app
g++ -g -no-pie a.cpp -o kernel_app
library() { g++ -g -fPIC -shared -o "$@"; }
library old_program i.cpp
library libstarts.so i.cpp -Wl,-soname,libstarts.so.6
library libshared.so.1.2 a.cpp -Wl,-soname,libshared.so.1
library libescape.so a.cpp -Wl,-soname,../libescape.so
separate() { objcopy --only-keep-debug $1 $2 && strip $1 && objcopy --add-gnu-debuglink=$2 $1; }
mkdir -p .debug "debug$PWD"
for name in beside hidden below wrong other; do
  library lib$name.so a.cpp -Wl,--build-id=$([ $name = other ] && echo 0xab || echo none)
  separate lib$name.so $name.debug
done
mv hidden.debug .debug
echo x >>wrong.debug
library libid.so a.cpp -Wl,--build-id=0xabcdef01 && separate libid.so x.debug
mkdir -p debug/.build-id/ab && mv x.debug debug/.build-id/ab/cdef01.debug
library libother.so a.cpp -Wl,--build-id=0xabcdef02 && separate libother.so other.debug
cp debug/.build-id/ab/cdef01.debug debug/.build-id/ab/cdef02.debug && rm other.debug
# A debug link to a file that holds the code too.
library libbelow.so a.cpp -Wl,--build-id=none && mv libbelow.so "debug$PWD/below.full"
strip "debug$PWD/below.full" -o libbelow.so && (cd "debug$PWD" && objcopy --add-gnu-debuglink=below.full "$OLDPWD/libbelow.so")
g++ -g -c a.cpp -o a.o && ar rc a.a a.o && strip app -o stripped && head -c 9000 app >truncated
mkdir -p Scripting.dSYM/Contents/Resources/DWARF empty.dSYM linked.dSYM/Contents/Resources/DWARF
echo dwarf >Scripting.dSYM/Contents/Resources/DWARF/Scripting && echo plist >Scripting.dSYM/Contents/Info.plist
echo dwarf >linked.dSYM/Contents/Resources/DWARF/x && ln -s /etc/passwd linked.dSYM/up
mkdir twins none && g++ -g -fPIC -shared -DTWIN a.cpp -O1 -o twins/second.so -Wl,-soname,libshared.so.1
mkfifo pipe && : >empty
# Split debug information, in parts and as a package, and what two files share.
mkdir split && cp a.cpp split && (cd split && g++ -g -gsplit-dwarf a.cpp -o parts && mv parts-a.dwo x.dwo)
mkdir -p symbols/deep && mv split/x.dwo symbols/deep/parts-a.dwo
library libone.so a.cpp && library libtwo.so a.cpp -O1 && dwz -m common.dwz libone.so libtwo.so
mkdir dwz && mv common.dwz dwz
# Programs of the two other systems.
clang-19 -target x86_64-pc-windows-msvc -g -gcodeview -c -o w.obj -x c - <<<'int Start(void) { return 0; }'
lld-link-19 /nologo /entry:Start /subsystem:console /nodefaultlib /debug /pdb:win.pdb /out:app.exe w.obj
mkdir pdb && cp win.pdb pdb && rm win.pdb
echo 'int main(void) { return 0; }' >zoom.c && clang-19 -target x86_64-apple-macos12 -g -c zoom.c -o zoom.o
ld64.lld-19 -arch x86_64 -platform_version macos 12 12 -o zoom zoom.o && dsymutil-19 -q zoom -o Zoom.app.dSYM
cp -r Zoom.app.dSYM application.app.dSYM
)";

std::string Content(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class PackTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string pattern = (fs::temp_directory_path() / "tarvo-test-XXXXXX").string();
    // Without links in it, as the program shows the paths of separate files.
    directory_ = fs::canonical(mkdtemp(pattern.data()));
    const ProgramResult made = Shell(kMakeFiles);
    ASSERT_EQ(made.exitStatus, 0) << made.output;
  }
  static void TearDownTestSuite() { fs::remove_all(directory_); }
  void TearDown() override { fs::remove_all(directory_ / "archives"); }

  /// Runs shell commands in the directory of the files; "pack" there packs for the build B12345.
  static ProgramResult Shell(const std::string& commands) {
    return RunProgram({"/bin/bash", "-c",
                       "cd \"$0\"; tarvo() { '" TARVO_PROGRAM "' \"$@\"; }\n"
                       "pack() { tarvo pack --build B12345 --archives archives"
                       " --debug-directory debug \"$@\"; }\n" +
                           commands,
                       directory_.string()},
                      {.timeout = std::chrono::minutes(2)});
  }

  static std::string Size(const fs::path& file) {
    return std::to_string(fs::file_size(directory_ / file));
  }

  static inline fs::path directory_;
};

constexpr const char* kArchive = "archives/B12345_dsym.zip";

TEST_F(PackTest, PacksTheDebugSectionsOfEveryFile) {
  const auto end = Shell(
      "pack libid.so app libshared.so.1.2 libbeside.so libhidden.so libbelow.so Scripting.dSYM/ &&"
      "unzip -q -d out archives/B12345_dsym.zip");
  EXPECT_EQ(end.errors, "");
  const struct {
    std::string bundle;
    std::string source;
    bool isWholeFile;
  } kBundles[] = {
      {"Scripting.dSYM", "Scripting.dSYM", true},
      {"application.app.dsym", "app", false},
      {"libbelow.so.dsym", "debug" + directory_.string() + "/below.full", false},
      {"libbeside.so.dsym", directory_ / "beside.debug", true},
      {"libhidden.so.dsym", directory_ / ".debug/hidden.debug", true},
      {"libid.so.dsym", "debug/.build-id/ab/cdef01.debug", true},
      {"libshared.so.1.dsym", "libshared.so.1.2", false},
  };
  std::string expected;
  for (const auto& [bundle, source, isWholeFile] : kBundles) {
    const bool isDirectory = bundle == "Scripting.dSYM";
    expected += bundle + ": " + (isDirectory ? "12" : Size("out/" + bundle)) + " bytes from " +
                source + '\n';
    if (isDirectory) {
      EXPECT_EQ(Shell("diff -r out/Scripting.dSYM Scripting.dSYM").exitStatus, 0);
      continue;
    }
    if (isWholeFile) {
      EXPECT_EQ(Content(directory_ / "out" / bundle), Content(directory_ / source)) << bundle;
    }
    EXPECT_EQ(Shell("readelf -SW out/" + bundle +
                    " | sed -n 's/.* \\.\\(text\\|data\\|debug_info\\) *\\([A-Z]*\\) .*/\\1 \\2/p'")
                  .output,
              "text NOBITS\ndata NOBITS\ndebug_info PROGBITS\n")
        << bundle;
  }
  EXPECT_EQ(end.output, expected + kArchive + ": " + Size(kArchive) + " bytes, bundles: 7\n");
  fs::remove_all(directory_ / "out");
}

TEST_F(PackTest, ProgramsAreToldFromLibraries) {
  const struct {
    const char* file;
    const char* bundle;
  } kCases[] = {{"app", "application.app.dsym"},
                {"kernel_app", "kernel_app.app.dsym"},
                {"old_program", "application.app.dsym"},
                {"libstarts.so", "libstarts.so.6.dsym"},
                {"twins/second.so", "libshared.so.1.dsym"},
                {"./Scripting.dSYM/",
                 "Scripting.dSYM/\nScripting.dSYM/Contents/\n"
                 "Scripting.dSYM/Contents/Info.plist\n"
                 "Scripting.dSYM/Contents/Resources/\n"
                 "Scripting.dSYM/Contents/Resources/DWARF/\n"
                 "Scripting.dSYM/Contents/Resources/DWARF/Scripting"}};
  for (const auto& [file, bundle] : kCases)
    EXPECT_EQ(Shell(std::string("pack --replace ") + file + " >/dev/null && unzip -Z1 " + kArchive)
                  .output,
              "tarvo-symbols.json\n" + std::string(bundle) + '\n');
}

// What is added keeps what is there; a program that is packed again takes its own place, and files
// come with all their parts.
TEST_F(PackTest, AnArchiveServesProgramsAndPlatforms) {
  const auto end = Shell(
      "add() { pack --debug-directory pdb --debug-directory symbols --debug-directory dwz \"$@\" |"
      "sed 's/: [0-9]* bytes/:/; s/id .*/id …/'; }\n"
      "add app && add app.exe old_program split libone.so 'lib?wo.so' && g++ -g -O2 a.cpp -o app &&"
      "add app && rm -rf out && unzip -q -d out archives/B12345_dsym.zip && cd out && find -type f "
      "|"
      "sort && grep -A2 '\"app.exe\"' tarvo-symbols.json");
  EXPECT_EQ(end.errors, "");
  EXPECT_EQ(end.output, R"(application.app.dsym: from app
archives/B12345_dsym.zip:, bundles: 1
app.exe.dsym: from pdb/win.pdb
libone.so.dsym: from libone.so
libtwo.so.dsym: from libtwo.so
old_program.dsym: from old_program
parts.dsym: from split/parts
application.app.dsym: app for linux, of 4 programs; --application NAME chooses another one
archives/B12345_dsym.zip:, bundles: 6, 1 of them there before
application.app.dsym: from app, in place of another build's, id …
application.app.dsym: app for linux, of 4 programs; --application NAME chooses another one
archives/B12345_dsym.zip:, bundles: 6, 5 of them there before
./app.exe.dsym/app.exe
./app.exe.dsym/win.pdb
./application.app.dsym
./libone.so.dsym/common.dwz
./libone.so.dsym/libone.so
./libtwo.so.dsym/common.dwz
./libtwo.so.dsym/libtwo.so
./old_program.dsym
./parts.dsym/parts
./parts.dsym/parts-a.dwo
./tarvo-symbols.json
   "Module": "app.exe",
   "Platform": "windows",
   "Executable": true,
)");
}

// What is packed later takes a name from what was there before, with all its parts, where it is the
// one for it.
TEST_F(PackTest, NamesFollowFromWhatIsThereAndNotFromWhatCameFirst) {
  const struct {
    const char* options;
    const char* files;
    const char* names;
    const char* said;
  } kCases[] = {
      {"", "split/parts app.exe app kernel_app Zoom.app.dSYM",
       "app.exe.dsym application.app.dsym kernel_app.app.dsym parts.dsym zoom.dsym",
       "application.app.dsym: app for linux, of 4 programs; --application NAME chooses another "
       "one\n"},
      {"--application parts", "split/parts app.exe app libone.so",
       "app.dsym app.exe.dsym application.app.dsym libone.so.dsym", ""},
      {"--application app", "app.exe split/parts", "application.app.dsym parts.dsym", ""},
      {"", "split/parts app application.app.dSYM", "app.dsym application.app.dSYM parts.dsym",
       "application.app.dSYM: zoom for macos, of 3 programs; --application NAME chooses another "
       "one\n"},
  };
  for (const auto& [options, files, names, said] : kCases) {
    const auto end = Shell(std::string("files=(") + files + ")\n" + R"sh(
add() { pack --debug-directory pdb --debug-directory symbols --debug-directory dwz "$@"; }
for order in "${files[*]}" "$(printf '%s\n' "${files[@]}" | tac)" "$(printf '%s\n' "${files[@]}" | sort)"; do
  rm -rf archives
  for file in $order; do add )sh" +
                           options + R"sh( $file >said; done
  add $file >said
  sha256sum archives/*
done | uniq | wc -l
unzip -Z1 archives/* | sed -n 's/\(dsym\|dSYM\).*/\1/ip' | sort -u | paste -sd' '
grep chooses said || :
unzip -p archives/* '*parts-a.dwo' | cmp - symbols/deep/parts-a.dwo)sh");
    EXPECT_EQ(end.output, std::string("1\n") + names + '\n' + said) << end.errors;
  }
}

TEST_F(PackTest, EveryFileThatCannotBePackedIsNamed) {
  constexpr const char* kAnything =
      ", expected an ELF or PE program or library, a separate debug file, a PDB, a dSYM bundle or "
      "a "
      "folder of them.";
  constexpr const char* kDebug =
      "; looked for in …, expected some in it or in a separate debug file.";
  const std::string wrong = (directory_ / "wrong.debug").string();
  const struct {
    std::string file;
    std::string error;
  } kCases[] = {
      {"nothing", std::string("found nothing there") + kAnything},
      {"a.cpp", std::string("found a file of another format") + kAnything},
      {"empty", std::string("found an empty file") + kAnything},
      {"a.a", std::string("found a static library") + kAnything},
      {"none", std::string("found a folder with nothing to pack in it") + kAnything},
      {"a.o", "found an object file, expected a linked program or library."},
      {"split/parts",
       "found debug information of which parts are missing: \"parts-a.dwo\"; looked for in …, "
       "expected all parts."},
      {"libone.so",
       "found debug information of which parts are missing: \"common.dwz\"; looked for in …, "
       "expected all parts."},
      {"app.exe",
       "found no debug information; looked for in …, expected some in it or in its PDB "
       "\"win.pdb\"."},
      {"empty.dSYM", "found no file in Contents/Resources/DWARF, expected a debug file there."},
      {"linked.dSYM",
       "found \"up\" in it, no file and no directory, expected files and directories only."},
      {"stripped", std::string("found no debug information") + kDebug},
      {"libwrong.so",
       "found no debug information, but \"" + wrong + "\" has another checksum" + kDebug},
      {"libother.so",
       "found no debug information, but \"debug/.build-id/ab/cdef02.debug\" has "
       "another build id" +
           std::string(kDebug)},
      {"libescape.so", "found the shared name \"../libescape.so\", expected a name without \"/\"."},
      {".debug/hidden.debug",
       "found a separate debug file, expected the library or program that it belongs to, or "
       "NAME.debug."},
  };
  std::string line = "mkdir archives; echo older >archives/B12345_dsym.zip; pack app ";
  std::string expected;
  for (const auto& [file, error] : kCases) {
    line += file + ' ';
    expected += "tarvo: Cannot pack \"" + file + "\": " + error + '\n';
  }
  const auto end =
      Shell(line +
            "2> >(sed 's/\\(looked for in\\) [^,]*\\(, \"[^,]*\\)*, exp/\\1 …, exp/' >&2); "
            "status=$?; wait; ls -A archives; cat archives/*; exit $status");
  EXPECT_EQ(end.errors, expected + "tarvo: Nothing was packed for \"B12345\".\n");
  EXPECT_EQ(end.output, "B12345_dsym.zip\nolder\n");
  EXPECT_EQ(end.exitStatus, 1);
  const auto twins = Shell("rm -r archives; pack libshared.so.1.2 twins; ls -A archives");
  EXPECT_EQ(twins.errors,
            "tarvo: Cannot pack both \"libshared.so.1.2\" and \"twins/second.so\": they are "
            "libshared.so.1.dsym in the archive.\n");
  EXPECT_EQ(twins.output, "");
  // LLVM's own words follow.
  EXPECT_EQ(Shell("pack truncated").errors.substr(0, 32), "tarvo: Cannot pack \"truncated\": ");
}

TEST_F(PackTest, APipeDoesNotBlock) {
  EXPECT_EQ(Shell("timeout 0.2 cat pipe").exitStatus, 124) << "a reader that waits is ended";
  const auto end = Shell("export -f pack tarvo; timeout 20 bash -c 'pack pipe'");
  EXPECT_EQ(end.exitStatus, 1);
  EXPECT_EQ(end.errors,
            "tarvo: Could not open \"pipe\": It is no regular file\n"
            "tarvo: Nothing was packed for \"B12345\".\n");
}

/// Makes "large", a program with 200 MiB of debug information, which takes no room on the disk.
constexpr const char* kMakeLarge = R"(python3 - <<'end'
import struct
with open("app", "rb") as file:
    program = bytearray(file.read())
headers, = struct.unpack_from("<Q", program, 40)
size, count, names = struct.unpack_from("<HHH", program, 58)
names, = struct.unpack_from("<Q", program, headers + names * size + 24)
for header in range(headers, headers + count * size, size):
    name = names + struct.unpack_from("<I", program, header)[0]
    if program[name:].startswith(b".debug_str\0"):
        struct.pack_into("<QQ", program, header + 24, 1 << 20, 200 << 20)
with open("large", "wb") as file:
    file.write(program)
    file.truncate(201 << 20)
end
)";

// With less memory than it has bytes; the control is what reads it at once. A pack that takes
// longer than it should, for it is stopped for a while, says how far it is.
TEST_F(PackTest, ALargeFileGoesThroughInPiecesAndIsToldOf) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer's own memory is above the limit";
  const auto end = Shell(kMakeLarge + std::string(R"sh(ulimit -d 65536
python3 -c 'open("large", "rb").read()' 2>/dev/null && echo "The control had enough memory."
)sh"
                                                  "'" TARVO_PROGRAM
                                                  "' pack --build B12345 --archives archives large"
                                                  R"sh( >output 2>errors & packer=$!
until [ "$(ls -A archives 2>/dev/null)" ]; do sleep 0.01; done
kill -STOP $packer && sleep 10.5 && kill -CONT $packer
wait $packer || cat errors
grep -c '^application.app.dsym: 2097[0-9]* bytes from large$' output
grep -vE '^tarvo: archives/B12345_dsym.zip: [0-9]{1,3} %$' errors
[ $(wc -l <errors) -ge 1 ] && unzip -tqq archives/B12345_dsym.zip && rm large)sh"));
  EXPECT_EQ(end.output + end.errors, "1\n");
  EXPECT_EQ(end.exitStatus, 0);
}

TEST_F(PackTest, AnArchiveIsReplacedInOneStepOrStays) {
  const struct {
    const char* what;
    const char* commands;
    int status;
    const char* files;
  } kCases[] = {
      {"the same in another order, time zone and place",
       "pack app libid.so && cp archives/B12345_dsym.zip x.zip && rm -r archives && "
       "TZ=Asia/Tokyo LC_ALL=C.UTF-8 pack ./libid.so ../${PWD##*/}/app && sleep 0.1 &&"
       "cmp archives/B12345_dsym.zip x.zip",
       0, "B12345_dsym.zip\n"},
      {"an older one, which is replaced on request alone",
       "mkdir archives; echo older >archives/B12345_dsym.zip; ! pack app && "
       "pack --replace app && unzip -tqq archives/B12345_dsym.zip",
       0, "B12345_dsym.zip\n"},
      {"the same bundles one after the other",
       "pack app libid.so && cp archives/B12345_dsym.zip x.zip && rm -r archives && pack libid.so "
       "&& "
       "pack app && pack libid.so && cmp archives/B12345_dsym.zip x.zip",
       0, "B12345_dsym.zip\n"},
      {"twelve jobs at once, each with a library",
       "for i in {1..12}; do "
       "g++ -g -fPIC -shared a.cpp -o job$i.so & done; wait;"
       "for i in {1..12}; do pack job$i.so >/dev/null & done; wait;"
       "[ $(unzip -Z1 archives/B12345_dsym.zip | grep -c ^job) = 12 ]",
       0, "B12345_dsym.zip\n"},
      {"a disk that is full",
       "pack app; cp archives/B12345_dsym.zip x.zip; trap '' XFSZ; ulimit -f 8; "
       "pack app libid.so libshared.so.1.2; status=$?; "
       "cmp archives/B12345_dsym.zip x.zip && exit $status",
       1, "B12345_dsym.zip\n"},
      {"what a killed packer left, and one that lives",
       "mkdir archives; echo x >archives/.tarvo-pack-killed; echo x >archives/.tarvo-pack-living; "
       "exec 9<archives/.tarvo-pack-living; flock 9; pack app",
       0, ".tarvo-pack-living\nB12345_dsym.zip\n"},
      {"a place that is taken", "mkdir -p archives/B12345_dsym.zip; pack app", 1,
       "B12345_dsym.zip\n"},
      {"a directory that cannot be made", "touch archives; pack app", 1, "archives\n"},
  };
  for (const auto& [what, commands, status, files] : kCases) {
    const auto end = Shell(commands);
    EXPECT_EQ(end.exitStatus, status) << what << '\n' << end.errors;
    EXPECT_EQ(Shell("ls -A archives").output, files) << what;
    fs::remove_all(directory_ / "archives");
  }
}

TEST_F(PackTest, WrongUsage) {
  const auto build = [](const std::string& found, const std::string& proposed) {
    return "--build: found \"" + found +
           "\", expected a name that files can have on all systems, like \"" + proposed + '"';
  };
  const struct {
    const char* arguments;
    std::string error;
  } kCases[] = {
      {"--build '' app", build("", "build")},
      {"--build .. app", build("..", "build")},
      {"--build 'a/b: \"c\"*' app", build("a/b: \"c\"*", "a_b_ _c__")},
      {"--build con.1 app", build("con.1", "build-con.1")},
      {"--build $'a\\n' app", build("a\\x0a", "a_x0a")},
      {"--build $(printf %0300d 7) app", build(std::string(299, '0') + '7', std::string(199, '0'))},
      {"--build b --layout deep app", "--layout: deep not in {flat,hierarchy}"},
      {"--build b", "FILE is required"},
  };
  for (const auto& [arguments, error] : kCases) {
    const auto end = Shell(std::string("tarvo pack --archives archives ") + arguments);
    EXPECT_EQ(end.errors,
              std::string("tarvo: ") + error + "\nRun `tarvo --help` for more information.\n");
    EXPECT_EQ(end.exitStatus, 2);
  }
  for (const auto& [files, found] : {std::pair("app kernel_app", "several programs for Linux"),
                                     std::pair("libid.so", "no program for Linux")}) {
    const auto end =
        Shell(std::string("tarvo pack --debug-directory debug --archives archives ") + files);
    EXPECT_EQ(end.errors, std::string("tarvo: --build is required: found ") + found +
                              " among the files, expected one, whose GNU build id could be the "
                              "build.\n");
    EXPECT_EQ(end.exitStatus, 2);
  }
}

TEST_F(PackTest, TheLookUpFindsWhatIsPacked) {
  const struct {
    std::string layout;
    std::string build;
    std::string place;
  } kCases[] = {
      {"flat", "B12345", "B12345_dsym.zip"},
      {"hierarchy", "B12345", "symbols/345/builds/B12345_dsym.zip"},
      {"hierarchy", "2024.117", "symbols/20247/builds/2024.117_dsym.zip"},
      {"hierarchy", "nightly", "symbols/nightly/builds/nightly_dsym.zip"},  // has no key
  };
  for (const auto& [layout, build, place] : kCases) {
    std::ofstream(directory_ / "x_bugreport.txt")
        << "PALLADO_Crash_Report_LINUX\n{\nApplicationInfo { PALLADO_Version: 16.0\n}\n"
           "Call_Stacks { Call_Stack_Thread_1 {\n"
           "scene: main + 0x10 (SP: 0x1, PC: 0x401136)\n"
           "libshared.so.1: Fault + 0x10 (SP: 0x1, PC: 0x501136)\n"
           "libabsent.so: Fault + 0x10 (SP: 0x1, PC: 0x601136)\n} }\nLoaded_Modules {\n";
    for (const char* module : {"scene", "libshared.so.1", "libabsent.so"})
      std::ofstream(directory_ / "x_bugreport.txt", std::ios::app)
          << "ModuleName = " << module << "\n{\nBaseAddress = 0x400000\nBuild = " << build
          << "\n}\n";
    std::ofstream(directory_ / "x_bugreport.txt", std::ios::app) << "}\n}\n";
    const auto end = Shell("tarvo pack --layout " + layout + " --build " + build +
                           " --archives archives app libshared.so.1.2 >/dev/null\n"
                           "mkdir reports && mv x_bugreport.txt reports\n"
                           "tarvo --module '" CRASHHANDLER_MODULE
                           "' run net.tarvo.execution.crashlogresolve"
                           " --g_crashlogDirectory=reports --g_symbolArchiveDirectory=archives"
                           " --g_symbolTemporaryDirectory=cache >messages 2>&1\n"
                           "sed 's/^[^ ]*: //' messages; (cd archives && find -type f); ls cache/*;"
                           "rm -r reports cache archives");
    // What reads symbols is not loaded: a module whose bundle was found stays at its name.
    EXPECT_EQ(end.output, "main + 0x10 (0x401136)\nFault + 0x10 (0x501136)\nSymbol file cache/" +
                              build + "/libabsent.so.dsym for " + build +
                              " not found.\nReports: 1 found, 1 resolved, 0 failed, 0 skipped\n./" +
                              place +
                              "\napplication.app.dsym\nlibshared.so.1.dsym\n"
                              "tarvo-symbols.json\n")
        << end.errors;
  }
}

}  // namespace
}  // namespace tarvo
