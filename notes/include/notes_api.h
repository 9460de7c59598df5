/**
 * The Notes C API, as far as the upgrade module uses it.
 *
 * Declarations are binary compatible with the platform's own library on Windows x64 (LLP64): fixed widths
 * everywhere, natural alignment, no `long`. Two libraries can stand behind them, the platform's own
 * (nnotes.dll on a Domino server) and the embedded one of this project; nothing here tells which.
 *
 * Texts that cross this header are in the Notes character set (LMBCS) unless a declaration says otherwise.
 * Lengths and buffer sizes are in bytes. Every operation returns a STATUS, 0 for success, unless its
 * declaration says otherwise; mask a status with ERR_MASK before comparing it or asking for its text. A failed
 * operation leaves no valid handle.
 */
#ifndef NOTES_NOTES_API_H
#define NOTES_NOTES_API_H

#include <stddef.h>
#include <stdint.h>

/* The platform has one calling convention, Microsoft's for x64. It is the compiler's default on Windows; a
 * library that is built elsewhere but called from Windows code asks for it with NOTES_MS_ABI. */
#if defined(NOTES_MS_ABI)
#define LNPUBLIC __attribute__((ms_abi))
#else
#define LNPUBLIC
#endif
#define LNCALLBACK LNPUBLIC

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint16_t USHORT;
typedef uint16_t STATUS;
typedef int32_t BOOL;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t DHANDLE;
typedef uint32_t DBHANDLE;
typedef uint32_t NOTEHANDLE;
typedef uint32_t FORMULAHANDLE;
typedef uint32_t NOTEID;
typedef double NUMBER;

enum { NULLHANDLE = 0 };

/* Sizes of the platform's own buffers, terminator included. */
enum { MAXPATH = 256, MAXUSERNAME = 256, MAXENVVALUE = 256, MAXSPRINTF = 256 };

/** Passed as a text's length: the text is terminated, measure it. */
enum { MAXWORD = 0xFFFF };

/* ---- Records ------------------------------------------------------------------------------------------- */

/** A moment: Innards[0] holds ticks of 10 ms since midnight GMT, Innards[1] the Julian day (low 24 bits) and
 *  the zone (high byte). Also used as a replica ID, which is only an identifier. */
typedef struct {
    DWORD Innards[2];
} TIMEDATE;

typedef TIMEDATE DBID;

/** Universal note ID: the same in every replica. Innards[0] is the low word, Innards[1] the high word. */
typedef struct {
    DBID File;
    TIMEDATE Note;
} UNIVERSALNOTEID;

typedef UNIVERSALNOTEID UNID;

/** A UNID with the version of the note: the low word of Sequence counts the saves. */
typedef struct {
    DBID File;
    TIMEDATE Note;
    DWORD Sequence;
    TIMEDATE SequenceTime;
} ORIGINATORID;

typedef ORIGINATORID OID;

typedef struct {
    DBID File;
    TIMEDATE Note;
    NOTEID NoteID;
} GLOBALINSTANCEID;

/** What a search hands to its step for each note. The record may stand at an unaligned address. */
typedef struct {
    GLOBALINSTANCEID ID;
    ORIGINATORID OriginatorID;
    WORD NoteClass;
    BYTE SERetFlags;
    BYTE Privileges;
    WORD SummaryLength;
} SEARCH_MATCH;

typedef struct {
    TIMEDATE ID;
    WORD Flags;
    WORD CutoffInterval; /* days */
    TIMEDATE Cutoff;
} DBREPLICAINFO;

/** A place in a memory block: lock `pool`, add `block` to the address. */
typedef struct {
    DHANDLE pool;
    WORD block;
} BLOCKID;

typedef struct {
    USHORT Length;
    USHORT Items;
} ITEM_TABLE;

/** Head of a text list: this many WORD lengths follow, then the entries' bytes without terminators. */
typedef struct {
    USHORT ListEntries;
} LIST;

/* ---- Values -------------------------------------------------------------------------------------------- */

