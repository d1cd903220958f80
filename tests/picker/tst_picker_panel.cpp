#include "ai/model_profile_store.h"
#include "engine/inline_commands.h"
#include "fake_provider.h"
#include "fakes/memory_secret_store.h"
#include "picker/command_faces.h"
#include "picker/picker_panel.h"
#include "picker/picker_row_delegate.h"
#include "picker/picker_thumbnails.h"
#include "store/collections.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"

#include <QAccessible>
#include <QComboBox>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

// The panel's own rules, on the offscreen platform; the end-to-end test shows it under X.
class TestPickerPanel : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void themes_data();
    void themes();
    void onlyTheNewestQueryApplies();
    void chooseFirstWithoutResultsStaysOpen();
    void aHiddenRememberedCollectionGivesWayToAll();
    void rowLabels_data();
    void aNewCalculationReplacesTheOldRow();
    void aRememberedCollectionIsFoundWhateverItsCase();
    void aLargerPopupLoadsMoreRows();
    void rowLabels();
    void thumbnails_data();
    void thumbnails();
    void controlNames_data();
    void controlNames();
    void commandFaces_data();
    void commandFaces();
    void faceRequests_data();
    void faceRequests();
    void aFieldWithTheKeyboardIsTold();
    void returnInTheRewriteFacePastesWhatItShows();
    void thePromptExpandsSavedShortcuts();
    void theImagePromptTakesTheTapsKeys();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
    test::MemorySecretStore m_keyring;
};

namespace {

QPushButton* buttonNamed(QWidget* root, const QString& name)
{
    const QList<QPushButton*> buttons = root->findChildren<QPushButton*>();
    for (QPushButton* button : buttons) {
        if (button->isVisibleTo(root) && button->accessibleName() == name) {
            return button;
        }
    }
    return nullptr;
}

QStringList visibleTexts(QWidget* root)
{
    QStringList texts;
    for (const QLabel* label : root->findChildren<QLabel*>()) {
        if (label->isVisibleTo(root)) {
            texts << label->text();
        }
    }
    return texts;
}

} // namespace

void TestPickerPanel::init()
{
    m_db.reset();
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(u"defaults.json"_s));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(u"Tavo"_s));
    m_db->activateProfile(u"sam"_s);
}

void TestPickerPanel::themes_data()
{
    QTest::addColumn<QString>("theme");
    QTest::addColumn<bool>("dark");
    QTest::newRow("light") << u"Light"_s << false;
    QTest::newRow("dark") << u"Dark"_s << true;
}

void TestPickerPanel::themes()
{
    QFETCH(QString, theme);
    QFETCH(bool, dark);
    m_defaults->setString(u"quillTheme"_s, theme);
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    QTRY_VERIFY(!panel.search().isLoading());
    QCOMPARE(panel.palette().color(QPalette::Window).lightness() < 128, dark);
    QCOMPARE(panel.palette().color(QPalette::Text).lightness() < 128, !dark);
    // A picture of each theme, kept with the test's files for a look.
    QVERIFY(panel.grab().save(QDir::home().filePath(u"picker-%1.png"_s.arg(theme.toLower()))));
}

void TestPickerPanel::onlyTheNewestQueryApplies()
{
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    QTRY_VERIFY(!panel.search().isLoading()); // the opening's own search is done
    QStringList applied;
    connect(&panel.search(), &PickerSearch::resultsChanged, this, [&] { applied << panel.search().value; });
    panel.setQuery(u"t"_s);
    panel.setQuery(u"th"_s);
    panel.setQuery(u"tha"_s); // three keys in one turn of the event loop
    QTRY_VERIFY(!applied.isEmpty() && !panel.search().isLoading());
    QCOMPARE(applied.first(), u"tha"_s);
    QCOMPARE(applied.count(u"th"_s), 0);
}

