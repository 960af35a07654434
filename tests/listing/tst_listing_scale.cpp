// Listing on scripted servers: Stop ends a long listing early, the rows built aside are exactly
// those of the general way (also with the Path fetched apart), a failure lists nothing.
#include "gui/app/frmMain.h"
#include "messages/HeaderRows.h"
#include "messages/MessageCache.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "news/transport/NewsMessage.h"
#include "support/ListingOracle.h"
#include "support/ScriptedNntpServer.h"
#include "ui/Prompter.h"

#include <QFile>
#include <QTimer>
#include <QtTest>

namespace {

QByteArray overLine(qint64 n)
{
    const QByteArray num = QByteArray::number(n);
    // dates out of order, some without a date, some non-ASCII, some replies
    const int day = int(n * 7 % 28) + 1, hour = int(n * 13 % 24);
    QByteArray date = n % 11 == 0 ? QByteArray() : "Tue, " + QByteArray::number(day) + " Mar 2026 " +
                                                      QByteArray::number(hour) + ":0" + QByteArray::number(n % 10) + ":00 -0100";
    return num + "\tSubject " + num + (n % 5 == 0 ? " caf\xc3\xa9" : "") + "\tPoster <p" + QByteArray::number(n % 9) +
           "@example.org>\t" + date + "\t<m" + num + "@example.org>\t" + (n % 4 == 0 ? "<parent@example.org>" : "") +
           "\t1000\t10\tXref: h g:" + num;
}

}  // namespace

class TstListingScale : public QObject {
    Q_OBJECT

    struct Fixture {
        ScriptedNntpServer srv;
        ScriptedPrompter p;
        frmMain w{&p, frmMain::Options{true}};
        qint64 rows = 0;
        bool withHdr = false;       // HDR Path answers the Path the format lacks
        qint64 dropAfter = -1;      // close the connection after this many rows
        // paced sending of the OVER answer
        qint64 sent = 0, last = 0;
        int perTick = 0;
        QTimer pump;
        Fixture()
        {
            w.opt.NNTPServer = srv.address();
            w.opt.Timeout = 30;
            w.opt.NewMsgs = 0;
            srv.respond = [this, base = srv.respond](const QByteArray &cmd) -> QByteArray {
                const QList<QByteArray> f = cmd.split(' ');
                if (f[0] == "GROUP")
                    return "211 " + QByteArray::number(rows) + " 1 " + QByteArray::number(rows) + " " + f.value(1) + "\r\n";
                if (cmd == "LIST OVERVIEW.FMT")
                    return withHdr ? "215 fmt\r\nSubject:\r\nFrom:\r\nDate:\r\nMessage-ID:\r\nReferences:\r\n:bytes\r\n:lines\r\nXref:full\r\n.\r\n"
                                   : "500 no\r\n";
                if (f[0] == "HDR" || f[0] == "XHDR") {
                    if (!withHdr)
                        return "500 no\r\n";
                    QByteArray out = "225 Path follows\r\n";
                    const QList<QByteArray> r = f.value(2).split('-');
                    for (qint64 n = r.value(0).toLongLong(); n <= r.value(1).toLongLong(); ++n)
                        if (n % 3)
                            out += QByteArray::number(n) + " host" + QByteArray::number(n % 4) + "!not-for-mail\r\n";
                    return out + ".\r\n";
                }
                if (f[0] == "OVER") {
                    const QList<QByteArray> r = f.value(1).split('-');
                    sent = r.value(0).toLongLong();
                    last = r.value(1).toLongLong();
                    if (perTick <= 0) {
                        QByteArray out = "224 follows\r\n";
                        for (qint64 n = sent; n <= last; ++n)
                            out += overLine(n) + "\r\n";
                        return out + ".\r\n";
                    }
                    pump.start(10);
                    return "224 follows\r\n";
                }
                return base(cmd);
            };
            QObject::connect(&pump, &QTimer::timeout, &pump, [this] {
                QTcpSocket *s = srv.sockets.isEmpty() ? nullptr : srv.sockets.last().data();
                if (!s || s->state() != QAbstractSocket::ConnectedState) {
                    pump.stop();
                    return;
                }
                QByteArray out;
                for (int i = 0; i < perTick && sent <= last; ++i, ++sent) {
                    if (sent == dropAfter) {
                        s->write(out);
                        s->flush();
                        s->abort();
                        pump.stop();
                        return;
                    }
                    out += overLine(sent) + "\r\n";
                }
                if (sent > last) {
                    out += ".\r\n";
                    pump.stop();
                }
                s->write(out);
            });
            w.session->NNTP_Connect(false);
            w.S.CurrentGroup = QStringLiteral("alt.binaries.scale");
        }
        QStringList cacheLines() const
        {
            listing::waitForCacheWrites();
            QFile f(w.messages->cacheFile());
            if (!f.open(QIODevice::ReadOnly))
                return {};
            return QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        }
        bool sortedNewestFirst() const
        {
            QVector<QByteArray> rows;
            for (int r = 1; r <= w.grid->lastMessageRow(); ++r)
                rows.append(w.grid->packedRow(r));
            QVector<QByteArray> sorted = rows;
            testlisting::sortAsListed(sorted);
            return rows == sorted;
        }
    };

private slots:
    void stopEndsALongListing()
    {
        Fixture x;
        x.rows = 400000;
        x.perTick = 2000;   // about two seconds of sending at full pace
        QVERIFY(x.w.IsConnectedIdle(false));
        QTimer::singleShot(300, &x.w, [&x] { x.w.StopOperation(); });
        x.w.messages->ListMessages(false);
        // it ended long before the server had sent everything, with what had come so far
        QVERIFY2(x.sent < x.rows / 2, qPrintable(QString::number(x.sent)));
        const int listed = x.w.grid->lastMessageRow();
        QVERIFY(listed > 0);
        QVERIFY(listed < x.sent);
        QCOMPARE(x.w.grid->Rows(), listed + 1);
        QVERIFY(x.sortedNewestFirst());
        // saved in the order it came, with the empty last line
        const QStringList lines = x.cacheLines();
        QCOMPARE(lines.size(), listed + 1);
        QVERIFY(lines.first().startsWith(QStringLiteral("1\x7f")));
        QCOMPARE(lines.last(), QString(8, QChar(0x7f)));
        QVERIFY(!x.w.messages->listingInProgress());
        // the session is still usable: a second listing runs to its end
        x.perTick = 0;
        x.rows = 3000;
        QVERIFY(x.w.messages->ListMessages(false) == false);
        QCOMPARE(x.w.grid->lastMessageRow(), 3000);
    }

