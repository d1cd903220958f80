// The browser's web layer end to end: real Chromium through Qt WebEngine on a real X server,
// against an HTTP server of the test on 127.0.0.1.
#include "browser/browser_tabs.h"
#include "browser/web/browser_address_bar.h"
#include "browser/web/browser_downloads.h"
#include "browser/web/browser_home_page.h"
#include "browser/web/browser_magnifier_lens.h"
#include "browser/web/browser_private_gate.h"
#include "browser/web/browser_status_strip.h"
#include "browser/web/browser_workspace.h"
#include "browser/web/download_names.h"
#include "browser/web/tavo_web_view.h"
#include "browser/web/web_profiles.h"
#include "platform/secret/libsecret_store.h"
#include "store/defaults.h"
#include "store/key_store.h"

#include <QApplication>
#include <QBuffer>
#include <QComboBox>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSplitter>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <QWebEnginePage>
#include <QWebEngineProfile>

#include <memory>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

constexpr int loadTimeout = 30000;

struct Response
{
    QByteArray headers;
    QByteArray body;
};

QByteArray pngBytes()
{
    QImage image(4, 3, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QByteArray html(const QByteArray& title, const QByteArray& script = {})
{
    return "<!doctype html><html><head><title>" + title + "</title></head><body><p>" + title + "</p>" +
           (script.isEmpty() ? QByteArray() : "<script>" + script + "</script>") + "</body></html>";
}

// A small HTTP/1.1 server: one response per connection, by path.
class TestServer : public QObject
{
public:
    TestServer()
    {
        m_routes.insert("/page", {"Content-Type: text/html; charset=utf-8\r\n", html("Hello Tavo")});
        m_routes.insert("/second", {"Content-Type: text/html; charset=utf-8\r\n", html("Second")});
        m_routes.insert("/opener", {"Content-Type: text/html; charset=utf-8\r\n",
                                    html("Opener", "window.open('/second', '_blank');")});
        m_routes.insert("/attach", {"Content-Type: application/pdf\r\nContent-Disposition: ATTACHMENT; "
                                    "filename=\"report.pdf\"\r\n",
                                    "%PDF-1.4 not really a report"});
        m_routes.insert("/pic.png", {"Content-Type: image/png\r\n", pngBytes()});
        QObject::connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { answer(socket); });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        m_server.listen(QHostAddress::LocalHost, 0);
    }

    QString url(const QString& path) const { return u"http://127.0.0.1:%1%2"_s.arg(m_server.serverPort()).arg(path); }
    QByteArray body(const QByteArray& path) const { return m_routes.value(path).body; }

private:
    void answer(QTcpSocket* socket)
    {
        QByteArray& request = m_pending[socket];
        request += socket->readAll();
        if (!request.contains("\r\n\r\n")) {
            return;
        }
        const QByteArray path = request.split(' ').value(1).split('?').value(0);
        m_pending.remove(socket);
        const auto route = m_routes.constFind(path);
        QByteArray reply;
        if (route == m_routes.cend()) {
            reply = "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
        } else {
            reply = "HTTP/1.1 200 OK\r\n" + route->headers +
                    "Content-Length: " + QByteArray::number(route->body.size()) + "\r\nConnection: close\r\n\r\n" +
                    route->body;
        }
        socket->write(reply);
        socket->disconnectFromHost();
    }

    QTcpServer m_server;
    QHash<QByteArray, Response> m_routes;
    QHash<QTcpSocket*, QByteArray> m_pending;
};

QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every file below Tavo's own data, cache and settings folders: path, size, time and content.
QStringList tavoFiles()
{
    QStringList files;
    for (const auto location : {QStandardPaths::GenericDataLocation, QStandardPaths::GenericCacheLocation,
                                QStandardPaths::GenericConfigLocation}) {
        QDirIterator it(QStandardPaths::writableLocation(location) + u"/Tavo"_s,
                        QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QFileInfo info = it.nextFileInfo();
            files.append(
                u"%1 %2 %3 %4"_s.arg(info.filePath())
                    .arg(info.size())
                    .arg(info.lastModified().toMSecsSinceEpoch())
                    .arg(QString::fromLatin1(
                        QCryptographicHash::hash(fileBytes(info.filePath()), QCryptographicHash::Sha256).toHex())));
        }
    }
    files.sort();
    return files;
}

QJsonObject storedDefaults()
{
    return QJsonDocument::fromJson(fileBytes(Defaults::defaultFilePath())).object();
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(bytes);
    }
}

} // namespace

