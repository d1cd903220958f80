#include "store/collections.h"

#include <QJsonDocument>
#include <QtTest>

using namespace tavo;

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
                            const QMap<QString, QString>& values, std::initializer_list<const char*> files = {})
{
    CollectionRecord record;
    record.id = uuidText(QUuid::createUuid());
    record.collection = QString::fromUtf8(collection);
    record.name = QString::fromUtf8(name);
    record.alias = QString::fromUtf8(alias);
    record.values = values;
    record.files = strings(files);
    record.updatedAt = utc(2024, 5, 1);
    return record;
}

QJsonObject validField()
{
    return QJsonObject{
        {QStringLiteral("id"), QStringLiteral("F1")},     {QStringLiteral("name"), QStringLiteral("Email")},
        {QStringLiteral("type"), QStringLiteral("Text")}, {QStringLiteral("required"), false},
        {QStringLiteral("defaultValue"), QString()},
    };
}

QJsonObject validDefinition()
{
    return QJsonObject{
        {QStringLiteral("id"), QStringLiteral("0F4A1C2E-0B9D-4C55-9A8E-1D2C3B4A5F60")},
        {QStringLiteral("name"), QStringLiteral("Customers")},
        {QStringLiteral("description"), QStringLiteral("People we bill")},
        {QStringLiteral("fields"), QJsonArray{validField()}},
        {QStringLiteral("updatedAt"), 86400.5},
    };
}

QJsonObject validRecord()
{
    return QJsonObject{
        {QStringLiteral("id"), QStringLiteral("1A4A1C2E-0B9D-4C55-9A8E-1D2C3B4A5F60")},
        {QStringLiteral("collection"), QStringLiteral("Customers")},
        {QStringLiteral("name"), QStringLiteral("Acme")},
        {QStringLiteral("alias"), QStringLiteral("acme")},
        {QStringLiteral("values"), QJsonObject{{QStringLiteral("Email"), QStringLiteral("a@acme.test")}}},
        {QStringLiteral("files"), QJsonArray{QStringLiteral("/home/u/logo.png")}},
        {QStringLiteral("updatedAt"), 0},
    };
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
    void referenceSecondsCountFrom2001_data();
    void referenceSecondsCountFrom2001();
    void corruptDatesAreInvalid();

    void fieldRoundTrip();
    void fieldRejects_data();
    void fieldRejects();
    void definitionRoundTripWithCategory();
    void definitionWithoutCategoryOmitsKey();
    void definitionReadsNullCategoryAsAbsent();
    void definitionRejects_data();
    void definitionRejects();
    void recordRoundTrip();
    void recordWritesDateAsSecondsSince2001();
    void recordRejects_data();
    void recordRejects();
    void fileDecodeFailsOnOneBadEntry();
    void emptyDefinitionForName();

    void recordLikeCollections_data();
    void recordLikeCollections();
    void recordFromClipCarriesClip();

    void builtInCategoriesInOrder();
    void suggestedCategory_data();
    void suggestedCategory();
    void allCategoriesLeaveOutRepeats();
    void collectionCategory_data();
    void collectionCategory();
    void collectionSymbol_data();
    void collectionSymbol();

    void filterShortcutClips_data();
    void filterShortcutClips();

    void duplicateShortcutKey_data();
    void duplicateShortcutKey();
    void duplicateShortcutsGroupedSortedByKey();
    void noDuplicateShortcutsGivesNoGroup();

    void normalizedCollectionText_data();
    void normalizedCollectionText();
    void identicalCollectionsIgnoreOrderCaseAndSpacing();
    void collectionsDifferingInOneItemAreNotIdentical();
    void fileNamesCompareByLastComponent();
    void duplicateCollectionGroupsInLibraryOrder();
};

void TestCollections::referenceSecondsCountFrom2001_data()
{
    QTest::addColumn<QDateTime>("moment");
    QTest::addColumn<double>("seconds");
    QTest::newRow("reference date is zero") << utc(2001, 1, 1) << 0.0;
    QTest::newRow("one day later") << utc(2001, 1, 2) << 86400.0;
    QTest::newRow("before the reference is negative") << utc(2000, 12, 31, 23, 59, 59, 500) << -0.5;
    QTest::newRow("milliseconds kept") << utc(2024, 1, 1, 0, 0, 0, 250) << 725760000.25;
    QTest::newRow("time zone does not matter") << QDateTime(QDate(2001, 1, 1), QTime(1, 0), QTimeZone(3600)) << 0.0;
}