void TestPickerPanel::chooseFirstWithoutResultsStaysOpen()
{
    PickerPanel panel(*m_defaults);
    QSignalSpy chosen(&panel, &PickerPanel::chosen);
    QSignalSpy closed(&panel, &PickerPanel::closed);
    panel.showFor(*m_db);
    panel.setQuery(u"nothing is called this"_s);
    QTRY_VERIFY(panel.search().isExhausted());
    panel.chooseFirst();
    QVERIFY(panel.isVisible());
    QCOMPARE(chosen.count(), 0);

    panel.setQuery(u"ty"_s);
    QTRY_VERIFY(!panel.search().results().isEmpty());
    panel.chooseFirst();
    QVERIFY(!panel.isVisible());
    QCOMPARE(chosen.count(), 1);
    QCOMPARE(closed.count(), 1);
    panel.showFor(*m_db);
    panel.close(); // as a window manager closes it
    QCOMPARE(closed.count(), 2);
}

void TestPickerPanel::aHiddenRememberedCollectionGivesWayToAll()
{
    m_db->setCollections({u"Personal"_s, u"Private"_s});
    m_defaults->setString(u"tavoPickerCollection"_s, u"Private"_s);
    m_db->setHiddenCollections({u"Private"_s});
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    QCOMPARE(panel.search().collection, allCollectionsName);
}

void TestPickerPanel::rowLabels_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("webURL");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("row");
    QTest::addColumn<QString>("preview");
    QTest::addColumn<QString>("spoken"); // what a screen reader says of the row
    const QString hello = u"Hello there,\n  friend"_s;
    QTest::newRow("a name of its own") << u"Greeting"_s << u"/hi"_s << hello << QString() << QStringList()
                                       << u"Greeting   \\hi"_s << u"Hello there, friend"_s
                                       << u"\\hi, Greeting, Hello there, friend"_s;
    // The text takes the name's place, and is not said twice.
    QTest::newRow("a name that repeats the key")
        << u"/hi"_s << u"/hi"_s << hello << QString() << QStringList() << u"Hello there, friend   \\hi"_s << QString()
        << u"\\hi, Hello there, friend"_s;
    QTest::newRow("the key without its slash")
        << u"hi"_s << u"/hi"_s << hello << QString() << QStringList() << u"Hello there, friend   \\hi"_s << QString()
        << u"\\hi, Hello there, friend"_s;
    QTest::newRow("no name") << QString() << u"/hi"_s << hello << QString() << QStringList()
                             << u"Hello there, friend   \\hi"_s << QString() << u"\\hi, Hello there, friend"_s;
    QTest::newRow("tokens show as typed")
        << u"Warm thank you"_s << u"/ty"_s << u"Thank you, {{clipboard}}!\n\n{{date:short}}"_s << QString()
        << QStringList() << u"Warm thank you   \\ty"_s << u"Thank you, {{clipboard}}! {{date:short}}"_s
        << u"\\ty, Warm thank you, Thank you, {{clipboard}}! {{date:short}}"_s;
    QTest::newRow("a website shows its address")
        << u"Docs"_s << u"/docs.web"_s << QString() << u"https://example.org/docs"_s << QStringList()
        << u"Docs   \\docs.web"_s << u"https://example.org/docs"_s << u"\\docs.web, Docs, https://example.org/docs"_s;
    QTest::newRow("media alone shows how many files")
        << u"Logo"_s << u"/logo"_s << QString() << QString() << QStringList{u"/media/logo.png"_s, u"/media/logo.svg"_s}
        << u"Logo   \\logo"_s << u"2 media files"_s << u"\\logo, Logo, 2 media files"_s;
}

