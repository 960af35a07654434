// The one place that talks to GMime. GLib's headers use "signals" as an
// identifier, so they must come before any Qt header in this file.
#include <gmime/gmime.h>

#include "news/transport/NewsMessage.h"

#include <QRegularExpression>

#include <cstring>
#include <mutex>

namespace {

void initGMime()
{
    static std::once_flag once;
    std::call_once(once, [] { g_mime_init(); });
}

// Splits the header block into fields, unfolding continuation lines.
// Values keep their text as sent, minus the blank after the colon.
void parseHeaderBlock(const QByteArray &raw, qsizetype headerEnd, QList<NewsTransportHeader> &out)
{
    QByteArray name, value;
    bool have = false;
    auto flush = [&] {
        if (have)
            out.append(NewsTransportHeader{QString::fromLatin1(name), textFromBytes(value)});
        have = false;
    };
    qsizetype pos = 0;
    while (pos < headerEnd) {
        qsizetype eol = raw.indexOf('\n', pos);
        if (eol < 0 || eol > headerEnd)
            eol = headerEnd;
        qsizetype lineEnd = eol;
        if (lineEnd > pos && raw.at(lineEnd - 1) == '\r')
            --lineEnd;
        const QByteArray line = raw.mid(pos, lineEnd - pos);
        pos = eol + 1;
        if (line.isEmpty())
            break;
        if ((line.at(0) == ' ' || line.at(0) == '\t')) {
            if (have) {
                value += ' ';
                value += line.trimmed();
            }
            continue;
        }
        flush();
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            continue;  // not a header field; skip it
        name = line.left(colon).trimmed();
        qsizetype v = colon + 1;
        while (v < line.size() && (line.at(v) == ' ' || line.at(v) == '\t'))
            ++v;
        value = line.mid(v);
        while (value.endsWith(' ') || value.endsWith('\t'))
            value.chop(1);
        have = true;
    }
    flush();
}

QByteArray streamBytes(GMimeStream *stream)
{
    QByteArray out;
    if (!stream)
        return out;
    g_mime_stream_reset(stream);
    char buf[65536];
    for (;;) {
        const ssize_t n = g_mime_stream_read(stream, buf, sizeof buf);
        if (n <= 0)
            break;
        out.append(buf, n);
    }
    return out;
}

QString lowerMediaType(GMimeObject *obj)
{
    GMimeContentType *ct = g_mime_object_get_content_type(obj);
    if (!ct)
        return QString();
    const char *type = g_mime_content_type_get_media_type(ct);
    return type ? QString::fromLatin1(type).toLower() : QString();
}

// The disposition as the program reports it: empty for an inline part
// without a file name; a file name given only as name= or filename*= is
// carried as filename="...".
QString dispositionOf(GMimeObject *obj)
{
    const char *rawHeader = g_mime_object_get_header(obj, "Content-Disposition");
    QString header = rawHeader ? textFromBytes(QByteArray(rawHeader)).simplified() : QString();
    QString fileName;
    if (GMIME_IS_PART(obj)) {
        const char *fn = g_mime_part_get_filename(GMIME_PART(obj));
        if (fn && *fn)
            fileName = textFromBytes(QByteArray(fn));
    }
    QString kind = QStringLiteral("attachment");
    GMimeContentDisposition *cd = g_mime_object_get_content_disposition(obj);
    if (cd && g_mime_content_disposition_get_disposition(cd))
        kind = QString::fromLatin1(g_mime_content_disposition_get_disposition(cd)).toLower();
    if (fileName.isEmpty()) {
        if (header.isEmpty() || kind == QLatin1String("inline"))
            return QString();
        return header;
    }
    static const QRegularExpression plainFileName(QStringLiteral("(^|[;\\s])filename\\s*="),
                                                  QRegularExpression::CaseInsensitiveOption);
    if (!header.isEmpty() && header.contains(plainFileName))
        return header;
    QString name = fileName;
    name.remove(QLatin1Char('"'));
    return kind + QStringLiteral("; filename=\"") + name + QLatin1Char('"');
}

void collectLeaves(GMimeObject *obj, QList<NewsTransportPart> &parts)
{
    if (GMIME_IS_MULTIPART(obj)) {
        GMimeMultipart *mp = GMIME_MULTIPART(obj);
        const int n = g_mime_multipart_get_count(mp);
        for (int i = 0; i < n; ++i)
            collectLeaves(g_mime_multipart_get_part(mp, i), parts);
        return;
    }
    NewsTransportPart part;
    part.ContentType = lowerMediaType(obj);
    part.ContentDisposition = dispositionOf(obj);
    if (GMIME_IS_PART(obj)) {
        GMimeDataWrapper *content = g_mime_part_get_content(GMIME_PART(obj));
        if (content)
            part.Body = streamBytes(g_mime_data_wrapper_get_stream(content));
    } else if (GMIME_IS_MESSAGE_PART(obj)) {
        GMimeMessage *inner = g_mime_message_part_get_message(GMIME_MESSAGE_PART(obj));
        if (inner) {
            GMimeStream *mem = g_mime_stream_mem_new();
            g_mime_object_write_to_stream(GMIME_OBJECT(inner), nullptr, mem);
            part.Body = streamBytes(mem);
            g_object_unref(mem);
        }
    }
    parts.append(part);
}

// Lines starting with "--" from from on: every MIME boundary is one, so this is at least the
// number of body parts. Stops counting past limit.
qint64 boundaryLines(const QByteArray &raw, qsizetype from, qint64 limit)
{
    qint64 n = 0;
    const QByteArrayView v(raw);
    for (qsizetype at = v.indexOf("\n--", from > 0 ? from - 1 : 0); at >= 0 && n <= limit;
         at = v.indexOf("\n--", at + 3))
        ++n;
    return n;
}

}  // namespace

