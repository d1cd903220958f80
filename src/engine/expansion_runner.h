#pragma once

#include "ai/text_client.h"
#include "engine/expansion_plan.h"
#include "platform/desktop.h"
#include "store/scorecard.h"

#include <QElapsedTimer>
#include <QFutureWatcher>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QObject>
#include <QTimer>

#include <functional>

namespace tavo {

class DB;
class Defaults;
class Desktop;
class Pasteboard;
class QuillAppDelegate;
class TavoAccountStore;

// "Open website shortcuts in:": true for "my default browser", absent or false for Tavo Browser.
inline const QString websiteShortcutsInDefaultBrowserKey = QStringLiteral("tavoWebsiteShortcutsInDefaultBrowser");

// Carries out what a typed trigger means in the application the user works in: remembers that
// application when a trigger starts, decides when it ends, and pastes, opens or launches.
class ExpansionRunner : public QObject
{
    Q_OBJECT

public:
    ExpansionRunner(DB& db, TavoAccountStore& accounts, Defaults& defaults, QuillAppDelegate& delegate,
                    Desktop& desktop, Pasteboard& pasteboard, QObject* parent = nullptr);
    ~ExpansionRunner() override;

    // The library as a decision sees it now.
    ExpansionLibrary library() const;
    // Hands the tap's thread a copy of it; follows every change of the store and the account.
    void publishLibrary();

    DesktopWindow returnApp() const { return m_returnApp; }
    // The picker's "hidden only" switch: while it is on, hidden collections expand too.
    void setPickerShowsHiddenOnly(bool on);

public slots:
    void openPicker(bool slashTriggered);
    // Carries out a plan the tap's thread made from its copy of the library, for the trigger
    // the key `endingKey` ended, once that key is sure to be held.
    void carryOutPlanned(const tavo::ExpansionPlan& plan, int length, quint64 endingKey);
    // A program took the clipboard's content: if it is the target, through `requestor`, one of
    // its windows (0: unknown), the paste has landed.
    void pasteTaken(quint64 requestor = 0);
    // A row chosen in the picker. `mustRemove` asks that at least one typed character go (the
    // first-row route).
    void chooseClip(const Clip& clip, bool mustRemove);
    // The picker's command faces paste or copy what they made. `removeCount` is 0 when the typed
    // command was removed as the face opened.
    void pasteRewrite(const QString& text, int removeCount);
    void pastePrompt(const QString& text, int removeCount, const QStringList& mediaPaths);
    void copyPrompt(const QString& text);
    void copyPromptMedia(const QStringList& mediaPaths);

signals:
    void noticeChanged(const QString& notice);
    void hidePickerRequested();
    // A shortcut that opens Tavo itself.
    void showSelfRequested();
    // A website shortcut for the built-in browser: the application opens `url` in a new tab there
    // and brings Tavo forward; the notice follows.
    void tavoBrowserRequested(const QString& url);
    // An inline command hands the picker over to one of its faces. The face enters before the
    // typed command is removed, so the panel is on screen while the text disappears; the count is
    // what its own paste still has to remove (0 once the command is gone).
    void promptCommandEntered(const QString& payload, int removeCount);
    void rewriteCommandEntered(const QString& clipboardText, int removeCount);
    void imageCommandEntered(const QString& payload);
    // The typed \p is gone: the prompt editor may take the keyboard now.
    void promptEditorFocusRequested();
    void pickerQueryRequested(const QString& query);
    // A builder command that waits for values: the picker shows its card, the target keeps the
    // keyboard.
    void builderCardRequested(const tavo::CustomBuilderCommand& command);
    // A complete builder command typed and ended: its output is to be made from `trigger`, the
    // command as typed, which stays in the target.
    void builderGenerateRequested(const QString& trigger);

private:
    void carryOut(const ExpansionPlan& plan, int length);
    void startInlineCommand(const ExpansionPlan& plan, int length);
    void startBuilderCommand(const ExpansionPlan& plan);
    // A new snapshot of the builder apps when their settings, the shortcuts or the records have
    // changed since the last one.
    void refreshBuilderCommands(const ExpansionLibrary& library);
    std::shared_ptr<const ExpansionIndex> indexFor(const ExpansionLibrary& library);
    // Removes a typed inline command; false (with `refusal` as the notice) when it cannot.
    bool removeInlineCommand(int count, const QString& noReturnApp, const QString& refusal);
    // Rewrites the clipboard through the selected model and pastes the answer in place of the
    // typed command, unless the user has typed on or moved elsewhere meanwhile.
    void rewriteClipboardToTone(const QString& tone, int removeCount, const QString& suffix);
    void pasteFromFace(int removeCount, const ClipboardRequest& request);
    // Removes the typed trigger, writes the clipboard through `writeClipboard` (which gives the
    // notice) and sends the paste chord.
    // `activationBoundMs` 0: the usual bound, for a target that has kept the focus.
    void pasteIntoReturnApp(int removeCount, const std::function<QString()>& writeClipboard, bool ownsHold = true,
                            int activationBoundMs = 0);
    void removeTrigger(int count, int cap);
    void openWebsiteShortcut(const Clip& clip, int removeCount);
    void launchDesktopShortcut(const Clip& clip, int removeCount);
    void pasteDefaultMedia(const Clip& clip, int removeCount);
    bool isSpreadsheet(const DesktopWindow& window);
    void finishWithoutPaste(bool giveBackEndingKey);
    void releaseHold();
    void pasteLanded();
    void notice(const QString& text);
    // The stages of the expansion under way, timed from its decision, when they are traced.
    void traceStage(const char* stage, bool last = false);

    DB& m_db;
    TavoAccountStore& m_accounts;
    Defaults& m_defaults;
    QuillAppDelegate& m_delegate;
    Desktop& m_desktop;
    Pasteboard& m_pasteboard;
    QNetworkAccessManager m_network;
    DesktopWindow m_returnApp;
    MetricCounter m_metrics;
    QTimer m_holdTimer;
    bool m_pickerShowsHiddenOnly = false;
    std::shared_ptr<const BuilderCommandSnapshot> m_builder;
    std::shared_ptr<const ExpansionIndex> m_index; // of the last lists published
    QFutureWatcher<std::shared_ptr<const ExpansionIndex>>* m_indexing = nullptr;
    QJsonObject m_builderSettings; // what m_builder was read from
    bool m_builderStale = true;    // the shortcuts or records changed since
    quint64 m_heldKey = 0;         // the key whose hold the expansion under way claimed
    quint64 m_landingKey = 0;      // the hold let go when the paste on its way has landed
    QString m_pendingNotice;
    QPointer<AITextRequest> m_toneRewrite; // one at a time: a newer command replaces it
    QElapsedTimer m_traceClock;
    QString m_trace;
};

} // namespace tavo
