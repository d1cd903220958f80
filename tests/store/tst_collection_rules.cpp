#include "store/collection_rules.h"

#include <QtTest>

using namespace tavo;

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

Clip makeClip(const QString& key, const QString& name = QStringLiteral("Name"),
              const QString& group = QStringLiteral("Work"), std::optional<QStringList> groups = std::nullopt)
{
    Clip clip;
    clip.key = key;
    clip.name = name;
    clip.text = QStringLiteral("text");
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
        CollectionFieldDefinition field;
        field.id = uuidText(QUuid::createUuid());
        field.name = fieldName;
        definition.fields.append(field);
    }
    return definition;
}

CollectionRecord makeRecord(const QString& collection, const QString& alias)
{
    CollectionRecord record;
    record.id = uuidText(QUuid::createUuid());
    record.collection = collection;
    record.name = QStringLiteral("Record ") + alias;
    record.alias = alias;
    record.updatedAt = utc(2024, 1, 1);
    return record;
}

const QString tooLongOrEmpty = QStringLiteral(
    "A resulting shortcut code is empty or longer than 48 characters. Shorten the added text and try again.");

QString duplicateMessage(const char* code)
{
    return QStringLiteral("This rename would create a duplicate shortcut code (") + QString::fromUtf8(code) +
           QStringLiteral("). Change the rule or selection and try again.");
}

} // namespace

class TestCollectionRules : public QObject
{
    Q_OBJECT

private slots:
    void moveReplacesCollections();
    void addToAppendsMissingCollections();
    void bulkChangeWithNothingChosenChangesNothing();
    void movedMessageListsNames();

    void validateRename_data();
    void validateRename();
    void renameInNames();
    void renameInClips();
    void renameInLibrary();
    void blankRenameChangesNothing();
    void builderCollections_data();
    void builderCollections();
    void builderCollectionsKeys_data();
    void builderCollectionsKeys();

    void modesAndTargetsInOrder();
    void transformed_data();
    void transformed();
    void transformedCode_data();
    void transformedCode();
    void applyRefusesBadCodes_data();
    void applyRefusesBadCodes();
    void applyCountsCharactersNotUnits();
    void applyRefusesDuplicates_data();
    void applyRefusesDuplicates();
    void applyRenamesCodesAndNames();
    void namesOnlyKeepsKeys();
    void applyClearsAnEarlierError();
    void acceptedRenameIsStored();
    void bulkRenameTexts();

    void recordSave_data();
    void recordSave();
    void recordSaveFillsFieldsTrimmed();
    void recordWithoutFieldsEditsDetails();
    void editedRecordKeepsIdentity();
    void recordFormStartsFromDefaults();

    void definitionFieldsFromText_data();
    void definitionFieldsFromText();
    void definitionSave();
    void definitionNameExists();
    void definitionCategoryChoices();

    void paging_data();
    void paging();
    void pageSlices();
    void filteredCollectionNames();
    void duplicatePanelTexts();
};

void TestCollectionRules::moveReplacesCollections()
{
    QList<Clip> clips{makeClip(QStringLiteral("/a"), {}, QStringLiteral("Work"), strings({"Sales"})),
                      makeClip(QStringLiteral("/b")), makeClip(QStringLiteral("/c"))};
    const QSet<QUuid> selected{clips[0].id, clips[2].id};
    const int changed =
        applyBulkCollectionChange(clips, selected, BulkAssignmentMode::Move, strings({"Clients", "Leads"}));
    QCOMPARE(changed, 2);
    QCOMPARE(clips[0].group, QStringLiteral("Clients"));
    QCOMPARE(clips[0].groups, std::optional<QStringList>(strings({"Leads"})));
    QCOMPARE(clips[2].allGroups(), strings({"Clients", "Leads"}));
    QCOMPARE(clips[1].group, QStringLiteral("Work"));
    QVERIFY(!clips[1].groups);
    QCOMPARE(clips[0].key, QStringLiteral("/a"));
}

void TestCollectionRules::addToAppendsMissingCollections()
{
    QList<Clip> clips{makeClip(QStringLiteral("/a"), {}, QStringLiteral("Work"), strings({"Sales"})),
                      makeClip(QStringLiteral("/b"), {}, QStringLiteral("Clients"))};
    const QSet<QUuid> selected{clips[0].id, clips[1].id};
    const int changed = applyBulkCollectionChange(clips, selected, BulkAssignmentMode::AddTo,
                                                  strings({"sales", "Clients", "CLIENTS", "Leads"}));
    QCOMPARE(changed, 2);
    QCOMPARE(clips[0].group, QStringLiteral("Work"));
    QCOMPARE(clips[0].allGroups(), strings({"Work", "Sales", "Clients", "Leads"}));
    QCOMPARE(clips[1].allGroups(), strings({"Clients", "sales", "Leads"}));

    // Adding names a clip already holds changes nothing.
    QCOMPARE(applyBulkCollectionChange(clips, selected, BulkAssignmentMode::AddTo, strings({"LEADS"})), 0);
}

