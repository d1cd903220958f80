#pragma once

#include "builder/builder_command.h"
#include "engine/clipboard_preparation.h"
#include "language/shortcut_record.h"
#include "store/collections.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

namespace tavo {

// The shortcuts by key and the records by alias, case-folded, each list in library order: a
// decision over a large library is then a lookup, not a scan. Valid only for the very lists it
// was built from, which it keeps (shared, not copied) so that can be checked.
struct ExpansionIndex
{
    QList<Clip> clips;
    QList<CollectionRecord> records;
    QHash<QString, QList<qsizetype>> clipsByKey;
    QHash<QString, QList<qsizetype>> recordsByAlias;

    static std::shared_ptr<const ExpansionIndex> build(const QList<Clip>& clips,
                                                       const QList<CollectionRecord>& records);
    bool indexes(const QList<Clip>& clips, const QList<CollectionRecord>& records) const;
};

// What the library holds for one decision: the shortcuts, the records and the hidden collections.
struct ExpansionLibrary
{
    QList<Clip> clips; // every shortcut of the profile
    QList<CollectionRecord> records;
    QStringList hiddenCollections;
    bool showHidden = false; // hidden collections count too (a setting, or the picker's "hidden only")
    // The builder apps and the aliases their slots take, over the shortcuts and records above
    // that count; absent: no builder command is recognised.
    std::shared_ptr<const BuilderCommandSnapshot> builder;
    // Absent until built for these lists: the decision scans instead.
    std::shared_ptr<const ExpansionIndex> index;
};

// What a finished trigger means. Decided without touching the clipboard or any window, so the
// command line can say what would happen and the application carry it out.
struct ExpansionPlan
{
    enum class Kind
    {
        NotSignedIn,
        InlineCommand,  // \p, \paste, \rewrite, \img: the picker takes over; \paste.<tone> rewrites
        Calculation,    // paste the value
        Batch,          // paste several shortcuts
        Website,        // open clip.webURL
        Launch,         // start clip's desktop application
        DefaultMedia,   // fetch the clip's portrait, then paste it
        Paste,          // paste text or media
        Nothing,        // a shortcut with neither text nor files: nothing to paste
        NoMatch,        // nothing is called this: the ending key goes back to the application
        BuilderCommand, // a builder app's command: generated when complete, else its card shows
    };

    Kind kind = Kind::NoMatch;
    QString command;              // the inline or builder command as typed
    QString suffix;               // InlineCommand, BuilderCommand: the key that ended it
    ClipboardRequest paste;       // Calculation, Paste
    QList<Clip> batch;            // Batch
    QString separator;            // Batch
    Clip clip;                    // Website, Launch, DefaultMedia, Nothing
    bool fromRecord = false;      // the shortcut is a collection record's
    CustomBuilderCommand builder; // BuilderCommand
    // BuilderCommand: complete and ended by a blank or a line break, so the output is made now
    // and the typed command stays; otherwise the picker shows its card to complete it.
    bool generates = false;

    // Nothing will paste, open or run: the key that ended the trigger goes on to the application.
    bool givesEndingKeyBack() const { return kind == Kind::NotSignedIn || kind == Kind::NoMatch; }
};

// The one decision procedure for a typed trigger and the key that ended it: inline commands,
// builder commands, the calculator, batches, collection records, shortcut keys, then builder
// commands again (whatever the ending key), in that order.
ExpansionPlan planExpansion(const QString& trigger, const QString& suffix, const ExpansionLibrary& library);

// A shortcut chosen in its own right (a picked row, a matched key): website, application,
// portrait to fetch, or text and media to paste with `style`.
ExpansionPlan planForClip(const Clip& clip, const QString& suffix, const ShortcutTextStyle& style);

// The builder apps of `defaults` over the shortcuts and records of `library` that a command may
// name: those of hidden collections only while they are shown.
std::shared_ptr<const BuilderCommandSnapshot> builderSnapshotFor(const Defaults& defaults,
                                                                 const ExpansionLibrary& library);

// Whether `suffix` ends a trigger in the sense of the inline commands: a blank or a line break.
bool isEndingSuffix(const QString& suffix);

} // namespace tavo
