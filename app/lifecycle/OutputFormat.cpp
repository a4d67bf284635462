// "-format" of -list and -explain, and the JSON printer they share.

#include "lifecycle/RunModes.h"

#include <QJsonDocument>

#include <cstdio>

namespace runmodes {

OutputFormat outputFormat(const QStringList& arguments)
{
    const qsizetype index = arguments.indexOf(QStringLiteral("-format"));
    if (index < 0)
        return OutputFormat::Text;
    const QString value = arguments.value(index + 1);
    if (value == QLatin1String("json"))
        return OutputFormat::Json;
    std::fprintf(stderr, "SoftwareUpdate: -format takes \"json\"; \"%s\" is not known, so the usual text follows.\n",
                 value.toLocal8Bit().constData());
    return OutputFormat::Text;
}

void printJson(const QJsonObject& root)
{
    const QByteArray text = QJsonDocument(root).toJson(QJsonDocument::Indented);
    std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
    std::fflush(stdout);
}

} // namespace runmodes
