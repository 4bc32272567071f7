#ifndef TARVO_HOST_TARVO_H
#define TARVO_HOST_TARVO_H

/* The host in C, for programs that are not C++20: start, thread variables, attachments. What each
   function does stands in the C++ headers beside this one.

       #include "tarvo/host/tarvo.h"

       int main(void) {
         char error[256];
         const tarvo_options options = {.size = sizeof(options), .build = "1.0",
                                        .report = "viewer_bugreport.txt", .crash_guard = 1};
         if (tarvo_start(&options, error, sizeof(error)) != 0)
           fprintf(stderr, "No crash is captured: %s\n", error);
         tarvo_set_thread_variable("Document", "city.scene");
         ...
         tarvo_stop();
       }

   Functions that can fail return 0, or an errno value: EINVAL for an argument that is refused,
   ENOMEM. Texts are UTF-8, zero-terminated, and copied. */

#include <stddef.h>

/* A header for C: C's names and C's ways. NOLINTBEGIN(modernize-*,readability-identifier-naming) */

#ifdef __cplusplus
extern "C" {
#endif

/* All may be zero but the size; what a later version adds stands behind. */
typedef struct tarvo_options {
  size_t size;                  /* sizeof(tarvo_options) */
  const char* const* arguments; /* "--g_NAME=VALUE", NULL at the end; HostOptions::arguments */
  const char* const* modules;   /* files or names, NULL at the end; NULL: "crashhandler" alone */
  const char* build;            /* HostOptions::build */
  const char* report;           /* with the guard CrashGuardOptions::report, a pattern; without it
                                   the report's path. NULL: standard error */
  const char* report_fallback;  /* HostOptions::reportFallback */
  int crash_guard;              /* not 0: CrashGuardOptions::enabled */
} tarvo_options;

/* Starts the process's one host. `options` may be NULL; so may `error`, which gets why it could not
   be started, cut to `error_size` bytes. EALREADY when it runs, else EINVAL. The same thread stops
   it. */
int tarvo_start(const tarvo_options* options, char* error, size_t error_size);

/* Stops it; nothing when it does not run. */
void tarvo_stop(void);

/* Of the calling thread; tarvo/host/thread_variables.h. */
int tarvo_set_thread_variable(const char* name, const char* value);
void tarvo_remove_thread_variable(const char* name);

/* tarvo/host/attachments.h. */
int tarvo_attach_file(const char* path);
int tarvo_attach_text(const char* name, const char* text);
void tarvo_remove_attachment(const char* name);

#ifdef __cplusplus
}
#endif

#endif
/* NOLINTEND(modernize-*,readability-identifier-naming) */
