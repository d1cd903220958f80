#include "engine/tap_state.h"

#include <QtTest>

using namespace tavo;

namespace {

// One key of a scripted sequence: a literal text, or a named key in angle brackets.
KeyEvent key(const QString& keyName)
{
    KeyEvent event;
    if (!keyName.startsWith(u'<') || keyName.size() < 3) {
        event.text = keyName;
        if (keyName == QLatin1String("\\")) {
            event.keyCode = KeyCode::Backslash;
        } else if (keyName == QLatin1String("/")) {
            event.keyCode = KeyCode::Slash;
        }
        return event;
    }
    const QString named = keyName.mid(1, keyName.size() - 2);
    if (named == QLatin1String("ret")) {
        event = {KeyCode::Return, 0, QStringLiteral("\r")};
    } else if (named == QLatin1String("enter")) {
        event = {KeyCode::KeypadEnter, 0, QStringLiteral("\r")};
    } else if (named == QLatin1String("tab")) {
        event = {KeyCode::Tab, 0, QStringLiteral("\t")};
    } else if (named == QLatin1String("bs")) {
        event = {KeyCode::Delete, 0, QStringLiteral("\b")};
    } else if (named == QLatin1String("esc")) {
        event = {KeyCode::Escape, 0, QStringLiteral("\x1b")};
    } else if (named == QLatin1String("C-v")) {
        event = {KeyCode::V, ModifierFlag::Command, QStringLiteral("\x16")};
    } else if (named == QLatin1String("C-a")) {
        event = {KeyCode::Other, ModifierFlag::Command, QStringLiteral("\x01")};
    } else if (named == QLatin1String("A-/")) {
        event = {KeyCode::Slash, ModifierFlag::Option, QStringLiteral("/")};
    } else if (named == QLatin1String("shift-bsl")) {
        event = {KeyCode::Backslash, 0, QStringLiteral("|")};
    } else if (named == QLatin1String("dead")) {
        event = {KeyCode::Other, 0, QString(), true};
    } else if (named == QLatin1String("none")) {
        event = {KeyCode::Other, 0, QString()};
    }
    return event;
}

QString verdictLetter(KeyVerdict verdict)
{
    switch (verdict) {
    case KeyVerdict::Pass:
        return QStringLiteral("p");
    case KeyVerdict::Swallow:
        return QStringLiteral("s");
    case KeyVerdict::SwallowAndHold:
        return QStringLiteral("h");
    }
    return {};
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
    void modeFollowsTheFlags();
};

void TestTapState::sequences_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QString>("verdicts"); // p pass, s swallow, h swallow and hold what follows
    QTest::addColumn<QString>("expanded"); // the trigger handed to expansion, or empty
    QTest::addColumn<QString>("suffix");

