#pragma once

#include <QDateTime>
#include <QObject>

// The time that decisions are made on. Code that waits for a moment asks this
// clock rather than the system, so that a test can move time instead of waiting.
class Clock : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // The clock of the system, in UTC.
    static Clock& system();

    virtual QDateTime now() const;

Q_SIGNALS:
    // The time jumped: what was scheduled from an earlier now() is to be looked at again.
    void moved();
};
