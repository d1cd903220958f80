#include "engine/quill_app_delegate.h"

#include <QLoggingCategory>

namespace tavo {

Q_LOGGING_CATEGORY(lcEngine, "tavo.engine")
Q_LOGGING_CATEGORY(lcExpansionTiming, "tavo.expansion.timing", QtWarningMsg)

namespace {

constexpr int tapRetryIntervalMs = 2000;

} // namespace

QuillAppDelegate::QuillAppDelegate(KeyboardTap& tap, QObject* parent)
    : QObject(parent)
    , m_tap(tap)
{
    m_retryTimer.setInterval(tapRetryIntervalMs);
    connect(&m_retryTimer, &QTimer::timeout, this, [this] {
        if (m_tap.isRunning()) {
            m_retryTimer.stop();
        } else {
            installSlashTap();
        }
    });
}

QuillAppDelegate::~QuillAppDelegate()
{
    m_tap.stop();
}

void QuillAppDelegate::installSlashTap()
{
    if (m_tap.isRunning()) {
        return;
    }
    const std::optional<QString> problem = m_tap.start([this](const KeyEvent& event) { return decide(event); });
    if (!problem) {
        m_retryTimer.stop();
        m_tapFailureReported = false;
        m_tapProblem.clear();
        changeState([](TriggerTracker&) {}, true); // the tap starts in the mode of the moment
        emit tapInstalled();
        return;
    }
    m_tapProblem = *problem;
    if (!m_tapFailureReported) {
        m_tapFailureReported = true;
        qCWarning(lcEngine) << "keyboard tap unavailable:" << *problem;
        QMetaObject::invokeMethod(
            this, [this, reason = *problem] { emit tapFailed(reason); }, Qt::QueuedConnection);
    }
    if (!m_retryTimer.isActive()) {
        m_retryTimer.start();
    }
}

void QuillAppDelegate::setLibrary(std::shared_ptr<const ExpansionLibrary> library)
{
    {
        QMutexLocker locker(&m_lock);
        m_library.swap(library);
    }
    // The old copy, if this was its last holder, goes here: never while the tap waits on the lock.
}

bool QuillAppDelegate::isTapInstalled() const
{
    return m_tap.isRunning();
}

namespace {

bool pastesAsItStands(const QString& trigger, const ExpansionLibrary& library)
{
    const ExpansionPlan::Kind kind = planExpansion(trigger, QStringLiteral(" "), library).kind;
    return kind == ExpansionPlan::Kind::Paste || kind == ExpansionPlan::Kind::Calculation ||
           kind == ExpansionPlan::Kind::Batch;
}

} // namespace

TapDecision QuillAppDelegate::decide(const KeyEvent& event)
{
    QElapsedTimer deciding;
    if (lcExpansionTiming().isDebugEnabled()) {
        deciding.start();
    }
    QList<TapNotification> notifications;
    TapDecision decision;
    std::shared_ptr<const ExpansionLibrary> library;
    QString trigger;
    {
        QMutexLocker locker(&m_lock);
        if (m_paused) {
            m_modeSent = TapMode::Idle;
            return {KeyVerdict::Pass, TapMode::Idle, ++m_stateVersion};
        }
        decision = m_tracker.handle(event, notifications);
        decision.version = ++m_stateVersion;
        m_modeSent = decision.mode;
        library = m_library;
        // Only over an index: a scan of a large library at every key would slow the typing.
        if (decision.mode == TapMode::Tracking && library && library->index) {
            trigger = m_tracker.triggerBuffer;
        }
    }
    // A trigger that would paste as it stands has the tap catch the keys its paste will hold back
    // now, so that the ending key need not wait for those grabs. Looked up outside the lock; a
    // change of state meanwhile leaves the decision as it was.
    if (!trigger.isEmpty() && pastesAsItStands(trigger, *library)) {
        QMutexLocker locker(&m_lock);
        if (m_stateVersion == decision.version) {
            decision.mode = TapMode::Armed;
            m_modeSent = decision.mode;
        }
    }
    std::optional<ExpansionPlan> plan;
    if (decision.verdict == KeyVerdict::SwallowAndHold && !notifications.isEmpty() &&
        notifications.constLast().kind == TapNotification::Kind::AutoExpand) {
        // A trigger that expands nothing needs no paste and so no main thread: its ending key
        // passes now, and only the panel is told to close. Any other plan goes to the main
        // thread as it is, not to be made twice.
        const TapNotification& finished = notifications.constLast();
        if (library) {
            plan = planExpansion(finished.text, finished.suffix, *library);
        }
        if (deciding.isValid()) {
            qCDebug(lcExpansionTiming) << "planned in" << deciding.nsecsElapsed() / 1e6 << "ms";
        }
        if (!plan || plan->givesEndingKeyBack()) {
            decision.verdict = KeyVerdict::Pass;
            notifications.last() = {TapNotification::Kind::ClosePicker, {}, {}, 0};
            plan.reset();
        }
    }
    if (!notifications.isEmpty()) {
        const QElapsedTimer decided = plan ? deciding : QElapsedTimer();
        // Queued, never direct: the tap must answer now, and the main thread takes them in order.
        QMetaObject::invokeMethod(
            this,
            [this, notifications, plan = std::move(plan), id = event.id, decided] {
                deliver(notifications, plan, id, decided);
            },
            Qt::QueuedConnection);
    }
    return decision;
}

void QuillAppDelegate::deliver(const QList<TapNotification>& notifications, const std::optional<ExpansionPlan>& plan,
                               quint64 endingKey, const QElapsedTimer& decided)
{
    for (const TapNotification& note : notifications) {
        switch (note.kind) {
        case TapNotification::Kind::OpenPicker:
            emit openPickerRequested(true);
            break;
        case TapNotification::Kind::PickerQuery:
            emit pickerQueryChanged(note.text);
            break;
        case TapNotification::Kind::ChooseFirst:
            emit chooseFirstRequested();
            break;
        case TapNotification::Kind::ClosePicker:
            emit closePickerRequested(QString());
            break;
        case TapNotification::Kind::AutoExpand:
            if (plan) {
                m_planClock = decided;
                emit expansionPlanned(*plan, note.length, endingKey);
            }
            break;
        case TapNotification::Kind::ImagePromptInput:
            emit imagePromptInput(note.text);
            break;
        }
    }
}

template<typename Change>
void QuillAppDelegate::changeState(Change change, bool force)
{
    TapMode mode;
    quint64 version;
    {
        QMutexLocker locker(&m_lock);
        change(m_tracker);
        mode = m_paused ? TapMode::Idle : m_tracker.mode();
        if (mode == TapMode::Tracking && m_modeSent == TapMode::Armed) {
            mode = TapMode::Armed; // the trigger is as it was: still ready to hold
        }
        if (mode == m_modeSent && !force) {
            return; // the tap is there already: no need to wake it
        }
        m_modeSent = mode;
        // Counted under the lock, as the tap's own decisions are: whichever reaches the tap
        // first, the later change of state wins.
        version = ++m_stateVersion;
    }
    m_tap.setMode(mode, version);
}

void QuillAppDelegate::setPaused(bool paused)
{
    changeState([&](TriggerTracker& tracker) {
        m_paused = paused;
        tracker.triggerTracking = false;
        tracker.pickerActive = false;
        tracker.imagePromptMode = false;
        tracker.panelFieldHasKeyboard = false;
    });
}

bool QuillAppDelegate::isPaused() const
{
    QMutexLocker locker(&m_lock);
    return m_paused;
}

bool QuillAppDelegate::pickerActive() const
{
    QMutexLocker locker(&m_lock);
    return m_tracker.pickerActive;
}

void QuillAppDelegate::setPickerActive(bool active)
{
    changeState([&](TriggerTracker& tracker) { tracker.pickerActive = active; });
}

bool QuillAppDelegate::triggerTracking() const
{
    QMutexLocker locker(&m_lock);
    return m_tracker.triggerTracking;
}

void QuillAppDelegate::setTriggerTracking(bool tracking)
{
    changeState([&](TriggerTracker& tracker) { tracker.triggerTracking = tracking; });
}

bool QuillAppDelegate::imagePromptMode() const
{
    QMutexLocker locker(&m_lock);
    return m_tracker.imagePromptMode;
}

void QuillAppDelegate::setImagePromptMode(bool on)
{
    changeState([&](TriggerTracker& tracker) { tracker.imagePromptMode = on; });
}

QString QuillAppDelegate::triggerBuffer() const
{
    QMutexLocker locker(&m_lock);
    return m_tracker.triggerBuffer;
}

void QuillAppDelegate::clearQueryBuffer()
{
    QMutexLocker locker(&m_lock);
    m_tracker.queryBuffer.clear();
}

void QuillAppDelegate::setPanelFieldHasKeyboard(bool has)
{
    changeState([&](TriggerTracker& tracker) {
        tracker.panelFieldHasKeyboard = has;
        if (has) {
            tracker.triggerTracking = false;
            tracker.pickerActive = false;
            tracker.imagePromptMode = false;
        }
    });
}

bool QuillAppDelegate::panelFieldHasKeyboard() const
{
    QMutexLocker locker(&m_lock);
    return m_tracker.panelFieldHasKeyboard;
}

quint64 QuillAppDelegate::keysSeen() const
{
    QMutexLocker locker(&m_lock);
    return m_tracker.keysSeen;
}

void QuillAppDelegate::releaseHeldKeys(quint64 endingKey, bool replayEndingKey)
{
    m_tap.releaseHeldKeys(endingKey, replayEndingKey);
}

bool QuillAppDelegate::claimHold(quint64 endingKey)
{
    return m_tap.claimHold(endingKey);
}

} // namespace tavo