    const auto keys = [](std::initializer_list<const char*> names) {
        QStringList list;
        for (const char* name : names) {
            list.append(QString::fromUtf8(name));
        }
        return list;
    };
    QTest::newRow("space ends a key") << keys({"\\", "t", "y", " "}) << "ppph"
                                      << "\\ty"
                                      << " ";
    QTest::newRow("slash starts too") << keys({"/", "t", "y", " "}) << "ppph"
                                      << "/ty"
                                      << " ";
    QTest::newRow("return ends with a newline") << keys({"\\", "a", "<ret>"}) << "pph"
                                                << "\\a"
                                                << "\n";
    QTest::newRow("keypad enter too") << keys({"\\", "a", "<enter>"}) << "pph"
                                      << "\\a"
                                      << "\n";
    QTest::newRow("tab ends with a tab") << keys({"\\", "a", "<tab>"}) << "pph"
                                         << "\\a"
                                         << "\t";
    QTest::newRow("comma is part of a trigger") << keys({"\\", "a", ",", "b", " "}) << "pppph"
                                                << "\\a,b"
                                                << " ";
    QTest::newRow("batch and style characters stay")
        << keys({"\\", "a", "1", "&", "2", "-", "b", "!", " "}) << "pppppppph"
        << "\\a1&2-b!"
        << " ";
    QTest::newRow("colon ends") << keys({"\\", "a", ":"}) << "pph"
                                << "\\a"
                                << ":";
    QTest::newRow("underscore ends") << keys({"\\", "a", "_"}) << "pph"
                                     << "\\a"
                                     << "_";
    QTest::newRow("at sign ends") << keys({"\\", "a", "@"}) << "pph"
                                  << "\\a"
                                  << "@";
    QTest::newRow("symbols are part of a trigger") << keys({"\\", "$", "=", "<", "|", " "}) << "ppppph"
                                                   << "\\$=<|"
                                                   << " ";
    QTest::newRow("unfinished expression keeps the space") << keys({"\\", "2", "+", " ", "3", " "}) << "ppppph"
                                                           << "\\2+ 3"
                                                           << " ";
    QTest::newRow("finished expression ends at the space") << keys({"\\", "2", "+", "3", " "}) << "pppph"
                                                           << "\\2+3"
                                                           << " ";
    QTest::newRow("backspace shortens the trigger") << keys({"\\", "t", "x", "<bs>", "y", " "}) << "ppppph"
                                                    << "\\ty"
                                                    << " ";
    QTest::newRow("backspace at the start cancels and passes") << keys({"\\", "<bs>", "a", " "}) << "pppp"
                                                               << ""
                                                               << "";
    QTest::newRow("escape cancels and passes") << keys({"\\", "a", "<esc>", " "}) << "pppp"
                                               << ""
                                               << "";
    QTest::newRow("a modifier cancels and passes") << keys({"\\", "a", "<C-a>", " "}) << "pppp"
                                                   << ""
                                                   << "";
    QTest::newRow("a dead key cancels") << keys({"\\", "a", "<dead>", "e", " "}) << "ppppp"
                                        << ""
                                        << "";
    QTest::newRow("a key without text changes nothing") << keys({"\\", "a", "<none>", "b", " "}) << "pppph"
                                                        << "\\ab"
                                                        << " ";
    QTest::newRow("shifted backslash key starts with its own character") << keys({"<shift-bsl>", "x", " "}) << "pph"
                                                                         << "|x"
                                                                         << " ";
    QTest::newRow("a modified slash starts nothing") << keys({"<A-/>", "x", " "}) << "ppp"
                                                     << ""
                                                     << "";
    QTest::newRow("a second backslash ends the trigger") << keys({"\\", "a", "\\"}) << "pph"
                                                         << "\\a"
                                                         << "\\";
    QTest::newRow("a slash inside goes on") << keys({"\\", "a", "/", "b", " "}) << "pppph"
                                            << "\\a/b"
                                            << " ";
    QTest::newRow("emoji backspaced as one character") << keys({"\\", "a", "😀", "<bs>", " "}) << "pppph"
                                                       << "\\a"
                                                       << " ";
    QTest::newRow("ordinary typing passes") << keys({"a", "n", "d", " ", "o", "r"}) << "pppppp"
                                            << ""
                                            << "";
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
    for (const char* keyName : {"\\", "t", "😀", " "}) {
        tracker.handle(key(QString::fromUtf8(keyName)), notifications);
    }
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
    QCOMPARE(tracker.handle(key(QStringLiteral("a")), notifications).verdict, KeyVerdict::Swallow);
    QCOMPARE(tracker.handle(key(QStringLiteral("b")), notifications).verdict, KeyVerdict::Swallow);
    QCOMPARE(tracker.handle(key(QStringLiteral("<bs>")), notifications).verdict, KeyVerdict::Swallow);
    QCOMPARE(tracker.handle(key(QStringLiteral("<tab>")), notifications).verdict, KeyVerdict::Swallow);
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
    QTest::newRow("tab types a tab") << "<tab>" << KeyVerdict::Swallow << "\t";
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

void TestTapState::modeFollowsTheFlags()
{
    TriggerTracker tracker;
    QList<TapNotification> notifications;
    QCOMPARE(tracker.mode(), TapMode::Idle);
    QCOMPARE(tracker.handle(key(QStringLiteral("\\")), notifications).mode, TapMode::Tracking);
    QCOMPARE(tracker.handle(key(QStringLiteral(" ")), notifications).mode, TapMode::Idle);
}

QTEST_GUILESS_MAIN(TestTapState)
#include "tst_tap_state.moc"
