#include "lifecycle/RunModes.h"

#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"

#include <QCoreApplication>

#include <cstdio>

namespace runmodes {

namespace {

QStringList argumentList(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return arguments;
}

} // namespace

int run(int argc, char** argv)
{
    const QStringList arguments = argumentList(argc, argv);
    sys::UserDefaults::standard().setArguments(arguments);

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
    return runWindowedApplication(argc, argv);
}

std::optional<QStringList> forcedIdentifiers(const QStringList& arguments)
{
    const qsizetype index = arguments.indexOf(QStringLiteral("-forceIDs"));
    if (index < 0 || index + 1 >= arguments.size())
        return std::nullopt;
    return arguments.at(index + 1).split(QLatin1Char(','));
}

int windowedApplicationUnavailable(const char* reason)
{
    std::fprintf(stderr,
                 "SoftwareUpdate: %s, but the update window is not part of this build yet; "
                 "exiting with status 1.\n",
                 reason);
    return 1;
}

int runWindowedApplication(int, char**)
{
    return windowedApplicationUnavailable("no command-line mode was given, so the windowed application would start");
}

} // namespace runmodes