void TestCollectionRules::bulkChangeWithNothingChosenChangesNothing()
{
    QList<Clip> clips{makeClip(QStringLiteral("/a"))};
    const QList<Clip> before = clips;
    QCOMPARE(applyBulkCollectionChange(clips, {clips[0].id}, BulkAssignmentMode::Move, {}), 0);
    QCOMPARE(clips, before);
    QCOMPARE(bulkAssignmentModeText(BulkAssignmentMode::Move), QStringLiteral("Move"));
    QCOMPARE(bulkAssignmentModeText(BulkAssignmentMode::AddTo), QStringLiteral("Add to"));
}

void TestCollectionRules::movedMessageListsNames()
{
    QCOMPARE(movedShortcutsMessage(strings({"Clients", "Leads"})),
             QStringLiteral("Moved selected shortcuts to Clients, Leads."));
}

void TestCollectionRules::validateRename_data()
{
    QTest::addColumn<QString>("newName");
    QTest::addColumn<QString>("message"); // empty when the rename may go ahead
    const QString empty = QStringLiteral("Enter a collection name.");
    const QString exists = QStringLiteral("A collection with that name already exists.");
    QTest::newRow("empty name") << "" << empty;
    QTest::newRow("blank name") << " \n" << empty;
    QTest::newRow("another collection's name ignoring case") << "sales" << exists;
    QTest::newRow("with blanks around") << " SALES " << exists;
    QTest::newRow("a change of case only") << "WORK"
                                           << "";
    QTest::newRow("a free name") << "Deals"
                                 << "";
}

void TestCollectionRules::validateRename()
{
    QFETCH(QString, newName);
    QFETCH(QString, message);
    const std::optional<QString> refusal =
        validateCollectionRename(newName, QStringLiteral("Work"), strings({"Personal", "Work", "Sales"}));
    QCOMPARE(refusal.value_or(QString()), message);
}

void TestCollectionRules::renameInNames()
{
    QStringList names = strings({"Personal", "work", "Sales"});
    QVERIFY(renameCollectionInNames(names, QStringLiteral("Work"), QStringLiteral(" Deals ")));
    QCOMPARE(names, strings({"Personal", "Deals", "Sales"}));

    // A stale hidden entry of the new name is not kept twice.
    QStringList hidden = strings({"Work", "deals"});
    QVERIFY(renameCollectionInNames(hidden, QStringLiteral("work"), QStringLiteral("Deals")));
    QCOMPARE(hidden, strings({"Deals"}));

    QVERIFY(!renameCollectionInNames(names, QStringLiteral("Nothing"), QStringLiteral("Else")));
}

void TestCollectionRules::renameInClips()
{
    QList<Clip> clips{makeClip(QStringLiteral("/a"), {}, QStringLiteral("WORK"), strings({"Sales", "work"})),
                      makeClip(QStringLiteral("/b"), {}, QStringLiteral("Personal"), strings({"Work"})),
                      makeClip(QStringLiteral("/c"), {}, QStringLiteral("Personal"))};
    const Clip untouched = clips[2];
    QVERIFY(renameCollectionInClips(clips, QStringLiteral("Work"), QStringLiteral("Deals")));
    QCOMPARE(clips[0].group, QStringLiteral("Deals"));
    QCOMPARE(clips[0].groups, std::optional<QStringList>(strings({"Sales", "Deals"})));
    QCOMPARE(clips[1].allGroups(), strings({"Personal", "Deals"}));
    QCOMPARE(clips[2], untouched);
    QCOMPARE(clips[0].key, QStringLiteral("/a"));
}

void TestCollectionRules::renameInLibrary()
{
    QList<CollectionDefinition> definitions{CollectionDefinition::emptyFor(QStringLiteral("work"), utc(2024, 1, 1)),
                                            CollectionDefinition::emptyFor(QStringLiteral("Sales"), utc(2024, 1, 1))};
    QList<CollectionRecord> records{makeRecord(QStringLiteral("WORK"), QStringLiteral("a")),
                                    makeRecord(QStringLiteral("Sales"), QStringLiteral("b"))};
    const QDateTime now = utc(2025, 5, 5);
    QVERIFY(renameCollectionInLibrary(definitions, records, QStringLiteral("Work"), QStringLiteral("Deals"), now));
    QCOMPARE(definitions[0].name, QStringLiteral("Deals"));
    QCOMPARE(definitions[0].updatedAt, now);
    QCOMPARE(definitions[1].updatedAt, utc(2024, 1, 1));
    QCOMPARE(records[0].collection, QStringLiteral("Deals"));
    QCOMPARE(records[0].updatedAt, now);
    QCOMPARE(records[1].collection, QStringLiteral("Sales"));
    QCOMPARE(records[1].updatedAt, utc(2024, 1, 1));
}

