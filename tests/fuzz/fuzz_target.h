// What the fuzzing programs run. fuzz_main.cpp makes a program of one target, corpus_test.cpp runs all of them over the
// inputs that are kept, so that every build repeats what fuzzing has found once.
#pragma once

#include <stdexcept>
#include <string_view>

namespace fuzz {

/** Does with one input what the target is about. Throws when something does not hold that must hold for any input. */
using Target = void(std::string_view input);

// Named as their programs and the folders of their inputs.
Target dxl;
Target formula;
Target ini_file;
Target items;

inline void Expect(bool holds, const char* property) {
    if (!holds) {
        throw std::logic_error(property);
    }
}

} // namespace fuzz
