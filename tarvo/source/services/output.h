#pragma once

#include "tarvo/framework.h"

namespace tarvo {

/// Output of whole lines to the process's standard streams.
class Output final : public OutputService {
 public:
  void Diagnostic(SourceLocation where, std::string_view text) override;
  void Critical(SourceLocation where, std::string_view text) override;
  void Console(SourceLocation where, std::string_view text) override;
};

}  // namespace tarvo
