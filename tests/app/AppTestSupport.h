#pragma once

// What the application areas' tests share: the process environment changed for one
// scope, and input on the session's X server as a user gives it.

#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <map>
#include <optional>
#include <string>

namespace lumenvale::testing {

// Sets and unsets environment variables for one scope. Each variable touched gets its
// value from before back at the end, also when a test stops at a failed assertion, so
// no test leaves the run's DISPLAY, APP_STORE or sound server changed for the next.
class ScopedEnvironment {
  public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved_) {
            if (value) {
                qputenv(name.c_str(), *value);
            } else {
                qunsetenv(name.c_str());
            }
        }
    }

    void set(const char* name, const QByteArray& value) {
        save(name);
        qputenv(name, value);
    }
    void unset(const char* name) {
        save(name);
        qunsetenv(name);
    }

  private:
    void save(const char* name) {
        saved_.try_emplace(name, qEnvironmentVariableIsSet(name)
                                     ? std::optional<QByteArray>(qgetenv(name))
                                     : std::nullopt);
    }

    std::map<std::string, std::optional<QByteArray>> saved_;
};

// Runs xdotool (XTest input: keys and the pointer); true when it succeeded.
inline bool xdotool(const QStringList& arguments) {
    return QProcess::execute(QStringLiteral("xdotool"), arguments) == 0;
}

} // namespace lumenvale::testing
