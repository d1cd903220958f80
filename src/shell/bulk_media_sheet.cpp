#include "shell/bulk_media_sheet.h"

#include "exchange/media_download.h"
#include "platform/net/downloader.h"
#include "shell/file_chooser.h"
#include "shell/ui/design.h"
#include "store/attachments.h"
#include "store/profile_store.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFile>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace tavo {

namespace {

const QString tooManyText = QStringLiteral("Tavo can create up to 10 media shortcuts at a time.");
const QString oneTooLargeText = QStringLiteral("That file is over the 500 MB limit.");
const QString someTooLargeText = QStringLiteral("A media file is over the 500 MB limit.");
const QString urlHint = QStringLiteral("Paste up to 10 direct media URLs, one per line or separated with semicolons.");

} // namespace

QStringList BulkMediaSheet::pastedURLs(const QString& text)
{
    QStringList urls;
    static const QRegularExpression separators(QStringLiteral("[\\r\\n;]"));
    for (const QString& part : text.split(separators, Qt::SkipEmptyParts)) {
        const QString candidate = part.trimmed();
        const QUrl url(candidate, QUrl::StrictMode);
        const QString scheme = url.scheme().toLower();
        if (url.isValid() && !url.host().isEmpty() &&
            (scheme == QLatin1String("http") || scheme == QLatin1String("https"))) {
            urls << candidate;
            if (urls.size() == maxItems) {
                break;
            }
        }
    }
    return urls;
}

