// The input as a DXL file, which is refused with its place and cause and without a trace or becomes a database; and as
// the items of a note. The export of either database must make the same database.
#include "engine/dxl/dxl.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <string>

#include "engine/dxl/xml_text.h"
#include "engine/store/store.h"
#include "engine/values/items.h"
#include "fuzz_target.h"
#include "support/temporary_folder.h"

namespace fuzz {
namespace {

using namespace embedded;
using updkrx::test::ReadFile;
using updkrx::test::WriteFile;

std::set<std::string> filesIn(const std::filesystem::path& directory) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.insert(entry.path().filename());
    return names;
}

std::string exported(const std::filesystem::path& database, bool stable) {
    const std::filesystem::path file = database.parent_path() / "out.dxl";
    exportDxl(database, file, {stable});
    return ReadFile(file);
}

void expectSurvives(const std::filesystem::path& database) {
    const std::string dxl = exported(database, false), stable = exported(database, true);
    const std::filesystem::path copy = database.parent_path() / "b.nsf";
    importDxl(copy, WriteFile(database.parent_path() / "in.dxl", dxl), true);
    expect(exported(copy, false) == dxl && exported(copy, true) == stable, "an export makes the same database");
}

/** "FILE:LINE: cause" */
void expectRefusal(std::string_view message, const std::string& file, std::string_view input) {
    expect(isXmlText(message) && message.starts_with(file + ":"), "a refusal is a text that names the file");
    message.remove_prefix(file.size() + 1);
    size_t line = 0;
    const auto number = std::from_chars(message.data(), message.data() + message.size(), line);
    message.remove_prefix(static_cast<size_t>(number.ptr - message.data()));
    const auto lines = static_cast<size_t>(std::count(input.begin(), input.end(), '\n')) + 1;
    expect(line >= 1 && line <= lines, "and a line of it");
    expect(message.starts_with(": ") && message.size() > 2, "and the cause");
}

void expectImportedOrRefused(const std::filesystem::path& folder, std::string_view input) {
    const std::string dxl = WriteFile(folder / "in.dxl", input);
    const std::string database = WriteFile(folder / "a.nsf", "was here");
    const auto files = filesIn(folder);
    try {
        importDxl(database, dxl, true);
    } catch (const StatusError& error) {
        expect(error.status() == EMB_ERR_DXL, "a file that can be read is refused for its content only");
        expectRefusal(error.what(), dxl, input);
        expect(ReadFile(database) == "was here", "a refused file replaces nothing");
        return expect(filesIn(folder) == files, "and leaves nothing");
    }
    expect(filesIn(folder) == files, "nothing is left beside the database");
    expectSurvives(database);
}

void expectItemsSurvive(const std::filesystem::path& folder, std::string_view input) {
    try {
        (void)Items(std::string(input));
    } catch (const StatusError&) {
        return; // no items
    }
    const std::filesystem::path database = folder / "c.nsf";
    std::filesystem::remove(database);
    const auto store = Store::create(database, {});
    const NOTEID id = store->insert({}, input);
    store->close();
    expectSurvives(database);
    NoteHead head;
    std::string items;
    expect(Store::open(folder / "b.nsf", StoreAccess::readOnly)->read(id, head, items) && items == input,
           "items survive byte for byte");
}

} // namespace

void dxl(std::string_view input) {
    static const updkrx::test::TemporaryFolder folder;
    expectImportedOrRefused(folder.Path(), input);
    expectItemsSurvive(folder.Path(), input);
}

} // namespace fuzz