void TestCollectionRules::blankRenameChangesNothing()
{
    QStringList names = strings({"Work"});
    QList<Clip> clips{makeClip(QStringLiteral("/a"))};
    QList<CollectionDefinition> definitions{CollectionDefinition::emptyFor(QStringLiteral("Work"))};
    QList<CollectionRecord> records{makeRecord(QStringLiteral("Work"), QStringLiteral("a"))};
    const auto before = std::make_tuple(names, clips, definitions, records);
    QVERIFY(!renameCollectionInNames(names, QStringLiteral("Work"), QStringLiteral("  ")));
    QVERIFY(!renameCollectionInClips(clips, QStringLiteral("Work"), QString()));
    QVERIFY(!renameCollectionInLibrary(definitions, records, QStringLiteral("Work"), QStringLiteral("\n")));
    QCOMPARE(std::make_tuple(names, clips, definitions, records), before);
    QCOMPARE(renamedBuilderCollections(QStringLiteral("Work,Sales"), QStringLiteral("Work"), QStringLiteral(" ")),
             QStringLiteral("Work,Sales"));
}

void TestCollectionRules::builderCollections_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("renamed");
    QTest::newRow("parts trimmed and joined with comma and blank") << "Work,  Sales ,Leads"
                                                                   << "Deals, Sales, Leads";
    QTest::newRow("matched ignoring case") << "sales,WORK"
                                           << "sales, Deals";
    QTest::newRow("no match still rejoins") << "Sales,Leads"
                                            << "Sales, Leads";
    QTest::newRow("a name that only contains it stays") << "Workshop"
                                                        << "Workshop";
}

void TestCollectionRules::builderCollections()
{
    QFETCH(QString, value);
    QFETCH(QString, renamed);
    QCOMPARE(renamedBuilderCollections(value, QStringLiteral("Work"), QStringLiteral("Deals")), renamed);
}

void TestCollectionRules::builderCollectionsKeys_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("holdsCollections");
    QTest::newRow("builder sources") << "tavoBuilderCollections.Mail" << true;
    QTest::newRow("builder outputs") << "tavoBuilderOutputCollections.Mail" << true;
    QTest::newRow("prefix needs its full stop") << "tavoBuilderCollections" << false;
    QTest::newRow("other builder key") << "tavoBuilderVariables.Mail" << false;
}

void TestCollectionRules::builderCollectionsKeys()
{
    QFETCH(QString, key);
    QFETCH(bool, holdsCollections);
    QCOMPARE(isBuilderCollectionsKey(key), holdsCollections);
}

void TestCollectionRules::modesAndTargetsInOrder()
{
    QStringList modes;
    for (const Mode mode : BulkShortcutRename::modes()) {
        modes.append(BulkShortcutRename::modeText(mode));
    }
    QCOMPARE(modes, strings({"Add prefix", "Add suffix", "Replace prefix", "Replace suffix", "Find & replace",
                             "Lowercase", "UPPERCASE", "Title Case", "Use shortcut name"}));
    QStringList targets;
    for (const Target target : BulkShortcutRename::targets()) {
        targets.append(BulkShortcutRename::targetText(target));
    }
    QCOMPARE(targets, strings({"Shortcut codes", "Shortcut names", "Codes and names"}));
}