BulkMediaSheet::BulkMediaSheet(DB& db, QWidget* parent)
    : QDialog(parent)
    , m_db(db)
    , m_source(new QButtonGroup(this))
    , m_pages(new QStackedWidget(this))
    , m_urls(new QPlainTextEdit(this))
    , m_urlCounter(new QLabel(this))
    , m_draftNote(new QLabel(BulkMediaText::keyLimit, this))
    , m_drafts(new QWidget(this))
    , m_draftRows(new QVBoxLayout(m_drafts))
    , m_collection(new QComboBox(this))
    , m_collectionNote(new QLabel(BulkMediaText::noCollection, this))
    , m_progress(new QProgressBar(this))
    , m_status(new QLabel(this))
{
    setWindowTitle(QStringLiteral("Bulk media"));
    setObjectName(QStringLiteral("bulkMediaSheet"));

    auto* sourceRow = new QHBoxLayout;
    const QStringList modes{QStringLiteral("Choose files"), QStringLiteral("Paste URLs")};
    for (int mode = 0; mode < modes.size(); ++mode) {
        auto* button = new QRadioButton(modes[mode], this);
        button->setObjectName(mode == 0 ? QStringLiteral("bulkMediaFiles") : QStringLiteral("bulkMediaUrls"));
        design::name(button, modes[mode]);
        m_source->addButton(button, mode);
        sourceRow->addWidget(button);
    }
    sourceRow->addStretch(1);
    m_source->button(0)->setChecked(true);
    connect(m_source, &QButtonGroup::idClicked, this, &BulkMediaSheet::showSource);

    auto* filesPage = new QWidget(m_pages);
    // The full-width plus of the label is missing from some fonts: a plain one stands in there.
    const bool hasWidePlus = QFontMetrics(font()).inFontUcs4(0xFF0B);
    auto* choose = new QPushButton(hasWidePlus ? QStringLiteral("＋ Choose up to 10 files")
                                               : QStringLiteral("+ Choose up to 10 files"),
                                   filesPage);
    choose->setObjectName(QStringLiteral("bulkMediaChoose"));
    design::name(choose, QStringLiteral("Choose up to 10 files"));
    connect(choose, &QPushButton::clicked, this, [this] {
        const QStringList files = FileChooser::instance().openFiles(
            this, {QStringLiteral("Choose up to 10 media files."),
                   QStringLiteral("Media files (*.png *.jpg *.jpeg *.gif *.webp *.bmp *.tif *.tiff *.svg *.heic "
                                  "*.mp3 *.m4a *.wav *.ogg *.oga *.opus *.flac *.aac *.mp4 *.m4v *.mov *.webm *.mkv "
                                  "*.avi);;All files (*)"),
                   {},
                   {}});
        if (!files.isEmpty()) {
            addFiles(files);
        }
    });
    auto* filesLayout = new QVBoxLayout(filesPage);
    filesLayout->setContentsMargins(0, 0, 0, 0);
    filesLayout->addWidget(choose, 0, Qt::AlignLeft | Qt::AlignTop);
    m_pages->addWidget(filesPage);

    auto* urlsPage = new QWidget(m_pages);
    m_urls->setObjectName(QStringLiteral("bulkMediaUrlText"));
    m_urls->setPlaceholderText(urlHint);
    design::name(m_urls, QStringLiteral("Media URLs"));
    m_urlCounter->setObjectName(QStringLiteral("bulkMediaUrlCounter"));
    auto* hint = new QLabel(urlHint, urlsPage);
    hint->setWordWrap(true);
    m_fetch = new QPushButton(QStringLiteral("Download & review"), urlsPage);
    m_fetch->setObjectName(QStringLiteral("bulkMediaDownload"));
    design::name(m_fetch, QStringLiteral("Download & review"));
    connect(m_fetch, &QPushButton::clicked, this, &BulkMediaSheet::downloadURLs);
    connect(m_urls, &QPlainTextEdit::textChanged, this, &BulkMediaSheet::updateCounters);
    auto* urlFooter = new QHBoxLayout;
    urlFooter->addWidget(m_urlCounter);
    urlFooter->addStretch(1);
    urlFooter->addWidget(m_fetch);
    auto* urlsLayout = new QVBoxLayout(urlsPage);
    urlsLayout->setContentsMargins(0, 0, 0, 0);
    urlsLayout->addWidget(hint);
    urlsLayout->addWidget(m_urls, 1);
    urlsLayout->addLayout(urlFooter);
    m_pages->addWidget(urlsPage);

    m_draftNote->setWordWrap(true);
    m_draftNote->setObjectName(QStringLiteral("bulkMediaDraftNote"));
    m_draftRows->setContentsMargins(0, 0, 0, 0);
    m_empty = new QLabel(QStringLiteral("Each file or address becomes one shortcut. You review them here before "
                                        "they are saved."),
                         m_drafts);
    m_empty->setWordWrap(true);
    m_empty->setAlignment(Qt::AlignCenter);
    QPalette quiet = m_empty->palette();
    quiet.setColor(QPalette::WindowText, design::secondaryText(quiet));
    m_empty->setPalette(quiet);
    m_draftRows->addWidget(m_empty);
    m_draftRows->addStretch(1);
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setWidget(m_drafts);
    scroll->setFrameShape(QFrame::NoFrame);
    design::name(scroll, QStringLiteral("Media shortcuts to review"));

    m_collection->setObjectName(QStringLiteral("bulkMediaCollection"));
    design::name(m_collection, QStringLiteral("Collection"));
    m_collection->addItem(QStringLiteral("No collection"), QString());
    for (const QString& name : m_db.collections()) {
        m_collection->addItem(name, name);
    }
    m_collectionNote->setWordWrap(true);
    m_collectionNote->setObjectName(QStringLiteral("bulkMediaCollectionNote"));
    connect(m_collection, &QComboBox::currentIndexChanged, this, &BulkMediaSheet::updateCounters);
    auto* collectionRow = new QHBoxLayout;
    collectionRow->addWidget(new QLabel(QStringLiteral("Collection"), this));
    collectionRow->addWidget(m_collection, 1);

    m_progress->setObjectName(QStringLiteral("bulkMediaProgress"));
    design::name(m_progress, QStringLiteral("Progress"));
    m_progress->hide();
    m_status->setObjectName(QStringLiteral("bulkMediaStatus"));
    m_status->setWordWrap(true);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("bulkMediaCancel"));
    m_save = buttons->addButton(QStringLiteral("Save shortcuts"), QDialogButtonBox::AcceptRole);
    m_save->setObjectName(QStringLiteral("bulkMediaSave"));
    connect(buttons, &QDialogButtonBox::accepted, this, &BulkMediaSheet::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &BulkMediaSheet::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(sourceRow);
    layout->addWidget(m_pages, 1);
    layout->addWidget(m_draftNote);
    layout->addWidget(scroll, 2);
    layout->addLayout(collectionRow);
    layout->addWidget(m_collectionNote);
    layout->addWidget(m_progress);
    layout->addWidget(m_status);
    layout->addWidget(buttons);
    resize(design::step(this, 80), design::step(this, 70));
    rebuildDrafts();
}

BulkMediaSheet::~BulkMediaSheet()
{
    if (m_canceled) {
        m_canceled->store(true);
    }
}

QString BulkMediaSheet::status() const
{
    return m_status->text();
}

void BulkMediaSheet::showSource(int mode)
{
    m_pages->setCurrentIndex(mode);
    updateCounters();
}

