#include "recovery_copy.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <vector>

#include "database_report.h"
#include "failure.h"
#include "file_text.h"
#include "history.h"
#include "hold.h"
#include "patch_entries.h"
#include "platform.h"
#include "text_table.h"
#include "times.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

fs::path WithSuffix(fs::path path, const char* suffix) {
    return path += suffix;
}

constexpr const char* passing = ".tmp"; // ends the name under which a copy comes and goes

fs::path RunFile(const fs::path& copy) {
    return copy / "run";
}

fs::path EndedFile(const fs::path& copy) {
    return copy / "ended";
}

fs::path NextEndedFile(const fs::path& copy) {
    return copy / "ended.next";
}

fs::path RestoringFile(const fs::path& copy) {
    return copy / "restoring";
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
    try {
        write(made);
    } catch (...) {
        std::error_code ignored; // an error is on its way
        fs::remove(made, ignored);
        throw;
    }
    fs::rename(made, target);
    platform::FlushToDisk(target.parent_path());
}

/** Long work goes on in pieces. What is broken off between two of them can be begun again. */
void StopWhenInterrupted() {
    if (platform::IsInterrupted()) {
        throw Failure(interrupted, "interrupted");
    }
}

void CopyFile(const fs::path& from, const fs::path& to) {
    StopWhenInterrupted();
    const auto copy = [&] {
        PutIntoPlace(to, [&](const fs::path& made) {
            platform::CopyFile(from, made);
            fs::last_write_time(made, fs::last_write_time(from));
        });
    };
    try {
        copy();
    } catch (const fs::filesystem_error& error) {
        // What stands there is to go in any case: a full disk has room for one of the two.
        if (error.code() != std::errc::no_space_on_device || !fs::remove(to)) {
            throw;
        }
        copy();
    }
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

/** The files below a path, which may be one itself. */
std::vector<fs::path> FilesAt(const fs::directory_entry& place) {
    std::vector<fs::path> files;
    if (KindOf(place) == Kind::file) {
        files.push_back(place.path());
    } else if (KindOf(place) == Kind::folder) {
        for (const fs::directory_entry& entry : EntriesOf(place.path())) {
            std::ranges::move(FilesAt(entry), std::back_inserter(files));
        }
    }
    return files;
}

/** Removes the files and folders that have no counterpart in a copy, and adds the files among them to a list. */
void RemoveAllBut(const fs::path& copy, const fs::path& folder, std::vector<fs::path>& removed) {
    for (const fs::directory_entry& entry : EntriesOf(folder)) {
        const Kind kind = KindOf(entry);
        const fs::path counterpart = copy / entry.path().filename();
        const bool kept = fs::exists(counterpart) && KindOf(fs::directory_entry(counterpart)) == kind;
        if (!kept && kind != Kind::other) {
            std::ranges::move(FilesAt(entry), std::back_inserter(removed));
            fs::remove_all(entry.path());
        } else if (kept && kind == Kind::folder) {
            RemoveAllBut(counterpart, entry.path(), removed);
        }
    }
    platform::FlushToDisk(folder);
}

void WriteFlushed(const fs::path& file, const std::string& text) {
    PutIntoPlace(file, [&](const fs::path& made) {
        WriteText(made, text);
        platform::TakeOwner(made, file.parent_path());
        platform::FlushToDisk(made);
    });
}

/** Which files a copy has to hold to be whole. */
bool IsContent(const fs::directory_entry& entry, const fs::path& copy) {
    const fs::path& path = entry.path();
    return KindOf(entry) == Kind::file && path != RunFile(copy) && path != EndedFile(copy) &&
           path != NextEndedFile(copy) && path != RestoringFile(copy) && path != ContentsFile(copy);
}

/** Tells a file whose bytes have changed, by mishap and not by intent. */
std::string DigestOf(const fs::path& file) {
    constexpr uint64_t prime = 0x100000001b3;
    uint64_t digest = 0xcbf29ce484222325;
    ReadFile(file, [&](std::string_view part) {
        StopWhenInterrupted();
        for (const char byte : part) {
            digest = (digest ^ static_cast<unsigned char>(byte)) * prime;
        }
    });
    return std::to_string(digest);
}

/** What the list of a copy's contents says of one of its files: size and digest. */
std::string LineOf(const fs::path& file, const fs::path& copy) {
    return file.lexically_relative(copy).generic_string() + '\t' + std::to_string(fs::file_size(file)) + ' ' +
           DigestOf(file);
}

/** A line for each file in a copy. */
std::vector<std::string> ContentsOf(const fs::path& copy) {
    std::vector<std::string> lines;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(copy)) {
        if (IsContent(entry, copy)) {
            lines.push_back(LineOf(entry.path(), copy) + '\n');
        }
    }
    std::ranges::sort(lines);
    return lines;
}