void TestPickerPanel::rowLabels()
{
    QFETCH(QString, name);
    QFETCH(QString, key);
    QFETCH(QString, text);
    QFETCH(QString, webURL);
    QFETCH(QStringList, files);
    QFETCH(QString, row);
    QFETCH(QString, preview);
    QFETCH(QString, spoken);
    Clip clip;
    clip.name = name;
    clip.key = key;
    clip.text = text;
    if (!webURL.isEmpty()) {
        clip.webURL = webURL;
    }
    clip.files = files;
    clip.group = u"Personal"_s;
    m_db->setClips({clip});
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    QTRY_VERIFY(panel.search().isExhausted());
    auto* rows = panel.findChild<QListWidget*>(u"pickerRows"_s);
    QCOMPARE(rows->count(), 1);
    QCOMPARE(rows->item(0)->text(), row);
    QCOMPARE(rows->item(0)->data(PickerPreviewRole).toString(), preview);
    QAccessibleInterface* list = QAccessible::queryAccessibleInterface(rows);
    QVERIFY(list && list->childCount() > 0);
    QCOMPARE(list->child(0)->text(QAccessible::Name), spoken);
}

void TestPickerPanel::thumbnails_data()
{
    QTest::addColumn<bool>("changed");
    QTest::newRow("a second opening takes it from the cache") << false;
    QTest::newRow("a changed picture is made again") << true;
}

void TestPickerPanel::thumbnails()
{
    QFETCH(bool, changed);
    const QString path = m_dir->filePath(u"photo.png"_s);
    QImage picture(400, 300, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    QVERIFY(picture.save(path));
    Clip clip;
    clip.key = u"/photo"_s;
    clip.name = u"Photo"_s;
    clip.files = {m_dir->filePath(u"notes.txt"_s), path};
    m_db->setClips({clip});
    PickerPanel panel(*m_defaults);
    QSignalSpy made(panel.findChild<PickerThumbnails*>(), &PickerThumbnails::thumbnailMade);
    const auto* rows = panel.findChild<QListWidget*>(u"pickerRows"_s);
    const auto thumbnail = [&] {
        return rows->count() == 1 ? rows->item(0)->data(PickerThumbnailRole).value<QPixmap>() : QPixmap();
    };
    panel.showFor(*m_db);
    QTRY_VERIFY(!thumbnail().isNull());
    QCOMPARE(made.count(), 1);
    // Small, and as wide as it was against its height.
    QVERIFY(thumbnail().width() < picture.width() / 2);
    QVERIFY(qAbs(thumbnail().width() * 3 - thumbnail().height() * 4) < 8);
    panel.hidePanel();

    if (changed) {
        picture.fill(Qt::darkRed);
        QVERIFY(picture.save(path));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(60), QFileDevice::FileModificationTime));
    }
    panel.showFor(*m_db);
    QTRY_COMPARE(rows->count(), 1);
    if (changed) {
        QTRY_COMPARE(thumbnail().toImage().pixelColor(0, 0), QColor(Qt::darkRed));
        QCOMPARE(made.count(), 2);
    } else {
        // There at once, with the row.
        QCOMPARE(thumbnail().toImage().pixelColor(0, 0), QColor(Qt::darkCyan));
        QCOMPARE(made.count(), 1);
    }
}

void TestPickerPanel::controlNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("toolTip");
    QTest::newRow("reset") << u"Move popup to its default position"_s
                           << u"Move popup to its default position · drag this header to place it"_s;
    QTest::newRow("size") << u"Resize popup"_s << u"Resize popup"_s;
    QTest::newRow("close") << u"Close popup"_s << u"Close popup"_s;
    QTest::newRow("area") << u"Select area"_s << u"Select area"_s;
    QTest::newRow("transparency") << u"Transparency"_s << u"Transparency"_s;
    QTest::newRow("category") << u"Category"_s << u"Category"_s;
    QTest::newRow("collection") << u"Collection"_s << u"Collection"_s;
    QTest::newRow("rows") << u"Shortcuts"_s << u"Shortcuts"_s;
}

void TestPickerPanel::controlNames()
{
    QFETCH(QString, name);
    QFETCH(QString, toolTip);
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    const QList<QWidget*> widgets = panel.findChildren<QWidget*>();
    QList<QWidget*> named;
    std::copy_if(widgets.cbegin(), widgets.cend(), std::back_inserter(named),
                 [&](const QWidget* widget) { return widget->accessibleName() == name; });
    QCOMPARE(named.size(), 1);
    QCOMPARE(named.first()->toolTip(), toolTip);
}

