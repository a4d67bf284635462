#include "shared/VLException.h"
#include "shared/VLLog.h"

#include "platform/foundation/Format.h"

QString VLException::logException(const QString& method, const QString& name, const QString& reason)
{
    const QString message = fnd::format(QStringLiteral("Exception in %s. %@ - %@."), method, name, reason);
    // The finished message is the format: a "%" in a reason is formatted once more there.
    VLLog::appendLogAndPrint(message);
    return message;
}

QString VLException::logException(const QString& method, const fnd::PlatformException& exception)
{
    return logException(method, exception.name(), exception.reason());
}

QString VLException::logException(const QString& method, const std::exception& exception)
{
    if (const auto* platform = dynamic_cast<const fnd::PlatformException*>(&exception))
        return logException(method, *platform);
    return logException(method, QStringLiteral("std::exception"), QString::fromUtf8(exception.what()));
}

bool VLException::didTimeout(const QString& exceptionName)
{
    return exceptionName == QStringLiteral("NSPortTimeoutException");
}

bool VLException::didTimeout(const fnd::PlatformException& exception)
{
    return didTimeout(exception.name());
}
