#pragma once
#include "messages/MessageGrid.h"
#include "news/Session.h"

#include <QObject>

class QItemSelectionModel;
class Shell;

// Listing the messages of the current group: from the group's cache file or from the server.
class MessageList : public QObject {
    Q_OBJECT
public:
    MessageList(Shell &sh, NewsSession &session, MessageGrid &grid, QItemSelectionModel &gridSelection,
                QObject *parent = nullptr);

    // How a listing went.
    struct Listing {
        bool failed = false;    // "Error Retreiving Message List"
        bool fetched = false;   // from the server, completed, with messages
    };
    // Fills the grid with the messages of CurrentGroup.
    Listing listMessages(bool useCache);
    // The same, answered as notFetched: false only when the list was fetched from the server, the
    // fetch completed and at least one message was listed.
    bool ListMessages(bool useCache);
    bool listingInProgress() const { return m_listing; }
    QString cacheFile() const;

signals:
    void listingStarted();
    // The grid holds the new listing (the message-number column follows ShowMNumbers).
    void listingEnded();
    // A server listing of the group ended with this many messages.
    void groupListed(const QString &group, int lastRow);

private:
    void beginListing();
    void endListing(const Listing &listing);
    void listFromCache(const QString &cache);
    Listing listFromServer(const QString &cache);
    TransactionResult selectGroup();
    TransactionResult fetchSelectedRange(const QString &cache);
    // FetchHeaders of the range, rows built aside while they stream, into the grid at the end
    TransactionResult fetchRows(const QString &cache);
    void showFetchedRows();

    Shell &sh;
    NewsSession &session;
    MessageGrid &grid;
    QItemSelectionModel &gridSelection;
    bool m_listing = false;
};
