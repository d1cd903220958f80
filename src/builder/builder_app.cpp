#include "builder/builder_app.h"

#include "store/defaults.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QRegularExpression>

namespace tavo {

namespace {

using Type = BuilderSettingType;
using Values = QList<QPair<QString, QJsonValue>>;

const QJsonValue removed = QJsonValue(QJsonValue::Undefined);

QJsonValue bytesOrRemoved(const std::optional<QByteArray>& bytes)
{
    return bytes ? Defaults::bytesValue(*bytes) : removed;
}

QJsonValue list(const QStringList& texts)
{
    return QJsonArray::fromStringList(texts);
}

// The stored app list, or nothing when a stored list does not decode.
std::optional<QStringList> decodedAppList(const Defaults& defaults, bool* undecodable)
{
    *undecodable = false;
    const QJsonValue stored = defaults.value(builderAppsKey);
    if (stored.isUndefined()) {
        return QStringList();
    }
    if (stored.isString()) {
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(stored.toString().toUtf8(), &error);
        if (error.error == QJsonParseError::NoError && document.isArray()) {
            QStringList names;
            bool allText = true;
            for (const QJsonValue& name : document.array()) {
                allText = allText && name.isString();
                names.append(name.toString());
            }
            if (allText) {
                return names;
            }
        }
    }
    *undecodable = true;
    return std::nullopt;
}

QString appListJson(const QStringList& names)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(names)).toJson(QJsonDocument::Compact));
}

// What keeps an undecodable list aside, to go in the same change as the write over it.
Values keepAsideValues(const Defaults& defaults)
{
    bool undecodable = false;
    decodedAppList(defaults, &undecodable);
    if (!undecodable) {
        return {};
    }
    const QJsonValue stored = defaults.value(builderAppsKey);
    const QString text =
        stored.isString() ? stored.toString() : QString::fromUtf8(QJsonDocument(QJsonArray{stored}).toJson());
    QStringList kept = defaults.stringList(undecodableBuilderAppsKey).value_or(QStringList());
    if (kept.contains(text)) {
        return {};
    }
    kept.append(text);
    return {{undecodableBuilderAppsKey, list(kept)}};
}

Values appListValues(const Defaults& defaults, const QStringList& names)
{
    Values values = keepAsideValues(defaults);
    values.append({builderAppsKey, appListJson(names)});
    return values;
}

bool containsIgnoringCase(const QStringList& names, const QString& name)
{
    return names.contains(name, Qt::CaseInsensitive);
}

// A value the seeding counts as missing: absent, or empty text, list or bytes.
bool isEmptyValue(const QJsonValue& value)
{
    if (value.isUndefined() || value.isNull()) {
        return true;
    }
    if (value.isString()) {
        return value.toString().isEmpty();
    }
    if (value.isArray()) {
        return value.toArray().isEmpty();
    }
    if (value.isObject()) {
        return value.toObject().value(QStringLiteral("$bytes")).toString().isEmpty();
    }
    return false;
}

// Seeding works on the store as it will be after its own pending writes.
class PendingValues
{
public:
    explicit PendingValues(const Defaults& defaults)
        : m_defaults(defaults)
    {
    }
    QJsonValue value(const QString& key) const
    {
        const auto found = m_pending.constFind(key);
        return found != m_pending.constEnd() ? *found : m_defaults.value(key);
    }
    void set(const QString& key, const QJsonValue& value)
    {
        if (!m_pending.contains(key)) {
            m_order.append(key);
        }
        m_pending.insert(key, value);
    }
    Values values() const
    {
        Values all;
        for (const QString& key : m_order) {
            all.append({key, m_pending.value(key)});
        }
        return all;
    }

private:
    const Defaults& m_defaults;
    QHash<QString, QJsonValue> m_pending;
    QStringList m_order;
};

void seedStarterAppInto(PendingValues& pending, const BuilderSeedApp& row)
{
    const QList<std::pair<QString, QString>> settings = {
        {QStringLiteral("Prefix"), row.prefix},
        {QStringLiteral("Description"), row.description},
        {QStringLiteral("Variables"), row.variables},
        {QStringLiteral("Collections"), row.collections},
        {QStringLiteral("OutputCollections"), row.outputCollection},
        {QStringLiteral("Format"), row.format},
        {QStringLiteral("Prompt"), row.instructions},
        {QStringLiteral("Template"), blankTemplateStyle},
    };
    for (const auto& [setting, value] : settings) {
        const QString key = builderKey(setting, row.name);
        if (pending.value(key).isUndefined()) {
            pending.set(key, value);
        }
    }
}

// The settings an old spelling of a seeded app hands to its new name.
const QStringList& renamedSettings()
{
    static const QStringList settings = {
        QStringLiteral("Prefix"),
        QStringLiteral("Prompt"),
        QStringLiteral("Description"),
        QStringLiteral("Variables"),
        QStringLiteral("VariableTypes"),
        QStringLiteral("Collections"),
        QStringLiteral("OutputCollections"),
        QStringLiteral("Format"),
        QStringLiteral("Calculations"),
        QStringLiteral("FormulaOrder"),
        QStringLiteral("Template"),
        QStringLiteral("FinalTemplate"),
        QStringLiteral("Details"),
        QStringLiteral("TemplateRTF"),
        QStringLiteral("DefaultRTF"),
        QStringLiteral("Asset"),
        QStringLiteral("AppIcon"),
        QStringLiteral("AppIconSymbol"),
        QStringLiteral("AppCover"),
        QStringLiteral("CreditCost"),
    };
    return settings;
}

