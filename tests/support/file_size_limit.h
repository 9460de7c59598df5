// A disk that is full: while this lives, no file of the process can grow beyond the limit.
#pragma once

#include <csignal>

#include <sys/resource.h>

namespace updkrx::test {

class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        (void)std::signal(SIGXFSZ, handler_); // it was a handler before
    }

private:
    void (*handler_)(int);
    rlimit before_ = {};
};

} // namespace updkrx::test
