#include "shell/collection_library_page.h"

#include "shell/collection_sheets.h"
#include "shell/shortcut_list_page.h"
#include "shell/ui/card.h"
#include "shell/ui/design.h"
#include "shell/ui/empty_state.h"
#include "store/defaults.h"
#include "store/profile_store.h"
#include "store/scorecard.h"

#include <QAbstractTableModel>
#include <QAction>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QSplitter>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace tavo {

namespace {

std::function<void(const QString&)>& workerHook()
{
    static std::function<void(const QString&)> hook;
    return hook;
}

// The duplicate panels list this many groups; the rest are counted, since thousands of rows of
// buttons would cost the window more than they tell.
constexpr int shownDuplicateGroups = collectionPageSize;

QString countsText(const CollectionItemCounts& counts)
{
    return QStringLiteral("%1 %2, %3 %4")
        .arg(counts.shortcuts)
        .arg(counts.shortcuts == 1 ? QStringLiteral("shortcut") : QStringLiteral("shortcuts"))
        .arg(counts.records)
        .arg(counts.records == 1 ? QStringLiteral("record") : QStringLiteral("records"));
}

void quieten(QLabel* label, const QPalette& palette)
{
    QPalette quiet = label->palette();
    quiet.setColor(QPalette::WindowText, design::secondaryText(palette));
    label->setPalette(quiet);
}

} // namespace

// The records of the shown collection; their cells are read on demand, so twenty thousand rows
// cost no more to show than fifty.
class RecordTableModel : public QAbstractTableModel
{
public:
    enum Column
    {
        NameColumn,
        AliasColumn,
        ValuesColumn,
        ColumnCount
    };

    using QAbstractTableModel::QAbstractTableModel;

    void setRecords(QList<CollectionRecord> records)
    {
        beginResetModel();
        m_records = std::move(records);
        endResetModel();
    }
    const QList<CollectionRecord>& records() const { return m_records; }

    int rowCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : int(m_records.size()); }
    int columnCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : ColumnCount; }

    QVariant data(const QModelIndex& index, int role) const override
    {
        if (!index.isValid() || index.row() >= m_records.size()) {
            return {};
        }
        const CollectionRecord& record = m_records.at(index.row());
        if (role == Qt::DisplayRole || role == Qt::ToolTipRole) {
            switch (index.column()) {
            case NameColumn:
                return record.name;
            case AliasColumn:
                return displayTrigger(normalizedTrigger(record.alias));
            case ValuesColumn:
                return valuesText(record);
            }
        }
        if (role == Qt::AccessibleTextRole) {
            return QStringLiteral("%1, %2, %3")
                .arg(record.name, displayTrigger(normalizedTrigger(record.alias)), valuesText(record));
        }
        return {};
    }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
            return {};
        }
        static const QString titles[] = {QStringLiteral("Name"), QStringLiteral("Alias"), QStringLiteral("Values")};
        return section >= 0 && section < ColumnCount ? titles[section] : QString();
    }

private:
    static QString valuesText(const CollectionRecord& record)
    {
        QStringList parts;
        for (auto it = record.values.cbegin(); it != record.values.cend(); ++it) {
            if (!it.value().isEmpty()) {
                parts << QStringLiteral("%1: %2").arg(it.key(), it.value().simplified());
            }
        }
        return parts.join(QStringLiteral(" \u00b7 "));
    }

    QList<CollectionRecord> m_records;
};

