#include "browser/web/tavo_web_view.h"

#include "browser/browser_tabs.h"
#include "browser/web/web_profiles.h"

#include <QFileDialog>
#include <QWebEngineHistory>
#include <QWebEngineNewWindowRequest>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineSettings>

namespace tavo {

namespace {

constexpr int loadTimeoutMs = 60 * 1000;

bool isShownMedia(const QString& contentType)
{
    const QString type = contentType.toLower();
    return type.startsWith(QStringLiteral("image/")) || type.startsWith(QStringLiteral("audio/")) ||
           type.startsWith(QStringLiteral("video/"));
}

} // namespace

TavoWebPage::TavoWebPage(QWebEngineProfile* profile, QObject* parent)
    : QWebEnginePage(profile, parent)
{
    settings()->setAttribute(QWebEngineSettings::JavascriptCanOpenWindows, true);
}

bool TavoWebPage::acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame)
{
    Q_UNUSED(type);
    if (!isMainFrame) {
        return true;
    }
    return TavoBrowserTabs::isLoadableAddress(url.toString());
}

QStringList TavoWebPage::chooseFiles(FileSelectionMode mode, const QStringList& oldFiles,
                                     const QStringList& acceptedMimeTypes)
{
    Q_UNUSED(acceptedMimeTypes);
    const QString title = QStringLiteral("Choose a file to upload");
    const QString start = oldFiles.isEmpty() ? QString() : oldFiles.constFirst();
    if (mode == FileSelectOpenMultiple) {
        return QFileDialog::getOpenFileNames(qobject_cast<QWidget*>(parent()), title, start);
    }
    const QString chosen = QFileDialog::getOpenFileName(qobject_cast<QWidget*>(parent()), title, start);
    return chosen.isEmpty() ? QStringList() : QStringList{chosen};
}

TavoWebView::TavoWebView(TavoBrowserTabs& state, const QString& tabID, WebProfiles& profiles, QWidget* parent)
    : QWebEngineView(parent)
    , m_state(state)
    , m_tabID(tabID)
    , m_identity(identityFor(tabID, state.isIncognito(), state.isPrivateMode()))
    , m_profiles(&profiles)
    , m_profile(profiles.current())
    , m_page(new TavoWebPage(m_profile, this))
{
    profiles.pageCreated(m_profile);
    setPage(m_page);
    setAccessibleName(QStringLiteral("Web page"));
    connect(m_page, &QWebEnginePage::newWindowRequested, this, &TavoWebView::openNewWindowHere);
    // A media document is caught as it commits, before it finishes loading or starts to play.
    connect(m_page, &QWebEnginePage::urlChanged, this, [this] { inspectDocument(Moment::Committed); });
    // A load that another one joined while it ran finishes once, maybe before the later page has
    // its title; that title then reaches the tab when it comes.
    connect(m_page, &QWebEnginePage::titleChanged, this, [this] { inspectDocument(Moment::TitleChanged); });
    m_loadDeadline.setSingleShot(true);
    m_loadDeadline.setInterval(loadTimeoutMs);
    connect(&m_loadDeadline, &QTimer::timeout, m_page, [this] { m_page->triggerAction(QWebEnginePage::Stop); });
    connect(m_page, &QWebEnginePage::loadFinished, &m_loadDeadline, &QTimer::stop);
    connect(m_page, &QWebEnginePage::loadFinished, this, [this](bool ok) {
        if (ok) {
            inspectDocument(Moment::Finished);
        }
    });
    refresh();
}

TavoWebView::~TavoWebView()
{
    // The page goes before its profile may.
    delete m_page;
    if (m_profiles) {
        m_profiles->pageDestroyed(m_profile);
    }
}

QString TavoWebView::identityFor(const QString& tabID, bool incognito, bool privateMode)
{
    return tabID + (incognito     ? QStringLiteral("-incognito")
                    : privateMode ? QStringLiteral("-private")
                                  : QStringLiteral("-normal"));
}

void TavoWebView::refresh()
{
    const double zoom = m_state.zoomLevels().value(m_tabID, defaultZoom);
    if (!qFuzzyCompare(m_page->zoomFactor(), zoom)) {
        m_page->setZoomFactor(zoom);
    }
    for (const TavoBrowserTab& tab : m_state.tabs()) {
        if (tab.id == m_tabID) {
            if (tab.url != m_page->url().toString(QUrl::FullyEncoded) && tab.url != m_requested) {
                loadAddress(tab.url);
            }
            return;
        }
    }
}

void TavoWebView::loadAddress(const QString& url)
{
    m_requested = url;
    if (TavoBrowserTabs::isLoadableAddress(url)) {
        m_page->load(QUrl(url));
        m_loadDeadline.start();
    }
}

void TavoWebView::openNewWindowHere(QWebEngineNewWindowRequest& request)
{
    // No second view: the address loads in this tab, as long as it is one a tab may load.
    const QUrl url = request.requestedUrl();
    if (TavoBrowserTabs::isLoadableAddress(url.toString())) {
        m_page->load(url);
    }
}

void TavoWebView::inspectDocument(Moment moment)
{
    const QString script = QStringLiteral("[document.contentType, location.href, document.title, document.readyState]");
    const QPointer<TavoWebView> self(this);
    m_page->runJavaScript(script, QWebEngineScript::ApplicationWorld, [self, moment](const QVariant& result) {
        if (!self) {
            return;
        }
        const QVariantList facts = result.toList();
        const QString pageURL = self->m_page->url().toString(QUrl::FullyEncoded);
        const QString href = facts.value(1).toString();
        // Only the document of the address that committed speaks for the tab.
        if (facts.size() == 4 && QUrl(href) != self->m_page->url()) {
            return;
        }
        if (facts.size() == 4 && isShownMedia(facts.at(0).toString())) {
            if (self->m_handedOff == href) {
                return;
            }
            self->m_handedOff = href;
            self->m_page->download(QUrl(href));
            if (self->m_page->history()->canGoBack()) {
                self->m_page->triggerAction(QWebEnginePage::Back);
            } else {
                self->m_page->triggerAction(QWebEnginePage::Stop);
            }
            return;
        }
        const QString title = facts.size() == 4 ? facts.at(2).toString() : self->m_page->title();
        if (moment == Moment::Committed ||
            (moment == Moment::TitleChanged && (title.isEmpty() || self->m_finishedEarly != href))) {
            return;
        }
        if (moment == Moment::Finished) {
            const bool complete = facts.size() != 4 || facts.at(3).toString() == QStringLiteral("complete");
            self->m_finishedEarly = complete ? QString() : href;
        }
        // A page of its own came in: the same media address may be downloaded again from here.
        self->m_handedOff.clear();
        const QString url = pageURL.isEmpty() ? self->m_state.address() : pageURL;
        self->m_requested = url;
        self->m_state.update(self->m_tabID, title, url);
    });
}

} // namespace tavo
