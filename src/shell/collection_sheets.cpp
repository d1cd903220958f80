#include "shell/collection_sheets.h"

#include "shell/ui/design.h"
#include "shell/ui/inline_message.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace tavo {

namespace {

QLabel* noteLabel(const QString& text, QWidget* parent)
{
    auto* note = new QLabel(text, parent);
    note->setWordWrap(true);
    QPalette quiet = note->palette();
    quiet.setColor(QPalette::WindowText, design::secondaryText(parent->palette()));
    note->setPalette(quiet);
    return note;
}

// Sheets with lists open big enough to read a dozen rows, in the font's own units.
void sizeForLists(QDialog* sheet)
{
    const QFontMetrics metrics(sheet->font());
    sheet->resize(metrics.averageCharWidth() * 64, metrics.height() * 32);
}

QStringList customCategories(const Defaults& defaults)
{
    return defaults.stringList(customCategoriesDefaultsKey).value_or(QStringList());
}

QDialogButtonBox* saveAndCancel(QDialog* sheet, QPushButton** save, const QString& saveText = QStringLiteral("Save"))
{
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, sheet);
    *save = buttons->addButton(saveText, QDialogButtonBox::AcceptRole);
    (*save)->setObjectName(QStringLiteral("save"));
    (*save)->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, sheet, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, sheet, &QDialog::reject);
    return buttons;
}

} // namespace

// Definition editor

CollectionDefinitionSheet::CollectionDefinitionSheet(DB& db, const QString& editing, QWidget* parent)
    : QDialog(parent)
    , m_db(db)
    , m_editing(editing)
    , m_name(new QLineEdit(this))
    , m_description(new QLineEdit(this))
    , m_fields(new QLineEdit(this))
    , m_category(new QComboBox(this))
    , m_taken(new InlineMessage(this))
    , m_openExisting(new QPushButton(openExistingCollectionText, this))
    , m_openInBuilder(new QPushButton(openExistingInBuilderText, this))
{
    setWindowTitle(editing.isEmpty() ? QStringLiteral("New collection") : QStringLiteral("Edit collection"));
    m_name->setObjectName(QStringLiteral("collectionName"));
    m_description->setObjectName(QStringLiteral("collectionDescription"));
    m_fields->setObjectName(QStringLiteral("collectionFields"));
    m_category->setObjectName(QStringLiteral("collectionCategory"));
    m_taken->setObjectName(QStringLiteral("nameTaken"));
    m_openExisting->setObjectName(QStringLiteral("openExisting"));
    m_openInBuilder->setObjectName(QStringLiteral("openExistingInBuilder"));
    // There is no builder yet to open it in.
    m_openInBuilder->setEnabled(false);

    CollectionDefinitionEditor editor;
    if (!editing.isEmpty()) {
        const CollectionDefinition* stored = findCollectionDefinition(m_db.collectionDefinitions(), editing);
        editor = definitionEditorFor(stored ? *stored : CollectionDefinition::emptyFor(editing));
        editor.name = editing;
        m_id = stored ? stored->id : QString();
        m_name->setReadOnly(true);
    }
    m_name->setText(editor.name);
    m_description->setText(editor.description);
    m_fields->setText(editor.fieldsText);
    m_category->addItems(CollectionDefinitionEditor::categoryChoices(customCategories(m_db.defaults())));
    m_category->setCurrentIndex(qMax(0, m_category->findText(editor.category)));

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Name"), m_name);
    form->addRow(QStringLiteral("Description"), m_description);
    form->addRow(QStringLiteral("Fields"), m_fields);
    form->addRow(QStringLiteral("Category"), m_category);
    auto* taken = new QHBoxLayout;
    taken->addStretch();
    taken->addWidget(m_openExisting);
    taken->addWidget(m_openInBuilder);
    auto* buttons = saveAndCancel(this, &m_save);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(design::step(this));
    layout->addLayout(form);
    layout->addWidget(noteLabel(QStringLiteral("Fields are separated by commas; each record fills them in."), this));
    layout->addWidget(m_taken);
    layout->addLayout(taken);
    layout->addWidget(buttons);

    connect(m_name, &QLineEdit::textChanged, this, &CollectionDefinitionSheet::update);
    connect(m_openExisting, &QPushButton::clicked, this, [this] {
        // The stored spelling, so the library finds the row.
        const QString typed = m_name->text().trimmed();
        QString existing = typed;
        for (const QString& name : m_db.collections()) {
            if (name.compare(typed, Qt::CaseInsensitive) == 0) {
                existing = name;
                break;
            }
        }
        emit openExistingRequested(existing);
        reject();
    });
    update();
}

