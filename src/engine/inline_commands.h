#pragma once

#include "language/shortcut_record.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tavo {

// A trigger that opens a working mode instead of expanding: a prompt editor, a rewrite of the
// clipboard (in the picker, or directly in one tone), or image generation.
struct InlineCommand
{
    enum class Kind
    {
        Prompt,      // \p, \p-<payload>
        Rewrite,     // \paste, \rewrite: the rewrite face
        ToneRewrite, // \paste.<tone>, \r: the clipboard rewritten at once
        Image,       // \img, \img-<payload>
    };

    Kind kind = Kind::Prompt;
    QString payload; // Prompt: behind "\p-"; Image: behind "img-"
    QString tone;    // ToneRewrite: "Friendly", ...

    bool operator==(const InlineCommand&) const = default;
};

// The command a finished trigger names, when `suffix` (the key that ended it) is a blank or a
// line break. Every command needs the backslash: "/p" or "/r" is an ordinary shortcut key.
std::optional<InlineCommand> parseInlineCommand(const QString& trigger, const QString& suffix);

// The tone of a direct rewrite command ("\paste.f" → "Friendly"), or nothing.
std::optional<QString> clipboardRewriteTone(const QString& command);

// The tones a rewrite can take, in the order the menus offer them.
const QStringList& rewriteTones();

inline const QString defaultRewriteTone = QStringLiteral("Rephrase");
inline const QString defaultPromptTone = QStringLiteral("Professional");

// Rewrites and rephrasings are short texts: the answer is capped at this many tokens.
inline constexpr int rewriteMaxOutputTokens = 4000;

// The request of a direct rewrite, naming the tone as written.
QString toneRewritePrompt(const QString& tone, const QString& text);
// The rewrite face's request, with the tone in lower case.
QString pickerRewritePrompt(const QString& tone, const QString& text);
// The prompt face's request to rephrase its prompt, with the tone in lower case.
QString rephrasePromptRequest(const QString& tone, const QString& prompt);

// Whether the prompt face rephrases its prompt as soon as it opens: it does for a `\p-` payload
// that holds something.
bool promptAutoRewritePending(const QString& payload);

// What the prompt editor starts with for a `\p-` payload: its words, each "-" a blank.
struct PromptDraft
{
    QString text;
    QString summary;
    QString status;
};
PromptDraft promptDraftFor(const QString& payload);
// Adds the closing note on reference files when there are any.
QString withReferenceNote(const QString& prompt, qsizetype referenceCount);
QString promptSummaryFor(qsizetype referenceCount);

// A key as an image reference names it: trimmed, lower case, without a leading "/" or "\" and
// without one suffix of ".media", ".app", ".ai", ".web", ".gif" or ".e".
QString imageKey(const QString& text);

// What follows "\img-": the shortcuts whose images serve as references, then "-prompt" and the
// prompt itself ("logo-team1..3-prompt-a-poster"). Each reference is a batch
// ("team1..3", "a&b") or one key; only their image files count, each once.
struct ImageExpression
{
    QStringList imagePaths;
    QString prompt;
};
ImageExpression resolveImageExpression(const QString& text, const QList<Clip>& clips);

namespace InlineNotice {
inline const QString promptNoReturnApp =
    QStringLiteral("Tavo could not return to the app where you typed \\p. Try again from that app.");
inline const QString promptNoPermission =
    QStringLiteral("Allow Tavo under an X11 session with keyboard access (XTEST) to replace the typed \\p command.");
inline const QString rewriteNoPermission =
    QStringLiteral("Allow Tavo under an X11 session with keyboard access (XTEST) to remove the typed \\paste command.");
inline const QString imageNoPermission =
    QStringLiteral("Allow Tavo under an X11 session with keyboard access (XTEST) to remove the typed \\img command.");
inline const QString noRewriteKey = QStringLiteral("Add an API key in API configuration to rewrite clipboard text.");
inline const QString emptyRewrite = QStringLiteral("AI returned an empty rewrite.");
QString copyTextFirst(const QString& tone);
QString rewriteFailed(const QString& error);
} // namespace InlineNotice

// The texts of the picker's rewrite and prompt faces.
namespace FaceText {
inline const QString rewriteNoKey = QStringLiteral("Add an API key in API configuration to use AI rewriting.");
inline const QString rewriteEmpty = QStringLiteral("The AI returned an empty rewrite.");
inline const QString promptReady = QStringLiteral("Prompt · ready to edit");
inline const QString promptEmptySummary = QStringLiteral(
    "Type or paste a prompt. Add an app command after \\p- to include its action, collections, and variables.");
inline const QString noMentions = QStringLiteral("No saved shortcut names found in this prompt.");
inline const QString rephraseNoKey = QStringLiteral("Saved shortcut text and media references are expanded. Add an "
                                                    "API key in API configuration for automatic AI rephrasing.");
QString rewriting(const QString& tone);
QString rewriteReady(const QString& tone);
QString rewriteFailed(const QString& error);
QString rephrasing(const QString& tone, const QString& modelName);
QString rephraseReady(const QString& tone);
QString rephraseFailed(const QString& error);
QString copiedMedia(qsizetype count);
} // namespace FaceText

} // namespace tavo
