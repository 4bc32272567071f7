#include "toolkit/debug_files/debuginfod.h"

#include <dlfcn.h>
#include <elfutils/debuginfod.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "tarvo/format.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kDebuginfod{"command/resolve/debuginfod"};
constexpr const char* kLibraryFile = "libdebuginfod.so.1";

/// The client library's functions; `problem` where they could not be loaded.
struct Library {
  decltype(&debuginfod_begin) begin = nullptr;
  decltype(&debuginfod_find_debuginfo) find = nullptr;
  decltype(&debuginfod_set_progressfn) setProgress = nullptr;
  decltype(&debuginfod_set_user_data) setUserData = nullptr;
  decltype(&debuginfod_get_user_data) userData = nullptr;
  decltype(&debuginfod_end) end = nullptr;
  String problem;

  static const Library& Instance() {
    static const Library library;
    return library;
  }

 private:
  Library() {
    void* file = dlopen(kLibraryFile, RTLD_NOW | RTLD_LOCAL);
    const bool isWhole = file != nullptr && Get(file, "debuginfod_begin", begin) &&
                         Get(file, "debuginfod_find_debuginfo", find) &&
                         Get(file, "debuginfod_set_progressfn", setProgress) &&
                         Get(file, "debuginfod_set_user_data", setUserData) &&
                         Get(file, "debuginfod_get_user_data", userData) &&
                         Get(file, "debuginfod_end", end);
    if (!isWhole)
      problem = Format("DEBUGINFOD_URLS is set, but its client could not be loaded: @", dlerror());
  }
  template <typename Function>
  static bool Get(void* file, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(file, name));
    return function != nullptr;
  }
};

struct Download {
  const Debuginfod::OnProgress& onProgress;
  std::chrono::steady_clock::time_point end;
  bool isLate = false;
};

/// The client calls this at times; another answer than 0 ends the download.
int Progress(debuginfod_client* client, long done, long all) {
  auto& download = *static_cast<Download*>(Library::Instance().userData(client));
  download.isLate = std::chrono::steady_clock::now() > download.end;
  if (download.onProgress) download.onProgress(done, all);
  return download.isLate ? 1 : 0;
}

}  // namespace

bool Debuginfod::IsConfigured() {
  const char* servers = std::getenv(DEBUGINFOD_URLS_ENV_VAR);
  return servers != nullptr && *servers != '\0';
}

Result<std::string> Debuginfod::Find(const std::string& id, const OnProgress& onProgress) {
  const std::scoped_lock lock(mutex_);
  const Library& library = Library::Instance();
  if (!library.problem.IsEmpty()) return Error::IllegalState(kDebuginfod.Here(), library.problem);
  if (hasGivenUp_)
    return Error::IllegalState(kDebuginfod.Here(), "debuginfod has stopped answering.");
  if (++questions_ > kMostQuestions)
    return Error::IllegalState(kDebuginfod.Here(), "debuginfod has been asked too often.");
  const std::unique_ptr<debuginfod_client, decltype(library.end)> client(library.begin(),
                                                                         library.end);
  if (client == nullptr) return Error::OutOfMemory(kDebuginfod.Here());
  Download download{onProgress, std::chrono::steady_clock::now() + kLongestDownload};
  library.setUserData(client.get(), &download);
  library.setProgress(client.get(), Progress);
  char* path = nullptr;
  // A length of 0 stands for an id in hexadecimal.
  const int file =
      library.find(client.get(), reinterpret_cast<const unsigned char*>(id.c_str()), 0, &path);
  const std::unique_ptr<char, decltype(&std::free)> owned(path, &std::free);
  if (file >= 0) {
    close(file);
    return std::string(path);
  }
  if (file == -ENOENT) return std::string();
  hasGivenUp_ = download.isLate || file == -ETIME || file == -ETIMEDOUT;
  return Error::IllegalState(kDebuginfod.Here(), Format("debuginfod: @", std::strerror(-file)));
}

}  // namespace tarvo::toolkit
