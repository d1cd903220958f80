#include "fakes/fake_pasteboard.h"
#include "language/live_tokens.h"

#include <QRegularExpression>
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
const QString worldClockNewYork = QStringLiteral(u"Sun, 5 Jan 2025 \u00B7 3:07 PM EST");

LiveTokenSources fixedSources(Pasteboard* pasteboard = nullptr)
{
    LiveTokenSources sources;
    sources.now = [] { return fixedMoment; };
    sources.locale = "en_US";
    sources.pasteboard = pasteboard;
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

} // namespace

Q_DECLARE_METATYPE(Variant)
Q_DECLARE_METATYPE(std::optional<QString>)

class TestLiveTokens : public QObject
{
    Q_OBJECT

private slots:
    void tokenValues_data();
    void tokenValues();
    void clipboard_data();
    void clipboard();
    void uuidIsNewUpperCaseEachTime();
    void wholeSecondsInUtc_data();
    void wholeSecondsInUtc();
};

void TestLiveTokens::tokenValues_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("inPrompt");

    QTest::newRow("time") << QStringLiteral("{{time}}") << QStringLiteral("3:07 PM") << true;
    QTest::newRow("datetime") << QStringLiteral("{{datetime}}") << QStringLiteral("January 5, 2025 at 3:07 PM") << true;
    QTest::newRow("timestamp in UTC, whole seconds")
        << QStringLiteral("{{timestamp}}") << QStringLiteral("2025-01-05T20:07:42Z") << false;
    QTest::newRow("world clock") << QStringLiteral("{{worldclock:new york}}") << worldClockNewYork << false;
    QTest::newRow("any case") << QStringLiteral("{{DATE}} {{WeekDay}}") << QStringLiteral("January 5, 2025 Sunday")
                              << true;
    QTest::newRow("blanks inside the braces make it unknown")
        << QStringLiteral("{{ date }}") << QStringLiteral("{{ date }}") << true;
    QTest::newRow("unknown and unclosed tokens keep their spelling")
        << QStringLiteral("{{Tomorrow}} {{}} {{date}") << QStringLiteral("{{Tomorrow}} {{}} {{date}") << true;
    QTest::newRow("tokens among text and surrogate pairs")
        << QStringLiteral(u"\U0001F600{{year}}{{month}}}") << QStringLiteral(u"\U0001F6002025January}") << true;
    QTest::newRow("world clock: tokyo is already tomorrow")
        << QStringLiteral("{{worldclock:tokyo}}") << QStringLiteral(u"Mon, 6 Jan 2025 \u00B7 5:07 AM GMT+9") << false;
    QTest::newRow("world clock: india on a half hour")
        << QStringLiteral("{{worldclock:India}}") << QStringLiteral(u"Mon, 6 Jan 2025 \u00B7 1:37 AM GMT+5:30")
        << false;
    QTest::newRow("world clock: zone identifier taken directly")
        << QStringLiteral("{{worldclock:Europe/Paris}}") << QStringLiteral(u"Sun, 5 Jan 2025 \u00B7 9:07 PM GMT+1")
        << false;
    QTest::newRow("world clock: identifier in the wrong case gives local time")
        << QStringLiteral("{{worldclock:europe/paris}}") << worldClockNewYork << false;
    QTest::newRow("world clock: blank before the colon is unknown")
        << QStringLiteral("{{worldclock :tokyo}}") << QStringLiteral("{{worldclock :tokyo}}") << false;
}

// Prompts and batches leave the machine-time and world-clock tokens literal.
void TestLiveTokens::tokenValues()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QFETCH(bool, inPrompt);

    const LiveTokenSources sources = fixedSources();

    QCOMPARE(expand(Variant::Expand, text, sources), expected);
    QCOMPARE(expand(Variant::LiveTemplate, text, sources), expected);
    QCOMPARE(expand(Variant::Prompt, text, sources), inPrompt ? expected : text);
}

void TestLiveTokens::clipboard_data()
{
    QTest::addColumn<Variant>("variant");
    QTest::addColumn<QString>("text");
    QTest::addColumn<std::optional<QString>>("given");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("reads");

    const std::optional<QString> none;
    QTest::newRow("given value preferred over the pasteboard") << Variant::Expand << QStringLiteral("[{{clipboard}}]")
                                                               << std::optional(QString()) << QStringLiteral("[]") << 0;
    QTest::newRow("pasteboard read once for two tokens")
        << Variant::LiveTemplate << QStringLiteral("{{clipboard}}/{{CLIPBOARD}}") << none
        << QStringLiteral("{{time}}/{{time}}") << 1;
    QTest::newRow("pasteboard not read without a clipboard token")
        << Variant::Prompt << QStringLiteral("{{date}} {{clipboards}}") << none
        << QStringLiteral("January 5, 2025 {{clipboards}}") << 0;
    QTest::newRow("given value holding a token is not expanded again")
        << Variant::Expand << QStringLiteral("{{clipboard}} {{year}}") << std::optional(QStringLiteral("{{date}}"))
        << QStringLiteral("{{date}} 2025") << 0;
}

void TestLiveTokens::clipboard()
{
    QFETCH(Variant, variant);
    QFETCH(QString, text);
    QFETCH(std::optional<QString>, given);
    QFETCH(QString, expected);
    QFETCH(int, reads);

    // The pasteboard itself holds a token, which must come out literally.
    test::FakePasteboard pasteboard;
    pasteboard.text = QStringLiteral("{{time}}");

    QCOMPARE(expand(variant, text, fixedSources(&pasteboard), given), expected);
    QCOMPARE(pasteboard.reads, reads);
}

void TestLiveTokens::uuidIsNewUpperCaseEachTime()
{
    const QStringList ids = promptExpandTokens(QStringLiteral("{{uuid}} {{UUID}}"), fixedSources()).split(u' ');
    QCOMPARE(ids.size(), 2);
    static const QRegularExpression form(
        QStringLiteral("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$"));
    QVERIFY2(form.match(ids[0]).hasMatch(), qPrintable(ids[0]));
    QVERIFY2(form.match(ids[1]).hasMatch(), qPrintable(ids[1]));
    QVERIFY(ids[0] != ids[1]);
}

void TestLiveTokens::wholeSecondsInUtc_data()
{
    QTest::addColumn<qint64>("msecs");
    QTest::addColumn<QString>("expected");

    QTest::newRow("fraction dropped, not rounded")
        << qint64(1736107662999) << QStringLiteral("1736107662 2025-01-05T20:07:42Z");
    QTest::newRow("before the epoch toward zero") << qint64(-1500) << QStringLiteral("-1 1969-12-31T23:59:58Z");
}

void TestLiveTokens::wholeSecondsInUtc()
{
    QFETCH(qint64, msecs);
    QFETCH(QString, expected);

    LiveTokenSources sources = fixedSources();
    // A local-time moment, as the real clock gives, must still come out in UTC.
    sources.now = [msecs] { return QDateTime::fromMSecsSinceEpoch(msecs); };
    QCOMPARE(expandTokens(QStringLiteral("{{unix}} {{timestamp}}"), std::nullopt, sources), expected);
}

QTEST_GUILESS_MAIN(TestLiveTokens)
#include "tst_live_tokens.moc"
