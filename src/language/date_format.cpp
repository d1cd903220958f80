#include "language/date_format.h"

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <memory>

namespace tavo {

namespace {

icu::UnicodeString toIcu(const QString& text)
{
    return icu::UnicodeString(reinterpret_cast<const UChar*>(text.utf16()), static_cast<int32_t>(text.size()));
}

// Newer CLDR data puts a narrow no-break space before "AM"/"PM" and thin spaces in some time
// ranges; pasted into a terminal or an older application they show as garbage, so a plain
// space goes out instead.
QString fromIcu(const icu::UnicodeString& text)
{
    QString result(reinterpret_cast<const QChar*>(text.getBuffer()), text.length());
    result.replace(QChar(0x202F), QLatin1Char(' '));
    result.replace(QChar(0x2009), QLatin1Char(' '));
    return result;
}

icu::Locale icuLocale(const QByteArray& name)
{
    if (name.isEmpty())
        return icu::Locale::getDefault();
    icu::Locale locale(name.constData());
    return locale.isBogus() ? icu::Locale::getDefault() : locale;
}

// An identifier ICU does not know would silently become GMT; the local zone is the better guess.
std::unique_ptr<icu::TimeZone> icuTimeZone(const QString& timeZoneId)
{
    if (timeZoneId.isEmpty() || !isKnownTimeZone(timeZoneId))
        return std::unique_ptr<icu::TimeZone>(icu::TimeZone::createDefault());
    return std::unique_ptr<icu::TimeZone>(icu::TimeZone::createTimeZone(toIcu(timeZoneId)));
}

icu::DateFormat::EStyle icuStyle(DateStyle style)
{
    switch (style) {
    case DateStyle::None:
        return icu::DateFormat::kNone;
    case DateStyle::Short:
        return icu::DateFormat::kShort;
    case DateStyle::Medium:
        return icu::DateFormat::kMedium;
    case DateStyle::Long:
        return icu::DateFormat::kLong;
    case DateStyle::Full:
        return icu::DateFormat::kFull;
    }
    return icu::DateFormat::kNone;
}

QString format(icu::DateFormat& formatter, const QDateTime& moment, const QString& timeZoneId)
{
    std::unique_ptr<icu::TimeZone> zone = icuTimeZone(timeZoneId);
    if (!zone)
        return {};
    formatter.adoptTimeZone(zone.release());
    icu::UnicodeString text;
    formatter.format(static_cast<UDate>(moment.toMSecsSinceEpoch()), text);
    return fromIcu(text);
}

} // namespace

QString formatDateTime(const QDateTime& moment, DateStyle date, DateStyle time, const QByteArray& locale,
                       const QString& timeZoneId)
{
    if (!moment.isValid() || (date == DateStyle::None && time == DateStyle::None))
        return {};
    std::unique_ptr<icu::DateFormat> formatter(
        icu::DateFormat::createDateTimeInstance(icuStyle(date), icuStyle(time), icuLocale(locale)));
    if (!formatter)
        return {};
    return format(*formatter, moment, timeZoneId);
}

QString formatDatePattern(const QDateTime& moment, const QString& pattern, const QByteArray& locale,
                          const QString& timeZoneId)
{
    if (!moment.isValid())
        return {};
    UErrorCode status = U_ZERO_ERROR;
    icu::SimpleDateFormat formatter(toIcu(pattern), icuLocale(locale), status);
    if (U_FAILURE(status))
        return {};
    return format(formatter, moment, timeZoneId);
}

bool isKnownTimeZone(const QString& timeZoneId)
{
    if (timeZoneId.isEmpty())
        return false;
    // ICU answers any name it cannot place with "Etc/Unknown", which behaves as GMT.
    const icu::UnicodeString wanted = toIcu(timeZoneId);
    icu::UnicodeString unknown;
    if (wanted == icu::TimeZone::getUnknown().getID(unknown))
        return false;
    const std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(wanted));
    icu::UnicodeString id;
    return zone && zone->getID(id) == wanted;
}

QString isoTimestamp(const QDateTime& moment)
{
    if (!moment.isValid())
        return {};
    // Qt::ISODate leaves the milliseconds out, so the seconds are truncated like the Unix time.
    return moment.toUTC().toString(Qt::ISODate);
}

} // namespace tavo
