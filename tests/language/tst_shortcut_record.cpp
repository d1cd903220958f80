#include "language/shortcut_record.h"

#include <QJsonDocument>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

const QString upperId = u"6F1C2E0A-0B9D-4C55-9A8E-1D2C3B4A5F60"_s;

QJsonObject minimalObject()
{
    return QJsonObject{{u"id"_s, upperId},       {u"key"_s, u"/ty"_s},        {u"name"_s, u"Thank you"_s},
                       {u"text"_s, u"Thanks"_s}, {u"group"_s, u"Personal"_s}, {u"files"_s, QJsonArray()}};
}

} // namespace

class TestShortcutRecord : public QObject
{
    Q_OBJECT

private slots:
    void normalizedTrigger_data();
    void normalizedTrigger();
    void displayTrigger_data();
    void displayTrigger();
    void collectionTrigger_data();
    void collectionTrigger();
    void migratedRecordAlias_data();
    void migratedRecordAlias();
    void allGroupsKeepsFirstSpelling();
    void jsonRoundTrip();
    void jsonRejects_data();
    void jsonRejects();
};

void TestShortcutRecord::normalizedTrigger_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("stored");
    QTest::newRow("blanks trimmed, backslash turned, case kept") << u" \\Thanks\n"_s << u"/Thanks"_s;
    QTest::newRow("bare key gets a slash") << u"abc"_s << u"/abc"_s;
    QTest::newRow("blank gives a lone slash") << u" \t\n"_s << u"/"_s;
    QTest::newRow("only the first backslash turns") << u"\\\\x"_s << u"/\\x"_s;
}

void TestShortcutRecord::normalizedTrigger()
{
    QFETCH(QString, typed);
    QFETCH(QString, stored);
    QCOMPARE(tavo::normalizedTrigger(typed), stored);
    // Matching ignores case against the stored key.
    QVERIFY(triggerMatches(typed.toUpper(), stored.toLower()));
}

void TestShortcutRecord::displayTrigger_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("shown");
    QTest::newRow("no trimming") << u" /abc"_s << u" /abc"_s;
    QTest::newRow("only the leading slash") << u"/a/b"_s << u"\\a/b"_s;
}

void TestShortcutRecord::displayTrigger()
{
    QFETCH(QString, key);
    QFETCH(QString, shown);
    QCOMPARE(tavo::displayTrigger(key), shown);
}

void TestShortcutRecord::collectionTrigger_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("collection");
    QTest::addColumn<QString>("result");
    QTest::newRow("suffix case folded, key case kept") << u"\\Thanks.WEB"_s << u"Websites & URLs"_s << u"/Thanks.web"_s;
    QTest::newRow("only one suffix removed") << u"/a.app.web"_s << u"Personal"_s << u"/a.app"_s;
    QTest::newRow("only one suffix removed") << u"/a.app.web"_s << u"Personal"_s << u"/a.app"_s;
    QTest::newRow("a trailing e without dot stays") << u"/cafe"_s << u"Emoticons"_s << u"/cafe.e"_s;
    QTest::newRow("collection compared ignoring case") << u"mail"_s << u"MEDIA FILES"_s << u"/mail.media"_s;
    QTest::newRow("unknown collection has no suffix") << u"x.gif"_s << u"Customers"_s << u"/x"_s;
    QTest::newRow("suffix alone") << u".web"_s << u"Personal"_s << u"/"_s;
}

void TestShortcutRecord::collectionTrigger()
{
    QFETCH(QString, key);
    QFETCH(QString, collection);
    QFETCH(QString, result);
    QCOMPARE(tavo::collectionTrigger(key, collection), result);
}

void TestShortcutRecord::migratedRecordAlias_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("alias");
    QTest::newRow("slash and suffix removed") << u"/acme.web"_s << u"acme"_s;
    QTest::newRow("suffix matched as written") << u"/Acme.MEDIA"_s << u"Acme.MEDIA"_s;
    QTest::newRow("slashes trimmed from both ends") << u"//acme/\\"_s << u"acme"_s;
    // Forty emoji are eighty UTF-16 units; the cut must not fall inside a pair or split an accent.
    QTest::newRow("cut counts emoji as one") << u"/"_s + u"😀"_s.repeated(45) << u"😀"_s.repeated(40);
    QTest::newRow("cut keeps accents with letters") << u"/"_s + u"e\u0301"_s.repeated(41) << u"e\u0301"_s.repeated(40);
}

