#pragma once

#include <QObject>

class QWebEngineDownloadRequest;

namespace tavo {

class TavoBrowserTabs;

// Takes every download of every profile to the desktop folder under a cleaned, unused name, and
// tells the model how it goes in `downloadStatus` and `lastDownloadURL`. A download keeps running
// when its tab closes: it belongs to the profile, not to the page.
class BrowserDownloads : public QObject
{
    Q_OBJECT

public:
    explicit BrowserDownloads(TavoBrowserTabs& state, QObject* parent = nullptr);

    void begin(QWebEngineDownloadRequest* download);

    static QString downloadingText();
    static QString finishedText(const QString& name);
    static QString failedText(const QString& reason);

private:
    void follow(QWebEngineDownloadRequest* download);

    TavoBrowserTabs& m_state;
};

} // namespace tavo
