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

void expectTextList(std::string_view bytes) {
    if (const auto entries = textEntries(TYPE_TEXT_LIST, bytes))
        expect(bytes.starts_with(encodeTextList(*entries)), "the entries are those of the bytes");
}

std::vector<Item> listOf(const Items& items) {
    std::vector<Item> list;
    ItemCursor cursor = items.cursor();
    for (ItemView view{}; cursor.next(view);)
        list.push_back({std::string(view.name), view.type, view.flags, std::string(view.value)});
    return list;
}

void expectErased(Items items, const std::string& name) {
    auto left = listOf(items);
    const bool had = std::erase_if(left, [&](const Item& item) { return sameItemName(item.name, name); }) > 0;
    expect(items.erase(name) == had && items.encoded() == encodeItems(left), "the items of a name go and no other");
}

void expectAppended(Items items, const std::string& name) {
    Items before = items;
    try {
        appendTextListEntry(items, name, "a", true);
    } catch (const StatusError&) {
        return expect(items == before, "nothing has changed when an entry cannot be added");
    }
    auto entries = itemEntries(before, name);
    entries.push_back("a");
    expect(itemEntries(items, name) == entries, "the entry stands behind those that were there");
    items.erase(name);
    before.erase(name);
    expect(items == before, "the other items stay");
}

void expectResized(const Items& items) {
    Items expanded = items, contracted = items;
    expandItems(expanded);
    contractItems(contracted);
    Items again = expanded, back = contracted;
    expandItems(again);
    contractItems(back);
    expect(again == expanded && back == contracted, "what is expanded or contracted stays so");
    for (const Item& item : listOf(items)) {
        const std::string text = itemText(items, item.name);
        expect(itemText(expanded, item.name) == text && itemText(contracted, item.name) == text, "its text too");
    }
}

void expectSearched(const Items& items) {
    static const std::string formula = std::get<std::string>(compileFormula("F = \"a\""));
    const auto entries = itemEntries(items, "f");
    const bool has = std::find(entries.begin(), entries.end(), "a") != entries.end();
    expect(formulaSelects(formula, items.encoded()) == has, "a formula sees the texts of a field");
}

void expectItems(std::string_view input) {
    const Items items{std::string(input)};
    const auto list = listOf(items);
    expect(encodeItems(list) == input, "items read and written are the same bytes");
    const std::string name = list.empty() ? "F" : list.back().name;
    expectErased(items, name);
    if (!name.empty())
        expectAppended(items, name);
    expectResized(items);
    expectSearched(items);
}

} // namespace

void items(std::string_view input) {
    expectTextList(input);
    for (const auto read : {+[](std::string_view bytes) { expectItems(bytes); },
                            +[](std::string_view bytes) { (void)decodeAcl(bytes); }}) {
        try {
            read(input);
        } catch (const StatusError& error) {
            expect(error.status() == EMB_ERR_DAMAGED, "other bytes are said to be damaged");
        }
    }
}

} // namespace fuzz
