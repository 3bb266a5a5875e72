#pragma once

// Test support for running things around the code under test: helper programs, the
// environment, waiting, and catching the failure a call is expected to end in.

#include "Probe.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace lumenvale::testing {

// A fixture whose tests share the movies its suite makes once: `folder_` exists from
// the start of the suite's SetUpTestSuite (which calls this one first) to its end.
template <typename Suite, typename Base = ::testing::Test> class SharedFolderTest : public Base {
  protected:
    static void SetUpTestSuite() { folder_ = std::make_unique<TemporaryFolder>(); }
    static void TearDownTestSuite() { folder_.reset(); }
    static inline std::unique_ptr<TemporaryFolder> folder_;
};

// What `action` threw as an `Error`, or nothing when it returned; other exceptions
// pass through.
template <typename Error, typename Action> std::optional<Error> thrown(Action&& action) {
    try {
        action();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

// The message of the `Error` that `action` threw; empty when it returned.
template <typename Error, typename Action> std::string thrownMessage(Action&& action) {
    const std::optional<Error> error = thrown<Error>(action);
    return error ? error->what() : "";
}

// True once `condition` holds, looking every 10 ms for at most `timeout`.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// Sets an environment variable (or unsets it, for nothing) for one scope.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const std::optional<std::string>& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

  private:
    const char* name_;
    std::optional<std::string> old_;
};

// A program (looked up in PATH) run for the life of the object with this process's
// environment plus `extraEnvironment` ("NAME=value"); stopped with SIGTERM at the end.
class ChildProcess {
  public:
    explicit ChildProcess(std::vector<std::string> arguments,
                          const std::vector<std::string>& extraEnvironment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // False when it could not be started.
    bool started() const { return pid_ > 0; }
    // Sends `signal` and returns the wait status of the ended process.
    int kill(int signal);

  private:
    pid_t pid_ = -1;
};

} // namespace lumenvale::testing
