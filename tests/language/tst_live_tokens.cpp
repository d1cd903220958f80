#include "fakes/fake_pasteboard.h"
#include "language/date_format.h"
#include "language/live_tokens.h"

#include <QRegularExpression>
#include <QSet>
#include <QTest>

using namespace tavo;

namespace {

enum class Variant
{
    Expand,
    LiveTemplate,
    Prompt
};

// Sunday 5 January 2025, 3:07:42.789 PM in New York (the zone the tests run in).
const QDateTime fixedMoment = QDateTime(QDate(2025, 1, 5), QTime(20, 7, 42, 789), Qt::UTC);

LiveTokenSources fixedSources(const QByteArray& locale = "en_US")
{
    LiveTokenSources sources;
    sources.now = [] { return fixedMoment; };
    sources.locale = locale;
    return sources;
}

QString expand(Variant variant, const QString& text, const LiveTokenSources& sources,
               const std::optional<QString>& clipboardValue = std::nullopt)
{
    switch (variant) {
    case Variant::Expand:
        return expandTokens(text, clipboardValue, sources);
    case Variant::LiveTemplate:
        return expandLiveTemplateTokens(text, sources);
    case Variant::Prompt:
        return promptExpandTokens(text, sources);
    }
    return {};
}

const QString worldClockNewYork = QStringLiteral(u"Sun, 5 Jan 2025 \u00B7 3:07 PM EST");

} // namespace

Q_DECLARE_METATYPE(Variant)

class TestLiveTokens : public QObject
{
    Q_OBJECT

private slots:
    void tokenValues_data();
    void tokenValues();
    void variantKnowledge_data();
    void variantKnowledge();
    void worldClock_data();
    void worldClock();
    void clipboard_data();
    void clipboard();
    void clockReadPerToken_data();
    void clockReadPerToken();
    void eachTokenShowsItsOwnMoment();
    void uuidIsNewUpperCaseEachTime();
    void localeValues_data();
    void localeValues();
    void wholeSecondsTruncated_data();
    void wholeSecondsTruncated();
    void knownTimeZone_data();
    void knownTimeZone();
};

// Rows every variant shares: none of them uses a token only some variants know.
void TestLiveTokens::tokenValues_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::newRow("date in the long style") << QStringLiteral("{{date}}") << QStringLiteral("January 5, 2025");
    QTest::newRow("time in the short style, plain space before PM")
        << QStringLiteral("{{time}}") << QStringLiteral("3:07 PM");
    QTest::newRow("datetime joins long date and short time")
        << QStringLiteral("{{datetime}}") << QStringLiteral("January 5, 2025 at 3:07 PM");
    QTest::newRow("weekday by its wide name") << QStringLiteral("{{weekday}}") << QStringLiteral("Sunday");
    QTest::newRow("month by its wide name") << QStringLiteral("{{month}}") << QStringLiteral("January");
    QTest::newRow("year with its own digits") << QStringLiteral("{{year}}") << QStringLiteral("2025");
    QTest::newRow("upper case token works like lower case")
        << QStringLiteral("{{DATE}}") << QStringLiteral("January 5, 2025");
    QTest::newRow("mixed case token") << QStringLiteral("{{WeekDay}}") << QStringLiteral("Sunday");
    QTest::newRow("blanks inside the braces make it unknown")
        << QStringLiteral("{{ date }}") << QStringLiteral("{{ date }}");
    QTest::newRow("unknown token keeps its spelling")
        << QStringLiteral("{{Tomorrow}} {{DaTe2}}") << QStringLiteral("{{Tomorrow}} {{DaTe2}}");
    QTest::newRow("single braces are no token") << QStringLiteral("{date}") << QStringLiteral("{date}");
    QTest::newRow("unclosed token stays") << QStringLiteral("{{date}") << QStringLiteral("{{date}");
    QTest::newRow("empty braces stay") << QStringLiteral("{{}}") << QStringLiteral("{{}}");
    QTest::newRow("closing brace after a token stays") << QStringLiteral("{{year}}}") << QStringLiteral("2025}");
    QTest::newRow("a third opening brace joins the inner text")
        << QStringLiteral("{{{year}}}") << QStringLiteral("{{{year}}}");
    QTest::newRow("several tokens in one text")
        << QStringLiteral("On {{weekday}}, {{date}} at {{time}} ({{Month}} {{year}}) {{nope}}.")
        << QStringLiteral("On Sunday, January 5, 2025 at 3:07 PM (January 2025) {{nope}}.");
    QTest::newRow("adjacent tokens") << QStringLiteral("{{year}}{{year}}") << QStringLiteral("20252025");
    QTest::newRow("surrogate pairs around a token")
        << QStringLiteral(u"\U0001F600{{year}}\U0001F600 \U0001D11E{{month}}")
        << QStringLiteral(u"\U0001F600"
                          "2025"
                          u"\U0001F600 \U0001D11E"
                          "January");
    QTest::newRow("surrogate pair inside the braces is unknown")
        << QStringLiteral(u"{{date\U0001F600}}") << QStringLiteral(u"{{date\U0001F600}}");
    QTest::newRow("lone surrogate before a token")
        << (QString(QChar(0xD83D)) + QStringLiteral("{{year}}")) << (QString(QChar(0xD83D)) + QStringLiteral("2025"));
    QTest::newRow("text without tokens") << QStringLiteral("plain {text}") << QStringLiteral("plain {text}");
    QTest::newRow("empty text") << QString() << QString();
}

