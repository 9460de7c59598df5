// The input as a DXL file, which is refused with its place and cause and without a trace or becomes a database; and as
// the items of a note. The export of either database must make the same database.
#include "engine/dxl/dxl.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <string>

#include "engine/dxl/xml_text.h"
#include "engine/store/store.h"
#include "engine/values/item_codec.h"
#include "fuzz_target.h"
#include "support/temporary_folder.h"

namespace fuzz {
namespace {

using namespace embedded;
using updkrx::test::ReadFile;
using updkrx::test::WriteFile;

std::set<std::string> FilesIn(const std::filesystem::path& directory) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.insert(entry.path().filename());
    }
    return names;
}

std::string Exported(const std::filesystem::path& database, bool stable) {
    const std::filesystem::path file = database.parent_path() / "out.dxl";
    ExportDxl(database, file, {stable});
    return ReadFile(file);
}

void ExpectSurvives(const std::filesystem::path& database) {
    const std::string dxl = Exported(database, false), stable = Exported(database, true);
    const std::filesystem::path copy = database.parent_path() / "b.nsf";
    ImportDxl(copy, WriteFile(database.parent_path() / "in.dxl", dxl), DxlImportInto::replacedDatabase);
    Expect(Exported(copy, false) == dxl && Exported(copy, true) == stable, "an export makes the same database");
}

/** "FILE:LINE: cause" */
void ExpectRefusal(std::string_view message, const std::string& file, std::string_view input) {
    Expect(IsXmlText(message) && message.starts_with(file + ":"), "a refusal is a text that names the file");
    message.remove_prefix(file.size() + 1);
    size_t line = 0;
    const auto number = std::from_chars(message.data(), message.data() + message.size(), line);
    message.remove_prefix(static_cast<size_t>(number.ptr - message.data()));
    const auto lines = static_cast<size_t>(std::count(input.begin(), input.end(), '\n')) + 1;
    Expect(line >= 1 && line <= lines, "and a line of it");
    Expect(message.starts_with(": ") && message.size() > 2, "and the cause");
}

void ExpectImportedOrRefused(const std::filesystem::path& folder, std::string_view input) {
    const std::string dxl = WriteFile(folder / "in.dxl", input);
    const std::string database = WriteFile(folder / "a.nsf", "was here");
    const auto files = FilesIn(folder);
    try {
        ImportDxl(database, dxl, DxlImportInto::replacedDatabase);
    } catch (const StatusError& error) {
        Expect(error.Status() == EMB_ERR_DXL, "a file that can be read is refused for its content only");
        ExpectRefusal(error.what(), dxl, input);
        Expect(ReadFile(database) == "was here", "a refused file replaces nothing");
        return Expect(FilesIn(folder) == files, "and leaves nothing");
    }
    Expect(FilesIn(folder) == files, "nothing is left beside the database");
    ExpectSurvives(database);
}

void ExpectItemsSurvive(const std::filesystem::path& folder, std::string_view input) {
    try {
        ItemCursor cursor(input);
        for (ItemView view{}; cursor.Next(view);) {
            if (IsKept(view.type) || view.object) {
                return; // what import alone makes
            }
        }
    } catch (const StatusError&) {
        return; // no items
    }
    const std::filesystem::path database = folder / "c.nsf";
    std::filesystem::remove(database);
    const auto store = Store::Create(database, {});
    const NOTEID id = store->Insert({}, input);
    store->Close();
    ExpectSurvives(database);
    NoteHead head;
    std::string items;
    Expect(Store::Open(folder / "b.nsf", StoreAccess::readOnly)->Read(id, head, items) && items == input,
           "items survive byte for byte");
}

} // namespace

void dxl(std::string_view input) {
    static const updkrx::test::TemporaryFolder folder;
    ExpectImportedOrRefused(folder.Path(), input);
    ExpectItemsSurvive(folder.Path(), input);
}

} // namespace fuzz
