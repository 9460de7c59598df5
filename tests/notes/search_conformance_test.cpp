// Searches behind the Notes API: what is delivered, and what a step may do meanwhile.
#include "notes/notes_fixture.h"

namespace embedded::test {
namespace {

using Ids = std::vector<NOTEID>;

class SearchConformance : public NotesFixture {
protected:
    void SetUp() override {
        NotesFixture::SetUp();
        database_ = Make("<document form='A'><noteinfo noteid='902'/></document>"
                         "<document form='B'><noteinfo noteid='906'/><item name='Kind'><text>x</text></item></document>"
                         "<document form='A'><noteinfo noteid='90a'/></document>"
                         "<note class='form' default='true'><noteinfo noteid='90e'/></note>"
                         "<note class='helpusingdocument'><noteinfo noteid='912'/></note>");
    }
    void TearDown() override {
        EXPECT_EQ(NSFDbClose(database_), NOERROR);
        NotesFixture::TearDown();
    }
    DBHANDLE database_ = NULLHANDLE;
};

TEST_F(SearchConformance, DeliversByMaskAndFormula) {
    EXPECT_EQ(NSFNoteDelete(database_, 0x90a, 0), NOERROR);
    struct {
        const char* formula;
        WORD mask;
        WORD flags;
        Ids delivered; // stubs with RRV_DELETED
        Ids matches;
    } const cases[] = {
        {nullptr, NOTE_CLASS_DOCUMENT, 0, {0x902, 0x906}, {0x902, 0x906}},
        {nullptr, NOTE_CLASS_HELP, 0, {0x912}, {0x912}},
        {nullptr, NOTE_CLASS_ALLNONDATA, 0, {0x90e, 0x912}, {0x90e, 0x912}}, // 0x8000 in a class is no mask bit
        {nullptr, NOTE_CLASS_VIEW, 0, {}, {}},
        {nullptr, NOTE_CLASS_DOCUMENT, SEARCH_ALL_VERSIONS, {0x902, 0x906, 0x90a | RRV_DELETED}, {0x902, 0x906}},
        {"Form = \"A\"", NOTE_CLASS_DOCUMENT, 0, {0x902}, {0x902}},
        {"Form = \"A\"", NOTE_CLASS_DOCUMENT, SEARCH_ALL_VERSIONS, {0x902, 0x906, 0x90a | RRV_DELETED}, {0x902}},
        {"SELECT @All", NOTE_CLASS_ALL, 0, {0x902, 0x906, 0x90e, 0x912}, {0x902, 0x906, 0x90e, 0x912}},
        {"FORM=\"B\" & kind=\"x\"", NOTE_CLASS_ALL, 0, {0x906}, {0x906}},
    };
    for (const auto& c : cases) {
        const auto run = Search(database_, c.formula, c.mask, nullptr, c.flags);
        Ids delivered;
        for (const Delivery& delivery : run.deliveries) {
            delivered.push_back(delivery.id);
        }
        std::sort(delivered.begin(), delivered.end(),
                  [](NOTEID a, NOTEID b) { return (a & ~RRV_DELETED) < (b & ~RRV_DELETED); });
        EXPECT_EQ(run.status, NOERROR);
        EXPECT_EQ(delivered, c.delivered) << (c.formula ? c.formula : "no formula") << ' ' << c.mask;
        EXPECT_EQ(run.Matches(), c.matches) << (c.formula ? c.formula : "no formula") << ' ' << c.mask;
    }
    const auto notified =
        Search(database_, nullptr, NOTE_CLASS_DOCUMENT, nullptr, SEARCH_ALL_VERSIONS | SEARCH_NOTIFYDELETIONS);
    EXPECT_EQ(notified.deliveries[2].noteClass, NOTE_CLASS_DOCUMENT | NOTE_CLASS_DEFAULT);
}

TEST_F(SearchConformance, AStepsResultEndsTheSearch) {
    int calls = 0;
    const auto run = Search(database_, nullptr, NOTE_CLASS_ALL,
                            [&](const Delivery&) -> STATUS { return ++calls == 2 ? 0x4777 : NOERROR; });
    EXPECT_EQ(run.status, 0x4777);
    EXPECT_EQ(calls, 2);
}

TEST_F(SearchConformance, AStepMaySaveDeleteAndCreateNotes) {
    ASSERT_EQ(EmbBehaviourSet("updated-note", "again"), NOERROR); // but not what is deleted by then
    const auto run = Search(database_, nullptr, NOTE_CLASS_DOCUMENT, [&](const Delivery& delivery) -> STATUS {
        if (delivery.id == 0x902) {
            EXPECT_EQ(NSFNoteDelete(database_, 0x906, 0), NOERROR); // the next one
            EXPECT_EQ(Note::Create(database_).Update(), NOERROR);
        }
        Note note(database_, delivery.id);
        note.SetText("Seen", "yes");
        EXPECT_EQ(note.Update(UPDATE_FORCE), NOERROR);
        note.Close();
        EXPECT_EQ(NSFNoteDelete(database_, delivery.id, delivery.id == 0x902 ? UPDATE_NOSTUB : 0), NOERROR);
        return NOERROR;
    });
    EXPECT_EQ(run.status, NOERROR);
    EXPECT_EQ(run.Matches(), (Ids{0x902, 0x90a})); // neither the deleted nor the created one
    EXPECT_EQ(Search(database_, nullptr, NOTE_CLASS_DOCUMENT).deliveries.size(), 1U);
}

TEST_F(SearchConformance, NotesThatAStepCreatesAreNoneOfTheSearch) {
    for (int i = 0; i < 1100; ++i) { // more than a search looks at before it delivers
        EXPECT_EQ(Note::Create(database_).Update(), NOERROR);
    }
    size_t created = 0;
    const auto run = Search(database_, nullptr, NOTE_CLASS_DOCUMENT, [&](const Delivery&) -> STATUS {
        EXPECT_EQ(Note::Create(database_).Update(), NOERROR);
        return ++created < 3000 ? NOERROR : 0x4777; // or it would never end
    });
    EXPECT_EQ(run.status, NOERROR);
    EXPECT_EQ(run.deliveries.size(), 1103U);
}

TEST_F(SearchConformance, ANoteIsExaminedAsItIsWhenItIsDelivered) {
    const auto run = Search(database_, "Kind=\"x\"", NOTE_CLASS_DOCUMENT, [&](const Delivery& delivery) -> STATUS {
        if (delivery.id == 0x906) {
            Note note(database_, 0x90a);
            note.SetText("Kind", "x");
            EXPECT_EQ(note.Update(), NOERROR);
        }
        return NOERROR;
    });
    EXPECT_EQ(run.Matches(), (Ids{0x906, 0x90a}));
}

TEST_F(SearchConformance, SinceDeliversWhatChangedAndItsDeletions) {
    EmbClockSetVirtual(4'000'000'000'00); // later than the notes were made
    EXPECT_EQ(Note(database_, 0x902).Update(), NOERROR);
    EmbClockAdvance(1000);
    Note marker(database_, 0x906);
    EXPECT_EQ(marker.Update(), NOERROR);
    TIMEDATE since = marker.Oid().SequenceTime;
    EmbClockAdvance(8'640'000); // over midnight
    EXPECT_EQ(NSFNoteDelete(database_, 0x90a, 0), NOERROR);
    const auto run = Search(database_, nullptr, NOTE_CLASS_ALL, nullptr, 0, &since);
    EXPECT_EQ(run.Matches(), Ids{0x906});
    ASSERT_EQ(run.deliveries.size(), 2U);
    EXPECT_EQ(run.deliveries[1].id, 0x90a | RRV_DELETED);
}

TEST_F(SearchConformance, AFormulaThatDoesNotCompileSaysWhere) {
    FORMULAHANDLE formula = 77;
    WORD compiledLength = 0, line = 0, column = 0, offset = 0, length = 0;
    STATUS detail = NOERROR;
    const std::string text = "Form = \"A\" &\n Size ^ 5";
    EXPECT_EQ(NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &formula, &compiledLength,
                                &detail, &line, &column, &offset, &length),
              ERR_FORMULA_COMPILATION);
    EXPECT_EQ(formula, FORMULAHANDLE{NULLHANDLE});
    EXPECT_NE(detail, NOERROR);
    EXPECT_EQ(line, 2);
    EXPECT_EQ(column, 7);
    EXPECT_EQ(offset, 19);
    EXPECT_EQ(length, 1);
}

TEST_F(SearchConformance, BadArgumentsAreAnswered) {
    const NSFSEARCHPROC none = [](void*, SEARCH_MATCH*, ITEM_TABLE*) -> STATUS { return NOERROR; };
    char view[] = "By form";
    EXPECT_EQ(NSFSearch(database_, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, nullptr, nullptr, nullptr),
              EMB_ERR_ARGUMENT);
    EXPECT_EQ(NSFSearch(database_, NULLHANDLE, view, 0, NOTE_CLASS_ALL, nullptr, none, nullptr, nullptr),
              EMB_ERR_UNSUPPORTED);
    EXPECT_EQ(
        NSFSearch(database_, NULLHANDLE, nullptr, SEARCH_SUMMARY, NOTE_CLASS_ALL, nullptr, none, nullptr, nullptr),
        EMB_ERR_UNSUPPORTED);
    DHANDLE noFormula = NULLHANDLE;
    ASSERT_EQ(OSMemAlloc(0, 16, &noFormula), NOERROR);
    EXPECT_EQ(NSFSearch(database_, noFormula, nullptr, 0, NOTE_CLASS_ALL, nullptr, none, nullptr, nullptr),
              EMB_ERR_ARGUMENT);
    EXPECT_EQ(OSMemFree(noFormula), NOERROR);
    EXPECT_EQ(NSFFormulaCompile(nullptr, 0, "x", 1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              EMB_ERR_ARGUMENT);
}

} // namespace
} // namespace embedded::test
