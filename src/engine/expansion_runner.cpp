#include "engine/expansion_runner.h"

#include "ai/model_profile_store.h"
#include "builder/builder_app.h"
#include "engine/inline_commands.h"
#include "engine/quill_app_delegate.h"
#include "language/triggers.h"
#include "platform/pasteboard.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"
#include "store/scorecard.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QUrl>
#include <QtConcurrent/QtConcurrentRun>

namespace tavo {

namespace {

// Upper bounds, not sleeps: activation returns as soon as the window has the focus.
constexpr int activationTimeoutMs = 80;
// After a face of the picker had the keyboard, the focus has to travel back to the target first.
constexpr int activationFromPickerMs = 500;
constexpr int modifierReleaseTimeoutMs = 400;
constexpr int spreadsheetEscapeDelayMs = 120;
// Keys typed during an expansion wait this long at most for the target to take the paste.
constexpr int pasteLandingTimeoutMs = 300;
constexpr int removalCap = 80;

const QString ownWindowClass = QStringLiteral("tavo");

const QStringList browserClasses{QStringLiteral("google-chrome"), QStringLiteral("chromium"), QStringLiteral("firefox"),
                                 QStringLiteral("brave-browser"), QStringLiteral("microsoft-edge")};

LiveTokenSources tokenSources(const Pasteboard& pasteboard)
{
    LiveTokenSources sources;
    sources.pasteboard = &pasteboard;
    return sources;
}

// A desktop entry by file path or desktop-file id, in the user's and the system's folders.
QString findDesktopEntry(const Clip& clip)
{
    if (clip.appPath && QFileInfo::exists(*clip.appPath)) {
        return *clip.appPath;
    }
    if (clip.appBundleIdentifier && !clip.appBundleIdentifier->isEmpty()) {
        QString id = *clip.appBundleIdentifier;
        if (!id.endsWith(QLatin1String(".desktop"))) {
            id += QStringLiteral(".desktop");
        }
        const QString found = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, id);
        if (!found.isEmpty()) {
            return found;
        }
    }
    return {};
}

} // namespace

ExpansionRunner::ExpansionRunner(DB& db, TavoAccountStore& accounts, Defaults& defaults, QuillAppDelegate& delegate,
                                 Desktop& desktop, Pasteboard& pasteboard, QObject* parent)
    : QObject(parent)
    , m_db(db)
    , m_accounts(accounts)
    , m_defaults(defaults)
    , m_delegate(delegate)
    , m_desktop(desktop)
    , m_pasteboard(pasteboard)
    , m_metrics(defaults)
{
    m_holdTimer.setSingleShot(true);
    m_holdTimer.setInterval(pasteLandingTimeoutMs);
    connect(&m_holdTimer, &QTimer::timeout, this, &ExpansionRunner::pasteLanded);

    // The tap's thread decides unmatched triggers on its own from a copy of the library.
    const auto libraryChanged = [this] {
        m_builderStale = true; // the aliases builder commands take come from these
        publishLibrary();
    };
    connect(&m_db, &DB::clipsChanged, this, libraryChanged);
    connect(&m_db, &DB::collectionRecordsChanged, this, libraryChanged);
    connect(&m_db, &DB::hiddenCollectionsChanged, this, libraryChanged);
    connect(&m_defaults, &Defaults::valuesChanged, this, &ExpansionRunner::publishLibrary);
    connect(&m_accounts, &TavoAccountStore::isAuthenticatedChanged, this, libraryChanged);
    publishLibrary();
}

ExpansionRunner::~ExpansionRunner()
{
    // The counters are written as the members go, and a change of the settings must not publish
    // a library from a runner half taken apart.
    disconnect(&m_defaults, nullptr, this, nullptr);
    disconnect(&m_db, nullptr, this, nullptr);
    disconnect(&m_accounts, nullptr, this, nullptr);
}

