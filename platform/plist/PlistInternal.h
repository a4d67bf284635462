#pragma once
// Helpers shared by the property-list codecs of this folder (not part of the public API).
// Pure functions, callable from any thread.

#include "platform/plist/PropertyList.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QString>
#include <QVariant>

#include <optional>
#include <vector>

namespace plist::detail {

// Seconds between the Unix epoch and the property-list reference date 2001-01-01T00:00:00Z.
inline constexpr double kReferenceDateOffset = 978307200.0;

// Upper bound on objects a reader materialises or references it follows in one call; keeps
// a crafted file from making a reader do unbounded work.
inline constexpr qint64 kMaxWork = 16 * 1024 * 1024;

// The first failure of a decode: later failures are consequences of it and are not kept.
// Readers derive from it privately. One per decode; not thread-safe.
class FirstError {
protected:
    std::nullopt_t fail(const QString& why)
    {
        if (firstError_.isEmpty())
            firstError_ = why;
        return std::nullopt;
    }
    bool failed(const QString& why)
    {
        fail(why);
        return false;
    }
    const QString& firstError() const { return firstError_; }

private:
    QString firstError_;
};

// The walk over objects addressed by index that the binary reader and the keyed-archive
// decoder share: each object is decoded once and reused afterwards (a shared object is not
// expanded again, so a graph of shared references stays cheap), an object met again on its
// own path is a cycle, and total work and depth are bounded. One per decode.
class ObjectWalk {
public:
    explicit ObjectWalk(std::size_t count = 0) : state_(count, State::Unvisited) {}
    void reset(std::size_t count) { state_.assign(count, State::Unvisited); }

    // `decode()` gives the object's value or nullopt; `fail(why)` records a failure and
    // returns nullopt.
    template <typename Decode, typename Fail>
    std::optional<QVariant> visit(quint64 index, int depth, Decode&& decode, Fail&& fail)
    {
        if (++work_ > kMaxWork)
            return fail(QStringLiteral("too many objects"));
        if (depth > kMaxDepth)
            return fail(QStringLiteral("nesting deeper than %1").arg(kMaxDepth));
        if (state_[index] == State::Done)
            return done_.value(index);
        if (state_[index] == State::OnPath)
            return fail(QStringLiteral("object %1 contains itself").arg(index));
        state_[index] = State::OnPath;
        std::optional<QVariant> value = decode();
        if (!value)
            return std::nullopt;
        state_[index] = State::Done;
        done_.insert(index, *value);
        return value;
    }

private:
    enum class State : uchar { Unvisited, OnPath, Done };
    std::vector<State> state_;
    QHash<quint64, QVariant> done_;
    qint64 work_ = 0;
};

// Writes `message` to `error` when the caller asked for it.
inline void setError(QString* error, const QString& message)
{
    if (error)
        *error = message;
}

// A date from seconds since the reference date; nullopt when not finite or beyond the
// range of dates we represent (about +-100000 years). Milliseconds are kept.
std::optional<QDateTime> dateFromReferenceSeconds(double seconds);
double referenceSecondsFromDate(const QDateTime& date);

// "%.*g" in the C locale, whatever the process locale is.
QByteArray formatDouble(double value, int precision);

// Value kinds the writers and the description know about.
enum class Kind { String, Integer, Unsigned, Real, Boolean, Date, Data, Array, Dictionary, Uid, Null, Unsupported };
Kind kindOf(const QVariant& value);

// The list form of an array value (QVariantList or QStringList).
QVariantList arrayOf(const QVariant& value);

} // namespace plist::detail
