#pragma once

#include "engine/expansion_plan.h"
#include "engine/tap_state.h"
#include "platform/keyboard_tap.h"

#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QMutex>
#include <QObject>
#include <QTimer>

#include <memory>

namespace tavo {

// The stages of an expansion, off by default: "tavo.expansion.timing.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcExpansionTiming)

// Owns the keyboard tap and the trigger state. The tap decides each key on its own thread with
// the tracker under a lock; what the tracker has to say arrives here as signals on the main
// thread, in the order the keys were typed.
class QuillAppDelegate : public QObject
{
    Q_OBJECT

public:
    explicit QuillAppDelegate(KeyboardTap& tap, QObject* parent = nullptr);
    ~QuillAppDelegate() override;

    // Starts the tap. When it cannot run, tapFailed() goes out once and a retry follows every
    // two seconds until it runs.
    void installSlashTap();
    bool isTapInstalled() const;
    QString tapProblem() const { return m_tapProblem; }

    // While paused every key passes and nothing is followed.
    void setPaused(bool paused);
    bool isPaused() const;

    // The flags the rest of the application sets; each change reaches the tap at once.
    bool pickerActive() const;
    void setPickerActive(bool active);
    bool triggerTracking() const;
    void setTriggerTracking(bool tracking);
    bool imagePromptMode() const;
    void setImagePromptMode(bool on);
    QString triggerBuffer() const;
    void clearQueryBuffer();
    // A text field of the picker took the keyboard (true: the picker and the image prompt stop
    // owning the typed keys, and no trigger starts) or lost it.
    void setPanelFieldHasKeyboard(bool has);
    bool panelFieldHasKeyboard() const;
    // How many keys the tap has decided so far: a change says something was typed meanwhile.
    quint64 keysSeen() const;

    // What can expand now; none while signed out. The tap's thread checks a finished trigger
    // against it, so a trigger that matches nothing lets its ending key go at once, however busy
    // the main thread is.
    void setLibrary(std::shared_ptr<const ExpansionLibrary> library);

    // The decision for one key, as the tap calls it (on its thread).
    TapDecision decide(const KeyEvent& event);

    // Lets the keys held since a trigger ended go on to the application.
    void releaseHeldKeys(quint64 endingKey, bool replayEndingKey);
    // Whether the key that ended a planned trigger is still held, and stays so until released
    // (within the tap's bound).
    bool claimHold(quint64 endingKey);
    // Started when the tap's thread decided the plan expansionPlanned() carries now.
    const QElapsedTimer& planClock() const { return m_planClock; }

signals:
    void openPickerRequested(bool slashTriggered);
    void pickerQueryChanged(const QString& query);
    void chooseFirstRequested();
    void closePickerRequested(const QString& action);
    // A finished trigger that pastes, opens or runs something: planned on the tap's thread,
    // carried out on the main one.
    // `endingKey` names the key that ended the trigger, for claimHold().
    void expansionPlanned(const tavo::ExpansionPlan& plan, int length, quint64 endingKey);
    void imagePromptInput(const QString& text);
    void tapFailed(const QString& reason);
    void tapInstalled();

private:
    template<typename Change>
    void changeState(Change change, bool force = false);
    void deliver(const QList<TapNotification>& notifications, const std::optional<ExpansionPlan>& plan,
                 quint64 endingKey, const QElapsedTimer& decided);

    KeyboardTap& m_tap;
    mutable QMutex m_lock;
    TriggerTracker m_tracker;
    quint64 m_stateVersion = 0;         // counts the changes of the tracker's state, under m_lock
    TapMode m_modeSent = TapMode::Idle; // the mode of the newest version handed to the tap
    std::shared_ptr<const ExpansionLibrary> m_library;
    bool m_paused = false;
    QTimer m_retryTimer;
    bool m_tapFailureReported = false;
    QString m_tapProblem;
    QElapsedTimer m_planClock;
};

} // namespace tavo
