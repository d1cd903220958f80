#include "browser/web/browser_status_strip.h"

#include "browser/browser_tabs.h"
#include "shell/ui/design.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>

namespace tavo {

BrowserStatusStrip::BrowserStatusStrip(TavoBrowserTabs& state, QWidget* parent)
    : QFrame(parent)
    , m_state(state)
    , m_text(new QLabel(this))
    , m_showInFolder(
          new QPushButton(design::icon(QStringLiteral("folder-open")), QStringLiteral("Show in folder"), this))
    , m_dismiss(new QPushButton(QStringLiteral("Dismiss"), this))
{
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::AlternateBase);
    design::name(this, QStringLiteral("Browser status"));
    design::name(m_showInFolder, QStringLiteral("Show in folder"));
    design::name(m_dismiss, QStringLiteral("Dismiss"));
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);

    const int gap = design::step(this);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(gap * 2, gap, gap, gap);
    layout->setSpacing(gap);
    auto* icon = new QLabel(this);
    icon->setPixmap(design::icon(QStringLiteral("dialog-information")).pixmap(16, 16));
    layout->addWidget(icon);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_showInFolder);
    layout->addWidget(m_dismiss);

    connect(m_dismiss, &QPushButton::clicked, &m_state, &TavoBrowserTabs::dismissStatus);
    connect(m_showInFolder, &QPushButton::clicked, this, [this] {
        if (m_state.lastDownloadURL()) {
            showInFolder(*m_state.lastDownloadURL());
        }
    });
    connect(&m_state, &TavoBrowserTabs::downloadStatusChanged, this, &BrowserStatusStrip::follow);
    connect(&m_state, &TavoBrowserTabs::browserMessageChanged, this, &BrowserStatusStrip::follow);
    connect(&m_state, &TavoBrowserTabs::lastDownloadURLChanged, this, &BrowserStatusStrip::follow);
    follow();
}

QString BrowserStatusStrip::text() const
{
    return m_text->text();
}

bool BrowserStatusStrip::canShowInFolder() const
{
    return m_state.lastDownloadURL().has_value() &&
           m_state.downloadStatus().value_or(QString()).startsWith(QStringLiteral("Downloaded"));
}

void BrowserStatusStrip::follow()
{
    QStringList lines;
    if (m_state.browserMessage()) {
        lines.append(*m_state.browserMessage());
    }
    if (m_state.downloadStatus()) {
        lines.append(*m_state.downloadStatus());
    }
    m_text->setText(lines.join(u'\n'));
    m_showInFolder->setVisible(canShowInFolder());
    setVisible(!lines.isEmpty());
}

void BrowserStatusStrip::showInFolder(const QString& fileURL)
{
    const QUrl file(fileURL);
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{file.toString()} << QString();
    const QUrl folder = QUrl::fromLocalFile(QFileInfo(file.toLocalFile()).absolutePath());
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [watcher, folder] {
        // No file manager answers on the bus: the folder opens with the desktop's handler.
        if (watcher->isError()) {
            QDesktopServices::openUrl(folder);
        }
        watcher->deleteLater();
    });
}

} // namespace tavo
