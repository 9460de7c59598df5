#include <algorithm>
#include <iostream>

#include <nlohmann/json.hpp>

#include "change_report.h"
#include "checks.h"
#include "commands.h"
#include "database_report.h"
#include "history.h"
#include "hold.h"
#include "patch_entries.h"
#include "path_checks.h"
#include "recovery_copy.h"
#include "server_folder.h"
#include "text_table.h"

namespace krxpatch {
namespace {

std::string Describe(const CopyState& state) {
    const size_t damaged = state.damaged.size();
    return damaged == 0 ? "whole"
                        : "damaged: " + state.damaged.front() +
                              (damaged == 1 ? "" : " and " + std::to_string(damaged - 1) + " more");
}

ExitCode List(const std::vector<RecoveryCopy>& copies, bool isHeld, Report& report) {
    std::vector<std::vector<std::string>> table = {{"ID", "MADE FOR", "THAT RUN ENDED", "SIZE", "FILES"}};
    Report& rows = report["copies"] = Report::array();
    for (const RecoveryCopy& copy : copies) {
        const uintmax_t size = SizeOf(copy.Folder());
        const CopyState state = Examine(copy);
        table.push_back({copy.id, copy.run, copy.ended.value_or(isHeld ? "is going on" : "died"),
                         std::to_string(size) + " bytes", Describe(state)});
        rows.push_back({{"id", copy.id},
                        {"run", copy.run},
                        {"ended", copy.ended ? Report(*copy.ended) : Report()},
                        {"folder", copy.Folder().string()},
                        {"bytes", size},
                        {"damaged", state.damaged}});
    }
    std::cout << (copies.empty() ? "There is no safety copy.\n" : FormatTable(table));
    return succeeded;
}

/** The copies that the command is about: the one with the ID, or without an ID all. First is the one to be put back: of
 *  a run that died, or else the newest. */
std::vector<RecoveryCopy> Select(std::vector<RecoveryCopy> copies, const RestoreOptions& options) {
    if (!options.id.empty()) {
        std::erase_if(copies, [&](const RecoveryCopy& copy) { return copy.id != options.id; });
    }
    if (copies.empty()) {
        throw Failure(notStarted, options.server.string() + ": there is no safety copy" +
                                      (options.id.empty() ? "" : " " + options.id + "; --list tells which there are"));
    }
    std::stable_partition(copies.begin(), copies.end(), [](const RecoveryCopy& copy) { return !copy.ended; });
    return copies;
}

void RequireEnded(const std::vector<RecoveryCopy>& copies, const std::filesystem::path& server) {
    const auto died = std::ranges::find_if(copies, [](const RecoveryCopy& copy) { return !copy.ended; });
    if (died != copies.end()) {
        throw Failure(notStarted, "the safety copy " + died->id + " is needed (" + DescribeDeath(died->Dead()) +
                                      "), and the product folder is half upgraded: put it back with " +
                                      CommandOn(server, "restore") + ", or discard it with --force");
    }
}

void DiscardAll(const std::vector<RecoveryCopy>& copies) {
    for (const RecoveryCopy& copy : copies) {
        Discard(copy);
        std::cout << "The safety copy " << copy.id << " is removed.\n";
    }
}

/** What lies elsewhere must not be overwritten. */
void RequireNoLinks(const ServerFolder& server) {
    if (!std::filesystem::exists(server.ProductFolder())) {
        return;
    }
    Findings findings;
    FindLinks(server, findings);
    if (!findings.All().empty()) {
        throw Failure(notStarted, Describe(findings.All().front()));
    }
}

/** Before anything is touched. */
void RequirePossible(const ServerFolder& server, const std::vector<RecoveryCopy>& copies,
                     const RestoreOptions& options) {
    if (!IsBelow(server.ProductFolder(), server.Path())) { // the copies would be another server's
        throw Failure(notStarted, server.ProductFolder().string() + ": leads out of the server folder");
    }
    if (!options.discard) {
        RequireNoLinks(server);
    } else if (!options.force) {
        RequireEnded(copies, server.Path());
    }
}

/** What may be missed first: what a run has put there comes behind. */
std::vector<std::string> NamesOf(std::vector<std::filesystem::path> removed, const ServerFolder& server) {
    std::stable_partition(removed.begin(), removed.end(), [](const std::filesystem::path& file) {
        const std::string name = file.filename().string();
        return name != policyFile && FindProduct(name) == nullptr;
    });
    std::vector<std::string> names;
    names.reserve(removed.size());
    for (const std::filesystem::path& file : removed) {
        names.push_back(file.lexically_relative(server.ProductFolder()).generic_string());
    }
    return names;
}

void PutNewestBack(const ServerFolder& server, const RecoveryCopy& copy, const std::string& description,
                   Report& report) {
    std::vector<std::string> names = NamesOf(PutBack(server, copy, description), server);
    report["removed"] = names;
    const std::string count = Counted(names.size(), "file");
    constexpr size_t shown = 10;
    if (names.size() > shown) {
        names.resize(shown);
        names.emplace_back("...");
    }
    std::cout << server.ProductFolder().string() << " is as it was before " << copy.run
              << ".\nGone is all that was changed there since, and " << count << " that the copy does not have"
              << (names.empty() ? "" : ": ") << Printable(Join(names)) << ".\nThe safety copy " << copy.id << " stays; "
              << CommandOn(server.Path(), "restore", "--discard") << " removes it.\n";
}

} // namespace

ExitCode Restore(const RestoreOptions& options, Report& report) {
    const ServerFolder server(options.server, ServerFolder::Access::readOnly, true);
    if (options.list) {
        return List(CopiesOf(server.ProductFolder()), HolderOf(server.DataDirectory()).has_value(), report);
    }
    RequireNotHeld(server.DataDirectory());
    RequirePossible(server, Select(CopiesOf(server.ProductFolder()), options), options);
    const std::string command = options.discard ? "restore --discard" : "restore";
    const std::string description = DescribeThis(command);
    const platform::HeldFile hold = Hold(server.DataDirectory(), description);
    const std::vector<RecoveryCopy> copies = Select(CopiesOf(server.ProductFolder()), options);
    RequirePossible(server, copies, options); // once more: a run may have died in between
    report["id"] = copies.front().id;
    Chronicle chronicle(server.Path(), command);
    try {
        options.discard ? DiscardAll(copies) : PutNewestBack(server, copies.front(), description, report);
    } catch (const Failure& failure) {
        if (failure.Code() != notStarted) {
            chronicle.End(NameOf(failure.Code()), failure.what());
        }
        throw;
    }
    chronicle.End(NameOf(succeeded));
    if (!std::cout.flush()) { // nobody may take what is done for what failed
        throw Failure(succeeded, "standard output: cannot be written; " + command + " is done");
    }
    return succeeded;
}

} // namespace krxpatch