void TestCollectionRules::transformed_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<QString>("findText");
    QTest::addColumn<QString>("replacement");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("result");
    QTest::newRow("add prefix") << Mode::AddPrefix << "new-"
                                << ""
                                << "sig"
                                << "new-sig";
    QTest::newRow("add suffix") << Mode::AddSuffix << "-x"
                                << ""
                                << "sig"
                                << "sig-x";
    QTest::newRow("replace prefix") << Mode::ReplacePrefix << "old"
                                    << "new"
                                    << "oldsig"
                                    << "newsig";
    QTest::newRow("replace prefix only at the start") << Mode::ReplacePrefix << "sig"
                                                      << "x"
                                                      << "oldsig"
                                                      << "oldsig";
    QTest::newRow("replace prefix minds case") << Mode::ReplacePrefix << "OLD"
                                               << "new"
                                               << "oldsig"
                                               << "oldsig";
    QTest::newRow("replace suffix") << Mode::ReplaceSuffix << "2023"
                                    << "2024"
                                    << "report2023"
                                    << "report2024";
    QTest::newRow("replace suffix only at the end") << Mode::ReplaceSuffix << "re"
                                                    << "x"
                                                    << "report"
                                                    << "report";
    QTest::newRow("find and replace all, ignoring case") << Mode::FindAndReplace << "ab"
                                                         << "x"
                                                         << "Ab-aB-ab"
                                                         << "x-x-x";
    QTest::newRow("find nothing replaces nothing") << Mode::FindAndReplace << ""
                                                   << "x"
                                                   << "abc"
                                                   << "abc";
    QTest::newRow("empty prefix to replace changes nothing") << Mode::ReplacePrefix << ""
                                                             << "x"
                                                             << "abc"
                                                             << "abc";
    QTest::newRow("lowercase") << Mode::Lowercase << ""
                               << ""
                               << "Hello World"
                               << "hello world";
    QTest::newRow("uppercase") << Mode::Uppercase << ""
                               << ""
                               << "Hello World"
                               << "HELLO WORLD";
    QTest::newRow("title case per word") << Mode::TitleCase << ""
                                         << ""
                                         << "hELLO  wORLD\tagain"
                                         << "Hello  World\tAgain";
    QTest::newRow("title case of accented words") << Mode::TitleCase << ""
                                                  << ""
                                                  << "élan ÇA"
                                                  << "Élan Ça";
    QTest::newRow("use shortcut name leaves a name") << Mode::UseShortcutName << "x"
                                                     << "y"
                                                     << "Name"
                                                     << "Name";
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
    QTest::newRow("suffix stays at the end") << Mode::AddSuffix << "-x"
                                             << "/cat.media"
                                             << ""
                                             << "/cat-x.media";
    QTest::newRow("prefix goes after the slash") << Mode::AddPrefix << "my-"
                                                 << "/cat.web"
                                                 << ""
                                                 << "/my-cat.web";
    QTest::newRow("result lower-cased, suffix too") << Mode::AddPrefix << "New"
                                                    << "\\Thanks.WEB"
                                                    << ""
                                                    << "/newthanks.web";
    QTest::newRow("blanks and slashes become one dash") << Mode::AddSuffix << " a/ \\b"
                                                        << "/cat"
                                                        << ""
                                                        << "/cat-a-b";
    QTest::newRow("slashes trimmed from both ends") << Mode::Lowercase << ""
                                                    << "//Cat\\"
                                                    << ""
                                                    << "/cat";
    QTest::newRow("only the last suffix kept aside") << Mode::AddSuffix << "2"
                                                     << "/a.app.web"
                                                     << ""
                                                     << "/a.app2.web";
    QTest::newRow("media suffix kept") << Mode::AddSuffix << "2"
                                       << "/a.media"
                                       << ""
                                       << "/a2.media";
    QTest::newRow("code from name") << Mode::UseShortcutName << ""
                                    << "/old.gif"
                                    << "Happy Cat! (2)"
                                    << "/happy-cat-2.gif";
    QTest::newRow("code from name drops other scripts") << Mode::UseShortcutName << ""
                                                        << "/old"
                                                        << "Café Noir"
                                                        << "/caf-noir";
    QTest::newRow("find and replace within the code") << Mode::FindAndReplace << "CAT"
                                                      << "/mycat.e"
                                                      << ""
                                                      << "/mydog.e";
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
    rule.replacement = QStringLiteral("dog");
    QCOMPARE(rule.transformedCode(makeClip(key, name)), code);
}

void TestCollectionRules::applyRefusesBadCodes_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<QString>("findText");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("accepted");
    // "/" + 43 + ".web" is 48 characters.
    QTest::newRow("48 characters allowed") << Mode::AddSuffix << QString(40, u'x') << "/abc.web"
                                           << "" << true;
    QTest::newRow("49 characters refused") << Mode::AddSuffix << QString(41, u'x') << "/abc.web"
                                           << "" << false;
    QTest::newRow("nothing left of the code") << Mode::ReplacePrefix << "abc"
                                              << "/abc.web"
                                              << "" << false;
    QTest::newRow("a name without letters or digits") << Mode::UseShortcutName << ""
                                                      << "/abc"
                                                      << "!!!" << false;
}

void TestCollectionRules::applyRefusesBadCodes()
{
    QFETCH(Mode, mode);
    QFETCH(QString, findText);
    QFETCH(QString, key);
    QFETCH(QString, name);
    QFETCH(bool, accepted);
    BulkShortcutRename rule;
    rule.mode = mode;
    rule.findText = findText;
    const Clip clip = makeClip(key, name);
    const auto renames = rule.apply({clip}, {clip.key, QStringLiteral("/other")});
    QCOMPARE(renames.has_value(), accepted);
    QCOMPARE(rule.error, accepted ? QString() : tooLongOrEmpty);
    if (accepted) {
        QCOMPARE(renames->value(clip.id).key.size(), 48);
    }
}

void TestCollectionRules::applyCountsCharactersNotUnits()
{
    // 47 emoji after the slash are 48 characters, though 95 UTF-16 units.
    BulkShortcutRename rule;
    rule.mode = BulkShortcutRename::Mode::AddSuffix;
    rule.findText = QStringLiteral("😀").repeated(46);
    const Clip clip = makeClip(QStringLiteral("/a"));
    QVERIFY(rule.apply({clip}, {clip.key}));
    rule.findText += QStringLiteral("😀");
    QVERIFY(!rule.apply({clip}, {clip.key}));
    QCOMPARE(rule.error, tooLongOrEmpty);
}

