#include "engine/tap_state.h"

#include <QtTest>

using namespace tavo;

namespace {

// One key of a scripted sequence: a literal text, or a named key in angle brackets.
KeyEvent key(const QString& keyName)
{
    static const QHash<QString, KeyEvent> named{
        {QStringLiteral("<ret>"), {KeyCode::Return, 0, QStringLiteral("\r")}},
        {QStringLiteral("<enter>"), {KeyCode::KeypadEnter, 0, QStringLiteral("\r")}},
        {QStringLiteral("<tab>"), {KeyCode::Tab, 0, QStringLiteral("\t")}},
        {QStringLiteral("<bs>"), {KeyCode::Delete, 0, QStringLiteral("\b")}},
        {QStringLiteral("<esc>"), {KeyCode::Escape, 0, QStringLiteral("\x1b")}},
        {QStringLiteral("<C-v>"), {KeyCode::V, ModifierFlag::Command, QStringLiteral("\x16")}},
        {QStringLiteral("<C-a>"), {KeyCode::Other, ModifierFlag::Command, QStringLiteral("\x01")}},
        {QStringLiteral("<A-/>"), {KeyCode::Slash, ModifierFlag::Option, QStringLiteral("/")}},
        {QStringLiteral("<shift-bsl>"), {KeyCode::Backslash, 0, QStringLiteral("|")}},
        {QStringLiteral("<dead>"), {KeyCode::Other, 0, QString(), true}},
        {QStringLiteral("<none>"), {KeyCode::Other, 0, QString()}},
    };
    if (named.contains(keyName)) {
        return named.value(keyName);
    }
    KeyEvent event;
    event.text = keyName;
    if (keyName == QLatin1String("\\")) {
        event.keyCode = KeyCode::Backslash;
    } else if (keyName == QLatin1String("/")) {
        event.keyCode = KeyCode::Slash;
    }
    return event;
}

QChar verdictLetter(KeyVerdict verdict)
{
    return QChar(u"psh"[static_cast<int>(verdict)]); // Pass, Swallow, SwallowAndHold
}

} // namespace

class TestTapState : public QObject
{
    Q_OBJECT

private slots:
    void sequences_data();
    void sequences();
    void notificationsOfATypedTrigger();
    void pickerOwnsTheKeys();
    void imagePrompt_data();
    void imagePrompt();
    void aPanelFieldWithTheKeyboardTakesText_data();
    void aPanelFieldWithTheKeyboardTakesText();
};

void TestTapState::sequences_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QString>("verdicts"); // p pass, s swallow, h swallow and hold what follows
    QTest::addColumn<QString>("expanded"); // the trigger handed to expansion, or empty
    QTest::addColumn<QString>("suffix");

    const auto row = [](const char* name, std::initializer_list<const char*> names, const char* verdicts,
                        const char* expanded, const char* suffix) {
        QStringList keys;
        for (const char* keyName : names) {
            keys.append(QString::fromUtf8(keyName));
        }
        QTest::newRow(name) << keys << QString::fromUtf8(verdicts) << QString::fromUtf8(expanded)
                            << QString::fromUtf8(suffix);
    };
    row("space ends a key", {"\\", "t", "y", " "}, "ppph", "\\ty", " ");
    row("slash starts too", {"/", "t", "y", " "}, "ppph", "/ty", " ");
    row("return ends with a newline", {"\\", "a", "<ret>"}, "pph", "\\a", "\n");
    row("keypad enter too", {"\\", "a", "<enter>"}, "pph", "\\a", "\n");
    row("tab ends with a tab", {"\\", "a", "<tab>"}, "pph", "\\a", "\t");
    row("batch, style and symbol characters stay", {"\\", "a", ",", "1", "&", "-", "$", "=", "<", "|", "!", " "},
        "ppppppppppph", "\\a,1&-$=<|!", " ");
    row("colon ends", {"\\", "a", ":"}, "pph", "\\a", ":");
    row("unfinished expression keeps the space", {"\\", "2", "+", " ", "3", " "}, "ppppph", "\\2+ 3", " ");
    row("finished expression ends at the space", {"\\", "2", "+", "3", " "}, "pppph", "\\2+3", " ");
    row("backspace shortens the trigger", {"\\", "t", "x", "<bs>", "y", " "}, "ppppph", "\\ty", " ");
    row("backspace at the start cancels and passes", {"\\", "<bs>", "a", " "}, "pppp", "", "");
    row("escape cancels and passes", {"\\", "a", "<esc>", " "}, "pppp", "", "");
    row("a modifier cancels and passes", {"\\", "a", "<C-a>", " "}, "pppp", "", "");
    row("a dead key cancels", {"\\", "a", "<dead>", "e", " "}, "ppppp", "", "");
    row("a key without text changes nothing", {"\\", "a", "<none>", "b", " "}, "pppph", "\\ab", " ");
    row("shifted backslash key starts with its own character", {"<shift-bsl>", "x", " "}, "pph", "|x", " ");
    row("a modified slash starts nothing", {"<A-/>", "x", " "}, "ppp", "", "");
    row("a second backslash ends the trigger", {"\\", "a", "\\"}, "pph", "\\a", "\\");
    row("a slash inside goes on", {"\\", "a", "/", "b", " "}, "pppph", "\\a/b", " ");
    row("emoji backspaced as one character", {"\\", "a", "😀", "<bs>", " "}, "pppph", "\\a", " ");
    row("ordinary typing passes", {"a", "n", "d", " ", "o", "r"}, "pppppp", "", "");
}

