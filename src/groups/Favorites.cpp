#include "groups/Favorites.h"

#include "app/Shell.h"
#include "download/Downloader.h"
#include "groups/FavoriteRules.h"
#include "groups/StopLatch.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QFileInfo>

Favorites::Favorites(Shell &shell, NewsSession &session, ItemList &lstFavorites, MessageGrid &grid,
                     MessageList *messages, Downloader *downloader, QObject *parent)
    : QObject(parent), sh(shell), m_session(session), m_list(lstFavorites), m_grid(grid), m_messages(messages),
      m_downloader(downloader)
{
    sh.wireCommand(QStringLiteral("menuNew"), [this] { SaveFavoritesAs(true); });
    sh.wireCommand(QStringLiteral("menuSave"), [this] { SaveFavoritesAs(false); });
    sh.wireCommand(QStringLiteral("menuLoad"), [this] { LoadFavorites(); });
    sh.wireCommand(QStringLiteral("menuDowloadAllF"), [this] { DownloadFromFavorites(); });

    // the file named in the settings is loaded at start-up; give its items their icon and
    // show its name
    connect(&sh, &Shell::settingsLoaded, this, [this] {
        setIcons(&m_list, FavoriteIcon);
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
    if (sh.S.ScanMode || sh.opt.FavoritesFile.isEmpty())
        return false;
    if (!m_list.save(sh.opt.FavoritesFile)) {
        sh.setStatus(nd::PanelState, QStringLiteral("Unable to Save Favorites"));
        sh.setStatus(nd::PanelDetail, sh.opt.FavoritesFile);
        return false;
    }
    return true;
}

bool Favorites::acceptsChanges() const
{
    return !m_downloading && !sh.S.ScanMode;
}

// ------------------------------------------------------------------ files

void Favorites::SaveFavoritesAs(bool clear)
{
    if (!acceptsChanges())
        return;
    const QString path = sh.prompter().saveFileName(clear ? QStringLiteral("New Favorites File") : QStringLiteral("Save Favorites"),
                                                    QFileInfo(sh.opt.FavoritesFile).absolutePath(),
                                                    QStringLiteral("Text (*.fav)|*.fav"));
    if (path.isEmpty())
        return;
    if (QFileInfo::exists(path)) {
        const auto a = sh.prompter().message(QStringLiteral("OverWrite Existing File?"), Prompter::Question,
                                             Prompter::YesNo, QString(), Prompter::AnswerNo);
        if (a != Prompter::AnswerYes)
            return;
    }
    if (clear)
        m_list.clear();
    if (!m_list.save(path)) {
        sh.prompter().message(QStringLiteral("Unable to write ") + path, Prompter::Critical, Prompter::Ok,
                              QStringLiteral("Newsdredge!"));
        return;
    }
    sh.opt.FavoritesFile = path;
    UpdateFavoritesName();
}

void Favorites::LoadFavorites()
{
    if (!acceptsChanges())
        return;
    const QString path = sh.prompter().openFileName(QStringLiteral("Load Favorites"),
                                                    QFileInfo(sh.opt.FavoritesFile).absolutePath(),
                                                    QStringLiteral("Newsdredge! Favorites (*.fav)|*.fav"));
    if (path.isEmpty() || !QFileInfo(path).isFile())
        return;
    saveToCurrentFile();
    LoadListFromFile(&m_list, path, FavoriteIcon);
    sh.opt.FavoritesFile = path;
    UpdateFavoritesName();
}

void Favorites::LoadListFromFile(ItemList *list, const QString &path, int iconIndex)
{
    if (path.isEmpty() || path.endsWith(QLatin1Char('/')) || path.endsWith(QLatin1Char('\\'))
        || !QFileInfo(path).isFile())
        return;
    list->load(path);
    if (iconIndex != -1 && !sh.S.QuietMode)
        setIcons(list, iconIndex);
}

void Favorites::UpdateFavoritesName()
{
    sh.S.FavoritesShortName = FavoriteRules::shortName(sh.opt.FavoritesFile);
    sh.UpdateCaption(nd::Caption::Favorites);
}

// ------------------------------------------------------------------ list events

void Favorites::SelectAll()
{
    m_list.selectAll();
}

bool Favorites::DeleteSelected()
{
    const QList<int> sel = m_list.selectedIndexes();
    if (sel.isEmpty())
        return false;
    sh.setViewEnabled(nd::View::Favorites, false);
    for (int k = int(sel.size()) - 1; k >= 0; --k)
        m_list.remove(sel[k]);
    saveToCurrentFile();
    sh.UpdateCaption(nd::Caption::Favorites);
    sh.setViewEnabled(nd::View::Favorites, true);
    if (m_list.count() > 0) {
        const int keep = qMin(sel.first(), m_list.count() - 1);
        m_list.clearSelection();
        m_list.setSelected(keep, true);
        m_list.setCurrentIndex(keep);
    }
    return true;
}

bool Favorites::DropGroup(const QString &groupItem)
{
    if (!acceptsChanges())
        return false;
    const auto item = FavoriteRules::itemForDrop(groupItem, sh.opt.NNTPServer, m_list.texts());
    if (!item)
        return false;
    m_list.add(*item);
    setIcons(&m_list, FavoriteIcon);
    saveToCurrentFile();
    sh.UpdateCaption(nd::Caption::Favorites);
    return true;
}

void Favorites::updateFavoriteMarker(const QString &group, qint64 count, bool failed)
{
    const QString g = group.trimmed();
    const int i = FavoriteRules::findFavorite(m_list.texts(), g, sh.opt.NNTPServer);
    if (i < 0)
        return;
    // keep the server's name as the favourite spells it
    const QString server = FavoriteRules::GetServerName(m_list.text(i));
    m_list.setText(i, FavoriteRules::itemAfterListing(g, server, count, failed));
}

// ------------------------------------------------------------------ opening and downloading

bool Favorites::switchServerAndConnect(const QString &server)
{
    NewsTransport *t = m_session.transport();
    const bool open = m_session.isConnected();
    const bool otherServer = server != sh.opt.NNTPServer || (t && !t->Host().isEmpty() && t->Host() != server);
    if (otherServer) {
        m_session.NNTP_Disconnect();
        sh.opt.NNTPServer = server;
        sh.UpdateCaption(nd::Caption::Title);
    }
    if (otherServer || !open)
        m_session.NNTP_Connect(false);
    return m_session.isConnected();
}

void Favorites::openCurrent()
{
    if (!sh.S.QuietMode)
        OpenFavorite(true);
}

bool Favorites::OpenFavorite(bool warn)
{
    if (m_list.selectedCount() < 1) {
        if (warn)
            sh.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok,
                                  QStringLiteral("Newsdredge!"));
        return false;
    }
    int i = m_list.currentIndex();
    if (i < 0 || !m_list.isSelected(i))
        i = m_list.selectedIndexes().first();
    if (m_session.transactionRunning() || sh.S.DownloadBusy) {
        sh.setStatus(nd::PanelDetail, QStringLiteral("Please wait until current transaction is finished"));
        return false;
    }
    const QString item = m_list.text(i);
    const QString group = FavoriteRules::groupOfItem(item);
    const QString server = FavoriteRules::GetServerName(item);
    if (group.isEmpty() || server.isEmpty())
        return false;
    sh.S.CurrentGroup = group;
    if (!switchServerAndConnect(server))
        return false;
    sh.S.CurrentGroup = group;
    return listGroup();
}

void Favorites::DownloadFromFavorites()
{
    if (m_session.IsConnectedIdle(true) || sh.S.QuietMode || m_downloading)
        return;
    if (m_list.selectedCount() < 1) {
        sh.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok,
                              QStringLiteral("Newsdredge!"));
        return;
    }
    sh.S.StopRequested = false;
    m_downloading = true;
    sh.setViewEnabled(nd::View::Favorites, false);
    downloadSelected(m_list);
    m_session.NNTP_Disconnect();
    sh.setStatus(nd::PanelState, sh.S.ScanMode ? QStringLiteral("Finished Scanning for Web/FTP Addresses")
                                               : QStringLiteral("Finished Downloading From Favorites"));
    sh.setViewEnabled(nd::View::Favorites, true);
    m_downloading = false;
}

// Opens each selected favourite in turn and downloads all it lists; each one done is deselected.
void Favorites::downloadSelected(ItemList &l)
{
    const StopLatch stop(sh);
    for (int i = 0; i < l.count(); ++i) {
        sh.setStatus(nd::PanelState, sh.S.ScanMode ? QStringLiteral("Scanning for Web/FTP Addresses")
                                                   : QStringLiteral("Downloading From Favorites"));
        if (stop.stopped())
            break;
        if (!l.isSelected(i))
            continue;
        l.setCurrentIndex(i);
        if (OpenFavorite(false) && !stop.stopped())
            downloadAll();
        if (stop.stopped())
            break;
        l.setSelected(i, false);
    }
}

bool Favorites::listGroup()
{
    if (!m_messages)
        return false;
    return !m_messages->listMessages(true).failed && m_grid.lastMessageRow() > 0;
}

void Favorites::downloadAll()
{
    if (!m_downloader || m_grid.lastMessageRow() < 1)
        return;
    sh.S.TransportError = 0;
    m_downloader->DownloadRows(-1);
    // the download gives the list back when it ends; the favourites run still holds it
    sh.setViewEnabled(nd::View::Favorites, false);
}