void TestPickerPanel::aNewCalculationReplacesTheOldRow()
{
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    const auto* rows = panel.findChild<QListWidget*>(u"pickerRows"_s);
    panel.setQuery(u"12*3"_s);
    QTRY_COMPARE(rows->count(), 1);
    QVERIFY(rows->item(0)->text().contains(u"36"_s));
    panel.setQuery(u"12*34"_s);
    QTRY_VERIFY(rows->item(0)->text().contains(u"408"_s));
    QCOMPARE(rows->count(), 1);
}

void TestPickerPanel::aRememberedCollectionIsFoundWhateverItsCase()
{
    m_db->setCollections({u"Personal"_s, u"Work"_s});
    m_defaults->setString(u"tavoPickerCollection"_s, u"work"_s);
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    const auto menus = panel.findChildren<QComboBox*>();
    QVERIFY(std::any_of(menus.cbegin(), menus.cend(),
                        [](const QComboBox* menu) { return menu->currentText() == u"Work"_s; }));
    QCOMPARE(panel.search().collection, u"Work"_s);
}

void TestPickerPanel::aLargerPopupLoadsMoreRows()
{
    QList<Clip> clips;
    for (int i = 0; i < 200; ++i) {
        Clip clip;
        clip.key = u"/item%1"_s.arg(i);
        clip.name = u"Item %1"_s.arg(i);
        clip.group = u"Personal"_s;
        clips << clip;
    }
    m_db->setClips(clips);
    m_defaults->setNumber(u"tavoPickerAreaPercent"_s, 0.08);
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    const auto* rows = panel.findChild<QListWidget*>(u"pickerRows"_s);
    QTRY_VERIFY(!panel.search().isLoading() && rows->verticalScrollBar()->maximum() > 0);
    QTest::qWait(50);
    const int before = rows->count();

    // Larger, the rows fit without a scroll: more are loaded until they no longer do.
    panel.resizeForImageMode(true);
    QTRY_VERIFY(rows->count() > before);
    QTRY_VERIFY(!panel.search().isLoading() && rows->verticalScrollBar()->maximum() > 0);
}

void TestPickerPanel::commandFaces_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("texts"); // shown on the face
    QTest::addColumn<QStringList>("controls");
    QTest::newRow("rewrite") << u"rewrite"_s
                             << QStringList{u"Rewrite clipboard text"_s,
                                            u"Edit the copied text, choose a tone, then paste it back into your app."_s,
                                            u"Text remains on this computer unless you paste it into another app."_s}
                             << QStringList{u"Clipboard text · editable"_s, u"Tone"_s, u"Rewrite with AI"_s,
                                            u"Paste"_s};
    QTest::newRow("prompt") << u"prompt"_s
                            << QStringList{u"Prompt composer"_s,
                                           u"Action, expanded shortcuts, variables, and reference media in one clear "
                                           u"prompt."_s,
                                           u"Copy keeps the text prompt. Paste sends attached media when available, "
                                           u"otherwise the text."_s,
                                           FaceText::promptEmptySummary, u"Prompt · ready to edit"_s}
                            << QStringList{u"Expand shortcuts"_s, u"Quick tone"_s, u"Rephrase with AI"_s,
                                           u"Copy text prompt"_s, u"Paste"_s,      u"Copy all media"_s};
    QTest::newRow("image") << u"image"_s
                           << QStringList{u"Create an image"_s,
                                          u"Describe it, add saved references, then generate and save a shortcut."_s}
                           << QStringList{u"Image prompt"_s, u"Generate"_s};
}