bool IsAsListed(const std::string& name, const fs::path& copy, const std::string& line) {
    try {
        return LineOf(copy / name, copy) == line;
    } catch (const fs::filesystem_error&) { // missing, or cannot be read
        return false;
    }
}

/** Throws when a file of the copy is missing or is not as it was made: it would take the place of a good one in the
 *  product folder. */
void RequireWhole(const ServerFolder& server, const RecoveryCopy& copy) {
    const auto& [damaged, whole] = Examine(copy);
    if (damaged.empty()) {
        return;
    }
    const std::string more = damaged.size() == 1 ? "" : " (and " + std::to_string(damaged.size() - 1) + " more)";
    const std::string others = whole == 0 ? ""
                                          : ". The other files of the copy, " + std::to_string(whole) +
                                                ", are whole: " + copy.Folder().string();
    throw Failure(failed, (copy.Folder() / damaged.front()).string() + more +
                              " is missing or damaged: the safety copy " + copy.id +
                              " cannot be put back, and nothing was touched. Put " + server.ProductFolder().string() +
                              " back from your backup of it" + others +
                              ". Only then, or to go on with the folder as "
                              "it is: " +
                              CommandOn(server.Path(), "restore", copy.ended ? "--discard" : "--discard --force"));
}

/** From "whole" to "there at all" and back, in one step that is on the disk when this returns. */
void Rename(const fs::path& from, const fs::path& to) {
    fs::rename(from, to);
    platform::FlushToDisk(to.parent_path());
}

void RemoveFile(const fs::path& file) {
    fs::remove(file);
    platform::FlushToDisk(file.parent_path());
}

/** Nothing when there is no such file. Throws Failure for one that cannot be read: who may not look must not take it
 *  that there is nothing. */
std::optional<std::string> ReadIfThere(const fs::path& file) {
    try {
        return fs::exists(file) ? std::optional(ReadText(file)) : std::nullopt;
    } catch (const fs::filesystem_error& error) {
        throw Failure(notStarted, CauseOf(error));
    }
}

/** A copy's ID. It is the greatest, also when another was made in the same second or the clock has gone back. */
std::string NewId(const std::vector<RecoveryCopy>& copies) {
    const std::string id = FormatTime(Now(), "%Y%m%d-%H%M%S");
    return copies.empty() || copies.front().id < id ? id : copies.front().id + "a";
}

/** Copies are made, found and removed in a folder of the server's own: behind a link they would be shared with whatever
 *  else links there. */
void RequireOwnFolder(const fs::path& place) {
    const fs::file_status status = fs::symlink_status(place);
    if (fs::exists(status) && !fs::is_directory(status)) {
        throw Failure(notStarted, place.string() + ": is " + (fs::is_symlink(status) ? "a link" : "a file") +
                                      " and not a folder: the safety copies must stand beside the product folder");
    }
}

void RemoveIfEmpty(const fs::path& folder) {
    std::error_code ignored; // there are other copies in it
    if (fs::is_directory(fs::symlink_status(folder, ignored))) {
        fs::remove(folder, ignored);
    }
}

