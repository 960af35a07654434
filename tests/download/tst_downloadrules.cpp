// The rules of downloading that need no window: the part search over subjects, the attachment
// name rules, the path-safety rule and the temporary file names.
#include "app/Paths.h"
#include "download/FileNames.h"
#include "download/PartFinder.h"

#include <QtTest>

using namespace nd;

namespace {

struct Rows : PartRows {
    QStringList subjects;    // row r is subjects[r - 1]
    QSet<int> marked;
    int lastRow() const override { return int(subjects.size()); }
    QString subject(int row) const override { return subjects.at(row - 1); }
    qint64 articleNumber(int row) const override { return 1000 + row; }
    void mark(int row) override { marked.insert(row); }
};

// Subjects "prefix(NN/total)suffix" for parts 1..total, with the number formatted by fmt.
QStringList set(const QString &prefix, int total, const std::function<QString(int)> &fmt,
                const QString &suffix = QString())
{
    QStringList l;
    for (int k = 1; k <= total; ++k)
        l << prefix + fmt(k) + QLatin1Char('/') + QString::number(total) + QLatin1Char(')') + suffix;
    return l;
}
QString pad2(int k) { return QString::number(k).rightJustified(2, QLatin1Char('0')); }
QString plain(int k) { return QString::number(k); }
QList<int> range(int from, int to)
{
    QList<int> l;
    for (int r = from; r <= to; ++r)
        l << r;
    return l;
}

} // namespace

class TestDownloadRules : public QObject {
    Q_OBJECT
private slots:
    void markerPositions();
    void partSearch_data();
    void partSearch();
    void attachmentNames_data();
    void attachmentNames();
    void hostileNames_data();
    void hostileNames();
    void tempFileNames();
};

void TestDownloadRules::markerPositions()
{
    const PartMarker m = findPartMarker(QStringLiteral("Holiday pics (03/12)"));
    QVERIFY(m.usable);
    QCOMPARE(QList<qint64>({m.open, m.slash, m.close, m.part, m.total}), QList<qint64>({14, 17, 20, 3, 12}));
    // text after the marker and other bracket kinds
    const PartMarker b = findPartMarker(QStringLiteral("x - \"f.bin\" yEnc {7/40} 123456 [abc]"));
    QVERIFY(b.usable);
    QCOMPARE(QList<qint64>({b.part, b.total}), QList<qint64>({7, 40}));
    QCOMPARE(b.closing, QChar('}'));
    // brackets 9 apart are no marker; 8 apart are
    QVERIFY(!findPartMarker(QStringLiteral("pics (123/5678)")).usable);
    QCOMPARE(findPartMarker(QStringLiteral("pics (12/5678)")).total, 5678);
    // a closing bracket without an opening one
    QVERIFY(!findPartMarker(QStringLiteral("1/5) pics")).usable);
}