CollectionLibraryPage::CollectionLibraryPage(DB& db, QWidget* parent)
    : QWidget(parent)
    , m_db(db)
    , m_selected(allCollectionsName)
    , m_search(new QLineEdit(this))
    , m_category(new QComboBox(this))
    , m_showHidden(new QCheckBox(QStringLiteral("Show hidden"), this))
    , m_names(new QListWidget(this))
    , m_title(new QLabel(this))
    , m_shortcutsMode(new QPushButton(QStringLiteral("Shortcuts"), this))
    , m_recordsMode(new QPushButton(QStringLiteral("Records"), this))
    , m_edit(new QPushButton(design::icon(QStringLiteral("document-edit")), QStringLiteral("Edit"), this))
    , m_rename(new QPushButton(design::icon(QStringLiteral("edit-rename")), QStringLiteral("Rename…"), this))
    , m_hide(new QPushButton(QStringLiteral("Hide"), this))
    , m_newRecord(new QPushButton(design::icon(QStringLiteral("list-add")), QStringLiteral("New record"), this))
    , m_selectPage(new QPushButton(QStringLiteral("Select page"), this))
    , m_clearPage(new QPushButton(QStringLiteral("Clear page"), this))
    , m_content(new QStackedWidget(this))
    , m_loadingLabel(new QLabel(this))
    , m_shortcuts(new ShortcutListPage(db, this))
    , m_noShortcuts(new EmptyState(QStringLiteral("document-new"), noShortcutsTitle, noShortcutsHint,
                                   QStringLiteral("New shortcut"), this))
    , m_records(new QTableView(this))
    , m_recordModel(new RecordTableModel(this))
    , m_noRecords(new EmptyState(QStringLiteral("x-office-address-book"), noRecordsTitle, noRecordsHint,
                                 QStringLiteral("New record"), this))
    , m_repeatedCard(nullptr)
    , m_identicalCard(nullptr)
{
    setObjectName(QStringLiteral("collectionLibrary"));
    m_search->setObjectName(QStringLiteral("searchCollections"));
    m_category->setObjectName(QStringLiteral("collectionCategoryFilter"));
    m_showHidden->setObjectName(QStringLiteral("showHiddenCollections"));
    m_names->setObjectName(QStringLiteral("collectionNames"));
    m_title->setObjectName(QStringLiteral("collectionTitle"));
    m_shortcutsMode->setObjectName(QStringLiteral("shortcutsMode"));
    m_recordsMode->setObjectName(QStringLiteral("recordsMode"));
    m_edit->setObjectName(QStringLiteral("editCollection"));
    m_rename->setObjectName(QStringLiteral("renameCollection"));
    m_hide->setObjectName(QStringLiteral("hideCollection"));
    m_newRecord->setObjectName(QStringLiteral("newRecord"));
    m_selectPage->setObjectName(QStringLiteral("selectPage"));
    m_clearPage->setObjectName(QStringLiteral("clearPage"));
    m_loadingLabel->setObjectName(QStringLiteral("collectionLoading"));
    m_content->setObjectName(QStringLiteral("collectionContent"));
    m_records->setObjectName(QStringLiteral("records"));
    m_noShortcuts->setObjectName(QStringLiteral("noCollectionShortcuts"));
    m_noRecords->setObjectName(QStringLiteral("noRecords"));

    m_search->setPlaceholderText(QStringLiteral("Search collections"));
    m_search->setClearButtonEnabled(true);
    m_search->setAccessibleName(QStringLiteral("Search collections"));
    design::name(m_category, QStringLiteral("Category"));
    m_names->setAccessibleName(QStringLiteral("Collections"));
    design::name(m_shortcutsMode, QStringLiteral("Show shortcuts"));
    design::name(m_recordsMode, QStringLiteral("Show records"));
    design::name(m_edit, QStringLiteral("Edit collection"));
    design::name(m_rename, QStringLiteral("Rename collection"));
    design::name(m_hide, QStringLiteral("Hide collection"));
    design::name(m_newRecord, QStringLiteral("New record"));
    design::name(m_selectPage, QStringLiteral("Select page"));
    design::name(m_clearPage, QStringLiteral("Clear page"));
    m_records->setAccessibleName(QStringLiteral("Records"));

    // The list is narrowed to the chosen collection by this page: its own filters step aside,
    // and a hidden collection shows its shortcuts when chosen.
    m_shortcuts->setSection(QStringLiteral("Collections"));
    for (const char* filter : {"collectionFilter", "categoryFilter", "showHidden"}) {
        if (auto* widget = m_shortcuts->findChild<QWidget*>(QLatin1String(filter))) {
            widget->hide();
        }
    }
    if (auto* includeHidden = m_shortcuts->findChild<QCheckBox*>(QStringLiteral("showHidden"))) {
        includeHidden->setChecked(true);
    }

    auto* newCollection =
        new QPushButton(design::icon(QStringLiteral("folder-new")), QStringLiteral("New collection"), this);
    newCollection->setObjectName(QStringLiteral("newCollection"));
    auto* categories = new QPushButton(design::icon(QStringLiteral("tag")), QStringLiteral("Categories…"), this);
    categories->setObjectName(QStringLiteral("manageCategories"));
    auto* manage =
        new QPushButton(design::icon(QStringLiteral("configure")), QStringLiteral("Manage collections…"), this);
    manage->setObjectName(QStringLiteral("manageCollections"));
    design::name(newCollection, QStringLiteral("New collection"));
    design::name(categories, QStringLiteral("Categories"));
    design::name(manage, QStringLiteral("Manage collections"));
    // The window's header names the page; the page's own actions stand in a row under it.
    auto* header = new QHBoxLayout;
    header->setContentsMargins(0, 0, 0, 0);
    header->addStretch();
    header->addWidget(newCollection);
    header->addWidget(categories);
    header->addWidget(manage);

    for (QPushButton* mode : {m_shortcutsMode, m_recordsMode}) {
        mode->setCheckable(true);
    }
    auto* modes = new QButtonGroup(this);
    modes->setExclusive(true);
    modes->addButton(m_shortcutsMode);
    modes->addButton(m_recordsMode);
    m_shortcutsMode->setChecked(true);
    m_title->setFont(design::sectionHeaderFont(font()));

    m_loadingLabel->setAlignment(Qt::AlignCenter);
    m_records->setModel(m_recordModel);
    m_records->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_records->setSelectionMode(QAbstractItemView::SingleSelection);
    m_records->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_records->setAlternatingRowColors(true);
    m_records->setShowGrid(false);
    m_records->setWordWrap(false);
    m_records->setTabKeyNavigation(false);
    m_records->verticalHeader()->hide();
    m_records->horizontalHeader()->setStretchLastSection(true);
    auto* openRecordAction = new QAction(QStringLiteral("Edit record"), m_records);
    openRecordAction->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
    openRecordAction->setShortcutContext(Qt::WidgetShortcut);
    m_records->addAction(openRecordAction);
    const auto openCurrentRecord = [this] {
        const QModelIndex current = m_records->currentIndex();
        if (current.isValid()) {
            openRecord(m_recordModel->records().at(current.row()).id);
        }
    };
    connect(openRecordAction, &QAction::triggered, this, openCurrentRecord);
    connect(m_records, &QAbstractItemView::doubleClicked, this, openCurrentRecord);

    m_content->addWidget(m_loadingLabel);
    m_content->addWidget(m_shortcuts);
    m_content->addWidget(m_noShortcuts);
    m_content->addWidget(m_records);
    m_content->addWidget(m_noRecords);

    const int spacing = design::step(this);
    auto* left = new QWidget(this);
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->setSpacing(spacing);
    leftLayout->addWidget(m_search);
    leftLayout->addWidget(m_category);
    leftLayout->addWidget(m_showHidden);
    leftLayout->addWidget(m_names, 1);

    auto* right = new QWidget(this);
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->setSpacing(spacing);
    auto* titleRow = new QHBoxLayout;
    titleRow->setSpacing(spacing);
    titleRow->addWidget(m_title, 1);
    titleRow->addWidget(m_edit);
    titleRow->addWidget(m_rename);
    titleRow->addWidget(m_hide);
    titleRow->addWidget(m_newRecord);
    // A collection travels as a package; "All collections" shares every shortcut.
    auto* share = new QPushButton(design::icon(QStringLiteral("document-share")), QStringLiteral("Share…"), this);
    share->setObjectName(QStringLiteral("shareCollection"));
    design::name(share, QStringLiteral("Share collection"));
    connect(share, &QPushButton::clicked, this, [this] { emit shareRequested(m_selected); });
    titleRow->addWidget(share);
    auto* modeRow = new QHBoxLayout;
    modeRow->setSpacing(spacing);
    modeRow->addWidget(m_shortcutsMode);
    modeRow->addWidget(m_recordsMode);
    modeRow->addStretch();
    modeRow->addWidget(m_selectPage);
    modeRow->addWidget(m_clearPage);
    rightLayout->addLayout(titleRow);
    rightLayout->addLayout(modeRow);
    rightLayout->addWidget(m_content, 1);

    auto* duplicates = new QWidget(this);
    // One above the other: each panel has the page's width for its lines.
    auto* duplicatesLayout = new QVBoxLayout(duplicates);
    duplicatesLayout->setContentsMargins(0, 0, 0, 0);
    duplicatesLayout->setSpacing(design::step(this, 2));
    duplicatesLayout->addStretch(); // the panels go above it
    auto* duplicatesScroll = new QScrollArea(this);
    duplicatesScroll->setObjectName(QStringLiteral("duplicates"));
    duplicatesScroll->setAccessibleName(QStringLiteral("Duplicates"));
    duplicatesScroll->setWidget(duplicates);
    duplicatesScroll->setWidgetResizable(true);
    duplicatesScroll->setFrameShape(QFrame::NoFrame);
    duplicatesScroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    auto* rightSplit = new QSplitter(Qt::Vertical, this);
    rightSplit->addWidget(right);
    rightSplit->addWidget(duplicatesScroll);
    rightSplit->setStretchFactor(0, 2);
    rightSplit->setStretchFactor(1, 1);
    rightSplit->setChildrenCollapsible(false);
    auto* split = new QSplitter(Qt::Horizontal, this);
    split->addWidget(left);
    split->addWidget(rightSplit);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 3);
    split->setChildrenCollapsible(false);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(design::step(this, 2));
    layout->addLayout(header);
    layout->addWidget(split, 1);
    applyPalette();

    connect(newCollection, &QPushButton::clicked, this, &CollectionLibraryPage::openNewCollection);
    connect(categories, &QPushButton::clicked, this, &CollectionLibraryPage::openCategories);
    connect(manage, &QPushButton::clicked, this, &CollectionLibraryPage::openManager);
    connect(m_edit, &QPushButton::clicked, this, &CollectionLibraryPage::openEditCollection);
    connect(m_rename, &QPushButton::clicked, this, &CollectionLibraryPage::openRename);
    connect(m_hide, &QPushButton::clicked, this, &CollectionLibraryPage::toggleHidden);
    connect(m_newRecord, &QPushButton::clicked, this, &CollectionLibraryPage::openNewRecord);
    connect(m_noRecords, &EmptyState::actionTriggered, this, &CollectionLibraryPage::openNewRecord);
    connect(m_noShortcuts, &EmptyState::actionTriggered, this,
            [this] { emit newShortcutRequested(m_selected == allCollectionsName ? QString() : m_selected); });
    connect(m_shortcutsMode, &QPushButton::clicked, this, [this] { setMode(Mode::Shortcuts); });
    connect(m_recordsMode, &QPushButton::clicked, this, [this] { setMode(Mode::Records); });
    // The list's table holds the current page only: these act on that page and no other.
    connect(m_selectPage, &QPushButton::clicked, this, [this] {
        if (auto* view = m_shortcuts->findChild<QTableView*>(QStringLiteral("shortcuts"))) {
            view->selectAll();
        }
    });
    connect(m_clearPage, &QPushButton::clicked, this, [this] {
        if (auto* view = m_shortcuts->findChild<QTableView*>(QStringLiteral("shortcuts"))) {
            view->clearSelection();
        }
    });

    connect(m_search, &QLineEdit::textChanged, this, &CollectionLibraryPage::fillNames);
    connect(m_category, &QComboBox::currentTextChanged, this, &CollectionLibraryPage::fillNames);
    connect(m_showHidden, &QCheckBox::toggled, this, &CollectionLibraryPage::fillNames);
    connect(m_names, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) {
        if (item) {
            selectCollection(item->data(Qt::UserRole).toString());
        }
    });

    connect(m_shortcuts, &ShortcutListPage::editRequested, this, &CollectionLibraryPage::editRequested);
    connect(m_shortcuts, &ShortcutListPage::noticeRequested, this, &CollectionLibraryPage::noticeRequested);
    connect(m_shortcuts, &ShortcutListPage::newShortcutRequested, this, &CollectionLibraryPage::newShortcutRequested);
    connect(m_shortcuts, &ShortcutListPage::filtered, this, &CollectionLibraryPage::showContent);

    // Changes from another screen or from tavoctl arrive through the store's signals; a rename
    // raises several at once, which the timer folds into one load.
    m_refreshTimer.setSingleShot(true);
    m_refreshTimer.setInterval(0);
    connect(&m_refreshTimer, &QTimer::timeout, this, [this] {
        fillNames();
        refresh();
    });
    connect(&m_db, &DB::clipsChanged, this, [this] { scheduleRefresh(true); });
    connect(&m_db, &DB::collectionRecordsChanged, this, [this] { scheduleRefresh(true); });
    connect(&m_db, &DB::collectionsChanged, this, [this] { scheduleRefresh(true); });
    connect(&m_db, &DB::collectionDefinitionsChanged, this, [this] { scheduleRefresh(false); });
    connect(&m_db, &DB::hiddenCollectionsChanged, this, [this] { scheduleRefresh(false); });
    connect(&m_watcher, &QFutureWatcher<Load>::finished, this, &CollectionLibraryPage::takeLoad);

    showDuplicates();
    fillNames();
    updateActions();
    refresh();
}