// The fields of a saved template, each with the setting it stands for in the editor's state.
const QStringList& templateFields()
{
    static const QStringList fields = {
        QStringLiteral("prompt"),      QStringLiteral("rtf"),
        QStringLiteral("variables"),   QStringLiteral("details"),
        QStringLiteral("style"),       QStringLiteral("asset"),
        QStringLiteral("bold"),        QStringLiteral("italic"),
        QStringLiteral("underline"),   QStringLiteral("fontSize"),
        QStringLiteral("fontColor"),   QStringLiteral("imageModel"),
        QStringLiteral("videoModel"),  QStringLiteral("mediaReferences"),
        QStringLiteral("aspectRatio"), QStringLiteral("resolution"),
    };
    return fields;
}

} // namespace

const QList<BuilderSetting>& builderSettings()
{
    static const QList<BuilderSetting> settings = {
        {QStringLiteral("Prompt"), Type::Text},
        {QStringLiteral("DefaultPrompt"), Type::Text},
        {QStringLiteral("Description"), Type::Text},
        {QStringLiteral("Prefix"), Type::Text},
        {QStringLiteral("Variables"), Type::Text},
        {QStringLiteral("VariableTypes"), Type::TextList},
        {QStringLiteral("Calculations"), Type::Text},
        {QStringLiteral("FormulaOrder"), Type::TextList},
        {QStringLiteral("Collections"), Type::Text},
        {QStringLiteral("OutputCollections"), Type::Text},
        {QStringLiteral("SelectedRecords"), Type::TextList},
        {QStringLiteral("Format"), Type::Text},
        {QStringLiteral("ImageModel"), Type::Text},
        {QStringLiteral("DefaultImageModel"), Type::Text},
        {QStringLiteral("ImageProfile"), Type::Text},
        {QStringLiteral("VideoModel"), Type::Text},
        {QStringLiteral("DefaultVideoModel"), Type::Text},
        {QStringLiteral("MediaReferences"), Type::TextList},
        {QStringLiteral("DefaultMediaReferences"), Type::TextList},
        {QStringLiteral("MediaAspectRatio"), Type::Text},
        {QStringLiteral("DefaultMediaAspectRatio"), Type::Text},
        {QStringLiteral("ImageResolution"), Type::Text},
        {QStringLiteral("DefaultImageResolution"), Type::Text},
        {QStringLiteral("Details"), Type::Text},
        {QStringLiteral("DefaultDetails"), Type::Text},
        {QStringLiteral("Template"), Type::Text},
        {QStringLiteral("FinalTemplate"), Type::Text},
        {QStringLiteral("TemplateRTF"), Type::Bytes},
        {QStringLiteral("DefaultRTF"), Type::Bytes},
        {QStringLiteral("Bold"), Type::Flag},
        {QStringLiteral("Italic"), Type::Flag},
        {QStringLiteral("Underline"), Type::Flag},
        {QStringLiteral("DefaultBold"), Type::Flag},
        {QStringLiteral("DefaultItalic"), Type::Flag},
        {QStringLiteral("DefaultUnderline"), Type::Flag},
        {QStringLiteral("FontSize"), Type::Number},
        {QStringLiteral("DefaultFontSize"), Type::Number},
        {QStringLiteral("FontColor"), Type::Text},
        {QStringLiteral("DefaultFontColor"), Type::Text},
        {QStringLiteral("Asset"), Type::Text},
        {QStringLiteral("DefaultAsset"), Type::Text},
        {QStringLiteral("ReferenceTemplates"), Type::TextList},
        {QStringLiteral("AppIcon"), Type::Text},
        {QStringLiteral("AppIconSymbol"), Type::Text},
        {QStringLiteral("AppCover"), Type::Text},
        {QStringLiteral("CreditCost"), Type::Text},
    };
    return settings;
}

std::optional<BuilderSetting> findBuilderSetting(const QString& name)
{
    for (const BuilderSetting& setting : builderSettings()) {
        if (setting.name.compare(name, Qt::CaseInsensitive) == 0) {
            return setting;
        }
    }
    return std::nullopt;
}

QString builderKey(const QString& setting, const QString& app)
{
    return QStringLiteral("tavoBuilder") + setting + u'.' + app;
}

QString builderPrefixSlug(const QString& name)
{
    static const QRegularExpression others(QStringLiteral("[^a-z0-9]+"));
    return name.toLower().replace(others, QStringLiteral("-")).left(12);
}

QString builderPrefix(const Defaults& defaults, const QString& app)
{
    return defaults.string(builderKey(QStringLiteral("Prefix"), app)).value_or(builderPrefixSlug(app));
}

QStringList builderListItems(const QString& text)
{
    QStringList items;
    for (const QString& item : text.split(u',')) {
        const QString trimmed = item.trimmed();
        if (!trimmed.isEmpty()) {
            items.append(trimmed);
        }
    }
    return items;
}

QStringList builderAppNames(const Defaults& defaults)
{
    bool undecodable = false;
    return decodedAppList(defaults, &undecodable).value_or(QStringList());
}

void writeBuilderAppNames(Defaults& defaults, const QStringList& names)
{
    defaults.setValues(appListValues(defaults, names));
}

bool keepAsideUndecodableAppList(Defaults& defaults)
{
    const Values values = keepAsideValues(defaults);
    if (!values.isEmpty()) {
        defaults.setValues(values);
    }
    bool undecodable = false;
    decodedAppList(defaults, &undecodable);
    return undecodable;
}