class TestBrowserWeb : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void downloadFileName_data();
    void downloadFileName();
    void uniqueDownloadPath_data();
    void uniqueDownloadPath();
    void magnifierSourceRect_data();
    void magnifierSourceRect();

    void incognitoLeavesNoTrace();
    void pageTitleReachesTab();
    void splitShowsTwoTabs();
    void privateGate_data();
    void privateGate();
    void importChromeBookmarks_data();
    void importChromeBookmarks();
    void downloadsLandOnDesktop_data();
    void downloadsLandOnDesktop();
    void windowOpenStaysInTab();
    void onlyWebAddressesLoad_data();
    void onlyWebAddressesLoad();
    void incognitoGetsItsOwnView();
    void lensMagnifiesThePage();

private:
    void loadInNewTab(const QString& url, const QString& title);

    QString m_desktop;
    LibsecretStore m_keyring;
    std::unique_ptr<TestServer> m_server;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<TavoBrowserTabs> m_tabs;
    std::unique_ptr<BrowserWorkspace> m_workspace;
};

void TestBrowserWeb::initTestCase()
{
    m_desktop = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    QVERIFY(m_desktop.startsWith(QDir::homePath()));
    KeyStore::setBackend(&m_keyring);
    QVERIFY(QDir().mkpath(m_desktop));
    m_server = std::make_unique<TestServer>();
    m_defaults = std::make_unique<Defaults>();
    m_tabs = std::make_unique<TavoBrowserTabs>(*m_defaults);
    m_workspace = std::make_unique<BrowserWorkspace>(*m_tabs, *m_defaults);
    m_workspace->resize(1000, 700);
    m_workspace->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_workspace.get()));
}

void TestBrowserWeb::cleanupTestCase()
{
    m_workspace.reset();
    m_tabs.reset();
}

void TestBrowserWeb::downloadFileName_data()
{
    QTest::addColumn<QString>("suggested");
    QTest::addColumn<QString>("expected");
    QTest::newRow("folders above are dropped") << u"../../x"_s << u"x"_s;
    QTest::newRow("folders inside are dropped") << u"a/b/c.pdf"_s << u"c.pdf"_s;
    QTest::newRow("the current folder is no name") << u"."_s << u"download"_s;
    QTest::newRow("the parent folder is no name") << u"a/.."_s << u"download"_s;
    QTest::newRow("empty") << QString() << u"download"_s;
    QTest::newRow("a trailing slash leaves nothing") << u"a/"_s << u"download"_s;
    QTest::newRow("NUL and control characters go") << u"re\u0000po\u0007rt\n.pdf"_s << u"report.pdf"_s;
    QTest::newRow("only control characters") << u"\u0001\u001f"_s << u"download"_s;
    // 150 characters of two bytes each: 127 fit in 255 bytes, and none is cut in half.
    QTest::newRow("300 bytes of é") << QString(150, u'é') << QString(127, u'é');
    QTest::newRow("a character beyond the first plane stays whole")
        << QString(127, u'é') + u"\U0001F600"_s << QString(127, u'é');
    QTest::newRow("255 bytes stay") << QString(255, u'a') << QString(255, u'a');
}

void TestBrowserWeb::downloadFileName()
{
    QFETCH(QString, suggested);
    QFETCH(QString, expected);
    const QString name = tavo::downloadFileName(suggested);
    QCOMPARE(name, expected);
    QVERIFY(name.toUtf8().size() <= 255);
}

