#include "language/triggers.h"

#include <QtTest>

using namespace tavo;

Q_DECLARE_METATYPE(tavo::ShortcutTextStyle)

namespace {

QStringList numbered(const QString& prefix, int from, int to, const QString& suffix = {})
{
    QStringList keys;
    for (int n = from; n <= to; ++n) {
        keys.append(prefix + QString::number(n) + suffix);
    }
    return keys;
}

// "a b" -> {"/a", "/b"}
QStringList slashed(const char* words)
{
    QStringList keys = QString::fromLatin1(words).split(u' ');
    for (QString& key : keys) {
        key.prepend(u'/');
    }
    return keys;
}

ShortcutTextStyle style(bool bold, bool italic, bool underline, std::optional<double> size = std::nullopt)
{
    return ShortcutTextStyle{bold, italic, underline, size};
}

Clip clip(const QString& key, const QString& name)
{
    Clip c;
    c.key = key;
    c.name = name;
    return c;
}

QStringList names(const QList<Clip>& clips)
{
    QStringList result;
    for (const Clip& c : clips) {
        result.append(c.name);
    }
    return result;
}

} // namespace

class TestTriggers : public QObject
{
    Q_OBJECT

private slots:
    void styled_data();
    void styled();
    void batch_data();
    void batch();
    void notABatch_data();
    void notABatch();
    void numericPrefix_data();
    void numericPrefix();
    void resolve();
};

void TestTriggers::styled_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("base");
    QTest::addColumn<ShortcutTextStyle>("expected");

    QTest::newRow("no suffix") << "/sig"
                               << "/sig" << style(false, false, false);
    QTest::newRow("bold then italic") << "/sig-b-i"
                                      << "/sig" << style(true, true, false);
    QTest::newRow("left size stands") << "/sig-high-low"
                                      << "/sig" << style(false, false, false, 24);
    QTest::newRow("underline and upper-case size") << "/sig-u-LOW"
                                                   << "/sig" << style(false, false, true, 12);
    QTest::newRow("base all suffix") << "-b"
                                     << "" << style(true, false, false);
    QTest::newRow("suffix inside word stays") << "/web-bar"
                                              << "/web-bar" << style(false, false, false);
    QTest::newRow("hyphen without style") << "/a-"
                                          << "/a-" << style(false, false, false);
}

void TestTriggers::styled()
{
    QFETCH(QString, text);
    QFETCH(QString, base);
    QFETCH(ShortcutTextStyle, expected);
    const StyledTrigger parsed = parseStyledTrigger(text);
    QCOMPARE(parsed.base, base);
    QVERIFY(parsed.style == expected);
    QCOMPARE(parsed.style.isEmpty(), expected.isEmpty());
}

void TestTriggers::batch_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QString>("separator");
    const QString line = QStringLiteral("\n");
    const QString space = QStringLiteral(" ");
    QStringList nearMax;
    for (int digit = 0; digit <= 7; ++digit) {
        nearMax.append(QStringLiteral("/a922337203685477580") + QString::number(digit));
    }

    QTest::newRow("bang from one") << "\\abc!" << numbered(QStringLiteral("/abc"), 1, 10) << line;
    QTest::newRow("bang from two runs to twenty") << "/abc2!" << numbered(QStringLiteral("/abc"), 2, 20) << line;
    QTest::newRow("bang with digits too long for a number")
        << "ab99999999999999999999!" << numbered(QStringLiteral("/ab99999999999999999999"), 1, 10) << line;
    QTest::newRow("bang near the largest number stops there") << "a9223372036854775800!" << nearMax << line;
    // Other scripts' digits match \d but do not read as a number, so they join the prefix.
    QTest::newRow("bang with arabic-indic digits")
        << QStringLiteral("ab\u0663!") << numbered(QStringLiteral("/ab\u0663"), 1, 10) << line;
    QTest::newRow("range capped at ten") << "a1..30" << numbered(QStringLiteral("/a"), 1, 10) << line;
    QTest::newRow("range short") << "\\inv3..5" << numbered(QStringLiteral("/inv"), 3, 5) << line;
    QTest::newRow("list with spaces") << "a%b" << slashed("a b") << space;
    QTest::newRow("percent anywhere gives spaces") << "a&b%c" << slashed("a b c") << space;
    QTest::newRow("numbered list keeps suffix")
        << "a1.web&2" << numbered(QStringLiteral("/a"), 1, 2, QStringLiteral(".web")) << line;
    QTest::newRow("word after numbered key") << "a1&b" << slashed("a1 b") << line;
    QTest::newRow("parts trimmed, slashes kept") << "ty& \\sig& /bye" << slashed("ty sig bye") << line;
    QTest::newRow("bang inside a list") << "a!b" << slashed("a b") << line;
    QTest::newRow("ten parts") << "a&b&c&d&e&f&g&h&i&j" << slashed("a b c d e f g h i j") << line;
}

