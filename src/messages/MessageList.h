#pragma once
#include "messages/MessageGrid.h"

#include <QObject>
#include <vector>

class frmMain;
class NewsTransport;

// Listing the messages of the current group: from the group's cache file or from the server.
class MessageList : public QObject {
    Q_OBJECT
public:
    explicit MessageList(frmMain &m);

    // Fills the grid with the messages of CurrentGroup. Returns notFetched: false only when the
    // list was fetched from the server, the fetch completed and at least one message was listed.
    bool ListMessages(bool useCache);
    bool listingInProgress() const { return m_listing; }
    QString cacheFile() const;

private:
    // FetchHeaders of the range, rows into the grid while they stream, cache and order built aside
    void fetchRows(NewsTransport &t, const QString &cache);
    frmMain &m;
    bool m_listing = false;
};