void TestCollections::referenceSecondsCountFrom2001()
{
    QFETCH(QDateTime, moment);
    QFETCH(double, seconds);
    QCOMPARE(referenceSeconds(moment), seconds);
    QCOMPARE(fromReferenceSeconds(seconds), moment);
}

void TestCollections::corruptDatesAreInvalid()
{
    QVERIFY(!fromReferenceSeconds(std::numeric_limits<double>::quiet_NaN()).isValid());
    QVERIFY(!fromReferenceSeconds(std::numeric_limits<double>::infinity()).isValid());
    QVERIFY(!fromReferenceSeconds(1e300).isValid());
    QVERIFY(!CollectionRecord::fromJson(changed(validRecord(), QStringLiteral("updatedAt"), 1e300)));
}

void TestCollections::fieldRoundTrip()
{
    CollectionFieldDefinition field{QStringLiteral("F2"), QStringLiteral("Notes"), QStringLiteral("multiline"), true,
                                    QStringLiteral("none")};
    const std::optional<CollectionFieldDefinition> decoded = CollectionFieldDefinition::fromJson(field.toJson());
    QVERIFY(decoded);
    QCOMPARE(*decoded, field);
    QCOMPARE(field.toJson().size(), 5);
}

void TestCollections::fieldRejects_data()
{
    QTest::addColumn<QJsonObject>("object");
    for (const QString& key : strings({"id", "name", "type", "required", "defaultValue"})) {
        QTest::addRow("missing %s", qPrintable(key)) << changed(validField(), key, QJsonValue::Undefined);
        QTest::addRow("null %s", qPrintable(key)) << changed(validField(), key, QJsonValue::Null);
    }
    QTest::newRow("required as text") << changed(validField(), QStringLiteral("required"), QStringLiteral("false"));
    QTest::newRow("name as number") << changed(validField(), QStringLiteral("name"), 3);
}

void TestCollections::fieldRejects()
{
    QFETCH(QJsonObject, object);
    QVERIFY(CollectionFieldDefinition::fromJson(validField()));
    QVERIFY(!CollectionFieldDefinition::fromJson(object));
}

void TestCollections::definitionRoundTripWithCategory()
{
    CollectionDefinition definition;
    definition.id = QStringLiteral("0F4A1C2E-0B9D-4C55-9A8E-1D2C3B4A5F60");
    definition.name = QStringLiteral("Suppliers");
    definition.description = QStringLiteral("Who sends us parts");
    definition.fields = {{QStringLiteral("F1"), QStringLiteral("Phone"), QStringLiteral("Text"), false, QString()}};
    definition.updatedAt = utc(2025, 3, 4, 5, 6, 7, 890);
    definition.category = QStringLiteral("Operations");

    const QByteArray bytes = QJsonDocument(definition.toJson()).toJson();
    const std::optional<CollectionDefinition> decoded =
        CollectionDefinition::fromJson(QJsonDocument::fromJson(bytes).object());
    QVERIFY(decoded);
    QCOMPARE(*decoded, definition);
}

void TestCollections::definitionWithoutCategoryOmitsKey()
{
    const std::optional<CollectionDefinition> decoded = CollectionDefinition::fromJson(validDefinition());
    QVERIFY(decoded);
    QVERIFY(!decoded->category);
    QCOMPARE(decoded->fields.size(), 1);
    QCOMPARE(decoded->updatedAt, utc(2001, 1, 2, 0, 0, 0, 500));
    QCOMPARE(decoded->toJson(), validDefinition());
}

void TestCollections::definitionReadsNullCategoryAsAbsent()
{
    const std::optional<CollectionDefinition> decoded =
        CollectionDefinition::fromJson(changed(validDefinition(), QStringLiteral("category"), QJsonValue::Null));
    QVERIFY(decoded);
    QVERIFY(!decoded->category);

    const std::optional<CollectionDefinition> empty =
        CollectionDefinition::fromJson(changed(validDefinition(), QStringLiteral("category"), QString()));
    QVERIFY(empty);
    QCOMPARE(empty->category, std::optional<QString>(QString()));
}

