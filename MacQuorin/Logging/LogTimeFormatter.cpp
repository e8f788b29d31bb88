#include "LogTimeFormatter.h"

#include <cstdio>
#include <ctime>

LogTimeFormatter::LogTimeFormatter()
{
    tzset();
}

QString LogTimeFormatter::string(std::chrono::system_clock::time_point moment) const
{
    using namespace std::chrono;
    const auto sinceEpoch = moment.time_since_epoch();
    const std::time_t seconds = duration_cast<std::chrono::seconds>(sinceEpoch).count();
    const auto millis = duration_cast<milliseconds>(sinceEpoch).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour % 100, local.tm_min % 100,
                  local.tm_sec % 100, static_cast<int>(millis < 0 ? millis + 1000 : millis));
    return QString::fromLatin1(text);
}
