#pragma once

#include "ai/model_profile.h"
#include "language/shortcut_record.h"
#include "store/collections.h"

#include <QPointer>
#include <QStringList>
#include <QWidget>

#include <optional>
#include <utility>

class QComboBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace tavo {

class AITextRequest;
class DB;
class Defaults;

// The model a rewrite goes to: the selected profile, else the library's first, with its stored
// key. Nothing when that profile has no key.
struct RewriteModel
{
    CollectionAIModelProfile profile;
    QString key;
};
std::optional<RewriteModel> currentRewriteKey(Defaults& defaults);

// The picker's face after \paste and \rewrite: the clipboard's text in an editor, a tone, an AI
// rewrite of it, and the paste back into the user's application.
class RewriteFace : public QWidget
{
    Q_OBJECT

public:
    RewriteFace(Defaults& defaults, QWidget* parent = nullptr);

    void enter(const QString& text, int removeCount);
    // Forgets the text and stops a request under way.
    void reset();

    QString text() const;
    int removeCount() const { return m_removeCount; }
    bool isBusy() const { return m_busy; }
    QString status() const;
    QPlainTextEdit* editor() const { return m_editor; }

public slots:
    void rewriteClipboardText();
    void paste();

signals:
    void pasteRequested(const QString& text, int removeCount);
    // The user clicked into a field: it wants the keyboard.
    void fieldWanted(QWidget* field);
    void closeRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    Defaults& m_defaults;
    QPlainTextEdit* m_editor;
    QComboBox* m_tone;
    QPushButton* m_rewrite;
    QLabel* m_status;
    int m_removeCount = 0;
    bool m_busy = false;
    QPointer<AITextRequest> m_request;
};

// The picker's face after \p: a prompt composed from the payload and saved shortcuts, rephrased
// on request, and pasted back as text or as its reference media.
class PromptFace : public QWidget
{
    Q_OBJECT

public:
    PromptFace(Defaults& defaults, QWidget* parent = nullptr);

    // `db` is what mentions are expanded from; it may be absent.
    void enter(const QString& payload, int removeCount, const DB* db);
    void reset();

    QString text() const;
    QStringList referencePaths() const { return m_referencePaths; }
    int removeCount() const { return m_removeCount; }
    bool isBusy() const { return m_busy; }
    QString status() const;
    QString summary() const;
    QPlainTextEdit* editor() const { return m_editor; }

public slots:
    // Replaces mentions of saved shortcuts in the prompt by what they hold.
    void expandedPromptSnapshot();
    void rephrasePrompt();
    void paste();
    void copyText();
    void copyMedia();

signals:
    void pasteRequested(const QString& text, int removeCount, const QStringList& mediaPaths);
    void copyRequested(const QString& text);
    void mediaCopyRequested(const QStringList& mediaPaths);
    void fieldWanted(QWidget* field);
    void closeRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void addReferencePaths(const QStringList& paths);

    Defaults& m_defaults;
    const DB* m_db = nullptr;
    QPlainTextEdit* m_editor;
    QComboBox* m_tone;
    QPushButton* m_rephrase;
    QLabel* m_status;
    QLabel* m_summary;
    QStringList m_referencePaths;
    int m_removeCount = 0;
    bool m_autoRewritePending = false;
    bool m_busy = false;
    QPointer<AITextRequest> m_request;
};

// The picker's face after \img: a prompt the tap types into, and references named in the command.
class ImageFace : public QWidget
{
    Q_OBJECT

public:
    ImageFace(Defaults& defaults, QWidget* parent = nullptr);

    // `payload` names reference shortcuts and the prompt; `db` is where they are looked up.
    void enter(const QString& payload, const DB* db);
    void reset();
    // A key of the image prompt as the tap sends it: text, "__BACKSPACE__" or "__NEWLINE__".
    void input(const QString& text);

    QString prompt() const;
    QStringList referencePaths() const { return m_referencePaths; }
    QPlainTextEdit* promptField() const { return m_prompt; }

signals:
    void generateRequested();
    void fieldWanted(QWidget* field);
    void closeRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    Defaults& m_defaults;
    QPlainTextEdit* m_prompt;
    QLabel* m_references;
    QStringList m_referencePaths;
};

} // namespace tavo