void TestTapState::sequences()
{
    QFETCH(QStringList, keys);
    QFETCH(QString, verdicts);
    QFETCH(QString, expanded);
    QFETCH(QString, suffix);

    TriggerTracker tracker;
    QList<TapNotification> notifications;
    QString seen;
    for (const QString& keyName : keys) {
        seen += verdictLetter(tracker.handle(key(keyName), notifications).verdict);
    }
    QCOMPARE(seen, verdicts);

    const auto expansion = std::find_if(notifications.cbegin(), notifications.cend(), [](const TapNotification& n) {
        return n.kind == TapNotification::Kind::AutoExpand;
    });
    if (expanded.isEmpty()) {
        QVERIFY(expansion == notifications.cend());
    } else {
        QVERIFY(expansion != notifications.cend());
        QCOMPARE(expansion->text, expanded);
        QCOMPARE(expansion->suffix, suffix);
        QCOMPARE(expansion->length, expanded.size()); // UTF-16 units, without the suffix
        QVERIFY(!tracker.triggerTracking);
    }
}

void TestTapState::notificationsOfATypedTrigger()
{
    TriggerTracker tracker;
    QList<TapNotification> notifications;
    QCOMPARE(tracker.mode(), TapMode::Idle);
    QCOMPARE(tracker.handle(key(QStringLiteral("\\")), notifications).mode, TapMode::Tracking);
    for (const char* keyName : {"t", "😀", " "}) {
        tracker.handle(key(QString::fromUtf8(keyName)), notifications);
    }
    QCOMPARE(tracker.mode(), TapMode::Idle);
    using Kind = TapNotification::Kind;
    const QList<TapNotification> expected{
        {Kind::OpenPicker, {}, {}, 0},
        {Kind::PickerQuery, {}, {}, 0},
        {Kind::PickerQuery, QStringLiteral("t"), {}, 0},
        {Kind::PickerQuery, QStringLiteral("t😀"), {}, 0},
        {Kind::AutoExpand, QStringLiteral("\\t😀"), QStringLiteral(" "), 4},
    };
    QCOMPARE(notifications, expected);
}

