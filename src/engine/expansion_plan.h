#pragma once

#include "engine/clipboard_preparation.h"
#include "language/shortcut_record.h"
#include "store/collections.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace tavo {

// What the library holds for one decision: the shortcuts, the records and the hidden collections.
struct ExpansionLibrary
{
    QList<Clip> clips; // every shortcut of the profile
    QList<CollectionRecord> records;
    QStringList hiddenCollections;
    bool showHidden = false; // hidden collections count too (a setting, or the picker's "hidden only")
};

// What a finished trigger means. Decided without touching the clipboard or any window, so the
// command line can say what would happen and the application carry it out.
struct ExpansionPlan
{
    enum class Kind
    {
        NotSignedIn,
        InlineCommand, // \p, \paste, \rewrite, \img: the picker takes over; \paste.<tone> rewrites
        Calculation,   // paste the value
        Batch,         // paste several shortcuts
        Website,       // open clip.webURL
        Launch,        // start clip's desktop application
        DefaultMedia,  // fetch the clip's portrait, then paste it
        Paste,         // paste text or media
        Nothing,       // a shortcut with neither text nor files: nothing to paste
        NoMatch,       // nothing is called this: the ending key goes back to the application
    };

    Kind kind = Kind::NoMatch;
    QString command;         // the inline command as typed
    QString suffix;          // InlineCommand: the key that ended it
    ClipboardRequest paste;  // Calculation, Paste
    QList<Clip> batch;       // Batch
    QString separator;       // Batch
    Clip clip;               // Website, Launch, DefaultMedia, Nothing
    bool fromRecord = false; // the shortcut is a collection record's

    // Nothing will paste, open or run: the key that ended the trigger goes on to the application.
    bool givesEndingKeyBack() const { return kind == Kind::NotSignedIn || kind == Kind::NoMatch; }
};

// The one decision procedure for a typed trigger and the key that ended it: inline commands,
// the calculator, batches, collection records, then shortcut keys, in that order.
ExpansionPlan planExpansion(const QString& trigger, const QString& suffix, const ExpansionLibrary& library);

// A shortcut chosen in its own right (a picked row, a matched key): website, application,
// portrait to fetch, or text and media to paste with `style`.
ExpansionPlan planForClip(const Clip& clip, const QString& suffix, const ShortcutTextStyle& style);

// Whether `suffix` ends a trigger in the sense of the inline commands: a blank or a line break.
bool isEndingSuffix(const QString& suffix);

} // namespace tavo
