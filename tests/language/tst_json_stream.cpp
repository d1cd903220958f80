#include "language/json_stream.h"
#include "language/shortcut_record.h"

#include <QJsonDocument>
#include <QtTest>

using namespace tavo;

// The streaming codec must agree with the JSON every other program writes and reads: what it
// writes parses elsewhere to the same text, and it refuses what a strict parser refuses.
class TestJsonStream : public QObject
{
    Q_OBJECT

private slots:
    void textsSurviveTheRoundTrip_data();
    void textsSurviveTheRoundTrip();
    void readsWhatOthersWrite_data();
    void readsWhatOthersWrite();
    void refusesBrokenDocuments_data();
    void refusesBrokenDocuments();
    void deepNestingFailsWithoutCrashing();
};

void TestJsonStream::textsSurviveTheRoundTrip_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("quotes and backslashes") << QStringLiteral("say \"hi\" \\ bye");
    QTest::newRow("line breaks and tabs") << QStringLiteral("a\nb\r\nc\td");
    QTest::newRow("control characters") << QString(QChar(0x01)) + QChar(0x1f) + QChar(0x7f);
    QTest::newRow("emoji pair") << QStringLiteral("👍🏽 done");
    QTest::newRow("lone high surrogate") << QStringLiteral("x") + QChar(0xD83D) + QStringLiteral("y");
    QTest::newRow("lone low surrogate at end") << QStringLiteral("x") + QChar(0xDC4D);
    QTest::newRow("empty") << QString();
}

void TestJsonStream::textsSurviveTheRoundTrip()
{
    QFETCH(QString, text);
    JsonWriter writer;
    writer.beginArray();
    writer.value(text);
    writer.value(QStringList{text, text});
    writer.endArray();
    const QByteArray json = writer.take();

    JsonReader reader(json);
    QVERIFY(reader.beginArray());
    QVERIFY(reader.nextElement());
    QCOMPARE(reader.readString(), std::optional(text));
    QVERIFY(reader.nextElement());
    QCOMPARE(reader.readStringList(), std::optional(QStringList{text, text}));
    QVERIFY(!reader.nextElement());
    QVERIFY(reader.atEnd());

    // Qt's own parser reads the same texts (it turns lone surrogates into replacement characters).
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    if (!std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isSurrogate(); })) {
        QCOMPARE(document.array().first().toString(), text);
    }
}

void TestJsonStream::readsWhatOthersWrite_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("text");
    QTest::newRow("indented with blanks everywhere") << QByteArray(" [ \n\t\"a\" \r\n ] ") << "a";
    QTest::newRow("escaped slash and unicode") << QByteArray(R"(["a\/b \u00e9 \ud83d\ude00"])") << "a/b é 😀";
    QTest::newRow("upper-case hex escapes") << QByteArray(R"(["\u00C9"])") << "É";
    QTest::newRow("raw UTF-8") << QByteArray("[\"\xe6\x9d\xb1\"]") << "東";
}

void TestJsonStream::readsWhatOthersWrite()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, text);
    const std::optional<QList<QString>> texts =
        readJsonArray<QString>(json, [](JsonReader& reader) { return reader.readString(); });
    QVERIFY(texts);
    QCOMPARE(texts->value(0), text);
}

void TestJsonStream::refusesBrokenDocuments_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("not an array") << QByteArray(R"({"a":1})");
    QTest::newRow("truncated") << QByteArray(R"([{"id":"6F1C2E0A-0B9D-4C55-9A8E-1D2C3B4A5F60","key":"/ty")");
    QTest::newRow("trailing garbage") << QByteArray("[] x");
    QTest::newRow("trailing comma") << QByteArray("[1,]");
    QTest::newRow("missing comma") << QByteArray("[1 2]");
    QTest::newRow("leading zero") << QByteArray("[01]");
    QTest::newRow("bare dot number") << QByteArray("[.5]");
    QTest::newRow("raw newline in a string") << QByteArray("[\"a\nb\"]");
    QTest::newRow("bad escape") << QByteArray(R"(["\x41"])");
    QTest::newRow("short unicode escape") << QByteArray(R"(["\u12"])");
    QTest::newRow("bad literal") << QByteArray("[nul]");
}

void TestJsonStream::refusesBrokenDocuments()
{
    QFETCH(QByteArray, json);
    const auto skip = [](JsonReader& reader) -> std::optional<int> {
        return reader.skipValue() ? std::optional<int>(0) : std::nullopt;
    };
    QVERIFY(!readJsonArray<int>(json, skip));
    QVERIFY(!clipsFromJsonBytes(json));
}

void TestJsonStream::deepNestingFailsWithoutCrashing()
{
    const QByteArray json = "[" + QByteArray(100000, '[') + QByteArray(100000, ']') + "]";
    JsonReader reader(json);
    QVERIFY(!reader.skipValue());
    QVERIFY(reader.failed());
}

QTEST_GUILESS_MAIN(TestJsonStream)
#include "tst_json_stream.moc"
