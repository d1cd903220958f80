#include "store/defaults.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/inotify.h>
#include <unistd.h>

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
    void bytesSurviveARestart_data();
    void bytesSurviveARestart();
    void otherValuesAreNotBytes_data();
    void otherValuesAreNotBytes();
    void batchWritesOnce_data();
    void batchWritesOnce();
    void batchKeepsOtherWritersKeys();

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

namespace {

// Counts writes of the settings file. The first write links the file in under its name; every
// later one renames a uniquely named temporary over it. Identical events in a row are merged by
// the kernel, so renames are counted by their unique source names.
class FileWriteCounter
{
public:
    explicit FileWriteCounter(const QString& path)
        : m_name(QFileInfo(path).fileName().toLocal8Bit())
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        m_fd = inotify_init1(IN_NONBLOCK);
        inotify_add_watch(m_fd, QFile::encodeName(QFileInfo(path).absolutePath()).constData(),
                          IN_CREATE | IN_MOVED_FROM);
    }
    ~FileWriteCounter() { ::close(m_fd); }

    int count()
    {
        alignas(inotify_event) char buffer[4096];
        ssize_t length = 0;
        while ((length = ::read(m_fd, buffer, sizeof buffer)) > 0) {
            for (ssize_t at = 0; at < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                const QByteArray name = event->len > 0 ? QByteArray(event->name) : QByteArray();
                const bool created = (event->mask & IN_CREATE) && name == m_name;
                const bool replaced = (event->mask & IN_MOVED_FROM) && name.startsWith(QByteArray(m_name + '.'));
                if (created || replaced) {
                    ++m_count;
                }
                at += ssize_t(sizeof(inotify_event)) + event->len;
            }
        }
        return m_count;
    }

private:
    QByteArray m_name;
    int m_fd = -1;
    int m_count = 0;
};

} // namespace

void TestDefaults::bytesSurviveARestart_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("empty bytes are present, not absent") << QByteArray();
    QTest::newRow("RTF text") << QByteArray("{\\rtf1\\ansi {\\b Hi}\\par}");
    QTest::newRow("every byte value") << [] {
        QByteArray all;
        for (int b = 0; b < 256; ++b) {
            all.append(char(b));
        }
        return all;
    }();
}

void TestDefaults::bytesSurviveARestart()
{
    QFETCH(QByteArray, bytes);
    Defaults(path()).setBytes(u"tavoBuilderTemplateRTF.Bill"_s, bytes);
    Defaults fresh(path());
    QVERIFY(fresh.contains(u"tavoBuilderTemplateRTF.Bill"_s));
    QCOMPARE(fresh.bytes(u"tavoBuilderTemplateRTF.Bill"_s), std::optional(bytes));
    QCOMPARE(fresh.string(u"tavoBuilderTemplateRTF.Bill"_s), std::nullopt);
}

void TestDefaults::otherValuesAreNotBytes_data()
{
    QTest::addColumn<QJsonValue>("stored");
    QTest::newRow("a text that is valid base64") << QJsonValue(u"SGVsbG8="_s);
    QTest::newRow("an object with another key too")
        << QJsonValue(QJsonObject{{u"$bytes"_s, u"SGVsbG8="_s}, {u"x"_s, 1}});
    QTest::newRow("an object whose text is not base64") << QJsonValue(QJsonObject{{u"$bytes"_s, u"*not*"_s}});
    QTest::newRow("an object whose value is a number") << QJsonValue(QJsonObject{{u"$bytes"_s, 3}});
    QTest::newRow("a list") << QJsonValue(QJsonArray{u"SGVsbG8="_s});
}

void TestDefaults::otherValuesAreNotBytes()
{
    QFETCH(QJsonValue, stored);
    Defaults(path()).setValue(u"tavoBuilderTemplateRTF.Bill"_s, stored);
    Defaults fresh(path());
    QVERIFY(fresh.contains(u"tavoBuilderTemplateRTF.Bill"_s));
    QCOMPARE(fresh.bytes(u"tavoBuilderTemplateRTF.Bill"_s), std::nullopt);
}

void TestDefaults::batchWritesOnce_data()
{
    QTest::addColumn<bool>("batch");
    QTest::addColumn<int>("writes");
    // The first row shows the counter sees every write, so the second's single write is real.
    QTest::newRow("sixteen keys one by one write sixteen times") << false << 16;
    QTest::newRow("sixteen keys as a batch write once and signal once") << true << 1;
}

void TestDefaults::batchWritesOnce()
{
    QFETCH(bool, batch);
    QFETCH(int, writes);
    QList<QPair<QString, QJsonValue>> values;
    for (int i = 0; i < 15; ++i) {
        values.append({u"tavoBuilderDefaultKey%1.Bill"_s.arg(i), QJsonValue(i)});
    }
    values.append({u"tavoBuilderDefaultRTF.Bill"_s, Defaults::bytesValue("{\\rtf1 x}")});

    Defaults defaults(path());
    FileWriteCounter counter(path());
    QSignalSpy changed(&defaults, &Defaults::valuesChanged);
    if (batch) {
        defaults.setValues(values);
    } else {
        for (const auto& [key, value] : values) {
            defaults.setValue(key, value);
        }
    }
    QCOMPARE(counter.count(), writes);
    QCOMPARE(changed.count(), writes);

    Defaults fresh(path());
    QCOMPARE(fresh.keys().size(), 16);
    QCOMPARE(fresh.number(u"tavoBuilderDefaultKey7.Bill"_s), std::optional<double>(7));
    QCOMPARE(fresh.bytes(u"tavoBuilderDefaultRTF.Bill"_s), std::optional(QByteArray("{\\rtf1 x}")));
}

void TestDefaults::batchKeepsOtherWritersKeys()
{
    Defaults app(path());
    app.setString(u"tavoBuilderPrompt.Bill"_s, u"old"_s);
    app.setString(u"tavoBuilderDetails.Bill"_s, u"gone soon"_s);
    Defaults tool(path());
    tool.setBoolean(u"tavoLocalSignedIn"_s, true); // app never re-read the file

    app.setValues({{u"tavoBuilderPrompt.Bill"_s, u"new"_s},
                   {u"tavoBuilderDetails.Bill"_s, QJsonValue(QJsonValue::Undefined)},
                   {u"tavoBuilderDefaultBold.Bill"_s, true}});
    Defaults fresh(path());
    QVERIFY(fresh.flag(u"tavoLocalSignedIn"_s));
    QCOMPARE(fresh.string(u"tavoBuilderPrompt.Bill"_s), std::optional(u"new"_s));
    QVERIFY(!fresh.contains(u"tavoBuilderDetails.Bill"_s));
    QVERIFY(fresh.flag(u"tavoBuilderDefaultBold.Bill"_s));
}

QTEST_GUILESS_MAIN(TestDefaults)
#include "tst_defaults.moc"