void TestCollections::definitionRejects_data()
{
    QTest::addColumn<QJsonObject>("object");
    for (const QString& key : strings({"id", "name", "description", "fields", "updatedAt"})) {
        QTest::addRow("missing %s", qPrintable(key)) << changed(validDefinition(), key, QJsonValue::Undefined);
        QTest::addRow("null %s", qPrintable(key)) << changed(validDefinition(), key, QJsonValue::Null);
    }
    QTest::newRow("category as number") << changed(validDefinition(), QStringLiteral("category"), 1);
    QTest::newRow("date as text") << changed(validDefinition(), QStringLiteral("updatedAt"),
                                             QStringLiteral("2024-01-01T00:00:00Z"));
    QTest::newRow("fields as object") << changed(validDefinition(), QStringLiteral("fields"), QJsonObject());
    QTest::newRow("one field without its type")
        << changed(validDefinition(), QStringLiteral("fields"),
                   QJsonArray{validField(), changed(validField(), QStringLiteral("type"), QJsonValue::Undefined)});
    QTest::newRow("a field that is not an object")
        << changed(validDefinition(), QStringLiteral("fields"), QJsonArray{QStringLiteral("Email")});
}

void TestCollections::definitionRejects()
{
    QFETCH(QJsonObject, object);
    QVERIFY(!CollectionDefinition::fromJson(object));
}

void TestCollections::recordRoundTrip()
{
    CollectionRecord record = makeRecord("Customers", "Acme Ltd", "acme",
                                         {{QStringLiteral("Email"), QStringLiteral("hi@acme.test")},
                                          {QStringLiteral("Phone"), QStringLiteral("+1 555")}},
                                         {"/home/u/logo.png"});
    record.updatedAt = utc(2026, 7, 8, 9, 10, 11, 120);
    const QByteArray bytes = QJsonDocument(record.toJson()).toJson();
    const std::optional<CollectionRecord> decoded = CollectionRecord::fromJson(QJsonDocument::fromJson(bytes).object());
    QVERIFY(decoded);
    QCOMPARE(*decoded, record);
}

void TestCollections::recordWritesDateAsSecondsSince2001()
{
    CollectionRecord record = makeRecord("Customers", "Acme", "acme", {});
    record.updatedAt = utc(2001, 1, 1, 0, 1, 0);
    const QJsonValue date = record.toJson().value(QStringLiteral("updatedAt"));
    QVERIFY(date.isDouble());
    QCOMPARE(date.toDouble(), 60.0);
}

void TestCollections::recordRejects_data()
{
    QTest::addColumn<QJsonObject>("object");
    for (const QString& key : strings({"id", "collection", "name", "alias", "values", "files", "updatedAt"})) {
        QTest::addRow("missing %s", qPrintable(key)) << changed(validRecord(), key, QJsonValue::Undefined);
        QTest::addRow("null %s", qPrintable(key)) << changed(validRecord(), key, QJsonValue::Null);
    }
    QTest::newRow("a value that is a number")
        << changed(validRecord(), QStringLiteral("values"), QJsonObject{{QStringLiteral("Phone"), 555}});
    QTest::newRow("values as list") << changed(validRecord(), QStringLiteral("values"), QJsonArray());
    QTest::newRow("a file that is null") << changed(validRecord(), QStringLiteral("files"),
                                                    QJsonArray{QJsonValue::Null});
    QTest::newRow("alias as Boolean") << changed(validRecord(), QStringLiteral("alias"), true);
}

void TestCollections::recordRejects()
{
    QFETCH(QJsonObject, object);
    QVERIFY(CollectionRecord::fromJson(validRecord()));
    QVERIFY(!CollectionRecord::fromJson(object));
}

void TestCollections::fileDecodeFailsOnOneBadEntry()
{
    const QJsonObject bad = changed(validRecord(), QStringLiteral("alias"), QJsonValue::Undefined);
    QVERIFY(recordsFromJson(QJsonArray{validRecord(), validRecord()}));
    QVERIFY(!recordsFromJson(QJsonArray{validRecord(), bad}));
    QVERIFY(!recordsFromJson(QJsonArray{validRecord(), 3}));

    const std::optional<QList<CollectionDefinition>> definitions = definitionsFromJson(QJsonArray{validDefinition()});
    QVERIFY(definitions);
    QCOMPARE(definitionsToJson(*definitions), QJsonArray{validDefinition()});
    QVERIFY(!definitionsFromJson(
        QJsonArray{validDefinition(), changed(validDefinition(), QStringLiteral("id"), QJsonValue::Undefined)}));
}