void BulkMediaSheet::setWorking(bool working, const QString& status)
{
    m_working = working;
    m_progress->setVisible(working);
    m_progress->setRange(0, 0);
    if (!status.isEmpty() || !working) {
        m_status->setText(status);
    }
    m_pages->setEnabled(!working);
    updateCounters();
}

void BulkMediaSheet::addFiles(const QStringList& files)
{
    if (m_working) {
        return;
    }
    if (files.size() + m_pending.size() > maxItems) {
        m_status->setText(tooManyText);
        return;
    }
    for (const QString& file : files) {
        if (QFileInfo(file).size() > maxFileBytes) {
            m_status->setText(files.size() == 1 ? oneTooLargeText : someTooLargeText);
            return;
        }
    }
    setWorking(true, QStringLiteral("Copying %1 file(s)…").arg(files.size()));
    m_canceled = std::make_shared<std::atomic_bool>(false);
    const QString attachments = m_db.attachmentsDir();
    std::shared_ptr<std::atomic_bool> canceled = m_canceled;
    fetchInBackground([files, attachments, canceled] {
        Fetched fetched;
        for (const QString& file : files) {
            if (canceled->load()) {
                break;
            }
            const AttachmentCopy copy = copyIntoAttachments(file, attachments);
            if (copy.ok()) {
                fetched.paths << copy.path;
            } else {
                fetched.failures << QFileInfo(file).fileName() + QStringLiteral(": ") + copy.error;
            }
        }
        return fetched;
    });
}

void BulkMediaSheet::downloadURLs()
{
    const QStringList urls = pastedURLs(m_urls->toPlainText());
    if (m_working || urls.isEmpty()) {
        return;
    }
    if (urls.size() + m_pending.size() > maxItems) {
        m_status->setText(tooManyText);
        return;
    }
    setWorking(true, QStringLiteral("Downloading %1 file(s)…").arg(urls.size()));
    m_canceled = std::make_shared<std::atomic_bool>(false);
    const QString attachments = m_db.attachmentsDir();
    std::shared_ptr<std::atomic_bool> canceled = m_canceled;
    fetchInBackground([urls, attachments, canceled] {
        Fetched fetched;
        QNetworkAccessManager network;
        for (const QString& address : urls) {
            if (canceled->load()) {
                break;
            }
            DownloadResult result =
                downloadNow(network, mediaDownloadRequest(QUrl(address), attachments), {}, canceled.get());
            if (result.ok()) {
                fetched.paths << result.path;
            } else if (!result.canceled) {
                fetched.failures << address + QStringLiteral(": ") + result.error;
            }
        }
        return fetched;
    });
}

void BulkMediaSheet::fetchInBackground(std::function<Fetched()> work)
{
    auto* watcher = new QFutureWatcher<Fetched>(this);
    connect(watcher, &QFutureWatcher<Fetched>::finished, this, [this, watcher] {
        watcher->deleteLater();
        const Fetched fetched = watcher->result();
        if (m_canceled->load()) {
            // Closed while the media came in: nothing of it stays.
            for (const QString& path : fetched.paths) {
                QFile::remove(path);
            }
            setWorking(false);
            discardPending();
            QDialog::reject();
            return;
        }
        takeMedia(fetched.paths, fetched.failures);
    });
    watcher->setFuture(QtConcurrent::run(std::move(work)));
}

void BulkMediaSheet::takeMedia(const QStringList& paths, const QStringList& failures)
{
    for (const QString& path : paths) {
        m_pending << bulkMediaDraft(path);
    }
    setWorking(false, failures.isEmpty() ? QString() : failures.join(QLatin1Char('\n')));
    rebuildDrafts();
}

