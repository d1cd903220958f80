#include "ai/model_profile_store.h"
#include "builder/builder_app.h"
#include "engine/expansion_runner.h"
#include "engine/inline_commands.h"
#include "engine/quill_app_delegate.h"
#include "fake_provider.h"
#include "fakes/fake_pasteboard.h"
#include "fakes/memory_secret_store.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"
#include "store/scorecard.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;

namespace {

// The desktop as a script: every window operation and key is written down in order.
class FakeDesktop : public Desktop
{
public:
    QStringList log;
    DesktopWindow front{7, QStringLiteral("gedit"), QStringLiteral("gedit"), 1};
    QString windowTitle = QStringLiteral("notes.txt");

    QString unavailableReason() const override { return {}; }
    DesktopWindow activeWindow() override { return front; }
    bool activate(const DesktopWindow&, int) override
    {
        log << QStringLiteral("activate");
        return true;
    }
    QString title(const DesktopWindow&) override { return windowTitle; }
    void waitForModifiersReleased(int) override {}
    void sendBackspaces(int count) override { log << QStringLiteral("backspace x%1").arg(count); }
    void sendEscape() override { log << QStringLiteral("escape"); }
    void sendPaste(const DesktopWindow&) override { log << QStringLiteral("paste"); }
    bool pastesFromSelection(const DesktopWindow&) const override { return false; }
    // Windows of one program share the bits above the lowest sixteen, as X ids do.
    bool isWindowOf(const DesktopWindow& app, quint64 window) const override
    {
        return (window >> 16) == (app.id >> 16);
    }
    void flush() override {}
    bool openUrl(const QString& url) override
    {
        log << QStringLiteral("open ") + url;
        return true;
    }
    bool launchDesktopEntry(const QString& entry, QString*) override
    {
        log << QStringLiteral("launch ") + QFileInfo(entry).fileName();
        return true;
    }
};

class FakeTap : public KeyboardTap
{
public:
    QList<quint64> claims;
    QList<quint64> releasedKeys;
    QList<bool> releases;      // replayEndingKey of each release
    bool holdClaimable = true; // false: the ending key went on to the application after all

    std::optional<QString> start(Decide) override { return std::nullopt; }
    void stop() override {}
    bool isRunning() const override { return true; }
    void setMode(TapMode, quint64) override {}
    void releaseHeldKeys(quint64 keyId, bool replayEndingKey) override
    {
        releasedKeys << keyId;
        releases << replayEndingKey;
    }
    bool claimHold(quint64 keyId) override
    {
        claims << keyId;
        return holdClaimable;
    }
};

Clip clip(const QString& key, const QString& text = QString())
{
    Clip c;
    c.key = key;
    c.name = key.mid(1);
    c.text = text;
    return c;
}

QStringList words(std::initializer_list<const char*> list)
{
    QStringList result;
    for (const char* word : list) {
        result << QString::fromUtf8(word);
    }
    return result;
}

} // namespace

// The paste-back road with the desktop scripted: which keys go out, in which order, and when
// the keys held since the trigger ended are let go.
class TestExpansionRunner : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void pastesAfterRemovingTheTrigger();
    void spreadsheetGetsOneEscape_data();
    void spreadsheetGetsOneEscape();
    void removalCaps_data();
    void removalCaps();
    void chosenRowRemovesWhatWasTyped();
    void websitesOpenWhereTheSettingSays_data();
    void websitesOpenWhereTheSettingSays();
    void nothingDone_data();
    void nothingDone();
    void theTapDecidesAnEndingKeyOnItsOwn_data();
    void theTapDecidesAnEndingKeyOnItsOwn();
    void builderCommands_data();
    void builderCommands();
    void inlineCommandsRemoveOnceThenHandOver_data();
    void inlineCommandsRemoveOnceThenHandOver();
    void facesPasteWithoutRemovingAgain_data();
    void facesPasteWithoutRemovingAgain();
    void toneRewrites_data();
    void toneRewrites();

