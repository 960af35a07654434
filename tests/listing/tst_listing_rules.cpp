#include "gui/app/frmMain.h"
#include "groups/GroupList.h"
#include "gui/messages/GridView.h"
#include "messages/GridController.h"
#include "messages/HeaderRows.h"
#include "messages/MessageCache.h"
#include "messages/MessageGrid.h"
#include "messages/RowArena.h"
#include "messages/RowBuilder.h"
#include "news/transport/NewsMessage.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"
#include "support/TextFile.h"

#include <QFile>
#include <QTableView>
#include <QTemporaryDir>
#include <QtTest>
#include <algorithm>
#include <random>

using namespace listing;

class TstListingRules : public QObject {
    Q_OBJECT
private slots:
    void keptMemoryIsSplitAndJoined();
    void normaliseDateTable_data()
    {
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("cleaned");
        QTest::addColumn<QString>("display");
        QTest::addColumn<QString>("sort");
        QTest::newRow("minus") << "Mon, 16 Nov 2003 21:54:12 -0500" << "16 Nov 2003 21:54:12" << "11/16/2003" << "2003/11/16 21:54:12";
        QTest::newRow("gmt") << "Sun, 2 Mar 2003 07:05:00 GMT" << "2 Mar 2003 07:05:00" << "03/02/2003" << "2003/03/02 07:05:00";
        QTest::newRow("plus") << "2 Mar 2003 07:05:00 +0100" << "2 Mar 2003 07:05:00" << "03/02/2003" << "2003/03/02 07:05:00";
        QTest::newRow("est") << "Tue, 1 Apr 2003 10:00:00 EST" << "1 Apr 2003 10:00:00" << "04/01/2003" << "2003/04/01 10:00:00";
        QTest::newRow("garbage") << "garbage" << "garbage" << "garbage" << "garbage";
        QTest::newRow("dashes") << "16-Nov-2003 10:00:00" << "16" << "16" << "16";
        QTest::newRow("double spaces") << "Mon,  3 Mar 2003 10:00:00 -0800" << "3 Mar 2003 10:00:00" << "03/03/2003" << "2003/03/03 10:00:00";
        QTest::newRow("inn utc") << "Mon, 23 Nov 2026 07:35:18 -0000 (UTC)" << "23 Nov 2026 07:35:18" << "11/23/2026" << "2026/11/23 07:35:18";
        QTest::newRow("three spaces become two") << "a   b" << "a  b" << "a  b" << "a  b";
    }
    void normaliseDateTable()
    {
        QFETCH(QString, raw);
        QFETCH(QString, cleaned);
        QFETCH(QString, display);
        QFETCH(QString, sort);
        QCOMPARE(NormaliseDate(raw), cleaned);
        const auto f = formatDate(NormaliseDate(raw));
        QCOMPARE(f.first, display);
        QCOMPARE(f.second, sort);
    }

    void recordRules()
    {
        const QList<NewsTransportHeader> h = {
            {"Subject", "first"}, {"from", "lower case is ignored"}, {"From", "A <a@example.org>"},
            {"Author", "B <b@example.org>"}, {"Subject", "second wins"}, {"Message-ID", "<id@x>"},
            {"Path", "a!b"}, {"References", "<r@x>"}, {"Xref", "ignored"}};
        const QStringList c = rowCells(42, h);
        QCOMPARE(c.size(), 9);
        // no Date, so the row sorts by its Message-ID
        QCOMPARE(c.mid(0, 8), (QStringList{"42", "", "second wins", "B <b@example.org>", "a!b", "<id@x>", "<id@x>", "<r@x>"}));
        QCOMPARE(rowCells(7, {})[6], QString());
    }

    // The message rows of a cache file's text, line by line: what a reader must give.
    static QVector<QByteArray> cacheRows(const QByteArray &text)
    {
        QVector<QByteArray> rows;
        for (QByteArray line : text.split('\n')) {
            if (line.endsWith('\r'))
                line.chop(1);
            if (!line.isEmpty() && line[0] != '\x7f')
                rows.append(cacheLineToRow(line));
        }
        return rows;
    }
    static QVector<QByteArray> readInBlocks(const QString &path, qint64 block)
    {
        ArenaCacheReader r(path);
        QVector<QByteArray> rows;
        while (!r.atEnd())
            r.next(rows, block);
        return rows;
    }