ExpansionLibrary ExpansionRunner::library() const
{
    ExpansionLibrary library;
    library.clips = m_db.clips();
    library.records = m_db.collectionRecords();
    library.hiddenCollections = m_db.hiddenCollections();
    library.showHidden = m_defaults.flag(QStringLiteral("tavoPickerShowHiddenCollections")) || m_pickerShowsHiddenOnly;
    library.builder = m_builder;
    return library;
}

void ExpansionRunner::refreshBuilderCommands(const ExpansionLibrary& library)
{
    // Settings change at every expansion (its counters): only the builder's own keys and the
    // hidden switch make a new snapshot, which reads every app and indexes every alias.
    QJsonObject settings{{QStringLiteral(" showHidden"), library.showHidden}};
    for (const QString& key : m_defaults.keys()) {
        if (key.startsWith(QLatin1String("tavoBuilder")) || key == builderAppsKey) {
            settings.insert(key, m_defaults.value(key));
        }
    }
    if (m_builder && !m_builderStale && settings == m_builderSettings) {
        return;
    }
    m_builder = builderSnapshotFor(m_defaults, library);
    m_builderSettings = std::move(settings);
    m_builderStale = false;
}

void ExpansionRunner::setPickerShowsHiddenOnly(bool on)
{
    if (on != m_pickerShowsHiddenOnly) {
        m_pickerShowsHiddenOnly = on;
        publishLibrary();
    }
}

void ExpansionRunner::publishLibrary()
{
    if (!m_accounts.isAuthenticated()) {
        m_builder.reset();
        m_index.reset(); // it keeps the signed-out profile's lists alive
        m_delegate.setLibrary(nullptr);
        return;
    }
    // The lists are shared, not copied: a copy costs a pointer until the store changes them.
    ExpansionLibrary current = library();
    refreshBuilderCommands(current);
    current.builder = m_builder;
    current.index = indexFor(current);
    m_delegate.setLibrary(std::make_shared<const ExpansionLibrary>(std::move(current)));
}

std::shared_ptr<const ExpansionIndex> ExpansionRunner::indexFor(const ExpansionLibrary& library)
{
    if (m_index && m_index->indexes(library.clips, library.records)) {
        return m_index;
    }
    // A small library is indexed at once; a large one on the pool, and decided by a scan until
    // then, so the main thread never stalls for it.
    constexpr qsizetype indexAtOnce = 5'000;
    if (library.clips.size() + library.records.size() <= indexAtOnce) {
        m_index = ExpansionIndex::build(library.clips, library.records);
        return m_index;
    }
    if (!m_indexing) {
        m_indexing = new QFutureWatcher<std::shared_ptr<const ExpansionIndex>>(this);
        connect(m_indexing, &QFutureWatcherBase::finished, this, [this] {
            m_index = m_indexing->result();
            publishLibrary(); // indexes anew if the lists changed meanwhile
        });
    }
    if (!m_indexing->isRunning()) {
        m_indexing->setFuture(QtConcurrent::run(&ExpansionIndex::build, library.clips, library.records));
    }
    return nullptr;
}

void ExpansionRunner::notice(const QString& text)
{
    emit noticeChanged(text);
}

void ExpansionRunner::openPicker(bool slashTriggered)
{
    if (!m_accounts.isAuthenticated()) {
        return;
    }
    if (slashTriggered) {
        m_metrics.count(m_accounts.currentUsername(), Metric::backslashInvocations);
    }
    m_delegate.clearQueryBuffer();
    const DesktopWindow front = m_desktop.activeWindow();
    // The picker's own window never becomes the place to paste back into.
    if (front.windowClass != ownWindowClass) {
        m_returnApp = front;
    }
}

void ExpansionRunner::traceStage(const char* stage, bool last)
{
    if (!m_traceClock.isValid()) {
        return;
    }
    m_trace += QStringLiteral(", %1 +%2").arg(QLatin1String(stage)).arg(m_traceClock.nsecsElapsed() / 1e6, 0, 'f', 2);
    if (last) {
        qCDebug(lcExpansionTiming).noquote() << m_trace;
        m_traceClock.invalidate();
    }
}

