// Marks a definition as part of the library's exported interface. Everything
// else is compiled with hidden visibility and stays private to the library.
#pragma once

#define VDS_API __attribute__((visibility("default")))

// Defines the exported function `name` (declared in a public header) as
// `impl args`, compiled twice, with and without the processor's population
// count instruction; the loader binds the one the processor can run, once,
// when the library is loaded. So the generic build runs on any x86, 32-bit
// included, and still counts bits in one instruction where it can. impl
// must be inlined into both copies (gnu::always_inline). The resolver runs
// before any sanitizer runtime is ready, so it is not instrumented; it has
// external (hidden) linkage because clang binds an ifunc only to that.
// Where the compiler can, it is kept free of every sanitizer's calls, even
// ThreadSanitizer's function entry hooks.
#if defined(__has_attribute) && __has_attribute(disable_sanitizer_instrumentation)
#define VDS_NO_INSTRUMENTATION __attribute__((disable_sanitizer_instrumentation))
#else
#define VDS_NO_INSTRUMENTATION
#endif

#define VDS_API_POPCOUNT(ret, name, params, args, impl)                       \
  static ret name##_generic params { return impl args; }                      \
  [[gnu::target("popcnt")]] static ret name##_popcnt params {                 \
    return impl args;                                                         \
  }                                                                           \
  extern "C" {                                                                \
  __attribute__((used, visibility("hidden"),                                  \
                 no_sanitize("address", "undefined", "thread")))              \
  VDS_NO_INSTRUMENTATION auto name##_resolve()                                \
      -> ret(*) params {                                                      \
    __builtin_cpu_init();                                                     \
    return __builtin_cpu_supports("popcnt") ? name##_popcnt : name##_generic; \
  }                                                                           \
  }                                                                           \
  VDS_API ret name params __attribute__((ifunc(#name "_resolve")))
