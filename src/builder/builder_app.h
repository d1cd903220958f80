#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace tavo {

class Defaults;

// App lists
inline const QString builderAppsKey = QStringLiteral("tavoCustomBuilderAppsJSON");
inline const QString userCreatedBuilderAppsKey = QStringLiteral("tavoUserCreatedBuilderApps");
inline const QString builderAppsSeededKey = QStringLiteral("tavoViralBuilderAppsSeededV1");
inline const QString selectedBuilderAppKey = QStringLiteral("tavoAIBuilderApp");
inline const QString builderAppIconRevisionKey = QStringLiteral("tavoBuilderAppIconRevision");
inline const QString appBuilderHasSeenHomeKey = QStringLiteral("tavoAppBuilderHasSeenHome");
// App lists that did not decode, kept here before a new list is written over them.
inline const QString undecodableBuilderAppsKey = QStringLiteral("tavoCustomBuilderAppsJSONUndecodable");

// The kinds of value a per-app setting holds.
enum class BuilderSettingType
{
    Text,
    TextList,
    Flag,
    Number,
    Bytes,
};

// One per-app setting: the key is "tavoBuilder" + `name` + "." + the app's name.
struct BuilderSetting
{
    QString name; // "Prompt", "DefaultRTF", …
    BuilderSettingType type;
};

// Every per-app setting, in the editor's order.
const QList<BuilderSetting>& builderSettings();
// The setting of that name (ignoring case), or nothing.
std::optional<BuilderSetting> findBuilderSetting(const QString& name);
QString builderKey(const QString& setting, const QString& app);

// The prefix an app gets when its prefix key is absent: lower case, each run of characters other
// than a-z and 0-9 made "-", cut to 12 characters (which may leave a final "-").
QString builderPrefixSlug(const QString& name);
// The app's command prefix: the stored one, even empty, else the slug.
QString builderPrefix(const Defaults& defaults, const QString& app);

// The app list as stored, in gallery order; a list that does not decode reads as empty.
QStringList builderAppNames(const Defaults& defaults);
// Writes the app list; a stored list that does not decode is kept aside first.
void writeBuilderAppNames(Defaults& defaults, const QStringList& names);
// Keeps an undecodable stored app list under undecodableBuilderAppsKey; true if there was one.
bool keepAsideUndecodableAppList(Defaults& defaults);

// The icon symbol an app's name suggests.
QString automaticAppIcon(const QString& name);

// Built-in template styles: the presets' styles plus "Blank" and "Modern".
const QStringList& builtInTemplateStyles();
inline const QString blankTemplateStyle = QStringLiteral("Blank");
inline const QString modernTemplateStyle = QStringLiteral("Modern");

struct AppBuilderPreset
{
    QString name;
    QString prefix;
    QString prompt;
    QString variables;
    QString sourceCollections;
    QString outputCollections;
    QString templateStyle; // "template"
    QString details;
};
// The twelve presets, in their menu order.
const QList<AppBuilderPreset>& appBuilderPresets();

struct BuilderSeedApp
{
    QString name;
    QString prefix;
    QString description;
    QString variables;
    QString collections;
    QString outputCollection;
    QString format;
    QString instructions;
};
// The thirteen starter apps.
const QList<BuilderSeedApp>& builderSeedApps();

// Writes each of the row's settings only where the app has none yet.
void seedStarterApp(Defaults& defaults, const BuilderSeedApp& row);
// Once per store: renames the old spellings of seeded apps, adds the starter apps that are
// missing, and sets the flag. Returns whether it ran.
bool seedBuilderApps(Defaults& defaults);

// Whether a variable stands for a source collection: its name, or its name less a final "s",
// ignoring case.
bool variableNamesCollection(const QString& variable, const QString& collection);
inline const QString legacyBillPrompt =
    QStringLiteral("TAX INVOICE\nBill To: {{customer}}\nProduct or service: {{product}}\nAmount: ₹{{amount}}\nTax: "
                   "{{tax}}\n\n{{details}}");
inline const QString migratedBillPrompt = QStringLiteral(
    "TAX INVOICE\nBill To: {{collection1}}\nProduct or service: {{collection2}}\nAmount: ₹{{amount}}\n\n{{details}}");
