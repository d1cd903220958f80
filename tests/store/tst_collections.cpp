#include "store/collections.h"

#include <QJsonDocument>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(tavo::Clip)
Q_DECLARE_METATYPE(tavo::CollectionRecord)

namespace {

QStringList strings(std::initializer_list<const char*> items)
{
    QStringList list;
    for (const char* item : items) {
        list.append(QString::fromUtf8(item));
    }
    return list;
}

QDateTime utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int msec = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, msec), Qt::UTC);
}

Clip makeClip(const char* key, const char* name, const char* text, const char* group,
              std::initializer_list<const char*> groups = {}, std::initializer_list<const char*> files = {})
{
    Clip clip;
    clip.key = QString::fromUtf8(key);
    clip.name = QString::fromUtf8(name);
    clip.text = QString::fromUtf8(text);
    clip.group = QString::fromUtf8(group);
    if (groups.size() > 0) {
        clip.groups = strings(groups);
    }
    clip.files = strings(files);
    return clip;
}

QStringList keysOf(const QList<Clip>& clips)
{
    QStringList keys;
    for (const Clip& clip : clips) {
        keys.append(clip.key);
    }
    return keys;
}

CollectionRecord makeRecord(const char* collection, const char* name, const char* alias,
                            const QMap<QString, QString>& values = {})
{
    return {uuidText(QUuid::createUuid()),
            QString::fromUtf8(collection),
            QString::fromUtf8(name),
            QString::fromUtf8(alias),
            values,
            {},
            utc(2024, 5, 1)};
}

QJsonObject validField()
{
    return QJsonDocument::fromJson(
               R"({"id": "F1", "name": "Email", "type": "Text", "required": false, "defaultValue": ""})")
        .object();
}

QJsonObject validDefinition()
{
    QJsonObject definition =
        QJsonDocument::fromJson(R"({"id": "0F4A1C2E-0B9D-4C55-9A8E-1D2C3B4A5F60", "name": "Customers",
                                            "description": "People we bill", "updatedAt": 86400.5})")
            .object();
    definition.insert(u"fields"_s, QJsonArray{validField()});
    return definition;
}

QJsonObject validRecord()
{
    return QJsonDocument::fromJson(
               R"({"id": "1A4A1C2E-0B9D-4C55-9A8E-1D2C3B4A5F60", "collection": "Customers", "name": "Acme",
                          "alias": "acme", "values": {"Email": "a@acme.test"}, "files": ["/home/u/logo.png"],
                          "updatedAt": 0})")
        .object();
}

// An undefined value removes the key.
QJsonObject changed(QJsonObject object, const QString& key, const QJsonValue& value)
{
    if (value.isUndefined()) {
        object.remove(key);
    } else {
        object.insert(key, value);
    }
    return object;
}

// The library every filter row runs on; "Secret" is the collection the rows hide.
QList<Clip> filterLibrary()
{
    return {
        makeClip("/hello", "Hello", "Hello there", "Personal"),
        makeClip("/bye", "Goodbye", "See you {{date}}", "Work", {"Secret"}),
        makeClip("/sec", "Secret", "classified", "Secret"),
        makeClip("/live", "Live", "plain", "Live & dynamic"),
        makeClip("/pic.media", "Picture", "", "Media files", {}, {"/home/u/a.png"}),
        makeClip("/idea", "Idea", "an idea", "Ideas"),
        makeClip("/idea2", "Second", "x", "ideas"),
        makeClip("/nogroup", "Orphan", "no collection", " "),
        makeClip("/a1", "A1", "first", "Work"),
        makeClip("/a2", "A2", "second", "Work"),
    };
}

} // namespace

class TestCollections : public QObject
{
    Q_OBJECT

private slots:
    void categoryFilter_data();
    void categoryFilter();
    void jsonRoundTrip();
    void strictJsonRejects_data();
    void strictJsonRejects();
    void allCategoriesLeaveOutRepeats();
    void collectionCategory_data();
    void collectionCategory();
    void filterShortcutClips_data();
    void filterShortcutClips();
    void duplicateShortcutsGroupedSortedByKey();
    void duplicateCollections_data();
    void duplicateCollections();
};