// The rows of a part search: the grid's subjects, the subject searched from, the outcome, the
// rows taken for parts 1..n (Complete) or marked (otherwise), and the first missing part.
void TestDownloadRules::partSearch_data()
{
    QTest::addColumn<QStringList>("subjects");
    QTest::addColumn<QString>("subject");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QList<int>>("rows");
    QTest::addColumn<int>("missing");
    const int single = PartSearch::Single, complete = PartSearch::Complete, incomplete = PartSearch::Incomplete;
    const QStringList s = set(QStringLiteral("Holiday pics ("), 12, pad2);
    const QStringList five = set(QStringLiteral("Holiday pics ("), 5, plain);

    // shuffled in the grid, other posts around it, which stay untouched
    QTest::newRow("shuffled among others") << (QStringList{"Other stuff (01/02)"} + s.mid(6) + QStringList{"unrelated"} + s.mid(0, 6))
                                           << "Holiday pics (03/12)" << complete << range(9, 14) + range(2, 7) << 0;
    QTest::newRow("two identical posts: the upper one") << s + s << "Holiday pics (12/12)" << complete << range(1, 12) << 0;
    QTest::newRow("first word differs") << set(QStringLiteral("Repost pics ("), 12, pad2) << "Holiday pics (01/12)"
                                        << complete << range(1, 12) << 0;
    for (const char *subj : {"Holiday pics (1/1)", "Holiday pics (0/5)", "Holiday pics (6/5)", "Holiday pics",
                             "Holiday pics 3/5", "Holiday pics (1234/5678)", ""})
        QTest::addRow("single: '%s'", subj) << five << QString::fromLatin1(subj) << single << QList<int>() << 0;
    // part 4 missing: parts 1..3 stay marked, nothing after is searched
    QStringList no4 = set(QStringLiteral("Holiday pics ("), 16, pad2);
    no4.removeAt(3);
    QTest::newRow("part missing") << no4 << "Holiday pics (01/16)" << incomplete << QList<int>{1, 2, 3} << 4;
    // no space at all before the marker: nothing to tell the set's rows by
    QTest::newRow("no space") << set(QStringLiteral("pics("), 3, plain) << "pics(1/3)" << incomplete << QList<int>() << 1;
    // one word and the marker: matched on the whole text before it, so "old ceo-uu.dat" is not taken
    QTest::newRow("one word") << set(QStringLiteral("old ceo-uu.dat ("), 12, pad2) + set(QStringLiteral("ceo-uu.dat ("), 12, pad2)
                              << "ceo-uu.dat (05/12)" << complete << range(13, 24) << 0;
    QStringList gap = set(QStringLiteral("pics ("), 3, plain);
    gap.removeAt(1);
    QTest::newRow("one word, part missing") << gap << "pics (1/3)" << incomplete << QList<int>{1} << 2;
    QTest::newRow("first word dropped") << set(QStringLiteral("other pics ("), 3, plain) << "Holiday pics (1/3)" << complete
                                        << range(1, 3) << 0;
    // numbers without leading zeros (as nyuu writes them), found from any row
    QTest::newRow("unpadded") << set(QStringLiteral("[1/1] - \"big.bin\" yEnc ("), 12, plain, QStringLiteral(" 1048576"))
                              << "[1/1] - \"big.bin\" yEnc (3/12) 1048576" << complete << range(1, 12) << 0;
    // "(1/12)" must not be taken for "(11/12)" and the like
    QStringList reversed = set(QStringLiteral("a pics ("), 12, plain);
    std::reverse(reversed.begin(), reversed.end());
    QList<int> down = range(1, 12);
    std::reverse(down.begin(), down.end());
    QTest::newRow("1 is not 11") << reversed << "a pics (11/12)" << complete << down << 0;
    // padded to the width of the subject's number, wider than the total; and the reverse
    QTest::newRow("wider than the total") << set(QStringLiteral("Holiday pics ("), 6, pad2) << "Holiday pics (02/6)" << complete
                                          << range(1, 6) << 0;
    QTest::newRow("unpadded finds padded") << s << "Holiday pics (3/12)" << complete << range(1, 12) << 0;
    QStringList zero = set(QStringLiteral("Holiday pics ("), 10, [](int k) { return QString::number(k).rightJustified(3, QLatin1Char('0')); });
    for (QString &z : zero)
        z.replace(QStringLiteral("/10)"), QStringLiteral("/010)"));
    QTest::newRow("extra leading zero") << zero << "Holiday pics (001/010)" << complete << range(1, 10) << 0;
    // several files repeating the same marker: the rows of the subject's own file are taken; with
    // no row equal to the subject, the first rows holding the candidate
    const QStringList files = set(QStringLiteral("[1/2] yEnc ("), 3, plain) + set(QStringLiteral("[2/2] yEnc ("), 3, plain);
    QTest::newRow("this post's rows") << files << "[2/2] yEnc (2/3)" << complete << range(4, 6) << 0;
    QTest::newRow("no exact row") << files << "[3/3] yEnc (2/3)" << complete << range(1, 3) << 0;
}

void TestDownloadRules::partSearch()
{
    QFETCH(QStringList, subjects);
    QFETCH(QString, subject);
    QFETCH(int, outcome);
    QFETCH(QList<int>, rows);
    QFETCH(int, missing);
    Rows grid;
    grid.subjects = subjects;
    int searching = 0;
    const PartSearch r = FindAllParts(subject, grid, {}, [&] { ++searching; });
    QCOMPARE(int(r.outcome), outcome);
    QCOMPARE(r.missing, missing);
    if (outcome != PartSearch::Incomplete)
        QCOMPARE(searching, int(outcome == PartSearch::Complete));
    QCOMPARE(grid.marked, QSet<int>(rows.begin(), rows.end()));
    if (outcome == PartSearch::Complete) {
        QCOMPARE(r.total, rows.size());
        QCOMPARE(r.rows.mid(1), rows);
        for (int k = 1; k <= r.total; ++k)
            QCOMPARE(r.numbers[k], 1000 + r.rows[k]);
        // Stop before the search: treated as a single message, nothing marked
        Rows stopped;
        stopped.subjects = subjects;
        QCOMPARE(FindAllParts(subject, stopped, [] { return true; }).outcome, PartSearch::Single);
        QVERIFY(stopped.marked.isEmpty());
    }
}