/* Statuses. Bits 0x8000 (already shown) and 0x4000 (from another server) are no part of the code. */
#define NOERROR ((STATUS)0)
#define ERR_MASK 0x3FFF
#define STS_REMOTE 0x4000
#define ERR_UNKNOWN ((STATUS)0x0101)
#define ERR_NOEXIST ((STATUS)0x0103)
#define ERR_EXISTS ((STATUS)0x0104)
#define ERR_MEMORY ((STATUS)0x0107)
#define ERR_SEGMENT_TOO_BIG ((STATUS)0x013B)
#define ERR_NOT_NSF ((STATUS)0x0201)
#define ERR_CONFLICT ((STATUS)0x0205)
#define ERR_ITEM_NOT_FOUND ((STATUS)0x0222)
#define ERR_NOTE_DELETED ((STATUS)0x0225)
#define ERR_INVALID_NOTE ((STATUS)0x0227)
#define ERR_SUMMARY_TOO_BIG ((STATUS)0x0231)
#define ERR_NOACCESS ((STATUS)0x0246)
#define ERR_UPDATE_CLASS ((STATUS)0x024D)
/** A note cannot be stored because another one has its UNID; on some servers also because a deletion stub has it, for
 *  which others answer ERR_NOTE_DELETED. */
#define ERR_DUPLICATE_UNID ((STATUS)0x02B8)
#define ERR_CANT_CHANGE_UNID ((STATUS)0x02C1)
#define ERR_NOT_FOUND ((STATUS)0x0404)
#define ERR_FORMULA_COMPILATION ((STATUS)0x0501)
/** The database has users: taking it offline can be tried again. */
#define ERR_DBINUSE ((STATUS)0x13EA)
#define ERR_DBOFFLINE ((STATUS)0x13F9)

/* Members for NSFNoteGetInfo and NSFNoteSetInfo, with the type of the value. */
#define _NOTE_DB 0       /* DBHANDLE */
#define _NOTE_ID 1       /* NOTEID; set to 0, the next update creates a note */
#define _NOTE_OID 2      /* OID */
#define _NOTE_CLASS 3    /* WORD */
#define _NOTE_MODIFIED 4 /* TIMEDATE */

/* Note classes, also as masks of a search. */
#define NOTE_CLASS_DOCUMENT 0x0001
#define NOTE_CLASS_INFO 0x0002
#define NOTE_CLASS_FORM 0x0004
#define NOTE_CLASS_VIEW 0x0008
#define NOTE_CLASS_ICON 0x0010
#define NOTE_CLASS_DESIGN 0x0020
#define NOTE_CLASS_ACL 0x0040
#define NOTE_CLASS_HELP_INDEX 0x0080
#define NOTE_CLASS_HELP 0x0100
#define NOTE_CLASS_FILTER 0x0200
#define NOTE_CLASS_FIELD 0x0400
#define NOTE_CLASS_REPLFORMULA 0x0800
#define NOTE_CLASS_PRIVATE 0x1000
#define NOTE_CLASS_DEFAULT 0x8000 /* set in a note's class, no mask; in a match: a deleted note */
#define NOTE_CLASS_ALLNONDATA 0x7FFE
#define NOTE_CLASS_ALL 0x7FFF

/* Item types: the WORD in front of every stored value. */
#define TYPE_INVALID_OR_UNKNOWN 0x0000
#define TYPE_NOTEREF_LIST 0x0004
#define TYPE_SIGNATURE 0x0008
#define TYPE_NUMBER 0x0300
#define TYPE_NUMBER_RANGE 0x0301
#define TYPE_TIME 0x0400
#define TYPE_TIME_RANGE 0x0401
#define TYPE_TEXT 0x0500
#define TYPE_TEXT_LIST 0x0501
#define TYPE_FORMULA 0x0600

/* Item flags. */
#define ITEM_SIGN 0x0001
#define ITEM_SEAL 0x0002
#define ITEM_SUMMARY 0x0004
#define ITEM_READWRITERS 0x0020
#define ITEM_NAMES 0x0040
#define ITEM_PLACEHOLDER 0x0100
#define ITEM_PROTECTED 0x0200
#define ITEM_READERS 0x0400
#define ITEM_UNCHANGED 0x1000

#define OPEN_EXPAND 0x0004 /* single values become lists of one */

#define UPDATE_FORCE 0x0001  /* also when somebody else has saved the note meanwhile */
#define UPDATE_NOSTUB 0x0200 /* a deletion leaves no stub */

