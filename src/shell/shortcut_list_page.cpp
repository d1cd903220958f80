#include "shell/shortcut_list_page.h"

#include "language/triggers.h"
#include "shell/bulk_rename_sheet.h"
#include "shell/shortcut_table_model.h"
#include "shell/ui/design.h"
#include "shell/ui/empty_state.h"
#include "store/collection_rules.h"
#include "store/collections.h"
#include "store/profile_store.h"

#include <QAction>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QTableView>
#include <QThreadPool>
#include <QVBoxLayout>
#include <QtConcurrent>

#include <numeric>

namespace tavo {

namespace {

std::function<void(const QString&)>& workerHook()
{
    static std::function<void(const QString&)> hook;
    return hook;
}

// A list of a hundred thousand clips takes milliseconds to free: a worker frees it, not the
// thread that draws.
void releaseOffThread(QList<Clip>&& clips)
{
    if (clips.size() < 1000) {
        return;
    }
    QThreadPool::globalInstance()->start([dropped = std::move(clips)]() mutable { dropped = {}; });
}

// The last holder of an old library frees it on a worker too.
template<typename T>
void releaseOffThread(std::shared_ptr<T>&& shared)
{
    if (shared && shared.use_count() == 1) {
        QThreadPool::globalInstance()->start([dropped = std::move(shared)]() mutable { dropped.reset(); });
    }
}

// `positions` in the order they have in `sorted`, which holds every position below `count` once.
QList<qsizetype> inOrderOf(const QList<qsizetype>& positions, const QList<qsizetype>& sorted, qsizetype count)
{
    std::vector<bool> wanted(static_cast<size_t>(count));
    for (const qsizetype position : positions) {
        wanted[static_cast<size_t>(position)] = true;
    }
    QList<qsizetype> ordered;
    ordered.reserve(positions.size());
    for (const qsizetype position : sorted) {
        if (wanted[static_cast<size_t>(position)]) {
            ordered.append(position);
        }
    }
    return ordered;
}

QString shortcutsText(qsizetype count)
{
    return count == 1 ? QStringLiteral("1 shortcut") : QStringLiteral("%1 shortcuts").arg(count);
}

} // namespace

ShortcutListPage::ShortcutListPage(DB& db, QWidget* parent)
    : QWidget(parent)
    , m_db(db)
    , m_search(new QLineEdit(this))
    , m_collection(new QComboBox(this))
    , m_category(new QComboBox(this))
    , m_showHidden(new QCheckBox(QStringLiteral("Show hidden"), this))
    , m_count(new QLabel(this))
    , m_view(new QTableView(this))
    , m_model(new ShortcutTableModel(this))
    , m_noMatch(new EmptyState(QStringLiteral("edit-find"), QStringLiteral("No shortcuts match"), QString(),
                               QStringLiteral("Clear search"), this))
    , m_emptySection(
          new EmptyState(QStringLiteral("document-new"), QString(), QString(), QStringLiteral("New shortcut"), this))
    , m_stack(new QStackedWidget(this))
    , m_previous(new QPushButton(QStringLiteral("‹ Previous"), this))
    , m_next(new QPushButton(QStringLiteral("Next ›"), this))
    , m_pageLabel(new QLabel(this))
    , m_deleteSelected(new QPushButton(QStringLiteral("Delete selected"), this))
    , m_moveSelected(new QPushButton(QStringLiteral("Move…"), this))
    , m_renameSelected(new QPushButton(QStringLiteral("Rename…"), this))
    , m_menu(new QMenu(this))
{
    m_search->setObjectName(QStringLiteral("searchShortcuts"));
    m_renameSelected->setObjectName(QStringLiteral("renameSelected"));
    m_moveSelected->setObjectName(QStringLiteral("moveSelected"));
    m_collection->setObjectName(QStringLiteral("collectionFilter"));
    m_category->setObjectName(QStringLiteral("categoryFilter"));
    m_showHidden->setObjectName(QStringLiteral("showHidden"));
    m_count->setObjectName(QStringLiteral("shortcutCount"));
    m_view->setObjectName(QStringLiteral("shortcuts"));
    m_previous->setObjectName(QStringLiteral("previousPage"));
    m_next->setObjectName(QStringLiteral("nextPage"));
    m_pageLabel->setObjectName(QStringLiteral("pageLabel"));
    m_deleteSelected->setObjectName(QStringLiteral("deleteSelected"));
    m_menu->setObjectName(QStringLiteral("shortcutMenu"));
    m_noMatch->setObjectName(QStringLiteral("noMatch"));
    m_emptySection->setObjectName(QStringLiteral("emptySection"));

    m_search->setPlaceholderText(QStringLiteral("Search shortcuts"));
    m_search->setAccessibleName(QStringLiteral("Search shortcuts"));
    m_search->setClearButtonEnabled(true);
    // The field's small buttons are read out as well: they say what they do.
    if (auto* clearAction = m_search->findChild<QAction*>(QStringLiteral("_q_qlineeditclearaction"))) {
        clearAction->setText(QStringLiteral("Clear search"));
    }
    QAction* findAction = m_search->addAction(design::icon(QStringLiteral("edit-find")), QLineEdit::LeadingPosition);
    findAction->setText(QStringLiteral("Search shortcuts"));
    connect(findAction, &QAction::triggered, this, &ShortcutListPage::focusSearch);
    design::name(m_collection, QStringLiteral("Collection"));
    design::name(m_category, QStringLiteral("Category"));
    design::name(m_previous, QStringLiteral("Previous page"));
    design::name(m_next, QStringLiteral("Next page"));
    // The view's own tooltip would stand in for every cell without one: name it only.
    m_view->setAccessibleName(QStringLiteral("Shortcuts"));

    m_view->setModel(m_model);
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_view->setAlternatingRowColors(true);
    m_view->setShowGrid(false);
    m_view->setWordWrap(false);
    m_view->setTextElideMode(Qt::ElideRight);
    m_view->setTabKeyNavigation(false); // Tab leaves the table for the next control
    m_view->setCornerButtonEnabled(false);
    m_view->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_view->setContextMenuPolicy(Qt::CustomContextMenu);
    m_view->verticalHeader()->hide();
    m_view->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    QHeaderView* header = m_view->horizontalHeader();
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setSortIndicatorClearable(true); // a third click gives the library's order back
    header->setSortIndicator(-1, Qt::AscendingOrder);
    header->setSectionResizeMode(ShortcutTableModel::KeyColumn, QHeaderView::ResizeToContents);
    header->setStretchLastSection(true);

    m_stack->addWidget(m_view);
    m_stack->addWidget(m_noMatch);
    m_stack->addWidget(m_emptySection);

    m_editAction = m_menu->addAction(design::icon(QStringLiteral("document-edit")), QStringLiteral("Edit"));
    m_copyAction = m_menu->addAction(design::icon(QStringLiteral("edit-copy")), QStringLiteral("Copy text"));
    m_moveAction = m_menu->addAction(design::icon(QStringLiteral("folder-move")), QStringLiteral("Move…"));
    QAction* shareAction = m_menu->addAction(design::icon(QStringLiteral("document-share")), QStringLiteral("Share…"));
    connect(shareAction, &QAction::triggered, this, [this] { emit shareRequested(selectedClips()); });
    m_menu->addSeparator();
    m_deleteAction = m_menu->addAction(design::icon(QStringLiteral("edit-delete")), QStringLiteral("Delete"));
    m_editAction->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
    m_deleteAction->setShortcut(QKeySequence::Delete);
    // The keys act on the table only: Delete in the search field deletes a letter, not shortcuts.
    for (QAction* action : {m_editAction, m_copyAction, m_moveAction, m_deleteAction}) {
        action->setShortcutContext(Qt::WidgetShortcut);
        m_view->addAction(action);
    }
    connect(m_editAction, &QAction::triggered, this, &ShortcutListPage::editCurrent);
    connect(m_copyAction, &QAction::triggered, this, &ShortcutListPage::copyCurrentText);
    connect(m_moveAction, &QAction::triggered, this, &ShortcutListPage::moveSelected);
    connect(m_deleteAction, &QAction::triggered, this, &ShortcutListPage::deleteSelected);
    connect(m_view, &QWidget::customContextMenuRequested, this, &ShortcutListPage::showContextMenu);
    connect(m_view, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex& index) {
        if (index.isValid()) {
            emit editRequested(m_model->clips().at(index.row()));
        }
    });

    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), m_search, nullptr, nullptr, Qt::WidgetShortcut);
    connect(escape, &QShortcut::activated, m_search, &QLineEdit::clear);
    connect(m_search, &QLineEdit::returnPressed, this, [this] {
        if (m_model->rowCount() > 0) {
            m_view->setFocus(Qt::OtherFocusReason);
            m_view->selectRow(0);
        }
    });

    const int spacing = design::step(this);
    auto* filters = new QHBoxLayout;
    filters->setSpacing(spacing);
    filters->addWidget(m_search, 1);
    filters->addWidget(m_collection);
    filters->addWidget(m_category);
    filters->addWidget(m_showHidden);
    auto* actions = new QHBoxLayout;
    actions->setSpacing(spacing);
    actions->addWidget(m_count);
    actions->addStretch();
    actions->addWidget(m_renameSelected);
    actions->addWidget(m_moveSelected);
    actions->addWidget(m_deleteSelected);
    auto* pages = new QHBoxLayout;
    pages->addWidget(m_previous);
    pages->addStretch();
    pages->addWidget(m_pageLabel);
    pages->addStretch();
    pages->addWidget(m_next);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    layout->addLayout(filters);
    layout->addLayout(actions);
    layout->addWidget(m_stack, 1);
    layout->addLayout(pages);
    QWidget* tabOrder[] = {m_search,
                           m_collection,
                           m_category,
                           m_showHidden,
                           m_renameSelected,
                           m_moveSelected,
                           m_deleteSelected,
                           m_view,
                           m_noMatch->actionButton(),
                           m_emptySection->actionButton(),
                           m_previous,
                           m_next};
    for (size_t i = 1; i < std::size(tabOrder); ++i) {
        setTabOrder(tabOrder[i - 1], tabOrder[i]);
    }
    applyLook();

    const auto refillCollections = [this] {
        const QString chosen = m_collection->currentText();
        const QString category = m_category->currentText();
        {
            const QSignalBlocker blocker(m_collection);
            const QSignalBlocker categoryBlocker(m_category);
            m_collection->clear();
            m_collection->addItem(allCollectionsName);
            m_collection->addItems(m_db.collections());
            m_collection->setCurrentIndex(qMax(0, m_collection->findText(chosen)));
            m_category->clear();
            m_category->addItem(allCategoriesName);
            m_category->addItems(categoriesOf(m_db.collections(), m_db.collectionDefinitions()));
            m_category->setCurrentIndex(qMax(0, m_category->findText(category)));
        }
        // A filter whose collection or category went away falls back to all: the rows follow.
        if (m_collection->currentText() != chosen || m_category->currentText() != category) {
            m_page = 0;
            refreshVisibleClips();
        }
    };
    refillCollections();
    connect(&m_db, &DB::collectionsChanged, this, refillCollections);
    connect(&m_db, &DB::collectionDefinitionsChanged, this, refillCollections);
    connect(m_category, &QComboBox::currentTextChanged, this, [this] {
        m_page = 0;
        refreshVisibleClips();
    });
    connect(&m_db, &DB::clipsChanged, this, &ShortcutListPage::refreshVisibleClips);
    connect(&m_db, &DB::hiddenCollectionsChanged, this, &ShortcutListPage::refreshVisibleClips);
    connect(m_collection, &QComboBox::currentTextChanged, this, [this] {
        m_page = 0;
        refreshVisibleClips();
    });
    connect(m_showHidden, &QCheckBox::toggled, this, &ShortcutListPage::refreshVisibleClips);

    m_searchTimer.setSingleShot(true);
    m_searchTimer.setInterval(searchDelayMs);
    connect(m_search, &QLineEdit::textChanged, &m_searchTimer, qOverload<>(&QTimer::start));
    connect(&m_searchTimer, &QTimer::timeout, this, [this] {
        m_page = 0;
        runFilter();
    });
    connect(header, &QHeaderView::sortIndicatorChanged, this, [this, header](int column, Qt::SortOrder order) {
        if (column == ShortcutTableModel::TextColumn) {
            // What a shortcut expands to is not an order anyone looks for: the header stays put.
            const QSignalBlocker blocker(header);
            header->setSortIndicator(m_sortColumn, m_sortOrder);
            return;
        }
        m_sortColumn = column;
        m_sortOrder = order;
        m_page = 0;
        runFilter();
    });

    connect(m_previous, &QPushButton::clicked, this, [this] { setCurrentPage(m_page - 1); });
    connect(m_next, &QPushButton::clicked, this, [this] { setCurrentPage(m_page + 1); });
    connect(m_deleteSelected, &QPushButton::clicked, this, &ShortcutListPage::deleteSelected);
    connect(m_view->selectionModel(), &QItemSelectionModel::selectionChanged, this, &ShortcutListPage::updateActions);
    connect(m_renameSelected, &QPushButton::clicked, this, &ShortcutListPage::renameSelected);
    connect(m_moveSelected, &QPushButton::clicked, this, &ShortcutListPage::moveSelected);
    connect(m_noMatch, &EmptyState::actionTriggered, this, [this] {
        m_search->clear();
        m_search->setFocus(Qt::OtherFocusReason);
    });
    connect(m_emptySection, &EmptyState::actionTriggered, this,
            [this] { emit newShortcutRequested(newShortcutGroup()); });
    connect(&m_watcher, &QFutureWatcher<FilterRun>::finished, this, &ShortcutListPage::takeResult);
    updateActions();
    showCounts();
}

