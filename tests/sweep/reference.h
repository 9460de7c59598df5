// The run that nothing disturbs: what happens in it, and what the server carries meanwhile.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "events.h"
#include "state.h"

namespace sweep {

struct Event {
    const char* operation;
    size_t logged; // the messages that the log held by then
};

struct Reference {
    Runner runner = Runner::module;
    std::string behaviours;                   // of the server, "" for the defaults
    std::array<std::vector<Event>, 3> events; // by kind
    std::vector<std::string> messages;        // of the module's log
    std::vector<State> states;                // when nothing is open, and at the end
    State endAgain;                           // of a run on a server that is upgraded already, but does not say so
    Replacements replacements;

    [[nodiscard]] const State& End() const { return states.back(); }
    [[nodiscard]] const char* OperationOf(const Disturbance& disturbance) const {
        return events[disturbance.kind][disturbance.n - 1].operation;
    }
    /** In words: "NSFNoteOpen fails", "everything fails from NSFNoteOpen on". */
    [[nodiscard]] std::string Describe(const Disturbance& disturbance) const;
    /** The step of the run that it is in, as the module's messages tell, and what that works on: "sign krmsg". */
    [[nodiscard]] std::string StepOf(const Disturbance& disturbance) const;
};

/** Runs the upgrade in copies below `work`. Throws when two runs differ. */
[[nodiscard]] Reference Record(Runner runner, const std::filesystem::path& work);

/** What happens in a run on a server with other behaviours, which is to lead to the same states. */
[[nodiscard]] Reference RecordUnder(const Reference& reference, const std::string& behaviours,
                                    const std::filesystem::path& work);

/** The messages in the module's log of a server folder. */
[[nodiscard]] std::vector<std::string> LogMessages(const std::filesystem::path& server);

} // namespace sweep
