#pragma once

#include "browser/web/browser_chrome_import.h"

#include <QHash>
#include <QPointer>
#include <QWidget>

class QComboBox;
class QLabel;
class QSplitter;
class QStackedWidget;
class QToolButton;

namespace tavo {

class BrowserAddressBar;
class BrowserDownloads;
class BrowserHomePage;
class BrowserMagnifierLens;
class BrowserPrivateGateSheet;
class BrowserStatusStrip;
class BrowserTabStrip;
class Defaults;
class EmptyState;
class TavoBrowserTabs;
class TavoWebView;
class WebProfiles;

// The built-in browser's screen: tab strip, address bar, status strip and the page area, which
// shows the Home page for the Home tab and otherwise the tab's web view in the current mode, made
// when the tab is first shown. With the split on, a second pane beside it shows the second tab;
// the address bar follows the pane that has the focus. The model lives elsewhere and outlives
// nothing here; the web profiles and downloads belong to the workspace.
class BrowserWorkspace : public QWidget
{
    Q_OBJECT

public:
    BrowserWorkspace(TavoBrowserTabs& tabs, Defaults& defaults, QWidget* parent = nullptr);
    ~BrowserWorkspace() override;

    // Opens `url` in a new tab, for website shortcuts and other sections.
    void openTavoBrowser(const QString& url);

    // The live view of a tab in the current mode, if it has been shown.
    TavoWebView* webView(const QString& tabID) const;
    TavoWebView* currentView() const;
    QWidget* currentPage() const;

    BrowserHomePage* homePage() const { return m_home; }
    BrowserAddressBar* addressBar() const { return m_addressBar; }
    BrowserStatusStrip* statusStrip() const { return m_status; }
    WebProfiles& profiles() const { return *m_profiles; }
    BrowserMagnifierLens* lens() const { return m_lens; }

    // The "Save link" sheet for the current page.
    void editBookmark();

    // The split: the current tab on the left, the second tab on the right.
    QSplitter* splitter() const { return m_splitter; }
    QLabel* primaryLabel() const { return m_primaryLabel; }
    QComboBox* secondTabPicker() const { return m_secondPicker; }
    QToolButton* swapTool() const { return m_swap; }
    QWidget* secondaryPage() const;
    TavoWebView* secondaryView() const;
    // The view that back, forward and reload act on: the focused pane's.
    TavoWebView* focusedView() const;
    // The second tab becomes the current one and the current one the second.
    void swapPanes();

    // Private Mode's gate, as the address bar opens it; null while none is open.
    void openPrivateGate();
    BrowserPrivateGateSheet* privateGate() const;

    // Asks for a Chrome bookmark file, reads it on another thread and merges it into the model,
    // which says how it went in its message. Tests answer the file dialog with their own chooser.
    void importChromeBookmarks();
    void setBookmarkFileChooser(ChooseBookmarkFile chooser);

signals:
    void chromeImportFinished();

private:
    void scheduleShow();
    void showCurrent();
    void showPage();
    void showSecondary();
    TavoWebView* viewIn(QStackedWidget* pages, const QString& tabID);
    void followFocus(QWidget* focused);
    void forgetReleasedViews();

    TavoBrowserTabs& m_state;
    Defaults& m_defaults;
    WebProfiles* m_profiles;
    BrowserDownloads* m_downloads;
    BrowserTabStrip* m_tabStrip;
    BrowserAddressBar* m_addressBar;
    BrowserStatusStrip* m_status;
    QStackedWidget* m_pages;
    BrowserHomePage* m_home;
    EmptyState* m_noTab;
    BrowserMagnifierLens* m_lens;
    QSplitter* m_splitter;
    QWidget* m_primaryPane;
    QLabel* m_primaryLabel;
    QWidget* m_secondaryPane;
    QComboBox* m_secondPicker;
    QToolButton* m_swap;
    QStackedWidget* m_secondPages;
    BrowserHomePage* m_secondHome;
    EmptyState* m_noSecond;
    bool m_secondaryFocused = false;
    QPointer<BrowserPrivateGateSheet> m_gate;
    ChooseBookmarkFile m_chooseBookmarkFile = chooseBookmarkFileInDialog;
    bool m_importing = false;
    // By identity: a tab has one view per mode, never shared between modes.
    QHash<QString, QPointer<TavoWebView>> m_views;
    bool m_showScheduled = false;
};

} // namespace tavo
