#pragma once
#include <QByteArray>
#include <QDateTime>
#include <QString>

// Texts of server checking: the status-marked server item, the check log line.
namespace servers {

// "00734  OK    name": the group count zero-padded to five digits (more when needed), then
// "  OK    " with posting allowed or "  NO    " without, then the name.
QString statusMarkedItem(qint64 groupCount, bool postingAllowed, const QString &name);
// The server name of a check-list item: the text after its first run of four spaces, trimmed
// (an item without one is taken whole).
QString serverNameOfItem(const QString &item);
// One line of the check log: name TAB date TAB " REMOVED:" reason CR LF.
QByteArray checkLogLine(const QString &server, const QString &reason, const QDateTime &when);

// One line of the group-list file for a group-list item of `server`: the bare name (marker and
// count dropped) + " (" server ")".
QString groupListLine(const QString &groupItem, const QString &server);

// What a group search adds for the matching group-list item of `server`: the status line
// (item text before its first "(", " (" server ") ", then the count part from that "(" on) and
// the favourite (the same with the count part cut after its first ")").
struct FoundGroup {
    QString status;
    QString favorite;
};
FoundGroup groupSearchLines(const QString &groupItem, const QString &server);

// Why a checked server is removed ("" when it passes): fewer listed messages than the minimum
// give "Not Enough Groups" (a server with too few groups is never listed); otherwise a server
// without a group holding messages gives "No Readable Messages".
QString removalReason(int listedMessages, int minimumGroups, bool readableGroupFound);

} // namespace servers