private:
    // As the tap hands a trigger to the main thread: planned, with the id of its ending key.
    void typeTrigger(const QString& trigger, int length = -1);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
    std::unique_ptr<TavoAccountStore> m_accounts;
    std::unique_ptr<FakeTap> m_tap;
    std::unique_ptr<QuillAppDelegate> m_delegate;
    std::unique_ptr<FakeDesktop> m_desktop;
    std::unique_ptr<test::FakePasteboard> m_pasteboard;
    std::unique_ptr<ExpansionRunner> m_runner;
    test::MemorySecretStore m_keyring;
};

void TestExpansionRunner::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(QStringLiteral("defaults.json")));
    m_defaults->setString(QStringLiteral("tavoLocalUsername"), QStringLiteral("sam"));
    m_defaults->setBoolean(QStringLiteral("tavoLocalSignedIn"), true);
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(QStringLiteral("Quill")));
    m_db->activateProfile(QStringLiteral("sam"));
    Clip site = clip(QStringLiteral("/docs.web"));
    site.webURL = QStringLiteral("https://example.org/docs");
    Clip app = clip(QStringLiteral("/term.app"));
    app.appPath = m_dir->filePath(QStringLiteral("term.desktop"));
    QFile entry(*app.appPath);
    QVERIFY(entry.open(QIODevice::WriteOnly));
    Clip gone = clip(QStringLiteral("/gone.app"));
    gone.appPath = m_dir->filePath(QStringLiteral("uninstalled.desktop"));
    Clip files = clip(QStringLiteral("/files.web"));
    files.webURL = QStringLiteral("ftp://example.org/pub");
    m_db->setClips({clip(QStringLiteral("/ty"), QStringLiteral("Thank you!")), site, app, gone, files});
    m_accounts = std::make_unique<TavoAccountStore>(*m_defaults);
    m_tap = std::make_unique<FakeTap>();
    m_delegate = std::make_unique<QuillAppDelegate>(*m_tap);
    m_desktop = std::make_unique<FakeDesktop>();
    m_pasteboard = std::make_unique<test::FakePasteboard>();
    m_runner =
        std::make_unique<ExpansionRunner>(*m_db, *m_accounts, *m_defaults, *m_delegate, *m_desktop, *m_pasteboard);
}

void TestExpansionRunner::cleanup()
{
    m_runner.reset();
    m_delegate.reset();
}

void TestExpansionRunner::typeTrigger(const QString& trigger, int length)
{
    static quint64 endingKey = 0;
    m_runner->openPicker(true);
    m_runner->carryOutPlanned(planExpansion(trigger, QStringLiteral(" "), m_runner->library()),
                              length < 0 ? static_cast<int>(trigger.size()) : length, ++endingKey);
    QCOMPARE(m_tap->claims.last(), endingKey);
}

void TestExpansionRunner::pastesAfterRemovingTheTrigger()
{
    typeTrigger(QStringLiteral("\\ty"));
    QCOMPARE(m_desktop->log, words({"activate", "backspace x3", "paste"}));
    QCOMPARE(m_pasteboard->text, QStringLiteral("Thank you! "));
    QVERIFY(m_tap->releases.isEmpty()); // held until the paste lands
    m_runner->pasteTaken(0x5200001);    // a clipboard manager's copy is no paste
    QVERIFY(m_tap->releases.isEmpty());
    m_runner->pasteTaken(m_desktop->front.id + 1); // another window of the target's
    QCOMPARE(m_tap->releases, QList<bool>{false});
    QCOMPARE(m_tap->releasedKeys, m_tap->claims); // the hold it claimed, none other
    m_runner->pasteTaken();                       // a second read of the same paste releases nothing more
    QCOMPARE(m_tap->releases.size(), 1);

    // The picker's opening and the expansion count for the account, written once the runner is
    // done with the keys.
    QCOMPARE(storedMetric(*m_defaults, QStringLiteral("sam"), Metric::shortcutsUsed), 0);
    m_runner.reset();
    QCOMPARE(storedMetric(*m_defaults, QStringLiteral("sam"), Metric::shortcutsUsed), 1);
    QCOMPARE(storedMetric(*m_defaults, QStringLiteral("sam"), Metric::backslashInvocations), 1);
}

