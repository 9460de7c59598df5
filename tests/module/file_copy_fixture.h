// A folder for copies of files.
#pragma once

#include <set>

#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace updkrx::test {

class FileCopyTest : public testing::Test {
protected:
    [[nodiscard]] std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

    /** Every file and folder below the test's own, the files with their content. */
    [[nodiscard]] std::set<std::string> Content() const {
        std::set<std::string> content;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Path())) {
            const std::string name = std::filesystem::relative(entry, folder_.Path()).generic_string();
            content.insert(entry.is_regular_file() ? name + "=" + ReadFile(entry) : name);
        }
        return content;
    }

private:
    TemporaryFolder folder_;
};

inline std::string Bytes(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 256);
    }
    return bytes;
}

} // namespace updkrx::test
