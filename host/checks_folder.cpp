// The checks of the server folder as a folder: links, rights, room, and who else is at work there.
#include <algorithm>

#include "checks.h"
#include "hold.h"
#include "patch_entries.h"
#include "path_checks.h"
#include "platform.h"
#include "recovery_copy.h"
#include "text_table.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

std::vector<fs::directory_entry> FilesIn(const ServerFolder& server) {
    return {fs::recursive_directory_iterator(server.ProductFolder()), fs::recursive_directory_iterator()};
}

void CheckOthers(const CheckSubject& subject, Findings& findings) {
    if (const auto holder = HolderOf(subject.server.DataDirectory()); holder && !subject.isHeld) {
        findings.Fail(subject.server.DataDirectory(), 0, "is in use: " + *holder, "wait for it to end");
    } else if (const auto deadRun = UnendedCopyOf(subject.server.ProductFolder())) {
        findings.Warn(subject.server.ProductFolder(), 0, "a run died half-way: " + deadRun->run,
                      "nothing: the next run first puts back what it changed; `krxpatch restore` does only that");
    }
}

} // namespace

void FindLinks(const ServerFolder& server, Findings& findings) {
    const auto requireInside = [&](const fs::path& path) {
        if (!IsBelow(path, server.Path())) {
            findings.Fail(path, 0, "leads out of the server folder, to " + fs::weakly_canonical(path).string(),
                          "put a copy in the place of the link");
        }
    };
    for (const fs::path& path :
         {server.DataDirectory(), server.ProductFolder(), server.LogFolder(), server.OfflineList()}) {
        if (std::error_code ignored; fs::is_symlink(path, ignored)) {
            requireInside(path);
        }
    }
    for (const fs::directory_entry& entry : FilesIn(server)) {
        std::error_code ignored; // what goes away meanwhile leads nowhere
        if (entry.is_symlink(ignored)) {
            requireInside(entry.path());
        } else if (const uintmax_t names = platform::NumberOfNames(entry.path());
                   entry.is_regular_file(ignored) && names > 1) {
            findings.Fail(entry.path(), 0,
                          "the file has " + std::to_string(names) +
                              " names: an upgrade would change it under each of them",
                          "put a copy in its place: cp FILE FILE.new && mv FILE.new FILE");
        }
    }
}

namespace {

void CheckLinks(const CheckSubject& subject, Findings& findings) {
    FindLinks(subject.server, findings);
}

void CheckWritable(const CheckSubject& subject, Findings& findings) {
    const auto require = [&](const fs::path& path) {
        if (const std::string why = platform::WhyUnwritable(path); !why.empty()) {
            findings.Fail(path, 0, "cannot be written: " + why,
                          "run krxpatch as the user whom the databases belong to, or give this one the right");
        }
    };
    for (const fs::path& folder :
         {subject.server.Path(), subject.server.DataDirectory(), subject.server.ProductFolder()}) {
        require(folder);
    }
    for (const fs::directory_entry& entry : FilesIn(subject.server)) {
        if (std::error_code ignored; entry.is_regular_file(ignored)) {
            require(entry.path());
        }
    }
}

/** The copy, then what the patch brings, and twice the largest database: its journal, and the old encyclopedia beside
 *  the new one. */
void CheckRoom(const CheckSubject& subject, Findings& findings) {
    uintmax_t largest = 0;
    for (const fs::directory_entry& entry : FilesIn(subject.server)) {
        std::error_code ignored; // what is no file has no size
        largest = entry.is_regular_file(ignored) ? std::max(largest, entry.file_size(ignored)) : largest;
    }
    uintmax_t brought = 0;
    for (const std::string& entry : subject.facts.entries) {
        std::error_code missing; // which has a check of its own
        const uintmax_t size = fs::file_size(subject.facts.programFolder / entry, missing);
        brought += missing ? 0 : size;
    }
    // A dead run's copy is used again.
    const uintmax_t copy = UnendedCopyOf(subject.server.ProductFolder()) ? 0 : SizeOf(subject.server.ProductFolder());
    const uintmax_t needed = copy + brought + 2 * largest;
    const uintmax_t available = fs::space(subject.server.ProductFolder()).available;
    const std::string text = Megabytes(needed) + " needed for the safety copy (" + Megabytes(copy) +
                             ") and the upgrade, " + Megabytes(available) + " free";
    if (needed <= available) {
        findings.Ok(text);
        return;
    }
    const bool older = !CopiesOf(subject.server.ProductFolder()).empty() && copy != 0;
    findings.Fail(subject.server.ProductFolder(), 0, "too little room on the disk: " + text,
                  std::string("make room") +
                      (older ? "; `krxpatch restore --discard` removes the safety copy of an earlier run" : ""));
}

constexpr CheckRow rows[] = {
    {"others at work", CheckOthers, ofMoment | final},
    {"links", CheckLinks, final},
    {"rights", CheckWritable, ofMoment},
    {"room on the disk", CheckRoom, ofMoment},
};

} // namespace

std::span<const CheckRow> FolderChecks() {
    return rows;
}

} // namespace krxpatch