CollectionLibraryPage::~CollectionLibraryPage()
{
    // A load in flight holds only its own copies; waiting keeps its watcher valid until it ends.
    // A taken result leaves the future invalid, and waiting on that would never return.
    if (m_watcher.isRunning()) {
        m_watcher.waitForFinished();
    }
}

void CollectionLibraryPage::setWorkerHookForTesting(std::function<void(const QString& collection)> hook)
{
    workerHook() = std::move(hook);
}

void CollectionLibraryPage::focusSearch()
{
    m_search->setFocus(Qt::ShortcutFocusReason);
    m_search->selectAll();
}

QStringList CollectionLibraryPage::shownCollectionNames() const
{
    QStringList names;
    for (int row = 1; row < m_names->count(); ++row) {
        names << m_names->item(row)->data(Qt::UserRole).toString();
    }
    return names;
}

CollectionItemCounts CollectionLibraryPage::countsOf(const QString& collection) const
{
    return m_counts.value(collection.toLower());
}

QList<CollectionRecord> CollectionLibraryPage::shownRecords() const
{
    return m_recordModel->records();
}

void CollectionLibraryPage::fillNames()
{
    const QStringList filters = m_category->currentIndex() > 0 ? QStringList{m_category->currentText()} : QStringList();
    QStringList names = filteredCollectionNames(m_db.collections(), m_db.hiddenCollections(), m_showHidden->isChecked(),
                                                filters, m_db.collectionDefinitions());
    const QString query = m_search->text().trimmed();
    if (!query.isEmpty()) {
        names = names.filter(query, Qt::CaseInsensitive);
    }
    {
        const QSignalBlocker blocker(m_category);
        const QString category = m_category->currentText();
        m_category->clear();
        m_category->addItem(allCategoriesName);
        m_category->addItems(categoriesOf(m_db.collections(), m_db.collectionDefinitions()));
        m_category->setCurrentIndex(qMax(0, m_category->findText(category)));
    }
    QString selected = allCollectionsName;
    {
        const QSignalBlocker blocker(m_names);
        m_names->clear();
        auto* all = new QListWidgetItem(design::icon(QStringLiteral("folder-open")), allCollectionsName, m_names);
        all->setData(Qt::UserRole, allCollectionsName);
        for (const QString& name : names) {
            auto* item = new QListWidgetItem(design::symbolIcon(collectionSymbol(name)), name, m_names);
            item->setData(Qt::UserRole, name);
            const bool hidden = m_db.isCollectionHidden(name);
            if (hidden) {
                QFont italic = item->font();
                italic.setItalic(true);
                item->setFont(italic);
            }
            QStringList details;
            if (const auto counts = m_counts.constFind(name.toLower()); counts != m_counts.constEnd()) {
                details << countsText(*counts);
            }
            if (hidden) {
                details << QStringLiteral("hidden");
            }
            const QString summary = details.join(QStringLiteral(", "));
            item->setToolTip(summary);
            item->setData(Qt::AccessibleDescriptionRole, summary);
            if (name.compare(m_selected, Qt::CaseInsensitive) == 0) {
                selected = name;
            }
        }
        for (int row = 0; row < m_names->count(); ++row) {
            if (m_names->item(row)->data(Qt::UserRole).toString() == selected) {
                m_names->setCurrentRow(row);
            }
        }
    }
    // A collection that went away (removed, hidden, filtered out) leaves the selection on all.
    if (selected != m_selected) {
        selectCollection(selected);
    }
}

