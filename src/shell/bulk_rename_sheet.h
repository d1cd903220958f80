#pragma once

#include "store/collection_rules.h"

#include <QDialog>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace tavo {

// One rename rule over the selected shortcuts' codes, names or both. It checks the result
// against the whole library before anything is stored; `renames()` is the accepted outcome.
class BulkRenameSheet : public QDialog
{
    Q_OBJECT

public:
    BulkRenameSheet(const QList<Clip>& selected, const QStringList& allKeys, QWidget* parent = nullptr);

    const QHash<QUuid, RenamedShortcut>& renames() const { return m_renames; }

    void accept() override;

private:
    void update();

    QList<Clip> m_selected;
    QStringList m_allKeys;
    BulkShortcutRename m_rule;
    QHash<QUuid, RenamedShortcut> m_renames;
    QComboBox* m_target;
    QComboBox* m_mode;
    QLineEdit* m_find;
    QLineEdit* m_replacement;
    QLabel* m_hint;
    QLabel* m_error;
    QLabel* m_errorIcon;
    QPushButton* m_apply;
};

} // namespace tavo
