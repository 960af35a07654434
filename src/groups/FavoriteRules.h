#pragma once
#include <QString>
#include <QStringList>
#include <optional>

// Texts of the favourites list and the rules that read them back.
//
// A favourite item is: an optional marker (character 255 + digit: "1" has messages, "2" listing
// failed, "4" added without a positive count), the bare group name, " (", the server, ")", and
// optionally " (" count ")". For example  alt.binaries.test (news1) (37).
namespace FavoriteRules {

// The bare group name of any group or favourite item: a leading marker is dropped, then the
// text before the first blank is kept.
QString CleanNewsGroup(const QString &item);

// The server of a favourite item: the text inside the first parentheses after the group name;
// "" when the item carries none.
QString GetServerName(const QString &item);

// The group of an item as opening and posting read it: the text before the first "(",
// made bare.
QString groupOfItem(const QString &item);

// Index of the favourite of this group on this server, ignoring markers and counts; -1 when none.
int findFavorite(const QStringList &items, const QString &group, const QString &server);

// What dropping a group-list item adds to the favourites while `server` is current.
// std::nullopt when nothing is added (no group name, or that favourite exists already).
std::optional<QString> itemForDrop(const QString &groupItem, const QString &server,
                                   const QStringList &favorites);

// The favourite's text after its group was listed: error -> marker "2"; a positive count ->
// marker "1" with the count; otherwise marker "4" (a favourite without a positive count).
QString itemAfterListing(const QString &group, const QString &server, qint64 count, bool error);

// The frame caption's name of a favourites file: the file name without its directory and
// without everything from its first ".".
QString shortName(const QString &path);

} // namespace FavoriteRules
