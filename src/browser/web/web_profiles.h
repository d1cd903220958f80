#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QWebEngineDownloadRequest>

class QWebEngineProfile;

namespace tavo {

class TavoBrowserTabs;

// The web data stores of the three modes: the normal workspace's lasting profile under Tavo's
// data folder, Private Mode's own lasting profile named by its stored id, and an off-the-record
// profile for each incognito session, dropped once the session's last page is gone so that its
// cookies end with it. A profile outlives every page made on it.
class WebProfiles : public QObject
{
    Q_OBJECT

public:
    explicit WebProfiles(TavoBrowserTabs& state, QObject* parent = nullptr);
    ~WebProfiles() override;

    // The profile of the model's current mode, made on first use.
    QWebEngineProfile* current();

    // Counts the pages on `profile`, so that a finished incognito session's profile can go.
    void pageCreated(QWebEngineProfile* profile);
    void pageDestroyed(QWebEngineProfile* profile);

    // Where the lasting profiles keep their data and cache; one folder per profile below them.
    static QString dataFolder();
    static QString cacheFolder();

signals:
    // Every profile's downloads arrive here.
    void downloadRequested(QWebEngineDownloadRequest* download);

private:
    QWebEngineProfile* makeLasting(const QString& storageName);
    void prepare(QWebEngineProfile* profile);
    void followMode();
    void dropRetired();

    TavoBrowserTabs& m_state;
    QWebEngineProfile* m_normal = nullptr;
    QWebEngineProfile* m_private = nullptr;
    QString m_privateID;
    QWebEngineProfile* m_incognito = nullptr;
    QList<QWebEngineProfile*> m_retired;
    QHash<QWebEngineProfile*, int> m_pages;
};

} // namespace tavo