CollectionDefinitionEditor CollectionDefinitionSheet::editor() const
{
    CollectionDefinitionEditor editor;
    editor.id = m_id;
    editor.name = m_editing.isEmpty() ? m_name->text() : m_editing;
    editor.description = m_description->text();
    editor.fieldsText = m_fields->text();
    editor.category = m_category->currentText();
    return editor;
}

bool CollectionDefinitionSheet::canSave() const
{
    const CollectionDefinitionEditor form = editor();
    return form.canSave() && (!m_editing.isEmpty() || !form.nameExists(m_db.collections()));
}

void CollectionDefinitionSheet::update()
{
    const bool taken = m_editing.isEmpty() && editor().nameExists(m_db.collections());
    m_taken->showMessage(taken ? QStringLiteral("A collection with that name already exists.") : QString(),
                         InlineMessage::Kind::Warning);
    m_openExisting->setVisible(taken);
    m_openInBuilder->setVisible(taken);
    m_save->setEnabled(canSave());
}

void CollectionDefinitionSheet::accept()
{
    if (!canSave()) {
        return;
    }
    const CollectionDefinition definition = editor().save();
    QList<CollectionDefinition> definitions = m_db.collectionDefinitions();
    definitions.removeIf([&](const CollectionDefinition& stored) {
        return stored.name.compare(definition.name, Qt::CaseInsensitive) == 0;
    });
    definitions.append(definition);
    if (m_editing.isEmpty()) {
        m_db.setCollections(m_db.collections() + QStringList{definition.name});
    }
    m_db.setCollectionDefinitions(std::move(definitions));
    m_db.saveCollectionLibrary();
    emit collectionSaved(definition.name);
    QDialog::accept();
}

// Record editor

CollectionRecordSheet::CollectionRecordSheet(DB& db, const QString& collection, const QString& recordId,
                                             QWidget* parent)
    : QDialog(parent)
    , m_db(db)
    , m_recordId(recordId)
    , m_name(new QLineEdit(this))
    , m_alias(new QLineEdit(this))
    , m_error(new InlineMessage(this))
{
    const CollectionDefinition* stored = findCollectionDefinition(m_db.collectionDefinitions(), collection);
    m_definition = stored ? *stored : CollectionDefinition::emptyFor(collection);
    const std::optional<CollectionRecord> record = editing();
    setWindowTitle(record ? QStringLiteral("Edit record") : QStringLiteral("New record in %1").arg(collection));
    m_name->setObjectName(QStringLiteral("recordName"));
    m_alias->setObjectName(QStringLiteral("recordAlias"));
    m_error->setObjectName(QStringLiteral("recordError"));

    const CollectionRecordEditor form = CollectionRecordEditor::forRecord(m_definition, record ? &*record : nullptr);
    m_name->setText(form.name);
    m_alias->setText(form.alias);
    auto* fields = new QFormLayout;
    fields->addRow(QStringLiteral("Name"), m_name);
    fields->addRow(QStringLiteral("Shortcut alias"), m_alias);
    for (const QString& field : CollectionRecordEditor::fieldNames(m_definition)) {
        auto* edit = new QLineEdit(form.values.value(field), this);
        edit->setObjectName(QStringLiteral("recordValue"));
        fields->addRow(field, edit);
        m_values.insert(field, edit);
    }

    QPushButton* save = nullptr;
    auto* buttons = saveAndCancel(this, &save);
    if (record) {
        auto* remove = buttons->addButton(QStringLiteral("Delete record…"), QDialogButtonBox::DestructiveRole);
        remove->setObjectName(QStringLiteral("deleteRecord"));
        remove->setIcon(design::icon(QStringLiteral("edit-delete")));
        connect(remove, &QPushButton::clicked, this, &CollectionRecordSheet::deleteRecord);
    }
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(design::step(this));
    layout->addWidget(m_error);
    layout->addLayout(fields);
    layout->addWidget(buttons);
}

