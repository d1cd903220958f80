#include "picker/picker_panel.h"
#include "platform/secret/libsecret_store.h"
#include "shell/api_configuration_page.h"
#include "shell/app_builder_editor.h"
#include "shell/bulk_rename_sheet.h"
#include "shell/collection_library_page.h"
#include "shell/collection_sheets.h"
#include "shell/main_window.h"
#include "shell/shortcut_editor.h"
#include "shell/ui/design.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"

#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QtTest>

using namespace tavo;

// What a screen reader hears: every control a user can reach with the keyboard or the pointer has
// a name. Each screen, sheet and picker face is opened in turn and its accessibility tree walked.
// A new screen gets its row here.
class TestAccessibility : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyControlHasAName_data();
    void everyControlHasAName();

private:
    LibsecretStore m_keyring;
    QTemporaryDir m_dir;
};

namespace {

bool reachable(const QAccessibleInterface* node)
{
    const QAccessible::State state = node->state();
    if (state.invisible || state.offscreen) {
        return false;
    }
    switch (node->role()) {
    case QAccessible::PushButton:
    case QAccessible::CheckBox:
    case QAccessible::RadioButton:
    case QAccessible::ComboBox:
    case QAccessible::EditableText:
    case QAccessible::Slider:
    case QAccessible::SpinBox:
    case QAccessible::ButtonMenu:
    case QAccessible::ButtonDropDown:
    case QAccessible::List:
    case QAccessible::Table:
    case QAccessible::Tree:
    case QAccessible::PageTabList:
    case QAccessible::Link:
        return true;
    default:
        return state.focusable;
    }
}

QString describe(const QAccessibleInterface* node)
{
    // An item has no object of its own: its view names it.
    const QAccessibleInterface* owner = node;
    while (owner && !owner->object()) {
        owner = owner->parent();
    }
    const QObject* object = owner ? owner->object() : nullptr;
    QString path;
    for (const QObject* each = object; each; each = each->parent()) {
        const QString name =
            each->objectName().isEmpty() ? QString::fromLatin1(each->metaObject()->className()) : each->objectName();
        path = path.isEmpty() ? name : name + u'/' + path;
    }
    return QStringLiteral("%1%2 (role %3)")
        .arg(path, owner == node ? QString() : QStringLiteral(" › an item"))
        .arg(node->role());
}

void collectUnnamed(QAccessibleInterface* node, QStringList& unnamed, int depth = 0)
{
    if (!node || !node->isValid() || depth > 40) {
        return;
    }
    if (reachable(node) && node->text(QAccessible::Name).trimmed().isEmpty()) {
        unnamed << describe(node);
    }
    for (int i = 0; i < node->childCount(); ++i) {
        collectUnnamed(node->child(i), unnamed, depth + 1);
    }
}

Clip shortcut(const QString& key, const QString& text, const QString& group)
{
    Clip clip;
    clip.key = key;
    clip.name = key.mid(1);
    clip.text = text;
    clip.group = group;
    return clip;
}

} // namespace

void TestAccessibility::initTestCase()
{
    KeyStore::setBackend(&m_keyring);
    QAccessible::setActive(true);
    design::useIconThemeFor(QApplication::palette());
    Defaults defaults(m_dir.filePath(QStringLiteral("defaults.json")));
    TavoAccountStore accounts(defaults);
    QVERIFY(accounts.registerAccount(QStringLiteral("walker"), QStringLiteral("long enough")));
    accounts.signOut();
}

void TestAccessibility::everyControlHasAName_data()
{
    QTest::addColumn<QString>("screen");
    QTest::newRow("registration") << QStringLiteral("registration");
    for (const QString& section : MainWindow::menuSections()) {
        QTest::newRow(section.toUtf8().constData()) << section;
    }
    QTest::newRow("shortcut list with no match") << QStringLiteral("no match");
    QTest::newRow("side menu with icons only") << QStringLiteral("icons only");
    QTest::newRow("side menu hidden") << QStringLiteral("menu hidden");
    QTest::newRow("shortcut editor") << QStringLiteral("editor");
    QTest::newRow("bulk rename sheet") << QStringLiteral("bulk rename");
    QTest::newRow("collections showing records") << QStringLiteral("records");
    QTest::newRow("new collection sheet") << QStringLiteral("definition");
    QTest::newRow("record sheet") << QStringLiteral("record");
    QTest::newRow("collection rename sheet") << QStringLiteral("rename");
    QTest::newRow("category manager") << QStringLiteral("categories");
    QTest::newRow("collection manager") << QStringLiteral("manager");
    QTest::newRow("add model sheet") << QStringLiteral("add model");
    QTest::newRow("add model sheet with a base URL") << QStringLiteral("add compatible model");
    QTest::newRow("app builder editor") << QStringLiteral("app editor");
    QTest::newRow("picker with rows") << QStringLiteral("picker");
    QTest::newRow("picker with nothing to show") << QStringLiteral("empty picker");
}