void TestCollectionRules::applyRefusesDuplicates_data()
{
    QTest::addColumn<QStringList>("selectedKeys");
    QTest::addColumn<QStringList>("otherKeys");
    QTest::addColumn<QString>("error"); // empty when accepted
    // The rule lower-cases codes.
    QTest::newRow("two results alike") << strings({"/Cat", "/CAT.web", "/cAt"}) << QStringList()
                                       << duplicateMessage("/cat");
    QTest::newRow("a result equal to an unselected key, ignoring case")
        << strings({"/Dog"}) << strings({"/DOG", "/x"}) << duplicateMessage("/dog");
    QTest::newRow("a selected key may keep its own code") << strings({"/Dog", "/Cat"}) << strings({"/x"}) << QString();
    QTest::newRow("results may take codes the selection gives up")
        << strings({"/Dog", "/dog.web"}) << strings({"/dog.app"}) << QString();
    QTest::newRow("an unselected twin of a selected key still counts")
        << strings({"/Dog"}) << strings({"/dog"}) << duplicateMessage("/dog");
}

void TestCollectionRules::applyRefusesDuplicates()
{
    QFETCH(QStringList, selectedKeys);
    QFETCH(QStringList, otherKeys);
    QFETCH(QString, error);
    QList<Clip> selected;
    for (const QString& key : selectedKeys) {
        selected.append(makeClip(key));
    }
    BulkShortcutRename rule;
    rule.mode = BulkShortcutRename::Mode::Lowercase;
    const auto renames = rule.apply(selected, selectedKeys + otherKeys);
    QCOMPARE(rule.error, error);
    QCOMPARE(renames.has_value(), error.isEmpty());
}

void TestCollectionRules::applyRenamesCodesAndNames()
{
    const QList<Clip> selected{makeClip(QStringLiteral("/cat.media"), QStringLiteral("Cat video")),
                               makeClip(QStringLiteral("/Dog"), QStringLiteral(" Dog "))};
    BulkShortcutRename rule;
    rule.target = Target::CodesAndNames;
    rule.mode = Mode::AddSuffix;
    rule.findText = QStringLiteral("-x ");
    const auto renames = rule.apply(selected, keysOf(selected) + strings({"/cat-x"}));
    QVERIFY2(renames, qPrintable(rule.error));
    QCOMPARE(renames->size(), 2);
    QCOMPARE(renames->value(selected[0].id),
             (RenamedShortcut{QStringLiteral("/cat-x-.media"), QStringLiteral("Cat video-x")}));
    QCOMPARE(renames->value(selected[1].id), (RenamedShortcut{QStringLiteral("/dog-x-"), QStringLiteral("Dog -x")}));

    // Codes from names keep the names as they are.
    rule.mode = Mode::UseShortcutName;
    const auto fromNames = rule.apply(selected, keysOf(selected));
    QVERIFY(fromNames);
    QCOMPARE(fromNames->value(selected[0].id),
             (RenamedShortcut{QStringLiteral("/cat-video.media"), QStringLiteral("Cat video")}));
}

void TestCollectionRules::namesOnlyKeepsKeys()
{
    // The library already holds two alike codes; a change of names must still go ahead.
    const QList<Clip> selected{makeClip(QStringLiteral("/Dup"), QStringLiteral("first one")),
                               makeClip(QStringLiteral("/dup"), QStringLiteral("second one"))};
    BulkShortcutRename rule;
    rule.target = Target::Names;
    rule.mode = Mode::TitleCase;
    const auto renames = rule.apply(selected, keysOf(selected));
    QVERIFY2(renames, qPrintable(rule.error));
    QCOMPARE(renames->value(selected[0].id), (RenamedShortcut{QStringLiteral("/Dup"), QStringLiteral("First One")}));
    QCOMPARE(renames->value(selected[1].id), (RenamedShortcut{QStringLiteral("/dup"), QStringLiteral("Second One")}));

    rule.mode = Mode::UseShortcutName;
    QVERIFY(rule.showsUseNameHint());
    const auto unchanged = rule.apply(selected, keysOf(selected));
    QVERIFY(unchanged);
    QCOMPARE(unchanged->value(selected[0].id).name, QStringLiteral("first one"));
    rule.target = Target::CodesAndNames;
    QVERIFY(!rule.showsUseNameHint());
}

void TestCollectionRules::applyClearsAnEarlierError()
{
    const Clip clip = makeClip(QStringLiteral("/a"));
    BulkShortcutRename rule;
    rule.mode = Mode::AddSuffix;
    rule.findText = QString(60, u'x');
    QVERIFY(!rule.apply({clip}, {clip.key}));
    QVERIFY(!rule.error.isEmpty());
    rule.findText = QStringLiteral("b");
    QVERIFY(rule.apply({clip}, {clip.key}));
    QVERIFY(rule.error.isEmpty());
}

void TestCollectionRules::acceptedRenameIsStored()
{
    QList<Clip> clips{makeClip(QStringLiteral("/a")), makeClip(QStringLiteral("/b")), makeClip(QStringLiteral("/c"))};
    BulkShortcutRename rule;
    rule.target = Target::CodesAndNames;
    rule.mode = Mode::AddPrefix;
    rule.findText = QStringLiteral("x");
    const auto renames = rule.apply({clips[0], clips[2]}, keysOf(clips));
    QVERIFY(renames);
    QCOMPARE(applyShortcutRenames(clips, *renames), 2);
    QCOMPARE(keysOf(clips), strings({"/xa", "/b", "/xc"}));
    QCOMPARE(clips[0].name, QStringLiteral("xName"));
    QCOMPARE(clips[1].name, QStringLiteral("Name"));
}

