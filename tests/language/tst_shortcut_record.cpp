#include "language/shortcut_record.h"

#include <QJsonDocument>
#include <QtTest>

using namespace tavo;

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
    void builtInCollectionsInDisplayOrder();
    void jsonRoundTripKeepsEveryField();
    void jsonOmitsAbsentOptionals();
    void jsonRejects_data();
    void jsonRejects();
    void jsonAcceptsNullOptionalsAndLowerCaseId();
    void listDecodeFailsOnOneBadRecord();
    void matchingIgnoresCaseButKeepsStoredKey();
};

void TestShortcutRecord::normalizedTrigger_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("stored");
    QTest::newRow("blanks and newline around a backslash key") << " \\abc\n"
                                                               << "/abc";
    QTest::newRow("bare key gets a slash") << "abc"
                                           << "/abc";
    QTest::newRow("slash key stands") << "/abc"
                                      << "/abc";
    QTest::newRow("case kept") << "\\Thanks"
                               << "/Thanks";
    QTest::newRow("empty gives a lone slash") << ""
                                              << "/";
    QTest::newRow("blank gives a lone slash") << " \t\n"
                                              << "/";
    QTest::newRow("only the first backslash turns") << "\\\\x"
                                                    << "/\\x";
    QTest::newRow("unicode kept") << "\\café😀"
                                  << "/café😀";
}

void TestShortcutRecord::normalizedTrigger()
{
    QFETCH(QString, typed);
    QFETCH(QString, stored);
    QCOMPARE(tavo::normalizedTrigger(typed), stored);
}

void TestShortcutRecord::displayTrigger_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("shown");
    QTest::newRow("bare key unchanged") << "abc"
                                        << "abc";
    QTest::newRow("slash shown as backslash") << "/abc"
                                              << "\\abc";
    QTest::newRow("no trimming") << " /abc"
                                 << " /abc";
    QTest::newRow("only the leading slash") << "/a/b"
                                            << "\\a/b";
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
    QTest::newRow("typed key into websites keeps case") << "\\Thanks.WEB"
                                                        << "Websites & URLs"
                                                        << "/Thanks.web";
    QTest::newRow("website key moved to personal") << "/Thanks.web"
                                                   << "Personal"
                                                   << "/Thanks";
    QTest::newRow("one suffix replaced by another") << "/zoom.app"
                                                    << "Websites & URLs"
                                                    << "/zoom.web";
    QTest::newRow("only one suffix removed") << "/a.app.web"
                                             << "Personal"
                                             << "/a.app";
    QTest::newRow("a trailing e without dot stays") << "/cafe"
                                                    << "Work"
                                                    << "/cafe";
    QTest::newRow("collection compared ignoring case") << "mail"
                                                       << "MEDIA FILES"
                                                       << "/mail.media";
    QTest::newRow("emoticons") << "smile"
                               << "Emoticons"
                               << "/smile.e";
    QTest::newRow("gifs") << "/cat.e"
                          << "GIFs"
                          << "/cat.gif";
    QTest::newRow("ai engines") << "gpt"
                                << "AI Engines"
                                << "/gpt.ai";
    QTest::newRow("applications") << "zoom.media"
                                  << "Applications"
                                  << "/zoom.app";
    QTest::newRow("unknown collection has no suffix") << "x.gif"
                                                      << "Customers"
                                                      << "/x";
    QTest::newRow("suffix alone") << ".web"
                                  << "Personal"
                                  << "/";
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
    QTest::newRow("slash and suffix removed") << "/acme.web"
                                              << "acme";
    QTest::newRow("backslash removed") << "\\acme"
                                       << "acme";
    QTest::newRow("dot taken literally") << "/cafe"
                                         << "cafe";
    QTest::newRow("suffix matched as written") << "/Acme.MEDIA"
                                               << "Acme.MEDIA";
    QTest::newRow("slashes trimmed from both ends") << "//acme/\\"
                                                    << "acme";
    QTest::newRow("only one suffix") << "/a.app.web"
                                     << "a.app";
    QTest::newRow("cut to forty") << QStringLiteral("/") + QString(50, u'x') << QString(40, u'x');
    // Forty emoji are eighty UTF-16 units; the cut must not fall inside a pair.
    QTest::newRow("cut counts emoji as one")
        << QStringLiteral("/") + QStringLiteral("😀").repeated(45) << QStringLiteral("😀").repeated(40);
    QTest::newRow("cut keeps accents with letters")
        << QStringLiteral("/") + QStringLiteral("e\u0301").repeated(41) << QStringLiteral("e\u0301").repeated(40);
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
    clip.group = QStringLiteral("Work");
    clip.groups = QStringList{QStringLiteral("work"), QStringLiteral("Sales"), QStringLiteral("SALES")};
    QCOMPARE(clip.allGroups(), (QStringList{QStringLiteral("Work"), QStringLiteral("Sales")}));

    clip.groups.reset();
    QCOMPARE(clip.allGroups(), QStringList{QStringLiteral("Work")});
}

void TestShortcutRecord::builtInCollectionsInDisplayOrder()
{
    const QStringList& names = builtInCollections();
    QCOMPARE(names.size(), 16);
    QCOMPARE(names.first(), QStringLiteral("Applications"));
    QCOMPARE(names.indexOf(QStringLiteral("Personal")), 10);
    QCOMPARE(names.last(), QStringLiteral("Imported"));
}

