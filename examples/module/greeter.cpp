#include "hello.h"
#include "tarvo/format.h"

namespace hello {
namespace {

/// The configuration entry; the host fills it before the module is initialised.
tarvo::String g_helloName;

class Implementation final : public tarvo::Counted<Greeter> {
  tarvo::String Greeting() override { return tarvo::Format("Hello, @!", g_helloName); }
};

}  // namespace

void RegisterGreeter(tarvo::Registration& registration) {
  registration.configuration.DeclareString("g_helloName", g_helloName, "world",
                                           tarvo::kGeneralCategory, "who is greeted");
  registration.components.push_back(
      {.interfaceId = Greeter::kInterfaceId,
       .className = "HelloGreeter",
       .create = []() -> tarvo::Ref<tarvo::Object> { return tarvo::Make<Implementation>(); }});
}

}  // namespace hello
