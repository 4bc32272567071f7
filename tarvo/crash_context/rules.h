#pragma once

// The rules of the crash context.
//
// Code that may run in a crashed process says so in its comment, by one of these names:
//
//   before a crash   an ordinary thread at start or shutdown; may do anything.
//   crashed process  the crashing thread inside its signal handler. Any lock may be held by a
//                    thread that never lets go, the heap may be broken, any pointer may be wild.
//   signalled thread another thread, interrupted anywhere, inside a signal handler: the same, and
//                    no function of the loader either.
//   tracer           a process of its own that shares the crashed one's memory, and also its
//                    thread-local storage: no errno, no function of the C library at all.
//   crash child      a forked copy of the crashed process: system calls and shared memory only.
//   any context      all of them, and a healthy process.
//
// In all but the first: no allocation but from memory that was set aside before, no lock that any
// other code takes, no exception, no type at run time, no standard container, no locale, nothing
// that the loader would have to bind first. What may fault is guarded; what may wait has a limit.
// These files get the flags of cmake/CrashContext.cmake.
