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
    void bulkCollectionChange_data();
    void bulkCollectionChange();

    void validateRename_data();
    void validateRename();
    void renameEverywhere();
    void blankRenameChangesNothing();
    void builderCollections_data();
    void builderCollections();

    void modesInOrderAndHint();
    void transformed_data();
    void transformed();
    void transformedCode_data();
    void transformedCode();
    void applyRefuses_data();
    void applyRefuses();
    void applyRenamesCodesAndNames();

    void recordSave_data();
    void recordSave();
    void recordFormFields();
    void editedRecordKeepsIdentity();

    void definitionEditor();
    void paging();
    void filteredCollectionNames();
    void messages_data();
    void messages();
};

void TestCollectionRules::bulkCollectionChange_data()
{
    QTest::addColumn<BulkAssignmentMode>("mode");
    QTest::addColumn<QStringList>("chosen");
    QTest::addColumn<QStringList>("first"); // all groups of each selected clip afterwards
    QTest::addColumn<QStringList>("second");
    QTest::addColumn<int>("changed");
    const auto move = BulkAssignmentMode::Move;
    const auto addTo = BulkAssignmentMode::AddTo;
    QTest::newRow("move: first chosen name becomes the group")
        << move << strings({"Clients", "Leads"}) << strings({"Clients", "Leads"}) << strings({"Clients", "Leads"}) << 2;
    QTest::newRow("add to: only missing names, ignoring case")
        << addTo << strings({"sales", "Clients", "CLIENTS", "Leads"}) << strings({"Work", "Sales", "Clients", "Leads"})
        << strings({"Clients", "work", "sales", "Leads"}) << 2;
    QTest::newRow("add to: names both hold change nothing")
        << addTo << strings({"WORK"}) << strings({"Work", "Sales"}) << strings({"Clients", "work"}) << 0;
    QTest::newRow("nothing chosen") << move << QStringList() << strings({"Work", "Sales"})
                                    << strings({"Clients", "work"}) << 0;
}

void TestCollectionRules::bulkCollectionChange()
{
    QFETCH(BulkAssignmentMode, mode);
    QFETCH(QStringList, chosen);
    QFETCH(QStringList, first);
    QFETCH(QStringList, second);
    QFETCH(int, changed);
    QList<Clip> clips{makeClip(u"/a"_s, {}, u"Work"_s, strings({"Sales"})), makeClip(u"/b"_s),
                      makeClip(u"/c"_s, {}, u"Clients"_s, strings({"work"}))};
    const Clip unselected = clips[1];
    QCOMPARE(applyBulkCollectionChange(clips, {clips[0].id, clips[2].id}, mode, chosen), changed);
    QCOMPARE(clips[0].allGroups(), first);
    QCOMPARE(clips[2].allGroups(), second);
    QCOMPARE(clips[1], unselected);
    QCOMPARE(keysOf(clips), strings({"/a", "/b", "/c"}));
}

void TestCollectionRules::validateRename_data()
{
    QTest::addColumn<QString>("newName");
    QTest::addColumn<QString>("message"); // empty when the rename may go ahead
    QTest::newRow("blank name") << u" \n"_s << u"Enter a collection name."_s;
    QTest::newRow("another collection's name, trimmed, ignoring case")
        << u" sALES "_s << u"A collection with that name already exists."_s;
    QTest::newRow("a change of case only") << u"WORK"_s << QString();
    QTest::newRow("a free name") << u"Deals"_s << QString();
}

void TestCollectionRules::validateRename()
{
    QFETCH(QString, newName);
    QFETCH(QString, message);
    const std::optional<QString> refusal =
        validateCollectionRename(newName, u"Work"_s, strings({"Personal", "Work", "Sales"}));
    QCOMPARE(refusal.value_or(QString()), message);
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
    QCOMPARE(records[1].collection, u"Sales"_s);
    QCOMPARE(records[1].updatedAt, utc(2024, 1, 1));

    QVERIFY(isBuilderCollectionsKey(u"tavoBuilderCollections.Mail"_s));
    QVERIFY(isBuilderCollectionsKey(u"tavoBuilderOutputCollections.Mail"_s));
    QVERIFY(!isBuilderCollectionsKey(u"tavoBuilderCollections"_s));
}

