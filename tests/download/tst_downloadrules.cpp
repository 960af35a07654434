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

} // namespace

class TestDownloadRules : public QObject {
    Q_OBJECT
private slots:
    void markerPositions();
    void completeSetsInPartOrder();
    void singleMessages_data();
    void singleMessages();
    void incompleteSets();
    void oneWordSubjects();
    void unpaddedAndPaddedNumbers();
    void extraLeadingZero();
    void choosesTheRowOfThisPost();
    void uuencodeNames();
    void yencNames();
    void mimeNames();
    void nameLengthLimit();
    void hostileNames_data();
    void hostileNames();
    void tempFileNames();
};

void TestDownloadRules::markerPositions()
{
    const PartMarker m = findPartMarker(QStringLiteral("Holiday pics (03/12)"));
    QVERIFY(m.usable);
    QCOMPARE(m.open, 14);
    QCOMPARE(m.slash, 17);
    QCOMPARE(m.close, 20);
    QCOMPARE(m.part, 3);
    QCOMPARE(m.total, 12);
    // text after the marker and other bracket kinds
    const PartMarker b = findPartMarker(QStringLiteral("x - \"f.bin\" yEnc {7/40} 123456 [abc]"));
    QVERIFY(b.usable);
    QCOMPARE(b.part, 7);
    QCOMPARE(b.total, 40);
    QCOMPARE(b.closing, QChar('}'));
    // brackets 9 apart are no marker; 8 apart are
    QVERIFY(!findPartMarker(QStringLiteral("pics (1234/5678)")).usable);
    QVERIFY(!findPartMarker(QStringLiteral("pics (123/5678)")).usable);
    const PartMarker e = findPartMarker(QStringLiteral("pics (12/5678)"));
    QVERIFY(e.usable);
    QCOMPARE(e.total, 5678);
    // a slash without brackets, and a closing bracket without an opening one
    QVERIFY(!findPartMarker(QStringLiteral("pics 1/5")).usable);
    QVERIFY(!findPartMarker(QStringLiteral("1/5) pics")).usable);
}

void TestDownloadRules::completeSetsInPartOrder()
{
    Rows rows;
    // shuffled order in the grid, other posts around it
    QStringList s = set(QStringLiteral("Holiday pics ("), 12, pad2);
    rows.subjects << QStringLiteral("Other stuff (01/02)") << s.mid(6) << QStringLiteral("unrelated") << s.mid(0, 6);
    int searching = 0;
    const PartSearch r = FindAllParts(QStringLiteral("Holiday pics (03/12)"), rows, {}, [&] { ++searching; });
    QCOMPARE(r.outcome, PartSearch::Complete);
    QCOMPARE(searching, 1);
    QCOMPARE(r.total, 12);
    for (int k = 1; k <= 12; ++k)
        QCOMPARE(rows.subject(r.rows[k]), s[k - 1]);
    QCOMPARE(r.numbers[1], 1000 + r.rows[1]);
    QCOMPARE(rows.marked.size(), 12);
    QVERIFY(!rows.marked.contains(1));   // the other post is untouched

    // two identical posts: every part comes from the upper one
    Rows twice;
    twice.subjects << s << s;
    const PartSearch t = FindAllParts(QStringLiteral("Holiday pics (12/12)"), twice);
    QCOMPARE(t.outcome, PartSearch::Complete);
    for (int k = 1; k <= 12; ++k)
        QCOMPARE(t.rows[k], k);

    // the first word of the subject may differ (it is not part of the search)
    Rows reposted;
    reposted.subjects = set(QStringLiteral("Repost pics ("), 12, pad2);
    QCOMPARE(FindAllParts(QStringLiteral("Holiday pics (01/12)"), reposted).outcome, PartSearch::Complete);
}

void TestDownloadRules::singleMessages_data()
{
    QTest::addColumn<QString>("subject");
    QTest::newRow("1/1") << "Holiday pics (1/1)";
    QTest::newRow("0/5") << "Holiday pics (0/5)";
    QTest::newRow("6/5") << "Holiday pics (6/5)";
    QTest::newRow("no marker") << "Holiday pics";
    QTest::newRow("slash only") << "Holiday pics 3/5";
    QTest::newRow("brackets 9 apart") << "Holiday pics (1234/5678)";
    QTest::newRow("empty") << "";
}

void TestDownloadRules::singleMessages()
{
    QFETCH(QString, subject);
    Rows rows;
    rows.subjects = set(QStringLiteral("Holiday pics ("), 5, plain);
    bool searched = false;
    const PartSearch r = FindAllParts(subject, rows, {}, [&] { searched = true; });
    QCOMPARE(r.outcome, PartSearch::Single);
    QVERIFY(!searched);
    QVERIFY(rows.marked.isEmpty());
}