void ExpansionRunner::carryOutPlanned(const ExpansionPlan& plan, int length, quint64 endingKey)
{
    m_traceClock = m_delegate.planClock();
    if (m_traceClock.isValid()) {
        m_trace =
            QStringLiteral("key %1 decision began at %2 ms").arg(endingKey).arg(m_traceClock.msecsSinceReference());
        traceStage("handed");
    }
    if (!m_delegate.claimHold(endingKey)) {
        // The ending key went on to the application after all, and maybe more keys behind it:
        // removing the trigger now would remove them. Nothing is held, so nothing is released.
        emit hidePickerRequested();
        notice(QStringLiteral("Tavo was too busy to expand that shortcut in time; it stays as typed."));
        return;
    }
    m_heldKey = endingKey;
    if (!m_accounts.isAuthenticated()) {
        // Signed out since the plan was made: nothing of the library may come out.
        m_delegate.setTriggerTracking(false);
        emit hidePickerRequested();
        finishWithoutPaste(true);
        return;
    }
    carryOut(plan, length);
}

void ExpansionRunner::carryOut(const ExpansionPlan& plan, int length)
{
    m_delegate.setTriggerTracking(false);
    if (plan.kind == ExpansionPlan::Kind::InlineCommand) {
        startInlineCommand(plan, length); // the picker stays: its face takes over
        return;
    }
    if (plan.kind == ExpansionPlan::Kind::BuilderCommand) {
        startBuilderCommand(plan);
        return;
    }
    // The panel goes once the keys and the chord are out: unmapping it would only delay them.
    QMetaObject::invokeMethod(this, &ExpansionRunner::hidePickerRequested, Qt::QueuedConnection);
    if (plan.givesEndingKeyBack()) {
        finishWithoutPaste(true);
        return;
    }
    if (plan.kind == ExpansionPlan::Kind::Nothing) {
        finishWithoutPaste(false);
        return;
    }
    // Written a moment later: nothing on the way to the paste touches a file.
    m_metrics.count(m_accounts.currentUsername(), Metric::shortcutsUsed);
    switch (plan.kind) {
    case ExpansionPlan::Kind::NotSignedIn:
    case ExpansionPlan::Kind::NoMatch:
    case ExpansionPlan::Kind::InlineCommand:
    case ExpansionPlan::Kind::BuilderCommand:
    case ExpansionPlan::Kind::Nothing:
        return; // handled above
    case ExpansionPlan::Kind::Calculation:
    case ExpansionPlan::Kind::Paste:
        pasteIntoReturnApp(length,
                           [&] { return prepareClipboard(m_pasteboard, plan.paste, tokenSources(m_pasteboard)); });
        return;
    case ExpansionPlan::Kind::Batch:
        pasteIntoReturnApp(length, [&] {
            return prepareBatchClipboard(m_pasteboard, plan.batch, plan.separator, m_db.attachmentsDir(),
                                         tokenSources(m_pasteboard));
        });
        return;
    case ExpansionPlan::Kind::Website:
        openWebsiteShortcut(plan.clip, length);
        return;
    case ExpansionPlan::Kind::Launch:
        launchDesktopShortcut(plan.clip, length);
        return;
    case ExpansionPlan::Kind::DefaultMedia:
        pasteDefaultMedia(plan.clip, length);
        return;
    }
}

void ExpansionRunner::chooseClip(const Clip& clip, bool mustRemove)
{
    const QString buffer = m_delegate.triggerBuffer();
    const int length = static_cast<int>(buffer.size());
    const int removeCount = length > 0 ? length : (mustRemove ? 1 : 0);
    if (length > 0 || mustRemove) {
        m_delegate.setTriggerTracking(false);
    }
    m_delegate.setPickerActive(false);

    ExpansionPlan plan;
    if (clip.isMathResult.value_or(false)) {
        Clip calculation = clip;
        calculation.text += u' ';
        plan.kind = ExpansionPlan::Kind::Calculation;
        plan.paste = ClipboardRequest{calculation, true, false, {}, {}, {}, false};
    } else if (const std::optional<ShortcutBatchRequest> batch = parseBatchTrigger(buffer);
               batch && !resolveBatch(*batch, library().clips).isEmpty()) {
        plan.kind = ExpansionPlan::Kind::Batch;
        plan.batch = resolveBatch(*batch, library().clips);
        plan.separator = batch->separator;
    } else {
        // A chosen row pastes without an ending key: none was typed.
        plan = planForClip(clip, QString(), parseStyledTrigger(buffer).style);
    }
    carryOut(plan, removeCount);
}

