// Disturbs runs of the upgrade one by one, at every place where a run can be disturbed, and judges what each leaves.
// Prints the exceptions that were needed and a table of the sweeps. Exits with 1 when a run violated the oracle.
#include <algorithm>
#include <iostream>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <string_view>
#include <thread>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "embedded_notes.h"
#include "kinds.h"
#include "server.h"
#include "text_table.h"
#include "walk.h"

namespace sweep {
namespace {

namespace fs = std::filesystem;

struct Options {
    size_t every = 1; // N-th event
    size_t at = 0;    // this event only; 0: no such restriction
    std::string only; // this sweep
    size_t jobs = std::max(1U, std::thread::hardware_concurrency());

    [[nodiscard]] bool Takes(size_t n, size_t step) const { return at == 0 ? n % step == 0 : n == at; }
};

constexpr STATUS statuses[] = {ERR_NOT_FOUND, ERR_NOACCESS, ERR_DBINUSE, ERR_MEMORY, EMB_ERR_DISK, EMB_ERR_DAMAGED};

// ---- The sweeps.

using Disturbances = std::vector<Disturbance>;

/** A run for each of these effects on each event; of a part of the events only one, in turn. */
template<class Effects>
Disturbances ForEach(const Reference& reference, Kind kind, const Options& options, Effects effects) {
    Disturbances disturbances;
    const auto& events = reference.events[kind];
    for (size_t n = 1; n <= events.size(); ++n) {
        if (!options.Takes(n, options.every)) {
            continue;
        }
        Disturbances all = effects(std::string_view(events[n - 1].operation));
        for (size_t i = 0; i < all.size(); ++i) {
            if (options.every == 1 || i == n / options.every % all.size()) {
                all[i].kind = kind;
                all[i].n = n;
                disturbances.push_back(all[i]);
            }
        }
    }
    return disturbances;
}

constexpr std::string_view cannotFail[] = {"NSFNoteGetInfo", "NSFNoteSetInfo", "AddInLogMessageText", "AddInIdleDelay"};

/** Every call with every status: once, from then on for calls of the same operation, and from then on for all calls. */
Disturbances FailingCalls(std::string_view operation) {
    Disturbances all;
    for (const STATUS status : statuses) {
        for (const Effect effect : {Effect::fails, Effect::operationFails, Effect::everythingFails}) {
            if (std::ranges::find(cannotFail, operation) == std::end(cannotFail)) {
                all.push_back({call, 0, effect, status});
            }
        }
    }
    return all;
}

Disturbances FailingAllocations(std::string_view /*operation*/) {
    return {{allocation, 0, Effect::fails}, {allocation, 0, Effect::everythingFails}};
}

/** A file operation fails, does half of its work, or is the first one that finds the disk full, the log's among
 *  them. */
Disturbances FailingFiles(std::string_view operation) {
    Disturbances all = {{file, 0, Effect::fails}, {file, 0, Effect::everythingFails}};
    if (operation == "fread" || operation == "fwrite" || operation == "fprintf to the log") {
        all.push_back({file, 0, Effect::doesHalf});
    }
    return all;
}

Disturbances Deaths(std::string_view /*operation*/) {
    return {{call, 0, Effect::diesBefore}, {call, 0, Effect::diesAfter}};
}

/** Two runs in a row that die, each anywhere. */
Disturbances DeathsInPairs(const Reference& reference, const Options& options) {
    constexpr size_t pairs = 2000;
    std::mt19937_64 random(20261123);
    Disturbances all;
    for (size_t pair = 1; pair <= pairs; ++pair) {
        // Making and putting back krxpatch's copy are file operations, of which there are few.
        const Kind kind = pair % 2 == 0 ? file : call;
        const size_t events = reference.events[kind].size();
        const size_t first = 1 + random() % events;
        const size_t next = 1 + random() % (2 * events); // putting the copy back comes before the run
        if (options.Takes(pair, options.every * options.every)) {
            all.push_back({kind, first, Effect::diesBefore, NOERROR, next});
        }
    }
    return all;
}

/** One failing call on a server of a kind, each of them drawn; as they are drawn in turn, the kind changes with every
 *  one. */
struct Draw {
    ServerKind kind;
    size_t place; // of the call, to be taken modulo the calls of its run
    STATUS status;
};

std::vector<Draw> Draws(const Options& options) {
    constexpr size_t draws = 20000;
    std::mt19937_64 random(20261124);
    std::vector<Draw> all;
    for (size_t n = 1; n <= draws; ++n) {
        Draw draw = {DrawKind(random), random(), statuses[random() % std::size(statuses)]};
        if (options.Takes(n, options.every * options.every)) {
            all.push_back(std::move(draw));
        }
    }
    return all;
}

/** The call that a draw makes fail in this run. */
Disturbance DisturbanceOf(const Draw& draw, const Reference& reference) {
    const auto& calls = reference.events[call];
    size_t n = draw.place % calls.size() + 1;
    while (std::ranges::find(cannotFail, std::string_view(calls[n - 1].operation)) != std::end(cannotFail)) {
        n = n % calls.size() + 1;
    }
    return {call, n, Effect::fails, draw.status};
}

// ---- Their results.

struct Row {
    std::string name;
    size_t runs = 0;
    size_t states = 0;
    size_t violations = 0;
};

class Results {
public:
    void Begin(const std::string& name) { rows_.push_back({name}); }

