#pragma once
// The platform exception: what Foundation raises and the controller's handlers catch and
// log as "Exception in %s. %@ - %@." with the name and the reason.

#include <QString>
#include <QVariant>
#include <exception>
#include <string>

namespace fnd {

class PlatformException : public std::exception {
public:
    PlatformException(QString name, QString reason)
        : name_(std::move(name)), reason_(std::move(reason)), what_(reason_.toStdString()) {}
    const QString& name() const { return name_; }
    const QString& reason() const { return reason_; }
    const char* what() const noexcept override { return what_.c_str(); }

private:
    QString name_;
    QString reason_;
    std::string what_;
};

// What the platform raises when a property-list value of a class that does not implement a
// message is sent it (a number asked for its lastPathComponent): NSInvalidArgumentException
// with the reason "-[__NSCFNumber lastPathComponent]: unrecognized selector sent to instance".
[[nodiscard]] PlatformException unrecognizedSelector(const QVariant& receiver, const char* selector);

} // namespace fnd
