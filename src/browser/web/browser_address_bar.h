#pragma once

#include <QWidget>

#include <functional>

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QPushButton;
class QToolButton;

namespace tavo {

class TavoBrowserTabs;
class TavoWebView;

// Back, forward and reload on the focused pane's view, the address field, page zoom, the split
// tool, the saved-links menu (with the Chrome import), the incognito switch and Private Mode's
// gate and lock.
class BrowserAddressBar : public QWidget
{
    Q_OBJECT

public:
    using CurrentView = std::function<TavoWebView*()>;
    BrowserAddressBar(TavoBrowserTabs& state, CurrentView currentView, QWidget* parent = nullptr);

    QLineEdit* addressField() const { return m_address; }
    QToolButton* incognitoSwitch() const { return m_incognito; }
    QToolButton* splitTool() const { return m_split; }
    // Opens the gate outside Private Mode; the lock tool takes its place inside it.
    QToolButton* privateModeTool() const { return m_privateMode; }
    QToolButton* lockTool() const { return m_lock; }
    QToolButton* savedLinksTool() const { return m_links; }
    QPushButton* importTool() const { return m_import; }

    // In a split, the tab of the pane that has the focus when it is not the current tab: the
    // field shows and goes to its address instead. Empty follows the current tab.
    void setPaneTab(const QString& tabID);
    // The zoom popover: room for more controls below the page zoom.
    QWidget* zoomPanel() const { return m_zoomPanel; }

signals:
    void saveLinkRequested();
    void privateGateRequested();
    void chromeImportRequested();

private:
    void followAddress();
    void followMode();
    void followSplit();
    void navigate();
    void followZoom();
    void rebuildSavedLinks();
    void fillCollections();
    QWidget* makeZoomPanel();
    QWidget* makeSavedLinksPanel();

    TavoBrowserTabs& m_state;
    CurrentView m_currentView;
    QToolButton* m_back;
    QToolButton* m_forward;
    QToolButton* m_reload;
    QLineEdit* m_address;
    QToolButton* m_zoom;
    QPushButton* m_resetZoom = nullptr;
    QWidget* m_zoomPanel = nullptr;
    QToolButton* m_save;
    QToolButton* m_links;
    QLineEdit* m_linkSearch = nullptr;
    QComboBox* m_linkCollection = nullptr;
    QListWidget* m_linkList = nullptr;
    QLabel* m_noLinks = nullptr;
    bool m_linksShown = false;
    QPushButton* m_import = nullptr;
    QToolButton* m_split;
    QToolButton* m_incognito;
    QToolButton* m_privateMode;
    QToolButton* m_lock;
    QString m_paneTab;
};

} // namespace tavo
