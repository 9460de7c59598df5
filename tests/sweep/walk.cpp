#include "walk.h"

#include <iostream>
#include <stdexcept>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "server.h"

namespace sweep {
namespace {

namespace fs = std::filesystem;

constexpr unsigned patience = 60; // seconds until a run counts as hanging

/** Zeroed records that this process and those that it starts share. */
template<class Record>
class Shared {
public:
    explicit Shared(size_t count) : size_(count * sizeof(Record)) {
        void* memory = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::runtime_error("no memory to share");
        }
        records_ = static_cast<Record*>(memory);
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    ~Shared() { (void)munmap(records_, size_); }

    Record& operator[](size_t i) { return records_[i]; }

private:
    size_t size_;
    Record* records_;
};

/** In a process of its own, which stands in its server folder. */
[[noreturn]] void RunDisturbed(Runner runner, const Disturbance& disturbance, Report& report) {
    (void)alarm(patience);
    const size_t filesBefore = OpenFiles();
    Arm(disturbance);
    StartEvents(runner, [](Kind, const char*) {});
    const int result = RunUpgrade(runner);
    StopEvents();
    report = MakeReport(disturbance, filesBefore);
    report.result = result;
    _exit(0);
}

void JudgeDisturbed(const Reference& reference, const Disturbance& disturbance, const fs::path& work,
                    Outcome& outcome) {
    const fs::path copy = work / std::to_string(getpid());
    EnterServer(work, reference.behaviours, copy);
    Shared<Report> report(1);
    const pid_t run = fork();
    if (run == 0) {
        RunDisturbed(reference.runner, disturbance, report[0]);
    }
    int status = 0;
    (void)waitpid(run, &status, 0);
    if (disturbance.next != 0) { // another death, unless the run comes to its end before
        (void)RunThisProgram(
            {"--die", NameOf(reference.runner), std::to_string(disturbance.kind), std::to_string(disturbance.next)});
    }
    Judge(reference, disturbance, status, report[0], work, outcome);
    fs::current_path(work);
    fs::remove_all(copy);
}

} // namespace

void ForEachInProcesses(size_t count, size_t jobs, const std::function<void(size_t number, Outcome& outcome)>& judge,
                        const std::function<void(size_t number, const Outcome& outcome)>& report) {
    Shared<Outcome> outcomes(count + 1);
    std::cout.flush();
    std::vector<pid_t> workers;
    for (size_t worker = 0; worker < jobs; ++worker) {
        workers.push_back(fork());
        if (workers.back() == 0) {
            for (size_t number = worker; number < count; number += jobs) {
                (void)alarm(5 * patience); // for the run, and for those that follow it up
                judge(number, outcomes[number]);
            }
            _exit(0);
        }
    }
    for (const pid_t worker : workers) {
        (void)waitpid(worker, nullptr, 0); // whether it came to its end shows below
    }
    for (size_t number = 0; number < count; ++number) {
        if (!outcomes[number].judged) {
            throw std::runtime_error("number " + std::to_string(number) + " did not come to its end");
        }
        report(number, outcomes[number]);
    }
}

void Walk(const Reference& reference, const std::vector<Disturbance>& disturbances, size_t jobs, const fs::path& work,
          const std::function<void(const Disturbance& disturbance, const Outcome& outcome)>& report) {
    const auto judge = [&](size_t number, Outcome& outcome) {
        JudgeDisturbed(reference, disturbances[number], work, outcome);
    };
    ForEachInProcesses(disturbances.size(), jobs, judge,
                       [&](size_t number, const Outcome& outcome) { report(disturbances[number], outcome); });
}

} // namespace sweep
