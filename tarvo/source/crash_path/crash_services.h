#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>

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

/// What is attached in place `index`; null when nothing is. Runs anywhere; what it returns stays
/// valid when a capture has begun.
const Attachment* LookUpAttachment(std::size_t index);

/// Shows `facts`, which live as long as the process, behind the variables that thread `tid` has
/// now; what it sets later is not shown. Of more than kMaximumCrashVariables in all the thread's
/// last ones are left out. Crashed process, once.
inline constexpr std::size_t kMaximumCrashVariables = 512;
void AddCrashVariables(pid_t tid, std::span<const NameAndValue> facts);

}  // namespace tarvo