void TestDownloadRules::incompleteSets()
{
    // part 4 of 6 is missing: parts 1..3 stay marked, nothing after is searched
    Rows rows;
    rows.subjects = set(QStringLiteral("Holiday pics ("), 16, pad2);
    rows.subjects.removeAt(3);
    const PartSearch r = FindAllParts(QStringLiteral("Holiday pics (01/16)"), rows);
    QCOMPARE(r.outcome, PartSearch::Incomplete);
    QCOMPARE(r.missing, 4);
    QCOMPARE(rows.marked, (QSet<int>{1, 2, 3}));

    // no space at all before the marker: nothing to tell the set's rows by
    Rows glued;
    glued.subjects = set(QStringLiteral("pics("), 3, plain);
    QCOMPARE(FindAllParts(QStringLiteral("pics(1/3)"), glued).outcome, PartSearch::Incomplete);
    QVERIFY(glued.marked.isEmpty());

    // Stop before the search: treated as a single message, nothing marked
    Rows stopped;
    stopped.subjects = set(QStringLiteral("Holiday pics ("), 3, plain);
    QCOMPARE(FindAllParts(QStringLiteral("Holiday pics (1/3)"), stopped, [] { return true; }).outcome,
             PartSearch::Single);
    QVERIFY(stopped.marked.isEmpty());
}

void TestDownloadRules::oneWordSubjects()
{
    // one word and the marker: matched on the whole text before the marker, so other posts
    // whose subjects end in the same word are not taken
    Rows rows;
    rows.subjects = set(QStringLiteral("old ceo-uu.dat ("), 12, pad2) + set(QStringLiteral("ceo-uu.dat ("), 12, pad2);
    const PartSearch r = FindAllParts(QStringLiteral("ceo-uu.dat (05/12)"), rows);
    QCOMPARE(r.outcome, PartSearch::Complete);
    QCOMPARE(r.total, 12);
    for (int k = 1; k <= 12; ++k)
        QCOMPARE(r.rows[k], 12 + k);
    QCOMPARE(rows.marked.size(), 12);

    // a part missing is still "Incomplete"
    Rows gap;
    gap.subjects = set(QStringLiteral("pics ("), 3, plain);
    gap.subjects.removeAt(1);
    const PartSearch g = FindAllParts(QStringLiteral("pics (1/3)"), gap);
    QCOMPARE(g.outcome, PartSearch::Incomplete);
    QCOMPARE(g.missing, 2);

    // with a space further left the first word is still dropped
    Rows two;
    two.subjects = set(QStringLiteral("other pics ("), 3, plain);
    QCOMPARE(FindAllParts(QStringLiteral("Holiday pics (1/3)"), two).outcome, PartSearch::Complete);
}

void TestDownloadRules::unpaddedAndPaddedNumbers()
{
    // A set written without leading zeros (as nyuu writes it) is found from any of its rows.
    Rows rows;
    rows.subjects = set(QStringLiteral("[1/1] - \"big.bin\" yEnc ("), 12, plain, QStringLiteral(" 1048576"));
    const PartSearch r = FindAllParts(QStringLiteral("[1/1] - \"big.bin\" yEnc (3/12) 1048576"), rows);
    QCOMPARE(r.outcome, PartSearch::Complete);
    for (int k = 1; k <= 12; ++k)
        QCOMPARE(r.rows[k], k);
    // "(1/12)" must not be taken for "(11/12)" and the like
    Rows mixed;
    mixed.subjects = set(QStringLiteral("a pics ("), 12, plain);
    std::reverse(mixed.subjects.begin(), mixed.subjects.end());
    const PartSearch m = FindAllParts(QStringLiteral("a pics (11/12)"), mixed);
    QCOMPARE(m.outcome, PartSearch::Complete);
    for (int k = 1; k <= 12; ++k)
        QCOMPARE(mixed.subject(m.rows[k]), QStringLiteral("a pics (%1/12)").arg(k));

    // parts padded to the width of the subject's number, wider than the total
    Rows wide;
    wide.subjects = set(QStringLiteral("Holiday pics ("), 6, pad2);
    QCOMPARE(FindAllParts(QStringLiteral("Holiday pics (02/6)"), wide).outcome, PartSearch::Complete);

    // the reverse: an unpadded subject finds padded rows the classic way
    Rows padded;
    padded.subjects = set(QStringLiteral("Holiday pics ("), 12, pad2);
    QCOMPARE(FindAllParts(QStringLiteral("Holiday pics (3/12)"), padded).outcome, PartSearch::Complete);
}

void TestDownloadRules::extraLeadingZero()
{
    Rows rows;
    rows.subjects = set(QStringLiteral("Holiday pics ("), 10,
                        [](int k) { return QString::number(k).rightJustified(3, QLatin1Char('0')); });
    for (QString &s : rows.subjects)
        s.replace(QStringLiteral("/10)"), QStringLiteral("/010)"));
    const PartSearch r = FindAllParts(QStringLiteral("Holiday pics (001/010)"), rows);
    QCOMPARE(r.outcome, PartSearch::Complete);
    QCOMPARE(r.total, 10);
    QCOMPARE(rows.subject(r.rows[1]), QStringLiteral("Holiday pics (001/010)"));
    QCOMPARE(rows.subject(r.rows[10]), QStringLiteral("Holiday pics (010/010)"));
}

