#pragma once
#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QPair>
#include <QString>

// Building a plain-text article and the texts around posting: the header order, RFC 2047 for
// non-ASCII phrases, the UTF-8 body with CR LF lines, the POST.LOG lines and the reply texts.
// Dot-stuffing is left to the news transport.
namespace PostArticle {

struct Fields {
    QString name;
    QString email;
    QString subject;
    QString group;          // the one target group
    QString body;           // the message text as typed (any line ends)
    QString references;     // replies only
    QString inReplyTo;      // replies only
};

using HeaderList = QList<QPair<QString, QString>>;

// Headers in the order they are sent: From, Newsgroups, Subject, Organization, then for a reply
// References and In-Reply-To, then the MIME headers of a UTF-8 plain-text body.
HeaderList headers(const Fields &f);
// The body as sent: UTF-8, every line ended by CR LF, long lines left whole.
QByteArray body(const QString &text);
// Headers, blank line and body, CR LF throughout.
QByteArray build(const Fields &f);

// A header value: ASCII stays as it is; otherwise RFC 2047 encoded words (UTF-8, base64),
// each at most 75 characters, folded onto continuation lines.
QString encodeHeaderText(const QString &text);
// name + " <" + e-mail + ">", both trimmed; a name with special characters is quoted and a
// non-ASCII name is encoded.
QString fromHeader(const QString &name, const QString &email);

inline constexpr const char *Organization = "Newsdredge! 3.8";

// "Invalid Email Address!" is shown unless the address holds "@" and ".".
bool looksLikeEmail(const QString &email);

// POST.LOG lines (without their CR LF).
QString logTime(const QDateTime &when);
QString successLine(const QDateTime &when, const QString &server, const QString &group, const QString &subject);
QString failureLine(const QDateTime &when, const QString &server, const QString &subject);
// Appends one line with CR LF to the log file; false when it cannot be written.
bool appendLog(const QString &path, const QString &line);

// Reply texts: "Re : " + subject; two CR LF, the text line, CR LF, 40 dashes, CR LF, and the
// first 100 characters of the quoted message.
inline constexpr int ReplyQuoteLength = 100;
QString replySubject(const QString &subject);
QString replyText(const QString &textLine, const QString &quoted);
// References of a reply: the message's references followed by its Message-ID.
QString replyReferences(const QString &references, const QString &messageId);

} // namespace PostArticle
