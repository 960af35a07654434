// Overview text to grid rows the fast way (one vector pass, plain ASCII rows cut at their tabs,
// the quick date parser, and for odd lines the packed rows made straight from the line) against
// the general way (parse to headers, rowCells, packRow), line by line, with every vector kernel
// the processor runs.
#include "messages/HeaderRows.h"
#include "messages/MessageCache.h"
#include "messages/MessageGrid.h"
#include "messages/OverviewRows.h"
#include "messages/RowArena.h"
#include "messages/RowBuilder.h"
#include "news/transport/NewsMessage.h"
#include "support/ListingOracle.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <random>

using namespace listing;

namespace {

// Dates in the common forms and around them: what the quick parser takes must come out as the
// general rule forms it, and what it declines is left to the general rule.
QList<QByteArray> dateCorpus()
{
    QList<QByteArray> out = {
        "", " ", "garbage", "16-Nov-2003 10:00:00", "5 Dec 2020\xc2\xa0", "5 D\xc3\xa9" "c 2020", "\xe9t\xe9 2020",
        "Wed, 05 Dec 1234567890 10:00:00", "5 Dec 20201 10:00:00", "5 Dec 99999 1:2", "5 Dec 9999 1:2", "5 Dec. 2020 1:2",
        "Fri, 5 Dec 2020 10:00:00 PST8PDT", "GMT", "5 Dec 2020 GM", "5 Dec 2020 EDT", "5 Dec 2020 E", "Sun, 5 Dec 2020 EST,x",
        "+5 Dec 2020 10:00", "5 Dec 2020 10:00:00 +0000 (UTC) and a very long comment that goes past sixty-four bytes",
        "Mon, 23 Nov 2026 07:35:18 -0000 (UTC)", "5,6 Dec 2020", ",5 Dec 2020 +1", "5 Dec 2020 +1, 6 Jan 2021",
        "5 Dec +2020", "5 Dec 2020 1:2:3:4", "5 Dec 2020 :2", "5 Dec 2020 1:", "5 Dec 2020 1::3", "5 Dec 2020 0000000001:2",
        "5 Dec 2020 1234567890:2", "5 Dec 2020 12", "5 @ec 2020", "5 [ec 2020", "5 Dex 2020", "5 De 2020", "0 Dec 2020",
        "32 Dec 2020", "31 dEcEmBeR 2020 23:59:60", "5 Dec 2020 23:59:61", "5 Dec 2020 24:00", "5 Dec 2020 10:60",
        "5\tDec 2020 10:00:00", "5 Dec 2020\t10:00:00", " \t5 Dec 2020 10:00 \r", "5 Dec 2020 10:00 extra",
        "Mon, 1 Jan 70 00:00:00", "Mon, 1 Jan 69 00:00:00", "1 Jan 0 0:0", "1 Jan 00 0:0:0", "1 Jan 000 0:0",
    };
    static const char *days[] = {"", "Mon, ", "Tue,", "WED,  ", "Thu , ", "x,"};
    static const char *dayNums[] = {"1", "01", "9", "10", "31", "001"};
    static const char *months[] = {"Jan", "feb", "MAR", "April", "Mayo", "Jun", "Jul", "Aug", "Sep", "Sept", "Oct", "Nov", "Dec"};
    static const char *years[] = {"2023", "99", "05", "1999", "0", "10000", "1"};
    static const char *times[] = {"", " 07:12:45", " 7:2", " 23:59:60", " 00:00:00", " 1:02:03"};
    static const char *zones[] = {"", " -0500", " +0000 (UTC)", " GMT", " EST", " EDT", " PST", " +0100", " (CET)", "  "};
    std::mt19937 rnd(5);
    for (int i = 0; i < 4000; ++i) {
        QByteArray d = days[rnd() % 6];
        d += dayNums[rnd() % 6];
        d += rnd() % 7 ? " " : "  ";
        d += months[rnd() % 13];
        d += ' ';
        d += years[rnd() % 7];
        d += times[rnd() % 6];
        d += zones[rnd() % 10];
        out.append(d);
    }
    return out;
}

QByteArray arenaText(const RowArena &arena)
{
    QByteArray out;
    for (qsizetype i = 0; i < arena.chunkCount(); ++i)
        out.append(arena.chunk(i).data, arena.chunk(i).used);
    return out;
}

} // namespace

