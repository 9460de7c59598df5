// How much of the time of signing a database is the module's own, and how much the platform's.
//
// The linker leads each of the module's calls of the Notes API through a function here, and a search's step through
// another one, so that every moment between the two ends of a run is counted for one side or the other; what the
// clock takes is counted as the module's. The goal is a share of at most 10 %.
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>

#include "embedded_notes.h"
#include "maintenance/signing.h"
#include "support/temporary_folder.h"

namespace {

constexpr int noteCount = 10'000;

enum Side { module, platform };

using Clock = std::chrono::steady_clock;

struct Account {
    Side side = module;
    Clock::time_point since;
    Clock::duration spent[2] = {};
    DWORD calls = 0;
} account;

/** Counts the time for a side until the end of the scope. */
class OnSide {
public:
    explicit OnSide(Side side) : before_(account.side) { TurnTo(side); }
    OnSide(const OnSide&) = delete;
    OnSide& operator=(const OnSide&) = delete;
    ~OnSide() { TurnTo(before_); }

private:
    static void TurnTo(Side side) {
        const Clock::time_point now = Clock::now();
        account.spent[account.side] += now - account.since;
        account.since = now;
        account.side = side;
    }

    Side before_;
};

template<class Operation, class... Arguments>
auto CallPlatform(Operation operation, Arguments... arguments) {
    const OnSide side(platform);
    ++account.calls;
    return operation(arguments...);
}

/** A search's step and its parameter. */
struct Step {
    NSFSEARCHPROC step;
    void* parameter;
};

STATUS LNCALLBACK CallModule(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary) {
    const OnSide side(module);
    const Step& step = *static_cast<Step*>(parameter);
    return step.step(step.parameter, match, summary);
}

} // namespace

// What the linker puts in the place of the module's calls, see the list of operations beside this file's target.
#define PLATFORM_CALL(Result, operation, parameters, arguments)                                                        \
    extern "C" Result __real_##operation parameters;                                                                   \
    extern "C" Result __wrap_##operation parameters;                                                                   \
    Result __wrap_##operation parameters {                                                                             \
        return CallPlatform arguments;                                                                                 \
    }

PLATFORM_CALL(STATUS, NSFDbOpen, (const char* path, DBHANDLE* database), (__real_NSFDbOpen, path, database))
PLATFORM_CALL(STATUS, NSFDbClose, (DBHANDLE database), (__real_NSFDbClose, database))
PLATFORM_CALL(STATUS, NSFDbReplicaInfoGet, (DBHANDLE database, DBREPLICAINFO* info),
              (__real_NSFDbReplicaInfoGet, database, info))
PLATFORM_CALL(STATUS, NSFDbReplicaInfoSet, (DBHANDLE database, DBREPLICAINFO* info),
              (__real_NSFDbReplicaInfoSet, database, info))
PLATFORM_CALL(STATUS, NSFNoteOpen, (DBHANDLE database, NOTEID id, WORD flags, NOTEHANDLE* note),
              (__real_NSFNoteOpen, database, id, flags, note))
PLATFORM_CALL(STATUS, NSFNoteClose, (NOTEHANDLE note), (__real_NSFNoteClose, note))
PLATFORM_CALL(STATUS, NSFNoteUpdate, (NOTEHANDLE note, WORD flags), (__real_NSFNoteUpdate, note, flags))
PLATFORM_CALL(STATUS, NSFNoteSign, (NOTEHANDLE note), (__real_NSFNoteSign, note))
PLATFORM_CALL(STATUS, NSFNoteContract, (NOTEHANDLE note), (__real_NSFNoteContract, note))
PLATFORM_CALL(void, NSFNoteGetInfo, (NOTEHANDLE note, WORD member, void* value),
              (__real_NSFNoteGetInfo, note, member, value))
PLATFORM_CALL(LONG, OSGetEnvironmentLong, (const char* name), (__real_OSGetEnvironmentLong, name))
PLATFORM_CALL(WORD, OSGetDataDirectory, (char* buffer), (__real_OSGetDataDirectory, buffer))

extern "C" STATUS __real_NSFSearch(DBHANDLE, FORMULAHANDLE, char*, WORD, WORD, TIMEDATE*, NSFSEARCHPROC, void*,
                                   TIMEDATE*);
