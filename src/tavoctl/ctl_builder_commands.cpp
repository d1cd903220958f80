#include "tavoctl/ctl_builder_render.h"
#include "tavoctl/ctl_commands.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "builder/builder_app.h"
#include "builder/builder_command.h"
#include "store/collections.h"
#include "store/defaults.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

namespace tavo::ctl {

namespace {

using Kind = CommandLine::Kind;

// One synopsis line per action; the usage shows them in this order.
const QStringList builderSynopses = {
    QStringLiteral("builder list [--json]"),
    QStringLiteral("builder show TEXT [--json]"),
    QStringLiteral("builder new NAME [--preset N]"),
    QStringLiteral("builder set NAME SETTING VALUE|@FILE"),
    QStringLiteral("builder unset NAME SETTING"),
    QStringLiteral("builder render TEXT [--format text|rtf|html|pdf] [--out PATH]"),
};

QString builderUsage()
{
    QString usage = QStringLiteral("Usage: ");
    for (qsizetype line = 0; line < builderSynopses.size(); ++line) {
        usage += (line == 0 ? QStringLiteral("tavoctl ") : QStringLiteral("       tavoctl ")) + builderSynopses[line] +
                 u'\n';
    }
    return usage;
}

QString json(const QJsonValue& value)
{
    return QString::fromUtf8(value.isArray() ? QJsonDocument(value.toArray()).toJson(QJsonDocument::Indented)
                                             : QJsonDocument(value.toObject()).toJson(QJsonDocument::Indented));
}

// The app a typed name means, in its stored spelling.
std::optional<QString> existingApp(const Defaults& defaults, const QString& typed)
{
    const QString name = typed.trimmed();
    for (const QString& app : builderAppNames(defaults)) {
        if (app.compare(name, Qt::CaseInsensitive) == 0) {
            return app;
        }
    }
    return std::nullopt;
}

QString noSuchApp(const QString& typed)
{
    return QStringLiteral("No builder app is named ") + typed.trimmed() + u'.';
}

QString slotList(const QStringList& kinds, const QStringList& names)
{
    QStringList slots_;
    for (qsizetype slot = 0; slot < kinds.size(); ++slot) {
        slots_.append(names[slot] + QStringLiteral(" (") + kinds[slot] + u')');
    }
    return slots_.join(QStringLiteral(", "));
}

QJsonArray slotArray(const QStringList& kinds, const QStringList& names)
{
    QJsonArray slots_;
    for (qsizetype slot = 0; slot < kinds.size(); ++slot) {
        slots_.append(QJsonObject{{QStringLiteral("kind"), kinds[slot]}, {QStringLiteral("name"), names[slot]}});
    }
    return slots_;
}

int builderList(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(builderSynopses[0], {{QStringLiteral("--json"), Kind::Flag}});
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const Defaults defaults;
    QJsonArray all;
    for (const QString& name : builderAppNames(defaults)) {
        const BuilderCommandApp app = BuilderCommandApp::read(defaults, name);
        if (line.isSet(QStringLiteral("--json"))) {
            all.append(QJsonObject{
                {QStringLiteral("name"), app.name},
                {QStringLiteral("prefix"), app.prefix},
                {QStringLiteral("format"), app.format},
                {QStringLiteral("slots"), slotArray(app.slotKinds, app.slotNames)},
            });
            continue;
        }
        // An empty prefix turns the app's command off.
        out << oneLine(app.name) << '\t' << (app.prefix.isEmpty() ? QStringLiteral("-") : u'\\' + app.prefix) << '\t'
            << app.format << '\t' << oneLine(slotList(app.slotKinds, app.slotNames)) << '\n';
    }
    if (line.isSet(QStringLiteral("--json"))) {
        out << json(all);
    }
    return 0;
}

int builderShow(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(builderSynopses[1], {{QStringLiteral("--json"), Kind::Flag}}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    const std::optional<VisibleBuilderCommand> visible = openBuilderCommand(line.positional().first(), defaults, err);
    if (!visible) {
        return 1;
    }
    const CustomBuilderCommand& command = visible->command;
    if (line.isSet(QStringLiteral("--json"))) {
        out << json(command.toJson());
        return 0;
    }
    out << "App: " << command.app << '\n'
        << "Prefix: \\" << command.prefix << '\n'
        << "Key: " << command.key << '\n'
        << "Format: " << command.format << '\n'
        << "Template: " << command.templateStyle << '\n'
        << "Complete: " << (command.isComplete() ? "yes" : "no") << '\n';
    for (qsizetype slot = 0; slot < command.slotKinds.size(); ++slot) {
        out << "Slot " << slot + 1 << ": " << command.slotNames[slot] << " (" << command.slotKinds[slot]
            << "): " << oneLine(command.slotValues[slot]) << '\n';
    }
    if (!command.outputCollections.isEmpty()) {
        out << "Output collections: " << command.outputCollections.join(QStringLiteral(", ")) << '\n';
    }
    return 0;
}

// The preset a typed number (1 to 12) or name means.
std::optional<AppBuilderPreset> findPreset(const QString& typed)
{
    const QList<AppBuilderPreset>& presets = appBuilderPresets();
    bool isNumber = false;
    const int number = typed.trimmed().toInt(&isNumber);
    if (isNumber) {
        return number >= 1 && number <= presets.size() ? std::optional(presets[number - 1]) : std::nullopt;
    }
    for (const AppBuilderPreset& preset : presets) {
        if (preset.name.compare(typed.trimmed(), Qt::CaseInsensitive) == 0) {
            return preset;
        }
    }
    return std::nullopt;
}

int builderNew(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(builderSynopses[2], {{QStringLiteral("--preset"), Kind::Value}}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    Defaults defaults;
    const QString name = line.positional().first().trimmed();
    std::optional<QString> refusal;
    if (line.isSet(QStringLiteral("--preset"))) {
        std::optional<AppBuilderPreset> preset = findPreset(line.value(QStringLiteral("--preset")));
        if (!preset) {
            QStringList choices;
            for (qsizetype index = 0; index < appBuilderPresets().size(); ++index) {
                choices.append(QString::number(index + 1) + QStringLiteral(" ") + appBuilderPresets()[index].name);
            }
            return line.usageError(
                QStringLiteral("Choose one of these presets: ") + choices.join(QStringLiteral(", ")) + u'.', err);
        }
        preset->name = name;
        refusal = addPresetApp(defaults, *preset);
    } else {
        refusal = addUtilityApp(defaults, name);
    }
    if (refusal) {
        err << *refusal << '\n';
        return 1;
    }
    out << "Added builder app " << name << " (\\" << builderPrefix(defaults, name) << ").\n";
    return 0;
}

std::optional<bool> parseFlag(const QString& text)
{
    const QString lower = text.trimmed().toLower();
    if (lower == u"true" || lower == u"yes" || lower == u"on" || lower == u"1") {
        return true;
    }
    if (lower == u"false" || lower == u"no" || lower == u"off" || lower == u"0") {
        return false;
    }
    return std::nullopt;
}

// The value for a setting of `type` from its argument: "@FILE" reads the file, a list is a JSON
// array of texts or one item per line. A problem comes back as text.
std::variant<QJsonValue, QString> settingValue(BuilderSettingType type, const QString& argument)
{
    QByteArray raw = argument.toUtf8();
    if (argument.startsWith(u'@')) {
        QFile file(argument.mid(1));
        if (!file.open(QIODevice::ReadOnly)) {
            return QStringLiteral("Could not read ") + argument.mid(1) + u'.';
        }
        raw = file.readAll();
    }
    const QString text = QString::fromUtf8(raw);
    switch (type) {
    case BuilderSettingType::Text:
        return QJsonValue(text);
    case BuilderSettingType::Bytes:
        return Defaults::bytesValue(raw);
    case BuilderSettingType::Flag:
        if (const std::optional<bool> flag = parseFlag(text)) {
            return QJsonValue(*flag);
        }
        return QStringLiteral("Give true or false.");
    case BuilderSettingType::Number: {
        bool ok = false;
        const double number = QLocale::c().toDouble(text.trimmed(), &ok);
        if (!ok) {
            return QStringLiteral("Give a number, such as 11 or 12.5.");
        }
        return QJsonValue(number);
    }
    case BuilderSettingType::TextList: {
        if (text.trimmed().startsWith(u'[')) {
            const QJsonDocument document = QJsonDocument::fromJson(raw);
            const QJsonArray array = document.array();
            if (!document.isArray() ||
                !std::all_of(array.begin(), array.end(), [](const QJsonValue& item) { return item.isString(); })) {
                return QStringLiteral("Give a JSON array of texts, or one item per line.");
            }
            return QJsonValue(array);
        }
        QStringList items = text.split(u'\n');
        for (QString& item : items) {
            if (item.endsWith(u'\r')) {
                item.chop(1);
            }
        }
        items.removeAll(QString());
        return QJsonValue(QJsonArray::fromStringList(items));
    }
    }
    return QStringLiteral("Unknown setting type.");
}

QString settingNames()
{
    QStringList names;
    for (const BuilderSetting& setting : builderSettings()) {
        names.append(setting.name);
    }
    return names.join(QStringLiteral(", "));
}

int builderSet(const QStringList& arguments, bool unset, QTextStream& out, QTextStream& err)
{
    CommandLine line(unset ? builderSynopses[4] : builderSynopses[3], {}, unset ? 2 : 3, unset ? 2 : 3);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const std::optional<BuilderSetting> setting = findBuilderSetting(line.positional()[1].trimmed());
    if (!setting) {
        return line.usageError(QStringLiteral("SETTING is one of: ") + settingNames() + u'.', err);
    }
    Defaults defaults;
    const std::optional<QString> app = existingApp(defaults, line.positional()[0]);
    if (!app) {
        err << noSuchApp(line.positional()[0]) << '\n';
        return 1;
    }
    const QString key = builderKey(setting->name, *app);
    if (unset) {
        defaults.remove(key);
        out << "Removed " << key << ".\n";
        return 0;
    }
    const std::variant<QJsonValue, QString> value = settingValue(setting->type, line.positional()[2]);
    if (const QString* problem = std::get_if<QString>(&value)) {
        err << *problem << '\n';
        return 1;
    }
    defaults.setValue(key, std::get<QJsonValue>(value));
    if (setting->name.startsWith(QStringLiteral("AppIcon"))) {
        // Views that show the icon redraw when the revision moves.
        defaults.addToNumber(builderAppIconRevisionKey, 1);
    }
    out << "Set " << key << ".\n";
    return 0;
}

} // namespace

int builder(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    const QList<std::pair<QString, Action>> actions = {
        {QStringLiteral("list"), builderList},
        {QStringLiteral("show"), builderShow},
        {QStringLiteral("render"), builderRender},
        {QStringLiteral("new"), builderNew},
        {QStringLiteral("set"),
         [](const QStringList& rest, QTextStream& o, QTextStream& e) { return builderSet(rest, false, o, e); }},
        {QStringLiteral("unset"),
         [](const QStringList& rest, QTextStream& o, QTextStream& e) { return builderSet(rest, true, o, e); }},
    };
    return runAction(arguments, actions, builderUsage(), out, err);
}

} // namespace tavo::ctl
