#include "store/collection_rules.h"

#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(tavo::BulkAssignmentMode)
Q_DECLARE_METATYPE(tavo::BulkShortcutRename::Mode)
Q_DECLARE_METATYPE(tavo::BulkShortcutRename::Target)

namespace {

using Mode = BulkShortcutRename::Mode;
using Target = BulkShortcutRename::Target;

QStringList strings(std::initializer_list<const char*> items)
{
    QStringList list;
    for (const char* item : items) {
        list.append(QString::fromUtf8(item));
    }
    return list;
}

QDateTime utc(int year, int month, int day)
{
    return QDateTime(QDate(year, month, day), QTime(0, 0), Qt::UTC);
}

Clip makeClip(const QString& key, const QString& name = u"Name"_s, const QString& group = u"Work"_s,
              std::optional<QStringList> groups = std::nullopt)
{
    Clip clip;
    clip.key = key;
    clip.name = name;
    clip.text = u"text"_s;
    clip.group = group;
    clip.groups = std::move(groups);
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

CollectionDefinition definitionWithFields(const QString& name, const QStringList& fieldNames)
{
    CollectionDefinition definition = CollectionDefinition::emptyFor(name, utc(2024, 1, 1));
    for (const QString& fieldName : fieldNames) {
        definition.fields.append({uuidText(QUuid::createUuid()), fieldName, u"Text"_s, false, QString()});
    }
    return definition;
}

CollectionRecord makeRecord(const QString& collection, const QString& alias)
{
    return {uuidText(QUuid::createUuid()), collection, u"Record "_s + alias, alias, {}, {}, utc(2024, 1, 1)};
}

const QString tooLongOrEmpty =
    u"A resulting shortcut code is empty or longer than 48 characters. Shorten the added text and try again."_s;

QString duplicateMessage(const char* code)
{
    return u"This rename would create a duplicate shortcut code ("_s + QString::fromUtf8(code) +
           u"). Change the rule or selection and try again."_s;
}

} // namespace

class TestCollectionRules : public QObject
{
    Q_OBJECT

private slots:
    void bulkCollectionChange();
    void validateRename();
    void renameEverywhere();
    void transformed_data();
    void transformed();
    void applyRefuses_data();
    void applyRefuses();
    void applyRenamesCodesAndNames();
    void recordSave_data();
    void recordSave();
    void editedRecordKeepsIdentity();
    void definitionEditor();
    void filteredCollectionNames();
};

void TestCollectionRules::bulkCollectionChange()
{
    QList<Clip> clips{makeClip(u"/a"_s, {}, u"Work"_s, strings({"Sales"})), makeClip(u"/b"_s),
                      makeClip(u"/c"_s, {}, u"Clients"_s, strings({"work"}))};
    const Clip unselected = clips[1];
    const QSet<QUuid> selected{clips[0].id, clips[2].id};
    // Add to: only names a clip lacks, ignoring case; a second call has nothing left to add.
    const QStringList chosen = strings({"sales", "Clients", "CLIENTS", "Leads"});
    QCOMPARE(applyBulkCollectionChange(clips, selected, BulkAssignmentMode::AddTo, chosen), 2);
    QCOMPARE(clips[0].allGroups(), strings({"Work", "Sales", "Clients", "Leads"}));
    QCOMPARE(clips[2].allGroups(), strings({"Clients", "work", "sales", "Leads"}));
    QCOMPARE(applyBulkCollectionChange(clips, selected, BulkAssignmentMode::AddTo, chosen), 0);
    // Move: the first chosen name becomes the group.
    QCOMPARE(applyBulkCollectionChange(clips, selected, BulkAssignmentMode::Move, strings({"Leads", "Work"})), 2);
    QCOMPARE(clips[2].allGroups(), strings({"Leads", "Work"}));
    QCOMPARE(clips[1], unselected);
}

void TestCollectionRules::validateRename()
{
    const QStringList names = strings({"Personal", "Work", "Sales"});
    QCOMPARE(validateCollectionRename(u" \n"_s, u"Work"_s, names), std::optional(u"Enter a collection name."_s));
    // Another collection's name, trimmed and ignoring case, is taken; a change of case only is not.
    QCOMPARE(validateCollectionRename(u" sALES "_s, u"Work"_s, names),
             std::optional(u"A collection with that name already exists."_s));
    QCOMPARE(validateCollectionRename(u"WORK"_s, u"Work"_s, names), std::nullopt);
}

void TestCollectionRules::renameEverywhere()
{
    QStringList names = strings({"Personal", "work", "Sales"});
    QVERIFY(renameCollectionInNames(names, u"Work"_s, u" Deals "_s));
    QCOMPARE(names, strings({"Personal", "Deals", "Sales"}));
    // A stale hidden entry of the new name is not kept twice.
    QStringList hidden = strings({"Work", "deals"});
    QVERIFY(renameCollectionInNames(hidden, u"work"_s, u"Deals"_s));
    QCOMPARE(hidden, strings({"Deals"}));
    QVERIFY(!renameCollectionInNames(names, u"Nothing"_s, u"Else"_s));

    QList<Clip> clips{makeClip(u"/a"_s, {}, u"WORK"_s, strings({"Sales", "work"})),
                      makeClip(u"/b"_s, {}, u"Personal"_s, strings({"Work"})), makeClip(u"/c"_s, {}, u"Personal"_s)};
    const Clip untouched = clips[2];
    QVERIFY(renameCollectionInClips(clips, u"Work"_s, u"Deals"_s));
    QCOMPARE(clips[0].group, u"Deals"_s);
    QCOMPARE(clips[0].groups, std::optional(strings({"Sales", "Deals"})));
    QCOMPARE(clips[1].allGroups(), strings({"Personal", "Deals"}));
    QCOMPARE(clips[2], untouched);

    QList<CollectionDefinition> definitions{CollectionDefinition::emptyFor(u"work"_s, utc(2024, 1, 1)),
                                            CollectionDefinition::emptyFor(u"Sales"_s, utc(2024, 1, 1))};
    QList<CollectionRecord> records{makeRecord(u"WORK"_s, u"a"_s), makeRecord(u"Sales"_s, u"b"_s)};
    QVERIFY(renameCollectionInLibrary(definitions, records, u"Work"_s, u"Deals"_s, utc(2025, 5, 5)));
    QCOMPARE(definitions[0].name, u"Deals"_s);
    QCOMPARE(definitions[0].updatedAt, utc(2025, 5, 5));
    QCOMPARE(definitions[1].updatedAt, utc(2024, 1, 1));
    QCOMPARE(records[0].collection, u"Deals"_s);
    QCOMPARE(records[0].updatedAt, utc(2025, 5, 5));
    QCOMPARE(records[1].updatedAt, utc(2024, 1, 1));

    // A blank new name changes nothing anywhere.
    const auto before = std::make_tuple(names, clips, definitions, records);
    QVERIFY(!renameCollectionInNames(names, u"Sales"_s, u"  "_s));
    QVERIFY(!renameCollectionInClips(clips, u"Sales"_s, QString()));
    QVERIFY(!renameCollectionInLibrary(definitions, records, u"Sales"_s, u"\n"_s));
    QCOMPARE(std::make_tuple(names, clips, definitions, records), before);

    // Builder settings hold comma-separated names; only whole names are renamed.
    QCOMPARE(renamedBuilderCollections(u"work,  Sales ,Workshop"_s, u"Work"_s, u"Deals"_s),
             u"Deals, Sales, Workshop"_s);
    QCOMPARE(renamedBuilderCollections(u"Work,Sales"_s, u"Work"_s, u" "_s), u"Work,Sales"_s);
}

void TestCollectionRules::transformed_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<QString>("findText");
    QTest::addColumn<bool>("asCode"); // true: the text is the key of a clip named "Happy Cat! (2)"
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("result");
    QTest::newRow("replace prefix only at the start")
        << Mode::ReplacePrefix << u"sig"_s << false << u"oldsig"_s << u"oldsig"_s;
    QTest::newRow("replace prefix minds case")
        << Mode::ReplacePrefix << u"OLD"_s << false << u"oldsig"_s << u"oldsig"_s;
    QTest::newRow("find and replace all, ignoring case")
        << Mode::FindAndReplace << u"ab"_s << false << u"Ab-aB-ab"_s << u"x-x-x"_s;
    QTest::newRow("find nothing replaces nothing") << Mode::FindAndReplace << u""_s << false << u"abc"_s << u"abc"_s;
    QTest::newRow("title case of accented words") << Mode::TitleCase << u""_s << false << u"élan ÇA"_s << u"Élan Ça"_s;
    QTest::newRow("code lower-cased, suffix too")
        << Mode::AddPrefix << u"New"_s << true << u"\\Thanks.WEB"_s << u"/newthanks.web"_s;
    QTest::newRow("code: blanks and slashes become one dash")
        << Mode::AddSuffix << u" a/ \\b"_s << true << u"/cat"_s << u"/cat-a-b"_s;
    QTest::newRow("code: only the last suffix kept aside")
        << Mode::AddSuffix << u"2"_s << true << u"/a.app.web"_s << u"/a.app2.web"_s;
    QTest::newRow("code from name") << Mode::UseShortcutName << u""_s << true << u"/old.gif"_s << u"/happy-cat-2.gif"_s;
}

