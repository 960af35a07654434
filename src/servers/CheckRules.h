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

} // namespace servers
