#include "note_reader.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "common/ascii_text.h"

namespace krxpatch {
namespace {

[[noreturn]] void Fail(const std::filesystem::path& file, const std::string& cause) {
    throw std::runtime_error(cause.empty() ? file.string() + ": cannot be read" : cause);
}

std::vector<std::string> ValuesOf(const EMBITEM& item) {
    std::vector<std::string> values;
    const char* value = item.values;
    for (DWORD i = 0; i < item.valueCount; ++i) {
        values.emplace_back(value);
        value += std::strlen(value) + 1;
    }
    return values;
}

} // namespace

NoteReader::NoteReader(const std::filesystem::path& file) : file_(file) {
    char message[1024] = "";
    if (EmbReaderOpen(file.string().c_str(), &reader_, message, sizeof message) != NOERROR) {
        Fail(file, message);
    }
}

NoteReader::~NoteReader() {
    EmbReaderClose(reader_);
}

std::vector<std::pair<std::string, std::string>> NoteReader::Facts(bool accessControl) const {
    std::vector<std::pair<std::string, std::string>> facts;
    EMBFACT fact{};
    for (DWORD i = 0; EmbReaderFact(reader_, i, &fact); ++i) {
        if ((fact.accessControl != 0) == accessControl) {
            facts.emplace_back(fact.name, fact.value);
        }
    }
    return facts;
}

bool NoteReader::Next() {
    BOOL found = 0;
    if (EmbReaderNext(reader_, &note_, &found) != NOERROR) {
        Fail(file_, file_.string() + ": is damaged");
    }
    return found != 0;
}

bool NoteReader::IsDocument() const noexcept {
    return (note_.noteClass & NOTE_CLASS_DOCUMENT) != 0;
}

std::vector<NamedItem> NoteReader::Items() const {
    std::vector<NamedItem> items;
    EMBITEM item{};
    BOOL found = 0;
    for (DWORD i = 0;; ++i) {
        if (EmbReaderItem(reader_, i, &item, &found) != NOERROR) {
            Fail(file_, file_.string() + ": the note " + note_.unidText + " is damaged");
        }
        if (!found) {
            return items;
        }
        items.push_back({item.name, {item.type, item.flags, ValuesOf(item)}});
    }
}

bool HasDocuments(const std::filesystem::path& file) {
    for (NoteReader reader(file); reader.Next();) {
        if (reader.IsDocument()) {
            return true;
        }
    }
    return false;
}

const ItemValue* FindItem(const std::vector<NamedItem>& items, std::string_view name) {
    const auto found = std::ranges::find_if(
        items, [&](const NamedItem& item) { return updkrx::EqualIgnoringAsciiCase(item.name, name); });
    return found == items.end() ? nullptr : &found->value;
}

std::string FirstLine(const std::vector<NamedItem>& items, std::string_view name) {
    const ItemValue* value = FindItem(items, name);
    return value == nullptr || value->values.empty()
               ? ""
               : value->values.front().substr(0, value->values.front().find('\n'));
}

std::vector<std::string> EditorsIn(const std::vector<NamedItem>& items) {
    const ItemValue* updatedBy = FindItem(items, "$UpdatedBy");
    std::vector<std::string> editors = updatedBy == nullptr ? std::vector<std::string>() : updatedBy->values;
    if (const std::string signer = FirstLine(items, "$Signature"); !signer.empty()) {
        editors.push_back(signer);
    }
    return editors;
}

std::string ClassText(const EMBNOTE& note) {
    return std::string((note.noteClass & NOTE_CLASS_PRIVATE) != 0 ? "private " : "") +
           ((note.noteClass & NOTE_CLASS_DEFAULT) != 0 ? "default " : "") + note.className;
}

} // namespace krxpatch
