#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

namespace tavo {

// Dates and times a person reads are formatted with ICU, so they follow the user's locale the
// way the rest of the desktop does ("January 5, 2025", "3:07 PM").
enum class DateStyle
{
    None,
    Short,
    Medium,
    Long,
    Full
};

// `locale` is an ICU locale name ("en_US", "de_DE"); empty means the process's default locale,
// which ICU takes from LANG / LC_ALL. `timeZoneId` is an IANA identifier; empty means the local
// zone (TZ).
QString formatDateTime(const QDateTime& moment, DateStyle date, DateStyle time, const QByteArray& locale = {},
                       const QString& timeZoneId = {});

// An ICU pattern such as "EEEE" or "EEE, d MMM yyyy · h:mm a zzz".
QString formatDatePattern(const QDateTime& moment, const QString& pattern, const QByteArray& locale = {},
                          const QString& timeZoneId = {});

// Whether ICU knows `timeZoneId` as a time zone (exact spelling).
bool isKnownTimeZone(const QString& timeZoneId);

// ISO 8601 in UTC with a trailing "Z" and whole seconds: "2025-01-05T20:07:00Z".
QString isoTimestamp(const QDateTime& moment);

} // namespace tavo
