#include "messages/MessageList.h"

#include "app/Wait.h"
#include "app/frmMain.h"
#include "groups/GroupList.h"
#include "messages/ArticleRange.h"
#include "messages/HeaderRows.h"
#include "messages/MessageCache.h"
#include "messages/MessageGrid.h"
#include "messages/RowBuilder.h"
#include "news/transport/NewsTransport.h"
#include "news/Session.h"
#include "ui/ItemList.h"

#include <QAction>
#include <QApplication>
#include <QPointer>
#include <limits>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QListView>
#include <QProgressBar>
#include <QTableView>

MessageList::MessageList(frmMain &main)
    : QObject(&main), m(main)
{
    m.wireCommand(QStringLiteral("menuRefreshM"), [this] {
        if (m.action(QStringLiteral("menuRefreshM"))->isEnabled())
            ListMessages(false);
    });
    m.SetMenuState(52, false);
}

QString MessageList::cacheFile() const
{
    return listing::messageCacheFile(m.S.ServerFileTag, GroupList::CleanNewsGroup(m.S.CurrentGroup).trimmed());
}

void MessageList::fetchRows(NewsTransport &t, const QString &cache)
{
    constexpr qint64 kMaxBacklog = 32 << 20;
    // Rows are built on a thread of their own while the answer streams in, and come to the grid
    // at the end, in the listing's order; meanwhile the status bar and the progress bar count
    // them. The requested range bounds what is listed.
    const qint64 maxRows = nd::ArticleRange{m.S.FirstArticle, m.S.LastArticle}.count();
    QPointer<NewsTransport> tp(&t);
    RowBuilder builder(qMax<qint64>(0, maxRows), cache);
    builder.setWake([] { QMetaObject::invokeMethod(qApp, [] {}, Qt::QueuedConnection); });
    // text to the builder, and the blocks it has spent back to the transport to be filled again
    auto handOver = [&builder, tp](QList<NewsTransport::OverviewText> blocks) {
        if (!tp)
            return;
        for (QByteArray &b : builder.takeSpentBlocks())
            tp->ReturnOverviewBlock(std::move(b));
        builder.feed(std::move(blocks), tp->OverviewFormatInUse());
    };
    auto drainTransport = [&] {
        if (tp)
            handOver(tp->TakeOverviewRecords());
    };
    qint64 shownCount = 0;
    auto showCount = [&] {
        const qint64 built = builder.rowsBuilt();
        if (built == shownCount)
            return;
        shownCount = built;
        m.S.SecondsTick = 0;
        m.progBar->setValue(int(qMin<qint64>(built, m.progBar->maximum())));
        if (built >= 100)
            m.setStatus(2, QStringLiteral("~%1 So Far").arg(built / 100 * 100));
    };
    // This thread builds waiting blocks too, a few milliseconds at a time so the window stays
    // live; while the answer streams, it stops as soon as the server's bytes wait to be read.
    auto helpBuilding = [&](bool whileNoInput) {
        QElapsedTimer helping;
        helping.start();
        while (helping.elapsed() < 4 && (!whileNoInput || (tp && !tp->InputWaiting())) && builder.helpOnce()) {
        }
    };
    t.SetRawOverview(true);
    // full blocks go to the builder as they fill, also in the middle of a long read
    t.SetOverviewSink([&handOver](NewsTransport::OverviewText &&block) {
        QList<NewsTransport::OverviewText> one;
        one.append(std::move(block));
        handOver(std::move(one));
    });
    t.FetchHeaders(m.S.FirstArticle, m.S.LastArticle);
    QElapsedTimer slice, shown;
    slice.start();
    shown.start();
    nd::waitUntil([&] {
        // the reader hands over what came whenever the builder runs short, at least every 20 ms
        if (slice.elapsed() >= 20 || builder.pendingBytes() < (1 << 20)) {
            drainTransport();
            slice.restart();
        }
        // while nothing waits to be read and the builder is behind, this thread builds blocks too
        helpBuilding(true);
        // back-pressure: while the builder is far behind, the server is not read, so what has
        // arrived but is not yet built stays small and Stop ends the listing at once
        if (tp) {
            const qint64 pending = builder.pendingBytes();
            if (pending > kMaxBacklog) {
                tp->SetReadPaused(true);
                builder.wakeBelow(kMaxBacklog / 2);   // nothing else wakes this thread then
            } else if (pending < kMaxBacklog / 2) {
                tp->SetReadPaused(false);
            }
        }
        if (shown.elapsed() >= 250) {
            showCount();
            shown.restart();
        }
        return m.S.TransportError != 0 || m.S.StopRequested || m.S.TransactionDone;
    });
    if (tp)
        tp->SetReadPaused(false);
    if (m.S.StopRequested && tp)
        tp->AbortTransaction();
    m.SetMenuState(4, false);
    // what was fetched is listed, also after Stop; after a failure nothing is, and no cache
    const bool ok = m.S.TransportError == 0;
    if (ok)
        drainTransport();
    if (tp)
        tp->SetRawOverview(false);
    builder.finish(ok);
    // the blocks still waiting are built on this thread too
    nd::waitUntil([&] {
        helpBuilding(false);
        return builder.done();
    });
    if (ok) {
        showCount();
        // the rows, in order, and the empty row that ends the grid (the builder left room for it)
        QVector<QByteArray> rows = builder.takeSortedRows();
        m.S.CurrentRow += int(rows.size());
        rows.append(QByteArray(MessageGrid::Cols - 1, MessageGrid::Sep));
        m.grid->keepArena(builder.arena());
        m.grid->resetRows(std::move(rows));
    } else {
        m.grid->ResizeGrid();
    }
}

