#include "walk.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
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

/** What the processes of one disturbed run leave. */
struct Results {
    Report report;
    Outcome outcome;
};

class Walker {
public:
    Walker(const Reference& reference, const std::vector<Disturbance>& disturbances, size_t jobs, fs::path work,
           Shared<Results>& results)
        : reference_(reference), disturbances_(disturbances), jobs_(jobs), work_(std::move(work)), results_(results) {
        for (size_t number = 0; number < disturbances.size(); ++number) {
            byCheckpoint_[reference.CheckpointOf(disturbances[number])].push_back(number);
        }
    }

    /** Ends this process, and those that are started on the way. */
    [[noreturn]] void Run() {
        const fs::path server = work_ / (std::to_string(getpid()) + ".walk");
        EnterServer(work_, reference_.behaviours, server);
        const size_t filesBefore = OpenFiles();
        StartEvents(reference_.runner, [this](Kind kind, const char* operation) {
            if (disturbed_ == nullptr && IsCheckpoint(kind, operation)) {
                DisturbFromHere();
            }
        });
        const int result = RunUpgrade(reference_.runner);
        StopEvents();
        if (disturbed_ != nullptr) {
            *report_ = MakeReport(*disturbed_, filesBefore);
            report_->result = result;
        } else {
            Await(0);
            fs::current_path(work_);
            fs::remove_all(server);
        }
        _exit(0);
    }

private:
    void DisturbFromHere() noexcept { // the module below would go on after an exception
        for (const size_t number : byCheckpoint_[checkpoint_++]) {
            Await(jobs_ - 1);
            const pid_t judge = fork();
            if (judge == 0 && StartDisturbed(number)) {
                return; // into the run, which goes on
            }
            if (judge == 0) {
                _exit(0);
            }
            ++running_;
        }
        Await(0); // they copy the folder as it is now
    }

    /** Waits until no more judges are at work than this. */
    void Await(size_t most) {
        for (; running_ > most; --running_) {
            int status = 0;
            if (wait(&status) < 0 || status != 0) {
                std::cerr << "a judge ended with status " << status << std::endl;
                std::abort();
            }
        }
    }

    /** In the judge's process; true in that of the disturbed run. */
    bool StartDisturbed(size_t number) {
        const Disturbance& disturbance = disturbances_[number];
        const fs::path copy = work_ / std::to_string(getpid());
        EnterCopy(fs::current_path(), copy);
        const pid_t run = fork();
        if (run == 0) {
            (void)alarm(patience);
            disturbed_ = &disturbance;
            report_ = &results_[number].report;
            Arm(disturbance);
            return true;
        }
        int status = 0;
        (void)waitpid(run, &status, 0);
        if (disturbance.next != 0) { // another death, unless the run comes to its end before
            (void)RunThisProgram({"--die", NameOf(reference_.runner), std::to_string(disturbance.kind),
                                  std::to_string(disturbance.next)});
        }
        Judge(reference_, disturbance, status, results_[number].report, work_, results_[number].outcome);
        fs::current_path(work_);
        fs::remove_all(copy);
        return false;
    }

    const Reference& reference_;
    const std::vector<Disturbance>& disturbances_;
    size_t jobs_;
    fs::path work_;
    Shared<Results>& results_;
    std::map<size_t, std::vector<size_t>> byCheckpoint_;
    size_t checkpoint_ = 0;
    size_t running_ = 0;
    const Disturbance* disturbed_ = nullptr; // in the process of a disturbed run, and where it reports to
    Report* report_ = nullptr;
};

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
                (void)alarm(patience);
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
    Shared<Results> results(disturbances.size() + 1);
    std::cout.flush();
    const pid_t walker = fork();
    if (walker == 0) {
        Walker(reference, disturbances, jobs, work, results).Run();
    }
    int status = 0;
    (void)waitpid(walker, &status, 0);
    for (size_t number = 0; number < disturbances.size(); ++number) {
        if (status != 0 || !results[number].outcome.judged) {
            throw std::runtime_error("the walk ended with status " + std::to_string(status));
        }
        report(disturbances[number], results[number].outcome);
    }
}

} // namespace sweep