void TestTriggers::batch()
{
    QFETCH(QString, text);
    QFETCH(QStringList, keys);
    QFETCH(QString, separator);
    const std::optional<ShortcutBatchRequest> request = parseBatchTrigger(text);
    QVERIFY(request);
    QCOMPARE(request->keys, keys);
    QCOMPARE(request->separator, separator);
}

void TestTriggers::notABatch_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("plain key") << "/thanks";
    QTest::newRow("bang from zero") << "abc0!";
    QTest::newRow("bang with only digits") << "12!";
    QTest::newRow("double bang") << "abc!!";
    QTest::newRow("range backwards") << "a3..2";
    QTest::newRow("range without start digits") << "a..5";
    QTest::newRow("range without prefix") << "3..5";
    QTest::newRow("range from zero") << "a0..5";
    QTest::newRow("range end with blank") << "a1.. 5";
    QTest::newRow("empty middle part") << "a&&b";
    QTest::newRow("eleven parts") << "a&b&c&d&e&f&g&h&i&j&k";
}

void TestTriggers::notABatch()
{
    QFETCH(QString, text);
    QVERIFY(!parseBatchTrigger(text));
}

void TestTriggers::numericPrefix_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("found");
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QString>("suffix");
    QTest::newRow("number before suffix") << "/pic3.MEDIA" << true << "/pic"
                                          << ".media";
    QTest::newRow("no number") << "/inv" << false << ""
                               << "";
    QTest::newRow("digits that begin the text") << "12" << false << ""
                                                << "";
}

void TestTriggers::numericPrefix()
{
    QFETCH(QString, key);
    QFETCH(bool, found);
    QFETCH(QString, prefix);
    QFETCH(QString, suffix);
    const std::optional<NumericKey> numeric = numericPrefixAndSuffix(key);
    QCOMPARE(numeric.has_value(), found);
    if (numeric) {
        QCOMPARE(numeric->prefix, prefix);
        QCOMPARE(numeric->suffix, suffix);
    }
}

void TestTriggers::resolve()
{
    Clip text = clip(QStringLiteral("/zoom"), QStringLiteral("text"));
    Clip site = clip(QStringLiteral("/zoom.web"), QStringLiteral("site"));
    site.webURL = QStringLiteral("https://zoom.us");
    Clip app = clip(QStringLiteral("/Zoom.app"), QStringLiteral("app"));
    app.appPath = QStringLiteral("/usr/share/applications/zoom.desktop");
    Clip media = clip(QStringLiteral("/zoom.gif"), QStringLiteral("media"));
    media.files = {QStringLiteral("/tmp/zoom.gif")};

    auto resolveOne = [](const QString& key, const QList<Clip>& clips) {
        return names(resolveBatch(ShortcutBatchRequest{{key}, batchLineSeparator}, clips));
    };
    const QList<Clip> all{text, site, app, media};
    QCOMPARE(resolveOne(QStringLiteral("/zoom.media"), all), QStringList{QStringLiteral("media")});
    QCOMPARE(resolveOne(QStringLiteral("\\ZOOM.app"), all), QStringList{QStringLiteral("app")});
    QCOMPARE(resolveOne(QStringLiteral("/zoom.ai"), all), QStringList{QStringLiteral("text")});
    // No site among the stem's clips: the first of them stands in.
    QCOMPARE(resolveOne(QStringLiteral("/zoom.web"), QList<Clip>{text, app}), QStringList{QStringLiteral("text")});
    // An exact key wins over a stem match, ignoring case.
    const QList<Clip> ty{clip(QStringLiteral("/Ty.web"), QStringLiteral("site")),
                         clip(QStringLiteral("/ty"), QStringLiteral("text"))};
    QCOMPARE(resolveOne(QStringLiteral("/TY"), ty), QStringList{QStringLiteral("text")});

    // Unknown keys are dropped and the order of the request is kept.
    const QList<Clip> clips{clip(QStringLiteral("/a1"), QStringLiteral("one")),
                            clip(QStringLiteral("/a3"), QStringLiteral("three"))};
    const std::optional<ShortcutBatchRequest> request = parseBatchTrigger(QStringLiteral("a3&1&2"));
    QVERIFY(request);
    QCOMPARE(names(resolveBatch(*request, clips)), (QStringList{QStringLiteral("three"), QStringLiteral("one")}));
}

QTEST_GUILESS_MAIN(TestTriggers)
#include "tst_triggers.moc"