void TestCollectionRules::bulkRenameTexts()
{
    QCOMPARE(BulkShortcutRename::applyButtonText(3), QStringLiteral("Apply to 3 shortcuts"));
    QCOMPARE(BulkShortcutRename::summaryText(3),
             QStringLiteral("Apply one rename rule to all 3 selected shortcuts. Shortcut codes keep their slash and "
                            "file-type suffix."));
    QCOMPARE(BulkShortcutRename::renamedMessage(12), QStringLiteral("Renamed 12 selected shortcuts."));
    QVERIFY(bulkRenameUseNameHint.contains(QStringLiteral("shortcut\u2019s current name")));
}

void TestCollectionRules::recordSave_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("alias");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("storedAlias");
    const QString missing = QStringLiteral("Enter both a record name and shortcut alias.");
    const QString taken = QStringLiteral("That shortcut alias is already used in this collection.");
    QTest::newRow("no name") << " \n"
                             << "acme" << missing << "";
    QTest::newRow("alias of slashes and blanks only") << "Acme"
                                                      << " /\\ " << missing << "";
    QTest::newRow("alias taken ignoring case") << "Acme"
                                               << "ACME" << taken << "";
    QTest::newRow("alias taken once normalised") << "Acme"
                                                 << "\\Acme/ " << taken << "";
    QTest::newRow("alias used only in another collection") << "Globex"
                                                           << "globex"
                                                           << ""
                                                           << "globex";
    QTest::newRow("alias normalised") << "Initech"
                                      << " /InitECH\\ "
                                      << ""
                                      << "initech";
    QTest::newRow("inner slashes stay") << "Initech"
                                        << "a/b"
                                        << ""
                                        << "a/b";
}

void TestCollectionRules::recordSave()
{
    QFETCH(QString, name);
    QFETCH(QString, alias);
    QFETCH(QString, error);
    QFETCH(QString, storedAlias);
    const CollectionDefinition definition = definitionWithFields(QStringLiteral("Customers"), {});
    const QList<CollectionRecord> existing{makeRecord(QStringLiteral("customers"), QStringLiteral("acme")),
                                           makeRecord(QStringLiteral("Vendors"), QStringLiteral("globex"))};
    CollectionRecordEditor editor;
    editor.name = name;
    editor.alias = alias;
    const std::optional<CollectionRecord> record = editor.save(definition, existing, nullptr, utc(2025, 1, 1));
    QCOMPARE(editor.error, error);
    QCOMPARE(record.has_value(), error.isEmpty());
    if (record) {
        QCOMPARE(record->alias, storedAlias);
        QCOMPARE(record->name, name.trimmed());
        QCOMPARE(record->collection, QStringLiteral("Customers"));
        QVERIFY(parseUuid(record->id));
        QVERIFY(record->files.isEmpty());
        QCOMPARE(record->updatedAt, utc(2025, 1, 1));
    }
}

void TestCollectionRules::recordSaveFillsFieldsTrimmed()
{
    const CollectionDefinition definition =
        definitionWithFields(QStringLiteral("Vendors"), strings({"Email", "Phone"}));
    CollectionRecordEditor editor;
    editor.name = QStringLiteral(" Globex\n");
    editor.alias = QStringLiteral("globex");
    editor.values = {{QStringLiteral("Email"), QStringLiteral("  hi@globex.test ")},
                     {QStringLiteral("Stray"), QStringLiteral("not a field")}};
    const std::optional<CollectionRecord> record = editor.save(definition, {}, nullptr);
    QVERIFY(record);
    QCOMPARE(record->name, QStringLiteral("Globex"));
    QCOMPARE(record->values, (QMap<QString, QString>{{QStringLiteral("Email"), QStringLiteral("hi@globex.test")},
                                                     {QStringLiteral("Phone"), QString()}}));
}

void TestCollectionRules::recordWithoutFieldsEditsDetails()
{
    const CollectionDefinition definition = definitionWithFields(QStringLiteral("Notes"), {});
    QCOMPARE(CollectionRecordEditor::fieldNames(definition), strings({"Details"}));
    CollectionRecordEditor editor = CollectionRecordEditor::forRecord(definition, nullptr);
    QCOMPARE(editor.values.keys(), strings({"Details"}));
    editor.name = QStringLiteral("Door code");
    editor.alias = QStringLiteral("door");
    editor.values[QStringLiteral("Details")] = QStringLiteral(" 1234 ");
    const std::optional<CollectionRecord> record = editor.save(definition, {}, nullptr);
    QVERIFY(record);
    QCOMPARE(record->values, (QMap<QString, QString>{{QStringLiteral("Details"), QStringLiteral("1234")}}));
}