    void Add(const Reference& reference, const Disturbance& disturbance, const Outcome& outcome) {
        Count(outcome);
        AddViolations(outcome, reference.Describe(disturbance) + " (" + reference.StepOf(disturbance) + ")",
                      "--only '" + rows_.back().name + "' --at " + std::to_string(disturbance.n) +
                          (reference.behaviours.empty() ? "" : " on a server with " + reference.behaviours));
    }

    void Add(const ServerKind& kind, const Outcome& outcome) {
        Count(outcome);
        AddViolations(outcome, outcome.what, kind);
    }

    void Print() {
        Table exceptions = {{"let pass", "runs", "what happens", "in the step", "facet", "reason"}};
        for (size_t i = 0; i < Exceptions().size(); ++i) {
            const Exception& row = Exceptions()[i];
            const auto text = [](const char* pattern) { return pattern == nullptr ? "*" : pattern; };
            exceptions.push_back({std::string(1, static_cast<char>(row.clause)), std::to_string(needed_[i]),
                                  text(row.disturbed), text(row.step), text(row.facet), row.reason});
        }
        Table sweeps = {{"sweep", "disturbed runs", "new states", "violations"}};
        rows_.push_back(all_);
        for (const Row& row : rows_) {
            sweeps.push_back(
                {row.name, std::to_string(row.runs), std::to_string(row.states), std::to_string(row.violations)});
        }
        std::cout << krxpatch::FormatTable(exceptions) << '\n';
        for (const auto& [what, violation] : violations_) {
            std::cout << "violated in " << violation.runs << " runs: " << what << " [" << violation.example << "]\n";
        }
        std::cout << krxpatch::FormatTable(sweeps);
    }

    [[nodiscard]] bool Any() const { return all_.runs != 0; }
    [[nodiscard]] bool Clean() const { return all_.violations == 0; }

private:
    void AddViolations(const Outcome& outcome, const std::string& disturbed, const std::string& example) {
        static const std::regex unid("[0-9A-F]{32}");
        std::istringstream lines(outcome.text);
        for (std::string line; std::getline(lines, line);) {
            Violation& violation = violations_[disturbed + " -> " + std::regex_replace(line, unid, "UNID")];
            if (violation.runs++ == 0) {
                violation.example = example;
            }
        }
    }

    void Count(const Outcome& outcome) {
        for (Row* row : {&rows_.back(), &all_}) {
            ++row->runs;
            row->states += outcome.newState;
            row->violations += outcome.violations != 0;
        }
        for (size_t i = 0; i < Exceptions().size(); ++i) {
            needed_[i] += outcome.exceptions >> i & 1;
        }
    }

    using Table = std::vector<std::vector<std::string>>;

    struct Violation {
        size_t runs = 0;
        std::string example;
    };

    std::vector<Row> rows_;
    Row all_ = {"all"};
    std::map<size_t, size_t> needed_; // exceptions
    std::map<std::string, Violation> violations_;
};

/** A folder in memory, for as long as the sweeps take: on a disk they would take several times as long. */
struct WorkFolder {
    const fs::path path = fs::path("/dev/shm") / ("sweep-" + std::to_string(getpid()));

