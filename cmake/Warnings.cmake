# Warnings, for all targets.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align)
if(TARVO_WERROR)
  add_compile_options(-Werror)
endif()
if(TARVO_SANITIZE)
  # The instrumentation hides from GCC that a variant's other members are not read.
  add_compile_options(-Wno-maybe-uninitialized)
endif()
