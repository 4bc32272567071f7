# Flags of what runs in a crashed process: nothing in it can throw, ask for a type at run time, or call
# into a sanitizer's runtime, which is as damaged as the process it runs in. The stack protector's value
# lies in thread-local memory, which may be gone.
set(TARVO_CRASH_CONTEXT_OPTIONS -fno-exceptions -fno-rtti -fno-threadsafe-statics
                                -fno-stack-protector -fno-sanitize=all)

# Gives these sources of the calling folder those flags.
function(tarvo_crash_context)
  if(ARGN)
    set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS ${TARVO_CRASH_CONTEXT_OPTIONS})
  endif()
endfunction()
