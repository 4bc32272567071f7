// Built with the address sanitizer only. LLVM's allocator is a template: parts of it are compiled
// here, and poison what they have not given out yet, others in LLVM's library, which knows of no
// sanitizer and uses it.

extern "C" [[gnu::visibility("default")]] const char* __asan_default_options();

const char* __asan_default_options() { return "allow_user_poisoning=0"; }
