#pragma once

#include "exchange/bulk_media.h"

#include <QDialog>

#include <atomic>
#include <functional>
#include <memory>

class QButtonGroup;
class QComboBox;
class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QVBoxLayout;

namespace tavo {

class DB;

// "Bulk media": up to ten files or direct media addresses become one shortcut each, reviewed
// before they are saved. Files are copied (addresses downloaded) into the profile's attachments
// on the thread pool as soon as they are chosen; what is not saved is removed again.
class BulkMediaSheet : public QDialog
{
    Q_OBJECT

public:
    static constexpr int maxItems = 10;
    static constexpr qint64 maxFileBytes = 524'288'000;
    static constexpr int maxKeyLength = 20;

    explicit BulkMediaSheet(DB& db, QWidget* parent = nullptr);
    ~BulkMediaSheet() override;

    // The http and https addresses of pasted text, split at line ends and semicolons, at most ten.
    static QStringList pastedURLs(const QString& text);

    // What the "Choose files" button does with the files picked.
    void addFiles(const QStringList& files);
    void downloadURLs();
    const QList<BulkMediaDraft>& pending() const { return m_pending; }
    QString status() const;
    bool isWorking() const { return m_working; }

    void accept() override;
    void reject() override;

signals:
    void saved(const QString& status);

private:
    // What a batch of copies or downloads gives back.
    struct Fetched
    {
        QStringList paths;
        QStringList failures;
    };
    void fetchInBackground(std::function<Fetched()> work);
    void showSource(int mode);
    void setWorking(bool working, const QString& status = {});
    void takeMedia(const QStringList& paths, const QStringList& failures);
    void rebuildDrafts();
    void updateCounters();
    void discardPending();

    DB& m_db;
    QList<BulkMediaDraft> m_pending;
    bool m_working = false;
    bool m_didSave = false;
    std::shared_ptr<std::atomic_bool> m_canceled;

    QButtonGroup* m_source;
    QStackedWidget* m_pages;
    QPlainTextEdit* m_urls;
    QLabel* m_urlCounter;
    QPushButton* m_fetch;
    QLabel* m_draftNote;
    QLabel* m_empty;
    QWidget* m_drafts;
    QVBoxLayout* m_draftRows;
    QComboBox* m_collection;
    QLabel* m_collectionNote;
    QProgressBar* m_progress;
    QLabel* m_status;
    QPushButton* m_save;
};

} // namespace tavo
