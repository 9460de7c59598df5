/**
 * The control surface of the embedded Notes platform: what a host or a test does with the platform that no
 * program on a real server could. Plain C, so that it works across a boundary between two compilers.
 *
 * Texts are UTF-8 here (the Notes API itself speaks LMBCS). Database paths are what the Notes API takes:
 * relative to the data directory, or absolute. Functions that can fail return a STATUS, 0 for success; texts
 * are put into buffers terminated and cut to fit, and the length of the whole text is returned.
 */
#ifndef EMBEDDED_NOTES_H
#define EMBEDDED_NOTES_H

#include "notes_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Statuses of the embedded platform's own ------------------------------------------------------------ */

#define EMB_ERR_NO_SESSION ((STATUS)0x3E01)  /* no session was begun */
#define EMB_ERR_HANDLE ((STATUS)0x3E02)      /* a handle that is not open, or of another kind */
#define EMB_ERR_ARGUMENT ((STATUS)0x3E03)    /* a missing pointer, a bad size, an unknown option */
#define EMB_ERR_ITEM_TYPE ((STATUS)0x3E09)   /* the item's type does not allow this */
#define EMB_ERR_TOO_LONG ((STATUS)0x3E0A)    /* a name or value beyond the platform's limits */
#define EMB_ERR_DAMAGED ((STATUS)0x3E0B)     /* the database or a note in it is damaged */
#define EMB_ERR_DISK ((STATUS)0x3E0C)        /* the disk failed or is full */
#define EMB_ERR_BUSY ((STATUS)0x3E0D)        /* another process is writing */
#define EMB_ERR_READ_ONLY ((STATUS)0x3E0E)   /* the session only reads */
#define EMB_ERR_NO_SERVER ((STATUS)0x3E0F)   /* no server of that name can be reached */
#define EMB_ERR_LOCKED ((STATUS)0x3E10)      /* a memory block is freed while it is locked */
#define EMB_ERR_DXL ((STATUS)0x3E11)         /* DXL that cannot be imported; the message says why */
#define EMB_ERR_UNSUPPORTED ((STATUS)0x3E12) /* the embedded platform does not do this */
#define EMB_ERR_RECOVERY ((STATUS)0x3E13)    /* a writer died; only a session that may write can repair it */
#define EMB_ERR_NEWER ((STATUS)0x3E14)       /* the database was made by a newer version of this platform */
#define EMB_ERR_CANCELLED ((STATUS)0x3E15)   /* the caller ended the operation */

/* ---- Session -------------------------------------------------------------------------------------------- */

/** Databases are opened for reading only, and nothing below the server folder is written. */
#define EMB_SESSION_READ_ONLY 0x0001u

/** Begins the process's one session with the notes.ini at `iniPath` (a host path). Must be ended before another
 *  begins. On failure `message` (optional) names the file and the cause. */
STATUS LNPUBLIC EmbSessionBegin(const char* iniPath, DWORD options, char* message, DWORD messageSize);

/** Closes what is still open (open notes are lost, as when a process ends), and ends the session: clock, faults,
 *  counts, transcript and log are forgotten. */
void LNPUBLIC EmbSessionEnd(void);

/** Sets a notes.ini value for the rest of the session; NULL removes it. The file stays as it is. */
STATUS LNPUBLIC EmbEnvironmentSet(const char* name, const char* value);

/** The name of the ID in use, which notes are signed with. */
DWORD LNPUBLIC EmbIdName(char* buffer, DWORD size);

/* ---- Behaviours ----------------------------------------------------------------------------------------- */

/**
 * Where the platform's reference leaves open what a server does, this platform can be switched to each possibility. A
 * session begins with those that notes.ini names (EmbeddedBehaviour=copy-unid=new,search=all), and for the rest with
 * the defaults. Sets the value of a behaviour for the rest of the session; NULL is its default. EMB_ERR_ARGUMENT for an
 * unknown name or value.
 */
STATUS LNPUBLIC EmbBehaviourSet(const char* name, const char* value);
/** The names in a fixed order; NULL at and after the end. Needs no session. */
const char* LNPUBLIC EmbBehaviourName(DWORD index);
/** The values of a behaviour, the default first; NULL at and after the end. Needs no session. */
const char* LNPUBLIC EmbBehaviourValue(const char* name, DWORD index);
/** The value that a behaviour has in this session; NULL for an unknown name, and without a session. */
const char* LNPUBLIC EmbBehaviourInForce(const char* name);