void TestCollectionRules::transformed()
{
    QFETCH(Mode, mode);
    QFETCH(QString, findText);
    QFETCH(bool, asCode);
    QFETCH(QString, text);
    QFETCH(QString, result);
    BulkShortcutRename rule;
    rule.mode = mode;
    rule.findText = findText;
    rule.replacement = u"x"_s;
    QCOMPARE(asCode ? rule.transformedCode(makeClip(text, u"Happy Cat! (2)"_s)) : rule.transformed(text), result);
}

void TestCollectionRules::applyRefuses_data()
{
    QTest::addColumn<Target>("target");
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<QString>("findText");
    QTest::addColumn<QStringList>("selectedKeys");
    QTest::addColumn<QStringList>("otherKeys");
    QTest::addColumn<QString>("error"); // empty when accepted
    const Target codes = Target::Codes;
    const QStringList none;
    // The code between the slash and the suffix counts: "abc" + 45 is 48, the slash and ".web" aside.
    QTest::newRow("48 characters allowed")
        << codes << Mode::AddSuffix << QString(45, u'x') << strings({"/abc.web"}) << none << QString();
    QTest::newRow("49 characters refused")
        << codes << Mode::AddSuffix << QString(46, u'x') << strings({"/abc.web"}) << none << tooLongOrEmpty;
    // 48 characters, though 95 UTF-16 units.
    QTest::newRow("characters counted, not units")
        << codes << Mode::AddSuffix << u"😀"_s.repeated(47) << strings({"/a"}) << none << QString();
    QTest::newRow("nothing left of the code")
        << codes << Mode::ReplacePrefix << u"abc"_s << strings({"/abc.web"}) << none << tooLongOrEmpty;
    // Lowercase makes these codes alike.
    QTest::newRow("two results alike") << codes << Mode::Lowercase << QString() << strings({"/Cat", "/CAT.web", "/cAt"})
                                       << none << duplicateMessage("/cat");
    QTest::newRow("a result equal to an unselected key, ignoring case")
        << codes << Mode::Lowercase << QString() << strings({"/Dog"}) << strings({"/DOG", "/x"})
        << duplicateMessage("/dog");
    QTest::newRow("results may take codes the selection gives up")
        << codes << Mode::Lowercase << QString() << strings({"/Dog", "/dog.web"}) << strings({"/dog.app"}) << QString();
    // The library already holds two alike codes; a change of names must still go ahead.
    QTest::newRow("names only keep their keys")
        << Target::Names << Mode::TitleCase << QString() << strings({"/Dup", "/dup"}) << none << QString();
}