bool ExpansionRunner::isSpreadsheet(const DesktopWindow& window)
{
    // The title costs round trips to the X server on the way to the paste: only asked of the
    // classes that can show a sheet.
    if (window.windowClass == QLatin1String("libreoffice-calc") || window.windowClass == QLatin1String("soffice")) {
        return m_desktop.title(window).contains(QLatin1String("LibreOffice Calc"));
    }
    if (browserClasses.contains(window.windowClass)) {
        const QString lowered = m_desktop.title(window).toLower();
        return lowered.contains(QLatin1String("google sheets")) || lowered.contains(QLatin1String("spreadsheet")) ||
               lowered.contains(QLatin1String("microsoft excel"));
    }
    return false;
}

void ExpansionRunner::pasteIntoReturnApp(int removeCount, const std::function<QString()>& writeClipboard, bool ownsHold,
                                         int activationBoundMs)
{
    const DesktopWindow target = m_returnApp;
    if (!target.isValid() || !m_desktop.unavailableReason().isEmpty()) {
        // The clipboard still gets the expansion: the user can paste it by hand.
        notice(writeClipboard());
        notice(target.isValid()
                   ? QStringLiteral("Allow Quill under an X11 session with keyboard access (XTEST), then try again.")
                   : QStringLiteral("Quill could not find the app you were using. Try again from that app."));
        if (ownsHold) {
            releaseHold();
        }
        return;
    }
    // The hold this paste lets go once it has landed: none for a paste that comes late (a
    // portrait after its download), when the hold in place is another expansion's.
    const quint64 holdKey = ownsHold ? std::exchange(m_heldKey, 0) : 0;
    traceStage("planned");
    const bool spreadsheet = removeCount >= 1 && isSpreadsheet(target);
    traceStage("spreadsheet checked");
    m_desktop.prepareToType(target, activationBoundMs > 0 ? activationBoundMs : activationTimeoutMs,
                            modifierReleaseTimeoutMs);
    traceStage("focus and modifiers checked");
    // The target deletes the trigger while the clipboard is being taken; the chord follows both.
    if (spreadsheet) {
        // Leaving the cell editor drops the typed trigger with it.
        m_desktop.sendEscape();
    } else {
        m_desktop.sendBackspaces(removeCount);
    }
    traceStage("removal sent");
    writeClipboard(); // its notice gives way to the paste's own
    if (m_desktop.pastesFromSelection(target)) {
        m_pasteboard.copyToSelection();
    }
    traceStage("clipboard taken");
    const QString name = target.applicationName.isEmpty() ? QStringLiteral("your app") : target.applicationName;
    auto paste = [this, target, name, holdKey] {
        m_desktop.sendPaste(target); // not waited for: the target's request is what tells
        traceStage("chord sent");
        if (m_traceClock.isValid()) {
            QTimer::singleShot(0, this, [this] { traceStage("main thread free"); });
        }
        if (holdKey == 0 && m_holdTimer.isActive()) {
            notice(QStringLiteral("Pasted into ") + name); // another paste's landing is awaited
            return;
        }
        // Shown once the paste has landed: until then the main thread is the clipboard's server.
        m_pendingNotice = QStringLiteral("Pasted into ") + name;
        m_landingKey = holdKey;
        m_holdTimer.start();
    };
    if (spreadsheet) {
        // The sheet needs a moment out of the cell editor before it takes a paste.
        QTimer::singleShot(spreadsheetEscapeDelayMs, this, paste);
        return;
    }
    paste();
}

