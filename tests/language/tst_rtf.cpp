#include "language/rtf.h"

#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>

using namespace tavo;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(tavo::StyledText)

namespace {

// "bius@12#ff0000~Family|text": flags, size, colour and family, then the run's text.
QStringList describe(const StyledText& styled)
{
    QStringList runs;
    for (const StyledRun& run : styled.runs) {
        const RunStyle& s = run.style;
        QString d;
        d += s.bold ? u"b"_s : QString();
        d += s.italic ? u"i"_s : QString();
        d += s.underline ? u"u"_s : QString();
        d += s.strikethrough ? u"s"_s : QString();
        if (s.pointSize) {
            d += u'@' + QString::number(*s.pointSize);
        }
        if (s.color) {
            d += u"#%1%2%3"_s.arg(s.color->red, 2, 16, QChar(u'0'))
                     .arg(s.color->green, 2, 16, QChar(u'0'))
                     .arg(s.color->blue, 2, 16, QChar(u'0'));
        }
        if (!s.family.isEmpty()) {
            d += u'~' + s.family;
        }
        runs.append(d + u'|' + run.text);
    }
    return runs;
}

StyledRun run(const QString& text, const RunStyle& style = {})
{
    return {text, style};
}

RunStyle style(bool bold, bool italic = false, bool underline = false, bool strike = false)
{
    RunStyle s;
    s.bold = bold;
    s.italic = italic;
    s.underline = underline;
    s.strikethrough = strike;
    return s;
}

RunStyle sized(double points)
{
    RunStyle s;
    s.pointSize = points;
    return s;
}

RunStyle coloured(int red, int green, int blue)
{
    RunStyle s;
    s.color = TextColor{red, green, blue};
    return s;
}

RunStyle inFont(const QString& family)
{
    RunStyle s;
    s.family = family;
    return s;
}

} // namespace

class TestRtf : public QObject
{
    Q_OBJECT

private slots:
    void roundTrip_data();
    void roundTrip();
    void readsOtherPrograms_data();
    void readsOtherPrograms();
    void malformedInput_data();
    void malformedInput();
    void mutatedInputNeverHangs_data();
    void mutatedInputNeverHangs();
};

void TestRtf::roundTrip_data()
{
    QTest::addColumn<StyledText>("styled");

    QTest::newRow("plain text in the default font") << StyledText{{run(u"Hello, world."_s)}, u"DejaVu Sans"_s};
    QTest::newRow("no text at all") << StyledText{{}, u"Sans"_s};
    QTest::newRow("no default family") << StyledText{{run(u"x"_s)}, QString()};
    QTest::newRow("bold, italic, underline and strike, each on and off") << StyledText{
        {run(u"b"_s, style(true)), run(u"-"_s), run(u"i"_s, style(false, true)), run(u"u"_s, style(false, false, true)),
         run(u"s"_s, style(false, false, false, true)), run(u"all"_s, style(true, true, true, true)), run(u"none"_s)},
        u"Sans"_s};
    QTest::newRow("sizes in half points, and back to the default size") << StyledText{
        {run(u"a"_s, sized(10.5)), run(u"b"_s), run(u"c"_s, sized(24)), run(u"d"_s, sized(11))}, u"Sans"_s};
    RunStyle boldBig = sized(18);
    boldBig.bold = true;
    boldBig.color = TextColor{0, 0, 255};
    QTest::newRow("a size going back to the default keeps the other attributes")
        << StyledText{{run(u"big"_s, boldBig), run(u"small"_s, coloured(0, 0, 255))}, u"Sans"_s};
    QTest::newRow("colours from a table, and back to automatic")
        << StyledText{{run(u"red"_s, coloured(255, 0, 0)), run(u"auto"_s), run(u"teal"_s, coloured(0, 128, 128)),
                       run(u"red again"_s, coloured(255, 0, 0)), run(u"black"_s, coloured(0, 0, 0))},
                      u"Sans"_s};
    QTest::newRow("fonts beyond the default one") << StyledText{
        {run(u"serif"_s, inFont(u"DejaVu Serif"_s)), run(u"default"_s), run(u"mono"_s, inFont(u"DejaVu Sans Mono"_s))},
        u"DejaVu Sans"_s};
    QTest::newRow("unicode beyond Latin-1, with an emoji")
        << StyledText{{run(u"Ä € ₹ 日本語 😀 end"_s), run(u"😀"_s, style(true))}, u"Sans"_s};
    QTest::newRow("a font name beyond ASCII") << StyledText{{run(u"x"_s)}, u"Noto Sans 日本"_s};
    QTest::newRow("paragraphs, line breaks and tabs")
        << StyledText{{run(u"one\ntwo\u2028three\tfour\n\n"_s), run(u"\nbold\n"_s, style(true))}, u"Sans"_s};
    QTest::newRow("braces and backslashes in text")
        << StyledText{{run(u"{\\rtf1} \\par \\u123? \\'41 }{"_s), run(u"\\b"_s, style(true))}, u"Sans"_s};
    QTest::newRow("text starting with a space, a digit or a hyphen after a style change") << StyledText{
        {run(u"x"_s), run(u" 1"_s, style(true)), run(u"2"_s, sized(12)), run(u"-3"_s, sized(13)), run(u"?4"_s)},
        u"Sans"_s};
}