void ShortcutListPage::setWorkerHookForTesting(std::function<void(const QString& query)> hook)
{
    workerHook() = std::move(hook);
}

void ShortcutListPage::setSection(const QString& section)
{
    if (section == m_section) {
        return;
    }
    m_section = section;
    m_page = 0;
    refreshVisibleClips();
}

QString ShortcutListPage::query() const
{
    return m_search->text();
}

void ShortcutListPage::setQuery(const QString& query)
{
    m_search->setText(query);
}

void ShortcutListPage::focusSearch()
{
    m_search->setFocus(Qt::ShortcutFocusReason);
    m_search->selectAll();
}

void ShortcutListPage::sortBy(int column, Qt::SortOrder order)
{
    // The header tells the list through sortIndicatorChanged, as for a click.
    m_view->horizontalHeader()->setSortIndicator(column, order);
}

void ShortcutListPage::refreshVisibleClips()
{
    m_totalStale = true;
    runFilter();
}

void ShortcutListPage::runFilter()
{
    m_searchTimer.stop(); // this run reads the field as it is now
    const quint64 generation = ++m_generation;
    m_filtering = true;
    if (m_watcher.isRunning()) {
        // Its result will be dropped; the next run starts once the watcher is free.
        connect(
            &m_watcher, &QFutureWatcher<FilterRun>::finished, this,
            [this, generation] {
                if (generation == m_generation) {
                    runFilter();
                }
            },
            Qt::SingleShotConnection);
        return;
    }
    // Copies share the lists: the worker reads them while the store may change its own.
    const QList<Clip> clips = m_db.clips();
    const QStringList hidden = m_db.hiddenCollections();
    const QString query = m_search->text();
    const QString collection = m_collection->currentText().isEmpty() ? allCollectionsName : m_collection->currentText();
    // "My shortcuts" is the library through the collection filter: the filter names the section.
    const QString section = m_section == QLatin1String("My shortcuts") ? collection : m_section;
    const bool includeHidden = m_showHidden->isChecked();
    const QString category = m_category->currentText().isEmpty() ? allCategoriesName : m_category->currentText();
    const QList<CollectionDefinition> definitions = m_db.collectionDefinitions();
    const bool countTotal = m_totalStale;
    const int sortColumn = m_sortColumn;
    const Qt::SortOrder sortOrder = m_sortOrder;
    const std::shared_ptr<const SortedLibrary> lastSorted = m_sorted;
    m_watcher.setFuture(QtConcurrent::run([=, hook = workerHook()] {
        if (hook) {
            hook(query);
        }
        const auto listed = [&](const QString& search) {
            QList<qsizetype> positions =
                filterShortcutClipPositions(clips, hidden, search, section, collection, includeHidden);
            if (category != allCategoriesName) {
                CategoryTest inCategory(category, definitions);
                positions.removeIf([&](qsizetype position) { return !inCategory(clips.at(position)); });
            }
            return positions;
        };
        FilterRun run;
        run.generation = generation;
        run.query = query;
        run.source = clips;
        run.positions = listed(query);
        if (countTotal) {
            run.total = query.isEmpty() ? run.positions.size() : listed(QString()).size();
        }
        if (sortColumn >= 0) {
            run.sorted = lastSorted; // kept for the next search, even where this one does not sort
            // A batch request names its shortcuts in the order wanted: no column overrides that.
            if (!parseBatchTrigger(query)) {
                if (!run.sorted || !run.sorted->fits(clips, sortColumn, sortOrder)) {
                    run.sorted = sortedLibrary(clips, sortColumn, sortOrder);
                }
                run.positions = inOrderOf(run.positions, run.sorted->positions, clips.size());
            }
        }
        return run;
    }));
}

