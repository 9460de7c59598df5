// Whether a disturbed run has lost or broken anything.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "reference.h"

namespace sweep {

enum class Clause : char {
    forms = 'a',     // every document, database and file is as it was or as it is to be
    recovers = 'e',  // so it is after an undisturbed run afterwards
    returned = 'b',  // the process came to its end and the run returned 0
    released = 'c',  // nothing is left open, nothing was closed twice
    reported = 'd',  // the log says what failed
    catchesUp = 'f', // an undisturbed run afterwards ends where one ends that was never disturbed
    settles = 'g',   // one more run changes nothing
    agrees = 'h',    // an undisturbed run ends where it does on a server with the default behaviours
};

/** What is let pass. Patterns are as of file names, with "@(one|other)"; null fits everything. */
struct Exception {
    Clause clause;
    const char* disturbed; // what happens, as Reference::Describe has it; of "agrees" the server's behaviours
    const char* step;      // of the run, as Reference::StepOf has it
    const char* facet;     // of a state; "%" is what the step works on. Of forms with " gone", " added" or " changed"
    const char* reason;
};

[[nodiscard]] std::span<const Exception> Exceptions();

/** What a run's process says about itself at its end. */
struct Report {
    bool finished;
    int result;
    bool happened; // the disturbance
    DWORD open;    // handles and locks
    DWORD misuses;
    size_t allocations;
    size_t files;
    bool inServerLog; // the failure's status is in the server's log
};

/** To be called in the run's process. */
[[nodiscard]] Report MakeReport(const Disturbance& disturbance, size_t filesBefore);
[[nodiscard]] size_t OpenFiles();

/** Can be shared by processes. */
struct Outcome {
    bool judged;
    bool newState;       // whose follow-up had not been run yet
    uint64_t exceptions; // that were needed, one bit each
    size_t violations;
    char text[500]; // the first of them, one a line: clause and cause
    char what[120]; // was done to the run
};

/** Says in an outcome what was done to the run. */
void Name(Outcome& outcome, const std::string& what);

/** Judges the server folder that a disturbed run has left, in which this process stands. The follow-up runs
 *  change it. */
void Judge(const Reference& reference, const Disturbance& disturbance, int processStatus, const Report& report,
           const std::filesystem::path& work, Outcome& outcome);

/** Judges the server folder that an undisturbed run has left on a server with behaviours of its own. */
void JudgeAgreement(const Reference& reference, const std::string& behaviours, const Report& report, Outcome& outcome);

/** For RunThisProgram: two undisturbed runs on the folder it stands in, whose end goes into a file. */
int FollowUp(Runner runner, const std::filesystem::path& work);

/** Where the program's processes find the replacements that states are read with. */
void WriteReplacements(const std::filesystem::path& work, const Replacements& replacements);

[[nodiscard]] const char* NameOf(Runner runner);

} // namespace sweep
