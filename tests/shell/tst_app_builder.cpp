#include "ai/model_profile_store.h"
#include "builder/builder_app.h"
#include "platform/secret_store.h"
#include "shell/app_builder_editor.h"
#include "shell/app_builder_page.h"
#include "shell/ui/design.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QJsonArray>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QTimer>
#include <QtTest>

#include <memory>

using namespace tavo;

namespace {

template<typename T>
T* find(const QObject* root, const char* name)
{
    T* found = root->findChild<T*>(QLatin1StringView(name));
    if (!found) {
        qFatal("no %s named %s", T::staticMetaObject.className(), name);
    }
    return found;
}

// Answers the next question box with `button` once it is up, and keeps what it asked.
void answerNextQuestion(QMessageBox::StandardButton button, QString* asked = nullptr)
{
    auto* poll = new QTimer;
    QObject::connect(poll, &QTimer::timeout, poll, [poll, button, asked] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            poll->deleteLater();
            if (asked) {
                *asked = box->text() + u'\n' + box->informativeText();
            }
            box->button(button)->click();
        }
    });
    poll->start(10);
}

// A keyring in memory: the test reads exactly what the editor wrote.
class MemorySecretStore : public SecretStore
{
public:
    QHash<QString, QString> items; // account -> value

    SecretLookup lookup(const QString& service, const QString& account) override
    {
        if (service != KeyStore::service || !items.contains(account)) {
            return SecretLookup::notFound();
        }
        return SecretLookup::found(items.value(account));
    }
    SecretWrite store(const QString&, const QString& account, const QString& value) override
    {
        items.insert(account, value);
        return SecretWrite::done();
    }
    SecretWrite remove(const QString&, const QString& account) override
    {
        items.remove(account);
        return SecretWrite::done();
    }
};

// Every key of the store with its value, to tell exactly what an action changed.
QMap<QString, QJsonValue> snapshot(const Defaults& defaults)
{
    QMap<QString, QJsonValue> all;
    for (const QString& key : defaults.keys()) {
        all.insert(key, defaults.value(key));
    }
    return all;
}

QStringList changedKeys(const QMap<QString, QJsonValue>& before, const QMap<QString, QJsonValue>& after)
{
    QStringList keys;
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        if (before.value(it.key()) != it.value()) {
            keys << it.key();
        }
    }
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (!after.contains(it.key())) {
            keys << it.key();
        }
    }
    keys.sort();
    return keys;
}

QStringList seedNames()
{
    QStringList names;
    for (const BuilderSeedApp& row : builderSeedApps()) {
        names << row.name;
    }
    return names;
}

// What a field of the editor shows, as text.
QString shownValue(const QObject* root, const QByteArray& field)
{
    QObject* widget = root->findChild<QObject*>(QLatin1StringView(field));
    if (auto* line = qobject_cast<QLineEdit*>(widget)) {
        return line->text();
    }
    if (auto* text = qobject_cast<QPlainTextEdit*>(widget)) {
        return text->toPlainText();
    }
    if (auto* box = qobject_cast<QComboBox*>(widget)) {
        return box->currentText();
    }
    if (auto* spin = qobject_cast<QDoubleSpinBox*>(widget)) {
        return QString::number(spin->value());
    }
    if (auto* check = qobject_cast<QCheckBox*>(widget)) {
        return check->isChecked() ? QStringLiteral("true") : QStringLiteral("false");
    }
    return QStringLiteral("<no field>");
}

// Types into a line field as a person does: what was there is replaced.
void retype(QLineEdit* field, const QString& text)
{
    field->selectAll();
    QTest::keyClick(field, Qt::Key_Delete);
    QTest::keyClicks(field, text);
}

CollectionRecord record(const QString& collection, const QString& name, const QString& alias)
{
    CollectionRecord r;
    r.id = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    r.collection = collection;
    r.name = name;
    r.alias = alias;
    r.updatedAt = QDateTime::currentDateTimeUtc();
    return r;
}

} // namespace

// The AppBuilder section on a real settings file in a temporary folder: the gallery, new apps,
// deleting, the editor's fields, "Set as Default", the rich template and the command's blocks,
// each read back from the file the way commands read it.
class TestAppBuilder : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void galleryShowsStoredOrder_data();
    void galleryShowsStoredOrder();
    void galleryCardShowsDescriptionAndCredits();
    void sectionReopensTheAppLeftOpen();
    void newApps_data();
    void newApps();
    void newFromPreset_data();
    void newFromPreset();
    void deleteAsksThenRemovesEveryKey_data();
    void deleteAsksThenRemovesEveryKey();
    void galleryFollowsChangesMadeElsewhere_data();
    void galleryFollowsChangesMadeElsewhere();

    void editorFieldsRoundTrip_data();
    void editorFieldsRoundTrip();
    void editorWritesOnlyWhatChanged();
    void editorFollowsChangesMadeElsewhere_data();
    void editorFollowsChangesMadeElsewhere();
    void editorMigratesOldBillApps();
    void setAsDefault_data();
    void setAsDefault();
    void savedTemplateComesBack();

    void richEditorKeepsStyleThroughSaveAndLoad_data();
    void richEditorKeepsStyleThroughSaveAndLoad();
    void formulaBlocks_data();
    void formulaBlocks();
    void modelAndKey();

private:
    std::unique_ptr<Defaults> reread() const;
    std::unique_ptr<AppBuilderEditor> editorOn(const QString& app);

    MemorySecretStore m_keyring;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
};

void TestAppBuilder::initTestCase()
{
    design::useIconThemeFor(QApplication::palette());
    KeyStore::setBackend(&m_keyring);
}