void TestExpansionRunner::spreadsheetGetsOneEscape_data()
{
    QTest::addColumn<QString>("windowClass");
    QTest::addColumn<QString>("title");
    QTest::newRow("LibreOffice Calc") << "libreoffice-calc"
                                      << "Budget.ods - LibreOffice Calc";
    QTest::newRow("a sheet in a browser") << "firefox"
                                          << "Budget - Google Sheets — Mozilla Firefox";
}

void TestExpansionRunner::spreadsheetGetsOneEscape()
{
    QFETCH(QString, windowClass);
    QFETCH(QString, title);
    m_desktop->front.windowClass = windowClass;
    m_desktop->windowTitle = title;
    typeTrigger(QStringLiteral("\\ty"));
    QCOMPARE(m_desktop->log, words({"activate", "escape"}));
    QTRY_COMPARE(m_desktop->log.size(), 3); // the paste follows once the cell editor is left
    QCOMPARE(m_desktop->log.last(), QStringLiteral("paste"));
}

void TestExpansionRunner::removalCaps_data()
{
    // A trigger the picker grew to 100 characters.
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QStringList>("log");
    QTest::newRow("a website removes all of it") << "\\docs.web" << words({"activate", "backspace x100"});
    QTest::newRow("an application stops at 80")
        << "\\term.app" << words({"activate", "backspace x80", "launch term.desktop"});
}

void TestExpansionRunner::removalCaps()
{
    QFETCH(QString, trigger);
    QFETCH(QStringList, log);
    typeTrigger(trigger, 100);
    QCOMPARE(m_desktop->log, log);
    QCOMPARE(m_tap->releases, QList<bool>{false});
}

void TestExpansionRunner::chosenRowRemovesWhatWasTyped()
{
    // Nothing typed but the picker's first-row route: one character goes.
    m_runner->openPicker(true);
    m_runner->chooseClip(m_db->clips().first(), true);
    QCOMPARE(m_desktop->log, words({"activate", "backspace x1", "paste"}));
    QCOMPARE(m_pasteboard->text, QStringLiteral("Thank you!")); // no ending key was typed

    // Chosen by a click with nothing typed: nothing is removed.
    m_desktop->log.clear();
    m_runner->chooseClip(m_db->clips().first(), false);
    QCOMPARE(m_desktop->log, words({"activate", "backspace x0", "paste"}));
}

void TestExpansionRunner::websitesOpenWhereTheSettingSays_data()
{
    QTest::addColumn<QJsonValue>("inDefaultBrowser"); // undefined: never set
    QTest::addColumn<QStringList>("events");          // the desktop's, the application's, the notices
    const QStringList inTavo = words({"activate", "backspace x9", "Tavo Browser https://example.org/docs",
                                      "notice Opened docs.web in Tavo Browser"});
    QTest::newRow("Tavo Browser unless told otherwise") << QJsonValue(QJsonValue::Undefined) << inTavo;
    QTest::newRow("Tavo Browser chosen") << QJsonValue(false) << inTavo;
    QTest::newRow("my default browser") << QJsonValue(true)
                                        << words({"activate", "backspace x9", "open https://example.org/docs",
                                                  "notice Opened docs.web in your browser"});
}

void TestExpansionRunner::websitesOpenWhereTheSettingSays()
{
    QFETCH(QJsonValue, inDefaultBrowser);
    QFETCH(QStringList, events);
    if (!inDefaultBrowser.isUndefined()) {
        m_defaults->setValue(websiteShortcutsInDefaultBrowserKey, inDefaultBrowser);
    }
    QStringList& log = m_desktop->log;
    connect(m_runner.get(), &ExpansionRunner::tavoBrowserRequested, m_runner.get(),
            [&log](const QString& url) { log << QStringLiteral("Tavo Browser ") + url; });
    connect(m_runner.get(), &ExpansionRunner::noticeChanged, m_runner.get(),
            [&log](const QString& text) { log << QStringLiteral("notice ") + text; });
    QSignalSpy pickerHidden(m_runner.get(), &ExpansionRunner::hidePickerRequested);
    typeTrigger(QStringLiteral("\\docs.web"));
    QCOMPARE(log, events);
    QCOMPARE(m_tap->releases, QList<bool>{false});
    QVERIFY(!m_delegate->triggerTracking());
    QTRY_COMPARE(pickerHidden.size(), 1);
}

