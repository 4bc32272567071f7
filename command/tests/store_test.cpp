// Looks after archives with the real program: symbols of three systems, whole, without their parts,
// of others and from strangers.

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <utility>

#include "support/files.h"
#include "support/program.h"
#include "support/zip_builder.h"

namespace tarvo {
namespace {

/// Archives: "whole_dsym.zip" of the build, "parts_dsym.zip" the same without what belongs to its
/// files, and "hostile_dsym.zip"; and a report of each system.
constexpr const char* kMakeStore = R"sh(
exec 2>&1 && set -e
cat >scene.cpp <<'end'
static inline __attribute__((always_inline)) int Depth(int* p) { return *p * 3; }
extern "C" int Render(int* p) { return Depth(p) + 1; }
extern "C" int Start() { return Render(nullptr); }
int main() { return 0; }
end
id() { echo -Wl,--build-id=0x$(printf "%02d" {1..19})$1; }
g++ -g -O1 -no-pie $(id aa) scene.cpp -o scene
g++ -g -O1 -gsplit-dwarf $(id bb) scene.cpp -o split
for i in c d; do g++ -g -O1 -fPIC -shared $(id $i$i) scene.cpp -o lib$i.so; done && dwz -m common lib[cd].so
clang-19 -target x86_64-pc-windows-msvc -g -gcodeview -O1 -c -x c++ scene.cpp -o scene.obj
lld-link-19 /nologo /entry:Start /subsystem:console /nodefaultlib /debug /out:scene.exe scene.obj
clang-19 -target x86_64-apple-macos12 -g -O1 -c -x c++ scene.cpp -o scene.o
ld64.lld-19 -arch x86_64 -platform_version macos 12 12 -o mac scene.o && dsymutil-19 -q mac -o Scene.app.dSYM
tarvo pack --build whole --archives archives scene split lib[cd].so scene.exe Scene.app.dSYM
mkdir parts && unzip -q -d parts archives/whole_dsym.zip && rm parts/*/*.{dwo,pdb} parts/*/common
cp parts/scene.dsym parts/extra.dsym && head -c 500 parts/extra.dsym >parts/zoom.dsym
printf '\xab' | dd of=parts/scene.dsym bs=1 conv=notrunc seek=$(grep -abo $'\x18\x19\xaa' parts/scene.dsym | cut -d: -f1 | awk '{ print $1 + 2 }') status=none
(cd parts && zip -qr ../archives/parts_dsym.zip .)
report() { cat <<end
PALLADO_Crash_Report_$1
{
ApplicationInfo { PALLADO_Version: 16.0
}
ComputerInfo { OS_Type = $2
}
Call_Stacks { Call_Stack_Thread_1 {
$3: Render + 0x0 (SP: 0x1, PC: 0x401010)
libc.so.6: abort + 0x0 (SP: 0x1, PC: 0x501010)
} }
Loaded_Modules {
ModuleName = $3
{
BaseAddress = 0x400000
Build = $4
}
ModuleName = libc.so.6
{
BaseAddress = 0x500000
}
}
}
end
}
mkdir reports
report LINUX linux scene whole >reports/linux_bugreport.txt
report MACOS 'macos 14' mac whole >reports/macos_bugreport.txt
report WINDOWS 'windows 11' Scene.EXE whole >reports/windows_bugreport.txt
report LINUX linux other whole >other_bugreport.txt
report LINUX linux scene late >late_bugreport.txt
mkdir hostile empty && head -c 900 archives/whole_dsym.zip >cut_dsym.zip
)sh";

class StoreTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = std::make_unique<TemporaryDirectory>();
    const auto made = Shell(kMakeStore);
    ASSERT_EQ(made.exitStatus, 0) << made.output;
    std::ofstream(*folder_ / "hostile/whole_dsym.zip", std::ios::binary)
        << ZipBuilder()
               .Add({"tarvo-symbols.json",
                     R"({"Bundles": [{"Bundle": "../../scene", "Module": "scene"}, {"Bundle": 7},)"
                     R"({"Bundle": "b\u001b[31m.dsym", "Module": "scene", "Platform": "linux"}]})"})
               .Add({"b\x1b[31m.dsym", "no debug file"})
               .Finish();
  }
  static void TearDownTestSuite() { folder_.reset(); }

