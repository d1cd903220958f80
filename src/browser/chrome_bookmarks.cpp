#include "browser/chrome_bookmarks.h"

#include "language/json_stream.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QUrl>

#include <vector>

namespace tavo {

namespace {

const QString chromeTag = QStringLiteral("Chrome");

QString decodeEntities(QString text)
{
    text.replace(QLatin1StringView("&amp;"), QLatin1StringView("&"));
    text.replace(QLatin1StringView("&quot;"), QLatin1StringView("\""));
    text.replace(QLatin1StringView("&#39;"), QLatin1StringView("'"));
    text.replace(QLatin1StringView("&lt;"), QLatin1StringView("<"));
    text.replace(QLatin1StringView("&gt;"), QLatin1StringView(">"));
    return text;
}

// Removes every "<[^>]+>" in one pass: a '<' with no '>' after it can start no later tag either,
// so a title full of '<' costs no more than its length.
QString withoutTags(QStringView text)
{
    QString result;
    result.reserve(text.size());
    qsizetype from = 0;
    while (from < text.size()) {
        const qsizetype open = text.indexOf(u'<', from);
        if (open < 0) {
            break;
        }
        const qsizetype close = text.indexOf(u'>', open + 1);
        if (close < 0) {
            break;
        }
        if (close == open + 1) { // "<>" is no tag
            result += text.sliced(from, close - from);
            from = close;
            continue;
        }
        result += text.sliced(from, open - from);
        from = close + 1;
    }
    result += text.sliced(from);
    return result;
}

bool isAsciiWordCharacter(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') || u == u'_';
}

// The next place of a fixed text at or after a position. Asked with positions that mostly grow,
// it remembers its last answer, so finding every tag of a file stays linear in its length.
class NextFinder
{
public:
    NextFinder(QStringView text, QLatin1StringView needle)
        : m_text(text)
        , m_needle(needle)
    {
    }