    void rowsAsTheGeneralWayMakesThem_data()
    {
        QTest::addColumn<bool>("withHdr");
        QTest::newRow("Path fetched apart") << true;
        QTest::newRow("no Path at all (no HDR)") << false;
    }
    void rowsAsTheGeneralWayMakesThem()
    {
        QFETCH(bool, withHdr);
        Fixture x;
        x.rows = 12000;   // more than one HDR chunk
        x.withHdr = withHdr;
        QVERIFY(!x.w.messages->ListMessages(false));
        const OverviewFormat fmt = withHdr ? OverviewFormat::fromLines({"Subject:", "From:", "Date:", "Message-ID:", "References:",
                                                                        ":bytes", ":lines", "Xref:full"})
                                           : OverviewFormat::fromLines({});
        QVector<QByteArray> expected;
        for (qint64 n = 1; n <= x.rows; ++n) {
            const QByteArray line = overLine(n);
            NewsTransportArticle a;
            QVERIFY(parseOverviewLine(line.constData(), line.size(), fmt, a));
            if (withHdr && n % 3)
                a.Message.Headers.append({QStringLiteral("Path"), QStringLiteral("host%1!not-for-mail").arg(n % 4)});
            expected.append(MessageGrid::packRow(listing::rowCells(a.Number, a.Message.Headers)));
        }
        // the cache keeps the order of arrival
        const QStringList lines = x.cacheLines();
        QCOMPARE(lines.size(), int(x.rows) + 1);
        for (int i = 0; i < 5; ++i)
            QCOMPARE(lines[i * 1999].toUtf8() + QByteArray(1, '\x7f'), expected[i * 1999] + '\x7f');
        testlisting::sortAsListed(expected);
        QCOMPARE(x.w.grid->Rows(), int(x.rows) + 1);
        for (int r = 1; r <= x.rows; ++r)
            QCOMPARE(x.w.grid->packedRow(r), expected[r - 1]);
        int withPath = 0;
        for (int r = 1; r <= x.rows; ++r)
            withPath += !x.w.grid->cell(r, 4).isEmpty();
        QCOMPARE(withPath, withHdr ? int(x.rows - x.rows / 3) : 0);
    }

    void aBrokenAnswerListsNothing()
    {
        Fixture x;
        x.rows = 50000;
        x.perTick = 5000;
        x.dropAfter = 20000;
        QFile::remove(x.w.messages->cacheFile());
        x.w.messages->ListMessages(false);
        QVERIFY(x.w.S.TransportError != 0);
        QCOMPARE(x.w.grid->lastMessageRow(), 0);
        QCOMPARE(x.w.grid->Rows(), 2);
        listing::waitForCacheWrites();
        QVERIFY(!QFile::exists(x.w.messages->cacheFile()));
    }
};

QTEST_MAIN(TstListingScale)
#include "tst_listing_scale.moc"
