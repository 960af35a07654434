// The bounds the news transport holds every server to. A server that passes one is not
// answering as NNTP servers do; the transaction fails with a short text, and the program's
// memory and time stay bounded whatever the server sends.
//
// They live here, in one place, so that whatever reads the socket (today one connection, later
// several) applies the same numbers. Tests lower them to keep their run short.
#pragma once

#include <QtGlobal>

struct TransportLimits {
    // One line without its line end. Reaching it ends the session (the peer does not speak NNTP).
    qint64 maxLineBytes = qint64(16) << 20;

    // One article (ARTICLE answer, dot-unstuffed, CR LF line ends). Binary posts are a few MiB
    // at most; a few are posted at up to about 10 MiB.
    qint64 maxArticleBytes = qint64(48) << 20;
    // MIME body parts of one article: counted before the article is handed to the MIME parser,
    // whose memory grows with their number far beyond the article's size.
    qint64 maxMimeParts = 10000;

    // LIST ACTIVE: the largest servers carry a few hundred thousand groups. (A million groups
    // take about 150 MiB as the transport keeps them.)
    qint64 maxGroups = 1000000;
    // LIST OVERVIEW.FMT: a handful of fields.
    qint64 maxFormatLines = 1000;
    // OVER and HDR answer with at most one line per article of the asked range. An overview
    // line kept as text (SetRawOverview) may hold at most this many bytes on average (one line
    // may be as long as maxLineBytes).
    qint64 maxOverviewLineBytes = qint64(64) << 10;

    // Floor rate: a transaction (the connect included) fails as a time-out when the bytes that
    // went either way in the last floorWindowSeconds (at least the session's time-out) average
    // below floorBytesPerSecond. The time-out alone only measures silence; a server trickling
    // a byte now and then would otherwise keep a transaction alive for ever.
    qint64 floorBytesPerSecond = 1024;
    int floorWindowSeconds = 60;
};