QString automaticAppIcon(const QString& name)
{
    const QString lower = name.toLower();
    auto has = [&](std::initializer_list<const char*> words) {
        for (const char* word : words) {
            if (lower.contains(QLatin1StringView(word))) {
                return true;
            }
        }
        return false;
    };
    if (has({"image", "photo", "poster", "creative", "card", "greeting", "invite"})) {
        return QStringLiteral("photo.fill");
    }
    if (has({"video", "gif"})) {
        return QStringLiteral("play.rectangle.fill");
    }
    if (has({"invoice", "bill", "receipt"})) {
        return QStringLiteral("doc.text.fill");
    }
    if (has({"quote", "proposal", "quotation"})) {
        return QStringLiteral("doc.richtext.fill");
    }
    if (has({"letter", "mail", "reply", "follow"})) {
        return QStringLiteral("envelope.fill");
    }
    return QStringLiteral("sparkles");
}

const QStringList& builtInTemplateStyles()
{
    static const QStringList styles = [] {
        QStringList names = {blankTemplateStyle, modernTemplateStyle};
        for (const AppBuilderPreset& preset : appBuilderPresets()) {
            if (!names.contains(preset.templateStyle)) {
                names.append(preset.templateStyle);
            }
        }
        return names;
    }();
    return styles;
}

const QList<AppBuilderPreset>& appBuilderPresets()
{
    static const QList<AppBuilderPreset> presets = {
        {QStringLiteral("Invoice"), QStringLiteral("invoice"),
         QStringLiteral("INVOICE\nInvoice date: {{date}}\nSeller: {{collection1}}\nCustomer: {{collection2}}\nAmount: "
                        "₹{{amount}}\n\n{{details}}"),
         QStringLiteral("Amount"), QStringLiteral("Companies, Customers"), QStringLiteral("Invoices"),
         QStringLiteral("Bill"),
         QStringLiteral("Use only supplied seller and customer details. Add verified item, tax, and payment "
                        "information before issuing.")},
        {QStringLiteral("Bill Builder"), QStringLiteral("bill"),
         QStringLiteral("TAX INVOICE\nBill To: {{collection1}}\nProduct or service: {{collection2}}\nAmount: "
                        "₹{{amount}}\n\n{{details}}"),
         QStringLiteral("Amount"), QStringLiteral("Customers, Products"), QStringLiteral("Bills"),
         QStringLiteral("Bill"),
         QStringLiteral("Payment terms: Due on receipt. Add verified payment and GST information here.")},
        {QStringLiteral("Proposal Builder"), QStringLiteral("proposal"),
         QStringLiteral("PROPOSAL\nPrepared for: {{client}}\nProject: {{project}}\nScope: {{scope}}\nFee: "
                        "₹{{fee}}\n\n{{details}}"),
         QStringLiteral("Client, Project, Scope, Fee"), QStringLiteral("Customers, Services"),
         QStringLiteral("Proposals"), QStringLiteral("Proposal"),
         QStringLiteral("Add your company profile, delivery milestones, and validity period.")},
        {QStringLiteral("Appointment Letter"), QStringLiteral("appointment"),
         QStringLiteral("APPOINTMENT LETTER\nTo: {{candidate}}\nPosition: {{role}}\nJoining date: "
                        "{{startdate}}\nCompensation: {{salary}}\n\n{{details}}"),
         QStringLiteral("Candidate, Role, Start Date, Salary"), QStringLiteral("Candidates, Roles"),
         QStringLiteral("Appointment Letters"), QStringLiteral("Formal Letter"),
         QStringLiteral("Add employer name, registered address, work location, and terms.")},
        {QStringLiteral("Quotation Builder"), QStringLiteral("quote"),
         QStringLiteral("QUOTATION\nCustomer: {{customer}}\nItem: {{product}}\nQuantity: {{quantity}}\nRate: "
                        "₹{{rate}}\n\n{{details}}"),
         QStringLiteral("Customer, Product, Quantity, Rate"), QStringLiteral("Customers, Products"),
         QStringLiteral("Quotations"), QStringLiteral("Quotation"),
         QStringLiteral("Add quotation validity, delivery terms, and payment terms.")},
        {QStringLiteral("Receipt Builder"), QStringLiteral("receipt"),
         QStringLiteral("PAYMENT RECEIPT\nReceived from: {{customer}}\nAmount: ₹{{amount}}\nDate: {{date}}\nPayment "
                        "method: {{method}}\n\n{{details}}"),
         QStringLiteral("Customer, Amount, Date, Method"), QStringLiteral("Customers"), QStringLiteral("Receipts"),
         QStringLiteral("Receipt"), QStringLiteral("Add business name, receipt number, and authorized signatory.")},
        {QStringLiteral("Purchase Order"), QStringLiteral("purchase-order"),
         QStringLiteral("PURCHASE ORDER\nDate: {{date}}\nBuyer: {{collection1}}\nVendor: {{collection2}}\nReference: "
                        "{{reference}}\nAmount: ₹{{amount}}\nDelivery date: {{deliverydate}}\n\n{{details}}"),
         QStringLiteral("Reference, Amount, Delivery Date"), QStringLiteral("Companies, Vendors"),
         QStringLiteral("Purchase Orders"), QStringLiteral("Quotation"),
         QStringLiteral("Add only confirmed items, quantities, and terms.")},
        {QStringLiteral("Payment Reminder"), QStringLiteral("payment-reminder"),
         QStringLiteral("PAYMENT REMINDER\nDate: {{date}}\nCustomer: {{collection1}}\nInvoice: {{invoice}}\nAmount "
                        "due: ₹{{amount}}\nDue date: {{duedate}}\n\n{{details}}"),
         QStringLiteral("Invoice, Amount, Due Date"), QStringLiteral("Companies, Customers"),
         QStringLiteral("Payment Reminders"), QStringLiteral("Formal Letter"),
         QStringLiteral("Use a courteous tone. Do not assume the due date or payment status.")},
        {QStringLiteral("Business Report"), QStringLiteral("report"),
         QStringLiteral("BUSINESS REPORT\nPeriod: {{period}}\nPrepared for: {{collection1}}\nTopic: "
                        "{{topic}}\n\n{{details}}\n\n{{summary}}"),
         QStringLiteral("Period, Topic, Summary"), QStringLiteral("Companies"), QStringLiteral("Reports"),
         QStringLiteral("Proposal"), QStringLiteral("Use provided metrics only. Label any missing data clearly.")},
        {QStringLiteral("Business Letter"), QStringLiteral("letter"),
         QStringLiteral("{{date}}\nTo: {{recipient}}\nSubject: {{subject}}\n\n{{body}}\n\n{{details}}"),
         QStringLiteral("Recipient, Subject, Body, Date"), QStringLiteral("Contacts"), QStringLiteral("Letters"),
         QStringLiteral("Formal Letter"),
         QStringLiteral("Add your organization name, address, logo, and signature block.")},
        {QStringLiteral("Offer Letter"), QStringLiteral("offer"),
         QStringLiteral(
             "OFFER OF EMPLOYMENT\n\nDate: {{date}}\nCandidate: {{candidate}}\nPosition: {{position}}\nCompensation: "
             "{{package}}\nJoining date: {{dateofjoining}}\n\nDear {{candidate}},\n\nWe are pleased to offer you the "
             "position of {{position}}. Your annual compensation will be {{package}}. Your expected joining date is "
             "{{dateofjoining}}.\n\n{{details}}"),
         QStringLiteral("Candidate, Position, Package, Date of Joining"), QStringLiteral("Candidates, Roles"),
         QStringLiteral("Offer Letters"), QStringLiteral("Offer Letter"),
         QStringLiteral(
             "Add employer legal name, registered address, benefits, probation, and acceptance instructions.")},
        {QStringLiteral("Agreement Builder"), QStringLiteral("agreement"),
         QStringLiteral("AGREEMENT\n\nThis agreement is made on {{date}} between {{party1}} and "
                        "{{party2}}.\n\nPurpose: {{purpose}}\nTerm: {{term}}\nFee: {{fee}}\n\nTerms and "
                        "conditions:\n{{terms}}\n\nSigned by: {{party1}}\nSigned by: {{party2}}\n{{details}}"),
         QStringLiteral("Date, Party 1, Party 2, Purpose, Term, Fee, Terms"), QStringLiteral("Customers, Services"),
         QStringLiteral("Agreements"), QStringLiteral("Agreement"),
         QStringLiteral("Add governing law, notice addresses, and signature witness fields. Have legal agreements "
                        "reviewed by qualified counsel.")},
    };
    return presets;
}