void TestCollectionRules::blankRenameChangesNothing()
{
    QStringList names = strings({"Work"});
    QList<Clip> clips{makeClip(u"/a"_s)};
    QList<CollectionDefinition> definitions{CollectionDefinition::emptyFor(u"Work"_s)};
    QList<CollectionRecord> records{makeRecord(u"Work"_s, u"a"_s)};
    const auto before = std::make_tuple(names, clips, definitions, records);
    QVERIFY(!renameCollectionInNames(names, u"Work"_s, u"  "_s));
    QVERIFY(!renameCollectionInClips(clips, u"Work"_s, QString()));
    QVERIFY(!renameCollectionInLibrary(definitions, records, u"Work"_s, u"\n"_s));
    QCOMPARE(std::make_tuple(names, clips, definitions, records), before);
}

void TestCollectionRules::builderCollections_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QString>("renamed");
    QTest::newRow("parts trimmed, joined with comma and blank")
        << u"Work,  Sales ,Leads"_s << u"Deals"_s << u"Deals, Sales, Leads"_s;
    QTest::newRow("matched ignoring case") << u"sales,WORK"_s << u" Deals "_s << u"sales, Deals"_s;
    QTest::newRow("a name that only contains it stays") << u"Workshop"_s << u"Deals"_s << u"Workshop"_s;
    QTest::newRow("a blank new name changes nothing") << u"Work,Sales"_s << u" "_s << u"Work,Sales"_s;
}

void TestCollectionRules::builderCollections()
{
    QFETCH(QString, value);
    QFETCH(QString, to);
    QFETCH(QString, renamed);
    QCOMPARE(renamedBuilderCollections(value, u"Work"_s, to), renamed);
}

void TestCollectionRules::modesInOrderAndHint()
{
    QStringList modes;
    for (const Mode mode : BulkShortcutRename::modes()) {
        modes.append(BulkShortcutRename::modeText(mode));
    }
    QCOMPARE(modes, strings({"Add prefix", "Add suffix", "Replace prefix", "Replace suffix", "Find & replace",
                             "Lowercase", "UPPERCASE", "Title Case", "Use shortcut name"}));

    // Names cannot make codes when only names change.
    BulkShortcutRename rule;
    rule.mode = Mode::UseShortcutName;
    rule.target = Target::Names;
    QVERIFY(rule.showsUseNameHint());
    rule.target = Target::CodesAndNames;
    QVERIFY(!rule.showsUseNameHint());
}

void TestCollectionRules::transformed_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<QString>("findText");
    QTest::addColumn<QString>("replacement");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("result");
    QTest::newRow("replace prefix") << Mode::ReplacePrefix << u"old"_s << u"new"_s << u"oldsig"_s << u"newsig"_s;
    QTest::newRow("replace prefix only at the start")
        << Mode::ReplacePrefix << u"sig"_s << u"x"_s << u"oldsig"_s << u"oldsig"_s;
    QTest::newRow("replace prefix minds case")
        << Mode::ReplacePrefix << u"OLD"_s << u"new"_s << u"oldsig"_s << u"oldsig"_s;
    QTest::newRow("empty prefix to replace changes nothing")
        << Mode::ReplacePrefix << u""_s << u"x"_s << u"abc"_s << u"abc"_s;
    QTest::newRow("replace suffix") << Mode::ReplaceSuffix << u"2023"_s << u"2024"_s << u"report2023"_s
                                    << u"report2024"_s;
    QTest::newRow("find and replace all, ignoring case")
        << Mode::FindAndReplace << u"ab"_s << u"x"_s << u"Ab-aB-ab"_s << u"x-x-x"_s;
    QTest::newRow("find nothing replaces nothing") << Mode::FindAndReplace << u""_s << u"x"_s << u"abc"_s << u"abc"_s;
    QTest::newRow("lowercase") << Mode::Lowercase << u""_s << u""_s << u"Hello World"_s << u"hello world"_s;
    QTest::newRow("uppercase") << Mode::Uppercase << u""_s << u""_s << u"Hello World"_s << u"HELLO WORLD"_s;
    QTest::newRow("title case per word") << Mode::TitleCase << u""_s << u""_s << u"hELLO  wORLD\tagain"_s
                                         << u"Hello  World\tAgain"_s;
    QTest::newRow("title case of accented words") << Mode::TitleCase << u""_s << u""_s << u"élan ÇA"_s << u"Élan Ça"_s;
    QTest::newRow("use shortcut name leaves a name")
        << Mode::UseShortcutName << u"x"_s << u"y"_s << u"Name"_s << u"Name"_s;
}

void TestCollectionRules::transformed()
{
    QFETCH(Mode, mode);
    QFETCH(QString, findText);
    QFETCH(QString, replacement);
    QFETCH(QString, text);
    QFETCH(QString, result);
    BulkShortcutRename rule;
    rule.mode = mode;
    rule.findText = findText;
    rule.replacement = replacement;
    QCOMPARE(rule.transformed(text), result);
}

