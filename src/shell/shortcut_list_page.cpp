#include "shell/shortcut_list_page.h"

#include "shell/bulk_rename_sheet.h"
#include "store/collection_rules.h"
#include "store/collections.h"
#include "store/profile_store.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>
#include <QTableWidget>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace tavo {

namespace {

QString preview(const Clip& clip)
{
    if (clip.webURL) {
        return *clip.webURL;
    }
    QString text = clip.text.simplified();
    if (text.isEmpty() && !clip.files.isEmpty()) {
        text = clip.files.size() == 1 ? QStringLiteral("1 media file")
                                      : QStringLiteral("%1 media files").arg(clip.files.size());
    }
    return text.left(120);
}

} // namespace

ShortcutListPage::ShortcutListPage(DB& db, QWidget* parent)
    : QWidget(parent)
    , m_db(db)
    , m_title(new QLabel(this))
    , m_collection(new QComboBox(this))
    , m_category(new QComboBox(this))
    , m_showHidden(new QCheckBox(QStringLiteral("Show hidden"), this))
    , m_table(new QTableWidget(this))
    , m_previous(new QPushButton(QStringLiteral("‹ Previous"), this))
    , m_next(new QPushButton(QStringLiteral("Next ›"), this))
    , m_pageLabel(new QLabel(this))
    , m_deleteSelected(new QPushButton(QStringLiteral("Delete selected"), this))
    , m_moveSelected(new QPushButton(QStringLiteral("Move…"), this))
    , m_renameSelected(new QPushButton(QStringLiteral("Rename…"), this))
{
    m_renameSelected->setObjectName(QStringLiteral("renameSelected"));
    m_moveSelected->setObjectName(QStringLiteral("moveSelected"));
    m_collection->setObjectName(QStringLiteral("collectionFilter"));
    m_category->setObjectName(QStringLiteral("categoryFilter"));
    m_table->setObjectName(QStringLiteral("shortcuts"));
    m_previous->setObjectName(QStringLiteral("previousPage"));
    m_next->setObjectName(QStringLiteral("nextPage"));
    m_pageLabel->setObjectName(QStringLiteral("pageLabel"));
    m_deleteSelected->setObjectName(QStringLiteral("deleteSelected"));

    m_table->setColumnCount(4);
    m_table->setHorizontalHeaderLabels(
        {QStringLiteral("Key"), QStringLiteral("Name"), QStringLiteral("Collection"), QStringLiteral("Expands to")});
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->verticalHeader()->hide();
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setAlternatingRowColors(true);
    auto* deleteKey = new QShortcut(QKeySequence::Delete, m_table);
    connect(deleteKey, &QShortcut::activated, this, &ShortcutListPage::deleteSelected);

    auto* filters = new QHBoxLayout;
    filters->addWidget(m_collection);
    filters->addWidget(m_category);
    filters->addWidget(m_showHidden);
    filters->addStretch();
    filters->addWidget(m_renameSelected);
    filters->addWidget(m_moveSelected);
    filters->addWidget(m_deleteSelected);
    auto* pages = new QHBoxLayout;
    pages->addWidget(m_previous);
    pages->addStretch();
    pages->addWidget(m_pageLabel);
    pages->addStretch();
    pages->addWidget(m_next);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(filters);
    layout->addWidget(m_table);
    layout->addLayout(pages);

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
    connect(m_previous, &QPushButton::clicked, this, [this] { setCurrentPage(m_page - 1); });
    connect(m_next, &QPushButton::clicked, this, [this] { setCurrentPage(m_page + 1); });
    connect(m_deleteSelected, &QPushButton::clicked, this, &ShortcutListPage::deleteSelected);
    connect(m_table, &QTableWidget::itemSelectionChanged, this, [this] {
        m_deleteSelected->setEnabled(!m_table->selectedItems().isEmpty());
        m_moveSelected->setEnabled(!m_table->selectedItems().isEmpty());
        m_renameSelected->setEnabled(!m_table->selectedItems().isEmpty());
    });
    connect(m_renameSelected, &QPushButton::clicked, this, &ShortcutListPage::renameSelected);
    connect(m_moveSelected, &QPushButton::clicked, this, &ShortcutListPage::moveSelected);
    connect(m_table, &QTableWidget::cellDoubleClicked, this, [this](int row) {
        const QList<Clip> paged = pagedClips();
        if (row >= 0 && row < paged.size()) {
            emit editRequested(paged.at(row));
        }
    });
    connect(&m_watcher, &QFutureWatcher<std::pair<quint64, QList<Clip>>>::finished, this, [this] {
        auto [generation, clips] = m_watcher.result();
        if (generation != m_generation) {
            return; // a newer run is on its way
        }
        m_filtering = false;
        m_cache = std::move(clips);
        m_page = qBound(0, m_page, pageCount() - 1);
        showPage();
        emit filtered();
    });
    m_deleteSelected->setEnabled(false);
    m_moveSelected->setEnabled(false);
    m_renameSelected->setEnabled(false);
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

void ShortcutListPage::refreshVisibleClips()
{
    const quint64 generation = ++m_generation;
    m_filtering = true;
    // Copies share the lists: the worker reads them while the store may change its own.
    const QList<Clip> clips = m_db.clips();
    const QStringList hidden = m_db.hiddenCollections();
    const QString collection = m_collection->currentText().isEmpty() ? allCollectionsName : m_collection->currentText();
    // "My shortcuts" is the library through the collection filter: the filter names the section.
    const QString section = m_section == QLatin1String("My shortcuts") ? collection : m_section;
    const bool includeHidden = m_showHidden->isChecked();
    const QString category = m_category->currentText().isEmpty() ? allCategoriesName : m_category->currentText();
    const QList<CollectionDefinition> definitions = m_db.collectionDefinitions();
    if (m_watcher.isRunning()) {
        // Its result will be dropped; the next run starts once the watcher is free.
        connect(
            &m_watcher, &QFutureWatcher<std::pair<quint64, QList<Clip>>>::finished, this,
            [this, generation] {
                if (generation == m_generation) {
                    refreshVisibleClips();
                }
            },
            Qt::SingleShotConnection);
        return;
    }
    m_watcher.setFuture(QtConcurrent::run([=] {
        return std::pair{generation, filterClipsByCategory(filterShortcutClips(clips, hidden, QString(), section,
                                                                               collection, includeHidden),
                                                           category, definitions)};
    }));
}

void ShortcutListPage::clear()
{
    ++m_generation;
    m_filtering = false;
    m_cache.clear();
    m_page = 0;
    showPage();
}

QList<Clip> ShortcutListPage::pagedClips() const
{
    return m_cache.mid(qsizetype(m_page) * pageSize, pageSize);
}

int ShortcutListPage::pageCount() const
{
    return qMax(1, int((m_cache.size() + pageSize - 1) / pageSize));
}

void ShortcutListPage::setCurrentPage(int page)
{
    const int bounded = qBound(0, page, pageCount() - 1);
    if (bounded != m_page) {
        m_page = bounded;
        showPage();
    }
}

void ShortcutListPage::showPage()
{
    const QList<Clip> paged = pagedClips();
    m_table->clearSelection(); // a row number may now stand for another shortcut
    m_table->setRowCount(int(paged.size()));
    for (int row = 0; row < paged.size(); ++row) {
        const Clip& clip = paged.at(row);
        const QStringList cells = {displayTrigger(clip.key), clip.name, clip.group, preview(clip)};
        for (int column = 0; column < cells.size(); ++column) {
            m_table->setItem(row, column, new QTableWidgetItem(cells.at(column)));
        }
    }
    m_table->resizeColumnToContents(0);
    m_pageLabel->setText(
        QStringLiteral("Page %1 of %2 · %3 shortcuts").arg(m_page + 1).arg(pageCount()).arg(m_cache.size()));
    m_previous->setEnabled(m_page > 0);
    m_next->setEnabled(m_page + 1 < pageCount());
}

QList<Clip> ShortcutListPage::selectedClips() const
{
    const QList<Clip> paged = pagedClips();
    QList<Clip> selected;
    for (const QModelIndex& index : m_table->selectionModel()->selectedRows()) {
        if (index.row() < paged.size()) {
            selected << paged.at(index.row());
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
