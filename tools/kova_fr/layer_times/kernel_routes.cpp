// SPDX-License-Identifier: MIT
//
// The library calls its kernels as an application may replace them: those of this program, which
// time them and call the library's own.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "orvo/q7_kernels.h"
#include "timing/layer_clock.h"

namespace {

// The next definition in the order of the loaded libraries.
template <typename Kernel>
Kernel* LibrarysOwn(const char* name) {
    void* const address = dlsym(RTLD_NEXT, name);
    if (address == nullptr) {
        std::fprintf(stderr, "kova-fr-bench: the face library has no %s\n", name);
        std::abort();
    }
    return reinterpret_cast<Kernel*>(address);
}

} // namespace

#define ORVO_PLAIN(...) __VA_ARGS__
#define ORVO_ROUTE(part, name, parameters, arguments)                \
    extern "C" void name parameters {                                \
        static const auto own = LibrarysOwn<void parameters>(#name); \
        orvo_timing::RunPart<part>(own, ORVO_PLAIN arguments);       \
    }
#include "timing/routed_kernels.h"