void CollectionLibraryPage::selectCollection(const QString& name)
{
    const QString chosen = name.isEmpty() ? allCollectionsName : name;
    for (int row = 0; row < m_names->count(); ++row) {
        if (m_names->item(row)->data(Qt::UserRole).toString() == chosen && m_names->currentRow() != row) {
            const QSignalBlocker blocker(m_names);
            m_names->setCurrentRow(row);
        }
    }
    if (chosen == m_selected) {
        return;
    }
    m_selected = chosen;
    if (auto* filter = m_shortcuts->findChild<QComboBox*>(QStringLiteral("collectionFilter"))) {
        filter->setCurrentIndex(qMax(0, filter->findText(chosen)));
    }
    updateActions();
    refresh();
}

void CollectionLibraryPage::setMode(Mode mode)
{
    m_shortcutsMode->setChecked(mode == Mode::Shortcuts);
    m_recordsMode->setChecked(mode == Mode::Records);
    if (mode == m_mode) {
        return;
    }
    m_mode = mode;
    updateActions();
    refresh();
}

void CollectionLibraryPage::scheduleRefresh(bool libraryChanged)
{
    m_duplicatesStale = m_duplicatesStale || libraryChanged;
    m_refreshTimer.start();
}

void CollectionLibraryPage::refresh()
{
    ++m_generation;
    m_loading = true;
    showContent();
    if (m_watcher.isRunning()) {
        // That run's result will be dropped; the newest waiting load starts once it ends.
        const quint64 generation = m_generation;
        connect(
            &m_watcher, &QFutureWatcher<Load>::finished, this,
            [this, generation] {
                if (generation == m_generation && !m_watcher.isRunning()) {
                    startLoad();
                }
            },
            Qt::SingleShotConnection);
        return;
    }
    startLoad();
}