  /// "resolve" there resolves all reports with a cache and indices of its own, "age" makes these
  /// forty days old.
  static ProgramResult Shell(const std::string& commands) {
    return RunProgram({"/bin/bash", "-c", "cd \"$0\"; TARVO='" TARVO_PROGRAM R"sh('
tarvo() { "$TARVO" "$@"; }
resolve() {
  tarvo resolve reports --archives archives --archives-only --cache cache --g_symbolIndexDirectory="$PWD/index" "$@"
}
age() { find cache index -depth -exec touch -d '40 days ago' {} +; }
)sh" + commands,
                       (*folder_ / "").string()},
                      {.timeout = std::chrono::minutes(4)});
  }

  static inline std::unique_ptr<TemporaryDirectory> folder_;
};

/// Sizes, days, and the ids that linkers of other systems choose.
std::string WithoutChance(std::string text) {
  for (const auto& [pattern, name] :
       {std::pair("[0-9.]+ k?B\\b", "SIZE"), std::pair("\\d{4}-\\d\\d-\\d\\d( +|\")", "DAY$1"),
        std::pair("DAY +", "DAY "), std::pair("\\b[0-9a-f]{32,33}\\b", "ID"),
        std::pair("-v\\d+\\.index", "-vN.index")})
    text = std::regex_replace(text, std::regex(pattern), name);
  return text;
}

