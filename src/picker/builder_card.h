#pragma once

#include "builder/builder_command.h"

#include <QList>
#include <QStringList>
#include <QWidget>

#include <optional>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace tavo {

class DB;

// The picker's view of a builder command typed in another application: one field per slot, a
// menu of the saved records a collection slot can take, the output format, and the finished
// command handed on for generation once no value is missing.
class BuilderShortcutCommandCard : public QWidget
{
    Q_OBJECT

public:
    explicit BuilderShortcutCommandCard(QWidget* parent = nullptr);

    // Shows `command` with fresh state; `db` gives the records its collection slots may take.
    void setCommand(const CustomBuilderCommand& command, const DB* db);
    // Forgets the command and what was entered.
    void reset();

    const CustomBuilderCommand& command() const { return m_command; }
    // The value of a slot: the one entered on the card, else the one typed in the app.
    QString value(int index) const;
    void setValue(int index, const QString& text);
    bool hasMissingValue() const;
    QString selectedFormat() const { return m_selectedFormat; }
    void setSelectedFormat(const QString& label);
    // "\<prefix>-<values…>-<format code>", each value quoted as the grammar needs; nothing while a
    // value is missing.
    std::optional<QString> commandText() const;

    QLineEdit* field(int index) const;
    QComboBox* recordMenu(int index) const; // nothing for a variable slot
    QString status() const;
    // What became of a generation it asked for.
    void showStatus(const QString& status);

public slots:
    void submit();

signals:
    // The finished command, to be generated.
    void generateRequested(const QString& text);
    // The user clicked into a field: it wants the keyboard.
    void fieldWanted(QWidget* field);
    void closeRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The values the card works with: the entered ones once there are any, else the typed ones.
    QStringList workingValues() const;
    void clearSlots();
    void refresh();

    CustomBuilderCommand m_command;
    QStringList m_values; // empty until the user edits
    QString m_selectedFormat;
    QLabel* m_title;
    QLabel* m_summary;
    QLabel* m_missing;
    QWidget* m_slots;
    QList<QLineEdit*> m_fields;
    QList<QComboBox*> m_recordMenus;
    QComboBox* m_format;
    QPushButton* m_generate;
    QLabel* m_status;
};

} // namespace tavo
