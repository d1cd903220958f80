#include "e2e_support.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPlainTextEdit>
#include <QProcess>
#include <QRegularExpression>
#include <QSaveFile>
#include <QScopeGuard>
#include <QUuid>
#include <QtTest>

// Two calls of Xlib, declared here: its header's macros clash with Qt's names.
struct _XDisplay;
extern "C" int XkbLockGroup(_XDisplay* display, unsigned int device, unsigned int group);
extern "C" int XSync(_XDisplay* display, int discard);
struct XkbStateRec
{
    unsigned char group, locked_group;
    unsigned short base_group, latched_group;
    unsigned char mods, base_mods, latched_mods, locked_mods, compat_state, grab_mods, compat_grab_mods, lookup_mods,
        compat_lookup_mods;
    unsigned short ptr_buttons;
};
extern "C" int XkbGetState(_XDisplay* display, unsigned int device, XkbStateRec* state);
constexpr unsigned int XkbUseCoreKbd = 0x0100;

using e2e::words;
using e2e::xdotool;

// Counts the Escape presses that reach a window.
class EscapeCounter : public QObject
{
public:
    EscapeCounter(int* count, QObject* parent)
        : QObject(parent)
        , m_count(count)
    {
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
            ++*m_count;
        }
        return QObject::eventFilter(watched, event);
    }

private:
    int* m_count;
};

// Tavo as a person uses it: the real application, a real X server with a window manager, a
// real keyring, and keys typed through XTest into a window of another program (this test).
class TestExpansionEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void expansions_data();
    void expansions();
    void returnEndsATriggerOnce();
    void aShortcutAddedWhileRunningExpandsAtOnce();
    void aRecordFollowsItsCollectionBeingHiddenAndShown();
    void fastTypingLosesNothing();
    void keysWhileTracking_data();
    void keysWhileTracking();
    void shiftHeldPastTheEndingKey();
    void otherLayouts_data();
    void otherLayouts();
    void aTerminalPastesFromItsSelection();
    void aSecondStartLeavesTheFirstInCharge();
    void aPackageImportedFromTheMenuExpandsAtOnce();
    void thePickerFollowsTheTriggerWithoutTakingTheKeyboard();
    void aBusyApplicationHoldsNoKey();
    void quittingWhileTrackingLosesNoKey();

private:
    static int tavoctl(const QStringList& arguments, const QByteArray& input = {});
    static void type(const QString& text, int delayMs = 12);
    static void steps(const QStringList& steps);
    static void setLayout(const QStringList& arguments);
    QString typedText() const { return m_editor->toPlainText(); }
    int pickerResults(const QString& query, qsizetype logFrom = 0) const;

    e2e::TavoRun m_tavoRun;
    QProcess& m_tavo = m_tavoRun.process;
    QByteArray& m_tavoLog = m_tavoRun.log;
    std::unique_ptr<QPlainTextEdit> m_editor;
};

int TestExpansionEndToEnd::tavoctl(const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(30000);
    return process.exitCode();
}

void TestExpansionEndToEnd::type(const QString& text, int delayMs)
{
    // Through XTest, as a keyboard would: never to a window directly, which would bypass grabs.
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"),
                  {QStringLiteral("type"), QStringLiteral("--delay"), QString::number(delayMs), text});
    QVERIFY(xdotool.waitForFinished(30000));
}

void TestExpansionEndToEnd::steps(const QStringList& steps)
{
    // "verb:argument" each: xdotool's type takes the rest of its command line as text.
    for (const QString& step : steps) {
        const qsizetype colon = step.indexOf(u':');
        xdotool({step.left(colon), step.mid(colon + 1)});
    }
}

void TestExpansionEndToEnd::setLayout(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("setxkbmap"), arguments);
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitCode(), 0);
    QTest::qWait(300); // the tap and the target read the new key map
}

void TestExpansionEndToEnd::initTestCase()
{
    QCOMPARE(tavoctl({QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("sam")}, "correct horse\n"),
             0);
    QCOMPARE(tavoctl({QStringLiteral("add"), QStringLiteral("thx"), QStringLiteral("Thank you!"),
                      QStringLiteral("--collection"), QStringLiteral("Personal")}),
             0);

    m_editor = e2e::targetWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));

    m_tavoRun.start();
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.contains("keyboard tap running"), 15000);
}

