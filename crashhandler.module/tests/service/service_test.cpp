// The module as a program meets it: loaded by a host, used through the framework's interfaces.

#include <gtest/gtest.h>
#include <link.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tarvo/crashhandler.h"
#include "tarvo/host/host.h"
#include "tarvo/symbolification.h"

namespace tarvo {
namespace {

constexpr std::string_view kMainSource = "crashhandler.module/source/main";

std::unique_ptr<Host> StartHost(std::vector<std::string> arguments = {}) {
  auto host = Host::Start({.arguments = std::move(arguments), .modules = {CRASHHANDLER_MODULE}});
  EXPECT_TRUE(host) << host.GetError().Text().View();
  return host ? *std::move(host) : nullptr;
}

/// A directory of this test's own.
class Service : public testing::Test {
 protected:
  void SetUp() override {
    std::string path = (std::filesystem::temp_directory_path() / "tarvo-service-XXXXXX").string();
    ASSERT_NE(mkdtemp(path.data()), nullptr);
    directory_ = path;
    host_ = StartHost();
    ASSERT_NE(host_, nullptr);
    handler_ = *Bind<CrashHandler>(host_->Services());
  }
  void TearDown() override {
    handler_ = nullptr;
    host_.reset();
    std::filesystem::remove_all(directory_);
  }

  std::filesystem::path directory_;
  std::unique_ptr<Host> host_;
  Ref<CrashHandler> handler_;
};

TEST_F(Service, CrashDataDirectoryReachesObserversOrSaysWhyNot) {
  std::vector<std::string> observed;
  const Ref<Observable> observable = handler_->ObservableCrashDataDirectory();
  ASSERT_TRUE(observable);
  ASSERT_TRUE(observable->Add([&](const DataValue& value) -> Result<void> {
    observed.emplace_back(value.As<Url>()->SystemPath().View());
    return {};
  }));
  std::ofstream(directory_ / "file") << "text";
  const std::string existing = directory_.string();
  const std::string missing = (directory_ / "a/b/c").string();
  const std::string file = (directory_ / "file").string();
  struct Case {
    std::string path;
    std::string_view errorClass;  ///< empty for success
    std::string_view message;
  };
  for (const Case& test :
       {Case{"", Error::kIllegalArgument, "dataDirectory is empty."}, Case{existing, "", ""},
        Case{missing, "", ""}, Case{file, Error::kIllegalState, "Could not create directory."}}) {
    const Result<void> set = handler_->SetCrashDataDirectory(Url::FromSystemPath(test.path));
    EXPECT_EQ(static_cast<bool>(set), test.errorClass.empty()) << test.path;
    if (set) continue;
    EXPECT_EQ(set.GetError().ClassId(), test.errorClass);
    EXPECT_EQ(set.GetError().Message(), test.message);
    EXPECT_EQ(set.GetError().Where().path, kMainSource);
  }
  EXPECT_TRUE(std::filesystem::is_directory(missing));
  EXPECT_EQ(observed, (std::vector<std::string>{existing, missing}));

  // An observer's error comes back to the caller; a creation that fails, with the file's name.
  ASSERT_TRUE(observable->Add([](const DataValue&) -> Result<void> {
    return Error::Plain(SourceLocation{"observer", 1}, "no space");
  }));
  const Result<void> refused = handler_->SetCrashDataDirectory(Url::FromSystemPath(existing));
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.GetError().Message(), "no space");
  const Result<void> impossible =
      handler_->SetCrashDataDirectory(Url::FromSystemPath(file + "/below"));
  ASSERT_FALSE(impossible);
  EXPECT_EQ(impossible.GetError().ClassId(), Error::kFile);
}

// A program may hold the handler and the observable longer than its host.
TEST_F(Service, NothingOutlivesTheHost) {
  const Ref<Observable> observable = handler_->ObservableCrashDataDirectory();
  EXPECT_EQ(observable->Name(), "ObservableCrashDataDirectory");
  bool isTold = false;
  const auto observer = [&](const DataValue&) -> Result<void> {
    isTold = true;
    return {};
  };
  ASSERT_TRUE(observable->Add(observer));
  host_.reset();
  EXPECT_FALSE(handler_->ObservableCrashDataDirectory());
  EXPECT_FALSE(handler_->SetCallback(nullptr));
  EXPECT_FALSE(handler_->SetSecondaryCallback(nullptr));
  testing::internal::CaptureStderr();
  handler_->DisplayCrashDialog("title", "message");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  std::vector<LoadedModule> modules;
  const Url url = Url::FromSystemPath(directory_.string());
  for (const Result<void>& result :
       {handler_->SetCrashDataDirectory(url), handler_->GetProcessModules(modules),
        handler_->ResolveBugReport(url, url, url)}) {
    ASSERT_FALSE(result);
    EXPECT_EQ(result.GetError().ClassId(), Error::kIllegalState);
    EXPECT_EQ(result.GetError().Where().path, kMainSource);
  }
  EXPECT_TRUE(modules.empty());
  EXPECT_EQ(observable->Add(observer).GetError().ClassId(), Error::kIllegalState);
  EXPECT_TRUE(observable->Notify(1));
  EXPECT_FALSE(isTold);
}

TEST_F(Service, ProcessModulesAreTheLoadersList) {
  std::vector<LoadedModule> modules;
  ASSERT_TRUE(handler_->GetProcessModules(modules));
  std::vector<LoadedModule> expected;
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* list) {
        std::uint64_t size = 0;
        for (int i = 0; i < info->dlpi_phnum; ++i) size += info->dlpi_phdr[i].p_filesz;
        static_cast<std::vector<LoadedModule>*>(list)->push_back(
            {info->dlpi_name, info->dlpi_addr, size});
        return 0;
      },
      &expected);
  ASSERT_EQ(modules.size(), expected.size());
  for (std::size_t i = 0; i < modules.size(); ++i) {
    EXPECT_EQ(modules[i].path, expected[i].path);
    EXPECT_EQ(modules[i].baseAddress, expected[i].baseAddress);
    EXPECT_EQ(modules[i].size, expected[i].size);
  }
}