void TestPickerPanel::commandFaces()
{
    QFETCH(QString, command);
    QFETCH(QStringList, texts);
    QFETCH(QStringList, controls);
    m_defaults->setNumber(u"tavoPickerAreaPercent"_s, 0.1);
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    const QSize small = panel.size();
    if (command == u"rewrite"_s) {
        panel.enterRewriteCommand(u"can u send it"_s, 0);
        QCOMPARE(panel.face(), PickerPanel::Face::Rewrite);
    } else if (command == u"prompt"_s) {
        panel.enterPromptCommand(QString(), 0);
        QCOMPARE(panel.face(), PickerPanel::Face::Prompt);
    } else {
        panel.enterImageCommand(QString());
        QCOMPARE(panel.face(), PickerPanel::Face::Image);
    }
    QVERIFY(panel.width() > small.width()); // the large share of the screen
    const QStringList shown = visibleTexts(&panel);
    for (const QString& text : texts) {
        QVERIFY2(shown.contains(text), qPrintable(text));
    }
    // Every control a person can reach on the face is named for screen readers.
    for (QWidget* widget : panel.findChildren<QWidget*>()) {
        const bool control = qobject_cast<QAbstractButton*>(widget) || qobject_cast<QComboBox*>(widget) ||
                             qobject_cast<QPlainTextEdit*>(widget);
        if (control && widget->isVisibleTo(&panel)) {
            QVERIFY2(!widget->accessibleName().isEmpty(), widget->metaObject()->className());
        }
    }
    for (const QString& name : controls) {
        const QList<QWidget*> widgets = panel.findChildren<QWidget*>();
        QVERIFY2(std::any_of(widgets.cbegin(), widgets.cend(),
                             [&](QWidget* w) { return w->isVisibleTo(&panel) && w->accessibleName() == name; }),
                 qPrintable(name));
    }
    // Closing leaves no face behind for the next opening.
    panel.hidePanel();
    panel.showFor(*m_db);
    QCOMPARE(panel.face(), PickerPanel::Face::Shortcuts);
}

void TestPickerPanel::faceRequests_data()
{
    QTest::addColumn<QString>("face");
    QTest::addColumn<QString>("text"); // in the face's editor, or a \p- payload
    QTest::addColumn<bool>("key");
    QTest::addColumn<QByteArray>("reply"); // the provider's body
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("presses");
    QTest::addColumn<int>("requests");
    QTest::addColumn<QString>("prompt"); // the request's input; empty: none expected
    QTest::addColumn<QString>("result"); // the editor afterwards
    QTest::addColumn<QString>("statusText");

    const QByteArray answer = R"({"output_text":"Could you send it?"})";
    QTest::newRow("rewrite: ready, the tone in lower case")
        << u"rewrite"_s << u"can u send it"_s << true << answer << 200 << 1 << 1
        << pickerRewritePrompt(u"Rephrase"_s, u"can u send it"_s) << u"Could you send it?"_s
        << u"Rephrase rewrite ready. Review or edit, then paste."_s;
    QTest::newRow("rewrite: two presses send one request")
        << u"rewrite"_s << u"can u send it"_s << true << answer << 200 << 2 << 1
        << pickerRewritePrompt(u"Rephrase"_s, u"can u send it"_s) << u"Could you send it?"_s
        << u"Rephrase rewrite ready. Review or edit, then paste."_s;
    QTest::newRow("rewrite: only blanks do nothing")
        << u"rewrite"_s << u"  \n "_s << true << answer << 200 << 1 << 0 << QString() << u"  \n "_s << QString();
    QTest::newRow("rewrite: no key") << u"rewrite"_s << u"can u send it"_s << false << answer << 200 << 1 << 0
                                     << QString() << u"can u send it"_s
                                     << u"Add an API key in API configuration to use AI rewriting."_s;
    QTest::newRow("rewrite: an error keeps the text")
        << u"rewrite"_s << u"can u send it"_s << true << QByteArray(R"({"error":{"message":"Rate limit"}})") << 429 << 1
        << 1 << pickerRewritePrompt(u"Rephrase"_s, u"can u send it"_s) << u"can u send it"_s
        << u"Could not rewrite the text: OpenAI error: Rate limit"_s;
    QTest::newRow("rewrite: an empty answer is an error")
        << u"rewrite"_s << u"can u send it"_s << true << QByteArray(R"({"output_text":" "})") << 200 << 1 << 1
        << pickerRewritePrompt(u"Rephrase"_s, u"can u send it"_s) << u"can u send it"_s
        << u"Could not rewrite the text: The AI returned an empty rewrite."_s;
    QTest::newRow("prompt: a \\p- payload is rephrased as the face opens")
        << u"prompt"_s << u"draw-a-cat"_s << true << answer << 200 << 0 << 1
        << rephrasePromptRequest(u"Professional"_s, u"draw a cat"_s) << u"Could you send it?"_s
        << u"Prompt restyled as Professional. Review or edit it; reference files remain attached."_s;
    QTest::newRow("prompt: two presses send one request")
        << u"prompt"_s << u"draw-a-cat"_s << true << answer << 200 << 2 << 1
        << rephrasePromptRequest(u"Professional"_s, u"draw a cat"_s) << u"Could you send it?"_s
        << u"Prompt restyled as Professional. Review or edit it; reference files remain attached."_s;
    QTest::newRow("prompt: without a key the face says how to add one")
        << u"prompt"_s << u"draw-a-cat"_s << false << answer << 200 << 0 << 0 << QString() << u"draw a cat"_s
        << FaceText::rephraseNoKey;
    QTest::newRow("prompt: an error keeps the prompt")
        << u"prompt"_s << u"draw-a-cat"_s << true << QByteArray(R"({"error":"bad key"})") << 401 << 0 << 1
        << rephrasePromptRequest(u"Professional"_s, u"draw a cat"_s) << u"draw a cat"_s
        << u"Could not rephrase with AI: OpenAI error: bad key"_s;
}

