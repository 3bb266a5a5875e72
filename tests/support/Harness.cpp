#include "Harness.h"

#include <csignal>
#include <cstdlib>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace lumenvale::testing {
namespace {

void setOrUnset(const char* name, const std::optional<std::string>& value) {
    if (value) {
        ::setenv(name, value->c_str(), 1);
    } else {
        ::unsetenv(name);
    }
}

} // namespace

ScopedEnv::ScopedEnv(const char* name, const std::optional<std::string>& value) : name_(name) {
    if (const char* old = std::getenv(name)) {
        old_ = old;
    }
    setOrUnset(name_, value);
}

ScopedEnv::~ScopedEnv() {
    setOrUnset(name_, old_);
}

ChildProcess::ChildProcess(std::vector<std::string> arguments,
                           const std::vector<std::string>& extraEnvironment) {
    std::vector<std::string> variables = extraEnvironment;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        variables.emplace_back(*variable);
    }
    std::vector<char*> argv;
    std::vector<char*> envp;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    for (std::string& variable : variables) {
        envp.push_back(variable.data());
    }
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    if (posix_spawnp(&pid_, argv[0], nullptr, nullptr, argv.data(), envp.data()) != 0) {
        pid_ = -1;
    }
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) {
        kill(SIGTERM);
    }
}

int ChildProcess::kill(int signal) {
    int status = 0;
    ::kill(pid_, signal);
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
}

} // namespace lumenvale::testing
