#include "shell/shortcut_list_page.h"
#include "shell/shortcut_table_model.h"
#include "shell/ui/empty_state.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QClipboard>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSemaphore>
#include <QTableView>
#include <QtTest>

using namespace tavo;

namespace {

Clip clip(const QString& key, const QString& name, const QString& text,
          const QString& group = QStringLiteral("Personal"))
{
    Clip c;
    c.key = key;
    c.name = name;
    c.text = text;
    c.group = group;
    return c;
}

QStringList list(std::initializer_list<const char*> items)
{
    QStringList result;
    for (const char* item : items) {
        result << QString::fromUtf8(item);
    }
    return result;
}

// A small library whose store order differs from every sorted order.
QList<Clip> library()
{
    Clip site =
        clip(QStringLiteral("/sig.web"), QStringLiteral("Website"), QString(), QStringLiteral("Websites & URLs"));
    site.webURL = QStringLiteral("https://example.org");
    Clip photo = clip(QStringLiteral("/photo"), QStringLiteral("Team photo"), QString(), QStringLiteral("Work"));
    photo.files = {QStringLiteral("/tmp/team.png")};
    photo.groups = QStringList{QStringLiteral("Personal"), QStringLiteral("Family")};
    return {
        clip(QStringLiteral("/ty"), QStringLiteral("Warm thank you"), QStringLiteral("Thank you!")),
        clip(QStringLiteral("/a"), QStringLiteral("address"), QStringLiteral("1 Main Street, École Nord"),
             QStringLiteral("Work")),
        site,
        clip(QStringLiteral("/c"), QStringLiteral("Closing"), QStringLiteral("Kind regards"), QStringLiteral("Family")),
        photo};
}

} // namespace

class TestShortcutList : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void search_data();
    void search();
    void staleResultNeverShown();
    void sortingKeptAcrossRefresh_data();
    void sortingKeptAcrossRefresh();
    void emptyStates_data();
    void emptyStates();
    void rowsAndTheirActions();

private:
    QStringList shownKeys() const;
    void type(const QString& query);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
    std::unique_ptr<ShortcutListPage> m_page;
    QTableView* m_view = nullptr;
    QLineEdit* m_search = nullptr;
};

void TestShortcutList::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(QStringLiteral("defaults.json")));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(QStringLiteral("Tavo")));
    m_db->setCollections({QStringLiteral("Personal"), QStringLiteral("Work"), QStringLiteral("Family"),
                          QStringLiteral("Websites & URLs"), QStringLiteral("Empty")});
    m_db->setClips(library());
    m_page = std::make_unique<ShortcutListPage>(*m_db);
    m_page->resize(900, 600);
    m_page->show();
    m_page->activateWindow(); // the table's keys work only where the focus can be
    QVERIFY(QTest::qWaitForWindowActive(m_page.get()));
    m_view = m_page->findChild<QTableView*>(QStringLiteral("shortcuts"));
    m_search = m_page->findChild<QLineEdit*>(QStringLiteral("searchShortcuts"));
    QVERIFY(m_view && m_search);
    QTRY_COMPARE(shownKeys().size(), 5);
}

void TestShortcutList::cleanup()
{
    ShortcutListPage::setWorkerHookForTesting({});
    m_page.reset();
    m_db.reset();
}

QStringList TestShortcutList::shownKeys() const
{
    QStringList keys;
    for (int row = 0; row < m_view->model()->rowCount(); ++row) {
        keys << m_view->model()->index(row, ShortcutTableModel::KeyColumn).data().toString();
    }
    return keys;
}

void TestShortcutList::type(const QString& query)
{
    if (query == m_search->text()) {
        return; // nothing to type, nothing runs
    }
    QSignalSpy filtered(m_page.get(), &ShortcutListPage::filtered);
    m_search->selectAll();
    const bool ascii = std::all_of(query.cbegin(), query.cend(), [](QChar c) { return c.unicode() < 0x80; });
    if (query.isEmpty()) {
        QTest::keyClick(m_search, Qt::Key_Backspace);
    } else if (ascii) {
        QTest::keyClicks(m_search, query);
    } else {
        m_search->insert(query); // QTest types ASCII only; an input method inserts the rest like this
    }
    QVERIFY(filtered.wait());
}