    void cacheLinesRoundTripAndSkipNonMessages()
    {
        // a cache file as a listing writes it: the eight cells each followed by 0x7F, then the
        // empty row that ends the listing
        QTemporaryDir dir;
        const QString path = dir.filePath("cache.tmp");
        QVERIFY(testfile::writeFile(path, "10\x7f" "11/16/2003\x7fsubj \xc3\xa4\x7f" "from\x7fpath\x7f<id>\x7f"
                                          "2003/11/16 21:54:12\x7f<ref>\x7f\n11\x7f\x7fno date\x7f\x7f\x7f<x>\x7f<x>\x7f\x7f\n" +
                                              QByteArray(8, '\x7f') + "\n"));
        const QVector<QByteArray> rows = readInBlocks(path, 1 << 20);
        QCOMPARE(rows.size(), 2);
        QCOMPARE(MessageGrid::cellOf(rows[0], 2), QByteArray("subj \xc3\xa4"));
        QCOMPARE(MessageGrid::cellOf(rows[0], 7), QByteArray("<ref>"));
        QCOMPARE(MessageGrid::cellOf(rows[0], 8), QByteArray());   // the mark is not cached
        QCOMPARE(MessageGrid::cellOf(rows[1], 6), QByteArray("<x>"));
        // read in blocks that end inside lines and between CR and LF: the same rows
        QByteArray text;
        for (int i = 1; i <= 50; ++i)
            text += QByteArray::number(i) + "\x7f" "d\x7fsubject " + QByteArray::number(i) + "\x7f\r\n" + (i % 7 ? "" : "\x7f\x7f\r\n");
        text += "51\x7f" "d\x7flast line without end";
        QVERIFY(testfile::writeFile(dir.filePath("crlf.tmp"), text));
        QVector<QByteArray> whole = cacheRows(text);
        QCOMPARE(whole.size(), 51);
        QCOMPARE(MessageGrid::cellOf(whole.last(), 2), QByteArray("last line without end"));
        for (int block : {1, 2, 3, 7, 64})
            QCOMPARE(readInBlocks(dir.filePath("crlf.tmp"), block), whole);
        // rows kept in place and rows put into form agree, also for lines of other forms (too
        // few cells, too many, no 0x7F at the end) and blocks ending anywhere
        text = "7\x7f" "d\x7fs\x7f" "f\x7fp\x7fid\x7fsort\x7fref\x7f\n" + text.left(text.size() - 5) +
               "\n8\x7f" "a\x7f" "b\x7f" "c\x7f" "d\x7f" "e\x7f" "f\x7f" "g\x7fextra\x7fmore\x7f\n9\x7f" "d\x7fno end mark\n\n10\x7f";
        QVERIFY(testfile::writeFile(dir.filePath("crlf.tmp"), text));
        whole = cacheRows(text);
        QCOMPARE(whole.size(), 55);
        for (int block : {1, 2, 3, 7, 64, 1 << 20})
            QCOMPARE(readInBlocks(dir.filePath("crlf.tmp"), block), whole);
    }

    // The listing's sort (keys first, whole cells on equal keys) against a plain stable sort of the
    // cell texts, both directions, with and without case, with ties, prefixes and non-ASCII bytes.
    void keyedSortIsTheStableTextSort()
    {
        std::mt19937 rnd(11);
        const QByteArray alphabet("aAbBzZ09 /:_\xe9\xc9\xc3\x80\x00", 17);
        for (int round = 0; round < 8; ++round) {
            const Qt::CaseSensitivity cs = round % 2 ? Qt::CaseInsensitive : Qt::CaseSensitive;
            const bool ascending = (round / 2) % 2;
            const bool second = round / 4;
            MessageGrid g;
            g.SetRows(1);
            QVector<QByteArray> rows;
            for (int i = 0; i < 2000; ++i) {
                QByteArray a = i % 3 ? QByteArray("2003/11/16 21:54") : QByteArray();
                const int len = int(rnd() % 6);
                for (int k = 0; k < len; ++k)
                    a += alphabet.at(int(rnd() % alphabet.size()));
                QByteArray b;
                b += alphabet.at(int(rnd() % 4));
                QByteArray row = QByteArray::number(i) + QByteArray(6, MessageGrid::Sep);
                row += a + MessageGrid::Sep + b + MessageGrid::Sep;
                rows.append(row);
            }
            g.appendRows(rows);
            QVector<QByteArray> expected = rows;
            std::stable_sort(expected.begin(), expected.end(), [&](const QByteArray &x, const QByteArray &y) {
                int c = MessageGrid::cellOf(x, 6).compare(MessageGrid::cellOf(y, 6), cs);
                if (c == 0 && second)
                    c = MessageGrid::cellOf(x, 7).compare(MessageGrid::cellOf(y, 7), cs);
                return ascending ? c < 0 : c > 0;
            });
            g.sortRows(6, ascending, second ? 7 : -1, cs);
            for (int r = 0; r < expected.size(); ++r)
                QCOMPARE(g.packedRow(r + 1), expected[r]);
        }
    }

