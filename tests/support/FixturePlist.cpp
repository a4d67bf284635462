#include "support/FixturePlist.h"

#include <QDateTime>

namespace vltest {

namespace {

QByteArray element(const char* name, const QByteArray& text)
{
    return '<' + QByteArray(name) + '>' + text + "</" + name + ">\n";
}

void writeValue(QByteArray& out, const QVariant& value, const QByteArray& indent)
{
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        out += indent + "<dict>\n";
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            out += indent + '\t' + element("key", it.key().toHtmlEscaped().toUtf8());
            writeValue(out, it.value(), indent + '\t');
        }
        out += indent + "</dict>\n";
        return;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        out += indent + "<array>\n";
        for (const QVariant& v : value.toList())
            writeValue(out, v, indent + '\t');
        out += indent + "</array>\n";
        return;
    case QMetaType::Bool:
        out += indent + (value.toBool() ? "<true/>\n" : "<false/>\n");
        return;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        out += indent + element("integer", value.toString().toUtf8());
        return;
    case QMetaType::Double:
        out += indent + element("real", QByteArray::number(value.toDouble(), 'g', 17));
        return;
    case QMetaType::QDateTime:
        out += indent + element("date", value.toDateTime().toUTC().toString(Qt::ISODate).toUtf8());
        return;
    case QMetaType::QByteArray:
        out += indent + element("data", value.toByteArray().toBase64());
        return;
    default:
        out += indent + element("string", value.toString().toHtmlEscaped().toUtf8());
    }
}

} // namespace

QByteArray fixturePlistXml(const QVariant& root)
{
    QByteArray out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                     "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                     "<plist version=\"1.0\">\n";
    writeValue(out, root, {});
    return out + "</plist>\n";
}

} // namespace vltest