void TestExpansionEndToEnd::cleanupTestCase()
{
    m_tavoRun.stop();
}

void TestExpansionEndToEnd::init()
{
    m_editor->clear();
    m_editor->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));
}

void TestExpansionEndToEnd::expansions_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("result");
    QTest::newRow("a key and a space") << "Hello \\thx and more"
                                       << "Hello Thank you! and more";
    QTest::newRow("a slash starts a key too, a semicolon ends it") << "/thx;"
                                                                   << "Thank you!;";
    QTest::newRow("the calculator") << "= \\2+3*4 "
                                    << "= 14 ";
    QTest::newRow("a start shortcut with a live date") << "\\intro "
                                                       << "Hi, I’m Sam. Great to connect! ";
    QTest::newRow("nothing is called this: every key stays") << "and/or this \\nothing here"
                                                             << "and/or this \\nothing here";
    QTest::newRow("an unfinished expression keeps its first space") << "\\2+ 3 "
                                                                    << "5 ";
    QTest::newRow("a batch on two lines") << "\\thx&intro "
                                          << "Thank you!\nHi, I’m Sam. Great to connect!";
    QTest::newRow("a path stays as typed") << "see /usr/share/doc now"
                                           << "see /usr/share/doc now";
}

void TestExpansionEndToEnd::expansions()
{
    QFETCH(QString, typed);
    QFETCH(QString, result);
    type(typed);
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), result, 5000);
    QTest::qWait(200); // nothing arrives late
    QCOMPARE(typedText(), result);
}

void TestExpansionEndToEnd::returnEndsATriggerOnce()
{
    // Return as a keyboard sends it: xdotool types "\n" as a Linefeed on a borrowed key code,
    // which no application takes for a line break.
    type(QStringLiteral("\\date"));
    xdotool(words({"key", "Return"}));
    // The long date of the locale and one line break: the Return was withheld, then pasted back.
    static const QRegularExpression longDate(QStringLiteral("^[A-Z][a-z]+ \\d{1,2}, \\d{4}\n$"));
    QTRY_VERIFY_WITH_TIMEOUT(longDate.match(typedText()).hasMatch(), 5000);
    QTest::qWait(200);
    QVERIFY2(longDate.match(typedText()).hasMatch(), qPrintable(typedText()));

    // A picture of the target after an expansion, kept with the test's files for a look.
    m_editor->grab().save(QDir::home().filePath(QStringLiteral("target-after-expansion.png")));
}

void TestExpansionEndToEnd::aShortcutAddedWhileRunningExpandsAtOnce()
{
    QCOMPARE(tavoctl({QStringLiteral("add"), QStringLiteral("addr"), QStringLiteral("1 Main Street")}), 0);
    QTest::qWait(500); // the running application follows the profile folder
    type(QStringLiteral("\\addr "));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("1 Main Street "), 5000);
}

