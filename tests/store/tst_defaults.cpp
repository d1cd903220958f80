#include "store/defaults.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;

class TestDefaults : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void typesSurviveARestart();
    void absentAndEmptyDiffer();
    void twoWritersKeepEachOthersKeys();
    void unreadableFileKeptAside();
    void watcherSeesOtherWriters();
    void defaultPathFollowsXdgConfig();

private:
    QString path() const { return m_dir->filePath(QStringLiteral("Tavo/defaults.json")); }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestDefaults::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestDefaults::typesSurviveARestart()
{
    {
        Defaults defaults(path());
        defaults.setBoolean(QStringLiteral("tavoLocalSignedIn"), true);
        defaults.setNumber(QStringLiteral("tavoPickerWidth"), 1);
        defaults.setString(QStringLiteral("tavoBuilderPrefix.My app"), QStringLiteral("true"));
        defaults.setStringList(QStringLiteral("tavoShortcutCollections.abc"), {QStringLiteral("Work")});
    }
    Defaults defaults(path());
    QCOMPARE(defaults.boolean(QStringLiteral("tavoLocalSignedIn")), std::optional<bool>(true));
    // A number is not a Boolean, and a text that reads "true" is not one either.
    QCOMPARE(defaults.boolean(QStringLiteral("tavoPickerWidth")), std::nullopt);
    QCOMPARE(defaults.number(QStringLiteral("tavoPickerWidth")), std::optional<double>(1));
    QCOMPARE(defaults.boolean(QStringLiteral("tavoBuilderPrefix.My app")), std::nullopt);
    QCOMPARE(defaults.string(QStringLiteral("tavoBuilderPrefix.My app")),
             std::optional<QString>(QStringLiteral("true")));
    QCOMPARE(defaults.stringList(QStringLiteral("tavoShortcutCollections.abc")),
             std::optional<QStringList>(QStringList{QStringLiteral("Work")}));
    QVERIFY(!defaults.lostUnreadableFile());
}

void TestDefaults::absentAndEmptyDiffer()
{
    Defaults defaults(path());
    QVERIFY(!defaults.contains(QStringLiteral("tavoHiddenCollections")));
    QCOMPARE(defaults.stringList(QStringLiteral("tavoHiddenCollections")), std::nullopt);
    defaults.setStringList(QStringLiteral("tavoHiddenCollections"), {});
    QVERIFY(defaults.contains(QStringLiteral("tavoHiddenCollections")));
    QCOMPARE(defaults.stringList(QStringLiteral("tavoHiddenCollections")), std::optional<QStringList>(QStringList()));
    defaults.remove(QStringLiteral("tavoHiddenCollections"));
    QVERIFY(!Defaults(path()).contains(QStringLiteral("tavoHiddenCollections")));
}

void TestDefaults::twoWritersKeepEachOthersKeys()
{
    Defaults app(path());
    Defaults tool(path());
    app.setString(QStringLiteral("tavoLocalUsername"), QStringLiteral("sam"));
    tool.setBoolean(QStringLiteral("tavoLocalSignedIn"), true); // tool never re-read the file
    app.setBoolean(QStringLiteral("tavoLegacyDataClaimed"), true);

    Defaults fresh(path());
    QCOMPARE(fresh.string(QStringLiteral("tavoLocalUsername")), std::optional<QString>(QStringLiteral("sam")));
    QVERIFY(fresh.flag(QStringLiteral("tavoLocalSignedIn")));
    QVERIFY(fresh.flag(QStringLiteral("tavoLegacyDataClaimed")));
}

void TestDefaults::unreadableFileKeptAside()
{
    QDir().mkpath(QFileInfo(path()).absolutePath());
    QFile file(path());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("{\"tavoLegacyDataClaimed\": tr");
    file.close();

    Defaults defaults(path());
    QVERIFY(defaults.lostUnreadableFile());
    QVERIFY(!defaults.contains(QStringLiteral("tavoLegacyDataClaimed")));
    defaults.setString(QStringLiteral("tavoLocalUsername"), QStringLiteral("sam"));

    const QStringList aside =
        QDir(QFileInfo(path()).absolutePath()).entryList({QStringLiteral("defaults.json.unreadable-*")}, QDir::Files);
    QCOMPARE(aside.size(), 1);
    QFile kept(QFileInfo(path()).absolutePath() + u'/' + aside.first());
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), QByteArray("{\"tavoLegacyDataClaimed\": tr"));
    QCOMPARE(Defaults(path()).string(QStringLiteral("tavoLocalUsername")),
             std::optional<QString>(QStringLiteral("sam")));
}

void TestDefaults::watcherSeesOtherWriters()
{
    Defaults app(path());
    app.setString(QStringLiteral("tavoLocalUsername"), QStringLiteral("sam"));
    app.watchForChanges();
    QSignalSpy changed(&app, &Defaults::valuesChanged);

    Defaults tool(path());
    tool.setString(QStringLiteral("tavoLocalUsername"), QStringLiteral("alex"));
    QTRY_COMPARE(app.string(QStringLiteral("tavoLocalUsername")), std::optional<QString>(QStringLiteral("alex")));
    QVERIFY(changed.count() >= 1);
}

void TestDefaults::defaultPathFollowsXdgConfig()
{
    QCOMPARE(Defaults::defaultFilePath(),
             qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Tavo/defaults.json"));
}

QTEST_GUILESS_MAIN(TestDefaults)
#include "tst_defaults.moc"
