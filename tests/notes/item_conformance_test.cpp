// Items behind the Notes API: texts, lists, raw values, limits.
#include "notes/notes_fixture.h"

namespace embedded::test {
namespace {

using Entries = std::vector<std::string>;

class ItemConformance : public NotesFixture {
protected:
    void SetUp() override {
        NotesFixture::SetUp();
        database_ =
            Make("<document form='A'><noteinfo noteid='906'/><item name='Text'><text>one<break/>two</text></item>"
                 "<item name='List'><textlist><text>b</text><text>a</text><text>b</text></textlist></item>"
                 "<item name='Number'><number>7</number></item>"
                 "<item name='Rich'><richtext><par>Rich</par></richtext></item></document>");
        note_.emplace(database_, 0x906);
    }
    void TearDown() override {
        note_.reset();
        EXPECT_EQ(NSFDbClose(database_), NOERROR);
        NotesFixture::TearDown();
    }
    WORD TypeOf(const char* item) {
        WORD type = 0xFFFF;
        (void)NSFItemInfo(*note_, item, MAXWORD, nullptr, &type, nullptr, nullptr);
        return type;
    }
    Note& GetNote() { return *note_; }

    DBHANDLE database_ = NULLHANDLE;
    std::optional<Note> note_;
};

TEST_F(ItemConformance, TextsAreReadUpToTheBuffersSize) {
    struct {
        const char* item;
        WORD size;
        std::string expected;
    } const cases[] = {
        {"Text", 255, std::string("one\0two", 7)}, // a line break is a zero byte
        {"tEXT", 5, std::string("one\0t", 5)},     // cut without a word
        {"List", 255, "b; a; b"},
        {"List", 4, "b; a"},
        {"List", 0, ""},
        {"Number", 255, ""},
        {"Rich", 255, ""},
        {"Absent", 255, ""},
    };
    for (const auto& c : cases) {
        std::string buffer(256, '#');
        const WORD length = NSFItemGetText(GetNote(), c.item, buffer.data(), c.size);
        EXPECT_EQ(buffer.substr(0, length), c.expected) << c.item << c.size;
        EXPECT_EQ(buffer[c.size], '#') << "written behind the buffer: " << c.item << c.size;
    }
}

TEST_F(ItemConformance, ListEntriesAreReadByPositionWithoutTerminator) {
    EXPECT_EQ(GetNote().List("List"), (Entries{"b", "a", "b"}));
    EXPECT_EQ(GetNote().List("Text"), (Entries{std::string("one\0two", 7)}));
    EXPECT_EQ(GetNote().List("Number"), Entries{});
    EXPECT_EQ(GetNote().List("Absent"), Entries{});
    char buffer[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(NSFItemGetTextListEntry(GetNote(), "List", 3, buffer, 3), 0);
    EXPECT_EQ(NSFItemGetTextListEntry(GetNote(), "List", 1, buffer, 3), 1);
    EXPECT_EQ(std::string(buffer, 4), "a###");
}

TEST_F(ItemConformance, SettingATextReplacesAllItemsOfTheName) {
    EXPECT_EQ(NSFItemAppend(GetNote(), 0, "Double", 6, TYPE_TEXT, "1", 1), NOERROR);
    EXPECT_EQ(NSFItemAppend(GetNote(), 0, "DOUBLE", 6, TYPE_TEXT, "2", 1), NOERROR);
    EXPECT_EQ(GetNote().Text("double"), "1"); // the first of several counts
    GetNote().SetText("Double", "3");
    EXPECT_EQ(GetNote().Text("Double"), "3");
    EXPECT_EQ(NSFItemDelete(GetNote(), "dOUBLE", 6), NOERROR);
    EXPECT_EQ(NSFItemDelete(GetNote(), "Double", 6), ERR_ITEM_NOT_FOUND);
    EXPECT_EQ(NSFItemSetText(GetNote(), "List", "terminated", MAXWORD), NOERROR);
    EXPECT_EQ(GetNote().List("List"), Entries{"terminated"});
    EXPECT_EQ(NSFItemSetText(GetNote(), "List", "cut here", 3), NOERROR);
    EXPECT_EQ(GetNote().Text("List"), "cut");
}

TEST_F(ItemConformance, ListsGrowAtTheEnd) {
    const auto append = [&](const char* item, const char* entry, BOOL duplicates) {
        return NSFItemAppendTextList(GetNote(), item, entry, static_cast<WORD>(std::strlen(entry)), duplicates);
    };
    EXPECT_EQ(append("List", "a", 0), NOERROR); // has it
    EXPECT_EQ(append("List", "A", 0), NOERROR); // another text
    EXPECT_EQ(append("List", "b", 1), NOERROR);
    EXPECT_EQ(GetNote().List("List"), (Entries{"b", "a", "b", "A", "b"}));
    EXPECT_EQ(append("New", "x", 0), NOERROR);
    EXPECT_EQ(append("New", "", 0), NOERROR);
    EXPECT_EQ(GetNote().List("New"), (Entries{"x", ""}));
    EXPECT_EQ(append("Text", "three", 0), NOERROR); // a text becomes a list
    EXPECT_EQ(TypeOf("Text"), TYPE_TEXT_LIST);
    EXPECT_EQ(GetNote().List("Text"), (Entries{std::string("one\0two", 7), "three"}));
    EXPECT_EQ(append("Number", "x", 0), EMB_ERR_ITEM_TYPE);
    EXPECT_EQ(TypeOf("Number"), TYPE_NUMBER);
    EXPECT_EQ(NSFItemCreateTextList(GetNote(), "List", "only", 4), NOERROR);
    EXPECT_EQ(GetNote().List("List"), Entries{"only"});
    EXPECT_EQ(TypeOf("List"), TYPE_TEXT_LIST);
}

TEST_F(ItemConformance, RawValuesKeepTheirBytes) {
    const char list[] = "\2\0\1\0\2\0xyz"; // two entries: "x", "yz"
    EXPECT_EQ(NSFItemAppend(GetNote(), ITEM_SUMMARY, "Raw", 3, TYPE_TEXT_LIST, list, 9), NOERROR);
    EXPECT_EQ(GetNote().List("Raw"), (Entries{"x", "yz"}));
    EXPECT_EQ(GetNote().Update(), NOERROR);
    Note again(database_, 0x906);
    BLOCKID item{}, value{};
    WORD type = 0;
    DWORD length = 0;
    ASSERT_EQ(NSFItemInfo(again, "Raw", 3, &item, &type, &value, &length), NOERROR);
    EXPECT_EQ(type, TYPE_TEXT_LIST);
    EXPECT_EQ(length, 11U); // the type word included
    const char* bytes = static_cast<const char*>(OSLockObject(value.pool)) + value.block;
    EXPECT_EQ(std::string(bytes, length), std::string("\1\5", 2) + std::string(list, 9));
    EXPECT_NE(OSUnlockObject(value.pool), 0);
    EXPECT_EQ(EmbOpenHandles(EMB_HANDLE_MEMORY), 0U);                                     // the memory is the note's
    EXPECT_EQ(NSFItemInfo(again, nullptr, 0, nullptr, &type, nullptr, nullptr), NOERROR); // the note's first item
    EXPECT_EQ(type, TYPE_TEXT);
    EXPECT_EQ(NSFItemInfo(again, "Absent", 6, nullptr, &type, nullptr, nullptr), ERR_ITEM_NOT_FOUND);
    EXPECT_EQ(type, TYPE_INVALID_OR_UNKNOWN);
}

TEST_F(ItemConformance, AnItemThatIsKeptAsXmlIsThereAndHasNoValue) {
    WORD type = 0xFFFF;
    DWORD length = 0;
    BLOCKID value{};
    ASSERT_EQ(NSFItemInfo(GetNote(), "rICH", 4, nullptr, &type, &value, &length), NOERROR);
    EXPECT_EQ(type, TYPE_INVALID_OR_UNKNOWN);
    const char* bytes = static_cast<const char*>(OSLockObject(value.pool)) + value.block;
    EXPECT_EQ(std::string(bytes, length), std::string("\0\0", 2)); // the type, and nothing behind it
    EXPECT_NE(OSUnlockObject(value.pool), 0);
    EXPECT_EQ(NSFItemDelete(GetNote(), "Rich", 4), NOERROR);
    EXPECT_EQ(NSFItemInfo(GetNote(), "Rich", 4, nullptr, nullptr, nullptr, nullptr), ERR_ITEM_NOT_FOUND);
}

TEST_F(ItemConformance, ATextThatIsTooLongIsRefusedWhenTheNoteIsSaved) {
    const std::string big(0x8000, 'x'); // 32K with the summary flag
    const WORD length = static_cast<WORD>(big.size());
    const std::function<STATUS()> calls[] = {
        [&] { return NSFItemSetText(GetNote(), "Big", big.data(), length); },
        [&] { return NSFItemCreateTextList(GetNote(), "Big", big.data(), length); },
        [&] { return NSFItemAppendTextList(GetNote(), "Big", big.data(), length, 1); }, // a second entry: over 64K
        [&] { return NSFItemAppendTextList(GetNote(), "List", big.data(), length, 1); },
    };
    for (const auto& call : calls) {
        EXPECT_EQ(call(), NOERROR);
        EXPECT_EQ(GetNote().Update(UPDATE_FORCE), ERR_SUMMARY_TOO_BIG);
    }
    EXPECT_EQ(NSFItemDelete(GetNote(), "Big", 3), NOERROR);
    EXPECT_EQ(NSFItemDelete(GetNote(), "List", 4), NOERROR);
    EXPECT_EQ(GetNote().Update(UPDATE_FORCE), NOERROR);
}

TEST_F(ItemConformance, LimitsAndBadArgumentsAreAnsweredAndChangeNothing) {
    const std::string big(0x8000, 'x');
    const auto before = GetNote().List("List");
    const WORD bigLength = static_cast<WORD>(big.size());
    EXPECT_EQ(NSFItemAppend(GetNote(), 0, "Big", 3, TYPE_TEXT, big.data(), 0x10000), ERR_SEGMENT_TOO_BIG);
    EXPECT_EQ(NSFItemAppend(GetNote(), ITEM_SUMMARY, "Big", 3, TYPE_TEXT, big.data(), bigLength), ERR_SUMMARY_TOO_BIG);
    EXPECT_EQ(NSFItemAppend(GetNote(), 0, "Lying", 5, TYPE_TEXT_LIST, "\2\0\1\0\7\0x", 7), EMB_ERR_ITEM_TYPE);
    EXPECT_EQ(NSFItemAppend(GetNote(), 0, "Null", 4, TYPE_TEXT, nullptr, 1), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFItemSetText(GetNote(), "", "x", 1), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFItemSetText(GetNote(), nullptr, "x", 1), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFItemSetText(GetNote(), "List", nullptr, 1), EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFItemGetText(GetNote(), nullptr, nullptr, 10), 0);
    EXPECT_EQ(GetNote().List("List"), before);
    EXPECT_EQ(TypeOf("Big"), 0);

    EXPECT_EQ(NSFItemAppend(GetNote(), 0, "Big", 3, TYPE_TEXT, big.data(), bigLength), NOERROR); // no summary: 64K
    EXPECT_EQ(GetNote().Update(), NOERROR);
    GetNote().SetText("A", big.substr(1));
    EXPECT_EQ(GetNote().Update(), ERR_SUMMARY_TOO_BIG); // the items take it, the note does not
    EXPECT_EQ(Note(database_, 0x906).Text("A"), "");
}

} // namespace
} // namespace embedded::test
