#include "support/FixturePlist.h"

#include <QDateTime>

namespace vltest {

namespace {

QByteArray escaped(const QString& text)
{
    return text.toHtmlEscaped().toUtf8();
}

void writeValue(QByteArray& out, const QVariant& value, int depth)
{
    const QByteArray indent(depth, '\t');
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        out += indent + "<dict>\n";
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            out += indent + "\t<key>" + escaped(it.key()) + "</key>\n";
            writeValue(out, it.value(), depth + 1);
        }
        out += indent + "</dict>\n";
        return;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        out += indent + "<array>\n";
        for (const QVariant& v : value.toList())
            writeValue(out, v, depth + 1);
        out += indent + "</array>\n";
        return;
    }
    case QMetaType::Bool:
        out += indent + (value.toBool() ? "<true/>\n" : "<false/>\n");
        return;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        out += indent + "<integer>" + value.toString().toUtf8() + "</integer>\n";
        return;
    case QMetaType::Double:
        out += indent + "<real>" + QByteArray::number(value.toDouble(), 'g', 17) + "</real>\n";
        return;
    case QMetaType::QDateTime:
        out += indent + "<date>" + value.toDateTime().toUTC().toString(Qt::ISODate).toUtf8() + "</date>\n";
        return;
    case QMetaType::QByteArray:
        out += indent + "<data>" + value.toByteArray().toBase64() + "</data>\n";
        return;
    default:
        out += indent + "<string>" + escaped(value.toString()) + "</string>\n";
        return;
    }
}

} // namespace

QByteArray fixturePlistXml(const QVariant& root)
{
    QByteArray out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                     "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                     "<plist version=\"1.0\">\n";
    writeValue(out, root, 0);
    out += "</plist>\n";
    return out;
}

} // namespace vltest