void TestShortcutRecord::migratedRecordAlias()
{
    QFETCH(QString, key);
    QFETCH(QString, alias);
    QCOMPARE(tavo::migratedRecordAlias(key), alias);
}

void TestShortcutRecord::allGroupsKeepsFirstSpelling()
{
    Clip clip;
    clip.group = u"Work"_s;
    clip.groups = QStringList{u"work"_s, u"Sales"_s, u"SALES"_s};
    QCOMPARE(clip.allGroups(), (QStringList{u"Work"_s, u"Sales"_s}));
    clip.groups.reset();
    QCOMPARE(clip.allGroups(), QStringList{u"Work"_s});
}

void TestShortcutRecord::jsonRoundTrip()
{
    Clip clip;
    clip.id = QUuid(u"{6f1c2e0a-0b9d-4c55-9a8e-1d2c3b4a5f60}"_s);
    clip.key = u"/ty"_s;
    clip.name = u"Thank you"_s;
    clip.text = u"Thank you! {{date}}"_s;
    clip.group = u"Work"_s;
    clip.files = {u"/home/u/a.png"_s};
    clip.directMediaPaste = false;
    clip.groups = QStringList{u"Sales"_s};
    clip.appBundleIdentifier = u"org.gnome.Calculator.desktop"_s;
    clip.appPath = u"/usr/share/applications/org.gnome.Calculator.desktop"_s;
    clip.isMathResult = true;
    clip.webURL = u"https://example.org"_s;
    clip.defaultMediaArticle = u"Ada Lovelace"_s;
    const QJsonObject object = clip.toJson();
    QCOMPARE(object.size(), 13);
    QCOMPARE(object.value(u"id"_s).toString(), upperId);
    QCOMPARE(Clip::fromJson(QJsonDocument::fromJson(QJsonDocument(object).toJson()).object()), std::optional(clip));

    // Absent optionals stay absent; a null optional, a lower-case id and unknown keys are accepted.
    QCOMPARE(Clip::fromJson(minimalObject()).value_or(Clip()).toJson(), minimalObject());
    QJsonObject relaxed = minimalObject();
    relaxed.insert(u"id"_s, upperId.toLower());
    relaxed.insert(u"webURL"_s, QJsonValue::Null);
    relaxed.insert(u"somethingNewer"_s, 42);
    const std::optional<Clip> decoded = Clip::fromJson(relaxed);
    QVERIFY(decoded && !decoded->webURL);
    QCOMPARE(uuidText(decoded->id), upperId);

    // One bad record fails the whole list.
    QVERIFY(clipsFromJson(QJsonArray{minimalObject(), minimalObject()}));
    QVERIFY(!clipsFromJson(QJsonArray{minimalObject(), 7}));
}

void TestShortcutRecord::jsonRejects_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QJsonValue>("value"); // undefined removes the key
    QTest::newRow("missing text") << u"text"_s << QJsonValue(QJsonValue::Undefined);
    QTest::newRow("null id") << u"id"_s << QJsonValue(QJsonValue::Null);
    QTest::newRow("files with a number") << u"files"_s << QJsonValue(QJsonArray{u"/a"_s, 1});
    QTest::newRow("id not a uuid") << u"id"_s << QJsonValue(u"not-a-uuid"_s);
    QTest::newRow("id in braces") << u"id"_s << QJsonValue(u'{' + upperId + u'}');
    QTest::newRow("directMediaPaste as text") << u"directMediaPaste"_s << QJsonValue(u"true"_s);
}

void TestShortcutRecord::jsonRejects()
{
    QFETCH(QString, field);
    QFETCH(QJsonValue, value);
    QJsonObject object = minimalObject();
    if (value.isUndefined()) {
        object.remove(field);
    } else {
        object.insert(field, value);
    }
    QVERIFY(!Clip::fromJson(object));
    QVERIFY(!clipsFromJson(QJsonArray{minimalObject(), object}));
}

QTEST_GUILESS_MAIN(TestShortcutRecord)
#include "tst_shortcut_record.moc"