std::optional<CollectionRecord> CollectionRecordSheet::editing() const
{
    if (m_recordId.isEmpty()) {
        return std::nullopt;
    }
    for (const CollectionRecord& record : m_db.collectionRecords()) {
        if (record.id == m_recordId) {
            return record;
        }
    }
    return std::nullopt;
}

QString CollectionRecordSheet::error() const
{
    return m_error->isVisibleTo(this) ? m_error->text() : QString();
}

void CollectionRecordSheet::accept()
{
    CollectionRecordEditor form;
    form.name = m_name->text();
    form.alias = m_alias->text();
    for (auto it = m_values.cbegin(); it != m_values.cend(); ++it) {
        form.values.insert(it.key(), it.value()->text());
    }
    const std::optional<CollectionRecord> record = editing();
    QList<CollectionRecord> records = m_db.collectionRecords();
    const std::optional<CollectionRecord> saved = form.save(m_definition, records, record ? &*record : nullptr);
    if (!saved) {
        m_error->showMessage(form.error, InlineMessage::Kind::Error);
        return;
    }
    const auto at = std::find_if(records.begin(), records.end(),
                                 [&](const CollectionRecord& each) { return each.id == saved->id; });
    if (at != records.end()) {
        *at = *saved;
    } else {
        records.append(*saved);
    }
    m_db.setCollectionRecords(std::move(records));
    m_db.saveCollectionLibrary();
    emit recordSaved(saved->alias);
    QDialog::accept();
}

void CollectionRecordSheet::deleteRecord()
{
    const std::optional<CollectionRecord> record = editing();
    if (!record) {
        return;
    }
    QMessageBox confirm(QMessageBox::Question, QStringLiteral("Delete"), deleteRecordQuestion,
                        QMessageBox::Yes | QMessageBox::Cancel, this);
    confirm.setInformativeText(deleteShortcutDetail(record->name));
    if (confirm.exec() != QMessageBox::Yes) {
        return;
    }
    QList<CollectionRecord> records = m_db.collectionRecords();
    records.removeIf([&](const CollectionRecord& each) { return each.id == record->id; });
    m_db.setCollectionRecords(std::move(records));
    m_db.saveCollectionLibrary();
    QDialog::accept();
}

// Rename

CollectionRenameSheet::CollectionRenameSheet(DB& db, const QString& collection, QWidget* parent)
    : QDialog(parent)
    , m_db(db)
    , m_collection(collection)
    , m_name(new QLineEdit(collection, this))
    , m_error(new InlineMessage(this))
{
    setWindowTitle(QStringLiteral("Rename collection"));
    m_name->setObjectName(QStringLiteral("collectionName"));
    m_error->setObjectName(QStringLiteral("renameError"));
    m_name->selectAll();
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Name"), m_name);
    QPushButton* rename = nullptr;
    auto* buttons = saveAndCancel(this, &rename, QStringLiteral("Rename"));
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(design::step(this));
    layout->addWidget(m_error);
    layout->addLayout(form);
    layout->addWidget(noteLabel(collectionRenameNote, this));
    layout->addWidget(buttons);
}

QString CollectionRenameSheet::error() const
{
    return m_error->isVisibleTo(this) ? m_error->text() : QString();
}

void CollectionRenameSheet::accept()
{
    const QString to = m_name->text().trimmed();
    if (const std::optional<QString> refusal = validateCollectionRename(to, m_collection, m_db.collections())) {
        m_error->showMessage(*refusal, InlineMessage::Kind::Error);
        return;
    }
    if (to != m_collection) {
        m_db.renameCollection(m_collection, to);
        emit collectionRenamed(m_collection, to);
    }
    QDialog::accept();
}

