#include "legacycrashlog/legacycrashlog.h"

#include <inttypes.h>
#include <string.h>

#include "connection.h"
#include "legacycrashlog/report_stream.h"
#include "linux/linux_crashhandler/capture.h"

namespace tarvo::crashhandler {

char reportPath[kReportPathSize] = "";
FILE* reportStream = nullptr;
char buildText[kBuildTextSize] = "UNKNOWNBUILDID";

namespace {

constexpr std::size_t kDirectorySize = 1024;
constexpr std::size_t kFunctionTextSize = 1024;

/// The program's directory and the modules'.
char g_applicationDirectories[2][kDirectorySize];

/// Scratch for the function text of a frame.
char g_functionText[kFunctionTextSize];

const void* Pointer(std::uint64_t address) { return reinterpret_cast<const void*>(address); }

const char* OrUnknown(const char* text) {
  return text == nullptr || text[0] == '\0' ? "unknown" : text;
}

void WriteFrame(FILE* out, const StackFrame& frame) {
  if (frame.symbolName != nullptr) {
    snprintf(g_functionText, sizeof(g_functionText), "%s + 0x%" PRIx64, frame.symbolName,
             frame.symbolOffset);
  } else {
    snprintf(g_functionText, sizeof(g_functionText), "%p", Pointer(frame.pc));
  }
  fprintf(out, "\t\t\t%s:\t%s (SP: %p, PC: %p)\n", OrUnknown(frame.moduleText), g_functionText,
          Pointer(frame.sp), Pointer(frame.pc));
}

void WriteRegisterValue(FILE* out, const RegisterValue& value) {
  switch (value.width) {
    case 2:
      fprintf(out, "%04x", static_cast<unsigned>(value.value[0] & 0xffff));
      break;
    case 4:
      fprintf(out, "%08x", static_cast<unsigned>(value.value[0] & 0xffffffff));
      break;
    case 8:
    case 16:
    case 32:
      for (std::size_t word = 0; word < value.width / sizeof(std::uint64_t); ++word)
        fprintf(out, "%016" PRIx64, value.value[word]);
      break;
    default:
      break;
  }
}

void WriteRegisters(FILE* out, const CaptureArray<RegisterValue>& registers) {
  fputs("\t\t\tRegisters\n\t\t\t{\n", out);
  for (std::size_t i = 0; i < registers.size; ++i) {
    if (i % 4 == 0) fputs("\t\t\t\t", out);
    fprintf(out, "%s: 0x", registers.items[i].name);
    WriteRegisterValue(out, registers.items[i]);
    fputc(i % 4 == 3 ? '\n' : ' ', out);
  }
  // A count of 4k + 3 leaves the closing brace on the last line; readers know.
  if (registers.size % 4 != 3) fputc('\n', out);
  fputs("\t\t\t}\n", out);
  fflush(out);
}

void WriteVariable(FILE* out, const NameAndValue& variable) {
  fprintf(out, "\t\t\t\t%s = %s\n", variable.name,
          variable.value == nullptr ? "" : variable.value);
}

/// Those that the program has set, then those of the capture.
void WriteVariables(FILE* out, const ThreadRecord& thread) {
  fputs("\t\t\tVariables\n\t\t\t{\n", out);
  fprintf(out, "\t\t\t\tThreadName = %s\n", OrUnknown(thread.name));
  ThreadVariableList list;
  if (g_crashServices != nullptr)
    list = g_crashServices->threadVariables(static_cast<pid_t>(thread.tid));
  for (std::size_t i = 0; i < list.size; ++i) WriteVariable(out, list.items[i]);
  for (const NameAndValue& variable : thread.variables) WriteVariable(out, variable);
  if (list.size != 0 || thread.variables.size != 0) fputc('\n', out);
  fputs("\t\t\t}\n", out);
}

void WriteThread(FILE* out, const ThreadRecord& thread) {
  fprintf(out, "\t\tCall_Stack_Thread_%" PRIu64 "\n\t\t{\n",
          static_cast<std::uint64_t>(thread.tid));
  for (const StackFrame& frame : thread.frames) WriteFrame(out, frame);
  WriteRegisters(out, thread.registers);
  WriteVariables(out, thread);
  fputs("\t\t}\n", out);
  fflush(out);
}

bool IsOfApplication(const char* path) {
  for (const char* directory : g_applicationDirectories)
    if (strstr(path, directory) != nullptr) return true;
  return false;
}

void WriteModule(FILE* out, const ModuleRecord& module) {
  const char* path = module.path == nullptr ? "" : module.path;
  const char* slash = strrchr(path, '/');
  fprintf(out, "\t\tModuleName = %s\n\t\t{\n", slash == nullptr ? "unknown" : slash + 1);
  fprintf(out, "\t\t\tExecutable = %s\n", path);
  fprintf(out, "\t\t\tBaseAddress = %p\n", Pointer(module.baseAddress));
  fprintf(out, "\t\t\tBaseSize = %ld\n", static_cast<long>(module.size));
  if (IsOfApplication(path)) fprintf(out, "\t\t\tBuild = %s\n", buildText);
  fputs("\t\t}\n", out);
}

void WriteException(FILE* out, const CrashInfo& crash) {
  fputs("\tException\n\t{\n", out);
  fprintf(out, "\t\tExceptionNumber = 0x%08X\n", static_cast<unsigned>(crash.signal));
  fprintf(out, "\t\tExceptionText = \"%s\"\n", crash.signalName);
  fprintf(out, "\t\tAddress = %p\n", Pointer(crash.faultAddress));
  fprintf(out, "\t\tThread = %p\n", Pointer(crash.crashThread));
  fputs("\t}\n", out);
  fflush(out);
}

void WriteReport(FILE* out, const CrashInfo& crash) {
  fputs("TARVO_Crash_Report\n{\n", out);
  fputs("\tCall_Stacks\n\t{\n", out);
  for (const ThreadRecord& thread : crash.threads) WriteThread(out, thread);
  fputs("\t}\n", out);
  fflush(out);
  fputs("\tLoaded_Modules\n\t{\n", out);
  for (const ModuleRecord& module : crash.modules) WriteModule(out, module);
  fputs("\t}\n", out);
  fflush(out);
  WriteException(out, crash);
  fputs("}\n", out);
}

}  // namespace

void RegisterLegacycrashlog(Registration&) {
  const String directories[] = {g_tarvo.framework->ProgramDirectory(),
                                g_tarvo.framework->ModuleDirectory()};
  for (std::size_t i = 0; i < std::size(directories); ++i) {
    const std::string_view directory = directories[i].View().substr(0, kDirectorySize - 1);
    memcpy(g_applicationDirectories[i], directory.data(), directory.size());
    g_applicationDirectories[i][directory.size()] = '\0';
  }
}

void WriteCrashReport(const CrashInfo* crash) {
  FILE* out = reportStream == nullptr ? OpenReportFile(reportPath) : nullptr;
  const bool isFile = out != nullptr;
  if (!isFile) out = OpenStandardError();
  WriteReport(out, *crash);
  // A file that took only a part (a full disk) is no report; standard error gets the whole.
  if (!FinishReport() && isFile) {
    WriteReport(OpenStandardError(), *crash);
    FinishReport();
  }
  FlushStandardStreams();
}

}  // namespace tarvo::crashhandler