void TestAppBuilder::init()
{
    KeyStore::resetForTesting();
    m_keyring.items.clear();
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(QStringLiteral("defaults.json")));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(QStringLiteral("Tavo")));
    m_db->activateProfile(QStringLiteral("walker"));
    m_db->setCollections({QStringLiteral("Customers"), QStringLiteral("Products"), QStringLiteral("Services")});
    m_db->setCollectionRecords(
        {record(QStringLiteral("Customers"), QStringLiteral("Acme Ltd"), QStringLiteral("acme-ltd")),
         record(QStringLiteral("Products"), QStringLiteral("Widget"), QStringLiteral("widget"))});
}

void TestAppBuilder::cleanup()
{
    m_db.reset();
    m_defaults.reset();
    m_dir.reset();
}

std::unique_ptr<Defaults> TestAppBuilder::reread() const
{
    return std::make_unique<Defaults>(m_defaults->filePath());
}

std::unique_ptr<AppBuilderEditor> TestAppBuilder::editorOn(const QString& app)
{
    auto editor = std::make_unique<AppBuilderEditor>(*m_db, *m_defaults);
    editor->openApp(app);
    return editor;
}

void TestAppBuilder::galleryShowsStoredOrder_data()
{
    QTest::addColumn<QStringList>("stored");
    QTest::addColumn<bool>("seededBefore");
    QTest::addColumn<QStringList>("shown");

    const QStringList mine = {QStringLiteral("Zeta"), QStringLiteral("Alpha"), QStringLiteral("Mid")};
    QTest::newRow("stored order, not sorted") << mine << true << mine;
    QTest::newRow("first show seeds the starter apps after the user's") << mine << false << mine + seedNames();
    QStringList withoutRewrite = seedNames();
    withoutRewrite.removeAll(QStringLiteral("Rewrite"));
    QTest::newRow("a starter app the user deleted stays deleted") << withoutRewrite << true << withoutRewrite;
    QTest::newRow("nothing stored, seeded before: the empty gallery") << QStringList() << true << QStringList();
}

void TestAppBuilder::galleryShowsStoredOrder()
{
    QFETCH(QStringList, stored);
    QFETCH(bool, seededBefore);
    QFETCH(QStringList, shown);
    writeBuilderAppNames(*m_defaults, stored);
    m_defaults->setBoolean(builderAppsSeededKey, seededBefore);

    AppBuilderPage page(*m_db, *m_defaults);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    QCOMPARE(page.appNames(), shown);
    QCOMPARE(builderAppNames(*reread()), shown);
    QCOMPARE(find<QWidget>(&page, "noBuilderApps")->isVisible(), shown.isEmpty());
    QVERIFY(reread()->flag(builderAppsSeededKey));
}

void TestAppBuilder::galleryCardShowsDescriptionAndCredits()
{
    writeBuilderAppNames(*m_defaults, {QStringLiteral("Invoice"), QStringLiteral("Poster")});
    m_defaults->setBoolean(builderAppsSeededKey, true);
    m_defaults->setString(builderKey(QStringLiteral("Description"), QStringLiteral("Invoice")),
                          QStringLiteral("Bills a customer"));
    m_defaults->setString(builderKey(QStringLiteral("CreditCost"), QStringLiteral("Poster")), QStringLiteral("3"));
    AppBuilderPage page(*m_db, *m_defaults);
    page.show();
    auto* list = find<QListWidget>(&page, "builderApps");
    QCOMPARE(list->count(), 2);
    QCOMPARE(list->item(0)->text(), QStringLiteral("Invoice  ·  1 credit\nBills a customer"));
    QCOMPARE(list->item(1)->text(), QStringLiteral("Poster  ·  3 credits"));
    QVERIFY(!list->item(0)->icon().isNull());
}

void TestAppBuilder::sectionReopensTheAppLeftOpen()
{
    m_defaults->setBoolean(builderAppsSeededKey, true);
    {
        AppBuilderPage page(*m_db, *m_defaults);
        page.show();
        QVERIFY(page.createApp(QStringLiteral("Poster")));
        QVERIFY(page.isEditing());
    }
    QCOMPARE(reread()->string(selectedBuilderAppKey), QStringLiteral("Poster"));
    {
        AppBuilderPage page(*m_db, *m_defaults);
        page.show();
        QVERIFY(page.isEditing());
        QCOMPARE(page.editor()->app(), QStringLiteral("Poster"));
        page.showGallery();
    }
    QCOMPARE(reread()->string(selectedBuilderAppKey), QStringLiteral("Home"));
    QVERIFY(reread()->flag(appBuilderHasSeenHomeKey));
    AppBuilderPage page(*m_db, *m_defaults);
    page.show();
    QVERIFY(!page.isEditing());
}

void TestAppBuilder::newApps_data()
{
    QTest::addColumn<QStringList>("typed"); // names given in turn; "*" is startNewAction
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<QString>("status");

    QTest::newRow("a name, trimmed") << QStringList{QStringLiteral("  Poster  ")}
                                     << QStringList{QStringLiteral("Poster")} << QString();
    QTest::newRow("an empty name is refused")
        << QStringList{QStringLiteral("   ")} << QStringList() << QStringLiteral("Give the action a short name first.");
    QTest::newRow("a name taken in another case is refused")
        << QStringList{QStringLiteral("Poster"), QStringLiteral("POSTER")} << QStringList{QStringLiteral("Poster")}
        << QStringLiteral("An app named POSTER already exists.");
    QTest::newRow("new actions take the first free number")
        << QStringList{QStringLiteral("*"), QStringLiteral("New action 2"), QStringLiteral("*")}
        << QStringList{QStringLiteral("New action 1"), QStringLiteral("New action 2"), QStringLiteral("New action 3")}
        << QString();
}

