#include "toolkit/resolve/listing/report_identity.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "tarvo/format.h"
#include "toolkit/base/regular_file.h"
#include "toolkit/base/sha256.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kReportIdentity{"command/resolve"};
constexpr std::size_t kReadBytes = 64 * 1024;

std::string TimeText(std::time_t time) {
  std::tm parts{};
  char text[32];
  if (gmtime_r(&time, &parts) == nullptr) return {};
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace

Result<ReportIdentity> IdentifyReport(const Url& report) {
  if (auto loaded = Sha256::Load(); !loaded) return loaded.GetError();
  const Result<RegularFile> opened = OpenRegularFile(report.SystemPath().ToStdString());
  if (!opened) return opened.GetError();
  struct stat status{};
  if (fstat(fileno(opened->file.get()), &status) != 0)
    return Error::File(kReportIdentity.Here(), Format("@: @", report, std::strerror(errno)),
                       report);
  ReportIdentity identity{
      .size = opened->size, .time = TimeText(status.st_mtim.tv_sec), .hash = {}};
  std::setvbuf(opened->file.get(), nullptr, _IONBF, 0);
  std::array<char, kReadBytes> piece;
  Sha256 hash;
  for (std::size_t count = piece.size(); count == piece.size();) {  // a short one is the last
    count = std::fread(piece.data(), 1, piece.size(), opened->file.get());
    hash.Add({piece.data(), count});
  }
  if (std::ferror(opened->file.get()) != 0)
    return Error::File(kReportIdentity.Here(), Format("Could not read \"@\".", report), report);
  identity.hash = hash.TakeHexadecimal();
  return identity;
}

Result<ReportIdentity> LookAtReport(const Url& report) {
  if (auto loaded = Sha256::Load(); !loaded) return loaded.GetError();
  struct stat status{};
  if (stat(report.SystemPath().ToStdString().c_str(), &status) != 0 || !S_ISREG(status.st_mode))
    return IdentifyReport(report);  // which says what is wrong
  return ReportIdentity{.size = static_cast<std::uint64_t>(status.st_size),
                        .time = TimeText(status.st_mtim.tv_sec),
                        .hash = {}};
}

void AddContent(std::string_view content, ReportIdentity& identity) {
  Sha256 hash;
  hash.Add(content);
  identity.size = content.size();
  identity.hash = hash.TakeHexadecimal();
}

}  // namespace tarvo::toolkit
