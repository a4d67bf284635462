#pragma once
// ScopedEnvironment: sets process environment variables for one test and puts the old
// values back when it goes out of scope. For in-process tests of code that reads the
// environment contract on every call. Main thread only, one test at a time.

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QtGlobal>
#include <optional>

namespace vltest {

class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment()
    {
        for (auto it = saved_.crbegin(); it != saved_.crend(); ++it) {
            if (it->second)
                qputenv(it->first.constData(), *it->second);
            else
                qunsetenv(it->first.constData());
        }
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
        std::optional<QByteArray> old;
        if (qEnvironmentVariableIsSet(name))
            old = qgetenv(name);
        saved_.append({QByteArray(name), old});
    }

    QList<QPair<QByteArray, std::optional<QByteArray>>> saved_;
};

} // namespace vltest