void TestExpansionRunner::nothingDone_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<bool>("signedIn");
    QTest::addColumn<QString>("notice"); // empty: none at all
    QTest::addColumn<bool>("replay");    // the ending key is given back to the application
    QTest::newRow("nothing matches") << "/or" << true << QString() << true;
    QTest::newRow("signed out") << "\\ty" << false << QString() << true;
    QTest::newRow("an application no longer installed")
        << "\\gone.app" << true << "Could not find gone.app on this computer. Refresh Desktop apps to update the list."
        << false;
    QTest::newRow("a website that is not on the web") << "\\files.web" << true << QString() << false;
}

void TestExpansionRunner::nothingDone()
{
    QFETCH(QString, trigger);
    QFETCH(bool, signedIn);
    QFETCH(QString, notice);
    QFETCH(bool, replay);
    if (!signedIn) {
        m_accounts->signOut();
    }
    QSignalSpy notices(m_runner.get(), &ExpansionRunner::noticeChanged);
    typeTrigger(trigger);
    QVERIFY(m_desktop->log.isEmpty()); // no key removed, nothing opened
    QVERIFY(m_pasteboard->text.isEmpty());
    QCOMPARE(notices.isEmpty(), notice.isEmpty());
    if (!notice.isEmpty()) {
        QCOMPARE(notices.last().first().toString(), notice);
    }
    QCOMPARE(m_tap->releases, QList<bool>{replay});
    m_runner.reset();
    QCOMPARE(storedMetric(*m_defaults, QStringLiteral("sam"), Metric::backslashInvocations), signedIn ? 1 : 0);
}

void TestExpansionRunner::theTapDecidesAnEndingKeyOnItsOwn_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("signedIn");
    QTest::addColumn<bool>("hiddenOnly"); // the picker's "hidden only" switch
    QTest::addColumn<bool>("claimable");  // the tap still holds the ending key when the paste starts
    QTest::addColumn<bool>("held");       // the space waits for the paste
    QTest::addColumn<bool>("pasted");
    QTest::newRow("a shortcut") << "\\ty " << true << false << true << true << true;
    QTest::newRow("a shortcut added after start") << "\\new " << true << false << true << true << true;
    QTest::newRow("nothing is called this") << "/or " << true << false << true << false << false;
    QTest::newRow("signed out") << "\\ty " << false << false << true << false << false;
    QTest::newRow("a hidden shortcut") << "\\secret " << true << false << true << false << false;
    QTest::newRow("a hidden shortcut, the picker showing hidden only")
        << "\\secret " << true << true << true << true << true;
    QTest::newRow("the ending key went on before the paste") << "\\ty " << true << false << false << true << false;
}

void TestExpansionRunner::theTapDecidesAnEndingKeyOnItsOwn()
{
    QFETCH(QString, typed);
    QFETCH(bool, signedIn);
    QFETCH(bool, hiddenOnly);
    QFETCH(bool, claimable);
    QFETCH(bool, held);
    QFETCH(bool, pasted);
    Clip secret = clip(QStringLiteral("/secret"), QStringLiteral("Only for me"));
    secret.group = QStringLiteral("Private");
    m_db->setClips(QList<Clip>(m_db->clips()) << clip(QStringLiteral("/new"), QStringLiteral("New one")) << secret);
    m_db->setHiddenCollections({QStringLiteral("Private")});
    m_runner->setPickerShowsHiddenOnly(hiddenOnly);
    if (!signedIn) {
        m_accounts->signOut();
    }
    m_tap->holdClaimable = claimable;
    connect(m_delegate.get(), &QuillAppDelegate::expansionPlanned, m_runner.get(), &ExpansionRunner::carryOutPlanned);
    QSignalSpy notices(m_runner.get(), &ExpansionRunner::noticeChanged);
    m_runner->openPicker(true);

    // The decisions as the tap's thread takes them: the main thread is not asked.
    TapDecision decision;
    TapDecision beforeEnding;
    quint64 id = 0;
    for (const QChar c : typed) {
        const int code = c == u'\\' ? KeyCode::Backslash : c == u'/' ? KeyCode::Slash : KeyCode::Other;
        beforeEnding = decision;
        decision = m_delegate->decide(KeyEvent{code, 0, QString(c), false, ++id});
    }
    QCOMPARE(decision.verdict, held ? KeyVerdict::SwallowAndHold : KeyVerdict::Pass);
    // A trigger that pastes as it stands has the tap ready to hold before its ending key comes.
    QCOMPARE(beforeEnding.mode, held ? TapMode::Armed : TapMode::Tracking);
    QCOMPARE(m_delegate->triggerTracking(), false);

    // What it planned is what the main thread carries out, once it has claimed the held key.
    QCoreApplication::processEvents();
    QCOMPARE(m_tap->claims, held ? QList<quint64>{id} : QList<quint64>{});
    QCOMPARE(m_desktop->log.contains(QStringLiteral("paste")), pasted);
    if (held && !claimable) {
        QVERIFY(m_desktop->log.isEmpty()); // nothing removed: the trigger stays as typed
        QVERIFY(m_tap->releases.isEmpty());
        QCOMPARE(notices.size(), 1);
    }
}

