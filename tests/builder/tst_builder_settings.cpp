#include "builder/builder_app.h"
#include "builder/builder_command.h"
#include "store/defaults.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

using Settings = QList<QPair<QString, QJsonValue>>;

QString appListJson(const QStringList& names)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(names)).toJson(QJsonDocument::Compact));
}

QSet<QString> keySet(const Defaults& defaults)
{
    const QStringList keys = defaults.keys();
    return QSet<QString>(keys.cbegin(), keys.cend());
}

// The values of every key, to see what a step changed.
QHash<QString, QJsonValue> valuesOf(const Defaults& defaults)
{
    QHash<QString, QJsonValue> values;
    for (const QString& key : defaults.keys()) {
        values.insert(key, defaults.value(key));
    }
    return values;
}

QStringList changedKeys(const QHash<QString, QJsonValue>& before, const Defaults& after)
{
    QStringList changed;
    QSet<QString> keys = keySet(after);
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        keys.insert(it.key());
    }
    for (const QString& key : keys) {
        if (before.value(key, QJsonValue(QJsonValue::Undefined)) != after.value(key)) {
            changed.append(key);
        }
    }
    changed.sort();
    return changed;
}

} // namespace

Q_DECLARE_METATYPE(Settings)

// App settings on a real store file: what the editor reads and writes, what "Set as Default"
// freezes, seeding, the template library and the app list.
class TestBuilderSettings : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void readOrder_data();
    void readOrder();
    void persistWritesNoDefault();
    void setAsDefaultWritesSixteenKeysAtOnce();
    void seedingRunsOnce();
    void seedingRenamesOldSpellings();
    void undecodableListIsKeptAside();
    void billMigration();
    void templateLibrary();
    void creatingAndDeleting();
    void appIcon_data();
    void appIcon();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
};

void TestBuilderSettings::init()
{
    m_defaults.reset();
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(u"defaults.json"_s));
}

void TestBuilderSettings::readOrder_data()
{
    QTest::addColumn<Settings>("settings"); // keys of the app "A"
    QTest::addColumn<QString>("field");
    QTest::addColumn<QVariant>("command"); // as a typed command reads it
    QTest::addColumn<QVariant>("editor");  // as the editor loads it

    const auto key = [](const char* setting) { return builderKey(QLatin1StringView(setting), u"A"_s); };
    const auto row = [](const char* name, const Settings& settings, const char* field, const QVariant& command,
                        const QVariant& editor) {
        QTest::newRow(name) << settings << QString::fromLatin1(field) << command << editor;
    };

    row("no template key: Modern for a command, Blank in the editor", {}, "template", u"Modern"_s, u"Blank"_s);
    row("working template", {{key("Template"), u"Bill"_s}}, "template", u"Bill"_s, u"Bill"_s);
    row("final template before the working one", {{key("Template"), u"Bill"_s}, {key("FinalTemplate"), u"Receipt"_s}},
        "template", u"Receipt"_s, u"Receipt"_s);
    row("saved prompt first", {{key("Prompt"), u"work"_s}, {key("DefaultPrompt"), u"saved"_s}}, "prompt", u"saved"_s,
        u"saved"_s);
    row("an empty saved prompt still counts", {{key("Prompt"), u"work"_s}, {key("DefaultPrompt"), u""_s}}, "prompt",
        u""_s, u""_s);
    row("working prompt without a saved one", {{key("Prompt"), u"work"_s}}, "prompt", u"work"_s, u"work"_s);
    row("bold: a saved Boolean wins", {{key("Bold"), true}, {key("DefaultBold"), false}}, "bold", false, false);
    row("bold: a saved non-Boolean is passed over", {{key("Bold"), true}, {key("DefaultBold"), u"false"_s}}, "bold",
        true, true);
    row("bold: nothing stored", {}, "bold", false, false);
    row("font size: nothing stored", {}, "fontSize", 11.0, 11.0);
    row("font size: a command reads only the saved one", {{key("FontSize"), 14.0}}, "fontSize", 11.0, 14.0);
    row("font size: a saved 0 is 11 for a command", {{key("FontSize"), 14.0}, {key("DefaultFontSize"), 0.0}},
        "fontSize", 11.0, 14.0);
    row("font size: a saved size", {{key("FontSize"), 14.0}, {key("DefaultFontSize"), 9.5}}, "fontSize", 9.5, 9.5);
    row("font colour default", {}, "fontColor", u"Ink"_s, u"Ink"_s);
    row("font colour: saved first", {{key("FontColor"), u"Red"_s}, {key("DefaultFontColor"), u"Blue"_s}}, "fontColor",
        u"Blue"_s, u"Blue"_s);
    row("details: saved first", {{key("Details"), u"w"_s}, {key("DefaultDetails"), u"d"_s}}, "details", u"d"_s, u"d"_s);
    row("asset: working without a saved one", {{key("Asset"), u"/a.png"_s}}, "asset", u"/a.png"_s, u"/a.png"_s);
    row("rich template: saved first",
        {{key("TemplateRTF"), Defaults::bytesValue("work")}, {key("DefaultRTF"), Defaults::bytesValue("saved")}}, "rtf",
        QByteArray("saved"), QByteArray("saved"));
    row("rich template: working", {{key("TemplateRTF"), Defaults::bytesValue("work")}}, "rtf", QByteArray("work"),
        QByteArray("work"));
    row("rich template: text is no bytes", {{key("TemplateRTF"), u"{\\rtf1}"_s}}, "rtf", QVariant(), QVariant());
    row("format default", {}, "format", u"PDF"_s, u"PDF"_s);
    row("absent prefix: the slug", {}, "prefix", u"a"_s, u"a"_s);
    row("empty prefix stays empty", {{key("Prefix"), u""_s}}, "prefix", u""_s, u""_s);
}