void TestShortcutList::search_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<int>("sortColumn");
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QString>("count");
    const int unsorted = -1;
    QTest::newRow("plain text finds a name") << "thank" << unsorted << list({"\\ty"}) << "1 of 5 shortcuts";
    QTest::newRow("plain text finds the text, any case")
        << "REGARDS" << unsorted << list({"\\c"}) << "1 of 5 shortcuts";
    QTest::newRow("case folds beyond ASCII") << "éCOLE" << unsorted << list({"\\a"}) << "1 of 5 shortcuts";
    QTest::newRow("a batch request lists in its order")
        << "\\c&ty&a" << unsorted << list({"\\c", "\\ty", "\\a"}) << "3 of 5 shortcuts";
    QTest::newRow("a batch request keeps its order over a sort")
        << "\\c&a" << int(ShortcutTableModel::KeyColumn) << list({"\\c", "\\a"}) << "2 of 5 shortcuts";
    QTest::newRow("a styled suffix searches by its base") << "ty-b" << unsorted << list({"\\ty"}) << "1 of 5 shortcuts";
    QTest::newRow("a sort orders the matches")
        << "o" << int(ShortcutTableModel::KeyColumn) << list({"\\a", "\\c", "\\photo", "\\ty"}) << "4 of 5 shortcuts";
    QTest::newRow("no query lists the section")
        << "" << unsorted << list({"\\ty", "\\a", "\\sig.web", "\\c", "\\photo"}) << "5 shortcuts";
    QTest::newRow("no match") << "zzz" << unsorted << list({}) << "0 of 5 shortcuts";
}

void TestShortcutList::search()
{
    QFETCH(QString, query);
    QFETCH(int, sortColumn);
    QFETCH(QStringList, keys);
    QFETCH(QString, count);
    if (sortColumn >= 0) {
        m_page->sortBy(sortColumn, Qt::AscendingOrder);
        QTRY_VERIFY(!m_page->isFiltering());
    }
    type(query);
    QCOMPARE(shownKeys(), keys);
    QCOMPARE(m_page->findChild<QLabel*>(QStringLiteral("shortcutCount"))->text(), count);
}

void TestShortcutList::staleResultNeverShown()
{
    // The run for "thank" is held on the worker until "regards" has been asked for.
    QSemaphore entered;
    QSemaphore gate;
    ShortcutListPage::setWorkerHookForTesting([&](const QString& query) {
        if (query == QLatin1String("thank")) {
            entered.release();
            gate.acquire();
        }
    });
    QList<QStringList> shown;
    connect(m_page.get(), &ShortcutListPage::filtered, this, [&] { shown << shownKeys(); });

    QTest::keyClicks(m_search, QStringLiteral("thank"));
    QTRY_COMPARE(entered.available(), 1);
    m_search->selectAll();
    QTest::keyClicks(m_search, QStringLiteral("regards"));
    QTest::qWait(30); // time enough for the newer run, were it not held back
    QVERIFY(shown.isEmpty());
    gate.release();
    QTRY_COMPARE(shown.size(), 1);
    QTest::qWait(50); // nothing of the overtaken run arrives late
    QCOMPARE(shown, QList<QStringList>{{QStringLiteral("\\c")}});
}