void TestExpansionEndToEnd::aRecordFollowsItsCollectionBeingHiddenAndShown()
{
    // tavoctl is a second process on the same files, as the Collections screen is on the same
    // store rules: the running application follows each change with no restart.
    const QString alias = QStringLiteral("zorbix");
    const QString typed = u'\\' + alias;
    const QString expanded = QStringLiteral("Zorbix Supply\nPhone: 555 0100 ");
    // Types the alias with the picker open, waits for the picker's rows for it to settle at
    // `rows` (a change on disk restarts an open picker), then ends the trigger with a space.
    const auto typeAliasExpecting = [&](int rows, const QString& result) {
        m_editor->clear();
        const qsizetype logFrom = m_tavoLog.size();
        type(typed);
        QTRY_COMPARE_WITH_TIMEOUT(typedText(), typed, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(pickerResults(alias, logFrom), rows, 10000);
        type(QStringLiteral(" "));
        QTRY_COMPARE_WITH_TIMEOUT(typedText(), result, 5000);
        QTest::qWait(200); // nothing arrives late
        QCOMPARE(typedText(), result);
    };

    QCOMPARE(tavoctl(words({"record", "add", "Suppliers", "--name", "Zorbix Supply", "--alias", "zorbix", "--value",
                            "Phone=555 0100"})),
             0);
    typeAliasExpecting(1, expanded);
    if (QTest::currentTestFailed()) {
        return;
    }

    // Hidden: neither the picker nor typing reaches it; the typed key stays, with its space.
    QCOMPARE(tavoctl(words({"collection", "hide", "Suppliers"})), 0);
    typeAliasExpecting(0, typed + u' ');
    if (QTest::currentTestFailed()) {
        return;
    }

    // Shown again: both have it back.
    QCOMPARE(tavoctl(words({"collection", "show", "Suppliers"})), 0);
    typeAliasExpecting(1, expanded);
}

void TestExpansionEndToEnd::fastTypingLosesNothing()
{
    // About 170 characters a second: what follows the key is held until the paste has landed.
    const QString typed = QStringLiteral("\\thx see you soon, and/or later \\thx bye");
    type(typed, 5);
    const QString expected = QStringLiteral("Thank you! see you soon, and/or later Thank you! bye");
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), expected, 8000);

    // A typist going on at 100 characters a second, twenty times over: every run exact.
    for (const auto& [typing, result] :
         {std::pair{QStringLiteral("\\thx see you"), QStringLiteral("Thank you! see you")},
          std::pair{QStringLiteral("and/or this"), QStringLiteral("and/or this")}}) {
        for (int run = 0; run < 20; ++run) {
            m_editor->clear();
            type(typing, 10);
            QTRY_COMPARE_WITH_TIMEOUT(typedText(), result, 5000);
        }
    }
}

void TestExpansionEndToEnd::keysWhileTracking_data()
{
    // xdotool commands, and what the window holds after them.
    QTest::addColumn<QStringList>("typing");
    QTest::addColumn<QString>("result");
    QTest::addColumn<int>("escapes");
    QTest::newRow("Escape reaches the window and ends the trigger")
        << words({"type:\\thx", "key:Escape", "type: y"}) << "\\thx y" << 1;
    QTest::newRow("Backspace on the lone backslash ends tracking")
        << words({"type:\\", "key:BackSpace", "type:thx "}) << "thx " << 0;
    QTest::newRow("Ctrl with a key passes: select all, then type over it")
        << words({"type:one \\th", "key:ctrl+a", "type:x "}) << "x " << 0;
}

void TestExpansionEndToEnd::keysWhileTracking()
{
    QFETCH(QStringList, typing);
    QFETCH(QString, result);
    QFETCH(int, escapes);
    int escapesSeen = 0;
    auto* counter = new EscapeCounter(&escapesSeen, m_editor.get());
    m_editor->installEventFilter(counter);
    steps(typing);
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), result, 5000);
    QTest::qWait(200);
    QCOMPARE(typedText(), result);
    QCOMPARE(escapesSeen, escapes);
    delete counter;
}

void TestExpansionEndToEnd::shiftHeldPastTheEndingKey()
{
    // Shift still down 300 ms after the space: the paste is Ctrl+V all the same, not Ctrl+Shift+V.
    type(QStringLiteral("\\thx"));
    xdotool(words({"keydown", "shift", "key", "space", "sleep", "0.3", "keyup", "shift"}));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Thank you! "), 5000);
    type(QStringLiteral("ok"));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Thank you! ok"), 5000);
}

void TestExpansionEndToEnd::otherLayouts_data()
{
    QTest::addColumn<QStringList>("layout");
    QTest::addColumn<int>("group");
    QTest::addColumn<QStringList>("typing");
    QTest::addColumn<QString>("result");
    // Typed by key, as a person with that layout would.
    QTest::newRow("German: the backslash is AltGr+ß")
        << words({"de"}) << 0 << words({"key:ISO_Level3_Shift+ssharp", "type:thx "}) << "Thank you! ";
    QTest::newRow("US and Russian, the Russian group locked")
        << words({"-layout", "us,ru"}) << 1 << words({"type:\\thx "}) << "Thank you! ";
}

