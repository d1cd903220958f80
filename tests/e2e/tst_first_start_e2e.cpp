#include "e2e_support.h"

#include <QPlainTextEdit>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

// A new user's first minutes: Tavo starts on a machine that has never seen it, asks for an
// account, seeds the profile, and a seeded website shortcut works in another program.
class TestFirstStart : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void registrationComesFirst();
    void aSeededWebsiteOpens();
    void aNewShortcutExpandsAtOnce();

private:
    static QString seededClips();

    e2e::TavoRun m_tavoRun;
    QByteArray& m_tavoLog = m_tavoRun.log;
    QString m_openedLog;
};

using e2e::xdotool;

QString TestFirstStart::seededClips()
{
    QFile file(e2e::profileFileWith(QStringLiteral("clips.json"), "/google.web"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

void TestFirstStart::initTestCase()
{
    // The desktop's URL handler, standing in for a browser: it notes what it was asked to open.
    const QString bin = QDir::home().filePath(QStringLiteral("bin"));
    QVERIFY(QDir().mkpath(bin));
    m_openedLog = QDir::home().filePath(QStringLiteral("opened.txt"));
    QFile handler(bin + QStringLiteral("/xdg-open"));
    QVERIFY(handler.open(QIODevice::WriteOnly));
    handler.write(QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$1\" >> '%1'\n").arg(m_openedLog).toUtf8());
    handler.close();
    handler.setPermissions(handler.permissions() | QFile::ExeOwner);

    // Website shortcuts go to that handler: the one setting made before the first start. (Tavo's
    // own browser would load the page from the internet.)
    const QString settings =
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/Tavo/defaults.json");
    QVERIFY(QDir().mkpath(QFileInfo(settings).path()));
    QFile defaults(settings);
    QVERIFY(defaults.open(QIODevice::WriteOnly));
    defaults.write(R"({"tavoWebsiteShortcutsInDefaultBrowser": true})");
    defaults.close();

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("PATH"), bin + u':' + env.value(QStringLiteral("PATH")));
    m_tavoRun.start(env);
}

void TestFirstStart::cleanupTestCase()
{
    m_tavoRun.stop();
}

void TestFirstStart::registrationComesFirst()
{
    // The window opens on the registration screen with the username field ready for typing.
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.contains("keyboard tap running"), 15000);
    QTRY_VERIFY_WITH_TIMEOUT(!e2e::visibleWindow(QStringLiteral("^Tavo$")).isEmpty(), 10000);
    QTest::qWait(300);
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("15"), QStringLiteral("robin")});
    xdotool({QStringLiteral("key"), QStringLiteral("Tab")});
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("15"), QStringLiteral("long enough")});
    xdotool({QStringLiteral("key"), QStringLiteral("Tab")});
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("15"), QStringLiteral("long enough")});
    xdotool({QStringLiteral("key"), QStringLiteral("Return")});

    // The new profile holds the seeds: websites, AI engines, portraits and the key to Tavo.
    QTRY_VERIFY_WITH_TIMEOUT(!seededClips().isEmpty(), 15000);
    const QString clips = seededClips();
    for (const char* key : {"/google.web", "/chatgpt.ai", "/einstein.media", "/ez"}) {
        QVERIFY2(clips.contains(QLatin1String(key)), key);
    }
}

void TestFirstStart::aSeededWebsiteOpens()
{
    QPlainTextEdit editor;
    editor.setWindowTitle(QStringLiteral("Target"));
    editor.resize(500, 200);
    editor.show();
    editor.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&editor));
    xdotool(
        {QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("12"), QStringLiteral("go \\google.web ")});
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(m_openedLog), 5000);
    QFile opened(m_openedLog);
    QVERIFY(opened.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(opened.readAll()).trimmed(), QStringLiteral("https://www.google.com/"));
    // The trigger and its space are gone from the window; what came before stays.
    QTRY_COMPARE_WITH_TIMEOUT(editor.toPlainText(), QStringLiteral("go "), 5000);
}

void TestFirstStart::aNewShortcutExpandsAtOnce()
{
    // Made in Tavo's own editor, by keyboard as a person would.
    // A search can fail while another window comes or goes under it (a closing picker): ask again.
    QString window;
    QTRY_VERIFY_WITH_TIMEOUT(!(window = e2e::visibleWindow(QStringLiteral("^Tavo$"))).isEmpty(), 5000);
    xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), window});
    xdotool({QStringLiteral("key"), QStringLiteral("ctrl+n")});
    QTest::qWait(500);
    for (const QString& field :
         {QStringLiteral("\\brb"), QStringLiteral("Be right back"), QStringLiteral("Back in five minutes.")}) {
        xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("12"), field});
        xdotool({QStringLiteral("key"), QStringLiteral("Tab")});
    }
    xdotool({QStringLiteral("key"), QStringLiteral("Return")}); // in the website field: Save
    QTRY_VERIFY_WITH_TIMEOUT(seededClips().contains(QLatin1String("Back in five minutes.")), 5000);

    QPlainTextEdit editor;
    editor.setWindowTitle(QStringLiteral("Target"));
    editor.show();
    editor.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&editor));
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("12"), QStringLiteral("\\brb ")});
    QTRY_COMPARE_WITH_TIMEOUT(editor.toPlainText(), QStringLiteral("Back in five minutes. "), 5000);
}

QTEST_MAIN(TestFirstStart)
#include "tst_first_start_e2e.moc"