void TestDownloadRules::choosesTheRowOfThisPost()
{
    // One post of several files repeating the same marker for each file: the first word differs,
    // so every file's rows hold the candidate; the rows of the subject's own file are taken.
    Rows rows;
    rows.subjects << set(QStringLiteral("[1/2] yEnc ("), 3, plain) << set(QStringLiteral("[2/2] yEnc ("), 3, plain);
    const PartSearch r = FindAllParts(QStringLiteral("[2/2] yEnc (2/3)"), rows);
    QCOMPARE(r.outcome, PartSearch::Complete);
    QCOMPARE(r.rows[1], 4);
    QCOMPARE(r.rows[3], 6);
    QCOMPARE(rows.marked, (QSet<int>{4, 5, 6}));
    // no row equals the subject exactly: the first row holding the candidate, as of old
    Rows other;
    other.subjects << set(QStringLiteral("[1/2] yEnc ("), 3, plain) << set(QStringLiteral("[2/2] yEnc ("), 3, plain);
    const PartSearch o = FindAllParts(QStringLiteral("[3/3] yEnc (2/3)"), other);
    QCOMPARE(o.outcome, PartSearch::Complete);
    QCOMPARE(o.rows[1], 1);
}

void TestDownloadRules::uuencodeNames()
{
    const AttachmentNameResult a = findAttachmentName(QStringLiteral("see this\r\nbegin 644 pic.jpg\r\nM9F]O\r\n`\r\nend\r\n"), false);
    QCOMPARE(a.name, QStringLiteral("pic.jpg"));
    QVERIFY(a.uuencoded);
    QVERIFY(!a.yenc);
    // "Beginners" is passed over; the found name is not searched again
    const AttachmentNameResult b = findAttachmentName(
        QStringLiteral("Beginners guide\r\nbegin 644 beginner.jpg\r\nM9F]O\r\nend\r\n"), false);
    QCOMPARE(b.name, QStringLiteral("beginner.jpg"));
    QVERIFY(b.uuencoded);
    // text in which nothing is found
    const AttachmentNameResult n = findAttachmentName(QStringLiteral("Let us begin here.\r\nNothing else.\r\n"), false);
    QVERIFY(n.name.isEmpty());
    QVERIFY(!n.uuencoded);
    // "begin" at the very end
    QVERIFY(findAttachmentName(QStringLiteral("begin"), false).name.isEmpty());
}

void TestDownloadRules::yencNames()
{
    const AttachmentNameResult a = findAttachmentName(
        QStringLiteral("=ybegin part=1 line=128 size=123456 name=holiday 01.jpg\r\n=ypart begin=1 end=100\r\nxx\r\n"), false);
    QCOMPARE(a.name, QStringLiteral("holiday 01.jpg"));
    QVERIFY(a.yenc);
    // LF line ends
    QCOMPARE(findAttachmentName(QStringLiteral("=ybegin line=128 size=3 name=x.bin\nabc\n=yend size=3\n"), false).name,
             QStringLiteral("x.bin"));
    // a yEnc header without name=: yEnc, but no name
    const AttachmentNameResult n = findAttachmentName(QStringLiteral("=ybegin line=128 size=3\r\nabc\r\n"), false);
    QVERIFY(n.yenc);
    QVERIFY(n.name.isEmpty());
    // "=ybegin" without line= is not yEnc; the uuencode search runs instead
    const AttachmentNameResult u = findAttachmentName(QStringLiteral("=ybegin size=3\r\nbegin 600 u.txt\r\n"), false);
    QVERIFY(!u.yenc);
    QCOMPARE(u.name, QStringLiteral("u.txt"));
}

void TestDownloadRules::mimeNames()
{
    const QString text = QStringLiteral("From: a@b\r\nMIME-Version: 1.0\r\n"
                                        "attachment; filename=\"a:b.jpg\"\r\n\r\n/9j/4AAQ\r\n");
    QCOMPARE(findAttachmentName(text, true).name, QStringLiteral("a_b.jpg"));
    QCOMPARE(findAttachmentName(QStringLiteral("attachment; filename=plain.gif\r\n\r\nR0lG\r\n"), true).name,
             QStringLiteral("plain.gif"));
    // MIME: neither uuencode nor yEnc
    const AttachmentNameResult r = findAttachmentName(QStringLiteral("filename=\"begin 644 x\"\r\n"), true);
    QVERIFY(!r.uuencoded && !r.yenc);
}

void TestDownloadRules::nameLengthLimit()
{
    const QString n120 = QString(116, QLatin1Char('n')) + QStringLiteral(".jpg");
    const QString n121 = QLatin1Char('x') + n120;
    QCOMPARE(findAttachmentName(QStringLiteral("begin 644 ") + n120 + QStringLiteral("\r\n"), false).name, n120);
    QVERIFY(findAttachmentName(QStringLiteral("begin 644 ") + n121 + QStringLiteral("\r\n"), false).name.isEmpty());
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
    QCOMPARE(savedFileName(QStringLiteral("x.jpg;1")), QStringLiteral("x.jpg"));
    QCOMPARE(savedFileName(QStringLiteral("dir\\sub/name:x.jpg")), QStringLiteral("x.jpg"));
    QCOMPARE(savedFileName(QStringLiteral("a/..")), QStringLiteral("_.."));
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