void TestBrowserWeb::uniqueDownloadPath_data()
{
    QTest::addColumn<QStringList>("existing");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    QTest::newRow("free name") << QStringList() << u"a.pdf"_s << u"a.pdf"_s;
    QTest::newRow("taken once") << QStringList{u"a.pdf"_s} << u"a.pdf"_s << u"a (2).pdf"_s;
    QTest::newRow("each round on the last")
        << QStringList{u"a.pdf"_s, u"a (2).pdf"_s} << u"a.pdf"_s << u"a (2) (3).pdf"_s;
    QTest::newRow("no extension, no point") << QStringList{u"README"_s} << u"README"_s << u"README (2)"_s;
    QTest::newRow("a hidden name is no extension") << QStringList{u".profile"_s} << u".profile"_s << u".profile (2)"_s;
    QTest::newRow("the last extension only") << QStringList{u"a.tar.gz"_s} << u"a.tar.gz"_s << u"a.tar (2).gz"_s;
    QTest::newRow("a long name stays within 255 bytes")
        << QStringList{QString(251, u'x') + u".pdf"_s} << QString(251, u'x') + u".pdf"_s
        << QString(247, u'x') + u" (2).pdf"_s;
}

void TestBrowserWeb::uniqueDownloadPath()
{
    QFETCH(QStringList, existing);
    QFETCH(QString, name);
    QFETCH(QString, expected);
    QTemporaryDir folder;
    for (const QString& each : existing) {
        QFile file(folder.filePath(each));
        QVERIFY(file.open(QIODevice::WriteOnly));
    }
    QCOMPARE(tavo::uniqueDownloadPath(folder.path(), name), folder.filePath(expected));
}

void TestBrowserWeb::magnifierSourceRect_data()
{
    QTest::addColumn<QSizeF>("canvas");
    QTest::addColumn<QSize>("image");
    QTest::addColumn<QPointF>("center");
    QTest::addColumn<QSizeF>("lens");
    QTest::addColumn<double>("power");
    QTest::addColumn<QRect>("expected");
    // 190 / 4.0 = 47.5 points of the page, 95 pixels of a snapshot at twice the scale, rounded outward.
    QTest::newRow("power 4.0 over 190 points shows 47.5") << QSizeF(1000, 700) << QSize(2000, 1400) << QPointF(500, 350)
                                                          << QSizeF(190, 190) << 4.0 << QRect(952, 652, 96, 96);
    QTest::newRow("near the right edge, inside the image")
        << QSizeF(1000, 700) << QSize(2000, 1400) << QPointF(990, 350) << QSizeF(115, 190) << 2.5
        << QRect(1908, 624, 92, 152);
    QTest::newRow("at the top left corner")
        << QSizeF(1000, 700) << QSize(1000, 700) << QPointF(0, 0) << QSizeF(115, 190) << 2.5 << QRect(0, 0, 46, 76);
    QTest::newRow("a lens wider than the page") << QSizeF(100, 700) << QSize(100, 700) << QPointF(50, 350)
                                                << QSizeF(190, 190) << 1.5 << QRect(0, 286, 100, 128);
    QTest::newRow("no canvas, nothing") << QSizeF(0, 0) << QSize(100, 100) << QPointF(0, 0) << QSizeF(115, 190) << 2.5
                                        << QRect();
}

void TestBrowserWeb::magnifierSourceRect()
{
    QFETCH(QSizeF, canvas);
    QFETCH(QSize, image);
    QFETCH(QPointF, center);
    QFETCH(QSizeF, lens);
    QFETCH(double, power);
    QFETCH(QRect, expected);
    const QRect source = tavo::magnifierSourceRect(canvas, image, center, lens.width(), lens.height(), power);
    QCOMPARE(source, expected);
    if (!expected.isNull()) {
        QVERIFY(QRect(QPoint(0, 0), image).contains(source));
    }
}

void TestBrowserWeb::loadInNewTab(const QString& url, const QString& title)
{
    m_tabs->newTab(url);
    QTRY_COMPARE_WITH_TIMEOUT(m_tabs->current().value_or(TavoBrowserTab()).title, title, loadTimeout);
}

