// The checks of the server folder as a folder: links, rights, room, and who else is at work there.
#include <algorithm>

#include "checks.h"
#include "history.h"
#include "hold.h"
#include "patch_entries.h"
#include "path_checks.h"
#include "platform.h"
#include "recovery_copy.h"
#include "text_table.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

/** What may not be looked into is left out; that it may not is told by the check of rights. */
std::vector<fs::directory_entry> EntriesBelow(const fs::path& folder) {
    std::error_code ignored; // of what is not there nothing lies below
    return {fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, ignored),
            fs::recursive_directory_iterator()};
}

void CheckOthers(const CheckSubject& subject, Findings& findings) {
    if (const auto holder = HolderOf(subject.server.DataDirectory()); holder && !subject.isHeld) {
        findings.Fail(subject.server.DataDirectory(), 0, "is in use: " + *holder, "wait for it to end");
    } else if (!subject.copiesProblem.empty()) {
        findings.Fail({}, 0, subject.copiesProblem, "run krxpatch as the user whom the databases belong to");
    } else if (const auto deadRun = UnendedOf(subject.copies)) {
        findings.Warn(subject.server.ProductFolder(), 0, DescribeDeath(deadRun->Dead()),
                      "nothing: the next run first puts back what it changed; " +
                          CommandOn(subject.server.Path(), "restore") + " does only that");
    }
}

} // namespace

void FindLinks(const ServerFolder& server, Findings& findings) {
    const auto look = [&](const fs::path& path) {
        std::error_code ignored; // what goes away meanwhile leads nowhere
        if (fs::is_symlink(path, ignored)) {
            if (!IsBelow(path, server.Path())) {
                findings.Fail(path, 0, "leads out of the server folder, to " + fs::weakly_canonical(path).string(),
                              "put a copy in the place of the link");
            }
        } else if (const uintmax_t names = platform::NumberOfNames(path);
                   fs::is_regular_file(path, ignored) && names > 1) {
            findings.Fail(path, 0,
                          "the file has " + std::to_string(names) +
                              " names: an upgrade would change it under each of them",
                          "put a copy in its place: cp FILE FILE.new && mv FILE.new FILE");
        }
    };
    for (const fs::path& path : {server.DataDirectory(), server.ProductFolder(), server.LogFolder(),
                                 server.OfflineList(), server.ConsoleLog(), HistoryFile(server.Path())}) {
        look(path);
    }
    for (const fs::path& folder : {server.ProductFolder(), server.LogFolder()}) {
        for (const fs::directory_entry& entry : EntriesBelow(folder)) {
            look(entry.path());
        }
    }
}

namespace {

void CheckLinks(const CheckSubject& subject, Findings& findings) {
    FindLinks(subject.server, findings);
}

void CheckWritable(const CheckSubject& subject, Findings& findings) {
    constexpr const char* remedy =
        "run krxpatch as the user whom the databases belong to, or give this one the right; a "
        "file system that is read-only is mounted for writing first";
    const auto require = [&](const fs::path& path) {
        if (const std::string why = platform::WhyUnwritable(path); !why.empty()) {
            findings.Fail(path, 0, "cannot be written: " + why, remedy);
        }
    };
    for (const fs::path& folder :
         {subject.server.Path(), subject.server.DataDirectory(), subject.server.ProductFolder()}) {
        require(folder);
    }
    for (const fs::path& path :
         {PlaceOfCopies(subject.server.ProductFolder()), HoldFile(subject.server.DataDirectory()),
          subject.server.ConsoleLog(), HistoryFile(subject.server.Path())}) {
        if (std::error_code ignored; fs::exists(path, ignored)) {
            require(path);
        }
    }
    if (const fs::path hold = HoldFile(subject.server.DataDirectory()); fs::is_directory(hold)) {
        findings.Fail(hold, 0, "is a folder, where krxpatch puts a file while it is at work", "remove it");
    }
    for (const fs::directory_entry& entry : EntriesBelow(subject.server.ProductFolder())) {
        if (std::error_code ignored; entry.is_directory(ignored)) {
            if (const std::string why = platform::WhyUnreadable(entry.path()); !why.empty()) {
                findings.Fail(entry.path(), 0, "cannot be copied: " + why, remedy);
            }
        } else if (entry.is_regular_file(ignored)) {
            require(entry.path());
        }
    }
}

/** The copy, then what the patch brings, and twice the largest database: its journal, and the old encyclopedia beside
 *  the new one. */
void CheckRoom(const CheckSubject& subject, Findings& findings) {
    if (subject.IsUpToDate()) {
        findings.Ok("none is needed: there is nothing to do");
        return;
    }
    uintmax_t largest = 0;
    uintmax_t all = 0;
    for (const fs::directory_entry& entry : EntriesBelow(subject.server.ProductFolder())) {
        std::error_code ignored; // what is no file has no size
        if (const uintmax_t size = entry.is_regular_file(ignored) ? entry.file_size(ignored) : 0; !ignored) {
            largest = std::max(largest, size);
            all += size;
        }
    }
    uintmax_t brought = 0;
    for (const std::string& entry : subject.facts.entries) {
        std::error_code missing; // which has a check of its own
        const uintmax_t size = fs::file_size(subject.facts.programFolder / entry, missing);
        brought += missing ? 0 : size;
    }
    // A dead run's copy is used again.
    const uintmax_t copy = UnendedOf(subject.copies) ? 0 : all;
    const uintmax_t needed = copy + brought + 2 * largest;
    const uintmax_t available = fs::space(subject.server.ProductFolder()).available;
    const std::string text = Megabytes(needed) + " needed for the safety copy (" + Megabytes(copy) +
                             ") and the upgrade, " + Megabytes(available >> 20 << 20) + " free";
    if (needed <= available) {
        findings.Ok(text);
        return;
    }
    const bool older = !subject.copies.empty() && copy != 0;
    findings.Fail(subject.server.ProductFolder(), 0, "too little room on the disk: " + text,
                  std::string("make room") + (older ? "; " + CommandOn(subject.server.Path(), "restore", "--discard") +
                                                          " removes the safety copy of an earlier run"
                                                    : ""));
}

constexpr CheckRow rows[] = {
    {"others at work", CheckOthers, ofMoment | final},
    {"links", CheckLinks, final},
    {"rights", CheckWritable, ofMoment | final},
    {"room on the disk", CheckRoom, ofMoment},
};

} // namespace

std::span<const CheckRow> FolderChecks() {
    return rows;
}

} // namespace krxpatch
