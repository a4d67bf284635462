// User defaults: three in-memory domains, the persistent one mirrored to its property-list
// file. Every mutation re-reads the file and writes it back with only its own keys changed,
// so two processes writing different keys do not undo each other.

#include "platform/system/UserDefaults.h"

#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/SystemLogging.h"
#include "platform/system/UserDomain.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace sys {

namespace {

QString preferencesFolder()
{
    return homeDirectory() + QStringLiteral("/Library/Preferences");
}

// What the file holds now: nullopt when it exists but is not a dictionary property list.
std::optional<QVariantMap> readPersistentFile(const QString& path)
{
    if (!QFileInfo::exists(path))
        return QVariantMap();
    QString error;
    auto dictionary = plist::readDictionaryFile(path, &error);
    if (!dictionary)
        qCWarning(lcSystem) << "Unreadable preferences file" << path << error;
    return dictionary;
}

void overlay(QVariantMap& target, const QVariantMap& changes)
{
    for (auto it = changes.constBegin(); it != changes.constEnd(); ++it) {
        if (it.value().isValid())
            target.insert(it.key(), it.value());
        else
            target.remove(it.key());
    }
}

bool looksLikePropertyList(const QString& value)
{
    if (value.isEmpty())
        return false;
    const QChar first = value.at(0);
    return first == QLatin1Char('{') || first == QLatin1Char('(') || first == QLatin1Char('[')
        || first == QLatin1Char('<') || first == QLatin1Char('"');
}

} // namespace

UserDefaults::UserDefaults(const QString& domain) : domain_(domain) {}

UserDefaults& UserDefaults::standard()
{
    static UserDefaults instance(standardDomain());
    return instance;
}

QString UserDefaults::standardDomain()
{
    return QStringLiteral("com.velmora.SoftwareUpdate");
}

QString UserDefaults::domain() const
{
    return domain_;
}

QString UserDefaults::persistentDomainPath() const
{
    return preferencesFolder() + QLatin1Char('/') + domain_ + QStringLiteral(".plist");
}

QVariantMap UserDefaults::parseArgumentDomain(const QStringList& arguments)
{
    QVariantMap result;
    qsizetype index = 0;
    // Pairs only: a "-name" whose next argument does not begin with "-". Lone switches such
    // as "-list" are skipped, so "-list -checkpath /x" still yields checkpath = "/x".
    while (index + 1 < arguments.size()) {
        const QString& current = arguments.at(index);
        const QString& next = arguments.at(index + 1);
        if (!current.startsWith(QLatin1Char('-')) || next.startsWith(QLatin1Char('-'))) {
            ++index;
            continue;
        }
        const QString key = current.mid(1);
        if (!key.isEmpty()) {
            QVariant value = next;
            if (looksLikePropertyList(next)) {
                if (auto parsed = plist::read(next.toUtf8()))
                    value = *parsed;
            }
            result.insert(key, value);
        }
        index += 2;
    }
    return result;
}

void UserDefaults::setArguments(const QStringList& arguments)
{
    const QVariantMap parsed = parseArgumentDomain(arguments);
    std::lock_guard lock(mutex_);
    argumentDomain_ = parsed;
    argumentsParsed_ = true;
}

void UserDefaults::ensureLoadedLocked() const
{
    // Without an application object the arguments are not known yet: ask again next time.
    if (!argumentsParsed_ && QCoreApplication::instance()) {
        argumentDomain_ = parseArgumentDomain(QCoreApplication::arguments());
        argumentsParsed_ = true;
    }
    const QString path = persistentDomainPath();
    if (path == loadedPath_)
        return;
    // A new HOME means another user's domain: what was pending belonged to the old file.
    persistent_ = readPersistentFile(path).value_or(QVariantMap());
    pending_.clear();
    loadedPath_ = path;
}