class TstOverviewRows : public QObject {
    Q_OBJECT
private slots:
    void quickDateFormsWhatTheRuleForms()
    {
        int quick = 0;
        const QList<QByteArray> corpus = dateCorpus();
        for (const QByteArray &d : corpus) {
            // the general rule, on text
            const auto forms = formatDate(NormaliseDate(textFromBytes(d)));
            const QByteArray display = forms.first.toUtf8(), sort = forms.second.toUtf8();
            // what follows the date in the buffer must not count: marks the rule looks for
            QByteArray buf = d + QByteArray("-,+GMT EST 1:2 ").repeated(8);
            for (const qsizetype readable : {d.size(), buf.size()}) {
                char dp[10], sp[19];
                quint64 key = 0;
                if (!isAscii(d.constData(), d.size()) ||
                    !OverviewRows::quickDate(buf.constData(), d.size(), readable, dp, sp, key))
                    continue;
                ++quick;
                QCOMPARE(QByteArray(dp, 10), display);
                QCOMPARE(QByteArray(sp, 19), sort);
                const QList<QByteArray> f = sort.split(' ');
                const QList<QByteArray> ymd = f[0].split('/'), hms = f[1].split(':');
                QCOMPARE(key, ListingOrder::dateKey(ymd[0].toInt(), ymd[1].toInt(), ymd[2].toInt(), hms[0].toInt(),
                                                    hms[1].toInt(), hms[2].toInt()));
            }
        }
        QVERIFY2(quick > 4000, qPrintable(QString::number(quick)));
        // the forms news servers write are all taken
        for (const char *d : {"Mon, 16 Nov 2003 21:54:12 -0500", "Mon, 23 Nov 2026 07:35:18 -0000 (UTC)",
                              "23 Nov 2026 07:35:18 +0000 (UTC)", "Sun, 2 Mar 2003 07:05:00 GMT"}) {
            char dp[10], sp[19];
            quint64 key;
            QByteArray buf = QByteArray(d) + QByteArray(64, 'x');
            QVERIFY2(OverviewRows::quickDate(buf.constData(), qsizetype(strlen(d)), buf.size(), dp, sp, key), d);
            QVERIFY(OverviewRows::quickDate(d, qsizetype(strlen(d)), qsizetype(strlen(d)), dp, sp, key));
        }
    }

