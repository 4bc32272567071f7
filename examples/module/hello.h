#pragma once

#include <string_view>

#include "tarvo/object.h"
#include "tarvo/registration.h"
#include "tarvo/string.h"

namespace hello {

/// What the module offers to others, who find it by its id.
class Greeter : public tarvo::Object {
 public:
  static constexpr std::string_view kInterfaceId = "org.example.interface.greeter";

  /// A greeting for the one that is configured.
  virtual tarvo::String Greeting() = 0;

 protected:
  ~Greeter() = default;
};

// Called by the host, in the order that CMakeLists.txt states.
void RegisterGreeter(tarvo::Registration& registration);
void RegisterJob(tarvo::Registration& registration);

}  // namespace hello
