#include "maintenance/replication_settings.h"

#include <cstring>
#include <string_view>

#include "foundation/debug_log.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/notes_text.h"
#include "foundation/second_try.h"

namespace updkrx {
namespace {

constexpr STATUS failed = 1;
constexpr DWORD listBlockSize = 1024;
constexpr std::string_view anyServer = "-";
constexpr std::string_view allClasses = "2047"; // the classes 0x0001 to 0x0400

STATUS SetText(NOTEHANDLE note, const char* item, std::string_view text) noexcept {
    return NSFItemSetText(note, item, text.data(), static_cast<WORD>(text.size()));
}

STATUS AppendValue(NOTEHANDLE note, std::string_view item, WORD type, const void* value, DWORD length) noexcept {
    return NSFItemAppend(note, ITEM_SUMMARY, item.data(), static_cast<WORD>(item.size()), type, value, length);
}

/** Appends a text list of one entry. It is built in `block`. */
STATUS AppendList(NOTEHANDLE note, std::string_view item, std::string_view entry, void* block) noexcept {
    const WORD head[] = {1, static_cast<WORD>(entry.size())};
    std::memcpy(block, head, sizeof head);
    std::memcpy(static_cast<char*>(block) + sizeof head, entry.data(), entry.size());
    return AppendValue(note, item, TYPE_TEXT_LIST, block, static_cast<DWORD>(sizeof head + entry.size()));
}

STATUS AppendLists(NOTEHANDLE note) noexcept {
    ScopedMemory memory;
    if (const STATUS status = memory.Open(OSMemAlloc, WORD{0}, listBlockSize); status != NOERROR) {
        return status;
    }
    const ScopedLock block(memory.Get());
    if (block.Address() == nullptr) {
        return failed;
    }
    if (const STATUS status = AppendList(note, "$ReplSrcServers", anyServer, block.Address()); status != NOERROR) {
        return status;
    }
    return AppendList(note, "$ReplClassMasks", allClasses, block.Address()) == NOERROR ? NOERROR : failed;
}

STATUS AppendFormula(NOTEHANDLE note) noexcept {
    ScopedFormula formula;
    WORD length = 0;
    if (CompileSelection("SELECT @All", maxSelectionLength, formula, &length) != NOERROR) {
        return failed;
    }
    const ScopedLock compiled(formula.Get());
    if (compiled.Address() == nullptr) {
        return failed;
    }
    return AppendValue(note, "$ReplFormula", TYPE_FORMULA, compiled.Address(), length) == NOERROR ? NOERROR : failed;
}

STATUS WriteItems(NOTEHANDLE note, const char* server) noexcept {
    STATUS status = SetText(note, "$TITLE", server);
    if (status == NOERROR) {
        status = SetText(note, "$ReplVersion", "2");
    }
    if (status == NOERROR) {
        status = AppendLists(note);
    }
    if (status == NOERROR) {
        status = AppendFormula(note);
    }
    return status;
}

STATUS CreateNote(DBHANDLE database, const char* server, ScopedNote& note) noexcept {
    if (const STATUS status = note.Open(NSFNoteCreate, database); status != NOERROR) {
        return status;
    }
    WORD noteClass = NOTE_CLASS_REPLFORMULA;
    NSFNoteSetInfo(note.Get(), _NOTE_CLASS, &noteClass);
    return WriteItems(note.Get(), server);
}

} // namespace

STATUS CreateReplicationSettings(DBHANDLE database) noexcept {
    char server[MAXENVVALUE];
    if (!GetEnvironmentText("MailServer", server, sizeof server)) {
        return failed;
    }
    ScopedNote note;
    STATUS status = WithSecondTry([&] { return CreateNote(database, server, note); });
    if (status == NOERROR) {
        status = WithSecondTry([&] { return NSFNoteUpdate(note.Get(), 0); });
    }
    if (status == NOERROR) {
        status = note.Close();
    }
    if (status != NOERROR) {
        DebugLog(level::progress, "Error: The replication settings cannot be made. sError is %d", status);
    }
    return status;
}

} // namespace updkrx
