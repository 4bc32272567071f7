#pragma once

#include <sys/types.h>

#include <cstdint>

#include "tarvo/framework.h"

namespace tarvo {

/// The functions that the crash path may call at any moment, as one constant table that lives as
/// long as the process.
extern const CrashServices kCrashServices;

/// Writes "<path>:<line>: <text>" to standard error with one system call, cut at
/// kMaximumCrashDiagnostic bytes. Runs anywhere: signal handler, forked child.
inline constexpr std::size_t kMaximumCrashDiagnostic = 1000;
void WriteCrashDiagnostic(const char* path, std::uint32_t line, const char* text);

/// The reading half of the thread variables (thread_variables.cpp). Run anywhere.
ThreadVariableList LookUpThreadVariables(pid_t tid);
void ReleaseThreadVariables();

}  // namespace tarvo
