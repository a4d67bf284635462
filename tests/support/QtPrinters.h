#pragma once
// Readable GoogleTest output for Qt values: include in a test file that compares QStrings,
// QStringLists, QVariants or optional strings, so failures print text instead of bytes.

#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>
#include <ostream>

inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }

inline void PrintTo(const QStringList& list, std::ostream* os)
{
    *os << "[" << ('"' + list.join(QStringLiteral("\", \"")) + '"').toStdString() << "]";
}

inline void PrintTo(const QVariant& v, std::ostream* os)
{
    *os << v.metaType().name() << "(" << v.toString().toStdString() << ")";
}

// Found by argument-dependent lookup through QString, which lives in the global namespace.
inline void PrintTo(const std::optional<QString>& s, std::ostream* os)
{
    if (s)
        PrintTo(*s, os);
    else
        *os << "nullopt";
}
