#include "server.h"

#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "common/startup.h"
#include "embedded_notes.h"
#include "platform.h"
#include "state.h"

extern "C" STATUS MainEntryPoint();

namespace sweep {
namespace {

namespace fs = std::filesystem;

constexpr const char* standingFolder = "/proc/self/cwd";
constexpr int64_t start = 179'000'000'000; // the moment of the virtual clock at which a run begins

/** Without what krxpatch prints on standard output. */
int Silently(const auto& work) {
    std::ostringstream lost;
    std::streambuf* shown = std::cout.rdbuf(lost.rdbuf());
    const int result = work();
    std::cout.rdbuf(shown);
    return result;
}

STATUS RunModule() {
    char message[512] = "";
    if (EmbSessionBegin("/proc/self/cwd/notes.ini", 0, message, sizeof message) != NOERROR) {
        throw std::runtime_error(message);
    }
    EmbClockSetVirtual(start);
    (void)EmbSetInUse("krx/krhelp.nsf", 1);
    (void)EmbSetInUse("krx/krency.nsf", 1);
    return MainEntryPoint();
}

int RunKrxpatch() {
    try {
        const fs::path module = krxpatch::platform::ExecutableFolder() / krxpatch::platform::moduleFile;
        // All copies share one program folder outside of them, which is only read: a check refuses that.
        return krxpatch::Run({.server = standingFolder, .module = module, .force = true, .output = {}});
    } catch (const krxpatch::Failure& failure) {
        std::cerr << failure.what() << '\n';
        return failure.Code();
    }
}

} // namespace

void PrepareServer(const fs::path& work) {
    const fs::path server = PreparedServer(work);
    (void)Silently([&] { return krxpatch::Sandbox({server, SWEEP_SAMPLES}); });
    fs::rename(server / "install", work / "install"); // only read: one for all copies
    const fs::path program = work / "install/program/V5.8.0.3050";
    fs::copy_file(program / "krvlog.ntf", server / "data/krx/krvlog.ntf");
    std::string config = ReadFile(program / "krxpatch.ini");
    const std::string last = "PredefinedDLPPolicy.dat";
    config.insert(config.find(last) + last.size(), ",krextra.dat");
    std::ofstream(program / "krxpatch.ini") << config;
    std::ofstream(program / "krextra.dat") << "no database\n";
    std::ofstream(server / "notes.ini") << "[Notes]\nDirectory=" << standingFolder
                                        << "/data\nVarnholtInstallPath=" << (work / "install").string()
                                        << "\nMailServer=CN=Mail01/O=Varnholt\n"
                                           "EmbeddedIDName=CN=Mail01/O=Varnholt\nKRX_ENABLE_KRENCY_LOG=1\n";
}

fs::path PreparedServer(const fs::path& work) {
    return work / "prepared";
}

void EnterServer(const fs::path& work, const std::string& behaviours, const fs::path& copy) {
    EnterCopy(PreparedServer(work), copy);
    std::ofstream("notes.ini", std::ios::app) << "EmbeddedBehaviour=" << behaviours << '\n';
}

void EnterCopy(const fs::path& server, const fs::path& copy) {
    fs::copy(server, copy, fs::copy_options::recursive);
    fs::current_path(copy);
}

int RunUpgrade(Runner runner) {
    return Silently([&] { return runner == Runner::module ? RunModule() : RunKrxpatch(); });
}

void ForgetRun() {
    EmbSessionEnd();
    updkrx::gMap.clear();
    updkrx::ObsoleteUNIDSet.clear();
    updkrx::DoubtfulUNIDMap.clear();
    updkrx::RetiredDocumentUNIDSet.clear();
}

int RunThisProgram(const std::vector<std::string>& arguments) {
    std::vector<const char*> texts = {"sweep"};
    for (const std::string& argument : arguments) {
        texts.push_back(argument.c_str());
    }
    texts.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        (void)execv("/proc/self/exe", const_cast<char* const*>(texts.data()));
        _exit(1);
    }
    int status = 0;
    (void)waitpid(child, &status, 0);
    return status;
}

} // namespace sweep
