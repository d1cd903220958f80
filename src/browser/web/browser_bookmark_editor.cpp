#include "browser/web/browser_bookmark_editor.h"

#include "browser/browser_tabs.h"
#include "shell/ui/design.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tavo {

BrowserBookmarkEditor::BrowserBookmarkEditor(TavoBrowserTabs& state, const QString& title, const QString& url,
                                             QWidget* parent)
    : QDialog(parent)
    , m_state(state)
    , m_openedTitle(title.isEmpty() ? QStringLiteral("Saved page") : title)
    , m_name(new QLineEdit(m_openedTitle, this))
    , m_url(new QLineEdit(url, this))
    , m_tags(new QLineEdit(this))
    , m_note(new QLineEdit(this))
    , m_collection(new QComboBox(this))
{
    setWindowTitle(QStringLiteral("Save link"));
    design::name(m_name, QStringLiteral("Name"));
    design::name(m_url, QStringLiteral("URL"));
    design::name(m_tags, QStringLiteral("Tags · comma separated"));
    design::name(m_note, QStringLiteral("Why save this link?"));
    design::name(m_collection, QStringLiteral("Collection"));
    m_collection->setEditable(true);
    for (const TavoBrowserCollection& collection : m_state.collections()) {
        m_collection->addItem(collection.title);
    }
    m_collection->setCurrentText(favoritesCollection);
    m_collection->lineEdit()->setPlaceholderText(QStringLiteral("Enter a collection name."));

    auto* heading = new QLabel(QStringLiteral("Save link"), this);
    heading->setFont(design::pageTitleFont(heading->font()));
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Name"), m_name);
    form->addRow(QStringLiteral("URL"), m_url);
    form->addRow(QStringLiteral("Tags · comma separated"), m_tags);
    form->addRow(QStringLiteral("Why save this link?"), m_note);
    form->addRow(QStringLiteral("Collection"), m_collection);
    auto* buttons = new QDialogButtonBox(this);
    QPushButton* save = buttons->addButton(QStringLiteral("Save bookmark"), QDialogButtonBox::AcceptRole);
    QPushButton* cancel = buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    design::name(save, QStringLiteral("Save bookmark"));
    design::name(cancel, QStringLiteral("Cancel"));
    save->setDefault(true);
    connect(save, &QPushButton::clicked, this, &BrowserBookmarkEditor::save);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(design::step(this) * 2);
    layout->addWidget(heading);
    layout->addLayout(form);
    layout->addWidget(buttons);
    setMinimumWidth(440);
}

void BrowserBookmarkEditor::save()
{
    // An address that does not parse keeps the sheet open, nothing saved.
    if (m_state.saveBookmark(m_url->text(), m_name->text(), m_openedTitle, m_tags->text(), m_note->text(),
                             m_collection->currentText())) {
        accept();
    }
}

} // namespace tavo