// Whether an app of this prefix, variables and collections (comma-separated) has the old bill
// schema, whose customer and product were variables.
bool hasLegacyBillSchema(const QString& prefix, const QString& variables, const QString& collections);
// Moves an old bill app to the new schema in the store. Returns whether anything changed; a
// second run changes nothing.
bool migrateLegacyBillBuilderSchema(Defaults& defaults, const QString& app);

// Comma-separated items, trimmed, empty ones dropped.
QStringList builderListItems(const QString& text);

// The editor's state of one app.
struct BuilderAppConfiguration
{
    QString prompt;
    QString description;
    QString prefix;
    QString variables;
    QStringList variableTypes;
    QString calculations;
    QStringList formulaOrder;
    QString collections;
    QString outputCollections;
    QStringList selectedRecords;
    QString format = QStringLiteral("PDF");
    QString imageModel;
    QString imageProfile;
    QString videoModel = QStringLiteral("gemini-omni-1.1-flash");
    QStringList mediaReferences;
    QString aspectRatio = QStringLiteral("16:9");
    QString resolution = QStringLiteral("2K");
    QString details;
    QString templateStyle = blankTemplateStyle;
    std::optional<QByteArray> richTextData;
    bool bold = false;
    bool italic = false;
    bool underline = false;
    double fontSize = 11;
    QString fontColor = QStringLiteral("Ink");
    QString asset;
    QStringList referenceTemplates;
    QString appIcon;
    QString appIconSymbol;
    QString appCover;
    QString creditCost = QStringLiteral("1");
};

inline const QString geminiImageModel = QStringLiteral("gemini-3.1-flash-image");
inline const QString openAIImageModel = QStringLiteral("gpt-image-2.5-flare");

// Reads the editor's state: each setting with a saved default takes it first, then the working
// key; the template style falls to "Blank". The editor runs migrateLegacyBillBuilderSchema first. `geminiProfile`: the
// selected image profile is of the Gemini class, which picks the default image model.
BuilderAppConfiguration loadConfiguration(const Defaults& defaults, const QString& app, bool geminiProfile = false);
// Writes the working keys of the state in one change; never a saved default.
void persistConfiguration(Defaults& defaults, const QString& app, const BuilderAppConfiguration& state);
// "Set as Default": freezes the state into the sixteen keys commands read first, in one change.
// Returns the status text.
QString setAsDefault(Defaults& defaults, const QString& app, const BuilderAppConfiguration& state);

// Template library
QString savedTemplatesKey(const QString& app);
QString appTemplateKey(const QString& app, const QString& templateName, const QString& field);
QStringList savedTemplateNames(const Defaults& defaults, const QString& app);
// Saves the state under the trimmed `name`. Returns the status text; nothing for a blank name.
std::optional<QString> saveReusableTemplate(Defaults& defaults, const QString& app, const QString& name,
                                            const BuilderAppConfiguration& state);
// Sets the style; a saved template's stored fields replace those of the state, one by one.
void selectTemplate(const Defaults& defaults, const QString& app, const QString& name, BuilderAppConfiguration& state);
QStringList templateChoices(const Defaults& defaults, const QString& app);

// Creating and deleting apps. Each returns a refusal text, or nothing when it went ahead.
std::optional<QString> addUtilityApp(Defaults& defaults, const QString& name, const QString& prompt = {},
                                     const QString& description = {});
// Adds the preset as a new app under its name, its settings written in one change.
std::optional<QString> addPresetApp(Defaults& defaults, const AppBuilderPreset& preset);
// "New action <n>" with the first free number; returns its name.
QString startNewAction(Defaults& defaults, const QString& prompt = {}, const QString& description = {});
// Removes the app from the lists and every key of it.
void deleteBuilderApp(Defaults& defaults, const QString& name);

// Texts of the editor
namespace builderTexts {
inline const QString nameFirst = QStringLiteral("Give the action a short name first.");
inline const QString actionPlaceholder = QStringLiteral("What should this action do? (optional details)");
inline const QString setDefaultQuestion = QStringLiteral("Set as default template?");
inline const QString setDefaultNote =
    QStringLiteral("New shortcut outputs for this app will use this template. The previous default will remain "
                   "saved in your template library.");
QString defaultSet(const QString& templateName);
QString templateSaved(const QString& templateName);
} // namespace builderTexts

} // namespace tavo