const QList<BuilderSeedApp>& builderSeedApps()
{
    static const QList<BuilderSeedApp> seeds = {
        {QStringLiteral("Rewrite"), QStringLiteral("rewrite"),
         QStringLiteral("Rewrite text using exact clipboard or selected contact context."),
         QStringLiteral("Tone, Text"), QStringLiteral("Contacts"), QStringLiteral("Rewrites"), QStringLiteral("Text"),
         QStringLiteral("Professional rewrite with preserved facts")},
        {QStringLiteral("Social Caption"), QStringLiteral("caption"),
         QStringLiteral("Write a platform-ready social caption for a saved product, service, or media shortcut."),
         QStringLiteral("Platform, Audience"), QStringLiteral("Products, Media Files"), QStringLiteral("Social Posts"),
         QStringLiteral("Text"),
         QStringLiteral("Create a short, engaging social caption. Use the selected product or media record and the "
                        "chosen platform and audience. Keep claims factual.")},
        {QStringLiteral("Product Launch Creative"), QStringLiteral("launch"),
         QStringLiteral("Create a polished launch image prompt from product and media collections."),
         QStringLiteral("Audience, Offer"), QStringLiteral("Products, Media Files"), QStringLiteral("Launch Creatives"),
         QStringLiteral("Image"),
         QStringLiteral("Create an eye-catching product launch image using only the selected product details and "
                        "attached reference media. No invented claims or extra text.")},
        {QStringLiteral("Event Invite"), QStringLiteral("invite"),
         QStringLiteral("Make a shareable event invitation using contact and personal details."),
         QStringLiteral("Event, Date, Host"), QStringLiteral("Contacts, Personal"), QStringLiteral("Invitations"),
         QStringLiteral("Image"),
         QStringLiteral("Create a polished event invitation using the selected contact or host record and the "
                        "configured event details.")},
        {QStringLiteral("Meeting Follow-up"), QStringLiteral("followup"),
         QStringLiteral("Draft a concise follow-up message from contact and company records."),
         QStringLiteral("Meeting, Next Step"), QStringLiteral("Contacts, Companies"), QStringLiteral("Follow-ups"),
         QStringLiteral("Email"),
         QStringLiteral("Write a concise meeting follow-up using only the selected contact, company, meeting, and "
                        "next-step details.")},
        {QStringLiteral("Customer Reply"), QStringLiteral("reply"),
         QStringLiteral("Prepare a helpful customer response from customer and product records."),
         QStringLiteral("Request, Tone"), QStringLiteral("Customers, Products"), QStringLiteral("Customer Replies"),
         QStringLiteral("WhatsApp"),
         QStringLiteral("Write a clear, helpful reply based on the selected customer and product records. Do not "
                        "promise unconfigured discounts or delivery dates.")},
        {QStringLiteral("Payment Reminder"), QStringLiteral("remind"),
         QStringLiteral("Create a courteous reminder using customer and invoice records."),
         QStringLiteral("Invoice, Amount, Due Date"), QStringLiteral("Customers, Invoices"),
         QStringLiteral("Payment Reminders"), QStringLiteral("Text"),
         QStringLiteral("Write a concise, respectful payment reminder using only the selected customer and confirmed "
                        "invoice details.")},
        {QStringLiteral("Job Offer Letter"), QStringLiteral("offer"),
         QStringLiteral("Draft an offer letter from candidate and role collections."),
         QStringLiteral("Salary, Start Date"), QStringLiteral("Candidates, Roles"), QStringLiteral("Offer Letters"),
         QStringLiteral("PDF"),
         QStringLiteral("Prepare a concise offer letter using only selected candidate and role records plus the "
                        "configured salary and start date. Leave unknown employment terms out.")},
        {QStringLiteral("Jain Festival Greeting"), QStringLiteral("jain"),
         QStringLiteral("Create a festive greeting using personal and media collections."),
         QStringLiteral("Festival, Name"), QStringLiteral("Personal, Media Files"),
         QStringLiteral("Festival Greetings"), QStringLiteral("Image"),
         QStringLiteral("Create a warm, respectful Jain festival greeting. Use the selected name and attached "
                        "reference media. Preserve religious terms and avoid adding unsupported claims.")},
        {QStringLiteral("Travel Itinerary"), QStringLiteral("trip"),
         QStringLiteral("Build a compact travel plan using saved links and personal notes."),
         QStringLiteral("Destination, Dates"), QStringLiteral("Personal, Websites & URLs"),
         QStringLiteral("Travel Plans"), QStringLiteral("HTML"),
         QStringLiteral("Create a clear travel itinerary using only the selected saved links and configured "
                        "destination and dates. Clearly label information that is not supplied.")},
        {QStringLiteral("HBD"), QStringLiteral("hbd"),
         QStringLiteral("Create a shareable happy birthday greeting with a saved contact and chosen message."),
         QStringLiteral("Name, Message"), QStringLiteral("Contacts, Personal"), QStringLiteral("Birthday Cards"),
         QStringLiteral("Image"),
         QStringLiteral("Create a joyful birthday card for the selected person. Use only the configured name and "
                        "message; keep the design warm and celebratory.")},
        {QStringLiteral("Wish"), QStringLiteral("wish"), QStringLiteral("Create a short personal wish or greeting."),
         QStringLiteral("Name, Occasion"), QStringLiteral("Contacts, Personal"), QStringLiteral("Wishes"),
         QStringLiteral("Text"),
         QStringLiteral(
             "Write a warm, concise wish for the selected person and occasion. Use only configured details.")},
        {QStringLiteral("Bill"), QStringLiteral("bill"),
         QStringLiteral("Generate a simple bill from customer and product collections."), QStringLiteral("Amount"),
         QStringLiteral("Customers, Products"), QStringLiteral("Bills"), QStringLiteral("PDF"),
         QStringLiteral("Create a clear bill using selected customer and product records and the entered amount. Do "
                        "not invent tax or payment information.")},
    };
    return seeds;
}

