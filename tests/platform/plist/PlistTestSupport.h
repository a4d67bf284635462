#pragma once
// Helpers shared by the property-list tests: corpus access and a builder for hand-made
// binary property lists (objects, offset table and trailer with every field adjustable).

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>
#include <optional>

namespace plisttest {

inline QByteArray corpusFile(const QString& relative)
{
    QFile file(QStringLiteral(VELMORA_CORPUS_DIR "/") + relative);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text));
}

inline void appendBigEndian(QByteArray& out, quint64 value, int width)
{
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        out += char((value >> shift) & 0xFF);
}

// A bplist00 of the given objects (each a complete marker + payload, references written
// with refSize bytes). The trailer fields default to the consistent values and can be
// overridden to make a broken file.
struct BinaryBuilder {
    QList<QByteArray> objects;
    int offsetSize = 1;
    int refSize = 1;
    quint64 top = 0;
    std::optional<quint64> numObjects;
    std::optional<quint64> tableOffset;
    QList<quint64> offsetOverrides; // replaces the computed offsets when not empty

    QByteArray build() const
    {
        QByteArray out("bplist00");
        QList<quint64> offsets;
        for (const QByteArray& object : objects) {
            offsets.append(quint64(out.size()));
            out += object;
        }
        const quint64 table = quint64(out.size());
        for (quint64 offset : offsetOverrides.isEmpty() ? offsets : offsetOverrides)
            appendBigEndian(out, offset, offsetSize);
        out += QByteArray(6, '\0');
        out += char(offsetSize);
        out += char(refSize);
        appendBigEndian(out, numObjects.value_or(quint64(objects.size())), 8);
        appendBigEndian(out, top, 8);
        appendBigEndian(out, tableOffset.value_or(table), 8);
        return out;
    }
};

} // namespace plisttest