void TestTapState::pickerOwnsTheKeys()
{
    TriggerTracker tracker;
    tracker.pickerActive = true;
    QList<TapNotification> notifications;
    for (const char* keyName : {"a", "b", "<bs>", "<tab>"}) {
        QCOMPARE(tracker.handle(key(QString::fromUtf8(keyName)), notifications).verdict, KeyVerdict::Swallow);
    }
    QCOMPARE(tracker.queryBuffer, QStringLiteral("a"));
    QCOMPARE(tracker.handle(key(QStringLiteral("<C-a>")), notifications).verdict, KeyVerdict::Pass);
    QCOMPARE(tracker.mode(), TapMode::Exclusive);

    QCOMPARE(tracker.handle(key(QStringLiteral("<ret>")), notifications).verdict, KeyVerdict::Swallow);
    QCOMPARE(notifications.last().kind, TapNotification::Kind::ChooseFirst);
    QVERIFY(!tracker.pickerActive);

    tracker.pickerActive = true;
    QCOMPARE(tracker.handle(key(QStringLiteral("<esc>")), notifications).verdict, KeyVerdict::Swallow);
    QCOMPARE(notifications.last().kind, TapNotification::Kind::ClosePicker);
    QCOMPARE(tracker.mode(), TapMode::Idle);
}

void TestTapState::imagePrompt_data()
{
    QTest::addColumn<QString>("keyName");
    QTest::addColumn<KeyVerdict>("verdict");
    QTest::addColumn<QString>("posted"); // empty: nothing posted
    QTest::newRow("ctrl+v pastes") << "<C-v>" << KeyVerdict::Swallow << "__PASTE__";
    QTest::newRow("other ctrl keys pass") << "<C-a>" << KeyVerdict::Pass << "";
    QTest::newRow("backspace") << "<bs>" << KeyVerdict::Swallow << "__BACKSPACE__";
    QTest::newRow("return") << "<ret>" << KeyVerdict::Swallow << "__NEWLINE__";
    QTest::newRow("escape does nothing") << "<esc>" << KeyVerdict::Swallow << "";
    QTest::newRow("letters go to the prompt") << "é" << KeyVerdict::Swallow << "é";
}

void TestTapState::imagePrompt()
{
    QFETCH(QString, keyName);
    QFETCH(KeyVerdict, verdict);
    QFETCH(QString, posted);
    TriggerTracker tracker;
    tracker.imagePromptMode = true;
    tracker.pickerActive = true;
    QList<TapNotification> notifications;
    QCOMPARE(tracker.handle(key(keyName), notifications).verdict, verdict);
    if (posted.isEmpty()) {
        QVERIFY(notifications.isEmpty());
    } else {
        QCOMPARE(notifications, (QList<TapNotification>{{TapNotification::Kind::ImagePromptInput, posted, {}, 0}}));
    }
}

void TestTapState::aPanelFieldWithTheKeyboardTakesText_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<bool>("fieldHasKeyboard");
    QTest::addColumn<QString>("verdicts");

    const QStringList mention{QStringLiteral("/"), QStringLiteral("t"), QStringLiteral("y"), QStringLiteral(" ")};
    QTest::newRow("a mention typed in the prompt editor stays text") << mention << true << "pppp";
    QTest::newRow("the same keys in another application expand") << mention << false << "ppph";
    QTest::newRow("a command typed in the editor starts nothing")
        << QStringList{QStringLiteral("\\"), QStringLiteral("p"), QStringLiteral(" ")} << true << "ppp";
}

void TestTapState::aPanelFieldWithTheKeyboardTakesText()
{
    QFETCH(QStringList, keys);
    QFETCH(bool, fieldHasKeyboard);
    QFETCH(QString, verdicts);

    TriggerTracker tracker;
    tracker.panelFieldHasKeyboard = fieldHasKeyboard;
    QList<TapNotification> notifications;
    QString seen;
    for (const QString& keyName : keys) {
        seen += verdictLetter(tracker.handle(key(keyName), notifications).verdict);
    }
    QCOMPARE(seen, verdicts);
    QCOMPARE(notifications.isEmpty(), fieldHasKeyboard);
    // Every key counts as typed, whoever takes it.
    QCOMPARE(tracker.keysSeen, quint64(keys.size()));
}

QTEST_GUILESS_MAIN(TestTapState)
#include "tst_tap_state.moc"