void TestDownloadRules::attachmentNames_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("mime");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("kind");   // 0 none, 1 uuencode, 2 yEnc
    const QString n120 = QString(116, QLatin1Char('n')) + QStringLiteral(".jpg");
    QTest::newRow("uu") << "see this\r\nbegin 644 pic.jpg\r\nM9F]O\r\n`\r\nend\r\n" << false << "pic.jpg" << 1;
    // "Beginners" is passed over; the found name is not searched again
    QTest::newRow("uu after Beginners") << "Beginners guide\r\nbegin 644 beginner.jpg\r\nM9F]O\r\nend\r\n" << false
                                        << "beginner.jpg" << 1;
    QTest::newRow("nothing") << "Let us begin here.\r\nNothing else.\r\n" << false << "" << 0;
    QTest::newRow("begin at the end") << "begin" << false << "" << 0;
    QTest::newRow("uu name of 120") << "begin 644 " + n120 + "\r\n" << false << n120 << 1;
    QTest::newRow("uu name of 121") << "begin 644 x" + n120 + "\r\n" << false << "" << 1;
    QTest::newRow("yEnc") << "=ybegin part=1 line=128 size=123456 name=holiday 01.jpg\r\n=ypart begin=1 end=100\r\nxx\r\n"
                          << false << "holiday 01.jpg" << 2;
    QTest::newRow("yEnc, LF") << "=ybegin line=128 size=3 name=x.bin\nabc\n=yend size=3\n" << false << "x.bin" << 2;
    QTest::newRow("yEnc without name") << "=ybegin line=128 size=3\r\nabc\r\n" << false << "" << 2;
    // "=ybegin" without line= is not yEnc; the uuencode search runs instead
    QTest::newRow("no line=") << "=ybegin size=3\r\nbegin 600 u.txt\r\n" << false << "u.txt" << 1;
    QTest::newRow("MIME quoted") << "From: a@b\r\nMIME-Version: 1.0\r\nattachment; filename=\"a:b.jpg\"\r\n\r\n/9j/4AAQ\r\n"
                                 << true << "a_b.jpg" << 0;
    QTest::newRow("MIME plain") << "attachment; filename=plain.gif\r\n\r\nR0lG\r\n" << true << "plain.gif" << 0;
    QTest::newRow("MIME is neither") << "filename=\"begin 644 x\"\r\n" << true << "begin 644 x" << 0;
}

void TestDownloadRules::attachmentNames()
{
    QFETCH(QString, text);
    QFETCH(bool, mime);
    QFETCH(QString, name);
    QFETCH(int, kind);
    const AttachmentNameResult r = findAttachmentName(text, mime);
    QCOMPARE(r.name, name);
    QCOMPARE(r.uuencoded, kind == 1);
    QCOMPARE(r.yenc, kind == 2);
}

void TestDownloadRules::hostileNames_data()
{
    QTest::addColumn<QString>("header");
    QTest::addColumn<QString>("expected");
    QTest::newRow("parent dirs") << "=ybegin line=128 size=3 name=../../.bashrc\r\n" << ".._.._.bashrc";
    QTest::newRow("absolute") << "=ybegin line=128 size=3 name=/etc/passwd\r\n" << "_etc_passwd";
    QTest::newRow("backslashes") << "begin 644 ..\\..\\x.exe\r\n" << ".._.._x.exe";
    QTest::newRow("dot dot") << "=ybegin line=128 size=3 name=..\r\n" << "_..";
    QTest::newRow("dot") << "begin 644 .\r\n" << "_.";
    QTest::newRow("control chars") << QStringLiteral("=ybegin line=128 size=3 name=a\x1b[2Jb\x07.txt\r\n") << "a[2Jb.txt";
    QTest::newRow("drive") << "=ybegin line=128 size=3 name=C:\\x.txt\r\n" << "C__x.txt";
    QTest::newRow("pipes and stars") << "begin 644 a|b*c\"d.txt\r\n" << "a_b_cd.txt";
}

void TestDownloadRules::hostileNames()
{
    QFETCH(QString, header);
    QFETCH(QString, expected);
    const QString name = findAttachmentName(header, false).name;
    QCOMPARE(name, expected);
    // the name a set is written under stays inside the download directory
    const QString saved = savedFileName(name);
    QVERIFY(!saved.contains(QLatin1Char('/')));
    QVERIFY(saved != QLatin1String(".") && saved != QLatin1String(".."));
    QCOMPARE(QFileInfo(QStringLiteral("/dl/") + saved).absolutePath(), QStringLiteral("/dl"));

    // the final cleaning of the saved name
    for (const auto &[raw, clean] : {std::pair<const char *, const char *>{"x.jpg;1", "x.jpg"}, {"dir\\sub/name:x.jpg", "x.jpg"}, {"a/..", "_.."}})
        QCOMPARE(savedFileName(QString::fromLatin1(raw)), QString::fromLatin1(clean));
    QCOMPARE(plainFileName(QStringLiteral("a\nb\tc")), QStringLiteral("abc"));
    QVERIFY(plainFileName(QString()).isEmpty());
}

void TestDownloadRules::tempFileNames()
{
    QCOMPARE(tempFileNameFor(0.0), QStringLiteral("100000.tmp"));
    QCOMPARE(tempFileNameFor(0.99999999), QStringLiteral("355995.tmp"));
    QVERIFY(isOwnDownloadTempName(tempFileNameFor(0.5)));
    // drawn again while the name is taken
    QList<double> draws{0.0, 0.0, 0.5};
    int asked = 0;
    const QString n = nextTempFileName([&] { return draws.takeFirst(); },
                                       [&](const QString &name) { ++asked; return name == QLatin1String("100000.tmp"); });
    QCOMPARE(n, tempFileNameFor(0.5));
    QCOMPARE(asked, 3);
}

QTEST_GUILESS_MAIN(TestDownloadRules)
#include "tst_downloadrules.moc"
