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
    CollectionRecord record;
    record.id = uuidText(QUuid::createUuid());
    record.collection = QString::fromUtf8(collection);
    record.name = QString::fromUtf8(name);
    record.alias = QString::fromUtf8(alias);
    record.values = values;
    record.updatedAt = utc(2024, 5, 1);
    return record;
}

QJsonObject jsonObject(const char* json)
{
    return QJsonDocument::fromJson(json).object();
}

QJsonObject validField()
{
    return jsonObject(R"({"id": "F1", "name": "Email", "type": "Text", "required": false, "defaultValue": ""})");
}

QJsonObject validDefinition()
{
    QJsonObject definition = jsonObject(R"({"id": "0F4A1C2E-0B9D-4C55-9A8E-1D2C3B4A5F60", "name": "Customers",
                                            "description": "People we bill", "updatedAt": 86400.5})");
    definition.insert(u"fields"_s, QJsonArray{validField()});
    return definition;
}

QJsonObject validRecord()
{
    return jsonObject(R"({"id": "1A4A1C2E-0B9D-4C55-9A8E-1D2C3B4A5F60", "collection": "Customers", "name": "Acme",
                          "alias": "acme", "values": {"Email": "a@acme.test"}, "files": ["/home/u/logo.png"],
                          "updatedAt": 0})");
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
    void referenceSeconds_data();
    void referenceSeconds();
    void corruptDatesAreInvalid();

    void definitionRoundTrip();
    void definitionWithoutCategory();
    void strictJsonRejects_data();
    void strictJsonRejects();
    void fileDecodeFailsOnOneBadEntry();
    void emptyDefinitionForName();
    void recordFromClip();

    void builtInCategoriesInOrder();
    void suggestedCategory_data();
    void suggestedCategory();
    void allCategoriesLeaveOutRepeats();
    void collectionCategory_data();
    void collectionCategory();
    void collectionSymbol();

    void filterShortcutClips_data();
    void filterShortcutClips();

    void duplicateShortcutsGroupedSortedByKey();
    void normalizedCollectionText();
    void duplicateCollections_data();
    void duplicateCollections();
};

void TestCollections::referenceSeconds_data()
{
    QTest::addColumn<QDateTime>("moment");
    QTest::addColumn<double>("seconds");
    QTest::newRow("before the reference is negative") << utc(2000, 12, 31, 23, 59, 59, 500) << -0.5;
    QTest::newRow("milliseconds kept") << utc(2024, 1, 1, 0, 0, 0, 250) << 725760000.25;
    QTest::newRow("time zone does not matter") << QDateTime(QDate(2001, 1, 1), QTime(1, 0), QTimeZone(3600)) << 0.0;
}

void TestCollections::referenceSeconds()
{
    QFETCH(QDateTime, moment);
    QFETCH(double, seconds);
    QCOMPARE(tavo::referenceSeconds(moment), seconds);
    QCOMPARE(fromReferenceSeconds(seconds), moment);
}

void TestCollections::corruptDatesAreInvalid()
{
    QVERIFY(!fromReferenceSeconds(std::numeric_limits<double>::quiet_NaN()).isValid());
    QVERIFY(!fromReferenceSeconds(std::numeric_limits<double>::infinity()).isValid());
    QVERIFY(!fromReferenceSeconds(1e300).isValid());
}

void TestCollections::definitionRoundTrip()
{
    CollectionDefinition definition;
    definition.id = u"0F4A1C2E-0B9D-4C55-9A8E-1D2C3B4A5F60"_s;
    definition.name = u"Suppliers"_s;
    definition.description = u"Who sends us parts"_s;
    definition.fields = {{u"F1"_s, u"Notes"_s, u"multiline"_s, true, u"none"_s}};
    definition.updatedAt = utc(2025, 3, 4, 5, 6, 7, 890);
    definition.category = u"Operations"_s;
    const QByteArray bytes = QJsonDocument(definition.toJson()).toJson();
    QCOMPARE(CollectionDefinition::fromJson(QJsonDocument::fromJson(bytes).object()), definition);

    CollectionRecord record =
        makeRecord("Customers", "Acme Ltd", "acme", {{u"Email"_s, u"hi@acme.test"_s}, {u"Phone"_s, u"+1 555"_s}});
    record.files = strings({"/home/u/logo.png"});
    record.updatedAt = utc(2026, 7, 8, 9, 10, 11, 120);
    const QByteArray recordBytes = QJsonDocument(record.toJson()).toJson();
    QCOMPARE(CollectionRecord::fromJson(QJsonDocument::fromJson(recordBytes).object()), record);
}

