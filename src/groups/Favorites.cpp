#include "groups/Favorites.h"
#include "download/Downloader.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"

#include "app/Paths.h"
#include "app/Wait.h"
#include "app/frmMain.h"
#include "download/Downloader.h"
#include "groups/FavoriteRules.h"
#include "groups/StopLatch.h"
#include "messages/MessageGrid.h"
#include "news/Session.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QApplication>
#include <QDateTime>
#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QKeyEvent>
#include <QListView>
#include <QStyle>

Favorites::Favorites(frmMain &main) : QObject(&main), m(main)
{
    m.wireCommand(QStringLiteral("menuNew"), [this] { SaveFavoritesAs(true); });
    m.wireCommand(QStringLiteral("menuSave"), [this] { SaveFavoritesAs(false); });
    m.wireCommand(QStringLiteral("menuLoad"), [this] { LoadFavorites(); });
    m.wireCommand(QStringLiteral("menuDowloadAllF"), [this] { DownloadFromFavorites(); });

    // groups are dragged from the group list and dropped here
    m.lstGroupsView->setDragEnabled(true);
    m.lstGroupsView->setDragDropMode(QAbstractItemView::DragOnly);
    m.lstFavoritesView->setAcceptDrops(true);
    m.lstFavoritesView->viewport()->setAcceptDrops(true);
    m.lstFavoritesView->setDropIndicatorShown(false);
    m.lstFavoritesView->setDragDropMode(QAbstractItemView::DropOnly);
    m.lstFavoritesView->viewport()->installEventFilter(this);
    m.lstFavoritesView->installEventFilter(this);

    connect(m.lstFavoritesView, &QAbstractItemView::doubleClicked, this, [this] {
        if (!m.S.QuietMode)
            OpenFavorite(true);
    });

    // the file named in the settings is loaded at start-up; give its items their icon and
    // show its name
    connect(&m.shell(), &Shell::settingsLoaded, this, [this] {
        setIcons(m.lstFavorites, FavoriteIcon);
        UpdateFavoritesName();
    });
}

QString Favorites::listIcon(int iconIndex)
{
    return iconIndex == FavoriteIcon ? QStringLiteral("std:dirlink") : QStringLiteral("std:file");
}

void Favorites::setIcons(ItemList *list, int iconIndex)
{
    if (iconIndex == -1)
        return;
    const QString icon = listIcon(iconIndex);
    for (int i = 0; i < list->count(); ++i)
        list->setIconKey(i, icon);
}

bool Favorites::saveToCurrentFile()
{
    // server checking and harvesting borrow the list; what they put there is not a favourite
    if (m.S.ScanMode || m.opt.FavoritesFile.isEmpty())
        return false;
    if (!m.lstFavorites->save(m.opt.FavoritesFile)) {
        m.setStatus(1, QStringLiteral("Unable to Save Favorites"));
        m.setStatus(2, m.opt.FavoritesFile);
        return false;
    }
    return true;
}

// ------------------------------------------------------------------ files

void Favorites::SaveFavoritesAs(bool clear)
{
    if (m.S.ScanMode || m_downloading)
        return;
    const QString path = m.prompter().saveFileName(clear ? QStringLiteral("New Favorites File") : QStringLiteral("Save Favorites"),
                                                   QFileInfo(m.opt.FavoritesFile).absolutePath(),
                                                   QStringLiteral("Text (*.fav)|*.fav"));
    if (path.isEmpty())
        return;
    if (QFileInfo::exists(path)) {
        const auto a = m.prompter().message(QStringLiteral("OverWrite Existing File?"), Prompter::Question,
                                            Prompter::YesNo, QString(), Prompter::AnswerNo);
        if (a != Prompter::AnswerYes)
            return;
    }
    if (clear)
        m.lstFavorites->clear();
    if (!m.lstFavorites->save(path)) {
        m.prompter().message(QStringLiteral("Unable to write ") + path, Prompter::Critical, Prompter::Ok,
                             QStringLiteral("Newsdredge!"));
        return;
    }
    m.opt.FavoritesFile = path;
    UpdateFavoritesName();
}

