#include "groups/GroupList.h"

#include "app/Paths.h"
#include "app/Wait.h"
#include "app/frmMain.h"
#include "groups/Favorites.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QElapsedTimer>
#include <QEvent>
#include <QFile>
#include <QKeyEvent>
#include <QListView>
#include <QProgressBar>

GroupList::GroupList(frmMain &main)
    : QObject(&main), m(main)
{
    // a Stop of an earlier run (a listing, say) must not end the list the user asks for now;
    // batch runs that call LoadGroupList keep their own Stop
    m.wireCommand(QStringLiteral("menuGroup"), [this] {
        m.S.StopRequested = false;
        LoadGroupList(true);
    });
    m.wireCommand(QStringLiteral("menuRefreshG"), [this] {
        m.S.StopRequested = false;
        LoadGroupList(false);
    });
    connect(&m.shell(), &Shell::groupListWanted, this, [this](bool useCache) { LoadGroupList(useCache); });
    connect(m.lstGroupsView, &QListView::doubleClicked, this, [this] { openSelectedGroup(); });
    m.lstGroupsView->installEventFilter(this);
    m.lstGroupsView->setDragEnabled(true);
    m.lstGroupsView->setDragDropMode(QAbstractItemView::DragOnly);
    m.SetMenuState(3, false);
    m.SetMenuState(53, false);
}

QString GroupList::CleanNewsGroup(const QString &item)
{
    return ItemList::bareGroupName(item);
}

QString GroupList::cacheFile() const
{
    return nd::cacheDir() + QLatin1Char('/') + m.S.ServerFileTag;
}

QString GroupList::groupItem(const QString &name, qint64 first, qint64 last)
{
    const qint64 count = last - first;
    if (count < 1)
        return name + QStringLiteral(" (0)");
    return ItemList::marked(QLatin1Char('1'), name + QStringLiteral(" (%1)").arg(count));
}