    void rowsAreTheGeneralRows_data()
    {
        QTest::addColumn<QString>("kernel");
        for (const QString &k : OverviewRows::kernels())
            QTest::newRow(qPrintable(k)) << k;
    }
    void rowsAreTheGeneralRows()
    {
        QFETCH(QString, kernel);
        QVERIFY(OverviewRows::useKernel(kernel));
        const OverviewFormat noPath = OverviewFormat::fromLines({"Subject:", "From:", "Date:", "Message-ID:", "References:",
                                                                ":bytes", ":lines", "Xref:full"});
        const OverviewFormat withPath = OverviewFormat::fromLines({"Subject:", "From:", "Date:", "Message-ID:", "References:",
                                                                  ":bytes", ":lines", "Xref:full", "Path:full", "Author:full"});
        const QList<QByteArray> dates = dateCorpus().mid(0, 300);
        const QList<QByteArray> texts = {"", "plain", "Holiday pictures - \"holiday.part01.rar\" yEnc (1/7)", "caf\xc3\xa9",
                                         "caf\xe9", "del\x7fin", " spaced ", "a:b: c", "x\ry", "<a@b> <c@d>",
                                         "<PARENT.1234567@example.org>", "tab-free but long " + QByteArray(300, 'z'),
                                         "\xef\xbb\xbf" "bom", "\xc3", "5 Dec 2020 10:00\x7f"};
        std::mt19937 rnd(11);
        auto pick = [&](const QList<QByteArray> &l) { return l.at(int(rnd() % l.size())); };
        for (const bool full : {false, true}) {
            const OverviewFormat &fmt = full ? withPath : noPath;
            // the lines as they mean, and the same as the server sends them
            QList<QByteArray> lines;
            QByteArray wire;
            PathMap paths;
            QByteArray lastDates[2];   // posts often repeat one of the last dates: the kept forms
            for (int i = 0; i < 3000; ++i) {
                QByteArray line = QByteArray::number(qint64(rnd() % 100000) * (i % 7 == 0 ? 1000000000LL : 1));
                // odd numbers now and then; the third is more than an article number
                for (const auto &[every, odd] : std::initializer_list<std::pair<int, const char *>>{
                         {97, "12x"}, {89, ".5"}, {101, ""}, {103, "0000123456789012345678"}, {107, "0042"}})
                    if (i % every == 0)
                        line = odd;
                const int fields = int(rnd() % 13);
                for (int f = 0; f < fields; ++f) {
                    line += '\t';
                    QByteArray v = f != 2 ? pick(texts) : rnd() % 3 ? pick(dates) : lastDates[rnd() % 2];
                    if (f == 2 && rnd() % 3 == 0)   // or the last one, a second later: it differs in its last byte only
                        v = "Tue, 5 Dec 2023 10:00:0" + QByteArray::number(i % 10);
                    if (f == 2)
                        lastDates[rnd() % 2] = v;
                    if (full && f >= 7 && rnd() % 3)
                        v = QByteArray(f == 7 ? "Xref: " : f == 8 ? "Path:  " : "Author:") + v;
                    line += v;
                }
                if (!full && rnd() % 2) {
                    bool ok = false;
                    const qint64 n = line.left(line.indexOf('\t')).toLongLong(&ok);
                    if (ok)
                        paths.insert(n, i % 5 ? QByteArray("host!not-for-mail") : pick(texts));
                }
                lines.append(line);
                // a leading dot is taken off any line (the server need not stuff only dotted ones)
                wire += (line.startsWith('.') || i % 53 == 0 ? "." : "") + line + (i % 3 ? "\r\n" : "\n");
            }
            // the general way, line by line: parsed to headers (the Path looked up by number), then
            // the row's cells
            QVector<QByteArray> expected;
            for (const QByteArray &l : lines) {
                NewsTransportArticle a;
                if (!parseOverviewLine(l.constData(), l.size(), fmt, a))
                    continue;
                bool ok = false;
                const QByteArray number = l.left(l.indexOf('\t') < 0 ? l.size() : l.indexOf('\t'));
                const qint64 n = number.toLongLong(&ok);
                if (ok && number.size() <= 19 && !paths.value(n).isEmpty())
                    a.Message.Headers.append(NewsTransportHeader{"Path", textFromBytes(paths.value(n))});
                expected.append(MessageGrid::packRow(rowCells(a.Number, a.Message.Headers)));
            }
            QVERIFY(expected.size() > 2500);
            // the fast way, the text in blocks of whole lines cut at random
            for (int round = 0; round < 3; ++round) {
                RowArena arena;
                ListingOrder order;
                OverviewRows maker(fmt);
                qint64 built = 0;
                for (qsizetype at = 0; at < wire.size();) {
                    qsizetype end = round == 0 ? wire.size() : qMin(wire.size(), at + qsizetype(rnd() % 4000) + 1);
                    end = wire.indexOf('\n', end - 1) + 1;
                    if (end <= 0)
                        end = wire.size();
                    // each block on its own in memory, with nothing readable after it
                    QByteArray block = wire.mid(at, end - at);
                    built += maker.build(block.constData(), block.size(), full ? nullptr : &paths, arena, order);
                    at = end;
                }
                QCOMPARE(built, qint64(expected.size()));
                QByteArray want;
                for (const QByteArray &r : expected)
                    want += r + '\n';
                const QByteArray got = arenaText(arena);
                if (got != want) {   // the first row that differs, for the log
                    const QList<QByteArray> g = got.split('\n'), w = want.split('\n');
                    for (int k = 0; k < qMin(g.size(), w.size()); ++k)
                        QCOMPARE(g[k], w[k]);
                }
                QCOMPARE(got, want);
                // and the order made of what the fast way noted is the grid's sort of those rows
                const QVector<QByteArray> sorted = order.takeSorted(0);
                QVector<QByteArray> stable = expected;
                testlisting::sortAsListed(stable);
                QCOMPARE(sorted, stable);
            }
        }
        QVERIFY(OverviewRows::useKernel(OverviewRows::kernels().first()));
    }