void TestAppBuilder::newApps()
{
    QFETCH(QStringList, typed);
    QFETCH(QStringList, shown);
    QFETCH(QString, status);
    m_defaults->setBoolean(builderAppsSeededKey, true);
    AppBuilderPage page(*m_db, *m_defaults);
    page.show();
    for (const QString& name : typed) {
        if (name == QLatin1String("*")) {
            page.startNewAction();
        } else {
            find<QLineEdit>(&page, "newAppName")->setText(name);
            find<QPushButton>(&page, "createBuilderApp")->click();
        }
        page.showGallery();
    }
    QCOMPARE(page.appNames(), shown);
    QCOMPARE(page.status(), status);
    const std::unique_ptr<Defaults> stored = reread();
    QCOMPARE(stored->stringList(userCreatedBuilderAppsKey).value_or(QStringList()), shown);
    for (const QString& name : shown) {
        QCOMPARE(stored->string(builderKey(QStringLiteral("Prefix"), name)), builderPrefixSlug(name));
        QCOMPARE(stored->string(builderKey(QStringLiteral("Format"), name)), QStringLiteral("PDF"));
        QCOMPARE(stored->string(builderKey(QStringLiteral("Template"), name)), QStringLiteral("Blank"));
    }
}

void TestAppBuilder::newFromPreset_data()
{
    QTest::addColumn<int>("preset");
    for (int index : {0, 3, 6, 11}) {
        QTest::newRow(qPrintable(appBuilderPresets().at(index).name)) << index;
    }
}

void TestAppBuilder::newFromPreset()
{
    QFETCH(int, preset);
    const AppBuilderPreset& row = appBuilderPresets().at(preset);
    m_defaults->setBoolean(builderAppsSeededKey, true);
    AppBuilderPage page(*m_db, *m_defaults);
    page.show();
    QVERIFY(page.createFromPreset(preset));
    QVERIFY(page.isEditing());
    QCOMPARE(page.editor()->app(), row.name);
    QCOMPARE(find<QPlainTextEdit>(page.editor(), "builderPrompt")->toPlainText(), row.prompt);
    QCOMPARE(find<QLineEdit>(page.editor(), "builderPrefix")->text(), row.prefix);
    QCOMPARE(find<QComboBox>(page.editor(), "builderTemplate")->currentText(), row.templateStyle);

    const std::unique_ptr<Defaults> stored = reread();
    auto setting = [&](const char* name) { return stored->string(builderKey(QLatin1StringView(name), row.name)); };
    QCOMPARE(builderAppNames(*stored), QStringList{row.name});
    QCOMPARE(setting("Prefix"), row.prefix);
    QCOMPARE(setting("Variables"), row.variables);
    QCOMPARE(setting("Collections"), row.sourceCollections);
    QCOMPARE(setting("OutputCollections"), row.outputCollections);
    QCOMPARE(setting("Template"), row.templateStyle);
    QCOMPARE(setting("Details"), row.details);

    page.showGallery();
    QVERIFY(!page.createFromPreset(preset)); // the same preset again: its name is taken
    QCOMPARE(page.appNames(), QStringList{row.name});
}

void TestAppBuilder::deleteAsksThenRemovesEveryKey_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("deleted");
    QTest::newRow("Cancel keeps the app") << int(QMessageBox::Cancel) << false;
    QTest::newRow("Yes removes it and its keys") << int(QMessageBox::Yes) << true;
}

void TestAppBuilder::deleteAsksThenRemovesEveryKey()
{
    QFETCH(int, answer);
    QFETCH(bool, deleted);
    m_defaults->setBoolean(builderAppsSeededKey, true);
    AppBuilderPage page(*m_db, *m_defaults);
    page.show();
    QVERIFY(page.createFromPreset(0)); // "Invoice"
    page.editor()->saveTemplate(QStringLiteral("Mine"));
    page.showGallery();
    QVERIFY(page.createApp(QStringLiteral("Invoice 2")));
    page.showGallery();
    const QString gone = QStringLiteral(".Invoice");
    auto keysOf = [&](const Defaults& defaults) {
        QStringList keys;
        for (const QString& key : defaults.keys()) {
            if (key.endsWith(gone) || key.contains(QStringLiteral(".Invoice."))) {
                keys << key;
            }
        }
        return keys;
    };
    QVERIFY(keysOf(*reread()).size() > 8);
    const QMap<QString, QJsonValue> other = snapshot(*reread());

    QString asked;
    answerNextQuestion(QMessageBox::StandardButton(answer), &asked);
    QCOMPARE(page.deleteApp(QStringLiteral("Invoice")), deleted);
    QVERIFY(asked.startsWith(QStringLiteral("Delete Invoice?")));

    const std::unique_ptr<Defaults> stored = reread();
    QCOMPARE(page.appNames().contains(QStringLiteral("Invoice")), !deleted);
    QCOMPARE(builderAppNames(*stored).contains(QStringLiteral("Invoice")), !deleted);
    QCOMPARE(stored->stringList(userCreatedBuilderAppsKey).value_or(QStringList()).contains(QStringLiteral("Invoice")),
             !deleted);
    QCOMPARE(keysOf(*stored).isEmpty(), deleted);
    // The other app keeps every key, though its name starts the same.
    for (auto it = other.cbegin(); it != other.cend(); ++it) {
        if (it.key().endsWith(QStringLiteral(".Invoice 2"))) {
            QCOMPARE(stored->value(it.key()), it.value());
        }
    }
}