void ExpansionRunner::pasteTaken(quint64 requestor)
{
    // A clipboard manager copies each new content at once, long before a slow target asks:
    // only the target's own request says the paste is in.
    if (requestor != 0 && !m_desktop.isWindowOf(m_returnApp, requestor)) {
        return;
    }
    if (m_holdTimer.isActive()) {
        traceStage("target read");
        m_holdTimer.stop();
        pasteLanded();
    }
}

void ExpansionRunner::pasteLanded()
{
    if (const quint64 key = std::exchange(m_landingKey, 0)) {
        m_delegate.releaseHeldKeys(key, false);
        traceStage("release asked", true);
    }
    if (!m_pendingNotice.isEmpty()) {
        notice(std::exchange(m_pendingNotice, QString()));
    }
}

void ExpansionRunner::releaseHold()
{
    // Once: the key is forgotten with its release.
    if (const quint64 key = std::exchange(m_heldKey, 0)) {
        m_delegate.releaseHeldKeys(key, false);
    }
}

void ExpansionRunner::finishWithoutPaste(bool giveBackEndingKey)
{
    if (const quint64 key = std::exchange(m_heldKey, 0)) {
        m_delegate.releaseHeldKeys(key, giveBackEndingKey);
    }
}

void ExpansionRunner::removeTrigger(int count, int cap)
{
    if (count < 1 || !m_returnApp.isValid() || !m_desktop.unavailableReason().isEmpty()) {
        return;
    }
    m_desktop.activate(m_returnApp, activationTimeoutMs);
    m_desktop.waitForModifiersReleased(modifierReleaseTimeoutMs);
    m_desktop.sendBackspaces(cap > 0 ? qMin(count, cap) : count);
    m_desktop.flush();
}

void ExpansionRunner::openWebsiteShortcut(const Clip& clip, int removeCount)
{
    const QUrl url(clip.webURL.value_or(QString()));
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || (scheme != QLatin1String("http") && scheme != QLatin1String("https"))) {
        finishWithoutPaste(false);
        return;
    }
    removeTrigger(removeCount, 0); // a website's trigger is removed whole, however long
    releaseHold();
    if (m_defaults.flag(websiteShortcutsInDefaultBrowserKey)) {
        m_desktop.openUrl(url.toString());
        notice(QStringLiteral("Opened ") + clip.name + QStringLiteral(" in your browser"));
        return;
    }
    emit tavoBrowserRequested(url.toString());
    notice(QStringLiteral("Opened ") + clip.name + QStringLiteral(" in Tavo Browser"));
}

void ExpansionRunner::launchDesktopShortcut(const Clip& clip, int removeCount)
{
    if (clip.appBundleIdentifier == ownWindowClass) {
        finishWithoutPaste(false);
        emit showSelfRequested();
        return;
    }
    const QString entry = findDesktopEntry(clip);
    if (entry.isEmpty()) {
        notice(QStringLiteral("Could not find ") + clip.name +
               QStringLiteral(" on this computer. Refresh Desktop apps to update the list."));
        finishWithoutPaste(false);
        return;
    }
    removeTrigger(removeCount, removalCap);
    releaseHold();
    QString error;
    if (!m_desktop.launchDesktopEntry(entry, &error)) {
        notice(QStringLiteral("Could not open ") + clip.name + QStringLiteral(": ") + error);
    }
}

void ExpansionRunner::pasteDefaultMedia(const Clip& clip, int removeCount)
{
    // Nothing is pasted until the portrait is here; what the user types meanwhile goes on.
    releaseHold();
    const DesktopWindow target = m_returnApp;
    downloadDefaultMedia(m_db, clip, m_network, [this, id = clip.id, removeCount, target](bool ok, const QString&) {
        const QList<Clip>& clips = m_db.clips();
        const auto found =
            std::find_if(clips.cbegin(), clips.cend(), [&](const Clip& candidate) { return candidate.id == id; });
        if (!ok || found == clips.cend() || found->files.isEmpty()) {
            notice(QStringLiteral("Could not download the default portrait."));
            return;
        }
        m_returnApp = target;
        pasteIntoReturnApp(
            removeCount,
            [&] {
                return prepareClipboard(m_pasteboard, ClipboardRequest{*found, false, true, {}, {}, {}, false},
                                        tokenSources(m_pasteboard));
            },
            false); // its hold went when the download began
    });
}