    // One common date form throughout: the order is the radix sort of the dates' numbers, on two
    // threads when the rows are many, with the References (of any length, in any case) deciding
    // between equal dates and the order of arrival between equal References.
    void datedRowsSortByTheirNumbers_data()
    {
        QTest::addColumn<int>("rows");
        QTest::newRow("few") << 20000;
        QTest::newRow("many") << 300000;
    }
    void datedRowsSortByTheirNumbers()
    {
        QFETCH(int, rows);
        const OverviewFormat fmt = OverviewFormat::fromLines({});
        QByteArray wire;
        std::mt19937 rnd(3);
        static const char *refs[] = {"", "", "", "<R1>", "<r1>", "<R2>", "<parent.12345678@example.org>",
                                     "<PARENT.12345678@example.org>", "<parent.12345679@example.org>", "<a@x>",
                                     "<a@x> <b@x>", "<b>"};
        for (int i = 1; i <= rows; ++i) {
            const int s = int(rnd() % 100000);
            wire += QByteArray::number(i) + "\tsubject\tfrom\t" + QByteArray::number(1 + s % 28) + " Mar 20" +
                    QByteArray::number(20 + s % 5) + " " + QByteArray::number(s % 24) + ":" + QByteArray::number(s % 60) +
                    ":00 GMT\t<m@x>\t" + refs[rnd() % std::size(refs)] + "\t1\t1\r\n";
        }
        RowArena arena;
        ListingOrder order;
        OverviewRows maker(fmt);
        QCOMPARE(maker.build(wire.constData(), wire.size(), nullptr, arena, order), qint64(rows));
        const QVector<QByteArray> sorted = order.takeSorted(0);
        QCOMPARE(sorted.size(), rows);
        for (int r = 1; r < sorted.size(); ++r) {
            int c = MessageGrid::cellOf(sorted[r - 1], 6).compare(MessageGrid::cellOf(sorted[r], 6));
            if (c == 0)
                c = MessageGrid::cellOf(sorted[r - 1], 7).compare(MessageGrid::cellOf(sorted[r], 7), Qt::CaseInsensitive);
            if (c == 0)   // then in the order they came
                c = MessageGrid::cellOf(sorted[r], 0).toInt() - MessageGrid::cellOf(sorted[r - 1], 0).toInt();
            if (c <= 0)
                QFAIL(qPrintable(QString::number(r)));
        }
    }

    // Blocks built by the builder's thread and by the reader while it helps come together in the
    // order they came: the same rows, the same order, the same cache file, also when the
    // requested range cuts the rows off in the middle of a block.
    void helpedBuildingKeepsTheOrderOfArrival()
    {
        const OverviewFormat fmt = OverviewFormat::fromLines({});
        QTemporaryDir dir;
        std::mt19937 rnd(9);
        QList<QByteArray> blocks;
        QVector<QByteArray> lines;
        for (int b = 0; b < 60; ++b) {
            QByteArray text;
            for (int i = 0; i < 200; ++i) {
                const int n = b * 200 + i + 1, s = int(rnd() % 5000);
                const QByteArray line = QByteArray::number(n) + "\tsubject " + QByteArray::number(n) + "\tfrom\t" +
                                        QByteArray::number(1 + s % 28) + " Mar 2024 10:" + QByteArray::number(s % 60) +
                                        ":00 GMT\t<m" + QByteArray::number(n) + "@x>\t" + (s % 3 ? "" : "<r@x>") + "\t1\t1";
                lines.append(line);
                text += line + "\r\n";
            }
            blocks.append(text);
        }
        for (const qint64 limit : {qint64(1) << 40, qint64(5555)}) {
            const QString cache = dir.filePath(QStringLiteral("c%1.tmp").arg(limit));
            RowBuilder builder(limit, cache);
            QList<NewsTransport::OverviewText> feed;
            for (const QByteArray &b : blocks)
                feed.append(NewsTransport::OverviewText{b, nullptr});
            builder.feed(feed, fmt);
            int helped = 0;
            while (builder.helpOnce())
                ++helped;
            QVERIFY(helped > 0);
            builder.finish(true);
            QTRY_VERIFY(builder.done());
            const QVector<QByteArray> rows = builder.takeSortedRows();
            // the general way: each line's row, the first ones up to the limit, then the sort
            RowArena arena;
            QVector<QByteArray> expected;
            for (const QByteArray &l : lines) {
                ArenaRow r;
                if (expected.size() < limit && overviewToArena(l.constData(), l.size(), fmt, overviewColumns(fmt), nullptr, 0, arena, r))
                    expected.append(QByteArray(r.row.constData(), r.row.size()));
            }
            QByteArray file;
            for (const QByteArray &r : expected)
                file += r + '\n';
            file += QByteArray(8, MessageGrid::Sep) + '\n';
            testlisting::sortAsListed(expected);
            QCOMPARE(rows.size(), expected.size());
            QVERIFY(rows == expected);
            waitForCacheWrites();
            QFile f(cache);
            QVERIFY(f.open(QIODevice::ReadOnly));
            QVERIFY(f.readAll() == file);
        }
    }
};

QTEST_MAIN(TstOverviewRows)
#include "tst_overview_rows.moc"