void TestAppBuilder::galleryFollowsChangesMadeElsewhere_data()
{
    QTest::addColumn<bool>("added"); // else the open app is deleted
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<QString>("status");

    QTest::newRow("an app added elsewhere is listed")
        << true << QStringList{QStringLiteral("Invoice"), QStringLiteral("Poster"), QStringLiteral("Flyer")}
        << QString();
    QTest::newRow("the open app deleted elsewhere: back to the gallery, nothing written back")
        << false << QStringList{QStringLiteral("Invoice")} << QStringLiteral("Poster was deleted elsewhere.");
}

void TestAppBuilder::galleryFollowsChangesMadeElsewhere()
{
    QFETCH(bool, added);
    QFETCH(QStringList, shown);
    QFETCH(QString, status);
    m_defaults->setBoolean(builderAppsSeededKey, true);
    QVERIFY(!addUtilityApp(*m_defaults, QStringLiteral("Invoice")));
    QVERIFY(!addUtilityApp(*m_defaults, QStringLiteral("Poster")));
    m_defaults->watchForChanges();
    AppBuilderPage page(*m_db, *m_defaults);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    if (!added) {
        page.openApp(QStringLiteral("Poster"));
        retype(find<QLineEdit>(&page, "builderDescription"), QStringLiteral("waits for the pause"));
    }

    // tavoctl's way: another store on the same file.
    Defaults elsewhere(m_defaults->filePath());
    if (added) {
        QVERIFY(!addUtilityApp(elsewhere, QStringLiteral("Flyer")));
    } else {
        deleteBuilderApp(elsewhere, QStringLiteral("Poster"));
    }
    QTRY_COMPARE(page.appNames(), shown);
    QVERIFY(!page.isEditing());
    QCOMPARE(page.status(), status);
    page.editor()->save();
    QVERIFY(!reread()->contains(builderKey(QStringLiteral("Description"), QStringLiteral("Poster"))) || added);
}

void TestAppBuilder::editorFieldsRoundTrip_data()
{
    QTest::addColumn<QByteArray>("field"); // object name
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QJsonValue>("stored");

    auto row = [](const char* name, const char* field, const QString& value, const char* setting, QJsonValue stored) {
        QTest::newRow(name) << QByteArray(field) << value << QString::fromLatin1(setting) << stored;
    };
    const QString prompt = QStringLiteral("INVOICE\nAmount: ₹{{amount}}\n\n{{details}}");
    row("action prompt", "builderPrompt", prompt, "Prompt", prompt);
    row("description", "builderDescription", QStringLiteral("Bills a customer"), "Description",
        QStringLiteral("Bills a customer"));
    row("empty prefix stays empty", "builderPrefix", QString(), "Prefix", QString());
    row("prefix", "builderPrefix", QStringLiteral("inv"), "Prefix", QStringLiteral("inv"));
    row("variables", "builderVariables", QStringLiteral("Amount, Due Date"), "Variables",
        QStringLiteral("Amount, Due Date"));
    row("variable types padded with Text", "builderVariables", QStringLiteral("Amount, Due Date"), "VariableTypes",
        QJsonArray{QStringLiteral("Text"), QStringLiteral("Text")});
    row("output collections", "builderOutputCollections", QStringLiteral("Invoices"), "OutputCollections",
        QStringLiteral("Invoices"));
    row("formulas", "builderCalculations", insertGstAndTotalFormulas, "Calculations", insertGstAndTotalFormulas);
    row("details", "builderDetails", QStringLiteral("Pay in 30 days."), "Details", QStringLiteral("Pay in 30 days."));
    row("format", "builderFormat", QStringLiteral("HTML"), "Format", QStringLiteral("HTML"));
    row("font colour", "builderFontColor", QStringLiteral("Gold"), "FontColor", QStringLiteral("Gold"));
    row("font size", "builderFontSize", QStringLiteral("14"), "FontSize", 14.0);
    row("bold body", "builderBold", QStringLiteral("true"), "Bold", true);
    row("underlined body", "builderUnderline", QStringLiteral("true"), "Underline", true);
    row("asset", "builderAsset", QStringLiteral("/tmp/logo.png"), "Asset", QStringLiteral("/tmp/logo.png"));
    row("image model", "builderImageModel", QStringLiteral("gpt-image-1"), "ImageModel", QStringLiteral("gpt-image-1"));
    row("video model", "builderVideoModel", QStringLiteral("veo-9"), "VideoModel", QStringLiteral("veo-9"));
    row("aspect ratio", "builderAspectRatio", QStringLiteral("9:16"), "MediaAspectRatio", QStringLiteral("9:16"));
    row("resolution", "builderResolution", QStringLiteral("4K"), "ImageResolution", QStringLiteral("4K"));
    row("credits", "builderCreditCost", QStringLiteral("2"), "CreditCost", QStringLiteral("2"));
    row("icon symbol", "builderAppIconSymbol", QStringLiteral("photo.fill"), "AppIconSymbol",
        QStringLiteral("photo.fill"));
    row("cover", "builderAppCover", QStringLiteral("/tmp/cover.mp4"), "AppCover", QStringLiteral("/tmp/cover.mp4"));
}

