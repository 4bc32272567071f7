#include "linux/linux_crashhandler/dialog.h"

#include "connection.h"
#include "linux/linux_crashhandler/capture.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {

void DisplayCrashHandlerDialog(const String& title, const String& message) {
  g_tarvo.framework->Output().Diagnostic(
      kCaptureSource.Here(),
      Format("Entered DisplayCrashHandlerDialog with title=@ and message=@", title, message));
}

}  // namespace tarvo::crashhandler