void TestCollectionRules::applyRefuses()
{
    QFETCH(Target, target);
    QFETCH(Mode, mode);
    QFETCH(QString, findText);
    QFETCH(QStringList, selectedKeys);
    QFETCH(QStringList, otherKeys);
    QFETCH(QString, error);
    QList<Clip> selected;
    for (const QString& key : selectedKeys) {
        selected.append(makeClip(key));
    }
    BulkShortcutRename rule;
    rule.target = target;
    rule.mode = mode;
    rule.findText = findText;
    rule.error = u"an earlier refusal"_s; // cleared by an accepted rename
    const auto renames = rule.apply(selected, selectedKeys + otherKeys);
    QCOMPARE(rule.error, error);
    QCOMPARE(renames.has_value(), error.isEmpty());
    if (renames && target == Target::Names) {
        for (const Clip& clip : selected) {
            QCOMPARE(renames->value(clip.id), (RenamedShortcut{clip.key, u"Name"_s}));
        }
    }
}

void TestCollectionRules::applyRenamesCodesAndNames()
{
    QList<Clip> clips{makeClip(u"/cat.media"_s, u"Cat video"_s), makeClip(u"/b"_s), makeClip(u"/Dog"_s, u" Dog "_s)};
    BulkShortcutRename rule;
    rule.target = Target::CodesAndNames;
    rule.mode = Mode::AddSuffix;
    rule.findText = u"-x "_s;
    const auto renames = rule.apply({clips[0], clips[2]}, keysOf(clips) + strings({"/cat-x"}));
    QVERIFY2(renames, qPrintable(rule.error));
    QCOMPARE(renames->size(), 2);
    QCOMPARE(renames->value(clips[0].id), (RenamedShortcut{u"/cat-x-.media"_s, u"Cat video-x"_s}));
    QCOMPARE(applyShortcutRenames(clips, *renames), 2);
    QCOMPARE(keysOf(clips), strings({"/cat-x-.media", "/b", "/dog-x-"}));
    QCOMPARE(clips[2].name, u"Dog -x"_s);
}