void TestCollections::definitionWithoutCategory()
{
    // Absent category: decoded as absent, and written back without the key.
    const std::optional<CollectionDefinition> decoded = CollectionDefinition::fromJson(validDefinition());
    QVERIFY(decoded);
    QVERIFY(!decoded->category);
    QCOMPARE(decoded->updatedAt, utc(2001, 1, 2, 0, 0, 0, 500));
    QCOMPARE(decoded->toJson(), validDefinition());

    // A null category is read as absent rather than failing the whole file.
    const auto withNull = CollectionDefinition::fromJson(changed(validDefinition(), u"category"_s, QJsonValue::Null));
    QVERIFY(withNull);
    QVERIFY(!withNull->category);
}

void TestCollections::strictJsonRejects_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QJsonObject>("object");
    const QJsonValue missing = QJsonValue::Undefined;
    const auto field = [&](const char* tag, const char* key, const QJsonValue& value) {
        QTest::newRow(tag) << u"field"_s << changed(validField(), QString::fromUtf8(key), value);
    };
    const auto definition = [&](const char* tag, const char* key, const QJsonValue& value) {
        QTest::newRow(tag) << u"definition"_s << changed(validDefinition(), QString::fromUtf8(key), value);
    };
    const auto record = [&](const char* tag, const char* key, const QJsonValue& value) {
        QTest::newRow(tag) << u"record"_s << changed(validRecord(), QString::fromUtf8(key), value);
    };
    field("field: missing id", "id", missing);
    field("field: required as text", "required", u"false"_s);
    definition("definition: missing description", "description", missing);
    definition("definition: category as number", "category", 1);
    definition("definition: date as text", "updatedAt", u"2024-01-01T00:00:00Z"_s);
    definition("definition: one field without its type", "fields",
               QJsonArray{validField(), changed(validField(), u"type"_s, missing)});
    record("record: missing files", "files", missing);
    record("record: null alias", "alias", QJsonValue::Null);
    record("record: a value that is a number", "values", QJsonObject{{u"Phone"_s, 555}});
    record("record: date out of range", "updatedAt", 1e300);
}

void TestCollections::strictJsonRejects()
{
    QFETCH(QString, kind);
    QFETCH(QJsonObject, object);
    if (kind == u"field") {
        QVERIFY(CollectionFieldDefinition::fromJson(validField()));
        QVERIFY(!CollectionFieldDefinition::fromJson(object));
    } else if (kind == u"definition") {
        QVERIFY(CollectionDefinition::fromJson(validDefinition()));
        QVERIFY(!CollectionDefinition::fromJson(object));
    } else {
        QVERIFY(CollectionRecord::fromJson(validRecord()));
        QVERIFY(!CollectionRecord::fromJson(object));
    }
}

void TestCollections::fileDecodeFailsOnOneBadEntry()
{
    QVERIFY(recordsFromJson(QJsonArray{validRecord(), validRecord()}));
    QVERIFY(!recordsFromJson(QJsonArray{validRecord(), changed(validRecord(), u"alias"_s, QJsonValue::Undefined)}));
    QVERIFY(!recordsFromJson(QJsonArray{validRecord(), 3}));

    const auto definitions = definitionsFromJson(QJsonArray{validDefinition()});
    QVERIFY(definitions);
    QCOMPARE(definitionsToJson(*definitions), QJsonArray{validDefinition()});
    QVERIFY(!definitionsFromJson(
        QJsonArray{validDefinition(), changed(validDefinition(), u"id"_s, QJsonValue::Undefined)}));
}

void TestCollections::emptyDefinitionForName()
{
    const CollectionDefinition definition = CollectionDefinition::emptyFor(u"Vendors"_s, utc(2024, 2, 3));
    QVERIFY(parseUuid(definition.id));
    QVERIFY(definition.id == definition.id.toUpper() && !definition.id.startsWith(u'{'));
    QCOMPARE(definition, (CollectionDefinition{definition.id, u"Vendors"_s, {}, {}, utc(2024, 2, 3), std::nullopt}));
    QVERIFY(CollectionDefinition::emptyFor(u"Vendors"_s).id != definition.id);
}

