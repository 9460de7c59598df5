// A module for krxpatch to load that dies in the middle of its work, with everything lying about that a run can leave.
#include <filesystem>
#include <fstream>

#include "notes_api.h"
#include "os/export.h"
#include "support/system.h"

namespace {

/** A note that is saved and not yet on the disk for good: the database's journal stays behind. */
void LeaveHalfWritten(const char* path) {
    DBHANDLE database = NULLHANDLE;
    NOTEHANDLE note = NULLHANDLE;
    const std::string text(20'000, 'x');
    (void)NSFDbOpen(path, &database);
    for (int i = 0; i < 200; ++i) { // more than the database's cache holds
        (void)NSFNoteCreate(database, &note);
        (void)NSFItemSetText(note, "Text", text.c_str(), MAXWORD);
        (void)NSFNoteUpdate(note, 0);
        (void)NSFNoteClose(note);
    }
}

} // namespace

extern "C" UPDKRX_EXPORT STATUS MainEntryPoint() {
    char data[MAXPATH] = "";
    (void)OSGetDataDirectory(data);
    const std::filesystem::path krx = std::filesystem::path(data) / "krx";
    LeaveHalfWritten("krx/krconf.nsf");
    (void)NSFTakeDatabaseOffline("krx/krtime.nsf", 0, OFFLINE_NODELETE);
    (void)NSFTakeDatabaseOffline("krx/krency.nsf", 0, 0); // which deletes it
    (void)NSFBringDatabaseOnline("krx/krvlog.nsf", 0);
    std::ofstream(krx / "krquar.nsf", std::ios::trunc) << "half a dat";
    std::ofstream(krx / "krquar.nsf.$$$") << "half a database";
    std::filesystem::create_directories(krx / "new/folder");
    std::ofstream(krx / "new/folder/krnew.ntf") << "half a template";
    updkrx::test::Die(9);
}
