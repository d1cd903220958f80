#include "shell/bulk_sheet.h"

#include "exchange/csv.h"
#include "shell/file_chooser.h"
#include "shell/ui/design.h"
#include "store/profile_store.h"

#include <QApplication>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFile>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace tavo {

BulkSheet::BulkSheet(DB& db, QWidget* parent)
    : QDialog(parent)
    , m_db(db)
    , m_text(new QPlainTextEdit(this))
    , m_file(new QLabel(this))
    , m_download(new QCheckBox(QStringLiteral("Download media URLs"), this))
    , m_collections(new QListWidget(this))
    , m_progress(new QProgressBar(this))
    , m_status(new QLabel(this))
{
    setWindowTitle(QStringLiteral("Paste many"));
    setObjectName(QStringLiteral("bulkSheet"));
    auto* intro = new QLabel(QStringLiteral("Paste rows of CSV, or open a CSV file. Columns: %1.")
                                 .arg(csvHeader.split(QLatin1Char(',')).join(QStringLiteral(", "))),
                             this);
    intro->setWordWrap(true);
    m_text->setObjectName(QStringLiteral("bulkText"));
    m_text->setFont(design::fixedFont(font()));
    m_text->setPlaceholderText(QStringLiteral("/ty,Thank you,Thanks,Work,"));
    design::name(m_text, QStringLiteral("CSV rows"));
    m_file->setObjectName(QStringLiteral("bulkFile"));
    m_file->setWordWrap(true);
    m_file->hide();
    m_download->setObjectName(QStringLiteral("bulkDownload"));
    design::name(m_download, QStringLiteral("Download media URLs"));
    m_collections->setObjectName(QStringLiteral("bulkCollections"));
    design::name(m_collections, QStringLiteral("Collections for rows without one"));
    for (const QString& name : m_db.collections()) {
        auto* item = new QListWidgetItem(name, m_collections);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Unchecked);
    }
    m_collections->setMaximumHeight(design::step(this, 16));
    auto* collectionsLabel =
        new QLabel(QStringLiteral("Rows without a collection go to the ones checked here, else to Imported."), this);
    collectionsLabel->setWordWrap(true);
    m_progress->setObjectName(QStringLiteral("bulkProgress"));
    design::name(m_progress, QStringLiteral("Import progress"));
    m_progress->hide();
    m_status->setObjectName(QStringLiteral("bulkStatus"));
    m_status->setWordWrap(true);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    m_openFile = buttons->addButton(QStringLiteral("Open CSV file…"), QDialogButtonBox::ActionRole);
    m_openFile->setObjectName(QStringLiteral("bulkOpenFile"));
    m_import = buttons->addButton(QStringLiteral("Import"), QDialogButtonBox::AcceptRole);
    m_import->setObjectName(QStringLiteral("bulkImport"));
    m_import->setDefault(true);
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("bulkCancel"));
    connect(m_openFile, &QPushButton::clicked, this, [this] {
        const QString path =
            FileChooser::instance().openFile(this, {QStringLiteral("Choose a CSV file of shortcuts."),
                                                    QStringLiteral("CSV files (*.csv *.tsv *.txt);;All files (*)"),
                                                    {},
                                                    {}});
        if (!path.isEmpty()) {
            openFile(path);
        }
    });
    connect(buttons, &QDialogButtonBox::accepted, this, &BulkSheet::startImport);
    connect(buttons, &QDialogButtonBox::rejected, this, &BulkSheet::reject);
    connect(m_text, &QPlainTextEdit::textChanged, this, &BulkSheet::updateButtons);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(intro);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_file);
    layout->addWidget(m_download);
    layout->addWidget(collectionsLabel);
    layout->addWidget(m_collections);
    layout->addWidget(m_progress);
    layout->addWidget(m_status);
    layout->addWidget(buttons);
    resize(design::step(this, 80), design::step(this, 64));
    updateButtons();
}

void BulkSheet::openFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        m_status->setText(QStringLiteral("Could not open %1.").arg(QFileInfo(path).fileName()));
        return;
    }
    m_status->clear();
    if (file.size() > textBoxLimit) {
        // A large file would make the text box crawl: it is read when the import starts.
        m_largeFile = path;
        m_text->clear();
        m_text->setEnabled(false);
        m_file->setText(QStringLiteral("Importing from %1 (%2).")
                            .arg(QFileInfo(path).fileName(), QLocale().formattedDataSize(file.size())));
        m_file->show();
    } else {
        m_largeFile.clear();
        m_text->setEnabled(true);
        m_file->hide();
        m_text->setPlainText(decodeCSVBytes(file.readAll()));
    }
    updateButtons();
}