void TestRtf::roundTrip()
{
    QFETCH(StyledText, styled);
    const QByteArray rtf = rtfFromStyledText(styled);
    QVERIFY(std::all_of(rtf.begin(), rtf.end(), [](char byte) { return uchar(byte) < 0x80; }));
    QVERIFY(rtf.startsWith("{\\rtf1\\ansi"));
    const std::optional<StyledText> read = styledTextFromRtf(rtf);
    QVERIFY(read);
    QCOMPARE(describe(*read), describe(styled));
    QCOMPARE(read->defaultFamily, styled.defaultFamily);
    QVERIFY(*read == styled);
}

void TestRtf::readsOtherPrograms_data()
{
    QTest::addColumn<QByteArray>("rtf");
    QTest::addColumn<QString>("defaultFamily");
    QTest::addColumn<QStringList>("runs");

    QTest::newRow("a word processor's document with font, colour and style tables")
        << QByteArray("{\\rtf1\\ansi\\deff4\\adeflang1025\n"
                      "{\\fonttbl{\\f0\\froman\\fprq2\\fcharset0 Times New Roman;}{\\f1\\froman\\fprq2\\fcharset2 "
                      "Symbol;}{\\f4\\fswiss\\fprq2\\fcharset0 Liberation Sans{\\*\\falt Arial};}"
                      "{\\f5\\fmodern\\fprq1\\fcharset0 Liberation Mono;}}\n"
                      "{\\colortbl;\\red0\\green0\\blue0;\\red255\\green0\\blue0;\\red0\\green128\\blue0;}\n"
                      "{\\stylesheet{\\s0\\snext0\\f4\\fs24 Normal;}{\\*\\cs15\\snext15 Strong Emphasis;}}"
                      "{\\*\\generator LibreOffice/7.4$Linux_X86_64}{\\info{\\creatim\\yr2024\\mo1\\dy2}"
                      "{\\title Invoice}}\\deftab709\n"
                      "{\\*\\pgdsctbl\n{\\pgdsc0\\pgdscuse451 Default Page Style;}}\n"
                      "\\pard\\plain \\s0\\f4\\fs24\\cf1 Dear {\\b\\cf2 Acme}, caf\\'e9 \\u8364\\'80 "
                      "{\\i\\fs28 big}\\par\n"
                      "\\pard\\plain \\s0\\f5\\fs20{\\ul mono}\\line{\\strike gone}\\tab end\\par}")
        << u"Liberation Sans"_s
        << QStringList{u"@12#000000|Dear "_s,
                       u"b@12#ff0000|Acme"_s,
                       u"@12#000000|, café € "_s,
                       u"i@14#000000|big"_s,
                       u"@12#000000|\n"_s,
                       u"u@10~Liberation Mono|mono"_s,
                       u"@10~Liberation Mono|\u2028"_s,
                       u"s@10~Liberation Mono|gone"_s,
                       u"@10~Liberation Mono|\tend\n"_s};
    QTest::newRow("a rich edit control's document")
        << QByteArray("{\\rtf1\\ansi\\ansicpg1252\\deff0\\nouicompat\\deflang1033{\\fonttbl{\\f0\\fnil\\fcharset0 "
                      "Calibri;}}\r\n{\\*\\generator Riched20 10.0.19041}\\viewkind4\\uc1 \r\n"
                      "\\pard\\sa200\\sl276\\slmult1\\f0\\fs22\\lang9 Hello \\b bold\\b0  and \\i italic\\i0 "
                      "and \\ul under\\ulnone .\\par\r\n}\r\n\0")
        << u"Calibri"_s << QStringList{u"@11|Hello "_s, u"b@11|bold"_s,  u"@11| and "_s, u"i@11|italic"_s,
                                       u"@11|and "_s,   u"u@11|under"_s, u"@11|.\n"_s};
    QTest::newRow("a font table without inner groups")
        << QByteArray("{\\rtf1\\ansi\\deff0{\\fonttbl\\f0\\fswiss Helvetica;\\f1\\fmodern Courier;}"
                      "\\f1 mono\\f0  sans}")
        << u"Helvetica"_s << QStringList{u"~Courier|mono"_s, u"| sans"_s};
    QTest::newRow("a link's shown text stays, its instruction does not")
        << QByteArray("{\\rtf1 see {\\field{\\*\\fldinst{HYPERLINK \"https://example.com\"}}"
                      "{\\fldrslt{\\ul\\cf1 the site}}} now}")
        << QString() << QStringList{u"|see "_s, u"u|the site"_s, u"| now"_s};
    QTest::newRow("unicode escapes with one, none or two fallback characters")
        << QByteArray("{\\rtf1 a\\u8364?b\\uc0\\u8364 c\\uc2\\u8364\\'80\\'80d\\uc1\\u-10179?\\u-8704?}") << QString()
        << QStringList{u"|a€b€c€d😀"_s};
    QTest::newRow("code page 1252 escapes and symbol words")
        << QByteArray("{\\rtf1\\ansi \\'93q\\'94 \\'85 \\'e4\\~\\emdash\\endash\\bullet"
                      "\\lquote\\rquote\\ldblquote\\rdblquote\\_}")
        << QString() << QStringList{u"|“q” … ä\u00a0—–•‘’“”\u2011"_s};
    QTest::newRow("formatting switched off by parameter")
        << QByteArray("{\\rtf1 \\b\\i\\ul\\strike x\\b0\\i0\\ul0\\strike0 y\\striked1 z\\uldb w}") << QString()
        << QStringList{u"bius|x"_s, u"|y"_s, u"s|z"_s, u"us|w"_s};
    QTest::newRow("groups restore the formatting around them")
        << QByteArray("{\\rtf1 a{\\b b{\\i c}d}e}") << QString()
        << QStringList{u"|a"_s, u"b|b"_s, u"bi|c"_s, u"b|d"_s, u"|e"_s};
    QTest::newRow("pictures and binary data are skipped")
        << QByteArray("{\\rtf1 a{\\pict\\pngblip 89504e47}b{\\*\\shppict{\\pict 00}}c\\bin3 {}}d}") << QString()
        << QStringList{u"|abcd"_s};
    QTest::newRow("a backslash before a line end is a paragraph")
        << QByteArray("{\\rtf1 a\\\nb\r\nc}") << QString() << QStringList{u"|a\nbc"_s};
}

