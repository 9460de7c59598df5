#include "oracle.h"

#include <algorithm>
#include <fstream>
#include <regex>

#include <fnmatch.h>
#include <sys/wait.h>

#include "embedded_notes.h"
#include "engine/values/status_text.h"
#include "server.h"

namespace sweep {
namespace {

namespace fs = std::filesystem;

constexpr const char* endFile = "end.txt";
constexpr const char* wrong = "wrong/"; // begins what is no facet of a server but wrong with the runs that led to it

void Write(const fs::path& file, const State& state) {
    std::ofstream out(file);
    for (const auto& [facet, value] : state) {
        out << facet << '\t' << value << '\n';
    }
}

State Read(const fs::path& file) {
    State state;
    std::ifstream in(file);
    for (std::string facet, value; std::getline(in, facet, '\t') && std::getline(in, value);) {
        state[facet] = value;
    }
    return state;
}

std::string BehavioursOf(const fs::path& server) {
    const std::string settings = ReadFile(server / "notes.ini");
    const size_t at = settings.find("EmbeddedBehaviour=");
    return at == std::string::npos ? "" : settings.substr(at);
}

/** The end of undisturbed runs on the folder that this process stands in; for equal folders they are run once. */
State EndAfter(Runner runner, const fs::path& work, bool& isNew) {
    const std::string state = DigestOf(fs::current_path()) + BehavioursOf(fs::current_path());
    const fs::path known = work / "ends" / (std::to_string(std::hash<std::string>()(state)) + "." + NameOf(runner));
    isNew = !fs::exists(known);
    if (isNew) {
        if (const int status = RunThisProgram({"--follow-up", NameOf(runner), work}); status != 0) {
            return {{wrong + std::string("the run afterwards ends with status ") + std::to_string(status), ""}};
        }
        fs::rename(endFile, known); // in one step: other processes read it
    }
    return Read(known);
}

bool Fits(const char* pattern, const std::string& text) {
    return pattern == nullptr || fnmatch(pattern, text.c_str(), FNM_NOESCAPE | FNM_EXTMATCH) == 0;
}

/** The judgement of one run as it is made. */
class Judgement {
public:
    Judgement(const Reference& reference, const Disturbance& disturbance, Outcome& outcome)
        : excuses_(reference.runner == Runner::module), disturbed_(reference.Describe(disturbance)),
          step_(reference.StepOf(disturbance)), outcome_(outcome) {}
    /** Of a run that nothing disturbs on a server with these behaviours. */
    Judgement(const std::string& behaviours, Outcome& outcome)
        : excuses_(true), disturbed_(behaviours), outcome_(outcome) {}

    /** Notes what is wrong, unless it is let pass. */
    void Add(Clause clause, const std::string& what, const std::string& facet = "") {
        const std::span<const Exception> all = Exceptions();
        const auto exception =
            std::ranges::find_if(all, [&](const Exception& row) { return row.clause == clause && Covers(row, facet); });
        if (excuses_ && exception != all.end()) {
            outcome_.exceptions |= uint64_t{1} << (exception - all.begin());
            return;
        }
        ++outcome_.violations;
        text_ += std::string(1, static_cast<char>(clause)) + ": " + what + '\n';
        outcome_.text[text_.copy(outcome_.text, sizeof outcome_.text - 1)] = '\0';
    }

private:
    [[nodiscard]] bool Covers(const Exception& row, const std::string& facet) const {
        std::string pattern = row.facet == nullptr ? "*" : row.facet;
        if (const size_t at = pattern.find('%'); at != std::string::npos) {
            pattern.replace(at, 1, step_.substr(step_.rfind(' ') + 1));
        }
        return Fits(row.disturbed, disturbed_) && Fits(row.step, step_) && Fits(pattern.c_str(), facet);
    }

