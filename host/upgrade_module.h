// The upgrade module, loaded.
#pragma once

#include <filesystem>
#include <functional>

#include "embedded_notes.h"
#include "platform.h"

namespace krxpatch {

class UpgradeModule {
public:
    /** Throws Failure, as not started, when it cannot be loaded or is no such module. */
    explicit UpgradeModule(const std::filesystem::path& file)
        : library_(file), entry_(library_.Find<EntryPoint>("MainEntryPoint")) {}

    /** Upgrades the server of the process's session. Calls `look` twenty times a second and once at the end. `look` may
     *  end the process, as what the module has under way cannot be stopped; it does not throw. The module's result is 0
     *  whatever happened, so that there is none: the outcome is read from the databases. */
    void Run(const std::function<void()>& look) const;

private:
    using EntryPoint = STATUS();

    platform::Library library_;
    EntryPoint* entry_;
};

} // namespace krxpatch