std::shared_ptr<const ShortcutListPage::SortedLibrary> ShortcutListPage::sortedLibrary(const QList<Clip>& clips,
                                                                                       int column, Qt::SortOrder order)
{
    static constexpr ShortcutSortKey keys[] = {ShortcutSortKey::Key, ShortcutSortKey::Name,
                                               ShortcutSortKey::Collection};
    auto sorted = std::make_shared<SortedLibrary>();
    sorted->source = clips;
    sorted->column = column;
    sorted->order = order;
    sorted->positions.resize(clips.size());
    std::iota(sorted->positions.begin(), sorted->positions.end(), qsizetype(0));
    sortShortcutClipPositions(sorted->positions, clips, keys[qBound(0, column, 2)], order);
    return sorted;
}

void ShortcutListPage::takeResult()
{
    FilterRun run = m_watcher.future().takeResult();
    if (run.generation != m_generation) {
        releaseOffThread(std::move(run.source));
        // Its sorted library is the newest there is; the next run checks that it still fits.
        if (run.sorted) {
            releaseOffThread(std::exchange(m_sorted, std::move(run.sorted)));
        }
        return; // a newer run is on its way
    }
    m_filtering = false;
    m_hasResult = true;
    if (run.total >= 0) {
        m_total = run.total;
        m_totalStale = false;
    }
    releaseOffThread(std::exchange(m_source, std::move(run.source)));
    m_positions = std::move(run.positions);
    m_shownQuery = run.query;
    releaseOffThread(std::exchange(m_sorted, std::move(run.sorted)));
    m_page = qBound(0, m_page, pageCount() - 1);
    showPage();
    emit filtered();
}

