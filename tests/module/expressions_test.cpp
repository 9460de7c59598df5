// The expression documents: what the migration changes in them, what it leaves alone, and the table that it logs.
#include "maintenance/expressions.h"

#include <regex>

#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/unid_text.h"
#include "support/server_fixture.h"

namespace updkrx {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* databasePath = "krx/krconf.nsf";

std::string Item(const std::string& name, const std::string& text) {
    return "<item name='" + name + "'><text>" + text + "</text></item>";
}

std::string List(const Texts& entries) {
    std::string list = "<item name='RefContent'><textlist>";
    for (const std::string& entry : entries) {
        list += "<text>" + entry + "</text>";
    }
    return list + "</textlist></item>";
}

std::string Document(const std::string& unid, const std::string& items, const char* form = "Expression") {
    return std::string("<document form='") + form + "'><noteinfo unid='" + unid + "'/>" + items + "</document>";
}

const std::string own = "2B62C9859B8B015841258DA800324330";
const std::string other = "1096E921CBE1E9D541258DA80044FFF9";
const std::string hoax = "CCCD9A452EEE6AF248256E1600236933";
const std::string chain = "9CA8289B72BE6CE848256E1600236921";

const std::string joke = Item("Expression", "this is not a joke");
const std::string flower = Item("Expression", "An Internet flower for you .AND.  virus");
const std::string ownId = Item("DocID", own);

/** Each is tried as the one expression document of a database. */
const struct {
    const char* what;
    std::string before;
    std::string after;
    bool newDocId;
} migrations[] = {
    {"everything to do", joke + Item("DocID", other), joke + ownId + List({chain}), true},
    {"without DocID", joke + Item("Title", "t"), joke + Item("Title", "t") + ownId + List({chain}), true},
    {"done already", joke + ownId + List({chain, other}), joke + ownId + List({chain, other}), false},
    {"another reference", flower + List({other}) + ownId, flower + List({other, hoax}) + ownId, false},
    {"a single reference", flower + Item("RefContent", other) + ownId, flower + ownId + List({other, hoax}), false},
    {"a blank less", Item("Expression", "An Internet flower for you .AND. virus"),
     Item("Expression", "An Internet flower for you .AND. virus") + ownId, true},
    {"another letter case", Item("Expression", "This is not a joke") + ownId,
     Item("Expression", "This is not a joke") + ownId, false},
    {"the beginning only", Item("Expression", "this is not a") + ownId, Item("Expression", "this is not a") + ownId,
     false},
    {"a second line", Item("Expression", "this is not a joke<break/>") + ownId,
     Item("Expression", "this is not a joke<break/>") + ownId, false},
    {"behind all that ships", Item("Expression", "\xC3\xBC") + ownId, Item("Expression", "\xC3\xBC") + ownId, false},
    {"no expression", Item("DocID", ""), ownId, true},
    {"DocID in lower case", Item("DocID", "2b62c9859b8b015841258da800324330"), ownId, true},
    {"DocID with more", Item("DocID", own + "<break/>"), ownId, true},
};

class ExpressionsTest : public test::ServerFixture {
protected:
    /** The migration takes no note for an expression that is one by its form only, or by its class only. */
    static std::string Neighbours() {
        return Document("E80682ADE3C36FA541258DA8003EC0EA", joke + Item("DocID", other), "Rule") +
               "<note class='form'><noteinfo unid='F49AFD5C794C4E1D48258D7600166B22'/>" + Item("Form", "Expression") +
               joke + "</note>";
    }

    void Make(const std::string& expressionDocuments) const {
        std::filesystem::remove(Data() / databasePath);
        MakeDatabase(databasePath, expressionDocuments + Neighbours());
    }

    /** The database, or one that is made of these documents, but for its replica ID. */
    [[nodiscard]] std::string Content(const char* path = databasePath) const {
        return std::regex_replace(ExportDatabase(path), std::regex(" replicaid='[0-9A-F]*'"), "");
    }
    [[nodiscard]] std::string ContentOf(const std::string& expressionDocuments) const {
        std::filesystem::remove(Data() / "krx/after.nsf");
        MakeDatabase("krx/after.nsf", expressionDocuments + Neighbours());
        return Content("krx/after.nsf");
    }
};

TEST_F(ExpressionsTest, MigratesExpressionDocuments) {
    for (const auto& [what, before, after, newDocId] : migrations) {
        SCOPED_TRACE(what);
        Make(Document(own, before));
        EmbResetCalls();
        EXPECT_EQ(MigrateContentFilterExpressions(), 0U);
        EXPECT_EQ(EmbCallCount("NSFItemSetText"), newDocId ? 1U : 0U);
        EXPECT_EQ(EmbCallCount("NSFNoteUpdate"), 1U) << "saved, changed or not, and nothing else";
        const std::string expected = ContentOf(Document(own, after));
        EXPECT_EQ(Content(), expected);

        ASSERT_EQ(EmbBehaviourSet("updated-note", "again"), NOERROR);
        EXPECT_EQ(MigrateContentFilterExpressions(), 0U);
        ASSERT_EQ(EmbBehaviourSet("updated-note", nullptr), NOERROR);
        EXPECT_EQ(EmbCallCount("NSFNoteUpdate"), 2U);
        EXPECT_EQ(Content(), expected) << "once is enough";
    }
}

TEST_F(ExpressionsTest, ComparesTheFirst254Characters) {
    const std::string longest(254, 'x');
    const DefaultExpression table[] = {{longest, chain}};
    for (const size_t length : {253U, 254U, 255U}) {
        SCOPED_TRACE(length);
        const std::string expression = Item("Expression", std::string(length, 'x'));
        Make(Document(own, expression));
        ScopedDatabase database;
        ASSERT_EQ(database.Open(NSFDbOpen, databasePath), NOERROR);
        ScopedFormula formula;
        ASSERT_EQ(CompileSelection("FORM=\"Expression\"", maxSelectionLength, formula), NOERROR);
        const auto migrate = [&](const SEARCH_MATCH& found) {
            MigrateExpressionCallback({database.Get(), table}, found.ID.NoteID);
        };
        EXPECT_EQ(SearchNotes({"", database.Get(), formula.Get(), NOTE_CLASS_DOCUMENT}, migrate), NOERROR);
        EXPECT_EQ(database.Close(), NOERROR);
        EXPECT_EQ(Content(),
                  ContentOf(Document(own, expression + ownId + (length < 254 ? std::string() : List({chain})))));
    }
}

} // namespace
} // namespace updkrx