void TestLiveTokens::tokenValues()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);

    for (Variant variant : {Variant::Expand, Variant::LiveTemplate, Variant::Prompt})
        QCOMPARE(expand(variant, text, fixedSources()), expected);
}

void TestLiveTokens::variantKnowledge_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("inPrompt");

    QTest::newRow("timestamp in UTC, whole seconds")
        << QStringLiteral("{{timestamp}}") << QStringLiteral("2025-01-05T20:07:42Z") << false;
    QTest::newRow("unix seconds") << QStringLiteral("{{unix}}") << QStringLiteral("1736107662") << false;
    QTest::newRow("world clock") << QStringLiteral("{{worldclock:new york}}") << worldClockNewYork << false;
    QTest::newRow("date") << QStringLiteral("{{date}}") << QStringLiteral("January 5, 2025") << true;
    QTest::newRow("time") << QStringLiteral("{{time}}") << QStringLiteral("3:07 PM") << true;
    QTest::newRow("datetime") << QStringLiteral("{{datetime}}") << QStringLiteral("January 5, 2025 at 3:07 PM") << true;
    QTest::newRow("weekday") << QStringLiteral("{{weekday}}") << QStringLiteral("Sunday") << true;
    QTest::newRow("month") << QStringLiteral("{{month}}") << QStringLiteral("January") << true;
    QTest::newRow("year") << QStringLiteral("{{year}}") << QStringLiteral("2025") << true;
    QTest::newRow("clipboard") << QStringLiteral("{{clipboard}}") << QStringLiteral("copied") << true;
}

// Prompts and batches leave the machine-time and world-clock tokens literal.
void TestLiveTokens::variantKnowledge()
{
    QFETCH(QString, token);
    QFETCH(QString, expected);
    QFETCH(bool, inPrompt);

    test::FakePasteboard pasteboard;
    pasteboard.text = QStringLiteral("copied");
    LiveTokenSources sources = fixedSources();
    sources.pasteboard = &pasteboard;

    QCOMPARE(expandTokens(token, std::nullopt, sources), expected);
    QCOMPARE(expandLiveTemplateTokens(token, sources), expected);
    QCOMPARE(promptExpandTokens(token, sources), inPrompt ? expected : token);
}

