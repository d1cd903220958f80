#include "ai/prompt_expansion.h"

#include <QMap>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>
#include <QTimeZone>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

LiveTokenSources fixedClock()
{
    LiveTokenSources sources;
    sources.now = [] { return QDateTime(QDate(2026, 3, 4), QTime(10, 0), QTimeZone::utc()); };
    return sources;
}

Clip clip(const QString& key, const QString& name, const QString& text, const QString& group,
          const QStringList& files = {}, const QStringList& groups = {})
{
    Clip c;
    c.key = key;
    c.name = name;
    c.text = text;
    c.group = group;
    c.files = files;
    if (!groups.isEmpty()) {
        c.groups = groups;
    }
    return c;
}

CollectionRecord record(const QString& collection, const QString& name, const QString& alias,
                        const QMap<QString, QString>& values, const QStringList& files = {})
{
    CollectionRecord r;
    r.collection = collection;
    r.name = name;
    r.alias = alias;
    r.values = values;
    r.files = files;
    return r;
}

struct Library
{
    QList<Clip> clips;
    QList<CollectionRecord> records;
};

// Words used in prompts below stay clear of the collection names "Personal", "Work" and "Brand".
Library library()
{
    Library l;
    l.clips = {
        clip(u"/ty"_s, u"Thanks"_s, u"Thank you!"_s, u"Personal"_s),
        clip(u"/ty.co"_s, u"Company"_s, u"Tavo Co."_s, u"Work"_s),
        clip(u"/logo.media"_s, u"Logo"_s, u""_s, u"Brand"_s, {u"/m/logo.png"_s}),
        clip(u"/price"_s, u"Price"_s, u"It costs $1 and \\1 now."_s, u"Work"_s),
        clip(u"/plants"_s, u"Plant shortcut"_s, u"shortcut text"_s, u"Personal"_s),
        clip(u"/due"_s, u"Due"_s, u"  Due {{year}} {{unix}}\n"_s, u"Work"_s),
        clip(u"/social"_s, u"Social word"_s, u"sw"_s, u"Social Media"_s),
        clip(u"/fern"_s, u"Fern"_s, u"A fern\nwith fronds"_s, u"Personal"_s, {}, {u"Plants"_s}),
        clip(u"/sun set"_s, u"Sunset"_s, u"dusk"_s, u"Red Sun"_s),
    };
    l.records = {
        record(u"Plants"_s, u"Aster"_s, u"ast"_s,
               {{u"height"_s, u"3 ft"_s}, {u"color"_s, u"blue"_s}, {u"planted"_s, u"{{year}}"_s}}, {u"/m/aster.jpg"_s}),
        record(u"plants"_s, u"Basil"_s, u"basil"_s, {{u"use"_s, u"cooking"_s}}),
    };
    return l;
}

const QString aster = QStringLiteral("Aster:\ncolor: blue\nheight: 3 ft\nplanted: 2026");
const QString asterLabel = QStringLiteral("Saved record · Aster");

