#pragma once

#include "LumenvaleKit/RecordingName.h"

#include <QDateTime>

namespace lumenvale {

// A Qt local date and time broken down as the core library names movies after it.
inline LocalDateTime localDateTime(const QDateTime& moment) {
    const QDateTime local = moment.toLocalTime();
    const QDate date = local.date();
    const QTime time = local.time();
    return LocalDateTime{date.year(), date.month(),  date.day(),
                         time.hour(), time.minute(), time.second()};
}

} // namespace lumenvale