void seedStarterApp(Defaults& defaults, const BuilderSeedApp& row)
{
    PendingValues pending(defaults);
    seedStarterAppInto(pending, row);
    const Values values = pending.values();
    if (!values.isEmpty()) {
        defaults.setValues(values);
    }
}

bool seedBuilderApps(Defaults& defaults)
{
    if (defaults.flag(builderAppsSeededKey)) {
        return false;
    }
    PendingValues pending(defaults);
    QStringList names = builderAppNames(defaults);

    const QList<std::pair<QString, QStringList>> oldSpellings = {
        {QStringLiteral("HBD"), {QStringLiteral("hbd"), QStringLiteral("happy birthday")}},
        {QStringLiteral("Wish"), {QStringLiteral("wish")}},
        {QStringLiteral("Bill"), {QStringLiteral("bill"), QStringLiteral("bill builder")}},
    };
    for (const auto& [canonical, oldNames] : oldSpellings) {
        for (qsizetype index = 0; index < names.size(); ++index) {
            const QString old = names[index];
            if (old == canonical || !containsIgnoringCase(oldNames, old)) {
                continue;
            }
            for (const QString& setting : renamedSettings()) {
                const QString newKey = builderKey(setting, canonical);
                const QJsonValue oldValue = pending.value(builderKey(setting, old));
                if (isEmptyValue(pending.value(newKey)) && !oldValue.isUndefined()) {
                    pending.set(newKey, oldValue);
                }
            }
            // The list takes the new spelling in the old one's place, unless it has it already.
            if (names.contains(canonical)) {
                names.removeAt(index--);
            } else {
                names[index] = canonical;
            }
            break;
        }
    }

    QStringList userCreated = defaults.stringList(userCreatedBuilderAppsKey).value_or(QStringList());
    for (const BuilderSeedApp& row : builderSeedApps()) {
        if (!containsIgnoringCase(names, row.name)) {
            seedStarterAppInto(pending, row);
            names.append(row.name);
        }
        if (!containsIgnoringCase(userCreated, row.name)) {
            userCreated.append(row.name);
        }
    }
    Values values = pending.values();
    values.append(appListValues(defaults, names));
    values.append({userCreatedBuilderAppsKey, list(userCreated)});
    values.append({builderAppsSeededKey, true});
    defaults.setValues(values);
    return true;
}

