// A fuzzing program: libFuzzer with the target that the build names.
#include <csignal>
#include <cstddef>
#include <cstdint>

#include "fuzz_target.h"

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/** At the limit of its CPU time the run ends as one whose time is up, with its figures. */
int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
    (void)std::signal(SIGXCPU, [](int) { (void)std::raise(SIGUSR1); });
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
    return 0;
}
