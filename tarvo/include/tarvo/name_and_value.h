#pragma once

namespace tarvo {

/// A thread's variable as the crash path has it: zero-terminated texts that live as long as what
/// names them says.
struct NameAndValue {
  const char* name = nullptr;
  const char* value = nullptr;  ///< null stands for an empty text
};

}  // namespace tarvo