    WorkFolder() { fs::create_directories(path / "ends"); }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    ~WorkFolder() {
        std::error_code ignored;
        fs::current_path("/", ignored);
        fs::remove_all(path, ignored);
    }
};

int Sweep(const Options& options) {
    const WorkFolder folder;
    const fs::path& work = folder.path;
    PrepareServer(work);
    const Reference module = Record(Runner::module, work);
    const Reference krxpatch = Record(Runner::krxpatch, work);
    WriteReplacements(work, module.replacements);
    std::cout << "one run: " << module.events[0].size() << " calls, " << module.events[1].size() << " allocations, "
              << module.events[2].size() << " file operations; krxpatch: " << krxpatch.events[0].size() << " calls, "
              << krxpatch.events[2].size() << " file operations\n\n";

    Results results;
    std::string names;
    const auto begins = [&](const char* name, size_t runs) {
        names += (names.empty() ? "" : ", ") + std::string(name);
        if (!options.only.empty() && options.only != name) {
            return false;
        }
        std::cerr << name << ": " << runs << " runs\n"; // the longest takes an hour
        results.Begin(name);
        return true;
    };
    const auto walk = [&](const Reference& reference, const Disturbances& disturbances) {
        Walk(reference, disturbances, options.jobs, work,
             [&](const auto& disturbance, const auto& outcome) { results.Add(reference, disturbance, outcome); });
    };
    const auto sweep = [&](const char* name, const Reference& reference, const Disturbances& disturbances) {
        if (begins(name, disturbances.size())) {
            walk(reference, disturbances);
        }
    };
    const auto sweepKinds = [&](const char* name, std::vector<ServerKind> all) {
        std::vector<ServerKind> kinds;
        for (size_t n = 1; n <= all.size(); ++n) {
            if (options.Takes(n, options.every)) {
                kinds.push_back(std::move(all[n - 1]));
            }
        }
        if (begins(name, kinds.size())) {
            WalkKinds(module, kinds, options.jobs, work,
                      [&](const auto& kind, const auto& outcome) { results.Add(kind, outcome); });
        }
    };
    sweepKinds("behaviours of documents", KindsOfDocuments());
    sweepKinds("other behaviours in pairs", PairsOfKinds());
    if (const std::vector<Draw> draws = Draws(options); begins("behaviours and a failing call", draws.size())) {
        const auto disturb = [&](size_t number, Outcome& outcome) {
            const Reference reference = RecordUnder(module, draws[number].kind, work);
            Walk(reference, {DisturbanceOf(draws[number], reference)}, 1, work,
                 [&](const Disturbance& disturbance, const Outcome& judged) {
                     outcome = judged;
                     Name(outcome, reference.Describe(disturbance) + " (" + reference.StepOf(disturbance) + ")");
                 });
        };
        ForEachInProcesses(draws.size(), options.jobs, disturb,
                           [&](size_t number, const Outcome& outcome) { results.Add(draws[number].kind, outcome); });
    }
    if (const std::vector<ServerKind> kinds = SingleKinds(); begins("dies under each behaviour", kinds.size())) {
        Options sparse = options; // two dozen times the two sweeps that they are of
        sparse.every *= options.every == 1 ? 1 : options.every * options.every;
        for (const ServerKind& kind : kinds) {
            const Reference reference = RecordUnder(module, kind, work);
            walk(reference, ForEach(reference, call, sparse, Deaths));
            walk(reference, ForEach(reference, file, sparse, Deaths));
        }
    }
    sweep("calls fail", module, ForEach(module, call, options, FailingCalls));
    sweep("allocations fail", module, ForEach(module, allocation, options, FailingAllocations));
    sweep("file operations fail", module, ForEach(module, file, options, FailingFiles));
    sweep("dies at calls", module, ForEach(module, call, options, Deaths));
    sweep("dies at file operations", module, ForEach(module, file, options, Deaths));
    Options costly = options; // a run of krxpatch takes twice the time of one of the module
    costly.every *= options.every == 1 ? 1 : 2;
    sweep("krxpatch dies at calls", krxpatch, ForEach(krxpatch, call, costly, Deaths));
    sweep("krxpatch dies at file operations", krxpatch, ForEach(krxpatch, file, options, Deaths));
    sweep("krxpatch dies twice", krxpatch, DeathsInPairs(krxpatch, options));
    if (!results.Any()) {
        throw std::runtime_error("no place to disturb: there are the sweeps " + names + ", and --at counts within one");
    }
    results.Print();
    return results.Clean() ? 0 : 1;
}

/** For RunThisProgram: a run that dies at an event of a kind, unless it comes to its end before. */
int Die(Runner runner, size_t kind, size_t n) {
    Arm({static_cast<Kind>(kind), n, Effect::diesBefore});
    StartEvents(runner, [](Kind, const char*) {});
    return RunUpgrade(runner);
}

int Main(int count, char** arguments) {
    const auto runner = [&] {
        return arguments[2] == std::string(NameOf(Runner::module)) ? Runner::module : Runner::krxpatch;
    };
    if (count == 4 && arguments[1] == std::string("--follow-up")) {
        return FollowUp(runner(), arguments[3]);
    }
    if (count == 5 && arguments[1] == std::string("--die")) {
        return Die(runner(), std::stoul(arguments[3]), std::stoul(arguments[4]));
    }
    Options options;
    CLI::App app(
        "Disturbs runs of the upgrade one by one and judges what each leaves. Prints what was let pass and why, and a\n"
        "table of the sweeps; exits with 1 when a run was not let pass.\n"
        "A place is the N-th call, allocation or file operation of a run.");
    app.add_option("--every", options.every,
                   "disturb every N-th place only, each in one way (calls of krxpatch, which take longer: every 2N-th)")
        ->check(CLI::Range(size_t{1}, size_t{1'000'000}));
    app.add_option("--at", options.at, "disturb this place only");
    app.add_option("--only", options.only, "this sweep only, as the table names it");
    app.add_option("--jobs", options.jobs, "disturbed runs at a time")->check(CLI::PositiveNumber);
    CLI11_PARSE(app, count, arguments);
    return Sweep(options);
}

} // namespace
} // namespace sweep

int main(int count, char** arguments) {
    try {
        return sweep::Main(count, arguments);
    } catch (const std::exception& error) {
        std::cerr << "sweep: " << error.what() << '\n';
        return 2;
    }
}