void CollectionLibraryPage::startLoad()
{
    // Copies share the store's lists: the worker reads them while the store may change its own.
    const QList<Clip> clips = m_db.clips();
    const QList<CollectionRecord> records = m_db.collectionRecords();
    const QStringList collections = m_db.collections();
    const QString collection = m_selected;
    const bool withLibrary = m_duplicatesStale;
    const quint64 generation = m_generation;
    m_watcher.setFuture(QtConcurrent::run([=, hook = workerHook()] {
        if (hook) {
            hook(collection);
        }
        Load load;
        load.generation = generation;
        load.collection = collection;
        const bool all = collection == allCollectionsName;
        for (const CollectionRecord& record : records) {
            if (all || record.collection.compare(collection, Qt::CaseInsensitive) == 0) {
                load.records.append(record);
            }
        }
        // Counts and duplicates depend on the whole library only: a switch of collection or
        // mode reuses the last ones.
        if (withLibrary) {
            load.withDuplicates = true;
            load.counts = countCollectionItems(collections, clips, records);
            load.duplicateShortcuts = findDuplicateShortcuts(clips);
            load.duplicateCollections = findDuplicateCollections(collections, clips, records);
        }
        return load;
    }));
}

void CollectionLibraryPage::takeLoad()
{
    Load load = m_watcher.future().takeResult();
    if (load.generation != m_generation) {
        return; // a newer load is on its way
    }
    m_loading = false;
    m_recordModel->setRecords(std::move(load.records));
    if (load.withDuplicates) {
        m_duplicatesStale = false;
        m_counts = std::move(load.counts);
        m_duplicateShortcuts = std::move(load.duplicateShortcuts);
        m_duplicateCollections = std::move(load.duplicateCollections);
        showDuplicates();
        fillNames(); // the counts in the names' tooltips
        emit duplicatesCounted(extraDuplicateShortcuts(m_duplicateShortcuts),
                               extraDuplicateCollections(m_duplicateCollections));
    }
    showContent();
}

