#pragma once
// ScopedEnvironment: sets process environment variables for one test and puts the old
// values back when it goes out of scope. For in-process tests of code that reads the
// environment contract on every call. Main thread only, one test at a time.

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtGlobal>

#include <optional>
#include <utility>

namespace vltest {

class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment()
    {
        for (auto it = saved_.crbegin(); it != saved_.crend(); ++it)
            it->second ? qputenv(it->first.constData(), *it->second) : qunsetenv(it->first.constData());
    }

    void set(const char* name, const QString& value)
    {
        remember(name);
        qputenv(name, value.toLocal8Bit());
    }
    void unset(const char* name)
    {
        remember(name);
        qunsetenv(name);
    }

private:
    void remember(const char* name)
    {
        saved_.append({QByteArray(name), qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt});
    }

    QList<std::pair<QByteArray, std::optional<QByteArray>>> saved_;
};

} // namespace vltest
