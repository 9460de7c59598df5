// A process that dies while it writes leaves a database that opens, with everything that was closed before and nothing
// else.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "engine/store/store.h"
#include "engine/values/item_codec.h"
#include "engine/values/status_error.h"
#include "engine/values/unid.h"
#include "support/temporary_folder.h"

#include <gtest/gtest.h>

namespace embedded::test {
namespace {

OID OidOf(uint32_t n) {
    return OID{{{n, 1}}, {{n, 2}}, 1, {{0, 0}}};
}

/** The notes, each as its ID and the first letter of its item. */
std::vector<std::pair<NOTEID, char>> ContentOf(Store& store) {
    std::vector<std::pair<NOTEID, char>> content;
    store.Scan(0, SIZE_MAX, [&](const NoteHead& head, std::string_view items) {
        content.emplace_back(head.id, FindItem(items, "A")->value.front());
    });
    return content;
}

TEST(StoreDurability, AKillLeavesTheLastCloseAndTheRepairToAWriter) {
    const updkrx::test::TemporaryFolder folder;
    const auto file = folder.Path() / "test.nsf";
    {
        const auto store = Store::Create(file, {});
        for (NOTEID id = 1; id <= 3; ++id) {
            store->Insert({id, OidOf(id), NOTE_CLASS_DOCUMENT, {}, false}, EncodeItems({{"A", TYPE_TEXT, 0, "old"}}));
        }
        store->Close();
    }
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        // More than the page cache holds, so that the file itself is written before the commit.
        const auto store = Store::Open(file, StoreAccess::readWrite);
        const std::string items = EncodeItems({{"A", TYPE_TEXT, 0, std::string(60'000, 'x')}});
        store->Replace({2, OidOf(2), NOTE_CLASS_DOCUMENT, {}, false}, items, false);
        for (uint32_t n = 4; n < 200; ++n) {
            store->Insert({0, OidOf(n), NOTE_CLASS_DOCUMENT, {}, false}, items);
        }
        (void)!::write(ready[1], "", 1);
        ::pause();
    }
    ::close(ready[1]);
    char byte;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(ready[0]);
    const std::string damaged = updkrx::test::ReadFile(file);
    try {
        (void)Store::Open(file, StoreAccess::readOnly);
        ADD_FAILURE() << "opened in the middle of a write";
    } catch (const StatusError& error) {
        EXPECT_EQ(error.Status(), EMB_ERR_RECOVERY);
    }
    EXPECT_EQ(updkrx::test::ReadFile(file), damaged);
    const std::vector<std::pair<NOTEID, char>> before = {{1, 'o'}, {2, 'o'}, {3, 'o'}};
    EXPECT_EQ(ContentOf(*Store::Open(file, StoreAccess::readWrite)), before);
    EXPECT_EQ(ContentOf(*Store::Open(file, StoreAccess::readOnly)), before);
    EXPECT_FALSE(std::filesystem::exists(file.string() + "-journal"));
}

} // namespace
} // namespace embedded::test
