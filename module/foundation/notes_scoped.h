// Owners of Notes handles: what they hold is closed on every path.
#pragma once

#include <utility>

#include "foundation/second_try.h"
#include "notes_api.h"

namespace updkrx {

/** Holds one handle, or none, and closes it with `CloseHandle`. */
template<STATUS(LNPUBLIC* CloseHandle)(DHANDLE)>
class ScopedHandle {
public:
    ScopedHandle() noexcept = default;
    ScopedHandle(ScopedHandle&& other) noexcept : handle_(std::exchange(other.handle_, DHANDLE{NULLHANDLE})) {}
    ScopedHandle& operator=(ScopedHandle&& other) noexcept {
        if (this != &other) {
            (void)Close();
            handle_ = std::exchange(other.handle_, DHANDLE{NULLHANDLE});
        }
        return *this;
    }
    ~ScopedHandle() { (void)Close(); } // who needs the status closes early

    [[nodiscard]] DHANDLE Get() const noexcept { return handle_; }

    /** Closes what is held and opens anew: calls `operation` with the arguments and, as the last one, the place for
     *  the handle. Returns its status. What an operation that failed leaves in that place is no handle, and is
     *  forgotten. */
    template<class Operation, class... Arguments>
    [[nodiscard]] STATUS Open(Operation operation, Arguments... arguments) noexcept {
        (void)Close();
        DHANDLE opened = NULLHANDLE;
        const STATUS status = operation(arguments..., &opened);
        if (status == NOERROR) {
            handle_ = opened;
        }
        return status;
    }

    /** Closes early and returns the status of that; NOERROR when there is nothing to close. Closing a note always
     *  succeeds. */
    STATUS Close() noexcept {
        const DHANDLE closing = std::exchange(handle_, DHANDLE{NULLHANDLE});
        return closing == NULLHANDLE ? NOERROR : CloseHandle(closing);
    }

private:
    DHANDLE handle_ = NULLHANDLE;
};

using ScopedDatabase = ScopedHandle<NSFDbClose>;
using ScopedNote = ScopedHandle<NSFNoteClose>;
/** An access control list, a console reply or memory of our own. */
using ScopedMemory = ScopedHandle<OSMemFree>;
/** A compiled formula, which is a block of memory too. */
using ScopedFormula = ScopedMemory;

/** Opens a database, once more when that fails for another reason than that there is none. */
[[nodiscard]] inline STATUS OpenDatabase(ScopedDatabase& database, const char* path) noexcept {
    const STATUS status = database.Open(NSFDbOpen, path);
    const bool mayPass = status != NOERROR && (status & ERR_MASK) != ERR_NOEXIST;
    return mayPass ? database.Open(NSFDbOpen, path) : status;
}

/** Opens a note by its ID, once more when that fails; `flags` is 0 or OPEN_EXPAND. */
[[nodiscard]] inline STATUS OpenNote(ScopedNote& note, DBHANDLE database, NOTEID noteId, WORD flags = 0) noexcept {
    return WithSecondTry([&] { return note.Open(NSFNoteOpen, database, noteId, flags); });
}

/** Keeps a block of memory locked, so that its address holds. */
class ScopedLock {
public:
    explicit ScopedLock(DHANDLE block) noexcept : block_(block), address_(OSLockObject(block)) {}
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;
    ~ScopedLock() {
        if (address_ != nullptr) {
            (void)OSUnlockObject(block_); // always TRUE
        }
    }

    /** Null when the block could not be locked. */
    [[nodiscard]] void* Address() const noexcept { return address_; }

private:
    DHANDLE block_;
    void* address_;
};

} // namespace updkrx