void TestBuilderSettings::readOrder()
{
    QFETCH(Settings, settings);
    QFETCH(QString, field);
    QFETCH(QVariant, command);
    QFETCH(QVariant, editor);

    m_defaults->setValues(settings);
    const BuilderCommandApp app = BuilderCommandApp::read(*m_defaults, u"A"_s);
    const BuilderAppConfiguration state = loadConfiguration(*m_defaults, u"A"_s);
    const QHash<QString, std::pair<QVariant, QVariant>> read = {
        {u"template"_s, {app.templateStyle, state.templateStyle}},
        {u"prompt"_s, {app.prompt, state.prompt}},
        {u"bold"_s, {app.bold, state.bold}},
        {u"fontSize"_s, {app.fontSize, state.fontSize}},
        {u"fontColor"_s, {app.fontColor, state.fontColor}},
        {u"details"_s, {app.details, state.details}},
        {u"asset"_s, {app.assetPath, state.asset}},
        {u"rtf"_s,
         {app.richTextData ? QVariant(*app.richTextData) : QVariant(),
          state.richTextData ? QVariant(*state.richTextData) : QVariant()}},
        {u"format"_s, {app.format, state.format}},
        {u"prefix"_s, {app.prefix, state.prefix}},
    };
    QVERIFY(read.contains(field));
    QCOMPARE(read.value(field).first, command);
    QCOMPARE(read.value(field).second, editor);
}

void TestBuilderSettings::persistWritesNoDefault()
{
    BuilderAppConfiguration state;
    state.prompt = u"Write it"_s;
    state.variables = u"Amount"_s;
    state.richTextData = QByteArray("{\\rtf1 x}");
    state.fontSize = 13;
    persistConfiguration(*m_defaults, u"Inv"_s, state);

    const QStringList keys = m_defaults->keys();
    QCOMPARE(keys.size(), 21);
    for (const QString& key : keys) {
        QVERIFY2(key.endsWith(u".Inv"_s), qPrintable(key));
        QVERIFY2(!key.contains(u"Default"_s) && !key.contains(u"FinalTemplate"_s), qPrintable(key));
    }
    // What it wrote reads back as the state it came from.
    const BuilderAppConfiguration loaded = loadConfiguration(*m_defaults, u"Inv"_s);
    QCOMPARE(loaded.prompt, state.prompt);
    QCOMPARE(loaded.richTextData, state.richTextData);
    QCOMPARE(loaded.fontSize, 13.0);
    QCOMPARE(loaded.templateStyle, u"Blank"_s);
}