QVariant UserDefaults::objectForKey(const QString& key) const
{
    std::lock_guard lock(mutex_);
    ensureLoadedLocked();
    if (argumentDomain_.contains(key))
        return argumentDomain_.value(key);
    if (persistent_.contains(key))
        return persistent_.value(key);
    return registration_.value(key);
}

std::optional<QString> UserDefaults::stringForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString)
        return value.toString();
    if (fnd::isNumber(value))
        return fnd::stringValue(value);
    return std::nullopt;
}

qlonglong UserDefaults::integerForKey(const QString& key) const
{
    return fnd::integerValue(objectForKey(key));
}

bool UserDefaults::boolForKey(const QString& key) const
{
    return fnd::boolValue(objectForKey(key));
}

std::optional<QVariantMap> UserDefaults::dictionaryForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() != QMetaType::QVariantMap)
        return std::nullopt;
    return value.toMap();
}

std::optional<QDateTime> UserDefaults::dateForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() != QMetaType::QDateTime)
        return std::nullopt;
    return value.toDateTime();
}

void UserDefaults::applyLocked(const QString& key, const QVariant& value)
{
    ensureLoadedLocked();
    pending_.insert(key, value);
    overlay(persistent_, {{key, value}});
    flushLocked();
}

void UserDefaults::setObject(const QVariant& value, const QString& key)
{
    // Property lists know one signed integer type; plain C++ ints arrive as int or uint.
    QVariant stored = value;
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::Short:
    case QMetaType::UShort:
        stored = value.toLongLong();
        break;
    default:
        break;
    }
    std::lock_guard lock(mutex_);
    applyLocked(key, stored);
}

void UserDefaults::setInteger(qlonglong value, const QString& key)
{
    setObject(QVariant(value), key);
}

void UserDefaults::setBool(bool value, const QString& key)
{
    setObject(QVariant(value), key);
}

void UserDefaults::removeObjectForKey(const QString& key)
{
    setObject(QVariant(), key);
}

void UserDefaults::registerDefaults(const QVariantMap& defaults)
{
    std::lock_guard lock(mutex_);
    overlay(registration_, defaults);
}

bool UserDefaults::flushLocked()
{
    if (pending_.isEmpty())
        return true;
    const QString path = persistentDomainPath();
    // A damaged file is replaced rather than blocking every later write.
    QVariantMap merged = readPersistentFile(path).value_or(QVariantMap());
    overlay(merged, pending_);
    // The Preferences folder of a fresh account. A refusal is in the system log; the write
    // then reports its own failure.
    (void)prepareUserDomain();
    QString error;
    if (!plist::writeXmlFileAtomically(merged, path, &error)) {
        qCWarning(lcSystem) << "Could not write preferences file" << path << error;
        return false;
    }
    pending_.clear();
    persistent_ = merged;
    return true;
}

bool UserDefaults::synchronize()
{
    std::lock_guard lock(mutex_);
    ensureLoadedLocked();
    const bool written = flushLocked();
    const auto onDisk = readPersistentFile(loadedPath_);
    if (!onDisk)
        return false;
    persistent_ = *onDisk;
    overlay(persistent_, pending_);
    return written;
}

QString globalPreferencesPath()
{
    return preferencesFolder() + QStringLiteral("/com.velmora.global.plist");
}

QVariantMap readGlobalPreferences()
{
    return readPersistentFile(globalPreferencesPath()).value_or(QVariantMap());
}

bool globalSwitchIsOn(const QString& key)
{
    const QVariant value = readGlobalPreferences().value(key);
    if (value.typeId() == QMetaType::QString)
        return value.toString() == QStringLiteral("1");
    return fnd::isNumber(value) && value.toDouble() == 1.0;
}

bool writeGlobalPreferences(const QVariantMap& preferences)
{
    const QString path = globalPreferencesPath();
    (void)prepareUserDomain(); // as for the defaults file
    QString error;
    if (!plist::writeXmlFileAtomically(preferences, path, &error)) {
        qCWarning(lcSystem) << "Could not write preferences file" << path << error;
        return false;
    }
    return true;
}

} // namespace sys
