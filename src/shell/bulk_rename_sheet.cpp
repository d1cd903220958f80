#include "shell/bulk_rename_sheet.h"

#include "shell/ui/design.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tavo {

BulkRenameSheet::BulkRenameSheet(const QList<Clip>& selected, const QStringList& allKeys, QWidget* parent)
    : QDialog(parent)
    , m_selected(selected)
    , m_allKeys(allKeys)
    , m_target(new QComboBox(this))
    , m_mode(new QComboBox(this))
    , m_find(new QLineEdit(this))
    , m_replacement(new QLineEdit(this))
    , m_hint(new QLabel(this))
    , m_error(new QLabel(this))
    , m_errorIcon(new QLabel(this))
{
    setWindowTitle(QStringLiteral("Rename shortcuts"));
    m_target->setObjectName(QStringLiteral("renameTarget"));
    m_mode->setObjectName(QStringLiteral("renameMode"));
    m_find->setObjectName(QStringLiteral("renameFind"));
    m_replacement->setObjectName(QStringLiteral("renameReplacement"));
    m_error->setObjectName(QStringLiteral("renameError"));
    for (const BulkShortcutRename::Target target : BulkShortcutRename::targets()) {
        m_target->addItem(BulkShortcutRename::targetText(target), int(target));
    }
    for (const BulkShortcutRename::Mode mode : BulkShortcutRename::modes()) {
        m_mode->addItem(BulkShortcutRename::modeText(mode), int(mode));
    }
    for (QLabel* label : {m_hint, m_error}) {
        label->setWordWrap(true);
    }
    // The refusal stands out by its icon and weight; its colour stays the palette's.
    m_errorIcon->setPixmap(design::icon(QStringLiteral("dialog-error")).pixmap(fontMetrics().height()));
    m_errorIcon->hide();
    QFont strong = m_error->font();
    strong.setWeight(QFont::DemiBold);
    m_error->setFont(strong);

    auto* summary = new QLabel(BulkShortcutRename::summaryText(selected.size()), this);
    summary->setWordWrap(true);
    auto* note = new QLabel(bulkRenameNameNote, this);
    note->setWordWrap(true);
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Change"), m_target);
    form->addRow(QStringLiteral("Rule"), m_mode);
    form->addRow(QStringLiteral("Text"), m_find);
    form->addRow(QStringLiteral("Replace with"), m_replacement);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    m_apply = buttons->addButton(BulkShortcutRename::applyButtonText(selected.size()), QDialogButtonBox::AcceptRole);
    m_apply->setObjectName(QStringLiteral("renameApply"));
    connect(buttons, &QDialogButtonBox::accepted, this, &BulkRenameSheet::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &BulkRenameSheet::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(summary);
    layout->addLayout(form);
    layout->addWidget(m_hint);
    layout->addWidget(note);
    auto* error = new QHBoxLayout;
    error->addWidget(m_errorIcon, 0, Qt::AlignTop);
    error->addWidget(m_error, 1);
    layout->addLayout(error);
    layout->addWidget(buttons);

    connect(m_target, &QComboBox::currentIndexChanged, this, &BulkRenameSheet::update);
    connect(m_mode, &QComboBox::currentIndexChanged, this, &BulkRenameSheet::update);
    connect(m_find, &QLineEdit::textChanged, this, &BulkRenameSheet::update);
    connect(m_replacement, &QLineEdit::textChanged, this, &BulkRenameSheet::update);
    update();
}

void BulkRenameSheet::update()
{
    m_rule.target = BulkShortcutRename::Target(m_target->currentData().toInt());
    m_rule.mode = BulkShortcutRename::Mode(m_mode->currentData().toInt());
    m_rule.findText = m_find->text();
    m_rule.replacement = m_replacement->text();
    const bool replacing = m_rule.mode == BulkShortcutRename::Mode::ReplacePrefix ||
                           m_rule.mode == BulkShortcutRename::Mode::ReplaceSuffix ||
                           m_rule.mode == BulkShortcutRename::Mode::FindAndReplace;
    const bool takesText = replacing || m_rule.mode == BulkShortcutRename::Mode::AddPrefix ||
                           m_rule.mode == BulkShortcutRename::Mode::AddSuffix;
    m_find->setEnabled(takesText);
    m_replacement->setEnabled(replacing);
    m_hint->setText(m_rule.showsUseNameHint() ? bulkRenameUseNameHint : QString());
    m_error->clear();
    m_errorIcon->hide();
}

void BulkRenameSheet::accept()
{
    update();
    std::optional<QHash<QUuid, RenamedShortcut>> renames = m_rule.apply(m_selected, m_allKeys);
    if (!renames) {
        m_error->setText(m_rule.error);
        m_errorIcon->show();
        return;
    }
    m_renames = std::move(*renames);
    QDialog::accept();
}

} // namespace tavo
