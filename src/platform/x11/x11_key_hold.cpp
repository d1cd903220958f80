#include "platform/x11/x11_key_hold.h"

#include "platform/x11/x11_key_typing.h"
#include "platform/x11/x11_tap_keymap.h"

#include <algorithm>

// X11 last: its macros (None, KeyPress, Bool, Status) clash with Qt's names.
#include <X11/XKBlib.h>
#include <X11/Xlib.h>

namespace tavo::x11tap {

namespace {

// Held keys go back by themselves if nobody ends the hold, so a lost release never eats typing.
constexpr auto HoldSafety = std::chrono::milliseconds(1000);
// A hold an expansion has claimed waits longer: its trigger is removed by then, and keys given
// back before the paste would land in front of it. A slow clipboard owner asked for a token can
// take seconds.
constexpr auto ClaimedHoldSafety = std::chrono::milliseconds(10000);
// How long a release waits for the user to let go of the held keys: XTest cannot press a key
// that is still down on the same device.
constexpr auto KeysUpBound = 400ms;
constexpr auto KeysUpPoll = 3ms;
// How long held keys wait for a shortcut modifier they were not typed with to be let go.
constexpr auto ModifiersUpBound = 3000ms;
// A target that pastes asynchronously (GTK) asks for the clipboard's data, and takes keys
// typed after that before it inserts the text: the hold stays this long after the request.
constexpr auto PasteSettle = 30ms;
// Keys typed back come back through the hold grabs at once; a press the server dropped (the key
// was still down) never does.
constexpr auto TypedBackBound = 500ms;

} // namespace

void KeyHold::open(Display* display, const TapKeymap* keymap)
{
    m_display = display;
    m_keymap = keymap;
}

void KeyHold::begin(const HeldKey& endingKey, bool waitForRelease, bool replayEndingKey, quint64 keyId)
{
    m_active = true;
    m_waitingForRelease = waitForRelease;
    m_replayEndingKey = replayEndingKey;
    m_endingKey = endingKey;
    m_keyId = keyId;
    m_since = Clock::now();
    m_keysUpSince = m_since;
}

bool KeyHold::release(quint64 keyId, bool replayEndingKey)
{
    // Only for the hold it was meant for: a late second release must not cut short a newer
    // hold, whose paste has not landed yet.
    if (!m_active || !m_waitingForRelease || keyId != m_keyId)
        return false;
    m_waitingForRelease = false;
    m_replayEndingKey = replayEndingKey;
    m_keysUpSince = Clock::now();
    m_settledAt = replayEndingKey ? m_keysUpSince : m_keysUpSince + PasteSettle;
    return true;
}

std::optional<KeyHold::TypedBack> KeyHold::takeTypedBack(unsigned keycode)
{
    if (!m_active || m_typedBack.empty() || m_typedBack.front().key.keycode != keycode)
        return std::nullopt;
    const TypedBack back = m_typedBack.front();
    m_typedBack.pop_front();
    return back;
}

void KeyHold::cancelRetype(const TypedBack& back)
{
    if (back.decided) {
        m_endingKey.reset();
        m_replayEndingKey = false;
    } else if (!m_keys.empty()) {
        m_keys.erase(m_keys.begin());
    }
}

void KeyHold::retype(const TypedBack& back)
{
    if (back.decided) {
        m_endingKey = back.key;
        m_replayEndingKey = true;
    } else {
        m_keys.insert(m_keys.begin(), back.key);
    }
}

void KeyHold::typedBackArrived()
{
    if (!m_typedBack.empty())
        return;
    m_keys.insert(m_keys.end(), m_lateKeys.begin(), m_lateKeys.end());
    m_lateKeys.clear();
    m_keysUpSince = Clock::now();
}

void KeyHold::holdTyped(const HeldKey& key)
{
    if (m_typedBack.empty())
        m_keys.push_back(key);
    else
        m_lateKeys.push_back(key);
}

std::chrono::milliseconds KeyHold::safety() const
{
    std::lock_guard lock(m_claimMutex);
    return m_keyId != 0 && m_claimed == m_keyId ? ClaimedHoldSafety : HoldSafety;
}

bool KeyHold::update(Clock::time_point now)
{
    if (!m_active)
        return false;
    if (m_waitingForRelease) {
        const auto limit = safety();
        if (now - m_since < limit)
            return false;
        if (limit == HoldSafety && !dropUnlessClaimed(m_keyId))
            return false; // claimed just now: it waits the longer time
        qCWarning(lcTap) << "held keys were not released within" << limit.count() << "ms; typing them back";
        m_waitingForRelease = false;
        m_replayEndingKey = true;
        m_keysUpSince = now;
    }
    if (now < m_settledAt)
        return false;
    if (!m_typedBack.empty()) {
        if (now - m_since < TypedBackBound)
            return false;
        qCDebug(lcTap) << m_typedBack.size() << "keys typed back did not come back";
        m_typedBack.clear();
        typedBackArrived();
    }
    const bool replay = m_replayEndingKey && m_endingKey;
    if (!replay && m_keys.empty()) {
        end();
        return true;
    }
    if (now - m_keysUpSince < KeysUpBound && heldKeysDown())
        return false;
    // A Ctrl, Alt or Super the user holds now would turn a letter typed back into a shortcut
    // (Ctrl+W closes a tab), and XTest cannot lift a key the keyboard holds down.
    const bool waitedLong = now - m_keysUpSince >= ModifiersUpBound;
    if (!waitedLong && shortcutModifierAdded())
        return false;
    typeBack(waitedLong);
    return false;
}

Clock::time_point KeyHold::deadline(Clock::time_point now) const
{
    if (!m_active)
        return Clock::time_point::max();
    if (m_waitingForRelease)
        return m_since + safety();
    if (now < m_settledAt)
        return m_settledAt;
    if (!m_typedBack.empty())
        return m_since + TypedBackBound;
    return now + KeysUpPoll;
}

bool KeyHold::shortcutModifierAdded() const
{
    // Asked of the server, not of the state the tap's events build: a Ctrl pressed a moment ago
    // may still be on its way as an event.
    XkbStateRec state{};
    if (XkbGetState(m_display, XkbUseCoreKbd, &state) != Success)
        return false;
    const unsigned down = state.base_mods & (ControlMask | Mod1Mask | Mod4Mask);
    if (down == 0)
        return false;
    if (m_replayEndingKey && m_endingKey && (down & ~m_endingKey->state))
        return true;
    return std::any_of(m_keys.cbegin(), m_keys.cend(), [down](const HeldKey& key) { return (down & ~key.state) != 0; });
}

bool KeyHold::heldKeysDown()
{
    std::array<char, 32> keys{};
    XQueryKeymap(m_display, keys.data());
    const auto down = [&](unsigned keycode) { return (keys[keycode / 8] >> (keycode % 8)) & 1; };
    if (m_replayEndingKey && m_endingKey && down(m_endingKey->keycode))
        return true;
    return std::any_of(m_keys.cbegin(), m_keys.cend(), [&](const HeldKey& key) { return down(key.keycode); });
}

void KeyHold::typeBack(bool force)
{
    // The hold grabs stay: each key comes back through one and is answered in turn, so a key
    // the user types meanwhile, which the server may queue before ours, is held behind them.
    // One at a time: a key of ours the server drops (the user pressed it again meanwhile) is
    // typed again before any later one has gone.
    if (m_replayEndingKey && m_endingKey) {
        if (!type(*m_endingKey, force))
            return; // a Shift held on another keyboard: once it is up
        m_typedBack.push_back({*m_endingKey, true});
        m_endingKey.reset();
        m_replayEndingKey = false;
    } else {
        m_endingKey.reset();
        m_replayEndingKey = false;
        if (!m_keys.empty()) {
            if (!type(m_keys.front(), force))
                return;
            m_typedBack.push_back({m_keys.front(), false});
            m_keys.erase(m_keys.begin());
        }
    }
    m_since = Clock::now();
}

void KeyHold::typeAllNow()
{
    if (!m_active)
        return;
    if ((m_waitingForRelease || m_replayEndingKey) && m_endingKey)
        type(*m_endingKey, true);
    for (const auto* keys : {&m_keys, &m_lateKeys}) {
        for (const HeldKey& key : *keys)
            type(key, true);
    }
    end();
}

void KeyHold::end()
{
    {
        // One hold at a time: whatever key it began with, nothing is held after it.
        std::lock_guard lock(m_claimMutex);
        m_heldKey = 0;
    }
    m_active = false;
    m_keyId = 0;
    m_waitingForRelease = false;
    m_replayEndingKey = false;
    m_endingKey.reset();
    m_keys.clear();
    m_lateKeys.clear();
    m_typedBack.clear();
}

bool KeyHold::type(const HeldKey& key, bool force)
{
    return typeKey(m_display, key, *m_keymap, force);
}

void KeyHold::settleUpTo(quint64 keyId)
{
    std::lock_guard lock(m_claimMutex);
    m_settledUpTo = keyId;
}

bool KeyHold::settleKey(quint64 keyId, bool hold)
{
    std::lock_guard lock(m_claimMutex);
    m_settledUpTo = std::max(m_settledUpTo, keyId);
    if (m_claimed == keyId)
        hold = true;
    if (hold)
        m_heldKey = keyId;
    return hold;
}

bool KeyHold::claim(quint64 keyId)
{
    std::lock_guard lock(m_claimMutex);
    // Held now, or not settled yet: then the tap holds it however late its decision comes.
    if (keyId == 0 || (keyId != m_heldKey && keyId <= m_settledUpTo))
        return false;
    m_claimed = keyId;
    return true;
}

bool KeyHold::dropUnlessClaimed(quint64 keyId)
{
    std::lock_guard lock(m_claimMutex);
    if (keyId != 0 && m_claimed == keyId)
        return false;
    if (m_heldKey == keyId)
        m_heldKey = 0;
    return true;
}

} // namespace tavo::x11tap
