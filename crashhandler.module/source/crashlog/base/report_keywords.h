#pragma once

#include <string_view>

/// The words that give a crash report its structure.
namespace tarvo::crashhandler::keyword {

inline constexpr std::string_view kWindowsReport = "PALLADO_Crash_Report_WINDOWS";
inline constexpr std::string_view kMacosReport = "PALLADO_Crash_Report_MACOS";
inline constexpr std::string_view kLinuxReport = "PALLADO_Crash_Report_LINUX";
inline constexpr std::string_view kTarvoReport = "TARVO_Crash_Report";

inline constexpr std::string_view kCallStacks = "Call_Stacks";
inline constexpr std::string_view kException = "Exception";
inline constexpr std::string_view kComputerInfo = "ComputerInfo";
inline constexpr std::string_view kApplicationInfo = "ApplicationInfo";
inline constexpr std::string_view kOpened = "Opened";
inline constexpr std::string_view kScenes = "Scenes";
inline constexpr std::string_view kLoadedModules = "Loaded_Modules";
inline constexpr std::string_view kCriticalLog = "Critical_Log";

inline constexpr std::string_view kThreadPrefix = "Call_Stack_Thread_";
inline constexpr std::string_view kRegisters = "Registers";
inline constexpr std::string_view kVariables = "Variables";
inline constexpr std::string_view kModuleName = "ModuleName";
/// The Windows writer's note about how it found the modules, a line among the module entries.
inline constexpr std::string_view kModuleSnapshotNote = "CreateToolhelp32Snapshot";

}  // namespace tarvo::crashhandler::keyword