void TestBrowserWeb::pageTitleReachesTab()
{
    const QString url = m_server->url(u"/page"_s);
    loadInNewTab(url, u"Hello Tavo"_s);
    QCOMPARE(m_tabs->current()->url, url);
    QCOMPARE(m_tabs->address(), url);
    TavoWebView* view = m_workspace->currentView();
    QVERIFY(view);
    QCOMPARE(view->identity(), m_tabs->selectedID() + u"-normal"_s);
    QCOMPARE(m_tabs->webView(m_tabs->selectedID()), view);
    QVERIFY(!view->page()->profile()->isOffTheRecord());
}

void TestBrowserWeb::incognitoLeavesNoTrace()
{
    m_tabs->ensureCollection(u"Reading"_s); // the normal workspace has something stored
    m_tabs->flush();
    QTest::qWait(200);
    const QStringList files = tavoFiles();
    const QJsonObject defaults = storedDefaults();
    QVERIFY(!defaults.isEmpty());
    QVERIFY(files.filter(u"defaults.json"_s).size() == 1);

    m_tabs->toggleIncognito();
    loadInNewTab(m_server->url(u"/page"_s), u"Hello Tavo"_s);
    const QString first = m_tabs->selectedID();
    QVERIFY(m_workspace->currentView()->page()->profile()->isOffTheRecord());
    m_tabs->saveCurrent(QString(), m_tabs->current()->url, {u"kept"_s}, u"nowhere"_s, u"Incognito finds"_s);
    loadInNewTab(m_server->url(u"/second"_s), u"Second"_s);
    m_tabs->setZoom(1.5);
    m_tabs->toggleSplit();
    m_tabs->setSecondaryID(first);
    QTRY_VERIFY(m_workspace->secondaryView());
    QTest::qWait(1000); // time for anything Chromium would write behind the pages
    QCOMPARE(tavoFiles(), files);
    QCOMPARE(storedDefaults(), defaults);

    m_tabs->toggleIncognito();
    QVERIFY(!m_tabs->splitEnabled());
    QCOMPARE(storedDefaults(), defaults);
}

void TestBrowserWeb::splitShowsTwoTabs()
{
    loadInNewTab(m_server->url(u"/page"_s), u"Hello Tavo"_s);
    const QString first = m_tabs->selectedID();
    loadInNewTab(m_server->url(u"/second"_s), u"Second"_s);
    const QString second = m_tabs->selectedID();
    QVERIFY(m_workspace->splitter()->widget(1)->isHidden());

    // The tool puts the first other tab, here Home, beside the current one.
    m_workspace->addressBar()->splitTool()->click();
    QVERIFY(m_tabs->splitEnabled());
    QCOMPARE(m_tabs->secondaryID(), homeTabID);
    QTRY_VERIFY(m_workspace->splitter()->widget(1)->isVisible());
    QVERIFY(qobject_cast<BrowserHomePage*>(m_workspace->secondaryPage()));
    QCOMPARE(m_workspace->primaryLabel()->text(), u"Second"_s);
    QVERIFY(!m_workspace->secondaryView());

    // The picker offers every other tab; choosing one shows its page on the right.
    QComboBox* picker = m_workspace->secondTabPicker();
    const int index = picker->findData(first);
    QVERIFY(index >= 0);
    QCOMPARE(picker->findData(second), -1);
    picker->setCurrentIndex(index);
    emit picker->activated(index);
    QCOMPARE(m_tabs->secondaryID(), first);
    QTRY_VERIFY(m_workspace->secondaryView());
    QCOMPARE(m_workspace->secondaryView()->tabID(), first);
    QCOMPARE(m_workspace->currentView()->tabID(), second);

    // The address bar follows the focused pane, and goes where it is sent from there.
    QLineEdit* address = m_workspace->addressBar()->addressField();
    m_workspace->activateWindow();
    m_workspace->secondaryView()->setFocus();
    QTRY_COMPARE(address->text(), m_server->url(u"/page"_s));
    address->setText(m_server->url(u"/second"_s));
    QMetaObject::invokeMethod(address, "returnPressed");
    QTRY_COMPARE_WITH_TIMEOUT(m_workspace->secondaryView()->url().toString(), m_server->url(u"/second"_s), loadTimeout);
    QCOMPARE(m_tabs->selectedID(), second);
    m_workspace->currentView()->setFocus();
    QTRY_COMPARE(address->text(), m_tabs->address());

    // Swapping trades the panes' tabs, each keeping its page.
    TavoWebView* left = m_workspace->currentView();
    TavoWebView* right = m_workspace->secondaryView();
    m_workspace->swapTool()->click();
    QCOMPARE(m_tabs->selectedID(), first);
    QCOMPARE(m_tabs->secondaryID(), second);
    QTRY_COMPARE(m_workspace->currentView(), right);
    QCOMPARE(m_workspace->secondaryView(), left);

    // A closed second tab leaves the pane empty; the tool ends the split.
    m_tabs->close(second);
    QTRY_VERIFY(!m_workspace->secondaryView());
    QCOMPARE(picker->currentIndex(), -1);
    m_workspace->addressBar()->splitTool()->click();
    QVERIFY(!m_tabs->splitEnabled());
    QTRY_VERIFY(m_workspace->splitter()->widget(1)->isHidden());
}

