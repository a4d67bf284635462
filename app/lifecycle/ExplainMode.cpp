// Mode "-explain [<path or bundle ID>]": runs the check of -list with a report attached and
// prints, per vendor application the check looked at (or the one asked about), the outcome
// and the rule that decided it. The verdicts come from the checks' own decision points
// (discovery/CheckReport.h); this file only chooses the entries and prints them. The log
// and the check itself are those of -list.
//
// Text: one line per application, "<name> (<bundle ID>): <outcome> - <reason>". JSON
// ("-format json"): {"applications": [{"application", "path", "bundleid", "outcome",
// "reason", "details"}, ...]}. Exit 0 when the report was printed; a check that fails by
// its exception path ends the process with status 1, as -list does.

#include "lifecycle/RunModes.h"

#include "AppController.h"
#include "UpdateRecord.h"
#include "discovery/CheckReport.h"
#include "discovery/CheckVerdict.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/Foundation.h"
#include "platform/plist/PlistJson.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <cstdio>

namespace runmodes {

namespace {

using discovery::CheckedBundle;
using discovery::CheckOutcome;
using discovery::CheckReport;
using discovery::CheckVerdict;

struct Explained {
    QString application;
    QString path;
    QString bundleID;
    CheckVerdict verdict;
};

// The argument after "-explain", unless it is another switch.
std::optional<QString> explainTarget(const QStringList& arguments)
{
    const qsizetype index = arguments.indexOf(QStringLiteral("-explain"));
    const QString next = arguments.value(index + 1);
    if (next.isEmpty() || next.startsWith(QLatin1Char('-')))
        return std::nullopt;
    return next;
}

Explained explained(const CheckedBundle& bundle)
{
    return {fnd::stringByDeletingPathExtension(fnd::lastPathComponent(bundle.path)), bundle.path, bundle.bundleID,
            bundle.verdict};
}

// The same file, however the path was written (relative, with "..", through a link).
QString samePathKey(const QString& path)
{
    const QFileInfo info(path);
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(info.absoluteFilePath()) : canonical;
}

// Everything the check decided about vendor applications: the updater itself first, then
// the bundles that reached a check (not those the scan passed over), by name and path.
QList<Explained> everything(const CheckReport& report)
{
    QList<Explained> bundles;
    for (const CheckedBundle& bundle : report.bundles()) {
        if (!bundle.decidedByScan)
            bundles.append(explained(bundle));
    }
    std::stable_sort(bundles.begin(), bundles.end(), [](const Explained& a, const Explained& b) {
        return a.application != b.application ? a.application < b.application : a.path < b.path;
    });
    if (const std::optional<CheckedBundle> self = report.selfCheck())
        bundles.prepend(explained(*self));
    return bundles;
}

CheckVerdict selfUpdateFirst(const CheckReport& report)
{
    const std::optional<CheckedBundle> self = report.selfCheck();
    const QVariant title = self && self->offered ? self->offered->value(record::kTitle) : QVariant();
    return discovery::why::notChecked(fnd::format(
        QStringLiteral("an update of the updater itself (\"%@\") is pending, and no other application is checked "
                       "until it is installed"),
        title));
}

QList<Explained> forPath(const CheckReport& report, const QString& target)
{
    const QString key = samePathKey(target);
    const std::optional<CheckedBundle> self = report.selfCheck();
    if (self && samePathKey(self->path) == key)
        return {explained(*self)};
    for (const CheckedBundle& bundle : report.bundles()) {
        if (samePathKey(bundle.path) == key)
            return {explained(bundle)};
    }
    Explained missing{fnd::stringByDeletingPathExtension(fnd::lastPathComponent(target)), target, {}, {}};
    if (!QFileInfo::exists(target))
        missing.verdict = {CheckOutcome::NotFound, QStringLiteral("nothing exists at this path"), {}};
    else if (report.selfUpdatePending())
        missing.verdict = selfUpdateFirst(report);
    else
        missing.verdict = discovery::why::notChecked(
            fnd::format(QStringLiteral("the check's scan found no bundle at this path; it scans %@"),
                        report.scannedFolders().join(QStringLiteral(", "))));
    return {missing};
}

QList<Explained> forBundleID(const CheckReport& report, const QString& target)
{
    const std::optional<CheckedBundle> self = report.selfCheck();
    if (self && self->bundleID == target)
        return {explained(*self)};
    QList<Explained> found;
    for (const CheckedBundle& bundle : report.bundles()) {
        if (bundle.bundleID == target)
            found.append(explained(bundle));
    }
    if (!found.isEmpty())
        return found;
    Explained missing{target, {}, target, {}};
    if (report.selfUpdatePending())
        missing.verdict = selfUpdateFirst(report);
    else
        missing.verdict = {CheckOutcome::NotFound,
                           fnd::format(QStringLiteral("the check found no vendor application with this identifier in "
                                                      "%@; give its path to learn why the scan passed over it"),
                                       report.scannedFolders().join(QStringLiteral(", "))),
                           {}};
    return {missing};
}

void printText(const QList<Explained>& entries)
{
    for (const Explained& e : entries) {
        const QString who = e.bundleID.isEmpty() || e.bundleID == e.application
            ? e.application : fnd::format(QStringLiteral("%@ (%@)"), e.application, e.bundleID);
        const QByteArray line = fnd::format(QStringLiteral("%@: %@ - %@\n"), who,
                                            discovery::outcomeName(e.verdict.outcome), e.verdict.reason).toUtf8();
        std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    }
    std::fflush(stdout);
}

QJsonObject jsonOf(const Explained& e)
{
    QJsonObject object{{QStringLiteral("application"), e.application},
                       {QStringLiteral("outcome"), discovery::outcomeName(e.verdict.outcome)},
                       {QStringLiteral("reason"), e.verdict.reason},
                       {QStringLiteral("details"), plist::toJsonValue(e.verdict.facts)}};
    if (!e.path.isEmpty())
        object.insert(QStringLiteral("path"), e.path);
    if (!e.bundleID.isEmpty())
        object.insert(QStringLiteral("bundleid"), e.bundleID);
    return object;
}

} // namespace

int runExplain(const QStringList& arguments)
{
    std::unique_ptr<AppController> controller = AppController::initWithoutGUI();
    CheckReport report;
    controller->checkReport = &report;
    (void)collectUpdates(*controller, arguments);
    controller->checkReport = nullptr;
    controller.reset();

    const std::optional<QString> target = explainTarget(arguments);
    QList<Explained> entries;
    if (!target)
        entries = everything(report);
    else if (target->contains(QLatin1Char('/')))
        entries = forPath(report, *target);
    else
        entries = forBundleID(report, *target);

    if (outputFormat(arguments) == OutputFormat::Json) {
        QJsonArray applications;
        for (const Explained& e : entries)
            applications.append(jsonOf(e));
        printJson(QJsonObject{{QStringLiteral("applications"), applications}});
    } else {
        printText(entries);
    }
    return 0;
}

} // namespace runmodes
