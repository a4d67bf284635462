// The job service on Linux: launchd jobs become systemd units of the user's or the machine's
// service manager.

#include "platform/system/JobService.h"

#include "platform/plist/PropertyList.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/SystemdUnits.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace sys {

namespace {

QString unitFolder(JobDomain domain)
{
    return domain == JobDomain::User ? homeDirectory() + QStringLiteral("/.config/systemd/user")
                                     : rooted(QStringLiteral("/etc/systemd/system"));
}

systemd::Manager managerOf(JobDomain domain)
{
    return domain == JobDomain::User ? systemd::Manager::User : systemd::Manager::System;
}

QStringList systemctlArguments(JobDomain domain, const QStringList& arguments)
{
    return domain == JobDomain::User ? QStringList{QStringLiteral("--user")} + arguments : arguments;
}

bool writeUnitFile(const QString& path, const QString& text)
{
    QSaveFile file(path);
    const QByteArray data = text.toUtf8();
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size() && file.commit();
}

// The job's label as launchctl takes it from the file, or else the file's name less ".plist",
// so a job whose file is already gone can still be stopped.
QString labelOfJobFile(const QString& plistPath)
{
    const std::optional<QVariantMap> job = plist::readDictionaryFile(plistPath);
    const QVariant label = job ? job->value(QStringLiteral("Label")) : QVariant();
    if (label.typeId() == QMetaType::QString && !label.toString().isEmpty())
        return label.toString();
    QString name = QFileInfo(plistPath).fileName();
    if (name.endsWith(QStringLiteral(".plist")))
        name.chop(6);
    return name;
}

} // namespace

std::optional<QString> JobService::load(const QString& plistPath, JobDomain domain) const
{
    QString error;
    const std::optional<QVariantMap> job = plist::readDictionaryFile(plistPath, &error);
    if (!job)
        return QStringLiteral("Unable to read the job %1: %2").arg(plistPath, error);
    const std::optional<systemd::JobUnits> units = systemd::unitsForJob(*job, managerOf(domain), &error);
    if (!units)
        return QStringLiteral("Unable to make units of the job %1: %2").arg(plistPath, error);

    const QString folder = unitFolder(domain);
    const QString service = folder + QLatin1Char('/') + units->name + QStringLiteral(".service");
    const QString timer = folder + QLatin1Char('/') + units->name + QStringLiteral(".timer");
    if (!QDir().mkpath(folder) || !writeUnitFile(service, units->service)
        || (units->timer && !writeUnitFile(timer, *units->timer)))
        return QStringLiteral("Unable to write the units of the job %1 in %2").arg(plistPath, folder);
    // A job that lost its calendar must not keep its old timer.
    if (!units->timer)
        QFile::remove(timer);

    const QString systemctl = rooted(QStringLiteral("/usr/bin/systemctl"));
    const QString unit = units->name + (units->timer ? QStringLiteral(".timer") : QStringLiteral(".service"));
    runTool_(systemctl, systemctlArguments(domain, {QStringLiteral("daemon-reload")}));
    runTool_(systemctl, systemctlArguments(domain, {QStringLiteral("enable"), QStringLiteral("--now"), unit}));
    return std::nullopt;
}

std::optional<QString> JobService::unload(const QString& plistPath, JobDomain domain) const
{
    return remove(labelOfJobFile(plistPath), domain);
}

std::optional<QString> JobService::remove(const QString& label, JobDomain domain) const
{
    const std::optional<QString> name = systemd::unitNameForLabel(label);
    if (!name)
        return QStringLiteral("The job label \"%1\" cannot name a unit").arg(label);
    const QString folder = unitFolder(domain);
    const QString service = folder + QLatin1Char('/') + *name + QStringLiteral(".service");
    const QString timer = folder + QLatin1Char('/') + *name + QStringLiteral(".timer");
    QString unit;
    if (QFileInfo::exists(timer))
        unit = *name + QStringLiteral(".timer");
    else if (QFileInfo::exists(service))
        unit = *name + QStringLiteral(".service");
    else
        return std::nullopt;

    const QString systemctl = rooted(QStringLiteral("/usr/bin/systemctl"));
    runTool_(systemctl, systemctlArguments(domain, {QStringLiteral("disable"), QStringLiteral("--now"), unit}));
    QFile::remove(timer);
    QFile::remove(service);
    runTool_(systemctl, systemctlArguments(domain, {QStringLiteral("daemon-reload")}));
    return std::nullopt;
}

QString JobService::machineJobOwner()
{
    return QStringLiteral("root:root");
}

} // namespace sys