void TestExpansionEndToEnd::otherLayouts()
{
    QFETCH(QStringList, layout);
    QFETCH(int, group);
    QFETCH(QStringList, typing);
    QFETCH(QString, result);
    setLayout(layout);
    const auto restore = qScopeGuard([] { setLayout(words({"us"})); });
    // As the layout switch key does. xdotool types each letter in the group that has it and
    // then puts the locked group back, so the paste itself happens in this one.
    _XDisplay* display = qApp->nativeInterface<QNativeInterface::QX11Application>()->display();
    const auto lockedGroup = [display] {
        XkbStateRec state = {};
        XkbGetState(display, XkbUseCoreKbd, &state);
        return int(state.locked_group);
    };
    if (group != 0) {
        XkbLockGroup(display, XkbUseCoreKbd, unsigned(group));
        XSync(display, 0);
        QTRY_COMPARE(lockedGroup(), group);
    }
    steps(typing);
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), result, 5000);
    QCOMPARE(lockedGroup(), group);
}

void TestExpansionEndToEnd::aTerminalPastesFromItsSelection()
{
    // xterm pastes the PRIMARY selection with Shift+Insert; the shell there writes the line out.
    const QString out = QDir::home().filePath(QStringLiteral("xterm-line.txt"));
    QProcess xterm;
    xterm.start(QStringLiteral("xterm"), {QStringLiteral("-e"), QStringLiteral("sh"), QStringLiteral("-c"),
                                          QStringLiteral("IFS= read -r line; printf %s \"$line\" > '%1'").arg(out)});
    QVERIFY(xterm.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(!m_editor->isActiveWindow(), 10000);
    QTest::qWait(500); // the shell is waiting for its line
    type(QStringLiteral("\\thx see you\n"));
    QVERIFY(xterm.waitForFinished(10000));
    QFile line(out);
    QVERIFY(line.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(line.readAll()), QStringLiteral("Thank you! see you"));
}

void TestExpansionEndToEnd::aSecondStartLeavesTheFirstInCharge()
{
    QProcess second;
    second.start(QStringLiteral(TAVO_PATH));
    QVERIFY(second.waitForFinished(10000));
    QCOMPARE(second.exitCode(), 0);
    QVERIFY(second.readAllStandardError().contains("Tavo is already running."));
    QCOMPARE(m_tavo.state(), QProcess::Running);
}

void TestExpansionEndToEnd::aPackageImportedFromTheMenuExpandsAtOnce()
{
    // A package as another installation makes it: one top folder, the bundle, a folder per shortcut.
    const QDir home = QDir::home();
    const QString top = home.filePath(QStringLiteral("TavoCollectionShare-E2E"));
    QVERIFY(QDir().mkpath(top + QStringLiteral("/Shortcut-001/Media")));
    const QByteArray shortcut =
        R"({"key":"/pkgsig","name":"Signature","text":"Sent from a package","group":"Work","media":[]})";
    const QList<std::pair<QString, QByteArray>> files{
        {QStringLiteral("collection.json"), QByteArray(R"({"title":"Shared","shortcuts":[)") + shortcut + "]}"},
        {QStringLiteral("Shortcut-001/shortcut.json"), shortcut}};
    for (const auto& [name, bytes] : files) {
        QFile file(top + u'/' + name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    const QString package = home.filePath(QStringLiteral("shared.zip"));
    QProcess zip;
    zip.setWorkingDirectory(home.path());
    zip.start(QStringLiteral("zip"), {QStringLiteral("-qr"), package, QStringLiteral("TavoCollectionShare-E2E")});
    QVERIFY(zip.waitForFinished(10000));
    QCOMPARE(zip.exitCode(), 0);

    // A second start brings the window forward; its File menu opens the package dialog.
    const qsizetype logFrom = m_tavoLog.size();
    QProcess second;
    second.start(QStringLiteral(TAVO_PATH));
    QVERIFY(second.waitForFinished(10000));
    QTRY_VERIFY_WITH_TIMEOUT(!e2e::visibleWindow(QStringLiteral("^Tavo$")).isEmpty(), 5000);
    xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), e2e::visibleWindow(QStringLiteral("^Tavo$"))});
    xdotool(words({"key", "alt+f"}));
    QTest::qWait(300);
    xdotool(words({"key", "Return"})); // "Import shortcut package…", the menu's first entry
    QTRY_VERIFY_WITH_TIMEOUT(!e2e::visibleWindow(QStringLiteral("Choose an Tavo shortcut")).isEmpty(), 5000);
    QTest::qWait(300);
    type(package);
    xdotool(words({"key", "Return"}));
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.mid(logFrom).contains("Imported 1 shortcut(s) with their attached media."),
                             10000);

    // Typed at once in another application, without a restart.
    m_editor->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));
    m_editor->clear();
    type(QStringLiteral("\\pkgsig "));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Sent from a package "), 5000);
}

