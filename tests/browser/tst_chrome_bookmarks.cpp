#include "browser/chrome_bookmarks.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

// One link as "title | url | collection | tags".
QStringList described(const QList<TavoSavedSite>& links)
{
    QStringList lines;
    for (const TavoSavedSite& link : links) {
        lines.append(link.title + u" | "_s + link.url + u" | "_s + link.collection + u" | "_s + link.tags.join(u','));
    }
    return lines;
}

QString decoded(QString text)
{
    return text.replace(u"&amp;"_s, u"&"_s)
        .replace(u"&quot;"_s, u"\""_s)
        .replace(u"&#39;"_s, u"'"_s)
        .replace(u"&lt;"_s, u"<"_s)
        .replace(u"&gt;"_s, u">"_s);
}

// The export's rules written with the regular expressions themselves, to hold the hand-written
// scanner to them.
QStringList referenceHTML(const QString& text)
{
    static const QRegularExpression tokens(u"(?is)<h3\\b[^>]*>(.*?)</h3>|<a\\b([^>]*)>(.*?)</a>|</dl>"_s);
    static const QRegularExpression href(u"(?i)href=[\"']([^\"']+)"_s);
    static const QRegularExpression tag(u"<[^>]+>"_s);
    QStringList folders;
    QStringList lines;
    for (const QRegularExpressionMatch& match : tokens.globalMatch(text)) {
        if (match.captured(0).toLower().startsWith(u"</dl"_s)) {
            if (!folders.isEmpty()) {
                folders.removeLast();
            }
        } else if (match.capturedStart(2) >= 0) {
            const QRegularExpressionMatch address = href.match(match.captured(2));
            if (!address.hasMatch()) {
                continue;
            }
            const QString url = address.captured(1).replace(u"&amp;"_s, u"&"_s);
            if (!parsesAsURL(url)) {
                continue;
            }
            QString title = decoded(match.captured(3).remove(tag)).trimmed();
            const QString folder = folders.isEmpty() ? u"Chrome imports"_s : folders.last();
            lines.append((title.isEmpty() ? url : title) + u" | "_s + url + u" | "_s +
                         (folder.isEmpty() ? u"Chrome imports"_s : folder) + u" | Chrome,"_s + folder);
        } else {
            folders.append(decoded(match.captured(1).remove(tag)).trimmed());
        }
    }
    return lines;
}

} // namespace

class TestChromeBookmarks : public QObject
{
    Q_OBJECT

private slots:
    void html_data();
    void html();
    void htmlScannerAgreesWithThePatterns();
    void json_data();
    void json();
    void kindOfFile_data();
    void kindOfFile();
    void hostileFilesEndWell_data();
    void hostileFilesEndWell();
};

void TestChromeBookmarks::html_data()
{
    QTest::addColumn<QString>("html");
    QTest::addColumn<QStringList>("links");

    QTest::newRow("innermost folder, then back out")
        << uR"(<DL><p><DT><H3 ADD_DATE="1">Work</H3><DL><p>
<DT><H3>Tax</H3><DL><p><DT><A HREF="https://tax.example/">Tax site</A></DL><p>
<DT><A HREF="https://work.example/">Work site</A></DL><p>
<DT><A HREF="https://top.example/">Top</A></DL><p>)"_s
        << QStringList{u"Tax site | https://tax.example/ | Tax | Chrome,Tax"_s,
                       u"Work site | https://work.example/ | Work | Chrome,Work"_s,
                       u"Top | https://top.example/ | Chrome imports | Chrome,Chrome imports"_s};
    QTest::newRow("unbalanced close on an empty stack is ignored")
        << u"</DL></dl><DT><H3>F</H3><DL><A HREF=\"https://a/\">A</A>"_s
        << QStringList{u"A | https://a/ | F | Chrome,F"_s};
    QTest::newRow("escaped ampersands in folder, title and address")
        << u"<H3>Tom &amp; Jerry</H3><DL><A HREF=\"https://x/?a=1&amp;b=2\">Q &amp; A &lt;3 &quot;x&quot; &#39;y&#39;</A>"_s
        << QStringList{u"Q & A <3 \"x\" 'y' | https://x/?a=1&b=2 | Tom & Jerry | Chrome,Tom & Jerry"_s};
    QTest::newRow("tags inside a title are dropped")
        << u"<a href='https://b/'><b>Bold</b> <img src=x>text </a>"_s
        << QStringList{u"Bold text | https://b/ | Chrome imports | Chrome,Chrome imports"_s};
    QTest::newRow("empty title takes the address")
        << u"<A HREF=\"https://e/\">  </A>"_s
        << QStringList{u"https://e/ | https://e/ | Chrome imports | Chrome,Chrome imports"_s};
    QTest::newRow("a script address is kept")
        << u"<A HREF=\"javascript:alert(1)\">JS</A>"_s
        << QStringList{u"JS | javascript:alert(1) | Chrome imports | Chrome,Chrome imports"_s};
    QTest::newRow("links without an address, or one that does not parse, are skipped")
        << u"<A NAME=x>none</A><A HREF=\"\">empty</A><A HREF=\"https://a b/\">space</A><A HREF=\"https://ok/\">ok</A>"_s
        << QStringList{u"ok | https://ok/ | Chrome imports | Chrome,Chrome imports"_s};
    QTest::newRow("look-alike tags are not links or folders")
        << u"<abbr title=x>A</abbr><h3x>no</h3x><area href=\"https://no/\"></a><A HREF=\"https://yes/\">Y</A>"_s
        << QStringList{u"Y | https://yes/ | Chrome imports | Chrome,Chrome imports"_s};
    QTest::newRow("unclosed link ends nothing") << u"<A HREF=\"https://a/\">never closed"_s << QStringList();
}