/** Whoever has a database open goes on writing into a file that is no longer there. */
void RequireUnused(const fs::path& productFolder) {
    std::error_code ignored; // no folder, no users
    for (const fs::directory_entry& entry : fs::directory_iterator(productFolder, ignored)) {
        if (KindOf(entry) == Kind::file && IsDatabaseName(entry.path().filename().string()) &&
            IsKeptOpen(entry.path())) {
            throw Failure(heldByAnother, entry.path().string() + ": is in use by another process; stop that, then try "
                                                                 "again");
        }
    }
}

/** What a dead run has left of copies that it was making or removing. */
void RemovePassing(const fs::path& place) {
    for (const fs::directory_entry& entry : EntriesOf(place)) {
        if (entry.path().extension() == passing) {
            fs::remove_all(entry.path());
        }
    }
}

std::string Ending(const char* how) {
    return TimeText(Now()) + ", " + how;
}

void Fill(const fs::path& made, const ServerFolder& server, const std::string& run) {
    fs::create_directory(made, server.ProductFolder());
    platform::TakeOwner(made, server.ProductFolder());
    // Held mail is in there: only who may look into the product's folder may look into its copy.
    CopyFolder(server.ProductFolder(), made / server.ProductFolder().filename());
    if (fs::exists(server.OfflineList())) {
        CopyFile(server.OfflineList(), made / server.OfflineList().filename());
    }
    std::string contents;
    for (const std::string& line : ContentsOf(made)) {
        contents += line;
    }
    WriteFlushed(ContentsFile(made), contents);
    WriteFlushed(EndedFile(made), Ending(outcome::notBegun));
    WriteFlushed(RunFile(made), run);
}

void DiscardIfPossible(const RecoveryCopy& copy) {
    try {
        Discard(copy);
    } catch (const Failure& failure) {
        std::cerr << "krxpatch: warning: " << failure.what() << '\n';
    }
}

/** On a full disk nobody will know: a run counts as dead then. */
void NoteRestoring(const RecoveryCopy& copy, const std::string& description) {
    try {
        WriteFlushed(RestoringFile(copy.Folder()), description);
    } catch (const fs::filesystem_error&) {
        RemoveFile(RestoringFile(copy.Folder())); // of an earlier one
    }
}

/** Can be broken off and done again: the copy stays as it is. Returns the files that it has removed. */
std::vector<fs::path> PutBackFiles(const ServerFolder& server, const fs::path& copy) {
    const fs::path folder = copy / server.ProductFolder().filename();
    if (!fs::exists(server.ProductFolder())) {
        fs::create_directory(server.ProductFolder(), folder);
    }
    // First what is too much: a journal of the dead run must not meet a database that it does not belong to.
    std::vector<fs::path> removed;
    RemoveAllBut(folder, server.ProductFolder(), removed);
    CopyFolder(folder, server.ProductFolder());
    fs::remove(WithSuffix(server.OfflineList(), ".new"));
    if (const fs::path offline = copy / server.OfflineList().filename(); fs::exists(offline)) {
        CopyFile(offline, server.OfflineList());
    } else {
        fs::remove(server.OfflineList());
    }
    platform::FlushToDisk(server.Path());
    return removed;
}

} // namespace

fs::path PlaceOfCopies(const fs::path& productFolder) {
    return WithSuffix(fs::weakly_canonical(productFolder), ".recovery");
}

fs::path RecoveryCopy::Folder() const {
    return PlaceOfCopies(productFolder) / id;
}

CopyState Examine(const RecoveryCopy& copy) {
    std::ifstream contents(ContentsFile(copy.Folder()), std::ios::binary);
    if (!contents) {
        return {{ContentsFile(copy.Folder()).filename().string()}};
    }
    CopyState state;
    for (std::string line; std::getline(contents, line);) {
        const std::string name = line.substr(0, line.rfind('\t'));
        if (IsAsListed(name, copy.Folder(), line)) {
            ++state.whole;
        } else {
            state.damaged.push_back(name);
        }
    }
    return state;
}

