// GMime (through GLib) uses "signals" as a name: it must come before any Qt header.
#include <gmime/gmime.h>

#include "news/transport/MessageParser.h"

#include <QRegularExpression>
#include <mutex>

namespace {

void initGMime()
{
    static std::once_flag once;
    std::call_once(once, [] { g_mime_init(); });
}

QString unfolded(const char *raw)
{
    if (!raw)
        return QString();
    QByteArray v(raw);
    QByteArray out;
    out.reserve(v.size());
    for (qsizetype i = 0; i < v.size(); ++i) {
        const char c = v[i];
        if (c == '\r' || c == '\n')
            continue;   // a folded line goes on with its leading white space
        out += c;
    }
    return textFromBytes(out.trimmed());
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

QString mediaType(GMimeObject *obj)
{
    GMimeContentType *ct = g_mime_object_get_content_type(obj);
    if (!ct)
        return QString();
    const char *t = g_mime_content_type_get_media_type(ct);
    return t ? QString::fromLatin1(t).toLower() : QString();
}

QString dispositionOf(GMimeObject *obj)
{
    const char *raw = g_mime_object_get_header(obj, "Content-Disposition");
    QString disp = raw ? unfolded(raw) : QString();
    QString filename;
    if (GMIME_IS_PART(obj)) {
        if (const char *f = g_mime_part_get_filename(GMIME_PART(obj)))
            filename = QString::fromUtf8(f);
    }
    if (filename.isEmpty()) {
        if (disp.trimmed().startsWith(QLatin1String("inline"), Qt::CaseInsensitive)
            && !disp.contains(QLatin1String("filename"), Qt::CaseInsensitive))
            return QString();
        return disp;
    }
    // the file name may have come from name= or filename*=: make sure a plain filename= carries it
    if (!QRegularExpression(QStringLiteral("(^|;)\\s*filename\\s*=")).match(disp).hasMatch()) {
        if (disp.trimmed().isEmpty())
            disp = QStringLiteral("attachment");
        QString quoted = filename;
        quoted.replace(QLatin1Char('"'), QLatin1Char('\''));
        disp += QStringLiteral("; filename=\"%1\"").arg(quoted);
    }
    return disp;
}

QByteArray encodedContent(GMimeObject *obj)
{
    if (!GMIME_IS_PART(obj))
        return QByteArray();
    GMimeDataWrapper *w = g_mime_part_get_content(GMIME_PART(obj));
    if (!w)
        return QByteArray();
    return streamBytes(g_mime_data_wrapper_get_stream(w));
}

void collectLeaves(GMimeObject *obj, QList<NewsTransportPart> &out)
{
    if (GMIME_IS_MULTIPART(obj)) {
        GMimeMultipart *mp = GMIME_MULTIPART(obj);
        const int n = g_mime_multipart_get_count(mp);
        for (int i = 0; i < n; ++i)
            collectLeaves(g_mime_multipart_get_part(mp, i), out);
        return;
    }
    if (GMIME_IS_MESSAGE_PART(obj)) {
        GMimeMessage *inner = g_mime_message_part_get_message(GMIME_MESSAGE_PART(obj));
        if (inner && g_mime_message_get_mime_part(inner))
            collectLeaves(g_mime_message_get_mime_part(inner), out);
        return;
    }
    NewsTransportPart p;
    p.ContentType = mediaType(obj);
    p.ContentDisposition = dispositionOf(obj);
    p.Body = encodedContent(obj);
    out.append(std::move(p));
}

// The body exactly as it stands in the article: everything after the first empty line.
QByteArray rawBody(const QByteArray &raw)
{
    if (raw.startsWith("\r\n"))
        return raw.mid(2);
    if (raw.startsWith("\n"))
        return raw.mid(1);
    qsizetype p = raw.indexOf("\r\n\r\n");
    qsizetype q = raw.indexOf("\n\n");
    if (p >= 0 && (q < 0 || p < q))
        return raw.mid(p + 4);
    if (q >= 0)
        return raw.mid(q + 2);
    return QByteArray();
}

} // namespace

NewsTransportMessage parseArticle(const QByteArray &raw)
{
    initGMime();
    NewsTransportMessage m;
    m.Raw = raw;

    // GMime only needs the header block and, for MIME articles, the body structure
    GMimeStream *stream = g_mime_stream_mem_new_with_buffer(raw.constData(), size_t(raw.size()));
    GMimeParser *parser = g_mime_parser_new_with_stream(stream);
    GMimeMessage *msg = g_mime_parser_construct_message(parser, nullptr);
    g_object_unref(parser);
    g_object_unref(stream);

    if (!msg) {
        m.Body = rawBody(raw);
        return m;
    }
    GMimeHeaderList *hl = g_mime_object_get_header_list(GMIME_OBJECT(msg));
    const int count = hl ? g_mime_header_list_get_count(hl) : 0;
    bool hasContentType = false;
    for (int i = 0; i < count; ++i) {
        GMimeHeader *h = g_mime_header_list_get_header_at(hl, i);
        const QString name = QString::fromLatin1(g_mime_header_get_name(h));
        m.Headers.append({name, unfolded(g_mime_header_get_raw_value(h))});
        if (name.compare(QLatin1String("MIME-Version"), Qt::CaseInsensitive) == 0)
            m.MIMEVersion = m.Headers.last().value;
        if (name.compare(QLatin1String("Content-Type"), Qt::CaseInsensitive) == 0)
            hasContentType = true;
    }

    GMimeObject *top = g_mime_message_get_mime_part(msg);
    if (top && hasContentType)
        m.ContentType = mediaType(top);
    if (top && !m.MIMEVersion.isEmpty()) {
        m.ContentDisposition = dispositionOf(top);
        if (GMIME_IS_MULTIPART(top) || GMIME_IS_MESSAGE_PART(top))
            collectLeaves(top, m.Parts);
    }
    m.Body = rawBody(raw);
    g_object_unref(msg);
    return m;
}