void TestCollectionRules::recordSave_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("alias");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("storedAlias");
    const QString missing = u"Enter both a record name and shortcut alias."_s;
    const QString taken = u"That shortcut alias is already used in this collection."_s;
    QTest::newRow("alias of slashes and blanks only") << u"Acme"_s << u" /\\ "_s << missing << u""_s;
    QTest::newRow("alias taken once normalised") << u"Acme"_s << u"\\ACME/ "_s << taken << u""_s;
    QTest::newRow("alias used only in another collection") << u"Globex"_s << u"globex"_s << u""_s << u"globex"_s;
    QTest::newRow("alias normalised") << u" Initech\n"_s << u" /InitECH\\ "_s << u""_s << u"initech"_s;
}

void TestCollectionRules::recordSave()
{
    QFETCH(QString, name);
    QFETCH(QString, alias);
    QFETCH(QString, error);
    QFETCH(QString, storedAlias);
    const CollectionDefinition definition = definitionWithFields(u"Customers"_s, {});
    const QList<CollectionRecord> existing{makeRecord(u"customers"_s, u"acme"_s),
                                           makeRecord(u"Vendors"_s, u"globex"_s)};
    CollectionRecordEditor editor;
    editor.name = name;
    editor.alias = alias;
    editor.values[u"Details"_s] = u" 1234 "_s; // a definition without fields edits one "Details" value
    const std::optional<CollectionRecord> record = editor.save(definition, existing, nullptr, utc(2025, 1, 1));
    QCOMPARE(editor.error, error);
    QCOMPARE(record.has_value(), error.isEmpty());
    if (record) {
        QVERIFY(parseUuid(record->id));
        const QMap<QString, QString> values{{u"Details"_s, u"1234"_s}};
        QCOMPARE(*record, (CollectionRecord{
                              record->id, u"Customers"_s, name.trimmed(), storedAlias, values, {}, utc(2025, 1, 1)}));
    }
}

void TestCollectionRules::editedRecordKeepsIdentity()
{
    const CollectionDefinition definition = definitionWithFields(u"Customers"_s, strings({"Email"}));
    CollectionRecord original = makeRecord(u"Customers"_s, u"acme"_s);
    original.files = strings({"/home/u/logo.png"});
    original.values = {{u"Content"_s, u"migrated text"_s}, {u"Email"_s, u"old@acme.test"_s}};
    const QList<CollectionRecord> existing{original, makeRecord(u"Customers"_s, u"globex"_s)};

    CollectionRecordEditor editor = CollectionRecordEditor::forRecord(definition, &original);
    QCOMPARE(editor.values, (QMap<QString, QString>{{u"Email"_s, u"old@acme.test"_s}}));
    editor.name = u"Acme Corp"_s;
    editor.alias = u"ACME"_s; // its own alias is no clash
    const std::optional<CollectionRecord> saved = editor.save(definition, existing, &original, utc(2025, 2, 2));
    QVERIFY2(saved, qPrintable(editor.error));
    CollectionRecord expected = original;
    expected.name = u"Acme Corp"_s;
    expected.updatedAt = utc(2025, 2, 2);
    QCOMPARE(*saved, expected);

    editor.alias = u"Globex"_s;
    QVERIFY(!editor.save(definition, existing, &original));
    QCOMPARE(editor.error, u"That shortcut alias is already used in this collection."_s);
}

void TestCollectionRules::definitionEditor()
{
    CollectionDefinitionEditor editor;
    editor.name = u" Suppliers "_s;
    const CollectionDefinition created = editor.save(utc(2025, 3, 3));
    QCOMPARE(created,
             (CollectionDefinition{created.id, u"Suppliers"_s, {}, created.fields, utc(2025, 3, 3), u"Utilities"_s}));
    editor.fieldsText = u" SKU ,, Price ,\n,"_s;
    QCOMPARE(editor.save().fields.size(), 2);
    QVERIFY(editor.nameExists(strings({"Personal", "suppliers"})));
}

void TestCollectionRules::filteredCollectionNames()
{
    const QStringList names = strings({"Customers", "Client Invoices", "Secret leads", "Shops"});
    QList<CollectionDefinition> definitions{CollectionDefinition::emptyFor(u"shops"_s)};
    definitions[0].category = u"Retail"_s;
    const QStringList hidden = strings({"SECRET LEADS"});
    QCOMPARE(tavo::filteredCollectionNames(names, hidden, false, {}, definitions),
             strings({"Customers", "Client Invoices", "Shops"}));
    QCOMPARE(tavo::filteredCollectionNames(names, hidden, false, strings({"System generated", "Retail"}), definitions),
             strings({"Customers", "Shops"}));
}

QTEST_GUILESS_MAIN(TestCollectionRules)
#include "tst_collection_rules.moc"