void ShortcutListPage::clear()
{
    ++m_generation;
    m_filtering = false;
    m_hasResult = false;
    m_totalStale = true;
    m_total = 0;
    releaseOffThread(std::exchange(m_source, {}));
    m_positions.clear();
    m_shownQuery.clear();
    releaseOffThread(std::exchange(m_sorted, {}));
    m_page = 0;
    showPage();
}

QList<Clip> ShortcutListPage::pagedClips() const
{
    QList<Clip> page;
    for (const qsizetype position : m_positions.mid(qsizetype(m_page) * pageSize, pageSize)) {
        page.append(m_source.at(position));
    }
    return page;
}

QList<Clip> ShortcutListPage::visibleClips() const
{
    QList<Clip> clips;
    clips.reserve(m_positions.size());
    for (const qsizetype position : m_positions) {
        clips.append(m_source.at(position));
    }
    return clips;
}

int ShortcutListPage::pageCount() const
{
    return qMax(1, int((m_positions.size() + pageSize - 1) / pageSize));
}

void ShortcutListPage::setCurrentPage(int page)
{
    const int bounded = qBound(0, page, pageCount() - 1);
    if (bounded != m_page) {
        m_page = bounded;
        showPage();
        m_view->scrollToTop();
    }
}

void ShortcutListPage::showPage()
{
    // The same shortcuts stay selected through a refresh, wherever their rows are now.
    QSet<QUuid> selected;
    for (const Clip& clip : selectedClips()) {
        selected.insert(clip.id);
    }
    m_model->setClips(pagedClips());
    if (!selected.isEmpty()) {
        QItemSelection reselect;
        const QList<Clip>& rows = m_model->clips();
        for (int row = 0; row < rows.size(); ++row) {
            if (selected.contains(rows.at(row).id)) {
                reselect.select(m_model->index(row, 0), m_model->index(row, ShortcutTableModel::ColumnCount - 1));
            }
        }
        m_view->selectionModel()->select(reselect, QItemSelectionModel::Select);
    }
    showCounts();
    m_previous->setEnabled(m_page > 0);
    m_next->setEnabled(m_page + 1 < pageCount());
    updateEmptyState();
    updateActions();
}