/* ---- Statuses ------------------------------------------------------------------------------------------- */

/** The text of a status; empty for one that is not known. Needs no session. */
DWORD LNPUBLIC EmbStatusText(STATUS status, char* buffer, DWORD size);

/* ---- Clock ---------------------------------------------------------------------------------------------- */

/** Times are hundredths of a second since 1970-01-01 00:00:00 UTC. A session starts on the system's clock. */

/** Goes over to a virtual clock: it stands at `now` and moves only by pauses and by EmbClockAdvance. */
void LNPUBLIC EmbClockSetVirtual(int64_t now);
void LNPUBLIC EmbClockAdvance(int64_t hundredths);
void LNPUBLIC EmbClockSetReal(void);
/** Goes over to the system's clock without pauses: they take no time, and are only counted. */
void LNPUBLIC EmbClockSkipPauses(void);
int64_t LNPUBLIC EmbClockNow(void);

/** The milliseconds that AddInIdleDelay and offline attempts have waited in this session. */
int64_t LNPUBLIC EmbClockWaited(void);

/* ---- Operations: counts and faults ---------------------------------------------------------------------- */

/** The operations of the Notes API in a fixed order; NULL at and after the end. */
const char* LNPUBLIC EmbOperationName(DWORD index);

/** Calls of one operation (NULL: of all) since the session began or EmbResetCalls. Unknown name: 0. */
DWORD LNPUBLIC EmbCallCount(const char* operation);
void LNPUBLIC EmbResetCalls(void);

/**
 * The `n`-th call from now (1 is the next) of `operation` (NULL: of any) fails with `status`, once or, with
 * `forever`, from then on. An operation without a status answers as it does when it fails (FALSE, 0, NULL);
 * NSFNoteGetInfo, NSFNoteSetInfo, AddInLogMessageText and AddInIdleDelay cannot fail and only count. An operation
 * that closes, frees or unlocks does so and then answers with the status. Several faults may be armed.
 */
STATUS LNPUBLIC EmbFaultArm(const char* operation, DWORD n, STATUS status, BOOL forever);
void LNPUBLIC EmbFaultClear(void);
/** How many calls were made to fail since EmbFaultClear. */
DWORD LNPUBLIC EmbFaultsFired(void);

/** Called before each operation with its name, outside the platform's lock; NULL takes it away. */
typedef void(LNCALLBACK* EMBCALLHOOK)(void* parameter, const char* operation);
void LNPUBLIC EmbCallHookSet(EMBCALLHOOK hook, void* parameter);
/** The same after each operation, when its outcome is certain; a search's follows those of what its step called. */
void LNPUBLIC EmbReturnHookSet(EMBCALLHOOK hook, void* parameter);

/* ---- Handles -------------------------------------------------------------------------------------------- */

#define EMB_HANDLE_DATABASE 1u
#define EMB_HANDLE_NOTE 2u
#define EMB_HANDLE_MEMORY 3u /* access control lists, compiled formulas, console replies, OSMemAlloc */
#define EMB_HANDLE_LOCK 4u   /* locks held on memory blocks */

DWORD LNPUBLIC EmbOpenHandles(DWORD kind);
/** Wrong uses seen so far: a handle closed twice, a block freed while locked, an unknown handle. */
DWORD LNPUBLIC EmbMisuseCount(void);

/* ---- Databases ------------------------------------------------------------------------------------------ */

/** The next `attempts` attempts to take the database offline find it in use. */
STATUS LNPUBLIC EmbSetInUse(const char* path, DWORD attempts);
/** TRUE when the database has been taken offline, by whatever process. */
BOOL LNPUBLIC EmbIsOffline(const char* path);
/** The title of a database. */
DWORD LNPUBLIC EmbDatabaseTitle(const char* path, char* buffer, DWORD size);

typedef struct {
    DWORD designNotes;  /* notes of the mask, of whatever class */
    DWORD signedNotes;  /* of these, with a signature */
    DWORD changedNotes; /* of these, changed since they were signed */
} EMBSIGNATURES;

/** Counts the signatures in the notes of a class mask; `signers` (optional) gets their names, sorted, one a line. */
STATUS LNPUBLIC EmbSignatures(const char* path, WORD classMask, EMBSIGNATURES* counts, char* signers, DWORD size);