void TestShortcutList::sortingKeptAcrossRefresh_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("clicks"); // on the header: ascending, then descending
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("after"); // with "\m", "Memo", in "Notes" added
    using M = ShortcutTableModel;
    QTest::newRow("name, descending") << int(M::NameColumn) << 2 << list({"\\sig.web", "\\ty", "\\photo", "\\c", "\\a"})
                                      << list({"\\sig.web", "\\ty", "\\photo", "\\m", "\\c", "\\a"});
    QTest::newRow("key, ascending") << int(M::KeyColumn) << 1 << list({"\\a", "\\c", "\\photo", "\\sig.web", "\\ty"})
                                    << list({"\\a", "\\c", "\\m", "\\photo", "\\sig.web", "\\ty"});
    QTest::newRow("collection, then name")
        << int(M::CollectionColumn) << 1 << list({"\\c", "\\ty", "\\sig.web", "\\a", "\\photo"})
        << list({"\\c", "\\m", "\\ty", "\\sig.web", "\\a", "\\photo"});
    QTest::newRow("not by what it expands to")
        << int(M::TextColumn) << 1 << list({"\\ty", "\\a", "\\sig.web", "\\c", "\\photo"})
        << list({"\\ty", "\\a", "\\sig.web", "\\c", "\\photo", "\\m"});
}

void TestShortcutList::sortingKeptAcrossRefresh()
{
    QFETCH(int, column);
    QFETCH(int, clicks);
    QFETCH(QStringList, before);
    QFETCH(QStringList, after);
    QHeaderView* header = m_view->horizontalHeader();
    for (int i = 0; i < clicks; ++i) {
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          QPoint(header->sectionViewportPosition(column) + 4, header->height() / 2));
        QTRY_VERIFY(!m_page->isFiltering());
    }
    QCOMPARE(shownKeys(), before);

    QSignalSpy filtered(m_page.get(), &ShortcutListPage::filtered);
    QList<Clip> clips = m_db->clips();
    clips << clip(QStringLiteral("/m"), QStringLiteral("Memo"), QStringLiteral("Note to self"),
                  QStringLiteral("Notes"));
    m_db->setClips(clips);
    QVERIFY(m_db->save());
    QVERIFY(filtered.wait());
    QCOMPARE(shownKeys(), after);
}

void TestShortcutList::emptyStates_data()
{
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("collection");
    QTest::addColumn<QString>("query");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("newGroup"); // asked for by "New shortcut"
    QTest::newRow("no match offers to clear the search") << "My shortcuts" << allCollectionsName << "zzz"
                                                         << "No shortcuts match"
                                                         << "Clear search" << QString();
    QTest::newRow("an empty ideas section") << "Shortcut ideas" << allCollectionsName << ""
                                            << "No shortcut ideas yet"
                                            << "New shortcut"
                                            << "Ideas";
    QTest::newRow("an empty collection") << "My shortcuts"
                                         << "Empty"
                                         << ""
                                         << "No shortcuts in Empty"
                                         << "New shortcut"
                                         << "Empty";
}

void TestShortcutList::emptyStates()
{
    QFETCH(QString, section);
    QFETCH(QString, collection);
    QFETCH(QString, query);
    QFETCH(QString, title);
    QFETCH(QString, action);
    QFETCH(QString, newGroup);
    const auto shownEmptyState = [this]() -> EmptyState* {
        for (auto* state : m_page->findChildren<EmptyState*>()) {
            if (state->isVisible()) {
                return state;
            }
        }
        return nullptr;
    };
    QVERIFY(!shownEmptyState());
    m_page->setSection(section);
    m_page->findChild<QComboBox*>(QStringLiteral("collectionFilter"))->setCurrentText(collection);
    if (!query.isEmpty()) {
        QTest::keyClicks(m_search, query);
    }
    QTRY_VERIFY(shownEmptyState());
    EmptyState* empty = shownEmptyState();
    QVERIFY(!m_view->isVisible());
    QCOMPARE(empty->title(), title);
    QCOMPARE(empty->actionButton()->text(), action);
    if (!query.isEmpty()) {
        QVERIFY(empty->sentence().contains(query));
    }

    QSignalSpy asked(m_page.get(), &ShortcutListPage::newShortcutRequested);
    QTest::mouseClick(empty->actionButton(), Qt::LeftButton);
    if (query.isEmpty()) {
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.first().first().toString(), newGroup);
    } else {
        // Clearing the search brings the rows back.
        QVERIFY(asked.isEmpty());
        QVERIFY(m_search->text().isEmpty());
        QTRY_COMPARE(shownKeys().size(), 5);
        QVERIFY(m_view->isVisible());
    }
}

