#include "browser/web/web_profiles.h"

#include "browser/browser_tabs.h"

#include <QStandardPaths>
#include <QWebEngineProfile>
#include <QWebEngineSettings>

namespace tavo {

namespace {
const QString normalStorageName = QStringLiteral("Normal");
}

WebProfiles::WebProfiles(TavoBrowserTabs& state, QObject* parent)
    : QObject(parent)
    , m_state(state)
{
    connect(&m_state, &TavoBrowserTabs::modeChanged, this, &WebProfiles::followMode);
}

WebProfiles::~WebProfiles()
{
    // Pages hold their profile; whoever owns the pages lets them go first.
    delete m_incognito;
    qDeleteAll(m_retired);
    delete m_private;
    delete m_normal;
}

QString WebProfiles::dataFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Tavo/Browser");
}

QString WebProfiles::cacheFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + QStringLiteral("/Tavo/Browser");
}

QWebEngineProfile* WebProfiles::current()
{
    if (m_state.isIncognito()) {
        if (!m_incognito) {
            m_incognito = new QWebEngineProfile(this);
            prepare(m_incognito);
        }
        return m_incognito;
    }
    if (m_state.isPrivateMode()) {
        const QString id = m_state.privateWebsiteDataStoreID();
        if (!m_private || m_privateID != id) {
            if (m_private) {
                m_retired.append(m_private);
            }
            m_private = makeLasting(QStringLiteral("Private-") + id);
            m_privateID = id;
            dropRetired();
        }
        return m_private;
    }
    if (!m_normal) {
        m_normal = makeLasting(normalStorageName);
    }
    return m_normal;
}

QWebEngineProfile* WebProfiles::makeLasting(const QString& storageName)
{
    auto* profile = new QWebEngineProfile(storageName, this);
    profile->setPersistentStoragePath(dataFolder() + u'/' + storageName);
    profile->setCachePath(cacheFolder() + u'/' + storageName);
    prepare(profile);
    return profile;
}

void WebProfiles::prepare(QWebEngineProfile* profile)
{
    // Links that ask for a new window open in the same tab, so pages may ask.
    profile->settings()->setAttribute(QWebEngineSettings::JavascriptCanOpenWindows, true);
    connect(profile, &QWebEngineProfile::downloadRequested, this, &WebProfiles::downloadRequested);
}

void WebProfiles::pageCreated(QWebEngineProfile* profile)
{
    ++m_pages[profile];
}

void WebProfiles::pageDestroyed(QWebEngineProfile* profile)
{
    if (--m_pages[profile] <= 0) {
        m_pages.remove(profile);
        dropRetired();
    }
}

void WebProfiles::followMode()
{
    // An incognito session ends with its mode: the next one starts from an empty store.
    if (m_incognito && !m_state.isIncognito()) {
        m_retired.append(m_incognito);
        m_incognito = nullptr;
        dropRetired();
    }
}

void WebProfiles::dropRetired()
{
    for (qsizetype i = m_retired.size() - 1; i >= 0; --i) {
        if (!m_pages.contains(m_retired.at(i))) {
            m_retired.takeAt(i)->deleteLater();
        }
    }
}

} // namespace tavo
