#pragma once

#include <csignal>
#include <sys/resource.h>

namespace quilla::test {

/// While it lives, no file of this process grows or is written beyond a size: the system's own refusal, as on
/// a full disk, after a first part of the write has succeeded.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t limit) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit now{limit, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &now);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    void (*handler_)(int);
    rlimit before_{};
};

} // namespace quilla::test