#define SEARCH_ALL_VERSIONS 0x0001
#define SEARCH_SUMMARY 0x0002
#define SEARCH_NOTIFYDELETIONS 0x0010
#define SE_FMATCH 0x01
#define SE_FSOFTDELETED 0x10    /* deleted, and to be had back for a while */
#define RRV_DELETED 0x80000000u /* set in the note ID of a deleted note */

#define REPLFLG_HIDDEN_DESIGN 0x0020

#define OFFLINE_NODELETE 1 /* without it, taking a database offline deletes it */

#define DBCOPY_REPLICA 0x00000001

#define OS_TRANSLATE_NATIVE_TO_LMBCS 0
#define OS_TRANSLATE_LMBCS_TO_NATIVE 1

#define MEM_SHARE 0x8000

/** A search's step: the caller's parameter, the match, and the summary (NULL unless asked for). A non-zero
 *  result ends the search and becomes the search's status. */
typedef STATUS(LNCALLBACK* NSFSEARCHPROC)(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);

/* ---- Databases ----------------------------------------------------------------------------------------- */

/** Opens a database (or a directory) by its path relative to the data directory. */
STATUS LNPUBLIC NSFDbOpen(const char* path, DBHANDLE* database);
STATUS LNPUBLIC NSFDbClose(DBHANDLE database);
/** Creates `destination` from the notes of `classMask` in `source`; the new database comes back open. `limit` is in
 *  megabytes, 0 for none; `flags` is 0 or DBCOPY_REPLICA. With NOTE_CLASS_PRIVATE in the mask a server may answer
 *  ERR_NOACCESS, at a path that is offline ERR_DBOFFLINE. */
STATUS LNPUBLIC NSFDbCreateAndCopy(const char* source, const char* destination, WORD classMask, WORD limit, DWORD flags,
                                   DBHANDLE* database);
/** Gives the access control list as a memory block, which the caller frees. */
STATUS LNPUBLIC NSFDbReadACL(DBHANDLE database, DHANDLE* acl);
/** Stores a list that NSFDbReadACL gave; `objectId` and `method` are 0. The block stays the caller's. */
STATUS LNPUBLIC NSFDbStoreACL(DBHANDLE database, DHANDLE acl, DWORD objectId, WORD method);
STATUS LNPUBLIC NSFDbReplicaInfoGet(DBHANDLE database, DBREPLICAINFO* info);
STATUS LNPUBLIC NSFDbReplicaInfoSet(DBHANDLE database, DBREPLICAINFO* info);
/* Some servers take full paths only in the next two, and answer ERR_NOEXIST to others. */
/** `wait` in milliseconds. Option 0 deletes the database, OFFLINE_NODELETE keeps it. ERR_DBINUSE: try again. The
 *  path of a deleted database may stay offline, and a database that is offline already may be refused, with
 *  ERR_DBOFFLINE. */
STATUS LNPUBLIC NSFTakeDatabaseOffline(const char* path, DWORD wait, DWORD options);
STATUS LNPUBLIC NSFBringDatabaseOnline(const char* path, DWORD options);

/* ---- Notes --------------------------------------------------------------------------------------------- */

/* A note handle stands for a copy in memory; nothing is stored before NSFNoteUpdate. */
STATUS LNPUBLIC NSFNoteOpen(DBHANDLE database, NOTEID noteId, WORD flags, NOTEHANDLE* note);
STATUS LNPUBLIC NSFNoteOpenByUNID(DBHANDLE database, UNID* unid, WORD flags, NOTEHANDLE* note);
STATUS LNPUBLIC NSFNoteCreate(DBHANDLE database, NOTEHANDLE* note);
STATUS LNPUBLIC NSFNoteCopy(NOTEHANDLE source, NOTEHANDLE* destination);
STATUS LNPUBLIC NSFNoteUpdate(NOTEHANDLE note, WORD flags);
STATUS LNPUBLIC NSFNoteClose(NOTEHANDLE note);
/** Leaves a deletion stub, or with UPDATE_NOSTUB nothing; that also removes a stub. The UNID of what was deleted may
 *  stay taken until then. */