void TestAccessibility::everyControlHasAName()
{
    QFETCH(QString, screen);
    QTemporaryDir dir;
    Defaults defaults(dir.filePath(QStringLiteral("defaults.json")));
    DB db(defaults, dir.filePath(QStringLiteral("Tavo")));
    TavoAccountStore accounts(defaults);
    const bool signedIn = screen != QLatin1String("registration");
    if (signedIn) {
        QVERIFY(accounts.signIn(QStringLiteral("walker"), QStringLiteral("long enough")));
        db.activateProfile(QStringLiteral("walker"));
        db.setCollections({QStringLiteral("Personal"), QStringLiteral("Work")});
        if (screen != QLatin1String("empty picker")) {
            db.setClips({shortcut(QStringLiteral("/ty"), QStringLiteral("Thank you!"), QStringLiteral("Personal")),
                         shortcut(QStringLiteral("/today"), QStringLiteral("{{date}}"), QStringLiteral("Work"))});
        }
    }

    std::unique_ptr<QWidget> root;
    if (screen == QLatin1String("picker") || screen == QLatin1String("empty picker")) {
        auto picker = std::make_unique<PickerPanel>(defaults);
        picker->showFor(db);
        QTRY_VERIFY(!picker->search().isLoading());
        root = std::move(picker);
    } else if (screen == QLatin1String("editor")) {
        root = std::make_unique<ShortcutEditor>(db, db.clips().first(), QString());
        root->show();
    } else if (screen == QLatin1String("definition")) {
        root = std::make_unique<CollectionDefinitionSheet>(db);
        root->show();
    } else if (screen == QLatin1String("record")) {
        root = std::make_unique<CollectionRecordSheet>(db, QStringLiteral("Personal"));
        root->show();
    } else if (screen == QLatin1String("rename")) {
        root = std::make_unique<CollectionRenameSheet>(db, QStringLiteral("Personal"));
        root->show();
    } else if (screen == QLatin1String("categories")) {
        root = std::make_unique<CollectionCategorySheet>(db);
        root->show();
    } else if (screen == QLatin1String("manager")) {
        root = std::make_unique<CollectionManagerSheet>(db);
        root->show();
    } else if (screen == QLatin1String("add model") || screen == QLatin1String("add compatible model")) {
        auto sheet = std::make_unique<AddCollectionModelSheet>();
        if (screen == QLatin1String("add compatible model")) {
            auto* provider = sheet->findChild<QComboBox*>(QStringLiteral("modelProvider"));
            provider->setCurrentIndex(provider->findData(QStringLiteral("OpenAI-compatible")));
        }
        sheet->show();
        root = std::move(sheet);
    } else if (screen == QLatin1String("app editor")) {
        addPresetApp(defaults, appBuilderPresets().first());
        auto editor = std::make_unique<AppBuilderEditor>(db, defaults);
        editor->openApp(appBuilderPresets().first().name);
        editor->show();
        root = std::move(editor);
    } else if (screen == QLatin1String("bulk rename")) {
        QStringList keys;
        for (const Clip& clip : db.clips()) {
            keys << clip.key;
        }
        root = std::make_unique<BulkRenameSheet>(db.clips(), keys);
        root->show();
    } else {
        auto window = std::make_unique<MainWindow>(db, accounts, defaults);
        window->show();
        if (MainWindow::menuSections().contains(screen)) {
            window->setSection(screen);
        } else if (screen == QLatin1String("no match")) {
            window->setSection(QStringLiteral("My shortcuts"));
            if (auto* search = window->findChild<QLineEdit*>(QStringLiteral("searchShortcuts"))) {
                QTest::keyClicks(search, QStringLiteral("nothing like this"));
            }
        } else if (screen == QLatin1String("records")) {
            window->setSection(QStringLiteral("Collections"));
            window->collections()->selectCollection(QStringLiteral("Personal"));
            window->collections()->setMode(CollectionLibraryPage::Mode::Records);
        } else if (screen == QLatin1String("icons only")) {
            window->setSidebarCollapsed(true);
        } else if (screen == QLatin1String("menu hidden")) {
            window->setSidebarHidden(true);
        }
        QTest::qWait(200); // the list's worker and the search's pause
        root = std::move(window);
    }
    QVERIFY(QTest::qWaitForWindowExposed(root.get()));

    QStringList unnamed;
    collectUnnamed(QAccessible::queryAccessibleInterface(root.get()), unnamed);
    if (!unnamed.isEmpty()) {
        QFAIL(qPrintable(QStringLiteral("controls without a name:\n  ") + unnamed.join(QStringLiteral("\n  "))));
    }
}

int main(int argc, char** argv)
{
    // The Browser section's web engine asks for this before the application exists.
    QApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    TestAccessibility test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_accessibility.moc"
