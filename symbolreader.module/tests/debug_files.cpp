#include "debug_files.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <span>
#include <sstream>
#include <utility>

namespace tarvo::symbolreader {
namespace {

namespace fs = std::filesystem;

std::string g_log;

/// What the command writes to standard output, and whether it succeeded.
std::pair<std::string, bool> Shell(const fs::path& directory, std::string_view command) {
  std::string line = "cd '" + directory.string() +
                     "' && PATH=/usr/lib/llvm-19/bin:$PATH SAMPLE='" TEST_DATA
                     "/sample.cpp' && export PATH && " +
                     std::string(command);
  std::FILE* pipe = popen(line.c_str(), "r");
  std::string output;
  char bytes[4096];
  for (std::size_t size; (size = std::fread(bytes, 1, sizeof bytes, pipe)) > 0;)
    output.append(bytes, size);
  return {output, pclose(pipe) == 0};
}

const TemporaryDirectory& Workshop() {
  static const TemporaryDirectory directory;
  return directory;
}

constexpr std::string_view kMachO =
    "build() { clang++ -target $1-apple-macos11 -g -O1 -c $SAMPLE -o $2.o && "
    "ld64.lld -arch $1 -platform_version macos 11 11 -undefined dynamic_lookup $3 -o $2 $2.o && "
    "dsymutil -q $2 -o $2.dSYM; } && ";

}  // namespace

// A unit without an entry (as link-time optimisation leaves them) is in the first two.
const std::vector<Recipe> kRecipes = {
    {"ElfPie", "main.debug", "x86_64", "main", true, 0,
     "g++ -O2 -g -fPIE -pie $SAMPLE " TEST_DATA "/empty_unit.s -o main && "
     "objcopy --only-keep-debug main main.debug"},
    {"ElfFixedWithoutId", "main", "x86_64", "main", true, 0x400000,
     "g++ -O1 -g -no-pie -Wl,--build-id=none $SAMPLE " TEST_DATA "/empty_unit.s -o main"},
    {"ElfArm64", "liba.dsym", "arm64", "liba.so", true, 0,
     "clang++ --target=aarch64-linux-gnu -fPIC -g -O1 -c $SAMPLE -o a.o && "
     "ld.lld -shared --build-id -o liba.so a.o && mkdir liba.dsym && cp liba.so liba.dsym"},
    {"MachOExecutable", "main.dSYM", "x86_64", "main.dSYM/Contents/Resources/DWARF/main", true,
     0x100000000, "build x86_64 main"},
    {"MachOLibrary", "lib.dSYM", "arm64", "lib.dSYM/Contents/Resources/DWARF/lib", true, 0,
     "build arm64 lib -dylib"},
    {"MachOUniversal", "both.dSYM", "arm64",
     "both.dSYM/Contents/Resources/DWARF/both --default-arch=arm64", true, 0x100000000,
     "build x86_64 one && build arm64 two && D=Contents/Resources/DWARF && mkdir -p both.dSYM/$D "
     "&& "
     "llvm-lipo -create one.dSYM/$D/one two.dSYM/$D/two -output both.dSYM/$D/both"},
    {"PePdb", "main.dsym", "x86_64", "main.dsym/main.exe", true, 0x140000000,
     "clang++ -target x86_64-pc-windows-msvc -g -gcodeview -O1 -c $SAMPLE -o w.obj && "
     "mkdir main.dsym && lld-link /debug /subsystem:console /entry:main /nodefaultlib "
     "/out:main.dsym/main.exe w.obj"},
    {"PePdb32", "main.dsym", "i386", "main.dsym/main.exe", true, 0x400000,
     "clang++ -target i686-pc-windows-msvc -g -gcodeview -O1 -c $SAMPLE -o w.obj && "
     "mkdir main.dsym && lld-link /debug /subsystem:console /entry:main /nodefaultlib "
     "/base:0x400000 /out:main.dsym/main.exe w.obj"},
    {"ElfSplit", "main", "x86_64", "main", true, 0,
     "clang++ -O2 -gdwarf-5 -gsplit-dwarf -fPIE -c $SAMPLE -o main.o && clang++ -pie -o main "
     "main.o"},
    {"PeDwarf", "main.exe", "x86_64", "main.exe", true, 0x140000000,
     "clang++ -target x86_64-w64-windows-gnu -gdwarf -O1 -Dmain=Start -c $SAMPLE -o g.o && "
     "ld.lld -m i386pep -e _Z5StartiPPc --subsystem console -o main.exe g.o"},
};

const Recipe kManyUnits = {
    "ElfManyUnits",
    "all",
    "x86_64",
    "all",
    true,
    0,
    "for i in $(seq 40); do { cat $SAMPLE; echo \"int Own$i(int x) { return Plain(x) + $i; }\"; } "
    "| "
    "sed \"s/main/Main$i/; s/Plain/Plain$i/; s/namespace shapes/namespace shapes$i/; "
    "s/shapes::/shapes$i::/g\" > unit$i.cpp; done; echo 'int main() {}' > last.cpp && "
    "clang++ -O2 -gdwarf-5 -fPIC -c unit*.cpp last.cpp && clang++ -o all *.o"};

const Recipe kShared = {
    "ElfShared",
    "a.so",
    "x86_64",
    "plain",
    true,
    0,
    "g++ -O2 -gdwarf-5 -fPIC -c $SAMPLE -o o.o && for n in a b; do g++ -shared -Wl,--build-id "
    "-o $n.so o.o; done && cp a.so plain && dwz -m shared.debug -M shared.debug a.so b.so && "
    "llvm-readelf -S a.so | grep gnu_debugaltlink"};

const Recipe& RecipeNamed(std::string_view name) {
  return *std::ranges::find(kRecipes, name, &Recipe::name);
}

TemporaryDirectory::TemporaryDirectory() {
  std::string path = (fs::temp_directory_path() / "tarvo-symbols-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) std::abort();
  path_ = path;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

fs::path Make(const Recipe& recipe) {
  static std::map<std::string_view, fs::path> made;
  const auto [entry, isNew] = made.try_emplace(recipe.name);
  if (!isNew) return entry->second;
  const fs::path directory = Workshop() / recipe.name;
  fs::create_directory(directory);
  const auto [log, isDone] =
      Shell(directory, "{ " + std::string(kMachO) + std::string(recipe.script) + "; } 2>&1");
  g_log = log;
  if (isDone) entry->second = directory;
  return entry->second;
}

std::string Log() { return g_log; }

std::ostream& operator<<(std::ostream& stream, const Answer& answer) {
  if (!answer.error.empty()) return stream << "error: " << answer.error;
  return stream << answer.function << " at " << answer.file << ":" << answer.line << answer.callers;
}

namespace {

std::string Caller(std::string_view function, std::string_view file, std::int64_t line) {
  std::ostringstream text;
  text << " < " << function << " at " << file << ":" << line;
  return text.str();
}

/// The line "FILE:LINE:COLUMN" behind that of the function, and "??" where one is not known.
void ReadPlace(std::istream& output, Answer& answer) {
  std::string place;
  std::getline(output, place);
  if (answer.function == "??") answer.function.clear();
  place.erase(place.rfind(':'));
  answer.line = std::stoll(place.substr(place.rfind(':') + 1));
  answer.file = place.substr(0, place.rfind(':'));
  if (answer.file == "??") answer.file.clear();
}

}  // namespace

std::map<std::uint64_t, Answer> SymbolizerAnswers(const fs::path& directory,
                                                  std::string_view arguments) {
  const std::string file(arguments.substr(0, arguments.find(' ')));
  const std::size_t slice = arguments.find("arch=");
  const std::string option = slice == std::string_view::npos
                                 ? std::string()
                                 : "--" + std::string(arguments.substr(slice)) + " ";
  const auto sections = Shell(directory, "llvm-objdump -h " + option + file + " 2>&1").first;
  std::map<std::uint64_t, Answer> answers;
  std::istringstream lines(sections);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string number, name, size, address, type;
    if (!(fields >> number >> name >> size >> address >> type) || type != "TEXT") continue;
    const std::uint64_t start = std::stoull(address, nullptr, 16);
    for (std::uint64_t i = 0; i < std::stoull(size, nullptr, 16); ++i) answers[start + i];
  }
  EXPECT_FALSE(answers.empty()) << sections;
  std::ofstream list(directory / "addresses");
  for (const auto& [address, answer] : answers) list << "0x" << std::hex << address << '\n';
  list.close();
  std::istringstream output(
      Shell(directory, "llvm-symbolizer -e " + std::string(arguments) + " < addresses").first);
  for (auto& [address, answer] : answers) {
    std::getline(output, answer.function);
    ReadPlace(output, answer);
    for (Answer caller; std::getline(output, caller.function) && !caller.function.empty();) {
      ReadPlace(output, caller);
      answer.callers += Caller(caller.function, caller.file, caller.line);
    }
  }
  return answers;
}

std::unique_ptr<Host> StartHost(const fs::path& indices, std::vector<std::string> arguments,
                                const std::string& module) {
  arguments.push_back("--g_symbolIndexDirectory=" + indices.string());
  auto host = Host::Start({.arguments = std::move(arguments), .modules = {module}});
  EXPECT_TRUE(host) << host.GetError().Text().View();
  return host ? *std::move(host) : nullptr;
}

Reader BindReader(Host& host) {
  return {*Bind<Symbolification>(host.Services()), *Bind<InlineSymbolification>(host.Services())};
}

namespace {

Answer Failed(const Error& error) {
  return {.function = {}, .file = {}, .error = error.Text().ToStdString()};
}

Answer AskChain(const Reader& reader, const SymbolFileRequest& request, std::uint64_t offset) {
  if (auto loaded = reader.chains->Load(request); !loaded) return Failed(loaded.GetError());
  const auto chain = reader.chains->Resolve(offset);
  if (!chain) return Failed(chain.GetError());
  const SourceFrame& innermost = chain->frames.front();
  Answer answer{
      innermost.function.ToStdString(), innermost.sourceFile.ToStdString(), innermost.line, {}};
  for (const SourceFrame& caller : std::span(chain->frames).subspan(1))
    answer.callers += Caller(caller.function, caller.sourceFile, caller.line);
  return answer;
}

}  // namespace

Answer Ask(const Reader& reader, const fs::path& bundle, std::string_view architecture,
           std::uint64_t offset) {
  const Url file = Url::FromSystemPath(bundle.string());
  const Answer answer = AskChain(reader, {.file = file, .architecture = architecture}, offset);
  Answer plain;
  auto loaded = reader.plain->Load(file, architecture);
  String sourceFile;
  String function;
  if (loaded) loaded = reader.plain->Resolve(offset, sourceFile, plain.line, function);
  if (!loaded) plain.error = loaded.GetError().Text().ToStdString();
  plain.file = sourceFile.ToStdString();
  plain.function = function.ToStdString();
  plain.callers = answer.callers;
  EXPECT_EQ(plain, answer);
  return answer;
}

std::map<std::uint64_t, Answer> Answers(const fs::path& indices, const Recipe& recipe,
                                        const std::map<std::uint64_t, Answer>& addresses,
                                        std::vector<std::string> arguments) {
  const auto host = StartHost(indices, std::move(arguments));
  const auto reader = BindReader(*host);
  std::map<std::uint64_t, Answer> answers;
  for (const auto& [address, ignored] : addresses) {
    Answer answer = Ask(reader, Make(recipe) / recipe.bundle, recipe.architecture, address);
    // The peer has no errors: an address of which nothing is known has no name and no line.
    if (answer.error.starts_with("Nothing is known of the address")) answer.error.clear();
    answers[address] = answer;
  }
  return answers;
}

void WriteFile(const fs::path& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::vector<std::string> ListDirectory(const fs::path& path) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(path, missing))
    names.push_back(entry.path().filename());
  std::ranges::sort(names);
  return names;
}

}  // namespace tarvo::symbolreader