// Category manager

CollectionCategorySheet::CollectionCategorySheet(DB& db, QWidget* parent)
    : QDialog(parent)
    , m_db(db)
    , m_custom(customCategories(db.defaults()))
    , m_categories(new QListWidget(this))
    , m_newCategory(new QLineEdit(this))
    , m_collections(new QTreeWidget(this))
{
    setWindowTitle(QStringLiteral("Categories"));
    m_categories->setObjectName(QStringLiteral("categories"));
    m_newCategory->setObjectName(QStringLiteral("newCategory"));
    m_collections->setObjectName(QStringLiteral("collectionCategories"));
    m_categories->setAccessibleName(QStringLiteral("Categories"));
    m_collections->setAccessibleName(QStringLiteral("Collections by category"));
    m_newCategory->setPlaceholderText(addCategoryText);
    design::name(m_newCategory, addCategoryText);
    auto* add = new QPushButton(design::icon(QStringLiteral("list-add")), QStringLiteral("Add"), this);
    add->setObjectName(QStringLiteral("addCategory"));
    design::name(add, QStringLiteral("Add category"));
    connect(add, &QPushButton::clicked, this, [this] {
        if (addCategory(m_newCategory->text())) {
            m_newCategory->clear();
        }
    });
    connect(m_newCategory, &QLineEdit::returnPressed, add, &QPushButton::click);

    m_collections->setHeaderLabels({QStringLiteral("Collection"), QStringLiteral("Category")});
    m_collections->setRootIsDecorated(false);
    m_collections->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    fillChoices();

    QPushButton* save = nullptr;
    auto* buttons = saveAndCancel(this, &save);
    auto* addRow = new QHBoxLayout;
    addRow->addWidget(m_newCategory, 1);
    addRow->addWidget(add);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(design::step(this));
    layout->addWidget(noteLabel(categoryManagerNote, this));
    layout->addWidget(m_categories);
    layout->addLayout(addRow);
    layout->addWidget(m_collections, 1);
    layout->addWidget(buttons);
    sizeForLists(this);
}

void CollectionCategorySheet::fillChoices()
{
    m_categories->clear();
    m_categories->addItems(allCollectionCategories(m_custom));
    const QStringList choices = CollectionDefinitionEditor::categoryChoices(m_custom);
    const QList<CollectionDefinition>& definitions = m_db.collectionDefinitions();
    for (const QString& name : m_db.collections()) {
        QComboBox* choice = m_choices.value(name);
        const QString current =
            choice ? choice->currentText() : collectionCategory(name, findCollectionDefinition(definitions, name));
        if (!choice) {
            auto* row = new QTreeWidgetItem(m_collections, {name});
            row->setIcon(0, design::symbolIcon(collectionSymbol(name)));
            row->setData(1, Qt::AccessibleTextRole, QStringLiteral("Category of %1").arg(name));
            choice = new QComboBox(m_collections);
            design::name(choice, QStringLiteral("Category of %1").arg(name));
            m_collections->setItemWidget(row, 1, choice);
            m_choices.insert(name, choice);
        }
        const QSignalBlocker blocker(choice);
        choice->clear();
        if (current == systemGeneratedCategory) {
            // Built-in collections are locked where the automatic rule puts them.
            choice->addItem(design::icon(QStringLiteral("object-locked")), systemGeneratedCategory);
            choice->setEnabled(false);
            continue;
        }
        choice->addItems(choices);
        if (!choices.contains(current)) {
            choice->addItem(current);
        }
        choice->setCurrentText(current);
    }
}

bool CollectionCategorySheet::addCategory(const QString& name)
{
    if (!addCustomCategory(m_custom, name)) {
        return false;
    }
    m_db.defaults().setStringList(customCategoriesDefaultsKey, m_custom);
    fillChoices();
    return true;
}