void TestPickerPanel::faceRequests()
{
    QFETCH(QString, face);
    QFETCH(QString, text);
    QFETCH(bool, key);
    QFETCH(QByteArray, reply);
    QFETCH(int, status);
    QFETCH(int, presses);
    QFETCH(int, requests);
    QFETCH(QString, prompt);
    QFETCH(QString, result);
    QFETCH(QString, statusText);

    test::FakeProvider provider;
    provider.status = status;
    provider.responseBody = reply;
    qputenv("TAVO_OPENAI_API_BASE", provider.base().toUtf8());
    KeyStore::setBackend(&m_keyring);
    KeyStore::resetForTesting();
    m_keyring.items.clear();
    if (key) {
        m_keyring.items.insert(AIModelProfileStore::starter().keyAccount, u"sk-test"_s);
    }

    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    std::function<bool()> busy;
    std::function<QString()> edited;
    std::function<QString()> shownStatus;
    QString press;
    if (face == u"rewrite"_s) {
        panel.enterRewriteCommand(text, 0);
        busy = [&] { return panel.rewriteFace()->isBusy(); };
        edited = [&] { return panel.rewriteFace()->text(); };
        shownStatus = [&] { return panel.rewriteFace()->status(); };
        press = u"Rewrite with AI"_s;
    } else {
        panel.enterPromptCommand(text, 0);
        busy = [&] { return panel.promptFace()->isBusy(); };
        edited = [&] { return panel.promptFace()->text(); };
        shownStatus = [&] { return panel.promptFace()->status(); };
        press = u"Rephrase with AI"_s;
        QCoreApplication::processEvents(); // the face has appeared: a payload is rephrased at once
    }
    for (int i = 0; i < presses; ++i) {
        // A disabled button ignores a click as a person's would; the face refuses a second
        // request on its own as well.
        if (face == u"rewrite"_s) {
            panel.rewriteFace()->rewriteClipboardText();
        } else {
            panel.promptFace()->rephrasePrompt();
        }
    }
    QVERIFY(buttonNamed(&panel, press));
    QTRY_VERIFY(!busy());
    QTest::qWait(20);
    QCOMPARE(provider.requests.size(), requests);
    if (!prompt.isEmpty()) {
        const QJsonObject body = QJsonDocument::fromJson(provider.requests.first().body).object();
        QCOMPARE(body.value(u"input").toString(), prompt);
        QCOMPARE(body.value(u"max_output_tokens").toInt(), 4000);
    }
    QCOMPARE(edited(), result);
    QCOMPARE(shownStatus(), statusText);
    QVERIFY(buttonNamed(&panel, press)->isEnabled()); // the busy flag is cleared on every path
    qunsetenv("TAVO_OPENAI_API_BASE");
}