// The algorithm as written, one pattern and one built entry for everything, to hold the quick
// one to.
PromptShortcutExpansion straightforwardExpansion(const QString& text, const QList<Clip>& clips,
                                                 const QList<CollectionRecord>& records,
                                                 const LiveTokenSources& sources)
{
    struct Entry
    {
        QString token;
        QString label;
        QString expansion;
        QStringList paths;
    };
    const auto body = [&](const Clip& c) {
        const QString b = promptExpandTokens(c.text, sources).trimmed();
        return b.isEmpty() && !c.files.isEmpty() ? QStringLiteral("(Use the attached media reference.)") : b;
    };
    QMap<QString, Entry> map;
    for (const Clip& c : clips) {
        const QString token = promptCanonicalAlias(c.key);
        if (c.key.isEmpty() || token.isEmpty()) {
            continue;
        }
        map.insert(token, Entry{token, u"Saved shortcut · "_s + c.name, c.name + u":\n"_s + body(c), c.files});
    }
    for (const CollectionRecord& r : records) {
        const QString token = promptCanonicalAlias(r.alias);
        if (token.isEmpty()) {
            continue;
        }
        QStringList lines;
        for (const QString& key : r.values.keys()) {
            lines << key + u": "_s + promptExpandTokens(r.values.value(key), sources);
        }
        map.insert(token, Entry{token, u"Saved record · "_s + r.name, r.name + u":\n"_s + lines.join(u'\n'), r.files});
    }
    QStringList names;
    for (const Clip& c : clips) {
        for (const QString& g : c.allGroups()) {
            if (!names.contains(g, Qt::CaseInsensitive)) {
                names << g;
            }
        }
    }
    for (const CollectionRecord& r : records) {
        if (!names.contains(r.collection, Qt::CaseInsensitive)) {
            names << r.collection;
        }
    }
    for (const QString& name : names) {
        if (name.trimmed().isEmpty()) {
            continue;
        }
        QStringList lines;
        QStringList paths;
        for (const Clip& c : clips) {
            if (clipHasGroup(c, name)) {
                lines << u"• "_s + promptCanonicalAlias(c.key) + u": "_s + body(c);
                paths << c.files;
            }
        }
        for (const CollectionRecord& r : records) {
            if (r.collection.compare(name, Qt::CaseInsensitive) == 0) {
                QStringList values;
                for (const QString& key : r.values.keys()) {
                    values << key + u": "_s + r.values.value(key);
                }
                lines << u"• "_s + promptCanonicalAlias(r.alias) + u": "_s + values.join(u"; "_s);
                paths << r.files;
            }
        }
        if (lines.size() > 60) {
            lines = lines.mid(0, 60);
            lines << u"• (Collection has more entries; showing the first 60.)"_s;
        }
        paths.removeDuplicates();
        map.insert(name.toLower(), Entry{name.toLower(), name, name + u":\n"_s + lines.join(u'\n'), paths});
    }

    QList<Entry> entries = map.values();
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.token.size() != b.token.size() ? a.token.size() > b.token.size() : a.token < b.token;
    });
    struct Kept
    {
        qsizetype start;
        qsizetype end;
        qsizetype entry;
    };
    QList<Kept> kept;
    for (qsizetype e = 0; e < entries.size(); ++e) {
        const QRegularExpression pattern(u"(?i)(?<![A-Za-z0-9_])(?:\\\\|/)?"_s +
                                         QRegularExpression::escape(entries[e].token) +
                                         u"(?:\\.(?:media|app|ai|web|gif|e))?(?![A-Za-z0-9_])"_s);
        auto it = pattern.globalMatch(text);
        while (it.hasNext()) {
            const auto match = it.next();
            const Kept candidate{match.capturedStart(), match.capturedEnd(), e};
            const bool overlaps = std::any_of(kept.cbegin(), kept.cend(), [&](const Kept& k) {
                return candidate.start < k.end && k.start < candidate.end;
            });
            if (!overlaps) {
                kept << candidate;
            }
        }
    }
    std::sort(kept.begin(), kept.end(), [](const Kept& a, const Kept& b) { return a.start > b.start; });
    PromptShortcutExpansion result{text, {}, {}};
    for (const Kept& k : kept) {
        result.text.replace(k.start, k.end - k.start, entries[k.entry].expansion);
    }
    std::reverse(kept.begin(), kept.end());
    for (const Kept& k : kept) {
        if (!result.labels.contains(entries[k.entry].label)) {
            result.labels << entries[k.entry].label;
        }
        result.paths << entries[k.entry].paths;
    }
    result.labels = result.labels.mid(0, 10);
    result.paths.removeDuplicates();
    return result;
}

} // namespace

class TestPromptExpansion : public QObject
{
    Q_OBJECT

private slots:
    void canonicalAlias_data();
    void canonicalAlias();
    void mentions_data();
    void mentions();
    void collectionLineLimit_data();
    void collectionLineLimit();
    void labelsStopAtTenPathsDoNot();
    void emptyLibraryLeavesText();
    void sameAsStraightforwardVersion();
};

void TestPromptExpansion::canonicalAlias_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("alias");

    QTest::newRow("trimmed-and-lower-cased") << u" \n/Ast.MEDIA\t"_s << u"ast"_s;
    QTest::newRow("one-backslash-removed") << u"\\ast"_s << u"ast"_s;
    QTest::newRow("only-one-slash-removed") << u"//ast"_s << u"/ast"_s;
    QTest::newRow("only-one-suffix-removed") << u"a.e.media"_s << u"a.e"_s;
    QTest::newRow("suffixes-tested-in-order") << u"x.ai"_s << u"x"_s;
    QTest::newRow("unknown-suffix-stays") << u"ty.co"_s << u"ty.co"_s;
    QTest::newRow("slash-alone-is-empty") << u"/"_s << u""_s;
}

