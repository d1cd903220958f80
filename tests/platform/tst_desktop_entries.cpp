#include "platform/desktop_entries.h"

#include <QDir>
#include <QFile>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace

// Installed applications found through the XDG data folders, in the test's own home.
class TestDesktopEntries : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void entries_data();
    void entries();
    void folders();
};

void TestDesktopEntries::initTestCase()
{
    const QString system = qEnvironmentVariable("HOME") + u"/system"_s;
    qputenv("XDG_DATA_DIRS", QFile::encodeName(system + u":relative/share:"_s + system));
    const QString user = qEnvironmentVariable("XDG_DATA_HOME") + u"/applications/"_s;
    const QString other = system + u"/applications/"_s;
    QVERIFY(writeBytes(user + u"editor.desktop"_s,
                       "# comment\n[Desktop Entry]\nName[de]=Bearbeiter\nName = Editor\nType=Application\n"
                       "[Desktop Action New]\nName=New window\n"));
    QVERIFY(writeBytes(user + u"kde/viewer.desktop"_s, "[Desktop Entry]\nType=Application\nName=Viewer\n"));
    QVERIFY(writeBytes(user + u"tray.desktop"_s, "[Desktop Entry]\nType=Application\nName=Tray\nNoDisplay=true\n"));
    QVERIFY(writeBytes(user + u"gone.desktop"_s, "[Desktop Entry]\nType=Application\nName=Gone\nHidden=true\n"));
    QVERIFY(writeBytes(other + u"gone.desktop"_s, "[Desktop Entry]\nType=Application\nName=System gone\n"));
    QVERIFY(writeBytes(other + u"editor.desktop"_s, "[Desktop Entry]\nType=Application\nName=System editor\n"));
    QVERIFY(writeBytes(other + u"site.desktop"_s, "[Desktop Entry]\nType=Link\nName=Site\n"));
    QVERIFY(writeBytes(other + u"broken.desktop"_s, "Name=No group\nType=Application\n"));
    QVERIFY(writeBytes(other + u"notes.txt"_s, "[Desktop Entry]\nType=Application\nName=Not an entry\n"));
    QVERIFY(writeBytes(other + u"calc.desktop"_s, "[Desktop Entry]\nType=Application\nName=Calculator\n"));
}

void TestDesktopEntries::entries_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("name"); // empty: not installed
    QTest::addColumn<bool>("noDisplay");
    QTest::addColumn<bool>("userFolder");

    QTest::newRow("the user's entry wins over the system's") << u"editor.desktop"_s << u"Editor"_s << false << true;
    QTest::newRow("a subfolder becomes part of the id") << u"kde-viewer.desktop"_s << u"Viewer"_s << false << true;
    QTest::newRow("NoDisplay is kept and told") << u"tray.desktop"_s << u"Tray"_s << true << true;
    QTest::newRow("Hidden removes the id everywhere") << u"gone.desktop"_s << QString() << false << false;
    QTest::newRow("a link is no application") << u"site.desktop"_s << QString() << false << false;
    QTest::newRow("no [Desktop Entry] group") << u"broken.desktop"_s << QString() << false << false;
    QTest::newRow("not a .desktop file") << u"notes.txt"_s << QString() << false << false;
    QTest::newRow("a system entry") << u"calc.desktop"_s << u"Calculator"_s << false << false;
}

void TestDesktopEntries::entries()
{
    QFETCH(QString, id);
    QFETCH(QString, name);
    QFETCH(bool, noDisplay);
    QFETCH(bool, userFolder);

    const QList<DesktopEntry> entries = installedDesktopEntries();
    QSet<QString> ids;
    for (const DesktopEntry& entry : entries) {
        QVERIFY2(!ids.contains(entry.id), qPrintable(entry.id));
        ids.insert(entry.id);
    }
    const auto found =
        std::find_if(entries.cbegin(), entries.cend(), [&](const DesktopEntry& entry) { return entry.id == id; });
    if (name.isEmpty()) {
        QVERIFY(found == entries.cend());
        return;
    }
    QVERIFY(found != entries.cend());
    QCOMPARE(found->name, name);
    QCOMPARE(found->noDisplay, noDisplay);
    QVERIFY(QFileInfo(found->path).isAbsolute() && QFileInfo(found->path).isFile());
    QCOMPARE(found->path.startsWith(qEnvironmentVariable("XDG_DATA_HOME")), userFolder);
}

void TestDesktopEntries::folders()
{
    // A relative folder is ignored, and a repeated one counts once.
    const QString home = qEnvironmentVariable("HOME");
    QCOMPARE(desktopEntryFolders(), (QStringList{qEnvironmentVariable("XDG_DATA_HOME") + u"/applications"_s,
                                                 home + u"/system/applications"_s}));
}

QTEST_GUILESS_MAIN(TestDesktopEntries)
#include "tst_desktop_entries.moc"
