// The browser's workspace at 200 tabs, 5,000 saved links and 200 collections: one change stored
// (aim: under 20 ms), the start from the settings file (aim: under 50 ms), and the private
// workspace sealed and opened (aim: under 10 ms each). The settings file lives in a temporary
// folder; nothing of the user's is read or written.
#include "browser/browser_tabs.h"
#include "browser/chrome_bookmarks.h"
#include "browser/workspace_seal.h"
#include "store/defaults.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <memory>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

BrowserWorkspaceArchive largeWorkspace()
{
    BrowserWorkspaceArchive archive = BrowserWorkspaceArchive::empty();
    for (int i = 0; i < 199; ++i) {
        const QString id = newBrowserID();
        archive.tabs.append({id, u"A page about topic %1 with a longer title"_s.arg(i),
                             u"https://www.example%1.com/articles/2026/11/some-long-path?query=%1"_s.arg(i)});
        if (i % 3 == 0) {
            archive.tabGroups.insert(id, u"Group %1"_s.arg(i % 12));
        }
    }
    for (int i = 0; i < 199; ++i) {
        archive.collections.append(TavoBrowserCollection::make(u"Collection %1"_s.arg(i)));
    }
    for (int i = 0; i < 4999; ++i) {
        TavoSavedSite site;
        site.title = u"Saved link number %1 about something"_s.arg(i);
        site.url = u"https://site%1.example.org/path/to/page-%1.html"_s.arg(i);
        site.tags = {u"Chrome"_s, u"Collection %1"_s.arg(i % 199)};
        site.note = u"Imported from Google Chrome"_s;
        site.collection = u"Collection %1"_s.arg(i % 199);
        archive.saved.append(site);
    }
    archive.collapsedTabGroups = {u"Group 3"_s};
    return archive;
}

// A settings file in a folder of its own, holding the large workspace in its normal keys.
struct StoredWorkspace
{
    QTemporaryDir folder;
    QString path = folder.filePath(u"defaults.json"_s);

    StoredWorkspace()
    {
        const BrowserWorkspaceArchive archive = largeWorkspace();
        Defaults defaults(path);
        defaults.setValues({
            {BrowserKeys::tabs, QString::fromUtf8(browserPersistedToJson({archive.tabs, archive.saved, homeTabID}))},
            {BrowserKeys::collections, QString::fromUtf8(browserCollectionsToJson(archive.collections))},
            {BrowserKeys::tabGroups, QString::fromUtf8(tabGroupsToJson(archive.tabGroups))},
            {BrowserKeys::collapsedGroups, QString::fromUtf8(groupNamesToJson(archive.collapsedTabGroups))},
            // Other subsystems' settings share the file.
            {u"tavoBuilderApps"_s, QString(200'000, u'x')},
        });
    }
};

void BM_PersistOneChange(benchmark::State& state)
{
    StoredWorkspace stored;
    Defaults defaults(stored.path);
    TavoBrowserTabs tabs(defaults);
    const QString tab = tabs.tabs()[5].id;
    int round = 0;
    for (auto _ : state) {
        tabs.assignGroup(tab, u"Group %1"_s.arg(++round % 2));
        tabs.flush();
    }
    state.counters["links"] = double(tabs.saved().size());
}
BENCHMARK(BM_PersistOneChange)->Unit(benchmark::kMillisecond);

// The floor under the one above: the settings store writing the same keys, with no model.
void BM_SettingsWriteAlone(benchmark::State& state)
{
    StoredWorkspace stored;
    Defaults defaults(stored.path);
    const QString tabs = *defaults.string(BrowserKeys::tabs);
    bool flag = false;
    for (auto _ : state) {
        defaults.setValues({{BrowserKeys::tabs, tabs}, {BrowserKeys::splitEnabled, flag = !flag}});
    }
}
BENCHMARK(BM_SettingsWriteAlone)->Unit(benchmark::kMillisecond);

// A rename touches the groups and the collapsed set: two assignments, one write in one turn.
void BM_PersistRenameOfCollapsedGroup(benchmark::State& state)
{
    StoredWorkspace stored;
    Defaults defaults(stored.path);
    TavoBrowserTabs tabs(defaults);
    QString name = u"Group 3"_s;
    for (auto _ : state) {
        const QString next = name == u"Group 3"_s ? u"Renamed"_s : u"Group 3"_s;
        tabs.renameGroup(name, next);
        QCoreApplication::processEvents();
        name = next;
    }
}
BENCHMARK(BM_PersistRenameOfCollapsedGroup)->Unit(benchmark::kMillisecond);

void BM_LoadWorkspace(benchmark::State& state)
{
    StoredWorkspace stored;
    for (auto _ : state) {
        Defaults defaults(stored.path);
        TavoBrowserTabs tabs(defaults);
        benchmark::DoNotOptimize(tabs.saved().size());
    }
}
BENCHMARK(BM_LoadWorkspace)->Unit(benchmark::kMillisecond);

void BM_SealWorkspace(benchmark::State& state)
{
    const BrowserWorkspaceArchive archive = largeWorkspace();
    const QByteArray key = *makeWorkspaceKey();
    for (auto _ : state) {
        benchmark::DoNotOptimize(sealWorkspace(workspaceArchiveToJson(archive), key));
    }
    state.counters["bytes"] = double(workspaceArchiveToJson(archive).size());
}
BENCHMARK(BM_SealWorkspace)->Unit(benchmark::kMillisecond);

void BM_OpenWorkspace(benchmark::State& state)
{
    const QByteArray key = *makeWorkspaceKey();
    const QByteArray sealed = *sealWorkspace(workspaceArchiveToJson(largeWorkspace()), key);
    for (auto _ : state) {
        benchmark::DoNotOptimize(workspaceArchiveFromJson(*openWorkspace(sealed, key)));
    }
}
BENCHMARK(BM_OpenWorkspace)->Unit(benchmark::kMillisecond);

void BM_ParseChromeJSON(benchmark::State& state)
{
    QByteArray json = R"({"roots":{"bookmark_bar":{"type":"folder","name":"Bar","children":[)";
    for (int i = 0; i < 5000; ++i) {
        json += QByteArray(i ? "," : "") + R"({"type":"url","name":"Link )" + QByteArray::number(i) +
                R"(","url":"https://site)" + QByteArray::number(i) + R"(.example/"})";
    }
    json += "]}}}";
    for (auto _ : state) {
        benchmark::DoNotOptimize(parseChromeJSON(json));
    }
}
BENCHMARK(BM_ParseChromeJSON)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