void ExpansionRunner::startInlineCommand(const ExpansionPlan& plan, int length)
{
    const std::optional<InlineCommand> command = parseInlineCommand(plan.command, plan.suffix);
    if (!command) {
        finishWithoutPaste(true);
        return;
    }
    // One removal: when it runs now, a paste from the face later removes nothing more.
    const bool canRemove = m_returnApp.isValid() && m_desktop.unavailableReason().isEmpty();
    const int laterRemoval = canRemove ? 0 : length;
    switch (command->kind) {
    case InlineCommand::Kind::Prompt:
        // The editor takes the keyboard itself, once the command has left the target.
        m_delegate.setImagePromptMode(false);
        m_delegate.setPickerActive(false);
        emit promptCommandEntered(command->payload, laterRemoval);
        removeInlineCommand(length, InlineNotice::promptNoReturnApp, InlineNotice::promptNoPermission);
        releaseHold();
        emit promptEditorFocusRequested();
        return;
    case InlineCommand::Kind::Rewrite: {
        const QString text = m_pasteboard.string();
        emit rewriteCommandEntered(text, laterRemoval);
        // The tap takes the keyboard for the face once the hold has let the removal through.
        m_delegate.setImagePromptMode(false);
        m_delegate.setPickerActive(true);
        removeInlineCommand(length, QString(), InlineNotice::rewriteNoPermission);
        releaseHold();
        return;
    }
    case InlineCommand::Kind::Image:
        emit imageCommandEntered(command->payload);
        m_delegate.clearQueryBuffer();
        m_delegate.setImagePromptMode(true);
        m_delegate.setPickerActive(true);
        removeInlineCommand(length, QString(), InlineNotice::imageNoPermission);
        releaseHold();
        return;
    case InlineCommand::Kind::ToneRewrite:
        rewriteClipboardToTone(command->tone, length, plan.suffix);
        return;
    }
}

void ExpansionRunner::startBuilderCommand(const ExpansionPlan& plan)
{
    // The command stays typed either way, and its ending key is gone: it was the command's.
    finishWithoutPaste(false);
    if (plan.generates) {
        QMetaObject::invokeMethod(this, &ExpansionRunner::hidePickerRequested, Qt::QueuedConnection);
        emit builderGenerateRequested(plan.command);
        return;
    }
    emit builderCardRequested(plan.builder);
}

bool ExpansionRunner::removeInlineCommand(int count, const QString& noReturnApp, const QString& refusal)
{
    if (!m_returnApp.isValid()) {
        if (!noReturnApp.isEmpty()) {
            notice(noReturnApp);
        }
        return false;
    }
    if (!m_desktop.unavailableReason().isEmpty()) {
        notice(refusal);
        return false;
    }
    // While the ending key's hold lasts the tap keeps no grab of the whole keyboard, so these
    // keys reach the target and never become the picker's query or prompt.
    removeTrigger(count, 0);
    return true;
}

