#pragma once
// zipMembers: the entry names of a zip archive, sorted, as the machine's own unzip lists them
// ("unzip -Z1"); empty when the file is no archive. Any thread.

#include <QProcess>
#include <QStringList>

namespace vltest {

inline QStringList zipMembers(const QString& archive)
{
    QProcess unzip;
    unzip.start(QStringLiteral("/usr/bin/unzip"), {QStringLiteral("-Z1"), archive});
    if (!unzip.waitForFinished(30000) || unzip.exitStatus() != QProcess::NormalExit || unzip.exitCode() != 0)
        return {};
    QStringList members = QString::fromUtf8(unzip.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    members.sort();
    return members;
}

} // namespace vltest