STATUS LNPUBLIC NSFNoteDelete(DBHANDLE database, NOTEID noteId, WORD flags);
void LNPUBLIC NSFNoteGetInfo(NOTEHANDLE note, WORD member, void* value);
/** Another _NOTE_OID for a stored note may be refused when it is saved, or be ignored; for a note with ID 0 it
 *  counts. */
void LNPUBLIC NSFNoteSetInfo(NOTEHANDLE note, WORD member, void* value);
/** Servers differ in whether a signature takes the place of an earlier one or is added. */
STATUS LNPUBLIC NSFNoteSign(NOTEHANDLE note);
STATUS LNPUBLIC NSFNoteContract(NOTEHANDLE note);
/** Copies a stored note; the four ID pointers and both results may be NULL. Between databases that are no replicas of
 *  one another the copy's UNID is the note's own on some servers and another one on others: ask the copy. */
STATUS LNPUBLIC NSFDbCopyNote(DBHANDLE source, DBID* sourceDatabaseId, DBID* sourceReplicaId, NOTEID noteId,
                              DBHANDLE destination, DBID* destinationDatabaseId, DBID* destinationReplicaId,
                              NOTEID* newNoteId, WORD* newNoteClass);

/* ---- Items --------------------------------------------------------------------------------------------- */

/** Returns the bytes put into `buffer` (0 when empty or absent). Servers differ in whether `size` counts the
 *  terminator: leave room for one. */
WORD LNPUBLIC NSFItemGetText(NOTEHANDLE note, const char* name, char* buffer, WORD size);
STATUS LNPUBLIC NSFItemSetText(NOTEHANDLE note, const char* name, const char* text, WORD length);
/** ERR_ITEM_NOT_FOUND when absent. The out-pointers may be NULL; `length` counts the type word. A value that is too
 *  large for a memory block has type and length, and ERR_SEGMENT_TOO_BIG when `item` or `value` asks for it. */
STATUS LNPUBLIC NSFItemInfo(NOTEHANDLE note, const char* name, WORD nameLength, BLOCKID* item, WORD* type,
                            BLOCKID* value, DWORD* length);
/** Deletes all items of that name, or on some servers the first. */
STATUS LNPUBLIC NSFItemDelete(NOTEHANDLE note, const char* name, WORD nameLength);
/** Adds an item, also beside one of the same name; `length` does not count a type word. */
STATUS LNPUBLIC NSFItemAppend(NOTEHANDLE note, WORD flags, const char* name, WORD nameLength, WORD type,
                              const void* value, DWORD length);
/* What list operations make of an item that is a single text differs from server to server, except
 * for NSFItemCreateTextList, which replaces whatever there is. */
WORD LNPUBLIC NSFItemGetTextListEntries(NOTEHANDLE note, const char* name);
/** Returns the entry's length, which may be more than was put into `buffer`; that need not be terminated. `position`
 *  counts from 0. */
WORD LNPUBLIC NSFItemGetTextListEntry(NOTEHANDLE note, const char* name, WORD position, char* buffer, WORD size);
STATUS LNPUBLIC NSFItemCreateTextList(NOTEHANDLE note, const char* name, const char* text, WORD length);
STATUS LNPUBLIC NSFItemAppendTextList(NOTEHANDLE note, const char* name, const char* text, WORD length,
                                      BOOL allowDuplicates);

/* ---- Formulas and searches ----------------------------------------------------------------------------- */

/** Compiles a selection formula (`name` NULL) into a memory block, which the caller frees. On
 *  ERR_FORMULA_COMPILATION the last five say what is wrong and where. */
STATUS LNPUBLIC NSFFormulaCompile(char* name, WORD nameLength, const char* text, WORD textLength,
                                  FORMULAHANDLE* formula, WORD* formulaLength, STATUS* error, WORD* line, WORD* column,
                                  WORD* offset, WORD* length);
/** Calls `step` for the notes of `classMask`, in any order; `formula`, `viewTitle`, `since` and `until` may be null.
 *  With `since` or SEARCH_ALL_VERSIONS also for deletion stubs and for notes that the formula does not select, on some
 *  servers for the latter in any case: both without SE_FMATCH. A note that the step saves may come again. */