    bool excuses_; // nothing is let pass that krxpatch is there to prevent
    std::string disturbed_;
    std::string step_;
    std::string text_;
    Outcome& outcome_;
};

/** Facets that come in more forms than an undisturbed run shows: who signed what and is to replicate it is made anew
 *  with every run, and a document's lists count as part of its content, where references may be repaired or not. */
bool IsFree(const std::string& facet) {
    return Fits("*/@($Signature|replication|ReferDocs|UseDocs|matchRule)", facet);
}

bool IsIn(const std::vector<State>& states, const std::string& facet, const std::string& value) {
    return std::ranges::any_of(states, [&](const State& state) { return ValueOf(state, facet) == value; });
}

void CheckForms(Clause clause, const std::vector<State>& forms, const State& state, bool mayDangle,
                Judgement& judgement) {
    for (const std::string& facet : Differences(state, forms.back())) {
        const std::string value = ValueOf(state, facet);
        if (IsFree(facet) || IsIn(forms, facet, value) || (mayDangle && Fits("krconf.nsf/dangling/*", facet))) {
            continue;
        }
        const bool known = std::ranges::any_of(forms, [&](const State& form) { return form.contains(facet); });
        const std::string what = facet + (value.empty() ? " gone" : known ? " changed" : " added");
        judgement.Add(clause, what, what);
    }
}

void CheckReport(const Report& report, Judgement& judgement) {
    if (report.result != 0 || !report.happened) {
        judgement.Add(Clause::returned, report.happened ? "the run failed" : "the disturbance did not happen");
    }
    if (report.open != 0 || report.misuses != 0 || report.files != 0 || report.allocations != 0) {
        judgement.Add(Clause::released, "left: " + std::to_string(report.open) + " handles, " +
                                            std::to_string(report.files) + " files, " +
                                            std::to_string(report.allocations) + " allocations; " +
                                            std::to_string(report.misuses) + " misuses");
    }
}

/** Some message that an undisturbed run does not log tells of an error. */
bool LogTells(const Reference& reference) {
    static const std::regex error(
        "^ERR:|error|fail|cannot (?!be found in ori)|broken off|does not exist|skip|(set|map) is null|"
        "\\([1-9a-f][0-9a-f]*\\)$",
        std::regex::icase);
    const std::set<std::string> usual(reference.messages.begin(), reference.messages.end());
    return std::ranges::any_of(LogMessages(fs::current_path()), [&](const std::string& message) {
        return !usual.contains(message) && std::regex_search(message, error);
    });
}

bool IsInServerLog(STATUS status) {
    std::string log(EmbServerLog(nullptr, 0) + 1, '\0');
    (void)EmbServerLog(log.data(), static_cast<DWORD>(log.size()));
    return log.find("\t" + std::string(embedded::StatusText(status)) + "\n") != std::string::npos;
}

} // namespace

void Name(Outcome& outcome, const std::string& what) {
    outcome.what[what.copy(outcome.what, sizeof outcome.what - 1)] = '\0';
}

const char* NameOf(Runner runner) {
    return runner == Runner::module ? "module" : "krxpatch";
}

size_t OpenFiles() {
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

Report MakeReport(const Disturbance& disturbance, size_t filesBefore) {
    Report report = {};
    report.finished = true;
    report.happened = HasHappened() && (disturbance.status == NOERROR || EmbFaultsFired() > 0);
    for (const DWORD kind : {EMB_HANDLE_DATABASE, EMB_HANDLE_NOTE, EMB_HANDLE_MEMORY, EMB_HANDLE_LOCK}) {
        report.open += EmbOpenHandles(kind);
    }
    report.misuses = EmbMisuseCount();
    report.inServerLog = disturbance.status != NOERROR && IsInServerLog(disturbance.status);
    report.files = OpenFiles() - filesBefore;
    ForgetRun();
    report.allocations = LiveAllocations();
    return report;
}

void Judge(const Reference& reference, const Disturbance& disturbance, int processStatus, const Report& report,
           const fs::path& work, Outcome& outcome) {
    Judgement judgement(reference, disturbance, outcome);
    const bool asMeant = disturbance.IsDeath() ? WIFEXITED(processStatus) && WEXITSTATUS(processStatus) == deathCode
                                               : report.finished && processStatus == 0;
    if (!asMeant) {
        judgement.Add(Clause::returned, "the process ended with status " + std::to_string(processStatus));
    }
    if (!disturbance.IsDeath()) {
        CheckReport(report, judgement);
        const State state = ReadState(fs::current_path(), reference.replacements);
        const bool told = report.inServerLog || LogTells(reference);
        CheckForms(Clause::forms, reference.states, state, told, judgement);
        // What makes no difference need not be reported.
        if (state != reference.End() && !told) {
            judgement.Add(Clause::reported, "the log says nothing");
        }
    }
    const State end = EndAfter(reference.runner, work, outcome.newState);
    std::vector<State> forms = reference.states;
    forms.push_back(reference.endAgain);
    CheckForms(Clause::recovers, forms, end, false, judgement);
    for (const std::string& facet : Differences(end, reference.End())) {
        if (facet.starts_with(wrong)) {
            judgement.Add(Clause::settles, facet);
        } else if (ValueOf(end, facet) != ValueOf(reference.endAgain, facet)) {
            judgement.Add(Clause::catchesUp, facet + " is not as it is to be", facet);
        }
    }
    outcome.judged = true;
}

void JudgeAgreement(const Reference& reference, const std::string& behaviours, const Report& report, Outcome& outcome) {
    Judgement judgement(behaviours, outcome);
    CheckReport(report, judgement);
    const State state = ReadState(fs::current_path(), reference.replacements);
    for (const std::string& facet : Differences(state, reference.End())) {
        judgement.Add(Clause::agrees, facet + " is another", facet);
    }
    Name(outcome, "an undisturbed run");
    outcome.newState = true;
    outcome.judged = true;
}

int FollowUp(Runner runner, const fs::path& work) {
    const State replacements = Read(work / "replacements");
    State errors;
    const auto run = [&](const std::string& which) {
        const size_t files = OpenFiles();
        if (const int result = RunUpgrade(runner); result != 0) {
            errors[wrong + which + " run afterwards returned " + std::to_string(result)] = "yes";
        }
        const Report report = MakeReport({}, files);
        if (report.open != 0 || report.misuses != 0 || report.files != 0) {
            errors[wrong + which + " run afterwards left something open"] = "yes";
        }
    };
    run("the first");
    RecoverDatabases(fs::current_path()); // those that the run had no reason to open
    State end = ReadState(fs::current_path(), replacements);
    const std::string digest = DigestOf(fs::current_path());
    run("the second");
    if (digest != DigestOf(fs::current_path())) {
        errors[std::string(wrong) + "the second run afterwards changed something"] = "yes";
    }
    end.merge(errors);
    Write(endFile, end);
    return 0;
}

void WriteReplacements(const fs::path& work, const Replacements& replacements) {
    Write(work / "replacements", replacements);
}

} // namespace sweep
