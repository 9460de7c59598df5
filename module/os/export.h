// How a function of the module becomes visible to the process that loads it.
#pragma once

#if defined(_WIN32)
#define UPDKRX_EXPORT __declspec(dllexport)
#else
#define UPDKRX_EXPORT __attribute__((visibility("default")))
#endif