void TestCollectionRules::transformedCode_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<QString>("findText");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("code");
    QTest::newRow("suffix stays at the end")
        << Mode::AddSuffix << u"-x"_s << u"/cat.media"_s << u""_s << u"/cat-x.media"_s;
    QTest::newRow("result lower-cased, suffix too")
        << Mode::AddPrefix << u"New"_s << u"\\Thanks.WEB"_s << u""_s << u"/newthanks.web"_s;
    QTest::newRow("blanks and slashes become one dash")
        << Mode::AddSuffix << u" a/ \\b"_s << u"/cat"_s << u""_s << u"/cat-a-b"_s;
    QTest::newRow("slashes trimmed from both ends") << Mode::Lowercase << u""_s << u"//Cat\\"_s << u""_s << u"/cat"_s;
    QTest::newRow("only the last suffix kept aside")
        << Mode::AddSuffix << u"2"_s << u"/a.app.web"_s << u""_s << u"/a.app2.web"_s;
    QTest::newRow("code from name") << Mode::UseShortcutName << u""_s << u"/old.gif"_s << u"Happy Cat! (2)"_s
                                    << u"/happy-cat-2.gif"_s;
    QTest::newRow("code from name drops other scripts")
        << Mode::UseShortcutName << u""_s << u"/old"_s << u"Café Noir"_s << u"/caf-noir"_s;
    QTest::newRow("find and replace within the code")
        << Mode::FindAndReplace << u"CAT"_s << u"/mycat.e"_s << u""_s << u"/mydog.e"_s;
}

void TestCollectionRules::transformedCode()
{
    QFETCH(Mode, mode);
    QFETCH(QString, findText);
    QFETCH(QString, key);
    QFETCH(QString, name);
    QFETCH(QString, code);
    BulkShortcutRename rule;
    rule.mode = mode;
    rule.findText = findText;
    rule.replacement = u"dog"_s;
    QCOMPARE(rule.transformedCode(makeClip(key, name)), code);
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
    // "/" + 43 + ".web" is 48 characters.
    QTest::newRow("48 characters allowed")
        << codes << Mode::AddSuffix << QString(40, u'x') << strings({"/abc.web"}) << none << QString();
    QTest::newRow("49 characters refused")
        << codes << Mode::AddSuffix << QString(41, u'x') << strings({"/abc.web"}) << none << tooLongOrEmpty;
    // 48 characters, though 95 UTF-16 units.
    QTest::newRow("characters counted, not units")
        << codes << Mode::AddSuffix << u"😀"_s.repeated(46) << strings({"/a"}) << none << QString();
    QTest::newRow("49 emoji refused") << codes << Mode::AddSuffix << u"😀"_s.repeated(47) << strings({"/a"}) << none
                                      << tooLongOrEmpty;
    QTest::newRow("nothing left of the code")
        << codes << Mode::ReplacePrefix << u"abc"_s << strings({"/abc.web"}) << none << tooLongOrEmpty;
    // Lowercase makes these codes alike.
    QTest::newRow("two results alike") << codes << Mode::Lowercase << QString() << strings({"/Cat", "/CAT.web", "/cAt"})
                                       << none << duplicateMessage("/cat");
    QTest::newRow("a result equal to an unselected key, ignoring case")
        << codes << Mode::Lowercase << QString() << strings({"/Dog"}) << strings({"/DOG", "/x"})
        << duplicateMessage("/dog");
    QTest::newRow("a selected key may keep its own code")
        << codes << Mode::Lowercase << QString() << strings({"/Dog", "/Cat"}) << strings({"/x"}) << QString();
    QTest::newRow("results may take codes the selection gives up")
        << codes << Mode::Lowercase << QString() << strings({"/Dog", "/dog.web"}) << strings({"/dog.app"}) << QString();
    QTest::newRow("an unselected twin of a selected key still counts")
        << codes << Mode::Lowercase << QString() << strings({"/Dog"}) << strings({"/dog"}) << duplicateMessage("/dog");
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
    const QList<Clip> selected{clips[0], clips[2]};
    BulkShortcutRename rule;
    rule.target = Target::CodesAndNames;
    rule.mode = Mode::AddSuffix;
    rule.findText = u"-x "_s;
    const auto renames = rule.apply(selected, keysOf(clips) + strings({"/cat-x"}));
    QVERIFY2(renames, qPrintable(rule.error));
    QCOMPARE(renames->size(), 2);
    QCOMPARE(renames->value(clips[0].id), (RenamedShortcut{u"/cat-x-.media"_s, u"Cat video-x"_s}));
    QCOMPARE(renames->value(clips[2].id), (RenamedShortcut{u"/dog-x-"_s, u"Dog -x"_s}));
    QCOMPARE(applyShortcutRenames(clips, *renames), 2);
    QCOMPARE(keysOf(clips), strings({"/cat-x-.media", "/b", "/dog-x-"}));
    QCOMPARE(clips[2].name, u"Dog -x"_s);

    // Codes from names keep the names as they are.
    rule.mode = Mode::UseShortcutName;
    const auto fromNames = rule.apply(selected, keysOf(selected));
    QVERIFY(fromNames);
    QCOMPARE(fromNames->value(clips[0].id), (RenamedShortcut{u"/cat-video.media"_s, u"Cat video"_s}));
}