void TestCollections::jsonRoundTrip()
{
    // Absent category: decoded as absent, and written back without the key.
    const std::optional<CollectionDefinition> definition = CollectionDefinition::fromJson(validDefinition());
    QVERIFY(definition && !definition->category);
    QCOMPARE(definition->updatedAt, utc(2001, 1, 2, 0, 0, 0, 500));
    QCOMPARE(definition->toJson(), validDefinition());
    // A null category is read as absent rather than failing the whole file.
    const auto withNull = CollectionDefinition::fromJson(changed(validDefinition(), u"category"_s, QJsonValue::Null));
    QVERIFY(withNull && !withNull->category);

    CollectionRecord record =
        makeRecord("Customers", "Acme Ltd", "acme", {{u"Email"_s, u"hi@acme.test"_s}, {u"Phone"_s, u"+1 555"_s}});
    record.files = strings({"/home/u/logo.png"});
    record.updatedAt = utc(2026, 7, 8, 9, 10, 11, 120);
    const QByteArray bytes = QJsonDocument(record.toJson()).toJson();
    QCOMPARE(CollectionRecord::fromJson(QJsonDocument::fromJson(bytes).object()), record);
}

void TestCollections::strictJsonRejects_data()
{
    QTest::addColumn<bool>("isRecord");
    QTest::addColumn<QJsonValue>("entry");
    const QJsonValue missing = QJsonValue::Undefined;
    const QJsonArray fieldWithoutType{validField(), changed(validField(), u"type"_s, missing)};
    QTest::newRow("field: missing type") << false
                                         << QJsonValue(changed(validDefinition(), u"fields"_s, fieldWithoutType));
    QTest::newRow("record: null alias") << true << QJsonValue(changed(validRecord(), u"alias"_s, QJsonValue::Null));
    QTest::newRow("record: a value that is a number")
        << true << QJsonValue(changed(validRecord(), u"values"_s, QJsonObject{{u"Phone"_s, 555}}));
    QTest::newRow("record: date out of range") << true << QJsonValue(changed(validRecord(), u"updatedAt"_s, 1e300));
}

void TestCollections::strictJsonRejects()
{
    QFETCH(bool, isRecord);
    QFETCH(QJsonValue, entry);
    // One bad entry fails the whole file.
    const QJsonArray valid{isRecord ? validRecord() : validDefinition()};
    QVERIFY(isRecord ? recordsFromJson(valid).has_value() : definitionsFromJson(valid).has_value());
    QVERIFY(isRecord ? !recordsFromJson(valid + entry) : !definitionsFromJson(valid + entry));
}

void TestCollections::allCategoriesLeaveOutRepeats()
{
    const QStringList all =
        allCollectionCategories(strings({"marketing", "Retail", "Events", "retail", " ", "OTHER", "Events"}));
    // A custom "marketing" repeats the built-in "Marketing" and is dropped.
    QCOMPARE(all.mid(tavoCollectionCategories().size()), strings({"Retail", "Events"}));
}

void TestCollections::collectionCategory_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("hasDefinition");
    QTest::addColumn<QString>("description");
    QTest::addColumn<std::optional<QString>>("category");
    QTest::addColumn<QString>("expected");
    const std::optional<QString> none;
    QTest::newRow("system collection whatever its definition says")
        << u"customers"_s << true << u""_s << std::optional(u"Marketing"_s) << u"System generated"_s;
    QTest::newRow("no category: the finance row comes before sales")
        << u"Client Invoices"_s << true << u""_s << none << u"Finance & Billing"_s;
    QTest::newRow("empty category falls back to keywords")
        << u"Vendor list"_s << true << u""_s << std::optional(QString()) << u"Sales & CRM"_s;
    QTest::newRow("name and description joined by a blank")
        << u"Purchase"_s << true << u"order forms"_s << none << u"Finance & Billing"_s;
    QTest::newRow("no definition: plain substring, calendar holds nda")
        << u"CALENDAR"_s << false << u""_s << none << u"Legal & Agreements"_s;
    QTest::newRow("nothing matches") << u"Zebra"_s << true << u""_s << none << u"Utilities"_s;
}