void TestLiveTokens::worldClock_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("expected");

    QTest::newRow("table name in lower case") << QStringLiteral("{{worldclock:new york}}") << worldClockNewYork;
    QTest::newRow("table name in any case") << QStringLiteral("{{worldclock:New York}}") << worldClockNewYork;
    QTest::newRow("prefix in capitals") << QStringLiteral("{{WorldClock:NEW YORK}}") << worldClockNewYork;
    QTest::newRow("tokyo is already tomorrow")
        << QStringLiteral("{{worldclock:tokyo}}") << QStringLiteral(u"Mon, 6 Jan 2025 \u00B7 5:07 AM GMT+9");
    QTest::newRow("london in winter time")
        << QStringLiteral("{{worldclock:London}}") << QStringLiteral(u"Sun, 5 Jan 2025 \u00B7 8:07 PM GMT");
    QTest::newRow("sydney in summer time")
        << QStringLiteral("{{worldclock:sydney}}") << QStringLiteral(u"Mon, 6 Jan 2025 \u00B7 7:07 AM GMT+11");
    QTest::newRow("india on a half hour")
        << QStringLiteral("{{worldclock:India}}") << QStringLiteral(u"Mon, 6 Jan 2025 \u00B7 1:37 AM GMT+5:30");
    QTest::newRow("mumbai shares india's zone")
        << QStringLiteral("{{worldclock:mumbai}}") << QStringLiteral(u"Mon, 6 Jan 2025 \u00B7 1:37 AM GMT+5:30");
    QTest::newRow("zone identifier taken directly")
        << QStringLiteral("{{worldclock:Europe/Paris}}") << QStringLiteral(u"Sun, 5 Jan 2025 \u00B7 9:07 PM GMT+1");
    QTest::newRow("unknown place gives local time") << QStringLiteral("{{worldclock:Nowhere}}") << worldClockNewYork;
    QTest::newRow("identifier in the wrong case gives local time")
        << QStringLiteral("{{worldclock:europe/paris}}") << worldClockNewYork;
    QTest::newRow("blank before the place gives local time")
        << QStringLiteral("{{worldclock: tokyo}}") << worldClockNewYork;
    QTest::newRow("no place gives local time") << QStringLiteral("{{worldclock:}}") << worldClockNewYork;
    QTest::newRow("blank before the colon is unknown")
        << QStringLiteral("{{worldclock :tokyo}}") << QStringLiteral("{{worldclock :tokyo}}");
}

void TestLiveTokens::worldClock()
{
    QFETCH(QString, token);
    QFETCH(QString, expected);

    QCOMPARE(expandTokens(token, std::nullopt, fixedSources()), expected);
}

void TestLiveTokens::clipboard_data()
{
    QTest::addColumn<Variant>("variant");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("hasClipboardValue");
    QTest::addColumn<QString>("clipboardValue");
    QTest::addColumn<bool>("hasPasteboard");
    QTest::addColumn<QString>("pasteboardText");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("reads");

    const QString token = QStringLiteral("[{{clipboard}}]");
    const QString board = QStringLiteral("board");
    QTest::newRow("given value preferred over the pasteboard")
        << Variant::Expand << token << true << QStringLiteral("given") << true << board << QStringLiteral("[given]")
        << 0;
    QTest::newRow("empty given value is still preferred")
        << Variant::Expand << token << true << QString() << true << board << QStringLiteral("[]") << 0;
    QTest::newRow("pasteboard read when no value is given")
        << Variant::Expand << token << false << QString() << true << board << QStringLiteral("[board]") << 1;
    QTest::newRow("live template reads the pasteboard")
        << Variant::LiveTemplate << token << false << QString() << true << board << QStringLiteral("[board]") << 1;
    QTest::newRow("prompt reads the pasteboard")
        << Variant::Prompt << token << false << QString() << true << board << QStringLiteral("[board]") << 1;
    QTest::newRow("empty pasteboard gives empty text")
        << Variant::Prompt << token << false << QString() << true << QString() << QStringLiteral("[]") << 1;
    QTest::newRow("no pasteboard gives empty text")
        << Variant::Expand << token << false << QString() << false << board << QStringLiteral("[]") << 0;
    QTest::newRow("token in capitals") << Variant::Prompt << QStringLiteral("{{Clipboard}}") << false << QString()
                                       << true << board << board << 1;
    QTest::newRow("pasteboard read once for two tokens")
        << Variant::LiveTemplate << QStringLiteral("{{clipboard}}/{{CLIPBOARD}}") << false << QString() << true << board
        << QStringLiteral("board/board") << 1;
    QTest::newRow("pasteboard not read without a clipboard token")
        << Variant::Expand << QStringLiteral("{{date}} {{nope}}") << false << QString() << true << board
        << QStringLiteral("January 5, 2025 {{nope}}") << 0;
    QTest::newRow("pasteboard not read for a misspelt token")
        << Variant::Prompt << QStringLiteral("{{clipboards}} { {clipboard}}") << false << QString() << true << board
        << QStringLiteral("{{clipboards}} { {clipboard}}") << 0;
    QTest::newRow("given value holding a token is not expanded again")
        << Variant::Expand << QStringLiteral("{{clipboard}} {{year}}") << true << QStringLiteral("{{date}}") << true
        << board << QStringLiteral("{{date}} 2025") << 0;
    QTest::newRow("pasteboard holding tokens is not expanded again")
        << Variant::Prompt << QStringLiteral("{{year}} {{clipboard}}") << false << QString() << true
        << QStringLiteral("{{time}}{{clipboard}}") << QStringLiteral("2025 {{time}}{{clipboard}}") << 1;
}

