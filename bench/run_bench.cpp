// The whole run on a server with many configuration documents: total time, the module's own share of it, growth per
// tenfold, peak memory; with the log on and off, pauses skipped. Each run has a process of its own, so that its peak is
// its own. Goals: growth at most 11, peak below 150 MiB at 100,000 documents.
//
// usage: run_bench KRXPATCH
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>

#include "embedded_notes.h"
#include "patch/patch_run.h"
#include "platform_time.h"

namespace {

namespace fs = std::filesystem;

void Require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

class Session {
public:
    explicit Session(const fs::path& server) {
        char message[512] = "";
        Require(EmbSessionBegin((server / "notes.ini").c_str(), 0, message, sizeof message) == NOERROR, message);
        EmbClockSetVirtual(EmbClockNow());
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { EmbSessionEnd(); }
};

void SetText(NOTEHANDLE note, const char* item, const std::string& text) {
    Require(NSFItemSetText(note, item, text.data(), static_cast<WORD>(text.size())) == NOERROR, item);
}

/** Of every ten documents four are expressions, two registered servers, two policies with a default rule, and two DLP
 *  templates with rules. */
void AddDocument(DBHANDLE database, int number) {
    static constexpr const char* forms[] = {"Expression", "Expression", "Expression", "Expression", "Register",
                                            "Register",   "Policy",     "Policy",     "template",   "template"};
    const char* form = forms[number % 10];
    NOTEHANDLE note = NULLHANDLE;
    Require(NSFNoteCreate(database, &note) == NOERROR, "NSFNoteCreate");
    SetText(note, "Form", form);
    SetText(note, "name", "Document " + std::to_string(number));
    SetText(note, "Comment", std::string(200, 'x'));
    if (std::strcmp(form, "Expression") == 0) {
        SetText(note, "Expression", number % 4 == 0 ? "this is not a joke" : "expression " + std::to_string(number));
    }
    if (std::strcmp(form, "Policy") == 0) {
        SetText(note, "DefaultRule", "1");
    }
    for (int rule = 0; std::strcmp(form, "template") == 0 && rule < 10; ++rule) {
        const std::string text = std::to_string(rule) + " of E4DFCC2F04A84EA748258E680021A7D6 " + std::string(60, 'y');
        Require(NSFItemAppendTextList(note, "matchRule", text.data(), static_cast<WORD>(text.size()), 1) == NOERROR,
                "matchRule");
    }
    Require(NSFNoteUpdate(note, 0) == NOERROR, "NSFNoteUpdate");
    (void)NSFNoteClose(note); // always succeeds
}

void Populate(const fs::path& server, int documents) {
    const Session session(server);
    DBHANDLE database = NULLHANDLE;
    Require(NSFDbOpen("krx/krconf.nsf", &database) == NOERROR, "krconf.nsf");
    for (int number = 0; number < documents; ++number) {
        AddDocument(database, number);
    }
    Require(NSFDbClose(database) == NOERROR, "NSFDbClose");
}

double PeakMiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            return std::atof(line.c_str() + std::strlen("VmHWM:")) / 1024;
        }
    }
    return 0;
}

double Milliseconds(std::chrono::steady_clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

void Run(const fs::path& server, int documents, bool log, int result) {
    const Session session(server);
    Require(EmbEnvironmentSet("KRX_ENABLE_KRENCY_LOG", log ? "1" : "0") == NOERROR, "environment");
    platform_time::Start();
    updkrx::RunPatch();
    const platform_time::Spent spent = platform_time::TimeSpent();
    const double total = Milliseconds(spent.own + spent.platform);
    std::printf("%9d  %-3s  %10.0f  %9.1f %%  %9.1f", documents, log ? "on" : "off", total,
                100 * Milliseconds(spent.own) / total, PeakMiB());
    std::fflush(stdout);
    Require(write(result, &total, sizeof total) == sizeof total, "result");
}

/** Runs the body in a process of its own. */
void InChild(const std::function<void()>& body) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        try {
            body();
            std::fflush(stdout);
            _exit(0);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "run_bench: %s\n", error.what());
            _exit(1);
        }
    }
    int status = 0;
    Require(waitpid(child, &status, 0) == child && status == 0, "a child process failed");
}

double Measure(const std::string& krxpatch, int documents, bool log) {
    char name[] = "/tmp/run_bench.XXXXXX";
    Require(mkdtemp(name) != nullptr, "mkdtemp");
    const fs::path server = name;
    Require(std::system((krxpatch + " sandbox " + server.string() + " >/dev/null").c_str()) == 0, "sandbox");
    int result[2];
    Require(pipe(result) == 0, "pipe");
    InChild([&] { Populate(server, documents); });
    InChild([&] { Run(server, documents, log, result[1]); });
    double total = 0;
    Require(read(result[0], &total, sizeof total) == sizeof total, "result");
    close(result[0]);
    close(result[1]);
    fs::remove_all(server);
    return total;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: run_bench KRXPATCH\n");
        return 2;
    }
    try {
        std::printf("documents  log   total (ms)   module's   peak (MiB)   growth\n");
        for (const bool log : {false, true}) {
            double before = 0;
            for (const int documents : {1'000, 10'000, 100'000}) {
                const double total = Measure(argv[1], documents, log);
                if (before > 0) {
                    std::printf("   %8.1f", total / before);
                }
                std::printf("\n");
                before = total;
            }
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "run_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