void TestAppBuilder::editorFieldsRoundTrip()
{
    QFETCH(QByteArray, field);
    QFETCH(QString, value);
    QFETCH(QString, setting);
    QFETCH(QJsonValue, stored);
    QVERIFY(!addUtilityApp(*m_defaults, QStringLiteral("Invoice")));

    auto show = [&](const AppBuilderEditor& editor) { return shownValue(&editor, field); };
    {
        const std::unique_ptr<AppBuilderEditor> editor = editorOn(QStringLiteral("Invoice"));
        QObject* widget = editor->findChild<QObject*>(QLatin1StringView(field));
        QVERIFY(widget);
        // As a person edits: the signals a typed or chosen value sends.
        if (auto* line = qobject_cast<QLineEdit*>(widget)) {
            retype(line, value);
        } else if (auto* text = qobject_cast<QPlainTextEdit*>(widget)) {
            text->setPlainText(value);
        } else if (auto* box = qobject_cast<QComboBox*>(widget)) {
            box->setCurrentIndex(box->findText(value));
            emit box->activated(box->currentIndex());
        } else if (auto* spin = qobject_cast<QDoubleSpinBox*>(widget)) {
            spin->setValue(value.toDouble());
        } else if (auto* check = qobject_cast<QCheckBox*>(widget)) {
            check->setChecked(value == QLatin1String("true"));
        }
        QCOMPARE(show(*editor), value);
        // Leaving the editor writes what waits for the pause in typing.
    }
    QCOMPARE(reread()->value(builderKey(setting, QStringLiteral("Invoice"))), stored);
    const std::unique_ptr<AppBuilderEditor> again = editorOn(QStringLiteral("Invoice"));
    QCOMPARE(show(*again), value);
}

void TestAppBuilder::editorWritesOnlyWhatChanged()
{
    QVERIFY(!addUtilityApp(*m_defaults, QStringLiteral("Poster")));
    const QMap<QString, QJsonValue> before = snapshot(*reread());
    {
        const std::unique_ptr<AppBuilderEditor> editor = editorOn(QStringLiteral("Poster"));
        auto* prompt = find<QPlainTextEdit>(editor.get(), "builderPrompt");
        prompt->setPlainText(QStringLiteral("A poster"));
        editor->save();
        // The automatic icon stays automatic: the symbol key is not written.
        QCOMPARE(find<QLineEdit>(editor.get(), "builderAppIconSymbol")->text(),
                 automaticAppIcon(QStringLiteral("Poster")));
    }
    const std::unique_ptr<Defaults> after = reread();
    const QStringList changed = changedKeys(before, snapshot(*after));
    for (const QString& key : changed) {
        QVERIFY2(!key.startsWith(QStringLiteral("tavoBuilderDefault")) &&
                     !key.startsWith(QStringLiteral("tavoBuilderFinalTemplate")),
                 qPrintable(key));
    }
    QVERIFY(!after->contains(builderKey(QStringLiteral("AppIconSymbol"), QStringLiteral("Poster"))));
    QVERIFY(!after->contains(builderKey(QStringLiteral("Description"), QStringLiteral("Poster"))) ||
            after->string(builderKey(QStringLiteral("Description"), QStringLiteral("Poster"))) == QString());
    QCOMPARE(after->string(builderKey(QStringLiteral("Prompt"), QStringLiteral("Poster"))), QStringLiteral("A poster"));
}

void TestAppBuilder::editorFollowsChangesMadeElsewhere_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QJsonValue>("outside"); // written by another store on the file
    QTest::addColumn<QByteArray>("field");   // object name of the setting's field
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QByteArray>("typingIn"); // a line field with unsaved typing, or none
    QTest::addColumn<QJsonValue>("stored");   // the setting once the editor has written

    auto row = [](const char* name, const char* setting, const QJsonValue& outside, const char* field,
                  const QString& shown, const char* typingIn, const QJsonValue& stored) {
        QTest::newRow(name) << QString::fromLatin1(setting) << outside << QByteArray(field) << shown
                            << QByteArray(typingIn) << stored;
    };
    const QString theirs = QStringLiteral("From tavoctl");
    row("prompt", "Prompt", theirs, "builderPrompt", theirs, "", theirs);
    row("variables", "Variables", QStringLiteral("Amount, Client"), "builderVariables",
        QStringLiteral("Amount, Client"), "", QStringLiteral("Amount, Client"));
    row("font size", "FontSize", 18.0, "builderFontSize", QStringLiteral("18"), "", 18.0);
    row("bold body", "Bold", true, "builderBold", QStringLiteral("true"), "", true);
    row("format", "Format", QStringLiteral("HTML"), "builderFormat", QStringLiteral("HTML"), "",
        QStringLiteral("HTML"));
    row("typing in another field: this one follows", "Prompt", theirs, "builderPrompt", theirs, "builderDescription",
        theirs);
    row("the field being typed in keeps the typing", "Description", theirs, "builderDescription",
        QStringLiteral("Mine"), "builderDescription", QStringLiteral("Mine"));
}

void TestAppBuilder::editorFollowsChangesMadeElsewhere()
{
    QFETCH(QString, setting);
    QFETCH(QJsonValue, outside);
    QFETCH(QByteArray, field);
    QFETCH(QString, shown);
    QFETCH(QByteArray, typingIn);
    QFETCH(QJsonValue, stored);
    const QString app = QStringLiteral("Invoice");
    QVERIFY(!addUtilityApp(*m_defaults, app));
    m_defaults->watchForChanges();
    const std::unique_ptr<AppBuilderEditor> editor = editorOn(app);
    if (!typingIn.isEmpty()) {
        retype(find<QLineEdit>(editor.get(), typingIn.constData()), QStringLiteral("Mine"));
    }

    // The credits change alongside, to know when the editor has taken the change.
    Defaults elsewhere(m_defaults->filePath());
    elsewhere.setValues(
        {{builderKey(setting, app), outside}, {builderKey(QStringLiteral("CreditCost"), app), QStringLiteral("7")}});
    QTRY_COMPARE(shownValue(editor.get(), "builderCreditCost"), QStringLiteral("7"));
    QCOMPARE(shownValue(editor.get(), field), shown);
    if (!typingIn.isEmpty()) {
        QCOMPARE(shownValue(editor.get(), typingIn), QStringLiteral("Mine"));
    }
    editor->save();
    QCOMPARE(reread()->value(builderKey(setting, app)), stored);
}