void Favorites::LoadFavorites()
{
    if (m.S.ScanMode || m_downloading)
        return;
    const QString path = m.prompter().openFileName(QStringLiteral("Load Favorites"),
                                                   QFileInfo(m.opt.FavoritesFile).absolutePath(),
                                                   QStringLiteral("Newsdredge! Favorites (*.fav)|*.fav"));
    if (path.isEmpty() || !QFileInfo(path).isFile())
        return;
    saveToCurrentFile();
    LoadListFromFile(m, m.lstFavorites, path, FavoriteIcon);
    m.opt.FavoritesFile = path;
    UpdateFavoritesName();
}

void Favorites::LoadListFromFile(frmMain &m, ItemList *list, const QString &path, int iconIndex)
{
    if (path.isEmpty() || path.endsWith(QLatin1Char('/')) || path.endsWith(QLatin1Char('\\'))
        || !QFileInfo(path).isFile())
        return;
    QListView *view = nullptr;
    if (list == m.lstFavorites) view = m.lstFavoritesView;
    else if (list == m.lstGroups) view = m.lstGroupsView;
    else if (list == m.lstFiles) view = m.lstFilesView;
    else if (list == m.lstHTTP) view = m.lstHTTPView;
    const bool quiet = m.S.QuietMode;
    if (view && !quiet)
        view->setUpdatesEnabled(false);
    list->load(path);
    if (iconIndex != -1 && !quiet) {
        const QString icon = listIcon(iconIndex);
        for (int i = 0; i < list->count(); ++i)
            list->setIconKey(i, icon);
    }
    if (view && !quiet)
        view->setUpdatesEnabled(true);
}

void Favorites::UpdateFavoritesName()
{
    m.S.FavoritesShortName = FavoriteRules::shortName(m.opt.FavoritesFile);
    m.UpdateCaption(QStringLiteral("0"));
}

// ------------------------------------------------------------------ list events

void Favorites::SelectAll()
{
    m.lstFavorites->selectAll();
}

void Favorites::DeleteSelected()
{
    ItemList *l = m.lstFavorites;
    const QList<int> sel = l->selectedIndexes();
    if (sel.isEmpty())
        return;
    m.lstFavoritesView->setEnabled(false);
    for (int k = int(sel.size()) - 1; k >= 0; --k)
        l->remove(sel[k]);
    saveToCurrentFile();
    m.UpdateCaption(QStringLiteral("0"));
    m.lstFavoritesView->setEnabled(true);
    if (l->count() > 0) {
        const int keep = qMin(sel.first(), l->count() - 1);
        l->clearSelection();
        l->setSelected(keep, true);
        l->setCurrentIndex(keep);
    }
    m.lstFavoritesView->setFocus();
}

bool Favorites::DropGroup(const QString &groupItem)
{
    if (m.S.ScanMode || m_downloading)
        return false;
    const auto item = FavoriteRules::itemForDrop(groupItem, m.opt.NNTPServer, m.lstFavorites->texts());
    if (!item)
        return false;
    const int i = m.lstFavorites->add(*item);
    m.lstFavorites->setIconKey(i, listIcon(FavoriteIcon));
    saveToCurrentFile();
    m.UpdateCaption(QStringLiteral("0"));
    return true;
}

void Favorites::updateFavoriteMarker(const QString &group, qint64 count)
{
    const QString g = group.trimmed();
    const int i = FavoriteRules::findFavorite(m.lstFavorites->texts(), g, m.opt.NNTPServer);
    if (i < 0)
        return;
    // keep the server's name as the favourite spells it
    const QString server = FavoriteRules::GetServerName(m.lstFavorites->text(i));
    m.lstFavorites->setText(i, FavoriteRules::itemAfterListing(g, server, count, m.S.TransportError != 0));
}

bool Favorites::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m.lstFavoritesView->viewport()) {
        switch (event->type()) {
        case QEvent::DragEnter:
        case QEvent::DragMove: {
            auto *e = static_cast<QDropEvent *>(event);
            if (e->source() == m.lstGroupsView && !m_downloading && !m.S.ScanMode) {
                e->setDropAction(Qt::CopyAction);
                e->accept();
            } else {
                e->ignore();
            }
            return true;
        }
        case QEvent::Drop: {
            auto *e = static_cast<QDropEvent *>(event);
            if (e->source() != m.lstGroupsView || m_downloading || m.S.ScanMode) {
                e->ignore();
                return true;
            }
            QList<int> rows = m.lstGroups->selectedIndexes();
            if (rows.isEmpty() && m.lstGroups->currentIndex() >= 0)
                rows << m.lstGroups->currentIndex();
            for (int r : rows)
                DropGroup(m.lstGroups->text(r));
            e->setDropAction(Qt::CopyAction);
            e->accept();
            return true;
        }
        default:
            break;
        }
        return false;
    }
    if (watched == m.lstFavoritesView && event->type() == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        if (k->key() == Qt::Key_A && (k->modifiers() & Qt::ControlModifier)) {
            SelectAll();
            return true;
        }
        if (m_downloading || m.S.ScanMode)
            return false;
        if (k->key() == Qt::Key_Delete) {
            DeleteSelected();
            return true;
        }
        if (k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter) {
            if (!m.S.QuietMode)
                OpenFavorite(true);
            return true;
        }
    }
    return false;
}

