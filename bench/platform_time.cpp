#include "platform_time.h"

#include "notes_api.h"

namespace {

using Clock = std::chrono::steady_clock;

platform_time::Spent account;
Clock::time_point mark;

/** The time since the last call belonged to this side. */
void Book(Clock::duration& side) {
    const auto now = Clock::now();
    side += now - mark;
    mark = now;
}

struct OnPlatform {
    OnPlatform() { Book(account.own); }
    OnPlatform(const OnPlatform&) = delete;
    OnPlatform& operator=(const OnPlatform&) = delete;
    ~OnPlatform() { Book(account.platform); }
};

struct Step {
    Step(NSFSEARCHPROC given, void* givenParameter) : function(given), parameter(givenParameter) {}
    /** For the length of a call. */
    void* Address() { return this; }

    NSFSEARCHPROC function;
    void* parameter;
};

STATUS LNCALLBACK StepInModule(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary) {
    Book(account.platform);
    const Step& step = *static_cast<const Step*>(parameter);
    const STATUS status = step.function(step.parameter, match, summary);
    Book(account.own);
    return status;
}

} // namespace

void platform_time::Start() {
    account = {};
    mark = Clock::now();
}

platform_time::Spent platform_time::TimeSpent() {
    Book(account.own);
    return account;
}

// The linker gives the module these in place of the platform's operations; the target takes the names from here.
#define TIMED(Result, Name, Parameters, Arguments)                                                                     \
    extern "C" Result __real_##Name Parameters;                                                                        \
    extern "C" Result __wrap_##Name Parameters;                                                                        \
    Result __wrap_##Name Parameters {                                                                                  \
        const OnPlatform timing;                                                                                       \
        return __real_##Name Arguments;                                                                                \
    }

TIMED(STATUS, NSFDbOpen, (const char* path, DBHANDLE* database), (path, database))
TIMED(STATUS, NSFDbClose, (DBHANDLE database), (database))
TIMED(STATUS, NSFNoteOpen, (DBHANDLE database, NOTEID id, WORD flags, NOTEHANDLE* note), (database, id, flags, note))
TIMED(STATUS, NSFNoteOpenByUNID, (DBHANDLE database, UNID* unid, WORD flags, NOTEHANDLE* note),
      (database, unid, flags, note))
TIMED(STATUS, NSFNoteCopy, (NOTEHANDLE source, NOTEHANDLE* copy), (source, copy))
TIMED(STATUS, NSFNoteUpdate, (NOTEHANDLE note, WORD flags), (note, flags))
TIMED(STATUS, NSFNoteClose, (NOTEHANDLE note), (note))
TIMED(STATUS, NSFNoteDelete, (DBHANDLE database, NOTEID id, WORD flags), (database, id, flags))
TIMED(void, NSFNoteGetInfo, (NOTEHANDLE note, WORD member, void* value), (note, member, value))
TIMED(void, NSFNoteSetInfo, (NOTEHANDLE note, WORD member, void* value), (note, member, value))
TIMED(STATUS, NSFDbCopyNote,
      (DBHANDLE from, DBID* fromId, DBID* fromReplica, NOTEID id, DBHANDLE to, DBID* toId, DBID* toReplica,
       NOTEID* newId, WORD* newClass),
      (from, fromId, fromReplica, id, to, toId, toReplica, newId, newClass))
TIMED(WORD, NSFItemGetText, (NOTEHANDLE note, const char* name, char* buffer, WORD size), (note, name, buffer, size))
TIMED(STATUS, NSFItemSetText, (NOTEHANDLE note, const char* name, const char* text, WORD length),
      (note, name, text, length))
TIMED(STATUS, NSFItemInfo,
      (NOTEHANDLE note, const char* name, WORD nameLength, BLOCKID* item, WORD* type, BLOCKID* value, DWORD* length),
      (note, name, nameLength, item, type, value, length))
TIMED(STATUS, NSFItemDelete, (NOTEHANDLE note, const char* name, WORD nameLength), (note, name, nameLength))
TIMED(WORD, NSFItemGetTextListEntries, (NOTEHANDLE note, const char* name), (note, name))
TIMED(WORD, NSFItemGetTextListEntry, (NOTEHANDLE note, const char* name, WORD position, char* buffer, WORD size),
      (note, name, position, buffer, size))
TIMED(STATUS, NSFItemCreateTextList, (NOTEHANDLE note, const char* name, const char* text, WORD length),
      (note, name, text, length))
TIMED(STATUS, NSFItemAppendTextList,
      (NOTEHANDLE note, const char* name, const char* text, WORD length, BOOL allowDuplicates),
      (note, name, text, length, allowDuplicates))
TIMED(STATUS, NSFFormulaCompile,
      (char* name, WORD nameLength, const char* text, WORD textLength, FORMULAHANDLE* formula, WORD* formulaLength,
       STATUS* error, WORD* line, WORD* column, WORD* offset, WORD* length),
      (name, nameLength, text, textLength, formula, formulaLength, error, line, column, offset, length))
TIMED(LONG, OSGetEnvironmentLong, (const char* name), (name))
TIMED(WORD, OSTranslate, (WORD mode, const char* in, WORD inLength, char* out, WORD outSize),
      (mode, in, inLength, out, outSize))
TIMED(BOOL, AddInIdleDelay, (DWORD milliseconds), (milliseconds))
TIMED(STATUS, OSMemFree, (DHANDLE handle), (handle))
TIMED(STATUS, SECKFMGetUserName, (char* buffer), (buffer))
TIMED(STATUS, NSFRemoteConsole, (char* server, char* command, DHANDLE* reply), (server, command, reply))

TIMED(STATUS, NSFSearch,
      (DBHANDLE database, FORMULAHANDLE formula, char* viewTitle, WORD flags, WORD classMask, TIMEDATE* since,
       NSFSEARCHPROC step, void* parameter, TIMEDATE* until),
      (database, formula, viewTitle, flags, classMask, since, StepInModule, Step(step, parameter).Address(), until))