std::string DescribeDeath(const std::string& description) {
    return (description.starts_with("krxpatch restore") ? "a restore died: " : "a run died: ") + description;
}

std::vector<RecoveryCopy> CopiesOf(const fs::path& productFolder) {
    std::vector<RecoveryCopy> copies;
    const fs::path place = PlaceOfCopies(productFolder);
    RequireOwnFolder(place);
    if (!fs::exists(place)) {
        return copies;
    }
    if (const std::string why = platform::WhyUnreadable(place); !why.empty()) {
        throw Failure(notStarted, place.string() + ": cannot be read: " + why);
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(place)) {
        if (entry.path().extension() == passing) {
            continue;
        }
        if (const auto run = ReadIfThere(RunFile(entry.path()))) {
            copies.push_back({entry.path().filename().string(), productFolder, *run,
                              ReadIfThere(EndedFile(entry.path())), ReadIfThere(RestoringFile(entry.path()))});
        }
    }
    std::ranges::sort(copies, std::ranges::greater(), &RecoveryCopy::id);
    return copies;
}

std::optional<RecoveryCopy> UnendedCopyOf(const fs::path& productFolder) {
    return UnendedOf(CopiesOf(productFolder));
}

std::optional<RecoveryCopy> UnendedOf(const std::vector<RecoveryCopy>& copies) {
    const auto unended = std::ranges::find_if(copies, [](const RecoveryCopy& copy) { return !copy.ended; });
    return unended == copies.end() ? std::nullopt : std::optional(*unended);
}

void RequireAtRest(const ServerFolder& server) {
    if (const auto holder = HolderOf(server.DataDirectory())) {
        throw Failure(heldByAnother, server.Path().string() + ": is being changed: " + *holder);
    }
    if (const auto run = DeadRunOf(server)) {
        throw Failure(notStarted, server.Path().string() + ": " + DescribeDeath(*run) + "; first " +
                                      CommandOn(server.Path(), "restore") + " is to put back what it has changed");
    }
}

std::optional<std::string> DeadRunOf(const ServerFolder& server) {
    const auto copy = UnendedCopyOf(server.ProductFolder());
    if (!copy || HolderOf(server.DataDirectory())) {
        return std::nullopt;
    }
    // A run that was going on holds the server until it has ended its copy.
    const auto still = UnendedCopyOf(server.ProductFolder());
    return still && still->run == copy->run ? std::optional(copy->Dead()) : std::nullopt;
}

uintmax_t SizeOf(const fs::path& folder) {
    uintmax_t size = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        size += KindOf(entry) == Kind::file ? entry.file_size() : 0;
    }
    return size;
}

RecoveryCopy MakeCopy(const ServerFolder& server, const std::string& run) {
    const fs::path place = PlaceOfCopies(server.ProductFolder());
    fs::path made;
    const auto giveUp = [&] {
        std::error_code ignored; // what stays means nothing, and the next run removes it
        fs::remove_all(made, ignored);
        RemoveIfEmpty(place);
    };
    try {
        const std::vector<RecoveryCopy> older = CopiesOf(server.ProductFolder());
        if (fs::create_directory(place, server.ProductFolder())) {
            platform::TakeOwner(place, server.ProductFolder());
            platform::FlushToDisk(place.parent_path());
        }
        RemovePassing(place);
        const std::string id = NewId(older);
        made = place / (id + passing);
        Fill(made, server, run);
        Rename(made, place / id);
        for (const RecoveryCopy& copy : older) {
            if (!copy.ended->ends_with(outcome::bad)) {
                DiscardIfPossible(copy);
            }
        }
        return {id, server.ProductFolder(), run, Ending(outcome::notBegun), {}};
    } catch (const Failure& failure) {
        giveUp();
        throw Failure(failure.Code(), std::string(failure.what()) + " before anything was changed");
    } catch (const fs::filesystem_error& error) {
        giveUp();
        throw Failure(notStarted, "the safety copy cannot be made: " + CauseOf(error));
    }
}

