#include "messages/MessageList.h"

#include "app/Shell.h"
#include "app/Wait.h"
#include "groups/GroupList.h"
#include "messages/ArticleRange.h"
#include "messages/HeaderRows.h"
#include "messages/MessageCache.h"
#include "messages/MessageGrid.h"
#include "messages/RowBuilder.h"
#include "news/Session.h"
#include "news/transport/NewsTransport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QItemSelectionModel>
#include <QPointer>
#include <limits>

MessageList::MessageList(Shell &shell, NewsSession &newsSession, MessageGrid &messageGrid,
                         QItemSelectionModel &selection, QObject *parent)
    : QObject(parent), sh(shell), session(newsSession), grid(messageGrid), gridSelection(selection)
{
    sh.wireCommand(QStringLiteral("menuRefreshM"), [this] {
        if (sh.menuState(nd::Cmd::RefreshMessages))
            ListMessages(false);
    });
    sh.SetMenuState(nd::Cmd::RefreshMessages, false);
}

QString MessageList::cacheFile() const
{
    return listing::messageCacheFile(sh.S.ServerFileTag, GroupList::CleanNewsGroup(sh.S.CurrentGroup).trimmed());
}

namespace {

constexpr qint64 kMaxBacklog = 32 << 20;

// What goes between the transport and the row builder while an overview answer streams in: the
// text handed over, blocks given back for reuse, this thread's share of the building, the
// back-pressure on the reader, and the count shown on the status and progress bars.
class RowFeed {
public:
    RowFeed(RowBuilder &builder, Shell &sh) : builder(builder), sh(sh)
    {
        slice.start();
        shown.start();
    }

    // Starts the listing on the transport; full blocks go to the builder as they fill, also in
    // the middle of a long read.
    void start(NewsTransport *t, qint64 first, qint64 last)
    {
        tp = t;
        t->SetRawOverview(true);
        t->SetOverviewSink([this](NewsTransport::OverviewText &&block) {
            QList<NewsTransport::OverviewText> one;
            one.append(std::move(block));
            handOver(std::move(one));
        });
        t->FetchHeaders(first, last);
    }

    // Each wake of the wait for the answer.
    void step()
    {
        // the reader hands over what came whenever the builder runs short, at least every 20 ms
        if (slice.elapsed() >= 20 || builder.pendingBytes() < (1 << 20)) {
            drain();
            slice.restart();
        }
        // while nothing waits to be read and the builder is behind, this thread builds blocks too
        help(true);
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
    }

    // The answer is over (or stopped, or failed): the transport back to normal, what it still
    // holds to the builder when it is listed, and the waiting blocks built here too.
    void finish(bool listed)
    {
        if (tp)
            tp->SetReadPaused(false);
        if (sh.S.StopRequested && tp)
            tp->AbortTransaction();
        sh.SetMenuState(nd::Cmd::Stop, false);
        if (listed)
            drain();
        if (tp)
            tp->SetRawOverview(false);
        builder.finish(listed);
        nd::waitUntil([this] {
            help(false);
            return builder.done();
        });
    }

    void showCount()
    {
        const qint64 built = builder.rowsBuilt();
        if (built == shownCount)
            return;
        shownCount = built;
        sh.S.SecondsTick = 0;
        sh.setProgress(int(qMin<qint64>(built, sh.progressMaximum())));
        if (built >= 100)
            sh.setStatus(nd::PanelDetail, QStringLiteral("~%1 So Far").arg(built / 100 * 100));
    }

private:
    // text to the builder, and the blocks it has spent back to the transport to be filled again
    void handOver(QList<NewsTransport::OverviewText> blocks)
    {
        if (!tp)
            return;
        for (QByteArray &b : builder.takeSpentBlocks())
            tp->ReturnOverviewBlock(std::move(b));
        builder.feed(std::move(blocks), tp->OverviewFormatInUse());
    }
    void drain()
    {
        if (tp)
            handOver(tp->TakeOverviewRecords());
    }
    // This thread builds waiting blocks too, a few milliseconds at a time so the window stays
    // live; while the answer streams, it stops as soon as the server's bytes wait to be read.
    void help(bool whileNoInput)
    {
        QElapsedTimer helping;
        helping.start();
        while (helping.elapsed() < 4 && (!whileNoInput || (tp && !tp->InputWaiting())) && builder.helpOnce()) {
        }
    }

    RowBuilder &builder;
    Shell &sh;
    QPointer<NewsTransport> tp;
    QElapsedTimer slice, shown;
    qint64 shownCount = 0;
};

} // namespace