void TestChromeBookmarks::html()
{
    QFETCH(QString, html);
    QFETCH(QStringList, links);
    const QList<TavoSavedSite> parsed = parseChromeHTML(html);
    QCOMPARE(described(parsed), links);
    QCOMPARE(described(parsed), referenceHTML(html));
    for (const TavoSavedSite& link : parsed) {
        QCOMPARE(link.note, u"Imported from Google Chrome"_s);
        QCOMPARE(link.id.size(), 36);
    }
}

void TestChromeBookmarks::htmlScannerAgreesWithThePatterns()
{
    // Random documents from the pieces an export is made of, and some that only look like them.
    const QStringList pieces = {u"<h3>"_s,
                                u"<H3 class=x>"_s,
                                u"</h3>"_s,
                                u"</H3>"_s,
                                u"<a href=\"https://e/1?a&amp;b\">"_s,
                                u"<A HREF='https://e/2'>"_s,
                                u"<a href=\"javascript:x()\">"_s,
                                u"<a name=q>"_s,
                                u"</a>"_s,
                                u"</A>"_s,
                                u"</dl>"_s,
                                u"</DL>"_s,
                                u"<dl>"_s,
                                u"Text "_s,
                                u"<b>"_s,
                                u">"_s,
                                u"<"_s,
                                u"<>"_s,
                                u"&amp;"_s,
                                u"&lt;"_s,
                                u" \n"_s,
                                u"<abbr>"_s,
                                u"<a>"_s,
                                u"<h3x>"_s,
                                u"é"_s};
    QRandomGenerator random(20261125);
    for (int round = 0; round < 3000; ++round) {
        QString html;
        const int length = random.bounded(1, 40);
        for (int i = 0; i < length; ++i) {
            html += pieces[random.bounded(pieces.size())];
        }
        if (described(parseChromeHTML(html)) != referenceHTML(html)) {
            QFAIL(qPrintable(u"differs on: "_s + html));
        }
    }
}

void TestChromeBookmarks::json_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("links");

    QTest::newRow("a profile's file, children written before the folder's name")
        << R"({"checksum":"x","roots":{
  "bookmark_bar":{"children":[
     {"name":"A","type":"url","url":"https://a/"},
     {"children":[{"children":[{"name":"T","type":"url","url":"https://t/"}],"name":"Tax","type":"folder"}],
      "name":"Work","type":"folder"},
     {"name":"B","type":"url","url":"https://b/"}],
   "name":"Bookmarks bar","type":"folder"},
  "other":{"children":[{"type":"url","url":"https://o/"}],"name":"Other bookmarks","type":"folder"},
  "sync_transaction_version":"1"},"version":1})"_ba
        << QStringList{u"A | https://a/ | Bookmarks bar | Chrome,Bookmarks bar"_s,
                       u"T | https://t/ | Tax | Chrome,Tax"_s,
                       u"B | https://b/ | Bookmarks bar | Chrome,Bookmarks bar"_s,
                       u"https://o/ | https://o/ | Other bookmarks | Chrome,Other bookmarks"_s};
    QTest::newRow("a folder without a name passes its own folder on")
        << R"({"roots":{"r":{"type":"folder","name":"Outer","children":[{"type":"folder","children":[{"type":"url","name":"x","url":"https://x/"}]}]}}})"_ba
        << QStringList{u"x | https://x/ | Outer | Chrome,Outer"_s};
    QTest::newRow("no folder at all") << R"({"roots":{"r":{"type":"url","name":"","url":"https://x/"}}})"_ba
                                      << QStringList{u"https://x/ | https://x/ | Chrome imports | Chrome"_s};
    QTest::newRow("bad addresses dropped, a script address kept, a link's children ignored")
        << R"j({"roots":{"r":{"type":"folder","name":"F","children":[
            {"type":"url","name":"bad","url":"https://a b/"},
            {"type":"url","name":"num","url":5},
            {"type":"url","name":"js","url":"javascript:alert(1)",
             "children":[{"type":"url","name":"in","url":"https://in/"}]},
            7, "text", null]}}})j"_ba
        << QStringList{u"js | javascript:alert(1) | F | Chrome,F"_s};
    QTest::newRow("roots not an object") << R"({"roots":[{"type":"url","url":"https://x/"}]})"_ba << QStringList();
    QTest::newRow("no roots") << R"({"other":{}})"_ba << QStringList();
    QTest::newRow("not JSON") << "{\"roots\":{\"r\":{\"type\":\"url\",\"url\":\"https://x/\"}}"_ba << QStringList();
    QTest::newRow("an array") << "[]"_ba << QStringList();
}