void TestCollections::emptyDefinitionForName()
{
    const QDateTime now = utc(2024, 2, 3);
    const CollectionDefinition definition = CollectionDefinition::emptyFor(QStringLiteral("Vendors"), now);
    QCOMPARE(definition.name, QStringLiteral("Vendors"));
    QVERIFY(parseUuid(definition.id));
    QCOMPARE(definition.id, definition.id.toUpper());
    QVERIFY(!definition.id.startsWith(u'{'));
    QVERIFY(definition.description.isEmpty());
    QVERIFY(definition.fields.isEmpty());
    QVERIFY(!definition.category);
    QCOMPARE(definition.updatedAt, now);
    QVERIFY(CollectionDefinition::emptyFor(QStringLiteral("Vendors"), now).id != definition.id);
}

void TestCollections::recordLikeCollections_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("recordLike");
    for (const QString& name : strings({"companies", "customers", "products", "vendors", "employees", "contacts",
                                        "services", "candidates", "roles", "suppliers"})) {
        QTest::addRow("%s", qPrintable(name)) << name << true;
    }
    QTest::newRow("compared lower-cased") << "SUPPLIERS" << true;
    QTest::newRow("a singular is not one") << "Customer" << false;
    QTest::newRow("invoices are not records") << "Invoices" << false;
    QTest::newRow("blanks count") << " roles" << false;
}

void TestCollections::recordLikeCollections()
{
    QFETCH(QString, name);
    QFETCH(bool, recordLike);
    QCOMPARE(isRecordLikeCollection(name), recordLike);
}

void TestCollections::recordFromClipCarriesClip()
{
    const Clip clip =
        makeClip("/Acme.web", "Acme Inc", "Acme Inc, 1 Main St", "Work", {"CUSTOMERS"}, {"/home/u/acme.png"});
    const QDateTime now = utc(2024, 6, 1);
    const CollectionRecord record = recordFromClip(clip, QStringLiteral("CUSTOMERS"), now);
    QCOMPARE(record.collection, QStringLiteral("CUSTOMERS"));
    QCOMPARE(record.name, QStringLiteral("Acme Inc"));
    QCOMPARE(record.alias, migratedRecordAlias(clip.key));
    QCOMPARE(record.alias, QStringLiteral("Acme"));
    QCOMPARE(record.values, (QMap<QString, QString>{{QStringLiteral("Content"), clip.text}}));
    QCOMPARE(record.files, clip.files);
    QCOMPARE(record.updatedAt, now);
    QVERIFY(parseUuid(record.id));
    QCOMPARE(record.id, record.id.toUpper());
}

void TestCollections::builtInCategoriesInOrder()
{
    const QStringList expected =
        strings({"System generated", "Finance & Billing", "Sales & CRM", "HR & People", "Legal & Agreements",
                 "Marketing", "Creative & Media", "Operations", "Productivity", "Collections & Data", "Utilities",
                 "Personal", "Work", "Other"});
    QCOMPARE(tavoCollectionCategories(), expected);
}

void TestCollections::suggestedCategory_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("context");
    QTest::addColumn<QString>("category");
    QTest::newRow("finance row comes before sales") << "Client Invoices"
                                                    << ""
                                                    << "Finance & Billing";
    QTest::newRow("no keyword") << "Zebra"
                                << ""
                                << "Utilities";
    QTest::newRow("empty name and context") << ""
                                            << ""
                                            << "Utilities";
    QTest::newRow("plain substring: calendar holds nda") << "Calendar"
                                                         << ""
                                                         << "Legal & Agreements";
    QTest::newRow("plain substring: billboard holds bill") << "Billboard"
                                                           << ""
                                                           << "Finance & Billing";
    QTest::newRow("case ignored") << "CUSTOMER LIST"
                                  << ""
                                  << "Sales & CRM";
    QTest::newRow("context counts") << "Misc"
                                    << "weekly campaign ideas"
                                    << "Marketing";
    QTest::newRow("name and context joined by a blank") << "Purchase"
                                                        << "order forms"
                                                        << "Finance & Billing";
    QTest::newRow("vendor before contract") << "Vendor contracts"
                                            << ""
                                            << "Sales & CRM";
    QTest::newRow("hr row") << "Staff rota"
                            << ""
                            << "HR & People";
    QTest::newRow("creative row") << "Photo captions"
                                  << ""
                                  << "Creative & Media";
    QTest::newRow("operations row") << "Warehouse"
                                    << "inventory counts"
                                    << "Operations";
    QTest::newRow("productivity row") << "Meeting notes"
                                      << ""
                                      << "Productivity";
    QTest::newRow("collections row") << "Product catalog"
                                     << ""
                                     << "Collections & Data";
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
    QCOMPARE(allCollectionCategories({}), tavoCollectionCategories());
}