void ShortcutListPage::showCounts()
{
    m_pageLabel->setText(QStringLiteral("Page %1 of %2").arg(m_page + 1).arg(pageCount()));
    m_count->setText(m_shownQuery.isEmpty()
                         ? shortcutsText(m_positions.size())
                         : QStringLiteral("%1 of %2").arg(m_positions.size()).arg(shortcutsText(m_total)));
}

QString ShortcutListPage::newShortcutGroup() const
{
    if (m_section == QLatin1String("Shortcut ideas")) {
        return QStringLiteral("Ideas");
    }
    if (m_section == QLatin1String("Sound & media")) {
        return {}; // what makes a media shortcut is its file, not a collection
    }
    if (m_section == QLatin1String("My shortcuts") || m_section == QLatin1String("Collections")) {
        const QString collection = m_collection->currentText();
        return collection == allCollectionsName ? QString() : collection;
    }
    return m_section;
}

void ShortcutListPage::updateEmptyState()
{
    if (!m_hasResult || !m_positions.isEmpty()) {
        m_stack->setCurrentWidget(m_view);
        return;
    }
    if (!m_shownQuery.isEmpty()) {
        m_noMatch->setSentence(
            parseBatchTrigger(m_shownQuery)
                ? QStringLiteral("None of the keys in “%1” is a shortcut here.").arg(m_shownQuery)
                : QStringLiteral("No shortcut here has “%1” in its key, name or text.").arg(m_shownQuery));
        m_stack->setCurrentWidget(m_noMatch);
        return;
    }
    const QString group = newShortcutGroup();
    if (m_section == QLatin1String("Shortcut ideas")) {
        m_emptySection->setTitle(QStringLiteral("No shortcut ideas yet"));
        m_emptySection->setSentence(QStringLiteral("Shortcuts you keep in the Ideas collection are listed here."));
    } else if (m_section == QLatin1String("Live & dynamic")) {
        m_emptySection->setTitle(QStringLiteral("No live shortcuts yet"));
        m_emptySection->setSentence(
            QStringLiteral("Shortcuts whose text holds live tokens, such as {{date}}, are listed here."));
    } else if (m_section == QLatin1String("Sound & media")) {
        m_emptySection->setTitle(QStringLiteral("No media shortcuts yet"));
        m_emptySection->setSentence(
            QStringLiteral("Shortcuts that paste an image, a sound or a file are listed here."));
    } else if (!group.isEmpty()) {
        m_emptySection->setTitle(QStringLiteral("No shortcuts in %1").arg(group));
        m_emptySection->setSentence(QStringLiteral("Add one, or move shortcuts here from another collection."));
    } else {
        m_emptySection->setTitle(QStringLiteral("No shortcuts yet"));
        m_emptySection->setSentence(QStringLiteral("Add one, then type its key and a space in any application."));
    }
    m_stack->setCurrentWidget(m_emptySection);
}

