#pragma once

#include "tarvo/object.h"
#include "tarvo/string.h"

/// The interface of the test modules' service: tells the class that stands behind it.
class TestService : public tarvo::Object {
 public:
  static constexpr std::string_view kInterfaceId = "net.tarvo.interface.test";
  virtual tarvo::String ClassName() = 0;

 protected:
  ~TestService() = default;
};