    qsizetype from(qsizetype position)
    {
        if (m_searchedFrom >= 0 && position >= m_searchedFrom && (m_found < 0 || position <= m_found)) {
            return m_found;
        }
        m_searchedFrom = position;
        m_found = m_text.indexOf(m_needle, position, Qt::CaseInsensitive);
        return m_found;
    }

private:
    QStringView m_text;
    QLatin1StringView m_needle;
    qsizetype m_searchedFrom = -1;
    qsizetype m_found = -1;
};

bool startsWithAt(QStringView text, qsizetype at, QLatin1StringView word)
{
    return text.sliced(at).startsWith(word, Qt::CaseInsensitive);
}

bool boundaryAt(QStringView text, qsizetype at)
{
    return at >= text.size() || !isAsciiWordCharacter(text[at]);
}

TavoSavedSite importedLink(const QString& title, const QString& url, const QString& folder)
{
    TavoSavedSite site;
    site.title = title.isEmpty() ? url : title;
    site.url = url;
    site.collection = folder.isEmpty() ? chromeImportsCollection : folder;
    site.tags = folder.isEmpty() ? QStringList{chromeTag} : QStringList{chromeTag, folder};
    site.note = chromeImportNote;
    return site;
}

// One object of the bookmark tree, as read; the walk decides what it means once all is read,
// since Chrome writes a folder's children before its name.
struct BookmarkNode
{
    qsizetype parent = -1;
    std::optional<QString> type;
    std::optional<QString> name;
    std::optional<QString> url;
};

} // namespace

bool parsesAsURL(const QString& text)
{
    return !text.isEmpty() && QUrl(text, QUrl::StrictMode).isValid();
}

QList<TavoSavedSite> parseChromeHTML(const QString& text)
{
    static const QRegularExpression hrefPattern(QStringLiteral("href=[\"']([^\"']+)"),
                                                QRegularExpression::CaseInsensitiveOption);
    // The pattern "(?is)<h3\b[^>]*>(.*?)</h3>|<a\b([^>]*)>(.*?)</a>|</dl>", matched by hand:
    // a regular expression engine spends time quadratic in the length of a file full of
    // unclosed tags.
    const QStringView all(text);
    NextFinder nextGreater(all, QLatin1StringView(">"));
    NextFinder nextHeadingEnd(all, QLatin1StringView("</h3>"));
    NextFinder nextLinkEnd(all, QLatin1StringView("</a>"));

    QList<TavoSavedSite> links;
    QStringList folders;
    qsizetype position = 0;
    while (position < all.size()) {
        const qsizetype open = all.indexOf(u'<', position);
        if (open < 0) {
            break;
        }
        position = open + 1;
        if (startsWithAt(all, open, QLatin1StringView("<h3")) && boundaryAt(all, open + 3)) {
            const qsizetype tagEnd = nextGreater.from(open + 3);
            const qsizetype end = tagEnd < 0 ? -1 : nextHeadingEnd.from(tagEnd + 1);
            if (end >= 0) {
                folders.append(decodeEntities(withoutTags(all.sliced(tagEnd + 1, end - tagEnd - 1))).trimmed());
                position = end + 5;
            }
        } else if (startsWithAt(all, open, QLatin1StringView("<a")) && boundaryAt(all, open + 2)) {
            const qsizetype tagEnd = nextGreater.from(open + 2);
            const qsizetype end = tagEnd < 0 ? -1 : nextLinkEnd.from(tagEnd + 1);
            if (end < 0) {
                continue;
            }
            position = end + 4;
            const QRegularExpressionMatch href = hrefPattern.match(all.sliced(open + 2, tagEnd - open - 2));
            if (!href.hasMatch()) {
                continue;
            }
            const QString url = href.captured(1).replace(QLatin1StringView("&amp;"), QLatin1StringView("&"));
            if (!parsesAsURL(url)) {
                continue;
            }
            const QString title = decodeEntities(withoutTags(all.sliced(tagEnd + 1, end - tagEnd - 1))).trimmed();
            const QString folder = folders.isEmpty() ? chromeImportsCollection : folders.last();
            TavoSavedSite site = importedLink(title, url, folder);
            site.tags = QStringList{chromeTag, folder};
            links.append(std::move(site));
        } else if (startsWithAt(all, open, QLatin1StringView("</dl>"))) {
            if (!folders.isEmpty()) {
                folders.removeLast();
            }
            position = open + 5;
        }
    }
    return links;
}

QList<TavoSavedSite> parseChromeJSON(QByteArrayView data)
{
    JsonReader reader(data);
    std::vector<BookmarkNode> nodes;
    // What is open around the read position: a node's object, or the list of its children.
    struct Frame
    {
        qsizetype node;
        bool children;
    };
    std::vector<Frame> open;

    auto readTextMember = [&reader](std::optional<QString>& field) {
        if (reader.peek() != JsonReader::Type::String) {
            return reader.skipValue(); // only text counts; anything else is as if absent
        }
        field = reader.readString();
        return field.has_value();
    };

    auto walkRoot = [&] {
        nodes.push_back({});
        open.push_back({qsizetype(nodes.size()) - 1, false});
        if (!reader.beginObject()) {
            return false;
        }
        while (!open.empty()) {
            const Frame frame = open.back();
            if (frame.children) {
                if (!reader.nextElement()) {
                    open.pop_back();
                    continue;
                }
                if (reader.peek() != JsonReader::Type::Object) {
                    if (!reader.skipValue()) {
                        return false;
                    }
                    continue;
                }
                nodes.push_back({frame.node, {}, {}, {}});
                open.push_back({qsizetype(nodes.size()) - 1, false});
                if (!reader.beginObject()) {
                    return false;
                }
                continue;
            }
            const std::optional<QByteArrayView> key = reader.nextKey();
            if (!key) {
                open.pop_back();
                continue;
            }
            BookmarkNode& node = nodes[size_t(frame.node)];
            bool ok = true;
            if (*key == "type") {
                ok = readTextMember(node.type);
            } else if (*key == "name") {
                ok = readTextMember(node.name);
            } else if (*key == "url") {
                ok = readTextMember(node.url);
            } else if (*key == "children" && reader.peek() == JsonReader::Type::Array) {
                ok = reader.beginArray();
                open.push_back({frame.node, true});
            } else {
                ok = reader.skipValue();
            }
            if (!ok) {
                return false;
            }
        }
        return !reader.failed();
    };

    if (!reader.beginObject()) {
        return {};
    }
    bool sawRoots = false;
    while (const std::optional<QByteArrayView> key = reader.nextKey()) {
        if (*key != "roots") {
            if (!reader.skipValue()) {
                return {};
            }
            continue;
        }
        if (reader.peek() != JsonReader::Type::Object || !reader.beginObject()) {
            return {};
        }
        sawRoots = true;
        while (reader.nextKey()) {
            const bool ok = reader.peek() == JsonReader::Type::Object ? walkRoot() : reader.skipValue();
            if (!ok) {
                return {};
            }
        }
    }
    if (reader.failed() || !reader.atEnd() || !sawRoots) {
        return {};
    }

    // Parents always come before their children, so one pass in reading order hands each node
    // the folder its parent gives it, in the order a depth-first walk meets them.
    std::vector<QString> given(nodes.size());
    std::vector<bool> walked(nodes.size(), true);
    QList<TavoSavedSite> links;
    const QString urlType = QStringLiteral("url");
    const QString folderType = QStringLiteral("folder");
    for (size_t i = 0; i < nodes.size(); ++i) {
        const BookmarkNode& node = nodes[i];
        if (node.parent >= 0) {
            const BookmarkNode& parent = nodes[size_t(node.parent)];
            walked[i] = walked[size_t(node.parent)] && parent.type != urlType;
            given[i] = parent.type == folderType && parent.name ? *parent.name : given[size_t(node.parent)];
        }
        if (!walked[i] || node.type != urlType) {
            continue;
        }
        if (!node.url || !parsesAsURL(*node.url)) {
            continue;
        }
        links.append(importedLink(node.name.value_or(*node.url), *node.url, given[i]));
    }
    return links;
}

bool looksLikeChromeJSON(const QString& fileName, QByteArrayView data)
{
    if (QFileInfo(fileName).suffix().toLower() == QLatin1StringView("json")) {
        return true;
    }
    return QString::fromUtf8(data.first(std::min<qsizetype>(100, data.size()))).trimmed().startsWith(u'{');
}

} // namespace tavo