void TestCollections::collectionCategory_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("hasDefinition");
    QTest::addColumn<QString>("description");
    QTest::addColumn<QString>("category"); // "-" leaves the definition's category absent
    QTest::addColumn<QString>("expected");
    QTest::newRow("system collection whatever its definition says") << "Customers" << true << ""
                                                                    << "Marketing"
                                                                    << "System generated";
    QTest::newRow("system collection ignoring case") << "live & DYNAMIC" << false << ""
                                                     << "-"
                                                     << "System generated";
    QTest::newRow("user's category") << "Shops" << true << ""
                                     << "Retail"
                                     << "Retail";
    QTest::newRow("empty category falls back to keywords") << "Client Invoices" << true << ""
                                                           << ""
                                                           << "Finance & Billing";
    QTest::newRow("no definition uses the name") << "Client Invoices" << false << ""
                                                 << "-"
                                                 << "Finance & Billing";
    QTest::newRow("description is the context") << "Misc" << true << "monthly payroll"
                                                << "-"
                                                << "Finance & Billing";
    QTest::newRow("nothing matches") << "Zebra" << true << ""
                                     << "-"
                                     << "Utilities";
}

void TestCollections::collectionCategory()
{
    QFETCH(QString, name);
    QFETCH(bool, hasDefinition);
    QFETCH(QString, description);
    QFETCH(QString, category);
    QFETCH(QString, expected);
    CollectionDefinition definition = CollectionDefinition::emptyFor(name);
    definition.description = description;
    if (category != QLatin1String("-")) {
        definition.category = category;
    }
    QCOMPARE(tavo::collectionCategory(name, hasDefinition ? &definition : nullptr), expected);
}

void TestCollections::collectionSymbol_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("symbol");
    QTest::newRow("applications") << "Applications"
                                  << "app.dashed";
    QTest::newRow("compared lower-cased") << "WEBSITES & URLS"
                                          << "globe";
    QTest::newRow("media files") << "Media files"
                                 << "photo.on.rectangle.angled";
    QTest::newRow("imported") << "Imported"
                              << "square.and.arrow.down";
    QTest::newRow("sound & media has none of its own") << "Sound & media"
                                                       << "folder.fill";
    QTest::newRow("a user's collection") << "Recipes"
                                         << "folder.fill";
}