    void cleanNewsGroupAndItems()
    {
        QCOMPARE(GroupList::CleanNewsGroup(ItemList::marked('1', "alt.test (12)")), QStringLiteral("alt.test"));
        QCOMPARE(GroupList::CleanNewsGroup("alt.test (0)"), QStringLiteral("alt.test"));
        QCOMPARE(GroupList::groupItem("a.b", 1, 1), QStringLiteral("a.b (0)"));
        QCOMPARE(GroupList::groupItem("a.b", 5, 17), ItemList::marked('1', "a.b (12)"));
    }

    void headingSortTogglesAndFindLooksAtFourColumns()
    {
        ScriptedPrompter p;
        frmMain w(&p, frmMain::Options{true});
        GridController *gc = w.gridControl;
        GridView *gv = w.findChild<GridView *>();
        // an empty grid: nothing to sort
        gc->headingClicked(2);
        QCOMPARE(w.grid->Rows(), 2);
        w.grid->SetRows(1);
        w.grid->appendRow({"99", "01/02/2003", "Beta date", "x@y", "only.in.path", "<only-in-id>", "2003/01/02 00:00:00", ""});
        w.grid->appendRow({"100", "01/01/2003", "alpha", "DATE keeper <d@y>", "p", "<i>", "2003/01/01 00:00:00", ""});
        w.grid->appendRow({"5", "02/01/2003", "gamma", "z@y", "p", "<j>", "2003/02/01 00:00:00", ""});
        w.show();
        // the click on the empty grid already made the order ascending: this one is descending
        gc->headingClicked(0);   // as text: 99, 5, 100
        QCOMPARE(w.grid->cell(1, 0), QStringLiteral("99"));
        QCOMPARE(w.grid->cell(3, 0), QStringLiteral("100"));
        gc->headingClicked(2);   // ascending on any column, ignoring case
        QCOMPARE(w.grid->cell(1, 2), QStringLiteral("alpha"));
        QCOMPARE(w.grid->cell(2, 2), QStringLiteral("Beta date"));
        gc->headingClicked(2);   // descending again
        QCOMPARE(w.grid->cell(1, 2), QStringLiteral("gamma"));
        gc->headingClicked(0);   // ascending: 100, 5, 99
        QCOMPARE(w.grid->cell(1, 0), QStringLiteral("100"));
        QCOMPARE(w.grid->cell(3, 0), QStringLiteral("99"));

        w.MSHResults->setFocus();
        // rows now: 100 (sender DATE keeper), 5, 99 (subject Beta date)
        QVERIFY(gv->FindText("date", true));
        QCOMPARE(gc->currentRow(), 1);
        QVERIFY(gv->FindText("date", false));
        QCOMPARE(gc->currentRow(), 3);
        p.clear();
        QVERIFY(!gv->FindText("date", false));
        QCOMPARE(p.texts(), QStringList{"Not Found"});
        QVERIFY(!gv->FindText("only.in.path", true));
        QVERIFY(!gv->FindText("only-in-id", true));
    }
};

// Memory let go is reused whatever sizes come next: a large piece serves smaller requests, and
// the pieces, given back, serve a large one again, without a fresh mapping.
void TstListingRules::keptMemoryIsSplitAndJoined()
{
    RowArena::releaseKept();
    constexpr qsizetype MiB = 1 << 20;
    const auto big = RowArena::allocChunk(48 * MiB);
    QCOMPARE(big.second, 48 * MiB);
    std::memset(big.first, 1, size_t(big.second));
    RowArena::freeChunk(big.first, big.second);
    QCOMPARE(RowArena::keptBytes(), 48 * MiB);
    // three smaller requests (one rounded up to whole huge pages) come out of it
    std::vector<std::pair<char *, qsizetype>> parts;
    for (qsizetype want : {8 * MiB, 16 * MiB, 7 * MiB}) {
        parts.push_back(RowArena::allocChunk(want));
        QVERIFY(parts.back().second >= want);
        QVERIFY(parts.back().first >= big.first && parts.back().first + parts.back().second <= big.first + big.second);
    }
    QCOMPARE(RowArena::keptBytes(), 16 * MiB);
    // given back in any order, they join up again
    RowArena::freeChunk(parts[1].first, parts[1].second);
    RowArena::freeChunk(parts[0].first, parts[0].second);
    RowArena::freeChunk(parts[2].first, parts[2].second);
    QCOMPARE(RowArena::keptBytes(), 48 * MiB);
    const auto again = RowArena::allocChunk(48 * MiB);
    QCOMPARE(quintptr(again.first), quintptr(big.first));
    QCOMPARE(RowArena::keptBytes(), qsizetype(0));
    RowArena::freeChunk(again.first, again.second);
    RowArena::releaseKept();
    QCOMPARE(RowArena::keptBytes(), qsizetype(0));
}

QTEST_MAIN(TstListingRules)
#include "tst_listing_rules.moc"
