#include "store/defaults.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

class TestDefaults : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void typesSurviveARestart();
    void twoWritersKeepEachOthersKeys();
    void unreadableFileKeptAside();
    void watcherSeesOtherWriters();

private:
    QString path() const { return m_dir->filePath(u"Tavo/defaults.json"_s); }
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
        defaults.setBoolean(u"tavoLocalSignedIn"_s, true);
        defaults.setNumber(u"tavoPickerWidth"_s, 1);
        defaults.setString(u"tavoBuilderPrefix.My app"_s, u"true"_s);
        defaults.setStringList(u"tavoShortcutCollections.abc"_s, {u"Work"_s});
        defaults.setStringList(u"tavoHiddenCollections"_s, {}); // empty is not absent
        defaults.setString(u"tavoLocalUsername"_s, u"sam"_s);
        defaults.remove(u"tavoLocalUsername"_s);
    }
    Defaults defaults(path());
    QCOMPARE(defaults.boolean(u"tavoLocalSignedIn"_s), std::optional<bool>(true));
    // A number is not a Boolean, and a text that reads "true" is not one either.
    QCOMPARE(defaults.boolean(u"tavoPickerWidth"_s), std::nullopt);
    QCOMPARE(defaults.number(u"tavoPickerWidth"_s), std::optional<double>(1));
    QCOMPARE(defaults.boolean(u"tavoBuilderPrefix.My app"_s), std::nullopt);
    QCOMPARE(defaults.string(u"tavoBuilderPrefix.My app"_s), std::optional(u"true"_s));
    QCOMPARE(defaults.stringList(u"tavoShortcutCollections.abc"_s), std::optional(QStringList{u"Work"_s}));
    QVERIFY(defaults.contains(u"tavoHiddenCollections"_s));
    QCOMPARE(defaults.stringList(u"tavoHiddenCollections"_s), std::optional(QStringList()));
    QVERIFY(!defaults.contains(u"tavoLocalUsername"_s));
    QVERIFY(!defaults.lostUnreadableFile());
}

void TestDefaults::twoWritersKeepEachOthersKeys()
{
    Defaults app(path());
    Defaults tool(path());
    app.setString(u"tavoLocalUsername"_s, u"sam"_s);
    tool.setBoolean(u"tavoLocalSignedIn"_s, true); // tool never re-read the file
    app.setBoolean(u"tavoLegacyDataClaimed"_s, true);

    Defaults fresh(path());
    QCOMPARE(fresh.string(u"tavoLocalUsername"_s), std::optional(u"sam"_s));
    QVERIFY(fresh.flag(u"tavoLocalSignedIn"_s));
    QVERIFY(fresh.flag(u"tavoLegacyDataClaimed"_s));
}

void TestDefaults::unreadableFileKeptAside()
{
    const QByteArray broken("{\"tavoLegacyDataClaimed\": tr");
    QDir().mkpath(QFileInfo(path()).absolutePath());
    QFile file(path());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(broken);
    file.close();

    Defaults defaults(path());
    QVERIFY(defaults.lostUnreadableFile());
    QVERIFY(!defaults.contains(u"tavoLegacyDataClaimed"_s));
    defaults.setString(u"tavoLocalUsername"_s, u"sam"_s);

    const QDir dir = QFileInfo(path()).absoluteDir();
    const QStringList aside = dir.entryList({u"defaults.json.unreadable-*"_s}, QDir::Files);
    QCOMPARE(aside.size(), 1);
    QFile kept(dir.filePath(aside.first()));
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), broken);
    QCOMPARE(Defaults(path()).string(u"tavoLocalUsername"_s), std::optional(u"sam"_s));
}

void TestDefaults::watcherSeesOtherWriters()
{
    Defaults app(path());
    app.setString(u"tavoLocalUsername"_s, u"sam"_s);
    app.watchForChanges();
    QSignalSpy changed(&app, &Defaults::valuesChanged);

    Defaults tool(path());
    tool.setString(u"tavoLocalUsername"_s, u"alex"_s);
    QTRY_COMPARE(app.string(u"tavoLocalUsername"_s), std::optional(u"alex"_s));
    QVERIFY(changed.count() >= 1);
}

QTEST_GUILESS_MAIN(TestDefaults)
#include "tst_defaults.moc"