void TestBuilderSettings::setAsDefaultWritesSixteenKeysAtOnce()
{
    m_defaults->setValues({{builderKey(u"Prompt"_s, u"Inv"_s), u"working"_s},
                           {builderKey(u"Prompt"_s, u"Inv 2"_s), u"other app"_s},
                           {builderKey(u"DefaultPrompt"_s, u"Inv 2"_s), u"other default"_s}});
    BuilderAppConfiguration state = loadConfiguration(*m_defaults, u"Inv"_s);
    state.prompt = u"frozen"_s;
    state.templateStyle = u"Receipt"_s;
    state.richTextData = QByteArray("{\\rtf1 y}");
    state.format = u"HTML"_s;
    const QHash<QString, QJsonValue> before = valuesOf(*m_defaults);

    QSignalSpy changes(m_defaults.get(), &Defaults::valuesChanged);
    QCOMPARE(setAsDefault(*m_defaults, u"Inv"_s, state), u"“Receipt” is now the default template for this app."_s);
    QCOMPARE(changes.count(), 1);

    QStringList expected;
    for (const char* setting :
         {"FinalTemplate", "DefaultPrompt", "DefaultRTF", "DefaultDetails", "DefaultAsset", "DefaultFontSize",
          "DefaultBold", "DefaultItalic", "DefaultUnderline", "DefaultFontColor", "Format", "DefaultImageModel",
          "DefaultVideoModel", "DefaultMediaReferences", "DefaultMediaAspectRatio", "DefaultImageResolution"}) {
        expected.append(builderKey(QLatin1StringView(setting), u"Inv"_s));
    }
    expected.sort();
    QCOMPARE(changedKeys(before, *m_defaults), expected);
    QCOMPARE(m_defaults->string(builderKey(u"Prompt"_s, u"Inv"_s)), u"working"_s);

    // A command now reads the frozen state, a reader in another process too.
    const Defaults reread(m_defaults->filePath());
    const BuilderCommandApp app = BuilderCommandApp::read(reread, u"Inv"_s);
    QCOMPARE(app.prompt, u"frozen"_s);
    QCOMPARE(app.templateStyle, u"Receipt"_s);
    QCOMPARE(app.richTextData, std::optional(QByteArray("{\\rtf1 y}")));
    QCOMPARE(app.format, u"HTML"_s);
}

void TestBuilderSettings::seedingRunsOnce()
{
    // The user's own app, and a Rewrite the user made before the seeds came.
    m_defaults->setValues(
        {{builderAppsKey, appListJson({u"Mine"_s, u"rewrite"_s})}, {builderKey(u"Prefix"_s, u"Rewrite"_s), u"rw"_s}});
    QVERIFY(seedBuilderApps(*m_defaults));
    QStringList expected{u"Mine"_s, u"rewrite"_s};
    for (const BuilderSeedApp& row : builderSeedApps()) {
        if (row.name != u"Rewrite"_s) {
            expected.append(row.name);
        }
    }
    QCOMPARE(builderAppNames(*m_defaults), expected);
    QVERIFY(m_defaults->flag(builderAppsSeededKey));
    QCOMPARE(m_defaults->stringList(userCreatedBuilderAppsKey)->size(), 13);
    QCOMPARE(m_defaults->string(builderKey(u"Prefix"_s, u"Rewrite"_s)), u"rw"_s);
    QCOMPARE(m_defaults->string(builderKey(u"Template"_s, u"Trip"_s)), std::nullopt);
    QCOMPARE(m_defaults->string(builderKey(u"Template"_s, u"Travel Itinerary"_s)), u"Blank"_s);
    QCOMPARE(m_defaults->string(builderKey(u"Format"_s, u"Travel Itinerary"_s)), u"HTML"_s);
    QCOMPARE(m_defaults->string(builderKey(u"Prompt"_s, u"HBD"_s)),
             u"Create a joyful birthday card for the selected person. Use only the configured name and message; "
             "keep the design warm and celebratory."_s);

    // A seeded app the user deletes stays deleted: the second run does nothing at all.
    deleteBuilderApp(*m_defaults, u"Wish"_s);
    QCOMPARE(m_defaults->string(builderKey(u"Prefix"_s, u"Wish"_s)), std::nullopt);
    const QHash<QString, QJsonValue> before = valuesOf(*m_defaults);
    QVERIFY(!seedBuilderApps(*m_defaults));
    QCOMPARE(changedKeys(before, *m_defaults), QStringList());
    QVERIFY(!builderAppNames(*m_defaults).contains(u"Wish"_s));
}