void TestCollectionRules::recordSave_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("alias");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("storedAlias");
    const QString missing = u"Enter both a record name and shortcut alias."_s;
    const QString taken = u"That shortcut alias is already used in this collection."_s;
    QTest::newRow("no name") << u" \n"_s << u"acme"_s << missing << u""_s;
    QTest::newRow("alias of slashes and blanks only") << u"Acme"_s << u" /\\ "_s << missing << u""_s;
    QTest::newRow("alias taken once normalised") << u"Acme"_s << u"\\ACME/ "_s << taken << u""_s;
    QTest::newRow("alias used only in another collection") << u"Globex"_s << u"globex"_s << u""_s << u"globex"_s;
    QTest::newRow("alias normalised") << u" Initech\n"_s << u" /InitECH\\ "_s << u""_s << u"initech"_s;
    QTest::newRow("inner slashes stay") << u"Initech"_s << u"a/b"_s << u""_s << u"a/b"_s;
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

void TestCollectionRules::recordFormFields()
{
    // A new form starts from the fields' defaults; stray values are dropped, kept ones trimmed.
    CollectionDefinition vendors = definitionWithFields(u"Vendors"_s, strings({"Country", "Phone"}));
    vendors.fields[0].defaultValue = u"Ireland"_s;
    CollectionRecordEditor editor = CollectionRecordEditor::forRecord(vendors, nullptr);
    QCOMPARE(editor.values, (QMap<QString, QString>{{u"Country"_s, u"Ireland"_s}, {u"Phone"_s, QString()}}));
    editor.name = u"Globex"_s;
    editor.alias = u"globex"_s;
    editor.values = {{u"Country"_s, u"  Chile "_s}, {u"Stray"_s, u"not a field"_s}};
    QCOMPARE(editor.save(vendors, {}, nullptr)->values,
             (QMap<QString, QString>{{u"Country"_s, u"Chile"_s}, {u"Phone"_s, QString()}}));
}

void TestCollectionRules::editedRecordKeepsIdentity()
{
    const CollectionDefinition definition = definitionWithFields(u"Customers"_s, strings({"Email"}));
    CollectionRecord original = makeRecord(u"Customers"_s, u"acme"_s);
    original.files = strings({"/home/u/logo.png"});
    original.values = {{u"Content"_s, u"migrated text"_s}, {u"Email"_s, u"old@acme.test"_s}};
    const QList<CollectionRecord> existing{original, makeRecord(u"Customers"_s, u"globex"_s)};

    CollectionRecordEditor editor = CollectionRecordEditor::forRecord(definition, &original);
    QCOMPARE(editor.alias, u"acme"_s);
    QCOMPARE(editor.values, (QMap<QString, QString>{{u"Email"_s, u"old@acme.test"_s}}));
    editor.name = u"Acme Corp"_s;
    editor.alias = u"ACME"_s; // its own alias is no clash
    editor.values[u"Email"_s] = u"new@acme.test"_s;
    const std::optional<CollectionRecord> saved = editor.save(definition, existing, &original, utc(2025, 2, 2));
    QVERIFY2(saved, qPrintable(editor.error));
    CollectionRecord expected = original;
    expected.name = u"Acme Corp"_s;
    expected.values[u"Email"_s] = u"new@acme.test"_s;
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
    QVERIFY(parseUuid(created.id));
    QCOMPARE(created,
             (CollectionDefinition{created.id, u"Suppliers"_s, {}, created.fields, utc(2025, 3, 3), u"Utilities"_s}));
    QStringList fieldNames;
    for (const CollectionFieldDefinition& field : created.fields) {
        fieldNames.append(field.name);
        QCOMPARE(field, (CollectionFieldDefinition{field.id, field.name, u"Text"_s, false, QString()}));
        QVERIFY(parseUuid(field.id));
    }
    QCOMPARE(fieldNames, strings({"Name", "Address", "Email", "Phone"}));
    QVERIFY(created.fields[0].id != created.fields[1].id);

    editor.id = created.id;
    editor.category.clear();
    editor.fieldsText = u" SKU ,, Price ,\n,"_s;
    const CollectionDefinition edited = editor.save();
    QCOMPARE(edited.id, created.id);
    QVERIFY(!edited.category);
    QCOMPARE(edited.fields.size(), 2);
    QCOMPARE(edited.fields[1].name, u"Price"_s);

    QVERIFY(editor.nameExists(strings({"Personal", "suppliers"})));
    editor.name = u"Supplier"_s;
    QVERIFY(!editor.nameExists(strings({"Personal", "Suppliers"})));

    QCOMPARE(CollectionDefinitionEditor::categoryChoices(strings({"Retail", "marketing"})),
             tavoCollectionCategories().mid(1) + strings({"Retail"}));
}