void ShortcutListPage::updateActions()
{
    const bool any = m_view->selectionModel()->hasSelection();
    const std::optional<Clip> current = currentClip();
    m_deleteSelected->setEnabled(any);
    m_moveSelected->setEnabled(any);
    m_renameSelected->setEnabled(any);
    m_moveAction->setEnabled(any);
    m_deleteAction->setEnabled(any);
    m_editAction->setEnabled(current.has_value());
    m_copyAction->setEnabled(current && (!current->text.isEmpty() || current->webURL));
}

void ShortcutListPage::applyLook()
{
    const QFont keyFont = design::fixedFont(m_view->font());
    m_model->setKeyFont(keyFont);
    const QFontMetrics metrics(m_view->font());
    const int line = qMax(metrics.height(), QFontMetrics(keyFont).height());
    QHeaderView* rows = m_view->verticalHeader();
    rows->setMinimumSectionSize(line);
    rows->setDefaultSectionSize(line + design::step(this));
    m_view->setIconSize(QSize(line, line));
    // The longest collection name the library ships fits with its "+n"; longer ones elide.
    const int padding = 2 * design::step(this);
    m_view->setColumnWidth(ShortcutTableModel::NameColumn, metrics.averageCharWidth() * 28 + padding);
    m_view->setColumnWidth(ShortcutTableModel::CollectionColumn,
                           metrics.horizontalAdvance(QStringLiteral("Websites & URLs +2")) + padding);
    applyPalette();
}

