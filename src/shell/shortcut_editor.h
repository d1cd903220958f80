#pragma once

#include "language/shortcut_record.h"

#include <QDialog>

#include <optional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QMimeData;
class QPlainTextEdit;

namespace tavo {

class InlineMessage;

class DB;

// A draft shortcut from what the clipboard holds: files copied into Attachments, an image as a
// PNG there, the text trimmed. Its key is made from its name and kept apart from `clips`. Nothing
// when the clipboard holds none of these.
std::optional<Clip> clipboardDraft(const QMimeData* data, const QList<Clip>& clips, const QString& attachmentsDir);

// The key a draft named `name` gets: its letters and digits in lower case ("clip" when none),
// behind a slash, with a counter from 2 when another shortcut already has it.
QString draftKeyForName(const QString& name, const QList<Clip>& clips);

// The sheet that makes or edits one shortcut. Saving builds the record by the editor's rules:
// the key gets its collection's suffix, "Imported" stands in for no collection, and a blank
// name becomes the key.
class ShortcutEditor : public QDialog
{
    Q_OBJECT

public:
    // `chosen` is the shortcut to edit, or a draft; with no id in the store it is saved as new.
    ShortcutEditor(DB& db, const std::optional<Clip>& chosen, const QString& defaultGroup, QWidget* parent = nullptr);

    // The record as it would be saved now.
    Clip builtClip() const;
    void attachFiles(const QStringList& paths);

    void accept() override;

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    DB& m_db;
    Clip m_original; // what the form does not show (an application, a portrait's article) stays
    QUuid m_id;
    QLineEdit* m_key;
    QLineEdit* m_name;
    QPlainTextEdit* m_text;
    QLineEdit* m_url;
    QComboBox* m_group;
    QListWidget* m_groups;
    QListWidget* m_media;
    QCheckBox* m_directMedia;
    InlineMessage* m_problem;
};

} // namespace tavo