void TestAppBuilder::editorMigratesOldBillApps()
{
    writeBuilderAppNames(*m_defaults, {QStringLiteral("Bill")});
    m_defaults->setString(builderKey(QStringLiteral("Prefix"), QStringLiteral("Bill")), QStringLiteral("bill"));
    m_defaults->setString(builderKey(QStringLiteral("Variables"), QStringLiteral("Bill")),
                          QStringLiteral("Customer, Product, Amount"));
    m_defaults->setString(builderKey(QStringLiteral("Collections"), QStringLiteral("Bill")),
                          QStringLiteral("Customers, Products"));
    m_defaults->setString(builderKey(QStringLiteral("Prompt"), QStringLiteral("Bill")), legacyBillPrompt);
    const std::unique_ptr<AppBuilderEditor> editor = editorOn(QStringLiteral("Bill"));
    QCOMPARE(find<QLineEdit>(editor.get(), "builderVariables")->text(), QStringLiteral("Amount"));
    QCOMPARE(find<QPlainTextEdit>(editor.get(), "builderPrompt")->toPlainText(), migratedBillPrompt);
}

void TestAppBuilder::setAsDefault_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("set");
    QTest::newRow("Yes freezes the template") << int(QMessageBox::Yes) << true;
    QTest::newRow("Cancel changes nothing") << int(QMessageBox::Cancel) << false;
}

void TestAppBuilder::setAsDefault()
{
    QFETCH(int, answer);
    QFETCH(bool, set);
    QVERIFY(!addPresetApp(*m_defaults, appBuilderPresets().at(1))); // "Bill Builder"
    const QString app = appBuilderPresets().at(1).name;
    const std::unique_ptr<AppBuilderEditor> editor = editorOn(app);
    find<QPlainTextEdit>(editor->window(), "builderDetails")->setPlainText(QStringLiteral("Net 30."));
    auto* size = find<QDoubleSpinBox>(editor.get(), "builderFontSize");
    size->setValue(13);
    find<QCheckBox>(editor.get(), "builderItalic")->setChecked(true);
    auto* rich = find<QTextEdit>(editor.get(), "richTemplate");
    rich->setPlainText(QStringLiteral("TAX INVOICE {{amount}}"));
    editor->save();

    const QMap<QString, QJsonValue> before = snapshot(*m_defaults);
    QSignalSpy changes(m_defaults.get(), &Defaults::valuesChanged);
    QString asked;
    answerNextQuestion(QMessageBox::StandardButton(answer), &asked);
    editor->setAsDefault();
    QCOMPARE(asked, builderTexts::setDefaultQuestion + u'\n' + builderTexts::setDefaultNote);

    const std::unique_ptr<Defaults> stored = reread();
    const QStringList changed = changedKeys(before, snapshot(*stored));
    if (!set) {
        QCOMPARE(changed, QStringList());
        QCOMPARE(editor->status(), QString());
        return;
    }
    QCOMPARE(changes.count(), 1); // one batch: no reader sees half a default
    QCOMPARE(editor->status(), QStringLiteral("“Bill” is now the default template for this app."));
    QStringList sixteen;
    for (const char* setting :
         {"FinalTemplate", "DefaultPrompt", "DefaultRTF", "DefaultDetails", "DefaultAsset", "DefaultFontSize",
          "DefaultBold", "DefaultItalic", "DefaultUnderline", "DefaultFontColor", "Format", "DefaultImageModel",
          "DefaultVideoModel", "DefaultMediaReferences", "DefaultMediaAspectRatio", "DefaultImageResolution"}) {
        sixteen << builderKey(QLatin1StringView(setting), app);
    }
    for (const QString& key : changed) {
        QVERIFY2(sixteen.contains(key), qPrintable(key)); // the sixteen keys only
    }
    auto key = [&](const char* setting) { return builderKey(QLatin1StringView(setting), app); };
    QCOMPARE(stored->string(key("FinalTemplate")), QStringLiteral("Bill"));
    QCOMPARE(stored->string(key("DefaultDetails")), QStringLiteral("Net 30."));
    QCOMPARE(stored->number(key("DefaultFontSize")), 13.0);
    QCOMPARE(stored->boolean(key("DefaultItalic")), true);
    QCOMPARE(stored->boolean(key("DefaultBold")), false);
    QCOMPARE(stored->string(key("DefaultPrompt")), appBuilderPresets().at(1).prompt);
    const std::optional<QByteArray> rtf = stored->bytes(key("DefaultRTF"));
    QVERIFY(rtf);
    QCOMPARE(styledTextFromRtf(*rtf)->plainText(), QStringLiteral("TAX INVOICE {{amount}}"));
}