void ShortcutListPage::applyPalette()
{
    QPalette quiet = m_count->palette();
    quiet.setColor(QPalette::WindowText, design::secondaryText(palette()));
    m_count->setPalette(quiet);
}

void ShortcutListPage::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) {
        applyLook();
    } else if (event->type() == QEvent::PaletteChange) {
        applyPalette();
    }
    QWidget::changeEvent(event);
}

void ShortcutListPage::showContextMenu(const QPoint& position)
{
    if (!m_view->indexAt(position).isValid()) {
        return;
    }
    updateActions();
    m_menu->popup(m_view->viewport()->mapToGlobal(position));
}

std::optional<Clip> ShortcutListPage::currentClip() const
{
    const QModelIndex current = m_view->currentIndex();
    const QItemSelectionModel* selection = m_view->selectionModel();
    if (current.isValid() && selection->isRowSelected(current.row())) {
        return m_model->clips().at(current.row());
    }
    const QModelIndexList rows = selection->selectedRows();
    if (!rows.isEmpty()) {
        return m_model->clips().at(rows.first().row());
    }
    return std::nullopt;
}

void ShortcutListPage::editCurrent()
{
    if (const std::optional<Clip> clip = currentClip()) {
        emit editRequested(*clip);
    }
}

void ShortcutListPage::copyCurrentText()
{
    const std::optional<Clip> clip = currentClip();
    if (!clip) {
        return;
    }
    const QString text = clip->text.isEmpty() ? clip->webURL.value_or(QString()) : clip->text;
    if (text.isEmpty()) {
        return;
    }
    QGuiApplication::clipboard()->setText(text);
    emit noticeRequested(QStringLiteral("Copied the text of %1.").arg(displayTrigger(clip->key)));
}

QList<Clip> ShortcutListPage::selectedClips() const
{
    const QList<Clip>& rows = m_model->clips();
    QList<Clip> selected;
    for (const QModelIndex& index : m_view->selectionModel()->selectedRows()) {
        if (index.row() < rows.size()) {
            selected << rows.at(index.row());
        }
    }
    return selected;
}

