#pragma once

#include "store/collection_rules.h"

#include <QDialog>
#include <QMap>

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QTreeWidget;
class QWidget;

// The sheets of the collection library. Each drives one of the store's editors: it shows the
// editor's fields and refusals, and on accept() stores what the editor allows in the DB, so a
// refusal writes nothing.
namespace tavo {

class DB;
class InlineMessage;

// A new collection, or the description, fields and category of an existing one. Its name is
// fixed once it exists: renaming is the rename sheet's.
class CollectionDefinitionSheet : public QDialog
{
    Q_OBJECT

public:
    // `editing` empty: a new collection.
    explicit CollectionDefinitionSheet(DB& db, const QString& editing = {}, QWidget* parent = nullptr);

    CollectionDefinitionEditor editor() const;
    bool canSave() const;
    void accept() override;

signals:
    void collectionSaved(const QString& name);
    // "Open existing collection": the library selects it.
    void openExistingRequested(const QString& name);

private:
    void update();

    DB& m_db;
    QString m_editing;
    QString m_id;
    QLineEdit* m_name;
    QLineEdit* m_description;
    QLineEdit* m_fields;
    QComboBox* m_category;
    InlineMessage* m_taken;
    QPushButton* m_openExisting;
    QPushButton* m_openInBuilder;
    QPushButton* m_save;
};

// One record of a collection: its name, alias and the definition's fields.
class CollectionRecordSheet : public QDialog
{
    Q_OBJECT

public:
    // `recordId` empty: a new record.
    CollectionRecordSheet(DB& db, const QString& collection, const QString& recordId = {}, QWidget* parent = nullptr);

    QLineEdit* valueField(const QString& fieldName) const { return m_values.value(fieldName); }
    QString error() const;
    void accept() override;
    // Asks first; then removes the record and closes.
    void deleteRecord();

signals:
    void recordSaved(const QString& alias);

private:
    std::optional<CollectionRecord> editing() const;

    DB& m_db;
    CollectionDefinition m_definition;
    QString m_recordId;
    QLineEdit* m_name;
    QLineEdit* m_alias;
    QMap<QString, QLineEdit*> m_values;
    InlineMessage* m_error;
};

class CollectionRenameSheet : public QDialog
{
    Q_OBJECT

public:
    CollectionRenameSheet(DB& db, const QString& collection, QWidget* parent = nullptr);

    QString error() const;
    void accept() override;

signals:
    void collectionRenamed(const QString& from, const QString& to);

private:
    DB& m_db;
    QString m_collection;
    QLineEdit* m_name;
    InlineMessage* m_error;
};

// The user's own categories, and the category of each custom collection.
class CollectionCategorySheet : public QDialog
{
    Q_OBJECT

public:
    explicit CollectionCategorySheet(DB& db, QWidget* parent = nullptr);

    // "Add your own category…": stored at once; a blank or known name is ignored.
    bool addCategory(const QString& name);
    QComboBox* categoryChoice(const QString& collection) const { return m_choices.value(collection); }
    // Stores the chosen categories of custom collections.
    void accept() override;

private:
    void fillChoices();

    DB& m_db;
    QStringList m_custom;
    QListWidget* m_categories;
    QLineEdit* m_newCategory;
    QTreeWidget* m_collections;
    QMap<QString, QComboBox*> m_choices;
};

// The list of collection names and which of them are hidden.
class CollectionManagerSheet : public QDialog
{
    Q_OBJECT

public:
    explicit CollectionManagerSheet(DB& db, QWidget* parent = nullptr);

    QStringList names() const;
    QStringList hiddenNames() const;
    // Each gives whether it took the change; a refusal is shown in the sheet.
    bool addName(const QString& name);
    bool removeName(const QString& name);
    void setHidden(const QString& name, bool hidden);
    QString message() const;
    void accept() override;

private:
    int rowOf(const QString& name) const;
    void updateRemove();

    DB& m_db;
    QTreeWidget* m_list;
    QLineEdit* m_newName;
    QPushButton* m_remove;
    InlineMessage* m_message;
};

} // namespace tavo
