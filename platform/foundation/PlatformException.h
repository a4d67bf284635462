#pragma once
// The platform exception: what Foundation raises and the controller's handlers catch and
// log as "Exception in %s. %@ - %@." with the name and the reason.

#include <QString>
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

} // namespace fnd
