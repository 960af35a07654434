#include "app/Commands.h"

#include <QHash>

namespace nd {

QString commandName(Cmd c)
{
    static const QHash<int, QString> names = {
        {int(Cmd::Setup), QStringLiteral("menuSetup")},
        {int(Cmd::Groups), QStringLiteral("menuGroup")},
        {int(Cmd::Stop), QStringLiteral("menuStop")},
        {int(Cmd::Connect), QStringLiteral("menuConnect")},
        {int(Cmd::Download), QStringLiteral("menuDownload")},
        {int(Cmd::DownloadAll), QStringLiteral("menuDownloadAll")},
        {int(Cmd::View), QStringLiteral("menuView")},
        {int(Cmd::PostCurrent), QStringLiteral("menuPostC")},
        {int(Cmd::Exit), QStringLiteral("menuExit")},
        {int(Cmd::Find), QStringLiteral("menuFind")},
        {int(Cmd::FindNext), QStringLiteral("menuFindNext")},
        {int(Cmd::DownloadFavorites), QStringLiteral("menuDowloadAllF")},
        {int(Cmd::PostGroups), QStringLiteral("menuPostG")},
        {int(Cmd::PostFavorites), QStringLiteral("menuPostF")},
        {int(Cmd::EmailCurrent), QStringLiteral("menuEmailC")},
        {int(Cmd::EmailGroups), QStringLiteral("menuEmailG")},
        {int(Cmd::EmailFavorites), QStringLiteral("menuEmailF")},
        {int(Cmd::EmailServers), QStringLiteral("menuEmailS")},
        {int(Cmd::WebCurrent), QStringLiteral("menuWebC")},
        {int(Cmd::WebGroups), QStringLiteral("menuWebG")},
        {int(Cmd::WebFavorites), QStringLiteral("menuWebF")},
        {int(Cmd::WebMessages), QStringLiteral("menuWebM")},
        {int(Cmd::ServersCurrent), QStringLiteral("menuServC")},
        {int(Cmd::ServersGroups), QStringLiteral("menuServG")},
        {int(Cmd::ServersServers), QStringLiteral("menuServS")},
        {int(Cmd::ServersFavorites), QStringLiteral("menuServF")},
        {int(Cmd::FindGroupOnServers), QStringLiteral("menuScan")},
        {int(Cmd::GenerateGroupList), QStringLiteral("menuGen")},
        {int(Cmd::CheckServers), QStringLiteral("menuCheck")},
        {int(Cmd::LoadFavorites), QStringLiteral("menuLoad")},
        {int(Cmd::RefreshMessages), QStringLiteral("menuRefreshM")},
        {int(Cmd::RefreshGroups), QStringLiteral("menuRefreshG")},
    };
    return names.value(int(c));
}

std::span<const Cmd> scopeCommands(Scope s)
{
    static constexpr Cmd current[] = {Cmd::WebCurrent, Cmd::EmailCurrent, Cmd::PostCurrent, Cmd::ServersCurrent};
    static constexpr Cmd groups[] = {Cmd::WebGroups, Cmd::EmailGroups, Cmd::PostGroups, Cmd::ServersGroups};
    static constexpr Cmd favorites[] = {Cmd::WebFavorites, Cmd::EmailFavorites, Cmd::PostFavorites,
                                        Cmd::ServersFavorites, Cmd::DownloadFavorites};
    static constexpr Cmd messages[] = {Cmd::WebMessages};
    static constexpr Cmd servers[] = {Cmd::EmailServers, Cmd::ServersServers};
    static constexpr Cmd runs[] = {Cmd::FindGroupOnServers, Cmd::GenerateGroupList, Cmd::CheckServers};
    switch (s) {
    case Scope::CurrentGroup: return current;
    case Scope::SelectedGroups: return groups;
    case Scope::Favorites: return favorites;
    case Scope::SelectedMessages: return messages;
    case Scope::SelectedServers: return servers;
    case Scope::ServerRuns: return runs;
    }
    return {};
}

QString scopeCode(Scope s)
{
    switch (s) {
    case Scope::CurrentGroup: return QStringLiteral("CG");
    case Scope::SelectedGroups: return QStringLiteral("SG");
    case Scope::Favorites: return QStringLiteral("FA");
    case Scope::SelectedMessages: return QStringLiteral("SM");
    case Scope::SelectedServers: return QStringLiteral("SS");
    case Scope::ServerRuns: return QStringLiteral("SR");
    }
    return QString();
}

Scope scopeFromCode(const QString &code, bool *ok)
{
    for (Scope s : {Scope::CurrentGroup, Scope::SelectedGroups, Scope::Favorites, Scope::SelectedMessages,
                    Scope::SelectedServers, Scope::ServerRuns})
        if (scopeCode(s) == code) {
            if (ok)
                *ok = true;
            return s;
        }
    if (ok)
        *ok = false;
    return Scope::CurrentGroup;
}

} // namespace nd
