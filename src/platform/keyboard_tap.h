#pragma once

#include "platform/key_event.h"

#include <QString>

#include <functional>
#include <optional>

namespace tavo {

// Which keys the tap must be able to hold back, besides letting everything else through.
enum class TapMode
{
    Idle,     // only keys that can start a trigger
    Tracking, // also the keys that can end a trigger (blanks, Return, Tab, punctuation)
    // Tracking a trigger that would paste if it ended now: the keys a paste holds back are
    // caught already, so that its ending key starts the hold without a round of grabs.
    Armed,
    Exclusive, // every key: the picker or the image prompt owns the keyboard
};

enum class KeyVerdict
{
    Pass,    // the key reaches the focused application
    Swallow, // the key is gone
    // The key ends a trigger: it is held back, and so is every key typed after it, until
    // releaseHeldKeys(): the expansion is pasted before anything typed later arrives.
    SwallowAndHold,
};

struct TapDecision
{
    KeyVerdict verdict = KeyVerdict::Pass;
    TapMode mode = TapMode::Idle; // the mode from this key on
    // Orders this mode against setMode() calls: the caller's count of its state changes. 0 takes
    // a number from the tap's own count instead; a caller uses one way or the other, never both.
    quint64 version = 0;
};

// The global keyboard tap: sees every key press of the session and decides, synchronously, to
// pass or swallow it. It runs on a thread of its own, so a busy main thread never freezes the
// keyboard; `decide` is called on that thread and must return at once.
class KeyboardTap
{
public:
    using Decide = std::function<TapDecision(const KeyEvent&)>;

    virtual ~KeyboardTap() = default;

    // Starts watching. Nothing on success; otherwise why the tap cannot run here, ready to show.
    virtual std::optional<QString> start(Decide decide) = 0;
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;

    // The main thread changed the state (a trigger cancelled, the picker took the keyboard).
    // Safe from any thread; takes effect before the next key is decided. `version` as in
    // TapDecision: a mode older than one already applied is dropped.
    virtual void setMode(TapMode mode, quint64 version) = 0;

    // Ends the hold the key `keyId` began: the keys typed meanwhile reach the focused
    // application in the order typed, once the user has let go of them. With
    // `replayEndingKey`, the key that ended the trigger goes first, as if it had never been held
    // (nothing was expanded for it). A release for a hold that has ended does nothing. Safe from
    // any thread.
    virtual void releaseHeldKeys(quint64 keyId, bool replayEndingKey) = 0;
    // Called before an expansion removes the typed trigger, with the id of the key that ended
    // it. True: that key and the keys typed after it are held until releaseHeldKeys(), for as
    // long as an expansion can reasonably take (seconds, for a slow clipboard owner). False: the
    // key reached the application after all (no decision in time, or it came by a way that
    // cannot hold), or the tap gave the keys back on its own; removing the trigger now would
    // remove other text. Safe from any thread.
    virtual bool claimHold(quint64 keyId) = 0;
};

} // namespace tavo