void TestPromptExpansion::canonicalAlias()
{
    QFETCH(QString, text);
    QFETCH(QString, alias);
    QCOMPARE(promptCanonicalAlias(text), alias);
}

void TestPromptExpansion::mentions_data()
{
    QTest::addColumn<QString>("prompt");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("labels");
    QTest::addColumn<QStringList>("paths");

    const QStringList asterPaths{u"/m/aster.jpg"_s};
    QTest::newRow("alias-alone") << u"see ast."_s << u"see "_s + aster + u"."_s << QStringList{asterLabel}
                                 << asterPaths;
    QTest::newRow("alias-with-slash") << u"/ast"_s << aster << QStringList{asterLabel} << asterPaths;
    QTest::newRow("alias-with-backslash") << u"\\ast"_s << aster << QStringList{asterLabel} << asterPaths;
    QTest::newRow("alias-with-backslash-and-suffix")
        << u"(\\ast.media)!"_s << u"("_s + aster + u")!"_s << QStringList{asterLabel} << asterPaths;
    QTest::newRow("upper-case-mention-matches") << u"AST"_s << aster << QStringList{asterLabel} << asterPaths;
    QTest::newRow("letter-before-is-no-mention") << u"fast"_s << u"fast"_s << QStringList() << QStringList();
    QTest::newRow("underscore-after-is-no-mention") << u"ast_2"_s << u"ast_2"_s << QStringList() << QStringList();
    QTest::newRow("suffix-followed-by-letter-is-left")
        << u"ast.mediax"_s << aster + u".mediax"_s << QStringList{asterLabel} << asterPaths;
    QTest::newRow("longer-token-keeps-its-place")
        << u"ty.co and ty"_s << u"Company:\nTavo Co. and Thanks:\nThank you!"_s
        << QStringList{u"Saved shortcut · Company"_s, u"Saved shortcut · Thanks"_s} << QStringList();
    QTest::newRow("labels-in-order-of-first-mention")
        << u"TY, ty.co"_s << u"Thanks:\nThank you!, Company:\nTavo Co."_s
        << QStringList{u"Saved shortcut · Thanks"_s, u"Saved shortcut · Company"_s} << QStringList();
    QTest::newRow("repeated-mention-labelled-once") << u"ty ty"_s << u"Thanks:\nThank you! Thanks:\nThank you!"_s
                                                    << QStringList{u"Saved shortcut · Thanks"_s} << QStringList();
    QTest::newRow("collection-replaces-shortcut-of-its-token")
        << u"/plants"_s
        << u"Plants:\n• fern: A fern\nwith fronds\n• ast: color: blue; height: 3 ft; planted: {{year}}\n"_s
           u"• basil: use: cooking"_s
        << QStringList{u"Plants"_s} << asterPaths;
    QTest::newRow("media-only-shortcut") << u"\\logo"_s << u"Logo:\n(Use the attached media reference.)"_s
                                         << QStringList{u"Saved shortcut · Logo"_s} << QStringList{u"/m/logo.png"_s};
    QTest::newRow("dollar-one-stays-literal") << u"\\price"_s << u"Price:\nIt costs $1 and \\1 now."_s
                                              << QStringList{u"Saved shortcut · Price"_s} << QStringList();
    QTest::newRow("prompt-tokens-expanded-and-body-trimmed")
        << u"due"_s << u"Due:\nDue 2026 {{unix}}"_s << QStringList{u"Saved shortcut · Due"_s} << QStringList();
    QTest::newRow("collection-name-with-space-beats-shortcut-inside")
        << u"on Social Media"_s << u"on Social Media:\n• social: sw"_s << QStringList{u"Social Media"_s}
        << QStringList();
    QTest::newRow("equal-length-tie-goes-to-lower-token")
        << u"red sun set"_s << u"Red Sun:\n• sun set: dusk set"_s << QStringList{u"Red Sun"_s} << QStringList();
    QTest::newRow("shared-path-listed-once")
        << u"ast plants"_s
        << aster + u" Plants:\n• fern: A fern\nwith fronds\n• ast: color: blue; height: 3 ft; "_s
                   u"planted: {{year}}\n• basil: use: cooking"_s
        << QStringList{asterLabel, u"Plants"_s} << asterPaths;
    QTest::newRow("unknown-names-stay") << u"nothing here, sunset"_s << u"nothing here, sunset"_s << QStringList()
                                        << QStringList();
}