void TestExpansionRunner::builderCommands_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("held");        // the ending key is the command's, not the application's
    QTest::addColumn<QString>("card");     // the app whose card shows; empty: none
    QTest::addColumn<QString>("generate"); // the command whose output is asked for; empty: none
    QTest::newRow("a missing value shows the card") << "\\inv-acme " << true << "Invoice" << QString();
    QTest::newRow("a complete command asks for its output")
        << "\\inv-acme-ltd-100 " << true << QString() << "\\inv-acme-ltd-100";
    QTest::newRow("surplus values are no command") << "\\inv-x-1-2-3 " << false << QString() << QString();
}

void TestExpansionRunner::builderCommands()
{
    QFETCH(QString, typed);
    QFETCH(bool, held);
    QFETCH(QString, card);
    QFETCH(QString, generate);
    // Made while the runner runs: the tap's copy of the library follows the app and the record.
    const QString app = QStringLiteral("Invoice");
    writeBuilderAppNames(*m_defaults, {app});
    m_defaults->setValues({{builderKey(QStringLiteral("Prefix"), app), QStringLiteral("inv")},
                           {builderKey(QStringLiteral("Collections"), app), QStringLiteral("Clients")},
                           {builderKey(QStringLiteral("Variables"), app), QStringLiteral("Amount")}});
    CollectionRecord acme;
    acme.id = QStringLiteral("R-1");
    acme.collection = QStringLiteral("Clients");
    acme.name = QStringLiteral("Acme Ltd");
    acme.alias = QStringLiteral("acme-ltd");
    m_db->setCollectionRecords({acme});
    connect(m_delegate.get(), &QuillAppDelegate::expansionPlanned, m_runner.get(), &ExpansionRunner::carryOutPlanned);
    QSignalSpy cards(m_runner.get(), &ExpansionRunner::builderCardRequested);
    QSignalSpy generated(m_runner.get(), &ExpansionRunner::builderGenerateRequested);
    QSignalSpy hides(m_runner.get(), &ExpansionRunner::hidePickerRequested);
    m_runner->openPicker(true);

    TapDecision decision;
    quint64 id = 0;
    for (const QChar c : typed) {
        decision =
            m_delegate->decide(KeyEvent{c == u'\\' ? KeyCode::Backslash : KeyCode::Other, 0, QString(c), false, ++id});
    }
    QCOMPARE(decision.verdict, held ? KeyVerdict::SwallowAndHold : KeyVerdict::Pass);
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();

    QCOMPARE(cards.size(), card.isEmpty() ? 0 : 1);
    if (!card.isEmpty()) {
        QCOMPARE(cards.first().first().value<CustomBuilderCommand>().app, card);
        QCOMPARE(hides.size(), 0); // the card stays for the values
    }
    QCOMPARE(generated.size(), generate.isEmpty() ? 0 : 1);
    if (!generate.isEmpty()) {
        QCOMPARE(generated.first().first().toString(), generate);
        QCOMPARE(hides.size(), 1);
    }
    // The command stays as typed and its ending key is gone: nothing removed, nothing given back.
    QVERIFY(m_desktop->log.isEmpty());
    QCOMPARE(m_tap->releases, held ? QList<bool>{false} : QList<bool>{});
    QVERIFY(!m_delegate->triggerTracking());
}