// How many rows the picker's last finished search for `query` showed, from Tavo's log after
// `logFrom`; -1 before it has.
int TestExpansionEndToEnd::pickerResults(const QString& query, qsizetype logFrom) const
{
    static const QRegularExpression line(QStringLiteral("picker shows (\\d+) results for \"([^\"]*)\""));
    int count = -1;
    for (auto match = line.globalMatch(QString::fromUtf8(m_tavoLog.mid(logFrom))); match.hasNext();) {
        const QRegularExpressionMatch each = match.next();
        if (each.captured(2) == query) {
            count = each.captured(1).toInt();
        }
    }
    return count;
}

// The picker window's geometry, or an empty rectangle while none is shown.
static QRect pickerGeometry()
{
    QProcess search;
    search.start(QStringLiteral("xdotool"),
                 {QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                  QStringLiteral("^Tavo picker$"), QStringLiteral("getwindowgeometry"), QStringLiteral("--shell")});
    search.waitForFinished(5000);
    QHash<QString, int> values;
    for (const QString& line : QString::fromLatin1(search.readAllStandardOutput()).split(u'\n')) {
        const QStringList pair = line.split(u'=');
        if (pair.size() == 2) {
            values.insert(pair.at(0), pair.at(1).toInt());
        }
    }
    if (!values.contains(QStringLiteral("WIDTH"))) {
        return {};
    }
    return {values.value(QStringLiteral("X")), values.value(QStringLiteral("Y")), values.value(QStringLiteral("WIDTH")),
            values.value(QStringLiteral("HEIGHT"))};
}

void TestExpansionEndToEnd::thePickerFollowsTheTriggerWithoutTakingTheKeyboard()
{
    type(QStringLiteral("\\th"));
    QTRY_VERIFY_WITH_TIMEOUT(!pickerGeometry().isEmpty(), 5000);
    // The window in front keeps the keyboard: what is typed next still arrives there.
    QVERIFY(m_editor->isActiveWindow());
    QTRY_VERIFY_WITH_TIMEOUT(pickerResults(QStringLiteral("th")) >= 0, 5000);
    type(QStringLiteral("x"));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("\\thx"), 5000);
    const QRect panel = pickerGeometry();
    QVERIFY(panel.top() >= 0 && panel.left() >= 0 && panel.right() <= 1280 && panel.bottom() <= 800);
    // Typing narrows the rows, down to the one shortcut called so.
    QTRY_COMPARE_WITH_TIMEOUT(pickerResults(QStringLiteral("thx")), 1, 5000);
    QVERIFY(pickerResults(QStringLiteral("th")) > 1);
    // A picture of the panel, kept with the test's files for a look.
    QProcess::execute(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"),
                                                 QDir::home().filePath(QStringLiteral("picker.png"))});

    // A click on the first row pastes it and takes the typed trigger away.
    xdotool(words({"mousemove", QByteArray::number(panel.left() + 60).constData(),
                   QByteArray::number(panel.top() + 150).constData(), "click", "1"}));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Thank you!"), 5000);
    QTRY_VERIFY_WITH_TIMEOUT(pickerGeometry().isEmpty(), 5000);
    QVERIFY(m_editor->isActiveWindow());

    // Escape closes it, and reaches the window as well.
    type(QStringLiteral(" \\th"));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Thank you! \\th"), 5000);
    QTRY_VERIFY_WITH_TIMEOUT(!pickerGeometry().isEmpty(), 5000);
    xdotool(words({"key", "Escape"}));
    QTRY_VERIFY_WITH_TIMEOUT(pickerGeometry().isEmpty(), 5000);
    QCOMPARE(typedText(), QStringLiteral("Thank you! \\th"));
}

