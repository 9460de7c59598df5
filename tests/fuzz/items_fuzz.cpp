// The input as what a damaged database could hold: encoded items, a text list, an access control list.
#include "engine/values/items.h"

#include <algorithm>

#include "engine/formula/formula.h"
#include "engine/values/acl.h"
#include "engine/values/status_error.h"
#include "fuzz_target.h"

namespace fuzz {
namespace {

using namespace embedded;

void ExpectTextList(std::string_view bytes) {
    if (const auto entries = TextEntries(TYPE_TEXT_LIST, bytes)) {
        Expect(bytes.starts_with(EncodeTextList(*entries)), "the entries are those of the bytes");
    }
}

std::vector<Item> ListOf(const Items& items) {
    std::vector<Item> list;
    ItemCursor cursor = items.Cursor();
    for (ItemView view{}; cursor.Next(view);) {
        list.push_back({std::string(view.name), view.type, view.flags, std::string(view.value), view.object});
    }
    return list;
}

void ExpectErased(Items items, const std::string& name) {
    auto left = ListOf(items);
    const bool had = std::erase_if(left, [&](const Item& item) { return SameItemName(item.name, name); }) > 0;
    Expect(items.Erase(name) == had && items.Encoded() == EncodeItems(left), "the items of a name go and no other");
}

void ExpectAppended(Items items, const std::string& name) {
    Items before = items;
    try {
        AppendTextListEntry(items, name, "a", true);
    } catch (const StatusError&) {
        return Expect(items == before, "nothing has changed when an entry cannot be added");
    }
    auto entries = ItemEntries(before, name);
    entries.push_back("a");
    Expect(ItemEntries(items, name) == entries, "the entry stands behind those that were there");
    items.Erase(name);
    before.Erase(name);
    Expect(items == before, "the other items stay");
}

void ExpectResized(const Items& items) {
    Items expanded = items, contracted = items;
    ExpandItems(expanded);
    ContractItems(contracted);
    Items again = expanded, back = contracted;
    ExpandItems(again);
    ContractItems(back);
    Expect(again == expanded && back == contracted, "what is expanded or contracted stays so");
    for (const Item& item : ListOf(items)) {
        const std::string text = ItemText(items, item.name);
        Expect(ItemText(expanded, item.name) == text && ItemText(contracted, item.name) == text, "its text too");
    }
}

void ExpectSearched(const Items& items) {
    static const std::string formula = std::get<std::string>(CompileFormula("F = \"a\""));
    const auto entries = ItemEntries(items, "f");
    const bool has = std::find(entries.begin(), entries.end(), "a") != entries.end();
    Expect(FormulaSelects(formula, items.Encoded()) == has, "a formula sees the texts of a field");
}

void ExpectItems(std::string_view input) {
    const Items items{std::string(input)};
    const auto list = ListOf(items);
    Expect(EncodeItems(list) == input, "items read and written are the same bytes");
    const std::string name = list.empty() ? "F" : list.back().name;
    ExpectErased(items, name);
    if (!name.empty()) {
        ExpectAppended(items, name);
    }
    ExpectResized(items);
    ExpectSearched(items);
}

} // namespace

void items(std::string_view input) {
    ExpectTextList(input);
    for (const auto read : {+[](std::string_view bytes) { ExpectItems(bytes); },
                            +[](std::string_view bytes) { (void)DecodeAcl(bytes); }}) {
        try {
            read(input);
        } catch (const StatusError& error) {
            Expect(error.Status() == EMB_ERR_DAMAGED || error.Status() == ERR_SEGMENT_TOO_BIG,
                   "other bytes are said to be damaged, and texts in objects not to be read");
        }
    }
}

} // namespace fuzz