TEST_F(StoreTest, TellsWhatIsInArchivesAndWhomTheyServe) {
  const struct {
    const char* arguments;
    int status;
    const char* output;
    const char* errors;
  } kCases[] = {
      {"check archives/whole_dsym.zip reports late_bugreport.txt", 0,
       R"(archives/whole_dsym.zip: 6 bundles
  application.app.dsym: Mach-O for macos x86_64, id ID, 3 functions, 12 lines, 2 inlined
  libc.so.dsym: ELF for linux x86_64, id 01020304050607080910111213141516171819cc, 3 functions, 15 lines, 1 inlined, with a shared part
  libd.so.dsym: ELF for linux x86_64, id 01020304050607080910111213141516171819dd, 3 functions, 15 lines, 1 inlined, with a shared part
  scene.dsym: ELF for linux x86_64, id 01020304050607080910111213141516171819aa, 3 functions, 20 lines, 3 inlined
  scene.exe.dsym: PE for windows x86_64, id ID, 2 functions, 3 lines, 1 inlined, PDB scene.pdb
  split.dsym: ELF for linux x86_64, id 01020304050607080910111213141516171819bb, 3 functions, 20 lines, 3 inlined, split
late_bugreport.txt:
  scene: no: no archive of build late
  libc.so.6: no: no archive of build late
reports/linux_bugreport.txt:
  scene: yes, scene.dsym
  libc.so.6: no: no bundle of it
reports/macos_bugreport.txt:
  mac: yes, application.app.dsym
  libc.so.6: no: no bundle of it
reports/windows_bugreport.txt:
  Scene.EXE: yes, scene.exe.dsym
  libc.so.6: no: no bundle of it
)",
       ""},
      // What belongs to the files is where they were made, and not in the archive.
      {"check archives/parts_dsym.zip", 1, R"(archives/parts_dsym.zip: 8 bundles
  application.app.dsym: Mach-O for macos x86_64, id ID, 3 functions, 12 lines, 2 inlined
  extra.dsym: ELF for linux x86_64, id 01020304050607080910111213141516171819aa, 3 functions, 20 lines, 3 inlined
  libc.so.dsym: ELF for linux x86_64, id 01020304050607080910111213141516171819cc, 3 functions, 15 lines, 1 inlined, with a shared part
    wrong: missing: common
  libd.so.dsym: ELF for linux x86_64, id 01020304050607080910111213141516171819dd, 3 functions, 15 lines, 1 inlined, with a shared part
    wrong: missing: common
  scene.dsym: ELF for linux x86_64, id 01020304050607080910111213141516171819ab, 3 functions, 20 lines, 3 inlined
    wrong: of another build or processor than the manifest says
  scene.exe.dsym: PE for windows x86_64, id ID, PDB scene.pdb
    wrong: missing: scene.pdb
  split.dsym: ELF for linux x86_64, id 01020304050607080910111213141516171819bb, 0 functions, 20 lines, 0 inlined, split
    wrong: no functions or no lines
    wrong: missing: split-scene.dwo
  zoom.dsym
    wrong: no debug file that can be read
)",
       ""},
      {"check --json hostile cut_dsym.zip other_bugreport.txt", 1, R"({
  "IsGood": false,
  "Archives": [
    {
      "Archive": "hostile/whole_dsym.zip",
      "Bundles": [
        {
          "Bundle": "b\u001b[31m.dsym",
          "Module": "scene",
          "Problems": [
            "no debug file that can be read"
          ]
        },
        {
          "Bundle": "../../scene",
          "Module": "scene",
          "Problems": [
            "told by the manifest, and not there"
          ]
        }
      ]
    }
  ],
  "Reports": [
    {
      "Report": "other_bugreport.txt",
      "Modules": [
        {
          "Module": "other",
          "Build": "whole",
          "IsServed": false,
          "Reason": "no bundle of it"
        },
        {
          "Module": "libc.so.6",
          "Build": "",
          "IsServed": false,
          "Reason": "no bundle of it"
        }
      ]
    }
  ],
  "Failures": [
    {
      "File": "cut_dsym.zip",
      "Error": "Could not extract \"cut_dsym.zip\": the archive is cut off: its directory, which stands at its end, is missing or damaged"
    }
  ]
}
)",
       "tarvo: Could not extract \"cut_dsym.zip\": the archive is cut off: its directory, which "
       "stands at its end, is missing or damaged\n"},
      {"check hostile", 1,
       "hostile/whole_dsym.zip: 2 bundles\n  b\\x1b[31m.dsym\n    wrong: no debug file that can be "
       "read\n  ../../scene\n    wrong: told by the manifest, and not there\n",
       ""},
      {"check empty", 1, "",
       "tarvo: Nothing to check: found neither archives (*_dsym.zip) nor reports "
       "(*_bugreport.txt).\n"},
      {"list archives . empty", 1, R"(cut    DAY SIZE  no whole archive  ./cut_dsym.zip
parts  DAY SIZE  ?, linux x86_64, macos x86_64, windows x86_64  archives/parts_dsym.zip
parts  DAY SIZE  ?, linux x86_64, macos x86_64, windows x86_64  ./archives/parts_dsym.zip
whole  DAY SIZE  linux x86_64, macos x86_64, windows x86_64  archives/whole_dsym.zip
whole  DAY SIZE  linux x86_64, macos x86_64, windows x86_64  ./archives/whole_dsym.zip
whole  DAY SIZE  linux  ./hostile/whole_dsym.zip
Archives: 6, SIZE
)",
       ""},
      {"list --json hostile", 0, R"({
  "Archives": [
    {
      "Build": "whole",
      "File": "hostile/whole_dsym.zip",
      "Size": 390,
      "Day": "DAY",
      "Systems": [
        "linux"
      ],
      "Bundles": [
        "b\u001b[31m.dsym"
      ]
    }
  ]
}
)",
       ""},
      {"list nothing", 2, "", "tarvo: The archive directory \"nothing\" is no directory.\n"},
  };
  for (const auto& [arguments, status, output, errors] : kCases) {
    const auto end = Shell(std::string("tarvo ") + arguments);
    EXPECT_EQ(WithoutChance(end.output), output) << arguments;
    EXPECT_EQ(end.errors, errors) << arguments;
    EXPECT_EQ(end.exitStatus, status) << arguments;
  }
}