void TestShortcutList::rowsAndTheirActions()
{
    QAbstractItemModel* model = m_view->model();
    using M = ShortcutTableModel;
    // One line per row: collections folded into the first and a count, icons for media and sites.
    QCOMPARE(model->index(4, M::CollectionColumn).data().toString(), QStringLiteral("Work +2"));
    QCOMPARE(model->index(4, M::CollectionColumn).data(Qt::ToolTipRole).toString(),
             QStringLiteral("Work, Personal, Family"));
    QCOMPARE(model->index(4, M::TextColumn).data(M::IconNameRole).toString(), QStringLiteral("image-x-generic"));
    QCOMPARE(model->index(2, M::TextColumn).data(M::IconNameRole).toString(), QStringLiteral("applications-internet"));
    QCOMPARE(model->index(2, M::TextColumn).data().toString(), QStringLiteral("https://example.org"));
    QVERIFY(model->index(0, M::TextColumn).data(Qt::ToolTipRole).toString().contains(QStringLiteral("Thank you!")));
    QVERIFY(model->index(0, M::TextColumn).data(M::IconNameRole).toString().isEmpty());
    for (int column = 0; column < M::ColumnCount; ++column) {
        QCOMPARE(model->index(0, column).data(Qt::AccessibleTextRole).toString(),
                 QStringLiteral("\\ty, Warm thank you, Thank you!"));
    }
    QCOMPARE(m_view->accessibleName(), QStringLiteral("Shortcuts"));
    QCOMPARE(m_search->accessibleName(), QStringLiteral("Search shortcuts"));

    auto* menu = m_page->findChild<QMenu*>(QStringLiteral("shortcutMenu"));
    QStringList texts;
    for (QAction* action : menu->actions()) {
        if (!action->isSeparator()) {
            texts << action->text();
        }
    }
    QCOMPARE(texts, (list({"Edit", "Copy text", "Move…", "Share…", "Delete"})));

    // Return and a double click open the editor; Copy text fills the clipboard with a notice.
    QSignalSpy edit(m_page.get(), &ShortcutListPage::editRequested);
    QSignalSpy notice(m_page.get(), &ShortcutListPage::noticeRequested);
    m_view->setFocus();
    m_view->selectRow(0);
    QTest::keyClick(m_view, Qt::Key_Return);
    // A double click is a click and a double-click event, as a real mouse sends it.
    const QPoint onClosing = m_view->visualRect(model->index(3, 1)).center();
    QTest::mouseClick(m_view->viewport(), Qt::LeftButton, {}, onClosing);
    QTest::mouseDClick(m_view->viewport(), Qt::LeftButton, {}, onClosing);
    QCOMPARE(edit.size(), 2);
    QCOMPARE(edit.at(0).first().value<Clip>().key, QStringLiteral("/ty"));
    QCOMPARE(edit.at(1).first().value<Clip>().key, QStringLiteral("/c"));
    m_view->selectRow(0);
    menu->actions().at(1)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("Thank you!"));
    QCOMPARE(notice.last().first().toString(), QStringLiteral("Copied the text of \\ty."));
    // Share takes the selected rows, in the list's order.
    QSignalSpy share(m_page.get(), &ShortcutListPage::shareRequested);
    m_view->selectionModel()->select(model->index(3, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    menu->actions().at(3)->trigger();
    QCOMPARE(share.size(), 1);
    QStringList shared;
    for (const Clip& clip : share.first().first().value<QList<Clip>>()) {
        shared << clip.key;
    }
    QCOMPARE(shared, (list({"/ty", "/c"})));

    // Delete in the search field edits the query, never the selection.
    m_search->setFocus();
    m_search->setText(QStringLiteral("x"));
    m_search->setCursorPosition(0);
    QTest::keyClick(m_search, Qt::Key_Delete);
    QVERIFY(m_search->text().isEmpty());
    QCOMPARE(m_db->clips().size(), 5);
}

QTEST_MAIN(TestShortcutList)
#include "tst_shortcut_list.moc"