void CollectionCategorySheet::accept()
{
    QList<CollectionDefinition> definitions = m_db.collectionDefinitions();
    bool changed = false;
    for (auto it = m_choices.cbegin(); it != m_choices.cend(); ++it) {
        if (!it.value()->isEnabled()) {
            continue;
        }
        const QString automatic = collectionCategory(it.key(), findCollectionDefinition(definitions, it.key()));
        // An untouched suggestion stays automatic; only a real choice is written.
        if (it.value()->currentText() != automatic) {
            changed = assignCollectionCategory(definitions, it.key(), it.value()->currentText()) || changed;
        }
    }
    if (changed) {
        m_db.setCollectionDefinitions(std::move(definitions));
        m_db.saveCollectionLibrary();
    }
    QDialog::accept();
}

// Collection manager

namespace {
enum ManagerColumn
{
    NameColumn,
    HiddenColumn
};
} // namespace

CollectionManagerSheet::CollectionManagerSheet(DB& db, QWidget* parent)
    : QDialog(parent)
    , m_db(db)
    , m_list(new QTreeWidget(this))
    , m_newName(new QLineEdit(this))
    , m_remove(new QPushButton(design::icon(QStringLiteral("list-remove")), QStringLiteral("Remove"), this))
    , m_message(new InlineMessage(this))
{
    setWindowTitle(QStringLiteral("Manage collections"));
    m_list->setObjectName(QStringLiteral("collections"));
    m_newName->setObjectName(QStringLiteral("newCollectionName"));
    m_remove->setObjectName(QStringLiteral("removeCollection"));
    m_message->setObjectName(QStringLiteral("managerMessage"));
    m_list->setAccessibleName(QStringLiteral("Collections"));
    m_newName->setPlaceholderText(QStringLiteral("New collection name"));
    design::name(m_newName, QStringLiteral("New collection name"));
    design::name(m_remove, QStringLiteral("Remove collection"));
    m_list->setHeaderLabels({QStringLiteral("Collection"), QStringLiteral("Hidden")});
    m_list->setRootIsDecorated(false);
    m_list->header()->setStretchLastSection(false);
    m_list->header()->setSectionResizeMode(NameColumn, QHeaderView::Stretch);
    for (const QString& name : m_db.collections()) {
        auto* row = new QTreeWidgetItem(m_list, {name});
        row->setIcon(NameColumn, design::symbolIcon(collectionSymbol(name)));
        row->setCheckState(HiddenColumn, m_db.isCollectionHidden(name) ? Qt::Checked : Qt::Unchecked);
        row->setData(HiddenColumn, Qt::AccessibleTextRole, QStringLiteral("%1 hidden").arg(name));
    }
    auto* add = new QPushButton(design::icon(QStringLiteral("list-add")), QStringLiteral("Add"), this);
    add->setObjectName(QStringLiteral("addCollection"));
    design::name(add, QStringLiteral("Add collection"));
    connect(add, &QPushButton::clicked, this, [this] {
        if (addName(m_newName->text())) {
            m_newName->clear();
        }
    });
    connect(m_newName, &QLineEdit::returnPressed, add, &QPushButton::click);
    connect(m_remove, &QPushButton::clicked, this, [this] {
        if (QTreeWidgetItem* row = m_list->currentItem()) {
            removeName(row->text(NameColumn));
        }
    });
    connect(m_list, &QTreeWidget::currentItemChanged, this, &CollectionManagerSheet::updateRemove);

    QPushButton* save = nullptr;
    auto* buttons = saveAndCancel(this, &save);
    auto* addRow = new QHBoxLayout;
    addRow->addWidget(m_newName, 1);
    addRow->addWidget(add);
    addRow->addWidget(m_remove);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(design::step(this));
    layout->addWidget(m_message);
    layout->addWidget(m_list, 1);
    layout->addLayout(addRow);
    layout->addWidget(buttons);
    sizeForLists(this);
    updateRemove();
}

