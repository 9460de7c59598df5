#include "recovery_copy.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <vector>

#include "failure.h"
#include "hold.h"
#include "platform.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

fs::path WithSuffix(fs::path path, const char* suffix) {
    return path += suffix;
}

/** Beside the folder itself and not beside a link to it, so that every path to the folder leads to the same copy. */
fs::path CopyOf(const fs::path& productFolder) {
    return WithSuffix(fs::weakly_canonical(productFolder), ".recovery");
}

/** The name under which a copy comes and goes. */
fs::path PassingCopyOf(const fs::path& productFolder) {
    return WithSuffix(CopyOf(productFolder), ".tmp");
}

fs::path RunFile(const fs::path& copy) {
    return copy / "run";
}

/** What the copy holds, to tell a whole one from one of which somebody has removed a part. */
fs::path ContentsFile(const fs::path& copy) {
    return copy / "contents";
}

enum class Kind { file, folder, other };

/** Nothing that a run touches stands behind a link to a folder, and it may lead round in a circle. */
Kind KindOf(const fs::directory_entry& entry) {
    if (entry.is_directory() && !entry.is_symlink()) {
        return Kind::folder;
    }
    return entry.is_regular_file() ? Kind::file : Kind::other;
}

/** Everything in a folder; the list is whole before anything in the folder is changed. */
std::vector<fs::directory_entry> EntriesOf(const fs::path& folder) {
    return {fs::directory_iterator(folder), fs::directory_iterator()};
}

/** Lets a file that `write` makes take its place whole or not at all; it is on the disk then. Where a link stands, its
 *  target is replaced. */
template<class Write>
void PutIntoPlace(const fs::path& file, const Write& write) {
    const fs::path target = fs::weakly_canonical(file);
    const fs::path made = WithSuffix(target, ".recovery.tmp");
    write(made);
    fs::rename(made, target);
    platform::FlushToDisk(target.parent_path());
}

void CopyFile(const fs::path& from, const fs::path& to) {
    PutIntoPlace(to, [&](const fs::path& made) {
        platform::CopyFile(from, made);
        fs::last_write_time(made, fs::last_write_time(from));
    });
}

void CopyFolder(const fs::path& from, const fs::path& to) {
    if (fs::create_directory(to, from)) {
        platform::TakeOwner(to, from);
        platform::FlushToDisk(to.parent_path());
    }
    for (const fs::directory_entry& entry : EntriesOf(from)) {
        const fs::path copy = to / entry.path().filename();
        if (const Kind kind = KindOf(entry); kind == Kind::folder) {
            CopyFolder(entry.path(), copy);
        } else if (kind == Kind::file) {
            CopyFile(entry.path(), copy);
        }
    }
}

/** Removes the files and folders that have no counterpart in a copy. */
void RemoveAllBut(const fs::path& copy, const fs::path& folder) {
    for (const fs::directory_entry& entry : EntriesOf(folder)) {
        const Kind kind = KindOf(entry);
        const fs::path counterpart = copy / entry.path().filename();
        const bool kept = fs::exists(counterpart) && KindOf(fs::directory_entry(counterpart)) == kind;
        if (!kept && kind != Kind::other) {
            fs::remove_all(entry.path());
        } else if (kept && kind == Kind::folder) {
            RemoveAllBut(counterpart, entry.path());
        }
    }
    platform::FlushToDisk(folder);
}

void WriteText(const fs::path& file, const std::string& text) {
    PutIntoPlace(file, [&](const fs::path& made) {
        std::ofstream stream(made, std::ios::binary | std::ios::trunc);
        stream << text << std::flush;
        if (!stream) {
            throw fs::filesystem_error("write", made, std::make_error_code(std::errc::io_error));
        }
        stream.close();
        platform::FlushToDisk(made);
    });
}

/** A line for each file in a copy, with its size. */
std::vector<std::string> ContentsOf(const fs::path& copy) {
    std::vector<std::string> lines;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(copy)) {
        if (KindOf(entry) == Kind::file && entry.path() != RunFile(copy) && entry.path() != ContentsFile(copy)) {
            lines.push_back(entry.path().lexically_relative(copy).generic_string() + '\t' +
                            std::to_string(entry.file_size()) + '\n');
        }
    }
    std::ranges::sort(lines);
    return lines;
}

/** Throws when a file of the copy is missing or has another size: what it lacks would be removed from the product
 *  folder. */
