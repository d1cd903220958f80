#pragma once

#include <QDialog>

class QComboBox;
class QLabel;
class QLineEdit;

namespace tavo {

class TavoBrowserTabs;

// The "Save link" sheet: name, address, tags, a note and the collection of a link to keep.
class BrowserBookmarkEditor : public QDialog
{
    Q_OBJECT

public:
    BrowserBookmarkEditor(TavoBrowserTabs& state, const QString& title, const QString& url, QWidget* parent = nullptr);

private:
    void save();

    TavoBrowserTabs& m_state;
    QString m_openedTitle;
    QLineEdit* m_name;
    QLineEdit* m_url;
    QLineEdit* m_tags;
    QLineEdit* m_note;
    QComboBox* m_collection;
};

} // namespace tavo
