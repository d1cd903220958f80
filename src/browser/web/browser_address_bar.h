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

// Back, forward and reload on the current tab's view, the address field, page zoom, the
// incognito switch and the saved-links menu.
class BrowserAddressBar : public QWidget
{
    Q_OBJECT

public:
    using CurrentView = std::function<TavoWebView*()>;
    BrowserAddressBar(TavoBrowserTabs& state, CurrentView currentView, QWidget* parent = nullptr);

    QLineEdit* addressField() const { return m_address; }
    QToolButton* incognitoSwitch() const { return m_incognito; }
    // The zoom popover: room for more controls below the page zoom.
    QWidget* zoomPanel() const { return m_zoomPanel; }

signals:
    void saveLinkRequested();

private:
    void followAddress();
    void followMode();
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
    QToolButton* m_incognito;
};

} // namespace tavo