void TestCollections::collectionSymbol()
{
    QFETCH(QString, name);
    QFETCH(QString, symbol);
    QCOMPARE(tavo::collectionSymbol(name), symbol);
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
    QTest::newRow("empty query keeps every visible clip") << "" << all << all << false << visible;
    QTest::newRow("hidden and groupless clips stay when asked") << "" << all << all << true << keysOf(filterLibrary());
    QTest::newRow("query matches text ignoring case") << "THERE" << all << all << false << strings({"/hello"});
    QTest::newRow("query matches name") << "goodbye" << all << all << false << strings({"/bye"});
    QTest::newRow("query matches key") << "/PIC" << all << all << false << strings({"/pic.media"});
    QTest::newRow("query keeps list order") << "idea" << all << all << false << strings({"/idea", "/idea2"});
    QTest::newRow("hidden clip not found by query") << "classified" << all << all << false << QStringList();
    QTest::newRow("style suffix stripped from query") << "hello-b" << all << all << false << strings({"/hello"});
    QTest::newRow("all-suffix query matches nothing") << "-b" << all << all << false << QStringList();
    QTest::newRow("batch in request order") << "a2&a1" << all << all << false << strings({"/a2", "/a1"});
    QTest::newRow("batch skips hidden clips") << "sec&hello" << all << all << false << strings({"/hello"});
    QTest::newRow("live section: group or braces") << ""
                                                   << "Live & dynamic" << all << false << strings({"/bye", "/live"});
    QTest::newRow("sound section: clips with files") << ""
                                                     << "Sound & media" << all << false << strings({"/pic.media"});
    QTest::newRow("collections section, one collection ignoring case")
        << ""
        << "Collections"
        << "work" << false << strings({"/bye", "/a1", "/a2"});
    QTest::newRow("collections section, all collections") << ""
                                                          << "Collections" << all << false << visible;
    QTest::newRow("ideas section wants the exact group") << ""
                                                         << "Shortcut ideas" << all << false << strings({"/idea"});
    QTest::newRow("settings shows no shortcut") << ""
                                                << "Settings" << all << false << QStringList();
    QTest::newRow("marketplace shows no shortcut") << ""
                                                   << "Marketplace" << all << false << QStringList();
    QTest::newRow("lumen studio shows no shortcut") << ""
                                                    << "Lumen Studio" << all << false << QStringList();
    QTest::newRow("a collection as section") << ""
                                             << "Work" << all << false << strings({"/bye", "/a1", "/a2"});
    QTest::newRow("all collections as section") << "" << all << "Work" << false << visible;
    QTest::newRow("hidden collection as section shows only clips visible elsewhere")
        << ""
        << "Secret" << all << false << strings({"/bye"});
    QTest::newRow("hidden collection as section with hidden shown")
        << ""
        << "Secret" << all << true << strings({"/bye", "/sec"});
    QTest::newRow("query and section together") << "second"
                                                << "Work" << all << false << strings({"/a2"});
}

void TestCollections::filterShortcutClips()
{
    QFETCH(QString, query);
    QFETCH(QString, section);
    QFETCH(QString, collection);
    QFETCH(bool, includeHidden);
    QFETCH(QStringList, keys);
    const QStringList hidden{QStringLiteral("secret")};
    QCOMPARE(keysOf(tavo::filterShortcutClips(filterLibrary(), hidden, query, section, collection, includeHidden)),
             keys);
}

void TestCollections::duplicateShortcutKey_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("normalised");
    QTest::newRow("backslash, case and suffix") << " \\Hello.APP\n"
                                                << "/hello";
    QTest::newRow("slash added") << "hello"
                                 << "/hello";
    QTest::newRow("one suffix only") << "/a.media.web"
                                     << "/a.media";
    QTest::newRow("emoticon suffix") << "/Smile.e"
                                     << "/smile";
    QTest::newRow("a trailing e without dot stays") << "/cafe"
                                                    << "/cafe";
    QTest::newRow("only the first backslash goes") << "\\\\x"
                                                   << "/\\x";
}

void TestCollections::duplicateShortcutKey()
{
    QFETCH(QString, key);
    QFETCH(QString, normalised);
    QCOMPARE(tavo::duplicateShortcutKey(key), normalised);
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

    QCOMPARE(groups[0].shortcut, QStringLiteral("/bye"));
    QCOMPARE(groups[0].id, QStringLiteral("/bye"));
    QCOMPARE(keysOf(groups[0].clips), (QStringList{clips[1].key, clips[4].key}));
    QCOMPARE(groups[0].collections, strings({"Websites & URLs", "Work"}));

    QCOMPARE(groups[1].shortcut, QStringLiteral("/hello"));
    QCOMPARE(keysOf(groups[1].clips), (QStringList{clips[0].key, clips[2].key, clips[5].key}));
    QCOMPARE(groups[1].clips[1], clips[2]);
    QCOMPARE(groups[1].collections, strings({"Applications", "Personal", "Work"}));
}

void TestCollections::noDuplicateShortcutsGivesNoGroup()
{
    const QList<Clip> clips{makeClip("/a", "A", "", "Work"), makeClip("/a.b", "A b", "", "Work"),
                            makeClip("/ab", "Ab", "", "Work")};
    QVERIFY(findDuplicateShortcuts(clips).isEmpty());
    QVERIFY(findDuplicateShortcuts({}).isEmpty());
}

void TestCollections::normalizedCollectionText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("normalised");
    QTest::newRow("trimmed and lower-cased") << "  Best Regards\n"
                                             << "best regards";
    QTest::newRow("blank runs become one space") << "a \t\n b  c"
                                                 << "a b c";
    QTest::newRow("no-break and em spaces are blanks")
        << QStringLiteral("Ünï\u00a0\u2003Code") << QStringLiteral("ünï code");
    QTest::newRow("line separator is a blank") << QStringLiteral("a\u2028b") << "a b";
    QTest::newRow("all blank") << " \n\t"
                               << "";
    QTest::newRow("punctuation kept") << "A-B,C"
                                      << "a-b,c";
}

