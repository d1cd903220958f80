#pragma once

#include <QFrame>

class QLabel;
class QPushButton;

namespace tavo {

class TavoBrowserTabs;

// The browser's status lines (import and download outcomes) with "Dismiss", and "Show in folder"
// once a download has landed.
class BrowserStatusStrip : public QFrame
{
    Q_OBJECT

public:
    explicit BrowserStatusStrip(TavoBrowserTabs& state, QWidget* parent = nullptr);

    QString text() const;
    bool canShowInFolder() const;

    // Shows a file in the desktop's file manager (its FileManager1 interface), else opens its folder.
    static void showInFolder(const QString& fileURL);

private:
    void follow();

    TavoBrowserTabs& m_state;
    QLabel* m_text;
    QPushButton* m_showInFolder;
    QPushButton* m_dismiss;
};

} // namespace tavo
