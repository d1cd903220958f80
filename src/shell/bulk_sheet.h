#pragma once

#include <QDialog>

#include <atomic>
#include <memory>

class QCheckBox;
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

namespace tavo {

class DB;

// "Paste many": CSV rows pasted or opened from a file become shortcuts. Parsing and media
// downloads run on the thread pool with progress; Cancel stops them and adds nothing. The
// library is changed once, at the end, on the main thread.
class BulkSheet : public QDialog
{
    Q_OBJECT

public:
    explicit BulkSheet(DB& db, QWidget* parent = nullptr);

    // A file too large for the text box is read from disk when the import starts.
    static constexpr qint64 textBoxLimit = 1024 * 1024;

    void openFile(const QString& path);
    void startImport();
    bool isImporting() const { return m_importing; }

    void reject() override;

signals:
    // The import's report, for the window's notice line.
    void imported(const QString& status);

private:
    void setImporting(bool importing);
    void showProgress(int done, int total);
    void updateButtons();

    DB& m_db;
    QPlainTextEdit* m_text;
    QLabel* m_file;
    QCheckBox* m_download;
    QListWidget* m_collections;
    QProgressBar* m_progress;
    QLabel* m_status;
    QPushButton* m_import;
    QPushButton* m_openFile;
    QString m_largeFile;
    bool m_importing = false;
    std::shared_ptr<std::atomic_bool> m_canceled;
};

} // namespace tavo
