#pragma once
// VLException: turns a caught exception into one log line. No state; all members are static
// and callable from any thread. The line goes through VLLog::appendLogAndPrint, so it reaches
// both the log and (unless printing is off) standard output.
//
//   try { ... } catch (const fnd::PlatformException& e) {
//       VLException::logException("-[AppController installSparkleApp:]", e);
//   }

#include "platform/foundation/PlatformException.h"

#include <QString>
#include <exception>

class VLException {
public:
    VLException() = delete;

    // Builds "Exception in %s. %@ - %@." from the method name (as in
    // "-[AppController loadPreferenceSettings]"), the exception's name and its reason, logs
    // it with appendLogAndPrint (the finished text is used as the format) and returns it.
    static QString logException(const QString& method, const QString& name, const QString& reason);
    static QString logException(const QString& method, const fnd::PlatformException& exception);
    // A plain C++ exception has no name of its own: "std::exception" stands in for it when
    // it is not a PlatformException; its what() is the reason.
    static QString logException(const QString& method, const std::exception& exception);

    // True exactly when the exception's name is "NSPortTimeoutException".
    [[nodiscard]] static bool didTimeout(const QString& exceptionName);
    [[nodiscard]] static bool didTimeout(const fnd::PlatformException& exception);
};