void TestCollections::normalizedCollectionText()
{
    QFETCH(QString, text);
    QFETCH(QString, normalised);
    QCOMPARE(tavo::normalizedCollectionText(text), normalised);
}

void TestCollections::identicalCollectionsIgnoreOrderCaseAndSpacing()
{
    const QStringList collections = strings({"Team A", "Team B", "Empty", "Empty too", "team a"});
    const QList<Clip> clips{
        makeClip("/sig", "Signature", "Best regards,\nAnn", "Team A"),
        makeClip("/addr", "Address", "1 Main St", "Team A"),
        makeClip("/ADDR", "address", "1  main   st", "team b"),
        makeClip("/sig", " signature", "best\tregards, ANN ", "Work", {"Team B"}),
    };
    const QList<CollectionRecord> records{
        makeRecord("Team A", "Acme", "acme",
                   {{QStringLiteral("Email"), QStringLiteral("hi@acme.test")},
                    {QStringLiteral("Name"), QStringLiteral("Acme")}}),
        makeRecord("TEAM B", "ACME", "Acme",
                   {{QStringLiteral("name"), QStringLiteral(" acme")},
                    {QStringLiteral("EMAIL"), QStringLiteral("HI@acme.test")}}),
    };
    const QList<DuplicateCollectionGroup> groups = findDuplicateCollections(collections, clips, records);
    QCOMPARE(groups.size(), 1);
    QCOMPARE(groups[0].collectionNames, strings({"Team A", "Team B"}));
    QCOMPARE(groups[0].matchingItems, 3);
    QCOMPARE(groups[0].id, QStringLiteral("team a|team b"));
}

void TestCollections::collectionsDifferingInOneItemAreNotIdentical()
{
    const QStringList collections = strings({"A", "B", "C"});
    const QList<Clip> clips{
        makeClip("/x", "X", "same", "A"),
        makeClip("/x", "X", "same", "B"),
        makeClip("/y", "Y", "more", "B"),
        makeClip("/x", "X", "different", "C"),
    };
    QVERIFY(findDuplicateCollections(collections, clips, {}).isEmpty());

    // A record and a shortcut never match each other, even with the same words.
    const QList<Clip> shortcut{makeClip("x", "X", "", "A")};
    const QList<CollectionRecord> record{makeRecord("B", "x", "x", {})};
    QVERIFY(findDuplicateCollections(collections, shortcut, record).isEmpty());
}

void TestCollections::fileNamesCompareByLastComponent()
{
    const QStringList collections = strings({"A", "B", "C"});
    const QList<Clip> clips{
        makeClip("/p", "P", "", "A", {}, {"/home/u/One.PNG", "/home/u/two.png"}),
        makeClip("/p", "P", "", "B", {}, {"/other/place/two.png", "/tmp/one.png"}),
        makeClip("/p", "P", "", "C", {}, {"/home/u/one.png", "/home/u/three.png"}),
    };
    const QList<DuplicateCollectionGroup> groups = findDuplicateCollections(collections, clips, {});
    QCOMPARE(groups.size(), 1);
    QCOMPARE(groups[0].collectionNames, strings({"A", "B"}));
    QCOMPARE(groups[0].matchingItems, 1);
}

void TestCollections::duplicateCollectionGroupsInLibraryOrder()
{
    const QStringList collections = strings({"B1", "A1", "Alone", "B2", "A2"});
    const QList<Clip> clips{
        makeClip("/a", "A", "", "A1", {"A2"}),
        makeClip("/b", "B", "", "B1"),
        makeClip("/b", "B", "", "B2"),
        makeClip("/c", "C", "", "Alone"),
    };
    const QList<DuplicateCollectionGroup> groups = findDuplicateCollections(collections, clips, {});
    QCOMPARE(groups.size(), 2);
    QCOMPARE(groups[0].collectionNames, strings({"B1", "B2"}));
    QCOMPARE(groups[1].collectionNames, strings({"A1", "A2"}));
}

QTEST_GUILESS_MAIN(TestCollections)
#include "tst_collections.moc"
