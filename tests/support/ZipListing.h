#pragma once
// zipMembers: the entry names of a zip archive, sorted, as the machine's own unzip lists them
// ("unzip -Z1"); empty when the file is no archive. One thread at a time.

#include "support/ChildProcess.h"

#include <QStringList>

namespace vltest {

inline QStringList zipMembers(const QString& archive)
{
    ChildProcess unzip;
    if (!unzip.start(QStringLiteral("/usr/bin/unzip"), {QStringLiteral("-Z1"), archive}) || !unzip.waitForFinished(30000)
        || unzip.exitCode() != 0)
        return {};
    QStringList members = QString::fromUtf8(unzip.standardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    members.sort();
    return members;
}

} // namespace vltest
