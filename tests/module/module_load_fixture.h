// The module file, loaded and unloaded as a server does it.
#pragma once

#include <cstdint>
#include <cstdlib>

#include <gtest/gtest.h>

#include "support/system.h"

namespace updkrx::test {

/** What the process holds that a module could leave behind: memory, or where that cannot be told, system objects. */
[[nodiscard]] int64_t LiveResources();

class ModuleLoadTest : public testing::Test {
protected:
    ModuleLoadTest() {
        static const Library platform(NOTES_LIBRARY); // is there before the module on a server, and stays
        LoadAndUnload();                              // what the loader and the C library keep from a first time
        SetVariable("BQ_DISABLE_EM", nullptr);
    }

    /** Checks that the module is there in between and gone afterwards. */
    static void LoadAndUnload() {
        {
            const Library module(UPDKRX_MODULE);
            ASSERT_EQ(module.Error(), "");
            EXPECT_NE(module.Find<void()>("MainEntryPoint"), nullptr);
        }
        EXPECT_FALSE(Library::IsLoaded(UPDKRX_MODULE));
    }

    static void ExpectVariable() {
        EXPECT_STREQ(std::getenv("BQ_DISABLE_EM"), "1");
        EXPECT_TRUE(IsInherited("BQ_DISABLE_EM", "1"));
    }
};

} // namespace updkrx::test