void TestBrowserWeb::privateGate_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("confirmation");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("message"); // empty when Private Mode opens
    // In order: the first rows set the passcode up, the later ones meet it.
    QTest::newRow("set up: five digits") << u"12345"_s << u"12345"_s << u"Set up Private Mode"_s
                                         << BrowserPrivateGate::enterAllDigits;
    QTest::newRow("set up: letters dropped, confirmation differs")
        << u"4a8b29c17"_s << u"482918"_s << u"Set up Private Mode"_s << BrowserPrivateGate::passcodesDoNotMatch;
    QTest::newRow("set up: passcode created") << u"4829170"_s << u"482917"_s << u"Set up Private Mode"_s << QString();
    QTest::newRow("unlock: wrong passcode")
        << u"111111"_s << QString() << u"Unlock Private Mode"_s << BrowserPrivateGate::didNotUnlock;
    QTest::newRow("unlock: right passcode") << u"482917"_s << QString() << u"Unlock Private Mode"_s << QString();
}

void TestBrowserWeb::privateGate()
{
    QFETCH(QString, typed);
    QFETCH(QString, confirmation);
    QFETCH(QString, title);
    QFETCH(QString, message);
    BrowserAddressBar* bar = m_workspace->addressBar();
    QVERIFY(bar->privateModeTool()->isVisible());
    QVERIFY(!bar->lockTool()->isVisible());
    loadInNewTab(m_server->url(u"/page"_s), u"Hello Tavo"_s);
    const QString normalTab = m_tabs->selectedID();

    bar->privateModeTool()->click();
    QPointer<BrowserPrivateGateSheet> gate = m_workspace->privateGate();
    QVERIFY(gate);
    QTRY_VERIFY(gate->isVisible());
    QCOMPARE(gate->windowTitle(), title);
    QCOMPARE(gate->confirmationField() == nullptr, title.startsWith(u"Unlock"_s));
    QTest::keyClicks(gate->passcodeField(), typed);
    QCOMPARE(gate->passcodeField()->text(), BrowserPrivateGate::fieldText(typed));
    if (gate->confirmationField()) {
        QTest::keyClicks(gate->confirmationField(), confirmation);
    }
    gate->submitButton()->click();
    if (!message.isEmpty()) {
        QCOMPARE(gate->message(), message);
        QVERIFY(gate->isVisible());
        QVERIFY(!m_tabs->isPrivateMode());
        gate->reject();
        QTRY_VERIFY(!gate);
        return;
    }
    QTRY_VERIFY(!gate);
    QVERIFY(m_tabs->isPrivateMode());
    QVERIFY(bar->lockTool()->isVisible());
    QVERIFY(!bar->privateModeTool()->isVisible());

    // Pages of Private Mode live on its own lasting profile, apart from the normal one.
    loadInNewTab(m_server->url(u"/second"_s), u"Second"_s);
    TavoWebView* view = m_workspace->currentView();
    QCOMPARE(view->identity(), m_tabs->selectedID() + u"-private"_s);
    QVERIFY(!view->page()->profile()->isOffTheRecord());
    const QString privateStore = view->page()->profile()->persistentStoragePath();
    QCOMPARE(privateStore, WebProfiles::dataFolder() + u"/Private-"_s + m_tabs->privateWebsiteDataStoreID());

    bar->lockTool()->click();
    QVERIFY(!m_tabs->isPrivateMode());
    QVERIFY(bar->privateModeTool()->isVisible());
    m_tabs->select(normalTab);
    QTRY_VERIFY(m_workspace->currentView() && m_workspace->currentView()->identity() == normalTab + u"-normal"_s);
    QVERIFY(m_workspace->currentView()->page()->profile()->persistentStoragePath() != privateStore);
}

