#include "toolkit/watch/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace tarvo::toolkit {
namespace {

std::optional<std::uint64_t> NumberIn(const char* variable) {
  const char* text = std::getenv(variable);
  if (text == nullptr) return std::nullopt;
  std::uint64_t number = 0;
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

}  // namespace

ServiceManager::ServiceManager() {
  const char* address = std::getenv("NOTIFY_SOCKET");
  if (address == nullptr || (*address != '/' && *address != '@') ||
      std::strlen(address) >= sizeof(sockaddr_un::sun_path))
    return;
  address_ = address;
  socket_ = FileDescriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const auto wanted = NumberIn("WATCHDOG_USEC");
  const auto process = NumberIn("WATCHDOG_PID");
  if (wanted && *wanted != 0 && (!process || *process == static_cast<std::uint64_t>(getpid())))
    // Twice as often as is asked for, as sd_watchdog_enabled(3) advises.
    signEvery_ = std::chrono::milliseconds(*wanted / 2000 + 1);
}

void ServiceManager::Tell(std::string_view assignments) {
  if (!socket_.IsOpen()) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, address_.data(), address_.size());
  if (address_[0] == '@') address.sun_path[0] = '\0';  // a name that is no file's
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
  (void)sendto(socket_.Get(), assignments.data(), assignments.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&address), size);
}

void ServiceManager::Live(std::chrono::steady_clock::time_point now) {
  if (!signEvery_ || now < nextSign_) return;
  Tell("WATCHDOG=1");
  nextSign_ = now + *signEvery_;
}

}  // namespace tarvo::toolkit