void TestExpansionRunner::inlineCommandsRemoveOnceThenHandOver_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<bool>("returnApp");  // the application typed in is known
    QTest::addColumn<QString>("entered"); // the face and what it was given
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<bool>("pickerActive");
    QTest::addColumn<bool>("imagePrompt");
    QTest::addColumn<QString>("notice");

    QTest::newRow("\\p: the prompt face, then the command goes, then the editor may take the keyboard")
        << "\\p" << true << "prompt '' 0" << words({"activate", "backspace x2", "focus"}) << false << false
        << QString();
    QTest::newRow("\\p- hands its payload over")
        << "\\p-draft-mail" << true << "prompt 'draft-mail' 0" << words({"activate", "backspace x13", "focus"}) << false
        << false << QString();
    QTest::newRow("\\p without its application: the face's paste removes the command")
        << "\\p" << false << "prompt '' 2" << words({"focus"}) << false << false << InlineNotice::promptNoReturnApp;
    QTest::newRow("\\paste: the rewrite face with the clipboard, the picker owns the keys")
        << "\\paste" << true << "rewrite 'draft text' 0" << words({"activate", "backspace x6"}) << true << false
        << QString();
    QTest::newRow("\\rewrite works like \\paste") << "\\rewrite" << true << "rewrite 'draft text' 0"
                                                  << words({"activate", "backspace x8"}) << true << false << QString();
    QTest::newRow("\\img-cat: the image face, keys go to its prompt")
        << "\\img-cat" << true << "image 'cat'" << words({"activate", "backspace x8"}) << true << true << QString();
}

void TestExpansionRunner::inlineCommandsRemoveOnceThenHandOver()
{
    QFETCH(QString, trigger);
    QFETCH(bool, returnApp);
    QFETCH(QString, entered);
    QFETCH(QStringList, log);
    QFETCH(bool, pickerActive);
    QFETCH(bool, imagePrompt);
    QFETCH(QString, notice);
    if (!returnApp) {
        m_desktop->front = DesktopWindow{};
    }
    m_pasteboard->text = QStringLiteral("draft text");
    QString face;
    qsizetype removedWhenEntered = -1;
    const auto enteredWith = [&](const QString& what) {
        face = what;
        removedWhenEntered = m_desktop->log.size();
    };
    connect(m_runner.get(), &ExpansionRunner::promptCommandEntered, this, [&](const QString& payload, int count) {
        enteredWith(QStringLiteral("prompt '%1' %2").arg(payload).arg(count));
    });
    connect(m_runner.get(), &ExpansionRunner::rewriteCommandEntered, this, [&](const QString& text, int count) {
        enteredWith(QStringLiteral("rewrite '%1' %2").arg(text).arg(count));
    });
    connect(m_runner.get(), &ExpansionRunner::imageCommandEntered, this,
            [&](const QString& payload) { enteredWith(QStringLiteral("image '%1'").arg(payload)); });
    connect(m_runner.get(), &ExpansionRunner::promptEditorFocusRequested, this,
            [&] { m_desktop->log << QStringLiteral("focus"); });
    QSignalSpy notices(m_runner.get(), &ExpansionRunner::noticeChanged);
    QSignalSpy hides(m_runner.get(), &ExpansionRunner::hidePickerRequested);

    typeTrigger(trigger);
    QCOMPARE(face, entered);
    QCOMPARE(removedWhenEntered, 0); // the panel is on screen before the text goes
    QCOMPARE(m_desktop->log, log);
    QCOMPARE(m_tap->releases, QList<bool>{false}); // the ending key is the command's, not the text's
    QCOMPARE(m_delegate->pickerActive(), pickerActive);
    QCOMPARE(m_delegate->imagePromptMode(), imagePrompt);
    QCOMPARE(m_delegate->triggerTracking(), false);
    QCOMPARE(notices.isEmpty(), notice.isEmpty());
    if (!notice.isEmpty()) {
        QCOMPARE(notices.last().first().toString(), notice);
    }
    QCoreApplication::processEvents();
    QVERIFY(hides.isEmpty()); // the face stays
    QVERIFY(!m_desktop->log.contains(QStringLiteral("paste")));
}

