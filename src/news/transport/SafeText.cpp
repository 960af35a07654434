#include "news/transport/SafeText.h"

namespace nd {

namespace {

bool unsafe(char16_t c, SafeTextTabs tabs)
{
    if (c < 0x20)
        return !(c == u'\t' && tabs == SafeTextTabs::Keep);
    if (c < 0x7f)
        return false;
    if (c <= 0x9f)
        return true;   // DEL and the C1 controls (0x9B is a one-character CSI)
    // direction marks, embeddings, overrides and isolates; line and paragraph separators
    return c == 0x061c || c == 0x200e || c == 0x200f || (c >= 0x2028 && c <= 0x202e) ||
           (c >= 0x2066 && c <= 0x2069);
}

} // namespace

bool needsSafeText(QStringView text, SafeTextTabs tabs)
{
    for (QChar c : text)
        if (unsafe(c.unicode(), tabs))
            return true;
    return false;
}

QString safeText(QStringView text, SafeTextTabs tabs)
{
    if (!needsSafeText(text, tabs))
        return text.toString();
    QString out;
    out.reserve(text.size() + 16);
    for (QChar c : text) {
        const char16_t u = c.unicode();
        if (!unsafe(u, tabs))
            out.append(c);
        else if (u <= 0xff)
            out += QLatin1String("\\x") + QString::number(uint(u), 16).rightJustified(2, QLatin1Char('0')).toUpper();
        else
            out += QLatin1String("\\u") + QString::number(uint(u), 16).rightJustified(4, QLatin1Char('0')).toUpper();
    }
    return out;
}

} // namespace nd
