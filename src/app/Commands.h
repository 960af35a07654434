#pragma once
#include <QString>
#include <span>

namespace nd {

// Commands that the areas switch on and off. The numbers are the classic menu codes; they are
// written out here and nowhere else.
enum class Cmd : int {
    Setup = 1,
    Groups = 3,
    Stop = 4,
    Connect = 5,
    Download = 7,
    DownloadAll = 8,
    View = 9,
    PostCurrent = 10,
    Exit = 15,
    Find = 30,
    FindNext = 31,
    DownloadFavorites = 32,
    PostGroups = 33,
    PostFavorites = 34,
    EmailCurrent = 35,
    EmailGroups = 36,
    EmailFavorites = 37,
    EmailServers = 38,
    WebCurrent = 39,
    WebGroups = 40,
    WebFavorites = 41,
    WebMessages = 42,
    ServersCurrent = 43,
    ServersGroups = 44,
    ServersServers = 45,
    ServersFavorites = 46,
    FindGroupOnServers = 47,
    GenerateGroupList = 49,
    CheckServers = 50,
    LoadFavorites = 51,
    RefreshMessages = 52,
    RefreshGroups = 53,
};

// The selection scopes whose commands go on and off together.
enum class Scope {
    CurrentGroup,      // "CG"
    SelectedGroups,    // "SG"
    Favorites,         // "FA"
    SelectedMessages,  // "SM"
    SelectedServers,   // "SS"
    ServerRuns,        // "SR": runs over the selected servers
};

// Captions that count what a list holds.
enum class Caption : int {
    Favorites = 0,         // "  Favorite Groups [name] (n)"
    Messages = 1,          // "  Available Messages (n)  Group : g"
    Groups = 2,            // "  Available Groups : server (n)"
    SavedFiles = 3,        // "Saved Files (n)"
    WebAddresses = 4,      // "Web/FTP Addresses (n)"
    Title = 5,             // the window title with the server
    Found = 6,             // "Found/Status (n)"
    Checking = 7,          // "  Checking n Servers"
    ServerCount = 8,       // "NNTP Servers (n)" of the setup dialog
    EmailAddresses = 9,    // "Email Addresses (n)"
    ServerAddresses = 10,  // "Server Addresses (n)"
};

// The status bar's three panels.
enum Panel : int {
    PanelState = 1,    // the running operation or the session state
    PanelDetail = 2,   // counts, file names, "Duplicate File", "Incomplete"
    PanelPart = 3,     // "[part/count]" of a download
};

// Commands that go off together while something runs.
namespace cmds {
// What may not start while a listing or a download runs.
inline constexpr Cmd MessageWork[] = {Cmd::Download, Cmd::DownloadAll, Cmd::View,
                                                          Cmd::Groups, Cmd::Connect};
// The commands that open the current message list's articles.
inline constexpr Cmd MessageOpen[] = {Cmd::Download, Cmd::DownloadAll, Cmd::View};
// What cannot run while no session is open.
inline constexpr Cmd OffWithoutSession[] = {Cmd::Stop, Cmd::Groups, Cmd::Download, Cmd::DownloadAll,
                                            Cmd::View, Cmd::RefreshMessages, Cmd::RefreshGroups};
// The scopes over what an open session lists: off while none is open.
inline constexpr Scope SessionScopes[] = {Scope::CurrentGroup, Scope::SelectedMessages, Scope::SelectedGroups};
// The scopes whose runs open sessions of their own: off while the user's session is opening.
inline constexpr Scope OwnSessionScopes[] = {Scope::Favorites, Scope::SelectedServers, Scope::ServerRuns};
// What rebuilds the lists a download reads: off for the download's length.
inline constexpr Cmd ListRebuild[] = {Cmd::RefreshMessages, Cmd::RefreshGroups};
// What rebuilds the lists or the session an address harvest works through: off for its length.
inline constexpr Cmd HarvestBreakers[] = {Cmd::Groups, Cmd::Connect, Cmd::RefreshMessages, Cmd::RefreshGroups};
} // namespace cmds

// The menu item a command code stands for ("menuConnect"); empty for an unknown code.
QString commandName(Cmd c);
// The commands of a scope, in the classic order.
std::span<const Cmd> scopeCommands(Scope s);
// "CG", "SG", ... and back (an unknown code gives CurrentGroup and ok false).
QString scopeCode(Scope s);
Scope scopeFromCode(const QString &code, bool *ok = nullptr);

} // namespace nd
