#include "picker/picker_panel.h"
#include "picker/picker_row_delegate.h"
#include "picker/picker_thumbnails.h"
#include "store/collections.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QAccessible>
#include <QComboBox>
#include <QListWidget>
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

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
};

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

QTEST_MAIN(TestPickerPanel)
#include "tst_picker_panel.moc"