bool parseArticle(NewsTransportMessage &msg, qint64 maxMimeParts)
{
    const QByteArray &raw = msg.Raw;
    msg.Headers.clear();
    msg.Parts.clear();
    msg.MIMEVersion.clear();
    msg.ContentType.clear();
    msg.ContentDisposition.clear();

    // The blank line ends the headers; an article may also start with it.
    qsizetype headerEnd = -1, bodyStart = raw.size();
    if (raw.startsWith("\r\n")) {
        headerEnd = 0;
        bodyStart = 2;
    } else if (raw.startsWith('\n')) {
        headerEnd = 0;
        bodyStart = 1;
    } else {
        const qsizetype crlf = raw.indexOf("\r\n\r\n");
        const qsizetype lf = raw.indexOf("\n\n");
        if (crlf >= 0 && (lf < 0 || crlf <= lf)) {
            headerEnd = crlf + 2;
            bodyStart = crlf + 4;
        } else if (lf >= 0) {
            headerEnd = lf + 1;
            bodyStart = lf + 2;
        } else {
            headerEnd = raw.size();
        }
    }
    parseHeaderBlock(raw, headerEnd, msg.Headers);
    msg.Body = raw.mid(bodyStart);

    bool hasContentType = false;
    for (const NewsTransportHeader &h : std::as_const(msg.Headers)) {
        if (h.Name.compare(QLatin1String("MIME-Version"), Qt::CaseInsensitive) == 0)
            msg.MIMEVersion = h.value;
        else if (h.Name.compare(QLatin1String("Content-Type"), Qt::CaseInsensitive) == 0)
            hasContentType = true;
    }
    if (msg.MIMEVersion.isEmpty() && !hasContentType)
        return true;  // a plain article: no MIME structure to look at
    if (maxMimeParts >= 0 && boundaryLines(raw, bodyStart, maxMimeParts) > maxMimeParts)
        return false;

    initGMime();
    GMimeStream *stream = g_mime_stream_mem_new_with_buffer(raw.constData(), size_t(raw.size()));
    GMimeParser *parser = g_mime_parser_new_with_stream(stream);
    g_mime_parser_set_format(parser, GMIME_FORMAT_MESSAGE);
    GMimeMessage *message = g_mime_parser_construct_message(parser, nullptr);
    if (message) {
        GMimeObject *top = g_mime_message_get_mime_part(message);
        if (top) {
            if (hasContentType)
                msg.ContentType = lowerMediaType(top);
            msg.ContentDisposition = dispositionOf(top);
            if (GMIME_IS_MULTIPART(top))
                collectLeaves(top, msg.Parts);
        }
        g_object_unref(message);
    }
    g_object_unref(parser);
    g_object_unref(stream);
    return true;
}
