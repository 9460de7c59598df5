// The upgrade module, loaded.
#pragma once

#include <filesystem>

#include "embedded_notes.h"
#include "platform.h"
#include "watched_work.h"

namespace krxpatch {

class UpgradeModule {
public:
    /** Throws Failure, as not started, when it cannot be loaded or is no such module. */
    explicit UpgradeModule(const std::filesystem::path& file)
        : library_(file), entry_(library_.Find<EntryPoint>("MainEntryPoint")) {}

    /** Upgrades the server of the process's session. Calls `look` as DoWatched() does; what the module has under way
     *  cannot be stopped otherwise than by an end of the process. Its result is 0 whatever happened, so that there is
     *  none here: the outcome is read from the databases. */
    template<class Look>
    void Run(const Look& look) const {
        DoWatched([this] { (void)entry_(); }, look);
    }

private:
    using EntryPoint = STATUS();

    platform::Library library_;
    EntryPoint* entry_;
};

} // namespace krxpatch
