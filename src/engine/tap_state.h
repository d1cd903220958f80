#pragma once

#include "platform/key_event.h"
#include "platform/keyboard_tap.h"

#include <QList>
#include <QString>

namespace tavo {

// What the tap tells the rest of the application about a key, delivered on the main thread in
// the order the keys came.
struct TapNotification
{
    enum class Kind
    {
        OpenPicker,       // a trigger started
        PickerQuery,      // text: the query so far
        ChooseFirst,      // Return while the picker owns the keyboard
        ClosePicker,      // the trigger was cancelled
        AutoExpand,       // text: the trigger, suffix: the key that ended it, length: UTF-16 units typed
        ImagePromptInput, // text: typed text, or "__PASTE__", "__BACKSPACE__", "__NEWLINE__"
    };

    Kind kind;
    QString text;
    QString suffix;
    int length = 0;

    bool operator==(const TapNotification&) const = default;
};

// The state machine behind the keyboard tap: four states told by three flags (image prompt,
// picker active, tracking, idle), and for each key press whether it passes or is swallowed.
// It only decides and queues notifications; it looks nothing up, so it answers at once.
class TriggerTracker
{
public:
    bool pickerActive = false;    // the picker owns the typed keys
    bool triggerTracking = false; // a trigger is being typed in another application
    bool imagePromptMode = false; // keys go to the image prompt of the picker
    // One of the picker's own text fields has the keyboard: what is typed there is text for it,
    // so no trigger starts ("/ty" in a prompt is a mention, not an expansion).
    bool panelFieldHasKeyboard = false;
    QString triggerBuffer; // the trigger so far, with the character that started it
    QString queryBuffer;   // what was typed while the picker owned the keys
    quint64 keysSeen = 0;  // every key decided, for "was anything typed since?"

    TapDecision handle(const KeyEvent& event, QList<TapNotification>& notifications);

    // Which keys the tap must be able to withhold in the current state.
    TapMode mode() const;

    // Whether the first character of `text` ends a trigger: Unicode punctuation other than the
    // twelve characters that batches, suffixes and expressions use.
    static bool endsTrigger(QChar first);

private:
    TapDecision imagePrompt(const KeyEvent& event, QList<TapNotification>& notifications, bool& handled);
    TapDecision pickerOwnsKeys(const KeyEvent& event, QList<TapNotification>& notifications);
    TapDecision tracking(const KeyEvent& event, QList<TapNotification>& notifications);
    TapDecision idle(const KeyEvent& event, QList<TapNotification>& notifications);

    TapDecision pass() const { return {KeyVerdict::Pass, mode()}; }
    TapDecision swallow() const { return {KeyVerdict::Swallow, mode()}; }
    TapDecision finish(const QString& suffix, QList<TapNotification>& notifications);
    void cancel(QList<TapNotification>& notifications);
    void postQuery(const QString& query, QList<TapNotification>& notifications) const;
};

} // namespace tavo