bool CollectionLibraryPage::isLoading() const
{
    return m_loading || (m_mode == Mode::Shortcuts && m_shortcuts->isFiltering());
}

QString CollectionLibraryPage::loadingText() const
{
    return m_content->currentWidget() == m_loadingLabel ? m_loadingLabel->text() : QString();
}

void CollectionLibraryPage::showContent()
{
    const bool shortcuts = m_mode == Mode::Shortcuts;
    m_selectPage->setVisible(shortcuts);
    m_clearPage->setVisible(shortcuts);
    // While the list answers its own search the list stays, so its field keeps the focus.
    const bool listSwitching = shortcuts && m_shortcuts->isFiltering() && m_content->currentWidget() != m_shortcuts;
    if (m_loading || listSwitching) {
        m_loadingLabel->setText(shortcuts ? loadingShortcutsText : loadingRecordsText);
        m_content->setCurrentWidget(m_loadingLabel);
        return;
    }
    if (shortcuts) {
        const bool empty = m_shortcuts->totalCount() == 0 && m_shortcuts->query().isEmpty();
        m_content->setCurrentWidget(empty ? static_cast<QWidget*>(m_noShortcuts) : m_shortcuts);
    } else {
        const bool empty = m_recordModel->rowCount() == 0;
        m_content->setCurrentWidget(empty ? static_cast<QWidget*>(m_noRecords) : m_records);
    }
    m_noRecords->setAction(m_selected == allCollectionsName ? QString() : QStringLiteral("New record"));
    emit loaded();
}