bool variableNamesCollection(const QString& variable, const QString& collection)
{
    if (variable.compare(collection, Qt::CaseInsensitive) == 0) {
        return true;
    }
    return collection.endsWith(u's', Qt::CaseInsensitive) &&
           variable.compare(QStringView(collection).chopped(1), Qt::CaseInsensitive) == 0;
}

bool hasLegacyBillSchema(const QString& prefix, const QString& variables, const QString& collections)
{
    if (prefix.compare(QLatin1StringView("bill"), Qt::CaseInsensitive) != 0) {
        return false;
    }
    const QStringList sources = builderListItems(collections);
    for (const QString& variable : builderListItems(variables)) {
        for (const QString& collection : sources) {
            if (variableNamesCollection(variable, collection)) {
                return true;
            }
        }
    }
    return false;
}

bool migrateLegacyBillBuilderSchema(Defaults& defaults, const QString& app)
{
    const QString variablesKey = builderKey(QStringLiteral("Variables"), app);
    if (!hasLegacyBillSchema(builderPrefix(defaults, app), defaults.string(variablesKey).value_or(QString()),
                             defaults.string(builderKey(QStringLiteral("Collections"), app)).value_or(QString()))) {
        return false;
    }
    Values values = {
        {variablesKey, QStringLiteral("Amount")},
        {builderKey(QStringLiteral("FormulaOrder"), app), removed},
    };
    for (const QString& setting : {QStringLiteral("Prompt"), QStringLiteral("DefaultPrompt")}) {
        const QString key = builderKey(setting, app);
        if (defaults.string(key) == legacyBillPrompt) {
            values.append({key, migratedBillPrompt});
        }
    }
    defaults.setValues(values);
    return true;
}

BuilderAppConfiguration loadConfiguration(const Defaults& defaults, const QString& app, bool geminiProfile)
{
    auto text = [&](const QString& setting) { return defaults.string(builderKey(setting, app)); };
    auto texts = [&](const QString& setting) { return defaults.stringList(builderKey(setting, app)); };
    auto savedFirst = [&](const QString& saved, const QString& working) {
        return text(saved) ? text(saved) : text(working);
    };
    auto flag = [&](const QString& saved, const QString& working) {
        if (const std::optional<bool> value = defaults.boolean(builderKey(saved, app))) {
            return *value;
        }
        return defaults.boolean(builderKey(working, app)).value_or(false);
    };

    BuilderAppConfiguration state;
    state.referenceTemplates = texts(QStringLiteral("ReferenceTemplates")).value_or(QStringList());
    state.prompt = savedFirst(QStringLiteral("DefaultPrompt"), QStringLiteral("Prompt")).value_or(QString());
    state.description = text(QStringLiteral("Description")).value_or(QString());
    state.prefix = builderPrefix(defaults, app);
    state.variables = text(QStringLiteral("Variables")).value_or(QString());
    state.variableTypes = texts(QStringLiteral("VariableTypes")).value_or(QStringList());
    const qsizetype variableCount = builderListItems(state.variables).size();
    while (state.variableTypes.size() < variableCount) {
        state.variableTypes.append(QStringLiteral("Text"));
    }
    state.calculations = text(QStringLiteral("Calculations")).value_or(QString());
    state.formulaOrder = texts(QStringLiteral("FormulaOrder")).value_or(QStringList());
    state.collections = text(QStringLiteral("Collections")).value_or(QString());
    state.selectedRecords = texts(QStringLiteral("SelectedRecords")).value_or(QStringList());
    state.format = text(QStringLiteral("Format")).value_or(QStringLiteral("PDF"));
    state.imageModel = savedFirst(QStringLiteral("DefaultImageModel"), QStringLiteral("ImageModel"))
                           .value_or(geminiProfile ? geminiImageModel : openAIImageModel);
    state.imageProfile = text(QStringLiteral("ImageProfile")).value_or(QString());
    state.videoModel = savedFirst(QStringLiteral("DefaultVideoModel"), QStringLiteral("VideoModel"))
                           .value_or(QStringLiteral("gemini-omni-1.1-flash"));
    state.mediaReferences = texts(QStringLiteral("DefaultMediaReferences"))
                                .value_or(texts(QStringLiteral("MediaReferences")).value_or(QStringList()));
    state.aspectRatio = savedFirst(QStringLiteral("DefaultMediaAspectRatio"), QStringLiteral("MediaAspectRatio"))
                            .value_or(QStringLiteral("16:9"));
    state.resolution = savedFirst(QStringLiteral("DefaultImageResolution"), QStringLiteral("ImageResolution"))
                           .value_or(QStringLiteral("2K"));
    state.outputCollections = text(QStringLiteral("OutputCollections")).value_or(QString());
    state.details = savedFirst(QStringLiteral("DefaultDetails"), QStringLiteral("Details")).value_or(QString());
    state.templateStyle =
        savedFirst(QStringLiteral("FinalTemplate"), QStringLiteral("Template")).value_or(blankTemplateStyle);
    state.bold = flag(QStringLiteral("DefaultBold"), QStringLiteral("Bold"));
    state.italic = flag(QStringLiteral("DefaultItalic"), QStringLiteral("Italic"));
    state.underline = flag(QStringLiteral("DefaultUnderline"), QStringLiteral("Underline"));
    // A saved size of 0 means none was saved.
    const double savedSize = defaults.number(builderKey(QStringLiteral("DefaultFontSize"), app)).value_or(0);
    state.fontSize =
        savedSize != 0 ? savedSize : defaults.number(builderKey(QStringLiteral("FontSize"), app)).value_or(11);
    state.fontColor =
        savedFirst(QStringLiteral("DefaultFontColor"), QStringLiteral("FontColor")).value_or(QStringLiteral("Ink"));
    state.richTextData = defaults.bytes(builderKey(QStringLiteral("DefaultRTF"), app));
    if (!state.richTextData) {
        state.richTextData = defaults.bytes(builderKey(QStringLiteral("TemplateRTF"), app));
    }
    state.appIcon = text(QStringLiteral("AppIcon")).value_or(QString());
    state.appIconSymbol = text(QStringLiteral("AppIconSymbol")).value_or(automaticAppIcon(app));
    state.appCover = text(QStringLiteral("AppCover")).value_or(QString());
    state.creditCost = text(QStringLiteral("CreditCost")).value_or(QStringLiteral("1"));
    state.asset = savedFirst(QStringLiteral("DefaultAsset"), QStringLiteral("Asset")).value_or(QString());
    return state;
}

