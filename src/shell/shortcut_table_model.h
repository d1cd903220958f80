#pragma once

#include "language/shortcut_record.h"

#include <QAbstractTableModel>
#include <QFont>

namespace tavo {

// The rows of one page of the shortcut list. The page holds at most fifty clips, so the model
// works their cells out once when the page changes rather than on every paint.
class ShortcutTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column
    {
        KeyColumn,
        NameColumn,
        CollectionColumn,
        TextColumn,
        ColumnCount
    };
    enum Role
    {
        // The freedesktop name of the row's icon ("applications-internet", ...), empty without one.
        IconNameRole = Qt::UserRole + 1,
    };

    explicit ShortcutTableModel(QObject* parent = nullptr);

    void setClips(QList<Clip> clips);
    const QList<Clip>& clips() const { return m_clips; }
    // The font keys are shown in: the desktop's fixed-width font.
    void setKeyFont(const QFont& font);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    // "Personal", or "Personal +2" for a clip in three collections.
    static QString collectionsText(const Clip& clip);
    // One line of what the clip pastes: its text, its address, or how many media files it has.
    static QString previewText(const Clip& clip);
    // What a screen reader says for the row: key, name and preview.
    static QString accessibleText(const Clip& clip);
    static QString iconName(const Clip& clip);

private:
    struct Row
    {
        QString key;
        QString collections;
        QString allCollections;
        QString preview;
        QString fullText;
        QString accessible;
        QString iconName;
    };

    QList<Clip> m_clips;
    QList<Row> m_rows;
    QFont m_keyFont;
};

} // namespace tavo