void TestChromeBookmarks::json()
{
    QFETCH(QByteArray, json);
    QTEST(described(parseChromeJSON(json)), "links");
}

void TestChromeBookmarks::kindOfFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("start");
    QTest::addColumn<bool>("isJSON");
    QTest::newRow("profile file without extension") << u"/p/Default/Bookmarks"_s << " \n\t{\"roots\""_ba << true;
    QTest::newRow("json extension, any case") << u"/p/export.JSON"_s << "<!DOCTYPE"_ba << true;
    QTest::newRow("html export") << u"/p/bookmarks.html"_s << "<!DOCTYPE NETSCAPE-Bookmark-file-1>"_ba << false;
    QTest::newRow("bad bytes first") << u"/p/Bookmarks"_s << "\xff\xfe{"_ba << false;
}

void TestChromeBookmarks::kindOfFile()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, start);
    QTEST(looksLikeChromeJSON(name, start), "isJSON");
}

void TestChromeBookmarks::hostileFilesEndWell_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QStringList>("links");

    const int depth = 100000;
    QByteArray deepJSON = R"({"roots":{"r":)"_ba;
    for (int i = 0; i < depth; ++i) {
        deepJSON += R"({"type":"folder","name":"f)" + QByteArray::number(i) + R"(","children":[)";
    }
    deepJSON += R"({"type":"url","name":"deep","url":"https://deep/"})";
    for (int i = 0; i < depth; ++i) {
        deepJSON += "]}";
    }
    deepJSON += "}}";
    QTest::newRow("100,000 nested JSON folders")
        << deepJSON << QStringList{u"deep | https://deep/ | f99999 | Chrome,f99999"_s};

    QByteArray deepHTML;
    for (int i = 0; i < depth; ++i) {
        deepHTML += "<DT><H3>f" + QByteArray::number(i) + "</H3><DL><p>";
    }
    deepHTML += "<DT><A HREF=\"https://deep/\">deep</A>";
    for (int i = 0; i < depth; ++i) {
        deepHTML += "</DL><p>";
    }
    deepHTML += "<DT><A HREF=\"https://out/\">out</A>";
    QTest::newRow("100,000 nested HTML folders")
        << deepHTML
        << QStringList{u"deep | https://deep/ | f99999 | Chrome,f99999"_s,
                       u"out | https://out/ | Chrome imports | Chrome,Chrome imports"_s};

    QTest::newRow("invalid UTF-8 in JSON")
        << "{\"roots\":{\"r\":{\"type\":\"folder\",\"name\":\"F\xc3\",\"children\":[{\"type\":\"url\",\"name\":\"\xff"
           "A\",\"url\":\"https://a/\"}]}}}"_ba
        << QStringList{QString::fromUtf8("\xff"
                                         "A | https://a/ | F\xc3 | Chrome,F\xc3")};
    QTest::newRow("invalid UTF-8 in HTML")
        << "<H3>F\xed\xa0\x80</H3><DL><A HREF=\"https://a/\">\xc0\xafx</A>"_ba
        << QStringList{QString::fromUtf8("\xc0\xafx | https://a/ | F\xed\xa0\x80 | Chrome,F\xed\xa0\x80")};
    // Quadratic scanning would not finish these within the test's time.
    QTest::newRow("four million unclosed links") << QByteArray(4'000'000, 'x').replace("x", "<a ") << QStringList();
    QTest::newRow("four million unclosed headings")
        << QByteArray(1'000'000, 'x').replace("x", "<h3>") + "</h3" << QStringList();
    QTest::newRow("a title full of '<'") << "<a href=\"https://t/\">" + QByteArray(4'000'000, '<') + "t</a>"
                                         << QStringList{u"<"_s.repeated(4'000'000) +
                                                        u"t | https://t/ | Chrome imports | Chrome,Chrome imports"_s};
}

void TestChromeBookmarks::hostileFilesEndWell()
{
    QFETCH(QByteArray, data);
    const QList<TavoSavedSite> links =
        looksLikeChromeJSON(u"Bookmarks"_s, data) ? parseChromeJSON(data) : parseChromeHTML(QString::fromUtf8(data));
    QTEST(described(links), "links");
}

QTEST_GUILESS_MAIN(TestChromeBookmarks)
#include "tst_chrome_bookmarks.moc"