void persistConfiguration(Defaults& defaults, const QString& app, const BuilderAppConfiguration& state)
{
    auto key = [&](const char* setting) { return builderKey(QLatin1StringView(setting), app); };
    defaults.setValues({
        {key("Prompt"), state.prompt},
        {key("Prefix"), state.prefix},
        {key("Variables"), state.variables},
        {key("VariableTypes"), list(state.variableTypes)},
        {key("Collections"), state.collections},
        {key("Format"), state.format},
        {key("OutputCollections"), state.outputCollections},
        {key("Details"), state.details},
        {key("Template"), state.templateStyle},
        {key("Calculations"), state.calculations},
        {key("TemplateRTF"), bytesOrRemoved(state.richTextData)},
        {key("Bold"), state.bold},
        {key("Italic"), state.italic},
        {key("Underline"), state.underline},
        {key("FontSize"), state.fontSize},
        {key("FontColor"), state.fontColor},
        {key("ImageModel"), state.imageModel},
        {key("VideoModel"), state.videoModel},
        {key("MediaReferences"), list(state.mediaReferences)},
        {key("MediaAspectRatio"), state.aspectRatio},
        {key("ImageResolution"), state.resolution},
    });
}

QString setAsDefault(Defaults& defaults, const QString& app, const BuilderAppConfiguration& state)
{
    auto key = [&](const char* setting) { return builderKey(QLatin1StringView(setting), app); };
    defaults.setValues({
        {key("FinalTemplate"), state.templateStyle},
        {key("DefaultPrompt"), state.prompt},
        {key("DefaultRTF"), bytesOrRemoved(state.richTextData)},
        {key("DefaultDetails"), state.details},
        {key("DefaultAsset"), state.asset},
        {key("DefaultFontSize"), state.fontSize},
        {key("DefaultBold"), state.bold},
        {key("DefaultItalic"), state.italic},
        {key("DefaultUnderline"), state.underline},
        {key("DefaultFontColor"), state.fontColor},
        {key("Format"), state.format},
        {key("DefaultImageModel"), state.imageModel},
        {key("DefaultVideoModel"), state.videoModel},
        {key("DefaultMediaReferences"), list(state.mediaReferences)},
        {key("DefaultMediaAspectRatio"), state.aspectRatio},
        {key("DefaultImageResolution"), state.resolution},
    });
    return builderTexts::defaultSet(state.templateStyle);
}

QString savedTemplatesKey(const QString& app)
{
    return QStringLiteral("tavoAppBuilderSavedTemplates.") + app;
}

QString appTemplateKey(const QString& app, const QString& templateName, const QString& field)
{
    return QStringLiteral("tavoAppTemplate.") + app + u'.' + templateName + u'.' + field;
}

QStringList savedTemplateNames(const Defaults& defaults, const QString& app)
{
    return defaults.stringList(savedTemplatesKey(app)).value_or(QStringList());
}

std::optional<QString> saveReusableTemplate(Defaults& defaults, const QString& app, const QString& typedName,
                                            const BuilderAppConfiguration& state)
{
    const QString name = typedName.trimmed();
    if (name.isEmpty()) {
        return std::nullopt;
    }
    QStringList saved = savedTemplateNames(defaults, app);
    Values values;
    if (!saved.contains(name)) {
        saved.append(name);
        values.append({savedTemplatesKey(app), list(saved)});
    }
    auto field = [&](const char* name_) { return appTemplateKey(app, name, QLatin1StringView(name_)); };
    values.append({
        {field("prompt"), state.prompt},
        {field("rtf"), bytesOrRemoved(state.richTextData)},
        {field("variables"), state.variables},
        {field("details"), state.details},
        {field("style"), state.templateStyle},
        {field("asset"), state.asset},
        {field("bold"), state.bold},
        {field("italic"), state.italic},
        {field("underline"), state.underline},
        {field("fontSize"), state.fontSize},
        {field("fontColor"), state.fontColor},
        {field("imageModel"), state.imageModel},
        {field("videoModel"), state.videoModel},
        {field("mediaReferences"), list(state.mediaReferences)},
        {field("aspectRatio"), state.aspectRatio},
        {field("resolution"), state.resolution},
    });
    defaults.setValues(values);
    return builderTexts::templateSaved(name);
}