void TestBuilderSettings::seedingRenamesOldSpellings()
{
    m_defaults->setValues({
        {builderAppsKey, appListJson({u"happy birthday"_s, u"bill builder"_s})},
        {builderKey(u"Prefix"_s, u"happy birthday"_s), u"bday"_s},
        {builderKey(u"Calculations"_s, u"happy birthday"_s), u"Age = 1"_s},
        {builderKey(u"Prefix"_s, u"bill builder"_s), u"bb"_s},
        {builderKey(u"Prefix"_s, u"Bill"_s), u""_s}, // empty: the old value fills it
        {builderKey(u"Format"_s, u"Bill"_s), u"Text"_s},
    });
    QVERIFY(seedBuilderApps(*m_defaults));
    const QStringList names = builderAppNames(*m_defaults);
    QCOMPARE(names.mid(0, 2), (QStringList{u"HBD"_s, u"Bill"_s}));
    QCOMPARE(names.count(u"HBD"_s), 1);
    QCOMPARE(names.size(), 13);
    QCOMPARE(m_defaults->string(builderKey(u"Prefix"_s, u"HBD"_s)), u"bday"_s);
    QCOMPARE(m_defaults->string(builderKey(u"Calculations"_s, u"HBD"_s)), u"Age = 1"_s);
    QCOMPARE(m_defaults->string(builderKey(u"Prefix"_s, u"Bill"_s)), u"bb"_s);
    QCOMPARE(m_defaults->string(builderKey(u"Format"_s, u"Bill"_s)), u"Text"_s);
}

void TestBuilderSettings::undecodableListIsKeptAside()
{
    const QString broken = u"[\"Invoice\", "_s;
    m_defaults->setString(builderAppsKey, broken);
    QCOMPARE(builderAppNames(*m_defaults), QStringList());
    QVERIFY(!customBuilderCommand(u"\\invoice"_s, {}, {}, *m_defaults));

    // The first write over it keeps it, in the same change.
    QSignalSpy changes(m_defaults.get(), &Defaults::valuesChanged);
    QCOMPARE(addUtilityApp(*m_defaults, u"Quote"_s), std::nullopt);
    QCOMPARE(changes.count(), 1);
    QCOMPARE(builderAppNames(*m_defaults), QStringList{u"Quote"_s});
    QCOMPARE(m_defaults->stringList(undecodableBuilderAppsKey), QStringList{broken});

    // A second bad list joins the first instead of replacing it.
    m_defaults->setValue(builderAppsKey, QJsonArray{1, 2});
    writeBuilderAppNames(*m_defaults, {u"X"_s});
    QCOMPARE(m_defaults->stringList(undecodableBuilderAppsKey)->size(), 2);
    QCOMPARE(m_defaults->stringList(undecodableBuilderAppsKey)->first(), broken);
    QVERIFY(!keepAsideUndecodableAppList(*m_defaults));
}