void ExpansionRunner::rewriteClipboardToTone(const QString& tone, int removeCount, const QString& suffix)
{
    // The answer may take long: nothing is held meanwhile, and the typed command stays until it
    // comes.
    releaseHold();
    const QString text = m_pasteboard.string().trimmed();
    if (text.isEmpty()) {
        notice(InlineNotice::copyTextFirst(tone));
        emit pickerQueryRequested(QStringLiteral("paste"));
        return;
    }
    const QList<CollectionAIModelProfile> profiles = AIModelProfileStore::load(m_defaults);
    const CollectionAIModelProfile profile =
        AIModelProfileStore::selectedModel(profiles, AIModelProfileStore::selectedProfileID(m_defaults));
    const Result<std::optional<QString>> key = KeyStore::load(profile.keyAccount);
    if (profiles.isEmpty() || !key.ok() || !key.value() || key.value()->isEmpty()) {
        notice(InlineNotice::noRewriteKey);
        emit pickerQueryRequested(QStringLiteral("paste"));
        return;
    }
    if (m_toneRewrite) {
        m_toneRewrite->cancel();
    }
    const DesktopWindow target = m_returnApp;
    const quint64 typedBefore = m_delegate.keysSeen();
    m_toneRewrite = SharedAIClient::generate(
        profile, *key.value(), toneRewritePrompt(tone, text), {}, rewriteMaxOutputTokens, this,
        [this, tone, removeCount, suffix, target, typedBefore](Result<QString> answer) {
            if (!answer.ok()) {
                notice(InlineNotice::rewriteFailed(answer.error().description));
                return;
            }
            if (answer.value().trimmed().isEmpty()) {
                notice(InlineNotice::emptyRewrite);
                return;
            }
            Clip rewrite;
            rewrite.key = QStringLiteral("/paste.") + tone;
            rewrite.name = QStringLiteral("Clipboard rewrite");
            rewrite.group = QStringLiteral("Personal");
            rewrite.text = answer.value() + suffix;
            const ClipboardRequest request{rewrite, true, false, {}, {}, {}, false};
            emit hidePickerRequested();
            // Keys typed since, or another window in front: the removal would delete the wrong
            // characters, so the rewrite waits on the clipboard.
            if (target.isValid() && (m_delegate.keysSeen() != typedBefore || !(m_desktop.activeWindow() == target))) {
                notice(prepareClipboard(m_pasteboard, request, tokenSources(m_pasteboard)));
                return;
            }
            m_returnApp = target;
            pasteIntoReturnApp(
                removeCount, [&] { return prepareClipboard(m_pasteboard, request, tokenSources(m_pasteboard)); },
                false);
        });
}

void ExpansionRunner::pasteFromFace(int removeCount, const ClipboardRequest& request)
{
    m_delegate.setPickerActive(false);
    m_delegate.setImagePromptMode(false);
    m_delegate.setPanelFieldHasKeyboard(false);
    emit hidePickerRequested(); // it may have the keyboard: the target needs it back first
    pasteIntoReturnApp(
        removeCount, [&] { return prepareClipboard(m_pasteboard, request, tokenSources(m_pasteboard)); }, false,
        activationFromPickerMs);
}

void ExpansionRunner::pasteRewrite(const QString& text, int removeCount)
{
    Clip rewrite;
    rewrite.key = QStringLiteral("/paste");
    rewrite.name = QStringLiteral("Clipboard rewrite");
    rewrite.group = QStringLiteral("Personal");
    rewrite.text = text + u' ';
    pasteFromFace(removeCount, ClipboardRequest{rewrite, true, false, {}, {}, {}, false});
}

namespace {

Clip preparedPrompt(const QString& text, const QStringList& mediaPaths)
{
    Clip prompt;
    prompt.key = QStringLiteral("/p");
    prompt.name = QStringLiteral("Prepared prompt");
    prompt.group = QStringLiteral("Personal");
    prompt.text = text + u' ';
    prompt.files = mediaPaths;
    return prompt;
}

} // namespace

void ExpansionRunner::pastePrompt(const QString& text, int removeCount, const QStringList& mediaPaths)
{
    // Attached media when there are any, otherwise the text.
    const bool media = !mediaPaths.isEmpty();
    pasteFromFace(removeCount, ClipboardRequest{preparedPrompt(text, mediaPaths), !media, media, {}, {}, {}, false});
}

void ExpansionRunner::copyPrompt(const QString& text)
{
    notice(prepareClipboard(m_pasteboard, ClipboardRequest{preparedPrompt(text, {}), true, false, {}, {}, {}, false},
                            tokenSources(m_pasteboard)));
}

void ExpansionRunner::copyPromptMedia(const QStringList& mediaPaths)
{
    if (mediaPaths.isEmpty()) {
        return;
    }
    notice(prepareClipboard(m_pasteboard,
                            ClipboardRequest{preparedPrompt(QString(), mediaPaths), false, true, {}, {}, {}, false},
                            tokenSources(m_pasteboard)));
}

} // namespace tavo