void TestLiveTokens::clipboard()
{
    QFETCH(Variant, variant);
    QFETCH(QString, text);
    QFETCH(bool, hasClipboardValue);
    QFETCH(QString, clipboardValue);
    QFETCH(bool, hasPasteboard);
    QFETCH(QString, pasteboardText);
    QFETCH(QString, expected);
    QFETCH(int, reads);

    test::FakePasteboard pasteboard;
    pasteboard.text = pasteboardText;
    LiveTokenSources sources = fixedSources();
    sources.pasteboard = hasPasteboard ? &pasteboard : nullptr;

    QCOMPARE(expand(variant, text, sources, hasClipboardValue ? std::optional(clipboardValue) : std::nullopt),
             expected);
    QCOMPARE(pasteboard.reads, reads);
}

void TestLiveTokens::clockReadPerToken_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("reads");

    QTest::newRow("one read per time token") << QStringLiteral("{{time}} {{date}} {{unix}}") << 3;
    QTest::newRow("same token twice reads twice") << QStringLiteral("{{time}}{{time}}") << 2;
    QTest::newRow("no token no read") << QStringLiteral("{date} {{ time }}") << 0;
}

void TestLiveTokens::clockReadPerToken()
{
    QFETCH(QString, text);
    QFETCH(int, reads);

    int calls = 0;
    LiveTokenSources sources = fixedSources();
    sources.now = [&calls] {
        ++calls;
        return fixedMoment;
    };
    expandLiveTemplateTokens(text, sources);
    QCOMPARE(calls, reads);
}

// A clock that moves on between tokens shows in their values: there is no single moment for
// the whole text.
void TestLiveTokens::eachTokenShowsItsOwnMoment()
{
    int calls = 0;
    LiveTokenSources sources = fixedSources();
    sources.now = [&calls] { return fixedMoment.addSecs(60 * calls++); };

    const QStringList times =
        expandTokens(QStringLiteral("{{time}}|{{time}}"), std::nullopt, sources).split(QLatin1Char('|'));
    QCOMPARE(times.size(), 2);
    QCOMPARE(QSet<QString>(times.begin(), times.end()),
             QSet<QString>({QStringLiteral("3:07 PM"), QStringLiteral("3:08 PM")}));
}

void TestLiveTokens::uuidIsNewUpperCaseEachTime()
{
    const QString result = promptExpandTokens(QStringLiteral("{{uuid}} {{UUID}}"), fixedSources());
    const QStringList parts = result.split(QLatin1Char(' '));
    QCOMPARE(parts.size(), 2);
    static const QRegularExpression form(
        QStringLiteral("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$"));
    QVERIFY2(form.match(parts[0]).hasMatch(), qPrintable(parts[0]));
    QVERIFY2(form.match(parts[1]).hasMatch(), qPrintable(parts[1]));
    QVERIFY(parts[0] != parts[1]);
}