void TestBrowserWeb::importChromeBookmarks_data()
{
    QTest::addColumn<QStringList>("folders"); // made under the configuration folder
    QTest::addColumn<QString>("startsIn");    // "" for the home folder
    QTest::addColumn<QString>("fileName");    // "" cancels the dialog
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("importedURL");
    const QByteArray exported = "<DL><p><DT><H3>Tax &amp; Work</H3><DL><p>"
                                "<DT><A HREF=\"https://example.org/tax\">Tax form</A></DL><p></DL>";
    const QByteArray profile = R"({"roots": {"bookmark_bar": {"type": "folder", "name": "Bar", "children": [
        {"type": "url", "name": "Docs", "url": "https://example.org/docs"},
        {"type": "url", "name": "News", "url": "https://example.org/news"}]}}})";
    QTest::newRow("Chrome's folder first, an HTML export")
        << QStringList{u"google-chrome"_s, u"chromium"_s} << u"google-chrome"_s << u"export.html"_s << exported
        << u"Imported 1 Chrome bookmark(s), with folders saved as Tavo collections."_s << u"https://example.org/tax"_s;
    QTest::newRow("then Chromium's, a profile's Bookmarks")
        << QStringList{u"chromium"_s} << u"chromium"_s << u"Bookmarks"_s << profile
        << u"Imported 2 Chrome bookmark(s), with folders saved as Tavo collections."_s << u"https://example.org/news"_s;
    QTest::newRow("else home, a file without bookmarks")
        << QStringList() << QString() << u"notes.txt"_s << QByteArray("hello")
        << u"No bookmarks found. Export Chrome bookmarks as HTML or choose a Chrome profile\u2019s Bookmarks file."_s
        << QString();
    QTest::newRow("cancelled") << QStringList() << QString() << QString() << QByteArray() << QString() << QString();
}

void TestBrowserWeb::importChromeBookmarks()
{
    QFETCH(QStringList, folders);
    QFETCH(QString, startsIn);
    QFETCH(QString, fileName);
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QFETCH(QString, importedURL);
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    for (const QString& name : {u"google-chrome"_s, u"chromium"_s}) {
        QDir(config + u'/' + name).removeRecursively();
    }
    for (const QString& name : folders) {
        QVERIFY(QDir().mkpath(config + u'/' + name));
    }
    QTemporaryDir files;
    const QString path = fileName.isEmpty() ? QString() : files.filePath(fileName);
    if (!path.isEmpty()) {
        writeFile(path, content);
    }
    QString askedIn;
    m_workspace->setBookmarkFileChooser([&](QWidget*, const QString& folder) {
        askedIn = folder;
        return path;
    });
    m_tabs->dismissStatus();
    QSignalSpy finished(m_workspace.get(), &BrowserWorkspace::chromeImportFinished);

    // From the saved-links menu, where the import sits.
    BrowserAddressBar* bar = m_workspace->addressBar();
    // The menu runs its own loop while it is open.
    QTimer::singleShot(300, bar->importTool(), [bar] {
        QVERIFY(bar->importTool()->isVisible());
        bar->importTool()->click();
    });
    bar->savedLinksTool()->showMenu();
    QVERIFY(!bar->savedLinksTool()->menu()->isVisible());
    QCOMPARE(askedIn, startsIn.isEmpty() ? QDir::homePath() : config + u'/' + startsIn);
    if (path.isEmpty()) {
        QTest::qWait(100);
        QCOMPARE(finished.size(), 0);
        QCOMPARE(m_tabs->browserMessage(), std::nullopt);
        return;
    }
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(m_workspace->statusStrip()->text(), message);
    const auto& saved = m_tabs->saved();
    QCOMPARE(
        std::any_of(saved.cbegin(), saved.cend(), [&](const TavoSavedSite& site) { return site.url == importedURL; }),
        !importedURL.isEmpty());
    m_workspace->setBookmarkFileChooser(chooseBookmarkFileInDialog);
}