void CollectionLibraryPage::showDuplicates()
{
    auto* area = findChild<QScrollArea*>(QStringLiteral("duplicates"));
    if (!area) {
        return; // still being built
    }
    auto* layout = static_cast<QVBoxLayout*>(area->widget()->layout());
    // A card's title carries its count, so each load builds the two cards afresh.
    delete m_repeatedCard;
    delete m_identicalCard;

    m_repeatedCard = new Card(repeatedShortcutsTitle(m_duplicateShortcuts.size()), QStringLiteral("edit-copy"));
    m_repeatedCard->setObjectName(QStringLiteral("repeatedShortcuts"));
    if (m_duplicateShortcuts.isEmpty()) {
        m_repeatedCard->body()->addWidget(new QLabel(noRepeatedShortcutsText));
    }
    for (const DuplicateShortcutGroup& group : m_duplicateShortcuts.mid(0, shownDuplicateGroups)) {
        auto* row = new QHBoxLayout;
        auto* key = new QLabel(displayTrigger(group.shortcut));
        key->setFont(design::fixedFont(font()));
        auto* repeats = new QLabel(repeatsText(group));
        auto* where = new QLabel(occurrencesText(group) + group.collections.join(QStringLiteral(", ")));
        quieten(where, palette());
        auto* edit = new QPushButton(design::icon(QStringLiteral("document-edit")), editRepeatedShortcutText);
        edit->setObjectName(QStringLiteral("editRepeatedShortcut"));
        design::name(edit, QStringLiteral("%1: %2").arg(editRepeatedShortcutText, displayTrigger(group.shortcut)));
        const Clip first = group.clips.first();
        connect(edit, &QPushButton::clicked, this, [this, first] { emit editRequested(first); });
        row->addWidget(key);
        row->addWidget(repeats);
        row->addWidget(where, 1);
        row->addWidget(edit);
        m_repeatedCard->body()->addLayout(row);
    }
    if (m_duplicateShortcuts.size() > shownDuplicateGroups) {
        m_repeatedCard->body()->addWidget(
            new QLabel(QStringLiteral("%1 more not shown.").arg(m_duplicateShortcuts.size() - shownDuplicateGroups)));
    }

    m_identicalCard = new Card(identicalCollectionsTitle(m_duplicateCollections.size()), QStringLiteral("folder-copy"));
    m_identicalCard->setObjectName(QStringLiteral("identicalCollections"));
    if (m_duplicateCollections.isEmpty()) {
        m_identicalCard->body()->addWidget(new QLabel(noIdenticalCollectionsText));
    }
    for (const DuplicateCollectionGroup& group : m_duplicateCollections.mid(0, shownDuplicateGroups)) {
        auto* row = new QHBoxLayout;
        auto* names = new QLabel(group.collectionNames.join(QStringLiteral(", ")));
        names->setWordWrap(true);
        auto* items = new QLabel(matchingItemsText(group));
        quieten(items, palette());
        row->addWidget(names, 1);
        row->addWidget(items);
        m_identicalCard->body()->addLayout(row);
    }
    if (m_duplicateCollections.size() > shownDuplicateGroups) {
        m_identicalCard->body()->addWidget(
            new QLabel(QStringLiteral("%1 more not shown.").arg(m_duplicateCollections.size() - shownDuplicateGroups)));
    }
    layout->insertWidget(0, m_repeatedCard);
    layout->insertWidget(1, m_identicalCard);
}