TransactionResult MessageList::fetchRows(const QString &cache)
{
    // Rows are built on a thread of their own while the answer streams in, and come to the grid
    // at the end, in the listing's order; meanwhile the status bar and the progress bar count
    // them. The requested range bounds what is listed.
    const qint64 maxRows = nd::ArticleRange{sh.S.FirstArticle, sh.S.LastArticle}.count();
    RowBuilder builder(qMax<qint64>(0, maxRows), cache);
    builder.setWake([] { QMetaObject::invokeMethod(QCoreApplication::instance(), [] {}, Qt::QueuedConnection); });
    RowFeed feed(builder, sh);
    const qint64 first = sh.S.FirstArticle, last = sh.S.LastArticle;
    const TransactionResult result =
        session.runTransaction([&](NewsTransport *t) { feed.start(t, first, last); }, [&feed] { feed.step(); });
    // what was fetched is listed, also after Stop; after a failure nothing is, and no cache
    const bool ok = result.outcome != TransactionResult::Outcome::Failed;
    feed.finish(ok);
    if (ok) {
        feed.showCount();
        // the rows, in order, and the empty row that ends the grid (the builder left room for it)
        QVector<QByteArray> rows = builder.takeSortedRows();
        sh.S.CurrentRow += int(rows.size());
        rows.append(QByteArray(MessageGrid::Cols - 1, MessageGrid::Sep));
        grid.keepArena(builder.arena());
        grid.resetRows(std::move(rows));
    } else {
        grid.ResizeGrid();
    }
    return result;
}

void MessageList::listFromCache(const QString &cache)
{
    // read a block at a time, yielding between blocks, so a long list neither freezes the
    // window nor ignores Stop (what was read so far is listed)
    QVector<QByteArray> rows;
    listing::ArenaCacheReader reader(cache);
    QElapsedTimer slice;
    slice.start();
    while (!reader.atEnd() && !sh.S.StopRequested) {
        reader.next(rows, 1 << 20);
        if (slice.elapsed() >= 20) {
            if (rows.size() >= 100)
                sh.setStatus(nd::PanelDetail, QStringLiteral("~%1 So Far").arg(rows.size() / 100 * 100));
            nd::yieldOnce();
            slice.restart();
        }
    }
    // rows with an empty display date at the top are dropped
    qsizetype skip = 0;
    while (skip < rows.size() && MessageGrid::cellView(rows[skip], MessageGrid::ColDate).isEmpty())
        ++skip;
    if (skip == rows.size() && skip > 0)
        --skip;   // keep the last one, as the classic loop stops at three rows
    rows.remove(0, skip);
    const qsizetype listed = rows.size();
    // the rows and the empty row that ends a cache listing (two when there is at most one row)
    rows.append(QByteArray(MessageGrid::Cols - 1, MessageGrid::Sep));
    if (rows.size() < 2)
        rows.append(QByteArray(MessageGrid::Cols - 1, MessageGrid::Sep));
    grid.keepArena(reader.arena());
    grid.resetRows(std::move(rows));
    if (listed >= 100)
        sh.setStatus(nd::PanelDetail, QStringLiteral("~%1 So Far").arg(listed / 100 * 100));
}

TransactionResult MessageList::selectGroup()
{
    sh.MenuOnOff(nd::Scope::Favorites, true);
    sh.MenuOnOff(nd::Scope::SelectedServers, true);
    sh.SetMenuState(nd::Cmd::Setup, true);
    sh.setStatus(nd::PanelState, QStringLiteral("Selecting Group"));
    sh.S.CurrentRow = 1;
    const QString group = GroupList::CleanNewsGroup(sh.S.CurrentGroup).trimmed();
    const TransactionResult r = session.runTransaction([group](NewsTransport *t) { t->SelectGroup(group); });
    if (!r.ok() || !session.transport())
        return r;
    const NewsTransportGroup &g = session.transport()->SelectedGroup();
    const nd::ArticleRange range = nd::ArticleRange::group(g.First, g.Last, sh.opt.NewMsgs);
    sh.S.FirstArticle = range.first;
    sh.S.LastArticle = range.last;
    return r;
}

// The rows of the selected range from the server; Stop lists what came so far.
TransactionResult MessageList::fetchSelectedRange(const QString &cache)
{
    sh.setStatus(nd::PanelState, QStringLiteral("Reading Message List"));
    sh.S.SecondsTick = 0;
    const qint64 n = nd::ArticleRange{sh.S.FirstArticle, sh.S.LastArticle}.count();
    sh.setStatus(nd::PanelDetail, QStringLiteral("Reading %1 Articles").arg(n));
    sh.SetMenuState(nd::Cmd::Stop, true);
    sh.setProgressRange(0, int(qMin<qint64>(n, 1 << 30)));
    return fetchRows(cache);
}