void RequireWhole(const fs::path& copy) {
    const std::vector<std::string> there = ContentsOf(copy);
    std::ifstream stream(ContentsFile(copy), std::ios::binary);
    const auto refuse = [&](const fs::path& file) {
        throw Failure(failed, "what an earlier run changed cannot be put back, and nothing was touched: " +
                                  (copy / file).string() + " is missing or damaged; remove " + copy.string() +
                                  " to go on with the product folder as it is");
    };
    if (!stream) {
        refuse("contents");
    }
    for (std::string line; std::getline(stream, line);) {
        if (!std::ranges::binary_search(there, line + '\n')) {
            refuse(line.substr(0, line.rfind('\t')));
        }
    }
}

/** From "whole" to "there at all" and back, in one step that is on the disk when this returns. */
void Rename(const fs::path& from, const fs::path& to) {
    fs::rename(from, to);
    platform::FlushToDisk(to.parent_path());
}

void Make(const ServerFolder& server, const std::string& run) {
    const fs::path made = PassingCopyOf(server.ProductFolder());
    fs::create_directory(made);
    // Held mail is in there: only who may look into the product's folder may look into its copy.
    CopyFolder(server.ProductFolder(), made / server.ProductFolder().filename());
    if (fs::exists(server.OfflineList())) {
        CopyFile(server.OfflineList(), made / server.OfflineList().filename());
    }
    std::string contents;
    for (const std::string& line : ContentsOf(made)) {
        contents += line;
    }
    WriteText(ContentsFile(made), contents);
    WriteText(RunFile(made), run);
    Rename(made, CopyOf(server.ProductFolder()));
}

/** Can be broken off and done again: the copy stays as it is. */
void PutBack(const ServerFolder& server) {
    const fs::path copy = CopyOf(server.ProductFolder());
    const fs::path folder = copy / server.ProductFolder().filename();
    RequireWhole(copy);
    // First what is too much: a journal of the dead run must not meet a database that it does not belong to.
    RemoveAllBut(folder, server.ProductFolder());
    CopyFolder(folder, server.ProductFolder());
    fs::remove(WithSuffix(server.OfflineList(), ".new"));
    if (const fs::path offline = copy / server.OfflineList().filename(); fs::exists(offline)) {
        CopyFile(offline, server.OfflineList());
    } else {
        fs::remove(server.OfflineList());
    }
    platform::FlushToDisk(server.Path());
}

std::string Cause(const fs::filesystem_error& error) {
    const fs::path& file = error.path2().empty() ? error.path1() : error.path2();
    return file.string() + ": " + error.code().message();
}

} // namespace

std::optional<std::string> RunWithCopyOf(const fs::path& productFolder) {
    std::ifstream stream(RunFile(CopyOf(productFolder)), std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

std::optional<std::string> DeadRunOf(const ServerFolder& server) {
    const auto run = RunWithCopyOf(server.ProductFolder());
    // A run that is going on holds the server for longer than its copy is there.
    const bool goingOn = HolderOf(server.Path()) || RunWithCopyOf(server.ProductFolder()) != run;
    return goingOn ? std::nullopt : run;
}

RecoveryCopy::RecoveryCopy(const ServerFolder& server, const std::string& run)
    : productFolder_(server.ProductFolder()) {
    const fs::path passing = PassingCopyOf(productFolder_);
    if (RunWithCopyOf(productFolder_)) {
        try {
            PutBack(server);
            WriteText(RunFile(CopyOf(productFolder_)), run);
            return;
        } catch (const fs::filesystem_error& error) {
            throw Failure(failed, "what an earlier run changed cannot be put back wholly: " + Cause(error));
        }
    }
    try {
        fs::remove_all(passing);
        Make(server, run);
    } catch (const fs::filesystem_error& error) {
        std::error_code ignored; // it means nothing, and the next run removes it
        fs::remove_all(passing, ignored);
        throw Failure(notStarted,
                      "the product's folder cannot be copied for the case that the run dies: " + Cause(error));
    }
}

RecoveryCopy::~RecoveryCopy() {
    try {
        Discard();
    } catch (const std::exception&) {
        // An error is on its way already; it says what matters more.
    }
}

void RecoveryCopy::Discard() {
    const fs::path passing = PassingCopyOf(productFolder_);
    try {
        if (RunWithCopyOf(productFolder_)) {
            fs::remove_all(passing);
            Rename(CopyOf(productFolder_), passing);
        }
        fs::remove_all(passing);
    } catch (const fs::filesystem_error& error) {
        throw Failure(failed, CopyOf(productFolder_).string() +
                                  ": cannot be removed, and the next run would put it back: " + Cause(error));
    }
}

} // namespace krxpatch
