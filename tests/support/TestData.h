#pragma once
// The rows of a data file under tests/ (for example "platform/plist/data/XmlPlist"): JSON objects
// of a test's inputs, expected outputs and a "why" naming the rule each row pins. A file holds
// either one array or an object of named tables; pass the table's name for the latter. A missing
// or malformed file, or an empty table, fails the calling test. Test thread only.

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

namespace vltest {

inline QJsonArray dataRows(const char* file, const char* table = nullptr)
{
    QFile data(QStringLiteral(VELMORA_SOURCE_DIR "/tests/") + QLatin1String(file) + QStringLiteral(".json"));
    EXPECT_TRUE(data.open(QIODevice::ReadOnly)) << file;
    const QJsonDocument document = QJsonDocument::fromJson(data.readAll());
    const QJsonArray rows = table ? document.object().value(QLatin1String(table)).toArray() : document.array();
    EXPECT_FALSE(rows.isEmpty()) << file << " " << (table ? table : "");
    return rows;
}

} // namespace vltest
