#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "engine/clipboard_preparation.h"
#include "engine/expansion_plan.h"
#include "language/live_tokens.h"
#include "platform/pasteboard.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <QUrl>

namespace tavo::ctl {

namespace {

// A clipboard of our own: what an expansion would put on the real one, without touching it.
class MemoryPasteboard : public Pasteboard
{
public:
    QString string() const override { return {}; }
    void write(std::unique_ptr<QMimeData> data) override { content = std::move(data); }

    std::unique_ptr<QMimeData> content;
};

void printContent(const QMimeData* content, const QStringList& media, QTextStream& out)
{
    if (content && content->hasText() && !content->text().isEmpty()) {
        out << content->text() << '\n';
    }
    for (const QString& path : media) {
        out << "Media: " << path << '\n';
    }
}

QStringList mediaOf(const QMimeData* content, const Clip& clip)
{
    if (!content) {
        return {};
    }
    QStringList paths;
    for (const QUrl& url : content->urls()) {
        paths.append(url.toLocalFile());
    }
    // Images go on the clipboard as image data rather than as file links: name their files.
    if (paths.isEmpty() && content->hasImage()) {
        paths = clip.files;
    }
    return paths;
}

void printBuilderCommand(const ExpansionPlan& plan, QTextStream& out)
{
    const CustomBuilderCommand& command = plan.builder;
    if (plan.generates) {
        out << "Asks for the output of the builder app " << command.app << " from " << plan.command << " (key "
            << command.key << ", format " << command.format
            << "); the command stays as typed. Generation is not available yet.\n";
        return;
    }
    QStringList missing;
    for (qsizetype slot = 0; slot < command.slotKinds.size(); ++slot) {
        if (slot >= command.slotValues.size() || command.slotValues[slot].trimmed().isEmpty()) {
            missing.append(command.slotNames[slot]);
        }
    }
    out << "Shows the card of the builder app " << command.app << " for " << plan.command;
    if (!missing.isEmpty()) {
        out << "; missing: " << missing.join(QStringLiteral(", "));
    }
    out << ".\n";
}

} // namespace

int expand(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(QStringLiteral("expand TRIGGER"), {}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    QString trigger = line.positional().first().trimmed();
    if (trigger.isEmpty()) {
        return line.usageError({}, err);
    }
    if (!trigger.startsWith(u'\\') && !trigger.startsWith(u'/')) {
        trigger.prepend(u'\\');
    }

    Defaults defaults;
    TavoAccountStore accounts(defaults);
    if (!accounts.isAuthenticated()) {
        err << signInFirst << '\n';
        return 1;
    }
    // The typing rule, through the one decision procedure: a record or shortcut whose
    // collections are all hidden does not expand unless hidden collections are shown.
    DB db(defaults, QString(), DB::Access::ReadOnly);
    db.activateProfile(accounts.currentUsername());

    ExpansionLibrary library;
    library.clips = db.clips();
    library.records = db.collectionRecords();
    library.hiddenCollections = db.hiddenCollections();
    library.showHidden = defaults.flag(QStringLiteral("tavoPickerShowHiddenCollections"));
    library.builder = builderSnapshotFor(defaults, library);
    // Decided as if a space ended the trigger; the space itself is not printed.
    const QString suffix = QStringLiteral(" ");
    const ExpansionPlan plan = planExpansion(trigger, suffix, library);

    LiveTokenSources sources;
    MemoryPasteboard pasteboard;
    sources.pasteboard = &pasteboard;
    switch (plan.kind) {
    case ExpansionPlan::Kind::NotSignedIn:
        err << signInFirst << '\n';
        return 1;
    case ExpansionPlan::Kind::NoMatch:
        err << "No shortcut matches " << trigger << ".\n";
        return 1;
    case ExpansionPlan::Kind::InlineCommand:
        out << "Runs the inline command " << plan.command << ".\n";
        return 0;
    case ExpansionPlan::Kind::BuilderCommand:
        printBuilderCommand(plan, out);
        return 0;
    case ExpansionPlan::Kind::Nothing:
        out << "Matches " << displayTrigger(plan.clip.key) << ", which has nothing to paste.\n";
        return 0;
    case ExpansionPlan::Kind::Website:
        out << "Opens " << plan.clip.webURL.value_or(QString()) << '\n';
        return 0;
    case ExpansionPlan::Kind::Launch:
        out << "Launches " << plan.clip.name << " ("
            << plan.clip.appPath.value_or(plan.clip.appBundleIdentifier.value_or(QString())) << ")\n";
        return 0;
    case ExpansionPlan::Kind::DefaultMedia:
        out << "Fetches the portrait of " << plan.clip.defaultMediaArticle.value_or(QString()) << ", then pastes it.\n";
        return 0;
    case ExpansionPlan::Kind::Calculation:
    case ExpansionPlan::Kind::Paste: {
        ClipboardRequest request = plan.paste;
        if (request.includeText && request.clip.text.endsWith(suffix)) {
            request.clip.text.chop(suffix.size());
        }
        const std::unique_ptr<QMimeData> content = clipboardContent(request, QString(), sources);
        printContent(content.get(), mediaOf(content.get(), request.clip), out);
        return 0;
    }
    case ExpansionPlan::Kind::Batch: {
        // A contact sheet or archive of the media would be made; here only in a scratch folder.
        QTemporaryDir scratch;
        prepareBatchClipboard(pasteboard, plan.batch, plan.separator, scratch.path(), sources);
        QStringList media;
        for (const Clip& clip : plan.batch) {
            for (const QString& path : clip.files) {
                if (media.size() < 10 && QFileInfo::exists(path)) {
                    media.append(path);
                }
            }
        }
        printContent(pasteboard.content.get(), media, out);
        return 0;
    }
    }
    return 1;
}

} // namespace tavo::ctl