int CollectionManagerSheet::rowOf(const QString& name) const
{
    for (int row = 0; row < m_list->topLevelItemCount(); ++row) {
        if (m_list->topLevelItem(row)->text(NameColumn).compare(name, Qt::CaseInsensitive) == 0) {
            return row;
        }
    }
    return -1;
}

QStringList CollectionManagerSheet::names() const
{
    QStringList names;
    for (int row = 0; row < m_list->topLevelItemCount(); ++row) {
        names << m_list->topLevelItem(row)->text(NameColumn);
    }
    return names;
}

QStringList CollectionManagerSheet::hiddenNames() const
{
    QStringList hidden;
    for (int row = 0; row < m_list->topLevelItemCount(); ++row) {
        const QTreeWidgetItem* item = m_list->topLevelItem(row);
        if (item->checkState(HiddenColumn) == Qt::Checked) {
            hidden << item->text(NameColumn);
        }
    }
    return hidden;
}

QString CollectionManagerSheet::message() const
{
    return m_message->isVisibleTo(this) ? m_message->text() : QString();
}

bool CollectionManagerSheet::addName(const QString& name)
{
    if (const std::optional<QString> refusal = validateCollectionRename(name, QString(), names())) {
        m_message->showMessage(*refusal, InlineMessage::Kind::Error);
        return false;
    }
    auto* row = new QTreeWidgetItem(m_list, {name.trimmed()});
    row->setIcon(NameColumn, design::symbolIcon(collectionSymbol(name.trimmed())));
    row->setCheckState(HiddenColumn, Qt::Unchecked);
    row->setData(HiddenColumn, Qt::AccessibleTextRole, QStringLiteral("%1 hidden").arg(name.trimmed()));
    m_message->showMessage(QString());
    return true;
}

bool CollectionManagerSheet::removeName(const QString& name)
{
    const int row = rowOf(name);
    if (row < 0) {
        return false;
    }
    if (const std::optional<QString> refusal = collectionRemovalRefusal(name, m_db.clips(), m_db.collectionRecords())) {
        m_message->showMessage(*refusal, InlineMessage::Kind::Warning);
        return false;
    }
    delete m_list->takeTopLevelItem(row);
    m_message->showMessage(QString());
    return true;
}

void CollectionManagerSheet::setHidden(const QString& name, bool hidden)
{
    if (const int row = rowOf(name); row >= 0) {
        m_list->topLevelItem(row)->setCheckState(HiddenColumn, hidden ? Qt::Checked : Qt::Unchecked);
    }
}

void CollectionManagerSheet::updateRemove()
{
    const QTreeWidgetItem* row = m_list->currentItem();
    if (!row) {
        m_remove->setEnabled(false);
        return;
    }
    const std::optional<QString> refusal =
        collectionRemovalRefusal(row->text(NameColumn), m_db.clips(), m_db.collectionRecords());
    m_remove->setEnabled(!refusal);
    // The button says why it cannot act, where the user looks.
    m_remove->setToolTip(refusal.value_or(QStringLiteral("Remove collection")));
    m_message->showMessage(refusal.value_or(QString()), InlineMessage::Kind::Information);
}

void CollectionManagerSheet::accept()
{
    const QStringList kept = names();
    const QStringList hidden = hiddenNames();
    if (kept != m_db.collections()) {
        QList<CollectionDefinition> definitions = m_db.collectionDefinitions();
        const qsizetype before = definitions.size();
        definitions.removeIf([&](const CollectionDefinition& definition) {
            return !kept.contains(definition.name, Qt::CaseInsensitive);
        });
        for (const QString& name : kept) {
            if (!findCollectionDefinition(definitions, name)) {
                definitions.append(CollectionDefinition::emptyFor(name));
            }
        }
        m_db.setCollections(kept);
        if (definitions.size() != before || definitions != m_db.collectionDefinitions()) {
            m_db.setCollectionDefinitions(std::move(definitions));
            m_db.saveCollectionLibrary();
        }
    }
    if (hidden != m_db.hiddenCollections()) {
        m_db.setHiddenCollections(hidden);
    }
    QDialog::accept();
}

} // namespace tavo