void selectTemplate(const Defaults& defaults, const QString& app, const QString& name, BuilderAppConfiguration& state)
{
    state.templateStyle = name;
    if (savedTemplateNames(defaults, app).contains(name)) {
        auto field = [&](const char* name_) { return appTemplateKey(app, name, QLatin1StringView(name_)); };
        auto readText = [&](const char* name_, QString& into) {
            if (const std::optional<QString> value = defaults.string(field(name_))) {
                into = *value;
            }
        };
        auto readFlag = [&](const char* name_, bool& into) {
            if (const std::optional<bool> value = defaults.boolean(field(name_))) {
                into = *value;
            }
        };
        readText("prompt", state.prompt);
        if (const std::optional<QByteArray> rtf = defaults.bytes(field("rtf"))) {
            state.richTextData = rtf;
        }
        readText("variables", state.variables);
        readText("details", state.details);
        readText("style", state.templateStyle);
        readText("asset", state.asset);
        readFlag("bold", state.bold);
        readFlag("italic", state.italic);
        readFlag("underline", state.underline);
        if (const std::optional<double> size = defaults.number(field("fontSize"))) {
            state.fontSize = *size;
        }
        readText("fontColor", state.fontColor);
        readText("imageModel", state.imageModel);
        readText("videoModel", state.videoModel);
        if (const std::optional<QStringList> references = defaults.stringList(field("mediaReferences"))) {
            state.mediaReferences = *references;
        }
        readText("aspectRatio", state.aspectRatio);
        readText("resolution", state.resolution);
    }
    if (name == blankTemplateStyle) {
        state.richTextData.reset();
    }
}

QStringList templateChoices(const Defaults& defaults, const QString& app)
{
    return builtInTemplateStyles() + savedTemplateNames(defaults, app);
}

namespace {

// The list changes and the first settings of a new app, as one change.
std::optional<QString> addApp(Defaults& defaults, const QString& typedName, Values settings)
{
    const QString name = typedName.trimmed();
    if (name.isEmpty()) {
        return builderTexts::nameFirst;
    }
    QStringList names = builderAppNames(defaults);
    if (containsIgnoringCase(names, name)) {
        return QStringLiteral("An app named ") + name + QStringLiteral(" already exists.");
    }
    names.append(name);
    QStringList userCreated = defaults.stringList(userCreatedBuilderAppsKey).value_or(QStringList());
    if (!userCreated.contains(name)) {
        userCreated.append(name);
    }
    for (auto& [key, value] : settings) {
        key = builderKey(key, name);
    }
    settings.append(appListValues(defaults, names));
    settings.append({userCreatedBuilderAppsKey, list(userCreated)});
    defaults.setValues(settings);
    return std::nullopt;
}

} // namespace

std::optional<QString> addUtilityApp(Defaults& defaults, const QString& name, const QString& prompt,
                                     const QString& description)
{
    return addApp(defaults, name,
                  {
                      {QStringLiteral("Prompt"), prompt},
                      {QStringLiteral("Description"), description},
                      {QStringLiteral("Prefix"), builderPrefixSlug(name.trimmed())},
                      {QStringLiteral("Variables"), QString()},
                      {QStringLiteral("Collections"), QString()},
                      {QStringLiteral("Format"), QStringLiteral("PDF")},
                      {QStringLiteral("Template"), blankTemplateStyle},
                  });
}

std::optional<QString> addPresetApp(Defaults& defaults, const AppBuilderPreset& preset)
{
    return addApp(defaults, preset.name,
                  {
                      {QStringLiteral("Prompt"), preset.prompt},
                      {QStringLiteral("Prefix"), preset.prefix},
                      {QStringLiteral("Variables"), preset.variables},
                      {QStringLiteral("Collections"), preset.sourceCollections},
                      {QStringLiteral("OutputCollections"), preset.outputCollections},
                      {QStringLiteral("Format"), QStringLiteral("PDF")},
                      {QStringLiteral("Template"), preset.templateStyle},
                      {QStringLiteral("Details"), preset.details},
                  });
}

QString startNewAction(Defaults& defaults, const QString& prompt, const QString& description)
{
    const QStringList names = builderAppNames(defaults);
    int number = 1;
    QString name;
    do {
        name = QStringLiteral("New action ") + QString::number(number++);
    } while (containsIgnoringCase(names, name));
    addUtilityApp(defaults, name, prompt, description);
    return name;
}

void deleteBuilderApp(Defaults& defaults, const QString& name)
{
    QStringList names = builderAppNames(defaults);
    names.removeAll(name);
    QStringList userCreated = defaults.stringList(userCreatedBuilderAppsKey).value_or(QStringList());
    userCreated.removeAll(name);
    Values values = appListValues(defaults, names);
    values.append({userCreatedBuilderAppsKey, list(userCreated)});
    for (const BuilderSetting& setting : builderSettings()) {
        values.append({builderKey(setting.name, name), removed});
    }
    for (const QString& templateName : savedTemplateNames(defaults, name)) {
        for (const QString& field : templateFields()) {
            values.append({appTemplateKey(name, templateName, field), removed});
        }
    }
    values.append({savedTemplatesKey(name), removed});
    defaults.setValues(values);
}

QString builderTexts::defaultSet(const QString& templateName)
{
    return QStringLiteral("“") + templateName + QStringLiteral("” is now the default template for this app.");
}

QString builderTexts::templateSaved(const QString& templateName)
{
    return QStringLiteral("Saved “") + templateName +
           QStringLiteral("” with rich formatting in this app’s template library.");
}

} // namespace tavo