extern "C" STATUS __wrap_NSFSearch(DBHANDLE, FORMULAHANDLE, char*, WORD, WORD, TIMEDATE*, NSFSEARCHPROC, void*,
                                   TIMEDATE*);
STATUS __wrap_NSFSearch(DBHANDLE database, FORMULAHANDLE formula, char* view, WORD flags, WORD classMask,
                        TIMEDATE* since, NSFSEARCHPROC step, void* parameter, TIMEDATE* until) {
    Step inModule = {step, parameter};
    return CallPlatform(__real_NSFSearch, database, formula, view, flags, classMask, since, CallModule, &inModule,
                        until);
}

namespace {

void Require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

/** Design notes of four classes, every other one of which is signed expanded, with a few items each. */
std::string DesignNotes() {
    constexpr const char* classes[] = {"form", "view", "sharedfield", "filter"};
    std::string dxl = "<database xmlns='http://www.lotus.com/dxl' title='bench'>";
    for (int i = 0; i < noteCount; ++i) {
        dxl += std::string("<note class='") + classes[i % 4] + "'>";
        dxl += "<item name='$TITLE'><text>Element " + std::to_string(i) + "</text></item>";
        for (int item = 0; item < 6; ++item) {
            dxl += "<item name='Item" + std::to_string(item) + "'><text>some text of a design element</text></item>";
        }
        dxl += "</note>";
    }
    return dxl + "</database>";
}

/** A server folder with the database, and a session on it with the module's log switched on. */
class Server {
public:
    Server() {
        std::filesystem::create_directories(folder_.Path() / "data/krx");
        std::filesystem::create_directories(folder_.Path() / "data/krxtemp");
        const std::string ini =
            updkrx::test::WriteFile(folder_.Path() / "notes.ini", "Directory=data\nKRX_ENABLE_KRENCY_LOG=1\n");
        dxl_ = updkrx::test::WriteFile(folder_.Path() / "design.dxl", DesignNotes());
        char message[512] = "";
        Require(EmbSessionBegin(ini.c_str(), 0, message, sizeof message) == NOERROR, message);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() { EmbSessionEnd(); }

    void MakeDatabase() const {
        char message[512] = "";
        const std::string file = folder_.Path() / "data/krx/design.nsf";
        Require(EmbDxlImport(file.c_str(), dxl_.c_str(), EMB_DXL_REPLACE, message, sizeof message) == NOERROR, message);
    }

private:
    updkrx::test::TemporaryFolder folder_;
    std::string dxl_;
};

void RequireSigned() {
    EMBSIGNATURES counts = {};
    Require(EmbSignatures("krx/design.nsf", NOTE_CLASS_ALLNONDATA, &counts, nullptr, 0) == NOERROR &&
                counts.signedNotes == noteCount && counts.changedNotes == 0,
            "not every note is signed");
}

void SignDatabase(benchmark::State& state) {
    const Server server;
    const updkrx::PatchRunContext context;
    Clock::duration spent[2] = {};
    for (auto _ : state) {
        server.MakeDatabase();
        EmbResetCalls();
        account = {};
        account.since = Clock::now();
        const int32_t result = updkrx::SignAndHideDatabase("design.nsf", context);
        account.spent[module] += Clock::now() - account.since;
        Require(result == 0, "the database was not signed");
        Require(account.calls == EmbCallCount(nullptr), "a call of the platform was not counted");
        RequireSigned();
        spent[module] += account.spent[module];
        spent[platform] += account.spent[platform];
        state.SetIterationTime(std::chrono::duration<double>(account.spent[module] + account.spent[platform]).count());
    }
    const double seconds[] = {std::chrono::duration<double>(spent[module]).count(),
                              std::chrono::duration<double>(spent[platform]).count()};
    const auto rounds = static_cast<double>(state.iterations());
    state.counters["module_ms"] = seconds[module] * 1e3 / rounds;
    state.counters["platform_ms"] = seconds[platform] * 1e3 / rounds;
    state.counters["module_share"] = seconds[module] / (seconds[module] + seconds[platform]);
}

BENCHMARK(SignDatabase)->Iterations(7)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    try {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            return 2;
        }
        benchmark::RunSpecifiedBenchmarks();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "signing_bench: %s\n", error.what());
        return 1;
    }
}