void TestCollectionRules::paging()
{
    QCOMPARE(collectionPageCount(0), 1);
    QCOMPARE(collectionPageCount(50), 1);
    QCOMPARE(collectionPageCount(51), 2);
    const QList<int> items(120, 7);
    QCOMPARE(collectionPage(items, 2).size(), 20);
    QVERIFY(collectionPage(items, 3).isEmpty());
    QVERIFY(collectionPage(items, -1).isEmpty());
}

void TestCollectionRules::filteredCollectionNames()
{
    const QStringList names = strings({"Customers", "Client Invoices", "Recipes", "Secret leads", "Shops"});
    QList<CollectionDefinition> definitions{CollectionDefinition::emptyFor(u"shops"_s)};
    definitions[0].category = u"Retail"_s;
    const QStringList hidden = strings({"SECRET LEADS"});

    QCOMPARE(tavo::filteredCollectionNames(names, hidden, false, {}, definitions),
             strings({"Customers", "Client Invoices", "Recipes", "Shops"}));
    QCOMPARE(tavo::filteredCollectionNames(names, hidden, true, {}, definitions), names);
    QCOMPARE(tavo::filteredCollectionNames(names, hidden, true, strings({"Sales & CRM"}), definitions),
             strings({"Secret leads"}));
    QCOMPARE(tavo::filteredCollectionNames(names, hidden, false, strings({"System generated", "Retail"}), definitions),
             strings({"Customers", "Shops"}));
}

void TestCollectionRules::messages_data()
{
    QTest::addColumn<QString>("actual");
    QTest::addColumn<QString>("expected");
    DuplicateShortcutGroup shortcuts;
    shortcuts.clips = {makeClip(u"/a"_s), makeClip(u"/A"_s), makeClip(u"\\a"_s)};
    shortcuts.collections = strings({"Personal", "Work"});
    const DuplicateCollectionGroup collections{u"a|b"_s, strings({"A", "B"}), 7};

    QTest::newRow("moved") << movedShortcutsMessage(strings({"Clients", "Leads"}))
                           << u"Moved selected shortcuts to Clients, Leads."_s;
    QTest::newRow("rename summary") << BulkShortcutRename::summaryText(3)
                                    << u"Apply one rename rule to all 3 selected shortcuts. Shortcut codes keep their "
                                       u"slash and file-type suffix."_s;
    QTest::newRow("rename button") << BulkShortcutRename::applyButtonText(3) << u"Apply to 3 shortcuts"_s;
    QTest::newRow("renamed") << BulkShortcutRename::renamedMessage(12) << u"Renamed 12 selected shortcuts."_s;
    QTest::newRow("page") << collectionPageText(1, 3) << u"Page 2 of 3"_s;
    QTest::newRow("repeated title") << repeatedShortcutsTitle(4) << u"Repeated shortcuts · 4"_s;
    QTest::newRow("repeats") << repeatsText(shortcuts) << u"3 repeats"_s;
    QTest::newRow("occurrences") << occurrencesText(shortcuts) << u"3 occurrences · 2 collections · "_s;
    QTest::newRow("identical title") << identicalCollectionsTitle(1) << u"Identical collections · 1"_s;
    QTest::newRow("matching items") << matchingItemsText(collections) << u"7 matching items"_s;
    QTest::newRow("delete detail") << deleteShortcutDetail(u"\\ty"_s) << u"\\ty will be removed from Tavo."_s;
}

void TestCollectionRules::messages()
{
    QFETCH(QString, actual);
    QFETCH(QString, expected);
    QCOMPARE(actual, expected);
}

QTEST_GUILESS_MAIN(TestCollectionRules)
#include "tst_collection_rules.moc"