// The grid is filled: the first row selected, the group's item told its count.
void MessageList::showFetchedRows()
{
    sh.setStatus(nd::PanelDetail, QString());
    // the cache is written from the rows as they were built (it ends in the background)
    if (grid.Rows() > 2)
        grid.SetRows(grid.Rows() - 1);
    if (grid.Rows() > 1) {
        // the rows came from the builder already in the listing's order (newest first by the
        // sort date, then References)
        gridSelection.setCurrentIndex(grid.index(0, 0),
                                      QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }
    emit groupListed(sh.S.CurrentGroup, grid.lastMessageRow());
    sh.setStatus(nd::PanelState, QStringLiteral("Double-click Message to View"));
}

MessageList::Listing MessageList::listFromServer(const QString &cache)
{
    Listing listing;
    sh.S.TransportError = 0;
    for (nd::Scope scope : {nd::Scope::SelectedGroups, nd::Scope::CurrentGroup, nd::Scope::SelectedMessages,
                            nd::Scope::Favorites})
        sh.MenuOnOff(scope, false);
    sh.SetMenuState(nd::Cmd::RefreshGroups, false);
    for (nd::Cmd c : nd::cmds::MessageWork)
        sh.SetMenuState(c, false);
    if (sh.S.StopRequested) {
        sh.S.TransportError = -1;
        listing.failed = true;
        return listing;
    }
    sh.setStatus(nd::PanelState, QStringLiteral("Retreiving Message Headers"));
    if (!session.isConnected()) {
        sh.S.LastFailureReason = QStringLiteral("No Readable Messages");
        sh.setProgress(0);
        for (nd::Scope scope : {nd::Scope::Favorites, nd::Scope::SelectedServers, nd::Scope::ServerRuns})
            sh.MenuOnOff(scope, true);
        sh.SetMenuState(nd::Cmd::Setup, true);
        sh.setStatus(nd::PanelDetail, QStringLiteral("Unable to connect"));
        sh.S.TransportError = -1;
        listing.failed = true;
        return listing;
    }
    TransactionResult r = selectGroup();
    if (r.ok())
        r = fetchSelectedRange(cache);
    listing.failed = r.outcome == TransactionResult::Outcome::Failed;
    if (!listing.failed) {
        showFetchedRows();
        listing.fetched = r.ok() && grid.lastMessageRow() > 0;
    }
    return listing;
}

void MessageList::beginListing()
{
    emit listingStarted();
    sh.setViewEnabled(nd::View::Groups, false);
    m_listing = true;
    sh.S.StopRequested = false;
    sh.S.TransactionDone = false;
    sh.S.TransportError = 0;
    sh.setBusy(true);
    sh.setStatus(nd::PanelState, QStringLiteral("Reading Message List"));
    sh.setStatus(nd::PanelDetail, QString());
    grid.ResizeGrid();
    sh.SetMenuState(nd::Cmd::RefreshMessages, false);
}

void MessageList::endListing(const Listing &listing)
{
    sh.setStatus(nd::PanelState, listing.failed ? QStringLiteral("Error Retreiving Message List")
                                                : QStringLiteral("Done Retreiving Message List"));
    sh.UpdateCaption(nd::Caption::Messages);
    sh.SetMenuState(nd::Cmd::Groups, true);
    if (grid.lastMessageRow() == 0) {
        if (!listing.failed && !sh.S.StopRequested) {
            sh.setStatus(nd::PanelState, QStringLiteral("Sorry, No Messages in This Group"));
            sh.S.CurrentGroup.clear();
            sh.UpdateCaption(nd::Caption::Groups);
        }
    } else {
        for (nd::Cmd c : nd::cmds::MessageOpen)
            sh.SetMenuState(c, true);
        for (nd::Scope scope : {nd::Scope::SelectedGroups, nd::Scope::CurrentGroup, nd::Scope::SelectedMessages})
            sh.MenuOnOff(scope, true);
    }
    emit listingEnded();
    sh.SetMenuState(nd::Cmd::Connect, true);
    if (session.isConnected()) {
        sh.MenuOnOff(nd::Scope::Favorites, true);
        sh.MenuOnOff(nd::Scope::SelectedServers, true);
    }
    sh.SetMenuState(nd::Cmd::RefreshMessages, true);
    if (!listing.failed)
        sh.setStatus(nd::PanelDetail, QString());
    sh.setProgress(0);
    sh.setBusy(false);
    sh.UpdateCaption(nd::Caption::Title);
    m_listing = false;
    sh.setViewEnabled(nd::View::Groups, true);
}

MessageList::Listing MessageList::listMessages(bool useCache)
{
    beginListing();
    const QString cache = cacheFile();
    if (useCache)
        listing::waitForCacheWrites(cache);   // an earlier listing of the group may still be writing it
    Listing listing;
    if (useCache && QFile::exists(cache))
        listFromCache(cache);
    else
        listing = listFromServer(cache);
    endListing(listing);
    return listing;
}

bool MessageList::ListMessages(bool useCache)
{
    const Listing listing = listMessages(useCache);
    return !(listing.fetched && grid.lastMessageRow() > 0);
}