// Only what is not used goes, and of that only what this program has made.
TEST_F(StoreTest, ClearsAwayWhatIsNotUsed) {
  constexpr const char* kAll =
      "cache:\n.tarvo-archive-whole\n.tarvo-retired-1-0\nmine\nwhole\n\nindex:\n"
      "01020304050607080910111213141516171819aa-x86_64-vN.index\nID-x86_64-vN.index\n"
      "ID-x86_64-vN.index\nmine\nx.1-0.tmp\n";
  const std::string kNone = "cache:\nmine\n\nindex:\nmine\n";
  const struct {
    const char* commands;
    std::string reason;  ///< why what is not used goes; empty: it stays
    std::string said;
    std::string left;
  } kCases[] = {
      {"tarvo prune --unused 0", "", "Cleared", kAll},
      {"age; tarvo prune --dry-run", "not used for 40 days", "Would clear", kAll},
      {"age; tarvo prune --unused 100 --size 0", "over the size", "Cleared", kNone},
      {"age; tarvo prune", "not used for 40 days", "Cleared", kNone},
  };
  for (const auto& [commands, reason, said, left] : kCases) {
    const auto end = Shell(std::string("resolve --quiet; mkdir cache/{mine,.tarvo-retired-1-0};"
                                       "touch index/{mine,x.1-0.tmp};") +
                           commands +
                           " --cache cache --indices index | sort -k3 | sed 's/^ *//';"
                           "ls -A cache index; rm -r cache index");
    std::string expected;
    for (const char* item :
         {"cache/whole", "index/01020304050607080910111213141516171819aa-x86_64-vN.index",
          "index/ID-x86_64-vN.index", "index/ID-x86_64-vN.index"})
      if (!reason.empty()) expected += "SIZE  " + std::string(item) + ": " + reason + '\n';
    if (!reason.empty())
      expected = "SIZE  cache/.tarvo-retired-1-0: left over\n" + expected +
                 "SIZE  index/x.1-0.tmp: left over\n";
    EXPECT_EQ(WithoutChance(end.output), expected + said + ": SIZE; kept: SIZE\n" + left)
        << commands << end.errors;
  }
}

// A resolve that comes while the cache is being cleared away resolves all that there is.
TEST_F(StoreTest, PrunesBesideResolves) {
  const auto end = Shell(R"sh(
resolve | grep Frames
for round in {1..12}; do
  age
  resolve | grep Frames &
  for i in 1 2 3; do tarvo prune --cache cache --indices index >>pruned; done
  wait
done | uniq -c
[ $(grep -c cache/whole: pruned) -gt 0 ] && ls -A cache)sh");
  const std::string kFrames = "Frames:  6, 2 resolved (33.3 %)\n";
  EXPECT_EQ(end.output, kFrames + "     12 " + kFrames + ".tarvo-archive-whole\nwhole\n");
}

TEST_F(StoreTest, APackThatIsKilledLeavesNothing) {
  const auto end = Shell(R"sh(
mkdir -p store big.dSYM/Contents/Resources/DWARF && head -c 60000000 /dev/urandom >big.dSYM/Contents/Resources/DWARF/big
tarvo pack --build b --archives store scene >/dev/null && cp store/b_dsym.zip before
"$TARVO" pack --build b --archives store split big.dSYM >/dev/null & packer=$!
until compgen -G 'store/.tarvo-pack-*/archive.zip*' >/dev/null; do sleep 0.01; done
kill -9 $packer; wait $packer; echo $?
cmp store/b_dsym.zip before && ls -A store | wc -l
tarvo pack --build b --archives store lib[cd].so >/dev/null && ls -A store
unzip -Z1 store/b_dsym.zip | grep -c 'dsym/*$'; unzip -tqq store/b_dsym.zip; rm -r store big.dSYM)sh");
  EXPECT_EQ(end.output, "137\n3\nb_dsym.zip\n3\n") << end.errors;
}

}  // namespace
}  // namespace tarvo
