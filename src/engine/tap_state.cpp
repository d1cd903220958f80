#include "engine/tap_state.h"

#include "language/math_expression.h"
#include "language/text_utils.h"

namespace tavo {

namespace {

bool isReturn(int code)
{
    return code == KeyCode::Return || code == KeyCode::KeypadEnter;
}

bool isDelete(int code)
{
    return code == KeyCode::Delete || code == KeyCode::ForwardDelete;
}

bool holdsControlCharacter(const QString& text)
{
    return std::any_of(text.cbegin(), text.cend(), [](QChar c) {
        const QChar::Category category = c.category();
        return category == QChar::Other_Control || category == QChar::Other_Format;
    });
}

} // namespace

TapMode TriggerTracker::mode() const
{
    if (pickerActive || imagePromptMode) {
        return TapMode::Exclusive;
    }
    return triggerTracking ? TapMode::Tracking : TapMode::Idle;
}

bool TriggerTracker::endsTrigger(QChar first)
{
    static const QString allowed = QStringLiteral(".-!&%+*/^(),");
    return first.isPunct() && !allowed.contains(first);
}

TapDecision TriggerTracker::handle(const KeyEvent& event, QList<TapNotification>& notifications)
{
    ++keysSeen;
    if (imagePromptMode) {
        bool handled = false;
        const TapDecision decision = imagePrompt(event, notifications, handled);
        if (handled) {
            return decision;
        }
    }
    if (pickerActive) {
        return pickerOwnsKeys(event, notifications);
    }
    if (triggerTracking) {
        return tracking(event, notifications);
    }
    return idle(event, notifications);
}

TapDecision TriggerTracker::imagePrompt(const KeyEvent& event, QList<TapNotification>& notifications, bool& handled)
{
    handled = true;
    auto post = [&](const QString& text) {
        notifications.append({TapNotification::Kind::ImagePromptInput, text, {}, 0});
        return swallow();
    };
    if ((event.flags & ModifierFlag::Command) && event.keyCode == KeyCode::V) {
        return post(QStringLiteral("__PASTE__"));
    }
    if (event.hasModifier()) {
        return pass();
    }
    if (isDelete(event.keyCode)) {
        return post(QStringLiteral("__BACKSPACE__"));
    }
    if (isReturn(event.keyCode)) {
        return post(QStringLiteral("__NEWLINE__"));
    }
    if (event.keyCode == KeyCode::Tab) {
        return post(QStringLiteral("\t"));
    }
    if (event.text.isEmpty()) {
        handled = false; // as if the prompt were not there
        return pass();
    }
    if (holdsControlCharacter(event.text)) {
        return swallow(); // Escape among them: it does nothing here
    }
    return post(event.text);
}

TapDecision TriggerTracker::pickerOwnsKeys(const KeyEvent& event, QList<TapNotification>& notifications)
{
    if (event.hasModifier()) {
        return pass();
    }
    if (isReturn(event.keyCode)) {
        pickerActive = false;
        notifications.append({TapNotification::Kind::ChooseFirst, {}, {}, 0});
        return swallow();
    }
    if (event.keyCode == KeyCode::Escape) {
        pickerActive = false;
        notifications.append({TapNotification::Kind::ClosePicker, {}, {}, 0});
        return swallow();
    }
    if (isDelete(event.keyCode)) {
        queryBuffer = withoutLastCharacter(queryBuffer);
        postQuery(queryBuffer, notifications);
        return swallow();
    }
    if (event.text.isEmpty() || holdsControlCharacter(event.text)) {
        return swallow(); // Tab among them
    }
    queryBuffer += event.text;
    postQuery(queryBuffer, notifications);
    return swallow();
}

TapDecision TriggerTracker::tracking(const KeyEvent& event, QList<TapNotification>& notifications)
{
    if (event.hasModifier() || event.keyCode == KeyCode::Escape) {
        cancel(notifications);
        return pass();
    }
    if (isReturn(event.keyCode)) {
        return finish(QStringLiteral("\n"), notifications);
    }
    if (event.keyCode == KeyCode::Tab) {
        return finish(QStringLiteral("\t"), notifications);
    }
    if (isDelete(event.keyCode)) {
        if (characterCount(triggerBuffer) < 2) {
            cancel(notifications);
            return pass();
        }
        triggerBuffer = withoutLastCharacter(triggerBuffer);
        postQuery(triggerBuffer.mid(1), notifications);
        return pass();
    }
    if (event.composing) {
        // The application's text will differ from the buffer, so removing the trigger later
        // would delete the wrong characters.
        cancel(notifications);
        return pass();
    }
    if (event.text.isEmpty()) {
        return pass();
    }

    const QChar first = event.text.front();
    if (first.isSpace()) {
        if (!MathExpression::looksLikeExpression(triggerBuffer) || MathExpression::evaluate(triggerBuffer)) {
            return finish(event.text, notifications);
        }
        // An expression under way ("2+ 3"): the blank belongs to it.
    } else if (endsTrigger(first)) {
        return finish(event.text, notifications);
    }
    triggerBuffer += event.text;
    postQuery(triggerBuffer.mid(1), notifications);
    return pass();
}

TapDecision TriggerTracker::idle(const KeyEvent& event, QList<TapNotification>& notifications)
{
    const bool startKey = event.keyCode == KeyCode::Backslash || event.keyCode == KeyCode::Slash ||
                          event.text == QLatin1String("\\") || event.text == QLatin1String("/");
    if (!startKey || event.hasModifier() || panelFieldHasKeyboard) {
        return pass();
    }
    queryBuffer.clear();
    triggerTracking = true;
    triggerBuffer = event.text.isEmpty() ? QStringLiteral("\\") : event.text;
    notifications.append({TapNotification::Kind::OpenPicker, {}, {}, 0});
    postQuery(QString(), notifications);
    return pass();
}

TapDecision TriggerTracker::finish(const QString& suffix, QList<TapNotification>& notifications)
{
    triggerTracking = false;
    notifications.append(
        {TapNotification::Kind::AutoExpand, triggerBuffer, suffix, static_cast<int>(triggerBuffer.size())});
    return {KeyVerdict::SwallowAndHold, mode()};
}

void TriggerTracker::cancel(QList<TapNotification>& notifications)
{
    triggerTracking = false;
    notifications.append({TapNotification::Kind::ClosePicker, {}, {}, 0});
}

void TriggerTracker::postQuery(const QString& query, QList<TapNotification>& notifications) const
{
    notifications.append({TapNotification::Kind::PickerQuery, query, {}, 0});
}

} // namespace tavo
