#pragma once

#include <QPointer>
#include <QString>
#include <QTimer>
#include <QWebEnginePage>
#include <QWebEngineView>

class QWebEngineNewWindowRequest;

namespace tavo {

class TavoBrowserTabs;
class WebProfiles;

// A page that goes to http and https addresses only in its main frame, and asks for uploads in
// the desktop's file dialog.
class TavoWebPage : public QWebEnginePage
{
    Q_OBJECT

public:
    TavoWebPage(QWebEngineProfile* profile, QObject* parent = nullptr);

protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override;
    QStringList chooseFiles(FileSelectionMode mode, const QStringList& oldFiles,
                            const QStringList& acceptedMimeTypes) override;
};

// The web view of one tab in one mode. It loads the tab's address when that is http or https,
// writes the page's title and address back to the model when a load finishes, keeps links that
// ask for a new window in itself, and turns pictures, sound and video opened by address into
// downloads. Made on the profile of the mode it was made in and never moved to another.
class TavoWebView : public QWebEngineView
{
    Q_OBJECT

public:
    TavoWebView(TavoBrowserTabs& state, const QString& tabID, WebProfiles& profiles, QWidget* parent = nullptr);
    ~TavoWebView() override;

    const QString& tabID() const { return m_tabID; }
    // "<tab id>-incognito", "-private" or "-normal", as the mode was when the view was made.
    const QString& identity() const { return m_identity; }
    static QString identityFor(const QString& tabID, bool incognito, bool privateMode);

    // Follows the model: the tab's zoom, and its address when that changed.
    void refresh();

private:
    void loadAddress(const QString& url);
    // When a document is looked at: it committed, its title changed, or its load finished.
    enum class Moment
    {
        Committed,
        TitleChanged,
        Finished
    };
    void inspectDocument(Moment moment);
    void openNewWindowHere(QWebEngineNewWindowRequest& request);

    TavoBrowserTabs& m_state;
    QString m_tabID;
    QString m_identity;
    QPointer<WebProfiles> m_profiles;
    QWebEngineProfile* m_profile;
    TavoWebPage* m_page;
    // The last address this view was asked to load, so a redirect is not loaded over again.
    QString m_requested;
    // The media address last handed to the downloads, so one document goes there once.
    QString m_handedOff;
    // The address of a document whose load was reported finished before it was complete.
    QString m_finishedEarly;
    // A load the view asked for gives up after a minute without finishing.
    QTimer m_loadDeadline;
};

} // namespace tavo
