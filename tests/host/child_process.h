// Runs a program to its end and tells what it printed.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace krxpatch::test {

struct Outcome {
    int exitCode = -1; // 128 and the number of the signal when one ended the program
    std::string out;
    std::string error;
};

/** The arguments do not include the program's name; `folder` is where the program runs. */
Outcome RunProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::filesystem::path& folder);

} // namespace krxpatch::test