/** The design notes of which a database's design is not that of a template: what "load convert" would change.
 *  `differences` (optional) gets them, one a line: "missing", "different" or "surplus" (not in the template), class,
 *  title, tab-separated. Writes nothing. */
STATUS LNPUBLIC EmbDesignCompare(const char* path, const char* templatePath, DWORD* count, char* differences,
                                 DWORD size);

/* ---- Server --------------------------------------------------------------------------------------------- */

/** Console commands of this session, one line each: time, outcome, command, tab-separated. */
DWORD LNPUBLIC EmbConsoleTranscript(char* buffer, DWORD size);
/** Lines that this session added to the server's log. */
DWORD LNPUBLIC EmbServerLog(char* buffer, DWORD size);

/* ---- Reading a database file from outside a session -------------------------------------------------------- */

/**
 * Gives the settings of a database file and then its notes (not the deletion stubs), in the order of the bytes of their
 * UNIDs. Some 256 KiB of notes are in memory at a time, and others may write the file meanwhile. What a call gives is
 * valid until the next call with the same reader. Needs no session; the file is not written.
 */
typedef struct EMBREADER EMBREADER;

typedef struct {
    const char* name;
    const char* value;
    BOOL accessControl; /* of the access control list, and not a setting of the database */
} EMBFACT;

typedef struct {
    UNID unid;
    char unidText[33];
    WORD noteClass;
    const char* className; /* as DXL has it */
    const char* items;     /* encoded: equal bytes are equal items */
    DWORD itemsSize;
} EMBNOTE;

typedef struct {
    const char* name;
    const char* type;   /* the element that DXL has for it; "signature" with the values signer and "unchanged since" */
    const char* flags;  /* by name, with blanks between them */
    const char* values; /* one behind the other, each terminated */
    DWORD valueCount;   /* 1, except for lists */
} EMBITEM;

/** `databaseFile` is a host path. On failure `message` (optional) names the file and the cause. */
STATUS LNPUBLIC EmbReaderOpen(const char* databaseFile, EMBREADER** reader, char* message, DWORD messageSize);
void LNPUBLIC EmbReaderClose(EMBREADER* reader);
/** FALSE at and after the end. */
BOOL LNPUBLIC EmbReaderFact(EMBREADER* reader, DWORD index, EMBFACT* fact);
/** Goes on to the next note; `found` becomes FALSE at the end. */
STATUS LNPUBLIC EmbReaderNext(EMBREADER* reader, EMBNOTE* note, BOOL* found);
/** An item of the note that was given last, for people to read; `found` becomes FALSE behind the last one. */
STATUS LNPUBLIC EmbReaderItem(EMBREADER* reader, DWORD index, EMBITEM* item, BOOL* found);

/* ---- DXL ------------------------------------------------------------------------------------------------ */

/** Replaces an existing database. */
#define EMB_DXL_REPLACE 0x0001u
/** Leaves out note IDs, sequence numbers, all times and signature values, and orders notes by class and UNID. */
#define EMB_DXL_STABLE 0x0002u
/** The one note of the file becomes one more note of an existing database, in place of the one that has its UNID. */
#define EMB_DXL_INTO 0x0004u

/** Is told now and then how many bytes of the file are read; a status other than NOERROR ends the import. */
typedef STATUS(LNCALLBACK* EMB_DXL_PROGRESS)(void* parameter, uint64_t done, uint64_t total);
/** Who is told by the imports of this process from now on; NULL for nobody. */
void LNPUBLIC EmbDxlProgressSet(EMB_DXL_PROGRESS progress, void* parameter);

/* Both take host paths, and need no session. */

/** Makes the database file from the DXL file. On failure nothing is left behind, and `message` (optional) names
 *  the file, the line and the cause; EMB_ERR_CANCELLED when EMB_DXL_PROGRESS ended it. Otherwise `message` holds what a
 *  person should know, one remark a line: a note that was replaced, and once each element that DXL is not known to
 *  have, which is kept. */
STATUS LNPUBLIC EmbDxlImport(const char* databaseFile, const char* dxlFile, DWORD options, char* message,
                             DWORD messageSize);
/** Writes the database file as DXL into a file, which takes its place whole or not at all. */
STATUS LNPUBLIC EmbDxlExport(const char* databaseFile, const char* dxlFile, DWORD options, char* message,
                             DWORD messageSize);

#ifdef __cplusplus
}
#endif

#endif