void TestCollections::collectionCategory()
{
    QFETCH(QString, name);
    QFETCH(bool, hasDefinition);
    QFETCH(QString, description);
    QFETCH(std::optional<QString>, category);
    QFETCH(QString, expected);
    CollectionDefinition definition = CollectionDefinition::emptyFor(name);
    definition.description = description;
    definition.category = category;
    QCOMPARE(tavo::collectionCategory(name, hasDefinition ? &definition : nullptr), expected);
}

void TestCollections::filterShortcutClips_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("collection");
    QTest::addColumn<bool>("includeHidden");
    QTest::addColumn<QStringList>("keys");

    const QString all = allCollectionsName;
    const QStringList visible = strings({"/hello", "/bye", "/live", "/pic.media", "/idea", "/idea2", "/a1", "/a2"});
    QTest::newRow("empty query keeps every visible clip") << u""_s << all << all << false << visible;
    QTest::newRow("hidden and groupless clips stay when asked")
        << u""_s << all << all << true << keysOf(filterLibrary());
    QTest::newRow("query matches text ignoring case") << u"THERE"_s << all << all << false << strings({"/hello"});
    QTest::newRow("style suffix stripped from query") << u"hello-b"_s << all << all << false << strings({"/hello"});
    QTest::newRow("batch in request order, hidden clips skipped")
        << u"a2&sec&a1"_s << all << all << false << strings({"/a2", "/a1"});
    QTest::newRow("live section: group or braces")
        << u""_s << u"Live & dynamic"_s << all << false << strings({"/bye", "/live"});
    QTest::newRow("sound section: clips with files")
        << u""_s << u"Sound & media"_s << all << false << strings({"/pic.media"});
    QTest::newRow("collections section, one collection ignoring case")
        << u""_s << u"Collections"_s << u"work"_s << false << strings({"/bye", "/a1", "/a2"});
    QTest::newRow("ideas section wants the exact group")
        << u""_s << u"Shortcut ideas"_s << all << false << strings({"/idea"});
    QTest::newRow("hidden collection as section shows only clips visible elsewhere")
        << u""_s << u"Secret"_s << all << false << strings({"/bye"});
}

void TestCollections::filterShortcutClips()
{
    QFETCH(QString, query);
    QFETCH(QString, section);
    QFETCH(QString, collection);
    QFETCH(bool, includeHidden);
    QFETCH(QStringList, keys);
    const QStringList hidden{u"secret"_s};
    QCOMPARE(keysOf(tavo::filterShortcutClips(filterLibrary(), hidden, query, section, collection, includeHidden)),
             keys);
}

void TestCollections::duplicateShortcutsGroupedSortedByKey()
{
    const QList<Clip> clips{
        makeClip("/Hello.app", "Hello app", "", "Applications"),
        makeClip("/bye", "Bye", "", "Work"),
        makeClip("\\hello", "Hello", "", "Personal", {"Work"}),
        makeClip("/hello.e.web", "Not the same", "", "Emoticons"),
        makeClip(" /BYE.web\n", "Bye site", "", "Websites & URLs"),
        makeClip("hello", "Hello again", "", "personal"),
        makeClip("/unique", "Unique", "", "Work"),
    };
    const QList<DuplicateShortcutGroup> groups = findDuplicateShortcuts(clips);
    QCOMPARE(groups.size(), 2);
    QCOMPARE(groups[0].shortcut, u"/bye"_s);
    QCOMPARE(keysOf(groups[0].clips), (QStringList{clips[1].key, clips[4].key}));
    QCOMPARE(groups[0].collections, strings({"Websites & URLs", "Work"}));
    QCOMPARE(groups[1].shortcut, u"/hello"_s);
    QCOMPARE(groups[1].clips, (QList<Clip>{clips[0], clips[2], clips[5]}));
    QCOMPARE(groups[1].collections, strings({"Applications", "Personal", "Work"}));
}

