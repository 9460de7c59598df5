#include <filesystem>

#include <gtest/gtest.h>

#include "fuzz_target.h"
#include "support/temporary_folder.h"

namespace fuzz {
namespace {

struct NamedTarget {
    const char* name;
    Target* run;
};

constexpr NamedTarget targets[] = {{"dxl", dxl}, {"formula", formula}, {"ini_file", ini_file}, {"items", items}};

class Corpus : public testing::TestWithParam<NamedTarget> {};

TEST_P(Corpus, KeepsItsProperties) {
    int inputs = 0;
    for (const auto& file : std::filesystem::directory_iterator(std::filesystem::path(FUZZ_CORPUS) / GetParam().name)) {
        SCOPED_TRACE(file.path().filename());
        EXPECT_NO_THROW(GetParam().run(updkrx::test::ReadFile(file.path())));
        ++inputs;
    }
    EXPECT_GT(inputs, 0);
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Corpus, testing::ValuesIn(targets),
                         [](const testing::TestParamInfo<NamedTarget>& target) { return target.param.name; });

} // namespace
} // namespace fuzz
