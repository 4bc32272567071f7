#include "legacycrashlog/legacycrashlog.h"

#include <inttypes.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

#include "connection.h"
#include "crash_context/text_buffer.h"
#include "legacycrashlog/attachments.h"
#include "legacycrashlog/report_stream.h"
#include "legacycrashlog/text_composer.h"
#include "linux/linux_crashhandler/capture.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {

namespace key = crash_report::key;
namespace section = crash_report::section;

char reportPath[kReportPathSize] = "";
FILE* reportStream = nullptr;
char buildText[kBuildTextSize] = "UNKNOWNBUILDID";

namespace {

constexpr std::size_t kDirectorySize = 1024;

/// The program's directory and the modules'.
char g_applicationDirectories[2][kDirectorySize];

const void* Pointer(std::uint64_t address) { return reinterpret_cast<const void*>(address); }

const char* OrUnknown(const char* text) {
  return text == nullptr || text[0] == '\0' ? crash_report::kUnknown.data() : text;
}

void Put(FILE* out, std::string_view text) { fwrite_unlocked(text.data(), 1, text.size(), out); }

/// The tabs of a line that stands in so many blocks.
std::string_view Indentation(std::size_t depth) { return {"\t\t\t\t", depth}; }

void OpenBlock(FILE* out, std::size_t depth, std::string_view word) {
  for (const std::string_view line : {word, std::string_view("{")}) {
    Put(out, Indentation(depth));
    Put(out, line);
    Put(out, "\n");
  }
}

void CloseBlock(FILE* out, std::size_t depth) {
  Put(out, Indentation(depth));
  Put(out, "}\n");
}

/// A line "KEY = VALUE" up to its value.
void StartEntry(FILE* out, std::size_t depth, std::string_view key) {
  Put(out, Indentation(depth));
  Put(out, key);
  Put(out, " = ");
}

void WriteText(FILE* out, std::size_t depth, std::string_view key, const char* text) {
  StartEntry(out, depth, key);
  fprintf(out, "%s\n", text);
}

void WriteAddress(FILE* out, std::size_t depth, std::string_view key, std::uint64_t address) {
  StartEntry(out, depth, key);
  fprintf(out, "%p\n", Pointer(address));
}

void WriteFrames(FILE* out, const CaptureArray<StackFrame>& frames) {
  TextComposer text(out);
  for (const StackFrame& frame : frames) {
    text.Append(Indentation(3));
    text.Append(OrUnknown(frame.moduleText));
    text.Append(crash_report::frame::kFunction);
    if (frame.symbolName != nullptr) {
      text.Append(frame.symbolName);
      text.Append(" + ");
      text.AppendHexadecimalNumber(frame.symbolOffset);
    } else {
      text.AppendPointer(frame.pc);
    }
    text.Append(crash_report::frame::kStackPointer);
    text.AppendPointer(frame.sp);
    text.Append(",");
    text.Append(crash_report::frame::kProgramCounter);
    text.AppendPointer(frame.pc);
    text.Append(")\n");
  }
}

/// The value in as many digits as its width has; none for a width that registers do not have.
void AppendValue(TextComposer& text, const RegisterValue& value) {
  switch (value.width) {
    case 2:
    case 4:
      text.AppendHexadecimal(value.value[0], 2 * value.width);
      break;
    case 8:
    case 16:
    case 32:
      for (std::size_t word = 0; word < value.width / sizeof(std::uint64_t); ++word)
        text.AppendHexadecimal(value.value[word], 16);
      break;
    default:
      break;
  }
}

void WriteRegisters(FILE* out, const CaptureArray<RegisterValue>& registers) {
  OpenBlock(out, 3, section::kRegisters);
  {
    TextComposer text(out);
    for (std::size_t i = 0; i < registers.size; ++i) {
      if (i % 4 == 0) text.Append(Indentation(4));
      text.Append(registers.items[i].name);
      text.Append(": 0x");
      AppendValue(text, registers.items[i]);
      text.Append(i % 4 == 3 ? "\n" : " ");
    }
    // A count of 4k + 3 leaves the closing brace on the last line; readers know.
    if (registers.size % 4 != 3) text.Append("\n");
  }
  CloseBlock(out, 3);
  fflush_unlocked(out);
}

void WriteVariable(FILE* out, const NameAndValue& variable) {
  fprintf(out, "\t\t\t\t%s = %s\n", variable.name, variable.value == nullptr ? "" : variable.value);
}

/// Those that the program has set, then those of the capture.
void WriteVariables(FILE* out, const ThreadRecord& thread) {
  OpenBlock(out, 3, section::kVariables);
  WriteText(out, 4, crash_report::variable::kThreadName, OrUnknown(thread.name));
  ThreadVariableList list;
  if (g_crashServices != nullptr)
    list = g_crashServices->threadVariables(static_cast<pid_t>(thread.tid));
  for (std::size_t i = 0; i < list.size; ++i) WriteVariable(out, list.items[i]);
  for (const NameAndValue& variable : thread.variables) WriteVariable(out, variable);
  if (list.size != 0 || thread.variables.size != 0) fputc_unlocked('\n', out);
  CloseBlock(out, 3);
}

void WriteThread(FILE* out, const ThreadRecord& thread) {
  Put(out, Indentation(2));
  Put(out, section::kThreadPrefix);
  fprintf(out, "%" PRIu64 "\n\t\t{\n", static_cast<std::uint64_t>(thread.tid));
  WriteFrames(out, thread.frames);
  WriteRegisters(out, thread.registers);
  WriteVariables(out, thread);
  CloseBlock(out, 2);
  fflush_unlocked(out);
}

bool IsOfApplication(const char* path) {
  for (const char* directory : g_applicationDirectories)
    if (strstr(path, directory) != nullptr) return true;
  return false;
}

void WriteModule(FILE* out, const ModuleRecord& module) {
  const char* path = module.path == nullptr ? "" : module.path;
  const char* slash = strrchr(path, '/');
  WriteText(out, 2, key::kModuleName, slash == nullptr ? crash_report::kUnknown.data() : slash + 1);
  fputs_unlocked("\t\t{\n", out);
  WriteText(out, 3, key::kExecutable, path);
  WriteAddress(out, 3, key::kBaseAddress, module.baseAddress);
  StartEntry(out, 3, key::kBaseSize);
  fprintf(out, "%ld\n", static_cast<long>(module.size));
  if (IsOfApplication(path)) WriteText(out, 3, key::kBuild, buildText);
  CloseBlock(out, 2);
}

void WriteException(FILE* out, const CrashInfo& crash) {
  OpenBlock(out, 1, section::kException);
  StartEntry(out, 2, key::kExceptionNumber);
  fprintf(out, "0x%08X\n", static_cast<unsigned>(crash.signal));
  StartEntry(out, 2, key::kExceptionText);
  fprintf(out, "\"%s\"\n", crash.signalName);
  WriteAddress(out, 2, key::kExceptionAddress, crash.faultAddress);
  WriteAddress(out, 2, key::kExceptionThread, crash.crashThread);
  CloseBlock(out, 1);
  fflush_unlocked(out);
}

void WriteReport(FILE* out, const CrashInfo& crash) {
  OpenBlock(out, 0, crash_report::kTarvoMagic);
  OpenBlock(out, 1, section::kCallStacks);
  for (const ThreadRecord& thread : crash.threads) WriteThread(out, thread);
  CloseBlock(out, 1);
  fflush_unlocked(out);
  OpenBlock(out, 1, section::kLoadedModules);
  for (const ModuleRecord& module : crash.modules) WriteModule(out, module);
  CloseBlock(out, 1);
  fflush_unlocked(out);
  WriteException(out, crash);
  WriteAttachments(out);
  CloseBlock(out, 0);
}

/// For the callbacks behind the report. The path as the kernel has it: absolute, and true also
/// where the configured one leads through /proc.
void NoteReportFile() {
  static char path[PATH_MAX];
  static TextBuffer<32> link;
  g_writtenReport.descriptor = ReopenReportFile(reportPath);
  if (g_writtenReport.descriptor < 0) return;
  link.Append("/proc/self/fd/");
  link.AppendDecimal(g_writtenReport.descriptor);
  const ssize_t size = readlink(link.Text(), path, sizeof(path) - 1);
  path[size < 0 ? 0 : size] = '\0';
  g_writtenReport.path = size < 0 ? reportPath : path;
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
    RemoveReportFile(reportPath);
    Diagnose(kLegacyCrashLogSource.Here(), "The report could not be written to @ and follows here.",
             reportPath);
    WriteReport(OpenStandardError(), *crash);
    FinishReport();
  } else if (isFile) {
    NoteReportFile();
  }
  FlushStandardStreams();
}

}  // namespace tarvo::crashhandler
