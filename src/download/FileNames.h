#pragma once
#include <QString>
#include <functional>

namespace nd {

// What the attachment-name search found in one article's text.
struct AttachmentNameResult {
    QString name;          // cleaned; empty when none was found
    bool uuencoded = false;
    bool yenc = false;
};

// The attachment-name rules for one article text: the MIME "filename=", the yEnc "name=" of a
// "=ybegin" line, or the name after a uuencode "begin <mode>" line; then the length limit and the
// character cleaning. stop() is tested between the steps of the uuencode search.
// With bytesAsLatin1 the text holds an article's bytes one Latin-1 character each: the name
// found is read as UTF-8 where its bytes are valid UTF-8 before it is measured and cleaned.
AttachmentNameResult findAttachmentName(const QString &text, bool isMime,
                                        const std::function<bool()> &stop = {}, bool bytesAsLatin1 = false);

// Replaces "/", "\", "*", "|" and ":" by "_" and removes double quotes.
QString cleanAttachmentName(QString name);

// The name a set is finally written under: everything up to the last "\", "/" or ":" is dropped
// and the name is cut before its first ";"; then plainFileName().
QString savedFileName(QString name);

// Whatever a header said, the result is a plain file name inside the download directory: no
// directory part, no control characters, never "." or ".."; empty stays empty.
QString plainFileName(const QString &name);

// The temporary file name of a download run: int(random * 255996) + 100000 followed by ".tmp"
// (100000.tmp to 355995.tmp), random in [0, 1). Drawn again by nextTempFileName() while
// exists() says the name is taken.
QString tempFileNameFor(double random01);
QString nextTempFileName(const std::function<double()> &random01, const std::function<bool(const QString &)> &exists);

// A name's length in characters: code points, not UTF-16 units (nor bytes).
qsizetype nameLength(const QString &name);

// Whether name is taken in dir (which ends in "/"): a file, link or directory of that name or
// of name + ".damaged" (what a damaged set of that name is saved as) is there.
bool nameTaken(const QString &dir, const QString &name);

// The longest attachment name accepted.
inline constexpr int MaxAttachmentNameLength = 120;

} // namespace nd
