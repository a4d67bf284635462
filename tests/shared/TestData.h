#pragma once
// The rows of a data file in tests/shared/data/: JSON objects of a test's inputs, expected
// outputs and a "why" naming the rule each row pins. An empty list when the file is missing or
// malformed, so the reading test asserts it got rows. Any thread.

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace vltest {

inline QJsonArray dataRows(const char* name)
{
    QFile file(QStringLiteral(VELMORA_SOURCE_DIR "/tests/shared/data/") + QLatin1String(name) + QStringLiteral(".json"));
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).array() : QJsonArray();
}

} // namespace vltest