void TestAppBuilder::savedTemplateComesBack()
{
    QVERIFY(!addUtilityApp(*m_defaults, QStringLiteral("Letter")));
    const std::unique_ptr<AppBuilderEditor> editor = editorOn(QStringLiteral("Letter"));
    find<QPlainTextEdit>(editor.get(), "builderDetails")->setPlainText(QStringLiteral("Signed, Ana"));
    editor->saveTemplate(QStringLiteral("  Warm  "));
    QCOMPARE(editor->status(), QStringLiteral("Saved “Warm” with rich formatting in this app’s template library."));
    auto* style = find<QComboBox>(editor.get(), "builderTemplate");
    QVERIFY(style->findText(QStringLiteral("Warm")) >= 0);

    find<QPlainTextEdit>(editor.get(), "builderDetails")->setPlainText(QStringLiteral("Changed"));
    editor->chooseTemplate(QStringLiteral("Warm"));
    QCOMPARE(find<QPlainTextEdit>(editor.get(), "builderDetails")->toPlainText(), QStringLiteral("Signed, Ana"));
    QCOMPARE(style->currentText(), QStringLiteral("Warm"));
}

void TestAppBuilder::richEditorKeepsStyleThroughSaveAndLoad_data()
{
    QTest::addColumn<QString>("toggle");
    QTest::addColumn<int>("times");
    QTest::addColumn<bool>("styled"); // the selected word ends with the style

    QTest::newRow("bold") << QStringLiteral("bold") << 1 << true;
    QTest::newRow("bold twice is plain again") << QStringLiteral("bold") << 2 << false;
    QTest::newRow("italic") << QStringLiteral("italic") << 1 << true;
    QTest::newRow("underline") << QStringLiteral("underline") << 1 << true;
}

void TestAppBuilder::richEditorKeepsStyleThroughSaveAndLoad()
{
    QFETCH(QString, toggle);
    QFETCH(int, times);
    QFETCH(bool, styled);
    auto has = [&toggle](const RunStyle& style) {
        return toggle == QLatin1String("bold")     ? style.bold
               : toggle == QLatin1String("italic") ? style.italic
                                                   : style.underline;
    };
    QVERIFY(!addUtilityApp(*m_defaults, QStringLiteral("Invoice")));
    {
        const std::unique_ptr<AppBuilderEditor> editor = editorOn(QStringLiteral("Invoice"));
        auto* text = find<QTextEdit>(editor.get(), "richTemplate");
        text->setFocus();
        QTest::keyClicks(text, QStringLiteral("Total {{amount}}"));
        QTest::keyClick(text, Qt::Key_Return);
        QTest::keyClicks(text, QStringLiteral("Thanks"));
        QTextCursor cursor = text->textCursor();
        cursor.setPosition(0);
        cursor.setPosition(5, QTextCursor::KeepAnchor); // "Total"
        text->setTextCursor(cursor);
        for (int i = 0; i < times; ++i) {
            TemplateRichEditorController* rich = editor->richEditor();
            if (toggle == QLatin1String("bold")) {
                rich->toggleBold();
            } else if (toggle == QLatin1String("italic")) {
                rich->toggleItalic();
            } else {
                rich->toggleUnderline();
            }
        }
        const StyledText shown = editor->richEditor()->attributed();
        QCOMPARE(shown.plainText(), QStringLiteral("Total {{amount}}\nThanks"));
        QCOMPARE(has(shown.runs.first().style), styled);
        QCOMPARE(shown.runs.first().text == QLatin1String("Total"), styled);
    }
    const std::optional<QByteArray> rtf =
        reread()->bytes(builderKey(QStringLiteral("TemplateRTF"), QStringLiteral("Invoice")));
    QVERIFY(rtf);
    const std::optional<StyledText> stored = styledTextFromRtf(*rtf);
    QVERIFY(stored);
    QCOMPARE(stored->plainText(), QStringLiteral("Total {{amount}}\nThanks"));
    QCOMPARE(has(stored->runs.first().style), styled);
    for (qsizetype i = 1; i < stored->runs.size(); ++i) {
        QVERIFY(!has(stored->runs[i].style)); // only the selection took the style
    }

    const std::unique_ptr<AppBuilderEditor> again = editorOn(QStringLiteral("Invoice"));
    const StyledText loaded = again->richEditor()->attributed();
    QCOMPARE(loaded.plainText(), stored->plainText());
    QCOMPARE(has(loaded.runs.first().style), styled);
    QCOMPARE(again->richEditor()->rtf(), *rtf);
}

void TestAppBuilder::formulaBlocks_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QStringList>("order");
    QTest::addColumn<QString>("variables");
    QTest::addColumn<QString>("collections");

    const QString action = QStringLiteral("Action: inv");
    const QString customers = QStringLiteral("Collection: Customers");
    const QString amount = QStringLiteral("Variable: Amount");
    const QString due = QStringLiteral("Variable: Due Date");
    const QString initial = QStringLiteral("Amount, Due Date");
    QTest::newRow("as the editor builds it")
        << QString() << QStringList{action, customers, amount, due} << initial << QStringLiteral("Customers");
    QTest::newRow("a block moved earlier") << QStringLiteral("move 3 1") << QStringList{action, due, customers, amount}
                                           << initial << QStringLiteral("Customers");
    QTest::newRow("a move out of range changes nothing")
        << QStringLiteral("move 1 9") << QStringList{action, customers, amount, due} << initial
        << QStringLiteral("Customers");
    QTest::newRow("a new variable gets its slot at the end")
        << QStringLiteral("variables Amount, Due Date, Tax")
        << QStringList{action, customers, amount, due, QStringLiteral("Variable: Tax")}
        << QStringLiteral("Amount, Due Date, Tax") << QStringLiteral("Customers");
    QTest::newRow("a removed variable block leaves the app")
        << QStringLiteral("remove 2") << QStringList{action, customers, due} << QStringLiteral("Due Date")
        << QStringLiteral("Customers");
    QTest::newRow("a collection block takes another collection")
        << QStringLiteral("replace 1 Products")
        << QStringList{action, QStringLiteral("Collection: Products"), amount, due} << initial
        << QStringLiteral("Products");
    QTest::newRow("a ticked collection gets its slot")
        << QStringLiteral("tick Services")
        << QStringList{action, customers, QStringLiteral("Collection: Services"), amount, due} << initial
        << QStringLiteral("Customers, Services");
}