TEST_F(Service, DialogIsADiagnosticLine) {
  testing::internal::CaptureStderr();
  handler_->DisplayCrashDialog("Oops", "50% @ done");
  const std::string line = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(line.starts_with("crashhandler.module/source/linux/linux_crashhandler:")) << line;
  EXPECT_TRUE(
      line.ends_with(": Entered DisplayCrashHandlerDialog with title=Oops and "
                     "message=50% @ done\n"))
      << line;
}

TEST_F(Service, SymbolificationSaysNotSupported) {
  const SymbolificationRef symbols = *Bind<Symbolification>(host_->Services());
  String file = "kept";
  std::int64_t line = 7;
  String function = "kept too";
  for (const Result<void>& result : {symbols->Resolve(16, file, line, function),
                                     symbols->Load(Url::FromSystemPath("/x"), "x86_64"),
                                     symbols->Resolve(16, file, line, function)}) {
    ASSERT_FALSE(result);
    EXPECT_EQ(result.GetError().ClassId(), Error::kIllegalState);
    EXPECT_EQ(result.GetError().Message(), "Not supported");
    EXPECT_EQ(result.GetError().Where().path, "crashhandler.module/source/symbolification_impl");
  }
  EXPECT_EQ(file, "kept");
  EXPECT_EQ(line, 7);
  EXPECT_EQ(function, "kept too");
}

TEST_F(Service, RegistersWhatItBrings) {
  std::string listing;
  for (const ConfigurationEntry& entry : host_->ConfigurationEntries())
    if (entry.owner == "net.tarvo.crashhandler")
      listing += entry.name + "|" + entry.kind + "|" + entry.fallback + "|" + entry.range + "|" +
                 entry.help + "\n";
  EXPECT_EQ(listing,
            "g_crashlogResolveDiagnosticOutput|Int|1|0 to 2|Output for resolved crash log (0: none "
            "1: errors only, 2: dump resolved crash log)\n"
            "g_optimizeSymbolFileSearch|Bool|true||True: Expect symbol files to be stored in a two "
            "directory hierarchy. False: Use slow recursive search.\n"
            "g_crashlogDirectory|String|||url to directory containing crashlogs\n"
            "g_symbolArchiveDirectory|String|||url to directory containing symbol file archives "
            "(dsym.zip, pdb.zip)\n"
            "g_symbolTemporaryDirectory|String|||url to temporary directory containing "
            "uncompressed symbol files (dsym, pdb)\n"
            "g_crashReportUrl|String|||url to be used for writing a crashlog (defaults to "
            "stderr)\n");
  listing.clear();
  for (const ComponentEntry& component : host_->Components())
    listing += component.interfaceId + "|" + component.className + "|" + component.status + "\n";
  EXPECT_EQ(listing,
            "net.tarvo.interface.crashhandler|CrashHandlerImpl|initialized\n"
            "net.tarvo.interface.symbolification|SymbolificationImpl|initialized\n");
  EXPECT_EQ(host_->ExecutionJobIds(),
            std::vector<std::string>{"net.tarvo.execution.crashlogresolve"});
}