// ------------------------------------------------------------------ opening and downloading

bool Favorites::switchServerAndConnect(const QString &server)
{
    if (!m.session)
        return false;
    const QString connected = QStringLiteral("Connected to NNTP Server");
    NewsTransport *t = m.session->transport();
    const bool open = t && t->StateText() == connected;
    const bool otherServer = server != m.opt.NNTPServer || (t && !t->Host().isEmpty() && t->Host() != server);
    if (otherServer) {
        m.session->NNTP_Disconnect();
        m.opt.NNTPServer = server;
        m.UpdateCaption(QStringLiteral("5"));
    }
    if (otherServer || !open)
        m.session->NNTP_Connect(false);
    t = m.session->transport();
    return t && t->StateText() == connected;
}

bool Favorites::OpenFavorite(bool warn)
{
    ItemList *l = m.lstFavorites;
    if (l->selectedCount() < 1) {
        if (warn)
            m.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok,
                                 QStringLiteral("Newsdredge!"));
        return false;
    }
    int i = l->currentIndex();
    if (i < 0 || !l->isSelected(i))
        i = l->selectedIndexes().first();
    if ((m.session && m.session->transactionRunning()) || m.S.DownloadBusy) {
        m.setStatus(2, QStringLiteral("Please wait until current transaction is finished"));
        return false;
    }
    const QString item = l->text(i);
    const QString group = FavoriteRules::groupOfItem(item);
    const QString server = FavoriteRules::GetServerName(item);
    if (group.isEmpty() || server.isEmpty())
        return false;
    m.S.CurrentGroup = group;
    if (!switchServerAndConnect(server))
        return false;
    m.S.CurrentGroup = group;
    return listGroup();
}

void Favorites::DownloadFromFavorites()
{
    if (m.IsConnectedIdle(true) || m.S.QuietMode || m_downloading)
        return;
    ItemList *l = m.lstFavorites;
    if (l->selectedCount() < 1) {
        m.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok,
                             QStringLiteral("Newsdredge!"));
        return;
    }
    m.S.StopRequested = false;
    m_downloading = true;
    m.lstFavoritesView->setEnabled(false);
    {
        const StopLatch stop(m.shell());
        for (int i = 0; i < l->count(); ++i) {
            m.setStatus(1, m.S.ScanMode ? QStringLiteral("Scanning for Web/FTP Addresses")
                                        : QStringLiteral("Downloading From Favorites"));
            if (stop.stopped())
                break;
            if (!l->isSelected(i))
                continue;
            l->setCurrentIndex(i);
            if (OpenFavorite(false) && !stop.stopped())
                downloadAll();
            if (stop.stopped())
                break;
            l->setSelected(i, false);
        }
    }
    if (m.session)
        m.session->NNTP_Disconnect();
    m.setStatus(1, m.S.ScanMode ? QStringLiteral("Finished Scanning for Web/FTP Addresses")
                                : QStringLiteral("Finished Downloading From Favorites"));
    m.lstFavoritesView->setEnabled(true);
    m_downloading = false;
}

bool Favorites::listGroup()
{
    if (!m.messages)
        return false;
    m.messages->ListMessages(true);
    return m.S.TransportError == 0 && m.grid->lastMessageRow() > 0;
}

void Favorites::downloadAll()
{
    if (!m.downloader || m.grid->lastMessageRow() < 1)
        return;
    m.S.TransportError = 0;
    m.downloader->DownloadRows(-1);
    // the download gives the list back when it ends; the favourites run still holds it
    m.lstFavoritesView->setEnabled(false);
}
