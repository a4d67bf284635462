#include "lifecycle/RunModes.h"

#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"
#include "platform/system/UserDomain.h"

#include <QCoreApplication>

namespace runmodes {

namespace {

QStringList argumentList(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return arguments;
}

// The windowless modes in their order of precedence; nullopt when none applies or the mode
// continues as the windowed application. Their application object ends here.
ModeOutcome runWindowlessMode(int argc, char** argv, const QStringList& arguments)
{
    // "checkpath" is read as a default, so "-checkpath P" on the command line and a stored
    // value are the same to it; it wins over every switch.
    const std::optional<QString> checkPath = sys::UserDefaults::standard().stringForKey(prefs::kCheckPath);
    if (checkPath) {
        QCoreApplication app(argc, argv);
        return runCheckpath(*checkPath);
    }
    if (arguments.contains(QStringLiteral("-list")) || arguments.contains(QStringLiteral("-autocheck"))) {
        QCoreApplication app(argc, argv);
        return runListOrAutocheck(arguments);
    }
    if (arguments.contains(QStringLiteral("-install"))) {
        QCoreApplication app(argc, argv);
        return runInstall(arguments);
    }
    if (arguments.contains(QStringLiteral("-explain"))) {
        QCoreApplication app(argc, argv);
        return runExplain(arguments);
    }
    return std::nullopt;
}

} // namespace

int run(int argc, char** argv, WindowedEntry windowedApplication)
{
    // A fresh account gets the Library folders every Mac account has before anything is
    // written there; a refusal is in the system log and each writer reports its own failure.
    (void)sys::prepareUserDomain();
    const QStringList arguments = argumentList(argc, argv);
    sys::UserDefaults::standard().setArguments(arguments);
    if (const ModeOutcome status = runWindowlessMode(argc, argv, arguments))
        return *status;
    return windowedApplication(argc, argv);
}

std::optional<QStringList> forcedIdentifiers(const QStringList& arguments)
{
    const qsizetype index = arguments.indexOf(QStringLiteral("-forceIDs"));
    if (index < 0 || index + 1 >= arguments.size())
        return std::nullopt;
    return arguments.at(index + 1).split(QLatin1Char(','));
}

} // namespace runmodes