// What the crash path needs is made ready at the start, so it is refused at the start.
TEST(ModuleStart, RefusesWhatTheCrashPathCannotHold) {
  struct Case {
    std::string argument;
    std::string_view text;
  };
  const std::string longest(1023, 'p');
  for (const Case& test :
       {Case{"--g_crashReportUrl=" + longest, ""},
        Case{"--g_crashReportUrl=" + longest + "p", "at most 1023"},
        Case{"--g_crashReportUrl=https://example.org/x", "only file URLs"},
        Case{"--g_UnitTests_Id=" + std::string(127, 'b'), ""},
        Case{"--g_UnitTests_Id=" + std::string(128, 'b'), "at most 127"},
        Case{"--g_UnitTests_Id=a\nb", "line end"}, Case{"--g_UnitTests_Id=a\r", "line end"},
        Case{std::string("--g_UnitTests_Id=a\0b", 20), "NUL"},
        Case{std::string("--g_crashReportUrl=a\0b", 22), "NUL"}}) {
    const auto host = Host::Start({.arguments = {test.argument}, .modules = {CRASHHANDLER_MODULE}});
    ASSERT_EQ(static_cast<bool>(host), test.text.empty()) << test.argument;
    if (host) continue;
    EXPECT_EQ(host.GetError().ClassId(), Error::kConversion);
    EXPECT_TRUE(host.GetError().Text().Contains(test.text)) << host.GetError().Text().View();
  }
}

std::string g_marks;

/// A host that has a callback of its own, then another one that has none, then a crash.
[[noreturn]] void CrashInASecondHost(const std::string& first, const std::string& second) {
  {
    const auto host = StartHost({first});
    const auto handler = *Bind<CrashHandler>(host->Services());
    const auto mark = [](const CrashInfo*) { std::ofstream(g_marks) << "called"; };
    if (!handler->SetCallback(mark) || !handler->SetSecondaryCallback(mark)) _exit(3);
  }
  const auto host = StartHost({second});
  raise(SIGSEGV);
  _exit(4);
}

// The second host of a process starts from nothing: destination, report stream, callbacks.
TEST(ModuleStart, StartsAnewInTheSameProcess) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer delays signals";
#endif
  namespace fs = std::filesystem;
  const fs::path folder = fs::temp_directory_path() / ("tarvo-restart-" + std::to_string(getpid()));
  const auto option = [&](const std::string& name) {
    return name.empty() ? "--g_crashReportUrl=" : "--g_crashReportUrl=" + (folder / name).string();
  };
  const std::pair<std::string, std::string> cases[] = {{"", "b"}, {"a", "b"}, {"a", ""}};
  for (const auto& [first, second] : cases) {
    fs::create_directory(folder);
    g_marks = folder / "marks";
    const pid_t child = fork();
    if (child == 0) {
      alarm(50);
      if (freopen((folder / "errors").c_str(), "w", stderr) == nullptr) _exit(5);
      CrashInASecondHost(option(first), option(second));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
    const auto start = [&](const std::string& name) {
      std::string line;
      std::getline(std::ifstream(folder / name), line);
      return line;
    };
    EXPECT_EQ(start(second.empty() ? "errors" : second), "TARVO_Crash_Report") << first << second;
    EXPECT_FALSE(fs::exists(folder / "marks"));
    EXPECT_FALSE(fs::exists(folder / "a"));
    fs::remove_all(folder);
  }
}

TEST(ModuleStart, InstallsItsHandlersAndPutsThePreviousOnesBack) {
  const int signals[] = {SIGSEGV, SIGILL, SIGBUS, SIGSYS, SIGTRAP, SIGFPE, SIGHUP};
  const auto actions = [&] {
    std::vector<std::pair<void*, int>> list;
    for (const int number : signals) {
      struct sigaction action;
      sigaction(number, nullptr, &action);
      // The C library adds SA_RESTORER on the way to the kernel.
      constexpr int kRestorer = 0x04000000;
      list.emplace_back(reinterpret_cast<void*>(action.sa_sigaction), action.sa_flags & ~kRestorer);
    }
    return list;
  };
  const auto before = actions();
  auto host = StartHost();
  const auto during = actions();
  for (std::size_t i = 0; i < during.size(); ++i) {
    EXPECT_NE(during[i].first, before[i].first) << signals[i];
    EXPECT_EQ(during[i].second, SA_SIGINFO | SA_RESTART) << signals[i];
  }
  host.reset();
  EXPECT_EQ(actions(), before);
}

}  // namespace
}  // namespace tarvo
