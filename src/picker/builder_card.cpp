#include "picker/builder_card.h"

#include "shell/ui/design.h"
#include "store/profile_store.h"

#include <QComboBox>
#include <QEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tavo {

namespace {

const QString pickRecord = QStringLiteral("Select saved record…");
const QStringList outputFormats{QStringLiteral("PDF"),  QStringLiteral("Text"),     QStringLiteral("Image"),
                                QStringLiteral("HTML"), QStringLiteral("WhatsApp"), QStringLiteral("Email"),
                                QStringLiteral("Video")};

QLabel* line(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    return label;
}

QString trimmedOfSlashes(const QString& key)
{
    qsizetype from = 0;
    qsizetype to = key.size();
    while (from < to && (key[from] == u'/' || key[from] == u'\\')) {
        ++from;
    }
    while (to > from && (key[to - 1] == u'/' || key[to - 1] == u'\\')) {
        --to;
    }
    return key.mid(from, to - from);
}

// What a collection slot may take: its collection's shortcuts and records, as (label, alias).
QList<std::pair<QString, QString>> savedRecordsOf(const QString& collection, const DB* db)
{
    QList<std::pair<QString, QString>> entries;
    if (!db) {
        return entries;
    }
    for (const Clip& clip : db->clips()) {
        if (clip.allGroups().contains(collection, Qt::CaseInsensitive)) {
            const QString alias = trimmedOfSlashes(clip.key);
            entries.append({clip.name + QStringLiteral(" · ") + alias, alias});
        }
    }
    for (const CollectionRecord& record : db->collectionRecords()) {
        if (record.collection.compare(collection, Qt::CaseInsensitive) == 0) {
            entries.append({record.name + QStringLiteral(" · ") + record.alias, record.alias});
        }
    }
    return entries;
}

} // namespace

BuilderShortcutCommandCard::BuilderShortcutCommandCard(QWidget* parent)
    : QWidget(parent)
    , m_title(new QLabel(this))
    , m_summary(line(QString(), this))
    , m_missing(line(QStringLiteral("Complete the missing details. Tavo uses exact record aliases."), this))
    , m_slots(new QWidget(this))
    , m_format(new QComboBox(this))
    , m_generate(new QPushButton(this))
    , m_status(line(QString(), this))
{
    setObjectName(QStringLiteral("builderCard"));
    m_title->setFont(design::sectionHeaderFont(font()));
    m_title->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    // Menus and buttons never take the keyboard: only a clicked field does, through the panel.
    m_format->setFocusPolicy(Qt::NoFocus);
    m_format->addItems(outputFormats);
    design::name(m_format, QStringLiteral("Output format"));
    m_generate->setFocusPolicy(Qt::NoFocus);
    connect(m_generate, &QPushButton::clicked, this, &BuilderShortcutCommandCard::submit);
    connect(m_format, &QComboBox::activated, this, [this] { setSelectedFormat(m_format->currentText()); });
    auto* close = new QPushButton(QStringLiteral("✕"), this);
    close->setMaximumWidth(close->fontMetrics().height() * 2);
    close->setFocusPolicy(Qt::NoFocus);
    design::name(close, QStringLiteral("Close this command"));
    connect(close, &QPushButton::clicked, this, &BuilderShortcutCommandCard::closeRequested);

    auto* header = new QHBoxLayout;
    header->addWidget(m_title, 1);
    header->addWidget(close);
    auto* actions = new QHBoxLayout;
    actions->addWidget(new QLabel(QStringLiteral("Format"), this));
    actions->addWidget(m_format);
    actions->addStretch();
    actions->addWidget(m_generate);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(header);
    layout->addWidget(m_summary);
    layout->addWidget(m_missing);
    layout->addWidget(m_slots);
    layout->addLayout(actions);
    layout->addWidget(m_status);
    layout->addStretch();
    layout->addWidget(line(QStringLiteral("Keep typing in your app · exact shortcut + space expands"), this));
    layout->addWidget(
        line(QStringLiteral("Text remains on this computer unless you paste it into another app."), this));
    new QFormLayout(m_slots);
    m_slots->layout()->setContentsMargins(0, 0, 0, 0);
    refresh();
}

void BuilderShortcutCommandCard::setCommand(const CustomBuilderCommand& command, const DB* db)
{
    reset();
    m_command = command;
    m_title->setText(command.app + QStringLiteral(" · \\") + command.prefix);
    int records = 0;
    int details = 0;
    auto* form = static_cast<QFormLayout*>(m_slots->layout());
    for (qsizetype slot = 0; slot < command.slotKinds.size(); ++slot) {
        const QString& name = command.slotNames[slot];
        const bool collection = command.slotKinds[slot] == builderSlotCollection;
        (collection ? records : details) += 1;
        auto* field = new QLineEdit(m_slots);
        field->setText(slot < command.slotValues.size() ? command.slotValues[slot] : QString());
        field->setPlaceholderText(collection ? QStringLiteral("Record alias") : name);
        field->setFocusPolicy(Qt::NoFocus); // until the panel gives it the keyboard
        design::name(field, name);
        field->installEventFilter(this);
        const int index = static_cast<int>(slot);
        connect(field, &QLineEdit::textEdited, this, [this, index](const QString& text) { setValue(index, text); });
        connect(field, &QLineEdit::returnPressed, this, &BuilderShortcutCommandCard::submit);
        m_fields.append(field);
        QComboBox* menu = nullptr;
        QWidget* row = field;
        if (collection) {
            menu = new QComboBox(m_slots);
            menu->setFocusPolicy(Qt::NoFocus);
            menu->addItem(pickRecord);
            for (const auto& [label, alias] : savedRecordsOf(name, db)) {
                menu->addItem(label, alias);
            }
            design::name(menu, pickRecord + QStringLiteral(" (") + name + u')');
            connect(menu, &QComboBox::activated, this, [this, index, menu](int chosen) {
                if (chosen > 0) {
                    setValue(index, menu->itemData(chosen).toString());
                }
                menu->setCurrentIndex(0);
            });
            row = new QWidget(m_slots);
            auto* pair = new QHBoxLayout(row);
            pair->setContentsMargins(0, 0, 0, 0);
            field->setParent(row);
            menu->setParent(row);
            pair->addWidget(field, 1);
            pair->addWidget(menu);
        }
        m_recordMenus.append(menu);
        form->addRow(name, row);
    }
    m_summary->setText(QStringLiteral("%1 saved record(s) · %2 detail(s)").arg(records).arg(details));
    const int format = m_format->findText(command.format, Qt::MatchFixedString);
    if (format >= 0) {
        m_format->setCurrentIndex(format);
    } else {
        m_format->addItem(command.format);
        m_format->setCurrentIndex(m_format->count() - 1);
    }
    refresh();
}