void ShortcutListPage::deleteSelected()
{
    confirmAndDelete(selectedClips());
}

void ShortcutListPage::confirmAndDelete(const QList<Clip>& selected)
{
    if (selected.isEmpty()) {
        return;
    }
    QMessageBox confirm(QMessageBox::Question, QStringLiteral("Delete"),
                        selected.size() == 1 ? deleteShortcutQuestion : deleteSelectedShortcutsQuestion,
                        QMessageBox::Yes | QMessageBox::Cancel, this);
    if (selected.size() == 1) {
        confirm.setInformativeText(deleteShortcutDetail(displayTrigger(selected.first().key)));
    }
    if (confirm.exec() != QMessageBox::Yes) {
        return;
    }
    QSet<QUuid> ids;
    for (const Clip& clip : selected) {
        ids.insert(clip.id);
    }
    deleteClips(ids);
}

void ShortcutListPage::moveSelected()
{
    const QList<Clip> selected = selectedClips();
    if (selected.isEmpty()) {
        return;
    }
    QDialog sheet(this);
    sheet.setWindowTitle(QStringLiteral("Move shortcuts"));
    auto* mode = new QComboBox(&sheet);
    for (const BulkAssignmentMode each : {BulkAssignmentMode::Move, BulkAssignmentMode::AddTo}) {
        mode->addItem(bulkAssignmentModeText(each), int(each));
    }
    auto* names = new QListWidget(&sheet);
    for (const QString& collection : m_db.collections()) {
        auto* item = new QListWidgetItem(collection, names);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Unchecked);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &sheet);
    connect(buttons, &QDialogButtonBox::accepted, &sheet, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &sheet, &QDialog::reject);
    auto* layout = new QVBoxLayout(&sheet);
    layout->addWidget(new QLabel(QStringLiteral("%1 selected").arg(selected.size()), &sheet));
    layout->addWidget(mode);
    layout->addWidget(names);
    layout->addWidget(buttons);
    if (sheet.exec() != QDialog::Accepted) {
        return;
    }
    QStringList chosen;
    for (int row = 0; row < names->count(); ++row) {
        if (names->item(row)->checkState() == Qt::Checked) {
            chosen << names->item(row)->text();
        }
    }
    QSet<QUuid> ids;
    for (const Clip& clip : selected) {
        ids.insert(clip.id);
    }
    QList<Clip> clips = m_db.clips();
    if (applyBulkCollectionChange(clips, ids, BulkAssignmentMode(mode->currentData().toInt()), chosen) > 0) {
        m_db.setClips(std::move(clips));
        m_db.save();
        emit noticeRequested(movedShortcutsMessage(chosen));
    }
}

void ShortcutListPage::renameSelected()
{
    const QList<Clip> selected = selectedClips();
    if (selected.isEmpty()) {
        return;
    }
    QStringList keys;
    for (const Clip& clip : m_db.clips()) {
        keys << clip.key;
    }
    BulkRenameSheet sheet(selected, keys, this);
    if (sheet.exec() != QDialog::Accepted) {
        return;
    }
    QList<Clip> clips = m_db.clips();
    const int changed = applyShortcutRenames(clips, sheet.renames());
    if (changed > 0) {
        m_db.setClips(std::move(clips));
        m_db.save();
    }
    emit noticeRequested(BulkShortcutRename::renamedMessage(changed));
}

void ShortcutListPage::deleteClips(const QSet<QUuid>& ids)
{
    QList<Clip> clips = m_db.clips();
    clips.removeIf([&](const Clip& clip) { return ids.contains(clip.id); });
    m_db.setClips(std::move(clips));
    m_db.save();
    emit noticeRequested(ids.size() == 1 ? QStringLiteral("Shortcut deleted.")
                                         : QStringLiteral("%1 shortcuts deleted.").arg(ids.size()));
}

} // namespace tavo