void TestPromptExpansion::mentions()
{
    QFETCH(QString, prompt);
    QFETCH(QString, text);
    QFETCH(QStringList, labels);
    QFETCH(QStringList, paths);

    const Library l = library();
    const PromptShortcutExpansion result = expandPromptShortcutMentions(prompt, l.clips, l.records, fixedClock());
    QCOMPARE(result.text, text);
    QCOMPARE(result.labels, labels);
    QCOMPARE(result.paths, paths);
}

void TestPromptExpansion::collectionLineLimit_data()
{
    QTest::addColumn<int>("shortcuts");
    QTest::addColumn<int>("records");
    QTest::addColumn<QString>("lastMemberLine");
    QTest::addColumn<bool>("closed");

    QTest::newRow("sixty-members-no-closing-line") << 60 << 0 << u"• k59: body 59"_s << false;
    QTest::newRow("sixty-one-members-closing-line") << 61 << 0 << u"• k59: body 59"_s << true;
    QTest::newRow("shortcuts-before-records") << 59 << 2 << u"• r0: v: 0"_s << true;
    QTest::newRow("records-count-toward-sixty") << 30 << 30 << u"• r29: v: 29"_s << false;
}

void TestPromptExpansion::collectionLineLimit()
{
    QFETCH(int, shortcuts);
    QFETCH(int, records);
    QFETCH(QString, lastMemberLine);
    QFETCH(bool, closed);

    QList<Clip> clips;
    for (int i = 0; i < shortcuts; ++i) {
        clips << clip(QStringLiteral("/k%1").arg(i), QStringLiteral("K%1").arg(i), QStringLiteral("body %1").arg(i),
                      u"Big"_s, {QStringLiteral("/m/c%1.png").arg(i)});
    }
    QList<CollectionRecord> recordList;
    for (int i = 0; i < records; ++i) {
        recordList << record(u"Big"_s, QStringLiteral("R%1").arg(i), QStringLiteral("r%1").arg(i),
                             {{u"v"_s, QString::number(i)}}, {QStringLiteral("/m/r%1.png").arg(i)});
    }
    const PromptShortcutExpansion result = expandPromptShortcutMentions(u"big"_s, clips, recordList);
    const QStringList lines = result.text.split(u'\n');
    QCOMPARE(lines.first(), QStringLiteral("Big:"));
    const QString closing = QStringLiteral("• (Collection has more entries; showing the first 60.)");
    QCOMPARE(lines.last() == closing, closed);
    QCOMPARE(lines.size(), 1 + std::min(shortcuts + records, 60) + (closed ? 1 : 0));
    QCOMPARE(lines.at(closed ? lines.size() - 2 : lines.size() - 1), lastMemberLine);
    // Every member's media travels, also those past the shown lines.
    QCOMPARE(result.paths.size(), shortcuts + records);
    QCOMPARE(result.labels, QStringList{u"Big"_s});
}

void TestPromptExpansion::labelsStopAtTenPathsDoNot()
{
    QList<Clip> clips;
    QString prompt;
    for (int i = 0; i < 12; ++i) {
        clips << clip(QStringLiteral("/w%1").arg(i), QStringLiteral("W%1").arg(i), u"x"_s, u"Words"_s,
                      {QStringLiteral("/m/w%1.png").arg(i)});
        prompt += QStringLiteral("w%1 ").arg(11 - i); // mentioned last to first
    }
    const PromptShortcutExpansion result = expandPromptShortcutMentions(prompt, clips, {});
    QCOMPARE(result.labels.size(), 10);
    QCOMPARE(result.labels.first(), QStringLiteral("Saved shortcut · W11"));
    QCOMPARE(result.labels.last(), QStringLiteral("Saved shortcut · W2"));
    QCOMPARE(result.paths.size(), 12);
    QCOMPARE(result.paths.first(), QStringLiteral("/m/w11.png"));
}