bool MessageList::ListMessages(bool useCache)
{
    bool notFetched = true;
    m.Picture1->clear();
    m.lstGroupsView->setEnabled(false);
    m_listing = true;
    m.S.StopRequested = false;
    m.S.TransactionDone = false;
    m.S.TransportError = 0;
    m.setBusy(true);
    m.setStatus(1, QStringLiteral("Reading Message List"));
    m.setStatus(2, QString());
    m.grid->ResizeGrid();
    m.SetMenuState(52, false);
    m.lstMsgBuffer->clear();

    const QString cache = cacheFile();
    NewsSession *s = m.session;
    if (useCache)
        listing::waitForCacheWrites(cache);   // an earlier listing of the group may still be writing it
    if (useCache && QFile::exists(cache)) {
        // read a block at a time, yielding between blocks, so a long list neither freezes the
        // window nor ignores Stop (what was read so far is listed)
        QVector<QByteArray> rows;
        listing::ArenaCacheReader reader(cache);
        QElapsedTimer slice;
        slice.start();
        while (!reader.atEnd() && !m.S.StopRequested) {
            reader.next(rows, 1 << 20);
            if (slice.elapsed() >= 20) {
                if (rows.size() >= 100)
                    m.setStatus(2, QStringLiteral("~%1 So Far").arg(rows.size() / 100 * 100));
                nd::yieldOnce();
                slice.restart();
            }
        }
        // rows with an empty display date at the top are dropped
        qsizetype skip = 0;
        while (skip < rows.size() && MessageGrid::cellView(rows[skip], 1).isEmpty())
            ++skip;
        if (skip == rows.size() && skip > 0)
            --skip;   // keep the last one, as the classic loop stops at three rows
        rows.remove(0, skip);
        const qsizetype listed = rows.size();
        // the rows and the empty row that ends a cache listing (two when there is at most one row)
        rows.append(QByteArray(MessageGrid::Cols - 1, MessageGrid::Sep));
        if (rows.size() < 2)
            rows.append(QByteArray(MessageGrid::Cols - 1, MessageGrid::Sep));
        m.grid->keepArena(reader.arena());
        m.grid->resetRows(std::move(rows));
        if (listed >= 100)
            m.setStatus(2, QStringLiteral("~%1 So Far").arg(listed / 100 * 100));
    } else {
        m.S.TransportError = 0;
        for (const char *scope : {"SG", "CG", "SM", "FA"})
            m.MenuOnOff(QString::fromLatin1(scope), false);
        for (int code : {53, 5, 7, 8, 9, 3})
            m.SetMenuState(code, false);
        if (m.S.StopRequested || m.S.TransportError != 0) {
            m.S.TransportError = -1;
        } else {
            m.setStatus(1, QStringLiteral("Retreiving Message Headers"));
            m.S.TransportError = 0;
            if (!s || !s->transport() || s->transport()->StateText() != QLatin1String("Connected to NNTP Server")) {
                m.S.LastFailureReason = QStringLiteral("No Readable Messages");
                m.progBar->setValue(0);
                for (const char *scope : {"FA", "SS", "SR"})
                    m.MenuOnOff(QString::fromLatin1(scope), true);
                m.SetMenuState(1, true);
                m.setStatus(2, QStringLiteral("Unable to connect"));
                m.S.TransportError = -1;
            } else {
                m.MenuOnOff(QStringLiteral("FA"), true);
                m.MenuOnOff(QStringLiteral("SS"), true);
                m.SetMenuState(1, true);
                m.setStatus(1, QStringLiteral("Selecting Group"));
                m.S.CurrentRow = 1;
                const QString group = GroupList::CleanNewsGroup(m.S.CurrentGroup).trimmed();
                // Stop does not end the selection: only the answer (or the transport's time-out) does
                m.S.TransactionDone = false;
                m.S.TransportError = 0;
                s->transport()->SelectGroup(group);
                nd::waitUntil([&] { return m.S.TransactionDone || m.S.TransportError != 0; });
                if (m.S.TransportError == 0) {
                    const NewsTransportGroup &g = s->transport()->SelectedGroup();
                    const nd::ArticleRange range = nd::ArticleRange::group(g.First, g.Last, m.opt.NewMsgs);
                    m.S.FirstArticle = range.first;
                    m.S.LastArticle = range.last;
                    m.setStatus(1, QStringLiteral("Reading Message List"));
                    m.S.TransactionDone = false;
                    m.S.SecondsTick = 0;
                    const qint64 n = range.count();
                    m.setStatus(2, QStringLiteral("Reading %1 Articles").arg(n));
                    m.SetMenuState(4, true);
                    m.progBar->setRange(0, int(qMin<qint64>(n, 1 << 30)));
                    fetchRows(*s->transport(), cache);
                }
                if (m.S.TransportError == 0) {
                    m.setStatus(2, QString());
                    // the cache is written from the rows as they were built (it ends in the background)
                    if (m.grid->Rows() > 2)
                        m.grid->SetRows(m.grid->Rows() - 1);
                    if (m.grid->Rows() > 1) {
                        // the rows came from the builder already in the listing's order (newest
                        // first by column 6, then 7)
                        m.MSHResults->selectRow(0);
                    }
                    if (m.groups)
                        m.groups->updateGroupMarkerNFavs(m.S.CurrentGroup, m.grid->lastMessageRow());
                    m.setStatus(1, QStringLiteral("Double-click Message to View"));
                    notFetched = !(m.S.TransactionDone && m.grid->lastMessageRow() > 0);
                }
            }
        }
    }

    // ending, for both ways
    m.setStatus(1, m.S.TransportError != 0 ? QStringLiteral("Error Retreiving Message List")
                                           : QStringLiteral("Done Retreiving Message List"));
    if (!m.S.TransactionDone)
        notFetched = true;
    m.UpdateCaption(QStringLiteral("1"));
    m.SetMenuState(3, true);
    if (m.grid->lastMessageRow() == 0) {
        notFetched = true;
        if (m.S.TransportError == 0 && !m.S.StopRequested) {
            m.setStatus(1, QStringLiteral("Sorry, No Messages in This Group"));
            m.S.CurrentGroup.clear();
            m.UpdateCaption(QStringLiteral("2"));
        }
    } else {
        for (int code : {7, 8, 9})
            m.SetMenuState(code, true);
        for (const char *scope : {"SG", "CG", "SM"})
            m.MenuOnOff(QString::fromLatin1(scope), true);
    }
    m.MSHResults->setColumnHidden(0, m.opt.ShowMNumbers == 0);
    m.SetMenuState(5, true);
    if (s && s->transport() && s->transport()->StateText() == QLatin1String("Connected to NNTP Server")) {
        m.MenuOnOff(QStringLiteral("FA"), true);
        m.MenuOnOff(QStringLiteral("SS"), true);
    }
    m.SetMenuState(52, true);
    if (m.S.TransportError == 0)
        m.setStatus(2, QString());
    m.progBar->setValue(0);
    m.setBusy(false);
    m.UpdateCaption(QStringLiteral("5"));
    m_listing = false;
    m.lstGroupsView->setEnabled(true);
    return notFetched;
}
