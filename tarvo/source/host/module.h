#pragma once

#include <memory>
#include <string>

#include "tarvo/connection.h"
#include "tarvo/registration.h"
#include "tarvo/result.h"

namespace tarvo {

/// A loaded module and what it registered.
///
/// Its library stays mapped until the process ends. Nobody can know when the last pointer into it
/// is gone: errors and texts point to its literals, signal actions, exit handlers and thread ends
/// to its code, and the program may hold objects of its classes.
class Module {
 public:
  /// Loads a library, connects it to the framework and lets it register. An illegal-state error
  /// that names file and reason when it cannot be loaded, is no module, or was built so
  /// that the two could not call each other; of such a library nothing but its build tag is looked
  /// at.
  static Result<std::unique_ptr<Module>> Load(const std::string& file, Framework& framework);

  /// Frees what was initialised, in reverse, and disconnects.
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  /// Runs the sources' initialise steps in their order; the first error ends it.
  Result<void> Initialise();
  /// Runs the free steps of the sources that were initialised, in reverse.
  void Free();

  [[nodiscard]] std::string Id() const { return connection_.moduleId; }
  /// The library's file, absolute, links followed.
  [[nodiscard]] const std::string& File() const noexcept { return file_; }
  [[nodiscard]] const Registration& Registered() const noexcept { return registration_; }
  /// Whether both are the same library.
  [[nodiscard]] bool IsSameAs(const Module& other) const noexcept {
    return &connection_ == &other.connection_;
  }

 private:
  Module(std::string file, Connection& connection) noexcept
      : file_(std::move(file)), connection_(connection) {}

  std::string file_;
  Connection& connection_;
  Registration registration_;
  std::size_t initialised_ = 0;  ///< of registration_.lifecycle
};

}  // namespace tarvo