void TestBuilderSettings::billMigration()
{
    const QString app = u"Bill"_s;
    m_defaults->setValues({
        {builderKey(u"Prefix"_s, app), u"Bill"_s},
        {builderKey(u"Variables"_s, app), u" Customer , product, Amount"_s},
        {builderKey(u"Collections"_s, app), u"Customers, Products"_s},
        {builderKey(u"FormulaOrder"_s, app), QJsonArray{u"Variable: Customer"_s}},
        {builderKey(u"Prompt"_s, app), legacyBillPrompt},
        {builderKey(u"DefaultPrompt"_s, app), u"mine"_s},
    });
    QVERIFY(migrateLegacyBillBuilderSchema(*m_defaults, app));
    QCOMPARE(m_defaults->string(builderKey(u"Variables"_s, app)), u"Amount"_s);
    QVERIFY(!m_defaults->contains(builderKey(u"FormulaOrder"_s, app)));
    QCOMPARE(m_defaults->string(builderKey(u"Prompt"_s, app)), migratedBillPrompt);
    QCOMPARE(m_defaults->string(builderKey(u"DefaultPrompt"_s, app)), u"mine"_s);
    const QHash<QString, QJsonValue> before = valuesOf(*m_defaults);
    QVERIFY(!migrateLegacyBillBuilderSchema(*m_defaults, app));
    QCOMPARE(changedKeys(before, *m_defaults), QStringList());

    QVERIFY(variableNamesCollection(u"Customer"_s, u"customers"_s));
    QVERIFY(variableNamesCollection(u"products"_s, u"Products"_s));
    QVERIFY(!variableNamesCollection(u"Custom"_s, u"Customers"_s));
    QVERIFY(!variableNamesCollection(u"Amount"_s, u"Amounts due"_s));
}

void TestBuilderSettings::templateLibrary()
{
    BuilderAppConfiguration state;
    state.prompt = u"P1"_s;
    state.richTextData = QByteArray("{\\rtf1 one}");
    state.bold = true;
    state.fontSize = 15;
    state.templateStyle = u"Bill"_s;
    QCOMPARE(saveReusableTemplate(*m_defaults, u"Inv"_s, u"  Mine  "_s, state),
             std::optional(u"Saved “Mine” with rich formatting in this app’s template library."_s));
    QCOMPARE(saveReusableTemplate(*m_defaults, u"Inv"_s, u" "_s, state), std::nullopt);
    QCOMPARE(saveReusableTemplate(*m_defaults, u"Inv"_s, u"Mine"_s, state).has_value(), true);
    QCOMPARE(savedTemplateNames(*m_defaults, u"Inv"_s), QStringList{u"Mine"_s});
    QCOMPARE(m_defaults->string(appTemplateKey(u"Inv"_s, u"Mine"_s, u"style"_s)), u"Bill"_s);
    QCOMPARE(templateChoices(*m_defaults, u"Inv"_s).last(), u"Mine"_s);
    QVERIFY(templateChoices(*m_defaults, u"Inv"_s).contains(u"Modern"_s));

    BuilderAppConfiguration other;
    other.details = u"kept"_s;
    // A field the saved template lacks leaves the state's own.
    m_defaults->remove(appTemplateKey(u"Inv"_s, u"Mine"_s, u"fontColor"_s));
    other.fontColor = u"Teal"_s;
    selectTemplate(*m_defaults, u"Inv"_s, u"Mine"_s, other);
    QCOMPARE(other.prompt, u"P1"_s);
    QCOMPARE(other.richTextData, state.richTextData);
    QVERIFY(other.bold);
    QCOMPARE(other.fontSize, 15.0);
    QCOMPARE(other.templateStyle, u"Bill"_s);
    QCOMPARE(other.fontColor, u"Teal"_s);
    QCOMPARE(other.details, QString()); // the saved template's details were empty

    selectTemplate(*m_defaults, u"Inv"_s, u"Blank"_s, other);
    QCOMPARE(other.richTextData, std::nullopt);
    QCOMPARE(other.prompt, u"P1"_s);
}

