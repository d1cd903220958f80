#include "language/live_tokens.h"

#include "language/date_format.h"
#include "platform/pasteboard.h"

#include <QRegularExpression>
#include <QUuid>

#include <array>
#include <vector>

namespace tavo {

namespace {

enum Token : unsigned
{
    Date = 1u << 0,
    Time = 1u << 1,
    DateTime = 1u << 2,
    Timestamp = 1u << 3,
    Weekday = 1u << 4,
    Month = 1u << 5,
    Year = 1u << 6,
    Unix = 1u << 7,
    Uuid = 1u << 8,
    Clipboard = 1u << 9,
    WorldClock = 1u << 10,
};

constexpr unsigned AllTokens =
    Date | Time | DateTime | Timestamp | Weekday | Month | Year | Unix | Uuid | Clipboard | WorldClock;
constexpr unsigned PromptTokens = Date | Time | DateTime | Weekday | Month | Year | Uuid | Clipboard;

constexpr QLatin1StringView worldClockPrefix("worldclock:");

struct NamedToken
{
    QLatin1StringView name;
    Token token;
};

constexpr std::array<NamedToken, 10> tokenNames{{
    {QLatin1StringView("date"), Date},
    {QLatin1StringView("time"), Time},
    {QLatin1StringView("datetime"), DateTime},
    {QLatin1StringView("timestamp"), Timestamp},
    {QLatin1StringView("weekday"), Weekday},
    {QLatin1StringView("month"), Month},
    {QLatin1StringView("year"), Year},
    {QLatin1StringView("unix"), Unix},
    {QLatin1StringView("uuid"), Uuid},
    {QLatin1StringView("clipboard"), Clipboard},
}};

struct Place
{
    QLatin1StringView name;
    QLatin1StringView zone;
};

constexpr std::array<Place, 6> worldClockPlaces{{
    {QLatin1StringView("london"), QLatin1StringView("Europe/London")},
    {QLatin1StringView("new york"), QLatin1StringView("America/New_York")},
    {QLatin1StringView("tokyo"), QLatin1StringView("Asia/Tokyo")},
    {QLatin1StringView("sydney"), QLatin1StringView("Australia/Sydney")},
    {QLatin1StringView("india"), QLatin1StringView("Asia/Kolkata")},
    {QLatin1StringView("mumbai"), QLatin1StringView("Asia/Kolkata")},
}};

// A table name, else the text as an identifier ICU knows, else empty for the local zone.
QString worldClockZone(const QString& place)
{
    const QString name = place.toLower();
    for (const Place& row : worldClockPlaces) {
        if (name == row.name)
            return row.zone;
    }
    return isKnownTimeZone(place) ? place : QString();
}

class Replacer
{
public:
    Replacer(unsigned known, const std::optional<QString>& clipboardValue, const LiveTokenSources& sources)
        : m_known(known)
        , m_clipboard(clipboardValue)
        , m_sources(sources)
    {
    }

    // The value of the token written as `inner`, or nothing when this variant does not know it.
    std::optional<QString> value(const QString& inner)
    {
        const QString name = inner.toLower();
        if (name.startsWith(worldClockPrefix)) {
            if (!(m_known & WorldClock))
                return std::nullopt;
            const QString zone = worldClockZone(inner.mid(worldClockPrefix.size()));
            return formatDatePattern(now(), QStringLiteral(u"EEE, d MMM yyyy \u00B7 h:mm a zzz"), m_sources.locale,
                                     zone);
        }
        for (const NamedToken& row : tokenNames) {
            if (name == row.name)
                return (m_known & row.token) ? std::optional(value(row.token)) : std::nullopt;
        }
        return std::nullopt;
    }

private:
    QString value(Token token)
    {
        switch (token) {
        case Date:
            return formatDateTime(now(), DateStyle::Long, DateStyle::None, m_sources.locale);
        case Time:
            return formatDateTime(now(), DateStyle::None, DateStyle::Short, m_sources.locale);
        case DateTime:
            return formatDateTime(now(), DateStyle::Long, DateStyle::Short, m_sources.locale);
        case Timestamp:
            return isoTimestamp(now());
        case Weekday:
            return formatDatePattern(now(), QStringLiteral("EEEE"), m_sources.locale);
        case Month:
            return formatDatePattern(now(), QStringLiteral("MMMM"), m_sources.locale);
        case Year:
            return formatDatePattern(now(), QStringLiteral("y"), m_sources.locale);
        case Unix:
            return QString::number(now().toSecsSinceEpoch());
        case Uuid:
            return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        case Clipboard:
            return clipboard();
        case WorldClock:
            break;
        }
        return {};
    }

    QDateTime now() const { return m_sources.now ? m_sources.now() : QDateTime::currentDateTime(); }

    // Read once, and only for a text that asks for it: a clipboard read on X11 is a round trip
    // to the owning application and can take a while.
    QString clipboard()
    {
        if (!m_clipboard)
            m_clipboard = m_sources.pasteboard ? m_sources.pasteboard->string() : QString();
        return *m_clipboard;
    }

    unsigned m_known;
    std::optional<QString> m_clipboard;
    const LiveTokenSources& m_sources;
};

QString replaceTokens(const QString& text, unsigned known, const std::optional<QString>& clipboardValue,
                      const LiveTokenSources& sources)
{
    if (!text.contains(QLatin1StringView("{{")))
        return text;

    // QRegularExpression is reentrant, not thread-safe; each thread keeps its own compiled copy.
    thread_local const QRegularExpression tokenPattern(QStringLiteral("\\{\\{([^}]+)\\}\\}"));
    if (!tokenPattern.isValid())
        return text;

    // Qt's matcher gives up on text that is not valid UTF-16. A lone surrogate (a clipboard can
    // bring one) must not switch off the tokens around it, so the search runs on a copy where
    // each one stands replaced by U+FFFD, which keeps every position.
    QString subject = text;
    if (!QStringView(text).isValidUtf16()) {
        for (qsizetype i = 0; i < subject.size(); ++i) {
            if (subject[i].isHighSurrogate() && i + 1 < subject.size() && subject[i + 1].isLowSurrogate())
                ++i;
            else if (subject[i].isSurrogate())
                subject[i] = QChar::ReplacementCharacter;
        }
    }

    struct Match
    {
        qsizetype start;
        qsizetype length;
        QString inner;
    };
    std::vector<Match> matches;
    for (QRegularExpressionMatchIterator it = tokenPattern.globalMatch(subject); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        matches.push_back({match.capturedStart(0), match.capturedLength(0),
                           text.mid(match.capturedStart(1), match.capturedLength(1))});
    }

    // From the last match to the first, so the earlier ranges still point at the original text
    // and a value that itself holds "{{…}}" is never expanded.
    Replacer replacer(known, clipboardValue, sources);
    QString result = text;
    for (auto match = matches.rbegin(); match != matches.rend(); ++match) {
        if (const std::optional<QString> value = replacer.value(match->inner))
            result.replace(match->start, match->length, *value);
    }
    return result;
}

} // namespace

QString expandTokens(const QString& text, const std::optional<QString>& clipboardValue, const LiveTokenSources& sources)
{
    return replaceTokens(text, AllTokens, clipboardValue, sources);
}

QString expandLiveTemplateTokens(const QString& text, const LiveTokenSources& sources)
{
    return replaceTokens(text, AllTokens, std::nullopt, sources);
}

QString promptExpandTokens(const QString& text, const LiveTokenSources& sources)
{
    return replaceTokens(text, PromptTokens, std::nullopt, sources);
}

} // namespace tavo