void BulkSheet::updateButtons()
{
    const bool hasInput = !m_largeFile.isEmpty() || !m_text->toPlainText().trimmed().isEmpty();
    m_import->setEnabled(hasInput && !m_importing);
    m_openFile->setEnabled(!m_importing);
}

void BulkSheet::setImporting(bool importing)
{
    m_importing = importing;
    m_text->setReadOnly(importing);
    m_download->setEnabled(!importing);
    m_collections->setEnabled(!importing);
    m_progress->setVisible(importing);
    updateButtons();
}

void BulkSheet::showProgress(int done, int total)
{
    m_progress->setMaximum(qMax(total, 1));
    m_progress->setValue(done);
    m_status->setText(QStringLiteral("Importing row %1 of %2…").arg(done).arg(total));
}

void BulkSheet::startImport()
{
    if (m_importing) {
        return;
    }
    QStringList defaults;
    for (int row = 0; row < m_collections->count(); ++row) {
        if (m_collections->item(row)->checkState() == Qt::Checked) {
            defaults << m_collections->item(row)->text();
        }
    }
    setImporting(true);
    m_progress->setRange(0, 0);
    m_status->setText(QStringLiteral("Reading the rows…"));
    m_canceled = std::make_shared<std::atomic_bool>(false);

    const QString text = m_largeFile.isEmpty() ? m_text->toPlainText() : QString();
    const QString file = m_largeFile;
    const bool download = m_download->isChecked();
    const QStringList known = m_db.collections();
    const QString attachments = m_db.attachmentsDir();
    std::shared_ptr<std::atomic_bool> canceled = m_canceled;
    // The sheet waits for the work before it closes, but the window may still go at quit: the
    // progress is posted to the application and finds the sheet only while it is there.
    auto progress = [sheet = QPointer<BulkSheet>(this), last = std::make_shared<int>(-1)](int done, int total) {
        const int percent = total > 0 ? int(qint64(done) * 100 / total) : 0;
        if (percent != *last) {
            *last = percent;
            QMetaObject::invokeMethod(
                qApp,
                [sheet, done, total] {
                    if (sheet) {
                        sheet->showProgress(done, total);
                    }
                },
                Qt::QueuedConnection);
        }
    };
    auto work = [text, file, download, defaults, known, attachments, canceled, progress]() -> PreparedCSVImport {
        QString source = text;
        if (!file.isEmpty()) {
            QFile input(file);
            if (!input.open(QIODevice::ReadOnly)) {
                PreparedCSVImport failed;
                failed.error = QStringLiteral("Could not read %1.").arg(QFileInfo(file).fileName());
                return failed;
            }
            source = decodeCSVBytes(input.readAll());
        }
        const CSVRows rows = parseCSV(source, [&](qsizetype, qsizetype) { return !canceled->load(); });
        CSVImportControl control;
        control.canceled = canceled.get();
        control.progress = progress;
        PreparedCSVImport prepared = prepareCSVImport(rows, download, defaults, known, attachments, control);
        if (canceled->load() && !prepared.canceled) {
            discardCSVImport(prepared);
            prepared = PreparedCSVImport();
            prepared.canceled = true;
        }
        return prepared;
    };
    auto* watcher = new QFutureWatcher<PreparedCSVImport>(this);
    connect(watcher, &QFutureWatcher<PreparedCSVImport>::finished, this, [this, watcher] {
        watcher->deleteLater();
        const PreparedCSVImport prepared = watcher->result();
        if (prepared.canceled) {
            setImporting(false);
            QDialog::reject();
            return;
        }
        // Still importing while the library takes the rows in on the store's thread.
        applyCSVImport(m_db, prepared, this, [this](const Result<QString>& status) {
            setImporting(false);
            if (!status) {
                m_status->setText(status.error().description);
                return;
            }
            emit imported(*status);
            QDialog::accept();
        });
    });
    watcher->setFuture(QtConcurrent::run(std::move(work)));
}

void BulkSheet::reject()
{
    if (m_importing) {
        // The work ends at its next check and removes what it downloaded; the sheet closes then.
        m_canceled->store(true);
        m_status->setText(QStringLiteral("Canceling…"));
        return;
    }
    QDialog::reject();
}

} // namespace tavo