void TestBrowserWeb::downloadsLandOnDesktop_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("savedAs");
    // A file of the same name waits on the Desktop: the new one takes the next name.
    QTest::newRow("attachment, disposition in upper case") << u"/attach"_s << u"report (2).pdf"_s;
    QTest::newRow("picture opened by its address") << u"/pic.png"_s << u"pic.png"_s;
}

void TestBrowserWeb::downloadsLandOnDesktop()
{
    QFETCH(QString, path);
    QFETCH(QString, savedAs);
    {
        QFile existing(m_desktop + u"/report.pdf"_s);
        QVERIFY(existing.open(QIODevice::WriteOnly));
    }
    const QString page = m_server->url(u"/page"_s);
    loadInNewTab(page, u"Hello Tavo"_s);
    TavoWebView* view = m_workspace->currentView();
    QVERIFY(view);
    m_tabs->dismissStatus();

    m_tabs->open(m_server->url(path));
    const QString finished = u"Downloaded to Desktop · "_s + savedAs;
    QTRY_COMPARE_WITH_TIMEOUT(m_tabs->downloadStatus().value_or(QString()), finished, loadTimeout);
    const QString target = m_desktop + u'/' + savedAs;
    QCOMPARE(fileBytes(target), m_server->body(path.toUtf8()));
    QCOMPARE(m_tabs->lastDownloadURL(), QUrl::fromLocalFile(target).toString());
    QCOMPARE(m_workspace->statusStrip()->text(), finished);
    QVERIFY(m_workspace->statusStrip()->canShowInFolder());
    // Saved, not shown: the tab is back on the page it was on.
    QTRY_COMPARE_WITH_TIMEOUT(view->url().toString(), page, loadTimeout);
    QCOMPARE(QDir(m_desktop).entryList(QDir::Files | QDir::Hidden).filter(u".crdownload"_s), QStringList());

    m_tabs->dismissStatus();
    QVERIFY(m_workspace->statusStrip()->isHidden());
}

void TestBrowserWeb::windowOpenStaysInTab()
{
    const qsizetype tabs = m_tabs->tabs().size();
    const qsizetype windows = QApplication::topLevelWidgets().size();
    loadInNewTab(m_server->url(u"/opener"_s), u"Second"_s);
    QCOMPARE(m_tabs->tabs().size(), tabs + 1);
    QCOMPARE(m_tabs->current()->url, m_server->url(u"/second"_s));
    QCOMPARE(QApplication::topLevelWidgets().size(), windows);
}

void TestBrowserWeb::onlyWebAddressesLoad_data()
{
    QTest::addColumn<QString>("address");
    // Whether Chromium takes the address as a navigation, which the page itself then refuses.
    QTest::addColumn<bool>("navigation");
    QTest::newRow("script") << u"javascript:document.title='pwned'"_s << false;
    QTest::newRow("data") << u"data:text/html,<title>pwned</title>"_s << true;
    QTest::newRow("local file") << QUrl::fromLocalFile(QDir::homePath() + u"/pwned.html"_s).toString() << true;
}