void TestPickerPanel::aFieldWithTheKeyboardIsTold()
{
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    QVERIFY(panel.refusesFocus());
    QSignalSpy changes(&panel, &PickerPanel::fieldKeyboardChanged);
    panel.enterRewriteCommand(u"draft"_s, 0);
    // A click into the editor gives it the keyboard.
    QTest::mouseClick(panel.rewriteFace()->editor()->viewport(), Qt::LeftButton);
    QCOMPARE(changes.size(), 1);
    QCOMPARE(changes.last().first().toBool(), true);
    QVERIFY(panel.fieldHasKeyboard());
    QVERIFY(!panel.refusesFocus());
    // However the panel closes, the keyboard goes back.
    panel.hidePanel();
    QCOMPARE(changes.size(), 2);
    QCOMPARE(changes.last().first().toBool(), false);
    QVERIFY(panel.refusesFocus());
}

void TestPickerPanel::returnInTheRewriteFacePastesWhatItShows()
{
    Clip row;
    row.key = u"/ty"_s;
    row.text = u"Thank you!"_s;
    m_db->setClips({row}); // a row the shortcut face would choose
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    QTRY_VERIFY(!panel.search().isLoading());
    QSignalSpy pastes(&panel, &PickerPanel::rewritePasteRequested);
    QSignalSpy chosen(&panel, &PickerPanel::chosen);
    panel.enterRewriteCommand(u"Kind words"_s, 6);
    panel.chooseFirst();
    QCOMPARE(chosen.size(), 0);
    QCOMPARE(pastes.size(), 1);
    QCOMPARE(pastes.first().at(0).toString(), u"Kind words"_s);
    QCOMPARE(pastes.first().at(1).toInt(), 6);
}

void TestPickerPanel::thePromptExpandsSavedShortcuts()
{
    Clip thanks;
    thanks.key = u"/ty"_s;
    thanks.name = u"ty"_s;
    thanks.text = u"Thank you!"_s;
    m_db->setClips({thanks});
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    QSignalSpy pastes(&panel, &PickerPanel::promptPasteRequested);
    panel.enterPromptCommand(QString(), 0);
    panel.promptFace()->editor()->setPlainText(u"say /ty please"_s);
    buttonNamed(&panel, u"Expand shortcuts"_s)->click();
    QVERIFY(panel.promptFace()->text().contains(u"Thank you!"_s));
    QVERIFY(!panel.promptFace()->text().contains(u"/ty"_s));
    QCOMPARE(panel.promptFace()->summary(), u"Saved shortcut · ty"_s);
    buttonNamed(&panel, u"Paste"_s)->click();
    QCOMPARE(pastes.size(), 1);
    QCOMPARE(pastes.first().at(0).toString(), panel.promptFace()->text());
    QCOMPARE(pastes.first().at(1).toInt(), 0);
}

void TestPickerPanel::theImagePromptTakesTheTapsKeys()
{
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    panel.enterImageCommand(u"cat"_s);
    for (const QString& key : {u"a"_s, u"😀"_s, u"__BACKSPACE__"_s, u" b"_s, u"__NEWLINE__"_s, u"\t"_s}) {
        panel.imagePromptInput(key);
    }
    QCOMPARE(panel.imageFace()->prompt(), u"a b\n\t"_s);
}

QTEST_MAIN(TestPickerPanel)
#include "tst_picker_panel.moc"
