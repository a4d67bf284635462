#pragma once
// ExceptionGuard: the one way every public AppController operation turns an escaping
// exception into the program's failure path. The exception is logged through VLException
// with the operation's full method name ("-[AppController installSparkleApp:]"). With a
// window the operation then ends with its failure value; without one the text
// "Exception in %s. %@ - %@." is posted as the task error, task finished is posted, the
// network threads are stopped, the log is drained and the process ends with status 1.
//
// Stateless; callable from any thread. Usage:
//
//   std::optional<UpdateRecord> AppController::checkForUpdatesToSelf()
//   {
//       return guard::guarded(hasGUI, "-[AppController checkForUpdatesToSelf]",
//                             [&]() -> std::optional<UpdateRecord> { ...the operation... });
//   }
//
// The failure value is a value-initialised result: std::nullopt, false, 0, an empty list;
// for void operations nothing. guardedOr() takes an explicit failure value.

#include "platform/foundation/PlatformException.h"

#include <QString>

#include <exception>
#include <type_traits>
#include <utility>

namespace guard {

// After an exception was logged (loggedText: what VLException::logException returned):
// without a window posts the text and task finished, stops the network threads, drains the
// log and ends the process with status 1 (never returns); with a window returns at once.
void finishAfterException(bool hasGUI, const QString& loggedText);

// Logs through VLException (a C++ exception that is not a platform exception is named
// "std::exception", its what() being the reason), then finishAfterException.
void reportException(bool hasGUI, const char* method, const fnd::PlatformException& e);
void reportException(bool hasGUI, const char* method, const std::exception& e);

template <typename F, typename R = std::invoke_result_t<F>>
R guardedOr(bool hasGUI, const char* method, R failureValue, F&& body)
{
    try {
        return std::forward<F>(body)();
    } catch (const fnd::PlatformException& e) {
        reportException(hasGUI, method, e);
    } catch (const std::exception& e) {
        reportException(hasGUI, method, e);
    }
    return failureValue;
}

template <typename F>
std::invoke_result_t<F> guarded(bool hasGUI, const char* method, F&& body)
{
    using R = std::invoke_result_t<F>;
    if constexpr (std::is_void_v<R>) {
        try {
            std::forward<F>(body)();
        } catch (const fnd::PlatformException& e) {
            reportException(hasGUI, method, e);
        } catch (const std::exception& e) {
            reportException(hasGUI, method, e);
        }
    } else {
        return guardedOr(hasGUI, method, R{}, std::forward<F>(body));
    }
}

} // namespace guard