void TestBrowserWeb::onlyWebAddressesLoad()
{
    QFETCH(QString, address);
    QFETCH(bool, navigation);
    {
        QFile file(QDir::homePath() + u"/pwned.html"_s);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(html("pwned"));
    }
    loadInNewTab(m_server->url(u"/page"_s), u"Hello Tavo"_s);
    TavoWebView* view = m_workspace->currentView();
    QVERIFY(view);
    QStringList titles;
    QStringList urls;
    connect(view->page(), &QWebEnginePage::titleChanged, this,
            [&titles](const QString& title) { titles.append(title); });
    connect(view->page(), &QWebEnginePage::urlChanged, this, [&urls](const QUrl& url) { urls.append(url.scheme()); });

    // A link with another scheme, as an imported bookmark may hold, then a web page after it:
    // once the web page is in, the first had its turn.
    m_tabs->open(address);
    QTest::qWait(0);
    m_tabs->open(m_server->url(u"/second"_s));
    QTRY_COMPARE_WITH_TIMEOUT(m_tabs->current()->title, u"Second"_s, loadTimeout);
    QVERIFY2(!titles.contains(u"pwned"_s), qPrintable(titles.join(u", "_s)));
    QVERIFY2(urls.filter(QRegularExpression(u"^(?!http)"_s)).isEmpty(), qPrintable(urls.join(u", "_s)));
    QCOMPARE(view->url(), QUrl(m_server->url(u"/second"_s)));

    if (navigation) {
        // Past the tab's own check, straight to the page: the navigation ends without a document.
        QSignalSpy finished(view->page(), &QWebEnginePage::loadFinished);
        view->page()->load(QUrl(address));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, loadTimeout);
        QCOMPARE(finished.at(0).at(0).toBool(), false);
        QVERIFY2(!titles.contains(u"pwned"_s), qPrintable(titles.join(u", "_s)));
        QCOMPARE(m_tabs->current()->url, m_server->url(u"/second"_s));
    }
}

void TestBrowserWeb::incognitoGetsItsOwnView()
{
    loadInNewTab(m_server->url(u"/page"_s), u"Hello Tavo"_s);
    const QString normalTab = m_tabs->selectedID();
    QPointer<TavoWebView> normal = m_workspace->currentView();
    QVERIFY(normal);

    m_tabs->toggleIncognito();
    QTRY_VERIFY(!normal); // every view of the other mode is let go
    loadInNewTab(m_server->url(u"/second"_s), u"Second"_s);
    TavoWebView* incognito = m_workspace->currentView();
    QVERIFY(incognito);
    QCOMPARE(incognito->identity(), m_tabs->selectedID() + u"-incognito"_s);
    QVERIFY(incognito->page()->profile()->isOffTheRecord());

    m_tabs->toggleIncognito();
    m_tabs->select(normalTab);
    QTRY_VERIFY(m_workspace->currentView() && m_workspace->currentView()->identity() == normalTab + u"-normal"_s);
    QVERIFY(!m_workspace->currentView()->page()->profile()->isOffTheRecord());
    QTRY_COMPARE_WITH_TIMEOUT(m_tabs->current()->title, u"Hello Tavo"_s, loadTimeout);
}

void TestBrowserWeb::lensMagnifiesThePage()
{
    loadInNewTab(m_server->url(u"/page"_s), u"Hello Tavo"_s);
    BrowserMagnifierLens* lens = m_workspace->lens();
    lens->setWanted(true);
    QVERIFY(lens->isVisible());
    // A snapshot is the page as drawn: its size, and more than one colour in it once Chromium has
    // painted the page, which may come a frame after its title.
    const auto drawn = [](const QImage& snapshot) {
        const QImage pixels = snapshot.convertToFormat(QImage::Format_RGB32);
        for (int y = 0; y < pixels.height(); y += 2) {
            for (int x = 0; x < pixels.width(); x += 2) {
                if (pixels.pixel(x, y) != pixels.pixel(0, 0)) {
                    return true;
                }
            }
        }
        return false;
    };
    QVERIFY(!lens->snapshot().isNull());
    QTRY_VERIFY_WITH_TIMEOUT(drawn(lens->snapshot()), 5000);
    QCOMPARE(lens->snapshot().size() / lens->snapshot().devicePixelRatio(), m_workspace->currentView()->size());
    const QSizeF canvas = lens->parentWidget()->size();
    QCOMPARE(lens->center(), QPointF(canvas.width() * 0.52, canvas.height() * 0.48));
    QVERIFY(lens->geometry().contains(lens->center().toPoint()));

    // Home shows no page, so no lens.
    m_tabs->select(homeTabID);
    QTRY_VERIFY(!lens->isVisible());
    lens->setWanted(false);
}

int main(int argc, char** argv)
{
    // Chromium draws through contexts shared with the application's own.
    QApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    TestBrowserWeb test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_browser_web.moc"