void TestCollectionRules::editedRecordKeepsIdentity()
{
    const CollectionDefinition definition = definitionWithFields(QStringLiteral("Customers"), strings({"Email"}));
    CollectionRecord original = makeRecord(QStringLiteral("Customers"), QStringLiteral("acme"));
    original.files = strings({"/home/u/logo.png"});
    original.values = {{QStringLiteral("Content"), QStringLiteral("migrated text")},
                       {QStringLiteral("Email"), QStringLiteral("old@acme.test")}};
    const QList<CollectionRecord> existing{original, makeRecord(QStringLiteral("Customers"), QStringLiteral("globex"))};

    CollectionRecordEditor editor = CollectionRecordEditor::forRecord(definition, &original);
    QCOMPARE(editor.alias, QStringLiteral("acme"));
    QCOMPARE(editor.values, (QMap<QString, QString>{{QStringLiteral("Email"), QStringLiteral("old@acme.test")}}));
    editor.name = QStringLiteral("Acme Corp");
    editor.alias = QStringLiteral("ACME"); // its own alias is no clash
    editor.values[QStringLiteral("Email")] = QStringLiteral("new@acme.test");
    const std::optional<CollectionRecord> saved = editor.save(definition, existing, &original, utc(2025, 2, 2));
    QVERIFY2(saved, qPrintable(editor.error));
    QCOMPARE(saved->id, original.id);
    QCOMPARE(saved->files, original.files);
    QCOMPARE(saved->collection, original.collection);
    QCOMPARE(saved->name, QStringLiteral("Acme Corp"));
    QCOMPARE(saved->alias, QStringLiteral("acme"));
    QCOMPARE(saved->updatedAt, utc(2025, 2, 2));
    QCOMPARE(saved->values.value(QStringLiteral("Email")), QStringLiteral("new@acme.test"));
    QCOMPARE(saved->values.value(QStringLiteral("Content")), QStringLiteral("migrated text"));

    editor.alias = QStringLiteral("Globex");
    QVERIFY(!editor.save(definition, existing, &original));
    QCOMPARE(editor.error, QStringLiteral("That shortcut alias is already used in this collection."));
}

void TestCollectionRules::recordFormStartsFromDefaults()
{
    CollectionDefinition definition = definitionWithFields(QStringLiteral("Vendors"), strings({"Country", "Phone"}));
    definition.fields[0].defaultValue = QStringLiteral("Ireland");
    const CollectionRecordEditor editor = CollectionRecordEditor::forRecord(definition, nullptr);
    QVERIFY(editor.name.isEmpty() && editor.alias.isEmpty());
    QCOMPARE(editor.values, (QMap<QString, QString>{{QStringLiteral("Country"), QStringLiteral("Ireland")},
                                                    {QStringLiteral("Phone"), QString()}}));
}

void TestCollectionRules::definitionFieldsFromText_data()
{
    QTest::addColumn<QString>("fieldsText");
    QTest::addColumn<QStringList>("names");
    QTest::newRow("the form's default") << CollectionDefinitionEditor::defaultFieldsText
                                        << strings({"Name", "Address", "Email", "Phone"});
    QTest::newRow("pieces trimmed, empty ones dropped") << " SKU ,, Price ,\n," << strings({"SKU", "Price"});
    QTest::newRow("nothing") << "" << QStringList();
}

void TestCollectionRules::definitionFieldsFromText()
{
    QFETCH(QString, fieldsText);
    QFETCH(QStringList, names);
    CollectionDefinitionEditor editor;
    editor.fieldsText = fieldsText;
    const QList<CollectionFieldDefinition> fields = editor.fields();
    QStringList fieldNames;
    QSet<QString> ids;
    for (const CollectionFieldDefinition& field : fields) {
        fieldNames.append(field.name);
        ids.insert(field.id);
        QCOMPARE(field.type, QStringLiteral("Text"));
        QVERIFY(!field.required);
        QVERIFY(field.defaultValue.isEmpty());
        QVERIFY(parseUuid(field.id));
    }
    QCOMPARE(fieldNames, names);
    QCOMPARE(ids.size(), fields.size());
}

void TestCollectionRules::definitionSave()
{
    CollectionDefinitionEditor editor;
    QCOMPARE(editor.fieldsText, QStringLiteral("Name, Address, Email, Phone"));
    QCOMPARE(editor.category, QStringLiteral("Utilities"));
    QVERIFY(!editor.canSave());
    editor.name = QStringLiteral(" Suppliers ");
    editor.description = QStringLiteral("Parts and prices");
    QVERIFY(editor.canSave());
    const CollectionDefinition created = editor.save(utc(2025, 3, 3));
    QVERIFY(parseUuid(created.id));
    QCOMPARE(created.name, QStringLiteral("Suppliers"));
    QCOMPARE(created.description, QStringLiteral("Parts and prices"));
    QCOMPARE(created.fields.size(), 4);
    QCOMPARE(created.category, std::optional<QString>(QStringLiteral("Utilities")));
    QCOMPARE(created.updatedAt, utc(2025, 3, 3));

    editor.id = created.id;
    editor.category.clear();
    const CollectionDefinition edited = editor.save();
    QCOMPARE(edited.id, created.id);
    QVERIFY(!edited.category);
}