void BuilderShortcutCommandCard::clearSlots()
{
    auto* form = static_cast<QFormLayout*>(m_slots->layout());
    while (form->rowCount() > 0) {
        form->removeRow(0);
    }
    m_fields.clear();
    m_recordMenus.clear();
}

void BuilderShortcutCommandCard::reset()
{
    clearSlots();
    m_command = CustomBuilderCommand();
    m_values.clear();
    m_selectedFormat.clear();
    m_status->clear();
    while (m_format->count() > outputFormats.size()) {
        m_format->removeItem(m_format->count() - 1);
    }
    m_title->clear();
    m_summary->clear();
    refresh();
}

QString BuilderShortcutCommandCard::value(int index) const
{
    if (index >= 0 && index < m_values.size()) {
        return m_values[index];
    }
    if (index >= 0 && index < m_command.slotValues.size()) {
        return m_command.slotValues[index];
    }
    return {};
}

void BuilderShortcutCommandCard::setValue(int index, const QString& text)
{
    if (index < 0) {
        return;
    }
    if (m_values.isEmpty()) {
        // The first edit starts from what was typed in the app, so those values stay.
        m_values = m_command.slotValues;
    }
    while (m_values.size() < index + 1) {
        m_values.append(QString());
    }
    m_values[index] = text;
    if (index < m_fields.size() && m_fields[index]->text() != text) {
        m_fields[index]->setText(text);
    }
    refresh();
}

QStringList BuilderShortcutCommandCard::workingValues() const
{
    return m_values.isEmpty() ? m_command.slotValues : m_values;
}

bool BuilderShortcutCommandCard::hasMissingValue() const
{
    if (m_command.isComplete()) {
        return false;
    }
    const QStringList values = workingValues();
    return std::any_of(values.cbegin(), values.cend(), [](const QString& value) { return value.trimmed().isEmpty(); });
}

void BuilderShortcutCommandCard::setSelectedFormat(const QString& label)
{
    m_selectedFormat = label;
    const int index = m_format->findText(label, Qt::MatchFixedString);
    if (index >= 0 && index != m_format->currentIndex()) {
        m_format->setCurrentIndex(index);
    }
}

std::optional<QString> BuilderShortcutCommandCard::commandText() const
{
    QStringList values = workingValues();
    const qsizetype slotCount = m_command.slotKinds.size();
    while (values.size() < slotCount) {
        values.append(QString());
    }
    if (m_command.prefix.isEmpty() || values.size() != slotCount) {
        return std::nullopt;
    }
    QString text = u'\\' + m_command.prefix;
    for (const QString& value : values) {
        if (value.trimmed().isEmpty()) {
            return std::nullopt;
        }
        text += u'-' + quoteBuilderValue(value);
    }
    return text + u'-' + builderFormatCode(m_selectedFormat.isEmpty() ? m_command.format : m_selectedFormat);
}

void BuilderShortcutCommandCard::submit()
{
    if (const std::optional<QString> text = commandText()) {
        emit generateRequested(*text);
    }
}

QLineEdit* BuilderShortcutCommandCard::field(int index) const
{
    return index >= 0 && index < m_fields.size() ? m_fields[index] : nullptr;
}

QComboBox* BuilderShortcutCommandCard::recordMenu(int index) const
{
    return index >= 0 && index < m_recordMenus.size() ? m_recordMenus[index] : nullptr;
}

QString BuilderShortcutCommandCard::status() const
{
    return m_status->text();
}

void BuilderShortcutCommandCard::showStatus(const QString& status)
{
    m_status->setText(status);
}

void BuilderShortcutCommandCard::refresh()
{
    const bool missing = hasMissingValue();
    m_missing->setVisible(missing);
    // A command typed whole only waits for a look; one being completed names what it uses.
    const QString label = m_command.isComplete() ? QStringLiteral("Generate this output now")
                                                 : QStringLiteral("Generate with these details");
    m_generate->setText(label);
    design::name(m_generate, label);
    m_generate->setEnabled(commandText().has_value());
}

bool BuilderShortcutCommandCard::eventFilter(QObject* watched, QEvent* event)
{
    auto* field = qobject_cast<QLineEdit*>(watched);
    if (event->type() == QEvent::MouseButtonPress && field && m_fields.contains(field)) {
        emit fieldWanted(field);
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace tavo
