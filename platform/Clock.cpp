#include "Clock.h"

Clock& Clock::system()
{
    static Clock clock;
    return clock;
}

QDateTime Clock::now() const
{
    return QDateTime::currentDateTimeUtc();
}