void BulkMediaSheet::rebuildDrafts()
{
    while (m_draftRows->count() > 2) {
        QLayoutItem* item = m_draftRows->takeAt(1);
        if (QLayout* row = item->layout()) {
            while (QLayoutItem* child = row->takeAt(0)) {
                delete child->widget();
                delete child;
            }
        }
        delete item;
    }
    for (qsizetype index = 0; index < m_pending.size(); ++index) {
        const BulkMediaDraft& draft = m_pending[index];
        const QUuid id = draft.id;
        auto* key = new QLineEdit(draft.shortcut, m_drafts);
        key->setMaxLength(maxKeyLength);
        key->setFont(design::fixedFont(font()));
        design::name(key, QStringLiteral("Shortcut for %1").arg(QFileInfo(draft.mediaPath).fileName()));
        auto* counter = new QLabel(QStringLiteral("%1/%2").arg(draft.shortcut.size()).arg(maxKeyLength), m_drafts);
        auto* name = new QLineEdit(draft.name, m_drafts);
        design::name(name, QStringLiteral("Name for %1").arg(QFileInfo(draft.mediaPath).fileName()));
        auto* remove = new QToolButton(m_drafts);
        remove->setIcon(design::icon(QStringLiteral("list-remove")));
        remove->setAutoRaise(true);
        design::name(remove, QStringLiteral("Remove %1").arg(QFileInfo(draft.mediaPath).fileName()));
        auto find = [this, id]() -> BulkMediaDraft* {
            for (BulkMediaDraft& candidate : m_pending) {
                if (candidate.id == id) {
                    return &candidate;
                }
            }
            return nullptr;
        };
        connect(key, &QLineEdit::textEdited, this, [this, find, counter](const QString& text) {
            if (BulkMediaDraft* edited = find()) {
                edited->shortcut = text;
            }
            counter->setText(QStringLiteral("%1/%2").arg(text.size()).arg(maxKeyLength));
            updateCounters();
        });
        connect(name, &QLineEdit::textEdited, this, [find](const QString& text) {
            if (BulkMediaDraft* edited = find()) {
                edited->name = text;
            }
        });
        connect(remove, &QToolButton::clicked, this, [this, id] {
            for (qsizetype at = 0; at < m_pending.size(); ++at) {
                if (m_pending[at].id == id) {
                    QFile::remove(m_pending.takeAt(at).mediaPath);
                    break;
                }
            }
            // Deleting the row's widgets from their own signal would pull the button from under it.
            QMetaObject::invokeMethod(this, &BulkMediaSheet::rebuildDrafts, Qt::QueuedConnection);
        });
        auto* row = new QHBoxLayout;
        row->addWidget(key, 2);
        row->addWidget(counter);
        row->addWidget(name, 3);
        row->addWidget(remove);
        m_draftRows->insertLayout(m_draftRows->count() - 1, row);
    }
    updateCounters();
}

void BulkMediaSheet::updateCounters()
{
    m_urlCounter->setText(QStringLiteral("%1/%2 URLs").arg(pastedURLs(m_urls->toPlainText()).size()).arg(maxItems));
    m_fetch->setEnabled(!m_working && !pastedURLs(m_urls->toPlainText()).isEmpty());
    m_draftNote->setVisible(!m_pending.isEmpty());
    m_empty->setVisible(m_pending.isEmpty());
    m_collectionNote->setVisible(m_collection->currentData().toString().isEmpty());
    bool keysFilled = !m_pending.isEmpty();
    for (const BulkMediaDraft& draft : m_pending) {
        keysFilled = keysFilled && !draft.shortcut.trimmed().isEmpty();
    }
    m_save->setEnabled(!m_working && keysFilled);
}

void BulkMediaSheet::accept()
{
    if (m_working || m_pending.isEmpty()) {
        return;
    }
    const QString chosen = m_collection->currentData().toString();
    const QString group = chosen.isEmpty() ? QStringLiteral("Imported") : chosen;
    auto result = std::make_shared<BulkMediaSave>();
    setWorking(true);
    m_db.updateClips(
        [result, drafts = m_pending, group](QList<Clip>& clips) {
            // Keys are made unique against the list as it is at the moment of saving.
            *result = saveBulkMedia(drafts, group, clips);
            clips.append(result->clips);
        },
        this,
        [this, result, group](bool stored) {
            setWorking(false);
            if (!stored) {
                m_status->setText(QStringLiteral("Could not save the shortcuts in %1.").arg(m_db.dir()));
                return;
            }
            if (!m_db.collections().contains(group, Qt::CaseInsensitive)) {
                m_db.setCollections(QStringList(m_db.collections()) << group);
            }
            m_didSave = true;
            emit saved(result->status);
            QDialog::accept();
        });
}

void BulkMediaSheet::reject()
{
    if (m_working) {
        // The copies or downloads stop at their next check; the sheet closes when they are back.
        m_canceled->store(true);
        m_status->setText(QStringLiteral("Canceling…"));
        return;
    }
    discardPending();
    QDialog::reject();
}

void BulkMediaSheet::discardPending()
{
    if (m_didSave) {
        return;
    }
    for (const BulkMediaDraft& draft : m_pending) {
        QFile::remove(draft.mediaPath);
    }
    m_pending.clear();
}

} // namespace tavo