namespace {

Clip fullClip()
{
    Clip clip;
    clip.id = QUuid(QStringLiteral("{6f1c2e0a-0b9d-4c55-9a8e-1d2c3b4a5f60}"));
    clip.key = QStringLiteral("/ty");
    clip.name = QStringLiteral("Thank you");
    clip.text = QStringLiteral("Thank you! {{date}}");
    clip.group = QStringLiteral("Work");
    clip.files = {QStringLiteral("/home/u/a.png")};
    clip.directMediaPaste = false;
    clip.groups = QStringList{QStringLiteral("Sales")};
    clip.appBundleIdentifier = QStringLiteral("org.gnome.Calculator.desktop");
    clip.appPath = QStringLiteral("/usr/share/applications/org.gnome.Calculator.desktop");
    clip.isMathResult = true;
    clip.webURL = QStringLiteral("https://example.org");
    clip.defaultMediaArticle = QStringLiteral("Ada Lovelace");
    return clip;
}

QJsonObject minimalObject()
{
    return QJsonObject{
        {QStringLiteral("id"), QStringLiteral("6F1C2E0A-0B9D-4C55-9A8E-1D2C3B4A5F60")},
        {QStringLiteral("key"), QStringLiteral("/ty")},
        {QStringLiteral("name"), QStringLiteral("Thank you")},
        {QStringLiteral("text"), QStringLiteral("Thanks")},
        {QStringLiteral("group"), QStringLiteral("Personal")},
        {QStringLiteral("files"), QJsonArray()},
    };
}

} // namespace

void TestShortcutRecord::jsonRoundTripKeepsEveryField()
{
    const Clip clip = fullClip();
    const QJsonObject object = clip.toJson();
    QCOMPARE(object.size(), 13);
    QCOMPARE(object.value(QStringLiteral("id")).toString(), QStringLiteral("6F1C2E0A-0B9D-4C55-9A8E-1D2C3B4A5F60"));
    const QByteArray bytes = QJsonDocument(object).toJson();
    const std::optional<Clip> decoded = Clip::fromJson(QJsonDocument::fromJson(bytes).object());
    QVERIFY(decoded);
    QCOMPARE(*decoded, clip);
}

void TestShortcutRecord::jsonOmitsAbsentOptionals()
{
    const std::optional<Clip> clip = Clip::fromJson(minimalObject());
    QVERIFY(clip);
    QVERIFY(!clip->groups && !clip->webURL && !clip->directMediaPaste && !clip->defaultMediaArticle);
    QCOMPARE(clip->toJson(), minimalObject());
}

void TestShortcutRecord::jsonRejects_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QJsonValue>("value"); // undefined removes the key

    for (const char* required : {"id", "key", "name", "text", "group", "files"}) {
        QTest::addRow("missing %s", required) << QString::fromLatin1(required) << QJsonValue(QJsonValue::Undefined);
        QTest::addRow("null %s", required) << QString::fromLatin1(required) << QJsonValue(QJsonValue::Null);
    }
    QTest::newRow("name as number") << "name" << QJsonValue(3);
    QTest::newRow("files as text") << "files" << QJsonValue(QStringLiteral("/a.png"));
    QTest::newRow("files with a number") << "files" << QJsonValue(QJsonArray{QStringLiteral("/a"), 1});
    QTest::newRow("id not a uuid") << "id" << QJsonValue(QStringLiteral("not-a-uuid"));
    QTest::newRow("id in braces") << "id" << QJsonValue(QStringLiteral("{6F1C2E0A-0B9D-4C55-9A8E-1D2C3B4A5F60}"));
    QTest::newRow("id without hyphens") << "id" << QJsonValue(QStringLiteral("6F1C2E0A0B9D4C559A8E1D2C3B4A5F60"));
    QTest::newRow("directMediaPaste as text") << "directMediaPaste" << QJsonValue(QStringLiteral("true"));
    QTest::newRow("groups with an object") << "groups" << QJsonValue(QJsonArray{QJsonObject()});
    QTest::newRow("webURL as bool") << "webURL" << QJsonValue(true);
    QTest::newRow("isMathResult as number") << "isMathResult" << QJsonValue(1);
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
}

void TestShortcutRecord::jsonAcceptsNullOptionalsAndLowerCaseId()
{
    QJsonObject object = minimalObject();
    object.insert(QStringLiteral("id"), QStringLiteral("6f1c2e0a-0b9d-4c55-9a8e-1d2c3b4a5f60"));
    object.insert(QStringLiteral("webURL"), QJsonValue::Null);
    object.insert(QStringLiteral("somethingNewer"), 42);
    const std::optional<Clip> clip = Clip::fromJson(object);
    QVERIFY(clip);
    QVERIFY(!clip->webURL);
    QCOMPARE(uuidText(clip->id), QStringLiteral("6F1C2E0A-0B9D-4C55-9A8E-1D2C3B4A5F60"));
}

void TestShortcutRecord::listDecodeFailsOnOneBadRecord()
{
    QJsonObject bad = minimalObject();
    bad.remove(QStringLiteral("text"));
    QVERIFY(clipsFromJson(QJsonArray{minimalObject(), minimalObject()}));
    QVERIFY(!clipsFromJson(QJsonArray{minimalObject(), bad}));
    QVERIFY(!clipsFromJson(QJsonArray{minimalObject(), 7}));
    QCOMPARE(clipsFromJson(QJsonArray())->size(), 0);
}

void TestShortcutRecord::matchingIgnoresCaseButKeepsStoredKey()
{
    QVERIFY(triggerMatches(QStringLiteral("\\TY"), QStringLiteral("/ty")));
    QVERIFY(triggerMatches(QStringLiteral(" ty "), QStringLiteral("/Ty")));
    QVERIFY(!triggerMatches(QStringLiteral("\\ty2"), QStringLiteral("/ty")));
}

QTEST_GUILESS_MAIN(TestShortcutRecord)
#include "tst_shortcut_record.moc"