void TestCollectionRules::definitionNameExists()
{
    CollectionDefinitionEditor editor;
    editor.name = QStringLiteral(" customers ");
    QVERIFY(editor.nameExists(strings({"Personal", "Customers"})));
    editor.name = QStringLiteral("Customer");
    QVERIFY(!editor.nameExists(strings({"Personal", "Customers"})));
    QCOMPARE(openExistingInBuilderText, QStringLiteral("Open existing in Builder"));
    QCOMPARE(openExistingCollectionText, QStringLiteral("Open existing collection"));
}

void TestCollectionRules::definitionCategoryChoices()
{
    const QStringList choices = CollectionDefinitionEditor::categoryChoices(strings({"Retail", "marketing"}));
    QVERIFY(!choices.contains(QStringLiteral("System generated")));
    QCOMPARE(choices.first(), QStringLiteral("Finance & Billing"));
    QCOMPARE(choices.last(), QStringLiteral("Retail"));
    QCOMPARE(choices.size(), 14);
}

void TestCollectionRules::paging_data()
{
    QTest::addColumn<int>("itemCount");
    QTest::addColumn<int>("pageCount");
    QTest::newRow("empty list has one page") << 0 << 1;
    QTest::newRow("one full page") << 50 << 1;
    QTest::newRow("one more starts a page") << 51 << 2;
    QTest::newRow("many") << 1234 << 25;
}

void TestCollectionRules::paging()
{
    QFETCH(int, itemCount);
    QFETCH(int, pageCount);
    QCOMPARE(collectionPageCount(itemCount), pageCount);
}

void TestCollectionRules::pageSlices()
{
    QList<int> items;
    for (int i = 0; i < 120; ++i) {
        items.append(i);
    }
    QCOMPARE(collectionPageSize, 50);
    QCOMPARE(collectionPage(items, 0).size(), 50);
    QCOMPARE(collectionPage(items, 1).first(), 50);
    QCOMPARE(collectionPage(items, 2), items.mid(100));
    QVERIFY(collectionPage(items, 3).isEmpty());
    QVERIFY(collectionPage(items, -1).isEmpty());
    QCOMPARE(collectionPageText(1, 3), QStringLiteral("Page 2 of 3"));
}

void TestCollectionRules::filteredCollectionNames()
{
    const QStringList names = strings({"Customers", "Client Invoices", "Recipes", "Secret leads", "Shops"});
    QList<CollectionDefinition> definitions{CollectionDefinition::emptyFor(QStringLiteral("shops"))};
    definitions[0].category = QStringLiteral("Retail");
    const QStringList hidden = strings({"SECRET LEADS"});

    QCOMPARE(tavo::filteredCollectionNames(names, hidden, false, {}, definitions),
             strings({"Customers", "Client Invoices", "Recipes", "Shops"}));
    QCOMPARE(tavo::filteredCollectionNames(names, hidden, true, {}, definitions), names);
    QCOMPARE(tavo::filteredCollectionNames(names, hidden, true, strings({"Sales & CRM"}), definitions),
             strings({"Secret leads"}));
    QCOMPARE(tavo::filteredCollectionNames(names, hidden, false, strings({"System generated", "Retail"}), definitions),
             strings({"Customers", "Shops"}));
    QCOMPARE(tavo::filteredCollectionNames(names, hidden, false, strings({"Utilities"}), definitions),
             strings({"Recipes"}));
}

void TestCollectionRules::duplicatePanelTexts()
{
    DuplicateShortcutGroup shortcuts;
    shortcuts.clips = {makeClip(QStringLiteral("/a")), makeClip(QStringLiteral("/A")), makeClip(QStringLiteral("\\a"))};
    shortcuts.collections = strings({"Personal", "Work"});
    QCOMPARE(repeatedShortcutsTitle(4), QStringLiteral("Repeated shortcuts \u00b7 4"));
    QCOMPARE(repeatsText(shortcuts), QStringLiteral("3 repeats"));
    QCOMPARE(occurrencesText(shortcuts), QStringLiteral("3 occurrences \u00b7 2 collections \u00b7 "));
    DuplicateCollectionGroup collections{QStringLiteral("a|b"), strings({"A", "B"}), 7};
    QCOMPARE(identicalCollectionsTitle(1), QStringLiteral("Identical collections \u00b7 1"));
    QCOMPARE(matchingItemsText(collections), QStringLiteral("7 matching items"));
    QCOMPARE(deleteShortcutDetail(QStringLiteral("\\ty")), QStringLiteral("\\ty will be removed from Tavo."));
}

QTEST_GUILESS_MAIN(TestCollectionRules)
#include "tst_collection_rules.moc"