void TestPromptExpansion::emptyLibraryLeavesText()
{
    const QString prompt = QStringLiteral("/ty and \\ast stay $1");
    const PromptShortcutExpansion result = expandPromptShortcutMentions(prompt, {}, {});
    QCOMPARE(result, (PromptShortcutExpansion{prompt, {}, {}}));
}

void TestPromptExpansion::sameAsStraightforwardVersion()
{
    // Tokens that contain, overlap and tie with one another, in several cases and scripts.
    const QStringList words{u"ty"_s,     u"ty.co"_s,   u"a b"_s, u"b c"_s,          u"kiwi"_s, u"café"_s,
                            u"résumé"_s, u"sun set"_s, u"sun"_s, u"set"_s,          u"ab"_s,   u"abc"_s,
                            u"x_y"_s,    u"mass"_s,    u"red"_s, u"social media"_s, u"media"_s};
    const QStringList decorations{u""_s,    u"/"_s,    u"\\"_s,   u".media"_s, u".app"_s,
                                  u".ai"_s, u".web"_s, u".gif"_s, u".e"_s,     u".x"_s};
    const QStringList glue{u" "_s, u"  "_s, u"\n"_s, u","_s, u"-"_s,  u"_"_s,
                           u"a"_s, u"("_s,  u")"_s,  u"é"_s, u"$1"_s, u"."_s};
    QRandomGenerator random(20261125);
    const auto pick = [&random](const QStringList& list) { return list.at(random.bounded(list.size())); };
    const auto randomCase = [&random](QString word) {
        for (QChar& c : word) {
            if (random.bounded(3) == 0) {
                c = c.toUpper();
            }
        }
        // Letters PCRE matches to u"k"_s and u"s"_s when case is ignored.
        if (random.bounded(10) == 0) {
            word.replace(u'k', QChar(0x212A)).replace(u's', QChar(0x17F));
        }
        return word;
    };

    const LiveTokenSources sources = fixedClock();
    for (int round = 0; round < 40; ++round) {
        QList<Clip> clips;
        QList<CollectionRecord> records;
        const QStringList groups{u"Red"_s, u"Social Media"_s, u"Mass"_s, u"sun"_s, u"KIWI"_s, u"Café"_s, u"red"_s};
        for (int i = 0; i < 25; ++i) {
            QStringList files;
            for (int f = random.bounded(3); f > 0; --f) {
                files << QStringLiteral("/m/f%1.png").arg(random.bounded(8));
            }
            const QStringList extra = random.bounded(2) ? QStringList{pick(groups)} : QStringList();
            clips << clip(pick({u"/"_s, u"\\"_s, u""_s}) + pick(words) + pick(decorations),
                          QStringLiteral("C%1").arg(i),
                          random.bounded(4) ? QStringLiteral("text %1 {{year}} $1").arg(i) : QString(), pick(groups),
                          files, extra);
        }
        for (int i = 0; i < 8; ++i) {
            records << record(pick(groups), QStringLiteral("R%1").arg(i), pick(words),
                              {{u"b"_s, QStringLiteral("v%1").arg(i)}, {u"a"_s, u"{{year}}"_s}},
                              {QStringLiteral("/m/f%1.png").arg(random.bounded(8))});
        }
        for (int p = 0; p < 25; ++p) {
            QString prompt;
            for (int n = random.bounded(1, 30); n > 0; --n) {
                prompt += pick({u""_s, u"/"_s, u"\\"_s}) + randomCase(pick(words)) + pick(decorations) + pick(glue);
            }
            const PromptShortcutExpansion quick = expandPromptShortcutMentions(prompt, clips, records, sources);
            const PromptShortcutExpansion simple = straightforwardExpansion(prompt, clips, records, sources);
            QVERIFY2(quick == simple, qPrintable(QStringLiteral("round %1, prompt: %2").arg(round).arg(prompt)));
        }
    }
}

QTEST_GUILESS_MAIN(TestPromptExpansion)
#include "tst_prompt_expansion.moc"