void TestAppBuilder::formulaBlocks()
{
    QFETCH(QString, operation);
    QFETCH(QStringList, order);
    QFETCH(QString, variables);
    QFETCH(QString, collections);
    const QString app = QStringLiteral("Invoice");
    QVERIFY(!addUtilityApp(*m_defaults, app));
    m_defaults->setValues({{builderKey(QStringLiteral("Prefix"), app), QStringLiteral("inv")},
                           {builderKey(QStringLiteral("Variables"), app), QStringLiteral("Amount, Due Date")},
                           {builderKey(QStringLiteral("Collections"), app), QStringLiteral("Customers")}});
    {
        const std::unique_ptr<AppBuilderEditor> editor = editorOn(app);
        const QStringList words = operation.split(u' ');
        if (words.first() == QLatin1String("move")) {
            QCOMPARE(editor->moveFormulaBlock(words[1].toInt(), words[2].toInt()), words[2].toInt() < 4);
        } else if (words.first() == QLatin1String("variables")) {
            auto* field = find<QLineEdit>(editor.get(), "builderVariables");
            field->end(false);
            QTest::keyClicks(field, QStringLiteral(", Tax"));
        } else if (words.first() == QLatin1String("remove")) {
            QVERIFY(editor->removeFormulaBlock(words[1].toInt()));
        } else if (words.first() == QLatin1String("replace")) {
            QVERIFY(editor->replaceCollectionBlock(words[1].toInt(), words[2]));
        } else if (words.first() == QLatin1String("tick")) {
            auto* list = find<QListWidget>(editor.get(), "builderCollections");
            list->findItems(words[1], Qt::MatchExactly).first()->setCheckState(Qt::Checked);
        }
        QCOMPARE(editor->formulaOrder()->order(), order);
        QStringList titles;
        auto* blocks = find<QListWidget>(editor.get(), "formulaBlocks");
        for (int row = 0; row < blocks->count(); ++row) {
            titles << blocks->item(row)->text();
        }
        QStringList expectedTitles;
        for (const QString& token : order) {
            expectedTitles << formulaBlockTitle(token);
        }
        QCOMPARE(titles, expectedTitles);
        QCOMPARE(find<QLabel>(editor.get(), "formulaPreview")->text(),
                 formulaPreviewText(QStringLiteral("inv"), order));
    }
    const std::unique_ptr<Defaults> stored = reread();
    if (!operation.isEmpty() && !operation.startsWith(QLatin1String("move 1 9"))) {
        QCOMPARE(stored->stringList(builderKey(QStringLiteral("FormulaOrder"), app)), order);
    }
    QCOMPARE(stored->string(builderKey(QStringLiteral("Variables"), app)), variables);
    QCOMPARE(stored->string(builderKey(QStringLiteral("Collections"), app)), collections);
    // Opened again, the editor shows the order the commands read.
    const std::unique_ptr<AppBuilderEditor> again = editorOn(app);
    QCOMPARE(again->formulaOrder()->order(), order);
}

void TestAppBuilder::modelAndKey()
{
    QVERIFY(!addUtilityApp(*m_defaults, QStringLiteral("Invoice")));
    const QList<CollectionAIModelProfile> profiles = AIModelProfileStore::load(*m_defaults);
    QVERIFY(profiles.size() >= 2);
    const CollectionAIModelProfile first =
        AIModelProfileStore::selectedModel(profiles, AIModelProfileStore::selectedProfileID(*m_defaults));
    CollectionAIModelProfile other;
    for (const CollectionAIModelProfile& profile : profiles) {
        if (profile.keyAccount != first.keyAccount) {
            other = profile;
            break;
        }
    }
    QVERIFY(!other.id.isEmpty());
    m_keyring.items.insert(first.keyAccount, QStringLiteral("sk-first"));
    {
        const std::unique_ptr<AppBuilderEditor> editor = editorOn(QStringLiteral("Invoice"));
        auto* model = find<QComboBox>(editor.get(), "builderModel");
        auto* key = find<QLineEdit>(editor.get(), "builderApiKey");
        QCOMPARE(model->currentData().toString(), first.id);
        QCOMPARE(key->text(), QStringLiteral("sk-first"));
        QCOMPARE(key->echoMode(), QLineEdit::Password);

        // A key typed for the first model stays with it when another model is chosen.
        key->selectAll();
        QTest::keyClicks(key, QStringLiteral("sk-new"));
        model->setCurrentIndex(model->findData(other.id));
        emit model->activated(model->currentIndex());
        QCOMPARE(m_keyring.items.value(first.keyAccount), QStringLiteral("sk-new"));
        QCOMPARE(AIModelProfileStore::selectedProfileID(*reread()), other.id);
        QCOMPARE(key->text(), QString());
        QTest::keyClicks(key, QStringLiteral("sk-other"));
    }
    QCOMPARE(m_keyring.items.value(other.keyAccount), QStringLiteral("sk-other"));
}

QTEST_MAIN(TestAppBuilder)
#include "tst_app_builder.moc"