void TestExpansionEndToEnd::aBusyApplicationHoldsNoKey()
{
    // A library of 150,000 shortcuts arrives on disk: Tavo's main thread reads it for a good while.
    const QString clipsPath = e2e::profileFileWith(QStringLiteral("clips.json"), "Thank you!");
    QVERIFY(!clipsPath.isEmpty());
    QFile current(clipsPath);
    QVERIFY(current.open(QIODevice::ReadOnly));
    QJsonArray clips = QJsonDocument::fromJson(current.readAll()).array();
    QVERIFY(!clips.isEmpty());
    const QJsonObject model = clips.first().toObject();
    for (int i = 0; i < 150000; ++i) {
        QJsonObject clip = model;
        clip[QStringLiteral("id")] = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        clip[QStringLiteral("key")] = QStringLiteral("bulk%1").arg(i);
        clips.append(clip);
    }
    QSaveFile bigger(clipsPath);
    QVERIFY(bigger.open(QIODevice::WriteOnly));
    bigger.write(QJsonDocument(clips).toJson(QJsonDocument::Compact));

    // Typing goes on throughout: ordinary letters, and slashes and spaces, which the tap decides.
    QElapsedTimer clock;
    clock.start();
    qint64 readingFrom = -1;
    qint64 readingUntil = -1;
    QList<qint64> arrivals;
    const qsizetype logSeen = m_tavoLog.size();
    const QMetaObject::Connection logWatch = connect(&m_tavo, &QProcess::readyRead, this, [&] {
        const QByteArray fresh = m_tavoLog.mid(logSeen);
        if (readingFrom < 0 && fresh.contains("the shortcuts changed on disk")) {
            readingFrom = clock.elapsed();
        }
        if (readingUntil < 0 && fresh.contains("shortcuts read:")) {
            readingUntil = clock.elapsed();
        }
    });
    const QMetaObject::Connection arrivalWatch =
        connect(m_editor.get(), &QPlainTextEdit::textChanged, this, [&] { arrivals << clock.elapsed(); });
    // Both watch this function's locals: gone with them, also when a check fails half-way, or
    // Tavo's next output would run into freed memory in a later test.
    auto unwatch = qScopeGuard([&] {
        disconnect(logWatch);
        disconnect(arrivalWatch);
    });
    QVERIFY(bigger.commit());
    const QString typing = QStringLiteral("and/or this, see /usr/share and more. ").repeated(3);
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"),
                  {QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("15"), typing});
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), typing, 30000);
    QTRY_VERIFY_WITH_TIMEOUT(readingUntil >= 0, 30000);
    unwatch.dismiss();
    disconnect(logWatch);
    disconnect(arrivalWatch);

    QVERIFY2(readingFrom >= 0, "Tavo never read the library");
    const auto during = std::count_if(arrivals.cbegin(), arrivals.cend(),
                                      [&](qint64 at) { return at > readingFrom && at < readingUntil; });
    qInfo() << "the library was read from" << readingFrom << "ms to" << readingUntil << "ms;" << during
            << "keys arrived meanwhile";
    // Keys arrived all through the read, not in one burst after it.
    QVERIFY2(during >= (readingUntil - readingFrom) / 15 / 2, qPrintable(QString::number(during)));

    // The picker scans the whole library for a query nothing matches, and starts over at each
    // key, while the query goes on being typed at a hundred characters a second.
    m_editor->clear();
    const QString query = QStringLiteral("zzqabcdefghijklmnopqrstuvwxyzabcdefghij");
    type(QStringLiteral("one \\") + query, 10);
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("one \\") + query, 10000);
    QTRY_COMPARE_WITH_TIMEOUT(pickerResults(query), 0, 10000); // the last scan went to the end
    type(QStringLiteral(" two /zzr three."), 10);
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("one \\") + query + QStringLiteral(" two /zzr three."),
                              10000);
}

void TestExpansionEndToEnd::quittingWhileTrackingLosesNoKey()
{
    type(QStringLiteral("\\th"));
    // The session ends with Tavo in the middle of a trigger: it leaves cleanly, grabs released.
    m_tavo.terminate();
    QVERIFY(m_tavo.waitForFinished(10000));
    QCOMPARE(m_tavo.exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_tavo.exitCode(), 0);
    type(QStringLiteral("x, and more"));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("\\thx, and more"), 5000);
}

QTEST_MAIN(TestExpansionEndToEnd)
#include "tst_expansion_e2e.moc"