void TestBuilderSettings::creatingAndDeleting()
{
    QCOMPARE(addUtilityApp(*m_defaults, u"   "_s), std::optional(u"Give the action a short name first."_s));
    QCOMPARE(addUtilityApp(*m_defaults, u" Tax Invoice Maker "_s, u"Do it"_s), std::nullopt);
    QVERIFY(addUtilityApp(*m_defaults, u"tax invoice maker"_s).has_value());
    QCOMPARE(builderAppNames(*m_defaults), QStringList{u"Tax Invoice Maker"_s});
    QCOMPARE(m_defaults->string(builderKey(u"Prefix"_s, u"Tax Invoice Maker"_s)), u"tax-invoice-"_s);
    QCOMPARE(m_defaults->string(builderKey(u"Template"_s, u"Tax Invoice Maker"_s)), u"Blank"_s);
    QCOMPARE(m_defaults->string(builderKey(u"Format"_s, u"Tax Invoice Maker"_s)), u"PDF"_s);

    QCOMPARE(startNewAction(*m_defaults), u"New action 1"_s);
    QCOMPARE(startNewAction(*m_defaults), u"New action 2"_s);
    deleteBuilderApp(*m_defaults, u"New action 1"_s);
    QCOMPARE(startNewAction(*m_defaults), u"New action 1"_s);

    AppBuilderPreset preset = appBuilderPresets().at(0);
    QCOMPARE(appBuilderPresets().size(), 12);
    QCOMPARE(addPresetApp(*m_defaults, preset), std::nullopt);
    const std::optional<CustomBuilderCommand> command = customBuilderCommand(u"\\invoice-a-b-5"_s, {}, {}, *m_defaults);
    QVERIFY(command);
    QCOMPARE(command->collections, (QStringList{u"Companies"_s, u"Customers"_s}));
    QCOMPARE(command->fields, QStringList{u"Amount"_s});
    QCOMPARE(command->templateStyle, u"Bill"_s);
    QCOMPARE(command->outputCollections, QStringList{u"Invoices"_s});

    BuilderAppConfiguration state = loadConfiguration(*m_defaults, u"Invoice"_s);
    saveReusableTemplate(*m_defaults, u"Invoice"_s, u"T"_s, state);
    deleteBuilderApp(*m_defaults, u"Invoice"_s);
    for (const QString& key : m_defaults->keys()) {
        QVERIFY2(!key.endsWith(u".Invoice"_s) && !key.contains(u".Invoice."_s), qPrintable(key));
    }
    QVERIFY(!builderAppNames(*m_defaults).contains(u"Invoice"_s));
    QVERIFY(!m_defaults->stringList(userCreatedBuilderAppsKey)->contains(u"Invoice"_s));
}

void TestBuilderSettings::appIcon_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("symbol");

    QTest::newRow("image") << u"Image Maker"_s << u"photo.fill"_s;
    QTest::newRow("video") << u"Promo VIDEO"_s << u"play.rectangle.fill"_s;
    QTest::newRow("gif") << u"gif loop"_s << u"play.rectangle.fill"_s;
    QTest::newRow("invoice") << u"Invoice"_s << u"doc.text.fill"_s;
    QTest::newRow("bill") << u"Bill Builder"_s << u"doc.text.fill"_s;
    QTest::newRow("quote") << u"Quote"_s << u"doc.richtext.fill"_s;
    QTest::newRow("proposal") << u"Proposal Builder"_s << u"doc.richtext.fill"_s;
}

void TestBuilderSettings::appIcon()
{
    QFETCH(QString, name);
    QFETCH(QString, symbol);
    QCOMPARE(automaticAppIcon(name), symbol);
    // A chosen symbol wins over the name's.
    m_defaults->setString(builderKey(u"AppIconSymbol"_s, name), u"star"_s);
    QCOMPARE(loadConfiguration(*m_defaults, name).appIconSymbol, u"star"_s);
    m_defaults->remove(builderKey(u"AppIconSymbol"_s, name));
    QCOMPARE(loadConfiguration(*m_defaults, name).appIconSymbol, symbol);
}

QTEST_GUILESS_MAIN(TestBuilderSettings)
#include "tst_builder_settings.moc"
