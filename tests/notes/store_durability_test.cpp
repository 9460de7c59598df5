// A process that dies while it writes leaves a database that opens, with every note whole and everything that was
// closed before.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "engine/note_data.h"
#include "engine/status_error.h"
#include "engine/store.h"
#include "support/temporary_folder.h"

#include <gtest/gtest.h>

namespace embedded::test {
namespace {

constexpr NOTEID before = 200;

OID OidOf(uint32_t n) {
    return OID{{{n, 1}}, {{n, 2}}, 1, {{0, 0}}};
}

/** Items that only go with the note's own number and this round. */
std::string ItemsOf(NOTEID id, uint32_t round) {
    std::vector<Item> items;
    for (int i = 0; i < 20; ++i)
        items.push_back({"Item" + std::to_string(i), TYPE_TEXT, ITEM_SUMMARY,
                         std::to_string(id) + "/" + std::to_string(round) + std::string(200, 'x')});
    return encodeItems(items);
}

/** Saves all notes again and again, and adds new ones, until it is killed. Rounds have numbers of their own. */
[[noreturn]] void WriteUntilKilled(const std::filesystem::path& file, uint32_t firstRound, int ready) {
    try {
        for (uint32_t round = firstRound;; ++round) {
            const auto store = Store::open(file, StoreAccess::readWrite);
            for (NOTEID id = 1; id <= before; ++id)
                store->replace({id, OidOf(id), NOTE_CLASS_DOCUMENT, {}, false}, ItemsOf(id, round), false);
            store->insert({0, OidOf(100'000 + round), NOTE_CLASS_DOCUMENT, {}, false}, ItemsOf(0, round));
            (void)!::write(ready, "", 1);
            store->close();
        }
    } catch (...) {
        ::_exit(1);
    }
}

TEST(StoreDurability, AKillLeavesWholeNotes) {
    const updkrx::test::TemporaryFolder folder;
    const auto file = folder.Path() / "test.nsf";
    {
        const auto store = Store::create(file, {});
        for (NOTEID id = 1; id <= before; ++id)
            store->insert({id, OidOf(id), NOTE_CLASS_DOCUMENT, {}, false}, ItemsOf(id, 0));
        store->close();
    }
    for (uint32_t trial = 0; trial < 20; ++trial) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t child = ::fork();
        if (child == 0)
            WriteUntilKilled(file, 1 + trial * 1'000'000, ready[1]);
        ::close(ready[1]);
        char byte;
        ASSERT_EQ(::read(ready[0], &byte, 1), 1); // in its first transaction, with everything written
        ::usleep(trial * 700);
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));
        ::close(ready[0]);

        const auto store = Store::open(file, StoreAccess::readWrite);
        std::string round;
        NOTEID seen = 0;
        for (NOTEID last = 0; (last = store->scan(last, 64, [&](const NoteHead&head, std::string_view items) {
                                  if (head.id > before)
                                      return;
                                  ++seen;
                                  // All notes of one transaction, or none.
                                  const auto item = findItem(items, "Item19");
                                  ASSERT_TRUE(item);
                                  const std::string_view text = item->value;
                                  const size_t slash = text.find('/');
                                  EXPECT_EQ(text.substr(0, slash), std::to_string(head.id));
                                  if (round.empty())
                                      round = text.substr(slash);
                                  EXPECT_EQ(text.substr(slash), round) << head.id;
                              })) != 0;) {
        }
        EXPECT_EQ(seen, before);
        store->close();
        EXPECT_FALSE(std::filesystem::exists(file.string() + "-journal"));
    }
}

TEST(StoreDurability, AReadOnlyOpenLeavesTheRepairToAWriter) {
    const updkrx::test::TemporaryFolder folder;
    const auto file = folder.Path() / "test.nsf";
    Store::create(file, {})->close();
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        // More than the page cache holds, so that the file itself is written before the commit.
        const auto store = Store::open(file, StoreAccess::readWrite);
        const std::string large(60'000, 'x');
        for (uint32_t n = 1; n < 200; ++n)
            store->insert({0, OidOf(n), NOTE_CLASS_DOCUMENT, {}, false}, encodeItems({{"A", TYPE_TEXT, 0, large}}));
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
        (void)Store::open(file, StoreAccess::readOnly);
        ADD_FAILURE() << "opened in the middle of a write";
    } catch (const StatusError& error) {
        EXPECT_EQ(error.status(), EMB_ERR_RECOVERY);
    }
    EXPECT_EQ(updkrx::test::ReadFile(file), damaged);
    Store::open(file, StoreAccess::readWrite)->close();
    EXPECT_NO_THROW(Store::open(file, StoreAccess::readOnly)->close());
}

} // namespace
} // namespace embedded::test