bool GroupList::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m.lstGroupsView && event->type() == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        if (k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter) {
            openSelectedGroup();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

void GroupList::openSelectedGroup()
{
    if (m.S.QuietMode)
        return;
    if (m.lstGroups->selectedCount() > 1) {
        m.prompter().message(QStringLiteral("Please Only Select 1 Group"), Prompter::Exclamation, Prompter::Ok,
                             QStringLiteral("Newsdredge!"));
        return;
    }
    int i = m.lstGroups->currentIndex();
    if (i < 0 && m.lstGroups->selectedCount() == 1)
        i = m.lstGroups->selectedIndexes().first();
    if (i < 0)
        return;
    QString item = m.lstGroups->text(i);
    const qsizetype paren = item.indexOf(QLatin1Char('('));
    if (paren >= 0)
        item.truncate(paren);
    m.S.CurrentGroup = CleanNewsGroup(item).trimmed();
    m.lstGroupsView->setEnabled(false);
    if (m.messages)
        m.messages->ListMessages(true);
    m.lstGroupsView->setEnabled(true);
}

void GroupList::LoadGroupList(bool useCache)
{
    m.S.TransactionDone = false;
    m.setBusy(true);
    m.lstGroupsView->setEnabled(false);
    m.S.TransportError = 0;
    m.grid->ResizeGrid();
    m.lstMsgBuffer->clear();
    nd::yieldOnce();
    if (!m.S.QuietMode) {
        for (int code : {53, 5, 3, 7, 8, 9})
            m.SetMenuState(code, false);
        for (const char *scope : {"CG", "SM", "FA"})
            m.MenuOnOff(QString::fromLatin1(scope), false);
    }

    const bool alreadyFilled = useCache && m.lstGroups->count() > 0;
    if (!alreadyFilled) {
        m.lstGroups->clear();
        m.S.FirstGroupWithMessages = -1;
        if (!m.S.QuietMode)
            m.S.ServerFileTag = NewsSession::ServerFileTag(m.opt.NNTPServer);
        if (useCache && QFile::exists(cacheFile())) {
            bool yes = m.opt.AutoLoadGroups == 1;
            if (!yes && !m.S.QuietMode)
                yes = m.prompter().message(QStringLiteral("Load Saved Group List?"), Prompter::Question, Prompter::YesNo,
                                           QStringLiteral("Newsdredge!")) == Prompter::AnswerYes;
            if (yes) {
                m.setStatus(1, QStringLiteral("Loading Groups from Disk"));
                m.lstGroups->load(cacheFile());
                for (int i = 0; i < m.lstGroups->count(); ++i)
                    if (ItemList::markerDigit(m.lstGroups->text(i)) == QLatin1Char('1')) {
                        m.S.FirstGroupWithMessages = i;
                        break;
                    }
                m.S.TransactionDone = true;
                if (m.opt.BinariesOnly)
                    RemoveNonBinaryGroups();
            }
        }
        if (!m.S.TransactionDone) {
            m.S.LastFailureReason = QStringLiteral("Error Reading Groups");
            m.setStatus(1, QStringLiteral("Waiting for Group List"));
            m.SetMenuState(4, true);
            NewsSession *s = m.session;
            bool ok = false;
            if (s) {
                QElapsedTimer shown;
                shown.start();
                m.S.TransactionDone = false;
                m.S.TransportError = 0;
                s->transport()->RequestGroupList();
                nd::waitUntil([&] {
                    if (shown.elapsed() > 100) {
                        shown.restart();
                        if (s->transport())
                            m.setStatus(2, QString::number(s->transport()->GroupList().Count()));
                    }
                    return m.S.TransactionDone || m.S.TransportError != 0 || m.S.StopRequested;
                });
                ok = m.S.TransactionDone && m.S.TransportError == 0 && !m.S.StopRequested;
                if (m.S.StopRequested && s->transport())
                    s->transport()->AbortTransaction();
            }
            m.SetMenuState(4, false);
            if (ok) {
                FillGroupList(s->transport()->GroupList());
                SaveGroupList();
                if (m.opt.BinariesOnly)
                    RemoveNonBinaryGroups();
            }
            m.S.TransactionDone = true;
        }
    }

    if (!alreadyFilled) {
        if (m.S.TransportError == 0) {
            emit groupListLoaded();
            m.setStatus(1, QStringLiteral("Done Retrieving Group List"));
            m.setStatus(2, QString());
        } else {
            m.setStatus(2, QStringLiteral("Error Retrieving Group List"));
        }
    }
    if (!m.S.QuietMode) {
        m.lstGroupsView->setEnabled(true);
        m.setStatus(1, QStringLiteral("Double-click Group to List Messages"));
        m.MenuOnOff(QStringLiteral("SG"), true);
        m.SetMenuState(5, true);
        m.SetMenuState(53, true);
        m.SetMenuState(3, true);
    }
    m.progBar->setValue(0);
    m.lstMsgBuffer->clear();
    m.UpdateCaption(QStringLiteral("2"));
    if (m.S.TransportError == -1 && m.session && m.session->transport() && m.session->transport()->LimitExceeded())
        m.session->NNTP_Disconnect();
    m.setBusy(false);
}

void GroupList::FillGroupList(const NewsTransportGroupList &groups)
{
    m.setStatus(2, QStringLiteral("%1 Groups").arg(groups.Count()));
    m.setStatus(1, QStringLiteral("Reading Groups"));
    nd::yieldOnce();
    QStringList items;
    items.reserve(groups.Count());
    QElapsedTimer slice;
    slice.start();
    for (int i = 0; i < groups.Count(); ++i) {
        const NewsTransportGroup &g = groups.Item(i);
        if (m.opt.BinariesOnly != 0 && !g.Name.contains(QLatin1String(".binaries")))
            continue;
        if (g.First < 1 || g.Last < 1)
            continue;
        items << groupItem(g.Name, g.First, g.Last);
        if (m.S.FirstGroupWithMessages < 0 && ItemList::hasMarker(items.last()))
            m.S.FirstGroupWithMessages = m.lstGroups->count() + int(items.size()) - 1;
        if (slice.elapsed() > 20) {   // keep the window alive on very long lists
            m.lstGroups->addMany(items);
            items.clear();
            nd::yieldOnce();
            slice.restart();
        }
    }
    m.lstGroups->addMany(items);
}

void GroupList::SaveGroupList()
{
    m.setStatus(1, QStringLiteral("Saving Groups"));
    nd::yieldOnce();
    if (m.lstGroups->count() > 0)
        m.lstGroups->save(cacheFile());
    m.setStatus(1, QString());
}

void GroupList::RemoveNonBinaryGroups()
{
    m.setStatus(1, QStringLiteral("Removing Non Binary Groups"));
    QStringList keep;
    for (const QString &t : m.lstGroups->texts())
        if (t.contains(QLatin1String(".binar")))
            keep << t;
    m.lstGroups->clear();
    m.lstGroups->addMany(keep);
    m.S.FirstGroupWithMessages = -1;
    for (int i = 0; i < m.lstGroups->count(); ++i)
        if (ItemList::markerDigit(m.lstGroups->text(i)) == QLatin1Char('1')) {
            m.S.FirstGroupWithMessages = i;
            break;
        }
}

void GroupList::updateGroupMarkerNFavs(const QString &groupIn, qint64 count)
{
    const QString group = groupIn.trimmed();
    if (m.favorites)
        m.favorites->updateFavoriteMarker(group, count);
    const int i = m.lstGroups->findGroup(group);
    if (i < 0)
        return;
    if (m.S.TransportError != 0)
        m.lstGroups->setText(i, ItemList::marked(QLatin1Char('2'), group));
    else if (count < 1)
        m.lstGroups->setText(i, group + QStringLiteral(" (0)"));
    else
        m.lstGroups->setText(i, ItemList::marked(QLatin1Char('1'), group + QStringLiteral(" (%1)").arg(count)));
}