void TestExpansionRunner::facesPasteWithoutRemovingAgain_data()
{
    QTest::addColumn<QString>("face");
    QTest::addColumn<QStringList>("media");
    QTest::addColumn<int>("removeCount");
    QTest::addColumn<QString>("clipboardText");
    QTest::addColumn<bool>("mediaOnClipboard");
    QTest::addColumn<QString>("notice");

    QTest::newRow("a rewrite, the command already gone")
        << "rewrite" << QStringList() << 0 << "Kind words " << false << "Pasted into gedit";
    QTest::newRow("a rewrite whose command could not be removed")
        << "rewrite" << QStringList() << 6 << "Kind words " << false << "Pasted into gedit";
    QTest::newRow("a prompt without media pastes its text and a space")
        << "prompt" << QStringList() << 0 << "Kind words " << false << "Pasted into gedit";
    QTest::newRow("a prompt with media pastes the media")
        << "prompt" << QStringList{QStringLiteral("cat.pdf")} << 0 << "" << true << "Pasted into gedit";
}

void TestExpansionRunner::facesPasteWithoutRemovingAgain()
{
    QFETCH(QString, face);
    QFETCH(QStringList, media);
    QFETCH(int, removeCount);
    QFETCH(QString, clipboardText);
    QFETCH(bool, mediaOnClipboard);
    QFETCH(QString, notice);
    QStringList files;
    for (const QString& name : media) {
        files << m_dir->filePath(name);
        QFile file(files.last());
        QVERIFY(file.open(QIODevice::WriteOnly));
    }
    QSignalSpy notices(m_runner.get(), &ExpansionRunner::noticeChanged);
    QSignalSpy hides(m_runner.get(), &ExpansionRunner::hidePickerRequested);
    m_runner->openPicker(true);
    m_delegate->setPanelFieldHasKeyboard(true);
    if (face == QLatin1String("rewrite")) {
        m_runner->pasteRewrite(QStringLiteral("Kind words"), removeCount);
    } else {
        m_runner->pastePrompt(QStringLiteral("Kind words"), removeCount, files);
    }
    QCOMPARE(hides.size(), 1); // the panel gives the keyboard back before the paste
    QCOMPARE(m_desktop->log, words({"activate"})
                                 << QStringLiteral("backspace x%1").arg(removeCount) << QStringLiteral("paste"));
    QCOMPARE(m_pasteboard->written->hasUrls(), mediaOnClipboard);
    QCOMPARE(mediaOnClipboard ? QString() : m_pasteboard->text, clipboardText);
    QVERIFY(!m_delegate->panelFieldHasKeyboard());
    m_runner->pasteTaken();
    QCOMPARE(notices.last().first().toString(), notice);
    QVERIFY(m_tap->releases.isEmpty()); // no hold was the faces' to let go
}