void TestRtf::readsOtherPrograms()
{
    QFETCH(QByteArray, rtf);
    QFETCH(QString, defaultFamily);
    QFETCH(QStringList, runs);
    const std::optional<StyledText> read = styledTextFromRtf(rtf);
    QVERIFY(read);
    QCOMPARE(describe(*read), runs);
    QCOMPARE(read->defaultFamily, defaultFamily);
}

void TestRtf::malformedInput_data()
{
    QTest::addColumn<QByteArray>("rtf");
    QTest::addColumn<bool>("isRtf");
    QTest::addColumn<QString>("plainText");

    QTest::newRow("not RTF at all") << QByteArray("Hello {\\b world}") << false << QString();
    QTest::newRow("empty input") << QByteArray() << false << QString();
    QTest::newRow("groups never closed read to the end") << QByteArray("{\\rtf1 {\\b abc{ def") << true << u"abc def"_s;
    QTest::newRow("text after the document's end is not read") << QByteArray("{\\rtf1 abc}}}def") << true << u"abc"_s;
    QTest::newRow("a control word cut at the end") << QByteArray("{\\rtf1 abc\\") << true << u"abc"_s;
    QTest::newRow("a unicode escape cut before its number") << QByteArray("{\\rtf1 abc\\u") << true << u"abc"_s;
    QTest::newRow("a unicode escape at the very end") << QByteArray("{\\rtf1 \\u8364") << true << u"€"_s;
    QTest::newRow("a hex escape cut at the end leaves its digit as text")
        << QByteArray("{\\rtf1 a\\'4") << true << u"a4"_s;
    QTest::newRow("a hex escape with no hex digits") << QByteArray("{\\rtf1 a\\'zzb}") << true << u"azzb"_s;
    QTest::newRow("a huge parameter") << QByteArray("{\\rtf1 \\fs99999999999999999999999 a\\u-99999999999?b}") << true
                                      << u"ab"_s;
    QTest::newRow("a binary length beyond the input") << QByteArray("{\\rtf1 a\\bin999999999 bc}") << true << u"a"_s;
    QTest::newRow("an endless control word")
        << QByteArray("{\\rtf1 \\" + QByteArray(100000, 'x') + " z}") << true << u"z"_s;
    QTest::newRow("shallow nesting keeps its text") << QByteArray("{\\rtf1 {{{{{{{{{{x}}}}}}}}}}y}") << true << u"xy"_s;
    QTest::newRow("nesting beyond the cap is skipped, then reading goes on")
        << QByteArray("{\\rtf1 " + QByteArray(200000, '{') + "x" + QByteArray(200000, '}') + "y}") << true << u"y"_s;
}