RecoveryCopy Reuse(const RecoveryCopy& copy, const std::string& run) {
    WriteFlushed(RunFile(copy.Folder()), run);
    return {copy.id, copy.productFolder, run, Ending(outcome::putBack), {}};
}

void MarkBegun(const RecoveryCopy& copy) {
    WriteFlushed(NextEndedFile(copy.Folder()), Ending(outcome::bad));
    RemoveFile(EndedFile(copy.Folder()));
}

void MarkEnded(const RecoveryCopy& copy, const char* how) {
    try {
        WriteFlushed(EndedFile(copy.Folder()), Ending(how));
        RemoveFile(NextEndedFile(copy.Folder()));
    } catch (const fs::filesystem_error&) {
        if (fs::exists(NextEndedFile(copy.Folder()))) {                     // else an earlier mark stands
            Rename(NextEndedFile(copy.Folder()), EndedFile(copy.Folder())); // needs no room
        }
    }
}

void DiscardOthers(const RecoveryCopy& copy) {
    for (const RecoveryCopy& other : CopiesOf(copy.productFolder)) {
        if (other.id != copy.id) {
            DiscardIfPossible(other);
        }
    }
}

void RemoveHalfMarks(const fs::path& productFolder) {
    for (const RecoveryCopy& copy : CopiesOf(productFolder)) {
        for (const fs::path& mark : {EndedFile(copy.Folder()), NextEndedFile(copy.Folder())}) {
            RemoveFile(WithSuffix(mark, ".recovery.tmp"));
        }
        RemoveFile(NextEndedFile(copy.Folder()));
    }
}

std::vector<fs::path> PutBack(const ServerFolder& server, const RecoveryCopy& copy, const std::string& description) {
    RequireWhole(server, copy);
    RequireUnused(server.ProductFolder());
    std::vector<fs::path> removed;
    const auto fail = [&](ExitCode exitCode, const std::string& what) {
        throw Failure(exitCode, "what " + copy.run + " changed is not put back wholly: " + what + "; " +
                                    CommandOn(server.Path(), "restore") + " can be called again, and the safety copy " +
                                    copy.id + " is whole");
    };
    try {
        const bool died = !copy.ended && fs::exists(NextEndedFile(copy.Folder())); // and is not half put back
        NoteRestoring(copy, description);
        RemoveFile(EndedFile(copy.Folder()));
        removed = PutBackFiles(server, copy.Folder());
        if (died) {
            AddDeadToHistory(server.Path(), copy.run);
        }
        if (!copy.ended && copy.restoring) {
            AddDeadToHistory(server.Path(), *copy.restoring);
        }
        RemoveFile(RestoringFile(copy.Folder()));
        for (const RecoveryCopy& each : CopiesOf(server.ProductFolder())) {
            if (!each.ended) {
                MarkEnded(each, outcome::putBack); // of whatever run, what it has changed is gone
            }
        }
    } catch (const Failure& failure) {
        fail(failure.Code(), failure.what());
    } catch (const fs::filesystem_error& error) {
        fail(failed, CauseOf(error));
    }
    return removed;
}

void Discard(const RecoveryCopy& copy) {
    try {
        const fs::path going = WithSuffix(copy.Folder(), passing);
        Rename(copy.Folder(), going);
        fs::remove_all(going);
        RemoveIfEmpty(copy.Folder().parent_path());
    } catch (const fs::filesystem_error& error) {
        throw Failure(failed, copy.Folder().string() + ": cannot be removed: " + CauseOf(error));
    }
}

} // namespace krxpatch