void TestLiveTokens::localeValues_data()
{
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::newRow("german long date") << QByteArray("de_DE") << QStringLiteral("{{date}}")
                                      << QStringLiteral("5. Januar 2025");
    QTest::newRow("german 24-hour time") << QByteArray("de_DE") << QStringLiteral("{{time}}")
                                         << QStringLiteral("15:07");
    QTest::newRow("german datetime") << QByteArray("de_DE") << QStringLiteral("{{datetime}}")
                                     << QStringLiteral("5. Januar 2025 um 15:07");
    QTest::newRow("german names") << QByteArray("de_DE") << QStringLiteral("{{weekday}}, {{month}}")
                                  << QStringLiteral("Sonntag, Januar");
    QTest::newRow("german world clock keeps the pattern")
        << QByteArray("de_DE") << QStringLiteral("{{worldclock:Europe/Berlin}}")
        << QStringLiteral(u"So., 5 Jan. 2025 \u00B7 9:07 PM MEZ");
    QTest::newRow("british day before month")
        << QByteArray("en_GB") << QStringLiteral("{{date}} {{time}}") << QStringLiteral("5 January 2025 15:07");
    QTest::newRow("french lower-case month")
        << QByteArray("fr_FR") << QStringLiteral("{{date}}") << QStringLiteral("5 janvier 2025");
    QTest::newRow("japanese date") << QByteArray("ja_JP") << QStringLiteral("{{date}}")
                                   << QStringLiteral(u"2025\u5E741\u67085\u65E5");
}

void TestLiveTokens::localeValues()
{
    QFETCH(QByteArray, locale);
    QFETCH(QString, text);
    QFETCH(QString, expected);

    QCOMPARE(expandTokens(text, std::nullopt, fixedSources(locale)), expected);
}

void TestLiveTokens::wholeSecondsTruncated_data()
{
    QTest::addColumn<qint64>("msecs");
    QTest::addColumn<QString>("unix");
    QTest::addColumn<QString>("timestamp");

    QTest::newRow("fraction dropped, not rounded")
        << qint64(1736107662999) << QStringLiteral("1736107662") << QStringLiteral("2025-01-05T20:07:42Z");
    QTest::newRow("the epoch") << qint64(0) << QStringLiteral("0") << QStringLiteral("1970-01-01T00:00:00Z");
    QTest::newRow("before the epoch toward zero")
        << qint64(-1500) << QStringLiteral("-1") << QStringLiteral("1969-12-31T23:59:58Z");
}

void TestLiveTokens::wholeSecondsTruncated()
{
    QFETCH(qint64, msecs);
    QFETCH(QString, unix);
    QFETCH(QString, timestamp);

    LiveTokenSources sources = fixedSources();
    // A local-time moment, as the real clock gives, must still come out in UTC.
    sources.now = [msecs] { return QDateTime::fromMSecsSinceEpoch(msecs); };
    QCOMPARE(expandTokens(QStringLiteral("{{unix}}"), std::nullopt, sources), unix);
    QCOMPARE(expandTokens(QStringLiteral("{{timestamp}}"), std::nullopt, sources), timestamp);
}

void TestLiveTokens::knownTimeZone_data()
{
    QTest::addColumn<QString>("zone");
    QTest::addColumn<bool>("known");

    QTest::newRow("iana identifier") << QStringLiteral("Europe/Paris") << true;
    QTest::newRow("legacy alias") << QStringLiteral("Asia/Calcutta") << true;
    QTest::newRow("utc") << QStringLiteral("UTC") << true;
    QTest::newRow("wrong case") << QStringLiteral("europe/paris") << false;
    QTest::newRow("made-up place") << QStringLiteral("Nowhere") << false;
    QTest::newRow("icu's own unknown zone") << QStringLiteral("Etc/Unknown") << false;
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("trailing blank") << QStringLiteral("Europe/Paris ") << false;
}

void TestLiveTokens::knownTimeZone()
{
    QFETCH(QString, zone);
    QFETCH(bool, known);

    QCOMPARE(isKnownTimeZone(zone), known);
}

QTEST_GUILESS_MAIN(TestLiveTokens)
#include "tst_live_tokens.moc"