void CollectionLibraryPage::updateActions()
{
    const bool one = m_selected != allCollectionsName;
    m_title->setText(m_selected);
    for (QPushButton* button : {m_edit, m_rename, m_hide, m_newRecord}) {
        button->setEnabled(one);
    }
    const bool hidden = one && m_db.isCollectionHidden(m_selected);
    m_hide->setText(hidden ? QStringLiteral("Show") : QStringLiteral("Hide"));
    m_hide->setIcon(design::icon(hidden ? QStringLiteral("view-visible") : QStringLiteral("view-hidden")));
    design::name(m_hide, hidden ? QStringLiteral("Show collection") : QStringLiteral("Hide collection"));
    m_hide->setToolTip(m_hide->accessibleName());
}

void CollectionLibraryPage::toggleHidden()
{
    if (m_selected == allCollectionsName) {
        return;
    }
    QStringList hidden = m_db.hiddenCollections();
    if (m_db.isCollectionHidden(m_selected)) {
        hidden.removeIf([&](const QString& name) { return name.compare(m_selected, Qt::CaseInsensitive) == 0; });
    } else {
        hidden.append(m_selected);
    }
    m_db.setHiddenCollections(hidden);
    updateActions();
}

void CollectionLibraryPage::clear()
{
    ++m_generation;
    m_loading = false;
    m_recordModel->setRecords({});
    m_counts.clear();
    m_duplicateShortcuts.clear();
    m_duplicateCollections.clear();
    m_duplicatesStale = true;
    m_shortcuts->clear();
    m_selected = allCollectionsName;
    showDuplicates();
    fillNames();
    updateActions();
}

template<typename Sheet>
Sheet* CollectionLibraryPage::present(Sheet* sheet)
{
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->open();
    return sheet;
}

CollectionDefinitionSheet* CollectionLibraryPage::openNewCollection()
{
    auto* sheet = new CollectionDefinitionSheet(m_db, QString(), this);
    connect(sheet, &CollectionDefinitionSheet::openExistingRequested, this, &CollectionLibraryPage::selectCollection);
    connect(sheet, &CollectionDefinitionSheet::collectionSaved, this, [this](const QString& name) {
        fillNames();
        selectCollection(name);
    });
    return present(sheet);
}

CollectionDefinitionSheet* CollectionLibraryPage::openEditCollection()
{
    if (m_selected == allCollectionsName) {
        return nullptr;
    }
    return present(new CollectionDefinitionSheet(m_db, m_selected, this));
}

CollectionRenameSheet* CollectionLibraryPage::openRename()
{
    if (m_selected == allCollectionsName) {
        return nullptr;
    }
    auto* sheet = new CollectionRenameSheet(m_db, m_selected, this);
    connect(sheet, &CollectionRenameSheet::collectionRenamed, this, [this](const QString&, const QString& to) {
        fillNames();
        selectCollection(to);
    });
    return present(sheet);
}

CollectionCategorySheet* CollectionLibraryPage::openCategories()
{
    return present(new CollectionCategorySheet(m_db, this));
}

CollectionManagerSheet* CollectionLibraryPage::openManager()
{
    return present(new CollectionManagerSheet(m_db, this));
}

CollectionRecordSheet* CollectionLibraryPage::openNewRecord()
{
    if (m_selected == allCollectionsName) {
        return nullptr;
    }
    return present(new CollectionRecordSheet(m_db, m_selected, QString(), this));
}

CollectionRecordSheet* CollectionLibraryPage::openRecord(const QString& recordId)
{
    for (const CollectionRecord& record : m_recordModel->records()) {
        if (record.id == recordId) {
            return present(new CollectionRecordSheet(m_db, record.collection, recordId, this));
        }
    }
    return nullptr;
}

void CollectionLibraryPage::applyPalette()
{
    quieten(m_loadingLabel, palette());
}

void CollectionLibraryPage::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange) {
        applyPalette();
        showDuplicates();
    } else if (event->type() == QEvent::FontChange) {
        m_title->setFont(design::sectionHeaderFont(font()));
    }
    QWidget::changeEvent(event);
}

} // namespace tavo