STATUS LNPUBLIC NSFSearch(DBHANDLE database, FORMULAHANDLE formula, char* viewTitle, WORD flags, WORD classMask,
                          TIMEDATE* since, NSFSEARCHPROC step, void* parameter, TIMEDATE* until);

/* ---- Environment and text ------------------------------------------------------------------------------ */

/** Reads a notes.ini value; `size` leaves room for a terminator. FALSE when absent. */
BOOL LNPUBLIC OSGetEnvironmentString(const char* name, char* buffer, WORD size);
/** 0 when absent or not a number. */
LONG LNPUBLIC OSGetEnvironmentLong(const char* name);
/** `buffer` holds MAXPATH bytes; returns the length. */
WORD LNPUBLIC OSGetDataDirectory(char* buffer);
/** Returns the bytes put into `out`. With an `inLength` of MAXWORD, for a terminated text, they are terminated inside
 *  `outSize`; servers differ in whether the result counts that. */
WORD LNPUBLIC OSTranslate(WORD mode, const char* in, WORD inLength, char* out, WORD outSize);
/** The text of a masked status; returns its length, 0 when there is none. `size` leaves room for a terminator. */
WORD LNPUBLIC OSLoadString(void* module, STATUS code, char* buffer, WORD size);
/** Waits. TRUE, without waiting, when the server asks the task to end; in a process that is no server task it is not
 *  said to wait. */
BOOL LNPUBLIC AddInIdleDelay(DWORD milliseconds);

/* ---- Memory -------------------------------------------------------------------------------------------- */

STATUS LNPUBLIC OSMemAlloc(WORD type, DWORD size, DHANDLE* handle);
void* LNPUBLIC OSLockObject(DHANDLE handle);
BOOL LNPUBLIC OSUnlockObject(DHANDLE handle);
STATUS LNPUBLIC OSMemFree(DHANDLE handle);

/* ---- Server -------------------------------------------------------------------------------------------- */

/** The name of the ID in use, canonical form; `buffer` holds MAXUSERNAME + 1 bytes. */
STATUS LNPUBLIC SECKFMGetUserName(char* buffer);
/** Sends a console command, of which more than 256 bytes may be cut; a reply comes back as a memory block, which the
 *  caller frees, or as NULLHANDLE. */
STATUS LNPUBLIC NSFRemoteConsole(char* server, char* command, DHANDLE* reply);
/** Adds a line to the server's log: printf-like, at most MAXSPRINTF bytes; a non-zero code adds its text. */
void LNPUBLIC AddInLogMessageText(const char* format, STATUS code, ...);

#ifdef __cplusplus
}

static_assert(sizeof(TIMEDATE) == 8);
static_assert(sizeof(UNIVERSALNOTEID) == 16 && offsetof(UNIVERSALNOTEID, Note) == 8);
static_assert(sizeof(ORIGINATORID) == 28 && offsetof(ORIGINATORID, Sequence) == 16 &&
              offsetof(ORIGINATORID, SequenceTime) == 20);
static_assert(sizeof(GLOBALINSTANCEID) == 20 && offsetof(GLOBALINSTANCEID, NoteID) == 16);
static_assert(sizeof(SEARCH_MATCH) == 56 && offsetof(SEARCH_MATCH, OriginatorID) == 20 &&
              offsetof(SEARCH_MATCH, NoteClass) == 48 && offsetof(SEARCH_MATCH, SERetFlags) == 50 &&
              offsetof(SEARCH_MATCH, Privileges) == 51 && offsetof(SEARCH_MATCH, SummaryLength) == 52);
static_assert(sizeof(DBREPLICAINFO) == 20 && offsetof(DBREPLICAINFO, Flags) == 8 &&
              offsetof(DBREPLICAINFO, CutoffInterval) == 10 && offsetof(DBREPLICAINFO, Cutoff) == 12);
static_assert(sizeof(BLOCKID) == 8 && offsetof(BLOCKID, block) == 4);
static_assert(sizeof(ITEM_TABLE) == 4 && sizeof(LIST) == 2);
static_assert(sizeof(BOOL) == 4 && sizeof(DHANDLE) == 4 && sizeof(STATUS) == 2 && sizeof(void*) == 8);
#endif

#endif