void TestCollections::recordFromClip()
{
    QVERIFY(isRecordLikeCollection(u"SUPPLIERS"_s));
    QVERIFY(!isRecordLikeCollection(u"Customer"_s));

    const Clip clip =
        makeClip("/Acme.web", "Acme Inc", "Acme Inc, 1 Main St", "Work", {"CUSTOMERS"}, {"/home/u/acme.png"});
    const CollectionRecord record = tavo::recordFromClip(clip, u"CUSTOMERS"_s, utc(2024, 6, 1));
    QVERIFY(parseUuid(record.id));
    const QMap<QString, QString> values{{u"Content"_s, clip.text}};
    QCOMPARE(record, (CollectionRecord{record.id, u"CUSTOMERS"_s, u"Acme Inc"_s, u"Acme"_s, values, clip.files,
                                       utc(2024, 6, 1)}));
}

void TestCollections::builtInCategoriesInOrder()
{
    QCOMPARE(tavoCollectionCategories(),
             strings({"System generated", "Finance & Billing", "Sales & CRM", "HR & People", "Legal & Agreements",
                      "Marketing", "Creative & Media", "Operations", "Productivity", "Collections & Data", "Utilities",
                      "Personal", "Work", "Other"}));
}

void TestCollections::suggestedCategory_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("context");
    QTest::addColumn<QString>("category");
    QTest::newRow("plain substring: calendar holds nda") << u"Calendar"_s << u""_s << u"Legal & Agreements"_s;
    QTest::newRow("case ignored") << u"CUSTOMER LIST"_s << u""_s << u"Sales & CRM"_s;
    QTest::newRow("context counts") << u"Misc"_s << u"weekly campaign ideas"_s << u"Marketing"_s;
    QTest::newRow("name and context joined by a blank") << u"Purchase"_s << u"order forms"_s << u"Finance & Billing"_s;
    QTest::newRow("last row") << u"Product catalog"_s << u""_s << u"Collections & Data"_s;
}

void TestCollections::suggestedCategory()
{
    QFETCH(QString, name);
    QFETCH(QString, context);
    QFETCH(QString, category);
    QCOMPARE(suggestedTavoCategory(name, context), category);
}

