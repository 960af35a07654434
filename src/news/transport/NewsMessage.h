// Objects the news transport hands to the program: groups, articles and
// their parsed messages, plus the small text helpers every caller shares.
#pragma once

#include <QByteArray>
#include <cstring>
#include <QList>
#include <QString>

struct NewsTransportHeader {
    QString Name;
    QString value;
};

struct NewsTransportPart {
    QString ContentType;         // lower-case top-level type ("text", "image", ...)
    QString ContentDisposition;  // "" for an inline part without a file name
    QByteArray Body;             // still transfer-encoded, CR LF lines
};

struct NewsTransportMessage {
    // In article order. For overview rows: Subject, From, Date, Message-ID,
    // References, Bytes, Lines, the extra overview fields, then Path.
    QList<NewsTransportHeader> Headers;
    QString MIMEVersion;          // empty for a plain article
    QByteArray Body;              // everything after the blank line, CR LF lines
    QString ContentType;          // lower-case top-level type, "" when none
    QString ContentDisposition;
    QList<NewsTransportPart> Parts;  // leaf parts of a multipart message, in order
    QByteArray Raw;               // the whole article as received (dot-unstuffed, CR LF)

    // Value of the last header with exactly this name, "" if none.
    QString header(const QString &name) const;
};

struct NewsTransportArticle {
    qint64 Number = 0;
    NewsTransportMessage Message;
};

class NewsTransportGroup {
public:
    QString Name;
    qint64 First = 0;
    qint64 Last = 0;
    qint64 Estimated = 0;
    QList<NewsTransportArticle> Articles;

    int Count() const { return int(Articles.size()); }
    const NewsTransportArticle &Item(int i) const { return Articles.at(i); }
    // Moves out what has arrived so far; the collection is empty afterwards.
    QList<NewsTransportArticle> TakeArticles();
};

class NewsTransportGroupList {
public:
    int Count() const { return int(Groups.size()); }
    const NewsTransportGroup &Item(int i) const { return Groups.at(i); }
    QList<NewsTransportGroup> Groups;
};

// All members are relocatable Qt values: let QList move these with memcpy.
Q_DECLARE_TYPEINFO(NewsTransportHeader, Q_RELOCATABLE_TYPE);
Q_DECLARE_TYPEINFO(NewsTransportPart, Q_RELOCATABLE_TYPE);
Q_DECLARE_TYPEINFO(NewsTransportMessage, Q_RELOCATABLE_TYPE);
Q_DECLARE_TYPEINFO(NewsTransportArticle, Q_RELOCATABLE_TYPE);
Q_DECLARE_TYPEINFO(NewsTransportGroup, Q_RELOCATABLE_TYPE);

// One parser for every use of a server entry: "[nntp[s]://]host[:port]".
struct ServerAddress {
    QString host;
    quint16 port = 119;
    bool tls = false;
    bool valid = false;
};
ServerAddress parseServerAddress(const QString &entry);

// Display text of raw bytes: UTF-8 when the bytes are valid UTF-8, else Latin-1.
QString textFromBytes(const QByteArray &bytes);
QString textFromBytes(const char *data, qsizetype size);
// Whether every byte is below 0x80.
bool isAscii(const char *p, qsizetype n);

// Fills msg from msg.Raw: headers in order (unfolded, values as sent),
// MIME-Version, Body, ContentType, ContentDisposition and the leaf Parts.
// False, with only the headers and the body filled, when the article has more than maxMimeParts
// MIME body parts (-1: no bound); their number, not the article's size, is what costs the MIME
// parser its memory.
bool parseArticle(NewsTransportMessage &msg, qint64 maxMimeParts = -1);

// Overview support: the field names of an OVER row from the lines of
// LIST OVERVIEW.FMT (or the standard seven when the list is empty), and the
// parse of one row into an article.
struct OverviewFormat {
    QList<QString> names;     // header name per field after the article number
    QList<bool> full;         // field arrives as "Name: value"
    bool hasPath = false;
    static OverviewFormat fromLines(const QList<QByteArray> &lines);
};
bool parseOverviewLine(const char *line, qsizetype size, const OverviewFormat &fmt,
                       NewsTransportArticle &out);

// Splits one overview row: reads the article number into *number, then calls
// onField(index, begin, end) with the value of each of the first maxFields fields
// ("Name: " taken off full fields). Empty fields past the seventh are passed over.
// False when the row does not start with an article number.
template <class OnField>
bool forEachOverviewField(const char *line, qsizetype size, const OverviewFormat &fmt, qsizetype maxFields,
                          qint64 *number, OnField &&onField)
{
    const char *p = line;
    const char *end = line + size;
    const char *tab = static_cast<const char *>(std::memchr(p, '\t', size_t(end - p)));
    const char *numEnd = tab ? tab : end;
    if (numEnd == p)
        return false;
    qint64 n = 0;
    for (const char *q = p; q < numEnd; ++q) {
        if (*q < '0' || *q > '9')
            return false;
        n = n * 10 + (*q - '0');
    }
    *number = n;
    qsizetype field = 0;
    p = tab ? tab + 1 : end;
    while (tab && field < maxFields) {
        tab = static_cast<const char *>(std::memchr(p, '\t', size_t(end - p)));
        const char *fEnd = tab ? tab : end;
        const char *v = p;
        if (fmt.full.at(field)) {
            // "Name: value"; a server may also send an empty field
            const char *colon = static_cast<const char *>(std::memchr(v, ':', size_t(fEnd - v)));
            if (colon) {
                v = colon + 1;
                while (v < fEnd && *v == ' ')
                    ++v;
            } else {
                v = fEnd;
            }
        }
        if (field < 7 || v < fEnd)
            onField(field, v, fEnd);
        ++field;
        p = tab ? tab + 1 : end;
    }
    return true;
}
