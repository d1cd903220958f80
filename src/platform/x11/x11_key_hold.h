#pragma once

// The hold: keys kept back while an expansion is pasted, and typed back once it is in. Keys go
// back with XTest while the hold's grabs are still in place, so that each comes back through a
// grab and is told apart from keys the user types meanwhile: those are held in turn, and
// nothing overtakes anything. Also the books of which presses an expansion may count on as held.
// Used on the tap's thread, except the claim books, which are safe from any thread.

#include "platform/x11/x11_tap_common.h"

#include <deque>
#include <mutex>
#include <optional>
#include <vector>

struct _XDisplay;

namespace tavo::x11tap {

class TapKeymap;

class KeyHold
{
public:
    void open(_XDisplay* display, const TapKeymap* keymap);

    bool active() const { return m_active; }
    quint64 keyId() const { return m_keyId; }
    bool waitingForRelease() const { return m_waitingForRelease; }

    // Begins a hold with `endingKey`, or, during a typing back, goes on with a new ending key:
    // ours still on their way and the late keys stay.
    void begin(const HeldKey& endingKey, bool waitForRelease, bool replayEndingKey, quint64 keyId);
    // The expansion of `keyId` is in (or nothing was expanded: `replayEndingKey`). False when
    // no hold waits for that key.
    bool release(quint64 keyId, bool replayEndingKey);

    struct TypedBack
    {
        HeldKey key;
        bool decided = false; // the ending key, decided when it was held
    };
    // If `keycode` is the one of ours on its way back, takes it off the queue.
    std::optional<TypedBack> takeTypedBack(unsigned keycode);
    // The server dropped a key of ours (XTest cannot press a key that is down): it goes first
    // again, once it is up.
    void retype(const TypedBack& key);
    // It was not dropped after all, only late: it goes on from where it is.
    void cancelRetype(const TypedBack& key);
    // Called after each key of ours came back: when all have, the late keys join the queue.
    void typedBackArrived();
    // A key the user typed during the hold: it waits behind everything held before it.
    void holdTyped(const HeldKey& key);

    // Moves the hold on: gives up on a release that does not come, waits for the keys to be up,
    // types the next one back. True when the hold has ended (the caller drops its grabs).
    bool update(Clock::time_point now);
    // When update() has something to do next.
    Clock::time_point deadline(Clock::time_point now) const;
    // The tap stops: every key still held is typed, none lost.
    void typeAllNow();

    // The claim books. The tap's thread settles each press, in the order they are numbered,
    // as held or gone on; the main thread claims the one that ended its trigger.
    void settleUpTo(quint64 keyId);
    // Returns whether `keyId` is held: one an expansion has claimed already is held whatever
    // `hold` says (its decision is only late).
    bool settleKey(quint64 keyId, bool hold);
    bool claim(quint64 keyId);

private:
    // The hold of `keyId` ends, unless an expansion has claimed it; false then.
    bool dropUnlessClaimed(quint64 keyId);
    std::chrono::milliseconds safety() const;
    bool heldKeysDown();
    bool shortcutModifierAdded() const;
    // `force`: types the next key even under a Shift it cannot lift.
    void typeBack(bool force);
    void end();
    bool type(const HeldKey& key, bool force);

    _XDisplay* m_display = nullptr;
    const TapKeymap* m_keymap = nullptr;

    bool m_active = false;            // the hold grabs are in place
    quint64 m_keyId = 0;              // the press that began it
    bool m_waitingForRelease = false; // an expansion is under way: collect until release()
    bool m_replayEndingKey = false;
    std::optional<HeldKey> m_endingKey;
    std::vector<HeldKey> m_keys;       // to type back, in the order typed
    std::vector<HeldKey> m_lateKeys;   // typed while ours were on their way back
    std::deque<TypedBack> m_typedBack; // sent, not back through the grabs yet
    Clock::time_point m_since;         // of the wait for the release, or of the typing back
    Clock::time_point m_keysUpSince;   // of the wait for the user to let go of the keys
    Clock::time_point m_settledAt;     // the paste has had time to land in the target

    mutable std::mutex m_claimMutex;
    quint64 m_settledUpTo = 0; // presses up to this one are held or gone on
    quint64 m_heldKey = 0;     // the press whose hold is on
    quint64 m_claimed = 0;
};

} // namespace tavo::x11tap
