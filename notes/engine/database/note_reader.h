// A database file read from outside a session: its settings, then its notes in the order of the bytes of their UNIDs,
// some 256 KiB of them in memory at a time. So two files can be compared side by side, however large they are.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/dxl/dxl.h"
#include "engine/store/store.h"

namespace embedded {

/** A setting of a database, or a line of its access control list, as a person reads it. */
struct DatabaseFact {
    bool accessControl;
    std::string name;
    std::string value;
};

class NoteReader {
public:
    /** Throws as Store::Open() does. The file is neither written nor kept from being written. */
    explicit NoteReader(const std::filesystem::path& file);

    [[nodiscard]] const std::vector<DatabaseFact>& Facts() const noexcept { return facts_; }

    /** Goes on to the next note; deletion stubs are no notes. False at the end. */
    [[nodiscard]] bool Next();
    [[nodiscard]] const NoteHead& Head() const noexcept { return chunk_[at_].head; }
    /** Encoded items: of two notes without differences they are mostly equal, which is quickly seen. */
    [[nodiscard]] std::string_view Encoded() const noexcept { return chunk_[at_].items; }
    /** The items in a form for people; of a signature the signer and whether the note has changed since. */
    [[nodiscard]] std::vector<ShownItem> Items() const;

private:
    struct StoredNote {
        NoteHead head;
        std::string items;
    };

    void ReadChunk();
    void ReadFacts();
    void ReadAccessControlList(const std::string& encoded);

    std::unique_ptr<Store> store_;
    std::vector<DatabaseFact> facts_;
    // Notes are read by the chunk: to lock the file for each of them would take far longer than to read it.
    std::vector<StoredNote> chunk_;
    size_t at_ = 0;
    bool ended_ = false;
};

} // namespace embedded
