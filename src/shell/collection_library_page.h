#pragma once

#include "language/shortcut_record.h"
#include "store/collection_rules.h"

#include <QFutureWatcher>
#include <QHash>
#include <QTimer>
#include <QWidget>

#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QStackedWidget;
class QTableView;
class QVBoxLayout;

namespace tavo {

class Card;
class CollectionCategorySheet;
class CollectionDefinitionSheet;
class CollectionManagerSheet;
class CollectionRecordSheet;
class CollectionRenameSheet;
class DB;
class EmptyState;
class RecordTableModel;
class ShortcutListPage;

// The "Collections" section: the collection names on the left; on the right the chosen
// collection's shortcuts (the shortcut list, narrowed to it) or its records; below, the two
// duplicate panels. Records, counts and duplicates load on a worker from a copy of the store;
// a load that a newer one overtook is dropped.
class CollectionLibraryPage : public QWidget
{
    Q_OBJECT

public:
    enum class Mode
    {
        Shortcuts,
        Records
    };

    explicit CollectionLibraryPage(DB& db, QWidget* parent = nullptr);
    ~CollectionLibraryPage() override;

    // "All collections" or a collection's name.
    QString selectedCollection() const { return m_selected; }
    void selectCollection(const QString& name);
    QStringList shownCollectionNames() const;
    Mode mode() const { return m_mode; }
    void setMode(Mode mode);

    // Loads the selected collection's records, the counts and, after a change of the library,
    // the duplicates again.
    void refresh();
    quint64 collectionLoadGeneration() const { return m_generation; }
    bool isLoading() const;
    // What the content area says while loading, empty once it shows a result.
    QString loadingText() const;
    // Forgets everything shown: nothing of a signed-out account stays.
    void clear();

    ShortcutListPage* shortcutList() const { return m_shortcuts; }
    QList<CollectionRecord> shownRecords() const;
    const QList<DuplicateShortcutGroup>& duplicateShortcuts() const { return m_duplicateShortcuts; }
    const QList<DuplicateCollectionGroup>& duplicateCollections() const { return m_duplicateCollections; }
    CollectionItemCounts countsOf(const QString& collection) const;

    // The sheets, opened window-modal; each is deleted when closed. Returned so that a caller
    // (or a test) can reach the sheet it opened.
    CollectionDefinitionSheet* openNewCollection();
    CollectionDefinitionSheet* openEditCollection();
    CollectionRenameSheet* openRename();
    CollectionCategorySheet* openCategories();
    CollectionManagerSheet* openManager();
    CollectionRecordSheet* openNewRecord();
    CollectionRecordSheet* openRecord(const QString& recordId);
    // "Hide" or "Show" for the selected collection, at once everywhere.
    void toggleHidden();

    // Ctrl+F: the collection search.
    void focusSearch();

    // For tests only: called on the worker with the load's collection before it computes.
    static void setWorkerHookForTesting(std::function<void(const QString& collection)> hook);

signals:
    void editRequested(const Clip& clip);
    void newShortcutRequested(const QString& group);
    void noticeRequested(const QString& text);
    // The collection shown, or "All collections", to be shared as a package.
    void shareRequested(const QString& collection);
    // Extra copies among repeated shortcuts and identical collections, for the Dashboard.
    void duplicatesCounted(qint64 extraShortcuts, qint64 extraCollections);
    // A load's result, or the shortcut list's, is on screen.
    void loaded();

protected:
    void changeEvent(QEvent* event) override;

private:
    struct Load
    {
        quint64 generation = 0;
        QString collection;
        QList<CollectionRecord> records;
        QHash<QString, CollectionItemCounts> counts;
        bool withDuplicates = false;
        QList<DuplicateShortcutGroup> duplicateShortcuts;
        QList<DuplicateCollectionGroup> duplicateCollections;
    };

    void scheduleRefresh(bool libraryChanged);
    void startLoad();
    void takeLoad();
    void fillNames();
    void showContent();
    void showDuplicates();
    void updateActions();
    void applyPalette();
    template<typename Sheet>
    Sheet* present(Sheet* sheet);

    DB& m_db;
    QString m_selected;
    Mode m_mode = Mode::Shortcuts;
    quint64 m_generation = 0;
    bool m_loading = false;
    bool m_duplicatesStale = true;
    QFutureWatcher<Load> m_watcher;
    QTimer m_refreshTimer;
    QHash<QString, CollectionItemCounts> m_counts;
    QList<DuplicateShortcutGroup> m_duplicateShortcuts;
    QList<DuplicateCollectionGroup> m_duplicateCollections;

    QLineEdit* m_search;
    QComboBox* m_category;
    QCheckBox* m_showHidden;
    QListWidget* m_names;
    QLabel* m_title;
    QPushButton* m_shortcutsMode;
    QPushButton* m_recordsMode;
    QPushButton* m_edit;
    QPushButton* m_rename;
    QPushButton* m_hide;
    QPushButton* m_newRecord;
    QPushButton* m_selectPage;
    QPushButton* m_clearPage;
    QStackedWidget* m_content;
    QLabel* m_loadingLabel;
    ShortcutListPage* m_shortcuts;
    EmptyState* m_noShortcuts;
    QTableView* m_records;
    RecordTableModel* m_recordModel;
    EmptyState* m_noRecords;
    Card* m_repeatedCard;
    Card* m_identicalCard;
    QWidget* m_repeatedRows = nullptr;
    QWidget* m_identicalRows = nullptr;
};

} // namespace tavo