void TestCollections::allCategoriesLeaveOutRepeats()
{
    const QStringList all =
        allCollectionCategories(strings({"marketing", "Retail", "Events", "retail", " ", "OTHER", "Events"}));
    QCOMPARE(all.mid(0, 14), tavoCollectionCategories());
    QCOMPARE(all.mid(14), strings({"Retail", "Events"}));
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
    QTest::newRow("system collection without definition")
        << u"live & DYNAMIC"_s << false << u""_s << none << u"System generated"_s;
    QTest::newRow("user's category") << u"Shops"_s << true << u""_s << std::optional(u"Retail"_s) << u"Retail"_s;
    QTest::newRow("no category: the finance row comes before sales")
        << u"Client Invoices"_s << true << u""_s << none << u"Finance & Billing"_s;
    QTest::newRow("empty category falls back to keywords")
        << u"Vendor list"_s << true << u""_s << std::optional(QString()) << u"Sales & CRM"_s;
    QTest::newRow("no definition uses the name") << u"Team photos"_s << false << u""_s << none << u"Creative & Media"_s;
    QTest::newRow("description is the context")
        << u"Misc"_s << true << u"monthly payroll"_s << none << u"Finance & Billing"_s;
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

void TestCollections::collectionSymbol()
{
    QCOMPARE(tavo::collectionSymbol(u"WEBSITES & URLS"_s), u"globe"_s);
    QCOMPARE(tavo::collectionSymbol(u"Imported"_s), u"square.and.arrow.down"_s);
    QCOMPARE(tavo::collectionSymbol(u"Recipes"_s), u"folder.fill"_s);
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
    QTest::newRow("query matches name") << u"goodbye"_s << all << all << false << strings({"/bye"});
    QTest::newRow("query matches key") << u"/PIC"_s << all << all << false << strings({"/pic.media"});
    QTest::newRow("style suffix stripped from query") << u"hello-b"_s << all << all << false << strings({"/hello"});
    QTest::newRow("all-suffix query matches nothing") << u"-b"_s << all << all << false << QStringList();
    QTest::newRow("batch in request order") << u"a2&a1"_s << all << all << false << strings({"/a2", "/a1"});
    QTest::newRow("batch skips hidden clips") << u"sec&hello"_s << all << all << false << strings({"/hello"});
    QTest::newRow("live section: group or braces")
        << u""_s << u"Live & dynamic"_s << all << false << strings({"/bye", "/live"});
    QTest::newRow("sound section: clips with files")
        << u""_s << u"Sound & media"_s << all << false << strings({"/pic.media"});
    QTest::newRow("collections section, one collection ignoring case")
        << u""_s << u"Collections"_s << u"work"_s << false << strings({"/bye", "/a1", "/a2"});
    QTest::newRow("collections section, all collections") << u""_s << u"Collections"_s << all << false << visible;
    QTest::newRow("ideas section wants the exact group")
        << u""_s << u"Shortcut ideas"_s << all << false << strings({"/idea"});
    QTest::newRow("settings shows no shortcut") << u""_s << u"Settings"_s << all << false << QStringList();
    QTest::newRow("a collection as section") << u""_s << u"Work"_s << all << false << strings({"/bye", "/a1", "/a2"});
    QTest::newRow("all collections as section") << u""_s << all << u"Work"_s << false << visible;
    QTest::newRow("hidden collection as section shows only clips visible elsewhere")
        << u""_s << u"Secret"_s << all << false << strings({"/bye"});
    QTest::newRow("query and section together") << u"second"_s << u"Work"_s << all << false << strings({"/a2"});
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

    QCOMPARE(duplicateShortcutKey(u"/cafe"_s), u"/cafe"_s); // no dot, no suffix
    QCOMPARE(duplicateShortcutKey(u"\\\\x"_s), u"/\\x"_s);  // only the first backslash goes
}

void TestCollections::normalizedCollectionText()
{
    QCOMPARE(tavo::normalizedCollectionText(u"  Best \t\n Regards\n"_s), u"best regards"_s);
    // Blanks of any script, not only ASCII ones.
    QCOMPARE(tavo::normalizedCollectionText(u"Ünï\u00a0\u2003Code\u2028x"_s), u"ünï code x"_s);
}

void TestCollections::duplicateCollections_data()
{
    QTest::addColumn<QStringList>("collections");
    QTest::addColumn<QList<Clip>>("clips");
    QTest::addColumn<QList<CollectionRecord>>("records");
    QTest::addColumn<QStringList>("groups"); // each "<names joined with ','>: <matching items>"

    // Empty collections are skipped, and a name listed twice is taken once.
    QTest::newRow("order, case and spacing make no difference")
        << strings({"Team A", "Team B", "Empty", "Empty too", "team a"})
        << QList<Clip>{makeClip("/sig", "Signature", "Best regards,\nAnn", "Team A"),
                       makeClip("/addr", "Address", "1 Main St", "Team A"),
                       makeClip("/ADDR", "address", "1  main   st", "team b"),
                       makeClip("/sig", " signature", "best\tregards, ANN ", "Work", {"Team B"})}
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
    QTest::newRow("a record never matches a shortcut")
        << strings({"A", "B"}) << QList<Clip>{makeClip("x", "X", "", "A")}
        << QList<CollectionRecord>{makeRecord("B", "x", "x")} << QStringList();
    QTest::newRow("files compare by last component, ignoring case")
        << strings({"A", "B", "C"})
        << QList<Clip>{makeClip("/p", "P", "", "A", {}, {"/home/u/One.PNG", "/home/u/two.png"}),
                       makeClip("/p", "P", "", "B", {}, {"/other/place/two.png", "/tmp/one.png"}),
                       makeClip("/p", "P", "", "C", {}, {"/home/u/one.png", "/home/u/three.png"})}
        << QList<CollectionRecord>() << strings({"A,B: 1"});
    QTest::newRow("groups in the order of the library")
        << strings({"B1", "A1", "Alone", "B2", "A2"})
        << QList<Clip>{makeClip("/a", "A", "", "A1", {"A2"}), makeClip("/b", "B", "", "B1"),
                       makeClip("/b", "B", "", "B2"), makeClip("/c", "C", "", "Alone")}
        << QList<CollectionRecord>() << strings({"B1,B2: 1", "A1,A2: 1"});
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

QTEST_GUILESS_MAIN(TestCollections)
#include "tst_collections.moc"