void TestCollections::duplicateCollections_data()
{
    QTest::addColumn<QStringList>("collections");
    QTest::addColumn<QList<Clip>>("clips");
    QTest::addColumn<QList<CollectionRecord>>("records");
    QTest::addColumn<QStringList>("groups"); // each "<names joined with ','>: <matching items>"

    // Empty collections are skipped, a name listed twice is taken once; blanks of any script count.
    QTest::newRow("order, case and spacing make no difference")
        << strings({"Team A", "Team B", "Empty", "Empty too", "team a"})
        << QList<Clip>{makeClip("/sig", "Signature", "Best regards,\nAnn", "Team A"),
                       makeClip("/addr", "Address", "1 Main St", "Team A"),
                       makeClip("/ADDR", "address", "1  main   st", "team b"),
                       makeClip("/sig", " signature", "best\u2003regards,\u2028ANN ", "Work", {"Team B"})}
        << QList<CollectionRecord>{makeRecord("Team A", "Acme", "acme",
                                              {{u"Email"_s, u"hi@acme.test"_s}, {u"Name"_s, u"Acme"_s}}),
                                   makeRecord("TEAM B", "ACME", "Acme",
                                              {{u"name"_s, u" acme"_s}, {u"EMAIL"_s, u"HI@acme.test"_s}})}
        << strings({"Team A,Team B: 3"});
    QTest::newRow("one differing item") << strings({"A", "B", "C"})
                                        << QList<Clip>{makeClip("/x", "X", "same", "A"),
                                                       makeClip("/x", "X", "same", "B"),
                                                       makeClip("/y", "Y", "more", "B"),
                                                       makeClip("/x", "X", "different", "C")}
                                        << QList<CollectionRecord>() << QStringList();
    QTest::newRow("files compare by last component, ignoring case")
        << strings({"A", "B", "C"})
        << QList<Clip>{makeClip("/p", "P", "", "A", {}, {"/home/u/One.PNG", "/home/u/two.png"}),
                       makeClip("/p", "P", "", "B", {}, {"/other/place/two.png", "/tmp/one.png"}),
                       makeClip("/p", "P", "", "C", {}, {"/home/u/one.png", "/home/u/three.png"})}
        << QList<CollectionRecord>() << strings({"A,B: 1"});
}

void TestCollections::duplicateCollections()
{
    QFETCH(QStringList, collections);
    QFETCH(QList<Clip>, clips);
    QFETCH(QList<CollectionRecord>, records);
    QFETCH(QStringList, groups);
    QStringList found;
    for (const DuplicateCollectionGroup& group : findDuplicateCollections(collections, clips, records)) {
        found.append(group.collectionNames.join(u',') + u": "_s + QString::number(group.matchingItems));
    }
    QCOMPARE(found, groups);
}

void TestCollections::categoryFilter_data()
{
    QTest::addColumn<QString>("category");
    QTest::addColumn<QStringList>("keys");
    QTest::newRow("all categories") << allCategoriesName << QStringList{u"/a"_s, u"/b"_s, u"/c"_s};
    // Built-in collections are system generated; a further collection counts as well.
    QTest::newRow("system generated") << u"system generated"_s << QStringList{u"/a"_s, u"/b"_s};
    QTest::newRow("the user's own category") << u"Cooking"_s << QStringList{u"/b"_s};
}

void TestCollections::categoryFilter()
{
    QFETCH(QString, category);
    QFETCH(QStringList, keys);
    CollectionDefinition recipes = CollectionDefinition::emptyFor(u"Recipes"_s);
    recipes.category = u"Cooking"_s;
    const QList<Clip> clips{makeClip("/a", "", "", "Personal"), makeClip("/b", "", "", "Work", {"recipes"}),
                            makeClip("/c", "", "", "Garden notes")};
    QCOMPARE(keysOf(filterClipsByCategory(clips, category, {recipes})), keys);
}

QTEST_GUILESS_MAIN(TestCollections)
#include "tst_collections.moc"
