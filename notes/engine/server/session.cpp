#include "engine/server/session.h"

#include <algorithm>
#include <utility>

#include "engine/values/status_error.h"

namespace embedded {

void Session::Misuse(STATUS status) {
    ++misuses_;
    throw StatusError(status);
}

DWORD Session::OpenHandles(DWORD kind) const {
    DWORD count = 0;
    switch (kind) {
    case EMB_HANDLE_DATABASE:
        return static_cast<DWORD>(databases_.size());
    case EMB_HANDLE_NOTE:
        return static_cast<DWORD>(notes_.size());
    case EMB_HANDLE_MEMORY:
        memory_.ForEach([&](const Block& block) { count += !block.lent; });
        return count;
    case EMB_HANDLE_LOCK:
        memory_.ForEach([&](const Block& block) { count += block.locks; });
        return count;
    default:
        return 0;
    }
}

DBHANDLE Session::OpenDatabase(const std::filesystem::path& file) {
    auto entry = std::make_shared<DatabaseEntry>();
    if (std::error_code ignored; !std::filesystem::is_directory(file, ignored)) {
        entry->database = server_.Open(file);
    }
    return databases_.Add(std::move(entry));
}

void Session::CloseDatabase(DBHANDLE handle) {
    Require(databases_, handle);
    const std::shared_ptr<Database> database = databases_.Take(handle)->database;
    if (database && HandleOf(database) == NULLHANDLE) {
        database->GetStore().Commit();
    }
}

std::shared_ptr<Database> Session::DatabaseOf(DBHANDLE handle) {
    const DatabaseEntry& entry = Require(databases_, handle);
    if (!entry.database) {
        throw StatusError(ERR_NOT_NSF);
    }
    return entry.database;
}

DBHANDLE Session::HandleOf(const std::shared_ptr<Database>& database) const {
    return databases_.FindHandle([&](const DatabaseEntry& entry) { return entry.database == database; });
}

NOTEHANDLE Session::AddNote(OpenNote note) {
    return notes_.Add(std::make_shared<NoteEntry>(NoteEntry{std::move(note), {}}));
}

void Session::CloseNote(NOTEHANDLE handle) {
    Require(notes_, handle);
    const auto closed = notes_.Take(handle);
    for (const DHANDLE block : closed->lent) {
        memory_.Take(block);
    }
}

DHANDLE Session::AddBlock(std::string_view bytes, bool lent) {
    auto block = std::make_shared<Block>();
    block->bytes = std::make_unique<char[]>(bytes.size() + 1);
    std::copy(bytes.begin(), bytes.end(), block->bytes.get());
    block->size = bytes.size();
    block->lent = lent;
    return memory_.Add(std::move(block));
}

DHANDLE Session::Lend(NOTEHANDLE note, std::string_view bytes) {
    NoteEntry& entry = Require(notes_, note);
    entry.lent.push_back(AddBlock(bytes, true));
    return entry.lent.back();
}

std::string_view Session::BytesOf(DHANDLE block) {
    const Block& found = Require(memory_, block);
    return {found.bytes.get(), found.size};
}

void* Session::Lock(DHANDLE block) {
    Block& found = Require(memory_, block);
    ++found.locks;
    return found.bytes.get();
}

void Session::Unlock(DHANDLE block) {
    Block& found = Require(memory_, block);
    if (found.locks == 0) {
        Misuse(EMB_ERR_HANDLE);
    }
    --found.locks;
}

void Session::Free(DHANDLE block) {
    const Block& found = Require(memory_, block);
    if (found.locks != 0 || found.lent) {
        Misuse(EMB_ERR_LOCKED);
    }
    memory_.Take(block);
}

} // namespace embedded