void TestExpansionRunner::toneRewrites_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QString>("clipboard");
    QTest::addColumn<bool>("key");
    QTest::addColumn<QByteArray>("reply"); // the provider's body; empty: no request expected
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("meanwhile"); // "type": a key typed; "away": another window in front
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QString>("pasted"); // the clipboard afterwards
    QTest::addColumn<QString>("notice");

    const QByteArray answer = R"({"output_text":"Could you send it, please?"})";
    QTest::newRow("the answer replaces the command once it comes")
        << "\\paste.f"
        << "  can u send it\n"
        << true << answer << 200 << QString() << words({"activate", "backspace x8", "paste"})
        << "Could you send it, please? "
        << "Pasted into gedit";
    QTest::newRow("keys typed meanwhile: nothing is deleted, the rewrite waits on the clipboard")
        << "\\paste.f"
        << "can u send it" << true << answer << 200 << "type" << QStringList() << "Could you send it, please? "
        << "\\paste.Friendly copied";
    QTest::newRow("another window in front: the same")
        << "\\r"
        << "can u send it" << true << answer << 200 << "away" << QStringList() << "Could you send it, please? "
        << "\\paste.Rephrase copied";
    QTest::newRow("an empty clipboard sends nothing")
        << "\\paste.w"
        << " \n " << true << QByteArray() << 200 << QString() << QStringList() << " \n "
        << "Copy text first, then type \\paste.Warm and Space.";
    QTest::newRow("no key sends nothing")
        << "\\paste.w"
        << "can u send it" << false << QByteArray() << 200 << QString() << QStringList() << "can u send it"
        << "Add an API key in API configuration to rewrite clipboard text.";
    QTest::newRow("a provider's error leaves the clipboard")
        << "\\paste.c"
        << "can u send it" << true << QByteArray(R"({"error":{"message":"Rate limit"}})") << 429 << QString()
        << QStringList() << "can u send it"
        << "Clipboard rewrite failed: OpenAI error: Rate limit";
    QTest::newRow("an empty answer leaves the clipboard")
        << "\\paste.c"
        << "can u send it" << true << QByteArray(R"({"output_text":"  "})") << 200 << QString() << QStringList()
        << "can u send it"
        << "AI returned an empty rewrite.";
}

void TestExpansionRunner::toneRewrites()
{
    QFETCH(QString, trigger);
    QFETCH(QString, clipboard);
    QFETCH(bool, key);
    QFETCH(QByteArray, reply);
    QFETCH(int, status);
    QFETCH(QString, meanwhile);
    QFETCH(QStringList, log);
    QFETCH(QString, pasted);
    QFETCH(QString, notice);

    test::FakeProvider provider;
    QVERIFY(provider.isListening());
    provider.status = status;
    provider.responseBody = reply;
    qputenv("TAVO_OPENAI_API_BASE", provider.base().toUtf8());
    KeyStore::setBackend(&m_keyring);
    KeyStore::resetForTesting();
    m_keyring.items.clear();
    const CollectionAIModelProfile profile = AIModelProfileStore::starter();
    if (key) {
        m_keyring.items.insert(profile.keyAccount, QStringLiteral("sk-test"));
    }
    m_pasteboard->text = clipboard;
    QStringList queries;
    connect(m_runner.get(), &ExpansionRunner::pickerQueryRequested, this,
            [&](const QString& query) { queries << query; });
    QSignalSpy notices(m_runner.get(), &ExpansionRunner::noticeChanged);

    typeTrigger(trigger);
    QCOMPARE(m_tap->releases, QList<bool>{false}); // nothing is held while the answer is awaited
    QVERIFY(m_desktop->log.isEmpty());             // the command stays until then
    if (reply.isEmpty()) {
        QTest::qWait(50);
        QVERIFY(provider.requests.isEmpty());
        QCOMPARE(queries, QStringList{QStringLiteral("paste")});
    } else {
        if (meanwhile == QLatin1String("type")) {
            m_delegate->decide(KeyEvent{KeyCode::Other, 0, QStringLiteral("x"), false, 99});
        } else if (meanwhile == QLatin1String("away")) {
            m_desktop->front = DesktopWindow{9, QStringLiteral("xterm"), QStringLiteral("xterm"), 2};
        }
        QTRY_VERIFY(!notices.isEmpty());
        QCOMPARE(provider.requests.size(), 1);
        const QJsonObject body = QJsonDocument::fromJson(provider.requests.first().body).object();
        QCOMPARE(body.value(u"input").toString(),
                 toneRewritePrompt(*clipboardRewriteTone(trigger), clipboard.trimmed()));
        QCOMPARE(body.value(u"max_output_tokens").toInt(), 4000);
        m_runner->pasteTaken();
    }
    QCOMPARE(m_desktop->log, log);
    QCOMPARE(m_pasteboard->text, pasted);
    QCOMPARE(notices.last().first().toString(), notice);
    qunsetenv("TAVO_OPENAI_API_BASE");
}

QTEST_MAIN(TestExpansionRunner)
#include "tst_expansion_runner.moc"