void TestRtf::malformedInput()
{
    QFETCH(QByteArray, rtf);
    QFETCH(bool, isRtf);
    QFETCH(QString, plainText);
    const std::optional<StyledText> read = styledTextFromRtf(rtf);
    QCOMPARE(read.has_value(), isRtf);
    if (read) {
        QCOMPARE(read->plainText(), plainText);
    }
}

void TestRtf::mutatedInputNeverHangs_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed : {1u, 2u, 3u, 4u}) {
        QTest::addRow("random changes to a styled document, seed %u", seed) << seed;
    }
}

void TestRtf::mutatedInputNeverHangs()
{
    QFETCH(quint32, seed);
    StyledText styled{
        {run(u"Dear "_s, sized(12)), run(u"Acme 😀"_s, coloured(255, 0, 0)), run(u"\n{x}\\y"_s, inFont(u"Mono"_s))},
        u"Sans"_s};
    const QByteArray sample = rtfFromStyledText(styled);
    static const char alphabet[] = "{}\\'*u-0123456789abfsclpr ?\n";
    QRandomGenerator random(seed);
    QElapsedTimer timer;
    timer.start();
    for (int round = 0; round < 2000; ++round) {
        QByteArray mutated = sample;
        const int changes = 1 + int(random.bounded(8));
        for (int c = 0; c < changes; ++c) {
            const int at = int(random.bounded(quint32(mutated.size())));
            const char byte = random.bounded(4) == 0 ? char(random.bounded(256))
                                                     : alphabet[random.bounded(quint32(sizeof alphabet - 1))];
            switch (random.bounded(3)) {
            case 0:
                mutated[at] = byte;
                break;
            case 1:
                mutated.insert(at, byte);
                break;
            default:
                mutated.remove(at, 1);
            }
        }
        const std::optional<StyledText> read = styledTextFromRtf(mutated);
        // Whatever is read stays within what the input could hold.
        if (read) {
            QVERIFY(read->plainText().size() <= mutated.size());
        }
    }
    QVERIFY2(timer.elapsed() < 5000, "the reader must stay linear on damaged input");
}

QTEST_GUILESS_MAIN(TestRtf)
#include "tst_rtf.moc"
